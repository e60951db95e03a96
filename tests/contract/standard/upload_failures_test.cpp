// SPDX-License-Identifier: Apache-2.0
//
// What becomes of each failure of a provider that takes uploads which go on in other requests, and
// of the content that had arrived.
#include "digests.h"
#include "uploads.h"

namespace standard_tests {

namespace {

struct Row {
    UINT16 code;
    const char* status;
};
// What every operation may fail with.
constexpr Row kGeneral[] = {
    {kCodeUnsuccessful, "500"}, {kCodeInvalidParameter, "500"}, {kCodeInsufficientResources, "503"},
    {kCodeAccessDenied, "403"}, {kCodeTimeout, "503"},          {kCodeStorageFull, "507"},
    {kCodeLocked, "423"},       {kCodeNameTooLong, "414"},      {kCodePreconditionFailed, "412"}};

std::string RefusalOf(const std::string& status, const std::string& headers = {})
{
    if (status != "423")
        return Plain(status, headers);
    return "423\n" + headers +
           "Content-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
           "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted>"
           "<D:href>/Ferro/gen3/n</D:href></D:lock-token-submitted></D:error>\n";
}

using StandardUploadFailures = StandardUploads;

TEST_F(StandardUploadFailures, OfBegin)
{
    const std::string call = "gen3.up3.Begin";
    for (const Row& row : kGeneral) {
        world.Fail(call, ProviderFailure(row.code));
        EXPECT_EQ(Run(Begin("n", {"hello"})), RefusalOf(row.status)) << row.code;
    }
    for (const Row& row : {Row{kCodeNotImplemented, "501"}, Row{kCodeConflict, "409"},
                           Row{kCodeInvalidRequest, "400"}}) {
        world.Fail(call, ProviderFailure(row.code));
        EXPECT_EQ(Run(Begin("n", {"hello"})), Plain(row.status)) << row.code;
    }
    EXPECT_THAT(world["gen3"].uploads, IsEmpty());
    EXPECT_EQ(Content("n"), "(missing)");
    EXPECT_THAT(world.Calls({"io.ReadClientPayload"}), IsEmpty()) << "no body is taken in vain";
}

// In one go it may fit, or hears why it does not.
TEST_F(StandardUploadFailures, OfBegin_WithTheWholeAtHand)
{
    for (const UINT16 code :
         {kCodeNotImplemented, kCodeStorageFull, kCodeTimeout, kCodeBufferTooSmall}) {
        world.Fail("gen3.up3.Begin", ProviderFailure(code));
        EXPECT_EQ(Run(Begin("n" + std::to_string(code), {"hello"}, "?1")), Plain("201", kNew));
        EXPECT_EQ(Content("n" + std::to_string(code)), "hello");
    }
    world.Fail("gen3.up3.Begin", ProviderFailure(kCodeInsufficientResources));
    EXPECT_EQ(Run(Begin("n", {"hello"}, "?1")), Plain("503"));
    EXPECT_EQ(Content("n"), "(missing)");
}

TEST_F(StandardUploadFailures, OfBegin_ByWhatBearsTheName)
{
    EXPECT_EQ(Run(Begin("c", {"x"})),
              Plain("405", "Allow: OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, COPY, "
                           "MOVE, LOCK, UNLOCK\n"));
    EXPECT_EQ(Run(Begin("no/n", {"x"})), Plain("409"));
    EXPECT_EQ(Run(Begin("n", {"x"}).Header("Upload-Length", "1001")), Plain("507"));
    EXPECT_EQ(Run(Begin("f.txt", {"x"}).Header("If-None-Match", "*")), Plain("412"));
    EXPECT_THAT(world["gen3"].uploads, IsEmpty());
}

TEST_F(StandardUploadFailures, OfFind)
{
    (void)Run(Begin("n", {"hello"}));
    for (const Row& row :
         {Row{kCodeNotFound, "404"}, Row{kCodeNotImplemented, "404"},
          Row{kCodeBufferTooSmall, "500"}, Row{kCodeUnsuccessful, "500"},
          Row{kCodeInvalidParameter, "500"}, Row{kCodeInsufficientResources, "503"},
          Row{kCodeTimeout, "503"}, Row{kCodeAccessDenied, "403"}}) {
        world.Fail("gen3.up3.Find", ProviderFailure(row.code));
        EXPECT_EQ(Head(PlaceOf("n")), PlainHead(row.status, "Cache-Control: no-store\n"))
            << row.code;
        world.Fail("gen3.up3.Find", ProviderFailure(row.code));
        EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), Plain(row.status)) << row.code;
    }
    EXPECT_EQ(Kept(), "hello");
}

