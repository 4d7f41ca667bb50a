/*
 * skuhm.h - heap: memory of the component runtime's task allocator
 *
 * Create a heap with skuhmi, allocate from it, end it with skuhmf. The heap
 * object carries a table of its own operations: who is handed a heap calls
 * through the table, so that a client may put functions of its own there. The
 * runtime is a module that is loaded when a heap is created and given back when
 * it ends: `libkucom.so.2`, beside the library or in the directory that the
 * environment variable KU_SYSDIR names. Without it there is no heap.
 *
 * Sizes and offsets count bytes. A heap does not track its blocks: release them
 * before it ends. Error facility: skuhm; every code is pushed once, without
 * parameters. A heap is usable when neither it nor its private record is null.
 */
#ifndef SKUHM_H
#define SKUHM_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SKUHM_SHARED                                                                               \
    0x1u /* flag of skuhmi: memory that other processes can see, where the runtime
                             has such; the one that comes with the library has not, and gives its
                             usual memory */

#define SKUHM_INVALID KU_CODE('s', 'k', 'u', 'h', 'm', 1)   /* no usable heap, or no address */
#define SKUHM_NORUNTIME KU_CODE('s', 'k', 'u', 'h', 'm', 2) /* no component runtime */
#define SKUHM_NOMEM KU_CODE('s', 'k', 'u', 'h', 'm', 4)     /* no memory for heap or block */
#define SKUHM_NORESIZE KU_CODE('s', 'k', 'u', 'h', 'm', 5)  /* a block cannot get its new size */
#define SKUHM_BADRANGE                                                                             \
    KU_CODE('s', 'k', 'u', 'h', 'm', 6) /* unknown block, or memory that cannot
                                                               be read or written */

typedef struct tag_skuhm tag_skuhm;

/* The operations, as they stand in the table. */
typedef tag_skuhm *(*skuhminitfn)(kux *ctx, uint32_t flags);
typedef void (*skuhmfinishfn)(kux *ctx, tag_skuhm **heap);
typedef void *(*skuhmallocfn)(kux *ctx, void *heap, uint32_t size);
typedef void *(*skuhmreallocfn)(kux *ctx, void *heap, void *old, uint32_t size);
typedef void (*skuhmfreefn)(kux *ctx, void *heap, void *address);
typedef uint32_t (*skuhmgetsizefn)(kux *ctx, void *heap, void *address, uint32_t *size);
typedef void (*skuhmheapminfn)(kux *ctx, void *heap);
typedef uint32_t (*skuhmmemcpyfn)(kux *ctx, void *heap, void *target, const void *source,
                                  uint32_t size);
typedef uint32_t (*skuhmgetptrfn)(kux *ctx, void *heap, void *old, uint32_t offset, void **address);
typedef int32_t (*skuhmisokfn)(kux *ctx, void *heap, const void *address, uint32_t size);

/* The heap object. */
struct tag_skuhm {
    kux *kuxp;                       /* the context given at creation */
    void *skuhmprivate;              /* the heap's own; null: not usable */
    skuhminitfn skuhminit_pfn;       /* skuhmi */
    skuhmfinishfn skuhmfinish_pfn;   /* skuhmf */
    skuhmallocfn skuhmalloc_pfn;     /* skuhmal */
    skuhmreallocfn skuhmrealloc_pfn; /* skuhmra */
    skuhmfreefn skuhmfree_pfn;       /* skuhmfr */
    skuhmgetsizefn skuhmgetsize_pfn; /* skuhmgs */
    skuhmheapminfn skuhmheapmin_pfn; /* skuhmhm */
    skuhmmemcpyfn skuhmmemcpy_pfn;   /* skuhmcp */
    skuhmgetptrfn skuhmgetptr_pfn;   /* skuhmgp */
    skuhmisokfn skuhmisokw_pfn;      /* skuhmow: is the range writable */
    skuhmisokfn skuhmisokr_pfn;      /* skuhmor: is the range readable */
};

/*
 * A new heap.
 *   flags  SKUHM_SHARED or 0; other bits mean nothing
 * Returns it, the caller's, ended with skuhmf; or null: SKUHM_NORUNTIME when the
 * runtime cannot be loaded, lacks an entry point, does not start or gives no
 * allocator, SKUHM_NOMEM; everything that was begun is undone.
 */
KU_API tag_skuhm *skuhmi(kux *ctx, uint32_t flags);

/*
 * Ends a heap and sets the caller's pointer to null. Blocks still allocated are
 * lost. A null `heap`, a null pointer in it or an unusable heap pushes
 * SKUHM_INVALID and changes nothing.
 */
KU_API void skuhmf(kux *ctx, tag_skuhm **heap);

/*
 * A new block of `size` bytes (0 is as good as any), its contents undefined. The
 * caller's, released with skuhmfr. Null: SKUHM_INVALID, SKUHM_NOMEM.
 */
KU_API void *skuhmal(kux *ctx, void *heap, uint32_t size);

/*
 * Gives a block another size; its contents are kept up to the smaller one.
 * Returns the block's address from now on; or null with the old block unchanged:
 * SKUHM_INVALID (also for a null `old`), SKUHM_NORESIZE (no memory, or not a
 * block of this runtime).
 */
KU_API void *skuhmra(kux *ctx, void *heap, void *old, uint32_t size);

/* Releases a block; null and unknown addresses are ignored. Pushes SKUHM_INVALID. */
KU_API void skuhmfr(kux *ctx, void *heap, void *address);

/*
 * Stores the size of a block, as it was asked for, in *size. Returns 0, or the
 * code it pushed with *size unchanged: SKUHM_INVALID (also for a null `address`
 * or `size`), SKUHM_BADRANGE (not a block of this runtime).
 */
KU_API uint32_t skuhmgs(kux *ctx, void *heap, void *address, uint32_t *size);

/* Gives unused memory back to the system. Pushes SKUHM_INVALID. */
KU_API void skuhmhm(kux *ctx, void *heap);

/*
 * Copies `size` bytes, which may overlap, after a look at both ranges. Returns
 * 0, or the code it pushed with nothing copied: SKUHM_INVALID (no heap; its
 * private record is not looked at), SKUHM_BADRANGE.
 */
KU_API uint32_t skuhmcp(kux *ctx, void *heap, void *target, const void *source, uint32_t size);

/*
 * Stores the address `offset` bytes behind `old` in *address. Returns 0, or the
 * code it pushed: SKUHM_BADRANGE with null stored (`old` cannot be read),
 * SKUHM_INVALID with null stored (no heap, nor `address`), SKUHM_BADRANGE with the
 * address stored (it cannot be read). In that order.
 */
KU_API uint32_t skuhmgp(kux *ctx, void *heap, void *old, uint32_t offset, void **address);

/*
 * 1 when each byte of the range can be read, or written, now; else 0. No bytes
 * are good anywhere. Never crash, never push; the heap is not looked at.
 */
KU_API int32_t skuhmor(kux *ctx, void *heap, const void *address, uint32_t size);
KU_API int32_t skuhmow(kux *ctx, void *heap, const void *address, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
