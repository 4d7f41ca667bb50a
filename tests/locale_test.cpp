// locale_test.cpp - every character set against a plain model of it
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "port/locale/locale.h"
#include "support/files.h"
#include "support/random.h"

using namespace ku::locale;

namespace
{

using values = std::vector<std::uint32_t>;

constexpr const char *all_sets[] = {"ascii", "iso-8859-1", "iso-8859-15", "cp1252",
                                    "utf-8", "sjis",       "euc-jp",      "iso-2022-kr"};

struct language : kulang {
    explicit language(const char *name) { fill_named(this, nullptr, name); }
};

constexpr std::uint32_t raw(unsigned b) { return KULANG_RAWBYTE + (b & 0xFF); }

// A text in a block of exactly its size, so that a sanitizer sees one byte too many.
struct exact {
    explicit exact(const std::string &text) : bytes(new char[text.size()]), size(text.size())
    {
        std::copy(text.begin(), text.end(), bytes.get());
    }
    std::unique_ptr<char[]> bytes;
    std::size_t size;
};

values read_all(const language &lang, const std::string &text, bool terminated,
                std::size_t *bytes = nullptr)
{
    const exact block(terminated ? text + '\0' : text);
    kucursor cursor;
    open_exact(&cursor, block.bytes.get(), terminated ? SIZE_MAX : text.size(), &lang,
               cursor_mode::read);
    values all;
    bool agree = true; // one check of many: the loop runs for millions of texts
    while (const std::uint32_t shown = wide(cursor)) {
        const std::uint32_t unit = width(cursor);
        const bool one_byte = unit == 1 && shown < 0x100 && cursor.shifted_kucursor == 0;
        agree = agree && is_single(cursor) == one_byte && !past_size(cursor)
                && (unit == 1) == (one_byte || shown >= KULANG_RAWBYTE)
                && (!one_byte || current(cursor) == shown) && next(cursor) == shown;
        all.push_back(shown);
        if (!agree) break;
    }
    agree = agree && current(cursor) == 0 && width(cursor) == 0 && next(cursor) == 0
            && past_size(cursor) == (!terminated && text.find('\0') == std::string::npos);
    EXPECT_TRUE(agree) << testing::PrintToString(text) << " at " << offset(cursor);
    const extent found = measure(lang, block.bytes.get(), cursor.size_kucursor);
    EXPECT_EQ(found.bytes, offset(cursor));
    EXPECT_EQ(found.characters, all.size());
    if (bytes != nullptr) *bytes = offset(cursor);
    return all;
}

std::string write_all(const language &lang, const values &all)
{
    std::string text(all.size() * 5 + 1, '\0');
    kucursor target;
    open_exact(&target, text.data(), text.size(), &lang, cursor_mode::write);
    for (const std::uint32_t value : all) {
        EXPECT_NE(put(target, value, text.size() - offset(target)), 0u) << std::hex << value;
    }
    close_shift(target);
    text.resize(offset(target));
    return text;
}

// ---- the model: which bytes are a character, and which value it has ----

bool in(unsigned b, unsigned low, unsigned high) { return b >= low && b <= high; }

std::uint32_t model_value(const std::string &set, const std::string &s)
{
    const auto at = [&s](std::size_t i) -> unsigned { return static_cast<unsigned char>(s[i]); };
    const std::size_t n = s.size();
    if (n == 1 && (at(0) < 0x80 || (set == "sjis" && in(at(0), 0xA1, 0xDF)))) return at(0);
    if (set == "sjis" && n == 2) {
        const bool lead = in(at(0), 0x81, 0x9F) || in(at(0), 0xE0, 0xFC);
        const bool trail = in(at(1), 0x40, 0x7E) || in(at(1), 0x80, 0xFC);
        return lead && trail ? at(0) << 8 | at(1) : 0;
    }
    if (set == "euc-jp") {
        const auto half = [&at](std::size_t i) { return in(at(i), 0xA1, 0xFE); };
        const bool kana = n == 2 && at(0) == 0x8E && in(at(1), 0xA1, 0xDF);
        if (kana || (n == 2 && half(0) && half(1))) return at(0) << 8 | at(1);
        if (n == 3 && at(0) == 0x8F && half(1) && half(2)) return 0x8F0000 | at(1) << 8 | at(2);
    }
    if (set != "utf-8" || n < 2 || n > 4) return 0;
    static constexpr unsigned marks[] = {0, 0, 0xC0, 0xE0, 0xF0}, ends[] = {0, 0, 0xE0, 0xF0, 0xF8};
    static constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (!in(at(0), marks[n], ends[n] - 1)) return 0;
    std::uint32_t value = at(0) - marks[n];
    for (std::size_t i = 1; i < n; i++) {
        if (!in(at(i), 0x80, 0xBF)) return 0;
        value = value * 64 + (at(i) - 0x80);
    }
    return value < least[n] || value > 0x10FFFF || in(value, 0xD800, 0xDFFF) ? 0 : value;
}

bool model_begins(const std::string &set, const std::string &start)
{
    if (start.size() > 3 || start[0] > 0 || start.find('\0') != std::string::npos) return false;
    for (const char extra : {'\x40', '\x80', '\x8F', '\x90', '\xA0', '\xA1'}) {
        for (const char *more : {"", "\xA1", "\xA1\xA1"}) {
            if (model_value(set, start + extra + more) != 0) return true;
        }
    }
    return false;
}

// Values of a text up to the end or the NUL; what may go on past a limit is left out.
values model_read(const std::string &set, const std::string &text, bool terminated)
{
    values all;
    for (std::size_t at = 0; at < text.size() && text[at] != 0;) {
        std::size_t width = 1;
        while (width <= 4 && model_value(set, text.substr(at, width)) == 0) width++;
        const bool whole = width <= 4 && at + width <= text.size();
        if (!whole && !terminated && model_begins(set, text.substr(at))) break;
        const auto byte = static_cast<unsigned char>(text[at]);
        all.push_back(whole ? model_value(set, text.substr(at, width)) : raw(byte));
        at += whole ? width : 1;
    }
    return all;
}

std::string random_text(const std::string &set, ku::test::dice &dice, std::size_t most)
{
    static const char pieces[] = "\x0E\x0F\x21\x7E\x40\x5C\x7F\x80\x8E\x8F\x9F\xA0\xA1\xBF\xC2\xC3"
                                 "\xDF\xE0\xE2\xED\xEF\xF0\xF4\xFC\xFE\xFF\n ";
    const language lang(set.c_str());
    const bool tidy = dice.one_in(2); // long good stretches, as most text has
    std::string text;
    while (text.size() < most) {
        const std::uint32_t kind = tidy && !dice.one_in(40) ? dice.below(2) * 2 + 1 : dice.below(4);
        if (kind == 0) text += pieces[dice.below(sizeof pieces - 1)];
        if (kind == 1) text.append(dice.below(20), static_cast<char>('A' + dice.below(58)));
        if (kind == 2) text += static_cast<char>(1 + dice.below(255));
        if (kind == 3) {
            kucursor target;
            char bytes[8];
            open_exact(&target, bytes, sizeof bytes, &lang, cursor_mode::write);
            put(target, dice.below(dice.one_in(2) ? 0x800 : 0x11000), sizeof bytes);
            close_shift(target);
            text.append(bytes, offset(target));
        }
    }
    text.resize(dice.below(static_cast<std::uint32_t>(most)));
    return text;
}

} // namespace

