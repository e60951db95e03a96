// SPDX-License-Identifier: Apache-2.0
//
// PUT and PATCH in the standard dialect: whole or part, published or nothing.
#include "fixture.h"

namespace standard_tests {

namespace {

const std::string kCreated = std::string("201\n") + kNew + "Content-Length: 0\n\n";
const std::string kReplaced = std::string("204\n") + kChanged + "\n";

constexpr char kFileMethods[] = "Allow: OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, "
                                "COPY, MOVE, LOCK, UNLOCK\n";

class StandardPut : public Standard {
  protected:
    Request Put(const std::string& name = "f.txt", std::vector<std::string> body = {"new"})
    {
        return Request(KestMethodPut, "/Ferro/gen3/" + name).Body(std::move(body));
    }
    std::string Content(const std::string& name = "f.txt")
    {
        return world["gen3"].Content("/gen3/" + name);
    }
};

TEST_F(StandardPut, OfANewFile_Answers201)
{
    EXPECT_EQ(Run(Put("n", {"some", " text"}).Header("Content-Length", "9")), kCreated);
    EXPECT_EQ(Content("n"), "some text");
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.res3.Open(/gen3/n, replace, 9, -)", "gen3.res3.Write(0, 4)",
                            "gen3.res3.Write(4, 5)", "gen3.res3.Publish()"));
}

TEST_F(StandardPut, OverAFile_Answers204)
{
    EXPECT_EQ(Run(Put()), kReplaced);
    EXPECT_EQ(Content(), "new");
    EXPECT_THAT(Changes(), testing::Contains("gen3.res3.Open(/gen3/f.txt, replace, ?, -)"));
}

TEST_F(StandardPut, WithoutABody_MakesAnEmptyFile)
{
    EXPECT_EQ(Run(Put("n", {}).Header("Content-Length", "0")), kCreated);
    EXPECT_EQ(Content("n"), "");
}

TEST_F(StandardPut, WithoutItsParent_Answers409)
{
    EXPECT_EQ(Run(Put("no/n")), Plain("409"));
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/nowhere/n").Body({"x"})), Plain("409"));
}

// The provider knows no names that do not exist, and the session none of its names.
TEST_F(StandardPut, OfANewFileInANewSession_IsTheNearestCollectionsProviders)
{
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/other/n").Body({"x"}).Session(7)), kCreated);
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/other/no/n").Body({"x"}).Session(8)),
              Plain("409"));
    EXPECT_THAT(world.Calls({"other.res3.Open"}),
                testing::Contains("other.res3.Open(/other/no/n, replace, ?, -)"))
        << "which says itself what is wrong";
    EXPECT_EQ(Run(Request(KestMethodMkCol, "/Ferro/other/c/m").Session(9)), Plain("201"));
}

TEST_F(StandardPut, OntoACollection_Answers405)
{
    EXPECT_EQ(Run(Put("c")), Plain("405", kFileMethods));
    EXPECT_TRUE(world["gen3"].Has("/gen3/c/a"));
}

TEST_F(StandardPut, OfANameWithASlash_Answers405)
{
    EXPECT_EQ(Run(Put("n/")), Plain("405", "Allow: OPTIONS, MKCOL, LOCK\n"));
    EXPECT_EQ(Run(Put("c/")), Plain("405", kFileMethods));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n"));
}

TEST_F(StandardPut, OfTheRootOrBesideTheVolumes)
{
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro").Body({"x"})),
              Plain("405", "Allow: OPTIONS, GET, HEAD, POST, PROPFIND\n"));
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/nowhere").Body({"x"})), Plain("403"));
}

