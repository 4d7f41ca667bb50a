// kurl.cpp - position sets: windows on shared rows, or lists of their own
//
// A tree has several sets a node, and most are parts of one another: firstpos of
// `a|b|c` is a's and then that of `b|c`. Copied out they would take the square of
// the pattern. So the construction makes windows:
//
//     row      | . . | a | b | c | d | . . . |      filled from low to high
//     windows        [ a | b | c ]
//                        [ b | c | d ]
//
// Joining two windows looks whether the smaller one already lies beside the
// larger one, else writes it there if that end of the row is free and has room,
// else makes a new row with as much room again on the side that grew. So an item
// is copied when its set is the smaller half, or when a row doubles: n log n at
// most for sets that are joined as a tree joins them. Slots that a window shows
// never change, so that windows need not know of each other.
//
// A window is a locked list: clients read it as any list, and the list's
// operations refuse to change it. Sets made by kurlcreate have a list of their
// own, and a window gets one before kurlconcat or kurlmerge changes it.
#include "kurl.h"

#include <algorithm>
#include <cstddef>

#include "kuguard.h"
#include "kurl_internal.h"
#include "kurn.h"

namespace
{

kurlset &kurlof(kurl &set) { return reinterpret_cast<kurlset &>(set); }
const kurlset &kurlof(const kurl &set) { return reinterpret_cast<const kurlset &>(set); }

bool kurliswindow(const kurl &set) { return set.nfalist_kurl == &kurlof(set).window; }

// Ends the set's list, whichever it is.
void kurlclear(kux *ctx, kurl &set)
{
    kurlset &whole = kurlof(set);
    if (kurliswindow(set))
        kurlrowrelease(ctx, whole.row);
    else
        kulpdestroy(ctx, set.nfalist_kurl);
    whole.row = nullptr;
    set.nfalist_kurl = nullptr;
}

// Gives the set a list of its own with what it holds.
bool kurlunshare(kux *ctx, kurl &set)
{
    if (set.nfalist_kurl != nullptr && !kurliswindow(set)) return true;
    const kurlspan held = kurlview(set);
    void *list = kulpcreate(ctx, static_cast<std::int32_t>(held.count),
                            reinterpret_cast<void *const *>(held.items));
    if (list == nullptr) return false;
    kurlclear(ctx, set);
    set.nfalist_kurl = list;
    return true;
}

bool kurlsame(kurno *const *a, kurno *const *b, std::uint32_t count)
{
    return std::equal(a, a + count, b);
}

// b's items already lie behind a, or fit there.
bool kurlbehind(const kurlspan &a, const kurlspan &b)
{
    if (a.row == nullptr) return false;
    kurlrow &row = *a.row;
    const auto end = static_cast<std::uint32_t>(a.end() - row.items);
    if (row.high - end >= b.count) return kurlsame(a.end(), b.items, b.count);
    if (end != row.high || row.room - end < b.count) return false;
    std::copy(b.items, b.end(), a.end());
    row.high += b.count;
    return true;
}

// a's items already lie before b, or fit there.
bool kurlbefore(const kurlspan &a, const kurlspan &b)
{
    if (b.row == nullptr) return false;
    kurlrow &row = *b.row;
    const auto begin = static_cast<std::uint32_t>(b.items - row.items);
    kurno **place = b.items - a.count;
    if (begin - row.low >= a.count) return kurlsame(place, a.items, a.count);
    if (begin != row.low || begin < a.count) return false;
    std::copy(a.items, a.end(), place);
    row.low -= a.count;
    return true;
}

// A window on a new row with room on the side of the smaller part.
bool kurlfresh(kux *ctx, const kurlspan &a, const kurlspan &b, kurlspan &joined)
{
    const std::uint64_t count = std::uint64_t{a.count} + b.count;
    const std::uint64_t before = b.count >= a.count ? count : 0;
    const std::uint64_t behind = a.count >= b.count ? count : 0;
    kurlrow *row = nullptr;
    if (before + count + behind <= INT32_MAX)
        row = kurlrowcreate(ctx, static_cast<std::uint32_t>(before + count + behind),
                            static_cast<std::uint32_t>(before));
    if (row == nullptr) {
        ku::failure(ctx);
        return false;
    }
    row->holders = 0;
    row->high += static_cast<std::uint32_t>(count);
    joined = {row, row->items + before, static_cast<std::uint32_t>(count)};
    std::copy(b.items, b.end(), std::copy(a.items, a.end(), joined.items));
    return true;
}

std::uint32_t kurlunioncount(const kurlspan &a, const kurlspan &b)
{
    std::uint32_t common = 0;
    kurno **at = b.items;
    for (kurno **each = a.items; each != a.end() && at != b.end(); each++) {
        while (at != b.end() && (*at)->nodeid_kurno < (*each)->nodeid_kurno) at++;
        if (at != b.end() && *at == *each) common++;
    }
    return a.count + b.count - common;
}

} // namespace

