// SPDX-License-Identifier: Apache-2.0
//
// What a provider tells of its volumes to whoever watches the server.
#pragma once

#include <cstddef>

#include <kest/types.h>

// IoctlRequest code of a namespace object. Input is a UINT32, the number of a volume from 0 on;
// fills a DAV_VOLUME_FIGURES. Code 9 past the last volume, 7 when the output is short, whose length
// is then set. Waits for the disk, and for the database of the volume, for ten seconds at most;
// looks at a bounded number of rows.
inline constexpr UINT32 kIoctlVolumeFigures = 0x7B90012;

// The most that is counted of anything: so many, or more.
inline constexpr UINT64 kMostCounted = 100'000;

enum DAV_VOLUME_FLAGS : UINT32 {
    kVolumeIsReachable = 1, // its directory is in its place
    kVolumeIsWritable = 2,
    kVolumeHasSpace = 4,  // TotalBytes and FreeBytes are known
    kVolumeHasCounts = 8, // Locks and KeptEntries are
};

struct DAV_VOLUME_FIGURES {
    UINT64 TotalBytes; // of the disk
    UINT64 FreeBytes;  // to who serves it
    UINT64 Locks;
    UINT64 KeptEntries; // deleted ones that can be brought back
    UINT32 Flags;
    UINT32 NameLength; // bytes of UTF-8
    char Name[1];      // variable
};
static_assert(sizeof(DAV_VOLUME_FIGURES) == 48 && offsetof(DAV_VOLUME_FIGURES, Locks) == 16 &&
              offsetof(DAV_VOLUME_FIGURES, Flags) == 32 &&
              offsetof(DAV_VOLUME_FIGURES, Name) == 40);
