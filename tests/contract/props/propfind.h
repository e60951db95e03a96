// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND requests to a provider of either generation.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "replies.h"
#include "text.h"
#include "world.h"

namespace propfind_tests {

using harness::Request;
using harness::World;

inline Request PropFind(const std::string& path, const std::string& body = {})
{
    Request request(KestMethodPropFind, path);
    if (!body.empty())
        request.Body({body});
    return request;
}

inline Request PropFind(const std::string& path, int depth, const std::string& body = {})
{
    return PropFind(path, body).Header("Depth", std::to_string(depth));
}

// Both generations answer alike where the case says nothing else.
class PropFindOf : public testing::TestWithParam<int> {
  protected:
    World world{{{.name = "p", .generations = GetParam()}}};
    harness::Provider& provider = world["p"];
};

} // namespace propfind_tests
