// kurn_test.cpp - patterns compiled: tokens, trees, position sets, the automaton
#include "kurn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <malloc.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kul.h"
#include "kurf.h"
#include "kurm.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;

std::string repeated(int count, const std::string &piece)
{
    std::string text;
    for (int i = 0; i < count; i++) text += piece;
    return text;
}

// A pattern's tokens and, where it parses, its tree. A # stands for a 0 inside the pattern.
struct parsed {
    context &ctx;
    kurx *syntax;
    kurt *table = nullptr;
    kurn *tree = nullptr;

    parsed(context &owner, const std::string &pattern)
        : ctx(owner), syntax(kurxcreate(ctx, nullptr))
    {
        std::vector<uint32_t> characters(pattern.begin(), pattern.end());
        std::replace(characters.begin(), characters.end(), uint32_t{'#'}, 0u);
        characters.push_back(0);
        if (syntax == nullptr) return; // short of memory
        table = kurtcreate(ctx, syntax, characters.data(), static_cast<uint32_t>(pattern.size()));
        if (table != nullptr) tree = kurncreate(ctx, syntax, table);
    }
    ~parsed()
    {
        if (tree != nullptr) kurmdestroy(ctx, tree, tree->rtkurnop_kurn);
        kurndestroy(ctx, tree);
        kurtdestroy(ctx, table);
        kurxdestroy(ctx, syntax);
    }
    parsed(const parsed &) = delete;
    parsed &operator=(const parsed &) = delete;

    int32_t made() const { return tree->activepool_kurn * KURN_POOL + tree->activeavail_kurn; }
    kurno *node(int32_t index) const
    {
        return &tree->plkurnopp_kurn[index / KURN_POOL][index % KURN_POOL];
    }
};

const char *const names[] = {"basic", "beg",    "caret",   "clit",  "concat", "dollar",
                             "m",     "litlis", "or",      "plus",  "re",     "rg",
                             "rlis",  "star",   "twiddle", "tagged"};

std::string shape(const kurno &node)
{
    std::string text = names[node.nodetype_kurno];
    if (node.nodetype_kurno == KURN_MATCH)
        return text + std::to_string(node.kurtep_kurno->type_kurte);
    for (int32_t i = 0; i < node.numchild_kurno; i++)
        text += (i == 0 ? "(" : " ") + shape(*node.ckurnop_kurno[i]);
    return text + ")";
}

// ---- tokens ----

TEST(Kurt, TokensAreTypedByTheirCharacterTheirPlaceAndTheEscapeBeforeThem)
{
    static constexpr struct {
        const char *pattern;
        const char *types; // of all tokens
        int anchors;       // 1: start, 2: end
    } rows[] = {
        {"()[]*+~|.-{}", "2 3 4 5 6 7 8 11 12 13 15 16 14 ", 0},
        {"^a$", "9 1 10 14 ", 3},
        {"a^$b", "1 1 1 1 14 ", 0}, // anchors elsewhere are literals
        {"$^", "1 1 14 ", 0},       // and so are these
        {"$", "10 14 ", 2},
        {"\\^\\$", "1 1 14 ", 0}, // an escaped anchor is one, too
        {"\\w\\b\\n\\t\\c\\*", "0 0 0 0 1 1 14 ", 0},
        {"\\\\w", "0 14 ", 0}, // an escaped escape escapes the next one
        {"a\\", "1 1 ", 0},    // the 0 at the end is escaped
        {"\\", "1 ", 0},
        {"a#b", "1 14 1 14 ", 0},
        {"", "14 ", 0},
    };
    context ctx;
    for (const auto &row : rows) {
        const parsed pattern(ctx, row.pattern);
        std::string types;
        for (uint32_t i = 0; i < pattern.table->numkurte_kurt; i++)
            types += std::to_string(pattern.table->tokens_kurt[i].type_kurte) + " ";
        EXPECT_EQ(types, row.types) << row.pattern;
        EXPECT_EQ(pattern.table->sanchor_kurt + 2 * pattern.table->fanchor_kurt, row.anchors)
            << row.pattern;
    }
    EXPECT_EQ(kurtdelta(ctx, 0, KURT_ESCAPE), KURT_A_REMEMBER);
    EXPECT_EQ(kurtdelta(ctx, 0, KURT_DOT), KURT_A_EMIT);
    EXPECT_EQ(kurtdelta(ctx, 1, KURT_ESCAPE), KURT_A_EMIT);
    EXPECT_EQ(kurtdelta(ctx, 2, 1) + kurtdelta(ctx, 3, 1), 2 * KURT_A_FAIL);
    EXPECT_EQ(kurtdelta(ctx, 4, 0), KURT_A_NONE);
}