TEST_F(StandardUploadFailures, OfCancel)
{
    (void)Run(Begin("n", {"hello"}));
    for (const Row& row : {Row{kCodeNotFound, "404"}, Row{kCodeUnsuccessful, "500"},
                           Row{kCodeInsufficientResources, "503"}, Row{kCodeTimeout, "503"},
                           Row{kCodeStorageFull, "507"}, Row{kCodeAccessDenied, "403"}}) {
        world.Fail("gen3.up3.Cancel", ProviderFailure(row.code));
        EXPECT_EQ(Cancel(PlaceOf("n")), Plain(row.status)) << row.code;
    }
    EXPECT_EQ(Kept(), "hello");
}

TEST_F(StandardUploadFailures, OfContinue)
{
    (void)Run(Begin("n", {"hello"}));
    for (const Row& row :
         {Row{kCodeNotFound, "404"}, Row{kCodeConflict, "409"}, Row{kCodeUnsuccessful, "500"},
          Row{kCodeInsufficientResources, "503"}, Row{kCodeTimeout, "503"},
          Row{kCodeStorageFull, "507"}, Row{kCodeAccessDenied, "403"}}) {
        world.Fail("gen3.up3.Continue", ProviderFailure(row.code));
        EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), Plain(row.status)) << row.code;
    }
    world.Fail("gen3.up3.Continue", ProviderFailure(kCodeInvalidRequest));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), OtherLength());
    EXPECT_EQ(Kept(), "hello");
}

TEST_F(StandardUploadFailures, OfWrite_KeepWhatHasArrived)
{
    for (const Row& row :
         {Row{kCodeUnsuccessful, "500"}, Row{kCodeStorageFull, "507"}, Row{kCodeConflict, "409"},
          Row{kCodeNotFound, "404"}, Row{kCodeInsufficientResources, "503"}}) {
        world["gen3"].uploads.clear();
        (void)Run(Begin("n", {"hello"}));
        world.Fail("gen3.more3.Write", ProviderFailure(row.code), 2);
        EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"1", "2", "3"}, "?1")), Plain(row.status))
            << row.code;
        EXPECT_EQ(Kept(), "hello1");
    }
    EXPECT_EQ(Run(Append(PlaceOf("n"), 6, {"23"}, "?1")), Plain("201", State(8, true) + kNew));
    EXPECT_EQ(Content("n"), "hello123");
}

TEST_F(StandardUploadFailures, OfTheBody_KeepWhatHasArrived)
{
    for (const Row& row : {Row{kCodeTimeout, "408"}, Row{kCodeUnsuccessful, "400"}}) {
        world["gen3"].uploads.clear();
        const TALSTATUS end = MakeStatus(kFacilityHost, row.code);
        EXPECT_EQ(Run(Begin("n", {"he", "llo"}, "?1").BodyEndsWith(end)), Plain(row.status));
        EXPECT_EQ(Kept(), "hello");
        EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!"}).BodyEndsWith(end)), Plain(row.status));
        EXPECT_EQ(Kept(), "hello!");
        EXPECT_THAT(Head(PlaceOf("n")), HasSubstr(State(6)));
    }
    EXPECT_EQ(Content("n"), "(missing)");
}

