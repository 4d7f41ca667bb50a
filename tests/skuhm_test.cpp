// skuhm_test.cpp - heaps, the runtime below them, and questions about memory

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "port/kernel/kernel.h"
#include "skuhm.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

namespace kernel = ku::kernel;

namespace
{

const std::string runtimes = KU_BINARY_DIR "/runtimes/";

// A heap of the runtime that comes with the library.
class Heap : public ::testing::Test
{
protected:
    Heap() : sysdir_("KU_SYSDIR", KU_BINARY_DIR), heap(skuhmi(ctx, 0)) {}
    void SetUp() override { ASSERT_NE(heap, nullptr) << testing::PrintToString(ctx.errors()); }
    void TearDown() override
    {
        skuhmf(ctx, &heap);
        EXPECT_EQ(heap, nullptr);
    }

private:
    ku::test::variable sysdir_;

protected:
    ku::test::context ctx;
    tag_skuhm *heap;
};

// Pages of several kinds in a row, one letter each: 'w' read and write, 'r' read, '-' neither,
// 'o' write only, 'f' of a file, 'F' of one and write only, 'c' of a file that was cut since
// it was mapped.
class pages
{
public:
    explicit pages(const std::string &kinds) : kinds_(kinds)
    {
        start_ = static_cast<char *>(
            mmap(nullptr, size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(static_cast<void *>(start_), MAP_FAILED);
        for (size_t i = 0; i < kinds.size(); i++) {
            if (std::strchr("fFc", kinds[i]) != nullptr) map_file(i, kinds[i] == 'c' ? 0 : 1);
            if (kinds[i] == 'r') mprotect(at(i), page, PROT_READ);
            if (kinds[i] == 'o' || kinds[i] == 'F') mprotect(at(i), page, PROT_WRITE);
            if (kinds[i] == '-') mprotect(at(i), page, PROT_NONE);
        }
    }
    ~pages() { munmap(start_, size()); }

    char *at(size_t index) const { return start_ + index * page; }
    size_t size() const { return kinds_.size() * page; }
    bool good(size_t offset, size_t length, const char *kinds) const
    {
        for (size_t i = offset / page; length != 0 && i <= (offset + length - 1) / page; i++)
            if (std::strchr(kinds, kinds_[i]) == nullptr) return false;
        return true;
    }

    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));

private:
    void map_file(size_t index, off_t size)
    {
        const ku::test::directory directory;
        const int file = open(directory.write("cut", "x").c_str(), O_RDWR);
        EXPECT_EQ(mmap(at(index), page, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
                  at(index));
        EXPECT_EQ(ftruncate(file, size), 0);
        close(file);
    }

    std::string kinds_;
    char *start_;
};

} // namespace

TEST(HeapRuntimes, StepsThatWereTakenAreUndoneInReverseWhereverCreationFails)
{
    static const struct {
        const char *runtime, *fault;
        uint32_t flags;
        const char *error, *calls;
    } rows[] = {
        {"none", "", 0, "skuhm 2", ""},
        {"CoInitialize", "", 0, "skuhm 2", "unload "},
        {"CoUninitialize", "", 0, "skuhm 2", "unload "},
        {"CoGetMalloc", "", 0, "skuhm 2", "unload "},
        {"Nothing", "start", 0, "skuhm 2", "start unload "},
        {"Nothing", "get1", 0, "skuhm 2", "start get1 stop unload "},
        {"Nothing", "give", 0, "skuhm 2", "start get1 give stop unload "},
        {"Nothing", "Alloc", 0, "skuhm 4", "start get1 give Alloc Release stop unload "},
        {"Nothing", "", 0xFFFFFFFE, nullptr, "start get1 give Alloc "}, // other bits mean nothing
        {"Nothing", "", SKUHM_SHARED, nullptr, "start get2 give Alloc "},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.runtime + std::string(" ") + row.fault);
        const ku::test::directory directory;
        const ku::test::variable log("KU_TEST_LOG", directory.write("log", ""));
        const ku::test::variable fault("KU_TEST_FAULT", row.fault);
        const ku::test::variable sysdir("KU_SYSDIR", runtimes + row.runtime);
        ku::test::context ctx;
        tag_skuhm *heap = skuhmi(ctx, row.flags);
        EXPECT_EQ(directory.read("log"), row.calls);
        if (row.error != nullptr) {
            EXPECT_EQ(heap, nullptr);
            EXPECT_ERRORS(ctx, {row.error});
            continue;
        }
        ASSERT_NE(heap, nullptr);
        skuhmhm(ctx, heap);
        skuhmf(ctx, &heap);
        EXPECT_EQ(directory.read("log"),
                  row.calls + std::string("HeapMinimize Free Release stop unload "));
    }
}

