// SPDX-License-Identifier: Apache-2.0
//
// Hosts and addresses.
#include "base/host_name.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/ascii.h"
#include "base/percent.h"

namespace base {

namespace {

constexpr size_t kLongestName = 255;

// The bytes of a reg-name without escapes (RFC 3986 section 3.2.2).
constexpr std::array<bool, 256> kNameBytes = [] {
    std::array<bool, 256> table{};
    for (unsigned char c = 1; c < 0x7F; ++c)
        table[c] = IsUnreserved(static_cast<char>(c));
    for (const char c : std::string_view("!$&'()*+,;="))
        table[static_cast<unsigned char>(c)] = true;
    return table;
}();

template <class Address> bool Parse(int family, std::string_view text, Address& address) noexcept
{
    char terminated[INET6_ADDRSTRLEN] = {};
    if (text.size() >= sizeof terminated || text.find('\0') != std::string_view::npos)
        return false;
    std::memcpy(terminated, text.data(), text.size());
    return inet_pton(family, terminated, &address) == 1;
}

bool ParseIpv4(std::string_view text, in_addr& address) noexcept
{
    return Parse(AF_INET, text, address);
}

bool ParseIpv6(std::string_view text, in6_addr& address) noexcept
{
    return Parse(AF_INET6, text, address);
}

bool IsLoopback(const in_addr& address) noexcept
{
    return ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
}

bool IsRegisteredName(std::string_view name) noexcept
{
    if (name.empty() || name.size() > kLongestName)
        return false;
    for (const char c : name)
        if (!kNameBytes[static_cast<unsigned char>(c)])
            return false;
    return true;
}

} // namespace

bool IsIpv4Address(std::string_view text) noexcept
{
    in_addr address{};
    return ParseIpv4(text, address);
}

bool ParseIpv4Address(std::string_view text, uint8_t (&bytes)[4]) noexcept
{
    in_addr address{};
    if (!ParseIpv4(text, address))
        return false;
    std::memcpy(bytes, &address.s_addr, sizeof bytes);
    return true;
}

bool IsIpv6Address(std::string_view text) noexcept
{
    in6_addr address{};
    return ParseIpv6(text, address);
}

bool ParsePort(std::string_view text, uint16_t& port) noexcept
{
    uint64_t number = 0;
    if (text.size() > 5 || !ParseDecimal(text, number) || number > UINT16_MAX)
        return false;
    port = static_cast<uint16_t>(number);
    return true;
}

bool IsValidHost(std::string_view text) noexcept
{
    std::string_view rest; // ":port", or nothing
    if (text.starts_with('[')) {
        const size_t close = text.find(']');
        if (close == std::string_view::npos || !IsIpv6Address(text.substr(1, close - 1)))
            return false;
        rest = text.substr(close + 1);
    } else {
        const size_t colon = std::min(text.find(':'), text.size());
        if (!IsRegisteredName(text.substr(0, colon)))
            return false;
        rest = text.substr(colon);
    }
    uint16_t port = 0; // an empty one is the scheme's own (RFC 3986 section 3.2.3)
    return rest.empty() || rest == ":" || (rest.front() == ':' && ParsePort(rest.substr(1), port));
}

void SplitHost(std::string_view text, std::string_view& name, std::string_view& port) noexcept
{
    const size_t from = text.starts_with('[') ? text.find(']') : 0;
    const size_t colon = text.find(':', from == std::string_view::npos ? 0 : from);
    name = text.substr(0, colon);
    port = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
}

bool IsLoopbackHost(std::string_view name) noexcept
{
    if (name == "127.0.0.1") // what programs on this machine ask for
        return true;
    constexpr std::string_view kName = "localhost";
    if (name.size() > 1 && name.back() == '.') // the same name, fully qualified
        name.remove_suffix(1);
    if (name.size() >= kName.size() &&
        EqualsIgnoringCase(name.substr(name.size() - kName.size()), kName))
        return name.size() == kName.size() || name[name.size() - kName.size() - 1] == '.';
    if (name.starts_with('[') && name.ends_with(']')) {
        in6_addr six{};
        return ParseIpv6(name.substr(1, name.size() - 2), six) && IN6_IS_ADDR_LOOPBACK(&six);
    }
    in_addr four{};
    return ParseIpv4(name, four) && IsLoopback(four);
}

bool IsLoopbackAddress(std::string_view address) noexcept
{
    in_addr four{};
    if (ParseIpv4(address, four))
        return IsLoopback(four);
    in6_addr six{};
    if (!ParseIpv6(address, six))
        return false;
    return IN6_IS_ADDR_LOOPBACK(&six) ||
           (IN6_IS_ADDR_V4MAPPED(&six) && six.s6_addr[12] == IN_LOOPBACKNET);
}

} // namespace base
