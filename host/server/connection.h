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
    bool IsIdle() const noexcept override { return wait_.isIdle; }
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

    // Who is at the other end; behind a proxy that has announced it, the client.
    struct Peer {
        base::IpAddress address;
        char text[46] = {};          // the address; INET6_ADDRSTRLEN
        bool isProxy = false;        // of the last request: a trusted one
        bool isSecure = false;       // speaks TLS with the proxy
        std::string certificateUser; // whom the client's certificate names; empty: nobody
    };
    // A head that comes, and the wait for it. Times as of NowMs().
    struct HeadProgress {
        size_t scanned = 0;    // of the head in `in_`
        int64_t start = 0;     // when the first byte came
        int64_t idleStart = 0; // when the wait for it began
        bool isFirst = true;   // no request yet
    };
    // A handler that runs on a fiber, or has stopped there.
    struct Handler {
        std::unique_ptr<Fiber> fiber;
        Work work = nullptr;         // what runs on it
        RunningCall* call = nullptr; // of one that has stopped
        int64_t deadline = 0;        // likewise
        bool hasFailed = false;      // for lack of memory
        bool isToGather = false;     // the body, before the module is called
    };
    // What the thread that serves the connection has seen of the socket.
    struct Turn {
        Event event;
        bool isDrained = false;  // the last receive took all there was
        bool hasExpired = false; // the wait before
    };
    // What is left to do after the last reply.
    struct LastReply {
        bool goesOn = false; // another request may follow
        bool hasUnread = false;
    };
    struct LingeringClose {
        size_t received = 0;
        int64_t end = 0; // as of NowMs()
    };
    // Of the pending wait, for the clock's thread.
    struct PendingWait {
        // When it has lasted too long; 0 while a thread runs the connection, -1 once it has
        // expired. Set by the connection, compared and exchanged by others.
        std::atomic<int64_t> deadline{0};
        std::atomic<bool> isIdle{true};
        std::atomic<int64_t> headStart{0};    // since when it is for a head; 0: for something else
        std::atomic<uint64_t> movedAndOne{0}; // by the client so far, and one; 0: no request waits
        // Of a call that waits to be woken: its client may have left, which is to be found out.
        std::atomic<bool> looksForClient{false};
    };
    // The clock's: how long the request has waited since this much had been moved.
    struct MeasuredRate {
        int64_t waited = 0;
        uint64_t movedBefore = 0;
    };

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
    State state_ = State::Head;
    bool isListed_ = false;              // as a waiting request, unless it was given up
    std::atomic<bool> isGivenUp_{false}; // set by anybody; the handler must not wait any more
    Handler handler_;
    HeadProgress head_;
    Turn turn_;
    LastReply reply_;
    LingeringClose linger_;
    PendingWait wait_;
    MeasuredRate rate_;
    Peer peer_;
};

// Logs why a connection to a listener that takes preambles is closed, not too often.
void WarnOfPreamble(const char* peer, const char* what);

} // namespace kestd
