// SPDX-License-Identifier: Apache-2.0
//
// Ending renames that could not be ended when they happened.
#include "providers/filestore/unsettled.h"

#include <cerrno>
#include <utility>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"

namespace filestore {

namespace {

bool IsAbout(std::string_view name, std::string_view path)
{
    return name == path || IsWithin(path, name) || IsWithin(name, path);
}

} // namespace

void UnsettledRenames::Add(RenameIntent&& rename, bool isBetween) noexcept
{
    const std::lock_guard lock(mutex_);
    if (renames_.size() == kMost)
        return;
    renames_.push_back({std::move(rename), isBetween});
    count_.store(renames_.size(), std::memory_order_release);
}

template <class Wanted>
TALSTATUS UnsettledRenames::SettleThose(const Wanted& areWanted, const Settle& settle)
{
    const std::lock_guard lock(mutex_);
    bool isBetween = false;
    std::erase_if(renames_, [&](Entry& each) {
        if (!areWanted(each.rename))
            return false;
        call::HeldReports reports; // what fails once more is told below
        const bool isSettled = !Failed(settle(each.rename));
        reports.Drop();
        isBetween = isBetween || (each.isBetween && !isSettled);
        return isSettled;
    });
    count_.store(renames_.size(), std::memory_order_release);
    return isBetween ? StatusFromErrno(EIO) : TAL_STATUS_SUCCESS;
}

TALSTATUS UnsettledRenames::SettleAbout(std::string_view path, const Settle& settle)
{
    const auto areAbout = [&](const RenameIntent& rename) {
        return IsAbout(rename.from, path) || IsAbout(rename.to, path);
    };
    return SettleThose(areAbout, settle);
}

void UnsettledRenames::SettleAll(const Settle& settle) noexcept
{
    if (!IsEmpty())
        (void)Protected(
            [&] { return SettleThose([](const RenameIntent&) { return true; }, settle); });
}

} // namespace filestore
