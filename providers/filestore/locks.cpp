// SPDX-License-Identifier: Apache-2.0
//
// Making, refreshing and ending locks.
#include "providers/filestore/locks.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/conditions.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/ownertext.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

// A random identifier (RFC 9562 section 5.4): 122 bits that nobody can guess.
int NewToken(FileSystem& fs, std::string* out)
{
    UINT8 b[16];
    if (const int error = fs.Random(b, sizeof b))
        return error;
    b[6] = static_cast<UINT8>(0x40 | (b[6] & 0x0F));
    b[8] = static_cast<UINT8>(0x80 | (b[8] & 0x3F));
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0],
                  b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
                  b[14], b[15]);
    *out = text;
    return 0;
}

// False for a timeout that is neither without end nor positive.
bool ExpiryOf(UINT64 now, INT64 timeout, UINT64* out)
{
    if (timeout != -1 && timeout <= 0)
        return false;
    const UINT64 room = kNever - now;
    *out = timeout == -1 || static_cast<UINT64>(timeout) >= room
               ? kNever
               : now + static_cast<UINT64>(timeout);
    return true;
}

TALSTATUS CheckLockable(const Target& target)
{
    return target.IsRoot() || target.deletedId || !target.volume->IsWritable()
               ? Failure(kCodeAccessDenied)
               : TAL_STATUS_SUCCESS;
}

bool Covers(const LockRecord& lock, std::string_view path)
{
    return lock.path == path || (lock.depth != 0 && IsWithin(path, lock.path));
}

// Whether another lock keeps this one from being made.
TALSTATUS CheckConflicts(const Guard& guard, const Volume& volume, MetadataSession& session,
                         const LockRecord& wanted, UINT64 now)
{
    std::vector<LockRecord> others;
    TALSTATUS status = CoveringLocks(session, wanted.path, now, &others);
    if (!Failed(status) && wanted.depth != 0)
        status = session.LocksWithin(wanted.path, now, &others);
    if (Failed(status))
        return status;
    std::set<std::string_view> blocking; // the roots of those that do
    for (const LockRecord& other : others)
        if (wanted.scope == Exclusive || other.scope == Exclusive)
            blocking.insert(other.path);
    for (const std::string_view root : blocking)
        guard.NoteRefusal(volume, root);
    return blocking.empty() ? TAL_STATUS_SUCCESS : Failure(kCodeLocked);
}

// The empty file that a lock on a free name makes.
class NewFile {
  public:
    explicit NewFile(const Volume& volume) : volume_(volume) {}
    ~NewFile()
    {
        if (made_ && IsAsMade())
            (void)volume_.Fs().RemoveFile(parent_->Get(), leaf_.c_str()); // empty: nothing is lost
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // `missing` tells whether the name is free. Code 40 unless the conditions hold for what is
    // there.
    TALSTATUS Look(std::string_view path, const Conditions& conditions, bool* missing)
    {
        *missing = false;
        if (path.empty())
            return TAL_STATUS_SUCCESS;
        if (const int error = volume_.OpenParent(path, &parent_))
            return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict)
                                                       : StatusFromErrno(error);
        leaf_ = LeafOf(path);
        FileInfo info;
        const int error = volume_.Fs().InspectAt(parent_->Get(), leaf_.c_str(), &info);
        *missing = error == ENOENT;
        if (error && !*missing)
            return StatusFromErrno(error);
        return conditions.Judge(*missing ? nullptr : &info);
    }
    // Somebody else may have been faster: then there is something to lock, too.
    // Its date is stamped, as that of all content of the store's own: a client that takes the tag
    // of the LOCK's reply for its "If-Match" has to find it strong.
    TALSTATUS Make(const Conditions& conditions, UINT64 now)
    {
        int error = volume_.Fs().CreateFile(parent_->Get(), leaf_.c_str(), file_.Out(volume_.Fs()));
        made_ = error == 0;
        if (error == EEXIST)
            return conditions.JudgeName(volume_.Fs(), parent_->Get(), leaf_.c_str());
        if (error == 0)
            error = volume_.Fs().Inspect(file_.Get(), &info_);
        if (error == 0)
            error = volume_.Fs().SetModified(file_.Get(), StampedDate(now, false));
        if (error == 0 && volume_.Sync() == SyncLevel::Full)
            error = volume_.Fs().Sync(file_.Get(), true); // the date; there is no content
        return StatusFromErrno(error ? error : volume_.SyncNames(parent_->Get()));
    }
    // It stays: the lock stands. Whoever takes that back knows it by its token.
    void Keep(Volume& volume, std::string_view token) noexcept
    {
        if (made_)
            volume.NamesMadeByLocks().Add(token, info_.inode);
        made_ = false;
    }

