// The multibyte layer under every kind of character set: random texts beside a
// model that knows each character's bytes, wide value, case and class, and never
// decodes. Every text handed over fills a heap block of its own to the last byte,
// at an odd address, so that a sanitizer sees a read or a write past an end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "liz2c.h"
#include "liz2o.h"
#include "liz2w.h"
#include "liz6.h"
#include "liz_internal.h"
#include "lizc.h"
#include "lizm.h"
#include "lizs.h"
#include "lizu.h"
#include "support/random.h"

namespace locale = ku::locale;

namespace
{

enum trait : std::uint16_t { upper = 1, lower = 2, letter = 4, digit = 8, space = 16, punct = 32 };

// One character of a set: its bytes without shift bytes, its value, that of its other case.
struct character {
    const char *bytes;
    uint32_t value, other;
    int traits;
    uint32_t upper_value() const { return (traits & lower) != 0 ? other : value; }
    uint32_t lower_value() const { return (traits & upper) != 0 ? other : value; }
};
using characters = std::vector<character>;

const characters ascii = {{"a", 'a', 'A', letter | lower}, {"B", 'B', 'b', letter | upper},
                          {"b", 'b', 'B', letter | lower}, {"A", 'A', 'a', letter | upper},
                          {"7", '7', '7', digit},          {" ", ' ', ' ', space},
                          {"-", '-', '-', punct},          {"\t", '\t', '\t', space}};

struct set {
    const char *name;
    characters own; // besides ASCII
};
const set sets[] = {
    {"ascii", {}},
    {"iso-8859-1", {{"\xE9", 0xE9, 0xC9, letter | lower}, {"\xC9", 0xC9, 0xE9, letter | upper}}},
    {"utf8",
     {{"\xC3\xA9", 0xE9, 0xC9, letter | lower},
      {"\xC3\x89", 0xC9, 0xE9, letter | upper},
      {"\xD0\xB6", 0x436, 0x416, letter | lower},
      {"\xD0\x96", 0x416, 0x436, letter | upper},
      {"\xC8\xBA", 0x23A, 0x2C65, letter | upper}, // lower case is a byte longer
      {"\xE2\xB1\xA5", 0x2C65, 0x23A, letter | lower},
      {"\xE6\xBC\xA2", 0x6F22, 0x6F22, letter},
      {"\xF0\x9F\x98\x80", 0x1F600, 0x1F600, punct},
      {"\xFF", 0x800000FF, 0x800000FF, 0},   // never part of a character
      {"\x80", 0x80000080, 0x80000080, 0}}}, // a trail byte alone
    {"sjis",
     {{"\x83\x5C", 0x835C, 0x835C, letter}, // trail bytes that look like ASCII
      {"\x83\x61", 0x8361, 0x8361, letter},
      {"\xFD", 0x800000FD, 0x800000FD, 0}}},
    {"euc-jp",
     {{"\xA4\xA2", 0xA4A2, 0xA4A2, letter},
      {"\x8E\xB1", 0x8EB1, 0x8EB1, letter},
      {"\x8F\xB0\xA1", 0x8FB0A1, 0x8FB0A1, letter}}},
    {"iso-2022-kr", {{"\x30\x21", 0x3021, 0x3021, letter}, {"\x30\x61", 0x3061, 0x3061, letter}}},
};

// A heap copy that ends with its block; without content, a target filled with 0xEE.
class block
{
public:
    explicit block(const std::string &bytes) : size_(bytes.size()), memory_(new char[size_ + 1])
    {
        std::copy(bytes.begin(), bytes.end(), data());
    }
    explicit block(std::size_t size) : block(std::string(size, '\xEE')) {}
    char *data() const { return memory_.get() + 1; }
    std::string bytes(std::size_t from = 0) const { return {data() + from, size_ - from}; }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

private:
    std::size_t size_;
    std::unique_ptr<char[]> memory_;
};

template <typename T> auto flat(const T &value) { return std::make_tuple(value); }
auto flat(const std::vector<uint32_t> &wide)
{
    return std::make_tuple(static_cast<void *>(const_cast<uint32_t *>(wide.data())),
                           static_cast<uint32_t>(wide.size() * 4), LIZ_WIDE);
}
auto flat(const block &of)
{
    return std::make_tuple(static_cast<void *>(of.data()), of.size(), LIZ_MULTIBYTE);
}

struct argument;
std::tuple<const void *, uint32_t, int> flat(const argument &of);

struct expected_copy {
    std::string bytes;      // written and counted
    std::string terminator; // behind them, not counted
    uint32_t status;
};

struct language {
    kulang lang;
    kulocglo glo{};
    characters all = ascii;
    ku::test::dice dice;

    explicit language(const set &from)
    {
        locale::fill_named(&lang, &glo, from.name);
        all.insert(all.end(), from.own.begin(), from.own.end());
    }
    // Calls an operation; a text stands for its address, length and representation.
    template <typename Operation, typename... Arguments>
    auto operator()(Operation operation, const Arguments &...arguments)
    {
        return std::apply(operation,
                          std::tuple_cat(std::make_tuple(&lang, &glo), flat(arguments)...));
    }
    bool bytewise() const { return locale::single_byte(lang); }
    bool shifts() const { return lang.shiftsensitive_kulang != 0; }
    bool is_shifted(const character &c) const { return shifts() && c.bytes[1] != 0; }