TEST_F(StandardPut, ConditionsAreJudgedInTheChange)
{
    EXPECT_EQ(Run(Put().Header("If-None-Match", "*")), Plain("412"));
    EXPECT_EQ(Run(Put().Header("If-Match", "\"v9\"")), Plain("412"));
    EXPECT_EQ(Run(Put().Header("If-Unmodified-Since", "Sat, 31 Jan 2026 11:00:00 GMT")),
              Plain("412"));
    EXPECT_EQ(Run(Put("n").Header("If-Match", "*")), Plain("412"));
    EXPECT_EQ(Run(Put().Header("If-Match", "")), Plain("412")) << "names nothing";
    EXPECT_EQ(Content(), "hello world");
    EXPECT_EQ(Run(Put("n").Header("If-None-Match", "*")), kCreated);
    EXPECT_EQ(Run(Put().Header("If-Match", "\"v1\"")), kReplaced);
    EXPECT_THAT(world.Calls({"gen3.res3.Open"}),
                testing::Contains("gen3.res3.Open(/gen3/f.txt, replace, ?, match=\"v1\")"));
}

TEST_F(StandardPut, ChangedByOthersWhileTheBodyArrived_Answers412)
{
    world.recorder.onCall = [&](std::string_view name) {
        if (name == "gen3.res3.Write")
            world["gen3"].Find("/gen3/f.txt")->version = 7;
    };
    EXPECT_EQ(Run(Put().Header("If-Match", "\"v1\"")), Plain("412"));
    EXPECT_EQ(Content(), "hello world");
    world.recorder.onCall = {};
}

TEST_F(StandardPut, Locked_Answers423WithTheLocksRoot)
{
    world["gen3"].Find("/gen3/c")->locks.push_back({.owner = "o", .token = "t-1"});
    const std::string locked =
        "423\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted><D:href>/Ferro/gen3/c/</D:href>"
        "</D:lock-token-submitted></D:error>\n";
    EXPECT_EQ(Run(Put("c/a")), locked);
    EXPECT_EQ(Run(Put("c/a").Header("If", "(Not <opaquelocktoken:t-2>)")), locked);
    EXPECT_EQ(Run(Put("c/a").Header("If", "(<opaquelocktoken:t-2>)")), Plain("412"));
    EXPECT_EQ(Content("c/a"), "aa");
    EXPECT_EQ(Run(Put("c/a").Header("If", "(<opaquelocktoken:t-1>)")), kReplaced);
    EXPECT_EQ(Content("c/a"), "new");
}

// -- Bodies that are not what was announced.

TEST_F(StandardPut, BodyThatBreaksOff_ChangesNothing)
{
    EXPECT_EQ(Run(Put("f.txt", {"half"}).BodyEndsWith(MakeStatus(kFacilityHost, kCodeTimeout))),
              Plain("408"));
    EXPECT_EQ(
        Run(Put("f.txt", {"half"}).BodyEndsWith(MakeStatus(kFacilityHost, kCodeUnsuccessful))),
        Plain("400"));
    EXPECT_EQ(Content(), "hello world");
    EXPECT_THAT(Changes(), Not(testing::Contains("gen3.res3.Publish()")));
}

TEST_F(StandardPut, ExpectedLengthThatDoesNotCome_ChangesNothing)
{
    EXPECT_EQ(Run(Put().Header("X-Expected-Entity-Length", "1000")), Plain("400"));
    EXPECT_EQ(Run(Put().Header("X-Expected-Entity-Length", "2")), Plain("400"));
    EXPECT_EQ(Run(Put().Header("X-Expected-Entity-Length", "many")), Plain("400"));
    EXPECT_EQ(Run(Put().Header("X-Expected-Entity-Length", "3").Header("Content-Length", "4")),
              Plain("400"));
    EXPECT_EQ(Content(), "hello world");
    EXPECT_EQ(Run(Put().Header("X-Expected-Entity-Length", "3")), kReplaced);
}

TEST_F(StandardPut, DateOfTheClient)
{
    EXPECT_EQ(Run(Put("n").Header("X-OC-Mtime", "1769862600")),
              "201\nETag: \"v1\"\nLast-Modified: Sat, 31 Jan 2026 12:30:00 GMT\n"
              "X-OC-Mtime: accepted\nContent-Length: 0\n\n");
    EXPECT_EQ(Run(Put("m").Header("X-OC-Mtime", "soon")), kCreated) << "not accepted";
}

