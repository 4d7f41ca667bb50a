// Cuts a text into lines, analyses them one after another, joins and merges them,
// and asks everything of the result. The first byte chooses language and mode.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kuke.h"
#include "kuko.h"
#include "kukp.h"
#include "port/locale/locale.h"

namespace
{

constexpr const char *languages[] = {"ascii", "utf8", "sjis", "euc-jp", "iso-2022-kr"};

uint8_t keep(void *, const unsigned char *, uint32_t, uint32_t, uint32_t *) { return KUKP_A_KEEP; }

void expect(bool holds)
{
    if (!holds) std::abort();
}

// Tokens lie in the text in order, and what is copied is as long as was said.
void ask(kux *ctx, void *tokens, const std::string &text)
{
    expect(kukosgtext(ctx, tokens) == text);
    const int32_t count = kukosgnumtokens(ctx, tokens);
    std::string buffer(2 * text.size() + 8, '\0');
    const auto room = static_cast<uint32_t>(buffer.size() - 1);
    uint32_t before = 0;
    for (int32_t i = 0; i < count; i++) {
        uint32_t type = 0;
        uint32_t offset = 0;
        uint32_t length = 0;
        const unsigned char *bytes = nullptr;
        expect(kukonget(ctx, tokens, i, &type, &offset, &length, &bytes) == 0);
        expect(offset >= before && offset <= text.size());
        before = offset;
        expect(kukongvalue(ctx, bytes, length, type, buffer.data(), length, 1) <= length);
        expect(kukorassemble(ctx, tokens, i, i, KUKO_BOTH, buffer.data(), room)
               == kukorlen(ctx, tokens, i, i, KUKO_BOTH));
        const uint32_t white = kukonwhite(ctx, tokens, i, nullptr, 0);
        // Shift bytes that change nothing are counted and not copied.
        const uint32_t copied = kukonwhite(ctx, tokens, i, buffer.data(), room);
        expect(copied <= white && (copied == white || ctx->kuxlbuffer.shiftsensitive_kulang != 0));
        kukorassemble(ctx, tokens, i, count - 1, i % 4u, buffer.data(), i % 7u);
        kukonwlen(ctx, tokens, i);
    }
    expect(kukordelete(ctx, tokens, count / 4, count / 2, KUKO_START) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) return 0;
    kux *ctx = kuxcreate(nullptr);
    if (ctx == nullptr) return 0;
    ku::locale::fill_named(&ctx->kuxlbuffer, &ctx->kuxlocglo, languages[data[0] % 5]);

    const int32_t mode = data[0] / 5 % 2;
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    std::string joined;
    void *all = nullptr;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t newline = text.find('\n', from);
        const std::string line = text.substr(from, newline - from);
        from += line.size() + 1;
        const int32_t state = all != nullptr ? kukosgstate(ctx, all) : 0;
        void *piece = kukpcreate(ctx, line.c_str(), 0, mode, keep, nullptr, state);
        joined += (all != nullptr ? "\n" : "") + std::string(line.c_str());
        void *both = all != nullptr ? kukeconcat(ctx, all, piece, '\n') : piece;
        if (both != piece) {
            kukpdestroy(ctx, all);
            kukpdestroy(ctx, piece);
        }
        all = both;
        expect(all != nullptr);
        kukphint(ctx, all);
    }
    expect(kukemerge(ctx, all) == 0);
    ask(ctx, all, joined);
    kukpdestroy(ctx, all);
    kuxdestroy(ctx);
    return 0;
}
