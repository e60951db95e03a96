// SPDX-License-Identifier: Apache-2.0
#include "host/services/authenticator.h"

#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/services/passwords.h"
#include "tests/unit/host-services/fixtures.h"

namespace kestd {
namespace {

using Result = Authenticator::Result;

const char kAnna[] = "Basic YW5uYTpzZWNyZXQ=";       // anna:secret
const char kAnnaWrong[] = "Basic YW5uYTp3cm9uZw==";  // anna:wrong
const char kNobody[] = "Basic bm9ib2R5OnNlY3JldA=="; // nobody:secret

UserMap Users(const std::string& hash = "secret")
{
    UserMap users;
    users["anna"] = std::make_shared<const User>(User{"anna", hash, "CN=anna.O=org", "T", "a@b.c"});
    return users;
}

// A password fits the hash that is equal to it; every check is counted.
class Authentication : public testing::Test {
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
    Result Check(std::string_view header)
    {
        std::shared_ptr<Verified> who;
        const Result result = auth_->Check(header, who);
        EXPECT_EQ(result == Result::Granted, who != nullptr);
        return result;
    }

    ManualClock clock_;
    std::atomic<int> hashes_{0};
    std::atomic<int> running_{0};
    std::atomic<int> most_{0};
    std::shared_future<void> gate_; // hashes end when it opens
    std::unique_ptr<Authenticator> auth_;
};

TEST_F(Authentication, RightPassword_IsHashedOnce)
{
    std::shared_ptr<Verified> who;
    EXPECT_EQ(auth_->Check(kAnna, who), Result::Granted);
    EXPECT_EQ(who->principal->name, "anna");
    EXPECT_EQ(who->principal->dottedName, "CN=anna.O=org");
    EXPECT_EQ(who->principal->mail, "a@b.c");
    EXPECT_EQ(who->principal->key.find("secret"), std::string::npos);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 1);
}

TEST_F(Authentication, WrongPasswordAndUnknownName_CostOneHashEach)
{
    EXPECT_EQ(Check(kAnnaWrong), Result::Denied);
    EXPECT_EQ(Check(kAnnaWrong), Result::Denied);
    EXPECT_EQ(hashes_, 2);
    EXPECT_EQ(Check(kNobody), Result::Denied);
    EXPECT_EQ(hashes_, 3);
}

TEST_F(Authentication, WhatIsNoBasicHeader_CostsNothing)
{
    for (const std::string header :
         {"", "Basic", "Basic ", "Bearer abc", "Basic !!!!", "Basic YW5uYQ==" /* no colon */,
          "Basic OnNlY3JldA==" /* no name */, "Digest username=\"anna\"", "BasicYW5uYTpzZWNyZXQ="})
        EXPECT_EQ(Check(header), Result::Denied) << header;
    EXPECT_EQ(Check("Basic " + std::string(8192, 'A')), Result::Denied);
    EXPECT_EQ(hashes_, 0);
}

TEST(BasicHeader, DomainIsCutOffAndThePasswordKeepsItsColons)
{
    std::string name;
    std::string password;
    EXPECT_TRUE(ReadBasic("bAsIc RE9NQUlOXGFubmE6YTpiOg==", name, password)); // DOMAIN\anna:a:b:
    EXPECT_EQ(name, "anna");
    EXPECT_EQ(password, "a:b:");
    EXPECT_TRUE(ReadBasic("Basic asO8cmc6w7w=", name, password)); // UTF-8
    EXPECT_EQ(name, "j\u00fcrg");
    EXPECT_FALSE(ReadBasic("Basic /zph", name, password));         // no UTF-8
    EXPECT_FALSE(ReadBasic("Basic YQBiOmM=", name, password));     // a NUL
    EXPECT_FALSE(ReadBasic("Basic RE9NQUlOXDph", name, password)); // a domain alone
}

TEST_F(Authentication, CachedCredentials_Expire)
{
    EXPECT_EQ(Check(kAnna), Result::Granted);
    clock_.Advance(std::chrono::seconds(599));
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 1);
    clock_.Advance(std::chrono::seconds(1));
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 2);
}

TEST_F(Authentication, ChangedOrRemovedUser_LosesHisCredentialsAtOnce)
{
    std::shared_ptr<Verified> who;
    ASSERT_EQ(auth_->Check(kAnna, who), Result::Granted);
    EXPECT_TRUE(auth_->IsCurrent(*who->principal));
    auth_->SetUsers(Users()); // nothing has changed
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 1);
    auth_->SetUsers(Users("other"));
    EXPECT_FALSE(auth_->IsCurrent(*who->principal));
    EXPECT_EQ(Check(kAnna), Result::Denied);
    auth_->SetUsers({});
    EXPECT_EQ(Check(kAnna), Result::Denied);
    EXPECT_FALSE(auth_->HasUsers());
}

TEST_F(Authentication, UserChangedDuringTheHash_IsDenied)
{
    std::promise<void> open;
    gate_ = open.get_future().share();
    std::thread client([&] { EXPECT_EQ(Check(kAnna), Result::Denied); });
    while (hashes_ == 0)
        std::this_thread::yield();
    auth_->SetUsers(Users("other"));
    open.set_value();
    client.join();
}

