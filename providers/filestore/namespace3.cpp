// SPDX-License-Identifier: Apache-2.0
//
// The namespace's operations: finding what a path leads to, judging, changing, telling.
#include "providers/filestore/namespace3.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/change_list.h"
#include "providers/filestore/folder.h"
#include "providers/filestore/locks.h"
#include "providers/filestore/operation.h"
#include "providers/filestore/packing.h"
#include "providers/filestore/patch.h"
#include "providers/filestore/property.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/room.h"
#include "providers/filestore/trees.h"

namespace filestore {

namespace {

// Runs an operation that begins something new: nothing that was found before counts.
template <class F> TALSTATUS Anew(F&& operation)
{
    return Protected([&] {
        request_cache::Drop();
        return operation();
    });
}

TALSTATUS PackLock(const LockRecord& lock, const Volume& volume, UINT64 now, UINT32* size,
                   DAV_LOCK_INFO_3* out)
{
    Packing packing(out, *size);
    (void)packing.Put(lock, ProviderPath(volume, lock.path), now); // Finish tells
    return packing.Finish(size);
}

// The room that a lock's description can take is asked before the lock is made.
TALSTATUS CheckRoom(const Target& target, size_t ownerBytes, const UINT32* size)
{
    constexpr size_t kTokenBytes = 36;
    const size_t text =
        kTokenBytes + ownerBytes + ProviderPath(*target.volume, target.path.View()).size();
    return *size < sizeof(DAV_LOCK_INFO_3) + text ? Failure(kCodeBufferTooSmall)
                                                  : TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS NamespaceTearOff::Describe(const Target& target, bool hasReplaced,
                                     DAV_CHANGE* change) const
{
    if (!change)
        return TAL_STATUS_SUCCESS;
    request_cache::Drop();
    if (change->Size <= offsetof(DAV_CHANGE, Info)) { // the caller wants the outcome alone
        TellChange(hasReplaced, {}, change);
        return TAL_STATUS_SUCCESS;
    }
    Target at = target;
    DAV_OBJECT_INFO info{};
    info.Size = sizeof info;
    // The change has happened: that somebody else has taken it away is no failure of it. What
    // cannot be looked at is told as one: a reply without its kind would name a collection wrongly.
    if (Failed(DescribePath(store_, &at, &info)))
        info.Tag.Length = 0;
    request_cache::Drop();
    TellChange(hasReplaced, info, change);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS NamespaceTearOff::GetInfo(SCHANDLE, UNICODE_STRING* path, DAV_OBJECT_INFO* info)
{
    if (!info)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        Target target;
        DAV_OBJECT_INFO record;
        TALSTATUS status = store_.Locate(path, &target);
        if (!Failed(status))
            status = DescribePath(store_, &target, &record, info->Size);
        if (!Failed(status))
            WriteRecord(record, info);
        return status;
    });
}

TALSTATUS NamespaceTearOff::Judge(SCHANDLE hSession, UNICODE_STRING* path,
                                  const DAV_PRECONDITIONS* preconditions)
{
    return Protected([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target);
            Failed(status) && Code(status) != kCodeNotFound && Code(status) != kCodeNameTooLong)
            return status;
        return RunGuarded(store_, hSession, target, preconditions, nullptr,
                          [&](const Guard& guard) {
                              const TALSTATUS status = guard.CheckConditions();
                              if (Failed(status) || !target.volume)
                                  return status;
                              return guard.On(*target.volume, target.path.View())
                                  .JudgePath(target.volume->Fs(), target.path.CStr());
                          });
    });
}

TALSTATUS NamespaceTearOff::MakeCollection(SCHANDLE hSession, UNICODE_STRING* path,
                                           const DAV_PRECONDITIONS* preconditions, UINT32 count,
                                           DAV_PROPERTY_CHANGE* changes,
                                           IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    return Anew([&] {
        Target target;
        ChangeList list(count, changes);
        // Before anything gives way for it: what is too long never fits.
        if (const TALSTATUS status = list.Judge(); Failed(status))
            return status;
        if (const TALSTATUS status = store_.LocateNew(path, &target); Failed(status))
            return status;
        const TALSTATUS status =
            RunGuarded(store_, hSession, target, preconditions, failures, [&](const Guard& guard) {
                return WithRoomForRows(store_, *target.volume, [&] {
                    return filestore::MakeFolder(store_, guard, target, list.List());
                });
            });
        return Failed(status) ? status : Describe(target, false, change);
    });
}

