// SPDX-License-Identifier: Apache-2.0
//
// Routing by method code, the request path, and OPTIONS.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kOptionsReply[] =
    "200\n"
    "Content-Length: 0\n"
    "Public: OPTIONS, TRACE, GET, HEAD, DELETE, PUT, POST, COPY, MOVE, MKCOL, PROPFIND, PROPPATCH, "
    "LOCK, UNLOCK, SEARCH\n"
    "Allow: OPTIONS, TRACE, GET, HEAD, DELETE, COPY, MOVE, PROPFIND, PROPPATCH, SEARCH, MKCOL, "
    "LOCK, UNLOCK\n"
    "DAV: 1, 2\n"
    "\n";

TEST(Options, AnswersTheSameEverywhere)
{
    World world({{.name = "gen2"}});
    world.Remember("/Ferro/gen2");
    for (const char* path : {"/Ferro", "/Ferro/gen2", "/Ferro/none/at/all", "/"}) {
        SCOPED_TRACE(path);
        const Reply reply = world.Run(Request(KestMethodOptions, path));
        EXPECT_EQ(reply.text, kOptionsReply);
        EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    }
    EXPECT_THAT(world.Calls({"gen2."}), IsEmpty()) << "no provider is asked";
}

TEST(Options, ReturnsWhatTheHeadReturned)
{
    World world;
    world.Fail("io.SendHeader", kInjected);
    EXPECT_EQ(world.Run(Request(KestMethodOptions, "/Ferro")).returned, kInjected);
}

TEST(Dispatcher, NullRequest_IsRefusedAtOnce)
{
    World world;
    EXPECT_EQ(world.module->RequestHandler(nullptr, harness::SessionHandle(1), KestMethodGet),
              TAL_STATUS_INVALID_PARAMETER);
    EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST(Dispatcher, FailingGetUrl_IsMapped)
{
    World world;
    world.Fail("io.GetUrl", TAL_STATUS_NOT_FOUND);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro"));
    EXPECT_EQ(reply.text, "404\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NOT_FOUND);
    EXPECT_THAT(world.Calls({"sa."}), IsEmpty());
}

TEST(Dispatcher, InformationalGetUrl_IsAFailureToo)
{
    World world;
    world.Fail("io.GetUrl", TAL_STATUS_INFO_END_OF_FILE);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro"));
    EXPECT_EQ(reply.text, "417\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INFO_END_OF_FILE);
}

TEST(Dispatcher, WithoutMemoryForThePath_Answers507)
{
    World world;
    world.Fail("platform.TalxAllocPagedMemory", kInjected);
    const Reply reply = world.Run(Request(KestMethodOptions, "/Ferro"));
    EXPECT_EQ(reply.text, "507\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
}

TEST(Dispatcher, WithoutSessionState_Answers405)
{
    World world;
    world.Fail("sa.SACreate", kInjected);
    const Reply reply = world.Run(Request(KestMethodOptions, "/Ferro"));
    EXPECT_EQ(reply.text, "405\n\n");
    EXPECT_EQ(reply.returned, kInjected);
    world.ExpectAtRest();
}

TEST(Dispatcher, MethodsThatTheHostNumbersButNobodyServes_Answer501)
{
    World world;
    for (const UINT32 method : {4U, 6U}) {
        const Reply reply = world.Run(Request(method, "/Ferro"));
        EXPECT_EQ(reply.text, "501\n\n");
        EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    }
}

TEST(Dispatcher, MethodThatNobodyServes_ReturnsTheSessionsStatus)
{
    World world;
    world.Fail("sa.SACreate", TAL_STATUS_INFO_END_OF_FILE);
    const Reply reply = world.Run(Request(4, "/Ferro"));
    EXPECT_EQ(reply.text, "501\n\n") << "informational is no failure";
    EXPECT_EQ(reply.returned, TAL_STATUS_INFO_END_OF_FILE);
}

TEST(Dispatcher, UnknownMethods_Answer400)
{
    World world;
    for (const UINT32 method : {15U, 16U, 20U, 25U, 26U, 28U, 29U, 1000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(method);
        const Reply reply = world.Run(Request(method, "/Ferro"));
        EXPECT_EQ(reply.text, "400\nContent-Length: 0\n\n");
        EXPECT_EQ(reply.returned, TAL_STATUS_NOT_SUPPORTED);
    }
    world.ExpectAtRest();
}

TEST(Dispatcher, HeadIsServed)
{
    World world({{.name = "gen2"}});
    EXPECT_EQ(world.Run(Request(27, "/Ferro/gen2")).text.substr(0, 3), "200");
}

TEST(Dispatcher, MethodSeven_IsPropPatch)
{
    World world({{.name = "gen2"}});
    world["gen2"].AddFile("/gen2/a", "x");
    world.Remember("/Ferro/gen2");
    const Request patch = Request(9, "/Ferro/gen2/a").Body({"<x/>"});
    const Reply nine = world.Run(patch);
    const auto calls = world.Calls();
    world.recorder.Clear();
    Request other = patch;
    other.method = 7;
    const Reply seven = world.Run(other);
    EXPECT_EQ(seven.text, nine.text);
    EXPECT_EQ(world.Calls(), calls);
}

struct PathRow {
    const char* name;
    const char* sent;
    const char* seen;
};

class RequestPath : public testing::TestWithParam<PathRow> {};

TEST_P(RequestPath, LosesOneTrailingSlash)
{
    World world({{.name = "gen2"}});
    world.Run(Request(KestMethodHead, GetParam().sent));
    EXPECT_THAT(world.Calls({"gen2.GetType"}), Contains(GetParam().seen));
}

INSTANTIATE_TEST_SUITE_P(Rows, RequestPath,
                         testing::Values(PathRow{"None", "/Ferro/a/b", "gen2.GetType(/a/b)"},
                                         PathRow{"One", "/Ferro/a/b/", "gen2.GetType(/a/b)"},
                                         PathRow{"Two", "/Ferro/a/b//", "gen2.GetType(/a/b/)"},
                                         PathRow{"Root", "/Ferro/", "gen2.GetType()"}),
                         [](const auto& row) { return row.param.name; });

TEST(RequestPath, Slash_BecomesEmpty)
{
    World world({{.name = "gen2"}});
    world["gen2"].serveRoot = true;
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/")).heads, 1);
    EXPECT_THAT(world.Calls({"gen2.GetType"}), Contains("gen2.GetType()"));
}

TEST(RequestPath, OfTheGreatestRoom_IsTakenWhole)
{
    World world({{.name = "gen2"}});
    Request request(KestMethodHead, "/Ferro/gen2");
    request.spareUnits = 0xFFFE / 2 - request.path.size();
    EXPECT_EQ(world.Run(request).text.substr(0, 3), "200");
    request.spareUnits = 0;
    EXPECT_EQ(world.Run(request).text.substr(0, 3), "200");
    world.ExpectAtRest();
}

} // namespace
