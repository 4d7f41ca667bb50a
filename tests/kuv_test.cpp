// kuv_test.cpp - virtual memory: handles, the pager behind them, and its swap file
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kuv_internal.h"
#include "kuxml.h"
#include "skuf.h"
#include "skufv.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;
using ku::test::dice;

namespace
{

using text = std::string;

kuvcl *cell_of(void *handle) { return static_cast<kuvcl *>(handle); }
bool resident(void *handle) { return (cell_of(handle)->flags_kuvcl & KUV_RESIDENT) != 0; }

// ---- what must hold between two operations ----

text file_bytes(kuv *memory, uint32_t offset, uint32_t length)
{
    text bytes(length, '?');
    auto *file = static_cast<skufv *>(memory->cfpt_kuv);
    uint32_t status = 1;
    for (int tries = 0; status != 0 && tries < 2; tries++) { // a fault may hit the test itself
        if (tries != 0) kuxerclear(memory->kuxp_kuv);
        file->skufvpos = offset;
        status =
            skufvmove(memory->kuxp_kuv, memory->skufh_kuv, file, bytes.data(), length, SKUFV_GET);
    }
    EXPECT_EQ(status, 0u);
    return bytes;
}

text words(uint32_t first, uint32_t second)
{
    text bytes(8, 0);
    std::memcpy(bytes.data(), &first, 4);
    std::memcpy(bytes.data() + 4, &second, 4);
    return bytes;
}

// Blocks tile a segment, no two free ones side by side, each of an object that knows it; the free
// list has the free ones, by size, and their number. Returns how many objects are in it.
int check_segment(const kuv *memory, int number)
{
    const kuvsh &segment = memory->segs_kuv[number];
    if (segment.fmad_kuvsh == nullptr) return 0;
    auto *start = reinterpret_cast<unsigned char *>(segment.fmad_kuvsh);
    const auto *end = reinterpret_cast<kuvfrdef *>(start + memory->size_kuv);
    EXPECT_EQ(segment.lmad_kuvsh, end + 1);
    std::set<const kuvfrdef *> free_blocks;
    int objects = 0;
    bool was_free = false;
    const kuvfrdef *block = segment.fmad_kuvsh;
    while (block < end && block->size_kuvfr != 0) {
        const bool is_free = block->size_kuvfr < 0;
        EXPECT_FALSE(is_free && was_free);
        EXPECT_EQ(block->size_kuvfr % 8, 0);
        if (is_free) {
            free_blocks.insert(block);
        } else {
            const kuvcl *owner = ku::vm::address_of(memory, block->ptr_kuvfr);
            EXPECT_EQ(ku::vm::block_of(owner), block);
            EXPECT_EQ(owner->segment_kuvcl, number);
            EXPECT_EQ(owner->size_kuvcl.csize + 8, static_cast<uint32_t>(block->size_kuvfr));
            EXPECT_TRUE(owner->refcount_kuvcl > 0 && (owner->flags_kuvcl & KUV_RESIDENT) != 0);
            objects++;
        }
        was_free = is_free;
        block += std::abs(block->size_kuvfr) / 8;
    }
    EXPECT_TRUE(block == end && block->size_kuvfr == 0) << "the blocks do not tile the segment";

    int32_t size = 0, listed = 0;
    const kuvfrdef *each = segment.fmls_kuvsh;
    for (; each != nullptr && free_blocks.erase(each) == 1; listed++) {
        EXPECT_GE(-each->size_kuvfr, size);
        size = -each->size_kuvfr;
        each = ku::vm::address_of(segment, each->ptr_kuvfr);
    }
    EXPECT_TRUE(each == nullptr && free_blocks.empty()) << "not the free blocks are listed";
    EXPECT_EQ(segment.curfree_kuvsh, listed);
    EXPECT_LE(listed, segment.maxfree_kuvsh);
    return objects;
}

// What is swapped out, with its header, and the reusable regions do not overlap in the file.
void check_file(kuv *memory, const std::vector<const kuvcl *> &out)
{
    std::map<uint64_t, uint64_t> taken; // end by start
    const auto take = [&](uint64_t start, uint64_t length) {
        EXPECT_TRUE(start >= 1 && taken.emplace(start, start + length).second);
    };
    for (const kuvcl *cell : out) {
        const uint32_t at = cell->dataptr_kuvcl.faddress - 8;
        const uint32_t bytes = cell->size_kuvcl.csize + 8;
        take(at, bytes);
        EXPECT_EQ(file_bytes(memory, at, 8), words(ku::vm::reference_to(cell), bytes));
    }
    kuvfh region = memory->frehdr_kuv;
    while (region.ffbkls_kuvfh != 0 && !testing::Test::HasFailure()) {
        EXPECT_GE(region.ffbksz_kuvfh, 8u);
        take(region.ffbkls_kuvfh, region.ffbksz_kuvfh);
        std::memcpy(&region, file_bytes(memory, region.ffbkls_kuvfh, 8).data(), 8);
    }
    uint64_t before = 0;
    for (const auto &[start, end] : taken) {
        EXPECT_GE(start, before) << "two overlap";
        before = end;
    }
    EXPECT_LE(before, memory->lfbo_kuv);
}

void check(kuv *memory)
{
    int objects = 0, held = 0;
    int32_t free_blocks = 0;
    std::vector<const kuvcl *> out;
    std::set<const kuvcl *> unused;
    for (int i = 0; i < memory->numsegs_kuv; i++) {
        objects += check_segment(memory, i);
        free_blocks += memory->segs_kuv[i].curfree_kuvsh;
    }
    for (kuvmh *page = memory->mphead_kuv; page != nullptr; page = page->mpnext_kuvmh)
        for (int i = 0; i < memory->mpcount_kuv; i++) {
            const kuvcl *cell = page->mplist_kuvmh + i;
            if (cell->refcount_kuvcl == 0)
                unused.insert(cell);
            else if ((cell->flags_kuvcl & KUV_RESIDENT) != 0)
                held++;
            else
                out.push_back(cell);
        }
    EXPECT_EQ(memory->softvirt_kuv != 0 ? held : 0, objects);
    EXPECT_EQ(memory->curfree_kuv, free_blocks);
    for (const kuvcl *cell = memory->mpfree_kuv; cell != nullptr; cell = cell->size_kuvcl.caddress)
        ASSERT_EQ(unused.erase(cell), 1u);
    EXPECT_TRUE(unused.empty());
    if (kuxernerrors(memory->kuxp_kuv) == 0) check_file(memory, out);
}

// ---- contexts ----

struct shape {
    bool swapping = true;
    uint32_t segment = 248; // stored as 256
    uint8_t segments = 4;
    uint32_t limit = 1024;
    int8_t highwater = 10;
    int16_t cells = 8;
    int32_t scrambling = 0;
    kuvnewfilesizefn newsize = nullptr;
};

class virtual_memory
{
public:
    explicit virtual_memory(context &ctx, const shape &wanted = {}) : ctx_(ctx)
    {
        kuva attrs = {};
        attrs.mask_kuva = KUVA_MPCNT | KUVA_CACHEPATH | KUVA_SEGSIZE | KUVA_NUMSEGS | KUVA_SOFTVIRT
                          | KUVA_MXFLSIZE | KUVA_HEAPSCRAM | KUVA_HIGHWATER | KUVA_NEWFILESIZE
                          | KUVA_CLIENTDATA | KUVA_BUFCNT;
        attrs.mpcnt_kuva = wanted.cells;
        attrs.cachepath_kuva = dir_.path().c_str();
        attrs.segmentsize_kuva = wanted.segment;
        attrs.numsegments_kuva = wanted.segments;
        attrs.softvirt_kuva = wanted.swapping ? 1 : 0;
        attrs.mxflsize_kuva = wanted.limit;
        attrs.heapscram_kuva = wanted.scrambling;
        attrs.highwater_kuva = wanted.highwater;
        attrs.newfilesize_kuva = wanted.newsize;
        attrs.clientdata_kuva = this;
        attrs.bufcnt_kuva = 2;
        memory_ = kuvcreate(ctx, &attrs);
    }
    virtual_memory(const virtual_memory &) = delete;
    virtual_memory &operator=(const virtual_memory &) = delete;
    ~virtual_memory()
    {
        if (memory_ == nullptr) return;
        check(memory_);
        if (kuvdestroy(memory_) != 0) { // an error was on the stack
            ctx_.clear();
            EXPECT_EQ(kuvdestroy(memory_), 0u);
        }
        EXPECT_TRUE(!whole || dir_.names().empty()) << "a swap file stayed";
    }
    operator kuv *() const { return memory_; } // NOLINT(google-explicit-constructor)
    kuv *operator->() const { return memory_; }

