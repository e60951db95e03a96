// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE: what their headers ask for, in the forms that the module takes.
#pragma once

#include <string>

#include "host/module/kest_io.h"
#include "host/net/connection_registry.h"

namespace kestd {

// Reads "Destination", "Overwrite" and "Depth" (RFC 4918 sections 10.2, 10.3 and 10.6) into
// `request.copyMove`, with the destination's decoded path in `request.copyMove.path`. 0, or the
// status to refuse the request with: 400 for a missing or malformed header, 502 for a destination
// that this module does not serve, 403 for one inside the source, 414 for one that is too long.
//
// Schemes are never compared: clients behind TLS or with webdav:// send what they like. The host is
// ours when it is the one the request was sent to, or that of the public URL.
int ReadCopyMoveHeaders(KestIo& request, const Front& front, const EffectiveSettings& live);

// The module's overwrite flag says more than the client's: with it set, a collection is only merged
// into one that exists. Where nothing exists at the destination the client's wish means nothing,
// and the flag is cleared here, so that an ordinary COPY (which allows overwriting by default)
// makes a new collection. Whether something exists is found out with a HEAD of the destination,
// through the module and in the same session; when the answer is neither yes nor no, the flag
// stays.
void ResolveOverwrite(KestIo& request, Front& front);

// Whether a reply that the module is about to begin says that the destination has changed between
// the look at it and the module's own: then it is looked at again, and the module asked again. A
// client that allows overwriting is not told that the name was taken.
bool HasDestinationChanged(const KestIo& request, int status) noexcept;

// `path` as the path of the URL that GetCopyInfo hands out. The module decodes some escapes of it
// once, of which "%25" is one: escaping "%" and nothing else gives every name back as it was.
std::u16string CopyUrlPath(std::u16string_view path);

} // namespace kestd
