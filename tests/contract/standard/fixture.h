// SPDX-License-Identifier: Apache-2.0
//
// A module that speaks the standard dialect, with a provider of each generation.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "provider3.h"
#include "world.h"
#include <kest/sdk/refusal.h>

namespace standard_tests {

using harness::kInjected;
using harness::Node;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Bodies of requests.
inline constexpr char kExclusiveLock[] =
    "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/>"
    "</D:locktype></D:lockinfo>";
inline constexpr char kPatch[] =
    "<D:propertyupdate xmlns:D=\"DAV:\"><D:set><D:prop><p>new</p></D:prop>"
    "</D:set></D:propertyupdate>";
// What a reply says of a new file, and of one with a new content.
inline constexpr char kNew[] = "ETag: \"v1\"\nLast-Modified: Sat, 31 Jan 2026 13:00:00 GMT\n";
inline constexpr char kChanged[] = "ETag: \"v2\"\nLast-Modified: Sat, 31 Jan 2026 13:00:00 GMT\n";

// A request for a member of the provider of the third generation.
inline Request Of(UINT32 method, const char* name = "f.txt")
{
    return Request(method, std::string("/Ferro/gen3/") + name);
}

inline std::vector<harness::ProviderSpec> Providers()
{
    return {{.name = "gen3", .generations = 6, .servesNew = true},
            {.name = "other", .generations = 6},
            {.name = "gen2", .caps = kCapsDeletesTrees}};
}

inline harness::Setup StandardDialect()
{
    return {.moduleValues = "'Dialect' = 'standard'"};
}
inline harness::Setup StandardDialectWithPages()
{
    return {.moduleValues = "'Dialect' = 'standard'\n"
                            "'Template Directory' = '" TEMPLATE_DIRECTORY "'"};
}

// "f.txt" holds "hello world", "c" holds "c/a" and "c/d/b".
inline void Fill(World& world)
{
    for (const std::string name : {"gen3", "other", "gen2"}) {
        world[name].AddFile("/" + name + "/f.txt", "hello world");
        world[name].AddFile("/" + name + "/c/a", "aa");
        world[name].AddFile("/" + name + "/c/d/b", "bbb");
        world.Remember("/Ferro/" + name);
    }
}

class Standard : public testing::Test {
  protected:
    void SetUp() override { Fill(world); }
    void TearDown() override { world.ExpectAtRest(); }

    std::string Run(const Request& request) { return world.Run(request).text; }
    std::vector<std::string> Changes() const { return world.Calls({"gen3.3.", "gen3.res3."}); }

    World world{Providers(), StandardDialect()};
};

// A reply without content of its own: with a refusal comes its sentence, but for HEAD.
inline std::string PlainHead(const std::string& status, const std::string& headers = {})
{
    return status + "\n" + headers + "Content-Type: " + kest::kRefusalLineType +
           "\nContent-Length: \n\n";
}
inline std::string Plain(const std::string& status, const std::string& headers = {})
{
    const int http = std::stoi(status);
    return kest::HasRefusalLine(http)
               ? PlainHead(status, headers) + kest::RefusalSentence(http) + "\n"
               : status + "\n" + headers + "Content-Length: 0\n\n";
}

inline std::unique_ptr<World> MakeWorld()
{
    auto world = std::make_unique<World>(Providers(), StandardDialect());
    Fill(*world);
    return world;
}

inline constexpr char kStart[] = "Sat, 31 Jan 2026 12:00:00 GMT"; // of every node
inline constexpr char kAfterChange[] = "Sat, 31 Jan 2026 13:00:00 GMT";

} // namespace standard_tests
