// values_test.cpp - numbers and dates as bytes, and pieces of long values

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "port/core/datevalue.h"
#include "port/core/number.h"
#include "port/longval/longval.h"
#include "support/random.h"

namespace core = ku::core;
namespace longval = ku::longval;

namespace
{

using bytes = std::vector<unsigned char>;

// The number of a text; none: {}.
bytes number(const std::string &text)
{
    bytes made(core::number_longest);
    std::size_t length = 0; // stays when there is no number
    core::text_to_number(text.data(), text.size(), made.data(), &length);
    made.resize(length);
    return made;
}

std::string text(const bytes &of, std::size_t room = core::number_text_room)
{
    std::string buffer(room, '~');
    const bool made = core::number_to_text(of.data(), of.size(), buffer.data(), room);
    return made ? buffer.c_str() : "none";
}

int order(const bytes &a, const bytes &b)
{
    const int order = core::compare_bytes(a.data(), a.size(), b.data(), b.size());
    return (order > 0) - (order < 0);
}

} // namespace

TEST(Numbers, AreTheseBytesAndReadBackAsTheShortestText)
{
    static const std::string nines(38, '9');
    static const struct {
        std::string from;
        bytes number; // {}: not looked at
        std::string to;
    } rows[] = {
        {"-1", {0x3F, 0xDF}, "-1"},
        {"-0123", {0x3D, 0xDC, 0xBF}, "-123"},
        {"-15e-1", {0x3F, 0xD9, 0xFF}, "-1.5"}, // an even count of digits ends in a whole byte
        {".5", {0xC0, 0x60}, "0.5"},
        {"0.00102", {0xBE, 0x21, 0x30}, "0.00102"},
        {"9999999999999", {0xCD, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xA0}, "9999999999999"},
        {"-0.0e99999999999999999999", {0x80}, "0"},
        {"1e-99999999999999999999", {0x80}, "0"}, // too small
        {"1E-64", {0x81, 0x20}, "0." + std::string(63, '0') + "1"},
        {nines + "4", {}, nines + "0"}, // the 39th digit rounds
        {"-" + nines + "5", {}, "-1" + std::string(39, '0')},
        {"-" + nines + "e-101", {}, "-0." + std::string(63, '0') + nines},
    };
    for (const auto &row : rows) {
        EXPECT_TRUE(row.number.empty() || row.number == number(row.from)) << row.from;
        EXPECT_EQ(text(number(row.from)), row.to);
    }
    EXPECT_EQ(text(number("-12.5"), 6), "-12.5");
    EXPECT_EQ(text(number("-12.5"), 5), "none"); // the NUL needs its byte
    for (const char *other : {"1e63", "1e99999999999999999999", "", "-", ".", "1e", "1.2.3", " 1"})
        EXPECT_EQ(number(other), bytes()) << other;
}

TEST(Numbers, RandomOnesSortAsTheirValuesAndHaveOneFormOnly)
{
    ku::test::dice dice;
    for (int step = 0; step < 20000; step++) {
        std::int64_t values[2];
        bytes made[2];
        for (int i = 0; i < 2; i++) { // few digits, so that heads and equals happen
            values[i] = static_cast<std::int64_t>(dice.below(300)) - 150;
            const unsigned zeros = dice.below(5);
            made[i] = number(std::to_string(values[i]) + "e"
                             + std::to_string(static_cast<int>(zeros) - 2));
            for (unsigned k = 0; k < zeros; k++) values[i] *= 10;
        }
        ASSERT_EQ(order(made[0], made[1]), (values[0] > values[1]) - (values[0] < values[1]))
            << values[0] << " and " << values[1] << ", seed " << ku::test::seed();
        bytes any = {static_cast<unsigned char>(dice.bits())};
        for (unsigned left = dice.below(dice.one_in(9) ? 25 : 4); left > 0; left--)
            any.push_back(static_cast<unsigned char>(
                dice.one_in(2) ? dice.bits() : 0x0FF0u >> dice.below(13))); // likely ends
        const std::string read = text(any);
        ASSERT_TRUE(read == "none" || number(read) == any) << read << " " << ku::test::seed();
    }
    EXPECT_EQ(text(bytes(21, 0x88)), "none"); // 40 digits
    EXPECT_EQ(order({1, 0}, {1}), 1);
    EXPECT_EQ(order({0x7F}, {0x80, 1}), -1); // unsigned
}

