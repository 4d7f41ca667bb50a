// kuv_bench.cpp - virtual memory, beside handle tables over malloc and files moved by hand

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kuv.h"
#include "ratio.h"

namespace
{

const char *directory()
{
    const char *given = std::getenv("TMPDIR");
    return given != nullptr ? given : "/tmp";
}

class virtual_memory
{
public:
    virtual_memory(std::uint32_t segment, std::uint8_t segments, std::uint32_t limit)
        : ctx_(kuxcreate(nullptr))
    {
        kuva attrs = {};
        attrs.mask_kuva =
            KUVA_SOFTVIRT | KUVA_SEGSIZE | KUVA_NUMSEGS | KUVA_MXFLSIZE | KUVA_CACHEPATH;
        attrs.softvirt_kuva = 1;
        attrs.segmentsize_kuva = segment;
        attrs.numsegments_kuva = segments;
        attrs.mxflsize_kuva = limit;
        attrs.cachepath_kuva = directory();
        memory_ = kuvcreate(ctx_, &attrs);
        if (memory_ == nullptr) std::abort();
    }
    virtual_memory(const virtual_memory &) = delete;
    virtual_memory &operator=(const virtual_memory &) = delete;
    ~virtual_memory()
    {
        kuvdestroy(memory_);
        kuxdestroy(ctx_);
    }
    operator kuv *() const { return memory_; } // NOLINT(google-explicit-constructor)
    kuv *operator->() const { return memory_; }

private:
    kux *ctx_;
    kuv *memory_;
};

// The peer: a handle is the address of a slot, which has the address of a block.
class handle_table
{
public:
    explicit handle_table(std::size_t slots) : slots_(slots)
    {
        for (void *&slot : slots_) give_back(&slot);
    }
    ~handle_table()
    {
        while (free_ != nullptr) {
            auto **slot = static_cast<void **>(free_);
            free_ = *slot;
            *slot = nullptr;
        }
        for (void *slot : slots_) std::free(slot);
    }
    void **allocate(std::size_t size)
    {
        auto **slot = static_cast<void **>(free_);
        free_ = *slot;
        *slot = std::malloc(size);
        return slot;
    }
    void release(void **slot)
    {
        std::free(*slot);
        give_back(slot);
    }

private:
    void give_back(void **slot)
    {
        *slot = free_;
        free_ = slot;
    }
    std::vector<void *> slots_;
    void *free_ = nullptr;
};

// ---- objects in memory, at random ----

constexpr int nobjects = 1000000;
constexpr std::uint32_t object_size = 64; // bytes

// What an object is reached for: all of its bytes.
std::uint64_t sum_of(const void *object)
{
    std::uint64_t words[object_size / 8], sum = 0;
    std::memcpy(words, object, object_size);
    for (const std::uint64_t word : words) sum += word;
    return sum;
}

template <typename Handle> void shuffle(std::vector<Handle> &handles)
{
    std::shuffle(handles.begin(), handles.end(), std::mt19937(1));
}

void BM_kuvderef(benchmark::State &state)
{
    const virtual_memory memory(16u << 20, 6, 1u << 20);
    std::vector<void *> handles;
    for (int i = 0; i < nobjects; i++) {
        handles.push_back(kuvalloc(memory, object_size));
        std::memset(kuvderef(memory, handles.back()), i, object_size);
    }
    if (memory->lfbo_kuv != 1) std::abort(); // something was swapped out
    shuffle(handles);
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (void *handle : handles) sum += sum_of(kuvderef(memory, handle));
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * nobjects);
}
BENCHMARK(BM_kuvderef)->Unit(benchmark::kMillisecond);

void BM_table_deref(benchmark::State &state)
{
    handle_table table(nobjects);
    std::vector<void **> handles;
    for (int i = 0; i < nobjects; i++) {
        handles.push_back(table.allocate(object_size));
        std::memset(*handles.back(), i, object_size);
    }
    shuffle(handles);
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (void **handle : handles) sum += sum_of(*handle);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * nobjects);
}
BENCHMARK(BM_table_deref)->Unit(benchmark::kMillisecond);

KU_RATIO("kuvderef of 1,000,000 resident objects at random", "BM_kuvderef", "BM_table_deref", 0.8,
         1.0);

// ---- small objects come and go ----

constexpr std::size_t nlive = 2000;    // at a time, in segments of the default size
constexpr std::uint32_t largest = 128; // bytes

const std::vector<std::uint32_t> &sizes()
{
    static const std::vector<std::uint32_t> all = [] {
        std::mt19937 random(1);
        std::vector<std::uint32_t> drawn(50 * nlive);
        for (std::uint32_t &size : drawn) size = static_cast<std::uint32_t>(1 + random() % largest);
        return drawn;
    }();
    return all;
}

