// SPDX-License-Identifier: Apache-2.0
//
// What the preloaded library shares with whoever drives it: a small file that both map. The driver
// (control.py) reads the names of the functions from it and knows the rest of this layout.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace faults {

// One row for each kind of call that can fail. Several entry points of the C library share a kind.
#define FAILING_CALLS(X)                                                                           \
    X(open)                                                                                        \
    X(create)                                                                                      \
    X(openat2)                                                                                     \
    X(close)                                                                                       \
    X(read)                                                                                        \
    X(write)                                                                                       \
    X(getdents64)                                                                                  \
    X(stat)                                                                                        \
    X(fstat)                                                                                       \
    X(statx)                                                                                       \
    X(access)                                                                                      \
    X(rename)                                                                                      \
    X(link)                                                                                        \
    X(unlink)                                                                                      \
    X(mkdir)                                                                                       \
    X(fsync)                                                                                       \
    X(ftruncate)                                                                                   \
    X(fallocate)                                                                                   \
    X(copy_file_range)                                                                             \
    X(ioctl)                                                                                       \
    X(fcntl)                                                                                       \
    X(flock)                                                                                       \
    X(setattr)                                                                                     \
    X(getxattr)                                                                                    \
    X(setxattr)                                                                                    \
    X(getrandom)                                                                                   \
    X(mmap)                                                                                        \
    X(malloc)                                                                                      \
    X(recv)                                                                                        \
    X(send)                                                                                        \
    X(epoll)                                                                                       \
    X(thread)

enum class Call : uint32_t {
#define AS_ENUMERATOR(name) k_##name,
    FAILING_CALLS(AS_ENUMERATOR)
#undef AS_ENUMERATOR
        Count
};

enum class Mode : uint32_t {
    Once,      // the Nth call fails
    FromThen,  // the Nth call and all that follow fail
    Short,     // the Nth call is given half of what it asks for
    ShortFrom, // that call and all that follow
    Stuck,     // the Nth call does not return
};

inline constexpr uint32_t kMagic = 0x46434c31;
inline constexpr size_t kMostCalls = 64; // bits of the mask
inline constexpr size_t kNameRoom = 24;
inline constexpr size_t kMostFrames = 24;

struct Control {
    uint32_t magic;
    uint32_t calls;              // kinds that this library knows
    std::atomic<uint32_t> armed; // 0: nothing is counted and nothing fails
    uint32_t nth;                // from 1; 0: only count
    uint32_t mode;
    int32_t error;              // errno of a failure
    uint64_t mask;              // one bit for each kind that counts
    std::atomic<uint32_t> seen; // calls of these kinds since it was armed
    std::atomic<uint32_t> hits; // of them, those that were made to fail
    uint32_t frames;            // of the first hit
    uint32_t reserved;
    uint64_t addresses[kMostFrames];
    std::atomic<uint32_t> counts[kMostCalls]; // by kind
    char names[kMostCalls][kNameRoom];
};
static_assert(offsetof(Control, mask) == 24 && offsetof(Control, addresses) == 48 &&
              offsetof(Control, counts) == 48 + 8 * kMostFrames);

// What is to become of one call.
enum class Fate { Normal, Fails, Shortened };

// Decides, and counts. Only calls of threads that serve connections count: those that have waited
// for one. Sets errno where the call is to fail.
Fate Judge(Call call) noexcept;
// From now on the calling thread's calls count.
void MarkServing() noexcept;

// As much as a shortened call is given.
inline size_t Part(Fate fate, size_t size) noexcept
{
    return fate == Fate::Shortened && size > 1 ? size / 2 : size;
}

} // namespace faults
