// kurf_test.cpp - regular expressions: the syntax record, and runs against a plain matcher
#include "kurf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kul.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;
using text32 = std::vector<uint32_t>;

// Compares as the default does, but is not it: a run cannot know that, and works on sets.
int32_t plain_compare(kux *, void *calls, uint32_t first, uint32_t second)
{
    if (calls != nullptr) ++*static_cast<int *>(calls);
    return first == second ? 1 : 0;
}

struct syntax {
    context &ctx;
    kurx *record;

    explicit syntax(context &owner) : ctx(owner), record(kurxcreate(owner, nullptr)) {}
    ~syntax() { kurxdestroy(ctx, record); }
    syntax(const syntax &) = delete;
    syntax &operator=(const syntax &) = delete;

    void compare(kurxcmpfn function, void *cctxp = nullptr) const
    {
        kurxa attrs = {};
        attrs.mask_kurxa = KURXA_COMPARE;
        attrs.cmfuncp_kurxa = function;
        attrs.cmctxp_kurxa = cctxp;
        EXPECT_EQ(kurxset(ctx, record, &attrs), 0u);
    }
};

// A runner, and what its callback is told and answers.
struct runner {
    context &ctx;
    kurx *syntax;
    kurf *handle;
    std::vector<int32_t> answers = {};    // by report, over and over; none: by transition
    std::function<void(int)> during = {}; // called at each report with its number
    std::string reports = {};
    std::string seen = {}; // state, set and tag at each
    int count = 0;

    runner(context &owner, const struct syntax &with, const std::string &pattern)
        : ctx(owner), syntax(with.record),
          handle(kurfcreate(owner, with.record, pattern.c_str(),
                            static_cast<uint32_t>(pattern.size()), KURF_MULTIBYTE))
    {
    }
    ~runner() { kurfdestroy(ctx, syntax, handle); }
    runner(const runner &) = delete;
    runner &operator=(const runner &) = delete;

    void look()
    {
        seen += std::to_string(kurfgstate(ctx, syntax, handle)) + ":";
        const kurl *set = handle->currkurlp_kurf;
        for (int32_t i = 0; set != nullptr && i < kulpnitems(ctx, set->nfalist_kurl); i++) {
            const auto *list = static_cast<const kul *>(set->nfalist_kurl);
            seen +=
                std::to_string(static_cast<const kurno *>(list->items_kul[i])->nodeid_kurno) + ",";
        }
        if (set != nullptr) seen += set->accepting_kurl != 0 ? "!" : ".";
        seen += std::to_string(handle->tag_kurf) + "@" + std::to_string(handle->curri_kurf) + " ";
    }
    static int32_t report(kux *, int32_t transition, void *cctxp, uint32_t start, uint32_t finish)
    {
        auto &self = *static_cast<runner *>(cctxp);
        self.reports += (self.reports.empty() ? "" : " ") + std::to_string(transition) + ","
                        + std::to_string(start) + "," + std::to_string(finish);
        self.look();
        const int number = self.count++;
        if (self.during) self.during(number);
        if (!self.answers.empty())
            return self.answers[static_cast<size_t>(number) % self.answers.size()];
        return transition == KURF_T_ACCEPT ? KURF_A_GO
               : transition == KURF_T_END  ? KURF_A_STOP
                                           : KURF_A_REJECT;
    }
    void clear()
    {
        reports.clear();
        seen.clear();
        count = 0;
    }
    std::string run(const void *data, size_t n, int32_t representation)
    {
        clear();
        EXPECT_EQ(kurfrun(ctx, syntax, handle, data, static_cast<uint32_t>(n), representation,
                          report, this),
                  KURF_S_NONE);
        return reports;
    }
    std::string run(const std::string &text)
    {
        return run(text.data(), text.size(), KURF_MULTIBYTE);
    }
};

// ---- the syntax record ----

TEST(Kurx, TheDefaultRecordHasTheStatedCharactersOrderAndClasses)
{
    context ctx;
    const syntax with(ctx);
    std::string specials;
    for (uint32_t c = 0; c < 256; c++)
        if (kurxispecial(ctx, with.record, c) != 0) specials += static_cast<char>(c);
    EXPECT_EQ(specials, std::string("\0$()*+-.[\\]^{|}~", 16));
    EXPECT_EQ(kurxispecial(ctx, with.record, 256 + '('), 0);

    const std::string order = " !\"#$&'()*+'-./0123456789:;,<>=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_"
                              "abcdefghijklmnopqrstuvwxyz|~\n\t";
    EXPECT_EQ(std::string(kurxtbl, kurxtbl + sizeof kurxtbl), order + '\0');
    const struct {
        uint32_t tchar, next;
    } successors[] = {{' ', '!'}, {'&', '\''}, {'\'', '-'},       {';', ','},
                      {',', '<'}, {'>', '='},  {'~', '\n'},       {'\n', '\t'},
                      {'\t', 0},  {'%', '!'},  {0x100 + 'a', 'b'}};
    for (const auto &row : successors) {
        EXPECT_EQ(kurxgsucc(ctx, with.record, row.tchar), row.next) << row.tchar;
        EXPECT_EQ(kurxsucc(ctx, nullptr, row.tchar), row.next) << row.tchar; // without ranks
    }
    EXPECT_EQ(with.record->fchar_kurx, ' ');
    EXPECT_EQ(with.record->lchar_kurx, '\t');
    std::string white;
    for (uint32_t c = 0; c < 256; c++)
        if (kurxematch(ctx, with.record, 'w', c) != 0) white += static_cast<char>(c);
    EXPECT_EQ(white, std::string("\0\t\n ", 4));
    EXPECT_EQ(kurxematch(ctx, with.record, 'n', '\n') + kurxematch(ctx, with.record, 'q', 'q'), 1);
}

