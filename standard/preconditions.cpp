// SPDX-License-Identifier: Apache-2.0
//
// Reading the request's conditions and lock tokens.
#include "standard/preconditions.h"

#include <kest/status.h>

#include "standard/if_header.h"
#include "standard/request_headers.h"

namespace standard {

namespace {

// A header that was sent without a value names nothing; a text of that meaning, since Length 0 says
// that it was not sent.
DAV_TEXT TextOf(std::string_view value)
{
    constexpr std::string_view kNamesNothing = ",";
    if (!value.data())
        return {};
    if (value.empty())
        value = kNamesNothing;
    return {value.data(), static_cast<UINT32>(value.size())};
}

} // namespace

TALSTATUS ReadPreconditions(IKestIO_5* io, DAV_PRECONDITIONS& preconditions)
{
    preconditions = {};
    preconditions.Size = sizeof preconditions;
    Conditions conditions;
    if (const TALSTATUS status = ReadConditions(io, false, conditions); Failed(status))
        return status;
    preconditions.Match = TextOf(conditions.match);
    preconditions.NoneMatch = TextOf(conditions.noneMatch);
    preconditions.UnmodifiedSince = conditions.unmodifiedSince;
    return ReadIf(io, preconditions);
}

} // namespace standard
