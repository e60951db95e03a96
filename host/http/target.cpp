// SPDX-License-Identifier: Apache-2.0
#include "host/http/target.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cstring>

#include "host/http/ascii.h"
#include "host/http/utf.h"

namespace kestd {

namespace {

// Removes the last "/segment" of a path.
void DropLastSegment(std::string& path)
{
    const size_t slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash);
}

bool DecodeSegment(std::string_view raw, std::string& out)
{
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (c == '%') {
            if (raw.size() - i < 3)
                return false;
            const int high = HexValue(raw[i + 1]);
            const int low = HexValue(raw[i + 2]);
            if (high < 0 || low < 0)
                return false;
            c = static_cast<char>(high << 4 | low);
            if (c == '/' || c == '\0')
                return false;
            i += 2;
        } else if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == '#') {
            return false;
        }
        out.push_back(c);
    }
    return true;
}

bool IsUtf8(std::string_view text)
{
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            std::u16string wide;
            return AppendWide(text, wide);
        }
    }
    return true;
}

// A path that stands for itself: printable ASCII without escapes and dot segments.
bool IsPlain(std::string_view path) noexcept
{
    char before = 0;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F || c == '%' || c == '#' || (c == '.' && before == '/'))
            return false;
        before = c;
    }
    return true;
}

constexpr bool IsUnreserved(char c) noexcept
{
    return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z') || c == '-' || c == '.' || c == '_' ||
           c == '~';
}

// The bytes of a reg-name without escapes (RFC 3986 section 3.2.2).
constexpr std::array<bool, 256> kNameBytes = [] {
    std::array<bool, 256> table{};
    for (unsigned char c = 1; c < 0x7F; ++c)
        table[c] = IsUnreserved(static_cast<char>(c));
    for (const char c : std::string_view("!$&'()*+,;="))
        table[static_cast<unsigned char>(c)] = true;
    return table;
}();

} // namespace

bool NormalisePath(std::string_view raw, std::string& decoded, std::string& stillEscaped)
{
    if (raw.empty() || raw.front() != '/')
        return false;
    if (IsPlain(raw)) {
        decoded = stillEscaped = raw;
        return true;
    }
    decoded.clear();
    stillEscaped.clear();
    std::string segment;
    while (!raw.empty()) {
        raw.remove_prefix(1); // the "/"
        const size_t end = std::min(raw.find('/'), raw.size());
        const std::string_view sent = raw.substr(0, end);
        raw.remove_prefix(end);
        segment.clear();
        if (!DecodeSegment(sent, segment))
            return false;
        const bool isLast = raw.empty();
        if (segment == "." || segment == "..") {
            if (segment.size() == 2) {
                DropLastSegment(decoded);
                DropLastSegment(stillEscaped);
            }
            if (isLast) { // what a dot segment at the end leaves is a collection
                decoded.push_back('/');
                stillEscaped.push_back('/');
            }
            continue;
        }
        decoded.append(1, '/').append(segment);
        stillEscaped.append(1, '/').append(sent);
    }
    return IsUtf8(decoded);
}

int ParseTarget(std::string_view text, Target& out)
{
    out.path.clear();
    out.rawPath.clear();
    out.query = out.host = {};
    out.isAsterisk = text == "*";
    if (out.isAsterisk)
        return 0;
    std::string_view rest = text;
    if (!rest.empty() && rest.front() != '/') {
        std::string_view scheme;
        if (!TakeOrigin(rest, scheme, out.host))
            return 400;
    }
    const size_t question = rest.find('?');
    std::string_view path = rest.substr(0, question);
    if (question != std::string_view::npos)
        out.query = rest.substr(question + 1);
    for (const char c : out.query)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == '#')
            return 400;
    if (!IsUtf8(out.query))
        return 400;
    if (path.empty() && !out.host.empty())
        path = "/"; // RFC 3986 section 6.2.3
    return NormalisePath(path, out.path, out.rawPath) ? 0 : 400;
}

