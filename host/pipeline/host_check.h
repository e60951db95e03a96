// SPDX-License-Identifier: Apache-2.0
//
// RFC 9110 section 15.5.20: requests for a name that is not served without credentials.
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// Where nobody needs credentials, only loopback names and the public URL's are served (421): a page
// of another site reaches this machine by letting its own name lead to a loopback address; browsers
// then take what is served here for that site's own. What a proxy says about the host is held
// against the request only: such a page can send a proxy's headers, too.
class HostCheck final : public Stage {
  public:
    explicit HostCheck(const AccessControl& accessControl) : accessControl_(accessControl) {}
    Decision OnRequest(Exchange& exchange) const override;

  private:
    const AccessControl& accessControl_;
};

} // namespace kestd
