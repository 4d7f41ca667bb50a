// kuv.cpp - handles: contexts, cells, and what is done with objects through them
//
//     kuv -> page -> page -> ...          in the order of their making
//             | cell 1 | cell 2 | ... | cell mpcount | , mpcount + 1 ...
//                |
//                `-> | header: 1, size | the object's bytes |     in a segment, or a heap block
//
// A handle is its cell's address: cells never move and pages last as long as the
// context. A cell is free (use count 0, flags 0, on the free list), in memory
// (KUV_RESIDENT), or swapped out (no lock). One flag test decides a dereference;
// null, freed and swapped-out handles take the long way.
//
// The context, its segment headers and its private part are one block. Creation
// fills a zeroed record from the outside in, the swap file last; whatever step fails,
// destruction finds null where nothing was made.

#include "kuv.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "../port/locale/locale.h"
#include "kuguard.h"
#include "kuv_internal.h"
#include "kuxnl.h"
#include "liz_internal.h"
#include "skuf.h"

using ku::vm::refuse;
namespace vm = ku::vm;

static constexpr int16_t kuv_cells = 4096;                        // of a handle page
static constexpr uint32_t kuv_buffers = 25;                       // of a block cache
static constexpr uint32_t kuv_file = 0x40000;                     // bytes of the swap file
static constexpr uint32_t kuv_segment = 65520;                    // bytes
static constexpr uint64_t kuv_mostsegment = UINT32_MAX - 7;       // that can be said
static constexpr uint8_t kuv_segments = 4;                        // how many
static constexpr int8_t kuv_percent = 10;                         // to swap out
static constexpr uint32_t kuv_most_cells = vm::free_in_front - 1; // numbers that a header takes

// ---- handle pages ----

static kuvcl *kuvcell(void *handle) { return static_cast<kuvcl *>(handle); }

static uint64_t kuvpagebytes(const kuv *memory)
{
    return offsetof(kuvmh, mplist_kuvmh)
           + uint64_t{static_cast<uint16_t>(memory->mpcount_kuv)} * sizeof(kuvcl);
}

// Makes a page the last one, its cells free and first on the free list.
static void kuvpinit(kuv *memory, kuvmh *page)
{
    kuvown *own = memory->own_kuv;
    const auto count = static_cast<uint32_t>(memory->mpcount_kuv);
    std::memset(page, 0, kuvpagebytes(memory));
    kuvcl *cells = page->mplist_kuvmh;
    for (uint32_t i = 0; i < count; i++) {
        cells[i].mate_kuvcl = own->npages * count + i + 1;
        cells[i].size_kuvcl.caddress = i + 1 < count ? &cells[i + 1] : memory->mpfree_kuv;
    }
    memory->mpfree_kuv = cells;
    if (memory->mptail_kuv == nullptr)
        memory->mphead_kuv = page;
    else
        memory->mptail_kuv->mpnext_kuvmh = page;
    memory->mptail_kuv = page;
    own->pages[own->npages++] = page;
}

// Room for one more page's address. False without memory.
static bool kuvpageroom(const kuv *memory)
{
    kuvown *own = memory->own_kuv;
    if (own->npages < own->room) return true;
    kux *ctx = memory->kuxp_kuv;
    auto *larger =
        static_cast<kuvmh **>(ku::allocate(ctx, uint64_t{own->room} * 2, sizeof(kuvmh *)));
    if (larger == nullptr) return false;
    std::copy_n(own->pages, own->npages, larger);
    if (own->pages != own->some) ctx->kuxnmfree(ctx, own->pages);
    own->pages = larger;
    own->room *= 2;
    return true;
}

static bool kuvaddpage(kuv *memory)
{
    const uint64_t cells =
        (uint64_t{memory->own_kuv->npages} + 1) * static_cast<uint16_t>(memory->mpcount_kuv);
    if (cells > kuv_most_cells || !kuvpageroom(memory)) return false;
    auto *page = static_cast<kuvmh *>(ku::allocate(memory->kuxp_kuv, kuvpagebytes(memory), 1));
    if (page != nullptr) kuvpinit(memory, page);
    return page != nullptr;
}

