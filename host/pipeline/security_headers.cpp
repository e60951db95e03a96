// SPDX-License-Identifier: Apache-2.0
//
// The policies for pages and for stored content.
#include "host/pipeline/security_headers.h"

#include <string>

#include "base/ascii.h"
#include "base/percent.h"
#include "host/pipeline/static_files.h"

namespace kestd {

namespace {

// What a page may use beside the shipped scripts and styles. The two digests are of the scripts
// that the upload's result pages hold: window.close() and document.write(msgUploadError).
constexpr std::string_view kPageDigests = " 'sha256-jqxtvDkBbRAl9Hpqv68WdNOieepg8tJSYu1xIy7zT34='"
                                          " 'sha256-qdpnxPfsnoybtAVVhfpYFIlDlkMNwhzdxi0aeTOsRs8='";
constexpr std::string_view kPageRest =
    "; img-src 'self' data: blob:; connect-src 'self'; media-src 'self'; frame-src 'self'; "
    "form-action 'self'; frame-ancestors 'self'; base-uri 'none'";

constexpr FixedField kNoSniffing("X-Content-Type-Options: nosniff\r\n");
constexpr FixedField kNoFraming("X-Frame-Options: SAMEORIGIN\r\n");
constexpr FixedField kReferrerPolicy("Referrer-Policy: same-origin\r\n");

// Stored content is shown without scripts and in an origin of its own.
constexpr FixedField kFilePolicy("Content-Security-Policy: sandbox; frame-ancestors 'self'\r\n");
// A browser's player fetches what it plays once more, and may not from another origin.
constexpr FixedField
    kMediaPolicy("Content-Security-Policy: sandbox allow-same-origin; frame-ancestors 'self'\r\n");
// The same for a page that is data for programs: its markup comes from names, and means nothing.
constexpr std::string_view kDataPolicy =
    "sandbox; default-src 'none'; form-action 'none'; frame-ancestors 'self'; base-uri 'none'";

bool IsType(std::string_view value, std::string_view type) noexcept
{
    return value.size() >= type.size() &&
           (value.size() == type.size() || value[type.size()] == ';' ||
            value[type.size()] == ' ') &&
           base::EqualsIgnoringCase(value.substr(0, type.size()), type);
}

bool IsMedia(std::string_view type) noexcept
{
    const std::string_view kind = type.substr(0, 6);
    return base::EqualsIgnoringCase(kind, "audio/") || base::EqualsIgnoringCase(kind, "video/");
}

// Appends " HOST[:PORT]/Wharf/". False for what a policy cannot name, such as an IPv6 address.
bool AppendWharf(std::string_view host, const std::string& wharf, std::string& sources)
{
    for (const char c : host)
        if (!base::IsDigit(c) && !(base::Lower(c) >= 'a' && base::Lower(c) <= 'z') && c != '.' &&
            c != '-' && c != '_' && c != ':')
            return false;
    if (!host.empty())
        sources.append(" ").append(host).append(wharf);
    return !host.empty();
}

// Where shipped scripts and styles come from, as a browser sees it. Never the whole server: content
// that anybody has stored is a script, too, if a page may name it as one.
std::string WharfSources(Request& request, const std::string& wharf)
{
    std::string sources;
    const std::string_view* asked = request.FindHeader("Host");
    bool isNamed = asked && AppendWharf(*asked, wharf, sources);
    if (!asked || asked->substr(0, request.hostname.size()) != request.hostname) { // a public URL
        std::string known = request.hostname;
        if (request.port != (request.isSecure ? "443" : "80"))
            known.append(":").append(request.port);
        isNamed = AppendWharf(known, wharf, sources) || isNamed;
    }
    // A browser that says what it wants a reply for gets no script of what is stored; see
    // IsStoredScript. Others do without scripts where a policy cannot name the place.
    if (!isNamed)
        sources = request.FindHeader("Sec-Fetch-Dest") ? " 'self'" : " 'none'";
    return sources;
}

std::string PagePolicy(Request& request, const std::string& wharf)
{
    const std::string sources = WharfSources(request, wharf);
    std::string policy = "default-src 'none'; script-src";
    if (sources != " 'none'") // beside others it would mean nothing
        policy += sources;
    policy.append(kPageDigests).append("; style-src").append(sources).append(kPageRest);
    return policy;
}

// Escaped once more: ";" and "," end what a policy says.
std::string EscapedForPolicy(const std::string& path)
{
    std::string escaped;
    for (const char c : base::PercentEncode(path)) {
        if (c == ';' || c == ',')
            escaped.append(c == ';' ? "%3B" : "%2C");
        else
            escaped.push_back(c);
    }
    return escaped;
}

} // namespace

SecurityHeaders::SecurityHeaders(const std::string& location)
    : wharf_(EscapedForPolicy(WharfBeside(location)))
{
}

void SecurityHeaders::OnReplyHead(Exchange& exchange, int) const
{
    Request& request = exchange.request;
    Response& response = exchange.response;
    response.SetHeader(kNoSniffing);
    const std::string_view* type = response.FindHeader("Content-Type");
    if (response.FindHeader("Accept-Ranges")) { // stored content
        // Browsers show no sandboxed PDF; their viewers have no part in the server's origin.
        if (!type || !IsType(*type, "application/pdf"))
            response.SetHeader(type && IsMedia(*type) ? kMediaPolicy : kFilePolicy);
        return;
    }
    if (!type || !IsType(*type, "text/html"))
        return;
    const bool isData = request.target.rawPath.find("/.index_xml") != std::string::npos;
    response.SetHeader("Content-Security-Policy",
                       isData ? kDataPolicy : PagePolicy(request, wharf_));
    response.SetHeader(kNoFraming);
    response.SetHeader(kReferrerPolicy);
}

} // namespace kestd