// In rounds: so many are allocated, then all are freed in the same order.
template <typename Handle, typename Allocate, typename Release>
void in_rounds(benchmark::State &state, Allocate allocate, Release release)
{
    std::vector<Handle> live(nlive);
    for (auto _ : state)
        for (std::size_t done = 0; done < sizes().size(); done += nlive) {
            for (std::size_t i = 0; i < nlive; i++) live[i] = allocate(sizes()[done + i]);
            for (Handle handle : live) release(handle);
        }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(sizes().size()));
}

// One for another: each new one takes the place of one that is chosen at random.
template <typename Handle, typename Allocate, typename Release>
void at_random(benchmark::State &state, Allocate allocate, Release release)
{
    std::vector<Handle> live(nlive);
    for (std::size_t i = 0; i < nlive; i++) live[i] = allocate(sizes()[i]);
    std::mt19937 random(1);
    std::vector<std::size_t> places(sizes().size());
    for (std::size_t &place : places) place = random() % nlive;
    for (auto _ : state)
        for (std::size_t i = 0; i < places.size(); i++) {
            release(live[places[i]]);
            live[places[i]] = allocate(sizes()[i]);
        }
    for (Handle handle : live) release(handle);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(sizes().size()));
}

void BM_kuvalloc(benchmark::State &state, bool rounds)
{
    const virtual_memory memory(65520, 4, 1u << 20);
    const auto allocate = [&](std::uint32_t size) { return kuvalloc(memory, size); };
    const auto release = [&](void *handle) { kuvfree(memory, handle); };
    if (rounds)
        in_rounds<void *>(state, allocate, release);
    else
        at_random<void *>(state, allocate, release);
    if (memory->lfbo_kuv != 1) std::abort(); // something was swapped out
}
BENCHMARK_CAPTURE(BM_kuvalloc, rounds, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_kuvalloc, random, false)->Unit(benchmark::kMillisecond);

void BM_table_alloc(benchmark::State &state, bool rounds)
{
    handle_table table(nlive);
    const auto allocate = [&](std::uint32_t size) { return table.allocate(size); };
    const auto release = [&](void **handle) { table.release(handle); };
    if (rounds)
        in_rounds<void **>(state, allocate, release);
    else
        at_random<void **>(state, allocate, release);
}
BENCHMARK_CAPTURE(BM_table_alloc, rounds, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_table_alloc, random, false)->Unit(benchmark::kMillisecond);

KU_RATIO("kuvalloc and kuvfree of small objects, in rounds", "BM_kuvalloc/rounds",
         "BM_table_alloc/rounds", 0.25, 0.7);
KU_RATIO("kuvalloc and kuvfree of small objects, one for another", "BM_kuvalloc/random",
         "BM_table_alloc/random", 0.2, 0.7);

// ---- more than fits ----

constexpr std::uint32_t page = 4096;                  // bytes of an object
constexpr std::uint32_t npages = (512u << 20) / page; // objects
constexpr std::uint32_t limit = 0xC0000000u;          // of the swap file

void BM_kuv_swapping(benchmark::State &state)
{
    std::vector<unsigned char> bytes(page);
    for (auto _ : state) {
        const virtual_memory memory(1u << 20, 8, limit);
        std::vector<void *> handles;
        for (std::uint32_t i = 0; i < npages; i++) {
            std::memset(bytes.data(), static_cast<int>(i), page);
            handles.push_back(kuvmdup(memory, bytes.data(), page));
        }
        for (std::uint32_t i = 0; i < npages; i++) {
            const void *found = kuvderef(memory, handles[i]);
            if (found == nullptr) std::abort();
            std::memcpy(bytes.data(), found, page);
            if (bytes[page - 1] != static_cast<unsigned char>(i)) std::abort();
        }
    }
    state.SetBytesProcessed(state.iterations() * npages * 2 * page);
}
BENCHMARK(BM_kuv_swapping)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_file_by_hand(benchmark::State &state)
{
    std::vector<unsigned char> bytes(page);
    for (auto _ : state) {
        std::string name = std::string(directory()) + "/ku_objects_XXXXXX";
        const int descriptor = mkstemp(name.data());
        if (descriptor < 0) std::abort();
        unlink(name.c_str());
        for (std::uint32_t i = 0; i < npages; i++) {
            std::memset(bytes.data(), static_cast<int>(i), page);
            if (pwrite(descriptor, bytes.data(), page, off_t{i} * page) != page) std::abort();
        }
        for (std::uint32_t i = 0; i < npages; i++) {
            if (pread(descriptor, bytes.data(), page, off_t{i} * page) != page) std::abort();
            if (bytes[page - 1] != static_cast<unsigned char>(i)) std::abort();
        }
        close(descriptor);
    }
    state.SetBytesProcessed(state.iterations() * npages * 2 * page);
}
BENCHMARK(BM_file_by_hand)->Unit(benchmark::kMillisecond)->Iterations(1);

KU_RATIO("512 MB of 4 KB objects through 8 MB of segments, out and in", "BM_kuv_swapping",
         "BM_file_by_hand", 0.2, 0.5);

} // namespace
