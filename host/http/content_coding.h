// SPDX-License-Identifier: Apache-2.0
//
// Codings of what is sent (RFC 9110 section 8.4): which one a client wants, and how it is made.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "host/net/buffer.h"

namespace kestd {

enum class ContentCoding { Identity, Gzip, Zstd };

// What is wanted most of an "Accept-Encoding" header; empty for none. Zstd where a client wants
// both alike. Identity also where nothing that there is would do: RFC 9110 section 12.5.3 allows
// it.
ContentCoding ChooseCoding(std::string_view accepted) noexcept;
// As in "Content-Encoding".
std::string_view CodingName(ContentCoding coding) noexcept;

// Codes one reply, piece by piece. Takes some 200 KiB as long as it lives.
class ContentCoder {
  public:
    virtual ~ContentCoder() = default;
    // Null where there is no memory, or for identity.
    static std::unique_ptr<ContentCoder> Make(ContentCoding coding) noexcept;
    // Appends what the piece becomes, so that whoever has it can read all of the piece; the end of
    // the content too where it `isLast`. False when it cannot be coded. Throws std::bad_alloc.
    [[nodiscard]] virtual bool Code(std::string_view piece, bool isLast, Buffer& out) = 0;
};

} // namespace kestd
