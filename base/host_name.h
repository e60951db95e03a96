// SPDX-License-Identifier: Apache-2.0
//
// Hosts and addresses: what may stand in "Host", in a URL's authority and in a setting.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace base {

// host[:port] (RFC 3986 section 3.2.2) without user information: a name, an IPv4 address, or an
// IPv6 address in brackets; at most 255 bytes of name. The name has no escapes.
bool IsValidHost(std::string_view text) noexcept;

// Splits a valid host[:port]; the port is empty when there is none. Brackets stay.
void SplitHost(std::string_view text, std::string_view& name, std::string_view& port) noexcept;

// A port's number, 0 to 65535, of one to five digits. False for anything else.
bool ParsePort(std::string_view text, uint16_t& port) noexcept;

// Whether a host's name or address, as SplitHost gives it, can be nothing but this machine:
// "localhost" and the names below it (RFC 6761 section 6.3), 127.0.0.0/8, [::1].
bool IsLoopbackHost(std::string_view name) noexcept;

// Whether a text is an IPv4 address, or an IPv6 address without brackets.
bool IsIpv4Address(std::string_view text) noexcept;
bool IsIpv6Address(std::string_view text) noexcept;
// An IPv4 address in the order of the network. False, and `bytes` as it was, for anything else.
bool ParseIpv4Address(std::string_view text, uint8_t (&bytes)[4]) noexcept;

// Whether an address without brackets is one of this machine only: 127.0.0.0/8, also mapped into
// IPv6, and ::1. False for what is no address.
bool IsLoopbackAddress(std::string_view address) noexcept;

} // namespace base
