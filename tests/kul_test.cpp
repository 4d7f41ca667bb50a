// kul_test.cpp - lists and their sort
#include "kul.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kuuq.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;
using items = std::vector<void *>;

char letters[] = "abcdefghijklmnopqrstuvwxyz"; // items are the addresses of its letters

// A list of the letters of a text.
struct list {
    context &ctx;
    void *handle;

    list(context &owner, const std::string &text)
        : ctx(owner), handle(kulpcreate(owner, 0, nullptr))
    {
        for (const char letter : text)
            kulpinsert(ctx, handle, KUL_APPEND, letters + (letter - 'a'));
    }
    list(context &owner, void *made) : ctx(owner), handle(made) {}
    ~list() { kulpdestroy(ctx, handle); }
    list(const list &) = delete;
    list &operator=(const list &) = delete;

    const kul &record() const { return *static_cast<kul *>(handle); }
    items held() const
    {
        return items(record().items_kul, record().items_kul + record().nitems_kul);
    }
    std::string text() const
    {
        std::string result;
        for (const void *item : held()) result += *static_cast<const char *>(item);
        return result;
    }
};

// By letter; notes who was compared with whom, two letters and a blank a call.
int32_t by_letter(kux *, void *a, void *b, void *calls)
{
    const char left = *static_cast<char *>(a);
    const char right = *static_cast<char *>(b);
    if (calls != nullptr) *static_cast<std::string *>(calls) += {left, right, ' '};
    return left - right;
}

TEST(Kul, RoomIsTheNextStepOf16AboveTheCount)
{
    context ctx;
    static constexpr int32_t rows[][2] = {{0, 16}, {15, 16}, {16, 32}, {20, 32}, {-40, 16}};
    for (const auto &[asked, slots] : rows) {
        const list made(ctx, kulpcreate(ctx, asked, nullptr));
        EXPECT_EQ(made.record().maxitems_kul, slots) << asked;
        EXPECT_EQ(kulpnitems(ctx, made.handle), 0);
    }
    EXPECT_EQ(kulpcreate(ctx, 0x40000000, nullptr), nullptr); // its bytes pass 32 bits
    EXPECT_ERRORS(ctx, {"kulaa 1"});
    EXPECT_EQ(kulpdestroy(ctx, nullptr), nullptr);
}

// What a list must hold, over a vector.
struct model {
    items held;
    int cursor = -1;
    int locks = 0;
    int slots = 16;

    int count() const { return static_cast<int>(held.size()); }
    bool has(int index) const { return index >= 0 && index < count(); }
    void *at(int index) const { return has(index) ? held[static_cast<size_t>(index)] : nullptr; }
    void *item(int index)
    {
        if (has(index)) cursor = at(index) != nullptr ? index : -1;
        return at(index);
    }
    void *go(int index) { return cursor >= 0 && has(index) ? at(cursor = index) : nullptr; }
    int find(const void *item)
    {
        const auto found = std::find(held.begin(), held.end(), item);
        return cursor = found != held.end() ? static_cast<int>(found - held.begin()) : -1;
    }
    void insert(int index, const items &more)
    {
        held.insert(held.begin() + index, more.begin(), more.end());
        if (count() > slots) slots = count() / 16 * 16 + 16;
    }
    void erase(int index)
    {
        held.erase(held.begin() + index);
        cursor = cursor == index ? -1 : cursor - (cursor > index ? 1 : 0);
    }
};

