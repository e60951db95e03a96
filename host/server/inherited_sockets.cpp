// SPDX-License-Identifier: Apache-2.0
//
// Takes over the sockets of socket activation.
#include "host/server/inherited_sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include <systemd/sd-daemon.h>

namespace kestd {
namespace {

ListenAddress LocalAddress(int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return {};
    if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
        return {text.data(), ntohs(v6.sin6_port)};
    }
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
    return {text.data(), ntohs(v4.sin_port)};
}

} // namespace

InheritedSockets InheritedSockets::Take(std::string& error)
{
    InheritedSockets taken;
    const int count = sd_listen_fds(1); // closed on exec from here on
    for (int i = 0; i < count; ++i) {
        base::Descriptor socket(SD_LISTEN_FDS_START + i);
        const int fd = socket.Number();
        if (sd_is_socket_inet(fd, AF_UNSPEC, SOCK_STREAM, 1, 0) <= 0) {
            error = "the service manager passes descriptor " + std::to_string(fd) +
                    ", which does not listen for TCP connections";
            continue;
        }
        (void)fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        taken.sockets_.emplace_back(LocalAddress(fd), std::move(socket));
    }
    return taken;
}

base::Descriptor InheritedSockets::Claim(const ListenAddress& where)
{
    const auto found = std::find_if(sockets_.begin(), sockets_.end(),
                                    [&](const auto& each) { return each.first == where; });
    if (found == sockets_.end())
        return base::Descriptor();
    base::Descriptor socket = std::move(found->second);
    sockets_.erase(found);
    return socket;
}

std::vector<ListenAddress> InheritedSockets::Unclaimed() const
{
    std::vector<ListenAddress> all;
    for (const auto& [where, socket] : sockets_)
        all.push_back(where);
    return all;
}

} // namespace kestd
