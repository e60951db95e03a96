// SPDX-License-Identifier: Apache-2.0
//
// Gathers a reply, decides its framing, sends it.
#include "host/http/response.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "base/ascii.h"
#include "base/http_date.h"
#include "host/http/status_text.h"
#include "host/net/monotonic_clock.h"

namespace kestd {

namespace {

// Room in front of what is gathered, so that a usual head and its body leave in one piece; a longer
// head gets its own.
constexpr size_t kHeadRoom = 1024;
// What is gathered before something leaves: little at first, so that the client has something to
// work on, then twice as much each time. Every departure wakes the client, and for a listing of
// thousands of members that cost as much as all that is said about them. Larger pieces than the
// first go out from where they are. With the room in front and the end of a chunk the first fills a
// buffer's usual size.
constexpr size_t kGatherFirst = 15 * 1024 - 16;
constexpr size_t kGatherMost = 8 * kGatherFirst;
constexpr int64_t kLookTime = 100; // ms between two looks for the client

// The lines that every head has, formatted once a second by each thread.
std::string_view CommonLines()
{
    constexpr std::string_view kBefore = "\r\nDate: ";
    constexpr std::string_view kBehind = "\r\nServer: Kest\r\n";
    constexpr size_t kSize = kBefore.size() + base::kHttpDateLength + kBehind.size();
    static thread_local constinit int64_t last = -1;
    static thread_local constinit char text[kSize] = {};
    const int64_t now = std::time(nullptr);
    if (now != last) {
        kBefore.copy(text, kBefore.size());
        (void)base::FormatHttpDate(base::SystemTimeOf(now, 0), text + kBefore.size());
        kBehind.copy(text + kBefore.size() + base::kHttpDateLength, kBehind.size());
        last = now;
    }
    return {text, kSize};
}

char* Put(char* to, std::string_view text)
{
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

constexpr bool HasNoBody(int status) noexcept
{
    return status < 200 || status == 204 || status == 304;
}

} // namespace

void Response::Start(const Options& options, Arena& arena, Body& body, SocketStream& stream,
                     Waiter& waiter) noexcept
{
    Reset();
    options_ = options;
    arena_ = &arena;
    body_ = &body;
    stream_ = &stream;
    waiter_ = &waiter;
}

void Response::Reset() noexcept
{
    headers_.Clear();
    gathered_.Release();
    coding_ = ContentCoding::Identity;
    coder_.reset();
    mode_ = Mode::Unknown;
    status_ = 0;
    length_ = bodyBytes_ = 0;
    gatherLimit_ = kGatherFirst;
    looked_ = 0;
    hasAsked_ = headersSent_ = isBroken_ = discardsBody_ = false;
}

bool Response::SetHeader(std::string_view name, std::string_view value)
{
    return !status_ && headers_.Set(*arena_, name, value);
}

bool Response::SetHeader(const FixedField& field)
{
    if (status_)
        return false;
    headers_.Set(*arena_, field);
    return true;
}

void Response::Reserve()
{
    constexpr size_t kFields = 24;
    constexpr size_t kFieldBytes = 4096;
    headers_.Reserve(kFields);
    gathered_.Reserve(kHeadRoom + kGatherFirst);
    if (!arena_->Reserve(kFieldBytes))
        throw std::bad_alloc();
}

bool Response::AddLateHeader(std::string_view name, std::string_view value)
{
    return !headersSent_ && headers_.Set(*arena_, name, value);
}

bool Response::Begin(int status)
{
    if (status_)
        return false;
    status_ = status >= 200 && status <= 599 ? status : 500;
    return true;
}

// Whether a piece is kept until more has come. Makes the room for it; where there is no memory for
// that, it leaves at once.
bool Response::MayGather(size_t size)
{
    if (size > kGatherFirst || gathered_.Size() + size > gatherLimit_)
        return false;
    if (gathered_.Size() == 0)
        gathered_.MakeHeadroom(kHeadRoom);
    if (gathered_.Room() >= size)
        return true;
    try { // with the room in front, which Reserve would take
        Buffer grown;
        grown.Reserve(kHeadRoom + gathered_.Size() + size);
        grown.MakeHeadroom(kHeadRoom);
        grown.Append(gathered_.Data(), gathered_.Size());
        gathered_ = std::move(grown);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool Response::Append(const void* bytes, size_t size)
{
    if (!status_)
        status_ = 200;
    if (isBroken_)
        return false;
    if (size == 0 || discardsBody_ || options_.isHead || HasNoBody(status_) || status_ == 416)
        return true;
    if (MayGather(size)) {
        gathered_.Append(bytes, size);
        bodyBytes_ += size;
        return true;
    }
    bodyBytes_ += size;
    gatherLimit_ = std::min(2 * gatherLimit_, kGatherMost);
    return Flush(bytes, size, Follows::More);
}

Response::FileOutcome Response::AppendFile(int file, uint64_t offset, uint64_t length,
                                           uint64_t& sent)
{
    sent = 0;
    const bool isFramed =
        mode_ == Mode::Length || (mode_ == Mode::Unknown && FindHeader("Content-Length"));
    if (!status_ || isBroken_ || discardsBody_ || options_.isHead || HasNoBody(status_) ||
        coding_ != ContentCoding::Identity || !isFramed || !stream_->CanSendFile())
        return FileOutcome::Cannot;
    if ((!headersSent_ || gathered_.Size() != 0) && !Flush(nullptr, 0, Follows::File))
        return FileOutcome::Broken;
    // The length that was announced may be none, or less than what is to be sent.
    if (mode_ != Mode::Length || bodyBytes_ > length_ || length > length_ - bodyBytes_)
        return FileOutcome::Cannot;
    const FileOutcome outcome =
        stream_->SendFile(file, offset, length, options_.stall, *waiter_, sent);
    bodyBytes_ += sent;
    isBroken_ = outcome == FileOutcome::Broken;
    return outcome;
}

bool Response::Replace(int status, std::string_view type, std::string_view text)
{
    if (headersSent_)
        return false;
    headers_.Clear();
    gathered_.Clear();
    coding_ = ContentCoding::Identity;
    status_ = 0;
    bodyBytes_ = 0;
    discardsBody_ = false;
    if (!text.empty())
        SetHeader("Content-Type", type);
    Begin(status);
    if (!text.empty())
        Append(text.data(), text.size());
    discardsBody_ = true;
    return true;
}

bool Response::ReplaceBody(std::string_view type, std::string_view text)
{
    if (!status_ || headersSent_ || isBroken_)
        return false;
    for (const std::string_view name :
         {"Content-Length", "Transfer-Encoding", "Content-Encoding", "ETag", "Last-Modified"})
        headers_.Remove(name);
    headers_.Set(*arena_, "Content-Type", type);
    coding_ = ContentCoding::Identity;
    gathered_.Clear();
    bodyBytes_ = 0;
    discardsBody_ = true;
    if (options_.isHead || HasNoBody(status_))
        return true;
    gathered_.MakeHeadroom(kHeadRoom);
    gathered_.Append(text.data(), text.size());
    bodyBytes_ = text.size();
    return true;
}

void Response::Cut() noexcept
{
    if (isBroken_)
        return;
    isBroken_ = true;
    if (mode_ == Mode::UntilClose)
        stream_->ResetAtEnd();
}

bool Response::Finish()
{
    if (!status_)
        Replace(500, {}, {});
    if (!isBroken_)
        Flush(nullptr, 0, Follows::Nothing);
    const bool isShort = mode_ == Mode::Length && bodyBytes_ < length_;
    return !isBroken_ && !isShort && options_.mayKeepAlive;
}

bool Response::HasClientLeft() noexcept
{
    if (isBroken_ || waiter_->IsGivenUp())
        return true;
    const int64_t now = NowMs();
    const bool isDue = looked_ && now - looked_ >= kLookTime;
    if (isDue || !looked_)
        looked_ = now;
    if (!isDue)
        return false;
    const SocketStream::Peer peer = stream_->Look();
    if (peer != SocketStream::Peer::HasEnded)
        return peer == SocketStream::Peer::Gone;
    if (!body_->HasArrived())
        return true;
    // It has left, or reads on after its last request: a system that has no such connection any
    // more refuses what is sent to it. RFC 9110 section 15.2: a client takes any interim reply.
    if (!hasAsked_ && !headersSent_ && options_.mayChunk) {
        static constexpr std::string_view kInterim = "HTTP/1.1 102 Processing\r\n\r\n";
        const iovec piece{const_cast<char*>(kInterim.data()), kInterim.size()};
        hasAsked_ = true;
        isBroken_ = !stream_->Send(&piece, 1, true, options_.stall, *waiter_);
    }
    return isBroken_;
}

Response::Interim Response::SendInterim(int status, const HeaderFields& fields)
{
    if (status_ || headersSent_)
        return Interim::TooLate;
    if (!options_.mayChunk) // RFC 9110 section 15.2: not to HTTP/1.0
        return Interim::NotTaken;
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    constexpr std::string_view kEnd = "\r\n";
    char digits[4] = {};
    std::to_chars(digits, digits + 3, status);
    std::string head;
    head.append(kVersion).append(digits).append(" ").append(ReasonPhrase(status)).append(kEnd);
    const size_t lines = head.size();
    head.resize(lines + fields.TextSize());
    (void)fields.CopyTo(head.data() + lines);
    head.append(kEnd);
    const iovec piece{head.data(), head.size()};
    isBroken_ = isBroken_ || !stream_->Send(&piece, 1, true, options_.stall, *waiter_);
    return isBroken_ ? Interim::Gone : Interim::Sent;
}

// How the end of the body is told to the client, once it has to be known.
void Response::DecideMode(bool isFinal, size_t pending)
{
    const std::string_view* length = FindHeader("Content-Length");
    const std::string_view* coding = FindHeader("Transfer-Encoding");
    const bool wantsChunks = coding && base::EqualsIgnoringCase(*coding, "chunked");
    uint64_t announced = 0;
    const bool hasLength = length && !wantsChunks && base::ParseDecimal(*length, announced);
    if (length && !hasLength)
        RemoveHeader("Content-Length");
    if (coding)
        RemoveHeader("Transfer-Encoding");
    if (options_.isHead || HasNoBody(status_)) {
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
    if (isFinal && !(wantsChunks && options_.mayChunk)) {
        mode_ = Mode::Length;
        length_ = pending;
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, length_).ptr;
        headers_.Set(*arena_, "Content-Length", {digits, static_cast<size_t>(end - digits)});
        return;
    }
    mode_ = options_.mayChunk ? Mode::Chunked : Mode::UntilClose;
    if (mode_ == Mode::UntilClose)
        Close();
}

// How much of what is to leave may leave: a body ends where its announced length does.
size_t Response::CutSurplus(size_t pending) noexcept
{
    if (mode_ == Mode::None)
        return 0;
    if (mode_ != Mode::Length || bodyBytes_ <= length_)
        return pending;
    Close();
    const uint64_t before = bodyBytes_ - pending;
    return static_cast<size_t>(length_ - std::min(before, length_));
}

// Puts what comes before the next piece of the body in front of it: the head, if it has not left,
// and the size line of a chunk, if `chunk` is not 0.
void Response::PutHead(size_t chunk)
{
    char sizeLine[24];
    const size_t sizeLineSize =
        chunk ? static_cast<size_t>(std::snprintf(sizeLine, sizeof sizeLine, "%zx\r\n", chunk)) : 0;
    std::string_view ending;
    size_t size = sizeLineSize;
    const std::string_view reason = ReasonPhrase(status_);
    const std::string_view common = CommonLines();
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    if (!headersSent_) {
        // A body that nobody read stands before the next request.
        if (options_.mayKeepAlive && !body_->Skip())
            Close();
        const bool isChunked = mode_ == Mode::Chunked;
        if (!options_.mayKeepAlive)
            ending = isChunked ? "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n"
                               : "Connection: close\r\n\r\n";
        else if (options_.saysKeepAlive) // never chunked: HTTP/1.0
            ending = "Connection: keep-alive\r\n\r\n";
        else
            ending = isChunked ? "Transfer-Encoding: chunked\r\n\r\n" : "\r\n";
        size += kVersion.size() + 4 + reason.size() + common.size() + headers_.TextSize() +
                ending.size();
    }
    if (size == 0)
        return;
    gathered_.MakeHeadroom(size);
    char* at = gathered_.Prepend(size);
    if (!headersSent_) {
        at = Put(at, kVersion);
        at = std::to_chars(at, at + 3, status_).ptr; // three digits: see Begin
        *at++ = ' ';
        at = Put(at, reason);
        at = Put(at, common);
        at = headers_.CopyTo(at);
        at = Put(at, ending);
    }
    Put(at, {sizeLine, sizeLineSize});
}

// Whether the body is to be coded, as far as that is known when the head leaves. What fits into a
// packet in any case gains nothing.
bool Response::MayBeCoded(bool isFinal, size_t pending) const noexcept
{
    constexpr uint64_t kLeast = 1024;
    if (HasNoBody(status_) || status_ == 206 || status_ == 416)
        return false;
    const std::string_view* const length = FindHeader("Content-Length");
    uint64_t announced = 0;
    if (length && base::ParseDecimal(*length, announced))
        return announced >= kLeast;
    return !options_.isHead && (!isFinal || pending >= kLeast);
}

void Response::DecideCoding(bool isFinal, size_t pending)
{
    if (!MayBeCoded(isFinal, pending))
        return;
    std::unique_ptr<ContentCoder> coder;
    if (!options_.isHead && !(coder = ContentCoder::Make(coding_)))
        return;
    const std::string_view* const tag = FindHeader("ETag");
    if (tag && !tag->starts_with("W/")) // RFC 9110 section 8.8.3.3: other bytes, the same meaning
        headers_.Set(*arena_, "ETag", "W/" + std::string(*tag));
    headers_.Set(*arena_, "Content-Encoding", CodingName(coding_));
    // From here on no memory is taken: the head and the body agree.
    headers_.Remove("Content-Length");
    coder_ = std::move(coder);
}

// Puts what is gathered, and a further piece, into their coded form. False when the reply is
// broken.
bool Response::CodePending(const void* extra, size_t size, bool isFinal)
{
    const std::string_view last{static_cast<const char*>(extra), size};
    const uint64_t plain = gathered_.Size() + size;
    try {
        Buffer coded;
        coded.Reserve(kHeadRoom + kGatherFirst);
        coded.MakeHeadroom(kHeadRoom);
        if (coder_->Code(gathered_.View(), isFinal && size == 0, coded) &&
            (size == 0 || coder_->Code(last, isFinal, coded))) {
            bodyBytes_ += coded.Size();
            bodyBytes_ -= plain;
            gathered_ = std::move(coded);
            return true;
        }
    } catch (const std::bad_alloc&) { // a part may be coded already, and must not be once more
    }
    Cut();
    return false;
}

bool Response::Flush(const void* extra, size_t size, Follows follows)
{
    const bool isFinal = follows == Follows::Nothing;
    if (coding_ != ContentCoding::Identity && !headersSent_)
        DecideCoding(isFinal, gathered_.Size() + size);
    if (coder_) {
        if (!CodePending(extra, size, isFinal))
            return false;
        size = 0;
    }
    const size_t pending = gathered_.Size() + size;
    if (!headersSent_)
        DecideMode(isFinal, pending);
    const size_t allowed = CutSurplus(pending);
    gathered_.Truncate(std::min(allowed, gathered_.Size()));
    size = std::min(allowed - gathered_.Size(), size);
    const bool isChunked = mode_ == Mode::Chunked;
    PutHead(isChunked ? pending : 0);
    std::string_view end;
    if (isChunked) {
        static constexpr std::string_view kEnds[] = {"", "\r\n", "0\r\n\r\n", "\r\n0\r\n\r\n"};
        end = kEnds[(pending ? 1 : 0) + (isFinal ? 2 : 0)];
        if (size == 0) {
            gathered_.Append(end.data(), end.size());
            end = {};
        }
    }
    iovec pieces[3];
    int count = 0;
    for (const std::string_view piece :
         {gathered_.View(), {static_cast<const char*>(extra), size}, end})
        if (!piece.empty())
            pieces[count++] = {const_cast<char*>(piece.data()), piece.size()};
    headersSent_ = true;
    const bool isLast = isFinal || (mode_ == Mode::Length && bodyBytes_ >= length_);
    if (follows == Follows::File)
        isBroken_ = !stream_->SendAhead(pieces, count, options_.stall, *waiter_);
    else if (count && !stream_->Send(pieces, count, isLast, options_.stall, *waiter_))
        isBroken_ = true;
    gathered_.Clear();
    return !isBroken_;
}

} // namespace kestd
