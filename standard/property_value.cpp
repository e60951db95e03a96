// SPDX-License-Identifier: Apache-2.0
//
// Values of live properties that clients set.
#include "standard/property_value.h"

#include <charconv>
#include <chrono>

#include <kest/dav/records_3.h>

#include "standard/propfind_request.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "standard/upload_headers.h"
#include "support/time_units.h"

namespace standard {

namespace {

bool IsLastModified(const XmlName& name) noexcept
{
    return name.IsDav("lastmodified"); // a habit of clients that keep files in step
}

UINT64 ReadAnyDate(std::string_view text)
{
    if (const UINT64 date = ReadDate(text))
        return date;
    if (const UINT64 date = ReadIsoDate(text))
        return date;
    UINT64 date = 0;
    return ReadModificationTime(text, date) ? date : 0;
}

LiveChange DateChange(UINT32 kind, std::string_view text)
{
    const UINT64 date = ReadAnyDate(text);
    return {true, kind, date, date ? TAL_STATUS_SUCCESS : TAL_STATUS_CONFLICT};
}

// Eight hexadecimal digits. Bits that say nothing of a file here (archive, normal, directory, not
// indexed) are as they always are.
LiveChange AttributesChange(std::string_view text)
{
    constexpr UINT32 kKept = kAttributeReadOnly | kAttributeHidden;
    UINT32 bits = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), bits, 16);
    const bool isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return {true, kPropertyAttributes, bits & kKept,
            isWhole ? TAL_STATUS_SUCCESS : TAL_STATUS_CONFLICT};
}

bool TakeDigits(std::string_view& text, size_t count, int& number) noexcept
{
    if (text.size() < count)
        return false;
    const auto result = std::from_chars(text.data(), text.data() + count, number);
    if (result.ec != std::errc() || result.ptr != text.data() + count || text.front() == '-')
        return false;
    text.remove_prefix(count);
    return true;
}

// "Z" or "+HH:MM", in seconds. False for anything else.
bool TakeOffset(std::string_view& text, INT64& seconds) noexcept
{
    seconds = 0;
    if (Take(text, "Z"))
        return true;
    if (text.empty() || (text.front() != '+' && text.front() != '-'))
        return false;
    const INT64 sign = text.front() == '-' ? -1 : 1;
    text.remove_prefix(1);
    int hours = 0;
    int minutes = 0;
    if (!TakeDigits(text, 2, hours) || !Take(text, ":") || !TakeDigits(text, 2, minutes) ||
        hours > 23 || minutes > 59)
        return false;
    seconds = sign * (hours * 3600 + minutes * 60);
    return true;
}

} // namespace

UINT64 ReadIsoDate(std::string_view text) noexcept
{
    using namespace std::chrono;
    int y = 0;
    int m = 0;
    int d = 0;
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    if (!TakeDigits(text, 4, y) || !Take(text, "-") || !TakeDigits(text, 2, m) ||
        !Take(text, "-") || !TakeDigits(text, 2, d) || !Take(text, "T") ||
        !TakeDigits(text, 2, hours) || !Take(text, ":") || !TakeDigits(text, 2, minutes) ||
        !Take(text, ":") || !TakeDigits(text, 2, seconds))
        return 0;
    if (Take(text, ".")) // parts of a second are not kept
        while (!text.empty() && IsDigit(text.front()))
            text.remove_prefix(1);
    INT64 offset = 0;
    const year_month_day date{year{y}, month{static_cast<unsigned>(m)},
                              day{static_cast<unsigned>(d)}};
    if (!TakeOffset(text, offset) || !text.empty() || !date.ok() || hours > 23 || minutes > 59 ||
        seconds > 60)
        return 0;
    const INT64 days = sys_days(date).time_since_epoch().count();
    const INT64 total =
        days * 86400 + hours * 3600 + minutes * 60 + seconds - offset + kSecondsTo1970;
    return total > 0 ? static_cast<UINT64>(total) * kUnitsPerSecond : 0;
}

bool IsLive(const XmlName& name) noexcept
{
    return FindLiveProperty(name) != 0 || IsLastModified(name);
}

LiveChange ReadLiveChange(const XmlName& name, std::string_view text)
{
    if (IsLastModified(name))
        return DateChange(kPropertyModified, Trimmed(text));
    switch (FindLiveProperty(name)) {
    case 0:
        return {};
    case kLiveLastModified:
    case kLiveWin32Modified:
        return DateChange(kPropertyModified, Trimmed(text));
    case kLiveCreationDate:
    case kLiveWin32Created:
        return DateChange(kPropertyCreated, Trimmed(text));
    case kLiveWin32Attributes:
        return AttributesChange(Trimmed(text));
    default:
        return {true, kPropertySet, 0, TAL_STATUS_ACCESS_DENIED};
    }
}

} // namespace standard
