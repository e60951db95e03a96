// SPDX-License-Identifier: Apache-2.0
//
// Beginning, finding, continuing and dropping uploads.
#include "providers/filestore/uploads3.h"

#include <algorithm>

#include "providers/filestore/operation.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/upload.h"
#include "providers/filestore/upload_content.h"
#include "providers/filestore/upload_directory.h"

namespace filestore {

namespace {

bool IsUploadName(const DAV_TEXT* name)
{
    constexpr size_t kDigits = 32;
    const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
    return name && name->Text && name->Length == kDigits &&
           std::all_of(name->Text, name->Text + kDigits, isDigit);
}

// Whose upload it is. For anybody else, and under another path, there is none.
TALSTATUS LoadOwn(PendingUpload& upload, const Guard& guard, const Target& target)
{
    const TALSTATUS status = upload.Load();
    if (Failed(status))
        return status;
    const UploadRecord& record = upload.Record();
    return record.path == target.path.View() && record.user == guard.User()
               ? TAL_STATUS_SUCCESS
               : Failure(kCodeNotFound);
}

void SetName(std::string_view name, DAV_UPLOAD* out)
{
    out->NameLength = static_cast<UINT32>(std::min<size_t>(name.size(), kUploadNameBytes));
    std::copy_n(name.data(), out->NameLength, out->Name);
}

} // namespace

// Where there is no volume there is no upload.
TALSTATUS UploadsTearOff::LocateKnown(const UNICODE_STRING* path, Target* target) const
{
    const TALSTATUS status = store_.Locate(path, target);
    if (Failed(status))
        return status;
    const bool isPossible = !target->IsRoot() && !target->deletedId && target->volume->IsWritable();
    return isPossible && store_.Settings().uploadSeconds ? TAL_STATUS_SUCCESS
                                                         : Failure(kCodeNotFound);
}

// Runs `use` on the upload of a name, with its mutex held, and on what it is made for.
template <class F>
TALSTATUS UploadsTearOff::OnUpload(SCHANDLE session, const UNICODE_STRING* path,
                                   const DAV_TEXT* name, F&& use) const
{
    if (!IsUploadName(name))
        return Failure(kCodeNotFound);
    return Protected([&] {
        request_cache::Drop();
        Target target;
        if (const TALSTATUS status = LocateKnown(path, &target); Failed(status))
            return status;
        const DAV_PRECONDITIONS none{};
        const Guard guard(store_, session, target, none);
        auto hold = HoldUpload(store_, *target.volume, TextOf(*name));
        PendingUpload& upload = **hold;
        const std::unique_lock lock(upload.Mutex());
        const TALSTATUS status = LoadOwn(upload, guard, target);
        return Failed(status) ? status : use(upload, target);
    });
}

// Code 13 where the store takes no such uploads.
TALSTATUS UploadsTearOff::LocateUsable(const UNICODE_STRING* path, Target* target) const
{
    const TALSTATUS status = store_.LocateNew(path, target);
    if (Failed(status))
        return status;
    return store_.Settings().uploadSeconds && target->volume->IsWritable()
               ? TAL_STATUS_SUCCESS
               : Failure(kCodeNotImplemented);
}

TALSTATUS UploadsTearOff::GetLimits(SCHANDLE, UNICODE_STRING* path, DAV_UPLOAD* upload)
{
    if (!upload)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        Target target;
        DAV_UPLOAD answer{};
        TALSTATUS status = LocateUsable(path, &target);
        if (!Failed(status))
            status = SpaceForUpload(*target.volume, {}, &answer.MostBytes);
        if (Failed(status))
            return status;
        answer.Lifetime = store_.Settings().uploadSeconds;
        WriteRecord(answer, upload);
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS UploadsTearOff::Begin(SCHANDLE hSession, UNICODE_STRING* path, UINT64 length,
                                const DAV_TEXT* terms, const DAV_PRECONDITIONS* preconditions,
                                IKestDAVFailures3* failures, DAV_UPLOAD* upload)
{
    if (!upload || !terms || (terms->Length && !terms->Text) || terms->Length > kMostUploadTerms)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        request_cache::Drop();
        Target target;
        if (const TALSTATUS status = LocateUsable(path, &target); Failed(status))
            return status;
        return RunGuarded(store_, hSession, target, preconditions, failures,
                          [&](const Guard& guard) {
                              return BeginAt(guard, target, length, TextOf(*terms), upload);
                          });
    });
}

