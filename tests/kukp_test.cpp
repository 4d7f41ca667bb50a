// kukp_test.cpp - the lexer: rows of text in every language, a plain model of
// the machine beside random text, callbacks, client tokens, hints, exhaustion

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kuke.h"
#include "kuko.h"
#include "kukp.h"
#include "kul.h"
#include "port/locale/locale.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;

namespace
{

constexpr const char *languages[] = {"ascii", "iso-8859-1", "utf8",
                                     "sjis",  "euc-jp",     "iso-2022-kr"};

struct token {
    uint32_t type, offset, length;
    bool operator==(const token &) const = default;
};

// What a callback answers to a token; it may change the type.
using answer = std::function<uint8_t(const token &, uint32_t *)>;

struct request {
    int32_t mode = KUKP_M_WORDS;
    int32_t state = KUKP_S_COMPLETE;
    int32_t weight = 0;
    answer callback;
    std::vector<kukat> clients;
    const char *text = nullptr; // where the callback's offsets count from
};

uint8_t call(void *cctxp, const unsigned char *at, uint32_t length, uint32_t type, uint32_t *typep)
{
    const auto &asked = *static_cast<const request *>(cctxp);
    const auto *text = reinterpret_cast<const unsigned char *>(asked.text);
    return asked.callback({type, static_cast<uint32_t>(at - text), length}, typep);
}

// A token object for the time of a test.
class lexed
{
public:
    lexed(const context &ctx, const std::string &text, request asked = {}) : ctx_(ctx), text_(text)
    {
        asked.text = text_.c_str();
        std::vector<void *> items;
        for (kukat &client : asked.clients) items.push_back(&client);
        const auto count = static_cast<int32_t>(items.size());
        void *clients = count > 0 ? kulpcreate(ctx, count, items.data()) : nullptr;
        void *args[] = {clients};
        object_ = static_cast<kuk *>(kukpxcreate(ctx, asked.text, asked.weight, asked.mode,
                                                 asked.callback ? call : nullptr, &asked,
                                                 asked.state, args, 1));
        kulpdestroy(ctx, clients);
    }
    lexed(const lexed &) = delete;
    lexed &operator=(const lexed &) = delete;
    ~lexed() { EXPECT_EQ(kukpdestroy(ctx_, object_), nullptr); }

    kuk *operator->() const { return object_; }
    bool made() const { return object_ != nullptr; }
    kukn *at(int32_t i) const
    {
        return static_cast<kukn *>(kulpitem(ctx_, object_->origtklh_kuk, i));
    }
    std::vector<token> tokens() const
    {
        std::vector<token> all;
        if (object_ == nullptr || object_->origtklh_kuk == nullptr) return all;
        for (int32_t i = 0; i < kulpnitems(ctx_, object_->origtklh_kuk); i++)
            all.push_back({at(i)->type_kukn, at(i)->offset_kukn, at(i)->length_kukn});
        return all;
    }
    // "403<a> 387<.> 0": type and text of each token, then the state.
    std::string spelled() const
    {
        if (object_ == nullptr) return "none";
        std::string all;
        for (const token &t : tokens())
            all += std::to_string(t.type) + "<" + text_.substr(t.offset, t.length) + "> ";
        return all + std::to_string(object_->state_kuk);
    }

private:
    const context &ctx_;
    std::string text_;
    kuk *object_;
};

kukat client(const char *text, uint32_t type)
{
    return {reinterpret_cast<const unsigned char *>(text), static_cast<uint32_t>(strlen(text)),
            type};
}

} // namespace

