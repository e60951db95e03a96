// SPDX-License-Identifier: Apache-2.0
//
// DELETE, MKCOL and OPTIONS in the standard dialect.
#include "all_methods.h"
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kRootMethods[] = "Allow: OPTIONS, GET, HEAD, POST, PROPFIND\n";
constexpr char kCollectionMethods[] =
    "Allow: OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, UNLOCK\n";

class StandardDelete : public Standard {
  protected:
    Request Delete(const std::string& name)
    {
        return Request(KestMethodDelete, "/Ferro/gen3/" + name);
    }
};

TEST_F(StandardDelete, OfAFileOrATree_Answers204)
{
    EXPECT_EQ(Run(Delete("f.txt")), "204\n\n");
    EXPECT_EQ(Run(Delete("c/").Header("Depth", "infinity")), "204\n\n");
    EXPECT_THAT(world["gen3"].Paths(), ElementsAre("/gen3/"));
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.3.Delete(/gen3/f.txt, -)", "gen3.3.Delete(/gen3/c, -)"));
}

TEST_F(StandardDelete, OfNothing_Answers404)
{
    EXPECT_EQ(Run(Delete("none")), Plain("404"));
    EXPECT_EQ(Run(Delete("none").Header("If-Match", "*")), Plain("404"));
    EXPECT_EQ(Run(Request(KestMethodDelete, "/Ferro/nowhere/x")), Plain("404"));
    EXPECT_EQ(Run(Request(KestMethodDelete, "/Ferro/")), Plain("405", kRootMethods));
}

TEST_F(StandardDelete, UnderConditions)
{
    EXPECT_EQ(Run(Delete("f.txt").Header("If-Match", "\"v9\"")), Plain("412"));
    EXPECT_TRUE(world["gen3"].Has("/gen3/f.txt"));
    EXPECT_EQ(Run(Delete("f.txt").Header("If-Match", "\"v1\"")), "204\n\n");
}

TEST_F(StandardDelete, OfACollectionWithoutItsMembers_IsRefused)
{
    EXPECT_EQ(Run(Delete("c").Header("Depth", "0")), Plain("400"));
    EXPECT_EQ(Run(Delete("c").Header("Depth", "1")), Plain("400"));
    EXPECT_TRUE(world["gen3"].Has("/gen3/c/a"));
    EXPECT_EQ(Run(Delete("f.txt").Header("Depth", "0")), "204\n\n") << "a file has none";
}

TEST_F(StandardDelete, LockedItself_Answers423)
{
    world["gen3"].Find("/gen3/f.txt")->locks.push_back({.token = "t-1"});
    EXPECT_EQ(Run(Delete("f.txt")),
              "423\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted>"
              "<D:href>/Ferro/gen3/f.txt</D:href></D:lock-token-submitted></D:error>\n");
    EXPECT_EQ(Run(Delete("f.txt").Header("If", "(<opaquelocktoken:t-1>)")), "204\n\n");
}

TEST_F(StandardDelete, WithALockedMember_Answers207AndDeletesNothing)
{
    world["gen3"].AddFile("/gen3/c/\u00e4 & b").locks.push_back({.token = "t-1"});
    EXPECT_EQ(Run(Delete("c")),
              "207\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<D:multistatus xmlns:D=\"DAV:\"><D:response>"
              "<D:href>/Ferro/gen3/c/%C3%A4%20%26%20b</D:href>"
              "<D:status>HTTP/1.1 423 Locked</D:status>"
              "<D:error><D:lock-token-submitted><D:href>/Ferro/gen3/c/%C3%A4%20%26%20b</D:href>"
              "</D:lock-token-submitted></D:error></D:response></D:multistatus>\n");
    EXPECT_TRUE(world["gen3"].Has("/gen3/c/a"));
    EXPECT_EQ(Run(Delete("c").Header("If", "</Ferro/gen3/c/%C3%A4%20%26%20b> "
                                           "(<opaquelocktoken:t-1>)")),
              "204\n\n");
}

