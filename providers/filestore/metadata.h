// SPDX-License-Identifier: Apache-2.0
//
// What a volume keeps beside its files: dead properties, hidden marks, locks and the list of
// deleted entries. One implementation keeps it in a database of the volume (sqlitemeta.h); one for
// several hosts may take its place.
//
// Everything is keyed by the path within the volume, and follows the paths only where it is told
// to. Operations return TALSTATUS: code 11 for what is not there, code 35 when the disk is full,
// code 10 when another process holds the store for too long. Any thread may use a Metadata; a
// session belongs to one thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <kest/dav.h>
#include <kest/status.h>

namespace filestore {

inline constexpr UINT64 kNever = ~UINT64{0} >> 1; // an expiry date that does not come

struct LockRecord {
    std::string token;
    std::string path;
    DAV_LOCK_SCOPE scope = Exclusive;
    DAV_LOCK_TYPE type = Write;
    INT32 depth = 0;
    UINT64 expires = kNever; // as DAV_DATETIME
    std::string owner;       // as it goes into replies
    std::string creator;     // who signed in when it was made; empty for the local user
    std::string markup;      // the owner as the third generation was given it
};

struct DeletedEntry {
    INT64 id = 0;
    std::string parent; // where it was
    std::string name;
    UINT64 time = 0; // as DAV_DATETIME
};

// Properties come in two kinds. Those of the first two provider generations have a name as it was
// given, prefix included, no namespace, and bytes for a value: they are kept in kClassicSpace,
// which is no namespace name of any XML. Those of the third have a namespace name ("" for none) and
// a local name, and their value is the whole element as XML. Each generation sees both
// (property.h).
inline constexpr std::string_view kClassicSpace = "\x01";

struct PropertyName {
    std::string_view space;
    std::string_view local;
};

struct Property {
    INT64 order = 0;
    std::string space;
    std::string name; // UTF-8
    std::string value;
};

// A rename that was begun: if its process dies, the next one sees by the disk whether it happened.
struct RenameIntent {
    INT64 id = 0;
    std::string owner; // the token of the process, see Volume
    std::string from;
    std::string to;
    // Where what bore the new name is put aside, after the two have traded names. Empty: nothing
    // did.
    std::string aside = {};
    UINT64 inode = 0; // of what moves: shows which of two names it bears
};

class MetadataSession {
  public:
    // Rolls back what was begun and not committed.
    virtual ~MetadataSession() = default;

    // Several changes that happen together, and alone: from Begin to Commit no other session of any
    // process changes anything. Without it every operation stands for itself.
    virtual TALSTATUS Begin() = 0;
    // On failure nothing of it has happened.
    virtual TALSTATUS Commit() = 0;
    virtual void Rollback() = 0;

    // -- Properties of one path.
    // By a name as the first two generations have it: one of theirs, or else the first of the
    // others with that local name.
    virtual TALSTATUS GetProperty(std::string_view path, std::string_view name, Property* out) = 0;
    // The next one after the one with `order` (0: the first), in the order they were first set.
    // Code 9 past the last.
    virtual TALSTATUS NextProperty(std::string_view path, INT64 order, Property* out) = 0;
    virtual TALSTATUS SetProperty(std::string_view path, PropertyName name,
                                  std::string_view value) = 0;
    virtual TALSTATUS RemoveProperty(std::string_view path, PropertyName name) = 0;
    virtual TALSTATUS HasProperties(std::string_view path, bool* out) = 0;
    // The children of a collection that have properties of their own.
    virtual TALSTATUS ChildrenWithProperties(std::string_view parent,
                                             std::unordered_set<std::string>* names) = 0;
    virtual TALSTATUS IsHidden(std::string_view path, bool* out) = 0;
    virtual TALSTATUS SetHidden(std::string_view path, bool on) = 0;
    virtual TALSTATUS HiddenChildren(std::string_view parent,
                                     std::unordered_set<std::string>* names) = 0;

