// SPDX-License-Identifier: Apache-2.0
//
// Removing what need not be kept.
#include "providers/filestore/purge.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

// Entries are kept for days, and the whole list is read for those whose time is over: an index by
// time would cost more with every deletion.
// At most 64 removals every 2 ms: 100,000 files take some three seconds, and leave the disk idle
// for most of that.
constexpr int kRemovalsPerPause = 64;
// Entries that leave the list in one transaction, after one sync.
constexpr size_t kRetiredAtOnce = 64;
constexpr size_t kNamesPerRound = 4096; // of one directory
constexpr UINT64 kDay = 24 * 3600 * kTicksPerSecond;

// One directory of the purge directory loses its contents, then itself. Subdirectories move up
// beside it first: so the work needs no recursion, and no path grows too long.
class Emptying {
  public:
    Emptying(Volume& volume, const PurgePause& pause) : volume_(volume), pause_(pause) {}

    bool IsStopped() const { return stopped_; }
    bool HasRemoved() const { return removed_ != 0; }

    // False when the work is to end, or this one cannot be removed.
    bool Remove(const std::string& name)
    {
        const int error = volume_.Fs().RemoveFile(volume_.Purge(), name.c_str());
        if (error == 0 || error == ENOENT)
            return Count();
        return (error == EISDIR || error == EPERM) && RemoveDirectory(name);
    }

  private:
    bool RemoveDirectory(const std::string& name)
    {
        FileSystem& fs = volume_.Fs();
        OpenFile directory;
        FileInfo info;
        const std::string path = ".kest/purge/" + name;
        if (fs.Open(path.c_str(), OpenFor::Locating, directory.Out(fs)) != 0 ||
            fs.Inspect(directory.Get(), &info) != 0)
            return false;
        if ((info.mode & 0700) != 0700 && fs.SetMode(directory.Get(), info.mode | 0700) != 0)
            return false;
        if (fs.Open(path.c_str(), OpenFor::Directory, directory.Out(fs)) != 0)
            return false;
        for (;;) {
            NameCollector found(kNamesPerRound);
            if (fs.List(directory.Get(), found) != 0)
                return false;
            if (found.names.empty())
                break;
            for (const std::string& child : found.names)
                if (!RemoveChild(directory.Get(), child.c_str()))
                    return false;
        }
        const int error = fs.RemoveDirectory(volume_.Purge(), name.c_str());
        return (error == 0 || error == ENOENT) && Count();
    }
    bool RemoveChild(FileHandle directory, const char* name)
    {
        FileSystem& fs = volume_.Fs();
        int error = fs.RemoveFile(directory, name);
        if (error == EISDIR || error == EPERM) {
            const std::string aside = volume_.UniqueName();
            error = fs.Rename(directory, name, volume_.Purge(), aside.c_str(), false);
        }
        return (error == 0 || error == ENOENT) && Count();
    }
    bool Count()
    {
        stopped_ = ++removed_ % kRemovalsPerPause == 0 && !pause_();
        return !stopped_;
    }

    Volume& volume_;
    const PurgePause& pause_;
    int removed_ = 0;
    bool stopped_ = false;
};

} // namespace

// The names are on the disk before the list says so: no power cut leaves files that nobody knows
// of.
static int PutOnTheirWayOut(Volume& volume, const std::vector<INT64>& ids)
{
    for (const INT64 id : ids) {
        const int error = volume.Fs().Rename(volume.Deleted(), std::to_string(id).c_str(),
                                             volume.Purge(), volume.UniqueName().c_str(), false);
        if (error && error != ENOENT)
            return error;
    }
    int error = volume.SyncNames(volume.Purge());
    if (error == 0)
        error = volume.SyncNames(volume.Deleted());
    if (error) // the files have gone all the same
        volume.Pending().AddUnlisted(ids);
    return error;
}

static TALSTATUS RemoveFromList(const Volume& volume, MetadataSession& session,
                                const std::vector<INT64>& ids)
{
    session.Rollback();
    TALSTATUS status = session.Begin();
    for (const INT64 id : ids) {
        if (!Failed(status))
            status = session.RemoveDeleted(id);
        if (!Failed(status) && volume.MayHaveProperties())
            status = session.ForgetTree(PathOfDeleted(id));
    }
    if (!Failed(status))
        status = session.Commit();
    session.Rollback();
    return status;
}

// Rows that are to leave an entry with its files, and could not yet, would go with the entry.
static bool AreLeavingRows(Volume& volume, const std::vector<INT64>& ids)
{
    return !volume.Unfinished().IsEmpty() && std::ranges::any_of(ids, [&](INT64 id) {
        const std::string path = PathOfDeleted(id);
        return Failed(volume.RecoverAround(path)) || volume.Unfinished().Has(path);
    });
}

