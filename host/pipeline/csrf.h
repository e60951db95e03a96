// SPDX-License-Identifier: Apache-2.0
//
// Requests that a page makes a signed-in browser send (Fetch Metadata; RFC 6454 section 7).
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// 403 for what a page of another site made the browser send. For POST, the one changing method that
// a foreign page can send with credentials.
class Csrf final : public Stage {
  public:
    Decision OnRequest(Exchange& exchange) const override;
};

// 403 for what a browser wants in order to run it as a script. Nothing that is stored is one of
// ours.
class StoredScripts final : public Stage {
  public:
    Decision OnRequest(Exchange& exchange) const override;
};

} // namespace kestd
