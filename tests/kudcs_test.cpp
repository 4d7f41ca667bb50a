// kudcs_test.cpp - SEQNTL and DYNBRK indexes: what lies in the blocks, and searches by example
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kudc_internal.h"
#include "kudcb.h"
#include "kudcd.h"
#include "kudcp.h"
#include "kudcs.h"
#include "skub.h"
#include "support/cache.h"

using namespace ku::test;
namespace blocks = ku::cache;

namespace
{

constexpr uint32_t longest = 200; // so that a block of level 1 holds few keys

thread_shape two_levels(uint16_t type, uint32_t width = longest)
{
    return {{{KUDC_CHARACTER, width}, {KUDC_INTEGER, 4}}, {{type, {{0, 0}, {1, 1}}}}};
}

struct stored {
    stored(context &ctx, uint16_t type, const std::string &rows) : c(ctx, {two_levels(type)})
    {
        for (const char letter : rows) // a capital is level 0's value, a digit level 1's
            if (letter >= 'A')
                key = letter;
            else
                EXPECT_GE(c.store(0, {key, integer(letter - '0')}, {2}), 0);
        index = c->thrd_kudcacc->idxs_kudcthd;
        cursor = c.cursor(0, 0);
    }
    int search(uint16_t level, int relop)
    {
        int32_t state = 99;
        EXPECT_EQ(kudcmksrch(c, cursor, level, relop, &state), 0u);
        return state;
    }
    std::string next(uint8_t level = 1)
    {
        uint8_t found = 9;
        EXPECT_EQ(kudcmrnxt(c, cursor, level, &found), 0u);
        if (found != KUDC_ROW) return "";
        return *c.current(0)[0] + static_cast<char>('0' + (*c.current(0)[1])[0]);
    }
    // The keys of a chain as text, each with its rows, below a key its sub-keys.
    std::string chain(int32_t block, uint16_t level)
    {
        std::string text;
        int32_t before = KUDC_NONE;
        while (block != KUDC_NONE) {
            std::vector<unsigned char> bytes(index->lvrt_kudcidx[level].size_kudcidh);
            const auto size = static_cast<uint32_t>(bytes.size());
            EXPECT_EQ(blocks::read_block(c, block, size, bytes.data()), 0u);
            const kudcidhdef header = blocks::header_of(bytes.data());
            EXPECT_EQ(header.addr_kudcidh, block);
            EXPECT_EQ(header.lsib_kudcidh, before);
            for (uint32_t i = 0; i < header.kyct_kudcidh; i++) {
                const kudcinddef entry = blocks::entry_of(bytes.data(), i);
                const unsigned char *value = bytes.data() + entry.offs_kudcind + 8;
                if (level == 0)
                    text += std::string(1, static_cast<char>(*value)) + "("
                            + chain(entry.root_kudcind, 1) + ")";
                else
                    text += std::to_string(*value) + "x" + std::to_string(entry.coun_kudcind) + " ";
                EXPECT_EQ(entry.frst_kudcind == KUDC_NONE, level == 0);
            }
            before = block;
            block = header.rsib_kudcidh;
        }
        return text;
    }

    cache c;
    kudcidxdef *index;
    kudccurdef *cursor;
    std::string key;
};

} // namespace

TEST(Kudcs, KeysAreEnteredWhereTheyBreak)
{
    static constexpr struct {
        const char *rows, *chains;
    } cases[] = {
        {"", ""},
        {"A112B1", "A(1x2 2x1 )B(1x1 )"},
        {"A1B1A1", "A(1x1 )B(1x1 )A(1x1 )"}, // a key that comes again is another one
        {"A121", "A(1x1 2x1 1x1 )"},
        {"A0123456789012345",
         "A(0x1 1x1 2x1 3x1 4x1 5x1 6x1 7x1 8x1 9x1 0x1 1x1 2x1 3x1 4x1 5x1 )"},
        {"A1B1C1D1E1F1G1H1I1J1K1L1M1N1O1P1Q1R1S1T1U1V1W1X1Y1Z1",
         "A(1x1 )B(1x1 )C(1x1 )D(1x1 )E(1x1 )F(1x1 )G(1x1 )H(1x1 )I(1x1 )J(1x1 )K(1x1 )L(1x1 )"
         "M(1x1 )N(1x1 )O(1x1 )P(1x1 )Q(1x1 )R(1x1 )S(1x1 )T(1x1 )U(1x1 )V(1x1 )W(1x1 )X(1x1 )"
         "Y(1x1 )Z(1x1 )"},
    };
    for (const auto &row : cases) {
        context ctx;
        stored s(ctx, KUDC_SEQNTL, row.rows);
        int32_t empty = 9;
        EXPECT_EQ(kudcslhemp(s.c, s.index, 1, &empty), 0u);
        EXPECT_EQ(empty, *row.rows == '\0');
        const kudcsposdef &head = s.index->tinf_kudcidx.sinf_kudcidx.head_kudcsidx;
        EXPECT_EQ(s.chain(head.cloc_kudcspos.apos_kudcscl[0], 0), row.chains);
    }
}

