// kuus_test.cpp - stream search, templates, equality
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kui.h"
#include "kuus.h"
#include "kuussb.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;
using places = std::vector<uint32_t>;

struct input {
    std::string text;
    size_t read = 0;

    static unsigned char next(kux *, void *self)
    {
        auto &from = *static_cast<input *>(self);
        return static_cast<unsigned char>(from.read < from.text.size() ? from.text[from.read++]
                                                                       : 0);
    }
};

// Offsets that a run reported; match number `last` ends it.
places offsets(kux *ctx, kuus *search, size_t last = SIZE_MAX)
{
    struct {
        places all;
        size_t last;
    } found{{}, last};
    const kuusmfn add = [](kux *, void *to, uint32_t offset, uint32_t) {
        auto &into = *static_cast<decltype(found) *>(to);
        into.all.push_back(offset);
        return into.all.size() == into.last ? 1 : 0;
    };
    const int32_t count = kuussearch(ctx, search, add, &found);
    EXPECT_EQ(count, static_cast<int32_t>(found.all.size()));
    return found.all;
}

uint32_t set(kux *ctx, kuus *search, kuuscmfn function, uint32_t mask = KUUSAT_CMFUNC)
{
    const kuusat attrs = {mask, function, nullptr};
    return kuusset(ctx, search, &attrs);
}

TEST(StreamSearch, FindsWhatAPlainSearchFindsAndReadsNoFurtherThanItMust)
{
    context ctx("iso-8859-1");
    ku::test::dice dice;
    for (int round = 0; round < 3000; round++) {
        std::string pattern;
        input from;
        const uint32_t letters = 1 + dice.below(6); // few letters: many near matches
        for (uint32_t left = 1 + dice.below(7); left > 0; left--)
            pattern += "abAB\xE9\xC9"[dice.below(letters)];
        for (uint32_t left = dice.below(60); left > 0; left--)
            from.text += "abAB\xE9\xC9"[dice.below(letters)];
        const auto length = static_cast<uint32_t>(pattern.size());
        kuus *search = kuuscreate(ctx, pattern.data(), length, input::next, &from);
        if (dice.one_in(2)) set(ctx, search, kuusicmatch); // and back again, or not
        if (dice.one_in(2)) set(ctx, search, dice.one_in(2) ? kuusicmatch : kuusscmatch);
        const bool folds = search->cmfuncp_kuus == kuusicmatch;
        const auto same = [&](char a, char b) { return a == b || (folds && (a ^ b) == 0x20); };

        places expected;
        const size_t last = 1 + dice.below(5);
        size_t at = 0;
        while (at + length <= from.text.size() && expected.size() < last) {
            const bool here = std::equal(pattern.begin(), pattern.end(), &from.text[at], same);
            if (here) expected.push_back(static_cast<uint32_t>(at));
            at += here ? length : 1;
        }
        ASSERT_EQ(offsets(ctx, search, last), expected) << pattern << " in " << from.text;
        ASSERT_EQ(from.read, expected.size() == last ? at : from.text.size());
        kuusdestroy(ctx, search);
    }
}

TEST(StreamSearch, RunsGoOnWhereTheInputStandsAndPatternsOfNothingReadNothing)
{
    context ctx;
    input from{"aaaa,aa"};
    kuus *search = kuuscreate(ctx, "aa", 2, input::next, &from);
    EXPECT_EQ(offsets(ctx, search, 1), places{0});
    EXPECT_EQ(offsets(ctx, search), (places{0, 3})); // of what is left: aa,aa
    kuusdestroy(ctx, search);
    from.read = 0;
    for (kuus *none : {kuuscreate(ctx, "", 0, input::next, &from),
                       kuuscreate(ctx, nullptr, 3, input::next, &from),
                       kuuscreate(ctx, "a", 1, nullptr, nullptr)}) {
        EXPECT_EQ(kuussearch(ctx, none, nullptr, nullptr), 0);
        EXPECT_EQ(kuusdestroy(ctx, none), nullptr);
    }
    EXPECT_EQ(from.read, 0u);
}

TEST(StreamSearch, CaseOfMultibyteTextIsTheClientsMatchFunctionsAlone)
{
    const kuuscmfn ascii = [](kux *, void *, unsigned char a, unsigned char b) -> int32_t {
        return (a | 0x20) == (b | 0x20);
    };
    for (const char *language : {"utf8", "sjis", "iso-2022-kr"}) {
        context ctx(language);
        input from{"abcxABCxAbC"};
        kuus *search = kuuscreate(ctx, "abc", 3, input::next, &from);
        set(ctx, search, kuusicmatch);
        EXPECT_EQ(offsets(ctx, search), places()); // not even what is equal
        from.read = 0;
        EXPECT_EQ(set(ctx, search, ascii, KUUSAT_CMFUNC | KUUSAT_NOCASE), 0u);
        EXPECT_EQ(offsets(ctx, search), (places{0, 4, 8}));
        kuusdestroy(ctx, search);
    }
}

