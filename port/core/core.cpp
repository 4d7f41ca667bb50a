// core.cpp - core services: dates as text by pictures, environment variables
//
// A picture is read element by element, the longest first, and drives both
// directions: reading collects six values, writing prints them. Both check the
// values by the same table, so what was read can be written and the other way
// round. Writing runs twice, once to measure and once to store, which keeps a
// buffer that is too small untouched.
//
// Years count without a year 0, so leap years before 1 are found by the
// astronomical year, which is one more.

#include "port/core/core.h"

#include <cstdlib>
#include <cstring>
#include <optional>

#include "output.h"

struct kudateconv {
    const kulang *lang;               // folds the case of names; null: ASCII
    ku::core::date_callback callback; // told of every failure; may be null
    void *error_context;              // the registrar's
};

namespace ku::core
{

namespace
{

constexpr std::int32_t no_error = 0;

enum part : unsigned { year, month, day, hour, minute, second, part_count };

enum class form { number, signed_number, short_name, full_name };

struct element {
    const char *name; // as in pictures, in capitals
    part of;          // what it stands for
    form as;          // how it is written
    unsigned width;   // most digits of a number, letters of a short name
};

// A name that begins with another one comes before it.
constexpr element elements[] = {
    {"SYYYY", year, form::signed_number, 4},
    {"YYYY", year, form::number, 4},
    {"MONTH", month, form::full_name, 0},
    {"MON", month, form::short_name, 3},
    {"MM", month, form::number, 2},
    {"MI", minute, form::number, 2},
    {"DD", day, form::number, 2},
    {"HH24", hour, form::number, 2},
    {"SS", second, form::number, 2},
};

constexpr char punctuation[] = " -/,.:;";

constexpr const char *month_names[] = {
    "JANUARY", "FEBRUARY", "MARCH",     "APRIL",   "MAY",      "JUNE",
    "JULY",    "AUGUST",   "SEPTEMBER", "OCTOBER", "NOVEMBER", "DECEMBER",
};

struct range {
    std::int32_t lowest;
    std::int32_t highest;
    date_error error;
};

constexpr range ranges[part_count] = {
    /* year   */ {-4712, 9999, date_bad_year},
    /* month  */ {1, 12, date_bad_month},
    /* day    */ {1, 31, date_bad_day},
    /* hour   */ {0, 23, date_bad_hour},
    /* minute */ {0, 59, date_bad_minute},
    /* second */ {0, 59, date_bad_second},
};

using values = std::int32_t[part_count];

bool is_digit(char c) { return c >= '0' && c <= '9'; }

unsigned char fold(const kulang *lang, char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (lang != nullptr) return lang->fold_kulang[byte];
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte - 'A' + 'a') : byte;
}

// The text begins with the first `count` letters of the name, whatever their case.
bool begins_with(const kulang *lang, const char *text, std::size_t length, const char *name,
                 std::size_t count)
{
    if (length < count) return false;
    for (std::size_t i = 0; i < count; i++)
        if (fold(lang, text[i]) != fold(lang, name[i])) return false;
    return true;
}

std::int32_t days_in_month(std::int32_t of_year, std::int32_t of_month)
{
    static constexpr std::uint8_t days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const std::int32_t astronomical = of_year < 0 ? of_year + 1 : of_year;
    const bool leap = astronomical % 4 == 0 && (astronomical % 100 != 0 || astronomical % 400 == 0);
    return days[of_month - 1] + (of_month == 2 && leap ? 1 : 0);
}

std::int32_t check(const values &moment)
{
    for (unsigned i = 0; i < part_count; i++)
        if (moment[i] < ranges[i].lowest || moment[i] > ranges[i].highest) return ranges[i].error;
    if (moment[year] == 0) return date_bad_year;
    if (moment[day] > days_in_month(moment[year], moment[month])) return date_bad_monthday;
    return no_error;
}

// A picture, read from the left; `error` says why it ended early.
class picture_reader
{
public:
    explicit picture_reader(const char *picture) : rest_(picture != nullptr ? picture : "") {}

    bool more() const { return *rest_ != '\0' && error_ == no_error; }
    std::int32_t error() const { return error_; }
    bool named(part which) const { return (named_ & 1u << which) != 0; }

    // The element at hand, stepped over; none: punctuation or an error.
    std::optional<element> take_element()
    {
        for (const element &row : elements) {
            const std::size_t length = std::strlen(row.name);
            if (!begins_with(nullptr, rest_, std::strlen(rest_), row.name, length)) continue;
            if (named(row.of)) error_ = date_repeated;
            named_ |= 1u << row.of;
            rest_ += length;
            return row;
        }
        if (std::strchr(punctuation, *rest_) == nullptr) error_ = date_bad_picture;
        return std::nullopt;
    }
    char take_punctuation() { return *rest_++; }

private:
    const char *rest_;
    unsigned named_ = 0;
    std::int32_t error_ = no_error;
};

// ---- text to date ----

struct input {
    const kulang *lang;
    const char *text;
    std::size_t length;