    void *with(const text &bytes)
    {
        return kuvmdup(memory_, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    text bytes(void *handle, std::size_t length)
    {
        const auto *found = static_cast<const char *>(kuvderef(memory_, handle));
        return found == nullptr ? "unreachable" : text(found, length);
    }

    bool whole = true; // its files can be deleted
    uint32_t asked = 0, answer = 0, refusal = 0;

private:
    context &ctx_;
    ku::test::directory dir_;
    kuv *memory_;
};

// ---- handles ----

TEST(Kuv, AContextHasItsAttributesOrTheirDefaults)
{
    context ctx;
    const ku::test::directory dir;
    const ku::test::variable tmp("TMP", dir.path());
    EXPECT_EQ(kuvcreate(nullptr, nullptr), nullptr);
    EXPECT_EQ(kuvcreate(ctx, nullptr), nullptr);
    EXPECT_ERRORS(ctx, {"kuvaa 18"});
    EXPECT_EQ(kuvdestroy(nullptr), KUVAA_FAILED);

    kuva attrs = {};
    attrs.mask_kuva = KUVA_SOFTVIRT;
    attrs.softvirt_kuva = 7;
    kuv *memory = kuvcreate(ctx, &attrs);
    EXPECT_TRUE(memory->softvirt_kuv == 1 && memory->size_kuv == 65520 && memory->numsegs_kuv == 4);
    EXPECT_TRUE(memory->mxbo_kuv == 0x40000 && memory->lfbo_kuv == 1 && memory->id_kuv == KUV_ID);
    EXPECT_EQ(static_cast<skuf *>(memory->skufh_kuv)->skufnum, 15);
    EXPECT_EQ(dir.names().size(), 1u);
    attrs.mask_kuva = KUVA_MPCNT | KUVA_MXFLSIZE | KUVA_HEAPSCRAM | KUVA_DEBUG | KUVA_HIGHWATER
                      | KUVA_CACHEPATH | KUVA_SKUFCTX | KUVA_NEWFILESIZE | KUVA_CLIENTDATA;
    EXPECT_EQ(kuvget(memory, &attrs), 0u);
    EXPECT_TRUE(attrs.mpcnt_kuva == 4096 && attrs.mxflsize_kuva == 0x40000
                && attrs.heapscram_kuva == 0 && attrs.debug_kuva == 1 && attrs.highwater_kuva == 10
                && attrs.skufcontext_kuva == memory->skufh_kuv && attrs.newfilesize_kuva == nullptr
                && attrs.cachepath_kuva == dir.path() + "\\" && attrs.softvirt_kuva == 7);
    const char *const first = attrs.cachepath_kuva;
    attrs.mxflsize_kuva = 5; // not raised here
    attrs.heapscram_kuva = attrs.debug_kuva = attrs.highwater_kuva = 3;
    attrs.cachepath_kuva = "elsewhere";
    attrs.clientdata_kuva = &attrs;
    ctx.fail_from_now(1);
    EXPECT_TRUE(kuvset(memory, &attrs) == KUVAA_FAILED && memory->mxbo_kuv == 0x40000);
    ctx.fail_from_now(1);
    EXPECT_EQ(kuvget(memory, &attrs), KUVAA_FAILED);
    attrs.mask_kuva |= KUVA_SEGSIZE | KUVA_NUMSEGS | KUVA_SOFTVIRT; // ignored
    EXPECT_EQ(kuvset(memory, &attrs), 0u);
    EXPECT_TRUE(memory->mxbo_kuv == 5 && memory->scmb_kuv == 3 && memory->debug_kuv == 3
                && memory->highwater_kuv == 3 && memory->path_kuv == text("elsewhere")
                && memory->clientdata_kuv == &attrs && memory->numsegs_kuv == 4);
    ctx->kuxnmfree(ctx, const_cast<char *>(first)); // NOLINT
    EXPECT_EQ(kuvset(memory, nullptr), KUVAA_FAILED);
    EXPECT_EQ(kuvget(memory, nullptr), KUVAA_FAILED);
    EXPECT_TRUE(kuvset(nullptr, &attrs) == KUVAA_FAILED && kuvget(nullptr, &attrs) == KUVAA_FAILED);
    EXPECT_ERRORS(ctx, {"kuvaa 18", "kuvaa 18"});
    memory->id_kuv++;
    EXPECT_EQ(kuvdestroy(memory), KUVAA_FAILED);
    memory->id_kuv--;
    EXPECT_EQ(kuvdestroy(memory), 0u);

    attrs = {};
    attrs.mask_kuva = KUVA_MPCNT | KUVA_NUMSEGS | KUVA_SEGSIZE | KUVA_MXFLSIZE | KUVA_SKUFCTX;
    attrs.mpcnt_kuva = -1;
    attrs.segmentsize_kuva = 65520;
    memory = kuvcreate(ctx, &attrs); // a heap
    EXPECT_TRUE(memory->mpcount_kuv == 4096 && memory->numsegs_kuv == 4
                && memory->cfpt_kuv == nullptr);
    EXPECT_TRUE(memory->size_kuv == 65528 && memory->mxbo_kuv == 65528)
        << "8 more when it is given";
    attrs.mask_kuva = KUVA_CACHEPATH;
    attrs.cachepath_kuva = "?";
    EXPECT_TRUE(kuvget(memory, &attrs) == 0 && attrs.cachepath_kuva == nullptr);
    EXPECT_EQ(kuvdestroy(memory), 0u);
    for (const uint32_t size : {0x7FFFFFF0u, UINT32_MAX}) {
        attrs.segmentsize_kuva = size;
        attrs.mask_kuva = KUVA_SEGSIZE;
        EXPECT_EQ(kuvdestroy(kuvcreate(ctx, &attrs)), 0u); // a heap has no segments
        attrs.mask_kuva = KUVA_SEGSIZE | KUVA_SOFTVIRT;
        attrs.softvirt_kuva = 1;
        EXPECT_EQ(kuvcreate(ctx, &attrs), nullptr);
        EXPECT_ERRORS(ctx, {"kuvaa 18"});
    }
    attrs.mask_kuva = KUVA_SOFTVIRT | KUVA_CACHEPATH;
    attrs.softvirt_kuva = 1;
    attrs.cachepath_kuva = "/nowhere/at/all";
    EXPECT_EQ(kuvcreate(ctx, &attrs), nullptr);
    EXPECT_ERRORS(ctx, {"skufa 17", "kuvaa 18"});
    const ku::test::variable long_name("TMP", text(600, 'x'));
    attrs.mask_kuva = KUVA_SOFTVIRT;
    EXPECT_EQ(kuvcreate(ctx, &attrs), nullptr);
    EXPECT_ERRORS(ctx, {"kuvaa 18"});
}

TEST(Kuv, SizesAreRoundedUpAndRefusedAtTheSegmentAndNear4GiB)
{
    static constexpr struct {
        bool swapping;
        uint32_t size, usable;
        const char *error;
    } rows[] = {
        {true, 0, 0, nullptr},
        {true, 1, 8, nullptr},
        {true, 9, 16, nullptr},
        {true, 248, 248, nullptr},  // a whole segment, with its header
        {true, 249, 0, "kuvaa 13"}, // its block would overrun the end marker
        {true, 255, 0, "kuvaa 13"},
        {true, 256, 0, "kuvaa 13"},
        {true, 0x7FFFFFF8, 0, "kuvaa 13"},
        {true, UINT32_MAX, 0, "kuvaa 13"},
        {false, 0, 0, nullptr},
        {false, 9, 16, nullptr},
        {false, 100000, 100000, nullptr},
        {false, 0x7FFFFFE8, 0, "kuvaa 18"}, // no memory
        {false, 0x7FFFFFE9, 0, "kuvaa 18"}, // cannot be said in a header
        {false, UINT32_MAX - 7, 0, "kuvaa 18"},
        {false, UINT32_MAX, 0, "kuvaa 18"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        context ctx;
        shape wanted;
        wanted.swapping = row.swapping;
        virtual_memory memory(ctx, wanted);
        void *small = memory.with("small");
        void *handle = kuvalloc(memory, row.size);
        EXPECT_EQ(handle != nullptr, row.error == nullptr);
        if (handle != nullptr) {
            EXPECT_EQ(cell_of(handle)->size_kuvcl.csize, row.usable);
            EXPECT_EQ(memory.bytes(handle, row.usable), text(row.usable, 0));
            kuvfree(memory, handle);
            handle = kuvrealloc(memory, small, row.size);
            EXPECT_EQ(handle, small);
            EXPECT_EQ(memory.bytes(small, std::min(row.usable, 5u)),
                      text("small").substr(0, row.usable));
        } else {
            EXPECT_ERRORS(ctx, {row.error});
            EXPECT_EQ(kuvrealloc(memory, small, row.size), nullptr);
            EXPECT_ERRORS(ctx, {row.error});
            EXPECT_EQ(memory.bytes(small, 5), "small");
        }
    }
}

TEST(Kuv, LocksAreCountedAndBadHandlesRefused)
{
    for (const bool swapping : {true, false}) {
        context ctx;
        shape wanted;
        wanted.swapping = swapping;
        virtual_memory memory(ctx, wanted);
        void *handle = memory.with("text");
        void *bytes = kuvlock(memory, handle);
        for (int i = 1; i < 127; i++) EXPECT_EQ(kuvlock(memory, handle), bytes);
        EXPECT_EQ(kuvlock(memory, handle), nullptr);
        EXPECT_ERRORS(ctx, {"kuvaa 10"});
        EXPECT_EQ(kuvhdup(memory, handle), nullptr); // pushes nothing
        EXPECT_EQ(kuvscmp(memory, handle, handle), 0);
        EXPECT_ERRORS(ctx, {"kuvaa 10"});
        EXPECT_EQ(kuvrealloc(memory, handle, 100), nullptr);
        kuvhpurge(memory, handle);
        EXPECT_TRUE(kuvderef(memory, handle) == bytes && memory.bytes(handle, 4) == "text");
        EXPECT_ERRORS(ctx, {"kuvaa 11"});
        for (int i = 0; i < 128; i++) EXPECT_EQ(kuvunlock(memory, handle), nullptr);
        EXPECT_ERRORS(ctx, {"kuvaa 2"});
        cell_of(handle)->refcount_kuvcl = 2;
        kuvlock(memory, handle);
        kuvfree(memory, handle);
        EXPECT_EQ(memory.bytes(handle, 4), "text");
        kuvfree(memory, handle); // a lock does not keep it
        for (void *bad : {handle, static_cast<void *>(nullptr)}) {
            EXPECT_TRUE(kuvderef(memory, bad) == nullptr && kuvlock(memory, bad) == nullptr);
            EXPECT_TRUE(kuvfree(memory, bad) == nullptr && kuvhdup(memory, bad) == nullptr);
            EXPECT_TRUE(kuvscat(memory, bad, bad) == nullptr && kuvmcmp(memory, bad, bad, 1) == 0);
            EXPECT_ERRORS(ctx, std::vector<text>(6, "kuvaa 18"));
            EXPECT_EQ(kuvrealloc(memory, bad, 1), nullptr);
            kuvhpurge(memory, bad);
            kuvunlock(memory, bad);
            ctx.clear();
        }
        EXPECT_TRUE(kuvsdup(memory, nullptr) == nullptr && kuvmdup(memory, nullptr, 1) == nullptr);
        EXPECT_ERRORS(ctx, {"kuvaa 18", "kuvaa 18"});
        EXPECT_TRUE(kuvalloc(nullptr, 1) == nullptr && kuvderef(nullptr, nullptr) == nullptr
                    && kuvlock(nullptr, handle) == nullptr && kuvfree(nullptr, handle) == nullptr);
        kuvalloc(memory, 20); // left to kuvdestroy
    }
}

TEST(Kuv, StringsAreComparedCopiedAndJoinedWhereverTheyLie)
{
    context ctx;
    shape wanted;
    wanted.segment = 140000;
    virtual_memory memory(ctx, wanted);
    void *pear = kuvsdup(memory, "pear");
    void *plum = kuvsdup(memory, "pl\xFCm");
    void *full = memory.with("pearpear"); // no NUL
    for (const bool out : {false, true}) {
        for (void *each : {pear, plum, full})
            if (out) kuvhpurge(memory, each);
        EXPECT_LT(kuvscmp(memory, pear, plum), 0);
        EXPECT_GT(kuvscmp(memory, plum, pear), 0);
        EXPECT_LT(kuvscmp(memory, pear, full), 0);
        EXPECT_EQ(kuvscmp(memory, full, full), 0);
        EXPECT_EQ(kuvmcmp(memory, pear, full, 4), 0);
        EXPECT_EQ(kuvmcmp(memory, pear, full, 5), -1); // a NUL is a byte like any
        EXPECT_EQ(kuvmcmp(memory, plum, full, 8), 1);
    }
    EXPECT_EQ(kuvmcmp(memory, pear, full, 9), 0);    // longer than they are
    EXPECT_EQ(kuvscat(memory, pear, plum), nullptr); // 9 bytes into 8
    EXPECT_ERRORS(ctx, {"kuvaa 18", "kuvaa 18"});
    void *joined = kuvrealloc(memory, kuvhdup(memory, pear), 17);
    EXPECT_EQ(kuvscat(memory, joined, plum), joined);
    EXPECT_EQ(kuvscat(memory, joined, joined), joined);
    EXPECT_EQ(memory.bytes(joined, 17), text("pearpl\xFCmpearpl\xFCm\0", 17));
    EXPECT_EQ(memory.bytes(pear, 8), text("pear\0\0\0\0", 8));
    text large(65535, 'a');
    void *one = memory.with(large);
    large.back() = 'b';
    void *two = memory.with(large);
    EXPECT_EQ(kuvmcmp(memory, one, two, 65535), -1) << "no length that means a NUL ends it";
    EXPECT_EQ(kuvmcmp(memory, one, two, 65534), 0);
}

TEST(Kuv, AStringIsAppendedWhereItFitsToTheByte)
{
    static constexpr struct {
        const char *first, *second, *joined; // with its NUL of 8 bytes; null: of more
    } rows[] = {
        {"abc", "defg", "abcdefg"},
        {"abc", "defgh", nullptr},
        {"\x0E"
         "0!\x0F",
         "\x0E"
         "1!\x0F"
         "b",
         "\x0E"
         "0!1!\x0F"
         "b"}, // the run goes on
        {"\x0E"
         "0!\x0F",
         "\x0E"
         "1!\x0F"
         "bc",
         nullptr},
        {"\x0E"
         "0!",
         "abc",
         "\x0E"
         "0!\x0F"
         "abc"}, // it is closed
        {"\x0E"
         "0!",
         "abcd", nullptr},
    };
    context ctx("iso-2022-kr");
    const shape wanted;
    virtual_memory memory(ctx, wanted);
    for (const auto &row : rows) {
        void *first = kuvrealloc(memory, kuvsdup(memory, row.first), 8);
        void *second = kuvsdup(memory, row.second);
        EXPECT_EQ(kuvscat(memory, first, second), row.joined != nullptr ? first : nullptr);
        EXPECT_STREQ(static_cast<char *>(kuvderef(memory, first)),
                     row.joined != nullptr ? row.joined : row.first);
        ctx.clear();
    }
}

// ---- the pager ----

TEST(Kuv, BestFitIsTakenCutAndJoinedAgain)
{
    context ctx;
    virtual_memory memory(ctx);
    std::vector<void *> handles;
    for (const uint32_t size : {8, 0, 24, 0, 56, 0}) handles.push_back(kuvalloc(memory, size));
    for (const int i : {4, 0, 2}) kuvfree(memory, handles[static_cast<std::size_t>(i)]);
    kuvalloc(memory, 112); // the rest of the segment, but for 8 bytes
    const auto sizes = [&] {
        check(memory);
        text all;
        const kuvsh &segment = memory->segs_kuv[0];
        for (const kuvfrdef *each = segment.fmls_kuvsh; each != nullptr;
             each = ku::vm::address_of(segment, each->ptr_kuvfr))
            all += std::to_string(-each->size_kuvfr) + " ";
        return all;
    };
    EXPECT_EQ(sizes(), "16 32 64 ");
    EXPECT_TRUE(memory->maxfree_kuv == 4 && memory->segs_kuv[0].maxfree_kuvsh == 4);
    void *cut = kuvalloc(memory, 16);
    EXPECT_EQ(sizes(), "8 16 64 ");
    kuvfree(memory, cut);
    EXPECT_EQ(sizes(), "16 32 64 ");
    void *whole = kuvalloc(memory, 24);
    EXPECT_EQ(sizes(), "16 64 ");
    EXPECT_EQ(kuvrealloc(memory, whole, 3), whole);
    EXPECT_EQ(sizes(), "16 16 64 ") << "the tail of what shrinks is free";
    kuvfree(memory, handles[1]);
    EXPECT_EQ(sizes(), "16 24 64 ");

    EXPECT_EQ(kuvpfrdelete(memory, 0, ku::vm::block_of(cell_of(whole))), nullptr) << "it is used";
    kuvlock(memory, handles[3]);
    EXPECT_EQ(kuvpswapout(memory, UINT32_MAX - 7), nullptr) << "no sum that wraps";
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
    kuvlock(memory, whole); // the first block
    kuvputmem(memory, kuvpsync(memory, 0), 0);
    EXPECT_TRUE(resident(whole)) << "what is locked stays, whatever is looked for";
}

TEST(Kuv, BlocksPutSideBySideOnTheListAreJoinedByTheWalk)
{
    context ctx;
    dice random;
    for (int round = 0; round < 50; round++) {
        virtual_memory memory(ctx);
        std::vector<kuvfrdef *> blocks;
        for (uint32_t total = 0; total < 200;) {
            blocks.push_back(kuvpgetmem(memory, 8 + 8 * random.below(3)));
            total += static_cast<uint32_t>(blocks.back()->size_kuvfr);
        }
        void *used = kuvalloc(memory, 0); // behind them, with the rest of the segment behind it
        for (std::size_t i = blocks.size(); i > 0; i--) {
            std::swap(blocks[i - 1], blocks[random.below(static_cast<uint32_t>(i))]);
            kuvpfradd(memory, 0, blocks[i - 1]);
            EXPECT_EQ(kuvpfrdelete(memory, 0, blocks[i - 1]), blocks[i - 1]);
            kuvpfradd(memory, 0, blocks[i - 1]);
        }
        kuvpcoalesce(memory, 0);
        check(memory);
        EXPECT_EQ(memory->curfree_kuv, 2);
        kuvfree(memory, used);
        EXPECT_EQ(memory->curfree_kuv, 1);
    }
}

TEST(Kuv, TheSwapFileIsTheSameToTheByteOnEveryMachine)
{
    context ctx;
    shape wanted;
    wanted.cells = 2; // the third object's number goes on from one page to the next
    virtual_memory memory(ctx, wanted);
    const text first = "24 bytes of first object", second = "16 bytes, second";
    void *one = memory.with(first);
    kuvalloc(memory, 8);
    void *two = memory.with(second);
    kuvhpurge(memory, one);
    EXPECT_EQ(memory->lfbo_kuv, 33u);
    EXPECT_EQ(file_bytes(memory, 1, 32), words(1, 32) + first);
    EXPECT_EQ(cell_of(one)->dataptr_kuvcl.faddress, 9u);
    EXPECT_EQ(memory.bytes(one, 24), first);
    EXPECT_TRUE(memory->frehdr_kuv.ffbkls_kuvfh == 9 && memory->frehdr_kuv.ffbksz_kuvfh == 24);
    EXPECT_EQ(file_bytes(memory, 1, 32), words(1, 32) + words(0, 0) + first.substr(8));
    kuvhpurge(memory, one); // is 8 bytes larger than what it left
    EXPECT_EQ(file_bytes(memory, 33, 32), words(1, 32) + first);
    EXPECT_EQ(memory.bytes(one, 24), first);
    EXPECT_EQ(file_bytes(memory, 41, 8), words(9, 24)) << "the region before it on the list";
    kuvhpurge(memory, two); // takes the whole region
    EXPECT_EQ(file_bytes(memory, 41, 24), words(3, 24) + second);
    EXPECT_TRUE(memory->frehdr_kuv.ffbkls_kuvfh == 9 && memory->lfbo_kuv == 65);
    EXPECT_EQ(kuvpfcompact(memory), 0u);
    EXPECT_TRUE(memory->frehdr_kuv.ffbkls_kuvfh == 0 && memory->lfbo_kuv == 25);
    EXPECT_EQ(file_bytes(memory, 1, 24), words(3, 24) + second);
    EXPECT_EQ(memory.bytes(two, 16), second);
}

TEST(Kuv, AShortageSwapsOutThePercentageInTheOrderOfTheHandles)
{
    context ctx;
    shape wanted;
    wanted.segment = 65512;
    wanted.limit = 0x40000;
    wanted.cells = 100;
    virtual_memory memory(ctx, wanted);
    std::vector<void *> handles;
    for (int i = 0; i < 4 * 65; i++) handles.push_back(kuvalloc(memory, 1000));
    kuvlock(memory, handles[2]);
    EXPECT_TRUE(std::all_of(handles.begin(), handles.end(), resident));
    handles.push_back(kuvalloc(memory, 1000));
    // 10 percent of 4 segments are 26200 bytes: 27 objects, and not the locked one.
    for (std::size_t i = 0; i < handles.size(); i++)
        EXPECT_EQ(resident(handles[i]), i == 2 || i >= 28) << i;
    memory->highwater_kuv = -100; // nothing: only what is in the way of a run
    for (void *handle : handles) kuvlock(memory, handle);
    EXPECT_EQ(kuvalloc(memory, 1000), nullptr);
    EXPECT_EQ(ctx.errors().back(), "kuvaa 18");
    ctx.clear();
    kuvunlock(memory, handles[100]);
    EXPECT_EQ(kuvalloc(memory, 1001), nullptr); // one block of 1008 is not enough
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 18", "kuvaa 18"});
    kuvlock(memory, kuvalloc(memory, 1000));
    EXPECT_FALSE(resident(handles[100]));
    EXPECT_EQ(kuvderef(memory, handles[100]), nullptr) << "swapping in needs room, too";
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 18", "kuvaa 18"});
    ctx.clear();
}

uint32_t new_size(kux *, void *clientdata, uint32_t current, uint32_t *limit)
{
    auto *memory = static_cast<virtual_memory *>(clientdata);
    memory->asked = current;
    *limit = memory->answer;
    return memory->refusal;
}

TEST(Kuv, TheLimitFollowsWhatIsSwappedOutOrTheClient)
{
    context ctx;
    shape wanted;
    wanted.limit = 100; // raised to a segment
    {
        virtual_memory memory(ctx, wanted);
        for (int i = 0; i < 4; i++) {
            EXPECT_EQ(memory->mxbo_kuv, 256u);
            kuvhpurge(memory, kuvalloc(memory, 56));
        }
        EXPECT_TRUE(memory->lfbo_kuv == 257 && memory->mxbo_kuv == 512);
    }
    {
        virtual_memory memory(ctx, wanted);
        memory->mxbo_kuv = 1024;
        void *handle = kuvalloc(memory, 56);
        for (int i = 0; i < 16; i++) {
            EXPECT_EQ(memory->mxbo_kuv, 1024u);
            kuvhpurge(memory, handle);
            kuvderef(memory, handle);
        }
        EXPECT_TRUE(memory->lfbo_kuv == 65 && memory->mxbo_kuv == 512);
    }
    static constexpr struct {
        uint32_t refusal, answer, limit;
    } rows[] = {{0, 0, 0}, {0, UINT32_MAX, UINT32_MAX}, {0, 64, 64}, {7, 99, 1024}};
    for (const auto &row : rows) {
        wanted.newsize = new_size;
        virtual_memory memory(ctx, wanted);
        memory.answer = row.answer;
        memory.refusal = row.refusal;
        memory->mxbo_kuv = 1024;
        const text bytes(56, 'x');
        void *handle = memory.with(bytes);
        for (int i = 0; i < 16; i++) {
            EXPECT_EQ(memory.asked, 0u);
            EXPECT_EQ(memory.bytes(handle, 56), bytes);
            kuvhpurge(memory, handle);
        }
        EXPECT_TRUE(memory.asked == 1024 && memory->mxbo_kuv == row.limit
                    && memory->lfbo_kuv == 65);
        EXPECT_EQ(resident(handle), row.refusal != 0);
        EXPECT_ERRORS(ctx, std::vector<text>(row.refusal != 0 ? 1 : 0, "kuvaa 18"));
        for (int i = 0; i < 3; i++) { // a limit of nothing compacts each time
            EXPECT_EQ(memory.bytes(handle, 56), bytes);
            kuvhpurge(memory, handle);
            check(memory);
        }
        ctx.clear();
    }
    virtual_memory memory(ctx, wanted); // saturated, not wrapped
    memory.refusal = 0;
    memory->newfilesize_kuv = nullptr;
    memory->mxbo_kuv = 0x80000000u;
    memory->lfbo_kuv = 0x7FFFFFF0u;
    kuvhpurge(memory, kuvalloc(memory, 56));
    EXPECT_TRUE(memory->mxbo_kuv == 0x40000000u && memory->lfbo_kuv == 65);
}

TEST(Kuv, ScramblingLeavesNothingUnlockedInMemory)
{
    context ctx;
    shape wanted;
    wanted.scrambling = 1;
    wanted.swapping = false;
    {
        virtual_memory heap(ctx, wanted);
        EXPECT_TRUE(kuvalloc(heap, 8) != nullptr && heap->scmb_kuv == 1);
        EXPECT_EQ(kuvplpurge(heap) + kuvpscramble(heap), 0u) << "nothing is swapped out";
    }
    wanted.swapping = true;
    virtual_memory memory(ctx, wanted);
    void *locked = memory.with("locked"), *one = memory.with("one");
    kuvlock(memory, locked);
    EXPECT_FALSE(resident(one));
    void *two = memory.with("two");
    EXPECT_TRUE(resident(locked) && !resident(one) && resident(two));
    EXPECT_EQ(memory.bytes(one, 3), "one");
    EXPECT_TRUE(resident(locked) && resident(one) && !resident(two));
    EXPECT_LT(kuvscmp(memory, one, two), 0);
    EXPECT_EQ(memory.bytes(kuvhdup(memory, two), 3), "two");
    kuxer0push(ctx, KUVAA_LOCKED); // with any error pending nothing can be written
    const kuvcl *next = memory->mpfree_kuv;
    EXPECT_EQ(kuvalloc(memory, 8), nullptr);
    EXPECT_TRUE(memory->scmb_kuv == 0 && memory->mpfree_kuv == next);
    EXPECT_EQ(kuvderef(memory, one), nullptr);
    EXPECT_ERRORS(ctx, {"kuvaa 11", "kuvaa 18", "kuvaa 18"});
    EXPECT_EQ(memory.bytes(one, 3), "one");
}

// ---- beside a model ----

class model
{
public:
    model(context &ctx, kuv *memory, std::mt19937 &random)
        : ctx_(ctx), memory_(memory), random_(random)
    {
    }
    // One random operation. Returns what a failed one left on the stack.
    std::vector<text> step()
    {
        static constexpr uint32_t most = 60; // objects; more than the segments hold
        const uint32_t operation = below(10);
        if (objects_.empty() || (operation < 3 && objects_.size() < most)) {
            add(operation);
        } else {
            object &chosen = objects_[below(static_cast<uint32_t>(objects_.size()))];
            if (operation < 5)
                resize(chosen);
            else if (operation == 5)
                release(chosen);
            else if (operation == 6)
                kuvhpurge(memory_, chosen.handle);
            else if (operation == 7)
                lock(chosen);
            else
                change(chosen);
        }
        const std::vector<text> errors = ctx_.errors();
        ctx_.clear();
        return errors;
    }
    void compare_all()
    {
        for (const object &each : objects_) {
            const auto *found = static_cast<const char *>(kuvderef(memory_, each.handle));
            ASSERT_NE(found, nullptr);
            ASSERT_EQ(text(found, each.bytes.size()), each.bytes);
            ASSERT_TRUE(each.address == nullptr || found == each.address) << "a locked one moved";
        }
    }
    void unlock_all()
    {
        for (object &each : objects_) unlock(each);
    }
    bool locked() const
    {
        return std::any_of(objects_.begin(), objects_.end(),
                           [](const object &each) { return each.address != nullptr; });
    }

private:
    struct object {
        void *handle;
        text bytes;
        const void *address; // while it is locked
    };

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    uint32_t size() { return below(8) == 0 ? below(249) : below(50); }
    text noise(uint32_t length)
    {
        text bytes(length, 0);
        for (char &byte : bytes) byte = static_cast<char>(random_());
        return bytes;
    }
    void add(uint32_t operation)
    {
        object made = {nullptr, noise(size()), nullptr};
        if (operation == 0 && !objects_.empty()) {
            const object &from = objects_[below(static_cast<uint32_t>(objects_.size()))];
            made.bytes = from.bytes;
            made.handle = kuvhdup(memory_, from.handle);
        } else {
            made.handle =
                kuvmdup(memory_, made.bytes.data(), static_cast<uint32_t>(made.bytes.size()));
        }
        made.bytes.resize((made.bytes.size() + 7) / 8 * 8);
        if (made.handle != nullptr) objects_.push_back(made);
    }
    void resize(object &chosen)
    {
        const uint32_t wanted = size();
        const std::size_t usable = (wanted + 7) / 8 * 8;
        const bool moves = memory_->softvirt_kuv == 0 || usable > chosen.bytes.size();
        EXPECT_TRUE(kuvrealloc(memory_, chosen.handle, wanted) == chosen.handle
                    || kuxernerrors(ctx_) != 0);
        if (kuxernerrors(ctx_) != 0) return;
        if (moves) chosen.bytes.resize(std::min<std::size_t>(chosen.bytes.size(), wanted));
        chosen.bytes.resize(usable);
    }
    void release(object &chosen)
    {
        kuvfree(memory_, chosen.handle);
        if (kuxernerrors(ctx_) != 0) return;
        std::swap(chosen, objects_.back());
        objects_.pop_back();
    }
    void unlock(object &chosen)
    {
        if (chosen.address != nullptr) kuvunlock(memory_, chosen.handle);
        chosen.address = nullptr;
    }
    void lock(object &chosen)
    {
        if (chosen.address != nullptr || below(3) != 0)
            unlock(chosen);
        else
            chosen.address = kuvlock(memory_, chosen.handle);
    }
    void change(object &chosen)
    {
        auto *bytes = static_cast<char *>(kuvderef(memory_, chosen.handle));
        if (bytes == nullptr) return;
        EXPECT_EQ(text(bytes, chosen.bytes.size()), chosen.bytes);
        chosen.bytes = noise(static_cast<uint32_t>(chosen.bytes.size()));
        std::copy(chosen.bytes.begin(), chosen.bytes.end(), bytes);
    }

    context &ctx_;
    kuv *memory_;
    std::mt19937 &random_;
    std::vector<object> objects_;
};

TEST(Kuv, RandomWorkKeepsEveryByteEvenShortOfMemory)
{
    std::mt19937 random(ku::test::seed());
    for (int round = 0; round < 24; round++) {
        SCOPED_TRACE(round);
        context ctx;
        shape wanted;
        wanted.swapping = round % 4 != 3;
        wanted.scrambling = round % 4 == 2 ? 1 : 0;
        wanted.highwater = static_cast<int8_t>(round % 3 * 40);
        wanted.cells = static_cast<int16_t>(3 + round % 6);
        virtual_memory memory(ctx, wanted);
        model objects(ctx, memory, random);
        const bool faults = round % 2 == 1;
        for (int step = 0; step < 600 && !HasFailure(); step++) {
            ctx.fail_one_in(faults ? 10 : 0);
            const std::vector<text> errors = objects.step();
            ctx.fail_one_in(0);
            EXPECT_TRUE(errors.empty() || faults || objects.locked())
                << testing::PrintToString(errors);
            check(memory);
            if (faults) memory->scmb_kuv = wanted.scrambling; // a failure ends it
        }
        objects.unlock_all();
        objects.compare_all();
    }
}

TEST(Kuv, TheSameWorkMakesTheSameSwapFile)
{
    context ctx;
    std::mt19937 random(1);
    virtual_memory memory(ctx);
    model objects(ctx, memory, random);
    uint32_t sum = 2166136261u; // of all bytes at every hundredth step
    for (int step = 1; step <= 2000; step++) {
        objects.step();
        if (step % 100 != 0) continue;
        for (const char byte : file_bytes(memory, 1, memory->lfbo_kuv - 1))
            sum = (sum ^ static_cast<unsigned char>(byte)) * 16777619u;
    }
    EXPECT_EQ(sum, 3481001167u) << "32-bit and 64-bit builds agree on this number";
    objects.unlock_all();
    objects.compare_all();
}

// ---- failures ----

// More than the segments and the cache's buffers hold. What fails leaves every object as it was.
bool swap_much(context &ctx, bool swapping)
{
    shape wanted;
    wanted.swapping = swapping;
    wanted.segment = 8184;
    wanted.segments = 2;
    wanted.limit = 24000;
    wanted.cells = 3;
    virtual_memory memory(ctx, wanted);
    memory.whole = false; // a call that fails may be the one that deletes
    if (memory == nullptr) {
        EXPECT_EQ(ctx.errors().back(), "kuvaa 18");
        return false;
    }
    std::map<void *, text> objects;
    for (uint32_t i = 0; i < 12 && kuxernerrors(ctx) == 0; i++) {
        const text bytes(2000 + 100 * i, static_cast<char>('a' + i));
        void *made = memory.with(bytes);
        if (made == nullptr) break;
        objects[made] = bytes;
        if (i % 4 == 0) {
            void *copy = kuvhdup(memory, objects.begin()->first);
            if (copy != nullptr) objects[copy] = objects.begin()->second;
            if (kuvrealloc(memory, made, 1600) != nullptr) objects[made].resize(1600);
        }
        if (i == 7 && swapping && kuvpfcompact(memory) != 0) break;
        if (i % 5 == 4) {
            kuvfree(memory, objects.begin()->first);
            if (cell_of(objects.begin()->first)->refcount_kuvcl == 0)
                objects.erase(objects.begin());
        }
    }
    const bool done = kuxernerrors(ctx) == 0 && objects.size() == 13;
    ctx.clear();
    check(memory);
    for (const auto &[handle, bytes] : objects)
        if (memory.bytes(handle, bytes.size()) != bytes) {
            ctx.clear(); // the failure came only now, and only once
            EXPECT_EQ(memory.bytes(handle, bytes.size()), bytes);
        }
    ctx.clear();
    return done;
}

TEST(Kuv, EveryFailureLeavesTheObjectsAsTheyWere)
{
    for (const bool swapping : {true, false})
        ku::test::sweep_allocations([=](context &ctx) { return swap_much(ctx, swapping); });
    ku::test::sweep_system_calls([](context &ctx) { return swap_much(ctx, true); });
}

TEST(Kuv, AFullDiskCostsNoObject)
{
    context ctx;
    shape wanted;
    wanted.segment = 8184;
    wanted.limit = 1 << 20;
    virtual_memory memory(ctx, wanted);
    std::map<void *, text> objects;
    const auto fill = [&] {
        for (int i = 0; i < 100; i++) {
            const text bytes(1000, static_cast<char>(i));
            if (void *made = memory.with(bytes)) objects[made] = bytes;
        }
    };
    ku::test::system_faults faults;
    faults.fail_all("map", ENOMEM); // no disk space that is there already
    fill();
    EXPECT_EQ(objects.size(), 100u);
    for (const char *call : {"write", "pwrite"}) faults.fail_all(call, ENOSPC);
    fill();
    ASSERT_FALSE(ctx.errors().empty());
    EXPECT_EQ(ctx.errors().back(), "kuvaa 18");
    EXPECT_LT(objects.size(), 200u);
    ctx.clear();
    for (const char *call : {"write", "pwrite"}) faults.fail_from_now(call, 0, 0);
    for (const auto &[handle, bytes] : objects) EXPECT_EQ(memory.bytes(handle, 1000), bytes);
}

TEST(Kuv, DestructionWithAnErrorPendingKeepsTheRecordOnly)
{
    context ctx;
    const ku::test::directory dir;
    kuva attrs = {};
    attrs.mask_kuva = KUVA_SOFTVIRT | KUVA_CACHEPATH;
    attrs.softvirt_kuva = 1;
    attrs.cachepath_kuva = dir.path().c_str();
    kuv *memory = kuvcreate(ctx, &attrs);
    const int before = ctx.live();
    kuvalloc(memory, 8);
    kuxer0push(ctx, KUVAA_LOCKED);
    EXPECT_EQ(kuvdestroy(memory), KUVAA_FAILED);
    EXPECT_TRUE(dir.names().empty());
    EXPECT_LT(ctx.live(), before);
    EXPECT_EQ(memory->curfree_kuv + memory->maxfree_kuv, 0);
    EXPECT_EQ(kuvdestroy(memory), KUVAA_FAILED);
    EXPECT_ERRORS(ctx, {"kuvaa 11"});
    EXPECT_EQ(kuvdestroy(memory), 0u);
    kuxmloff(ctx); // creation that nobody can roll back
    for (int n = 1; n <= 12; n++) {
        ctx.fail_from_now(n);
        EXPECT_TRUE((memory = kuvcreate(ctx, &attrs)) == nullptr || kuvdestroy(memory) == 0);
        ctx.clear();
    }
    kuxmlon(ctx);
    EXPECT_TRUE(dir.names().empty());
}

// Bytes that a context's callbacks have given out; each block has its size in front.
std::size_t given_out;

TEST(Kuv, AContextCostsLittleBesidesItsSegmentsAndPages)
{
    kuxa callbacks = {};
    callbacks.kuxamask = KUXA_NMALLOC | KUXA_NMFREE;
    callbacks.kuxanmalloc = [](kux *, uint32_t size) -> void * {
        given_out += size;
        auto *block = static_cast<uint64_t *>(std::calloc(1, sizeof(uint64_t) + size));
        *block = size;
        return block + 1;
    };
    callbacks.kuxanmfree = [](kux *, void *block) -> void * {
        if (block == nullptr) return nullptr;
        given_out -= static_cast<uint64_t *>(block)[-1];
        std::free(static_cast<uint64_t *>(block) - 1);
        return nullptr;
    };
    kux *ctx = kuxcreate(&callbacks);
    const std::size_t before = given_out;
    const ku::test::directory dir;
    kuva attrs = {};
    attrs.mask_kuva = KUVA_SOFTVIRT | KUVA_CACHEPATH;
    attrs.softvirt_kuva = 1;
    attrs.cachepath_kuva = dir.path().c_str();
    kuv *memory = kuvcreate(ctx, &attrs);
    for (int i = 0; i < 10000; i++) kuvalloc(memory, 100);
    const std::size_t pages = 3 * (sizeof(kuvmh) + 4095 * sizeof(kuvcl));
    const std::size_t cost = given_out - before - pages - 4 * (65520 + 8);
    RecordProperty("cost", static_cast<int>(cost));
    EXPECT_LT(cost, 65536u);
    EXPECT_EQ(kuvdestroy(memory), 0u);
    EXPECT_EQ(given_out, before);
    kuxdestroy(ctx);
}

} // namespace
