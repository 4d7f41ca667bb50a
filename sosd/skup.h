/*
 * skup.h - names of the two preference files
 *
 * No context, no state, no error facility: results only.
 */
#ifndef SKUP_H
#define SKUP_H

#include "kudef.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SKUP_GLOBAL 0x1000u /* selector: the global file, "kugprefs.xdb" in KU_GPREFS */
#define SKUP_USER 0x2000u   /* selector: the user file, "kuuprefs.xdb" in KU_UPREFS */

/*
 * Full name of a preference file: the value of its environment variable, a
 * separator unless the value is empty or ends in one, base name and type.
 *   buffer    where to; untouched on failure
 *   length    its bytes, for the name and its NUL
 *   selector  SKUP_GLOBAL; any other value means the user file
 * Returns 0; or 1 when the variable is not set, its value is longer than 511
 * bytes, or the name does not fit.
 */
KU_API uint16_t skupfn(char *buffer, uint32_t length, uint16_t selector);

/* Called with the name of a preference file just written; does nothing here. */
KU_API void skupsi(const char *name);

#ifdef __cplusplus
}
#endif

#endif