// Judged as a PUT is, before a byte is taken.
TALSTATUS UploadsTearOff::BeginAt(const Guard& guard, const Target& target, UINT64 length,
                                  std::string_view terms, DAV_UPLOAD* upload)
{
    Volume& volume = *target.volume;
    Upload look(store_, volume);
    look.SetConditions(guard.On(volume, target.path.View()));
    TALSTATUS status = guard.CheckConditions();
    if (!Failed(status))
        status = look.Look(target.path.View());
    if (!Failed(status))
        status = guard.CheckLocks(volume, target.path.View(),
                                  look.IsReplacing() ? Reach::Self : Reach::Membership);
    if (Failed(status))
        return status;
    UploadRecord record;
    record.length = length;
    record.user = guard.User();
    record.path = target.path.View();
    record.terms = terms;
    std::string name;
    DAV_UPLOAD answer{};
    status = MakeUpload(store_, volume, std::move(record), &name, &answer.MostBytes);
    if (Failed(status))
        return status;
    answer.Length = length;
    answer.Lifetime = store_.Settings().uploadSeconds;
    SetName(name, &answer);
    WriteRecord(answer, upload);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS UploadsTearOff::Find(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name,
                               UINT32* size, char* terms, DAV_UPLOAD* upload)
{
    if (!upload || (terms && !size))
        return Failure(kCodeInvalidParameter);
    return OnUpload(hSession, path, name, [&](PendingUpload& found, const Target& target) {
        (void)found.Take();
        DAV_UPLOAD answer{};
        TALSTATUS status = found.Checkpoint();
        if (!Failed(status))
            status = SpaceForUpload(*target.volume, TextOf(*name), &answer.MostBytes);
        if (Failed(status))
            return status;
        const UploadRecord& record = found.Record();
        if (terms && *size < record.terms.size())
            return Failure(kCodeBufferTooSmall);
        if (terms) {
            record.terms.copy(terms, record.terms.size());
            *size = static_cast<UINT32>(record.terms.size());
        }
        answer.Flags = found.IsComplete() ? kUploadComplete : 0;
        answer.Offset = found.Offset();
        answer.Length = found.IsComplete() ? found.Offset() : record.length;
        const UINT64 end = record.touched + store_.Settings().uploadSeconds * kTicksPerSecond;
        answer.Lifetime = (end - std::min(end, store_.Now())) / kTicksPerSecond;
        SetName(TextOf(*name), &answer);
        WriteRecord(answer, upload);
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS UploadsTearOff::Continue(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name,
                                   UINT64 offset, UINT64 length,
                                   const DAV_PRECONDITIONS* preconditions,
                                   IKestDAVResource3** content)
{
    DAV_PRECONDITIONS given;
    if (!content || !ReadRecord(preconditions, &given) || !AreReadable(given))
        return Failure(kCodeInvalidParameter);
    return OnUpload(hSession, path, name, [&](PendingUpload& found, const Target& target) {
        if (found.IsComplete() || found.Offset() != offset)
            return Failure(kCodeConflict);
        UINT64 space = 0;
        TALSTATUS status = found.SetWholeLength(length);
        if (!Failed(status))
            status = SpaceForUpload(*target.volume, TextOf(*name), &space);
        if (Failed(status))
            return status;
        auto made = Ref<UploadContent>::Adopt(
            new UploadContent(store_, hSession, target, TextOf(*name), given));
        made->Begin(found, space);
        *content = made.Detach();
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS UploadsTearOff::Cancel(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name)
{
    return OnUpload(hSession, path, name, [](PendingUpload& found, const Target&) {
        (void)found.Take();
        return found.Remove();
    });
}

} // namespace filestore
