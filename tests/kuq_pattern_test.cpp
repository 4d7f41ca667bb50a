// kuq's patterns, beside the C library's regular expressions and plain models

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <regex.h>
#include <string>
#include <vector>

#include "support/random.h"
#include "tools/kuq/codes.h"
#include "tools/kuq/pattern.h"

namespace
{

using kuq::pattern;
using kuq::pattern_kind;

class KuqPattern : public testing::Test
{
protected:
    kuq::application &in(const char *language)
    {
        setenv("LC_ALL", language, 1);
        app.emplace();
        return *app;
    }

    // The matches as "[...]" in the text; what was pushed when the pattern is wrong.
    std::string marked(const std::string &what, const std::string &text,
                       pattern_kind kind = pattern_kind::regular, bool any_case = false)
    {
        pattern compiled(*app);
        if (!compiled.compile(what, kind, any_case)) {
            const kuxer *record = kuxerget(app->ctx(), 0);
            const std::string code = record->kuxercode == KUQAA_LARGE ? "large" : "wrong";
            kuxerclear(app->ctx());
            return code;
        }
        std::string result;
        size_t at = 0;
        compiled.each(text, [&](const kuq::match &found) {
            result += text.substr(at, found.start - at) + "["
                      + text.substr(found.start, found.length) + "]";
            at = found.start + found.length;
            return true;
        });
        return result + text.substr(at);
    }

    bool like(const std::string &what, const std::string &text, const std::string &escape = "")
    {
        pattern compiled(*app);
        EXPECT_TRUE(compiled.compile(what, pattern_kind::like, false, escape)) << what;
        return compiled.covers(text);
    }

