// SPDX-License-Identifier: Apache-2.0
//
// The platform layer as one object that lives as long as the process.
#include "platform/talpl.h"

#include <time.h>

#include <atomic>
#include <cerrno>

#include "base/system_time.h"
#include <kest/identifiers.h>
#include <kest/layout.h>

#include "platform/failures.h"

namespace tolm {
namespace {

constinit Talpl g_talpl;
constinit std::atomic<UINT32> g_references{1}; // the process's own

} // namespace

Talpl& SharedTalpl() noexcept
{
    return g_talpl;
}

TALSTATUS Talpl::QueryInterface(const GUID* iid, void** out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    *out = nullptr;
    if (!iid)
        return Fail(kCodeInvalidParameter);
    if (*iid == IID_IUnknown || *iid == IID_IHadranTalpl_1)
        *out = static_cast<ITalpl*>(this);
    else if (*iid == IID_TalplFaultInjection_1)
        *out = FaultInjection();
    if (!*out)
        return Fail(kCodeNoInterface);
    AddRef();
    return TAL_STATUS_SUCCESS;
}

UINT32 Talpl::AddRef()
{
    return g_references.fetch_add(1, std::memory_order_relaxed) + 1;
}

UINT32 Talpl::Release()
{
    return g_references.fetch_sub(1, std::memory_order_relaxed) - 1;
}

TALSTATUS Talpl::TalxGetSystemTime(UINT64* time)
{
    if (!time)
        return Fail(kCodeInvalidParameter);
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0)
        return Fail(kCodeUnsuccessful);
    *time = base::SystemTimeOf(now);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxSleep(UINT32 time)
{
    timespec left{static_cast<time_t>(time / 1000), static_cast<long>(time % 1000) * 1'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
    return TAL_STATUS_SUCCESS;
}

UINT32 Talpl::TalxGetCurrentIrql()
{
    return 0;
}

} // namespace tolm
