// SPDX-License-Identifier: Apache-2.0
#include "host/components/events.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/component.h"
#include <kest/status.h>

namespace kestd {
namespace {

GUID g_first{1, 0, 0, {}};
GUID g_second{2, 0, 0, {}};

class Handler final : public Object<Handler, IEventHandler> {
  public:
    using Work = std::function<void(const GUID&, UINT32, void*)>;
    Handler(std::atomic<int>& alive, Work work) : alive_(alive), work_(std::move(work))
    {
        ++alive_;
    }
    TALSTATUS ConsumeEvent(GUID* eventClass, UINT32 type, void* data) override
    {
        work_(*eventClass, type, data);
        return TAL_STATUS_SUCCESS;
    }
    ~Handler() { --alive_; }

  private:
    std::atomic<int>& alive_;
    const Work work_;
};

class Events : public testing::Test {
  protected:
    void TearDown() override
    {
        for (IEvent* const event : made_)
            event->Release();
        EXPECT_EQ(alive_, 0);
    }
    IEvent* Make()
    {
        made_.push_back(MakeEventService(bus_));
        return made_.back();
    }
    IEventHandler* Listen(Handler::Work work) { return new Handler(alive_, std::move(work)); }

    std::atomic<int> alive_{0};
    const std::thread::id main_ = std::this_thread::get_id();
    EventBus bus_;
    std::vector<IEvent*> made_;
};

TEST_F(Events, Publish_ReachesTheClassOnAnotherThreadBeforeItReturns)
{
    IEvent* const event = Make();
    int data = 7;
    int calls = 0;
    ASSERT_EQ(
        event->RegisterEventHandlerIf(&g_first, Listen([&](const GUID& id, UINT32 type, void* d) {
            ++calls;
            EXPECT_EQ(id, g_first);
            EXPECT_EQ(type, 3U);
            EXPECT_EQ(d, &data);
            EXPECT_NE(std::this_thread::get_id(), main_);
        })),
        0U);
    EXPECT_EQ(event->PublishEvent(&g_second, 3, &data), 0U);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(Make()->PublishEvent(&g_first, 3, &data), 0U);
    EXPECT_EQ(calls, 1);
}

TEST_F(Events, SecondSubscriptionToAClass_IsRefusedAndTheReferenceStays)
{
    IEvent* const event = Make();
    IEventHandler* const handler = Listen([](auto&&...) {});
    handler->AddRef();
    EXPECT_EQ(event->RegisterEventHandlerIf(&g_first, handler), 0U);
    EXPECT_EQ(Code(event->RegisterEventHandlerIf(&g_first, handler)), kCodeObjectExists);
    handler->AddRef();
    EXPECT_EQ(event->RegisterEventHandlerIf(&g_second, handler), 0U);
    EXPECT_EQ(handler->Release(), 2U); // the two subscriptions
}

TEST_F(Events, Deregistered_HearsNothingAndIsReleased)
{
    IEvent* const event = Make();
    int calls = 0;
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) { ++calls; })), 0U);
    EXPECT_EQ(event->DeRegisterEventHandlerIf(&g_first), 0U);
    EXPECT_EQ(alive_, 0);
    EXPECT_EQ(event->PublishEvent(&g_first, 1, nullptr), 0U);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(Code(event->DeRegisterEventHandlerIf(&g_first)), kCodeNotFound);
}

TEST_F(Events, ReleasedManager_EndsItsSubscriptions)
{
    IEvent* const event = MakeEventService(bus_);
    int calls = 0;
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) { ++calls; })), 0U);
    EXPECT_EQ(event->Release(), 0U);
    EXPECT_EQ(alive_, 0);
    Make()->PublishEvent(&g_first, 1, nullptr);
    EXPECT_EQ(calls, 0);
}