// ---- the grammar, tried alternative by alternative ----

// A production's alternatives in order: productions by name, tokens by number; ? may be absent.
const std::map<std::string, std::vector<std::vector<std::string>>> grammar = {
    {"beg", {{"caret?", "concat", "dollar?", "14"}}},
    {"caret", {{"9"}}},
    {"dollar", {{"10"}}},
    {"concat", {{"re", "concat"}, {"re"}}},
    {"re", {{"or"}, {"star"}, {"plus"}, {"basic"}}},
    {"or", {{"star", "11", "re"}, {"plus", "11", "re"}, {"basic", "11", "re"}}},
    {"star", {{"basic", "6"}}},
    {"plus", {{"basic", "7"}}},
    {"basic",
     {{"15", "tagged", "16"},
      {"2", "concat", "3"},
      {"4", "twiddle", "5"},
      {"4", "rlis", "5"},
      {"litlis"},
      {"12"}}},
    {"tagged", {{"concat"}}},
    {"twiddle", {{"8", "rlis"}}},
    {"rlis", {{"rg", "rlis"}, {"rg"}}},
    {"rg", {{"clit", "13", "clit"}, {"clit"}}},
    {"litlis", {{"clit", "litlis"}, {"clit"}}},
    {"clit", {{"0"}, {"1"}}},
};

struct backtracking {
    const kurt &table;
    uint32_t at = 0;
    std::map<std::pair<std::string, uint32_t>, std::pair<std::string, uint32_t>> made = {};

    // What a symbol makes, or nothing, with the place where it was. What it once made it
    // makes again.
    std::string make(const std::string &symbol)
    {
        const auto known = made.find({symbol, at});
        if (known != made.end()) {
            at = known->second.second;
            return known->second.first;
        }
        const uint32_t before = at;
        const std::string text = at < table.numkurte_kurt ? attempt(symbol) : "";
        if (text.empty()) at = before;
        made[{symbol, before}] = {text, at};
        return text;
    }
    std::string attempt(const std::string &symbol)
    {
        if (std::isdigit(symbol[0]) != 0)
            return table.tokens_kurt[at++].type_kurte == std::stoi(symbol) ? "m" + symbol : "";
        const uint32_t before = at;
        for (const auto &alternative : grammar.at(symbol)) {
            std::string text = symbol;
            at = before;
            if (sequence(alternative, text)) return text + ")";
        }
        return "";
    }
    bool sequence(const std::vector<std::string> &symbols, std::string &text)
    {
        char separator = '(';
        for (const std::string &symbol : symbols) {
            const bool optional = symbol.back() == '?';
            const std::string child = make(optional ? symbol.substr(0, symbol.size() - 1) : symbol);
            if (child.empty() && !optional) return false;
            if (!child.empty()) text += separator + child;
            if (!child.empty()) separator = ' ';
        }
        return true;
    }
};

