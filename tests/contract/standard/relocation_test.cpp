// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE in the standard dialect.
#include "fixture.h"

namespace standard_tests {

namespace {

const std::string kPlainCreated = Plain("201");
constexpr char kPlainReplaced[] = "204\n\n";

// The host gives COPY's destination as a URL, MOVE's as a path.
class StandardRelocation : public Standard, public testing::WithParamInterface<UINT32> {
  protected:
    bool IsMove() const { return GetParam() == KestMethodMove; }
    std::string Name() const { return IsMove() ? "Move" : "Copy"; }
    Request From(const std::string& source, const std::string& destination, bool overwrite = true,
                 INT32 depth = -1)
    {
        const std::string origin = IsMove() ? "" : "http://server.example:8080";
        return Request(GetParam(), "/Ferro/gen3/" + source)
            .To(origin + "/Ferro/" + destination, overwrite ? TRUE : FALSE, depth);
    }
    // What is there, below "/gen3/".
    std::string Tree()
    {
        std::string text;
        for (const std::string& path : world["gen3"].Paths())
            text += path.substr(5) + " ";
        return text;
    }
};

TEST_P(StandardRelocation, ToANewName_Answers201)
{
    EXPECT_EQ(Run(From("f.txt", "gen3/g.txt")), kPlainCreated);
    EXPECT_EQ(Tree(), IsMove() ? "/ /c/ /c/a /c/d/ /c/d/b /g.txt "
                               : "/ /c/ /c/a /c/d/ /c/d/b /f.txt /g.txt ");
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.3." + Name() + "(/gen3/f.txt, /gen3/g.txt, overwrite, -)"));
}

TEST_P(StandardRelocation, OfATree)
{
    EXPECT_EQ(Run(From("c/", "gen3/c2/")), kPlainCreated) << "a name that begins with the source's";
    EXPECT_EQ(world["gen3"].Content("/gen3/c2/d/b"), "bbb");
}

TEST_P(StandardRelocation, OverWhatIsThere_Answers204AndReplacesItWhole)
{
    world["gen3"].AddFile("/gen3/t/old", "old");
    EXPECT_EQ(Run(From("c", "gen3/t")), kPlainReplaced);
    EXPECT_FALSE(world["gen3"].Has("/gen3/t/old"));
    EXPECT_EQ(world["gen3"].Content("/gen3/t/d/b"), "bbb");
    EXPECT_EQ(Run(From("f.txt", "gen3/t")), kPlainReplaced) << "a file over a collection";
    EXPECT_EQ(world["gen3"].Content("/gen3/t"), "hello world");
}

TEST_P(StandardRelocation, OverWhatIsThereWithOverwriteF_Answers412)
{
    EXPECT_EQ(Run(From("f.txt", "gen3/c/a", false)), Plain("412"));
    EXPECT_EQ(world["gen3"].Content("/gen3/c/a"), "aa");
    EXPECT_EQ(Run(From("f.txt", "gen3/n", false)), kPlainCreated);
    EXPECT_THAT(Changes(),
                testing::Contains("gen3.3." + Name() + "(/gen3/f.txt, /gen3/n, keep, -)"));
}

TEST_P(StandardRelocation, OntoItself_Answers403)
{
    EXPECT_EQ(Run(From("f.txt", "gen3/f.txt")), Plain("403"));
    EXPECT_EQ(Run(From("c/", "gen3/c/")), Plain("403"));
    EXPECT_EQ(Run(From("c", "gen3/c/d/e")), Plain("403")) << "into itself";
    EXPECT_EQ(Run(From("c/d", "gen3/c")), Plain("409")) << "what holds it cannot go for it";
    EXPECT_EQ(Tree(), "/ /c/ /c/a /c/d/ /c/d/b /f.txt ");
    EXPECT_THAT(world.Calls({"gen3.3." + Name()}), IsEmpty());
}

TEST_P(StandardRelocation, OfNothing_Answers404)
{
    EXPECT_EQ(Run(From("none", "gen3/none")), Plain("404")) << "also onto itself";
    EXPECT_EQ(Run(From("none", "gen3/none/n")), Plain("404"));
    EXPECT_EQ(Run(From("none", "gen3/n")), Plain("404"));
    EXPECT_EQ(Run(From("none", "gen3/n").Header("If-Match", "*")), Plain("404"));
}

TEST_P(StandardRelocation, WithoutAParent_Answers409)
{
    EXPECT_EQ(Run(From("f.txt", "gen3/no/n")), Plain("409"));
    EXPECT_EQ(Run(From("f.txt", "nowhere/n")), Plain("409"));
    EXPECT_EQ(Run(From("f.txt", "nowhere")), Plain("403"));
}

TEST_P(StandardRelocation, ToANewNameInANewSession)
{
    Request request = From("f.txt", "other/n").Session(7);
    request.path = "/Ferro/other/f.txt";
    EXPECT_EQ(Run(request), kPlainCreated) << "the provider knows no names that do not exist";
}

TEST_P(StandardRelocation, ToAnotherProvider_Answers502)
{
    EXPECT_EQ(Run(From("f.txt", "other/n")), Plain("502"));
    EXPECT_FALSE(world["other"].Has("/other/n"));
    EXPECT_EQ(Run(From("c", "other/c/d")), Plain("502")) << "a tree onto another one";
    EXPECT_EQ(world["other"].Content("/other/c/d/b"), "bbb");
    EXPECT_EQ(Run(From("f.txt", "gen2/n")), Plain("502")) << "of an older generation";
    EXPECT_FALSE(world["gen2"].Has("/gen2/n"));
    EXPECT_EQ(Run(From("no", "other/n")), Plain("404")) << "nothing is there to go anywhere";
    EXPECT_EQ(Tree(), "/ /c/ /c/a /c/d/ /c/d/b /f.txt ");
}

TEST_P(StandardRelocation, FromAProviderOfAnOlderGenerationToAnother_Answers502)
{
    Request request = From("f.txt", "gen3/n");
    request.path = "/Ferro/gen2/f.txt";
    EXPECT_EQ(Run(request), Plain("502"));
    request.path = "/Ferro/gen2/no";
    EXPECT_EQ(Run(request), Plain("404"));
    EXPECT_TRUE(world["gen2"].Has("/gen2/f.txt"));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n"));
}

TEST_P(StandardRelocation, BadDestination_Answers400)
{
    EXPECT_EQ(Run(From("f.txt", "")), Plain("400")) << "the module's root";
    Request none(GetParam(), "/Ferro/gen3/f.txt");
    none.destination = "nonsense";
    EXPECT_EQ(Run(none), Plain("400"));
    if (IsMove())
        return; // the host has decoded it
    for (const char* path : {"gen3/a%zz", "gen3/a%2", "gen3/a%00", "gen3/a%2Fb", "gen3/%FF",
                             "gen3/%C3", "gen3/%ED%A0%80", "gen3/%C0%AF"})
        EXPECT_EQ(Run(From("f.txt", path)), Plain("400")) << path;
}

TEST_P(StandardRelocation, DestinationsEscapesAreDecodedOnce)
{
    // A path has none; the host writes "%25" for "%" into a URL.
    EXPECT_EQ(Run(From("f.txt", IsMove() ? "gen3/a%20b" : "gen3/a%2520b")), kPlainCreated);
    EXPECT_TRUE(world["gen3"].Has("/gen3/a%20b"));
    if (!IsMove()) {
        EXPECT_EQ(Run(From("f.txt", "gen3/%C3%A4%E2%82%ac%F0%9F%98%80")), kPlainCreated);
        EXPECT_TRUE(world["gen3"].Has("/gen3/\u00e4\u20ac\U0001F600"));
    }
}

TEST_P(StandardRelocation, UnderConditionsAboutTheSource)
{
    EXPECT_EQ(Run(From("f.txt", "gen3/n").Header("If-Match", "\"v9\"")), Plain("412"));
    EXPECT_EQ(Run(From("f.txt", "gen3/n").Header("If-Match", "\"v1\"")), kPlainCreated);
}

TEST_P(StandardRelocation, LockedDestination_Answers423)
{
    world["gen3"].Find("/gen3/c")->locks.push_back({.token = "t-1"});
    const std::string reply = Run(From("f.txt", "gen3/c/n"));
    EXPECT_EQ(reply.substr(0, 3), "423");
    EXPECT_THAT(reply, HasSubstr("<D:href>/Ferro/gen3/c/</D:href>"));
    EXPECT_EQ(Run(From("f.txt", "gen3/c/n")
                      .Header("If", "<http://server.example:8080/Ferro/gen3/c> "
                                    "(<opaquelocktoken:t-1>)")),
              kPlainCreated);
}

TEST_P(StandardRelocation, LockedMemberOfWhatIsReplaced_Answers207AndChangesNothing)
{
    world["gen3"].AddFile("/gen3/t/old", "old").locks.push_back({.token = "t-1"});
    const std::string before = Tree();
    EXPECT_EQ(Run(From("c", "gen3/t")),
              "207\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<D:multistatus xmlns:D=\"DAV:\"><D:response><D:href>/Ferro/gen3/t/old</D:href>"
              "<D:status>HTTP/1.1 423 Locked</D:status>"
              "<D:error><D:lock-token-submitted><D:href>/Ferro/gen3/t/old</D:href>"
              "</D:lock-token-submitted></D:error></D:response></D:multistatus>\n");
    EXPECT_EQ(Tree(), before);
}

TEST_P(StandardRelocation, FaultsOfTheProvider)
{
    world.Fail("gen3.3." + Name(), ProviderFailure(kCodeStorageFull));
    EXPECT_EQ(Run(From("f.txt", "gen3/n")), Plain("507"));
    world.Fail("gen3.3." + Name(), ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Run(From("f.txt", "gen3/n")), Plain("500"));
}

TEST_P(StandardRelocation, OfTheRoot_Answers405)
{
    Request root = From("x", "gen3/n");
    root.path = "/Ferro/";
    EXPECT_EQ(Run(root), Plain("405", "Allow: OPTIONS, GET, HEAD, POST, PROPFIND\n"));
}

TEST_P(StandardRelocation, OfAnOlderProvider_IsAnsweredAsBefore)
{
    Request request = From("f.txt", "gen2/n", false);
    request.path = "/Ferro/gen2/f.txt";
    EXPECT_EQ(Run(request).substr(0, 3), "200");
    EXPECT_EQ(world["gen2"].Content("/gen2/n"), "hello world");
}

TEST_P(StandardRelocation, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(
        [] {
            auto made = MakeWorld();
            made->operator[]("gen3")
                .AddFile("/gen3/t/old", "old")
                .locks.push_back({.token = "t-1"});
            return made;
        },
        From("c", "gen3/t").Header("If-Match", "\"v1\""),
        [](World& each, const Reply&) {
            EXPECT_TRUE(each["gen3"].Has("/gen3/c/d/b"));
            EXPECT_TRUE(each["gen3"].Has("/gen3/t/old"));
        });
}

INSTANTIATE_TEST_SUITE_P(Methods, StandardRelocation,
                         testing::Values(UINT32{KestMethodCopy}, UINT32{KestMethodMove}),
                         [](const auto& row) {
                             return row.param == KestMethodMove ? "Move" : "Copy";
                         });

class StandardCopy : public Standard {};

TEST_F(StandardCopy, OfDepth0_TakesNoMembers)
{
    EXPECT_EQ(Run(Request(KestMethodCopy, "/Ferro/gen3/c")
                      .To("http://server.example:8080/Ferro/gen3/n/", TRUE, 0)),
              kPlainCreated);
    EXPECT_TRUE(world["gen3"].Has("/gen3/n"));
    EXPECT_FALSE(world["gen3"].Has("/gen3/n/a"));
    EXPECT_THAT(Changes(), ElementsAre("gen3.3.Copy(/gen3/c, /gen3/n, overwrite, shallow, -)"));
}

} // namespace

} // namespace standard_tests
