// SPDX-License-Identifier: Apache-2.0
//
// Properties and locks from many threads at once: requests share nothing but the provider list.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "replies.h"
#include "world.h"

using harness::Reply;
using harness::Request;
using harness::World;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 50;

TEST(Concurrency, RepliesOfOneThread_HoldNothingOfAnother)
{
    World world({{.name = "p", .caps = kCapsNamedProperties}});
    harness::Provider& provider = world["p"];
    for (int i = 0; i < kThreads; ++i)
        provider.AddFile("/p/f" + std::to_string(i), "hello");
    world.Remember("/Ferro/p/f0");

    std::atomic<int> wrong{0};
    const auto work = [&](int index) {
        const std::string name = "f" + std::to_string(index);
        const std::string path = "/Ferro/p/" + name;
        const std::string value(static_cast<size_t>(100 * index + 100), 'v');
        for (int round = 0; round < kRounds; ++round) {
            const Reply patched =
                world.Run(Request(KestMethodPropPatch, path)
                              .Body({"<propertyupdate><set><prop><x:own>" + value +
                                     "</x:own></prop></set></propertyupdate>"}));
            const Reply all = world.Run(
                Request(KestMethodPropFind, path).Body({Asking("<D:displayname/><D:allprop/>")}));
            const Reply locked =
                world.Run(Request(KestMethodLock, path)
                              .Body({"<lockinfo><write/><owner>" + name + "</owner></lockinfo>"}));
            const size_t at = locked.body.find("opaquelocktoken:");
            const std::string token = locked.body.substr(at, locked.body.find("</a:href>") - at);
            const Reply unlocked =
                world.Run(Request(KestMethodUnlock, path).Header("Lock-Token", "<" + token + ">"));
            wrong += patched.heads != 1 || patched.text.find("200 OK") == std::string::npos;
            wrong += all.text.find("<x:own>\n" + value + "</x:own>\n") == std::string::npos;
            wrong += all.text.find("<a:displayname>" + name + "<") == std::string::npos;
            wrong += locked.text.find("<a:owner>" + name + "</a:owner>\n") == std::string::npos;
            wrong += unlocked.text != "200\nContent-Length: 0\n\n";
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    world.ExpectAtRest();
}

} // namespace
