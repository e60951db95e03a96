// SPDX-License-Identifier: Apache-2.0
#include "host/auth/users.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/auth/passwords.h"

namespace kestd {
namespace {

class UsersFileCase : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string name = testing::TempDir() + "users.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
        file_ = directory_ + "/users";
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }
    void Put(const std::string& text) { std::ofstream(file_) << text; }
    std::string Get()
    {
        std::ostringstream text;
        text << std::ifstream(file_).rdbuf();
        return text.str();
    }
    mode_t Mode()
    {
        struct stat info {};
        EXPECT_EQ(stat(file_.c_str(), &info), 0);
        return info.st_mode & 0777;
    }
    std::string Add(const std::string& name)
    {
        return ChangeUsers(file_, [&](UserMap& users) -> std::string {
            users[name] = std::make_shared<const User>(User{name, hash_, {}, {}, {}});
            return {};
        });
    }

    const std::string hash_ = HashPassword("x", 1);
    std::string directory_;
    std::string file_;
};

TEST_F(UsersFileCase, MissingFile_HoldsNobody)
{
    UserMap users;
    users["old"] = nullptr;
    EXPECT_EQ(LoadUsers(file_, users), "");
    EXPECT_TRUE(users.empty());
}

TEST_F(UsersFileCase, FieldsFromTheThirdOn_MayBeMissing)
{
    Put("anna:" + hash_ + "\n\n  # note\nj\u00fcrg:" + hash_ +
        ":CN=j\u00fcrg.O=org:TREE:j@example.org\r\n");
    UserMap users;
    ASSERT_EQ(LoadUsers(file_, users), "");
    ASSERT_EQ(users.size(), 2U);
    EXPECT_EQ(*users["anna"], (User{"anna", hash_, "", "", ""}));
    EXPECT_EQ(*users["j\u00fcrg"],
              (User{"j\u00fcrg", hash_, "CN=j\u00fcrg.O=org", "TREE", "j@example.org"}));
}

TEST_F(UsersFileCase, WrongLine_IsNamedAndNothingIsTaken)
{
    const std::string good = "anna:" + hash_ + "\n";
    struct Row {
        std::string text;
        std::string line;
    };
    for (const Row& row :
         {Row{good + "nocolon\n", ":2: "}, Row{"# a\n" + good + good, ":3: "}, Row{"a:b\n", ":1: "},
          Row{":" + hash_ + "\n", ":1: "}, Row{good + "b:" + hash_ + ":1:2:3:4\n", ":2: "},
          Row{"a\\b:" + hash_ + "\n", ":1: "}, Row{"a\xff:" + hash_ + "\n", ":1: "},
          Row{"a:" + hash_ + ":\x01\n", ":1: "}}) {
        Put(row.text);
        UserMap users;
        const std::string problem = LoadUsers(file_, users);
        EXPECT_TRUE(problem.starts_with(file_ + row.line)) << problem;
        EXPECT_TRUE(users.empty());
        EXPECT_EQ(Add("new"), problem); // a file that is not understood is not rewritten
        EXPECT_EQ(Get(), row.text);
    }
}

TEST_F(UsersFileCase, Rewriting_KeepsCommentsOrderAndOthers)
{
    Put("# people\nanna:" + hash_ + ":CN=anna\n\n# robots\nbot:" + hash_ + "\nzoe:" + hash_ + "\n");
    chmod(file_.c_str(), 0644);
    EXPECT_EQ(
        ChangeUsers(file_,
                    [&](UserMap& users) -> std::string {
                        users.erase("bot");
                        User anna = *users["anna"];
                        anna.mail = "a@b.c";
                        users["anna"] = std::make_shared<const User>(anna);
                        users["new"] = std::make_shared<const User>(User{"new", hash_, {}, {}, {}});
                        return {};
                    }),
        "");
    EXPECT_EQ(Get(), "# people\nanna:" + hash_ + ":CN=anna::a@b.c\n\n# robots\nzoe:" + hash_ +
                         ":::\nnew:" + hash_ + ":::\n");
    EXPECT_EQ(Mode(), 0600U);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_))
        files += entry.exists();
    EXPECT_EQ(files, 1U); // no temporary file is left
}

TEST_F(UsersFileCase, RefusedChange_LeavesTheFile)
{
    Put("anna:" + hash_ + "\n");
    EXPECT_EQ(ChangeUsers(file_,
                          [](UserMap& users) -> std::string {
                              users.clear();
                              return "no";
                          }),
              "no");
    EXPECT_EQ(Get(), "anna:" + hash_ + "\n");
}

TEST_F(UsersFileCase, NewFile_IsForItsOwnerOnly)
{
    EXPECT_EQ(Add("anna"), "");
    EXPECT_EQ(Mode(), 0600U);
    EXPECT_NE(ChangeUsers(directory_ + "/no/users", [](UserMap&) { return std::string(); }), "");
}

TEST_F(UsersFileCase, RacingWriters_LoseNothing)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i)
                EXPECT_EQ(Add("u" + std::to_string(t) + "x" + std::to_string(i)), "");
        });
    for (std::thread& thread : threads)
        thread.join();
    UserMap users;
    EXPECT_EQ(LoadUsers(file_, users), "");
    EXPECT_EQ(users.size(), 40U);
}

TEST(UserName, WhatCannotSignIn_IsRefused)
{
    for (const std::string name : {"", "a:b", "a\\b", "a\nb", "#a", " a", "a ", "\xff"})
        EXPECT_NE(WhatIsWrongWithName(name), "") << name;
    EXPECT_NE(WhatIsWrongWithName(std::string(kLongestUserName + 1, 'a')), "");
    for (const std::string name : {"a", "anna b", "j\u00fcrg@example.org", "a#b"})
        EXPECT_EQ(WhatIsWrongWithName(name), "") << name;
}

} // namespace
} // namespace kestd
