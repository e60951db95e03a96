// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/router.h"

#include "host/http/ascii.h"
#include "host/http/error_status.h"
#include "host/http/method.h"
#include "host/pipeline/copy_move_headers.h"
#include "host/pipeline/security_headers.h"
#include "host/pipeline/static_files.h"

namespace kestd {

namespace {

// Fills the name and port that the client asked for, unless the server is known under a name of its
// own. 0 or 400.
int ReadHost(KestIo& request, const EffectiveSettings& live)
{
    const size_t count = request.head.Count("Host");
    if (count > 1 || (count == 0 && request.head.version == 11))
        return 400;
    std::string_view text = count ? request.head.Find("Host")->value : std::string_view();
    if (count && !IsValidHost(text))
        return 400;
    if (!request.target.host.empty()) // RFC 9112 section 3.2.2: it takes the place of "Host"
        text = request.target.host;
    if (!live.publicHost.empty()) {
        request.hostname = live.publicHost;
        request.port = live.publicPort;
        return 0;
    }
    std::string_view name;
    std::string_view port;
    SplitHost(text, name, port);
    request.hostname = name;
    request.port = port.empty() ? std::string_view(request.isSecure ? "443" : "80") : port;
    return 0;
}

// Whether a request without credentials may be served under the name it asks for. A page of another
// site reaches this machine by letting its own name lead to a loopback address; browsers then take
// what is served here for that site's own.
bool IsOwnName(std::string_view host, const EffectiveSettings& live)
{
    std::string_view name;
    std::string_view port;
    SplitHost(host, name, port);
    return IsLoopbackHost(name) ||
           (!live.publicHost.empty() && EqualsIgnoringCase(name, live.publicHost));
}

bool IsMisdirected(const KestIo& request, const Front& front, const EffectiveSettings& live)
{
    if (!front.accessControl.AllowsAnonymous())
        return false;
    const Field* host = request.head.Find("Host");
    return (host && !IsOwnName(host->value, live)) ||
           (!request.target.host.empty() && !IsOwnName(request.target.host, live));
}

bool IsAncestorOf(std::string_view path, std::string_view location) noexcept
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path == "/" || (path != location && IsUnder(location, path));
}

void AnswerOptions(KestIo& request)
{
    request.response.SetHeader("DAV", "1, 2");
    request.response.SetHeader("MS-Author-Via", "DAV");
    request.response.SetHeader("Allow",
                               "OPTIONS, GET, HEAD, DELETE, COPY, MOVE, PROPFIND, PROPPATCH, "
                               "MKCOL, LOCK, UNLOCK, PUT, POST");
    request.response.Begin(200);
}

void AnswerText(KestIo& request, int status, std::string_view type, std::string_view text)
{
    request.response.SetHeader("Content-Type", type);
    request.response.Begin(status);
    request.response.Append(text.data(), text.size());
}

// A collection above the module: all it holds is the way down.
void AnswerAncestor(KestIo& request, const Front& front)
{
    switch (request.method) {
    case KestMethodOptions:
        return AnswerOptions(request);
    case KestMethodGet:
    case KestMethodHead:
        request.response.SetHeader("Location", EscapePath(front.location) + "/");
        request.response.SetHeader("Content-Length", "0");
        request.response.Begin(302);
        return;
    case KestMethodPropFind:
        break;
    default:
        request.response.SetHeader("Allow", "OPTIONS, GET, HEAD, PROPFIND");
        return AnswerError(request, 405);
    }
    const auto collection = [](std::string_view path) {
        std::string text = "<D:response><D:href>";
        text.append(EscapePath(path));
        if (text.back() != '/')
            text.push_back('/');
        return text.append("</D:href><D:propstat><D:prop><D:resourcetype><D:collection/>"
                           "</D:resourcetype></D:prop><D:status>HTTP/1.1 200 OK</D:status>"
                           "</D:propstat></D:response>");
    };
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">";
    text.append(collection(request.target.path));
    const std::string_view* depth = request.FindRequestHeader("Depth");
    if (!depth || *depth != "0") {
        const size_t own = request.target.path.find_last_not_of('/') + 1;
        const size_t end = front.location.find('/', own + 1);
        text.append(collection(front.location.substr(0, end)));
    }
    text.append("</D:multistatus>\n");
    AnswerText(request, 207, "application/xml; charset=\"utf-8\"", text);
}

bool Authenticate(KestIo& request, Front& front)
{
    Credentials credentials;
    // Each value is taken on its own: a look-up may move what an earlier one gave.
    const auto value = [&request](std::string_view name) {
        const std::string_view* found = request.FindRequestHeader(name);
        return found ? *found : std::string_view();
    };
    credentials.authorization = value("Authorization");
    credentials.cookie = value("Cookie");
    credentials.wantsCookie = value("Accept").find("text/html") != std::string_view::npos;
    credentials.remoteAddress = request.remote;
    credentials.isSecure = request.isSecure;
    request.auth = front.accessControl.Authenticate(credentials);
    switch (request.auth.outcome) {
    case AuthResult::Outcome::Granted:
        request.isAdmitted = true;
        return true;
    case AuthResult::Outcome::Unauthorized:
        request.response.SetHeader("WWW-Authenticate", request.auth.challenge);
        AnswerError(request, 401);
        return false;
    case AuthResult::Outcome::Forbidden:
        AnswerError(request, 403);
        return false;
    case AuthResult::Outcome::Unavailable:
        request.response.SetHeader("Retry-After", "5");
        AnswerError(request, 503);
        return false;
    case AuthResult::Outcome::Throttled:
        request.response.SetHeader("Retry-After", std::to_string(request.auth.retryAfter.count()));
        AnswerError(request, 429);
        return false;
    }
    return false;
}

void ReadRange(KestIo& request)
{
    const std::string_view* found = request.FindRequestHeader("Range");
    if (!found)
        return;
    const std::string_view range = *found;
    request.range.Read(range, request.FindRequestHeader("If-Range"));
}

// What the host sees to before the module takes an admitted request. False when it has been
// refused.
bool Prepare(KestIo& request, const Front& front, const EffectiveSettings& live)
{
    request.realm = live.settings.realm;
    if (!request.auth.setCookie.empty())
        request.response.SetHeader("Set-Cookie", request.auth.setCookie);
    int refusal = 0;
    switch (request.method) {
    case KestMethodOptions:
        request.response.SetHeader("MS-Author-Via", "DAV"); // Office saves nothing without it
        break;
    case KestMethodGet:
        refusal = IsStoredScript(request) ? 403 : 0;
        ReadRange(request);
        break;
    case KestMethodCopy:
    case KestMethodMove:
        refusal = ReadCopyMoveHeaders(request, front, live);
        break;
    case KestMethodPost: // the one changing method that a foreign page can send with credentials
        refusal = IsCrossSite(request) ? 403 : 0;
        break;
    case KestMethodPut:
        // RFC 9110 section 14.5: taking a part for the whole would destroy the rest.
        refusal = request.head.Find("Content-Range") ? 400 : 0;
        break;
    default:
        break;
    }
    if (refusal)
        AnswerError(request, refusal);
    return refusal == 0;
}

} // namespace

