// SPDX-License-Identifier: Apache-2.0
//
// The access rules: who may do what where, by tables, and the compiled rules against the letter of
// their definition for rules at random.
#include "host/access/access_rules.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/access/explanation.h"

namespace kestd {
namespace {

Rights RightsOf(std::string_view letters)
{
    Rights rights = 0;
    for (const char letter : letters)
        for (size_t i = 0; i < kRightCount; ++i)
            if (std::string_view("lrncd")[i] == letter) // "n" for new: create
                rights |= Rights{1} << i;
    return rights;
}

std::string Letters(Rights rights)
{
    std::string letters;
    for (size_t i = 0; i < kRightCount; ++i)
        if (rights & Rights{1} << i)
            letters += std::string_view("lrncd")[i];
    return letters;
}

// "WHO[,WHO] PATH +ALLOWED -DENIED"; "=RIGHTS" allows these and denies the others.
AccessRule Rule(std::string text)
{
    AccessRule rule;
    rule.name = text;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t end = std::min(rest.find(' '), rest.size());
        std::string_view word = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (word[0] == '/') {
            rule.path = word;
        } else if (word[0] == '+') {
            rule.allowed = RightsOf(word.substr(1));
        } else if (word[0] == '-') {
            rule.denied = RightsOf(word.substr(1));
        } else if (word[0] == '=') {
            rule.allowed = RightsOf(word.substr(1));
            rule.denied = kRightsAll & ~rule.allowed;
        } else {
            while (!word.empty()) {
                const size_t comma = std::min(word.find(','), word.size());
                EXPECT_TRUE(ParseWho(word.substr(0, comma), rule.who.emplace_back())) << word;
                word.remove_prefix(std::min(comma + 1, word.size()));
            }
        }
    }
    EXPECT_EQ("", WhatIsWrongWithRulePath(rule.path));
    return rule;
}

const std::vector<AccessGroup> kGroups = {
    {"staff", {"anna", "ben"}}, {"board", {"anna"}}, {"guests", {"carl"}}};

AccessRules Compile(const std::vector<std::string>& texts)
{
    std::vector<AccessRule> rules;
    for (const std::string& text : texts)
        rules.push_back(Rule(text));
    return AccessRules(std::move(rules), kGroups);
}

struct Case {
    const char* user;
    const char* path;
    const char* expected;
};

void Check(const std::vector<std::string>& texts, const std::vector<Case>& cases)
{
    const AccessRules rules = Compile(texts);
    for (const Case& one : cases)
        EXPECT_EQ(one.expected, Letters(rules.At(rules.SubjectOf(one.user, nullptr), one.path)))
            << "'" << one.user << "' " << one.path;
}

TEST(AccessRules, AllowAllWhereNoRuleSpeaks)
{
    Check({}, {{"anna", "/docs/a", "lrncd"}, {"", "/", "lrncd"}});
    Check({"everybody /docs -cd"}, {{"anna", "/other", "lrncd"}, {"anna", "/docsmore", "lrncd"}});
}

TEST(AccessRules, MakeAVolumeReadOnly)
{
    Check({"everybody /archive =lr", "group:staff /archive/new +nc"},
          {{"anna", "/archive", "lr"},
           {"anna", "/archive/a/b", "lr"},
           {"anna", "/archive/new", "lrnc"},
           {"anna", "/archive/new/x", "lrnc"},
           {"carl", "/archive/new/x", "lr"},
           {"", "/archive/a", "lr"},
           {"anna", "/archived", "lrncd"}});
}

TEST(AccessRules, MakeADropFolder)
{
    Check({"everybody /in/drop/* =n", "user:anna /in/drop/* =lrncd"},
          {{"ben", "/in/drop", "lrncd"},
           {"ben", "/in/drop/x", "n"},
           {"ben", "/in/drop/x/y", "n"},
           {"anna", "/in/drop/x", "lrncd"}});
}

TEST(AccessRules, GiveEachUserAHome)
{
    Check({"everybody /homes/* =", "everybody /homes/%u =lrncd", "group:board /homes/ben +lr"},
          {{"anna", "/homes/anna", "lrncd"},
           {"anna", "/homes/anna/deep/er", "lrncd"},
           {"anna", "/homes/annabel", ""},
           {"ben", "/homes/anna/x", ""},
           {"anna", "/homes/ben/x", "lr"},
           {"", "/homes/anna", ""},
           {"", "/homes/%u", ""},
           {"ben", "/homes/%u", ""},
           {"%u", "/homes/%u", "lrncd"}}); // who is called that has that home
}

TEST(AccessRules, LetTheLongerPathDecide)
{
    Check({"everybody / -lrncd", "everybody /docs +lr", "everybody /docs/team/* -r",
           "everybody /docs/team/open +r"},
          {{"anna", "/", ""},
           {"anna", "/docs", "lr"},
           {"anna", "/docs/team", "lr"},
           {"anna", "/docs/team/x", "l"},
           {"anna", "/docs/team/open/y", "lr"}});
}

TEST(AccessRules, LetTheMoreSpecificSubjectDecideAtOnePath)
{
    Check({"everybody /d =l", "group:staff /d =lr", "user:ben /d =lrncd", "anonymous /d ="},
          {{"anna", "/d/x", "lr"},
           {"ben", "/d/x", "lrncd"},
           {"carl", "/d/x", "l"},
           {"", "/d/x", ""}});
    // The path counts before the subject.
    Check({"user:ben /d =lrncd", "everybody /d/x =l"}, {{"ben", "/d/x", "l"}});
}

TEST(AccessRules, LetTheStrictestOfTwoGroupsDecide)
{
    Check({"group:staff /d =lrncd", "group:board /d -d"},
          {{"anna", "/d", "lrnc"}, {"ben", "/d", "lrncd"}});
    Check({"user:anna /d +r", "user:anna /d -r"}, {{"anna", "/d", "lncd"}});
}

TEST(AccessRules, DenyAtALiteralNameAndAtTheUsersOwn)
{
    Check({"everybody /h/%u =lrncd", "everybody /h/anna -d"},
          {{"anna", "/h/anna/x", "lrnc"}, {"ben", "/h/ben", "lrncd"}});
}

TEST(AccessRules, PassOverEmptyAndDotComponents)
{
    Check({"everybody /a/b ="},
          {{"x", "/a//b", ""},
           {"x", "//a/./b/", ""},
           {"x", "/a/b/.", ""},
           {"x", "a/b", ""},
           {"x", "/a/b/..", ""}, // a name like any other: what resolves it has done so before
           {"x", "/A/b", "lrncd"}});
}

TEST(AccessRules, KnowGroupsThatTheSignInTells)
{
    const AccessRules rules = Compile({"everybody /d =", "group:Remote /d =lr"});
    const std::vector<std::string> told = {"remote", "unheard"};
    EXPECT_EQ("", Letters(rules.At(rules.SubjectOf("zoe", nullptr), "/d")));
    EXPECT_EQ("lr", Letters(rules.At(rules.SubjectOf("zoe", &told), "/d")));
    EXPECT_EQ("", Letters(rules.At(rules.SubjectOf("", &told), "/d")));
    EXPECT_EQ((std::vector<std::string>{"board", "staff"}), rules.GroupsOf("anna"));
}

TEST(AccessRules, TellTheRightsOfAllMembersAtOnce)
{
    const AccessRules rules =
        Compile({"everybody /d/* =l", "everybody /d/x =r", "everybody /h/%u =lr"});
    const AccessSubject anna = rules.SubjectOf("anna", nullptr);
    const AccessSubject nobody = rules.SubjectOf("", nullptr);
    bool isUniform = true;
    EXPECT_EQ("l", Letters(rules.OfMembers(anna, "/d", isUniform)));
    EXPECT_FALSE(isUniform);
    EXPECT_EQ("l", Letters(rules.OfMembers(anna, "/d/y", isUniform)));
    EXPECT_TRUE(isUniform);
    EXPECT_EQ("lrncd", Letters(rules.OfMembers(anna, "/h", isUniform)));
    EXPECT_FALSE(isUniform);
    (void)rules.OfMembers(nobody, "/elsewhere", isUniform);
    EXPECT_TRUE(isUniform);
}

TEST(AccessRules, TellWhatHoldsForAWholeTree)
{
    const AccessRules rules = Compile({"everybody /v/a/keep -d", "everybody /v/b/* -r",
                                       "user:ben /v/c/deep/er/* -c", "everybody /v/%u/own -n"});
    const auto below = [&](const char* user, const char* path) {
        return Letters(rules.Below(rules.SubjectOf(user, nullptr), path));
    };
    EXPECT_EQ("lrnc", below("anna", "/v/a"));
    EXPECT_EQ("lrncd", below("anna", "/v/a/other"));
    EXPECT_EQ("lncd", below("anna", "/v/b"));
    EXPECT_EQ("lrncd", below("anna", "/v/c"));
    EXPECT_EQ("lrnd", below("ben", "/v/c"));
    EXPECT_EQ("lrnd", below("ben", "/v/c/deep/er"));
    EXPECT_EQ("lrcd", below("anna", "/v/anna"));
    EXPECT_EQ("lc", below("anna", "/v"));
    EXPECT_EQ("lnc", below("", "/v"));
    EXPECT_EQ("lc", below("anna", "/"));
    EXPECT_EQ("lrncd", below("anna", "/w"));
}

TEST(AccessRules, TellWhichFoldersToMake)
{
    std::vector<AccessRule> made = {Rule("group:staff /h/%u/work =lrncd"),
                                    Rule("everybody /h/%u =lrncd"), Rule("user:carl /x =l")};
    for (AccessRule& rule : made)
        rule.makes = true;
    const AccessRules rules(made, kGroups);
    EXPECT_TRUE(rules.MakesFolders());
    const auto folders = [&](const char* user) {
        return rules.FoldersToMake(rules.SubjectOf(user, nullptr));
    };
    EXPECT_EQ((std::vector<std::string>{"/h/anna", "/h/anna/work"}), folders("anna"));
    EXPECT_EQ((std::vector<std::string>{"/x", "/h/carl"}), folders("carl"));
    for (const char* const none : {"", ".", "..", "a/b"})
        EXPECT_TRUE(folders(none).empty()) << none;
    EXPECT_FALSE(Compile({"everybody / -d"}).MakesFolders());
}

TEST(AccessRules, ReadTheirParts)
{
    Who who;
    EXPECT_TRUE(ParseWho("group:Big Team", who));
    EXPECT_EQ((Who{Who::Kind::Group, "big team"}), who);
    EXPECT_TRUE(ParseWho("user:Anna:x", who));
    EXPECT_EQ((Who{Who::Kind::User, "Anna:x"}), who);
    for (const char* const wrong : {"", "Everybody", "user:", "group:", "anna", "users:anna", ":"})
        EXPECT_FALSE(ParseWho(wrong, who)) << wrong;
    Rights rights = 0;
    EXPECT_TRUE(ParseRight("create", rights));
    EXPECT_EQ(kRightCreate, rights);
    EXPECT_TRUE(ParseRight("all", rights));
    EXPECT_EQ(kRightsAll, rights);
    EXPECT_FALSE(ParseRight("write", rights));
    for (const char* const right : {"/", "/a", "/a b/*", "/*", "/a/%u/c", "/%41", "/...", "/a*b"})
        EXPECT_EQ("", WhatIsWrongWithRulePath(right)) << right;
    for (const char* const wrong : {"", "a", "//", "/a/", "/a//b", "/a/./b", "/..", "/*/a",
                                    "/%u/%u", "/x%u", "/a\n", "/\xff"})
        EXPECT_NE("", WhatIsWrongWithRulePath(wrong)) << wrong;
    EXPECT_NE("", WhatIsWrongWithRulePath("/" + std::string(kLongestRulePath, 'a')));
    std::string deep;
    for (size_t i = 0; i < kMostRuleComponents; ++i)
        deep += "/a";
    EXPECT_EQ("", WhatIsWrongWithRulePath(deep));
    EXPECT_NE("", WhatIsWrongWithRulePath(deep + "/*"));
}

// Rules at random: the compiled ones answer as the definition does, for objects, members and trees.
class Definition : public testing::Test {
  protected:
    size_t Pick(size_t count) { return random_() % count; }

