// SPDX-License-Identifier: Apache-2.0
//
// Gathers the credentials of a request and applies the access control's answer.
#include "host/pipeline/authentication.h"

#include "host/auth/external_source.h"
#include "host/config/settings_holder.h"
#include "host/config/user_name.h"
#include "host/http/error_status.h"
#include "host/http/short_reply.h"

namespace kestd {

namespace {

Decision Refuse(const AuthResult& auth, Response& response)
{
    switch (auth.outcome) {
    case AuthResult::Outcome::Unauthorized:
        response.SetHeader("WWW-Authenticate", auth.challenge);
        return Decision::Refuse(401);
    case AuthResult::Outcome::Unavailable:
        response.SetHeader("Retry-After", kRetrySeconds);
        return Decision::Refuse(503);
    case AuthResult::Outcome::Throttled:
        response.SetHeader("Retry-After", std::to_string(auth.retryAfter.count()));
        return Decision::Refuse(429);
    default:
        return Decision::Refuse(403);
    }
}

// Whether others than the two ends can read a password on its way here. `remote` is numeric.
bool IsReadable(const Request& request)
{
    const bool isLoopback = request.remote.starts_with("127.") || request.remote == "::1";
    return !request.isSecure && !isLoopback;
}

constexpr std::string_view kPlainLine = "Passwords are not taken over plain HTTP: use https.\n";
constexpr std::string_view kPlainPage =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>403</title></head>\n"
    "<body><p>Passwords are not taken over plain HTTP: use https.</p></body>\n</html>\n";

// In place of the challenge, too: it would have the client send its password.
Decision RefusePlain(Exchange& exchange)
{
    exchange.response.SetHeader("Cache-Control", "no-store");
    if (exchange.request.Header("Accept").find("text/html") != std::string_view::npos)
        SendText(exchange.response, 403, "text/html; charset=utf-8", kPlainPage);
    else
        SendText(exchange.response, 403, kErrorType, kPlainLine);
    return Decision::Replied();
}

// Whom a trusted proxy names. False for what cannot be a user's name, and for two of them: a proxy
// that adds its field to the client's lets the client choose.
bool TakeProxyUser(const Request& request, const ServerSettings& server, Credentials& credentials)
{
    if (server.proxyUserHeader.empty() || !request.isFromProxy)
        return true;
    const Field* const user = request.head.Find(server.proxyUserHeader);
    if (!user || user->value.empty())
        return true;
    const Field* const groups =
        server.proxyGroupsHeader.empty() ? nullptr : request.head.Find(server.proxyGroupsHeader);
    if (request.head.FindNext(*user, server.proxyUserHeader) ||
        (groups && request.head.FindNext(*groups, server.proxyGroupsHeader)) ||
        !WhatIsWrongWithName(user->value).empty())
        return false;
    credentials.externalUser = user->value;
    credentials.externalSource = kProxySource;
    credentials.externalGroups = groups ? groups->value : std::string_view();
    return true;
}

// Whom the client's certificate names; a proxy's own is not its clients'.
void TakeCertificateUser(const Request& request, const ServerSettings& server,
                         Credentials& credentials)
{
    if (server.clientCa.empty() || request.isFromProxy || request.certificateUser.empty() ||
        !WhatIsWrongWithName(request.certificateUser).empty())
        return;
    credentials.externalUser = request.certificateUser;
    credentials.externalSource = kCertificateSource;
}

} // namespace

Decision Authentication::OnRequest(Exchange& exchange) const
{
    Request& request = exchange.request;
    Credentials credentials;
    if (!TakeProxyUser(request, exchange.settings->server, credentials))
        return Decision::Refuse(400);
    TakeCertificateUser(request, exchange.settings->server, credentials);
    if (credentials.externalUser.empty() && IsReadable(request) &&
        !exchange.settings->server.takesPlainPasswords && !accessControl_.AllowsAnonymous())
        return RefusePlain(exchange);
    credentials.authorization = request.Header("Authorization");
    credentials.cookie = request.Header("Cookie");
    credentials.wantsCookie = request.Header("Accept").find("text/html") != std::string_view::npos;
    credentials.remoteAddress = request.remote;
    credentials.isSecure = request.isSecure;
    credentials.call = exchange.call;
    exchange.auth = accessControl_.Authenticate(credentials);
    if (exchange.auth.outcome != AuthResult::Outcome::Granted)
        return Refuse(exchange.auth, exchange.response);
    exchange.session.Hold(accessControl_, exchange.auth.session);
    if (!exchange.auth.setCookie.empty())
        exchange.response.SetHeader("Set-Cookie", exchange.auth.setCookie);
    return Decision::GoOn();
}

void Authentication::OnReplyHead(Exchange& exchange, int) const
{
    if (exchange.auth.setCookie.empty())
        return;
    const std::string_view* cookie = exchange.response.FindHeader("Set-Cookie");
    if (!cookie)
        return;
    std::string value(*cookie);
    if (value.find("; HttpOnly") == std::string::npos)
        value.append("; HttpOnly");
    if (exchange.request.isSecure && value.find("; Secure") == std::string::npos)
        value.append("; Secure");
    exchange.response.SetHeader("Set-Cookie", value);
}

} // namespace kestd
