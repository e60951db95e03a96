// SPDX-License-Identifier: Apache-2.0
//
// Bodies in a content coding (RFC 9110 section 8.4), which nobody here decodes.
#pragma once

#include <string_view>

#include <kest/io.h>
#include <kest/status.h>

namespace standard {

// Whether a "Content-Encoding" names a coding other than "identity".
bool NamesCoding(std::string_view header) noexcept;

// Refuses a request whose body is coded, or of which that cannot be told: stored or read as it is,
// it would be something else. 415, with the codings that are taken (RFC 7694 section 3). True when
// it has been answered, with `status` as the handler's result.
[[nodiscard]] bool RefusesCoding(IKestIO_5* io, TALSTATUS& status);

} // namespace standard