// A failure that will not go away ends the upload; after another one the client tries again.
TEST_F(StandardUploadFailures, OfPublish)
{
    for (const Row& row : kGeneral) {
        world["gen3"].uploads.clear();
        (void)Run(Begin("n", {"hello"}));
        world.Fail("gen3.more3.Publish", ProviderFailure(row.code));
        const bool isFinal = row.status[0] == '4';
        // How much of it is on the disk nobody knows after a failure.
        const std::string state = isFinal ? State(6, true) : "";
        EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"!"}, "?1")), RefusalOf(row.status, state))
            << row.code;
        EXPECT_EQ(Kept(), isFinal ? "(none)" : "hello!") << row.code;
        EXPECT_EQ(Content("n"), "(missing)");
    }
    (void)Run(Begin("m", {"hello"}));
    world.Fail("gen3.more3.Publish", ProviderFailure(kCodeStorageFull));
    (void)Run(Append(PlaceOf("m"), 5, {"!"}, "?1"));
    const Request again = Append(PlaceOf("m"), 6, {}, "?1").Header("Content-Length", "0");
    EXPECT_EQ(Run(again), Plain("201", State(6, true) + kNew));
}

TEST_F(StandardUploadFailures, ProviderThatTellsTooMuch_IsCutShort)
{
    (void)Run(Begin("n", {"hello"}));
    world["gen3"].uploads.back().terms = "no header";
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), Plain("500"));
    world["gen3"].uploads.back().terms = std::string(40, 'x') + ": y\n";
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"x"})), Plain("500"));
    EXPECT_EQ(Kept(), "hello");
}

// -- Digests.

// The next look must not find more than was acknowledged.
TEST_F(StandardUploadFailures, OfADigest_TakeBackTheBody)
{
    OfferDigests(world);
    (void)Run(Begin("n", {"hello"}));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"a", "b"}).Header("Content-Digest", kOther)),
              Plain("400"));
    EXPECT_EQ(Kept(), "hello");
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"a", "b"}).Header("Content-Digest", kMd5)),
              "204\n" + State(7) + "\n");
}

// What is known to be wrong and cannot be taken back would become a part of the file.
TEST_F(StandardUploadFailures, OfADigest_ThatCannotBeTakenBack_EndTheUpload)
{
    OfferDigests(world);
    (void)Run(Begin("n", {"hello"}));
    world.Fail("gen3.more3.SetLength", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Run(Append(PlaceOf("n"), 5, {"a", "b"}).Header("Content-Digest", kOther)),
              Plain("400"));
    EXPECT_EQ(Kept(), "(none)");
}

TEST_F(StandardUploadFailures, OfTheWholesDigest_EndTheUpload)
{
    OfferDigests(world);
    for (const char* digest : {kOther, kMd5}) {
        const bool isRight = digest == kMd5;
        (void)Run(Begin("n", {"a"}).Header("Repr-Digest", digest));
        const std::string reply = Run(Append(PlaceOf("n"), 1, {"b"}, "?1"));
        EXPECT_EQ(reply,
                  isRight ? Plain("201", State(2, true) + kNew) : Plain("400", State(2, true)));
        EXPECT_EQ(Content("n"), isRight ? "ab" : "(missing)");
    }
    EXPECT_THAT(UploadCalls(), testing::Contains(HasSubstr("gen3.more3.Read(0, ")));
}

TEST_F(StandardUploadFailures, OfTheWholesContent_KeepTheUpload)
{
    OfferDigests(world);
    (void)Run(Begin("n", {"a"}).Header("Repr-Digest", kMd5));
    world["gen3"].readLimit = 1;
    world.Fail("gen3.more3.Read", ProviderFailure(kCodeUnsuccessful), 2);
    EXPECT_EQ(Run(Append(PlaceOf("n"), 1, {"b"}, "?1")), Plain("500"));
    EXPECT_EQ(Kept(), "ab");
}