// One random step on a list and on its model. Returns the code that it must push.
uint32_t step(context &ctx, void *list, model &want, ku::test::dice &dice)
{
    const uint32_t letter = dice.below(27);
    void *item = letter < 26 ? letters + letter : nullptr;
    const int index = static_cast<int>(dice.below(static_cast<uint32_t>(want.count()) + 6)) - 3;
    const int slot = index == KUL_LAST ? want.count() - 1 : index;
    const int place = index == KUL_APPEND ? want.count() : slot;
    const auto refusal = [&](bool in_range) {
        return want.locks > 0 ? KULAA_LOCKED : in_range ? 0 : KULAA_RANGE;
    };
    // A change that was due: the model makes it too, unless growing found no memory.
    const auto change = [&](uint32_t status, uint32_t wanted, const auto &make, int more = 0) {
        const bool grows = want.count() + more > want.slots;
        if (grows && wanted == 0 && status == KULAA_NOMEM) return status;
        EXPECT_EQ(status, wanted);
        if (wanted == 0) make();
        return wanted;
    };
    switch (dice.below(18)) {
    case 0: EXPECT_EQ(kulpfirst(ctx, list), want.item(0)); return 0;
    case 1: EXPECT_EQ(kulplast(ctx, list), want.item(want.count() - 1)); return 0;
    case 2:
        EXPECT_EQ(kulpitem(ctx, list, index), want.item(slot));
        return want.has(slot) ? 0 : KULAA_RANGE;
    case 3: EXPECT_EQ(kulpnext(ctx, list), want.go(want.cursor + 1)); return 0;
    case 4: EXPECT_EQ(kulpprev(ctx, list), want.go(want.cursor - 1)); return 0;
    case 5: EXPECT_EQ(kulpcurrent(ctx, list, 0), want.go(want.cursor)); return 0;
    case 6:
        EXPECT_EQ(kulpcurrent(ctx, list, 1), want.go(want.cursor));
        want.go(want.cursor + 1);
        return 0;
    case 7: EXPECT_EQ(kulpfind(ctx, list, item), want.find(item)); return 0;
    case 8: EXPECT_EQ(kulpismember(ctx, list, item), want.find(item) >= 0 ? 1 : 0); return 0;
    case 9:
        if (!dice.one_in(16)) return 0;
        return change(kulpclear(ctx, list), refusal(true), [&] {
            want = {{}, -1, want.locks, want.slots};
        });
    case 10:
        return change(kulpreplace(ctx, list, index, item), refusal(want.has(slot)),
                      [&] { want.held[static_cast<size_t>(slot)] = item; });
    case 11:
        return change(kulpdelete(ctx, list, index), refusal(want.has(slot)),
                      [&] { want.erase(slot); });
    case 12: {
        const int found = kulpfdelete(ctx, list, item); // the index also when it is locked
        EXPECT_EQ(found, want.find(item));
        if (found < 0) return 0;
        return change(kuxercode(ctx), refusal(true), [&] { want.erase(found); });
    }
    case 13: EXPECT_EQ(kulplock(ctx, list), list); return want.locks++, 0;
    case 14:
    case 15: EXPECT_EQ(kulpunlock(ctx, list), nullptr); return want.locks -= want.locks > 0, 0;
    case 16: // to itself, whose array may move; locked or not
        if (want.count() > 50) return 0;
        return change(
            kulpconcat(ctx, list, list), 0, [&] { want.insert(want.count(), items(want.held)); },
            want.count());
    default:
        return change(
            kulpinsert(ctx, list, index, item), refusal(place >= 0 && place <= want.count()),
            [&] {
                want.insert(place, {item});
                if (want.cursor >= place) want.cursor++;
            },
            1);
    }
}

TEST(Kul, RandomStepsMatchAVectorWithACursorEvenShortOfMemory)
{
    context ctx;
    ku::test::dice dice;
    list real(ctx, "");
    model want;
    ctx.fail_one_in(3);
    for (int n = 0; n < 20000; n++) {
        SCOPED_TRACE("step " + std::to_string(n));
        const uint32_t code = step(ctx, real.handle, want, dice);
        ASSERT_EQ(real.held(), want.held);
        ASSERT_EQ(real.record().current_kul, want.cursor);
        ASSERT_EQ(real.record().maxitems_kul, want.slots);
        ASSERT_EQ(real.record().itemsptr_kul != nullptr, want.locks > 0);
        ASSERT_EQ(kuxernerrors(ctx), code != 0 ? 1 : 0);
        ASSERT_EQ(kuxercode(ctx), code);
        ASSERT_FALSE(testing::Test::HasFailure());
        ctx.clear();
    }
}

