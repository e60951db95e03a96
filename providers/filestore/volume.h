// SPDX-License-Identifier: Apache-2.0
//
// One volume: a directory tree that is served, and the private directory at its top in which the
// store keeps what clients do not see:
//
//   .kest/tmp/       content on its way in; names begin with the writing process's token, or there
//                    is none yet (upload.h)
//   .kest/deleted/   deleted entries that are kept, named by their number
//   .kest/purge/     deleted entries on their way out
//   .kest/uploads/   uploads that can go on later, each with its record (pending_upload.h); made
//                    with the first one
//   .kest/reserve/   files that are given up on a full disk
//   .kest/meta.db    properties, hidden marks, locks, the list of deleted entries
//   .kest/state      empty; who waits for the database has a lock on it
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "providers/filestore/directory.h"
#include "providers/filestore/filesystem.h"
#include "providers/filestore/locked_names.h"
#include "providers/filestore/metadata.h"
#include "providers/filestore/name_guard.h"
#include "providers/filestore/names.h"
#include "providers/filestore/pending.h"
#include "providers/filestore/room_turns.h"
#include "providers/filestore/unfinished_renames.h"
#include "providers/filestore/upload_registry.h"

namespace filestore {

// What is on the disk before a change is answered.
enum class SyncLevel {
    None, // nothing is waited for: a power cut can lose the last changes, an upload included
    Data, // uploads and names are on the disk: content and directory are synced before the reply
    Full, // dates, permissions and both ends of a move are, too
};

// Opens the metadata kept in a directory, or says why it cannot.
using MetadataOpener = std::function<std::unique_ptr<Metadata>(const std::string& directory,
                                                               bool durable, std::string* reason)>;

class Volume {
  public:
    // Makes the private directories where they are missing and removes what dead processes left in
    // them. A volume that cannot be written is served for reading.
    Volume(std::string name, std::unique_ptr<FileSystem> fs, SyncLevel sync,
           const MetadataOpener& openMetadata);
    ~Volume();
    Volume(const Volume&) = delete;
    Volume& operator=(const Volume&) = delete;

    const std::string& Name() const { return name_; }
    FileSystem& Fs() const { return *fs_; }
    SyncLevel Sync() const { return sync_; }
    bool IsWritable() const { return tmp_ != kNoFile; }

    // The private directories; kNoFile when the volume is read-only.
    FileHandle Tmp() const { return tmp_; }
    FileHandle Deleted() const { return deleted_; }
    FileHandle Purge() const { return purge_; }

    // The directory of uploads that can go on later, which is the volume's to close; with `make` it
    // is made where it is missing, else ENOENT.
    int OpenUploads(bool make, FileHandle* out);
    UploadRegistry& Uploads() { return uploadRegistry_; }

    // Null when the volume is read-only: then it has no locks and no properties.
    Metadata* Meta() const { return meta_.get(); }
    bool MayHaveLocks() const { return meta_ && meta_->MayHaveLocks(); }
    bool MayHaveProperties() const { return meta_ && meta_->MayHaveProperties(); }
    // What could not be written there.
    PendingRows& Pending() { return pending_; }
    LockedNames& NamesMadeByLocks() { return lockedNames_; }
    // Renames that are between two states, and are to be ended before their names are used: those
    // that have to do with `path`, or all.
    UnfinishedRenames& Unfinished() { return unfinished_; }
    TALSTATUS RecoverAround(std::string_view path);
    void RecoverAll() noexcept;
    // Stands for this process as long as it lives, see RenameIntent.
    const std::string& Token() const { return token_; }

    // A name that no other process and no other call uses, for Tmp() and Purge().
    std::string UniqueName();

    // Takes over what a call has made under a name of Tmp(), and can no longer use. What cannot go
    // on its way out now, on a disk that refuses renames too, goes when RemoveAbandoned is called
    // again, or at the next start.
    void Abandon(std::string name) noexcept;
    void RemoveAbandoned() noexcept;

