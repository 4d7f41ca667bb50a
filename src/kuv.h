/*
 * kuv.h - virtual memory: objects reached by handles, which may move and be swapped out
 *
 * Create a context, allocate objects, reach their bytes by kuvlock or kuvderef,
 * free them, destroy the context. A handle stays valid for the object's life.
 * With swapping (KUVA_SOFTVIRT) objects lie in a few memory segments and those
 * that are not locked may be written to a swap file, a scratch file that is
 * deleted at the end, to make room (kuvp.h); without, each is a heap block.
 *
 *     kuva attrs;
 *     memset(&attrs, 0, sizeof attrs);
 *     attrs.mask_kuva = KUVA_SOFTVIRT;
 *     attrs.softvirt_kuva = 1;
 *     kuv *memory = kuvcreate(ctx, &attrs);
 *     void *handle = kuvalloc(memory, 100);
 *     char *bytes = (char *)kuvlock(memory, handle);     stays here until it is unlocked
 *     kuvunlock(memory, handle);
 *
 * An unlocked object's address holds until the next operation on the same
 * context: any may move or swap out every unlocked object. Addresses are
 * multiples of 8, not of more. Sizes count bytes; an object's usable size is
 * what was asked for, rounded up to a multiple of 8.
 *
 * All operations but kuvcreate take the virtual-memory context. It belongs to
 * one thread, with its library context. The swap file moves bytes only while the
 * library context's error stack is empty: with an error pending, swapping in or
 * out fails. Clear the stack before. A null context gives null, 0 or KUVAA_FAILED,
 * unpushed (kuvderef does not look at it for an object in memory). A null handle, and where the bytes are asked for one that was freed,
 * pushes KUVAA_FAILED. Error facility: kuvaa.
 */
#ifndef KUV_H
#define KUV_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- constants ---- */

/* Bits of mask_kuva: which fields are given or wanted. */
#define KUVA_MPCNT 0x0002u
#define KUVA_BUFCNT 0x0004u
#define KUVA_CACHEPATH 0x0008u
#define KUVA_SEGSIZE 0x0010u
#define KUVA_NUMSEGS 0x0020u
#define KUVA_SOFTVIRT 0x0040u
#define KUVA_MXFLSIZE 0x0080u
#define KUVA_HEAPSCRAM 0x0100u
#define KUVA_SKUFCTX 0x0200u
#define KUVA_HIGHWATER 0x0400u
#define KUVA_DEBUG 0x0800u
#define KUVA_NEWFILESIZE 0x1000u
#define KUVA_CLIENTDATA 0x2000u

#define KUV_ID KU_CODE('k', 'u', 'v', 'z', 'z', 0) /* id_kuv of a valid context: no error */
#define KUV_RESIDENT 0x80u                         /* flags_kuvcl: the bytes are in memory */
#define KUV_LOCKS 0x7Fu                            /* flags_kuvcl: lock count, 0 to 127 */

/* ---- error numbers ---- */

#define KUVAA_NOTLOCKED KU_CODE('k', 'u', 'v', 'a', 'a', 2)  /* unlocked without a lock */
#define KUVAA_LOCKLIMIT KU_CODE('k', 'u', 'v', 'a', 'a', 10) /* locked 127 times already */
#define KUVAA_LOCKED KU_CODE('k', 'u', 'v', 'a', 'a', 11)    /* resizing a locked object */
#define KUVAA_TOOLARGE                                                                             \
    KU_CODE('k', 'u', 'v', 'a', 'a', 13) /* with swapping: at least a segment is asked for */
#define KUVAA_FAILED                                                                               \
    KU_CODE('k', 'u', 'v', 'a', 'a', 18) /* no memory, a swap-file failure (also a swap file that
                                            would pass 4 GiB), a null or freed handle, null
                                            attributes, or any other failure */
#define KUVAA_NORUN                                                                                \
    KU_CODE('k', 'u', 'v', 'a', 'a', 21) /* no run of free and unlocked memory is large enough */

/* ---- records ---- */

typedef struct kuvcl kuvcl;       /* handle cell */
typedef struct kuvmh kuvmh;       /* handle page */
typedef struct kuvfrdef kuvfrdef; /* block header, kuvp.h */
typedef struct kuvsh kuvsh;       /* segment header, kuvp.h */

/*
 * Asks for a new limit of the swap file after a compaction has left it longer
 * than the limit or below an eighth of it.
 *   current  the limit, in bytes
 *   limit    out: the new one, taken as it is
 * Returns 0; anything else refuses: the object being swapped out stays in memory
 * and the operation that needed room fails. Must not call the virtual memory.
 */
typedef uint32_t (*kuvnewfilesizefn)(kux *ctx, void *clientdata, uint32_t current, uint32_t *limit);

