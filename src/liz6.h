/*
 * liz6.h - byte-wise copy and comparison, for single-byte languages
 */
#ifndef LIZ6_H
#define LIZ6_H

#include "lizg.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies the smaller of `slen` and `tsize` bytes, with a case option, and puts
 * a NUL behind them if `tsize` has room. NULs inside are ordinary bytes.
 *   slen     KU_NTS: up to the source's NUL
 *   source   may overlap the target
 *   option   outside 0 to 3 copies no byte, the rest stays the same
 *   written  out: that smaller number
 * Returns LIZ_OK, or LIZ_END when the source was longer than the target.
 */
KU_API uint32_t liz6copy(const kulang *lh, kulocglo *glo, void *target, uint32_t tsize,
                         const void *source, uint32_t slen, int32_t option, uint32_t *written);

/*
 * Compares `n` bytes: LIZ_BINARY by value, any other option without case.
 *   n    KU_NTS: up to the nearer NUL of the two
 *   res  out: LIZ_EQUAL, LIZ_LESS, LIZ_GREATER; a null first text is less (even
 *        than null), a null second one makes the first greater
 * Returns LIZ_OK.
 */
KU_API uint32_t liz6comp(const kulang *lh, kulocglo *glo, const void *a, const void *b, uint32_t n,
                         int32_t option, int32_t *res);

#ifdef __cplusplus
}
#endif

#endif
