// SPDX-License-Identifier: Apache-2.0
//
// Making a collection, with properties if it is to have some.
#pragma once

#include <span>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

// Code 22 when something bears the name, or 40 when it had to be free; 33 without a parent. All of
// it or nothing.
TALSTATUS MakeFolder(const Store& store, const Guard& guard, const Target& target,
                     std::span<DAV_PROPERTY_CHANGE> changes);

} // namespace filestore
