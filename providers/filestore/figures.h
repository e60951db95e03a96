// SPDX-License-Identifier: Apache-2.0
//
// The figures of a volume, for monitoring.
#pragma once

#include <kest/status.h>

#include "providers/filestore/store.h"

namespace filestore {

// See kIoctlVolumeFigures.
TALSTATUS DescribeVolume(const Store& store, UINT32 number, UINT32* length, void* out);

} // namespace filestore
