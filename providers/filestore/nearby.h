// SPDX-License-Identifier: Apache-2.0
//
// A private directory beside the name that content is for, where the volume's own cannot serve: no
// rename leads from there into a file system that is mounted inside the volume.
#pragma once

#include <string>

#include "providers/filestore/filesystem.h"

namespace filestore {

class Nearby {
  public:
    Nearby() = default;
    ~Nearby() { Leave(); }
    Nearby(const Nearby&) = delete;
    Nearby& operator=(const Nearby&) = delete;

    // Opens it in `parent`, which stays open as long as this, and makes it if need be. An errno.
    [[nodiscard]] int Enter(FileSystem& fs, FileHandle parent);
    bool IsEntered() const { return directory_.Get() != kNoFile; }
    FileHandle Get() const { return directory_.Get(); }
    // Removes it, unless somebody else has something there.
    void Leave();

  private:
    FileSystem* fs_ = nullptr;
    FileHandle parent_ = kNoFile;
    OpenFile directory_;
};

} // namespace filestore
