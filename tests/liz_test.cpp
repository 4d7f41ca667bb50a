// The multibyte layer under every kind of character set: random texts beside a
// model of wide values, laid out by the locale layer, which has tests of its own.
// Every text handed over fills a heap block of its own to the last byte, at an odd
// address, so that a sanitizer sees a read or a write past an end.
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

using values = std::vector<uint32_t>;
constexpr uint32_t raw = KULANG_RAWBYTE;

struct set {
    const char *name;
    values own;       // characters besides ASCII
    uint32_t cut = 0; // a byte that begins a character, when a NUL cuts it off
};
const set sets[] = {
    {"ascii", {}},
    {"iso-8859-1", {0xE9, 0xC9}},
    {"utf8", // U+023A has a lower case that is a byte longer
     {0xE9, 0xC9, 0x436, 0x416, 0x23A, 0x2C65, 0x6F22, 0x1F600, raw + 0xFF, raw + 0x80},
     raw + 0xE3},
    {"sjis", {0x835C, 0x8361, raw + 0xFD}, raw + 0x83}, // trail bytes that look like ASCII
    {"euc-jp", {0xA4A2, 0x8EB1, 0x8FB0A1}, raw + 0x8F},
    {"iso-2022-kr", {0x3021, 0x3061}, raw + '!'},
};
const set &utf8 = sets[2], &shifting = sets[5];

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
    std::string head(std::size_t n) const { return bytes().substr(0, n); }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

private:
    std::size_t size_;
    std::unique_ptr<char[]> memory_;
};

template <typename T> auto flat(const T &value) { return std::make_tuple(value); }
auto flat(const block &of)
{
    return std::make_tuple(static_cast<void *>(of.data()), of.size(), LIZ_MULTIBYTE);
}

// A text as an argument, in one representation.
struct argument {
    block memory;
    mutable kucursor cursor;
    int rep;
    uint32_t length;
    void *at() const { return rep == LIZ_CURSOR ? &cursor : static_cast<void *>(memory.data()); }
};
auto flat(const argument &of) { return std::make_tuple(of.at(), of.length, of.rep); }

// How the end of a text is told: by its length, by KU_NTS, or by a NUL before the length given.
enum ending { exact, to_the_nul, nul_first };

// A text in one representation, as far as it fits.
struct layout {
    std::string bytes;            // counted
    std::string end;              // shift byte behind them, not counted
    std::vector<uint32_t> places; // where characters begin for a scan, and the end
    bool cut;
};

struct language {
    kulang lang;
    kulocglo glo{};
    values all = {'a', 'B', 'b', 'A', '7', ' ', '-', '\t'};
    uint32_t cut;
    ku::test::dice dice;

    explicit language(const set &from) : cut(from.cut)
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
    bool is_wide(int rep) const { return rep == LIZ_WIDE && !bytewise(); }
    std::string nul(int rep) const { return std::string(is_wide(rep) ? 4 : 1, 0); }
    int any_rep() { return LIZ_WIDE + static_cast<int>(dice.below(3)); }
    kucursor over(const block &bytes, locale::cursor_mode mode = locale::cursor_mode::read)
    {
        kucursor cursor;
        locale::open_exact(&cursor, bytes.data(), bytes.size(), &lang, mode);
        return cursor;
    }
    argument given(const values &text, int rep, ending how)
    {
        block memory(encoded(text, rep) + (how == exact ? "" : nul(rep)));
        const uint32_t past = how == nul_first ? 100 : 0,
                       length = how == to_the_nul ? KU_NTS : memory.size() + past;
        kucursor cursor = over(memory);
        cursor.size_kucursor = length;
        return {std::move(memory), cursor, rep, length};
    }
    argument given(const values &text, int rep)
    {
        const uint32_t first = !text.empty() && text.back() == cut ? to_the_nul : exact,
                       last = bytewise() ? to_the_nul : nul_first; // bytes take any length as it is
        return given(text, rep, static_cast<ending>(first + dice.below(last - first + 1)));
    }
    argument target(block memory, int rep)
    {
        const kucursor cursor = over(memory, locale::cursor_mode::write);
        const uint32_t size = memory.size();
        return {std::move(memory), cursor, rep, size};
    }
    values random_text(uint32_t most)
    {
        values text(dice.below(most + 1));
        for (uint32_t &v : text) v = all[dice.below(static_cast<uint32_t>(all.size()))];
        return text;
    }
    values random_end(uint32_t most) // of a text to be compared or appended
    {
        values text = random_text(most);
        if (cut != 0 && dice.one_in(2)) text.push_back(cut);
        return text;
    }