TEST(Kurx, AttributesAreStoredAndReadByTheirMask)
{
    context ctx;
    const syntax with(ctx);
    kurxa all = {};
    all.mask_kurxa = KURXA_ALL;
    ASSERT_EQ(kurxget(ctx, with.record, &all), 0u);
    EXPECT_EQ(all.rtag_kurxa, '}');
    EXPECT_EQ(kurxset(ctx, with.record, &all), 0u); // its own ranks again
    EXPECT_EQ(kurxgsucc(ctx, with.record, 'a'), 'b');

    for (uint32_t i = 0; i < 16; i++) { // each special character by itself
        kurxa one = {};
        one.mask_kurxa = 1u << i;
        (&one.lparen_kurxa)[i] = 1000 + i;
        EXPECT_EQ(kurxset(ctx, with.record, &one), 0u);
        EXPECT_EQ(kurxispecial(ctx, with.record, 1000 + i), 1);
    }
    kurxa some = {};
    some.mask_kurxa = KURXA_FCHAR | KURXA_LCHAR | KURXA_SUCC | KURXA_SUCCCTX;
    some.fchar_kurxa = 'f';
    some.lchar_kurxa = 'l';
    EXPECT_EQ(kurxset(ctx, with.record, &some), 0u); // no successors, and the ranks are released
    EXPECT_EQ(kurxgsucc(ctx, with.record, 'a'), 0u);
    ASSERT_EQ(kurxget(ctx, with.record, &all), 0u);
    EXPECT_EQ(all.fchar_kurxa + all.lchar_kurxa + all.star_kurxa, 'f' + 'l' + 1004u);
    EXPECT_TRUE(all.succfp_kurxa == nullptr && all.cctxp_kurxa == nullptr);

    all.cmfuncp_kurxa = nullptr;
    all.star_kurxa = '#';
    EXPECT_EQ(kurxset(ctx, with.record, &all), KURXA_NOCOMPARE); // the others are stored
    EXPECT_EQ(kurxispecial(ctx, with.record, '#'), 1);
    EXPECT_EQ(with.record->cmfuncp_kurx, kurxscmatch);
    EXPECT_EQ(kurxcreate(ctx, &all), nullptr);
    EXPECT_EQ(kurxset(ctx, nullptr, &all), KURXA_NORECORD);
    EXPECT_EQ(kurxispecial(ctx, nullptr, '('), 0);
    EXPECT_EQ(kurxgsucc(ctx, nullptr, 'a'), 0u);
    EXPECT_EQ(kurxget(ctx, nullptr, &all), KURXA_NORECORD); // does not push it
    EXPECT_ERRORS(ctx, {"kurxa 2", "kurxa 2", "kurxa 1", "kurxa 1", "kurxa 1"});

    all.mask_kurxa = 0;
    all.cmfuncp_kurxa = plain_compare;
    all.succfp_kurxa = kurxsucc;
    kurx *made = kurxcreate(ctx, &all);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(all.mask_kurxa, KURXA_ALL);
    EXPECT_EQ(made->star_kurx, '#');
    EXPECT_EQ(kurxgsucc(ctx, made, 'a') + kurxematch(ctx, made, 'b', ' '), 'b' + 1u);
    kurxdestroy(ctx, made);
}

TEST(Kurxe, ClassesAreFoundByTheirFirstEntryAndTheTableGrows)
{
    ku::test::sweep_allocations([](context &ctx) {
        const syntax with(ctx);
        if (with.record == nullptr) return false;
        static const uint32_t members[] = {'x', 'y'};
        for (uint32_t i = 0; i < 40; i++) {
            const uint32_t status = kurxeadd(ctx, with.record, 'A' + i % 20, members + i / 20, 1);
            EXPECT_EQ(status, kuxercode(ctx));
            if (status != 0) return false;
            EXPECT_EQ(with.record->kurxep_kurx->kurxesi_kurxe, 5 + i);
        }
        for (uint32_t value = 'A'; value < 'A' + 20; value++) {
            EXPECT_EQ(kurxematch(ctx, with.record, value, 'x'), 1);
            EXPECT_EQ(kurxedrop(ctx, with.record, value), 0u); // uncovers the second
            EXPECT_EQ(kurxematch(ctx, with.record, value, 'x'), 0);
            kurxes *found = nullptr;
            EXPECT_EQ(kurxefind(ctx, with.record, value, &found), 1);
            EXPECT_EQ(found->equivp_kurxes, members + 1);
            EXPECT_EQ(kurxedrop(ctx, with.record, value), 0u);
            EXPECT_EQ(kurxefind(ctx, with.record, value, nullptr), 0);
        }
        EXPECT_EQ(kurxedrop(ctx, with.record, 'A'), 0u);
        return kurxefind(ctx, with.record, 'w', nullptr) == 1;
    });
}

