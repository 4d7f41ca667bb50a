/*
 * skudcd.h - a part of a long value that the query data cache keeps, into client memory
 *
 * The value is named by a column data source (kudcdscds); the bytes go straight
 * from the cache's data file to the client, by the hand of a heap object: its
 * table of operations gives the transfer buffer and copies into the destination,
 * so that a client whose memory is reached in a way of its own puts functions of
 * its own there. Error facilities: kuvaa, skudc.
 */
#ifndef SKUDCD_H
#define SKUDCD_H

#include "kudcdef.h"
#include "skuhm.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SKUDC_NULL KU_CODE('s', 'k', 'u', 'd', 'c', 1)  /* the value is NULL */
#define SKUDC_RANGE KU_CODE('s', 'k', 'u', 'd', 'c', 2) /* the part reaches beyond the value */

/*
 * Copies bytes `offset` to `offset` + `length` - 1 of a value to `destination`,
 * in chunks of at most 32768 bytes, or 1024 when the heap has no memory.
 *   source       of a cache that still lives; the change flag and the column's
 *                current value are not touched
 *   heap         its context is not used: codes go to the cache's
 *   destination  an address that the heap's copy and pointer operations take
 *   length       bytes; 0: nothing is read
 * Returns 0, or a code with what was copied before left as it is:
 *   KUVAA_MISSING  no column in the source, or a position that no file has; no source or
 *                  cache at all (not pushed)
 *   SKUDC_NULL, SKUDC_RANGE
 *   SKUHM_INVALID  no heap
 *   what the heap's operations and the file's moves return; an older error on the
 *   stack stops the first move.
 */
KU_API uint32_t skudcdoleload(const kudccdsdef *source, tag_skuhm *heap, void *destination,
                              uint32_t offset, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
