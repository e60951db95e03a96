// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/client_compatibility.h"

#include <string>

#include "host/pipeline/granted_lock.h"

namespace kestd {

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
