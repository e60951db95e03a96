// SPDX-License-Identifier: Apache-2.0
//
// Packing a collection's members with all that is asked of them.
#include "providers/filestore/collection3.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/guard.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/operation.h"
#include "providers/filestore/request_cache.h"

namespace filestore {

namespace {

constexpr UINT32 kLeastRoom = 1024;

size_t RecordSize(size_t nameBytes)
{
    constexpr size_t kAlignment = 8;
    const size_t used = std::max(offsetof(DAV_MEMBER, Name) + nameBytes, sizeof(DAV_MEMBER));
    return (used + kAlignment - 1) / kAlignment * kAlignment;
}

} // namespace

TALSTATUS CollectionTearOff::Open(SCHANDLE, UNICODE_STRING* path, DAV_OBJECT_INFO* info)
{
    return Protected([&] {
        isOpen_ = false;
        listing_.Clear();
        Target target;
        const TALSTATUS status = store_.Locate(path, &target);
        return Failed(status) ? status : OpenTarget(&target, info);
    });
}

TALSTATUS CollectionTearOff::OpenTarget(Target* target, DAV_OBJECT_INFO* info)
{
    DAV_OBJECT_INFO record = DescribeRoot(store_);
    directory_.reset();
    if (target->IsRoot()) {
        request_cache::Drop();
    } else {
        const auto opened = std::make_shared<Directory>();
        FileInfo found;
        TALSTATUS status = OpenFound(store_, target, &opened->file, &found);
        if (!Failed(status) && !found.isDirectory)
            status = Failure(kCodeMethodNotAllowed);
        if (Failed(status))
            return status;
        opened->volume = target->volume;
        opened->path = target->path.View();
        directory_ = opened;
        open_directories::Add(directory_);
        record = DescribeObject(store_.Now(), target->volume, found, false);
    }
    volume_ = target->volume;
    path_ = target->path.View();
    next_ = 0;
    isOpen_ = true;
    WriteRecord(record, info);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS CollectionTearOff::GetMembers(UINT32* size, DAV_MEMBER* buffer)
{
    if (!isOpen_ || !size || !buffer)
        return Failure(kCodeInvalidParameter);
    if (*size < kLeastRoom) {
        *size = kLeastRoom;
        return Failure(kCodeBufferTooSmall);
    }
    return Protected([&] {
        if (!listing_.IsRead())
            if (const TALSTATUS status = ReadNames(); Failed(status)) {
                listing_.Clear();
                return status;
            }
        return Pack(size, reinterpret_cast<char*>(buffer));
    });
}

// What is asked of the metadata is asked once for all members.
TALSTATUS CollectionTearOff::ReadNames()
{
    withProperties_.clear();
    locked_.clear();
    isAllLocked_ = false;
    if (const TALSTATUS status = listing_.Read(volume_, directory_, path_, false); Failed(status))
        return status;
    if (!volume_ || (!volume_->MayHaveProperties() && !volume_->MayHaveLocks()))
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(*volume_, &session);
    if (!Failed(status) && volume_->MayHaveProperties())
        status = session->ChildrenWithProperties(path_, &withProperties_);
    if (!Failed(status) && volume_->MayHaveLocks())
        status = FindLocked(*session);
    return status;
}

TALSTATUS CollectionTearOff::FindLocked(MetadataSession& session)
{
    std::vector<LockRecord> covering, within;
    TALSTATUS status = CoveringLocks(session, path_, store_.Now(), &covering);
    if (!Failed(status))
        status = session.LocksWithin(path_, store_.Now(), &within);
    isAllLocked_ = std::any_of(covering.begin(), covering.end(),
                               [](const LockRecord& lock) { return lock.depth != 0; });
    for (const LockRecord& lock : within)
        if (lock.path != path_ && ParentOf(lock.path) == path_)
            locked_.emplace(LeafOf(lock.path));
    return status;
}

TALSTATUS CollectionTearOff::Pack(UINT32* size, char* buffer)
{
    const NameList& names = listing_.Names();
    const UINT64 now = store_.Now();
    size_t used = 0;
    DAV_MEMBER* last = nullptr;
    size_t lastAt = 0;
    for (; next_ < names.Count(); ++next_) {
        if (next_ % call::kNamesPerLook == 0 && call::IsCancelled())
            return Failure(kCodeTimeout);
        const std::string_view name = names.At(next_);
        const size_t needed = RecordSize(name.size());
        if (*size - used < needed)
            break;
        names.ExpectAfter(next_);
        auto* const record = reinterpret_cast<DAV_MEMBER*>(buffer + used);
        const TALSTATUS status = PackMember(name, now, record);
        if (Code(status) == kCodeNotFound)
            continue;
        if (Failed(status))
            return status;
        if (last)
            last->NextEntryOffset = static_cast<UINT32>(used - lastAt);
        last = record;
        lastAt = used;
        used += needed;
    }
    *size = static_cast<UINT32>(used);
    return last ? TAL_STATUS_SUCCESS : Failure(kCodeNoMoreEntries);
}

TALSTATUS CollectionTearOff::PackMember(std::string_view name, UINT64 now, DAV_MEMBER* out) const
{
    FileInfo info;
    if (const TALSTATUS status = listing_.Inspect(name.data(), &info); Failed(status))
        return status;
    out->NextEntryOffset = 0;
    out->NameLength = static_cast<UINT32>(name.size());
    out->Info = DescribeObject(now, nullptr, info, true);
    if (listing_.IsHidden(name.data()))
        out->Info.Attributes |= kAttributeHidden;
    if (!withProperties_.empty() && withProperties_.contains(std::string(name)))
        out->Info.Flags |= kObjectHasProperties;
    if (isAllLocked_ || (!locked_.empty() && locked_.contains(std::string(name))))
        out->Info.Flags |= kObjectHasLocks;
    std::memcpy(reinterpret_cast<char*>(out) + offsetof(DAV_MEMBER, Name), name.data(),
                name.size());
    return TAL_STATUS_SUCCESS;
}

} // namespace filestore
