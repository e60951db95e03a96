// SPDX-License-Identifier: Apache-2.0
//
// One client's connection: receives requests, has them answered, one after the other.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string_view>

#include "base/descriptor.h"
#include "base/ip_address.h"
#include "host/auth/suspendable_call.h"
#include "host/net/buffer.h"
#include "host/net/client_limits.h"
#include "host/net/event_loop.h"
#include "host/net/fiber.h"
#include "host/net/socket_stream.h"
#include "host/server/connection_registry.h"

namespace kestd {

class AccessLog;
class Exchange;
class Pipeline;
class RunningCall;
class ServerClock;
struct ServerCounts;
class SettingsHolder;
struct EffectiveSettings;
struct ProxyPreamble;

// What connections work with; all of it outlives them.
struct ConnectionServices {
    EventLoop& loop;
    ConnectionRegistry& registry;
    ClientLimits& clients;
    SettingsHolder& settings;
    const Pipeline& pipeline;
    AccessLog& log;
    const std::atomic<bool>& isStopping;
    ServerClock& clock;
    ServerCounts* counts; // null: nothing is counted
};

// Waits for the socket to become ready, then runs on whichever worker picks that up, and waits
// again. No thread waits for a client: a head and the beginning of a body are gathered, what is
// left of a reply is sent as the client takes it, and a handler in between runs on a fiber, which
// stops where it would wait. At any time either nobody or one thread runs the connection, so its
// members need no lock; the exceptions are said. Deletes itself.
class Connection final : public EventHandler,
                         public Waiter,
                         public SuspendableCall,
                         public WaitingRequest,
                         public RegisteredConnection {
  public:
    // Throws std::bad_alloc. With `awaitsPreamble`, the peer is a proxy that says first whose
    // connection it is.
    Connection(const ConnectionServices& services,
               std::shared_ptr<const EffectiveSettings> settings, base::Descriptor socket,
               ClientLimits::Place place, const sockaddr_storage& peer, bool awaitsPreamble);
    // A handler that has stopped runs to its end first, as if its client had left.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Serves the client from here on.
    void Begin() noexcept;
    // Says 503 and goes: there are too many connections.
    void RejectOverload();

    int64_t Check(const Moment& moment, const Limits& limits) noexcept override;
    void ExpireIfIdle() noexcept override;
    bool IsIdle() const noexcept override { return isIdle_; }
    void GiveUp() noexcept override;

    void OnReady(Event event) noexcept override;
    bool Wait(For what, int64_t deadline) override;
    bool IsGivenUp() const noexcept override { return isGivenUp_; }
    bool Suspend() override;
    void Wake() noexcept override;

  private:
    static constexpr int64_t kUntilWoken = INT64_MAX; // a deadline
    enum class State {
        Preamble, // receives what a proxy says about the client
        Head,     // receives a head
        Body,     // gathers the body, or its beginning, before the handler is called
        Call,     // the handler has stopped and waits for the client, or to be woken
        Flush,    // the reply is complete, and its end waits for the client
        Linger,   // nothing more is answered
    };
    enum class Step { Again, Wait, Close };
    using Work = void (Connection::*)();

    void Watch() noexcept;
    bool Release() noexcept;
    void PublishWait() noexcept;
    void Expire(int64_t due) noexcept;
    bool MayStayAway() noexcept;
    bool IsTooSlow(int64_t elapsed, const Limits& limits) noexcept;
    void Run(Event event);
    Step Serve();
    Step WaitFor(For what, int64_t deadline) noexcept;
    Waiter::For ToReceive() const noexcept;
    Step ReadHead();
    ssize_t ReceiveHead();
    Step WaitForHead();
    Step Linger();
    Step StartLinger();

    // connection_preamble.cpp
    Step ReadPreamble();
    Step TakePreamble(const ProxyPreamble& preamble);

    // connection_request.cpp
    Step OnHead(size_t size);
    Step Refuse(int status);
    Step RejectForOverload();
    void StartExchange();
    bool EnterClient();
    void StartReply();
    Step StartCall(Work work);
    static void RunWork(void* self) noexcept;
    bool RunCall() noexcept;
    Step GoOn();
    void Handle();
    void CallModule();
    bool MustGather(uint64_t& limit, size_t& enough) const;
    Step GatherBody();
    Step AnswerAndEnd(int status);
    void FinishReply();
    Step EndRequest();
    void LogRequest();
    void CountRequest() noexcept;
    Step Flush();
    Step AfterReply();

    const ConnectionServices& services_;
    ClientLimits::Place place_;
    ClientLimits::Place clientPlace_; // of the client that a proxy has told of, while it is served
    const base::Descriptor socket_;
    EventLoop::Registration registration_ = 0;
    EventLoop::Interest interest_ = EventLoop::Interest::Input; // as the loop knows it
    For waitsFor_ = For::Input;
    SocketStream stream_;
    Buffer in_;
    std::shared_ptr<const EffectiveSettings> settings_; // changes between requests only
    std::unique_ptr<Exchange> exchange_;                // while there is a request
    std::unique_ptr<Fiber> fiber_;                      // while a handler runs or has stopped
    Work work_ = nullptr;                               // what runs on it
    RunningCall* call_ = nullptr;                       // of the handler that has stopped
    int64_t callDeadline_ = 0;                          // likewise
    size_t scanned_ = 0;                                // of the head in `in_`
    size_t lingered_ = 0;
    int64_t headStart_ = 0; // when the first byte of a head came
    int64_t idleStart_ = 0; // when the wait for it began
    int64_t lingerEnd_ = 0;
    State state_ = State::Head;
    bool isFirst_ = true;    // no request yet
    Event event_;            // that the thread serves
    bool isDrained_ = false; // the last receive took all there was
    bool hasExpired_ = false;
    bool hasFailed_ = false;  // the handler, for lack of memory
    bool isToGather_ = false; // the body, before the module is called
    // Of the last reply:
    bool goesOn_ = false; // another request may follow
    bool hasUnread_ = false;
    std::atomic<bool> isGivenUp_{false}; // set by anybody; the handler must not wait any more
    // When the pending wait has lasted too long; 0 while a thread runs the connection, -1 once it
    // has expired. Set by the connection, compared and exchanged by others.
    std::atomic<int64_t> deadline_{0};
    std::atomic<bool> isIdle_{true};
    // Of the pending wait, for the clock's thread: since when it has been for a head (0: it is for
    // something else), and how much the client has moved so far, and one (0: no request waits).
    std::atomic<int64_t> headWaitStart_{0};
    std::atomic<uint64_t> movedAndOne_{0};
    // Of a call that waits to be woken: its client may have left, which is to be found out.
    std::atomic<bool> looksForClient_{false};
    // The clock's: how long the request has waited since this much had been moved.
    int64_t waited_ = 0;
    uint64_t movedBefore_ = 0;
    bool isListed_ = false;       // as a waiting request, unless it was given up
    bool isFromProxy_ = false;    // the last request's peer was a trusted proxy
    bool isClientSecure_ = false; // the client speaks TLS with the proxy that announced it
    std::string certificateUser_; // whom the client's certificate names; empty: nobody
    base::IpAddress peer_;        // or the client that it has announced; likewise its text
    char remote_[46] = {};        // INET6_ADDRSTRLEN
};

// Logs why a connection to a listener that takes preambles is closed, not too often.
void WarnOfPreamble(const char* peer, const char* what);

} // namespace kestd
