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
    SubrequestResult Subrequest(Exchange& behind, std::string_view path, UINT32 method,
                                std::string lockToken) override;

  private:
    IKestReq_2& module_;
};

} // namespace kestd
