// SPDX-License-Identifier: Apache-2.0
//
// Answers OPTIONS, GET, HEAD and PROPFIND above the handler's location.
#include "host/pipeline/ancestor_collections.h"

#include "base/percent.h"
#include "base/uri.h"
#include "host/config/settings_holder.h"
#include "host/http/short_reply.h"

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

constexpr std::string_view kAncestorMethods = "OPTIONS, GET, HEAD, PROPFIND";

// Clients look at the server's root for what they may do below: it says that there is WebDAV.
void SendOptionsOfAncestor(Exchange& exchange)
{
    Response& response = exchange.response;
    response.SetHeader("DAV", "1, 2");
    response.SetHeader("MS-Author-Via", "DAV");
    response.SetHeader("Allow", kAncestorMethods);
    response.Begin(200);
}

void SendProperties(Exchange& exchange, const std::string& location)
{
    const std::string& path = exchange.request.target.path;
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">";
    AppendCollection(text, path);
    const std::string_view* depth = exchange.request.FindHeader("Depth");
    if (!depth || *depth != "0") {
        const size_t own = path.find_last_not_of('/') + 1;
        AppendCollection(text, location.substr(0, location.find('/', own + 1)));
    }
    text.append("</D:multistatus>\n");
    SendText(exchange.response, 207, "application/xml; charset=\"utf-8\"", text);
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
