// lizm.cpp - length, copy, comparison and search of texts
//
// Every operation has two lives. In a single-byte language a character is a
// byte: the text is resolved to a run of bytes (bytes_of: a cursor's from its
// start) and the byte-wise operations do the rest. Elsewhere a scan context
// reads characters, except where the locale layer can do a whole text at once.
//
// The two differ where they must: a proper prefix compares equal byte-wise (only
// the shorter length is compared) but less by characters, and an explicit length
// covers NULs byte-wise but ends at one by characters.
#include "lizm.h"

#include <string_view>

#include "liz_internal.h"

namespace locale = ku::locale;

namespace ku::liz
{

namespace
{

std::uint32_t saturated(std::uint64_t bytes)
{
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, UINT32_MAX));
}

// A text that the locale layer can measure by itself: bytes read from their start.
bool is_measurable(const kulang &lang, const text &given)
{
    return given.rep == LIZ_MULTIBYTE
           || (given.rep == LIZ_CURSOR && lang.shiftsensitive_kulang == 0);
}

} // namespace

extent measure(const kulang &lang, const text &given)
{
    if (locale::single_byte(lang)) {
        const std::uint32_t bytes = bytes_to_nul(given).length;
        return {bytes, bytes};
    }
    lizg scan;
    open_scan(lang, scan, given);
    if (is_measurable(lang, given)) {
        const kucursor &cursor = scan.osctx_lizg;
        const unsigned char *from =
            given.rep == LIZ_MULTIBYTE ? cursor.start_kucursor : cursor.position_kucursor;
        const std::size_t limit =
            cursor.size_kucursor - static_cast<std::size_t>(from - cursor.start_kucursor);
        const locale::extent whole = locale::measure(lang, from, limit);
        if (whole.characters == 0) return {0, 0}; // shift bytes alone are no text
        return {saturated(whole.bytes), saturated(whole.characters)};
    }
    std::uint32_t characters = 0;
    while (next(lang, scan) != 0) characters++;
    return {scan.boffset_lizg, characters};
}

outcome copy(const kulang &lang, void *target, std::uint32_t room, std::int32_t trep,
             const text &source, std::int32_t option)
{
    if (!is_representation(trep) || !is_representation(source.rep)) return {LIZ_OK, 0, 0};
    const outcome done = convert(lang, target, room, trep, source, option);
    if (trep == LIZ_CURSOR && locale::single_byte(lang)) reopen(lang, target, done.written);
    return done;
}

std::int32_t compare(const kulang &lang, const text &a, const text &b, std::int32_t option)
{
    if (locale::single_byte(lang)) {
        const byte_run first = bytes_of(a);
        const byte_run second = bytes_of(b);
        if (first.length == 0 && second.length != 0) return LIZ_LESS;
        if (first.length != 0 && second.length == 0) return LIZ_GREATER;
        const std::uint32_t common = std::min(first.length, second.length);
        return compare_bytes(lang, first.bytes, second.bytes, common, option);
    }
    lizg first;
    lizg second;
    open_scan(lang, first, a);
    open_scan(lang, second, b);
    return match(lang, first, second, option).order;
}

} // namespace ku::liz

using namespace ku::liz;

uint32_t lizmblen(const kulang *lh, kulocglo *, const void *str, uint32_t limit, int32_t rep,
                  uint32_t *length)
{
    give(length, measure(*lh, as_given(str, limit, rep)).bytes);
    return LIZ_OK;
}

uint32_t lizmllen(const kulang *lh, kulocglo *, const void *str, uint32_t limit, int32_t rep,
                  uint32_t *count)
{
    give(count, measure(*lh, as_given(str, limit, rep)).characters);
    return LIZ_OK;
}

uint32_t lizm2(const kulang *lh, kulocglo *, const void *str, uint32_t olen, int32_t orep,
               int32_t nrep, uint32_t *length)
{
    const text given = as_given(str, olen, orep);
    const std::uint64_t bytes = given.terminated ? measure(*lh, given).bytes : olen;
    const bool known = is_representation(orep) && is_representation(nrep);
    std::uint64_t needed = bytes;
    if (!locale::single_byte(*lh)) {
        if (!known || orep == nrep)
            needed = bytes + 1;
        else if (nrep == LIZ_WIDE)
            needed = bytes * sizeof(std::uint32_t);
    }
    give(length, saturated(needed));
    return LIZ_OK;
}

