// SPDX-License-Identifier: Apache-2.0
//
// PUT and MKCOL.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kCreated[] = "201\nContent-Length: 0\n\n";

class Put : public testing::Test {
  protected:
    void SetUp() override
    {
        world.Remember("/Ferro/gen2");
        world.Remember("/Ferro/gen1");
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

TEST_F(Put, StoresTheBodyPieceByPiece)
{
    const Reply reply =
        world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"hello ", "", "world"}));
    EXPECT_EQ(reply.text, kCreated);
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), "hello world");
    EXPECT_THAT(
        world.Calls({"gen2.", "io."}),
        ElementsAre("io.GetUrl()", "gen2.Create(IKestDAVResource2)", "io.GetRequestHeader(If)",
                    "gen2.res.Associate(/gen2/a, create=1, access=7, share=1, flags=0, token=null)",
                    "io.ReadClientPayload(262144)", "gen2.res.Write(0, 6)",
                    "io.ReadClientPayload(262144)", "gen2.res.Write(6, 0)",
                    "io.ReadClientPayload(262144)", "gen2.res.Write(6, 5)",
                    "io.ReadClientPayload(262144)", "io.SetReplyHeader(Content-Length, \"0\")",
                    "io.SendHeader(201)"));
    world.ExpectAtRest();
}

TEST_F(Put, OnTheFirstGeneration_PassesNoToken)
{
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen1/a")
                                      .Header("If", "(<opaquelocktoken:abc>)")
                                      .Body({"x"}));
    EXPECT_EQ(reply.text, kCreated);
    EXPECT_THAT(world.Calls({"gen1."}),
                ElementsAre("gen1.Create(IKestDAVResource)",
                            "gen1.res.Associate(/gen1/a, create=1, access=7, share=1, flags=0)",
                            "gen1.res.Write(0, 1)"));
}

TEST_F(Put, OnTheSecondGeneration_PassesTheToken)
{
    world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Header("If", "(<opaquelocktoken:abc>)"));
    EXPECT_THAT(
        world.Calls({"gen2.res.Associate"}),
        ElementsAre(
            "gen2.res.Associate(/gen2/a, create=1, access=7, share=1, flags=0, token=abc)"));
}

TEST_F(Put, WithAnEmptyBody_CreatesAnEmptyResource)
{
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/gen2/a")).text, kCreated);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), "");
}

TEST_F(Put, OverAnExistingResource_Answers201)
{
    world["gen2"].AddFile("/gen2/a", "the old and longer content");
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"new"})).text, kCreated);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), "new");
}

TEST_F(Put, ToTheModulesRoot_Answers403)
{
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro").Body({"x"}));
    EXPECT_EQ(reply.text, "403\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_ACCESS_DENIED);
    EXPECT_EQ(reply.bodyReads, 0U);
}

TEST_F(Put, ToAnyPathOfTheMonikersLength_Answers403)
{
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/gen2/")).text, // cut to five letters and more
              "404\nContent-Length: 0\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/gen2a")).text, "403\nContent-Length: 0\n\n");
}

TEST_F(Put, WhereNothingResolves_IsMapped)
{
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/none/a")).text,
              "404\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

TEST_F(Put, WriteThatTakesLess_MovesTheOffsetByWhatWasTaken)
{
    world["gen2"].writeLimit = 3;
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"hello", "x"})).text,
              kCreated);
    EXPECT_THAT(world.Calls({"gen2.res.Write"}),
                ElementsAre("gen2.res.Write(0, 5)", "gen2.res.Write(3, 1)"));
}

// Only a failure ends the transfer; the last write's status is the request's.
TEST_F(Put, WriteWithAnInformationalStatus_GoesOn)
{
    world.Fail("gen2.res.Write", TAL_STATUS_INFO_END_OF_FILE, 2); // takes no byte
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"a", "b"}));
    EXPECT_EQ(reply.text, kCreated);
    EXPECT_EQ(reply.returned, TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), "a");
}

