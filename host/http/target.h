// SPDX-License-Identifier: Apache-2.0
//
// Request targets: what a client may write, and what it means.
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

} // namespace kestd
