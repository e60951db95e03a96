// SPDX-License-Identifier: Apache-2.0
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/auth/basic_credentials.h"
#include "host/auth/passwords.h"
#include "tests/unit/host/auth/sign_ins.h"

namespace kestd {
namespace {

TEST_F(SignIns, RightPassword_IsHashedOnce)
{
    std::shared_ptr<Verified> who;
    std::chrono::seconds wait{0};
    EXPECT_EQ(auth_->Check(kAnna, {}, who, wait), Result::Granted);
    EXPECT_EQ(who->principal->name, "anna");
    EXPECT_EQ(who->principal->dottedName, "CN=anna.O=org");
    EXPECT_EQ(who->principal->mail, "a@b.c");
    EXPECT_EQ(who->principal->key.find("secret"), std::string::npos);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 1);
}

TEST_F(SignIns, WrongPasswordAndUnknownName_CostOneHashEach)
{
    EXPECT_EQ(Check(kAnnaWrong), Result::Denied);
    EXPECT_EQ(Check(kAnnaWrong), Result::Denied);
    EXPECT_EQ(hashes_, 2);
    EXPECT_EQ(Check(kNobody), Result::Denied);
    EXPECT_EQ(hashes_, 3);
}

TEST_F(SignIns, WhatIsNoBasicHeader_CostsNothing)
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

TEST_F(SignIns, CachedCredentials_StayWhileTheyAreUsed)
{
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Check(kAnna), Result::Granted);
        clock_.Advance(std::chrono::seconds(599));
    }
    EXPECT_EQ(hashes_, 1);
    clock_.Advance(std::chrono::seconds(1));
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 2);
}

TEST_F(SignIns, WrongGuesses_WaitLongerAndLongerWithoutAHash)
{
    EXPECT_EQ(GuessUntilThrottled(kAnnaWrong, {}), 6); // five are free, the sixth sets the delay
    for (const int delay : {1, 2, 4, 8, 16, 32, 60, 60, 60}) {
        const int before = hashes_;
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(Check(kAnnaWrong), Result::Throttled);
        EXPECT_EQ(Check(kAnna), Result::Throttled) << "the right one says nothing either";
        EXPECT_EQ(hashes_, before);
        EXPECT_EQ(wait_.count(), delay);
        clock_.Advance(wait_);
        EXPECT_EQ(Check(kAnnaWrong), Result::Denied) << delay;
        EXPECT_EQ(hashes_, before + 1);
    }
    clock_.Advance(std::chrono::hours(1)); // forgotten
    EXPECT_EQ(GuessUntilThrottled(kAnnaWrong, {}), 6);
}

TEST_F(SignIns, UnknownNames_AreThrottledAlike)
{
    EXPECT_EQ(GuessUntilThrottled(kNobody, {}), 6);
}

TEST_F(SignIns, RememberedCredentials_AreNeverThrottled)
{
    EXPECT_EQ(Check(kAnna, "192.0.2.1"), Result::Granted);
    (void)GuessUntilThrottled(kAnnaWrong, "192.0.2.1");
    (void)GuessUntilThrottled(kAnnaWrong, "192.0.2.2");
    EXPECT_EQ(Check(kAnna, "192.0.2.1"), Result::Granted);
    EXPECT_EQ(Check(kAnna, "192.0.2.3"), Result::Granted);
}

TEST_F(SignIns, StrangersWhoGuessAtAName_DoNotKeepItsOwnerOut)
{
    EXPECT_EQ(Check(kAnna, "192.0.2.1"), Result::Granted);
    clock_.Advance(std::chrono::seconds(600)); // to be hashed again
    (void)GuessUntilThrottled(kAnnaWrong, "198.51.100.7");
    EXPECT_EQ(Check(kAnna, "198.51.100.8"), Result::Throttled);
    EXPECT_EQ(Check(kAnna, "192.0.2.1"), Result::Granted);
    // But they are throttled there, too.
    clock_.Advance(std::chrono::hours(2));
    EXPECT_EQ(GuessUntilThrottled(kAnnaWrong, "192.0.2.1"), 6);
}

TEST_F(SignIns, ManyNamesFromOneAddress_AreThrottledToo)
{
    const auto tries = [this](const std::string& prefix, const std::string& remote) {
        int i = 0;
        while (i < 100 && Check(BasicOf(prefix + std::to_string(i)), remote) == Result::Denied)
            ++i;
        return i;
    };
    EXPECT_EQ(tries("a", "192.0.2.1"), 21);
    EXPECT_EQ(tries("b", "192.0.2.2"), 21);
    EXPECT_EQ(tries("c", "2001:db8:1:2::1"), 21);
    EXPECT_EQ(tries("d", "2001:db8:1:2:3:4:5:6"), 0) << "the same network";
    EXPECT_EQ(tries("e", "2001:db8:1:3::1"), 21);
    EXPECT_EQ(tries("f", "127.0.0.1"), 100) << "it stands for everybody behind a proxy";
    EXPECT_EQ(tries("g", "::1"), 100);
    EXPECT_EQ(Check(kAnna, "192.0.2.9"), Result::Granted);
}

