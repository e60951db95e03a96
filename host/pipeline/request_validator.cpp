// SPDX-License-Identifier: Apache-2.0
//
// Parses head, framing, target and host, and refuses what is malformed.
#include "host/pipeline/request_validator.h"

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/uri.h"
#include "host/http/method.h"
#include "host/pipeline/forwarded_request.h"

namespace kestd {

namespace {

// Fills the name and port that the client asked for, unless the server is known under a name of its
// own. 0 or 400.
int ReadHost(Request& request, const EffectiveSettings& settings)
{
    const Field* const host = request.head.Find("Host");
    if (host ? request.head.FindNext(*host, "Host") != nullptr : request.head.version == 11)
        return 400;
    std::string_view text = host ? host->value : std::string_view();
    if (host && !base::IsValidHost(text))
        return 400;
    if (!request.target.host.empty()) // RFC 9112 section 3.2.2: it takes the place of "Host"
        text = request.target.host;
    if (!settings.publicHost.empty()) {
        request.hostname = settings.publicHost;
        request.port = settings.publicPort;
        return 0;
    }
    if (!request.forwardedHost.empty())
        text = request.forwardedHost;
    std::string_view name;
    std::string_view port;
    base::SplitHost(text, name, port);
    if (port.empty())
        port = request.forwardedPort;
    request.hostname = name;
    request.port = port.empty() ? std::string_view(request.isSecure ? "443" : "80") : port;
    return 0;
}

// A proxy that publishes the server below a path may have taken that off.
void AddPrefix(Request& request, const std::string& prefix)
{
    Target& target = request.target;
    if (target.isAsterisk)
        return;
    std::string_view taken;
    if (request.isFromProxy)
        taken = request.Header("X-Forwarded-Prefix");
    if (taken.ends_with('/'))
        taken.remove_suffix(1);
    if (base::IsUnder(target.path, prefix) && taken != prefix)
        return;
    target.path.insert(0, prefix);
    target.rawPath.insert(0, prefix); // no character of it is escaped
}

} // namespace

int ReadRequest(Request& request, const EffectiveSettings& settings, MessageFraming& framing,
                bool& mustClose)
{
    mustClose = true;
    if (const int refusal = ParseHead(request.headText.View(), request.head))
        return refusal;
    if (const int refusal = ReadFraming(request.head, framing))
        return refusal;
    mustClose = false;
    if (request.isFromProxy)
        if (const int refusal = ReadForwarded(request, settings))
            return refusal;
    request.method = MethodNumber(request.head.method);
    if (settings.server.dialect == Dialect::Standard && request.head.method == "PATCH")
        request.method = KestMethodPatch; // RFC 5789; the classic dialect knows no such method
    if (request.head.target.size() > settings.server.limits.targetBytes)
        return 414;
    if (const int refusal = ParseTarget(request.head.target, request.target))
        return refusal;
    if (!settings.server.pathPrefix.empty())
        AddPrefix(request, settings.server.pathPrefix);
    if (const int refusal = ReadHost(request, settings))
        return refusal;
    if (request.method == KestMethodUnknown)
        return 501;
    if (const Field* expect = request.head.Find("Expect"); expect && request.head.version == 11)
        if (!base::EqualsIgnoringCase(expect->value, "100-continue"))
            return 417;
    return 0;
}

bool WantsKeepAlive(const RequestHead& head) noexcept
{
    if (head.version == 11)
        return !head.HasToken("Connection", "close");
    return head.HasToken("Connection", "keep-alive") && !head.HasToken("Connection", "close");
}

} // namespace kestd
