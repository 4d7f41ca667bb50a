// kuum_test.cpp - SQL wildcards beside a plain recursive matcher, and the cost of a match
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "kuum_internal.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;

// What the patterns mean, word for word.
bool covers(const char *pattern, const char *subject)
{
    if (*pattern == 0) return *subject == 0;
    if (*pattern == '%')
        return covers(pattern + 1, subject) || (*subject != 0 && covers(pattern, subject + 1));
    return *subject != 0 && (*pattern == '_' || *pattern == *subject)
           && covers(pattern + 1, subject + 1);
}

// Looks one byte at a time, and counts.
struct counted_looks {
    uint64_t made = 0;

    const unsigned char *find(const unsigned char *bytes, size_t length, unsigned char byte)
    {
        for (; length > 0; bytes++, length--)
            if (made++, *bytes == byte) return bytes;
        return nullptr;
    }
    bool equal(const unsigned char *a, const unsigned char *b, size_t length)
    {
        for (; length > 0; a++, b++, length--)
            if (made++, *a != *b) return false;
        return true;
    }
};

// The answer, which must be the same with counting looks, within the bound.
bool matches(kux *ctx, const std::string &pattern, const std::string &subject)
{
    kuumtdef *tokens = kuumcreate(ctx, pattern.c_str());
    counted_looks looks;
    ku::wildcard::walk counted(tokens, reinterpret_cast<const unsigned char *>(subject.c_str()),
                               looks);
    const bool expected = counted.covers();
    // The end of an empty subject may be looked at.
    EXPECT_LE(looks.made, pattern.size() * std::max<size_t>(subject.size(), 1))
        << pattern << " " << subject;
    EXPECT_EQ(kuumatch(ctx, tokens, subject.c_str()), expected ? 1 : 0) << pattern;
    kuumfree(ctx, tokens);
    return expected;
}

TEST(Wildcards, RandomPatternsAnswerAsTheyReadWithinPatternTimesSubjectLooks)
{
    context ctx;
    ku::test::dice dice;
    int covered = 0;
    for (int round = 0; round < 30000; round++) {
        std::string pattern, subject;
        const uint32_t letters = 3 + dice.below(5);
        for (uint32_t left = dice.below(13); left > 0; left--)
            pattern += "%_a%bA\xFF"[dice.below(letters)];
        for (uint32_t left = dice.below(13); left > 0; left--)
            subject += "aabA\xFF"[dice.below(letters - 2)];
        const bool expected = covers(pattern.c_str(), subject.c_str());
        ASSERT_EQ(matches(ctx, pattern, subject), expected) << pattern << " " << subject;
        covered += expected ? 1 : 0;
    }
    EXPECT_GT(covered, 1000);
}

TEST(Wildcards, StubbornPatternsStayWithinTheBound)
{
    context ctx;
    const std::string run(2000, 'a'), some(500, 'a');
    std::string many;
    for (int i = 0; i < 40; i++) many += "%a_";
    for (const std::string &pattern :
         {many + "b", many + "%b", "%" + some + "b", "%" + some + "_b%", "%a%" + run})
        EXPECT_FALSE(matches(ctx, pattern, run)) << pattern;
    EXPECT_TRUE(matches(ctx, many, run));
}

TEST(Wildcards, ACompiledPatternIsHeaderTokensAndEndOverItsText)
{
    ku::test::sweep_allocations([](context &ctx) {
        const char *text = "ab%%%c__";
        kuumtdef *made = kuumcreate(ctx, text);
        if (made == nullptr) return false;
        static const int32_t rows[][3] = {{KUUMT_HEADER, 4, 0},     {KUUMT_LITERAL, 2, 0},
                                          {KUUMT_PERCENT, 0, 2},    {KUUMT_LITERAL, 1, 5},
                                          {KUUMT_UNDERSCORE, 2, 6}, {KUUMT_END, 0, 8}};
        for (size_t i = 0; i < std::size(rows); i++) {
            EXPECT_TRUE(made[i].kuumt_type == rows[i][0] && made[i].kuumt_num == rows[i][1]) << i;
            EXPECT_STREQ(reinterpret_cast<const char *>(made[i].kuumt_str), text + rows[i][2]);
        }
        EXPECT_EQ(kuumatch(ctx, made, "abcabcxy"), 1);
        EXPECT_STREQ(reinterpret_cast<const char *>(made[3].kuumt_sstr), "xy");
        EXPECT_EQ(made[3].kuumt_snum, 2);
        EXPECT_TRUE(kuumatch(ctx, made, "") == 0 && made[3].kuumt_sstr == nullptr);
        EXPECT_TRUE(kuumatch(ctx, made, nullptr) == 0 && kuumatch(ctx, nullptr, "") == 0);
        EXPECT_TRUE(kuumcreate(ctx, nullptr) == nullptr && kuumfree(ctx, nullptr) == nullptr);
        return kuumfree(ctx, made) == nullptr;
    });
}

} // namespace
