// kuup_bench.cpp - property lists beside a hash table with copied keys
#include <benchmark/benchmark.h>
#include <glib.h>

#include <string>
#include <vector>

#include "bench/ratio.h"
#include "kuup.h"

namespace
{

constexpr int count = 1000;

// Names as tools give them: "column_17", "connection.timeout.3".
const std::vector<std::string> &names()
{
    static const std::vector<std::string> all = [] {
        const char *const stems[] = {"column_", "connection.timeout.", "x", "report_title_line_"};
        std::vector<std::string> made;
        for (int i = 0; i < count; i++) made.push_back(stems[i % 4] + std::to_string(i));
        return made;
    }();
    return all;
}

// Both sides begin with an empty table, which is made and ended outside of the measurement:
// a list is sized for its names when it is made, and lives as long as its object.

void BM_property_list(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) {
        state.PauseTiming();
        void *list = kuuplcreate(ctx, count, nullptr);
        state.ResumeTiming();
        for (const std::string &name : names())
            kuuplsput(ctx, list, nullptr, nullptr, name.c_str(), &state);
        for (const std::string &name : names())
            benchmark::DoNotOptimize(kuuplsget(ctx, list, name.c_str()));
        state.PauseTiming();
        kuupldestroy(ctx, list);
        state.ResumeTiming();
    }
    kuxdestroy(ctx);
}
BENCHMARK(BM_property_list)->Unit(benchmark::kMicrosecond);

void BM_glib_hash_table(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        GHashTable *table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
        state.ResumeTiming();
        for (const std::string &name : names())
            g_hash_table_insert(table, g_strdup(name.c_str()), &state);
        for (const std::string &name : names())
            benchmark::DoNotOptimize(g_hash_table_lookup(table, name.c_str()));
        state.PauseTiming();
        g_hash_table_destroy(table);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_glib_hash_table)->Unit(benchmark::kMicrosecond);

// The same with making and ending the table.

void BM_property_list_life(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) {
        void *list = kuuplcreate(ctx, count, nullptr);
        for (const std::string &name : names())
            kuuplsput(ctx, list, nullptr, nullptr, name.c_str(), &state);
        for (const std::string &name : names())
            benchmark::DoNotOptimize(kuuplsget(ctx, list, name.c_str()));
        kuupldestroy(ctx, list);
    }
    kuxdestroy(ctx);
}
BENCHMARK(BM_property_list_life)->Unit(benchmark::kMicrosecond);

void BM_glib_hash_table_life(benchmark::State &state)
{
    for (auto _ : state) {
        GHashTable *table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
        for (const std::string &name : names())
            g_hash_table_insert(table, g_strdup(name.c_str()), &state);
        for (const std::string &name : names())
            benchmark::DoNotOptimize(g_hash_table_lookup(table, name.c_str()));
        g_hash_table_destroy(table);
    }
}
BENCHMARK(BM_glib_hash_table_life)->Unit(benchmark::kMicrosecond);

KU_RATIO("property list put and get, 1,000 names", "BM_property_list", "BM_glib_hash_table", 0.4,
         1.0);

} // namespace