TALSTATUS RetireEntries(Volume& volume, MetadataSession& session, const std::vector<INT64>& ids)
{
    if (AreLeavingRows(volume, ids))
        return StatusFromErrno(EIO);
    if (const int error = PutOnTheirWayOut(volume, ids))
        return StatusFromErrno(error);
    call::HeldReports reports;
    const auto remove = [&] {
        return Protected([&] { return RemoveFromList(volume, session, ids); });
    };
    TALSTATUS status = remove();
    for (bool goesOn = true; Failed(status) && goesOn; status = remove()) // once more in any case
        goesOn = Code(status) == kCodeStorageFull && volume.GiveUpReserve();
    // The files are gone, which is what was asked for; the list follows as soon as it can.
    reports.Drop();
    if (Failed(status)) {
        volume.Pending().AddUnlisted(ids);
        Log(kLogWarning, "deleted entries of volume '" + volume.Name() +
                             "' stay in the list without files for now, code " +
                             std::to_string(Code(status)));
    }
    return TAL_STATUS_SUCCESS;
}

void RetireDeleted(const Store& store, Volume& volume)
{
    std::unique_ptr<MetadataSession> session;
    if (!volume.Meta() || !volume.Meta()->MayHaveDeleted() ||
        Failed(Store::OpenMetadata(volume, &session)))
        return;
    const UINT64 age = store.Settings().keepDeletedDays * kDay;
    const UINT64 now = store.Now();
    DeletedEntry entry;
    std::vector<INT64> ids;
    do {
        ids.clear();
        while (now > age && ids.size() < kRetiredAtOnce &&
               !Failed(session->NextExpired(now - age, entry.id, &entry)))
            ids.push_back(entry.id);
        const TALSTATUS status =
            ids.empty() ? TAL_STATUS_SUCCESS : RetireEntries(volume, *session, ids);
        if (Failed(status)) {
            Log(kLogWarning, "deleted entries of volume '" + volume.Name() +
                                 "' cannot be purged, code " + std::to_string(Code(status)));
            return;
        }
    } while (ids.size() == kRetiredAtOnce);
}

bool EmptyPurge(Volume& volume, const PurgePause& pause)
{
    if (!volume.IsWritable())
        return false;
    volume.RemoveAbandoned();
    Emptying work(volume, pause);
    for (;;) {
        NameCollector found(kNamesPerRound);
        if (volume.Fs().List(volume.Purge(), found) != 0 || found.names.empty())
            break;
        // One that cannot be removed does not keep the others.
        bool progress = false;
        for (const std::string& name : found.names) {
            progress = work.Remove(name) || progress;
            if (work.IsStopped())
                return work.HasRemoved();
        }
        if (!progress)
            break;
    }
    return work.HasRemoved();
}

// In the transaction, in which nobody makes the name: what is there has rows of its own.
static TALSTATUS ForgetMissing(const Volume& volume, MetadataSession& session,
                               const std::string& path)
{
    OpenFile there;
    const int error = volume.Fs().Open(path.c_str(), OpenFor::Locating, there.Out(volume.Fs()));
    if (error != ENOENT && error != ENOTDIR)
        return IsFault(error) ? StatusFromErrno(error) : TAL_STATUS_SUCCESS;
    const TALSTATUS status = session.ForgetTree(path);
    return Failed(status) ? status : session.RemoveLocksWithin(path);
}

static TALSTATUS WriteRows(const Volume& volume, const PendingRows::Rows& rows)
{
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(volume, &session);
    if (!Failed(status))
        status = session->Begin();
    for (const std::string& path : rows.removed)
        if (!Failed(status))
            status = ForgetMissing(volume, *session, path);
    for (const INT64 id : rows.unlisted) {
        if (!Failed(status))
            status = session->RemoveDeleted(id);
        if (!Failed(status))
            status = session->ForgetTree(PathOfDeleted(id));
    }
    for (const INT64 intent : rows.cancelled)
        if (!Failed(status))
            status = session->RemoveIntent(intent);
    return Failed(status) ? status : session->Commit();
}

TALSTATUS WritePending(Volume& volume)
{
    return Protected([&] {
        const std::lock_guard writing(volume.Pending().Writing());
        const PendingRows::Rows rows = volume.Pending().Get();
        const TALSTATUS status = rows.IsEmpty() ? TAL_STATUS_SUCCESS : WriteRows(volume, rows);
        if (!Failed(status))
            volume.Pending().Drop(rows);
        return status;
    });
}

void DropExpiredLocks(const Store& store, Volume& volume)
{
    std::unique_ptr<MetadataSession> session;
    if (!volume.MayHaveLocks() || !volume.Meta()->IsInUse() ||
        Failed(Store::OpenMetadata(volume, &session)))
        return;
    (void)session->RemoveExpiredLocks(store.Now()); // they count for nothing anyway
    session.reset();
    volume.Meta()->RecountFlags();
}

} // namespace filestore
