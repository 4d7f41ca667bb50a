// sku_test.cpp - the environment's values and the preference files' names
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
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

TEST(Sku, AValueLongerThanABlockCanBeIsRefused)
{
    if (sizeof(std::size_t) < 8) GTEST_SKIP() << "there is none";
    // One piece of memory 65 times in a row, and zeros: a value of 4 GiB - 1 bytes.
    constexpr off_t piece = 1 << 26;
    constexpr auto size = static_cast<std::size_t>(piece);
    constexpr int flags = MAP_ANONYMOUS | MAP_PRIVATE | MAP_NORESERVE;
    const int memory = memfd_create("value", 0);
    ASSERT_EQ(ftruncate(memory, piece), 0);
    void *all = mmap(nullptr, 66 * size, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (all == MAP_FAILED) GTEST_SKIP() << "no room";
    auto *bytes = static_cast<char *>(all);
    for (std::size_t i = 0; i < 65; i++)
        mmap(bytes + i * size, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0);
    std::memset(bytes, 'v', size);
    putenv(static_cast<char *>(
        std::memcpy(bytes + size - 13, "KU_TEST_VALUE=", 14))); // its name ends a piece
    {
        context ctx;
        EXPECT_EQ(sku_gev(ctx, "KU_TEST_VALUE"), nullptr) << "not an empty text";
    }
    unsetenv("KU_TEST_VALUE");
    munmap(all, 66 * size);
    close(memory);
}

TEST(Skup, PreferenceFilesAreNamedByTheirVariableOrRefused)
{
    const std::string longest(511, 'd');
    const struct {
        std::string global, user; // "-": not set
        uint16_t selector;
        uint32_t room;
        std::string wanted; // empty: refused
    } rows[] = {
        {"/g", "/u", SKUP_GLOBAL, 999, "/g/kugprefs.xdb"},
        {"/g", "/u/", 0, 999, "/u/kuuprefs.xdb"}, // any other selector is the user file
        {"/g", "c:\\u\\", SKUP_USER, 999, "c:\\u\\kuuprefs.xdb"},
        {"", "/u", SKUP_GLOBAL, 999, "kugprefs.xdb"},
        {"-", "/u", SKUP_GLOBAL, 999, ""},
        {"/g", "/u", SKUP_USER, 16, "/u/kuuprefs.xdb"}, // the NUL fits just so
        {"/g", "/u", SKUP_USER, 15, ""},
        {"/g", longest, SKUP_USER, 999, longest + "/kuuprefs.xdb"},
        {"/g", longest + "d", SKUP_USER, 999, ""}, // never cut
    };
    for (const auto &row : rows) {
        const variable global("KU_GPREFS", row.global == "-" ? nullptr : row.global.c_str());
        const variable user("KU_UPREFS", row.user);
        char name[999] = "untouched";
        EXPECT_EQ(skupfn(name, row.room, row.selector), row.wanted.empty() ? 1 : 0);
        EXPECT_EQ(name, row.wanted.empty() ? "untouched" : row.wanted);
    }
}
