// skufv.cpp - virtual files: finding a block's buffer, and moving bytes through it
//
// A fetch looks at the most recent buffer first, then in the chain of the block's
// number. A block that is not there gets a free buffer, or the one under the
// replacement hand, which goes round the table and spares only the most recent
// buffer; a dirty block is written before it gives way. A block at or above the
// file's ceiling was never written and is not read.
//
// Blocks of a scratch file in memory are not copied into the buffer at once: a
// move takes what it needs from there, and what it puts stays in the buffer, and
// apart from the file, until the block is evicted (skuf_internal.h).

#include "skufv.h"

#include <algorithm>
#include <cstring>

#include "../port/crt/crt.h"
#include "kuguard.h"
#include "kuxnl.h"
#include "skuf_internal.h"

namespace crt = ku::crt;

static constexpr uint32_t skufv_shift = 12;              // of a position: its block
static constexpr uint32_t skufv_mask = SKUF_BLOCK - 1;   // of a position: its offset
static constexpr uint32_t skufv_unknown = 0x7FFFFFFF;    // ceiling of an existing file
static constexpr uint64_t skufv_end = uint64_t{1} << 32; // bytes of the longest file
static_assert(SKUF_BLOCK == 1u << skufv_shift);
static_assert(skufv_end == uint64_t{SKUF_BLOCKS} * SKUF_BLOCK);

// ---- opening and closing ----

// Opens the raw file and sets the position. False, with nothing left open.
static bool skufvattach(kux *ctx, const skuf *cache, skufv *file, const char *path)
{
    const uint16_t mode = file->skufvmode;
    skufo *raw = skufoopen(ctx, path, mode);
    if (raw == nullptr) return false;
    crt::share_residents(raw->skufoscratch, skufresident(cache));
    if ((mode & SKUF_APPEND) != 0) {
        const int64_t end = crt::low_seek(raw->skufoid, 0, crt::origin::end);
        if (end < 0 || static_cast<uint64_t>(end) >= skufv_end) {
            kuxer0push(ctx, SKUFA_SEEK);
            skufoend(ctx, raw, false);
            return false;
        }
        file->skufvpos = static_cast<uint32_t>(end);
    }
    file->skufvid = raw;
    return true;
}

void *skufvopen(kux *ctx, void *cache, const char *path, uint16_t mode)
{
    if (cache == nullptr) {
        kuxer0push(ctx, SKUFA_NULL);
        return nullptr;
    }
    ku::frame opening(ctx);
    if (!opening.open()) return nullptr;
    auto *file = static_cast<skufv *>(kuxnlalloc(ctx, sizeof(skufv)));
    if (file == nullptr) return nullptr;
    *file = skufv{};
    file->skufvmode = mode;
    file->skufvceiling = (mode & SKUF_NEW) != 0 ? 0 : skufv_unknown;

    const uint64_t size = path == nullptr ? 1 : uint64_t{std::strlen(path)} + 1;
    if (size <= UINT32_MAX)
        file->skufvname = static_cast<char *>(kuxnlalloc(ctx, static_cast<uint32_t>(size)));
    if (file->skufvname != nullptr) {
        std::memcpy(file->skufvname, path == nullptr ? "" : path, size);
        if (skufvattach(ctx, static_cast<skuf *>(cache), file, path)) {
            opening.commit();
            return file;
        }
        kuxnlfree(ctx, file->skufvname); // rolled back besides, but only while logging is on
    }
    kuxnlfree(ctx, file);
    return nullptr;
}

// Frees the file's buffers, writing what must be kept.
static void skufvleave(kux *ctx, skuf *cache, const skufv *file)
{
    for (uint32_t i = 0; i < cache->skufnum; i++) {
        skufb *buffer = &cache->skuftab[i];
        if (buffer->skufbfile != file) continue;
        if ((buffer->skufbflags & SKUFB_DIRTY) != 0 && file->skufvid != nullptr
            && (file->skufvmode & SKUF_TEMPORARY) == 0)
            skufbstore(ctx, cache, buffer); // what fails is on the stack
        skufbfree(ctx, cache, buffer);
    }
}

