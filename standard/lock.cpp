// SPDX-License-Identifier: Apache-2.0
//
// LOCK (RFC 4918 section 9.10): makes a lock, with an empty file under a name that nothing bears,
// or gives one more time.
#include <algorithm>
#include <cstring>

#include "standard/answer.h"
#include "standard/content_coding.h"
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
    Paged<char> tokenHeader; // kTokenHeaderBytes
};

constexpr UINT32 kMostTokenBytes = 512; // a UUID has 36
constexpr std::string_view kTokenBefore = "<opaquelocktoken:";
constexpr UINT32 kTokenHeaderBytes = kMostTokenBytes + static_cast<UINT32>(kTokenBefore.size()) + 1;

// Room for the description of any lock on the path, and for all that the reply is made of: it has
// to be there before the lock is made, since nobody gives up a lock that nobody was told of. Null
// when memory is short.
DAV_LOCK_INFO_3* RecordOf(LockCall& call)
{
    constexpr UINT32 kRest = 1024; // the record and its token
    call.tokenHeader = AllocPaged<char>(kTokenHeaderBytes);
    if (!call.tokenHeader)
        return nullptr;
    return static_cast<DAV_LOCK_INFO_3*>(
        call.records.Get(kMostOwnerBytes + static_cast<UINT32>(call.text.Text().size()) + kRest));
}

// Whether the provider's record holds what it claims. `size` is what the provider says it has used:
// beyond that, and beyond the room, nothing of it is believed.
bool IsTold(const LockCall& call, const DAV_LOCK_INFO_3& lock, UINT32 size)
{
    return size <= call.records.Size() && IsWhole(lock, size) &&
           lock.TokenLength <= kMostTokenBytes && lock.TokenLength != 0;
}

std::string_view TokenOf(const DAV_LOCK_INFO_3& lock)
{
    return {VariableText(lock, offsetof(DAV_LOCK_INFO_3, Text)), lock.TokenLength};
}

// Takes no memory of the module.
TALSTATUS SetLockToken(LockCall& call, std::string_view token)
{
    char name[] = "Lock-Token";
    char* end = std::copy(kTokenBefore.begin(), kTokenBefore.end(), call.tokenHeader.get());
    end = std::copy(token.begin(), token.end(), end);
    *end++ = '>';
    return call.io->SetReplyHeader(name, static_cast<UINT32>(end - call.tokenHeader.get()),
                                   call.tokenHeader.get());
}

// Fails when the client cannot have heard of all of it.
TALSTATUS SendLock(LockCall& call, HTTPSTATUS http, const DAV_LOCK_INFO_3& lock, bool isCollection)
{
    if (const TALSTATUS status = SendXmlHead(call.io, http); Failed(status))
        return status;
    ReplyWriter out(call.io);
    out.Put("<D:prop xmlns:D=\"DAV:\"><D:lockdiscovery>");
    PutLock(out, lock, call.text.Text(), isCollection, call.request.owner.Text());
    out.Put("</D:lockdiscovery></D:prop>\n");
    out.Flush();
    return out.HasFailed() ? TAL_STATUS_UNSUCCESSFUL : TAL_STATUS_SUCCESS;
}

// Gives up a lock that the client does not hear of: nobody else could. Where that fails, too, or
// the token is not to be read, it ends with its time.
void TakeBack(LockCall& call, const DAV_LOCK_INFO_3& lock)
{
    constexpr UINT32 kFixed = offsetof(DAV_LOCK_INFO_3, Text);
    if (lock.TokenLength == 0 || lock.TokenLength > call.records.Size() - kFixed)
        return;
    const std::string_view token = TokenOf(lock);
    const DAV_TEXT text = {token.data(), lock.TokenLength};
    DAV_PRECONDITIONS none{};
    none.Size = sizeof none;
    (void)call.provider->Unlock(call.session, call.path, &text, &none);
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
        PutHrefElement(out, each->path, each->isCollection);
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
        PutHrefElement(out, each->path, each->isCollection);
    out.Put("</D:no-conflicting-lock></D:error>\n");
    return status;
}

