// SPDX-License-Identifier: Apache-2.0
//
// In the standard dialect the module gets requests as they were sent, and its replies are the
// client's.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

class StandardDialect : public ServerTest {
  protected:
    void SetUp() override
    {
        ServerSettings settings = QuietSettings();
        settings.dialect = Dialect::Standard;
        StartUntilTearDown(settings);
    }
};

KEST_CONDITIONS ConditionsNow()
{
    void* out = nullptr;
    EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
              TAL_STATUS_SUCCESS);
    KEST_CONDITIONS conditions{};
    EXPECT_EQ(static_cast<IKestCallContext*>(out)->GetConditions(&conditions), TAL_STATUS_SUCCESS);
    return conditions;
}

std::string TextOf(const STRING& text)
{
    return {text.Buffer, text.Length};
}

} // namespace

TEST_F(StandardDialect, RangesAreTheModules)
{
    std::string range;
    module.handler = [&range](IKestIO_5& io, UINT32) {
        range = Header(io, "Range");
        SetHeader(io, "Content-Length", "4");
        SetHeader(io, "Content-Range", "bytes 6-9/10");
        EXPECT_EQ(io.SendHeader(206), TAL_STATUS_SUCCESS);
        return Write(io, "6789");
    };
    const Answer answer = Ask("GET /Ferro/a HTTP/1.1\r\nHost: h\r\nRange: bytes=-4\r\n\r\n");
    EXPECT_EQ(range, "bytes=-4");
    EXPECT_EQ(answer.status, 206);
    EXPECT_EQ(answer.body, "6789");
    EXPECT_EQ(module.calls, 1);
}

TEST_F(StandardDialect, APutOfAPartReachesTheModule)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS end = TAL_STATUS_SUCCESS;
        EXPECT_EQ(Header(io, "Content-Range"), "bytes 0-1/9");
        EXPECT_EQ(ReadBody(io, end), "ab");
        return io.SendHeader(204);
    };
    EXPECT_EQ(Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Range: bytes 0-1/9\r\n"
                  "Content-Length: 2\r\n\r\nab")
                  .status,
              204);
}

TEST_F(StandardDialect, ConditionsAreToldAndNotJudged)
{
    std::string match;
    std::string noneMatch;
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, UINT32{KestMethodDelete});
        match = TextOf(ConditionsNow().Match);
        noneMatch = TextOf(ConditionsNow().NoneMatch);
        return io.SendHeader(204);
    };
    EXPECT_EQ(Ask("DELETE /Ferro/a HTTP/1.1\r\nHost: h\r\nIf-Match: \"e\"\r\n"
                  "If-None-Match: *\r\n\r\n")
                  .status,
              204);
    EXPECT_EQ(match, "\"e\"");
    EXPECT_EQ(noneMatch, "*");
    EXPECT_EQ(module.calls, 1);
}

TEST_F(StandardDialect, CopyIsAskedForOnceWithTheClientsOverwrite)
{
    BOOLEAN overwrite = false;
    module.handler = [&overwrite](IKestIO_5& io, UINT32) {
        INT32 depth = 0;
        UNICODE_STRING* destination = nullptr;
        EXPECT_EQ(io.GetCopyInfo(&overwrite, &depth, &destination), TAL_STATUS_SUCCESS);
        return io.SendHeader(412);
    };
    const Answer answer = Ask("COPY /Ferro/a HTTP/1.1\r\nHost: h\r\nDestination: /Ferro/b\r\n\r\n");
    EXPECT_EQ(answer.status, 412);
    EXPECT_TRUE(overwrite);
    EXPECT_EQ(module.calls, 1);
}

TEST_F(StandardDialect, RepliesKeepTheirStatus)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        EXPECT_EQ(io.SendHeader(200), TAL_STATUS_SUCCESS);
        return Write(io, "<a:href>opaquelocktoken:abc</a:href>");
    };
    EXPECT_EQ(Ask("MOVE /Ferro/a HTTP/1.1\r\nHost: h\r\nDestination: /Ferro/b\r\n\r\n").status,
              200);
    const Answer answer = Ask("LOCK /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\n<x/>");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.Header("Lock-Token"), "(none)");
    EXPECT_EQ(module.calls, 2);
}

TEST_F(StandardDialect, PatchReachesTheModuleWithItsBody)
{
    std::string body;
    module.handler = [&body](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, UINT32{KestMethodPatch});
        TALSTATUS end = TAL_STATUS_SUCCESS;
        body = ReadBody(io, end);
        return io.SendHeader(204);
    };
    EXPECT_EQ(Ask("PATCH /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\n\r\nab").status, 204);
    EXPECT_EQ(body, "ab");
}

} // namespace kestd::test
