// kul_internal.h - what lists give the families that fill them in bulk
#ifndef KUL_INTERNAL_H
#define KUL_INTERNAL_H

#include <cstdint>

#include "kul.h"

// Gives the list room for `count` items at once, so that appending many stays
// linear. Returns 0, or KULAA_NOMEM (pushed) with the list as it was.
std::uint32_t kulrealloc(kux *ctx, kul &list, std::uint64_t count);

#endif
