// SPDX-License-Identifier: Apache-2.0
#include "host/reply.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "host/text.h"

namespace kestd {

namespace {

// What is gathered before something leaves. Larger pieces go out from where they are.
constexpr size_t kGather = 15 * 1024;

constexpr bool IsTokenByte(char c) noexcept
{
    if (IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z'))
        return true;
    return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool IsHeaderName(std::string_view name) noexcept
{
    return !name.empty() && std::all_of(name.begin(), name.end(), IsTokenByte);
}

bool IsHeaderValue(std::string_view value) noexcept
{
    return std::none_of(value.begin(), value.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
    });
}

// The value of "Date", formatted once a second by each thread.
std::string_view DateNow()
{
    thread_local time_t last = -1;
    thread_local char text[32];
    thread_local size_t size = 0;
    const time_t now = std::time(nullptr);
    if (now != last) {
        static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        tm t{};
        gmtime_r(&now, &t);
        const int made = std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                                       kDays[t.tm_wday], t.tm_mday, kMonths[t.tm_mon],
                                       t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
        size = std::min(static_cast<size_t>(std::max(made, 0)), sizeof text - 1);
        last = now;
    }
    return {text, size};
}

void Put(Buffer& out, std::string_view text)
{
    out.Append(text.data(), text.size());
}

void PutNumber(Buffer& out, uint64_t number)
{
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out.Append(digits, static_cast<size_t>(end - digits));
}

constexpr bool HasNoBody(int status) noexcept
{
    return status < 200 || status == 204 || status == 304;
}

} // namespace

void Reply::Start(const Terms& terms, Arena& arena, Body& body, Transport& transport,
                  WaitWatcher& watcher) noexcept
{
    Reset();
    terms_ = terms;
    arena_ = &arena;
    body_ = &body;
    transport_ = &transport;
    watcher_ = &watcher;
}

void Reply::Reset() noexcept
{
    headers_.clear();
    head_.Release();
    gathered_.Release();
    mode_ = Mode::Unknown;
    status_ = 0;
    length_ = bodyBytes_ = 0;
    hasLeft_ = isBroken_ = drops_ = false;
}

bool Reply::SetHeader(std::string_view name, std::string_view value)
{
    return !status_ && StoreHeader(name, value);
}

bool Reply::AddLateHeader(std::string_view name, std::string_view value)
{
    return !hasLeft_ && StoreHeader(name, value);
}

void Reply::ChangeStatus(int status) noexcept
{
    if (!hasLeft_)
        status_ = status;
}

bool Reply::StoreHeader(std::string_view name, std::string_view value)
{
    if (!IsHeaderName(name) || !IsHeaderValue(value))
        return false;
    value = arena_->Copy(value);
    for (Header& header : headers_) {
        if (EqualsIgnoringCase(header.name, name)) {
            header.value = value;
            return true;
        }
    }
    headers_.push_back({arena_->Copy(name), value});
    return true;
}

const std::string_view* Reply::FindHeader(std::string_view name) const noexcept
{
    for (const Header& header : headers_)
        if (EqualsIgnoringCase(header.name, name))
            return &header.value;
    return nullptr;
}

void Reply::RemoveHeader(std::string_view name) noexcept
{
    std::erase_if(headers_, [name](const Header& h) { return EqualsIgnoringCase(h.name, name); });
}

bool Reply::Begin(int status)
{
    if (status_)
        return false;
    status_ = status >= 200 && status <= 599 ? status : 500;
    return true;
}

bool Reply::Append(const void* bytes, size_t size)
{
    if (!status_)
        status_ = 200;
    if (isBroken_)
        return false;
    if (size == 0 || drops_ || terms_.isHead || HasNoBody(status_) || status_ == 416)
        return true;
    if (gathered_.Size() + size <= kGather) {
        gathered_.Append(bytes, size);
        bodyBytes_ += size;
        return true;
    }
    bodyBytes_ += size;
    return Flush(bytes, size, false);
}

bool Reply::Replace(int status, std::string_view type, std::string_view text)
{
    if (hasLeft_)
        return false;
    headers_.clear();
    gathered_.Clear();
    status_ = 0;
    bodyBytes_ = 0;
    drops_ = false;
    if (!text.empty())
        SetHeader("Content-Type", type);
    Begin(status);
    if (!text.empty())
        Append(text.data(), text.size());
    drops_ = true;
    return true;
}

bool Reply::Finish()
{
    if (!status_)
        Replace(500, {}, {});
    if (!isBroken_)
        Flush(nullptr, 0, true);
    const bool isShort = mode_ == Mode::Length && bodyBytes_ < length_;
    return !isBroken_ && !isShort && terms_.mayKeepAlive;
}

// How the end of the body is told to the client, once it has to be known.
void Reply::DecideMode(bool isFinal, size_t pending)
{
    const std::string_view* length = FindHeader("Content-Length");
    const std::string_view* coding = FindHeader("Transfer-Encoding");
    const bool wantsChunks = coding && EqualsIgnoringCase(*coding, "chunked");
    uint64_t announced = 0;
    const bool hasLength = length && !wantsChunks && ParseDecimal(*length, announced);
    if (!hasLength)
        RemoveHeader("Content-Length");
    RemoveHeader("Transfer-Encoding");
    if (terms_.isHead || HasNoBody(status_)) {
        mode_ = Mode::None;
        if (HasNoBody(status_)) // RFC 9110 sections 8.6 and 15.4.5: it would describe another body
            RemoveHeader("Content-Length");
        return;
    }
    if (hasLength && !(status_ == 416 && announced)) {
        mode_ = Mode::Length;
        length_ = announced;
        return;
    }
    if (isFinal && !(wantsChunks && terms_.mayChunk)) {
        mode_ = Mode::Length;
        length_ = pending;
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, length_).ptr;
        RemoveHeader("Content-Length");
        headers_.push_back(
            {"Content-Length", arena_->Copy({digits, static_cast<size_t>(end - digits)})});
        return;
    }
    mode_ = terms_.mayChunk ? Mode::Chunked : Mode::UntilClose;
    if (mode_ == Mode::UntilClose)
        Close();
}

void Reply::ComposeHead()
{
    // A body that nobody read stands before the next request.
    if (terms_.mayKeepAlive && !body_->Skip())
        Close();
    Put(head_, "HTTP/1.1 ");
    PutNumber(head_, static_cast<uint64_t>(status_));
    Put(head_, " ");
    Put(head_, ReasonPhrase(status_));
    Put(head_, "\r\nDate: ");
    Put(head_, DateNow());
    Put(head_, "\r\nServer: Kest\r\n");
    for (const Header& header : headers_) {
        Put(head_, header.name);
        Put(head_, ": ");
        Put(head_, header.value);
        Put(head_, "\r\n");
    }
    if (mode_ == Mode::Chunked)
        Put(head_, "Transfer-Encoding: chunked\r\n");
    if (!terms_.mayKeepAlive)
        Put(head_, "Connection: close\r\n");
    else if (terms_.saysKeepAlive)
        Put(head_, "Connection: keep-alive\r\n");
    Put(head_, "\r\n");
}

bool Reply::Flush(const void* extra, size_t size, bool isFinal)
{
    const size_t pending = gathered_.Size() + size;
    iovec pieces[6];
    int count = 0;
    const auto add = [&](const void* bytes, size_t n) {
        if (n)
            pieces[count++] = {const_cast<void*>(bytes), n};
    };
    if (!hasLeft_) {
        DecideMode(isFinal, pending);
        ComposeHead();
        add(head_.Data(), head_.Size());
    }
    size_t allowed = pending;
    if (mode_ == Mode::None) {
        allowed = 0;
    } else if (mode_ == Mode::Length && bodyBytes_ > length_) { // the surplus is cut
        const uint64_t before = bodyBytes_ - pending;
        allowed = static_cast<size_t>(length_ - std::min(before, length_));
        Close();
        if (!hasLeft_) { // not announced yet: say so
            head_.Clear();
            ComposeHead();
            pieces[0] = {const_cast<char*>(head_.Data()), head_.Size()};
        }
    }
    char sizeLine[24];
    if (mode_ == Mode::Chunked && pending) {
        const int made = std::snprintf(sizeLine, sizeof sizeLine, "%zx\r\n", pending);
        add(sizeLine, static_cast<size_t>(made));
    }
    const size_t fromGathered = std::min(allowed, gathered_.Size());
    add(gathered_.Data(), fromGathered);
    add(extra, std::min(allowed - fromGathered, size));
    if (mode_ == Mode::Chunked) {
        static constexpr std::string_view kEnds[] = {"", "\r\n", "0\r\n\r\n", "\r\n0\r\n\r\n"};
        const std::string_view end = kEnds[(pending ? 1 : 0) + (isFinal ? 2 : 0)];
        add(end.data(), end.size());
    }
    hasLeft_ = true;
    if (count && !transport_->Send(pieces, count, terms_.stall, *watcher_))
        isBroken_ = true;
    head_.Release();
    gathered_.Clear();
    return !isBroken_;
}

std::string_view ReasonPhrase(int status) noexcept
{
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 206:
        return "Partial Content";
    case 207:
        return "Multi-Status";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 304:
        return "Not Modified";
    case 307:
        return "Temporary Redirect";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 409:
        return "Conflict";
    case 412:
        return "Precondition Failed";
    case 413:
        return "Content Too Large";
    case 414:
        return "URI Too Long";
    case 415:
        return "Unsupported Media Type";
    case 416:
        return "Range Not Satisfiable";
    case 417:
        return "Expectation Failed";
    case 422:
        return "Unprocessable Content";
    case 423:
        return "Locked";
    case 424:
        return "Failed Dependency";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 501:
        return "Not Implemented";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    case 505:
        return "HTTP Version Not Supported";
    case 507:
        return "Insufficient Storage";
    default:
        return "";
    }
}

} // namespace kestd
