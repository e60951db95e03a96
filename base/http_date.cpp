// SPDX-License-Identifier: Apache-2.0
//
// Dates as text, over the calendar of <chrono>.
#include "base/http_date.h"

#include <array>
#include <chrono>
#include <cstring>
#include <limits>

#include "base/ascii.h"

namespace base {

namespace {

namespace chrono = std::chrono;

constexpr int64_t kSecondsPerDay = 86'400;
constexpr int64_t kYearsInPast = 50; // RFC 9110 section 5.6.7
constexpr uint64_t kUnitsPerDay = static_cast<uint64_t>(kSecondsPerDay * kUnitsPerSecond);

constexpr std::array<const char*, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<const char*, 7> kLongDays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};
constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct Day {
    int year;
    int month;   // 1 to 12
    int day;     // 1 to 31
    int weekday; // 0 is Sunday
    int ofYear;  // 0 is the first
};

constexpr chrono::sys_days kFirstDay = chrono::year(1601) / chrono::January / 1;

// The calendar repeats itself every 400 years, from 1601 on; <chrono> ends with the year 32767, and
// system times do not.
constexpr Day DayOf(uint64_t systemTime)
{
    constexpr uint64_t kDaysPerCycle = 146'097;
    const uint64_t days = systemTime / kUnitsPerDay;
    const chrono::sys_days day = kFirstDay + chrono::days(days % kDaysPerCycle);
    const chrono::year_month_day date(day);
    const chrono::sys_days newYear = date.year() / chrono::January / 1;
    return {static_cast<int>(date.year()) + static_cast<int>(days / kDaysPerCycle * 400),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            static_cast<int>(chrono::weekday(day).c_encoding()),
            static_cast<int>((day - newYear).count())};
}

constexpr int SecondOfDay(uint64_t systemTime)
{
    return static_cast<int>(systemTime % kUnitsPerDay / static_cast<uint64_t>(kUnitsPerSecond));
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

void PutFour(char* out, int value)
{
    PutTwo(out, value / 100);
    PutTwo(out + 2, value % 100);
}

void PutMonth(char* out, const Day& day)
{
    std::memcpy(out, kMonths[static_cast<size_t>(day.month - 1)], 3);
}

void PutTimeOfDay(char* out, int second)
{
    PutTwo(out, second / 3600);
    out[2] = ':';
    PutTwo(out + 3, second / 60 % 60);
    out[5] = ':';
    PutTwo(out + 6, second % 60);
}

void PutHttpDay(const Day& day, char* out)
{
    std::memcpy(out, kDays[static_cast<size_t>(day.weekday)], 3);
    std::memcpy(out + 3, ", ", 2);
    PutTwo(out + 5, day.day);
    out[7] = ' ';
    PutMonth(out + 8, day);
    out[11] = ' ';
    PutFour(out + 12, day.year);
    out[16] = ' ';
}

void PutIsoDay(const Day& day, char* out)
{
    PutFour(out, day.year);
    out[4] = '-';
    PutTwo(out + 5, day.month);
    out[7] = '-';
    PutTwo(out + 8, day.day);
    out[10] = 'T';
}

void PutLogDay(const Day& day, char* out)
{
    out[0] = '[';
    PutTwo(out + 1, day.day);
    out[3] = '/';
    PutMonth(out + 4, day);
    out[7] = '/';
    PutFour(out + 8, day.year);
    out[12] = ':';
}

// The text of a date up to its time of day. Most members of a collection were made on few days, so
// each thread keeps the last one of each form.
template <size_t Size> struct DayText {
    uint64_t day = std::numeric_limits<uint64_t>::max(); // since 1601; at first none
    char text[Size] = {};
};

// Writes the day and the time of day. `put` makes the text of a day that is not the last one.
template <size_t Size>
bool PutDate(uint64_t systemTime, DayText<Size>& last, void (*put)(const Day&, char*), char* out)
{
    const uint64_t number = systemTime / kUnitsPerDay;
    if (number != last.day) {
        const Day day = DayOf(systemTime);
        if (day.year > 9999)
            return false;
        put(day, last.text);
        last.day = number;
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
            if (!IsDigit(rest_[i]))
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

// Nothing for a date that is none.
std::optional<uint64_t> SystemTimeOf(const Fields& f)
{
    const chrono::year_month_day date = chrono::year(f.year) /
                                        chrono::month(static_cast<unsigned>(f.month + 1)) /
                                        chrono::day(static_cast<unsigned>(f.day));
    if (!date.ok() || f.hour > 23 || f.minute > 59 ||
        f.second > 60) // a leap second is the first of the next minute
        return std::nullopt;
    const int64_t days = chrono::sys_days(date).time_since_epoch().count();
    return UnixToSystemTime(days * kSecondsPerDay + f.hour * 3600 + f.minute * 60 + f.second);
}

} // namespace

bool FormatHttpDate(uint64_t systemTime, char* out) noexcept
{
    static thread_local constinit DayText<17> last;
    if (!PutDate(systemTime, last, PutHttpDay, out))
        return false;
    std::memcpy(out + 25, " GMT", 4);
    return true;
}

bool FormatIsoDate(uint64_t systemTime, char* out) noexcept
{
    static thread_local constinit DayText<11> last;
    if (!PutDate(systemTime, last, PutIsoDay, out))
        return false;
    out[19] = 'Z';
    return true;
}

bool FormatLogDate(uint64_t systemTime, char* out) noexcept
{
    static thread_local constinit DayText<13> last;
    if (!PutDate(systemTime, last, PutLogDay, out))
        return false;
    std::memcpy(out + 21, " +0000]", 7);
    return true;
}

std::optional<uint64_t> ParseHttpDate(std::string_view text, uint64_t now) noexcept
{
    Fields f;
    if (ReadFixdate(text, f))
        return SystemTimeOf(f);
    f = {};
    if (ReadRfc850(text, f, DayOf(now).year))
        return SystemTimeOf(f);
    f = {};
    if (ReadAsctime(text, f))
        return SystemTimeOf(f);
    return std::nullopt;
}

std::tm SystemTimeToCalendar(uint64_t systemTime) noexcept
{
    const Day day = DayOf(systemTime);
    const int second = SecondOfDay(systemTime);
    std::tm out{};
    out.tm_sec = second % 60;
    out.tm_min = second / 60 % 60;
    out.tm_hour = second / 3600;
    out.tm_mday = day.day;
    out.tm_mon = day.month - 1;
    out.tm_year = day.year - 1900;
    out.tm_wday = day.weekday;
    out.tm_yday = day.ofYear;
    out.tm_zone = "GMT";
    return out;
}

} // namespace base
