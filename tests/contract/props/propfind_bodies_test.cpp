// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND bodies that mean harm.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deadprops.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::Reply;
using harness::Request;
using namespace deadprops_tests;

namespace {

TEST_F(DeadProperties, MalformedBodies_CountUpToTheirError)
{
    const std::string etag = MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n"));
    const std::string nothing = MultiStatus(ResourceElement("/p/a", ""));
    const struct {
        std::string body;
        const std::string& reply;
    } cases[] = {
        {"<propfind><prop><getetag/>", etag},
        {"<propfind><prop><getetag/></prop></propfind><again/>", etag},
        {"<propfind><prop><getetag/><&></prop></propfind>", etag},
        {"<propfind><prop><getetag/><name", etag},
        {" ", nothing},
        {"nonsense", nothing},
        {"<propfind><prop", nothing},
        {std::string("\0\0\0", 3), nothing},
        {"\xFF\xFE<\0p\0", nothing},
        {"<?xml version='1.0' encoding='EBCDIC'?><propfind><prop><getetag/></prop></propfind>",
         nothing},
        {"<?xml version='1.0' encoding='utf-16'?><propfind><prop><getetag/></prop></propfind>",
         nothing},
        {"<propfind><prop><\xC3\x28/><getetag/></prop></propfind>", nothing},
        {"<propfind>&undefined;<prop><getetag/></prop></propfind>", nothing},
        {"<propfind xmlns:D='DAV:' xmlns:D='DAV:'><prop><getetag/></prop></propfind>", nothing},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Ask(c.body).text, c.reply) << c.body;
    world.ExpectAtRest();
}

TEST_F(DeadProperties, Utf16Body_IsUnderstood)
{
    std::string body = "\xFF\xFE";
    for (const char c : std::string("<propfind><prop><getetag/><author/></prop></propfind>"))
        body += {c, '\0'};
    file.properties = {{u"author", "me"}};
    EXPECT_EQ(Ask(body).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n" + Dead("author", "me"))));
}

TEST_F(DeadProperties, DeepNesting_IsSurvived)
{
    std::string open;
    for (int i = 0; i < 10000; ++i)
        open += "<x>";
    EXPECT_EQ(Ask("<propfind><prop><getetag/>" + open).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, AMillionElements_AreSurvived)
{
    std::string body = "<propfind><prop><getetag/>";
    for (int i = 0; i < 1000000; ++i)
        body += "<x/>";
    EXPECT_EQ(Ask(body + "</prop></propfind>").text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    EXPECT_EQ(world.recorder.Count("p.res.GetNamedProperty"), 1);
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NameOf100KB_IsSurvived)
{
    const std::string name(100000, 'n');
    EXPECT_EQ(Ask(Asking("<D:getetag/><" + name + "/>")).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NamesThatOnlyEntitiesRepeat_AreDropped)
{
    file.properties = {{u"author", "me"}};
    std::string entity;
    for (int i = 0; i < 100; ++i)
        entity += "<author/>";
    std::string uses;
    for (int i = 0; i < 100; ++i)
        uses += "&e;";
    const std::string body = "<!DOCTYPE d [<!ENTITY e \"" + entity + "\">]><propfind><prop>" +
                             uses + "</prop></propfind>";
    (void)Ask(body);
    // 10,000 uses; the body itself has room for a few hundred.
    EXPECT_LT(world.recorder.Count("p.res.GetNamedProperty"), 400);
    EXPECT_GE(world.recorder.Count("p.res.GetNamedProperty"), 100);
    world.ExpectAtRest();
}

TEST_F(DeadProperties, EntitiesOfEntities_AreBounded)
{
    std::string body = "<!DOCTYPE d [<!ENTITY e0 \"<x/>\">";
    for (int i = 1; i < 12; ++i) {
        body += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k)
            body += "&e" + std::to_string(i - 1) + ";";
        body += "\">";
    }
    const Reply reply = Ask(body + "]><propfind><prop><getetag/>&e11;</prop></propfind>");
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, ExternalEntity_IsNotFetched)
{
    const Reply reply = Ask("<!DOCTYPE d [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>"
                            "<propfind><prop><getetag/><x>&e;</x></prop></propfind>");
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
}

TEST_F(DeadProperties, AnnouncedLengthBeyondMemory_AsksForNothing)
{
    Request request(KestMethodPropFind, "/Ferro/p/a");
    request.Body({Asking("<D:getetag/>")});
    request.payloadAvailable = 0xFFFFFFFF;
    EXPECT_EQ(world.Run(request).text, MultiStatus(ResourceElement("/p/a", "")));
    world.ExpectAtRest();
}

} // namespace
