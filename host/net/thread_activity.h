// SPDX-License-Identifier: Apache-2.0
//
// How much of their time threads have spent on a processor, or in the queue for one.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "host/net/worker_growth.h"

namespace kestd {

// Of threads of this process; of all or of none. None where the system keeps no such figures.
// Throws std::bad_alloc.
std::optional<ThreadActivity> MeasureActivity(const std::vector<pid_t>& threads);

} // namespace kestd