// ---- runs, by example ----

TEST(Kurf, TransitionsAreReportedInTheirOrder)
{
    static const struct {
        const char *pattern;
        const char *text;
        std::vector<int32_t> answers;
        const char *reports;
    } rows[] = {
        {"b", "abc", {}, "0,1,1 1,1,1 2,1,2"},
        {"^b", "abc", {}, "2,0,0"},
        {"a$", "aa", {}, "2,0,1 0,1,1 1,1,1 2,1,2 2,1,2"},
        {"a*", "b", {}, "2,1,1"}, // empty matches are not reported
        {"ab*", "abab", {2}, "0,0,1 1,0,1 0,0,3 1,0,3 2,0,4 2,0,4"},
        {"a(b)*", "abbb", {2}, "0,0,0 1,0,3 2,0,4 2,0,4"},
        {"(x)y|z", "xz", {2}, "0,0,1 1,0,1 2,0,2 2,0,2"},
        {"x|y(z)", "xz", {2}, "0,0,1 1,0,1 2,0,2 2,0,2"},
        {"[a-e]", "zc", {1}, "0,1,1 2,1,1"},    // stopped: only the last report follows
        {"a", "aba", {0}, "0,0,0 0,2,2 2,2,3"}, // rejected: on behind the match
        {"a", "aa", {2, 0, 2, 0, 1}, "0,0,0 1,0,0 0,1,1 1,1,1 2,1,2 2,1,2"},
        {"^a", "ba", {}, "2,0,0"},
        {"^ab", "aab", {}, "2,0,1 2,0,1"}, // an anchored search that fails ends the run
        {"^(a)+", "aba", {2, 0}, "0,0,0 1,0,0 2,0,1"},
        {"a", "b", {}, "2,0,1"},
        {"ab", "axab", {2}, "2,0,1 2,0,1 2,0,1"}, // to go on without a position is to stop
        {"ab", "axab", {-9}, "2,0,1 2,0,1 2,0,1"},
        {".", "", {}, "2,0,0"}, // the dot matches the 0 at the end, unreported
        {"[a-]", "a", {}, nullptr},
        {"xy|z", "x", {}, "2,0,1 2,0,1 2,0,1"}, // what could follow y does not make x accepting
        {"a\\wb", "a b", {1}, "0,0,2 2,0,2"},
        {"[~\\b-]", "a", {}, nullptr},
        {"", "a", {}, nullptr},
    };
    context ctx;
    const syntax with(ctx);
    for (const kurxcmpfn compare : {kurxscmatch, plain_compare}) {
        with.compare(compare);
        for (const auto &row : rows) {
            runner pattern(ctx, with, row.pattern);
            pattern.answers = row.answers;
            ASSERT_EQ(pattern.handle == nullptr, row.reports == nullptr) << row.pattern;
            if (row.reports != nullptr) {
                EXPECT_EQ(pattern.run(row.text), row.reports) << row.pattern;
            }
        }
    }
}

TEST(Kurf, AClassMatchesAlongTheCollatingOrder)
{
    static const struct {
        const char *pattern;
        const char *matched; // of all ASCII characters
    } rows[] = {
        {"[a-e]", "abcde"},
        {"[ -\\~]", "\t\n"}, // a class of all of these, see below
        {"[;-?]", ",;<=>?"},
        {"[y-b]", "\t\nyz|~"}, // never meets its high end, so it runs to the last character
        {"[%-#]", "!\"#%"},    // what is outside ranks with the blank
        {"[abx-z\\n]", "\nabxyz"},
        {"[\\b-\\n]", ""}, // between classes: from b to n, of which b, n and t are classes
    };
    context ctx;
    const syntax with(ctx);
    for (const auto &row : rows) {
        std::string expected = row.matched;
        if (std::string(row.pattern) == "[ -\\~]") {
            expected.clear();
            for (char c = ' '; c <= '~'; c++)
                if (std::string("()*+%`{}").find(c) == std::string::npos) expected += c;
        }
        if (std::string(row.pattern) == "[\\b-\\n]") expected = "\n ";
        for (const bool negated : {false, true}) {
            std::string pattern = row.pattern;
            if (negated) pattern.insert(1, "~");
            runner one(ctx, with, pattern);
            one.answers = {KURF_A_STOP};
            ASSERT_NE(one.handle, nullptr) << pattern;
            for (char c = 1; c < 127; c++)
                EXPECT_EQ(one.run(std::string(1, c)).substr(0, 1) == "0",
                          (expected.find(c) != std::string::npos) != negated)
                    << pattern << " " << int{c};
        }
    }
}