    // Room on the disk that is given up when it is full: see room.h. In pieces, each a file of its
    // own, that all processes share. At most a sixteenth of the disk.
    void SetReserve(UINT64 bytes);      // and fills it
    void FillReserve();                 // as far as there is room
    [[nodiscard]] bool GiveUpReserve(); // a piece; false when there is none left
    // Taken while entries give way.
    RoomTurns& Turns() { return turns_; }

    // Held over the look at a name and the change that depends on it. Names share a few of them:
    // who wants two at once takes a NameGuard of both. Taken after the metadata's transaction has
    // begun, where there is one.
    std::mutex& MutexOf(std::string_view path) const
    {
        return names_[std::hash<std::string_view>()(path) % names_.size()];
    }

    // Opens the directory that holds `path`'s leaf. ENOENT or ENOTDIR when there is none.
    int OpenParent(std::string_view path, DirectoryRef* out) const;

    // The creation date: the one kept for the object, else the file system's, which is asked for
    // unless `info` has it.
    int GetCreated(FileHandle handle, const FileInfo& info, UINT64* date) const;
    // Keeps a creation date with the object. `directory` is the one that holds its name; listings
    // of it then look for kept dates. EOPNOTSUPP where the file system keeps no tags.
    int KeepCreated(FileHandle handle, const Directory& directory, UINT64 date) const;
    // Makes listings of the directory look for kept dates.
    int ExpectKeptDates(const Directory& directory) const;
    // Whether children of the directory can have kept dates, so that a listing has to ask each.
    int HasKeptDates(const Directory& directory, bool* out) const;
    // Puts the kept creation date of a child, if there is one, into its info.
    int GetCreatedOfChild(FileHandle directory, const char* name, FileInfo* info) const;

    // Tells the log when the volume's directory has gone from its place, and when it is there
    // again: as long as this object lives it serves the one that it began with. For one thread.
    void CheckPlace();

    // Syncs a directory whose names have changed, as the volume's setting wants it.
    int SyncNames(FileHandle directory) const;

  private:
    int Prepare();
    std::string PrepareMetadata(const MetadataOpener& openMetadata);
    void SkipKeptIds();
    bool RecoverIntents();
    TALSTATUS Recover(MetadataSession& session, const RenameIntent& intent) const;
    TALSTATUS RecoverAgain(const RenameIntent& intent);
    bool IsAlive(const std::string& token) const;
    int TakeToken();
    void SweepTmp();
    bool RemoveFromTmp(const std::string& name) noexcept;
    int OpenDirectory(std::string_view path, DirectoryRef* out) const;
    int OpenPrivate(std::string_view name, FileHandle* out);

    const std::string name_;
    const std::unique_ptr<FileSystem> fs_;
    const SyncLevel sync_;
    DirectoryRef top_; // open as long as this object, if it can be opened
    FileHandle tmp_ = kNoFile;
    FileHandle deleted_ = kNoFile;
    FileHandle purge_ = kNoFile;
    FileHandle tokenLock_ = kNoFile;
    std::string token_;
    std::unique_ptr<Metadata> meta_;
    std::atomic<UINT64> counter_{0};
    mutable std::array<std::mutex, 64> names_;
    RoomTurns turns_;
    std::mutex abandonedMutex_;
    std::vector<std::string> abandoned_; // in Tmp(), never more than it has had room for
    PendingRows pending_;
    LockedNames lockedNames_;
    UnfinishedRenames unfinished_;
    UploadRegistry uploadRegistry_;
    std::mutex uploadsMutex_;
    FileHandle uploads_ = kNoFile;
    UINT64 reserveBytes_ = 0;
    FileHandle reserve_ = kNoFile;
    std::atomic<bool> isReserveShort_{true};
    bool isInPlace_ = true; // when CheckPlace looked last
};

} // namespace filestore