TEST(Kul, ACallbackSeesAllItemsOrEndsTheWalk)
{
    context ctx;
    list walked(ctx, "abc");
    std::string seen;
    const kulitratefn status_of_b = [](kux *, void *item, void *text) -> uint32_t {
        *static_cast<std::string *>(text) += *static_cast<char *>(item);
        return *static_cast<char *>(item) == 'b' ? 7 : 0;
    };
    EXPECT_EQ(kulpitrate(ctx, walked.handle, status_of_b, &seen, 0), 7u);
    EXPECT_EQ(kulpitrate(ctx, walked.handle, status_of_b, &seen, 1), 0u);
    EXPECT_EQ(seen, "ababc");
}

// By rank; notes who was compared with whom. A hostile one decides ranks while it is asked,
// as badly as it can: the first two elements that meet a new pivot are above it, all others
// below.
struct order {
    std::vector<int> rank; // by element; 0: not decided, below all that are
    bool hostile = false;
    int next = INT32_MAX;
    int above = 0; // elements still to go above the present pivot
    items calls = {};

    static int32_t compare(kux *, void *a, void *b, void *self)
    {
        auto &all = *static_cast<order *>(self);
        int &left = all.rank[reinterpret_cast<uintptr_t>(a)];
        int &pivot = all.rank[reinterpret_cast<uintptr_t>(b)];
        if (all.hostile && pivot == 0) pivot = all.next -= all.above = 3;
        if (all.hostile && left == 0 && all.above > 1) left = all.next + --all.above;
        all.calls.insert(all.calls.end(), {a, b});
        return left < pivot ? -1 : left > pivot ? 1 : 0;
    }
};

// The sort as it is promised, one call for each part; what kuuqsort must do without recursing.
void sort_plainly(void **array, int left, int right, kulcomparefn compare, void *arg)
{
    if (right <= left) return;
    const int middle = (left + right + 1) / 2;
    void *pivot = std::exchange(array[middle], array[right]);
    array[right] = pivot;
    int l = left;
    int r = right;
    while (r > l) {
        while (compare(nullptr, array[l], pivot, arg) < 0) l++;
        while (compare(nullptr, array[r], pivot, arg) >= 0 && r > l) r--;
        std::swap(array[l], array[r <= l ? right : r]);
    }
    sort_plainly(array, left, l - 1, compare, arg);
    sort_plainly(array, l + 1, right, compare, arg);
}

TEST(Kul, SortsToOnePermutationByOneOrderOfCallsHoweverManyPartsWait)
{
    context ctx;
    ku::test::dice dice;
    for (uint32_t length = 0; length <= 60; length++) {
        order plainly = {std::vector<int>(length)};
        plainly.hostile = length == 60;
        if (plainly.hostile) plainly.rank.resize(1500);
        for (int &rank : plainly.rank)
            rank = plainly.hostile ? 0 : static_cast<int>(dice.below(1 + length / 2));
        order asked = plainly;
        items want;
        for (uintptr_t element = 0; element < plainly.rank.size(); element++)
            want.push_back(reinterpret_cast<void *>(element));
        const auto count = static_cast<int32_t>(want.size());
        const list sorted(ctx, kulpcreate(ctx, count, want.data()));
        sort_plainly(want.data(), 0, count - 1, order::compare, &plainly);
        EXPECT_EQ(kulpqsort(ctx, sorted.handle, order::compare, &asked), 0u);
        EXPECT_TRUE(sorted.held() == want) << length;
        EXPECT_TRUE(asked.calls == plainly.calls) << length;
        EXPECT_EQ(INT32_MAX - asked.next > count * 9 / 10, asked.hostile); // each part the worst
    }
}