    std::string Path(bool isRule)
    {
        const std::vector<std::string> names = {"a", "b", "anna", "%u"};
        std::string text;
        bool hasUser = false;
        for (size_t count = Pick(4); count > 0; --count) {
            const std::string name = names[Pick(isRule && hasUser ? 3 : 4)];
            hasUser = hasUser || name == "%u";
            text += "/" + name;
        }
        return text.empty() ? std::string("/") : text;
    }

    AccessRule MakeRule()
    {
        const std::vector<std::string> people = {"everybody",  "anonymous",   "user:anna",
                                                 "user:b",     "group:staff", "group:guests",
                                                 "group:board"};
        AccessRule rule;
        for (size_t who = 1 + Pick(2); who > 0; --who)
            EXPECT_TRUE(ParseWho(people[Pick(people.size())], rule.who.emplace_back()));
        rule.path = Path(true);
        if (Pick(3) == 0)
            rule.path += rule.path == "/" ? "*" : "/*";
        rule.allowed = static_cast<Rights>(Pick(kRightsAll + 1));
        rule.denied = static_cast<Rights>(Pick(kRightsAll + 1));
        return rule;
    }

    static Rights Defined(const AccessRules& rules, const std::string& user,
                          const std::string& path)
    {
        Rights rights = 0;
        const Explanation verdicts = Explain(rules.Rules(), user, rules.GroupsOf(user), path);
        for (size_t i = 0; i < kRightCount; ++i)
            rights |= verdicts[i].isAllowed ? Rights{1} << i : 0;
        return rights;
    }

