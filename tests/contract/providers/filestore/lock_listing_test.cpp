// SPDX-License-Identifier: Apache-2.0
//
// What a list of all locks costs, counted in the database's own steps.
#include "tests/contract/providers/filestore/locks.h"

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include <sqlite3.h>

namespace filestore_test {

namespace {

std::atomic<UINT64> g_steps{0}; // instructions of statements, in this whole process

int OnStep(void*)
{
    ++g_steps;
    return 0;
}

int CountSteps(sqlite3* db, const char**, const sqlite3_api_routines*)
{
    sqlite3_progress_handler(db, 1, OnStep, nullptr);
    return SQLITE_OK;
}

// The store's connections are opened by whichever test comes first.
const int g_registered = sqlite3_auto_extension(reinterpret_cast<void (*)()>(CountSteps));

class FileStoreLockListing : public FileStoreLocks {
  protected:
    void TearDown() override
    {
        for (size_t i = 0; i < tokens_.size(); ++i)
            EXPECT_EQ(0u, Unlock("/docs/l" + std::to_string(i), tokens_[i]));
        FileStoreLocks::TearDown();
    }
    void LockUpTo(size_t count)
    {
        while (tokens_.size() < count)
            tokens_.push_back(MustLock("/docs/l" + std::to_string(tokens_.size())));
    }
    // How many locks are listed, and how many steps that takes.
    std::pair<size_t, UINT64> List()
    {
        alignas(DAV_LOCK_INFO) char buffer[1024];
        DAV_LOCK_PLACE place{};
        size_t found = 0;
        const UINT64 before = g_steps;
        for (UINT32 size = sizeof buffer; !Failed(Namespace()->IoctlRequest(
                 session_, kIoctlListLocks, sizeof place, &place, &size, buffer));
             size = sizeof buffer)
            ++found;
        return {found, g_steps - before};
    }

  private:
    std::vector<std::string> tokens_;
};

TEST_F(FileStoreLockListing, TakesFourTimesAsMuchForFourTimesAsManyLocks)
{
    constexpr size_t kFew = 60;
    ASSERT_EQ(SQLITE_OK, g_registered);
    LockUpTo(kFew);
    const auto [few, fewSteps] = List();
    LockUpTo(4 * kFew);
    const auto [many, manySteps] = List();
    EXPECT_EQ(kFew, few);
    EXPECT_EQ(4 * kFew, many);
    EXPECT_GT(fewSteps, kFew) << "nothing was counted";
    EXPECT_LT(manySteps, 5 * fewSteps) << "sixteen times would be quadratic";
}

} // namespace

} // namespace filestore_test
