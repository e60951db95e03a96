// SPDX-License-Identifier: Apache-2.0
//
// PUT of a part (RFC 9110 section 14.5) where the module takes every body for the whole.
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// 400 for a PUT with "Content-Range": taking the part for the whole would destroy the rest.
class PartialPut final : public Stage {
  public:
    Decision OnRequest(Exchange& exchange) const override;
};

} // namespace kestd