TEST(Kurn, RandomPatternsParseAsTheAlternativesTriedInOrderSay)
{
    static const std::vector<std::string> pieces = {
        "a",   "b", "ab", "(a)", "(",   ")", "[a-c]", "[~b]", "[", "]",   "*",   "+", "|",
        "a|b", "~", ".",  "-",   "{b}", "{", "}",     "^",    "$", "\\w", "\\*", "#", "(a|b)*"};
    context ctx;
    ku::test::dice dice;
    int good = 0;
    for (int round = 0; round < 3000; round++) {
        std::string pattern;
        for (uint32_t i = dice.below(7); i-- > 0;) pattern += pieces[dice.below(pieces.size())];
        const parsed ours(ctx, pattern);
        backtracking theirs = {*ours.table};
        const std::string expected = theirs.make("beg");
        ASSERT_EQ(ours.tree != nullptr, !expected.empty()) << pattern;
        ASSERT_EQ(kuxernerrors(ctx), 0) << pattern;
        if (ours.tree == nullptr) continue;
        good++;
        ASSERT_EQ(shape(*ours.tree->rtkurnop_kurn), expected) << pattern;
        // One node a production and token, parents before children, the end position last.
        const auto nodes = 1 + std::count(expected.begin(), expected.end(), ' ')
                           + std::count(expected.begin(), expected.end(), '(');
        ASSERT_EQ(ours.made(), nodes) << pattern;
        ASSERT_EQ(ours.tree->nullkurnop_kurn, ours.node(ours.made() - 1)) << pattern;
        std::vector<const kurno *> order = {ours.tree->rtkurnop_kurn};
        for (int32_t i = 0; i < ours.made(); i++) {
            const kurno *node = order.back();
            ASSERT_EQ(node, ours.node(i)) << pattern;
            order.pop_back();
            for (int32_t child = node->numchild_kurno; child-- > 0;)
                order.push_back(node->ckurnop_kurno[child]);
        }
    }
    EXPECT_GT(good, 150);
}

TEST(Kurn, AProductionMakesItsNodeOrLeavesAllAsItWas)
{
    static constexpr int32_t absent = 100; // the true node
    static constexpr int32_t none = -1;
    static constexpr struct {
        kurno *(*parse)(kux *, kurn *, kurno *);
        int32_t type;
        struct {
            int32_t from, behind;
        } places[3];
    } rows[] = {
        //                         ^ab(c)*(a|b)+[~a-c]{x}.|z(y)$
        {kurnobeg, KURN_BEG, {{0, 30}, {3, 30}, {5, none}}},
        {kurnocaret, KURN_CARET, {{0, 1}, {1, absent}, {30, none}}},
        {kurnodollar, KURN_DOLLAR, {{28, 29}, {29, absent}, {30, none}}},
        {kurnoconcat, KURN_CONCAT, {{1, 28}, {4, 5}, {5, none}}},
        {kurnore, KURN_RE, {{3, 7}, {1, 3}, {6, none}}},
        {kurnoor, KURN_OR, {{8, 11}, {22, 25}, {1, none}}},
        {kurnostar, KURN_STAR, {{3, 7}, {7, none}, {22, none}}},
        {kurnoplus, KURN_PLUS, {{7, 13}, {3, none}, {13, none}}},
        {kurnobasic, KURN_BASIC, {{13, 19}, {19, 22}, {9, none}}},
        {kurnotagged, KURN_TAGGED, {{20, 21}, {4, 5}, {21, none}}},
        {kurnotwiddle, KURN_TWIDDLE, {{14, 18}, {15, none}, {30, none}}},
        {kurnorlis, KURN_RLIS, {{15, 18}, {1, 3}, {16, none}}},
        {kurnorg, KURN_RG, {{15, 18}, {1, 2}, {14, none}}},
        {kurnolitlis, KURN_LITLIS, {{1, 3}, {17, 18}, {3, none}}},
        {kurnoclit, KURN_CLIT, {{1, 2}, {17, 18}, {22, none}}},
    };
    context ctx;
    const parsed pattern(ctx, "^ab(c)*(a|b)+[~a-c]{x}.|z(y)$");
    kurn &tree = *pattern.tree;
    for (const auto &row : rows) {
        for (const auto &place : row.places) {
            SCOPED_TRACE(std::string(names[row.type]) + " from " + std::to_string(place.from));
            kurno parent = {};
            const int32_t made = pattern.made();
            tree.curtkni_kurn = place.from;
            tree.curtknp_kurn = pattern.table->tokens_kurt + place.from;
            kurno *node = row.parse(ctx, &tree, &parent);
            if (place.behind >= 0 && place.behind != absent) {
                EXPECT_TRUE(node != nullptr && node->nodetype_kurno == row.type);
                EXPECT_TRUE(node == parent.ckurnop_kurno[0] && node->pkurnop_kurno == &parent);
                EXPECT_EQ(tree.curtkni_kurn, place.behind);
                continue;
            }
            EXPECT_EQ(node, place.behind == absent ? &tree.truekurno_kurn : nullptr);
            EXPECT_EQ(parent.numchild_kurno, 0);
            EXPECT_EQ(tree.curtkni_kurn, place.from);
            EXPECT_EQ(pattern.made(), made);
        }
    }
    kurno full = {};
    full.numchild_kurno = KURN_CHILDREN;
    EXPECT_EQ(kurnozget(ctx, &tree, KURN_RE, &full), nullptr);
    tree.curtkni_kurn = 0;
    EXPECT_EQ(kurnomatch(ctx, &tree, nullptr, KURT_DOLLAR), nullptr);
    kuxer0push(ctx, KURFA_NOMATCH); // a code from before ends a parse at once
    EXPECT_EQ(kurnobeg(ctx, &tree, nullptr), nullptr);
    EXPECT_EQ(kurncreate(ctx, pattern.syntax, pattern.table), nullptr);
    EXPECT_ERRORS(ctx, {"kurfa 1"});
}