kurlspan kurlview(const kurl &set)
{
    const auto *list = static_cast<const kul *>(set.nfalist_kurl);
    if (list == nullptr) return {};
    return {kurliswindow(set) ? kurlof(set).row : nullptr,
            reinterpret_cast<kurno **>(list->items_kul),
            static_cast<std::uint32_t>(list->nitems_kul)};
}

kurlrow *kurlrowcreate(kux *ctx, std::uint32_t room, std::uint32_t low)
{
    const std::uint64_t bytes =
        offsetof(kurlrow, items) + std::uint64_t{room == 0 ? 1 : room} * sizeof(kurno *);
    auto *row = static_cast<kurlrow *>(ku::allocate(ctx, bytes, 1));
    if (row == nullptr) return nullptr;
    row->holders = 1;
    row->room = room;
    row->low = low;
    row->high = low;
    return row;
}

void kurlrowrelease(kux *ctx, kurlrow *row)
{
    if (row != nullptr && --row->holders == 0) ctx->kuxnmfree(ctx, row);
}

kurl *kurlwindow(kux *ctx, const kurlspan &span)
{
    auto *whole = ku::allocate<kurlset>(ctx);
    if (whole == nullptr) {
        ku::failure(ctx);
        return nullptr;
    }
    whole->open.rcount_kurl = 1;
    whole->open.nfalist_kurl = &whole->window;
    kurlassign(ctx, whole->open, span);
    return &whole->open;
}

void kurlassign(kux *ctx, kurl &set, const kurlspan &span)
{
    if (span.row != nullptr) span.row->holders++;
    kurlclear(ctx, set);
    kurlset &whole = kurlof(set);
    whole.row = span.row;
    const auto count = static_cast<std::int32_t>(span.count);
    // An empty one must lie somewhere too: a list without an address is not locked.
    static constexpr void *nowhere[1] = {};
    auto **items =
        span.count != 0 ? reinterpret_cast<void **>(span.items) : const_cast<void **>(nowhere);
    whole.window = {count, count, -1, 1, items, items};
    set.nfalist_kurl = &whole.window;
}

bool kurlappend(kux *ctx, const kurlspan &a, const kurlspan &b, kurlspan &joined)
{
    if (a.count == 0 && b.row != nullptr) {
        joined = b;
    } else if (b.count == 0 && a.row != nullptr) {
        joined = a;
    } else if (a.row != nullptr && a.row == b.row && a.end() == b.items) {
        joined = {a.row, a.items, a.count + b.count};
    } else if (b.count <= a.count && kurlbehind(a, b)) {
        joined = {a.row, a.items, a.count + b.count};
    } else if (a.count <= b.count && kurlbefore(a, b)) {
        joined = {b.row, b.items - a.count, a.count + b.count};
    } else {
        return kurlfresh(ctx, a, b, joined);
    }
    return true;
}

