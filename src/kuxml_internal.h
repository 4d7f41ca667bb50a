// kuxml_internal.h - the common part of the two allocation logs
//
// Both logs are arrays of (address, type) records, oldest first, grown in steps
// and never shrunk; frames are marks between the records. A log is looked at
// through the context each time: a callback may grow it under a walk.
#ifndef KUXML_INTERNAL_H
#define KUXML_INTERNAL_H

#include <cstdlib>

#include "kux.h"
#include "kuxbm.h"
#include "kuxer.h"
#include "kuxml.h"

namespace ku
{

constexpr uint8_t log_mark = 0; // types that mean the same in both logs
constexpr uint8_t log_allocated = 1;

// `Records`, `Count` and `Size` are the context's fields, `Key` and `Type` the record's.
template <typename Record, Record *kux::*Records, int32_t kux::*Count, int32_t kux::*Size, auto Key,
          auto Type, int32_t First, int32_t Step>
struct allocation_log {
    static uint32_t init(kux *ctx)
    {
        ctx->*Count = 0;
        ctx->*Records = static_cast<Record *>(kuxbmalloc(First * sizeof(Record)));
        ctx->*Size = ctx->*Records == nullptr ? 0 : First;
        return ctx->*Records == nullptr ? KUXRM_REFUSED : 0;
    }

    static void destroy(kux *ctx)
    {
        ctx->*Records = static_cast<Record *>(kuxbmfree(ctx->*Records));
        ctx->*Count = 0;
        ctx->*Size = 0;
    }

    static bool grow(kux *ctx)
    {
        if (ctx->*Count < ctx->*Size) return true;
        const uint64_t records = static_cast<uint64_t>(ctx->*Size) + Step;
        if (records * sizeof(Record) > UINT32_MAX) return false;
        void *grown = std::realloc(ctx->*Records, static_cast<size_t>(records * sizeof(Record)));
        if (grown == nullptr) return false;
        ctx->*Records = static_cast<Record *>(grown);
        ctx->*Size += Step;
        return true;
    }

    static uint32_t reserve(kux *ctx)
    {
        if (grow(ctx)) return 0;
        kuxer0push(ctx, KUXML_FULL);
        return KUXML_FULL;
    }

    // The room was reserved, but a callback that logs may have taken it since.
    template <typename Address> static void append(kux *ctx, Address key, uint8_t type)
    {
        if (!grow(ctx)) return;
        Record &record = (ctx->*Records)[(ctx->*Count)++];
        record = {};
        record.*Key = key;
        record.*Type = type;
    }

    // Index of the newest record before `before` of one type and key; -1 when there is
    // none. The type is looked at first: the key of a mark has no meaning.
    template <typename Address>
    static int32_t find(kux *ctx, int32_t before, uint8_t type, Address key)
    {
        for (int32_t slot = before - 1; slot >= 0; slot--) {
            const Record &record = (ctx->*Records)[slot];
            if (record.*Type == type && record.*Key == key) return slot;
        }
        return -1;
    }

    static int32_t find_mark(kux *ctx)
    {
        int32_t slot = ctx->*Count - 1;
        while (slot >= 0 && (ctx->*Records)[slot].*Type != log_mark) slot--;
        return slot;
    }

    // A block or handle that moved takes its newest allocation record along. Closing
    // records at both addresses are settled first, by `visit` as in close: those of
    // blocks that lay there before are then not mistaken for this one's.
    template <typename Address, typename Visit>
    static void follow(kux *ctx, Address key, Address moved, uint8_t cancelled, Visit visit)
    {
        if (moved == nullptr || moved == key) return;
        for (int32_t slot = ctx->*Count - 1; slot >= 0; slot--) {
            const Record record = (ctx->*Records)[slot];
            const bool here = record.*Key == key || record.*Key == moved;
            if (record.*Type == log_mark || !here) continue;
            if (visit(slot, record)) (ctx->*Records)[slot].*Type = cancelled;
        }
        const int32_t slot = find(ctx, ctx->*Count, log_allocated, key);
        if (slot >= 0) (ctx->*Records)[slot].*Key = moved;
    }

    // Closes the newest frame. Each record, newest first, is given to `visit` with its
    // index; a closing record cancels its opening one there, in this frame or outside,
    // so that no later rollback undoes it again. The count is set once, at the end.
    template <typename Visit> static void close(kux *ctx, int32_t mark, Visit visit)
    {
        for (int32_t slot = ctx->*Count - 1; slot > mark; slot--)
            visit(slot, Record((ctx->*Records)[slot]));
        ctx->*Count = mark < 0 ? 0 : mark;
    }
};

// Open a frame in one log; the room was reserved.
void log_plain_mark(kux *ctx);
void log_relocatable_mark(kux *ctx);

} // namespace ku

#endif
