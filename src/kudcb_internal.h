// kudcb_internal.h - DYNBRK indexes: what reading uses of the break searches
#ifndef KUDCB_INTERNAL_H
#define KUDCB_INTERNAL_H

#include <cstdint>

#include "kudc_internal.h"
#include "kudcd_internal.h"

namespace ku::cache
{

// Reads a row's key columns into the break key of the cursor's DYNBRK index, the row's header
// into *header. The thread's columns stay as they are.
std::uint32_t read_break_key(kudcaccdef *acmp, const kudccurdef *cursor, std::int32_t row,
                             kudcrchdef *header);

// The same of a row that is being read, by a reader that has taken its head.
std::uint32_t take_break_key(kudcaccdef *acmp, const kudccurdef *cursor, row_reader row);

} // namespace ku::cache

#endif
