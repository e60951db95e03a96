// SPDX-License-Identifier: Apache-2.0
//
// Asking the host about rights.
#include "providers/filestore/access.h"

#include <atomic>
#include <new>
#include <string>

#include <kest/com.h>
#include <kest/host.h>
#include <kest/identifiers.h>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/volume.h"

namespace filestore::access {

namespace {

constexpr UINT32 kKnown = kRightList | kRightRead;

// One object serves every thread: it answers for the thread that asks. Null in a host without
// rules; want of memory is no such answer, and nothing is allowed by it.
IKestAccess* Rules()
{
    static std::atomic<IKestAccess*> known{nullptr};
    static std::atomic<bool> isAbsent{false};
    IKestAccess* rules = known.load(std::memory_order_acquire);
    if (rules || isAbsent.load(std::memory_order_relaxed))
        return rules;
    Ref<IKestAccess> made;
    const TALSTATUS status = Create(CLSID_KestCallContext, made);
    if (Code(status) == kCodeInsufficientResources)
        throw std::bad_alloc();
    isAbsent = Failed(status);
    rules = made.Detach(); // never released: it lives as long as the host
    known.store(rules, std::memory_order_release);
    return rules;
}

std::string PathOf(const Volume& volume, std::string_view path)
{
    std::string whole = "/" + volume.Name();
    return path.empty() ? whole : whole.append("/").append(path);
}

UINT32 RightsAt(std::string_view path)
{
    UINT32 rights = 0; // a host that fails to answer allows nothing
    (void)Rules()->GetRights(static_cast<UINT32>(path.size()), path.data(), &rights);
    return rights;
}

UINT32 RightsBelowOf(std::string_view path)
{
    UINT32 rights = 0;
    (void)Rules()->GetRightsBelow(static_cast<UINT32>(path.size()), path.data(), &rights);
    return rights;
}

// Where a target is by the rules: what has been deleted, where it was.
std::string RulePath(const Target& target)
{
    if (target.IsRoot())
        return "/";
    if (!target.deletedId)
        return PathOf(*target.volume, target.path.View());
    std::string path = PathOf(*target.volume, target.deletedParent);
    path.append("/").append(target.deletedName);
    const std::string entry = PathOfDeleted(target.deletedId);
    return path.append(target.path.View().substr(entry.size()));
}

// Whether the running request brings `path` into being at its destination, and so knows of it.
bool IsDestination(const std::string& path)
{
    const UINT32 method = call::Method();
    return (method == KestMethodCopy || method == KestMethodMove) && call::IsAboutToCreate(path);
}

TALSTATUS Refuse(const std::string& path, UINT32 missing, bool isKnown)
{
    if (!isKnown)
        return Failure(kCodeNotFound);
    (void)Rules()->ReportDenied(static_cast<UINT32>(path.size()), path.data(), missing);
    return Failure(kCodeAccessDenied);
}

} // namespace

bool IsRestricted()
{
    BOOLEAN restricted = FALSE;
    return Rules() && (Failed(Rules()->IsRestricted(&restricted)) || restricted);
}

UINT32 RightsOn(const Volume& volume, std::string_view path)
{
    return IsRestricted() ? RightsAt(PathOf(volume, path)) : kRightsAll;
}

UINT32 RightsOn(const Target& target)
{
    return IsRestricted() ? RightsAt(RulePath(target)) : kRightsAll;
}

TALSTATUS RequireKnown(const Target& target, const FileInfo& info)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    const std::string path = RulePath(target);
    const UINT32 rights = RightsAt(path);
    const bool isSent = info.isRegular && call::Method() == KestMethodGet;
    if ((rights & kKnown) && (!isSent || (rights & kRightRead)))
        return TAL_STATUS_SUCCESS;
    if (IsDestination(path))
        return TAL_STATUS_SUCCESS;
    return Refuse(path, kRightRead, (rights & kKnown) != 0);
}

TALSTATUS Require(const Volume& volume, std::string_view path, UINT32 rights)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    const std::string where = PathOf(volume, path);
    const UINT32 held = RightsAt(where);
    if (const UINT32 missing = rights & ~held)
        return Refuse(where, missing, (held & kKnown) || (missing & kRightCreate));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS RequireTree(const Target& target, UINT32 own, UINT32 below)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    const std::string path = RulePath(target);
    const UINT32 held = RightsAt(path);
    UINT32 missing = own & ~held;
    if (!missing && below)
        missing = below & ~RightsBelowOf(path);
    return missing ? Refuse(path, missing, (held & kKnown) != 0) : TAL_STATUS_SUCCESS;
}

TALSTATUS RequireAny(const Volume& volume, std::string_view path, UINT32 rights)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    const std::string where = PathOf(volume, path);
    return RightsAt(where) & rights ? TAL_STATUS_SUCCESS : Refuse(where, rights, true);
}

TALSTATUS RequireArrival(const Volume& volume, std::string_view path, const Arrival& arrival)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    UINT32 own = kRightCreate;
    UINT32 below = arrival.isTree ? kRightCreate : 0;
    if (arrival.replaces && arrival.isFileForFile) {
        own = kRightChange;
    } else if (arrival.replaces) {
        own |= kRightDelete;
        below |= kRightDelete;
    }
    const std::string where = PathOf(volume, path);
    UINT32 missing = own & ~RightsAt(where);
    if (!missing && below)
        missing = below & ~RightsBelowOf(where);
    return missing ? Refuse(where, missing, true) : TAL_STATUS_SUCCESS;
}

TALSTATUS RequireLock(const Volume& volume, std::string_view path, bool isNew, INT32 depth)
{
    if (!IsRestricted())
        return TAL_STATUS_SUCCESS;
    const std::string where = PathOf(volume, path);
    const UINT32 needed = isNew ? kRightCreate : kRightChange;
    if (!(RightsAt(where) & needed))
        return Refuse(where, needed, true);
    if (!isNew && depth != 0 && !(RightsBelowOf(where) & kRightChange))
        return Refuse(where, kRightChange, true);
    return TAL_STATUS_SUCCESS;
}

MemberFilter::MemberFilter(const Volume* volume, std::string_view path)
{
    if (!IsRestricted())
        return;
    path_ = volume ? PathOf(*volume, path) : std::string();
    UINT32 rights = 0;
    BOOLEAN uniform = FALSE;
    if (!Failed(Rules()->GetMemberRights(static_cast<UINT32>(path_.size()), path_.data(), &rights,
                                         &uniform)))
        areListed_ = (rights & kRightList) != 0;
    else
        areListed_ = false;
    isUniform_ = uniform != FALSE;
    path_.append("/");
}

bool MemberFilter::IsListed(std::string_view name) const
{
    return isUniform_ ? areListed_ : (RightsAt(std::string(path_).append(name)) & kRightList) != 0;
}

bool MayBeNamed(std::string_view providerPath)
{
    return !IsRestricted() || (RightsAt(providerPath) & kKnown);
}

bool MayFollow(const Volume& volume, std::string_view path, std::string_view real)
{
    if (!IsRestricted())
        return true;
    const std::string from = PathOf(volume, path);
    const std::string to = PathOf(volume, real);
    return !(RightsAt(from) & ~RightsAt(to)) && !(RightsBelowOf(from) & ~RightsBelowOf(to));
}

} // namespace filestore::access
