// SPDX-License-Identifier: Apache-2.0
//
// Listening sockets, and the connections that come in through them.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "base/descriptor.h"
#include "host/config/settings.h"
#include "host/net/event_loop.h"
#include "host/server/connection.h"

namespace kestd {

struct ConnectionCounts;

// Binds and listens; `where` gets the real port. On failure nothing, with a text in `error`.
base::Descriptor OpenListeningSocket(ListenAddress& where, std::string& error);

// One listening socket. Accepts connections once Begin has been called.
class Listener final : public EventHandler {
  public:
    // `services` outlives the listener. With `takesPreambles`, only trusted proxies may connect,
    // which say whose connections they are. Throws std::bad_alloc or std::system_error.
    Listener(const ConnectionServices& services, base::Descriptor socket,
             bool takesPreambles = false);
    ~Listener() { services_.loop.Remove(registration_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void Begin() { OnReady({}); }
    // From any thread: goes on after a pause that a lack of memory or descriptors made.
    void Resume();
    bool IsPaused() const noexcept { return isPaused_; }
    // From any thread: refuses new connections from now on. The socket itself stays until the
    // listener goes, so that nobody else gets its number meanwhile.
    void Close() { (void)shutdown(socket_.Number(), SHUT_RDWR); }

    void OnReady(Event event) noexcept override;

  private:
    bool AcceptSome();
    void Pause();
    void Count(std::atomic<uint64_t> ConnectionCounts::*which) noexcept;
    void Admit(base::Descriptor client, const sockaddr_storage& peer);

    const ConnectionServices& services_;
    const base::Descriptor socket_;
    const bool takesPreambles_;
    const EventLoop::Registration registration_;
    std::atomic<bool> isPaused_{false};
    int64_t warnsAgain_ = 0; // NowMs
};

} // namespace kestd
