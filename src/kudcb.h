/*
 * kudcb.h - DYNBRK indexes: breaks found by comparing rows
 *
 * Nothing is kept at store time; a search looks at one row, the one after the
 * cursor's, and compares its key columns with the cursor's key. Levels count
 * from 0 within the index. A null cache gives KUVAA_MISSING unpushed; else a
 * status is 0 or a code that has been pushed: KUVAA_MISSING for what is null or
 * has no value buffer, or what a move of the paged file gave.
 */
#ifndef KUDCB_H
#define KUDCB_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Positions a cursor of a DYNBRK index (KUDCA_TYPE for another). The row looked
 * at is the one behind the last row read, or the thread's first; reading moves
 * on, searching does not.
 *   level   level that is searched
 *   relop   KUDC_FIRST: the row has the cursor's key above the level
 *           KUDC_NEXT: it differs from the cursor's key first at exactly the level
 *           KUDC_CURRENT: it has the cursor's key down to the level
 *   result  out: KUDC_POSITIONED, with the row held for the next read and its key
 *           taken over from the level on (KUDC_CURRENT: below the level), curleft 0;
 *           KUDC_NOKEY, or for KUDC_NEXT KUDC_NOMORE, with the cursor unchanged,
 *           but no row held any more when there was no row to look at;
 *           KUDC_NOKEY also when the call fails
 */
KU_API uint32_t kudcbtsrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t relop,
                           int32_t *result);

/*
 * Compares a key with the current values of its columns.
 *   from, to  levels; `to` past the last one is cut to it
 *   differs   out: 1 when they differ, else 0; 0 also when `from` is not a level of
 *             the index or above `to`, or when the key has no columns
 *   level     out: the first level that differs; unchanged when none does
 */
KU_API uint32_t kudcbcbvcl(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key,
                           uint16_t from, uint16_t to, int32_t *differs, uint16_t *level);

/*
 * Copies null indicators, lengths and values of the levels from .. to from one key
 * of an index to another, column by column of a level as far as both have them.
 * Nothing is done when a key is null or empty, or when `from` or `to` is not a
 * level of the index. KUDCA_TOOLONG for a value longer than the index's column.
 */
KU_API uint32_t kudcbbv2bv(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *source,
                           kudckeydef *destination, uint16_t from, uint16_t to);

#ifdef __cplusplus
}
#endif

#endif