/* Handle cell: what a handle points to. Clients read it at most. */
struct kuvcl {
    union {
        uint32_t csize;  /* used cell: the object's usable size in bytes, a multiple of 8 */
        kuvcl *caddress; /* free cell: the next free cell */
    } size_kuvcl;
    union {
        unsigned char *maddress; /* in memory: the object's bytes */
        uint32_t faddress;       /* swapped out: their offset in the swap file */
    } dataptr_kuvcl;
    uint8_t flags_kuvcl;    /* KUV_RESIDENT, and the lock count in KUV_LOCKS */
    uint8_t refcount_kuvcl; /* use count: 0 in a free cell, 1 after allocation */
    uint8_t segment_kuvcl;  /* number of the segment that holds the bytes */
    uint32_t mate_kuvcl;    /* private */
};

/* Handle page. */
struct kuvmh {
    kuvmh *mpnext_kuvmh;   /* next page, or null */
    kuvcl mplist_kuvmh[1]; /* mpcount_kuv cells */
};

/* Head of the swap file's list of reusable regions; both 0: none. */
typedef struct kuvfh {
    uint32_t ffbkls_kuvfh; /* offset of the first region */
    uint32_t ffbksz_kuvfh; /* its size in bytes */
} kuvfh;

/* The virtual-memory context. Visible, changed through operations only. */
typedef struct kuv {
    uint32_t id_kuv;                  /* KUV_ID while the context is valid */
    kux *kuxp_kuv;                    /* the library context */
    uint32_t softvirt_kuv;            /* 1: swapping; 0: every object is a heap block */
    kuvfh frehdr_kuv;                 /* the swap file's reusable regions */
    uint32_t lfbo_kuv;                /* offset of the next block at its end; first 1 */
    uint32_t mxbo_kuv;                /* its size limit in bytes */
    void *cfpt_kuv;                   /* the swap file (skufv.h); null without swapping */
    char *path_kuv;                   /* directory of the swap file; owned; null: none */
    uint32_t size_kuv;                /* bytes of a segment */
    void *skufh_kuv;                  /* the block cache that the swap file lives in */
    int32_t myskuf_kuv;               /* 1: the context made that cache and destroys it */
    int32_t debug_kuv;                /* debug setting: kept and reported, no effect */
    int32_t scmb_kuv;                 /* not 0: scramble mode */
    int32_t curfree_kuv;              /* free blocks in all segments */
    int32_t maxfree_kuv;              /* the most there have been */
    kuvmh *mphead_kuv;                /* first handle page */
    kuvmh *mptail_kuv;                /* last handle page */
    kuvcl *mpfree_kuv;                /* first free cell */
    int8_t highwater_kuv;             /* percentage of the segments' memory to swap out when
                                         memory runs short; below 1: nothing */
    int16_t mpcount_kuv;              /* cells of a handle page */
    kuvnewfilesizefn newfilesize_kuv; /* asked for a new limit; null: halved or doubled */
    void *clientdata_kuv;             /* the client's, for that callback */
    int16_t numsegs_kuv;              /* segments, 1 to 255 */
    int16_t lastseg_kuv;              /* where the pager last found or freed memory */
    kuvsh *segs_kuv;                  /* numsegs_kuv segment headers */
    struct kuvown *own_kuv;           /* private */
} kuv;

/* Attributes; only fields whose bit is in the mask are looked at or filled. */
typedef struct kuva {
    uint32_t mask_kuva;                /* KUVA_... bits */
    int16_t mpcnt_kuva;                /* cells of a handle page; 4096, also for below 1 */
    uint32_t bufcnt_kuva;              /* buffers of a cache that the context makes; 25 (a cache
                                          has 2 to 15) */
    uint32_t mxflsize_kuva;            /* limit of the swap file in bytes; 262144, and at creation
                                          at least a segment */
    uint32_t softvirt_kuva;            /* not 0: swapping; 0 */
    int32_t heapscram_kuva;            /* scramble mode: with swapping, each allocation and each
                                          swap-in first swaps out all that is not locked; 0 */
    const char *cachepath_kuva;        /* directory of the swap file; the temporary directory */
    uint32_t segmentsize_kuva;         /* bytes of a segment, to which 8 are added before rounding
                                          down to a multiple of 8; 65520 as it is */
    uint8_t numsegments_kuva;          /* segments; 4, also for 0 */
    int8_t highwater_kuva;             /* percentage to swap out; 10 */
    void *skufcontext_kuva;            /* block cache for the swap file; null: a new one */
    int32_t debug_kuva;                /* debug setting; 1 */
    kuvnewfilesizefn newfilesize_kuva; /* asked for a new limit of the swap file; none */
    void *clientdata_kuva;             /* for that callback; null */
} kuva;

/* ---- the context ---- */

/*
 * Creates a context.
 *   attrs  copied in, the path too; a block cache given is borrowed until kuvdestroy
 * Segments get their memory when they are first needed.
 * Returns the context, the caller's, ended with kuvdestroy; or null, with
 * nothing left: no library context (nothing pushed), or KUVAA_FAILED, above
 * whatever else was pushed: null attributes, no memory, with swapping segments of
 * nearly 2 GiB and more, no temporary directory, or the swap file cannot be made.
 */
KU_API kuv *kuvcreate(kux *ctx, const kuva *attrs);

/*
 * Ends a context with all its objects. Returns 0; or KUVAA_FAILED, not pushed: for what is no
 * valid context, or when the error stack holds an error once all else is released. Then
 * only the record is left: clear the stack and call again.
 */