TALSTATUS NamespaceTearOff::Delete(SCHANDLE hSession, UNICODE_STRING* path,
                                   const DAV_PRECONDITIONS* preconditions,
                                   IKestDAVFailures3* failures)
{
    return Protected([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        return RunGuarded(store_, hSession, target, preconditions, failures,
                          [&](const Guard& guard) { return DeleteTree(store_, guard, target); });
    });
}

TALSTATUS NamespaceTearOff::RelocateOnce(const Guard& guard, bool isMove, UINT32 flags,
                                         const Target& from, const Target& to, bool* replaced)
{
    const bool overwrite = (flags & kRelocateOverwrite) != 0;
    CopyExtent extent;
    extent.members = !(flags & kRelocateShallow);
    return WithRoomForRows(store_, *to.volume, [&] {
        return isMove ? MoveTree(store_, guard, overwrite, from, to, replaced)
                      : CopyTree(store_, guard, overwrite, extent, from, to, replaced);
    });
}

TALSTATUS NamespaceTearOff::Relocate(SCHANDLE session, bool isMove, const UNICODE_STRING* source,
                                     const UNICODE_STRING* destination, UINT32 flags,
                                     const DAV_PRECONDITIONS* preconditions,
                                     IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    constexpr int kMostAttempts = 4; // to take a name that others make in between
    Target from, to;
    TALSTATUS status = store_.Locate(source, &from);
    if (!Failed(status))
        status = store_.LocateNew(destination, &to);
    if (Failed(status))
        return status;
    if (from.IsRoot() || (from.volume == to.volume && from.path.View() == to.path.View()))
        return Failure(kCodeAccessDenied);
    bool replaced = false;
    status = RunGuarded(store_, session, from, preconditions, failures, [&](const Guard& guard) {
        TALSTATUS tried =
            guard.On(*from.volume, from.path.View()).JudgePath(from.volume->Fs(), from.path.CStr());
        for (int attempt = 0; !Failed(tried) && attempt < kMostAttempts; ++attempt) {
            tried = RelocateOnce(guard, isMove, flags, from, to, &replaced);
            if (!Failed(tried) || Code(tried) != kCodeObjectExists || !(flags & kRelocateOverwrite))
                return tried;
            tried = TAL_STATUS_SUCCESS;
        }
        return Failed(tried) ? tried : Failure(kCodeConflict);
    });
    return Failed(status) ? status : Describe(to, replaced, change);
}

TALSTATUS NamespaceTearOff::Copy(SCHANDLE hSession, UNICODE_STRING* source,
                                 UNICODE_STRING* destination, UINT32 flags,
                                 const DAV_PRECONDITIONS* preconditions,
                                 IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    return Anew([&] {
        return Relocate(hSession, false, source, destination, flags, preconditions, failures,
                        change);
    });
}

TALSTATUS NamespaceTearOff::Move(SCHANDLE hSession, UNICODE_STRING* source,
                                 UNICODE_STRING* destination, UINT32 flags,
                                 const DAV_PRECONDITIONS* preconditions,
                                 IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    return Protected([&] {
        return Relocate(hSession, true, source, destination, flags, preconditions, failures,
                        change);
    });
}

