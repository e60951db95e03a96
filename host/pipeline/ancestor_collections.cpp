// SPDX-License-Identifier: Apache-2.0
//
// Answers OPTIONS, GET, HEAD and PROPFIND above the handler's location.
#include "host/pipeline/ancestor_collections.h"

#include "base/ascii.h"
#include "base/percent.h"
#include "base/uri.h"
#include "host/config/settings_holder.h"
#include "host/http/short_reply.h"
#include "host/pipeline/ancestor_properties.h"
#include <kest/status.h>

namespace kestd {

namespace {

void AppendCollection(std::string& text, std::string_view path)
{
    text.append("<D:response><D:href>").append(base::PercentEncode(path));
    if (text.back() != '/')
        text.push_back('/');
    text.append("</D:href><D:propstat><D:prop><D:resourcetype><D:collection/>"
                "</D:resourcetype></D:prop><D:status>HTTP/1.1 200 OK</D:status>"
                "</D:propstat></D:response>");
}

constexpr std::string_view kXmlType = "application/xml; charset=\"utf-8\"";

// The one member of an ancestor: the next step on the way down.
std::string MemberOf(std::string_view path, const std::string& location)
{
    const size_t own = path.find_last_not_of('/') + 1;
    return location.substr(0, location.find('/', own + 1));
}

constexpr std::string_view kAncestorMethods = "OPTIONS, GET, HEAD, PROPFIND";

// Clients look at the server's root for what they may do below: it says that there is WebDAV, with
// locks. It has none of its own, but what says class 1 alone is mounted for reading by macOS, with
// all that lies below, and Windows asks the root first.
void SendOptionsOfAncestor(Exchange& exchange)
{
    Response& response = exchange.response;
    response.SetHeader("DAV", "1, 2");
    response.SetHeader("MS-Author-Via", "DAV");
    response.SetHeader("Allow", kAncestorMethods);
    response.Begin(200);
}

// In the classic dialect. Kept: neither the body nor a Depth that is none is looked at.
void SendClassicProperties(Exchange& exchange, const std::string& location)
{
    const std::string& path = exchange.request.target.path;
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">";
    AppendCollection(text, path);
    const std::string_view* depth = exchange.request.FindHeader("Depth");
    if (!depth || *depth != "0")
        AppendCollection(text, MemberOf(path, location));
    text.append("</D:multistatus>\n");
    SendText(exchange.response, 207, kXmlType, text);
}

// Receives the whole body. False when it breaks off or is too long; `status` says which.
bool ReadBody(Exchange& exchange, std::string& text, int& status)
{
    char bytes[8 * 1024];
    for (;;) {
        UINT32 read = 0;
        const TALSTATUS got =
            exchange.body.Read(sizeof bytes, reinterpret_cast<UINT8*>(bytes), &read);
        if (Code(got) == kCodeEndOfFile)
            return true;
        status = Code(got) == kCodeTimeout ? 408 : 400;
        if (Code(got) != kCodeSuccess)
            return false;
        status = 413;
        if (text.size() + read > kMostAncestorBody)
            return false;
        text.append(bytes, read);
    }
}

enum class Depth { Zero, One, Infinity, Malformed };
Depth DepthOf(Exchange& exchange)
{
    const std::string_view* const depth = exchange.request.FindHeader("Depth");
    if (!depth || base::EqualsIgnoringCase(*depth, "infinity"))
        return Depth::Infinity;
    return *depth == "0" ? Depth::Zero : *depth == "1" ? Depth::One : Depth::Malformed;
}

// RFC 4918 section 9.1.1. Nobody walks from here into what the handler serves.
void RefuseInfinity(Response& response)
{
    SendText(response, 403, kXmlType,
             "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
             "<D:error xmlns:D=\"DAV:\"><D:propfind-finite-depth/></D:error>\n");
}

void SendStandardProperties(Exchange& exchange, const std::string& location)
{
    Response& response = exchange.response;
    std::string body;
    int status = 0;
    if (!ReadBody(exchange, body, status))
        return SendError(response, status);
    AskedProperties asked;
    const Depth depth = DepthOf(exchange);
    if (depth == Depth::Malformed || !ParseAskedProperties(body, asked))
        return SendError(response, 400);
    if (depth == Depth::Infinity)
        return RefuseInfinity(response);
    const std::string& path = exchange.request.target.path;
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">\n";
    AppendAncestor(text, path, asked);
    if (depth == Depth::One)
        AppendAncestor(text, MemberOf(path, location), asked);
    text.append("</D:multistatus>\n");
    SendText(response, 207, kXmlType, text);
}

void SendProperties(Exchange& exchange, const std::string& location)
{
    if (exchange.settings->server.dialect == Dialect::Standard)
        SendStandardProperties(exchange, location);
    else
        SendClassicProperties(exchange, location);
}

} // namespace

bool IsAncestorOf(std::string_view path, std::string_view location) noexcept
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path == "/" || (path != location && base::IsUnder(location, path));
}

void ServeAncestor(Exchange& exchange, const std::string& location)
{
    Response& response = exchange.response;
    switch (exchange.request.method) {
    case KestMethodOptions:
        return SendOptionsOfAncestor(exchange);
    case KestMethodGet:
    case KestMethodHead:
        response.SetHeader("Location", base::PercentEncode(location) + "/");
        response.SetHeader("Content-Length", "0");
        response.Begin(302);
        return;
    case KestMethodPropFind:
        return SendProperties(exchange, location);
    default:
        response.SetHeader("Allow", kAncestorMethods);
        return SendError(response, 405);
    }
}

void SendOptions(Exchange& exchange)
{
    const bool isStandard = exchange.settings->server.dialect == Dialect::Standard;
    Response& response = exchange.response;
    response.SetHeader("DAV", isStandard ? "1, 2, 3" : "1, 2");
    response.SetHeader("MS-Author-Via", "DAV");
    response.SetHeader("Allow", isStandard
                                    ? "OPTIONS, GET, HEAD, POST, PUT, PATCH, DELETE, PROPFIND, "
                                      "PROPPATCH, MKCOL, COPY, MOVE, LOCK, UNLOCK"
                                    : "OPTIONS, GET, HEAD, DELETE, COPY, MOVE, PROPFIND, "
                                      "PROPPATCH, MKCOL, LOCK, UNLOCK, PUT, POST");
    response.Begin(200);
}

} // namespace kestd
