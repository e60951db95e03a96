// SPDX-License-Identifier: Apache-2.0
//
// Picks the coding of a reply by what its client takes (RFC 9110 sections 8.4 and 12.5.3).
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// Of what the server says itself: listings, pages, its own files. What is stored leaves as it is:
// its entity tag and its ranges are those of the stored bytes.
class Compression final : public Stage {
  public:
    void OnReplyHead(Exchange& exchange, int status) const override;
};

// For a reply with its headers set, entity tag included, whose body is the server's own: the coding
// that it leaves in if it is long enough. Throws std::bad_alloc.
void OfferCompression(Exchange& exchange);

} // namespace kestd
