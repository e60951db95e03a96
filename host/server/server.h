// SPDX-License-Identifier: Apache-2.0
//
// The HTTP server: listens, parses, admits, hands requests under the module's location to the
// module and frames the replies.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/auth/access_control.h"
#include "host/config/settings.h"
#include "host/metrics/server_counts.h"
#include <kest/req.h>

namespace kestd {

class Server {
  public:
    // `module` is not owned and outlives the server. `location` is where it serves, such as
    // "/Ferro", UTF-8, unescaped, without a trailing "/". What happens is counted in `counts`,
    // which is not owned and outlives the server either; null: nothing is counted.
    Server(const ServerSettings& settings, AccessControl& accessControl, IKestReq_2* module,
           std::string location, ServerCounts* counts = nullptr);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Whether the server could start with these settings, as far as that can be told without
    // listening: loads the certificate. Returns a text on failure, as Start.
    static std::string Check(const ServerSettings& settings);
    // Binds and listens on every address, loads the certificate, starts the threads. On failure
    // returns a text that says what could not be done; empty on success.
    std::string Start();
    // The addresses with their real ports, in the order of the settings.
    std::vector<ListenAddress> Addresses() const;
    // Takes over limits, access log, public URL and the certificate's files as they are now, for
    // requests that come later. Listening addresses stay. Returns a text on failure, as Start.
    std::string Apply(const ServerSettings& settings);
    // Grows while the server's clock runs, ten times a second: what stands still is stuck.
    // Thread-safe.
    uint64_t Ticks() const;
    // Takes time for each connection. Thread-safe.
    ServerFigures Figures();
    // Stops accepting, lets running requests finish within limits.shutdownTime, cancels the rest
    // and ends all threads. False when a call into the module has not returned two seconds after
    // that: then the process can only be ended as it is; the destructor would wait for the call.
    // Thread-safe; the second call only tells what the first did.
    bool Stop();

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace kestd
