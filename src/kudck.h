/*
 * kudck.h - keys of the query data cache, and the B-trees of RANDOM indexes
 *
 * A key (kudckeydef) holds key columns, grouped into levels. An index block holds
 * one level of many keys in its own form, the flat key: per column 8 bytes of
 * header, then the values that are not NULL, up to a multiple of 4 bytes. A block
 * is a pointer to its bytes, header (kudcidhdef) first, entries (kudcinddef)
 * behind it, keys packed from the end.
 *
 * These operations are the engine below rows, searches and cursors; clients have
 * little need of them. Their arguments are not null unless it is said, but a null
 * cache is KUVAA_MISSING, returned and not pushed. A status is 0 or the code that
 * was pushed. Clear the error stack before what reads or writes blocks: a move
 * stops at any error. Error facilities: kuvaa, kudca; moves return their own.
 */
#ifndef KUDCK_H
#define KUDCK_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- keys ---- */

/*
 * Compares one level of a key with a flat key, as the index orders them.
 *   level      the level; columns of others take no part
 *   count      columns of the flat key
 *   flatkey    aligned for bytes only
 *   condition  out: below, at or above 0 as the key comes before it, is equal, comes after
 * Column by column, a wildcard column passed over. NULL comes after every value,
 * two are equal. Values compare by the key column's datatype: integers as such
 * (of less than 4 bytes: by length); character texts by the language; numbers as
 * unsigned bytes, one of length 0 in the key having its length in its first byte;
 * row identifiers and dates as unsigned bytes over the shorter length; any other
 * not at all. Then the shorter one is first. Not KUDC_ASCENDING turns all round,
 * NULL too. Pushes KUVAA_NOVALUE for a column without a buffer.
 */
KU_API uint32_t kudckcmp(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, uint16_t count,
                         const unsigned char *flatkey, int16_t *condition);

/*
 * Writes one level of a key as a flat key, of the size that kudckpsflk gives.
 * Pushes KUVAA_NOVALUE, with nothing written, for a value without a buffer.
 */
KU_API uint32_t kudckcflkval(kudcaccdef *acmp, const kudckeydef *key, uint16_t level,
                             unsigned char *destination);

/* Bytes of the flat key of one level of a key; at most UINT32_MAX. Returns 0. */
KU_API uint32_t kudckpsflk(const kudckeydef *key, uint16_t level, uint32_t *size);

/* Bytes of a flat key of `count` columns; at most UINT32_MAX. Returns 0. */
KU_API uint32_t kudckszflk(const unsigned char *flatkey, uint16_t count, uint32_t *size);

/*
 * Where the value of a column lies in a flat key of `count` columns.
 *   column  from 0; count itself: the end of the values
 *   value   out: borrowed, as long as the flat key
 * Returns 0.
 */
KU_API uint32_t kudckcvp(const unsigned char *flatkey, uint16_t column, uint16_t count,
                         const unsigned char **value);

/*
 * Loads the key of a block's entry into key columns: set flag 1, length, datatype,
 * null indicator and value.
 *   entry   below the block's number of entries
 *   values  as many as the block has key columns, with buffers for the longest values
 *   size    out: bytes of the flat key; may be null
 * Pushes, with nothing changed, KUVAA_NOVALUE for a column without a buffer, KUVAA_MISSING for
 * a damaged block or no such entry in indx_kudcacc, or a value longer than its column.
 */
KU_API uint32_t kudckgt(kudcaccdef *acmp, const unsigned char *block, uint16_t entry,
                        kudcbvadef *values, uint32_t *size);

/* Clears the set flags of as many key columns as the block has. Returns 0. */
KU_API uint32_t kudckcl(kudcaccdef *acmp, const unsigned char *block, kudcbvadef *values);

/* The set flag of the key's first column at `level` or above it; 0 if there is none. Returns 0. */
KU_API uint32_t kudckgls(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, int32_t *set);

/*
 * Copies a key: arrays, columns and values; not the split flags, which are 0.
 *   key    null: a null copy
 *   copyp  out: the caller's, released with kudcfrky and flag 1; null on failure
 * Pushes KUVAA_NOVALUE for a column without a definition or a buffer, KUDCA_TOOLONG
 * for a value that the definition does not allow, KUVAA_NOMEM.
 */
KU_API uint32_t kudckncpy(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp);

/*
 * The same as kudckncpy, or into a key that is there.
 *   copyp  reuse 1: in: a key with as many columns and levels at least, whose buffers
 *          (the longest value of the column that it has, + 1) and array are written
 *   reuse  1: into *copyp, whose split flags stay; else a new key
 * With reuse 1 *copyp then has as many columns as the key: whoever copies a shorter one keeps
 * the number, which kudcfrky needs to release them all. A null key changes nothing, and a
 * failure leaves *copyp unchanged; KUVAA_NOVALUE, too, when *copyp is null, has too few columns or levels, or lacks a buffer.
 */
KU_API uint32_t kudckcop(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp,
                         int32_t reuse);

/*
 * Whether two keys of an index differ in the levels `from` to `to`, and at which first.
 *   key1, key2  may be null, which is a key without columns
 *   from        at or above the index's number of levels, or above `to`: no difference
 *   differs     out: 1 or 0
 *   level       out: the first level with a difference; unchanged without one
 * Both NULL is equal; values are when their lengths are and their bytes, or texts
 * when the language has them equal. Wildcards do not count. Exactly one key
 * without columns: different at `from`. Pushes KUVAA_MISSING, with *differs 0, for
 * a column without a buffer when it is reached.
 */