TALSTATUS NamespaceTearOff::PatchProperties(SCHANDLE hSession, UNICODE_STRING* path,
                                            const DAV_PRECONDITIONS* preconditions, UINT32 count,
                                            DAV_PROPERTY_CHANGE* changes,
                                            IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    return Anew([&] {
        Target target;
        ChangeList list(count, changes);
        // Before anything gives way for it: what is too long never fits.
        if (const TALSTATUS status = list.Judge(); Failed(status))
            return status;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot() || target.deletedId || !target.volume->IsWritable())
            return Failure(kCodeAccessDenied);
        const TALSTATUS status =
            RunGuarded(store_, hSession, target, preconditions, failures, [&](const Guard& guard) {
                return WithRoomForRows(store_, *target.volume,
                                       [&] { return Patch(guard, &target, list.List()); });
            });
        return Failed(status) ? status : Describe(target, true, change);
    });
}

// The rows first, then the file, then the transaction ends: what fails is put back.
TALSTATUS NamespaceTearOff::Patch(const Guard& guard, Target* target,
                                  std::span<DAV_PROPERTY_CHANGE> changes)
{
    Volume& volume = *target->volume;
    const std::string path(target->path.View());
    OpenFile file;
    FileInfo info;
    PropertyPatch patch(volume, path, changes);
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = access::Require(volume, path, kRightChange);
    status = Failed(status) ? status : store_.OpenExisting(target, OpenFor::Reading, &file, &info);
    if (!Failed(status))
        status = Store::OpenMetadata(volume, &session);
    if (!Failed(status))
        status = session->Begin(); // no lock comes between the question and the change
    if (!Failed(status))
        status = guard.CheckConditions();
    if (!Failed(status))
        status = guard.CheckLocks(volume, *session, path, Reach::Self);
    if (!Failed(status))
        status = guard.On(volume, path).JudgePath(volume.Fs(), path.c_str());
    if (!Failed(status))
        status = patch.ChangeRows(*session);
    if (!Failed(status))
        status = patch.ChangeFile(file.Get(), info);
    if (Failed(status))
        return status;
    status = session->Commit();
    if (Failed(status))
        patch.Undo(file.Get());
    return status;
}

TALSTATUS NamespaceTearOff::GetProperties(SCHANDLE, UNICODE_STRING* path, UINT64* place,
                                          UINT32* size, DAV_PROPERTY* buffer)
{
    if (!place || !size || !buffer)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot() || !target.volume->MayHaveProperties())
            return Failure(kCodeNoMoreEntries);
        std::unique_ptr<MetadataSession> session;
        Packing packing(buffer, *size);
        Property property;
        property.order = static_cast<INT64>(*place);
        TALSTATUS status = Store::OpenMetadata(*target.volume, &session);
        while (!Failed(status)) {
            status = session->NextProperty(target.path.View(), property.order, &property);
            if (Failed(status))
                break;
            const std::optional<Property> element = AsElement(property);
            if (element && !packing.Put(*element))
                break;
            *place = static_cast<UINT64>(property.order);
        }
        return Failed(status) && Code(status) != kCodeNoMoreEntries ? status : packing.Finish(size);
    });
}

TALSTATUS NamespaceTearOff::Lock(SCHANDLE hSession, UNICODE_STRING* path,
                                 const DAV_LOCK_REQUEST* request,
                                 const DAV_PRECONDITIONS* preconditions,
                                 IKestDAVFailures3* failures, UINT32* size, DAV_LOCK_INFO_3* lock,
                                 DAV_CHANGE* change)
{
    DAV_LOCK_REQUEST wanted;
    if (!request || !ReadRecord(request, &wanted) || !size || !lock ||
        wanted.Owner.Length > kMostOwnerBytes || (wanted.Owner.Length && !wanted.Owner.Text) ||
        !IsXmlText(TextOf(wanted.Owner)))
        return Failure(kCodeInvalidParameter);
    return Anew([&] {
        Target target;
        const LockRequest asked{wanted.Depth, wanted.Timeout,       wanted.Scope,
                                wanted.Type,  TextOf(wanted.Owner), true};
        const UINT32 room = *size; // also when there is another try
        const LockReporter report = [&](const LockRecord& made, bool isNew) {
            call::HeldReports reports; // it may stand, whatever can be told of its resource
            *size = room;
            TALSTATUS status = PackLock(made, *target.volume, store_.Now(), size, lock);
            if (!Failed(status))
                status = Describe(target, !isNew, change);
            if (!Failed(status))
                reports.Drop();
            return status;
        };
        TALSTATUS status = store_.LocateNew(path, &target);
        if (!Failed(status))
            status = CheckRoom(target, wanted.Owner.Length, size);
        if (Failed(status))
            return status;
        return RunGuarded(store_, hSession, target, preconditions, failures,
                          [&](const Guard& guard) {
                              return WithRoomForRows(store_, *target.volume, [&] {
                                  return MakeLock(store_, guard, target, asked, report);
                              });
                          });
    });
}

