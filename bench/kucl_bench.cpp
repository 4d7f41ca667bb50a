// Command lines: 20 keyword arguments, `name=value`, parsed into 20 definitions.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "bench/ratio.h"
#include "kucl.h"
#include "kul.h"

namespace
{

constexpr std::size_t count = 20;

constexpr std::array<const char *, count> names{
    "host",    "port",  "user",   "password", "database", "schema",   "file",
    "format",  "width", "height", "encoding", "timeout",  "retries",  "pagesize",
    "heading", "spool", "echo",   "verify",   "null",     "separator"};

// "tool", then one argument for each name.
std::array<std::string, count + 1> arguments(const char *before)
{
    std::array<std::string, count + 1> texts{"tool"};
    for (std::size_t i = 0; i < count; i++)
        texts[i + 1] = std::string(before) + names[i] + "=value" + std::to_string(i);
    return texts;
}

void release(kux *ctx, kucla &argument)
{
    void *values = argument.kuclaval;
    if (values == nullptr) std::abort(); // the argument was not parsed
    for (int32_t i = kulpnitems(ctx, values); i-- > 0;)
        ctx->kuxnmfree(ctx, kulpitem(ctx, values, i));
    argument.kuclaval = kulpdestroy(ctx, values);
}

void BM_kuclpa(benchmark::State &state)
{
    kux *ctx = kuxcreate(nullptr);
    std::array<kucla, count> definitions{};
    void *list = kulpcreate(ctx, count, nullptr);
    for (std::size_t i = 0; i < count; i++) {
        definitions[i].kuclakwd = names[i];
        kulpinsert(ctx, list, KUL_APPEND, &definitions[i]);
    }
    auto texts = arguments("");
    std::array<char *, count + 1> argv{};
    for (std::size_t i = 0; i <= count; i++) argv[i] = texts[i].data();
    for (auto _ : state) {
        if (kuclpa(ctx, count + 1, argv.data(), list, 0) != nullptr) std::abort();
        for (kucla &argument : definitions) release(ctx, argument);
    }
    kulpdestroy(ctx, list);
    kuxdestroy(ctx);
}
BENCHMARK(BM_kuclpa);

// The context is made once, as our definitions are. It moves the pointers of the
// vector, so that each parse gets a fresh one, and it releases the strings of the
// parse before.
void BM_goption(benchmark::State &state)
{
    std::array<gchar *, count> values{};
    std::array<GOptionEntry, count + 1> entries{};
    for (std::size_t i = 0; i < count; i++) {
        entries[i].long_name = names[i];
        entries[i].arg = G_OPTION_ARG_STRING;
        entries[i].arg_data = &values[i];
    }
    GOptionContext *context = g_option_context_new(nullptr);
    g_option_context_add_main_entries(context, entries.data(), nullptr);
    auto texts = arguments("--");
    for (auto _ : state) {
        std::array<char *, count + 2> argv{};
        for (std::size_t i = 0; i <= count; i++) argv[i] = texts[i].data();
        int argc = count + 1;
        char **vector = argv.data();
        if (!g_option_context_parse(context, &argc, &vector, nullptr)) std::abort();
        for (const gchar *value : values)
            if (value == nullptr) std::abort();
    }
    for (gchar *value : values) g_free(value);
    g_option_context_free(context);
}
BENCHMARK(BM_goption);

KU_RATIO("parsing 20 keyword arguments", "BM_kuclpa", "BM_goption", 0.8, 2);

} // namespace
