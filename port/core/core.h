// core.h - core services: date conversion and environment variables
//
// What the library needs of a core services library, and nothing more. A
// date-conversion context is storage of date_context_size() bytes that the
// caller owns: initialise it once, convert as often as wanted; it holds nothing
// to release. A conversion that fails calls the registered callback with one of
// the error numbers below; dbclient turns the number into text. Nothing
// allocates; contexts share nothing.
#ifndef PORT_CORE_CORE_H
#define PORT_CORE_CORE_H

#include <cstddef>
#include <cstdint>

#include "kulang.h"

struct kudateconv; // date-conversion context, opaque

namespace ku::core
{

// ---- dates ----

// A moment of the proleptic Gregorian calendar. Years run from -4712 to 9999
// without a year 0: -1 is the year before 1.
struct date {
    std::int32_t year;   // -4712 to -1, 1 to 9999
    std::uint8_t month;  // 1 to 12
    std::uint8_t day;    // 1 to the length of the month
    std::uint8_t hour;   // 0 to 23
    std::uint8_t minute; // 0 to 59
    std::uint8_t second; // 0 to 59
};

// Why a conversion failed. The numbers are those of the error texts.
enum date_error : std::int32_t {
    date_bad_year = 1,      // outside -4712 to 9999, or 0
    date_bad_month = 2,     // not 1 to 12
    date_bad_day = 3,       // not 1 to 31
    date_bad_monthday = 4,  // the month has no such day
    date_bad_hour = 5,      // not 0 to 23
    date_bad_minute = 6,    // not 0 to 59
    date_bad_second = 7,    // not 0 to 59
    date_bad_monthname = 8, // not the name of a month
    date_not_digit = 9,     // a digit was expected
    date_short_text = 10,   // the text ends before its picture does
    date_long_text = 11,    // the picture ends before its text does
    date_mismatch = 12,     // the text has other punctuation than the picture
    date_bad_picture = 13,  // the picture holds something that is not an element
    date_repeated = 14,     // the picture holds an element twice
    date_no_year = 15,      // the picture has no year
    date_no_sign = 16,      // a year before 1 needs the signed year SYYYY
    date_no_room = 17,      // the text does not fit its buffer
};

// Called when a conversion fails; may leave by a non-local jump. When it
// returns, the conversion reports the failure to its caller.
using date_callback = void (*)(kudateconv *dates, std::int32_t error);

// Bytes of a date-conversion context; storage for one is aligned as for a pointer.
std::size_t date_context_size();

// Sets a context up. `lang` (borrowed as long as the context is used; null:
// ASCII) folds the case of month names; `callback` may be null.
void initialise_dates(kudateconv *storage, const kulang *lang, date_callback callback,
                      void *error_context);

// The error context that was registered, for the callback.
void *error_context(const kudateconv *dates);

// Pictures are made of the elements SYYYY (a sign where it is negative), YYYY,
// MM, MON (three letters), MONTH (the whole name), DD, HH24, MI, SS in either
// case, and of blanks and the punctuation - / , . : ; between them:
// "YYYY-MM-DD HH24:MI:SS", "DD-MON-YYYY". Names are English, written in capitals.

// Reads `length` bytes of text. Numbers have 1 digit to as many as the element;
// names in any case; the rest must match. What the picture does not name is the
// first day, the first month, midnight. On failure *result is unchanged.
bool text_to_date(kudateconv *dates, const char *text, std::size_t length, const char *picture,
                  date *result);

// Writes the text and a NUL into `capacity` bytes and its length without the
// NUL into *length. On failure buffer and *length are unchanged.
bool date_to_text(kudateconv *dates, const date &moment, const char *picture, char *buffer,
                  std::size_t capacity, std::size_t *length);

// ---- environment ----

constexpr std::size_t variable_longest = 511; // bytes of a value that can be translated

enum class variable { found, unset, too_long };

// Copies a variable's value and a NUL into `capacity` bytes, its length without
// the NUL into *length. A value above variable_longest or the room is too_long:
// never cut. Unless found, buffer and *length are unchanged.
variable translate(const char *name, char *buffer, std::size_t capacity, std::size_t *length);

} // namespace ku::core

#endif
