// SPDX-License-Identifier: Apache-2.0
//
// Times: providers count units of 100 ns, and dates since 1601-01-01 UTC.
#pragma once

#include <kest/types.h>

inline constexpr INT64 kUnitsPerSecond = 10'000'000;
inline constexpr INT64 kSecondsTo1970 = 11'644'473'600; // from 1601-01-01

// Seconds that are added to the time that a client is granted a lock for, before it goes to the
// provider, and taken off what clients see: a refresh that is sent in time but arrives late still
// finds its lock.
inline constexpr INT32 kLockGraceSeconds = 60;
