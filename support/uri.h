// SPDX-License-Identifier: Apache-2.0
//
// The request's path and the provider's: where one ends and the other begins.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

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

// Copies a path, decoding only a fixed set of upper-case percent-escapes. The destination needs
// room for the source and one code unit more.
TALSTATUS ConvertUriToDavStoreUri(UNICODE_STRING* pSrcU, UNICODE_STRING* pDavUriU);
// The request's path behind the moniker, converted.
[[nodiscard]] TALSTATUS ConvertPathUriToDavStoreUri(IKestIO_5* pKestIo, UNICODE_STRING* pDavUriU);
