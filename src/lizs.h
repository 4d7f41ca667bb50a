/*
 * lizs.h - concatenation of texts
 */
#ifndef LIZS_H
#define LIZS_H

#include "lizm.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Appends a NUL-terminated text to a NUL-terminated one.
 *   target   must have room for both and a terminator; a cursor is taken from
 *            its start and in the end opened anew, in its mode, on the whole,
 *            also when the source is empty
 *   manager  for the temporary that multibyte and cursor targets need outside
 *            single-byte languages; null: the default one (lizu.h)
 * Returns LIZ_OK; LIZ_NOMEMORY with the target unchanged; LIZ_END when case
 * mapping made the source longer than its temporary: what fits was appended.
 */
KU_API uint32_t lizscat(const kulang *lh, kulocglo *glo, void *target, int32_t trep,
                        const void *source, int32_t srep, int32_t option, const lizm *manager);

#ifdef __cplusplus
}
#endif

#endif