TEST_F(StandardPut, FaultsOfTheProvider)
{
    world.Fail("gen3.res3.Open", ProviderFailure(kCodeStorageFull));
    EXPECT_EQ(Run(Put()), Plain("507"));
    world.Fail("gen3.res3.Write", ProviderFailure(kCodeStorageFull));
    EXPECT_EQ(Run(Put()), Plain("507"));
    world.Fail("gen3.res3.Publish", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Run(Put()), Plain("500"));
    EXPECT_EQ(Content(), "hello world");
}

TEST_F(StandardPut, OfAnOlderProvider_IsAnsweredAsBefore)
{
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/gen2/f.txt").Body({"x"})), Plain("201"));
    EXPECT_EQ(world["gen2"].Content("/gen2/f.txt"), "x");
}

// Its handler would take the part for the whole.
TEST_F(StandardPut, OfAPartByAnOlderProvider_IsRefused)
{
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/gen2/f.txt")
                      .Header("Content-Range", "bytes 0-0/11")
                      .Body({"x"})),
              Plain("400"));
    EXPECT_EQ(world["gen2"].Content("/gen2/f.txt"), "hello world");
}

// -- Parts.

TEST_F(StandardPut, ContentRange_ReplacesAPartInOneStep)
{
    EXPECT_EQ(Run(Put("f.txt", {"THE", "RE"}).Header("Content-Range", "bytes 6-10/11")), kReplaced);
    EXPECT_EQ(Content(), "hello THERE");
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.res3.Open(/gen3/f.txt, modify, ?, -)", "gen3.res3.Write(6, 3)",
                            "gen3.res3.Write(9, 2)", "gen3.res3.Publish()"));
}

TEST_F(StandardPut, ContentRange_MayGrowTheFile)
{
    EXPECT_EQ(Run(Put("f.txt", {"!!"}).Header("Content-Range", "bytes 11-12/13")), kReplaced);
    EXPECT_EQ(Content(), "hello world!!");
}

TEST_F(StandardPut, ContentRange_FirstPartMakesTheFile)
{
    EXPECT_EQ(Run(Put("n", {"ab"}).Header("Content-Range", "bytes 0-1/4")), kCreated);
    EXPECT_EQ(Content("n"), "ab");
    EXPECT_EQ(Run(Put("m", {"ab"}).Header("Content-Range", "bytes 2-3/4")), Plain("404"));
}

TEST_F(StandardPut, ContentRange_ThatDoesNotFit_ChangesNothing)
{
    const std::string size = "Content-Range: bytes */11\n";
    EXPECT_EQ(Run(Put("f.txt", {"x"}).Header("Content-Range", "bytes 12-12/13")),
              Plain("416", size))
        << "a gap";
    EXPECT_EQ(Run(Put("f.txt", {"x"}).Header("Content-Range", "bytes 0-0/5")), Plain("416", size))
        << "there is more than that";
    EXPECT_EQ(Run(Put("f.txt", {"x"}).Header("Content-Range", "bytes 0-1/11")), Plain("400"));
    EXPECT_EQ(Run(Put("f.txt", {"xyz"}).Header("Content-Range", "bytes 0-1/11")), Plain("400"));
    EXPECT_EQ(Run(Put("f.txt", {"x"}).Header("Content-Range", "bytes */11")), Plain("400"));
    EXPECT_EQ(Run(Put("f.txt", {"x"}).Header("Content-Range", "lines 0-0/1")), Plain("400"));
    EXPECT_EQ(Content(), "hello world");
}

class StandardPatch : public StandardPut {
  protected:
    Request Patch(const std::string& range, const std::string& body)
    {
        return Request(KestMethodPatch, "/Ferro/gen3/f.txt")
            .Header("Content-Type", "application/x-sabredav-partialupdate")
            .Header("X-Update-Range", range)
            .Body({body});
    }
};

