// SPDX-License-Identifier: Apache-2.0
//
// Base64 over OpenSSL, which is lenient: what it decodes must encode to the same text again.
#include "base/base64.h"

#include <openssl/evp.h>

namespace base {

namespace {

constexpr size_t kLongest = size_t{1} << 30; // the library counts in int

unsigned char* AsBytes(std::string& text) noexcept
{
    return reinterpret_cast<unsigned char*>(text.data());
}

const unsigned char* AsBytes(std::string_view text) noexcept
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

size_t PaddingOf(std::string_view text) noexcept
{
    return text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
}

} // namespace

std::string EncodeBase64(std::string_view bytes)
{
    std::string out((bytes.size() + 2) / 3 * 4 + 1, '\0'); // and a terminator
    const int size = EVP_EncodeBlock(AsBytes(out), AsBytes(bytes), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(size));
    return out;
}

std::optional<std::string> DecodeBase64(std::string_view text)
{
    if (text.size() % 4 != 0 || text.size() > kLongest)
        return std::nullopt;
    std::string out(text.size() / 4 * 3, '\0');
    const int size = EVP_DecodeBlock(AsBytes(out), AsBytes(text), static_cast<int>(text.size()));
    if (size < 0 || static_cast<size_t>(size) != out.size())
        return std::nullopt;
    out.resize(out.size() - PaddingOf(text)); // the library counts it as bytes
    if (EncodeBase64(out) != text)
        return std::nullopt;
    return out;
}

} // namespace base