KU_API uint32_t kudckcbva(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key1,
                          const kudckeydef *key2, uint16_t from, uint16_t to, int32_t *differs,
                          uint16_t *level);

/* ---- B-trees ---- */

/*
 * Looks a key up in the block in indx_kudcacc, at the block's level.
 *   position  out: its entry, or -(insertion point + 1)
 *   empty     out: 1 when the block has no entries
 * Pushes KUVAA_NOVALUE without a block buffer or a column's buffer, KUVAA_MISSING for a
 * damaged block.
 */
KU_API uint32_t kudcksrc(kudcaccdef *acmp, const kudckeydef *key, int16_t *position,
                         int32_t *empty);

/*
 * Looks a key up through all its levels.
 *   key      with the block size of each of its levels
 *   root     root block of level 0
 *   allkeys  0: a row that was entered with fewer levels is found by the levels that it
 *            has, else it is not
 *   count    out: rows under the key, 0 without one
 *   row      out: the first row, or KUDC_NONE
 * Pushes KUVAA_NOVALUE for a missing buffer or array or an impossible block size, KUVAA_MISSING
 * for a root that is none of the key's levels and columns.
 */
KU_API uint32_t kudckfnd(kudcaccdef *acmp, const kudckeydef *key, int32_t root, int32_t allkeys,
                         int32_t *count, int32_t *row);

/*
 * Enters one level of a key for the row that will be stored at nxdo_kudcacc, and
 * chains the row when it is the last level.
 *   key       after a split its columns of the level hold the separator instead
 *   index     RANDOM, of `thread`; the root of the tree, of the level to enter, is in indx_kudcacc
 *   child     out: the last right half made, unchanged without a split
 *   nextroot  out: root of the next level's tree under the key, KUDC_NONE on the last level
 *   outcome   out: 0: the key was there; -1: it was added; -2: it was added and the root split
 * When the outcome is not 0 the root is in indx_kudcacc again, for the caller to count
 * the key in it. Pushes KUDCA_KEYSIZE (the key cannot fit in a block) and KUDCA_FULL (end of
 * the index file), KUVAA_NOVALUE and KUVAA_MISSING for missing buffers or columns of the level,
 * KUVAA_NOMEM without memory for a split. A failure leaves what was written by then, and all
 * keys that were there.
 */
KU_API uint32_t kudckins(kudcaccdef *acmp, kudckeydef *key, kudcthddef *thread, kudcidxdef *index,
                         int32_t *child, int32_t *nextroot, int32_t *outcome);

/*
 * Chains the row that will be stored at nxdo_kudcacc under an entry, and writes the block.
 *   block  of an index's last level
 *   slot   the level's link slot: the index's first slot + the level
 * The link of the last row so far is rewritten in the data file, unless this is the
 * first one. A thread with calculated values has no chains: only an entry without a
 * row gets one. Pushes KUVAA_MISSING when the last row is no row.
 */
KU_API uint32_t kudckzdrc(kudcaccdef *acmp, kudcthddef *thread, unsigned char *block,
                          uint16_t entry, uint16_t slot);

/*
 * Copies an entry and its key into another block.
 *   toentry  where to; the destination's number of entries appends
 * Returns 0, or with nothing changed, and not pushed, KUVAA_MISSING (no such entry, a
 * damaged source) or KUDCA_KEYSIZE (no room).
 */
KU_API uint32_t kudckcpy(unsigned char *destination, const unsigned char *source, uint16_t toentry,
                         uint16_t fromentry);

/*
 * Makes a block as another without one entry, its keys packed. The blocks do not overlap.
 * Returns 0, or KUVAA_MISSING, not pushed, with nothing changed: no such entry, or a damaged
 * source.
 */
KU_API uint32_t kudckdel(unsigned char *destination, const unsigned char *source, uint16_t entry);

/*
 * Makes a block as another with an entry under another key and one row less. The
 * blocks do not overlap.
 *   key  its columns of the block's level
 * Pushes KUVAA_MISSING (no such entry, a damaged source), KUDCA_KEYSIZE (no room),
 * KUVAA_NOVALUE.
 */
KU_API uint32_t kudckrep(kudcaccdef *acmp, unsigned char *destination, const unsigned char *source,
                         uint16_t entry, const kudckeydef *key);

/*
 * Looks up the key made of integers, through all levels of a cursor's RANDOM index.
 *   cursor    may be null: nothing is found. Its key gets the integers, in columns that are no
 *             wildcards from then on; curleft the rows
 *   count     integers
 *   values    for each a key column naming the thread column; its current value gets the
 *             integer, too
 *   row       out: the row or block of calculated values, or KUDC_NONE
 * Pushes KUVAA_MISSING (no column or no integers given, a storage-order cursor),
 * KUVAA_NOVALUE (not a column of the key, or without 4 bytes), KUDCA_TYPE (not RANDOM).
 */
KU_API uint32_t kudckfblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t count,
                          kudcbvadef *const *values, const int32_t *integers, int32_t *row);

#ifdef __cplusplus
}
#endif

#endif