    characters random_text(uint32_t most)
    {
        characters text(dice.below(most + 1));
        for (character &c : text) c = all[dice.below(static_cast<uint32_t>(all.size()))];
        return text;
    }

    // Bytes of one character after a run in the given shift state, the shift byte included.
    std::string encoded(const character &c, int rep, bool &shifted) const
    {
        if (rep == LIZ_WIDE && !bytewise())
            return {reinterpret_cast<const char *>(&c.value), sizeof c.value};
        std::string bytes = c.bytes;
        if (is_shifted(c) != shifted) bytes.insert(0, 1, shifted ? '\x0F' : '\x0E');
        shifted = is_shifted(c);
        return bytes;
    }
    std::string encoded(const characters &text, int rep) const
    {
        std::string bytes;
        bool shifted = false;
        for (const character &c : text) bytes += encoded(c, rep, shifted);
        return shifted ? bytes + '\x0F' : bytes;
    }
    std::string nul(int rep) const
    {
        return std::string(rep == LIZ_WIDE && !bytewise() ? 4 : 1, 0);
    }

    // Where each character begins as a scan counts: behind the shift bytes before it.
    std::vector<uint32_t> offsets(const characters &text, int rep) const
    {
        std::vector<uint32_t> begins;
        uint32_t offset = 0;
        bool shifted = false;
        for (const character &c : text) {
            const bool turns = rep != LIZ_WIDE && is_shifted(c) != shifted;
            begins.push_back(offset + (turns && offset != 0 ? 1 : 0));
            offset += static_cast<uint32_t>(encoded(c, rep, shifted).size());
        }
        begins.push_back(static_cast<uint32_t>(encoded(text, rep).size()));
        return begins;
    }

    // The case option, through an alphabet closed under it.
    characters mapped(characters text, int option) const
    {
        bool in_word = false;
        for (character &c : text) {
            const bool begins = !in_word;
            in_word = (c.traits & letter) != 0;
            const bool up = option == LIZ_UPPER || (option == LIZ_CAPITALS && begins && in_word);
            const bool down = option == LIZ_LOWER || (option == LIZ_CAPITALS && !begins && in_word);
            const uint32_t value = up ? c.upper_value() : down ? c.lower_value() : c.value;
            if (value == c.value) continue;
            const auto partner = std::find_if(
                all.begin(), all.end(), [value](const character &p) { return p.value == value; });
            if (partner != all.end()) c = *partner;
        }
        return text;
    }

    expected_copy copied(const characters &text, std::size_t room, int rep) const
    {
        expected_copy done{"", "", LIZ_OK};
        bool shifted = false;
        for (const character &c : text) {
            bool after = shifted;
            const std::string bytes = encoded(c, rep, after);
            const std::size_t kept = rep != LIZ_WIDE && after ? 1 : 0;
            if (done.bytes.size() + bytes.size() + kept > room) {
                done.status = LIZ_END;
                break;
            }
            done.bytes += bytes;
            shifted = after;
        }
        if (shifted && rep != LIZ_WIDE) done.terminator = "\x0F";
        const std::string end = nul(rep);
        const bool fits = done.bytes.size() + done.terminator.size() + end.size() <= room;
        if (done.status == LIZ_OK && fits && (rep != LIZ_CURSOR || bytewise()))
            done.terminator += end;
        return done;
    }
};

// How the end of a text is told: by its length, by KU_NTS, or by a NUL before the length given.
enum ending { exact, to_the_nul, nul_first };

// A text as an argument: address and length in one representation.
struct argument {
    block memory;
    kucursor cursor{};
    int rep;
    uint32_t length;

    argument(language &l, const characters &text, int representation, ending how)
        : memory(l.encoded(text, representation) + (how == exact ? "" : l.nul(representation))),
          rep(representation), length(how == to_the_nul ? KU_NTS : memory.size())
    {
        if (how == nul_first) length += 100;
        locale::open_exact(&cursor, memory.data(), length, &l.lang, locale::cursor_mode::read);
    }
    argument(language &l, const characters &text, int representation) // bytes take any length
        : argument(l, text, representation, static_cast<ending>(l.dice.below(l.bytewise() ? 2 : 3)))
    {
    }
    const void *at() const
    {
        return rep == LIZ_CURSOR ? &cursor : static_cast<void *>(memory.data());
    }
};

std::tuple<const void *, uint32_t, int> flat(const argument &of)
{
    return {of.at(), of.length, of.rep};
}

constexpr int rounds = 400;

template <typename Body> void in_every_language(Body body)
{
    for (const set &each : sets) {
        SCOPED_TRACE(std::string(each.name) + ", seed " + std::to_string(ku::test::seed()));
        language l(each);
        for (int round = 0; round < rounds && !testing::Test::HasFailure(); round++) body(l);
    }
}

int random_rep(language &l) { return LIZ_WIDE + static_cast<int>(l.dice.below(3)); }

} // namespace

