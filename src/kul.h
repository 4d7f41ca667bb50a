/*
 * kul.h - lists: growable arrays of untyped pointers with a cursor and a counted lock
 *
 * Create a list, insert, read and delete by index or by cursor, sort, search and
 * merge with a comparator of the caller's, destroy it. A list never owns its
 * items: it keeps the pointers it is given and frees none of them. A list
 * handle is a `void *`; only kulplock shows the record.
 *
 * Indexes and counts are slots. Null items are kept like any other, but to the
 * cursor a null item is no item. A lock pins the items against change while
 * the caller reads the record; it is a counter, not mutual exclusion.
 * Comparators and callbacks must not change the list that called them. A null
 * handle is the caller's mistake, except for kulpdestroy.
 *
 * Error facility: kulaa. Every code is pushed once, without parameters; a
 * refused or failed change leaves the list exactly as it was.
 */
#ifndef KUL_H
#define KUL_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KULAA_NOMEM KU_CODE('k', 'u', 'l', 'a', 'a', 1)  /* no memory for a list or its array */
#define KULAA_LOCKED KU_CODE('k', 'u', 'l', 'a', 'a', 2) /* change of a locked list */
#define KULAA_RANGE KU_CODE('k', 'u', 'l', 'a', 'a', 3)  /* index out of range */

#define KUL_LAST (-1)   /* index of the last item: kulpitem, kulpreplace, kulpinsert, kulpdelete */
#define KUL_APPEND (-2) /* index after the last item: kulpinsert only */

/* List record. Clients read it while the list is locked and never write it. */
typedef struct kul {
    int32_t maxitems_kul; /* slots of the item array; a multiple of 16 */
    int32_t nitems_kul;   /* items held, in slots 0 to nitems_kul - 1 */
    int32_t current_kul;  /* the cursor: index of the current item, or -1 */
    int32_t nlocks_kul;   /* locks held */
    void **items_kul;     /* the items */
    void **itemsptr_kul;  /* items_kul when the first lock was taken; null: not locked */
} kul;

/* Callback of kulpitrate: 0 to go on, anything else is a status that may end the walk. */
typedef uint32_t (*kulitratefn)(kux *ctx, void *item, void *clientarg);

/* Comparator: below 0 when a sorts before b, 0 when they are equal, above 0 when after. */
typedef int32_t (*kulcomparefn)(kux *ctx, void *a, void *b, void *clientarg);

/* ---- life ---- */

/*
 * Makes a list with room for more than `initsize` items.
 *   initsize   slots wanted; below 0 counts as 0
 *   inititems  `initsize` items to begin with, the array copied in; null: an empty list
 * Returns the list, the caller's, ended with kulpdestroy; or null with
 * KULAA_NOMEM pushed. The cursor is -1.
 */
KU_API void *kulpcreate(kux *ctx, int32_t initsize, void *const *inititems);

/* Ends a list, locked or not; its items are untouched. Null is ignored. Returns null. */
KU_API void *kulpdestroy(kux *ctx, void *list);

/* A new list with the same items, unlocked, cursor -1: as kulpcreate. */
KU_API void *kulpcpy(kux *ctx, void *list);

/* ---- reading and the cursor ---- */

/*
 * Item `index` (KUL_LAST: the last one), which becomes the current one; a null
 * item leaves no current one (-1). An index out of range gives null with
 * KULAA_RANGE pushed and leaves the cursor alone.
 */
KU_API void *kulpitem(kux *ctx, void *list, int32_t index);

/* First and last item as by kulpitem; null without an error when the list is empty. */
KU_API void *kulpfirst(kux *ctx, void *list);
KU_API void *kulplast(kux *ctx, void *list);

/* Index of the first slot that holds this very pointer, or -1. The cursor becomes the result. */
KU_API int32_t kulpfind(kux *ctx, void *list, const void *item);

/* 1 when kulpfind finds the item, else 0; moves the cursor as kulpfind does. */
KU_API int32_t kulpismember(kux *ctx, void *list, const void *item);

/* How many items the list holds. */
KU_API int32_t kulpnitems(kux *ctx, void *list);

/* The current item, or null. A non-zero `advance` then moves the cursor on, unless it is on
 * the last item. */
