// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/recent.h"

#include <utility>

#include "providers/filestore/callcontext.h"

namespace filestore::recent {

namespace {

struct Slot {
    ~Slot() { Close(); }
    void Close()
    {
        if (file != kNoFile)
            volume->Fs().Close(std::exchange(file, kNoFile));
        directory.reset();
        failure = TAL_STATUS_SUCCESS;
        isLook = false;
    }
    // Notes what is kept. False when no request runs.
    bool Keep(const Target& target, const FileInfo& about)
    {
        Close();
        request = call::Request();
        if (!request)
            return false;
        path = target.path.View();
        volume = target.volume;
        info = about;
        return true;
    }
    bool IsFor(const Target& target) const
    {
        return volume == target.volume && path == target.path.View() && request == call::Request();
    }
    const IKestIO_5* request = nullptr;
    Volume* volume = nullptr;
    std::string path;          // keeps its room from request to request
    FileHandle file = kNoFile; // this one or
    DirectoryRef directory;    // that one, or none
    TALSTATUS failure = TAL_STATUS_SUCCESS;
    bool isLook = false; // none, but `info` is good
    FileInfo info;
};

thread_local Slot t_slot;

} // namespace

void Keep(const Target& target, OpenFile file, const FileInfo& info)
{
    if (t_slot.Keep(target, info))
        t_slot.file = file.Detach();
}

void KeepPlace(const Target& target, DirectoryRef directory, const FileInfo& info)
{
    if (t_slot.Keep(target, info))
        t_slot.directory = std::move(directory);
}

void KeepLook(const Target& target, const FileInfo& info)
{
    t_slot.isLook = t_slot.Keep(target, info);
}

bool Take(const Target& target, OpenFile* file, FileInfo* info)
{
    if ((t_slot.file == kNoFile && !t_slot.isLook) || !t_slot.IsFor(target)) {
        t_slot.Close();
        return false;
    }
    *file = OpenFile(target.volume->Fs(), std::exchange(t_slot.file, kNoFile));
    *info = t_slot.info;
    t_slot.isLook = false;
    return true;
}

bool TakePlace(const Target& target, DirectoryRef* directory, FileInfo* info)
{
    if (!t_slot.directory || !t_slot.IsFor(target)) {
        t_slot.Close();
        return false;
    }
    *directory = std::move(t_slot.directory);
    *info = t_slot.info;
    return true;
}

bool KeepFailure(const Target& target, TALSTATUS status)
{
    if (!t_slot.Keep(target, {}))
        return false;
    t_slot.failure = status;
    return true;
}

TALSTATUS TakeFailure(const Target& target)
{
    if (!Failed(t_slot.failure))
        return TAL_STATUS_SUCCESS;
    const TALSTATUS status = t_slot.IsFor(target) ? t_slot.failure : TAL_STATUS_SUCCESS;
    t_slot.Close();
    return status;
}

void Drop()
{
    t_slot.Close();
}

} // namespace filestore::recent
