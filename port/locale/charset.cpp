// charset.cpp - the character sets: byte tables, encoding
//
// Each set is one constant record: what every byte is, case of the bytes that
// are characters by themselves, and how characters are decoded. ASCII and UTF-8
// are known at compile time; the others are filled at first use, because what
// their upper halves are is the C library's to say.
#include "charset_internal.h"

#include <cstring>

namespace ku::locale
{

namespace
{

constexpr std::uint16_t ascii_class(unsigned b)
{
    const bool digit = b >= '0' && b <= '9', upper = b >= 'A' && b <= 'Z',
               lower = b >= 'a' && b <= 'z';
    const bool hexadecimal = digit || (b >= 'A' && b <= 'F') || (b >= 'a' && b <= 'f');
    unsigned found = hexadecimal ? KULANG_XDIGIT : 0;
    if (b >= 0x80) return 0;
    if (digit) found |= KULANG_DIGIT;
    if (upper) found |= KULANG_UPPER | KULANG_LETTER;
    if (lower) found |= KULANG_LOWER | KULANG_LETTER;
    if (b == ' ') found |= KULANG_SPACE | KULANG_BLANK;
    if (b >= '\t' && b <= '\r') found |= KULANG_SPACE;
    if (b < ' ' || b == 0x7F) found |= KULANG_CNTRL;
    if (found == 0) found = KULANG_PUNCT;
    return static_cast<std::uint16_t>(found);
}

// A set of which only the ASCII half is filled.
constexpr kucharset ascii_half(std::uint8_t kind, std::uint8_t maxwidth)
{
    kucharset set = {};
    set.kind_kucharset = kind;
    set.maxwidth_kucharset = maxwidth;
    set.expansion_kucharset = 1;
    for (unsigned b = 0; b < 256; b++) {
        const bool upper = b >= 'A' && b <= 'Z', lower = b >= 'a' && b <= 'z';
        set.plain_kucharset[b] = b != 0 && b < 0x80;
        set.classes_kucharset[b] = ascii_class(b);
        set.upper_kucharset[b] = static_cast<std::uint8_t>(lower ? b - 0x20 : b);
        set.lower_kucharset[b] = static_cast<std::uint8_t>(upper ? b + 0x20 : b);
        set.fold_kucharset[b] = set.upper_kucharset[b];
    }
    return set;
}

constexpr void mark_leads(kucharset &set, unsigned first, unsigned last, std::uint16_t further)
{
    for (unsigned b = first; b <= last; b++) set.classes_kucharset[b] = further;
}

constexpr kucharset make_ascii()
{
    kucharset set = ascii_half(kind_bytes, 1);
    for (unsigned b = 0x80; b < 256; b++) set.plain_kucharset[b] = 1;
    return set;
}

// Simple mappings grow at most from two bytes to three.
constexpr kucharset make_utf8()
{
    kucharset set = ascii_half(kind_utf8, 4);
    set.expansion_kucharset = 2;
    mark_leads(set, 0xC2, 0xDF, 1);
    mark_leads(set, 0xE0, 0xEF, 2);
    mark_leads(set, 0xF0, 0xF4, 3);
    return set;
}

constexpr kucharset ascii_set = make_ascii();
constexpr kucharset utf8 = make_utf8();

// ---- single-byte sets with an upper half ----

// Where a set differs from ISO 8859-1. Code 0: the byte stands for nothing.
struct difference {
    std::uint8_t at;
    std::uint16_t code;
};

constexpr difference latin9_differences[] = {
    {0xA4, 0x20AC}, {0xA6, 0x0160}, {0xA8, 0x0161}, {0xB4, 0x017D},
    {0xB8, 0x017E}, {0xBC, 0x0152}, {0xBD, 0x0153}, {0xBE, 0x0178},
};

constexpr difference windows1252_differences[] = {
    {0x80, 0x20AC}, {0x81, 0},      {0x82, 0x201A}, {0x83, 0x0192}, {0x84, 0x201E}, {0x85, 0x2026},
    {0x86, 0x2020}, {0x87, 0x2021}, {0x88, 0x02C6}, {0x89, 0x2030}, {0x8A, 0x0160}, {0x8B, 0x2039},
    {0x8C, 0x0152}, {0x8D, 0},      {0x8E, 0x017D}, {0x8F, 0},      {0x90, 0},      {0x91, 0x2018},
    {0x92, 0x2019}, {0x93, 0x201C}, {0x94, 0x201D}, {0x95, 0x2022}, {0x96, 0x2013}, {0x97, 0x2014},
    {0x98, 0x02DC}, {0x99, 0x2122}, {0x9A, 0x0161}, {0x9B, 0x203A}, {0x9C, 0x0153}, {0x9D, 0},
    {0x9E, 0x017E}, {0x9F, 0x0178},
};

// The byte of a code point above ASCII, or `otherwise` when the set does not have it.
std::uint8_t byte_of(const std::uint16_t (&codes)[256], std::uint32_t code, unsigned otherwise)
{
    for (unsigned b = 0x80; b < 256; b++) {
        if (codes[b] == code) return static_cast<std::uint8_t>(b);
    }
    return static_cast<std::uint8_t>(otherwise);
}

kucharset make_single(const difference *differences, std::size_t count)
{
    std::uint16_t codes[256];
    for (unsigned b = 0; b < 256; b++) codes[b] = static_cast<std::uint16_t>(b);
    for (std::size_t i = 0; i < count; i++) codes[differences[i].at] = differences[i].code;

    traits known[256];
    ask_traits(codes, 256, known);
    kucharset set = make_ascii();
    for (unsigned b = 0x80; b < 256; b++) {
        if (codes[b] == 0) continue;
        set.classes_kucharset[b] = known[b].classes;
        set.upper_kucharset[b] = byte_of(codes, codes[b] + known[b].upper, b);
        set.lower_kucharset[b] = byte_of(codes, codes[b] + known[b].lower, b);
    }
    for (unsigned b = 0; b < 256; b++) {
        set.fold_kucharset[b] = set.upper_kucharset[set.lower_kucharset[b]];
    }
    return set;
}

// ---- double-byte sets ----

kucharset make_sjis()
{
    constexpr unsigned first = 0xA1, count = 63; // half-width katakana: U+FF61 and on
    std::uint16_t codes[count];
    for (unsigned i = 0; i < count; i++) codes[i] = static_cast<std::uint16_t>(0xFF61 + i);
    traits known[count];
    ask_traits(codes, count, known);

    kucharset set = ascii_half(kind_sjis, 2);
    for (unsigned i = 0; i < count; i++) {
        set.plain_kucharset[first + i] = 1;
        set.classes_kucharset[first + i] = known[i].classes;
    }
    mark_leads(set, 0x81, 0x9F, 1);
    mark_leads(set, 0xE0, 0xFC, 1);
    return set;
}

kucharset make_eucjp()
{
    kucharset set = ascii_half(kind_eucjp, 3);
    mark_leads(set, eucjp_set::kana, eucjp_set::kana, 1);
    mark_leads(set, eucjp_set::extra, eucjp_set::extra, 2);
    mark_leads(set, 0xA1, 0xFE, 1);
    return set;
}

kucharset make_shifted()
{
    kucharset set = ascii_half(kind_shifted, 2);
    std::memset(set.plain_kucharset, 0, sizeof set.plain_kucharset);
    set.shifted_kucharset = true;
    return set;
}

} // namespace

const kucharset &ascii_charset() { return ascii_set; }
const kucharset &utf8_charset() { return utf8; }

const kucharset &latin1_charset()
{
    static const kucharset set = make_single(nullptr, 0);
    return set;
}

const kucharset &latin9_charset()
{
    static const kucharset set =
        make_single(latin9_differences, sizeof latin9_differences / sizeof(difference));
    return set;
}

const kucharset &windows1252_charset()
{
    static const kucharset set =
        make_single(windows1252_differences, sizeof windows1252_differences / sizeof(difference));
    return set;
}

const kucharset &sjis_charset()
{
    static const kucharset set = make_sjis();
    return set;
}

const kucharset &eucjp_charset()
{
    static const kucharset set = make_eucjp();
    return set;
}

const kucharset &shifted_charset()
{
    static const kucharset set = make_shifted();
    return set;
}

// ---- encoding ----

namespace
{

// The value's bytes, highest first, as many as it needs.
std::uint32_t big_endian(std::uint32_t value, byte *to)
{
    const std::uint32_t width = value < 0x100 ? 1 : value < 0x10000 ? 2 : 3;
    for (std::uint32_t i = 0; i < width; i++) {
        to[i] = static_cast<byte>(value >> 8 * (width - 1 - i));
    }
    return width;
}

} // namespace

std::uint32_t encode(const kucharset &set, std::uint32_t value, byte *to)
{
    if (value == 0 || value == KULANG_RAWBYTE) return 0;
    if (is_raw(value)) {
        to[0] = static_cast<byte>(value);
        return value - KULANG_RAWBYTE < 0x100 ? 1 : 0;
    }
    if (set.kind_kucharset == kind_utf8) {
        const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
        return surrogate || value > 0x10FFFF ? 0 : encode_utf8(value, to);
    }
    if (value >= 0x1000000) return 0;
    const std::uint32_t width = big_endian(value, to);
    const bool pair = set.shifted_kucharset && width > 1;
    if (set.shifted_kucharset && width == 1 && is_shift(to[0])) return 0;
    const character back = decode(set.kind_kucharset, to, width, pair);
    return back.width == width && back.value == value ? width : 0;
}

} // namespace ku::locale
