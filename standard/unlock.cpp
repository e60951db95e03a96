// SPDX-License-Identifier: Apache-2.0
//
// UNLOCK (RFC 4918 section 9.11).
#include "standard/answer.h"
#include "standard/handlers.h"
#include "standard/if_header.h"
#include "standard/preconditions.h"
#include "standard/request_headers.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

// Code 11 when no lock on the path has the token.
TALSTATUS Release(SCHANDLE session, UNICODE_STRING* path, IKestDAV3& provider,
                  const LockToken& token, const DAV_PRECONDITIONS& preconditions)
{
    if (token.form == LockToken::Form::Ours) {
        const DAV_TEXT text = {token.text.data(), static_cast<UINT32>(token.text.size())};
        return provider.Unlock(session, path, &text, &preconditions);
    }
    const TALSTATUS judged = provider.Judge(session, path, &preconditions);
    return Failed(judged) ? judged : TAL_STATUS_NOT_FOUND;
}

TALSTATUS UnlockPath(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                     IKestIO_5* io)
{
    std::string_view header;
    if (const TALSTATUS status = ReadHeader(io, "Lock-Token", header); Failed(status))
        return RefuseMapped(io, status);
    const LockToken token = ReadLockToken(header);
    if (token.form == LockToken::Form::Malformed)
        return RefuseMapped(io, TAL_STATUS_INVALID_REQUEST);
    DAV_PRECONDITIONS preconditions{};
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return RefuseMapped(io, status);

    const TALSTATUS status = Release(session, path, *handler.pIKestDav3, token, preconditions);
    if (!Failed(status))
        return Reply(io, 204, status);
    if (Code(status) == kCodeNotFound) // RFC 4918 section 9.11.1
        return Refuse(io, 409, status, "lock-token-matches-request-uri");
    return RefuseMapped(io, status);
}

} // namespace

TALSTATUS Unlock(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url)) // no lock covers it
        return Refuse(io, 409, TAL_STATUS_NOT_FOUND, "lock-token-matches-request-uri");
    ProviderGuard providers;
    UNICODE_STRING path = ProviderPath(*url);
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, &path, &handler); Failed(status))
        return RefuseMapped(io, status);
    if (handler->pIKestDav3)
        return UnlockPath(session, &path, *handler, io);
    providers.Release();
    return KestDavUnlock(session, url, io);
}

} // namespace standard
