// SPDX-License-Identifier: Apache-2.0
//
// Settings from the registry. No failure stops the module: each setting has a default.
#pragma once

#include "support/globals.h"

inline constexpr UINT32 kDefaultBlockSize = 262144;
inline constexpr UINT32 kSmallestBlockSize = 1024;
inline constexpr UINT32 kLargestBlockSize = 524288;
inline constexpr UINT32 kDefaultInfinityEntries = 100000;

// Reads the settings and subscribes to configuration changes. Once, in stage two. Always 0.
TALSTATUS GetGlobalConfiguration();

// Sets g_RWBlockSize: bytes, kSmallestBlockSize to kLargestBlockSize, else the default. The status
// is the reading's.
TALSTATUS GetReadWriteBlockSize();

// Sets the two below. Once, at the end of stage two.
void GetDialectConfiguration();

// Sets g_Dialect: "standard" is that one; anything else, and nothing, is the classic one. The
// status is the reading's; code 16 for a text that is neither.
TALSTATUS GetDialect();

// Sets g_InfinityEntries, kDefaultInfinityEntries when nothing is set. The status is the reading's.
TALSTATUS GetInfinityEntries();

// Reads the value "Debug Level" and discards it: the module writes no log, and nobody calls this.
[[nodiscard]] TALSTATUS GetDebugLevel();

// Sets g_MonikerU and g_MonikerS. The text is used as stored; every user of it assumes a leading
// "/" and no trailing one. Always 0.
TALSTATUS GetTopLevelMoniker();

// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" by position; separators and digits are not
// checked. The text must hold 38 code units. Always 0.
TALSTATUS RegistryKeyToGUID(const WCHAR* pFormatedKey, GUID* pClassId);

// The value of a hexadecimal digit in either case; anything else gives a meaningless value.
UINT8 WideCharToValue(WCHAR wChar);