static void skufvrelease(kux *ctx, skufv *file)
{
    if (file->skufvname != nullptr) ctx->kuxnmfree(ctx, file->skufvname);
    ctx->kuxnmfree(ctx, file);
}

void skufvdrop(kux *ctx, void *cache, void *file)
{
    auto *dropped = static_cast<skufv *>(file);
    skufvleave(ctx, static_cast<skuf *>(cache), dropped);
    if (dropped->skufvid != nullptr) skufoend(ctx, dropped->skufvid, false);
    skufvrelease(ctx, dropped);
}

void *skufvclose(kux *ctx, void *cache, void *file)
{
    auto *closing = static_cast<skufv *>(file);
    if (closing == nullptr) return nullptr;
    if (cache == nullptr) {
        kuxer0push(ctx, SKUFA_NULL);
        return nullptr;
    }
    skufvleave(ctx, static_cast<skuf *>(cache), closing);
    if (closing->skufvid != nullptr)
        skufoend(ctx, closing->skufvid, true);
    else
        kuxer0push(ctx, SKUFA_CLOSE); // closed under it
    if ((closing->skufvmode & SKUF_TEMPORARY) != 0 && kuxernerrors(ctx) == 0) {
        if (closing->skufvname == nullptr)
            kuxer0push(ctx, SKUFA_CLOSE);
        else
            skufodelete(ctx, closing->skufvname);
    }
    skufvrelease(ctx, closing);
    return nullptr;
}

// ---- fetching ----

// Makes the buffer under the hand free. False when its block could not be written.
static bool skufvevict(kux *ctx, skuf *cache)
{
    skufb *victim;
    do {
        victim = cache->skufnext++;
        if (cache->skufnext == cache->skuftab + cache->skufnum) cache->skufnext = cache->skuftab;
    } while (victim == cache->skufmru);
    if ((victim->skufbflags & SKUFB_DIRTY) != 0 && skufbstore(ctx, cache, victim) != 0)
        return false;
    skufbfree(ctx, cache, victim);
    return true;
}

// Gives a linked buffer its data area and its block. False when it has neither;
// a ceiling that was raised stays so.
static bool skufvload(kux *ctx, skuf *cache, skufb *buffer)
{
    skufv *file = buffer->skufbfile;
    const uint32_t block = buffer->skufbnum;
    const bool written = block < file->skufvceiling;
    if (!written) file->skufvceiling = block + 1;
    if (buffer->skufbdata == nullptr) {
        buffer->skufbdata = static_cast<unsigned char *>(ku::allocate(ctx, 1, SKUF_BLOCK));
        if (buffer->skufbdata == nullptr) return false;
    }
    if (!written) return true;
    if (skufbmapped(file->skufvid, block, false) != nullptr) {
        *skufpartof(cache, buffer) = {0, 0};
        return true;
    }
    return skufbread(ctx, cache, file->skufvid, block, buffer->skufbdata) == 0;
}

// The buffer of a block, which may hold it in part; null when it cannot be had.
static skufb *skufvfetch(kux *ctx, skuf *cache, skufv *file, uint32_t block)
{
    skufb *recent = cache->skufmru;
    if (recent->skufbfile == file && recent->skufbnum == block) return recent;
    skufb **chain = &cache->skufhash[block % cache->skufnum];
    for (skufb *each = *chain; each != nullptr; each = each->skufbnext)
        if (each->skufbfile == file && each->skufbnum == block) return cache->skufmru = each;

    if (cache->skuffree == nullptr && !skufvevict(ctx, cache)) return nullptr;
    skufb *taken = cache->skuffree;
    cache->skuffree = taken->skufbnext;
    taken->skufbnext = *chain;
    *chain = taken;
    taken->skufbfile = file;
    taken->skufbnum = block;
    taken->skufbflags = 0;
    if (skufvload(ctx, cache, taken)) return cache->skufmru = taken;
    skufbfree(ctx, cache, taken); // or the next fetch would take it for the block
    return nullptr;
}