bool kurlunite(kux *ctx, const kurlspan &a, const kurlspan &b, kurlspan &joined)
{
    if (a.count == 0 || b.count == 0) return kurlappend(ctx, a, b, joined);
    if (a.end()[-1]->nodeid_kurno < b.items[0]->nodeid_kurno) return kurlappend(ctx, a, b, joined);
    if (b.end()[-1]->nodeid_kurno < a.items[0]->nodeid_kurno) return kurlappend(ctx, b, a, joined);

    const std::uint32_t count = kurlunioncount(a, b);
    if (count == b.count && b.row != nullptr) {
        joined = b;
        return true;
    }
    if (count == a.count && a.row != nullptr) {
        joined = a;
        return true;
    }
    kurlrow *row = kurlrowcreate(ctx, count, 0);
    if (row == nullptr) {
        ku::failure(ctx);
        return false;
    }
    row->holders = 0;
    row->high = count;
    joined = {row, row->items, count};
    std::set_union(
        a.items, a.end(), b.items, b.end(), row->items,
        [](const kurno *x, const kurno *y) { return x->nodeid_kurno < y->nodeid_kurno; });
    return true;
}

void kurldrop(kux *ctx, const kurlspan &span)
{
    if (span.row != nullptr && span.row->holders == 0) ctx->kuxnmfree(ctx, span.row);
}

kurl *kurlcreate(kux *ctx, std::uint32_t numitems, kurno *const *itemsp)
{
    auto *whole = ku::allocate<kurlset>(ctx);
    if (whole != nullptr && numitems <= INT32_MAX)
        whole->open.nfalist_kurl = kulpcreate(ctx, static_cast<std::int32_t>(numitems),
                                              reinterpret_cast<void *const *>(itemsp));
    if (whole == nullptr || whole->open.nfalist_kurl == nullptr) {
        ku::failure(ctx);
        if (whole != nullptr) ctx->kuxnmfree(ctx, whole);
        return nullptr;
    }
    whole->open.rcount_kurl = 1;
    return &whole->open;
}

kurl *kurlcopy(kux *, kurl *set)
{
    if (set != nullptr) set->rcount_kurl++;
    return set;
}

kurl *kurldestroy(kux *ctx, kurl *set)
{
    if (set == nullptr || --set->rcount_kurl > 0) return nullptr;
    kurlclear(ctx, *set);
    ctx->kuxnmfree(ctx, set);
    return nullptr;
}

std::uint32_t kurlconcat(kux *ctx, kurl *set1, kurl *set2)
{
    if (set1 == nullptr || set2 == nullptr || set2->nfalist_kurl == nullptr) return 0;
    if (!kurlunshare(ctx, *set1)) return ku::failure(ctx);
    return kulpconcat(ctx, set1->nfalist_kurl, set2->nfalist_kurl);
}

std::uint32_t kurlmerge(kux *ctx, kurl *set1, kurl *set2)
{
    if (set1 == nullptr || set2 == nullptr || set1 == set2 || set2->nfalist_kurl == nullptr)
        return 0;
    if (!kurlunshare(ctx, *set1)) return ku::failure(ctx);
    return kulpmerge(ctx, set1->nfalist_kurl, set2->nfalist_kurl, kurlcomp, nullptr);
}

std::int32_t kurlcomp(kux *, void *a, void *b, void *)
{
    const std::uint32_t first = static_cast<const kurno *>(a)->nodeid_kurno;
    const std::uint32_t second = static_cast<const kurno *>(b)->nodeid_kurno;
    return first < second ? -1 : first > second ? 1 : 0;
}

std::int32_t kurlequiv(kux *, kurl *set1, kurl *set2)
{
    const kurlspan a = set1 != nullptr ? kurlview(*set1) : kurlspan();
    const kurlspan b = set2 != nullptr ? kurlview(*set2) : kurlspan();
    return a.count == b.count && kurlsame(a.items, b.items, a.count) ? 1 : 0;
}

std::uint32_t kurlstrip(kux *ctx, kurl *set)
{
    if (set != nullptr) kurlclear(ctx, *set);
    return 0;
}
