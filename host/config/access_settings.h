// SPDX-License-Identifier: Apache-2.0
//
// Reads the access rules and groups from the registry.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/access/access_rules.h"
#include "host/config/store_settings.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kAccessGroupsKey = u"Kest\\Configuration\\Access\\Groups";
inline constexpr const char16_t* kAccessRulesKey = u"Kest\\Configuration\\Access\\Rules";

// Null without rules. Empty on success, else "FILE:LINE: 'KEY' 'NAME': reason" for the first thing
// that is wrong. `hasOtherGroups`: users may be in groups that the configuration does not have.
std::string ReadAccessRules(ITalpl& platform, std::shared_ptr<const AccessRules>& rules,
                            bool hasOtherGroups = false);

// What looks like a mistake and keeps nobody from starting: a rule for a user whom `isUser` does
// not know, or for a volume that is not configured. One sentence each.
template <class IsUser>
std::vector<std::string> WarningsAbout(const AccessRules& rules, ITalpl& platform, IsUser&& isUser);

template <class IsUser>
std::vector<std::string> WarningsAbout(const AccessRules& rules, ITalpl& platform, IsUser&& isUser)
{
    std::vector<std::string> warnings;
    const std::vector<std::string> volumes = VolumeNames(platform);
    for (const AccessRule& rule : rules.Rules()) {
        for (const Who& who : rule.who)
            if (who.kind == Who::Kind::User && !isUser(who.name))
                warnings.push_back("access rule '" + rule.name + "': there is no user '" +
                                   who.name + "'");
        std::string_view rest = rule.path;
        std::string_view volume;
        if (!TakeComponent(rest, volume) || volume == kUserComponent || volume == kMembersComponent)
            continue;
        if (std::find(volumes.begin(), volumes.end(), volume) == volumes.end())
            warnings.push_back("access rule '" + rule.name + "': there is no volume '" +
                               std::string(volume) + "'");
    }
    return warnings;
}

} // namespace kestd
