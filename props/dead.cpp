// SPDX-License-Identifier: Apache-2.0
//
// Dead properties: named values that the provider keeps and nobody interprets (RFC 4918 section 4).
#include <algorithm>
#include <cstring>

#include "props/propfind.h"
#include "support/list.h"
#include "support/memory.h"
#include "support/reply.h"

namespace {

constexpr UINT32 kFirstBuffer = 32768;
constexpr int kAttempts = 7; // the last with 2 MiB
constexpr UINT32 kNameUnits = 40;
constexpr UINT32 kNameBytes = 80;
constexpr UINT32 kRecordHeader = offsetof(DAV_NAMED_PROPERTY, Value);

// An entry of lDeadProperties; its link stands first.
DAV_PROP* PropOf(LIST_ENTRY* entry)
{
    return reinterpret_cast<DAV_PROP*>(entry);
}

// Appends a property with room for its name and value. The name stands behind the value, on an even
// offset.
TALSTATUS KeepProperty(PROPFIND_REQ* request, const void* name, UINT32 nameBytes, const void* value,
                       UINT32 valueBytes)
{
    const UINT64 nameOffset = (UINT64{kRecordHeader} + valueBytes + 1) & ~UINT64{1};
    const UINT64 size = offsetof(DAV_PROP_VALUE, NamedProp) + nameOffset + nameBytes;
    if (request->DeadBytes + size > kMaxDeadBytes)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    // At least the record itself, whose declared size counts padding.
    Paged<UINT8> memory = AllocPaged<UINT8>(std::max<size_t>(size, sizeof(DAV_PROP_VALUE)));
    if (!memory)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    request->DeadBytes += static_cast<UINT32>(size);

    auto* kept = reinterpret_cast<DAV_PROP_VALUE*>(memory.release());
    kept->Flags = kPropHasValue;
    kept->NamedProp.NextEntryOffset = 0;
    kept->NamedProp.NameLength = nameBytes;
    kept->NamedProp.NameOffset = static_cast<UINT32>(nameOffset);
    kept->NamedProp.ValueLength = valueBytes;
    auto* record = reinterpret_cast<UINT8*>(&kept->NamedProp);
    std::memcpy(record + kRecordHeader, value, valueBytes);
    std::memcpy(record + nameOffset, name, nameBytes);
    pITalpl->TalxInsertTailList(&request->lDeadProperties, &kept->ListLink);
    return TAL_STATUS_SUCCESS;
}

// Keeps the packed records of a buffer. A record that points outside the buffer ends it.
TALSTATUS KeepRecords(PROPFIND_REQ* request, const UINT8* buffer, UINT32 size)
{
    for (UINT32 at = 0; size - at >= kRecordHeader;) {
        DAV_NAMED_PROPERTY record;
        std::memcpy(static_cast<void*>(&record), buffer + at, kRecordHeader);
        const UINT32 room = size - at;
        if (record.ValueLength > room - kRecordHeader || record.NameOffset > room ||
            record.NameLength > room - record.NameOffset)
            return TAL_STATUS_UNSUCCESSFUL;
        if (const TALSTATUS status =
                KeepProperty(request, buffer + at + record.NameOffset, record.NameLength,
                             buffer + at + kRecordHeader, record.ValueLength);
            Failed(status))
            return status;
        if (record.NextEntryOffset == 0 || record.NextEntryOffset > room)
            return TAL_STATUS_SUCCESS;
        at += record.NextEntryOffset;
    }
    return TAL_STATUS_SUCCESS;
}

// Lists all properties from the first. Code 9 at their end.
template <class Object>
TALSTATUS ListOnce(Object* object, PROPFIND_REQ* request, UINT8* buffer, UINT32 size)
{
    auto* record = reinterpret_cast<DAV_NAMED_PROPERTY*>(buffer);
    for (bool first = true;; first = false) {
        std::memset(buffer, 0, kRecordHeader);
        UINT32 used = size;
        const TALSTATUS status = first ? object->GetFirstProperty(&used, record)
                                       : object->GetNextProperty(&used, record);
        if (Failed(status) || Code(status) == kCodeNoMoreEntries)
            return status;
        if (const TALSTATUS kept = KeepRecords(request, buffer, std::min(used, size)); Failed(kept))
            return kept;
    }
}

void DropValues(PROPFIND_REQ* request)
{
    LIST_ENTRY* const head = &request->lDeadProperties;
    for (LIST_ENTRY* entry = head->Flink; entry != head;) {
        LIST_ENTRY* const next = entry->Flink;
        if (PropOf(entry)->Flags & kPropHasValue)
            FreeListEntry(entry);
        entry = next;
    }
    request->DeadBytes = 0;
}

template <class Object> TALSTATUS CollectAll(Object* object, PROPFIND_REQ* request)
{
    TALSTATUS status = TAL_STATUS_SUCCESS;
    UINT32 size = kFirstBuffer;
    for (int attempt = 1; attempt <= kAttempts; ++attempt, size *= 2) {
        if (attempt > 1)
            DropValues(request); // the listing starts over
        const Paged<UINT8> buffer = AllocPaged<UINT8>(size);
        if (!buffer)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        status = ListOnce(object, request, buffer.get(), size);
        if (Code(status) == kCodeNoMoreEntries)
            return TAL_STATUS_SUCCESS;
        if (Code(status) != kCodeBufferTooSmall)
            break;
    }
    return status;
}

// Asks for the value of the list's first entry and moves the property, with its value, to the tail.
template <class Object>
TALSTATUS FetchFirst(Object* object, PROPFIND_REQ* request, char* value, UINT32 size)
{
    DAV_PROP* const asked = PropOf(request->lDeadProperties.Flink);
    WCHAR name[kNameUnits];
    UINT32 units = kNameUnits;
    if (const TALSTATUS status = pITalpl->TalxMultiByteToWideChar(
            kCodePageUtf8Alt, asked->szName, pITalpl->TalxStrlen(asked->szName), name, &units);
        Code(status) != kCodeSuccess)
        // Code 7 would be taken for a value that wants a larger buffer.
        return Failed(status) && Code(status) != kCodeBufferTooSmall ? status
                                                                     : TAL_STATUS_NAME_TOO_LONG;

    const UINT32 nameBytes = units * UINT32{sizeof(WCHAR)};
    UNICODE_STRING nameU = {static_cast<UINT16>(nameBytes), sizeof(name), name};
    UINT32 length = size;
    if (const TALSTATUS status = object->GetNamedProperty(&nameU, &length, value); Failed(status))
        return status;
    if (const TALSTATUS status =
            KeepProperty(request, name, nameBytes, value, std::min(length, size));
        Failed(status))
        return status;
    FreeListEntry(&asked->ListLink);
    return TAL_STATUS_SUCCESS;
}

template <class Object> TALSTATUS FetchRequested(Object* object, PROPFIND_REQ* request)
{
    const LIST_ENTRY* const head = &request->lDeadProperties;
    const auto unanswered = [&] {
        return head->Flink != head && !(PropOf(head->Flink)->Flags & kPropHasValue);
    };
    TALSTATUS status = TAL_STATUS_SUCCESS;
    UINT32 size = kFirstBuffer;
    for (int attempt = 1; attempt <= kAttempts && unanswered(); ++attempt, size *= 2) {
        const Paged<char> value = AllocPaged<char>(size);
        if (!value)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        do
            status = FetchFirst(object, request, value.get(), size);
        while (!Failed(status) && unanswered());
        if (Code(status) != kCodeBufferTooSmall)
            break;
    }
    return status;
}

} // namespace