TEST(Liz, ScansDeliverEveryCharacterWithItsPlaceAndLengthsCountThem)
{
    in_every_language([](language &l) {
        const characters text = l.random_text(9);
        const int rep = random_rep(l);
        const argument given(l, text, rep);
        const auto ends = l.offsets(text, rep);
        const uint32_t skipped = l.dice.below(static_cast<uint32_t>(text.size()) + 2);
        lizg scan;
        const uint32_t status = l(lizginit, &scan, given, skipped);
        EXPECT_EQ(status, skipped <= text.size() ? LIZ_OK : LIZ_END);
        uint32_t value = 1, bytes = 99, count = 99;
        for (std::size_t i = skipped; i < text.size(); i++) {
            EXPECT_EQ(l(lizggnc, &scan, &value), LIZ_OK);
            EXPECT_EQ(value, text[i].value);
            EXPECT_EQ(scan.lcnum_lizg, static_cast<int>(i));
            EXPECT_EQ(scan.boffset_lizg, ends[i + 1]);
        }
        EXPECT_EQ(l(lizggnc, &scan, &value), LIZ_END);
        EXPECT_EQ(value, 0u);
        EXPECT_EQ(l(lizmblen, given, &bytes), LIZ_OK);
        EXPECT_EQ(l(lizmllen, given, &count), LIZ_OK);
        EXPECT_EQ(bytes, ends.back());
        EXPECT_EQ(count, text.size());

        const int as = rep == LIZ_CURSOR ? LIZ_MULTIBYTE : rep;
        const block cut(l.encoded(text, rep).substr(0, l.dice.below(bytes + 1)));
        l(lizmblen, cut.data(), cut.size(), as, &bytes); // nothing behind the limit may be read
        l(lizmllen, cut.data(), cut.size(), as, &count);
        EXPECT_LE(bytes, cut.size());
        EXPECT_LE(ends[count], cut.size() + (l.shifts() ? 1 : 0));
        EXPECT_TRUE(count == text.size() || ends[count + 1] > cut.size());
    });
}

// A cursor is opened behind them, a multibyte text begins with them.
TEST(Liz, ShiftBytesInFrontCountAndLimitsHoldForCursorsAsForBytes)
{
    language l(sets[5]);
    const struct {
        std::string text;
        uint32_t bytes;
    } rows[] = {{"\x0F\x61", 2},     {"\x0E\x0E\x21\x21\x0F", 5},
                {"\x0E\x0F\x61", 3}, {"\x0E\x21\x21\x0F", 4},
                {"\x0E\x0F", 0},     {"\x0E\x21\x21\x22\x22\x0F\x61\x62\x63", 9}};
    for (const auto &row : rows)
        for (uint32_t limit = 0; limit <= row.text.size(); limit++) {
            const block whole(row.text), part(row.text.substr(0, limit)), empty(std::size_t{0});
            kucursor cursor;
            locale::open_exact(&cursor, whole.data(), whole.size(), &l.lang,
                               locale::cursor_mode::read);
            const auto all = [&l, &empty](const auto &...text) {
                uint32_t bytes = 99, count = 99, index = 0;
                int order = 99, found = 99;
                l(lizmblen, text..., &bytes);
                l(lizmllen, text..., &count);
                l(lizmcmp, text..., empty, LIZ_BINARY, &order);
                l(lizmsearch, text..., "\x0E!!\x0F", 4, LIZ_MULTIBYTE, LIZ_BINARY, &found, &index,
                  nullptr);
                const block target(std::size_t{12});
                l(lizmcpy, target, text..., LIZ_COPY, nullptr);
                return std::make_tuple(bytes, count, order, found, target.bytes());
            };
            EXPECT_EQ(all(&cursor, limit, LIZ_CURSOR), all(part)) << row.text << limit;
            if (limit == row.text.size()) {
                EXPECT_EQ(std::get<0>(all(part)), row.bytes);
            }
        }
}

TEST(Liz, BytesThatANulCutsOffAreCharacters)
{
    static constexpr struct {
        const char *set, *a, *b;
        int res;
    } rows[] = {{"utf8", "\xC3", "", LIZ_GREATER},       {"utf8", "a\xE3\x81", "a", LIZ_GREATER},
                {"utf8", "\xC3", "\xE3", LIZ_LESS},      {"sjis", "b\x83", "b", LIZ_GREATER},
                {"euc-jp", "\x8F\xA1", "", LIZ_GREATER}, {"iso-2022-kr", "\x0E!", "", LIZ_GREATER}};
    for (const auto &row : rows)
        for (int rep : {LIZ_MULTIBYTE, LIZ_CURSOR})
            for (int option : {LIZ_NOCASE, LIZ_BINARY}) {
                language l({row.set, {}});
                int res = 99;
                const block a(std::string(row.a) + '\0'), b(std::string(row.b) + '\0');
                kucursor cursor;
                locale::open_exact(&cursor, a.data(), a.size(), &l.lang, locale::cursor_mode::read);
                const void *at = rep == LIZ_CURSOR ? &cursor : static_cast<void *>(a.data());
                l(lizmcmp, at, KU_NTS, rep, b.data(), KU_NTS, LIZ_MULTIBYTE, option, &res);
                EXPECT_EQ(res, row.res) << row.set << " " << row.a;
            }
    language l(sets[2]);
    uint32_t target[] = {0, 1, 2, 3};
    l(lizscat, +target, LIZ_WIDE, "a\xC3", LIZ_MULTIBYTE, LIZ_COPY, nullptr);
    EXPECT_EQ(std::vector<uint32_t>(target, target + 4),
              (std::vector<uint32_t>{'a', 0x800000C3, 0, 3}));
}

