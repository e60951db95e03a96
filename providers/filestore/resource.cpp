// SPDX-License-Identifier: Apache-2.0
//
// Files as the module sees them.
#include "providers/filestore/resource.h"
#include "providers/filestore/etag.h"

#include <utility>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/publish.h"
#include "providers/filestore/relocation.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

constexpr TALSTATUS kNotAssociated = Failure(kCodeInvalidParameter);

} // namespace

FileResource::~FileResource()
{
    CloseAll();
}

TALSTATUS FileResource::QueryInterface(const GUID* iid, void** out)
{
    if (iid && out && *iid == IID_KestResource_3)
        return QueryTearOff<IKestDAVResource3>(&third_, *this, node_.GetStore(), out);
    if (iid && out && third_ && *iid == IID_KestContentFile_3) {
        AddRef();
        *out = &third_->AsFile();
        return TAL_STATUS_SUCCESS;
    }
    return Object::QueryInterface(iid, out);
}

void FileResource::CloseAll()
{
    if (upload_) {
        const TALSTATUS status = relocation::Step(Protected([&] { return FinishUpload(); }));
        if (Failed(status)) {
            call::ReportFailure(status);
            (void)Protected([&] {
                relocation::NoteDropped(node_.GetVolume(), node_.Path());
                return status;
            });
        }
        upload_.reset();
    }
    uploadHidden_.reset();
    file_.Reset();
    node_.Unbind();
}

TALSTATUS FileResource::FinishUpload()
{
    if (!call::UploadArrived())
        return Failure(kCodeInvalidRequest); // the body broke off
    if (relocation::HasFailed())
        return Failure(kCodeUnsuccessful); // not all of it has been copied
    // What may take long comes before the locks are asked again.
    const Store& store = node_.GetStore();
    Volume& volume = node_.GetVolume();
    TALSTATUS status = WithRoomForRows(store, volume, [&] { return upload_->Finish(); });
    if (!Failed(status))
        status = WithRoomForRows(store, volume, [&] {
            return PublishUpload(node_.MakeGuard(), volume, node_.Path(), isUploadConditional_,
                                 &*upload_);
        });
    if (!Failed(status) && uploadHidden_)
        return SetHidden(node_.GetVolume(), node_.Path(), *uploadHidden_);
    return status;
}

TALSTATUS FileResource::Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                                  DAV_SHARE_MODE, DAV_OPEN_FLAGS, UNICODE_STRING* path,
                                  DAV_LOCK_TOKEN* token)
{
    return relocation::Step(Protected([&] {
        CloseAll(); // a second Associate, as after a probe, starts over
        return create ? Create(hSession, path, token) : Open(hSession, access, path, token);
    }));
}