// What happens once a lock stands: it is told, or taken back.
TALSTATUS AnswerGranted(LockCall& call, const DAV_LOCK_INFO_3& lock, UINT32 size,
                        const DAV_CHANGE& change)
{
    TALSTATUS status =
        IsTold(call, lock, size) ? SetLockToken(call, TokenOf(lock)) : TAL_STATUS_UNSUCCESSFUL;
    if (Failed(status)) {
        TakeBack(call, lock);
        return RefuseMapped(call.io, status);
    }
    SetValidators(call.io, change.Info);
    status = SendLock(call, change.Outcome == kOutcomeCreated ? 201 : 200, lock,
                      change.Info.Type == Collection);
    if (Failed(status))
        TakeBack(call, lock);
    return status;
}

TALSTATUS MakeLock(LockCall& call)
{
    DAV_LOCK_INFO_3* const lock = RecordOf(call);
    if (!lock)
        return RefuseMapped(call.io, TAL_STATUS_INSUFFICIENT_RESOURCES);
    *lock = {};
    UINT32 size = call.records.Size();
    DAV_CHANGE change = EmptyChange();
    Failures failures;
    const TALSTATUS status =
        call.provider->Lock(call.session, call.path, &call.request.wanted, &call.preconditions,
                            &failures, &size, lock, &change);
    if (Failed(status) && Code(status) == kCodeLocked) {
        failures.Describe(call.session);
        return SendConflict(call, status, failures);
    }
    if (Failed(status))
        return RefuseMapped(call.io, status);
    return AnswerGranted(call, *lock, size, change);
}

// Gives the lock more time and describes it in `lock`, with more room where it takes more than a
// lock of ours would: another dialect or another program may have made it.
TALSTATUS GiveTime(LockCall& call, DAV_LOCK_INFO_3*& lock, UINT32& size)
{
    for (bool isAgain = false;; isAgain = true) {
        *lock = {};
        size = call.records.Size();
        const TALSTATUS status = call.provider->RefreshLock(
            call.session, call.path, call.request.wanted.Timeout, &call.preconditions, &size, lock);
        if (Code(status) != kCodeBufferTooSmall)
            return status;
        if (isAgain || size <= call.records.Size())
            return TAL_STATUS_UNSUCCESSFUL; // a room that it has asked for
        lock = static_cast<DAV_LOCK_INFO_3*>(call.records.Get(size));
        if (!lock)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
    }
}

TALSTATUS Refresh(LockCall& call)
{
    if (call.preconditions.TokenCount == 0) // nobody knows which lock is meant
        return RefuseMapped(call.io, TAL_STATUS_INVALID_REQUEST);
    DAV_LOCK_INFO_3* lock = RecordOf(call);
    if (!lock)
        return RefuseMapped(call.io, TAL_STATUS_INSUFFICIENT_RESOURCES);
    // Only the href's last "/" needs it. Before the change, which no failure follows.
    DAV_OBJECT_INFO info = TypeOnly();
    if (const TALSTATUS status = call.provider->GetInfo(call.session, call.path, &info);
        Failed(status) && Code(status) != kCodeNotFound)
        return RefuseMapped(call.io, status);
    UINT32 size = 0;
    const TALSTATUS status = GiveTime(call, lock, size);
    if (Code(status) == kCodePreconditionFailed)
        return Refuse(call.io, 412, status, "lock-token-matches-request-uri");
    if (Failed(status))
        return RefuseMapped(call.io, status);
    if (!IsTold(call, *lock, size))
        return RefuseMapped(call.io, TAL_STATUS_UNSUCCESSFUL);
    (void)SetLockToken(call, TokenOf(*lock)); // the client has the token
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
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
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