TEST(Kukp, AsciiTextGivesTheSameTokensInEveryLanguage)
{
    static const struct {
        const char *text;
        const char *expected;
        int32_t state = 0;
        int32_t mode = KUKP_M_WORDS;
    } rows[] = {
        // clang-format off
        {" \t\n\v\f\r", "0"}, {"'''", "398<'''> 3"}, {"'it''s'\"a\"\"b\"''", "397<'it''s'> 401<\"a\"\"b\"> 397<''> 0"},
        {"def'x", "397<def'> 403<x> 0", 3}, {"a\" b", "401<a\"> 403<b> 0", 4}, {"a>b>>c", "399<a>b>>> 403<c> 0", 5},
        {"x*/y", "393<x*/> 403<y> 0", 1}, {"x\ny", "395<x> 403<y> 0", 2}, {"/*+ x", "394</*+ x> 1"}, {"\"q", "402<\"q> 4"},
        {"", "0"}, {"", "394<> 1", 1}, {"", "395<> 0", 2}, {"", "398<> 3", 3}, // an empty text continues, too
        {"a/*/b/*+/b*/", "403<a> 393</*/> 403<b> 405</*+/b*/> 0"}, // the opener's star closes, too
        {"<<l>>x<<m", "399<<<l>>> 403<x> 400<<<m> 5"}, {"x--y\nz--+y", "403<x> 395<--y> 403<z> 406<--+y> 0"},
        {"a.b .5 a.5 1. 1..10..5", "403<a> 387<.> 403<b> 404<.5> 403<a> 404<.5> 404<1.> 404<1> 373<..> 404<10> 373<..> 404<5> 0"},
        {"1.a", "0<1.a> 26"}, {"1.2.3", "0<1.2.> 26"}, {"1.5k", "0<1.5k> 26"}, {"12abc", "0<12a> 26"}, {"a!", "0<a!> 26"},
        {"12K 1E5 1e-5 2.5e+3 1e 3m", "404<12K> 404<1E5> 404<1e-5> 404<2.5e+3> 404<1e> 404<3m> 0"},
        {"1_", "0<1_> 26"}, {"1.5$", "0<1.5$> 26"}, {"1e5#", "0<1e5#> 26"}, {"1e5e", "0<1e5e> 26"}, {"1e+k", "0<1e+k> 26"},
        {"1k1", "0<1k1> 26"}, {"1.e5 .5m", "404<1.e5> 0<.5m> 26"}, {".5e-1..", "404<.5e-1> 373<..> 0"},
        {"1e--x", "404<1e-> 378<-> 403<x> 0"}, // the sign comes before the delimiter
        {"a ! b", "403<a> 0<!> 26"}, {"_abc", "0<_> 26"}, {"|", "0<|> 26"}, {"a$_#1(+", "403<a$_#1> 376<(> 379<+> 0"},
        {"<=>=<>^=~=||:=**!=(+)", "368<<=> 369<>=> 370<<>> 370<^=> 370<~=> 371<||> 372<:=> 374<**> 370<!=> 367<(+)> 0"},
        {"<>=,()-+*/:&@;.%[]", "370<<>> 384<=> 375<,> 376<(> 377<)> 378<-> 379<+> 380<*> 381</> 391<:> 392<&> 385<@> "
                               "386<;> 387<.> 388<%> 389<[> 390<]> 0"},
        {"SELECT sel Width_Bucket", "86<SELECT> 403<sel> 359<Width_Bucket> 0", 0, KUKP_M_KEYWORDS},
        {"select 1", "0<select> 404<1> 0", 0, 2}, // in other modes words keep type 0
        {"x", "none", 6}, {"x", "none", 17}, {"x", "none", -1},
        // clang-format on
    };
    for (const char *language : languages) {
        context ctx(language);
        for (const auto &row : rows) {
            request asked;
            asked.state = row.state;
            asked.mode = row.mode;
            const lexed got(ctx, row.text, asked);
            EXPECT_EQ(got.spelled(), row.expected) << language << ": " << row.text;
            if (!got.made()) EXPECT_ERRORS(ctx, {"kukaa 2"});
        }
    }
}