    layout laid_out(const values &text, int rep, std::size_t room = SIZE_MAX / 2)
    {
        layout made = {};
        const block space(text.size() * 5 + 1);
        kucursor cursor = over(space, locale::cursor_mode::write);
        for (const uint32_t v : text) {
            const std::size_t before = made.bytes.size(), left = room - before;
            const uint32_t wrote = !is_wide(rep) ? locale::put(cursor, v, left) : left < 4 ? 0 : 4;
            if (wrote == 0) break;
            made.bytes = is_wide(rep)
                             ? made.bytes + std::string(reinterpret_cast<const char *>(&v), 4)
                             : space.head(locale::offset(cursor));
            const bool shift = lang.shiftsensitive_kulang != 0 && wrote == (v < 0x100 ? 2 : 3);
            made.places.push_back(static_cast<uint32_t>(before + (shift && before != 0 ? 1 : 0)));
        }
        made.cut = made.places.size() < text.size();
        if (locale::close_shift(cursor) != 0) made.end = "\x0F";
        made.places.push_back(static_cast<uint32_t>((made.bytes + made.end).size()));
        return made;
    }
    std::string encoded(const values &text, int rep)
    {
        const layout made = laid_out(text, rep);
        return made.bytes + made.end;
    }
    values mapped(values text, int option) const
    {
        bool in_word = false;
        for (uint32_t &v : text) {
            const bool begins = !in_word;
            in_word = (locale::wide_classes(lang, v) & KULANG_LETTER) != 0;
            const bool up = option == LIZ_UPPER || (option == LIZ_CAPITALS && begins && in_word);
            const bool down = option == LIZ_LOWER || (option == LIZ_CAPITALS && !begins && in_word);
            v = up ? locale::wide_upper(lang, v) : down ? locale::wide_lower(lang, v) : v;
        }
        return text;
    }
};

template <typename Body> void in_every_language(Body body)
{
    for (const set &each : sets) {
        SCOPED_TRACE(std::string(each.name) + ", seed " + std::to_string(ku::test::seed()));
        language l(each);
        for (int round = 0; round < 400 && !testing::Test::HasFailure(); round++) body(l);
    }
}

// Buffers of a chain; `next` is how many were asked for.
struct chain {
    std::vector<argument> buffers;
    std::size_t next;

    static int32_t supply(void *client, void **buffer, uint32_t *length)
    {
        auto &self = *static_cast<chain *>(client);
        if (self.next == self.buffers.size()) return 1;
        *length = self.buffers[self.next].length;
        *buffer = self.buffers[self.next++].at();
        return 0;
    }
};

uint32_t stream(language &l, chain &to, chain &from, int option)
{
    const int trep = to.buffers[0].rep, srep = from.buffers[0].rep;
    uint32_t written = 99;
    EXPECT_EQ(l(lizucopy, chain::supply, &to, trep, chain::supply, &from, srep, option, &written),
              LIZ_OK);
    return written;
}

int allocations_allowed = 0;
void *counted_alloc(uint32_t size) { return allocations_allowed-- > 0 ? lizualloc(size) : nullptr; }

} // namespace

