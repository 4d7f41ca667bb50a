/*
 * kuxst.h - message stream: how a client shows text and asks questions
 *
 * A pair of client functions and their data. Create one, give it to the context
 * (kuxio.h), destroy it when the context no longer uses it.
 */
#ifndef KUXST_H
#define KUXST_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kuxst kuxst;

/* Shows one text; returns a status, 0 for success. `stream` is null for the default. */
typedef uint32_t (*kuxstmessagefn)(kux *ctx, kuxst *stream, const char *text);
/* Asks one question; non-zero means yes. */
typedef int32_t (*kuxstconfirmfn)(kux *ctx, kuxst *stream, const char *text);

/* Message stream. */
struct kuxst {
    kuxstmessagefn message_kuxst; /* shows a message */
    kuxstconfirmfn confirm_kuxst; /* asks a question */
    void *streamdata_kuxst;       /* the client's data for the two */
};

/* Bits of mask_kuxsta. */
#define KUXSTA_MESSAGE 0x1u
#define KUXSTA_CONFIRM 0x2u
#define KUXSTA_STREAMDATA 0x4u

/* Attributes of a stream. */
typedef struct kuxsta {
    uint32_t mask_kuxsta;          /* which fields are given or wanted */
    kuxstmessagefn message_kuxsta; /* default kuxstdmessage */
    kuxstconfirmfn confirm_kuxsta; /* default kuxstdconfirm */
    void *streamdata_kuxsta;       /* default null; borrowed */
} kuxsta;

/* A new stream, the caller's, ended with kuxstdestroy; or null without memory. */
KU_API kuxst *kuxstcreate(kux *ctx, const kuxsta *attrs);

/* Releases a stream. Returns the newest code on the error stack, 0 when it is empty. */
KU_API uint32_t kuxstdestroy(kux *ctx, kuxst *stream);

/* Copies the selected fields into, or out of, the stream. Return 0. */
KU_API uint32_t kuxstset(kux *ctx, kuxst *stream, const kuxsta *attrs);
KU_API uint32_t kuxstget(kux *ctx, kuxst *stream, kuxsta *attrs);

/* Shows a text, asks a question: what the stream's functions return. */
KU_API uint32_t kuxstmessage(kux *ctx, kuxst *stream, const char *text);
KU_API int32_t kuxstconfirm(kux *ctx, kuxst *stream, const char *text);

/*
 * The default functions: over the context's standard output and input, which
 * are inert here, so that nothing shows and every answer is no. The question
 * gets " [y/n]: " behind it; an answer that begins with y or Y is yes.
 */
KU_API uint32_t kuxstdmessage(kux *ctx, kuxst *stream, const char *text);
KU_API int32_t kuxstdconfirm(kux *ctx, kuxst *stream, const char *text);

#ifdef __cplusplus
}
#endif

#endif
