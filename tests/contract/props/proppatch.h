// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH requests and what is answered to them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

namespace proppatch_tests {

using harness::Reply;
using harness::Request;
using harness::World;

inline std::string Patched(const std::string& blocks)
{
    return "207\n"
           "Transfer-Encoding: chunked\n"
           "Content-Type: text/xml\n"
           "\n"
           "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
           "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
           "xmlns:a=\"DAV:\" xmlns:c=\"xml:\"><a:response>" +
           blocks + "</a:response></a:multistatus>\n";
}

inline std::string Done(const std::string& name, const std::string& result = {})
{
    return "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop><" + name + ">" + result +
           "</" + name + "></a:prop></a:propstat>";
}

inline std::string Refused(const std::string& name)
{
    return "<a:propstat><a:status>HTTP/1.1 417 Expectation Failed</a:status>\n<a:prop><" + name +
           "/></a:prop></a:propstat>";
}

inline std::string Update(const std::string& inner)
{
    return "<?xml version=\"1.0\"?><D:propertyupdate xmlns:D=\"DAV:\" xmlns:x=\"urn:x\">" + inner +
           "</D:propertyupdate>";
}

inline std::string Set(const std::string& property)
{
    return "<D:set><D:prop>" + property + "</D:prop></D:set>";
}

inline std::string Remove(const std::string& property)
{
    return "<D:remove><D:prop>" + property + "</D:prop></D:remove>";
}

class PropPatch : public testing::Test {
  protected:
    World world{{{.name = "p", .caps = kCapsNamedProperties}}};
    harness::Provider& provider = world["p"];
    harness::Node& file = provider.AddFile("/p/a", "x");

    Reply Patch(const std::string& body, const std::string& path = "/Ferro/p/a")
    {
        return world.Run(Request(KestMethodPropPatch, path).Body({body}));
    }
    std::vector<std::string> Sets()
    {
        return world.Calls({"p.res.SetNamed", "p.col.SetNamed", "p.res.SetLive", "p.col.SetLive"});
    }
};

} // namespace proppatch_tests
