/*
 * kudcm.h - working with the query data cache: storing rows, reading, searching, counting, deleting
 *
 * Fill the thread's columns and store the row; make a cursor (kudcf.h), position
 * it by key, read the group's rows one after another. Levels count from 0 within
 * the index. A row is visible to a cursor that reads at a level when its live
 * count for the cursor's index is above the level; in storage order while its
 * mark is not 0.
 *
 * A status is 0 or a code that has been pushed; a null cache gives KUVAA_MISSING
 * unpushed. All can give KUVAA_MISSING (no such thread, index or cursor, arrays
 * missing, a position where no row is), KUVAA_NOVALUE (a key without value
 * buffers), what a move of the paged file gave, and, with nothing done, the code of
 * an error that was on the stack before. A key with only some of a level's columns
 * stands for all keys of the level that begin with those; one of them is found, or
 * deleted, and the next key is one that begins otherwise.
 */
#ifndef KUDCM_H
#define KUDCM_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Stores a row: the current values of the thread's columns, and their keys in its indexes.
 *   levels    per index, the levels at which the row is visible and, for a RANDOM index, entered;
 *             for a thread without indexes one number, the row's mark. Borrowed for the call
 *   store     0: the keys are entered for a row that shall lie at the data file's end, but none
 *             is written; else it is
 *   position  out: the row's position; unchanged on failure
 * The status word is the one of the row stored, read or set last (kudcmsrst).
 * KUVAA_MISSING for a key column without definition or buffer, KUVAA_NOVALUE for a column
 * without a current value, KUDCA_TOOLONG for a value longer than its column (with `store` 0 only
 * key columns are looked at), KUDCA_KEYSIZE for a key that does not fit a block, KUDCA_NOAPP for a
 * long value without application handle, KUDCA_FULL when a file has no room: nothing is changed
 * then, nor when the record or a long value cannot be written. A move that fails later, or
 * KUVAA_NOMEM for the split of a block, leaves the keys entered so far, which lead to a record that
 * readers pass over, and no row; so does, where keys have more than 20 KB a level and a block
 * holds two or three, a split for which two blocks are too small (KUDCA_KEYSIZE) or that goes on
 * through many levels of a tree near the end of the file (KUDCA_FULL).
 */
KU_API uint32_t kudcmrstr(kudcaccdef *acmp, uint16_t thread, const uint16_t *levels, int32_t store,
                          int32_t *position);

/*
 * Reads the cursor's next visible row into the thread's columns. A cursor that has read nothing
 * yet begins with the row that its last search found, else with the first row under its key.
 *   level  at which rows must be visible; with a DYNBRK index also the group's level: the reading
 *          ends where the key down to the level changes
 *   found  out: KUDC_ROW, with the cursor on it; or KUDC_NOROW at the end of the group, with
 *          the columns and the cursor's place as they were; but a row held for the first read is
 *          no longer held, and curleft may say what the look-up for it found
 */
KU_API uint32_t kudcmrnxt(kudcaccdef *acmp, kudccurdef *cursor, uint8_t level, uint8_t *found);

/*
 * Reads the current row again. *found: KUDC_ROW, KUDC_HIDDEN when it is no longer visible at the
 * level (the columns have it all the same), or KUDC_NOROW when there is none.
 */
KU_API uint32_t kudcmrrd(kudcaccdef *acmp, kudccurdef *cursor, uint8_t level, uint8_t *found);

/*
 * Positions a cursor by its key.
 *   level  target level
 *   relop  KUDC_FIRST, KUDC_NEXT or KUDC_CURRENT; another one finds nothing
 *   state  out: KUDC_POSITIONED, the group's first row held for the next read, the key's levels
 *          from the target on loaded and curleft the rows under the key (DYNBRK: 0);
 *          KUDC_NOKEY when the cursor's key is not there above the target (KUDC_NEXT and
 *          KUDC_CURRENT: down to it), no key is at the target, or in storage order; KUDC_NOMORE
 *          when there is no further key. The cursor is unchanged with the latter two. KUDC_NOKEY
 *          also when the call fails; keys of a RANDOM index may have been loaded in part then
 * In a RANDOM index a level of the key above the target that is not set takes its first key.
 */
KU_API uint32_t kudcmksrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t relop,
                           int32_t *state);

/*
 * Looks for any key of level 0 that a key with wildcard columns matches, through all of them.
 *   key    borrowed for the call
 *   found  out: 0 when one matches, else -1; -1 too for an index that is not RANDOM
 * KUVAA_NOMEM without memory for a block.
 */
