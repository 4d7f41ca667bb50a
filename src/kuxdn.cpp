// kuxdn.cpp - default plain-memory callbacks: the C library's memory, failures pushed
//
// A resize to 0 bytes would release the block in the C library, and the caller
// would be left with an address that is gone: sizes of 0 are raised to 1.
//
// Small blocks are zeroed here: the C library's calloc does not use the blocks
// that a thread has just released, its malloc does. Large ones come from calloc,
// which knows when the system's pages are zero already.

#include "kuxdn.h"

#include <cstdlib>
#include <cstring>

#include "kuxbm.h"
#include "kuxer.h"

static constexpr uint32_t kuxdn_small = 1024; // bytes

static void *kuxdnzeroed(uint32_t size)
{
    if (size == 0 || size > kuxdn_small) return kuxbmalloc(size);
    void *block = std::malloc(size);
    return block == nullptr ? nullptr : std::memset(block, 0, size);
}

void *kuxdnalloc(kux *ctx, uint32_t size)
{
    void *block = kuxdnzeroed(size);
    if (block == nullptr) kuxer0push(ctx, KUXNM_NOMEM);
    return block;
}

void *kuxdnfree(kux *, void *address) { return kuxbmfree(address); }

void *kuxdnrealloc(kux *ctx, void *address, uint32_t size)
{
    void *block =
        address == nullptr ? kuxdnzeroed(size) : std::realloc(address, size == 0 ? 1 : size);
    if (block == nullptr) kuxer0push(ctx, KUXNM_NORESIZE);
    return block;
}
