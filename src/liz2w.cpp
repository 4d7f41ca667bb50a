// liz2w.cpp - converters into wide texts: the shared converter with both ends named
#include "liz2w.h"

#include "liz_internal.h"

using namespace ku::liz;

static uint32_t liz2wfrom(int32_t srep, const kulang &lang, void *target, uint32_t tlen,
                          const void *source, uint32_t slen, int32_t option, uint32_t *written)
{
    const outcome done =
        convert(lang, target, tlen, LIZ_WIDE, as_given(source, slen, srep), option);
    give(written, done.written);
    return done.status;
}

uint32_t liz2ww(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2wfrom(LIZ_WIDE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2wc(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2wfrom(LIZ_MULTIBYTE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2wo(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2wfrom(LIZ_CURSOR, *lh, target, tlen, source, slen, option, written);
}
