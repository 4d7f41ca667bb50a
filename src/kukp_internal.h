// kukp_internal.h - what the lexer shares with the queries of token objects
#ifndef KUKP_INTERNAL_H
#define KUKP_INTERNAL_H

#include <cstdint>

#include "kukp.h"

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
