// SPDX-License-Identifier: Apache-2.0
//
// The settings in force, which a reload replaces while requests run.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "host/config/settings.h"

struct ssl_ctx_st;

namespace kestd {

// The settings in force, and what follows from them. Never changed; a reload makes a new one.
struct EffectiveSettings {
    ServerSettings server;
    std::shared_ptr<ssl_ctx_st> tls;
    std::string publicHost; // of the public URL; empty for none
    std::string publicPort;
    bool isPublicSecure = false;
    uint64_t version = 0; // unique in the process
};

// Turns settings into what the server works with: loads the certificate, takes the public URL
// apart. Null with a text in `error`.
std::shared_ptr<EffectiveSettings> MakeEffectiveSettings(const ServerSettings& settings,
                                                         std::string& error);

// Thread-safe.
class SettingsHolder {
  public:
    void Publish(std::shared_ptr<const EffectiveSettings> settings);
    std::shared_ptr<const EffectiveSettings> Snapshot();
    // Brings a reference that its owner keeps up to date; costs nothing while nothing changes.
    void Refresh(std::shared_ptr<const EffectiveSettings>& settings)
    {
        if (settings->version != version_.load(std::memory_order_acquire))
            settings = Snapshot();
    }

  private:
    std::mutex mutex_; // guards current_
    std::shared_ptr<const EffectiveSettings> current_;
    std::atomic<uint64_t> version_{0};
};

} // namespace kestd
