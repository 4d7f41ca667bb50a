/*
 * kuxrl.h - logged relocatable memory, and its log
 *
 * Like the context's relocatable callbacks, but noted in the relocatable-memory
 * log so that a frame (kuxml.h) can undo allocations, locks and dereferences.
 * Nothing here pushes a code but KUXML_FULL, when the log cannot grow; the
 * operation is then not carried out. The context's callbacks push their own.
 */
#ifndef KUXRL_H
#define KUXRL_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What kuxrlmlog is told. Any other value writes nothing. */
#define KUXRL_ALLOC 512u
#define KUXRL_FREE 1024u
#define KUXRL_REALLOC 2048u /* a handle changed: its newest allocation record follows it */
#define KUXRL_LOCK 4096u
#define KUXRL_UNLOCK 8192u
#define KUXRL_BEGINDEREF 16384u
#define KUXRL_ENDDEREF 32768u

/* Log record. */
struct kuxrl {
    kuxhandle kuxrlhandle; /* the handle; no meaning in a mark */
    uint32_t kuxrltype;    /* 0 frame mark, 1 allocated, 2 released, 3 locked, 4 unlocked,
                              5 dereference begun, 6 ended, 7 cancelled */
};

/* A handle to `size` bytes, or null. */
KU_API kuxhandle kuxrlalloc(kux *ctx, uint32_t size);

/* Releases a handle; kept when the log cannot grow. Returns null. */
KU_API kuxhandle kuxrlfree(kux *ctx, kuxhandle handle);

/* Resizes; the handle must be unlocked, since only its allocation record follows it. */
KU_API kuxhandle kuxrlrealloc(kux *ctx, kuxhandle handle, uint32_t size);

/* Access: what the context's callback returned; null also when the log cannot grow. */
KU_API void *kuxrllock(kux *ctx, kuxhandle handle);
KU_API void *kuxrlunlock(kux *ctx, kuxhandle handle);
KU_API void *kuxrlbeginderef(kux *ctx, kuxhandle handle);
KU_API void *kuxrlendderef(kux *ctx, kuxhandle handle);

/* ---- the log itself, as in kuxnl.h; it starts with 100 records and grows by 100 ---- */

KU_API uint32_t kuxrlinit(kux *ctx);
KU_API void kuxrldestroy(kux *ctx);
KU_API void kuxrlmlog(kux *ctx, uint32_t operation, kuxhandle handle, kuxhandle newhandle);
KU_API uint32_t kuxrlrserve(kux *ctx);
KU_API void kuxrleend(kux *ctx);
KU_API void kuxrlrollback(kux *ctx);

#ifdef __cplusplus
}
#endif

#endif