// ---- creation and destruction ----

static bool kuvgiven(const kuva *attrs, uint32_t bit) { return (attrs->mask_kuva & bit) != 0; }

static bool kuvswaps(const kuva *attrs)
{
    return kuvgiven(attrs, KUVA_SOFTVIRT) && attrs->softvirt_kuva != 0;
}

// A copy of a text, logged or not by the function that allocates. Null without memory.
static char *kuvcopy(kux *ctx, const char *text, kuxnmallocfn allocate)
{
    const uint64_t size = uint64_t{std::strlen(text)} + 1;
    if (size > UINT32_MAX) return nullptr;
    auto *copy = static_cast<char *>(allocate(ctx, static_cast<uint32_t>(size)));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

// The context's block, zeroed but for what its sizes say. Null without memory.
static kuv *kuvmake(kux *ctx, const kuva *attrs)
{
    uint8_t count = kuvgiven(attrs, KUVA_NUMSEGS) ? attrs->numsegments_kuva : kuv_segments;
    if (count == 0) count = kuv_segments;
    const uint64_t each = sizeof(uint64_t) + sizeof(kuvsh) + vm::bins_bytes;
    const uint64_t size = sizeof(kuv) + sizeof(kuvown) + count * each;
    auto *block = static_cast<unsigned char *>(kuxnlalloc(ctx, static_cast<uint32_t>(size)));
    if (block == nullptr) return nullptr;
    std::memset(block, 0, size);

    auto *memory = reinterpret_cast<kuv *>(block);
    memory->own_kuv = reinterpret_cast<kuvown *>(memory + 1);
    memory->own_kuv->filled = reinterpret_cast<uint64_t *>(memory->own_kuv + 1);
    memory->segs_kuv = reinterpret_cast<kuvsh *>(memory->own_kuv->filled + count);
    memory->own_kuv->bins = reinterpret_cast<kuvbins *>(memory->segs_kuv + count);
    memory->own_kuv->pages = memory->own_kuv->some;
    memory->own_kuv->room = kuvown::first_room;
    memory->own_kuv->lowest = 1;
    memory->kuxp_kuv = ctx;
    memory->numsegs_kuv = count;
    return memory;
}

// What needs no memory. False: the segments are too large.
static bool kuvfill(kuv *memory, const kuva *attrs)
{
    const int16_t cells = kuvgiven(attrs, KUVA_MPCNT) ? attrs->mpcnt_kuva : kuv_cells;
    const int16_t count = cells < 1 ? kuv_cells : cells;
    const bool power = std::has_single_bit(static_cast<uint16_t>(count));
    memory->mpcount_kuv = count;
    memory->own_kuv->shift = power ? std::countr_zero(static_cast<uint16_t>(count)) : -1;
    const uint64_t size = kuvgiven(attrs, KUVA_SEGSIZE)
                              ? (uint64_t{attrs->segmentsize_kuva} + vm::unit) / vm::unit * vm::unit
                              : kuv_segment;
    if (kuvswaps(attrs) && size > uint64_t{vm::largest_block}) return false;
    memory->size_kuv = static_cast<uint32_t>(std::min(size, kuv_mostsegment));
    memory->highwater_kuv = kuvgiven(attrs, KUVA_HIGHWATER) ? attrs->highwater_kuva : kuv_percent;
    memory->debug_kuv = kuvgiven(attrs, KUVA_DEBUG) ? attrs->debug_kuva : 1;
    if (kuvgiven(attrs, KUVA_NEWFILESIZE)) memory->newfilesize_kuv = attrs->newfilesize_kuva;
    if (kuvgiven(attrs, KUVA_CLIENTDATA)) memory->clientdata_kuv = attrs->clientdata_kuva;
    memory->mxbo_kuv = kuvgiven(attrs, KUVA_MXFLSIZE)
                           ? std::max(memory->size_kuv, attrs->mxflsize_kuva)
                           : kuv_file;
    memory->lfbo_kuv = 1; // offset 0 stays unused
    memory->scmb_kuv = kuvgiven(attrs, KUVA_HEAPSCRAM) ? attrs->heapscram_kuva : 0;
    return true;
}

// The swap file, with its cache and directory. False: it cannot be made.
static bool kuvswapping(kuv *memory, const kuva *attrs)
{
    kux *ctx = memory->kuxp_kuv;
    char temporary[SKUF_TMPDIRLEN];
    const char *path = kuvgiven(attrs, KUVA_CACHEPATH) ? attrs->cachepath_kuva : nullptr;
    memory->softvirt_kuv = 1;
    if (kuvgiven(attrs, KUVA_SKUFCTX)) memory->skufh_kuv = attrs->skufcontext_kuva;
    if (memory->skufh_kuv == nullptr) {
        const uint32_t count = kuvgiven(attrs, KUVA_BUFCNT) ? attrs->bufcnt_kuva : kuv_buffers;
        memory->skufh_kuv =
            skufcreate(ctx, static_cast<uint16_t>(std::min<uint32_t>(count, SKUF_MOSTBUFS)));
        memory->myskuf_kuv = memory->skufh_kuv != nullptr ? 1 : 0;
    }
    if (memory->skufh_kuv == nullptr) return false;
    if (path == nullptr) {
        if (skuftmpdir(ctx, temporary, sizeof temporary) != 0) return false;
        path = temporary;
    }
    memory->path_kuv = kuvcopy(ctx, path, kuxnlalloc);
    if (memory->path_kuv != nullptr) memory->cfpt_kuv = vm::open_file(memory);
    return memory->cfpt_kuv != nullptr;
}

// Releases all but the record, which may be used for a second destruction.
static void kuvempty(kuv *memory, kuxnmfreefn release)
{
    kux *ctx = memory->kuxp_kuv;
    kuvown *own = memory->own_kuv;
    vm::close_file(memory, memory->cfpt_kuv);
    memory->cfpt_kuv = nullptr;
    for (int i = 0; i < memory->numsegs_kuv; i++) {
        if (memory->segs_kuv[i].fmad_kuvsh != nullptr)
            ctx->kuxnmfree(ctx, memory->segs_kuv[i].fmad_kuvsh);
        memory->segs_kuv[i] = kuvsh{};
    }
    memory->curfree_kuv = memory->maxfree_kuv = 0;
    own->opened = 0;
    for (kuvmh *page = memory->mphead_kuv; page != nullptr;) {
        for (int i = 0; memory->softvirt_kuv == 0 && i < memory->mpcount_kuv; i++) {
            const kuvcl *cell = page->mplist_kuvmh + i;
            if (cell->flags_kuvcl != 0) ctx->kuxnmfree(ctx, vm::block_of(cell));
        }
        kuvmh *done = page;
        page = page->mpnext_kuvmh;
        release(ctx, done);
    }
    memory->mphead_kuv = memory->mptail_kuv = nullptr;
    memory->mpfree_kuv = nullptr;
    if (own->pages != own->some) ctx->kuxnmfree(ctx, own->pages);
    own->pages = own->some;
    own->room = kuvown::first_room;
    own->npages = 0;
    if (memory->path_kuv != nullptr) release(ctx, memory->path_kuv);
    memory->path_kuv = nullptr;
    if (memory->myskuf_kuv == 1) memory->skufh_kuv = skufdestroy(ctx, memory->skufh_kuv);
    memory->myskuf_kuv = 0;
}

// Builds a context; null, with nothing left.
static kuv *kuvbuild(kux *ctx, const kuva *attrs)
{
    ku::frame building(ctx);
    kuv *memory = building.open() ? kuvmake(ctx, attrs) : nullptr;
    if (memory == nullptr) return nullptr;
    bool built = kuvfill(memory, attrs);
    if (built) {
        auto *page =
            static_cast<kuvmh *>(kuxnlalloc(ctx, static_cast<uint32_t>(kuvpagebytes(memory))));
        built = page != nullptr;
        if (built) kuvpinit(memory, page);
    }
    if (built && kuvswaps(attrs)) built = kuvswapping(memory, attrs);
    if (built) {
        memory->id_kuv = KUV_ID;
        building.commit();
        return memory;
    }
    kuvempty(memory, kuxnlfree); // rolled back besides, but only while logging is on
    kuxnlfree(ctx, memory);
    return nullptr;
}

kuv *kuvcreate(kux *ctx, const kuva *attrs)
{
    if (ctx == nullptr) return nullptr;
    kuv *memory = attrs != nullptr ? kuvbuild(ctx, attrs) : nullptr;
    if (memory == nullptr) kuxer0push(ctx, KUVAA_FAILED);
    return memory;
}

uint32_t kuvdestroy(kuv *memory)
{
    if (memory == nullptr || memory->id_kuv != KUV_ID) return KUVAA_FAILED;
    kux *ctx = memory->kuxp_kuv;
    kuvempty(memory, ctx->kuxnmfree);
    if (kuxernerrors(ctx) != 0) return KUVAA_FAILED;
    memory->id_kuv = 0;
    ctx->kuxnmfree(ctx, memory);
    return 0;
}

// ---- attributes ----

// Whether attributes can be taken or given. Pushes what their absence is.
static bool kuvasked(const kuv *memory, const kuva *attrs)
{
    if (memory == nullptr) return false;
    if (attrs == nullptr) refuse(memory, KUVAA_FAILED);
    return attrs != nullptr;
}

uint32_t kuvset(kuv *memory, const kuva *attrs)
{
    if (!kuvasked(memory, attrs)) return KUVAA_FAILED;
    kux *ctx = memory->kuxp_kuv;
    if (kuvgiven(attrs, KUVA_CACHEPATH)) {
        if (attrs->cachepath_kuva == nullptr) return KUVAA_FAILED;
        char *path = kuvcopy(ctx, attrs->cachepath_kuva, ctx->kuxnmalloc);
        if (path == nullptr) return KUVAA_FAILED;
        if (memory->path_kuv != nullptr) ctx->kuxnmfree(ctx, memory->path_kuv);
        memory->path_kuv = path;
    }
    if (kuvgiven(attrs, KUVA_MXFLSIZE)) memory->mxbo_kuv = attrs->mxflsize_kuva;
    if (kuvgiven(attrs, KUVA_HEAPSCRAM)) memory->scmb_kuv = attrs->heapscram_kuva;
    if (kuvgiven(attrs, KUVA_DEBUG)) memory->debug_kuv = attrs->debug_kuva;
    if (kuvgiven(attrs, KUVA_HIGHWATER)) memory->highwater_kuv = attrs->highwater_kuva;
    if (kuvgiven(attrs, KUVA_NEWFILESIZE)) memory->newfilesize_kuv = attrs->newfilesize_kuva;
    if (kuvgiven(attrs, KUVA_CLIENTDATA)) memory->clientdata_kuv = attrs->clientdata_kuva;
    return 0;
}

uint32_t kuvget(kuv *memory, kuva *attrs)
{
    if (!kuvasked(memory, attrs)) return KUVAA_FAILED;
    kux *ctx = memory->kuxp_kuv;
    if (kuvgiven(attrs, KUVA_CACHEPATH)) {
        const char *path = memory->path_kuv;
        char *copy = path != nullptr ? kuvcopy(ctx, path, ctx->kuxnmalloc) : nullptr;
        if (path != nullptr && copy == nullptr) return KUVAA_FAILED;
        attrs->cachepath_kuva = copy;
    }
    if (kuvgiven(attrs, KUVA_MPCNT)) attrs->mpcnt_kuva = memory->mpcount_kuv;
    if (kuvgiven(attrs, KUVA_SKUFCTX)) attrs->skufcontext_kuva = memory->skufh_kuv;
    if (kuvgiven(attrs, KUVA_MXFLSIZE)) attrs->mxflsize_kuva = memory->mxbo_kuv;
    if (kuvgiven(attrs, KUVA_HEAPSCRAM)) attrs->heapscram_kuva = memory->scmb_kuv;
    if (kuvgiven(attrs, KUVA_DEBUG)) attrs->debug_kuva = memory->debug_kuv;
    if (kuvgiven(attrs, KUVA_HIGHWATER)) attrs->highwater_kuva = memory->highwater_kuv;
    if (kuvgiven(attrs, KUVA_NEWFILESIZE)) attrs->newfilesize_kuva = memory->newfilesize_kuv;
    if (kuvgiven(attrs, KUVA_CLIENTDATA)) attrs->clientdata_kuva = memory->clientdata_kuv;
    return 0;
}

// ---- objects ----

// Bytes of the block for an object. 0, with a code pushed: there cannot be one.
static uint32_t kuvblocksize(const kuv *memory, uint32_t size)
{
    const uint64_t bytes = (uint64_t{size} + KUVP_HEADER + vm::unit - 1) / vm::unit * vm::unit;
    const bool swapping = memory->softvirt_kuv != 0;
    if (bytes <= (swapping ? memory->size_kuv : uint64_t{vm::largest_block}))
        return static_cast<uint32_t>(bytes);
    refuse(memory, swapping ? KUVAA_TOOLARGE : KUVAA_FAILED);
    return 0;
}

// Swaps out all but a new object. False: the object is gone and scramble mode off.
static bool kuvscrambled(kuv *memory, kuvcl *cell)
{
    if (memory->softvirt_kuv == 0 || memory->scmb_kuv == 0) return true;
    cell->flags_kuvcl++;
    const bool done = kuvpscramble(memory) == 0;
    cell->flags_kuvcl--;
    if (done) return true;
    memory->scmb_kuv = 0;
    kuvfree(memory, cell);
    return false;
}

void *kuvalloc(kuv *memory, uint32_t size)
{
    if (memory == nullptr) return nullptr;
    const uint32_t bytes = kuvblocksize(memory, size);
    if (bytes == 0) return nullptr;
    kuvfrdef *block = kuvpgetmem(memory, bytes);
    if (block == nullptr) return refuse(memory, KUVAA_FAILED);
    if (memory->mpfree_kuv == nullptr && !kuvaddpage(memory)) {
        kuvputmem(memory, block, memory->lastseg_kuv);
        return nullptr;
    }
    kuvcl *cell = memory->mpfree_kuv;
    memory->mpfree_kuv = cell->size_kuvcl.caddress;
    cell->size_kuvcl.caddress = nullptr;
    cell->size_kuvcl.csize = bytes - KUVP_HEADER;
    cell->refcount_kuvcl = 1;
    vm::attach(memory, cell, block, memory->lastseg_kuv);
    return kuvscrambled(memory, cell) ? cell : nullptr;
}

void *(kuvderef)(kuv *memory, void *handle)
{
    kuvcl *cell = kuvcell(handle);
    if (cell != nullptr && (cell->flags_kuvcl & KUV_RESIDENT) != 0)
        return cell->dataptr_kuvcl.maddress;
    if (memory == nullptr) return nullptr;
    if (cell == nullptr || cell->refcount_kuvcl == 0) return refuse(memory, KUVAA_FAILED);
    const bool scrambles = memory->softvirt_kuv != 0 && memory->scmb_kuv != 0;
    if ((scrambles && kuvpscramble(memory) != 0) || !vm::swap_in(memory, cell))
        return refuse(memory, KUVAA_FAILED);
    return cell->dataptr_kuvcl.maddress;
}

void *kuvlock(kuv *memory, void *handle)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (cell == nullptr || cell->refcount_kuvcl == 0) return refuse(memory, KUVAA_FAILED);
    if ((cell->flags_kuvcl & KUV_LOCKS) == KUV_LOCKS) return refuse(memory, KUVAA_LOCKLIMIT);
    cell->flags_kuvcl++; // before it is brought in: then it stays
    void *bytes = kuvderef(memory, handle);
    if (bytes == nullptr) cell->flags_kuvcl--;
    return bytes;
}

