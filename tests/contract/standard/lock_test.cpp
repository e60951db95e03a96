// SPDX-License-Identifier: Apache-2.0
//
// LOCK and UNLOCK in the standard dialect: whole replies.
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kToken[] = "00000000-0000-4000-8000-000000000001";
constexpr char kXml[] = "Transfer-Encoding: chunked\n"
                        "Content-Type: application/xml; charset=\"utf-8\"\n\n"
                        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string Info(const std::string& scope = "exclusive",
                 const std::string& owner = "<D:owner>me</D:owner>")
{
    return "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:" + scope +
           "/></D:lockscope><D:locktype><D:write/></D:locktype>" + owner + "</D:lockinfo>";
}

std::string Active(const std::string& root, const std::string& depth, const std::string& timeout,
                   const std::string& scope = "exclusive", const std::string& owner = "me")
{
    return "<D:prop xmlns:D=\"DAV:\"><D:lockdiscovery><D:activelock><D:locktype><D:write/>"
           "</D:locktype><D:lockscope><D:" +
           scope + "/></D:lockscope><D:depth>" + depth + "</D:depth><D:owner>" + owner +
           "</D:owner><D:timeout>" + timeout +
           "</D:timeout><D:locktoken><D:href>opaquelocktoken:" + kToken +
           "</D:href></D:locktoken><D:lockroot><D:href>" + root +
           "</D:href></D:lockroot></D:activelock></D:lockdiscovery></D:prop>\n";
}

std::string Granted(const std::string& status, const std::string& date, const std::string& active)
{
    return status + "\nLock-Token: <opaquelocktoken:" + kToken +
           ">\nETag: \"v1\"\nLast-Modified: " + date + "\n" + kXml + active;
}

class StandardLock : public Standard {
  protected:
    Request Lock(const std::string& name, const std::string& body = Info())
    {
        Request request(KestMethodLock, "/Ferro/gen3/" + name);
        if (!body.empty())
            request.Body({body});
        return request;
    }
    Request Unlock(const std::string& name, const std::string& token)
    {
        return Request(KestMethodUnlock, "/Ferro/gen3/" + name).Header("Lock-Token", token);
    }
    void Hold(const std::string& path, INT32 depth, DAV_LOCK_SCOPE scope = Exclusive)
    {
        world["gen3"].Find(path)->locks.push_back({Write, scope, depth, -1, "them", "held"});
    }
};

TEST_F(StandardLock, ExistingFile_Answers200)
{
    EXPECT_EQ(Run(Lock("f.txt").Header("Depth", "0").Header("Timeout", "Infinite, Second-5")),
              Granted("200", kStart, Active("/Ferro/gen3/f.txt", "0", "Second-86400")));
    EXPECT_THAT(world.Calls({"gen3.3."}),
                ElementsAre("gen3.3.Lock(/gen3/f.txt, depth=0, timeout=86400, exclusive, "
                            "owner=me, -)"));
}

TEST_F(StandardLock, NewName_Answers201WithAnEmptyFile)
{
    EXPECT_EQ(Run(Lock("new.txt").Header("Timeout", "Second-600")).substr(0, 3), "201");
    EXPECT_EQ(world["gen3"].Content("/gen3/new.txt"), "");
    EXPECT_EQ(Run(Lock("no/such/parent")).substr(0, 3), "409");
}

TEST_F(StandardLock, CollectionWithoutDepth_IsLockedWhole)
{
    EXPECT_EQ(Run(Lock("c", Info("shared", "<D:owner><D:href>http://me/</D:href></D:owner>"))
                      .Header("Timeout", "Extend, Second-60")),
              Granted("200", kStart,
                      Active("/Ferro/gen3/c/", "infinity", "Second-60", "shared",
                             "<D:href xmlns:D=\"DAV:\">http://me/</D:href>")));
}

TEST_F(StandardLock, ConflictAtOrAbove_Answers423WithoutTheToken)
{
    Hold("/gen3/c", -1);
    const std::string expected = std::string("423\n") + kXml +
                                 "<D:error xmlns:D=\"DAV:\"><D:no-conflicting-lock>"
                                 "<D:href>/Ferro/gen3/c/</D:href>"
                                 "</D:no-conflicting-lock></D:error>\n";
    EXPECT_EQ(Run(Lock("c")), expected);
    EXPECT_EQ(Run(Lock("c/a")), expected);
    EXPECT_EQ(Run(Lock("c/new")), expected);
    EXPECT_FALSE(world["gen3"].Has("/gen3/c/new"));
}

TEST_F(StandardLock, ConflictBelow_Answers207)
{
    Hold("/gen3/c/d/b", 0);
    EXPECT_EQ(Run(Lock("c")),
              std::string("207\n") + kXml +
                  "<D:multistatus xmlns:D=\"DAV:\">\n"
                  "<D:response><D:href>/Ferro/gen3/c/d/b</D:href>"
                  "<D:status>HTTP/1.1 423 Locked</D:status></D:response>\n"
                  "<D:response><D:href>/Ferro/gen3/c/</D:href>"
                  "<D:status>HTTP/1.1 424 Failed Dependency</D:status></D:response>\n"
                  "</D:multistatus>\n");
    EXPECT_EQ(Run(Lock("c").Header("Depth", "0")).substr(0, 3), "200");
}

