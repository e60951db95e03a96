// SPDX-License-Identifier: Apache-2.0
//
// Uploads that go on in other requests (draft-ietf-httpbis-resumable-upload): begun, told of, added
// to, completed, cancelled.
#include "uploads.h"

namespace standard_tests {

namespace {

// -- Begun.

TEST_F(StandardUploads, PartOfANewFile_IsKeptAndNotPublished)
{
    EXPECT_EQ(Run(Begin("n", {"he", "llo"}).Header("Upload-Length", "9").TakesInterims()),
              "104\n" + Place("n") + Plain("201", State(5) + Place("n")));
    EXPECT_EQ(Content("n"), "(missing)");
    EXPECT_EQ(Kept(), "hello");
    EXPECT_THAT(UploadCalls(), ElementsAre("gen3.up3.Begin(/gen3/n, 9, [], -)",
                                           "gen3.up3.Continue(/gen3/n, u1, 0, 9, -)",
                                           "gen3.more3.Write(0, 2)", "gen3.more3.Write(2, 3)"));
}

TEST_F(StandardUploads, EmptyPart_BeginsOne)
{
    EXPECT_EQ(Run(Begin("n", {}).Header("Content-Length", "0")),
              Plain("201", State(0) + Place("n")));
    EXPECT_THAT(UploadCalls(), ElementsAre("gen3.up3.Begin(/gen3/n, ?, [], -)",
                                           "gen3.up3.Continue(/gen3/n, u1, 0, ?, -)"));
}

TEST_F(StandardUploads, WholeInOneRequest_IsPublished)
{
    EXPECT_EQ(Run(Begin("n", {"hello"}, "?1").TakesInterims()),
              "104\n" + Place("n") + Plain("201", State(5, true) + kNew));
    EXPECT_EQ(Content("n"), "hello");
    EXPECT_EQ(Run(Begin("f.txt", {"new"}, "?1")), "204\n" + State(3, true) + kChanged + "\n");
    EXPECT_EQ(Content("f.txt"), "new");
}

TEST_F(StandardUploads, LengthIsThatOfTheBodyWhereItIsTheWhole)
{
    EXPECT_EQ(Run(Begin("n", {"hello"}, "?1").Header("Content-Length", "5")),
              Plain("201", State(5, true) + kNew));
    EXPECT_THAT(UploadCalls(), testing::Contains("gen3.up3.Begin(/gen3/n, 5, [], -)"));
}

TEST_F(StandardUploads, LengthsThatContradictEachOther_BeginNothing)
{
    EXPECT_EQ(
        Run(Begin("n", {"hello"}, "?1").Header("Content-Length", "5").Header("Upload-Length", "6")),
        OtherLength());
    EXPECT_EQ(Run(Begin("n", {"hello"}).Header("Content-Length", "5").Header("Upload-Length", "4")),
              OtherLength());
    EXPECT_THAT(UploadCalls(), IsEmpty());
    EXPECT_EQ(Run(Begin("n", {"hello"}).Header("Content-Length", "many")), Plain("400"));
    EXPECT_EQ(Run(Begin("n", {"h"}).Header("Content-Range", "bytes 0-0/5")), Plain("400"))
        << "a part of a part";
    EXPECT_THAT(UploadCalls(), IsEmpty());
}

TEST_F(StandardUploads, FieldsThatAreNone_CountAsNotSent)
{
    EXPECT_EQ(Run(Begin("n", {"hello"}, "yes")), Plain("201", kNew)) << "a PUT like any other";
    EXPECT_EQ(Run(Begin("m", {"hello"}).Header("Upload-Length", "-1")),
              Plain("201", State(5) + Place("m")));
    EXPECT_THAT(UploadCalls(), testing::Contains("gen3.up3.Begin(/gen3/m, ?, [], -)"));
}

TEST_F(StandardUploads, WhatTheHostDoesNotSend_IsNoFailure)
{
    world.Fail("io.SendInterim", kInjected);
    EXPECT_EQ(Run(Begin("n", {"hello"}).TakesInterims()), Plain("201", State(5) + Place("n")));
}

TEST_F(StandardUploads, PlaceBearsThePathAsTheClientSpellsIt)
{
    EXPECT_EQ(
        Run(Begin("a b", {"x"}).Raw("/Ferro/gen3/a%20b").TakesInterims()),
        "104\nLocation: /Ferro/gen3/a%20b/.kest/upload/u1\n" + std::string(kLimits) +
            Plain("201", State(1) + "Location: /Ferro/gen3/a%20b/.kest/upload/u1\n" + kLimits));
}

// -- Versions of the draft.

TEST_F(StandardUploads, OlderClientsAreAnsweredAsTheyAsk)
{
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/gen3/n")
                      .Header("Upload-Draft-Interop-Version", "3")
                      .Header("Upload-Incomplete", "?1")
                      .Body({"he"})
                      .TakesInterims()),
              "104\n" + Place("n") + "Upload-Draft-Interop-Version: 3\n" +
                  Plain("201", "Upload-Offset: 2\nUpload-Incomplete: ?1\nUpload-Complete: ?0\n" +
                                   Place("n")));
    EXPECT_EQ(Run(Request(KestMethodPatch, PlaceOf("n"))
                      .Header("Upload-Draft-Interop-Version", "3")
                      .Header("Upload-Offset", "2")
                      .Body({"llo"})),
              Plain("201", "Upload-Offset: 5\nUpload-Incomplete: ?0\nUpload-Complete: ?1\n" +
                               std::string(kNew)))
        << "what is not marked ends it, and no media type is asked for";
    EXPECT_EQ(Content("n"), "hello");
}

