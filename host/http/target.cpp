// SPDX-License-Identifier: Apache-2.0
//
// Decodes a path once and removes its dot segments.
#include "host/http/target.h"

#include <algorithm>
#include <cstring>

#include "base/percent.h"
#include "base/uri.h"
#include "base/utf.h"

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
            const int byte = base::EscapedByte(raw, i);
            if (byte < 0)
                return false;
            c = static_cast<char>(byte);
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

// Whether a byte of a path, the one before it being `before`, stands for itself: printable ASCII
// that begins no escape, no fragment and perhaps no dot segment.
bool IsPlain(unsigned char before, unsigned char byte) noexcept
{
    return byte > 0x20 && byte < 0x7F && byte != '%' && byte != '#' &&
           (byte != '.' || before != '/');
}

using Bytes = uint8_t __attribute__((vector_size(16)));
using Words = uint64_t __attribute__((vector_size(16)));

// The same of sixteen bytes.
bool ArePlain(Bytes before, Bytes bytes) noexcept
{
    const auto others =
        reinterpret_cast<Words>((bytes <= 0x20) | (bytes >= 0x7F) | (bytes == '%') |
                                (bytes == '#') | ((bytes == '.') & (before == '/')));
    return (others[0] | others[1]) == 0;
}

// The same of a path that begins with "/": sixteen bytes at a time, the last ones once more.
bool IsPlain(std::string_view path) noexcept
{
    const auto load = [at = path.data()](size_t from, auto piece) {
        std::memcpy(&piece, at + from, sizeof piece);
        return piece;
    };
    const size_t size = path.size();
    if (size > sizeof(Bytes)) {
        const size_t last = size - sizeof(Bytes);
        for (size_t i = 1; i < last; i += sizeof(Bytes))
            if (!ArePlain(load(i - 1, Bytes{}), load(i, Bytes{})))
                return false;
        return ArePlain(load(last - 1, Bytes{}), load(last, Bytes{}));
    }
    constexpr size_t kWord = sizeof(uint64_t);
    if (size > kWord) { // the first eight and the last eight
        const Words before = {load(0, uint64_t{}), load(size - kWord - 1, uint64_t{})};
        const Words words = {load(1, uint64_t{}), load(size - kWord, uint64_t{})};
        return ArePlain(reinterpret_cast<Bytes>(before), reinterpret_cast<Bytes>(words));
    }
    for (size_t i = 1; i < size; ++i)
        if (!IsPlain(static_cast<unsigned char>(path[i - 1]), static_cast<unsigned char>(path[i])))
            return false;
    return true;
}

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
    return base::IsUtf8(decoded);
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
        if (!base::TakeOrigin(rest, scheme, out.host))
            return 400;
    }
    const size_t question = rest.find('?');
    std::string_view path = rest.substr(0, question);
    if (question != std::string_view::npos)
        out.query = rest.substr(question + 1);
    for (const char c : out.query)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == '#')
            return 400;
    if (!base::IsUtf8(out.query))
        return 400;
    if (path.empty() && !out.host.empty())
        path = "/"; // RFC 3986 section 6.2.3
    return NormalisePath(path, out.path, out.rawPath) ? 0 : 400;
}

} // namespace kestd
