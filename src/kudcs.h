/*
 * kudcs.h - SEQNTL indexes: chains of keys in the order of arrival (slot lists)
 *
 * Rows are stored already grouped; a group's key is entered once, when its first
 * row arrives. Threads and indexes are the cache's records, levels count from 0
 * within the index. A null cache gives KUVAA_MISSING unpushed; else a status is
 * 0 or a code that has been pushed: KUVAA_MISSING for a null index, or thread
 * where rows are chained, or a level that the index does not have, KUDCA_TYPE for
 * an index of another type, or what a move of the paged file gave.
 */
#ifndef KUDCS_H
#define KUDCS_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Enters the key of the row about to be stored, which is the index's goal key:
 * nothing but the row's place in its group when the key equals the last one,
 * else one key a level from the first level that differs.
 * KUDCA_KEYSIZE when a level's key does not fit its block; nothing is entered then.
 * KUDCA_NOABOVE when a level above the break has no key; that, and a move that fails
 * half-way, leaves the levels below entered, and the next row's key is entered anew.
 */
KU_API uint32_t kudcsikys(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index);

/* Reads the level's last block into the working buffer. *flag: 0, or -1 when the level has none. */
KU_API uint32_t kudcslcur(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level,
                          int32_t *flag);

/* Starts an empty block of the level at the end of the index file, in the working buffer; it is
 * not written yet. KUDCA_FULL when the file has no room for it. */
KU_API uint32_t kudcslnew(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level);

/*
 * Appends the goal key's part of the level to the block in the working buffer,
 * or to a new block of its chain when that one is full and has been written. The
 * key becomes the level's last; the first one of all becomes the level's head.
 * The block that has it stays in the working buffer, not written.
 */
KU_API uint32_t kudcslapp(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level);

/* *empty: 1 when the level has no last block, else 0. */
KU_API uint32_t kudcslemp(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level,
                          int32_t *empty);

/* *empty: 1 when level 0 has no last block, that is nothing was ever entered, else 0. The level
 * given does not matter. */
KU_API uint32_t kudcslhemp(kudcaccdef *acmp, kudcidxdef *index, uint16_t level, int32_t *empty);

/*
 * Positions a cursor of a SEQNTL index.
 *   target      level that is searched
 *   level       where to start: 0; levels above it keep their keys
 *   prvlvlset   no effect
 *   relop       KUDC_FIRST, KUDC_NEXT or KUDC_CURRENT
 *   firstblock  first block of the chain to take when `level` is not 0, else not looked at
 *   result      out: KUDC_POSITIONED, with the group's first row held for the next read and
 *               curleft its rows; KUDC_NOKEY, also when the call fails; or KUDC_NOMORE at
 *               the end of the chain. The cursor is unchanged but in the first case.
 */
KU_API uint32_t kudcstsrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t target, uint16_t level,
                           int32_t prvlvlset, int32_t relop, int32_t firstblock, int32_t *result);

#ifdef __cplusplus
}
#endif

#endif