TEST(Liz, ScansDeliverEveryCharacterWithItsPlaceAndLengthsCountThem)
{
    in_every_language([](language &l) {
        const values text = l.random_text(9);
        const int rep = l.any_rep(), as = rep == LIZ_CURSOR ? LIZ_MULTIBYTE : rep;
        const argument given = l.given(text, rep);
        const auto ends = l.laid_out(text, rep).places;
        const uint32_t skipped = l.dice.below(static_cast<uint32_t>(text.size()) + 2);
        lizg scan;
        EXPECT_EQ(l(lizginit, &scan, given, skipped), skipped > text.size() ? LIZ_END : LIZ_OK);
        uint32_t value = 1, bytes = 99, count = 99;
        for (std::size_t i = skipped; i < text.size(); i++) {
            EXPECT_EQ(l(lizggnc, &scan, &value), LIZ_OK);
            EXPECT_EQ(std::make_tuple(value, scan.lcnum_lizg, scan.boffset_lizg),
                      std::make_tuple(text[i], static_cast<int>(i), ends[i + 1]));
        }
        EXPECT_EQ(l(lizggnc, &scan, &value), LIZ_END);
        EXPECT_EQ(l(lizmblen, given, &bytes) + l(lizmllen, given, &count), LIZ_OK);
        EXPECT_EQ(std::make_tuple(value, bytes, count),
                  std::make_tuple(0u, ends.back(), static_cast<uint32_t>(text.size())));
        const block cut(l.encoded(text, rep).substr(0, l.dice.below(bytes + 1)));
        l(lizmblen, cut.data(), cut.size(), as, &bytes); // nothing behind the limit may be read
        l(lizmllen, cut.data(), cut.size(), as, &count);
        EXPECT_LE(bytes, cut.size());
        EXPECT_TRUE(count == text.size() || ends[count + 1] > cut.size());
    });
}

// A cursor is opened behind them, a multibyte text begins with them.
TEST(Liz, ShiftBytesInFrontCountAndLimitsHoldForCursorsAsForBytes)
{
    language l(shifting);
    const struct {
        std::string text;
        uint32_t bytes;
    } rows[] = {{"\x0F\x61", 2},     {"\x0E\x0E\x21\x21\x0F", 5},
                {"\x0E\x0F\x61", 3}, {"\x0E\x21\x21\x0F", 4},
                {"\x0E\x0F", 0},     {"\x0E\x22\x22\x22\x22\x0F\x61\x62\x21", 9}};
    for (const auto &row : rows)
        for (uint32_t limit = 0; limit <= row.text.size(); limit++) {
            const block whole(row.text), part(row.text.substr(0, limit));
            const kucursor cursor = l.over(whole);
            const auto all = [&l](const auto &...text) {
                uint32_t bytes = 99, count = 99;
                int order = 99, found = 99;
                const block target(std::size_t{12});
                l(lizmblen, text..., &bytes);
                l(lizmllen, text..., &count);
                l(lizmcpy, target, text..., LIZ_COPY, nullptr);
                l(lizmcmp, text..., "", 0, LIZ_MULTIBYTE, LIZ_BINARY, &order);
                l(lizmsearch, text..., "!", 1, LIZ_MULTIBYTE, LIZ_BINARY, &found, nullptr, nullptr);
                return std::make_tuple(bytes, count, order, found, target.bytes());
            };
            EXPECT_EQ(all(&cursor, limit, LIZ_CURSOR), all(part)) << row.text << limit;
            EXPECT_TRUE(limit < row.text.size() || std::get<0>(all(part)) == row.bytes);
        }
}

