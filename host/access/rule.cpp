// SPDX-License-Identifier: Apache-2.0
//
// Reading the parts of an access rule.
#include "host/access/rule.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/utf.h"

namespace kestd {

std::string GroupName(std::string_view text)
{
    std::string name(text);
    std::ranges::transform(name, name.begin(), base::Lower);
    return name;
}

bool ParseWho(std::string_view text, Who& who)
{
    if (text == "everybody" || text == "anonymous") {
        who = {text == "everybody" ? Who::Kind::Everybody : Who::Kind::Anonymous, {}};
        return true;
    }
    const size_t colon = std::min(text.find(':'), text.size());
    const std::string_view kind = text.substr(0, colon);
    const std::string_view name = text.substr(std::min(colon + 1, text.size()));
    if (name.empty() || (kind != "user" && kind != "group"))
        return false;
    who.kind = kind == "user" ? Who::Kind::User : Who::Kind::Group;
    who.name = who.kind == Who::Kind::Group ? GroupName(name) : std::string(name);
    return true;
}

bool ParseRight(std::string_view name, Rights& rights)
{
    if (name == "all") {
        rights |= kRightsAll;
        return true;
    }
    const auto* const found = std::find(std::begin(kRightNames), std::end(kRightNames), name);
    if (found == std::end(kRightNames))
        return false;
    rights |= Rights{1} << (found - std::begin(kRightNames));
    return true;
}

std::string WhatIsWrongWithRulePath(std::string_view path)
{
    if (path.empty() || path.front() != '/')
        return "expected a path that begins with '/'";
    if (path.size() > kLongestRulePath)
        return "expected at most " + std::to_string(kLongestRulePath) + " bytes";
    if (!base::IsUtf8(path) || base::HasControlOrTab(path))
        return "expected valid text without control characters";
    if (path.size() > 1 && path.back() == '/')
        return "expected no '/' at the end";
    size_t components = 0;
    size_t userComponents = 0;
    for (std::string_view rest = path.substr(1); !rest.empty();) {
        const size_t end = std::min(rest.find('/'), rest.size());
        const std::string_view one = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (one.empty() || one == "." || one == "..")
            return "expected names between the '/', neither empty nor '.' nor '..'";
        if (one == kMembersComponent && !rest.empty())
            return "expected '*' as the last name only";
        if (one != kUserComponent && one.find(kUserComponent) != std::string_view::npos)
            return "expected '%u' as a whole name";
        userComponents += one == kUserComponent ? 1 : 0;
        ++components;
    }
    if (userComponents > 1)
        return "expected '%u' once";
    if (components > kMostRuleComponents)
        return "expected at most " + std::to_string(kMostRuleComponents) + " names";
    return {};
}

bool TakeComponent(std::string_view& path, std::string_view& component) noexcept
{
    while (!path.empty()) {
        if (path.front() == '/') { // as most paths begin
            path.remove_prefix(1);
            continue;
        }
        const size_t end = std::min(path.find('/'), path.size());
        component = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (!component.empty() && component != ".")
            return true;
    }
    return false;
}

} // namespace kestd
