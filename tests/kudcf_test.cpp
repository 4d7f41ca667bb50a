// kudcf_test.cpp - caches: their files, geometry, indexes and cursors
#include "kudcf.h"

#include <unistd.h>

#include <algorithm>

#include "kudc_internal.h"
#include "kudcd.h"
#include "kudcm.h"
#include "kul.h"
#include "support/rows.h"
#include "support/sweep.h"

using ku::test::cache;
using ku::test::context;
using ku::test::descriptions;
using ku::test::goal;
using ku::test::part;
using ku::test::system_faults;
using ku::test::thread;
using ku::test::word;

static constexpr uint32_t text = KUDC_CHARACTER;

static kudccurdef *opened(const cache &held, int16_t index, const goal *key = nullptr,
                          uint16_t thread = 0)
{
    kudccurdef *cursor = nullptr;
    kudcfnwcurs(held.acmp, key == nullptr ? nullptr : &key->key, thread, index, 0, 0, &cursor);
    return cursor;
}

TEST(Kudcf, BlocksAreSizedForTheLongestKeysOfTheirLevel)
{
    static const struct {
        std::vector<uint32_t> longest; // of the columns of the level
        uint16_t level;
        uint16_t key, size, entries; // wanted
    } rows[] = {
        {{10}, 0, 20, 512, 11},
        {{10}, 1, 20, 256, 5},
        {{320}, 0, 328, 3072, 8},
        {{0}, 0, 8, 512, 16},
        {{1, 2, 6}, 1, 36, 512, 8}, // 9 and three column headers, rounded up
        {{1000, 1000}, 0, 2016, 16384, 8},
        {{16000}, 1, 16008, 64256, 4},
        {{16246}, 1, 16256, 65280, 4}, // cut: 65360 bytes would do
        {{65196}, 0, 65204, 65280, 1},
        {{65197}, 0, 65208, 65280, 0}, // a key of the longest values fits no block
        {{65448}, 1, 65456, 65280, 0},
        {{65449}, 0, 0, 0, 0}, // refused
        {{65546}, 1, 0, 0, 0},
        {{40000, 30000}, 1, 0, 0, 0},
    };
    for (const uint32_t type : {KUDC_RANDOM, KUDC_SEQNTL, KUDC_DYNBRK})
        for (const auto &row : rows) {
            context ctx;
            std::vector<std::pair<uint32_t, uint32_t>> columns = {{KUDC_RAW, 5}};
            std::vector<part> parts;
            if (row.level == 1) parts.push_back({0, 0});
            for (const uint32_t longest : row.longest) {
                parts.push_back({row.level, columns.size()});
                columns.emplace_back(KUDC_RAW, longest);
            }
            thread of(columns);
            of.with(type, parts);
            const cache held(ctx, {&of});
            SCOPED_TRACE(row.longest[0]);
            if (row.size == 0) {
                EXPECT_EQ(held.acmp, nullptr);
                EXPECT_ERRORS(ctx, {"kudca 9"});
                continue;
            }
            ASSERT_NE(held.acmp, nullptr);
            const kudcidhdef &level = held.index_of()->lvrt_kudcidx[row.level];
            EXPECT_EQ(level.kymx_kudcidh, row.key);
            EXPECT_EQ(level.size_kudcidh, row.size);
            EXPECT_EQ(level.free_kudcidh, row.size - 56);
            EXPECT_EQ(level.mxct_kudcidh, row.entries);
            EXPECT_EQ(level.levl_kudcidh, row.level);
            EXPECT_EQ(level.clct_kudcidh, row.longest.size());
            EXPECT_EQ(level.last_kudcidh, 1);
            EXPECT_EQ(held.index_of()->goal_kudcidx.arylevsize_kudckey[row.level], row.size);
            EXPECT_EQ(
                held.acmp->isiz_kudcacc,
                std::max<uint16_t>({row.size, 512, held.index_of()->lvrt_kudcidx[0].size_kudcidh}));
        }
}

