// SPDX-License-Identifier: Apache-2.0
//
// Digests for components, which link no cryptography of their own.
#pragma once

#include <kest/host/digest.h>

namespace kestd {

// An object with one reference. Throws std::bad_alloc.
IKestDigest* MakeDigest();

} // namespace kestd
