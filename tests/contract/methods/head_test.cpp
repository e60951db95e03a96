// SPDX-License-Identifier: Apache-2.0
//
// HEAD.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Head : public testing::Test {
  protected:
    void SetUp() override
    {
        for (const std::string name : {"gen2", "gen1"}) {
            world[name].AddFile("/" + name + "/f.txt", "hello");
            world[name].AddCollection("/" + name + "/c");
            world.Remember("/Ferro/" + name);
        }
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

TEST_F(Head, OfAResource_HasTheEntityHeaders)
{
    for (const char* path : {"/Ferro/gen2/f.txt", "/Ferro/gen1/f.txt"})
        EXPECT_EQ(world.Run(Request(KestMethodHead, path)).text,
                  "200\n"
                  "Content-Type: text/plain\n"
                  "Last-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
                  "Accept-Ranges: bytes\n"
                  "Content-Length: 5\n\n");
    EXPECT_THAT(world.Calls({"gen2.", "gen1."}),
                ElementsAre("gen2.GetType(/gen2/f.txt)", "gen2.Create(IKestDAVResource2)",
                            "gen2.res.Associate(/gen2/f.txt, create=0, access=3, share=3, flags=0, "
                            "token=null)",
                            "gen2.res.GetResourceSize()", "gen2.res.GetModificationDate()",
                            "gen1.GetType(/gen1/f.txt)", "gen1.Create(IKestDAVResource)",
                            "gen1.res.Associate(/gen1/f.txt, create=0, access=3, share=1, flags=0)",
                            "gen1.res.GetResourceSize()", "gen1.res.GetModificationDate()"));
    world.ExpectAtRest();
}

TEST_F(Head, OfACollection_HasItsDateAlone)
{
    for (const char* path : {"/Ferro/gen2/c", "/Ferro/gen1/c"})
        EXPECT_EQ(world.Run(Request(KestMethodHead, path)).text,
                  "200\nLast-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n\n");
    EXPECT_THAT(world.Calls({"gen2.", "gen1."}),
                ElementsAre("gen2.GetType(/gen2/c)", "gen2.Create(IKestDAVCollection2)",
                            "gen2.col.Associate(/gen2/c, token=null)",
                            "gen2.col.GetModificationDate()", "gen1.GetType(/gen1/c)",
                            "gen1.Create(IKestDAVCollection)", "gen1.col.Associate(/gen1/c)",
                            "gen1.col.GetModificationDate()"));
    world.ExpectAtRest();
}

TEST_F(Head, IgnoresRangeAndCondition)
{
    const Reply reply =
        world.Run(Request(KestMethodHead, "/Ferro/gen2/f.txt")
                      .Header("Range", "bytes=0-1")
                      .Header("If-Modified-Since", "Sat, 31 Jan 2026 12:00:00 GMT"));
    EXPECT_THAT(reply.text, HasSubstr("200\n"));
    EXPECT_THAT(reply.text, HasSubstr("Content-Length: 5\n"));
    EXPECT_THAT(world.Calls({"io.GetRequestHeader"}), ElementsAre("io.GetRequestHeader(If)"));
}

TEST_F(Head, Missing_Answers404WithoutALength)
{
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2/none")).text, "404\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/none")).text, "404\n\n");
}

TEST_F(Head, AnyFailureOfTheProvider_Answers404)
{
    for (const std::string generation : {"gen2", "gen1"}) {
        for (const char* call : {".GetType", ".Create", ".res.Associate", ".res.GetResourceSize",
                                 ".res.GetModificationDate"}) {
            SCOPED_TRACE(generation + call);
            world.Fail(generation + call, ProviderFailure(kCodeLocked));
            EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/" + generation + "/f.txt")).text,
                      "404\n\n");
            world.ExpectAtRest();
        }
        for (const char* call : {".Create", ".col.Associate"}) {
            SCOPED_TRACE(generation + call);
            world.Fail(generation + call, ProviderFailure(kCodeLocked));
            EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/" + generation + "/c")).text,
                      "404\n\n");
            world.ExpectAtRest();
        }
    }
}

struct TokenRow {
    const char* name;
    std::string header;
    const char* token;
};

class HeadToken : public Head, public testing::WithParamInterface<TokenRow> {};

TEST_P(HeadToken, IsItsOwnReadingOfTheHeader)
{
    world.Run(Request(KestMethodHead, "/Ferro/gen2/f.txt").Header("If", GetParam().header));
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}), ElementsAre(HasSubstr(GetParam().token)));
    EXPECT_EQ(world.recorder.Count("io.GetRequestHeader"), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, HeadToken,
    testing::Values(TokenRow{"Plain", "(<opaquelocktoken:abc>)", "token=abc)"},
                    TokenRow{"FirstColon", "<http://h> (<opaquelocktoken:abc>)", "token=//h)"},
                    TokenRow{"OtherScheme", "(<urn:uuid:abc>)", "token=null)"},
                    TokenRow{"NoColon", "opaquelocktoken", "token=null)"},
                    TokenRow{"Empty", "(<opaquelocktoken:>)", "token=null)"},
                    TokenRow{"Unclosed", "(<opaquelocktoken:abc", "token=abc)"},
                    TokenRow{"TooLong", "(<opaquelocktoken:abc>)" + std::string(128, ' '),
                             "token=null)"}),
    [](const auto& row) { return row.param.name; });

TEST_F(Head, OfTheModulesRoot_AsksTheProvidersForTheEmptyPath)
{
    world["gen2"].serveRoot = true;
    world["gen2"].AddCollection("");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro")).text,
              "200\nLast-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n\n");
}

TEST_F(Head, DateThatCannotBeWritten_IsLeftOut)
{
    world.Fail("util.SystemTimeToHttpTime", kInjected);
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2/c")).text, "200\n\n");
}

} // namespace
