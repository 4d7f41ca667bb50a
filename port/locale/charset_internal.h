// charset_internal.h - decoding and encoding one character, and what is known of it
//
// Every scan of the layer goes through one decode per set. It looks at `left`
// bytes at most and at no byte after one that does not belong to the character,
// so it never passes a NUL or the end. Inlined into the bulk loops.
#ifndef PORT_LOCALE_CHARSET_INTERNAL_H
#define PORT_LOCALE_CHARSET_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "locale.h"

namespace ku::locale
{

using byte = unsigned char;

enum kind : std::uint8_t { kind_bytes, kind_utf8, kind_sjis, kind_eucjp, kind_shifted };

inline constexpr byte shift_out = 0x0E;
inline constexpr byte shift_in = 0x0F;
inline bool is_shift(byte b) { return b == shift_out || b == shift_in; }

// One decoded character. Width 0: what is left is the beginning of one.
struct character {
    std::uint32_t value;
    std::uint32_t width;
};

inline character raw(byte b) { return {KULANG_RAWBYTE + b, 1}; }
inline constexpr character cut = {0, 0};

inline bool is_raw(std::uint32_t value) { return value >= KULANG_RAWBYTE; }
inline bool within(byte b, byte low, byte high)
{
    return static_cast<byte>(b - low) <= static_cast<byte>(high - low);
}

// ---- the sets: decode(at, left >= 1); a NUL decodes as value 0, width 1 ----

struct utf8_set {
    static character decode(const byte *at, std::size_t left)
    {
        const byte lead = at[0];
        if (lead < 0x80) return {lead, 1};
        if (!within(lead, 0xC2, 0xF4)) return raw(lead);
        if (left < 2) return cut;
        const byte second = at[1];
        if (lead < 0xE0) {
            if (!within(second, 0x80, 0xBF)) return raw(lead);
            return {(lead & 0x1Fu) << 6 | (second & 0x3Fu), 2};
        }
        return decode_long(at, left);
    }

private:
    // Three and four bytes. The second byte's range shuts out overlong forms,
    // surrogates and what lies above U+10FFFF.
    static character decode_long(const byte *at, std::size_t left)
    {
        const byte lead = at[0], second = at[1];
        const byte low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const byte high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (!within(second, low, high)) return raw(lead);
        if (left < 3) return cut;
        if (!within(at[2], 0x80, 0xBF)) return raw(lead);
        const std::uint32_t value = (second & 0x3Fu) << 6 | (at[2] & 0x3Fu);
        if (lead < 0xF0) return {(lead & 0x0Fu) << 12 | value, 3};
        if (left < 4) return cut;
        if (!within(at[3], 0x80, 0xBF)) return raw(lead);
        return {(lead & 0x07u) << 18 | value << 6 | (at[3] & 0x3Fu), 4};
    }
};

struct sjis_set {
    static bool is_lead(byte b) { return within(b, 0x81, 0x9F) || within(b, 0xE0, 0xFC); }
    static bool is_trail(byte b) { return within(b, 0x40, 0xFC) && b != 0x7F; }

    static character decode(const byte *at, std::size_t left)
    {
        const byte lead = at[0];
        if (lead < 0x80 || within(lead, 0xA1, 0xDF)) return {lead, 1};
        if (!is_lead(lead)) return raw(lead);
        if (left < 2) return cut;
        if (!is_trail(at[1])) return raw(lead);
        return {lead * 256u + at[1], 2};
    }
};

struct eucjp_set {
    static constexpr byte kana = 0x8E;  // before one byte of half-width katakana
    static constexpr byte extra = 0x8F; // before two bytes of the supplementary set
    static bool is_half(byte b) { return within(b, 0xA1, 0xFE); }

