/*
 * kuxpr.h - context properties: named values that modules attach to a context
 *
 * Names are identifiers (kuxid.h). A value with a release function is given to
 * it when it is replaced, removed, or the context ends. The functions may set,
 * get and remove properties themselves; one that sets its own name anew each time
 * it is called keeps the setting or removal that called it going. Error facility: kuxpr.
 */
#ifndef KUXPR_H
#define KUXPR_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXPR_FULL KU_CODE('k', 'u', 'x', 'p', 'r', 1) /* the table cannot grow */

/* Releases a value that leaves the table; not called for a null value. */
typedef void (*kuxprfreefn)(kux *ctx, void *value);

/* Callback of kuxpriterate. */
typedef void (*kuxpritfn)(kux *ctx, uint32_t name, void *value, void *clientarg);

/* Property record. */
struct kuxpr {
    uint32_t kuxprname;       /* the name */
    void *kuxprvalue;         /* the value */
    kuxprfreefn kuxprfreefun; /* release function, or null */
};

/*
 * Sets a property, first releasing the value that the name had. The value is
 * taken over when there is a release function, else borrowed. Returns 0, or
 * KUXPR_FULL (pushed) with the table unchanged and the value still the caller's.
 */
KU_API uint32_t kuxprset(kux *ctx, uint32_t name, void *value, kuxprfreefn freefun);

/* The value; null when the name is absent or its value is null. Borrowed. */
KU_API void *kuxprget(kux *ctx, uint32_t name);

/* 1 when the name is present, whatever its value, else 0. */
KU_API int32_t kuxprexists(kux *ctx, uint32_t name);

/* Releases and removes a property; the others keep their order. Absent: nothing. */
KU_API void kuxprremove(kux *ctx, uint32_t name);

/*
 * Calls `callback` for each property in table order. The count is read afresh
 * before each call: a callback that removes its own property skips the next one.
 */
KU_API void kuxpriterate(kux *ctx, kuxpritfn callback, void *clientarg);

/* Makes an empty table of 20 records. Returns 0, or KUXNM_NORESIZE (not pushed). For kuxcreate. */
KU_API uint32_t kuxprinit(kux *ctx);

/* Releases every value in table order, then the table; meanwhile nothing can be set:
 * kuxprset answers KUXPR_FULL. For kuxdestroy. */
KU_API void kuxprdestroy(kux *ctx);

#ifdef __cplusplus
}
#endif

#endif
