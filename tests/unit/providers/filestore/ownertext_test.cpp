// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/ownertext.h"

#include <gtest/gtest.h>

using namespace filestore;

TEST(OwnerText, WellFormedFragmentsStayAsTheyAre)
{
    for (const char* text :
         {"", "me", "<href>mailto:a@b</href>", "a &amp; b &#x41; &#65;", "<a><b/>x</a>",
          "<a x=\"1\" y='&lt;'>t</a >", "\xc3\xa4 <\xc3\xa4>x</\xc3\xa4>", "a > b", "]] >"}) {
        EXPECT_TRUE(IsWellFormedFragment(text)) << text;
        EXPECT_EQ(text, OwnerForReplies(text));
    }
}

TEST(OwnerText, EverythingElseIsEscaped)
{
    const std::pair<const char*, const char*> rows[] = {
        {"a & b", "a &amp; b"},
        {"<a>", "&lt;a&gt;"},
        {"</a>", "&lt;/a&gt;"},
        {"<a></b>", "&lt;a&gt;&lt;/b&gt;"},
        {"<a x=1/>", "&lt;a x=1/&gt;"},
        {"<a x='1' x='2'/>", "&lt;a x='1' x='2'/&gt;"},
        {"<a x='<'/>", "&lt;a x='&lt;'/&gt;"},
        {"<a", "&lt;a"},
        {"<D:href>x</D:href>", "&lt;D:href&gt;x&lt;/D:href&gt;"},
        {"<!-- x -->", "&lt;!-- x --&gt;"},
        {"<![CDATA[x]]>", "&lt;![CDATA[x]]&gt;"},
        {"]]>", "]]&gt;"},
        {"&bomb;", "&amp;bomb;"},
        {"&#0;", "&amp;#0;"},
        {"&#x110000;", "&amp;#x110000;"},
        {"&#;", "&amp;#;"},
        {"&amp", "&amp;amp"},
        {"a\x01", "a\xef\xbf\xbd"},
        {"\xff!", "\xef\xbf\xbd!"}};
    for (const auto& [text, escaped] : rows) {
        EXPECT_FALSE(IsWellFormedFragment(text)) << text;
        EXPECT_EQ(escaped, OwnerForReplies(text));
        EXPECT_TRUE(IsWellFormedFragment(OwnerForReplies(text))) << text;
    }
}

TEST(OwnerText, IsCutBetweenCharacters)
{
    const std::string plain(400, 'x');
    EXPECT_EQ(std::string(kMaxOwnerBytes, 'x'), OwnerForReplies(plain));
    for (size_t lead = 0; lead < 6; ++lead) {
        const std::string text = std::string(250 + lead, 'x') + "<&\xe6\x97\xa5<&<&";
        const std::string cut = OwnerForReplies(text);
        EXPECT_LE(cut.size(), kMaxOwnerBytes);
        EXPECT_TRUE(IsWellFormedFragment(cut)) << lead;
    }
}
