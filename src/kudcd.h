/*
 * kudcd.h - rows of the query data cache: stored at the end of the data file, read back, rewritten
 *
 * A thread's columns are the exchange area: the client fills their current value,
 * length and null indicator before a store, a read fills them. Clients store,
 * read and delete rows with the operations of kudcm.h, which keep the indexes in
 * step; these here move records alone. A client that loads a value again later
 * takes a column data source of it while its row is current.
 *
 * Positions are byte offsets in the data file. Lengths count bytes. Long values
 * (segm) go through the client's kulong, in pieces of at most 10240 bytes, and
 * need an application handle in the context; all other values lie in the columns'
 * buffers, which take the maximum length, and kudxctrmlen more.
 *
 * A status is 0 or the code pushed last. Every operation returns KUVAA_MISSING,
 * not pushed, without a cache. Moves return the paged files' codes; they stop at
 * any error on the stack, so clear it before. Common codes:
 *   KUVAA_MISSING   no thread, or one without columns; no record of the thread at
 *                   the position; no buffer to read a value into
 *   KUVAA_NOVALUE   no array of links or live counts; a null column; no buffer to
 *                   write a value from, or to read a short row's value into
 *   KUDCA_NOAPP     a long value without an application handle
 *   KUDCA_TRANSFER  the client's function failed for a long value without saying why
 *   KUVAA_NOMEM     no memory for a piece of a long value
 */
#ifndef KUDCD_H
#define KUDCD_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Appends the current values of a thread's columns as a row, with the thread's
 * links, live counts, status word and live mark as they are, and makes it the
 * thread's last. A NULL value keeps the length and bytes that the column has.
 * Returns 0, with the header, tpln and the columns' filpos of the new row; or a
 * code, with the thread and the end of the file as they were:
 *   KUDCA_TOOLONG  a value longer than its column allowed when the cache was made
 *   KUDCA_FULL     the data file, or an index file that the row could reach,
 *                  would pass 2147483647 bytes
 * and the common ones; all but failed moves and long values are found before
 * anything is written.
 */
KU_API uint32_t kudcdstr(kudcaccdef *acmp, kudcthddef *thread);

/*
 * Reads the row at a position into the thread's header, links, live counts and
 * tpln, and into its columns, whose change flags become 0. Of a value of length 0
 * the column's buffer is not touched. After a failure columns may have been read
 * in part.
 */
KU_API uint32_t kudcdrd(kudcaccdef *acmp, kudcthddef *thread, int32_t position);

/*
 * Reads the values of the row at a position into bind values: bytes, length and
 * null indicator. Long values are read as bytes; an empty number makes the first
 * byte of its buffer 0, the length that a key has in front of it. The columns are
 * not touched; of the thread only tpln changes, which counts every column.
 *   values  one for each column of the thread, null: pass over it; buffers take
 *           the column's maximum length + 1
 *   header  out: the row's header
 */
KU_API uint32_t kudcdrbv(kudcaccdef *acmp, kudcthddef *thread, kudcbvadef *const *values,
                         int32_t position, kudcrchdef *header);

/*
 * Writes the thread's header, links, live counts and current values over the row
 * at a position. Every value must be as long as the one stored there: that is
 * not looked at, only that the record ends inside the file. Long values stay as
 * stored. KUDCA_TOOLONG as for kudcdstr.
 */
KU_API uint32_t kudcdupd(kudcaccdef *acmp, kudcthddef *thread, int32_t position);

/*
 * Notes where the value that a column holds now lies in the file.
 *   column  of the row last stored or read; null: KUVAA_NOVALUE
 *   source  the caller's record, filled in; good while the cache lives
 */
KU_API uint32_t kudcdscds(kudcaccdef *acmp, kudxcoldef *column, kudccdsdef *source);

/*
 * Loads a noted value into its column again and restores the column's change
 * flag, position, length and null indicator; on failure those stay as they are,
 * save the position of a long value: it is set before the first piece moves.
 * A source without a column gives KUVAA_MISSING.
 */
KU_API uint32_t kudcdcload(kudccdsdef *source);

#ifdef __cplusplus
}
#endif

#endif
