// SPDX-License-Identifier: Apache-2.0
//
// One set of access rules per input, with questions about them: the compiled rules answer as the
// definition does, and what holds for a tree holds for whatever is asked about in it.
//
// The input is lines: "r" allowed denied who path (two letters of rights, then text up to a blank,
// then the path), "g" group user, "u" user, and any other line a path that is asked about.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "host/access/access_rules.h"
#include "host/access/explanation.h"

namespace {

using namespace kestd;

struct Input {
    std::vector<AccessRule> rules;
    std::vector<AccessGroup> groups;
    std::vector<std::string> users{""};
    std::vector<std::string> paths;
};

std::string_view Take(std::string_view& text, char end)
{
    const size_t length = std::min(text.find(end), text.size());
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

void ReadRule(std::string_view line, Input& input)
{
    AccessRule rule;
    if (line.size() < 3)
        return;
    rule.allowed = static_cast<Rights>(line[0]) & kRightsAll;
    rule.denied = static_cast<Rights>(line[1]) & kRightsAll;
    line.remove_prefix(2);
    Who who;
    while (!line.empty() && line.front() != '/')
        if (ParseWho(Take(line, ' '), who))
            rule.who.push_back(who);
    rule.path = line;
    if (!rule.who.empty() && WhatIsWrongWithRulePath(rule.path).empty())
        input.rules.push_back(std::move(rule));
}

Input Read(std::string_view text)
{
    Input input;
    while (!text.empty() && input.rules.size() < 64 && input.paths.size() < 16) {
        std::string_view line = Take(text, '\n');
        const char kind = line.empty() ? '\0' : line.front();
        if (kind == 'r') {
            ReadRule(line.substr(1), input);
        } else if (kind == 'g') {
            line.remove_prefix(1);
            const std::string_view name = Take(line, ' ');
            input.groups.push_back({GroupName(name), {std::string(line)}});
        } else if (kind == 'u' && input.users.size() < 8) {
            input.users.emplace_back(line.substr(1));
        } else {
            input.paths.emplace_back(line);
        }
    }
    return input;
}

Rights Defined(const Input& input, const AccessRules& rules, const std::string& user,
               const std::string& path)
{
    const Explanation verdicts = Explain(input.rules, user, rules.GroupsOf(user), path);
    Rights rights = 0;
    for (size_t i = 0; i < kRightCount; ++i)
        rights |= verdicts[i].isAllowed ? Rights{1} << i : 0;
    return rights;
}

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Input input = Read({reinterpret_cast<const char*>(data), size});
    const AccessRules rules(input.rules, input.groups);
    for (const std::string& user : input.users) {
        const AccessSubject subject = rules.SubjectOf(user, nullptr);
        for (const std::string& path : input.paths) {
            Require(rules.At(subject, path) == Defined(input, rules, user, path));
            bool isUniform = false;
            const Rights members = rules.OfMembers(subject, path, isUniform);
            const Rights below = rules.Below(subject, path);
            Require((below & ~members) == 0);
            for (const std::string& other : input.paths) {
                std::string_view rest = other;
                std::string_view name;
                if (!TakeComponent(rest, name))
                    continue;
                Require((below & ~Defined(input, rules, user, path + "/" + other)) == 0);
                const std::string member = path + "/" + std::string(name);
                Require(!isUniform || Defined(input, rules, user, member) == members);
            }
        }
        for (const std::string& folder : rules.FoldersToMake(subject))
            Require(folder.starts_with('/'));
    }
    return 0;
}
