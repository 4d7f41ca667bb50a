/*
 * kuep.h - path resolution: a file's name through directories and default file types
 *
 * One operation, no state. Names are NUL-terminated texts in the context's
 * language, joined and looked at by the services of skub.h. Error facility:
 * none of its own.
 */
#ifndef KUEP_H
#define KUEP_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Finds the regular file that a name stands for. Tried in this order: the name as it is;
 * the name with the types; then, unless the name has a directory part (skubdspecified),
 * for each element of domain KUELD_DIRECTORY in `path`, the name in that directory with
 * the types. "With the types" is a name alone when it has a file type (skubtspecified),
 * else with each type in turn, up to the first that makes it longer than `resname` can
 * hold. Found nothing: the name as it is.
 *   path      element list (kuel.h); or null: no directories
 *   basename  the name; null is an empty text
 *   resname   out: the result, with a NUL; cut to whole characters when it does not fit; not
 *             overlapping `basename`
 *   namelen   in: bytes that `resname` has, at least 1 for anything to be written; out: length
 *             of the result
 *   doctypes  list (kul.h) of file types, texts without the full stop; or null: none
 * A directory and a name that are longer than 255 bytes together end the search.
 * Returns 0, found or not; or the code pushed, SKUBA_ROOM (skub.h) for such a directory or
 * the newest code when there was no memory to join it; then *namelen is as it was and
 * `resname` is not to be looked at. Otherwise nothing is pushed, except that
 * when there was no memory to try a type the search goes on without it and the
 * allocator's code stays on the error stack.
 */
KU_API uint32_t kuepnresolve(kux *ctx, void *path, const char *basename, char *resname,
                             uint32_t *namelen, void *doctypes);

#ifdef __cplusplus
}
#endif

#endif
