/*
 * kuuq.h - sort of an array of pointers, in place, by a comparator of the caller's
 *
 * The lists sort with it. Not stable: which permutation comes out, and the
 * order of the comparator's calls, are fixed and the same everywhere.
 */
#ifndef KUUQ_H
#define KUUQ_H

#include "kul.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sorts slots `left` to `right` of `array`, both included, ascending; nothing
 * when `right` is not above `left`. The comparator gets an element as a and the
 * pivot as b; it must not change the array. Cannot fail and allocates nothing;
 * takes a few KB of the stack, in the worst order about 4 bytes an element.
 * Many equal elements cost quadratic time.
 */
KU_API void kuuqsort(kux *ctx, void **array, int32_t left, int32_t right, kulcomparefn comparator,
                     void *clientarg);

#ifdef __cplusplus
}
#endif

#endif
