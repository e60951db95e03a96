// SPDX-License-Identifier: Apache-2.0
//
// Subscriptions, and the thread that calls the subscribers.
#include "host/components/events.h"

#include <algorithm>

#include "host/component.h"

namespace kestd {

EventBus::EventBus()
{
    running_.reserve(kDeepest + 1); // a delivery cannot fail
    thread_ = std::thread([this] { Run(); });
}

EventBus::~EventBus()
{
    Stop();
}

void EventBus::Stop()
{
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

EventBus::SubscriptionId EventBus::Subscribe(const GUID& eventClass, Ref<IEventHandler> handler)
{
    const std::lock_guard lock(mutex_);
    subscriptions_.emplace(lastId_ + 1, Subscription{eventClass, std::move(handler)});
    return ++lastId_;
}

void EventBus::Unsubscribe(SubscriptionId id)
{
    Ref<IEventHandler> last; // released without the lock: it may be the handler's end
    std::unique_lock lock(mutex_);
    const auto found = subscriptions_.find(id);
    if (found != subscriptions_.end()) {
        last = std::move(found->second.handler);
        subscriptions_.erase(found);
    }
    if (std::this_thread::get_id() == threadId_)
        return;
    settled_.wait(
        lock, [&] { return std::find(running_.begin(), running_.end(), id) == running_.end(); });
    lock.unlock();
}

bool EventBus::Publish(const GUID& eventClass, UINT32 type, void* data)
{
    Event event{eventClass, type, data};
    std::unique_lock lock(mutex_);
    if (isStopping_)
        return false;
    if (std::this_thread::get_id() == threadId_) {
        if (running_.size() == kDeepest)
            return false;
        Deliver(lock, event);
        return true;
    }
    queue_.push_back(&event);
    wake_.notify_one();
    settled_.wait(lock, [&] { return event.isDelivered || event.isDropped; });
    return event.isDelivered;
}

void EventBus::Run()
{
    std::unique_lock lock(mutex_);
    threadId_ = std::this_thread::get_id();
    for (;;) {
        wake_.wait(lock, [&] { return isStopping_ || !queue_.empty(); });
        if (isStopping_)
            break;
        Event* const event = queue_.front();
        queue_.pop_front();
        Deliver(lock, *event);
        event->isDelivered = true;
        settled_.notify_all();
    }
    for (Event* const event : queue_)
        event->isDropped = true;
    queue_.clear();
    settled_.notify_all();
}

void EventBus::Deliver(std::unique_lock<std::mutex>& lock, const Event& event)
{
    // By identifier and not by iterator: handlers subscribe and unsubscribe while they are called.
    SubscriptionId next = 0;
    const SubscriptionId newest = lastId_; // who subscribes meanwhile hears of the next event
    for (;;) {
        const auto found = subscriptions_.upper_bound(next);
        if (found == subscriptions_.end() || found->first > newest)
            return;
        next = found->first;
        if (!(found->second.eventClass == event.eventClass))
            continue;
        Ref<IEventHandler> handler = Ref<IEventHandler>::Share(found->second.handler.Get());
        running_.push_back(next);
        lock.unlock();
        GUID eventClass = event.eventClass; // the handler may write to it
        (void)handler->ConsumeEvent(&eventClass, event.type, event.data); // nobody to tell
        handler = {};
        lock.lock();
        running_.pop_back();
        settled_.notify_all();
    }
}

namespace {

class EventService final : public Object<EventService, IEvent> {
  public:
    explicit EventService(EventBus& bus) : bus_(bus) {}

    TALSTATUS RegisterEventHandlerIf(GUID* eventClass, IEventHandler* handler) override
    {
        if (!eventClass || !handler)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            const std::lock_guard lock(mutex_);
            if (Find(*eventClass) != own_.end())
                return HostFailure(kCodeObjectExists);
            own_.push_back({*eventClass, 0});
            try {
                // The reference changes hands only when this has worked: on failure it stays the
                // caller's.
                Ref<IEventHandler> shared = Ref<IEventHandler>::Share(handler);
                own_.back().id = bus_.Subscribe(*eventClass, std::move(shared));
            } catch (...) {
                own_.pop_back();
                throw;
            }
            handler->Release();
            return TAL_STATUS_SUCCESS;
        });
    }

    TALSTATUS DeRegisterEventHandlerIf(GUID* eventClass) override
    {
        if (!eventClass)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            EventBus::SubscriptionId id = 0;
            {
                const std::lock_guard lock(mutex_);
                const auto found = Find(*eventClass);
                if (found == own_.end())
                    return HostFailure(kCodeNotFound);
                id = found->id;
                own_.erase(found);
            }
            bus_.Unsubscribe(id); // without the lock: it may wait for a handler that needs it
            return TAL_STATUS_SUCCESS;
        });
    }

    TALSTATUS PublishEvent(GUID* eventClass, UINT32 type, void* data) override
    {
        if (!eventClass)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            return bus_.Publish(*eventClass, type, data) ? TAL_STATUS_SUCCESS
                                                         : HostFailure(kCodeUnsuccessful);
        });
    }

    ~EventService()
    {
        for (const Own& own : own_)
            bus_.Unsubscribe(own.id);
    }

  private:
    struct Own {
        GUID eventClass;
        EventBus::SubscriptionId id;
    };

    std::vector<Own>::iterator Find(const GUID& eventClass)
    {
        return std::find_if(own_.begin(), own_.end(),
                            [&](const Own& own) { return own.eventClass == eventClass; });
    }

    EventBus& bus_;
    std::mutex mutex_;
    std::vector<Own> own_;
};

} // namespace

IEvent* MakeEventService(EventBus& bus)
{
    return new EventService(bus);
}

} // namespace kestd
