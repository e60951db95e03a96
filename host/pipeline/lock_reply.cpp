// SPDX-License-Identifier: Apache-2.0
//
// Finds the token in the module's reply to a LOCK.
#include "host/pipeline/lock_reply.h"

namespace kestd {

// It stands behind the owner's text, which is the client's: the last one counts.
std::string_view FindLockToken(std::string_view body) noexcept
{
    const size_t begin = body.rfind("<a:href>opaquelocktoken:");
    if (begin == std::string_view::npos)
        return {};
    const std::string_view token = body.substr(begin + std::string_view("<a:href>").size());
    const size_t end = token.find('<');
    return end == std::string_view::npos ? std::string_view() : token.substr(0, end);
}

} // namespace kestd