// Every pair of representations, every option, every target size from none to ample.
TEST(Liz, CopiesConvertWholeCharactersAndTerminateWhereThereIsRoom)
{
    static constexpr decltype(&liz2ww) converters[3][3] = {
        {liz2ww, liz2wc, liz2wo}, {liz2cw, liz2cc, liz2co}, {liz2ow, liz2oc, liz2oo}};
    in_every_language([](language &l) {
        const characters text = l.random_text(l.dice.one_in(8) ? 80 : 8); // long ones go in blocks
        const int srep = random_rep(l), trep = random_rep(l),
                  option = static_cast<int>(l.dice.below(4));
        const characters wanted = l.mapped(text, option);
        const std::size_t needed = l.encoded(wanted, trep).size();
        const block target(l.dice.below(static_cast<uint32_t>(needed) + 8));
        const argument source(l, text, srep);
        const expected_copy expected = l.copied(wanted, target.size(), trep);
        SCOPED_TRACE("to " + std::to_string(trep) + " from " + std::to_string(srep) + " option "
                     + std::to_string(option) + " room " + std::to_string(target.size()));

        kucursor cursor;
        locale::open_exact(&cursor, target.data(), target.size(), &l.lang,
                           locale::cursor_mode::write);
        void *at = trep == LIZ_CURSOR ? &cursor : static_cast<void *>(target.data());
        uint32_t written = 99;
        const bool by_name = l.dice.one_in(2);
        const uint32_t status =
            by_name ? converters[trep - 1][srep - 1](&l.lang, at, target.size(), source.at(),
                                                     source.length, option, &written, &l.glo)
                    : l(lizmcpy, at, target.size(), trep, source, option, &written);
        EXPECT_EQ(status, expected.status);
        EXPECT_EQ(written, expected.bytes.size());
        const std::string begun = expected.bytes + expected.terminator;
        EXPECT_EQ(target.bytes().substr(0, begun.size()), begun);
        EXPECT_EQ(target.bytes(begun.size()), std::string(target.size() - begun.size(), '\xEE'));
        const bool reopened = !by_name && l.bytewise() && trep == LIZ_CURSOR;
        EXPECT_EQ(cursor.size_kucursor, reopened ? written : target.size());
    });
}

namespace
{

// Buffers of a chain; cursors over them where the representation wants cursors.
struct chain {
    std::vector<block> buffers;
    std::vector<kucursor> cursors;
    std::size_t next = 0;

    void add(language &l, block buffer)
    {
        buffers.push_back(std::move(buffer));
        cursors.emplace_back();
        locale::open_exact(&cursors.back(), buffers.back().data(), buffers.back().size(), &l.lang,
                           locale::cursor_mode::write);
    }
    template <bool cursor> static int32_t supply(void *client, void **buffer, uint32_t *length)
    {
        auto &self = *static_cast<chain *>(client);
        if (self.next == self.buffers.size()) return 1;
        *buffer = cursor ? static_cast<void *>(&self.cursors[self.next])
                         : static_cast<void *>(self.buffers[self.next].data());
        *length = self.buffers[self.next++].size();
        return 0;
    }
    static lizusupply supplier(int rep) { return rep == LIZ_CURSOR ? supply<true> : supply<false>; }
};

} // namespace

TEST(Liz, CopiesWithAnotherOptionOrRepresentationDoNothing)
{
    static constexpr struct {
        const char *set;
        int trep, srep, option;
        uint32_t written;
        const char *after; // of a target of 6 bytes
    } rows[] = {
        {"utf8", LIZ_MULTIBYTE, LIZ_MULTIBYTE, 7, 0, "......"},
        {"utf8", LIZ_WIDE, LIZ_MULTIBYTE, 4, 0, "\0\0\0\0.."},
        {"utf8", 4, LIZ_MULTIBYTE, LIZ_COPY, 0, "......"},
        {"ascii", LIZ_MULTIBYTE, 0, LIZ_COPY, 0, "......"},
        {"ascii", LIZ_MULTIBYTE, LIZ_MULTIBYTE, 7, 2, "..\0..."}, // counted and ended, not copied
    };
    for (const auto &row : rows) {
        language l({row.set, {}});
        block target(std::string("......"));
        uint32_t written = 99;
        EXPECT_EQ(l(lizmcpy, target.data(), 6, row.trep, "ab", 2, row.srep, row.option, &written),
                  LIZ_OK);
        EXPECT_EQ(written, row.written);
        EXPECT_EQ(target.bytes(), std::string(row.after, 6));

        chain to, from; // every supplier is asked once
        to.add(l, block(std::string("......")));
        from.add(l, block(std::string("ab")));
        EXPECT_EQ(l(lizucopy, chain::supplier(row.trep), &to, row.trep, chain::supplier(row.srep),
                    &from, row.srep, row.option, &written),
                  LIZ_OK);
        EXPECT_EQ(written, row.written);
        EXPECT_EQ(to.buffers[0].bytes(), std::string(row.after, 6));
        EXPECT_EQ(to.next + from.next, 2u);
    }
}

