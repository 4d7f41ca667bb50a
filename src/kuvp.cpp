// kuvp.cpp - the pager: blocks in segments, free lists, and what is swapped out
//
//     segment    | 24 used | 16 free | 40 used | 8 free | 16 used | 48 free | end |
//     fmls       -> 8 -> 16 -> 48     by size, of equal sizes the latest first
//     free block | next, -size | ........................ | previous, size |
//
// A free block keeps its predecessor on the list and its size in its last 8 bytes;
// together with the front marks (kuv_internal.h) that finds the free neighbours of a
// block, and takes one off the list, without a search. A free block of 8 bytes is all
// header: its predecessor is in the front mark of what follows it.
//
// Bins find the place of a size on the list: each has the first block of a range of
// sizes, of one size each up to 256 bytes, of half a power of two above. So blocks
// are found, added and taken off in a few steps, however long the list is.
//
// Who takes a block off its list owns it until it is attached to a cell or given
// back; it is positive and no walk follows its first word.
//
//     swap file | ? | header, data | header, data | ... | lfbo
//                 1                      | next offset, next size |    a region
//
// The file is written at its end. What is read back leaves its data area as a region,
// head of a list threaded through the file; only the head is ever used again. At
// the limit all that is out is copied to a new file. A move fails while any error is on
// the stack, so nothing here goes on after a failure.

#include "kuvp.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "../sosd/skuf_internal.h"
#include "kuguard.h"
#include "kuv_internal.h"
#include "skufo.h"
#include "skufv.h"
#include "skufz.h"

using ku::vm::address_of;
using ku::vm::next_in_memory;
using ku::vm::reference_to;
using ku::vm::refuse;
namespace vm = ku::vm;

static constexpr uint32_t kuvp_exact = 256;      // largest size with a bin of its own
static constexpr uint32_t kuvp_bins = 48;        // the last also takes all larger sizes
static constexpr uint32_t kuvp_percents = 100;   // of the segments' memory
static constexpr uint32_t kuvp_shrink = 8;       // the limit is halved below 1/8
static constexpr uint32_t kuvp_first = 1;        // offset of the first block in a swap file
static constexpr uint32_t kuvp_longest = 4096;   // bytes of a name that the system takes
static constexpr uint64_t kuvp_end = UINT32_MAX; // an offset in a swap file, at most

struct kuvbins {
    uint32_t last;             // reference of the last block on the list
    uint32_t first[kuvp_bins]; // references of the first block of each filled bin
};

namespace
{

// A segment with its bins.
struct kuvparea {
    kuv *memory;
    kuvsh &head;
    kuvbins &bins;
    uint64_t &filled;
};

} // namespace

static kuvparea kuvpareaof(kuv *memory, int segment)
{
    kuvown *own = memory->own_kuv;
    return {memory, memory->segs_kuv[segment], own->bins[segment], own->filled[segment]};
}

std::nullptr_t vm::refuse(const kuv *memory, uint32_t code)
{
    kuxer0push(memory->kuxp_kuv, code);
    return nullptr;
}

const uint32_t vm::bins_bytes = sizeof(kuvbins);

// ---- free lists ----

static uint32_t kuvpsize(const kuvfrdef *block)
{
    return static_cast<uint32_t>(std::abs(block->size_kuvfr));
}

static void kuvpresize(kuvfrdef *block, uint32_t size)
{
    block->size_kuvfr = static_cast<int32_t>(size);
}

[[gnu::always_inline]] static inline uint32_t kuvpbin(uint32_t size)
{
    if (size <= kuvp_exact) return size / vm::unit - 1;
    const auto power = static_cast<uint32_t>(std::bit_width(size) - 1);
    const uint32_t half = size >> (power - 1) & 1;
    const uint32_t bin = 2 * (power - std::bit_width(kuvp_exact) + 1) + half;
    return std::min(kuvp_exact / vm::unit + bin, kuvp_bins - 1);
}

// The end of a free block that has data: its predecessor and, not negated, its size.
static kuvfrdef *kuvptail(kuvfrdef *block) { return next_in_memory(block) - 1; }

static kuvfrdef *kuvpnext(const kuvparea &area, const kuvfrdef *block)
{
    return address_of(area.head, block->ptr_kuvfr);
}

