// SPDX-License-Identifier: Apache-2.0
//
// Conditions of a request, as components are told of them.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

struct Told {
    std::string match, noneMatch;
    UINT64 unmodifiedSince = 0;
    bool mayReplace = false;
};

class ConditionsToldOf : public ServerTest {
  protected:
    void Speak(Dialect dialect)
    {
        module.handler = [this](IKestIO_5& io, UINT32) {
            told.push_back(Now());
            return io.SendHeader(201);
        };
        ServerSettings settings = QuietSettings();
        settings.dialect = dialect;
        StartUntilTearDown(settings);
    }
    static Told Now()
    {
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        KEST_CONDITIONS now{};
        EXPECT_EQ(static_cast<IKestCallContext*>(out)->GetConditions(&now), TAL_STATUS_SUCCESS);
        return {{now.Match.Buffer, now.Match.Length},
                {now.NoneMatch.Buffer, now.NoneMatch.Length},
                now.UnmodifiedSince,
                now.MayReplace != 0};
    }
    // What the one call of the module was told.
    Told Tell(const std::string& fields, const std::string& method = "PUT")
    {
        told.clear();
        EXPECT_EQ(Ask(method +
                      " /Ferro/docs/a HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n"
                      "Destination: /Ferro/docs/b\r\nOverwrite: F\r\n" +
                      fields + "\r\n")
                      .status,
                  201);
        EXPECT_EQ(told.size(), 1u);
        return told.empty() ? Told() : told.front();
    }

    std::vector<Told> told;
};

constexpr char kAll[] = "If-Match: *\r\nIf-None-Match: \"a\"\r\nIf-None-Match: \"b\"\r\n";

} // namespace

TEST_F(ConditionsToldOf, InTheStandardDialect_AreThoseOfTheRequest)
{
    Speak(Dialect::Standard);
    Told now = Tell(kAll);
    EXPECT_EQ(now.match, "*");
    EXPECT_EQ(now.noneMatch, "\"a\", \"b\"");
    EXPECT_EQ(now.unmodifiedSince, 0u);
    EXPECT_FALSE(Tell("If-Match: *\r\n", "MOVE").mayReplace); // "Overwrite: F"
    now = Tell("");
    EXPECT_EQ(now.match + now.noneMatch, "");
    for (const char* method :
         {"PUT", "POST", "DELETE", "PROPPATCH", "MKCOL", "COPY", "MOVE", "LOCK", "PATCH"})
        EXPECT_EQ(Tell("If-None-Match: *\r\n", method).noneMatch, "*") << method;
}

TEST_F(ConditionsToldOf, InTheStandardDialect_HaveDatesInEachForm)
{
    Speak(Dialect::Standard);
    constexpr UINT64 kThen = 124'286'717'770'000'000;
    for (const char* date : {"Mon, 07 Nov 1994 08:49:37 GMT", "Monday, 07-Nov-94 08:49:37 GMT",
                             "Mon Nov  7 08:49:37 1994"}) {
        const std::string field = std::string("If-Unmodified-Since: ") + date + "\r\n";
        EXPECT_EQ(Tell(field).unmodifiedSince, kThen) << date;
        EXPECT_EQ(Tell(field + "If-Match: *\r\n").unmodifiedSince, 0u) << date;
    }
    EXPECT_EQ(Tell("If-Unmodified-Since: when the moon was full\r\n").unmodifiedSince, 0u);
}

TEST_F(ConditionsToldOf, InTheClassicDialect_AreNone)
{
    Speak(Dialect::Classic);
    for (const char* method :
         {"PUT", "POST", "DELETE", "PROPPATCH", "MKCOL", "COPY", "MOVE", "LOCK"}) {
        const Told now = Tell(
            std::string(kAll) + "If-Unmodified-Since: Mon, 07 Nov 1994 08:49:37 GMT\r\n", method);
        EXPECT_EQ(now.match + now.noneMatch, "") << method;
        EXPECT_EQ(now.unmodifiedSince, 0u) << method;
    }
}

} // namespace kestd::test
