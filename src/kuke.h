/*
 * kuke.h - token objects: joining the pieces of a text analysed one by one
 *
 * Pieces analysed one after another, each from the state in which the one
 * before ended, are joined with kukeconcat; kukemerge then makes one token of
 * every comment, string, label or quoted identifier that was cut.
 * Error facility: kukaa.
 */
#ifndef KUKE_H
#define KUKE_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUKAA_NOCONCAT                                                                             \
    KU_CODE('k', 'u', 'k', 'a', 'a', 8)                    /* kukeconcat: an object is null, or no
                                                             memory for the tokens, or the texts
                                                             are 4 GB together */
#define KUKAA_MODES KU_CODE('k', 'u', 'k', 'a', 'a', 10)   /* kukeconcat: the modes differ */
#define KUKAA_WEIGHTS KU_CODE('k', 'u', 'k', 'a', 'a', 11) /* kukeconcat: the weights differ */

/*
 * Joins two token objects into a new one.
 *   kuk1h, kuk2h  the objects, of equal mode and weight; not changed
 *   sepc          a byte to put between the texts; 0 for none
 * The new object has the first's mode, the second's state, weight 0 and copies
 * of all tokens and their hints, the second's moved behind the first text. Its
 * text is the first, the separator and the second; objects that borrow their
 * texts give one without text.
 * Returns the object, the caller's, destroyed with kukpdestroy; or null:
 * KUKAA_NOCONCAT, KUKAA_MODES, KUKAA_WEIGHTS or an allocator's code pushed.
 */
KU_API void *kukeconcat(kux *ctx, void *kuk1h, void *kuk2h, unsigned char sepc);

/*
 * Merges cut tokens: each token of an open type and all up to and including
 * the next one of its completed type become one token of that type. An open
 * token that no completed one follows stays.
 * Returns 0, or the code it pushed; pairs merged before the failure stay merged.
 */
KU_API uint32_t kukemerge(kux *ctx, void *kukh);

/*
 * Step of kukeconcat: puts fresh copies of the records in the place of the
 * items of a new token list.
 *   kukh      the object being made; not looked at
 *   newlisth  its list: ntoken1 items of the first object, ntoken2 of the second
 *   l1len     bytes by which the second's offsets move
 * Returns 0, or the code on top of the error stack: the copies are gone then,
 * and the list holds no items; a locked list refuses that and keeps its own.
 */
KU_API uint32_t kukecfilter(kux *ctx, void *kukh, void *newlisth, uint32_t l1len, int32_t ntoken1,
                            int32_t ntoken2);

/* The completed type of an open type (comment, line comment, string, label, quoted identifier), else 0. */
KU_API uint32_t kukemmatch(kux *ctx, uint32_t type);

#ifdef __cplusplus
}
#endif

#endif
