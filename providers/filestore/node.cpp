// SPDX-License-Identifier: Apache-2.0
//
// What files and directories have in common: dates, properties, locks.
#include "providers/filestore/node.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/utf.h"
#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/conditions.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/locks.h"
#include "providers/filestore/property.h"
#include "providers/filestore/room.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

TALSTATUS EndChange(const Volume& volume, FileHandle file, int error)
{
    if (error == 0 && volume.Sync() == SyncLevel::Full) {
        error = volume.Fs().Sync(file, true);
        if (error == EBADF) // opened without content: there is nothing to sync by
            error = 0;
    }
    return StatusFromErrno(error);
}

TALSTATUS ReadPropertyName(const UNICODE_STRING* name, std::string* out)
{
    if (!name || !name->Buffer || name->Length == 0)
        return Failure(kCodeInvalidParameter);
    out->clear();
    if (!base::AppendUtf8({name->Buffer, name->Length / sizeof(WCHAR)}, *out) ||
        out->size() > kMaxPropertyNameBytes)
        return Failure(kCodeInvalidRequest);
    return TAL_STATUS_SUCCESS;
}

// Packs a property: the value, then the name on an even offset.
TALSTATUS PackProperty(const Property& property, const std::string& value, UINT32* size,
                       DAV_NAMED_PROPERTY* out)
{
    std::u16string name;
    if (!base::AppendUtf16(property.name, name))
        return Failure(kCodeUnsuccessful);
    const size_t units = name.size();
    constexpr size_t kHead = offsetof(DAV_NAMED_PROPERTY, Value);
    const size_t nameOffset = kHead + (value.size() + 1) / 2 * 2;
    const size_t needed = std::max(nameOffset + units * sizeof(WCHAR), sizeof(DAV_NAMED_PROPERTY));
    if (*size < needed) {
        *size = static_cast<UINT32>(needed);
        return Failure(kCodeBufferTooSmall);
    }
    char* const record = reinterpret_cast<char*>(out);
    out->NextEntryOffset = 0;
    out->NameLength = static_cast<UINT32>(units * sizeof(WCHAR));
    out->NameOffset = static_cast<UINT32>(nameOffset);
    out->ValueLength = static_cast<UINT32>(value.size());
    std::memcpy(record + kHead, value.data(), value.size());
    std::memcpy(record + nameOffset, name.data(), units * sizeof(WCHAR));
    *size = static_cast<UINT32>(needed);
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS PutName(std::string_view name, UNICODE_STRING* out)
{
    size_t units = 0;
    if (!out || !out->Buffer)
        return Failure(kCodeInvalidParameter);
    WCHAR wide[kMaxNameBytes];
    if (base::Utf8ToUtf16(name, wide, kMaxNameBytes, units) != base::Converted::Whole)
        return Failure(kCodeUnsuccessful);
    if (units * sizeof(WCHAR) > out->MaximumLength)
        return Failure(kCodeBufferTooSmall);
    std::memcpy(out->Buffer, wide, units * sizeof(WCHAR));
    out->Length = static_cast<UINT16>(units * sizeof(WCHAR));
    return TAL_STATUS_SUCCESS;
}

UINT32 AttributesOf(const FileInfo& info)
{
    return IsReadOnly(info) ? kAttributeReadOnly : 0;
}

TALSTATUS SetHidden(const Volume& volume, std::string_view path, bool on)
{
    if (!on && !volume.MayHaveProperties())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    bool isHidden = false;
    TALSTATUS status = Store::OpenMetadata(volume, &session);
    if (!Failed(status))
        status = session->IsHidden(path, &isHidden);
    return Failed(status) || isHidden == on ? status : session->SetHidden(path, on);
}

void Node::Bind(SCHANDLE session, const Target& target, const DAV_LOCK_TOKEN* token)
{
    volume_ = target.volume;
    path_ = target.path.View();
    deletedId_ = target.deletedId;
    if (target.IsDeletedEntry())
        shownName_ = target.deletedName;
    else
        shownName_.clear();
    session_ = session;
    token_.assign(token && token->Buffer ? token->Buffer : "", token ? token->Length : 0);
    locks_.clear();
    nextLock_ = 0;
    lastProperty_ = 0;
    bound_ = true;
}

Guard Node::MakeGuard() const
{
    DAV_LOCK_TOKEN token{};
    token.Buffer = const_cast<char*>(token_.data()); // only read
    token.Length = token.MaximumLength = static_cast<UINT16>(token_.size());
    return Guard(store_, session_, &token);
}

TALSTATUS Node::CheckObject() const
{
    if (!volume_ || deletedId_ || !volume_->IsWritable())
        return Failure(kCodeAccessDenied);
    // What a request makes may also be given its dates and properties by it.
    const bool isMaking = call::Method() != KestMethodPropPatch;
    return access::RequireAny(*volume_, path_, kRightChange | (isMaking ? kRightCreate : 0));
}

TALSTATUS Node::CheckChange() const
{
    if (const TALSTATUS status = CheckObject(); Failed(status))
        return status;
    const Guard guard = MakeGuard();
    TALSTATUS status = guard.CheckConditions();
    if (!Failed(status))
        status = guard.CheckLocks(*volume_, path_, Reach::Self);
    return Failed(status) ? status : JudgeConditions();
}

// What a PROPPATCH changes is told one by one: only the host can make the whole of it fail.
TALSTATUS Node::JudgeConditions() const
{
    const TALSTATUS status =
        Conditions::Of(*volume_, path_).JudgePath(volume_->Fs(), path_.c_str());
    if (Failed(status))
        call::ReportFailure(status);
    return status;
}

TALSTATUS Node::GetDisplayName(UNICODE_STRING* out) const
{
    if (!volume_)
        return PutName("/", out);
    if (!shownName_.empty())
        return PutName(shownName_, out);
    return PutName(path_.empty() ? std::string_view(volume_->Name()) : LeafOf(path_), out);
}

TALSTATUS Node::GetAttributes(const FileInfo& info, UINT32* attributes) const
{
    if (!volume_) {
        *attributes = kAttributeReadOnly;
        return TAL_STATUS_SUCCESS;
    }
    *attributes = AttributesOf(info);
    if (!KeepsProperties())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    bool hidden = false;
    TALSTATUS status = Store::OpenMetadata(*volume_, &session);
    if (!Failed(status))
        status = session->IsHidden(path_, &hidden);
    if (hidden)
        *attributes |= kAttributeHidden;
    return status;
}

TALSTATUS Node::SetCreated(FileHandle file, UINT64 date) const
{
    if (const TALSTATUS status = CheckChange(); Failed(status))
        return status;
    DirectoryRef parent;
    int error = volume_->OpenParent(path_, &parent); // the top's is the top itself
    if (error == 0)
        error = volume_->KeepCreated(file, *parent, date);
    return EndChange(*volume_, file, error);
}

TALSTATUS Node::SetModified(FileHandle file, UINT64 date) const
{
    if (const TALSTATUS status = CheckChange(); Failed(status))
        return status;
    return EndChange(*volume_, file, volume_->Fs().SetModified(file, date));
}

TALSTATUS Node::SetAttributes(FileHandle file, FileInfo* info, UINT32 attributes) const
{
    if (const TALSTATUS status = CheckChange(); Failed(status))
        return status;
    const UINT32 mode = WithReadOnly(info->mode, (attributes & kAttributeReadOnly) != 0);
    if (mode != info->mode) {
        if (const int error = volume_->Fs().SetMode(file, mode))
            return StatusFromErrno(error);
        info->mode = mode;
        if (const TALSTATUS status = EndChange(*volume_, file, 0); Failed(status))
            return status;
    }
    return SetHidden(*volume_, path_, (attributes & kAttributeHidden) != 0);
}

TALSTATUS Node::GetFirstLock(UINT32* size, DAV_LOCK_2* buffer)
{
    locks_.clear();
    nextLock_ = 0;
    if (volume_ && volume_->MayHaveLocks()) {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS status = Store::OpenMetadata(*volume_, &session);
        if (!Failed(status))
            status = CoveringLocks(*session, path_, store_.Now(), &locks_);
        if (Failed(status))
            return status;
    }
    return GetNextLock(size, buffer);
}

TALSTATUS Node::GetNextLock(UINT32* size, DAV_LOCK_2* buffer)
{
    if (nextLock_ == locks_.size())
        return Failure(kCodeNoMoreEntries);
    const TALSTATUS status = DescribeLock(locks_[nextLock_], store_.Now(), size, buffer);
    if (!Failed(status))
        ++nextLock_;
    return status;
}

TALSTATUS Node::GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    lastProperty_ = 0;
    return GetNextProperty(size, buffer);
}

