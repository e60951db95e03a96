// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/conditional_requests.h"

#include <chrono>

#include "host/http/ascii.h"
#include "host/module/subrequest.h"

namespace kestd {

namespace {

bool Changes(UINT32 method) noexcept
{
    switch (method) {
    case KestMethodPut:
    case KestMethodPost:
    case KestMethodDelete:
    case KestMethodPropPatch:
    case KestMethodMkCol:
    case KestMethodCopy:
    case KestMethodMove:
    case KestMethodLock:
        return true;
    default:
        return false;
    }
}

} // namespace

uint64_t DateOrder(std::string_view date) noexcept
{
    constexpr std::string_view kForm = "www, dd mmm dddd dd:dd:dd GMT";
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    if (date.size() != kForm.size())
        return 0;
    uint64_t digits = 0; // day, year and time as they are written
    for (size_t i = 0; i < kForm.size(); ++i) {
        if (kForm[i] == 'd' ? !IsDigit(date[i])
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

bool MeetsConditions(KestIo& request, Front& front)
{
    if (!Changes(request.method))
        return true;
    // Each value is taken on its own: a look-up may move what an earlier one gave.
    const auto value = [&request](std::string_view name) -> std::optional<std::string_view> {
        const std::string_view* found = request.FindRequestHeader(name);
        return found ? std::optional(*found) : std::nullopt;
    };
    const auto match = value("If-Match");
    const auto noneMatch = value("If-None-Match");
    const auto since = value("If-Unmodified-Since");
    if (!match && !noneMatch && !since)
        return true;
    const uint64_t limit = since ? DateOrder(*since) : 0;
    request.preconditions.match = match.value_or("");
    request.preconditions.noneMatch = noneMatch.value_or("");
    if (limit != 0 && !match)
        request.preconditions.unmodifiedSince = limit;

    Subrequest subrequest(request, request.target.path, KestMethodHead);
    subrequest.Run(front, request.auth.session);
    if (request.HasFailed())
        return false; // nobody knows; the failure is what the client hears of
    const bool exists = subrequest.Status() == 200;
    request.isKnownNew = !exists;
    if (match) {
        if (*match != "*" || !exists)
            return false;
    } else if (since) {
        if (limit != 0 && DateOrder(subrequest.LastModified()) > limit)
            return false;
    }
    return !noneMatch || *noneMatch != "*" || !exists;
}

} // namespace kestd
