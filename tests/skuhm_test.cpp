// skuhm_test.cpp - heaps, the runtime below them, and questions about memory

#include <algorithm>
#include <cstring>
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
// 'c' of a file that was cut since it was mapped.
class pages
{
public:
    explicit pages(const std::string &kinds) : kinds_(kinds)
    {
        start_ = static_cast<char *>(
            mmap(nullptr, size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(static_cast<void *>(start_), MAP_FAILED);
        for (size_t i = 0; i < kinds.size(); i++) {
            if (kinds[i] == 'c') cut(i);
            if (kinds[i] == 'r') mprotect(at(i), page, PROT_READ);
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
    void cut(size_t index)
    {
        const ku::test::directory directory;
        const int file = open(directory.write("cut", "x").c_str(), O_RDWR);
        EXPECT_EQ(mmap(at(index), page, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
                  at(index));
        EXPECT_EQ(ftruncate(file, 0), 0);
        close(file);
    }

    std::string kinds_;
    char *start_;
};

const uint32_t invalid = SKUHM_INVALID;

} // namespace

TEST(HeapRuntimes, StepsThatWereTakenAreUndoneInReverseWhereverCreationFails)
{
    static constexpr char created[] = "CoInitialize CoGetMalloc(1) allocator Alloc ";
    static const struct {
        const char *runtime, *fault;
        uint32_t flags;
        const char *error;
        std::string calls;
    } rows[] = {
        {"none", "", 0, "skuhm 2", ""},
        {"CoInitialize", "", 0, "skuhm 2", "unload "},
        {"CoUninitialize", "", 0, "skuhm 2", "unload "},
        {"CoGetMalloc", "", 0, "skuhm 2", "unload "},
        {"Nothing", "CoInitialize", 0, "skuhm 2", "CoInitialize unload "},
        {"Nothing", "CoGetMalloc(1)", 0, "skuhm 2",
         "CoInitialize CoGetMalloc(1) allocator CoUninitialize unload "},
        {"Nothing", "allocator", 0, "skuhm 2",
         "CoInitialize CoGetMalloc(1) allocator CoUninitialize unload "},
        {"Nothing", "Alloc", 0, "skuhm 4", created + std::string("Release CoUninitialize unload ")},
        {"Nothing", "", 0xFFFFFFFE, nullptr, created}, // other bits mean nothing
        {"Nothing", "", SKUHM_SHARED, nullptr, "CoInitialize CoGetMalloc(2) allocator Alloc "},
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
        ASSERT_EQ(heap == nullptr, row.error != nullptr);
        if (heap == nullptr) {
            EXPECT_ERRORS(ctx, {row.error});
            continue;
        }
        skuhmhm(ctx, heap);
        skuhmf(ctx, &heap);
        EXPECT_EQ(heap, nullptr);
        EXPECT_EQ(directory.read("log"),
                  row.calls + "HeapMinimize Free Release CoUninitialize unload ");
    }
}

TEST(HeapRuntimes, AreInTheSystemDirectoryOrWhereTheSystemLooksForLibraries)
{
    std::string program(4096, '\0');
    program.resize(static_cast<size_t>(readlink("/proc/self/exe", program.data(), 4096)));
    char buffer[256] = "before";
    const auto directory = [&](uint32_t size) -> std::string {
        const uint32_t length = kernel::system_directory(buffer, size);
        return length != 0 ? std::string(buffer, length) : "none";
    };
    for (const char *unset : {"", static_cast<const char *>(nullptr)}) {
        const ku::test::variable sysdir("KU_SYSDIR", unset);
        EXPECT_EQ(directory(256), program.substr(0, program.rfind('/')));
        ku::test::system_faults faults;
        faults.shorten(7); // the map comes in small pieces
        EXPECT_EQ(directory(256), program.substr(0, program.rfind('/')));
        faults.fail_all("open", EMFILE);
        EXPECT_EQ(directory(256), "none");
    }
    std::string longest = runtimes + "Nothing/";
    longest += std::string(255 - longest.size(), '/');
    std::string backslashes = KU_BINARY_DIR;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    ku::test::context ctx;
    const ku::test::directory logged;
    for (const std::string &where : {longest, longest + "/", longest + "/x", backslashes}) {
        const ku::test::variable sysdir("KU_SYSDIR", where);
        const ku::test::variable log("KU_TEST_LOG", logged.write("log", ""));
        EXPECT_EQ(directory(256), where.size() < 256 ? where : "none");
        tag_skuhm *heap = skuhmi(ctx, 0);
        ASSERT_NE(heap, nullptr) << where;
        EXPECT_EQ(logged.read("log").empty(), where == backslashes); // the real one notes nothing
        skuhmf(ctx, &heap);
    }
    EXPECT_EQ(kernel::load_module(nullptr, ""), nullptr);
}

TEST_F(Heap, RandomBlocksKeepTheirSizesAndBytesLikeAMapOfStrings)
{
    ku::test::dice dice;
    std::map<char *, std::string> model;
    const auto any = [&] {
        return std::next(model.begin(), dice.below(static_cast<uint32_t>(model.size())));
    };
    for (int step = 0; step < 6000; step++) {
        const uint32_t size = dice.below(200);
        const std::string bytes(size, static_cast<char>('a' + step % 26));
        const uint32_t choice = dice.below(step < 3000 ? 5 : 8); // grows first, then shrinks
        if (model.empty() || choice < 3) {
            auto *block = static_cast<char *>(skuhmal(ctx, heap, size));
            ASSERT_NE(block, nullptr);
            std::memcpy(block, bytes.data(), size);
            ASSERT_TRUE(model.emplace(block, bytes).second);
        } else if (choice == 3) {
            const auto old = any();
            auto *block = static_cast<char *>(skuhmra(ctx, heap, old->first, size));
            ASSERT_NE(block, nullptr);
            const size_t kept = std::min<size_t>(size, old->second.size());
            ASSERT_EQ(std::string(block, kept), old->second.substr(0, kept));
            model.erase(old);
            std::memcpy(block, bytes.data(), size);
            model[block] = bytes;
        } else {
            const auto old = any();
            skuhmfr(ctx, heap, old->first);
            model.erase(old);
        }
        if (model.empty()) continue;
        const auto &[block, expected] = *any();
        uint32_t known = 77;
        ASSERT_EQ(skuhmgs(ctx, heap, block, &known), 0u) << "seed " << ku::test::seed();
        ASSERT_EQ(known, expected.size());
        ASSERT_EQ(std::string(block, known), expected);
        if (step % 1000 == 0) skuhmhm(ctx, heap);
    }
    for (const auto &left : model) skuhmfr(ctx, heap, left.first);
}

TEST_F(Heap, StrangersAndImpossibleSizesAreRefused)
{
    uint32_t size = 77;
    char local = 0;
    auto *block = static_cast<char *>(skuhmal(ctx, heap, 0));
    auto *gone = static_cast<char *>(skuhmal(ctx, heap, 8));
    ASSERT_EQ(skuhmgs(ctx, heap, block, &size), 0u);
    EXPECT_EQ(size, 0u);
    skuhmfr(ctx, heap, gone);
    for (char *stranger : {&local, block + 1, gone, reinterpret_cast<char *>(8)}) {
        EXPECT_EQ(skuhmgs(ctx, heap, stranger, &size), SKUHM_BADRANGE);
        EXPECT_EQ(skuhmra(ctx, heap, stranger, 4), nullptr);
        skuhmfr(ctx, heap, stranger);
        EXPECT_ERRORS(ctx, {"skuhm 6", "skuhm 5"});
    }
    EXPECT_EQ(skuhmal(ctx, heap, UINT32_MAX), nullptr);
    EXPECT_EQ(skuhmra(ctx, heap, block, UINT32_MAX), nullptr);
    EXPECT_ERRORS(ctx, {"skuhm 4", "skuhm 5"});
    EXPECT_EQ(skuhmgs(ctx, heap, block, &size), 0u); // as it was
    skuhmfr(ctx, heap, nullptr);
    EXPECT_EQ(skuhmra(ctx, heap, nullptr, 4), nullptr);
    EXPECT_EQ(skuhmgs(ctx, heap, nullptr, &size), invalid);
    EXPECT_EQ(skuhmgs(ctx, heap, block, nullptr), invalid);
    EXPECT_ERRORS(ctx, {"skuhm 1", "skuhm 1", "skuhm 1"});
    skuhmfr(ctx, heap, block);
}

TEST_F(Heap, OperationsOfAnUnusableHeapAreRefusedAndTheTableHoldsThemAll)
{
    tag_skuhm emptied = *heap;
    emptied.skuhmprivate = nullptr;
    char byte = 'x';
    uint32_t size = 77;
    for (tag_skuhm *unusable : {&emptied, static_cast<tag_skuhm *>(nullptr)}) {
        tag_skuhm *pointer = unusable;
        skuhmf(ctx, &pointer);
        EXPECT_EQ(pointer, unusable);
        EXPECT_EQ(heap->skuhmalloc_pfn(ctx, unusable, 1), nullptr);
        EXPECT_EQ(heap->skuhmrealloc_pfn(ctx, unusable, &byte, 1), nullptr);
        heap->skuhmfree_pfn(ctx, unusable, &byte);
        EXPECT_EQ(heap->skuhmgetsize_pfn(ctx, unusable, &byte, &size), invalid);
        heap->skuhmheapmin_pfn(ctx, unusable);
        EXPECT_ERRORS(ctx, std::vector<std::string>(6, "skuhm 1"));
    }
    skuhmf(ctx, nullptr);
    EXPECT_ERRORS(ctx, {"skuhm 1"});
    EXPECT_EQ(heap->kuxp, static_cast<kux *>(ctx));
    EXPECT_EQ(heap->skuhmprivate, heap + 1);
    EXPECT_EQ(heap->skuhmisokw_pfn(ctx, nullptr, "constant", 1), 0);
    EXPECT_EQ(heap->skuhmisokr_pfn(ctx, nullptr, "constant", 1), 1);
    tag_skuhm *second = heap->skuhminit_pfn(ctx, SKUHM_SHARED);
    ASSERT_NE(second, nullptr);
    heap->skuhmfinish_pfn(ctx, &second);
    EXPECT_EQ(second, nullptr);
}

TEST_F(Heap, CopiesAndPointersLookBeforeTheyTouch)
{
    const pages some("wr-");
    char *const last = some.at(1) - 4; // of the page that can be written
    std::strcpy(last, "abc");
    EXPECT_EQ(heap->skuhmmemcpy_pfn(ctx, heap, last + 1, last, 3), 0u); // ranges overlap
    EXPECT_STREQ(last, "aabc");
    EXPECT_EQ(skuhmcp(ctx, heap, last, "xyz12", 5), SKUHM_BADRANGE);
    EXPECT_EQ(skuhmcp(ctx, heap, last - 1, some.at(2) - 4, 5), SKUHM_BADRANGE);
    EXPECT_EQ(skuhmcp(ctx, heap, nullptr, last, 1), SKUHM_BADRANGE);
    EXPECT_EQ(skuhmcp(ctx, nullptr, nullptr, nullptr, 1), invalid); // the heap comes first
    EXPECT_EQ(skuhmcp(ctx, heap, nullptr, nullptr, 0), 0u);
    EXPECT_ERRORS(ctx, {"skuhm 6", "skuhm 6", "skuhm 6", "skuhm 1"});
    EXPECT_EQ(std::string(last, 4), "aabc");
    tag_skuhm emptied = *heap;
    emptied.skuhmprivate = nullptr; // not looked at
    EXPECT_EQ(skuhmcp(ctx, &emptied, last, "z", 1), 0u);
    EXPECT_EQ(*last, 'z');

    const uint32_t page = static_cast<uint32_t>(some.page);
    const struct {
        void *heap, *old;
        uint32_t offset, status;
        void *address;
    } rows[] = {
        {heap, some.at(0), page, 0, some.at(1)},
        {heap, some.at(0), 2 * page, SKUHM_BADRANGE, some.at(2)},
        {heap, some.at(2), 0, SKUHM_BADRANGE, nullptr},
        {nullptr, some.at(2), 0, SKUHM_BADRANGE, nullptr}, // the pointer comes first
        {nullptr, some.at(0), 0, invalid, nullptr},
        {&emptied, some.at(0), 0, 0, some.at(0)},
    };
    for (const auto &row : rows) {
        void *address = &ctx;
        EXPECT_EQ(heap->skuhmgetptr_pfn(ctx, row.heap, row.old, row.offset, &address), row.status);
        EXPECT_EQ(address, row.address);
        if (row.status != 0) EXPECT_ERRORS(ctx, {ku::test::spelled(row.status)});
    }
    EXPECT_EQ(skuhmgp(ctx, heap, some.at(0), 0, nullptr), invalid);
    EXPECT_ERRORS(ctx, {"skuhm 1"});
}

TEST(Memory, EveryPageOfARangeIsAskedFor)
{
    // Ranges of more than 64 pages are asked for in other ways than short ones.
    const pages some(std::string(90, 'w') + "wrrw-cw" + std::string(100, 'r') + "c");
    ku::test::dice dice;
    const auto point = [&] {
        const auto page = static_cast<uint32_t>(some.page);
        const uint32_t areas[][2] = {{0, 198}, {0, 2}, {88, 10}, {88, 10}}; // pages: first, count
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
        const bool exact = step < 2000 || !good("rw");
        ASSERT_TRUE(kernel::readable(begin, length) == good("rw")
                    && (kernel::writable(begin, length) == good("w") || !exact))
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
                ASSERT_NE(heap, nullptr);
                std::vector<void *> blocks;
                for (uint32_t size = 0; size < 100; size++) {
                    blocks.push_back(skuhmal(ctx, heap, size));
                    std::memset(blocks.back(), i, size);
                }
                for (uint32_t size = 0; size < 100; size++) {
                    uint32_t known = 0;
                    EXPECT_EQ(skuhmgs(ctx, heap, blocks[size], &known), 0u);
                    EXPECT_EQ(known, size);
                    blocks[size] = skuhmra(ctx, heap, blocks[size], 2 * size);
                    skuhmfr(ctx, heap, blocks[size]);
                }
                skuhmf(ctx, &heap);
            }
            EXPECT_EQ(kuxernerrors(ctx), 0);
            kuxdestroy(ctx);
        });
    for (std::thread &thread : threads) thread.join();
}