// Every pair of representations, every option, every target size from none to ample.
TEST(Liz, CopiesConvertWholeCharactersAndTerminateWhereThereIsRoom)
{
    static constexpr decltype(&liz2ww) converters[3][3] = {
        {liz2ww, liz2wc, liz2wo}, {liz2cw, liz2cc, liz2co}, {liz2ow, liz2oc, liz2oo}};
    in_every_language([](language &l) {
        values text = l.random_text(l.dice.one_in(8) ? 80 : 8);    // long ones go in blocks
        if (l.cut == utf8.cut) text.insert(text.end(), 4, 0x212A); // shorter in lower case
        const int srep = l.any_rep(), trep = l.any_rep(),
                  option = static_cast<int>(l.dice.below(4));
        const values wanted = l.mapped(text, option);
        const auto needed = static_cast<uint32_t>(l.encoded(wanted, trep).size());
        const uint32_t room = l.dice.below(needed + (l.dice.one_in(4) ? 200 : 8));
        const argument target = l.target(block(room), trep), source = l.given(text, srep);
        const layout expected = l.laid_out(wanted, trep, room);
        std::string begun = expected.bytes + expected.end;
        const bool ended = !expected.cut && (trep != LIZ_CURSOR || l.bytewise());
        if (ended && begun.size() + l.nul(trep).size() <= room) begun += l.nul(trep);

        uint32_t written = 99;
        const bool by_name = l.dice.one_in(2);
        const uint32_t status =
            by_name ? converters[trep - 1][srep - 1](&l.lang, target.at(), room, source.at(),
                                                     source.length, option, &written, &l.glo)
                    : l(lizmcpy, target, source, option, &written);
        EXPECT_EQ(status, expected.cut ? LIZ_END : LIZ_OK) << trep << srep << option << room;
        EXPECT_EQ(written, expected.bytes.size());
        EXPECT_EQ(target.memory.bytes(), begun + std::string(room - begun.size(), '\xEE'));
        const bool reopened = !by_name && l.bytewise() && trep == LIZ_CURSOR;
        EXPECT_EQ(target.cursor.size_kucursor, reopened ? written : room);
    });
}

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
        const argument target = l.target(block(std::string("......")), row.trep),
                       source = l.target(block(std::string("ab")), row.srep);
        uint32_t written = 99;
        EXPECT_EQ(l(lizmcpy, target, source, row.option, &written), LIZ_OK);
        EXPECT_EQ(written, row.written);
        EXPECT_EQ(target.memory.bytes(), std::string(row.after, 6));
        chain to = {}, from = {}; // every supplier is asked once
        to.buffers.push_back(l.target(block(std::string("......")), row.trep));
        from.buffers.push_back(l.target(block(std::string("ab")), row.srep));
        EXPECT_EQ(stream(l, to, from, row.option), row.written);
        EXPECT_EQ(to.buffers[0].memory.bytes(), std::string(row.after, 6));
        EXPECT_EQ(to.next + from.next, 2u);
    }
}

TEST(Liz, CopiesOfHalfAPairAmongPairsFitWhereTheTextFitted)
{
    language l(shifting);
    static constexpr char text[] = "\x0Ex\nyz\x0F";
    const block source{std::string(text)}, target(source.size());
    EXPECT_EQ(l(lizmcpy, target, source, LIZ_COPY, nullptr), LIZ_OK);
    EXPECT_EQ(target.bytes(), text);
    char joined[20] = "a";
    EXPECT_EQ(l(lizscat, +joined, LIZ_MULTIBYTE, +text, LIZ_MULTIBYTE, LIZ_COPY, nullptr), LIZ_OK);
    EXPECT_STREQ(joined, "a\x0Ex\nyz\x0F");
    EXPECT_EQ(l(lizscat, +joined, LIZ_MULTIBYTE, "\x0E!!", LIZ_MULTIBYTE, 0, nullptr), LIZ_OK);
    EXPECT_STREQ(joined, "a\x0Ex\nyz!!\x0F"); // what was left open is closed
}

TEST(Liz, ComparisonsOrderByValueOrCaseAndSayWhetherThePrefixWasUsedUp)
{
    in_every_language([](language &l) {
        const values stem = l.random_text(l.dice.one_in(4) ? 200 : 9); // long ones go in bulk
        values a = l.mapped(stem, LIZ_UPPER), b = stem;
        for (values *each : {&a, &b}) {
            const values tail = l.random_end(2);
            each->insert(each->end(), tail.begin(), tail.end());
        }
        const int option = l.dice.one_in(2) ? LIZ_NOCASE : LIZ_BINARY;
        values first = option == LIZ_BINARY ? a : l.mapped(a, LIZ_UPPER),
               second = option == LIZ_BINARY ? b : l.mapped(b, LIZ_UPPER);
        const bool prefix = first.size() >= second.size()
                            && std::equal(second.begin(), second.end(), first.begin());
        const auto order = [&] {
            return first == second ? LIZ_EQUAL : first < second ? LIZ_LESS : LIZ_GREATER;
        };
        const int by_character = order();
        if (l.bytewise() && !first.empty() && !second.empty()) {
            first.resize(std::min(first.size(), second.size()));
            second.resize(first.size());
        }
        const argument x = l.given(a, l.any_rep()), y = l.given(b, l.any_rep());
        int res = 99, used_up = 99;
        EXPECT_EQ(l(lizmcmp, x, y, option, &res), LIZ_OK);
        EXPECT_EQ(res, order());
        lizg left, right;
        l(lizginit, &left, x, 0);
        l(lizginit, &right, y, 0);
        for (int rdonly : {1, 0}) { // the first run moves nothing, so the second finds the same
            l(lizgmatch, &left, &right, rdonly, option, &res, &used_up);
            EXPECT_EQ(res, by_character);
            EXPECT_EQ(used_up, prefix ? 1 : 0);
            EXPECT_TRUE(rdonly == 0 || (left.lcnum_lizg == -1 && right.boffset_lizg == 0));
        }
    });
    language l(utf8); // one scan is read in turns: the 35th has no partner
    const block text(std::string(35, 'a'));
    lizg scan;
    int res = 99, used_up = 99;
    l(lizginit, &scan, text, 0);
    l(lizgmatch, &scan, &scan, 0, LIZ_BINARY, &res, &used_up);
    EXPECT_EQ(std::make_tuple(res, used_up, scan.lcnum_lizg), std::make_tuple(LIZ_GREATER, 1, 34));
}

