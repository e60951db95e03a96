// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE: what their headers ask for (RFC 4918 sections 10.2, 10.3 and 10.6), in the forms
// that the module takes.
#pragma once

#include <string>
#include <utility>

#include "host/pipeline/stage.h"

namespace kestd {

// Reads "Destination", "Overwrite" and "Depth" into the exchange. Refuses with 400 for a missing or
// malformed header, 502 for a destination outside of `location`, 403 for one inside the source, 414
// for one that is too long.
//
// Schemes are never compared: clients behind TLS or with webdav:// send what they like. The host is
// ours when it is the one the request was sent to, that of the public URL, or the one that a
// trusted proxy says the client asked for. Where a trusted proxy says nothing, the standard dialect
// takes any host for ours: the proxy has sent its own "Host".
class CopyMoveHeaders final : public Stage {
  public:
    explicit CopyMoveHeaders(std::string location) : location_(std::move(location)) {}
    Decision OnRequest(Exchange& exchange) const override;

  private:
    const std::string location_;
};

// `path` as the path of the URL that GetCopyInfo hands out. The module decodes some escapes of it
// once, of which "%25" is one: escaping "%" and nothing else gives every name back as it was.
std::u16string CopyUrlPath(std::u16string_view path);

} // namespace kestd
