// SPDX-License-Identifier: Apache-2.0
//
// Files that Apache's htpasswd has written.
#include "host/auth/htpasswd.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <unistd.h>

namespace kestd {
namespace {

// Made by htpasswd 2.4 with -m, -s, -B, -2 and -d.
constexpr char kApr1[] = "$apr1$q51c7KEZ$Z.Saq.bK0XbuBs/Q4b8u/0";
constexpr char kSha[] = "{SHA}EGq04ehW7FmcFo4Bfqp2aF6AEuM=";
constexpr char kBcrypt[] = "$2y$04$ttgnvn5KQ/5I1RhO3ajD4.s8bZRSB4gtoZKOr6027bZgcnHnIbRD.";
constexpr char kSha256[] = "$5$/M8QgIWVLLYONzh3$2rFQPwSkh6NEZo4LeDwIBcvVgdQ5oWT7gfAu1xGhrr0";
constexpr char kDes[] = "Shp2BRlexdLrw";

TEST(Htpasswd, EachKindOfHashIsChecked)
{
    const struct {
        const char* hash;
        const char* password;
    } kRows[] = {
        {kApr1, "apple"}, {kSha, "berry"}, {kBcrypt, "cherry"}, {kSha256, "date"}, {kDes, "elder"}};
    for (const auto& row : kRows) {
        EXPECT_TRUE(IsHtpasswdPassword(row.password, row.hash)) << row.hash;
        for (const std::string& wrong :
             {std::string(), std::string("apple "), std::string("Apple"), std::string("wrong"),
              std::string(row.password) + '\0', std::string(row.hash), std::string(5000, 'x')})
            EXPECT_FALSE(IsHtpasswdPassword(wrong, row.hash)) << row.hash << " " << wrong.size();
    }
    EXPECT_TRUE(IsHtpasswdPassword(std::string(255, 'x'), "$apr1$fTXX3VXP$.qJKj9LatIl7u7UL7vHiy/"));
}

TEST(Htpasswd, WhatIsNoHashFitsNothing)
{
    for (const std::string hash : {"", "secret", "{SHA}", "$apr1$", "$apr1$x", "*0", "*1",
                                   "{SHA}EGq04ehW7FmcFo4Bfqp2aF6AEuM"})
        for (const std::string password : {"", "secret", "berry", "*0", "*1"})
            EXPECT_FALSE(IsHtpasswdPassword(password, hash)) << hash;
}

class HtpasswdFile : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string name = testing::TempDir() + "htpasswd.XXXXXX";
        const int file = mkstemp(name.data());
        ASSERT_GE(file, 0);
        close(file);
        file_ = name;
    }
    void TearDown() override { std::filesystem::remove(file_); }
    std::string Load(const std::string& text)
    {
        std::ofstream(file_) << text;
        return LoadHtpasswd(file_, users_);
    }

    std::string file_;
    UserMap users_;
};

TEST_F(HtpasswdFile, LinesBecomeUsers)
{
    EXPECT_EQ(Load(std::string("# who\n\nanna:") + kApr1 + "\r\n  ben:" + kSha +
                   ":further:fields\ncarol:" + kBcrypt),
              "");
    ASSERT_EQ(users_.size(), 3u);
    EXPECT_EQ(users_.at("anna")->hash, kApr1);
    EXPECT_EQ(users_.at("ben")->hash, kSha);
    EXPECT_EQ(users_.at("carol")->hash, kBcrypt);
}

TEST_F(HtpasswdFile, WhatIsWrongIsToldWithItsPlace)
{
    ASSERT_EQ(Load(std::string("anna:") + kSha + "\n"), "");
    const struct {
        std::string text;
        const char* problem;
    } kRows[] = {{"anna\n", ":1: expected name:hash"},
                 {"\nanna:secret\n", ":2: the second field is no password hash"},
                 {":" + std::string(kSha) + "\n", ":1: a user's name cannot be empty"},
                 {"a:" + std::string(kSha) + "\na:" + kSha + "\n", ":2: the user a stands twice"}};
    for (const auto& row : kRows) {
        const std::string problem = Load(row.text);
        EXPECT_NE(problem.find(row.problem), std::string::npos) << problem << row.text;
        EXPECT_TRUE(users_.contains("anna")) << "the old ones stay";
    }
}

} // namespace
} // namespace kestd
