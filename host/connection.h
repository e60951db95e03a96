// SPDX-License-Identifier: Apache-2.0
//
// One client's connection: receives requests, has them answered, one after the other.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string_view>

#include "host/buffer.h"
#include "host/descriptor.h"
#include "host/poller.h"
#include "host/transport.h"

namespace kestd {

class Front;
class RequestIo;
struct Live;

// Waits for the socket to become readable, then runs on whichever worker picks that up, and waits
// again: no thread while the client is silent or trickles, and no buffer while it is idle. At any
// time either nobody or one thread runs the connection, so its members need no lock; the exceptions
// are said. Deletes itself.
class Connection final : public Watched, public WaitWatcher {
  public:
    // Throws std::bad_alloc.
    Connection(Front& front, Descriptor socket, const sockaddr_storage& peer, const Live& live);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Serves the client from here on.
    void Begin() noexcept;
    // Says 503 and goes: there are too many connections.
    void TurnAway();

    // From any thread, while the connection is in the list:
    void ExpireIfDue(int64_t now) noexcept; // ends a wait whose time is up
    void ExpireIfIdle() noexcept;
    void Abort() noexcept; // whatever it does fails from now on

    void OnReady(bool mayHaveEnded) noexcept override;
    void BeforeWait() override;

    // The list of the front; guarded by its lock.
    Connection* next = nullptr;
    Connection* previous = nullptr;

  private:
    enum class State { Head, Body, Linger };
    enum class Step { Again, Wait, Close };
    void Watch() noexcept;
    bool Wait();
    void Expect(Poller::Interest interest) noexcept;
    void Run(bool mayHaveEnded);
    Step Serve();
    Step ReadHead();
    Step OnHead(size_t size);
    Step FetchBody();
    Step Linger();
    Step CallModule();
    Step EndRequest();
    Step StartLinger();
    Step Refuse(int status);
    void StartReply(const Live& live);
    void SetDeadline(std::chrono::milliseconds fromNow) noexcept;

    Front& front_;
    const Descriptor socket_;
    Poller::Ticket ticket_;
    Poller::Interest interest_ = Poller::Interest::Input;
    Transport transport_;
    Buffer in_;
    std::unique_ptr<RequestIo> request_;
    size_t scanned_ = 0; // of the head in `in_`
    size_t lingered_ = 0;
    int64_t headStart_ = 0; // when the first byte of a head came
    int64_t lingerEnd_ = 0;
    bool isFirst_ = true; // no request yet
    State state_ = State::Head;
    bool mayHaveEnded_ = false; // the client may have sent its last
    bool isDrained_ = false;    // the last receive took all there was
    bool hasExpired_ = false;
    // When the pending wait has lasted too long; 0 while a thread runs the connection, -1 once it
    // has expired. Set by the connection, compared and exchanged by others.
    std::atomic<int64_t> deadline_{0};
    std::atomic<bool> isIdle_{true};
    char remote_[46] = {}; // INET6_ADDRSTRLEN
};

} // namespace kestd
