// SPDX-License-Identifier: Apache-2.0
//
// The reply to one request: gathers what the module says and frames it as HTTP/1.1 asks for.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

#include "host/http/body.h"
#include "host/http/content_coding.h"
#include "host/http/header_fields.h"
#include "host/net/buffer.h"
#include "host/net/socket_stream.h"

namespace kestd {

class Response {
  public:
    struct Options {
        bool isHead = false;        // the request was HEAD: no body
        bool mayChunk = true;       // HTTP/1.1 client
        bool mayKeepAlive = true;   // client and server both want another request
        bool saysKeepAlive = false; // an HTTP/1.0 client has to be told
        std::chrono::milliseconds stall{0};
    };

    void Start(const Options& options, Arena& arena, Body& body, SocketStream& stream,
               Waiter& waiter) noexcept;
    void Reset() noexcept;

    // Takes the memory for a head of up to 24 fields and 4 KiB, and for gathering the body: what is
    // said then needs no more. Throws std::bad_alloc.
    void Reserve();
    // Sets a header, in place of an earlier one of that name. False for a name or value that no
    // header can have (line breaks, controls), or after Begin. An empty "Content-Length" stands for
    // whatever the body turns out to be. Throws std::bad_alloc.
    bool SetHeader(std::string_view name, std::string_view value);
    bool SetHeader(const FixedField& field);
    // Null when it is not set. Valid until a header is set or removed.
    const std::string_view* FindHeader(std::string_view name) const noexcept
    {
        return headers_.Find(name);
    }
    void RemoveHeader(std::string_view name) noexcept { headers_.Remove(name); }
    // The body leaves in this coding, where there is enough of it and memory for it: then
    // "Content-Encoding" says so, and the entity tag becomes a weak one. Before Begin.
    void SetCoding(ContentCoding coding) noexcept { coding_ = coding; }
    // Sends an interim reply (RFC 9110 section 15.2) with these headers alone. Throws
    // std::bad_alloc.
    enum class Interim { Sent, NotTaken, TooLate, Gone };
    Interim SendInterim(int status, const HeaderFields& fields);
    // Ends the head. False when it has ended before.
    bool Begin(int status);
    bool HasBegun() const noexcept { return status_ != 0; }
    bool HeadersSent() const noexcept { return headersSent_; }
    int Status() const noexcept { return status_; }
    // Appends to the body. False when the client is gone or too slow.
    bool Append(const void* bytes, size_t size);
    // Appends a part of an open file, which goes from the page cache to the socket; `sent` is how
    // much of it, less than `length` where the file ends before. Cannot: this reply has to take it
    // by Append, and nothing of it was sent.
    using FileOutcome = SocketStream::FileOutcome;
    FileOutcome AppendFile(int file, uint64_t offset, uint64_t length, uint64_t& sent);
    // Forgets headers and body, if nothing has left: another status and body take their place, and
    // what is appended from now on is dropped.
    bool Replace(int status, std::string_view type, std::string_view text);
    // Puts another body in place of the one that there is, if nothing has left. Status and headers
    // stay, but for those that describe a body; what is appended from now on is dropped. Throws
    // std::bad_alloc.
    bool ReplaceBody(std::string_view type, std::string_view text);
    // Ends the message where it is: nothing more is sent, and the connection closes in a way that
    // no client can take for the end of the body.
    void Cut() noexcept;
    // Sends what is left. True when another request may follow on the connection.
    bool Finish();
    // Another request must not follow, whatever the client wants.
    void Close() noexcept { options_.mayKeepAlive = false; }
    // For the host, until the head has left: one more header.
    bool AddLateHeader(std::string_view name, std::string_view value);
    bool IsBodyEmpty() const noexcept { return bodyBytes_ == 0; }
    uint64_t BodyBytes() const noexcept { return bodyBytes_; }
    bool IsBroken() const noexcept { return isBroken_; }
    // Whether nobody can receive it any more. Looks at most every 100 ms, and not in the first.
    bool HasClientLeft() noexcept;

  private:
    enum class Mode { Unknown, Length, Chunked, UntilClose, None };
    bool MayBeCoded(bool isFinal, size_t pending) const noexcept;
    void DecideCoding(bool isFinal, size_t pending);
    bool CodePending(const void* extra, size_t size, bool isFinal);
    bool MayGather(size_t size);
    void DecideMode(bool isFinal, size_t pending);
    size_t CutSurplus(size_t pending) noexcept;
    void PutHead(size_t chunk);
    enum class Follows { More, File, Nothing };
    bool Flush(const void* extra, size_t size, Follows follows);

    Options options_;
    Arena* arena_ = nullptr;
    Body* body_ = nullptr;
    SocketStream* stream_ = nullptr;
    Waiter* waiter_ = nullptr;
    HeaderFields headers_;
    Buffer gathered_;                                // with room in front for the head
    ContentCoding coding_ = ContentCoding::Identity; // that is wanted
    std::unique_ptr<ContentCoder> coder_;            // once the head is decided, where it is used
    Mode mode_ = Mode::Unknown;
    int status_ = 0;
    uint64_t length_ = 0;    // Length only
    uint64_t bodyBytes_ = 0; // taken into the reply, as they leave
    size_t gatherLimit_ = 0; // how much of the body is gathered before it leaves
    int64_t looked_ = 0;     // when HasClientLeft did so last; 0 for never
    bool hasAsked_ = false;
    bool headersSent_ = false;
    bool isBroken_ = false;
    bool discardsBody_ = false; // replaced: the module's body is not wanted
};

} // namespace kestd
