// Stream search beside the search of Knuth, Morris and Pratt, fed by the same function; SQL
// wildcards beside the LIKE of an embedded database.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/ratio.h"
#include "kuum.h"
#include "kuus.h"
#include "kux.h"

namespace
{

// ---- stream search: 4 MB of words, in which the pattern is now and then ----

constexpr const char *wanted = "employee_id";

const std::string &stream()
{
    static const std::string text = [] {
        static constexpr std::array<const char *, 10> words{
            "select ", "from ", "where ", "employee ", "employee_name, ",
            "order ",  "by ",   "name ",  "and ",      "emp.salary > 1000 "};
        std::mt19937 random(20240711);
        std::string made;
        while (made.size() < 4000000) {
            made += words[random() % words.size()];
            if (random() % 50 == 0) made += "employee_id = ";
        }
        return made;
    }();
    return text;
}

struct input {
    const char *at;
};

unsigned char next_character(kux *, void *from)
{
    auto *text = static_cast<input *>(from);
    return *text->at != 0 ? static_cast<unsigned char>(*text->at++) : 0;
}

int32_t count_match(kux *, void *count, uint32_t offset, uint32_t)
{
    *static_cast<uint64_t *>(count) += offset;
    return 0;
}

void BM_kuussearch(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    input from{};
    uint64_t sum = 0;
    kuus *search =
        kuuscreate(ctx, wanted, static_cast<uint32_t>(std::strlen(wanted)), next_character, &from);
    for (auto _ : state) {
        from.at = stream().c_str();
        if (kuussearch(ctx, search, count_match, &sum) < 1000) std::abort();
    }
    benchmark::DoNotOptimize(sum);
    kuusdestroy(ctx, search);
    kuxdestroy(ctx);
}
BENCHMARK(BM_kuussearch)->Unit(benchmark::kMillisecond);

// Knuth, Morris and Pratt, Fast pattern matching in strings (1977), with the improved failure
// function; calls through the pointers that the other side calls through.
int32_t knuth_morris_pratt(const char *pattern, kuusgncfn next, void *from, kuusmfn found,
                           void *count)
{
    const auto length = static_cast<int32_t>(std::strlen(pattern));
    std::vector<int32_t> back(static_cast<size_t>(length) + 1);
    back[0] = -1;
    for (int32_t i = 0, k = -1; i < length;) {
        while (k >= 0 && pattern[i] != pattern[k]) k = back[static_cast<size_t>(k)];
        i++, k++;
        back[static_cast<size_t>(i)] =
            i < length && pattern[i] == pattern[k] ? back[static_cast<size_t>(k)] : k;
    }
    int32_t matches = 0;
    int32_t state = 0;
    for (uint32_t read = 1;; read++) {
        const unsigned char character = next(nullptr, from);
        if (character == 0) return matches;
        while (state >= 0 && static_cast<unsigned char>(pattern[state]) != character)
            state = back[static_cast<size_t>(state)];
        if (++state < length) continue;
        matches++;
        state = 0; // matches do not overlap
        if (found(nullptr, count, read - static_cast<uint32_t>(length),
                  static_cast<uint32_t>(length))
            != 0)
            return matches;
    }
}

void BM_knuth_morris_pratt(benchmark::State &state)
{
    uint64_t sum = 0;
    kuusgncfn next = next_character;
    kuusmfn found = count_match;
    benchmark::DoNotOptimize(next); // not known, so not inlined: as in the library
    benchmark::DoNotOptimize(found);
    for (auto _ : state) {
        input from{stream().c_str()};
        if (knuth_morris_pratt(wanted, next, &from, found, &sum) < 1000) std::abort();
    }
    benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_knuth_morris_pratt)->Unit(benchmark::kMillisecond);

// ---- wildcards: names of tables and files ----

constexpr size_t million = 1000000;

const std::vector<std::string> &subjects()
{
    static const std::vector<std::string> all = [] {
        static constexpr std::array<const char *, 8> words{"order",   "customer", "invoice", "line",
                                                           "archive", "employee", "region",  "tmp"};
        std::mt19937 random(20240712);
        std::vector<std::string> made(million);
        for (std::string &each : made) {
            for (unsigned left = 1 + random() % 4; left > 0; left--)
                each += std::string(words[random() % words.size()]) + "_";
            each += std::to_string(random() % 1000);
        }
        return made;
    }();
    return all;
}

void BM_kuumatch(benchmark::State &state, const char *pattern)
{
    kux *ctx = kuxcreate(nullptr);
    int64_t matched = 0;
    for (auto _ : state) {
        kuumtdef *tokens = kuumcreate(ctx, pattern);
        matched = 0;
        for (const std::string &each : subjects()) matched += kuumatch(ctx, tokens, each.c_str());
        kuumfree(ctx, tokens);
    }
    if (matched < 1000) std::abort();
    state.counters["matched"] = static_cast<double>(matched);
    kuxdestroy(ctx);
}

void BM_strlike(benchmark::State &state, const char *pattern)
{
    int64_t matched = 0;
    for (auto _ : state) {
        matched = 0;
        for (const std::string &each : subjects())
            matched += sqlite3_strlike(pattern, each.c_str(), 0) == 0 ? 1 : 0;
    }
    if (matched < 1000) std::abort();
    state.counters["matched"] = static_cast<double>(matched);
}

#define BOTH(kind, pattern)                                                                        \
    BENCHMARK_CAPTURE(BM_kuumatch, kind, pattern)->Unit(benchmark::kMillisecond);                  \
    BENCHMARK_CAPTURE(BM_strlike, kind, pattern)->Unit(benchmark::kMillisecond);                   \
    KU_RATIO("wildcards, 1,000,000 subjects: " pattern, "BM_kuumatch/" #kind, "BM_strlike/" #kind, \
             0.5, 1.5)

BOTH(prefix, "order%");
BOTH(suffix, "%9");
BOTH(middle, "%invoice%");
BOTH(parts, "%cust%r_li_e%5_");

KU_RATIO("stream search, 4 MB fed by a callback, 11 characters", "BM_kuussearch",
         "BM_knuth_morris_pratt", 0.9, 1.2);

} // namespace
