// SPDX-License-Identifier: Apache-2.0
//
// Gathers the figures of a volume.
#include "providers/filestore/figures.h"

#include <algorithm>
#include <cstring>

#include <kest/dav/volume_figures.h>

#include "providers/filestore/failures.h"

namespace filestore {

TALSTATUS DescribeVolume(const Store& store, UINT32 number, UINT32* length, void* out)
{
    if (number >= store.Volumes().size())
        return Failure(kCodeNoMoreEntries);
    const Volume& volume = *store.Volumes()[number];
    constexpr size_t kHead = offsetof(DAV_VOLUME_FIGURES, Name);
    const size_t needed = std::max(kHead + volume.Name().size(), sizeof(DAV_VOLUME_FIGURES));
    if (*length < needed) {
        *length = static_cast<UINT32>(needed);
        return Failure(kCodeBufferTooSmall);
    }
    DAV_VOLUME_FIGURES figures{};
    if (volume.Fs().IsInPlace())
        figures.Flags |= kVolumeIsReachable;
    if (volume.IsWritable())
        figures.Flags |= kVolumeIsWritable;
    if (volume.Fs().FreeSpace(&figures.FreeBytes, &figures.TotalBytes) == 0)
        figures.Flags |= kVolumeHasSpace;
    Metadata::Amounts amounts;
    if (!volume.Meta() || volume.Meta()->Count(store.Now(), kMostCounted, &amounts))
        figures.Flags |= kVolumeHasCounts; // without metadata there are none
    figures.Locks = amounts.locks;
    figures.KeptEntries = amounts.deleted;
    figures.NameLength = static_cast<UINT32>(volume.Name().size());
    std::memcpy(out, &figures, sizeof figures);
    std::memcpy(static_cast<char*>(out) + kHead, volume.Name().data(), volume.Name().size());
    *length = static_cast<UINT32>(needed);
    return TAL_STATUS_SUCCESS;
}

} // namespace filestore
