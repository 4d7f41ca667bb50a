// lizs.cpp - concatenation of texts
//
// Bytes and wide units are copied straight behind the target's end. Multibyte
// targets of other languages may end in a shifted run that the source goes on
// with, so the source is converted into a temporary first and the locale layer
// joins the two, by byte count: four-byte characters fill the temporary to its
// last byte, without a NUL.
#include "lizs.h"

#include "liz_internal.h"
#include "lizu.h"

namespace locale = ku::locale;
using namespace ku::liz;

namespace
{

constexpr lizm lizsdefault = {lizualloc, lizurealloc, lizufree};

// A target known to have room for `length` bytes and a terminating unit.
std::uint32_t lizsroom(std::uint32_t length)
{
    return length > UINT32_MAX - sizeof(std::uint32_t) ? UINT32_MAX
                                                       : length + sizeof(std::uint32_t);
}

unsigned char *lizsstart(void *target, int32_t trep)
{
    if (trep == LIZ_CURSOR) return static_cast<const kucursor *>(target)->start_kucursor;
    return static_cast<unsigned char *>(target);
}

uint32_t lizsbytes(const kulang &lang, void *target, int32_t trep, const text &source,
                   int32_t option)
{
    unsigned char *start = lizsstart(target, trep);
    const std::uint32_t end = bytes_to_nul(as_given(start, KU_NTS, LIZ_MULTIBYTE)).length;
    const byte_run from = bytes_of(source);
    const outcome done =
        copy_bytes(lang, start + end, lizsroom(from.length), from.bytes, from.length, option);
    if (trep == LIZ_CURSOR) reopen(lang, target, std::size_t{end} + done.written);
    return done.status;
}

// A wide source is measured first: it may be the target itself. Bytes must not be,
// because what their NUL cuts off is characters, what a length cuts off is none.
uint32_t lizswide(const kulang &lang, void *target, const text &source, int32_t option)
{
    const std::uint32_t end = measure(lang, as_given(target, KU_NTS, LIZ_WIDE)).bytes;
    const text from = source.rep == LIZ_WIDE
                          ? exactly(source.bytes, measure(lang, source).bytes, LIZ_WIDE)
                          : source;
    return convert(lang, static_cast<unsigned char *>(target) + end, UINT32_MAX, LIZ_WIDE, from,
                   option)
        .status;
}

// Shift bytes that the copy of a source has besides the source's own: before a
// cursor inside a shifted run, and behind a run that the source leaves open.
std::uint32_t lizsshifts(const kulang &lang, const text &source)
{
    const bool inside = source.rep == LIZ_CURSOR
                        && static_cast<const kucursor *>(source.bytes)->shifted_kucursor != 0;
    return lang.shiftsensitive_kulang == 0 || source.rep == LIZ_WIDE ? 0 : inside ? 2 : 1;
}

uint32_t lizsjoin(const kulang &lang, kulocglo *glo, void *target, int32_t trep, const text &source,
                  int32_t option, const lizm &manager)
{
    std::uint32_t size = 0;
    lizm2(&lang, glo, source.bytes, KU_NTS, source.rep, LIZ_MULTIBYTE, &size);
    size += lizsshifts(lang, source);
    void *converted = manager.alloc_lizm(size);
    if (converted == nullptr) return LIZ_NOMEMORY;

    const outcome done = convert(lang, converted, size, LIZ_MULTIBYTE, source, option);
    char *start = reinterpret_cast<char *>(lizsstart(target, trep));
    const std::size_t length =
        locale::concatenate(lang, start, converted, std::size_t{done.written} + done.closed);
    if (trep == LIZ_CURSOR) reopen(lang, target, length);
    manager.free_lizm(converted);
    return done.status;
}

} // namespace

uint32_t lizscat(const kulang *lh, kulocglo *glo, void *target, int32_t trep, const void *source,
                 int32_t srep, int32_t option, const lizm *manager)
{
    if (!is_representation(trep) || !is_representation(srep)) return LIZ_OK;
    const text from = as_given(source, KU_NTS, srep);
    if (locale::single_byte(*lh)) return lizsbytes(*lh, target, trep, from, option);
    if (trep == LIZ_WIDE) return lizswide(*lh, target, from, option);
    return lizsjoin(*lh, glo, target, trep, from, option,
                    manager != nullptr ? *manager : lizsdefault);
}