uint32_t lizmterminate(const kulang *lh, kulocglo *, void *target, int32_t rep, uint32_t written,
                       uint32_t tsize)
{
    const bool bytewise = locale::single_byte(*lh);
    if (!bytewise && rep != LIZ_WIDE) return LIZ_OK;
    const std::uint32_t unit = bytewise ? 1 : sizeof(std::uint32_t);
    if (tsize < unit || written > tsize - unit) return LIZ_END;
    if (rep == LIZ_CURSOR) target = static_cast<const kucursor *>(target)->start_kucursor;
    std::memset(static_cast<unsigned char *>(target) + written, 0, unit);
    return LIZ_OK;
}

uint32_t lizmcpy(const kulang *lh, kulocglo *, void *target, uint32_t tsize, int32_t trep,
                 const void *source, uint32_t slen, int32_t srep, int32_t option, uint32_t *written)
{
    const outcome done = copy(*lh, target, tsize, trep, as_given(source, slen, srep), option);
    give(written, done.written);
    return done.status;
}

uint32_t lizmcmp(const kulang *lh, kulocglo *, const void *a, uint32_t alen, int32_t arep,
                 const void *b, uint32_t blen, int32_t brep, int32_t option, int32_t *res)
{
    give(res, compare(*lh, as_given(a, alen, arep), as_given(b, blen, brep), option));
    return LIZ_OK;
}

namespace
{

struct lizmplace {
    bool found;
    std::uint32_t index;
    std::uint32_t boffset;
};

lizmplace lizmfindbytes(const kulang &lang, const byte_run &target, const byte_run &pattern,
                        std::int32_t option, std::uint32_t start)
{
    if (target.bytes == nullptr || pattern.bytes == nullptr) return {}; // unlike any text
    if (start > target.length || pattern.length > target.length - start) return {};
    const std::uint32_t last = target.length - pattern.length;
    if (option == LIZ_BINARY) {
        const auto view = [](const byte_run &run) {
            return std::string_view(reinterpret_cast<const char *>(run.bytes), run.length);
        };
        const std::size_t at = view(target).find(view(pattern), start);
        if (at == std::string_view::npos) return {};
        return {true, static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(at)};
    }
    for (std::uint32_t at = start; at <= last; at++)
        if (compare_bytes(lang, target.bytes + at, pattern.bytes, pattern.length, option)
            == LIZ_EQUAL)
            return {true, at, at};
    return {};
}

// Tries the pattern wherever its first character stands; the two scans behind
// that character are copied, so that neither moves.
lizmplace lizmfind(const kulang &lang, const text &target, const text &pattern, std::int32_t option,
                   std::uint32_t start)
{
    lizg here;
    lizg rest;
    open_scan(lang, here, target);
    if (!skip(lang, here, start)) return {};
    open_scan(lang, rest, pattern);
    const std::uint32_t initial = next(lang, rest);
    if (initial == 0) return {true, start, here.boffset_lizg};
    for (std::uint32_t at = start;; at++) {
        const std::uint32_t boffset = here.boffset_lizg;
        const std::uint32_t character = next(lang, here);
        if (character == 0) return {};
        if (compare_values(lang, character, initial, option) != 0) continue;
        lizg first = here;
        lizg second = rest;
        if (match(lang, first, second, option).prefix == 1) return {true, at, boffset};
    }
}

} // namespace

uint32_t lizmsearch(const kulang *lh, kulocglo *, const void *target, uint32_t tlen, int32_t trep,
                    const void *pattern, uint32_t plen, int32_t prep, int32_t option,
                    int32_t *found, uint32_t *index, uint32_t *boffset)
{
    const text in = as_given(target, tlen, trep);
    const text what = as_given(pattern, plen, prep);
    const std::uint32_t start = index != nullptr ? *index : 0;
    const lizmplace place = locale::single_byte(*lh)
                                ? lizmfindbytes(*lh, bytes_of(in), bytes_of(what), option, start)
                                : lizmfind(*lh, in, what, option, start);
    give(found, static_cast<int32_t>(place.found));
    give(boffset, place.boffset);
    if (place.found) give(index, place.index);
    return LIZ_OK;
}
