/*
 * kuum.h - SQL wildcards: `%` stands for any bytes, `_` for exactly one
 *
 * Compile a pattern with kuumcreate, match subjects against it with kuumatch,
 * release it with kuumfree. All other bytes stand for themselves; nothing
 * escapes. It works on bytes, in every language: `_` is one byte, not one
 * character, and letters differ by case. Error facility: none.
 */
#ifndef KUUM_H
#define KUUM_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Values of kuumt_type. */
#define KUUMT_END 0        /* ends the array */
#define KUUMT_HEADER 1     /* begins it */
#define KUUMT_PERCENT 2    /* a run of `%` */
#define KUUMT_UNDERSCORE 3 /* a run of `_` */
#define KUUMT_LITERAL 4    /* a run of other bytes */

/* Wildcard token. A compiled pattern is an array: header, tokens in their order, end. */
typedef struct kuumtdef {
    int32_t kuumt_type;              /* KUUMT_... */
    int32_t kuumt_num;               /* header: number of tokens; `_` and literal: bytes;
                                        else 0 */
    const unsigned char *kuumt_str;  /* where the token begins in the pattern's text */
    const unsigned char *kuumt_sstr; /* literal: where in the subject a match tries next; or null */
    int32_t kuumt_snum;              /* bytes of the subject from there, at most INT32_MAX */
} kuumtdef;

/*
 * Compiles a pattern.
 *   str  NUL-terminated; borrowed: it must outlive the compiled pattern
 * Returns the compiled pattern, the caller's, released with kuumfree; or null
 * without memory (the allocator's code is pushed) and for a null text.
 */
KU_API kuumtdef *kuumcreate(kux *ctx, const char *str);

/*
 * 1 when the pattern covers the whole subject (NUL-terminated), else 0; 0 when
 * either is null. Compares bytes at most pattern x subject times. It leaves marks in
 * the compiled pattern, which therefore serves one match at a time. Cannot fail.
 */
KU_API int32_t kuumatch(kux *ctx, kuumtdef *mtkn, const char *str);

/* Releases a compiled pattern; null is ignored. Returns null. */
KU_API kuumtdef *kuumfree(kux *ctx, kuumtdef *mtkn);

#ifdef __cplusplus
}
#endif

#endif
