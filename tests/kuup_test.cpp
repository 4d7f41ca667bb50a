// kuup_test.cpp - property lists
#include "kuup.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kul.h"
#include "kuu.h"
#include "kuxdn.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;
using strings = std::vector<std::string>;

const kuupl &record(void *list) { return *static_cast<kuupl *>(list); }

int32_t by_length(kux *, const char *name, int32_t number)
{
    return static_cast<int32_t>(std::strlen(name)) % number;
}

char *duplicate(const context &ctx, const std::string &text)
{
    const ku::test::spared whole(ctx);
    char *copy = nullptr;
    kuu_copytext(ctx, &copy, nullptr, 0, text.c_str());
    return copy;
}

std::string taken(const context &ctx, char *text)
{
    const std::string copy = text != nullptr ? text : "-";
    kuupefree(ctx, nullptr, text, nullptr);
    return copy;
}

// "name=text;" of every entry as a walk visits them; a scalar here is one capital letter.
std::string all(context &ctx, void *list)
{
    std::string text;
    const kuupitfn note = [](kux *, const char *name, void *value, void *notes) {
        *static_cast<std::string *>(notes) +=
            name + std::string("=") + static_cast<char *>(value) + ";";
    };
    kuupliterate(ctx, list, note, &text);
    kuupliterate(ctx, list, nullptr, nullptr);
    return text;
}

TEST(Kuup, BucketsAreAsManyAsAskedForOrAPrimeAndNamesHashIntoThem)
{
    context ctx;
    static constexpr struct {
        int32_t number, buckets, own_buckets; // own: with a hash function of the client's
    } sizes[] = {{0, 37, 16}, {16, 37, 16}, {-5, 37, 16}, {1, 3, 1}, {4, 11, 4}, {10, 23, 10}};
    for (const auto &row : sizes) {
        void *list = kuuplcreate(ctx, row.number, nullptr);
        void *own = kuuplcreate(ctx, row.number, by_length);
        EXPECT_EQ(record(list).number_kuupl, row.buckets) << row.number;
        EXPECT_EQ(record(own).number_kuupl, row.own_buckets) << row.number;
        EXPECT_EQ(kuupldestroy(ctx, list), kuupldestroy(ctx, own));
    }
    EXPECT_EQ(kuuplcreate(ctx, INT32_MAX, nullptr), nullptr); // its bytes pass 32 bits
    EXPECT_EQ(kuuplcreate(ctx, 0x20000000, by_length), nullptr);
    kuxer0push(ctx, KUUPA_NOHASH); // an older error ends it, the first bucket with it
    EXPECT_EQ(kuuplcreate(ctx, 3, nullptr), nullptr);
    EXPECT_ERRORS(ctx, {"kuupa 1"});

    static constexpr int32_t seeds[] = {0, 1, 3, 12, 64, 100, 1073741822, INT32_MAX};
    static constexpr int32_t primes[] = {1, 3, 7, 29, 131, 211, INT32_MAX, INT32_MAX};
    for (int i = 0; i < 8; i++) EXPECT_EQ(kuupzprime(ctx, seeds[i]), primes[i]);

    EXPECT_EQ(kuupzhash(ctx, "abc", 37), 28);
    EXPECT_EQ(kuupzhash(ctx, "name", 37), 19);
    EXPECT_EQ(kuupzhash(ctx, "", 37), 0);
    EXPECT_EQ(kuupzhash(ctx, "abc", 0), -1);
    EXPECT_EQ(kuupzhash(ctx, nullptr, 37), -1);
    EXPECT_EQ(kuupzhash(ctx, "\xff\xff", 1000), 190);                     // bytes have no sign
    EXPECT_EQ(kuupzhash(ctx, "zzzzzzzzzzzzzzzz", INT32_MAX), 1999345822); // nor products 32 bits
}

TEST(Kuup, ANameThatCannotBeHashedIsRefusedEverywhere)
{
    context ctx;
    const kuuphashfn outside = [](kux *, const char *name, int32_t number) {
        return name != nullptr && *name == '+' ? number : 0; // knows null, and gets '+' wrong
    };
    for (const kuuphashfn hash : {kuuphashfn{}, outside}) {
        void *list = kuuplcreate(ctx, 3, hash);
        const char *bad = hash != nullptr ? "+" : nullptr;
        uint32_t word = 5;
        EXPECT_EQ(kuuplsput(ctx, list, kuupefree, nullptr, bad, &word), KUUPA_NOHASH);
        EXPECT_EQ(kuuplxput(ctx, list, nullptr, 1), KUUPA_NOHASH); // hashed or not
        EXPECT_EQ(kuuplsremove(ctx, list, bad), KUUPA_NOHASH);
        EXPECT_EQ(kuuplsget(ctx, list, bad), nullptr);
        EXPECT_EQ(kuuplsexists(ctx, list, bad), 0);
        EXPECT_EQ(kuuplxget(ctx, list, bad, &word), 0u);
        EXPECT_ERRORS(ctx, strings(6, "kuupa 1"));
        EXPECT_EQ(word, 5u);
        EXPECT_EQ(record(list).numprops_kuupl, 0u);
        kuupldestroy(ctx, list);
    }
}