    // What holds for everything that the rules can tell apart below a path.
    static Rights DefinedBelow(const AccessRules& rules, const std::string& user,
                               const std::string& path)
    {
        const std::vector<std::string> deeper = {"", "/a", "/b", "/anna", "/ben", "/carl", "/deep"};
        Rights rights = kRightsAll;
        for (const std::string& one : deeper)
            for (const std::string& two : deeper)
                for (const std::string& three : deeper)
                    for (const char* const four : {"", "/deep"})
                        if (!one.empty())
                            rights &= Defined(rules, user, path + one + two + three + four);
        return rights;
    }

  private:
    std::mt19937 random_{20260101};
};

TEST_F(Definition, HoldsForRulesAtRandom)
{
    for (int round = 0; round < 60; ++round) {
        std::vector<AccessRule> made;
        for (size_t count = Pick(8); count > 0; --count)
            made.push_back(MakeRule());
        const AccessRules rules(made, kGroups);
        for (const std::string user : {"anna", "ben", "carl", "b", ""}) {
            const AccessSubject subject = rules.SubjectOf(user, nullptr);
            const std::string where = Path(false);
            SCOPED_TRACE(std::to_string(round) + user + where);
            ASSERT_EQ(Defined(rules, user, where), rules.At(subject, where));
            bool isUniform = false;
            const Rights members = rules.OfMembers(subject, where, isUniform);
            ASSERT_EQ(Defined(rules, user, where + "/nobody's"), members);
            for (const char* const name : {"/a", "/b", "/anna", "/ben", "/carl"})
                if (isUniform) {
                    ASSERT_EQ(members, Defined(rules, user, where + name)) << name;
                }
            ASSERT_EQ(DefinedBelow(rules, user, where), rules.Below(subject, where));
        }
    }
}

} // namespace
} // namespace kestd
