// SPDX-License-Identifier: Apache-2.0
//
// Who sends a request (RFC 9110 section 11), and the cookie that carries a browser's session (RFC
// 6265).
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// Asks the access control and holds the session that it grants, or refuses with 400, 401, 403, 429
// or 503. Where the settings say so, a field of a trusted proxy or the client's certificate
// names the user. Over plain HTTP from another machine nobody is asked for a password (403), unless
// a setting says so.
class Authentication final : public Stage {
  public:
    explicit Authentication(AccessControl& accessControl) : accessControl_(accessControl) {}
    Decision OnRequest(Exchange& exchange) const override;
    // The session's cookie is of no use to scripts. The module says so on its pages; elsewhere
    // nobody has.
    void OnReplyHead(Exchange& exchange, int status) const override;

  private:
    AccessControl& accessControl_;
};

} // namespace kestd