TEST(HeapRuntimes, AreInTheSystemDirectoryOrWhereTheSystemLooksForLibraries)
{
    const auto directory = [] {
        char buffer[256];
        return std::string(buffer, kernel::system_directory(buffer, sizeof buffer));
    };
    for (const char *unset : {"", static_cast<const char *>(nullptr)}) {
        const ku::test::variable sysdir("KU_SYSDIR", unset);
        EXPECT_EQ(directory(), std::filesystem::canonical("/proc/self/exe").parent_path());
        ku::test::system_faults faults;
        faults.fail_all("open", EMFILE); // nobody says where we are
        EXPECT_EQ(directory(), "");
    }
    std::string longest = runtimes + "Nothing";
    longest += std::string(255 - longest.size(), '/');
    ku::test::context ctx("sjis");
    const ku::test::directory logged;
    // Bytes that are a separator and a lead byte in the client's names are neither here.
    const std::string odd = logged.path("a\\b\x83");
    std::filesystem::create_directory_symlink(KU_BINARY_DIR, odd);
    for (const std::string &where : {longest, longest + "/", odd}) {
        const ku::test::variable sysdir("KU_SYSDIR", where);
        const ku::test::variable log("KU_TEST_LOG", logged.write("log", ""));
        EXPECT_EQ(directory(), where.size() < 256 ? where : ""); // then by the bare name
        tag_skuhm *heap = skuhmi(ctx, 0);
        ASSERT_NE(heap, nullptr) << where;
        EXPECT_EQ(logged.read("log").empty(), where == odd); // the real one notes nothing
        skuhmf(ctx, &heap);
    }
}

TEST_F(Heap, RandomBlocksKeepTheirSizesAndBytesLikeAMapOfStrings)
{
    ku::test::dice dice;
    std::map<char *, std::string> model;
    for (int step = 0; step < 6000; step++) {
        const auto count = static_cast<uint32_t>(model.size());
        std::pair<char *, std::string> held; // what a step begins with, and ends with
        if (dice.below(step < 3000 ? 5 : 8) > 2 && count > 0) { // grows first, then shrinks
            held = *std::next(model.begin(), dice.below(count));
            model.erase(held.first);
            uint32_t known = 0;
            ASSERT_EQ(skuhmgs(ctx, heap, held.first, &known), 0u) << "seed " << ku::test::seed();
            ASSERT_EQ(std::string(held.first, known), held.second);
        }
        auto &[block, bytes] = held;
        const uint32_t size = dice.below(200);
        if (block != nullptr && !dice.one_in(3)) {
            skuhmfr(ctx, heap, block);
            continue;
        }
        block = static_cast<char *>(block == nullptr ? skuhmal(ctx, heap, size)
                                                     : skuhmra(ctx, heap, block, size));
        bytes.resize(std::min<size_t>(size, bytes.size()));
        ASSERT_EQ(std::string(block, bytes.size()), bytes);
        bytes.assign(size, static_cast<char>('a' + step % 26));
        bytes.copy(block, size);
        ASSERT_TRUE(model.insert(held).second);
    }
    for (const auto &left : model) skuhmfr(ctx, heap, left.first);
}