TEST(Kurf, AMixedRangePushesItsCodeForEachCharacterItIsTriedOn)
{
    context ctx;
    const syntax with(ctx);
    runner pattern(ctx, with, "[a-\\n]|([b-c])");
    EXPECT_EQ(pattern.run("bab"), "0,0,0 1,0,0 2,0,1"); // the stack of errors stops no step
    EXPECT_ERRORS(ctx, {"kurfa 1"});
    EXPECT_EQ(pattern.run("zz"), "2,0,2");
    EXPECT_ERRORS(ctx, {"kurfa 1", "kurfa 1", "kurfa 1"});
    kurno unknown = {};
    EXPECT_EQ(kurfmatch(ctx, with.record, pattern.handle, &unknown, 'a'), 0);
    EXPECT_EQ(kurfcreate(ctx, with.record, "a", 1, 0), nullptr); // the stack must be clear
    EXPECT_ERRORS(ctx, {"kurfa 1"});
}

uint32_t circle(kux *, void *calls, uint32_t tchar)
{
    ++*static_cast<int *>(calls);
    return tchar == 'a' ? 'b' : tchar == 'b' ? 'c' : 'b';
}

TEST(Kurf, ARangeAlongAStrangeSuccessorFunctionEnds)
{
    context ctx;
    const syntax with(ctx);
    runner pattern(ctx, with, "[a-z]");
    int calls = 0;
    kurxa attrs = {};
    attrs.mask_kurxa = KURXA_SUCC | KURXA_SUCCCTX;
    attrs.succfp_kurxa = circle;
    attrs.cctxp_kurxa = &calls;
    ASSERT_EQ(kurxset(ctx, with.record, &attrs), 0u);
    EXPECT_EQ(pattern.run("c"), "0,0,0 1,0,0 2,0,1 2,0,1");
    calls = 0;
    EXPECT_EQ(pattern.run("d"), "2,0,1");
    EXPECT_EQ(calls, 2 * 65536); // once for the d, once for the 0
}

TEST(Kurf, TagsAndIndexesOfARunStayUntilTheNext)
{
    context ctx;
    const syntax with(ctx);
    for (const kurxcmpfn compare : {kurxscmatch, plain_compare}) {
        with.compare(compare);
        runner pattern(ctx, with, "{ab}|{cd}|e");
        const auto tagged = [&]() {
            uint32_t tag = 99;
            return kurfgtagged(ctx, with.record, pattern.handle, &tag) != 0 ? tag : 0;
        };
        pattern.answers = {KURF_A_STOP};
        pattern.run("xcd");
        EXPECT_EQ(tagged(), 2u);
        EXPECT_EQ(kurfgmstart(ctx, with.record, pattern.handle), 1u);
        EXPECT_EQ(kurfgmfinish(ctx, with.record, pattern.handle), 2u);
        pattern.run("ab");
        EXPECT_EQ(tagged(), 1u);
        pattern.run("e"); // a match outside all groups
        EXPECT_EQ(tagged(), 0u);
        runner dots(ctx, with, "..");
        dots.answers = {KURF_A_GO};
        dots.run("a"); // the second dot is the end of the data
        EXPECT_EQ(kurfgmfinish(ctx, with.record, dots.handle), 1u);
        pattern.run("x"); // no match
        EXPECT_EQ(kurfgmstart(ctx, with.record, pattern.handle), 0u);
        EXPECT_EQ(kurfgmfinish(ctx, with.record, pattern.handle), 0u);
    }
}

