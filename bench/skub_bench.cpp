// skub_bench.cpp - reading a large text line by line, beside the C library's streams

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kux.h"
#include "ratio.h"
#include "skub.h"

static constexpr std::int64_t text_size = std::int64_t{256} << 20; // bytes
static constexpr std::size_t line_room = 1024;

// A text of lines of 0 to 160 bytes, made at its first use and removed at the end.
static const char *text_name()
{
    static const struct scratch {
        char name[32] = "/tmp/ku_lines_XXXXXX";
        scratch()
        {
            FILE *file = fdopen(mkstemp(name), "w");
            if (file == nullptr) std::abort();
            std::uint32_t seed = 1;
            std::string block;
            while (block.size() < (std::size_t{1} << 20)) {
                seed = seed * 1664525 + 1013904223; // Knuth and Lewis
                block.append((seed >> 16) % 161, 'x').append("\n");
            }
            block.resize(std::size_t{1} << 20);
            for (std::int64_t size = 0; size < text_size; size += std::int64_t{1} << 20)
                std::fwrite(block.data(), 1, block.size(), file);
            std::fclose(file);
        }
        ~scratch() { unlink(name); }
    } text;
    return text.name;
}

static void BM_skubsget(benchmark::State &state)
{
    const char *name = text_name();
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) {
        void *stream = skubopen(ctx, name, "r");
        char line[line_room];
        std::size_t lines = 0;
        while (skubsget(ctx, stream, line, sizeof line) == 0) lines++;
        benchmark::DoNotOptimize(lines);
        skubclose(ctx, stream);
    }
    state.SetBytesProcessed(state.iterations() * text_size);
    kuxdestroy(ctx);
}
BENCHMARK(BM_skubsget)->Unit(benchmark::kMillisecond);

static void BM_fgets(benchmark::State &state)
{
    const char *name = text_name();
    for (auto _ : state) {
        FILE *file = std::fopen(name, "r");
        char line[line_room];
        std::size_t lines = 0;
        while (std::fgets(line, sizeof line, file) != nullptr) lines++;
        benchmark::DoNotOptimize(lines);
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * text_size);
}
BENCHMARK(BM_fgets)->Unit(benchmark::kMillisecond);

KU_RATIO("skubsget over a 256 MB text", "BM_skubsget", "BM_fgets", 0.8, 1.0);
