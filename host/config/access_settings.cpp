// SPDX-License-Identifier: Apache-2.0
//
// One table for the groups, and one for each rule.
#include "host/config/access_settings.h"

#include <algorithm>

#include "base/utf.h"
#include "host/config/registry_reader.h"

namespace kestd {
namespace {

std::string ReadGroups(ITalpl& platform, std::vector<AccessGroup>& groups)
{
    std::vector<std::u16string> names;
    if (!NamesOf(platform, kAccessGroupsKey, names))
        return "the groups cannot be read";
    RegistryReader in(platform, kAccessGroupsKey);
    for (const std::u16string& name : names) {
        AccessGroup& group = groups.emplace_back();
        group.name = GroupName(base::ToUtf8(name).value_or(""));
        in.Texts(name.c_str(), group.users);
        if (group.name.empty())
            in.Refuse(name.c_str(), "expected a name");
    }
    return in.Problem();
}

class RuleReader {
  public:
    RuleReader(ITalpl& platform, const std::u16string& key, const std::vector<AccessGroup>& groups,
               bool hasOtherGroups)
        : in_(platform, key.c_str()), groups_(groups), hasOtherGroups_(hasOtherGroups)
    {
        rule_.name = base::ToUtf8(key.substr(key.rfind(u'\\') + 1)).value_or("?");
    }
    // Empty on success.
    std::string Read(AccessRule& rule)
    {
        ReadWho();
        ReadPath();
        ReadRights();
        in_.Flag(u"Make", rule_.makes);
        if (rule_.makes && (rule_.path == "/" || rule_.path.ends_with("/*")))
            in_.Refuse(u"Make", "expected 'Path' to name the folder that is to be made");
        rule = std::move(rule_);
        return in_.Problem();
    }

  private:
    void ReadWho()
    {
        std::vector<std::string> texts;
        in_.Texts(u"Who", texts);
        if (texts.empty())
            in_.Refuse(u"Who", "expected a list of 'everybody', 'anonymous', 'user:NAME' and "
                               "'group:NAME'");
        for (const std::string& text : texts) {
            Who& who = rule_.who.emplace_back();
            if (!ParseWho(text, who))
                in_.Refuse(u"Who", "expected 'everybody', 'anonymous', 'user:NAME' or "
                                   "'group:NAME', not '" +
                                       text + "'");
            else if (who.kind == Who::Kind::Group && !IsGroup(who.name))
                in_.Refuse(u"Who", "there is no group '" + who.name +
                                       "' in 'Kest\\Configuration\\Access\\Groups'");
        }
    }
    bool IsGroup(const std::string& name) const
    {
        return hasOtherGroups_ ||
               std::ranges::find(groups_, name, &AccessGroup::name) != groups_.end();
    }
    void ReadPath()
    {
        in_.Text(u"Path", rule_.path);
        if (const std::string wrong = WhatIsWrongWithRulePath(rule_.path); !wrong.empty())
            in_.Refuse(u"Path", wrong);
    }
    bool ReadList(const char16_t* name, Rights& rights)
    {
        const bool isThere = in_.Has(name);
        std::vector<std::string> texts;
        in_.Texts(name, texts);
        for (const std::string& text : texts)
            if (!ParseRight(text, rights))
                in_.Refuse(name, "expected 'list', 'read', 'create', 'change', 'delete' or 'all', "
                                 "not '" +
                                     text + "'");
        return isThere;
    }
    void ReadRights()
    {
        Rights exactly = 0;
        const bool isExact = ReadList(u"Rights", exactly);
        const bool allows = ReadList(u"Allow", rule_.allowed);
        const bool denies = ReadList(u"Deny", rule_.denied);
        if (isExact && (allows || denies))
            in_.Refuse(u"Rights", "expected either 'Rights' or 'Allow' and 'Deny'");
        if (!isExact && !allows && !denies)
            in_.Refuse(u"Rights", "expected 'Rights', 'Allow' or 'Deny'");
        if (rule_.allowed & rule_.denied)
            in_.Refuse(u"Deny", "the same right is allowed and denied");
        if (isExact) {
            rule_.allowed = exactly;
            rule_.denied = kRightsAll & ~exactly;
        }
    }

    RegistryReader in_;
    const std::vector<AccessGroup>& groups_;
    const bool hasOtherGroups_;
    AccessRule rule_;
};

} // namespace

std::string ReadAccessRules(ITalpl& platform, std::shared_ptr<const AccessRules>& rules,
                            bool hasOtherGroups)
{
    std::vector<AccessGroup> groups;
    if (std::string problem = ReadGroups(platform, groups); !problem.empty())
        return problem;
    std::vector<std::u16string> keys;
    if (!KeysBelow(platform, kAccessRulesKey, keys))
        return "the access rules cannot be read";
    std::vector<AccessRule> read(keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
        if (std::string problem =
                RuleReader(platform, keys[i], groups, hasOtherGroups).Read(read[i]);
            !problem.empty())
            return problem;
    rules = read.empty() ? nullptr
                         : std::make_shared<const AccessRules>(std::move(read), std::move(groups));
    return {};
}

} // namespace kestd
