// SPDX-License-Identifier: Apache-2.0
//
// System calls on files that the C library has no form of, or whose answers need translating.
#pragma once

#include <cerrno>

#include <climits>
#include <cstddef>

#include <sys/stat.h>
#include <sys/types.h>

#include <kest/types.h>

#include "providers/filestore/filesystem.h"

namespace filestore {

// What an operation on two directories failed by. EXDEV is told by openings, too, of paths that
// leave the volume.
inline int OfTwoDirectories(int error)
{
    return error == EXDEV ? EREMOTE : error;
}

// "/proc/self/fd/N[/name]": names an object that a descriptor leads to, where a call has no form
// that takes the descriptor.
struct ProcPath {
    explicit ProcPath(int fd, const char* name = nullptr);
    char text[NAME_MAX + 48];
};

// Without the date of birth, which stat() does not tell.
void FromStat(const struct stat& s, FileInfo* out);
// With it. 0, or the error.
int Statx(int directory, const char* name, int flags, FileInfo* out);

// Bytes that this process can still write on the disk of an open object, and bytes of all of it.
// 0, or the error.
int SpaceOf(int descriptor, UINT64* free, UINT64* total);

// Listings of 100,000 names ask this for each: the call that takes a descriptor, where the
// kernel has it (6.13), takes half the time of the one that looks the descriptor up in /proc.
ssize_t GetTagRelative(int directory, const char* name, const char* tag, void* value, size_t room);

// The process's mask for new files, read without changing it (umask() could only swap it).
UINT32 ReadUmask();

} // namespace filestore
