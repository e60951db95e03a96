// SPDX-License-Identifier: Apache-2.0
//
// Where to, whether anything may be replaced, and the provider's one step that does it.
#include "standard/relocation.h"

#include <cstring>

#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/destination.h"
#include "standard/failures.h"
#include "standard/new_name.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

struct Relocation {
    RelocationKind kind = RelocationKind::Copy;
    UNICODE_STRING source{};
    UNICODE_STRING destination{};
    Paged<WCHAR> destinationText; // what `destination` refers to
    UINT32 flags = 0;             // kRelocate bits

    // Of the result.
    bool isServed = true;
    HTTPSTATUS refusal = 0; // when not 0, what to answer in place of the status's meaning
    DAV_CHANGE change = OutcomeOnly();
    Failures failures;
};

// Reads the destination and the flags that the host has made of the request's headers.
TALSTATUS ReadRelocation(IKestIO_5* io, Relocation& relocation)
{
    BOOLEAN overwrite = FALSE;
    INT32 depth = -1;
    UNICODE_STRING* target = nullptr;
    const TALSTATUS status = relocation.kind == RelocationKind::Copy
                                 ? io->GetCopyInfo(&overwrite, &depth, &target)
                                 : io->GetMoveInfo(&overwrite, &target);
    if (Code(status) != 0)
        return status;
    if (IsMissing(target))
        return TAL_STATUS_INVALID_REQUEST;
    if (overwrite)
        relocation.flags |= kRelocateOverwrite;
    if (depth == 0)
        relocation.flags |= kRelocateShallow;
    return ReadDestination(*target, relocation.destinationText, relocation.destination);
}

// Whether `path` is `tree` or lies in it. Neither has a "/" at its end.
bool IsIn(const UNICODE_STRING& path, const UNICODE_STRING& tree)
{
    return path.Length >= tree.Length && std::memcmp(path.Buffer, tree.Buffer, tree.Length) == 0 &&
           (path.Length == tree.Length || path.Buffer[tree.Length / sizeof(WCHAR)] == u'/');
}

// RFC 4918 sections 9.8.5 and 9.9.4: onto itself 403. Into itself has no end, and what would be
// replaced may not hold the source. What is not there is still 404.
TALSTATUS JudgeEnds(SCHANDLE session, IKestDAV3& provider, Relocation& relocation)
{
    const bool isBelow = IsIn(relocation.destination, relocation.source);
    if (!isBelow && !IsIn(relocation.source, relocation.destination))
        return TAL_STATUS_SUCCESS;
    DAV_OBJECT_INFO info = TypeOnly();
    if (const TALSTATUS status = provider.GetInfo(session, &relocation.source, &info);
        Failed(status))
        return status;
    relocation.refusal = isBelow ? 403 : 409;
    return TAL_STATUS_ACCESS_DENIED;
}

// Whether the source is there at all: a session remembers who serves a tree, and not what is in it.
TALSTATUS LookAtSource(SCHANDLE session, KESTDAV_HANDLER& handler, Relocation& relocation)
{
    DAV_OBJECT_INFO info = TypeOnly();
    DAV_TYPE type = Resource;
    return handler.pIKestDav3 ? handler.pIKestDav3->GetInfo(session, &relocation.source, &info)
                              : DavNamespace(handler).GetType(session, &relocation.source, &type);
}

// Finds the provider of both ends. RFC 4918 sections 9.8.5 and 9.9.4: none carries anything into
// another one's tree. What is not there is still 404.
TALSTATUS FindProvider(SCHANDLE session, Relocation& relocation, KESTDAV_HANDLER*& handler)
{
    if (const TALSTATUS status = DavUriToHandler(session, &relocation.source, &handler);
        Failed(status))
        return status;
    relocation.isServed = handler->pIKestDav3 != nullptr;
    KESTDAV_HANDLER* other = nullptr;
    const TALSTATUS status = FindProviderOfNew(session, relocation.destination, other);
    if (Failed(status))
        return relocation.isServed ? status : TAL_STATUS_SUCCESS;
    if (other == handler)
        return TAL_STATUS_SUCCESS;
    relocation.isServed = true; // whoever serves it has no more to say
    if (const TALSTATUS looked = LookAtSource(session, *handler, relocation); Failed(looked))
        return looked;
    relocation.refusal = 502;
    return TAL_STATUS_NOT_SUPPORTED;
}

TALSTATUS Carry(SCHANDLE session, IKestIO_5* io, Relocation& relocation)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = FindProvider(session, relocation, handler);
        Failed(status) || !relocation.isServed)
        return status;
    if (const TALSTATUS status = JudgeEnds(session, *handler->pIKestDav3, relocation);
        Failed(status))
        return status;
    DAV_PRECONDITIONS preconditions;
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return status;
    const auto operation =
        relocation.kind == RelocationKind::Copy ? &IKestDAV3::Copy : &IKestDAV3::Move;
    const TALSTATUS status = (handler->pIKestDav3->*operation)(
        session, &relocation.source, &relocation.destination, relocation.flags, &preconditions,
        &relocation.failures, &relocation.change);
    return relocation.failures.Described(session, relocation.source, status);
}

TALSTATUS Answer(IKestIO_5* io, TALSTATUS status, const Relocation& relocation)
{
    if (Failed(status) && relocation.refusal)
        return Refuse(io, relocation.refusal, status);
    if (Failed(status))
        return AnswerFailure(io, status, relocation.failures, relocation.source,
                             &relocation.destination);
    return relocation.change.Outcome == kOutcomeCreated ? ReplyEmpty(io, 201, status)
                                                        : Reply(io, 204, status);
}

} // namespace

TALSTATUS Relocate(RelocationKind kind, SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_ACCESS_DENIED);
    Relocation relocation;
    relocation.kind = kind;
    relocation.source = ProviderPath(*url);
    TALSTATUS status = ReadRelocation(io, relocation);
    if (!Failed(status))
        status = Carry(session, io, relocation);
    if (!relocation.isServed)
        return kind == RelocationKind::Copy ? KestDavCopy(session, url, io)
                                            : KestDavMove(session, url, io);
    return Answer(io, status, relocation);
}

} // namespace standard