TEST(Locale, NamesAndTheEnvironmentChooseTheSet)
{
    static constexpr struct {
        const char *name, *same_as;
    } names[] = {
        {"C", "ascii"},
        {"POSIX", "ascii"},
        {"xx_XX.KLINGON", "ascii"},
        {"UTF-8", "utf8"},
        {"de_DE.utf8@euro", "utf-8"},
        {"ja_JP.SJIS", "sjis"},
        {"CP932", "sjis"},
        {"Shift_JIS", "sjis"},
        {"ja_JP.eucJP", "euc-jp"},
        {"de_DE.ISO8859-15@euro", "iso_8859_15"},
        {"windows-1252", "cp1252"},
        {"ISO-2022-KR", "iso2022kr"},
        {"utf", "ascii"},
        {"", "ascii"},
    };
    for (const auto &row : names) {
        EXPECT_EQ(language(row.name).charset_kulang, language(row.same_as).charset_kulang)
            << row.name;
    }
    static constexpr struct {
        const char *all, *ctype, *lang, *same_as;
    } settings[] = {
        {nullptr, nullptr, nullptr, "ascii"},
        {nullptr, nullptr, "C.UTF-8", "utf8"},
        {nullptr, "ja_JP.SJIS", "C.UTF-8", "sjis"},
        {"", "", "x.eucJP", "euc-jp"},
        {"C", "ja_JP.SJIS", "C.UTF-8", "ascii"},
        {nullptr, nullptr, "utf8", "ascii"}, // no codeset
    };
    const auto set = [](const char *variable, const char *value) {
        value != nullptr ? setenv(variable, value, 1) : unsetenv(variable);
    };
    for (const auto &row : settings) {
        set("LC_ALL", row.all);
        set("LC_CTYPE", row.ctype);
        set("LANG", row.lang);
        kulang lang;
        EXPECT_EQ(fill_current(&lang, nullptr), &lang);
        EXPECT_EQ(lang.charset_kulang, language(row.same_as).charset_kulang) << row.same_as;
    }
}

