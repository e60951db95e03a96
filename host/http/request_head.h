// SPDX-License-Identifier: Apache-2.0
//
// A request's head: request line and header lines (RFC 9112 sections 2 to 5).
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/http/name_filter.h"

namespace kestd {

struct Field {
    std::string_view name;
    std::string_view value; // without surrounding blanks
    uint32_t key = 0;       // of the name: see NameKey
};

// Everything points into the text that was parsed.
struct RequestHead {
    std::string_view method;
    std::string_view target;
    std::string_view lines; // the header lines with their line ends, without the empty one
    unsigned version = 11;  // 10 or 11
    std::vector<Field> fields;
    NameFilter names; // of the fields

    // The first field of that name (compared without case), or null.
    const Field* Find(std::string_view name) const noexcept
    {
        const uint32_t key = NameKey(name);
        return names.MayHold(key) ? FindFrom(fields.data(), name, key) : nullptr;
    }
    // The next one of that name behind `field`, which is one of these and has that name, or null.
    const Field* FindNext(const Field& field, std::string_view name) const noexcept
    {
        return FindFrom(&field + 1, name, field.key);
    }
    // How many fields have that name.
    size_t Count(std::string_view name) const noexcept;
    // Whether a list-valued field (all its lines) holds `token`, compared without case.
    bool HasToken(std::string_view name, std::string_view token) const noexcept
    {
        return names.MayHold(NameKey(name)) && ListsToken(name, token);
    }
    void Clear() noexcept
    {
        fields.clear();
        names.Clear();
        method = target = lines = {};
    }

  private:
    const Field* FindFrom(const Field* from, std::string_view name, uint32_t key) const noexcept;
    bool ListsToken(std::string_view name, std::string_view token) const noexcept;
};

// The length of the head at the start of `text`, its empty line included; 0 while it is not
// complete. `scanned` keeps how far earlier calls on the same text got, and starts at 0.
size_t FindHeadEnd(std::string_view text, size_t& scanned) noexcept;

// Parses a complete head. 0, or the status to refuse it with: 400, or 505 for a version other than
// 1.0 and 1.1. Obsolete line folding, bare CR or LF and blanks before the colon are refused.
int ParseHead(std::string_view text, RequestHead& head);

} // namespace kestd
