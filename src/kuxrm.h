/*
 * kuxrm.h - relocatable memory: installing the callbacks, access that reports failure
 *
 * The wrappers call the context's callback and push a code when access to a
 * handle yields nothing. Error facility: kuxrm.
 */
#ifndef KUXRM_H
#define KUXRM_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXRM_NODEREF KU_CODE('k', 'u', 'x', 'r', 'm', 1) /* begin-dereference gave no address */
#define KUXRM_NOLOCK KU_CODE('k', 'u', 'x', 'r', 'm', 4)  /* lock gave no address */

/* As kuxnminit, for the eight callbacks with KUXA_RMALL and the single bits. For kuxcreate. */
KU_API void kuxrminit(kux *ctx, const kuxa *attrs);

/* Locks a handle. Returns its address, valid until the matching unlock; or null
 * with KUXRM_NOLOCK pushed. */
KU_API void *kuxrmlock(kux *ctx, kuxhandle handle);

/* Unlocks a handle. Returns what the callback returned; null is normal. */
KU_API void *kuxrmunlock(kux *ctx, kuxhandle handle);

/* Begins a short dereference, for handles whose state has KUXRM_DEREF. Returns the
 * address, valid until kuxrmendderef; or null with KUXRM_NODEREF pushed. */
KU_API void *kuxrmbeginderef(kux *ctx, kuxhandle handle);

/* Ends a short dereference. Returns what the callback returned; null is normal. */
KU_API void *kuxrmendderef(kux *ctx, kuxhandle handle);

/* State of a handle: KUXRM_DEREF or 0, other bits the client's. */
KU_API uint16_t kuxrmgetstate(kux *ctx, kuxhandle handle);

#ifdef __cplusplus
}
#endif

#endif
