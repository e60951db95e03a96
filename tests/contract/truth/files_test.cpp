// SPDX-License-Identifier: Apache-2.0
//
// The file system fails at every call of every request in turn: what the client is told is the
// truth, an error of the server, or visibly cut, and nothing is lost or left open.
#include <cerrno>

#include "tests/contract/truth/requests.h"

namespace truth_test {

namespace {

class FailingFiles : public testing::TestWithParam<size_t> {};

// One request with one failing call. False when there are fewer calls than that.
bool FailOne(const Case& each, int call, int error, const std::string& truth, Tally& tally)
{
    World& world = World::Get();
    if (each.changes)
        world.Renew();
    const std::string request = each.request();
    filestore::FailingFileSystem& files = world.Files();
    const int open = files.open;
    files.error = error;
    files.hasFailed = false;
    files.failAt = call;
    const kestd::test::Answer answer = world.Ask(request, each.isHead);
    files.failAt = 0;
    SCOPED_TRACE(each.name + ", call " + std::to_string(call) + ", error " + std::to_string(error));
    CheckTrue(each, answer, truth, tally);
    EXPECT_TRUE(world.HasClosedAllBut(open)) << files.open << " of " << open;
    return files.hasFailed;
}

TEST_P(FailingFiles, NeverMakeTheReplyALie)
{
    const Case& each = Cases()[GetParam()];
    const std::string truth = TruthOf(each);
    Tally tally;
    for (const int error : {EIO, EMFILE}) {
        if (error != EIO && each.changes)
            continue; // these are told apart where something is looked for
        int call = 1;
        while (FailOne(each, call, error, truth, tally))
            ASSERT_LT(++call, 500);
    }
    tally.Print(each.name);
}

INSTANTIATE_TEST_SUITE_P(Every, FailingFiles, testing::Range(size_t{0}, Cases().size()));

} // namespace

} // namespace truth_test
