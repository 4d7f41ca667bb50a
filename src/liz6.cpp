// liz6.cpp - byte-wise copy and comparison, for single-byte languages
//
// A byte is a character here, so case conversion keeps the length and works in
// place: the bytes are moved first (source and target may overlap) and
// converted where they then stand.
#include "liz6.h"

#include "liz_internal.h"

namespace ku::liz
{

byte_run bytes_to_nul(const text &given)
{
    const auto *bytes = static_cast<const unsigned char *>(given.bytes);
    std::size_t limit = std::min<std::size_t>(given.limit, PTRDIFF_MAX); // no text is longer
    if (given.rep == LIZ_CURSOR) {
        const auto *cursor = static_cast<const kucursor *>(given.bytes);
        bytes = cursor->start_kucursor;
        limit = std::min(limit, cursor->size_kucursor);
    }
    if (limit == 0 || bytes == nullptr) return {bytes, 0};
    const auto *nul = static_cast<const unsigned char *>(std::memchr(bytes, 0, limit));
    return {bytes, static_cast<std::uint32_t>(nul != nullptr ? nul - bytes : limit)};
}

byte_run bytes_of(const text &given)
{
    if (given.terminated) return bytes_to_nul(given);
    if (given.rep != LIZ_CURSOR)
        return {static_cast<const unsigned char *>(given.bytes), given.limit};
    const auto *cursor = static_cast<const kucursor *>(given.bytes);
    const std::size_t limit = std::min<std::size_t>(given.limit, cursor->size_kucursor);
    return {cursor->start_kucursor, static_cast<std::uint32_t>(limit)};
}

outcome copy_bytes(const kulang &lang, void *target, std::uint32_t room, const void *source,
                   std::uint32_t n, std::int32_t option)
{
    const std::uint32_t count = std::min(n, room);
    if (count != 0 && target != source && is_copy_option(option))
        std::memmove(target, source, count);
    switch (option) {
    case LIZ_CAPITALS: locale::bytes_capitals(lang, target, target, count); break;
    case LIZ_LOWER: locale::bytes_lower(lang, target, target, count); break;
    case LIZ_UPPER: locale::bytes_upper(lang, target, target, count); break;
    default: break;
    }
    if (count < room) static_cast<unsigned char *>(target)[count] = 0;
    return {n > room ? LIZ_END : LIZ_OK, count, 0};
}

std::int32_t compare_bytes(const kulang &lang, const void *a, const void *b, std::uint32_t n,
                           std::int32_t option)
{
    if (a == nullptr) return LIZ_LESS; // even than null
    if (b == nullptr) return LIZ_GREATER;
    const int order = option == LIZ_BINARY ? locale::bytes_compare(a, b, n)
                                           : locale::bytes_compare_nocase(lang, a, b, n);
    return order == 0 ? LIZ_EQUAL : order < 0 ? LIZ_LESS : LIZ_GREATER;
}

} // namespace ku::liz

using namespace ku::liz;

uint32_t liz6copy(const kulang *lh, kulocglo *, void *target, uint32_t tsize, const void *source,
                  uint32_t slen, int32_t option, uint32_t *written)
{
    const byte_run from = bytes_of(as_given(source, slen, LIZ_MULTIBYTE));
    const outcome done = copy_bytes(*lh, target, tsize, from.bytes, from.length, option);
    give(written, done.written);
    return done.status;
}

uint32_t liz6comp(const kulang *lh, kulocglo *, const void *a, const void *b, uint32_t n,
                  int32_t option, int32_t *res)
{
    if (n == KU_NTS && a != nullptr && b != nullptr) {
        const std::uint32_t length = bytes_of(as_given(a, n, LIZ_MULTIBYTE)).length;
        n = bytes_to_nul(exactly(b, length, LIZ_MULTIBYTE)).length;
    }
    give(res, compare_bytes(*lh, a, b, n, option));
    return LIZ_OK;
}
