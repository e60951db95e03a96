// SPDX-License-Identifier: Apache-2.0
//
// How each generation sees the properties of the others.
#include "providers/filestore/property.h"

#include <gtest/gtest.h>

using namespace filestore;

namespace {

Property Classic(std::string name, std::string value)
{
    return {1, std::string(kClassicSpace), std::move(name), std::move(value)};
}

} // namespace

TEST(PropertyOfAnEarlierGeneration, HasItsPrefixForANamespaceAndItsBytesForText)
{
    const auto color = AsElement(Classic("Z:color", "<b>red</b> & \"blue\""));
    ASSERT_TRUE(color);
    EXPECT_EQ("urn:kest:prefix:Z", color->space);
    EXPECT_EQ("color", color->name);
    EXPECT_EQ("<color xmlns=\"urn:kest:prefix:Z\">&lt;b&gt;red&lt;/b&gt; &amp; &quot;blue&quot;"
              "</color>",
              color->value);
    EXPECT_EQ("Z:color", ClassicName({color->space, color->name}));
}

TEST(PropertyOfAnEarlierGeneration, IsInNoNamespaceWithoutAPrefix)
{
    const auto author = AsElement(Classic("author", ""));
    ASSERT_TRUE(author);
    EXPECT_EQ("", author->space);
    EXPECT_EQ("<author xmlns=\"\"></author>", author->value);
    EXPECT_EQ("author", ClassicName({"", "author"}));
    EXPECT_FALSE(ClassicName({"urn:x", "author"}));
}

TEST(PropertyOfAnEarlierGeneration, IsNotShownUnderANameThatNoElementHas)
{
    for (const char* name : {"never there", "", "Z:", "1st", "a:b:c", "<b>", "a\xC3", "a\x01z"})
        EXPECT_FALSE(AsElement(Classic(name, "v"))) << name;
    EXPECT_TRUE(AsElement(Classic("gr\xC3\xB6\xC3\x9F"
                                  "e",
                                  "v")));
}

TEST(PropertyOfAnEarlierGeneration, HasNoBytesThatXmlDoesNotAllow)
{
    EXPECT_EQ("<p xmlns=\"\">a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\n</p>",
              AsElement(Classic("p", "a\x01"
                                     "b\xFF\n"))
                  ->value);
}

TEST(PropertyOfTheThirdGeneration, HasItsElementsContentForAValue)
{
    const auto content = [](const char* element) {
        return ClassicValue({1, "urn:x", "p", element});
    };
    EXPECT_EQ("red", content("<p xmlns=\"urn:x\">red</p>"));
    EXPECT_EQ("<a b='>'/>", content("<x:p xmlns:x='urn:x' c=\"a>b\"><a b='>'/></x:p>"));
    EXPECT_EQ("", content("<p xmlns=\"urn:x\"/>"));
    EXPECT_EQ("", content("<p xmlns=\"urn:x\"></p>"));
    EXPECT_EQ("", content(""));
    EXPECT_EQ("", content("<p"));
}
