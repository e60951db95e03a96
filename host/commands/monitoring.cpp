// SPDX-License-Identifier: Apache-2.0
//
// Starts and ends the listener for metrics.
#include "host/commands/monitoring.h"

#include <utility>

#include "host/config/addresses.h"
#include "host/server/listener.h"
#include <kest/tolm.h>

namespace kestd {

std::string Monitoring::Open(const std::vector<ListenAddress>& addresses,
                             const std::string& location, std::vector<std::string> volumes)
{
    if (addresses.empty())
        return {};
    std::string error;
    for (ListenAddress where : addresses) {
        base::Descriptor socket = OpenListeningSocket(where, error);
        if (!error.empty())
            return error;
        sockets_.push_back(std::move(socket));
        addresses_.push_back(where);
    }
    counts_ = std::make_unique<ServerCounts>(VolumeIndex(location, std::move(volumes)));
    return {};
}

void Monitoring::Begin(Server& server, const Authenticator& authenticator, Ref<IKestDAV2> provider)
{
    if (!counts_)
        return;
    report_ = std::make_unique<MetricsReport>(server, *counts_, authenticator, std::move(provider));
    listener_ = std::make_unique<MetricsListener>(*report_, std::move(sockets_));
    listener_->Begin();
    for (const ListenAddress& address : addresses_)
        TolmLog(kLogInfo, "kestd",
                ("metrics at http://" + FormatListenAddress(address) + "/metrics").c_str());
}

void Monitoring::TellStopping() noexcept
{
    if (report_)
        report_->TellStopping();
}

void Monitoring::End() noexcept
{
    if (listener_)
        listener_->Stop();
    listener_.reset();
    report_.reset();
}

} // namespace kestd