// Where what is known of the block in front is kept; null: a free block does not know.
[[gnu::always_inline]] static inline uint32_t *kuvpfront(const kuv *memory, kuvfrdef *block)
{
    if (block->size_kuvfr < 0) return nullptr;
    return vm::is_owned(block) ? &address_of(memory, block->ptr_kuvfr)->mate_kuvcl
                               : &block->ptr_kuvfr;
}

// Tells what follows a block.
[[gnu::always_inline]] static inline void kuvpmark(const kuvparea &area, kuvfrdef *block,
                                                   uint32_t mark)
{
    if (uint32_t *front = kuvpfront(area.memory, next_in_memory(block)); front != nullptr)
        *front = mark;
}

[[gnu::always_inline]] static inline kuvfrdef *kuvpprevious(const kuvparea &area, kuvfrdef *block)
{
    if (kuvpsize(block) > vm::unit) return address_of(area.head, kuvptail(block)->ptr_kuvfr);
    const uint32_t *front = kuvpfront(area.memory, next_in_memory(block));
    if (front != nullptr && (*front & vm::free_in_front) != 0)
        return address_of(area.head, *front & ~vm::free_in_front);
    // Two free blocks side by side, before kuvpcoalesce.
    kuvfrdef *before = nullptr;
    for (kuvfrdef *each = area.head.fmls_kuvsh; each != block; each = kuvpnext(area, each))
        before = each;
    return before;
}

[[gnu::always_inline]] static inline void kuvpsetprevious(const kuvparea &area, kuvfrdef *block,
                                                          kuvfrdef *previous)
{
    const uint32_t reference = reference_to(area.head, previous);
    if (kuvpsize(block) > vm::unit)
        kuvptail(block)->ptr_kuvfr = reference;
    else
        kuvpmark(area, block, vm::free_in_front | reference);
}

// The first block on the list with at least so many bytes.
[[gnu::always_inline]] static inline kuvfrdef *kuvpfit(const kuvparea &area, uint32_t size)
{
    const uint32_t bin = kuvpbin(size);
    const uint64_t filled = area.filled >> bin;
    if (filled == 0) return nullptr;
    // In a filled bin of several sizes the search may go on into the next.
    kuvfrdef *block = address_of(area.head, area.bins.first[bin + std::countr_zero(filled)]);
    while (block != nullptr && kuvpsize(block) < size) block = kuvpnext(area, block);
    return block;
}

// Puts a block of so many bytes on the list. `marked`: what follows knows that it is free.
[[gnu::always_inline]] static inline void kuvplink(const kuvparea &area, kuvfrdef *block,
                                                   uint32_t size, bool marked)
{
    kuvsh &head = area.head;
    const uint32_t reference = reference_to(head, block);
    kuvfrdef *next = kuvpfit(area, size);
    kuvfrdef *previous = next == nullptr           ? address_of(head, area.bins.last)
                         : next == head.fmls_kuvsh ? nullptr
                                                   : kuvpprevious(area, next);
    kuvpresize(block, size);
    block->size_kuvfr = -block->size_kuvfr;
    block->ptr_kuvfr = reference_to(head, next);
    if (size > vm::unit) kuvpresize(kuvptail(block), size);
    if (!marked) kuvpmark(area, block, vm::free_in_front);
    kuvpsetprevious(area, block, previous);
    if (previous == nullptr)
        head.fmls_kuvsh = block;
    else
        previous->ptr_kuvfr = reference;
    if (next == nullptr)
        area.bins.last = reference;
    else
        kuvpsetprevious(area, next, block);

    // The first of its bin: the bin was empty, or what follows was it. No branch: it would be
    // guessed wrong as often as right.
    const uint32_t bin = kuvpbin(size);
    uint32_t &first = area.bins.first[bin];
    const bool empty = (area.filled >> bin & 1) == 0;
    first = (int{empty} | int{first == block->ptr_kuvfr}) != 0 ? reference : first;
    area.filled |= uint64_t{1} << bin;
}

