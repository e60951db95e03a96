// SPDX-License-Identifier: Apache-2.0
//
// A sign-in for which there is no memory at one point leaves nothing behind, and the next one
// works.
#include <exception>
#include <memory>

#include <gtest/gtest.h>

#include "host/auth/authenticator.h"
#include "tests/contract/truth/failing_memory.h"

namespace kestd {
namespace {

constexpr int kMostAllocations = 1000; // of one sign-in
constexpr char kAnna[] = "Basic YW5uYTpzZWNyZXQ=";
constexpr char kWrong[] = "Basic YW5uYTp3cm9uZw==";

class SignInMemory : public testing::TestWithParam<const char*> {
  protected:
    std::unique_ptr<Authenticator> Make()
    {
        AuthLimits limits;
        limits.guessDelay = std::chrono::seconds(0);
        auto made = std::make_unique<Authenticator>(
            limits, clock_,
            [](std::string_view password, const std::string& hash) { return password == hash; });
        UserMap users;
        users["anna"] = std::make_shared<const User>(User{"anna", "secret", {}, {}, {}});
        made->SetUsers(std::move(users));
        return made;
    }
    static Authenticator::Result Check(Authenticator& auth, const char* header)
    {
        std::shared_ptr<Verified> who;
        std::chrono::seconds wait{0};
        return auth.Check(header, "192.0.2.1", who, wait);
    }

    const SteadyClock clock_;
};

TEST_P(SignInMemory, WhereAnAllocationFails_NoCountIsLeftBehind)
{
    EXPECT_NE(Check(*Make(), GetParam()), Authenticator::Result::Busy);
    int failed = 0;
    for (int number = 1; number <= kMostAllocations; ++number) {
        const auto auth = Make();
        failing_memory::FailAt(number);
        try {
            (void)Check(*auth, GetParam());
        } catch (const std::exception&) { // the caller answers 503
        }
        const bool hasFailed = failing_memory::HasFailed();
        failing_memory::FailAt(0);
        EXPECT_EQ(auth->PendingCounts(), 0u) << "allocation " << number;
        EXPECT_EQ(Check(*auth, kAnna), Authenticator::Result::Granted) << "allocation " << number;
        if (!hasFailed)
            break;
        ++failed;
    }
    EXPECT_GT(failed, 10);
    EXPECT_LT(failed, kMostAllocations);
}

INSTANTIATE_TEST_SUITE_P(RightAndWrong, SignInMemory, testing::Values(kAnna, kWrong));

} // namespace
} // namespace kestd
