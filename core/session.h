// SPDX-License-Identifier: Apache-2.0
//
// The provider list and the bracket around every user session: BeginSession of all providers with
// the session's first request, EndSession when the host ends it.
#pragma once

#include "support/globals.h"

// Creates the configured providers in the registry's order. Under g_hHandlerLock for writing. Code
// 11 when the list stays empty.
TALSTATUS InstantiateDavHandlers();

// Empties the list. The caller must know that no request runs.
void KestDavReleaseHandlers();

// Registers the session attribute with the host.
[[nodiscard]] TALSTATUS KestDavSAInit();

// Makes sure that the session has its attribute; its first request begins it at the providers.
[[nodiscard]] TALSTATUS KestDavCreateSession(SCHANDLE hSc);

// Called by the attribute service: fills a new attribute, and ends a session.
TALSTATUS KestDavSAInitObject(Attribute* pAttribute, void* pData);
TALSTATUS KestDavSACleanup(SCHANDLE hSc);
