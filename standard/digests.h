// SPDX-License-Identifier: Apache-2.0
//
// Digests that a client sends along with a body, and whether the body has them: "Content-Digest"
// and "Repr-Digest" (RFC 9530), and the "OC-Checksum" of OwnCloud's clients.
#pragma once

#include <string_view>

#include "support/globals.h"
#include <kest/host/digest.h>
#include <kest/io.h>

namespace standard {

// One digest that has been announced.
struct WantedDigest {
    UINT32 algorithm; // KEST_DIGEST
    UINT32 size;      // bytes
    UINT8 bytes[kMostDigestBytes];
};

// Digests beyond these are not looked at: clients send one.
inline constexpr size_t kMostDigests = 4;
struct WantedDigests {
    WantedDigest digests[kMostDigests];
    size_t count = 0;
};

// Read a header's value and add what it announces. Algorithms that are not known are passed over
// (RFC 9530 section 2). False when the digest of a known one is malformed.
[[nodiscard]] bool ReadDigestHeader(std::string_view header, WantedDigests& wanted) noexcept;
[[nodiscard]] bool ReadChecksumHeader(std::string_view header, WantedDigests& wanted) noexcept;

// What a body is a part of.
enum class DigestsOf {
    Content, // a part of the whole: "Content-Digest" alone is about it
    Whole,   // all of it, from several bodies: "Repr-Digest" and "OC-Checksum"
    Both,    // the whole in one body
    Part,    // as Content, with "OC-Checksum"
};

// Computes along while a body is written. Without announced digests it costs nothing.
class BodyDigests {
  public:
    // Reads the request's headers and begins. Where the host offers no digests, or not this one,
    // nothing is verified. Code 16 for a malformed digest.
    [[nodiscard]] TALSTATUS Begin(IKestIO_5* io, DigestsOf of);
    bool AreNone() const { return wanted_.count == 0; }
    [[nodiscard]] TALSTATUS Add(const void* data, UINT32 size);
    // Code 16 when one of them is another than was announced.
    [[nodiscard]] TALSTATUS Check();

  private:
    WantedDigests wanted_;
    Ref<IKestDigest> running_[kMostDigests];
};

} // namespace standard