TEST_F(StandardUploads, OlderClientsHearThePlaceAgainWithTheWhole)
{
    EXPECT_EQ(Run(Begin("n", {"hello"}, "?1").Header("Upload-Draft-Interop-Version", "5")),
              Plain("201", State(5, true) + Place("n") + kNew));
}

TEST_F(StandardUploads, VersionsThatAreNotSpoken_AreNotAnnounced)
{
    for (const char* version : {"2", "10", "99"})
        EXPECT_EQ(
            Run(Begin("n", {"x"}).Header("Upload-Draft-Interop-Version", version).TakesInterims())
                .substr(0, 3),
            "201")
            << version;
}

// -- Told of.

TEST_F(StandardUploads, HeadTellsHowFarItHasCome)
{
    const std::string uncached = "204\nCache-Control: no-store\n";
    (void)Run(Begin("n", {"hello"}));
    EXPECT_EQ(Head(PlaceOf("n")), uncached + State(5) + kLimits + "\n");
    (void)Run(Append(PlaceOf("n"), 5, {"!"}).Header("Upload-Length", "9"));
    EXPECT_EQ(Head(PlaceOf("n")), uncached + State(6) + "Upload-Length: 9\n" + kLimits + "\n");
    (void)Run(Append(PlaceOf("n"), 6, {"???"}, "?1"));
    EXPECT_EQ(Head(PlaceOf("n")),
              uncached + State(9, true) + "Upload-Length: 9\n" + kLimits + "\n");
}

TEST_F(StandardUploads, ThereIsNoneUnderAnotherPathOrName)
{
    (void)Run(Begin("n", {"hello"}));
    const std::string missing = PlainHead("404", "Cache-Control: no-store\n");
    for (const std::string& place :
         {PlaceOf("m"), PlaceOf("n", 2), std::string("/Ferro/other/n/.kest/upload/u1")}) {
        EXPECT_EQ(Head(place), missing) << place;
        EXPECT_EQ(Cancel(place), Plain("404")) << place;
        EXPECT_EQ(Run(Append(place, 5, {"x"})), Plain("404")) << place;
    }
    EXPECT_EQ(Kept(), "hello");
}

