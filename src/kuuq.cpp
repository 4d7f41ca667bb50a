// kuuq.cpp - quicksort of pointers with a fixed permutation
//
// One partition (Hoare 1962) takes the upper middle element as pivot and parks
// it in the last slot:
//
//     | below the pivot | l . . . r | not below the pivot | pivot |
//
// l and r close in on each other and exchange what stands on the wrong side;
// where they meet the pivot goes. Then the left part is sorted, then the right.
// Clients rely on which permutation of equal elements comes out, so the steps
// and the order of the comparator's calls never change.
//
// The right parts wait on a small stack in the frame, 8 bytes each, while the
// left one is sorted; parts of fewer than two elements do not wait. On ordinary
// data a few dozen wait at most. Data made to defeat the pivot can leave a third
// of the elements as waiting parts: then the stack fills, and the call goes on in
// one more frame for every `kuuq_waiting` of them, so that a million elements
// never take more than about 4 megabytes. Equal elements leave the left part
// empty: quadratic time, but nothing waits.
#include "kuuq.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace
{

struct kuuqpart {
    std::int32_t left;  // first slot
    std::int32_t right; // last slot; a part is to be sorted when it is above left
};

constexpr int kuuq_waiting = 128; // parts that wait in one frame

// Slots by which the scans ask ahead for what their elements point to. Most
// often that is what the comparator reads; for any other value asking is harmless.
constexpr std::ptrdiff_t kuuq_ahead = 16;

// Partitions slots left to right, at least two. The slot where the pivot came to stand.
std::int32_t kuuqpartition(kux *ctx, void **array, kuuqpart part, kulcomparefn comparator,
                           void *clientarg)
{
    void **const first = array + part.left;
    void **const last = array + part.right;
    void **const middle = first + (std::int64_t{part.right} - part.left + 1) / 2;
    void *pivot = *middle;
    *middle = *last;
    *last = pivot;
    const auto is_below = [&](void *item) { return comparator(ctx, item, pivot, clientarg) < 0; };

    void **l = first;
    void **r = last;
    while (r > l) {
        // The pivot itself stops l; the bound holds for a comparator that contradicts itself.
        // A scan's first question is apart from the others: after an exchange the processor
        // foresees its answer.
        bool below = is_below(*l);
        while (below && l < last) {
            l++;
            __builtin_prefetch(l[last - l > kuuq_ahead ? kuuq_ahead : 0]);
            below = is_below(*l);
        }
        below = is_below(*r);
        while (!below && r > l) {
            r--;
            __builtin_prefetch(r[r - first > kuuq_ahead ? -kuuq_ahead : 0]);
            below = is_below(*r);
        }
        std::swap(*l, r <= l ? *last : *r);
    }
    return static_cast<std::int32_t>(l - array);
}

} // namespace

void kuuqsort(kux *ctx, void **array, std::int32_t left, std::int32_t right,
              kulcomparefn comparator, void *clientarg)
{
    kuuqpart waiting[kuuq_waiting];
    int nwaiting = 0;
    kuuqpart part = {left, right};
    for (;;) {
        while (part.right > part.left) {
            const std::int32_t pivot = kuuqpartition(ctx, array, part, comparator, clientarg);
            const kuuqpart before = {part.left, pivot - 1};
            const kuuqpart behind = {pivot + 1, part.right};
            if (behind.right <= behind.left) {
                part = before;
            } else if (before.right <= before.left) {
                part = behind;
            } else if (nwaiting < kuuq_waiting) {
                waiting[nwaiting++] = behind;
                part = before;
            } else {
                kuuqsort(ctx, array, before.left, before.right, comparator, clientarg);
                part = behind;
            }
        }
        if (nwaiting == 0) return;
        part = waiting[--nwaiting];
    }
}
