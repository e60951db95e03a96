// SPDX-License-Identifier: Apache-2.0
//
// What a running host tells the listener for metrics.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "host/auth/authenticator.h"
#include "host/commands/volume_figures.h"
#include "host/metrics/exposition.h"
#include "host/metrics/scrape.h"
#include "host/metrics/server_counts.h"
#include "host/server/server.h"

namespace kestd {

// Asked by the listener's thread alone.
class MetricsReport final : public MetricsSource {
  public:
    // Everything outlives it. `provider` may be null: then nothing is told of volumes. Throws
    // std::system_error.
    MetricsReport(Server& server, const ServerCounts& counts, const Authenticator& authenticator,
                  Ref<IKestDAV2> provider);

    std::string Metrics(MetricsFormat format) override;
    std::string WhatIsWrong() override;
    std::string WhatIsNotReady() override;

    void TellStopping() noexcept { isStopping_ = true; } // from any thread

  private:
    void WriteProcess(Exposition& out) const;
    void WriteConnections(Exposition& out, const ServerFigures& figures) const;
    static void WriteWork(Exposition& out, const ServerFigures& figures);
    void WriteSignIns(Exposition& out) const;
    void WriteVolumes(Exposition& out);

    Server& server_;
    const ServerCounts& counts_;
    const Authenticator& authenticator_;
    std::unique_ptr<VolumeFiguresReader> volumes_; // null: nobody tells
    const double start_;                           // of the process, seconds since 1970
    std::atomic<bool> isStopping_{false};
    uint64_t ticks_ = 0;                           // of the server's clock, when it was looked at
    std::chrono::steady_clock::time_point ticked_; // when they had changed last
};

} // namespace kestd
