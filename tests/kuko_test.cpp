// Token objects: what they answer, how they are edited, joined and merged.
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kuke.h"
#include "kuko.h"
#include "kukp.h"
#include "kul.h"
#include "kuxdr.h"
#include "kuxml.h"
#include "kuxpr.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;

namespace
{

// A language and one of its letters that is more than a byte where it has such.
constexpr struct language {
    const char *name;
    const char *letter;
} languages[] = {
    {"ascii", "k"},
    {"utf8", "\xe5\xad\x97"},
    {"sjis", "\x83\x5c"}, // the second byte is a backslash
    {"iso-2022-kr", "\x0e\x30\x21\x0f"},
};

// A text with @ in the place of the language's letter.
std::string in(const language &language, std::string text)
{
    for (std::size_t at; (at = text.find('@')) != std::string::npos;)
        text.replace(at, 1, language.letter);
    return text;
}

class object
{
public:
    object(context &ctx, const std::string &text, int state = 0, int weight = 0, int mode = 1)
        : ctx_(ctx), text_(text),
          handle_(kukpcreate(ctx, text_.c_str(), weight, mode, nullptr, nullptr, state))
    {
    }
    object(context &ctx, void *handle) : ctx_(ctx), handle_(handle) {}
    object(const object &) = delete;
    object &operator=(const object &) = delete;
    ~object() { kukpdestroy(ctx_, handle_); }
    operator void *() const { return handle_; } // NOLINT(google-explicit-constructor)
    std::string contents(int token) const
    {
        uint32_t length = 0;
        const unsigned char *bytes = nullptr;
        if (kukonget(ctx_, handle_, token, nullptr, nullptr, &length, &bytes) != 0) return "?";
        return {reinterpret_cast<const char *>(bytes), length};
    }
    std::string white(int token) const
    {
        char bytes[64];
        return {bytes, kukonwhite(ctx_, handle_, token, bytes, sizeof bytes)};
    }
    std::string range(int start, int finish, uint32_t endpoints, uint32_t room = 200) const
    {
        std::string bytes(room, '#');
        bytes.resize(kukorassemble(ctx_, handle_, start, finish, endpoints, bytes.data(), room));
        return bytes;
    }
    // "type offset+length" of every token, a hint in parentheses.
    std::string tokens() const
    {
        std::ostringstream all;
        for (int i = 0; i < kukosgnumtokens(ctx_, handle_); i++) {
            uint32_t type, offset, length;
            kukonget(ctx_, handle_, i, &type, &offset, &length, nullptr);
            all << type << ' ' << offset << '+' << length << ' ';
            if (const kukn *hint = kukonghint(ctx_, handle_, i))
                all << '(' << hint->type_kukn << ' ' << hint->offset_kukn << '+'
                    << hint->length_kukn << ") ";
        }
        return all.str();
    }

private:
    context &ctx_;
    std::string text_;
    void *handle_;
};

// The value of a token, in `room` bytes and one that may become a NUL.
std::string value(context &ctx, const std::string &token, uint32_t room, int strip)
{
    std::string into(room + 1, '#');
    const std::vector<unsigned char> bytes(token.begin(), token.end()); // no NUL behind it
    const auto length = static_cast<uint32_t>(bytes.size());
    const uint32_t stored = kukongvalue(ctx, bytes.data(), length, 0, into.data(), room, strip);
    EXPECT_TRUE(stored <= room && (into.back() == '#' || into.back() == '\0'));
    return into.substr(0, stored);
}

TEST(Kuko, TokensCanBeReadWhileTheContextEnds)
{
    static char texts[][14] = {"\x0E"
                               "0!\x0F",
                               "\x0E"
                               "0!1!0!1!0!\x0F"};
    const context ctx("iso-2022-kr");
    constexpr kuxprfreefn read = [](kux *ending, void *text) {
        void *tokens = kukpcreate(ending, static_cast<char *>(text), 1, 0, nullptr, nullptr, 0);
        EXPECT_EQ(*kukongcontents(ending, tokens, 0), 0x0E); // a copy that stands alone
        kukpdestroy(ending, tokens);
    };
    read(ctx, texts[0]);
    EXPECT_EQ(kuxprset(ctx, 1, texts[1], read), 0u);
}

} // namespace

