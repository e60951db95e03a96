// SPDX-License-Identifier: Apache-2.0
//
// Who serves a request target (RFC 9110 section 7.1): the handler at its location, or the server
// itself.
#pragma once

#include <string>
#include <utility>

#include "host/pipeline/stage.h"
#include "host/pipeline/static_files.h"

namespace kestd {

class Router final : public Stage {
  public:
    explicit Router(std::string location)
        : location_(std::move(location)), wharf_(WharfBeside(location_))
    {
    }
    Decision OnRequest(Exchange& exchange) const override;

  private:
    const std::string location_;
    const std::string wharf_;
};

} // namespace kestd