  private:
    // Nobody has written it or put something else in its place meanwhile.
    bool IsAsMade() const
    {
        FileInfo made, there;
        return volume_.Fs().Inspect(file_.Get(), &made) == 0 && // perhaps it could not be before
               volume_.Fs().InspectAt(parent_->Get(), leaf_.c_str(), &there) == 0 &&
               there.inode == made.inode && there.size == 0;
    }

    const Volume& volume_;
    DirectoryRef parent_;
    OpenFile file_;
    FileInfo info_; // of what was made
    std::string leaf_;
    bool made_ = false;
};

// Whether nothing but that lock has ever been about the file: it is as empty as it was made, and
// there are neither locks nor properties.
TALSTATUS IsUntouched(const Store& store, MetadataSession& session, const Volume& volume,
                      const std::string& path, FileHandle directory, UINT64 inode, bool* out)
{
    *out = false;
    FileInfo info;
    if (const int error =
            volume.Fs().InspectAt(directory, std::string(LeafOf(path)).c_str(), &info))
        return error == ENOENT ? TAL_STATUS_SUCCESS : StatusFromErrno(error);
    if (info.inode != inode || info.size != 0)
        return TAL_STATUS_SUCCESS;
    std::vector<LockRecord> locks;
    bool hasRows = false;
    TALSTATUS status = session.LocksAt(path, store.Now(), &locks);
    if (!Failed(status))
        status = session.HasAny(path, &hasRows);
    *out = !Failed(status) && locks.empty() && !hasRows;
    return status;
}

// The empty file that a lock has made goes when nobody has heard of the lock (RFC 4918 section
// 9.10.4 leaves it only to who has). The lock is given up by then: of what fails, the file stays.
TALSTATUS RemoveMade(const Store& store, Volume& volume, const std::string& path, UINT64 inode)
{
    DirectoryRef parent;
    std::unique_ptr<MetadataSession> session;
    bool isUntouched = false;
    TALSTATUS status = StatusFromErrno(volume.OpenParent(path, &parent));
    if (!Failed(status))
        status = Store::OpenMetadata(volume, &session);
    if (!Failed(status))
        status = session->Begin(); // nobody takes a lock meanwhile
    if (Failed(status))
        return status;
    const NameGuard name(volume.MutexOf(path));
    status = IsUntouched(store, *session, volume, path, parent->Get(), inode, &isUntouched);
    if (Failed(status) || !isUntouched)
        return status;
    return StatusFromErrno(
        volume.Fs().RemoveFile(parent->Get(), std::string(LeafOf(path)).c_str()));
}

} // namespace

TALSTATUS MakeLock(const Store& store, const Guard& guard, const Target& target,
                   const LockRequest& request, const LockReporter& report)
{
    if (const TALSTATUS status = CheckLockable(target); Failed(status))
        return status;
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *target.volume;
    const UINT64 now = store.Now();
    LockRecord lock;
    lock.path = target.path.View();
    lock.scope = request.scope;
    lock.type = request.type;
    lock.depth = request.depth ? -1 : 0;
    lock.owner = OwnerForReplies(request.owner);
    if (request.isMarkup)
        lock.markup = request.owner;
    lock.creator = guard.User();
    if (!ExpiryOf(now, request.timeout, &lock.expires))
        return Failure(kCodeInvalidParameter);
    if (const int error = NewToken(volume.Fs(), &lock.token))
        return StatusFromErrno(error);

    NewFile file(volume);
    bool missing = false;
    std::unique_ptr<MetadataSession> session;
    const Conditions conditions = guard.On(volume, lock.path);
    TALSTATUS status = Store::OpenMetadata(volume, &session);
    if (!Failed(status))
        status = session->Begin();
    if (!Failed(status))
        status = file.Look(lock.path, conditions, &missing);
    if (!Failed(status))
        status = access::RequireLock(volume, lock.path, missing, lock.depth);
    if (!Failed(status))
        status = CheckConflicts(guard, volume, *session, lock, now);
    if (!Failed(status) && missing) {
        status = guard.CheckLocks(volume, *session, lock.path, Reach::Membership);
        if (!Failed(status) && volume.MayHaveProperties())
            status = session->ForgetTree(lock.path); // of something that went without our doing
        if (!Failed(status))
            status = file.Make(conditions, store.Now());
    }
    if (!Failed(status))
        status = session->AddLock(lock);
    if (!Failed(status))
        status = report(lock, missing);
    if (!Failed(status))
        status = session->Commit();
    if (!Failed(status))
        file.Keep(volume, lock.token); // cannot fail, as all that follows
    return status;
}

