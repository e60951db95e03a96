// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND requests to a provider with named properties.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "replies.h"
#include "text.h"
#include "world.h"

namespace deadprops_tests {

using harness::Node;
using harness::Reply;
using harness::Request;
using harness::World;

inline constexpr char kAllProp[] = "<propfind><allprop/></propfind>";

class DeadProperties : public testing::Test {
  protected:
    World world{{{.name = "p", .caps = kCapsNamedProperties}}};
    harness::Provider& provider = world["p"];
    Node& file = provider.AddFile("/p/a", "hello");

    Reply Ask(const std::string& body, const std::string& path = "/Ferro/p/a", int depth = 0)
    {
        return world.Run(
            Request(KestMethodPropFind, path).Header("Depth", std::to_string(depth)).Body({body}));
    }
    // The element of /p/a in a reply to allprop.
    static std::string All(const std::string& dead)
    {
        return MultiStatus(
            ResourceElement("/p/a", FileProperties("5", "a") + dead, kNoContentType));
    }
};

inline std::string Dead(const std::string& name, const std::string& value)
{
    return "<" + name + ">\n" + value + "</" + name + ">\n";
}

} // namespace deadprops_tests