TEST(Kuko, TokensAndTheWhiteBetweenThemGiveTheTextBack)
{
    for (const language &language : languages) {
        SCOPED_TRACE(language.name);
        context ctx(language.name);
        const std::string text = in(language, "  @x@ =  '@ @'\t \"x@\" , 12 x@  ");
        const object whole(ctx, text);
        EXPECT_EQ(whole.contents(2), in(language, "'@ @'"));
        std::string again = whole.white(-1);
        const int last = kukosgnumtokens(ctx, whole) - 1;
        for (int i = 0; i <= last; i++) {
            EXPECT_EQ(whole.range(i, i, KUKO_BOTH), whole.contents(i));
            EXPECT_EQ(kukonwlen(ctx, whole, i), whole.white(i).size());
            EXPECT_EQ(kukonwhite(ctx, whole, i, nullptr, 0), whole.white(i).size());
            again += whole.contents(i) + whole.white(i);
        }
        EXPECT_EQ(again, text);
        EXPECT_EQ(whole.white(last + 5), "  ");
        EXPECT_EQ(kukonwlen(ctx, whole, -9), 2u);
        EXPECT_EQ("  " + whole.range(0, last, KUKO_BOTH) + "  ", text);
        EXPECT_EQ(whole.range(0, last, KUKO_BOTH, 1), *language.letter == 'k' ? "k" : "");
    }
}

TEST(Kuko, TokensOfShiftedTextAreAnsweredInAnyOrderAndFromALongLine)
{
    context ctx("iso-2022-kr");
    std::string mixed, longline;
    ku::test::dice dice;
    for (int i = 0; i < 40; i++) {
        mixed += dice.one_in(2) ? " a" : " \x0e";
        if (mixed.back() != 'a') mixed += std::string(2 * (1 + dice.below(3)), '0') + "\x0f";
    }
    const object inorder(ctx, mixed), anyhow(ctx, mixed);
    std::vector<std::string> contents;
    for (int i = 0; i < kukosgnumtokens(ctx, inorder); i++) contents.push_back(inorder.contents(i));
    for (int i = 0; i < 500; i++) {
        const auto token = dice.below(static_cast<uint32_t>(contents.size()));
        EXPECT_EQ(anyhow.contents(static_cast<int>(token)), contents[token]) << token;
    }
    // Hours if each answer looked for the last shift byte anew: there is none.
    constexpr int count = 1000000;
    for (int i = 0; i < count; i++) longline += "a ";
    const object whole(ctx, longline);
    ASSERT_EQ(kukosgnumtokens(ctx, whole), count);
    uint32_t bytes = 0;
    for (int i = 0; i < count; i++) bytes += kukonwlen(ctx, whole, i);
    kukosset(ctx, whole, longline.c_str()); // forgets what was seen
    for (int i = count; i-- > 0;) bytes += *kukongcontents(ctx, whole, i) == 'a';
    EXPECT_EQ(bytes, 2u * count);
}

