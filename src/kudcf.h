/*
 * kudcf.h - the query data cache: creating it, its cursors, its end
 *
 * Make a block cache (skuf.h), create the cache with the descriptions of its
 * threads, store and read rows through cursors (kudcm.h), destroy it. Both files
 * are scratch files and gone afterwards. A cache and its cursors are used by one
 * thread of execution at a time.
 *
 * A status is 0 or the newest code on the error stack after a failure. Every
 * operation returns KUVAA_MISSING, not pushed, without a cache. Codes:
 *   KUVAA_NOMEM    an allocation failed
 *   KUVAA_MISSING  a required array, thread, index, cursor or out argument is missing
 *   KUVAA_NOVALUE  a column is missing, or a key column or key is not usable
 *   KUDCA_KEYSIZE, KUDCA_TYPE
 * and those of paged files, whose moves stop at any error on the stack: clear it
 * before.
 */
#ifndef KUDCF_H
#define KUDCF_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- life ---- */

/*
 * Creates a cache, all of whose indexes are RANDOM.
 *   kuxp         context of errors and allocations; borrowed while the cache lives
 *   kuvp         context whose release callback frees cursors, key values and
 *                arrays, with the same allocator behind it; null: the first one
 *   skufh        block cache of both files; borrowed while the cache lives
 *   datapath     directory prefix of the data file, with its separator; null or
 *                empty: the current directory. TMP is not consulted
 *   indexpath    the same of the index file
 *   threads      0: success with a null cache and no files
 *   descriptors  one for each thread; read during the call only. The columns that
 *                they name must outlive the cache
 *   acmpp        out: the cache, ended with kudcfdestroy; null after a failure
 * A thread whose first index has no key columns has no indexes. Levels ascend
 * through an index's key columns, which need a column that is not segmented; a
 * sort code of 0 is descending, and a wildcard column makes all stored values
 * equal. The split flag of a level is that of its last key column.
 * A failure leaves nothing behind, files included:
 *   KUVAA_MISSING  no descriptors, no array of columns or indexes
 *   KUVAA_NOVALUE  a null column, unusable key columns, an index without any
 *   KUDCA_KEYSIZE  a level whose longest key does not fit a block
 *   KUDCA_FULL     the roots of all indexes pass 2147483647 bytes
 */
KU_API uint32_t kudcfcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath,
                            const char *indexpath, uint16_t threads, const kudctdddef *descriptors,
                            kudcaccdef **acmpp);

/* The same with a type for each index; KUDCA_TYPE for what is none. */
KU_API uint32_t kudcftcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath,
                             const char *indexpath, uint16_t threads,
                             const kudctddtdef *descriptors, kudcaccdef **acmpp);

/*
 * Ends a cache, its files and all its cursors; the caller's handles dangle then.
 * Null is ignored. An error that is on the stack already does not matter.
 * Returns 0; or the code of a file that could not be closed, pushed, with all
 * released all the same.
 */
KU_API uint32_t kudcfdestroy(kudcaccdef *acmp);

/* ---- cursors ---- */

/*
 * A new cursor, before its first row: on the rows under a key of an index, or on
 * a thread's rows in storage order.
 *   goal      key to begin with, copied in: at most the index's key columns, in
 *             its levels, with values no longer than those columns' maximum at the
 *             cache's creation + 1, whatever columns it names; its block sizes are
 *             not looked at. Null: the index's first key. Not
 *             looked at in storage order
 *   index     negative: storage order
 *   number    storage order: number of the row before the first that is read
 *   position  storage order: first row to read when `number` is 1 or more
 *   cursorp   out: the cursor, the caller's, given back with kudcffrcurs; what is
 *             left dies with the cache. Null after a failure
 * An index without keys is no failure. KUVAA_NOVALUE: the goal is not usable.
 */
KU_API uint32_t kudcfnwcurs(kudcaccdef *acmp, const kudckeydef *goal, uint16_t thread,
                            int16_t index, int32_t number, int32_t position, kudccurdef **cursorp);

/*
 * A new cursor with another's key and place, given back like any. Its next read
 * returns the row that the source is on, or the one after it when that row was
 * the first that the source has read and nobody gave its position; rows are counted on
 * from the source's number.
 */
KU_API uint32_t kudcfcpcurs(kudcaccdef *acmp, const kudccurdef *cursor, kudccurdef **copyp);

/*
 * Gives a cursor back; the caller's handle dangles then. Cursors of an index are
 * kept with their memory for the next ones. Null is ignored.
 * Returns 0; or KUVAA_NOVALUE for a cursor that is not among the live ones, when
 * there are any: it is freed all the same unless it waits for the next one of its index.
 * A storage-order cursor is not kept, and must not be given back twice; no cursor may be
 * given back when its cache has ended. Another cache's cursor goes back to that cache.
 */
KU_API uint32_t kudcffrcurs(kudcaccdef *acmp, kudccurdef *cursor);

/* ---- what an index is made of ---- */

/*
 * Where the levels of an index begin among its key columns.
 *   levels   out: entries, the levels + 1; 1 in a thread without indexes
 *   offsets  out: first key column of each level, then the number of key columns;
 *            a single 0 in a thread without indexes. The caller's, released with
 *            the first context's release callback
 */
KU_API uint32_t kudcfginf(kudcaccdef *acmp, uint16_t thread, int16_t index, uint16_t *levels,
                          uint16_t **offsets);

/* Releases an array of bind values through `kuxp` and their buffers through `kuvp` (null: the
 * same). A null array is ignored. Returns 0. */
KU_API uint32_t kudcfrbv(kux *kuvp, kux *kuxp, kudcbvadef *values, uint16_t count);

/* Releases what a key holds, and the key itself when `freekey` is 1; else it is empty then.
 * Null is ignored. Returns 0. */
KU_API uint32_t kudcfrky(kudcaccdef *acmp, kudckeydef *key, int32_t freekey);

#ifdef __cplusplus
}
#endif

#endif
