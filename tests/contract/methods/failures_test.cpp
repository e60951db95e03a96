// SPDX-License-Identifier: Apache-2.0
//
// Whatever call fails, a request ends with one head and leaves nothing behind.
#include <gtest/gtest.h>

#include "world.h"

using harness::ExpectEveryFailureIsSurvived;
using harness::Reply;
using harness::Request;
using harness::World;

namespace {

// One provider of each generation, each with a file and a tree, that know every path.
std::unique_ptr<World> TwoProviders()
{
    auto world = std::make_unique<World>(
        std::vector<harness::ProviderSpec>{{.name = "gen2", .servesNew = true},
                                           {.name = "gen1", .generations = 1, .servesNew = true}});
    for (const std::string name : {"gen2", "gen1"}) {
        auto& provider = (*world)[name];
        provider.AddFile("/" + name + "/f.txt", "0123456789").attributes = kAttributeReadOnly;
        provider.AddFile("/" + name + "/c/a", "a").attributes = kAttributeReadOnly;
        provider.AddFile("/" + name + "/c/d/b", "b");
        provider.Find("/" + name + "/c/d")->attributes = kAttributeReadOnly;
    }
    return world;
}

Request Plain(UINT32 method, const char* path)
{
    return Request(method, path).Header("If", "(<opaquelocktoken:abc>)");
}

struct AnyFailureRow {
    const char* name;
    Request request;
};

class AnyFailure : public testing::TestWithParam<AnyFailureRow> {};

TEST_P(AnyFailure, IsSurvived)
{
    ExpectEveryFailureIsSurvived(TwoProviders, GetParam().request);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, AnyFailure,
    testing::Values(
        AnyFailureRow{"Get2", Plain(KestMethodGet, "/Ferro/gen2/f.txt")},
        AnyFailureRow{"Get1", Plain(KestMethodGet, "/Ferro/gen1/f.txt")},
        AnyFailureRow{"GetRange",
                      Plain(KestMethodGet, "/Ferro/gen2/f.txt")
                          .Header("Range", "bytes=0-3,5-6,             8-9")
                          .Header("If-Modified-Since", "Sat, 31 Jan 2020 12:00:00 GMT")},
        AnyFailureRow{"Head2", Plain(KestMethodHead, "/Ferro/gen2/f.txt")},
        AnyFailureRow{"HeadCollection1", Plain(KestMethodHead, "/Ferro/gen1/c")},
        AnyFailureRow{"Put2", Plain(KestMethodPut, "/Ferro/gen2/n").Body({"one", "two"})},
        AnyFailureRow{"Put1", Plain(KestMethodPut, "/Ferro/gen1/n").Body({"one", "two"})},
        AnyFailureRow{"MkCol2", Plain(KestMethodMkCol, "/Ferro/gen2/n")},
        AnyFailureRow{"MkCol1", Plain(KestMethodMkCol, "/Ferro/gen1/n")},
        AnyFailureRow{"Delete2", Plain(KestMethodDelete, "/Ferro/gen2/c/d/b")},
        AnyFailureRow{"DeleteTree2", Plain(KestMethodDelete, "/Ferro/gen2/c")},
        AnyFailureRow{"DeleteTree1", Plain(KestMethodDelete, "/Ferro/gen1/c")},
        AnyFailureRow{"Copy21",
                      Plain(KestMethodCopy, "/Ferro/gen2/f.txt").To("/Ferro/gen1/n", FALSE)},
        AnyFailureRow{"Copy12",
                      Plain(KestMethodCopy, "/Ferro/gen1/f.txt").To("/Ferro/gen2/n", TRUE)},
        AnyFailureRow{"CopyTree21",
                      Plain(KestMethodCopy, "/Ferro/gen2/c").To("/Ferro/gen1/n", FALSE)},
        AnyFailureRow{"CopyTree12",
                      Plain(KestMethodCopy, "/Ferro/gen1/c").To("/Ferro/gen2/c", TRUE)},
        AnyFailureRow{"Move2",
                      Plain(KestMethodMove, "/Ferro/gen2/f.txt").To("/Ferro/gen2/n", FALSE)},
        AnyFailureRow{"Move21",
                      Plain(KestMethodMove, "/Ferro/gen2/f.txt").To("/Ferro/gen1/n", FALSE)},
        AnyFailureRow{"MoveTree12",
                      Plain(KestMethodMove, "/Ferro/gen1/c").To("/Ferro/gen2/n", FALSE)}),
    [](const auto& row) { return row.param.name; });

// A source survives its move in one of the two places, whatever fails.
TEST(MoveBetweenProviders, NeverLosesTheContent)
{
    ExpectEveryFailureIsSurvived(
        TwoProviders, Plain(KestMethodMove, "/Ferro/gen1/f.txt").To("/Ferro/gen2/n", TRUE),
        [](World& world, const Reply& reply) {
            const bool source = world["gen1"].Content("/gen1/f.txt") == "0123456789";
            const bool moved = world["gen2"].Content("/gen2/n") == "0123456789";
            EXPECT_TRUE(source || moved) << reply.text;
        });
}

} // namespace
