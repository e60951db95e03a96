// SPDX-License-Identifier: Apache-2.0
//
// From the command line and the configuration file to settings: what "serve", "check" and "user"
// have in common.
#pragma once

#include <string>
#include <vector>

#include "host/auth/app_passwords.h"
#include "host/auth/users.h"
#include "host/commands/arguments.h"
#include "host/commands/places.h"
#include "host/config/host_settings.h"
#include <kest/com.h>

namespace kestd {

// The users whom files and the command line name.
struct UserLists {
    UserMap users;    // of the users file and of the command line
    UserMap htpasswd; // of the htpasswd file
    AppPasswords apps;
    bool Contains(const std::string& name) const
    {
        return users.contains(name) || htpasswd.contains(name);
    }
};

// The registry of this process, filled from a file, the command line and the defaults of the
// installation.
class Setup {
  public:
    // With `isCheck` nothing is made on the disk.
    Setup(ServeArguments arguments, const Places& places, bool isCheck = false);

    // A state directory that is named has to be there, since users in it would be missed in
    // silence. The one that is used by itself is made when something is kept in it. Empty when all
    // is well.
    std::string CheckState() const;
    // Reads the file and lays the command line and the defaults over it. Empty on success. With
    // `isReload`, a failure to read the file leaves everything as it was.
    std::string LoadRegistry(bool isReload);
    // The settings as they are now; empty on success, else what is wrong with their values, a line
    // each.
    std::string ReadSettings(HostSettings& settings);
    // After it: tables and settings that nobody knows, and files, directories and libraries that
    // are named and cannot be used, a line each. ReadUsers says it of the users file.
    std::string CheckPathsAndNames();
    // The users of the file and of the command line. Passwords of the latter are hashed at the
    // first call.
    std::string ReadUsers(const HostSettings& settings, UserLists& lists);
    // Refuses what would let anybody in from another machine; empty when all is well.
    static std::string CheckAccessPolicy(const HostSettings& settings, const UserLists& lists);

    const std::string& StateDirectory() const { return state_; }
    ITalpl& Platform() { return *platform_.Get(); }

  private:
    struct Default {
        std::u16string key;
        std::u16string name;
        std::string value;
    };

    std::string LayCommandLine();
    std::string LayDefaults();
    std::string LayVolumes();
    std::string LayPrefix();

    std::string ReadUsersFile(const HostSettings& settings, UserMap& users);

    const ServeArguments arguments_;
    const Places places_;
    std::string config_;
    std::string state_;
    Ref<ITalpl> platform_;
    std::vector<User> commandLineUsers_;
    const bool isCheck_;
    bool haveHashed_ = false;
    bool ownsVolume_ = false; // the volume "files" of the state directory is laid over the file
    bool ownsProvider_ = false;
};

// Rules about access that name whom or what there is not.
std::vector<std::string> AccessWarnings(const HostSettings& settings, const UserLists& lists,
                                        ITalpl& platform);

// Whether somebody can sign in who is in none of the lists, or has to, though nobody is.
bool HasOtherSources(const HostSettings& settings);

// The users file that the settings name, or the state directory's.
std::string UsersFileOf(const HostSettings& settings, const std::string& stateDirectory);
// Likewise the file of the app passwords.
std::string AppPasswordsFileOf(const HostSettings& settings, const std::string& stateDirectory);

} // namespace kestd