unsigned char *skufvgptr(kux *ctx, void *cache, void *file, uint32_t block)
{
    if (cache == nullptr || file == nullptr || block >= SKUF_BLOCKS) {
        kuxer0push(ctx, block >= SKUF_BLOCKS ? SKUFA_SEEK : SKUFA_NULL);
        return nullptr;
    }
    auto *area = static_cast<skuf *>(cache);
    const skufb *held = skufvfetch(ctx, area, static_cast<skufv *>(file), block);
    if (held == nullptr) return nullptr;
    skufbfill(area, held);
    return held->skufbdata;
}

// ---- moving ----

// Copies a piece into a fetched block.
static void skufvput(const skuf *cache, skufb *held, uint32_t offset, const unsigned char *from,
                     uint32_t piece)
{
    skufpart *part = skufpartof(cache, held);
    const uint32_t end = offset + piece;
    if (part->from == part->to) {
        *part = {static_cast<uint16_t>(offset), static_cast<uint16_t>(end)};
    } else if (offset <= part->to && end >= part->from) {
        part->from = static_cast<uint16_t>(std::min<uint32_t>(part->from, offset));
        part->to = static_cast<uint16_t>(std::max<uint32_t>(part->to, end));
    } else {
        skufbfill(cache, held); // no holes in what is here
    }
    skufbcopy(held->skufbdata + offset, from, piece);
    held->skufbflags |= SKUFB_DIRTY;
}

// Where a piece of a fetched block is.
static const unsigned char *skufvat(const skuf *cache, const skufb *held, uint32_t offset,
                                    uint32_t piece)
{
    const skufpart *part = skufpartof(cache, held);
    const uint32_t end = offset + piece;
    const unsigned char *from = held->skufbdata;
    if (!(part->from <= offset && end <= part->to)) {
        const skufo *file = held->skufbfile->skufvid;
        if (file != nullptr && (end <= part->from || offset >= part->to)) // nothing of it is here
            from = skufbmapped(file, held->skufbnum, true);
        else
            skufbfill(cache, held);
    }
    return from + offset;
}

// The buffer of a block for a move. Null, with the code that stops the move: any that is on
// the stack.
static skufb *skufvseek(kux *ctx, skuf *cache, skufv *file, uint32_t block, uint32_t *status)
{
    skufb *held = skufvfetch(ctx, cache, file, block);
    *status = kuxernerrors(ctx) != 0 ? kuxercode(ctx) : 0;
    if (held == nullptr && *status == 0)
        *status = skufrefuse(ctx, SKUFA_NULL); // no memory, and no code for it
    return *status == 0 ? held : nullptr;
}

uint32_t skufvlook(kux *ctx, void *cache, void *file, uint32_t position, uint32_t length,
                   const unsigned char **bytes)
{
    const uint32_t offset = position & skufv_mask;
    *bytes = nullptr;
    if (length > SKUF_BLOCK - offset) return 0;
    auto *area = static_cast<skuf *>(cache);
    uint32_t status;
    const skufb *held =
        skufvseek(ctx, area, static_cast<skufv *>(file), position >> skufv_shift, &status);
    if (held != nullptr) *bytes = skufvat(area, held, offset, length);
    return status;
}

uint32_t skufvmove(kux *ctx, void *cache, void *file, void *buffer, uint32_t length, char direction)
{
    auto *area = static_cast<skuf *>(cache);
    auto *moved = static_cast<skufv *>(file);
    if (area == nullptr || moved == nullptr || (buffer == nullptr && length != 0))
        return skufrefuse(ctx, SKUFA_NULL);
    if (uint64_t{moved->skufvpos} + length > skufv_end) return skufrefuse(ctx, SKUFA_SEEK);

    auto *bytes = static_cast<unsigned char *>(buffer);
    while (length != 0) {
        const uint32_t offset = moved->skufvpos & skufv_mask;
        const uint32_t piece = std::min(length, SKUF_BLOCK - offset);
        uint32_t status;
        skufb *held = skufvseek(ctx, area, moved, moved->skufvpos >> skufv_shift, &status);
        if (held == nullptr) return status;
        if (direction == SKUFV_PUT)
            skufvput(area, held, offset, bytes, piece);
        else
            skufbcopy(bytes, skufvat(area, held, offset, piece), piece);
        bytes += piece;
        moved->skufvpos += piece;
        length -= piece;
    }
    return 0;
}
