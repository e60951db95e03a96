// SPDX-License-Identifier: Apache-2.0
#include "host/client_needs.h"

#include <string>

namespace kestd {

namespace {

// The token of the lock that the reply describes. It stands behind the owner's text, which is the
// client's: the last one counts.
std::string_view FindLockToken(std::string_view body) noexcept
{
    const size_t begin = body.rfind("<a:href>opaquelocktoken:");
    if (begin == std::string_view::npos)
        return {};
    const std::string_view token = body.substr(begin + std::string_view("<a:href>").size());
    const size_t end = token.find('<');
    return end == std::string_view::npos ? std::string_view() : token.substr(0, end);
}

} // namespace

void MeetClientNeeds(RequestIo& request)
{
    Reply& reply = request.reply;
    if (reply.HasLeft() || reply.Status() != 200)
        return;
    switch (request.method) {
    case KestMethodLock: {
        const std::string_view token = FindLockToken(reply.Gathered());
        const bool isRefresh = request.body.BytesRead() == 0;
        if (!token.empty() && !isRefresh)
            reply.AddLateHeader("Lock-Token", "<" + std::string(token) + ">");
        if (request.isKnownNew)
            reply.ChangeStatus(201);
        break;
    }
    case KestMethodCopy:
    case KestMethodMove:
        // The flag is clear by now when there was nothing to overwrite.
        reply.ChangeStatus(request.relocation.overwrites ? 204 : 201);
        break;
    default:
        break;
    }
}

} // namespace kestd
