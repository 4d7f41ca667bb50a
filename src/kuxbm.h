/*
 * kuxbm.h - basic allocator: zero-filled memory that needs no context
 *
 * For the context's own bookkeeping. Blocks are the C library's and can be
 * grown with its resize.
 */
#ifndef KUXBM_H
#define KUXBM_H

#include "kudef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A zero-filled block of `size` bytes (0 counts as 1), released with kuxbmfree; or null. */
KU_API void *kuxbmalloc(uint32_t size);

/* Releases a block; null is ignored. Returns null. */
KU_API void *kuxbmfree(void *address);

#ifdef __cplusplus
}
#endif

#endif