// Half a pair, and what is none, among shifted pairs: a copy fits where the text fitted.
TEST(Liz, CopiesOfShiftedTextsAreNeverLongerThanTheTexts)
{
    language l(sets[5]);
    for (const char *text :
         {"\x0Ex\nyz\x0F", "\x0Ex\x0Eyz\x0F", "\x0Ex\x80yz\x0F", "\x0Ex\x0F\x79\x0E!!\x0F",
          "\x0Ex\x0Ey\x0F", "\x0Eyzx\x0F\x0Eyz\x0F"}) {
        const block source{std::string(text)}, target(source.size());
        uint32_t written = 0, n = 0;
        EXPECT_EQ(l(lizmcpy, target, source, LIZ_COPY, &written), LIZ_OK);
        const auto values = [&](const void *from, uint32_t length) {
            std::vector<uint32_t> wide(24);
            l(lizmcpy, wide, from, length, LIZ_MULTIBYTE, LIZ_COPY, &n);
            return wide;
        };
        EXPECT_EQ(values(target.data(), target.size()), values(source.data(), source.size()));
        char joined[20] = "a";
        EXPECT_EQ(l(lizscat, +joined, LIZ_MULTIBYTE, text, LIZ_MULTIBYTE, LIZ_COPY, nullptr),
                  LIZ_OK);
        EXPECT_EQ(values(joined + 1, KU_NTS), values(text, KU_NTS)) << text;
        EXPECT_LE(std::strlen(joined), source.size() + 1);
    }
}

TEST(Liz, ComparisonsOrderByValueOrCaseAndSayWhetherThePrefixWasUsedUp)
{
    in_every_language([](language &l) {
        const characters stem = l.random_text(20);
        characters a = l.mapped(stem, LIZ_UPPER), b = stem;
        for (characters *each : {&a, &b}) {
            const characters tail = l.random_text(2);
            each->insert(each->end(), tail.begin(), tail.end());
        }
        const int option = l.dice.one_in(2) ? LIZ_NOCASE : LIZ_BINARY;
        const auto values = [&](const characters &text) {
            std::vector<uint32_t> keys;
            for (const character &c : text)
                keys.push_back(option == LIZ_BINARY ? c.value : c.upper_value());
            return keys;
        };
        auto first = values(a), second = values(b);
        const bool prefix = first.size() >= second.size()
                            && std::equal(second.begin(), second.end(), first.begin());
        const auto order = [&] {
            return first == second ? LIZ_EQUAL : first < second ? LIZ_LESS : LIZ_GREATER;
        };
        const int by_character = order();
        if (l.bytewise() && !first.empty() && !second.empty()) {
            const std::size_t common = std::min(first.size(), second.size());
            first.resize(common);
            second.resize(common);
        }
        const int arep = random_rep(l), brep = random_rep(l);
        const argument x(l, a, arep), y(l, b, brep);
        int res = 99;
        EXPECT_EQ(l(lizmcmp, x, y, option, &res), LIZ_OK);
        EXPECT_EQ(res, order());

        lizg left, right;
        l(lizginit, &left, x, 0);
        l(lizginit, &right, y, 0);
        int used_up = 99;
        for (int rdonly : {1, 0}) { // the first run moves nothing, so the second finds the same
            l(lizgmatch, &left, &right, rdonly, option, &res, &used_up);
            EXPECT_EQ(res, by_character);
            EXPECT_EQ(used_up, prefix ? 1 : 0);
            EXPECT_TRUE(rdonly == 0 || (left.lcnum_lizg == -1 && right.boffset_lizg == 0));
        }
    });
}

TEST(Liz, OneScanMatchedWithItselfIsReadInTurns)
{
    language l(sets[2]);
    const block text(std::string(35, 'a'));
    lizg scan;
    int res = 99, used_up = 99;
    l(lizginit, &scan, text, 0);
    l(lizgmatch, &scan, &scan, 0, LIZ_BINARY, &res, &used_up); // the 35th has no partner
    EXPECT_EQ(std::make_tuple(res, used_up, scan.lcnum_lizg), std::make_tuple(LIZ_GREATER, 1, 34));
}

TEST(Liz, SearchFindsTheFirstPlaceFromTheIndexOrLeavesTheIndexAlone)
{
    in_every_language([](language &l) {
        const characters text = l.random_text(12);
        const uint32_t length = static_cast<uint32_t>(text.size());
        const uint32_t from = l.dice.below(length + 1);
        characters pattern(text.begin() + from,
                           text.begin() + from + l.dice.below(std::min(length - from, 3u) + 1));
        if (l.dice.one_in(4)) pattern = l.random_text(2);
        const int option = l.dice.one_in(2) ? LIZ_NOCASE : LIZ_BINARY;
        const uint32_t start = l.dice.below(length + 3);
        const auto same = [&](const character &x, const character &y) {
            return option == LIZ_BINARY ? x.value == y.value : x.upper_value() == y.upper_value();
        };
        auto at = text.end();
        bool expected = start <= length;
        if (expected)
            at =
                std::search(text.begin() + start, text.end(), pattern.begin(), pattern.end(), same);
        expected = expected && (at != text.end() || pattern.empty());

        const int trep = random_rep(l), prep = random_rep(l);
        const argument in(l, text, trep), what(l, pattern, prep);
        int found = 99;
        uint32_t index = start, boffset = 99;
        l(lizmsearch, in, what, option, &found, &index, &boffset);
        EXPECT_EQ(found, expected ? 1 : 0);
        EXPECT_EQ(index, expected ? static_cast<uint32_t>(at - text.begin()) : start);
        EXPECT_EQ(boffset, expected && index != 0 ? l.offsets(text, trep)[index] : 0);
    });
}

