/*
 * kuxio.h - the context's message stream, and the error dump through it
 *
 * The stream is kept as the context property `kuxio` 0; the client owns it and
 * takes it out (kuxioset with null) before destroying it.
 */
#ifndef KUXIO_H
#define KUXIO_H

#include "kux.h"
#include "kuxst.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXIO_PROPERTY KU_CODE('k', 'u', 'x', 'i', 'o', 0) /* name of the property */

#define KUXIOA_STDIO 0x1u /* bit of mask_kuxioa */

/* Message attributes of a context. */
typedef struct kuxioa {
    uint32_t mask_kuxioa; /* which fields are given or wanted */
    kuxst *stdio_kuxioa;  /* the message stream, or null for none; borrowed */
} kuxioa;

/* Installs the stream. Returns 0, or the newest code when it cannot be kept (KUXPR_FULL). */
KU_API uint32_t kuxioset(kux *ctx, const kuxioa *attrs);

/* Fills stdio_kuxioa. Returns the newest code on the error stack, whoever pushed it; 0 when empty. */
KU_API uint32_t kuxioget(kux *ctx, kuxioa *attrs);

/* Shows a text through the installed stream, else through kuxstdmessage; its status. */
KU_API uint32_t kuxiomessage(kux *ctx, const char *text);

/* Asks through the installed stream, else through kuxstdconfirm; non-zero means yes. */
KU_API int32_t kuxioconfirm(kux *ctx, const char *text);

/*
 * Shows each record of the current error-stack level, oldest first, as a line
 * "ERROR: kuxnm 2  a, bc" of at most 80 bytes and a newline. A `clear` other
 * than 0 clears the level afterwards.
 */
KU_API void kuxioperrors(kux *ctx, int32_t clear);

#ifdef __cplusplus
}
#endif

#endif
