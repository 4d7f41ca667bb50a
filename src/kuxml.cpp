// kuxml.cpp - allocation frames over the two logs
//
// A frame is a mark in each log. Logging is on while kuxmldisabled is 0; the
// released logs of an ended context count as switched off for good, so that
// logged calls pass straight through.

#include "kuxml.h"

#include "kuxer.h"
#include "kuxml_internal.h"
#include "kuxnl.h"
#include "kuxrl.h"

uint32_t kuxmlbegin(kux *ctx)
{
    if (ctx->kuxmldisabled != 0) return 0;
    if (kuxnlrserve(ctx) != 0 || kuxrlrserve(ctx) != 0) {
        kuxer0push(ctx, KUXML_FULL);
        return KUXML_FULL;
    }
    ku::log_plain_mark(ctx);
    ku::log_relocatable_mark(ctx);
    return 0;
}

void kuxmlend(kux *ctx)
{
    if (ctx->kuxmldisabled != 0) return;
    kuxnlend(ctx);
    kuxrleend(ctx);
}

void kuxmlrollback(kux *ctx)
{
    if (ctx->kuxmldisabled != 0) return;
    kuxnlrollback(ctx);
    kuxrlrollback(ctx);
}

void kuxmloff(kux *ctx) { ctx->kuxmldisabled++; }

void kuxmlon(kux *ctx)
{
    // Released logs stay off: there is nothing left to write to.
    if (ctx->kuxmldisabled > 0 && ctx->kuxnllog != nullptr) ctx->kuxmldisabled--;
}

uint32_t kuxmlinit(kux *ctx)
{
    ctx->kuxmldisabled = 0;
    if (kuxnlinit(ctx) != 0) return KUXRM_REFUSED;
    if (kuxrlinit(ctx) == 0) return 0;
    kuxnldestroy(ctx);
    return KUXRM_REFUSED;
}

void kuxmldestroy(kux *ctx)
{
    kuxnldestroy(ctx);
    kuxrldestroy(ctx);
    ctx->kuxmldisabled = 1;
}
