// SPDX-License-Identifier: Apache-2.0
//
// Who may sign in: the users file and the users given on the command line.
//
// The file has one user per line, "name:hash:dotted name:tree:mail"; fields from the third on may
// be left out. Lines that begin with "#" and empty lines are kept when the file is rewritten. Its
// mode is 0600.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/auth/text_file.h"
#include "host/config/user_name.h"

namespace kestd {

struct User {
    std::string name;       // UTF-8, what clients sign in with
    std::string hash;       // of crypt(5)
    std::string dottedName; // directory name such as "CN=admin.O=org"; empty for none
    std::string tree;       // empty for none
    std::string mail;       // empty for none
    bool operator==(const User&) const = default;
};

using UserMap = std::map<std::string, std::shared_ptr<const User>, std::less<>>;

inline constexpr size_t kLongestUserField = 400;
inline constexpr size_t kLargestUsersFile = 16 * 1024 * 1024;

// What is wrong with a directory name, tree or mail, which may be empty; else empty.
std::string WhatIsWrongWithField(std::string_view field);

// Adds one; a text when there is a user of that name already.
std::string AddUser(UserMap& users, User user);

// Reads a users file. A missing file holds no users. On failure returns "FILE:LINE: reason" (or
// "FILE: reason") and leaves `users` alone.
std::string LoadUsers(const std::string& path, UserMap& users);

// Changes the file in one step: `change` gets the users and alters them; what it left is written
// beside the file and renamed over it. Other writers wait meanwhile. A text from `change`, or a
// failure, leaves the file as it was and is returned; empty on success.
template <class Change> std::string ChangeUsers(const std::string& path, Change&& change);

// One user line, without its line break.
std::string FormatUser(const User& user);

// What ChangeUsers is made of.
class UsersFile {
  public:
    // Opens the file for changing and locks it, making it when missing.
    explicit UsersFile(std::string path);
    const std::string& Problem() const { return problem_; } // empty: it can be used
    UserMap& Users() { return users_; }
    std::string Write(); // empty on success

  private:
    LockedFile file_;
    std::string problem_;
    UserMap users_;
};

template <class Change> std::string ChangeUsers(const std::string& path, Change&& change)
{
    UsersFile file(path);
    if (!file.Problem().empty())
        return file.Problem();
    if (std::string refused = change(file.Users()); !refused.empty())
        return refused;
    return file.Write();
}

} // namespace kestd
