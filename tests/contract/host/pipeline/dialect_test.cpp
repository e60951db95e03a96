// SPDX-License-Identifier: Apache-2.0
//
// The module gets requests as they were sent, and its replies are the client's, in both dialects.
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

class EachDialect : public ServerTest, public testing::WithParamInterface<Dialect> {
  protected:
    void SetUp() override
    {
        ServerSettings settings = QuietSettings();
        settings.dialect = GetParam();
        StartUntilTearDown(settings);
    }
};

} // namespace

TEST_P(EachDialect, RangesAreTheModules)
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

TEST_P(EachDialect, ConditionsAreNotJudged)
{
    module.handler = [](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, UINT32{KestMethodDelete});
        EXPECT_EQ(Header(io, "If-Match"), "\"e\"");
        return io.SendHeader(204);
    };
    EXPECT_EQ(Ask("DELETE /Ferro/a HTTP/1.1\r\nHost: h\r\nIf-Match: \"e\"\r\n"
                  "If-None-Match: *\r\n\r\n")
                  .status,
              204);
    EXPECT_EQ(module.calls, 1);
}

TEST_P(EachDialect, CopyIsAskedForOnceWithTheClientsOverwrite)
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

TEST_P(EachDialect, RepliesKeepTheirStatus)
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

TEST_P(EachDialect, OptionsOfTheModuleGetNothingAdded)
{
    EXPECT_EQ(Ask("OPTIONS /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n").Header("MS-Author-Via"),
              "(none)");
    EXPECT_EQ(module.calls, 1);
}

// What is too long for the module to send is short, and seen to be.
TEST_P(EachDialect, ABodyShorterThanItsLengthEndsTheConnection)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "4294967301");
        EXPECT_EQ(io.SendHeader(200), TAL_STATUS_SUCCESS);
        return Write(io, "12345");
    };
    Client client(port);
    ASSERT_TRUE(client.Send("GET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n"));
    const Answer answer = client.Receive();
    EXPECT_EQ(answer.Header("Content-Length"), "4294967301");
    EXPECT_EQ(answer.body, "12345");
    EXPECT_FALSE(answer.isWhole);
    EXPECT_TRUE(client.IsClosed());
}

INSTANTIATE_TEST_SUITE_P(Dialects, EachDialect,
                         testing::Values(Dialect::Classic, Dialect::Standard),
                         [](const auto& each) {
                             return each.param == Dialect::Classic ? "Classic" : "Standard";
                         });

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
