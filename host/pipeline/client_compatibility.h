// SPDX-License-Identifier: Apache-2.0
//
// What clients need of a reply that the module's own would lack.
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// "MS-Author-Via" of OPTIONS: Office saves nothing without it.
class AuthoringHeader final : public Stage {
  public:
    Decision OnRequest(Exchange& exchange) const override;
};

// What common clients insist on and the module, whose replies are fixed, does not say. Changes
// nothing when a part of the reply has left.
// - LOCK: neon and what is built on it take a new lock only with its token in the "Lock-Token"
//   header (RFC 4918 section 9.10.1). davfs2, which locks what must not exist yet, takes it as made
//   only with 201 (section 9.10.4).
// - COPY and MOVE: KDE takes 201 and 204 only (RFC 4918 sections 9.8.5 and 9.9.4), not 200.
class ClientCompatibility final : public Stage {
  public:
    void OnReplyEnd(Exchange& exchange) const override;
};

} // namespace kestd
