// SPDX-License-Identifier: Apache-2.0
//
// Names of directory entries. A dotted name ("CN=admin.O=org") goes from the entry to the root, "\"
// escaping the character behind it. A full distinguished name ("\\TREE\O=org\CN=admin") begins with
// the tree and goes from the root to the entry. An LDAP name ("CN=admin,O=org") is RFC 4514's.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestd {

// The components of a dotted name from the entry to the root, escapes undone. One leading and one
// trailing "." are ignored.
std::vector<std::u16string> SplitDottedName(std::u16string_view name);

// The full distinguished name of a dotted name in a tree.
std::u16string FullName(std::u16string_view tree, std::u16string_view dottedName);

struct DirectoryName {
    std::u16string tree;
    std::vector<std::u16string> components; // from the root to the entry
};

// Nothing for a text that is no full distinguished name with at least one component.
std::optional<DirectoryName> ParseFullName(std::u16string_view name);

// A user's name as a dotted name of one component.
std::string DottedNameOfUser(std::string_view user);

// The LDAP name of an entry below `base` (an LDAP name, may be empty), UTF-8. A component without a
// type gets the usual one: CN for the entry, O for the root, OU between. Nothing when a component
// is not valid UTF-16 or its type is none.
std::optional<std::string> LdapName(const DirectoryName& name, std::string_view base);

} // namespace kestd
