/*
 * kuussb.h - templates: a text in which $0 to $9 are replaced by given texts
 *
 * One operation, no state. Lengths count bytes. Error facility: none.
 */
#ifndef KUUSSB_H
#define KUUSSB_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Fills a template: a `$` and a digit below `numsub` are replaced by that
 * substitution; any other `$` stands for itself. `$` is looked for byte by byte.
 *   buflen   size of the buffer; without a buffer: bytes to allocate, 0 for the length of
 *            the template and of every substitution, each counted once, and a NUL: a
 *            substitution that is used twice can make that too short
 *   buffer   where to, not overlapping what is read; null: a new one
 *   tmplate  NUL-terminated; null is an empty text
 *   numsub   how many substitutions there are; below 0 counts as 0
 *   sub      the substitutions, NUL-terminated; null ones are replaced by nothing; a null
 *            array is one of none
 * Returns the buffer (a new one is the caller's, released with the context's
 * kuxnmfree), or null without memory for a new one (the allocator's code is
 * pushed). What does not fit is cut at a byte, a NUL always ends it; a given
 * buffer of size 0 is not touched.
 */
KU_API char *kuussb(kux *ctx, uint32_t buflen, char *buffer, const char *tmplate, int32_t numsub,
                    const char *const *sub);

#ifdef __cplusplus
}
#endif

#endif
