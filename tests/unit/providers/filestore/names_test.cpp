// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/names.h"

#include <algorithm>
#include <cerrno>

#include <gtest/gtest.h>

#include "providers/filestore/failures.h"
#include "providers/filestore/name_list.h"

using namespace filestore;

namespace {

void AsciiUpperUnits(WCHAR* text, UINT32 units)
{
    for (UINT32 i = 0; i < units; ++i)
        if (text[i] >= 'a' && text[i] <= 'z')
            text[i] = static_cast<WCHAR>(text[i] - 32);
}

} // namespace

TEST(Names, TextOfTheContractIsEmptyWhereItIsMalformedOrMissing)
{
    std::u16string text = u"a\u20ac\U0001F600";
    EXPECT_EQ("a\xe2\x82\xac\xf0\x9f\x98\x80", Utf8Of(text.data(), text.size()));
    UNICODE_STRING counted{2, 8, text.data()};
    EXPECT_EQ("a", Utf8Of(&counted));
    counted = {8, 8, text.data()};
    EXPECT_EQ("a\xe2\x82\xac\xf0\x9f\x98\x80", Utf8Of(&counted));
    counted.Length = 6; // cut inside the pair
    EXPECT_EQ("", Utf8Of(&counted));
    counted.Buffer = nullptr;
    EXPECT_EQ("", Utf8Of(&counted));
    EXPECT_EQ("", Utf8Of(nullptr));
}

TEST(Names, OnlyNamesThatCanBeSentAreServed)
{
    const std::string longest(255, 'n');
    for (const std::string& name : {std::string("a"), std::string(".x"), std::string("a b"),
                                    std::string("\xe6\x97\xa5"), longest, std::string("<&\">")})
        EXPECT_TRUE(IsServableName(name)) << name;
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"),
          std::string("a\0b", 3), std::string("\x1f"), std::string("\x7f"), std::string("\xc2\x85"),
          std::string("\xef\xbf\xbe"), std::string("\xff"), longest + "n"})
        EXPECT_FALSE(IsServableName(name)) << name;
}

// Plain names are looked at eight bytes at a time: no length and no place hides anything.
TEST(Names, WhatCannotBeSentIsFoundAnywhereInAName)
{
    for (size_t length = 1; length <= 33; ++length) {
        for (int c = 0x20; c < 0x7F; ++c)
            EXPECT_EQ(c != '/' && (length > 2 || c != '.'),
                      IsServableName(std::string(length, static_cast<char>(c))))
                << length << " of " << c;
        for (size_t at = 0; at < length; ++at) {
            for (const char bad : {'\0', '\x01', '\x1f', '/', '\x7f', '\x80', '\xff'}) {
                std::string name(length, '0'); // the next above "/", which borrows
                name[at] = bad;
                EXPECT_FALSE(IsServableName(name)) << length << ", " << at << ": " << int{bad};
            }
            EXPECT_TRUE(
                IsServableName(std::string(at, '~') + "\xc3\xa4" + std::string(length - at, ' ')))
                << length << ", " << at;
        }
    }
}

TEST(Names, ComponentsAreJoinedWithoutEmptyOnes)
{
    PathBuffer path;
    EXPECT_EQ(PathFit::Ok, AppendComponents("//a//b/", &path));
    EXPECT_EQ("a/b", path.View());
    EXPECT_EQ(PathFit::NotServable, AppendComponents("c/../d", &path));
    path.Clear();
    EXPECT_EQ(PathFit::NotServable, AppendComponents("/.KesT/x", &path));
    path.Clear();
    EXPECT_EQ(PathFit::NotServable, AppendComponents("/a/.kest", &path)); // a volume in a volume
    path.Clear();
    EXPECT_EQ(PathFit::TooLong, AppendComponents(std::string(256, 'n'), &path));
    std::string deep;
    for (int i = 0; i < 17; ++i)
        deep += "/" + std::string(250, 'd');
    path.Clear();
    EXPECT_EQ(PathFit::TooLong, AppendComponents(deep, &path));
}

TEST(Names, PartsOfPaths)
{
    EXPECT_EQ("a/b", ParentOf("a/b/c"));
    EXPECT_EQ("", ParentOf("a"));
    EXPECT_EQ("c", LeafOf("a/b/c"));
    EXPECT_TRUE(IsWithin("a/b", "a"));
    EXPECT_TRUE(IsWithin("a", "a"));
    EXPECT_TRUE(IsWithin("a", ""));
    EXPECT_FALSE(IsWithin("ab", "a"));
}

