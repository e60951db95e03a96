// SPDX-License-Identifier: Apache-2.0
//
// What a proxy says in front of a connection: the PROXY protocol, versions 1 and 2.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/ip_address.h"

namespace kestd {

struct ProxyPreamble {
    size_t size = 0;                       // bytes, all of it
    std::optional<base::IpAddress> client; // none: the proxy's own connection, or not known
    bool isSecure = false;                 // the client speaks TLS with the proxy
};

enum class PreambleState { Incomplete, Malformed, Complete };

// The longest preamble that is taken: 16 bytes and what they announce. Proxies send a few hundred.
constexpr size_t kLongestPreamble = 16 + 4096;

// Reads the beginning of what has been received. Complete: `preamble` is filled, and what stands
// behind its size is the client's. Incomplete is said only while a complete preamble may follow, of
// at most kLongestPreamble bytes.
PreambleState ReadProxyPreamble(std::string_view text, ProxyPreamble& preamble) noexcept;

} // namespace kestd
