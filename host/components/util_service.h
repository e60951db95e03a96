// SPDX-License-Identifier: Apache-2.0
//
// CLSID_KestUtil: dates, MIME types and URI escaping for components.
#pragma once

#include <kest/host.h>

namespace kestd {

// A new IKestUtil with one reference, for the caller. It has no state of its own.
IKestUtil* MakeUtilService();

// The status that fits an errno value best; success for 0.
TALSTATUS StatusOfErrno(int error);

} // namespace kestd