TEST(Kuko, RangesAreMeasuredCopiedAndDeleted)
{
    static constexpr struct {
        int start, finish;
        uint32_t endpoints;
        const char *text, *left;
    } rows[] = {
        {0, 2, KUKO_NEITHER, " , ", "ab"},
        {0, 2, KUKO_FINISH, " , b", "a"},
        {0, 2, KUKO_START, "a , ", "b"},
        {0, 2, 9, "a , b", ""},
        {2, 0, KUKO_BOTH, "", "a,b"},
        {1, 3, KUKO_START, "", "a"}, // token 3 is none: up to the last
        {1, 3, KUKO_BOTH, "", "a,b"},
        {-1, 1, KUKO_BOTH, "", "a,b"},
        {-1, 1, KUKO_FINISH, "", "b"}, // token -1 is none: from the first
        {-1, 1, KUKO_NEITHER, "", ",b"},
        {0, -1, KUKO_BOTH, "", "a,b"},
    };
    for (const auto &row : rows) {
        context ctx;
        const object three(ctx, "a , b");
        EXPECT_EQ(three.range(row.start, row.finish, row.endpoints), row.text);
        EXPECT_EQ(kukorlen(ctx, three, row.start, row.finish, row.endpoints),
                  std::strlen(row.text));
        EXPECT_EQ(three.range(0, 2, KUKO_BOTH, 2), "a ");
        EXPECT_EQ(kukordelete(ctx, three, row.start, row.finish, row.endpoints), 0u);
        EXPECT_ERRORS(ctx, {});
        std::string left;
        for (int i = 0; i < kukosgnumtokens(ctx, three); i++) left += three.contents(i);
        EXPECT_EQ(left, row.left);
    }
    context ctx;
    const object hinted(ctx, "select /*+ x */ a", 0, 0, 0);
    kukphint(ctx, hinted);
    ASSERT_NE(kukonghint(ctx, hinted, 0), nullptr);
    auto *list = static_cast<kuk *>(static_cast<void *>(hinted))->origtklh_kuk;
    kulplock(ctx, list);
    EXPECT_EQ(kukordelete(ctx, hinted, 0, 1, KUKO_BOTH), KULAA_LOCKED);
    kukonset(ctx, hinted, 0, KUKP_T_LABELOPEN);
    kukonset(ctx, hinted, 1, KUKP_T_LABEL);
    EXPECT_EQ(kukemerge(ctx, hinted), KULAA_LOCKED);
    EXPECT_EQ(hinted.tokens(), "400 0+15 (405 7+8) 399 16+1 ");
    kulpunlock(ctx, list);
    EXPECT_EQ(kukordelete(ctx, hinted, 0, 0, KUKO_BOTH), 0u); // the context counts the hint
    EXPECT_ERRORS(ctx, {"kulaa 2", "kulaa 2"});
}

TEST(Kuko, ValuesLoseTheirQuotesAndNothingElse)
{
    static constexpr struct {
        const char *token, *stripped;
        uint32_t room = 100;
    } rows[] = {
        {"'it''s'", "it's"},
        {"\"a\"\"b\"", "a\"b"},
        {"'a\"\"b'", "a\"\"b"}, // the other quote is an ordinary character
        {"'abc", "abc"},        // open
        {"def''g'", "def''g"},  // continued: nothing says which quote it was
        {"'", ""},
        {"", ""},
        {"'@''@'", "@'@"},
        {"'abc\"", "abc"}, // a last quote of either kind
        {"\"a''", "a'"},
        {"'abcdef'", "ab", 3},
    };
    for (const language &language : languages)
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(language.name) + " " + row.token);
            context ctx(language.name);
            const std::string token = in(language, row.token);
            EXPECT_EQ(value(ctx, token, row.room, 1), in(language, row.stripped));
        }
    ku::test::dice dice;
    static constexpr char bytes[] = "''\"\"ax0!\n\x0e\x0f\xe5\xad\x97\x83";
    for (int round = 0; round < 4000; round++) {
        std::string token(dice.below(9), 'a');
        for (char &byte : token) byte = bytes[dice.below(sizeof bytes - 1)];
        const auto length = static_cast<uint32_t>(token.size());
        std::string stripped; // what the first language, of bytes, makes of it
        for (const language &language : languages) {
            SCOPED_TRACE(std::string(language.name) + " " + testing::PrintToString(token));
            context ctx(language.name);
            const std::size_t shift = token.find_last_of("\x0e\x0f");
            const bool open = ctx->kuxlangidh->shiftsensitive_kulang != 0
                              && shift != std::string::npos && token[shift] == '\x0e';
            ASSERT_EQ(value(ctx, token, length + 1, 0), token + (open ? "\x0f" : ""));
            value(ctx, token, dice.below(10), static_cast<int>(dice.below(2)));
            if (*language.letter == 'k') stripped = value(ctx, token, length, 1);
            if (token.find_first_not_of("'\"ax0!\n") != std::string::npos) continue;
            ASSERT_EQ(value(ctx, token, length, 1), stripped);
        }
    }
}

