// SPDX-License-Identifier: Apache-2.0
//
// The body of one request, on its way from the client to the module.
#pragma once

#include <chrono>
#include <cstdint>

#include "host/http/body_readers.h"
#include "host/http/message_framing.h"
#include "host/net/buffer.h"
#include "host/net/socket_stream.h"
#include <kest/types.h>

namespace kestd {

class Body {
  public:
    Body() noexcept = default;
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    // Begins a request's body. What `in` holds is its first part (and perhaps the next request).
    // `sendsContinue`: the client waits for "100 Continue" before it sends (RFC 9110 section
    // 10.1.1).
    void Start(const MessageFraming& framing, Buffer& in, SocketStream& stream, Waiter& waiter,
               bool sendsContinue, std::chrono::milliseconds idle) noexcept;
    // Bounds what Read hands out, for bodies that do not say their length; 0 is no bound.
    void SetLimit(uint64_t limit) noexcept { limit_ = limit; }
    bool IsOverLimit() const noexcept { return isOverLimit_; }
    void Reset() noexcept;

    // Receives without waiting until the body is here, `enough` bytes of it are, or nothing comes
    // any more. Once it is here its length is known exactly. Throws std::bad_alloc.
    Fetched Fetch(uint64_t limit, size_t enough);
    uint64_t AnnouncedLength() const noexcept { return framing_.length; } // 0 when unknown, too
    bool AwaitsContinue() const noexcept { return sendsContinue_; }
    // True when Fetch has nothing to receive.
    bool IsHere() const noexcept { return reader_->IsHere(); }

    // As IKestIO_5::ReadClientPayload.
    TALSTATUS Read(UINT32 size, UINT8* to, UINT32* read);
    // As IKestIO_5::IsClientPayloadAvailable.
    UINT32 Available() const noexcept;
    // Whether the body arrived whole, read or not.
    bool HasArrived() const noexcept { return !failure_ && reader_->IsHere(); }
    // Drops the rest as far as that takes no waiting and at most 64 KiB of receiving. True when the
    // next request can follow.
    bool Skip();
    // Ends the body for its reader.
    void Abandon() noexcept { isAbandoned_ = true; }
    uint64_t BytesRead() const noexcept { return delivered_; }

  private:
    void SendContinue();
    bool IsAtEnd() const noexcept { return isAbandoned_ || reader_->IsAtEnd(); }

    MessageFraming framing_;
    BodySource source_;
    LengthReader length_{source_};
    ChunkedReader chunked_{source_};
    FetchedReader fetched_{source_, chunked_};
    BodyReader* reader_ = &length_; // one of the three
    uint64_t delivered_ = 0;
    uint64_t limit_ = 0;
    bool isOverLimit_ = false;
    bool sendsContinue_ = false;
    bool isAbandoned_ = false;
    TALSTATUS failure_ = 0; // sticky
};

} // namespace kestd
