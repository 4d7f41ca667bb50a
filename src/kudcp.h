/*
 * kudcp.h - dumps of the query data cache as text, for developers
 *
 * The formats do not change: tools compare them. A stream is an ordinary file
 * stream (skub.h), to which a line is written by one put; the standard streams
 * print nothing of it. Names and values are cut after 200 bytes. What is missing
 * pushes KUVAA_MISSING; a null cache does nothing. Levels count from 0.
 */
#ifndef KUDCP_H
#define KUDCP_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Prints all threads. */
KU_API void kudcpacmp(kudcaccdef *acmp, void *stream);

/* Prints a thread: its columns and the definitions of its indexes; nothing of one whose arrays are
 * missing. */
KU_API void kudcpthdd(kudcaccdef *acmp, const kudcthddef *thread, int32_t number, void *stream);

/* Prints the definition of an index: its type, and its key columns by level. */
KU_API void kudcpdidx(kudcaccdef *acmp, const kudcidxdef *index, int32_t number, int32_t thread,
                      void *stream);

/* Prints a column's name and datatype; nothing of one without a name. */
KU_API void kudcpcolh(kudcaccdef *acmp, const kudxcoldef *column, void *stream);

/* Prints a key and its key columns. */
KU_API void kudcpgoal(kudcaccdef *acmp, const kudckeydef *key, void *stream);

/* Prints a key column. */
KU_API void kudcpbva(kudcaccdef *acmp, const kudcbvadef *value, void *stream);

/*
 * Prints the tree of an index, in a DYNBRK index nothing.
 *   limit  deepest level whose nodes are printed; in a SEQNTL index 0 prints level 0 alone, and
 *          more than that all levels
 * Returns 0; KUDCA_THREAD or KUDCA_INDEX, with a line printed and nothing pushed, for a number that
 * does not exist; or, with the dump ended there, what was pushed: KUVAA_NOMEM, KUVAA_MISSING for
 * what is no node, the code of a put or of a move.
 */
KU_API uint32_t kudcpidx(kudcaccdef *acmp, int32_t limit, uint16_t thread, int16_t index,
                         void *stream);

/* Prints a RANDOM tree from any root; failures are pushed as above. */
KU_API void kudcpbrt(kudcaccdef *acmp, int32_t limit, int32_t root, void *stream);

/*
 * Prints a node and its subtrees.
 *   block        its position in the index file
 *   depth        steps of four blanks in front; below 0: none
 *   counter      in: number of the node; out: of the next one
 *   parent       number of the node above, parententry its entry that leads here; or -1
 *   type         of the index; nodes of other types have no subtrees
 * Returns as kudcpidx; KUDCA_NOTREE, not pushed, when the position is KUDC_NONE, which prints an
 * empty subtree.
 */
KU_API uint32_t kudcplvl(kudcaccdef *acmp, int32_t limit, int32_t block, int32_t depth,
                         int32_t *counter, int32_t parent, int32_t parententry, uint16_t type,
                         void *stream);

/*
 * Writes a value as text.
 *   text    256 bytes of the caller's
 *   value   `length` bytes; text ends at its first NUL
 */
KU_API void kudcpval(kudcaccdef *acmp, char *text, const unsigned char *value, uint32_t length,
                     uint16_t datatype, int8_t isnull);

#ifdef __cplusplus
}
#endif

#endif