TEST_F(StandardLock, SharedBesideShared)
{
    Hold("/gen3/f.txt", 0, Shared);
    EXPECT_EQ(Run(Lock("f.txt", Info("shared"))).substr(0, 3), "200");
    EXPECT_EQ(Run(Lock("f.txt")).substr(0, 3), "423");
}

TEST_F(StandardLock, Refresh_GivesMoreTime)
{
    ASSERT_EQ(Run(Lock("c").Header("Depth", "infinity")).substr(0, 3), "200");
    const std::string token = std::string("(<opaquelocktoken:") + kToken + ">)";
    EXPECT_EQ(Run(Lock("c/a", "").Header("If", token).Header("Timeout", "Second-77")),
              std::string("200\nLock-Token: <opaquelocktoken:") + kToken + ">\n" + kXml +
                  Active("/Ferro/gen3/c/", "infinity", "Second-77"))
        << "by way of a member";
    EXPECT_EQ(Run(Lock("f.txt", "").Header("If", token)),
              "412\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<D:error xmlns:D=\"DAV:\"><D:lock-token-matches-request-uri/></D:error>\n");
    EXPECT_EQ(Run(Lock("c", "")), Plain("400"));
}

TEST_F(StandardLock, MalformedRequests_Answer400)
{
    struct Row {
        const char* why;
        std::string body;
        std::string depth;
    };
    for (const Row& row :
         {Row{"not closed", "<D:lockinfo xmlns:D=\"DAV:\"", "0"},
          Row{"no scope",
              "<D:lockinfo xmlns:D=\"DAV:\"><D:locktype><D:write/></D:locktype></D:lockinfo>", "0"},
          Row{"a read lock",
              "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope><D:locktype>"
              "<D:read/></D:locktype></D:lockinfo>",
              "0"},
          Row{"another root", "<D:propfind xmlns:D=\"DAV:\"/>", "0"}, Row{"depth 1", Info(), "1"},
          Row{"a long owner",
              Info("exclusive", "<D:owner>" + std::string(9000, 'o') + "</D:owner>"), "0"}})
        EXPECT_EQ(Run(Lock("f.txt", row.body).Header("Depth", row.depth)), Plain("400")) << row.why;
    EXPECT_TRUE(world["gen3"].Find("/gen3/f.txt")->locks.empty());
}

TEST_F(StandardLock, Unlock_Answers204)
{
    Hold("/gen3/c", -1);
    EXPECT_EQ(Run(Unlock("c/a", "<opaquelocktoken:held>")), "204\n\n") << "from below";
    EXPECT_TRUE(world["gen3"].Find("/gen3/c")->locks.empty());
}

TEST_F(StandardLock, UnlockOfAnotherToken_Answers409)
{
    Hold("/gen3/c", -1);
    EXPECT_EQ(Run(Unlock("f.txt", "<opaquelocktoken:held>")),
              "409\nContent-Type: application/xml; charset=\"utf-8\"\nContent-Length: \n\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<D:error xmlns:D=\"DAV:\"><D:lock-token-matches-request-uri/></D:error>\n");
    world.Fail("gen3.3.Unlock", ProviderFailure(kCodeAccessDenied));
    EXPECT_EQ(Run(Unlock("c", "<opaquelocktoken:held>")).substr(0, 3), "403");
    for (const char* token : {"", "held", "<held>", "<opaquelocktoken:>", "<opaquelocktoken:a> b"})
        EXPECT_EQ(Run(Unlock("c", token)).substr(0, 3), "400") << token;
    EXPECT_EQ(Run(Request(KestMethodUnlock, "/Ferro/gen3/c")).substr(0, 3), "400");
    EXPECT_EQ(world["gen3"].Find("/gen3/c")->locks.size(), 1U);
}

// RFC 4918 section 9.11.1: no lock here has such a token, as none has a wrong one.
TEST_F(StandardLock, UnlockOfATokenOfAnotherScheme_Answers409)
{
    Hold("/gen3/c", -1);
    const std::string wrong = Run(Unlock("c", "<opaquelocktoken:other>"));
    EXPECT_EQ(wrong.substr(0, 3), "409");
    for (const char* token : {"<urn:uuid:00000000-0000-4000-8000-000000000001>", "<urn:held>",
                              "urn:uuid:held", "<DAV:no-lock>"})
        EXPECT_EQ(Run(Unlock("c", token)), wrong) << token;
    EXPECT_EQ(Run(Unlock("c", "<urn:held>").Header("If", "(<opaquelocktoken:other>)")).substr(0, 3),
              "412");
    EXPECT_EQ(world["gen3"].Find("/gen3/c")->locks.size(), 1U);
}

TEST(StandardLockFailures, EveryFailureIsSurvived)
{
    harness::ExpectEveryFailureIsSurvived(
        MakeWorld, Request(KestMethodLock, "/Ferro/gen3/f.txt").Body({Info()}));
    harness::ExpectEveryFailureIsSurvived(
        [] {
            auto world = MakeWorld();
            (*world)["gen3"].Find("/gen3/f.txt")->locks = {{Write, Exclusive, 0, -1, "me", "t"}};
            return world;
        },
        Request(KestMethodUnlock, "/Ferro/gen3/f.txt").Header("Lock-Token", "<opaquelocktoken:t>"));
}

} // namespace

} // namespace standard_tests
