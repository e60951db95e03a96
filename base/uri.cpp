// SPDX-License-Identifier: Apache-2.0
//
// URLs, taken apart.
#include "base/uri.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/host_name.h"

namespace base {

bool TakeOrigin(std::string_view& url, std::string_view& scheme, std::string_view& host) noexcept
{
    const size_t colon = url.find(':');
    if (colon == std::string_view::npos || url.substr(colon, 3) != "://")
        return false;
    scheme = url.substr(0, colon);
    bool isKnown = false;
    for (const std::string_view known : {"http", "https", "webdav", "webdavs"})
        isKnown = isKnown || EqualsIgnoringCase(scheme, known);
    if (!isKnown)
        return false;
    url.remove_prefix(colon + 3);
    const size_t end = std::min(url.find_first_of("/?"), url.size());
    host = url.substr(0, end);
    url.remove_prefix(end);
    return IsValidHost(host);
}

} // namespace base
