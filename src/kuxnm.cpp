// kuxnm.cpp - installs the plain-memory callbacks: the defaults, then what the client gave

#include "kuxnm.h"

#include "kux_internal.h"
#include "kuxdn.h"

void ku::take_plain_callbacks(kux *ctx, const kuxa *attrs)
{
    const uint32_t mask = attrs->kuxamask;
    const auto given = [mask](uint32_t bit) { return (mask & (KUXA_NMALL | bit)) != 0; };

    if (given(KUXA_NMALLOC)) ctx->kuxnmalloc = attrs->kuxanmalloc;
    if (given(KUXA_NMFREE)) ctx->kuxnmfree = attrs->kuxanmfree;
    if (given(KUXA_NMREALLOC)) ctx->kuxnmrealloc = attrs->kuxanmrealloc;
    if ((mask & KUXA_NMCLIENTDATA) != 0) ctx->kuxnmclientdata = attrs->kuxanmclientdata;
}

void kuxnminit(kux *ctx, const kuxa *attrs)
{
    ctx->kuxnmalloc = kuxdnalloc;
    ctx->kuxnmfree = kuxdnfree;
    ctx->kuxnmrealloc = kuxdnrealloc;
    ctx->kuxnmclientdata = nullptr;
    ku::take_plain_callbacks(ctx, attrs);
}
