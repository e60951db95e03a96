// SPDX-License-Identifier: Apache-2.0
//
// Listening addresses and the public URL: what may be written, and what it means.
#pragma once

#include <string>
#include <string_view>

#include "host/config/settings.h"

namespace kestd {

// "ADDR:PORT", "[ADDR]:PORT" for IPv6. False when it is neither; names are not resolved.
bool ParseListenAddress(std::string_view text, ListenAddress& address);
std::string FormatListenAddress(const ListenAddress& address);

// Empty when the text is an absolute http or https URL of a server, with or without a path of plain
// characters under which a proxy publishes it; else what is wrong with it. A trailing "/" is
// allowed.
std::string WhatIsWrongWithPublicUrl(std::string_view url);
// The path of such a URL without a "/" at its end; empty when it has none, or is no such URL.
std::string PathOfPublicUrl(std::string_view url);

// What components hear of the host: the public URL's name, or the first listening address.
struct HostName {
    std::string hostname; // with the port unless it is the protocol's own
    std::string port;
};
HostName NameOfHost(const ServerSettings& settings);

} // namespace kestd