TEST_F(Heap, StrangersAndImpossibleSizesAreRefused)
{
    uint32_t size = 77;
    auto *block = static_cast<char *>(skuhmal(ctx, heap, 0));
    auto *gone = static_cast<char *>(skuhmal(ctx, heap, 8));
    skuhmfr(ctx, heap, gone);
    for (char *stranger : {block + 1, gone, reinterpret_cast<char *>(8)}) {
        EXPECT_EQ(skuhmgs(ctx, heap, stranger, &size), SKUHM_BADRANGE);
        EXPECT_EQ(skuhmra(ctx, heap, stranger, 4), nullptr);
        skuhmfr(ctx, heap, stranger);
        EXPECT_ERRORS(ctx, {"skuhm 6", "skuhm 5"});
    }
    EXPECT_EQ(skuhmal(ctx, heap, UINT32_MAX), nullptr);
    EXPECT_EQ(skuhmra(ctx, heap, block, UINT32_MAX), nullptr);
    EXPECT_EQ(skuhmra(ctx, heap, nullptr, 4), nullptr);
    EXPECT_EQ(skuhmgs(ctx, heap, nullptr, &size), SKUHM_INVALID);
    EXPECT_ERRORS(ctx, {"skuhm 4", "skuhm 5", "skuhm 1", "skuhm 1"});
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(skuhmgs(ctx, heap, block, &size), 0u); // as it was
    EXPECT_EQ(size, 0u);
    skuhmfr(ctx, heap, nullptr);
    skuhmfr(ctx, heap, block);
}

TEST_F(Heap, OperationsOfAnUnusableHeapAreRefused)
{
    tag_skuhm emptied = *heap;
    emptied.skuhmprivate = nullptr;
    uint32_t size = 77;
    for (tag_skuhm *unusable : {&emptied, static_cast<tag_skuhm *>(nullptr)}) {
        tag_skuhm *pointer = unusable;
        heap->skuhmfinish_pfn(ctx, &pointer);
        EXPECT_EQ(pointer, unusable);
        EXPECT_EQ(heap->skuhmalloc_pfn(ctx, unusable, 1), nullptr);
        EXPECT_EQ(heap->skuhmrealloc_pfn(ctx, unusable, &size, 1), nullptr);
        heap->skuhmfree_pfn(ctx, unusable, &size);
        EXPECT_EQ(heap->skuhmgetsize_pfn(ctx, unusable, &size, &size), SKUHM_INVALID);
        heap->skuhmheapmin_pfn(ctx, unusable);
        EXPECT_ERRORS(ctx, std::vector<std::string>(6, "skuhm 1"));
    }
    skuhmf(ctx, nullptr);
    EXPECT_ERRORS(ctx, {"skuhm 1"});
    EXPECT_TRUE(heap->kuxp == ctx && heap->skuhmprivate == heap + 1);
    EXPECT_EQ(heap->skuhminit_pfn, skuhmi);
    EXPECT_EQ(heap->skuhmisokw_pfn(ctx, nullptr, "constant", 1), 0);
    EXPECT_EQ(heap->skuhmisokr_pfn(ctx, nullptr, "constant", 1), 1);
}

TEST_F(Heap, CopiesAndPointersLookBeforeTheyTouch)
{
    const pages some("wr-");
    char *const last = some.at(1) - 4; // of the page that can be written
    tag_skuhm emptied = *heap;
    emptied.skuhmprivate = nullptr; // copies and pointers do not look at it
    std::strcpy(last, "abc");
    EXPECT_EQ(heap->skuhmmemcpy_pfn(ctx, &emptied, last + 1, last, 3), 0u); // ranges overlap
    EXPECT_EQ(skuhmcp(ctx, heap, last, "xyz12", 5), SKUHM_BADRANGE);
    EXPECT_EQ(skuhmcp(ctx, heap, last - 1, some.at(2) - 4, 5), SKUHM_BADRANGE);
    EXPECT_EQ(skuhmcp(ctx, nullptr, nullptr, nullptr, 1), SKUHM_INVALID); // the heap comes first
    EXPECT_EQ(skuhmcp(ctx, heap, nullptr, nullptr, 0), 0u);
    EXPECT_ERRORS(ctx, {"skuhm 6", "skuhm 6", "skuhm 1"});
    EXPECT_EQ(std::string(last, 4), "aabc");

    void *address = &ctx;
    const auto page = static_cast<uint32_t>(some.page);
    EXPECT_EQ(heap->skuhmgetptr_pfn(ctx, &emptied, some.at(0), page, &address), 0u);
    EXPECT_EQ(address, some.at(1));
    EXPECT_EQ(skuhmgp(ctx, nullptr, some.at(2), 0, &address), SKUHM_BADRANGE); // before the heap
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(skuhmgp(ctx, heap, some.at(0), 2 * page, &address), SKUHM_BADRANGE);
    EXPECT_EQ(address, some.at(2));
    EXPECT_EQ(skuhmgp(ctx, nullptr, some.at(0), 0, &address), SKUHM_INVALID);
    EXPECT_EQ(address, nullptr);
    EXPECT_ERRORS(ctx, {"skuhm 6", "skuhm 6", "skuhm 1"});
}