// A list and what it must hold: of each entry what all() says, by bucket, newest first. Any
// text is a pointer's, a capital letter a scalar.
struct playing {
    context &ctx;
    void *list;
    std::vector<strings> want{static_cast<size_t>(record(list).number_kuupl)};
    ku::test::dice dice{};
    int put = 0, released = 0;

    strings &bucket(const std::string &name)
    {
        const kuupl &own = record(list);
        return want[static_cast<size_t>(own.hashfun_kuupl(ctx, name.c_str(), own.number_kuupl))];
    }
    std::string value(const std::string &name) // its newest; empty: none
    {
        for (const std::string &each : bucket(name))
            if (each.substr(0, each.find('=')) == name) return each.substr(name.size() + 1);
        return "";
    }
    static void release(kux *ctx, const char *name, void *value, void *self)
    {
        void *list = static_cast<playing *>(self)->list; // shows the entry until it ends itself
        EXPECT_EQ(kuuplsexists(ctx, list, name), record(list).number_kuupl > 0 ? 1 : 0);
        static_cast<playing *>(self)->released++;
        EXPECT_EQ(kuupldestroy(ctx, kuuplcopy(ctx, list)), nullptr); // a holder for a moment
        kuupefree(ctx, name, value, nullptr);
    }
    void put_one(const char *name)
    {
        const bool scalar = dice.one_in(3);
        const std::string letter(1, static_cast<char>((scalar ? 'A' : 'a') + dice.below(26)));
        char *text = scalar ? nullptr : duplicate(ctx, letter);
        const uint32_t status = scalar
                                    ? kuuplxput(ctx, list, name, static_cast<uint32_t>(letter[0]))
                                    : kuuplsput(ctx, list, release, this, name, text);
        EXPECT_EQ(status, kuxercode(ctx));
        put += status == 0 && !scalar;
        if (status == 0) bucket(name).insert(bucket(name).begin(), name + ("=" + letter));
        if (status != 0) kuupefree(ctx, nullptr, text, nullptr); // it is still ours
    }
    void get_one(const char *name)
    {
        const std::string wanted = value(name);
        const void *got = kuuplsget(ctx, list, name);
        uint32_t word = 0;
        EXPECT_EQ(kuuplsexists(ctx, list, name), wanted.empty() ? 0 : 1);
        EXPECT_EQ(got != nullptr ? static_cast<const char *>(got) : "", wanted);
        if (wanted >= "a") return; // a pointer's text has no four bytes to get
        EXPECT_EQ(kuuplxget(ctx, list, name, &word), 0u);
        EXPECT_EQ(word, wanted.empty() ? 0 : static_cast<uint32_t>(wanted[0]));
    }
    void remove_one(const char *name)
    {
        strings &from = bucket(name);
        const auto first = std::find(from.begin(), from.end(), name + ("=" + value(name)));
        if (first != from.end()) from.erase(first);
        EXPECT_EQ(kuuplsremove(ctx, list, name), 0u);
    }
};

