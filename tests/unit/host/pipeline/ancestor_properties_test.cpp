// SPDX-License-Identifier: Apache-2.0
//
// What is asked of a collection above the handler's location, and what it answers.
#include "host/pipeline/ancestor_properties.h"

#include <gtest/gtest.h>

namespace {

using kestd::AppendAncestor;
using kestd::AskedProperties;
using kestd::ParseAskedProperties;

std::string Form(const std::string& forms)
{
    return "<?xml version=\"1.0\"?><propfind xmlns=\"DAV:\">" + forms + "</propfind>";
}

std::string Ask(const std::string& body, std::string_view path = "/a b")
{
    AskedProperties asked;
    if (!ParseAskedProperties(body, asked))
        return "malformed";
    std::string text;
    AppendAncestor(text, path, asked);
    return text;
}

std::string Response(const std::string& found, const std::string& missing = {})
{
    const auto propstat = [](const std::string& properties, const char* status) {
        return "<D:propstat><D:prop>" + properties + "</D:prop><D:status>HTTP/1.1 " + status +
               "</D:status></D:propstat>";
    };
    return "<D:response><D:href>/a%20b/</D:href>" +
           (found.empty() && !missing.empty() ? "" : propstat(found, "200 OK")) +
           (missing.empty() ? "" : propstat(missing, "404 Not Found")) + "</D:response>\n";
}

constexpr char kAll[] = "<D:displayname>a b</D:displayname>"
                        "<D:resourcetype><D:collection/></D:resourcetype>"
                        "<D:lockdiscovery></D:lockdiscovery><D:supportedlock></D:supportedlock>";
constexpr char kReadable[] = "<D:current-user-privilege-set><D:privilege><D:read/></D:privilege>"
                             "</D:current-user-privilege-set>";

TEST(AncestorProperties, Forms)
{
    EXPECT_EQ(Ask(""), Response(kAll));
    EXPECT_EQ(Ask(Form("<allprop/>")), Response(kAll));
    EXPECT_EQ(
        Ask(Form("<allprop/><include><current-user-privilege-set/><quota-used-bytes/></include>")),
        Response(std::string(kAll) + kReadable));
    EXPECT_EQ(Ask(Form("<propname/>")), Response("<D:displayname/><D:resourcetype/>"
                                                 "<D:lockdiscovery/><D:supportedlock/>"
                                                 "<D:current-user-privilege-set/>"));
    EXPECT_EQ(Ask(Form("<prop/>")), Response(""));
    EXPECT_EQ(Ask(Form("<prop><getetag/><getetag/><displayname xmlns=\"\"/></prop>")),
              Response("", "<D:getetag/><displayname/>"));
    EXPECT_EQ(Ask(Form("<prop><supportedlock><a/></supportedlock></prop><other/>")),
              Response("<D:supportedlock></D:supportedlock>"));
    EXPECT_EQ(Ask(Form("<prop><getetag/></prop><x:more xmlns:x=\"urn:x\"><displayname/></x:more>")),
              Response("", "<D:getetag/>"))
        << "what an extension holds is not asked for";
}

TEST(AncestorProperties, TheServersRootHasNoName)
{
    AskedProperties asked;
    std::string text;
    AppendAncestor(text, "/", asked);
    EXPECT_EQ(text.find("<D:response><D:href>/</D:href><D:propstat><D:prop>"
                        "<D:displayname></D:displayname>"),
              0U);
}

TEST(AncestorProperties, WhatIsNoRequest)
{
    std::string names;
    for (size_t i = 0; i <= kestd::kMostAncestorNames; ++i)
        names += "<p" + std::to_string(i) + "/>";
    for (const std::string& body :
         {std::string("x"), std::string("<a/>"), std::string("<propfind/>"), Form(""),
          Form("<prop/><propname/>"), Form("<prop/><prop/>"), Form("<propname/><include/>"),
          Form("<include/>"), Form("<x:prop/>"), Form("<prop xmlns:x=\"\"/>"),
          Form("<prop>") + names, Form("<prop>" + names + "</prop>"), Form("<prop/>") + "<a/>",
          "<!DOCTYPE propfind [<!ENTITY a 'b'>]>" + Form("<prop/>").substr(21),
          std::string(kestd::kMostAncestorBody + 1, ' ')})
        EXPECT_EQ(Ask(body), "malformed") << body.substr(0, 200);
}

} // namespace
