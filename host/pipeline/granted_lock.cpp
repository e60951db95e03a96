// SPDX-License-Identifier: Apache-2.0
//
// Watches the reply to a LOCK, and unlocks what its client never heard of.
#include "host/pipeline/granted_lock.h"

#include <new>
#include <string>

namespace kestd {

Decision GrantedLocks::OnBody(Exchange& exchange) const
{
    exchange.response.Reserve();
    return Decision::GoOn();
}

void GrantedLocks::OnReplyHead(Exchange& exchange, int status) const
{
    const std::string_view* token = exchange.response.FindHeader("Lock-Token");
    exchange.lockReply.NoteHead(status, token ? *token : std::string_view());
}

void GrantedLocks::OnReplyBody(Exchange& exchange, std::string_view piece) const
{
    exchange.lockReply.NoteBody(piece);
}

void GrantedLocks::OnReplySent(Exchange& exchange) const noexcept
{
    const Response& response = exchange.response;
    const bool isRefresh = exchange.body.BytesRead() == 0;
    const bool isHeard = response.Status() < 300 && !response.IsBroken();
    const int granted = exchange.lockReply.Status();
    if ((granted != 200 && granted != 201) || isRefresh || isHeard)
        return;
    const std::string_view token = exchange.lockReply.Token();
    if (token.empty())
        return;
    try {
        handler_.Unlock(exchange, "<" + std::string(token) + ">");
    } catch (const std::bad_alloc&) { // it ends with its time
    }
}

} // namespace kestd
