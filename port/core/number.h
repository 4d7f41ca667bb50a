// number.h - core services: decimal numbers as bytes, and the order of byte strings
//
// A number is a string of 1 to 21 bytes, none of them zero. Comparing two of
// them byte by byte, the shorter first when it is the head of the other, gives
// their numeric order; and every value has one form only, so equal values are
// equal bytes. Values have up to 38 significant digits and magnitudes from
// 10^-64 to just below 10^63. Nothing allocates.
#ifndef PORT_CORE_NUMBER_H
#define PORT_CORE_NUMBER_H

#include <cstddef>
#include <cstdint>

namespace ku::core
{

constexpr std::size_t number_longest = 21;    // bytes of a number
constexpr std::size_t number_digits = 38;     // significant digits, at most
constexpr std::size_t number_text_room = 112; // bytes of the longest text with its NUL

// Reads decimal text: digits with an optional sign, decimal point and exponent
// ("-12.50", ".5", "1e-3"). The whole text must be a number; digits past the
// 38th are rounded half away from zero, and what is too small becomes zero.
// Stores up to number_longest bytes and their count. False, with nothing
// changed, when the text is no number or its value is too large.
bool text_to_number(const char *text, std::size_t length, unsigned char *number,
                    std::size_t *bytes);

// Writes a number exactly, without exponent ("-12.5", "0.001"), and a NUL into
// `capacity` bytes. False, with nothing changed, when the bytes are no number or
// the text does not fit; number_text_room is enough for all.
bool number_to_text(const unsigned char *number, std::size_t bytes, char *buffer,
                    std::size_t capacity);

// Writes a number as a whole one, rounded half away from zero, under a picture
// of as many '9' as it may have digits: no leading zeros, '-' in front of a
// negative one. True when that was done; else the buffer holds the reason: '#'
// for each digit of the picture when the number has more, "?" when the bytes
// are no number or the picture holds anything else. `capacity` counts the NUL;
// the picture's length and 2 are enough, less than is needed leaves "" (false).
bool number_to_picture(const unsigned char *number, std::size_t bytes, const char *picture,
                       char *buffer, std::size_t capacity);

// Order of two byte strings as unsigned bytes over the shorter length, then by
// length: below, equal to or above 0. Bytes may be zero; lengths are exact.
int compare_bytes(const void *a, std::size_t a_length, const void *b, std::size_t b_length);

} // namespace ku::core

#endif