TEST(Kudcs, AFirstRowOfEmptyValuesIsEnteredAndTooLongAKeyIsNot)
{
    context ctx;
    cache c(ctx, {two_levels(KUDC_SEQNTL, 65300)});
    EXPECT_EQ(c.store(0, {std::string(65250, 'x'), integer(1)}, {2}), -1);
    EXPECT_EQ(c.status, KUDCA_KEYSIZE);
    EXPECT_ERRORS(ctx, {"kudca 9"});
    EXPECT_EQ(c->nxio_kudcacc, 0);
    EXPECT_EQ(c.store(0, {"", {}}, {2}), 0);
    kudcthddef *thread = c->thrd_kudcacc;
    int32_t flag = 9;
    EXPECT_EQ(kudcslcur(c, thread, thread->idxs_kudcthd, 1, &flag), 0u);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(kudcslcur(c, thread, thread->idxs_kudcthd, 2, &flag), KUVAA_MISSING);
    ctx.clear();
    // A level above the break that has no key.
    thread->idxs_kudcthd->tinf_kudcidx.sinf_kudcidx.tail_kudcsidx.cloc_kudcspos.apos_kudcscl[1] =
        -1;
    EXPECT_EQ(c.store(0, {"", {}}, {2}), -1);
    EXPECT_ERRORS(ctx, {"kudca 12"});
}

TEST(Kudcs, LevelsMayBeManyMoreThanTheStackHasRoomFor)
{
    constexpr uint16_t levels = 65533;
    const std::vector<key_shape> keys = {{0, 0}, {1, levels - 1}};
    context ctx;
    cache c(ctx, {{{{KUDC_INTEGER, 4}, {KUDC_INTEGER, 4}}, {{KUDC_SEQNTL, keys}}}}, 15);
    for (const int row : {1, 2}) ASSERT_GE(c.store(0, {integer(7), integer(row)}, {1}), 0);
    kudccurdef *cursor = c.cursor(0, 0);
    int32_t state = KUDC_NOKEY;
    uint8_t found = KUDC_NOROW;
    EXPECT_EQ(kudcmksrch(c, cursor, levels - 1, KUDC_NEXT, &state), 0u);
    EXPECT_EQ(state, KUDC_POSITIONED);
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(c.current(0)[1], integer(2));
    const directory dir;
    void *stream = skubopen(ctx, dir.path("dump").c_str(), "w");
    EXPECT_EQ(kudcpidx(c, 1, 0, 0, stream), 0u);
    skubdestroy(ctx, stream);
    const std::string text = dir.read("dump");
    EXPECT_EQ(std::count(text.begin(), text.end(), '<'), 3 + levels + 3) << "a key a line";
}