TEST(Locale, AnyBytesReadAsTheModelSaysAndNotOneByteFurther)
{
    ku::test::dice dice;
    for (const char *set : {"utf-8", "sjis", "euc-jp"}) {
        const language lang(set);
        const auto check = [&](const std::string &text) {
            ASSERT_EQ(read_all(lang, text, false), model_read(set, text, false))
                << set << testing::PrintToString(text);
            const values ended = read_all(lang, text.c_str(), true);
            ASSERT_EQ(ended, model_read(set, text.c_str(), true)) << testing::PrintToString(text);
            ASSERT_EQ(write_all(lang, ended), text.c_str()); // nothing is lost
        };
        for (unsigned pair = 0; pair < 0x10000; pair += pair < 0x7F00 ? 0xFD : 1) {
            const char bytes[] = {static_cast<char>(pair >> 8), static_cast<char>(pair)};
            check(std::string(bytes, 2));
            check(std::string(bytes, 1));
            if (HasFatalFailure()) return;
        }
        for (int round = 0; round < 10000; round++) {
            std::string text;
            for (int i = 0; i < 4; i++) {
                const unsigned b = i == 0 ? 0xE0 + dice.below(0x20) : 0x80 + dice.below(0x40);
                text += static_cast<char>(dice.one_in(8) ? dice.below(256) : b);
            }
            if (dice.one_in(3)) text[0] = '\x8F';
            check(text.substr(0, 3 + dice.below(2)));
            if (HasFatalFailure()) return;
        }
    }
}

TEST(Locale, ShiftedRunsReadInPairs)
{
    const struct {
        const char *text;
        values limited, ended;
        std::size_t bytes;
    } rows[] = {
        {"a\x0E\x30\x21\x0F"
         "b",
         {'a', 0x3021, 'b'},
         {'a', 0x3021, 'b'},
         6},
        {"\x0E\x0E\x30\x21\x0F\x0F", {0x3021}, {0x3021}, 6}, // shift bytes that change nothing
        {"\x0E\x0F", {}, {}, 2},
        {"\x0E\x30\x21\x30", {0x3021}, {0x3021, raw(0x30)}, 3},            // half a pair at the end
        {"\x0E\x30\n", {raw(0x30), raw('\n')}, {raw(0x30), raw('\n')}, 3}, // a newline ends it
        {"\x0E\x30\x0F"
         "b",
         {raw(0x30), 'b'},
         {raw(0x30), 'b'},
         4},
        {"\x0E\x78\n\x79\x7A\x0F",
         {raw(0x78), raw('\n'), 0x797A},
         {raw(0x78), raw('\n'), 0x797A},
         6},
        {"\x0E\x78\x0E\x79\x7A\x0F", {raw(0x78), 0x797A}, {raw(0x78), 0x797A}, 6},
        {"\x0E\x78\x0E\x79\x0F", {raw(0x78), raw(0x79)}, {raw(0x78), raw(0x79)}, 5},
        {"\x0E \x30\x80", {raw(' '), raw(0x30), raw(0x80)}, {raw(' '), raw(0x30), raw(0x80)}, 4},
        {"a\x80", {'a', raw(0x80)}, {'a', raw(0x80)}, 2},
    };
    const language lang("iso-2022-kr");
    for (const auto &row : rows) {
        std::size_t bytes = 0;
        EXPECT_EQ(read_all(lang, row.text, false, &bytes), row.limited) << row.text;
        EXPECT_EQ(bytes, row.bytes) << row.text;
        EXPECT_EQ(read_all(lang, row.text, true), row.ended) << row.text;
        const std::string again = write_all(lang, row.ended);
        EXPECT_EQ(read_all(lang, again, true), row.ended) << row.text;
        EXPECT_LE(again.size(), strlen(row.text) + 1); // what is left open gets closed
    }
    EXPECT_EQ(write_all(lang, {'a', 0x3021, 0x3022, 'b'}), "a\x0E\x30\x21\x30\x22\x0F"
                                                           "b");
}

