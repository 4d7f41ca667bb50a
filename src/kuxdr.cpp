// kuxdr.cpp - default relocatable-memory callbacks: plain blocks that never move
//
// They are the plain defaults, not the context's plain callbacks: a client that
// replaces kuxnmalloc does not redirect its relocatable memory.

#include "kuxdr.h"

#include "kuxdn.h"

kuxhandle kuxdralloc(kux *ctx, uint32_t size)
{
    return static_cast<kuxhandle>(kuxdnalloc(ctx, size));
}

kuxhandle kuxdrfree(kux *ctx, kuxhandle handle)
{
    return static_cast<kuxhandle>(kuxdnfree(ctx, handle));
}

kuxhandle kuxdrrealloc(kux *ctx, kuxhandle handle, uint32_t size)
{
    return static_cast<kuxhandle>(kuxdnrealloc(ctx, handle, size));
}

void *kuxdrlock(kux *, kuxhandle handle) { return handle; }

void *kuxdrunlock(kux *, kuxhandle) { return nullptr; }

void *kuxdrbeginderef(kux *, kuxhandle handle) { return handle; }

void *kuxdrendderef(kux *, kuxhandle) { return nullptr; }

uint16_t kuxdrgetstate(kux *, kuxhandle) { return KUXRM_DEREF; }