TEST(Memory, EveryPageOfARangeIsAskedFor)
{
    // Ranges of more than 64 pages are asked for in other ways than short ones.
    const pages some(std::string(88, 'w') + "foFrrw-cwF" + std::string(89, 'o')
                     + std::string(100, 'r') + "c");
    ku::test::dice dice;
    const auto point = [&] {
        const auto page = static_cast<uint32_t>(some.page);
        const uint32_t areas[][2] = {{0, 288}, {0, 91}, {86, 12}, {96, 91}}; // pages: first, count
        const auto &area = areas[dice.below(4)];
        const uint32_t within = dice.below(area[1] * page);
        return some.at(area[0]) + within - (dice.one_in(3) ? within % page : 0);
    };
    ku::test::system_faults faults;
    for (int step = 0; step < 3000; step++) {
        if (step == 1500) faults.shorten(61);
        if (step == 2000) faults.fail_all("open", EMFILE); // no map, to say what is writable
        const auto [begin, end] = std::minmax({point(), point()});
        const auto length = static_cast<size_t>(end - begin);
        const auto good = [&, first = begin](const char *kinds) {
            return some.good(static_cast<size_t>(first - some.at(0)), length, kinds);
        };
        const bool exact = step < 2000 || good("wofF") || !good("rwofF");
        ASSERT_TRUE(kernel::readable(begin, length) == good("rwf")
                    && (kernel::writable(begin, length) == good("wofF") || !exact))
            << begin - some.at(0) << " " << length << ", seed " << ku::test::seed();
    }
}

TEST(Memory, NoAddressDoesHarm)
{
    const auto at = [](uintptr_t address) { return reinterpret_cast<const void *>(address); };
    char byte = 0;
    EXPECT_TRUE(kernel::readable(nullptr, 0) && kernel::writable(at(UINTPTR_MAX), 0));
    EXPECT_FALSE(kernel::readable(nullptr, 1) || kernel::writable(at(16), 1));
    EXPECT_FALSE(kernel::readable(at(UINTPTR_MAX), 2) || kernel::readable(&byte, SIZE_MAX));
    EXPECT_FALSE(kernel::writable(at(UINTPTR_MAX), 1));
    EXPECT_TRUE(kernel::writable(&byte, 1));
    const pages large(std::string(100, 'w'));
    ku::test::system_faults faults;
    faults.shorten(61);
    for (int bad = 1; bad <= 3; bad++) { // a map that ends in an error is no answer
        faults.fail_from_now("read", bad, EIO);
        EXPECT_TRUE(kernel::writable(large.at(0), large.size()));
        EXPECT_TRUE(faults.failed());
    }
    munmap(large.at(50), large.page);
    const bool over_hole = kernel::readable(large.at(0), large.size());
    mmap(large.at(50), large.page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    EXPECT_FALSE(over_hole);
}

TEST(HeapThreads, EachWithItsOwnHeapShareTheRuntime)
{
    const ku::test::variable sysdir("KU_SYSDIR", KU_BINARY_DIR);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([i] {
            kux *ctx = kuxcreate(nullptr);
            for (int round = 0; round < 20; round++) {
                tag_skuhm *heap = skuhmi(ctx, 0);
                void *blocks[100];
                for (void *&block : blocks) std::memset(block = skuhmal(ctx, heap, 50), i, 50);
                for (void *block : blocks) skuhmfr(ctx, heap, skuhmra(ctx, heap, block, 90));
                skuhmf(ctx, &heap);
            }
            EXPECT_EQ(kuxernerrors(ctx), 0);
            kuxdestroy(ctx);
        });
    for (std::thread &thread : threads) thread.join();
}
