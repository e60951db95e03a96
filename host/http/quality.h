// SPDX-License-Identifier: Apache-2.0
//
// Lists of what a client takes, with weights: "Accept", "Accept-Encoding" (RFC 9110 section 12.4).
#pragma once

#include <string_view>

namespace kestd {

// One element of such a list.
struct WeightedElement {
    std::string_view value;      // without parameters
    std::string_view parameters; // from the first ";" on, the weight included; may be empty
    unsigned weight = 1000;      // thousandths; 0: not wanted
};

// Takes the next element off a list. False at the end. A malformed weight counts as 0.
bool NextWeighted(std::string_view& list, WeightedElement& element) noexcept;

} // namespace kestd
