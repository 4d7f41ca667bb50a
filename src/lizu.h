/*
 * lizu.h - streaming copy between chains of buffers, and the default memory manager
 */
#ifndef LIZU_H
#define LIZU_H

#include "lizm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Hands out the next buffer of a chain, its address (for LIZ_CURSOR a cursor's)
 * and its byte length, never KU_NTS in meaning. Returns 0, or not 0 when there
 * are no more. A buffer stays valid until the next call of its supplier. */
typedef int32_t (*lizusupply)(void *client, void **buffer, uint32_t *length);

/*
 * Copies a text that comes in buffers into buffers, as lizmcpy does each piece.
 *   bwritp  out: bytes written to all targets together, without terminators
 * A target buffer is filled with the whole characters that fit, then the next
 * one is asked for. Ends when a supplier has no more, when the text ends inside
 * a source buffer, or when nothing could be copied: an empty buffer, or a
 * character that no whole target buffer holds. A source buffer holds whole
 * characters and begins unshifted: one that is cut at a buffer's end ends the
 * copy. Words of option 1 begin anew with every piece. An option or a
 * representation with which lizmcpy copies nothing takes one buffer of each chain.
 * Returns LIZ_OK; a full target is no failure.
 */
KU_API uint32_t lizucopy(const kulang *lh, kulocglo *glo, lizusupply tnextbuf, void *tctxp,
                         int32_t trep, lizusupply snextbuf, void *sctxp, int32_t srep,
                         int32_t option, uint32_t *bwritp);

/* The default memory manager: kuxbmalloc (zero-filled), the C library's resize,
 * kuxbmfree. A size of 0 counts as 1. lizufree returns null. */
KU_API void *lizualloc(uint32_t size);
KU_API void *lizurealloc(void *address, uint32_t size);
KU_API void *lizufree(void *address);

#ifdef __cplusplus
}
#endif

#endif