    static character decode(const byte *at, std::size_t left)
    {
        const byte lead = at[0];
        if (lead < 0x80) return {lead, 1};
        if (!is_half(lead) && lead != kana && lead != extra) return raw(lead);
        if (left < 2) return cut;
        if (!within(at[1], 0xA1, lead == kana ? 0xDF : 0xFE)) return raw(lead);
        if (lead != extra) return {lead * 256u + at[1], 2};
        if (left < 3) return cut;
        if (!is_half(at[2])) return raw(lead);
        return {lead * 65536u + at[1] * 256u + at[2], 3};
    }
};

// Unshifted and shifted half of the shift-sensitive set; never at a shift byte.
struct shifted_set {
    static bool is_half(byte b) { return within(b, 0x21, 0x7E); }

    static character decode(const byte *at, std::size_t left, bool shifted)
    {
        if (!shifted) return at[0] < 0x80 ? character{at[0], 1} : raw(at[0]);
        if (!is_half(at[0])) return raw(at[0]);
        if (left < 2) return cut;
        if (!is_half(at[1])) return raw(at[0]);
        return {at[0] * 256u + at[1], 2};
    }
};

inline character decode(std::uint8_t kind, const byte *at, std::size_t left, bool shifted)
{
    switch (kind) {
    case kind_utf8: return utf8_set::decode(at, left);
    case kind_sjis: return sjis_set::decode(at, left);
    case kind_eucjp: return eucjp_set::decode(at, left);
    case kind_shifted: return shifted_set::decode(at, left, shifted);
    default: return {at[0], 1};
    }
}

// Bytes of a code point, 1 to 4 of them.
inline std::uint32_t encode_utf8(std::uint32_t value, byte *to)
{
    const auto tail = [value](int shift) {
        return static_cast<byte>(0x80 | (value >> shift & 0x3F));
    };
    if (value < 0x80) {
        to[0] = static_cast<byte>(value);
        return 1;
    }
    if (value < 0x800) {
        to[0] = static_cast<byte>(0xC0 | value >> 6);
        to[1] = tail(0);
        return 2;
    }
    if (value < 0x10000) {
        to[0] = static_cast<byte>(0xE0 | value >> 12);
        to[1] = tail(6);
        to[2] = tail(0);
        return 3;
    }
    to[0] = static_cast<byte>(0xF0 | value >> 18);
    to[1] = tail(12);
    to[2] = tail(6);
    to[3] = tail(0);
    return 4;
}

// Bytes of a value of any set, shift bytes not included; 0 when it has no
// character. `to` has room for 4.
std::uint32_t encode(const kucharset &set, std::uint32_t value, byte *to);

// ---- what is known of a wide value: case as a difference to add, classes ----

struct traits {
    std::uint32_t upper; // modulo 2^32
    std::uint32_t lower;
    std::uint32_t fold;
    std::uint16_t classes;
};

const traits &unicode_traits(std::uint32_t code); // of a code point, or of anything at all
const traits &traits_of(const kucharset &set, std::uint32_t value); // of a multibyte set's value

// U+0080 to U+07FF: the two bytes of upper and lower case as they lie in memory, 0
// where it has not two; the folded code point.
struct pair_tables {
    std::uint16_t upper[0x800], lower[0x800], fold[0x800];
};
const pair_tables &utf8_pairs();

// The same for a few code points without a table: asks the C library.
void ask_traits(const std::uint16_t *codes, std::size_t count, traits *found);

// ---- the sets themselves, each built at its first use ----

const kucharset &ascii_charset();
const kucharset &latin1_charset();
const kucharset &latin9_charset();
const kucharset &windows1252_charset();
const kucharset &utf8_charset();
const kucharset &sjis_charset();
const kucharset &eucjp_charset();
const kucharset &shifted_charset();

// The set that a locale's name, or a codeset alone, names; ASCII when it is unknown.
const kucharset &find_charset(const char *name);

// The order that an installed locale gives texts of a set; null: by character value.
const void *find_collation(const char *name, const kucharset &set);

} // namespace ku::locale

#endif
