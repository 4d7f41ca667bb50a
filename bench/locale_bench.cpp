// locale_bench.cpp - whole texts in UTF-8 beside the C library and ICU
//
// Mixed text: SQL and English with accents, Cyrillic, Japanese and an emoji now and
// then, its pieces in random order. ICU gets the same text as its own UTF-16 and is
// not charged for the conversion.
#include <benchmark/benchmark.h>

#include <cwchar>
#include <locale.h>
#include <random>
#include <string>
#include <vector>

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include "port/locale/locale.h"
#include "ratio.h"

namespace
{

using namespace ku::locale;

enum script { ascii, mixed, cyrillic, japanese };
constexpr std::size_t text_bytes = 16u << 20;

const std::vector<std::string> pieces[] = {
    {"select name, price from orders ", "where quantity > 100 ", "The quick brown Fox ", "a, b\n"},
    {"select name, price from orders ", "where city = 'Zürich' ", "naïve Café ", "order by 1\n",
     "Привет, Мир ", "от Москвы до ", "日本語のテキスト", "検索する。", "😀 ", "Übergröße "},
    {"Привет, ", "Мир ", "от Москвы ", "до самых ", "до окраин. ", "Объект "},
    {"日本語の", "テキストを", "検索する。", "東京", "データベース、", "ABC "},
};

const std::string &text(script of)
{
    static std::string texts[4];
    std::string &made = texts[of];
    std::mt19937 random(1);
    while (made.size() < text_bytes) made += pieces[of][random() % pieces[of].size()];
    return made;
}

const kulang &utf8()
{
    static const kulang lang = [] {
        kulang made;
        fill_named(&made, nullptr, "utf-8");
        return made;
    }();
    return lang;
}

// The text with the case of every third letter turned, for both sides of a comparison.
std::string recased(const std::string &from)
{
    std::string to(from.size() * utf8().expansion_kulang, '\0');
    kucursor source, target;
    open_exact(&source, const_cast<char *>(from.data()), from.size(), &utf8(), cursor_mode::read);
    open_exact(&target, to.data(), to.size(), &utf8(), cursor_mode::write);
    for (unsigned i = 0; const std::uint32_t value = next(source); i++) {
        const std::uint32_t upper = wide_upper(utf8(), value);
        put(target, i % 3 != 0 ? value : upper != value ? upper : wide_lower(utf8(), value), 8);
    }
    to.resize(offset(target));
    return to;
}

std::u16string utf16(const std::string &from)
{
    std::u16string to(from.size(), u'\0');
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(to.data(), static_cast<std::int32_t>(to.size()), &length, from.data(),
                  static_cast<std::int32_t>(from.size()), &error);
    to.resize(static_cast<std::size_t>(length));
    return to;
}

void count_ours(benchmark::State &state, script of)
{
    const std::string &bytes = text(of);
    for (auto _ : state)
        benchmark::DoNotOptimize(measure(utf8(), bytes.c_str(), SIZE_MAX).characters);
}

void count_peer(benchmark::State &state, script of)
{
    const std::string &bytes = text(of);
    const locale_t peer = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(peer);
    for (auto _ : state) {
        const char *from = bytes.c_str();
        std::mbstate_t shift = {};
        benchmark::DoNotOptimize(std::mbsrtowcs(nullptr, &from, 0, &shift));
    }
    uselocale(before);
    freelocale(peer);
}

// One character at a time, as the lexer and the converters go.
void step_ours(benchmark::State &state, script of)
{
    std::string bytes = text(of);
    for (auto _ : state) {
        kucursor cursor;
        open_exact(&cursor, bytes.data(), SIZE_MAX, &utf8(), cursor_mode::read);
        std::uint32_t sum = 0;
        while (const std::uint32_t value = next(cursor)) sum += value;
        benchmark::DoNotOptimize(sum);
    }
}

void step_peer(benchmark::State &state, script of)
{
    const std::string &bytes = text(of);
    const locale_t peer = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(peer);
    for (auto _ : state) {
        std::mbstate_t shift = {};
        wchar_t value;
        std::uint32_t sum = 0;
        for (const char *at = bytes.c_str();;) {
            const std::size_t width = std::mbrtowc(&value, at, 4, &shift);
            if (width == 0 || width > 4) break;
            sum += static_cast<std::uint32_t>(value);
            at += width;
        }
        benchmark::DoNotOptimize(sum);
    }
    uselocale(before);
    freelocale(peer);
}

void upper_ours(benchmark::State &state, script of)
{
    const std::string &from = text(of);
    std::string to(from.size() * utf8().expansion_kulang, '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(
            upper_copy(utf8(), to.data(), to.size(), from.data(), from.size()));
}

void upper_peer(benchmark::State &state, script of)
{
    const std::u16string from = utf16(text(of));
    std::u16string to(from.size() * 2, u'\0');
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        benchmark::DoNotOptimize(u_strToUpper(to.data(), static_cast<std::int32_t>(to.size()),
                                              from.data(), static_cast<std::int32_t>(from.size()),
                                              "", &error));
    }
}

