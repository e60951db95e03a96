// SPDX-License-Identifier: Apache-2.0
//
// openat2(2), which the C library has no function for.
#include "base/open_beneath.h"

#include <linux/openat2.h>
#include <sys/syscall.h>

#include "base/descriptor.h"

namespace base {

int OpenBeneath(int directory, const char* path, uint64_t flags, uint64_t resolve) noexcept
{
    constexpr int kAttempts = 9;
    open_how how{};
    how.flags = flags;
    how.resolve = resolve | RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    for (int attempt = 1;; ++attempt) {
        const long fd =
            Retry([&] { return syscall(SYS_openat2, directory, path, &how, sizeof how); });
        // EAGAIN: a rename elsewhere raced with the look-up of a path with "..".
        if (fd >= 0 || errno != EAGAIN || attempt == kAttempts)
            return static_cast<int>(fd);
    }
}

} // namespace base