TEST(Liz, SearchFindsTheFirstPlaceFromTheIndexOrLeavesTheIndexAlone)
{
    in_every_language([](language &l) {
        const values text = l.random_text(12);
        const auto length = static_cast<uint32_t>(text.size());
        const uint32_t from = l.dice.below(length + 1), start = l.dice.below(length + 3);
        values pattern(text.begin() + from,
                       text.begin() + from + l.dice.below(std::min(length - from, 3u) + 1));
        if (l.dice.one_in(4)) pattern = l.random_text(2);
        const int option = l.dice.one_in(2) ? LIZ_NOCASE : LIZ_BINARY;
        const auto key = [&](const values &of) {
            return option == LIZ_BINARY ? of : l.mapped(of, LIZ_UPPER);
        };
        const values in = key(text), what = key(pattern);
        const bool inside = start <= length;
        const auto at =
            std::search(in.begin() + (inside ? start : 0), in.end(), what.begin(), what.end());
        const bool expected = inside && (at != in.end() || pattern.empty());
        const int trep = l.any_rep();
        int found = 99;
        uint32_t index = start, boffset = 99;
        l(lizmsearch, l.given(text, trep), l.given(pattern, l.any_rep()), option, &found, &index,
          &boffset);
        EXPECT_EQ(found, expected ? 1 : 0);
        EXPECT_EQ(index, expected ? static_cast<uint32_t>(at - in.begin()) : start);
        EXPECT_EQ(boffset, expected ? l.laid_out(text, trep).places[index] : 0);
    });
}

TEST(Liz, ConcatenationAppendsOrLeavesTheTargetWhenMemoryIsShort)
{
    static constexpr lizm manager = {counted_alloc, lizurealloc, lizufree};
    in_every_language([](language &l) {
        const values head = l.random_text(6), tail = l.random_end(6);
        const int trep = l.any_rep(), srep = l.any_rep(),
                  option = static_cast<int>(l.dice.below(4));
        const values mapped = l.mapped(tail, option);
        values both = head;
        both.insert(both.end(), mapped.begin(), mapped.end());
        if (l.encoded(mapped, LIZ_MULTIBYTE).size() > l.encoded(tail, LIZ_MULTIBYTE).size()) return;

        const std::string before = l.encoded(head, trep) + l.nul(trep),
                          after = l.encoded(both, trep) + l.nul(trep);
        const argument target = l.target(block(before + std::string(after.size(), '.')), trep);
        const argument source = l.given(tail, srep, to_the_nul);
        const auto append = [&](int allocations) {
            allocations_allowed = allocations;
            return l(lizscat, target.at(), trep, source.at(), srep, option, &manager);
        };
        if (!l.bytewise() && trep != LIZ_WIDE) { // a temporary is needed
            EXPECT_EQ(append(0), LIZ_NOMEMORY);
            EXPECT_EQ(target.memory.head(before.size()), before);
        }
        EXPECT_EQ(append(1), LIZ_OK);
        EXPECT_EQ(target.memory.head(after.size()), after);
        EXPECT_EQ(target.cursor.size_kucursor,
                  trep == LIZ_CURSOR ? after.size() - 1 : target.length);
    });
    language l(utf8); // what fills the temporary to its last byte, and what does not fit it
    const values source = {0x1F600, 0x1F601, 0};
    char joined[16] = "a", growing[16] = "";
    EXPECT_EQ(l(lizscat, +joined, LIZ_MULTIBYTE, source.data(), LIZ_WIDE, 0, nullptr), LIZ_OK);
    EXPECT_STREQ(joined, "a\xF0\x9F\x98\x80\xF0\x9F\x98\x81");
    const char *shorter = "\xC8\xBA\xC8\xBA";
    EXPECT_EQ(l(lizscat, +growing, 2, shorter, LIZ_MULTIBYTE, LIZ_LOWER, nullptr), LIZ_END);
    EXPECT_STREQ(growing, "\xE2\xB1\xA5");
}

