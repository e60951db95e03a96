// SPDX-License-Identifier: Apache-2.0
//
// Finds the deciding rule of each right by ranking all rules that apply.
#include "host/access/explanation.h"

#include <algorithm>
#include <optional>

namespace kestd {

namespace {

// How specific a rule is: of two, the greater one decides.
struct Rank {
    size_t path = 0; // twice its components, one more for what only lies below
    Who::Kind who = Who::Kind::Everybody;
    auto operator<=>(const Rank&) const = default;
};

// The rank of a rule's path where the object lies at it or below.
std::optional<size_t> PathRank(std::string_view rule, std::string_view user, std::string_view path)
{
    size_t rank = 0;
    std::string_view wanted;
    std::string_view name;
    while (TakeComponent(rule, wanted)) {
        const bool isThere = TakeComponent(path, name);
        if (wanted == kMembersComponent && rule.empty())
            return isThere ? std::optional(rank + 1) : std::nullopt;
        const bool isSame =
            wanted == kUserComponent ? !user.empty() && name == user : name == wanted;
        if (!isThere || !isSame)
            return std::nullopt;
        rank += 2;
    }
    return rank;
}

std::optional<Who::Kind> WhoRank(const AccessRule& rule, std::string_view user,
                                 const std::vector<std::string>& groups)
{
    std::optional<Who::Kind> best;
    for (const Who& who : rule.who) {
        const bool is = who.kind == Who::Kind::Everybody ||
                        (who.kind == Who::Kind::Anonymous && user.empty()) ||
                        (who.kind == Who::Kind::User && !user.empty() && who.name == user) ||
                        (who.kind == Who::Kind::Group && !user.empty() &&
                         std::find(groups.begin(), groups.end(), who.name) != groups.end());
        if (is && (!best || who.kind > *best))
            best = who.kind;
    }
    return best;
}

} // namespace

Explanation Explain(const std::vector<AccessRule>& rules, std::string_view user,
                    const std::vector<std::string>& groups, std::string_view path)
{
    Explanation outcomes;
    std::array<Rank, kRightCount> ranks;
    for (const AccessRule& rule : rules) {
        const auto pathRank = PathRank(rule.path, user, path);
        const auto whoRank = WhoRank(rule, user, groups);
        if (!pathRank || !whoRank)
            continue;
        const Rank rank{*pathRank, *whoRank};
        for (size_t i = 0; i < kRightCount; ++i) {
            const Rights right = Rights{1} << i;
            RightOutcome& outcome = outcomes[i];
            if (!((rule.allowed | rule.denied) & right) || (outcome.rule && rank < ranks[i]))
                continue;
            const bool isAllowed = !(rule.denied & right);
            if (outcome.rule && rank == ranks[i] && (isAllowed || !outcome.isAllowed))
                continue; // as strict as this one
            outcome = {isAllowed, &rule};
            ranks[i] = rank;
        }
    }
    return outcomes;
}

} // namespace kestd