TEST(Locale, ShiftedWritingKeepsRoomForTheClosingByte)
{
    const language lang("iso-2022-kr");
    for (std::size_t room = 0; room < 10; room++) {
        const exact block(std::string(room, '#'));
        kucursor target;
        open_exact(&target, block.bytes.get(), room, &lang, cursor_mode::write);
        const std::uint32_t written = copy_text(target,
                                                "a\x0E\x30\x21\x30\x22\x0F"
                                                "bc",
                                                room);
        const std::uint32_t closed = close_shift(target);
        const std::string text(block.bytes.get(), written + closed);
        static const std::string expected[] = {"",
                                               "a",
                                               "a",
                                               "a",
                                               "a",
                                               "a\x0E\x30\x21\x0F",
                                               "a\x0E\x30\x21\x0F",
                                               "a\x0E\x30\x21\x30\x22\x0F",
                                               "a\x0E\x30\x21\x30\x22\x0F"
                                               "b",
                                               "a\x0E\x30\x21\x30\x22\x0F"
                                               "bc"};
        EXPECT_EQ(text, expected[room]) << room;
    }
}

TEST(Locale, EveryCharacterIsWrittenAndReadBackAndItsCaseFitsTheExpansion)
{
    static constexpr std::size_t characters[] = {255,
                                                 255,
                                                 255,
                                                 255,
                                                 0x110000 - 0x800 - 1,
                                                 127 + 63 + 60 * 188,
                                                 127 + 63 + 2 * 94 * 94,
                                                 125 + 94 * 94}; // the shift bytes are none
    for (std::size_t set = 0; set < std::size(all_sets); set++) {
        const language lang(all_sets[set]);
        const auto bytes_for = [&lang](std::uint32_t value, unsigned char(&bytes)[8]) {
            kucursor target;
            open_exact(&target, bytes, sizeof bytes, &lang, cursor_mode::write);
            const std::uint32_t written = put(target, value, sizeof bytes);
            return written - (target.shifted_kucursor != 0 ? 1 : 0);
        };
        std::size_t found = 0;
        for (std::uint32_t value = 0; value < 0x120000; value++) {
            unsigned char bytes[8], other[8];
            // Beyond the code points: the three-byte values.
            const std::uint32_t tried = value < 0x110000 ? value : value - 0x110000 + 0x8F0000;
            const std::uint32_t width = bytes_for(tried, bytes);
            if (width == 0) continue;
            found++;
            kucursor source;
            open_exact(&source, bytes, sizeof bytes, &lang, cursor_mode::read);
            ASSERT_EQ(wide(source), tried) << all_sets[set];
            ASSERT_EQ(ku::locale::width(source), width);
            ASSERT_LE(width, lang.maxwidth_kulang);
            const std::uint32_t mapped[] = {wide_upper(lang, tried), wide_lower(lang, tried)};
            for (const std::uint32_t to : mapped) {
                const std::uint32_t grown = bytes_for(to, other);
                ASSERT_NE(grown, 0u) << all_sets[set] << std::hex << tried;
                ASSERT_LE(grown, width * lang.expansion_kulang) << std::hex << tried;
                ASSERT_TRUE(tried >= 0x80 || grown == 1);
            }
            ASSERT_EQ(classes(source), wide_classes(lang, tried));
            if (single_byte(lang) && mapped[0] != tried) {
                ASSERT_EQ(wide_lower(lang, mapped[0]), tried);
            }
        }
        EXPECT_EQ(found, characters[set]) << all_sets[set];
    }
}