namespace
{

int allocations_allowed = 0;
void *counted_alloc(uint32_t size) { return allocations_allowed-- > 0 ? lizualloc(size) : nullptr; }

} // namespace

TEST(Liz, ConcatenationAppendsOrLeavesTheTargetWhenMemoryIsShort)
{
    static constexpr lizm manager = {counted_alloc, lizurealloc, lizufree};
    in_every_language([](language &l) {
        const characters head = l.random_text(6), tail = l.random_text(6);
        const int trep = random_rep(l), srep = random_rep(l);
        const int option = static_cast<int>(l.dice.below(4));
        characters both = head;
        const characters mapped = l.mapped(tail, option);
        both.insert(both.end(), mapped.begin(), mapped.end());
        if (l.encoded(mapped, LIZ_MULTIBYTE).size() > l.encoded(tail, LIZ_MULTIBYTE).size()) return;

        const std::string before = l.encoded(head, trep) + l.nul(trep);
        const std::string after = l.encoded(both, trep) + l.nul(trep);
        block target(before + std::string(after.size() + 4, '\xEE'));
        kucursor cursor;
        locale::open_exact(&cursor, target.data(), target.size(), &l.lang,
                           locale::cursor_mode::write);
        void *at = trep == LIZ_CURSOR ? &cursor : static_cast<void *>(target.data());
        const argument source(l, tail, srep, to_the_nul);
        const bool needs_memory = !l.bytewise() && trep != LIZ_WIDE;
        allocations_allowed = 0;
        const auto append = [&] {
            return l(lizscat, at, trep, source.at(), srep, option, &manager);
        };
        if (needs_memory) {
            EXPECT_EQ(append(), LIZ_NOMEMORY);
            EXPECT_EQ(target.bytes().substr(0, before.size()), before);
            allocations_allowed = 1;
        }
        EXPECT_EQ(append(), LIZ_OK);
        EXPECT_EQ(target.bytes().substr(0, after.size()), after);
        const bool reopened = trep == LIZ_CURSOR && (l.bytewise() || needs_memory);
        EXPECT_EQ(cursor.size_kucursor, reopened ? after.size() - 1 : target.size());
    });
}

TEST(Liz, ConcatenationOfFourByteCharactersFillsItsTemporaryExactly)
{
    language l(sets[2]);
    const uint32_t source[] = {0x1F600, 0x1F601, 0};
    block target(std::string("a\0........", 10));
    EXPECT_EQ(l(lizscat, target.data(), LIZ_MULTIBYTE, source, LIZ_WIDE, LIZ_COPY, nullptr),
              LIZ_OK);
    EXPECT_EQ(target.bytes(), std::string("a\xF0\x9F\x98\x80\xF0\x9F\x98\x81", 10));
    char growing[16] = "";
    EXPECT_EQ(
        l(lizscat, +growing, LIZ_MULTIBYTE, "\xC8\xBA\xC8\xBA", LIZ_MULTIBYTE, LIZ_LOWER, nullptr),
        LIZ_END); // 4 bytes and a NUL hold one of the two
    EXPECT_STREQ(growing, "\xE2\xB1\xA5");
}

TEST(Liz, StreamingCopyFillsTargetAfterTargetWithWholeCharacters)
{
    in_every_language([](language &l) {
        const int srep = random_rep(l), trep = random_rep(l);
        const int option = l.dice.one_in(2) ? LIZ_COPY : LIZ_UPPER;
        chain source, target;
        characters whole;
        for (uint32_t n = 1 + l.dice.below(3); n > 0; n--) {
            characters piece = l.random_text(6);
            piece.push_back(ascii[0]);
            source.add(l, block(l.encoded(piece, srep)));
            whole.insert(whole.end(), piece.begin(), piece.end());
        }
        whole = l.mapped(whole, option);
        std::size_t room = 0, moved = 0, total = 0;
        std::vector<expected_copy> expected;
        while (room < 4 * whole.size() && expected.size() < 9) {
            target.add(l, block(5 + l.dice.below(9)));
            const characters rest(whole.begin() + static_cast<std::ptrdiff_t>(moved), whole.end());
            expected.push_back(l.copied(rest, target.buffers.back().size(), trep));
            bool shifted = false;
            for (std::size_t used = 0; used < expected.back().bytes.size(); moved++)
                used += l.encoded(whole[moved], trep, shifted).size();
            total += expected.back().bytes.size();
            room += target.buffers.back().size();
        }
        uint32_t written = 99;
        EXPECT_EQ(l(lizucopy, chain::supplier(trep), &target, trep, chain::supplier(srep), &source,
                    srep, option, &written),
                  LIZ_OK);
        EXPECT_EQ(written, total);
        for (std::size_t i = 0; i < expected.size(); i++) {
            const std::string &bytes = expected[i].bytes;
            EXPECT_EQ(target.buffers[i].bytes().substr(0, bytes.size()), bytes) << "target " << i;
        }
    });
}

