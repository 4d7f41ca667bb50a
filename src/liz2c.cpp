// liz2c.cpp - converters into multibyte texts: the shared converter with both ends named
#include "liz2c.h"

#include "liz_internal.h"

using namespace ku::liz;

static uint32_t liz2cfrom(int32_t srep, const kulang &lang, void *target, uint32_t tlen,
                          const void *source, uint32_t slen, int32_t option, uint32_t *written)
{
    const outcome done =
        convert(lang, target, tlen, LIZ_MULTIBYTE, as_given(source, slen, srep), option);
    give(written, done.written);
    return done.status;
}

uint32_t liz2cw(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2cfrom(LIZ_WIDE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2cc(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2cfrom(LIZ_MULTIBYTE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2co(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2cfrom(LIZ_CURSOR, *lh, target, tlen, source, slen, option, written);
}
