// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/copy_move_headers.h"

#include "host/http/ascii.h"
#include "host/http/utf.h"
#include "host/module/subrequest.h"

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
    SplitHost(a, nameA, portA);
    SplitHost(b, nameB, portB);
    return EqualsIgnoringCase(nameA, nameB) && IsSamePort(portA, portB);
}

bool IsOurHost(const KestIo& request, const EffectiveSettings& live, std::string_view host)
{
    const Field* asked = request.head.Find("Host");
    if (asked && IsSameHost(asked->value, host))
        return true;
    if (!request.target.host.empty() && IsSameHost(request.target.host, host))
        return true;
    return !live.publicHost.empty() && IsSameHost(live.publicHost + ":" + live.publicPort, host);
}

int ReadDestination(KestIo& request, const Front& front, const EffectiveSettings& live)
{
    const std::string_view* value = request.FindRequestHeader("Destination");
    if (!value || value->empty())
        return 400;
    if (value->size() > live.settings.limits.targetBytes)
        return 414;
    std::string_view rest = *value;
    if (rest.front() != '/') {
        std::string_view scheme;
        std::string_view host;
        if (!TakeOrigin(rest, scheme, host))
            return 400;
        if (!IsOurHost(request, live, host))
            return 502;
        if (rest.empty())
            rest = "/";
    }
    std::string& path = request.copyMove.path;
    std::string raw;
    if (rest.find('?') != std::string_view::npos || !NormalisePath(rest, path, raw))
        return 400;
    if (!IsUnder(path, front.location))
        return 502;
    if (path.size() > front.location.size() + 1 && path.back() == '/')
        path.pop_back(); // as the module does with a request's own path
    return 0;
}

} // namespace

int ReadCopyMoveHeaders(KestIo& request, const Front& front, const EffectiveSettings& live)
{
    CopyMoveTarget& target = request.copyMove;
    if (const int refusal = ReadDestination(request, front, live))
        return refusal;
    const std::string_view* overwrite = request.FindRequestHeader("Overwrite");
    if (overwrite && *overwrite != "T" && *overwrite != "F")
        return 400;
    target.allowsOverwrite = target.overwrites = !overwrite || *overwrite == "T";
    const std::string_view* depth = request.FindRequestHeader("Depth");
    const bool isCopy = request.method == KestMethodCopy;
    if (!depth || EqualsIgnoringCase(*depth, "infinity"))
        target.depth = -1;
    else if (*depth == "0" && isCopy)
        target.depth = 0;
    else
        return 400;
    std::string_view source = request.target.path;
    if (source.size() > 1 && source.back() == '/')
        source.remove_suffix(1);
    if (target.path.size() > source.size() && IsUnder(target.path, source))
        return 403;
    std::u16string wide;
    if (!AppendWide(target.path, wide))
        return 400;
    if (!isCopy) {
        target.destination = std::move(wide);
        return 0;
    }
    // The port is always written: the module looks for its location among all segments of the URL,
    // and a host of the same name must not be taken for it.
    if (!AppendWide(request.isSecure ? "https://" : "http://", target.destination) ||
        !AppendWide(request.hostname + ":" + request.port, target.destination))
        return 400;
    target.destination.append(CopyUrlPath(wide));
    return 0;
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

bool HasDestinationChanged(const KestIo& request, int status) noexcept
{
    constexpr int kMostRounds = 8; // whoever is outrun so often is told so
    const CopyMoveTarget& target = request.copyMove;
    return status == 412 &&
           (request.method == KestMethodCopy || request.method == KestMethodMove) &&
           target.allowsOverwrite && !target.overwrites && target.rounds < kMostRounds &&
           !request.HasFailed() && !request.response.HasBegun();
}

void ResolveOverwrite(KestIo& request, Front& front)
{
    request.copyMove.overwrites = request.copyMove.allowsOverwrite;
    if (!request.copyMove.overwrites)
        return;
    Subrequest subrequest(request, request.copyMove.path, KestMethodHead);
    subrequest.Run(front, request.auth.session);
    if (subrequest.Status() == 404)
        request.copyMove.overwrites = false;
}

} // namespace kestd
