// SPDX-License-Identifier: Apache-2.0
//
// Compares the names that a request asks for with those that are served.
#include "host/pipeline/host_check.h"

#include "base/ascii.h"
#include "base/host_name.h"
#include "host/config/settings_holder.h"

namespace kestd {

namespace {

bool IsOwnName(std::string_view host, const std::string& publicHost)
{
    std::string_view name;
    std::string_view port;
    base::SplitHost(host, name, port);
    return base::IsLoopbackHost(name) ||
           (!publicHost.empty() && base::EqualsIgnoringCase(name, publicHost));
}

} // namespace

Decision HostCheck::OnRequest(Exchange& exchange) const
{
    if (!accessControl_.AllowsAnonymous())
        return Decision::GoOn();
    const Request& request = exchange.request;
    const std::string& publicHost = exchange.settings->publicHost;
    const Field* host = request.head.Find("Host");
    if ((host && !IsOwnName(host->value, publicHost)) ||
        (!request.target.host.empty() && !IsOwnName(request.target.host, publicHost)) ||
        (!request.forwardedHost.empty() && !IsOwnName(request.forwardedHost, publicHost)))
        return Decision::Refuse(421);
    return Decision::GoOn();
}

} // namespace kestd
