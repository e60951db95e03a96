// SPDX-License-Identifier: Apache-2.0
//
// What PROPFIND and PROPPATCH replies begin with (RFC 4918 section 13).
#pragma once

#include "support/reply.h"
#include "support/uri.h"

// Sends the head of a 207 and the XML declaration; the multistatus element follows. The host frames
// the body: its length is not known yet.
inline void SendMultiStatusHead(IKestIO_5* io)
{
    SetHeader(io, "Transfer-Encoding", "chunked");
    SetHeader(io, "Content-Type", "text/xml");
    (void)io->SendHeader(207);
    Put(io, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>");
}

// The provider path of a request; "/" for the module's root. `root` holds that one and lives as
// long as the result.
inline UNICODE_STRING RequestPath(const UNICODE_STRING& url, WCHAR (&root)[2])
{
    if (!IsMonikerRoot(url))
        return ProviderPath(url);
    root[0] = u'/';
    root[1] = 0;
    return {sizeof(WCHAR), sizeof(root), root};
}
