// SPDX-License-Identifier: Apache-2.0
//
// Parses a line of version 1 or a record of version 2.
#include "host/net/proxy_preamble.h"

#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "base/host_name.h"

namespace kestd {

namespace {

constexpr std::string_view kLineStart = "PROXY ";
constexpr size_t kLongestLine = 107; // with its end, as the protocol says
constexpr std::string_view kSignature("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr size_t kHeadSize = 16; // of version 2: signature, command, family, length

// Takes what stands before the next blank. Words are apart by exactly one.
std::string_view TakeWord(std::string_view& line) noexcept
{
    const size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return word;
}

bool IsPort(std::string_view word) noexcept
{
    uint16_t port = 0;
    return base::ParsePort(word, port) && (word.size() == 1 || word.front() != '0');
}

// "TCP4 SOURCE DESTINATION PORT PORT"; what stands behind "UNKNOWN" says nothing.
bool ReadAddresses(std::string_view line, ProxyPreamble& preamble) noexcept
{
    const std::string_view family = TakeWord(line);
    if (family == "UNKNOWN")
        return true;
    const bool isFour = family == "TCP4";
    if (!isFour && family != "TCP6")
        return false;
    base::IpAddress source;
    const std::string_view from = TakeWord(line);
    const std::string_view to = TakeWord(line);
    const auto isAddress = isFour ? base::IsIpv4Address : base::IsIpv6Address;
    if (!isAddress(from) || !isAddress(to) || !base::ParseIpAddress(from, source))
        return false;
    const std::string_view fromPort = TakeWord(line);
    if (!IsPort(fromPort) || !IsPort(line)) // what is left is the last word
        return false;
    preamble.client = source;
    return true;
}

PreambleState ReadLine(std::string_view text, ProxyPreamble& preamble) noexcept
{
    const size_t end = text.substr(0, kLongestLine).find("\r\n");
    if (end == std::string_view::npos)
        return text.size() < kLongestLine ? PreambleState::Incomplete : PreambleState::Malformed;
    preamble.size = end + 2;
    return ReadAddresses(text.substr(kLineStart.size(), end - kLineStart.size()), preamble)
               ? PreambleState::Complete
               : PreambleState::Malformed;
}

uint8_t ByteAt(std::string_view text, size_t at) noexcept
{
    return static_cast<uint8_t>(text[at]);
}

size_t LengthAt(std::string_view text, size_t at) noexcept
{
    return static_cast<size_t>(ByteAt(text, at) << 8 | ByteAt(text, at + 1));
}

// The extensions behind the addresses: type, length in two bytes, value. All but that about TLS are
// skipped. False when one reaches beyond the end.
bool ReadExtensions(std::string_view rest, ProxyPreamble& preamble) noexcept
{
    constexpr size_t kExtensionHead = 3;
    constexpr uint8_t kTls = 0x20;       // PP2_TYPE_SSL
    constexpr uint8_t kClientTls = 0x01; // PP2_CLIENT_SSL, in the first byte of its value
    while (!rest.empty()) {
        if (rest.size() < kExtensionHead || rest.size() - kExtensionHead < LengthAt(rest, 1))
            return false;
        const std::string_view value = rest.substr(kExtensionHead, LengthAt(rest, 1));
        if (ByteAt(rest, 0) == kTls && !value.empty() && (ByteAt(value, 0) & kClientTls))
            preamble.isSecure = true;
        rest.remove_prefix(kExtensionHead + value.size());
    }
    return true;
}

// The record's addresses and extensions. `family` is the byte that names family and transport.
bool ReadRecord(uint8_t family, std::string_view rest, ProxyPreamble& preamble) noexcept
{
    constexpr uint8_t kTcp4 = 0x11;
    constexpr uint8_t kTcp6 = 0x21;
    if (family != kTcp4 && family != kTcp6)
        return true; // without addresses that mean anything here: the proxy's own count
    const size_t size = family == kTcp4 ? 4 : 16;
    const size_t addresses = 2 * size + 4; // source, destination, two ports
    if (rest.size() < addresses)
        return false;
    base::IpAddress source;
    if (family == kTcp4) {
        source.bytes[10] = source.bytes[11] = 0xFF; // mapped into IPv6
        std::copy_n(rest.begin(), size, source.bytes.begin() + 12);
    } else {
        std::copy_n(rest.begin(), size, source.bytes.begin());
    }
    preamble.client = source;
    return ReadExtensions(rest.substr(addresses), preamble);
}

PreambleState ReadVersion2(std::string_view text, ProxyPreamble& preamble) noexcept
{
    constexpr uint8_t kLocal = 0x20; // version 2, and the command
    constexpr uint8_t kProxy = 0x21;
    if (text.size() < kHeadSize)
        return PreambleState::Incomplete;
    const uint8_t command = ByteAt(text, 12);
    const uint8_t family = ByteAt(text, 13);
    const size_t length = LengthAt(text, 14);
    if ((command != kLocal && command != kProxy) || length > kLongestPreamble - kHeadSize)
        return PreambleState::Malformed;
    if ((family >> 4) > 3 || (family & 0xF) > 2) // unspecified, IPv4, IPv6, Unix; stream, datagram
        return PreambleState::Malformed;
    if (text.size() - kHeadSize < length)
        return PreambleState::Incomplete;
    preamble.size = kHeadSize + length;
    if (command == kLocal) // a check of the proxy's own: nothing that follows counts
        return PreambleState::Complete;
    return ReadRecord(family, text.substr(kHeadSize, length), preamble) ? PreambleState::Complete
                                                                        : PreambleState::Malformed;
}

bool MayBegin(std::string_view text, std::string_view with) noexcept
{
    const size_t size = std::min(text.size(), with.size());
    return text.substr(0, size) == with.substr(0, size);
}

} // namespace

PreambleState ReadProxyPreamble(std::string_view text, ProxyPreamble& preamble) noexcept
{
    preamble = {};
    if (MayBegin(text, kSignature))
        return ReadVersion2(text, preamble);
    if (!MayBegin(text, kLineStart))
        return PreambleState::Malformed;
    return text.size() < kLineStart.size() ? PreambleState::Incomplete : ReadLine(text, preamble);
}

} // namespace kestd