TALSTATUS Node::GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    if (!KeepsProperties())
        return Failure(kCodeNoMoreEntries);
    std::unique_ptr<MetadataSession> session;
    Property property;
    TALSTATUS status = Store::OpenMetadata(*volume_, &session);
    if (!Failed(status))
        status = session->NextProperty(path_, lastProperty_, &property);
    if (!Failed(status))
        status = PackProperty(property, ClassicValue(property), size, buffer);
    if (!Failed(status))
        lastProperty_ = property.order;
    return status;
}

TALSTATUS Node::GetNamedProperty(const UNICODE_STRING* name, UINT32* length, char* value) const
{
    std::string key;
    Property property;
    if (const TALSTATUS status = ReadPropertyName(name, &key); Failed(status))
        return status;
    if (!KeepsProperties())
        return Failure(kCodeNotFound);
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(*volume_, &session);
    if (!Failed(status))
        status = session->GetProperty(path_, key, &property);
    if (Failed(status))
        return status;
    const std::string found = ClassicValue(property);
    const UINT32 room = *length;
    *length = static_cast<UINT32>(found.size());
    if (room < found.size())
        return Failure(kCodeBufferTooSmall);
    if (!found.empty())
        std::memcpy(value, found.data(), found.size());
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Node::SetNamedProperty(const UNICODE_STRING* name, UINT32 length, const char* value) const
{
    std::string key;
    if (const TALSTATUS status = ReadPropertyName(name, &key); Failed(status))
        return status;
    if (value && length > kMaxPropertyBytes)
        return Failure(kCodeStorageFull);
    if (!value && volume_ && !KeepsProperties())
        return CheckChange(); // removing what is not there is no failure (RFC 4918 14.23)
    if (const TALSTATUS status = CheckObject(); Failed(status))
        return status;
    const Guard guard = MakeGuard();
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    return WithRoomForRows(store_, *volume_, [&] { return Patch(guard, key, value, length); });
}

// In one transaction: no lock comes between the question and the change.
TALSTATUS Node::Patch(const Guard& guard, const std::string& key, const char* value,
                      UINT32 length) const
{
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(*volume_, &session);
    if (!Failed(status))
        status = session->Begin();
    if (!Failed(status) && volume_->MayHaveLocks())
        status = guard.CheckLocks(*volume_, *session, path_, Reach::Self);
    if (!Failed(status))
        status = JudgeConditions();
    if (!Failed(status))
        status = value ? session->SetProperty(path_, {kClassicSpace, key}, {value, length})
                       : session->RemoveProperty(path_, {kClassicSpace, key});
    return Failed(status) ? status : session->Commit();
}

} // namespace filestore
