// kuxml_internal.h - the common part of the two allocation logs
//
// Both logs are arrays of (address, type) records, oldest first, grown in steps
// and never shrunk; frames are marks between the records. A log is looked at
// through the context each time: a callback may grow it under a walk.
//
// What a record notes is opened or closed in one of several ways: memory is
// allocated and released, a handle locked and unlocked, a dereference begun and
// ended. Types count up through these pairs, so that odd ones open and even ones
// close; one more, odd, cancels an opening record whose closing one was met.
//
//     types     0     1          2         3       4         5      6      7
//     plain     mark  allocated  released  cancelled
//     movable   mark  allocated  released  locked  unlocked  begun  ended  cancelled
//
// A closing record belongs to the newest opening one before it that none has
// taken yet; a release takes along all that was noted of its address down to
// the allocation. Closing a frame finds the pairs in one walk: what was closed
// waits in a table, by address, for its opening record. Few closing records look
// for theirs by themselves, as many do without memory for the table.
#ifndef KUXML_INTERNAL_H
#define KUXML_INTERNAL_H

#include <bit>
#include <cstdint>
#include <cstdlib>

#include "kuguard.h"
#include "kux.h"
#include "kuxbm.h"
#include "kuxer.h"
#include "kuxml.h"

namespace ku
{

constexpr uint8_t log_mark = 0; // types that mean the same in both logs
constexpr uint8_t log_allocated = 1;
constexpr uint8_t log_released = 2;
constexpr uint32_t log_few = 16; // closing records that look for their opening ones themselves

constexpr uint32_t log_memory = 0; // the way in which memory is opened and closed

// Whether a type (of neither a mark nor a cancelled record) opens; and in which way it does or
// closes.
constexpr bool log_opens(uint32_t type) { return type % 2 != 0; }
constexpr uint32_t log_way(uint32_t type) { return (type - 1) / 2; }

// What was closed of one address, and waits for the records that opened it.
struct log_closed {
    const void *key;
    uint32_t times[3]; // by way
    bool used;

    uint32_t waiting() const { return times[0] + times[1] + times[2]; }
    // What else was closed of a released address goes with its release.
    void close(uint32_t way) { times[way] += way == log_memory || times[log_memory] == 0; }
    // Whether something waits for a record that opens.
    bool take(uint32_t way)
    {
        if (times[way] == 0) return times[log_memory] > 0;
        times[way]--;
        return true;
    }
};

// What was closed, by address. There is no table for few closing records or without memory.
class log_table : unique
{
public:
    explicit log_table(uint32_t closing)
    {
        if (closing <= log_few) return;
        const uint64_t slots = std::bit_ceil(uint64_t{closing} + closing / 2);
        const uint64_t size = slots * sizeof(log_closed);
        if (size > UINT32_MAX) return;
        slots_ = static_cast<log_closed *>(kuxbmalloc(static_cast<uint32_t>(size)));
        mask_ = slots - 1;
    }
    ~log_table() { kuxbmfree(slots_); }

    bool made() const { return slots_ != nullptr; }
    bool waits() const { return waiting_ > 0; }

    void close(const void *key, uint32_t way)
    {
        log_closed &entry = find(key);
        waiting_ -= entry.waiting();
        entry.key = key;
        entry.used = true;
        entry.close(way);
        waiting_ += entry.waiting();
    }

    bool take(const void *key, uint32_t way)
    {
        log_closed &entry = find(key);
        waiting_ -= entry.waiting();
        const bool taken = entry.take(way);
        waiting_ += entry.waiting();
        return taken;
    }

private:
    // The entry of an address, or the unused one where it belongs; a third of all is unused.
    log_closed &find(const void *key)
    {
        constexpr uint64_t spread = 0x9E3779B97F4A7C15u; // 2 to the 64th over the golden ratio
        uint64_t at = (reinterpret_cast<uintptr_t>(key) * spread) >> 32;
        while (slots_[at & mask_].used && slots_[at & mask_].key != key) at++;
        return slots_[at & mask_];
    }

