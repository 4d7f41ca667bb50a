// kuxst.cpp - message streams, and the default one over the context's standard files

#include "kuxst.h"

#include "kuguard.h"
#include "skub.h"

namespace
{

constexpr uint32_t kuxst_answermax = 20; // bytes read of an answer

} // namespace

kuxst *kuxstcreate(kux *ctx, const kuxsta *attrs)
{
    kuxst *stream = ku::allocate<kuxst>(ctx);
    if (stream == nullptr) return nullptr;
    stream->message_kuxst = kuxstdmessage;
    stream->confirm_kuxst = kuxstdconfirm;
    stream->streamdata_kuxst = nullptr;
    kuxstset(ctx, stream, attrs);
    return stream;
}

uint32_t kuxstdestroy(kux *ctx, kuxst *stream)
{
    if (stream != nullptr) ctx->kuxnmfree(ctx, stream);
    return kuxercode(ctx);
}

uint32_t kuxstset(kux *, kuxst *stream, const kuxsta *attrs)
{
    if (stream == nullptr || attrs == nullptr) return 0;
    if ((attrs->mask_kuxsta & KUXSTA_MESSAGE) != 0) stream->message_kuxst = attrs->message_kuxsta;
    if ((attrs->mask_kuxsta & KUXSTA_CONFIRM) != 0) stream->confirm_kuxst = attrs->confirm_kuxsta;
    if ((attrs->mask_kuxsta & KUXSTA_STREAMDATA) != 0)
        stream->streamdata_kuxst = attrs->streamdata_kuxsta;
    return 0;
}

uint32_t kuxstget(kux *, kuxst *stream, kuxsta *attrs)
{
    if (stream == nullptr || attrs == nullptr) return 0;
    if ((attrs->mask_kuxsta & KUXSTA_MESSAGE) != 0) attrs->message_kuxsta = stream->message_kuxst;
    if ((attrs->mask_kuxsta & KUXSTA_CONFIRM) != 0) attrs->confirm_kuxsta = stream->confirm_kuxst;
    if ((attrs->mask_kuxsta & KUXSTA_STREAMDATA) != 0)
        attrs->streamdata_kuxsta = stream->streamdata_kuxst;
    return 0;
}

uint32_t kuxstmessage(kux *ctx, kuxst *stream, const char *text)
{
    return stream != nullptr ? stream->message_kuxst(ctx, stream, text)
                             : kuxstdmessage(ctx, nullptr, text);
}

int32_t kuxstconfirm(kux *ctx, kuxst *stream, const char *text)
{
    return stream != nullptr ? stream->confirm_kuxst(ctx, stream, text)
                             : kuxstdconfirm(ctx, nullptr, text);
}

uint32_t kuxstdmessage(kux *ctx, kuxst *, const char *text)
{
    return skubsput(ctx, ctx->kuxstdout, text);
}

int32_t kuxstdconfirm(kux *ctx, kuxst *, const char *text)
{
    skubsput(ctx, ctx->kuxstdout, text);
    skubsput(ctx, ctx->kuxstdout, " [y/n]: ");

    // Zeroed: an inert standard input answers without touching the buffer.
    char answer[kuxst_answermax + 1] = {};
    skubsget(ctx, ctx->kuxstdin, answer, sizeof answer);
    return answer[0] == 'y' || answer[0] == 'Y' ? 1 : 0;
}
