// kuob_test.cpp - observers and observer lists; reference cells
#include "kuob.h"

#include <gtest/gtest.h>

#include <string>

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
        uint32_t destroyed;
    } object = {{nullptr, 9}, 0};
    const kumrdestroyfn destroy = [](kux *, void *obj) -> uint32_t {
        return ++static_cast<shared *>(obj)->destroyed + 40;
    };
    kumra attrs = {KUMRA_DESTROY | KUMRA_REFCOUNT, destroy, 5};
    EXPECT_EQ(kumrinit(ctx, &object, &attrs) + kumrref(ctx, &object), 0u);
    EXPECT_EQ(kumrset(ctx, &object, &attrs) + kumrget(ctx, &object, &attrs), 0u);
    EXPECT_EQ(attrs.refcount_kumra, 2u); // cannot be set, from the beginning
    EXPECT_EQ(kumrdref(ctx, &object), 0u);
    EXPECT_EQ(object.destroyed, 0u);
    EXPECT_EQ(kumrdref(ctx, &object), 41u);
    EXPECT_EQ(kumrdref(ctx, &object) + object.cell.refcount_kumr, 0u); // nobody is left
    EXPECT_EQ(kumrdestroy(ctx, &object), 42u);
    EXPECT_EQ(kumrinit(ctx, &object, nullptr) + kumrdref(ctx, &object), 0u); // no callback
    attrs = {0, destroy, 77};
    EXPECT_EQ(kumrget(ctx, &object, &attrs), 0u);
    EXPECT_TRUE(attrs.destroy_kumra == destroy && attrs.refcount_kumra == 77);
}

// Observers by letter; what one does when it is told is a script of steps: "-b" removes all of
// b's, "+b" appends one, "!" pushes an error, "." asks that no others are told, "?" tells the
// list type 8.
struct stage {
    context &ctx;
    void *list = kulpcreate(ctx, 0, nullptr);
    std::string told = "";
    struct party {
        char letter;
        std::string script;
    } parties[4] = {{'a', ""}, {'b', ""}, {'c', ""}, {'d', ""}};

