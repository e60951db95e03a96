// SPDX-License-Identifier: Apache-2.0
//
// The store's file system interface over a machine's disk.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/crashstates/machine.h"

namespace crashstates {

using namespace filestore;

void Machine::Do(Event event)
{
    disk_.Apply(event);
    events_.push_back(std::move(event));
}

InodeId Machine::MakeInode(bool isDirectory, uint32_t mode)
{
    const InodeId id = disk_.Next();
    Do({.kind = Event::Make, .inode = id, .number = mode, .isDirectory = isDirectory});
    return id;
}

// The same numbers in every run, so that states can be compared between runs.
uint64_t Machine::Random()
{
    random_ += 0x9E3779B97F4A7C15;
    uint64_t x = random_;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

Busy::Busy() : lock_(Mutex()) {}

std::recursive_mutex& Busy::Mutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

namespace {

class MemoryFileSystem final : public FileSystem {
  public:
    MemoryFileSystem(Machine& machine, InodeId top, std::string directory)
        : machine_(machine), top_(top), directory_(std::move(directory))
    {
        MapDirectory(directory_, &machine_, top_);
    }
    ~MemoryFileSystem() override { MapDirectory(directory_, nullptr, kNoInode); }

    int Open(const char* path, OpenFor purpose, FileHandle* out) override
    {
        const Busy busy;
        return OpenInode(Disk().Resolve(top_, path), purpose, out);
    }
    void Close(FileHandle handle) override
    {
        const Busy busy;
        const auto held = machine_.locked.find(InodeOf(handle));
        if (held != machine_.locked.end() && held->second == handle)
            machine_.locked.erase(held);
        machine_.handles.erase(handle);
    }
    int Look(const char* path, FileInfo* out) override
    {
        const Busy busy;
        return std::strchr(path, '/') || !*path ? ELOOP : Tell(Disk().Resolve(top_, path), out);
    }

    int Inspect(FileHandle handle, FileInfo* out) override
    {
        const Busy busy;
        return Tell(InodeOf(handle), out);
    }
    int InspectFully(FileHandle handle, FileInfo* out) override
    {
        const Busy busy;
        return Tell(InodeOf(handle), out);
    }
    int Read(FileHandle handle, UINT64 offset, void* buffer, size_t size, size_t* got) override
    {
        const Busy busy;
        const Inode* const inode = Disk().Find(InodeOf(handle));
        if (!inode || inode->isDirectory)
            return EISDIR;
        const size_t from = std::min<size_t>(offset, inode->content.size());
        *got = std::min(size, inode->content.size() - from);
        std::memcpy(buffer, inode->content.data() + from, *got);
        return 0;
    }
    int Write(FileHandle handle, UINT64 offset, const void* buffer, size_t size) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::Write,
                     .inode = InodeOf(handle),
                     .number = offset,
                     .bytes = std::string(static_cast<const char*>(buffer), size)});
        return 0;
    }
    int SetSize(FileHandle handle, UINT64 size) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::Truncate, .inode = InodeOf(handle), .number = size});
        return 0;
    }
    int SetMode(FileHandle handle, UINT32 mode) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::SetMode, .inode = InodeOf(handle), .number = mode});
        return 0;
    }
    int SetOwner(FileHandle, UINT32, UINT32) override { return 0; }
    int SetModified(FileHandle handle, UINT64 date) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::SetDate, .inode = InodeOf(handle), .number = date});
        return 0;
    }
    int Sync(FileHandle handle, bool everything) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::Sync, .inode = InodeOf(handle), .number = everything});
        return 0;
    }
    int CopyContent(FileHandle from, FileHandle to, UINT64 size, const GoOn&) override
    {
        const Busy busy;
        const Inode* const inode = Disk().Find(InodeOf(from));
        if (!inode || inode->isDirectory)
            return EISDIR;
        const std::string content = inode->content.substr(0, size);
        return Write(to, 0, content.data(), content.size());
    }
    int GetTag(FileHandle handle, const char* tag, void* value, size_t room, size_t* size) override
    {
        const Busy busy;
        return TagOf(InodeOf(handle), tag, value, room, size);
    }
    int SetTag(FileHandle handle, const char* tag, const void* value, size_t size) override
    {
        const Busy busy;
        machine_.Do({.kind = Event::SetTag,
                     .inode = InodeOf(handle),
                     .name = tag,
                     .bytes = std::string(static_cast<const char*>(value), size)});
        return 0;
    }

    int InspectAt(FileHandle directory, const char* name, FileInfo* out) override
    {
        const Busy busy;
        return Tell(At(directory, name), out);
    }
    int OpenAt(FileHandle directory, const char* name, OpenFor purpose, FileHandle* out) override
    {
        const Busy busy;
        return OpenInode(At(directory, name), purpose, out);
    }
    int GetTagAt(FileHandle directory, const char* name, const char* tag, void* value, size_t room,
                 size_t* size) override
    {
        const Busy busy;
        return TagOf(At(directory, name), tag, value, room, size);
    }
    int CreateFile(FileHandle directory, const char* name, FileHandle* out) override
    {
        const Busy busy;
        if (At(directory, name) != kNoInode)
            return EEXIST;
        if (const int error = CreateUnnamed(directory, out))
            return error;
        return GiveName(*out, directory, name);
    }
    int CreateUnnamed(FileHandle, FileHandle* out) override
    {
        const Busy busy;
        *out = NewHandle(machine_.MakeInode(false, NewFileMode()));
        return 0;
    }
    int GiveName(FileHandle file, FileHandle directory, const char* name) override
    {
        const Busy busy;
        if (At(directory, name) != kNoInode)
            return EEXIST;
        return Link(InodeOf(file), directory, name);
    }
    int MakeDirectory(FileHandle directory, const char* name) override
    {
        const Busy busy;
        if (At(directory, name) != kNoInode)
            return EEXIST;
        return Link(machine_.MakeInode(true, 0755), directory, name);
    }
    // The disk has no links.
    int ReadLink(FileHandle, const char*, std::string*) override { return EINVAL; }
    int MakeLink(const char*, FileHandle, const char*) override { return EPERM; }
    int Rename(FileHandle fromDirectory, const char* from, FileHandle toDirectory, const char* to,
               bool replace) override
    {
        const Busy busy;
        if (machine_.handles[fromDirectory].top != machine_.handles[toDirectory].top)
            return EREMOTE;
        const Inode* const moved = Disk().Find(At(fromDirectory, from));
        const Inode* const replaced = Disk().Find(At(toDirectory, to));
        if (!moved)
            return ENOENT;
        if (replaced && !replace)
            return EEXIST;
        if (replaced && replaced->isDirectory != moved->isDirectory)
            return replaced->isDirectory ? EISDIR : ENOTDIR;
        if (replaced && !replaced->entries.empty())
            return ENOTEMPTY;
        return MoveName(Event::Rename, fromDirectory, from, toDirectory, to);
    }
    int Exchange(FileHandle oneDirectory, const char* one, FileHandle otherDirectory,
                 const char* other) override
    {
        const Busy busy;
        if (machine_.handles[oneDirectory].top != machine_.handles[otherDirectory].top)
            return EREMOTE;
        if (At(oneDirectory, one) == kNoInode || At(otherDirectory, other) == kNoInode)
            return ENOENT;
        return MoveName(Event::Exchange, oneDirectory, one, otherDirectory, other);
    }
    int RemoveFile(FileHandle directory, const char* name) override
    {
        const Busy busy;
        const Inode* const inode = Disk().Find(At(directory, name));
        if (!inode || inode->isDirectory)
            return inode ? EISDIR : ENOENT;
        return Unlink(directory, name);
    }
    int RemoveDirectory(FileHandle directory, const char* name) override
    {
        const Busy busy;
        const Inode* const inode = Disk().Find(At(directory, name));
        if (!inode || !inode->isDirectory)
            return inode ? ENOTDIR : ENOENT;
        return inode->entries.empty() ? Unlink(directory, name) : ENOTEMPTY;
    }
    int List(FileHandle directory, NameSink& sink) override
    {
        const Busy busy;
        const Inode* const inode = Disk().Find(InodeOf(directory));
        if (!inode || !inode->isDirectory)
            return ENOTDIR;
        const auto entries = inode->entries; // the sink may change the directory
        for (const auto& [name, id] : entries)
            if (!sink.OnName(name))
                break;
        return 0;
    }

    UINT32 NewFileMode() const override { return 0644; }
    int TryLock(FileHandle handle) override
    {
        const Busy busy;
        const auto [held, isNew] = machine_.locked.emplace(InodeOf(handle), handle);
        return isNew || held->second == handle ? 0 : EWOULDBLOCK;
    }
    int ExternalPath(const char* path, char* out, size_t room) override
    {
        const Busy busy;
        const std::string whole = directory_ + "/" + path;
        if (whole.size() >= room)
            return ENAMETOOLONG;
        std::memcpy(out, whole.c_str(), whole.size() + 1);
        return 0;
    }
    int Random(void* out, size_t size) override
    {
        const Busy busy;
        for (size_t i = 0; i < size; ++i)
            static_cast<unsigned char*>(out)[i] = static_cast<unsigned char>(machine_.Random());
        return 0;
    }
    bool IsInPlace() override { return true; }
    int Allocate(FileHandle, UINT64) override { return ENOSPC; } // it has no reserve
    int FreeSpace(UINT64* free, UINT64* total) override
    {
        *free = *total = UINT64{1} << 40;
        return 0;
    }

  private:
    const crashstates::Disk& Disk() const { return machine_.Now(); }
    InodeId InodeOf(FileHandle handle) const
    {
        const auto found = machine_.handles.find(handle);
        return found == machine_.handles.end() ? kNoInode : found->second.inode;
    }
    InodeId At(FileHandle directory, const char* name) const
    {
        return Disk().Resolve(InodeOf(directory), name);
    }
    int NewHandle(InodeId inode)
    {
        machine_.handles[machine_.nextHandle] = {inode, top_};
        return machine_.nextHandle++;
    }
    int OpenInode(InodeId id, OpenFor purpose, FileHandle* out)
    {
        const Inode* const inode = Disk().Find(id);
        if (!inode || (purpose == OpenFor::Directory && !inode->isDirectory))
            return inode ? ENOTDIR : ENOENT;
        *out = NewHandle(id);
        return 0;
    }
    int Tell(InodeId id, FileInfo* out) const
    {
        const Inode* const inode = Disk().Find(id);
        if (!inode)
            return ENOENT;
        *out = FileInfo{};
        out->isDirectory = inode->isDirectory;
        out->isRegular = !inode->isDirectory;
        out->mode = inode->mode;
        out->inode = id;
        out->size = inode->content.size();
        out->modified = out->created = inode->modified;
        out->isBirth = true;
        return 0;
    }
    int TagOf(InodeId id, const char* tag, void* value, size_t room, size_t* size) const
    {
        const Inode* const inode = Disk().Find(id);
        if (!inode)
            return ENOENT;
        const auto found = inode->tags.find(tag);
        if (found == inode->tags.end())
            return ENODATA;
        if (found->second.size() > room)
            return ERANGE;
        std::memcpy(value, found->second.data(), *size = found->second.size());
        return 0;
    }
    int Link(InodeId inode, FileHandle directory, const char* name)
    {
        machine_.Do(
            {.kind = Event::Link, .inode = inode, .directory = InodeOf(directory), .name = name});
        return 0;
    }
    int Unlink(FileHandle directory, const char* name)
    {
        machine_.Do({.kind = Event::Unlink, .directory = InodeOf(directory), .name = name});
        return 0;
    }
    int MoveName(Event::Kind kind, FileHandle fromDirectory, const char* from,
                 FileHandle toDirectory, const char* to)
    {
        machine_.Do({.kind = kind,
                     .directory = InodeOf(fromDirectory),
                     .toDirectory = InodeOf(toDirectory),
                     .name = from,
                     .toName = to});
        return 0;
    }

    Machine& machine_;
    const InodeId top_;
    const std::string directory_;
};

} // namespace

std::unique_ptr<FileSystem> Machine::Mount(InodeId top, const std::string& directory)
{
    return std::make_unique<MemoryFileSystem>(*this, top, directory);
}

} // namespace crashstates