TEST(Locale, CountingInBlocksSeesWhatIsMalformedAtAnyPlace)
{
    const language lang("utf-8");
    for (const char *piece :
         {"\xED\xA0\x80", "\xED\x9F\xBF", "\xE0\x9F\xBF", "\xE0\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xC0\x80", "\xC1", "\xF5\x80\x80\x80", "\x80",
          "\xF0"
          "ab\x80",
          "\xE2"
          "a\x80",
          "\xC3\xA9", "\xE2\x82", "\xF0\x9F\x98\x80"}) {
        for (std::size_t at = 0; at < 150; at++) {
            const std::string text = std::string(at, 'x') + piece + std::string(200 - at, 'y');
            read_all(lang, text, true); // compares counting with stepping
            read_all(lang, text, false);
            ASSERT_FALSE(HasFailure()) << at;
        }
    }
}

TEST(Locale, RandomTextsAgreeBetweenCursorsAndBulkOperations)
{
    ku::test::dice dice;
    for (int round = 0; round < 4000; round++) {
        const char *set = all_sets[dice.below(std::size(all_sets))];
        SCOPED_TRACE(testing::Message() << set << " seed " << ku::test::seed());
        const language lang(set);
        const std::string text = random_text(set, dice, dice.one_in(2) ? 60 : 400),
                          written = text.c_str();
        const values all = read_all(lang, written, true);
        const std::string again = write_all(lang, all);
        ASSERT_EQ(read_all(lang, again, true), all);
        if (lang.shiftsensitive_kulang == 0) {
            ASSERT_EQ(again, written);
        }

        const exact block(text);
        const auto index = dice.below(static_cast<std::uint32_t>(text.size() + 2));
        kucursor cursor;
        open_exact(&cursor, block.bytes.get(), text.size(), &lang, cursor_mode::read);
        for (std::uint32_t i = 0; i < index; i++) step(cursor);
        ASSERT_EQ(offset_of(lang, block.bytes.get(), text.size(), index), offset(cursor));

        for (const bool upper : {false, true}) {
            const exact mapped(std::string(text.size() * lang.expansion_kulang, '#'));
            const std::size_t n = (upper ? upper_copy : lower_copy)(
                lang, mapped.bytes.get(), mapped.size, block.bytes.get(), block.size);
            values expected = all;
            for (std::uint32_t &v : expected) v = (upper ? wide_upper : wide_lower)(lang, v);
            const std::string result(mapped.bytes.get(), n);
            ASSERT_EQ(read_all(lang, result.c_str(), true), expected);
            ASSERT_EQ(std::count(result.begin(), result.end(), '\0'),
                      std::count(text.begin(), text.end(), '\0'));
        }

        std::string other = dice.one_in(2) ? random_text(set, dice, 8).c_str() : written;
        if (!other.empty() && dice.one_in(2)) other[dice.below(other.size())] ^= 0x20;
        other = other.c_str();
        const values others = read_all(lang, other, true);
        const auto sign = [](int order) { return (order > 0) - (order < 0); };
        const exact a(written), b(other);
        ASSERT_EQ(sign(compare_text(lang, a.bytes.get(), a.size, b.bytes.get(), b.size)),
                  all < others   ? -1
                  : all > others ? 1
                                 : 0);
        const auto [left, right] =
            std::mismatch(all.begin(), all.end(), others.begin(), others.end(),
                          [&](auto x, auto y) { return wide_compare_nocase(lang, x, y) == 0; });
        const bool at_end = left == all.end() || right == others.end();
        const int order = !at_end ? wide_compare_nocase(lang, *left, *right)
                                  : (left != all.end()) - (right != others.end());
        ASSERT_EQ(sign(compare_text_nocase(lang, a.bytes.get(), a.size, b.bytes.get(), b.size)),
                  order);
    }
}

