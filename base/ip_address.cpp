// SPDX-License-Identifier: Apache-2.0
//
// IP addresses as numbers: from texts and sockets, and back.
#include "base/ip_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "base/ascii.h"
#include "base/host_name.h"

namespace base {

namespace {

constexpr std::array<uint8_t, 12> kMapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
constexpr unsigned kMappedBits = kMapped.size() * 8;

IpAddress FromIpv4(const void* bytes) noexcept
{
    IpAddress address;
    std::copy(kMapped.begin(), kMapped.end(), address.bytes.begin());
    std::memcpy(address.bytes.data() + kMapped.size(), bytes, 4);
    return address;
}

// The address with nothing but its first `bits`.
IpAddress Cut(IpAddress address, unsigned bits) noexcept
{
    for (unsigned i = 0; i < address.bytes.size(); ++i) {
        const unsigned kept = bits > i * 8 ? std::min(bits - i * 8, 8u) : 0;
        address.bytes[i] = static_cast<uint8_t>(address.bytes[i] & (0xFF00u >> kept));
    }
    return address;
}

} // namespace

bool IpAddress::IsIpv4() const noexcept
{
    return std::equal(kMapped.begin(), kMapped.end(), bytes.begin());
}

bool ParseIpAddress(std::string_view text, IpAddress& address) noexcept
{
    uint8_t four[4];
    if (ParseIpv4Address(text, four)) {
        address = FromIpv4(four);
        return true;
    }
    char terminated[INET6_ADDRSTRLEN] = {};
    if (text.size() >= sizeof terminated || text.find('\0') != std::string_view::npos)
        return false;
    std::copy(text.begin(), text.end(), terminated);
    in6_addr six{};
    if (inet_pton(AF_INET6, terminated, &six) != 1)
        return false;
    std::memcpy(address.bytes.data(), six.s6_addr, address.bytes.size());
    return true;
}

bool IpAddressOf(const sockaddr_storage& peer, IpAddress& address) noexcept
{
    if (peer.ss_family == AF_INET) {
        address = FromIpv4(&reinterpret_cast<const sockaddr_in&>(peer).sin_addr);
        return true;
    }
    if (peer.ss_family != AF_INET6)
        return false;
    std::memcpy(address.bytes.data(), &reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr,
                address.bytes.size());
    return true;
}

sockaddr_storage SocketAddressOf(const IpAddress& address) noexcept
{
    sockaddr_storage out{};
    if (address.IsIpv4()) {
        auto& four = reinterpret_cast<sockaddr_in&>(out);
        four.sin_family = AF_INET;
        std::memcpy(&four.sin_addr, address.bytes.data() + kMapped.size(), 4);
        return out;
    }
    auto& six = reinterpret_cast<sockaddr_in6&>(out);
    six.sin6_family = AF_INET6;
    std::memcpy(&six.sin6_addr, address.bytes.data(), address.bytes.size());
    return out;
}

std::string FormatIpAddress(const IpAddress& address)
{
    char text[INET6_ADDRSTRLEN] = {};
    const bool isFour = address.IsIpv4();
    const uint8_t* const bytes = address.bytes.data() + (isFour ? kMapped.size() : 0);
    (void)inet_ntop(isFour ? AF_INET : AF_INET6, bytes, text, sizeof text); // has the room
    return text;
}

bool IpPrefix::Contains(const IpAddress& other) const noexcept
{
    return Cut(other, bits) == address;
}

std::string ParseIpPrefix(std::string_view text, IpPrefix& prefix)
{
    const size_t slash = text.find('/');
    IpPrefix read;
    if (!ParseIpAddress(text.substr(0, slash), read.address))
        return "expected an address or ADDRESS/BITS, not '" + std::string(text) + "'";
    const bool isFour = text.find(':') == std::string_view::npos;
    if (slash != std::string_view::npos) {
        const uint64_t most = isFour ? 32 : 128;
        uint64_t bits = 0;
        if (text.size() - slash > 4 || !ParseDecimal(text.substr(slash + 1), bits) || bits > most)
            return "expected 0 to " + std::to_string(most) + " bits behind the '/' of '" +
                   std::string(text) + "'";
        read.bits = static_cast<unsigned>(bits) + (isFour ? kMappedBits : 0);
    }
    const IpAddress first = Cut(read.address, read.bits);
    if (first != read.address)
        return "'" + std::string(text) + "' has bits behind its prefix; expected '" +
               FormatIpAddress(first) + std::string(text.substr(slash)) + "', or the address alone";
    prefix = read;
    return {};
}

bool IsInAny(const std::vector<IpPrefix>& prefixes, const IpAddress& address) noexcept
{
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const IpPrefix& prefix) { return prefix.Contains(address); });
}

} // namespace base
