// SPDX-License-Identifier: Apache-2.0
//
// The walk that deletes a tree for providers that cannot.
#pragma once

#include "support/globals.h"

// Deletes a tree depth first, children before their parent, and stops at the first failure, whose
// status it returns. Code 38 when a path grows beyond 4096 bytes, code 5 when memory is short; in
// the latter case nothing has been deleted.
inline constexpr UINT32 kDeleteAllFlags = 0xFFFFFFFF; // what callers pass for Flags
TALSTATUS KestDavDeleteCollection(KESTDAV_HANDLER* pHandler, SCHANDLE hSession, UINT32 Flags,
                                  DAV_LOCK_TOKEN* pToken, UNICODE_STRING* pUri,
                                  LIST_ENTRY* pMultiStatus);
