/*
 * kuxml.h - allocation frames: build in steps, keep all of it or nothing
 *
 * kuxmlbegin opens a frame in both allocation logs; what the logged layers
 * (kuxnl.h, kuxrl.h) then allocate, lock and release is noted. kuxmlend keeps
 * it and forgets the notes; kuxmlrollback undoes it, newest first. Frames
 * nest; every begin is paired with one end or rollback. What an inner frame
 * has kept, an outer rollback no longer knows. Error facility: kuxml.
 *
 * Closing a frame is linear in its records, and, where it released, unlocked or
 * ended what was opened outside, in the records back to there. A resize that
 * moves walks back to the record of the allocation.
 */
#ifndef KUXML_H
#define KUXML_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUXML_FULL KU_CODE('k', 'u', 'x', 'm', 'l', 1) /* a log cannot grow */

/*
 * Opens a frame. Returns 0; or KUXML_FULL, pushed once by the log that could
 * not grow and once more here: no frame is open then. With logging off: 0, nothing done.
 */
KU_API uint32_t kuxmlbegin(kux *ctx);

/* Closes the innermost frame and keeps what it made; without a frame both logs are emptied. */
KU_API void kuxmlend(kux *ctx);

/*
 * Closes the innermost frame and undoes it: releases what is still allocated,
 * unlocks what is still locked, ends open dereferences, newest first, through
 * the context's callbacks. Without a frame nothing happens.
 */
KU_API void kuxmlrollback(kux *ctx);

/*
 * Logging off and on again, nested: while off, frames do nothing and the logged
 * layers only pass on. kuxmlon without kuxmloff is ignored.
 */
KU_API void kuxmloff(kux *ctx);
KU_API void kuxmlon(kux *ctx);

/* Sets up both logs. Returns 0, or KUXRM_REFUSED (not pushed) without memory. For kuxcreate. */
KU_API uint32_t kuxmlinit(kux *ctx);

/* Releases both logs and switches logging off; nothing is rolled back. For kuxdestroy. */
KU_API void kuxmldestroy(kux *ctx);

#ifdef __cplusplus
}
#endif

#endif
