// SPDX-License-Identifier: Apache-2.0
//
// Memory is short at every allocation of every request in turn, for whoever asks: host, module,
// platform layer, store, database. The reply is true, an error of the server or visibly cut, and
// the server goes on.
#include <cstdlib>

#include "tests/contract/truth/failing_memory.h"
#include "tests/contract/truth/requests.h"

namespace truth_test {

namespace {

class FailingMemory : public testing::TestWithParam<size_t> {};

TEST_P(FailingMemory, NeverMakesTheReplyALie)
{
    failing_memory::ExemptThisThread();
    const Case& each = Cases()[GetParam()];
    World& world = World::Get();
    const std::string truth = TruthOf(each);
    const int open = world.Files().open;
    Tally tally;
    // A volume is made anew for each failure of a change, which takes its time: not all of them
    // unless the long form is asked for, but for what the client is told before the reply.
    const bool isPart = each.changes && !each.isAnnounced && !std::getenv("KEST_FULL_TESTS");
    const int step = isPart ? 9 : 1;
    int allocation = 1 - step;
    for (bool hasFailed = true; hasFailed;) {
        ASSERT_LT(allocation += step, 2000);
        if (each.changes)
            world.Renew();
        const std::string request = each.request();
        failing_memory::FailAt(allocation);
        const kestd::test::Answer answer = world.Ask(request, each.isHead);
        hasFailed = failing_memory::HasFailed();
        failing_memory::FailAt(0);
        SCOPED_TRACE(each.name + ", allocation " + std::to_string(allocation));
        CheckTrue(each, answer, truth, tally);
    }
    EXPECT_TRUE(each.changes || world.HasClosedAllBut(open));
    if (each.changes)
        world.Renew();
    EXPECT_EQ(truth, Essence(world.Ask(each.request(), each.isHead))); // it goes on
    tally.Print(each.name);
}

INSTANTIATE_TEST_SUITE_P(Every, FailingMemory, testing::Range(size_t{0}, Cases().size()));

} // namespace

} // namespace truth_test