// Takes a block off the list, its size becomes positive; what follows still counts it as free.
[[gnu::always_inline]] static inline void kuvpunlink(const kuvparea &area, kuvfrdef *block)
{
    kuvsh &head = area.head;
    kuvfrdef *next = kuvpnext(area, block);
    kuvfrdef *previous = block == head.fmls_kuvsh ? nullptr : kuvpprevious(area, block);
    // As above: the next one may become first of the bin; or it is empty, whatever first says.
    const uint32_t bin = kuvpbin(kuvpsize(block));
    uint32_t &first = area.bins.first[bin];
    const bool was_first = first == reference_to(head, block);
    const bool ends = next == nullptr || kuvpbin(kuvpsize(next)) != bin;
    first = was_first ? block->ptr_kuvfr : first;
    area.filled &= ~(uint64_t{(int{was_first} & int{ends}) != 0} << bin);
    if (previous == nullptr)
        head.fmls_kuvsh = next;
    else
        previous->ptr_kuvfr = block->ptr_kuvfr;
    if (next == nullptr)
        area.bins.last = reference_to(head, previous);
    else
        kuvpsetprevious(area, next, previous);
    block->size_kuvfr = -block->size_kuvfr;
    block->ptr_kuvfr = 0;
    head.curfree_kuvsh--;
    area.memory->curfree_kuv--;
}

// The same for good: what follows learns it.
static void kuvpremove(const kuvparea &area, kuvfrdef *block)
{
    kuvpunlink(area, block);
    kuvpmark(area, block, 0);
}

[[gnu::always_inline]] static inline void kuvpcount(const kuvparea &area)
{
    const int32_t in_segment = ++area.head.curfree_kuvsh;
    const int32_t in_all = ++area.memory->curfree_kuv;
    area.head.maxfree_kuvsh = std::max(area.head.maxfree_kuvsh, in_segment);
    area.memory->maxfree_kuv = std::max(area.memory->maxfree_kuv, in_all);
}

void kuvpfradd(kuv *memory, int16_t segment, kuvfrdef *block)
{
    const kuvparea area = kuvpareaof(memory, segment);
    kuvpcount(area);
    kuvplink(area, block, kuvpsize(block), false);
}

kuvfrdef *kuvpfrdelete(kuv *memory, int16_t segment, kuvfrdef *goal)
{
    const kuvparea area = kuvpareaof(memory, segment);
    for (kuvfrdef *each = area.head.fmls_kuvsh; each != nullptr; each = kuvpnext(area, each))
        if (each == goal) {
            kuvpremove(area, goal);
            return goal;
        }
    return nullptr;
}

void kuvpcoalesce(kuv *memory, int16_t segment)
{
    const kuvparea area = kuvpareaof(memory, segment);
    kuvfrdef *block = area.head.fmls_kuvsh;
    while (block != nullptr) {
        kuvfrdef *neighbour = next_in_memory(block);
        if (neighbour->size_kuvfr >= 0) {
            block = kuvpnext(area, block);
            continue;
        }
        kuvpremove(area, block);
        kuvpremove(area, neighbour);
        kuvpresize(block, kuvpsize(block) + kuvpsize(neighbour));
        kuvpfradd(memory, segment, block);
        block = area.head.fmls_kuvsh;
    }
}

uint32_t kuvputmem(kuv *memory, kuvfrdef *block, int16_t segment)
{
    if (block == nullptr) return KUVAA_FAILED;
    if (memory->softvirt_kuv == 0) {
        memory->kuxp_kuv->kuxnmfree(memory->kuxp_kuv, block);
        return 0;
    }
    const kuvparea area = kuvpareaof(memory, segment);
    kuvpcount(area);
    uint32_t size = kuvpsize(block);
    kuvfrdef *behind = next_in_memory(block);
    const bool joins = behind->size_kuvfr < 0;
    if (joins) {
        size += kuvpsize(behind);
        kuvpunlink(area, behind);
    }
    if ((block->ptr_kuvfr & vm::free_in_front) != 0) {
        // The 8 bytes in front are a header or the end of a larger free block.
        kuvfrdef *front = block - 1;
        if (front->size_kuvfr > 0) front = vm::block_at(vm::bytes_of(block) - kuvpsize(front));
        size += kuvpsize(front);
        kuvpunlink(area, front);
        block = front;
    }
    kuvplink(area, block, size, joins);
    return 0;
}

// ---- getting a block ----

