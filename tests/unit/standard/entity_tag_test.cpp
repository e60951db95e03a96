// SPDX-License-Identifier: Apache-2.0
//
// Entity tags: reading, comparing, and looking one up in a list.
#include <gtest/gtest.h>

#include "standard/entity_tag.h"

using standard::AreEqual;
using standard::EntityTag;
using standard::ListsTag;
using standard::ReadEntityTag;
using standard::TagComparison;

namespace {

// RFC 9110 section 8.8.3.2, its table.
TEST(EntityTag, ComparesAsTheTableSays)
{
    struct Row {
        const char* a;
        const char* b;
        bool strong;
        bool weak;
    };
    for (const Row& row :
         {Row{R"(W/"1")", R"(W/"1")", false, true}, Row{R"(W/"1")", R"(W/"2")", false, false},
          Row{R"(W/"1")", R"("1")", false, true}, Row{R"("1")", R"("1")", true, true}}) {
        SCOPED_TRACE(row.a);
        const EntityTag a = ReadEntityTag(row.a);
        const EntityTag b = ReadEntityTag(row.b);
        EXPECT_EQ(AreEqual(a, b, TagComparison::Strong), row.strong);
        EXPECT_EQ(AreEqual(a, b, TagComparison::Weak), row.weak);
    }
}

TEST(EntityTag, NothingEqualsNoTag)
{
    EXPECT_FALSE(AreEqual({}, {}, TagComparison::Weak));
    EXPECT_FALSE(ListsTag(R"("")", {}, TagComparison::Weak));
    EXPECT_FALSE(ListsTag("", ReadEntityTag(R"("")"), TagComparison::Weak));
}

TEST(EntityTag, AnEmptyTagIsOne)
{
    EXPECT_TRUE(ListsTag(R"("")", ReadEntityTag(R"("")"), TagComparison::Strong));
}

TEST(EntityTag, IsFoundAnywhereInAList)
{
    const EntityTag current = ReadEntityTag(R"("b")");
    EXPECT_TRUE(ListsTag(R"("a", "b" ,"c")", current, TagComparison::Strong));
    EXPECT_TRUE(ListsTag("\t\"b\"", current, TagComparison::Strong));
    EXPECT_TRUE(ListsTag(R"(, ,"b",)", current, TagComparison::Strong));
    EXPECT_FALSE(ListsTag(R"("a", "c")", current, TagComparison::Strong));
    EXPECT_FALSE(ListsTag(R"("a,b")", current, TagComparison::Strong)) << "a comma in a tag";
    EXPECT_TRUE(ListsTag(R"("x,y", "b")", current, TagComparison::Strong));
    EXPECT_FALSE(ListsTag(R"(W/"b")", current, TagComparison::Strong));
    EXPECT_TRUE(ListsTag(R"(W/"b")", current, TagComparison::Weak));
    EXPECT_FALSE(ListsTag(R"(w/"b")", current, TagComparison::Weak)) << "case matters";
}

TEST(EntityTag, WithoutQuotationMarksIsTakenAsItIs)
{
    EXPECT_TRUE(ListsTag("a, b", ReadEntityTag(R"("b")"), TagComparison::Strong));
}

TEST(EntityTag, CutShortNamesNothing)
{
    EXPECT_FALSE(ListsTag(R"("b)", ReadEntityTag(R"("b")"), TagComparison::Weak));
    EXPECT_FALSE(ListsTag(R"(W/)", ReadEntityTag(R"("")"), TagComparison::Weak));
    EXPECT_FALSE(ListsTag(R"(")", ReadEntityTag(R"("")"), TagComparison::Weak));
}

} // namespace
