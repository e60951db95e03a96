// SPDX-License-Identifier: Apache-2.0
//
// Hands requests to the module and takes its replies.
#pragma once

#include "host/pipeline/request_handler.h"
#include <kest/req.h>

namespace kestd {

class ModuleHandler final : public RequestHandler {
  public:
    explicit ModuleHandler(IKestReq_2& module) : module_(module) {} // outlives the handler

    void Handle(Exchange& exchange) override;
    void Unlock(Exchange& behind, std::string token) override;

  private:
    IKestReq_2& module_;
};

} // namespace kestd
