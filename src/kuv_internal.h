// kuv_internal.h - what the handles and the pager of the virtual memory share
//
// Block headers are 8 bytes on every machine, so that segments and swap files are
// the same everywhere: their first word is a reference, which only the
// functions here turn into an address and back.
//
// A cell's private word is its own number while its bytes are elsewhere. While they
// are in memory the header has the number, and the cell's word takes what the
// header has no room for: the front mark, which says of the block in front in memory
// whether it is free. So the two are exchanged when a block gets or loses its
// owner; a block without owner, and the end marker, have the front mark in their
// header's first word. What is in front of a free block is never free.
#ifndef KUV_INTERNAL_H
#define KUV_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "kuvp.h"

struct kuvbins; // a segment's index over its free list, kuvp.cpp

// The private part of a context, in the same block.
struct kuvown {
    static constexpr std::uint32_t first_room = 16;

    kuvmh **pages;           // the handle pages by number
    std::uint32_t npages;    // how many there are
    std::uint32_t room;      // pages there is room for
    std::uint32_t lowest;    // no cell with a lower number has its bytes in memory
    std::uint64_t *filled;   // for each segment: bit b: its bin b is not empty
    int shift;               // mpcount_kuv is 2 to that power; below 0: it is no power of 2
    int opened;              // segments that have memory: the first ones
    kuvbins *bins;           // one for each segment
    kuvmh *some[first_room]; // `pages` while they are few
};

namespace ku::vm
{

constexpr std::int64_t largest_block = 0x7FFFFFF0; // bytes; sizes are signed
constexpr std::uint32_t unit = 8;                  // bytes; sizes of blocks are multiples

// A front mark: set when the block in front is free; of one without data also the
// reference of the block before it on the free list, for which it has no room.
constexpr std::uint32_t free_in_front = 0x80000000u;

static_assert(sizeof(kuvfrdef) == KUVP_HEADER && offsetof(kuvfrdef, size_kuvfr) == 4,
              "the header lies in the swap file");
static_assert(sizeof(kuvcl) == (sizeof(void *) == 8 ? 24 : 16), "cells are many");

inline unsigned char *bytes_of(kuvfrdef *block) { return reinterpret_cast<unsigned char *>(block); }
inline kuvfrdef *block_at(unsigned char *bytes) { return reinterpret_cast<kuvfrdef *>(bytes); }
inline kuvfrdef *block_of(const kuvcl *cell)
{
    return block_at(cell->dataptr_kuvcl.maddress - KUVP_HEADER);
}
inline kuvfrdef *next_in_memory(kuvfrdef *block)
{
    return block_at(bytes_of(block) + std::abs(block->size_kuvfr));
}

// ---- references ----

inline kuvfrdef *address_of(const kuvsh &segment, std::uint32_t reference)
{
    return reference == 0 ? nullptr : block_at(bytes_of(segment.fmad_kuvsh) + (reference - 1));
}
inline std::uint32_t reference_to(const kuvsh &segment, kuvfrdef *block)
{
    if (block == nullptr) return 0;
    return static_cast<std::uint32_t>(bytes_of(block) - bytes_of(segment.fmad_kuvsh)) + 1;
}
inline kuvcl *address_of(const kuv *memory, std::uint32_t number)
{
    const kuvown *own = memory->own_kuv;
    const std::uint32_t index = number - 1;
    const auto count = static_cast<std::uint32_t>(memory->mpcount_kuv);
    if (own->shift >= 0)
        return own->pages[index >> own->shift]->mplist_kuvmh + (index & (count - 1));
    return own->pages[index / count]->mplist_kuvmh + index % count;
}
inline std::uint32_t reference_to(const kuvcl *cell)
{
    const bool resident = (cell->flags_kuvcl & KUV_RESIDENT) != 0;
    return resident ? block_of(cell)->ptr_kuvfr : cell->mate_kuvcl;
}

// ---- owners ----

// Whether a cell owns the block.
inline bool is_owned(const kuvfrdef *block)
{
    return block->size_kuvfr > 0 && block->ptr_kuvfr != 0
           && (block->ptr_kuvfr & free_in_front) == 0;
}

// Gives a block that nobody owns to a cell that has none.
inline void attach(kuv *memory, kuvcl *cell, kuvfrdef *block, int segment)
{
    if (cell->mate_kuvcl < memory->own_kuv->lowest) memory->own_kuv->lowest = cell->mate_kuvcl;
    std::swap(cell->mate_kuvcl, block->ptr_kuvfr);
    cell->dataptr_kuvcl.maddress = bytes_of(block) + KUVP_HEADER;
    cell->segment_kuvcl = static_cast<std::uint8_t>(segment);
    cell->flags_kuvcl |= KUV_RESIDENT;
}

// Takes a cell's block from it.
inline kuvfrdef *detach(kuvcl *cell)
{
    kuvfrdef *block = block_of(cell);
    std::swap(cell->mate_kuvcl, block->ptr_kuvfr);
    cell->dataptr_kuvcl.maddress = nullptr;
    cell->flags_kuvcl &= KUV_LOCKS;
    return block;
}

// ---- the pager for the handles ----

// Pushes a code.
std::nullptr_t refuse(const kuv *memory, std::uint32_t code);

// Bytes of a segment's bins.
extern const std::uint32_t bins_bytes;

// Makes a fresh swap file in path_kuv; null, with a code where there is one.
void *open_file(const kuv *memory);

// Closes a swap file and deletes it, whatever is on the stack and whatever fails.
void close_file(const kuv *memory, void *file);

// Brings a swapped-out object in. False: a code has been pushed, unless the allocator had none.
// It stays out; only when its region could not be kept in the file is it in memory.
bool swap_in(kuv *memory, kuvcl *cell);

// Swaps out an object that is in memory and not locked. False: it stays; what kuvpwrite pushed.
bool purge(kuv *memory, kuvcl *cell);

} // namespace ku::vm

#endif
