// SPDX-License-Identifier: Apache-2.0
//
// The table of paths that were taken apart before.
#include "providers/filestore/parsed_paths.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace filestore {
namespace {

Volume* const kVolume = reinterpret_cast<Volume*>(0x1000); // only handed through

Target TargetOf(std::string_view path)
{
    Target target;
    target.volume = kVolume;
    EXPECT_TRUE(target.path.Assign(path));
    return target;
}

TEST(ParsedPaths, WhatWasNotedIsRecalledForItsStoreOnly)
{
    parsed_paths::Note(1001, u"/docs/a/b", TargetOf("a/b"));
    Target found;
    found.deletedId = 7;
    ASSERT_TRUE(parsed_paths::Recall(1001, u"/docs/a/b", &found));
    EXPECT_EQ(found.volume, kVolume);
    EXPECT_EQ(found.path.View(), "a/b");
    EXPECT_EQ(found.deletedId, 0);
    EXPECT_FALSE(parsed_paths::Recall(1002, u"/docs/a/b", &found));
    EXPECT_FALSE(parsed_paths::Recall(1001, u"/docs/a/c", &found));
    EXPECT_FALSE(parsed_paths::Recall(1001, u"/docs/a/", &found));
}

TEST(ParsedPaths, EmptyAndLongPathsAreNotNoted)
{
    Target found;
    parsed_paths::Note(1003, {}, TargetOf(""));
    EXPECT_FALSE(parsed_paths::Recall(1003, {}, &found));
    EXPECT_FALSE(parsed_paths::Recall(1003, std::u16string_view(nullptr, 0), &found));
    for (const size_t size : {127, 128, 129, 1000}) {
        const std::u16string text(size, u'x');
        parsed_paths::Note(1003, text, TargetOf("p"));
        EXPECT_EQ(parsed_paths::Recall(1003, text, &found), size <= 128) << size;
        parsed_paths::Note(1004, u"/short", TargetOf(std::string(size, 'x')));
        EXPECT_EQ(parsed_paths::Recall(1004, u"/short", &found) && found.path.Length() == size,
                  size <= 128)
            << size;
    }
}

// Each thread's paths share places with those of the others.
TEST(ParsedPaths, NeverLeadElsewhere)
{
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([thread] {
            for (int i = 0; i < 5000; ++i) {
                const std::string path = std::to_string(thread) + "/" + std::to_string(i % 300);
                const std::u16string text(path.begin(), path.end());
                Target found;
                if (parsed_paths::Recall(1005, text, &found))
                    ASSERT_EQ(found.path.View(), path);
                else
                    parsed_paths::Note(1005, text, TargetOf(path));
            }
        });
}

} // namespace
} // namespace filestore
