// SPDX-License-Identifier: Apache-2.0
//
// Each change of the third generation has happened or has not, whichever call of the file system or
// the metadata fails, and wherever memory runs out.
#include <algorithm>
#include <iterator>
#include <vector>

#include "tests/contract/providers/filestore/faults.h"
#include "tests/contract/truth/failing_memory.h"
#include "tests/unit/providers/filestore/third_generation.h"

using namespace faults;
using filestore::Client;
using namespace filestore::third;

namespace {

void Fill(Client& client)
{
    ASSERT_EQ(0u, client.Put("/one/file", "content of the file"));
    ASSERT_EQ(0u, client.SetProperty("/one/file", "color", "red"));
    ASSERT_EQ(0u, client.Put("/one/old", "of before"));
    ASSERT_EQ(0u, client.MkCol("/one/tree"));
    ASSERT_EQ(0u, client.Put("/one/tree/a", "first"));
    ASSERT_EQ(0u, client.SetProperty("/one/tree/a", "color", "blue"));
    ASSERT_EQ(0u, client.MkCol("/two/folder"));
    ASSERT_EQ(0u, client.Put("/two/folder/member", "of before"));
    ASSERT_EQ(0u, BeginAndCancel(client.GetStore(), "/one/upload")); // the directory stays
}

using Work = TALSTATUS (*)(filestore::Store&);

struct Row {
    const char* name;
    Work work;
    bool goesForGood = false; // on a full disk: nothing is kept where it cannot be written down
    bool isOneStep = true;    // else it is several changes, each whole or not done
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

const Row kRows[] = {
    {"PublishNew", [](auto& s) { return StoreContent(s, "/one/new", kOpenReplace); }},
    {"PublishOver", [](auto& s) { return StoreContent(s, "/one/file", kOpenReplace); }},
    {"PublishRange", [](auto& s) { return StoreContent(s, "/one/file", kOpenModify); }},
    {"UploadInPartsNew", [](auto& s) { return StoreInParts(s, "/one/new"); }, false, false},
    {"UploadInPartsOver", [](auto& s) { return StoreInParts(s, "/one/file"); }, false, false},
    {"MakeCollection", [](auto& s) { return MakeFolder(s, "/one/new"); }},
    {"Delete", [](auto& s) { return DeleteObject(s, "/one/tree"); }, true},
    {"CopyTree", [](auto& s) { return Relocate(s, false, "/one/tree", "/one/new"); }},
    {"CopyFileOver", [](auto& s) { return Relocate(s, false, "/one/file", "/one/old"); }},
    {"CopyTreeOverFolderAcross",
     [](auto& s) { return Relocate(s, false, "/one/tree", "/two/folder"); }},
    {"MoveTreeOverFile", [](auto& s) { return Relocate(s, true, "/one/tree", "/one/old"); }},
    {"MoveTreeOverFolderAcross",
     [](auto& s) { return Relocate(s, true, "/one/tree", "/two/folder"); }, false, false},
    {"PatchProperties", [](auto& s) { return PatchObject(s, "/one/file"); }},
    {"LockNew", [](auto& s) { return TakeLock(s, "/one/new"); }},
    {"LockTree", [](auto& s) { return TakeLock(s, "/one/tree"); }},
};

class ThirdGeneration : public testing::TestWithParam<Row> {
  protected:
    static Outcome Do(Installation& place) { return place.Run(GetParam().work); }
};

TEST_P(ThirdGeneration, IsWholeOrNotDoneWhateverFails)
{
    FailEveryCall({.keepDays = 0, .fill = Fill}, Task(Do));
}

TEST_P(ThirdGeneration, IsWholeOrNotDoneOnADiskThatFillsUp)
{
    FailEveryCall({.keepDays = GetParam().goesForGood ? 0u : 30u,
                   .sync = filestore::SyncLevel::Full,
                   .fill = Fill},
                  Task(Do), {.errors = {ENOSPC}});
}

TEST_P(ThirdGeneration, IsWholeOrNotDoneOnADiskThatStaysFull)
{
    FailEveryCall(
        {.keepDays = GetParam().goesForGood ? 0u : 30u, .fill = Fill}, Task(Do),
        {.errors = {ENOSPC}, .isFullAfter = true, .mayLeaveRows = GetParam().goesForGood});
}

TEST_P(ThirdGeneration, IsWholeOrNotDoneWhereMemoryRunsOut)
{
    FailEach({.keepDays = 0, .fill = Fill, .isPlain = true}, Task(Do), failing_memory::FailAt,
             failing_memory::HasFailed);
}

INSTANTIATE_TEST_SUITE_P(Of, ThirdGeneration, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

// Where memory stays out nothing that has happened can be taken back: what is the last to happen
// has to be what makes it count.
class WithoutMemory : public ThirdGeneration {};

TEST_P(WithoutMemory, IsWholeOrNotDone)
{
    FailEach({.keepDays = 0, .fill = Fill, .isPlain = true}, Task(Do), failing_memory::FailFrom,
             failing_memory::HasFailed);
}

std::vector<Row> OneStepRows()
{
    std::vector<Row> rows;
    std::copy_if(std::begin(kRows), std::end(kRows), std::back_inserter(rows),
                 [](const Row& row) { return row.isOneStep; });
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Of, WithoutMemory, testing::ValuesIn(OneStepRows()),
                         [](const auto& each) { return std::string(each.param.name); });

// What takes several changes may have come to any of them; the store goes on all the same.
class LongWantOfMemory : public ThirdGeneration {};

std::vector<Row> LongRows()
{
    std::vector<Row> rows;
    std::copy_if(std::begin(kRows), std::end(kRows), std::back_inserter(rows),
                 [](const Row& row) { return !row.isOneStep; });
    return rows;
}

TEST_P(LongWantOfMemory, EndsNeitherProcessNorStore)
{
    bool isOver = false;
    for (int failAt = 1; !isOver && !HasFailure(); ++failAt) {
        SCOPED_TRACE("failures from " + std::to_string(failAt));
        Installation place({.fill = Fill, .isPlain = true});
        const int handles = place.OpenHandles();
        failing_memory::FailFrom(failAt);
        (void)Do(place);
        isOver = !failing_memory::HasFailed();
        failing_memory::FailAt(0);
        EXPECT_EQ(place.OpenHandles(), handles);
        EXPECT_EQ(0u, StoreInParts(place.Store(), "/one/another"));
    }
}

INSTANTIATE_TEST_SUITE_P(Of, LongWantOfMemory, testing::ValuesIn(LongRows()),
                         [](const auto& each) { return std::string(each.param.name); });

// Nobody could give up a lock whose token was told to nobody.
TEST(LockWithoutMemory, DoesNotStandBehindAFailure)
{
    const auto lock = [](filestore::Store& store) {
        return TakeLock(store, "/one/a name of more than 22 bytes"); // shorter ones take none
    };
    bool isOver = false;
    for (int failAt = 1; !isOver && !testing::Test::HasFailure(); ++failAt) {
        SCOPED_TRACE("failure " + std::to_string(failAt));
        Installation place({.keepDays = 0, .fill = Fill, .isPlain = true});
        failing_memory::FailFrom(failAt);
        const Outcome outcome = place.Run(lock);
        isOver = !failing_memory::HasFailed();
        failing_memory::FailAt(0);
        place.Restart();
        const bool isLocked = place.Snapshot().find(" locked") != std::string::npos;
        EXPECT_EQ(outcome.IsSuccess(), isLocked);
    }
}

} // namespace
