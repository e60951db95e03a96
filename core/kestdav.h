// SPDX-License-Identifier: Apache-2.0
//
// The module's own functions that cross its rooms: URI mapping, resolution, the lock-token header,
// and the method handlers.
#pragma once

#include <string_view>

#include "support/globals.h"
#include <kest/req.h>

// -- URI mapping and resolution. Callers hold g_hHandlerLock for reading (ProviderGuard) around a
//    resolution and for as long as they use the entry.

// The request's path, owned by the host. A host that succeeds without one has sent no path: code 4.
[[nodiscard]] TALSTATUS RequestUrl(IKestIO_5* pKestIo, UNICODE_STRING** ppUrl);

// True for a text that is missing, or names bytes that are not there.
inline bool IsMissing(const UNICODE_STRING* text)
{
    return text == nullptr || (text->Length != 0 && text->Buffer == nullptr);
}

// True when the request path is as long as the moniker: the module's root. Only lengths count.
inline bool IsMonikerRoot(const UNICODE_STRING& url)
{
    return url.Length == g_MonikerU.Length;
}

// The provider path: the request path behind the moniker, sharing its buffer. Only the moniker's
// length is removed; the host routes no other path here.
UNICODE_STRING ProviderPath(const UNICODE_STRING& url);

// Finds the provider that serves a path: the one that the session used for the path's first
// component, else the first in list order whose GetType knows the path. Code 11 when none does.
[[nodiscard]] TALSTATUS DavUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri,
                                        KESTDAV_HANDLER** ppHandler);
// The same, and what the path is.
[[nodiscard]] TALSTATUS ResolveUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri,
                                            DAV_TYPE* pDavType, KESTDAV_HANDLER** ppHandler);

// Copies a path, decoding only a fixed set of upper-case percent-escapes. The destination needs
// room for the source and one code unit more.
TALSTATUS ConvertUriToDavStoreUri(UNICODE_STRING* pSrcU, UNICODE_STRING* pDavUriU);
// The request's path behind the moniker, converted.
[[nodiscard]] TALSTATUS ConvertPathUriToDavStoreUri(IKestIO_5* pKestIo, UNICODE_STRING* pDavUriU);

// -- Lock tokens.

// Takes the token out of the request's "If" header into pToken, whose buffer and MaximumLength the
// caller sets. Any failure means that there is no token.
[[nodiscard]] TALSTATUS GetLockTokenFromRequestHeader(IKestIO_5* pKestIo, STRING* pToken);
inline constexpr UINT16 kLockTokenBytes = 128; // the room that handlers give to a token

// What stands between the first ":" and the next ">" (or the end) of a text that ends at a NUL or
// after `size` bytes. data() is null when there is no ":".
std::string_view FindLockToken(const char* text, size_t size);

// The token of one request, in a buffer of its own.
class RequestToken {
  public:
    // Reads the request's "If" header.
    explicit RequestToken(IKestIO_5* io)
    {
        present_ = !Failed(GetLockTokenFromRequestHeader(io, &token_));
    }
    RequestToken(const RequestToken&) = delete;
    RequestToken& operator=(const RequestToken&) = delete;

    // Null when the request carries none.
    STRING* Get() { return present_ ? &token_ : nullptr; }
    // Null also for an empty token.
    STRING* GetNonEmpty() { return token_.Length != 0 ? Get() : nullptr; }

  private:
    char buffer_[kLockTokenBytes];
    STRING token_ = {0, kLockTokenBytes, buffer_};
    bool present_ = false;
};

// -- Method handlers. Each sends its whole reply and returns its last status, which the host only
//    logs. pUrl has a spare code unit behind Length and loses one trailing "/" before.
TALSTATUS KestDavGet(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavHead(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPut(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPost(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);
TALSTATUS KestDavDelete(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavOptions(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropFind(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropPatch(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMkCol(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavCopy(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMove(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavLock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavUnlock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);

// The browser index, called by GET (in index/).
TALSTATUS HTMLIndexRequest(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);

// Opens a collection for a moment and reads what is asked for; null pointers are skipped. The
// status is Associate's. (in methods/get.cpp)
TALSTATUS GetCollectionVitals(SCHANDLE hSc, UNICODE_STRING* pUri, const KESTDAV_HANDLER* pHandler,
                              UINT32* pAttributes, DAV_DATETIME* pCreationDate,
                              DAV_DATETIME* pModificationDate);

// Deletes a tree depth first, children before their parent, and stops at the first failure, whose
// status it returns. Code 38 when a path grows beyond 4096 bytes, code 5 when memory is short; in
// the latter case nothing has been deleted. (in methods/delete.cpp)
inline constexpr UINT32 kDeleteAllFlags = 0xFFFFFFFF; // what callers pass for Flags
TALSTATUS KestDavDeleteCollection(KESTDAV_HANDLER* pHandler, SCHANDLE hSession, UINT32 Flags,
                                  DAV_LOCK_TOKEN* pToken, UNICODE_STRING* pUri,
                                  LIST_ENTRY* pMultiStatus);
// Frees the entries of a list of results. Always succeeds.
TALSTATUS KestDavDeleteMultiStatusList(LIST_ENTRY* pMultiStatus);
