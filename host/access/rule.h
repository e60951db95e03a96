// SPDX-License-Identifier: Apache-2.0
//
// An access rule as an administrator writes it: who, where, which rights.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <kest/host/access.h>

namespace kestd {

// What can be allowed and denied: kRightList and so on, as bits.
using Rights = uint32_t;
inline constexpr size_t kRightCount = 5;
inline constexpr std::string_view kRightNames[kRightCount] = {"list", "read", "create", "change",
                                                              "delete"};

// Whom a rule speaks of. The later kinds are the more specific ones.
struct Who {
    enum class Kind { Everybody, Anonymous, Group, User };
    Kind kind = Kind::Everybody;
    std::string name; // of the group or user; group names in lower case
    bool operator==(const Who&) const = default;
};

struct AccessRule {
    std::string name;     // what "kestd access explain" calls it
    std::vector<Who> who; // at least one
    // "/VOLUME/folder": the object there with all that is below it. "/VOLUME/folder/*": only what
    // is below. A component "%u" is the user's own name. "/": everything.
    std::string path;
    Rights allowed = 0;
    Rights denied = 0;  // what is in neither is left to less specific rules
    bool makes = false; // the folder is made when a user signs in
};

// The members of a group of the configuration.
struct AccessGroup {
    std::string name; // lower case
    std::vector<std::string> users;
};

inline constexpr size_t kMostRuleComponents = 64;
inline constexpr size_t kLongestRulePath = 4096; // bytes
inline constexpr std::string_view kUserComponent = "%u";
inline constexpr std::string_view kMembersComponent = "*";

// A group's name as rules compare it: without case.
[[nodiscard]] std::string GroupName(std::string_view text);
// Reads "everybody", "anonymous", "user:NAME" or "group:NAME". False for anything else.
[[nodiscard]] bool ParseWho(std::string_view text, Who& who);
// Adds a right by its name, or all of them by "all". False for no name of a right.
[[nodiscard]] bool ParseRight(std::string_view name, Rights& rights);
// Empty when a rule can have the path; else what is wrong with it.
[[nodiscard]] std::string WhatIsWrongWithRulePath(std::string_view path);

// Takes the next component off a path; empty ones, and those that are ".", are passed over. False
// at the end.
[[nodiscard]] bool TakeComponent(std::string_view& path, std::string_view& component) noexcept;

} // namespace kestd
