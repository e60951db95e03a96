// SPDX-License-Identifier: Apache-2.0
//
// Which rule decides about each right: by the letter of the definition, rule by rule. Slower than
// AccessRules, and what the tests hold it against.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "host/access/rule.h"

namespace kestd {

struct RightOutcome {
    bool isAllowed = true;
    const AccessRule* rule = nullptr; // null: no rule speaks of it
};
using Explanation = std::array<RightOutcome, kRightCount>; // in the order of kRightNames

// `user` is empty for who has not signed in, `groups` are his, in lower case. `path` is a
// provider's, decoded. The rules outlive the explanation.
[[nodiscard]] Explanation Explain(const std::vector<AccessRule>& rules, std::string_view user,
                                  const std::vector<std::string>& groups, std::string_view path);

} // namespace kestd