// ---- sets ----

using numbers = std::set<uint32_t>;

// What the sets of a tree must be, found by the definitions rather than by the rules.
struct sets {
    bool nullable = false;
    numbers first, last;
};

struct expecting {
    std::map<uint32_t, numbers> follow;

    void link(const numbers &from, const numbers &to)
    {
        for (const uint32_t position : from) follow[position].insert(to.begin(), to.end());
    }
    // One behind the other.
    sets join(const sets &a, const sets &b)
    {
        link(a.last, b.first);
        sets both = {a.nullable && b.nullable, a.first, b.last};
        if (a.nullable) both.first.insert(b.first.begin(), b.first.end());
        if (b.nullable) both.last.insert(a.last.begin(), a.last.end());
        return both;
    }
    sets of(const kurno &node)
    {
        if (node.nodeid_kurno != 0) return {false, {node.nodeid_kurno}, {node.nodeid_kurno}};
        if (node.numchild_kurno == 0) return {};
        const auto child = [&](int32_t i) { return of(*node.ckurnop_kurno[i]); };
        sets made = child(0);
        switch (node.nodetype_kurno) {
        case KURN_BASIC:
            if (node.numchild_kurno == 3) made = child(1);
            break;
        case KURN_CONCAT:
        case KURN_LITLIS:
            if (node.numchild_kurno == 2) made = join(made, child(1));
            break;
        case KURN_OR: {
            const sets right = child(2);
            made.nullable |= right.nullable;
            made.first.insert(right.first.begin(), right.first.end());
            made.last.insert(right.last.begin(), right.last.end());
            break;
        }
        case KURN_STAR: made.nullable = true; [[fallthrough]];
        case KURN_PLUS: link(made.last, made.first); break;
        default: break;
        }
        return made;
    }
};

numbers held(kux *ctx, const kurl *set)
{
    numbers result;
    uint32_t before = 0;
    for (int32_t i = 0; set != nullptr && i < kulpnitems(ctx, set->nfalist_kurl); i++) {
        const auto *list = static_cast<const kul *>(set->nfalist_kurl);
        const uint32_t number = static_cast<const kurno *>(list->items_kul[i])->nodeid_kurno;
        EXPECT_GT(number, before);
        result.insert(before = number);
    }
    return result;
}

