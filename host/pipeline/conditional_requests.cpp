// SPDX-License-Identifier: Apache-2.0
//
// Reads conditions, and judges them by a HEAD of the target.
#include "host/pipeline/conditional_requests.h"

#include <chrono>

#include "base/ascii.h"

namespace kestd {

uint64_t DateOrder(std::string_view date) noexcept
{
    constexpr std::string_view kForm = "www, dd mmm dddd dd:dd:dd GMT";
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    if (date.size() != kForm.size())
        return 0;
    uint64_t digits = 0; // day, year and time as they are written
    for (size_t i = 0; i < kForm.size(); ++i) {
        if (kForm[i] == 'd' ? !base::IsDigit(date[i])
                            : kForm[i] != 'w' && kForm[i] != 'm' && kForm[i] != date[i])
            return 0;
        if (kForm[i] == 'd')
            digits = digits * 10 + static_cast<uint64_t>(date[i] - '0');
    }
    const size_t month = kMonths.find(date.substr(8, 3));
    if (month == std::string_view::npos || month % 3 != 0)
        return 0;
    constexpr uint64_t kTime = 1'000'000;
    constexpr uint64_t kYear = 10'000;
    const auto year = static_cast<int>(digits / kTime % kYear);
    if (year < 1601)
        return 0;
    namespace chrono = std::chrono;
    const chrono::sys_days day = chrono::year(year) /
                                 chrono::month(static_cast<unsigned>(month / 3 + 1)) /
                                 chrono::day(static_cast<unsigned>(digits / kTime / kYear));
    const chrono::sys_days first = chrono::year(1601) / chrono::January / chrono::day(1);
    const uint64_t time = digits % kTime;
    const uint64_t seconds = (time / 10'000 * 60 + time / 100 % 100) * 60 + time % 100;
    constexpr uint64_t kTicks = 10'000'000; // of 100 ns
    constexpr uint64_t kSecondsOfADay = 86'400;
    return (static_cast<uint64_t>((day - first).count()) * kSecondsOfADay + seconds) * kTicks;
}

Decision ConditionHeaders::OnBody(Exchange& exchange) const
{
    Request& request = exchange.request;
    Conditions& conditions = exchange.conditions;
    conditions.match = request.Header("If-Match");
    conditions.noneMatch = request.Header("If-None-Match");
    if (!request.FindHeader("If-Match"))
        conditions.unmodifiedSince = DateOrder(request.Header("If-Unmodified-Since"));
    return Decision::GoOn();
}

Decision ConditionalRequests::OnBody(Exchange& exchange) const
{
    Request& request = exchange.request;
    const bool hasMatch = request.FindHeader("If-Match") != nullptr;
    if (!hasMatch && !request.FindHeader("If-None-Match") &&
        !request.FindHeader("If-Unmodified-Since"))
        return Decision::GoOn();

    const SubrequestResult found =
        handler_.Subrequest(exchange, request.target.path, KestMethodHead, {});
    if (exchange.HasFailed())
        return Decision::Refuse(412); // nobody knows; the failure is what the client hears of
    const bool exists = found.status == 200;
    exchange.isKnownNew = !exists;
    const Conditions& conditions = exchange.conditions;
    if (hasMatch && (conditions.match != "*" || !exists))
        return Decision::Refuse(412);
    if (conditions.unmodifiedSince != 0 &&
        DateOrder(found.lastModified) > conditions.unmodifiedSince)
        return Decision::Refuse(412);
    if (exists && conditions.noneMatch == "*")
        return Decision::Refuse(412);
    return Decision::GoOn();
}

} // namespace kestd
