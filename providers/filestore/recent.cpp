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
    }
    const IKestIO_5* request = nullptr;
    Volume* volume = nullptr;
    std::string path; // keeps its room from request to request
    FileHandle file = kNoFile;
    FileInfo info;
};

thread_local Slot t_slot;

} // namespace

void Keep(const Target& target, OpenFile file, const FileInfo& info)
{
    t_slot.Close();
    t_slot.request = call::Request();
    if (!t_slot.request)
        return;
    t_slot.path = target.path.View();
    t_slot.volume = target.volume;
    t_slot.file = file.Detach();
    t_slot.info = info;
}

bool Take(const Target& target, OpenFile* file, FileInfo* info)
{
    if (t_slot.file == kNoFile)
        return false;
    if (t_slot.volume != target.volume || t_slot.path != target.path.View() ||
        t_slot.request != call::Request()) {
        t_slot.Close();
        return false;
    }
    *file = OpenFile(target.volume->Fs(), std::exchange(t_slot.file, kNoFile));
    *info = t_slot.info;
    return true;
}

void Drop()
{
    t_slot.Close();
}

} // namespace filestore::recent
