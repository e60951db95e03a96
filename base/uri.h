// SPDX-License-Identifier: Apache-2.0
//
// URLs of HTTP and WebDAV servers, taken apart.
#pragma once

#include <string_view>

namespace base {

// Takes "scheme://host[:port]" off an absolute URL and leaves the rest in `url` (which may be
// empty). False for anything else, schemes other than http, https, webdav and webdavs included:
// WebDAV clients use the latter for the former. The views point into the text.
bool TakeOrigin(std::string_view& url, std::string_view& scheme, std::string_view& host) noexcept;

// Whether `path` is `location` or below it.
constexpr bool IsUnder(std::string_view path, std::string_view location) noexcept
{
    return path.substr(0, location.size()) == location &&
           (path.size() == location.size() || path[location.size()] == '/');
}

} // namespace base