TEST(Locale, CaseFollowsTheSet)
{
    static constexpr struct {
        const char *set;
        std::uint32_t upper, lower;
    } pairs[] = {
        {"ascii", 'Q', 'q'},
        {"iso-8859-1", 0xC9, 0xE9},
        {"iso-8859-15", 0xBE, 0xFF},
        {"iso-8859-15", 0xA6, 0xA8},
        {"cp1252", 0x9F, 0xFF},
        {"cp1252", 0x8A, 0x9A},
        {"utf-8", 'Q', 'q'},
        {"utf-8", 0xC9, 0xE9},
        {"utf-8", 0x416, 0x436},
        {"utf-8", 0x23A, 0x2C65},
        {"utf-8", 0x10400, 0x10428},
        {"utf-8", 0x1E9E, 0xDF},
        {"sjis", 0x8260, 0x8281},
        {"sjis", 0x839F, 0x83BF},
        {"euc-jp", 0xA3C1, 0xA3E1},
        {"euc-jp", 0x8FAAA1, 0x8FABA1},
        {"iso-2022-kr", 0x2341, 0x2361},
    };
    for (const auto &row : pairs) {
        const language lang(row.set);
        if (lang.maxwidth_kulang > 1 && row.upper > 0xFF && strcmp(row.set, "utf-8") != 0) {
            const iconv_t with = iconv_open("UTF-32LE", "EUC-KR"); // absent on small machines
            if (with == reinterpret_cast<iconv_t>(-1)) continue;
            iconv_close(with);
        }
        EXPECT_EQ(wide_lower(lang, row.upper), row.lower) << row.set << std::hex << row.upper;
        EXPECT_TRUE(row.upper == 0x1E9E || wide_upper(lang, row.lower) == row.upper)
            << row.set << std::hex << row.lower;
        EXPECT_EQ(wide_compare_nocase(lang, row.upper, row.lower), 0);
        EXPECT_TRUE(wide_classes(lang, row.upper) & KULANG_UPPER) << std::hex << row.upper;
        EXPECT_TRUE(wide_classes(lang, row.lower) & KULANG_LOWER) << std::hex << row.lower;
    }
    static constexpr struct {
        const char *set;
        std::uint32_t value;
    } caseless[] = {
        {"ascii", 0xE9},  {"iso-8859-1", 0xFF}, {"iso-8859-1", 0xB5}, {"iso-8859-1", 0xDF},
        {"cp1252", 0x81}, {"utf-8", raw(0xC9)}, {"sjis", 0x8341},     {"sjis", 0x81F0},
    };
    for (const auto &row : caseless) {
        EXPECT_EQ(wide_upper(language(row.set), row.value), row.value) << row.set << row.value;
        EXPECT_EQ(wide_lower(language(row.set), row.value), row.value) << row.set << row.value;
    }
    const language utf8("utf-8");
    EXPECT_EQ(wide_compare_nocase(utf8, 0x3C2, 0x3C3), 0); // final sigma
    EXPECT_EQ(wide_compare_nocase(utf8, 0x212A, 'k'), 0);  // kelvin sign
    EXPECT_NE(wide_compare_nocase(utf8, 0x131, 'i'), 0);   // dotless i is another letter
    EXPECT_NE(wide_compare_nocase(utf8, 0x130, 'i'), 0);
    EXPECT_LT(wide_compare_nocase(utf8, 'z', raw(0x80)), 0);
    EXPECT_LT(wide_compare_nocase(utf8, 'a', '_'), 0); // by upper case, as the byte sets
    EXPECT_LT(compare_text_nocase(language("ascii"), "a", 1, "_", 1), 0);
}

