/*
 * skufz.h - fresh names for scratch files
 */
#ifndef SKUFZ_H
#define SKUFZ_H

#include "skuf.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Makes a name that no file has: prefix, the cache's counter in three digits
 * (modulo 1000, counting on), the process id modulo 65536 in five. Nothing is
 * created: open the name at once; two threads may draw the same one.
 *   prefix  directory with its separator, or the start of a name; null: empty
 * Returns the name, the caller's, released with the context's release callback;
 * or null: nothing pushed when all 1000 names are taken, SKUFA_NULL without a
 * cache, or no memory. A file whose status cannot be read counts as missing and
 * leaves SKUBA_STATUS on the stack.
 */
KU_API char *skufzname(kux *ctx, void *cache, const char *prefix);

#ifdef __cplusplus
}
#endif

#endif
