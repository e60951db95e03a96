// SPDX-License-Identifier: Apache-2.0
//
// Content on its way in, published when it is whole.
#include "providers/filestore/upload.h"

#include <cerrno>

#include "providers/filestore/access.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/room.h"

namespace filestore {

UINT32 WithReadOnly(UINT32 mode, bool on)
{
    // Made writable again it is the owner's; wider rights are not for a client to give.
    return on ? mode & ~0222u : (mode & 0222 ? mode : mode | 0200);
}

TALSTATUS Upload::LookAtParent(std::string_view path)
{
    if (!volume_.IsWritable())
        return Failure(kCodeAccessDenied);
    if (path.empty())
        return Failure(kCodeMethodNotAllowed);
    if (const int error = volume_.OpenParent(path, &parent_))
        return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict)
                                                   : StatusFromErrno(error);
    path_ = path;
    const UINT32 rights = access::RightsOn(volume_, path);
    mayCreate_ = (rights & kRightCreate) != 0;
    mayChange_ = (rights & kRightChange) != 0;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Upload::Look(std::string_view path)
{
    const TALSTATUS status = LookAtParent(path);
    return Failed(status) ? status : LookAtName();
}

TALSTATUS Upload::BeginWithFile(std::string_view path, FileHandle directory, std::string name)
{
    if (const TALSTATUS status = Look(path); Failed(status))
        return status;
    FileSystem& fs = volume_.Fs();
    if (const int error = fs.OpenAt(directory, name.c_str(), OpenFor::Changing, file_.Out(fs)))
        return StatusFromErrno(error);
    origin_ = directory;
    tmpName_ = std::move(name);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Upload::Begin(std::string_view path, bool seemsFree)
{
    if (const TALSTATUS status = LookAtParent(path); Failed(status))
        return status;
    if (seemsFree && mayCreate_ && mayChange_ && MakeUnnamed() == 0)
        return TAL_STATUS_SUCCESS;
    if (const TALSTATUS status = LookAtName(); Failed(status))
        return status;
    if (!replaces_)
        if (const int error = WithRoom(store_, volume_, 0, [&] { return MakeUnnamed(); });
            error != EOPNOTSUPP)
            return StatusFromErrno(error);
    std::string name = volume_.UniqueName();
    if (const int error = WithRoom(store_, volume_, 0, [&] {
            return volume_.Fs().CreateFile(volume_.Tmp(), name.c_str(), file_.Out(volume_.Fs()));
        }))
        return StatusFromErrno(error);
    tmpName_ = std::move(name);
    return TAL_STATUS_SUCCESS;
}

// A file for a free name needs none until then, which spares a rename. It is made in the directory
// that it is for: file systems keep what one directory holds together on the disk. Where it is to
// be on the disk before it is answered it has to have one: not every file system keeps the content
// of a file without a name when it is synced.
int Upload::MakeUnnamed()
{
    if (volume_.Sync() != SyncLevel::None)
        return EOPNOTSUPP;
    const int error = volume_.Fs().CreateUnnamed(parent_->Get(), file_.Out(volume_.Fs()));
    isUnnamed_ = error == 0;
    return error;
}

TALSTATUS Upload::JudgeRights(bool isThere) const
{
    if (isThere ? mayChange_ : mayCreate_)
        return TAL_STATUS_SUCCESS;
    return access::RequireAny(volume_, path_, isThere ? kRightChange : kRightCreate);
}

// Takes note of what bears the name now, and whether it may be replaced.
TALSTATUS Upload::LookAtName()
{
    FileInfo info;
    const int error = volume_.Fs().InspectAt(parent_->Get(), Leaf(), &info);
    if (error && error != ENOENT)
        return StatusFromErrno(error);
    if (const TALSTATUS status = JudgeRights(error == 0); Failed(status))
        return status;
    if (error)
        return conditions_.Judge(nullptr);
    if (info.isDirectory)
        return Failure(kCodeMethodNotAllowed);
    if (!info.isRegular && !info.isLink)
        return Failure(kCodeAccessDenied); // a device or a pipe is not replaced by a file
    if (info.isRegular && IsReadOnly(info))
        return Failure(kCodeAccessDenied);
    if (mustBeFree_)
        return Failure(kCodePreconditionFailed);
    replaces_ = true;
    if (info.isRegular)
        old_ = info;
    return conditions_.Judge(&info);
}

TALSTATUS Upload::BeginWithContent(std::string_view path, FileHandle content, UINT64 size)
{
    if (const TALSTATUS status = Begin(path, false); Failed(status))
        return status;
    return StatusFromErrno(WithRoom(store_, volume_, size, [&] {
        return volume_.Fs().CopyContent(content, file_.Get(), size, {});
    }));
}

TALSTATUS Upload::Write(UINT64 offset, const void* data, UINT32 size)
{
    if (!HasFile())
        return Failure(kCodeAccessDenied);
    const TALSTATUS status = StatusFromErrno(WithRoom(store_, volume_, size, [&] {
        return volume_.Fs().Write(file_.Get(), offset, data, size);
    }));
    if (Failed(status) && !Failed(failed_))
        failed_ = status;
    return status;
}

TALSTATUS Upload::SetLength(UINT64 length)
{
    if (!HasFile())
        return Failure(kCodeAccessDenied);
    const TALSTATUS status = StatusFromErrno(
        WithRoom(store_, volume_, 0, [&] { return volume_.Fs().SetSize(file_.Get(), length); }));
    if (Failed(status) && !Failed(failed_))
        failed_ = status;
    return status;
}

// Gives the new file what the old one had, and what the caller asked for.
int Upload::ApplyAttributes()
{
    if (old_ && !created_)
        if (const int error = TakeOverCreated())
            return error;
    if (created_ && !ShowsByItself(*created_)) {
        // A file system without tags shows its own date: that is no reason to refuse content.
        const int error = volume_.KeepCreated(file_.Get(), *parent_, *created_);
        if (error && error != EOPNOTSUPP)
            return error;
    }
    FileSystem& fs = volume_.Fs();
    if (modified_)
        if (const int error = fs.SetModified(file_.Get(), *modified_))
            return error;
    // With its date as the file system keeps it. What follows changes none.
    if (old_ || isToBeDescribed_)
        if (const int error = fs.Inspect(file_.Get(), &made_))
            return error;
    return ApplyRights();
}

int Upload::TakeOverCreated()
{
    bool isKept = false;
    if (const int error = volume_.HasKeptDates(*parent_, &isKept))
        return error;
    if (isKept)
        if (const int error = volume_.GetCreatedOfChild(parent_->Get(), Leaf(), &*old_))
            return error;
    created_ = old_->created;
    return 0;
}

int Upload::ApplyRights()
{
    FileSystem& fs = volume_.Fs();
    // The owner stays if the serving account may give files away.
    if (old_ && (made_.owner != old_->owner || made_.group != old_->group) &&
        fs.SetOwner(file_.Get(), old_->owner, old_->group) == 0) {
        made_.owner = old_->owner;
        made_.group = old_->group;
    }
    UINT32 mode = old_ ? old_->mode : fs.NewFileMode();
    if (readOnly_)
        mode = WithReadOnly(mode, *readOnly_);
    if (mode == fs.NewFileMode())
        return 0;
    made_.mode = mode;
    return fs.SetMode(file_.Get(), mode);
}

// Whether the file will be told to be from `created` without that being kept: a new file shows the
// date of its content if that is older. Dates are told in whole seconds.
bool Upload::ShowsByItself(UINT64 created) const
{
    return !old_ && modified_ && *modified_ / kTicksPerSecond == created / kTicksPerSecond &&
           *modified_ <= store_.Now();
}

TALSTATUS Upload::Finish()
{
    if (Failed(failed_))
        return failed_;
    int error = ApplyAttributes();
    if (error == 0 && volume_.Sync() != SyncLevel::None)
        error = volume_.Fs().Sync(file_.Get(), volume_.Sync() == SyncLevel::Full);
    return StatusFromErrno(error);
}

TALSTATUS Upload::StatusOfTaking(int error) const
{
    if (error == EEXIST)
        return Failure(kCodePreconditionFailed); // it had to be free
    // The leaf became a directory, or its directory went, while the content arrived.
    return error == EISDIR || error == ENOENT ? Failure(kCodeConflict) : StatusFromErrno(error);
}

// Brings the file to where a rename reaches its name: another file system is mounted inside the
// volume. Known only now, as hardly anybody has one and every PUT would have to look for it; the
// content that has arrived elsewhere is copied. EREMOTE where that was done before.
int Upload::CrossOver()
{
    if (nearby_.IsEntered())
        return EREMOTE;
    std::string name = volume_.UniqueName();
    if (const int error = nearby_.Enter(volume_.Fs(), parent_->Get()))
        return error;
    const int error = isUnnamed_ ? volume_.Fs().GiveName(file_.Get(), nearby_.Get(), name.c_str())
                                 : CopyNearby(name);
    if (error) {
        nearby_.Leave();
        return error;
    }
    if (!isUnnamed_)
        left_ = std::move(tmpName_);
    tmpName_ = std::move(name);
    isUnnamed_ = false;
    return 0;
}

// What the content was copied from. Another's is left alone until the copy has its name.
void Upload::RemoveLeft(bool isPublished)
{
    if (left_.empty() || (origin_ != kNoFile && !isPublished))
        return;
    const FileHandle directory = origin_ == kNoFile ? volume_.Tmp() : origin_;
    (void)volume_.Fs().RemoveFile(directory, left_.c_str()); // else the next start does
    left_.clear();
}

int Upload::CopyNearby(const std::string& name)
{
    FileSystem& fs = volume_.Fs();
    FileInfo info;
    if (const int error = fs.Inspect(file_.Get(), &info))
        return error;
    OpenFile copy;
    if (const int error = fs.CreateFile(nearby_.Get(), name.c_str(), copy.Out(fs)))
        return error;
    int error = fs.CopyContent(file_.Get(), copy.Get(), info.size, {});
    std::swap(file_, copy);
    if (error == 0)
        error = ApplyAttributes();
    if (error == 0 && volume_.Sync() != SyncLevel::None)
        error = fs.Sync(file_.Get(), volume_.Sync() == SyncLevel::Full);
    if (error) {
        std::swap(file_, copy);
        (void)fs.RemoveFile(nearby_.Get(), name.c_str());
    }
    return error;
}

// A rename replaces what bears the name, a new link does not.
int Upload::LinkOrRename()
{
    FileSystem& fs = volume_.Fs();
    return isUnnamed_ ? fs.GiveName(file_.Get(), parent_->Get(), Leaf())
                      : fs.Rename(Origin(), tmpName_.c_str(), parent_->Get(), Leaf(),
                                  !mustBeFree_ && mayChange_);
}

TALSTATUS Upload::TakeName()
{
    int error = LinkOrRename();
    if (error == EREMOTE) {
        error = CrossOver();
        if (error == 0)
            error = LinkOrRename();
    }
    if (error == EEXIST && !mayChange_)
        return JudgeRights(true); // somebody was faster
    return error == EEXIST && !mustBeFree_ ? Replace() : StatusOfTaking(error);
}

// Somebody else was faster with the name that was free: the later one stays.
TALSTATUS Upload::Replace()
{
    if (const TALSTATUS status = LookAtName(); Failed(status))
        return status;
    const TALSTATUS status = NameInTmp();
    return Failed(status) ? status : TakeName();
}

// From here on the file has a name, and can take the place of another.
TALSTATUS Upload::NameInTmp()
{
    if (!isUnnamed_)
        return TAL_STATUS_SUCCESS;
    std::string name = volume_.UniqueName();
    int error = ApplyAttributes();
    if (error == 0)
        error = volume_.Fs().GiveName(file_.Get(), volume_.Tmp(), name.c_str());
    if (error == EREMOTE)
        return StatusFromErrno(CrossOver());
    if (error)
        return StatusFromErrno(error);
    tmpName_ = std::move(name);
    isUnnamed_ = false;
    return TAL_STATUS_SUCCESS;
}

// The caller holds the name against other changes of this process.
TALSTATUS Upload::TakeJudgedName()
{
    FileInfo there;
    const int error = volume_.Fs().InspectAt(parent_->Get(), Leaf(), &there);
    if (error && error != ENOENT)
        return StatusFromErrno(error);
    if (const TALSTATUS status = conditions_.Judge(error ? nullptr : &there); Failed(status))
        return status;
    if (error) {
        mustBeFree_ = true; // as it was when that was judged
        return TakeName();
    }
    TALSTATUS status = LookAtName();
    if (!Failed(status))
        status = NameInTmp();
    return Failed(status) ? status : ReplaceJudged(there);
}

// Changes of other processes show by what comes out when the names trade: another than was judged
// goes back.
TALSTATUS Upload::ReplaceJudged(const FileInfo& there)
{
    FileSystem& fs = volume_.Fs();
    const auto trade = [&] {
        return fs.Exchange(Origin(), tmpName_.c_str(), parent_->Get(), Leaf());
    };
    int error = trade();
    if (error == EREMOTE) {
        error = CrossOver();
        if (error == 0)
            error = trade();
    }
    if (error == EOPNOTSUPP)
        return TakeName();
    if (error)
        return StatusOfTaking(error);
    FileInfo out;
    if (fs.InspectAt(Origin(), tmpName_.c_str(), &out) != 0 || out.inode != there.inode ||
        out.modified != there.modified || out.size != there.size) {
        const TALSTATUS back = StatusFromErrno(trade());
        return Failed(back) ? back : Failure(kCodePreconditionFailed);
    }
    (void)fs.RemoveFile(Origin(), tmpName_.c_str()); // else the next start does
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Upload::Publish()
{
    if (!HasFile())
        return Failure(kCodeAccessDenied);
    {
        const NameGuard name(volume_.MutexOf(path_));
        const TALSTATUS status = conditions_.Any() ? TakeJudgedName() : TakeName();
        if (Failed(status))
            return status;
    }
    tmpName_.clear();
    isUnnamed_ = false;
    RemoveLeft(true);
    nearby_.Leave();
    // It has the name: another try with more room would find it taken.
    const int error = volume_.SyncNames(parent_->Get());
    return StatusFromErrno(IsFull(error) ? EIO : error);
}

void Upload::Discard()
{
    if (!tmpName_.empty() && (origin_ == kNoFile || nearby_.IsEntered()))
        (void)volume_.Fs().RemoveFile(Origin(), tmpName_.c_str()); // else the next start does
    RemoveLeft(false);
    nearby_.Leave();
    tmpName_.clear();
    isUnnamed_ = false;
    file_.Reset();
}

} // namespace filestore
