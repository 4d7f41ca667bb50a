// kuq's exact numbers and dates, beside the library's own forms

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "port/core/number.h"
#include "support/random.h"
#include "tools/kuq/values.h"

namespace
{

using kuq::decimal;

// A number of up to 30 digits, up to 12 of them behind the point, with needless zeros.
std::string random_number(ku::test::dice &dice, int most = 18)
{
    std::string text = dice.one_in(2) ? "-" : dice.one_in(8) ? "+" : "";
    for (std::uint32_t left = 1 + dice.below(static_cast<std::uint32_t>(most)); left > 0; left--)
        text += static_cast<char>('0' + (dice.one_in(3) ? 0 : dice.below(10)));
    if (dice.one_in(2)) {
        text += '.';
        for (std::uint32_t left = dice.below(12); left > 0; left--)
            text += static_cast<char>('0' + dice.below(10));
    }
    if (dice.one_in(4)) text += "e" + std::to_string(static_cast<int>(dice.below(40)) - 20);
    return text;
}

TEST(KuqValues, NumbersHaveTheLibrarysBytesAndText)
{
    ku::test::dice dice;
    std::vector<std::string> texts = {"0",     "-0",   "1",      "-1",   ".5",   "5.", "00.100",
                                      "-9.99", "1e62", "-1e-63", "+1E2", "1e-3", "10", "100"};
    for (int step = 0; step < 20000; step++) texts.push_back(random_number(dice));
    for (const std::string &text : texts) {
        unsigned char bytes[ku::core::number_longest];
        std::size_t length = 0;
        char shown[ku::core::number_text_room];
        ASSERT_TRUE(ku::core::text_to_number(text.data(), text.size(), bytes, &length)) << text;
        ASSERT_TRUE(ku::core::number_to_text(bytes, length, shown, sizeof shown));
        const auto number = decimal::parse(text);
        ASSERT_TRUE(number) << text;
        ASSERT_EQ(number->encoded(), std::string(reinterpret_cast<char *>(bytes), length)) << text;
        ASSERT_EQ(number->text(), shown) << text;
        ASSERT_EQ(decimal::decoded(number->encoded()), shown) << text;
    }
    for (const char *text : {"", "-", ".", "1e", "1e+", "1 ", " 1", "1.2.3", "0x1", "1e2.5", "NaN"})
        EXPECT_FALSE(decimal::parse(text)) << text;
    for (const char *text : {"1e63", "1e-65", "1e1000", "123456789012345678901234567890123456789"})
        EXPECT_EQ(decimal::parse(text)->encoded(), "") << text; // it would not be exact
}

TEST(KuqValues, SumsAndAveragesAreExact)
{
    ku::test::dice dice;
    for (int round = 0; round < 200; round++) {
        decimal sum;
        std::int64_t model = 0; // in thousandths
        const int count = 1 + static_cast<int>(dice.below(50));
        for (int term = 0; term < count; term++) {
            const std::int64_t value =
                (static_cast<std::int64_t>(dice.bits()) << 20) - (std::int64_t{1} << 51);
            model += value;
            const std::string digits = std::to_string(value < 0 ? -value : value);
            const std::string padded =
                std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
            sum.add(*decimal::parse((value < 0 ? "-" : "") + padded.substr(0, padded.size() - 3)
                                    + "." + padded.substr(padded.size() - 3)));
        }
        decimal thousandths; // the sum a thousand times
        for (int times = 0; times < 1000; times++) thousandths.add(sum);
        ASSERT_EQ(thousandths.text(), std::to_string(model));
    }
    const struct {
        const char *sum;
        std::uint64_t count;
        const char *average;
    } rows[] = {{"1", 3, "0.333333"},          {"2", 3, "0.666667"},
                {"-2", 3, "-0.666667"},        {"0", 7, "0"},
                {"1e-9", 2, "0.0000000005"},   {"10", 4, "2.5"},
                {"0.5", 10000000, "0.0000001"}}; // half of the last digit rounds away from zero
    for (const auto &row : rows)
        EXPECT_EQ(decimal::parse(row.sum)->divided(row.count).text(), row.average) << row.sum;
}

TEST(KuqValues, DatesSortAsTheyFollowAndOnlyDatesAreDates)
{
    const char *ascending[] = {"0001-01-01",          "0001-01-01 00:00:01", "1582-10-10",
                               "1969-12-31",          "1970-01-01",          "2000-02-29",
                               "2000-02-29 23:59:59", "9999-12-31"};
    std::string last;
    for (const char *text : ascending) {
        const std::string bytes = kuq::encoded_date(text);
        EXPECT_EQ(kuq::decoded_date(bytes), text);
        EXPECT_LT(last, bytes) << text;
        EXPECT_EQ(bytes.find('\0'), std::string::npos);
        last = bytes;
    }
    for (const char *text : {"", "2001-02-29", "0000-01-01", "2001-13-01", "2001-01-01x",
                             "2001-01-01 24:00:00", "2001-01-01 1:2", "soon"})
        EXPECT_EQ(kuq::encoded_date(text), "") << text;
}

} // namespace