void *kuvunlock(kuv *memory, void *handle)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (cell == nullptr) return refuse(memory, KUVAA_FAILED);
    if ((cell->flags_kuvcl & KUV_LOCKS) == 0) return refuse(memory, KUVAA_NOTLOCKED);
    cell->flags_kuvcl--;
    return nullptr;
}

// Moves a locked object to a new block. False without memory.
static bool kuvmove(kuv *memory, kuvcl *cell, uint32_t bytes, uint32_t copied)
{
    kuvfrdef *block = kuvpgetmem(memory, bytes);
    if (block == nullptr) return false;
    const auto segment = static_cast<int16_t>(cell->segment_kuvcl);
    kuvfrdef *old = vm::detach(cell);
    vm::attach(memory, cell, block, memory->lastseg_kuv);
    std::memcpy(block + 1, old + 1, copied);
    kuvputmem(memory, old, segment);
    return true;
}

void *kuvrealloc(kuv *memory, void *handle, uint32_t nsize)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (cell == nullptr) return refuse(memory, KUVAA_FAILED);
    const uint32_t bytes = kuvblocksize(memory, nsize);
    if (bytes == 0) return nullptr;
    if ((cell->flags_kuvcl & KUV_LOCKS) != 0) return refuse(memory, KUVAA_LOCKED);
    if (kuvlock(memory, handle) == nullptr) return refuse(memory, KUVAA_FAILED);

    const uint32_t usable = cell->size_kuvcl.csize;
    const uint32_t before = usable + KUVP_HEADER;
    bool resized = true;
    if (memory->softvirt_kuv == 0 || before < bytes) {
        resized = kuvmove(memory, cell, bytes, std::min(usable, nsize));
    } else if (before > bytes) {
        kuvfrdef *block = vm::block_of(cell);
        block->size_kuvfr = static_cast<int32_t>(bytes);
        kuvfrdef *cut = vm::next_in_memory(block);
        *cut = {0, static_cast<int32_t>(before - bytes)};
        kuvputmem(memory, cut, static_cast<int16_t>(cell->segment_kuvcl));
    }
    if (resized) cell->size_kuvcl.csize = bytes - KUVP_HEADER;
    cell->flags_kuvcl--;
    return resized ? handle : refuse(memory, KUVAA_FAILED);
}

