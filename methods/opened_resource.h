// SPDX-License-Identifier: Apache-2.0
//
// Opening a resource or a collection to read it, as GET and HEAD do.
#pragma once

#include "support/provider.h"
#include <kest/io.h>

struct OpenedResource {
    DavResource object;
    DAV_DATETIME modified = 0;
    UINT64 size = 0;
};

// Opens a resource for reading and reads its size and date.
[[nodiscard]] TALSTATUS OpenDavResource(SCHANDLE session, UNICODE_STRING* path,
                                        const KESTDAV_HANDLER& handler, DAV_LOCK_TOKEN* token,
                                        OpenedResource& opened);

// Sets "Content-Type" by the path's name, where the host knows one.
void SetContentType(IKestIO_5* io, UNICODE_STRING* path);
void SetContentLength(IKestIO_5* io, UINT64 bytes);

// Opens a collection for a moment and reads what is asked for; null pointers are skipped. The
// status is Associate's.
TALSTATUS GetCollectionVitals(SCHANDLE hSc, UNICODE_STRING* pUri, const KESTDAV_HANDLER* pHandler,
                              UINT32* pAttributes, DAV_DATETIME* pCreationDate,
                              DAV_DATETIME* pModificationDate);