TEST(Kurf, TextOfEveryRepresentationAndLanguageIsReadByCharacters)
{
    static const struct {
        const char *language, *pattern;
        std::string text;
        const char *reports;
    } rows[] = {
        {"utf8", "\xC3\xA9(.)x", "\xE2\x82\xAC\xC3\xA9\xE2\x82\xACx!", "0,1,3 2,1,3"},
        {"sjis", "\x83\x5C+", "\x5C\x83\x5C\x83\x5C", "0,1,1 2,1,1"}, // its trail byte is no escape
        {"utf8", "a\xFF(.)b",
         "a\xFF\xFE"
         "b",
         "0,0,3 2,0,3"},                       // malformed bytes match themselves
        {"utf8", "\xFF", "\xC3\xBF", "2,0,1"}, // and no character
        {"iso-8859-1", "\xE9.", "\xE9\xFF", "0,0,1 2,0,1"},
        {"ascii", "b", std::string("a\0b", 3), "2,0,1"}, // the data ends at a 0
        {"ascii", "b", "", "2,0,0"},
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        const syntax with(ctx);
        runner pattern(ctx, with, row.pattern);
        pattern.answers = {KURF_A_STOP};
        ASSERT_NE(pattern.handle, nullptr) << row.pattern;
        EXPECT_EQ(pattern.run(row.text), row.reports) << row.pattern;
    }
    context ctx;
    const syntax with(ctx);
    const uint16_t narrow[] = {'b', 0x20AC, '+'};
    const uint32_t wide[] = {'a', 'b', 0x20AC, 0x20AC, 0xFFFFFFFFu};
    kurf *handle = kurfcreate(ctx, with.record, narrow, 3, KURF_U16);
    runner pattern(ctx, with, "a");
    std::swap(handle, pattern.handle);
    kurfdestroy(ctx, with.record, handle);
    pattern.answers = {KURF_A_GO, KURF_A_STOP};
    EXPECT_EQ(pattern.run(wide, 5, KURF_U32),
              "0,1,2 1,1,2 2,1,3"); // `b` and the sign repeat together
    EXPECT_EQ(pattern.run(wide, 5, KURF_WIDE), "0,1,2 1,1,2 2,1,3");
    EXPECT_EQ(pattern.run(wide, 5, 4) + pattern.run(wide, 5, -1), "");
    EXPECT_EQ(pattern.run(nullptr, 0, KURF_U16), "2,0,0");
    EXPECT_EQ(kurfcreate(ctx, with.record, narrow, 3, 4), nullptr);
    EXPECT_EQ(kurfcreate(ctx, with.record, narrow, 0, KURF_U16), nullptr);
    kurf *cut = kurfcreate(ctx, with.record, "ab)", 2, KURF_MULTIBYTE); // two characters of it
    EXPECT_NE(cut, nullptr);
    kurfdestroy(ctx, with.record, cut);
    EXPECT_EQ(kurfconvert(ctx, "\xFFz", 0, 0) + kurfconvert(ctx, narrow, 1, 2), 0xFFu + 0x20ACu);
}

TEST(Kurf, CaseIsIgnoredUnderTheLanguageAndChangesHoldFromTheNextRun)
{
    context ctx("utf8");
    const syntax with(ctx);
    uint32_t vowels[] = {'a', 'e'};
    ASSERT_EQ(kurxeadd(ctx, with.record, 'v', vowels, 2), 0u);
    runner word(ctx, with, "ab\xC3\xA9");
    runner vowel(ctx, with, "\\v");
    runner list(ctx, with, "[x\\v]");
    for (runner *each : {&word, &vowel, &list}) each->answers = {KURF_A_STOP};
    const std::string found = "0,0,0 2,0,0";
    for (int round = 0; round < 2; round++) {
        with.compare(kurxscmatch);
        EXPECT_EQ(word.run("AB\xC3\x89"), "2,0,3");
        EXPECT_EQ(word.run("ab\xC3\xA9"), "0,0,2 2,0,2");
        EXPECT_EQ(vowel.run("E"), "2,0,1");
        with.compare(kurxicmatch);
        EXPECT_EQ(word.run("AB\xC3\x89"), "0,0,2 2,0,2");
        EXPECT_EQ(vowel.run("E"), found);
        EXPECT_EQ(list.run("E"), found);
        vowels[1] = 'i';
        EXPECT_EQ(vowel.run("E"), "2,0,1");
        EXPECT_EQ(list.run("I"), found);
        vowels[1] = 'e';
    }
    kurxedrop(ctx, with.record, 'v');
    EXPECT_EQ(vowel.run("a"), "2,0,1");
    EXPECT_EQ(list.run("x"), found);
}

// ---- a plain matcher ----

// A pattern as a tree of its own, with its spelling.
struct expression {
    char
        kind; // l literals, d dot, s set, n negated set, w class w, q sequence, * + |, ( group, { tag
    std::string letters = {};
    std::vector<expression> parts = {};

    std::string spelled() const
    {
        switch (kind) {
        case 'l': return letters;
        case 'd': return ".";
        case 's': return "[" + letters + "]";
        case 'n': return "[~" + letters + "]";
        case 'w': return "\\w";
        case '*':
        case '+': return parts[0].spelled() + kind;
        case '|': return parts[0].spelled() + "|" + parts[1].spelled();
        case '(': return "(" + parts[0].spelled() + ")";
        case '{': return "{" + parts[0].spelled() + "}";
        default: break;
        }
        std::string text;
        for (const expression &part : parts) { // literals side by side would become one unit
            const std::string next = part.spelled();
            const bool joined = !text.empty() && std::string("abcw").find(text.back()) < 4
                                && std::string("abc\\").find(next[0]) < 4;
            text += joined ? "(" + next + ")" : next;
        }
        return text;
    }
};

expression random_basic(ku::test::dice &dice, int depth);

