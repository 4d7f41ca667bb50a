// kuxdn.cpp - default plain-memory callbacks: the C library's memory, failures pushed
//
// A resize to 0 bytes would release the block in the C library, and the caller
// would be left with an address that is gone: sizes of 0 are raised to 1.

#include "kuxdn.h"

#include <cstdlib>

#include "kuxbm.h"
#include "kuxer.h"

void *kuxdnalloc(kux *ctx, uint32_t size)
{
    void *block = kuxbmalloc(size);
    if (block == nullptr) kuxer0push(ctx, KUXNM_NOMEM);
    return block;
}

void *kuxdnfree(kux *, void *address) { return kuxbmfree(address); }

void *kuxdnrealloc(kux *ctx, void *address, uint32_t size)
{
    void *block =
        address == nullptr ? kuxbmalloc(size) : std::realloc(address, size == 0 ? 1 : size);
    if (block == nullptr) kuxer0push(ctx, KUXNM_NORESIZE);
    return block;
}
