// SPDX-License-Identifier: Apache-2.0
//
// Compiling the access rules, and answering from the compiled form.
#include "host/access/access_rules.h"

#include <algorithm>

namespace kestd {

template <class Numbers> uint32_t AccessRules::NumberOf(Numbers& numbers, const std::string& name)
{
    return numbers.try_emplace(name, static_cast<uint32_t>(numbers.size())).first->second;
}

AccessRules::AccessRules(std::vector<AccessRule> rules, std::vector<AccessGroup> groups)
    : rules_(std::move(rules)), nodes_(1)
{
    for (const AccessGroup& group : groups) {
        const uint32_t number = NumberOf(groupNumbers_, group.name);
        for (const std::string& user : group.users)
            memberships_[user].push_back(number);
    }
    for (auto& [user, numbers] : memberships_) {
        std::sort(numbers.begin(), numbers.end());
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    }
    for (const AccessRule& rule : rules_)
        Enter(rule);
}

uint32_t AccessRules::ChildOf(uint32_t node, std::string_view name)
{
    const auto next = static_cast<uint32_t>(nodes_.size());
    uint32_t& child = name == kUserComponent
                          ? nodes_[node].userChild
                          : nodes_[node].children.try_emplace(std::string(name), 0).first->second;
    if (child != 0)
        return child;
    child = next; // before the nodes may move
    nodes_.emplace_back();
    return next;
}

uint32_t AccessRules::NodeFor(std::string_view path, bool& isBelow)
{
    uint32_t node = 0;
    std::string_view name;
    isBelow = false;
    while (TakeComponent(path, name)) {
        if (name == kMembersComponent && path.empty())
            isBelow = true;
        else
            node = ChildOf(node, name);
    }
    return node;
}

void AccessRules::Put(NumberedGrants& grants, uint32_t number, const Grant& grant)
{
    const auto place =
        std::lower_bound(grants.begin(), grants.end(), number,
                         [](const auto& one, uint32_t wanted) { return one.first < wanted; });
    if (place != grants.end() && place->first == number)
        place->second.Add(grant);
    else
        grants.insert(place, {number, grant});
}

const AccessRules::Grant* AccessRules::Find(const NumberedGrants& grants, uint32_t number) noexcept
{
    const auto place =
        std::lower_bound(grants.begin(), grants.end(), number,
                         [](const auto& one, uint32_t wanted) { return one.first < wanted; });
    return place != grants.end() && place->first == number ? &place->second : nullptr;
}

void AccessRules::Enter(const AccessRule& rule)
{
    bool isBelow = false;
    const uint32_t node = NodeFor(rule.path, isBelow);
    Grants& grants = isBelow ? nodes_[node].below : nodes_[node].own;
    const Grant grant{rule.allowed, rule.denied};
    for (const Who& who : rule.who) {
        switch (who.kind) {
        case Who::Kind::Everybody:
            grants.everybody.Add(grant);
            break;
        case Who::Kind::Anonymous:
            grants.anonymous.Add(grant);
            break;
        case Who::Kind::Group:
            Put(grants.groups, NumberOf(groupNumbers_, who.name), grant);
            break;
        case Who::Kind::User:
            Put(grants.users, NumberOf(userNumbers_, who.name), grant);
            break;
        }
    }
    grants.isEmpty = false;
    makesFolders_ = makesFolders_ || rule.makes;
}

std::vector<std::string> AccessRules::GroupsOf(std::string_view user) const
{
    std::vector<std::string> names;
    const auto found = memberships_.find(user);
    for (const auto& [name, number] : groupNumbers_)
        if (found != memberships_.end() &&
            std::binary_search(found->second.begin(), found->second.end(), number))
            names.push_back(name);
    return names;
}

AccessSubject AccessRules::SubjectOf(std::string_view user,
                                     const std::vector<std::string>* told) const
{
    AccessSubject subject;
    subject.user_ = user;
    if (user.empty())
        return subject;
    if (const auto found = userNumbers_.find(user); found != userNumbers_.end())
        subject.number_ = found->second;
    if (const auto found = memberships_.find(user); found != memberships_.end())
        subject.groups_ = found->second;
    if (!told || told->empty())
        return subject;
    subject.own_.assign(subject.groups_.begin(), subject.groups_.end());
    for (const std::string& name : *told)
        if (const auto found = groupNumbers_.find(name); found != groupNumbers_.end())
            subject.own_.push_back(found->second);
    std::sort(subject.own_.begin(), subject.own_.end());
    return subject;
}

// What the grants at one path make of the rights that were inherited. The more specific kind of
// subject comes first; within a kind, also of several nodes, what one denies is denied.
Rights AccessRules::Evaluate(const AccessSubject& subject, const Place& place, Grants Node::*which,
                             Rights inherited) const noexcept
{
    for (size_t i = 0; i < place.count; ++i)
        if (!(nodes_[place.nodes[i]].*which).isEmpty)
            return EvaluateSome(subject, place, which, inherited);
    return inherited;
}

Rights AccessRules::EvaluateSome(const AccessSubject& subject, const Place& place,
                                 Grants Node::*which, Rights inherited) const noexcept
{
    Rights decided = 0;
    Rights allowed = 0;
    const auto take = [&](auto&& grantOf) {
        Grant all;
        for (size_t i = 0; i < place.count; ++i) {
            const Grants& grants = nodes_[place.nodes[i]].*which;
            if (!grants.isEmpty)
                grantOf(grants, all);
        }
        const Rights fresh = (all.allowed | all.denied) & ~decided;
        allowed |= all.allowed & ~all.denied & fresh;
        decided |= fresh;
    };
    if (subject.number_ != AccessSubject::kNoNumber)
        take([&](const Grants& grants, Grant& all) {
            if (const Grant* const found = Find(grants.users, subject.number_))
                all.Add(*found);
        });
    take([&](const Grants& grants, Grant& all) {
        if (grants.groups.empty())
            return;
        for (const uint32_t group : subject.Groups())
            if (const Grant* const found = Find(grants.groups, group))
                all.Add(*found);
    });
    if (subject.IsAnonymous())
        take([](const Grants& grants, Grant& all) { all.Add(grants.anonymous); });
    take([](const Grants& grants, Grant& all) { all.Add(grants.everybody); });
    return (inherited & ~decided) | allowed;
}

// Where one more name leads; false when no rule lies there or below.
bool AccessRules::Descend(const AccessSubject& subject, std::string_view name, const Place& from,
                          Place& to) const noexcept
{
    to.count = 0;
    for (size_t i = 0; i < from.count; ++i) {
        const Node& node = nodes_[from.nodes[i]];
        if (!node.children.empty())
            if (const auto found = node.children.find(name); found != node.children.end())
                to.Add(found->second);
        if (node.userChild && !subject.IsAnonymous() && name == subject.user_)
            to.Add(node.userChild);
    }
    return to.count != 0;
}

// The rights on what is at `path`; `place` becomes where it is.
Rights AccessRules::Follow(const AccessSubject& subject, std::string_view path,
                           Place& place) const noexcept
{
    place.count = 0;
    place.Add(0);
    Rights rights = Evaluate(subject, place, &Node::own, kRightsAll);
    std::string_view name;
    while (TakeComponent(path, name)) {
        rights = Evaluate(subject, place, &Node::below, rights);
        Place next;
        if (!Descend(subject, name, place, next)) {
            place.count = 0;
            break;
        }
        std::copy_n(next.nodes, place.count = next.count, place.nodes);
        rights = Evaluate(subject, place, &Node::own, rights);
    }
    return rights;
}

Rights AccessRules::At(const AccessSubject& subject, std::string_view path) const noexcept
{
    Place place;
    return Follow(subject, path, place);
}

Rights AccessRules::OfMembers(const AccessSubject& subject, std::string_view path,
                              bool& isUniform) const noexcept
{
    Place place;
    const Rights rights = Evaluate(subject, place, &Node::below, Follow(subject, path, place));
    isUniform = true;
    for (size_t i = 0; i < place.count; ++i) {
        const Node& node = nodes_[place.nodes[i]];
        isUniform = isUniform && node.children.empty() && !node.userChild;
    }
    return rights;
}

// `inherited` is what holds at `place`; a right that nothing is left of is not looked for.
Rights AccessRules::InTree(const AccessSubject& subject, const Place& place, Rights inherited,
                           Rights least) const noexcept
{
    inherited = Evaluate(subject, place, &Node::below, inherited);
    least &= inherited;
    const auto visit = [&](std::string_view name) {
        Place next;
        if (least == 0 || !Descend(subject, name, place, next))
            return;
        const Rights rights = Evaluate(subject, next, &Node::own, inherited);
        least = InTree(subject, next, rights, least & rights);
    };
    for (size_t i = 0; i < place.count; ++i) {
        const Node& node = nodes_[place.nodes[i]];
        for (const auto& [name, child] : node.children)
            visit(name);
        if (node.userChild && !subject.IsAnonymous())
            visit(subject.user_);
    }
    return least;
}

Rights AccessRules::Below(const AccessSubject& subject, std::string_view path) const noexcept
{
    Place place;
    const Rights rights = Follow(subject, path, place);
    return InTree(subject, place, rights, kRightsAll);
}

std::vector<std::string> AccessRules::FoldersToMake(const AccessSubject& subject) const
{
    std::vector<std::string> folders;
    const std::string_view user = subject.User();
    if (user.empty() || user == "." || user == ".." || user.find('/') != std::string_view::npos)
        return folders; // no name of a folder
    for (const AccessRule& rule : rules_) {
        const bool isFor = std::any_of(rule.who.begin(), rule.who.end(), [&](const Who& who) {
            const auto group = groupNumbers_.find(who.name);
            return who.kind == Who::Kind::Everybody ||
                   (who.kind == Who::Kind::User && who.name == user) ||
                   (who.kind == Who::Kind::Group && group != groupNumbers_.end() &&
                    std::ranges::binary_search(subject.Groups(), group->second));
        });
        if (!rule.makes || !isFor)
            continue;
        std::string path;
        std::string_view rest = rule.path;
        std::string_view name;
        while (TakeComponent(rest, name))
            path.append("/").append(name == kUserComponent ? user : name);
        folders.push_back(std::move(path));
    }
    std::ranges::stable_sort(folders, {}, &std::string::size);
    return folders;
}

} // namespace kestd
