// SPDX-License-Identifier: Apache-2.0
//
// Bodies that are longer than the settings allow (RFC 9110 section 15.5.14).
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// Whether the request's body is XML that is read before anything is done.
bool HasXmlBody(const Exchange& exchange) noexcept;

// Whether what comes of the body is of use when the rest does not ("Resumable Uploads for HTTP"):
// then it is handed on as it comes, and a client may wait for the interim reply before it sends.
bool IsResumable(Exchange& exchange) noexcept;

class BodyLimits final : public Stage {
  public:
    // 413 for a length that is announced; other bodies are bounded while they are read.
    Decision OnRequest(Exchange& exchange) const override;
    // The contract has no status of that meaning, so the handler has said something else.
    void OnReplyEnd(Exchange& exchange) const override;
};

} // namespace kestd
