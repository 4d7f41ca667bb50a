// kuob_test.cpp - observers and observer lists; reference cells
#include "kuob.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kul.h"
#include "kumr.h"
#include "kuxdn.h"
#include "support/context.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;

TEST(Kumr, TheLastHolderDestroysOnce)
{
    context ctx;
    struct shared {
        kumr cell;
        int destroyed;
    };
    const kumrdestroyfn destroy = [](kux *, void *obj) -> uint32_t {
        return 40 + static_cast<uint32_t>(++static_cast<shared *>(obj)->destroyed);
    };
    shared object = {{nullptr, 9}, 0};
    kumra attrs = {KUMRA_DESTROY | KUMRA_REFCOUNT, destroy, 5};
    EXPECT_EQ(kumrinit(ctx, &object, &attrs), 0u); // the count is 1 whatever is asked
    EXPECT_EQ(kumrref(ctx, &object), 0u);
    EXPECT_EQ(kumrget(ctx, &object, &attrs), 0u);
    EXPECT_EQ(attrs.refcount_kumra, 2u);
    attrs.refcount_kumra = 7;
    EXPECT_EQ(kumrset(ctx, &object, &attrs), 0u); // nor can it be set
    EXPECT_EQ(kumrdref(ctx, &object), 0u);
    EXPECT_EQ(object.destroyed, 0);
    EXPECT_EQ(kumrdref(ctx, &object), 41u);
    EXPECT_EQ(kumrdref(ctx, &object), 0u); // nobody is left to let go
    EXPECT_EQ(object.destroyed, 1);
    EXPECT_EQ(kumrdestroy(ctx, &object), 42u);

    EXPECT_EQ(kumrinit(ctx, &object, nullptr), 0u);
    attrs = {0, destroy, 77};
    EXPECT_EQ(kumrget(ctx, &object, &attrs), 0u);
    EXPECT_TRUE(attrs.destroy_kumra == destroy && attrs.refcount_kumra == 77);
    EXPECT_EQ(kumrdref(ctx, &object), 0u); // without a callback
    EXPECT_EQ(object.cell.refcount_kumr, 0u);
}

// Observers by letter; what each does when it is told is a script of steps: "-b" removes all
// of b's, "+b" appends one, "!" pushes an error, "." asks that no others are told, "?" tells
// the list type 8.
struct stage {
    context &ctx;
    void *list;
    std::string told;
    struct party {
        stage *all;
        char letter;
        std::string script;
    } parties[6] = {};

    explicit stage(context &owner) : ctx(owner), list(kulpcreate(owner, 0, nullptr))
    {
        for (int i = 0; i < 6; i++) parties[i] = {this, static_cast<char>('a' + i), ""};
    }
    ~stage() { EXPECT_EQ(kuobldestroy(ctx, list), 0u); }
    stage(const stage &) = delete;
    stage &operator=(const stage &) = delete;

    party &of(char letter) { return parties[letter - 'a']; }
    uint32_t append(char letter, uint32_t type)
    {
        const kuoba attrs = {15, type, notify, &of(letter), &told, {}};
        return kuobappend(ctx, list, &attrs);
    }
    std::string listed() const
    {
        std::string letters;
        for (int32_t i = 0; i < kulpnitems(ctx, list); i++) {
            const auto *observer = static_cast<kuob *>(static_cast<kul *>(list)->items_kul[i]);
            letters += static_cast<party *>(observer->observer_kuob)->letter;
        }
        return letters;
    }
    static uint32_t notify(kux *, void *observer, uint32_t type, void *object, void *told)
    {
        const party &self = *static_cast<party *>(observer);
        stage &all = *self.all;
        EXPECT_EQ(object, &all);
        *static_cast<std::string *>(told) += type == 8 ? 'A' + (self.letter - 'a') : self.letter;
        uint32_t answer = 12345;
        for (size_t i = 0; i < self.script.size() && type != 8; i++) {
            switch (self.script[i]) {
            case '-':
                EXPECT_EQ(kuobremove(all.ctx, all.list, &all.of(self.script[++i])), 0u);
                break;
            case '+': EXPECT_EQ(all.append(self.script[++i], 6), 0u); break;
            case '!': kuxer0push(all.ctx, DEPOB_INCOMPLETE); break;
            case '?': EXPECT_EQ(kuoblnotify(all.ctx, all.list, object, 8), 0u); break;
            default: answer = DEPOB_STOP;
            }
        }
        return answer;
    }
};

