// SPDX-License-Identifier: Apache-2.0
//
// POST in the standard dialect: what a form's upload comes to, and conditions on what a browser
// looks at.
#include "fixture.h"

namespace standard_tests {

namespace {

class StandardPost : public Standard {
  protected:
    static Request Form(const std::string& path, const std::string& name)
    {
        Request request(KestMethodPost, path);
        request.userAgent = 1; // a browser
        return request.Header("Content-Type", "multipart/form-data; boundary=b")
            .Body({"--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + name +
                   "\"\r\n\r\ncontent\r\n--b--\r\n"});
    }
};

TEST_F(StandardPost, StoresWhatAFormSends)
{
    EXPECT_EQ(Run(Form("/Ferro/gen3/c/", "new.txt")).substr(0, 3), "200");
    EXPECT_EQ(world["gen3"].Content("/gen3/c/new.txt"), "content");
}

// A person without scripts would see an empty page.
TEST_F(StandardPost, FailsWithAStatusAndAPage)
{
    const auto page = [](const char* status, const char* sentence) {
        return testing::AllOf(testing::StartsWith(std::string(status) + "\n"), HasSubstr(sentence),
                              HasSubstr("<a href=\"..\">"), Not(HasSubstr("<script")));
    };
    EXPECT_THAT(Run(Form("/Ferro", "new.txt")), page("403", "You may not do this here."));
    Request typeless(KestMethodPost, "/Ferro/gen3/c/");
    typeless.userAgent = 1;
    EXPECT_THAT(Run(typeless.Body({"x"})), page("415", "is of a kind that is not taken"));
    typeless.Header("Content-Type", "text/plain; charset=multipart/form-data");
    EXPECT_THAT(Run(typeless), page("415", "is of a kind that is not taken"));
    for (const UINT16 code : {kCodeStorageFull, kCodeAccessDenied}) {
        auto own = MakeWorld();
        own->recorder.FailAlways("gen3.res.Write", ProviderFailure(code));
        own->recorder.FailAlways("gen3.res3.Write", ProviderFailure(code));
        EXPECT_THAT(own->Run(Form("/Ferro/gen3/c/", "new.txt")).text,
                    page(code == kCodeStorageFull ? "507" : "403", "<h1>"));
    }
}

TEST_F(StandardPost, OfAPreference_ShowsThePage)
{
    Request sort(KestMethodPost, "/Ferro/gen3/c/");
    sort.Header("Content-Type", "application/x-www-form-urlencoded").Body({"Sort=1"});
    EXPECT_EQ(Run(sort), Run(Request(KestMethodGet, "/Ferro/gen3/c/")));
    sort.path = "/Ferro/gen3/none/";
    EXPECT_EQ(Run(sort), Run(Request(KestMethodGet, "/Ferro/gen3/none/")));
}

// RFC 9110 sections 13.1.2 and 14.2: neither 304 nor 206.
TEST_F(StandardPost, OfAPreference_KnowsNoRangesAndIsNeverNotModified)
{
    Request sort(KestMethodPost, "/Ferro/gen3/f.txt");
    sort.Header("Content-Type", "application/x-www-form-urlencoded").Body({"Sort=1"});
    EXPECT_THAT(Run(Request(sort).Header("Range", "bytes=0-1")),
                testing::AllOf(testing::StartsWith("200\n"), testing::EndsWith("\n\nhello world")));
    EXPECT_EQ(Run(Request(sort).Header("If-None-Match", "\"v1\"")).substr(0, 3), "412");
    EXPECT_EQ(Run(Request(sort).Header("If-Modified-Since", kAfterChange)).substr(0, 3), "200");
}

// RFC 9110 section 13.1.1: the page of a collection has no tag that a client could know.
TEST_F(StandardPost, ConditionsHoldOfCollectionsToo)
{
    for (const UINT32 method : {UINT32{KestMethodGet}, UINT32{KestMethodHead}}) {
        const Request look(method, "/Ferro/gen3/c/");
        EXPECT_EQ(Run(Request(look).Header("If-Match", "\"other\"")).substr(0, 3), "412");
        EXPECT_EQ(Run(Request(look).Header("If-Unmodified-Since", "Fri, 30 Jan 2026 12:00:00 GMT"))
                      .substr(0, 3),
                  "412");
        const std::string page = Run(look);
        EXPECT_EQ(Run(Request(look).Header("If-Match", "*")), page);
        EXPECT_EQ(Run(Request(look).Header("If-None-Match", "*")), page) << "never 304";
        EXPECT_EQ(Run(Request(look).Header("If-Modified-Since", kAfterChange)), page);
    }
}

TEST(StandardPostFailures, EveryFailureIsSurvived)
{
    Request request(KestMethodPost, "/Ferro/gen3/c/");
    request.Header("Content-Type", "multipart/form-data; boundary=b")
        .Body({"--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"n\"\r\n\r\nx"
               "\r\n--b--\r\n"});
    harness::ExpectEveryFailureIsSurvived(MakeWorld, request);
}

} // namespace

} // namespace standard_tests
