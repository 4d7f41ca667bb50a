// skufb.cpp - buffers: between a block's data area and the raw file
//
// Whole blocks are moved, each in as many calls as the system wants. Blocks of a scratch file that the runtime layer has in
// memory are copied instead, and of those only what is needed: a buffer may hold
// such a block in part (skuf_internal.h).

#include "skufb.h"

#include <cstring>

#include "../port/crt/crt.h"
#include "kuguard.h"
#include "skuf_internal.h"

namespace crt = ku::crt;

static uint64_t skufboffset(uint32_t block) { return uint64_t{block} * SKUF_BLOCK; }

const unsigned char *skufbmapped(const skufo *file, uint32_t block, bool held)
{
    if (file == nullptr) return nullptr;
    return crt::scratch_at(file->skufoscratch, skufboffset(block), SKUF_BLOCK,
                           held ? crt::purpose::again : crt::purpose::load);
}

static uint32_t skufbfail(kux *ctx, uint32_t code, const skufo *file)
{
    kuxer1push(ctx, code, file->skufoname);
    return code;
}

uint32_t skufbread(kux *ctx, void *, skufo *file, uint32_t block, void *buffer)
{
    if (file == nullptr || buffer == nullptr) return skufrefuse(ctx, SKUFA_NULL);
    if (block >= SKUF_BLOCKS) return skufbfail(ctx, SKUFA_SEEK, file);
    if (const unsigned char *bytes = skufbmapped(file, block, false)) {
        std::memcpy(buffer, bytes, SKUF_BLOCK);
        return 0;
    }
    auto *to = static_cast<unsigned char *>(buffer);
    for (std::size_t done = 0; done < SKUF_BLOCK;) {
        const crt::low_moved got =
            crt::low_read(file->skufoid, skufboffset(block) + done, to + done, SKUF_BLOCK - done);
        if (got.failure != crt::low_failure::none) {
            const bool nowhere = got.failure == crt::low_failure::position;
            return skufbfail(ctx, nowhere ? SKUFA_SEEK : SKUFA_READ, file);
        }
        if (got.bytes == 0) break;
        done += got.bytes;
    }
    return 0;
}

// Writes the bytes of a block from offset `at` in it to `end`.
static uint32_t skufbstorepart(kux *ctx, const skufo *file, uint32_t block,
                               const unsigned char *bytes, std::size_t at, std::size_t end)
{
    const uint64_t offset = skufboffset(block);
    unsigned char *mapped =
        crt::scratch_at(file->skufoscratch, offset, SKUF_BLOCK, crt::purpose::store);
    if (mapped != nullptr) {
        std::memcpy(mapped + at, bytes + at, end - at);
        return 0;
    }
    while (at < end) {
        const crt::low_moved put = crt::low_write(file->skufoid, offset + at, bytes + at, end - at);
        if (put.failure == crt::low_failure::position) return skufbfail(ctx, SKUFA_SEEK, file);
        if (put.bytes == 0) return skufrefuse(ctx, SKUFA_WRITE);
        at += put.bytes;
    }
    crt::scratch_written(file->skufoscratch, offset, end);
    return 0;
}

uint32_t skufbwrite(kux *ctx, void *, skufo *file, uint32_t block, const void *buffer)
{
    if (file == nullptr || buffer == nullptr) return skufrefuse(ctx, SKUFA_NULL);
    if (block >= SKUF_BLOCKS) return skufbfail(ctx, SKUFA_SEEK, file);
    return skufbstorepart(ctx, file, block, static_cast<const unsigned char *>(buffer), 0,
                          SKUF_BLOCK);
}

void skufbcopy(void *to, const void *from, std::size_t bytes) { std::memcpy(to, from, bytes); }

void skufbfill(const skuf *cache, const skufb *buffer)
{
    skufpart *part = skufpartof(cache, buffer);
    if (skufwhole(part)) return;
    const skufo *file = buffer->skufbfile->skufvid;
    if (file != nullptr) {
        const unsigned char *block = skufbmapped(file, buffer->skufbnum, true);
        std::memcpy(buffer->skufbdata, block, part->from);
        std::memcpy(buffer->skufbdata + part->to, block + part->to, SKUF_BLOCK - part->to);
    }
    *part = {0, SKUF_BLOCK};
}

uint32_t skufbstore(kux *ctx, skuf *cache, const skufb *buffer)
{
    const skufpart *part = skufpartof(cache, buffer);
    skufo *file = buffer->skufbfile->skufvid;
    if (file == nullptr || skufwhole(part))
        return skufbwrite(ctx, cache, file, buffer->skufbnum, buffer->skufbdata);
    return skufbstorepart(ctx, file, buffer->skufbnum, buffer->skufbdata, part->from, part->to);
}

uint32_t skufbfree(kux *ctx, void *cache, skufb *buffer)
{
    if (cache == nullptr || buffer == nullptr) return skufrefuse(ctx, SKUFA_NULL);
    if (buffer->skufbfile == nullptr) return 0;
    auto *area = static_cast<skuf *>(cache);
    skufb **link = &area->skufhash[buffer->skufbnum % area->skufnum];
    while (*link != buffer) link = &(*link)->skufbnext;
    *link = buffer->skufbnext;

    buffer->skufbfile = nullptr;
    buffer->skufbflags = 0;
    buffer->skufbnext = area->skuffree;
    area->skuffree = buffer;
    *skufpartof(area, buffer) = {0, SKUF_BLOCK};
    if (area->skufdynamic != 0) {
        if (buffer->skufbdata != nullptr) ctx->kuxnmfree(ctx, buffer->skufbdata);
        buffer->skufbdata = nullptr;
    }
    return 0;
}

uint32_t skufbfflush(kux *ctx, void *cache, void *file)
{
    auto *area = static_cast<skuf *>(cache);
    if (area == nullptr) return skufrefuse(ctx, SKUFA_NULL);
    for (uint32_t i = 0; i < area->skufnum; i++) {
        skufb *buffer = &area->skuftab[i];
        const skufv *held = buffer->skufbfile;
        if ((buffer->skufbflags & SKUFB_DIRTY) == 0 || held == nullptr
            || (held->skufvmode & SKUF_TEMPORARY) != 0 || held->skufvid == nullptr
            || (file != nullptr && file != held))
            continue;
        const uint32_t status = skufbstore(ctx, area, buffer);
        if (status != 0) return status;
        buffer->skufbflags &= static_cast<uint8_t>(~SKUFB_DIRTY);
    }
    return 0;
}

uint32_t skufbdclear(kux *ctx, void *cache, void *file)
{
    auto *area = static_cast<skuf *>(cache);
    auto *cleared = static_cast<skufv *>(file);
    if (area == nullptr || cleared == nullptr) return skufrefuse(ctx, SKUFA_NULL);
    for (uint32_t i = 0; i < area->skufnum; i++)
        if (area->skuftab[i].skufbfile == cleared) skufbfree(ctx, area, &area->skuftab[i]);
    cleared->skufvceiling = 0;
    return 0;
}
