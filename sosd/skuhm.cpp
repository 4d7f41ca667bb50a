// skuhm.cpp - heaps over the component runtime
//
// A heap is one block of the runtime's own allocator: the public record, which
// consumers call through, and right behind it the private one, which says how
// to undo the creation:
//
//     | tag_skuhm                | tagSKUHMPRIVATE           |
//     | kuxp, skuhmprivate, ...  | allocator, entries, module |
//                    |             ^
//                    +-------------+
//
// Creation climbs five steps: load the module, find its entry points, start the
// runtime, get the allocator, allocate the record. skuhmruntime holds the steps
// that were taken and descends them in reverse; a heap that ends puts its private
// record back into one. That is a copy, as the record is gone by then.

#include "skuhm.h"

#include <cstring>

#include "kuguard.h"
#include "port/comrt/comrt.h"
#include "port/kernel/kernel.h"

namespace kernel = ku::kernel;

namespace
{

struct tagSKUHMPRIVATE {
    comrt_allocator *pIMalloc;
    comrt_initialize pCoInitialize;
    comrt_uninitialize pCoUninitialize;
    comrt_get_malloc pCoGetMalloc;
    void *hInstCoDLL; // the loaded module
};

struct skuhmboth {
    tag_skuhm heap;
    tagSKUHMPRIVATE own;
};
static_assert(offsetof(skuhmboth, own) == sizeof(tag_skuhm), "the private record follows");
static_assert(sizeof(tag_skuhm) == 13 * sizeof(void *)
                  && offsetof(tag_skuhm, skuhmisokr_pfn) == 12 * sizeof(void *),
              "consumers read the record");

constexpr char skuhm_module[] = "OLE32.DLL";
constexpr uint32_t skuhm_directory_room = 256; // bytes for the system directory, its NUL included
constexpr std::uintptr_t skuhm_no_module = 32; // handles up to this one are error numbers

uint32_t skuhmrefuse(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

std::nullptr_t skuhmnone(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return nullptr;
}

void *skuhmload()
{
    char path[skuhm_directory_room + 1 + sizeof skuhm_module];
    uint32_t length = kernel::system_directory(path, skuhm_directory_room);
    if (length > 0) path[length++] = '/';
    std::memcpy(path + length, skuhm_module, sizeof skuhm_module);
    void *module = kernel::load_module(path);
    return reinterpret_cast<std::uintptr_t>(module) > skuhm_no_module ? module : nullptr;
}

// A runtime that was started as far as its steps went; they are undone unless it is kept.
class skuhmruntime : ku::unique
{
public:
    skuhmruntime() = default;
    explicit skuhmruntime(const tagSKUHMPRIVATE &complete) : steps_(complete), started_(true) {}
    ~skuhmruntime()
    {
        if (steps_.pIMalloc != nullptr) steps_.pIMalloc->operations->Release(steps_.pIMalloc);
        if (started_) steps_.pCoUninitialize();
        if (steps_.hInstCoDLL != nullptr) kernel::free_module(steps_.hInstCoDLL);
    }

    bool start(uint32_t flags)
    {
        steps_.hInstCoDLL = skuhmload();
        if (steps_.hInstCoDLL == nullptr || !find_entries()) return false;
        started_ = steps_.pCoInitialize(nullptr) >= 0;
        if (!started_) return false;
        const uint32_t context = (flags & SKUHM_SHARED) != 0 ? COMRT_SHARED : COMRT_TASK;
        comrt_allocator *allocator = nullptr;
        if (steps_.pCoGetMalloc(context, &allocator) < 0) return false;
        steps_.pIMalloc = allocator;
        return allocator != nullptr;
    }
    const tagSKUHMPRIVATE &steps() const { return steps_; }
    void keep()
    {
        steps_ = {};
        started_ = false;
    }

private:
    template <typename Entry> bool find(const char *name, Entry *entry)
    {
        *entry = reinterpret_cast<Entry>(kernel::entry_point(steps_.hInstCoDLL, name));
        return *entry != nullptr;
    }
    bool find_entries()
    {
        return find("CoInitialize", &steps_.pCoInitialize)
               && find("CoUninitialize", &steps_.pCoUninitialize)
               && find("CoGetMalloc", &steps_.pCoGetMalloc);
    }

    tagSKUHMPRIVATE steps_ = {};
    bool started_ = false;
};

// The allocator of a usable heap, else null.
comrt_allocator *skuhmallocator(void *heap)
{
    if (heap == nullptr) return nullptr;
    const void *own = static_cast<tag_skuhm *>(heap)->skuhmprivate;
    return own == nullptr ? nullptr : static_cast<const tagSKUHMPRIVATE *>(own)->pIMalloc;
}

} // namespace

tag_skuhm *skuhmi(kux *ctx, uint32_t flags)
{
    skuhmruntime runtime;
    if (!runtime.start(flags)) return skuhmnone(ctx, SKUHM_NORUNTIME);

    comrt_allocator *allocator = runtime.steps().pIMalloc;
    auto *both =
        static_cast<skuhmboth *>(allocator->operations->Alloc(allocator, sizeof(skuhmboth)));
    if (both == nullptr) return skuhmnone(ctx, SKUHM_NOMEM);
    *both = {
        .heap =
            {
                .kuxp = ctx,
                .skuhmprivate = &both->own,
                .skuhminit_pfn = skuhmi,
                .skuhmfinish_pfn = skuhmf,
                .skuhmalloc_pfn = skuhmal,
                .skuhmrealloc_pfn = skuhmra,
                .skuhmfree_pfn = skuhmfr,
                .skuhmgetsize_pfn = skuhmgs,
                .skuhmheapmin_pfn = skuhmhm,
                .skuhmmemcpy_pfn = skuhmcp,
                .skuhmgetptr_pfn = skuhmgp,
                .skuhmisokw_pfn = skuhmow,
                .skuhmisokr_pfn = skuhmor,
            },
        .own = runtime.steps(),
    };
    runtime.keep();
    return &both->heap;
}

void skuhmf(kux *ctx, tag_skuhm **heap)
{
    comrt_allocator *allocator = heap == nullptr ? nullptr : skuhmallocator(*heap);
    if (allocator == nullptr) {
        skuhmrefuse(ctx, SKUHM_INVALID);
        return;
    }
    const skuhmruntime runtime(*static_cast<tagSKUHMPRIVATE *>((*heap)->skuhmprivate));
    allocator->operations->Free(allocator, *heap);
    *heap = nullptr;
}

void *skuhmal(kux *ctx, void *heap, uint32_t size)
{
    comrt_allocator *allocator = skuhmallocator(heap);
    if (allocator == nullptr) return skuhmnone(ctx, SKUHM_INVALID);
    void *block = allocator->operations->Alloc(allocator, size);
    return block != nullptr ? block : skuhmnone(ctx, SKUHM_NOMEM);
}

void *skuhmra(kux *ctx, void *heap, void *old, uint32_t size)
{
    comrt_allocator *allocator = skuhmallocator(heap);
    if (allocator == nullptr || old == nullptr) return skuhmnone(ctx, SKUHM_INVALID);
    void *block = allocator->operations->Realloc(allocator, old, size);
    return block != nullptr ? block : skuhmnone(ctx, SKUHM_NORESIZE);
}

void skuhmfr(kux *ctx, void *heap, void *address)
{
    comrt_allocator *allocator = skuhmallocator(heap);
    if (allocator == nullptr)
        skuhmrefuse(ctx, SKUHM_INVALID);
    else
        allocator->operations->Free(allocator, address);
}

uint32_t skuhmgs(kux *ctx, void *heap, void *address, uint32_t *size)
{
    comrt_allocator *allocator = skuhmallocator(heap);
    if (allocator == nullptr || address == nullptr || size == nullptr)
        return skuhmrefuse(ctx, SKUHM_INVALID);
    const uint32_t known = allocator->operations->GetSize(allocator, address);
    if (known == COMRT_UNKNOWN) return skuhmrefuse(ctx, SKUHM_BADRANGE);
    *size = known;
    return 0;
}

void skuhmhm(kux *ctx, void *heap)
{
    comrt_allocator *allocator = skuhmallocator(heap);
    if (allocator == nullptr)
        skuhmrefuse(ctx, SKUHM_INVALID);
    else
        allocator->operations->HeapMinimize(allocator);
}

uint32_t skuhmcp(kux *ctx, void *heap, void *target, const void *source, uint32_t size)
{
    if (heap == nullptr) return skuhmrefuse(ctx, SKUHM_INVALID);
    if (!kernel::writable(target, size) || !kernel::readable(source, size))
        return skuhmrefuse(ctx, SKUHM_BADRANGE);
    if (size != 0) std::memmove(target, source, size);
    return 0;
}

uint32_t skuhmgp(kux *ctx, void *heap, void *old, uint32_t offset, void **address)
{
    if (address != nullptr) *address = nullptr;
    if (!kernel::readable(old, 1)) return skuhmrefuse(ctx, SKUHM_BADRANGE);
    if (heap == nullptr || address == nullptr) return skuhmrefuse(ctx, SKUHM_INVALID);
    // By number: the sum may be no address at all.
    *address = reinterpret_cast<void *>(reinterpret_cast<std::uintptr_t>(old) + offset);
    return kernel::readable(*address, 1) ? 0 : skuhmrefuse(ctx, SKUHM_BADRANGE);
}

int32_t skuhmor(kux *, void *, const void *address, uint32_t size)
{
    return kernel::readable(address, size) ? 1 : 0;
}

int32_t skuhmow(kux *, void *, const void *address, uint32_t size)
{
    return kernel::writable(address, size) ? 1 : 0;
}
