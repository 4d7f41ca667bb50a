/*
 * kuxdn.h - default plain-memory callbacks
 *
 * What a context uses unless its client gives callbacks of its own: the C
 * library's memory, with failures on the error stack. Error facility: kuxnm.
 */
#ifndef KUXDN_H
#define KUXDN_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXNM_NOMEM KU_CODE('k', 'u', 'x', 'n', 'm', 1) /* no memory for a block */
#define KUXNM_NORESIZE                                                                             \
    KU_CODE('k', 'u', 'x', 'n', 'm', 2) /* no memory to resize a block; also what
                                                             kuxprinit returns without memory */

/* A zero-filled block of `size` bytes (0 counts as 1); or null with KUXNM_NOMEM pushed. */
KU_API void *kuxdnalloc(kux *ctx, uint32_t size);

/* Releases a block; null is ignored. Returns null. */
KU_API void *kuxdnfree(kux *ctx, void *address);

/*
 * Resizes a block to `size` bytes (0 counts as 1); bytes past the old size are
 * not zeroed. A null address gives a zero-filled block. Returns the new
 * address; or null with KUXNM_NORESIZE pushed and the old block untouched.
 */
KU_API void *kuxdnrealloc(kux *ctx, void *address, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
