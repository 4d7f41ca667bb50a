// datevalue.h - core services: dates as bytes whose order is that of time
//
// A date value is five bytes, none of them zero: the seconds since the first
// moment of the year 1 of the proleptic Gregorian calendar, as base-255 digits,
// the most significant first, each stored plus 1. Years run from 1 to 9999.
// Nothing allocates.
#ifndef PORT_CORE_DATEVALUE_H
#define PORT_CORE_DATEVALUE_H

#include <cstddef>

#include "port/core/core.h"

namespace ku::core
{

constexpr std::size_t datevalue_length = 5;     // bytes of a date value
constexpr std::size_t datevalue_text_room = 11; // bytes of YYYY-MM-DD with its NUL

// Both return false, with nothing changed, for what is no moment of the years 1
// to 9999: a month or day that does not exist, bytes of another length or value.
bool date_to_value(const date &moment, unsigned char *value); // datevalue_length bytes
bool value_to_date(const void *value, std::size_t length, date *moment);

// Writes YYYY-MM-DD and a NUL, datevalue_text_room bytes; the time of day is left
// out. False, with "?" in the buffer, when the bytes are no date value.
bool value_to_text(const void *value, std::size_t length, char *buffer);

} // namespace ku::core

#endif
