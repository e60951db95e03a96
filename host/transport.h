// SPDX-License-Identifier: Apache-2.0
//
// Bytes to and from one client, plain or through TLS.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace kestd {

// Told before a thread starts to wait for a client, so that another can take its place.
class WaitWatcher {
  public:
    virtual void BeforeWait() = 0;

  protected:
    ~WaitWatcher() = default;
};

// One socket, in waiting mode. The file descriptor belongs to somebody else and outlives the
// transport. One thread at a time.
class Transport {
  public:
    static constexpr ssize_t kWouldBlock = -1;
    static constexpr ssize_t kBroken = -2; // the client is gone, or violates TLS
    static constexpr ssize_t kTooSlow = -3;

    // With a context the connection is TLS.
    Transport(int fd, ssl_ctx_st* context);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    bool IsTls() const noexcept { return ssl_ != nullptr; }
    // Without waiting: the number of bytes, 0 at the end, kWouldBlock or kBroken. Performs the TLS
    // handshake as far as it gets.
    ssize_t Receive(void* to, size_t size);
    // As Receive, but waits up to `idle` for something to come (else kTooSlow). Fills as much of
    // `to` as comes in that time.
    ssize_t ReceiveWaiting(void* to, size_t size, std::chrono::milliseconds idle,
                           WaitWatcher& watcher);
    // As ReceiveWaiting, but content with what comes first.
    ssize_t ReceiveSome(void* to, size_t size, std::chrono::milliseconds idle,
                        WaitWatcher& watcher);
    // Sends everything, waiting whenever the client takes nothing, at most `stall` each time. With
    // a `stall` of 0 it does not wait at all. False when not all could be sent.
    bool Send(const iovec* pieces, int count, std::chrono::milliseconds stall,
              WaitWatcher& watcher);
    // Whether TLS has to send before it can receive (during a handshake).
    bool WantsToSend() const noexcept { return wantsToSend_; }
    // Tells the client that nothing more will be sent.
    void EndSending();
    // Makes the end of the connection an error for the client. Before the descriptor is closed.
    void ResetAtEnd() noexcept;

  private:
    bool SendPlain(iovec* pieces, int count, std::chrono::milliseconds stall, WaitWatcher& watcher);
    bool SendTls(const char* bytes, size_t size, std::chrono::milliseconds stall,
                 WaitWatcher& watcher);
    ssize_t ReceiveTls(void* to, size_t size);
    ssize_t ReceiveInTime(void* to, size_t size, std::chrono::milliseconds idle,
                          WaitWatcher& watcher, bool fills);
    bool WaitFor(short events, std::chrono::milliseconds time, WaitWatcher& watcher) const;

    int fd_;
    ssl_st* ssl_ = nullptr;
    bool wantsToSend_ = false;
    bool isBroken_ = false;
    std::chrono::milliseconds sendTimeout_{0}; // as set on the socket, 0 is none
    std::chrono::milliseconds receiveTimeout_{0};
};

// A server context from PEM files: TLS 1.2 and later, HTTP/1.1 by ALPN. Null with a reason in
// `error`.
std::shared_ptr<ssl_ctx_st> LoadTlsContext(const std::string& certificate, const std::string& key,
                                           std::string& error);

} // namespace kestd
