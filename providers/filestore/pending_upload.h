// SPDX-License-Identifier: Apache-2.0
//
// One upload that can go on when its connection has broken: its content and its record, two files
// in .kest/uploads/.
//
// The record says how much of the content is on the disk; it is written after that has been synced,
// and what lies beyond in the file counts for nothing. When the content takes its name its inode
// goes with it: an upload whose target has the recorded inode is complete, whenever the power
// failed in between.
#pragma once

#include <mutex>
#include <string>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/upload_record.h"
#include "providers/filestore/upload_registry.h"

namespace filestore {

inline constexpr std::string_view kUploadRecordSuffix = ".state";

class PendingUpload {
  public:
    PendingUpload(const Store& store, Volume& volume, std::string name)
        : store_(store), volume_(volume), name_(std::move(name))
    {
    }
    PendingUpload(const PendingUpload&) = delete;
    PendingUpload& operator=(const PendingUpload&) = delete;

    // Held over everything that follows, and never while a client is waited for.
    std::mutex& Mutex() { return mutex_; }

    // Opens its files, if they are not open. Code 11 where there is no such upload, or not any
    // more; code 10 while another process works on it.
    TALSTATUS Load();
    const UploadRecord& Record() const { return record_; }
    bool IsComplete() const { return isComplete_; }
    UINT64 Offset() const { return offset_; } // bytes that have been written

    // Who takes it is the one who may change it, until somebody else does.
    UINT64 Take() { return ++holder_; }
    bool IsHeldBy(UINT64 holder) const { return holder_ == holder && content_; }

    // Adds content behind what is there. Now and then it is synced and recorded.
    TALSTATUS Append(const void* data, UINT32 size);
    // Takes back what lies behind `offset`.
    TALSTATUS CutTo(UINT64 offset);
    TALSTATUS Read(UINT64 offset, void* buffer, UINT32 size, UINT32* read);
    TALSTATUS SetWholeLength(UINT64 length);
    // Syncs what was written, as the volume wants it, and records it.
    TALSTATUS Checkpoint();
    // Puts the content under its name. After a failure it is still there.
    TALSTATUS Publish(const Guard& guard, DAV_DATETIME modified, DAV_DATETIME created,
                      FileInfo* published, bool* replaced);
    // Removes both files. What of them stays is swept.
    TALSTATUS Remove();

  private:
    TALSTATUS ReadRecord();
    TALSTATUS FindContent();
    TALSTATUS WriteHead(UploadRecord next);
    bool IsExpired() const;
    void Forget();

    const Store& store_;
    Volume& volume_;
    const std::string name_;
    std::mutex mutex_;
    UINT64 holder_ = 0;
    UploadRecord record_;
    OpenFile recordFile_;
    OpenFile content_; // none: not loaded, complete, or gone
    UINT64 offset_ = 0;
    bool isLoaded_ = false;
    bool hasNewLength_ = false; // that is not written yet
    bool isComplete_ = false;
};

// The hold on an upload of a volume.
[[nodiscard]] std::unique_ptr<UploadRegistry::Hold> HoldUpload(const Store& store, Volume& volume,
                                                               std::string_view name);

} // namespace filestore