KU_API uint32_t kuvdestroy(kuv *memory);

/*
 * Changes the limit of the swap file (not raised to a segment here), scramble mode, debug
 * setting, percentage, directory (copied in; used by the next compaction), callback and its
 * data; other bits are ignored.
 * Returns 0; or KUVAA_FAILED with nothing changed: null attributes (pushed), the path is null or
 * cannot be copied (not pushed).
 */
KU_API uint32_t kuvset(kuv *memory, const kuva *attrs);

/*
 * Fills, by the mask, mpcnt, skufcontext, mxflsize, heapscram, debug, highwater, cachepath (a
 * copy, the caller's, released with the context's release callback; null when there is
 * none), newfilesize and clientdata; other bits are ignored. Returns as kuvset.
 */
KU_API uint32_t kuvget(kuv *memory, kuva *attrs);

/* ---- objects ---- */

/*
 * Allocates an object of `size` zero bytes; 0 is allowed.
 * Returns its handle, the caller's, released with kuvfree; or null:
 * KUVAA_TOOLARGE with swapping, when it and its 8-byte header do not fit a segment;
 * KUVAA_FAILED without memory, or from 2 GiB on without swapping; nothing besides
 * the allocator's code when a handle page cannot be had. A scrambling that fails
 * ends scramble mode.
 */
KU_API void *kuvalloc(kuv *memory, uint32_t size);

/*
 * Changes an object's size; its handle stays. The bytes up to the lesser size stay, those
 * behind the usable size that it had are zero. Unlocked addresses are invalid afterwards.
 * Returns the handle; or null with the object as it was: KUVAA_TOOLARGE, KUVAA_LOCKED, or
 * KUVAA_FAILED without memory.
 */
KU_API void *kuvrealloc(kuv *memory, void *handle, uint32_t nsize);

/*
 * Frees an object, locked or not; a use count above 1 is only lowered. A swapped-out
 * object is brought in first: without memory for that KUVAA_FAILED is pushed and
 * the object stays. Returns null.
 */
KU_API void *kuvfree(kuv *memory, void *handle);

/*
 * Locks an object, up to 127 times: it neither moves nor is swapped out until it is unlocked as
 * often. Returns its bytes, valid until then; or null with KUVAA_LOCKLIMIT or, when it cannot
 * be brought in, KUVAA_FAILED pushed.
 */
KU_API void *kuvlock(kuv *memory, void *handle);

/* Takes one lock back; without a lock it pushes KUVAA_NOTLOCKED. Returns null. */
KU_API void *kuvunlock(kuv *memory, void *handle);

/* The object's bytes, valid until the next operation on the context; or null, KUVAA_FAILED pushed. */
KU_API void *kuvderef(kuv *memory, void *handle);

/* The cell of a handle. */
#ifdef __cplusplus
#define KUV_CELL(handle) (static_cast<kuvcl *>(handle))
#else
#define KUV_CELL(handle) ((kuvcl *)(handle))
#endif

/* A call of kuvderef reads the cell itself: only what is not in memory costs a call. */
static inline void *kuvderefhere(kuv *memory, void *handle)
{
    if (handle && (KUV_CELL(handle)->flags_kuvcl & KUV_RESIDENT) != 0)
        return KUV_CELL(handle)->dataptr_kuvcl.maddress;
    return kuvderef(memory, handle);
}
#define kuvderef(memory, handle) kuvderefhere(memory, handle)

/*
 * Swaps an object out. Nothing happens when it is locked or out already, or without swapping. A
 * failure pushes KUVAA_FAILED and leaves it in memory. Returns null.
 */
KU_API void *kuvhpurge(kuv *memory, void *handle);

/* ---- copies and strings ---- */

/* A new object of the same usable size with the same bytes; null with KUVAA_FAILED pushed, or with
 * nothing pushed when the source is locked 127 times. */
KU_API void *kuvhdup(kuv *memory, void *handle);

/* A new object that holds the string and its NUL; null as kuvalloc, and for a null string. */
KU_API void *kuvsdup(kuv *memory, const char *text);

/* A new object that holds `length` bytes. They must not be those of an unlocked object of
 * this context, which the allocation may move. Null as kuvalloc, and for null bytes unless
 * `length` is 0. */
KU_API void *kuvmdup(kuv *memory, const void *bytes, uint32_t length);

/* Order of two strings by unsigned bytes: below, at or above 0; 0 after a failure, which pushes its
 * code. A string without a NUL ends with its object. */
KU_API int32_t kuvscmp(kuv *memory, void *handle1, void *handle2);

/* Appends the second string to the first, in place. Returns handle1; or null with its bytes
 * unchanged and KUVAA_FAILED (the object is too small, too) or KUVAA_LOCKLIMIT pushed. */
KU_API void *kuvscat(kuv *memory, void *handle1, void *handle2);

/* Order of the first `length` bytes by character value in the context's language: -1, 0 or 1; 0
 * after a failure, which pushes KUVAA_FAILED (an object is shorter, too) or KUVAA_LOCKLIMIT. */
KU_API int32_t kuvmcmp(kuv *memory, void *handle1, void *handle2, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
