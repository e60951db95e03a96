// SPDX-License-Identifier: Apache-2.0
//
// Which provider serves a path. The cache of the session's answers is the core's, which defines
// both functions (core/cache.cpp). Callers hold g_hHandlerLock for reading (ProviderGuard) around a
// resolution and for as long as they use the entry.
#pragma once

#include "support/globals.h"

// Finds the provider that serves a path: the one that the session used for the path's first
// component, else the first in list order whose GetType knows the path. Code 11 when none does.
[[nodiscard]] TALSTATUS DavUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri,
                                        KESTDAV_HANDLER** ppHandler);
// The same, and what the path is.
[[nodiscard]] TALSTATUS ResolveUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri,
                                            DAV_TYPE* pDavType, KESTDAV_HANDLER** ppHandler);
