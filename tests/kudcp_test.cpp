// kudcp_test.cpp - dumps of the data cache: their texts
#include <algorithm>
#include <regex>
#include <string>

#include "kudcp.h"
#include "port/core/datevalue.h"
#include "port/core/number.h"
#include "skub.h"
#include "support/cache.h"

using namespace ku::test;

namespace
{

class Kudcp : public testing::Test
{
protected:
    // What a dump writes.
    template <typename Dump> std::string text(const Dump &dump)
    {
        const std::string name = dir.path("dump");
        void *stream = skubopen(ctx, name.c_str(), "w");
        dump(stream);
        skubdestroy(ctx, stream);
        return dir.read("dump");
    }
    context ctx;
    directory dir;
};

} // namespace

TEST_F(Kudcp, AThreadIsPrintedWithItsColumnsAndIndexes)
{
    const std::vector<column_shape> two = {{KUDC_CHARACTER, 9}, {KUDC_INTEGER, 4}};
    cache c(ctx, {{two, {}},
                  {two,
                   {{KUDC_RANDOM, {{0, 0}, {1, 0}, {0, 1}}},
                    {KUDC_SEQNTL, {{1, 0}}},
                    {KUDC_DYNBRK, {{1, 0}}}}}});
    const std::string long_name(300, 'n');
    c.column(1, 1)->name_kudxcol = long_name.c_str();
    const std::string bar = "\t" + std::string(51, '#') + "\n";
    const std::string c0 = "\tColName:                   C0 ColType: 1\n";
    const std::string c1 = "\tColName:                   C1 ColType: 3\n";
    const std::string cut = "\tColName: " + long_name.substr(0, 200) + " ColType: 3\n";
    const auto index = [](int number, const std::string &type) {
        return "\t" + std::string(51, '-') + "\n\t+ Thread: 1 Index: " + std::to_string(number)
               + " Idxtype: " + type + "\n\t" + std::string(52, '-')
               + "\n\n\n\t\t\t<< level: 0  >>\n\n";
    };
    EXPECT_EQ(text([&](void *stream) { kudcpacmp(c, stream); }),
              bar + "\t# Thread: 0\n" + bar + "\n" + c0 + c1 + "\n" + bar + "\t# Thread: 1\n" + bar
                  + "\n" + c0 + cut + "\n" + index(0, "RANDOM") + c0 + cut
                  + "\n\t\t\t<< level: 1  >>\n\n" + c0 + index(1, "SEQNTL") + cut
                  + index(2, "DYNBRK") + cut);
    EXPECT_EQ(text([&](void *stream) { kudcpcolh(c, nullptr, stream); }), "");
    EXPECT_EQ(ctx.errors(), std::vector<std::string>{"kuvaa 21"});
    ctx.clear();
    kudcthddef thread = {};
    EXPECT_EQ(text([&](void *stream) { kudcpthdd(c, &thread, 0, stream); }), "");
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
}

TEST_F(Kudcp, AKeyIsPrintedWithAddressesAndValues)
{
    const index_shape one = {KUDC_RANDOM, {{0, 0}}};
    cache c(ctx, {{{{KUDC_CHARACTER, 9}}, {one}}});
    goal_key goal(c, 0, one, {"abc"});
    const auto dumped = [&] {
        const std::string raw = text([&](void *stream) { kudcpgoal(c, &goal.key, stream); });
        return std::regex_replace(raw, std::regex("0x[0-9a-f]+"), "0x@");
    };
    const std::string head = "\nkudckey struct at addr: 0x@ ....\n   numbva_kudckey: 1\n"
                             "   numlevsize_kudckey: 0\n\nkudcbva struct at addr: 0x@ ....\n"
                             "   val_kudcbva: 0x@\n   len_kudcbva: 3\n   xdbtyp_kudcbva: 1\n"
                             "   valnul_kudcbva: 0\n   set_kudcbva: 1\n   wildcard_kudcbva: 0\n";
    EXPECT_EQ(dumped(), head + "\n   Val: #abc#\n");
    goal.columns[0].val_kudcbva = nullptr;
    EXPECT_EQ(dumped(), head + "\n   Val: #Couldn't lock KUDCBVA_VAL(bvap)\n");
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
}

TEST_F(Kudcp, AValueIsPrintedByItsDatatype)
{
    const auto number = [](const std::string &digits) {
        unsigned char bytes[ku::core::number_longest];
        std::size_t length = 0;
        EXPECT_TRUE(ku::core::text_to_number(digits.data(), digits.size(), bytes, &length));
        return std::string(bytes, bytes + length);
    };
    unsigned char date[ku::core::datevalue_length];
    ASSERT_TRUE(ku::core::date_to_value({1999, 12, 31, 23, 59, 59}, date));
    const struct {
        uint8_t datatype;
        value given;
        std::string wanted;
    } rows[] = {
        {KUDC_RAW, {}, "NULL"},
        {KUDC_CHARACTER, "", "NULL"},
        {KUDC_CHARACTER, std::string("ab\0c", 4), "ab"},
        {KUDC_CHARACTER, std::string(400, 'v'), std::string(200, 'v')},
        {KUDC_NUMBER, number("-12.5"), "-13"},
        {KUDC_NUMBER, number("9999999999999"), "9999999999999"},
        {KUDC_NUMBER, number("10000000000000"), "#############"},
        {KUDC_NUMBER, "", "NULL"},
        {KUDC_INTEGER, integer(-70000), "-70000"},
        {KUDC_INTEGER, "", "NULL"},
        {KUDC_DATE, std::string(date, date + sizeof date), "1999-12-31"},
        {KUDC_DATE, "", "NULL"},
        {KUDC_DATE, "bad", "?"},
        {KUDC_RAW, "x", "... bad type ..."},
    };
    for (const auto &row : rows) {
        std::string given = row.given.value_or("");
        char found[256];
        kudcpval(nullptr, found, reinterpret_cast<const unsigned char *>(given.data()),
                 static_cast<uint32_t>(given.size()), row.datatype, row.given ? 0 : KUDC_NULL);
        EXPECT_EQ(found, row.wanted);
        kudcpval(nullptr, found, nullptr, 0, row.datatype, 0);
        EXPECT_STREQ(found, row.datatype == KUDC_RAW ? "... bad type ..." : "NULL");
    }
}

