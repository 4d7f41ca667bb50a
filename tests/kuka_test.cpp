// kuka_test.cpp - dialects: which words and operators each server's text has

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "kuka.h"
#include "kuko.h"
#include "kul.h"
#include "support/context.h"
#include "support/sweep.h"

using ku::test::context;

namespace
{

kuka attributes(const char *text, uint32_t server, int32_t mode, void *clients = nullptr)
{
    kuka record = {};
    record.mask_kuka = KUKA_TEXT | KUKA_MODE | KUKA_SERVER;
    record.origtxp_kuka = text;
    record.mode_kuka = mode;
    record.srvrtype_kuka = server;
    record.ctoklist_kuka = clients;
    return record;
}

// Types of the stored tokens and the end state: "403 384 0"; "none" without an object.
std::string types(const context &ctx, kuka record)
{
    auto *object = static_cast<kuk *>(kukacreate(ctx, &record));
    if (object == nullptr) return "none";
    std::string all;
    for (int32_t i = 0; i < kulpnitems(ctx, object->origtklh_kuk); i++)
        all += std::to_string(kukongtype(ctx, object, i)) + " ";
    all += std::to_string(object->state_kuk);
    kukpdestroy(ctx, object);
    return all;
}

} // namespace

TEST(Kuka, EachServerHasItsWordsAndOperators)
{
    static const struct {
        uint32_t server;
        int32_t mode;
        const char *text, *single_byte, *multibyte;
    } rows[] = {
        // clang-format off
        {1, 0, "a*=b=*c", "403 410 403 409 403 0", nullptr}, {2, 0, "a*=b", "403 380 384 403 0", nullptr},
        {9, 0, "a*=b SELECT", "403 380 384 403 86 0", nullptr}, // no such server: native
        {1, 1, "browse HOLDLOCK browser", "407 408 403 0", "403 403 403 0"}, {1, 0, "Browse holdloc", "407 403 0", "403 403 0"},
        {2, 1, "optimize browse", "411 403 0", "403 403 0"}, {2, 0, "CONCAT concat optimize", "371 371 411 0", "131 131 403 0"},
        {1, 0, "concat", "131 0", nullptr}, {1, 1, "concat select", "403 403 0", nullptr},
        {1, 0, "SELECT absolute Create", "86 403 22 0", nullptr}, {2, 0, "SELECT absolute Create", "86 403 403 0", nullptr},
        {1, 0, "a ! b", "403 0 403 0", nullptr}, {0, 0, "a ! b", "403 0 26", nullptr}, // goes on where the plain lexer stops
        // clang-format on
    };
    for (const char *language : {"ascii", "utf8", "sjis"}) {
        context ctx(language);
        const bool multibyte = strcmp(language, "ascii") != 0;
        for (const auto &row : rows)
            EXPECT_EQ(types(ctx, attributes(row.text, row.server, row.mode)),
                      multibyte && row.multibyte != nullptr ? row.multibyte : row.single_byte)
                << language << ": " << row.text;
    }
    context ctx("utf8"); // narrowed by its lower case, a Kelvin sign and all
    EXPECT_EQ(types(ctx, attributes("li\xE2\x84\xAA"
                                    "e",
                                    1, 0)),
              "58 0");
}

TEST(Kuka, NativeReservedWordsAreNarrowedToTheServersList)
{
    context ctx;
    const auto check = [&](uint32_t server, const char *const *words, uint32_t count) {
        std::set<std::string> reserved;
        for (uint32_t i = 0; i < count; i++) {
            EXPECT_TRUE(i == 0 || strcmp(words[i - 1], words[i]) < 0) << words[i];
            reserved.insert(words[i]);
        }
        uint32_t narrowed = 0, kept = 0;
        for (const kukptb &row : kukptbkw) {
            if (row.type_kukptb > 112) continue;
            const bool stays = reserved.count(row.keyp_kukptb) > 0;
            stays ? kept++ : narrowed++;
            std::string word = row.keyp_kukptb;
            word[1] = static_cast<char>(toupper(word[1]));
            EXPECT_EQ(types(ctx, attributes(word.c_str(), server, 0)),
                      std::to_string(stays ? row.type_kukptb : KUKP_T_WORD) + " 0");
        }
        EXPECT_TRUE(narrowed > 0 && kept > 0);
    };
    check(KUKA_SERVER_SS, kukakwss, KUKAKWSS_COUNT);
    check(KUKA_SERVER_DB2, kukakwdb2, KUKAKWDB2_COUNT);
}