TEST_F(Put, IgnoresWhatTheHeadSaysOfTheBody)
{
    EXPECT_EQ(world
                  .Run(Request(KestMethodPut, "/Ferro/gen2/a")
                           .Header("Content-Length", "3")
                           .Header("Content-Type", "text/plain")
                           .Header("Transfer-Encoding", "chunked")
                           .Body({"more than three"}))
                  .text,
              kCreated);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), "more than three");
    EXPECT_THAT(world.Calls({"io.GetRequestHeader", "io.IsClientPayloadAvailable"}),
                ElementsAre("io.GetRequestHeader(If)"));
}

// Halves are tried as long as they hold 1024 bytes, whatever the size began with.
TEST_F(Put, BlockSizeThatIsNoPowerOfTwo_IsHalvedDownTo1024)
{
    World odd{{{.name = "gen2"}}, {.moduleValues = "'Read-Write Block Size' = 3000"}};
    odd.Remember("/Ferro/gen2");
    odd.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    EXPECT_EQ(odd.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"x"})).text, kCreated);
    EXPECT_EQ(odd.Calls({"io.ReadClientPayload"}).front(), "io.ReadClientPayload(1500)");
    odd.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    odd.Fail("platform.TalxAllocPagedMemory", kInjected, 2); // 750 is not tried
    EXPECT_EQ(odd.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"x"})).text,
              "507\nContent-Length: 0\n\n");
}

struct FailureRow {
    const char* name;
    const char* call;
    TALSTATUS status;
    const char* reply;
};

class PutFailure : public Put, public testing::WithParamInterface<FailureRow> {};

TEST_P(PutFailure, IsMappedWithoutABody)
{
    for (const std::string generation : {"gen2", "gen1"}) {
        SCOPED_TRACE(generation);
        std::string call = GetParam().call;
        if (call.starts_with("gen."))
            call.replace(0, 3, generation);
        world.recorder.Clear();
        world.Fail(call, GetParam().status);
        const Reply reply =
            world.Run(Request(KestMethodPut, "/Ferro/" + generation + "/a").Body({"x", "y"}));
        EXPECT_EQ(reply.text, std::string(GetParam().reply) + "\nContent-Length: 0\n\n");
        EXPECT_EQ(reply.returned, GetParam().status);
        world.ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, PutFailure,
    testing::Values(
        FailureRow{"Create", "gen.Create", ProviderFailure(kCodeInsufficientResources), "507"},
        FailureRow{"Locked", "gen.res.Associate", ProviderFailure(kCodeLocked), "423"},
        FailureRow{"NoParent", "gen.res.Associate", ProviderFailure(kCodeConflict), "409"},
        FailureRow{"Write", "gen.res.Write", ProviderFailure(kCodeStorageFull), "507"},
        FailureRow{"SlowClient", "io.ReadClientPayload", MakeStatus(kFacilityHost, kCodeTimeout),
                   "408"},
        FailureRow{"ClientGone", "io.ReadClientPayload",
                   MakeStatus(kFacilityHost, kCodeUnsuccessful), "417"},
        FailureRow{"InformationalRead", "io.ReadClientPayload", 0x47BE0006, "403"}),
    [](const auto& row) { return row.param.name; });

TEST_F(Put, BodyThatEndsInTheMiddle_IsAFailure)
{
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a")
                                      .Body({"half"})
                                      .BodyEndsWith(MakeStatus(kFacilityHost, kCodeTimeout)));
    EXPECT_EQ(reply.text, "408\nContent-Length: 0\n\n");
}

TEST_F(Put, AnyStatusWithTheEndOfFileCode_EndsTheBody)
{
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a")
                                      .Body({"all"})
                                      .BodyEndsWith(TAL_STATUS_INFO_END_OF_FILE));
    EXPECT_EQ(reply.text, kCreated);
}

TEST_F(Put, UnderMemoryPressure_HalvesItsBuffer)
{
    // The first allocation is the path's.
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"x"}));
    EXPECT_EQ(reply.text, kCreated);
    EXPECT_THAT(world.Calls({"io.ReadClientPayload"}),
                ElementsAre("io.ReadClientPayload(65536)", "io.ReadClientPayload(65536)"));
    world.ExpectAtRest();
}

