// SPDX-License-Identifier: Apache-2.0
#include "host/commands/arguments.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace kestd {
namespace {

using Words = std::vector<std::string>;

TEST(ServeArguments, AllOptionsAreRead)
{
    ServeArguments a;
    ASSERT_EQ(ParseServe({"--config", "c.toml", "--listen=127.0.0.1:0", "--listen", "[::1]:8080",
                          "--user", "anna:a:b", "--public-url=https://files.example.org/",
                          "--tls-cert", "c", "--tls-key", "k", "--state-dir", "s", "docs=/srv/d",
                          "/srv/music/", "--", "-odd=x"},
                         a),
              "");
    EXPECT_EQ(a.config, "c.toml");
    EXPECT_EQ(a.listen, (Words{"127.0.0.1:0", "[::1]:8080"}));
    ASSERT_EQ(a.users.size(), 1U);
    EXPECT_EQ(a.users[0], (std::pair<std::string, std::string>{"anna", "a:b"}));
    EXPECT_EQ(a.publicUrl, "https://files.example.org/");
    EXPECT_EQ(a.tlsCertificate + a.tlsKey + a.stateDirectory, "cks");
    ASSERT_EQ(a.volumes.size(), 3U);
    EXPECT_EQ(a.volumes[0].name, "docs");
    EXPECT_EQ(a.volumes[0].directory, "/srv/d");
    EXPECT_EQ(a.volumes[1].name, "music");
    EXPECT_EQ(a.volumes[1].directory, "/srv/music/");
    EXPECT_EQ(a.volumes[2].name, "-odd");
    EXPECT_EQ(a.volumes[2].directory, "x");
}

TEST(ServeArguments, WhatIsWrong_IsSaid)
{
    struct Row {
        Words words;
        const char* part;
    };
    const Row rows[] = {
        {{"--listen"}, "needs a value"},
        {{"--listen", ""}, "not empty"},
        {{"--listen", "localhost:80"}, "numeric"},
        {{"--listen", "127.0.0.1"}, "numeric"},
        {{"--listen", "127.0.0.1:65536"}, "numeric"},
        {{"--listen", "127.0.0.1:-1"}, "numeric"},
        {{"--listen", "::1:80"}, "numeric"},
        {{"--user", "anna"}, "NAME:PASSWORD"},
        {{"--user", "anna:"}, "NAME:PASSWORD"},
        {{"--user", ":secret"}, "empty"},
        {{"--public-url", "files.example.org"}, "expected http"},
        {{"--public-url", "https://u@example.org"}, "expected http"},
        {{"--public-url", "https://example.org/a;b"}, "expected no more behind the host"},
        {{"--tls-cert", "c"}, "belong together"},
        {{"--tls-key", "c"}, "belong together"},
        {{"--nonsense"}, "unknown option --nonsense"},
        {{"--help=yes"}, "no value"},
        {{"a=/x", "a=/y"}, "two volumes"},
        {{"=/x"}, "names no volume"},
        {{"/"}, "names no volume"},
        {{"./no such directory/.."}, "names no volume"},
        {{"a="}, "names no volume"},
    };
    for (const Row& row : rows) {
        ServeArguments a;
        const std::string problem = ParseServe(row.words, a);
        EXPECT_NE(problem.find(row.part), std::string::npos) << row.words[0] << ": " << problem;
    }
}

TEST(VolumeArgument, Dots_AreNamedByTheDirectoryTheyStandFor)
{
    const std::filesystem::path here = std::filesystem::current_path();
    VolumeArgument volume;
    for (const char* text : {".", "./", "./."}) {
        ASSERT_TRUE(ParseVolume(text, volume)) << text;
        EXPECT_EQ(volume.name, here.filename().string()) << text;
        EXPECT_EQ(volume.directory, text);
    }
    ASSERT_TRUE(ParseVolume("..", volume));
    EXPECT_EQ(volume.name, here.parent_path().filename().string());
}

TEST(VolumeArgument, EqualsBehindASlash_IsPartOfTheDirectory)
{
    VolumeArgument volume;
    ASSERT_TRUE(ParseVolume("./a=b", volume));
    EXPECT_EQ(volume.name, "a=b");
    EXPECT_EQ(volume.directory, "./a=b");
    ASSERT_TRUE(ParseVolume("n=./a=b", volume));
    EXPECT_EQ(volume.name, "n");
    EXPECT_EQ(volume.directory, "./a=b");
}

TEST(UserArguments, WordsAndFieldsAreRead)
{
    UserArguments a;
    ASSERT_EQ(ParseUser({"add", "anna", "--mail", "a@b.c", "--dotted-name=CN=anna.O=org", "--tree",
                         "T", "--users-file", "f"},
                        a),
              "");
    EXPECT_EQ(a.action, "add");
    EXPECT_EQ(a.name, "anna");
    EXPECT_EQ(a.dottedName, "CN=anna.O=org");
    EXPECT_EQ(a.mail + a.tree + a.usersFile, "a@b.cTf");
    for (const Words& words :
         {Words{}, Words{"add"}, Words{"frob", "anna"}, Words{"add", "a:b"}, Words{"list", "anna"},
          Words{"add", "a", "b"}, Words{"add", "a", "--mail", "x:y"}, Words{"passwd"}}) {
        UserArguments wrong;
        EXPECT_NE(ParseUser(words, wrong), "");
    }
    UserArguments list;
    EXPECT_EQ(ParseUser({"list"}, list), "");
}

} // namespace
} // namespace kestd
