// SPDX-License-Identifier: Apache-2.0
//
// Metrics of a running host, where the settings ask for them: what is counted, and who tells it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "host/commands/metrics_report.h"
#include "host/config/settings.h"
#include "host/metrics/metrics_listener.h"
#include "host/metrics/server_counts.h"

namespace kestd {

class Monitoring {
  public:
    // Listens on the addresses; does nothing where there are none. `location` is where the module
    // serves. Empty on success, else a text that says what could not be done.
    std::string Open(const std::vector<ListenAddress>& addresses, const std::string& location,
                     std::vector<std::string> volumes);
    // For the server; null where nothing is counted. Lives as long as this object.
    ServerCounts* Counts() noexcept { return counts_.get(); }
    // Answers from here on, and says where. `provider` is asked about volumes; null: nobody is. The
    // others outlive the call of End. Throws
    // std::system_error.
    void Begin(Server& server, const Authenticator& authenticator, Ref<IKestDAV2> provider);
    // From now on the host is not ready.
    void TellStopping() noexcept;
    void End() noexcept;

  private:
    std::vector<base::Descriptor> sockets_; // until Begin
    std::vector<ListenAddress> addresses_;  // with their real ports
    std::unique_ptr<ServerCounts> counts_;
    std::unique_ptr<MetricsReport> report_;
    std::unique_ptr<MetricsListener> listener_;
};

} // namespace kestd
