// SPDX-License-Identifier: Apache-2.0
//
// An authenticator whose hashes are scripted and counted.
#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "host/auth/authenticator.h"
#include "tests/unit/host/fixtures.h"

namespace kestd {

using Result = Authenticator::Result;

inline const char kAnna[] = "Basic YW5uYTpzZWNyZXQ=";       // anna:secret
inline const char kAnnaWrong[] = "Basic YW5uYTp3cm9uZw==";  // anna:wrong
inline const char kNobody[] = "Basic bm9ib2R5OnNlY3JldA=="; // nobody:secret

inline UserMap Users(const std::string& hash = "secret")
{
    UserMap users;
    users["anna"] = std::make_shared<const User>(User{"anna", hash, "CN=anna.O=org", "T", "a@b.c"});
    return users;
}

// A password fits the hash that is equal to it; every check is counted.
class SignIns : public testing::Test {
  protected:
    void Make(AuthLimits limits = {})
    {
        auth_ = std::make_unique<Authenticator>(
            limits, clock_, [this](std::string_view password, const std::string& hash) {
                const int now = ++running_;
                int most = most_;
                while (now > most && !most_.compare_exchange_weak(most, now)) {
                }
                ++hashes_;
                if (gate_.valid())
                    gate_.wait();
                --running_;
                return password == hash;
            });
        auth_->SetUsers(Users());
    }
    void SetUp() override { Make(); }
    Result Check(std::string_view header, std::string_view remote = {})
    {
        std::shared_ptr<Verified> who;
        std::chrono::seconds wait{0};
        const Result result = auth_->Check(header, remote, who, wait);
        EXPECT_EQ(result == Result::Granted, who != nullptr);
        if (result == Result::Throttled)
            wait_ = wait;
        return result;
    }
    // Guesses wrong until guesses have to wait, and returns how many that took.
    int GuessUntilThrottled(const char* header, std::string_view remote)
    {
        int guesses = 0;
        while (Check(header, remote) == Result::Denied && guesses < 1000)
            ++guesses;
        return guesses;
    }

    ManualClock clock_;
    std::chrono::seconds wait_{0}; // of the last throttled check
    std::atomic<int> hashes_{0};
    std::atomic<int> running_{0};
    std::atomic<int> most_{0};
    std::shared_future<void> gate_; // hashes end when it opens
    std::unique_ptr<Authenticator> auth_;
};

inline std::string BasicOf(const std::string& name)
{
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text = name + ":x";
    while (text.size() % 3)
        text += 'x';
    std::string out = "Basic ";
    for (size_t i = 0; i < text.size(); i += 3) {
        const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
        const unsigned bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (const int shift : {18, 12, 6, 0})
            out += kDigits[bits >> shift & 63];
    }
    return out;
}

} // namespace kestd
