// SPDX-License-Identifier: Apache-2.0
//
// Tells by Fetch Metadata, "Origin" or "Referer" who made the browser send a request.
#include "host/pipeline/csrf.h"

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/uri.h"

namespace kestd {

namespace {

// True when `url` begins with this server's origin. The scheme is not compared: behind a proxy the
// browser's is another one. Neither are the ports that schemes imply.
bool IsOwnOrigin(Request& request, std::string_view url)
{
    std::string_view scheme;
    std::string_view host;
    if (!base::TakeOrigin(url, scheme, host))
        return false;
    const std::string_view* asked = request.FindHeader("Host");
    if (asked && base::EqualsIgnoringCase(*asked, host))
        return true;
    std::string_view name;
    std::string_view port;
    base::SplitHost(host, name, port);
    if (port.empty())
        port = base::EqualsIgnoringCase(scheme, "https") ? "443" : "80";
    return base::EqualsIgnoringCase(name, request.hostname) && port == request.port;
}

// Told by "Sec-Fetch-Site", else "Origin", else "Referer"; programs send none of them and pass.
bool IsCrossSite(Request& request)
{
    if (const std::string_view* site = request.FindHeader("Sec-Fetch-Site"))
        return *site != "same-origin" && *site != "none";
    for (const char* name : {"Origin", "Referer"})
        if (const std::string_view* url = request.FindHeader(name))
            return !IsOwnOrigin(request, *url);
    return false;
}

// Told by "Sec-Fetch-Dest".
bool IsStoredScript(Request& request)
{
    const std::string_view* use = request.FindHeader("Sec-Fetch-Dest");
    if (!use)
        return false;
    for (const std::string_view script : {"script", "worker", "sharedworker", "serviceworker",
                                          "audioworklet", "paintworklet", "xslt"})
        if (*use == script)
            return true;
    return false;
}

} // namespace

Decision Csrf::OnRequest(Exchange& exchange) const
{
    return IsCrossSite(exchange.request) ? Decision::Refuse(403) : Decision::GoOn();
}

Decision StoredScripts::OnRequest(Exchange& exchange) const
{
    return IsStoredScript(exchange.request) ? Decision::Refuse(403) : Decision::GoOn();
}

} // namespace kestd
