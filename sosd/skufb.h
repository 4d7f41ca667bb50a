/*
 * skufb.h - buffers of a block cache: transfer, release, flush, discard
 *
 * What virtual files are made of; clients need little of it. Every status is 0,
 * or the newest code on the error stack. Error facility: skufa.
 */
#ifndef SKUFB_H
#define SKUFB_H

#include "skuf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SKUFB_DIRTY 0x01u /* skufbflags: differs from the raw file */

/* One buffer: free (on the free list, no file), or holding a block (in one hash chain). */
struct skufb {
    skufv *skufbfile;         /* virtual file whose block it holds; null: free */
    uint32_t skufbnum;        /* number of that block */
    skufb *skufbnext;         /* next in the hash chain or on the free list */
    unsigned char *skufbdata; /* data area of 4096 bytes; dynamic cache: null while free. Blocks
                                 of scratch files may be in it in part: read them by skufvgptr */
    uint8_t skufbflags;       /* SKUFB_DIRTY or 0 */
};

/*
 * Reads a block of a raw file into a buffer of 4096 bytes. At the end of the
 * file it stops: what the file does not have stays in the buffer as it was.
 *   cache  not looked at
 * Returns 0, SKUFA_NULL (raw file or buffer), SKUFA_SEEK (a block past 4 GiB, too) or
 * SKUFA_READ.
 */
KU_API uint32_t skufbread(kux *ctx, void *cache, skufo *file, uint32_t block, void *buffer);

/*
 * Writes a block of a raw file from 4096 bytes. The file grows by whole blocks. A buffer that
 * holds the block is behind then, in all its bytes or in some: do not write a raw file
 * that is read through a cache.
 *   cache  not looked at
 * Returns 0, SKUFA_NULL, SKUFA_SEEK (a block past 4 GiB, too) or SKUFA_WRITE;
 * after a failure part of the block may be written.
 */
KU_API uint32_t skufbwrite(kux *ctx, void *cache, skufo *file, uint32_t block, const void *buffer);

/*
 * Makes a buffer free, its block unwritten. A free buffer stays free.
 * Returns 0 or SKUFA_NULL.
 */
KU_API uint32_t skufbfree(kux *ctx, void *cache, skufb *buffer);

/*
 * Writes the dirty blocks of a virtual file, or of all with a null file; those
 * of temporary files are passed over. Stops at the first failure.
 * Returns 0, SKUFA_NULL (no cache), SKUFA_SEEK or SKUFA_WRITE.
 */
KU_API uint32_t skufbfflush(kux *ctx, void *cache, void *file);

/*
 * Forgets a virtual file's blocks without writing them, as if it were new: a
 * block is read again only once one above it has been fetched.
 * Returns 0 or SKUFA_NULL.
 */
KU_API uint32_t skufbdclear(kux *ctx, void *cache, void *file);

#ifdef __cplusplus
}
#endif

#endif
