// SPDX-License-Identifier: Apache-2.0
//
// The clock that deadlines are set by.
#pragma once

#include <cstdint>

namespace kestd {

// Milliseconds since some moment; never goes back. A few ms coarse.
int64_t NowMs() noexcept;

} // namespace kestd
