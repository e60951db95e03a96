// SPDX-License-Identifier: Apache-2.0
//
// The headers that hold a browser to what a reply is (Content Security Policy, RFC 9110 section
// 8.3): neither pages nor stored files can become more than they are.
#pragma once

#include <string>

#include "host/pipeline/stage.h"

namespace kestd {

// A page may use the shipped scripts and styles; stored content may be anybody's and therefore runs
// nothing. The headers that the handler has set tell which of both a reply is.
class SecurityHeaders final : public Stage {
  public:
    // `location` is the handler's path; pages find scripts and styles beside it.
    explicit SecurityHeaders(const std::string& location);
    void OnReplyHead(Exchange& exchange, int status) const override;

  private:
    const std::string wharf_; // escaped for a policy
};

} // namespace kestd
