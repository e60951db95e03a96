// SPDX-License-Identifier: Apache-2.0
//
// A file system over another one that fails when a test says so.
#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

#include "providers/filestore/filesystem.h"

namespace filestore {

// Passes everything on, until the call that is to fail. Counts what is open.
class FailingFileSystem final : public FileSystem {
  public:
    explicit FailingFileSystem(std::unique_ptr<FileSystem> real) : real_(std::move(real)) {}

    std::atomic<int> failAt{0}; // counted down by every call that may fail; 0: never
    std::atomic<int> error{EIO};
    bool hasUnnamed = true; // files without a name
    bool hasExchange = true;
    size_t mostPerRead = 0;     // bytes that a read gives at once, 0: all
    std::atomic<int> open{0};   // a request lets go of what it has after its reply
    std::atomic<int> opened{0}; // ever
    UINT64 unnamedIn = 0;       // the directory that the last file without a name was made in
    std::atomic<bool> hasFailed{false};
    std::function<void()> onFailure; // what happens at that moment
    bool onlyWatches = false;        // and nothing else does
    std::function<void(FileHandle)> onSync;
    std::function<bool()> isFull; // the disk; asked where it is set
    // Where another file system is mounted, as an absolute path; empty: nowhere.
    std::string mountedAt;
    // Asked by every call that changes, opens or reads something: the error to fail with, or 0.
    std::function<int(const char* operation)> judge;

