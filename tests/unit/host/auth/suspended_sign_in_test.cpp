// SPDX-License-Identifier: Apache-2.0
//
// Sign-ins on fibers, as a server's workers run them.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "host/net/fiber.h"
#include "tests/unit/host/auth/sign_ins.h"

namespace kestd {
namespace {

// Sign-ins that all run on the one thread of a case, each on a fiber: what a server's worker does.
class FiberChecks {
  public:
    explicit FiberChecks(Authenticator& auth) : auth_(auth) {}

    void Start(std::string header)
    {
        calls_.push_back(std::make_unique<Call>(*this, std::move(header)));
        calls_.back()->GoOn();
    }
    // Goes on with those that are woken, until all have ended.
    void RunToTheEnd()
    {
        for (size_t left = Unfinished(); left; left = Unfinished()) {
            std::unique_lock lock(mutex_);
            hasWoken_.wait(lock, [this] { return !woken_.empty(); });
            Call* const call = woken_.front();
            woken_.pop_front();
            lock.unlock();
            if (!call->hasEnded)
                call->GoOn();
        }
    }
    void GiveUp() { isGivenUp_ = true; }
    void GoOnWithAll()
    {
        for (const auto& call : calls_)
            if (!call->hasEnded)
                call->GoOn();
    }
    size_t Unfinished() const
    {
        size_t count = 0;
        for (const auto& call : calls_)
            count += !call->hasEnded;
        return count;
    }
    size_t Count(Result result) const
    {
        size_t count = 0;
        for (const auto& call : calls_)
            count += call->hasEnded && call->result == result;
        return count;
    }

  private:
    struct Call final : SuspendableCall {
        Call(FiberChecks& all, std::string text) : all_(all), header(std::move(text)) {}
        bool Suspend() override
        {
            fiber.Suspend();
            return !all_.isGivenUp_;
        }
        void Wake() noexcept override
        {
            const std::lock_guard lock(all_.mutex_);
            all_.woken_.push_back(this);
            all_.hasWoken_.notify_all();
        }
        void GoOn()
        {
            hasEnded = isStarted ? fiber.Resume() : fiber.Start(&Run, this);
            isStarted = true;
        }
        static void Run(void* self) noexcept
        {
            auto& call = *static_cast<Call*>(self);
            std::shared_ptr<Verified> who;
            std::chrono::seconds wait{0};
            call.result = call.all_.auth_.Check(call.header, "127.0.0.1", who, wait, &call);
        }
        FiberChecks& all_;
        const std::string header;
        Fiber fiber;
        Result result = Result::Busy;
        bool isStarted = false;
        bool hasEnded = false;
    };

    Authenticator& auth_;
    bool isGivenUp_ = false;
    std::mutex mutex_; // guards woken_
    std::condition_variable hasWoken_;
    std::deque<Call*> woken_;
    std::vector<std::unique_ptr<Call>> calls_; // the first to go: their ends wake nobody
};

AuthLimits Roomy()
{
    AuthLimits limits;
    limits.hashesAtOnce = 2;
    limits.waiters = 200;
    limits.longestWait = std::chrono::minutes(5);
    return limits;
}

TEST_F(SignIns, ThatWaitsOnFibers_HoldsNoThread)
{
    Make(Roomy());
    EXPECT_EQ(Check(kAnna), Result::Granted);
    std::promise<void> open;
    gate_ = open.get_future().share();
    FiberChecks checks(*auth_);
    for (int i = 0; i < 60; ++i)
        checks.Start(BasicOf("nobody" + std::to_string(i)));
    EXPECT_EQ(checks.Unfinished(), 60u);
    EXPECT_EQ(Check(kAnna), Result::Granted) << "this thread has nothing to wait for";
    open.set_value();
    checks.RunToTheEnd();
    EXPECT_EQ(checks.Count(Result::Denied), 60u);
    EXPECT_LE(most_, 2);
}

TEST_F(SignIns, OnFibers_LosesNoWakeUp)
{
    Make(Roomy());
    for (int round = 0; round < 100; ++round) {
        auth_->SetUsers(Users(round % 2 ? "secret" : "other")); // nothing is remembered
        FiberChecks checks(*auth_);
        for (int i = 0; i < 4; ++i)
            checks.Start(kAnna); // one hashes, the others wait for it
        for (int i = 0; i < 4; ++i)
            checks.Start(BasicOf(std::to_string(round) + "nobody" + std::to_string(i)));
        checks.RunToTheEnd();
        EXPECT_EQ(checks.Count(Result::Busy), 0u);
        clock_.Advance(std::chrono::hours(2)); // no guess waits
    }
}

TEST_F(SignIns, OnFibersOfClientsThatAreGone_Ends)
{
    Make(Roomy());
    std::promise<void> open;
    gate_ = open.get_future().share();
    FiberChecks checks(*auth_);
    checks.Start(kAnna);
    checks.Start(kAnna);
    checks.Start(kNobody);
    checks.GiveUp();
    checks.GoOnWithAll();
    EXPECT_EQ(checks.Unfinished(), 0u);
    EXPECT_EQ(checks.Count(Result::Busy), 3u);
    open.set_value();
    EXPECT_EQ(Check(kAnna), Result::Granted) << "what was begun counts";
    EXPECT_LE(hashes_, 2);
}

} // namespace
} // namespace kestd
