// SPDX-License-Identifier: Apache-2.0
//
// "Allow" of a 405 (RFC 9110 section 15.5.6), which handlers of both dialects send.
#pragma once

#include <kest/io.h>

// Sets "Allow" for a request that is refused by 405: what a resource may have but for the method
// that was just refused. Leaves one that the handler has set, and, in the classic dialect, the
// reply as it is.
void SetAllowOfRefusal(IKestIO_5* io);