    int Open(const char* path, OpenFor purpose, FileHandle* out) override
    {
        return Opened(Fail(__func__) ? error.load() : real_->Open(path, purpose, out));
    }
    void Close(FileHandle handle) override
    {
        --open;
        real_->Close(handle);
    }
    int Look(const char* path, FileInfo* out) override
    {
        return Fail(__func__) ? error.load() : real_->Look(path, out);
    }
    int Inspect(FileHandle h, FileInfo* out) override
    {
        return Fail(__func__) ? error.load() : real_->Inspect(h, out);
    }
    int InspectFully(FileHandle h, FileInfo* out) override
    {
        return Fail(__func__) ? error.load() : real_->InspectFully(h, out);
    }
    int Read(FileHandle h, UINT64 offset, void* buffer, size_t size, size_t* got) override
    {
        const size_t wanted = mostPerRead ? std::min(size, mostPerRead) : size;
        return Fail(__func__) ? error.load() : real_->Read(h, offset, buffer, wanted, got);
    }
    int Write(FileHandle h, UINT64 offset, const void* buffer, size_t size) override
    {
        return IsFull()         ? ENOSPC
               : Fail(__func__) ? error.load()
                                : real_->Write(h, offset, buffer, size);
    }
    int SetSize(FileHandle h, UINT64 size) override
    {
        return IsFull() ? ENOSPC : Fail(__func__) ? error.load() : real_->SetSize(h, size);
    }
    int SetMode(FileHandle h, UINT32 mode) override
    {
        return Fail(__func__) ? error.load() : real_->SetMode(h, mode);
    }
    int SetOwner(FileHandle h, UINT32 owner, UINT32 group) override
    {
        return Fail(__func__) ? error.load() : real_->SetOwner(h, owner, group);
    }
    int SetModified(FileHandle h, UINT64 date) override
    {
        return Fail(__func__) ? error.load() : real_->SetModified(h, date);
    }
    int Sync(FileHandle h, bool everything) override
    {
        if (onSync)
            onSync(h);
        return Fail(__func__) ? error.load() : real_->Sync(h, everything);
    }
    int CopyContent(FileHandle from, FileHandle to, UINT64 size, const GoOn& goOn) override
    {
        return IsFull()         ? ENOSPC
               : Fail(__func__) ? error.load()
                                : real_->CopyContent(from, to, size, goOn);
    }
    int GetTag(FileHandle h, const char* tag, void* value, size_t room, size_t* size) override
    {
        return Fail(__func__) ? error.load() : real_->GetTag(h, tag, value, room, size);
    }
    int SetTag(FileHandle h, const char* tag, const void* value, size_t size) override
    {
        return Fail(__func__) ? error.load() : real_->SetTag(h, tag, value, size);
    }
    int InspectAt(FileHandle d, const char* name, FileInfo* out) override
    {
        return Fail(__func__) ? error.load() : real_->InspectAt(d, name, out);
    }
    int GetTagAt(FileHandle d, const char* name, const char* tag, void* value, size_t room,
                 size_t* size) override
    {
        return Fail(__func__) ? error.load() : real_->GetTagAt(d, name, tag, value, room, size);
    }
    int CreateFile(FileHandle d, const char* name, FileHandle* out) override
    {
        return Opened(IsFull()         ? ENOSPC
                      : Fail(__func__) ? error.load()
                                       : real_->CreateFile(d, name, out));
    }
    int OpenAt(FileHandle d, const char* name, OpenFor purpose, FileHandle* out) override
    {
        return Opened(Fail(__func__) ? error.load() : real_->OpenAt(d, name, purpose, out));
    }
    int CreateUnnamed(FileHandle d, FileHandle* out) override
    {
        if (!hasUnnamed)
            return EOPNOTSUPP;
        FileInfo in;
        EXPECT_EQ(0, real_->Inspect(d, &in));
        unnamedIn = in.inode;
        return Opened(IsFull()         ? ENOSPC
                      : Fail(__func__) ? error.load()
                                       : real_->CreateUnnamed(d, out));
    }
    int GiveName(FileHandle file, FileHandle d, const char* name) override
    {
        if (AreApart(file, d))
            return EREMOTE;
        return Fail(__func__) ? error.load() : real_->GiveName(file, d, name);
    }
    int MakeDirectory(FileHandle d, const char* name) override
    {
        return IsFull() ? ENOSPC : Fail(__func__) ? error.load() : real_->MakeDirectory(d, name);
    }
    int ReadLink(FileHandle d, const char* name, std::string* out) override
    {
        return Fail(__func__) ? error.load() : real_->ReadLink(d, name, out);
    }
    int MakeLink(const char* text, FileHandle d, const char* name) override
    {
        return Fail(__func__) ? error.load() : real_->MakeLink(text, d, name);
    }
    int Rename(FileHandle fromDirectory, const char* from, FileHandle toDirectory, const char* to,
               bool replace) override
    {
        if (AreApart(fromDirectory, toDirectory))
            return EREMOTE;
        return Fail(__func__) ? error.load()
                              : real_->Rename(fromDirectory, from, toDirectory, to, replace);
    }
    // Clean-up is let through by `failAt`: a disk that refuses even that is the next start's
    // affair.
    int RemoveFile(FileHandle d, const char* name) override
    {
        return Judged(__func__) ? error.load() : real_->RemoveFile(d, name);
    }
    int Exchange(FileHandle directory, const char* name, FileHandle otherDirectory,
                 const char* otherName) override
    {
        if (!hasExchange)
            return EOPNOTSUPP;
        if (AreApart(directory, otherDirectory))
            return EREMOTE;
        return Fail(__func__) ? error.load()
                              : real_->Exchange(directory, name, otherDirectory, otherName);
    }
    int RemoveDirectory(FileHandle d, const char* name) override
    {
        return Judged(__func__) ? error.load() : real_->RemoveDirectory(d, name);
    }
    int List(FileHandle d, NameSink& sink) override
    {
        return Fail(__func__) ? error.load() : real_->List(d, sink);
    }
    int KeepPrivate(FileHandle h) override { return real_->KeepPrivate(h); }
    UINT32 NewFileMode() const override { return real_->NewFileMode(); }
    int TryLock(FileHandle h) override { return real_->TryLock(h); }
    int ExternalPath(const char* path, char* out, size_t room) override
    {
        return real_->ExternalPath(path, out, room);
    }
    int Random(void* out, size_t size) override
    {
        return Fail(__func__) ? error.load() : real_->Random(out, size);
    }
    int Allocate(FileHandle h, UINT64 size) override
    {
        return IsFull() ? ENOSPC : Fail(__func__) ? error.load() : real_->Allocate(h, size);
    }
    int FreeSpace(UINT64* free, UINT64* total) override
    {
        const int result = real_->FreeSpace(free, total);
        if (result == 0 && isFull)
            *free = IsFull() ? 0 : *total;
        return result;
    }
    int FreeSpaceAt(const char* path, UINT64* free, UINT64* total) override
    {
        return Fail(__func__) ? error.load() : real_->FreeSpaceAt(path, free, total);
    }
    bool IsInPlace() override { return real_->IsInPlace(); }

  private:
    bool IsMounted(FileHandle handle) const
    {
        char path[PATH_MAX] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(handle);
        EXPECT_GT(::readlink(link.c_str(), path, sizeof path - 1), 0);
        const std::string_view text(path);
        return text.starts_with(mountedAt) &&
               (text.size() == mountedAt.size() || text[mountedAt.size()] == '/');
    }
    bool AreApart(FileHandle a, FileHandle b) const
    {
        return !mountedAt.empty() && IsMounted(a) != IsMounted(b);
    }
    bool IsFull() const { return isFull && isFull(); }
    bool Judged(const char* operation) { return judge && (error = judge(operation)) != 0; }
    bool Fail(const char* operation)
    {
        if (Judged(operation))
            return true;
        if (failAt == 0 || --failAt != 0)
            return false;
        hasFailed = true;
        if (onFailure)
            onFailure();
        return !onlyWatches;
    }
    int Opened(int result)
    {
        open += result == 0 ? 1 : 0;
        opened += result == 0 ? 1 : 0;
        return result;
    }
    std::unique_ptr<FileSystem> real_;
};

} // namespace filestore
