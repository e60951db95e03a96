// SPDX-License-Identifier: Apache-2.0
//
// Entity tags and how they are compared.
#include "standard/entity_tag.h"

#include "standard/scan.h"

namespace standard {

namespace {

// Takes one tag off the front of a list, with the comma behind it. Always takes something, so that
// a walk over a list ends.
EntityTag TakeEntityTag(std::string_view& list) noexcept
{
    EntityTag tag;
    SkipBlanks(list);
    if (list.substr(0, 2) == "W/") { // case matters, RFC 9110 section 8.8.3
        tag.isWeak = true;
        list.remove_prefix(2);
    }
    if (list.empty() || list.front() != '"') {
        tag.opaque = TakeElement(list);
        tag.isThere = !tag.opaque.empty();
        return tag;
    }
    list.remove_prefix(1);
    const size_t end = list.find('"');
    if (end == std::string_view::npos) { // cut short: names nothing
        list = {};
        return {};
    }
    tag.opaque = list.substr(0, end);
    tag.isThere = true;
    list.remove_prefix(end + 1);
    (void)TakeElement(list);
    return tag;
}

} // namespace

EntityTag ReadEntityTag(std::string_view text) noexcept
{
    return TakeEntityTag(text);
}

bool AreEqual(const EntityTag& a, const EntityTag& b, TagComparison comparison) noexcept
{
    if (!a.isThere || !b.isThere || a.opaque != b.opaque)
        return false;
    return comparison == TagComparison::Weak || (!a.isWeak && !b.isWeak);
}

bool ListsTag(std::string_view list, const EntityTag& current, TagComparison comparison) noexcept
{
    while (!list.empty())
        if (AreEqual(TakeEntityTag(list), current, comparison))
            return true;
    return false;
}

} // namespace standard
