// kurf_bench.cpp - regular expressions beside three other libraries' on the same 4 MB of text
//
// Each side counts the matches of a pattern, compiled beforehand: the longest ones, one
// behind the other. All sides search the whole text at once, but for the dot-star, which is
// asked line by line, because our dot matches a line feed too, and for the POSIX side, which
// is slow to begin in a long text. Ours reads multibyte text, under UTF-8, and counts
// by the match callback.

#include <benchmark/benchmark.h>
#include <regex.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

#include "kurf.h"
#include "kux.h"
#include "port/locale/locale.h"
#include "ratio.h"

#ifdef KU_BENCH_RE2
#include <re2/re2.h>
#endif

namespace
{

constexpr std::size_t text_size = 4u << 20;

constexpr const char *words[] = {
    "customer", "invoice", "region",   "product", "shipped",   "supplier", "batch", "quantity",
    "reported", "warning", "failed",   "timeout", "connected", "10445",    "2024",  "17",
    "aababb",   "bab",     "abbaabbb", "of",      "the",       "and",      "in",    "Server"};

const std::string &text()
{
    static const std::string made = [] {
        std::uint32_t seed = 1;
        std::string text;
        std::size_t line = 0;
        while (text.size() < text_size) {
            seed = seed * 1664525u + 1013904223u;
            text += words[(seed >> 16) % std::size(words)];
            const bool full = text.size() - line > 70;
            text += full ? '\n' : ' ';
            if (full) line = text.size();
        }
        return text;
    }();
    return made;
}

struct work {
    const char *name;
    const char *pattern; // in every side's syntax
    bool by_line;
};

constexpr work works[] = {
    {"literal", "warning failed", false},
    {"abb", "(a|b)*abb", false},
    {"class", "[a-z]+", false},
    {"ten_words",
     "customer|invoice|region|supplier|batch|reported|warning|failed|timeout|connected", false},
    {"dot_star", ".*", true},
};

template <typename Each> void each_line(Each each)
{
    const std::string_view all = text();
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find('\n', at), all.size());
        each(all.substr(at, end - at));
        at = end + 1;
    }
}

// Times `count`, which adds up the matches of one stretch of text.
template <typename Count> void run(benchmark::State &state, bool by_line, Count count)
{
    std::size_t matches = 0;
    for (auto _ : state) {
        matches = 0;
        const auto add = [&](std::string_view piece) { matches += count(piece); };
        if (by_line)
            each_line(add);
        else
            add(text());
        benchmark::DoNotOptimize(matches);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text().size()));
    state.counters["matches"] = static_cast<double>(matches);
}

struct counting {
    kurx *syntax;
    kurf *runner;
    std::size_t matches;
    bool seen; // the current search has had a match
};

// Counts a match when the search that began with it is over.
std::int32_t count_match(kux *ctx, std::int32_t transition, void *cctxp, std::uint32_t,
                         std::uint32_t)
{
    auto &count = *static_cast<counting *>(cctxp);
    if (transition == KURF_T_ACCEPT) count.seen = true;
    if (transition != KURF_T_FAIL && kurfgstate(ctx, count.syntax, count.runner) != KURF_S_NONE)
        return KURF_A_GO;
    count.matches += count.seen ? 1 : 0;
    count.seen = false;
    return KURF_A_REJECT;
}

void bench_ours(benchmark::State &state, const work &work)
{
    kux *ctx = kuxcreate(nullptr);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, "utf8");
    kurx *syntax = kurxcreate(ctx, nullptr);
    const std::string_view pattern = work.pattern;
    kurf *runner = kurfcreate(ctx, syntax, work.pattern, static_cast<std::uint32_t>(pattern.size()),
                              KURF_MULTIBYTE);
    if (runner == nullptr) std::abort();
    run(state, work.by_line, [&](std::string_view piece) {
        counting count = {syntax, runner, 0, false};
        kurfrun(ctx, syntax, runner, piece.data(), static_cast<std::uint32_t>(piece.size()),
                KURF_MULTIBYTE, count_match, &count);
        return count.matches;
    });
    kurfdestroy(ctx, syntax, runner);
    kurxdestroy(ctx, syntax);
    kuxdestroy(ctx);
}

void bench_standard(benchmark::State &state, const work &work)
{
    const std::regex pattern(work.pattern, std::regex::optimize);
    run(state, work.by_line, [&](std::string_view piece) {
        std::size_t matches = 0;
        std::cregex_iterator each(piece.data(), piece.data() + piece.size(), pattern);
        for (const std::cregex_iterator end; each != end; ++each)
            matches += each->length() > 0 ? 1 : 0;
        return matches;
    });
}

void bench_posix(benchmark::State &state, const work &work)
{
    regex_t pattern;
    if (regcomp(&pattern, work.pattern, REG_EXTENDED) != 0) std::abort();
    run(state, true, [&](std::string_view piece) {
        std::size_t matches = 0;
        regmatch_t match = {0, static_cast<regoff_t>(piece.size())};
        while (regexec(&pattern, piece.data(), 1, &match, REG_STARTEND) == 0
               && match.rm_eo > match.rm_so) {
            matches++;
            match = {match.rm_eo, static_cast<regoff_t>(piece.size())};
        }
        return matches;
    });
    regfree(&pattern);
}

#ifdef KU_BENCH_RE2
void bench_re2(benchmark::State &state, const work &work)
{
    const re2::RE2 pattern(work.pattern);
    run(state, work.by_line, [&](std::string_view piece) {
        std::size_t matches = 0;
        re2::StringPiece rest(piece.data(), piece.size());
        re2::StringPiece found;
        while (pattern.Match(rest, 0, rest.size(), re2::RE2::UNANCHORED, &found, 1)
               && !found.empty()) {
            matches++;
            rest.remove_prefix(static_cast<std::size_t>(found.end() - rest.begin()));
        }
        return matches;
    });
}
#endif

[[maybe_unused]] const bool registered = [] {
    const auto add = [](const char *side, const work &work,
                        void (*bench)(benchmark::State &, const struct work &)) {
        const std::string name = std::string("BM_") + side + "/" + work.name;
        benchmark::RegisterBenchmark(name.c_str(), bench, work)->Unit(benchmark::kMillisecond);
    };
    for (const work &work : works) {
        add("kurf", work, bench_ours);
        add("std_regex", work, bench_standard);
        add("regexec", work, bench_posix);
#ifdef KU_BENCH_RE2
        add("re2", work, bench_re2);
#endif
    }
    return true;
}();

#define KURF_RATIOS(what, name)                                                                    \
    KU_RATIO(what ", beside std::regex", "BM_kurf/" name, "BM_std_regex/" name, 1.0, 2.0);         \
    static const ku::bench::ratio KU_RATIO_JOIN(posix_, __LINE__)(                                 \
        what ", beside regexec", "BM_kurf/" name, "BM_regexec/" name, 0.0, 1.0);                   \
    static const ku::bench::ratio KU_RATIO_JOIN(re2_, __LINE__)(                                   \
        what ", beside RE2", "BM_kurf/" name, "BM_re2/" name, 0.0, 0.1)

KURF_RATIOS("4 MB searched for a literal", "literal");
KURF_RATIOS("4 MB searched for (a|b)*abb", "abb");
KURF_RATIOS("4 MB searched for runs of a class", "class");
KURF_RATIOS("4 MB searched for ten words", "ten_words");
KURF_RATIOS("4 MB searched for dot-star, by line", "dot_star");

} // namespace