// It has no uploads, and may have a file of such a name.
TEST_F(StandardUploads, OfAnOlderProvider_TheNameIsOneLikeAnyOther)
{
    const std::string place = "/Ferro/gen2/n/.kest/upload/u1";
    EXPECT_EQ(Head(place).substr(0, 3), "404");
    EXPECT_EQ(Cancel(place).substr(0, 3), "404");
    EXPECT_EQ(Run(Append(place, 5, {"x"})), Plain("404"));
    EXPECT_THAT(Run(Request(KestMethodOptions, place)),
                testing::AllOf(HasSubstr("Allow: OPTIONS, PUT, MKCOL, LOCK\n"),
                               Not(HasSubstr("Accept-Patch"))));
    world["gen2"].AddFile("/gen2/n/.kest/upload/u1", "mine");
    EXPECT_THAT(Head(place), HasSubstr("\nContent-Length: 4\n"));
    EXPECT_THAT(Run(Append(place, 5, {"x"})), testing::AllOf(testing::StartsWith("405\n"),
                                                             HasSubstr("Allow: OPTIONS, GET, HEAD, "
                                                                       "PUT, DELETE"),
                                                             Not(HasSubstr("Accept-Patch"))));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/.kest/upload/u1"), "mine");
    EXPECT_EQ(Cancel(place).substr(0, 3), "200");
    EXPECT_FALSE(world["gen2"].Has("/gen2/n/.kest/upload/u1"));
}

TEST_F(StandardUploads, NamesThatNoUploadHas_AreNotAskedFor)
{
    for (const std::string& name :
         {std::string(), std::string("a.b"), std::string(61, 'u'), std::string("a/b")}) {
        (void)Head("/Ferro/gen3/n/.kest/upload/" + name);
        (void)Cancel("/Ferro/gen3/n/.kest/upload/" + name);
        EXPECT_THAT(UploadCalls(), IsEmpty()) << name;
    }
    EXPECT_EQ(Head("/Ferro/gen3/n/.kest/upload/" + std::string(60, 'u')).substr(0, 3), "404");
    EXPECT_EQ(world.Calls({"gen3.up3.Find"}).size(), 1U);
}

TEST_F(StandardUploads, OptionsSayWhatIsOffered)
{
    EXPECT_EQ(Run(Request(KestMethodOptions, PlaceOf("n"))),
              Plain("200", "Allow: OPTIONS, HEAD, PATCH, DELETE\n"
                           "Accept-Patch: application/partial-upload\n"));
    EXPECT_THAT(Run(Request(KestMethodOptions, "/Ferro/gen3/f.txt")), HasSubstr(kLimits));
    EXPECT_THAT(Run(Request(KestMethodOptions, "/Ferro/other/f.txt")),
                Not(HasSubstr("Upload-Limit")));
    EXPECT_THAT(Run(Request(KestMethodOptions, "/Ferro/gen2/f.txt")),
                Not(HasSubstr("Upload-Limit")));
    world.Fail("gen3.up3.GetLimits", ProviderFailure(kCodeNotImplemented));
    EXPECT_THAT(Run(Request(KestMethodOptions, "/Ferro/gen3/f.txt")),
                Not(HasSubstr("Upload-Limit")));
}

// -- Added to.

TEST_F(StandardUploads, PartsMakeTheWhole)
{
    (void)Run(Begin("n", {"hel"}).Header("Upload-Length", "8"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 3, {"lo"})), "204\n" + State(5) + "\n");
    EXPECT_EQ(Content("n"), "(missing)");
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!", "!!"}, "?1").Header("Content-Length", "3")),
              Plain("201", State(8, true) + kNew));
    EXPECT_EQ(Content("n"), "hello!!!");
    EXPECT_THAT(UploadCalls(), testing::Contains("gen3.up3.Continue(/gen3/n, u1, 5, 8, -)"));
}

TEST_F(StandardUploads, EmptyEnd_PublishesWhatIsThere)
{
    (void)Run(Begin("f.txt", {"new"}));
    EXPECT_EQ(Run(Append(PlaceOf("f.txt"), 3, {}, "?1").Header("Content-Length", "0")),
              "204\n" + State(3, true) + kChanged + "\n");
    EXPECT_EQ(Content("f.txt"), "new");
}

