// SPDX-License-Identifier: Apache-2.0
//
// Reads conditions; judges none.
#include "host/pipeline/condition_headers.h"

#include <ctime>

#include "base/http_date.h"
#include "base/system_time.h"

namespace kestd {

Decision ConditionHeaders::OnBody(Exchange& exchange) const
{
    Request& request = exchange.request;
    Conditions& conditions = exchange.conditions;
    conditions.match = request.Header("If-Match");
    conditions.noneMatch = request.Header("If-None-Match");
    const std::string_view* since = request.FindHeader("If-Unmodified-Since");
    if (!since || request.FindHeader("If-Match")) // section 13.1.4: a date counts without a match
        return Decision::GoOn();
    const uint64_t now = base::SystemTimeOf(std::time(nullptr), 0);
    conditions.unmodifiedSince = base::ParseHttpDate(*since, now).value_or(0);
    return Decision::GoOn();
}

} // namespace kestd