TEST(Liz, ClassTestsLookAtTheFirstCharacterOnly)
{
    static constexpr struct {
        decltype(&lizcalpha) test;
        int traits;
    } members[] = {{lizcletter, letter},
                   {lizcalpha, letter},
                   {lizcalnum, letter | digit},
                   {lizcdigit, digit},
                   {lizcgraph, letter | digit | punct},
                   {lizcupper, upper},
                   {lizclower, lower},
                   {lizcpunct, punct},
                   {lizcspace, space}};
    in_every_language([](language &l) {
        const character &first = l.all[l.dice.below(static_cast<uint32_t>(l.all.size()))];
        characters text = l.random_text(2);
        text.insert(text.begin(), first);
        const int rep = random_rep(l);
        const argument given(l, text, rep);
        for (const auto &member : members) {
            EXPECT_EQ(l(member.test, given), (first.traits & member.traits) != 0 ? 1 : 0)
                << first.bytes << " row " << &member - members << " rep " << rep;
            EXPECT_EQ(l(member.test, given.at(), 0, rep), 0);
        }
        const bool tab = first.value == '\t', blank = first.value == ' ';
        EXPECT_EQ(l(lizcblank, given), blank || (tab && !l.bytewise()));
        EXPECT_EQ(l(lizccntrl, given), tab);
        if (first.value >= 0x80) return;
        EXPECT_EQ(l(lizcprint, given), !tab);
        const bool hexadecimal = std::strchr("aAbB7", first.bytes[0]) != nullptr;
        EXPECT_EQ(l(lizcxdigit, given), hexadecimal);
    });
}

// Wide texts are never taken in bulk: the same operations through them are the measure.
TEST(Liz, BulkPathsSeeTheSameCharactersAsSingleStepsHoweverBytesAreDamaged)
{
    for (const set &each : {sets[2], sets[3], sets[4]}) {
        SCOPED_TRACE(std::string(each.name) + ", seed " + std::to_string(ku::test::seed()));
        language l(each);
        std::erase_if(l.all, [](const character &c) { return c.value >= KULANG_RAWBYTE; });
        for (int round = 0; round < 4 * rounds && !HasFailure(); round++) {
            std::string bytes;
            for (uint32_t n = l.dice.below(9); n > 0; n--)
                bytes +=
                    std::string(l.dice.below(20), 'k') + l.encoded(l.random_text(9), LIZ_MULTIBYTE);
            for (uint32_t n = l.dice.below(3); n > 0 && !bytes.empty(); n--)
                bytes[l.dice.below(static_cast<uint32_t>(bytes.size()))] =
                    static_cast<char>(l.dice.bits());
            const block text(bytes);

            std::vector<uint32_t> wide(bytes.size() + 1), other(bytes.size() + 9);
            uint32_t length = 0, count = 0;
            l(lizmblen, text, &length);
            l(lizmllen, text, &count);
            const auto copy = [&l](const auto &to, const auto &from, int option) {
                uint32_t written = 0;
                l(lizmcpy, to, from, option, &written);
                return written;
            };
            wide.resize(copy(wide, text, LIZ_COPY) / 4);
            ASSERT_EQ(count, wide.size());
            lizg scan;
            l(lizginit, &scan, text, count);
            ASSERT_EQ(length, scan.boffset_lizg);

            const int option = LIZ_LOWER + static_cast<int>(l.dice.below(2));
            const block direct(l.dice.below(text.size() + 8)), stepped(direct.size());
            const uint32_t written = copy(stepped, wide, option);
            EXPECT_EQ(written, copy(direct, text, option));
            const block mapped(stepped.bytes().substr(0, written));
            EXPECT_EQ(direct.bytes().substr(0, written), mapped.bytes());

            other.resize(copy(other, mapped, LIZ_COPY) / 4);
            for (int by : {LIZ_NOCASE, LIZ_BINARY}) {
                int by_bytes = 99, by_units = 98;
                l(lizmcmp, text, mapped, by, &by_bytes);
                l(lizmcmp, wide, other, by, &by_units);
                EXPECT_EQ(by_bytes, by_units);
            }
        }
    }
}

TEST(Liz, ExactlySixtyFiveThousandFiveHundredThirtyFiveBytesAreALengthInside)
{
    for (const char *name : {"ascii", "utf8"}) {
        language l({name, {}});
        const block text(std::string(KU_NTS, 'x') + 'y'), longer(std::string(70000, 'x') + '\0');
        const auto exact = ku::liz::exactly(text.data(), KU_NTS, LIZ_MULTIBYTE);
        EXPECT_EQ(ku::liz::measure(l.lang, exact).characters, KU_NTS);
        EXPECT_EQ(ku::liz::compare(l.lang, exact,
                                   ku::liz::exactly(longer.data(), KU_NTS, LIZ_MULTIBYTE),
                                   LIZ_BINARY),
                  LIZ_EQUAL);
        const block target(std::size_t{KU_NTS});
        EXPECT_EQ(
            ku::liz::copy(l.lang, target.data(), KU_NTS, LIZ_MULTIBYTE, exact, LIZ_UPPER).written,
            KU_NTS);
        EXPECT_EQ(target.bytes(), std::string(KU_NTS, 'X'));
        uint32_t length = 0; // outside it is none
        l(lizmblen, longer.data(), KU_NTS, LIZ_MULTIBYTE, &length);
        EXPECT_EQ(length, 70000u);
    }
}