TEST(Kuob, AListIsToldInOrderWhileItIsBeingChanged)
{
    static constexpr struct {
        const char *observers; // letter and type of each
        uint32_t type;
        const char *scripts; // of one observer, after its letter; up to two, one blank between
        const char *told, *left;
        uint32_t status;
        int errors;
    } rows[] = {
        {"a6b6c1", 2, "", "ab", "abc", 0, 0},
        {"a6b6c1", 4, "", "ab", "abc", 0, 0},
        {"a6b6c1", 1, "", "c", "abc", 0, 0},
        {"a6b6c1", 7, "", "abc", "abc", 0, 0},
        {"a6b0c1", 8, "", "", "abc", 0, 0},
        {"", 255, "", "", "", 0, 0},
        {"a1b1c1", 1, "a-a", "abc", "bc", 0, 0},    // itself
        {"a1b1c1", 1, "a-b", "ac", "ac", 0, 0},     // one that waits
        {"a1b1c1", 1, "b-a", "abc", "bc", 0, 0},    // one that was told
        {"a1b1c1", 1, "b-b-c-a", "ab", "", 0, 0},   // all of them
        {"a1", 1, "a-a", "a", "", 0, 0},            // the only one
        {"a1b1c1", 1, "c-c", "abc", "ab", 0, 0},    // the last one
        {"a1b1a1", 1, "b-a", "ab", "b", 0, 0},      // one that is listed twice
        {"a1b1a1", 1, "a-a", "ab", "b", 0, 0},      // and that removes both
        {"a6b6", 2, "a+c b+d", "ab", "abcd", 0, 0}, // new ones wait for the next time
        {"a1b8c9", 1, "a?", "aBCc", "abc", 0, 0},   // a pass within a pass
        {"a1b1c1", 1, "b.", "ab", "abc", 0, 0},     // the newest code: none
        {"a1b1c1", 1, "a! b.", "ab", "abc", DEPOB_INCOMPLETE, 1},
        {"a1b1c1", 1, "b!", "abc", "abc", DEPOB_ERRORS, 1}, // the rest are told all the same
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.observers) + " " + row.scripts);
        context ctx;
        stage scene(ctx);
        for (const char *each = row.observers; *each != 0; each += 2)
            EXPECT_EQ(scene.append(each[0], static_cast<uint32_t>(each[1] - '0')), 0u);
        for (std::string rest = row.scripts; !rest.empty();) {
            const std::string one = rest.substr(0, rest.find(' '));
            scene.of(one[0]).script = one.substr(1);
            rest.erase(0, one.size() + 1);
        }
        EXPECT_EQ(kuoblnotify(ctx, scene.list, &scene, row.type), row.status);
        EXPECT_EQ(scene.told, row.told);
        EXPECT_EQ(scene.listed(), row.left);
        EXPECT_ERRORS(ctx, std::vector<std::string>(static_cast<size_t>(row.errors), "depob 1"));
    }
    context full("ascii", 1); // a full level never has more records than before
    stage scene(full);
    scene.append('a', 1);
    scene.of('a').script = "!";
    EXPECT_EQ(kuoblnotify(full, scene.list, &scene, 1), DEPOB_ERRORS);
    EXPECT_EQ(kuoblnotify(full, scene.list, &scene, 1), 0u);
    EXPECT_ERRORS(full, {"depob 1"});
}

TEST(Kuob, AnObserverIsFoundByTheFieldsThatTheMaskSelects)
{
    context ctx;
    stage scene(ctx);
    const uint32_t types[] = {6, 1, 6};
    for (int i = 0; i < 3; i++) scene.append("aba"[i], types[i]);
    void **items = static_cast<kul *>(scene.list)->items_kul;
    std::string other;
    const struct {
        uint32_t mask;
        kuoba attrs;
        int found; // index, or -1
    } rows[] = {
        {0, {}, 0},
        {KUOBA_TYPE, {0, 1, nullptr, nullptr, nullptr, {}}, 1},
        {KUOBA_TYPE, {0, 2, nullptr, nullptr, nullptr, {}}, -1}, // equal, not overlapping
        {KUOBA_OBSERVER, {0, 0, nullptr, &scene.of('b'), nullptr, {}}, 1},
        {KUOBA_OBSERVER | KUOBA_TYPE, {0, 6, nullptr, &scene.of('b'), nullptr, {}}, -1},
        {KUOBA_NOTIFYFUN, {0, 0, stage::notify, nullptr, nullptr, {}}, 0},
        {KUOBA_NOTIFYFUN, {0, 0, nullptr, nullptr, nullptr, {}}, -1},
        {KUOBA_CLIENTDATA, {0, 0, nullptr, nullptr, &other, {}}, -1},
        {KUOBA_CLIENTDATA, {0, 0, nullptr, nullptr, &scene.told, {}}, 0},
    };
    for (const auto &row : rows) {
        kuoba attrs = row.attrs;
        attrs.mask_kuoba = row.mask;
        kuob *found = static_cast<kuob *>(items[2]);
        EXPECT_EQ(kuobfind(ctx, scene.list, &attrs, &found), 0u);
        EXPECT_EQ(found, row.found < 0 ? nullptr : items[row.found]) << row.mask;
    }
    kulplock(ctx, scene.list); // refused while locked, and nothing released
    EXPECT_EQ(kuobremove(ctx, scene.list, &scene.of('a')), KULAA_LOCKED);
    EXPECT_EQ(scene.append('c', 1), KULAA_LOCKED);
    EXPECT_ERRORS(ctx, {"kulaa 2", "kulaa 2"});
    EXPECT_EQ(scene.listed(), "aba");
    kulpunlock(ctx, scene.list);
    EXPECT_EQ(kuobremove(ctx, scene.list, &scene.of('a')), 0u);
    EXPECT_EQ(scene.listed(), "b"); // find left it unlocked
}

