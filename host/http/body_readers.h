// SPDX-License-Identifier: Apache-2.0
//
// How a body is taken from its connection: by its length, in chunks, or from what was fetched
// ahead.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/http/chunked_decoder.h"
#include "host/net/buffer.h"
#include "host/net/socket_stream.h"

namespace kestd {

// What came of fetching a body ahead.
enum class Fetched {
    Whole,     // everything has arrived
    Enough,    // as much as was asked for
    More,      // wait for the client
    TooLarge,  // over the limit
    Malformed, // not chunked coding
    Gone,      // the client went away first
};

// What the bodies of a connection are taken from. `in` holds what has been received already: the
// body's next bytes, and perhaps the next request.
struct BodySource {
    Buffer* in = nullptr;
    SocketStream* stream = nullptr;
    Waiter* waiter = nullptr;
    std::chrono::milliseconds idle{0};

    // Receives into `in` without waiting, about `want` bytes. Nothing when something came. Throws
    // std::bad_alloc.
    std::optional<Fetched> ReceiveAhead(size_t want) const;
};

class BodyReader {
  public:
    static constexpr ssize_t kMalformed = -4; // beside the failures of SocketStream

    // Whether nothing of the body is left to be received.
    virtual bool IsHere() const noexcept = 0;
    // Whether nothing is left to be read.
    virtual bool IsAtEnd() const noexcept = 0;
    // How many bytes are left to be read, as far as that is known; 0 only at the end.
    virtual uint64_t Left() const noexcept = 0;
    // Waits for some of the body and hands out up to `size` bytes; 0 at its end, else kMalformed,
    // SocketStream::kTooSlow or kBroken. Throws std::bad_alloc.
    virtual ssize_t Read(void* to, size_t size) = 0;
    // Drops what has been received of it. False when that is malformed.
    virtual bool Drop() = 0;

  protected:
    ~BodyReader() = default;
};

// A body whose length is known, or none: that of length 0.
class LengthReader final : public BodyReader {
  public:
    explicit LengthReader(const BodySource& source) noexcept : source_(source) {}
    void Start(uint64_t length) noexcept { left_ = length; }
    // Receives without waiting until it is here, or `enough` bytes of it. Throws std::bad_alloc.
    Fetched Fetch(size_t enough);

    bool IsHere() const noexcept override { return left_ == 0 || source_.in->Size() >= left_; }
    bool IsAtEnd() const noexcept override { return left_ == 0; }
    uint64_t Left() const noexcept override { return left_; }
    ssize_t Read(void* to, size_t size) override;
    bool Drop() noexcept override;

  private:
    const BodySource& source_;
    uint64_t left_ = 0;
};

// A body in chunks (RFC 9112 section 7.1).
class ChunkedReader final : public BodyReader {
  public:
    explicit ChunkedReader(const BodySource& source) noexcept : source_(source) {}
    void Start() noexcept { decoder_.Reset(); }
    // Takes from what has been received: how many bytes of the body, or kMalformed.
    ssize_t Decode(void* to, size_t size);

    bool IsHere() const noexcept override { return decoder_.IsDone(); }
    bool IsAtEnd() const noexcept override { return decoder_.IsDone(); }
    uint64_t Left() const noexcept override
    {
        return decoder_.DataAhead() + (decoder_.IsDone() ? 0 : 1);
    }
    ssize_t Read(void* to, size_t size) override;
    bool Drop() override;

  private:
    const BodySource& source_;
    ChunkedDecoder decoder_;
};

// A body in chunks of which some, or all, has been decoded before it is read.
class FetchedReader final : public BodyReader {
  public:
    FetchedReader(const BodySource& source, ChunkedReader& rest) noexcept
        : source_(source), rest_(rest)
    {
    }
    void Reset() noexcept { ahead_.Release(); }
    // Receives without waiting until the body is here, or `enough` bytes of it, or more than
    // `limit`. Throws std::bad_alloc.
    Fetched Fetch(uint64_t limit, size_t enough);

    bool IsHere() const noexcept override { return rest_.IsHere(); }
    bool IsAtEnd() const noexcept override { return ahead_.Size() == 0 && rest_.IsAtEnd(); }
    uint64_t Left() const noexcept override { return ahead_.Size() + rest_.Left(); }
    ssize_t Read(void* to, size_t size) override;
    bool Drop() override;

  private:
    Fetched DecodeAhead(uint64_t limit);

    const BodySource& source_;
    ChunkedReader& rest_;
    Buffer ahead_;
};

} // namespace kestd
