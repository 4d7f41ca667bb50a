// kukp_bench.cpp - the lexer beside a packaged SQL scanner and a hand-written one
//
// Each side reads the same script of 4 MB line by line and carries its state
// from line to line: scripts of a database server, repeated, or where there are
// none a generated one. Ours makes and ends a token object a line, with
// keywords, without callback. The hand-written scanner counts tokens and
// stores nothing: what the work costs before anything is kept.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kukp.h"
#include "kul.h"
#include "kux.h"
#include "port/locale/locale.h"
#include "ratio.h"

#ifdef KU_BENCH_PSQLSCAN
#define pg_attribute_printf(format, arguments) // its headers expect their own configuration first
extern "C" {
#include <fe_utils/psqlscan.h>
}
#endif

namespace
{

constexpr std::size_t script_size = 4u << 20;

// Statements as people write them: keywords, names, strings, numbers, operators, comments.
constexpr const char *statements[] = {
    "SELECT o.@1, o.@2, sum(l.quantity * l.price) AS total_@3\n"
    "  FROM @1_orders o JOIN order_lines l ON l.order_id = o.id\n"
    " WHERE o.@2 >= '2024-01-01' AND o.status <> 'it''s open' -- open ones are wrong\n"
    " GROUP BY o.@1, o.@2\n"
    "HAVING count(*) > 10\n"
    " ORDER BY 3 DESC;\n",
    "INSERT INTO @1_log (id, @2, created, note)\n"
    "VALUES (10445, 'Customer asked for a replacement', 20240312, NULL),\n"
    "       (10446, 'Second delivery', 1.5e3, 'see 10445');\n",
    "/* The totals of a month are kept, so that the reports of the year\n"
    "   need not read every order again. */\n"
    "CREATE TABLE \"@1 totals\" (\n"
    "    @2_id integer NOT NULL PRIMARY KEY,\n"
    "    @3 varchar(80) DEFAULT 'none',\n"
    "    amount numeric(12,2) CHECK (amount >= 0.0)\n"
    ");\n",
    "UPDATE @1 SET @2 = @2 + 1, @3 = coalesce(@3, 'x') || '-' || to_char(@2)\n"
    " WHERE id IN (SELECT @1_id FROM @3_parts WHERE weight BETWEEN 12 AND 400);\n",
    "DELETE FROM @3 WHERE @1 LIKE '%_old' AND NOT EXISTS\n"
    "    (SELECT NULL FROM @2 WHERE @2.id = @3.id);\n\n",
};

constexpr const char *names[] = {"customer", "invoice", "region", "product_code", "ship_date",
                                 "supplier", "batch",   "qty",    "warehouse",    "reference"};
// A generated text of the script's size: what is read where no real scripts are installed.
std::string generated()
{
    std::uint32_t seed = 1;
    auto random = [&seed] { return (seed = seed * 1664525u + 1013904223u) >> 16; };
    std::string text;
    while (text.size() < script_size) {
        for (const char *at = statements[random() % std::size(statements)]; *at != 0; at++) {
            if (*at == '@')
                text += names[(static_cast<unsigned>(*++at) + random() / 7) % std::size(names)];
            else
                text += *at;
        }
    }
    return text;
}

// The catalogue scripts of a database server, one after the other and again and
// again, up to the script's size; empty where they are not installed.
std::string installed()
{
    std::string once;
#ifdef KU_BENCH_SQL_SCRIPTS
    std::vector<std::filesystem::path> files;
    std::error_code missing;
    for (const auto &entry : std::filesystem::directory_iterator(KU_BENCH_SQL_SCRIPTS, missing))
        if (entry.path().extension() == ".sql") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto &file : files) {
        std::ifstream in(file);
        once.append(std::istreambuf_iterator<char>(in), {});
    }
#endif
    std::string text;
    while (!once.empty() && text.size() < script_size) text += once;
    return text;
}

// Lines of the script, NUL-terminated in place of the line feed. Those scripts
// are another dialect's: without a callback its few signs that are erroneous
// text here would end a line's analysis, so a blank stands in place of each,
// for both sides. Both then go through every byte.
struct script {
    std::string text;
    std::vector<char *> lines;

    explicit script(std::string whole) : text(std::move(whole))
    {
        for (std::size_t at = 0; at < text.size(); at = text.find('\0', at) + 1) {
            lines.push_back(&text[at]);
            text[text.find('\n', at)] = '\0';
        }
        kux *ctx = kuxcreate(nullptr);
        std::int32_t state = KUKP_S_COMPLETE;
        for (char *line : lines) state = make_plain(ctx, line, state);
        kuxdestroy(ctx);
    }

    // Replaces what is erroneous in a line. Returns the state that it ends in.
    static std::int32_t make_plain(kux *ctx, char *line, std::int32_t from)
    {
        for (;;) {
            void *object = kukpcreate(ctx, line, 1, KUKP_M_WORDS, nullptr, nullptr, from);
            const auto *made = static_cast<const kuk *>(object);
            const std::int32_t state = made->state_kuk;
            if (state > KUKP_S_LABEL) {
                const auto *wrong =
                    static_cast<const kukn *>(kulpitem(ctx, made->origtklh_kuk, KUL_LAST));
                line[wrong->offset_kukn + wrong->length_kukn - 1] = ' ';
            }
            kukpdestroy(ctx, object);
            if (state <= KUKP_S_LABEL) return state;
        }
    }
};

std::string any()
{
    std::string text = installed();
    return text.empty() ? generated() : text;
}

const script &plain()
{
    static const script made(any());
    return made;
}

// The same with a letter that is not ASCII in many of its words.
const script &foreign()
{
    static const script made([] {
        std::string text = any();
        for (const char *word : {"name", "custo", "region"})
            for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += 3)
                text.replace(at + 1, 1, "\xC3\xA9");
        return text;
    }());
    return made;
}

