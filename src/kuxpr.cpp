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

constexpr int32_t kuxpr_step = 20;   // records the table starts with and grows by
constexpr int32_t kuxpr_ending = -1; // kuxprsize while the context ends: nothing can be set

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
    leaving.kuxprfreefun(ctx, leaving.kuxprvalue);
}

bool kuxprholds(const kuxpr *record)
{
    return record->kuxprfreefun != nullptr && record->kuxprvalue != nullptr;
}

// Releases the value of a name, and those that its release function sets meanwhile.
// Returns the record, which then holds nothing to release; null when there is none.
kuxpr *kuxprvacate(kux *ctx, uint32_t name)
{
    kuxpr *record = kuxprfind(ctx, name);
    while (record != nullptr && kuxprholds(record)) {
        kuxprrelease(ctx, record);
        record = kuxprfind(ctx, name);
    }
    return record;
}

// A new record with a name and nothing else; null when the table cannot grow.
kuxpr *kuxprappend(kux *ctx, uint32_t name)
{
    if (ctx->kuxprnprops >= ctx->kuxprsize) {
        const uint64_t bytes = (static_cast<uint64_t>(ctx->kuxprsize) + kuxpr_step) * sizeof(kuxpr);
        if (bytes > UINT32_MAX) return nullptr;
        void *grown = std::realloc(ctx->kuxprlist, static_cast<size_t>(bytes));
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
    const bool ending = ctx->kuxprsize == kuxpr_ending;
    kuxpr *record = ending ? nullptr : kuxprvacate(ctx, name);
    if (record == nullptr && !ending) record = kuxprappend(ctx, name);
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
    kuxpr *record = kuxprvacate(ctx, name);
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
    ctx->kuxprsize = kuxpr_ending;
    for (int32_t slot = 0; slot < ctx->kuxprnprops;) {
        const int32_t before = ctx->kuxprnprops;
        if (kuxprholds(&ctx->kuxprlist[slot])) kuxprrelease(ctx, &ctx->kuxprlist[slot]);
        slot = ctx->kuxprnprops == before ? slot + 1 : 0; // some were removed: look again
    }
    ctx->kuxprnprops = 0;
    ctx->kuxprsize = 0;
    ctx->kuxprlist = static_cast<kuxpr *>(kuxbmfree(ctx->kuxprlist));
}
