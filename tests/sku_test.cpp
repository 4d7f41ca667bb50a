// sku_test.cpp - the environment's values and the preference files' names
#include <cstring>
#include <string>

#include "sku.h"
#include "skup.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

using ku::test::context;
using ku::test::variable;

TEST(Sku, AValueComesWholeWhateverItsLength)
{
    // The first try has room for 511 bytes; the block handed out has no byte to spare.
    for (const std::size_t length : {0u, 1u, 511u, 512u, 513u, 600u, 100000u}) {
        const std::string value(length, 'v');
        const variable set("KU_TEST_VALUE", value);
        ku::test::sweep_allocations([&](context &ctx) {
            const int before = ctx.live();
            char *got = sku_gev(ctx, "KU_TEST_VALUE");
            if (got == nullptr) return false;
            EXPECT_EQ(got, value);
            EXPECT_EQ(ctx.live(), before + 1) << "the work buffer is gone";
            ctx->kuxnmfree(ctx, got);
            return true;
        });
    }
}

TEST(Sku, WhatIsNotSetIsAnEmptyText)
{
    const variable unset("KU_TEST_VALUE", nullptr);
    const variable other("ku_test_value", "names are case-sensitive");
    context ctx;
    for (const char *name : {"KU_TEST_VALUE", "", static_cast<const char *>(nullptr)}) {
        char *got = sku_gev(ctx, name);
        EXPECT_STREQ(got, "");
        ctx->kuxnmfree(ctx, got);
    }
}

TEST(Skup, PreferenceFilesAreNamedByTheirVariableOrRefused)
{
    const std::string longest(511, 'd');
    const struct {
        const char *global, *user;
        uint16_t selector;
        uint32_t room;      // 0: as much as it takes
        std::string wanted; // empty: refused
    } rows[] = {
        {"/g", "/u", SKUP_GLOBAL, 0, "/g/kugprefs.xdb"},
        {"/g", "/u", SKUP_USER, 0, "/u/kuuprefs.xdb"},
        {"/g", "/u/", 0, 0, "/u/kuuprefs.xdb"}, // any other selector is the user file
        {"/g", "c:\\u\\", 0x1001, 0, "c:\\u\\kuuprefs.xdb"},
        {"", "/u", SKUP_GLOBAL, 0, "kugprefs.xdb"},
        {nullptr, "/u", SKUP_GLOBAL, 0, ""},
        {"/g", nullptr, SKUP_USER, 0, ""},
        {"/g", "/u", SKUP_USER, 16, "/u/kuuprefs.xdb"}, // the NUL fits just so
        {"/g", "/u", SKUP_USER, 15, ""},
        {"/g", longest.c_str(), SKUP_USER, 0, longest + "/kuuprefs.xdb"},
    };
    for (const auto &row : rows) {
        const variable global("KU_GPREFS", row.global);
        const variable user("KU_UPREFS", row.user);
        char name[1024] = "untouched";
        const uint16_t status = skupfn(name, row.room != 0 ? row.room : sizeof name, row.selector);
        EXPECT_EQ(status, row.wanted.empty() ? 1 : 0);
        EXPECT_EQ(name, row.wanted.empty() ? "untouched" : row.wanted);
    }
    const variable cut("KU_UPREFS", longest + "d");
    char name[1024];
    EXPECT_EQ(skupfn(name, sizeof name, SKUP_USER), 1) << "never cut";
}