// A client that is told of an upload has to be able to find it.
TEST_F(StandardUploadFailures, PartWithoutAPlaceToGoOn_IsNotBegun)
{
    EXPECT_EQ(Run(Begin("n", {"hello"}).Raw("/" + std::string(60'001, 'x'))).substr(0, 1), "5");
    EXPECT_THAT(world["gen3"].uploads, IsEmpty());
    world.Fail("io.GetRawUrl", kInjected);
    EXPECT_EQ(Run(Begin("n", {"hello"})), Plain("503"));
    EXPECT_THAT(world["gen3"].uploads, IsEmpty());
    world.Fail("io.GetRawUrl", kInjected);
    EXPECT_EQ(Run(Begin("n", {"hello"}, "?1")), Plain("201", State(5, true) + kNew))
        << "the whole needs none";
}

TEST_F(StandardUploadFailures, MemoryThatIsShort_IsNoOtherMediaType)
{
    (void)Run(Begin("n", {"hello"}));
    const Request append = Append(PlaceOf("n"), 5, {"!"});
    int failed = 0;
    for (int nth = 1; nth < 12; ++nth) {
        world.recorder.Clear();
        world.Fail("io.AllocMemory", kInjected, nth);
        const std::string status = Run(append).substr(0, 3);
        EXPECT_THAT(status, testing::AnyOf("204", "409", "503")) << nth; // 409: it has been added
        failed += status == "503" ? 1 : 0;
    }
    EXPECT_GE(failed, 3) << "the mark, the offset and the type are read";
}

// -- Every call in turn.

struct SweptUpload {
    const char* why;
    Request request;
    int begun; // bytes of the upload that is there before, -1: none
};

void ExpectTrue(World& world, const Reply& reply, const std::string& before)
{
    const std::string content = world["gen3"].Content("/gen3/f.txt");
    const std::string kept =
        world["gen3"].uploads.empty() ? std::string() : world["gen3"].uploads.back().content;
    EXPECT_THAT(content, testing::AnyOf("hello world", "hello!!")) << reply.text;
    const bool isPending = content == "hello world" && !world["gen3"].uploads.empty();
    if (reply.text.starts_with("2") && reply.text.find("Upload-Complete: ") != std::string::npos) {
        const bool isComplete = reply.text.find("Upload-Complete: ?1") != std::string::npos;
        EXPECT_EQ(content, isComplete ? "hello!!" : "hello world") << reply.text;
    }
    const size_t at = reply.text.find("Upload-Offset: ");
    if (at != std::string::npos && isPending) {
        EXPECT_LE(std::stoul(reply.text.substr(at + 15)), kept.size()) << reply.text;
    }
    if (isPending) {
        EXPECT_TRUE(kept.starts_with(before)) << "what was acknowledged is there";
    }
}

TEST(StandardUploadSweeps, EveryCallMayFail)
{
    const auto date = [](Request request) {
        return request.Header("X-OC-Mtime", "1769862600").Header("If-Match", "\"v1\"");
    };
    const std::string place = PlaceOf("f.txt");
    const SweptUpload rows[] = {
        {"a part begins", date(Begin("f.txt", {"he", "llo"})).TakesInterims(), -1},
        {"the whole", date(Begin("f.txt", {"hello", "!!"}, "?1")).TakesInterims(), -1},
        {"a part is added", Append(place, 5, {"!"}), 5},
        {"the last part", Append(place, 5, {"!", "!"}, "?1"), 5},
        {"asked for", Request(KestMethodHead, place), 5},
        {"asked what is offered", Request(KestMethodOptions, "/Ferro/gen3/f.txt"), 5},
        {"cancelled", Request(KestMethodDelete, place), 5},
    };
    for (const SweptUpload& row : rows) {
        SCOPED_TRACE(row.why);
        const std::string before = row.begun < 0 ? "" : "hello";
        harness::ExpectEveryFailureIsSurvived(
            [&] {
                auto world = MakeUploadWorld();
                if (row.begun >= 0)
                    world->Run(Begin("f.txt", {before})
                                   .Header("If-Match", "\"v1\"")
                                   .Header("X-OC-Mtime", "1769862600"));
                world->Remember("/Ferro/gen3");
                return world;
            },
            row.request,
            [&](World& world, const Reply& reply) { ExpectTrue(world, reply, before); });
    }
}

} // namespace

} // namespace standard_tests