TEST(Kudcs, BreaksAreFoundBetweenTheRowReadAndTheNextOne)
{
    context ctx;
    stored s(ctx, KUDC_DYNBRK, "A11B1");
    EXPECT_EQ(s.next(0), "A1");
    EXPECT_EQ(s.search(0, KUDC_NEXT), KUDC_NOMORE) << "the next row is of the group";
    EXPECT_EQ(s.next(0), "A1");
    EXPECT_EQ(s.next(0), "") << "the group ends";
    EXPECT_EQ(s.search(1, KUDC_NEXT), KUDC_NOMORE) << "the break is at level 0";
    EXPECT_EQ(s.search(0, KUDC_NEXT), KUDC_POSITIONED);
    EXPECT_EQ(s.search(0, KUDC_NEXT), KUDC_NOMORE) << "a search does not move on";
    EXPECT_EQ(s.next(0) + s.next(0), "B1");
    EXPECT_GE(s.c.store(0, {"B", integer(2)}, {2}), 0);
    EXPECT_EQ(s.search(1, KUDC_NEXT), KUDC_POSITIONED) << "stored after the last one was read";
    EXPECT_EQ(s.next(1), "B2");
    for (const uint16_t type : {KUDC_DYNBRK, KUDC_SEQNTL}) {
        stored nothing(ctx, type, "");
        for (int relop = 0; relop < 4; relop++) EXPECT_EQ(nothing.search(0, relop), KUDC_NOKEY);
    }

    // The cursor's key beside the columns' current values.
    int32_t differs = 9;
    uint16_t level = 9;
    s.c.fill(0, {"B", integer(3)});
    EXPECT_EQ(kudcbcbvcl(s.c, s.index, s.cursor->keyp_kudccur, 0, 0, &differs, &level), 0u);
    EXPECT_EQ(differs, 0);
    EXPECT_EQ(kudcbcbvcl(s.c, s.index, s.cursor->keyp_kudccur, 0, 9, &differs, &level), 0u);
    EXPECT_EQ(differs, 1);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(kudcbcbvcl(s.c, s.index, s.cursor->keyp_kudccur, 2, 2, &differs, &level), 0u);
    EXPECT_EQ(differs, 0) << "no such level";
}

TEST(Kudcs, AnEmptyNumberOfARowIsEmptyWhateverItsBufferHolds)
{
    context ctx;
    cache c(ctx, {{{{KUDC_NUMBER, 4}}, {{KUDC_DYNBRK, {{0, 0}}}}}});
    for (const char *const number : {"\x01\x20", ""}) {
        ASSERT_GE(c.store(0, {number}, {1}), 0);
    }
    kudcthddef *thread = c->thrd_kudcacc;
    const kudcidxdef *index = thread->idxs_kudcthd;
    kudccurdef *cursor = c.cursor(0, 0);
    uint8_t found = 9;
    int32_t state = 9, differs = 9;
    uint16_t level = 9;
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(kudcmksrch(c, cursor, 0, KUDC_NEXT, &state), 0u);
    EXPECT_EQ(state, KUDC_POSITIONED);
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(found, KUDC_ROW);
    EXPECT_EQ(c.column(0, 0)->curlen_kudxcol, 0u);
    EXPECT_EQ(std::memcmp(c.column(0, 0)->curval_kudxcol, "\x01\x20", 2), 0) << "as it was";
    EXPECT_EQ(kudcbcbvcl(c, index, cursor->keyp_kudccur, 0, 0, &differs, &level), 0u);
    EXPECT_EQ(differs, 0);
    unsigned char *number = cursor->keyp_kudccur->arybva_kudckey[0].val_kudcbva;
    std::memcpy(number, "\x01\x20", 2); // with its length in front
    EXPECT_EQ(kudcbcbvcl(c, index, cursor->keyp_kudccur, 0, 0, &differs, &level), 0u);
    EXPECT_EQ(differs, 1);

    unsigned char buffer[5] = {3, 1, 2, 3};
    kudcbvadef value = index->cols_kudcidx[0], *const values[] = {&value};
    value.val_kudcbva = buffer;
    kudcrchdef header;
    EXPECT_EQ(kudcdrbv(c, thread, values, thread->last_kudcthd, &header), 0u);
    const kudckeydef goal = {1, 0, &value, nullptr};
    kudccurdef *at = c.cursor(0, 0, &goal);
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(kudcbcbvcl(c, index, at->keyp_kudccur, 0, 0, &differs, &level), 0u);
    EXPECT_EQ(differs, 0) << "a goal as empty as the row";

    // A number with its length in front comes along when a key is copied, and no more of it.
    std::memcpy(buffer, "\x09\xC1\x20\x30\x40", 5);
    EXPECT_EQ(kudcbbv2bv(c, index, &goal, at->keyp_kudccur, 0, 0), 0u);
    EXPECT_EQ(at->keyp_kudccur->arybva_kudckey[0].len_kudcbva, 0u);
    EXPECT_EQ(
        std::memcmp(at->keyp_kudccur->arybva_kudckey[0].val_kudcbva, "\x04\xC1\x20\x30\x40", 5), 0);
}
