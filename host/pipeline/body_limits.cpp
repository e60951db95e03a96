// SPDX-License-Identifier: Apache-2.0
//
// Refuses bodies that announce too much, and names the reason for those that were cut.
#include "host/pipeline/body_limits.h"

#include "host/net/settings_holder.h"

namespace kestd {

bool HasXmlBody(const Exchange& exchange) noexcept
{
    const UINT32 method = exchange.request.method;
    return method == KestMethodPropFind || method == KestMethodPropPatch ||
           method == KestMethodLock ||
           (method == KestMethodMkCol &&
            exchange.settings->server.dialect == Dialect::Standard); // RFC 5689
}

Decision BodyLimits::OnRequest(Exchange& exchange) const
{
    const Limits& limits = exchange.settings->server.limits;
    const uint64_t limit = HasXmlBody(exchange) ? limits.xmlBodyBytes : limits.bodyBytes;
    if (limit && exchange.body.AnnouncedLength() > limit)
        return Decision::Refuse(413);
    exchange.body.SetLimit(limits.bodyBytes);
    return Decision::GoOn();
}

void BodyLimits::OnReplyEnd(Exchange& exchange) const
{
    if (exchange.body.IsOverLimit() && exchange.response.Status() >= 400)
        exchange.response.Replace(413, {}, {});
}

} // namespace kestd
