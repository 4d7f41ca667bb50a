// lizc.cpp - character classes: thirteen masks over one test
//
// Every member asks for any of some bits in the class word of a text's first
// character. Only lizcblank has a rule of its own: in single-byte languages it
// is the blank and nothing else.
#include "lizc.h"

#include "liz_internal.h"

namespace locale = ku::locale;

namespace
{

constexpr std::uint16_t lizc_alnum = KULANG_LETTER | KULANG_DIGIT;
constexpr std::uint16_t lizc_graph = lizc_alnum | KULANG_PUNCT;
constexpr std::uint16_t lizc_print = lizc_graph | KULANG_BLANK;

// First byte of a text that has one: the byte itself, or the one a cursor stands on.
unsigned char lizcbyte(const void *str, int32_t rep)
{
    if (rep == LIZ_CURSOR) return locale::current(*static_cast<const kucursor *>(str));
    return *static_cast<const unsigned char *>(str);
}

std::uint16_t lizcwide(const kulang &lang, const void *str, uint32_t length)
{
    std::uint32_t value;
    if (locale::table_mapped(lang)) return locale::byte_classes(lang, lizcbyte(str, LIZ_WIDE));
    if (length < sizeof value) return 0;
    std::memcpy(&value, str, sizeof value);
    return locale::wide_classes(lang, value);
}

std::uint16_t lizccursor(const kulang &lang, const kucursor &cursor)
{
    if (locale::past_size(cursor)) return 0;
    if (locale::is_single(cursor)) return locale::byte_classes(lang, locale::current(cursor));
    return locale::classes(cursor);
}

// Class word of the first character.
std::uint16_t lizcword(const kulang &lang, const void *str, uint32_t length, int32_t rep)
{
    if (length == 0) return 0;
    if (rep == LIZ_CURSOR && locale::past_size(*static_cast<const kucursor *>(str))) return 0;
    if (locale::single_byte(lang)) return locale::byte_classes(lang, lizcbyte(str, rep));
    if (rep == LIZ_WIDE) return lizcwide(lang, str, length);
    if (!ku::liz::is_representation(rep)) return 0;
    lizg scan;
    ku::liz::open_scan(lang, scan, ku::liz::as_given(str, length, rep));
    return lizccursor(lang, scan.osctx_lizg);
}

} // namespace

#define LIZC_MEMBER(name, mask)                                                                    \
    int32_t name(const kulang *lh, kulocglo *, const void *str, uint32_t length, int32_t rep)      \
    {                                                                                              \
        return (lizcword(*lh, str, length, rep) & (mask)) != 0;                                    \
    }

LIZC_MEMBER(lizcletter, KULANG_LETTER)
LIZC_MEMBER(lizcalpha, KULANG_LETTER)
LIZC_MEMBER(lizcalnum, lizc_alnum)
LIZC_MEMBER(lizccntrl, KULANG_CNTRL)
LIZC_MEMBER(lizcdigit, KULANG_DIGIT)
LIZC_MEMBER(lizcgraph, lizc_graph)
LIZC_MEMBER(lizclower, KULANG_LOWER)
LIZC_MEMBER(lizcprint, lizc_print)
LIZC_MEMBER(lizcpunct, KULANG_PUNCT)
LIZC_MEMBER(lizcspace, KULANG_SPACE)
LIZC_MEMBER(lizcupper, KULANG_UPPER)
LIZC_MEMBER(lizcxdigit, KULANG_XDIGIT)

int32_t lizcblank(const kulang *lh, kulocglo *glo, const void *str, uint32_t length, int32_t rep)
{
    if (!locale::single_byte(*lh)) return lizcspace(lh, glo, str, length, rep);
    return length != 0 && lizcbyte(str, rep) == ' ';
}