TEST_F(StandardDelete, OfAnOlderProvider_IsAnsweredAsBefore)
{
    EXPECT_EQ(Run(Request(KestMethodDelete, "/Ferro/gen2/f.txt")).substr(0, 3), "200");
}

TEST(StandardDeleteFailures, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(
        [] {
            auto world = MakeWorld();
            world->operator[]("gen3").Find("/gen3/c/a")->locks.push_back({.token = "t-1"});
            return world;
        },
        Request(KestMethodDelete, "/Ferro/gen3/c").Header("Depth", "infinity"),
        [](World& world, const Reply&) { EXPECT_TRUE(world["gen3"].Has("/gen3/c/d/b")); });
}

class StandardMkCol : public Standard {
  protected:
    Request MkCol(const std::string& name)
    {
        return Request(KestMethodMkCol, "/Ferro/gen3/" + name);
    }
};

TEST_F(StandardMkCol, Answers201)
{
    EXPECT_EQ(Run(MkCol("n/")), Plain("201"));
    EXPECT_TRUE(world["gen3"].Has("/gen3/n"));
    EXPECT_THAT(Changes(), ElementsAre("gen3.3.MakeCollection(/gen3/n, properties=0, -)"));
}

TEST_F(StandardMkCol, WhereSomethingIs_Answers405)
{
    EXPECT_EQ(Run(MkCol("c")), Plain("405", kCollectionMethods));
    EXPECT_EQ(Run(MkCol("f.txt")),
              Plain("405", "Allow: OPTIONS, GET, HEAD, PUT, PATCH, DELETE, PROPFIND, PROPPATCH, "
                           "COPY, MOVE, LOCK, UNLOCK\n"));
    EXPECT_EQ(Run(Request(KestMethodMkCol, "/Ferro/")), Plain("405", kRootMethods));
}

TEST_F(StandardMkCol, WithoutItsParent_Answers409)
{
    EXPECT_EQ(Run(MkCol("no/n")), Plain("409"));
    EXPECT_EQ(Run(Request(KestMethodMkCol, "/Ferro/nowhere/n")), Plain("409"));
    EXPECT_EQ(Run(Request(KestMethodMkCol, "/Ferro/nowhere")), Plain("403"));
}

TEST_F(StandardMkCol, WithABody_Answers415)
{
    EXPECT_EQ(Run(MkCol("n").Header("Content-Type", "xzy-foo/bar-512").Body({"afafafaf"})),
              Plain("415"));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n"));
}

class StandardExtendedMkCol : public StandardMkCol {
  protected:
    Request Make(const std::string& body, const std::string& type = "text/xml; charset=utf-8")
    {
        return MkCol("n").Header("Content-Type", type).Body({body});
    }
    static std::string Body(const std::string& properties)
    {
        return "<?xml version=\"1.0\"?><D:mkcol xmlns:D=\"DAV:\"><D:set><D:prop>" + properties +
               "</D:prop></D:set></D:mkcol>";
    }
};

constexpr char kItsType[] = "<D:resourcetype><D:collection/></D:resourcetype>";

TEST_F(StandardExtendedMkCol, MakesItWithItsProperties)
{
    EXPECT_EQ(Run(Make(Body(kItsType))), Plain("201"));
    EXPECT_THAT(Changes(), ElementsAre("gen3.3.MakeCollection(/gen3/n, properties=0, -)"));
    world["gen3"].EraseTree(u"/gen3/n");
    EXPECT_EQ(Run(Make(Body(std::string(kItsType) + "<x:colour xmlns:x=\"urn:x\">red</x:colour>"),
                       "application/xml")),
              Plain("201"));
    EXPECT_THAT(Changes(), testing::Contains("gen3.3.MakeCollection(/gen3/n, properties=1, -)"));
}

