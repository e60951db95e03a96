// SPDX-License-Identifier: Apache-2.0
//
// Makes the settings in force from those that are configured, and publishes them.
#include "host/config/settings_holder.h"

#include <algorithm>
#include <string_view>

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/uri.h"
#include "host/net/tls.h"

namespace kestd {

namespace {

// Fills what the public URL says. False when it is none.
bool ReadPublicUrl(EffectiveSettings& settings)
{
    std::string_view url = settings.server.publicUrl;
    std::string_view scheme;
    std::string_view host;
    if (!base::TakeOrigin(url, scheme, host))
        return false;
    std::string_view name;
    std::string_view port;
    base::SplitHost(host, name, port);
    settings.publicHost = name;
    settings.isPublicSecure = base::EqualsIgnoringCase(scheme, "https");
    settings.publicPort =
        !port.empty() ? port : std::string_view(settings.isPublicSecure ? "443" : "80");
    return true;
}

} // namespace

std::shared_ptr<EffectiveSettings> MakeEffectiveSettings(const ServerSettings& settings,
                                                         std::string& error)
{
    static std::atomic<uint64_t> versions{0};
    auto made = std::make_shared<EffectiveSettings>();
    made->server = settings;
    made->version = ++versions;
    // The contract's strings count 16 bits of bytes, two for each code unit, and spare room.
    made->server.limits.targetBytes = std::min(settings.limits.targetBytes, 28u * 1024);
    if (!settings.publicUrl.empty() && !ReadPublicUrl(*made)) {
        error = "the public URL " + settings.publicUrl + " is not http(s)://HOST[:PORT]";
        return nullptr;
    }
    if (settings.tlsCertificate.empty() != settings.tlsKey.empty()) {
        error = "TLS needs a certificate and a key";
        return nullptr;
    }
    if (!settings.tlsCertificate.empty()) {
        made->tls = LoadTlsContext(
            {settings.tlsCertificate, settings.tlsKey, settings.clientCa, settings.clientCrl},
            error);
        if (!made->tls)
            return nullptr;
    }
    return made;
}

void SettingsHolder::Publish(std::shared_ptr<const EffectiveSettings> settings)
{
    const std::lock_guard lock(mutex_);
    current_ = std::move(settings);
    version_.store(current_->version, std::memory_order_release);
}

std::shared_ptr<const EffectiveSettings> SettingsHolder::Snapshot()
{
    const std::lock_guard lock(mutex_);
    return current_;
}

} // namespace kestd
