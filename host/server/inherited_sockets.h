// SPDX-License-Identifier: Apache-2.0
//
// Listening sockets that the service manager has opened for this process, see sd_listen_fds(3).
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "host/config/settings.h"

namespace kestd {

class InheritedSockets {
  public:
    // Takes over what the service manager passes; later calls in the same process get nothing. A
    // text in `error` where a socket is none that listens for TCP connections.
    static InheritedSockets Take(std::string& error);

    // The socket that listens on `where`, non-blocking, now the caller's; none when there is none.
    base::Descriptor Claim(const ListenAddress& where);
    // Those that nobody has claimed.
    std::vector<ListenAddress> Unclaimed() const;

  private:
    std::vector<std::pair<ListenAddress, base::Descriptor>> sockets_;
};

} // namespace kestd