// The whole of a segment that had no memory yet. Null without memory.
static kuvfrdef *kuvpopen(const kuvparea &area)
{
    kuv *memory = area.memory;
    auto *bytes = static_cast<unsigned char *>(
        ku::allocate(memory->kuxp_kuv, uint64_t{memory->size_kuv} + KUVP_HEADER, 1));
    if (bytes == nullptr) return nullptr;
    area.head = kuvsh{};
    area.bins = kuvbins{};
    area.filled = 0;
    memory->own_kuv->opened++;
    kuvfrdef *block = area.head.fmad_kuvsh = vm::block_at(bytes);
    area.head.lmad_kuvsh = vm::block_at(bytes + memory->size_kuv + KUVP_HEADER);
    *(area.head.lmad_kuvsh - 1) = {vm::free_in_front, 0};
    block->ptr_kuvfr = 0;
    kuvpresize(block, memory->size_kuv);
    return block;
}

// Cuts a block that was free, or a whole segment, to size; the rest becomes free.
static void kuvpcut(const kuvparea &area, kuvfrdef *block, uint32_t size)
{
    const uint32_t rest = kuvpsize(block) - size;
    if (rest == 0) {
        kuvpmark(area, block, 0);
        return;
    }
    kuvpresize(block, size);
    kuvpcount(area);
    kuvfrdef *cut = next_in_memory(block);
    kuvpresize(cut, rest); // no other free block is beside it, and what follows knows one
    kuvplink(area, cut, rest, true);
}

// A free block of so many bytes, off its list; null: no segment has one, or
// (*failed) one could not get its memory.
static kuvfrdef *kuvpfind(kuv *memory, uint32_t size, bool *failed)
{
    const kuvown *own = memory->own_kuv;
    const uint32_t bin = kuvpbin(size);
    for (int segment = 0; segment < own->opened; segment++) {
        memory->lastseg_kuv = static_cast<int16_t>(segment);
        if (own->filled[segment] >> bin == 0) continue;
        const kuvparea area = kuvpareaof(memory, segment);
        kuvfrdef *block = kuvpfit(area, size);
        if (block == nullptr) continue;
        kuvpunlink(area, block);
        kuvpcut(area, block, size);
        return block;
    }
    if (own->opened == memory->numsegs_kuv || size > memory->size_kuv) return nullptr;
    memory->lastseg_kuv = static_cast<int16_t>(own->opened);
    const kuvparea area = kuvpareaof(memory, own->opened);
    kuvfrdef *block = kuvpopen(area);
    *failed = block == nullptr;
    if (block != nullptr) kuvpcut(area, block, size);
    return block;
}

static kuvfrdef *kuvpheap(const kuv *memory, uint32_t size)
{
    auto *block =
        static_cast<kuvfrdef *>(ku::allocate(memory->kuxp_kuv, uint64_t{size} + KUVP_HEADER, 1));
    if (block == nullptr) return nullptr;
    *block = {0, static_cast<int32_t>(size)};
    std::memset(block + 1, 0, size - KUVP_HEADER);
    return block;
}

kuvfrdef *kuvpgetmem(kuv *memory, uint32_t size)
{
    if (memory->softvirt_kuv == 0) return kuvpheap(memory, size);
    bool failed = false;
    kuvfrdef *block = kuvpfind(memory, size, &failed);
    if (failed) return nullptr;
    if (block == nullptr) {
        block = kuvpswapout(memory, size - KUVP_HEADER);
        if (block == nullptr) return refuse(memory, KUVAA_FAILED);
        if (const uint32_t rest = kuvpsize(block) - size; rest != 0) {
            kuvpresize(block, size);
            kuvfrdef *cut = next_in_memory(block);
            *cut = {0, static_cast<int32_t>(rest)};
            kuvputmem(memory, cut, memory->lastseg_kuv);
        }
    }
    std::memset(block + 1, 0, size - KUVP_HEADER);
    return block;
}

// ---- making room ----

// Whether a block can be had: free, or of an object that may be swapped out.
static bool kuvpmovable(const kuv *memory, const kuvfrdef *block)
{
    if (block->size_kuvfr < 0) return true;
    return vm::is_owned(block) && address_of(memory, block->ptr_kuvfr)->flags_kuvcl == KUV_RESIDENT;
}

// Takes a block that can be had from its list or its object. Null: that could not be written.
static kuvfrdef *kuvptake(kuv *memory, int16_t segment, kuvfrdef *block)
{
    if (block->size_kuvfr > 0) return kuvpwrite(memory, address_of(memory, block->ptr_kuvfr));
    kuvpremove(kuvpareaof(memory, segment), block);
    return block;
}

