// SPDX-License-Identifier: Apache-2.0
//
// SQLite's way to a machine's disk: files with the locks of a process that has them to itself.
#include <algorithm>
#include <cstring>
#include <new>

#include <sqlite3.h>

#include "tests/crashstates/machine.h"

namespace crashstates {

// Locks and the index of the write-ahead log, by database file: memory of the process, which a
// power cut takes away.
struct Machine::Shared {
    int readers = 0; // connections with a lock of any level
    const void* reserved = nullptr;
    const void* exclusive = nullptr;
    std::vector<std::unique_ptr<char[]>> regions;
    int sharedSlots[SQLITE_SHM_NLOCK] = {};
    const void* exclusiveSlots[SQLITE_SHM_NLOCK] = {};
};

Machine::Machine(Disk disk, uint64_t start)
    : start_(disk), disk_(std::move(disk)), random_(start << 48)
{
}

Machine::~Machine() = default;

Machine::Shared& Machine::SharedOf(InodeId inode)
{
    std::unique_ptr<Shared>& held = shared_[inode];
    if (!held)
        held = std::make_unique<Shared>();
    return *held;
}

namespace {

struct Mapping {
    Machine* machine;
    InodeId top;
};
std::map<std::string, Mapping> g_mappings; // by directory
size_t g_opened = 0;

struct Place {
    Machine* machine = nullptr;
    InodeId directory = kNoInode;
    std::string leaf;
};

// Null machine: nobody's path.
Place Find(const char* path)
{
    const std::string_view text = path;
    for (const auto& [directory, mapping] : g_mappings) {
        if (!text.starts_with(directory + "/"))
            continue;
        const std::string_view inside = text.substr(directory.size() + 1);
        const size_t slash = inside.rfind('/');
        const std::string_view parent = slash == inside.npos ? "" : inside.substr(0, slash);
        return {mapping.machine, mapping.machine->Now().Resolve(mapping.top, parent),
                std::string(inside.substr(slash == inside.npos ? 0 : slash + 1))};
    }
    return {};
}

struct MemoryFile {
    sqlite3_file base;
    Machine* machine;
    InodeId inode;
    InodeId directory;
    bool isLog;      // write-ahead
    bool syncsName;  // with its first sync, as SQLite does for files that it may have made
    bool endsCommit; // what is written next ends a transaction
    int level;       // of the lock that this connection holds
    int shared[SQLITE_SHM_NLOCK];
};

MemoryFile& Of(sqlite3_file* file)
{
    return *reinterpret_cast<MemoryFile*>(file);
}

const std::string& ContentOf(const MemoryFile& f)
{
    return f.machine->Now().Find(f.inode)->content;
}

int Unlock(sqlite3_file* file, int level);

int Close(sqlite3_file* file)
{
    const Busy busy;
    return Unlock(file, SQLITE_LOCK_NONE);
}

int Read(sqlite3_file* file, void* out, int amount, sqlite3_int64 offset)
{
    const Busy busy;
    const std::string& content = ContentOf(Of(file));
    const size_t from = std::min<size_t>(static_cast<size_t>(offset), content.size());
    const size_t got = std::min<size_t>(static_cast<size_t>(amount), content.size() - from);
    std::memcpy(out, content.data() + from, got);
    std::memset(static_cast<char*>(out) + got, 0, static_cast<size_t>(amount) - got);
    return got == static_cast<size_t>(amount) ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

// A frame of the log has a header of 24 bytes, whose second word is the size of the database where
// the frame is the last of its transaction, else 0; then follows its page.
int Write(sqlite3_file* file, const void* bytes, int amount, sqlite3_int64 offset)
{
    const Busy busy;
    constexpr int kFrameHeader = 24;
    MemoryFile& f = Of(file);
    const char* const text = static_cast<const char*>(bytes);
    const bool isHeader = f.isLog && amount == kFrameHeader;
    f.machine->Do({.kind = Event::Write,
                   .inode = f.inode,
                   .number = static_cast<uint64_t>(offset),
                   .bytes = std::string(text, static_cast<size_t>(amount)),
                   .endsCommit = f.endsCommit && !isHeader});
    f.endsCommit = isHeader && std::memcmp(text + 4, "\0\0\0\0", 4) != 0;
    return SQLITE_OK;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    f.machine->Do(
        {.kind = Event::Truncate, .inode = f.inode, .number = static_cast<uint64_t>(size)});
    return SQLITE_OK;
}

int Sync(sqlite3_file* file, int)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    f.machine->Do({.kind = Event::Sync, .inode = f.inode, .number = 0});
    if (f.syncsName)
        f.machine->Do({.kind = Event::Sync, .inode = f.directory, .number = 1});
    f.syncsName = false;
    return SQLITE_OK;
}

int FileSize(sqlite3_file* file, sqlite3_int64* out)
{
    const Busy busy;
    *out = static_cast<sqlite3_int64>(ContentOf(Of(file)).size());
    return SQLITE_OK;
}

int Lock(sqlite3_file* file, int level)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    Machine::Shared& s = f.machine->SharedOf(f.inode);
    if (level <= f.level)
        return SQLITE_OK;
    const bool isTaken = (s.exclusive && s.exclusive != file) ||
                         (level >= SQLITE_LOCK_RESERVED && s.reserved && s.reserved != file) ||
                         (level == SQLITE_LOCK_EXCLUSIVE && s.readers > 1);
    if (isTaken)
        return SQLITE_BUSY;
    if (f.level == SQLITE_LOCK_NONE)
        ++s.readers;
    if (level >= SQLITE_LOCK_RESERVED)
        s.reserved = file;
    if (level == SQLITE_LOCK_EXCLUSIVE)
        s.exclusive = file;
    f.level = level;
    return SQLITE_OK;
}

int Unlock(sqlite3_file* file, int level)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    Machine::Shared& s = f.machine->SharedOf(f.inode);
    if (level >= f.level)
        return SQLITE_OK;
    if (s.reserved == file)
        s.reserved = nullptr;
    if (s.exclusive == file)
        s.exclusive = nullptr;
    if (level == SQLITE_LOCK_NONE)
        --s.readers;
    f.level = level;
    return SQLITE_OK;
}