    ~stage() { EXPECT_EQ(kuobldestroy(ctx, list), 0u); }
    party &of(char letter) { return parties[letter - 'a']; }
    uint32_t append(char letter, uint32_t type)
    {
        const kuoba attrs = {15, type, notify, &of(letter), &told, {}};
        return kuobappend(ctx, list, &attrs);
    }
    kuob *at(int32_t index) const
    {
        return static_cast<kuob *>(static_cast<kul *>(list)->items_kul[index]);
    }
    std::string listed() const
    {
        std::string letters;
        for (int32_t i = 0; i < kulpnitems(ctx, list); i++)
            letters += static_cast<party *>(at(i)->observer_kuob)->letter;
        return letters;
    }
    static uint32_t notify(kux *, void *observer, uint32_t type, void *object, void *told)
    {
        stage &all = *static_cast<stage *>(object);
        const party &self = *static_cast<party *>(observer);
        *static_cast<std::string *>(told) += self.letter;
        uint32_t answer = 12345;
        for (size_t i = 0; i < self.script.size() && type != 8; i++) {
            switch (self.script[i]) {
            case '-': kuobremove(all.ctx, all.list, &all.of(self.script[++i])); break;
            case '+': all.append(self.script[++i], 6); break;
            case '!': kuxer0push(all.ctx, DEPOB_INCOMPLETE); break;
            case '?': kuoblnotify(all.ctx, all.list, object, 8); break;
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
        const char *a, *b, *c; // their scripts
        const char *told, *left;
        uint32_t status;
    } rows[] = {
        {"a6b6c1", 2, "", "", "", "ab", "abc", 0},
        {"a6b6c1", 5, "", "", "", "abc", "abc", 0},
        {"a6b0c1", 8, "", "", "", "", "abc", 0},
        {"", 255, "", "", "", "", "", 0},
        {"a1b1c1", 1, "-a", "", "", "abc", "bc", 0},  // itself
        {"a1b1c1", 1, "-b", "", "", "ac", "ac", 0},   // one that waits
        {"a1b1c1", 1, "", "-a", "", "abc", "bc", 0},  // one that was told
        {"a1b1c1", 1, "", "-b-c-a", "", "ab", "", 0}, // all of them
        {"a1", 1, "-a", "", "", "a", "", 0},          // the only one
        {"a1b1c1", 1, "", "", "-c", "abc", "ab", 0},  // the last one
        {"a1b1a1", 1, "", "-a", "", "ab", "b", 0},    // one that is listed twice
        {"a6b6", 2, "+c", "+d", "", "ab", "abcd", 0}, // new ones wait for the next time
        {"a1b8c9", 1, "?", "", "", "abcc", "abc", 0}, // a pass within a pass
        {"a1b1c1", 1, "", ".", "", "ab", "abc", 0},   // the newest code: none
        {"a1b1c1", 1, "!", ".", "", "ab", "abc", DEPOB_INCOMPLETE},
        {"a1b1c1", 1, "", "!", "", "abc", "abc", DEPOB_ERRORS}, // the rest are told all the same
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.observers + std::string(row.a) + " " + row.b + " " + row.c);
        context ctx;
        stage scene{ctx};
        const char *const scripts[] = {row.a, row.b, row.c};
        for (int i = 0; i < 3; i++) scene.parties[i].script = scripts[i];
        for (const char *each = row.observers; *each != 0; each += 2)
            EXPECT_EQ(scene.append(each[0], static_cast<uint32_t>(each[1] - '0')), 0u);
        EXPECT_EQ(kuoblnotify(ctx, scene.list, &scene, row.type), row.status);
        EXPECT_EQ(scene.told, row.told);
        EXPECT_EQ(scene.listed(), row.left);
        ctx.clear();
    }
    context full("ascii", 1); // a full level never has more records than before
    stage scene{full};
    scene.of('a').script = "!";
    scene.append('a', 1);
    EXPECT_EQ(kuoblnotify(full, scene.list, &scene, 1), DEPOB_ERRORS);
    EXPECT_EQ(kuoblnotify(full, scene.list, &scene, 1), 0u);
    full.clear();
}

TEST(Kuob, ObserversAreFoundAndChangedByTheFieldsThatTheMaskSelects)
{
    context ctx;
    stage scene{ctx};
    for (const char letter : {'a', 'b', 'a'}) scene.append(letter, letter == 'a' ? 6 : 1);
    for (uint32_t mask = 0; mask < 16; mask++) {
        kuob *found = nullptr;
        kuoba attrs = {15, 0, nullptr, nullptr, nullptr, {}};
        EXPECT_EQ(kuobget(ctx, scene.at(1), &attrs), 0u);
        attrs.mask_kuoba = mask;
        EXPECT_EQ(kuobfind(ctx, scene.list, &attrs, &found), 0u);
        EXPECT_EQ(found, scene.at((mask & (KUOBA_TYPE | KUOBA_OBSERVER)) != 0 ? 1 : 0)) << mask;
        attrs = {mask, 2, nullptr, &ctx, &ctx, {}}; // type 2 overlaps with 6 and is not equal
        EXPECT_EQ(kuobfind(ctx, scene.list, &attrs, &found), 0u);
        EXPECT_EQ(found, mask == 0 ? scene.at(0) : nullptr) << mask;

        kuob changed = *scene.at(0);
        EXPECT_EQ(kuobset(ctx, &changed, &attrs), 0u);
        EXPECT_EQ(changed.type_kuob, (mask & KUOBA_TYPE) != 0 ? 2u : 6u);
        EXPECT_EQ(changed.notifyfun_kuob == nullptr, (mask & KUOBA_NOTIFYFUN) != 0);
        EXPECT_EQ(changed.observer_kuob == &ctx, (mask & KUOBA_OBSERVER) != 0);
        EXPECT_EQ(changed.clientdata_kuob == &ctx, (mask & KUOBA_CLIENTDATA) != 0);

        attrs = {mask, 1, stage::notify, &scene, &scene, {}};
        kuob *made = kuobcreate(ctx, &attrs); // needs both of the first
        EXPECT_EQ(kuxercode(ctx), mask % 4 == 3 ? 0 : DEPOB_INCOMPLETE);
        EXPECT_EQ(made != nullptr && made->observer_kuob != nullptr, mask == 7 || mask == 15);
        EXPECT_EQ(made != nullptr && made->clientdata_kuob != nullptr, mask == 11 || mask == 15);
        EXPECT_EQ(kuobdestroy(ctx, made), 0u);
        ctx.clear();
    }
    const kuoba mute = {3, 1, nullptr, nullptr, nullptr, {}}; // nothing to call
    EXPECT_EQ(kuobcreate(ctx, &mute), kuobcreate(ctx, nullptr));
    kulplock(ctx, scene.list); // refused while locked, and nothing released
    EXPECT_EQ(kuobremove(ctx, scene.list, &scene.of('a')), KULAA_LOCKED);
    EXPECT_EQ(scene.append('c', 1), KULAA_LOCKED);
    EXPECT_ERRORS(ctx, {"depob 1", "depob 1", "kulaa 2", "kulaa 2"});
    EXPECT_EQ(scene.listed(), "aba");
    kulpunlock(ctx, scene.list);
    EXPECT_EQ(kuobremove(ctx, scene.list, &scene.of('a')), 0u); // the searches left it unlocked
}

TEST(Kuob, EveryAllocationMayFail)
{
    ku::test::sweep_allocations([](context &ctx) {
        stage scene{ctx};
        if (scene.list == nullptr) return false;
        uint32_t status = 0;
        for (int i = 0; i < 18 && status == 0; i++) status = scene.append("ab"[i % 2], 1);
        EXPECT_TRUE(status == 0 || status == KUXNM_NOMEM || status == KULAA_NOMEM);
        const size_t made = scene.listed().size();
        EXPECT_EQ(status == 0, made == 18);
        ctx.clear();
        const uint32_t notified = kuoblnotify(ctx, scene.list, &scene, 1);
        EXPECT_EQ(notified, kuxercode(ctx) == 0 ? 0 : DEPOB_ERRORS);
        EXPECT_EQ(scene.told.size(), notified == 0 ? made : 0);
        ctx.clear();
        const uint32_t removed = kuobremove(ctx, scene.list, &scene.of('a'));
        EXPECT_EQ(removed, kuxercode(ctx));
        EXPECT_EQ(scene.listed().size(), removed == 0 ? made / 2 : made);
        return status == 0 && notified == 0 && removed == 0;
    });
}

} // namespace