void expect_sets(kux *ctx, const kurno &node, expecting &expected)
{
    const bool punctuation = node.nodetype_kurno == KURN_MATCH && node.nodeid_kurno == 0;
    if (punctuation || node.nodetype_kurno == KURN_CARET || node.nodetype_kurno == KURN_DOLLAR) {
        EXPECT_TRUE(node.firstkurlp_kurno == nullptr && node.lastkurlp_kurno == nullptr);
        return;
    }
    if (node.nodetype_kurno != KURN_BEG) {
        const sets own = expecting().of(node);
        EXPECT_EQ(node.nullable_kurno != 0, own.nullable) << shape(node);
        EXPECT_EQ(held(ctx, node.firstkurlp_kurno), own.first) << shape(node);
        EXPECT_EQ(held(ctx, node.lastkurlp_kurno), own.last) << shape(node);
    }
    if (node.nodeid_kurno != 0) {
        EXPECT_EQ(held(ctx, node.followkurlp_kurno), expected.follow[node.nodeid_kurno]);
    }
    for (int32_t i = 0; node.nodeid_kurno == 0 && i < node.numchild_kurno; i++)
        expect_sets(ctx, *node.ckurnop_kurno[i], expected);
}

TEST(Kurm, RandomPatternsHaveTheSetsOfTheirDefinitions)
{
    static const std::vector<std::string> pieces = {
        "a", "bc", "(", ")", "|", "*", "+", "(d)*", "[a-c]", "(a|b)*", "(ef)+", "{", "}", "."};
    context ctx;
    ku::test::dice dice;
    int good = 0;
    for (int round = 0; round < 20000 && good < 800; round++) {
        std::string text;
        for (uint32_t i = 1 + dice.below(14); i-- > 0;) text += pieces[dice.below(pieces.size())];
        const parsed pattern(ctx, text);
        if (pattern.tree == nullptr) continue;
        good++;
        SCOPED_TRACE(text);
        ASSERT_EQ(kurmcreate(ctx, pattern.tree), 0u);
        const kurno &root = *pattern.tree->rtkurnop_kurn;
        const uint32_t end = pattern.tree->nullkurnop_kurn->nodeid_kurno;
        expecting expected;
        const sets whole = expected.of(*root.ckurnop_kurno[0]);
        expected.link(whole.last, {end});
        expect_sets(ctx, root, expected);
        numbers first = whole.first;
        if (whole.nullable) first.insert(end);
        EXPECT_EQ(held(ctx, root.firstkurlp_kurno), first);
        for (int32_t i = 0; i < pattern.made(); i++) {
            const kurno &node = *pattern.node(i);
            const bool accepts = expected.follow[node.nodeid_kurno].count(end) != 0;
            EXPECT_EQ(node.accepting_kurno != 0, node.nodeid_kurno != 0 && accepts);
        }
        if (HasFailure()) break;
    }
    EXPECT_GT(good, 300);
}

TEST(Kurm, PositionsAreNumberedInPatternOrderAndKnowTheirTag)
{
    static constexpr struct {
        const char *pattern;
        const char *positions; // number and tag of each
        const char *start;
    } rows[] = {
        {"(a|b)*c", "1.0 2.0 3.0 4.0 ", "1 2 3 "},
        {"[a-z]x", "1.0 2.0 3.0 ", "1 "},
        {"{ab}|{cd}", "1.1 2.1 3.2 4.2 5.0 ", "1 3 "},
        {"{a{b}c}{d}", "1.1 2.2 3.1 4.3 5.0 ", "1 "},
        {"a*", "1.0 2.0 ", "1 2 "},
        {"^a*", "1.0 2.0 ", "1 "},
        {"a*$", "1.0 2.0 ", "1 "}, // the dollar is what comes behind the pattern, and has none
    };
    context ctx;
    for (const auto &row : rows) {
        const parsed pattern(ctx, row.pattern);
        ASSERT_EQ(kurmcreate(ctx, pattern.tree), 0u);
        std::string positions;
        std::string start;
        for (int32_t i = 0; i < pattern.made(); i++)
            if (kurmlogleaf(ctx, pattern.tree, pattern.node(i)) != 0
                && pattern.node(i)->nodeid_kurno != 0)
                positions += std::to_string(pattern.node(i)->nodeid_kurno) + "."
                             + std::to_string(pattern.node(i)->tag_kurno) + " ";
        for (const uint32_t number : held(ctx, pattern.tree->rtkurnop_kurn->firstkurlp_kurno))
            start += std::to_string(number) + " ";
        EXPECT_EQ(positions, row.positions) << row.pattern;
        EXPECT_EQ(start, row.start) << row.pattern;
    }
}

