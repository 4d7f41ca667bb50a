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
constexpr std::int32_t kuuq_ahead = 16;

// Partitions slots left to right, at least two. The slot where the pivot came to stand.
std::int32_t kuuqpartition(kux *ctx, void **array, kuuqpart part, kulcomparefn comparator,
                           void *clientarg)
{
    const std::int32_t middle = part.left + (part.right - part.left + 1) / 2;
    void *pivot = array[middle];
    array[middle] = array[part.right];
    array[part.right] = pivot;

    std::int32_t l = part.left;
    std::int32_t r = part.right;
    while (r > l) {
        // The pivot itself stops l; the bound holds for a comparator that contradicts itself.
        while (comparator(ctx, array[l], pivot, clientarg) < 0 && l < part.right) {
            l++;
            __builtin_prefetch(array[part.right - l > kuuq_ahead ? l + kuuq_ahead : part.right]);
        }
        while (comparator(ctx, array[r], pivot, clientarg) >= 0 && r > l) {
            r--;
            __builtin_prefetch(array[r - part.left > kuuq_ahead ? r - kuuq_ahead : part.left]);
        }
        std::swap(array[l], array[r <= l ? part.right : r]);
    }
    return l;
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
