// liz2o.cpp - converters into string cursors: the shared converter with both ends named
#include "liz2o.h"

#include "liz_internal.h"

using namespace ku::liz;

static uint32_t liz2ofrom(int32_t srep, const kulang &lang, void *target, uint32_t tlen,
                          const void *source, uint32_t slen, int32_t option, uint32_t *written)
{
    const outcome done =
        convert(lang, target, tlen, LIZ_CURSOR, as_given(source, slen, srep), option);
    give(written, done.written);
    return done.status;
}

uint32_t liz2ow(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2ofrom(LIZ_WIDE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2oc(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2ofrom(LIZ_MULTIBYTE, *lh, target, tlen, source, slen, option, written);
}

uint32_t liz2oo(const kulang *lh, void *target, uint32_t tlen, const void *source, uint32_t slen,
                int32_t option, uint32_t *written, kulocglo *)
{
    return liz2ofrom(LIZ_CURSOR, *lh, target, tlen, source, slen, option, written);
}
