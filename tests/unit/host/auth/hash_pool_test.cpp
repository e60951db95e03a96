// SPDX-License-Identifier: Apache-2.0
#include "host/auth/hash_pool.h"

#include <future>
#include <string>

#include <gtest/gtest.h>

namespace kestd {
namespace {

using std::chrono::milliseconds;

// Jobs that note their names in the order in which they ran.
class HashPools : public testing::Test {
  protected:
    class Named final : public HashPool::Job {
      public:
        Named(HashPools& test, std::string name, std::shared_future<void> gate)
            : test_(test), name_(std::move(name)), gate_(std::move(gate))
        {
        }
        void Run(bool isLate) noexcept override
        {
            ++test_.begun_;
            if (gate_.valid())
                gate_.wait();
            const std::lock_guard lock(test_.mutex_);
            test_.ran_ += name_ + (isLate ? " late, " : ", ");
            ++test_.count_;
            test_.hasRun_.notify_all();
        }

      private:
        HashPools& test_;
        const std::string name_;
        const std::shared_future<void> gate_;
    };

    void Make(uint32_t threads, uint32_t waiting)
    {
        pool_ =
            std::make_unique<HashPool>(HashPool::Limits{threads, waiting, std::chrono::minutes(5)});
    }
    bool Submit(const std::string& name, HashPool::Priority priority = HashPool::Priority::User,
                uint32_t others = 0)
    {
        return pool_->Submit(std::make_shared<Named>(*this, name, gate_), priority, others);
    }
    // One that keeps a thread until the gate opens.
    void Occupy(const std::string& name)
    {
        const int before = begun_;
        ASSERT_TRUE(Submit(name));
        while (begun_ == before)
            std::this_thread::yield();
    }
    std::string RanAfter(int count)
    {
        std::unique_lock lock(mutex_);
        hasRun_.wait(lock, [&] { return count_ >= count; });
        return ran_;
    }

    std::string RanWithin(milliseconds time, int count)
    {
        std::unique_lock lock(mutex_);
        hasRun_.wait_for(lock, time, [&] { return count_ >= count; });
        return ran_;
    }

    std::promise<void> open_;
    std::shared_future<void> gate_ = open_.get_future().share();
    std::atomic<int> begun_{0};
    std::mutex mutex_; // guards the next three
    std::condition_variable hasRun_;
    std::string ran_;
    int count_ = 0;
    std::unique_ptr<HashPool> pool_;
};

TEST_F(HashPools, RunUsersFirstAndInTheirOrder)
{
    Make(1, 10);
    Occupy("first");
    for (const char* name : {"x", "y"})
        EXPECT_TRUE(Submit(name, HashPool::Priority::Other));
    for (const char* name : {"a", "b"})
        EXPECT_TRUE(Submit(name));
    EXPECT_EQ(pool_->Waiting(), 4u);
    open_.set_value();
    EXPECT_EQ(RanAfter(5), "first, a, b, x, y, ");
}

TEST_F(HashPools, TurnAwayWhatFindsNoPlace)
{
    Make(1, 4);
    Occupy("first");
    EXPECT_TRUE(Submit("x", HashPool::Priority::Other));
    EXPECT_TRUE(Submit("y", HashPool::Priority::Other));
    EXPECT_FALSE(Submit("z", HashPool::Priority::Other)) << "they have had their half";
    EXPECT_FALSE(Submit("a", HashPool::Priority::User, 2)) << "others have the rest";
    EXPECT_TRUE(Submit("a"));
    EXPECT_TRUE(Submit("b"));
    EXPECT_FALSE(Submit("c"));
    open_.set_value();
    EXPECT_EQ(RanAfter(5), "first, a, b, x, y, ");
}

TEST_F(HashPools, SayWhatHasWaitedTooLongWhileAllThreadsCompute)
{
    Make(1, 10);
    Occupy("first"); // however long its thread takes to begin it
    pool_->SetLimits({1, 10, milliseconds(1)});
    gate_ = {}; // for those that come
    EXPECT_TRUE(Submit("x", HashPool::Priority::Other));
    EXPECT_TRUE(Submit("y", HashPool::Priority::Other));
    EXPECT_EQ(RanWithin(std::chrono::seconds(30), 2), "x late, y late, ");
    open_.set_value();
    EXPECT_EQ(RanAfter(3), "x late, y late, first, ");
}

TEST_F(HashPools, RunAsManyAtOnceAsTheirLimitBesideTheOneThatTells)
{
    Make(1, 10);
    Occupy("first");
    EXPECT_TRUE(Submit("a"));
    EXPECT_TRUE(Submit("b"));
    std::this_thread::sleep_for(milliseconds(20)); // would be long enough to begin another
    EXPECT_EQ(begun_, 1);
    open_.set_value();
    EXPECT_EQ(RanAfter(3), "first, a, b, ");
}

TEST_F(HashPools, RunAsManyAtOnceAsTheirLimit)
{
    Make(2, 10);
    Occupy("a");
    Occupy("b");
    EXPECT_TRUE(Submit("c"));
    EXPECT_EQ(pool_->Waiting(), 1u);
    EXPECT_EQ(begun_, 2);
    pool_->SetLimits({3, 10, std::chrono::minutes(5)});
    EXPECT_TRUE(Submit("d")); // a thread more
    while (begun_ < 3)
        std::this_thread::yield();
    EXPECT_EQ(pool_->Waiting(), 1u);
    open_.set_value();
    (void)RanAfter(4);
}

TEST_F(HashPools, TellWhatWaitsWhenTheyEnd)
{
    Make(1, 10);
    Occupy("first");
    EXPECT_TRUE(Submit("a"));
    std::thread end([&] { pool_.reset(); });
    open_.set_value();
    end.join();
    EXPECT_EQ(count_, 2);
}

} // namespace
} // namespace kestd