// The first block of a run in one segment.
static kuvfrdef *kuvprun(const kuv *memory, const kuvsh &segment, uint32_t size)
{
    kuvfrdef *block = segment.fmad_kuvsh;
    kuvfrdef *start = nullptr; // none yet
    uint32_t total = 0;
    for (; block != nullptr && block->size_kuvfr != 0; block = next_in_memory(block)) {
        if (!kuvpmovable(memory, block)) {
            start = nullptr;
            continue;
        }
        total = kuvpsize(block) + (start != nullptr ? total : 0);
        if (start == nullptr) start = block;
        if (total >= size) return start;
    }
    return nullptr;
}

kuvfrdef *kuvpsync(kuv *memory, uint32_t size)
{
    for (int16_t segment = 0; segment < memory->numsegs_kuv; segment++) {
        memory->lastseg_kuv = segment;
        kuvfrdef *start = kuvprun(memory, memory->segs_kuv[segment], size);
        if (start != nullptr) return kuvptake(memory, segment, start);
    }
    return refuse(memory, KUVAA_NORUN);
}

kuvfrdef *kuvpswapout(kuv *memory, uint32_t size)
{
    if (kuvplpurge(memory) != 0) return nullptr;
    const uint32_t most = UINT32_MAX - KUVP_HEADER; // more than a segment has
    kuvfrdef *block = kuvpsync(memory, std::min(size, most) + KUVP_HEADER);
    if (block == nullptr) return nullptr;
    const int16_t segment = memory->lastseg_kuv;
    while (kuvpsize(block) - KUVP_HEADER < size) {
        const kuvfrdef *more = kuvptake(memory, segment, next_in_memory(block));
        if (more == nullptr) {
            kuvputmem(memory, block, segment);
            return nullptr;
        }
        kuvpresize(block, kuvpsize(block) + kuvpsize(more));
    }
    return block;
}

// Swaps out what is in memory and not locked, cell by cell, until so many bytes of data are
// written. False: an object stayed.
static bool kuvppurge(kuv *memory, int64_t quota)
{
    if (memory->softvirt_kuv == 0) return true; // there is no file
    kuvown *own = memory->own_kuv;
    const auto count = static_cast<uint32_t>(memory->mpcount_kuv);
    uint32_t number = own->lowest;
    uint32_t stays = 0; // the first number that keeps its bytes in memory
    bool done = true;
    for (; done && quota > 0 && number <= uint64_t{own->npages} * count; number++) {
        kuvcl *cell = address_of(memory, number);
        if (cell->refcount_kuvcl == 0 || (cell->flags_kuvcl & KUV_RESIDENT) == 0) continue;
        done = cell->flags_kuvcl != KUV_RESIDENT || vm::purge(memory, cell);
        if ((cell->flags_kuvcl & KUV_RESIDENT) == 0)
            quota -= cell->size_kuvcl.csize;
        else if (stays == 0)
            stays = number;
    }
    own->lowest = stays != 0 ? stays : number;
    return done;
}

uint32_t kuvplpurge(kuv *memory)
{
    const int64_t percent = static_cast<int64_t>(
        uint64_t{memory->size_kuv} * static_cast<uint32_t>(memory->numsegs_kuv) / kuvp_percents);
    if (kuvppurge(memory, memory->highwater_kuv * percent)) return 0;
    const uint32_t code = kuxercode(memory->kuxp_kuv);
    return code != 0 ? code : KUVAA_FAILED;
}

uint32_t kuvpscramble(kuv *memory)
{
    if (kuvppurge(memory, INT64_MAX)) return 0;
    refuse(memory, KUVAA_FAILED);
    return KUVAA_FAILED;
}

bool vm::purge(kuv *memory, kuvcl *cell)
{
    kuvfrdef *block = kuvpwrite(memory, cell);
    return block != nullptr && kuvputmem(memory, block, cell->segment_kuvcl) == 0;
}

// ---- the swap file ----

// Moves bytes at an offset.
static bool kuvpmove(const kuv *memory, void *file, uint32_t offset, void *bytes, uint32_t length,
                     char direction)
{
    static_cast<skufv *>(file)->skufvpos = offset;
    return skufvmove(memory->kuxp_kuv, memory->skufh_kuv, file, bytes, length, direction) == 0;
}

static bool kuvpput(const kuv *memory, uint32_t offset, void *bytes, uint32_t length)
{
    return kuvpmove(memory, memory->cfpt_kuv, offset, bytes, length, SKUFV_PUT);
}

