// SPDX-License-Identifier: Apache-2.0
//
// Reading announced digests: base64 between colons, or hexadecimal digits.
#include <algorithm>
#include <cstring>

#include "standard/digests.h"
#include "standard/scan.h"

namespace standard {

namespace {

struct Algorithm {
    std::string_view name;     // RFC 9530 section 5
    std::string_view checksum; // as OwnCloud's clients say
    UINT32 number;
    UINT32 bytes;
};
constexpr Algorithm kAlgorithms[] = {
    {"sha-256", "SHA256", KestDigestSha256, 32},
    {"sha-512", "SHA512", KestDigestSha512, 64},
    {"md5", "MD5", KestDigestMd5, 16},
    {"sha", "SHA1", KestDigestSha1, 20},
};

template <class F> const Algorithm* Find(F isWanted) noexcept
{
    const Algorithm* const end = std::end(kAlgorithms);
    const Algorithm* const found = std::find_if(std::begin(kAlgorithms), end, isWanted);
    return found == end ? nullptr : found;
}

int Base64Digit(char c) noexcept
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (IsDigit(c))
        return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

// Decodes exactly `size` bytes; padding may be missing (RFC 8941 section 4.2.7).
bool DecodeBase64(std::string_view text, UINT8* out, UINT32 size) noexcept
{
    while (!text.empty() && text.back() == '=')
        text.remove_suffix(1);
    if (text.size() != (size_t{size} * 8 + 5) / 6)
        return false;
    UINT32 bits = 0;
    UINT32 count = 0;
    for (const char c : text) {
        const int digit = Base64Digit(c);
        if (digit < 0)
            return false;
        bits = bits << 6 | static_cast<UINT32>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            *out++ = static_cast<UINT8>(bits >> count);
        }
    }
    return true;
}

bool DecodeHex(std::string_view text, UINT8* out, UINT32 size) noexcept
{
    if (text.size() != size_t{size} * 2)
        return false;
    for (; !text.empty(); text.remove_prefix(2)) {
        const int high = HexValue(text[0]);
        const int low = HexValue(text[1]);
        if (high < 0 || low < 0)
            return false;
        *out++ = static_cast<UINT8>(high * 16 + low);
    }
    return true;
}

// Adds one digest, decoded by `decode`.
template <class F>
bool Add(WantedDigests& wanted, const Algorithm& algorithm, std::string_view text,
         F decode) noexcept
{
    if (wanted.count == kMostDigests)
        return true;
    WantedDigest& digest = wanted.digests[wanted.count];
    digest.algorithm = algorithm.number;
    digest.size = algorithm.bytes;
    if (!decode(text, digest.bytes, algorithm.bytes))
        return false;
    ++wanted.count;
    return true;
}

} // namespace

bool ReadDigestHeader(std::string_view header, WantedDigests& wanted) noexcept
{
    while (!header.empty()) {
        std::string_view value = TakeElement(header);
        const size_t equals = std::min(value.find('='), value.size());
        const std::string_view name = value.substr(0, equals);
        value.remove_prefix(equals);
        const Algorithm* const known =
            Find([&](const Algorithm& each) { return EqualsIgnoringCase(each.name, name); });
        if (!known)
            continue;
        const size_t end = value.rfind(':');
        if (!Take(value, "=:") || end < 2 || end == std::string_view::npos)
            return false;
        if (!Add(wanted, *known, value.substr(0, end - 2), DecodeBase64))
            return false;
    }
    return true;
}

bool ReadChecksumHeader(std::string_view header, WantedDigests& wanted) noexcept
{
    for (SkipBlanks(header); !header.empty(); SkipBlanks(header)) {
        std::string_view value = header.substr(0, header.find(' '));
        header.remove_prefix(value.size());
        const size_t colon = std::min(value.find(':'), value.size());
        const std::string_view name = value.substr(0, colon);
        const Algorithm* const known =
            Find([&](const Algorithm& each) { return EqualsIgnoringCase(each.checksum, name); });
        if (!known)
            continue;
        value.remove_prefix(std::min(colon + 1, value.size()));
        if (!Add(wanted, *known, value, DecodeHex))
            return false;
    }
    return true;
}

} // namespace standard
