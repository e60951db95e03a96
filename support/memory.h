// SPDX-License-Identifier: Apache-2.0
//
// Platform memory and the provider-list lock, owned by scopes. Nothing else in the module calls the
// allocator's or the lock's release.
#pragma once

#include <limits>
#include <memory>

#include "support/failure_report.h"
#include "support/globals.h"

struct TalxFree {
    void operator()(void* p) const noexcept { pITalpl->TalxFreeMemory(p); }
};

// An array from TalxAllocPagedMemory; null when memory is short.
template <class T> using Paged = std::unique_ptr<T[], TalxFree>;

// `count` elements, not initialised. Null when memory is short or the size passes 32 bits. For a
// caller that makes do with less.
template <class T> [[nodiscard]] Paged<T> TryAllocPaged(size_t count)
{
    if (count > std::numeric_limits<UINT32>::max() / sizeof(T))
        return nullptr;
    return Paged<T>(
        static_cast<T*>(pITalpl->TalxAllocPagedMemory(static_cast<UINT32>(count * sizeof(T)))));
}

// The same for callers that leave something out of the reply when memory is short: the host is
// told of the failure (ReportFailure).
template <class T> [[nodiscard]] Paged<T> AllocPaged(size_t count)
{
    Paged<T> memory = TryAllocPaged<T>(count);
    if (!memory)
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
    return memory;
}

// A transfer buffer that shrinks instead of failing: g_RWBlockSize bytes, or half of that, and so
// on down to 1024. Null when not even that much is to be had.
struct TransferBuffer {
    Paged<char> data;
    UINT32 size = 0;

    [[nodiscard]] static TransferBuffer Allocate()
    {
        for (UINT32 size = g_RWBlockSize; size >= kSmallest; size /= 2)
            if (Paged<char> data = TryAllocPaged<char>(size))
                return {std::move(data), size};
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
        return {};
    }
    explicit operator bool() const { return data != nullptr; }

    static constexpr UINT32 kSmallest = 1024;
};

// Holds g_hHandlerLock for reading. A handler holds it while it uses a provider entry.
class ProviderGuard {
  public:
    ProviderGuard() { pITalpl->TalxAcquireLockForReadAccess(g_hHandlerLock, TRUE); }
    ~ProviderGuard() { Release(); }
    ProviderGuard(const ProviderGuard&) = delete;
    ProviderGuard& operator=(const ProviderGuard&) = delete;

    // Gives the lock back before the scope ends.
    void Release()
    {
        if (held_)
            pITalpl->TalxReleaseReadWriteLock(g_hHandlerLock);
        held_ = false;
    }

  private:
    bool held_ = true;
};