TEST(Kudcf, ThreadsAndIndexesAreLaidOutAsDescribed)
{
    context ctx;
    thread first({{text, 10}, {KUDC_INTEGER, 4}, {text, 30}});
    first.with(KUDC_RANDOM, {{0, 0}, {1, 1}})
        .with(KUDC_SEQNTL, {{0, 0}, {1, 1}, {2, 2}})
        .with(KUDC_DYNBRK, {{0, 1}, {0, 0}, {1, 2}, {3, 1}}) // no level 2, a column twice
        .with(KUDC_RANDOM, {{0, 2}});
    thread second({{text, 30}});
    thread large({{KUDC_RAW, 65530}});
    thread larger({{text, 65530}});
    thread segmented({{KUDC_LONG, 10}});
    segmented[0].def.segm_kudxcol = 1;
    cache held(ctx);
    descriptions wanted({&first, &second, &large, &larger, &segmented});
    for (int i = 0; i < 2; i++)
        wanted.list[0].aryidd_kudctddt[0].arybva_kudciddt[i].split_kudcbva =
            static_cast<uint16_t>(i);
    ASSERT_EQ(held.create(wanted.list), 0u);
    wanted.list.clear();

    EXPECT_EQ(held.thread_of()->idlc_kudcthd, 3 + 4 + 5 + 2);
    EXPECT_EQ(held.index_of(1)->lvst_kudcidx, 3);
    EXPECT_EQ(held.index_of(2)->lvst_kudcidx, 7);
    EXPECT_EQ(held.index_of(2)->lvct_kudcidx, 4);
    EXPECT_EQ(held.index_of(2)->lvcl_kudcidx[0], 2);
    EXPECT_EQ(held.index_of(2)->lvcl_kudcidx[2], 0);
    EXPECT_EQ(held.index_of(2)->lvwd_kudcidx[0], 14);
    const struct {
        uint32_t longest;
        int32_t buffered;
    } rows[] = {{44 + 15 + 2, 1}, {36, 1}, {65535, 1}, {65536, 0}, {16, 0}};
    for (std::size_t t = 0; t < 5; t++) {
        EXPECT_EQ(held.thread_of(t)->mlen_kudcthd, rows[t].longest);
        EXPECT_EQ(held.thread_of(t)->useb_kudcthd, rows[t].buffered);
        EXPECT_EQ(held.thread_of(t)->frst_kudcthd, -1);
    }
    EXPECT_EQ(held.acmp->bufs_kudcacc, 65535u);

    // Roots lie one behind the other; the first is the template of its level, byte for byte.
    EXPECT_EQ(held.index_of(0)->tinf_kudcidx.rinf_kudcidx.root_kudcridx, 0);
    EXPECT_EQ(held.index_of(3)->tinf_kudcidx.rinf_kudcidx.root_kudcridx, 512);
    EXPECT_EQ(held.acmp->nxio_kudcacc, 512 + 768);
    const auto root = [](int32_t at, int size, int key, int entries, int last, int split) {
        return word(0) + word(at) + word(-1) + word(-1) + word(0) + word(size, 2)
               + word(size - 56, 2) + word(0, 2) + word(key, 2) + word(entries, 2) + word(1, 2)
               + word(0) + word(last) + word(-1) + word(split) + word(1) + word(-1)
               + std::string(static_cast<std::size_t>(size) - 56, '\0');
    };
    EXPECT_EQ(held.bytes(held.acmp->idxf_kudcacc, 0, 1280),
              root(0, 512, 20, 11, 0, 0) + root(512, 768, 40, 11, 1, 0));
    EXPECT_EQ(held.index_of(0)->tinf_kudcidx.rinf_kudcidx.splt_kudcridx[1], 1);

    const kudcsidxdef &chains = held.index_of(1)->tinf_kudcidx.sinf_kudcidx;
    for (const kudcsposdef *end : {&chains.head_kudcsidx, &chains.tail_kudcsidx})
        for (uint16_t l = 0; l < 3; l++) {
            EXPECT_EQ(end->cloc_kudcspos.apos_kudcscl[l], -1);
            EXPECT_EQ(end->cloc_kudcspos.kpos_kudcscl[l], -1);
            EXPECT_EQ(end->ckey_kudcspos.arybva_kudckey[l].len_kudcbva, 0u);
        }
    const kudcbidxdef &breaks = held.index_of(2)->tinf_kudcidx.binf_kudcidx;
    kudcbvadef *keys = breaks.keyp_kudcbidx->arybva_kudckey;
    EXPECT_EQ(breaks.abvap_kudcbidx[0], keys + 1);
    EXPECT_EQ(breaks.abvap_kudcbidx[1], keys) << "the first of two";
    EXPECT_EQ(breaks.abvap_kudcbidx[2], keys + 2);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(keys[i].len_kudcbva, keys[i].col_kudcbva->maxlen_kudxcol)
            << "a copy of the goal key";

    const struct {
        uint16_t thread;
        int16_t index;
        std::vector<uint16_t> offsets;
    } infos[] = {{0, 0, {0, 1, 2}}, {0, 2, {0, 2, 3, 3, 4}}, {1, 7, {0}}};
    for (const auto &info : infos) {
        uint16_t levels;
        uint16_t *offsets;
        ASSERT_EQ(kudcfginf(held.acmp, info.thread, info.index, &levels, &offsets), 0u);
        EXPECT_EQ(std::vector<uint16_t>(offsets, offsets + levels), info.offsets);
        ctx->kuxnmfree(ctx, offsets);
    }
    uint16_t levels;
    uint16_t *offsets;
    EXPECT_EQ(kudcfginf(held.acmp, 0, 4, &levels, &offsets), KUVAA_MISSING);
    EXPECT_EQ(kudcfginf(held.acmp, 0, -1, &levels, &offsets), KUVAA_MISSING);
    EXPECT_EQ(kudcfginf(held.acmp, 5, 0, &levels, &offsets), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21", "kuvaa 21"});
}

TEST(Kudcf, WhatCannotBeMadeIsRefusedWithItsCode)
{
    static constexpr struct {
        const char *what;
        void (*spoil)(kudctddtdef &wanted, thread &of);
        const char *error; // null: it is made
    } rows[] = {
        {"nothing", [](kudctddtdef &, thread &) {}, nullptr},
        {"no columns", [](kudctddtdef &w, thread &) { w.arycol_kudctddt = nullptr; }, "kuvaa 21"},
        {"null column", [](kudctddtdef &w, thread &) { w.arycol_kudctddt[1] = nullptr; },
         "kuvaa 22"},
        {"no indexes", [](kudctddtdef &w, thread &) { w.aryidd_kudctddt = nullptr; }, "kuvaa 21"},
        {"no key columns",
         [](kudctddtdef &w, thread &) { w.aryidd_kudctddt[0].arybva_kudciddt = nullptr; },
         "kuvaa 21"},
        {"second index of no columns",
         [](kudctddtdef &w, thread &) { w.aryidd_kudctddt[1].numbva_kudciddt = 0; }, "kuvaa 22"},
        {"type", [](kudctddtdef &w, thread &) { w.aryidd_kudctddt[1].idxt_kudciddt = 2; },
         "kudca 10"},
        {"key without a column",
         [](kudctddtdef &w, thread &) {
             w.aryidd_kudctddt[1].arybva_kudciddt[1].col_kudcbva = nullptr;
         },
         "kuvaa 22"},
        {"levels down",
         [](kudctddtdef &w, thread &) {
             w.aryidd_kudctddt[1].arybva_kudciddt[0].level_kudcbva = 2;
         },
         "kuvaa 22"},
        {"segmented key", [](kudctddtdef &, thread &t) { t[1].def.segm_kudxcol = 1; }, "kuvaa 22"},
        {"too many levels",
         [](kudctddtdef &w, thread &) {
             w.aryidd_kudctddt[1].arybva_kudciddt[1].level_kudcbva = 65535;
         },
         "kuvaa 22"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        context ctx;
        thread of({{text, 10}, {text, 20}});
        of.with(KUDC_RANDOM, {{0, 0}}).with(KUDC_SEQNTL, {{0, 0}, {1, 1}});
        cache held(ctx);
        descriptions wanted({&of});
        row.spoil(wanted.list[0], of);
        held.create(wanted.list);
        EXPECT_EQ(held.acmp == nullptr, row.error != nullptr);
        if (row.error != nullptr) {
            EXPECT_ERRORS(ctx, {row.error});
        }
    }
    context ctx;
    thread of({{text, 10}});
    of.with(KUDC_RANDOM, {}).with(KUDC_RANDOM, {{0, 0}});
    cache held(ctx, {&of});
    EXPECT_EQ(held.thread_of()->idxc_kudcthd, 0) << "the first index has no key columns";
    EXPECT_EQ(held.dir.names().size(), 2u);
    held.destroy();

    auto *made = reinterpret_cast<kudcaccdef *>(&ctx);
    EXPECT_EQ(kudcftcreate(ctx, nullptr, held.skuf, "", "", 0, nullptr, &made), 0u);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(kudcfdestroy(made), 0u);
    EXPECT_EQ(kudcftcreate(ctx, nullptr, held.skuf, "", "", 1, nullptr, &made), KUVAA_MISSING);
    EXPECT_EQ(kudcfcreate(ctx, nullptr, held.skuf, "", "", 1, nullptr, &made), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21"});
    const std::string lost = held.dir.path("none/");
    const descriptions wanted({&of});
    EXPECT_EQ(kudcftcreate(ctx, nullptr, held.skuf, (held.dir.path() + "/").c_str(), lost.c_str(),
                           1, wanted.list.data(), &made),
              SKUFA_NOTFOUND);
    ctx.clear();
    // A link at the next name is another's, wherever it leads.
    const std::string busy = held.dir.path() + "/";
    for (const char *const to : {"/nowhere/at/all", "/"}) {
        char link[16];
        std::snprintf(link, sizeof link, "%03d%05d", int{static_cast<skuf *>(held.skuf)->skuftnum},
                      static_cast<int>(getpid()) % 65536);
        ASSERT_EQ(symlink(to, held.dir.path(link).c_str()), 0);
        EXPECT_EQ(kudcftcreate(ctx, nullptr, held.skuf, busy.c_str(), busy.c_str(), 1,
                               wanted.list.data(), &made),
                  SKUFA_OPEN);
        ctx.clear();
        EXPECT_EQ(held.dir.names(), std::vector<std::string>{link});
        unlink(held.dir.path(link).c_str());
    }
    for (int i = 0; i < 1000; i++) {
        char name[16];
        std::snprintf(name, sizeof name, "%03d%05d", i, static_cast<int>(getpid()) % 65536);
        held.dir.write(name, "");
    }
    EXPECT_EQ(kudcftcreate(ctx, nullptr, held.skuf, busy.c_str(), busy.c_str(), 1,
                           wanted.list.data(), &made),
              SKUFA_NULLNAME)
        << "no name is free";
    EXPECT_EQ(made, nullptr);
    ctx.clear();
    for (const std::string &name : held.dir.names()) unlink(held.dir.path(name).c_str());
}

TEST(Kudcf, UntypedDescriptionsGiveRandomIndexesAndASecondContextReleases)
{
    context ctx;
    static int released;
    released = 0;
    kux second = *static_cast<kux *>(ctx);
    second.kuxnmclientdata = static_cast<kux *>(ctx);
    second.kuxnmfree = [](kux *self, void *block) -> void * {
        released++;
        auto *first = static_cast<kux *>(self->kuxnmclientdata);
        return first->kuxnmfree(first, block);
    };
    thread of({{text, 10}, {text, 20}});
    goal keys(of, {{0, 0}, {1, 1}}, {});
    kudcidddef indexes[] = {{9, 2, keys.key.arybva_kudckey, 9}, {9, 1, keys.key.arybva_kudckey, 9}};
    kudxcoldef *columns[] = {&of[0].def, &of[1].def};
    const kudctdddef wanted[] = {
        {2, 1, columns, indexes}, {1, 0, columns, nullptr}, {2, 2, columns, indexes}};
    cache held(ctx);
    const std::string prefix = held.dir.path() + "/";
    ASSERT_EQ(
        kudcfcreate(ctx, &second, held.skuf, prefix.c_str(), prefix.c_str(), 3, wanted, &held.acmp),
        0u);
    EXPECT_EQ(held.thread_of(0)->idxc_kudcthd, 1);
    EXPECT_EQ(held.thread_of(1)->idxc_kudcthd, 0);
    EXPECT_EQ(held.thread_of(2)->idxc_kudcthd, 2);
    EXPECT_EQ(held.index_of(1, 2)->idxt_kudcidx, KUDC_RANDOM);
    EXPECT_EQ(held.index_of(1, 2)->lvct_kudcidx, 1);
    EXPECT_EQ(released, 0) << "what creation needs for itself is the first context's";
    const int before = ctx.live();
    const int32_t first = released;
    EXPECT_EQ(held.destroy(), 0u);
    EXPECT_GT(released - first, (before - ctx.live()) / 2);
}

// Rows whose keys of two levels ascend; each index of the three types has them.
static void fill(const cache &held, thread &of)
{
    for (int row = 0; row < 3; row++) {
        of.set({"key", std::to_string(row)});
        EXPECT_EQ(kudcdstr(held.acmp, held.thread_of()), 0u);
        held.thread_of()->coun_kudcthd++;
    }
}

TEST(Kudcf, CursorsAreKeptForTheNextOfTheirIndex)
{
    context ctx;
    thread of({{text, 10}, {text, 2}});
    for (const uint32_t type : {KUDC_RANDOM, KUDC_SEQNTL, KUDC_DYNBRK})
        of.with(type, {{0, 0}, {1, 1}});
    const cache held(ctx, {&of});
    fill(held, of);
    for (int16_t index = 0; index < 3; index++) {
        SCOPED_TRACE(index);
        kudccurdef *first = opened(held, index);
        kudccurdef *second = opened(held, index);
        ASSERT_TRUE(first != nullptr && second != nullptr && first != second);
        EXPECT_EQ(held.acmp->curs_kudcacc, second);
        EXPECT_EQ(second->link_kudccur, first);
        EXPECT_EQ(kudcffrcurs(held.acmp, first), 0u);
        EXPECT_EQ(kudcffrcurs(held.acmp, second), 0u);
        const int live = ctx.live();

        // A short key, then a whole one in the same cursor, which has grown again.
        const goal shorter(of, {{0, 0}}, {"ke"});
        kudccurdef *again = opened(held, index, &shorter);
        EXPECT_EQ(again, first) << "first in, first out";
        EXPECT_EQ(again->keyp_kudccur->numbva_kudckey, 1);
        EXPECT_EQ(again->keyp_kudccur->numlevsize_kudckey, 1);
        EXPECT_EQ(shorter.key.arylevsize_kudckey, nullptr);
        EXPECT_EQ(ctx.live(), live);
        again->curleft_kudccur = again->currnum_kudccur = 9;
        ku::cache::held_row(again) = 33;
        kudcffrcurs(held.acmp, opened(held, index)); // takes the second, gives it back
        EXPECT_EQ(kudcffrcurs(held.acmp, again), 0u);
        kudcffrcurs(held.acmp, opened(held, index)); // the second again
        const goal whole(of, {{0, 0}, {1, 1}}, {"key", "1"});
        EXPECT_EQ(opened(held, index, &whole), first);
        EXPECT_EQ(first->keyp_kudccur->numbva_kudckey, 2);
        EXPECT_EQ(first->keyp_kudccur->numlevsize_kudckey, 2);
        EXPECT_EQ(first->keyp_kudccur->arylevsize_kudckey[1], 256);
        EXPECT_EQ(first->keyp_kudccur->arybva_kudckey[1].val_kudcbva[0], '1');
        EXPECT_EQ(first->keyp_kudccur->arybva_kudckey[1].split_kudcbva, 0);
        EXPECT_EQ(first->currnum_kudccur, 0);
        EXPECT_EQ(first->curleft_kudccur, 0);
        EXPECT_EQ(first->nxtradr_kudccur, -1);
        EXPECT_EQ(ku::cache::held_row(first), -1);
        EXPECT_EQ(ctx.live(), live);
        EXPECT_EQ(kudcffrcurs(held.acmp, first), 0u);
        EXPECT_EQ(ctx.live(), live);
    }

    // Given back twice, with and without live cursors; a stranger's is freed.
    kudccurdef *kept = opened(held, 0);
    kudccurdef *live = opened(held, -1);
    EXPECT_EQ(kudcffrcurs(held.acmp, kept), 0u);
    EXPECT_EQ(kudcffrcurs(held.acmp, kept), KUVAA_NOVALUE);
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
    EXPECT_EQ(kulpnitems(ctx, held.index_of()->curmemlst_kudcidx), 2);
    kudccurdef *unknown = opened(held, 0);
    held.acmp->curs_kudcacc = live;
    live->link_kudccur = nullptr;
    EXPECT_EQ(kudcffrcurs(held.acmp, unknown), KUVAA_NOVALUE);
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
    EXPECT_EQ(kudcffrcurs(held.acmp, live), 0u);
    EXPECT_EQ(kudcffrcurs(held.acmp, kept), 0u) << "no cursor is live";
    EXPECT_EQ(kulpnitems(ctx, held.index_of()->curmemlst_kudcidx), 2);
    EXPECT_EQ(kudcffrcurs(held.acmp, nullptr), 0u);

    // Another cache's goes back there, where keys are longer or there are none.
    thread longer({{text, 200}});
    longer.with(KUDC_SEQNTL, {{0, 0}});
    const cache other(ctx, {&longer});
    live = opened(held, 0);
    kudccurdef *foreign = opened(other, 0);
    kudccurdef *unkeyed = opened(other, -1);
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(kudcffrcurs(held.acmp, foreign), KUVAA_NOVALUE);
        EXPECT_ERRORS(ctx, {"kuvaa 22"});
    }
    EXPECT_EQ(kudcffrcurs(held.acmp, unkeyed), KUVAA_NOVALUE);
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
    EXPECT_EQ(other.acmp->curs_kudcacc, nullptr);
    EXPECT_EQ(opened(other, 0), foreign);
    for (int i = 0; i < 3; i++) EXPECT_NE(opened(held, 0), foreign);

    // A cursor that cannot be kept is freed; nobody is told.
    kudccurdef *last = opened(held, 1);
    kulplock(ctx, held.index_of(1)->curmemlst_kudcidx);
    const int before = ctx.live();
    EXPECT_EQ(kudcffrcurs(held.acmp, last), 0u) << "the list is locked";
    EXPECT_LT(ctx.live(), before);
    kulpunlock(ctx, held.index_of(1)->curmemlst_kudcidx);
}

TEST(Kudcf, NewCursorsBeginBeforeTheirFirstRow)
{
    context ctx;
    thread of({{text, 10}, {text, 2}});
    for (const uint32_t type : {KUDC_RANDOM, KUDC_SEQNTL, KUDC_DYNBRK})
        of.with(type, {{0, 0}, {1, 1}});
    const cache held(ctx, {&of});
    for (int16_t index = 0; index < 3; index++) {
        kudccurdef *cursor = opened(held, index);
        ASSERT_NE(cursor, nullptr) << "an empty index is no failure";
        EXPECT_EQ(cursor->curleft_kudccur, 0);
        EXPECT_EQ(cursor->keyp_kudccur->arybva_kudckey[0].set_kudcbva, 0);
        EXPECT_EQ(cursor->keyp_kudccur->numbva_kudckey, 2);
    }
    fill(held, of);

    kudccurdef *cursor;
    ASSERT_EQ(kudcfnwcurs(held.acmp, nullptr, 0, -1, 2, 44, &cursor), 0u);
    EXPECT_EQ(cursor->currnum_kudccur, 2);
    EXPECT_EQ(cursor->nxtradr_kudccur, 44);
    EXPECT_EQ(cursor->curleft_kudccur, 3);
    EXPECT_EQ(cursor->currpos_kudccur, 0);
    EXPECT_EQ(cursor->keyp_kudccur, nullptr);
    ASSERT_EQ(kudcfnwcurs(held.acmp, nullptr, 0, -1, 0, 44, &cursor), 0u);
    EXPECT_EQ(cursor->nxtradr_kudccur, -1);

    // Two leaves of the first level, the leftmost emptied; the key found owns a second level.
    const kudcidxdef *index = held.index_of();
    unsigned char block[512];
    const auto leaf = [&](uint16_t level, int32_t at, const std::string &key, kudcinddef entry) {
        ku::cache::make_block(block, index->lvrt_kudcidx[level], at);
        kudcidhdef header = ku::cache::header_of(block);
        std::string stored = word(static_cast<int>(key.size())) + word(1, 2) + word(0, 2) + key;
        stored.resize((stored.size() + 3) / 4 * 4);
        entry.offs_kudcind = static_cast<uint16_t>(header.size_kudcidh - stored.size());
        std::memcpy(block + entry.offs_kudcind, stored.data(), stored.size());
        ku::cache::set_entry(block, 0, entry);
        header.kyct_kudcidh = 1;
        header.free_kudcidh = static_cast<uint16_t>(header.free_kudcidh - 20 - stored.size());
        ku::cache::set_header(block, header);
        held.put(held.acmp->idxf_kudcacc, at,
                 {reinterpret_cast<char *>(block), header.size_kudcidh});
    };
    const int32_t empty = 512, full = 1024, below = 1536;
    held.acmp->nxio_kudcacc = 2048;
    leaf(0, full, "key.", {5, 5, below, 0, 0, 0});
    leaf(1, below, "12", {7, 9, -1, 3, 0, 0});
    kudcidhdef head = index->lvrt_kudcidx[0];
    ku::cache::make_block(block, head, empty);
    head.addr_kudcidh = empty;
    head.rsib_kudcidh = full;
    ku::cache::set_header(block, head);
    held.put(held.acmp->idxf_kudcacc, empty, {reinterpret_cast<char *>(block), 512});
    head.addr_kudcidh = head.leaf_kudcidh = 0;
    head.less_kudcidh = empty;
    ku::cache::set_header(block, head);
    held.put(held.acmp->idxf_kudcacc, 0, {reinterpret_cast<char *>(block), 512});
    cursor = opened(held, 0);
    ASSERT_NE(cursor, nullptr);
    EXPECT_EQ(cursor->curleft_kudccur, 3);
    const kudcbvadef *keys = cursor->keyp_kudccur->arybva_kudckey;
    EXPECT_EQ(keys[0].set_kudcbva, 1);
    EXPECT_EQ(std::string(keys[0].val_kudcbva, keys[0].val_kudcbva + keys[0].len_kudcbva), "key.");
    EXPECT_EQ(std::string(keys[1].val_kudcbva, keys[1].val_kudcbva + keys[1].len_kudcbva), "12");

    kudccurdef *copy;
    cursor->currnum_kudccur = 2;
    cursor->currpos_kudccur = 70;
    cursor->curradr_kudccur = 70;
    cursor->nxtradr_kudccur = 80;
    ku::cache::held_row(cursor) = 90;
    ASSERT_EQ(kudcfcpcurs(held.acmp, cursor, &copy), 0u);
    EXPECT_EQ(copy->currnum_kudccur, 2);
    EXPECT_EQ(copy->currpos_kudccur, 70);
    EXPECT_EQ(copy->curleft_kudccur, 3);
    EXPECT_EQ(copy->nxtradr_kudccur, 70) << "the row that the source is on";
    EXPECT_EQ(copy->curradr_kudccur, -1);
    EXPECT_EQ(ku::cache::held_row(copy), 90);
    EXPECT_NE(copy->keyp_kudccur->arybva_kudckey[0].val_kudcbva, keys[0].val_kudcbva);
    EXPECT_EQ(copy->keyp_kudccur->arybva_kudckey[1].len_kudcbva, 2u);
    for (int16_t i = 1; i < 3; i++) {
        kudccurdef *source = opened(held, i);
        ASSERT_NE(source, nullptr);
        auto *chain = static_cast<kudcsipsdef *>(source->ipsh_kudccur);
        auto *rows = static_cast<kudcbipsdef *>(source->ipsh_kudccur);
        if (i == 1)
            chain->spos_kudcsips.cloc_kudcspos.kpos_kudcscl[1] = 17;
        else
            rows->next_kudcbips = 17;
        ASSERT_EQ(kudcfcpcurs(held.acmp, source, &copy), 0u);
        chain = static_cast<kudcsipsdef *>(copy->ipsh_kudccur);
        rows = static_cast<kudcbipsdef *>(copy->ipsh_kudccur);
        EXPECT_EQ(i == 1 ? chain->spos_kudcsips.cloc_kudcspos.kpos_kudcscl[1] : rows->next_kudcbips,
                  17);
    }
    cache other(ctx, {&of});
    EXPECT_EQ(kudcfcpcurs(other.acmp, cursor, &copy), KUVAA_MISSING) << "another cache's";
    EXPECT_EQ(kudcfcpcurs(held.acmp, nullptr, &copy), KUVAA_MISSING);
    EXPECT_EQ(kudcfnwcurs(held.acmp, nullptr, 1, -1, 0, 0, &copy), KUVAA_MISSING);
    EXPECT_EQ(kudcfnwcurs(held.acmp, nullptr, 0, 3, 0, 0, &copy), KUVAA_MISSING);
    held.index_of(2)->idxt_kudcidx = 2;
    EXPECT_EQ(kudcfnwcurs(held.acmp, nullptr, 0, 2, 0, 0, &copy), KUDCA_TYPE);
    held.index_of(2)->idxt_kudcidx = KUDC_DYNBRK;
    EXPECT_EQ(copy, nullptr);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21", "kuvaa 21", "kuvaa 21", "kudca 10"});
}

TEST(Kudcf, GoalsThatDoNotFitTheirIndexAreRefused)
{
    context ctx;
    thread of({{text, 10}, {text, 4}, {text, 8}});
    of.with(KUDC_SEQNTL, {{0, 1}, {0, 0}, {1, 2}});
    const cache held(ctx, {&of});
    const std::string five = "12345", eleven = "12345678901", twelve = "123456789012";
    const struct {
        std::vector<part> parts;
        std::vector<std::string> values;
        bool good;
    } rows[] = {
        {{{0, 1}, {0, 0}, {1, 2}}, {five, eleven, ""}, true},
        {{}, {}, true},
        {{{1, 2}}, {"123456789"}, true}, // in the buffer of a shorter column
        {{{0, 1}, {1, 2}}, {"1", "123456789"}, true},
        {{{1, 2}}, {"1234567890"}, false},
        {{{0, 1}}, {"123456"}, false},
        {{{0, 1}, {0, 0}}, {five, twelve}, false},
        {{{0, 1}, {0, 0}, {0, 2}}, {"1", "1", "1"}, false}, // too many for the level
        {{{0, 1}, {1, 2}, {1, 2}}, {"1", "1", "1"}, false},
        {{{1, 2}, {0, 1}}, {"1", "1"}, false},
        {{{2, 2}}, {"1"}, false},
        {{{0, 1}}, {}, false}, // no buffer
        {{{0, 1}, {0, 0}, {1, 2}, {1, 2}}, {"1", "1", "1", "1"}, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        goal key(of, row.parts, row.values);
        uint16_t none[1] = {};
        key.key.arylevsize_kudckey = none; // a client's sizes mean nothing
        key.key.numlevsize_kudckey = 99;
        kudccurdef *cursor = opened(held, 0, &key);
        EXPECT_EQ(cursor != nullptr, row.good);
        EXPECT_EQ(kuxercode(ctx), row.good ? 0 : KUVAA_NOVALUE);
        ctx.clear();
        if (cursor == nullptr) continue;
        const kudckeydef *found = cursor->keyp_kudccur;
        ASSERT_EQ(found->numbva_kudckey, row.parts.size());
        for (std::size_t i = 0; i < row.values.size(); i++)
            EXPECT_EQ(std::string(found->arybva_kudckey[i].val_kudcbva,
                                  found->arybva_kudckey[i].val_kudcbva + row.values[i].size()),
                      row.values[i]);
        kudcffrcurs(held.acmp, cursor);
    }
    goal null(of, {{0, 1}}, {"1"});
    null.parts_[0].col_kudcbva = nullptr;
    EXPECT_EQ(opened(held, 0, &null), nullptr);
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
}

TEST(Kudcf, GoalsAreMeasuredByTheColumnsOfTheirIndexAtItsCreation)
{
    static constexpr struct {
        std::size_t column; // that the goal names
        uint32_t longest;   // of that column now
        uint32_t length;
        unsigned char first; // byte of the value
        int8_t null;
        bool good;
    } rows[] = {
        {1, 100, 0, 90, 0, false}, // a length in front
        {1, 100, 0, 22, 0, false}, {1, 100, 0, 21, 0, true},  {1, 100, 0, 90, KUDC_NULL, true},
        {1, 9, 0, 90, 0, true}, // no more than the buffer has
        {1, 3, 8, 90, 0, true},    {1, 3, 22, 90, 0, true},   {1, 100, 23, 90, 0, false},
        {0, 3, 8, 90, 0, true},    {0, 100, 0, 90, 0, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        context ctx;
        thread of({{KUDC_NUMBER, 21}, {KUDC_NUMBER, 100}});
        of.with(KUDC_RANDOM, {{0, 0}});
        const cache held(ctx, {&of});
        goal key(of, {{0, row.column}}, {std::string(101, static_cast<char>(row.first))});
        of[row.column].def.maxlen_kudxcol = row.longest;
        key.parts_[0].len_kudcbva = row.length;
        key.parts_[0].valnul_kudcbva = row.null;
        kudccurdef *cursor = opened(held, 0, &key);
        kudccurdef *copy = nullptr;
        ASSERT_EQ(cursor != nullptr, row.good);
        EXPECT_EQ(kuxercode(ctx), row.good ? 0 : KUVAA_NOVALUE);
        ctx.clear();
        if (cursor == nullptr) continue;
        EXPECT_EQ(kudcfcpcurs(held.acmp, cursor, &copy), 0u);
        EXPECT_EQ(copy->keyp_kudccur->arybva_kudckey[0].len_kudcbva, row.length);
        of[row.column].def.maxlen_kudxcol = 100; // the cursor's buffer is as it was
        int32_t state;
        EXPECT_EQ(kudcmksrch(held.acmp, copy, 0, KUDC_CURRENT, &state), 0u);
        EXPECT_EQ(kudcfcpcurs(held.acmp, cursor, &copy), 0u);
    }
}

// Makes a context's memory begin as anything but zeros.
static void soil(context &ctx)
{
    static kuxnmallocfn clean;
    if (clean == nullptr) clean = ctx->kuxnmalloc;
    ctx->kuxnmalloc = [](kux *self, uint32_t size) -> void * {
        void *block = clean(self, size);
        if (block != nullptr) std::memset(block, 0xA5, size);
        return block;
    };
}

// Everything that allocates or touches files; the fixture looks for leaks and scratch files.
TEST(Kudcf, FailuresOnTheWayLeaveNothingBehind)
{
    const auto scenario = [](context &ctx) {
        thread of({{text, 10}, {text, 2}});
        for (const uint32_t type : {KUDC_RANDOM, KUDC_SEQNTL, KUDC_DYNBRK})
            of.with(type, {{0, 0}, {1, 1}});
        cache held(ctx, {&of}, 2);
        if (held.acmp == nullptr) {
            EXPECT_NE(held.status, 0u);
            EXPECT_EQ(held.status, kuxercode(ctx));
            EXPECT_EQ(held.dir.names(), std::vector<std::string>());
            return false;
        }
        bool all = true;
        const goal key(of, {{0, 0}}, {"key"});
        for (int16_t index = -1; index < 3; index++)
            for (int round = 0; round < 3; round++) {
                kudccurdef *cursor = opened(held, index, round == 1 ? &key : nullptr);
                kudccurdef *copy = nullptr;
                if (cursor != nullptr) kudcfcpcurs(held.acmp, cursor, &copy);
                all = all && copy != nullptr;
                EXPECT_TRUE(copy != nullptr || kuxercode(ctx) != 0);
                ctx.clear();
                EXPECT_EQ(kudcffrcurs(held.acmp, copy), 0u);
                if (round == 2) continue; // dies with the cache
                EXPECT_EQ(kudcffrcurs(held.acmp, cursor), 0u);
            }
        return held.destroy() == 0 && all;
    };
    ku::test::sweep_allocations([&](context &ctx) {
        soil(ctx);
        return scenario(ctx);
    });
    ku::test::sweep_basic_allocations(scenario);
    ku::test::sweep_calls(scenario);
}

TEST(Kudcf, TheEndDeletesBothFilesWhateverIsOnTheStack)
{
    context ctx;
    thread of({{text, 10}});
    cache held(ctx, {&of});
    opened(held, -1);
    kuxer0push(ctx, KUDCA_TYPE);
    EXPECT_EQ(held.destroy(), 0u);
    EXPECT_EQ(held.dir.names(), std::vector<std::string>());
    EXPECT_ERRORS(ctx, {"kudca 10"});
    for (int n = 1; n <= 2; n++) { // no memory for a level of the error stack
        ASSERT_EQ(held.create(descriptions({&of}).list), 0u);
        kuxer0push(ctx, KUDCA_TYPE);
        ku::test::fail_basic_from_now(n);
        EXPECT_EQ(held.destroy(), 0u);
        EXPECT_TRUE(ku::test::basic_failed());
        ku::test::fail_basic_from_now(0);
        EXPECT_EQ(held.dir.names(), std::vector<std::string>());
        EXPECT_ERRORS(ctx, {"kudca 10"});
    }
    context full("ascii", 2); // no room for another error besides
    cache last(full, {&of});
    kuxer0push(full, KUDCA_TYPE);
    kuxer0push(full, KUVAA_NOMEM);
    {
        system_faults faults;
        faults.fail_from_now("close", 1, EIO);
        ku::test::fail_basic_from_now(1);
        EXPECT_EQ(last.destroy(), 0u);
        ku::test::fail_basic_from_now(0);
    }
    EXPECT_ERRORS(full, {"kudca 10", "kuvaa 16"});
    for (int n = 1; n <= 2; n++) {
        ASSERT_EQ(held.create(descriptions({&of}).list), 0u);
        system_faults faults;
        faults.fail_from_now("close", n, EIO);
        EXPECT_EQ(held.destroy(), SKUFA_CLOSE);
        EXPECT_EQ(held.dir.names(), std::vector<std::string>());
        EXPECT_ERRORS(ctx, {"skufa 4"});
    }
}