TEST_F(StandardUploads, AtAnotherOffset_NothingIsAdded)
{
    (void)Run(Begin("n", {"hello"}));
    for (const UINT64 offset : {UINT64{0}, UINT64{4}, UINT64{6}, UINT64{999'999'999'999'999}})
        EXPECT_EQ(Run(Append(PlaceOf("n"), offset, {"x"})),
                  Problem("409", "mismatching-upload-offset", "the upload has another offset",
                          "Upload-Offset: 5\n",
                          ",\"expected-offset\":5,\"provided-offset\":" + std::to_string(offset)));
    EXPECT_EQ(Kept(), "hello");
}

TEST_F(StandardUploads, WithAnotherLength_NothingIsAdded)
{
    (void)Run(Begin("n", {"hello"}).Header("Upload-Length", "9"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"}).Header("Upload-Length", "8")), OtherLength());
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"12345"}).Header("Content-Length", "5")), OtherLength());
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"}, "?1").Header("Content-Length", "1")),
              OtherLength())
        << "it would not be the end";
    EXPECT_EQ(Kept(), "hello");
}

// Nobody could go on from there: what has been kept is beyond what the upload is to be.
TEST_F(StandardUploads, BodyThatIsLongerThanTheWhole_EndsTheUpload)
{
    (void)Run(Begin("n", {"hello"}).Header("Upload-Length", "6"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!", "!"})), OtherLength());
    EXPECT_EQ(Kept(), "(none)");
    EXPECT_EQ(Content("n"), "(missing)");
}

TEST_F(StandardUploads, EndThatComesTooEarly_EndsTheUpload)
{
    (void)Run(Begin("n", {"hello"}).Header("Upload-Length", "9"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!"}, "?1")).substr(0, 3), "400");
    EXPECT_EQ(Content("n"), "(missing)");
}

TEST_F(StandardUploads, ToACompleteOne_NothingIsAdded)
{
    (void)Run(Begin("n", {"hello"}));
    (void)Run(Append(PlaceOf("n"), 5, {"!"}, "?1"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 6, {"x"})), OtherLength());
    EXPECT_EQ(Run(Append(PlaceOf("n"), 6, {}).Header("Content-Length", "0")),
              Problem("410", "completed-upload", "the upload is complete"));
    EXPECT_EQ(Content("n"), "hello!");
}

TEST_F(StandardUploads, WhatIsNoPart_IsRefused)
{
    (void)Run(Begin("n", {"hello"}));
    const std::string kinds = "Accept-Patch: application/partial-upload\n";
    const auto patch = [] { return Request(KestMethodPatch, PlaceOf("n")).Body({"x"}); };
    EXPECT_EQ(Run(patch().Header("Upload-Offset", "5").Header("Upload-Complete", "?1")),
              Plain("415", kinds));
    EXPECT_EQ(Run(patch().Header("Content-Type", "application/octet-stream")), Plain("415", kinds));
    const auto typed = [&] {
        return patch().Header("Content-Type", " Application/Partial-Upload ; x=y");
    };
    EXPECT_EQ(Run(typed()), Plain("400"));
    EXPECT_EQ(Run(typed().Header("Upload-Complete", "?1")), Plain("400")) << "no offset";
    EXPECT_EQ(Run(typed().Header("Upload-Offset", "5")), Plain("400")) << "not marked";
    EXPECT_EQ(Run(typed().Header("Upload-Offset", "five").Header("Upload-Complete", "?1")),
              Plain("400"));
    EXPECT_EQ(Kept(), "hello");
    EXPECT_EQ(Run(typed().Header("Upload-Offset", "5;a").Header("Upload-Complete", "?0;b=1")),
              "204\n" + State(6) + "\n");
}

// -- What the first request said of the whole.

TEST_F(StandardUploads, ConditionsTokensAndDateAreTheFirstRequests)
{
    world["gen3"].Find("/gen3/f.txt")->locks.push_back({.owner = "o", .token = "t-1"});
    (void)Run(Begin("f.txt", {"new"})
                  .Header("If-Match", "\"v1\"")
                  .Header("If", "(<opaquelocktoken:t-1>)")
                  .Header("X-OC-Mtime", "1769862600"));
    EXPECT_THAT(UploadCalls(),
                testing::Contains("gen3.up3.Begin(/gen3/f.txt, ?, [If: (<opaquelocktoken:t-1>)|"
                                  "If-Match: \"v1\"|X-OC-Mtime: 1769862600|], "
                                  "match=\"v1\"; if=1; tokens=t-1)"));
    EXPECT_EQ(Run(Append(PlaceOf("f.txt"), 3, {"!"}, "?1").Header("If-Match", "\"v9\"")),
              "204\n" + State(4, true) +
                  "ETag: \"v2\"\nLast-Modified: Sat, 31 Jan 2026 12:30:00 GMT\n"
                  "X-OC-Mtime: accepted\n\n");
    EXPECT_EQ(Content("f.txt"), "new!");
    EXPECT_THAT(UploadCalls(), testing::Contains("gen3.more3.Publish(dated)"));
}

TEST_F(StandardUploads, ConditionThatHoldsNoMore_EndsTheUpload)
{
    (void)Run(Begin("f.txt", {"new"}).Header("If-Match", "\"v1\""));
    world["gen3"].Find("/gen3/f.txt")->version = 7;
    EXPECT_EQ(Run(Append(PlaceOf("f.txt"), 3, {"!"}, "?1")), Plain("412", State(4, true)));
    EXPECT_EQ(Content("f.txt"), "hello world");
    EXPECT_EQ(Kept(), "(none)");
}

TEST_F(StandardUploads, TermsThatAreTooLong)
{
    const std::string tags = "\"" + std::string(kMostUploadTerms, 'x') + "\"";
    EXPECT_EQ(Run(Begin("n", {"x"}).Header("If-None-Match", tags)), Plain("500"));
    EXPECT_EQ(Run(Begin("n", {"x"}, "?1").Header("If-None-Match", tags)), Plain("201", kNew))
        << "in one go";
    EXPECT_THAT(world["gen3"].uploads, IsEmpty());
}

// -- Cancelled.

TEST_F(StandardUploads, CancelledOneIsGone)
{
    (void)Run(Begin("n", {"hello"}));
    EXPECT_EQ(Cancel(PlaceOf("n")), "204\n\n");
    EXPECT_EQ(Kept(), "(none)");
    EXPECT_EQ(Cancel(PlaceOf("n")), Plain("404"));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), Plain("404"));
}

TEST_F(StandardUploads, OtherRequestsLeaveItAlone)
{
    (void)Run(Begin("n", {"hello"}));
    EXPECT_EQ(Run(Request(KestMethodPut, "/Ferro/gen3/n").Body({"x"})), Plain("201", kNew));
    EXPECT_EQ(Kept(), "hello");
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!"}, "?1")).substr(0, 3), "204") << "replaces it";
    EXPECT_EQ(Content("n"), "hello!");
}

// -- Providers without them.

TEST_F(StandardUploads, WhereNoneAreOffered_APartIsRefused)
{
    for (const std::string name : {"other", "gen2"}) {
        const auto put = [&](const char* complete) {
            return Request(KestMethodPut, "/Ferro/" + name + "/f.txt")
                .Header("Upload-Complete", complete)
                .Body({"part"});
        };
        EXPECT_EQ(Run(put("?0")), Plain("501"));
        EXPECT_EQ(world[name].Content("/" + name + "/f.txt"), "hello world");
        EXPECT_EQ(Run(put("?1")).substr(0, 2), "20") << "the whole is a PUT like any other";
        EXPECT_EQ(world[name].Content("/" + name + "/f.txt"), "part");
    }
}

} // namespace

} // namespace standard_tests
