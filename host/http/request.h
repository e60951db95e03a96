// SPDX-License-Identifier: Apache-2.0
//
// One request as it was received: its head taken apart, and where it came from.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ip_address.h"
#include "host/http/request_head.h"
#include "host/http/target.h"
#include "host/log/request_id.h"
#include "host/net/buffer.h"
#include <kest/io.h>

namespace kestd {

// Filled by the connection and the request validator. Views point into `headText` or `arena`.
struct Request {
    Arena arena;     // memory that lives as long as the request
    Buffer headText; // as received, with its empty line
    RequestHead head;
    Target target;
    UINT32 method = KestMethodUnknown;
    bool isSecure = false;            // what the client sees, which may be a proxy's TLS
    std::string_view remote;          // numeric address of the client
    RequestId id;                     // in the logs
    std::string_view certificateUser; // whom the client's certificate names; empty: nobody
    bool isFromProxy = false; // the peer is a trusted proxy: what it says of the client counts
    // What it has said:
    std::optional<base::IpAddress> client; // none: it does not know
    std::string_view forwardedHost;        // host[:port] that the client asked for; may be empty
    std::string_view forwardedPort;        // where the host names none; may be empty
    std::string hostname; // the name it asked for, or the one the server is known under
    std::string port;

    // A header's value: lines of one name are joined. Null when there is none. Valid until the next
    // call. Throws std::bad_alloc.
    const std::string_view* FindHeader(std::string_view name)
    {
        return MayHaveHeader(name) ? Search(name) : nullptr;
    }
    // False only where there is none. Most of what is asked for is not there, and most names are
    // known where this is compiled.
    bool MayHaveHeader(std::string_view name) const noexcept
    {
        return !joined_.empty() || head.names.MayHold(NameKey(name));
    }
    // The same; empty when there is none. The text is valid as long as the request.
    std::string_view Header(std::string_view name)
    {
        const std::string_view* value = FindHeader(name);
        return value ? *value : std::string_view();
    }
    // Gives a header another value for whoever looks it up from now on. Throws std::bad_alloc.
    void SetHeader(std::string_view name, std::string_view value);

    void Reset() noexcept; // as new, with the memory kept

  private:
    const std::string_view* Search(std::string_view name);

    std::vector<Field> joined_; // looked up before, or set; a value without text: hidden
};

} // namespace kestd
