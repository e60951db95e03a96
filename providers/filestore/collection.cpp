// SPDX-License-Identifier: Apache-2.0
//
// Directories as the module sees them: their members, and those that were deleted.
#include "providers/filestore/collection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/percent.h"
#include "base/utf.h"
#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/node.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/relocation.h"
#include "providers/filestore/request_cache.h"

namespace filestore {

namespace {

// Nobody waits for the reply any more.
constexpr TALSTATUS kCancelled = Failure(kCodeTimeout);
constexpr TALSTATUS kNotAssociated = Failure(kCodeInvalidParameter);

// All of a record but its name.
void Fill(const FileInfo& info, DAV_COMMON_ENUM* out)
{
    out->NextEntryOffset = 0;
    out->Type = info.isDirectory ? Collection : Resource;
    out->Attributes = AttributesOf(info);
    out->CreationDate = info.created;
    out->ModificationDate = info.modified;
    out->ResourceSize = info.isDirectory ? 0 : info.size;
    out->State = 0;
    out->URILength = 0;
    out->pURI = nullptr;
}

} // namespace

TALSTATUS FileCollection::QueryInterface(const GUID* iid, void** out)
{
    if (iid && out && *iid == IID_KestCollection_3)
        return QueryTearOff<IKestDAVCollection3>(&third_, *this, node_.GetStore(), out);
    return Object::QueryInterface(iid, out);
}

TALSTATUS FileCollection::Associate(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token)
{
    return relocation::Step(Protected([&] {
        node_.Unbind();
        listing_.Clear();
        directory_.reset();
        return Open(hSession, path, token);
    }));
}

TALSTATUS FileCollection::Open(SCHANDLE session, const UNICODE_STRING* path,
                               const DAV_LOCK_TOKEN* token)
{
    Target target;
    if (const TALSTATUS status = node_.GetStore().Locate(path, &target); Failed(status))
        return status;
    if (target.IsRoot()) {
        request_cache::Drop();
    } else {
        if (const TALSTATUS status = request_cache::TakeFailure(target); Failed(status))
            return status;
        const auto opened = std::make_shared<Directory>();
        if (!request_cache::TakeOpened(target, &opened->file, &info_))
            if (const TALSTATUS status =
                    node_.GetStore().OpenExisting(&target, OpenFor::Reading, &opened->file, &info_);
                Failed(status))
                return ReportIfDenied(status);
        if (!info_.isDirectory)
            return Failure(kCodeNotFound);
        opened->volume = target.volume;
        opened->path = target.path.View();
        directory_ = opened;
        open_directories::Add(directory_);
    }
    node_.Bind(session, target, token);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (relocation::IsCopied())
        return Failure(kCodeNoMoreEntries);
    return relocation::Step(ReportIfDenied(Protected([&] {
        next_ = 0;
        const TALSTATUS status = listing_.Read(node_.IsRoot() ? nullptr : &node_.GetVolume(),
                                               directory_, node_.Path(), true);
        return Failed(status) ? status : Emit(size, buffer);
    })));
}

TALSTATUS FileCollection::GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    if (!node_.IsBound() || !listing_.IsRead())
        return kNotAssociated;
    return relocation::Step(ReportIfDenied(Protected([&] { return Emit(size, buffer); })));
}