int CheckReservedLock(sqlite3_file* file, int* out)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    *out = f.machine->SharedOf(f.inode).reserved != nullptr;
    return SQLITE_OK;
}

int FileControl(sqlite3_file*, int, void*)
{
    return SQLITE_NOTFOUND;
}

int SectorSize(sqlite3_file*)
{
    return 4096;
}

// As SQLite assumes of the disks that it knows.
int Characteristics(sqlite3_file*)
{
    return SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

int ShmMap(sqlite3_file* file, int region, int size, int extend, void volatile** out)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    Machine::Shared& s = f.machine->SharedOf(f.inode);
    *out = nullptr;
    while (extend && s.regions.size() <= static_cast<size_t>(region))
        s.regions.push_back(std::make_unique<char[]>(static_cast<size_t>(size)));
    if (s.regions.size() > static_cast<size_t>(region))
        *out = s.regions[static_cast<size_t>(region)].get();
    return SQLITE_OK;
}

int ShmLock(sqlite3_file* file, int first, int count, int flags)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    Machine::Shared& s = f.machine->SharedOf(f.inode);
    for (int i = first; i < first + count && (flags & SQLITE_SHM_LOCK); ++i)
        if ((s.exclusiveSlots[i] && s.exclusiveSlots[i] != file) ||
            ((flags & SQLITE_SHM_EXCLUSIVE) && s.sharedSlots[i] > f.shared[i]))
            return SQLITE_BUSY;
    for (int i = first; i < first + count; ++i) {
        if (flags & SQLITE_SHM_EXCLUSIVE) {
            s.exclusiveSlots[i] = flags & SQLITE_SHM_LOCK ? file : nullptr;
        } else if (flags & SQLITE_SHM_LOCK) {
            s.sharedSlots[i] += f.shared[i] ? 0 : 1;
            f.shared[i] = 1;
        } else {
            s.sharedSlots[i] -= f.shared[i];
            f.shared[i] = 0;
        }
    }
    return SQLITE_OK;
}

void ShmBarrier(sqlite3_file*) {}

