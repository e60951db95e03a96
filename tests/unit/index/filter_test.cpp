// SPDX-License-Identifier: Apache-2.0
#include "index/filter.h"

#include <chrono>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

bool Matches(const std::u16string& filter, const std::u16string& name)
{
    return testMatch(filter.c_str(), name.data(), name.size()) == 1;
}

// The rules as they are told, one after the other, with a recursion at every star.
bool MatchesByTheRules(const char16_t* filter, const std::u16string& name, size_t at)
{
    bool many = false;
    for (; *filter != 0; ++filter) {
        if (*filter == u'*') {
            many = true;
            continue;
        }
        if (at == name.size())
            return false;
        if (*filter == u'?') {
            ++at;
            continue;
        }
        if (!many) {
            if (name[at++] != *filter)
                return false;
            continue;
        }
        for (; at < name.size(); ++at)
            if (name[at] == *filter && MatchesByTheRules(filter + 1, name, at + 1))
                return true;
        return false;
    }
    return true;
}

} // namespace

TEST(Filter, Match_LooksAtTheBeginningOfTheName)
{
    const struct {
        const char* why;
        std::u16string filter, name;
        bool matches;
    } rows[] = {
        {"a star behind a letter", u"A*", u"ALPHA", true},
        {"another beginning", u"A*", u"BETA", false},
        {"no star needed at the end", u"B", u"BRAVO", true},
        {"the whole name", u"BRAVO", u"BRAVO", true},
        {"more than the name", u"BRAVOS", u"BRAVO", false},
        {"a question mark needs a character", u"?", u"", false},
        {"and takes any", u"?", u"X", true},
        {"a star alone takes nothing too", u"*", u"", true},
        {"several stars", u"***", u"X", true},
        {"a star in the middle", u"A*Z", u"AXYZ", true},
        {"and nothing for it", u"A*Z", u"AXY", false},
        {"behind the match anything", u"A*Z", u"AXZY", true},
        {"a later place", u"*AB", u"AAAB", true},
        {"star and question mark", u"*?A", u"A", false},
        {"with a character between", u"*?A", u"XA", true},
        {"question mark behind a star at the end", u"A*?", u"A", false},
        {"extension", u"*.TXT", u"NOTES.TXT", true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Matches(row.filter, row.name), row.matches) << row.why;
}

TEST(Filter, Match_IsTheRecursiveOne)
{
    std::mt19937 random(20261120);
    const auto text = [&](const char16_t* letters, unsigned count, unsigned most) {
        std::u16string out;
        for (unsigned long i = random() % (most + 1); i > 0; --i)
            out += letters[random() % count];
        return out;
    };
    for (int i = 0; i < 200000; ++i) {
        const std::u16string filter = text(u"AB?**", 5, 8);
        const std::u16string name = text(u"AB", 2, 10);
        ASSERT_EQ(Matches(filter, name), MatchesByTheRules(filter.c_str(), name, 0))
            << std::string(filter.begin(), filter.end()) << " on "
            << std::string(name.begin(), name.end());
    }
}

TEST(Filter, ManyStars_CostNoMoreThanLengthTimesLength)
{
    std::u16string filter;
    for (int i = 0; i < 400; ++i)
        filter += u"*A";
    filter += u"B";
    const std::u16string name(480, u'A');
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(Matches(filter, name));
    // 100 times 800 times 480 steps: far below a second; a recursion would not end.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(Filter, WholeFilter_IsMatchedWithoutCaseOfTheName)
{
    struct Record {
        DAV_COMMON_ENUM entry;
        char16_t rest[64];
    } record = {};
    const std::u16string name = u"brav\u00f6.txt";
    record.entry.DisplayNameLength = static_cast<UINT32>(name.size() * 2);
    std::memcpy(reinterpret_cast<char*>(&record) + offsetof(DAV_COMMON_ENUM, DisplayName),
                name.data(), name.size() * 2);
    EXPECT_EQ(fileMatchesFilter(u"*", record.entry), 1);
    EXPECT_EQ(fileMatchesFilter(u"B", record.entry), 1);
    EXPECT_EQ(fileMatchesFilter(u"*\u00d6", record.entry), 1);
    EXPECT_EQ(fileMatchesFilter(u"b", record.entry), 0) << "filters come upper-cased";
    EXPECT_EQ(fileMatchesFilter(u"*.TXT?", record.entry), 0);
}

TEST(Filter, Validation_RefusesWhatCouldBeginMarkup)
{
    const struct {
        const char* text;
        int valid;
    } rows[] = {
        {"*", 1},      {"a<", 1},    {"<", 1},      {"<1", 1},      {"< b", 1},
        {"</", 1},     {"a&b", 1},   {"&", 1},      {"<a", 0},      {"<Z", 0},
        {"x<!--", 0},  {"<\x01", 0}, {"<\x1f", 0},  {"<\x7f", 0},   {"<\xc3\xa4", 0},
        {"<\x80", 0},  {"&#", 0},    {"a&#38;", 0}, {"<(.*?)>", 0}, {"x<(.*?)>y", 0},
        {"<(.*)>", 1}, {"<<b", 0},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Validate(row.text), row.valid) << row.text;
}
