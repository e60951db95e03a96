// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND of the collections above the handler's location in the standard dialect (RFC 4918
// section 9.1): what such a collection has, and what it has not.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestd {

struct PropertyName {
    std::string space; // the namespace's URI; may be empty
    std::string local;
};

// What a PROPFIND's body asks for.
struct AskedProperties {
    enum class Kind { All, Names, Named };
    Kind kind = Kind::All;
    std::vector<PropertyName> names; // asked for, or included with all; none twice
};

inline constexpr size_t kMostAncestorBody = 64 * 1024; // bytes
inline constexpr size_t kMostAncestorNames = 1000;

// Reads a body; an empty one asks for all. False for what is none: malformed XML, a document type,
// another root, no form or several, more names than kMostAncestorNames. Throws std::bad_alloc.
[[nodiscard]] bool ParseAskedProperties(std::string_view body, AskedProperties& asked);

// Appends the "response" of one collection to a multistatus that declares "D:". `path` is decoded;
// one "/" is added to it where none stands at its end. Throws std::bad_alloc.
void AppendAncestor(std::string& text, std::string_view path, const AskedProperties& asked);

} // namespace kestd
