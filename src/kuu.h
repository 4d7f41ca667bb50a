/*
 * kuu.h - text fields: setting and getting text-valued attributes
 *
 * A plain field is a `char *` to a NUL-terminated text in plain memory of the
 * context; a relocatable field is a relocatable handle that holds one. A field
 * owns its memory; null is a field without a text. Lengths count bytes without
 * the NUL.
 *
 * Length rule of setters and getters: where a length is supplied (`lensupplied`
 * not 0, length pointer not null) and the text is at least as long, that many
 * bytes of the text are taken; else the whole text. The length taken is stored
 * back where the length pointer is not null.
 *
 * Statuses are 0 or the newest code of the error stack. Failures are the
 * allocator's, and access to a handle: KUXRM_NOLOCK, KUXRM_NODEREF (kuxrm.h).
 * An allocation that failed without a code while the stack was empty is pushed
 * as KUXNM_NOMEM (kuxdn.h). A failed call changes nothing except where it says
 * so. Error facility: none of its own.
 */
#ifndef KUU_H
#define KUU_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies a text out, into a buffer of the caller's or a new one.
 *   bufaddr      the buffer; without `bufsupplied` receives a new one, the
 *                caller's, released with kuxnmfree, or null for a null text
 *   buflenaddr   in, with `bufsupplied`: size of the buffer in bytes; out: bytes
 *                copied. May be null without `bufsupplied`
 *   bufsupplied  not 0: as much as fits goes into *bufaddr, and a NUL follows only
 *                when a byte is left for it; a null text copies nothing
 *   srctext      NUL-terminated, or null
 */
KU_API uint32_t kuu_copytext(kux *ctx, char **bufaddr, uint32_t *buflenaddr, int32_t bufsupplied,
                             const char *srctext);

/*
 * A text in a new handle of `len` + 1 bytes.
 *   len  bytes to copy; below 0: the whole text. Past the end of the text: the
 *        rest is NULs
 * Returns the handle, the caller's, released with the context's kuxrmfree; or
 * null for a null text and when memory or the lock (KUXRM_NOLOCK) failed.
 */
KU_API kuxhandle kuu_rmcopytext(kux *ctx, const char *srctext, int32_t len);

/*
 * Sets a field to a copy of a text, resizing it when its present text is shorter.
 *   newvalue     NUL-terminated, may be (part of) the field's own text; null: the
 *                field becomes null, length 0; the old text is not released: it
 *                is the caller's
 *   newlenp      in: length when supplied; out: length set. May be null
 *   dest         the field
 * A relocatable field that was resized and cannot be accessed then keeps its old
 * text, in its new handle.
 */
KU_API uint32_t kuu_ntset(kux *ctx, const char *newvalue, uint32_t *newlenp, int32_t lensupplied,
                          char **dest);
KU_API uint32_t kuu_rtset(kux *ctx, const char *newvalue, uint32_t *newlenp, int32_t lensupplied,
                          kuxhandle *dest);

/*
 * Copies a field's text out, always with a NUL.
 *   dest         in: the caller's buffer of length + 1 bytes, used when a length is
 *                supplied; else, or when it is null, receives a new one, the
 *                caller's, released with kuxnmfree
 *   lenp         in: length when supplied; out: length copied. May be null
 *   value        the field; null: an empty text in the caller's buffer, else null
 *                in *dest; length 0
 */
KU_API uint32_t kuu_ntget(kux *ctx, char **dest, uint32_t *lenp, int32_t lensupplied,
                          const char *value);
KU_API uint32_t kuu_rtget(kux *ctx, char **dest, uint32_t *lenp, int32_t lensupplied,
                          kuxhandle value);

#ifdef __cplusplus
}
#endif

#endif
