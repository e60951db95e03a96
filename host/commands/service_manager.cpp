// SPDX-License-Identifier: Apache-2.0
//
// Talks to the service manager.
#include "host/commands/service_manager.h"

#include <cstdint>

#include <systemd/sd-daemon.h>

namespace kestd {

// The environment is kept: what the process starts itself is told apart by its process id.
ServiceManager::ServiceManager()
{
    uint64_t microseconds = 0;
    if (sd_watchdog_enabled(0, &microseconds) > 0)
        watchdog_ = std::chrono::milliseconds(microseconds / 1000);
}

void ServiceManager::SetStatus(const std::string& status)
{
    ready_ = "READY=1\nSTATUS=" + status;
}

// Nobody may listen: that is all right.
void ServiceManager::TellReady() const noexcept
{
    (void)sd_notify(0, ready_.c_str());
}

void ServiceManager::TellReloading() const noexcept
{
    (void)sd_notify(0, "RELOADING=1");
}

void ServiceManager::TellStopping() const noexcept
{
    (void)sd_notify(0, "STOPPING=1");
}

void ServiceManager::TellAlive() const noexcept
{
    (void)sd_notify(0, "WATCHDOG=1");
}

} // namespace kestd
