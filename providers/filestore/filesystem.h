// SPDX-License-Identifier: Apache-2.0
//
// The file system beneath one volume: the only way from the store to the disk. One implementation
// works on directory descriptors (posixfs.h); a cluster file system may take its place.
//
// Paths are relative to the volume's root directory, "" being that directory itself,
// NUL-terminated, and never lead outside, whatever links they pass. Operations return 0 or an errno
// value, and leave out-parameters alone on failure. Any thread may call any operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kest/types.h>

#include "base/system_time.h"

namespace filestore {

using FileHandle = int; // -1 is none
inline constexpr FileHandle kNoFile = -1;

inline constexpr UINT64 kTicksPerSecond = base::kUnitsPerSecond; // of dates

struct FileInfo {
    bool isDirectory = false;
    bool isRegular = false;
    bool isLink = false;
    UINT32 mode = 0; // permission bits
    UINT32 owner = 0;
    UINT32 group = 0;
    UINT64 inode = 0;
    UINT64 size = 0;
    UINT64 modified = 0; // 100 ns units since 1601-01-01 UTC
    // The same: the date of birth or of the content, whichever is older, since nothing is younger
    // than what is in it; without a date of birth, the oldest date at hand.
    UINT64 created = 0;
    bool isBirth = false; // the date of birth has been asked for and is known
};

enum class OpenFor {
    Reading,   // content or entries; falls back to Locating where reading is not allowed
    Changing,  // content of a file, to be read and written; no fallback
    Directory, // a directory in which names are looked up, made and removed
    Locating,  // just the object: inspect, set mode, dates and tags
};

// Receives the names of a directory, without "." and "..". Returning false ends the listing.
class NameSink {
  public:
    virtual bool OnName(std::string_view name) = 0;

  protected:
    ~NameSink() = default;
};

// Keeps the names, at most so many.
class NameCollector final : public NameSink {
  public:
    explicit NameCollector(size_t most = SIZE_MAX) : most_(most) {}
    bool OnName(std::string_view name) override
    {
        names.emplace_back(name);
        return names.size() < most_;
    }
    std::vector<std::string> names;

  private:
    const size_t most_;
};

// Asked between the pieces of long work; false ends it.
using GoOn = std::function<bool()>;

// Told a path with a link on its way, and where it really leads: both within the tree, without a
// "/" at their beginnings. False: it leads nowhere.
using LinkJudge = std::function<bool(std::string_view path, std::string_view real)>;

class FileSystem {
  public:
    virtual ~FileSystem() = default;

    // Before anything is opened: who is asked by Open about each path that leads through a link. A
    // file system that has no links asks nobody.
    virtual void JudgeLinks(LinkJudge) {}

    // -- By path. The caller closes the handle.
    virtual int Open(const char* path, OpenFor purpose, FileHandle* out) = 0;
    virtual void Close(FileHandle handle) = 0;
    // As Inspect tells it of what Open would open, but without opening it. ELOOP where that takes
    // more than one look: for several names, and for a link.
    virtual int Look(const char* path, FileInfo* out) = 0;

    // -- An open object. Inspect leaves `created` at the oldest date at hand; InspectFully asks the
    //    file system for the date of birth, at a higher price.
    virtual int Inspect(FileHandle handle, FileInfo* out) = 0;
    virtual int InspectFully(FileHandle handle, FileInfo* out) = 0;
    virtual int Read(FileHandle handle, UINT64 offset, void* buffer, size_t size,
                     size_t* got) = 0; // got 0: the end
    // A descriptor to read the same content from by position; -1 where there is none.
    virtual int Descriptor(FileHandle) const noexcept { return -1; }
    virtual int Write(FileHandle handle, UINT64 offset, const void* buffer,
                      size_t size) = 0; // all of it, or a failure
    // Cuts the content off, or makes it longer by zeros.
    virtual int SetSize(FileHandle handle, UINT64 size) = 0;
    virtual int SetMode(FileHandle handle, UINT32 mode) = 0;
    virtual int SetOwner(FileHandle handle, UINT32 owner, UINT32 group) = 0;
    virtual int SetModified(FileHandle handle, UINT64 date) = 0;
    // Content and what is needed to find it again; with `everything` also dates and permissions.
    virtual int Sync(FileHandle handle, bool everything) = 0;
    // Fills the empty file `to` with the first `size` bytes of `from`, sharing blocks if it can.
    // EBUSY when `from` is shorter by now, ECANCELED when `goOn` said so, which is asked every
    // eight MiB; an empty one is not asked.
    virtual int CopyContent(FileHandle from, FileHandle to, UINT64 size, const GoOn& goOn) = 0;
    // Small values that stay with an object when it is renamed. ENODATA when there is none,
    // EOPNOTSUPP when the file system keeps none.
    virtual int GetTag(FileHandle handle, const char* tag, void* value, size_t room,
                       size_t* size) = 0;
    virtual int SetTag(FileHandle handle, const char* tag, const void* value, size_t size) = 0;

