// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "index/identity.h"
#include "support/memory.h"

namespace {

std::u16string Fdn(const char16_t* domain, const char16_t* name)
{
    WCHAR* fdn = nullptr;
    EXPECT_EQ(makeFDN(domain, name, &fdn), TAL_STATUS_SUCCESS);
    const Paged<WCHAR> owned(fdn);
    return fdn == nullptr ? u"(null)" : fdn;
}

std::string Shown(const std::u16string& text)
{
    return {text.begin(), text.end()};
}

} // namespace

TEST(FullName, DottedName_IsTurnedAround)
{
    const struct {
        const char* why;
        const char16_t* name;
        const char16_t* fdn;
    } rows[] = {
        {"two components", u"CN=admin.O=org", u"\\\\TREE\\O=org\\CN=admin"},
        {"a leading dot makes no difference", u".CN=admin.O=org", u"\\\\TREE\\O=org\\CN=admin"},
        {"nor does a trailing one", u"CN=admin.O=org.", u"\\\\TREE\\O=org\\CN=admin"},
        {"one component", u"admin", u"\\\\TREE\\admin"},
        {"an escaped dot stays inside", u"CN=a\\.b.O=c", u"\\\\TREE\\O=c\\CN=a.b"},
        {"an escaped backslash", u"CN=a\\\\.O=c", u"\\\\TREE\\O=c\\CN=a\\"},
        {"a backslash at the end", u"CN=a.O=c\\", u"\\\\TREE\\O=c\\CN=a"},
        {"four components", u"a.b.c.d", u"\\\\TREE\\d\\c\\b\\a"},
        {"an empty one between", u"a..b", u"\\\\TREE\\b\\\\a"},
        {"a separator", u".", u"\\\\TREE\\"},
        {"separators", u"...", u"\\\\TREE\\"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Shown(Fdn(u"TREE", row.name)), Shown(row.fdn)) << row.why;
}

TEST(FullName, MissingOrEmptyParts_AreRefused)
{
    WCHAR* fdn = nullptr;
    EXPECT_EQ(makeFDN(nullptr, u"a", &fdn), kFdnBadArgument);
    EXPECT_EQ(makeFDN(u"T", nullptr, &fdn), kFdnBadArgument);
    EXPECT_EQ(makeFDN(u"", u"a", &fdn), kFdnBadArgument);
    EXPECT_EQ(makeFDN(u"T", u"", &fdn), kFdnBadArgument);
    EXPECT_EQ(fdn, nullptr);
}
