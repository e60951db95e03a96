// SPDX-License-Identifier: Apache-2.0
//
// The owned descriptor of base/ under the host's own name, for who has not changed over.
#pragma once

#include "base/descriptor.h"

namespace kestd {

using base::Descriptor;

} // namespace kestd
