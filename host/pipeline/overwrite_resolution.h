// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE: what "Overwrite" (RFC 4918 section 10.6) means where nothing is to be replaced.
#pragma once

#include "host/pipeline/request_handler.h"
#include "host/pipeline/stage.h"

namespace kestd {

// The module's overwrite flag says more than the client's: with it set, a collection is only merged
// into one that exists. Where nothing exists at the destination the client's wish means nothing,
// and the flag is cleared, so that an ordinary COPY (which allows overwriting by default) makes a
// new collection. Whether something exists is found out with a HEAD of the destination, through the
// module and in the same session; when the answer is neither yes nor no, the flag stays.
class OverwriteResolution final : public Stage {
  public:
    explicit OverwriteResolution(RequestHandler& handler) : handler_(handler) {}
    void OnCall(Exchange& exchange) const override;
    // Where the reply says that the destination has changed between the look at it and the module's
    // own, it is looked at again, and the module asked again: a client that allows overwriting is
    // not told that the name was taken.
    bool OnReplyHead(Exchange& exchange, int& status) const override;

  private:
    RequestHandler& handler_;
};

} // namespace kestd
