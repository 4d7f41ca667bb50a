// lizg.cpp - scan context: one reader for three representations
//
// Wide texts are read by units at boffset_lizg; multibyte texts and cursors
// through a copy of a cursor whose size is the nearer of its own end and the
// length given. So the cursor holds the bound for every representation, and
// slen_lizg only repeats what the caller said: 65535 bytes and "to the NUL"
// need no second look.
//
// Shift bytes belong to no character: the cursor absorbs them when it is opened
// and after each step, and boffset_lizg counts them. For SO x y SI it is 4 after
// the one character.
//
// Matching runs eight ASCII bytes at a time where both sides have them.
#include "lizg.h"

#include "liz_internal.h"

namespace locale = ku::locale;

namespace ku::liz
{

namespace
{

constexpr std::uint64_t high_bits = 0x8080808080808080u;
constexpr std::uint64_t low_bits = 0x0101010101010101u;
constexpr std::uint32_t word_bytes = 8;

std::uint32_t next_unit(const kulang &lang, lizg &scan)
{
    const std::uint32_t unit = locale::single_byte(lang) ? 1 : sizeof(std::uint32_t);
    const std::size_t limit = scan.osctx_lizg.size_kucursor;
    if (limit < unit || scan.boffset_lizg > limit - unit) return 0;

    const auto *at = static_cast<const unsigned char *>(scan.str_lizg) + scan.boffset_lizg;
    std::uint32_t value = *at;
    if (unit != 1) std::memcpy(&value, at, unit);
    if (value == 0) return 0;
    scan.boffset_lizg += unit;
    scan.lcnum_lizg++;
    return value;
}

// Where the byte count of the next character begins: at the shift bytes before the
// first one too, though the cursor has passed them.
const unsigned char *count_from(const lizg &scan)
{
    const kucursor &cursor = scan.osctx_lizg;
    if (scan.lcnum_lizg >= 0) return cursor.position_kucursor;
    if (scan.rep_lizg == LIZ_MULTIBYTE) return cursor.start_kucursor;
    const bool opened = cursor.shifted_kucursor != 0 && locale::offset(cursor) != 0
                        && cursor.position_kucursor[-1] == cursor.lang_kucursor->shiftout_kulang;
    return cursor.position_kucursor - (opened ? 1 : 0);
}

std::uint32_t next_character(lizg &scan)
{
    kucursor &cursor = scan.osctx_lizg;
    const unsigned char *before = count_from(scan);
    const std::uint32_t value = locale::next(cursor);
    if (value == 0) return 0;
    scan.boffset_lizg += static_cast<std::uint32_t>(cursor.position_kucursor - before);
    scan.lcnum_lizg++;
    return value;
}

// Lower case of the ASCII capitals among eight ASCII bytes.
std::uint64_t ascii_lower(std::uint64_t word)
{
    const std::uint64_t from_a = word + low_bits * (0x80 - 'A');
    const std::uint64_t past_z = word + low_bits * (0x80 - 'Z' - 1);
    return word | (((from_a & ~past_z) & high_bits) >> 2);
}

// Bytes that may be looked at beyond the next character: their length was given.
bool plain_bytes(const kulang &lang, const lizg &scan)
{
    return scan.slen_lizg != KU_NTS
           && (scan.rep_lizg == LIZ_MULTIBYTE || scan.rep_lizg == LIZ_CURSOR)
           && lang.shiftsensitive_kulang == 0;
}

// Eight bytes at the scan's place, all ASCII and none NUL; false when there are not.
bool ascii_word(const lizg &scan, std::uint64_t &word)
{
    const kucursor &cursor = scan.osctx_lizg;
    if (cursor.size_kucursor - locale::offset(cursor) < word_bytes) return false;
    std::memcpy(&word, cursor.position_kucursor, word_bytes);
    return ((word | (word - low_bits)) & high_bits) == 0;
}

void pass_ascii(lizg &scan, std::uint32_t bytes)
{
    scan.osctx_lizg.position_kucursor += bytes;
    scan.boffset_lizg += bytes;
    scan.lcnum_lizg += static_cast<std::int32_t>(bytes);
}

} // namespace

void open_scan(const kulang &lang, lizg &scan, const text &given)
{
    scan = lizg{};
    scan.rep_lizg = given.rep;
    scan.lcnum_lizg = -1;
    scan.str_lizg = given.bytes;
    scan.slen_lizg = given.terminated ? KU_NTS : given.limit;
    kucursor &cursor = scan.osctx_lizg;
    if (given.rep == LIZ_MULTIBYTE) {
        locale::open_exact(&cursor, const_cast<void *>(given.bytes), given.limit, &lang,
                           locale::cursor_mode::read);
    } else if (given.rep == LIZ_CURSOR) {
        cursor = *static_cast<const kucursor *>(given.bytes);
        const auto offset = static_cast<std::size_t>(count_from(scan) - cursor.start_kucursor);
        if (cursor.size_kucursor > offset && cursor.size_kucursor - offset > given.limit)
            cursor.size_kucursor = offset + given.limit;
    } else {
        cursor.size_kucursor = given.limit;
    }
}

std::uint32_t next(const kulang &lang, lizg &scan)
{
    if (scan.rep_lizg == LIZ_WIDE) return next_unit(lang, scan);
    if (scan.rep_lizg == LIZ_MULTIBYTE || scan.rep_lizg == LIZ_CURSOR) return next_character(scan);
    return 0;
}

bool skip(const kulang &lang, lizg &scan, std::uint32_t characters)
{
    for (; characters > 0; characters--)
        if (next(lang, scan) == 0) return false;
    return true;
}

int compare_values(const kulang &lang, std::uint32_t a, std::uint32_t b, std::int32_t option)
{
    if (a == b) return 0;
    if (option != LIZ_NOCASE) return a < b ? -1 : 1;
    if (locale::table_mapped(lang))
        return lang.upper_kulang[a & 0xFF] - lang.upper_kulang[b & 0xFF];
    return locale::wide_compare_nocase(lang, a, b);
}

verdict match(const kulang &lang, lizg &first, lizg &second, std::int32_t option)
{
    const bool by_words = plain_bytes(lang, first) && plain_bytes(lang, second);
    const bool fold = option == LIZ_NOCASE;
    for (;;) {
        std::uint64_t aword;
        std::uint64_t bword;
        while (by_words && ascii_word(first, aword) && ascii_word(second, bword)
               && (aword == bword || (fold && ascii_lower(aword) == ascii_lower(bword)))) {
            pass_ascii(first, word_bytes);
            pass_ascii(second, word_bytes);
        }
        const std::uint32_t a = next(lang, first);
        const std::uint32_t b = next(lang, second);
        if (b == 0) return {a == 0 ? LIZ_EQUAL : LIZ_GREATER, 1};
        if (a == 0) return {LIZ_LESS, 0};
        const int order = compare_values(lang, a, b, option);
        if (order != 0) return {order < 0 ? LIZ_LESS : LIZ_GREATER, 0};
    }
}

} // namespace ku::liz

using namespace ku::liz;

uint32_t lizginit(const kulang *lh, kulocglo *, lizg *scan, const void *str, uint32_t slen,
                  int32_t rep, uint32_t characters)
{
    open_scan(*lh, *scan, as_given(str, slen, rep));
    return skip(*lh, *scan, characters) ? LIZ_OK : LIZ_END;
}

uint32_t lizggnc(const kulang *lh, kulocglo *, lizg *scan, uint32_t *value)
{
    const std::uint32_t character = next(*lh, *scan);
    give(value, character);
    return character == 0 ? LIZ_END : LIZ_OK;
}

uint32_t lizgmatch(const kulang *lh, kulocglo *, lizg *first, lizg *second, int32_t rdonly,
                   int32_t option, int32_t *lex, int32_t *prefix)
{
    lizg first_copy = *first;
    lizg second_copy = *second;
    const verdict found = rdonly == 1 ? match(*lh, first_copy, second_copy, option)
                                      : match(*lh, *first, *second, option);
    give(lex, found.order);
    give(prefix, found.prefix);
    return LIZ_OK;
}