TEST(Kurl, ChangingASetLeavesThoseThatShareItsItems)
{
    context ctx;
    const parsed pattern(ctx, "(a)*(b)*(c)*");
    ASSERT_EQ(kurmcreate(ctx, pattern.tree), 0u);
    std::vector<kurno *> positions(5);
    for (int32_t i = 0; i < pattern.made(); i++)
        if (pattern.node(i)->nodeid_kurno != 0)
            positions[pattern.node(i)->nodeid_kurno] = pattern.node(i);
    kurl *first = positions[1]->followkurlp_kurno;  // 1 2 3 4
    kurl *second = positions[3]->followkurlp_kurno; // 3 4
    for (const kurl *set : {second, positions[4]->followkurlp_kurno}) {
        EXPECT_EQ(kulpinsert(ctx, set->nfalist_kurl, KUL_APPEND, positions[1]), KULAA_LOCKED);
        EXPECT_ERRORS(ctx, {"kulaa 2"});
    }

    kurl *own = kurlcreate(ctx, 2, &positions[1]);
    EXPECT_EQ(held(ctx, own), numbers({1, 2}));
    EXPECT_EQ(kurlmerge(ctx, second, own), 0u);
    EXPECT_EQ(held(ctx, second), numbers({1, 2, 3, 4}));
    EXPECT_EQ(kurlequiv(ctx, first, second), 1);
    EXPECT_EQ(kurlequiv(ctx, first, own) + kurlequiv(ctx, own, nullptr), 0);
    EXPECT_EQ(kurlconcat(ctx, own, positions[4]->followkurlp_kurno), 0u); // an empty one
    EXPECT_EQ(kurlmerge(ctx, own, nullptr) + kurlconcat(ctx, nullptr, own), 0u);
    EXPECT_EQ(kurlcopy(ctx, own)->rcount_kurl, 2);
    EXPECT_EQ(kurldestroy(ctx, own), nullptr);
    EXPECT_EQ(kurmfpadd(ctx, pattern.tree, own, own), 0u); // to what 1 and 2 hold
    EXPECT_EQ(held(ctx, first), numbers({1, 2, 3, 4}));
    EXPECT_EQ(held(ctx, positions[2]->followkurlp_kurno), numbers({1, 2, 3, 4}));
    EXPECT_EQ(kurmcnull(ctx, pattern.tree, own), 0);
    EXPECT_EQ(kurlstrip(ctx, own), 0u);
    EXPECT_EQ(own->nfalist_kurl, nullptr);
    EXPECT_EQ(kurlequiv(ctx, own, nullptr), 1);
    kurldestroy(ctx, own);
    kurldestroy(ctx, nullptr);
}

// ---- limits ----

size_t allocated = 0; // bytes alive

void *take(kux *, uint32_t size)
{
    void *block = std::calloc(1, std::max(size, 1u));
    if (block != nullptr) allocated += malloc_usable_size(block);
    return block;
}

void *give(kux *, void *block)
{
    allocated -= malloc_usable_size(block);
    std::free(block);
    return nullptr;
}

void *resize(kux *, void *block, uint32_t size)
{
    allocated -= malloc_usable_size(block);
    block = std::realloc(block, size);
    allocated += malloc_usable_size(block);
    return block;
}