bool IsValidHost(std::string_view text) noexcept
{
    if (text.empty() || text.size() > 255 + 6)
        return false;
    std::string_view port;
    if (text.front() == '[') {
        const size_t close = text.find(']');
        if (close == std::string_view::npos || close > INET6_ADDRSTRLEN)
            return false;
        char address[INET6_ADDRSTRLEN + 1] = {};
        std::memcpy(address, text.data() + 1, close - 1);
        in6_addr parsed{};
        if (inet_pton(AF_INET6, address, &parsed) != 1)
            return false;
        port = text.substr(close + 1);
        if (!port.empty() && port.front() != ':')
            return false;
    } else {
        const size_t colon = text.find(':');
        const std::string_view name = text.substr(0, colon);
        if (name.empty() || name.size() > 255)
            return false;
        for (const char c : name)
            if (!kNameBytes[static_cast<unsigned char>(c)])
                return false;
        port = colon == std::string_view::npos ? std::string_view() : text.substr(colon);
    }
    if (port.empty())
        return true;
    port.remove_prefix(1); // an empty port is the scheme's own (RFC 3986 section 3.2.3)
    uint64_t number = 0;
    return port.empty() || (port.size() <= 5 && ParseDecimal(port, number) && number <= 65535);
}

void SplitHost(std::string_view text, std::string_view& name, std::string_view& port) noexcept
{
    const size_t from = !text.empty() && text.front() == '[' ? text.find(']') : 0;
    const size_t colon = text.find(':', from == std::string_view::npos ? 0 : from);
    name = text.substr(0, colon);
    port = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
}

bool IsLoopbackHost(std::string_view name) noexcept
{
    constexpr std::string_view kName = "localhost";
    if (name.size() > 1 && name.back() == '.') // the same name, fully qualified
        name.remove_suffix(1);
    if (name.size() >= kName.size() &&
        EqualsIgnoringCase(name.substr(name.size() - kName.size()), kName))
        return name.size() == kName.size() || name[name.size() - kName.size() - 1] == '.';
    char text[INET6_ADDRSTRLEN] = {};
    const bool isBracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
    if (isBracketed)
        name = name.substr(1, name.size() - 2);
    if (name.size() >= sizeof text)
        return false;
    std::memcpy(text, name.data(), name.size());
    in6_addr six{};
    if (isBracketed)
        return inet_pton(AF_INET6, text, &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
    in_addr four{};
    return inet_pton(AF_INET, text, &four) == 1 && (ntohl(four.s_addr) >> 24) == 127;
}

bool TakeOrigin(std::string_view& url, std::string_view& scheme, std::string_view& host) noexcept
{
    const size_t colon = url.find(':');
    if (colon == std::string_view::npos || url.substr(colon, 3) != "://")
        return false;
    scheme = url.substr(0, colon);
    bool isKnown = false;
    for (const std::string_view known : {"http", "https", "webdav", "webdavs"})
        isKnown = isKnown || EqualsIgnoringCase(scheme, known);
    if (!isKnown)
        return false;
    url.remove_prefix(colon + 3);
    const size_t end = std::min(url.find_first_of("/?"), url.size());
    host = url.substr(0, end);
    url.remove_prefix(end);
    return IsValidHost(host);
}

bool IsUnder(std::string_view path, std::string_view location) noexcept
{
    return path.substr(0, location.size()) == location &&
           (path.size() == location.size() || path[location.size()] == '/');
}

std::string EscapePath(std::string_view path)
{
    std::string out;
    out.reserve(path.size());
    for (const char c : path) {
        if (IsUnreserved(c) || c == '/') {
            out.push_back(c);
        } else {
            constexpr char kHex[] = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(c);
            out.append({'%', kHex[byte >> 4], kHex[byte & 0xF]});
        }
    }
    return out;
}

} // namespace kestd