TEST(Locale, ClassesAreTheLanguages)
{
    static constexpr struct {
        const char *set;
        std::uint32_t value;
        unsigned classes;
    } rows[] = {
        {"ascii", ' ', KULANG_SPACE | KULANG_BLANK},
        {"ascii", '\t', KULANG_SPACE | KULANG_CNTRL},
        {"ascii", '\v', KULANG_SPACE | KULANG_CNTRL},
        {"ascii", 0x1F, KULANG_CNTRL},
        {"ascii", 0x7F, KULANG_CNTRL},
        {"ascii", '7', KULANG_DIGIT | KULANG_XDIGIT},
        {"ascii", 'f', KULANG_LOWER | KULANG_LETTER | KULANG_XDIGIT},
        {"ascii", 'G', KULANG_UPPER | KULANG_LETTER},
        {"ascii", '_', KULANG_PUNCT},
        {"ascii", 0xE9, 0},
        {"iso-8859-1", 0xE9, KULANG_LOWER | KULANG_LETTER},
        {"iso-8859-1", 0xD7, KULANG_PUNCT},
        {"iso-8859-1", 0x85, KULANG_CNTRL},
        {"cp1252", 0x80, KULANG_PUNCT},
        {"cp1252", 0x8D, 0},
        {"utf-8", 0x80000041, 0},
        {"utf-8", 0x3042, KULANG_LETTER},
        {"utf-8", 0x3000, KULANG_SPACE | KULANG_BLANK},
        {"utf-8", 0x1F600, KULANG_PUNCT},
        {"utf-8", 0x20000, KULANG_LETTER},
        {"utf-8", 0x378, 0},
        {"sjis", 0xB1, KULANG_LETTER},
        {"sjis", 0xA2, KULANG_PUNCT},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(wide_classes(language(row.set), row.value), row.classes)
            << row.set << std::hex << row.value;
    }
    static constexpr struct {
        const char *set;
        unsigned char lead;
        unsigned further;
    } leads[] = {
        {"utf-8", 0xC1, 0},  {"utf-8", 0xC2, 1},       {"utf-8", 0xEF, 2},      {"utf-8", 0xF4, 3},
        {"utf-8", 0xF5, 0},  {"sjis", 0xDF, 0},        {"sjis", 0xE0, 1},       {"euc-jp", 0x8E, 1},
        {"euc-jp", 0x8F, 2}, {"iso-2022-kr", 0x30, 0}, {"iso-8859-1", 0xC2, 0},
    };
    for (const auto &row : leads) {
        EXPECT_EQ(byte_classes(language(row.set), row.lead) & KULANG_TRAIL, row.further) << row.set;
    }
}

TEST(Locale, SmallOperationsOnTexts)
{
    char text[32] = "o'neil x2y DON";
    const language ascii("ascii"), kr("iso-2022-kr"), utf8("utf-8");
    bytes_capitals(ascii, text, text, strlen(text));
    EXPECT_STREQ(text, "O'Neil X2Y Don");

    static const struct {
        const char *target, *source, *joined;
    } joins[] = {
        {"ab", "cd", "abcd"},
        {"\x0E\x30\x21\x0F", "\x0E\x30\x22\x0F", "\x0E\x30\x21\x30\x22\x0F"}, // one run
        {"\x0E\x30\x21", "b",
         "\x0E\x30\x21\x0F"
         "b"},                                                                // left open
        {"\x0E\x30\x0F", "\x0E\x30\x22\x0F", "\x0E\x30\x0F\x0E\x30\x22\x0F"}, // no pair to join
        {"a", "", "a"},
    };
    for (const auto &row : joins) {
        std::strcpy(text, row.target);
        EXPECT_EQ(concatenate(kr, text, row.source), strlen(row.joined));
        EXPECT_STREQ(text, row.joined);
    }
    EXPECT_TRUE(stands_alone(kr, "ab", 2, false));
    EXPECT_FALSE(stands_alone(kr, "\x30\x21", 2, true));
    EXPECT_FALSE(stands_alone(kr, "\x0E\x30\x21", 3, false));
    EXPECT_TRUE(stands_alone(utf8, "\xC3", 1, true));

    static constexpr struct {
        const char *text;
        bool good;
        std::uint32_t value;
        unsigned used;
    } numbers[] = {{"", false, 0, 0},
                   {"x1", false, 0, 0},
                   {"0042z", true, 42, 4},
                   {"4294967295", true, 4294967295u, 10},
                   {"4294967296", false, 0, 10},
                   {"99999999999999999999999", false, 0, 23}};
    for (const auto &row : numbers) {
        std::uint32_t value = 0;
        std::size_t used = 0;
        EXPECT_EQ(text_to_number(row.text, &value, &used), row.good) << row.text;
        EXPECT_EQ(used, row.used) << row.text;
        if (row.good) {
            EXPECT_EQ(value, row.value);
        }
    }

    kucursor cursor; // a size of 65535 goes to the NUL; a trail byte is no backslash
    char sjis_text[] = "a\x83\\\\b";
    const language sjis("sjis");
    open(&cursor, sjis_text, 65535, &sjis, nullptr, cursor_mode::read);
    EXPECT_FALSE(is_ahead(cursor, 1, '\\'));
    EXPECT_TRUE(is_ahead(cursor, 2, '\\'));
    EXPECT_TRUE(is_ahead(cursor, 3, 'b'));
    EXPECT_TRUE(is_ahead(cursor, 4, 0));
    EXPECT_FALSE(is_ahead(cursor, 3, 0));
}

