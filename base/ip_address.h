// SPDX-License-Identifier: Apache-2.0
//
// IP addresses, and prefixes of them, as numbers.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sockaddr_storage;

namespace base {

// An IPv4 or IPv6 address in the order of the network. IPv4 addresses are kept as IPv6 has them
// (::ffff:0:0/96, RFC 4291 section 2.5.5.2), so that one that comes mapped is the same address.
struct IpAddress {
    std::array<uint8_t, 16> bytes{};
    bool operator==(const IpAddress&) const = default;

    bool IsIpv4() const noexcept;
};

// Numeric, IPv6 without brackets and zone. False, and `address` as it was, for anything else.
bool ParseIpAddress(std::string_view text, IpAddress& address) noexcept;
// Of a socket: false when it is neither IPv4 nor IPv6.
bool IpAddressOf(const sockaddr_storage& peer, IpAddress& address) noexcept;
// As a socket's address with port 0.
sockaddr_storage SocketAddressOf(const IpAddress& address) noexcept;
// As it is written: "192.0.2.1", "2001:db8::1". At most 45 bytes.
std::string FormatIpAddress(const IpAddress& address);

// All addresses that begin with the same bits.
struct IpPrefix {
    IpAddress address;
    unsigned bits = 128; // of the 128 of `address`
    bool operator==(const IpPrefix&) const = default;

    bool Contains(const IpAddress& other) const noexcept;
};

// "ADDRESS" or "ADDRESS/BITS". Empty on success, else what is wrong with the text; bits that are
// set behind the prefix are wrong: nobody knows which of the two was meant.
std::string ParseIpPrefix(std::string_view text, IpPrefix& prefix);

// Whether one of the prefixes holds the address.
bool IsInAny(const std::vector<IpPrefix>& prefixes, const IpAddress& address) noexcept;

} // namespace base
