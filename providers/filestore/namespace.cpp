// SPDX-License-Identifier: Apache-2.0
//
// Paths as the module sees them: their types, deletion, names that move.
#include "providers/filestore/namespace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/conditions.h"
#include "providers/filestore/figures.h"
#include "providers/filestore/folder.h"
#include "providers/filestore/guard.h"
#include "providers/filestore/locks.h"
#include "providers/filestore/relocation.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/room.h"
#include "providers/filestore/trees.h"
#include <kest/dav/volume_figures.h>

namespace filestore {

TALSTATUS FileNamespace::QueryInterface(const GUID* iid, void** out)
{
    if (!iid || !out || !(*iid == IID_KestDAV_3 || *iid == IID_KestUploads_3))
        return Object::QueryInterface(iid, out);
    AddRef();
    if (*iid == IID_KestDAV_3)
        *out = static_cast<IKestDAV3*>(&third_);
    else
        *out = static_cast<IKestDAVUploads3*>(&uploads_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileNamespace::BeginSession(SCHANDLE)
{
    return TAL_STATUS_SUCCESS; // nothing is kept per session
}

TALSTATUS FileNamespace::EndSession(SCHANDLE)
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileNamespace::GetDAVSupport(UINT32* caps)
{
    if (!caps)
        return Failure(kCodeInvalidParameter);
    *caps = kCapsDeletesTrees | kCapsNamedProperties;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileNamespace::GetMultiStatus(SCHANDLE, DAV_ERROR_ID*, UINT32* size, DAV_MULTI_STATUS*)
{
    // Operations on trees are done whole or not at all: there is never a list of failures.
    if (!size)
        return Failure(kCodeInvalidParameter);
    *size = 0;
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileNamespace::GetType(SCHANDLE, UNICODE_STRING* path, DAV_TYPE* type)
{
    if (!path || !type)
        return Failure(kCodeInvalidParameter);
    return Protected([&] { return TypeOf(path, type); });
}

// What is about to be moved or deleted is looked up by its name in its directory, and both are kept
// for that. False for anything that takes more than that: a link, a failure.
static bool FindLeaf(const Target& target, FileInfo* info)
{
    const UINT32 method = call::Method();
    if ((method != KestMethodDelete && method != KestMethodMove) || target.path.Length() == 0)
        return false;
    const Volume& volume = *target.volume;
    const std::string_view path = target.path.View();
    DirectoryRef directory;
    if (volume.OpenParent(path, &directory) != 0 ||
        volume.Fs().InspectAt(directory->Get(), path.data() + (path.size() - LeafOf(path).size()),
                              info) != 0 ||
        (!info->isDirectory && !info->isRegular))
        return false;
    request_cache::SaveParent(target, std::move(directory), *info);
    return true;
}

// A HEAD tells of a file what one look at it shows. False for anything that takes more.
static bool LookAtFile(const Target& target, FileInfo* info)
{
    if (call::Method() != KestMethodHead ||
        target.volume->Fs().Look(target.path.CStr(), info) != 0 || !info->isRegular)
        return false;
    request_cache::SaveInfo(target, *info);
    return true;
}

TALSTATUS FileNamespace::TypeOf(const UNICODE_STRING* path, DAV_TYPE* type)
{
    request_cache::Drop();
    Target target;
    TALSTATUS status = store_.Locate(path, &target);
    if (!Failed(status) && target.IsRoot()) {
        *type = Collection;
        return TAL_STATUS_SUCCESS;
    }
    OpenFile file;
    FileInfo info;
    if (!Failed(status) && (FindLeaf(target, &info) || LookAtFile(target, &info))) {
        *type = info.isDirectory ? Collection : Resource;
        return access::RequireKnown(target, info);
    }
    if (!Failed(status))
        status = store_.OpenExisting(&target, OpenFor::Reading, &file, &info);
    if (!Failed(status)) {
        *type = info.isDirectory ? Collection : Resource;
        request_cache::SaveOpened(target, std::move(file), info);
        return TAL_STATUS_SUCCESS;
    }
    // What the request is about to make counts as there, so that the first request of a session
    // can make it: nobody but this store can say that a new name belongs into one of its volumes.
    if (target.volume && target.path.Length()) {
        const std::string whole = "/" + target.volume->Name() + "/" + target.path.CStr();
        if (call::IsAboutToCreate(whole)) {
            *type = Resource;
            return TAL_STATUS_SUCCESS;
        }
    }
    // Out of descriptors, or a disk that fails: whether it is there cannot be told now. A client
    // that is told that it is not may drop its copy, so it counts as there; to open it gives the
    // reason.
    const bool isUntold =
        Code(status) == kCodeInsufficientResources || Code(status) == kCodeUnsuccessful;
    if (isUntold && target.volume && request_cache::SaveFailure(target, status)) {
        *type = Resource;
        return TAL_STATUS_SUCCESS;
    }
    return ReportIfDenied(status);
}

TALSTATUS FileNamespace::MkCol(SCHANDLE hSession, DAV_LOCK_TOKEN* token, UNICODE_STRING* path)
{
    if (!path)
        return Failure(kCodeInvalidParameter);
    const TALSTATUS status = Protected([&] { return MakeCollection(hSession, token, path); });
    return Code(status) == kCodeObjectExists ? status : relocation::Step(status); // see CopyInstead
}

TALSTATUS FileNamespace::MakeCollection(SCHANDLE session, const DAV_LOCK_TOKEN* token,
                                        const UNICODE_STRING* path)
{
    request_cache::Drop();
    Target target;
    if (const TALSTATUS status = store_.LocateNew(path, &target); Failed(status))
        return status;
    if (target.IsVolumeTop())
        return Failure(kCodeObjectExists);
    Volume& volume = *target.volume;
    if (!volume.IsWritable())
        return Failure(kCodeAccessDenied);
    const Guard guard(store_, session, token);
    if (const std::optional<TALSTATUS> copied = relocation::CopyInstead(store_, guard, target))
        return *copied;
    if (const TALSTATUS status = access::Require(volume, target.path.View(), kRightCreate);
        Failed(status))
        return status;
    // A condition is told before a lock that stands in the way, a missing parent before both.
    if (const TALSTATUS judged = guard.CheckConditions(); Failed(judged)) {
        DirectoryRef parent;
        const int error = volume.OpenParent(target.path.View(), &parent);
        return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict) : judged;
    }
    return MakeFolder(store_, guard, target, {});
}

// A source that has been deleted is one that may be restored; a destination never has been.
TALSTATUS FileNamespace::LocateEnds(const UNICODE_STRING* source, const UNICODE_STRING* destination,
                                    Target* from, Target* to) const
{
    const TALSTATUS status = store_.Locate(source, from);
    return Failed(status) ? status : store_.LocateNew(destination, to);
}

TALSTATUS FileNamespace::Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                              UNICODE_STRING* source, UNICODE_STRING* destination,
                              DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId)
{
    if (errorId)
        *errorId = 0;
    return Protected([&] {
        request_cache::Drop();
        Target from, to;
        CopyExtent extent;
        extent.members = depth != 0;
        const TALSTATUS status = LocateEnds(source, destination, &from, &to);
        return Failed(status) ? status
                              : CopyTree(store_, Guard(store_, hSession, token), overwrite != 0,
                                         extent, from, to);
    });
}

// Two answers make the module move by itself, member by member: they are for providers that cannot.
static TALSTATUS MoveStatus(TALSTATUS status, bool overwrite)
{
    if (Code(status) == kCodeNotImplemented) // by the file system
        return Failure(kCodeUnsuccessful);
    return overwrite && Code(status) == kCodeObjectExists ? Failure(kCodeConflict) : status;
}

TALSTATUS FileNamespace::MoveWhole(SCHANDLE session, bool overwrite, const UNICODE_STRING* source,
                                   const UNICODE_STRING* destination, const DAV_LOCK_TOKEN* token)
{
    constexpr int kMostAttempts = 4; // to take a name that others make in between
    Target from, to;
    if (const TALSTATUS status = LocateEnds(source, destination, &from, &to); Failed(status))
        return status;
    const Guard guard(store_, session, token);
    TALSTATUS status = TAL_STATUS_SUCCESS;
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        status = WithRoomForRows(store_, *to.volume,
                                 [&] { return MoveTree(store_, guard, overwrite, from, to); });
        if (!overwrite || Code(status) != kCodeObjectExists)
            break;
    }
    return status;
}

TALSTATUS FileNamespace::Move(SCHANDLE hSession, BOOLEAN overwrite, INT32, UNICODE_STRING* source,
                              UNICODE_STRING* destination, DAV_LOCK_TOKEN* token,
                              DAV_ERROR_ID* errorId)
{
    if (errorId)
        *errorId = 0;
    return MoveStatus(Protected([&] {
                          return MoveWhole(hSession, overwrite != FALSE, source, destination,
                                           token);
                      }),
                      overwrite != FALSE);
}

TALSTATUS FileNamespace::Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                                DAV_ERROR_ID* errorId)
{
    if (errorId)
        *errorId = 0;
    return relocation::Step(Protected([&] {
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        if (const std::optional<TALSTATUS> judged = relocation::JudgeDelete(target))
            return *judged;
        return DeleteTree(store_, Guard(store_, hSession, token), target);
    }));
}

TALSTATUS FileNamespace::Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                              DAV_LOCK_TYPE type, UNICODE_STRING* path, STRING* owner,
                              DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId)
{
    constexpr UINT16 kTokenBytes = 36;
    if (errorId)
        *errorId = 0;
    if (!token || !token->Buffer)
        return Failure(kCodeInvalidParameter);
    if (token->MaximumLength < kTokenBytes)
        return Failure(kCodeBufferTooSmall);
    return Protected([&] {
        request_cache::Drop();
        Target target;
        // The token is where the new one goes; none is handed in.
        const Guard guard(store_, hSession, nullptr);
        LockRequest request{depth, timeout, scope, type, {}};
        if (owner && owner->Buffer)
            request.owner = {owner->Buffer, owner->Length};
        const LockReporter report = [&](const LockRecord& made, bool) {
            std::memcpy(token->Buffer, made.token.data(), made.token.size());
            token->Length = static_cast<UINT16>(made.token.size());
            return TAL_STATUS_SUCCESS;
        };
        const TALSTATUS status = store_.LocateNew(path, &target);
        return Failed(status) ? status : WithRoomForRows(store_, *target.volume, [&] {
            return MakeLock(store_, guard, target, request, report);
        });
    });
}

