// kuxrm.cpp - relocatable memory: installing the callbacks, access that reports failure

#include "kuxrm.h"

#include "kux_internal.h"
#include "kuxdr.h"
#include "kuxer.h"

void ku::take_relocatable_callbacks(kux *ctx, const kuxa *attrs)
{
    const uint32_t mask = attrs->kuxamask;
    const auto given = [mask](uint32_t bit) { return (mask & (KUXA_RMALL | bit)) != 0; };

    if (given(KUXA_RMALLOC)) ctx->kuxrmalloc = attrs->kuxarmalloc;
    if (given(KUXA_RMFREE)) ctx->kuxrmfree = attrs->kuxarmfree;
    if (given(KUXA_RMREALLOC)) ctx->kuxrmrealloc = attrs->kuxarmrealloc;
    if (given(KUXA_RMLOCK)) ctx->kuxrmlock = attrs->kuxarmlock;
    if (given(KUXA_RMUNLOCK)) ctx->kuxrmunlock = attrs->kuxarmunlock;
    if (given(KUXA_RMBEGINDEREF)) ctx->kuxrmbeginderef = attrs->kuxarmbeginderef;
    if (given(KUXA_RMENDDEREF)) ctx->kuxrmendderef = attrs->kuxarmendderef;
    if (given(KUXA_RMGETSTATE)) ctx->kuxrmgetstate = attrs->kuxarmgetstate;
    if ((mask & KUXA_RMCLIENTDATA) != 0) ctx->kuxrmclientdata = attrs->kuxarmclientdata;
}

void kuxrminit(kux *ctx, const kuxa *attrs)
{
    ctx->kuxrmalloc = kuxdralloc;
    ctx->kuxrmfree = kuxdrfree;
    ctx->kuxrmrealloc = kuxdrrealloc;
    ctx->kuxrmlock = kuxdrlock;
    ctx->kuxrmunlock = kuxdrunlock;
    ctx->kuxrmbeginderef = kuxdrbeginderef;
    ctx->kuxrmendderef = kuxdrendderef;
    ctx->kuxrmgetstate = kuxdrgetstate;
    ctx->kuxrmclientdata = nullptr;
    ku::take_relocatable_callbacks(ctx, attrs);
}

void *kuxrmlock(kux *ctx, kuxhandle handle)
{
    void *address = ctx->kuxrmlock(ctx, handle);
    if (address == nullptr) kuxer0push(ctx, KUXRM_NOLOCK);
    return address;
}

void *kuxrmunlock(kux *ctx, kuxhandle handle) { return ctx->kuxrmunlock(ctx, handle); }

void *kuxrmbeginderef(kux *ctx, kuxhandle handle)
{
    void *address = ctx->kuxrmbeginderef(ctx, handle);
    if (address == nullptr) kuxer0push(ctx, KUXRM_NODEREF);
    return address;
}

void *kuxrmendderef(kux *ctx, kuxhandle handle) { return ctx->kuxrmendderef(ctx, handle); }

uint16_t kuxrmgetstate(kux *ctx, kuxhandle handle) { return ctx->kuxrmgetstate(ctx, handle); }
