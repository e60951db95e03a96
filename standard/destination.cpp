// SPDX-License-Identifier: Apache-2.0
//
// Reading destinations, and the escapes of those that are URLs.
#include "standard/destination.h"

#include <algorithm>
#include <string_view>

#include "support/ascii.h"

namespace standard {

namespace {

using Wide = std::u16string_view;

// Takes "%" and two digits off the front. -1 when something else stands there.
int TakeEscape(Wide& text) noexcept
{
    if (text.size() < 3 || text[0] != u'%')
        return -1;
    const int high = HexValue(text[1]);
    const int low = HexValue(text[2]);
    if (high < 0 || low < 0)
        return -1;
    text.remove_prefix(3);
    return high * 16 + low;
}

// Takes one escaped character off the front: the bytes of its UTF-8 form. 0 for what is none, and
// for those that no name may hold.
char32_t TakeEscaped(Wide& text) noexcept
{
    const int lead = TakeEscape(text);
    if (lead < 0 || lead == '/')
        return 0;
    if (lead < 0x80)
        return static_cast<char32_t>(lead);
    const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    auto point = static_cast<char32_t>(lead & (0x3F >> more));
    for (int i = 0; i < more; ++i) {
        const int next = TakeEscape(text);
        if (next < 0 || (next & 0xC0) != 0x80)
            return 0;
        point = point << 6 | static_cast<char32_t>(next & 0x3F);
    }
    const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
    return point < kLeast[more] || point > 0x10FFFF || isSurrogate ? 0 : point;
}

// Decodes what stands behind a URL's authority. False for a malformed escape. `out` has as much
// room as `text` has units.
bool Decode(Wide text, WCHAR* out, size_t& units) noexcept
{
    units = 0;
    while (!text.empty()) {
        if (text.front() != u'%') {
            out[units++] = text.front();
            text.remove_prefix(1);
            continue;
        }
        const char32_t point = TakeEscaped(text);
        if (point == 0)
            return false;
        if (point >= 0x10000) {
            out[units++] = static_cast<WCHAR>(0xD800 + ((point - 0x10000) >> 10));
            out[units++] = static_cast<WCHAR>(0xDC00 + ((point - 0x10000) & 0x3FF));
        } else {
            out[units++] = static_cast<WCHAR>(point);
        }
    }
    return true;
}

// What stands behind scheme and authority; empty when there is nothing, or no authority.
Wide PathOfUrl(Wide url) noexcept
{
    const size_t scheme = url.find(u"://");
    if (scheme == Wide::npos)
        return {};
    url.remove_prefix(scheme + 3);
    const size_t slash = url.find(u'/');
    return slash == Wide::npos ? Wide() : url.substr(slash);
}

} // namespace

TALSTATUS ReadDestination(const UNICODE_STRING& target, Paged<WCHAR>& text, UNICODE_STRING& path)
{
    const Wide given(target.Buffer, target.Length / sizeof(WCHAR));
    const bool isPath = !given.empty() && given.front() == u'/';
    text = AllocPaged<WCHAR>(given.size() + 1);
    if (!text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    size_t units = given.size();
    if (isPath)
        std::copy(given.begin(), given.end(), text.get());
    else if (!Decode(PathOfUrl(given), text.get(), units))
        return TAL_STATUS_INVALID_REQUEST;
    if (units != 0 && text[units - 1] == u'/')
        --units;
    // As of a request's own path, only the length of the moniker is removed.
    const size_t moniker = g_MonikerU.Length / sizeof(WCHAR);
    if (units <= moniker || text[moniker] != u'/')
        return TAL_STATUS_INVALID_REQUEST;
    text[units] = 0;
    const auto bytes = static_cast<UINT16>((units - moniker) * sizeof(WCHAR));
    path = {bytes, bytes, text.get() + moniker};
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
