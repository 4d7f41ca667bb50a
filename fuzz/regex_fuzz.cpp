// regex_fuzz.cpp - any pattern over any data, with any answers, in every character set
//
// The first three bytes choose language, representation and answers; a byte 0xFF ends
// the pattern (a unit 0xFF, where units are wider). A run on bits, one on sets and one
// through a client's function report the same.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kul.h"
#include "kurf.h"
#include "kuxer.h"
#include "port/locale/locale.h"

namespace
{

void require(bool holds)
{
    if (!holds) std::abort();
}

struct watch {
    kurx *syntax;
    kurf *runner;
    std::uint32_t answers; // two bits a report, used round and round
    std::uint64_t sum;     // of all that was told and seen
    std::uint32_t units;   // of the data
    std::uint32_t next;    // in the data, for the client's function
    const std::uint32_t *data;
};

void add(watch &watched, std::uint64_t value)
{
    watched.sum = (watched.sum ^ value) * 0x100000001B3u;
}

// Looks at all that a client can see, and answers by the input.
std::int32_t look(kux *ctx, std::int32_t transition, void *cctxp, std::uint32_t start,
                  std::uint32_t finish)
{
    auto &watched = *static_cast<watch *>(cctxp);
    require(transition >= KURF_T_ACCEPT && transition <= KURF_T_FAIL);
    require(start <= finish && finish <= watched.units);
    for (const std::uint32_t value :
         {static_cast<std::uint32_t>(transition), start, finish, watched.runner->tag_kurf,
          static_cast<std::uint32_t>(kurfgstate(ctx, watched.syntax, watched.runner))})
        add(watched, value);
    if (const kurl *set = watched.runner->currkurlp_kurf; set != nullptr)
        for (std::int32_t i = 0; i < kulpnitems(ctx, set->nfalist_kurl); i++) {
            const auto *list = static_cast<const kul *>(set->nfalist_kurl);
            add(watched, static_cast<const kurno *>(list->items_kul[i])->nodeid_kurno);
        }
    watched.answers = watched.answers << 30 | watched.answers >> 2;
    return static_cast<std::int32_t>(watched.answers & 3);
}

std::uint32_t feed(kux *, void *cctxp)
{
    auto &watched = *static_cast<watch *>(cctxp);
    return watched.next < watched.units ? watched.data[watched.next++] : 0;
}

std::int32_t compare(kux *, void *, std::uint32_t first, std::uint32_t second)
{
    return first == second ? 1 : 0;
}

// Whole units of the input, aligned.
std::vector<std::uint32_t> units(const std::uint8_t *data, std::size_t size, std::int32_t width)
{
    std::vector<std::uint32_t> all;
    for (std::size_t at = 0; at + static_cast<std::size_t>(width) <= size;
         at += static_cast<std::size_t>(width)) {
        std::uint32_t unit = 0;
        std::memcpy(&unit, data + at, static_cast<std::size_t>(width));
        all.push_back(unit);
    }
    return all;
}

void compile_and_run(kux *ctx, kurx *syntax, const std::vector<std::uint32_t> &all,
                     std::int32_t representation, std::uint32_t answers)
{
    const auto bar = std::find(all.begin(), all.end(), 0xFFu);
    const std::vector<std::uint32_t> pattern(all.begin(), bar);
    const std::vector<std::uint32_t> data(bar == all.end() ? bar : bar + 1, all.end());
    std::string pattern_bytes(pattern.begin(), pattern.end());
    std::string data_bytes(data.begin(), data.end());
    const auto count = [](const auto &text) { return static_cast<std::uint32_t>(text.size()); };
    std::vector<std::uint16_t> narrow_pattern(pattern.begin(), pattern.end());
    std::vector<std::uint16_t> narrow_data(data.begin(), data.end());
    const void *sources[][2] = {{pattern_bytes.c_str(), data_bytes.data()},
                                {pattern.data(), data.data()},
                                {narrow_pattern.data(), narrow_data.data()},
                                {pattern.data(), data.data()}};
    const void *const *source = sources[representation];
    kurf *runner = kurfcreate(ctx, syntax, source[0], count(pattern), representation);
    require(kuxernerrors(ctx) == 0);
    if (runner == nullptr) return;

    watch quick = {syntax, runner, answers, 0, count(data), 0, data.data()};
    watch plain = quick;
    watch fed = quick;
    kurfrun(ctx, syntax, runner, source[1], count(data), representation, look, &quick);
    kurxa attrs = {};
    attrs.mask_kurxa = KURXA_COMPARE;
    attrs.cmfuncp_kurxa = compare;
    kurxset(ctx, syntax, &attrs);
    kurfrun(ctx, syntax, runner, source[1], count(data), representation, look, &plain);
    require(quick.sum == plain.sum);
    kurfcrun(ctx, syntax, runner, feed, &fed, look, &fed);
    require(representation == KURF_MULTIBYTE || fed.sum == quick.sum);
    kurfdestroy(ctx, syntax, runner);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const char *const languages[] = {"ascii", "iso-8859-1", "utf8",
                                            "sjis",  "euc-jp",     "iso-2022-kr"};
    if (size < 3) return 0;
    kux *ctx = kuxcreate(nullptr);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, languages[data[0] % 6]);
    kurx *syntax = kurxcreate(ctx, nullptr);
    const std::int32_t representation = data[1] % 4;
    const std::int32_t width = representation == KURF_MULTIBYTE ? 1
                               : representation == KURF_U16     ? 2
                                                                : 4;
    compile_and_run(ctx, syntax, units(data + 3, size - 3, width), representation,
                    data[2] * 0x01010101u);
    kurxdestroy(ctx, syntax);
    kuxdestroy(ctx);
    return 0;
}
