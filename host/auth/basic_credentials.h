// SPDX-License-Identifier: Apache-2.0
//
// Name and password of a Basic header (RFC 7617).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <openssl/crypto.h>

namespace kestd {

// The longest credentials that can belong to anybody, in bytes: name, domain and password with room
// to spare.
inline constexpr size_t kLongestCredentials = 4096;

// Text that leaves nothing behind in memory.
struct WipedText {
    std::string text;
    WipedText() = default;
    explicit WipedText(std::string from) noexcept : text(std::move(from)) {}
    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;
    ~WipedText() { OPENSSL_cleanse(text.data(), text.size()); }
};

// False when the value of "Authorization" is no Basic header. A domain before the last "\" of the
// name is cut off.
bool ReadBasic(std::string_view authorization, std::string& name, std::string& password);

} // namespace kestd