    log_closed *slots_ = nullptr;
    uint64_t mask_ = 0;
    uint64_t waiting_ = 0;
};

// `Records`, `Count` and `Size` are the context's fields, `Key` and `Type` the record's.
template <typename Record, Record *kux::*Records, int32_t kux::*Count, int32_t kux::*Size, auto Key,
          auto Type, uint8_t Cancelled, int32_t First, int32_t Step>
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

    static int32_t find_mark(kux *ctx)
    {
        int32_t slot = ctx->*Count - 1;
        while (slot >= 0 && (ctx->*Records)[slot].*Type != log_mark) slot--;
        return slot;
    }

    // A block or handle that moved takes its newest allocation record along. What was
    // closed at either address since that record is settled: closing records of blocks
    // that lay there before are then not mistaken for this one's.
    template <typename Address> static void follow(kux *ctx, Address key, Address moved)
    {
        if (moved == nullptr || moved == key) return;
        log_closed here = {}, there = {};
        bool followed = false;
        for (int32_t slot = ctx->*Count - 1; slot >= 0; slot--) {
            if (followed && here.waiting() + there.waiting() == 0) return;
            Record &record = (ctx->*Records)[slot];
            const bool ours = record.*Key == key;
            if (!notes(record) || !(ours || record.*Key == moved)) continue;
            log_closed &closed = ours ? here : there;
            const uint32_t way = log_way(record.*Type);
            if (!log_opens(record.*Type)) {
                closed.close(way);
                record.*Type = Cancelled;
            } else if (closed.take(way)) {
                record.*Type = Cancelled;
            } else if (ours && way == log_memory && !followed) {
                record.*Key = moved;
                followed = true;
            }
        }
    }

    // Closes the newest frame, whose mark is at index `mark`. What it opened and did not
    // close is given to `undo`, newest first; what it closed of what was opened outside is
    // cancelled there, so that no later rollback undoes it again. The count is set once, at
    // the end.
    template <typename Undo> static void close(kux *ctx, int32_t mark, Undo undo)
    {
        log_table table(closing(ctx, mark));
        int32_t slot = ctx->*Count - 1;
        for (; slot > mark; slot--) {
            const Record record = (ctx->*Records)[slot];
            if (!notes(record)) continue;
            const uint32_t way = log_way(record.*Type);
            if (log_opens(record.*Type)) {
                if (!table.made() || !table.take(record.*Key, way)) undo(record);
            } else if (table.made()) {
                table.close(record.*Key, way);
            } else {
                cancel(ctx, slot, record);
            }
        }
        for (; slot >= 0 && table.waits(); slot--) {
            Record &record = (ctx->*Records)[slot];
            if (notes(record) && log_opens(record.*Type)
                && table.take(record.*Key, log_way(record.*Type)))
                record.*Type = Cancelled;
        }
        ctx->*Count = mark < 0 ? 0 : mark;
    }

private:
    // Neither a mark, whose key has no meaning, nor cancelled.
    static bool notes(const Record &record)
    {
        return record.*Type > log_mark && record.*Type < Cancelled;
    }

    static uint32_t closing(kux *ctx, int32_t mark)
    {
        uint32_t count = 0;
        for (int32_t slot = ctx->*Count - 1; slot > mark; slot--) {
            const Record &record = (ctx->*Records)[slot];
            count += notes(record) && !log_opens(record.*Type);
        }
        return count;
    }

    // Cancels what the closing record at `slot` has closed, without a table.
    static void cancel(kux *ctx, int32_t slot, const Record &record)
    {
        const uint32_t way = log_way(record.*Type);
        while (--slot >= 0) {
            Record &before = (ctx->*Records)[slot];
            if (!notes(before) || before.*Key != record.*Key) continue;
            const bool same = log_way(before.*Type) == way;
            const bool opens = log_opens(before.*Type);
            const bool taken = way == log_memory ? opens || !same : opens && same;
            if (taken) before.*Type = Cancelled;
            if (taken && same) return;
        }
    }
};

// Open a frame in one log; the room was reserved.
void log_plain_mark(kux *ctx);
void log_relocatable_mark(kux *ctx);

} // namespace ku

#endif
