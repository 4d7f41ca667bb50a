// dbclient.cpp - database client: error texts and file names
//
// The handle is one number per thread. Texts belong to the numbers that the
// date conversions of the core services give; a table in the order of the
// numbers holds them.

#include "port/dbclient/dbclient.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "port/core/core.h"

namespace ku::dbclient
{

struct host {
    std::uint16_t number; // the error record: the newest error number
};

namespace
{

struct text {
    core::date_error number;
    std::string_view words;
};

constexpr text texts[] = {
    {core::date_bad_year, "the year is not between -4712 and 9999, or is 0"},
    {core::date_bad_month, "the month is not between 1 and 12"},
    {core::date_bad_day, "the day is not between 1 and 31"},
    {core::date_bad_monthday, "the month has no such day"},
    {core::date_bad_hour, "the hour is not between 0 and 23"},
    {core::date_bad_minute, "the minute is not between 0 and 59"},
    {core::date_bad_second, "the second is not between 0 and 59"},
    {core::date_bad_monthname, "that is not the name of a month"},
    {core::date_not_digit, "a digit is expected where the date has something else"},
    {core::date_short_text, "the date ends before its format does"},
    {core::date_long_text, "the date goes on after its format ends"},
    {core::date_mismatch, "the date has other punctuation than its format"},
    {core::date_bad_picture, "the date format holds something that is not known"},
    {core::date_repeated, "the date format holds an element twice"},
    {core::date_no_year, "the date format has no year"},
    {core::date_no_sign, "a year before 1 needs the format element SYYYY"},
    {core::date_no_room, "the date does not fit its buffer"},
};

std::string_view part_or_nothing(const char *part) { return part != nullptr ? part : ""; }

} // namespace

host *default_host()
{
    static thread_local host own{};
    return &own;
}

void set_error(host *handle, std::uint16_t number) { handle->number = number; }

std::uint32_t error_text(const host *handle, char *buffer, std::uint32_t capacity)
{
    char generic[sizeof "error 65535"];
    std::snprintf(generic, sizeof generic, "error %u", unsigned{handle->number});
    std::string_view words = generic;
    for (const text &row : texts)
        if (row.number == handle->number) words = row.words;
    words = words.substr(0, capacity);
    std::copy(words.begin(), words.end(), buffer);
    return static_cast<std::uint32_t>(words.size());
}

name_status build_file_name(const char *directory, const char *base, const char *extension,
                            const char *part, char *buffer, std::size_t length)
{
    const std::string_view path = part_or_nothing(directory);
    const std::string_view suffix = part_or_nothing(extension);
    const bool ended = path.empty() || path.back() == '/' || path.back() == '\\';
    const std::string_view pieces[] = {path,
                                       ended ? "" : "/",
                                       part_or_nothing(base),
                                       part_or_nothing(part),
                                       suffix.empty() ? "" : ".",
                                       suffix};
    std::size_t needed = 1;
    for (const std::string_view piece : pieces) needed += piece.size();
    if (needed > length) return name_status::no_room;
    for (const std::string_view piece : pieces)
        buffer = std::copy(piece.begin(), piece.end(), buffer);
    *buffer = '\0';
    return name_status::built;
}

} // namespace ku::dbclient
