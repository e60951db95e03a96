// SPDX-License-Identifier: Apache-2.0
//
// Ending renames that could not be ended when they happened.
#include "providers/filestore/unfinished_renames.h"

#include <algorithm>
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

bool IsAbout(const RenameIntent& rename, std::string_view path)
{
    return IsAbout(rename.from, path) || IsAbout(rename.to, path);
}

} // namespace

void UnfinishedRenames::Add(RenameIntent&& rename, bool isBetween) noexcept
{
    const std::lock_guard lock(mutex_);
    if (renames_.size() == kMost)
        return;
    renames_.push_back({std::move(rename), isBetween});
    count_.store(renames_.size(), std::memory_order_release);
}

bool UnfinishedRenames::Has(std::string_view path) noexcept
{
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(renames_,
                               [&](const Entry& each) { return IsAbout(each.rename, path); });
}

template <class Wanted>
TALSTATUS UnfinishedRenames::RecoverThose(const Wanted& areWanted, const Recover& recover)
{
    const std::lock_guard lock(mutex_);
    bool isBetween = false;
    std::erase_if(renames_, [&](Entry& each) {
        if (!areWanted(each.rename))
            return false;
        call::HeldReports reports; // what fails once more is told below
        const bool isRecovered = !Failed(recover(each.rename));
        reports.Drop();
        isBetween = isBetween || (each.isBetween && !isRecovered);
        return isRecovered;
    });
    count_.store(renames_.size(), std::memory_order_release);
    return isBetween ? StatusFromErrno(EIO) : TAL_STATUS_SUCCESS;
}

TALSTATUS UnfinishedRenames::RecoverAround(std::string_view path, const Recover& recover)
{
    return RecoverThose([&](const RenameIntent& rename) { return IsAbout(rename, path); }, recover);
}

void UnfinishedRenames::RecoverAll(const Recover& recover) noexcept
{
    if (!IsEmpty())
        (void)Protected(
            [&] { return RecoverThose([](const RenameIntent&) { return true; }, recover); });
}

} // namespace filestore
