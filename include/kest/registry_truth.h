// SPDX-License-Identifier: Apache-2.0
//
// How a setting was written, which its value does not tell: for whoever checks a configuration.
#pragma once

#include <kest/types.h>

#pragma GCC visibility push(default)
extern "C" {

// Whether the file says true or false at that key and name, which reads as 1 or 0: 1 for yes. 0
// also for a value that is not set, and without memory. From any thread.
UINT32 TolmRegistryIsTruth(const WCHAR* key, const WCHAR* name);

} // extern "C"
#pragma GCC visibility pop
