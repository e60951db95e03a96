// SPDX-License-Identifier: Apache-2.0
//
// The order of the stages, and which of them the standard dialect leaves to the module.
#include "host/pipeline/pipeline.h"

#include "host/pipeline/request_validator.h"

namespace kestd {

namespace {

using ::testing::ElementsAre;

class ClosedDoor final : public AccessControl {
  public:
    AuthResult Authenticate(const Credentials&) override { return {}; }
    void ReleaseSession(SCHANDLE) override {}
};

class NoHandler final : public RequestHandler {
  public:
    void Handle(Exchange&) override {}
    void Unlock(Exchange&, std::string) override {}
};

std::vector<std::string_view> StagesOf(Dialect dialect)
{
    ClosedDoor door;
    NoHandler handler;
    return Pipeline(dialect, door, handler, "/Ferro").Stages();
}

UINT32 MethodIn(Dialect dialect, std::string_view token, int& refusal)
{
    EffectiveSettings settings;
    settings.server.dialect = dialect;
    Request request;
    const std::string head = std::string(token) + " /Ferro/a HTTP/1.1\r\nHost: localhost\r\n\r\n";
    request.headText.Append(head.data(), head.size());
    MessageFraming framing;
    bool mustClose = false;
    refusal = ReadRequest(request, settings, framing, mustClose);
    return request.method;
}

} // namespace

TEST(PipelineOrder, OfTheClassicDialectProtectsAndChangesNothing)
{
    EXPECT_THAT(StagesOf(Dialect::Classic),
                ElementsAre("security_headers", "host_check", "router", "authentication", "csrf",
                            "stored_scripts", "partial_put", "copy_move_headers", "access",
                            "body_limits", "granted_lock"));
}

TEST(PipelineOrder, OfTheStandardDialectTellsOfConditions)
{
    EXPECT_THAT(StagesOf(Dialect::Standard),
                ElementsAre("compression", "security_headers", "host_check", "router",
                            "authentication", "csrf", "stored_scripts", "copy_move_headers",
                            "access", "body_limits", "condition_headers", "granted_lock"));
}

TEST(PipelineMethods, PatchIsOneOfTheStandardDialectOnly)
{
    int refusal = 0;
    EXPECT_EQ(MethodIn(Dialect::Classic, "PATCH", refusal), UINT32{KestMethodUnknown});
    EXPECT_EQ(refusal, 501);
    EXPECT_EQ(MethodIn(Dialect::Standard, "PATCH", refusal), UINT32{KestMethodPatch});
    EXPECT_EQ(refusal, 0);
    EXPECT_EQ(MethodIn(Dialect::Standard, "patch", refusal), UINT32{KestMethodUnknown});
}

} // namespace kestd
