// SPDX-License-Identifier: Apache-2.0
//
// Refuses bodies that announce too much, and names the reason for those that were cut.
#include "host/pipeline/body_limits.h"

#include <algorithm>

#include "base/ascii.h"
#include "host/config/settings_holder.h"

namespace kestd {

bool HasXmlBody(const Exchange& exchange) noexcept
{
    const UINT32 method = exchange.request.method;
    return method == KestMethodPropFind || method == KestMethodPropPatch ||
           method == KestMethodLock ||
           (method == KestMethodMkCol &&
            exchange.settings->server.dialect == Dialect::Standard); // RFC 5689
}

bool IsResumable(Exchange& exchange) noexcept
{
    const UINT32 method = exchange.request.method;
    return (method == KestMethodPut || method == KestMethodPatch) &&
           exchange.settings->server.dialect == Dialect::Standard &&
           (exchange.request.FindHeader("Upload-Complete") ||
            exchange.request.FindHeader("Upload-Incomplete"));
}

// What came with earlier requests counts, too. 0: nothing did.
static uint64_t BytesBefore(Exchange& exchange) noexcept
{
    const std::string_view* offset = exchange.request.FindHeader("Upload-Offset");
    uint64_t bytes = 0;
    return offset && IsResumable(exchange) && base::ParseDecimal(*offset, bytes) ? bytes : 0;
}

Decision BodyLimits::OnRequest(Exchange& exchange) const
{
    const Limits& limits = exchange.settings->server.limits;
    uint64_t limit = HasXmlBody(exchange) ? limits.xmlBodyBytes : limits.bodyBytes;
    if (exchange.request.method == KestMethodPatch && limit) {
        const uint64_t before = BytesBefore(exchange);
        if (before > limit || exchange.body.AnnouncedLength() > limit - before)
            return Decision::Refuse(413);
        limit = std::max<uint64_t>(limit - before, 1); // 0 would be no limit
    }
    if (limit && exchange.body.AnnouncedLength() > limit)
        return Decision::Refuse(413);
    exchange.body.SetLimit(HasXmlBody(exchange) ? limits.bodyBytes : limit);
    return Decision::GoOn();
}

void BodyLimits::OnReplyEnd(Exchange& exchange) const
{
    if (exchange.body.IsOverLimit() && exchange.response.Status() >= 400)
        exchange.response.Replace(413, {}, {});
}

} // namespace kestd
