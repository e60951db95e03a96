// SPDX-License-Identifier: Apache-2.0
//
// A lock that the module has granted (RFC 4918 section 9.10) and the client never heard of: nobody
// could give it up, so it is taken back.
#pragma once

#include "host/pipeline/request_handler.h"
#include "host/pipeline/stage.h"

namespace kestd {

class GrantedLocks final : public Stage {
  public:
    explicit GrantedLocks(RequestHandler& handler) : handler_(handler) {}
    // Takes the memory that the reply needs: no lock is granted that there is none to tell of.
    Decision OnBody(Exchange& exchange) const override;
    // Take note of what the module says.
    void OnReplyHead(Exchange& exchange, int status) const override;
    void OnReplyBody(Exchange& exchange, std::string_view piece) const override;
    // Gives the lock up with an UNLOCK, if the client was told of a failure instead, or the reply
    // could not be sent.
    void OnReplySent(Exchange& exchange) const noexcept override;

  private:
    RequestHandler& handler_;
};

} // namespace kestd
