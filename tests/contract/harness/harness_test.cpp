// SPDX-License-Identifier: Apache-2.0
//
// One whole case of each kind, to show that the harness itself works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"
#include "xml_reply.h"

using harness::ExpectEveryFailureIsSurvived;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;

TEST(Harness, GetOfAResource_ShowsReplyAndCalls)
{
    World world({{.name = "gen2"}});
    world["gen2"].AddFile("/gen2/a.txt", "hello");
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/a.txt"));
    EXPECT_EQ(reply.text, "200\n"
                          "Cache-Control: no-store\n"
                          "Last-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
                          "Accept-Ranges: bytes\n"
                          "Content-Type: text/plain\n"
                          "Content-Length: 5\n"
                          "\n"
                          "hello");
    EXPECT_THAT(world.Calls({"gen2."}),
                ElementsAre("gen2.BeginSession(session=1)", "gen2.GetType(/gen2/a.txt)",
                            "gen2.GetType(/gen2/a.txt)", "gen2.Create(IKestDAVResource2)",
                            "gen2.res.Associate(/gen2/a.txt, create=0, access=3, share=3, "
                            "flags=0, token=null)",
                            "gen2.res.GetResourceSize()", "gen2.res.GetModificationDate()",
                            "gen2.res.Read(0, 5)"));
    world.ExpectAtRest();
}

TEST(Harness, SecondWorldOfAProcess_HasAModuleOfItsOwn)
{
    {
        World first({}, {.moniker = "/First"});
        EXPECT_EQ(first.location, "/First");
    }
    World second({}, {.moniker = "/Second"});
    EXPECT_EQ(second.location, "/Second");
}

TEST(Harness, EveryCallThatCanFail_IsMadeToFailOnce)
{
    int failures = 0;
    ExpectEveryFailureIsSurvived(
        [] {
            auto world = std::make_unique<World>(std::vector<harness::ProviderSpec>{{"gen1", 1}});
            (*world)["gen1"].AddFile("/gen1/a.txt", "hello");
            return world;
        },
        Request(KestMethodGet, "/Ferro/gen1/a.txt"), [&](World&, const Reply&) { ++failures; });
    EXPECT_GT(failures, 20);
}

TEST(XmlReply, WhatStrictClientsTake)
{
    for (const char* body :
         {"<D:multistatus xmlns:D=\"DAV:\"/>",
          "<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted><D:href>/a%20b/</D:href>"
          "</D:lock-token-submitted></D:error>",
          "<D:multistatus xmlns:D=\"DAV:\"><D:response><D:href>/a</D:href><D:propstat><D:prop>"
          "<x xmlns=\"urn:x\"><D:href>any thing</D:href><y/></x><D:getetag>W/&quot;1&quot;"
          "</D:getetag></D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>"
          "</D:multistatus>",
          "<D:prop xmlns:D=\"DAV:\"><D:lockdiscovery><D:activelock><D:owner><h>me</h></D:owner>"
          "<D:locktoken><D:href>opaquelocktoken:t</D:href></D:locktoken></D:activelock>"
          "</D:lockdiscovery></D:prop>"})
        EXPECT_EQ(harness::FaultOfXml(body), "") << body;
}

TEST(XmlReply, WhatStrictClientsRefuse)
{
    const std::string before = "<D:multistatus xmlns:D=\"DAV:\"><D:response>";
    const std::string behind = "</D:response></D:multistatus>";
    for (const std::string& body : std::vector<std::string>{
             "", "<D:multistatus/>", before, "<multistatus/>",
             "<!DOCTYPE a><D:error xmlns:D=\"DAV:\"/>",
             before + behind, // names nothing
             before + "<D:status>HTTP/1.1 200 OK</D:status>" + behind,
             before + "<D:href>a b</D:href>" + behind,
             before + "<D:href>/a&amp;b</D:href>" + behind,
             before + "<D:href>/%2f</D:href>" + behind,
             before + "<D:href>/a</D:href><D:status>200</D:status>" + behind,
             before + "<D:href>/a</D:href><D:prop/>" + behind,
             before + "<D:href>/a</D:href><x:y/>" + behind,
             before +
                 "<D:href>/a</D:href><D:propstat><D:prop><D:resourcetype><D:resource/>"
                 "</D:resourcetype></D:prop></D:propstat>" +
                 behind})
        EXPECT_NE(harness::FaultOfXml(body), "") << body;
}