TEST(Kukp, OtherCharactersAreReadAsTheirLanguageHasThem)
{
    static const struct {
        const char *language, *text, *expected;
    } rows[] = {
        // clang-format off
        {"iso-8859-1", "\xE9t\xE9 \xC9T\xC9", "403<\xE9t\xE9> 403<\xC9T\xC9> 0"}, {"ascii", "\xE9", "0<\xE9> 26"},
        {"utf8", "\xC3\xA9t\xC3\xA9=\xC3\x89", "403<\xC3\xA9t\xC3\xA9> 384<=> 403<\xC3\x89> 0"},
        {"utf8", "a\xE3\x80\x80z", "403<a> 403<z> 0"}, {"utf8", "\xE2\x82\xAC", "0<\xE2\x82\xAC> 26"}, // a wide space; a sign
        {"utf8", "12\xE2\x84\xAA width_buc\xE2\x84\xAA" "et", "404<12\xE2\x84\xAA> 359<width_buc\xE2\x84\xAA" "et> 0"}, // Kelvin is k
        {"utf8", "\xC4\xB0n '\xC4\xB0'", "45<\xC4\xB0n> 397<'\xC4\xB0'> 0"}, // shrinks in lower case
        {"utf8", "\xC3", "0<\xC3> 26"}, {"utf8", "a\xE2\x84", "0<a\xE2> 26"}, {"utf8", "'\xE2\x84", "398<'\xE2\x84> 3"},
        {"utf8", "'\xC3'x", "397<'\xC3'> 403<x> 0"}, {"sjis", "'\x83'x", "397<'\x83'> 403<x> 0"}, {"sjis", "\x83", "0<\x83> 26"},
        {"sjis", "\x83\\x '\x83\\' \x83\\", "403<\x83\\x> 397<'\x83\\'> 403<\x83\\> 0"},
        {"sjis", "\"\x83|\x83>\" /*\x83*\x83*/", "401<\"\x83|\x83>\"> 393</*\x83*\x83*/> 0"},
        {"euc-jp", "a\xB4\xC1'\xB4\xC1'\xB4\xC1=", "403<a\xB4\xC1> 397<'\xB4\xC1'> 403<\xB4\xC1> 384<=> 0"},
        {"iso-2022-kr", "'a\x0E" "0", "398<'a\x0E" "0> 3"}, {"iso-2022-kr", "a \x0E" "0", "403<a> 0<0> 26"}, // half a pair
        {"iso-2022-kr", "se\x0Flect", "403<se\x0Flect> 0"}, {"iso-2022-kr", "sel\x0F\x0F\x0F" "ect", "403<sel\x0F\x0F\x0F" "ect> 0"},
        {"iso-2022-kr", "ins\x0E\x0F" "ert", "403<ins\x0E\x0F" "ert> 0"}, // a word is looked up by its bytes
        {"iso-2022-kr", "ins\x0E\x0F\x0E\x0F" "ert", "403<ins\x0E\x0F\x0E\x0F" "ert> 0"}, {"iso-2022-kr", "insert", "48<insert> 0"},
        // clang-format on
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        request asked;
        asked.mode = KUKP_M_KEYWORDS;
        EXPECT_EQ(lexed(ctx, row.text, asked).spelled(), row.expected) << row.language;
    }
}

TEST(Kukp, ShiftedTokensAreCountedAndShownAsTheyWouldStandAlone)
{
    // Shifted pairs: 30 21 and 31 21 are letters, 21 21 is a space, 27 27 looks like quotes.
    static const struct {
        const char *text;
        std::vector<token> stored;
        std::vector<std::string> shown;
    } rows[] = {
        // clang-format off
        {"\x0E" "0!\x0F", {{403, 1, 4}}, {"\x0E" "0!\x0F"}},
        {"a\x0E" "0!\x0F=b", {{403, 0, 5}, {384, 5, 1}, {403, 6, 1}}, {"a\x0E" "0!\x0F", "=", "b"}},
        {"a\x0E" "0!\x0Fz", {{403, 0, 6}}, {"a\x0E" "0!\x0Fz"}},
        {"\x0E" "0!!!1!\x0F", {{403, 1, 4}, {403, 5, 4}}, {"\x0E" "0!\x0F", "\x0E" "1!\x0F"}},
        {"'\x0E''\x0F' x", {{397, 0, 6}, {403, 7, 1}}, {"'\x0E''\x0F'", "x"}},
        {"'\x0E" "0!", {{398, 0, 5}}, {"'\x0E" "0!\x0F"}},
        // clang-format on
    };
    context ctx("iso-2022-kr");
    for (const auto &row : rows) {
        EXPECT_EQ(lexed(ctx, row.text).tokens(), row.stored);
        std::vector<std::string> shown;
        const auto note = [](void *all, const unsigned char *at, uint32_t length, uint32_t,
                             uint32_t *) -> uint8_t {
            static_cast<std::vector<std::string> *>(all)->emplace_back(
                reinterpret_cast<const char *>(at), length);
            return KUKP_A_KEEP;
        };
        auto *object = static_cast<kuk *>(kukpcreate(ctx, row.text, 1, 1, note, &shown, 0));
        EXPECT_EQ(shown, row.shown);
        for (size_t i = 0; i < row.stored.size(); i++) {
            const auto *made = static_cast<const kukn *>(
                kulpitem(ctx, object->origtklh_kuk, static_cast<int32_t>(i)));
            EXPECT_EQ(made->length_kukn, row.stored[i].length); // with a callback or without
        }
        kukpdestroy(ctx, object);
    }
}