TALSTATUS FileNamespace::LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                                     DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock)
{
    if (!lock)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        request_cache::Drop();
        Target target;
        LockRecord record;
        const Guard guard(store_, hSession, token);
        // One time for both: what is described is what was granted, to the second.
        const UINT64 now = store_.Now();
        TALSTATUS status = store_.Locate(path, &target);
        if (!Failed(status))
            status = target.IsRoot() ? Failure(kCodeAccessDenied)
                                     : ReportIfFull(WithReserve(store_, *target.volume, [&] {
                                           return RefreshLock(guard, target, now,
                                                              static_cast<INT64>(timeout), &record);
                                       }));
        UINT32 size = kLockRecordBytes;
        return Failed(status) ? status : DescribeLock(record, now, &size, lock);
    });
}

TALSTATUS FileNamespace::Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token)
{
    return Protected([&] {
        request_cache::Drop();
        Target target;
        const Guard guard(store_, hSession, token);
        const std::string_view text =
            token && token->Buffer ? std::string_view(token->Buffer, token->Length) : "";
        const TALSTATUS status = store_.Locate(path, &target);
        if (Failed(status) || target.IsRoot())
            return Failed(status) ? status : Failure(kCodeNotFound);
        return ReportIfFull(WithReserve(store_, *target.volume,
                                        [&] { return ReleaseLock(store_, guard, target, text); }));
    });
}

