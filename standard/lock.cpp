// SPDX-License-Identifier: Apache-2.0
//
// LOCK (RFC 4918 section 9.10): makes a lock, with an empty file under a name that nothing bears,
// or gives one more time.
#include <cstring>

#include "standard/answer.h"
#include "standard/failures.h"
#include "standard/handlers.h"
#include "standard/lock_element.h"
#include "standard/lock_request.h"
#include "standard/new_name.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/tree_path.h"
#include "support/handlers.h"
#include "support/reply.h"
#include "support/uri.h"

namespace standard {

namespace {

// One LOCK: what its steps share.
struct LockCall {
    IKestIO_5* io;
    SCHANDLE session;
    IKestDAV3* provider;
    UNICODE_STRING* path;
    TreePath text; // the same path, for hrefs
    LockRequest request;
    DAV_PRECONDITIONS preconditions{};
    RecordBuffer records;
};

// Room for the description of any lock on the path, which has to be there before the lock is made.
DAV_LOCK_INFO_3* RecordOf(LockCall& call)
{
    constexpr UINT32 kRest = 1024; // the record and its token
    return static_cast<DAV_LOCK_INFO_3*>(
        call.records.Get(kMostOwnerBytes + static_cast<UINT32>(call.text.Text().size()) + kRest));
}

void SetLockToken(IKestIO_5* io, std::string_view token)
{
    GrowingText value;
    char name[] = "Lock-Token";
    if (value.Put("<opaquelocktoken:") && value.Put(token) && value.Put(">"))
        (void)io->SetReplyHeader(name, static_cast<UINT32>(value.size()), value.data());
}

TALSTATUS SendLock(LockCall& call, HTTPSTATUS http, const DAV_LOCK_INFO_3& lock, bool isCollection)
{
    SendXmlHead(call.io, http);
    ReplyWriter out(call.io);
    out.Put("<D:prop xmlns:D=\"DAV:\"><D:lockdiscovery>");
    PutLock(out, lock, call.text.Text(), isCollection);
    out.Put("</D:lockdiscovery></D:prop>\n");
    return TAL_STATUS_SUCCESS;
}

void PutHrefOf(ReplyWriter& out, const UNICODE_STRING& path)
{
    TreePath text;
    out.Put("<D:href>");
    if (!Failed(text.Set(path)))
        PutHref(out, text.Text(), false);
    out.Put("</D:href>");
}

// True when a lock on `root` stands in the way from below.
bool IsBelow(const UNICODE_STRING& root, const UNICODE_STRING& path)
{
    return root.Length > path.Length && path.Length != 0 &&
           std::memcmp(root.Buffer, path.Buffer, path.Length) == 0 &&
           root.Buffer[path.Length / sizeof(WCHAR)] == u'/';
}

// Locks below the path: each is told, and the path depends on them (RFC 4918 section 9.10.9).
TALSTATUS SendMembersLocked(LockCall& call, TALSTATUS status, const Failures& failures)
{
    SendXmlHead(call.io, 207);
    ReplyWriter out(call.io);
    out.Put("<D:multistatus xmlns:D=\"DAV:\">\n");
    for (const Failures::Entry* each = failures.First(); each; each = each->next) {
        out.Put("<D:response>");
        PutHrefOf(out, each->path);
        out.Put("<D:status>HTTP/1.1 423 Locked</D:status></D:response>\n");
    }
    out.Put("<D:response><D:href>");
    PutHref(out, call.text.Text(), true);
    out.Put("</D:href><D:status>HTTP/1.1 424 Failed Dependency</D:status></D:response>\n"
            "</D:multistatus>\n");
    return status;
}

// No reply names the holder's token.
TALSTATUS SendConflict(LockCall& call, TALSTATUS status, const Failures& failures)
{
    for (const Failures::Entry* each = failures.First(); each; each = each->next)
        if (IsBelow(each->path, *call.path))
            return SendMembersLocked(call, status, failures);
    SendXmlHead(call.io, 423);
    ReplyWriter out(call.io);
    out.Put("<D:error xmlns:D=\"DAV:\"><D:no-conflicting-lock>");
    for (const Failures::Entry* each = failures.First(); each; each = each->next)
        PutHrefOf(out, each->path);
    out.Put("</D:no-conflicting-lock></D:error>\n");
    return status;
}

TALSTATUS MakeLock(LockCall& call)
{
    DAV_LOCK_INFO_3* const lock = RecordOf(call);
    if (!lock)
        return RefuseMapped(call.io, TAL_STATUS_INSUFFICIENT_RESOURCES);
    UINT32 size = call.records.Size();
    DAV_CHANGE change = EmptyChange();
    Failures failures;
    const TALSTATUS status =
        call.provider->Lock(call.session, call.path, &call.request.wanted, &call.preconditions,
                            &failures, &size, lock, &change);
    if (Failed(status) && Code(status) == kCodeLocked)
        return SendConflict(call, status, failures);
    if (Failed(status))
        return RefuseMapped(call.io, status);
    if (!IsWhole(*lock, call.records.Size()))
        return RefuseMapped(call.io, TAL_STATUS_UNSUCCESSFUL);
    SetLockToken(call.io,
                 {VariableText(*lock, offsetof(DAV_LOCK_INFO_3, Text)), lock->TokenLength});
    SetValidators(call.io, change.Info);
    return SendLock(call, change.Outcome == kOutcomeCreated ? 201 : 200, *lock,
                    change.Info.Type == Collection);
}

TALSTATUS Refresh(LockCall& call)
{
    if (call.preconditions.TokenCount == 0) // nobody knows which lock is meant
        return RefuseMapped(call.io, TAL_STATUS_INVALID_REQUEST);
    DAV_LOCK_INFO_3* const lock = RecordOf(call);
    if (!lock)
        return RefuseMapped(call.io, TAL_STATUS_INSUFFICIENT_RESOURCES);
    // Only the href's last "/" needs it. Before the change, which no failure follows.
    DAV_OBJECT_INFO info = EmptyInfo();
    if (const TALSTATUS status = call.provider->GetInfo(call.session, call.path, &info);
        Failed(status) && Code(status) != kCodeNotFound)
        return RefuseMapped(call.io, status);
    UINT32 size = call.records.Size();
    const TALSTATUS status = call.provider->RefreshLock(
        call.session, call.path, call.request.wanted.Timeout, &call.preconditions, &size, lock);
    if (Code(status) == kCodePreconditionFailed)
        return Refuse(call.io, 412, status, "lock-token-matches-request-uri");
    if (Failed(status))
        return RefuseMapped(call.io, status);
    if (!IsWhole(*lock, call.records.Size()))
        return RefuseMapped(call.io, TAL_STATUS_UNSUCCESSFUL);
    SetLockToken(call.io,
                 {VariableText(*lock, offsetof(DAV_LOCK_INFO_3, Text)), lock->TokenLength});
    return SendLock(call, 200, *lock, info.Type == Collection);
}

TALSTATUS LockPath(LockCall& call)
{
    if (const TALSTATUS status = ReadLock(call.io, call.request); Failed(status))
        return RefuseMapped(call.io, status);
    if (const TALSTATUS status = ReadPreconditions(call.io, call.preconditions); Failed(status))
        return RefuseMapped(call.io, status);
    if (const TALSTATUS status = call.text.Set(*call.path); Failed(status))
        return RefuseMapped(call.io, status);
    return call.request.isRefresh ? Refresh(call) : MakeLock(call);
}

} // namespace

TALSTATUS Lock(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMapped(io, TAL_STATUS_ACCESS_DENIED);
    ProviderGuard providers;
    UNICODE_STRING path = ProviderPath(*url);
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = FindProviderOfNew(session, path, handler); Failed(status))
        return RefuseMapped(io, status);
    if (handler->pIKestDav3) {
        LockCall call;
        call.io = io;
        call.session = session;
        call.provider = handler->pIKestDav3;
        call.path = &path;
        return LockPath(call);
    }
    providers.Release();
    return KestDavLock(session, url, io);
}

} // namespace standard