TEST(Kuka, DefaultsComeBackInTheCallersRecord)
{
    context ctx;
    kuka record = {};
    record.origtxp_kuka = "a";
    record.weight_kuka = record.mode_kuka = record.state_kuka = 77; // without their bits
    record.srvrtype_kuka = KUKA_SERVER_SS;
    EXPECT_EQ(kukacreate(ctx, &record), nullptr); // no text is given
    EXPECT_EQ(record.mask_kuka, 0u);
    record.mask_kuka = KUKA_TEXT;
    auto *object = static_cast<kuk *>(kukacreate(ctx, &record));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->origtxp_kuk, reinterpret_cast<const unsigned char *>(record.origtxp_kuka));
    EXPECT_EQ(record.mask_kuka, 0x17Eu);
    EXPECT_EQ(std::tuple(record.weight_kuka, record.mode_kuka, record.state_kuka),
              std::tuple(1, 1, 0));
    EXPECT_EQ(record.srvrtype_kuka, 0u);
    kukpdestroy(ctx, object);
    record.state_kuka = 6;
    EXPECT_EQ(kukacreate(ctx, &record), nullptr);
    EXPECT_ERRORS(ctx, {"kukaa 2"});
}

TEST(Kuka, TheCallersCallbackSeesMappedTypesAndOnlyItsAnswerCounts)
{
    struct row {
        uint8_t answer;
        const char *stored;
        std::vector<uint32_t> expected, seen;
    } rows[] = {
        {KUKP_A_KEEP, "86 410 403 407 0", {86, 410, 403, 407}, {}},
        {KUKP_A_SKIP, "0", {86, 410, 403, 407}, {}},
        {KUKP_A_LAST, "86 17", {86}, {}},
    };
    context ctx;
    for (row &each : rows) {
        kuka record = attributes("select*= absolute browse", KUKA_SERVER_SS, 0);
        record.mask_kuka |= KUKA_CALLBACK | KUKA_CONTEXT;
        record.cctxp_kuka = &each;
        record.cfunp_kuka = [](void *cctxp, const unsigned char *, uint32_t, uint32_t type,
                               uint32_t *typep) {
            EXPECT_EQ(*typep, type);
            *typep = 999; // not used under a server type
            static_cast<row *>(cctxp)->seen.push_back(type);
            return static_cast<row *>(cctxp)->answer;
        };
        EXPECT_EQ(types(ctx, record), each.stored);
        EXPECT_EQ(each.seen, each.expected);
    }
}

TEST(Kuka, ClientTokensAreCopiedAndStandBeforeTheServers)
{
    context ctx;
    unsigned char text[] = {'*', '='};
    kukat mine = {text, 2, 900}, none = {nullptr, 0, 901};
    void *items[] = {&mine, nullptr, &none}; // an item that is null is no token
    void *clients = kulpcreate(ctx, 3, items);
    EXPECT_EQ(types(ctx, attributes("*= =*", KUKA_SERVER_SS, 0, clients)), "900 409 0");
    EXPECT_EQ(types(ctx, attributes("*= =*", KUKA_SERVER_DB2, 0, clients)), "900 384 380 0");
    void *copy = nullptr;
    EXPECT_EQ(kukaclctoklst(ctx, clients, &copy), 0u);
    text[0] = '?'; // the copy has bytes of its own
    EXPECT_EQ(kulpnitems(ctx, copy), 2);
    EXPECT_EQ(types(ctx, attributes("*= =*", KUKA_SERVER_SS, 0, copy)), "900 409 0");
    kukafrtoklist(ctx, copy);
    kukafrtoklist(ctx, nullptr);
    EXPECT_EQ(kukaclctoklst(ctx, nullptr, &copy), 0u);
    EXPECT_EQ(kulpnitems(ctx, copy), 0);
    kukafrtoklist(ctx, copy);

    ku::test::sweep_allocations([&](context &swept) {
        void *list = nullptr;
        const bool copied = kukaclctoklst(swept, clients, &list) == 0;
        EXPECT_EQ(copied, list != nullptr);
        kukafrtoklist(swept, list);
        kuka record = attributes("a", KUKA_SERVER_SS, 0, clients);
        kuka working = record;
        const bool built = kukaspss(swept, &record, &working) == 0;
        EXPECT_EQ(built, working.ctoklist_kuka != clients);
        if (built) kukafrtoklist(swept, working.ctoklist_kuka);
        return copied && built;
    });
    kulpdestroy(ctx, clients);
}

TEST(Kuka, WithoutMemoryForAWordTheAnalysisStops)
{
    ku::test::sweep_allocations([](context &ctx) {
        const std::string got = types(ctx, attributes("x , select", KUKA_SERVER_DB2, 0));
        EXPECT_TRUE(got == "none" || got == "403 375 86 0" || (ctx.failed() && got == "17")
                    || (ctx.failed() && got == "403 375 17"))
            << got;
        return got == "403 375 86 0";
    });
}
