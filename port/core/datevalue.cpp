// datevalue.cpp - dates as seconds since the year 1, in digits of base 255
//
// Days are counted by the calendar of the standard library, which is the
// proleptic Gregorian one. Five digits reach further than the year 9999: what
// lies behind it is no date value.

#include "datevalue.h"

#include <chrono>
#include <cstdint>

namespace ku::core
{

namespace
{

namespace calendar = std::chrono;

constexpr std::int64_t day_seconds = 86400;
constexpr unsigned base = 255;

constexpr calendar::sys_days first_day{calendar::year(1) / calendar::January / 1};
constexpr calendar::sys_days last_day{calendar::year(9999) / calendar::December / 31};
constexpr std::int64_t end = ((last_day - first_day).count() + std::int64_t{1}) * day_seconds;

// Seconds of a moment; -1 when there is no such one.
std::int64_t seconds_of(const date &moment)
{
    if (moment.year < 1 || moment.year > 9999) return -1;
    const calendar::year_month_day day{calendar::year(moment.year), calendar::month(moment.month),
                                       calendar::day(moment.day)};
    if (!day.ok() || moment.hour > 23 || moment.minute > 59 || moment.second > 59) return -1;
    const std::int64_t days = (calendar::sys_days(day) - first_day).count();
    return days * day_seconds + moment.hour * 3600 + moment.minute * 60 + moment.second;
}

} // namespace

bool date_to_value(const date &moment, unsigned char *value)
{
    std::int64_t rest = seconds_of(moment);
    if (rest < 0) return false;
    for (std::size_t i = datevalue_length; i-- > 0; rest /= base)
        value[i] = static_cast<unsigned char>(rest % base + 1);
    return true;
}

bool value_to_date(const void *value, std::size_t length, date *moment)
{
    if (length != datevalue_length) return false;
    const auto *bytes = static_cast<const unsigned char *>(value);
    std::int64_t seconds = 0;
    for (std::size_t i = 0; i < datevalue_length; i++) {
        if (bytes[i] == 0) return false;
        seconds = seconds * base + (bytes[i] - 1);
    }
    if (seconds >= end) return false;
    const calendar::days days(static_cast<std::int32_t>(seconds / day_seconds));
    const calendar::year_month_day day{first_day + days};
    const auto time = static_cast<std::int32_t>(seconds % day_seconds);
    moment->year = static_cast<int>(day.year());
    moment->month = static_cast<std::uint8_t>(static_cast<unsigned>(day.month()));
    moment->day = static_cast<std::uint8_t>(static_cast<unsigned>(day.day()));
    moment->hour = static_cast<std::uint8_t>(time / 3600);
    moment->minute = static_cast<std::uint8_t>(time / 60 % 60);
    moment->second = static_cast<std::uint8_t>(time % 60);
    return true;
}

bool value_to_text(const void *value, std::size_t length, char *buffer)
{
    date moment;
    if (!value_to_date(value, length, &moment)) {
        buffer[0] = '?';
        buffer[1] = '\0';
        return false;
    }
    const auto put = [&](std::size_t at, int number, int digits) {
        for (; digits-- > 0; number /= 10)
            buffer[at + static_cast<std::size_t>(digits)] = static_cast<char>('0' + number % 10);
    };
    put(0, moment.year, 4);
    put(5, moment.month, 2);
    put(8, moment.day, 2);
    buffer[4] = buffer[7] = '-';
    buffer[10] = '\0';
    return true;
}

} // namespace ku::core
