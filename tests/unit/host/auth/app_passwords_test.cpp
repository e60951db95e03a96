// SPDX-License-Identifier: Apache-2.0
//
// The file of app passwords, and what they may be used for.
#include "host/auth/app_passwords.h"

#include <filesystem>
#include <fstream>
#include <set>

#include "base/base64.h"
#include "tests/unit/host/auth/sign_ins.h"

namespace kestd {
namespace {

class AppPasswordFile : public SignIns {
  protected:
    void SetUp() override
    {
        std::string name = testing::TempDir() + "apps.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
        file_ = directory_ + "/apps";
        Make();
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }
    // A new one's secret.
    std::string Add(const std::string& name, int64_t ends = 0, const std::string& volume = {},
                    bool isReadOnly = false)
    {
        AppPassword wanted;
        wanted.user = "anna";
        wanted.name = name;
        wanted.ends = ends;
        wanted.volume = volume;
        wanted.isReadOnly = isReadOnly;
        std::string secret;
        EXPECT_EQ(AddAppPassword(file_, wanted, secret), "");
        return secret;
    }
    AppPasswords Load()
    {
        AppPasswords all;
        EXPECT_EQ(LoadAppPasswords(file_, all), "");
        return all;
    }
    Result CheckAs(const std::string& user, const std::string& secret)
    {
        return Check("Basic " + base::EncodeBase64(user + ":" + secret));
    }

    std::string directory_;
    std::string file_;
};

TEST_F(AppPasswordFile, SecretsAreFoundByTheirHashes)
{
    std::set<std::string> secrets;
    for (int i = 0; i < 20; ++i)
        secrets.insert(Add(std::to_string(i)));
    EXPECT_EQ(secrets.size(), 20u);
    const AppPasswords all = Load();
    EXPECT_EQ(all.entries.size(), 20u);
    for (const std::string& secret : secrets) {
        ASSERT_TRUE(IsAppSecret(secret)) << secret;
        ASSERT_NE(all.Find(secret, 0), nullptr);
        for (size_t i = 0; i < secret.size(); ++i) {
            std::string other = secret;
            other[i] = other[i] == 'a' ? 'b' : 'a';
            EXPECT_EQ(all.Find(other, 0), nullptr) << other;
        }
    }
}

TEST_F(AppPasswordFile, OneEnds)
{
    const std::string secret = Add("x", 1000);
    const AppPasswords all = Load();
    EXPECT_NE(all.Find(secret, 999), nullptr);
    EXPECT_EQ(all.Find(secret, 1000), nullptr);
}

TEST_F(AppPasswordFile, WhatIsWrongIsToldWithItsPlace)
{
    (void)Add("x");
    std::ifstream in(file_);
    const std::string good((std::istreambuf_iterator<char>(in)), {});
    const std::string key = good.substr(0, good.find('\n') + 1);
    const std::string id = "anna:abcdefgh:" + std::string(64, '0');
    for (const auto& [text, problem] : std::initializer_list<std::pair<std::string, std::string>>{
             {"anna\n", ":1: expected a line 'key:'"},
             {"key:12\n", ":1: expected a line 'key:'"},
             {key + "anna\n", ":2: expected USER:ID"},
             {key + "anna:short:0:0:0::all:x\n", ":2: the second and third"},
             {key + id + ":x:0::all:x\n", ":2: expected times"},
             {key + id + ":0:99999999999999999999::all:x\n", ":2: expected times"},
             {key + id + ":0:0::some:x\n", ":2: expected 'all' or 'read'"},
             {key + id + ":0:0:a/b:all:x\n", ":2: expected the name of a volume"},
             {key + id + ":0:0::all:\n", ":2: the name of an app password"},
             {key + id + ":0:0::all:x\n" + id + ":0:0::all:y\n", ":3: the identifier"}}) {
        std::ofstream(file_) << text;
        AppPasswords all;
        all.key = "old";
        const std::string said = LoadAppPasswords(file_, all);
        EXPECT_NE(said.find(problem), std::string::npos) << said << "\n" << text;
        EXPECT_EQ(all.key, "old");
        std::string secret;
        EXPECT_NE(AddAppPassword(file_, {}, secret), "") << "it is not written over";
        EXPECT_EQ(secret, "");
    }
}

TEST_F(AppPasswordFile, LimitsAreThoseOfTheRights)
{
    const std::string secrets[] = {Add("all"), Add("volume", 0, "docs"), Add("read", 0, {}, true),
                                   Add("both", 0, "docs", true)};
    const AppPasswords all = Load();
    constexpr Rights kReading = kRightList | kRightRead;
    const Rights rights[][3] = {{kRightsAll, kRightsAll, kRightsAll},
                                {kRightsAll, kRightsAll, 0},
                                {kReading, kReading, kReading},
                                {kRightsAll, kReading, 0}};
    for (size_t i = 0; i < 4; ++i) {
        const auto limits = all.Find(secrets[i], 0)->limits;
        const auto at = [&](std::string_view path) {
            return limits ? limits->At(limits->SubjectOf("anna", nullptr), path) : kRightsAll;
        };
        EXPECT_EQ(at("/docs/a/b"), rights[i][1]) << i;
        EXPECT_EQ(at("/docs"), rights[i][1]) << i;
        EXPECT_EQ(at("/docsx"), rights[i][2]) << i;
        EXPECT_EQ(at("/other/a"), rights[i][2]) << i;
        EXPECT_TRUE(at("/") & kRightList) << i;
    }
}

TEST_F(AppPasswordFile, SignsInWithoutAHashUntilItIsTakenAway)
{
    const std::string secret = Add("x");
    auth_->SetAppPasswords(Load());
    EXPECT_EQ(CheckAs("anna", secret), Result::Granted);
    EXPECT_EQ(CheckAs("anna", secret), Result::Granted);
    EXPECT_EQ(CheckAs("nobody", secret), Result::Denied);
    EXPECT_EQ(hashes_, 0);
    EXPECT_NE(*auth_->Order()->apps.entries.begin()->second->used, 0);
    EXPECT_EQ(RevokeAppPassword(file_, "anna", "x"), "");
    auth_->SetAppPasswords(Load());
    EXPECT_EQ(CheckAs("anna", secret), Result::Denied) << "also where it was remembered";
}

TEST_F(AppPasswordFile, GoesWithItsUser)
{
    const std::string secret = Add("x");
    auth_->SetAppPasswords(Load());
    EXPECT_EQ(CheckAs("anna", secret), Result::Granted);
    auth_->SetUsers(Users("other"));
    EXPECT_EQ(CheckAs("anna", secret), Result::Granted) << "her own password has changed";
    auth_->SetUsers({});
    EXPECT_EQ(CheckAs("anna", secret), Result::Denied);
}

TEST_F(AppPasswordFile, TimesOfUseAreKept)
{
    const std::string secret = Add("x");
    AppPasswords all = Load();
    std::string written;
    *all.entries.begin()->second->used = 12345;
    const std::string uses = file_ + ".used";
    EXPECT_EQ(WriteUses(uses, all, written), "");
    const std::string before = written;
    EXPECT_EQ(WriteUses(uses, all, written), "");
    EXPECT_EQ(written, before);
    AppPasswords fresh = Load();
    LoadUses(uses, fresh);
    EXPECT_EQ(*fresh.entries.begin()->second->used, 12345);
    std::ofstream(uses) << "nonsense\n:\nx:\n" << fresh.entries.begin()->first << ":x\n";
    AppPasswords again = Load();
    LoadUses(uses, again);
    EXPECT_EQ(*again.entries.begin()->second->used, 0);
}

} // namespace
} // namespace kestd
