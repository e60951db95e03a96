// SPDX-License-Identifier: Apache-2.0
//
// Looks at the destination before the module does, and again where it has changed.
#include "host/pipeline/overwrite_resolution.h"

namespace kestd {

void OverwriteResolution::OnCall(Exchange& exchange) const
{
    CopyMoveTarget& target = exchange.copyMove;
    target.overwrites = target.allowsOverwrite;
    if (target.overwrites &&
        handler_.Subrequest(exchange, target.path, KestMethodHead, {}).status == 404)
        target.overwrites = false;
}

bool OverwriteResolution::OnReplyHead(Exchange& exchange, int& status) const
{
    constexpr int kMostRounds = 8; // whoever is outrun so often is told so
    CopyMoveTarget& target = exchange.copyMove;
    const bool hasChanged = status == 412 && target.allowsOverwrite && !target.overwrites &&
                            target.rounds < kMostRounds && !exchange.HasFailed();
    target.rounds += hasChanged;
    return !hasChanged;
}

} // namespace kestd