TEST(Kuko, ShiftBytesAndCutCharactersAtTheEndsAreCountedOnce)
{
    static constexpr struct {
        const char *text;
        uint32_t white, gap; // before the first token, or all there is
    } rows[] = {
        {" \x0f", 1, 2},  {"  \x0e", 2, 3},     {"\x0e\x0f", 0, 2},
        {"\x0e!!", 4, 3}, {" \x0e\x0f ", 2, 4}, {" \x0fx", 1, 2},
    };
    context ctx("iso-2022-kr");
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        const object text(ctx, row.text);
        EXPECT_EQ(kukonwhite(ctx, text, -1, nullptr, 0), row.white);
        EXPECT_EQ(text.white(-1).size(), row.white);
        EXPECT_EQ(kukonwlen(ctx, text, -1), row.gap);
    }
    const object tab(ctx, "x9\t\x0f"
                          "1");
    EXPECT_EQ(kukonwhite(ctx, tab, 0, nullptr, 0), tab.white(0).size());
    EXPECT_EQ(value(ctx, std::string("\0\x0f\x0e", 3), 3, 0), std::string("\0\x0f", 2));
    // The value may take the place of the token.
    char inplace[] = "'a''b'";
    const auto *start = reinterpret_cast<const unsigned char *>(inplace);
    EXPECT_EQ(kukongvalue(ctx, start, 6, 0, inplace, 6, 1), 3u);
    EXPECT_EQ(std::string(inplace, 3), "a'b");
    // A text that is not the one analysed: no more is said than may be read.
    const object word(ctx, "abcdefghijklmnopqrst", 0, 1);
    kukosset(ctx, word,
             "\x0e"
             "0!1!\x0f");
    EXPECT_EQ(word.contents(0), "\x0e"
                                "0!1!\x0f");
    EXPECT_EQ(kukonglength(ctx, word, 0), 6u);

    context utf8("utf8");
    const object cut(utf8, "'\xe2\x82"), late(utf8, "'a\xe2\x82");
    EXPECT_EQ(cut.range(0, 0, KUKO_BOTH, 2), "'\xe2");
    EXPECT_EQ(late.range(0, 0, KUKO_BOTH, 3), "'a\xe2");
}

TEST(Kuko, IndexesThatNameNoTokenAreAnsweredHarmlessly)
{
    context ctx;
    const object one(ctx, "abc");
    const object none(ctx, "  ");
    for (const auto &[handle, index] :
         {std::pair<void *, int>{one, 1}, {one, -1}, {one, INT32_MIN}, {none, 0}, {nullptr, 0}}) {
        EXPECT_EQ(kukonget(ctx, handle, index, nullptr, nullptr, nullptr, nullptr), KULAA_RANGE);
        EXPECT_EQ(kukongtype(ctx, handle, index) + kukongoffset(ctx, handle, index)
                      + kukonglength(ctx, handle, index),
                  0u);
        EXPECT_EQ(kukongcontents(ctx, handle, index), nullptr);
        EXPECT_ERRORS(ctx, {"kulaa 3", "kulaa 3", "kulaa 3", "kulaa 3", "kulaa 3"});
        EXPECT_EQ(kukonghint(ctx, handle, index), nullptr);
        EXPECT_EQ(kukonfind(ctx, handle, index, KUKP_T_WORD), -1);
        kukonset(ctx, handle, index, 5);
        EXPECT_ERRORS(ctx, {});
    }
    EXPECT_EQ(kukonwlen(ctx, none, 3), 2u);
    EXPECT_EQ(none.white(3), "  ");
    EXPECT_EQ(kukonwhite(ctx, nullptr, 0, nullptr, 0) + kukonwlen(ctx, nullptr, 0), 0u);
    int32_t state = 9, count = 9;
    kukosget(ctx, nullptr, &state, nullptr, nullptr, nullptr, &count);
    EXPECT_EQ(state + count, 18);
    EXPECT_EQ(kukosgstate(ctx, nullptr) + kukosgmode(ctx, nullptr) + kukosgweight(ctx, nullptr), 0);
}

