// SPDX-License-Identifier: Apache-2.0
//
// The name filter of a listing.
#include "index/filter.h"

#include <cstring>

#include "support/memory.h"

namespace {

bool IsLetter(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsControl(unsigned char c)
{
    return c < 0x20 || c == 0x7F;
}

bool CouldBeginMarkup(char first, char second)
{
    const auto c = static_cast<unsigned char>(second);
    if (first == '<')
        return IsControl(c) || c >= 0x80 || c == '!' || IsLetter(c);
    return first == '&' && c == '#';
}

} // namespace

int checkTags(const char* string)
{
    return std::strstr(string, "<(.*?)>") == nullptr;
}

int Validate(const char* input)
{
    if (!checkTags(input))
        return 0;
    if (*input == '\0')
        return 1;
    for (const char* c = input; c[1] != '\0'; ++c)
        if (CouldBeginMarkup(c[0], c[1]))
            return 0;
    return 1;
}

int testMatch(const WCHAR* filter, const WCHAR* displayName, size_t units)
{
    // Behind a star the first place that fits what follows is as good as any later one, so only the
    // last star is ever tried again.
    const WCHAR* afterStar = nullptr;
    size_t retry = 0; // where the part behind the last star is tried next
    size_t at = 0;
    while (*filter != 0) {
        if (*filter == u'*') {
            afterStar = ++filter;
            retry = at;
        } else if (at < units && (*filter == u'?' || *filter == displayName[at])) {
            ++filter;
            ++at;
        } else if (at < units && afterStar != nullptr) {
            filter = afterStar;
            at = ++retry;
        } else {
            return 0; // at the end a later try would need even more than what is left
        }
    }
    return 1;
}

int fileMatchesFilter(const WCHAR* filter, const DAV_COMMON_ENUM& resInfo)
{
    if (filter[0] == u'*' && filter[1] == 0)
        return 1;
    const UINT32 units = resInfo.DisplayNameLength / sizeof(WCHAR);
    const Paged<WCHAR> name = AllocPaged<WCHAR>(units + 1);
    if (!name)
        return 1;
    std::memcpy(name.get(), resInfo.DisplayName, units * sizeof(WCHAR));
    name[units] = 0;
    // A name that cannot be upper-cased is matched as it stands.
    (void)pITalpl->TalxCharUpperBuff(name.get(), units);
    return testMatch(filter, name.get(), units);
}