expression random_re(ku::test::dice &dice, int depth)
{
    expression left = random_basic(dice, depth);
    if (dice.one_in(3)) left = {dice.one_in(2) ? '*' : '+', "", {left}};
    return dice.one_in(4) ? expression{'|', "", {left, random_re(dice, depth)}} : left;
}

expression random_sequence(ku::test::dice &dice, int depth)
{
    expression made = {'q'};
    for (uint32_t i = 1 + dice.below(3); i-- > 0;) made.parts.push_back(random_re(dice, depth));
    return made;
}

expression random_basic(ku::test::dice &dice, int depth)
{
    std::string letters;
    for (uint32_t i = 1 + dice.below(2); i-- > 0;)
        letters += static_cast<char>('a' + dice.below(3));
    const char kind = "lllldsnw(({"[dice.below(depth > 0 ? 11 : 8)];
    if (kind == '(' || kind == '{') return {kind, "", {random_sequence(dice, depth - 1)}};
    return {kind, letters};
}

// Matching by backtracking: all ways, from one start. The data's last character is its 0.
struct backtracker {
    using rest = std::function<void(size_t)>;
    const text32 *data;
    std::vector<char> alive;  // some way takes this character
    std::vector<char> accept; // some way ends behind it
    bool empty = false;       // some way ends before the start

    backtracker(const text32 &text, const expression &whole, size_t start)
        : data(&text), alive(text.size()), accept(text.size())
    {
        match(whole, start, [&](size_t at) {
            if (at == start)
                empty = true;
            else
                accept[at - 1] = 1;
        });
    }

    bool takes(const expression &leaf, char letter, uint32_t c) const
    {
        const bool listed = c != 0 && c < 128 && leaf.letters.find(static_cast<char>(c)) < 99;
        switch (leaf.kind) {
        case 'd': return true;
        case 's': return listed;
        case 'n': return !listed;
        case 'w': return c == ' ' || c == '\t' || c == '\n' || c == 0;
        default: return c == static_cast<uint32_t>(letter);
        }
    }
    void leaf(const expression &node, char letter, size_t at, const rest &then)
    {
        if (at >= data->size() || !takes(node, letter, (*data)[at])) return;
        alive[at] = 1;
        then(at + 1);
    }
    void run(const expression &node, size_t index, size_t at, const rest &then) // parts or letters
    {
        const size_t count = node.kind == 'l' ? node.letters.size() : node.parts.size();
        if (index == count) return then(at);
        const auto next = [&](size_t behind) { run(node, index + 1, behind, then); };
        if (node.kind == 'l')
            leaf(node, node.letters[index], at, next);
        else
            match(node.parts[index], at, next);
    }
    void match(const expression &node, size_t at, const rest &then)
    {
        switch (node.kind) {
        case 'l':
        case 'q':
        case '(':
        case '{': return run(node, 0, at, then);
        case '|': match(node.parts[0], at, then); return match(node.parts[1], at, then);
        case '*':
            then(at);
            return match(node.parts[0], at, [&](size_t behind) {
                if (behind > at) then(behind);
                if (behind > at) match({'+', "", node.parts}, behind, then);
            });
        case '+':
            return match(node.parts[0], at, [&](size_t behind) {
                then(behind);
                if (behind > at) match(node, behind, then);
            });
        default: return leaf(node, 0, at, then);
        }
    }
};

// What a run must report, by the searches from each start.
std::string expected_reports(const expression &whole, bool start_anchor, bool end_anchor,
                             text32 data, const std::vector<int32_t> &answers)
{
    data.push_back(0);
    const size_t end = data.size() - 1;
    std::string reports;
    size_t count = 0;
    size_t start = 0;
    const auto tell = [&](int transition, size_t finish) {
        reports += (count == 0 ? "" : " ") + std::to_string(transition) + ","
                   + std::to_string(start) + "," + std::to_string(finish);
        return answers[count++ % answers.size()];
    };
    bool looking = true;
    bool accepting = false;
    backtracker search(data, whole, 0);
    size_t at = 0;
    for (;;) {
        if (looking) search = backtracker(data, whole, at);
        // The end of the pattern is a position, too: it takes the 0.
        bool alive = search.alive[at] != 0;
        if (at == end && looking) alive |= search.empty && !start_anchor && !end_anchor;
        if (at == end && !looking && at > start) alive |= search.accept[at - 1] != 0;
        if (looking && !alive && start_anchor) break;
        if (looking && alive) start = at;
        if (looking) looking = !alive;
        int transition = -1;
        if (!looking) {
            const bool accept = alive && search.accept[at] != 0;
            if (!alive)
                transition = accepting ? 1 : 2;
            else if (accepting)
                transition = !accept || at == end ? 1 : -1;
            else if (accept && at < end && (!end_anchor || at + 1 == end))
                transition = 0;
            if (transition != -1) accepting = transition == 0 || (alive && accept);
        }
        if (transition != -1) {
            int32_t answer = tell(transition, transition == 1 ? at - 1 : at);
            if (at == end || (!alive && answer != 0 && answer != 1)) {
                transition = 2;
                answer = tell(2, at);
            }
            if (answer == 1 || (answer != 0 && !alive)) break;
            if (answer == 0) {
                looking = true;
                accepting = false;
                if (transition == 2 && start_anchor) break;
                if (transition != 0) continue;
            }
        }
        if (at == end) break;
        at++;
    }
    tell(2, at);
    return reports;
}

