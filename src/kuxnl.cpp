// kuxnl.cpp - logged plain memory: each block noted, so that a frame can be undone
//
//     kuxnllog  | 1 A | 0 mark | 1 B | 2 A | 1 C |      oldest ... newest
//
// A rollback walks back to the mark: C and B are released; A was released in
// the frame, so its record outside is cancelled and no frame releases it again.

#include "kuxnl.h"

#include "kuxml_internal.h"

namespace
{

constexpr uint8_t kuxnl_cancelled = 3; // allocated and later released

using log = ku::allocation_log<kuxnl, &kux::kuxnllog, &kux::kuxnlnrecords, &kux::kuxnlsize,
                               &kuxnl::kuxnlptr, &kuxnl::kuxnltype, kuxnl_cancelled, 50, 50>;

} // namespace

void *kuxnlalloc(kux *ctx, uint32_t size)
{
    if (ctx->kuxmldisabled != 0) return ctx->kuxnmalloc(ctx, size);
    if (kuxnlrserve(ctx) != 0) return nullptr;
    void *block = ctx->kuxnmalloc(ctx, size);
    if (block != nullptr) kuxnllog(ctx, KUXNL_ALLOC, block, nullptr);
    return block;
}

void *kuxnlfree(kux *ctx, void *address)
{
    if (address == nullptr) return nullptr;
    if (ctx->kuxmldisabled == 0) {
        if (kuxnlrserve(ctx) != 0) return nullptr;
        kuxnllog(ctx, KUXNL_FREE, address, nullptr);
    }
    ctx->kuxnmfree(ctx, address);
    return nullptr;
}

void *kuxnlrealloc(kux *ctx, void *address, uint32_t size)
{
    void *block = ctx->kuxnmrealloc(ctx, address, size);
    if (ctx->kuxmldisabled == 0) kuxnllog(ctx, KUXNL_REALLOC, address, block);
    return block;
}

uint32_t kuxnlinit(kux *ctx) { return log::init(ctx); }

void kuxnldestroy(kux *ctx) { log::destroy(ctx); }

void kuxnllog(kux *ctx, uint32_t operation, void *address, void *newaddress)
{
    switch (operation) {
    case KUXNL_ALLOC: log::append(ctx, address, ku::log_allocated); break;
    case KUXNL_FREE: log::append(ctx, address, ku::log_released); break;
    case KUXNL_REALLOC: log::follow(ctx, address, newaddress); break;
    default: break;
    }
}

uint32_t kuxnlrserve(kux *ctx) { return log::reserve(ctx); }

void ku::log_plain_mark(kux *ctx) { log::append(ctx, static_cast<void *>(nullptr), ku::log_mark); }

void kuxnlend(kux *ctx)
{
    log::close(ctx, log::find_mark(ctx), [](const kuxnl &) {});
}

void kuxnlrollback(kux *ctx)
{
    const int32_t mark = log::find_mark(ctx);
    if (mark < 0) return; // records outside frames may be of blocks in use
    log::close(ctx, mark, [ctx](const kuxnl &record) { ctx->kuxnmfree(ctx, record.kuxnlptr); });
}
