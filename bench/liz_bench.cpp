// The multibyte layer on 16 MB of mixed UTF-8 text, beside the C library's
// conversion (counting) and a Unicode library (case): each on the same bytes,
// with the same amount of work asked for.
#include <benchmark/benchmark.h>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <unicode/ucasemap.h>
#include <unicode/ustring.h>
#include <vector>

#include "bench/ratio.h"
#include "lizm.h"
#include "port/locale/locale.h"

namespace
{

constexpr std::size_t text_bytes = 16u << 20;

// Words as they come in notes and table data: mostly ASCII, some Latin, Cyrillic,
// Greek and Chinese, now and then a symbol above the basic plane.
std::string mixed_text()
{
    static constexpr const char *words[] = {
        "select",  "the",      "order", "customer", "and",        "Total",  "2024-11-05", "amount",
        "Straße",  "déjà",     "от",    "договор",  "покупатель", "東京都", "価格表",     "λόγος",
        "invoice", "delivery", "from",  "Address",  "São",        "Paulo",  "1,024.50",   "😀"};
    constexpr std::size_t count = sizeof words / sizeof *words;
    std::string text;
    text.reserve(text_bytes + 32);
    for (std::uint32_t state = 1; text.size() < text_bytes;) {
        state = state * 1664525u + 1013904223u;
        text += words[(state >> 16) % count];
        text += (state >> 8) % 12 == 0 ? '\n' : ' ';
    }
    return text;
}

struct material {
    kulang lang;
    kulocglo glo{};
    std::string text = mixed_text();
    std::string capitals;

    material()
    {
        ku::locale::fill_named(&lang, &glo, "utf8");
        std::vector<char> upper(text.size() * lang.expansion_kulang);
        std::uint32_t written = 0;
        lizmcpy(&lang, &glo, upper.data(), static_cast<std::uint32_t>(upper.size()), LIZ_MULTIBYTE,
                text.data(), size(text), LIZ_MULTIBYTE, LIZ_UPPER, &written);
        capitals.assign(upper.data(), written);
    }
    static std::uint32_t size(const std::string &of)
    {
        return static_cast<std::uint32_t>(of.size());
    }
};

material &data()
{
    static material once;
    return once;
}

void done(benchmark::State &state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data().text.size()));
}

void BM_liz_count(benchmark::State &state)
{
    material &m = data();
    std::uint32_t count = 0;
    for (auto _ : state) {
        lizmllen(&m.lang, &m.glo, m.text.c_str(), KU_NTS, LIZ_MULTIBYTE, &count);
        benchmark::DoNotOptimize(count);
    }
    done(state);
}

void BM_liz_count_mbsrtowcs(benchmark::State &state)
{
    locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    locale_t before = uselocale(utf8);
    for (auto _ : state) {
        const char *at = data().text.c_str();
        std::mbstate_t shift{};
        std::size_t count = std::mbsrtowcs(nullptr, &at, 0, &shift);
        if (count == static_cast<std::size_t>(-1)) state.SkipWithError("not UTF-8");
        benchmark::DoNotOptimize(count);
    }
    uselocale(before);
    freelocale(utf8);
    done(state);
}

void BM_liz_nocase(benchmark::State &state)
{
    material &m = data();
    int32_t res = 0;
    for (auto _ : state) {
        lizmcmp(&m.lang, &m.glo, m.text.data(), m.size(m.text), LIZ_MULTIBYTE, m.capitals.data(),
                m.size(m.capitals), LIZ_MULTIBYTE, LIZ_NOCASE, &res);
        if (res != LIZ_EQUAL && res != LIZ_GREATER && res != LIZ_LESS)
            state.SkipWithError("no result");
        benchmark::DoNotOptimize(res);
    }
    state.counters["equal"] = res == LIZ_EQUAL;
    done(state);
}

// The peer's comparison without case is of UTF-16, so the bytes are converted first.
void BM_liz_nocase_utf16(benchmark::State &state)
{
    const std::string &a = data().text, &b = data().capitals;
    std::vector<UChar> first(a.size()), second(b.size());
    int32_t res = 1;
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t n = 0, k = 0;
        u_strFromUTF8(first.data(), static_cast<int32_t>(first.size()), &n, a.data(),
                      static_cast<int32_t>(a.size()), &error);
        u_strFromUTF8(second.data(), static_cast<int32_t>(second.size()), &k, b.data(),
                      static_cast<int32_t>(b.size()), &error);
        res = u_strCaseCompare(first.data(), n, second.data(), k, 0, &error);
        benchmark::DoNotOptimize(res);
    }
    state.counters["equal"] = res == 0;
    done(state);
}

// Or both are folded as UTF-8 and the results compared: the faster of the two ways.
void BM_liz_nocase_fold(benchmark::State &state)
{
    const std::string &a = data().text, &b = data().capitals;
    std::vector<char> first(a.size() * 2), second(b.size() * 2);
    UErrorCode error = U_ZERO_ERROR;
    UCaseMap *map = ucasemap_open("", 0, &error);
    int res = 1;
    for (auto _ : state) {
        const int32_t n =
            ucasemap_utf8FoldCase(map, first.data(), static_cast<int32_t>(first.size()), a.data(),
                                  static_cast<int32_t>(a.size()), &error);
        const int32_t k =
            ucasemap_utf8FoldCase(map, second.data(), static_cast<int32_t>(second.size()), b.data(),
                                  static_cast<int32_t>(b.size()), &error);
        res = n == k ? std::memcmp(first.data(), second.data(), static_cast<std::size_t>(n)) : 1;
        benchmark::DoNotOptimize(res);
    }
    ucasemap_close(map);
    state.counters["equal"] = res == 0;
    done(state);
}

void BM_liz_upper(benchmark::State &state)
{
    material &m = data();
    std::vector<char> target(m.text.size() + 64);
    std::uint32_t written = 0;
    for (auto _ : state) {
        const std::uint32_t status = lizmcpy(
            &m.lang, &m.glo, target.data(), static_cast<std::uint32_t>(target.size()),
            LIZ_MULTIBYTE, m.text.data(), m.size(m.text), LIZ_MULTIBYTE, LIZ_UPPER, &written);
        if (status != LIZ_OK || written != m.capitals.size()) state.SkipWithError("cut");
        benchmark::ClobberMemory();
    }
    done(state);
}

void BM_liz_upper_icu(benchmark::State &state)
{
    const std::string &text = data().text;
    std::vector<char> target(text.size() * 2);
    UErrorCode error = U_ZERO_ERROR;
    UCaseMap *map = ucasemap_open("", 0, &error);
    for (auto _ : state) {
        const int32_t written =
            ucasemap_utf8ToUpper(map, target.data(), static_cast<int32_t>(target.size()),
                                 text.data(), static_cast<int32_t>(text.size()), &error);
        if (U_FAILURE(error) || written == 0) state.SkipWithError("not mapped");
        benchmark::ClobberMemory();
    }
    ucasemap_close(map);
    done(state);
}

BENCHMARK(BM_liz_count)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_count_mbsrtowcs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_nocase)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_nocase_utf16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_nocase_fold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_upper)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_liz_upper_icu)->Unit(benchmark::kMillisecond);

} // namespace

KU_RATIO("lizmllen, UTF-8, 16 MB mixed text", "BM_liz_count", "BM_liz_count_mbsrtowcs", 2, 5);
KU_RATIO("lizmcmp option 4, UTF-8", "BM_liz_nocase", "BM_liz_nocase_fold", 1.5, 4);
KU_RATIO("lizmcpy option 3, UTF-8", "BM_liz_upper", "BM_liz_upper_icu", 1.5, 4);
