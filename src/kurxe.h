/*
 * kurxe.h - escape classes: sets of characters that a pattern names behind the escape character
 *
 * A table of classes belongs to a syntax record (kurx.h), which makes it and ends it. A class
 * is a value, the character that names it, and an array of members. Of several classes with
 * one value the first added wins. Compare functions decide what a member matches.
 */
#ifndef KURXE_H
#define KURXE_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kurx kurx; /* syntax record, kurx.h */

#define KURXE_ROOM 16u /* classes that a new syntax record has room for */

/* One escape class. */
typedef struct kurxes {
    uint32_t value_kurxes;         /* the character written behind the escape character */
    const uint32_t *equivp_kurxes; /* members; the caller's, borrowed while the class is there */
    uint32_t equivn_kurxes;        /* how many members */
} kurxes;

/* Table of escape classes, in the order in which they were added. */
typedef struct kurxe {
    kurxes *kurxesp_kurxe;  /* the classes; owned */
    uint32_t kurxesn_kurxe; /* classes there is room for */
    uint32_t kurxesi_kurxe; /* classes there are */
} kurxe;

/* An empty table with room for `isize` classes (at least 1), the caller's, ended with
 * kurxedestroy; or null, with the allocator's code pushed. */
KU_API kurxe *kurxecreate(kux *ctx, uint32_t isize);

/* Ends a table; the members are untouched. Null is ignored. Returns null. */
KU_API kurxe *kurxedestroy(kux *ctx, kurxe *table);

/*
 * Adds class `value` behind the others, in the doubled array when there is no room.
 *   equivp  `equivn` characters, the members; borrowed until the class is dropped or the
 *           record ends; may change between runs
 * Returns 0, or the newest code when there was no memory: then nothing was added.
 */
KU_API uint32_t kurxeadd(kux *ctx, kurx *kurxh, uint32_t value, const uint32_t *equivp,
                         uint32_t equivn);

/* Whether there is a class `value`: 1, and *escpp is the first one (borrowed until the next
 * kurxeadd or kurxedrop), or 0, and *escpp stays. escpp may be null. */
KU_API int32_t kurxefind(kux *ctx, kurx *kurxh, uint32_t value, kurxes **escpp);

/* Takes the first class `value` out, if there is one. Returns 0. */
KU_API uint32_t kurxedrop(kux *ctx, kurx *kurxh, uint32_t value);

/* Whether the record's compare function says that `tchar` matches a member of class `value`:
 * 1 or 0. It gets `tchar` first. 0 when there is no such class. */
KU_API int32_t kurxematch(kux *ctx, kurx *kurxh, uint32_t value, uint32_t tchar);

#ifdef __cplusplus
}
#endif

#endif
