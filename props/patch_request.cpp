// SPDX-License-Identifier: Apache-2.0
//
// Reading the body of PROPPATCH.
#include <algorithm>
#include <cstring>

#include "props/patch.h"
#include "support/escape.h"
#include "support/list.h"
#include "support/lock_token.h"
#include "support/memory.h"
#include "support/xml_body.h"

namespace {

PATCH_PROP* PropOf(LIST_ENTRY* entry)
{
    return reinterpret_cast<PATCH_PROP*>(entry); // its link stands first
}

// Records a property. Names beyond what the body can hold itself are left out.
void AddProperty(PATCH_REQ* request, const char* name)
{
    const size_t cost = std::strlen(name) + kElementCost;
    if (cost > request->NameBudget)
        return;
    request->NameBudget -= cost;

    Paged<PATCH_PROP> memory = AllocPaged<PATCH_PROP>(1);
    char* const copy = memory ? kestdav_strdup(name) : nullptr;
    if (!copy) {
        request->Status = TAL_STATUS_INSUFFICIENT_RESOURCES;
        return;
    }
    PATCH_PROP* const property = memory.release();
    property->Action = request->Flags & kInSet      ? kPatchSet
                       : request->Flags & kInRemove ? kPatchRemove
                                                    : kPatchNone;
    property->status = TAL_STATUS_SUCCESS;
    property->pName = copy;
    property->ValueLength = 0;
    property->pValue = nullptr;
    pITalpl->TalxInsertTailList(&request->lProperties, &property->ListLink);
}

// The raw body, searched from a position on.
struct Body {
    const char* text;
    UINT32 size;

    // The position behind `open`, the name, and ">" when `closed`; `size` + 1 when there is none.
    // `start` takes the position of `open`.
    UINT32 Find(UINT32 from, const char* open, const char* name, bool closed, UINT32& start) const
    {
        const auto openBytes = static_cast<UINT32>(std::strlen(open));
        const UINT32 nameBytes = pITalpl->TalxStrlen(name);
        const UINT32 whole = openBytes + nameBytes + (closed ? 1 : 0);
        for (UINT32 at = from; at <= size && size - at >= whole; ++at) {
            const void* const next = std::memchr(text + at, '<', size - at);
            if (!next)
                break;
            at = static_cast<UINT32>(static_cast<const char*>(next) - text);
            if (size - at < whole)
                break;
            const char* const tag = text + at;
            if (std::memcmp(tag, open, openBytes) != 0 ||
                pITalpl->TalxCompareMemory(tag + openBytes, name, nameBytes) != 0 ||
                (closed && tag[whole - 1] != '>'))
                continue;
            start = at;
            return at + whole;
        }
        return size + 1;
    }
};

// Reads the body into `buffer`. A body that fills the buffer does not fit.
TALSTATUS ReadBody(IKestIO_5* io, char* buffer, UINT32 room, UINT32& size)
{
    size = 0;
    for (;;) {
        const UINT32 left = room - size;
        UINT32 read = 0;
        const TALSTATUS status =
            io->ReadClientPayload(left, reinterpret_cast<UINT8*>(buffer + size), &read);
        if (Code(status) == kCodeEndOfFile)
            return TAL_STATUS_SUCCESS;
        if (Code(status) != kCodeSuccess)
            return status;
        if (read == 0)
            return TAL_STATUS_SUCCESS;
        if (read >= left)
            return TAL_STATUS_BUFFER_TOO_SMALL;
        size += read;
    }
}

} // namespace

void PPStartTagHandler(void* pUserData, const char* pTagName, const char** /*ppAttr*/)
{
    auto* request = static_cast<PATCH_REQ*>(pUserData);
    if (request->Signature != kPatchSignature || Failed(request->Status) ||
        (request->Flags & kPropTaken))
        return;
    const char* const name = LocalName(pTagName);
    if (!(request->Flags & kInUpdate)) {
        if (SameName(name, "propertyupdate"))
            request->Flags |= kInUpdate;
    } else if (SameName(name, "set")) {
        request->Flags |= kInSet;
    } else if (SameName(name, "remove")) {
        request->Flags |= kInRemove;
    } else if (SameName(name, "prop")) {
        request->Flags |= kInProp;
    } else if (request->Flags & kInProp) {
        // Kept: only the first property of each prop element is taken.
        request->Flags |= kPropTaken;
        AddProperty(request, pTagName);
    } else {
        request->Status = TAL_STATUS_INVALID_REQUEST;
    }
}