TEST_F(Authentication, CacheIsBounded)
{
    AuthLimits limits;
    limits.cacheEntries = 2;
    Make(limits);
    UserMap users = Users();
    users["b"] = std::make_shared<const User>(User{"b", "secret", {}, {}, {}});
    users["c"] = std::make_shared<const User>(User{"c", "secret", {}, {}, {}});
    auth_->SetUsers(users);
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(Check("Basic YjpzZWNyZXQ="), Result::Granted); // b
    EXPECT_EQ(Check(kAnna), Result::Granted);                // used: b is the oldest now
    EXPECT_EQ(Check("Basic YzpzZWNyZXQ="), Result::Granted); // c
    EXPECT_EQ(hashes_, 3);
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 3);
    EXPECT_EQ(Check("Basic YjpzZWNyZXQ="), Result::Granted);
    EXPECT_EQ(hashes_, 4);
}

TEST_F(Authentication, ManyWithTheSameCredentials_ShareOneHash)
{
    std::promise<void> open;
    gate_ = open.get_future().share();
    std::vector<std::future<Result>> clients;
    for (int i = 0; i < 8; ++i)
        clients.push_back(std::async(std::launch::async, [&] { return Check(kAnna); }));
    while (hashes_ == 0)
        std::this_thread::yield();
    open.set_value();
    for (auto& client : clients)
        EXPECT_EQ(client.get(), Result::Granted);
    EXPECT_EQ(hashes_, 1);
}

TEST_F(Authentication, FloodOfPasswords_HashesFewAtOnceAndTurnsTheRestAway)
{
    AuthLimits limits;
    limits.hashesAtOnce = 2;
    limits.waiters = 3;
    limits.longestWait = std::chrono::minutes(5);
    Make(limits);
    std::promise<void> open;
    gate_ = open.get_future().share();
    constexpr const char* kHeaders[] = {"Basic YTox", "Basic YToy", "Basic YToz", "Basic YTo0",
                                        "Basic YTo1", "Basic YTo2", "Basic YTo3", "Basic YTo4",
                                        "Basic YTo5", "Basic YTow"};
    std::vector<std::future<Result>> clients;
    std::atomic<int> busy{0};
    for (const char* const header : kHeaders)
        clients.push_back(std::async(std::launch::async, [&, header] {
            const Result result = Check(header);
            busy += result == Result::Busy;
            return result;
        }));
    while (busy < 5 || hashes_ < 2) // two hash, three wait
        std::this_thread::yield();
    EXPECT_EQ(hashes_, 2);
    open.set_value();
    int denied = 0;
    for (auto& client : clients)
        denied += client.get() == Result::Denied;
    EXPECT_EQ(denied, 5);
    EXPECT_EQ(busy, 5);
    EXPECT_LE(most_, 2);
    EXPECT_EQ(Check(kAnna), Result::Granted); // all is as before
}

TEST_F(Authentication, WhoIsSignedIn_IsServedDuringAFlood)
{
    EXPECT_EQ(Check(kAnna), Result::Granted);
    std::promise<void> open;
    gate_ = open.get_future().share();
    std::thread flood([&] { EXPECT_EQ(Check(kAnnaWrong), Result::Denied); });
    while (hashes_ < 2)
        std::this_thread::yield();
    EXPECT_EQ(Check(kAnna), Result::Granted); // while the other hash runs
    open.set_value();
    flood.join();
}

TEST(Passwords, HashFitsItsPasswordOnly)
{
    const std::string hash = HashPassword("p\u00e4ss", 1);
    EXPECT_TRUE(hash.starts_with("$y$"));
    EXPECT_TRUE(IsUsableHash(hash));
    EXPECT_TRUE(IsPassword("p\u00e4ss", hash));
    EXPECT_FALSE(IsPassword("p\u00e4s", hash));
    EXPECT_FALSE(IsPassword("", hash));
    EXPECT_NE(HashPassword("p\u00e4ss", 1), hash); // salted
}

TEST(Passwords, UnusableInput_IsRefused)
{
    EXPECT_EQ(HashPassword(std::string(kLongestPassword + 1, 'a'), 1), "");
    EXPECT_EQ(HashPassword(std::string("a\0b", 3), 1), "");
    EXPECT_NE(HashPassword(std::string(kLongestPassword, 'a'), 1), "");
    EXPECT_FALSE(IsPassword(std::string(kLongestPassword + 1, 'a'), "x"));
    for (const char* hash : {"", "*", "!", "x", "plain text", "$y$", "$nope$abc"})
        EXPECT_FALSE(IsPassword("a", hash)) << hash;
    for (const char* hash : {"", "*", "!", "$nope$abc", "*0"})
        EXPECT_FALSE(IsUsableHash(hash)) << hash;
    EXPECT_FALSE(IsPassword("", DecoyHash()));
}

} // namespace
} // namespace kestd