TEST(Numbers, PicturesRoundAndRefuseWhatDoesNotFit)
{
    static constexpr char thirteen[] = "9999999999999";
    static constexpr struct {
        const char *from, *picture, *to;
        std::size_t room;
        bool done;
    } rows[] = {
        {"-12.5", thirteen, "-13", 15, true},
        {"-0.4", "9", "0", 3, true},
        {"0.05", "9", "0", 3, true},
        {"-9.5", "9", "#", 3, false}, // rounds to two digits
        {"-9999999999999.4", thirteen, "-9999999999999", 15, true},
        {"9999999999999.5", thirteen, "#############", 15, false},
        {"-13", "99", "", 3, false}, // no room
        {"1", "9.9", "?", 9, false},
        {"no number", "9", "?", 9, false},
    };
    for (const auto &row : rows) {
        const bytes from = number(row.from);
        std::string buffer(row.room + 1, '~');
        const bool done =
            core::number_to_picture(from.data(), from.size(), row.picture, buffer.data(), row.room);
        EXPECT_EQ(done, row.done) << row.from;
        EXPECT_STREQ(buffer.c_str(), row.to) << row.from;
        EXPECT_EQ(buffer[row.room], '~');
    }
}

TEST(DateValues, AreTheseBytesAndSortAsTime)
{
    static const struct {
        core::date moment;
        bytes value;
        const char *text; // "?": neither is a date
    } rows[] = {
        {{1, 1, 1, 0, 0, 0}, {0x01, 0x01, 0x01, 0x01, 0x01}, "0001-01-01"},
        {{1999, 12, 31, 23, 59, 59}, {0x0F, 0xEB, 0x68, 0x84, 0x78}, "1999-12-31"},
        {{2000, 1, 1, 0, 0, 0}, {0x0F, 0xEB, 0x68, 0x84, 0x79}, "2000-01-01"},
        {{9999, 12, 31, 23, 59, 59}, {0x4B, 0xA0, 0xA8, 0xD2, 0xFF}, "9999-12-31"},
        {{0, 1, 1, 0, 0, 0}, {}, "?"},
        {{10000, 1, 1, 0, 0, 0}, {0x4B, 0xA0, 0xA8, 0xD3, 0x01}, "?"},
        {{1900, 2, 29, 0, 0, 0}, {1, 1, 0, 1, 1}, "?"},
        {{2000, 1, 1, 24, 0, 0}, bytes(4, 1), "?"},
        {{2000, 1, 1, 0, 60, 0}, bytes(6, 1), "?"},
    };
    for (const auto &row : rows) {
        const bool exists = *row.text != '?';
        bytes value(core::datevalue_length);
        core::date back = {};
        char text[core::datevalue_text_room];
        EXPECT_EQ(core::date_to_value(row.moment, value.data()), exists) << row.moment.year;
        EXPECT_EQ(core::value_to_text(row.value.data(), row.value.size(), text), exists);
        EXPECT_STREQ(text, row.text);
        if (!exists) continue;
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_TRUE(core::value_to_date(row.value.data(), value.size(), &back));
        EXPECT_TRUE(core::date_to_value(back, value.data()));
        EXPECT_EQ(value, row.value) << row.text; // down to the second
    }
}

TEST(LongValues, PiecesGoThroughTheClientsFunctionsOrNotAtAll)
{
    static std::string asked; // of the client
    static const auto note = [](char what, uint32_t offset, uint32_t length) {
        asked += what + std::to_string(offset) + "+" + std::to_string(length);
        return 9u; // a status of the client's own
    };
    kuapp application = {};
    kulong both = {
        [](kuapp *, kulong *, void *, uint32_t at, uint32_t size) { return note('r', at, size); },
        [](kuapp *, kulong *, const void *, uint32_t at, uint32_t size) {
            return note('w', at, size);
        },
    };
    const auto transfer = [&](kuapp *app, kulong *value, uint32_t offset, uint32_t length) {
        asked = "";
        const uint32_t status = longval::read_piece(app, value, &asked, offset, length);
        EXPECT_EQ(longval::write_piece(app, value, &asked, offset, length), status);
        return std::to_string(status) + asked;
    };
    kulong neither = {};
    EXPECT_EQ(transfer(&application, &both, 7, 3), "9r7+3w7+3");
    EXPECT_EQ(transfer(&application, &both, UINT32_MAX, 0), "0"); // done, nobody asked
    EXPECT_EQ(transfer(&application, &both, UINT32_MAX, 1), "2"); // out of range
    for (kulong *none : {&neither, static_cast<kulong *>(nullptr)})
        EXPECT_EQ(transfer(&application, none, 0, 1), "1");
    EXPECT_EQ(transfer(nullptr, &both, 0, 1), "1");
}