TEST(StreamSearch, MistakesAreRefusedInTheirOrderAndChangeNothing)
{
    context ctx;
    EXPECT_EQ(set(ctx, nullptr, nullptr, 0), KUUSA_NOSEARCH);
    EXPECT_EQ(kuusget(ctx, nullptr, nullptr), KUUSA_NOSEARCH);
    EXPECT_EQ(kuussearch(ctx, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(kuusdestroy(ctx, nullptr), nullptr);
    EXPECT_ERRORS(ctx, {"kuusa 1", "kuusa 1", "kuusa 1", "kuusa 1"});
    kuus *search = kuuscreate(ctx, "a", 1, nullptr, nullptr);
    EXPECT_EQ(set(ctx, search, nullptr), KUUSA_NOMATCH);
    EXPECT_ERRORS(ctx, {"kuusa 2"});
    EXPECT_EQ(set(ctx, search, kuusicmatch, KUUSAT_NOCASE), 0u); // alone it says nothing
    EXPECT_EQ(search->skipp_kuus[size_t{'A'}], 1u);
    kuusat got = {KUUSAT_CMFUNC, nullptr, search};
    EXPECT_EQ(kuusget(ctx, search, &got), 0u);
    EXPECT_TRUE(got.cmfuncp_kuusat == kuusscmatch && got.cmctxp_kuusat == nullptr);
    kuusdestroy(ctx, search);
}

TEST(StreamSearch, WithoutMemoryASearchStaysAsItWasAndFindsNothing)
{
    ku::test::sweep_allocations([](context &ctx) {
        input from{"xabcx"};
        kuus *search = kuuscreate(ctx, "ABC", 3, input::next, &from);
        if (search == nullptr) return false;
        const uint32_t status = set(ctx, search, kuusicmatch);
        EXPECT_EQ(search->cmfuncp_kuus == kuusicmatch, status == 0);
        EXPECT_EQ(search->skipp_kuus[size_t{'b'}], status == 0 ? 1u : 3u);
        EXPECT_EQ(status, kuxercode(ctx));
        const bool found = kuussearch(ctx, search, nullptr, nullptr) == 1;
        kuusdestroy(ctx, search);
        return found;
    });
}

TEST(Templates, AnyTemplateInAnyRoomIsWhatAPlainModelMakesAndStaysInsideItsBuffer)
{
    context ctx("utf8");
    ku::test::dice dice;
    static const char *const texts[] = {"x", "",  nullptr,    "long text", "$1", "5",
                                        "6", "7", "\xC3\xA9", "nine",      "ten"};
    for (int round = 0; round < 3000; round++) {
        const auto count = static_cast<int>(dice.below(13)) - 1; // -1 to 11
        std::string pattern, filled;
        for (uint32_t left = dice.below(12); left > 0; left--)
            pattern += "$$$$019a/:\xC3"[dice.below(11)];
        for (size_t i = 0; i < pattern.size(); i++) {
            const int digit = pattern[i] == '$' ? pattern.c_str()[i + 1] - '0' : -1;
            if (digit < 0 || digit > 9 || digit >= count)
                filled += pattern[i];
            else if (++i, texts[digit] != nullptr)
                filled += texts[digit];
        }
        size_t once = pattern.size() + 1;
        for (int i = 0; i < count; i++) once += std::string(texts[i] ? texts[i] : "").size();
        const uint32_t room = dice.below(30);
        char *made = kuussb(ctx, room, nullptr, pattern.c_str(), count, texts);
        ASSERT_STREQ(made, filled.substr(0, (room != 0 ? room : once) - 1).c_str()) << pattern;
        ctx->kuxnmfree(ctx, made);
        std::string buffer(room + 1, '~'); // one of no bytes does not even get a NUL
        kuussb(ctx, room, buffer.data(), pattern.c_str(), count, texts);
        ASSERT_STREQ(buffer.c_str(), room ? filled.substr(0, room - 1).c_str() : "~") << pattern;
        ASSERT_EQ(buffer[room], '~');
    }
    ctx.fail_from_now(1);
    EXPECT_EQ(kuussb(ctx, 0, nullptr, "a", 0, nullptr), nullptr);
}

TEST(Equality, IsOfBytesAndNeverOfNulls)
{
    context ctx;
    EXPECT_TRUE(kuisequal(ctx, "", "") == 1 && kuisequal(ctx, "ab", "ab") == 1);
    for (const char *other : {"aB", "abc", "a", "", static_cast<const char *>(nullptr)})
        EXPECT_TRUE(kuisequal(ctx, "ab", other) == 0 && kuisequal(ctx, other, nullptr) == 0);
}

} // namespace
