// SPDX-License-Identifier: Apache-2.0
//
// Forwards IKestIO_5 to the exchange, in the types of the contract.
#include "host/module/kest_io.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/component.h"
#include "host/config/settings_holder.h"
#include "host/pipeline/pipeline.h"
#include <kest/identifiers.h>
#include <kest/status.h>

namespace kestd {

namespace {

// Copies a text with its terminator into a caller's buffer; see IKestIO_3::GetRequestHeader.
TALSTATUS CopyOut(std::string_view text, UINT32* length, char* buffer) noexcept
{
    if (!length)
        return HostFailure(kCodeInvalidParameter);
    const UINT32 room = buffer ? *length : 0;
    if (text.size() >= room) {
        if (room != 0)
            std::memcpy(buffer, text.data(), std::min<size_t>(room, text.size()));
        *length = static_cast<UINT32>(text.size() + 1);
        return HostFailure(kCodeBufferTooSmall);
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    *length = static_cast<UINT32>(text.size());
    return TAL_STATUS_SUCCESS;
}

// A string in request memory with `units` of text, to be filled, and `spare` units behind them.
// Throws std::bad_alloc when memory is short, or when that is too long for the string's 16-bit
// lengths.
UNICODE_STRING MakeRoom(Arena& arena, size_t units, size_t spare)
{
    const size_t bytes = (units + spare + 1) * sizeof(WCHAR);
    auto* text = bytes - sizeof(WCHAR) <= std::numeric_limits<UINT16>::max() - 3
                     ? static_cast<WCHAR*>(arena.Allocate(bytes))
                     : nullptr;
    if (!text)
        throw std::bad_alloc();
    text[units] = 0;
    return {static_cast<UINT16>(units * sizeof(WCHAR)), static_cast<UINT16>(bytes - sizeof(WCHAR)),
            text};
}

UNICODE_STRING MakeWide(Arena& arena, std::u16string_view text, size_t spare)
{
    const UNICODE_STRING made = MakeRoom(arena, text.size(), spare);
    std::copy(text.begin(), text.end(), made.Buffer);
    return made;
}

// The same from UTF-8. False when it is none.
bool MakeWide(Arena& arena, std::string_view text, size_t spare, UNICODE_STRING& out)
{
    if (base::IsAscii(text)) {
        out = MakeRoom(arena, text.size(), spare);
        std::copy(text.begin(), text.end(), out.Buffer);
        return true;
    }
    std::u16string wide;
    if (!base::AppendUtf16(text, wide))
        return false;
    out = MakeWide(arena, wide, spare);
    return true;
}

TALSTATUS CopyWide(std::string_view text, UNICODE_STRING* out)
{
    if (!out || !out->Buffer)
        return HostFailure(kCodeInvalidParameter);
    std::u16string wide;
    if (!base::AppendUtf16(text, wide))
        return HostFailure(kCodeUnsuccessful);
    const size_t bytes = wide.size() * sizeof(WCHAR);
    if (bytes > out->MaximumLength)
        return HostFailure(kCodeBufferTooSmall);
    std::memcpy(out->Buffer, wide.data(), bytes);
    out->Length = static_cast<UINT16>(bytes);
    return TAL_STATUS_SUCCESS;
}

} // namespace

// The contract knows no exceptions; running out of memory is the only one in here. The module may
// go on without what it asked for (a header, a piece of the reply), but what it says then is not
// the whole truth.
template <class F> TALSTATUS KestIo::Guarded(F&& operation) noexcept
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        ReportFailure(HostFailure(kCodeInsufficientResources));
        return HostFailure(kCodeInsufficientResources);
    } catch (...) {
        ReportFailure(HostFailure(kCodeUnsuccessful));
        return HostFailure(kCodeUnsuccessful);
    }
}

KestIo::KestIo(Exchange& exchange) noexcept
    : exchange_(exchange), request_(exchange.request), response_(exchange.response)
{
}

