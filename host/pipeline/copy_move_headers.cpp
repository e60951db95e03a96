// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks "Destination", "Overwrite" and "Depth".
#include "host/pipeline/copy_move_headers.h"

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/uri.h"
#include "base/utf.h"
#include "host/config/settings_holder.h"

namespace kestd {

namespace {

// Ports are equal when they are written the same, or when one is left out and the other is one of
// the protocols' own: whether the client or a proxy speaks TLS cannot be told from here.
bool IsSamePort(std::string_view a, std::string_view b) noexcept
{
    const auto isDefault = [](std::string_view port) { return port == "80" || port == "443"; };
    return a == b || (a.empty() && isDefault(b)) || (b.empty() && isDefault(a));
}

bool IsSameHost(std::string_view a, std::string_view b) noexcept
{
    std::string_view nameA;
    std::string_view portA;
    std::string_view nameB;
    std::string_view portB;
    base::SplitHost(a, nameA, portA);
    base::SplitHost(b, nameB, portB);
    return base::EqualsIgnoringCase(nameA, nameB) && IsSamePort(portA, portB);
}

bool IsOurHost(const Exchange& exchange, std::string_view host)
{
    const Request& request = exchange.request;
    const Field* asked = request.head.Find("Host");
    if (asked && IsSameHost(asked->value, host))
        return true;
    if (!request.target.host.empty() && IsSameHost(request.target.host, host))
        return true;
    if (!request.forwardedHost.empty() && IsSameHost(request.forwardedHost, host))
        return true;
    // The public URL's, or what a proxy has said of host and port.
    if (IsSameHost(request.hostname + ":" + request.port, host))
        return true;
    // A proxy that sends its own "Host" and does not say what the client's was.
    return request.isFromProxy && request.forwardedHost.empty() &&
           exchange.settings->server.dialect == Dialect::Standard;
}

// Section 10.3. 0, or the status to refuse the request with.
int ReadDestination(Exchange& exchange, const std::string& location)
{
    const std::string_view* value = exchange.request.FindHeader("Destination");
    if (!value || value->empty())
        return 400;
    if (value->size() > exchange.settings->server.limits.targetBytes)
        return 414;
    std::string_view rest = *value;
    if (rest.front() != '/') {
        std::string_view scheme;
        std::string_view host;
        if (!base::TakeOrigin(rest, scheme, host))
            return 400;
        if (!IsOurHost(exchange, host))
            return 502;
        if (rest.empty())
            rest = "/";
    }
    std::string& path = exchange.copyMove.path;
    std::string raw;
    if (rest.find('?') != std::string_view::npos || !NormalisePath(rest, path, raw))
        return 400;
    const std::string& prefix = exchange.settings->server.pathPrefix;
    if (!prefix.empty() && !base::IsUnder(path, prefix)) // a proxy may have taken it off here, too
        path.insert(0, prefix);
    if (!base::IsUnder(path, location))
        return 502;
    if (path.size() > location.size() + 1 && path.back() == '/')
        path.pop_back(); // as the module does with a request's own path
    return 0;
}

// Sections 10.6 and 10.2.
int ReadOverwriteAndDepth(Request& request, CopyMoveTarget& target)
{
    const std::string_view* overwrite = request.FindHeader("Overwrite");
    if (overwrite && *overwrite != "T" && *overwrite != "F")
        return 400;
    target.mayOverwrite = !overwrite || *overwrite == "T";
    const std::string_view* depth = request.FindHeader("Depth");
    if (!depth || base::EqualsIgnoringCase(*depth, "infinity"))
        target.depth = -1;
    else if (*depth == "0" && request.method == KestMethodCopy)
        target.depth = 0;
    else
        return 400;
    return 0;
}

bool IsInside(std::string_view path, std::string_view source) noexcept
{
    if (source.size() > 1 && source.back() == '/')
        source.remove_suffix(1);
    return path.size() > source.size() && base::IsUnder(path, source);
}

// The destination as GetCopyInfo (a URL) or GetMoveInfo (a path) hands it out.
bool MakeDestination(const Request& request, CopyMoveTarget& target)
{
    std::u16string path;
    if (!base::AppendUtf16(target.path, path))
        return false;
    if (request.method != KestMethodCopy) {
        target.destination = std::move(path);
        return true;
    }
    // The port is always written: the module looks for its location among all segments of the URL,
    // and a host of the same name must not be taken for it.
    if (!base::AppendUtf16(request.isSecure ? "https://" : "http://", target.destination) ||
        !base::AppendUtf16(request.hostname + ":" + request.port, target.destination))
        return false;
    target.destination.append(CopyUrlPath(path));
    return true;
}

} // namespace

Decision CopyMoveHeaders::OnRequest(Exchange& exchange) const
{
    CopyMoveTarget& target = exchange.copyMove;
    if (const int refusal = ReadDestination(exchange, location_))
        return Decision::Refuse(refusal);
    if (const int refusal = ReadOverwriteAndDepth(exchange.request, target))
        return Decision::Refuse(refusal);
    if (IsInside(target.path, exchange.request.target.path))
        return Decision::Refuse(403);
    return MakeDestination(exchange.request, target) ? Decision::GoOn() : Decision::Refuse(400);
}

std::u16string CopyUrlPath(std::u16string_view path)
{
    std::u16string out;
    out.reserve(path.size());
    for (const char16_t unit : path) {
        if (unit == u'%')
            out.append(u"%25");
        else
            out.push_back(unit);
    }
    return out;
}

} // namespace kestd
