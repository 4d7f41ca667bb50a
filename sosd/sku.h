/*
 * sku.h - the environment
 *
 * One operation, no state, no error facility of its own.
 */
#ifndef SKU_H
#define SKU_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Value of an environment variable, whatever its length. Names are case-sensitive.
 * A null or empty name and a variable that is not set give an empty text.
 * Returns a new NUL-terminated text of exactly its size, the caller's, released
 * with the context's release callback; or null without memory, with what the
 * allocate callback pushed, or when the value is longer than a block can be.
 */
KU_API char *sku_gev(kux *ctx, const char *name);

#ifdef __cplusplus
}
#endif

#endif