TALSTATUS KestIo::QueryInterface(const GUID* iid, void** out)
{
    if (!iid || !out)
        return HostFailure(kCodeInvalidParameter);
    *out = nullptr;
    if (*iid == IID_KestInterimReply_1)
        *out = static_cast<IKestInterimReply*>(this);
    else if (*iid == IID_KestSendFile_1)
        *out = static_cast<IKestSendFile*>(this);
    else if (*iid == IID_KestIO_5 || *iid == IID_KestIO_3 || *iid == IID_IUnknown)
        *out = static_cast<IKestIO_5*>(this);
    else
        return HostFailure(kCodeNoInterface);
    AddRef();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::DiscardClientPayload()
{
    return Guarded([&] {
        if (!exchange_.body.Skip())
            response_.Close(); // too much to read for nothing
        exchange_.body.Abandon();
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination)
{
    if (!depth)
        return HostFailure(kCodeInvalidParameter);
    *depth = exchange_.copyMove.depth;
    return GetMoveInfo(overwrite, destination);
}

TALSTATUS KestIo::GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination)
{
    if (!overwrite || !destination)
        return HostFailure(kCodeInvalidParameter);
    if (exchange_.copyMove.destination.empty())
        return HostFailure(kCodeInvalidRequest); // neither COPY nor MOVE
    return Guarded([&] {
        if (!destination_.Buffer)
            destination_ = MakeWide(request_.arena, exchange_.copyMove.destination, 1);
        *overwrite = exchange_.copyMove.mayOverwrite;
        *destination = &destination_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetRawUrl(STRING** url)
{
    if (!url)
        return HostFailure(kCodeInvalidParameter);
    const auto length =
        static_cast<UINT16>(request_.target.rawPath.size()); // bounded with the target
    rawUrl_ = {length, static_cast<UINT16>(length + 1), request_.target.rawPath.data()};
    *url = &rawUrl_;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::GetRemoteAddress(UNICODE_STRING* address)
{
    return Guarded([&] { return CopyWide(request_.remote, address); });
}

TALSTATUS KestIo::GetRemoteHost(UNICODE_STRING* host)
{
    return GetRemoteAddress(host); // names are not looked up: that would wait for another server
}

TALSTATUS KestIo::GetUrl(UINT32*, UNICODE_STRING** url)
{
    if (!url)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!url_.Buffer && !MakeWide(request_.arena, request_.target.path, kSpareUnits, url_))
            return HostFailure(kCodeInvalidRequest);
        *url = &url_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetUrlArguments(UINT32*, UNICODE_STRING** arguments)
{
    if (!arguments)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!arguments_.Buffer && !MakeWide(request_.arena, request_.target.query, 1, arguments_))
            return HostFailure(kCodeInvalidRequest);
        *arguments = &arguments_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetRequestHeader(char* name, UINT32* length, char* buffer)
{
    if (!name)
        return HostFailure(kCodeInvalidParameter);
    const std::string_view asked = name;
    if (!request_.MayHaveHeader(asked)) // most that handlers ask for
        return HostFailure(kCodeNotFound);
    return Guarded([&] {
        const std::string_view* value = request_.FindHeader(asked);
        return value ? CopyOut(*value, length, buffer) : HostFailure(kCodeNotFound);
    });
}

TALSTATUS KestIo::GetRequestMethod(UINT32* number)
{
    if (!number)
        return HostFailure(kCodeInvalidParameter);
    *number = request_.method;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::GetReplyHeader(char* name, UINT32* length, char* buffer)
{
    if (!name)
        return HostFailure(kCodeInvalidParameter);
    const std::string_view* value = response_.FindHeader(name);
    return value ? CopyOut(*value, length, buffer) : HostFailure(kCodeNotFound);
}

TALSTATUS KestIo::GetUserAgent(UINT32* kind)
{
    if (!kind)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] { // 0: a program; 1: a browser, which is who asks for HTML
        const std::string_view* accept = request_.FindHeader("Accept");
        *kind = accept && accept->find("text/html") != std::string_view::npos;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::IsClientPayloadAvailable(UINT32* available)
{
    if (!available)
        return HostFailure(kCodeInvalidParameter);
    *available = exchange_.body.Available();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read)
{
    if (!read || (size && !buffer))
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] { return exchange_.body.Read(size, buffer, read); });
}

TALSTATUS KestIo::PutString(char* text)
{
    return text ? Write(static_cast<UINT32>(std::strlen(text)), reinterpret_cast<UINT8*>(text))
                : HostFailure(kCodeInvalidParameter);
}

TALSTATUS KestIo::SendHeader(HTTPSTATUS status)
{
    return Guarded([&] {
        return exchange_.pipeline->BeginReply(exchange_, status) ? TAL_STATUS_SUCCESS
                                                                 : HostFailure(kCodeInvalidRequest);
    });
}

TALSTATUS KestIo::SendInterim(HTTPSTATUS status, UINT32 count, const KEST_HEADER_LINE* lines)
{
    const auto viewOf = [](const STRING& text) {
        return std::string_view(text.Buffer ? text.Buffer : "", text.Buffer ? text.Length : 0);
    };
    if (status < 102 || status > 199 || count > kMostInterimLines || (count && !lines))
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        HeaderFields fields;
        for (UINT32 i = 0; i < count; ++i)
            if (!fields.Set(request_.arena, viewOf(lines[i].Name), viewOf(lines[i].Value)))
                return HostFailure(kCodeInvalidParameter);
        switch (response_.SendInterim(status, fields)) {
        case Response::Interim::Sent:
            return TAL_STATUS_SUCCESS;
        case Response::Interim::NotTaken:
            return HostFailure(kCodeNotImplemented);
        case Response::Interim::TooLate:
            return HostFailure(kCodeInvalidRequest);
        case Response::Interim::Gone:
            break;
        }
        return HostFailure(kCodeUnsuccessful);
    });
}

KEST_CONDITIONS KestIo::Conditions() const noexcept
{
    const auto text = [](std::string_view value) {
        const auto size =
            static_cast<UINT16>(std::min<size_t>(value.size(), std::numeric_limits<UINT16>::max()));
        return STRING{size, size, const_cast<char*>(value.data())}; // only read
    };
    return {text(exchange_.conditions.match), text(exchange_.conditions.noneMatch),
            exchange_.conditions.unmodifiedSince, exchange_.copyMove.mayOverwrite};
}

TALSTATUS KestIo::SetRequestHeader(char* name, UINT32 length, char* value)
{
    if (!name || !*name || (length && !value))
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        request_.SetHeader(name, {value, length});
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::SetReplyHeader(char* name, UINT32 length, char* value)
{
    if (!name || (length && !value))
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        return response_.SetHeader(name, {value, length}) ? TAL_STATUS_SUCCESS
                                                          : HostFailure(kCodeInvalidParameter);
    });
}

TALSTATUS KestIo::Working()
{
    // Nothing is sent: interim replies for this (102) confuse more clients than they help, and the
    // limits that end a request count waiting for the client, not work.
    return IsCancelled() ? HostFailure(kCodeUnsuccessful) : TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::Write(UINT32 size, UINT8* data)
{
    if (size && !data)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        const std::string_view piece(reinterpret_cast<const char*>(data), size);
        return exchange_.pipeline->WriteReply(exchange_, piece) ? TAL_STATUS_SUCCESS
                                                                : HostFailure(kCodeUnsuccessful);
    });
}

TALSTATUS KestIo::SendFile(INT32 descriptor, UINT64 offset, UINT64 length, UINT64* sent)
{
    constexpr UINT64 kFarthest = std::numeric_limits<INT64>::max();
    if (descriptor < 0 || !sent || offset > kFarthest || length > kFarthest - offset)
        return HostFailure(kCodeInvalidParameter);
    *sent = 0;
    return Guarded([&] {
        switch (exchange_.pipeline->SendFile(exchange_, descriptor, offset, length, *sent)) {
        case Response::FileOutcome::Sent:
            return TAL_STATUS_SUCCESS;
        case Response::FileOutcome::Cannot:
            return HostFailure(kCodeNotImplemented);
        case Response::FileOutcome::Broken:
            break;
        }
        return HostFailure(kCodeUnsuccessful);
    });
}

void* KestIo::AllocMemory(UINT32 size)
{
    return request_.arena.Allocate(size);
}

TALSTATUS KestIo::GetRawHeaders(UINT8** headers)
{
    if (!headers)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!rawHeaders_)
            rawHeaders_ = reinterpret_cast<UINT8*>(
                const_cast<char*>(request_.arena.Copy(request_.head.lines).data()));
        *headers = rawHeaders_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetHostname(UINT32* length, char* buffer)
{
    return CopyOut(request_.hostname, length, buffer);
}

TALSTATUS KestIo::GetPort(UINT32* length, char* buffer)
{
    return CopyOut(request_.port, length, buffer);
}

TALSTATUS KestIo::GetProtocolName(UINT32* length, char* buffer)
{
    return CopyOut(request_.isSecure ? "https" : "http", length, buffer);
}

TALSTATUS KestIo::SetCustomError(HTTPSTATUS status, char* text)
{
    if (!text || status < 400 || status > 599)
        return HostFailure(kCodeInvalidParameter);
    return Guarded([&] {
        exchange_.SetErrorPage(status, text);
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetAuthRealm(UINT32* length, char* buffer)
{
    return CopyOut(exchange_.settings->server.realm, length, buffer);
}

} // namespace kestd