TALSTATUS FileNamespace::IoctlRequest(SCHANDLE, UINT32 code, UINT32 inputLength, void* input,
                                      UINT32* outputLength, void* output)
{
    return Protected([&] {
        switch (code) {
        case kIoctlListLocks:
            if (inputLength != sizeof(DAV_LOCK_PLACE) || !input || !outputLength || !output)
                return Failure(kCodeInvalidParameter);
            return ListLock(static_cast<DAV_LOCK_PLACE*>(input), outputLength, output);
        case kIoctlVolumeFigures:
            if (inputLength != sizeof(UINT32) || !input || !outputLength || !output)
                return Failure(kCodeInvalidParameter);
            return DescribeVolume(store_, *static_cast<const UINT32*>(input), outputLength, output);
        case kIoctlBreakLock:
            return input ? BreakLock(store_, {static_cast<const char*>(input), inputLength})
                         : Failure(kCodeInvalidParameter);
        default:
            return Failure(kCodeNotImplemented);
        }
    });
}

TALSTATUS FileNamespace::ListLock(DAV_LOCK_PLACE* place, UINT32* length, void* out) const
{
    LockRecord lock;
    const Volume* volume = nullptr;
    DAV_LOCK_PLACE next = *place;
    if (const TALSTATUS status = NextLock(store_, &next, &lock, &volume); Failed(status))
        return status;
    const std::string path = "/" + volume->Name() + (lock.path.empty() ? "" : "/") + lock.path;
    constexpr size_t kHead = offsetof(DAV_LOCK_INFO, Text);
    const std::string text = lock.token + path + lock.creator + lock.owner;
    const size_t needed = std::max(kHead + text.size(), sizeof(DAV_LOCK_INFO));
    if (*length < needed) {
        *length = static_cast<UINT32>(needed);
        return Failure(kCodeBufferTooSmall);
    }
    const UINT64 now = store_.Now();
    auto* const record = static_cast<DAV_LOCK_INFO*>(out);
    record->Timeout = lock.expires == kNever
                          ? -1
                          : static_cast<INT64>(lock.expires - std::min(now, lock.expires));
    record->Scope = lock.scope;
    record->Type = lock.type;
    record->Depth = lock.depth;
    record->TokenLength = static_cast<UINT32>(lock.token.size());
    record->PathLength = static_cast<UINT32>(path.size());
    record->CreatorLength = static_cast<UINT32>(lock.creator.size());
    record->OwnerLength = static_cast<UINT32>(lock.owner.size());
    std::memcpy(static_cast<char*>(out) + kHead, text.data(), text.size());
    *length = static_cast<UINT32>(needed);
    *place = next;
    return TAL_STATUS_SUCCESS;
}

} // namespace filestore
