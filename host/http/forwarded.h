// SPDX-License-Identifier: Apache-2.0
//
// "Forwarded" (RFC 7239), and the addresses of "X-Forwarded-For".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ip_address.h"

namespace kestd {

// What one proxy says about the request that it got. Absent parameters are empty.
struct ForwardedHop {
    std::optional<base::IpAddress> client; // "for"; none also for "unknown" and hidden names
    std::string host;                      // "host": host[:port]
    std::string scheme;                    // "proto"
};

// Reads the value of "Forwarded", the lines of one name joined: the hops in the order in which they
// stand, the nearest proxy's last. False for what section 4 does not allow: blanks around "=" and
// ";", a parameter twice, "for" and "by" that are no node (section 6), "host" that is none. Throws
// std::bad_alloc.
bool ParseForwarded(std::string_view value, std::vector<ForwardedHop>& hops);

// An address as proxies write them into "X-Forwarded-For": with or without a port, IPv6 with or
// without brackets. None for anything else, such as "unknown".
std::optional<base::IpAddress> ParseForwardedAddress(std::string_view text) noexcept;

} // namespace kestd
