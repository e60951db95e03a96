// SPDX-License-Identifier: Apache-2.0
//
// What the service manager that has started this process is told, see sd_notify(3). Where there is
// none, nothing happens.
#pragma once

#include <chrono>
#include <string>

namespace kestd {

class ServiceManager {
  public:
    ServiceManager();

    // Within which time it expects the next TellAlive; zero where it does not watch.
    std::chrono::milliseconds WatchdogTime() const { return watchdog_; }

    void SetStatus(const std::string& status); // one line for people, told with TellReady
    void TellReady() const noexcept;
    void TellReloading() const noexcept; // ends with TellReady
    void TellStopping() const noexcept;
    void TellAlive() const noexcept;

  private:
    std::string ready_{"READY=1"};
    std::chrono::milliseconds watchdog_{0};
};

} // namespace kestd
