// SPDX-License-Identifier: Apache-2.0
//
// Maps failures of components to statuses of HTTP.
#include "host/http/error_status.h"

#include "host/http/status_text.h"
#include <kest/status.h>

namespace kestd {

int HttpStatusOf(TALSTATUS failure) noexcept
{
    switch (Code(failure)) {
    case kCodeInsufficientResources:
    case kCodeTimeout:
        return 503;
    case kCodeStorageFull:
        return 507;
    default:
        break;
    }
    const int status = static_cast<int>(MapTalStatusToHttpStatus(failure));
    constexpr int kCatchAll = 417;
    return status >= 400 && status != kCatchAll ? status : 500;
}

std::string ErrorText(int status)
{
    std::string text = std::to_string(status);
    return text.append(" ").append(ReasonPhrase(status)).append("\n");
}

} // namespace kestd
