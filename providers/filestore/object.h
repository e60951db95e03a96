// SPDX-License-Identifier: Apache-2.0
//
// The common part of the objects that the store hands out.
#pragma once

#include <kest/sdk/object.h>

#include "providers/filestore/failures.h"

namespace filestore {

template <class Final, class... Interfaces>
using Object = kest::Object<Final, StoreComponent, Interfaces...>;

} // namespace filestore
