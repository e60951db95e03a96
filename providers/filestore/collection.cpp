// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/collection.h"

#include <cstring>

#include "providers/filestore/node.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/recent.h"

namespace filestore {

namespace {

// Takes the names that are served.
class ServedNames final : public NameSink {
  public:
    ServedNames(NameList& names, bool isTop) : names_(names), isTop_(isTop) {}
    bool OnName(std::string_view name) override
    {
        if (isTop_ && IsPrivateName(name))
            return true;
        if (IsServableName(name))
            names_.Add(name);
        else
            ++leftOut_;
        return true;
    }
    size_t LeftOut() const { return leftOut_; }

  private:
    NameList& names_;
    const bool isTop_;
    size_t leftOut_ = 0;
};

} // namespace

TALSTATUS FileCollection::Associate(SCHANDLE, UNICODE_STRING* path, DAV_LOCK_TOKEN*)
{
    return Protected([&] {
        associated_ = false;
        names_.reset();
        Target target;
        if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
            return status;
        volume_ = target.volume;
        if (volume_) {
            if (!recent::Take(target, &directory_, &info_))
                if (const TALSTATUS status =
                        store_.OpenExisting(&target, OpenFor::Reading, &directory_, &info_);
                    Failed(status))
                    return status;
            if (!info_.isDirectory)
                return Failure(kCodeNotFound);
        } else {
            recent::Drop();
        }
        path_ = target.path.View();
        associated_ = true;
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS FileCollection::ListNames()
{
    next_ = 0;
    names_.emplace(UpperCaseUnits);
    if (!volume_) {
        for (const auto& v : store_.Volumes())
            names_->Add(v->Name());
        names_->Sort();
        return TAL_STATUS_SUCCESS;
    }
    ServedNames sink(*names_, path_.empty());
    if (const int error = volume_->Fs().List(directory_.Get(), sink))
        return StatusFromErrno(error);
    if (sink.LeftOut())
        Log(kLogWarning, std::to_string(sink.LeftOut()) + " names in '" + volume_->Name() + "/" +
                             path_ +
                             "' are left out of its listing: not UTF-8, or with control "
                             "characters");
    names_->Sort();
    hasKeptDates_ = volume_->HasKeptDates(directory_.Get());
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    return Protected([&] {
        const TALSTATUS status = ListNames();
        return Failed(status) ? status : Emit(size, buffer);
    });
}

TALSTATUS FileCollection::GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    if (!associated_ || !names_)
        return Failure(kCodeInvalidParameter);
    return Protected([&] { return Emit(size, buffer); });
}

// Fills in what there is to say about a child. False for what is gone meanwhile, leads outside or
// is neither file nor directory.
bool FileCollection::Describe(const char* name, DAV_COMMON_ENUM* out)
{
    FileInfo info;
    if (!volume_) {
        Target target;
        OpenFile top;
        for (const auto& v : store_.Volumes())
            if (v->Name() == name)
                target.volume = v.get();
        if (!target.volume ||
            Failed(store_.OpenExisting(&target, OpenFor::Locating, &top, &info)) ||
            target.volume->GetCreated(top.Get(), &info.created) != 0)
            return false;
    } else {
        FileSystem& fs = volume_->Fs();
        if (fs.InspectAt(directory_.Get(), name, &info) != 0)
            return false;
        if (info.isLink) {
            Target target;
            OpenFile real;
            target.volume = volume_;
            if (!target.path.Assign(path_) || !target.path.Append(name) ||
                Failed(store_.OpenExisting(&target, OpenFor::Locating, &real, &info)) ||
                volume_->GetCreated(real.Get(), &info.created) != 0)
                return false;
        } else if (hasKeptDates_) {
            info.created = volume_->CreatedOfChild(directory_.Get(), name, info);
        }
    }
    if (!info.isDirectory && !info.isRegular)
        return false;
    out->Type = info.isDirectory ? Collection : Resource;
    out->Attributes = AttributesOf(info);
    out->CreationDate = info.created;
    out->ModificationDate = info.modified;
    out->ResourceSize = info.isDirectory ? 0 : info.size;
    return true;
}

TALSTATUS FileCollection::Emit(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    for (; next_ < names_->Count(); ++next_) {
        const std::string_view name = names_->At(next_);
        WCHAR wide[kMaxNameBytes];
        size_t units = 0;
        if (!ToUtf16(name.data(), name.size(), wide, kMaxNameBytes, &units))
            continue; // not reached: only servable names are listed
        constexpr size_t kHead = offsetof(DAV_COMMON_ENUM, DisplayName);
        const auto needed =
            static_cast<UINT32>(std::max(kHead + units * sizeof(WCHAR), sizeof(DAV_COMMON_ENUM)));
        if (*size < needed) {
            *size = needed;
            return Failure(kCodeBufferTooSmall);
        }
        if (!Describe(name.data(), buffer))
            continue;
        buffer->NextEntryOffset = 0;
        buffer->State = 0;
        buffer->URILength = 0;
        buffer->pURI = nullptr;
        buffer->DisplayNameLength = static_cast<UINT32>(units * sizeof(WCHAR));
        std::memcpy(reinterpret_cast<char*>(buffer) + kHead, wide, units * sizeof(WCHAR));
        *size = needed;
        ++next_;
        return TAL_STATUS_SUCCESS;
    }
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetCreationDate(DAV_DATETIME* date)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    if (!volume_) {
        *date = store_.Started();
        return TAL_STATUS_SUCCESS;
    }
    return StatusFromErrno(volume_->GetCreated(directory_.Get(), date));
}

TALSTATUS FileCollection::GetDisplayName(UNICODE_STRING* name)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    if (!volume_)
        return PutName("/", name);
    return PutName(path_.empty() ? std::string_view(volume_->Name()) : LeafOf(path_), name);
}

TALSTATUS FileCollection::GetETag(DAV_ETAG* etag)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    *etag = ETagOf(info_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::GetModificationDate(DAV_DATETIME* date)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    *date = volume_ ? info_.modified : store_.Started();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::SetCreationDate(DAV_DATETIME date)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    return volume_ ? SetCreated(*volume_, path_, directory_.Get(), date)
                   : Failure(kCodeAccessDenied);
}

TALSTATUS FileCollection::SetModificationDate(DAV_DATETIME date)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    return volume_ ? SetModified(*volume_, directory_.Get(), date) : Failure(kCodeAccessDenied);
}

TALSTATUS FileCollection::GetLiveAttributes(UINT32* attributes)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    *attributes = volume_ ? AttributesOf(info_) : kAttributeReadOnly;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::SetLiveAttributes(UINT32 attributes)
{
    if (!associated_)
        return Failure(kCodeInvalidParameter);
    return volume_ ? SetAttributes(*volume_, directory_.Get(), &info_, attributes)
                   : Failure(kCodeAccessDenied);
}

TALSTATUS FileCollection::GetFirstLock(UINT32*, DAV_LOCK_2*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetNextLock(UINT32*, DAV_LOCK_2*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetFirstProperty(UINT32*, DAV_NAMED_PROPERTY*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetNextProperty(UINT32*, DAV_NAMED_PROPERTY*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetNamedProperty(UNICODE_STRING*, UINT32*, char*)
{
    return Failure(kCodeNotFound);
}

TALSTATUS FileCollection::SetNamedPropertyEnh(UNICODE_STRING*, UINT32, char*, UINT32*, char*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileCollection::IoctlRequest(SCHANDLE, UINT32, UINT32, void*, UINT32*, void*)
{
    return Failure(kCodeNotImplemented);
}

} // namespace filestore
