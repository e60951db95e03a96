// SPDX-License-Identifier: Apache-2.0
//
// Everything under which a client wants its request to be carried out, as providers judge it.
#pragma once

#include <kest/dav/records_3.h>
#include <kest/io.h>

namespace standard {

// Fills the record from the request's "If", "If-Match", "If-None-Match" and "If-Unmodified-Since".
// What it points to lives in request memory. Fails with code 16 when "If" is malformed (400), with
// code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadPreconditions(IKestIO_5* io, DAV_PRECONDITIONS& preconditions);

// Whether there is anything to judge in it.
inline bool HasConditions(const DAV_PRECONDITIONS& preconditions) noexcept
{
    return preconditions.IfCount != 0 || preconditions.Match.Length != 0 ||
           preconditions.NoneMatch.Length != 0 || preconditions.UnmodifiedSince != 0;
}

// Judges the conditions of a request for the root above all providers, which has no tag and no
// lock. A page is never "not modified", whatever "If-None-Match" says. The caller holds the
// providers' list. Code 40 when they do not hold; fails as ReadPreconditions.
[[nodiscard]] TALSTATUS JudgeRoot(SCHANDLE session, IKestIO_5* io, bool isPage);

} // namespace standard