TEST(Kuko, TextIsReplacedByACopyOrByAPointerAndTokensStay)
{
    context ctx;
    const object owning(ctx, "ab cd ef");
    const object borrowing(ctx, "ab cd", 0, 1);
    ctx.fail_from_now(1);
    EXPECT_EQ(kukosset(ctx, owning, "xx"), KUKAA_NOTEXT);
    EXPECT_STREQ(kukosgtext(ctx, owning), "ab cd ef");
    EXPECT_EQ(kukosset(ctx, owning, kukosgtext(ctx, owning) + 3), 0u); // its own storage
    EXPECT_STREQ(kukosgtext(ctx, owning), "cd ef");
    EXPECT_EQ(kukongoffset(ctx, owning, 2), 6u); // past the end now
    EXPECT_EQ(kukonwlen(ctx, owning, 2) + kukonwhite(ctx, owning, 2, nullptr, 0), 0u);
    EXPECT_EQ(owning.range(1, 2, KUKO_BOTH), "ef");
    const char *text = "zz";
    EXPECT_EQ(kukosset(ctx, borrowing, text), 0u);
    EXPECT_EQ(kukosgtext(ctx, borrowing), text);
    EXPECT_EQ(kukosset(ctx, owning, nullptr), 0u);
    EXPECT_EQ(kukongcontents(ctx, owning, 0), nullptr);
    EXPECT_EQ(kukonglength(ctx, owning, 0), 2u);
    EXPECT_EQ(owning.range(0, 1, KUKO_BOTH) + owning.white(0), "");
    // What stood behind a text that was shortened stands behind what is joined to it, too.
    for (const bool hint : {false, true}) {
        const int mode = hint ? KUKP_M_KEYWORDS : KUKP_M_WORDS;
        const object first(ctx, hint ? "aaaaaaaaaaaa select" : "aaaaaaaaaaaa 'ab", 0, 0, mode);
        const object second(ctx, hint ? "/*+ r */ z" : "c'", hint ? 0 : KUKP_S_STRING, 0, mode);
        EXPECT_EQ(kukosset(ctx, first, "x"), 0u);
        const object both(ctx, kukeconcat(ctx, first, second, '\n'));
        EXPECT_EQ(hint ? kukphint(ctx, both) : kukemerge(ctx, both), 0u);
        EXPECT_EQ(kukonglength(ctx, both, 1), hint ? 6u : 2u);
    }
}

// With the default callbacks records are pinned through the log, which can be full.
TEST(Kuko, TheListsCursorStaysOnItsToken)
{
    context ctx;
    const auto cursor = [](const object &tokens) {
        auto *list = static_cast<kuk *>(static_cast<void *>(tokens))->origtklh_kuk;
        return static_cast<kul *>(list)->current_kul;
    };
    for (const auto &[on, stands] : {std::pair{0, 0}, {1, -1}, {3, -1}, {4, 1}}) {
        const object five(ctx, "a b c d e");
        kukongtype(ctx, five, on);
        EXPECT_EQ(kukordelete(ctx, five, 0, 3, KUKO_FINISH), 0u);
        EXPECT_EQ(cursor(five), stands) << on;
    }
    for (const auto &[on, stands] : {std::pair{0, 0}, {1, -1}, {2, 1}, {3, 2}}) {
        const object cut(ctx, "x 'ab");
        const object rest(ctx, "c' y", KUKP_S_STRING);
        const object both(ctx, kukeconcat(ctx, cut, rest, 0));
        kukongtype(ctx, both, on);
        EXPECT_EQ(kukemerge(ctx, both), 0u);
        EXPECT_EQ(cursor(both), stands) << on;
    }
}

