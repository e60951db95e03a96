// SPDX-License-Identifier: Apache-2.0
//
// The resolution cache: which provider serves which store root (the first component of a provider
// path), remembered per session in the host's object store.
#pragma once

#include "support/globals.h"

inline constexpr UINT32 kCacheSignature = 0xACDC00BA;
inline constexpr size_t kCacheUriUnits = 2049;

// One remembered store root. Lives in the object store, which zeroes it and ends it with the
// session. pHandler points into g_HandlerList, which is never shortened.
struct URI_CACHE_BUFFER {
    UINT32 Signature;
    UINT32 Flags;
    DAV_DATETIME LastAccess; // atomic: refreshed by every request that hits the entry
    KESTDAV_HANDLER* pHandler;
    UNICODE_STRING UriU; // over wUriBuffer; a longer root is cut
    WCHAR wUriBuffer[kCacheUriUnits];
};

struct URI_CACHE_INIT_DATA {
    KESTDAV_HANDLER* pHandler;
    UNICODE_STRING* pUriU;
};

// Without a store the module runs on, and every request asks the providers.
TALSTATUS DavInitCacheBuffers();
void DavCleanupCacheBuffers();

// Remembers the provider of a store root. Code 22 when the session had an entry for it, which is
// kept.
TALSTATUS DavAddUriPrefixToCache(SCHANDLE hSc, UNICODE_STRING* pUriU, KESTDAV_HANDLER* pHandler);

// What the object store calls.
TALSTATUS DavUriCacheBufferConstructor(void* pData1, void* pData2);
TALSTATUS DavUriCacheBufferDestructor(void* pData);
BOOLEAN DavCompareUri(void* object, void* key);
// For the end of a session. Not registered: there is nothing to do.
TALSTATUS DavCacheSessionCleanup(SCHANDLE hSc);
