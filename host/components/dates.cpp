// SPDX-License-Identifier: Apache-2.0
#include "host/components/dates.h"

#include <array>
#include <cstring>
#include <limits>

namespace kestd {
namespace {

constexpr int64_t kUnitsPerSecond = 10'000'000;
constexpr int64_t kSecondsBefore1970 = 11'644'473'600; // from 1601-01-01
constexpr int64_t kSecondsPerDay = 86'400;
constexpr int64_t kYearsInPast = 50; // RFC 9110 section 5.6.7

constexpr std::array<const char*, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<const char*, 7> kLongDays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};
constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct Civil {
    int64_t year;
    int month; // 1 to 12
    int day;   // 1 to 31
};

// Days since 1970-01-01 of a date in the Gregorian calendar, and back. Years are counted from
// March, so that the leap day is the last of its year.
constexpr int64_t DaysOf(Civil date)
{
    const int64_t year = date.month <= 2 ? date.year - 1 : date.year;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear =
        (153 * (date.month > 2 ? date.month - 3 : date.month + 9) + 2) / 5 + date.day - 1;
    return era * 146'097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719'468;
}

constexpr Civil CivilOf(int64_t days)
{
    days += 719'468;
    const int64_t era = (days >= 0 ? days : days - 146'096) / 146'097;
    const int64_t dayOfEra = days - era * 146'097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shifted = (5 * dayOfYear + 2) / 153;
    const int day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
    const int month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

static_assert(DaysOf({1970, 1, 1}) == 0 && DaysOf({2000, 2, 29}) == 11'016);

struct Moment {
    Civil date;
    int weekday; // 0 is Sunday
    int hour, minute, second;
};

Moment MomentOf(uint64_t systemTime)
{
    const int64_t unix = SystemTimeToUnix(systemTime);
    int64_t days = unix / kSecondsPerDay;
    int64_t rest = unix % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    const int64_t weekday = (days % 7 + 7 + 4) % 7; // 1970-01-01 was a Thursday
    return {CivilOf(days), static_cast<int>(weekday), static_cast<int>(rest / 3600),
            static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60)};
}

// "00" to "99".
struct TwoDigits {
    char text[100][2] = {};

    constexpr TwoDigits()
    {
        for (int i = 0; i < 100; ++i) {
            text[i][0] = static_cast<char>('0' + i / 10);
            text[i][1] = static_cast<char>('0' + i % 10);
        }
    }
};
constexpr TwoDigits kTwoDigits;

void PutTwo(char* out, int value)
{
    std::memcpy(out, kTwoDigits.text[value], 2);
}

void PutFour(char* out, int64_t value)
{
    PutTwo(out, static_cast<int>(value / 100));
    PutTwo(out + 2, static_cast<int>(value % 100));
}

void PutTimeOfDay(char* out, int second)
{
    PutTwo(out, second / 3600);
    out[2] = ':';
    PutTwo(out + 3, second / 60 % 60);
    out[5] = ':';
    PutTwo(out + 6, second % 60);
}

// The text of a date up to its time of day. Most members of a collection were made on few days, so
// each thread keeps the last one of each form.
template <size_t Size> struct DayText {
    uint64_t day = std::numeric_limits<uint64_t>::max(); // since 1601; at first none
    char text[Size];
};

constexpr uint64_t kUnitsPerDay = static_cast<uint64_t>(kSecondsPerDay * kUnitsPerSecond);

int SecondOfDay(uint64_t systemTime)
{
    return static_cast<int>(systemTime % kUnitsPerDay / static_cast<uint64_t>(kUnitsPerSecond));
}

bool PutHttpDay(uint64_t systemTime, char* out)
{
    const Moment moment = MomentOf(systemTime);
    if (moment.date.year > 9999)
        return false;
    std::memcpy(out, kDays[static_cast<size_t>(moment.weekday)], 3);
    std::memcpy(out + 3, ", ", 2);
    PutTwo(out + 5, moment.date.day);
    out[7] = ' ';
    std::memcpy(out + 8, kMonths[static_cast<size_t>(moment.date.month - 1)], 3);
    out[11] = ' ';
    PutFour(out + 12, moment.date.year);
    out[16] = ' ';
    return true;
}

bool PutIsoDay(uint64_t systemTime, char* out)
{
    const Moment moment = MomentOf(systemTime);
    if (moment.date.year > 9999)
        return false;
    PutFour(out, moment.date.year);
    out[4] = '-';
    PutTwo(out + 5, moment.date.month);
    out[7] = '-';
    PutTwo(out + 8, moment.date.day);
    out[10] = 'T';
    return true;
}

// Writes the day and the time of day. `put` makes the text of a day that is not the last one.
template <size_t Size, class PutDay>
bool PutDate(uint64_t systemTime, DayText<Size>& last, PutDay put, char* out)
{
    const uint64_t day = systemTime / kUnitsPerDay;
    if (day != last.day) {
        if (!put(systemTime, last.text))
            return false;
        last.day = day;
    }
    std::memcpy(out, last.text, Size);
    PutTimeOfDay(out + Size, SecondOfDay(systemTime));
    return true;
}

// A reader of fixed forms: each step takes what it expects or fails for good.
class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool Text(std::string_view expected)
    {
        if (!rest_.starts_with(expected))
            return false;
        rest_.remove_prefix(expected.size());
        return true;
    }
    template <size_t N> bool Name(const std::array<const char*, N>& names, int& index)
    {
        for (size_t i = 0; i < N; ++i)
            if (Text(names[i])) {
                index = static_cast<int>(i);
                return true;
            }
        return false;
    }
    bool Digits(size_t count, int& value)
    {
        if (rest_.size() < count)
            return false;
        value = 0;
        for (size_t i = 0; i < count; ++i) {
            if (rest_[i] < '0' || rest_[i] > '9')
                return false;
            value = value * 10 + (rest_[i] - '0');
        }
        rest_.remove_prefix(count);
        return true;
    }
    bool DayOrBlankDay(int& value) // asctime pads with a blank
    {
        return Text(" ") ? Digits(1, value) : Digits(2, value);
    }
    bool AtEnd() const { return rest_.empty(); }

  private:
    std::string_view rest_;
};

struct Fields {
    int weekday = 0, day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
};

bool ReadTimeOfDay(Reader& in, Fields& f)
{
    return in.Digits(2, f.hour) && in.Text(":") && in.Digits(2, f.minute) && in.Text(":") &&
           in.Digits(2, f.second);
}

bool ReadFixdate(std::string_view text, Fields& f)
{
    Reader in(text);
    return in.Name(kDays, f.weekday) && in.Text(", ") && in.Digits(2, f.day) && in.Text(" ") &&
           in.Name(kMonths, f.month) && in.Text(" ") && in.Digits(4, f.year) && in.Text(" ") &&
           ReadTimeOfDay(in, f) && in.Text(" GMT") && in.AtEnd();
}

bool ReadRfc850(std::string_view text, Fields& f, int64_t yearNow)
{
    Reader in(text);
    if (!(in.Name(kLongDays, f.weekday) && in.Text(", ") && in.Digits(2, f.day) && in.Text("-") &&
          in.Name(kMonths, f.month) && in.Text("-") && in.Digits(2, f.year) && in.Text(" ") &&
          ReadTimeOfDay(in, f) && in.Text(" GMT") && in.AtEnd()))
        return false;
    const int64_t century = yearNow - yearNow % 100;
    int64_t year = century + f.year;
    if (year > yearNow + kYearsInPast)
        year -= 100;
    f.year = static_cast<int>(year);
    return true;
}

bool ReadAsctime(std::string_view text, Fields& f)
{
    Reader in(text);
    return in.Name(kDays, f.weekday) && in.Text(" ") && in.Name(kMonths, f.month) && in.Text(" ") &&
           in.DayOrBlankDay(f.day) && in.Text(" ") && ReadTimeOfDay(in, f) && in.Text(" ") &&
           in.Digits(4, f.year) && in.AtEnd();
}

bool IsLeapYear(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool AreInRange(const Fields& f)
{
    constexpr std::array<int, 12> kLengths = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int length =
        kLengths[static_cast<size_t>(f.month)] + (f.month == 1 && IsLeapYear(f.year) ? 1 : 0);
    return f.day >= 1 && f.day <= length && f.hour < 24 && f.minute < 60 &&
           f.second <= 60; // a leap second is the first of the next minute
}

} // namespace

bool FormatHttpDate(uint64_t systemTime, char* out)
{
    thread_local DayText<17> last;
    if (!PutDate(systemTime, last, PutHttpDay, out))
        return false;
    std::memcpy(out + 25, " GMT", 4);
    return true;
}

bool FormatIsoDate(uint64_t systemTime, char* out)
{
    thread_local DayText<11> last;
    if (!PutDate(systemTime, last, PutIsoDay, out))
        return false;
    out[19] = 'Z';
    return true;
}

std::optional<uint64_t> ParseHttpDate(std::string_view text, uint64_t now)
{
    Fields f;
    const auto reads = [&](auto&& read) {
        f = Fields{};
        return read();
    };
    if (!reads([&] { return ReadFixdate(text, f); }) &&
        !reads([&] { return ReadRfc850(text, f, MomentOf(now).date.year); }) &&
        !reads([&] { return ReadAsctime(text, f); }))
        return std::nullopt;
    if (!AreInRange(f))
        return std::nullopt;
    const int64_t days = DaysOf({f.year, f.month + 1, f.day});
    return UnixToSystemTime(days * kSecondsPerDay + f.hour * 3600 + f.minute * 60 + f.second);
}

int64_t SystemTimeToUnix(uint64_t systemTime)
{
    return static_cast<int64_t>(systemTime / kUnitsPerSecond) - kSecondsBefore1970;
}

std::optional<uint64_t> UnixToSystemTime(int64_t seconds)
{
    constexpr int64_t kLast = static_cast<int64_t>(std::numeric_limits<uint64_t>::max() /
                                                   static_cast<uint64_t>(kUnitsPerSecond)) -
                              kSecondsBefore1970;
    if (seconds < -kSecondsBefore1970 || seconds > kLast)
        return std::nullopt;
    return static_cast<uint64_t>(seconds + kSecondsBefore1970) * kUnitsPerSecond;
}

std::tm SystemTimeToCalendar(uint64_t systemTime)
{
    const Moment moment = MomentOf(systemTime);
    std::tm out{};
    out.tm_sec = moment.second;
    out.tm_min = moment.minute;
    out.tm_hour = moment.hour;
    out.tm_mday = moment.date.day;
    out.tm_mon = moment.date.month - 1;
    out.tm_year = static_cast<int>(moment.date.year - 1900);
    out.tm_wday = moment.weekday;
    out.tm_yday = static_cast<int>(DaysOf(moment.date) - DaysOf({moment.date.year, 1, 1}));
    out.tm_zone = "GMT";
    return out;
}

uint64_t SystemTimeNow()
{
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec + kSecondsBefore1970) * kUnitsPerSecond +
           static_cast<uint64_t>(now.tv_nsec) / 100;
}

} // namespace kestd