    // -- Names in an open directory: one component each; links are not followed.
    virtual int InspectAt(FileHandle directory, const char* name, FileInfo* out) = 0;
    // ELOOP for a link.
    virtual int OpenAt(FileHandle directory, const char* name, OpenFor purpose,
                       FileHandle* out) = 0;
    virtual int GetTagAt(FileHandle directory, const char* name, const char* tag, void* value,
                         size_t room, size_t* size) = 0;
    // A new, empty file, open for reading and writing. EEXIST when the name is taken.
    virtual int CreateFile(FileHandle directory, const char* name, FileHandle* out) = 0;
    // The same without a name: it goes with its handle unless GiveName gives it one. EOPNOTSUPP
    // where the file system has no such files.
    virtual int CreateUnnamed(FileHandle directory, FileHandle* out) = 0;
    // EEXIST when the name is taken; EREMOTE as of Rename.
    virtual int GiveName(FileHandle file, FileHandle directory, const char* name) = 0;
    virtual int MakeDirectory(FileHandle directory, const char* name) = 0;
    // The text of a link, and a new one.
    virtual int ReadLink(FileHandle directory, const char* name, std::string* out) = 0;
    virtual int MakeLink(const char* text, FileHandle directory, const char* name) = 0;
    // EEXIST when `replace` is false and the new name is taken. EREMOTE where the directories are
    // not of one file system: another one is mounted inside the volume.
    virtual int Rename(FileHandle fromDirectory, const char* from, FileHandle toDirectory,
                       const char* to, bool replace) = 0;
    // The two names trade what they bear, in one step. EOPNOTSUPP where the file system cannot,
    // EREMOTE as of Rename.
    virtual int Exchange(FileHandle directory, const char* name, FileHandle otherDirectory,
                         const char* otherName) = 0;
    virtual int RemoveFile(FileHandle directory, const char* name) = 0;
    virtual int RemoveDirectory(FileHandle directory, const char* name) = 0;
    virtual int List(FileHandle directory, NameSink& sink) = 0;

    // -- The rest.
    // From now on no link leads into this directory, by whatever way: ENOENT.
    virtual int KeepPrivate(FileHandle) { return 0; }
    // The permission bits that CreateFile gives.
    virtual UINT32 NewFileMode() const = 0;
    // Takes an exclusive lock on an open file that ends with the handle, or with the process.
    // EWOULDBLOCK when another handle holds it.
    virtual int TryLock(FileHandle handle) = 0;
    // Where the path is for programs beside the store (a database), valid as long as this object.
    virtual int ExternalPath(const char* path, char* out, size_t room) = 0;
    virtual int Random(void* out, size_t size) = 0;
    // Makes a new file `size` bytes long, with room on the disk for all of them.
    virtual int Allocate(FileHandle handle, UINT64 size) = 0;
    // Bytes that this process can still write, and bytes of the whole disk.
    virtual int FreeSpace(UINT64* free, UINT64* total) = 0;
    // The same of the disk that a path lies on: another one may be mounted below the top.
    virtual int FreeSpaceAt(const char*, UINT64* free, UINT64* total)
    {
        return FreeSpace(free, total);
    }
    // Whether the volume's root directory still bears the name that it was opened by: false once it
    // has been removed, moved or mounted over.
    virtual bool IsInPlace() = 0;
};

// Closes on scope end.
class OpenFile {
  public:
    OpenFile() = default;
    OpenFile(FileSystem& fs, FileHandle handle) : fs_(&fs), handle_(handle) {}
    OpenFile(OpenFile&& other) noexcept : fs_(other.fs_), handle_(other.Detach()) {}
    OpenFile& operator=(OpenFile&& other) noexcept
    {
        Reset(); // with the file system that it was opened on
        fs_ = other.fs_;
        handle_ = other.Detach();
        return *this;
    }
    ~OpenFile() { Reset(); }
    void Reset(FileHandle handle = kNoFile)
    {
        if (handle_ != kNoFile)
            fs_->Close(handle_);
        handle_ = handle;
    }
    FileHandle Get() const { return handle_; }
    // For an operation of `fs` that opens.
    FileHandle* Out(FileSystem& fs)
    {
        Reset();
        fs_ = &fs;
        return &handle_;
    }
    FileHandle Detach()
    {
        const FileHandle handle = handle_;
        handle_ = kNoFile;
        return handle;
    }
    explicit operator bool() const { return handle_ != kNoFile; }

  private:
    FileSystem* fs_ = nullptr;
    FileHandle handle_ = kNoFile;
};

} // namespace filestore