TEST(Names, PercentEscapes)
{
    std::string out;
    EXPECT_TRUE(DecodePercent("a%20b%C3%a4", &out));
    EXPECT_EQ("a b\xc3\xa4", out);
    for (const char* text : {"plain", "%2F", "%00", "%", "%2", "%zz", "a%20%"})
        EXPECT_FALSE(DecodePercent(text, &out)) << text;
}

TEST(NameList, SortsByUpperCaseThenByBytes)
{
    NameList names(AsciiUpperUnits);
    const std::vector<std::string> sorted = {"", "A", "a", "a1", "A10", "a2", "b", "_", "\xc3\xa4"};
    for (const size_t i : {4u, 8u, 1u, 7u, 2u, 0u, 6u, 3u, 5u})
        names.Add(sorted[i]);
    names.Sort();
    for (size_t i = 0; i < sorted.size(); ++i)
        EXPECT_EQ(sorted[i], names.At(i)) << i;
}

TEST(NameList, LongSharedBeginningsDoNotHideTheDifference)
{
    NameList names(AsciiUpperUnits);
    const std::string prefix(200, 'p');
    for (const char* tail : {"-123456789-b", "-123456789-A", "-123456789", "-12345678"})
        names.Add(prefix + tail);
    names.Add(std::string(200, 'P') + "-12345678");
    names.Sort();
    EXPECT_EQ(std::string(200, 'P') + "-12345678", names.At(0));
    EXPECT_EQ(prefix + "-12345678", names.At(1));
    EXPECT_EQ(prefix + "-123456789", names.At(2));
    EXPECT_EQ(prefix + "-123456789-A", names.At(3));
    EXPECT_EQ(prefix + "-123456789-b", names.At(4));
}

// The order of long lists, ASCII and not, is that of comparing upper-cased names.
TEST(NameList, ManyNamesComeInTheSameOrderAsFew)
{
    UINT32 random = 1;
    const auto draw = [&](UINT32 below) {
        random = random * 1664525 + 1013904223;
        return (random >> 8) % below;
    };
    for (const bool foreign : {false, true}) {
        std::vector<std::string> wanted;
        NameList names(AsciiUpperUnits);
        for (int i = 0; i < 3000; ++i) {
            std::string name = "Doc-";
            for (UINT32 k = draw(14); k > 0; --k)
                name += "aAbB_{"[draw(6)];
            wanted.push_back(name);
        }
        if (foreign)
            wanted.push_back("Doc-\xc3\xa4");
        for (const std::string& name : wanted)
            names.Add(name);
        names.Sort();
        const auto upper = [](std::string text) {
            for (char& c : text)
                c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
            return text;
        };
        std::sort(wanted.begin(), wanted.end(), [&](const std::string& a, const std::string& b) {
            return upper(a) != upper(b) ? upper(a) < upper(b) : a < b;
        });
        ASSERT_EQ(wanted.size(), names.Count());
        for (size_t i = 0; i < wanted.size(); ++i)
            ASSERT_EQ(wanted[i], names.At(i)) << i;
    }
}

TEST(NameList, NamesAreToldInUtf16)
{
    NameList names(AsciiUpperUnits);
    const std::u16string wide[] = {u"plain", u"\u00e4\u65e5 x", u"\U0001f600z"};
    for (const char* name : {"plain", "\xc3\xa4\xe6\x97\xa5 x", "\xf0\x9f\x98\x80z"})
        names.Add(name);
    for (size_t i = 0; i < std::size(wide); ++i) {
        ASSERT_EQ(wide[i].size(), names.UnitsAt(i)) << i;
        std::u16string text(wide[i].size(), u'?');
        names.WideAt(i, text.data());
        EXPECT_TRUE(wide[i] == text) << i;
    }
    names.ExpectAfter(3); // one behind the last is none
}

TEST(Failures, ErrorsOfTheSystemBecomeCodes)
{
    const std::pair<int, UINT16> rows[] = {{0, kCodeSuccess},
                                           {ENOENT, kCodeNotFound},
                                           {ELOOP, kCodeNotFound},
                                           {EXDEV, kCodeNotFound},
                                           {EREMOTE, kCodeAccessDenied},
                                           {EACCES, kCodeAccessDenied},
                                           {EROFS, kCodeAccessDenied},
                                           {ENAMETOOLONG, kCodeNameTooLong},
                                           {EEXIST, kCodeObjectExists},
                                           {ENOSPC, kCodeStorageFull},
                                           {EDQUOT, kCodeStorageFull},
                                           {EMFILE, kCodeInsufficientResources},
                                           {EISDIR, kCodeMethodNotAllowed},
                                           {EIO, kCodeUnsuccessful}};
    for (const auto& [error, code] : rows) {
        EXPECT_EQ(code, Code(StatusFromErrno(error))) << error;
        EXPECT_EQ(error != 0, Failed(StatusFromErrno(error))) << error;
    }
}
