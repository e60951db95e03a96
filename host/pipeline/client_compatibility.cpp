// SPDX-License-Identifier: Apache-2.0
//
// Adds what clients insist on to replies of LOCK, COPY, MOVE and OPTIONS.
#include "host/pipeline/client_compatibility.h"

#include <string>

namespace kestd {

namespace {

void CompleteLockReply(Exchange& exchange)
{
    Response& response = exchange.response;
    const std::string_view token = FindLockToken(response.Gathered());
    const bool isRefresh = exchange.body.BytesRead() == 0;
    if (!token.empty() && !isRefresh)
        response.AddLateHeader("Lock-Token", "<" + std::string(token) + ">");
    if (exchange.isKnownNew)
        response.ChangeStatus(201);
}

} // namespace

Decision AuthoringHeader::OnRequest(Exchange& exchange) const
{
    exchange.response.SetHeader("MS-Author-Via", "DAV");
    return Decision::GoOn();
}

void ClientCompatibility::OnReplyEnd(Exchange& exchange) const
{
    Response& response = exchange.response;
    if (response.HeadersSent() || response.Status() != 200)
        return;
    if (exchange.request.method == KestMethodLock)
        CompleteLockReply(exchange);
    else // the flag is clear by now when there was nothing to overwrite
        response.ChangeStatus(exchange.copyMove.overwrites ? 204 : 201);
}

} // namespace kestd
