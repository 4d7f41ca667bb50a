// longval.h - long-value transfer: a piece of a client's long value, read or written
//
// What the library needs of a long-value transfer library, and nothing more.
// Where a value's bytes are is the client's business: the handle is a record of
// the client's two functions (kulong.h), and a piece goes through them whole.
// Nothing is kept between calls; nothing allocates.
#ifndef PORT_LONGVAL_LONGVAL_H
#define PORT_LONGVAL_LONGVAL_H

#include <cstdint>

#include "kulong.h"

namespace ku::longval
{

// Statuses of the layer itself; a client's function may return any other.
constexpr std::uint32_t done = 0;
constexpr std::uint32_t no_function = 1;  // no handle, no application, or no such function
constexpr std::uint32_t out_of_range = 2; // offset and length reach beyond 32 bits

// Reads or writes `length` bytes from `offset` on: all of them, or the status
// says why not. A piece of no bytes is done without asking the client.
std::uint32_t read_piece(kuapp *application, kulong *value, void *buffer, std::uint32_t offset,
                         std::uint32_t length);
std::uint32_t write_piece(kuapp *application, kulong *value, const void *buffer,
                          std::uint32_t offset, std::uint32_t length);

} // namespace ku::longval

#endif
