// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/client_compatibility.h"

#include <string>

#include "host/pipeline/granted_lock.h"

namespace kestd {

void AdaptToClients(KestIo& request)
{
    Response& response = request.response;
    if (response.HeadersSent() || response.Status() != 200)
        return;
    switch (request.method) {
    case KestMethodLock: {
        const std::string_view token = FindLockToken(response.Gathered());
        const bool isRefresh = request.body.BytesRead() == 0;
        if (!token.empty() && !isRefresh)
            response.AddLateHeader("Lock-Token", "<" + std::string(token) + ">");
        if (request.isKnownNew)
            response.ChangeStatus(201);
        break;
    }
    case KestMethodCopy:
    case KestMethodMove:
        // The flag is clear by now when there was nothing to overwrite.
        response.ChangeStatus(request.copyMove.overwrites ? 204 : 201);
        break;
    default:
        break;
    }
}

} // namespace kestd