TALSTATUS PropFindGetRDeadProps(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest)
{
    return CollectAll(pIResource, pRequest);
}

TALSTATUS PropFindGetCDeadProps(IKestDAVCollection2* pICollection, PROPFIND_REQ* pRequest)
{
    return CollectAll(pICollection, pRequest);
}

TALSTATUS PropFindGetResProps(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest)
{
    return FetchRequested(pIResource, pRequest);
}

TALSTATUS PropFindGetColProps(IKestDAVCollection2* pICollection, PROPFIND_REQ* pRequest)
{
    return FetchRequested(pICollection, pRequest);
}

TALSTATUS PropFindSendDeadProps(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    LIST_ENTRY* const head = &pRequest->lDeadProperties;
    for (LIST_ENTRY* entry = head->Flink; entry != head; entry = entry->Flink) {
        if (!(PropOf(entry)->Flags & kPropHasValue))
            continue; // kept: never reported as missing
        const DAV_NAMED_PROPERTY& property = reinterpret_cast<DAV_PROP_VALUE*>(entry)->NamedProp;
        const auto* record = reinterpret_cast<const UINT8*>(&property);
        char name[kNameBytes];
        UINT32 length = sizeof(name);
        if (Code(pITalpl->TalxWideCharToMultiByte(
                kCodePageUtf8Alt, reinterpret_cast<const WCHAR*>(record + property.NameOffset),
                property.NameLength / UINT32{sizeof(WCHAR)}, name, &length)) != kCodeSuccess)
            continue;
        length = std::min<UINT32>(length, sizeof(name));

        Put(pKestIo, "<");
        PutBytes(pKestIo, name, length);
        if (pRequest->Flags & kNamesOnly) {
            Put(pKestIo, "/>");
            continue;
        }
        Put(pKestIo, ">\n");
        PutBytes(pKestIo, property.Value, property.ValueLength);
        Put(pKestIo, "</");
        PutBytes(pKestIo, name, length);
        Put(pKestIo, ">\n");
    }
    return TAL_STATUS_SUCCESS;
}