TEST(Liz, StreamingCopyFillsTargetAfterTargetWithWholeCharacters)
{
    in_every_language([](language &l) {
        const int srep = l.any_rep(), trep = l.any_rep();
        const int option = l.dice.one_in(2) ? LIZ_COPY : LIZ_UPPER;
        chain source = {}, target = {};
        values rest;
        for (uint32_t n = 1 + l.dice.below(3); n > 0; n--) {
            values piece = l.random_text(6);
            piece.push_back('a');
            source.buffers.push_back(l.given(piece, srep, exact));
            rest.insert(rest.end(), piece.begin(), piece.end());
        }
        rest = l.mapped(rest, option);
        std::size_t total = 0;
        std::vector<std::string> expected;
        while (expected.size() < 9) {
            target.buffers.push_back(l.target(block(5 + l.dice.below(9)), trep));
            const layout part = l.laid_out(rest, trep, target.buffers.back().length);
            rest.erase(rest.begin(), rest.begin() + static_cast<long>(part.places.size() - 1));
            expected.push_back(part.bytes);
            total += part.bytes.size();
        }
        EXPECT_EQ(stream(l, target, source, option), total);
        for (std::size_t i = 0; i < expected.size(); i++)
            EXPECT_EQ(target.buffers[i].memory.head(expected[i].size()), expected[i]) << i;
    });
}

TEST(Liz, ClassTestsLookAtTheFirstCharacterOnly)
{
    static constexpr struct {
        decltype(&lizcalpha) test;
        int mask;
    } members[] = {{lizcletter, 0x0800}, {lizcalpha, 0x0800}, {lizcalnum, 0x0820},
                   {lizccntrl, 0x0100},  {lizcdigit, 0x0020}, {lizcgraph, 0x08A0},
                   {lizclower, 0x0008},  {lizcprint, 0x0CA0}, {lizcpunct, 0x0080},
                   {lizcspace, 0x0040},  {lizcupper, 0x0004}, {lizcxdigit, 0x0200}};
    in_every_language([](language &l) {
        values text = l.random_text(3);
        text.push_back('a');
        const int rep = l.any_rep();
        const argument given = l.given(text, rep);
        const int classes = locale::wide_classes(l.lang, text[0]);
        for (const auto &member : members) {
            EXPECT_EQ(l(member.test, given), (classes & member.mask) != 0 ? 1 : 0)
                << text[0] << " row " << &member - members << " rep " << rep;
            EXPECT_EQ(l(member.test, given.at(), 0, rep), 0);
        }
        EXPECT_EQ(l(lizcblank, given), text[0] == ' ' || (text[0] == '\t' && !l.bytewise()));
    });
}

TEST(Liz, SixtyFiveThousandFiveHundredThirtyFiveBytesAreALengthOnlyInside)
{
    for (const set &each : {sets[0], utf8}) {
        language l(each);
        uint32_t length = 0;
        const block longer(std::string(70000, 'x') + '\0'), target(std::size_t{KU_NTS});
        l(lizmblen, longer.data(), KU_NTS, LIZ_MULTIBYTE, &length);
        EXPECT_EQ(length, 70000u);
        const auto text = ku::liz::exactly(longer.data(), KU_NTS, LIZ_MULTIBYTE);
        ku::liz::copy(l.lang, target.data(), KU_NTS, LIZ_MULTIBYTE, text, LIZ_UPPER);
        EXPECT_EQ(target.bytes(), std::string(KU_NTS, 'X'));
    }
}