TEST_F(Put, WithoutMemoryForTheLeastBuffer_Answers507)
{
    for (int i = 0; i < 9; ++i) // 262144 down to 1024
        world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"x"}));
    EXPECT_EQ(reply.text, "507\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(reply.bodyReads, 0U);
    world.ExpectAtRest();
}

TEST_F(Put, WithMemoryForTheLeastBuffer_StillStores)
{
    for (int i = 0; i < 8; ++i)
        world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({"x"}));
    EXPECT_EQ(reply.text, kCreated);
    EXPECT_THAT(world.Calls({"io.ReadClientPayload"}),
                ElementsAre("io.ReadClientPayload(1024)", "io.ReadClientPayload(1024)"));
}

TEST_F(Put, LargerThanItsBuffer_IsStoredInBlocks)
{
    const std::string body(600000, 'b');
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/gen2/a").Body({body})).text, kCreated);
    EXPECT_EQ(world["gen2"].Content("/gen2/a"), body);
    EXPECT_THAT(world.Calls({"gen2.res.Write"}),
                ElementsAre("gen2.res.Write(0, 262144)", "gen2.res.Write(262144, 262144)",
                            "gen2.res.Write(524288, 75712)"));
}

class MkCol : public Put {};

TEST_F(MkCol, CreatesACollection)
{
    const Reply reply = world.Run(Request(KestMethodMkCol, "/Ferro/gen2/c/"));
    EXPECT_EQ(reply.text, "201\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls({"gen2."}), ElementsAre("gen2.MkCol(/gen2/c, token=null)"));
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/gen1/c")).text, "201\n\n");
    EXPECT_THAT(world.Calls({"gen1."}), ElementsAre("gen1.MkCol(/gen1/c)"));
    world.ExpectAtRest();
}

TEST_F(MkCol, NeverReadsATokenOrABody)
{
    const Reply reply = world.Run(Request(KestMethodMkCol, "/Ferro/gen2/c")
                                      .Header("If", "(<opaquelocktoken:abc>)")
                                      .Body({"ignored"}));
    EXPECT_EQ(reply.text, "201\n\n");
    EXPECT_THAT(world.Calls({"io."}), ElementsAre("io.GetUrl()", "io.SendHeader(201)"));
}

TEST_F(MkCol, OnAnExistingCollection_Answers405)
{
    world["gen2"].AddCollection("/gen2/c");
    const Reply reply = world.Run(Request(KestMethodMkCol, "/Ferro/gen2/c"));
    EXPECT_EQ(reply.text, "405\n\n");
    EXPECT_EQ(Code(reply.returned), kCodeObjectExists);
}

TEST_F(MkCol, WithoutItsParent_IsMapped)
{
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/gen2/no/c")).text, "409\n\n");
}

TEST_F(MkCol, OfTheModulesRoot_Answers403)
{
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro")).text, "403\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/gen2x")).text, "403\n\n");
    EXPECT_THAT(world.Calls({"gen2."}), IsEmpty());
}

TEST_F(MkCol, WhereNothingResolves_IsMapped)
{
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/none/c")).text, "404\n\n");
    world.ExpectAtRest();
}

// The code counts, whatever its facility.
TEST_F(MkCol, AnyFailureWithTheExistsCode_Answers405)
{
    for (const std::string generation : {"gen2", "gen1"}) {
        world.Fail(generation + ".MkCol", 0xC7A30016);
        EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/" + generation + "/c")).text,
                  "405\n\n");
        world.Fail(generation + ".MkCol", ProviderFailure(kCodeStorageFull));
        EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/" + generation + "/c")).text,
                  "507\n\n");
    }
    world.Fail("gen2.MkCol", 0x00000016);
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/gen2/c")).text, "201\n\n")
        << "a status that does not fail";
}

} // namespace
