// SPDX-License-Identifier: Apache-2.0
//
// The "If" request header (RFC 4918 section 10.4), as the records that providers judge.
#pragma once

#include <string_view>

#include <kest/dav/records_3.h>
#include <kest/io.h>

namespace standard {

// Fills If, IfCount, Tokens and TokenCount from the request's "If" header; nothing when it has not
// been sent. What they point to lives in request memory. Fails with code 16 when the header is
// malformed (400), with code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadIf(IKestIO_5* io, DAV_PRECONDITIONS& preconditions);

// The same of a header's text, which has to outlive the records.
[[nodiscard]] TALSTATUS ParseIf(IKestIO_5* io, std::string_view text,
                                DAV_PRECONDITIONS& preconditions);

// What a "Lock-Token" header names (RFC 4918 section 10.5).
struct LockToken {
    enum class Form {
        Malformed, // no URI, or one of our scheme without a token
        Foreign,   // a URI of another scheme, which no lock here has
        Ours,
    };

    Form form = Form::Malformed;
    std::string_view text{}; // without "<", ">" and the scheme; of ours only
};

// Some clients send a token back as it stands in the reply's body, without "<" and ">": it is no
// less clear which lock they mean.
LockToken ReadLockToken(std::string_view header) noexcept;

} // namespace standard
