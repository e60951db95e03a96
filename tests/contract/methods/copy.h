// SPDX-License-Identifier: Apache-2.0
//
// COPY requests between providers of both generations.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

namespace copy_tests {

using harness::Reply;
using harness::Request;
using harness::World;

inline constexpr BOOLEAN kOverwrite = TRUE;
inline constexpr BOOLEAN kKeep = FALSE;

inline std::string Answer(int status)
{
    return std::to_string(status) + "\nContent-Length: \n\n";
}

inline std::string Url(const std::string& path)
{
    return "http://server.example:8080/Ferro" + path;
}

class Copy : public testing::Test {
  protected:
    void SetUp() override
    {
        for (const char* name : {"gen2", "gen1"})
            world.Remember(std::string("/Ferro/") + name);
    }
    Reply Run(const std::string& from, const std::string& to, BOOLEAN overwrite = kOverwrite)
    {
        return world.Run(Request(KestMethodCopy, "/Ferro" + from).To(Url(to), overwrite));
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

} // namespace copy_tests
