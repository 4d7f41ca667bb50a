// comrt.cpp - the component runtime: an allocator that knows its own blocks
//
// A block is a header and the caller's bytes. Headers hang in a hash table by
// the address of those bytes:
//
//     buckets  | . | o | . | o |      address -> chain of headers
//                    |       |
//                    v       v
//                  header -> header -> null
//
// Looking an address up compares it and reads our own headers only; a
// stranger's memory is never touched. The table doubles when there are more
// blocks than buckets; without memory for that the chains just get longer. It
// is a static array again as soon as no block is left, so that the module can be
// unloaded without anything of its own remaining.
//
// One mutex guards the table and the count of initialisations. It is not held
// while blocks are allocated, moved and released.

#include "comrt.h"

#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>

#include <malloc.h>

namespace
{

struct alignas(std::max_align_t) header {
    header *next;
    std::uint32_t size; // as asked for, in bytes
};

struct bucket {
    header *first;
};

constexpr std::size_t few = 64; // buckets at first

std::mutex guard;
std::uint32_t initialised = 0; // CoInitialize less CoUninitialize
bucket first_buckets[few];
bucket *buckets = first_buckets;
std::size_t bucket_count = few; // a power of 2
std::size_t alive = 0;          // blocks in the table

header **bucket_of(const void *address)
{
    const std::uint64_t spread = reinterpret_cast<std::uintptr_t>(address) * 0x9E3779B97F4A7C15u;
    return &buckets[(spread >> 32) & (bucket_count - 1)].first;
}

void hang(header *block)
{
    header **place = bucket_of(block + 1);
    block->next = *place;
    *place = block;
}

void use_buckets(bucket *table, std::size_t count)
{
    bucket *const old = buckets;
    const std::size_t old_count = bucket_count;
    buckets = table;
    bucket_count = count;
    for (std::size_t i = 0; i < old_count; i++) {
        for (header *block = old[i].first, *next = nullptr; block != nullptr; block = next) {
            next = block->next;
            hang(block);
        }
        old[i].first = nullptr;
    }
    if (old != first_buckets) std::free(old);
}

void enter(header *block)
{
    const std::lock_guard lock(guard);
    if (alive >= bucket_count) {
        void *table = std::calloc(bucket_count * 2, sizeof(bucket));
        if (table != nullptr) use_buckets(static_cast<bucket *>(table), bucket_count * 2);
    }
    hang(block);
    alive++;
}

// The place that points to an address's header; what it points to is null for a stranger.
header **place_of(const void *address)
{
    header **place = bucket_of(address);
    while (*place != nullptr && *place + 1 != address) place = &(*place)->next;
    return place;
}

// Takes a block out of the table; null: a stranger's.
header *take_out(const void *address)
{
    const std::lock_guard lock(guard);
    header **place = place_of(address);
    header *block = *place;
    if (block == nullptr) return nullptr;
    *place = block->next;
    if (--alive == 0 && buckets != first_buckets) use_buckets(first_buckets, few);
    return block;
}

// A block of a new size, in the table; null with the old one as it was: no memory.
void *sized(header *block, std::uint32_t size)
{
    const std::size_t bytes = sizeof(header) + (size == 0 ? 1 : size);
    if (size == COMRT_UNKNOWN || bytes < size) return nullptr; // the sum may wrap
    void *memory = std::realloc(block, bytes);
    if (memory == nullptr) return nullptr;
    auto *made = static_cast<header *>(memory);
    made->size = size;
    enter(made);
    return made + 1;
}

void *allocate(comrt_allocator *, std::uint32_t size) { return sized(nullptr, size); }

void *reallocate(comrt_allocator *, void *address, std::uint32_t size)
{
    if (address == nullptr) return sized(nullptr, size);
    header *block = take_out(address);
    if (block == nullptr) return nullptr;
    void *moved = sized(block, size);
    if (moved == nullptr) enter(block);
    return moved;
}

void release_block(comrt_allocator *, void *address)
{
    if (address != nullptr) std::free(take_out(address));
}

std::uint32_t size_of(comrt_allocator *, void *address)
{
    const std::lock_guard lock(guard);
    const header *block = *place_of(address);
    return block == nullptr ? COMRT_UNKNOWN : block->size;
}

void minimize(comrt_allocator *) { malloc_trim(0); }

// The allocator is the module's: it lives as long as the module is loaded.
void release(comrt_allocator *) {}

constexpr comrt_operations operations = {
    .Alloc = allocate,
    .Realloc = reallocate,
    .Free = release_block,
    .GetSize = size_of,
    .HeapMinimize = minimize,
    .Release = release,
};

comrt_allocator task_allocator = {&operations};

} // namespace

#define COMRT_ENTRY extern "C" __attribute__((visibility("default")))

COMRT_ENTRY std::int32_t CoInitialize(void *reserved)
{
    if (reserved != nullptr) return COMRT_INVALID;
    const std::lock_guard lock(guard);
    initialised++;
    return 0;
}

COMRT_ENTRY void CoUninitialize()
{
    const std::lock_guard lock(guard);
    if (initialised > 0) initialised--;
}

COMRT_ENTRY std::int32_t CoGetMalloc(std::uint32_t context, comrt_allocator **allocator)
{
    if (allocator == nullptr) return COMRT_INVALID;
    *allocator = nullptr;
    if (context != COMRT_TASK && context != COMRT_SHARED) return COMRT_INVALID;
    const std::lock_guard lock(guard);
    if (initialised == 0) return COMRT_UNINITIALISED;
    *allocator = &task_allocator;
    return 0;
}