TALSTATUS RefreshLock(const Guard& guard, const Target& target, UINT64 now, INT64 timeout,
                      LockRecord* out)
{
    if (const TALSTATUS status = CheckLockable(target); Failed(status))
        return status;
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    UINT64 expires = 0;
    if (!ExpiryOf(now, timeout, &expires))
        return Failure(kCodeInvalidParameter);
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(*target.volume, &session);
    if (!Failed(status))
        status = session->Begin(); // the lock is not given up between the look and the change
    if (!Failed(status))
        status = guard.On(*target.volume, target.path.View())
                     .JudgePath(target.volume->Fs(), target.path.CStr());
    if (Failed(status))
        return status;
    for (const std::string& token : guard.Tokens()) {
        status = session->FindLock(token, now, out);
        if (Failed(status) && Code(status) != kCodeNotFound)
            return status;
        if (Failed(status) || !Covers(*out, target.path.View()))
            continue;
        if (out->creator != guard.User())
            return Failure(kCodeAccessDenied);
        out->expires = expires;
        status = session->SetLockExpiry(token, expires);
        return Failed(status) ? status : session->Commit();
    }
    return Failure(kCodePreconditionFailed);
}

TALSTATUS ReleaseLock(const Store& store, const Guard& guard, const Target& target,
                      std::string_view token)
{
    if (target.IsRoot() || token.empty())
        return Failure(kCodeNotFound);
    std::unique_ptr<MetadataSession> session;
    LockRecord lock;
    TALSTATUS status = Store::OpenMetadata(*target.volume, &session);
    if (!Failed(status))
        status = session->Begin();
    if (!Failed(status))
        status = session->FindLock(token, store.Now(), &lock);
    if (Failed(status))
        return status;
    if (!Covers(lock, target.path.View()))
        return Failure(kCodeNotFound);
    if (lock.creator != guard.User())
        return Failure(kCodeAccessDenied);
    status = session->RemoveLock(token);
    if (!Failed(status))
        status = session->Commit();
    session.reset();
    if (Failed(status) || call::Method() != KestMethodLock) // else it is taken back
        return status;
    const std::optional<UINT64> made = target.volume->NamesMadeByLocks().Take(token);
    if (made)
        (void)Protected([&] { return RemoveMade(store, *target.volume, lock.path, *made); });
    return status;
}

TALSTATUS DescribeLock(const LockRecord& lock, UINT64 now, UINT32* size, DAV_LOCK_2* out)
{
    const size_t used = offsetof(DAV_LOCK_2, Token) + lock.token.size();
    const auto needed = static_cast<UINT32>(std::max(used, sizeof(DAV_LOCK_2)));
    if (*size < needed) {
        *size = needed;
        return Failure(kCodeBufferTooSmall);
    }
    std::memset(out, 0, sizeof *out);
    out->Type = lock.type;
    out->Scope = lock.scope;
    out->Depth = lock.depth;
    out->Timeout = lock.expires == kNever ? -1
                   : lock.expires > now   ? static_cast<INT64>(lock.expires - now)
                                          : 0;
    out->OwnerLength = static_cast<UINT32>(std::min(lock.owner.size(), kMaxOwnerBytes));
    std::memcpy(out->Owner, lock.owner.data(), out->OwnerLength);
    out->TokenLength = static_cast<UINT32>(lock.token.size());
    std::memcpy(reinterpret_cast<char*>(out) + offsetof(DAV_LOCK_2, Token), lock.token.data(),
                lock.token.size());
    *size = needed;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS NextLock(const Store& store, DAV_LOCK_PLACE* place, LockRecord* out,
                   const Volume** volume)
{
    const auto& volumes = store.Volumes();
    for (; place->Volume < volumes.size(); *place = {place->Volume + 1, 0}) {
        const auto& v = volumes[place->Volume];
        std::unique_ptr<MetadataSession> session;
        if (!v->MayHaveLocks())
            continue;
        TALSTATUS status = Store::OpenMetadata(*v, &session);
        if (!Failed(status))
            status = session->NextLock(store.Now(), &place->Lock, out);
        if (Code(status) == kCodeNoMoreEntries)
            continue;
        *volume = v.get();
        return status;
    }
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS BreakLock(const Store& store, std::string_view token)
{
    for (const auto& v : store.Volumes()) {
        std::unique_ptr<MetadataSession> session;
        LockRecord lock;
        if (!v->MayHaveLocks())
            continue;
        if (const TALSTATUS status = Store::OpenMetadata(*v, &session); Failed(status))
            return status;
        if (!Failed(session->FindLock(token, store.Now(), &lock)))
            return WithReserve(store, *v, [&] { return session->RemoveLock(token); });
    }
    return Failure(kCodeNotFound);
}

} // namespace filestore
