// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/ifheader.h"

#include <set>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using filestore::IfHeader;
using filestore::PathOfResourceTag;
using testing::ElementsAre;

namespace {

// A world in which certain resources have certain locks and entity tags.
class World final : public filestore::IfState {
  public:
    std::set<std::pair<std::string, std::string>> locks;
    std::set<std::pair<std::string, std::string>> tags;

    bool HasLock(std::string_view path, std::string_view token) override
    {
        return locks.contains({std::string(path), std::string(token)});
    }
    bool HasEntityTag(std::string_view path, std::string_view tag) override
    {
        return tags.contains({std::string(path), std::string(tag)});
    }
};

// The request is for /Ferro/v/a, which is locked with T1 and has the entity tag "e1"; /Ferro/v/b is
// locked with T2.
World TheWorld()
{
    World world;
    world.locks = {{"/Ferro/v/a", "T1"}, {"/Ferro/v/b", "T2"}};
    world.tags = {{"/Ferro/v/a", "\"e1\""}};
    return world;
}

} // namespace

TEST(IfHeader, MalformedHeadersAreRefused)
{
    const std::pair<const char*, const char*> rows[] = {
        {"nothing at all", ""},
        {"only blanks", "  \t"},
        {"a list without conditions", "()"},
        {"a list that does not end", "(<opaquelocktoken:T1>"},
        {"a token that does not end", "(<opaquelocktoken:T1"},
        {"an empty token", "(<>)"},
        {"a token with a blank", "(<opaquelocktoken:T 1>)"},
        {"an entity tag without quotes", "([e1])"},
        {"an entity tag that does not end", "([\"e1])"},
        {"an entity tag without its bracket", "([\"e1\")"},
        {"a bare word", "hello"},
        {"a token outside a list", "<opaquelocktoken:T1>"},
        {"a tag without a list", "</Ferro/v/a>"},
        {"two tags in a row", "</Ferro/v/a> </Ferro/v/b> (<opaquelocktoken:T1>)"},
        {"a tagged list behind an untagged one", "(<opaquelocktoken:T1>) </Ferro/v/b> (<x:y>)"},
        {"a tag with a malformed escape", "</Ferro/%zz> (<opaquelocktoken:T1>)"},
        {"a relative tag", "<v/a> (<opaquelocktoken:T1>)"},
        {"Not without a condition", "(Not)"},
        {"text behind the list", "(<opaquelocktoken:T1>) x"},
    };
    for (const auto& [why, text] : rows)
        EXPECT_FALSE(IfHeader::Parse(text).has_value()) << why << ": " << text;
}

TEST(IfHeader, ConditionsHoldAsTheStateSays)
{
    const struct {
        const char* why;
        const char* text;
        bool holds;
    } rows[] = {
        {"the resource's own token", "(<opaquelocktoken:T1>)", true},
        {"another resource's token", "(<opaquelocktoken:T2>)", false},
        {"the scheme's letter case does not count", "(<OpaqueLockToken:T1>)", true},
        {"the token's letter case does", "(<opaquelocktoken:t1>)", false},
        {"a negated wrong token", "(Not <opaquelocktoken:T2>)", true},
        {"a negated right token", "(Not <opaquelocktoken:T1>)", false},
        {"DAV:no-lock matches nothing", "(<DAV:no-lock>)", false},
        {"Not DAV:no-lock is always true", "(Not <DAV:no-lock>)", true},
        {"the entity tag", "([\"e1\"])", true},
        {"another entity tag", "([\"e2\"])", false},
        {"a weak entity tag is not the strong one", "([W/\"e1\"])", false},
        {"all conditions of a list must hold", "(<opaquelocktoken:T1> [\"e2\"])", false},
        {"and here they do", "(<opaquelocktoken:T1> [\"e1\"])", true},
        {"no blanks are needed", "(<opaquelocktoken:T1>[\"e1\"])", true},
        {"Not needs no blank either", "(Not<opaquelocktoken:T2>)", true},
        {"one list that holds is enough", "(<opaquelocktoken:T2>) (Not <DAV:no-lock>)", true},
        {"no list holds", "(<opaquelocktoken:T2>) (<opaquelocktoken:T3>)", false},
        {"a tagged list is about its resource", "</Ferro/v/b> (<opaquelocktoken:T2>)", true},
        {"and not about the request's", "</Ferro/v/b> (<opaquelocktoken:T1>)", false},
        {"an absolute URL counts by its path",
         "<http://any.host:81/Ferro/v/b> (<opaquelocktoken:T2>)", true},
        {"a tag is percent-decoded", "</Ferro/v/%62> (<opaquelocktoken:T2>)", true},
        {"two tagged lists, the second holds",
         "</Ferro/v/a> (<opaquelocktoken:T2>) </Ferro/v/b> (<opaquelocktoken:T2>)", true},
        {"two lists of one tag", "</Ferro/v/b> (<opaquelocktoken:T1>) (<opaquelocktoken:T2>)",
         true},
        {"blanks around everything", "  ( <opaquelocktoken:T1>  [ \"e1\" ] )  ", true},
    };
    World world = TheWorld();
    for (const auto& row : rows) {
        const auto header = IfHeader::Parse(row.text);
        ASSERT_TRUE(header.has_value()) << row.why;
        EXPECT_EQ(header->Evaluate("/Ferro/v/a", world), row.holds) << row.why << ": " << row.text;
    }
}

TEST(IfHeader, SubmitsTheTokensThatAreNotNegated)
{
    const auto header =
        IfHeader::Parse("</a> (<opaquelocktoken:T1> [\"e\"]) (Not <opaquelocktoken:T2>)"
                        "</b> (<opaquelocktoken:T3> <DAV:no-lock>)");
    ASSERT_TRUE(header.has_value());
    EXPECT_THAT(header->SubmittedTokens(), ElementsAre("T1", "T3"));
}

// Cutting a good header anywhere must give a refusal or a shorter good header, and never read past
// the end.
TEST(IfHeader, SurvivesEveryPrefixOfAHeader)
{
    const std::string text =
        "<http://h/Ferro/v/a> (Not <opaquelocktoken:T1> [W/\"e1\"]) (<DAV:no-lock>)";
    for (size_t length = 0; length < text.size(); ++length) {
        const std::string exact(text.data(), length); // its own allocation, so that overruns show
        const auto header = IfHeader::Parse(exact);
        const bool endsBehindAList = length > 0 && text[length - 1] == ')';
        const bool endsInBlanksBehindAList =
            length > 1 && text[length - 1] == ' ' && text[length - 2] == ')';
        EXPECT_EQ(header.has_value(), endsBehindAList || endsInBlanksBehindAList) << exact;
    }
}

TEST(PathOfResourceTag, GivesThePathBehindTheAuthority)
{
    const std::pair<const char*, const char*> rows[] = {
        {"http://host/Ferro/v/a", "/Ferro/v/a"},
        {"https://[::1]:8443/x", "/x"},
        {"http://host", "/"},
        {"/Ferro/v/a%20b", "/Ferro/v/a b"},
        {"/a?query#fragment", "/a"},
        {"webdav://h/a%2Fb", "/a/b"},
        {"http://host/%F0%9F%98%80", "/\xF0\x9F\x98\x80"},
    };
    for (const auto& [tag, path] : rows)
        EXPECT_EQ(PathOfResourceTag(tag), path) << tag;
    for (const char* tag : {"", "a/b", "://x/y", "mailto:a", "/a%", "/a%2", "/a%g0"})
        EXPECT_FALSE(PathOfResourceTag(tag).has_value()) << tag;
}