void PPEndTagHandler(void* pUserData, const char* pTagName)
{
    auto* request = static_cast<PATCH_REQ*>(pUserData);
    if (request->Signature != kPatchSignature || Failed(request->Status))
        return;
    const char* const name = LocalName(pTagName);
    if (SameName(name, "prop"))
        request->Flags &= ~(kInProp | kPropTaken);
    else if (SameName(name, "set"))
        request->Flags &= ~kInSet;
    else if (SameName(name, "remove"))
        request->Flags &= ~kInRemove;
}

TALSTATUS ExtractPatchValues(PATCH_REQ* pRequest, const char* body, UINT32 size)
{
    const Body text = {body, size};
    UINT32 at = 0; // each search goes on where the last value ended
    LIST_ENTRY* const head = &pRequest->lProperties;
    for (LIST_ENTRY* entry = head->Flink; entry != head; entry = entry->Flink) {
        PATCH_PROP* const property = PropOf(entry);
        UINT32 start = 0;
        UINT32 end = 0;
        // Kept: ">" must follow the name, so an element with attributes has no value.
        const UINT32 value = text.Find(at, "<", property->pName, true, start);
        if (value > size || text.Find(value, "</", property->pName, false, end) > size) {
            at = 0;
            continue;
        }
        at = end;
        if (end == value)
            continue;
        Paged<char> copy = AllocPaged<char>(end - value);
        if (!copy)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        std::memcpy(copy.get(), body + value, end - value);
        property->ValueLength = end - value;
        property->pValue = copy.release();
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ParsePropPatchRequest(IKestIO_5* pKestIo, PATCH_REQ* pRequest)
{
    char header[kTokenHeaderBytes + 1];
    UINT32 tokenBytes = 0;
    if (ReadTokenHeader(pKestIo, "If", header))
        (void)CopyToken(header, pRequest->szLockToken, sizeof(pRequest->szLockToken), &tokenBytes);

    UINT32 available = 0;
    if (const TALSTATUS status = pKestIo->IsClientPayloadAvailable(&available);
        Code(status) != kCodeSuccess)
        return status;
    const UINT32 room = std::max(available, kPatchBodyBytes);
    const Paged<char> body = AllocPaged<char>(size_t{room} + 1);
    if (!body)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UINT32 size = 0;
    if (const TALSTATUS status = ReadBody(pKestIo, body.get(), room, size);
        Code(status) != kCodeSuccess)
        return status;
    body[size] = 0;

    pRequest->NameBudget = NameBudget(size);
    if (WasShortOfMemory(
            ParseXmlBody(body.get(), size, pRequest, PPStartTagHandler, PPEndTagHandler, nullptr)))
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    return ExtractPatchValues(pRequest, body.get(), size);
}

PATCH_REQ* AllocPatchRequest()
{
    Paged<PATCH_REQ> memory = AllocPaged<PATCH_REQ>(1);
    if (!memory)
        return nullptr;
    PATCH_REQ* request = memory.release();
    std::memset(request, 0, sizeof(*request));
    request->Signature = kPatchSignature;
    pITalpl->TalxInitializeListHead(&request->lProperties);
    return request;
}

void FreePatchRequest(PATCH_REQ* pRequest)
{
    while (!pITalpl->TalxIsListEmpty(&pRequest->lProperties)) {
        PATCH_PROP* const property = PropOf(pRequest->lProperties.Flink);
        pITalpl->TalxFreeMemory(property->pName);
        if (property->pValue)
            pITalpl->TalxFreeMemory(property->pValue);
        FreeListEntry(&property->ListLink);
    }
    pITalpl->TalxFreeMemory(pRequest);
}

TALSTATUS SendPatchResponse(IKestIO_5* /*pKestIo*/, PATCH_REQ* /*pRequest*/)
{
    return TAL_STATUS_SUCCESS;
}