KU_API uint32_t kudcmpksrch(kudcaccdef *acmp, uint16_t thread, int16_t index, const kudckeydef *key,
                            int32_t *found);

/*
 * Counts. *count: in storage order the thread's rows; at a level of a RANDOM index the keys ever
 * entered there under the cursor's keys above (deletions do not lower it); past its last level
 * the rows under the cursor's key. -1 when a key is absent, or the index is not RANDOM.
 */
KU_API uint32_t kudcmbcnt(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t *count);

/*
 * Deletes the current row: at one level of the cursor's index, or in storage order altogether.
 * Nothing when there is none. The columns have the row afterwards: what was prepared there for
 * the next store is lost.
 */
KU_API uint32_t kudcmrdel(kudcaccdef *acmp, kudccurdef *cursor);

/*
 * Takes the cursor's key of a level out of a RANDOM index; its rows stay in the file, out of
 * reach by that key. In storage order the current row is deleted, as by kudcmrdel.
 *   previous  out: 1 when there is a key before it, which the cursor's key is then, with the first
 *             keys below; else 0
 * The cursor is before its first row afterwards, also when the key is not there; nothing happens
 * when one above it is not. KUDCA_NOTRANDOM for another index.
 */
KU_API uint32_t kudcmkdel(kudcaccdef *acmp, kudccurdef *cursor, int32_t level, int32_t *previous);

/* Status word of the row of the cursor's thread that was stored, read or set last, by any cursor.
 * KUVAA_NOVALUE for a cache without threads. */
KU_API uint32_t kudcmgrst(kudcaccdef *acmp, kudccurdef *cursor, uint16_t *status);

/* Sets that word; the next row that is stored has it, and one that is rewritten before another is
 * read: a deletion reads its row first, which brings that row's word back. */
KU_API uint32_t kudcmsrst(kudcaccdef *acmp, kudccurdef *cursor, uint16_t status);

/*
 * Stores a block of calculated values under a key of a RANDOM index with at most two levels
 * (KUDCA_TYPE for another), over one that is there when it is not longer, else at the data
 * file's end. From the first one on, rows of the thread with equal keys are no longer chained.
 * The key must be no row's: what is stored under it is taken for a block, so that the record of
 * a row would be written over, or be lost to its key. Nothing tells the two apart.
 *   cursor    of the index, with a key of all its columns; null: one is made, whose key is that
 *             of the thread's columns
 *   values    `count` key columns, whose columns take the key's values, as those of the cursor's
 *             key do; a column that is not among them keeps its value in that key
 *   integers  the key's values
 *   block     copied; may be null when the length is 0
 *   length    in bytes
 *   cursorp   out: the cursor, the caller's, who frees it with kudcffrcurs; unchanged on failure
 * KUVAA_NOVALUE for a column with less than 4 bytes, a key with fewer columns or with a wildcard
 * that is not among `values`; KUDCA_FULL when a file has no room.
 */
KU_API uint32_t kudcmsblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t thread, int16_t index,
                          uint16_t count, kudcbvadef *const *values, const int32_t *integers,
                          const void *block, uint32_t length, kudccurdef **cursorp);

/*
 * Reads the block of a key, given as above. *block: a copy, the caller's, released with the
 * context's kuxnmfree; null when there is none, when it is empty, or without a cursor. Its length
 * is not told. KUDCA_TYPE and KUVAA_NOVALUE as above, KUDCA_POSITION when what is under the key
 * is no block, KUVAA_NOMEM.
 */
KU_API uint32_t kudcmrblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t count,
                          kudcbvadef *const *values, const int32_t *integers, void **block);

/*
 * Stores a block at a position.
 *   position  in: KUDC_NONE to append, or that of a block to write over; out: where it lies,
 *             which is another place when it is longer than the one that was there
 * KUDCA_POSITION when no block is there, KUDCA_FULL when the file has no room.
 */
KU_API uint32_t kudcmsfpblb(kudcaccdef *acmp, const void *block, uint32_t length,
                            int32_t *position);

/*
 * Reads the block at a position. *block: a copy, the caller's, released with the context's
 * kuxnmfree, or null when it is empty; *length: its bytes. Both are cleared on failure.
 * KUDCA_POSITION when no block is there, KUVAA_NOMEM.
 */
KU_API uint32_t kudcmrfpblb(kudcaccdef *acmp, int32_t position, void **block, uint32_t *length);

#ifdef __cplusplus
}
#endif

#endif