TEST(Liz, SizesNearTheTopOfThirtyTwoBitsDoNotWrap)
{
    static constexpr uint32_t top = 0xFFFFFFFF;
    static constexpr struct {
        uint32_t olen;
        int orep, nrep;
        uint32_t needed[2]; // in a multibyte language, in a single-byte one
    } rows[] = {{10, LIZ_MULTIBYTE, LIZ_WIDE, {40, 10}},
                {10, LIZ_WIDE, LIZ_CURSOR, {10, 10}},
                {10, LIZ_CURSOR, 9, {11, 10}},
                {top / 3, LIZ_CURSOR, LIZ_WIDE, {top, top / 3}},
                {top, LIZ_WIDE, LIZ_WIDE, {top, top}}};
    static constexpr uint32_t ends[][2] = {{2, 6}, {3, 6}, {6, 6}, {0, 3}, {0, 0}, {top, 2}};
    for (const bool bytewise : {false, true}) {
        language l(bytewise ? sets[0] : utf8);
        uint32_t length = 0;
        for (const auto &row : rows) {
            l(lizm2, nullptr, row.olen, row.orep, row.nrep, &length);
            EXPECT_EQ(length, row.needed[bytewise]);
        }
        for (const auto &[written, size] : ends) { // of a target that holds more
            std::string after = "......";
            const block target(after);
            const std::string nul = l.nul(LIZ_WIDE);
            const bool fits = std::uint64_t{written} + nul.size() <= size;
            if (fits) after.replace(written, nul.size(), nul);
            EXPECT_EQ(l(lizmterminate, target.data(), LIZ_WIDE, written, size), fits ? 0u : 1u);
            EXPECT_EQ(target.bytes(), after);
        }
    }
}

TEST(Liz, ByteCopiesOverlapAndByteComparisonsOrderNulls)
{
    language l(sets[0]);
    char text[] = "hello wORLD";
    uint32_t written = 0;
    EXPECT_EQ(l(liz6copy, +text, 11, +text, KU_NTS, LIZ_CAPITALS, nullptr), LIZ_OK);
    EXPECT_STREQ(text, "Hello World");
    EXPECT_EQ(l(liz6copy, text + 2, 4, +text, 10, LIZ_UPPER, &written), LIZ_END);
    EXPECT_EQ(std::string(text), "HeHELLWorld") << written;
    static constexpr struct {
        const char *a, *b;
        uint32_t n;
        int option, res;
    } rows[] = {
        {nullptr, nullptr, 1, LIZ_BINARY, LIZ_LESS}, {"a", nullptr, 1, LIZ_BINARY, LIZ_GREATER},
        {nullptr, "abc", 3, LIZ_NOCASE, LIZ_LESS},   {"", nullptr, 0, LIZ_NOCASE, LIZ_GREATER},
        {nullptr, "", 0, LIZ_BINARY, LIZ_LESS},      {"abc", "abx", 2, LIZ_BINARY, LIZ_EQUAL},
        {"\xFF", "a", 1, LIZ_BINARY, LIZ_GREATER},   {"abcd", "AB", KU_NTS, LIZ_NOCASE, LIZ_EQUAL}};
    for (const auto &row : rows) {
        int res = 99, whole = 99, found = 99;
        EXPECT_EQ(l(liz6comp, row.a, row.b, row.n, row.option, &res), LIZ_OK);
        l(lizmcmp, row.a, row.n, 2, row.b, row.n, 2, row.option, &whole);
        l(lizmsearch, row.a, row.n, 2, row.b, row.n, 2, row.option, &found, nullptr, nullptr);
        EXPECT_EQ(std::make_tuple(res, whole), std::make_tuple(row.res, row.res)) << row.n;
        EXPECT_EQ(found, res == LIZ_EQUAL ? 1 : 0); // a null is never found
    }
}
