/*
 * liz2c.h - converters into multibyte texts
 *
 * One for each representation of the source: w wide, c multibyte, o cursor.
 * What lizmcpy does outside single-byte languages, one piece of it: arguments
 * and results are those of lizmcpy (lizm.h), but the global area comes last.
 * A multibyte target is closed (shift byte) and ended with a NUL when they fit.
 * An option outside 0 to 3 copies nothing and returns LIZ_OK. In single-byte
 * languages all of them are liz6copy, a cursor standing for its start.
 */
#ifndef LIZ2C_H
#define LIZ2C_H

#include "lizg.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t liz2cw(const kulang *lh, void *target, uint32_t tlen, const void *source,
                       uint32_t slen, int32_t option, uint32_t *written, kulocglo *glo);
KU_API uint32_t liz2cc(const kulang *lh, void *target, uint32_t tlen, const void *source,
                       uint32_t slen, int32_t option, uint32_t *written, kulocglo *glo);
KU_API uint32_t liz2co(const kulang *lh, void *target, uint32_t tlen, const void *source,
                       uint32_t slen, int32_t option, uint32_t *written, kulocglo *glo);

#ifdef __cplusplus
}
#endif

#endif