TEST(Kuko, AChangeWithoutRoomInTheLogLeavesTheTokensAsTheyWere)
{
    for (int room = 0; room <= 5; room++) {
        context ctx;
        const kuxrmaccessfn lock = std::exchange(ctx->kuxrmlock, kuxdrlock);
        const kuxrmaccessfn unlock = std::exchange(ctx->kuxrmunlock, kuxdrunlock);
        const object cut(ctx, "'a");
        const object rest(ctx, "b' c", KUKP_S_STRING);
        const object both(ctx, kukeconcat(ctx, cut, rest, 0));
        const std::string before = both.tokens();
        while (ctx->kuxrlnrecords < ctx->kuxrlsize - room) kuxmlbegin(ctx);
        ku::test::fail_basic_from_now(1);
        const uint32_t status = kukemerge(ctx, both);
        EXPECT_EQ(status, room < 5 ? KUXML_FULL : 0u); // a frame, two locks, two unlocks
        EXPECT_EQ(both.tokens() == before, room < 5);
        ku::test::fail_basic_from_now(1);
        kukonset(ctx, both, 0, 77);
        EXPECT_EQ(kukongtype(ctx, both, 0) == 77, room >= 3);
        ku::test::fail_basic_from_now(0);
        while (ctx->kuxrlnrecords > 0) kuxmlend(ctx);
        ctx->kuxrmlock = lock;
        ctx->kuxrmunlock = unlock;
        ctx.clear();
    }
}

TEST(Kuke, JoinsTextsTokensAndHintsOrSaysWhyNot)
{
    context ctx;
    const object first(ctx, "select /*+ x */ 'a", 0, 0, 0);
    const object second(ctx, "b'", KUKP_S_STRING, 0, 0);
    kukphint(ctx, first);
    const object both(ctx, kukeconcat(ctx, first, second, '\n'));
    EXPECT_STREQ(kukosgtext(ctx, both), "select /*+ x */ 'a\nb'");
    EXPECT_EQ(both.tokens(), "86 0+15 (405 7+8) 398 16+2 397 19+2 ");
    EXPECT_EQ(kukosgstate(ctx, both) + kukosgweight(ctx, both), 0);
    const object twice(ctx, kukeconcat(ctx, both, first, 0)); // a hint in the second
    EXPECT_EQ(kukonghint(ctx, twice, 3)->offset_kukn, 21u + 7u);
    EXPECT_EQ(kukosgstate(ctx, twice), KUKP_S_STRING);

    const object borrowed(ctx, "x", 0, 1);
    const object other(ctx, "y", 0, 2);
    const object words(ctx, "y", 0, 0, 1);
    EXPECT_EQ(kukeconcat(ctx, first, nullptr, 0), nullptr);
    EXPECT_EQ(kukeconcat(ctx, first, words, 0), nullptr);
    EXPECT_EQ(kukeconcat(ctx, borrowed, other, 0), nullptr);
    EXPECT_ERRORS(ctx, {"kukaa 8", "kukaa 10", "kukaa 11"});
    const object textless(ctx, kukeconcat(ctx, borrowed, borrowed, ';'));
    EXPECT_EQ(kukosgtext(ctx, textless), nullptr);
    EXPECT_EQ(kukosgweight(ctx, textless), 0);
    EXPECT_EQ(textless.tokens(), "403 0+1 403 2+1 ");
}