TEST(Liz, SizesNearTheTopOfThirtyTwoBitsDoNotWrap)
{
    language wide(sets[2]), bytes(sets[0]);
    static constexpr uint32_t top = 0xFFFFFFFF;
    static constexpr struct {
        uint32_t olen;
        int orep, nrep;
        uint32_t multibyte, single;
    } rows[] = {{10, LIZ_MULTIBYTE, LIZ_WIDE, 40, 10},
                {10, LIZ_WIDE, LIZ_CURSOR, 10, 10},
                {10, LIZ_WIDE, LIZ_WIDE, 11, 10},
                {10, LIZ_CURSOR, 9, 11, 10},
                {0x40000000, LIZ_CURSOR, LIZ_WIDE, top, 0x40000000},
                {top, LIZ_WIDE, LIZ_WIDE, top, top}};
    for (const auto &row : rows) {
        uint32_t length = 0;
        wide(lizm2, nullptr, row.olen, row.orep, row.nrep, &length);
        EXPECT_EQ(length, row.multibyte);
        bytes(lizm2, nullptr, row.olen, row.orep, row.nrep, &length);
        EXPECT_EQ(length, row.single);
    }
    static constexpr struct {
        uint32_t written, size;
        const char *wide_after, *byte_after; // of "......"; null: no room
    } ends[] = {{2, 6, "..\0\0\0\0", "..\0..."}, {3, 6, nullptr, "...\0.."},
                {6, 6, nullptr, nullptr},        {0, 3, nullptr, "\0....."},
                {0, 0, nullptr, nullptr},        {top, 2, nullptr, nullptr}};
    for (const auto &row : ends)
        for (language *l : {&wide, &bytes}) {
            block target(std::string("......"));
            const char *after = l == &wide ? row.wide_after : row.byte_after;
            EXPECT_EQ((*l)(lizmterminate, target.data(), LIZ_WIDE, row.written, row.size),
                      after != nullptr ? LIZ_OK : LIZ_END);
            EXPECT_EQ(target.bytes(), after != nullptr ? std::string(after, 6) : "......");
        }
    for (language *l : {&wide, &bytes}) {
        int found = 99;
        uint32_t index = top;
        (*l)(lizmsearch, "ab", 2, LIZ_MULTIBYTE, "abc", 3, LIZ_MULTIBYTE, LIZ_NOCASE, &found,
             &index, nullptr);
        EXPECT_EQ(found, 0);
        EXPECT_EQ(index, top);
    }
}

TEST(Liz, ByteCopiesOverlapAndByteComparisonsOrderNulls)
{
    language l(sets[0]);
    char text[] = "hello wORLD";
    uint32_t written = 0;
    EXPECT_EQ(l(liz6copy, +text, 11, +text, KU_NTS, LIZ_CAPITALS, &written), LIZ_OK);
    EXPECT_STREQ(text, "Hello World");
    EXPECT_EQ(l(liz6copy, text + 2, 4, +text, 10, LIZ_UPPER, &written), LIZ_END);
    EXPECT_STREQ(text, "HeHELLWorld");
    EXPECT_EQ(written, 4u);
    static constexpr struct {
        const char *a, *b;
        uint32_t n;
        int option, res;
    } rows[] = {
        {nullptr, nullptr, 1, LIZ_BINARY, LIZ_LESS}, {"a", nullptr, 1, LIZ_BINARY, LIZ_GREATER},
        {"abC", "abd", 3, LIZ_BINARY, LIZ_LESS},     {"abD", "abd", 3, 0, LIZ_EQUAL},
        {"abc", "abx", 2, LIZ_BINARY, LIZ_EQUAL},    {"abcd", "AB", KU_NTS, LIZ_NOCASE, LIZ_EQUAL},
        {"\xFF", "a", 1, LIZ_BINARY, LIZ_GREATER}};
    for (const auto &row : rows) {
        int res = 99;
        EXPECT_EQ(l(liz6comp, row.a, row.b, row.n, row.option, &res), LIZ_OK);
        EXPECT_EQ(res, row.res);
        if (row.n == 1) { // the same for whole texts
            l(lizmcmp, row.a, row.n, LIZ_MULTIBYTE, row.b, row.n, LIZ_MULTIBYTE, row.option, &res);
            EXPECT_EQ(res, row.res);
        }
        if (row.a != nullptr && row.b != nullptr) continue;
        l(lizmcmp, row.a, 0, LIZ_MULTIBYTE, row.b, 0, LIZ_MULTIBYTE, row.option, &res);
        EXPECT_EQ(res, row.res);
        l(lizmsearch, row.a, row.n, LIZ_MULTIBYTE, row.b, 0, LIZ_MULTIBYTE, row.option, &res,
          nullptr, nullptr);
        EXPECT_EQ(res, 0);
    }
}
