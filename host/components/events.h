// SPDX-License-Identifier: Apache-2.0
//
// CLSID_EventMgr: who wants to hear of what, and the one thread that tells them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <kest/com.h>
#include <kest/host.h>

namespace kestd {

// Delivers events to handlers on a thread of its own, one at a time, in the order of publication
// and, for each event, in the order of subscription. Outlives every IEvent that was made for it.
class EventBus {
  public:
    EventBus();
    ~EventBus(); // stops it
    EventBus(const EventBus&) = delete;
    EventBus& operator=(const EventBus&) = delete;

    using SubscriptionId = uint64_t; // never 0

    // Takes over the caller's reference to `handler`.
    SubscriptionId Subscribe(const GUID& eventClass, Ref<IEventHandler> handler);
    // When this returns, the handler is not running and will not run again, unless the caller is
    // the event thread itself: then the running call ends as usual and is the last. The handler's
    // reference is gone.
    void Unsubscribe(SubscriptionId id);
    // Events that are published by handlers of events, in each other.
    static constexpr size_t kDeepest = 16;

    // Returns when every subscriber has been called. From within a handler the subscribers are
    // called at once. False when the bus is stopping or the event is nested too deeply.
    bool Publish(const GUID& eventClass, UINT32 type, void* data);
    // Ends the event thread; nothing is delivered any more. Not from within a handler.
    void Stop();

  private:
    struct Event {
        GUID eventClass;
        UINT32 type;
        void* data;
        bool isDelivered = false;
        bool isDropped = false;
    };
    struct Subscription {
        GUID eventClass;
        Ref<IEventHandler> handler;
    };

    void Run();
    void Deliver(std::unique_lock<std::mutex>& lock, const Event& event);

    std::mutex mutex_;
    std::condition_variable wake_;    // for the event thread
    std::condition_variable settled_; // a delivery or a handler's call is over
    std::map<SubscriptionId, Subscription> subscriptions_;
    std::deque<Event*> queue_;            // owned by the publishers that wait
    std::vector<SubscriptionId> running_; // being called, innermost last
    SubscriptionId lastId_ = 0;
    bool isStopping_ = false;
    std::thread::id threadId_; // guarded, other than the thread's own object
    std::thread thread_;
};

// A new IEvent with one reference. Its subscriptions end when it is released.
IEvent* MakeEventService(EventBus& bus);

} // namespace kestd
