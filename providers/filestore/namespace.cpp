// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/namespace.h"

#include <cerrno>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/recent.h"

namespace filestore {

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

TALSTATUS FileNamespace::TypeOf(const UNICODE_STRING* path, DAV_TYPE* type)
{
    recent::Drop();
    Target target;
    TALSTATUS status = store_.Locate(path, &target);
    if (!Failed(status) && target.IsRoot()) {
        *type = Collection;
        return TAL_STATUS_SUCCESS;
    }
    OpenFile file;
    FileInfo info;
    if (!Failed(status))
        status = store_.OpenExisting(&target, OpenFor::Reading, &file, &info);
    if (!Failed(status)) {
        *type = info.isDirectory ? Collection : Resource;
        recent::Keep(target, std::move(file), info);
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
    return status;
}

TALSTATUS FileNamespace::MkCol(SCHANDLE, DAV_LOCK_TOKEN*, UNICODE_STRING* path)
{
    if (!path)
        return Failure(kCodeInvalidParameter);
    return Protected([&] { return MakeCollection(path); });
}

TALSTATUS FileNamespace::MakeCollection(const UNICODE_STRING* path)
{
    recent::Drop();
    Target target;
    if (const TALSTATUS status = store_.LocateNew(path, &target); Failed(status))
        return status;
    if (target.IsVolumeTop())
        return Failure(kCodeObjectExists);
    Volume& volume = *target.volume;
    if (!volume.IsWritable())
        return Failure(kCodeAccessDenied);
    OpenFile parent;
    int error = volume.OpenParent(target.path.View(), &parent);
    if (error == ENOENT || error == ENOTDIR)
        return Failure(kCodeConflict);
    if (error == 0)
        error = volume.Fs().MakeDirectory(parent.Get(),
                                          std::string(LeafOf(target.path.View())).c_str());
    if (error == 0)
        error = volume.SyncNames(parent.Get());
    return StatusFromErrno(error);
}

TALSTATUS FileNamespace::Copy(SCHANDLE, BOOLEAN, INT32, UNICODE_STRING*, UNICODE_STRING*,
                              DAV_LOCK_TOKEN*, DAV_ERROR_ID*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::Delete(SCHANDLE, UNICODE_STRING*, DAV_LOCK_TOKEN*, DAV_ERROR_ID*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::Move(SCHANDLE, BOOLEAN, INT32, UNICODE_STRING*, UNICODE_STRING*,
                              DAV_LOCK_TOKEN*, DAV_ERROR_ID*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::Lock(SCHANDLE, INT32, INT64, DAV_LOCK_SCOPE, DAV_LOCK_TYPE,
                              UNICODE_STRING*, STRING*, DAV_LOCK_TOKEN*, DAV_ERROR_ID*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::LockRefresh(SCHANDLE, DAV_DATETIME, UNICODE_STRING*, DAV_LOCK_TOKEN*,
                                     DAV_LOCK_2*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::Unlock(SCHANDLE, UNICODE_STRING*, DAV_LOCK_TOKEN*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileNamespace::IoctlRequest(SCHANDLE, UINT32, UINT32, void*, UINT32*, void*)
{
    return Failure(kCodeNotImplemented);
}

} // namespace filestore