TALSTATUS NamespaceTearOff::RefreshLock(SCHANDLE hSession, UNICODE_STRING* path, INT64 timeout,
                                        const DAV_PRECONDITIONS* preconditions, UINT32* size,
                                        DAV_LOCK_INFO_3* lock)
{
    if (!size || !lock)
        return Failure(kCodeInvalidParameter);
    return Anew([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot())
            return Failure(kCodeAccessDenied);
        LockRecord record;
        const UINT64 now = store_.Now(); // what is described is what was granted, to the second
        const TALSTATUS status =
            RunGuarded(store_, hSession, target, preconditions, nullptr, [&](const Guard& guard) {
                return ReportIfFull(WithReserve(store_, *target.volume, [&] {
                    return filestore::RefreshLock(guard, target, now, timeout, &record);
                }));
            });
        return Failed(status) ? status : PackLock(record, *target.volume, now, size, lock);
    });
}

TALSTATUS NamespaceTearOff::Unlock(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* token,
                                   const DAV_PRECONDITIONS* preconditions)
{
    if (!token || (token->Length && !token->Text))
        return Failure(kCodeInvalidParameter);
    return Anew([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot())
            return Failure(kCodeNotFound);
        return RunGuarded(store_, hSession, target, preconditions, nullptr,
                          [&](const Guard& guard) {
                              TALSTATUS status = guard.CheckConditions();
                              if (!Failed(status))
                                  status = guard.On(*target.volume, target.path.View())
                                               .JudgePath(target.volume->Fs(), target.path.CStr());
                              if (Failed(status))
                                  return status;
                              return ReportIfFull(WithReserve(store_, *target.volume, [&] {
                                  return ReleaseLock(store_, guard, target, TextOf(*token));
                              }));
                          });
    });
}

TALSTATUS NamespaceTearOff::GetLocks(SCHANDLE, UNICODE_STRING* path, UINT64* place, UINT32* size,
                                     DAV_LOCK_INFO_3* buffer)
{
    if (!place || !size || !buffer)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot() || !target.volume->MayHaveLocks())
            return Failure(kCodeNoMoreEntries);
        const UINT64 now = store_.Now();
        std::unique_ptr<MetadataSession> session;
        std::vector<LockRecord> locks;
        TALSTATUS status = Store::OpenMetadata(*target.volume, &session);
        if (!Failed(status))
            status = CoveringLocks(*session, target.path.View(), now, &locks);
        if (Failed(status))
            return status;
        Packing packing(buffer, *size);
        for (; *place < locks.size(); ++*place) {
            const LockRecord& lock = locks[*place];
            if (!packing.Put(lock, ProviderPath(*target.volume, lock.path), now))
                break;
        }
        return packing.Finish(size);
    });
}

TALSTATUS NamespaceTearOff::GetQuota(SCHANDLE, UNICODE_STRING* path, DAV_QUOTA* quota)
{
    if (!quota)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        Target target;
        DAV_QUOTA record{};
        UINT64 free = 0, total = 0;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (target.IsRoot())
            return Failure(kCodeNotImplemented);
        if (const int error = target.volume->Fs().FreeSpaceAt(target.path.CStr(), &free, &total))
            return StatusFromErrno(error);
        record.Available = target.volume->IsWritable() ? free : 0;
        record.Used = total - std::min(free, total);
        WriteRecord(record, quota);
        return TAL_STATUS_SUCCESS;
    });
}

} // namespace filestore
