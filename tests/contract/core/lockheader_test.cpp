// SPDX-License-Identifier: Apache-2.0
//
// The lock token of the "If" request header, seen where PUT hands it to the provider.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::Reply;
using harness::Request;
using harness::World;

namespace {

// The token that a PUT with this "If" header passes to the provider.
std::string TokenOf(World& world, const std::string& header)
{
    world.recorder.Clear();
    Request request(KestMethodPut, "/Ferro/gen2/a");
    request.Header("If", header);
    const Reply reply = world.Run(request);
    EXPECT_EQ(reply.text, "201\nContent-Length: 0\n\n");
    world.ExpectAtRest();
    const auto calls = world.Calls({"gen2.res.Associate"});
    if (calls.size() != 1)
        return "(no call)";
    const std::string& call = calls.front();
    const size_t at = call.find("token=") + 6;
    return call.substr(at, call.size() - 1 - at);
}

class LockHeader : public testing::Test {
  protected:
    void SetUp() override { world.Remember("/Ferro/gen2"); }
    World world{{{.name = "gen2"}}};
};

const std::string k127(127, 't');
const std::string k128(128, 't');

TEST_F(LockHeader, Token_IsTheTextBetweenColonAndBracket)
{
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:abc>)"), "abc");
    EXPECT_EQ(TokenOf(world, "  (  <opaquelocktoken:a-b:c> [\"etag\"])"), "a-b:c");
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:>)"), "") << "an empty token is one";
}

TEST_F(LockHeader, FirstColon_MayStandBeforeTheToken)
{
    EXPECT_EQ(TokenOf(world, "<http://host/x> (<opaquelocktoken:abc>)"), "//host/x");
}

TEST_F(LockHeader, WithoutTheScheme_ThereIsNoToken)
{
    EXPECT_EQ(TokenOf(world, "(<urn:uuid:abc>)"), "null");
    EXPECT_EQ(TokenOf(world, "(<OpaqueLockToken:abc>)"), "null") << "the case counts";
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken>)"), "null") << "no colon";
    EXPECT_EQ(TokenOf(world, ""), "null");
}

TEST_F(LockHeader, Unclosed_EndsWithTheHeader)
{
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:abc"), "abc");
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:"), "");
}

TEST_F(LockHeader, LongHeader_IsReadTwiceAndSearchedInItsFirst128Bytes)
{
    const std::string filler(200, 'x');
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:abc>) " + filler), "abc");
    EXPECT_EQ(world.recorder.Count("io.GetRequestHeader"), 2);
    // The token lies behind the bytes that are searched.
    EXPECT_EQ(TokenOf(world, filler + "(<opaquelocktoken:abc>)"), "null");
    // Its colon lies before, its end behind them.
    EXPECT_EQ(TokenOf(world, "(<opaquelocktoken:" + std::string(150, 'y') + ">)"),
              std::string(128 - 18, 'y'));
}

TEST_F(LockHeader, ColonInTheFirstBytesOfALongHeader_CountsEvenForALaterToken)
{
    EXPECT_EQ(
        TokenOf(world, "<http://host/x> " + std::string(150, ' ') + "(<opaquelocktoken:abc>)"),
        "//host/x");
}

TEST_F(LockHeader, HostThatLeavesNothingOfALongHeader_MeansNoToken)
{
    world.Fail("io.GetRequestHeader", MakeStatus(kFacilityHost, kCodeBufferTooSmall));
    Request request(KestMethodPut, "/Ferro/gen2/a");
    request.Header("If", "(<opaquelocktoken:abc>)");
    EXPECT_EQ(world.Run(request).text, "201\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}),
                testing::ElementsAre(testing::HasSubstr("token=null")));
}

TEST_F(LockHeader, FailingSecondRead_MeansNoToken)
{
    world.recorder.Clear();
    world.Fail("io.GetRequestHeader", kInjected, 2);
    Request request(KestMethodPut, "/Ferro/gen2/a");
    request.Header("If", "(<opaquelocktoken:abc>)" + std::string(200, ' '));
    EXPECT_EQ(world.Run(request).text, "201\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}),
                testing::ElementsAre(testing::HasSubstr("token=null")));
}

TEST_F(LockHeader, WithoutMemoryForALongHeader_ThereIsNoToken)
{
    world.recorder.Clear();
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2); // the first is the path's
    Request request(KestMethodPut, "/Ferro/gen2/a");
    request.Header("If", "(<opaquelocktoken:abc>)" + std::string(200, ' '));
    EXPECT_EQ(world.Run(request).text, "201\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}),
                testing::ElementsAre(testing::HasSubstr("token=null")));
    world.ExpectAtRest();
}

// HEAD's and GET's rooms are the same 128 bytes; no header of at most 128 bytes can hold a token of
// 128, so the refusal shows where the search began early in a long one.
TEST_F(LockHeader, TokenAsLongAsItsRoom_IsRefused)
{
    EXPECT_EQ(TokenOf(world, ":" + k127 + "> opaquelocktoken"), k127);
    EXPECT_EQ(TokenOf(world, std::string(1, ':') + k128 + "> opaquelocktoken"), k127)
        << "cut at the searched bytes";
}

TEST(LockHeaderOfTheFirstGeneration, IsNotRead)
{
    World world({{.name = "gen1", .generations = 1}});
    world.Remember("/Ferro/gen1");
    Request request(KestMethodPut, "/Ferro/gen1/a");
    request.Header("If", "(<opaquelocktoken:abc>)");
    EXPECT_EQ(world.Run(request).text, "201\nContent-Length: 0\n\n");
    EXPECT_EQ(world.recorder.Count("io.GetRequestHeader"), 0);
}

} // namespace