static bool kuvpget(const kuv *memory, uint32_t offset, void *bytes, uint32_t length)
{
    return kuvpmove(memory, memory->cfpt_kuv, offset, bytes, length, SKUFV_GET);
}

void *vm::open_file(const kuv *memory)
{
    kux *ctx = memory->kuxp_kuv;
    const uint64_t length = std::strlen(memory->path_kuv);
    ku::owned<char> prefix(ctx, static_cast<char *>(ku::allocate(ctx, length + 2, 1)));
    if (!prefix) return nullptr;
    std::memcpy(prefix.get(), memory->path_kuv, length + 1);
    if (skufneedsseparator(ctx, prefix.get())) std::memcpy(prefix.get() + length, "\\", 2);
    const ku::owned<char> name(ctx, skufzname(ctx, memory->skufh_kuv, prefix.get()));
    if (!name) return nullptr;
    return skufvopen(ctx, memory->skufh_kuv, name.get(), SKUF_SCRATCH);
}

void vm::close_file(const kuv *memory, void *file)
{
    if (file == nullptr) return;
    kux *ctx = memory->kuxp_kuv;
    const char *path = static_cast<skufv *>(file)->skufvname;
    char name[kuvp_longest] = "";
    // A file that is closed with an error on the stack stays on the disk.
    if (kuxernerrors(ctx) != 0)
        skufodelete(ctx, path);
    else if (std::strlen(path) < sizeof name)
        std::memcpy(name, path, std::strlen(path) + 1);
    skufvclose(ctx, memory->skufh_kuv, file);
    if (name[0] != 0 && kuxernerrors(ctx) != 0) skufodelete(ctx, name);
}

// Writes a block over the head region. The region's own record goes last: while it is whole
// the list is.
static bool kuvpreuse(kuv *memory, kuvfrdef *block)
{
    const uint32_t offset = memory->frehdr_kuv.ffbkls_kuvfh;
    kuvfh next = {};
    if (!kuvpget(memory, offset, &next, sizeof next)
        || !kuvpput(memory, offset + KUVP_HEADER, block + 1, kuvpsize(block) - KUVP_HEADER))
        return false;
    memory->frehdr_kuv = next;
    return kuvpput(memory, offset, block, KUVP_HEADER);
}

// Writes a block at the end, which must not pass `limit`.
static bool kuvpappend(kuv *memory, kuvfrdef *block)
{
    if (!kuvpput(memory, memory->lfbo_kuv, block, kuvpsize(block))) return false;
    memory->lfbo_kuv += kuvpsize(block);
    return true;
}

// Adapts the limit after a compaction. False: the client refused.
static bool kuvpadapt(kuv *memory)
{
    const uint32_t length = memory->lfbo_kuv;
    const uint32_t limit = memory->mxbo_kuv;
    const bool shorter = length < limit / kuvp_shrink;
    if (!shorter && length <= limit) return true;
    if (memory->newfilesize_kuv != nullptr) {
        uint32_t given = limit;
        if (memory->newfilesize_kuv(memory->kuxp_kuv, memory->clientdata_kuv, limit, &given) != 0)
            return false;
        memory->mxbo_kuv = given;
    } else {
        memory->mxbo_kuv = shorter ? limit / 2 : limit > UINT32_MAX / 2 ? UINT32_MAX : limit * 2;
    }
    return true;
}

// Writes a block where it goes. Returns its offset, or 0.
static uint32_t kuvpstore(kuv *memory, kuvfrdef *block)
{
    const uint32_t size = kuvpsize(block);
    uint32_t offset = memory->frehdr_kuv.ffbkls_kuvfh;
    if (memory->frehdr_kuv.ffbksz_kuvfh >= size) return kuvpreuse(memory, block) ? offset : 0;

    offset = memory->lfbo_kuv;
    if (uint64_t{offset} + size <= memory->mxbo_kuv) return kuvpappend(memory, block) ? offset : 0;
    if (kuvpfcompact(memory) != 0 || uint64_t{memory->lfbo_kuv} + size > kuvp_end) {
        refuse(memory, KUVAA_FAILED);
        return 0;
    }
    offset = memory->lfbo_kuv;
    return kuvpappend(memory, block) && kuvpadapt(memory) ? offset : 0;
}

