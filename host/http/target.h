// SPDX-License-Identifier: Apache-2.0
//
// Request targets and the names of hosts: what a client may write, and what it means.
#pragma once

#include <string>
#include <string_view>

namespace kestd {

// A request target, taken apart (RFC 9112 section 3.2). All paths begin with "/" and have their dot
// segments removed.
struct Target {
    std::string path;        // percent-decoded once; valid UTF-8 without NUL
    std::string rawPath;     // the same path as sent, still escaped
    std::string_view query;  // still escaped, without "?"; points into the target's text
    std::string_view host;   // absolute-form only: host[:port]; points into the target's text
    bool isAsterisk = false; // "*"; the paths are empty

    void Clear() noexcept
    {
        path.clear();
        rawPath.clear();
        query = host = {};
        isAsterisk = false;
    }
};

// Takes a target apart. 0, or 400 for a target that is malformed: no known form, a malformed
// escape, an encoded "/" (it would mean another path to whoever decodes twice), NUL, text that is
// not UTF-8, a fragment, blanks or controls as sent.
int ParseTarget(std::string_view text, Target& out);

// Percent-decodes `raw` (a path that begins with "/") and removes dot segments from both forms,
// also when the dots are escaped. False for what ParseTarget refuses.
bool NormalisePath(std::string_view raw, std::string& decoded, std::string& stillEscaped);

// host[:port] (RFC 3986 section 3.2.2) without user information: a name, an IPv4 address, or an
// IPv6 address in brackets; at most 255 bytes of name.
bool IsValidHost(std::string_view text) noexcept;

// Splits a valid host[:port]; the port is empty when there is none. Brackets stay.
void SplitHost(std::string_view text, std::string_view& name, std::string_view& port) noexcept;

// Whether a host's name or address, as SplitHost gives it, can be nothing but this machine:
// "localhost" and the names below it (RFC 6761 section 6.3), 127.0.0.0/8, [::1].
bool IsLoopbackHost(std::string_view name) noexcept;

// Takes "scheme://host[:port]" off an absolute URL and leaves the rest in `url` (which may be
// empty). False for anything else, schemes other than http, https, webdav and webdavs included:
// WebDAV clients use the latter for the former.
bool TakeOrigin(std::string_view& url, std::string_view& scheme, std::string_view& host) noexcept;

// Whether `path` is `location` or below it.
bool IsUnder(std::string_view path, std::string_view location) noexcept;

// Percent-escapes everything but unreserved characters and "/".
std::string EscapePath(std::string_view path);

} // namespace kestd
