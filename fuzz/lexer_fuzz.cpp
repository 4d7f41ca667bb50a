// lexer_fuzz.cpp - any text, in every character set, state, mode and dialect
//
// The first four bytes choose; the rest is the text. Tokens ascend and lie
// inside the text, before their hints are attached and after.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kuka.h"
#include "kul.h"
#include "port/locale/locale.h"

namespace
{

void require(bool holds)
{
    if (!holds) std::abort();
}

struct watch {
    uint32_t answers; // two bits a token, used round and round
    uint32_t sum;
};

// Reads every byte that it is shown, and answers by the input.
uint8_t look(void *cctxp, const unsigned char *token, uint32_t length, uint32_t, uint32_t *)
{
    auto &watched = *static_cast<watch *>(cctxp);
    for (uint32_t i = 0; i < length; i++) watched.sum += token[i];
    watched.answers = watched.answers << 30 | watched.answers >> 2;
    return static_cast<uint8_t>(watched.answers & 3);
}

void check(kux *ctx, const kuk &object)
{
    const bool shifting = ctx->kuxlangidh->shiftsensitive_kulang != 0;
    uint64_t end = 0; // of the token before
    for (int32_t i = 0; i < kulpnitems(ctx, object.origtklh_kuk); i++) {
        const auto *token = static_cast<const kukn *>(kulpitem(ctx, object.origtklh_kuk, i));
        // A shifted end counts one byte that is not the token's own.
        const uint32_t extra = !shifting ? 0 : token->length_kukn < 2 ? token->length_kukn : 2;
        require(token->offset_kukn >= end);
        end = uint64_t{token->offset_kukn} + token->length_kukn - extra;
        require(end <= object.origtxl_kuk);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const char *const languages[] = {"ascii", "iso-8859-1", "utf8",
                                            "sjis",  "euc-jp",     "iso-2022-kr"};
    if (size < 4) return 0;
    kux *ctx = kuxcreate(nullptr);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, languages[data[0] % 6]);
    const std::string text(reinterpret_cast<const char *>(data) + 4, size - 4);

    const size_t wanted = data[2] >> 5;
    kukat client = {data + 4, static_cast<uint32_t>(std::min(wanted, size - 4)), 900};
    void *items[] = {&client};
    void *clients = kulpcreate(ctx, 1, items);
    watch watched = {data[3] * 0x01010101u, 0};

    kuka record = {};
    record.mask_kuka = KUKA_TEXT | KUKA_WEIGHT | KUKA_MODE | KUKA_STATE | KUKA_SERVER;
    record.origtxp_kuka = text.c_str();
    record.weight_kuka = data[1] & 1;
    record.mode_kuka = data[1] >> 1 & 1;
    record.state_kuka = (data[1] >> 2) % 8; // 6 and 7 are refused
    record.srvrtype_kuka = data[2] % 4;
    record.ctoklist_kuka = (data[1] & 0x40) != 0 ? clients : nullptr;
    if ((data[1] & 0x80) != 0) {
        record.mask_kuka |= KUKA_CALLBACK | KUKA_CONTEXT;
        record.cfunp_kuka = look;
        record.cctxp_kuka = &watched;
    }
    void *object = kukacreate(ctx, &record);
    require((object == nullptr) == (record.state_kuka > KUKP_S_LABEL));
    if (object != nullptr) {
        check(ctx, *static_cast<kuk *>(object));
        require(kukphint(ctx, object) == 0);
        check(ctx, *static_cast<kuk *>(object));
    }
    kukpdestroy(ctx, object);
    kulpdestroy(ctx, clients);
    kuxdestroy(ctx);
    return 0;
}