TEST(Kuke, MergesByTypeAndLeavesWhatNothingCompletes)
{
    static constexpr struct {
        uint32_t types[5];
        const char *merged;
    } rows[] = {
        {{394, 394, 403, 393, 394}, "393 0+7 394 8+1 "},
        {{398, 401, 402, 397, 401}, "397 0+7 401 8+1 "},
        {{402, 398, 400, 394, 396}, "402 0+1 398 2+1 400 4+1 394 6+1 396 8+1 "},
        {{402, 401, 400, 396, 395}, "401 0+3 400 4+1 395 6+3 "},
    };
    for (const auto &row : rows) {
        context ctx;
        const object five(ctx, "a b c d e");
        int i = 0;
        for (const uint32_t type : row.types) kukonset(ctx, five, i++, type);
        EXPECT_EQ(kukemerge(ctx, five), 0u);
        EXPECT_EQ(five.tokens(), row.merged);
    }
    context ctx;
    EXPECT_EQ(kukemmatch(ctx, 396), 395u);
    EXPECT_EQ(kukemmatch(ctx, 403), 0u);
    EXPECT_EQ(kukemerge(ctx, nullptr), 0u);
}

TEST(Kuke, PiecesJoinedAndMergedAreTheWholeWhereverItIsCut)
{
    static constexpr struct {
        const char *text; // | where the lexer can go on from its state alone
        int state;
    } rows[] = {
        {"x| =| '|a''|@| c|'|/*| q|@| */|\"|i\"\"|d|\"| <<|l|@|>> |''| --z\n| |@|,|'b'| \"|\"",
         KUKP_S_COMPLETE},
        {"@|\n|@|'| @| '|\n|@'| /*|@\n|@|*/| |z", KUKP_S_STRING}, // begins in a shifted run
    };
    for (const language &language : languages)
        for (const auto &row : rows) {
            SCOPED_TRACE(language.name);
            context ctx(language.name);
            std::string text = in(language, row.text);
            std::vector<std::size_t> cuts;
            for (std::size_t at = 0; (at = text.find('|', at)) != std::string::npos;) {
                cuts.push_back(at);
                text.erase(at, 1);
            }
            const object whole(ctx, text, row.state);
            for (const std::size_t first : cuts)
                for (const std::size_t second : cuts) {
                    if (second < first) continue;
                    const std::string middle = text.substr(first, second - first);
                    SCOPED_TRACE(text.substr(0, first) + " | " + middle);
                    const object one(ctx, text.substr(0, first), row.state);
                    const object two(ctx, middle, kukosgstate(ctx, one));
                    const object three(ctx, text.substr(second), kukosgstate(ctx, two));
                    const object joined(ctx, kukeconcat(ctx, one, two, 0));
                    const object all(ctx, kukeconcat(ctx, joined, three, 0));
                    ASSERT_EQ(kukemerge(ctx, all), 0u);
                    ASSERT_EQ(all.tokens(), whole.tokens());
                    ASSERT_EQ(kukosgtext(ctx, all), text);
                }
        }
}

TEST(Kuke, JoiningShortOfMemoryLeavesThePiecesAndNothingElse)
{
    const auto join = [](context &ctx) {
        const object first(ctx, "select /*+ x */ 'a", 0, 0, 0);
        const object second(ctx, "b' c", KUKP_S_STRING, 0, 0);
        if (static_cast<void *>(first) == nullptr || static_cast<void *>(second) == nullptr)
            return false;
        kukphint(ctx, first);
        const std::string before = first.tokens() + second.tokens();
        const object both(ctx, kukeconcat(ctx, first, second, 0));
        EXPECT_EQ(first.tokens() + second.tokens(), before);
        return static_cast<void *>(both) != nullptr && kukemerge(ctx, both) == 0
               && kukosset(ctx, both, "y") == 0;
    };
    ku::test::sweep_allocations(join);
    ku::test::sweep_allocations([&](context &ctx) { // nothing is rolled back then
        kuxmloff(ctx);
        const bool done = join(ctx);
        kuxmlon(ctx);
        return done;
    });
    ku::test::sweep_basic_allocations(join);
}
