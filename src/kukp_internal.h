// kukp_internal.h - what the lexer shares with the queries of token objects
#ifndef KUKP_INTERNAL_H
#define KUKP_INTERNAL_H

#include <cstdint>

#include "kukp.h"

// Records behind the first ones of an object, when those were too few.
struct kukpblock {
    kukpblock *next;
    kukn *end; // behind its last record
    kukn records[1];
};

// Bytes of a text without a shift byte among them, from behind one or the text's start on.
struct kukpseen {
    const unsigned char *text; // null: nothing known
    uint32_t begin;            // offset of the first byte
    uint32_t end;              // offset behind the last byte
    bool shifted;              // the state at every offset from begin to end
};

// What the handle of a token object points to: the visible record and, in the same
// block, the first token records. The records of kukeconcat's objects are blocks
// of their own: all behind the visible record is zero there.
struct kukpobject {
    kuk visible;
    mutable kukpseen seen; // where a shift state was last asked for
    kukpblock *more;       // further blocks of records, the newest first
    kukn *unused;          // the first record that is free
    kukn *end;             // behind the last one of the block that it is in
    kukn *firstend;        // behind the last of the first records
    kukn records[1];       // the first records
};

// Releases a record and its hint unless they are in a block of the object, which
// releases them. Null: an object of which they are no part yet.
void kukprelease(kux *ctx, const kuk *object, kukn *token);

namespace ku
{

// kukpcreate for a callback that keeps no token: nothing is made, so nothing is to be
// destroyed. The text is shorter than 4 GB, the state one that an analysis can start with.
// Returns the state at the end, -1 with the reason pushed when memory ran out.
std::int32_t scan_tokens(kux *ctx, const char *text, std::int32_t mode, kukptokenfn funcp,
                         void *cctxp, std::int32_t state);

} // namespace ku

// A copy, in the context's token buffer, of token bytes that do not stand alone
// in a shift-sensitive character set.
//   bytes, length  the token's characters, without shift bytes at the ends
//   opens          they begin inside a shifted run: a shift-out byte goes before
//   closes         they end inside one: a shift-in byte goes after
//   copied         out: bytes of the copy
// Returns the copy, valid until the next one in this context. When the buffer
// cannot grow it is released, and the result is null.
const unsigned char *kukpstandalone(kux *ctx, const unsigned char *bytes, std::uint32_t length,
                                    bool opens, bool closes, std::uint32_t *copied);

#endif
