/*
 * kurm.h - position automata: a pattern tree gets its position sets
 *
 * The third step of compiling (kurf.h); clients that only match need none of it. The method is
 * that of Aho, Sethi and Ullman 1986, section 3.9: number the positions, then find for every
 * node whether it is nullable, firstpos and lastpos, and for every position followpos. No
 * table of states is built.
 *
 * A position is a match node of a literal, a class, the dot or the end of the pattern, or a
 * whole bracket class; nothing below it is looked at. Nodes of punctuation have no sets. The
 * operations on a node work on its whole subtree, children first, whatever its depth.
 */
#ifndef KURM_H
#define KURM_H

#include "kurn.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Which set of the children kurmconcat takes. */
#define KURM_FIRST 0
#define KURM_LAST 1
#define KURM_FOLLOW 2

/* Gives the whole tree its numbers, tags, flags and sets. Returns 0, or the newest code, with
 * all sets released, for want of memory. */
KU_API uint32_t kurmcreate(kux *ctx, kurn *tree);

/* Releases the sets of a node and all below it; null is ignored. Returns the newest code on
 * the error stack, or 0. */
KU_API uint32_t kurmdestroy(kux *ctx, kurn *tree, kurno *node);

/* Numbers the positions in pattern order from *position on and the tagged groups from *tag + 1
 * on, and moves both counters. Nodes outside all groups of the subtree get the tag of the
 * subtree's parent. Returns 0. */
KU_API uint32_t kurmprep(kux *ctx, kurn *tree, kurno *node, uint32_t *position, uint32_t *tag);

/* 1 when the node is a position, else 0. */
KU_API int32_t kurmlogleaf(kux *ctx, kurn *tree, kurno *node);

/* Each fills one field of the subtree's nodes; of those before it in this list the fields must
 * be filled. Returns 0, or the newest code for want of memory: then kurmdestroy cleans up. */
KU_API uint32_t kurmnullable(kux *ctx, kurn *tree, kurno *node);
KU_API uint32_t kurmfirstpos(kux *ctx, kurn *tree, kurno *node);
KU_API uint32_t kurmlastpos(kux *ctx, kurn *tree, kurno *node);
KU_API uint32_t kurmfollowpos(kux *ctx, kurn *tree, kurno *node);
KU_API uint32_t kurmaccepting(kux *ctx, kurn *tree, kurno *node);

/* 1 when any, and when each, of the node's children but carets and dollars is nullable. */
KU_API int32_t kurmor(kux *ctx, kurn *tree, kurno *node);
KU_API int32_t kurmand(kux *ctx, kurn *tree, kurno *node);

/* A new set, the caller's: the sets of children `first` to `last`, each behind the other.
 * `which` is KURM_FIRST, KURM_LAST or KURM_FOLLOW. Null, with a code pushed, without memory. */
KU_API kurl *kurmconcat(kux *ctx, kurn *tree, kurno *node, int32_t first, int32_t last,
                        int32_t which);

/* Joins set b into followpos of each position in set a. Returns 0, or the newest code. */
KU_API uint32_t kurmfpadd(kux *ctx, kurn *tree, kurl *a, kurl *b);

/* 1 when the set holds the end position, else 0. */
KU_API int32_t kurmcnull(kux *ctx, kurn *tree, kurl *set);

#ifdef __cplusplus
}
#endif

#endif
