// kul_bench.cpp - lists beside a pointer array and the C library's sort
#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "bench/ratio.h"
#include "kul.h"
#include "kux.h"

namespace
{

constexpr int million = 1000000;

void BM_list_append(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) {
        void *list = kulpcreate(ctx, 0, nullptr);
        for (int i = 0; i < million; i++) kulpinsert(ctx, list, KUL_APPEND, &state);
        benchmark::DoNotOptimize(kulplast(ctx, list));
        kulpdestroy(ctx, list);
    }
    kuxdestroy(ctx);
}
BENCHMARK(BM_list_append)->Unit(benchmark::kMillisecond);

void BM_glib_append(benchmark::State &state)
{
    for (auto _ : state) {
        GPtrArray *array = g_ptr_array_new();
        for (int i = 0; i < million; i++) g_ptr_array_add(array, &state);
        benchmark::DoNotOptimize(g_ptr_array_index(array, million - 1));
        g_ptr_array_free(array, TRUE);
    }
}
BENCHMARK(BM_glib_append)->Unit(benchmark::kMillisecond);

// What is sorted: pointers, in no order, to records with a random key.
struct record {
    std::int32_t key;
    std::int32_t payload[3];
};

const std::vector<void *> &pointers()
{
    static std::vector<record> records(million);
    static const std::vector<void *> all = [] {
        std::mt19937 random(20210901);
        std::vector<void *> made;
        for (record &each : records) {
            each.key = static_cast<std::int32_t>(random());
            made.push_back(&each);
        }
        return made;
    }();
    return all;
}

std::int32_t order(const void *a, const void *b)
{
    const std::int32_t left = static_cast<const record *>(a)->key;
    const std::int32_t right = static_cast<const record *>(b)->key;
    return left < right ? -1 : left > right ? 1 : 0;
}

void BM_list_sort(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) { // the copy is part of both sides
        void *list = kulpcreate(ctx, million, pointers().data());
        kulpqsort(
            ctx, list, [](kux *, void *a, void *b, void *) { return order(a, b); }, nullptr);
        benchmark::DoNotOptimize(kulplast(ctx, list));
        kulpdestroy(ctx, list);
    }
    kuxdestroy(ctx);
}
BENCHMARK(BM_list_sort)->Unit(benchmark::kMillisecond);

void BM_libc_sort(benchmark::State &state)
{
    for (auto _ : state) {
        std::vector<void *> array = pointers();
        std::qsort(array.data(), array.size(), sizeof(void *), [](const void *a, const void *b) {
            return order(*static_cast<void *const *>(a), *static_cast<void *const *>(b));
        });
        benchmark::DoNotOptimize(array.back());
    }
}
BENCHMARK(BM_libc_sort)->Unit(benchmark::kMillisecond);

KU_RATIO("list append, 1,000,000 items, from empty", "BM_list_append", "BM_glib_append", 0.3, 0.8);
KU_RATIO("list sort, 1,000,000 pointers, comparator", "BM_list_sort", "BM_libc_sort", 1.0, 1.5);

} // namespace