KU_API void *kulpcurrent(kux *ctx, void *list, int32_t advance);

/* Moves the cursor to the next or previous item and returns it; null, with the cursor where
 * it was, when there is none or no current item to start from. */
KU_API void *kulpnext(kux *ctx, void *list);
KU_API void *kulpprev(kux *ctx, void *list);

/* ---- changes; each returns 0 or the code pushed, KULAA_LOCKED before any other ---- */

/* Drops all items; the array stays. The cursor becomes -1. */
KU_API uint32_t kulpclear(kux *ctx, void *list);

/* Puts `newitem` in slot `index` (KUL_LAST: the last one), or KULAA_RANGE. The cursor stays. */
KU_API uint32_t kulpreplace(kux *ctx, void *list, int32_t index, void *newitem);

/*
 * Inserts `newitem` before item `index`: 0 to the count, which appends;
 * KUL_APPEND appends; KUL_LAST lands before the last item. KULAA_RANGE,
 * KULAA_NOMEM. The cursor stays on its item.
 */
KU_API uint32_t kulpinsert(kux *ctx, void *list, int32_t index, void *newitem);

/* Takes item `index` (KUL_LAST: the last one) out, or KULAA_RANGE. The cursor stays on its
 * item, or becomes -1 when that was the one. */
KU_API uint32_t kulpdelete(kux *ctx, void *list, int32_t index);

/*
 * Finds the item by kulpfind and deletes it. Returns the index at which it was
 * found, or -1. On a locked list nothing is deleted and the index is returned
 * all the same: KULAA_LOCKED on the error stack tells.
 */
KU_API int32_t kulpfdelete(kux *ctx, void *list, const void *item);

/* ---- whole lists; these do not look at the lock ---- */

/*
 * Calls `function` with each of the items that the list holds now, in order.
 * With `ignorerr` 0 the first status that is not 0 ends the walk and is
 * returned; else every item is visited. Returns 0 otherwise. Pushes nothing,
 * moves no cursor. The callback must not insert, delete or clear.
 */
KU_API uint32_t kulpitrate(kux *ctx, void *list, kulitratefn function, void *clientarg,
                           int32_t ignorerr);

/* Sorts by kuuqsort (kuuq.h). The cursor keeps its index. Returns 0. */
KU_API uint32_t kulpqsort(kux *ctx, void *list, kulcomparefn comparator, void *clientarg);

/*
 * Looks `item` up in a list sorted by `comparator`, which gets `item` as a and
 * items of the list as b.
 *   fromcurrent  not 0: begin at the cursor, when there is one
 *   index        out: where the item is, or where it would go (0 to the count)
 * Returns 1 when found, and the cursor becomes *index; else 0, and it stays.
 * Of several equal items any may be the one.
 */
KU_API int32_t kulpsearch(kux *ctx, void *list, void *item, kulcomparefn comparator,
                          void *clientarg, int32_t fromcurrent, int32_t *index);

/*
 * Merges list2 into list1, both sorted by `comparator`, which gets items of
 * list1 as a and of list2 as b. Items of list2 that equal one of list1 are
 * left out; an empty list1 takes all of list2. list2 is unchanged; list1's
 * cursor keeps its index. Returns 0, or KULAA_NOMEM with both unchanged.
 */
KU_API uint32_t kulpmerge(kux *ctx, void *list1, void *list2, kulcomparefn comparator,
                          void *clientarg);

/* Appends the items of src to dst, which may be the same list. Cursors stay. 0 or KULAA_NOMEM. */
KU_API uint32_t kulpconcat(kux *ctx, void *dst, void *src);

/* ---- lock ---- */

/*
 * Locks the list, nested, and returns its record: nitems_kul and items_kul may
 * be read until the matching kulpunlock. While locked, kulpclear, kulpreplace,
 * kulpinsert, kulpdelete and kulpfdelete refuse; kulpmerge and kulpconcat work
 * and can move items_kul.
 */
KU_API kul *kulplock(kux *ctx, void *list);

/* Takes one lock back; nothing when there is none. Returns null. */
KU_API void *kulpunlock(kux *ctx, void *list);

#ifdef __cplusplus
}
#endif

#endif