    void skip(std::size_t count)
    {
        text += count;
        length -= count;
    }
};

std::int32_t read_number(input &from, const element &as, std::int32_t *value)
{
    bool negative = false;
    if (as.as == form::signed_number && from.length != 0
        && (*from.text == '-' || *from.text == '+')) {
        negative = *from.text == '-';
        from.skip(1);
    }
    if (from.length == 0) return date_short_text;
    if (!is_digit(*from.text)) return date_not_digit;
    std::int32_t number = 0;
    for (unsigned i = 0; i < as.width && from.length != 0 && is_digit(*from.text); i++) {
        number = number * 10 + (*from.text - '0');
        from.skip(1);
    }
    *value = negative ? -number : number;
    return no_error;
}

std::int32_t read_month(input &from, const element &as, std::int32_t *value)
{
    if (from.length == 0) return date_short_text;
    for (std::int32_t i = 0; i < 12; i++) {
        const char *name = month_names[i];
        const std::size_t letters = as.as == form::short_name ? as.width : std::strlen(name);
        if (!begins_with(from.lang, from.text, from.length, name, letters)) continue;
        from.skip(letters);
        *value = i + 1;
        return no_error;
    }
    return date_bad_monthname;
}

std::int32_t read_punctuation(input &from, char expected)
{
    if (from.length == 0) return date_short_text;
    if (*from.text != expected) return date_mismatch;
    from.skip(1);
    return no_error;
}

std::int32_t read_element(input &from, const element &as, std::int32_t *value)
{
    const bool number = as.as == form::number || as.as == form::signed_number;
    return number ? read_number(from, as, value) : read_month(from, as, value);
}

std::int32_t read_date(input from, const char *picture, values &moment)
{
    picture_reader reader(picture);
    while (reader.more()) {
        const std::optional<element> next = reader.take_element();
        if (reader.error() != no_error) return reader.error();
        const std::int32_t error = next ? read_element(from, *next, &moment[next->of])
                                        : read_punctuation(from, reader.take_punctuation());
        if (error != no_error) return error;
    }
    if (!reader.named(year)) return date_no_year;
    if (from.length != 0) return date_long_text;
    return check(moment);
}

// ---- date to text ----

void write_element(output &to, const element &as, std::int32_t value)
{
    if (as.of == month && as.as != form::number) {
        const char *name = month_names[value - 1];
        return to.put(name, as.as == form::short_name ? as.width : std::strlen(name));
    }
    if (value < 0) to.put('-');
    std::int32_t rest = value < 0 ? -value : value;
    char digits[4];
    for (unsigned i = as.width; i-- > 0; rest /= 10) digits[i] = static_cast<char>('0' + rest % 10);
    to.put(digits, as.width);
}

std::int32_t write_date(output &to, const char *picture, const values &moment)
{
    picture_reader reader(picture);
    while (reader.more()) {
        const std::optional<element> next = reader.take_element();
        if (reader.error() != no_error) return reader.error();
        if (!next)
            to.put(reader.take_punctuation());
        else if (next->of == year && next->as == form::number && moment[year] < 0)
            return date_no_sign;
        else
            write_element(to, *next, moment[next->of]);
    }
    return no_error;
}

bool fail(kudateconv *dates, std::int32_t error)
{
    if (dates->callback != nullptr) dates->callback(dates, error);
    return false;
}

} // namespace

std::size_t date_context_size() { return sizeof(kudateconv); }

void initialise_dates(kudateconv *storage, const kulang *lang, date_callback callback,
                      void *error_context)
{
    *storage = {lang, callback, error_context};
}

void *error_context(const kudateconv *dates) { return dates->error_context; }

bool text_to_date(kudateconv *dates, const char *text, std::size_t length, const char *picture,
                  date *result)
{
    values moment = {0, 1, 1, 0, 0, 0};
    const std::int32_t error = read_date({dates->lang, text, length}, picture, moment);
    if (error != no_error) return fail(dates, error);
    result->year = moment[year];
    result->month = static_cast<std::uint8_t>(moment[month]);
    result->day = static_cast<std::uint8_t>(moment[day]);
    result->hour = static_cast<std::uint8_t>(moment[hour]);
    result->minute = static_cast<std::uint8_t>(moment[minute]);
    result->second = static_cast<std::uint8_t>(moment[second]);
    return true;
}

bool date_to_text(kudateconv *dates, const date &moment, const char *picture, char *buffer,
                  std::size_t capacity, std::size_t *length)
{
    const values parts = {moment.year, moment.month,  moment.day,
                          moment.hour, moment.minute, moment.second};
    std::int32_t error = check(parts);
    output measured;
    if (error == no_error) error = write_date(measured, picture, parts);
    if (error == no_error && measured.length >= capacity) error = date_no_room;
    if (error != no_error) return fail(dates, error);
    output stored{buffer};
    write_date(stored, picture, parts);
    buffer[stored.length] = '\0';
    *length = stored.length;
    return true;
}

variable translate(const char *name, char *buffer, std::size_t capacity, std::size_t *length)
{
    const char *value = std::getenv(name);
    if (value == nullptr) return variable::unset;
    const std::size_t bytes = std::strlen(value);
    if (bytes > variable_longest || bytes >= capacity) return variable::too_long;
    std::memcpy(buffer, value, bytes + 1);
    *length = bytes;
    return variable::found;
}

} // namespace ku::core
