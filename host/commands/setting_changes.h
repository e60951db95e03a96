// SPDX-License-Identifier: Apache-2.0
//
// What a reload changes: which settings are taken over, and which wait for the next start.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <kest/talpl.h>

namespace kestd {

class SettingChanges {
  public:
    // Remembers the settings that the host starts with.
    void Begin(ITalpl& platform);
    struct Change {
        std::string name; // "'KEY' 'NAME'"; no value, which may be a secret
        bool waits = false;
    };
    // After a reload: what is not as it was before it, and what is not as it was at the start and
    // has to wait. Takes the settings for those in force.
    std::vector<Change> Compare(ITalpl& platform);

    // Components read these again whenever they like: while the host runs, what it started with is
    // laid over the file; `location` is the moniker. Release shows the file's values until the next
    // Hold. Failures (no memory) leave the file's value.
    void Hold(const std::string& location);
    void Release();

  private:
    using Name = std::pair<std::u16string, std::u16string>; // key and value, as they are written
    using Values = std::map<Name, std::string>;             // type and bytes
    static Values Read(ITalpl& platform);

    Values started_;
    Values inForce_;
};

} // namespace kestd
