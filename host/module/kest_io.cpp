// SPDX-License-Identifier: Apache-2.0
#include "host/module/kest_io.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "host/http/ascii.h"
#include "host/http/error_status.h"
#include "host/http/utf.h"
#include "host/pipeline/client_compatibility.h"
#include "host/pipeline/copy_move_headers.h"
#include "host/pipeline/security_headers.h"
#include <kest/identifiers.h>
#include <kest/status.h>

namespace kestd {

namespace {

constexpr TALSTATUS Failure(UINT16 code) noexcept
{
    return MakeStatus(kFacilityHost, code);
}

// Copies a text with its terminator into a caller's buffer; see IKestIO_3::GetRequestHeader.
TALSTATUS CopyOut(std::string_view text, UINT32* length, char* buffer) noexcept
{
    if (!length)
        return Failure(kCodeInvalidParameter);
    const UINT32 room = buffer ? *length : 0;
    if (text.size() >= room) {
        if (room != 0)
            std::memcpy(buffer, text.data(), std::min<size_t>(room, text.size()));
        *length = static_cast<UINT32>(text.size() + 1);
        return Failure(kCodeBufferTooSmall);
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    *length = static_cast<UINT32>(text.size());
    return TAL_STATUS_SUCCESS;
}

// What counts as a block of content, unlike a line of a page.
constexpr UINT32 kBlock = 4096;

// Spare code units behind a request's path. Form uploads build their target names in that room.
constexpr size_t kSpareUnits = 1024;

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
    if (IsAscii(text)) {
        out = MakeRoom(arena, text.size(), spare);
        std::copy(text.begin(), text.end(), out.Buffer);
        return true;
    }
    std::u16string wide;
    if (!AppendWide(text, wide))
        return false;
    out = MakeWide(arena, wide, spare);
    return true;
}

TALSTATUS CopyWide(std::string_view text, UNICODE_STRING* out)
{
    if (!out || !out->Buffer)
        return Failure(kCodeInvalidParameter);
    std::u16string wide;
    if (!AppendWide(text, wide))
        return Failure(kCodeUnsuccessful);
    const size_t bytes = wide.size() * sizeof(WCHAR);
    if (bytes > out->MaximumLength)
        return Failure(kCodeBufferTooSmall);
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
        ReportFailure(Failure(kCodeInsufficientResources));
        return Failure(kCodeInsufficientResources);
    } catch (...) {
        ReportFailure(Failure(kCodeUnsuccessful));
        return Failure(kCodeUnsuccessful);
    }
}

void KestIo::Reset() noexcept
{
    headText.Release();
    head.fields.clear();
    head.method = head.target = head.lines = {};
    target.path.clear();
    target.rawPath.clear();
    target.query = target.host = {};
    target.isAsterisk = false;
    method = KestMethodUnknown;
    body.Reset();
    response.Reset();
    arena.Reset();
    auth = {};
    isAdmitted = isSecure = false;
    remote = {};
    hostname.clear();
    port.clear();
    copyMove = {};
    grantedLock.Reset();
    preconditions = {};
    range.Reset();
    isKnownNew = mustRetry_ = false;
    start = {};
    references_ = 1;
    failure_ = 0;
    customStatus_ = 0;
    customText_ = {};
    joined_.clear();
    rawUrl_ = {};
    url_ = arguments_ = destination_ = {};
    rawHeaders_ = nullptr;
}

const std::string_view* KestIo::FindRequestHeader(std::string_view name)
{
    for (const Field& field : joined_)
        if (EqualsIgnoringCase(field.name, name))
            return &field.value;
    const Field* first = head.Find(name);
    if (!first)
        return nullptr;
    if (head.Count(name) == 1)
        return &first->value;
    // RFC 9110 section 5.3; cookies are the exception (RFC 6265 section 5.4).
    const std::string_view separator = EqualsIgnoringCase(name, "Cookie") ? "; " : ", ";
    std::string value;
    for (const Field& field : head.fields) {
        if (!EqualsIgnoringCase(field.name, name))
            continue;
        if (!value.empty())
            value.append(separator);
        value.append(field.value);
    }
    joined_.push_back({first->name, arena.Copy(value)});
    return &joined_.back().value;
}

// The first one counts, but a fault of the system comes before a refusal.
void KestIo::ReportFailure(TALSTATUS failure) noexcept
{
    if (Failed(failure) &&
        (!failure_ || (HttpStatusOf(failure_) < 500 && HttpStatusOf(failure) >= 500)))
        failure_ = failure;
}

// What the module says gives way to a failure that was reported: it may have taken for missing what
// could not be looked at, and have left it out. While nothing has left, another reply takes the
// place of its own; from then on the message is cut, so that nobody takes it for whole.
void KestIo::ApplyReportedFailure()
{
    if (!failure_)
        return;
    const int status = HttpStatusOf(failure_);
    const int said = response.Status();
    if (response.HeadersSent())
        response.Cut();
    else if (said < 300 || said == 404 || (status >= 500 && said != status))
        ReplyWithFailure(status);
}

void KestIo::ReplyWithFailure(int status)
{
    const bool isSeen = method == KestMethodGet || method == KestMethodPost; // in a browser
    response.Replace(status, kErrorType, isSeen ? ErrorText(status) : std::string());
    if (status == 503)
        response.AddLateHeader("Retry-After", kRetrySeconds);
}

// Fits the reply to the range that the client wants. False when the module has to be asked again.
bool KestIo::FitRange(HTTPSTATUS& status)
{
    const auto told = [this](std::string_view name) {
        const std::string_view* value = response.FindHeader(name);
        return value ? *value : std::string_view();
    };
    constexpr size_t kMostDigitsOf32Bits = 9; // fewer than 2^32 bytes in any case
    const std::string_view length = told("Content-Length");
    if (range.IsWhole() && length.size() <= kMostDigitsOf32Bits)
        return true;
    switch (range.Evaluate({status, length, told("Content-Range"), told("Last-Modified")})) {
    case RangeRequest::Action::Send:
        break;
    case RangeRequest::Action::SendPart:
        response.SetHeader("Content-Length", range.ContentLength());
        response.SetHeader("Content-Range", range.ContentRange());
        break;
    case RangeRequest::Action::SendWhole:
        response.RemoveHeader("Content-Range");
        status = 200;
        break;
    case RangeRequest::Action::Unsatisfiable:
        response.SetHeader("Content-Length", "0");
        response.SetHeader("Content-Range", range.ContentRange());
        status = 416;
        break;
    case RangeRequest::Action::Retry:
        response.RemoveHeader("Content-Length");
        response.RemoveHeader("Content-Range");
        return false;
    }
    return true;
}

// The session's cookie is of no use to scripts. The module says so on its pages; elsewhere nobody
// has.
void KestIo::SecureCookie()
{
    if (auth.setCookie.empty())
        return;
    const std::string_view* cookie = response.FindHeader("Set-Cookie");
    if (!cookie)
        return;
    std::string value(*cookie);
    if (value.find("; HttpOnly") == std::string::npos)
        value.append("; HttpOnly");
    if (isSecure && value.find("; Secure") == std::string::npos)
        value.append("; Secure");
    response.SetHeader("Set-Cookie", value);
}

bool KestIo::Finish()
{
    ApplyReportedFailure();
    if (body.IsOverLimit() && response.Status() >= 400)
        response.Replace(413, {}, {}); // the contract has no status of that meaning
    if (!response.HasBegun())
        response.Replace(500, {}, {});
    AdaptToClients(*this);
    if (customStatus_ && customStatus_ == response.Status() && response.IsBodyEmpty())
        response.Replace(customStatus_, "text/html; charset=utf-8", customText_);
    return response.Finish();
}

TALSTATUS KestIo::QueryInterface(const GUID* iid, void** out)
{
    if (!iid || !out)
        return Failure(kCodeInvalidParameter);
    *out = nullptr;
    if (!(*iid == IID_KestIO_5 || *iid == IID_KestIO_3 || *iid == IID_IUnknown))
        return Failure(kCodeNoInterface);
    *out = static_cast<IKestIO_5*>(this);
    AddRef();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::DiscardClientPayload()
{
    return Guarded([&] {
        if (!body.Skip())
            response.Close(); // too much to read for nothing
        body.Abandon();
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination)
{
    if (!depth)
        return Failure(kCodeInvalidParameter);
    *depth = copyMove.depth;
    return GetMoveInfo(overwrite, destination);
}

TALSTATUS KestIo::GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination)
{
    if (!overwrite || !destination)
        return Failure(kCodeInvalidParameter);
    if (copyMove.destination.empty())
        return Failure(kCodeInvalidRequest); // neither COPY nor MOVE
    return Guarded([&] {
        if (!destination_.Buffer)
            destination_ = MakeWide(arena, copyMove.destination, 1);
        *overwrite = copyMove.overwrites;
        *destination = &destination_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetRawUrl(STRING** url)
{
    if (!url)
        return Failure(kCodeInvalidParameter);
    const auto length = static_cast<UINT16>(target.rawPath.size()); // bounded with the target
    rawUrl_ = {length, static_cast<UINT16>(length + 1), target.rawPath.data()};
    *url = &rawUrl_;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::GetRemoteAddress(UNICODE_STRING* address)
{
    return Guarded([&] { return CopyWide(remote, address); });
}

TALSTATUS KestIo::GetRemoteHost(UNICODE_STRING* host)
{
    return GetRemoteAddress(host); // names are not looked up: that would wait for another server
}

TALSTATUS KestIo::GetUrl(UINT32*, UNICODE_STRING** url)
{
    if (!url)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!url_.Buffer && !MakeWide(arena, target.path, kSpareUnits, url_))
            return Failure(kCodeInvalidRequest);
        *url = &url_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetUrlArguments(UINT32*, UNICODE_STRING** arguments)
{
    if (!arguments)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!arguments_.Buffer && !MakeWide(arena, target.query, 1, arguments_))
            return Failure(kCodeInvalidRequest);
        *arguments = &arguments_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetRequestHeader(char* name, UINT32* length, char* buffer)
{
    if (!name)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        if (method == KestMethodGet && EqualsIgnoringCase(name, "Range"))
            return range.ForModule().empty() ? Failure(kCodeNotFound)
                                             : CopyOut(range.ForModule(), length, buffer);
        const std::string_view* value = FindRequestHeader(name);
        return value ? CopyOut(*value, length, buffer) : Failure(kCodeNotFound);
    });
}

TALSTATUS KestIo::GetRequestMethod(UINT32* number)
{
    if (!number)
        return Failure(kCodeInvalidParameter);
    *number = method;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::GetReplyHeader(char* name, UINT32* length, char* buffer)
{
    if (!name)
        return Failure(kCodeInvalidParameter);
    const std::string_view* value = response.FindHeader(name);
    return value ? CopyOut(*value, length, buffer) : Failure(kCodeNotFound);
}

TALSTATUS KestIo::GetUserAgent(UINT32* kind)
{
    if (!kind)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] { // 0: a program; 1: a browser, which is who asks for HTML
        const std::string_view* accept = FindRequestHeader("Accept");
        *kind = accept && accept->find("text/html") != std::string_view::npos;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::IsClientPayloadAvailable(UINT32* available)
{
    if (!available)
        return Failure(kCodeInvalidParameter);
    *available = body.Available();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read)
{
    if (!read || (size && !buffer))
        return Failure(kCodeInvalidParameter);
    return Guarded([&] { return body.Read(size, buffer, read); });
}

TALSTATUS KestIo::PutString(char* text)
{
    return text ? Write(static_cast<UINT32>(std::strlen(text)), reinterpret_cast<UINT8*>(text))
                : Failure(kCodeInvalidParameter);
}

TALSTATUS KestIo::SendHeader(HTTPSTATUS status)
{
    return Guarded([&] {
        if (HasDestinationChanged(*this, status)) {
            ++copyMove.rounds;
            mustRetry_ = true;
            return Failure(kCodeUnsuccessful);
        }
        if (method == KestMethodGet && !response.HasBegun() && !FitRange(status)) {
            mustRetry_ = true;
            return Failure(kCodeUnsuccessful);
        }
        if (method == KestMethodLock)
            grantedLock.NoteStatus(status);
        SecureCookie();
        if (method == KestMethodGet || method == KestMethodPost)
            SetSecurityHeaders(*this);
        if (!response.Begin(status))
            return Failure(kCodeInvalidRequest);
        ApplyReportedFailure();
        return TAL_STATUS_SUCCESS;
    });
}

KEST_CONDITIONS KestIo::Conditions() const noexcept
{
    const auto text = [](std::string_view value) {
        const auto size =
            static_cast<UINT16>(std::min<size_t>(value.size(), std::numeric_limits<UINT16>::max()));
        return STRING{size, size, const_cast<char*>(value.data())}; // only read
    };
    return {text(preconditions.match), text(preconditions.noneMatch), preconditions.unmodifiedSince,
            copyMove.allowsOverwrite};
}

TALSTATUS KestIo::SetRequestHeader(char* name, UINT32 length, char* value)
{
    if (!name || !*name || (length && !value))
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        const std::string_view copy = arena.Copy({value, length});
        for (Field& field : joined_) {
            if (EqualsIgnoringCase(field.name, name)) {
                field.value = copy;
                return TAL_STATUS_SUCCESS;
            }
        }
        joined_.push_back({arena.Copy(name), copy});
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::SetReplyHeader(char* name, UINT32 length, char* value)
{
    if (!name || (length && !value))
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        return response.SetHeader(name, {value, length}) ? TAL_STATUS_SUCCESS
                                                         : Failure(kCodeInvalidParameter);
    });
}

TALSTATUS KestIo::Working()
{
    // Nothing is sent: interim replies for this (102) confuse more clients than they help, and the
    // limits that end a request count waiting for the client, not work.
    return IsCancelled() ? Failure(kCodeUnsuccessful) : TAL_STATUS_SUCCESS;
}

TALSTATUS KestIo::Write(UINT32 size, UINT8* data)
{
    if (size && !data)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        // A block of content may be dropped unsent, up to the range that is asked for.
        if (mustRetry_ || (size >= kBlock && IsCancelled()))
            return Failure(kCodeUnsuccessful);
        if (method == KestMethodLock)
            grantedLock.NoteBody({reinterpret_cast<const char*>(data), size});
        ApplyReportedFailure();
        bool isOver = false;
        const std::string_view piece =
            range.Cut({reinterpret_cast<const char*>(data), size}, isOver);
        if (!response.Append(piece.data(), piece.size()) || isOver)
            return Failure(kCodeUnsuccessful);
        return TAL_STATUS_SUCCESS;
    });
}

void* KestIo::AllocMemory(UINT32 size)
{
    return arena.Allocate(size);
}

TALSTATUS KestIo::GetRawHeaders(UINT8** headers)
{
    if (!headers)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        if (!rawHeaders_)
            rawHeaders_ =
                reinterpret_cast<UINT8*>(const_cast<char*>(arena.Copy(head.lines).data()));
        *headers = rawHeaders_;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetHostname(UINT32* length, char* buffer)
{
    return CopyOut(hostname, length, buffer);
}

TALSTATUS KestIo::GetPort(UINT32* length, char* buffer)
{
    return CopyOut(port, length, buffer);
}

TALSTATUS KestIo::GetProtocolName(UINT32* length, char* buffer)
{
    return CopyOut(isSecure ? "https" : "http", length, buffer);
}

TALSTATUS KestIo::SetCustomError(HTTPSTATUS status, char* text)
{
    if (!text || status < 400 || status > 599)
        return Failure(kCodeInvalidParameter);
    return Guarded([&] {
        customText_ = arena.Copy(text);
        customStatus_ = status;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS KestIo::GetAuthRealm(UINT32* length, char* buffer)
{
    return CopyOut(realm, length, buffer);
}

} // namespace kestd