struct feeding {
    const text32 &data;
    size_t at = 0;
    int calls = 0;
    runner *watching = nullptr;
};

uint32_t feed(kux *, void *cctxp)
{
    auto &source = *static_cast<feeding *>(cctxp);
    source.calls++;
    if (source.watching != nullptr) source.watching->look();
    return source.at < source.data.size() ? source.data[source.at++] : 0;
}

TEST(Kurf, RandomPatternsRunAsThePlainMatcherSays)
{
    context ctx;
    const syntax with(ctx);
    ku::test::dice dice;
    const std::string far(80, 'z'); // moves positions behind the first word of bits
    for (int round = 0; round < 2500; round++) {
        const bool start_anchor = dice.one_in(5);
        const bool end_anchor = dice.one_in(5);
        const expression whole = random_sequence(dice, 2);
        std::string pattern = whole.spelled();
        if (dice.one_in(3)) pattern = far + "|(" + pattern + ")";
        pattern = (start_anchor ? "^" : "") + pattern + (end_anchor ? "$" : "");
        text32 data;
        for (uint32_t i = dice.below(7); i-- > 0;) data.push_back("aabbcx "[dice.below(7)]);
        std::vector<int32_t> answers;
        for (int i = 0; i < 5; i++) answers.push_back("0012227"[dice.below(7)] - '0');
        std::string text(data.begin(), data.end());
        SCOPED_TRACE(pattern + " over '" + text + "' " + testing::PrintToString(answers));

        with.compare(kurxscmatch);
        runner ours(ctx, with, pattern);
        ASSERT_NE(ours.handle, nullptr);
        ours.answers = answers;
        const std::string quick = ours.run(text);
        const std::string seen = ours.seen;
        ASSERT_EQ(quick, expected_reports(whole, start_anchor, end_anchor, data, answers));
        // Run on sets, from a client's function, and again: the same reports and sets.
        ours.run(data.data(), data.size(), KURF_U32);
        ASSERT_EQ(ours.reports + ours.seen, quick + seen);
        std::string watched;
        for (const kurxcmpfn compare : {kurxscmatch, plain_compare}) {
            with.compare(compare);
            ours.run(text);
            ASSERT_EQ(ours.reports + ours.seen, quick + seen);
            feeding source = {data};
            source.watching = &ours;
            ours.clear();
            kurfcrun(ctx, with.record, ours.handle, feed, &source, runner::report, &ours);
            ASSERT_EQ(ours.reports, quick);
            if (!watched.empty()) {
                ASSERT_EQ(ours.seen, watched);
            }
            watched = ours.seen;
        }
    }
}

// ---- callbacks and memory ----

TEST(Kurf, AStepTakesTheSizeOfALargePatternAndNotItsSquare)
{
    constexpr int large = 40000; // its square, 30 times over, takes half a minute at least
    const std::string text(30, 'a');
    context ctx;
    const syntax with(ctx);
    std::string choices = "(";
    std::string stars;
    for (int i = 0; i < large; i++) {
        choices += "a|";
        stars += ".*";
    }
    for (const std::string &pattern : {choices + "b)*", stars}) {
        const runner large_one(ctx, with, pattern);
        const std::clock_t before = std::clock();
        kurfrun(ctx, with.record, large_one.handle, text.data(), 30, KURF_MULTIBYTE, nullptr,
                nullptr);
        EXPECT_LT(std::clock() - before, 5 * CLOCKS_PER_SEC);
    }
}

TEST(Kurf, CharactersAreReadOnceAndOneAhead)
{
    context ctx;
    const syntax with(ctx);
    int compares = 0;
    with.compare(plain_compare, &compares);
    runner pattern(ctx, with, "b");
    const text32 data = {'a', 'b', 'c'};
    feeding source = {data};
    kurfcrun(ctx, with.record, pattern.handle, feed, &source, nullptr, nullptr); // nobody is told
    EXPECT_EQ(source.calls, 4); // c, behind which the match is over, has the end ahead
    EXPECT_EQ(compares, 3);     // one position a character
    feeding again = {data};
    pattern.answers = {KURF_A_REJECT};
    kurfcrun(ctx, with.record, pattern.handle, feed, &again, runner::report, &pattern);
    EXPECT_EQ(again.calls, 4);
    EXPECT_EQ(pattern.reports, "0,1,1 2,1,3");
}