TEST(Locale, TablesMayBeBuiltFromSeveralThreads)
{
    std::vector<std::thread> threads;
    std::vector<std::uint32_t> results(4);
    for (std::uint32_t &result : results) {
        threads.emplace_back([&result] {
            for (const char *set : all_sets) result += wide_lower(language(set), 0xC9);
            result += wide_lower(language("utf-8"), 0x10400);
            result += wide_classes(language("euc-jp"), 0xA3C1);
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(std::count(results.begin(), results.end(), results[0]), 4);
}

// The C library does not release the list that it makes of LOCPATH when it opens a locale.
extern "C" const char *__lsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__lsan_default_suppressions() { return "leak:argz_add_sep\n"; }

TEST(Locale, DataIsOrderedAsTheEnvironmentsLocaleHasItPieceByPiece)
{
    const ku::test::directory locales;
    const std::string made = locales.path("sv_SE.UTF-8");
    const std::string make = "localedef -c -i sv_SE -f UTF-8 " + made + " 2>/dev/null";
    if (std::system(make.c_str()) != 0) GTEST_SKIP() << "no locale can be made on this machine";
    const ku::test::variable path("LOCPATH", locales.path());
    const ku::test::variable text("LC_CTYPE", "C.UTF-8");
    const auto language_of = [](const char *name) {
        const ku::test::variable order("LC_COLLATE", name);
        kulang lang;
        fill_current(&lang, nullptr);
        return lang;
    };
    const kulang swedish = language_of("sv_SE.UTF-8");
    ASSERT_NE(swedish.collation_kulang, nullptr);
    EXPECT_EQ(language_of("sv_SE.UTF-8").collation_kulang, swedish.collation_kulang);
    EXPECT_EQ(language_of("C.UTF-8").collation_kulang, nullptr);
    EXPECT_EQ(language_of("xx_XX.UTF-8").collation_kulang, nullptr); // not installed
    {
        const ku::test::variable other("LC_CTYPE", "en.ISO-8859-1");
        EXPECT_EQ(language_of("sv_SE.UTF-8").collation_kulang, nullptr); // another set
    }

    const std::string pad(2500, 'x');
    const struct {
        std::string first, second; // first comes first
    } rows[] = {
        {"a", "B"},
        {"\xC3\xA5", "\xC3\xA4"}, // a with ring before a with dots, here
        {"a", "ab"},
        {std::string("a\0", 2), std::string("a\0a", 3)},
        {"", "a"},
        {"a", std::string("a\0", 2)},
        {pad + "a", pad + "B"},
        {pad, pad + "\xC3"},
        {"z", "\xC3\xA5"},
    };
    for (const auto &row : rows) {
        const exact a(row.first), b(row.second);
        EXPECT_LT(collate(swedish, a.bytes.get(), a.size, b.bytes.get(), b.size), 0);
        EXPECT_GT(collate(swedish, b.bytes.get(), b.size, a.bytes.get(), a.size), 0);
        EXPECT_EQ(collate(swedish, a.bytes.get(), a.size, exact(row.first).bytes.get(), a.size), 0);
    }
    EXPECT_GT(collate(language("utf8"), "a", 1, "B", 1), 0); // without one: by value

    // An order, whatever the bytes.
    ku::test::dice dice;
    std::vector<std::string> texts;
    for (int i = 0; i < 60; i++) {
        std::string any(dice.one_in(3) ? 1998 : 0, 'y');
        for (std::uint32_t n = dice.below(5); n > 0; n--) any += "aB\xC3\xA5\0\xE3"[dice.below(6)];
        texts.push_back(any);
    }
    const auto order = [&](const std::string &a, const std::string &b) {
        return collate(swedish, a.data(), a.size(), b.data(), b.size());
    };
    for (const std::string &a : texts) {
        for (const std::string &b : texts) {
            ASSERT_EQ(order(a, b) > 0, order(b, a) < 0);
            for (const std::string &c : texts) {
                ASSERT_FALSE(order(a, b) <= 0 && order(b, c) <= 0 && order(a, c) > 0);
            }
        }
    }
}
