// SPDX-License-Identifier: Apache-2.0
//
// The command line as typed values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestd {

// Splits arguments into options and the rest. "--name value" and "--name=value" are the same; "--"
// ends the options.
class ArgumentReader {
  public:
    explicit ArgumentReader(std::vector<std::string> arguments);

    // Takes the next argument: true with an option's name (with its dashes) or, for anything else,
    // an empty name and the text in Rest(). False at the end.
    bool Next(std::string& option);
    const std::string& Rest() const { return rest_; }
    // The value of the option that Next gave. False, with Problem set, when there is none.
    bool Value(std::string& value);
    // The option that Next gave takes no value: false, with Problem set, when it has one.
    bool NoValue();
    void Refuse(std::string problem);
    const std::string& Problem() const { return problem_; }

  private:
    std::vector<std::string> arguments_;
    size_t at_ = 0;
    bool takesOptions_ = true;
    std::string option_;
    std::string rest_;
    std::string attached_; // "--name=value"
    bool hasAttached_ = false;
    std::string problem_;
};

struct VolumeArgument {
    std::string name;
    std::string directory; // as given
};

struct ServeArguments {
    std::string config;                                     // empty: the installed one, or none
    std::vector<std::string> listen;                        // ADDR:PORT
    std::vector<std::pair<std::string, std::string>> users; // name, password
    std::string publicUrl;
    std::string tlsCertificate;
    std::string tlsKey;
    std::string dialect;        // "classic" or "standard"; empty: as the configuration says
    std::string stateDirectory; // empty: the usual place
    std::vector<VolumeArgument> volumes;
    bool wantsHelp = false;
};

// Empty on success, else what is wrong.
std::string ParseServe(std::vector<std::string> arguments, ServeArguments& out);

struct UserArguments {
    std::string action; // "add", "remove", "passwd" or "list"
    std::string name;
    std::string config;
    std::string stateDirectory;
    std::string usersFile; // empty: as the configuration says
    // What "add" sets besides.
    std::string dottedName;
    std::string tree;
    std::string mail;
    bool wantsHelp = false;
};

std::string ParseUser(std::vector<std::string> arguments, UserArguments& out);

struct AppPasswordArguments {
    std::string action; // "add", "list" or "revoke"
    std::string user;   // may be empty for "list"
    std::string name;   // of the password; its identifier also for "revoke"
    int64_t days = 365; // until it ends; 0: never
    std::string volume; // empty: all
    bool isReadOnly = false;
    std::string config;
    std::string stateDirectory;
    bool wantsHelp = false;
};

std::string ParseAppPassword(std::vector<std::string> arguments, AppPasswordArguments& out);

// "NAME=DIR", or "DIR" for a volume named by its last component ("." and ".." by that of the
// directory they stand for). False when that gives no name.
bool ParseVolume(const std::string& text, VolumeArgument& out);

} // namespace kestd
