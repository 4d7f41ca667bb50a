/*
 * kulong.h - long-value handle: how a client's long values are read and written
 *
 * A plain record that the client fills and gives as the current value of a
 * segmented column. The row cache moves the value through its two functions,
 * piece by piece, in ascending offsets, and keeps no pointer to it beyond the
 * operation. Both get the application handle of the context and the record
 * itself, so that one pair of functions can serve every value. They must return: a jump
 * out of one loses the memory of the operation.
 */
#ifndef KULONG_H
#define KULONG_H

#include <stdint.h>

#include "kuapp.h"

typedef struct kulong kulong;

/* Fills `buffer` with exactly `length` bytes of the value from `offset` on.
 * Returns 0; anything else fails the operation. */
typedef uint32_t (*kulongreadfn)(kuapp *application, kulong *value, void *buffer, uint32_t offset,
                                 uint32_t length);

/* Takes exactly `length` bytes as the value's bytes from `offset` on; offset 0
 * begins a new value. Returns 0; anything else fails the operation. */
typedef uint32_t (*kulongwritefn)(kuapp *application, kulong *value, const void *buffer,
                                  uint32_t offset, uint32_t length);

struct kulong {
    kulongreadfn read_kulong;   /* null: the value cannot be read */
    kulongwritefn write_kulong; /* null: the value cannot be written */
    void *data_kulong;          /* the client's */
};

#endif