TEST_F(StandardPatch, AtAPosition)
{
    EXPECT_EQ(Run(Patch("bytes=0-4", "HELLO")), kReplaced);
    EXPECT_EQ(Content(), "HELLO world");
    EXPECT_EQ(Run(Patch("bytes=6-", "WORLDS")).substr(0, 3), "204");
    EXPECT_EQ(Content(), "HELLO WORLDS");
}

TEST_F(StandardPatch, AppendAndFromTheEnd)
{
    EXPECT_EQ(Run(Patch("append", "!")), kReplaced);
    EXPECT_EQ(Content(), "hello world!");
    EXPECT_EQ(Run(Patch("bytes=-2", "D?!")).substr(0, 3), "204");
    EXPECT_EQ(Content(), "hello worlD?!");
}

TEST_F(StandardPatch, RefusesWhatDoesNotFit)
{
    const std::string size = "Content-Range: bytes */11\n";
    EXPECT_EQ(Run(Patch("bytes=12-", "x")), Plain("416", size));
    EXPECT_EQ(Run(Patch("bytes=-12", "x")), Plain("416", size));
    EXPECT_EQ(Run(Patch("bytes=0-4", "short")), kReplaced);
    EXPECT_EQ(Run(Patch("bytes=0-4", "four")), Plain("400"));
    EXPECT_EQ(Run(Patch("somewhere", "x")), Plain("400"));
    EXPECT_EQ(Content(), "short world");
}

TEST_F(StandardPatch, RefusesOtherKindsOfBodies)
{
    const std::string taken = "Accept-Patch: application/x-sabredav-partialupdate\n";
    EXPECT_EQ(Run(Request(KestMethodPatch, "/Ferro/gen3/f.txt")
                      .Header("Content-Type", "application/json")
                      .Body({"{}"})),
              Plain("415", taken));
    EXPECT_EQ(Run(Request(KestMethodPatch, "/Ferro/gen3/f.txt").Body({"x"})), Plain("415", taken));
}

TEST_F(StandardPatch, MemoryThatIsShort_IsNoOtherKind)
{
    for (int nth = 1; nth < 12; ++nth) {
        world.recorder.Clear();
        world.Fail("io.AllocMemory", kInjected, nth);
        const std::string reply = Run(Patch("append", "!"));
        EXPECT_THAT(reply.substr(0, 3), testing::AnyOf("204", "503")) << nth << "\n" << reply;
    }
}

TEST_F(StandardPatch, NeedsAFile)
{
    Request missing = Patch("append", "x");
    missing.path = "/Ferro/gen3/none";
    EXPECT_EQ(Run(missing), Plain("404"));
    missing.path = "/Ferro/gen3/c";
    EXPECT_EQ(Run(missing), Plain("405", kFileMethods));
    missing.path = "/Ferro/gen2/f.txt";
    EXPECT_THAT(Run(missing), testing::StartsWith("405\nAllow: OPTIONS, GET, HEAD, PUT, DELETE"))
        << "an older provider cannot";
    EXPECT_EQ(Run(Patch("append", "x").Header("If-Match", "\"v9\"")), Plain("412"));
    EXPECT_EQ(Content(), "hello world");
}

TEST(StandardPutFailures, EveryCallMayFail)
{
    const auto isOldOrNew = [](World& world, const Reply&) {
        EXPECT_THAT(world["gen3"].Content("/gen3/f.txt"),
                    testing::AnyOf("hello world", "new content", "Hello world"));
    };
    harness::ExpectEveryFailureIsSurvived(MakeWorld,
                                          Request(KestMethodPut, "/Ferro/gen3/f.txt")
                                              .Header("If", "([\"v1\"])")
                                              .Header("If-Match", "\"v1\"")
                                              .Header("Content-Length", "11")
                                              .Header("X-OC-Mtime", "1769862600")
                                              .Body({"new ", "content"}),
                                          isOldOrNew);
    harness::ExpectEveryFailureIsSurvived(MakeWorld,
                                          Request(KestMethodPut, "/Ferro/gen3/f.txt")
                                              .Header("Content-Range", "bytes 0-0/11")
                                              .Body({"H"}),
                                          isOldOrNew);
}

} // namespace

} // namespace standard_tests
