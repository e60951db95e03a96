// SPDX-License-Identifier: Apache-2.0
//
// What the clients of one address take, and which of their requests has waited longest for them.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace kestd {

class ClientLimits;

// A request that may wait for its client.
class WaitingRequest {
  public:
    // From any thread, while it is listed: nothing is expected of the client any more. Must not
    // wait, nor call the list.
    virtual void GiveUp() noexcept = 0;

    // The list's.
    struct Link {
        struct Client* client = nullptr; // set while it is listed
        WaitingRequest* next = nullptr;
        WaitingRequest* previous = nullptr;
    } link;

  protected:
    WaitingRequest() = default;
    ~WaitingRequest() = default;
    WaitingRequest(const WaitingRequest&) = delete;
    WaitingRequest& operator=(const WaitingRequest&) = delete;
};

// One address: an IPv4 address, or the /64 network of an IPv6 address, which is what one subscriber
// has.
struct Client {
    std::array<unsigned char, 8> address{};
    uint32_t connections = 0;
    uint32_t waiting = 0;
};

// All addresses that have a connection. Thread-safe.
class ClientLimits {
  public:
    // One connection's hold on its address; or that of a request which a proxy has sent on.
    class Place {
      public:
        Place() = default;
        Place(Place&& other) noexcept
            : clients_(std::exchange(other.clients_, nullptr)), client_(other.client_),
              connections_(other.connections_)
        {
        }
        Place& operator=(Place other) noexcept // what it held goes last, with `other`
        {
            std::swap(clients_, other.clients_);
            std::swap(client_, other.client_);
            std::swap(connections_, other.connections_);
            return *this;
        }
        ~Place()
        {
            if (clients_)
                clients_->Leave(*client_);
        }
        Place(const Place&) = delete;
        explicit operator bool() const noexcept { return clients_ != nullptr; }
        // How many connections the address had with this one.
        uint32_t Connections() const noexcept { return connections_; }

      private:
        friend class ClientLimits;
        ClientLimits* clients_ = nullptr;
        Client* client_ = nullptr;
        uint32_t connections_ = 0;
    };
    struct Bounds {
        uint32_t all = 0;
        uint32_t perAddress = 0;
    };

    // Throws std::bad_alloc.
    Place Enter(const sockaddr_storage& peer);
    // Lists a request that waits from here on, as the last. Where there are more than the bounds
    // say, the one that has waited longest without getting on is given up, and no longer listed.
    void BeginWait(WaitingRequest& request, const Place& place, const Bounds& bounds) noexcept;
    // For whoever runs the request: it waits no longer. Does nothing for one that is not listed.
    void EndWait(WaitingRequest& request) noexcept;
    uint32_t Waiting() noexcept;
    uint64_t GivenUp() noexcept; // so far

  private:
    struct Hash {
        size_t operator()(const std::array<unsigned char, 8>& address) const noexcept
        {
            return std::hash<std::string_view>()(
                {reinterpret_cast<const char*>(address.data()), address.size()});
        }
    };
    void Leave(Client& client) noexcept;
    void Unlink(WaitingRequest& request) noexcept;
    void GiveUp(WaitingRequest& request) noexcept;

    std::mutex mutex_; // guards everything below
    std::unordered_map<std::array<unsigned char, 8>, Client, Hash> clients_;
    WaitingRequest* first_ = nullptr; // has waited longest
    WaitingRequest* last_ = nullptr;
    uint32_t waiting_ = 0;
    uint64_t givenUp_ = 0;
};

} // namespace kestd
