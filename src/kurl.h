/*
 * kurl.h - position sets: sorted lists of a pattern tree's positions, shared by counting
 *
 * Create a set, join others into it, release it. What compiled patterns are made of (kurm.h,
 * kurf.h); clients that only match need none of it. A set's list is an ordinary list to
 * read. Those of a compiled pattern share their items with one another: they are locked, and
 * only the operations below may change them. Positions are borrowed from their tree. A null
 * set is an empty one to all operations but kurlmerge and kurlconcat into it.
 */
#ifndef KURL_H
#define KURL_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kurno kurno; /* node of a pattern tree, kurn.h */

/* Position set. Made by operations only: the record has more behind it. */
typedef struct kurl {
    uint32_t dfaid_kurl;    /* not used; 0 */
    uint8_t accepting_kurl; /* 1: an accepting state of a runner */
    void *nfalist_kurl;     /* list (kul.h) of kurno, ascending by nodeid_kurno, each once */
    int32_t rcount_kurl;    /* holders */
} kurl;

/*
 * Makes a set with room for `numitems` positions.
 *   itemsp  that many, ascending, copied in; null: an empty set
 * Returns the set with one holder, released with kurldestroy; or null, with a code pushed, for
 * want of memory.
 */
KU_API kurl *kurlcreate(kux *ctx, uint32_t numitems, kurno *const *itemsp);

/* The same set with one holder more. */
KU_API kurl *kurlcopy(kux *ctx, kurl *set);

/* Takes a holder away and frees the set with the last one. Returns null. */
KU_API kurl *kurldestroy(kux *ctx, kurl *set);

/* Appends set2's positions to set1, nothing when either is null. Returns 0, or the code of the
 * failure (KULAA_NOMEM), with set1 as it was. */
KU_API uint32_t kurlconcat(kux *ctx, kurl *set1, kurl *set2);

/* Joins set2's positions into set1, both sorted; nothing when either is null. Returns 0, or the
 * code of the failure (KULAA_NOMEM), with set1 as it was. */
KU_API uint32_t kurlmerge(kux *ctx, kurl *set1, kurl *set2);

/* Order of two positions, a kulcomparefn: -1, 0 or 1. */
KU_API int32_t kurlcomp(kux *ctx, void *a, void *b, void *clientarg);

/* 1 when both sets hold the same positions in the same order, else 0. */
KU_API int32_t kurlequiv(kux *ctx, kurl *set1, kurl *set2);

/* Ends the set's list and keeps the record, whose list is null then. Returns 0. */
KU_API uint32_t kurlstrip(kux *ctx, kurl *set);

#ifdef __cplusplus
}
#endif

#endif
