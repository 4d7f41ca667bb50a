/*
 * kuxer.h - error stack: what failed, newest last, bounded
 *
 * A failing operation pushes a record: a code (facility and number, KU_CODE)
 * and copies of its text parameters. A level holds kuxersize records; a push
 * on a full level drops the oldest. Levels are saved and restored around an
 * inner operation whose errors are to be collected apart. Every operation
 * works on the current level. All memory is the basic allocator's.
 * Error facility: kuxer.
 */
#ifndef KUXER_H
#define KUXER_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXER_GENERIC                                                                              \
    KU_CODE('k', 'u', 'x', 'e', 'r', 1) /* kuxerinit has no memory (returned); also
                                                             the message that wraps an error
                                                             without a message of its own */
#define KUXER_NOLEVEL KU_CODE('k', 'u', 'x', 'e', 'r', 2)   /* a level cannot be saved: no memory */
#define KUXER_LAST KU_CODE('k', 'u', 'x', 'e', 'r', 3)      /* only one level: nothing to restore */
#define KUXER_CUT KU_CODE('k', 'u', 'x', 'e', 'r', 4)       /* message text cut; never pushed */
#define KUXER_NOMESSAGE KU_CODE('k', 'u', 'x', 'e', 'r', 5) /* no such message; never pushed */

#define KUXER_TEXTMAX                                                                              \
    512u /* longest message text or plain text that kuxerfmtmsg works with, in bytes */

/* Error record. */
struct kuxer {
    uint32_t kuxercode;   /* the code */
    int32_t kuxernparams; /* parameters held */
    char **kuxerparams;   /* copies of the parameters, NUL-terminated; null when there are none */
};

/* Stack level: index 0 is the oldest record. */
struct kuxes {
    int32_t nerrors_kuxes; /* records in use */
    kuxer *errors_kuxes;   /* kuxersize records */
};

/* Callback of kuxeriterate; the record is borrowed for the call. */
typedef void (*kuxeritfn)(kux *ctx, kuxer *record, void *clientarg);

/*
 * Pushes a record on the current level.
 *   code     any value but 0
 *   nparams  texts in `params`; below 1 or a null array: none
 *   params   NUL-terminated texts, copied in; a null text is kept as "(null)";
 *            may point into the stack itself
 * Always adds the record; without memory it keeps the parameters copied so far.
 */
KU_API void kuxerpush(kux *ctx, uint32_t code, int32_t nparams, const char *const *params);
KU_API void kuxer0push(kux *ctx, uint32_t code);
KU_API void kuxer1push(kux *ctx, uint32_t code, const char *text1);
KU_API void kuxer2push(kux *ctx, uint32_t code, const char *text1, const char *text2);
KU_API void kuxer3push(kux *ctx, uint32_t code, const char *text1, const char *text2,
                       const char *text3);
KU_API void kuxer4push(kux *ctx, uint32_t code, const char *text1, const char *text2,
                       const char *text3, const char *text4);

/* Clears the current level, then pushes; arguments as for kuxerpush. */
KU_API void kuxerset(kux *ctx, uint32_t code, int32_t nparams, const char *const *params);

/* Drops every record of the current level. Lower levels are untouched. */
KU_API void kuxerclear(kux *ctx);

/* Drops the newest record of the current level, if there is one. */
KU_API void kuxerpop(kux *ctx);

/* How many records the current level holds. */
KU_API int32_t kuxernerrors(kux *ctx);

/*
 * Record `index` of the current level, 0 the oldest; any index out of range
 * gives the newest. Null on an empty level. Borrowed until the level changes.
 */
KU_API kuxer *kuxerget(kux *ctx, int32_t index);

/* Code of the newest record of the current level; 0 when it is empty. */
KU_API uint32_t kuxercode(kux *ctx);

/*
 * Formats a record with the context's formatter (a null one: kuxerdformat).
 *   buffer, size  where to, and its bytes, the NUL included
 *   truncated     set to 1 when the text was cut, else 0; may be null
 * Returns the bytes used, as the formatter counts them.
 */
KU_API uint32_t kuxerformat(kux *ctx, kuxer *record, char *buffer, uint32_t size,
                            int32_t *truncated);

/*
 * The default formatter: facility letters, blank, number, two blanks, then the
 * parameters with ", " between them: "kuxnm 2  a, bc". Returns the bytes used
 * with the NUL. A size below 10 gives 0, an untouched buffer and truncated 1.
 * Parameters are cut by bytes.
 */
KU_API uint32_t kuxerdformat(kux *ctx, kuxer *record, char *buffer, uint32_t size,
                             int32_t *truncated);

/*
 * Calls `callback` for each record of the current level, newest first. The walk goes
 * by index: a callback may push, pop or clear, and then the record that lies at the
 * next index is visited, if there is one. It ends when the level changes.
 */
KU_API void kuxeriterate(kux *ctx, kuxeritfn callback, void *clientarg);

/*
 * Puts a fresh, empty level on top. Returns 0, or KUXER_NOLEVEL (pushed on the
 * level that stays current).
 */
KU_API uint32_t kuxersavestack(kux *ctx);

/*
 * Drops the current level with its records; the one below is current again,
 * as it was. Returns 0, or KUXER_LAST (pushed) when it is the only level.
 */
KU_API uint32_t kuxerrestorestack(kux *ctx);

/*
 * Message text of a code from the application's message files.
 *   type       resource type, for example "text", "cause" or "action"
 *   buffer     *length + 1 bytes
 *   length     in: most bytes wanted; out: bytes of the text, 0 when there is none
 *   truncated  out: 1 when the text was cut to *length, else 0; may be null
 * A found text is NUL-terminated. Pushes nothing that stays; but when a level
 * cannot be saved for want of memory, KUXER_NOLEVEL stays on the caller's level
 * and no text is found. A full level then loses its oldest record to it.
 */
KU_API void kuxergmsg(kux *ctx, uint32_t code, const char *type, char *buffer, uint32_t *length,
                      int32_t *truncated);

/*
 * The user's text of a record: its message with the parameters put in for "%s"
 * (the next one) and "%[n]s" (number n from 1); else message KUXER_GENERIC
 * around the plain text; else the plain text of the context's formatter.
 *   buffer     *length + 1 bytes; always NUL-terminated, never more than
 *              *length bytes before the NUL
 *   length     in: most bytes; out: bytes of a message; unchanged for plain text
 *   truncated  out: 1 when a message text was longer than KUXER_TEXTMAX; may be
 *              null. A parameter cut for room does not set it.
 * Parameters are cut at a whole character; other text that does not fit makes
 * the attempt fail. Allocates for a level and for the message only; without
 * memory for the message the text is the plain one. When a level cannot be saved,
 * KUXER_NOLEVEL stays on the caller's level; a full level loses its oldest record
 * to it, which may be `record`, so the plain text is then of its code alone,
 * without parameters.
 */
KU_API void kuxerfmtmsg(kux *ctx, kuxer *record, const char *type, char *buffer, uint32_t *length,
                        int32_t *truncated);

/*
 * Sets up the stack of a new context: one empty level. Returns 0, or
 * KUXER_GENERIC (not pushed) without memory. For kuxcreate.
 */
KU_API uint32_t kuxerinit(kux *ctx, const kuxa *attrs);

/* Releases the stack. Later pushes are dropped, later queries give 0. For kuxdestroy. */
KU_API void kuxerdestroy(kux *ctx);

#ifdef __cplusplus
}
#endif

#endif
