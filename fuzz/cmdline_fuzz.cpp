// Parses a text as a command line, as an argument vector cut at its newlines, and
// as a command file. The first byte chooses language, quoting and acceptance.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kucl.h"
#include "kul.h"
#include "kuxer.h"
#include "port/locale/locale.h"

namespace
{

constexpr const char *languages[] = {"ascii", "utf8", "sjis", "euc-jp", "iso-2022-kr"};

void release(kux *ctx, void *list)
{
    for (int32_t i = kulpnitems(ctx, list); i-- > 0;) {
        auto *argument = static_cast<kucla *>(kulpitem(ctx, list, i));
        void *values = argument->kuclaval;
        for (int32_t j = values != nullptr ? kulpnitems(ctx, values) : 0; j-- > 0;)
            ctx->kuxnmfree(ctx, kulpitem(ctx, values, j));
        argument->kuclaval = kulpdestroy(ctx, values);
        if ((argument->kuclaflg & KUCL_ADDED) == 0) continue;
        ctx->kuxnmfree(ctx, const_cast<char *>(argument->kuclakwd));
        ctx->kuxnmfree(ctx, argument);
    }
    kulpdestroy(ctx, list);
}

struct request {
    kux *ctx;
    std::string text;
    uint32_t userp;
    int32_t quote;
    std::string path; // of the command file
};

kucle *parse_vector(const request &asked, void *list)
{
    std::vector<std::string> texts{"tool"};
    for (std::size_t from = 0; from <= asked.text.size();) {
        const std::size_t newline = asked.text.find('\n', from);
        texts.push_back(asked.text.substr(from, newline - from));
        from += texts.back().size() + 1;
    }
    std::vector<char *> argv;
    for (std::string &text : texts) argv.push_back(text.data());
    return kuclpa(asked.ctx, static_cast<int32_t>(argv.size()), argv.data(), list, asked.userp);
}

kucle *parse_file(const request &asked, void *list)
{
    std::FILE *file = std::fopen(asked.path.c_str(), "w");
    if (file == nullptr) std::abort();
    std::fwrite(asked.text.data(), 1, asked.text.size(), file);
    std::fclose(file);
    const std::string line = "file='" + asked.path + "'";
    kucle *error = kuclpsq(asked.ctx, line.c_str(), list, asked.userp, asked.quote);
    std::remove(asked.path.c_str());
    return error;
}

template <class Parse> void run(const request &asked, Parse parse)
{
    kucla definitions[] = {
        {1, 10, "level", "3", nullptr, nullptr, KUCL_NUMBER | KUCL_RANGE},
        {0, 0, "names", nullptr, nullptr, nullptr, KUCL_LIST},
        {0, 0, "file", nullptr, nullptr, nullptr, 0},
    };
    void *list = kulpcreate(asked.ctx, 0, nullptr);
    for (kucla &definition : definitions) kulpinsert(asked.ctx, list, KUL_APPEND, &definition);
    // Only the path that we made may name a file.
    if (parse == &parse_file) definitions[2].kuclaflg = KUCL_CMDFILE;
    kucle *error = parse(asked, list);
    if (kuxernerrors(asked.ctx) != 0) std::abort();
    if (error != nullptr && error->kuclecod == KUCLE_NOMEM) std::abort();
    kucledestroy(asked.ctx, error);
    release(asked.ctx, list);
}

kucle *parse_text(const request &asked, void *list)
{
    return kuclps(asked.ctx, asked.text.c_str(), list, asked.userp);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1) return 0;
    kux *ctx = kuxcreate(nullptr);
    if (ctx == nullptr) return 0;
    ku::locale::fill_named(&ctx->kuxlbuffer, &ctx->kuxlocglo, languages[data[0] % 5]);
    const request asked{ctx, std::string(reinterpret_cast<const char *>(data) + 1, size - 1),
                        data[0] / 5 % 2u, data[0] / 10 % 2,
                        "/tmp/cmdline_fuzz." + std::to_string(getpid())};
    run(asked, parse_text);
    run(asked, parse_vector);
    run(asked, parse_file);
    kuxdestroy(ctx);
    return 0;
}
