// SPDX-License-Identifier: Apache-2.0
//
// The order in which conditions are judged, and what each of them says.
#include "standard/conditions.h"

#include "standard/scan.h"
#include "support/time_units.h"

namespace standard {

namespace {

// Dates in headers have whole seconds.
UINT64 WholeSecond(UINT64 time) noexcept
{
    return time - time % kUnitsPerSecond;
}

bool IsAny(std::string_view value) noexcept
{
    return Trimmed(value) == "*";
}

// RFC 9110 section 13.1.1: strong comparison.
bool HoldsMatch(std::string_view value, const Current& current) noexcept
{
    if (!current.exists)
        return false;
    return IsAny(value) || ListsTag(value, current.tag, TagComparison::Strong);
}

// RFC 9110 section 13.1.2: weak comparison.
bool HoldsNoneMatch(std::string_view value, const Current& current) noexcept
{
    if (!current.exists)
        return true;
    return !IsAny(value) && !ListsTag(value, current.tag, TagComparison::Weak);
}

bool HoldsUnmodified(UINT64 limit, const Current& current) noexcept
{
    return limit == 0 || current.modified == 0 || WholeSecond(current.modified) <= limit;
}

bool HoldsModified(UINT64 since, const Current& current) noexcept
{
    return since == 0 || current.modified == 0 || WholeSecond(current.modified) > since;
}

} // namespace

Verdict Judge(const Conditions& conditions, const Current& current, bool isReading) noexcept
{
    if (conditions.match.data()) {
        if (!HoldsMatch(conditions.match, current))
            return Verdict::Failed;
    } else if (!HoldsUnmodified(conditions.unmodifiedSince, current)) {
        return Verdict::Failed;
    }
    if (conditions.noneMatch.data()) {
        if (!HoldsNoneMatch(conditions.noneMatch, current))
            return isReading ? Verdict::NotModified : Verdict::Failed;
    } else if (isReading && !HoldsModified(conditions.modifiedSince, current)) {
        return Verdict::NotModified;
    }
    return Verdict::Proceed;
}

bool HoldsIfRange(std::string_view value, UINT64 date, const Current& current) noexcept
{
    if (date != 0)
        return current.modified != 0 && WholeSecond(current.modified) == date;
    return AreEqual(ReadEntityTag(value), current.tag, TagComparison::Strong);
}

} // namespace standard
