// SPDX-License-Identifier: Apache-2.0
//
// The states that a power cut can leave.
#pragma once

#include <cstddef>
#include <functional>

#include "tests/crashstates/machine.h"

namespace crashstates {

struct Cut {
    size_t events = 0;   // so many have happened
    size_t answered = 0; // so many operations were answered among them
};

struct Sampling {
    size_t most = 256; // states of one cut; where there are more, some are drawn
    uint64_t seed = 1;
};

// Calls `each` with every disk (or, where a cut has too many, with drawn ones, the extremes among
// them) that a power cut in the course of a machine's events from `first` on can leave. Cuts are
// made where one can tell more than the others before it: before each sync, at each answer, at the
// end.
void EachState(const Machine& machine, size_t first, const Sampling& sampling,
               const std::function<void(const Disk&, const Cut&)>& each);

} // namespace crashstates