TALSTATUS FileResource::Open(SCHANDLE session, DAV_OPEN_ACCESS access, const UNICODE_STRING* path,
                             const DAV_LOCK_TOKEN* token)
{
    Target target;
    if (const TALSTATUS status = node_.GetStore().Locate(path, &target); Failed(status))
        return status;
    if (target.IsRoot())
        return Failure(kCodeMethodNotAllowed);
    if (const TALSTATUS status = request_cache::TakeFailure(target); Failed(status))
        return status;
    if (!request_cache::TakeOpened(target, &file_, &info_))
        if (const TALSTATUS status =
                node_.GetStore().OpenExisting(&target, OpenFor::Reading, &file_, &info_);
            Failed(status)) {
            if (Code(status) == kCodeNotFound)
                KeepMissing(target);
            return ReportIfDenied(status);
        }
    if (info_.isDirectory && access == kAccessReadContent) {
        file_.Reset();
        return Failure(kCodeMethodNotAllowed);
    }
    if (call::Method() == KestMethodCopy) // what is open now is what is copied
        if (const TALSTATUS status =
                Conditions::Of(*target.volume, target.path.View()).Judge(&info_);
            Failed(status)) {
            file_.Reset();
            return status;
        }
    node_.Bind(session, target, token);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::Create(SCHANDLE session, const UNICODE_STRING* path,
                               const DAV_LOCK_TOKEN* token)
{
    request_cache::Drop();
    Target target;
    if (const TALSTATUS status = node_.GetStore().LocateNew(path, &target); Failed(status))
        return status;
    node_.Bind(session, target, token);
    const TALSTATUS status = StartUpload(false, TakeMissing(target));
    if (Failed(status))
        node_.Unbind();
    return status;
}

// A copy looks for its destination with the object that then makes it.
void FileResource::KeepMissing(const Target& target)
{
    missing_.request = call::Request();
    missing_.volume = target.volume;
    missing_.path = target.path.View();
}

bool FileResource::TakeMissing(const Target& target)
{
    const IKestIO_5* const request = std::exchange(missing_.request, nullptr);
    return request && request == call::Request() && missing_.volume == target.volume &&
           missing_.path == target.path.View();
}

// Locks and conditions are asked before a byte is taken: a client is not to send a long body in
// vain.
TALSTATUS FileResource::StartUpload(bool keepContent, bool seemsFree)
{
    if (node_.IsDeleted())
        return Failure(kCodeAccessDenied);
    const Guard guard = node_.MakeGuard();
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    // A COPY makes many objects, and its own changes are not to fail its conditions.
    isUploadConditional_ = guard.HasConditions() && call::Method() == KestMethodPut;
    upload_.emplace(node_.GetStore(), node_.GetVolume());
    // Whatever stops it here, want of memory included, no empty upload may be left to be published.
    const TALSTATUS status = Protected([&] {
        upload_->SetConditions(Conditions::Of(node_.GetVolume(), node_.Path()));
        if (seemsFree && !MayReplaceDestination())
            upload_->SetMustBeFree(); // who looked first wants to replace nothing
        const TALSTATUS begun = keepContent
                                    ? upload_->BeginWithContent(node_.Path(), Handle(), info_.size)
                                    : upload_->Begin(node_.Path(), seemsFree);
        if (Failed(begun))
            return begun;
        return guard.CheckLocks(node_.GetVolume(), node_.Path(),
                                upload_->IsReplacing() ? Reach::Self : Reach::Membership);
    });
    if (Failed(status))
        upload_.reset();
    return status;
}

// What is there now: the content on its way in, if there is one.
TALSTATUS FileResource::Inspect(FileInfo* out) const
{
    if (!node_.IsBound())
        return kNotAssociated;
    *out = info_;
    if (!upload_)
        return TAL_STATUS_SUCCESS;
    return relocation::InnerStep(
        StatusFromErrno(node_.GetVolume().Fs().Inspect(upload_->File(), out)));
}

// The request walks through the collection, and has seen that nothing in it keeps a date.
bool FileResource::IsListedWithoutDates() const
{
    const DirectoryRef directory =
        open_directories::Find(node_.GetVolume(), ParentOf(node_.Path()));
    return directory && directory->keptDates.load(std::memory_order_relaxed) == KeptDates::None;
}

// What is there now, opened at last if it has only been looked at. kNoFile, which every use of it
// fails with, when it cannot be opened any more.
FileHandle FileResource::Handle()
{
    FileSystem& fs = node_.GetVolume().Fs();
    if (!file_)
        (void)fs.Open(node_.Path().c_str(), OpenFor::Reading, file_.Out(fs)); // see above
    return file_.Get();
}

TALSTATUS FileResource::GetCreationDate(DAV_DATETIME* date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (upload_ && upload_->Created()) {
        *date = *upload_->Created();
        return TAL_STATUS_SUCCESS;
    }
    const Volume& volume = node_.GetVolume();
    if (!upload_ && info_.isBirth && IsListedWithoutDates()) {
        *date = info_.created;
        return TAL_STATUS_SUCCESS;
    }
    return relocation::InnerStep(StatusFromErrno(upload_
                                                     ? volume.GetCreated(upload_->File(), {}, date)
                                                     : volume.GetCreated(Handle(), info_, date)));
}

TALSTATUS FileResource::GetDisplayName(UNICODE_STRING* name)
{
    return node_.IsBound() ? node_.GetDisplayName(name) : kNotAssociated;
}

TALSTATUS FileResource::GetETag(DAV_ETAG* etag)
{
    FileInfo info;
    if (const TALSTATUS status = Inspect(&info); Failed(status))
        return status;
    *etag = ETagOf(info);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetModificationDate(DAV_DATETIME* date)
{
    FileInfo info;
    if (const TALSTATUS status = Inspect(&info); Failed(status))
        return status;
    // Whole seconds, as HTTP dates: a client that asks whether its copy is current sends back what
    // it was told, and a fraction would always be later.
    *date = info.modified - info.modified % kTicksPerSecond;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetResourceSize(UINT64* size)
{
    FileInfo info;
    if (const TALSTATUS status = Inspect(&info); Failed(status))
        return status;
    *size = info.isDirectory ? 0 : info.size;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
{
    *read = 0;
    if (!node_.IsBound())
        return kNotAssociated;
    // The way to a far range is read, too.
    if (offset != 0 && call::IsCancelled())
        return relocation::InnerStep(Failure(kCodeUnsuccessful));
    size_t got = 0;
    const int error = node_.GetVolume().Fs().Read(upload_ ? upload_->File() : Handle(), offset,
                                                  buffer, length, &got);
    *read = static_cast<UINT32>(got);
    // A copy reads what it was told to be there: the source has become shorter.
    if (error == 0 && got == 0 && length != 0)
        (void)relocation::InnerStep(Failure(kCodeEndOfFile));
    // The reply's head promises the content.
    return relocation::InnerStep(ReportIfDenied(StatusFromErrno(error)));
}

TALSTATUS FileResource::Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written)
{
    *written = 0;
    if (!node_.IsBound())
        return kNotAssociated;
    return relocation::InnerStep(Protected([&] {
        if (!upload_) {
            if (info_.isDirectory)
                return Failure(kCodeMethodNotAllowed);
            if (const TALSTATUS status = StartUpload(true, false); Failed(status))
                return status;
        }
        const TALSTATUS status = upload_->Write(offset, buffer, length);
        if (!Failed(status))
            *written = length;
        return status;
    }));
}

TALSTATUS FileResource::SetCreationDate(DAV_DATETIME date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (!upload_)
        return relocation::InnerStep(Protected([&] { return node_.SetCreated(Handle(), date); }));
    upload_->SetCreated(date);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::SetModificationDate(DAV_DATETIME date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (!upload_)
        return relocation::InnerStep(Protected([&] { return node_.SetModified(Handle(), date); }));
    upload_->SetModified(date);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetLiveAttributes(UINT32* attributes)
{
    FileInfo info;
    if (const TALSTATUS status = Inspect(&info); Failed(status))
        return status;
    return relocation::InnerStep(Protected([&] { return node_.GetAttributes(info, attributes); }));
}

TALSTATUS FileResource::SetLiveAttributes(UINT32 attributes)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (!upload_)
        return relocation::InnerStep(
            Protected([&] { return node_.SetAttributes(Handle(), &info_, attributes); }));
    upload_->SetReadOnly((attributes & kAttributeReadOnly) != 0);
    uploadHidden_ = (attributes & kAttributeHidden) != 0;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetFirstLock(UINT32* size, DAV_LOCK_2* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetFirstLock(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileResource::GetNextLock(UINT32* size, DAV_LOCK_2* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNextLock(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileResource::GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetFirstProperty(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileResource::GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNextProperty(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileResource::GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNamedProperty(name, length, value); })
                           : kNotAssociated;
}

TALSTATUS FileResource::SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (upload_) // there is nothing yet that a property could be kept for
        return Failure(kCodeNotSupported);
    return Protected([&] { return node_.SetNamedProperty(name, length, value); });
}

TALSTATUS FileResource::SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                            UINT32* resultLength, char*)
{
    const TALSTATUS status = SetNamedProperty(name, length, value);
    if (!Failed(status) && resultLength)
        *resultLength = 0; // there is nothing to tell
    return status;
}

TALSTATUS FileResource::IoctlRequest(SCHANDLE, UINT32, UINT32, void*, UINT32*, void*)
{
    return Failure(kCodeNotImplemented); // control codes are for collections
}

} // namespace filestore
