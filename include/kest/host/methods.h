// SPDX-License-Identifier: Apache-2.0
//
// The numbers by which the host hands request methods to a handler.
#pragma once

#include <kest/types.h>

enum KEST_METHOD : UINT32 {
    KestMethodGet = 0,
    KestMethodPut = 1,
    KestMethodPost = 2,
    KestMethodDelete = 3,
    KestMethodTrace = 4,
    KestMethodOptions = 5,
    KestMethodConnect = 6,
    // 7 is reserved: handlers treat it as PROPPATCH, and the host hands it out for no method.
    KestMethodPropFind = 8,
    KestMethodPropPatch = 9,
    KestMethodMkCol = 10,
    KestMethodCopy = 11,
    KestMethodMove = 12,
    KestMethodLock = 13,
    KestMethodUnlock = 14,
    KestMethodHead = 27,
    KestMethodUnknown = 28,
    KestMethodPatch = 29, // changes a part of a resource (RFC 5789); standard dialect only
};
