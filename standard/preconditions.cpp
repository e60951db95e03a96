// SPDX-License-Identifier: Apache-2.0
//
// Reading the request's conditions and lock tokens.
#include "standard/preconditions.h"

#include <kest/status.h>

#include "standard/if_header.h"
#include "standard/new_name.h"
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

// The provider that can tell of what a list is about: the one that serves its path. What none of
// the third generation serves has neither tags nor locks, and any of them says so. Null when there
// is none.
TALSTATUS FindJudge(SCHANDLE session, const DAV_IF_LIST& list, IKestDAV3*& judge)
{
    judge = nullptr;
    if (list.Path.Length > 1) { // "/": the root itself
        TreePath path;
        KESTDAV_HANDLER* handler = nullptr;
        UNICODE_STRING* const wide =
            path.Enter({list.Path.Text + 1, list.Path.Length - 1}) ? path.Wide() : nullptr;
        if (!wide)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        if (!Failed(FindProviderOfNew(session, *wide, handler)))
            judge = handler->pIKestDav3;
    }
    for (LIST_ENTRY* link = g_HandlerList.Flink; !judge && link != &g_HandlerList;
         link = link->Flink)
        judge = reinterpret_cast<KESTDAV_HANDLER*>(link)->pIKestDav3;
    return TAL_STATUS_SUCCESS;
}

// Lists may be about anything below, and one that holds is enough (RFC 4918 section 10.4.3).
TALSTATUS JudgeIfOfRoot(SCHANDLE session, IKestIO_5* io)
{
    DAV_PRECONDITIONS lists{};
    lists.Size = sizeof lists;
    if (const TALSTATUS status = ReadIf(io, lists); Failed(status) || lists.IfCount == 0)
        return status;
    TreePath root;
    DAV_PRECONDITIONS one = lists;
    one.IfCount = 1;
    for (UINT32 i = 0; i < lists.IfCount; ++i) {
        one.If = lists.If + i;
        IKestDAV3* judge = nullptr;
        if (const TALSTATUS status = FindJudge(session, *one.If, judge); Failed(status))
            return status;
        const TALSTATUS status =
            judge ? judge->Judge(session, root.Wide(), &one) : TAL_STATUS_SUCCESS;
        if (judge && Code(status) != kCodePreconditionFailed)
            return status;
    }
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
