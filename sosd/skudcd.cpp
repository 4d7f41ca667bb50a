// skudcd.cpp - a part of a cached long value into client memory, chunk by chunk
//
// Values up to one small chunk go through a buffer on the stack. For more a
// transfer buffer is asked of the heap; when it has none, what it pushed is
// dropped, because the file does not move with an error on the stack, and the small
// buffer does the work in more steps.

#include "skudcd.h"

#include <algorithm>

#include "kuguard.h"
#include "skufv.h"

static constexpr uint32_t skudcd_large = 32768; // bytes of the largest chunk
static constexpr uint32_t skudcd_small = 1024;  // bytes of the buffer on the stack

namespace
{

// A transfer buffer of the heap's, released at the end.
class skudcdbuffer : ku::unique
{
public:
    skudcdbuffer(kux *ctx, tag_skuhm *heap) : ctx_(ctx), heap_(heap) {}
    ~skudcdbuffer()
    {
        if (block_ != nullptr) heap_->skuhmfree_pfn(ctx_, heap_, block_);
    }
    void *take(uint32_t bytes)
    {
        const ku::aside own(ctx_); // on a full level the heap's error would drop the oldest
        if (own.saved()) block_ = heap_->skuhmalloc_pfn(ctx_, heap_, bytes);
        return block_;
    }

private:
    kux *ctx_;
    tag_skuhm *heap_;
    void *block_ = nullptr;
};

} // namespace

static uint32_t skudcdrefuse(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

uint32_t skudcdoleload(const kudccdsdef *source, tag_skuhm *heap, void *destination,
                       uint32_t offset, uint32_t length)
{
    if (source == nullptr || source->cachep_kudccds == nullptr) return KUVAA_MISSING;
    const kudcaccdef *acmp = source->cachep_kudccds;
    kux *ctx = acmp->kuxp_kudcacc;
    if (source->colh_kudccds == nullptr) return skudcdrefuse(ctx, KUVAA_MISSING);
    if (source->curnul_kudccds == KUDC_NULL) return skudcdrefuse(ctx, SKUDC_NULL);
    if (uint64_t{offset} + length > source->curlen_kudccds) return skudcdrefuse(ctx, SKUDC_RANGE);
    if (length == 0) return 0;
    if (uint64_t{source->filpos_kudccds} + offset + length
        > static_cast<uint32_t>(acmp->nxdo_kudcacc))
        return skudcdrefuse(ctx, KUVAA_MISSING); // no value is there
    if (heap == nullptr) return skudcdrefuse(ctx, SKUHM_INVALID);

    unsigned char local[skudcd_small];
    void *transfer = nullptr;
    skudcdbuffer buffer(ctx, heap);
    uint32_t chunk = std::min(length, skudcd_large);
    if (chunk > skudcd_small) transfer = buffer.take(chunk);
    if (transfer == nullptr) {
        transfer = local;
        chunk = std::min(chunk, skudcd_small);
    }
    auto *file = static_cast<skufv *>(acmp->datf_kudcacc);
    uint32_t position = source->filpos_kudccds + offset;
    for (;;) {
        file->skufvpos = position;
        if (const uint32_t status =
                skufvmove(ctx, acmp->skufh_kudcacc, file, transfer, chunk, SKUFV_GET))
            return status;
        if (const uint32_t status = heap->skuhmmemcpy_pfn(ctx, heap, destination, transfer, chunk))
            return status;
        length -= chunk;
        if (length == 0) return 0;
        if (const uint32_t status =
                heap->skuhmgetptr_pfn(ctx, heap, destination, chunk, &destination))
            return status;
        position += chunk;
        chunk = std::min(chunk, length);
    }
}
