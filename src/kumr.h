/*
 * kumr.h - reference cells: an object that several holders share
 *
 * An object has the cell as its first member, so that a pointer to the object
 * is one to the cell. kumrinit gives it one holder; kumrref and kumrdref count
 * further ones, and the last kumrdref calls the destroy callback, which releases
 * the object. The cell allocates nothing. Error facility: none; statuses are
 * those of the destroy callback.
 */
#ifndef KUMR_H
#define KUMR_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of mask_kumra. */
#define KUMRA_DESTROY 0x1u
#define KUMRA_REFCOUNT 0x2u /* kumrget only */

/* Ends an object without holders, whose count is 0 then. Its status is handed on. */
typedef uint32_t (*kumrdestroyfn)(kux *ctx, void *obj);

/* Reference cell. */
typedef struct kumr {
    kumrdestroyfn destroy_kumr; /* called when the last holder lets go; or null */
    uint32_t refcount_kumr;     /* holders */
} kumr;

/* Attributes of a cell. */
typedef struct kumra {
    uint32_t mask_kumra;         /* which of the following fields are given or wanted */
    kumrdestroyfn destroy_kumra; /* destroy callback, or null */
    uint32_t refcount_kumra;     /* holders */
} kumra;

/* In all operations `obj` is the object that begins with its cell; null attributes
 * have no bit set. */

/* Sets up a cell with one holder; its callback from KUMRA_DESTROY, else null. Returns 0. */
KU_API uint32_t kumrinit(kux *ctx, void *obj, const kumra *attrs);

/* Fills the fields that the mask selects. Returns 0. */
KU_API uint32_t kumrget(kux *ctx, void *obj, kumra *attrs);

/* Changes the callback with KUMRA_DESTROY; the count cannot be set. Returns 0. */
KU_API uint32_t kumrset(kux *ctx, void *obj, const kumra *attrs);

/* One more holder. Returns 0. */
KU_API uint32_t kumrref(kux *ctx, void *obj);

/*
 * One holder fewer. Returns 0 while holders remain, else what kumrdestroy does.
 * A cell without holders stays as it is: 0, and nothing is called.
 */
KU_API uint32_t kumrdref(kux *ctx, void *obj);

/* Calls the destroy callback, whatever the count. Returns its status; 0 without one. */
KU_API uint32_t kumrdestroy(kux *ctx, void *obj);

#ifdef __cplusplus
}
#endif

#endif