void compare_ours(benchmark::State &state, script of)
{
    const std::string a = text(of), b = recased(a);
    if (compare_text_nocase(utf8(), a.data(), a.size(), b.data(), b.size()) != 0)
        state.SkipWithError("differs");
    for (auto _ : state)
        benchmark::DoNotOptimize(
            compare_text_nocase(utf8(), a.data(), a.size(), b.data(), b.size()));
}

void compare_peer(benchmark::State &state, script of)
{
    const std::u16string a = utf16(text(of)), b = utf16(recased(text(of)));
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        benchmark::DoNotOptimize(u_strCaseCompare(a.data(), static_cast<std::int32_t>(a.size()),
                                                  b.data(), static_cast<std::int32_t>(b.size()),
                                                  U_FOLD_CASE_DEFAULT, &error));
    }
}

} // namespace

#define PAIR(work, of)                                                                             \
    static void BM_##work##_##of(benchmark::State &state) { work##_ours(state, of); }              \
    static void BM_##work##_##of##_peer(benchmark::State &state) { work##_peer(state, of); }       \
    BENCHMARK(BM_##work##_##of)->Unit(benchmark::kMillisecond);                                    \
    BENCHMARK(BM_##work##_##of##_peer)->Unit(benchmark::kMillisecond)

PAIR(count, ascii);
PAIR(count, mixed);
PAIR(count, cyrillic);
PAIR(count, japanese);
PAIR(step, mixed);
PAIR(upper, ascii);
PAIR(upper, mixed);
PAIR(upper, cyrillic);
PAIR(compare, ascii);
PAIR(compare, mixed);
PAIR(compare, cyrillic);

KU_RATIO("UTF-8: count 16 MB, ASCII", "BM_count_ascii", "BM_count_ascii_peer", 2, 5);
KU_RATIO("UTF-8: count 16 MB, mixed", "BM_count_mixed", "BM_count_mixed_peer", 2, 5);
KU_RATIO("UTF-8: count 16 MB, Cyrillic", "BM_count_cyrillic", "BM_count_cyrillic_peer", 2, 5);
KU_RATIO("UTF-8: count 16 MB, Japanese", "BM_count_japanese", "BM_count_japanese_peer", 2, 5);
KU_RATIO("UTF-8: step by character, mixed", "BM_step_mixed", "BM_step_mixed_peer", 2, 5);
KU_RATIO("UTF-8: upper case, ASCII", "BM_upper_ascii", "BM_upper_ascii_peer", 1.5, 4);
KU_RATIO("UTF-8: upper case, mixed", "BM_upper_mixed", "BM_upper_mixed_peer", 1.5, 4);
KU_RATIO("UTF-8: upper case, Cyrillic", "BM_upper_cyrillic", "BM_upper_cyrillic_peer", 1.5, 4);
KU_RATIO("UTF-8: compare without case, ASCII", "BM_compare_ascii", "BM_compare_ascii_peer", 1.5, 4);
KU_RATIO("UTF-8: compare without case, mixed", "BM_compare_mixed", "BM_compare_mixed_peer", 1.5, 4);
KU_RATIO("UTF-8: compare without case, Cyrillic", "BM_compare_cyrillic", "BM_compare_cyrillic_peer",
         1.5, 4);