TEST_F(Events, Handler_MayUnsubscribeItselfAndItsNeighbour)
{
    IEvent* const first = Make();
    IEvent* const second = Make();
    int firstCalls = 0;
    int secondCalls = 0;
    ASSERT_EQ(first->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) {
        ++firstCalls;
        EXPECT_EQ(first->DeRegisterEventHandlerIf(&g_first), 0U);
        EXPECT_EQ(second->DeRegisterEventHandlerIf(&g_first), 0U);
    })),
              0U);
    ASSERT_EQ(second->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) { ++secondCalls; })),
              0U);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(first->PublishEvent(&g_first, 1, nullptr), 0U);
    EXPECT_EQ(firstCalls, 1);
    EXPECT_EQ(secondCalls, 0);
}

TEST_F(Events, Handler_MaySubscribeOthersAndPublish)
{
    IEvent* const event = Make();
    IEvent* const other = Make();
    int late = 0;
    int nested = 0;
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_second, Listen([&](auto&&...) { ++nested; })), 0U);
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) {
        (void)other->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) { ++late; }));
        EXPECT_EQ(event->PublishEvent(&g_second, 1, nullptr), 0U);
        EXPECT_EQ(nested, late + 1);
    })),
              0U);
    EXPECT_EQ(event->PublishEvent(&g_first, 1, nullptr), 0U);
    EXPECT_EQ(late, 0); // it hears of the next event
    EXPECT_EQ(nested, 1);
}

TEST_F(Events, HandlerThatPublishesWithoutEnd_IsRefusedAtADepth)
{
    IEvent* const event = Make();
    size_t calls = 0;
    TALSTATUS deepest = 0;
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) {
        ++calls;
        if (const TALSTATUS status = event->PublishEvent(&g_first, 1, nullptr); Failed(status))
            deepest = status;
    })),
              0U);
    EXPECT_EQ(event->PublishEvent(&g_first, 1, nullptr), 0U);
    EXPECT_EQ(calls, EventBus::kDeepest);
    EXPECT_EQ(Code(deepest), kCodeUnsuccessful);
}

TEST_F(Events, DeregistrationFromAnotherThread_WaitsForTheRunningCall)
{
    IEvent* const event = Make();
    std::atomic<bool> isInside{false};
    std::atomic<bool> mayLeave{false};
    std::atomic<bool> hasLeft{false};
    ASSERT_EQ(event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) {
        isInside = true;
        while (!mayLeave)
            std::this_thread::yield();
        hasLeft = true;
    })),
              0U);
    IEvent* const publisher = Make();
    std::thread publishing([&] { publisher->PublishEvent(&g_first, 1, nullptr); });
    while (!isInside)
        std::this_thread::yield();
    std::thread leaving([&] {
        EXPECT_EQ(event->DeRegisterEventHandlerIf(&g_first), 0U);
        EXPECT_TRUE(hasLeft);
    });
    mayLeave = true;
    leaving.join();
    publishing.join();
}

TEST_F(Events, StoppedBus_RefusesToPublish)
{
    IEvent* const event = Make();
    bus_.Stop();
    EXPECT_EQ(Code(event->PublishEvent(&g_first, 1, nullptr)), kCodeUnsuccessful);
}

TEST_F(Events, NullArguments_AreRefused)
{
    IEvent* const event = Make();
    EXPECT_EQ(Code(event->RegisterEventHandlerIf(nullptr, nullptr)), kCodeInvalidParameter);
    EXPECT_EQ(Code(event->RegisterEventHandlerIf(&g_first, nullptr)), kCodeInvalidParameter);
    EXPECT_EQ(Code(event->DeRegisterEventHandlerIf(nullptr)), kCodeInvalidParameter);
    EXPECT_EQ(Code(event->PublishEvent(nullptr, 1, nullptr)), kCodeInvalidParameter);
}

TEST_F(Events, SubscribersComeAndGoWhileEventsFly)
{
    std::vector<std::thread> threads;
    std::atomic<int> heard{0};
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                IEvent* const event = MakeEventService(bus_);
                (void)event->RegisterEventHandlerIf(&g_first, Listen([&](auto&&...) { ++heard; }));
                (void)event->PublishEvent(&g_first, 1, nullptr);
                event->Release();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(heard, 600);
}

} // namespace
} // namespace kestd