TEST(Kurf, CallbacksMayResetAndRunTheirRunner)
{
    context ctx;
    const syntax with(ctx);
    for (const kurxcmpfn compare : {kurxscmatch, plain_compare}) {
        with.compare(compare);
        runner pattern(ctx, with, "(a|b)+c");
        for (const bool rerun : {false, true}) {
            for (int which = 0; which < 6; which++) {
                pattern.answers = {2, 0};
                pattern.during = [&](int number) {
                    if (number != which) return;
                    if (rerun)
                        kurfrun(ctx, with.record, pattern.handle, "xbc", 3, 0, nullptr, nullptr);
                    else
                        kurfreset(ctx, with.record, pattern.handle);
                };
                pattern.run("abcabxbcabcab");
                EXPECT_EQ(kurfgstate(ctx, with.record, pattern.handle), KURF_S_NONE);
            }
        }
        pattern.during = nullptr;
        pattern.answers = {2};
        EXPECT_EQ(pattern.run("xabc"), "0,1,3 1,1,3 2,1,4 2,1,4");
        struct rerunning {
            const runner &self;
            kurx *syntax;
            int calls = 0;
        } source{pattern, with.record};
        const auto next = [](kux *of, void *cctxp) -> uint32_t {
            auto &from = *static_cast<rerunning *>(cctxp);
            if (++from.calls == 1)
                kurfrun(of, from.syntax, from.self.handle, "x", 1, 0, nullptr, nullptr);
            return from.calls < 9 ? 'x' : 0;
        };
        kurfcrun(ctx, with.record, pattern.handle, next, &source, nullptr, nullptr);
        EXPECT_EQ(source.calls, 2) << "no state is left to go on from";
    }
}

TEST(Kurf, AStateThatACallbackHoldsStaysAsItWas)
{
    context ctx;
    const syntax with(ctx);
    for (const kurxcmpfn compare : {kurxscmatch, plain_compare}) {
        with.compare(compare);
        runner pattern(ctx, with, "(a)(b)+");
        std::vector<kurl *> held;
        pattern.during = [&](int) {
            held.push_back(kurlcopy(ctx, pattern.handle->currkurlp_kurf));
        };
        pattern.answers = {KURF_A_GO, KURF_A_REJECT};
        ASSERT_EQ(pattern.run("abbxab"), "0,0,1 1,0,2 0,4,5 1,4,5 2,4,6 2,4,6");
        EXPECT_EQ(held[0]->accepting_kurl, 1);
        EXPECT_EQ(kulpnitems(ctx, held[0]->nfalist_kurl), 2);
        EXPECT_EQ(kurlequiv(ctx, held[0], held[2]), 1); // behind the first b of either match
        for (kurl *set : held) kurldestroy(ctx, set);
    }
}

TEST(Kurf, TheStepsOfARunCanBeTakenOneByOne)
{
    context ctx;
    const syntax with(ctx);
    const runner pattern(ctx, with, "{ab}");
    kurf &run = *pattern.handle;
    kurl *start = run.currkurlp_kurf;
    kurl *set = kurfdelta(ctx, with.record, &run, start, 'a');
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(kurfcall(ctx, with.record, &run, set, 'a', 'b'), -1);
    set = kurfdelta(ctx, with.record, &run, set, 'b');
    EXPECT_EQ(set->accepting_kurl + run.tag_kurf, 2u);
    EXPECT_EQ(kurfcall(ctx, with.record, &run, set, 'b', 0), KURF_T_ACCEPT);
    set->accepting_kurl = 0;
    kurfmaccept(ctx, &run, run.kurnp_kurf, start);
    kurfmaccept(ctx, &run, run.kurnp_kurf, set);
    EXPECT_EQ(set->accepting_kurl + 2 * start->accepting_kurl, 1);
    EXPECT_EQ(kurfdelta(ctx, with.record, &run, set, 'b'), nullptr);
    EXPECT_EQ(kurfcall(ctx, with.record, &run, nullptr, 'b', 0), KURF_T_END);
    const uint32_t unit = 0x80000001u;
    kurfc data = {};
    data.datap_kurfc = &unit;
    data.datan_kurfc = 1;
    data.datat_kurfc = KURF_WIDE;
    EXPECT_EQ(kurfcnext(ctx, &data), unit);
    EXPECT_EQ(kurfcnext(ctx, &data), 0u);
    EXPECT_EQ(kurtedestroy(ctx, ctx->kuxnmalloc(ctx, 1), nullptr), 0u);
}

TEST(Kurf, ShortOfMemoryAPatternDoesNotCompileAndARunTakesFailedStepsForFailedMatches)
{
    ku::test::sweep_allocations([](context &ctx) {
        const syntax with(ctx);
        if (with.record == nullptr) return false;
        with.compare(plain_compare);
        runner pattern(ctx, with, "(a|b)*c{d}[~e-f]");
        EXPECT_EQ(pattern.handle == nullptr, kuxernerrors(ctx) != 0);
        if (pattern.handle == nullptr) return false;
        pattern.answers = {0};
        pattern.run("abacdxacdef");
        return kuxernerrors(ctx) == 0;
    });
}

} // namespace
