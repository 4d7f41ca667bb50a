// support_test.cpp - what every other test relies on: mistakes are noticed
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include "kul.h"
#include "port/crt/crt.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;

TEST(Support, AContextNoticesWhatIsLeftBehindAndWrongErrors)
{
    EXPECT_NONFATAL_FAILURE(
        {
            context ctx;
            ctx->kuxnmalloc(ctx, 8);
        },
        "bytes: ");
    EXPECT_NONFATAL_FAILURE(
        {
            context ctx;
            kuxer1push(ctx, KULAA_RANGE, "x");
        },
        "nobody asked");
    context ctx;
    kuxer1push(ctx, KULAA_RANGE, "x");
    EXPECT_ERRORS(ctx, {"kulaa 3(x)"});
    kuxer0push(ctx, KULAA_RANGE);
    EXPECT_NONFATAL_FAILURE(EXPECT_ERRORS(ctx, {"kulaa 2"}), "kulaa 3");
}

TEST(Support, MovableMemoryMovesAndRefusesMisuse)
{
    context ctx;
    const kuxhandle handles[] = {ku::test::relocatable(ctx, "one"),
                                 ku::test::relocatable(ctx, "two")};
    for (const kuxhandle handle : handles) {
        void *before = ctx->kuxrmlock(ctx, handle);
        EXPECT_EQ(ctx->kuxrmlock(ctx, handle), before);
        EXPECT_NE(*handle, before);
        ctx->kuxrmunlock(ctx, handle);
        EXPECT_STREQ(static_cast<char *>(before), handle == handles[0] ? "one" : "two");
        ctx->kuxrmunlock(ctx, handle);
        EXPECT_NE(ctx->kuxrmlock(ctx, handle), before);
        EXPECT_NONFATAL_FAILURE(ctx->kuxrmendderef(ctx, handle), "without its beginning");
        ctx->kuxrmunlock(ctx, handle);
    }
    EXPECT_EQ(ctx->kuxrmgetstate(ctx, handles[0]), KUXRM_DEREF);
    EXPECT_NONFATAL_FAILURE(ctx->kuxrmbeginderef(ctx, handles[1]), "must be locked");
    ctx->kuxrmendderef(ctx, handles[1]);
    for (const kuxhandle handle : handles) ctx->kuxrmfree(ctx, handle);
    EXPECT_NONFATAL_FAILURE(ctx->kuxrmlock(ctx, handles[0]), "not a live handle");
}

TEST(Support, SweepsReachEveryCallAndEndWithARunThatMustSucceed)
{
    const ku::test::directory directory;
    int runs[3] = {0, 0, 0};
    ku::test::sweep_allocations([&](context &ctx) {
        runs[0]++;
        void *first = ctx->kuxnmalloc(ctx, 1);
        const kuxhandle second = first != nullptr ? ctx->kuxrmalloc(ctx, 1) : nullptr;
        ctx->kuxnmfree(ctx, first);
        ctx->kuxrmfree(ctx, second);
        return second != nullptr;
    });
    ku::test::sweep_basic_allocations([&](context &) {
        runs[1]++;
        return kuxdestroy(kuxcreate(nullptr)) == nullptr;
    });
    ku::test::sweep_system_calls([&](context &) {
        runs[2]++;
        const auto &calls = ku::crt::calls();
        const int file = calls.open(directory.path("x").c_str(), O_CREAT | O_RDWR, 0600);
        if (file < 0) return false;
        const bool written = calls.write(file, "ab", 2) == 2;
        return calls.close(file) == 0 && written;
    });
    EXPECT_EQ(runs[0], 3);
    EXPECT_GT(runs[1], 5);
    EXPECT_EQ(runs[2], static_cast<int>(ku::test::system_faults::names().size()) + 3);
    EXPECT_NONFATAL_FAILURE(ku::test::sweep_allocations([](context &) { return false; }),
                            "without any");

    ku::test::system_faults faults;
    faults.shorten(1);
    const int file = ku::crt::calls().open(directory.path("y").c_str(), O_CREAT | O_RDWR, 0600);
    EXPECT_EQ(ku::crt::calls().write(file, "ab", 2), 1);
    faults.fail_all("close", EIO);
    EXPECT_EQ(ku::crt::calls().close(file), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(faults.made("write"), 1);
}

} // namespace
