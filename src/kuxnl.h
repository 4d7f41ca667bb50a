/*
 * kuxnl.h - logged plain memory, and its log
 *
 * Like the context's callbacks, but noted in the plain-memory log so that a
 * frame (kuxml.h) can undo it. Use it inside a frame: records written outside
 * one stay in the log. Error facility: kuxml, when the log cannot grow.
 */
#ifndef KUXNL_H
#define KUXNL_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What kuxnllog is told. Any other value writes nothing. */
#define KUXNL_ALLOC 8u    /* a block was allocated */
#define KUXNL_FREE 16u    /* a block is about to be released */
#define KUXNL_REALLOC 32u /* a block moved: its newest allocation record follows it */

/* Log record. */
struct kuxnl {
    void *kuxnlptr;    /* the block; no meaning in a mark */
    uint8_t kuxnltype; /* 0 frame mark, 1 allocated, 2 released, 3 allocated and later released */
};

/* Allocates `size` bytes; the block, or null (KUXML_FULL pushed when the log was full). */
KU_API void *kuxnlalloc(kux *ctx, uint32_t size);

/* Releases a block. When the log cannot grow it pushes KUXML_FULL and keeps the block. Returns null. */
KU_API void *kuxnlfree(kux *ctx, void *address);

/* Resizes a block, which must come from kuxnlalloc to stay logged. The new address, or null. */
KU_API void *kuxnlrealloc(kux *ctx, void *address, uint32_t size);

/* ---- the log itself: what the above is made of ---- */

/* Makes an empty log of 50 records. Returns 0, or KUXRM_REFUSED (not pushed) without memory. */
KU_API uint32_t kuxnlinit(kux *ctx);

/* Releases the log; nothing is rolled back. */
KU_API void kuxnldestroy(kux *ctx);

/*
 * Notes one operation (KUXNL_...); `newaddress` only for KUXNL_REALLOC. A
 * record for which there is no room, even after growing, is dropped silently.
 */
KU_API void kuxnllog(kux *ctx, uint32_t operation, void *address, void *newaddress);

/* Room for one more record, growing by 50. Returns 0, or KUXML_FULL (pushed). */
KU_API uint32_t kuxnlrserve(kux *ctx);

/* The plain-memory half of kuxmlend and of kuxmlrollback. */
KU_API void kuxnlend(kux *ctx);
KU_API void kuxnlrollback(kux *ctx);

#ifdef __cplusplus
}
#endif

#endif
