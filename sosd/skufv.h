/*
 * skufv.h - virtual files: bytes of a file, moved through a block cache
 *
 * Open a file through a cache, set skufvpos and move bytes, close it. Error
 * facility: skufa.
 *
 *     char *name = skufzname(ctx, cache, ((skuf *)cache)->skufpath);
 *     skufv *file = (skufv *)skufvopen(ctx, cache, name, SKUF_SCRATCH);
 *     file->skufvpos = 4000;
 *     status = skufvmove(ctx, cache, file, bytes, 10000, SKUFV_PUT);
 *
 * A move stops with the newest code on the error stack whoever pushed it:
 * clear the stack before.
 */
#ifndef SKUFV_H
#define SKUFV_H

#include "skuf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SKUFV_PUT 1 /* direction of a move: client to file */
#define SKUFV_GET 0 /* file to client; any value but 1 */

/* Virtual file. Handed out as an untyped handle; clients set and read skufvpos. */
struct skufv {
    skufo *skufvid;        /* the raw file; owned */
    char *skufvname;       /* copy of the path, owned */
    uint32_t skufvceiling; /* first block that is not read when it is fetched: one above the
                               highest that is known to exist; 0x7FFFFFFF for an existing file */
    uint32_t skufvpos;     /* byte position of the next move, advanced by it */
    uint16_t skufvmode;    /* SKUF_... bits given at the opening */
};

/*
 * Opens a file through a cache.
 *   path  copied in
 *   mode  SKUF_... bits; SKUF_APPEND starts at the end, all else at 0
 * Returns the file, the caller's, ended with skufvclose; or null with what
 * skufoopen pushed, SKUFA_NULL (no cache), SKUFA_SEEK (SKUF_APPEND to a file of
 * 4 GiB and more), or no memory.
 */
KU_API void *skufvopen(kux *ctx, void *cache, const char *path, uint16_t mode);

/*
 * Closes a file: writes its dirty blocks unless it is temporary (a failure is
 * pushed and does not stop it), frees its buffers, closes the raw file, and
 * deletes a temporary file. With an error on the stack by then, an older one
 * too, the file is not deleted: clear the stack before. A raw file that is gone
 * (skufvid null) is such an error: SKUFA_CLOSE. Returns null; the file
 * is released whatever failed. A null file is ignored, a null cache pushes
 * SKUFA_NULL and leaves the file open.
 */
KU_API void *skufvclose(kux *ctx, void *cache, void *file);

/*
 * The bytes of a block in the cache. A block at or above skufvceiling raises it
 * and is not read: its bytes are undefined until they are written. Who changes
 * them sets SKUFB_DIRTY in skufmru. At the end of the raw file, too, the rest of
 * the buffer is what it held before.
 * Returns 4096 bytes, borrowed until the next fetch or move through the cache;
 * or null with SKUFA_NULL, SKUFA_SEEK (a block past 4 GiB, too), SKUFA_READ or
 * SKUFA_WRITE (of the block that had to make room) pushed, or no memory.
 */
KU_API unsigned char *skufvgptr(kux *ctx, void *cache, void *file, uint32_t block);

/*
 * Moves bytes between the client and the file at skufvpos, block by block, and
 * advances it. Bytes that were never written are undefined when read.
 *   buffer     `length` bytes of the client's
 *   direction  SKUFV_PUT: client to file, else file to client
 * Returns 0; or, with what went before done and skufvpos behind it, the newest
 * code on the error stack: an older one (the first block has been fetched then),
 * what the fetch pushed, or SKUFA_NULL (also when the fetch failed without a
 * code). A move that passes 4 GiB changes nothing: SKUFA_SEEK. One that ends
 * there leaves skufvpos 0.
 */
KU_API uint32_t skufvmove(kux *ctx, void *cache, void *file, void *buffer, uint32_t length,
                          char direction);

#ifdef __cplusplus
}
#endif

#endif
