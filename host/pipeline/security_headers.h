// SPDX-License-Identifier: Apache-2.0
//
// What keeps a signed-in browser from being turned against its user: foreign pages cannot post, and
// neither pages nor stored files can become more than they are.
#pragma once

#include "host/http/response.h"
#include "host/module/kest_io.h"

namespace kestd {

// True when a page of another site made the browser send this request. Told by "Sec-Fetch-Site",
// else "Origin" (RFC 6454 section 7), else "Referer"; programs send none of them and pass.
bool IsCrossSite(KestIo& request);

// True when a browser says that it wants the reply to run as a script ("Sec-Fetch-Dest"). Nothing
// that is stored is one of ours.
bool IsStoredScript(KestIo& request);

// Sets the headers that hold a browser to what a module's reply is: a page with the shipped scripts
// and styles, or stored content, which may be anybody's and therefore runs nothing. The reply's
// headers set so far tell which. Called before the head is complete.
void SetSecurityHeaders(KestIo& request);

} // namespace kestd