// Fills in what there is to say about a child; code 11 as Listing::Inspect.
TALSTATUS FileCollection::Describe(const char* name, DAV_COMMON_ENUM* out)
{
    FileInfo info;
    if (const TALSTATUS status = listing_.Inspect(name, &info); Failed(status))
        return status;
    Fill(info, out);
    if (listing_.IsHidden(name))
        out->Attributes |= kAttributeHidden;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::Emit(UINT32* size, DAV_COMMON_ENUM* buffer)
{
    const NameList& names = listing_.Names();
    for (; next_ < names.Count(); ++next_) {
        if (call::IsCancelled())
            return kCancelled;
        names.ExpectAfter(next_);
        const size_t units = names.UnitsAt(next_);
        constexpr size_t kHead = offsetof(DAV_COMMON_ENUM, DisplayName);
        const auto needed =
            static_cast<UINT32>(std::max(kHead + units * sizeof(WCHAR), sizeof(DAV_COMMON_ENUM)));
        if (*size < needed) {
            *size = needed;
            return Failure(kCodeBufferTooSmall);
        }
        const TALSTATUS status = Describe(names.At(next_).data(), buffer);
        if (Code(status) == kCodeNotFound)
            continue;
        if (Failed(status))
            return status;
        buffer->DisplayNameLength = static_cast<UINT32>(units * sizeof(WCHAR));
        names.WideAt(next_, reinterpret_cast<WCHAR*>(reinterpret_cast<char*>(buffer) + kHead));
        *size = needed;
        ++next_;
        return TAL_STATUS_SUCCESS;
    }
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileCollection::GetCreationDate(DAV_DATETIME* date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    if (node_.IsRoot()) {
        *date = node_.GetStore().Started();
        return TAL_STATUS_SUCCESS;
    }
    return StatusFromErrno(node_.GetVolume().GetCreated(directory_->Get(), info_, date));
}

TALSTATUS FileCollection::GetDisplayName(UNICODE_STRING* name)
{
    return node_.IsBound() ? node_.GetDisplayName(name) : kNotAssociated;
}

TALSTATUS FileCollection::GetETag(DAV_ETAG* etag)
{
    if (!node_.IsBound())
        return kNotAssociated;
    *etag = ETagOf(info_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::GetModificationDate(DAV_DATETIME* date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    *date = node_.IsRoot() ? node_.GetStore().Started() : info_.modified;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::SetCreationDate(DAV_DATETIME date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    return relocation::IsCopied()
               ? TAL_STATUS_SUCCESS
               : relocation::InnerStep(Protected([&] { return node_.SetCreated(Handle(), date); }));
}

TALSTATUS FileCollection::SetModificationDate(DAV_DATETIME date)
{
    if (!node_.IsBound())
        return kNotAssociated;
    return relocation::IsCopied() ? TAL_STATUS_SUCCESS : relocation::InnerStep(Protected([&] {
        return node_.SetModified(Handle(), date);
    }));
}

TALSTATUS FileCollection::GetLiveAttributes(UINT32* attributes)
{
    return node_.IsBound() ? Protected([&] { return node_.GetAttributes(info_, attributes); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::SetLiveAttributes(UINT32 attributes)
{
    if (!node_.IsBound())
        return kNotAssociated;
    return relocation::IsCopied() ? TAL_STATUS_SUCCESS : relocation::InnerStep(Protected([&] {
        return node_.SetAttributes(Handle(), &info_, attributes);
    }));
}

TALSTATUS FileCollection::GetFirstLock(UINT32* size, DAV_LOCK_2* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetFirstLock(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::GetNextLock(UINT32* size, DAV_LOCK_2* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNextLock(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetFirstProperty(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNextProperty(size, buffer); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value)
{
    return node_.IsBound() ? Protected([&] { return node_.GetNamedProperty(name, length, value); })
                           : kNotAssociated;
}

TALSTATUS FileCollection::SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                              UINT32* resultLength, char*)
{
    if (!node_.IsBound())
        return kNotAssociated;
    const TALSTATUS status = Protected([&] { return node_.SetNamedProperty(name, length, value); });
    if (!Failed(status) && resultLength)
        *resultLength = 0; // there is nothing to tell
    return status;
}

TALSTATUS FileCollection::IoctlRequest(SCHANDLE, UINT32 code, UINT32, void*, UINT32* outputLength,
                                       void* output)
{
    if (!node_.IsBound() || !outputLength || !output)
        return kNotAssociated;
    return Protected([&] {
        switch (code) {
        case kIoctlReverseLookup:
            return LocateMembers(outputLength, output);
        case kIoctlFirstDeletedChild:
            lastDeleted_ = 0;
            return EmitDeleted(outputLength, output);
        case kIoctlNextDeletedChild:
            return EmitDeleted(outputLength, output);
        default:
            return Failure(kCodeNotImplemented);
        }
    });
}

// Where the collection really lives: this server's configured address, and the volume's name and
// path in the form that administrators of file servers know, "VOLUME\\directory\\directory".
TALSTATUS FileCollection::LocateMembers(UINT32* length, void* out) const
{
    if (node_.IsRoot())
        return Failure(kCodeNotFound);
    std::string path = node_.GetVolume().Name();
    if (!node_.Path().empty())
        path += "/" + node_.Path();
    std::replace(path.begin(), path.end(), '/', '\\');
    std::u16string wide;
    if (!base::AppendUtf16(path, wide))
        return Failure(kCodeUnsuccessful);
    const size_t units = wide.size();
    constexpr size_t kHead = offsetof(DAV_REVERSE_LOOKUP, DirPath);
    const size_t needed = std::max(kHead + (units + 1) * sizeof(WCHAR), sizeof(DAV_REVERSE_LOOKUP));
    if (*length < needed) {
        *length = static_cast<UINT32>(needed);
        return Failure(kCodeBufferTooSmall);
    }
    auto* const record = static_cast<DAV_REVERSE_LOOKUP*>(out);
    std::memset(out, 0, needed);
    record->SockaddrLen = 16; // of an IPv4 socket address: family, port, address, padding
    record->Sockaddr[0] = 2;
    std::memcpy(record->Sockaddr + 4, node_.GetStore().Settings().serverAddress, 4);
    std::memcpy(static_cast<char*>(out) + kHead, wide.data(), units * sizeof(WCHAR));
    *length = static_cast<UINT32>(needed);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileCollection::EmitDeleted(UINT32* length, void* out)
{
    if (node_.IsRoot() || node_.IsDeleted() || !node_.GetVolume().Meta())
        return Failure(kCodeNoMoreEntries);
    const Volume& volume = node_.GetVolume();
    std::unique_ptr<MetadataSession> session;
    if (!volume.Meta()->MayHaveDeleted())
        return Failure(kCodeNoMoreEntries);
    if (const TALSTATUS status = Store::OpenMetadata(volume, &session); Failed(status))
        return status;
    const access::MemberFilter filter(&volume, node_.Path());
    for (DeletedEntry entry{lastDeleted_, {}, {}, 0};; lastDeleted_ = entry.id) {
        if (call::IsCancelled())
            return kCancelled;
        if (const TALSTATUS status = session->NextDeleted(node_.Path(), entry.id, &entry);
            Failed(status))
            return status;
        if (!filter.IsListed(entry.name))
            continue;
        const std::string stored = std::to_string(entry.id);
        FileInfo info;
        int error = volume.Fs().InspectAt(volume.Deleted(), stored.c_str(), &info);
        // One that is being deleted or purged at this moment has an entry and no file, or none of
        // a kind that is served.
        if (error == ENOENT || (error == 0 && !info.isDirectory && !info.isRegular))
            continue;
        if (error == 0)
            error = volume.GetCreatedOfChild(volume.Deleted(), stored.c_str(), &info);
        TALSTATUS status = StatusFromErrno(error);
        bool hidden = false;
        if (!Failed(status) && volume.MayHaveProperties())
            status = session->IsHidden(".kest/deleted/" + stored, &hidden);
        if (!Failed(status))
            status = PackDeleted(entry, info, hidden, length, out);
        if (!Failed(status))
            lastDeleted_ = entry.id;
        return status;
    }
}

TALSTATUS FileCollection::PackDeleted(const DeletedEntry& entry, const FileInfo& info, bool hidden,
                                      UINT32* length, void* out)
{
    WCHAR name[kMaxNameBytes];
    size_t units = 0;
    if (base::Utf8ToUtf16(entry.name, name, kMaxNameBytes, units) != base::Converted::Whole)
        return Failure(kCodeUnsuccessful);
    constexpr size_t kHead =
        offsetof(DAV_DELETED_ENTRY, Enum) + offsetof(DAV_COMMON_ENUM, DisplayName);
    const size_t needed = std::max(kHead + units * sizeof(WCHAR), sizeof(DAV_DELETED_ENTRY));
    if (*length < needed) {
        *length = static_cast<UINT32>(needed);
        return Failure(kCodeBufferTooSmall);
    }
    // Escaped: pages put it into links as it is.
    const std::string uri =
        ModulePath() + base::PercentEncode("/" + node_.GetVolume().Name() + "/.kest/deleted/" +
                                           std::to_string(entry.id) + "/" + entry.name);
    deletedUri_.assign(uri.begin(), uri.end()); // the moniker apart, all ASCII
    auto* const record = static_cast<DAV_DELETED_ENTRY*>(out);
    record->FileID = static_cast<UINT64>(entry.id);
    record->DeleteTime = entry.time;
    record->DeletorID = 0; // users have no numbers here
    Fill(info, &record->Enum);
    if (hidden)
        record->Enum.Attributes |= kAttributeHidden;
    record->Enum.State = 1;
    record->Enum.URILength = static_cast<UINT32>(deletedUri_.size() * sizeof(WCHAR));
    record->Enum.pURI = deletedUri_.data();
    record->Enum.DisplayNameLength = static_cast<UINT32>(units * sizeof(WCHAR));
    std::memcpy(static_cast<char*>(out) + kHead, name, units * sizeof(WCHAR));
    *length = static_cast<UINT32>(needed);
    return TAL_STATUS_SUCCESS;
}

} // namespace filestore