TEST_F(StandardExtendedMkCol, OfAnotherType_Answers424AndMakesNothing)
{
    const std::string other = "<D:resourcetype><D:collection/><x:calendar xmlns:x=\"urn:x\"/>"
                              "</D:resourcetype>";
    const std::string reply = Run(Make(Body(other + "<x:colour xmlns:x=\"urn:x\"/>")));
    EXPECT_THAT(reply, HasSubstr("424\nCache-Control: no-cache\n"));
    EXPECT_THAT(reply, HasSubstr("<D:mkcol-response xmlns:D=\"DAV:\"><D:propstat><D:prop>"
                                 "<D:resourcetype/></D:prop>"
                                 "<D:status>HTTP/1.1 403 Forbidden</D:status>"
                                 "<D:error><D:valid-resourcetype/></D:error></D:propstat>"));
    EXPECT_THAT(reply, HasSubstr("<D:status>HTTP/1.1 424 Failed Dependency</D:status>"));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n"));
    Request there = Make(Body(other));
    there.path = "/Ferro/gen3/c";
    EXPECT_EQ(Run(there), Plain("405", kCollectionMethods));
}

TEST_F(StandardExtendedMkCol, BadBodies)
{
    EXPECT_EQ(Run(Make("<D:mkcol xmlns:D=\"DAV:\"><D:set>")), Plain("400"));
    EXPECT_EQ(Run(Make("<D:propertyupdate xmlns:D=\"DAV:\"/>")), Plain("400"));
    EXPECT_EQ(Run(Make(Body("<x:colour/>"))), Plain("400")) << "a prefix of nothing";
    Request large = Make("<x/>");
    large.payloadAvailable = 2'000'000;
    EXPECT_EQ(Run(large), Plain("413"));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n"));
}

TEST(StandardExtendedMkColFailures, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(
        MakeWorld,
        Request(KestMethodMkCol, "/Ferro/gen3/n")
            .Header("Content-Type", "text/xml")
            .Body({"<D:mkcol xmlns:D=\"DAV:\"><D:set><D:prop><x xmlns=\"\">1</x></D:prop>"
                   "</D:set></D:mkcol>"}));
}

TEST_F(StandardMkCol, UnderConditionsAndLocks)
{
    EXPECT_EQ(Run(MkCol("n").Header("If-Match", "*")), Plain("412"));
    world["gen3"].Find("/gen3/c")->locks.push_back({.depth = 0, .token = "t-1"});
    EXPECT_THAT(Run(MkCol("c/n")), HasSubstr("423\n"));
    EXPECT_EQ(Run(MkCol("c/n").Header("If", "</Ferro/gen3/c> (<opaquelocktoken:t-1>)")),
              Plain("201"));
}

TEST_F(StandardMkCol, FaultsOfTheProvider)
{
    world.Fail("gen3.3.MakeCollection", ProviderFailure(kCodeStorageFull));
    EXPECT_EQ(Run(MkCol("n")), Plain("507"));
    world.Fail("gen3.3.MakeCollection", ProviderFailure(kCodeNameTooLong));
    EXPECT_EQ(Run(MkCol("n")), Plain("414"));
    EXPECT_EQ(Run(Request(KestMethodMkCol, "/Ferro/gen2/n")), "201\n\n")
        << "an older provider is answered as before";
}

TEST(StandardMkColFailures, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(
        MakeWorld, Request(KestMethodMkCol, "/Ferro/gen3/n").Header("If-None-Match", "*"));
}

class StandardOptions : public Standard {
  protected:
    static std::string Methods(const std::string& reply)
    {
        const size_t at = reply.find("\nAllow: ") + 8;
        return reply.substr(at, reply.find('\n', at) - at);
    }
    std::string Allowed(const std::string& path)
    {
        return Methods(Run(Request(KestMethodOptions, path)));
    }
};