    std::optional<kuq::application> app;
};

std::string random_text(ku::test::dice &dice, std::uint32_t most)
{
    static constexpr const char *letters[] = {"a", "b", "é", "😀", "A", "É"};
    std::string text;
    for (std::uint32_t left = dice.below(most); left > 0; left--) text += letters[dice.below(6)];
    return text;
}

std::string random_pattern(ku::test::dice &dice, int depth)
{
    static constexpr const char *atoms[] = {"a", "b", "é",    "😀",     ".",
                                            "a", "b", "[aé]", "[^b😀]", "[A-b]"};
    static constexpr const char *repeats[] = {"*", "+", "?", "{2}", "{1,3}", "{0,2}", "{2,}"};
    std::string text;
    for (std::uint32_t pieces = 1 + dice.below(3); pieces > 0; pieces--) {
        if (depth > 0 && dice.one_in(3))
            text += "(" + random_pattern(dice, depth - 1) + ")";
        else
            text += atoms[dice.below(10)];
        if (dice.one_in(3)) text += repeats[dice.below(7)];
    }
    if (dice.one_in(4)) text += "|" + random_pattern(dice, depth - 1);
    return text;
}

// Not inside of groups: the C library loses its way with anchors in what is repeated.
std::string anchored(ku::test::dice &dice, const std::string &text)
{
    const bool both = text.find('|') == std::string::npos;
    return (dice.one_in(4) ? "^" : "") + text + (both && dice.one_in(4) ? "$" : "");
}

TEST_F(KuqPattern, MatchesAreThoseOfTheCLibrary)
{
    in("C.UTF-8");
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    ku::test::dice dice;
    int matched = 0;
    for (int step = 0; step < 3000; step++) {
        const std::string what =
            anchored(dice, random_pattern(dice, 3))
            + (dice.one_in(4) ? "|" + anchored(dice, random_pattern(dice, 1)) : "");
        const bool any_case = dice.one_in(3);
        regex_t theirs;
        ASSERT_EQ(regcomp(&theirs, what.c_str(), REG_EXTENDED | (any_case ? REG_ICASE : 0)), 0)
            << what;
        pattern ours(*app);
        ASSERT_TRUE(ours.compile(what, pattern_kind::regular, any_case)) << what;
        for (int times = 0; times < 10; times++) {
            const std::string text = random_text(dice, 12);
            regmatch_t expected = {};
            const bool any = regexec(&theirs, text.c_str(), 1, &expected, 0) == 0;
            kuq::match found = {};
            const std::string shown = what + " in " + text + (any_case ? ", any case" : "");
            ASSERT_EQ(ours.find(text, 0, &found), any) << shown;
            if (!any) continue;
            matched++;
            ASSERT_EQ(found.start, static_cast<size_t>(expected.rm_so)) << shown;
            ASSERT_EQ(found.length, static_cast<size_t>(expected.rm_eo - expected.rm_so)) << shown;
            const bool all = expected.rm_so == 0 && found.length == text.size();
            ASSERT_TRUE(ours.covers(text) || !all) << shown;
        }
        regfree(&theirs);
    }
    EXPECT_GT(matched, 10000);
    setlocale(LC_ALL, "C");
}

TEST_F(KuqPattern, WhatAPatternSaysInEachCharacterSet)
{
    const struct {
        const char *language, *what, *text, *marked;
    } rows[] = {
        {"C.UTF-8", "a.c", "äaäc a😀c abbc", "ä[aäc] [a😀c] abbc"},
        {"C.UTF-8", "aab", "aaab", "a[aab]"}, // the engine alone goes on behind a failure
        {"C.UTF-8", "a*", "baac", "[]b[aa]c[]"},
        {"C.UTF-8", "^|b$", "ab", "[]a[b]"},
        {"C.UTF-8", "^a|ab", "abab", "[ab][ab]"},
        {"C.UTF-8", "^$", "", "[]"},
        {"C.UTF-8", "a^b|x$y", "a^bx$y", "a^bx$y"},
        {"C.UTF-8", "(^|,)a(,|$)+", "a,a,a", "[a,]a[,a]"},
        {"C.UTF-8", "(^^a|b$)$*x?", "wrong", "wrong"},
        {"C.UTF-8", "^(^a|(b|c$)$)$$", "c", "[c]"},
        {"C.UTF-8", "\\^\\$\\.[].-][]^-]", "^$.]-", "[^$.]-]"},
        {"C.UTF-8", "\\w+", "Ünï_9 -x", "[Ünï_9] -[x]"},
        {"C.UTF-8", "\\W\\D\\S", "9 xy", "9[ xy]"},
        {"C.UTF-8", "[[:upper:][:digit:]\\t]+", "aÄ7\tb", "a[Ä7\t]b"},
        {"C.UTF-8", "[а-я]", "AБбя", "AБ[б][я]"},
        {"C.UTF-8", ".", "\xff\xc3", "[\xff][\xc3]"}, // bytes of no character
        {"C.UTF-8", "a{0}b{2}c{1,2}", "abbccc", "a[bbcc]c"},
        {"C.UTF-8", "a{1000}{30}", "a", "large"},
        {"C.UTF-8", "a{1001}", "a", "wrong"},
        {"de_DE.ISO-8859-1", "[\xe0-\xff].", "\xe4\xe4\xdf", "[\xe4\xe4]\xdf"},
        {"ja_JP.SJIS", "\\\\", "\x83\x5c\x5c", "\x83\x5c[\x5c]"}, // a second byte is no character
        {"ko_KR.ISO-2022-KR", ".b",
         "\x0e\x30\x21\x0f"
         "b",
         "[\x0e\x30\x21\x0f"
         "b]"},
    };
    for (const auto &row : rows) {
        in(row.language);
        EXPECT_EQ(marked(row.what, row.text), row.marked) << row.what;
    }
    in("C.UTF-8");
    EXPECT_EQ(marked("strasse|É", "STRASSE é", pattern_kind::regular, true), "[STRASSE] [é]");
    EXPECT_EQ(marked("a.[", "xa.[A.[", pattern_kind::plain), "x[a.[]A.[");
    const std::string with_nul("a\0b", 3);
    EXPECT_EQ(marked("a.b", with_nul), "[" + with_nul + "]");
    EXPECT_EQ(marked("^$", with_nul), with_nul);
    std::string others; // thousands of sets: their square is gigabytes
    std::string apart;
    for (int value = 0x4e00; value < 0x9e00; value++) {
        const char bytes[] = {static_cast<char>(0xe0 | value >> 12),
                              static_cast<char>(0x80 | (value >> 6 & 0x3f)),
                              static_cast<char>(0x80 | (value & 0x3f)), 0};
        others += std::string("[^") + bytes + "]";
        apart += bytes;
    }
    const std::clock_t before = std::clock();
    EXPECT_EQ(marked(others, "a"), "large");
    EXPECT_EQ(marked(apart + apart, "a"), "large");
    EXPECT_LT(std::clock() - before, 3 * CLOCKS_PER_SEC);
}

bool like_plainly(std::u32string_view what, std::u32string_view text)
{
    if (what.empty()) return text.empty();
    if (what[0] == U'%')
        return like_plainly(what.substr(1), text)
               || (!text.empty() && like_plainly(what, text.substr(1)));
    return !text.empty() && (what[0] == U'_' || what[0] == text[0])
           && like_plainly(what.substr(1), text.substr(1));
}

TEST_F(KuqPattern, WildcardsMatchLikeAPlainModelAndNeverCrawl)
{
    in("C.UTF-8");
    static constexpr const char *letters[] = {"a", "é", "_", "%", "%"};
    ku::test::dice dice;
    int matched = 0;
    for (int step = 0; step < 4000; step++) {
        std::string what[2];
        std::u32string values[2]; // é as e
        for (const int text : {0, 1})
            for (std::uint32_t left = dice.below(8); left > 0; left--) {
                const std::uint32_t letter = dice.below(text == 0 ? 5 : 2);
                what[text] += letters[letter];
                values[text] += U"ae_%%"[letter];
            }
        const bool expected = like_plainly(values[0], values[1]);
        ASSERT_EQ(like(what[0], what[1]), expected) << what[0] << " " << what[1];
        matched += expected;
    }
    EXPECT_GT(matched, 400);
    EXPECT_TRUE(like("a!%!!_", "a%!😀", "!"));
    EXPECT_FALSE(like("a!%", "ab", "!"));
    EXPECT_TRUE(like("a!%", "a!b"));
    EXPECT_TRUE(like("a%b", "a\nb"));
    std::string stubborn;
    for (int times = 0; times < 30; times++) stubborn += "%a";
    EXPECT_FALSE(like(stubborn + "b", std::string(100000, 'a')));
}

TEST_F(KuqPattern, MatchesOfAnyPatternAreInOrderAndFoundFromAnyPlace)
{
    static constexpr char letters[] = "ab()[]|*+?{}12,^$.\\-:é";
    ku::test::dice dice;
    int compiled = 0;
    for (int step = 0; step < 20000; step++) {
        in(step % 2 == 0 ? "C.UTF-8" : "ja_JP.SJIS");
        std::string what;
        for (std::uint32_t left = 1 + dice.below(10); left > 0; left--)
            what += letters[dice.below(sizeof letters - 1)]; // halves of characters, too
        pattern ours(*app);
        if (!ours.compile(what, pattern_kind::regular, dice.one_in(2))) {
            EXPECT_EQ(kuxernerrors(app->ctx()), 1) << what;
            kuxerclear(app->ctx());
            continue;
        }
        compiled++;
        const std::string text = random_text(dice, 8);
        std::optional<size_t> last_end;
        ours.each(text, [&](const kuq::match &found) {
            EXPECT_TRUE(!last_end || found.start + (found.length > 0 ? 1 : 0) > *last_end) << what;
            last_end = found.start + found.length;
            EXPECT_LE(*last_end, text.size());
            kuq::match again = {};
            EXPECT_TRUE(ours.find(text, found.start, &again)) << what;
            EXPECT_EQ(again.start, found.start) << what << " in " << text;
            EXPECT_EQ(again.length, found.length) << what << " in " << text;
            return true;
        });
    }
    EXPECT_GT(compiled, 1000);
}

TEST_F(KuqPattern, WhatIsWrongIsSaidWithItsPlace)
{
    const struct {
        const char *what, *place, *why;
    } rows[] = {
        {"é(a", "4", "a ( without its )"},
        {"é)", "2", "a ) without its ("},
        {"éé[a", "5", "a [ without its ]"},
        {"[", "2", "a [ without its ]"},
        {"a|*", "3", "nothing to repeat"},
        {"a||b", "3", "nothing where characters are wanted"},
        {"", "1", "nothing where characters are wanted"},
        {"^*", "2", "nothing to repeat"},
        {"x\\", "3", "nothing behind the \\"},
        {"x\\q", "3", "a \\ in front of a letter that it gives no meaning"},
        {"[b-a]", "5", "a range that ends before it begins"},
        {"[[:no:]]", "2", "a class that there is not"},
        {"a{2,1}", "6", "the second number is below the first"},
        {"a{x}", "3", "a number from 0 to 1000 is wanted"},
    };
    in("C.UTF-8");
    for (const auto &row : rows) {
        pattern compiled(*app);
        EXPECT_FALSE(compiled.compile(row.what)) << row.what;
        kuxer *record = kuxerget(app->ctx(), 0);
        ASSERT_NE(record, nullptr);
        char text[400] = {};
        std::uint32_t length = sizeof text - 1;
        kuxerfmtmsg(app->ctx(), record, "text", text, &length, nullptr);
        EXPECT_NE(std::string(text).find(std::string("'") + row.what + "' is wrong at character "
                                         + row.place + ": " + row.why),
                  std::string::npos)
            << text;
        kuxerclear(app->ctx());
    }
    EXPECT_EQ(marked(std::string(100000, '('), ""), "wrong");
}

} // namespace
