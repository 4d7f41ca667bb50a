// kuxbm.cpp - basic allocator: the C library's zero-filled memory
//
// A size of 0 asks for 1 byte, so that a null result always means failure.
// Blocks have no header of ours: the context's arrays are grown with realloc.

#include "kuxbm.h"

#include <cstdlib>

void *kuxbmalloc(uint32_t size) { return std::calloc(size == 0 ? 1 : size, 1); }

void *kuxbmfree(void *address)
{
    std::free(address);
    return nullptr;
}
