// kul.cpp - lists: one record, one contiguous array of pointers
//
//     items_kul  | a | b | c | . . . . . |
//                  0   1   2   nitems      maxitems (a multiple of 16)
//                      ^ current_kul, or -1
//
// Always 0 <= nitems_kul <= maxitems_kul, and current_kul is -1 or below
// nitems_kul. The array is contiguous so that a caller who holds a lock walks it
// directly; it grows in steps of 16 slots, never shrinks, and only growth and
// merging move it. A list is locked while itemsptr_kul is not null.
//
// Reading by index is one step, inserting and deleting move the tail once,
// kulpfind is linear, kulpsearch logarithmic. Slots are counted in 32 bits and
// an array has at most UINT32_MAX bytes, so that no sum of two counts overflows.
#include "kul.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kuguard.h"
#include "kul_internal.h"
#include "kuuq.h"

namespace
{

constexpr std::int32_t kul_step = 16; // slots by which an array grows
constexpr std::int32_t kul_none = -1; // no current item, not found

static_assert(offsetof(kul, current_kul) == 8 && offsetof(kul, items_kul) == 16
                  && sizeof(kul) == 16 + 2 * sizeof(void *),
              "clients read the record");

kul &kulof(void *list) { return *static_cast<kul *>(list); }

std::uint32_t kulrefuse(kux *ctx, std::uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

// Slots that an array gets to hold `count` items: the next step above it.
std::uint64_t kulcapacity(std::uint64_t count) { return (count / kul_step + 1) * kul_step; }

void **kularray(kux *ctx, std::uint64_t slots)
{
    return static_cast<void **>(ku::allocate(ctx, slots, sizeof(void *)));
}

void kulcopy(void **target, void *const *source, std::int32_t count)
{
    if (count > 0) std::memcpy(target, source, sizeof(void *) * static_cast<std::size_t>(count));
}

bool kulislocked(const kul &list) { return list.itemsptr_kul != nullptr; }

// The index with KUL_LAST resolved, or kul_none when no item has it.
std::int32_t kulslot(const kul &list, std::int32_t index)
{
    if (index == KUL_LAST) index = list.nitems_kul - 1;
    return index >= 0 && index < list.nitems_kul ? index : kul_none;
}

} // namespace

std::uint32_t kulrealloc(kux *ctx, kul &list, std::uint64_t count)
{
    const std::uint64_t slots = kulcapacity(count);
    const std::uint64_t bytes = slots * sizeof(void *);
    if (bytes > UINT32_MAX) return kulrefuse(ctx, KULAA_NOMEM);
    void *items = ctx->kuxnmrealloc(ctx, list.items_kul, static_cast<std::uint32_t>(bytes));
    if (items == nullptr) return kulrefuse(ctx, KULAA_NOMEM);
    list.items_kul = static_cast<void **>(items);
    list.maxitems_kul = static_cast<std::int32_t>(slots);
    return 0;
}

void *kulpcreate(kux *ctx, std::int32_t initsize, void *const *inititems)
{
    if (initsize < 0) initsize = 0;
    const std::uint64_t slots = kulcapacity(static_cast<std::uint64_t>(initsize));

    ku::owned<kul> list(ctx, ku::allocate<kul>(ctx));
    void **items = list ? kularray(ctx, slots) : nullptr;
    if (items == nullptr) {
        kulrefuse(ctx, KULAA_NOMEM);
        return nullptr;
    }
    list->maxitems_kul = static_cast<std::int32_t>(slots);
    list->nitems_kul = inititems != nullptr ? initsize : 0;
    list->current_kul = kul_none;
    list->nlocks_kul = 0;
    list->items_kul = items;
    list->itemsptr_kul = nullptr;
    kulcopy(items, inititems, list->nitems_kul);
    return list.keep();
}

void *kulpdestroy(kux *ctx, void *list)
{
    if (list == nullptr) return nullptr;
    ctx->kuxnmfree(ctx, kulof(list).items_kul);
    ctx->kuxnmfree(ctx, list);
    return nullptr;
}

void *kulpcpy(kux *ctx, void *list)
{
    void *copy = kulpcreate(ctx, kulof(list).nitems_kul, nullptr);
    if (copy == nullptr) return nullptr;
    return kulpconcat(ctx, copy, list) == 0 ? copy : kulpdestroy(ctx, copy);
}

void *kulpitem(kux *ctx, void *handle, std::int32_t index)
{
    kul &list = kulof(handle);
    const std::int32_t slot = kulslot(list, index);
    if (slot == kul_none) {
        kulrefuse(ctx, KULAA_RANGE);
        return nullptr;
    }
    void *item = list.items_kul[slot];
    list.current_kul = item != nullptr ? slot : kul_none;
    return item;
}

void *kulpfirst(kux *ctx, void *list)
{
    return kulof(list).nitems_kul > 0 ? kulpitem(ctx, list, 0) : nullptr;
}

void *kulplast(kux *ctx, void *list)
{
    return kulof(list).nitems_kul > 0 ? kulpitem(ctx, list, KUL_LAST) : nullptr;
}

std::int32_t kulpfind(kux *, void *handle, const void *item)
{
    kul &list = kulof(handle);
    std::int32_t slot = 0;
    while (slot < list.nitems_kul && list.items_kul[slot] != item) slot++;
    list.current_kul = slot < list.nitems_kul ? slot : kul_none;
    return list.current_kul;
}

std::int32_t kulpismember(kux *ctx, void *list, const void *item)
{
    return kulpfind(ctx, list, item) != kul_none ? 1 : 0;
}

std::int32_t kulpnitems(kux *, void *list) { return kulof(list).nitems_kul; }

void *kulpcurrent(kux *, void *handle, std::int32_t advance)
{
    kul &list = kulof(handle);
    if (list.current_kul == kul_none) return nullptr;
    void *item = list.items_kul[list.current_kul];
    if (advance != 0 && list.current_kul < list.nitems_kul - 1) list.current_kul++;
    return item;
}

void *kulpnext(kux *, void *handle)
{
    kul &list = kulof(handle);
    if (list.current_kul == kul_none || list.current_kul >= list.nitems_kul - 1) return nullptr;
    return list.items_kul[++list.current_kul];
}

void *kulpprev(kux *, void *handle)
{
    kul &list = kulof(handle);
    if (list.current_kul <= 0) return nullptr;
    return list.items_kul[--list.current_kul];
}

std::uint32_t kulpclear(kux *ctx, void *handle)
{
    kul &list = kulof(handle);
    if (kulislocked(list)) return kulrefuse(ctx, KULAA_LOCKED);
    list.nitems_kul = 0;
    list.current_kul = kul_none;
    return 0;
}

std::uint32_t kulpreplace(kux *ctx, void *handle, std::int32_t index, void *newitem)
{
    kul &list = kulof(handle);
    if (kulislocked(list)) return kulrefuse(ctx, KULAA_LOCKED);
    const std::int32_t slot = kulslot(list, index);
    if (slot == kul_none) return kulrefuse(ctx, KULAA_RANGE);
    list.items_kul[slot] = newitem;
    return 0;
}

std::uint32_t kulpinsert(kux *ctx, void *handle, std::int32_t index, void *newitem)
{
    kul &list = kulof(handle);
    if (kulislocked(list)) return kulrefuse(ctx, KULAA_LOCKED);
    const std::int32_t count = list.nitems_kul;
    if (index == KUL_APPEND)
        index = count;
    else if (index == KUL_LAST)
        index = count - 1;
    if (index < 0 || index > count) return kulrefuse(ctx, KULAA_RANGE);

    if (count == list.maxitems_kul) {
        const std::uint32_t status = kulrealloc(ctx, list, static_cast<std::uint64_t>(count) + 1);
        if (status != 0) return status;
    }
    void **slot = list.items_kul + index;
    const auto behind = static_cast<std::size_t>(count - index);
    if (behind > 0) std::memmove(slot + 1, slot, sizeof(void *) * behind);
    *slot = newitem;
    list.nitems_kul++;
    if (list.current_kul >= index) list.current_kul++;
    return 0;
}

std::uint32_t kulpdelete(kux *ctx, void *handle, std::int32_t index)
{
    kul &list = kulof(handle);
    if (kulislocked(list)) return kulrefuse(ctx, KULAA_LOCKED);
    const std::int32_t slot = kulslot(list, index);
    if (slot == kul_none) return kulrefuse(ctx, KULAA_RANGE);

    const auto behind = static_cast<std::size_t>(list.nitems_kul - 1 - slot);
    void **gap = list.items_kul + slot;
    std::memmove(gap, gap + 1, sizeof(void *) * behind);
    list.nitems_kul--;
    if (list.current_kul == slot)
        list.current_kul = kul_none;
    else if (list.current_kul > slot)
        list.current_kul--;
    return 0;
}

std::int32_t kulpfdelete(kux *ctx, void *list, const void *item)
{
    const std::int32_t index = kulpfind(ctx, list, item);
    if (index != kul_none) kulpdelete(ctx, list, index);
    return index;
}

std::uint32_t kulpitrate(kux *ctx, void *handle, kulitratefn function, void *clientarg,
                         std::int32_t ignorerr)
{
    const kul &list = kulof(handle);
    void *const *items = list.items_kul; // a callback may end the list it walks, at its last item
    const std::int32_t count = list.nitems_kul;
    for (std::int32_t slot = 0; slot < count; slot++) {
        const std::uint32_t status = function(ctx, items[slot], clientarg);
        if (status != 0 && ignorerr == 0) return status;
    }
    return 0;
}

std::uint32_t kulpqsort(kux *ctx, void *handle, kulcomparefn comparator, void *clientarg)
{
    const kul &list = kulof(handle);
    kuuqsort(ctx, list.items_kul, 0, list.nitems_kul - 1, comparator, clientarg);
    return 0;
}

// Looks in slots low to high - 1. The probe starts at the cursor where nearby
// look-ups follow one another, then halves what is left.
std::int32_t kulpsearch(kux *ctx, void *handle, void *item, kulcomparefn comparator,
                        void *clientarg, std::int32_t fromcurrent, std::int32_t *index)
{
    kul &list = kulof(handle);
    std::int32_t low = 0;
    std::int32_t high = list.nitems_kul;
    const bool nearby = fromcurrent != 0 && list.current_kul != kul_none;
    std::int32_t probe = nearby ? list.current_kul : high / 2;

    while (low < high) {
        const std::int32_t order = comparator(ctx, item, list.items_kul[probe], clientarg);
        if (order == 0) {
            list.current_kul = probe;
            *index = probe;
            return 1;
        }
        if (order < 0) {
            high = probe;
        } else {
            low = probe == low ? probe + 1 : probe;
        }
        probe = (high + low) / 2;
    }
    *index = low;
    return 0;
}

std::uint32_t kulpmerge(kux *ctx, void *handle1, void *handle2, kulcomparefn comparator,
                        void *clientarg)
{
    kul &list1 = kulof(handle1);
    const kul &list2 = kulof(handle2);
    if (list1.nitems_kul == 0) return kulpconcat(ctx, handle1, handle2);
    if (list2.nitems_kul == 0) return 0;

    const std::int32_t count1 = list1.nitems_kul;
    const std::int32_t count2 = list2.nitems_kul;
    const std::uint64_t slots =
        kulcapacity(static_cast<std::uint64_t>(count1) + static_cast<std::uint64_t>(count2));
    void **merged = kularray(ctx, slots);
    if (merged == nullptr) return kulrefuse(ctx, KULAA_NOMEM);

    std::int32_t i1 = 0;
    std::int32_t i2 = 0;
    std::int32_t count = 0;
    while (i1 < count1 && i2 < count2) {
        const std::int32_t order =
            comparator(ctx, list1.items_kul[i1], list2.items_kul[i2], clientarg);
        if (order == 0)
            i2++; // an equal one is there already, and the next may be equal too
        else
            merged[count++] = order > 0 ? list2.items_kul[i2++] : list1.items_kul[i1++];
    }
    kulcopy(merged + count, list1.items_kul + i1, count1 - i1);
    count += count1 - i1;
    kulcopy(merged + count, list2.items_kul + i2, count2 - i2);
    count += count2 - i2;

    ctx->kuxnmfree(ctx, list1.items_kul);
    list1.items_kul = merged;
    list1.nitems_kul = count;
    list1.maxitems_kul = static_cast<std::int32_t>(slots);
    return 0;
}

std::uint32_t kulpconcat(kux *ctx, void *dst, void *src)
{
    kul &target = kulof(dst);
    const kul &source = kulof(src); // may be the target: counts before the growth, items after it
    const std::int32_t before = target.nitems_kul;
    const std::int32_t added = source.nitems_kul;
    const std::int64_t count = std::int64_t{before} + added;
    if (count > target.maxitems_kul) {
        const std::uint32_t status = kulrealloc(ctx, target, static_cast<std::uint64_t>(count));
        if (status != 0) return status;
    }
    kulcopy(target.items_kul + before, source.items_kul, added);
    target.nitems_kul = static_cast<std::int32_t>(count);
    return 0;
}

kul *kulplock(kux *, void *handle)
{
    kul &list = kulof(handle);
    if (list.nlocks_kul < 1) list.itemsptr_kul = list.items_kul;
    list.nlocks_kul++;
    return &list;
}

void *kulpunlock(kux *, void *handle)
{
    kul &list = kulof(handle);
    if (list.nlocks_kul <= 0) return nullptr;
    list.nlocks_kul--;
    if (list.nlocks_kul == 0) list.itemsptr_kul = nullptr;
    return nullptr;
}
