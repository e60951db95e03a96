// SPDX-License-Identifier: Apache-2.0
//
// Bytes to and from one client, plain or through TLS.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/net/buffer.h"

struct ssl_st;
struct ssl_ctx_st;

namespace kestd {

// Lets a call wait for its client. No thread waits with it.
class Waiter {
  public:
    enum class For { Input, Output, Wake };

    // Returns when the socket may be ready (For::Wake: when somebody says so), or perhaps for
    // nothing. False when `deadline` (of NowMs) has passed, the client is given up, or nobody can
    // wait here.
    [[nodiscard]] virtual bool Wait(For what, int64_t deadline) = 0;
    // Whether nothing is expected of the client any more: it is ended, or the server stops.
    virtual bool IsGivenUp() const noexcept = 0;

  protected:
    ~Waiter() = default;
};

// One socket, which never blocks, belongs to somebody else and outlives the stream. No call keeps
// its thread waiting. One thread at a time.
class SocketStream {
  public:
    static constexpr ssize_t kWouldBlock = -1;
    static constexpr ssize_t kBroken = -2; // the client is gone, or violates TLS
    static constexpr ssize_t kTooSlow = -3;
    // Of the end of a reply, what the client does not take at once and is kept; bytes.
    static constexpr size_t kMostUnsent = 64 * 1024;

    // With a context the connection is TLS. Throws std::bad_alloc.
    SocketStream(int fd, ssl_ctx_st* context);
    ~SocketStream();
    SocketStream(const SocketStream&) = delete;
    SocketStream& operator=(const SocketStream&) = delete;

    bool IsTls() const noexcept { return ssl_ != nullptr; }
    // Whom the client's certificate names, see TlsClientName. After the handshake.
    std::string ClientName() const;
    // Without waiting: the number of bytes, 0 at the end, kWouldBlock or kBroken. Performs the TLS
    // handshake as far as it gets.
    ssize_t Receive(void* to, size_t size);
    // As Receive, but waits up to `idle` for something to come (else kTooSlow).
    ssize_t ReceiveSome(void* to, size_t size, std::chrono::milliseconds idle, Waiter& waiter);
    // As ReceiveSome. Where it has to wait, it goes on until `to` is full or nothing has come for
    // `idle`.
    ssize_t ReceiveFull(void* to, size_t size, std::chrono::milliseconds idle, Waiter& waiter);
    // Sends everything, waiting whenever the client takes nothing, at most `stall` each time. False
    // when not all could be sent. `isLast`: nothing follows before Flush; then up to kMostUnsent
    // bytes are kept instead of waited for.
    bool Send(const iovec* pieces, int count, bool isLast, std::chrono::milliseconds stall,
              Waiter& waiter);
    // As Send of what comes before a part of a file, which leaves with it in one piece.
    bool SendAhead(const iovec* pieces, int count, std::chrono::milliseconds stall, Waiter& waiter);
    // Whether SendFile can be called: not through TLS.
    bool CanSendFile() const noexcept { return ssl_ == nullptr; }
    // Sends `length` bytes of an open file from `offset` on, straight from the page cache; fewer
    // where the file ends before. `sent`: how many. Broken when the client takes nothing, as with
    // Send, or the file cannot be read; Cannot where nothing has left and this kind of file cannot.
    // The process must ignore SIGPIPE.
    enum class FileOutcome { Sent, Broken, Cannot };
    FileOutcome SendFile(int file, uint64_t offset, uint64_t length,
                         std::chrono::milliseconds stall, Waiter& waiter, uint64_t& sent);
    // Whether something is kept, and its sending without waiting: true when all has left, or the
    // client is gone.
    bool HasUnsent() const noexcept { return unsent_.Size() != 0; }
    bool Flush();
    Waiter::For ToSend() const noexcept
    {
        return wantsToReceive_ ? Waiter::For::Input : Waiter::For::Output;
    }
    // Whether TLS has to send before it can receive (during a handshake).
    bool WantsToSend() const noexcept { return wantsToSend_; }
    // Tells the client that nothing more will be sent.
    void EndSending();
    // Makes the end of the connection an error for the client. Before the descriptor is closed.
    void ResetAtEnd() noexcept;
    enum class Peer { Present, HasEnded, Gone };
    // Whether the client is still there; HasEnded: it sends no more, but may still read.
    Peer Look() const noexcept;
    // The bytes that the client has sent and taken so far.
    uint64_t Moved() const noexcept { return moved_; }

  private:
    ssize_t SendSome(iovec* pieces, int count);
    bool SendAll(iovec* pieces, int count, bool isLast, std::chrono::milliseconds stall,
                 Waiter& waiter);
    void Keep(const iovec* pieces, int count);
    ssize_t ReceiveTls(void* to, size_t size);
    ssize_t ReceivePlain(void* to, size_t size);
    Waiter::For ToReceive() const noexcept
    {
        return wantsToSend_ ? Waiter::For::Output : Waiter::For::Input;
    }

    const int fd_;
    ssl_st* ssl_ = nullptr;
    bool isMoreComing_ = false; // something follows at once: see SendAhead
    bool wantsToSend_ = false;
    bool wantsToReceive_ = false; // TLS, before it can send
    bool isBroken_ = false;
    bool isTooSlow_ = false; // to send
    uint64_t moved_ = 0;
    Buffer unsent_;
};

} // namespace kestd