int ReadRequest(KestIo& request, const EffectiveSettings& live, MessageFraming& framing,
                bool& mustClose)
{
    mustClose = true;
    if (const int refusal = ParseHead(request.headText.View(), request.head))
        return refusal;
    if (const int refusal = ReadFraming(request.head, framing))
        return refusal;
    mustClose = false;
    request.method = MethodNumber(request.head.method);
    if (request.head.target.size() > live.settings.limits.targetBytes)
        return 414;
    if (const int refusal = ParseTarget(request.head.target, request.target))
        return refusal;
    if (const int refusal = ReadHost(request, live))
        return refusal;
    if (request.method == KestMethodUnknown)
        return 501;
    if (const Field* expect = request.head.Find("Expect"); expect && request.head.version == 11)
        if (!EqualsIgnoringCase(expect->value, "100-continue"))
            return 417;
    return 0;
}

bool WantsKeepAlive(const RequestHead& head) noexcept
{
    if (head.version == 11)
        return !head.HasToken("Connection", "close");
    return head.HasToken("Connection", "keep-alive") && !head.HasToken("Connection", "close");
}

RouteResult Decide(KestIo& request, Front& front, const EffectiveSettings& live)
{
    if (IsMisdirected(request, front, live)) {
        AnswerError(request, 421);
        return RouteResult::Refused;
    }
    const Target& target = request.target;
    if (target.isAsterisk) {
        if (request.method != KestMethodOptions) {
            AnswerError(request, 400);
            return RouteResult::Refused;
        }
        AnswerOptions(request);
        return RouteResult::Answered;
    }
    if (IsUnder(target.path, front.location)) {
        if (!Authenticate(request, front))
            return RouteResult::Refused;
        return Prepare(request, front, live) ? RouteResult::Module : RouteResult::Refused;
    }
    constexpr std::string_view kWharf = "/Wharf/";
    if (target.path.compare(0, kWharf.size(), kWharf) == 0 &&
        !live.settings.wharfDirectory.empty()) {
        ServeStaticFile(request, live.settings.wharfDirectory, target.path.substr(kWharf.size()));
        return RouteResult::Answered;
    }
    if (IsAncestorOf(target.path, front.location)) {
        AnswerAncestor(request, front);
        return RouteResult::Answered;
    }
    AnswerError(request, 404);
    return RouteResult::Refused;
}

void AnswerError(KestIo& request, int status)
{
    AnswerText(request, status, kErrorType, ErrorText(status));
}

} // namespace kestd
