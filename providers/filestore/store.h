// SPDX-License-Identifier: Apache-2.0
//
// The volumes of this process, and how provider paths lead into them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kest/dav.h>
#include <kest/status.h>

#include "providers/filestore/target.h"
#include "providers/filestore/volume.h"

namespace filestore {

// Work that goes on beside the requests and can be woken.
class BackgroundWork {
  public:
    virtual ~BackgroundWork() = default;
    // Something is there to be removed at once; `retires`: deleted entries whose time is over, too.
    virtual void Wake(bool retires) = 0;
};

class Store {
  public:
    struct Options {
        SyncLevel sync = SyncLevel::Data;
        UINT32 keepDeletedDays = 30;
        UINT8 serverAddress[4] = {127, 0, 0, 1};
        // What a full disk is spared for, see room.h. A small disk gives less.
        UINT64 reserveBytes = 0;
        UINT64 keepFreeBytes = 0;
        // For which an upload is kept when nothing comes of it; 0: none are.
        UINT32 uploadSeconds = 86400;
        UINT64 (*now)() = nullptr; // 100 ns units since 1601
    };
    Store(std::vector<std::unique_ptr<Volume>> volumes, const Options& options);
    ~Store();

    const std::vector<std::unique_ptr<Volume>>& Volumes() const { return volumes_; }
    const Options& Settings() const { return options_; }
    UINT64 Now() const { return options_.now(); }
    UINT64 Started() const { return started_; }

    // Takes a provider path apart. Code 11 for an unknown volume or a name that is never served,
    // code 38 for a path that is too long.
    TALSTATUS Locate(const UNICODE_STRING* path, Target* out) const;
    TALSTATUS Locate(std::string_view path, Target* out) const;
    // The same for something to be made: a name that cannot be served is code 16, the root, what is
    // not in a volume and what has been deleted code 6.
    TALSTATUS LocateNew(const UNICODE_STRING* path, Target* out) const;

    // Opens what `target` leads to, with its kind: a file or a directory, nothing else is served.
    // A link from a page that escapes a name once too often is followed when nothing bears the
    // literal name and a page is what is asked for (GET, HEAD); `target` then holds the real path.
    TALSTATUS OpenExisting(Target* target, OpenFor purpose, OpenFile* out, FileInfo* info) const;

    // The volume's metadata; code 6 when the volume is read-only.
    static TALSTATUS OpenMetadata(const Volume& volume, std::unique_ptr<MetadataSession>* out);

    // The thread that removes what need not be kept; null in a store without one.
    void SetPurger(std::unique_ptr<BackgroundWork> purger);
    void WakePurger(bool retires = false) const;

  private:
    TALSTATUS Parse(const UNICODE_STRING* path, Target* out, bool* servable) const;
    TALSTATUS Parse(std::string_view path, Target* out, bool* servable) const;
    TALSTATUS ParseDeleted(std::string_view rest, Target* out, bool* servable) const;
    Volume* FindVolume(std::string_view name) const;

    const UINT64 number_;                          // no other store of this process has it
    std::vector<std::unique_ptr<Volume>> volumes_; // in listing order
    const Options options_;
    const UINT64 started_;
    std::unique_ptr<BackgroundWork> purger_;
};

} // namespace filestore
