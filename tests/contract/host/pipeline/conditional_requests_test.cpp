// SPDX-License-Identifier: Apache-2.0
//
// Changes that a client wants under a condition only.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

class Preconditions : public ServerTest {
  protected:
    void SetUp() override
    {
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            if (method == KestMethodHead) {
                ++looks;
                if (exists)
                    SetHeader(io, "Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT");
                return io.SendHeader(exists ? 200 : 404);
            }
            ++changes;
            return io.SendHeader(method == KestMethodLock ? 200 : 201);
        };
        StartUntilTearDown();
    }
    int Status(const std::string& fields, const std::string& method = "PUT")
    {
        looks = changes = 0;
        return Ask(method +
                   " /Ferro/docs/a HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n"
                   "Destination: /Ferro/docs/b\r\nOverwrite: F\r\n" +
                   fields + "\r\n")
            .status;
    }

    std::string match, noneMatch;
    bool exists = true;
    int looks = 0;
    int changes = 0;
};

} // namespace

TEST_F(Preconditions, NothingIsLookedForWithoutACondition)
{
    EXPECT_EQ(Status(""), 201);
    EXPECT_EQ(looks, 0);
}

TEST_F(Preconditions, ConditionsDecideWhetherTheModuleIsCalled)
{
    const struct {
        const char* fields;
        int there, missing; // statuses
    } cases[] = {
        {"If-None-Match: *\r\n", 412, 201},
        {"If-None-Match: \"tag\"\r\n", 201, 201},
        {"If-Match: *\r\n", 201, 412},
        {"If-Match: \"tag\", \"other\"\r\n", 412, 412},
        {"If-Unmodified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n", 201, 201},
        {"If-Unmodified-Since: Mon, 07 Nov 1994 08:49:37 GMT\r\n", 201, 201},
        {"If-Unmodified-Since: Sun, 06 Nov 1994 08:49:36 GMT\r\n", 412, 201},
        {"If-Unmodified-Since: when the moon was full\r\n", 201, 201},
        {"If-Match: *\r\nIf-Unmodified-Since: Sat, 05 Nov 1994 08:49:37 GMT\r\n", 201, 412},
        {"If-Match: *\r\nIf-None-Match: *\r\n", 412, 412},
    };
    for (const auto& c : cases) {
        for (const bool there : {true, false}) {
            exists = there;
            const int wanted = there ? c.there : c.missing;
            EXPECT_EQ(Status(c.fields), wanted) << c.fields << there;
            EXPECT_EQ(changes, wanted == 412 ? 0 : 1) << c.fields << there;
            EXPECT_EQ(looks, 1) << c.fields << there;
        }
    }
}

TEST_F(Preconditions, EveryMethodThatChangesIsHeldToThem)
{
    for (const char* method :
         {"PUT", "POST", "DELETE", "PROPPATCH", "MKCOL", "COPY", "MOVE", "LOCK"}) {
        EXPECT_EQ(Status("If-None-Match: *\r\n", method), 412) << method;
        EXPECT_EQ(changes, 0) << method;
    }
    for (const char* method : {"GET", "PROPFIND", "UNLOCK", "OPTIONS"}) {
        EXPECT_EQ(Status("If-None-Match: *\r\n", method), 201) << method;
        EXPECT_EQ(looks, 0) << method;
    }
}

TEST_F(Preconditions, ComponentsAreToldOfThem)
{
    KEST_CONDITIONS told{};
    const auto inner = module.handler;
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        EXPECT_EQ(static_cast<IKestCallContext*>(out)->GetConditions(&told), TAL_STATUS_SUCCESS);
        if (method == KestMethodHead) { // the server's own look asks for nothing
            EXPECT_EQ(told.Match.Length + told.NoneMatch.Length, 0);
            return inner(io, method);
        }
        match.assign(told.Match.Buffer, told.Match.Length);
        noneMatch.assign(told.NoneMatch.Buffer, told.NoneMatch.Length);
        return inner(io, method);
    };
    EXPECT_EQ(Status("If-Match: *\r\nIf-None-Match: \"a\"\r\nIf-None-Match: \"b\"\r\n"), 201);
    EXPECT_EQ(match, "*");
    EXPECT_EQ(noneMatch, "\"a\", \"b\"");
    EXPECT_EQ(told.UnmodifiedSince, 0u);
    EXPECT_EQ(Status("If-Unmodified-Since: Mon, 07 Nov 1994 08:49:37 GMT\r\n"), 201);
    EXPECT_EQ(told.UnmodifiedSince, 124'286'717'770'000'000u);
    EXPECT_EQ(Status("If-Match: *\r\n", "MOVE"), 201);
    EXPECT_EQ(told.MayReplace, 0); // "Overwrite: F", see Status
    EXPECT_EQ(Status("", "PUT"), 201);
    EXPECT_EQ(match + noneMatch, "");
}

TEST_F(Preconditions, LockThatMakesAFileSaysSo)
{
    exists = false;
    EXPECT_EQ(Status("If-None-Match: *\r\n", "LOCK"), 201);
    EXPECT_EQ(Status("", "LOCK"), 200);
}

TEST_F(Preconditions, LargeBodyIsNotInvitedWhenTheConditionFails)
{
    Client client(port);
    const Answer answer = client.Ask("PUT /Ferro/docs/a HTTP/1.1\r\nHost: h\r\n"
                                     "Content-Length: 5000000\r\nExpect: 100-continue\r\n"
                                     "If-None-Match: *\r\n\r\n");
    EXPECT_EQ(answer.status, 412);
}

} // namespace kestd::test