TEST_F(SignIns, GuessesAtOneName_TakeFewPlaces)
{
    AuthLimits limits;
    limits.hashesAtOnce = 1;
    limits.longestWait = std::chrono::minutes(5);
    Make(limits);
    std::promise<void> open;
    gate_ = open.get_future().share();
    std::atomic<int> throttled{0};
    std::vector<std::future<Result>> guesses;
    for (int i = 0; i < 8; ++i)
        guesses.push_back(std::async(std::launch::async, [&, i] {
            std::shared_ptr<Verified> who;
            std::chrono::seconds wait{0};
            const Result result = auth_->Check(BasicOf("anna:" + std::to_string(i)), {}, who, wait);
            if (result == Result::Throttled && wait == std::chrono::seconds(1))
                ++throttled;
            return result;
        }));
    while (throttled < 6) // one hashes, one waits, the others are told at once
        std::this_thread::yield();
    open.set_value();
    int denied = 0;
    for (auto& guess : guesses)
        denied += guess.get() == Result::Denied;
    EXPECT_EQ(denied, 2);
    EXPECT_EQ(throttled, 6);
}

TEST_F(SignIns, CountsAreBounded)
{
    BoundedTable<int> table(3);
    for (unsigned char i = 0; i < 10; ++i)
        table.Touch(Digest{i}) = i;
    EXPECT_EQ(table.Size(), 3u);
    EXPECT_EQ(table.Find(Digest{6}), nullptr);
    EXPECT_EQ(*table.Find(Digest{7}), 7);
    table.Touch(Digest{7});
    table.Touch(Digest{20});
    EXPECT_NE(table.Find(Digest{7}), nullptr);
    EXPECT_EQ(table.Find(Digest{8}), nullptr);
}

TEST_F(SignIns, ChangedOrRemovedUser_LosesHisCredentialsAtOnce)
{
    std::shared_ptr<Verified> who;
    std::chrono::seconds wait{0};
    ASSERT_EQ(auth_->Check(kAnna, {}, who, wait), Result::Granted);
    EXPECT_TRUE(auth_->IsCurrent(*who->principal));
    auth_->SetUsers(Users()); // nothing has changed
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(hashes_, 1);
    auth_->SetUsers(Users("other"));
    EXPECT_FALSE(auth_->IsCurrent(*who->principal));
    EXPECT_EQ(Check(kAnna), Result::Denied);
    auth_->SetUsers({});
    EXPECT_EQ(Check(kAnna), Result::Denied);
}

TEST_F(SignIns, UserChangedDuringTheHash_IsDenied)
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

TEST_F(SignIns, CacheIsBounded)
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

TEST_F(SignIns, ManyWithTheSameCredentials_ShareOneHash)
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

TEST_F(SignIns, FloodOfPasswords_HashesFewAtOnceAndTurnsTheRestAway)
{
    AuthLimits limits;
    limits.hashesAtOnce = 2;
    limits.waiters = 3;
    limits.longestWait = std::chrono::minutes(5);
    limits.guessDelay = std::chrono::seconds(0);
    Make(limits);
    UserMap users = Users();
    users["a"] = std::make_shared<const User>(User{"a", "hash", {}, {}, {}});
    auth_->SetUsers(users);
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

TEST_F(SignIns, FloodOfMadeUpNames_LeavesPlacesToUsers)
{
    AuthLimits limits;
    limits.hashesAtOnce = 1;
    limits.waiters = 8;
    limits.longestWait = std::chrono::minutes(5);
    Make(limits);
    std::promise<void> open;
    gate_ = open.get_future().share();
    std::vector<std::future<Result>> clients;
    std::atomic<int> busy{0};
    for (int i = 0; i < 40; ++i)
        clients.push_back(std::async(std::launch::async, [&, i] {
            const Result result = Check(BasicOf("nobody" + std::to_string(i)), "127.0.0.1");
            busy += result == Result::Busy;
            return result;
        }));
    while (busy < 35 || hashes_ < 1) // one hashes, four wait
        std::this_thread::yield();
    auto anna = std::async(std::launch::async, [this] { return Check(kAnna, "127.0.0.1"); });
    open.set_value();
    EXPECT_EQ(anna.get(), Result::Granted);
    for (auto& client : clients)
        (void)client.get();
    EXPECT_EQ(busy, 35);
}

TEST_F(SignIns, WhoIsSignedIn_IsServedDuringAFlood)
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
