// SPDX-License-Identifier: Apache-2.0
//
// Several credentials sources in their order.
#include <map>

#include "host/auth/credentials_source.h"
#include "host/auth/htpasswd.h"
#include "host/auth/ldap_source.h"
#include "tests/unit/host/auth/sign_ins.h"

namespace kestd {
namespace {

// Knows what a case says, and counts how often it is asked.
class Scripted final : public CredentialsSource {
  public:
    Scripted(std::string name, bool isRemote) : name_(std::move(name)), isRemote_(isRemote) {}

    std::string_view Name() const noexcept override { return name_; }
    bool IsRemote() const noexcept override { return isRemote_; }
    bool Knows(std::string_view name) const noexcept override
    {
        return !isRemote_ && passwords.contains(name);
    }
    Verdict Check(const std::string& name, std::string_view password) override
    {
        ++asked;
        if (isDown)
            return {Verdict::Outcome::Unavailable, nullptr};
        const auto found = passwords.find(Folded(name));
        if (found == passwords.end())
            return {Verdict::Outcome::UnknownUser, nullptr};
        if (found->second != password)
            return {Verdict::Outcome::Wrong, nullptr};
        Principal made{found->first, {}, {}, {}, found->first + '\0' + name_};
        made.source = name_;
        return {Verdict::Outcome::Granted, std::make_shared<const Principal>(made)};
    }
    Verdict Find(const std::string&) override { return {}; }
    bool IsCurrent(const Principal& principal) const override
    {
        return isRemote_ || passwords.contains(principal.name);
    }

    std::map<std::string, std::string, std::less<>> passwords;
    std::atomic<bool> isDown{false};
    std::atomic<int> asked{0};

  private:
    // As a directory server compares.
    std::string Folded(std::string name) const
    {
        if (isRemote_)
            for (char& c : name)
                c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        return name;
    }
    const std::string name_;
    const bool isRemote_;
};

class Sources : public SignIns {
  protected:
    void SetUp() override
    {
        Make();
        auth_->SetSources({first_, second_});
    }
    std::shared_ptr<const Principal> Who(const char* header)
    {
        std::shared_ptr<Verified> who;
        std::chrono::seconds wait{0};
        (void)auth_->Check(header, {}, who, wait);
        return who ? who->principal : nullptr;
    }

    const std::shared_ptr<Scripted> first_ = std::make_shared<Scripted>("users", false);
    const std::shared_ptr<Scripted> second_ = std::make_shared<Scripted>("ldap", true);
};

constexpr char kANNA[] = "Basic QU5OQTpzZWNyZXQ="; // ANNA:secret

TEST_F(Sources, TheFirstThatKnowsTheNameDecides)
{
    first_->passwords["anna"] = "other";
    second_->passwords["anna"] = "secret";
    EXPECT_EQ(Check(kAnna), Result::Denied);
    EXPECT_EQ(second_->asked, 0);
    auth_->SetSources({second_, first_});
    EXPECT_EQ(Check(kAnna), Result::Granted);
    EXPECT_EQ(Who(kAnna)->source, "ldap");
    second_->passwords.clear();
    auth_->SetSources({second_, first_});
    EXPECT_EQ(Check(kAnnaWrong), Result::Denied) << "and the next one was asked";
    EXPECT_EQ(first_->asked, 2);
}

TEST_F(Sources, AnotherSpellingDoesNotGetRoundTheOrder)
{
    first_->passwords["anna"] = "other";
    second_->passwords["anna"] = "secret";
    EXPECT_EQ(Check(kANNA), Result::Denied);
    first_->passwords.clear();
    EXPECT_EQ(Check(kANNA), Result::Granted);
    EXPECT_EQ(Who(kANNA)->name, "anna") << "the name is the source's";
}

TEST_F(Sources, SpellingsOfANameAreCountedAsOne)
{
    int denied = 0;
    for (const char* header :
         {"Basic YW5uYTp4", "Basic QW5uYTp4", "Basic QU5uYTp4", "Basic QU5OYTp4", "Basic QU5OQTp4",
          "Basic YU5uYTp4", "Basic YU5OYTp4", "Basic YU5OQTp4"})
        denied += Check(header) == Result::Denied;
    EXPECT_EQ(denied, 6);
}

TEST_F(Sources, OneThatIsNotAvailableLetsNobodyInAndCountsNoGuess)
{
    second_->isDown = true;
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(Check(kAnna), Result::Unavailable);
    first_->passwords["anna"] = "secret";
    EXPECT_EQ(Check(kAnna), Result::Granted) << "who is known before needs no other";
    EXPECT_EQ(second_->asked, 30);
    auth_->SetSources({second_, first_});
    EXPECT_EQ(Check(kNobody), Result::Unavailable) << "the next one is not asked in its place";
}

TEST_F(Sources, WhatAnotherMachineSaidIsRememberedForATimeOnly)
{
    second_->passwords["anna"] = "secret";
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(Check(kAnna), Result::Granted);
        clock_.Advance(std::chrono::seconds(100));
    }
    EXPECT_EQ(second_->asked, 1);
    second_->passwords.clear();
    EXPECT_EQ(Check(kAnna), Result::Denied) << "600 s after it was asked, also while it is in use";
    EXPECT_EQ(second_->asked, 2);
}

TEST_F(Sources, OneThatIsTakenAwayTakesItsUsersAlong)
{
    second_->passwords["anna"] = "secret";
    const auto who = Who(kAnna);
    ASSERT_NE(who, nullptr);
    EXPECT_TRUE(auth_->IsCurrent(*who));
    auth_->SetSources({first_});
    EXPECT_FALSE(auth_->IsCurrent(*who));
    EXPECT_EQ(Check(kAnna), Result::Denied);
}

TEST_F(Sources, SlowOnesDoNotHoldPasswordsUp)
{
    AuthLimits limits;
    limits.hashesAtOnce = 1;
    limits.remoteAtOnce = 1;
    Make(limits);
    std::promise<void> open;
    class Slow final : public CredentialsSource {
      public:
        explicit Slow(std::shared_future<void> gate) : gate_(std::move(gate)) {}
        std::string_view Name() const noexcept override { return "ldap"; }
        bool IsRemote() const noexcept override { return true; }
        bool Knows(std::string_view) const noexcept override { return false; }
        Verdict Check(const std::string&, std::string_view) override
        {
            gate_.wait();
            return {Verdict::Outcome::UnknownUser, nullptr};
        }
        Verdict Find(const std::string&) override { return {}; }
        bool IsCurrent(const Principal&) const override { return true; }

      private:
        const std::shared_future<void> gate_;
    };
    auth_->SetSources({MakeUserList("users", Users(),
                                    [](std::string_view password, const std::string& hash) {
                                        return password == hash;
                                    }),
                       std::make_shared<Slow>(open.get_future().share())});
    auto slow = std::async(std::launch::async, [&] { return Check(kNobody); });
    EXPECT_EQ(Check(kAnna), Result::Granted);
    open.set_value();
    EXPECT_EQ(slow.get(), Result::Denied);
}

TEST(LdapFilter, SpecialCharactersAreEscaped)
{
    EXPECT_EQ(EscapedForFilter("anna"), "anna");
    EXPECT_EQ(EscapedForFilter(std::string("a*(b)\\c\0%d", 10)), "a\\2a\\28b\\29\\5cc\\00\\25d");
    EXPECT_EQ(EscapedForFilter("j\u00fcrg"), "j\u00fcrg");
}

} // namespace
} // namespace kestd
