// liz_internal.h - the multibyte layer behind its flat interface, length-explicit
//
// The flat interface reads a length of 65535 as "to the NUL". Here a text says
// by a flag which of the two it means, so that callers who hold exactly 65535
// bytes can measure, copy and compare them. Nothing allocates.
#ifndef LIZ_INTERNAL_H
#define LIZ_INTERNAL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lizg.h"
#include "port/locale/locale.h"

namespace ku::liz
{

// What is scanned, measured, copied. At most UINT32_MAX bytes are ever looked
// at, so that every offset fits the interface's 32 bits.
struct text {
    const void *bytes; // the text; for LIZ_CURSOR the caller's cursor
    std::uint32_t limit;
    std::int32_t rep;
    bool terminated; // no length was given: the NUL ends it
};

inline text exactly(const void *bytes, std::uint32_t length, std::int32_t rep)
{
    return {bytes, length, rep, false};
}

inline text as_given(const void *bytes, std::uint32_t length, std::int32_t rep)
{
    const bool terminated = length == KU_NTS;
    return {bytes, terminated ? UINT32_MAX : length, rep, terminated};
}

// The bytes of a text as byte-wise operations see it: a cursor's from its start.
struct byte_run {
    const unsigned char *bytes;
    std::uint32_t length;
};
byte_run bytes_of(const text &given);     // a terminated text up to its NUL
byte_run bytes_to_nul(const text &given); // any text up to its NUL

// ---- scanning ----

void open_scan(const kulang &lang, lizg &scan, const text &given);
std::uint32_t next(const kulang &lang, lizg &scan); // wide value, 0 at the end
bool skip(const kulang &lang, lizg &scan, std::uint32_t characters);

// Order of two wide values: below, at or above 0.
int compare_values(const kulang &lang, std::uint32_t a, std::uint32_t b, std::int32_t option);

struct verdict {
    std::int32_t order;  // LIZ_EQUAL, LIZ_LESS, LIZ_GREATER
    std::int32_t prefix; // 1: the second was used up without a difference
};
verdict match(const kulang &lang, lizg &first, lizg &second, std::int32_t option);

// ---- whole texts ----

struct extent {
    std::uint32_t bytes;
    std::uint32_t characters;
};
extent measure(const kulang &lang, const text &given);

std::int32_t compare(const kulang &lang, const text &a, const text &b, std::int32_t option);
std::int32_t compare_bytes(const kulang &lang, const void *a, const void *b, std::uint32_t n,
                           std::int32_t option);

// ---- copying ----

struct outcome {
    std::uint32_t status;  // LIZ_OK, LIZ_END
    std::uint32_t written; // bytes, without closing shift byte and terminator
    std::uint32_t closed;  // 1 when a closing shift byte stands behind them
};

outcome copy_bytes(const kulang &lang, void *target, std::uint32_t room, const void *source,
                   std::uint32_t n, std::int32_t option);

// The converters, for any pair of representations and any language.
outcome convert(const kulang &lang, void *target, std::uint32_t room, std::int32_t trep,
                const text &source, std::int32_t option);

// convert, and what lizmcpy adds to it.
outcome copy(const kulang &lang, void *target, std::uint32_t room, std::int32_t trep,
             const text &source, std::int32_t option);

// A target cursor afresh, in its mode, over its whole text of `length` bytes.
void reopen(const kulang &lang, void *target, std::size_t length);

// A target while it is written. The cursor is a copy of its own; what ends the
// text is put behind the bytes written but not stepped over, so that a further
// piece overwrites it.
struct sink {
    kucursor cursor;      // multibyte and cursor targets
    unsigned char *bytes; // wide targets
    std::int32_t rep;
    std::uint32_t room;
    std::uint32_t written;
};
void open_sink(const kulang &lang, sink &to, void *target, std::uint32_t room, std::int32_t rep);

// Moves characters until the scan ends (LIZ_OK) or the next one does not fit (LIZ_END);
// the scan stands behind the last one that was written.
std::uint32_t transfer(const kulang &lang, sink &to, lizg &from, std::int32_t option);
std::uint32_t finish(sink &to, std::uint32_t status); // ends the text; closing bytes written

inline bool is_copy_option(std::int32_t option)
{
    return option >= LIZ_COPY && option <= LIZ_UPPER;
}

inline bool is_representation(std::int32_t rep) { return rep >= LIZ_WIDE && rep <= LIZ_CURSOR; }

// Stores a result that the caller may not want.
template <typename T> void give(T *wanted, T value)
{
    if (wanted != nullptr) *wanted = value;
}

} // namespace ku::liz

#endif
