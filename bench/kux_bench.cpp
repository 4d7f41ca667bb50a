// kux_bench.cpp - making a context beside opening an in-memory database; reporting an
// error with a parameter beside GLib's error records

#include <string>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <sqlite3.h>

#include "bench/ratio.h"
#include "kux.h"
#include "kuxer.h"

namespace
{

constexpr uint32_t error_number = 14;
constexpr uint32_t error_code = KU_CODE('s', 'k', 'u', 'b', 'a', error_number);
constexpr char parameter[] = "/home/user/projects/report/2024/summary.sql";

void BM_kux_create(benchmark::State &state)
{
    for (auto _ : state) {
        kux *ctx = kuxcreate(nullptr);
        benchmark::DoNotOptimize(ctx);
        kuxdestroy(ctx);
    }
}

void BM_sqlite_open(benchmark::State &state)
{
    for (auto _ : state) {
        sqlite3 *database = nullptr;
        sqlite3_open(":memory:", &database);
        benchmark::DoNotOptimize(database);
        sqlite3_close(database);
    }
}

// Both sides report "skuba 14  <file>", read it back as text and clear it.
void BM_kuxer_report(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    char text[200];
    for (auto _ : state) {
        kuxer1push(ctx, error_code, parameter);
        kuxerformat(ctx, kuxerget(ctx, 0), text, sizeof text, nullptr);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
        kuxerclear(ctx);
    }
    if (std::string(text) != std::string("skuba 14  ") + parameter)
        state.SkipWithError("other text");
    kuxdestroy(ctx);
}

void BM_gerror_report(benchmark::State &state)
{
    const GQuark domain = g_quark_from_static_string("skuba");
    char text[200];
    for (auto _ : state) {
        GError *error = g_error_new(domain, error_number, "%s %d  %s", "skuba",
                                    static_cast<int>(error_number), parameter);
        g_strlcpy(text, error->message, sizeof text);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
        g_error_free(error);
    }
    if (std::string(text) != std::string("skuba 14  ") + parameter)
        state.SkipWithError("other text");
}

BENCHMARK(BM_kux_create);
BENCHMARK(BM_sqlite_open);
BENCHMARK(BM_kuxer_report);
BENCHMARK(BM_gerror_report);

KU_RATIO("kuxcreate + kuxdestroy", "BM_kux_create", "BM_sqlite_open", 4, 10);
KU_RATIO("push an error with a parameter, format it", "BM_kuxer_report", "BM_gerror_report", 1.0,
         2);

} // namespace
