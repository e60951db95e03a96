// SPDX-License-Identifier: Apache-2.0
//
// GET in the classic dialect (RFC 9110 section 9.3.1): whole bodies, ranges, and the index pages.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "methods/opened_resource.h"
#include "methods/ranges.h"
#include "support/dates.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

// Dates are compared in steps of 10 ms: clients send back what "Last-Modified" told them.
constexpr UINT64 kDateStep = 100000;
// True when the request is for the ".index_xml" document of whatever stands before it.
bool NamesIndex(const UNICODE_STRING& url)
{
    static constexpr WCHAR kSuffix[] = u".index_xml";
    constexpr size_t kSuffixBytes = sizeof kSuffix - sizeof(WCHAR);
    return url.Length >= kSuffixBytes &&
           std::memcmp(url.Buffer + (url.Length - kSuffixBytes) / sizeof(WCHAR), kSuffix,
                       kSuffixBytes) == 0;
}

// True when the request's "If-Modified-Since" says that the client's copy is current (RFC 9110
// section 13.1.3).
bool IsUnmodified(IKestIO_5* io, DAV_DATETIME modified)
{
    char name[] = "If-Modified-Since";
    char buffer[128];
    UINT32 length = sizeof buffer;
    if (Failed(io->GetRequestHeader(name, &length, buffer)))
        return false;
    const auto used = static_cast<UINT16>(std::min<UINT32>(length, sizeof buffer));
    STRING text = {used, sizeof buffer, buffer};
    UINT64 since = 0;
    if (Failed(g_pIKestUtil->HttpTimeToSystemTime(&text, &since)))
        return false;
    return modified - modified % kDateStep <= since;
}

// Reads the "Range" header. It stands in `small` or, when longer, in request memory, with a byte
// behind the room that the host is offered for the terminator; null when there is none.
constexpr UINT32 kShortRangeBytes = 32;
constexpr UINT32 kLongRangeBytes = 1024;
char* ReadRangeHeader(IKestIO_5* io, char (&small)[kShortRangeBytes + 1])
{
    char name[] = "Range";
    char* text = small;
    UINT32 room = kShortRangeBytes;
    UINT32 length = room;
    TALSTATUS status = io->GetRequestHeader(name, &length, text);
    if (Code(status) == kCodeBufferTooSmall) {
        if (void* memory = io->AllocMemory(kLongRangeBytes + 1)) {
            text = static_cast<char*>(memory);
            room = kLongRangeBytes;
            length = room;
            status = io->GetRequestHeader(name, &length, text);
        }
    }
    if (Failed(status))
        return nullptr;
    text[std::min(length, room)] = 0;
    return text;
}

// "bytes FIRST-LAST/SIZE" (RFC 9110 section 14.4). False when memory is short.
bool SetContentRange(IKestIO_5* io, const KESTDAV_RANGE& record)
{
    constexpr size_t kBytes = 512;
    const Paged<char> text = AllocPaged<char>(kBytes);
    if (!text)
        return false;
    const UINT64 size = record.ResourceSize;
    const UINT64 last = size <= record.End ? size - 1 : record.End - 1;
    std::snprintf(text.get(), kBytes, "bytes %lld-%lld/%lld", static_cast<long long>(record.Start),
                  static_cast<long long>(last), static_cast<long long>(size));
    SetHeaderText(io, "Content-Range", text.get());
    return true;
}

// Reads the request's ranges and sets "Content-Range". Gives 200 with the record, 416, or any other
// number when the whole body is to be sent. The record lives in request memory.
UINT32 SetupRangeRead(IKestIO_5* io, UINT64 size, KESTDAV_RANGE*& record)
{
    char small[kShortRangeBytes + 1] = {}; // a host may leave it untouched
    char* text = ReadRangeHeader(io, small);
    if (!text)
        return 404;
    void* memory = io->AllocMemory(sizeof(KESTDAV_RANGE));
    if (!memory)
        return 507;
    auto* parsed = new (memory) KESTDAV_RANGE{};
    parsed->uEntries = kMostRanges;
    parsed->ResourceSize = size;
    if (const UINT32 http = ParseRequestRanges(text, parsed); http != 200)
        return http;
    if (!parsed->bContiguous)
        return 416;
    if (!SetContentRange(io, *parsed))
        return 507;
    record = parsed;
    return 200;
}

