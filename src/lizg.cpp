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
// the one character. A cursor that has passed nothing but shift bytes stands for
// its whole text: it is counted, and limited, from its start.
//
// Matching two texts of bytes passes over what they have in common in bulk.
#include "lizg.h"

#include "liz_internal.h"

namespace ku::liz
{

namespace
{

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

// Where a scan of a cursor begins: at the start when only shift bytes lie before it.
const unsigned char *origin(const kucursor &cursor)
{
    const unsigned char *at = cursor.position_kucursor;
    const kulang &lang = *cursor.lang_kucursor;
    if (lang.shiftsensitive_kulang == 0) return at;
    while (at != cursor.start_kucursor
           && (at[-1] == lang.shiftout_kulang || at[-1] == lang.shiftin_kulang))
        at--;
    return at == cursor.start_kucursor ? at : cursor.position_kucursor;
}

// Bounds a cursor to `limit` bytes from where its scan begins.
void bound(kucursor &cursor, std::size_t limit)
{
    const auto passed = static_cast<std::size_t>(origin(cursor) - cursor.start_kucursor);
    const std::size_t left = cursor.size_kucursor > passed ? cursor.size_kucursor - passed : 0;
    cursor.size_kucursor = passed + std::min(left, limit);
    if (locale::offset(cursor) == passed) return;
    const auto mode = static_cast<locale::cursor_mode>(cursor.mode_kucursor);
    locale::open_exact(&cursor, cursor.start_kucursor, cursor.size_kucursor, cursor.lang_kucursor,
                       mode);
}

std::uint32_t next_character(lizg &scan)
{
    kucursor &cursor = scan.osctx_lizg;
    const unsigned char *before = scan.lcnum_lizg < 0 ? origin(cursor) : cursor.position_kucursor;
    const std::uint32_t value = locale::next(cursor);
    if (value == 0) return 0;
    scan.boffset_lizg += static_cast<std::uint32_t>(cursor.position_kucursor - before);
    scan.lcnum_lizg++;
    return value;
}

// Bytes without shift states: characters can be passed by moving the position.
bool plain_bytes(const kulang &lang, const lizg &scan)
{
    return (scan.rep_lizg == LIZ_MULTIBYTE || scan.rep_lizg == LIZ_CURSOR)
           && lang.shiftsensitive_kulang == 0;
}

std::size_t bytes_left(const kucursor &cursor)
{
    const std::size_t passed = locale::offset(cursor);
    return cursor.size_kucursor > passed ? cursor.size_kucursor - passed : 0;
}

void pass(lizg &scan, std::size_t bytes, std::size_t characters)
{
    scan.osctx_lizg.position_kucursor += bytes;
    scan.boffset_lizg += static_cast<std::uint32_t>(bytes);
    scan.lcnum_lizg += static_cast<std::int32_t>(characters);
}

// What two scans of bytes have in common, as far as it goes in bulk.
void pass_common(const kulang &lang, lizg &first, lizg &second, std::int32_t option)
{
    const kucursor &a = first.osctx_lizg;
    const kucursor &b = second.osctx_lizg;
    const locale::common same =
        locale::pass_common(lang, a.position_kucursor, bytes_left(a), b.position_kucursor,
                            bytes_left(b), option == LIZ_NOCASE);
    pass(first, same.a_bytes, same.characters);
    pass(second, same.b_bytes, same.characters);
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
        bound(cursor, given.limit);
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
    // One scan given twice is read in turns, which only single steps do.
    const bool in_bulk = &first != &second && plain_bytes(lang, first) && plain_bytes(lang, second);
    for (;;) {
        if (in_bulk) pass_common(lang, first, second, option);
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