int ShmUnmap(sqlite3_file* file, int remove)
{
    const Busy busy;
    MemoryFile& f = Of(file);
    Machine::Shared& s = f.machine->SharedOf(f.inode);
    for (int i = 0; i < SQLITE_SHM_NLOCK; ++i) {
        s.sharedSlots[i] -= f.shared[i];
        f.shared[i] = 0;
        if (s.exclusiveSlots[i] == file)
            s.exclusiveSlots[i] = nullptr;
    }
    if (remove)
        s.regions.clear();
    return SQLITE_OK;
}

const sqlite3_io_methods kMethods = {2,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     FileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     FileControl,
                                     SectorSize,
                                     Characteristics,
                                     ShmMap,
                                     ShmLock,
                                     ShmBarrier,
                                     ShmUnmap,
                                     nullptr,
                                     nullptr};

int OpenFile(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* outFlags)
{
    const Busy busy;
    file->pMethods = nullptr;
    const Place place = path ? Find(path) : Place();
    if (!place.machine || place.directory == kNoInode)
        return SQLITE_CANTOPEN;
    Machine& machine = *place.machine;
    InodeId inode = machine.Now().Resolve(place.directory, place.leaf);
    const bool isNew = inode == kNoInode;
    if (isNew && !(flags & SQLITE_OPEN_CREATE))
        return SQLITE_CANTOPEN;
    if (isNew) {
        inode = machine.MakeInode(false, 0644);
        machine.Do({.kind = Event::Link,
                    .inode = inode,
                    .directory = place.directory,
                    .name = place.leaf});
    }
    const bool isLog = (flags & SQLITE_OPEN_WAL) != 0;
    new (file) MemoryFile{{&kMethods}, &machine,
                          inode,       place.directory,
                          isLog,       isLog && (flags & SQLITE_OPEN_CREATE),
                          false,       SQLITE_LOCK_NONE,
                          {}};
    if (outFlags)
        *outFlags = flags;
    ++g_opened;
    return SQLITE_OK;
}

int Delete(sqlite3_vfs*, const char* path, int syncDirectory)
{
    const Busy busy;
    const Place place = Find(path);
    if (!place.machine || place.machine->Now().Resolve(place.directory, place.leaf) == kNoInode)
        return SQLITE_IOERR_DELETE_NOENT;
    place.machine->Do({.kind = Event::Unlink, .directory = place.directory, .name = place.leaf});
    if (syncDirectory)
        place.machine->Do({.kind = Event::Sync, .inode = place.directory, .number = 1});
    return SQLITE_OK;
}

int Access(sqlite3_vfs*, const char* path, int, int* out)
{
    const Busy busy;
    const Place place = Find(path);
    *out = place.machine && place.machine->Now().Resolve(place.directory, place.leaf) != kNoInode;
    return SQLITE_OK;
}

int FullPathname(sqlite3_vfs*, const char* path, int room, char* out)
{
    sqlite3_snprintf(room, out, "%s", path);
    return SQLITE_OK;
}

// The same in every run, see Machine::Random.
int Randomness(sqlite3_vfs*, int size, char* out)
{
    std::memset(out, 0x5A, static_cast<size_t>(size));
    return size;
}

int Sleep(sqlite3_vfs*, int microseconds)
{
    return microseconds;
}

int CurrentTime(sqlite3_vfs*, double* out)
{
    *out = 2460000.5;
    return SQLITE_OK;
}

int GetLastError(sqlite3_vfs*, int, char*)
{
    return 0;
}

} // namespace

void MapDirectory(const std::string& directory, Machine* machine, InodeId top)
{
    const Busy busy;
    if (machine)
        g_mappings[directory] = {machine, top};
    else
        g_mappings.erase(directory);
}

size_t FilesOpened()
{
    return g_opened;
}

void RegisterMemoryVfs()
{
    static sqlite3_vfs vfs{};
    vfs.iVersion = 1;
    vfs.szOsFile = sizeof(MemoryFile);
    vfs.mxPathname = 512;
    vfs.zName = "unix-excl"; // what the store asks for; the one of that name is not met any more
    vfs.xOpen = OpenFile;
    vfs.xDelete = Delete;
    vfs.xAccess = Access;
    vfs.xFullPathname = FullPathname;
    vfs.xRandomness = Randomness;
    vfs.xSleep = Sleep;
    vfs.xCurrentTime = CurrentTime;
    vfs.xGetLastError = GetLastError;
    sqlite3_vfs_register(&vfs, 1);
}

} // namespace crashstates
