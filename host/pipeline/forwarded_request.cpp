// SPDX-License-Identifier: Apache-2.0
//
// Finds the hop that the nearest trusted proxies vouch for.
#include "host/pipeline/forwarded_request.h"

#include <algorithm>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "base/host_name.h"
#include "host/http/forwarded.h"

namespace kestd {

namespace {

using Hops = std::vector<ForwardedHop>;

constexpr std::string_view kFor = "X-Forwarded-For";
constexpr std::string_view kProto = "X-Forwarded-Proto";
constexpr std::string_view kHost = "X-Forwarded-Host";
constexpr std::string_view kPort = "X-Forwarded-Port";

bool HasXForwarded(const Request& request) noexcept
{
    for (const std::string_view name : {kFor, kProto, kHost, kPort})
        if (request.head.Find(name))
            return true;
    return false;
}

// How many hops, counted from the end, are told by trusted proxies: the last of them is the
// client's. At least 1.
size_t TrustedHops(const Hops& hops, const std::vector<base::IpPrefix>& trusted)
{
    size_t count = 1;
    while (count < hops.size()) {
        const auto& client = hops[hops.size() - count].client;
        if (!client || !base::IsInAny(trusted, *client))
            break;
        ++count;
    }
    return count;
}

// The element of a list that belongs to the hop; where the list is shorter, its first: not all
// proxies add to it, and one that has fewer elements than proxies told of is theirs.
std::string_view ElementOf(std::string_view list, size_t hop)
{
    std::vector<std::string_view> elements;
    std::string_view element;
    while (base::NextElement(list, element))
        elements.push_back(element);
    if (elements.empty())
        return {};
    return elements[elements.size() - std::min(hop, elements.size())];
}

void TakeScheme(Request& request, std::string_view scheme) noexcept
{
    if (base::EqualsIgnoringCase(scheme, "https"))
        request.isSecure = true;
    else if (base::EqualsIgnoringCase(scheme, "http"))
        request.isSecure = false;
}

void TakeClient(Request& request, const std::optional<base::IpAddress>& client)
{
    if (!client)
        return;
    request.client = client;
    request.remote = request.arena.Copy(base::FormatIpAddress(*client));
}

int ReadStandard(Request& request, const std::vector<base::IpPrefix>& trusted)
{
    Hops hops;
    if (!ParseForwarded(request.Header("Forwarded"), hops))
        return 400;
    const ForwardedHop& hop = hops[hops.size() - TrustedHops(hops, trusted)];
    TakeClient(request, hop.client);
    TakeScheme(request, hop.scheme);
    request.forwardedHost = request.arena.Copy(hop.host);
    return 0;
}

void ReadXForwarded(Request& request, const std::vector<base::IpPrefix>& trusted)
{
    Hops hops;
    std::string_view list = request.Header(kFor);
    std::string_view element;
    while (base::NextElement(list, element))
        hops.push_back({ParseForwardedAddress(element), {}, {}});
    const size_t hop = TrustedHops(hops, trusted);
    if (!hops.empty())
        TakeClient(request, hops[hops.size() - hop].client);
    TakeScheme(request, ElementOf(request.Header(kProto), hop));
    const std::string_view host = ElementOf(request.Header(kHost), hop);
    if (base::IsValidHost(host))
        request.forwardedHost = host;
    const std::string_view port = ElementOf(request.Header(kPort), hop);
    uint16_t number = 0;
    if (base::ParsePort(port, number) && number != 0)
        request.forwardedPort = port;
}

} // namespace

int ReadForwarded(Request& request, const EffectiveSettings& settings)
{
    const ServerSettings& server = settings.server;
    const bool hasStandard = request.head.Find("Forwarded") != nullptr;
    const bool hasX = server.proxyHeaders != ProxyHeaders::Forwarded && HasXForwarded(request);
    int refusal = 0;
    if (hasX)
        ReadXForwarded(request, server.trustedProxies);
    else if (hasStandard && server.proxyHeaders != ProxyHeaders::XForwarded)
        refusal = ReadStandard(request, server.trustedProxies);
    if (settings.isPublicSecure)
        request.isSecure = true;
    return refusal;
}

} // namespace kestd