TEST(Kuup, RandomStepsMatchAModelEvenShortOfMemory)
{
    const std::string odd[] = {"", "a b", "A", "a", "\xe9\xff", std::string(3000, 'x')};
    for (const unsigned kind : {0u, 1u, 2u, 3u}) {
        const unsigned scarce = kind % 2 * 8;
        context ctx;
        playing game{ctx, kuuplcreate(ctx, 3, kind < 2 ? nullptr : by_length)};
        std::string wanted;
        ctx.fail_one_in(scarce);
        for (int n = 0; n < 2000; n++) {
            SCOPED_TRACE("step " + std::to_string(n));
            const std::string name =
                game.dice.one_in(4) ? odd[game.dice.below(6)] : std::to_string(game.dice.below(30));
            switch (game.dice.below(record(game.list).numprops_kuupl < 80 ? 4 : 2)) {
            case 0: game.remove_one(name.c_str()); break;
            case 1: game.get_one(name.c_str()); break;
            default: game.put_one(name.c_str());
            }
            wanted.clear();
            for (const strings &bucket : game.want)
                for (const std::string &each : bucket) wanted += each + ";";
            ASSERT_EQ(all(ctx, game.list), wanted);
            ASSERT_EQ(record(game.list).numprops_kuupl,
                      std::count(wanted.begin(), wanted.end(), ';'));
            ASSERT_TRUE(scarce != 0 || kuxercode(ctx) == 0);
            ASSERT_FALSE(testing::Test::HasFailure());
            ctx.clear();
        }
        EXPECT_EQ(kuuplcopy(ctx, game.list), game.list);
        EXPECT_EQ(kuupldestroy(ctx, game.list), nullptr);
        EXPECT_EQ(all(ctx, game.list), wanted); // there is a holder left
        kuupldestroy(ctx, game.list);
        EXPECT_EQ(kuxercode(ctx), 0u); // the callback looked its names up in a list that was ending
        EXPECT_EQ(game.released, game.put);
    }
}

TEST(Kuup, AReleaseCallbackMayChangeTheListThatRemoves)
{
    static constexpr struct {
        kuupfreefn release;
        const char *left; // after one removal of "a", put over "a=old"
    } rows[] = {
        {[](kux *ctx, const char *name, void *, void *list) { // its own name, again
             EXPECT_EQ(kuuplsremove(ctx, list, name), 0u);
             EXPECT_STREQ(name, "a");
             EXPECT_EQ(kuuplmput(ctx, list, "b new"), 2); // not where the entry was
         },
         "b=new;a=old;"},
        {[](kux *ctx, const char *, void *, void *list) { // so many that the bucket's array moves
             for (int i = 0; i < 18; i++) EXPECT_EQ(kuuplmput(ctx, list, "b new"), 2);
             EXPECT_EQ(kuuplmput(ctx, list, "a new"), 2);
             for (int i = 0; i < 18; i++) EXPECT_EQ(kuuplmremove(ctx, list, "b c"), 1);
         },
         "a=new;a=old;"},
    };
    for (const auto &row : rows) {
        context ctx;
        void *list = kuuplcreate(ctx, 1, by_length);
        kuuplmput(ctx, list, "a old");
        kuuplsput(ctx, list, row.release, list, "a", nullptr);
        EXPECT_EQ(kuuplsget(ctx, list, "a"), nullptr); // a pointer like any other
        EXPECT_EQ(kuuplsexists(ctx, list, "a"), 1);
        EXPECT_EQ(kuuplsremove(ctx, list, "a"), 0u);
        EXPECT_EQ(all(ctx, list), row.left);
        EXPECT_EQ(record(list).numprops_kuupl, std::strlen(row.left) / 6);
        kuupldestroy(ctx, list);
    }
}

TEST(Kuup, EqualListsHoldTheSameWhateverTheirOrderAndBuckets)
{
    static constexpr struct {
        const char *first, *second;
        signed char equal;
        const char *compared; // names, in order
    } rows[] = {
        {"a 1 b 2 c 3", "c 3 a 1 b 2", 1, "cba"}, // one bucket: newest first
        {"a 1 b 2", "a 1", 0, ""},                // counted first
        {"a 1", "A 1", 0, ""},                    // another name
        {"b 2 a 1", "a 3 b 2", -1, "a"},          // the comparison's answer, sign and all
        {"a 1 a 1", "a 1 b 1", 1, "aa"},          // each against what the second list shows
    };
    for (const auto &row : rows) {
        context ctx;
        void *first = kuuplcreate(ctx, 1, by_length);
        void *second = kuuplcreate(ctx, 5, nullptr);
        kuuplmput(ctx, first, row.first);
        kuuplmput(ctx, second, row.second);
        std::string compared;
        const kuupequalfn compare = [](kux *, const char *name, void *a, void *b, void *names) {
            *static_cast<std::string *>(names) += name;
            return static_cast<signed char>(1 + *static_cast<char *>(a) - *static_cast<char *>(b));
        };
        EXPECT_EQ(kuuplequal(ctx, first, second, compare, &compared), row.equal) << row.first;
        EXPECT_EQ(compared, row.compared);
        kuupldestroy(ctx, first);
        kuupldestroy(ctx, second);
    }
}

