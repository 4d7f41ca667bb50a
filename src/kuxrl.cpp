// kuxrl.cpp - logged relocatable memory: allocations, locks and dereferences noted
//
// A rollback walks from the newest record back to the mark. What the frame itself
// closed again is left alone; a released handle takes its locks and dereferences
// with it, since nothing may touch it any more.

#include "kuxrl.h"

#include "kuxml_internal.h"

namespace
{

constexpr uint8_t kuxrl_locked = 3;
constexpr uint8_t kuxrl_unlocked = 4;
constexpr uint8_t kuxrl_begun = 5;
constexpr uint8_t kuxrl_ended = 6;
constexpr uint8_t kuxrl_cancelled = 7;

using log = ku::allocation_log<kuxrl, &kux::kuxrllog, &kux::kuxrlnrecords, &kux::kuxrlsize,
                               &kuxrl::kuxrlhandle, &kuxrl::kuxrltype, kuxrl_cancelled, 100, 100>;

// Lock and begin-dereference: noted only when they gave an address.
void *kuxrlopen(kux *ctx, kuxrmaccessfn callback, uint32_t operation, kuxhandle handle)
{
    const bool logging = ctx->kuxmldisabled == 0;
    if (logging && kuxrlrserve(ctx) != 0) return nullptr;
    void *address = callback(ctx, handle);
    if (logging && address != nullptr) kuxrlmlog(ctx, operation, handle, nullptr);
    return address;
}

// Unlock and end-dereference: noted whatever the result, null is the usual one.
void *kuxrlclose(kux *ctx, kuxrmaccessfn callback, uint32_t operation, kuxhandle handle)
{
    const bool logging = ctx->kuxmldisabled == 0;
    if (logging && kuxrlrserve(ctx) != 0) return nullptr;
    void *address = callback(ctx, handle);
    if (logging) kuxrlmlog(ctx, operation, handle, nullptr);
    return address;
}

} // namespace

kuxhandle kuxrlalloc(kux *ctx, uint32_t size)
{
    if (ctx->kuxmldisabled != 0) return ctx->kuxrmalloc(ctx, size);
    if (kuxrlrserve(ctx) != 0) return nullptr;
    kuxhandle handle = ctx->kuxrmalloc(ctx, size);
    if (handle != nullptr) kuxrlmlog(ctx, KUXRL_ALLOC, handle, nullptr);
    return handle;
}

kuxhandle kuxrlfree(kux *ctx, kuxhandle handle)
{
    if (handle == nullptr) return nullptr;
    if (ctx->kuxmldisabled == 0) {
        if (kuxrlrserve(ctx) != 0) return nullptr;
        kuxrlmlog(ctx, KUXRL_FREE, handle, nullptr);
    }
    ctx->kuxrmfree(ctx, handle);
    return nullptr;
}

kuxhandle kuxrlrealloc(kux *ctx, kuxhandle handle, uint32_t size)
{
    kuxhandle resized = ctx->kuxrmrealloc(ctx, handle, size);
    if (ctx->kuxmldisabled == 0) kuxrlmlog(ctx, KUXRL_REALLOC, handle, resized);
    return resized;
}

void *kuxrllock(kux *ctx, kuxhandle handle)
{
    return kuxrlopen(ctx, ctx->kuxrmlock, KUXRL_LOCK, handle);
}

void *kuxrlunlock(kux *ctx, kuxhandle handle)
{
    return kuxrlclose(ctx, ctx->kuxrmunlock, KUXRL_UNLOCK, handle);
}

void *kuxrlbeginderef(kux *ctx, kuxhandle handle)
{
    return kuxrlopen(ctx, ctx->kuxrmbeginderef, KUXRL_BEGINDEREF, handle);
}

void *kuxrlendderef(kux *ctx, kuxhandle handle)
{
    return kuxrlclose(ctx, ctx->kuxrmendderef, KUXRL_ENDDEREF, handle);
}

uint32_t kuxrlinit(kux *ctx) { return log::init(ctx); }

void kuxrldestroy(kux *ctx) { log::destroy(ctx); }

void kuxrlmlog(kux *ctx, uint32_t operation, kuxhandle handle, kuxhandle newhandle)
{
    switch (operation) {
    case KUXRL_ALLOC: log::append(ctx, handle, ku::log_allocated); break;
    case KUXRL_FREE: log::append(ctx, handle, ku::log_released); break;
    case KUXRL_REALLOC: log::follow(ctx, handle, newhandle); break;
    case KUXRL_LOCK: log::append(ctx, handle, kuxrl_locked); break;
    case KUXRL_UNLOCK: log::append(ctx, handle, kuxrl_unlocked); break;
    case KUXRL_BEGINDEREF: log::append(ctx, handle, kuxrl_begun); break;
    case KUXRL_ENDDEREF: log::append(ctx, handle, kuxrl_ended); break;
    default: break;
    }
}

uint32_t kuxrlrserve(kux *ctx) { return log::reserve(ctx); }

void ku::log_relocatable_mark(kux *ctx)
{
    log::append(ctx, static_cast<kuxhandle>(nullptr), ku::log_mark);
}

void kuxrleend(kux *ctx)
{
    log::close(ctx, log::find_mark(ctx), [](const kuxrl &) {});
}

void kuxrlrollback(kux *ctx)
{
    const int32_t mark = log::find_mark(ctx);
    if (mark < 0) return; // records outside frames may be of handles in use
    log::close(ctx, mark, [ctx](const kuxrl &record) {
        switch (record.kuxrltype) {
        case ku::log_allocated: ctx->kuxrmfree(ctx, record.kuxrlhandle); break;
        case kuxrl_locked: ctx->kuxrmunlock(ctx, record.kuxrlhandle); break;
        default: ctx->kuxrmendderef(ctx, record.kuxrlhandle); break;
        }
    });
}
