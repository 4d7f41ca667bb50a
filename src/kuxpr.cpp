// kuxpr.cpp - context properties: a small table in insertion order, searched from the front
//
// A release function is a client's and may set, get or remove properties, so
// no record pointer is held across it: the record is copied, the function
// called, and the name looked up again before anything is stored or removed.

#include "kuxpr.h"

#include <cstdlib>
#include <cstring>

#include "kuxbm.h"
#include "kuxdn.h"
#include "kuxer.h"

namespace
{

constexpr int32_t kuxpr_step = 20; // records the table starts with and grows by

kuxpr *kuxprfind(kux *ctx, uint32_t name)
{
    for (int32_t slot = 0; slot < ctx->kuxprnprops; slot++)
        if (ctx->kuxprlist[slot].kuxprname == name) return &ctx->kuxprlist[slot];
    return nullptr;
}

// Hands a value that leaves the table to its release function. The table no
// longer shows it then, so that a function that looks its own property up or
// removes it finds no value and nothing is released twice.
void kuxprrelease(kux *ctx, kuxpr *record)
{
    const kuxpr leaving = *record;
    record->kuxprvalue = nullptr;
    if (leaving.kuxprfreefun != nullptr && leaving.kuxprvalue != nullptr)
        leaving.kuxprfreefun(ctx, leaving.kuxprvalue);
}

// The first record whose value is still to be released. The search starts afresh each
// time: a release function may have moved the records by removing some.
kuxpr *kuxprfirstheld(kux *ctx)
{
    for (int32_t slot = 0; slot < ctx->kuxprnprops; slot++) {
        kuxpr &record = ctx->kuxprlist[slot];
        if (record.kuxprfreefun != nullptr && record.kuxprvalue != nullptr) return &record;
    }
    return nullptr;
}

// A new record with a name and nothing else; null when the table cannot grow.
kuxpr *kuxprappend(kux *ctx, uint32_t name)
{
    if (ctx->kuxprnprops >= ctx->kuxprsize) {
        const size_t records = static_cast<size_t>(ctx->kuxprsize) + kuxpr_step;
        void *grown = std::realloc(ctx->kuxprlist, records * sizeof(kuxpr));
        if (grown == nullptr) return nullptr;
        ctx->kuxprlist = static_cast<kuxpr *>(grown);
        ctx->kuxprsize += kuxpr_step;
    }
    kuxpr *record = &ctx->kuxprlist[ctx->kuxprnprops++];
    *record = {name, nullptr, nullptr};
    return record;
}

} // namespace

uint32_t kuxprset(kux *ctx, uint32_t name, void *value, kuxprfreefn freefun)
{
    kuxpr *record = kuxprfind(ctx, name);
    if (record != nullptr) {
        kuxprrelease(ctx, record);
        record = kuxprfind(ctx, name);
    }
    if (record == nullptr) record = kuxprappend(ctx, name);
    if (record == nullptr) {
        kuxer0push(ctx, KUXPR_FULL);
        return KUXPR_FULL;
    }
    record->kuxprvalue = value;
    record->kuxprfreefun = freefun;
    return 0;
}

void *kuxprget(kux *ctx, uint32_t name)
{
    const kuxpr *record = kuxprfind(ctx, name);
    return record == nullptr ? nullptr : record->kuxprvalue;
}

int32_t kuxprexists(kux *ctx, uint32_t name) { return kuxprfind(ctx, name) != nullptr ? 1 : 0; }

void kuxprremove(kux *ctx, uint32_t name)
{
    kuxpr *record = kuxprfind(ctx, name);
    if (record == nullptr) return;
    kuxprrelease(ctx, record);

    record = kuxprfind(ctx, name);
    if (record == nullptr) return;
    kuxpr *end = ctx->kuxprlist + ctx->kuxprnprops;
    std::memmove(record, record + 1, static_cast<size_t>(end - (record + 1)) * sizeof(kuxpr));
    ctx->kuxprnprops--;
}

void kuxpriterate(kux *ctx, kuxpritfn callback, void *clientarg)
{
    for (int32_t slot = 0; slot < ctx->kuxprnprops; slot++) {
        const kuxpr record = ctx->kuxprlist[slot];
        callback(ctx, record.kuxprname, record.kuxprvalue, clientarg);
    }
}

uint32_t kuxprinit(kux *ctx)
{
    ctx->kuxprnprops = 0;
    ctx->kuxprsize = 0;
    ctx->kuxprlist = static_cast<kuxpr *>(kuxbmalloc(kuxpr_step * sizeof(kuxpr)));
    if (ctx->kuxprlist == nullptr) return KUXNM_NORESIZE;
    ctx->kuxprsize = kuxpr_step;
    return 0;
}

void kuxprdestroy(kux *ctx)
{
    while (kuxpr *record = kuxprfirstheld(ctx)) kuxprrelease(ctx, record);
    ctx->kuxprnprops = 0;
    ctx->kuxprsize = 0;
    ctx->kuxprlist = static_cast<kuxpr *>(kuxbmfree(ctx->kuxprlist));
}
