// kurn_internal.h - a parse record as allocated
#ifndef KURN_INTERNAL_H
#define KURN_INTERNAL_H

#include "kurl_internal.h"
#include "kurn.h"

struct kurntree {
    kurn open;
    std::uint32_t *behind; // by token that begins a basic: index of the token behind that basic
    kurlrow *positions;    // all positions by number less 1; null before they are numbered
};

inline kurntree &kurntreeof(kurn &tree) { return reinterpret_cast<kurntree &>(tree); }

#endif