TEST(Kukp, TheObjectOwnsOrBorrowsItsText)
{
    context ctx;
    const char *text = "a";
    for (const int32_t weight : {0, 1, -3}) {
        auto *object = static_cast<kuk *>(kukpcreate(ctx, text, weight, 5, nullptr, nullptr, 0));
        EXPECT_EQ(object->origtxp_kuk == reinterpret_cast<const unsigned char *>(text),
                  weight != 0);
        EXPECT_STREQ(reinterpret_cast<const char *>(object->origtxp_kuk), "a");
        EXPECT_EQ(object->origtxl_kuk, 1u);
        EXPECT_EQ(object->weight_kuk, weight);
        EXPECT_EQ(object->mode_kuk, 5);
        kukpdestroy(ctx, object);
    }
    EXPECT_EQ(kukpcreate(ctx, nullptr, 0, 0, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(kukpdestroy(ctx, nullptr), nullptr);
}

TEST(Kukp, CallbacksDecideOnStoringOnTypesAndOnTheEnd)
{
    static const struct {
        const char *text;
        unsigned answer;
        const char *expected;
    } rows[] = {
        // clang-format off
        {"a , b", KUKP_A_LAST, "9<a> 17"}, {"a , b", KUKP_A_STOP, "17"}, {"(+) x", KUKP_A_STOP, "14"},
        {"|| x", KUKP_A_STOP, "15"}, {"/* */x", KUKP_A_LAST, "9</* */> 15"}, {"'q' x", KUKP_A_STOP, "16"},
        {"a,", KUKP_A_SKIP, "0"}, {"a,", 0xFDu, "9<a> 9<,> 0"}, // only the two lowest bits count
        {"a ! b 1.2.3", KUKP_A_KEEP, "9<a> 9<!> 9<b> 9<1.2.> 9<3> 0"}, {"!", KUKP_A_LAST, "9<!> 26"}, {"!", KUKP_A_STOP, "26"},
        {"'open", KUKP_A_KEEP, "9<'open> 3"}, {"'open", KUKP_A_SKIP, "3"}, // the end of the text cannot be gone past
        // clang-format on
    };
    for (const char *language : languages) {
        context ctx(language);
        for (const auto &row : rows) {
            request asked;
            asked.callback = [&](const token &seen, uint32_t *type) {
                EXPECT_LT(seen.offset,
                          strlen(row.text)); // in the text as given, though it is copied
                EXPECT_EQ(*type, seen.type);
                *type = 9;
                return static_cast<uint8_t>(row.answer);
            };
            EXPECT_EQ(lexed(ctx, row.text, asked).spelled(), row.expected) << row.text;
        }
    }
}

TEST(Kukp, ClientTokensGoBeforeTheOperators)
{
    static const struct {
        const char *language, *text;
        std::vector<kukat> clients;
        const char *expected;
        int32_t mode = KUKP_M_WORDS;
    } rows[] = {
        // clang-format off
        {"ascii", "a*=b", {client("*=", 900)}, "403<a> 900<*=> 403<b> 0"}, {"utf8", "a*=b", {client("*=", 900)}, "403<a> 900<*=> 403<b> 0"},
        {"ascii", "!A", {client("!a", 900)}, "900<!A> 0"}, {"ascii", "!A", {client("!A", 900)}, "0<!> 26"}, // compared in lower case
        {"ascii", "a!!!!b", {client("!!!!", 900)}, "403<a> 0<!> 26"}, // too long: ends words, starts nothing
        {"ascii", "a,b", {client("", 900)}, "403<a> 375<,> 403<b> 0"},
        {"ascii", "1!2", {client("!", 387)}, "0<1!> 26"}, // goes by the type of the period
        {"ascii", "1--@", {client("--", 387)}, "404<1> 395<--@> 0"}, // longer than that
        {"ascii", "!", {client("!", 0)}, "403<!> 0", KUKP_M_KEYWORDS}, {"ascii", "!", {client("!", 0)}, "0<!> 0", 7},
        {"utf8", "a\xE2\x86\x92z", {client("\xE2\x86\x92", 900)}, "403<a> 900<\xE2\x86\x92> 403<z> 0"},
        {"utf8", "\xE2\x86\x92", {client("\xE2\x86", 900)}, "0<\xE2\x86\x92> 26"}, // no part of a character
        {"utf8", "a*b", {client("*\xC3", 900)}, "403<a> 380<*> 403<b> 0"}, {"utf8", "a*\xC3", {client("*\xC3", 900)}, "403<a> 900<*\xC3> 0"},
        {"utf8", "*\xC3\xA9", {client("*\xC3", 900)}, "380<*> 403<\xC3\xA9> 0"}, {"sjis", "*b", {client("*\x83", 900)}, "380<*> 403<b> 0"},
        {"iso-2022-kr", "*b", {client("*\x0E", 900)}, "380<*> 403<b> 0"}, {"iso-2022-kr", "*b", {client("*\x0E" "0", 900)}, "380<*> 403<b> 0"},
        {"iso-2022-kr", "*\x0E" "0", {client("*\x0E" "0", 900)}, "900<*\x0E" "0> 0"},
        {"iso-2022-kr", "\x0E!'0!\x0F", {client("\x0E!'\x0F", 900)}, "403<0!\x0F> 0"}, // four bytes: passed over
        {"utf8", "a!\xC8\xBA", {client("!\xE2\xB1\xA5", 900)}, "403<a> 403<\xC8\xBA> 0"}, // lower case is longer
        // clang-format on
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        request asked;
        asked.clients = row.clients;
        asked.mode = row.mode;
        EXPECT_EQ(lexed(ctx, row.text, asked).spelled(), row.expected) << row.text;
    }
}

TEST(Kukp, ClientTokensStopTheAnalysisByTheirBytes)
{
    static const struct {
        const char *language, *token;
        int32_t state;
    } rows[] = {{"utf8", "\xE2\x86\x92", KUKP_S_STOPPED3},
                {"euc-jp", "\xA1\xA4", KUKP_S_STOPPED2},
                {"ascii", "?", KUKP_S_STOPPED1}};
    for (const auto &row : rows) {
        context ctx(row.language);
        request asked;
        asked.clients = {client(row.token, 900)};
        asked.callback = [](const token &, uint32_t *) { return KUKP_A_LAST; };
        const std::string expected = std::string("900<") + row.token + "> ";
        EXPECT_EQ(lexed(ctx, row.token + std::string("bc"), asked).spelled(),
                  expected + std::to_string(row.state));
    }
}

TEST(Kukp, HintsHangOnTheirKeywords)
{
    static const struct {
        const char *text, *expected, *hints;
    } rows[] = {
        // clang-format off
        {"select /*+ rule */ a", "86<select /*+ rule */> 403<a> 0", "/*+ rule */"}, {"delete --+ x", "28<delete --+ x> 0", "--+ x"},
        {"update /*+ x */ /*+ y */", "103<update /*+ x */> 393</*+ y */> 0", "/*+ x */"}, {"select", "86<select> 0", ""},
        {"select select /*+ x */--+z", "86<select> 86<select> 393</*+ x */> 395<--+z> 0", ""},
        // clang-format on
    };
    context ctx;
    for (const auto &row : rows) {
        request asked;
        asked.mode = KUKP_M_KEYWORDS;
        const lexed got(ctx, row.text, asked);
        void *list = got->origtklh_kuk;
        const std::string before = got.spelled();
        kulplock(ctx, list);
        const bool removes = *row.hints != 0;
        EXPECT_EQ(kukphint(ctx, &*got.operator->()), removes ? KULAA_LOCKED : 0u);
        if (removes) {
            EXPECT_EQ(got.spelled().substr(0, 8), before.substr(0, 8)); // no keyword was extended
            EXPECT_EQ(got.at(0)->hint_kukn, nullptr);
            EXPECT_ERRORS(ctx, {"kulaa 2"});
        }
        kulpunlock(ctx, list);
        for (int round = 0; round < 2; round++) { // the second changes nothing
            EXPECT_EQ(kukphint(ctx, got.operator->()), 0u);
            EXPECT_EQ(got.spelled(), row.expected);
        }
        const kukn *hint = got.at(0)->hint_kukn;
        EXPECT_EQ(hint == nullptr ? ""
                                  : std::string(row.text + hint->offset_kukn, hint->length_kukn),
                  row.hints);
    }
}

TEST(Kukp, TheKeywordTableIsSortedCompleteAndWhatTheLexerKnows)
{
    std::set<uint32_t> types;
    for (uint32_t i = 0; i < KUKPTBKW_COUNT; i++) {
        const kukptb &row = kukptbkw[i];
        const std::string word = row.keyp_kukptb;
        EXPECT_TRUE(i == 0 || word > kukptbkw[i - 1].keyp_kukptb) << word;
        EXPECT_EQ(word.size(), row.leng_kukptb);
        EXPECT_GT(word.size(), 1u) << "single letters are names";
        EXPECT_EQ(word.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_$#"), word.npos);
        EXPECT_TRUE(isalpha(word[0]) && word != "browse" && word != "holdlock"
                    && word != "optimize");
        const uint32_t type = row.type_kukptb;
        EXPECT_TRUE((type >= 2 && type <= 111) || (type >= 114 && type <= 365)
                    || (type >= 413 && type <= 416))
            << word;
        EXPECT_TRUE(types.insert(type).second) << word;
    }
    // clang-format off
    static const std::map<std::string, uint32_t> known = {
        {"and", 8}, {"by", 14}, {"create", 22}, {"delete", 28}, {"from", 38}, {"group", 40}, {"insert", 48}, {"not", 63}, {"null", 65},
        {"or", 72}, {"order", 73}, {"select", 86}, {"table", 96}, {"update", 103}, {"where", 110}, {"concat", 131}};
    // clang-format on
    size_t found = 0;
    for (const char *language : languages) {
        context ctx(language);
        request asked;
        asked.mode = KUKP_M_KEYWORDS;
        for (const kukptb &row : kukptbkw) {
            std::string word = row.keyp_kukptb;
            const auto type = known.find(word);
            if (type != known.end()) {
                EXPECT_EQ(row.type_kukptb, type->second) << word;
                found++;
            }
            word[0] = static_cast<char>(toupper(word[0]));
            word.back() = static_cast<char>(toupper(word.back()));
            const std::vector<token> tokens = lexed(ctx, word + " zq" + word, asked).tokens();
            EXPECT_EQ(tokens[0].type, row.type_kukptb) << word;
            EXPECT_EQ(tokens[1].type, KUKP_T_WORD) << word;
        }
    }
    EXPECT_EQ(found, known.size() * std::size(languages));
}

// Three readers share the machine, and what it passes over differs among them. A token's
// end depends on nothing before its beginning.
TEST(Kukp, RandomTextIsCutAlikeInEveryLanguageAndFromEachTokenOn)
{
    const struct {
        context ctx;
        std::string letter; // for @; one beyond ASCII where the language has such
    } sets[] = {{context("ascii"), "q"},         {context("iso-8859-1"), "\xE9"},
                {context("utf8"), "\xC3\xA9"},   {context("sjis"), "\x83|"},
                {context("euc-jp"), "\xB4\xC1"}, {context("iso-2022-kr"), "q"}};
    // clang-format off
    static constexpr const char *pieces[] = {
        "'", "'", "\"", "/", "*", "+", "-", "<", ">", "=", "!", "|", ".", ".", ":", "^", "~", "%", "(", ")", ",", " ", " ", "\n",
        "1", "2", "e", "E", "k", "a", "_", "$", "?", "~~", "/*", "*/", "--", "''", "and", "OR", "select", "@", "@"};
    // clang-format on
    ku::test::dice dice;
    for (int round = 0; round < 4000; round++) {
        std::string symbols; // a byte each; @ is the letter
        for (uint32_t count = dice.below(14); count > 0; count--)
            symbols += pieces[dice.below(std::size(pieces))];
        request asked;
        asked.mode = static_cast<int32_t>(dice.below(3));
        asked.state = static_cast<int32_t>(dice.one_in(3) ? dice.below(6) : 0);
        asked.weight = static_cast<int32_t>(dice.below(2));
        if (dice.one_in(3))
            asked.clients = {client("?", 900), client("~~", 0), client("=*?<", 901)};
        const uint32_t salt = dice.bits();
        if (dice.one_in(2))
            asked.callback = [salt, n = 0u](const token &seen, uint32_t *type) mutable {
                const uint32_t mix = (salt ^ n++) * 2654435761u;
                if ((mix >> 9) % 4 == 0) *type = seen.type + 1000;
                return static_cast<uint8_t>((mix >> 13) % 16 == 0 ? mix >> 24 : mix >> 24 | 1);
            };
        std::vector<token> first; // places are those of the symbols
        int32_t state = 0;
        for (const auto &set : sets) {
            std::string text;
            std::vector<uint32_t> places = {0};
            for (const char symbol : symbols) {
                text += symbol == '@' ? set.letter : std::string(1, symbol);
                places.push_back(static_cast<uint32_t>(text.size()));
            }
            SCOPED_TRACE(text + ", seed " + std::to_string(ku::test::seed()));
            const lexed got(set.ctx, text, asked);
            if (&set == sets) {
                first = got.tokens();
                state = got->state_kuk;
            }
            std::vector<token> expected = first;
            for (token &each : expected) {
                each.length = places[each.offset + each.length] - places[each.offset];
                each.offset = places[each.offset];
            }
            ASSERT_EQ(got.tokens(), expected);
            ASSERT_EQ(got->state_kuk, state);
            request again = asked;
            again.state = 0;
            for (const token &each : expected) {
                if (asked.callback || (each.offset == 0 && asked.state != 0)) continue;
                const lexed alone(set.ctx, text.substr(each.offset), again);
                ASSERT_EQ(alone.tokens().at(0), (token{each.type, 0, each.length}));
            }
        }
    }
}

TEST(Kukp, WithoutMemoryNothingIsMadeAndNothingLeaks)
{
    static const std::string text = "select 'it', \x0E"
                                    "0!\x0F=1 "
                                    + std::string(400, ',');
    for (const char *language : {"ascii", "iso-2022-kr"})
        ku::test::sweep_allocations(
            [](context &ctx) {
                request asked;
                asked.callback = [](const token &, uint32_t *) { return KUKP_A_KEEP; };
                const lexed got(ctx, text, asked);
                EXPECT_EQ(got.made(), !ctx.failed());
                EXPECT_TRUE(got.made() || ctx->kuxtokbuf != nullptr || ctx->kuxtoklen == 0);
                return got.made();
            },
            language);
    context ctx;
    const auto failing = [&](int nth, const char *of) {
        ctx.fail_from_now(nth);
        void *object = kukpcreate(ctx, of, 0, 1, nullptr, nullptr, 0);
        ctx.fail_from_now(0);
        return static_cast<kuk *>(object);
    };
    EXPECT_EQ(failing(2, "a"), nullptr);
    EXPECT_ERRORS(ctx, {"kulaa 1", "kukaa 3"});
    EXPECT_EQ(failing(5, std::string(40, ',').c_str()), nullptr);
    EXPECT_ERRORS(ctx, {"kukaa 4"});
    kuxer0push(ctx, KUKAA_KEEP2); // on top when the copy of the text fails silently
    kuk *kept = failing(4, "a");
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->state_kuk, KUKP_S_ERROR);
    EXPECT_EQ(kept->origtxp_kuk, nullptr);
    EXPECT_EQ(kukphint(ctx, kept), 0u);
    kukpdestroy(ctx, kept);
    EXPECT_ERRORS(ctx, {"kukaa 6"});
}

// Records of one object are in several blocks, and hints among them; whatever
// leaves the list, the context's memory tells a record that is released twice or not.
TEST(Kukp, RecordsAreReleasedOnceWhateverBlockTheyAreIn)
{
    std::string text;
    for (int i = 0; i < 100; i++) text += "select/*+h*/,,,,,";
    context ctx;
    void *object = kukpcreate(ctx, text.c_str(), 0, 0, nullptr, nullptr, 0);
    EXPECT_EQ(kukphint(ctx, object), 0u);
    void *joined = kukeconcat(ctx, object, object, 0);
    for (void *each : {object, joined}) {
        const int32_t count = kukosgnumtokens(ctx, each);
        EXPECT_EQ(kukordelete(ctx, each, 50, count - 50, KUKO_BOTH), 0u);
        EXPECT_EQ(kukosgnumtokens(ctx, each), 99);
        EXPECT_EQ(kukongoffset(ctx, each, 98), (each == joined ? 2 : 1) * text.size() - 1);
        kukpdestroy(ctx, each);
    }
}

// Bytes that resizes were asked for, in a context of the C library's memory.
static uint64_t resized;

TEST(Kukp, LongTextsTakeLinearTime)
{
    kuxa attributes = {};
    attributes.kuxamask = KUXA_NMREALLOC;
    attributes.kuxanmrealloc = [](kux *, void *block, uint32_t size) {
        resized += size;
        return realloc(block, size);
    };
    kux *ctx = kuxcreate(&attributes);
    constexpr int many = 1000000;
    std::string text;
    for (int i = 0; i < many; i++) text += i % 2 == 0 ? "a" : ",";
    for (const char *language : {"ascii", "utf8", "iso-2022-kr"}) {
        ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, language);
        resized = 0;
        void *object = kukpcreate(ctx, text.c_str(), 1, 0, nullptr, nullptr, 0);
        EXPECT_EQ(kulpnitems(ctx, static_cast<kuk *>(object)->origtklh_kuk), many);
        EXPECT_LT(resized, many * sizeof(void *) * 10);
        kukpdestroy(ctx, object);
        const std::string line =
            "'" + std::string(10u << 20, 'x') + "' --" + std::string(65533, 'y');
        object = kukpcreate(ctx, line.c_str(), 0, 0, nullptr, nullptr, 0);
        const auto *comment =
            static_cast<const kukn *>(kulpitem(ctx, static_cast<kuk *>(object)->origtklh_kuk, 1));
        EXPECT_EQ(comment->offset_kukn, (10u << 20) + 3);
        EXPECT_EQ(comment->length_kukn, 65535u); // a length like any other
        kukpdestroy(ctx, object);
    }
    text.clear();
    for (int i = 0; i < many; i++) text += "delete/*+*/";
    void *object = kukpcreate(ctx, text.c_str(), 1, 0, nullptr, nullptr, 0);
    void *tokens = static_cast<kuk *>(object)->origtklh_kuk;
    const void *last = kulpitem(ctx, tokens, 2 * many - 2); // the cursor stays on it
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kukphint(ctx, object), 0u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(kulpnitems(ctx, tokens), many);
    EXPECT_EQ(kulpcurrent(ctx, tokens, 0), last);
    kukpdestroy(ctx, object);
    kuxdestroy(ctx);
}

TEST(Kukp, TextsBeyond32BitsAreRefused)
{
    if (sizeof(size_t) < 8) GTEST_SKIP() << "no such texts in this address space";
    constexpr size_t window = 64u << 20, windows = 64; // 4 GB of blanks out of one block
    const int file = memfd_create("blanks", 0);
    ASSERT_EQ(ftruncate(file, window), 0);
    auto *text = static_cast<char *>(mmap(nullptr, window * windows + 4096, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(text, MAP_FAILED);
    for (size_t i = 0; i < windows; i++)
        ASSERT_NE(mmap(text + i * window, window, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                       file, 0),
                  MAP_FAILED);
    memset(text, ' ', window);
    context ctx;
    for (const int32_t weight : {0, 1}) // behind the windows lies a NUL
        EXPECT_EQ(kukpcreate(ctx, text, weight, 0, nullptr, nullptr, 0), nullptr);
    EXPECT_ERRORS(ctx, {});
    munmap(text, window * windows + 4096);
    close(file);
}
