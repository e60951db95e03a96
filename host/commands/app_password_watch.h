// SPDX-License-Identifier: Apache-2.0
//
// Keeps a running server's app passwords as their file says, and writes down when they were used.
#pragma once

#include <cstdint>
#include <string>

#include "host/auth/authenticator.h"
#include "host/auth/sessions.h"

namespace kestd {

// For one thread.
class AppPasswordWatch {
  public:
    // Both outlive it.
    AppPasswordWatch(Authenticator& authenticator, SessionTable& sessions)
        : authenticator_(authenticator), sessions_(sessions)
    {
    }

    // Takes over what was read from the file, and the times of use from beside it.
    void Use(const std::string& path, AppPasswords apps);
    // Every second or so: a file that has changed is taken over, so that what was revoked there
    // counts no longer; once a minute the times of use are written. Throws std::bad_alloc.
    void Look();
    // Writes the times of use that are not written yet.
    void Stop();

  private:
    // What tells a file that was replaced from the one before.
    struct Stamp {
        uint64_t inode = 0;
        int64_t seconds = 0;
        int64_t nanoseconds = 0;
        int64_t size = -1; // -1: there is none
        bool operator==(const Stamp&) const = default;
    };
    static Stamp StampOf(const std::string& path);
    void WriteDown();

    Authenticator& authenticator_;
    SessionTable& sessions_;
    std::string path_;
    Stamp stamp_;
    std::string written_; // the times of use, as they lie in their file
    TimePoint nextWrite_{};
};

} // namespace kestd