void *kuvfree(kuv *memory, void *handle)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (cell == nullptr || cell->refcount_kuvcl == 0) return refuse(memory, KUVAA_FAILED);
    if (cell->refcount_kuvcl > 1) {
        cell->refcount_kuvcl--;
        return nullptr;
    }
    if (kuvderef(memory, handle) == nullptr) return refuse(memory, KUVAA_FAILED);
    const auto segment = static_cast<int16_t>(cell->segment_kuvcl);
    kuvputmem(memory, vm::detach(cell), segment);
    cell->flags_kuvcl = 0;
    cell->refcount_kuvcl = 0;
    cell->size_kuvcl.caddress = memory->mpfree_kuv;
    memory->mpfree_kuv = cell;
    return nullptr;
}

void *kuvhpurge(kuv *memory, void *handle)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (cell == nullptr) return refuse(memory, KUVAA_FAILED);
    if (memory->softvirt_kuv == 0 || cell->flags_kuvcl != KUV_RESIDENT) return nullptr;
    if (!vm::purge(memory, cell)) refuse(memory, KUVAA_FAILED);
    return nullptr;
}

// ---- copies and strings ----

void *kuvhdup(kuv *memory, void *handle)
{
    if (memory == nullptr) return nullptr;
    kuvcl *cell = kuvcell(handle);
    if (kuvderef(memory, handle) == nullptr || (cell->flags_kuvcl & KUV_LOCKS) == KUV_LOCKS)
        return nullptr;
    cell->flags_kuvcl++;
    void *copy = kuvalloc(memory, cell->size_kuvcl.csize);
    if (copy == nullptr)
        refuse(memory, KUVAA_FAILED);
    else
        std::memcpy(kuvcell(copy)->dataptr_kuvcl.maddress, cell->dataptr_kuvcl.maddress,
                    cell->size_kuvcl.csize);
    cell->flags_kuvcl--;
    return copy;
}

