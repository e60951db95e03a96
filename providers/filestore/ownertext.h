// SPDX-License-Identifier: Apache-2.0
//
// The owner text of a lock. Replies insert it unescaped, so what is kept must be harmless there.
#pragma once

#include <string>
#include <string_view>

namespace filestore {

inline constexpr size_t kMaxOwnerBytes = 259;

// Whether `text` can stand between two tags of an XML document as it is: markup that is closed and
// nested, known entities, allowed characters. Names with a prefix are refused, since nothing
// declares the prefix there; so are comments, CDATA and processing instructions.
[[nodiscard]] bool IsWellFormedFragment(std::string_view text);

// The text as it is where it is well-formed and fits kMaxOwnerBytes; else escaped, with U+FFFD in
// place of what XML does not allow, and cut between characters.
[[nodiscard]] std::string OwnerForReplies(std::string_view text);

} // namespace filestore