TEST(Kuup, TextsOfNamesAndValuesAreSplitByTheLexer)
{
    const std::string big(5000, 'v');
    const struct {
        std::string put;
        int32_t handled;
        std::string names, got;
    } rows[] = {
        {"a 1 b 2", 4, "b a c", "b 2 a 1"},
        {"a 1 b", 3, "a b", "a 1"}, // a name without a value
        {"", 0, "", "-"},
        {"a 'x y' \"b c\" 2", 4, "a \"b c\"", "a 'x y' \"b c\" 2"}, // quotes stay
        {"a 1,b 2", 5, "a , b", "a 1 , b"},    // a mark is a token: "," has the value "b"
        {"a 1 b 'open", 4, "b 'a", "b 'open"}, // not closed, and no error
        {"a 1 b ` c 2", 0, "a", "-"},          // erroneous text: nothing is put
        {"a 1", 2, "a `", "-"},                // nor got
        {"select from", 2, "SELECT select", "select from"}, // no keywords; case counts
        {"a " + big + " b 2", 4, "a b a", "a " + big + " b 2 a " + big},
    };
    for (const auto &row : rows) {
        context ctx("utf8");
        void *list = kuuplcreate(ctx, 0, nullptr);
        EXPECT_EQ(kuuplmput(ctx, list, row.put.c_str()), row.handled) << row.put;
        EXPECT_EQ(taken(ctx, kuuplmget(ctx, list, row.names.c_str())), row.got) << row.put;
        EXPECT_EQ(kuuplmremove(ctx, list, "` a"), 0);
        EXPECT_EQ(record(list).numprops_kuupl, static_cast<uint32_t>(row.handled / 2));
        kuupldestroy(ctx, list);
    }
    context ctx;
    void *list = kuuplcreate(ctx, 0, nullptr);
    EXPECT_EQ(kuuplmput(ctx, list, nullptr) + kuuplmremove(ctx, list, nullptr), 0);
    EXPECT_EQ(kuuplmget(ctx, list, nullptr), kuupldestroy(ctx, nullptr));
    uint32_t word;
    std::memcpy(&word, "wxyz", 4); // its four bytes, and none behind them
    kuuplxput(ctx, list, "full", word);
    kuuplxput(ctx, list, "none", 0);
    kuuplsput(ctx, list, nullptr, nullptr, "null", nullptr);
    EXPECT_EQ(taken(ctx, kuuplmget(ctx, list, "null full none")), "full wxyz none ");
    kuupldestroy(ctx, list);
}

TEST(Kuup, EveryAllocationMayFailAndEachFailureHasItsCode)
{
    ku::test::sweep_allocations([&](context &ctx) {
        void *list = kuuplcreate(ctx, 2, by_length);
        if (list == nullptr) return kuxercode(ctx) != 0 && kuxercode(ctx) != KULAA_NOMEM;
        uint32_t status = 0;
        for (int i = 0; i < 17 && status == 0; i++) status = kuuplxput(ctx, list, "s", 1);
        EXPECT_TRUE(status == 0 || status == KUXNM_NOMEM || status == KULAA_NOMEM);
        const int32_t handled = kuuplmput(ctx, list, "name value other 'a longer value'");
        const std::string got = taken(ctx, kuuplmget(ctx, list, "other name"));
        const kuupequalfn same = [](kux *, const char *, void *, void *, void *) {
            return static_cast<signed char>(1);
        };
        const bool equal = kuuplequal(ctx, list, list, same, nullptr) == 1;
        const int32_t removed = kuuplmremove(ctx, list, "name other");
        EXPECT_EQ(status != 0 || handled < 4 || got == "-" || !equal || removed < 2, ctx.failed());
        kuupldestroy(ctx, list);
        return got == "other 'a longer value' name value";
    });
}

TEST(Kuup, AnEntryStandsAlone)
{
    context ctx;
    std::string released;
    const kuupfreefn note = [](kux *, const char *name, void *value, void *cctxp) {
        *static_cast<std::string *>(cctxp) = name + std::to_string(*static_cast<uint32_t *>(value));
    };
    kuupe *entry = kuupecreate(ctx, "entry", 5, nullptr, 9, note, &released);
    const char *name = nullptr;
    void *value = nullptr;
    kuupfreefn freefun = nullptr;
    EXPECT_EQ(kuupeget(ctx, entry, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(kuupeget(ctx, entry, &name, &value, &freefun), 0u);
    EXPECT_TRUE(name == entry->name_kuupe && value == &entry->value_kuupe && freefun == note);
    EXPECT_EQ(kuupedestroy(ctx, entry, nullptr), 0u);
    EXPECT_EQ(released, "entry9");
    EXPECT_EQ(kuupecreate(ctx, nullptr, 0, nullptr, 0, nullptr, nullptr), nullptr);
}

} // namespace