void *kuvmdup(kuv *memory, const void *bytes, uint32_t length)
{
    if (memory == nullptr) return nullptr;
    if (bytes == nullptr && length != 0) return refuse(memory, KUVAA_FAILED);
    void *handle = kuvalloc(memory, length);
    if (handle != nullptr && length != 0)
        std::memcpy(kuvcell(handle)->dataptr_kuvcl.maddress, bytes, length);
    return handle;
}

void *kuvsdup(kuv *memory, const char *text)
{
    if (memory == nullptr) return nullptr;
    const uint64_t size = text != nullptr ? uint64_t{std::strlen(text)} + 1 : 0;
    if (size == 0 || size > UINT32_MAX) return refuse(memory, KUVAA_FAILED);
    return kuvmdup(memory, text, static_cast<uint32_t>(size));
}

namespace
{

// Two objects at once: the first locked, the second dereferenced.
class kuvboth : ku::unique
{
public:
    kuvboth(kuv *memory, void *handle1, void *handle2) : memory_(memory), cell_(kuvcell(handle1))
    {
        first = static_cast<char *>(kuvlock(memory, handle1));
        if (first == nullptr) return;
        first_bytes = cell_->size_kuvcl.csize;
        second = static_cast<char *>(kuvderef(memory, handle2));
        if (second != nullptr) second_bytes = kuvcell(handle2)->size_kuvcl.csize;
    }
    ~kuvboth()
    {
        if (first != nullptr) kuvunlock(memory_, cell_);
    }