TEST_F(Kudcp, ATreeIsPrintedNodeByNode)
{
    const index_shape random = {KUDC_RANDOM, {{0, 0}, {1, 1}, {0, 1}, {1, 1}}};
    const index_shape lists = {KUDC_SEQNTL, {{0, 0}, {1, 1}}};
    cache c(ctx,
            {{{{KUDC_CHARACTER, 9}, {KUDC_INTEGER, 4}}, {random, lists, {KUDC_DYNBRK, {{0, 0}}}}}});
    const auto tree = [&](int16_t index, int32_t limit, uint32_t status = 0) {
        return text([&](void *stream) { EXPECT_EQ(kudcpidx(c, limit, 0, index, stream), status); });
    };
    EXPECT_EQ(tree(0, 9), " \t<<< Printing BTREE Index: 0.  thread: 0 >>>\n\n"
                          "<Lvl: 0,Dpth: 0,ID: 0,PPID: -1,PPOS: -1,Fp: 0,Rsib: -1, Lsib: -1>\n"
                          "  # No Keys In Node #\n");
    EXPECT_EQ(tree(1, 0), " \t<<< Printing SEQNTL Index: 1.  thread: 0 >>>\n\n"
                          "<Lvl: 0,Dpth: 0,ID: 0,PPID: -1,PPOS: -1, Fp: -1>\n"
                          "  # Subtree empty #\n");
    c.store(0, {"A", integer(1)}, {2, 2, 2});
    c.store(0, {"B", {}}, {2, 2, 2});
    // Blocks of 512 bytes for the trees; the lists took 256 and 512 between them.
    const std::string found = tree(0, 1);
    EXPECT_EQ(
        found,
        " \t<<< Printing BTREE Index: 0.  thread: 0 >>>\n\n"
        "<Lvl: 0,Dpth: 0,ID: 0,PPID: -1,PPOS: -1,Fp: 0,Rsib: -1, Lsib: -1>\n"
        "  s- A           <Child BTree fileposn: 512>\n"
        "  s- B           <Child BTree fileposn: 1792>\n"
        "    <Lvl: 1,Dpth: 1,ID: 1,PPID: 0,PPOS: 0,Fp: 512,Rsib: -1, Lsib: -1>\n"
        "      s- 1               <Child BTree fileposn: -1>\n      |  A\n      e- 1\n"
        "    <Lvl: 1,Dpth: 1,ID: 2,PPID: 0,PPOS: 1,Fp: 1792,Rsib: -1, Lsib: -1>\n"
        "      s- NULL               <Child BTree fileposn: -1>\n      |  B\n      e- NULL\n");
    EXPECT_EQ(tree(0, 0), found.substr(0, found.find("    <Lvl: 1")));
    EXPECT_EQ(text([&](void *stream) { kudcpbrt(c, 1, 0, stream); }),
              found.substr(found.find("<Lvl")));
    const std::string chain = tree(1, 1);
    EXPECT_EQ(std::count(chain.begin(), chain.end(), '\n'), 2 + 1 + 2 + 2 * 2);
    cache deep(ctx, {{{{KUDC_CHARACTER, 9}}, {{KUDC_SEQNTL, {{0, 0}, {0, 1}, {0, 2}}}}}});
    deep.store(0, {"A"}, {3});
    const auto all = [&](int32_t limit) {
        return text([&](void *stream) { EXPECT_EQ(kudcpidx(deep, limit, 0, 0, stream), 0u); });
    };
    EXPECT_EQ(all(INT32_MAX), all(9));
    EXPECT_NE(chain.find("\n<Lvl: 1,Dpth: 0,ID: 2,PPID: 0,PPOS: 1,"), std::string::npos) << chain;
    EXPECT_EQ(tree(2, 9), "");
    EXPECT_EQ(tree(3, 9, KUDCA_INDEX), "Illegal index (3) for thread (0). Max indexthread #: 3\n");
    EXPECT_EQ(text([&](void *stream) { EXPECT_EQ(kudcpidx(c, 9, 1, 0, stream), KUDCA_THREAD); }),
              "Illegal thread number: 1. Max thread #: 1\n");
    text([&](void *stream) { kudcpbrt(c, 9, 100, stream); }); // within a block
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
}
