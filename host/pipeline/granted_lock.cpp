// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/granted_lock.h"

#include <new>
#include <string>

#include "host/module/kest_io.h"
#include "host/module/subrequest.h"

namespace kestd {

// It stands behind the owner's text, which is the client's: the last one counts.
std::string_view FindLockToken(std::string_view body) noexcept
{
    const size_t begin = body.rfind("<a:href>opaquelocktoken:");
    if (begin == std::string_view::npos)
        return {};
    const std::string_view token = body.substr(begin + std::string_view("<a:href>").size());
    const size_t end = token.find('<');
    return end == std::string_view::npos ? std::string_view() : token.substr(0, end);
}

void RevokeUnsentLock(KestIo& request, Front& front) noexcept
{
    const bool isRefresh = request.body.BytesRead() == 0;
    if (request.method != KestMethodLock || request.grantedLock.Status() != 200 || isRefresh ||
        (request.response.Status() < 300 && !request.response.IsBroken()))
        return;
    const std::string_view token = FindLockToken(request.grantedLock.Tail());
    if (token.empty())
        return;
    try {
        Subrequest subrequest(request, request.target.path, KestMethodUnlock);
        subrequest.SetLockToken("<" + std::string(token) + ">");
        subrequest.Run(front, request.auth.session);
    } catch (const std::bad_alloc&) { // it ends with its time
    }
}

} // namespace kestd
