// SPDX-License-Identifier: Apache-2.0
//
// Takes addresses and URLs apart, and puts them together.
#include "host/config/addresses.h"

#include <string>

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/percent.h"
#include "base/uri.h"

namespace kestd {

bool ParseListenAddress(std::string_view text, ListenAddress& address)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || !base::ParsePort(text.substr(colon + 1), address.port))
        return false;
    std::string_view host = text.substr(0, colon);
    const bool isBracketed = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
    if (isBracketed)
        host = host.substr(1, host.size() - 2);
    address.address = host;
    return isBracketed ? base::IsIpv6Address(host) : base::IsIpv4Address(host);
}

std::string FormatListenAddress(const ListenAddress& address)
{
    const bool isSix = address.address.find(':') != std::string::npos;
    return (isSix ? "[" + address.address + "]" : address.address) + ":" +
           std::to_string(address.port);
}

namespace {

// The module's name for the whole of its location has 255 characters.
constexpr size_t kLongestPrefix = 128;

bool IsSecure(std::string_view scheme)
{
    return base::EqualsIgnoringCase(scheme, "https");
}

// "/one/two", with or without a "/" at its end: what means the same escaped and not, in a URL and
// in a policy of sources.
bool IsPlainPath(std::string_view path)
{
    if (path.ends_with('/'))
        path.remove_suffix(1);
    if (path.size() > kLongestPrefix)
        return false;
    while (!path.empty()) {
        if (path.front() != '/')
            return false;
        path.remove_prefix(1);
        const std::string_view segment = path.substr(0, path.find('/'));
        for (const char c : segment)
            if (!base::IsUnreserved(c))
                return false;
        if (segment.empty() || segment == "." || segment == "..")
            return false;
        path.remove_prefix(segment.size());
    }
    return true;
}

} // namespace

std::string WhatIsWrongWithPublicUrl(std::string_view url)
{
    std::string_view scheme;
    std::string_view host;
    const bool isServer = base::TakeOrigin(url, scheme, host);
    if (!isServer || !(base::EqualsIgnoringCase(scheme, "http") || IsSecure(scheme)))
        return "expected http://HOST[:PORT] or https://HOST[:PORT]";
    if (!url.empty() && !IsPlainPath(url))
        return "expected no more behind the host than a path of letters, digits, '-', '.', '_' and "
               "'~', of at most " +
               std::to_string(kLongestPrefix) + " bytes";
    return {};
}

std::string PathOfPublicUrl(std::string_view url)
{
    if (!WhatIsWrongWithPublicUrl(url).empty())
        return {};
    std::string_view scheme;
    std::string_view host;
    (void)base::TakeOrigin(url, scheme, host); // it is one
    if (url.ends_with('/'))
        url.remove_suffix(1);
    return std::string(url);
}

HostName NameOfHost(const ServerSettings& settings)
{
    HostName name;
    bool isSecure = !settings.tlsCertificate.empty();
    std::string_view url = settings.publicUrl;
    std::string_view scheme;
    std::string_view host;
    if (base::TakeOrigin(url, scheme, host)) {
        isSecure = IsSecure(scheme);
        std::string_view bare;
        std::string_view port;
        base::SplitHost(host, bare, port);
        name.hostname = host;
        name.port = port;
    } else {
        const ListenAddress first = settings.listen.empty() ? ListenAddress{} : settings.listen[0];
        name.port = std::to_string(first.port);
        name.hostname = FormatListenAddress(first);
    }
    const std::string ownPort = isSecure ? "443" : "80";
    if (name.port.empty())
        name.port = ownPort;
    const std::string tail = ":" + name.port;
    const bool isPlain = name.port == ownPort || name.port == "0"; // not known before listening
    if (isPlain && name.hostname.ends_with(tail))
        name.hostname.resize(name.hostname.size() - tail.size());
    return name;
}

} // namespace kestd
