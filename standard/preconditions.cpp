// SPDX-License-Identifier: Apache-2.0
//
// Reading the request's conditions and lock tokens.
#include "standard/preconditions.h"

#include <kest/status.h>

#include "standard/if_header.h"
#include "standard/request_headers.h"
#include "standard/tree_path.h"

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

namespace {

constexpr TALSTATUS kNotHeld = MakeStatus(0xC7BE, kCodePreconditionFailed);

// Lists may be about anything below: of the first provider that can tell.
TALSTATUS JudgeIfOfRoot(SCHANDLE session, IKestIO_5* io)
{
    DAV_PRECONDITIONS lists{};
    lists.Size = sizeof lists;
    if (const TALSTATUS status = ReadIf(io, lists); Failed(status) || lists.IfCount == 0)
        return status;
    TreePath root;
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink)
        if (auto* const handler = reinterpret_cast<KESTDAV_HANDLER*>(link); handler->pIKestDav3)
            return handler->pIKestDav3->Judge(session, root.Wide(), &lists);
    return kNotHeld;
}

} // namespace

TALSTATUS JudgeRoot(SCHANDLE session, IKestIO_5* io, bool isPage)
{
    Conditions conditions;
    if (const TALSTATUS status = ReadConditions(io, false, conditions); Failed(status))
        return status;
    if (isPage)
        conditions.noneMatch = {};
    const Current root = {true, {}, g_StartupTime};
    if (Judge(conditions, root, false) == Verdict::Failed)
        return kNotHeld;
    return JudgeIfOfRoot(session, io);
}

} // namespace standard
