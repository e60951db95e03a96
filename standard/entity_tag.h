// SPDX-License-Identifier: Apache-2.0
//
// Entity tags and how they are compared (RFC 9110 section 8.8.3).
#pragma once

#include <string_view>

namespace standard {

// A tag's text between its quotation marks; refers to the text that it was read from.
struct EntityTag {
    std::string_view opaque;
    bool isWeak = false;
    bool isThere = false; // false: there is no tag, and nothing equals it
};

enum class TagComparison {
    Strong, // both strong and the same: byte for byte the same content
    Weak,   // the same
};

// Reads one tag, as a provider or a client writes it. A client's text without quotation marks is
// taken for the tag itself: some leave them out.
EntityTag ReadEntityTag(std::string_view text) noexcept;

bool AreEqual(const EntityTag& a, const EntityTag& b, TagComparison comparison) noexcept;

// Whether a list of tags, as in "If-Match" and "If-None-Match", names `current`. "*" is no list and
// is the caller's.
bool ListsTag(std::string_view list, const EntityTag& current, TagComparison comparison) noexcept;

} // namespace standard