// Sends one range. `stop` is set when the ranges behind it are not to be sent either.
TALSTATUS SendRange(IKestIO_5* io, DavResource& resource, const TransferBuffer& buffer,
                    const KESTDAV_BYTE_RANGE& range, bool& stop)
{
    UINT64 offset = range.Offset;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    for (auto remaining = static_cast<UINT64>(range.BytesToRead); remaining != 0;) {
        UINT32 read = 0;
        const auto want = static_cast<UINT32>(std::min<UINT64>(buffer.size, remaining));
        status = resource.Read(offset, want, buffer.data.get(), &read);
        if (Code(status) != 0) {
            stop = Failed(status);
            return status;
        }
        stop = true;
        if (read == 0)
            return TAL_STATUS_END_OF_FILE;
        read = std::min(read, want);
        status = io->Write(read, reinterpret_cast<UINT8*>(buffer.data.get()));
        if (Code(status) != 0)
            return status;
        stop = false;
        offset += read;
        remaining -= read;
    }
    return status;
}

// Sends the ranges up to the one without bytes.
TALSTATUS SendGetDataToClient(IKestIO_5* io, DavResource& resource,
                              const KESTDAV_BYTE_RANGE* ranges)
{
    const TransferBuffer buffer = TransferBuffer::Allocate();
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    bool stop = false;
    for (; ranges->BytesToRead != 0 && !stop; ++ranges)
        status = SendRange(io, resource, buffer, *ranges, stop);
    return status;
}

// Sends status line and body of an opened resource.
TALSTATUS SendResource(IKestIO_5* io, OpenedResource& opened)
{
    KESTDAV_RANGE* record = nullptr;
    const UINT32 http = SetupRangeRead(io, opened.size, record);
    if (http == 416)
        return Reply(io, 416, TAL_STATUS_SUCCESS);

    // Kept: of the whole body's length only the low 32 bits are sent, though all are announced.
    const KESTDAV_BYTE_RANGE whole[] = {{0, static_cast<UINT32>(opened.size)}, {}};
    const KESTDAV_BYTE_RANGE* ranges = record ? record->Ranges : whole;
    SetContentLength(io, record ? record->TotalBytes : opened.size);
    const TALSTATUS status = io->SendHeader(record ? 206 : 200);
    if (opened.size == 0)
        return status;
    return SendGetDataToClient(io, opened.object, ranges);
}

TALSTATUS GetResource(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                      IKestIO_5* io)
{
    OpenedResource opened;
    TALSTATUS status = 0;
    if (handler.pIKestDav2) {
        RequestToken token(io);
        status = OpenDavResource(session, path, handler, token.GetNonEmpty(), opened);
    } else {
        status = OpenDavResource(session, path, handler, nullptr, opened);
    }
    if (Failed(status)) // kept: 404 whatever the failure
        return ReplyEmpty(io, 404, status);
    SetDateHeader(io, "Last-Modified", opened.modified);
    SetHeader(io, "Accept-Ranges", "bytes");
    SetContentType(io, path);
    if (IsUnmodified(io, opened.modified))
        return ReplyEmpty(io, 304, status);
    return SendResource(io, opened);
}

} // namespace

TALSTATUS KestDavGet(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    SetHeader(pKestIo, "Cache-Control", "no-store");
    if (IsMonikerRoot(*pUrl) || NamesIndex(*pUrl))
        return HTMLIndexRequest(pKestIo, hSession, pUrl);

    UNICODE_STRING path = ProviderPath(*pUrl);
    const ProviderGuard providers; // to the last byte of the reply
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(hSession, &path, &type, &handler);
        Failed(status))
        return ReplyEmpty(pKestIo, 404, status);
    if (type == Collection)
        return HTMLIndexRequest(pKestIo, hSession, pUrl);
    return GetResource(hSession, &path, *handler, pKestIo);
}