TEST(Kuob, AnObserverNeedsATypeAndAFunctionAndKeepsTheRestAsSet)
{
    context ctx;
    int party = 0;
    kuoba attrs = {0, 1, stage::notify, &party, &party, {}};
    for (const uint32_t mask : {0u, KUOBA_TYPE, KUOBA_NOTIFYFUN, 12u}) {
        attrs.mask_kuoba = mask;
        EXPECT_EQ(kuobcreate(ctx, &attrs), nullptr);
    }
    const kuoba nothing_to_call = {3, 1, nullptr, nullptr, nullptr, {}};
    EXPECT_EQ(kuobcreate(ctx, &nothing_to_call), nullptr);
    EXPECT_EQ(kuobcreate(ctx, nullptr), nullptr);
    EXPECT_ERRORS(ctx, std::vector<std::string>(6, "depob 1"));

    attrs.mask_kuoba = KUOBA_TYPE | KUOBA_NOTIFYFUN;
    kuob *observer = kuobcreate(ctx, &attrs);
    EXPECT_TRUE(observer->observer_kuob == nullptr && observer->clientdata_kuob == nullptr
                && observer->plist_kuob == nullptr);
    for (const uint32_t bit : {KUOBA_TYPE, KUOBA_NOTIFYFUN, KUOBA_OBSERVER, KUOBA_CLIENTDATA}) {
        attrs = {bit, 5, nullptr, &party, &party, {}};
        EXPECT_EQ(kuobset(ctx, observer, &attrs), 0u);
        kuoba got = {bit, 9, stage::notify, observer, observer, {}};
        EXPECT_EQ(kuobget(ctx, observer, &got), 0u);
        EXPECT_EQ(got.type_kuoba, bit == KUOBA_TYPE ? 5u : 9u);
        EXPECT_EQ(got.notifyfun_kuoba == nullptr, bit == KUOBA_NOTIFYFUN);
        EXPECT_EQ(got.observer_kuoba == &party, bit == KUOBA_OBSERVER);
        EXPECT_EQ(got.clientdata_kuoba == &party, bit == KUOBA_CLIENTDATA);
    }
    EXPECT_EQ(kuobnotify(ctx, observer, &party, 1), 0u); // nothing to call
    EXPECT_EQ(kuobdestroy(ctx, observer), 0u);
}

TEST(Kuob, EveryAllocationMayFail)
{
    ku::test::sweep_allocations([](context &ctx) {
        void *list = nullptr;
        {
            const ku::test::spared making(ctx);
            list = kulpcreate(ctx, 0, nullptr);
        }
        std::string told;
        stage::party a = {}, b = {};
        const kuobnotifyfn note = [](kux *, void *, uint32_t, void *, void *text) -> uint32_t {
            static_cast<std::string *>(text)->append("x");
            return 0;
        };
        size_t made = 0;
        for (int i = 0; i < 18; i++) { // the array grows
            const kuoba attrs = {15, 1, note, i % 2 == 0 ? &a : &b, &told, {}};
            const uint32_t status = kuobappend(ctx, list, &attrs);
            EXPECT_EQ(status, kuxercode(ctx));
            EXPECT_TRUE(status == 0 || status == KUXNM_NOMEM || status == KULAA_NOMEM);
            made += status == 0;
            ctx.clear();
        }
        EXPECT_EQ(kulpnitems(ctx, list), static_cast<int32_t>(made));
        const uint32_t notified = kuoblnotify(ctx, list, nullptr, 1);
        EXPECT_EQ(told.size(), notified == 0 ? made : 0);
        EXPECT_EQ(notified, kuxercode(ctx) == 0 ? 0 : DEPOB_ERRORS);
        ctx.clear();
        const uint32_t removed = kuobremove(ctx, list, &a);
        EXPECT_EQ(removed, kuxercode(ctx));
        EXPECT_TRUE(removed != 0 || kulpnitems(ctx, list) <= 9);
        EXPECT_TRUE(removed == 0 || removed == KULAA_NOMEM);
        kuobldestroy(ctx, list);
        return made == 18 && notified == 0 && removed == 0;
    });
}

} // namespace
