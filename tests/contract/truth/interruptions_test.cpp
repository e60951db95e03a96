// SPDX-License-Identifier: Apache-2.0
//
// A signal interrupts every system call on files of every request in turn, once each: nothing
// changes.
#include <cerrno>

#include "tests/contract/truth/requests.h"
#include "tests/unit/providers/filestore/system_calls.h"

namespace truth_test {

namespace {

class Interruptions : public testing::TestWithParam<size_t> {};

TEST_P(Interruptions, ChangeNothing)
{
    system_calls::ExemptThisThread();
    const Case& each = Cases()[GetParam()];
    World& world = World::Get();
    const std::string truth = TruthOf(each);
    int calls = 0;
    for (bool hasFailed = true; hasFailed;) {
        ASSERT_LT(++calls, 500);
        if (each.changes)
            world.Renew();
        const std::string request = each.request();
        system_calls::FailAt(calls, EINTR);
        const kestd::test::Answer answer = world.Ask(request, each.isHead);
        hasFailed = system_calls::HasFailed();
        system_calls::FailAt(0, 0);
        SCOPED_TRACE(each.name + ", call " + std::to_string(calls));
        EXPECT_EQ(truth, Essence(answer));
        EXPECT_EQ("", each.check(answer.status < 300));
    }
    std::printf("[ counted  ] %s: %d interruptions\n", each.name.c_str(), calls - 1);
}

INSTANTIATE_TEST_SUITE_P(Every, Interruptions, testing::Range(size_t{0}, Cases().size()));

} // namespace

} // namespace truth_test