kuvfrdef *kuvpwrite(kuv *memory, kuvcl *cell)
{
    const bool resident = cell->refcount_kuvcl != 0 && (cell->flags_kuvcl & KUV_RESIDENT) != 0;
    if (!resident || memory->cfpt_kuv == nullptr) return nullptr;
    const uint32_t offset = kuvpstore(memory, vm::block_of(cell));
    if (offset == 0) return nullptr;
    kuvfrdef *block = vm::detach(cell);
    cell->dataptr_kuvcl.faddress = offset + KUVP_HEADER;
    cell->flags_kuvcl = 0;
    return block;
}

bool vm::swap_in(kuv *memory, kuvcl *cell)
{
    const uint32_t size = cell->size_kuvcl.csize;
    kuvfrdef *block = kuvpgetmem(memory, size + KUVP_HEADER);
    if (block == nullptr) return false;
    const int16_t segment = memory->lastseg_kuv;
    const uint32_t offset =
        cell->dataptr_kuvcl.faddress; // only now: a compaction may have moved it
    kuvfrdef stored;
    if (!kuvpget(memory, offset - KUVP_HEADER, &stored, KUVP_HEADER)
        || !kuvpget(memory, offset, block + 1, size)) {
        kuvputmem(memory, block, segment);
        return false;
    }
    attach(memory, cell, block, segment);
    if (size < sizeof(kuvfh)) return true;
    kuvfh head = memory->frehdr_kuv;
    if (!kuvpput(memory, offset, &head, sizeof head)) return false;
    memory->frehdr_kuv = {offset, size};
    return true;
}

// ---- compaction ----

// Calls `visit` with the cells that are used and swapped out, in order, until it says false.
template <typename Visit> static bool kuvpeach(const kuv *memory, Visit visit)
{
    for (kuvmh *page = memory->mphead_kuv; page != nullptr; page = page->mpnext_kuvmh)
        for (int i = 0; i < memory->mpcount_kuv; i++) {
            kuvcl *cell = page->mplist_kuvmh + i;
            const bool out = cell->refcount_kuvcl != 0 && (cell->flags_kuvcl & KUV_RESIDENT) == 0;
            if (out && !visit(cell)) return false;
        }
    return true;
}

// Copies what is swapped out to a new file, one behind the other.
static bool kuvpcopy(const kuv *memory, void *to)
{
    uint32_t largest = 0;
    kuvpeach(memory, [&](const kuvcl *cell) {
        largest = std::max(largest, cell->size_kuvcl.csize + KUVP_HEADER);
        return true;
    });
    if (largest == 0) return true;
    const ku::owned<void> buffer(memory->kuxp_kuv, ku::allocate(memory->kuxp_kuv, largest, 1));
    uint32_t offset = kuvp_first;
    return buffer && kuvpeach(memory, [&](const kuvcl *cell) {
               const uint32_t from = cell->dataptr_kuvcl.faddress - KUVP_HEADER;
               const uint32_t size = cell->size_kuvcl.csize + KUVP_HEADER;
               const uint32_t at = offset;
               offset += size;
               return kuvpget(memory, from, buffer.get(), size)
                      && kuvpmove(memory, to, at, buffer.get(), size, SKUFV_PUT);
           });
}

uint32_t kuvpfcompact(kuv *memory)
{
    if (memory->cfpt_kuv == nullptr || kuxernerrors(memory->kuxp_kuv) != 0) return KUVAA_FAILED;
    void *file = vm::open_file(memory);
    if (file == nullptr) return KUVAA_FAILED;
    if (!kuvpcopy(memory, file)) {
        vm::close_file(memory, file);
        return KUVAA_FAILED;
    }
    // All is in the new file: from here on it is the only one, whatever becomes of the old.
    std::swap(file, memory->cfpt_kuv);
    memory->frehdr_kuv = {};
    memory->lfbo_kuv = kuvp_first;
    kuvpeach(memory, [memory](kuvcl *cell) {
        cell->dataptr_kuvcl.faddress = memory->lfbo_kuv + KUVP_HEADER;
        memory->lfbo_kuv += cell->size_kuvcl.csize + KUVP_HEADER;
        return true;
    });
    vm::close_file(memory, file);
    return kuxernerrors(memory->kuxp_kuv) == 0 ? 0 : KUVAA_FAILED;
}