    // -- Trees: a path and all below it.
    virtual TALSTATUS HasAny(std::string_view tree, bool* out) = 0; // properties, marks, deleted
    virtual TALSTATUS RenameTree(std::string_view from, std::string_view to) = 0;
    virtual TALSTATUS ForgetTree(std::string_view tree) = 0; // properties and marks
    // One row each for properties and marks of `from`, with everything below it if `deep`.
    virtual TALSTATUS
    ExportTree(std::string_view from, bool deep,
               const std::function<TALSTATUS(std::string_view path, const Property*)>& each) = 0;

    // -- Deleted entries.
    virtual TALSTATUS AddDeleted(DeletedEntry* entry) = 0; // sets id, never used before
    // Ids up to this one are not given any more.
    virtual TALSTATUS SkipDeletedIds(INT64 upTo) = 0;
    virtual TALSTATUS FindDeleted(INT64 id, DeletedEntry* out) = 0;
    virtual TALSTATUS RemoveDeleted(INT64 id) = 0;
    // The next one of a collection, or the oldest one deleted before `time`. Code 9 past the last.
    virtual TALSTATUS NextDeleted(std::string_view parent, INT64 afterId, DeletedEntry* out) = 0;
    virtual TALSTATUS NextExpired(UINT64 time, INT64 afterId, DeletedEntry* out) = 0;

    // -- Locks. Those that have expired by `now` are not seen.
    virtual TALSTATUS LocksAt(std::string_view path, UINT64 now, std::vector<LockRecord>* out) = 0;
    virtual TALSTATUS LocksWithin(std::string_view tree, UINT64 now,
                                  std::vector<LockRecord>* out) = 0;
    // The lock that was made next after the `*order`-th, which is 0 at first; sets *order. Code 9
    // past the last.
    virtual TALSTATUS NextLock(UINT64 now, INT64* order, LockRecord* out) = 0;
    virtual TALSTATUS FindLock(std::string_view token, UINT64 now, LockRecord* out) = 0;
    virtual TALSTATUS AddLock(const LockRecord& lock) = 0;
    virtual TALSTATUS SetLockExpiry(std::string_view token, UINT64 expires) = 0;
    virtual TALSTATUS RemoveLock(std::string_view token) = 0;
    virtual TALSTATUS RemoveLocksWithin(std::string_view tree) = 0;
    virtual TALSTATUS RemoveExpiredLocks(UINT64 now) = 0;

    // -- Renames that are under way.
    virtual TALSTATUS AddIntent(RenameIntent* intent) = 0; // sets id
    virtual TALSTATUS RemoveIntent(INT64 id) = 0;
    virtual TALSTATUS Intents(std::vector<RenameIntent>* out) = 0;
};

class Metadata {
  public:
    virtual ~Metadata() = default;

    virtual TALSTATUS Open(std::unique_ptr<MetadataSession>* out) = 0;

    // Cheap looks that spare most requests the database: false only when there certainly is none,
    // in any process. They may say true for a while when the last one is gone.
    virtual bool MayHaveLocks() const = 0;
    virtual bool MayHaveProperties() const = 0; // or hidden marks
    virtual bool MayHaveDeleted() const = 0;
    // False while this process has let the metadata go: what can wait does not take it back. The
    // looks say true then.
    virtual bool IsInUse() const { return true; }
    // Makes the looks exact again. Called now and then.
    virtual void RecountFlags() = 0;
    // How much there is of two kinds, at most `most` each: as it was when this process had the
    // metadata last, which is not taken back for it unless nothing is known yet. False where nobody
    // knows.
    struct Amounts {
        UINT64 locks = 0; // that have not expired by `now`
        UINT64 deleted = 0;
    };
    virtual bool Count(UINT64 now, UINT64 most, Amounts* out) = 0;
    // The process ends: what is kept now stands in one place, for whoever copies it. What is still
    // in use stays open, and everything can go on as before.
    virtual void Checkpoint() = 0;
};

} // namespace filestore
