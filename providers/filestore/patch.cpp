// SPDX-License-Identifier: Apache-2.0
//
// Judging, making and undoing changes of properties.
#include "providers/filestore/patch.h"

#include <cerrno>

#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/node.h"
#include "providers/filestore/operation.h"
#include "providers/filestore/property.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

bool IsDead(const DAV_PROPERTY_CHANGE& change)
{
    return change.Kind == kPropertySet || change.Kind == kPropertyRemove;
}

PropertyName NameOf(const DAV_PROPERTY_CHANGE& change)
{
    return {TextOf(change.Namespace), TextOf(change.Name)};
}

TALSTATUS JudgeOne(const DAV_PROPERTY_CHANGE& change)
{
    constexpr UINT64 kLatest = ~UINT64{0} >> 1;
    if (change.Kind > kPropertyAttributes)
        return Failure(kCodeNotImplemented);
    if (!IsDead(change))
        return change.Kind != kPropertyAttributes && (!change.Number || change.Number > kLatest)
                   ? Failure(kCodeInvalidParameter)
                   : TAL_STATUS_SUCCESS;
    for (const DAV_TEXT& text : {change.Namespace, change.Name, change.Value})
        if (text.Length && !text.Text)
            return Failure(kCodeInvalidParameter);
    const PropertyName name = NameOf(change);
    if (!IsLocalName(name.local) || !IsXmlText(name.space))
        return Failure(kCodeInvalidParameter);
    if (name.space.size() + name.local.size() > kMaxPropertyNameBytes ||
        change.Value.Length > kMaxPropertyBytes)
        return Failure(kCodeStorageFull);
    return change.Kind == kPropertySet && !IsXmlText(TextOf(change.Value))
               ? Failure(kCodeInvalidParameter)
               : TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS JudgeChanges(std::span<DAV_PROPERTY_CHANGE> changes)
{
    TALSTATUS first = TAL_STATUS_SUCCESS;
    for (DAV_PROPERTY_CHANGE& change : changes) {
        change.Status = JudgeOne(change);
        if (Failed(change.Status) && !Failed(first))
            first = change.Status;
    }
    return first;
}

TALSTATUS PropertyPatch::ChangeRows(MetadataSession& session)
{
    for (DAV_PROPERTY_CHANGE& change : changes_) {
        change.Status = ChangeRow(session, change);
        if (Failed(change.Status))
            return change.Status;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PropertyPatch::ChangeRow(MetadataSession& session, const DAV_PROPERTY_CHANGE& change)
{
    if (change.Kind == kPropertyAttributes) {
        const bool on = (change.Number & kAttributeHidden) != 0;
        return on || volume_.MayHaveProperties() ? session.SetHidden(path_, on)
                                                 : TAL_STATUS_SUCCESS;
    }
    if (!IsDead(change))
        return TAL_STATUS_SUCCESS;
    const PropertyName name = NameOf(change);
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (const std::optional<std::string> classic = ClassicName(name))
        status = session.RemoveProperty(path_, {kClassicSpace, *classic});
    if (Failed(status))
        return status;
    return change.Kind == kPropertySet ? session.SetProperty(path_, name, TextOf(change.Value))
                                       : session.RemoveProperty(path_, name);
}

TALSTATUS PropertyPatch::ChangeFile(FileHandle file, const FileInfo& info)
{
    before_ = info;
    TALSTATUS status = StatusFromErrno(volume_.GetCreated(file, info, &before_.created));
    for (DAV_PROPERTY_CHANGE& change : changes_)
        if (!Failed(status) && !IsDead(change))
            status = change.Status = ChangeOfFile(file, change);
    const bool hasChanged = hasNewDate_ || hasNewMode_ || hasNewCreation_;
    if (!Failed(status) && hasChanged && volume_.Sync() == SyncLevel::Full)
        if (const int error = volume_.Fs().Sync(file, true); error && error != EBADF)
            status = StatusFromErrno(error);
    if (Failed(status))
        Undo(file);
    return status;
}

TALSTATUS PropertyPatch::ChangeOfFile(FileHandle file, const DAV_PROPERTY_CHANGE& change)
{
    FileSystem& fs = volume_.Fs();
    int error = 0;
    if (change.Kind == kPropertyModified) {
        error = fs.SetModified(file, StampedDate(change.Number, true));
        hasNewDate_ = hasNewDate_ || !error;
    } else if (change.Kind == kPropertyCreated) {
        DirectoryRef parent;
        error = volume_.OpenParent(path_, &parent); // the top's is the top itself
        if (error == 0)
            error = volume_.KeepCreated(file, *parent, change.Number);
        hasNewCreation_ = hasNewCreation_ || !error;
    } else {
        const UINT32 mode = WithReadOnly(before_.mode, (change.Number & kAttributeReadOnly) != 0);
        if (mode != before_.mode || hasNewMode_)
            error = fs.SetMode(file, mode);
        hasNewMode_ = hasNewMode_ || (!error && mode != before_.mode);
    }
    // EINVAL: a date that the file system cannot keep.
    return error == EINVAL ? Failure(kCodeInvalidParameter) : StatusFromErrno(error);
}

void PropertyPatch::Undo(FileHandle file)
{
    FileSystem& fs = volume_.Fs();
    DirectoryRef parent;
    if (hasNewMode_)
        (void)fs.SetMode(file, before_.mode);
    if (hasNewCreation_ && volume_.OpenParent(path_, &parent) == 0)
        (void)volume_.KeepCreated(file, *parent, before_.created);
    if (hasNewDate_)
        (void)fs.SetModified(file, before_.modified);
    hasNewDate_ = hasNewMode_ = hasNewCreation_ = false;
}

} // namespace filestore
