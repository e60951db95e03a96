// SPDX-License-Identifier: Apache-2.0
//
// What the administrator's rules say about a request's own paths, before anything is done; and the
// privileges that a refusal names (RFC 3744 section 7.1.1).
#pragma once

#include <string>
#include <utility>

#include "host/pipeline/home_folders.h"
#include "host/pipeline/stage.h"

namespace kestd {

// Refuses with 403, or with 404 where the user may neither list nor read what the request is about
// and it does not ask for something new. What only shows when the path is looked up, such as
// whether a name is taken, the provider judges; see kest/host/access.h.
class Access final : public Stage {
  public:
    explicit Access(std::string location) : location_(std::move(location)), homes_(clock_) {}
    Decision OnRequest(Exchange& exchange) const override;
    // The body of a 403 that the handler has sent without one.
    void OnReplyEnd(Exchange& exchange) const override;

  private:
    std::string_view ProviderPath(std::string_view path) const noexcept;
    std::string DenialOf(const Exchange& exchange) const;

    const std::string location_;
    const SteadyClock clock_;
    const HomeFolders homes_;
};

} // namespace kestd
