// SPDX-License-Identifier: Apache-2.0
#include "host/browser_safety.h"

#include <algorithm>
#include <iterator>

#include "host/target.h"
#include "host/text.h"

namespace kestd {

namespace {

// Scripts, styles and pictures come from this server only. The two digests are of the scripts that
// the upload's result pages hold: window.close() and document.write(msgUploadError).
constexpr std::string_view kPagePolicy =
    "default-src 'none'; script-src 'self' 'sha256-jqxtvDkBbRAl9Hpqv68WdNOieepg8tJSYu1xIy7zT34=' "
    "'sha256-qdpnxPfsnoybtAVVhfpYFIlDlkMNwhzdxi0aeTOsRs8='; style-src 'self'; img-src 'self' data: "
    "blob:; connect-src 'self'; media-src 'self'; frame-src 'self'; form-action 'self'; "
    "frame-ancestors 'self'; base-uri 'none'";

// A stored page is shown without scripts and in an origin of its own.
constexpr std::string_view kFilePolicy = "sandbox; frame-ancestors 'self'";

// Types in which a browser runs scripts when it opens them.
constexpr std::string_view kActiveTypes[] = {
    "text/html", "application/xhtml+xml", "image/svg+xml", "text/xml", "application/xml",
};

bool IsType(std::string_view value, std::string_view type) noexcept
{
    return value.size() >= type.size() &&
           (value.size() == type.size() || value[type.size()] == ';' ||
            value[type.size()] == ' ') &&
           EqualsIgnoringCase(value.substr(0, type.size()), type);
}

bool IsActive(const std::string_view* type) noexcept
{
    return type && std::any_of(std::begin(kActiveTypes), std::end(kActiveTypes),
                               [type](std::string_view active) { return IsType(*type, active); });
}

// True when `url` begins with this server's origin. The scheme is not compared: behind a proxy the
// browser's is another one. Neither are the ports that schemes imply.
bool IsOwnOrigin(RequestIo& request, std::string_view url)
{
    std::string_view scheme;
    std::string_view host;
    if (!TakeOrigin(url, scheme, host))
        return false;
    const std::string_view* asked = request.FindRequestHeader("Host");
    if (asked && EqualsIgnoringCase(*asked, host))
        return true;
    std::string_view name;
    std::string_view port;
    SplitHost(host, name, port);
    if (port.empty())
        port = EqualsIgnoringCase(scheme, "https") ? "443" : "80";
    return EqualsIgnoringCase(name, request.hostname) && port == request.port;
}

} // namespace

bool IsCrossSite(RequestIo& request)
{
    if (const std::string_view* site = request.FindRequestHeader("Sec-Fetch-Site"))
        return *site != "same-origin" && *site != "none";
    for (const char* name : {"Origin", "Referer"})
        if (const std::string_view* url = request.FindRequestHeader(name))
            return !IsOwnOrigin(request, *url);
    return false;
}

void ConfineBrowser(Reply& reply)
{
    reply.SetHeader("X-Content-Type-Options", "nosniff");
    const std::string_view* type = reply.FindHeader("Content-Type");
    const bool isFile = reply.FindHeader("Accept-Ranges") != nullptr;
    if (!isFile && type && IsType(*type, "text/html")) {
        reply.SetHeader("Content-Security-Policy", kPagePolicy);
        reply.SetHeader("X-Frame-Options", "SAMEORIGIN");
        reply.SetHeader("Referrer-Policy", "same-origin");
    } else if (IsActive(type)) {
        reply.SetHeader("Content-Security-Policy", kFilePolicy);
    }
}

} // namespace kestd
