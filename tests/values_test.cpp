// values_test.cpp - numbers and dates as bytes, and pieces of long values

#include <cstring>
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
    bytes made(core::number_longest, 0xEE);
    std::size_t length = 77;
    if (core::text_to_number(text.data(), text.size(), made.data(), &length)) {
        made.resize(length);
        return made;
    }
    EXPECT_EQ(made, bytes(core::number_longest, 0xEE)) << text;
    EXPECT_EQ(length, 77u) << text;
    return {};
}

std::string text(const bytes &of, std::size_t room = core::number_text_room)
{
    std::string buffer(room, '~');
    if (!core::number_to_text(of.data(), of.size(), buffer.data(), room)) return "none";
    return buffer.c_str();
}

std::string pictured(const bytes &of, const char *picture, std::size_t room, bool *done)
{
    std::string buffer(room + 1, '~');
    *done = core::number_to_picture(of.data(), of.size(), picture, buffer.data(), room);
    EXPECT_EQ(buffer[room], '~');
    return buffer.c_str();
}

int sign(int order) { return (order > 0) - (order < 0); }

int order(const bytes &a, const bytes &b)
{
    return sign(core::compare_bytes(a.data(), a.size(), b.data(), b.size()));
}

} // namespace

TEST(Numbers, AreTheseBytesAndReadBackAsTheShortestText)
{
    static const struct {
        const char *from;
        bytes number;
        const char *to;
    } rows[] = {
        {"1", {0xC1, 0x20}, "1"},
        {"-1", {0x3F, 0xDF}, "-1"},
        {"+10.", {0xC2, 0x20}, "10"},
        {"0123", {0xC3, 0x23, 0x40}, "123"},
        {"-123", {0x3D, 0xDC, 0xBF}, "-123"},
        {"1.50", {0xC1, 0x26}, "1.5"},
        {"-15e-1", {0x3F, 0xD9, 0xFF}, "-1.5"}, // an even count of digits ends in a whole byte
        {".5", {0xC0, 0x60}, "0.5"},
        {"-0.53", {0x40, 0x9B, 0xFF}, "-0.53"},
        {"0.00102", {0xBE, 0x21, 0x30}, "0.00102"},
        {"9999999999999", {0xCD, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xA0}, "9999999999999"},
        {"-0.000", {0x80}, "0"},
        {"0e999999999999999999999", {0x80}, "0"},
        {"1e-65", {0x80}, "0"}, // too small
        {"1E-64", {0x81, 0x20}, nullptr},
        {"1e62", {0xFF, 0x20}, nullptr},
        {"1e63", {}, "none"}, // too large
        {"1e99999999999999999999", {}, "none"},
        {"1e-99999999999999999999", {0x80}, "0"},
        {"", {}, "none"},
        {"-", {}, "none"},
        {".", {}, "none"},
        {"1e", {}, "none"},
        {"1.2.3", {}, "none"},
        {" 1", {}, "none"},
        {"1-", {}, "none"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(number(row.from), row.number) << row.from;
        if (row.to == nullptr) continue;
        EXPECT_EQ(text(row.number), row.to) << row.from;
    }
    const std::string nines(38, '9');
    EXPECT_EQ(text(number(nines)), nines);
    EXPECT_EQ(number("-" + nines).size(), core::number_longest);
    EXPECT_EQ(text(number(nines + "4")), nines + "0"); // the 39th digit rounds
    EXPECT_EQ(text(number("-" + nines + "5")), "-1" + std::string(39, '0'));
    const bytes longest = number("-" + nines + "e-101");
    EXPECT_EQ(text(longest), "-0." + std::string(63, '0') + nines);
    EXPECT_EQ(text(longest, 105), text(longest));
    EXPECT_EQ(text(longest, 104), "none"); // the NUL needs its byte
}

TEST(Numbers, BytesInAnyOtherFormAreNoNumber)
{
    const bytes strangers[] = {
        {},
        {0},
        {0x80, 0x20},
        {0xC1},
        {0x3F},
        {0xC1, 0x10},
        {0xC1, 0x12},
        {0xC1, 0x21},
        {0xC1, 0x2B},
        {0xC1, 0x20, 0x20},
        {0x3F, 0xD9},
        {0x3F, 0xEF},
        {0x3F, 0xDE, 0xFF},
        {0x3F, 0xDF, 0xFF},
        {0x3F, 0xFF},
        {0x3F, 0xD4},
        {0xC1, 0},
        bytes(22, 0xC1),
    };
    bool done = true;
    for (const bytes &stranger : strangers) {
        EXPECT_EQ(text(stranger), "none") << testing::PrintToString(stranger);
        EXPECT_EQ(pictured(stranger, "99", 4, &done), "?");
        EXPECT_FALSE(done);
    }
    bytes digits(21, 0x66); // 40 digits
    digits[0] = 0xC1;
    EXPECT_EQ(text(digits), "none");
}

TEST(Numbers, RandomOnesSortAsTheirValues)
{
    ku::test::dice dice;
    for (int step = 0; step < 20000; step++) {
        std::int64_t values[2];
        bytes made[2];
        for (int i = 0; i < 2; i++) { // few digits, so that heads and equals happen
            values[i] = static_cast<std::int64_t>(dice.below(300)) - 150;
            std::string written = std::to_string(values[i]);
            for (unsigned zeros = dice.below(5), k = 0; k < 6; k++) {
                if (k < zeros) values[i] *= 10;
                if (k == zeros) written += "e" + std::to_string(static_cast<int>(zeros) - 2);
            }
            made[i] = number(written);
            EXPECT_EQ(number(text(made[i])), made[i]) << written;
        }
        ASSERT_EQ(order(made[0], made[1]), (values[0] > values[1]) - (values[0] < values[1]))
            << values[0] << " and " << values[1] << ", seed " << ku::test::seed();
    }
}

TEST(Numbers, PicturesRoundAndRefuseWhatDoesNotFit)
{
    static constexpr char thirteen[] = "9999999999999";
    static constexpr struct {
        const char *from, *picture, *to;
        bool done;
    } rows[] = {
        {"-12.5", thirteen, "-13", true},
        {"12.49", thirteen, "12", true},
        {"0", "9", "0", true},
        {"-0.4", "9", "0", true},
        {"0.5", "9", "1", true},
        {"0.05", "9", "0", true},
        {"-9.5", "9", "#", false}, // rounds to two digits
        {"9999999999999.4", thirteen, thirteen, true},
        {"-9999999999999.4", thirteen, "-9999999999999", true},
        {"9999999999999.5", thirteen, "#############", false},
        {"1e62", "99", "##", false},
        {"1", "9.9", "?", false},
        {"1", "", "?", false},
    };
    bool done = false;
    for (const auto &row : rows) {
        EXPECT_EQ(pictured(number(row.from), row.picture, 16, &done), row.to) << row.from;
        EXPECT_EQ(done, row.done) << row.from;
    }
    EXPECT_EQ(pictured(number("-13"), "99", 4, &done), "-13");
    EXPECT_EQ(pictured(number("-13"), "99", 3, &done), "");
    EXPECT_FALSE(done);
    EXPECT_EQ(order({}, {}), 0);
    EXPECT_EQ(order({1, 0}, {1}), 1);
    EXPECT_EQ(order({0x7F}, {0x80, 1}), -1); // unsigned
}

TEST(DateValues, AreTheseBytesAndSortAsTime)
{
    static const struct {
        core::date moment;
        bytes value;
        const char *text;
    } rows[] = {
        {{1, 1, 1, 0, 0, 0}, {0x01, 0x01, 0x01, 0x01, 0x01}, "0001-01-01"},
        {{1970, 1, 1, 0, 0, 0}, {0x0F, 0xB2, 0x50, 0xBC, 0x10}, "1970-01-01"},
        {{1999, 12, 31, 23, 59, 59}, {0x0F, 0xEB, 0x68, 0x84, 0x78}, "1999-12-31"},
        {{2000, 1, 1, 0, 0, 0}, {0x0F, 0xEB, 0x68, 0x84, 0x79}, "2000-01-01"},
        {{9999, 12, 31, 23, 59, 59}, {0x4B, 0xA0, 0xA8, 0xD2, 0xFF}, "9999-12-31"},
    };
    for (const auto &row : rows) {
        bytes value(core::datevalue_length);
        core::date back = {};
        char text[core::datevalue_text_room];
        ASSERT_TRUE(core::date_to_value(row.moment, value.data())) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
        ASSERT_TRUE(core::value_to_date(value.data(), value.size(), &back)) << row.text;
        EXPECT_EQ(std::memcmp(&back, &row.moment, offsetof(core::date, second) + 1), 0) << row.text;
        EXPECT_TRUE(core::value_to_text(value.data(), value.size(), text));
        EXPECT_STREQ(text, row.text);
    }
    const core::date strangers[] = {
        {0, 1, 1, 0, 0, 0},     {-1, 1, 1, 0, 0, 0},    {10000, 1, 1, 0, 0, 0},
        {1900, 2, 29, 0, 0, 0}, {2000, 13, 1, 0, 0, 0}, {2000, 1, 0, 0, 0, 0},
        {2000, 1, 1, 24, 0, 0}, {2000, 1, 1, 0, 60, 0}, {2000, 1, 1, 0, 0, 60},
    };
    unsigned char untouched = 7;
    for (const core::date &moment : strangers)
        EXPECT_FALSE(core::date_to_value(moment, &untouched));
    EXPECT_EQ(untouched, 7);
    for (const bytes &value : {bytes{}, bytes(4, 1), bytes(6, 1), bytes{1, 1, 0, 1, 1},
                               bytes{0x4B, 0xA0, 0xA8, 0xD3, 0x01}}) { // the year 10000
        char text[core::datevalue_text_room];
        EXPECT_FALSE(core::value_to_text(value.data(), value.size(), text));
        EXPECT_STREQ(text, "?");
    }
}

TEST(LongValues, PiecesGoThroughTheClientsFunctionsOrNotAtAll)
{
    struct store {
        std::string bytes = "0123456789";
        kuapp *asked = nullptr;
    } data;
    const auto read = [](kuapp *application, kulong *value, void *buffer, uint32_t offset,
                         uint32_t length) -> uint32_t {
        auto *from = static_cast<store *>(value->data_kulong);
        from->asked = application;
        if (from->bytes.size() < offset + length) return 9;
        std::memcpy(buffer, from->bytes.data() + offset, length);
        return 0;
    };
    const auto write = [](kuapp *application, kulong *value, const void *buffer, uint32_t offset,
                          uint32_t length) -> uint32_t {
        auto *to = static_cast<store *>(value->data_kulong);
        to->asked = application;
        to->bytes.resize(offset);
        to->bytes.append(static_cast<const char *>(buffer), length);
        return 0;
    };
    kuapp application = {};
    kulong both = {read, write, &data};
    kulong neither = {nullptr, nullptr, &data};
    char piece[4] = "...";
    EXPECT_EQ(longval::read_piece(&application, &both, piece, 7, 3), longval::done);
    EXPECT_STREQ(piece, "789");
    EXPECT_EQ(data.asked, &application);
    EXPECT_EQ(longval::read_piece(&application, &both, piece, 8, 3), 9u); // the client's own
    data.asked = nullptr;
    EXPECT_EQ(longval::write_piece(&application, &both, "ab", 4, 2), longval::done);
    EXPECT_EQ(data.asked, &application);
    data.asked = nullptr;
    for (kulong *value : {&neither, static_cast<kulong *>(nullptr)}) {
        EXPECT_EQ(longval::read_piece(&application, value, piece, 0, 1), longval::no_function);
        EXPECT_EQ(longval::write_piece(&application, value, piece, 0, 1), longval::no_function);
    }
    EXPECT_EQ(longval::read_piece(nullptr, &both, piece, 0, 1), longval::no_function);
    EXPECT_EQ(longval::write_piece(nullptr, &both, piece, 0, 1), longval::no_function);
    EXPECT_EQ(longval::read_piece(&application, &both, piece, 0xFFFFFFFF, 1),
              longval::out_of_range);
    EXPECT_EQ(longval::write_piece(&application, &both, piece, 0xFFFFFFFF, 1),
              longval::out_of_range);
    EXPECT_EQ(longval::read_piece(&application, &both, piece, 0xFFFFFFFF, 0), longval::done);
    EXPECT_EQ(longval::write_piece(&application, &both, piece, 0, 0), longval::done);
    EXPECT_EQ(data.asked, nullptr);
    EXPECT_EQ(data.bytes, "0123ab");
}
