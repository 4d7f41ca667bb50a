// kuxio.cpp - the context's message stream is a property; the error dump goes through it

#include "kuxio.h"

#include <algorithm>
#include <cstring>

#include "kuxer.h"
#include "kuxpr.h"

namespace
{

constexpr char kuxio_prefix[] = "ERROR: ";
constexpr uint32_t kuxio_prefixlength = sizeof kuxio_prefix - 1;
constexpr uint32_t kuxio_textmax = 80; // bytes of a dump line before its newline
constexpr uint32_t kuxio_linesize = kuxio_textmax + 2;

kuxst *kuxiostream(kux *ctx) { return static_cast<kuxst *>(kuxprget(ctx, KUXIO_PROPERTY)); }

// One dump line. The formatter's count may include its NUL or not, so the text is
// closed at the count and the newline put at the first NUL.
void kuxioshow(kux *ctx, kuxer *record)
{
    char line[kuxio_linesize] = {};
    std::memcpy(line, kuxio_prefix, kuxio_prefixlength);
    constexpr uint32_t room = kuxio_textmax - kuxio_prefixlength;
    int32_t truncated = 0;
    const uint32_t used =
        std::min(kuxerformat(ctx, record, line + kuxio_prefixlength, room, &truncated), room);
    line[kuxio_prefixlength + used] = '\0';
    const size_t length = std::strlen(line);
    line[length] = '\n';
    line[length + 1] = '\0';
    kuxiomessage(ctx, line);
}

} // namespace

uint32_t kuxioset(kux *ctx, const kuxioa *attrs)
{
    if (attrs == nullptr || (attrs->mask_kuxioa & KUXIOA_STDIO) == 0) return 0;
    if (kuxprset(ctx, KUXIO_PROPERTY, attrs->stdio_kuxioa, nullptr) != 0) return kuxercode(ctx);
    return 0;
}

uint32_t kuxioget(kux *ctx, kuxioa *attrs)
{
    if (attrs != nullptr && (attrs->mask_kuxioa & KUXIOA_STDIO) != 0)
        attrs->stdio_kuxioa = kuxiostream(ctx);
    return kuxercode(ctx);
}

uint32_t kuxiomessage(kux *ctx, const char *text)
{
    kuxst *stream = kuxiostream(ctx);
    return stream != nullptr ? kuxstmessage(ctx, stream, text) : kuxstdmessage(ctx, nullptr, text);
}

int32_t kuxioconfirm(kux *ctx, const char *text)
{
    kuxst *stream = kuxiostream(ctx);
    return stream != nullptr ? kuxstconfirm(ctx, stream, text) : kuxstdconfirm(ctx, nullptr, text);
}

void kuxioperrors(kux *ctx, int32_t clear)
{
    // The message function may push, pop or clear: the count of now is walked, as
    // far as the level still reaches.
    const int32_t records = kuxernerrors(ctx);
    for (int32_t index = 0; index < records && index < kuxernerrors(ctx); index++)
        kuxioshow(ctx, kuxerget(ctx, index));
    if (clear != 0 && records > 0) kuxerclear(ctx);
}
