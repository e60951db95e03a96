// SPDX-License-Identifier: Apache-2.0
//
// How each provider generation sees the dead properties of the others.
//
// The first two name a property by its prefix and local name, "Z:color", and their values are
// bytes. To the third it has the namespace name "urn:kest:prefix:Z" (none for a name without a
// prefix) and the local name "color", and its value is an element with the bytes as text. A name
// that no element can have is not shown to the third.
//
// The third keeps whole elements. To the first two such a property has its local name, and its
// value is the element's content; where several have one local name the first that was set counts.
//
// Setting or removing one by what the third sees changes what the first two had set, too.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "providers/filestore/metadata.h"

namespace filestore {

inline constexpr std::string_view kPrefixSpace = "urn:kest:prefix:";

// The value for the first two generations.
[[nodiscard]] std::string ClassicValue(const Property& property);
// The name under which they could have set this one of the third; nothing if they could not.
[[nodiscard]] std::optional<std::string> ClassicName(PropertyName name);
// Any property as the third sees it; nothing for one that it does not.
[[nodiscard]] std::optional<Property> AsElement(Property property);

// Whether a text is a local name of XML (Namespaces in XML 1.0, NCName), as far as bytes above 127
// are not looked at but for being UTF-8.
[[nodiscard]] bool IsLocalName(std::string_view text);
// Whether a text is UTF-8 without what XML does not allow.
[[nodiscard]] bool IsXmlText(std::string_view text);
// Appends a text as content or as an attribute's value, with U+FFFD for what XML does not allow.
void AppendEscaped(std::string_view text, std::string* out);

} // namespace filestore
