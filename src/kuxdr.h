/*
 * kuxdr.h - default relocatable-memory callbacks: memory that never moves
 *
 * The handle is the block's own address; locking hands it back. Callers still
 * go through lock or begin-dereference, as another layer's handles do move.
 * Failures are those of kuxdn.h.
 */
#ifndef KUXDR_H
#define KUXDR_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API kuxhandle kuxdralloc(kux *ctx, uint32_t size);                     /* as kuxdnalloc */
KU_API kuxhandle kuxdrfree(kux *ctx, kuxhandle handle);                   /* as kuxdnfree */
KU_API kuxhandle kuxdrrealloc(kux *ctx, kuxhandle handle, uint32_t size); /* as kuxdnrealloc */
KU_API void *kuxdrlock(kux *ctx, kuxhandle handle);        /* the handle as address */
KU_API void *kuxdrunlock(kux *ctx, kuxhandle handle);      /* null */
KU_API void *kuxdrbeginderef(kux *ctx, kuxhandle handle);  /* the handle as address */
KU_API void *kuxdrendderef(kux *ctx, kuxhandle handle);    /* null */
KU_API uint16_t kuxdrgetstate(kux *ctx, kuxhandle handle); /* KUXRM_DEREF, always */

#ifdef __cplusplus
}
#endif

#endif