void lex(benchmark::State &state, const char *language, const script &source)
{
    kux *ctx = kuxcreate(nullptr);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, language);
    std::int64_t tokens = 0;
    for (auto _ : state) {
        tokens = 0;
        std::int32_t from = KUKP_S_COMPLETE;
        for (const char *line : source.lines) {
            void *object = kukpcreate(ctx, line, 1, KUKP_M_KEYWORDS, nullptr, nullptr, from);
            const auto *made = static_cast<const kuk *>(object);
            from = made->state_kuk;
            if (from > KUKP_S_LABEL) state.SkipWithError("the script holds erroneous text");
            tokens += kulpnitems(ctx, made->origtklh_kuk);
            kukpdestroy(ctx, object);
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.text.size()));
    state.counters["tokens"] = static_cast<double>(tokens);
    kuxdestroy(ctx);
}

void BM_lex_script(benchmark::State &state) { lex(state, "ascii", plain()); }
BENCHMARK(BM_lex_script)->Unit(benchmark::kMillisecond);

void BM_lex_script_utf8(benchmark::State &state) { lex(state, "utf8", foreign()); }
BENCHMARK(BM_lex_script_utf8)->Unit(benchmark::kMillisecond);

KU_RATIO("lexing UTF-8 beside single-byte", "BM_lex_script_utf8", "BM_lex_script", 0.5, 0.8);

// ---- a scanner as one writes it by hand ----

bool is_keyword(const char *word, std::size_t length)
{
    char lower[32];
    if (length > sizeof lower) return false;
    for (std::size_t i = 0; i < length; i++)
        lower[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(word[i])));
    const std::string_view wanted(lower, length);
    const auto *found =
        std::lower_bound(std::begin(kukptbkw), std::end(kukptbkw), wanted,
                         [](const kukptb &entry, std::string_view w) {
                             return std::string_view(entry.keyp_kukptb, entry.leng_kukptb) < w;
                         });
    return found != std::end(kukptbkw)
           && std::string_view(found->keyp_kukptb, found->leng_kukptb) == wanted;
}

struct counts {
    std::int64_t tokens = 0, keywords = 0;
    bool in_comment = false;
};

const char *to_comment_end(const char *at, counts &count)
{
    const char *end = std::strstr(at, "*/");
    count.in_comment = end == nullptr;
    return end != nullptr ? end + 2 : at + std::strlen(at);
}

void scan_by_hand(const char *at, counts &count)
{
    if (count.in_comment) {
        at = to_comment_end(at, count);
        count.tokens++;
    }
    while (*at != 0) {
        const auto byte = static_cast<unsigned char>(*at);
        if (std::isspace(byte)) {
            at++;
            continue;
        }
        count.tokens++;
        if (std::isalpha(byte)) {
            const char *start = at;
            while (std::isalnum(static_cast<unsigned char>(*at)) || *at == '_' || *at == '$'
                   || *at == '#')
                at++;
            count.keywords += is_keyword(start, static_cast<std::size_t>(at - start)) ? 1 : 0;
        } else if (std::isdigit(byte)) {
            while (std::isdigit(static_cast<unsigned char>(*at)) || *at == '.' || *at == 'e') at++;
        } else if (*at == '\'' || *at == '"') {
            const char quote = *at++;
            while (*at != 0 && (*at != quote || at[1] == quote)) at += *at == quote ? 2 : 1;
            at += *at != 0 ? 1 : 0;
        } else if (at[0] == '-' && at[1] == '-') {
            return;
        } else if (at[0] == '/' && at[1] == '*') {
            at = to_comment_end(at + 2, count);
        } else {
            const bool two = (at[0] == '<' && (at[1] == '>' || at[1] == '='))
                             || (at[0] == '>' && at[1] == '=') || (at[0] == '|' && at[1] == '|');
            at += two ? 2 : 1;
        }
    }
}

void BM_scan_by_hand(benchmark::State &state)
{
    counts count;
    for (auto _ : state) {
        count = {};
        for (const char *line : plain().lines) scan_by_hand(line, count);
        benchmark::DoNotOptimize(count.keywords);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(plain().text.size()));
    state.counters["tokens"] = static_cast<double>(count.tokens);
}
BENCHMARK(BM_scan_by_hand)->Unit(benchmark::kMillisecond);

KU_RATIO("lexing a 4 MB SQL script beside a hand-written scanner", "BM_lex_script",
         "BM_scan_by_hand", 0.3, 0.6);

// ---- a packaged scanner ----

#ifdef KU_BENCH_PSQLSCAN
void BM_packaged_scanner(benchmark::State &state)
{
    static const PsqlScanCallbacks callbacks = {};
    PsqlScanState scan = psql_scan_create(&callbacks);
    PQExpBuffer statement = createPQExpBuffer();
    std::int64_t found = 0;
    for (auto _ : state) {
        found = 0;
        for (const char *line : plain().lines) {
            psql_scan_setup(scan, line, static_cast<int>(std::strlen(line)), 0, true);
            for (;;) {
                promptStatus_t prompt;
                if (psql_scan(scan, statement, &prompt) != PSCAN_SEMICOLON) break;
                resetPQExpBuffer(statement);
                found++;
            }
            psql_scan_finish(scan);
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(plain().text.size()));
    state.counters["statements"] = static_cast<double>(found);
    destroyPQExpBuffer(statement);
    psql_scan_destroy(scan);
}
BENCHMARK(BM_packaged_scanner)->Unit(benchmark::kMillisecond);

KU_RATIO("lexing a 4 MB SQL script beside a packaged SQL scanner", "BM_lex_script",
         "BM_packaged_scanner", 1.5, 3.0);
#endif

} // namespace
