/*
 * kuvp.h - the pager behind the virtual memory: segments, free lists and the swap file
 *
 * What kuv.h is made of; clients need none of it. Sizes of blocks are bytes with the header,
 * multiples of 8. Segments are numbered from 0. Error facility: kuvaa.
 */
#ifndef KUVP_H
#define KUVP_H

#include "kuv.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUVP_HEADER 8u /* bytes of a block's header, and of a segment's end marker */

/* Header of a block; before every object in the swap file, too. */
struct kuvfrdef {
    uint32_t ptr_kuvfr; /* a reference. Used block: number of its cell, from 1. Free block:
                           offset in the segment of the next free block, plus 1; 0: the last. */
    int32_t size_kuvfr; /* used: the block's size; free: minus its size; 0: the end marker */
};

/* Segment: blocks that tile it exactly, and the end marker. */
struct kuvsh {
    kuvfrdef *fmls_kuvsh; /* first free block: the smallest, of equal ones the latest; null: none */
    kuvfrdef *fmad_kuvsh; /* the segment's memory; null until it is first used */
    kuvfrdef *lmad_kuvsh; /* behind its end marker */
    int32_t curfree_kuvsh; /* blocks on the free list */
    int32_t maxfree_kuvsh; /* the most there have been */
};

/*
 * A block of `size` bytes with zeroed data that nobody owns yet, from the first segment with one
 * that fits, else by swapping out; without swapping a heap block. It lies in segment lastseg_kuv.
 * Null: no memory for a segment (nothing pushed here), or KUVAA_FAILED: swapping out failed.
 */
KU_API kuvfrdef *kuvpgetmem(kuv *memory, uint32_t size);

/* Makes a block free in its segment, one with the free blocks beside it. Without swapping,
 * releases it. Returns 0, or KUVAA_FAILED, not pushed, for null. */
KU_API uint32_t kuvputmem(kuv *memory, kuvfrdef *block, int16_t segment);

/* Puts a block on the free list, before the first one that is at least as large. */
KU_API void kuvpfradd(kuv *memory, int16_t segment, kuvfrdef *block);

/* Takes a block off the free list. Returns it, its size positive; null: it is not on it. */
KU_API kuvfrdef *kuvpfrdelete(kuv *memory, int16_t segment, kuvfrdef *goal);

/* Joins free blocks of a segment that lie side by side, which only kuvpfradd leaves. */
KU_API void kuvpcoalesce(kuv *memory, int16_t segment);

/*
 * Makes room: swaps out by kuvplpurge, then writes out what is in the way of the first run that can
 * take `size` bytes of data. Returns a block of that much at least, which nobody owns, in segment
 * lastseg_kuv; or null: KUVAA_NORUN, or a failure to write. What was written out stays out.
 */
KU_API kuvfrdef *kuvpswapout(kuv *memory, uint32_t size);

/*
 * Finds the first run of free and unlocked blocks that together have `size` bytes. Returns its first
 * block, which nobody owns any more, written out if it was used; or null: KUVAA_NORUN pushed, or
 * that write failed.
 */
KU_API kuvfrdef *kuvpsync(kuv *memory, uint32_t size);

/* Swaps out unlocked objects in the order of their cells until highwater_kuv percent of the segments'
 * memory are written. Returns 0, or the newest code (KUVAA_FAILED without one): an object stayed. */
KU_API uint32_t kuvplpurge(kuv *memory);

/*
 * Writes an object to the swap file: over the head region if it is large enough, else at the end, after
 * a compaction when that passes the limit. Returns the memory that it had, the caller's to reuse or
 * give back; or null with the object still in memory: it is not in memory (nothing pushed), a
 * transfer failed (its code), the size callback refused (nothing pushed), or KUVAA_FAILED: the
 * compaction failed, or the file would pass 4 GiB. The lock count is not looked at.
 */
KU_API kuvfrdef *kuvpwrite(kuv *memory, kuvcl *cell);

/*
 * Copies what is swapped out to a new swap file without gaps, which takes the place of the old
 * one. Returns 0; or KUVAA_FAILED, not pushed: nothing has changed, unless closing the old
 * file failed when all had been copied.
 */
KU_API uint32_t kuvpfcompact(kuv *memory);

/* Swaps out all that is not locked. Returns 0, or KUVAA_FAILED (pushed): an object stayed. */
KU_API uint32_t kuvpscramble(kuv *memory);

#ifdef __cplusplus
}
#endif

#endif
