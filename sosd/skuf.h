/*
 * skuf.h - block cache: a few 4096-byte buffers shared by all paged files opened through it
 *
 * Create a cache, open paged files through it (skufv.h), close them, destroy the
 * cache. A paged file is an array of blocks of SKUF_BLOCK bytes; a byte position
 * splits into block position >> 12 and offset position & 0xFFF. Positions and
 * block numbers are unsigned 32-bit, a file ends at 4 GiB.
 *
 *   skufv.h  virtual files: what clients read and write
 *   skufb.h  buffers: transfer, release, flush, discard
 *   skufo.h  raw files: what the system knows
 *   skufz.h  fresh names for scratch files
 *
 * A cache and its files are used by one thread at a time. Memory comes from the
 * context's plain callbacks; when it runs out an operation fails with what the
 * allocate callback pushed and no code of its own. Error facility: skufa.
 */
#ifndef SKUF_H
#define SKUF_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- constants ---- */

#define SKUF_BLOCK 4096u      /* bytes of a block */
#define SKUF_LEASTBUFS 2u     /* buffers of the smallest cache */
#define SKUF_MOSTBUFS 15u     /* buffers of the largest cache */
#define SKUF_TMPDIRLEN 512u   /* bytes of the temporary directory's name, the NUL included */
#define SKUF_BLOCKS 0x100000u /* blocks of the longest file */

/* Bits of a file's mode, for skufoopen and skufvopen. */
#define SKUF_READWRITE 0x0002u /* reading and writing; every file is opened so */
#define SKUF_APPEND 0x0008u    /* start at the end of the file */
#define SKUF_CREATE 0x0020u    /* create the file if it does not exist */
#define SKUF_TEMPORARY                                                                             \
    0x0040u              /* blocks are written when they are evicted only; the file is
                                  deleted when the virtual file is closed */
#define SKUF_NEW 0x0100u /* create the file or empty it */
#define SKUF_SCRATCH (SKUF_READWRITE | SKUF_TEMPORARY | SKUF_NEW) /* 0x0142: a scratch file */

/* ---- error numbers ---- */

#define SKUFA_READ KU_CODE('s', 'k', 'u', 'f', 'a', 2)  /* reading failed; the file's name */
#define SKUFA_WRITE KU_CODE('s', 'k', 'u', 'f', 'a', 3) /* writing failed or moved nothing */
#define SKUFA_CLOSE                                                                                \
    KU_CODE('s', 'k', 'u', 'f', 'a', 4) /* closing failed (the file's name); no raw file; a
                                           temporary file without a name */
#define SKUFA_TOOMANY KU_CODE('s', 'k', 'u', 'f', 'a', 5) /* too many files are open */
#define SKUFA_SEEK                                                                                 \
    KU_CODE('s', 'k', 'u', 'f', 'a', 6)                    /* a position cannot be reached, or is
                                                            past 4 GiB; the file's name in block
                                                            transfers */
#define SKUFA_READONLY KU_CODE('s', 'k', 'u', 'f', 'a', 9) /* denied: the file is not writable */
#define SKUFA_NONAME KU_CODE('s', 'k', 'u', 'f', 'a', 10)  /* the path is empty */
#define SKUFA_DENIED KU_CODE('s', 'k', 'u', 'f', 'a', 12)  /* denied: no such file */
#define SKUFA_INUSE KU_CODE('s', 'k', 'u', 'f', 'a', 13)   /* denied though writable: in use */
#define SKUFA_OPEN KU_CODE('s', 'k', 'u', 'f', 'a', 14)    /* opening failed otherwise */
#define SKUFA_NOTFOUND                                                                             \
    KU_CODE('s', 'k', 'u', 'f', 'a', 17) /* the path leads nowhere, or to a directory */
#define SKUFA_NULLNAME KU_CODE('s', 'k', 'u', 'f', 'a', 18) /* the path is null */
#define SKUFA_REMOVE KU_CODE('s', 'k', 'u', 'f', 'a', 20)   /* deleting failed; returned only */
#define SKUFA_NULL KU_CODE('s', 'k', 'u', 'f', 'a', 21)     /* a handle or buffer is null */
#define SKUFA_TMPDIR                                                                               \
    KU_CODE('s', 'k', 'u', 'f', 'a', 22) /* the temporary directory's name does not fit, or no
                                            memory; returned only */

/* ---- records ---- */

typedef struct skufb skufb; /* buffer, skufb.h */
typedef struct skufo skufo; /* raw file, skufo.h */
typedef struct skufv skufv; /* virtual file, skufv.h */

/* Block cache. Handed out as an untyped handle. */
typedef struct skuf {
    skufb *skufmru;          /* buffer of the last successful fetch; never null */
    skufb *skuftab;          /* the buffers, skufnum of them */
    skufb **skufhash;        /* skufnum chains; a block's is its number modulo skufnum */
    skufb *skuffree;         /* free buffers, linked by skufbnext */
    skufb *skufnext;         /* the replacement hand: the next to be considered for eviction */
    uint16_t skufnum;        /* buffers, 2 to 15 */
    char *skufpath;          /* the temporary directory when the cache was made; owned */
    unsigned char *skuforig; /* static: the buffers' data areas, one block; dynamic: null */
    uint16_t skuftnum;       /* counter of temporary names, 0 to 999, first 1 */
    int32_t skufdynamic;     /* 0: data areas live with the cache, else with the block they hold */
} skuf;

/* ---- operations ---- */

/*
 * Creates a cache whose data areas are allocated at once.
 *   nbuffers  clamped to 2 to 15. Of scratch files that the system lets be reached
 *             through memory, 12 MB for each buffer are resident in it at most
 * Returns the cache, the caller's, ended with skufdestroy; or null, nothing
 * pushed, when the temporary directory's name needs more than 512 bytes or
 * memory ran out.
 */
KU_API void *skufcreate(kux *ctx, uint16_t nbuffers);

/* The same; each data area is allocated when its buffer gets a block, and released with it. */
KU_API void *skufdcreate(kux *ctx, uint16_t nbuffers);

/*
 * Releases a cache; a null one is ignored. Its files must have been closed:
 * nothing is written, closed or deleted here. Returns null.
 */
KU_API void *skufdestroy(kux *ctx, void *cache);

/*
 * The temporary directory: the value of TMP, with a backslash after it unless it
 * ends in a backslash or a colon; empty (the current directory) when TMP is
 * unset or empty. No other variable counts. A backslash separates directories
 * wherever a name is handed to the system, so TMP=/tmp gives names in /tmp.
 *   buffer  where to, `length` bytes; untouched on failure
 * Returns 0, or SKUFA_TMPDIR, which is not pushed.
 */
KU_API uint32_t skuftmpdir(kux *ctx, char *buffer, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