// Bytes of a compiled pattern; 0 when it does not compile.
size_t compiled(const std::string &pattern)
{
    kuxa attrs = {};
    attrs.kuxamask = KUXA_NMALL;
    attrs.kuxanmalloc = take;
    attrs.kuxanmfree = give;
    attrs.kuxanmrealloc = resize;
    kux *ctx = kuxcreate(&attrs);
    kurx *syntax = kurxcreate(ctx, nullptr);
    const size_t before = allocated;
    kurf *runner =
        kurfcreate(ctx, syntax, pattern.c_str(), static_cast<uint32_t>(pattern.size()), 0);
    const size_t after = allocated;
    EXPECT_EQ(kuxernerrors(ctx), 0);
    kurfdestroy(ctx, syntax, runner);
    EXPECT_EQ(allocated, before);
    kurxdestroy(ctx, syntax);
    kuxdestroy(ctx);
    return runner != nullptr ? after - before : 0;
}

TEST(Kurm, MemoryGrowsHardlyFasterThanThePattern)
{
    static constexpr struct {
        const char *opening, *begin, *piece, *end;
    } rows[] = {
        {"", "", "a", ""},         {"", "", "a|", "b"},      {"", "", "abc|", "d"},
        {"", "(", "abc|", "d)*x"}, {"", "", "(ax)*", ""},    {"", "", "(ax|bx)*", "$"},
        {"(", "a", "|b)", ""},     {"(", "a", "(bx)*)", ""}, {"(", "a", ")", ""},
        {"", "[~", "a-z", "]"},
    };
    for (const auto &row : rows) {
        const auto pattern = [&](int n) {
            return repeated(n, row.opening) + row.begin + repeated(n, row.piece) + row.end;
        };
        const size_t small = compiled(pattern(400));
        const size_t large = compiled(pattern(4000));
        EXPECT_GT(small, 0u) << row.piece;
        EXPECT_GT(large, small) << row.piece;
        EXPECT_LT(large, 14 * small) << row.piece;
    }
}

TEST(Kurn, PatternsOfAnyDepthAndLengthParseOrFailWithoutStack)
{
    constexpr int deep = 100000;
    context ctx;
    for (const std::string &good :
         {repeated(deep, "(") + "a" + repeated(deep, ")"), repeated(3 * deep, "a"),
          repeated(deep, "{") + "[~a-c]" + repeated(deep, "}"), repeated(deep, "a|") + "b"}) {
        const parsed pattern(ctx, good);
        ASSERT_NE(pattern.tree, nullptr);
        EXPECT_GE(pattern.tree->numberpool_kurn, 2 * KURN_POOLS);
        EXPECT_EQ(pattern.tree->nullkurnop_kurn, pattern.node(pattern.made() - 1));
    }
    EXPECT_GT(compiled(repeated(deep, "(") + "a" + repeated(deep, ")*")), 0u);
    EXPECT_GT(compiled(repeated(1 << 18, "a")), 0u);
    for (const std::string &bad :
         {repeated(deep, "("), repeated(deep, "(a"), repeated(deep, "a|"), repeated(deep, "[a"),
          repeated(deep, "(a{b"), repeated(deep, ")"), repeated(deep, "(") + repeated(deep, ")")})
        EXPECT_EQ(parsed(ctx, bad).tree, nullptr);
}

TEST(Kurm, ShortOfMemoryNothingIsLeftBehind)
{
    // Rows that grow at either end; then more nodes than a new pool array holds pools of.
    ku::test::sweep_allocations([](context &ctx) {
        const parsed pattern(ctx, "(((a(bx)*)(cx)*)(dx|ey)*)*(f|gh|ij)(k)*({l}|m)*n$");
        if (pattern.tree == nullptr) return false;
        const uint32_t status = kurmcreate(ctx, pattern.tree);
        EXPECT_EQ(status, kuxercode(ctx));
        EXPECT_TRUE(status == 0 || pattern.tree->rtkurnop_kurn->firstkurlp_kurno == nullptr);
        return status == 0;
    });
    ku::test::sweep_allocations(
        [](context &ctx) { return parsed(ctx, repeated(2000, "a")).tree != nullptr; });
}

} // namespace