TEST(Kul, SearchFindsAnItemOrItsPlaceFromAnyCursorByOneOrderOfCalls)
{
    context ctx;
    const std::string sorted = "bdfhjlnprtvx"; // every second letter
    int32_t index = -9;
    std::string calls;
    for (size_t length = 0; length <= sorted.size(); length++) {
        const std::string held = sorted.substr(0, length);
        list searched(ctx, held);
        for (int from = -1; from < static_cast<int>(length); from++) {
            for (char letter = 'a'; letter <= 'y'; letter++) {
                kulpfind(ctx, searched.handle,
                         from < 0 ? nullptr : searched.held()[static_cast<size_t>(from)]);
                const int32_t nearby = letter % 3 == 0 ? 0 : 1;
                const auto start = nearby && from >= 0 ? static_cast<size_t>(from) : length / 2;
                const auto place =
                    std::lower_bound(held.begin(), held.end(), letter) - held.begin();
                calls.clear();
                const int32_t found = kulpsearch(ctx, searched.handle, letters + (letter - 'a'),
                                                 by_letter, &calls, nearby, &index);
                EXPECT_EQ(index, place) << held << " " << letter << " from " << from;
                EXPECT_EQ(found, held.find(letter) != held.npos ? 1 : 0);
                EXPECT_EQ(searched.record().current_kul, found != 0 ? place : from);
                EXPECT_LE(calls.size(), 6u * 3); // logarithmic
                EXPECT_EQ(calls.substr(0, 2),
                          held.empty() ? "" : (std::string{letter, held[start]}));
            }
        }
    }
    kulpsearch(ctx, list(ctx, sorted).handle, letters + 24, by_letter, &(calls = ""), 0, &index);
    EXPECT_EQ(calls, "yn yt yv yx yx ");
}

TEST(Kul, MergeAndCopyKeepToTheirRulesEvenShortOfMemory)
{
    static constexpr struct {
        const char *first, *second, *merged;
        int32_t slots;
    } rows[] = {
        {"ace", "bcf", "abcef", 16},
        {"", "bb", "bb", 16}, // all of it
        {"bb", "", "bb", 16},
        {"aac", "abbc", "aabbc", 16},
        {"aaaaaaaa", "aaaaaaaa", "aaaaaaaa", 32}, // room for the sum
    };
    for (const auto &row : rows) {
        ku::test::sweep_allocations([&](context &ctx) {
            std::optional<ku::test::spared> setting_up(ctx);
            list first(ctx, row.first);
            list second(ctx, row.second);
            kulplast(ctx, first.handle);
            const int32_t cursor = kulplock(ctx, first.handle)->current_kul;
            setting_up.reset();

            const bool merged =
                kulpmerge(ctx, first.handle, second.handle, by_letter, nullptr) == 0;
            EXPECT_EQ(first.text(), merged ? row.merged : row.first);
            EXPECT_EQ(first.record().maxitems_kul, merged ? row.slots : 16);
            EXPECT_EQ(first.record().current_kul, cursor);
            EXPECT_EQ(second.text(), row.second);
            EXPECT_ERRORS(ctx, std::vector<std::string>(merged ? 0 : 1, "kulaa 1"));

            void *made = kulpcpy(ctx, first.handle);
            EXPECT_ERRORS(ctx, std::vector<std::string>(made != nullptr ? 0 : 1, "kulaa 1"));
            if (made == nullptr) return false;
            const list copy(ctx, made);
            EXPECT_EQ(copy.text(), first.text());
            EXPECT_EQ(copy.record().current_kul, -1);
            EXPECT_EQ(kulpinsert(ctx, made, KUL_APPEND, nullptr), 0u); // not locked
            return merged;
        });
    }
}

} // namespace
