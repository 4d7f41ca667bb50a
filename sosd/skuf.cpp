// skuf.cpp - the block cache: its memory, and the temporary directory
//
//     skuftab   | buffer 0 | buffer 1 | ... | buffer n-1 | residents, places | parts |
//     skuforig  | 4096     | 4096     | ... | 4096       |           static only
//     skufhash  | chain of the blocks 0, n, 2n ... | of 1, n+1 ... | ...
//
// A buffer is on the free list, or holds a block and is in the chain of that
// block's number; chains mix the files. Free buffers are pushed from first to
// last and handed out from the head, so the last is taken first. The hand goes
// round the table when none is free (skufv.cpp).

#include "skuf.h"

#include <algorithm>
#include <cstring>

#include "../port/locale/locale.h"
#include "kuguard.h"
#include "sku.h"
#include "skuf_internal.h"

static constexpr uint32_t skuf_spare = 4; // bytes of skufpath beyond its text

using ku::crt::residents;
static_assert(sizeof(skufb) % alignof(residents) == 0
                  && sizeof(residents) % alignof(residents::place) == 0
                  && sizeof(residents::place) % alignof(skufpart) == 0,
              "they follow each other");
static constexpr uint64_t skuf_each = // bytes for a buffer in the table's block
    sizeof(skufb) + skufstretches * sizeof(residents::place) + sizeof(skufpart);

uint32_t skufrefuse(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

char *skufcopy(kux *ctx, const char *text)
{
    const uint64_t size = uint64_t{std::strlen(text)} + 1;
    auto *copy = static_cast<char *>(ku::allocate(ctx, size, 1));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

// The temporary directory with `skuf_spare` bytes behind it; null when there is none.
static char *skuffindpath(kux *ctx)
{
    char directory[SKUF_TMPDIRLEN];
    if (skuftmpdir(ctx, directory, sizeof directory) != 0) return nullptr;
    const std::size_t length = std::strlen(directory);
    auto *path = static_cast<char *>(ku::allocate(ctx, uint64_t{length} + skuf_spare, 1));
    if (path != nullptr) std::memcpy(path, directory, length + 1);
    return path;
}

// Allocates what belongs to a cache; false without memory.
static bool skufequip(kux *ctx, skuf *cache)
{
    const uint64_t count = cache->skufnum;
    cache->skufpath = skuffindpath(ctx);
    if (cache->skufpath == nullptr) return false;
    cache->skuftab =
        static_cast<skufb *>(ku::allocate(ctx, count * skuf_each + sizeof(residents), 1));
    if (cache->skuftab == nullptr) return false;
    *skufresident(cache) = {skufplaces(cache), skufstretches * cache->skufnum, 0, 0, nullptr};
    cache->skufhash = static_cast<skufb **>(ku::allocate(ctx, count, sizeof(skufb *)));
    if (cache->skufhash == nullptr) return false;
    if (cache->skufdynamic != 0) return true;
    cache->skuforig = static_cast<unsigned char *>(ku::allocate(ctx, count, SKUF_BLOCK));
    return cache->skuforig != nullptr;
}

// Makes every buffer free.
static void skufarrange(skuf *cache)
{
    unsigned char *data = cache->skuforig;
    for (skufb *buffer = cache->skuftab; buffer != cache->skuftab + cache->skufnum; buffer++) {
        *buffer = {nullptr, 0, cache->skuffree, data, 0};
        *skufpartof(cache, buffer) = {0, SKUF_BLOCK};
        cache->skuffree = buffer;
        if (data != nullptr) data += SKUF_BLOCK;
    }
    std::fill_n(cache->skufhash, cache->skufnum, nullptr);
    cache->skufmru = cache->skufnext = cache->skuftab;
}

static void *skufmake(kux *ctx, uint16_t nbuffers, int32_t dynamic)
{
    auto *cache = ku::allocate<skuf>(ctx);
    if (cache == nullptr) return nullptr;
    *cache = skuf{};
    cache->skufdynamic = dynamic;
    cache->skuftnum = 1;
    cache->skufnum =
        static_cast<uint16_t>(std::clamp<uint32_t>(nbuffers, SKUF_LEASTBUFS, SKUF_MOSTBUFS));
    if (!skufequip(ctx, cache)) return skufdestroy(ctx, cache);
    skufarrange(cache);
    return cache;
}

void *skufcreate(kux *ctx, uint16_t nbuffers) { return skufmake(ctx, nbuffers, 0); }

void *skufdcreate(kux *ctx, uint16_t nbuffers) { return skufmake(ctx, nbuffers, 1); }

void *skufdestroy(kux *ctx, void *cache)
{
    auto *area = static_cast<skuf *>(cache);
    if (area == nullptr) return nullptr;
    const auto release = [ctx](void *block) {
        if (block != nullptr) ctx->kuxnmfree(ctx, block);
    };
    if (area->skuftab != nullptr) ku::crt::release_residents(skufresident(area));
    const bool arranged = area->skufmru != nullptr;
    if (arranged && area->skufdynamic != 0) // files left open still hold blocks
        for (uint32_t i = 0; i < area->skufnum; i++) release(area->skuftab[i].skufbdata);
    release(area->skufpath);
    release(area->skuftab);
    release(area->skufhash);
    release(area->skuforig);
    release(area);
    return nullptr;
}

// The last character counts, not the last byte: that may be a backslash inside another one.
bool skufneedsseparator(kux *ctx, char *directory)
{
    if (directory[0] == 0) return false;
    kucursor cursor;
    ku::locale::open_exact(&cursor, directory, SIZE_MAX, ctx->kuxlangidh,
                           ku::locale::cursor_mode::read);
    bool separates = false;
    for (; ku::locale::current(cursor) != 0; ku::locale::step(cursor)) {
        const unsigned char byte = ku::locale::current(cursor);
        separates = ku::locale::is_single(cursor) && (byte == '\\' || byte == ':');
    }
    return !separates;
}

uint32_t skuftmpdir(kux *ctx, char *buffer, uint32_t length)
{
    ku::owned<char> value(ctx, sku_gev(ctx, "TMP"));
    if (!value || buffer == nullptr) return SKUFA_TMPDIR;
    const std::size_t named = std::strlen(value.get());
    const bool separator = skufneedsseparator(ctx, value.get());
    if (uint64_t{named} + (separator ? 2 : 1) > length) return SKUFA_TMPDIR;
    std::memcpy(buffer, value.get(), named + 1);
    if (separator) std::memcpy(buffer + named, "\\", 2);
    return 0;
}
