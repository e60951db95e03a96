// SPDX-License-Identifier: Apache-2.0
//
// The lock token of the request's "If" header.
#pragma once

#include <string_view>

#include "support/globals.h"
#include <kest/io.h>

// Takes the token out of the request's "If" header into pToken, whose buffer and MaximumLength the
// caller sets. Any failure means that there is no token.
[[nodiscard]] TALSTATUS GetLockTokenFromRequestHeader(IKestIO_5* pKestIo, STRING* pToken);
inline constexpr UINT16 kLockTokenBytes = 128; // the room that handlers give to a token

// What stands between the first ":" and the next ">" (or the end) of a text that ends at a NUL or
// after `size` bytes. data() is null when there is no ":".
std::string_view FindLockToken(const char* text, size_t size);

// The token of one request, in a buffer of its own.
class RequestToken {
  public:
    // Reads the request's "If" header.
    explicit RequestToken(IKestIO_5* io)
    {
        present_ = !Failed(GetLockTokenFromRequestHeader(io, &token_));
    }
    RequestToken(const RequestToken&) = delete;
    RequestToken& operator=(const RequestToken&) = delete;

    // Null when the request carries none.
    STRING* Get() { return present_ ? &token_ : nullptr; }
    // Null also for an empty token.
    STRING* GetNonEmpty() { return token_.Length != 0 ? Get() : nullptr; }

  private:
    char buffer_[kLockTokenBytes];
    STRING token_ = {0, kLockTokenBytes, buffer_};
    bool present_ = false;
};