    char *first = nullptr;
    char *second = nullptr; // null: one of them cannot be reached, and why is on the stack
    uint32_t first_bytes = 0;
    uint32_t second_bytes = 0;

private:
    kuv *memory_;
    kuvcl *cell_;
};

} // namespace

// The string in an object, without its NUL; one that has none ends with the object.
static uint32_t kuvlength(const char *bytes, uint32_t size)
{
    return static_cast<uint32_t>(std::find(bytes, bytes + size, '\0') - bytes);
}

int32_t kuvscmp(kuv *memory, void *handle1, void *handle2)
{
    const kuvboth both(memory, handle1, handle2);
    if (both.second == nullptr) return 0;
    const uint32_t length1 = kuvlength(both.first, both.first_bytes);
    const uint32_t length2 = kuvlength(both.second, both.second_bytes);
    const int order = std::memcmp(both.first, both.second, std::min(length1, length2));
    if (order != 0 || length1 == length2) return order;
    return length1 < length2 ? -1 : 1;
}

void *kuvscat(kuv *memory, void *handle1, void *handle2)
{
    const kuvboth both(memory, handle1, handle2);
    if (both.second == nullptr) return nullptr;
    const uint32_t length1 = kuvlength(both.first, both.first_bytes);
    const uint32_t length2 = kuvlength(both.second, both.second_bytes);
    const kulang &language = *memory->kuxp_kuv->kuxlangidh;
    if (length1 == both.first_bytes
        || ku::locale::concatenated(language, both.first, length1, both.second, length2)
               >= both.first_bytes)
        return refuse(memory, KUVAA_FAILED);
    ku::locale::concatenate(language, both.first, both.second, length2);
    return handle1;
}

int32_t kuvmcmp(kuv *memory, void *handle1, void *handle2, uint32_t length)
{
    const kuvboth both(memory, handle1, handle2);
    if (both.second == nullptr) return 0;
    if (length > std::min(both.first_bytes, both.second_bytes)) {
        refuse(memory, KUVAA_FAILED);
        return 0;
    }
    const auto text = [length](const char *bytes) {
        return ku::liz::exactly(bytes, length, LIZ_MULTIBYTE);
    };
    const int32_t order = ku::liz::compare(*memory->kuxp_kuv->kuxlangidh, text(both.first),
                                           text(both.second), LIZ_BINARY);
    return order == LIZ_EQUAL ? 0 : order == LIZ_LESS ? -1 : 1;
}
