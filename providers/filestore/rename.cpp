// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/rename.h"

#include <cerrno>

#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

std::string Join(std::string_view parent, const std::string& leaf)
{
    return parent.empty() ? leaf : std::string(parent) + "/" + leaf;
}

} // namespace

TALSTATUS Rename::To(std::string leaf)
{
    toLeaf_ = std::move(leaf);
    toPath_ = Join(toParent_, toLeaf_);
    std::unique_ptr<MetadataSession> session;
    bool any = restored != 0;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (any || added || volume_.MayHaveLocks() || volume_.MayHaveProperties() ||
        volume_.Meta()->MayHaveDeleted())
        status = Store::OpenMetadata(volume_, &session);
    if (!Failed(status) && session && !any && !added)
        status = HasMetadata(*session, &any);
    if (!Failed(status) && session && (any || added || volume_.MayHaveLocks()))
        status = Announce(*session, &any);
    if (Failed(status))
        return status;
    status = any ? MoveAll(*session) : StatusFromErrno(MoveName());
    if (!Failed(status))
        walked::Forget(volume_, from_.path);
    else if (session)
        Withdraw(*session);
    return status;
}

TALSTATUS Rename::HasMetadata(MetadataSession& session, bool* any) const
{
    if (!volume_.MayHaveProperties() && !volume_.Meta()->MayHaveDeleted())
        return TAL_STATUS_SUCCESS;
    TALSTATUS status = session.HasAny(from_.path, any);
    if (!Failed(status) && !*any && toServed)
        status = session.HasAny(toPath_, any);
    return status;
}

// `*any`: there is metadata, or there are locks, which come after the rename.
TALSTATUS Rename::Announce(MetadataSession& session, bool* any)
{
    TALSTATUS status = session.Begin();
    if (!Failed(status))
        status = WriteDown(session, any);
    if (!Failed(status))
        status = session.Commit();
    if (Failed(status))
        session.Rollback();
    return status;
}

// The locks are looked at before anything is written down, and again when it counts. First the list
// of deleted entries, then the rename: an entry without its files is harmless, files without an
// entry would be lost.
TALSTATUS Rename::WriteDown(MetadataSession& session, bool* any)
{
    TALSTATUS status = CheckLocks(session);
    if (!Failed(status) && !*any)
        status = HasMetadata(session, any);
    *any = *any || volume_.MayHaveLocks();
    if (!Failed(status) && added) {
        status = session.AddDeleted(added);
        toLeaf_ = std::to_string(added->id);
        toPath_ = Join(toParent_, toLeaf_);
    }
    if (Failed(status) || !*any)
        return status;
    intent_ = {0, volume_.Token(), from_.path, toPath_};
    return session.AddIntent(&intent_);
}

// It has come to nothing. What cannot be taken back the next start settles, and a deleted entry
// without files is retired in time.
void Rename::Withdraw(MetadataSession& session) const
{
    session.Rollback();
    if ((!added && !intent_.id) || Failed(session.Begin()))
        return;
    TALSTATUS status = added ? session.RemoveDeleted(added->id) : TAL_STATUS_SUCCESS;
    if (!Failed(status) && intent_.id)
        status = session.RemoveIntent(intent_.id);
    if (!Failed(status))
        (void)session.Commit();
    session.Rollback();
}

TALSTATUS Rename::MoveAll(MetadataSession& session)
{
    TALSTATUS status = session.Begin();
    if (!Failed(status))
        status = CheckLocks(session);
    if (!Failed(status))
        status = StatusFromErrno(MoveName());
    if (Failed(status))
        return status;
    status = MoveRows(session);
    if (!Failed(status))
        status = session.Commit();
    // The name has moved, and the intent stands: the metadata follows at the next start.
    if (Failed(status)) {
        session.Rollback();
        Log(kLogError, "volume '" + volume_.Name() + "': the properties of '" + from_.path +
                           "' stay behind until the next start, code " +
                           std::to_string(Code(status)));
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Rename::MoveRows(MetadataSession& session) const
{
    TALSTATUS status = session.ForgetTree(forget ? from_.path : toPath_);
    if (!Failed(status) && !forget)
        status = session.RenameTree(from_.path, toPath_);
    for (const std::string_view tree : {std::string_view(from_.path), std::string_view(toPath_)})
        if (!Failed(status))
            status = session.RemoveLocksWithin(tree);
    if (!Failed(status) && restored)
        status = session.RemoveDeleted(restored);
    return Failed(status) ? status : session.RemoveIntent(intent_.id);
}

TALSTATUS Rename::CheckLocks(MetadataSession& session) const
{
    if (!volume_.MayHaveLocks()) // in a transaction the answer is exact
        return TAL_STATUS_SUCCESS;
    const TALSTATUS status = guard_.CheckLocks(session, from_.path, Reach::Tree);
    return Failed(status) || !toServed ? status : guard_.CheckLocks(session, toPath_, Reach::Tree);
}

int Rename::MoveName()
{
    FileSystem& fs = volume_.Fs();
    const auto rename = [&] {
        return fs.Rename(from_.directory->Get(), from_.leaf.c_str(), toDirectory_, toLeaf_.c_str(),
                         replace);
    };
    int error = rename();
    // A directory that moves is written to (its way up changes): being read-only must not keep it
    // where it is.
    OpenFile self;
    if (error == EACCES && from_.info.isDirectory && IsReadOnly(from_.info) &&
        fs.Open(from_.path.c_str(), OpenFor::Locating, self.Out(fs)) == 0 &&
        fs.SetMode(self.Get(), from_.info.mode | 0200) == 0) {
        error = rename();
        (void)fs.SetMode(self.Get(), from_.info.mode); // moved or not, it is as it was
    }
    return error;
}

} // namespace filestore
