// SPDX-License-Identifier: Apache-2.0
//
// All access rules, compiled into a tree of path components, so that a question costs as many steps
// as its path has components, however many rules and users there are.
//
// For each right the rule decides whose path is the longest one that the object lies at or below
// ("/a/*" is longer than "/a"); of several with that path the one for the user, then those for his
// groups, then those for who is not signed in, then those for everybody. What still differs is
// denied. What no rule speaks of is allowed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/access/rule.h"

namespace kestd {

// Who asks, in the numbers of one set of rules; made by AccessRules::SubjectOf.
class AccessSubject {
  public:
    bool IsAnonymous() const noexcept { return user_.empty(); }
    std::string_view User() const noexcept { return user_; }
    std::span<const uint32_t> Groups() const noexcept
    {
        return own_.empty() ? groups_ : std::span<const uint32_t>(own_);
    }

  private:
    friend class AccessRules;
    static constexpr uint32_t kNoNumber = ~uint32_t{0};

    std::string_view user_;            // the caller's text
    uint32_t number_ = kNoNumber;      // of a user whom a rule names
    std::span<const uint32_t> groups_; // ascending; the rules'
    std::vector<uint32_t> own_;        // in place of them, where the sign-in has told of more
};

// Immutable; any thread.
class AccessRules {
  public:
    // The rules are right by ParseWho and WhatIsWrongWithRulePath. Throws std::bad_alloc.
    AccessRules(std::vector<AccessRule> rules, std::vector<AccessGroup> groups);
    AccessRules(const AccessRules&) = delete;
    AccessRules& operator=(const AccessRules&) = delete;

    const std::vector<AccessRule>& Rules() const noexcept { return rules_; }
    // The groups of a user, by the configuration, in lower case.
    std::vector<std::string> GroupsOf(std::string_view user) const;

    // `user` is empty for who has not signed in, and outlives the subject. `told` are groups that
    // the sign-in knows him to be in, besides those of the configuration; may be null. Throws
    // std::bad_alloc with such groups only.
    AccessSubject SubjectOf(std::string_view user, const std::vector<std::string>* told) const;

    // The rights on an object. Paths are the provider's, decoded, "/VOLUME/folder/file".
    Rights At(const AccessSubject& subject, std::string_view path) const noexcept;
    // The rights on members of a collection that no rule names; `isUniform` is set when that is
    // every member.
    Rights OfMembers(const AccessSubject& subject, std::string_view path,
                     bool& isUniform) const noexcept;
    // The rights that hold for whatever there is, or could be, below `path`, without itself.
    Rights Below(const AccessSubject& subject, std::string_view path) const noexcept;
    // The folders that are to be made when the user signs in, as provider paths, the shorter ones
    // first.
    std::vector<std::string> FoldersToMake(const AccessSubject& subject) const;
    bool MakesFolders() const noexcept { return makesFolders_; }

  private:
    // What is allowed and denied at one path to some.
    struct Grant {
        Rights allowed = 0;
        Rights denied = 0;
        void Add(const Grant& other) noexcept
        {
            allowed |= other.allowed;
            denied |= other.denied;
        }
    };
    using NumberedGrants = std::vector<std::pair<uint32_t, Grant>>; // ascending
    struct Grants {
        Grant everybody;
        Grant anonymous;
        NumberedGrants groups;
        NumberedGrants users;
        bool isEmpty = true;
    };
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept
        {
            return std::hash<std::string_view>()(text);
        }
    };
    struct Node {
        std::unordered_map<std::string, uint32_t, Hash, std::equal_to<>> children;
        uint32_t userChild = 0; // "%u"; 0, the root's number, for none
        Grants own;             // for the object and what is below it
        Grants below;           // only for what is below it
    };
    // The nodes that a path leads to: one by its names, and one for each "%u" that has met the
    // user's name on the way.
    struct Place {
        uint32_t nodes[kMostRuleComponents + 1];
        size_t count = 0;
        void Add(uint32_t node) noexcept { nodes[count++] = node; }
    };

    uint32_t NodeFor(std::string_view path, bool& isBelow);
    uint32_t ChildOf(uint32_t node, std::string_view name);
    void Enter(const AccessRule& rule);
    template <class Numbers> static uint32_t NumberOf(Numbers& numbers, const std::string& name);
    static const Grant* Find(const NumberedGrants& grants, uint32_t number) noexcept;
    static void Put(NumberedGrants& grants, uint32_t number, const Grant& grant);

    Rights Evaluate(const AccessSubject& subject, const Place& place, Grants Node::*which,
                    Rights inherited) const noexcept;
    Rights EvaluateSome(const AccessSubject& subject, const Place& place, Grants Node::*which,
                        Rights inherited) const noexcept; // where there are grants
    bool Descend(const AccessSubject& subject, std::string_view name, const Place& from,
                 Place& to) const noexcept;
    Rights Follow(const AccessSubject& subject, std::string_view path, Place& place) const noexcept;
    Rights InTree(const AccessSubject& subject, const Place& place, Rights inherited,
                  Rights least) const noexcept;

    std::vector<AccessRule> rules_;
    std::vector<Node> nodes_; // the first is the root
    std::map<std::string, uint32_t, std::less<>> groupNumbers_;
    std::unordered_map<std::string, uint32_t, Hash, std::equal_to<>> userNumbers_; // of rules
    // Of users in groups: their groups, ascending.
    std::unordered_map<std::string, std::vector<uint32_t>, Hash, std::equal_to<>> memberships_;
    bool makesFolders_ = false;
};

} // namespace kestd
