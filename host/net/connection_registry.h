// SPDX-License-Identifier: Apache-2.0
//
// What all connections of one server share.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "host/config/settings.h"
#include "host/http/access_log.h"
#include "host/net/client_limits.h"
#include "host/net/event_loop.h"
#include "host/net/monotonic_clock.h"
#include "host/net/worker_pool.h"
#include "host/pipeline/access_control.h"
#include <kest/req.h>

struct ssl_ctx_st;

namespace kestd {

class Connection;

// The settings in force, and what follows from them. Never changed; a reload makes a new one.
struct EffectiveSettings {
    ServerSettings settings;
    std::shared_ptr<ssl_ctx_st> tls;
    std::string publicHost; // of the public URL; empty for none
    std::string publicPort;
    bool isPublicSecure = false;
    uint64_t version = 0; // unique in the process
};

class Front {
  public:
    Front(AccessControl& keeper, IKestReq_2* handler, std::string path)
        : accessControl(keeper), module(handler), location(std::move(path))
    {
    }

    // The settings for what begins now, which waits for nothing. The reference holds until the
    // calling thread asks again.
    const EffectiveSettings& Current();
    void Publish(std::shared_ptr<const EffectiveSettings> live);
    std::shared_ptr<const EffectiveSettings> Snapshot();
    // Brings a reference that its owner keeps up to date; costs nothing while nothing changes.
    void Refresh(std::shared_ptr<const EffectiveSettings>& live)
    {
        if (live->version != liveVersion_.load(std::memory_order_acquire))
            live = Snapshot();
    }

    // The list of open connections. Remove comes before the socket is closed, so that whoever goes
    // through the list can use every socket in it.
    void Add(Connection& connection);
    void Remove(Connection& connection);
    size_t ConnectionCount() const noexcept { return count_.load(std::memory_order_relaxed); }
    // Ends waits whose time is up. For one thread, at regular intervals.
    void ExpireDeadlines(int64_t now);
    // Ends idle connections, or (with `all`) every one, whatever it does.
    void Hurry(bool all);
    // Waits until there are no connections. False when time is up first.
    bool WaitUntilEmpty(std::chrono::milliseconds time);
    void DeleteAll(); // no thread runs any more

    ClientLimits clients;
    EventLoop loop;
    WorkerPool workers{loop};
    AccessControl& accessControl;
    IKestReq_2* const module;
    const std::string location;
    AccessLog log;
    std::atomic<bool> isStopping{false};

  private:
    std::mutex liveMutex_; // guards live_
    std::shared_ptr<const EffectiveSettings> live_;
    std::atomic<uint64_t> liveVersion_{0};
    std::mutex mutex_; // guards the list
    std::condition_variable isEmpty_;
    Connection* first_ = nullptr;
    std::atomic<size_t> count_{0};
    int64_t sweptBefore_ = 0;
    uint64_t givenUpBefore_ = 0;
    int64_t saysAgain_ = 0;
    void ReportGivenUp(int64_t now);
};

} // namespace kestd