TEST_F(StandardOptions, AllowWhatTheResourceHas)
{
    const auto reply = [](const std::string& allow, bool hasPatch) {
        return "200\nMS-Author-Via: DAV\nAllow: " + allow +
               "\nDAV: 1, 2, 3, extended-mkcol, sabredav-partialupdate\n" +
               (hasPatch ? "Accept-Patch: application/x-sabredav-partialupdate\n" : "") +
               "Content-Length: 0\n\n";
    };
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro/gen3/f.txt")),
              reply("OPTIONS, GET, HEAD, PUT, PATCH, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, "
                    "LOCK, UNLOCK",
                    true));
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro/gen3/c/")),
              reply("OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, "
                    "UNLOCK",
                    false));
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro/gen3/none")),
              reply("OPTIONS, PUT, MKCOL, LOCK", true));
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro")),
              reply("OPTIONS, GET, HEAD, POST, PROPFIND", false));
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro/nowhere/at/all")),
              reply("OPTIONS, PUT, MKCOL, LOCK", true));
    EXPECT_EQ(Allowed("/Ferro/gen3/none/"), "OPTIONS, MKCOL, LOCK");
    EXPECT_EQ(Allowed("/Ferro/gen3/f.txt/"),
              "OPTIONS, GET, HEAD, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, UNLOCK");
}

// Neither that a method which is promised is refused as such, nor that one which is not works.
TEST_F(StandardOptions, PromiseNothingThatIsRefused)
{
    for (const std::string path :
         {"/Ferro", "/Ferro/", "/Ferro/gen3", "/Ferro/gen3/c", "/Ferro/gen3/c/",
          "/Ferro/gen3/f.txt", "/Ferro/gen3/f.txt/", "/Ferro/gen3/none", "/Ferro/gen3/none/",
          "/Ferro/gen2", "/Ferro/gen2/c/", "/Ferro/gen2/f.txt", "/Ferro/gen2/f.txt/",
          "/Ferro/gen2/none", "/Ferro/gen2/none/"}) {
        // Of a world of its own: those of the requests take the classes of the others with them.
        const std::string allowed =
            ", " + Methods(MakeWorld()->Run(Request(KestMethodOptions, path)).text) + ",";
        for (const auto& [name, make] : AllMethods()) {
            auto own = MakeWorld();
            const std::string reply = own->Run(make(path)).text;
            const int status = std::stoi(reply);
            if (allowed.find(", " + name + ",") != allowed.npos) {
                EXPECT_TRUE(status != 405 && status != 501) << name << " " << path;
            } else if (name != "PATCH" &&
                       name != "POST") { // of parts of a name, and of other forms
                EXPECT_GE(status, 400) << name << " " << path;
            }
        }
    }
}

TEST_F(StandardOptions, OfAnOlderProvider_AreThoseOfItsHandlers)
{
    const std::string file =
        "OPTIONS, GET, HEAD, PUT, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, UNLOCK";
    EXPECT_EQ(Run(Request(KestMethodOptions, "/Ferro/gen2/f.txt")),
              "200\nMS-Author-Via: DAV\nAllow: " + file + "\nDAV: 1, 2\nContent-Length: 0\n\n");
    EXPECT_EQ("Allow: " + Allowed("/Ferro/gen2/c/") + "\n", kCollectionMethods);
    EXPECT_EQ(Allowed("/Ferro/gen2/none"), "OPTIONS, PUT, MKCOL, LOCK");
    EXPECT_EQ(Allowed("/Ferro/gen2/none/"), "OPTIONS, MKCOL, LOCK");
}

// A provider that takes every name for one that may come is asked for what is there.
TEST(StandardOptionsOfOlder, AName_ThatCanOnlyBeMade_IsMissing)
{
    for (const int generations : {1, 2}) {
        World world({{.name = "old", .generations = generations, .servesNew = true}},
                    StandardDialect());
        world["old"].AddFile("/old/f", "x");
        const auto allowed = [&world](const char* path) {
            return world.Run(Request(KestMethodOptions, path)).text;
        };
        EXPECT_THAT(allowed("/Ferro/old/none"), HasSubstr("Allow: OPTIONS, PUT, MKCOL, LOCK\n"));
        EXPECT_THAT(allowed("/Ferro/old/f"), HasSubstr("Allow: OPTIONS, GET, HEAD, PUT, DELETE"));
        world.ExpectAtRest();
    }
}

TEST(StandardOptionsOfOlderFailures, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(MakeWorld,
                                          Request(KestMethodOptions, "/Ferro/gen2/f.txt"));
}

} // namespace

} // namespace standard_tests
