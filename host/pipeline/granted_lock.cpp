// SPDX-License-Identifier: Apache-2.0
//
// Watches the reply to a LOCK, and unlocks what its client never heard of.
#include "host/pipeline/granted_lock.h"

#include <new>
#include <string>

namespace kestd {

bool GrantedLocks::OnReplyHead(Exchange& exchange, int& status) const
{
    exchange.lockReply.NoteStatus(status);
    return true;
}

std::string_view GrantedLocks::OnReplyBody(Exchange& exchange, std::string_view piece, bool&) const
{
    exchange.lockReply.NoteBody(piece);
    return piece;
}

void GrantedLocks::OnReplySent(Exchange& exchange) const noexcept
{
    const Response& response = exchange.response;
    const bool isRefresh = exchange.body.BytesRead() == 0;
    const bool isHeard = response.Status() < 300 && !response.IsBroken();
    if (exchange.lockReply.Status() != 200 || isRefresh || isHeard)
        return;
    const std::string_view token = FindLockToken(exchange.lockReply.Tail());
    if (token.empty())
        return;
    try {
        (void)handler_.Subrequest(exchange, exchange.request.target.path, KestMethodUnlock,
                                  "<" + std::string(token) + ">");
    } catch (const std::bad_alloc&) { // it ends with its time
    }
}

} // namespace kestd
