// skuf_test.cpp - paged files: the cache, its buffers, raw and virtual files, fresh names
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "port/crt/crt.h"
#include "port/locale/locale.h"
#include "skuf.h"
#include "skufb.h"
#include "skufo.h"
#include "skufv.h"
#include "skufz.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;
using ku::test::dice;
using ku::test::system_faults;
using bytes = std::vector<unsigned char>;

static int open_descriptors()
{
    int count = 0;
    DIR *listing = opendir("/proc/self/fd");
    while (readdir(listing) != nullptr) count++;
    closedir(listing);
    return count;
}

static int64_t size_of(const std::string &name)
{
    struct stat found = {};
    return stat(name.c_str(), &found) == 0 ? static_cast<int64_t>(found.st_size) : -1;
}

// The numbers of the errors, oldest first, which are forgotten.
static std::string numbers(context &ctx)
{
    std::string all;
    for (const std::string &error : ctx.errors()) all += error.substr(5); // after "skufa"
    ctx.clear();
    return all;
}

static skufv *open(kux *ctx, void *cache, const std::string &name, unsigned mode)
{
    return static_cast<skufv *>(skufvopen(ctx, cache, name.c_str(), static_cast<uint16_t>(mode)));
}

static uint32_t move(kux *ctx, void *cache, skufv *file, uint32_t position, void *data,
                     uint32_t length, char direction)
{
    file->skufvpos = position;
    return skufvmove(ctx, cache, file, data, length, direction);
}

// No test may leave a descriptor open or a scratch file behind.
class Skuf : public testing::Test
{
protected:
    ~Skuf() override
    {
        EXPECT_EQ(open_descriptors(), before);
        for (const std::string &name : dir.names()) EXPECT_NE(name.rfind("scratch", 0), 0u) << name;
    }
    std::string scratch() { return dir.path("scratch" + std::to_string(made++)); }

    context ctx;
    ku::test::directory dir;
    int before = open_descriptors();
    int made = 0;
};

TEST_F(Skuf, TheTemporaryDirectoryEndsInASeparator)
{
    static constexpr struct {
        const char *language, *value, *wanted;
    } rows[] = {
        {"ascii", nullptr, ""},
        {"ascii", "", ""},
        {"ascii", "C:\\TEMP", "C:\\TEMP\\"},
        {"ascii", "C:\\TEMP\\", "C:\\TEMP\\"},
        {"ascii", "D:", "D:"},
        {"ascii", "/tmp/", "/tmp/\\"}, // only the backslash counts
        {"ascii", "t\x83\\", "t\x83\\"},
        {"sjis", "t\x83\\", "t\x83\\\\"}, // a trail byte is no separator
        {"utf8", "t\xC3\xA9", "t\xC3\xA9\\"},
    };
    for (const auto &row : rows) {
        context other(row.language);
        const ku::test::variable tmp("TMP", row.value);
        char found[SKUF_TMPDIRLEN] = "untouched";
        const auto needed = static_cast<uint32_t>(std::strlen(row.wanted) + 1);
        EXPECT_EQ(skuftmpdir(other, found, needed - 1), SKUFA_TMPDIR);
        EXPECT_STREQ(found, "untouched");
        EXPECT_EQ(skuftmpdir(other, found, needed), 0u);
        EXPECT_STREQ(found, row.wanted);
        void *cache = skufcreate(other, 2);
        EXPECT_STREQ(static_cast<skuf *>(cache)->skufpath, row.wanted);
        skufdestroy(other, cache);
    }
    for (const std::size_t length : {510u, 511u}) { // with separator and NUL: 512 and 513
        const ku::test::variable tmp("TMP", std::string(length, 'x'));
        void *cache = skufcreate(ctx, 2);
        EXPECT_EQ(cache != nullptr, length == 510);
        EXPECT_EQ(skufdestroy(ctx, cache), nullptr);
    }
    EXPECT_EQ(numbers(ctx), "") << "the code is returned, not pushed";
}

TEST_F(Skuf, FreshNamesCountOnAndPassOverWhatExists)
{
    const ku::test::variable tmp("TMP", dir.path());
    auto *cache = static_cast<skuf *>(skufcreate(ctx, 0));
    char process[6];
    std::snprintf(process, sizeof process, "%05u", static_cast<unsigned>(getpid()) % 65536);
    const auto fresh = [&] {
        char *name = skufzname(ctx, cache, cache->skufpath);
        const std::string copy = name == nullptr ? "none" : name;
        if (name != nullptr) ctx->kuxnmfree(ctx, name);
        return copy;
    };
    const auto numbered = [&](const char *digits) { return std::string(digits) + process; };
    EXPECT_EQ(fresh(), dir.path() + "\\" + numbered("001"));
    EXPECT_EQ(fresh(), dir.path() + "\\" + numbered("002"));
    cache->skuftnum = 999;
    dir.write(numbered("999"), "");
    EXPECT_EQ(fresh(), dir.path() + "\\" + numbered("000"));
    for (int i = 0; i < 1000; i++) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%03d", i);
        if (i != 777) dir.write(numbered(digits), "");
    }
    EXPECT_EQ(fresh(), dir.path() + "\\" + numbered("777"));
    dir.write(numbered("777"), "");
    EXPECT_EQ(fresh(), "none");
    char *name = skufzname(ctx, cache, nullptr);
    EXPECT_EQ(name, numbered("778"));
    ctx->kuxnmfree(ctx, name);
    EXPECT_EQ(numbers(ctx), "");
    EXPECT_EQ(skufzname(ctx, nullptr, ""), nullptr);
    EXPECT_EQ(numbers(ctx), " 21");
    skufdestroy(ctx, cache);
}

TEST_F(Skuf, EveryReasonOfAFailedOpeningHasItsCode)
{
    static constexpr struct {
        int reason; // of the system's open
        int access; // the call of access that fails; 0: none
        const char *code;
    } rows[] = {
        {EPERM, 1, " 12"},  {EACCES, 2, " 9"},   {EROFS, 0, " 13"},
        {ENOENT, 0, " 17"}, {ENOTDIR, 0, " 17"}, {EISDIR, 0, " 17"},
        {ENFILE, 0, " 5"},  {EMFILE, 0, " 5"},   {EIO, 0, " 14"},
    };
    const std::string name = dir.write("file", "bytes");
    void *cache = skufcreate(ctx, 3);
    for (const auto &row : rows) {
        system_faults faults;
        faults.fail_from_now("open", 1, row.reason);
        if (row.access != 0) faults.fail_from_now("access", row.access, EROFS);
        EXPECT_EQ(skufoopen(ctx, name.c_str(), SKUF_READWRITE), nullptr);
        EXPECT_EQ(numbers(ctx), row.code);
    }
    EXPECT_EQ(skufvopen(ctx, cache, nullptr, SKUF_SCRATCH), nullptr);
    EXPECT_EQ(open(ctx, cache, "", SKUF_SCRATCH), nullptr);
    EXPECT_EQ(open(ctx, cache, dir.path("none"), SKUF_READWRITE), nullptr);
    EXPECT_EQ(open(ctx, cache, dir.path(), SKUF_SCRATCH), nullptr);
    EXPECT_EQ(open(ctx, cache, std::string(5000, 'x'), SKUF_SCRATCH), nullptr);
    EXPECT_EQ(skufvopen(ctx, nullptr, name.c_str(), SKUF_READWRITE), nullptr);
    EXPECT_EQ(numbers(ctx), " 18 10 17 17 14 21");

    skufo *first = skufoopen(ctx, name.c_str(), SKUF_READWRITE);
    EXPECT_EQ(skufoopen(ctx, name.c_str(), SKUF_NEW), nullptr) << "another writer has it";
    EXPECT_EQ(dir.read("file"), "bytes");
    EXPECT_EQ(skufoclose(ctx, first), nullptr);
    ASSERT_EQ(symlink("file", dir.path("link").c_str()), 0);
    EXPECT_EQ(open(ctx, cache, dir.path("link"), SKUF_SCRATCH), nullptr) << "a planted link";
    EXPECT_EQ(skufodelete(ctx, dir.path("none").c_str()), SKUFA_REMOVE);
    system_faults faults;
    for (int n = 1; n <= 2; n++) { // skufoopen's own, then skufvopen's
        faults.fail_from_now("lseek", n, ESPIPE);
        EXPECT_EQ(open(ctx, cache, name, SKUF_APPEND), nullptr);
    }
    ASSERT_EQ(truncate(name.c_str(), 0x100000000), 0); // sparse
    EXPECT_EQ(open(ctx, cache, name, SKUF_APPEND), nullptr);
    EXPECT_EQ(numbers(ctx), " 13 14 6 6 6");
    EXPECT_EQ(skufdestroy(ctx, skufdestroy(ctx, cache)), nullptr);
}

TEST_F(Skuf, DescriptorsStayAwayFromTheStandardStreams)
{
    const int input = dup(0);
    close(0);
    skufo *file = skufoopen(ctx, dir.path("file").c_str(), SKUF_CREATE);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(input, 0);
    close(input);
    ASSERT_NE(file, nullptr);
    EXPECT_GT(file->skufoid, 2);
    EXPECT_EQ(fcntl(file->skufoid, F_GETFD), FD_CLOEXEC);
    struct stat found = {};
    EXPECT_EQ(fstat(file->skufoid, &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0600u);

    system_faults faults;
    faults.fail_from_now("close", 1, EIO);
    skufoclose(ctx, file);
    EXPECT_EQ(ctx.errors(), std::vector<std::string>{"skufa 4(" + dir.path("file") + ")"});
    ctx.clear();
    skufoclose(ctx, file); // releases what is left
    skufoclose(ctx, nullptr);
    EXPECT_EQ(numbers(ctx), " 4");
}

TEST_F(Skuf, TheHandSparesOnlyTheMostRecentBuffer)
{
    for (const auto &[asked, got] : {std::pair(0, 2), {1, 2}, {2, 2}, {3, 3}, {14, 14}, {25, 15}}) {
        void *cache = skufcreate(ctx, static_cast<uint16_t>(asked));
        EXPECT_EQ(static_cast<skuf *>(cache)->skufnum, got);
        skufdestroy(ctx, cache);
    }
    for (auto *create : {skufcreate, skufdcreate}) {
        auto *cache = static_cast<skuf *>(create(ctx, 3));
        const std::string name = scratch();
        skufv *file = open(ctx, cache, name, SKUF_SCRATCH);
        const auto fetch = [&](uint32_t block) {
            EXPECT_NE(skufvgptr(ctx, cache, file, block), nullptr);
            std::string held;
            for (int i = 0; i < 3; i++) held += " " + std::to_string(cache->skuftab[i].skufbnum);
            return held;
        };
        fetch(4);
        fetch(1);
        EXPECT_EQ(fetch(7), " 7 1 4") << "free buffers from the last to the first";
        EXPECT_EQ(fetch(10), " 7 10 4") << "the hand skips the most recent, block 7";
        EXPECT_EQ(fetch(4), " 7 10 4");
        EXPECT_EQ(fetch(2), " 2 10 4") << "skips block 4 and wraps";
        fetch(10);
        cache->skufmru->skufbflags |= SKUFB_DIRTY;
        EXPECT_EQ(skufbfflush(ctx, cache, nullptr), 0u);
        EXPECT_EQ(size_of(name), 0) << "a flush passes temporary files over";
        EXPECT_EQ(fetch(5), " 2 10 5");
        EXPECT_EQ(size_of(name), 0) << "clean blocks are not written";
        fetch(5);
        EXPECT_EQ(fetch(1), " 1 10 5");
        EXPECT_EQ(fetch(0), " 1 0 5");
        EXPECT_EQ(size_of(name), 11 * 4096) << "evicted";
        EXPECT_EQ(skufbfree(ctx, cache, cache->skufmru), 0u);
        EXPECT_EQ(skufbfree(ctx, cache, cache->skufmru), 0u) << "free already";
        EXPECT_EQ(fetch(6), " 1 6 5") << "just freed, next out";
        EXPECT_EQ(skufvclose(ctx, cache, file), nullptr);
        EXPECT_EQ(skufdestroy(ctx, cache), nullptr);
    }
    // A cache whose file is still open gives back its data areas, too.
    void *cache = skufdcreate(ctx, 2);
    skufv *file = open(ctx, cache, dir.path("file"), SKUF_CREATE);
    skufvgptr(ctx, cache, file, 0);
    skufdestroy(ctx, cache);
    cache = skufcreate(ctx, 2);
    skufvclose(ctx, cache, file);
    skufdestroy(ctx, cache);
}

TEST_F(Skuf, TheCeilingDecidesWhatIsReadAndTheEndLeavesTheBufferAlone)
{
    system_faults faults;
    void *cache = skufcreate(ctx, 2);
    skufv *file = open(ctx, cache, scratch(), SKUF_SCRATCH);
    EXPECT_EQ(file->skufvceiling, 0u);
    std::memset(skufvgptr(ctx, cache, file, 10), 'a', 4096); // never written: not dirty
    std::memset(skufvgptr(ctx, cache, file, 11), 'b', 4096);
    EXPECT_EQ(file->skufvceiling, 12u);
    EXPECT_EQ(faults.made("read"), 0);
    const unsigned char *block = skufvgptr(ctx, cache, file, 3);
    EXPECT_EQ(faults.made("read"), 1) << "below the ceiling";
    EXPECT_TRUE(block[0] == 'a' && block[4095] == 'a') << "the file ends before: " << block[0];
    EXPECT_EQ(skufbdclear(ctx, cache, file), 0u);
    skufvgptr(ctx, cache, file, 0);
    EXPECT_EQ(faults.made("read"), 1) << "discarded";
    skufvclose(ctx, cache, file);

    file = open(ctx, cache, dir.write("file", "short"), SKUF_APPEND);
    EXPECT_EQ(file->skufvpos, 5u);
    EXPECT_EQ(file->skufvceiling, 0x7FFFFFFFu);
    block = skufvgptr(ctx, cache, file, 0);
    EXPECT_EQ(std::string(block, block + 7), "shortaa") << "what block 10 left there";
    char more[] = "er";
    EXPECT_EQ(skufvmove(ctx, cache, file, more, 2, SKUFV_PUT), 0u);
    EXPECT_EQ(skufbfflush(ctx, cache, file), 0u);
    EXPECT_EQ(dir.read("file").substr(0, 8), "shortera");
    EXPECT_EQ(size_of(dir.path("file")), 4096) << "whole blocks";
    skufvclose(ctx, cache, file);
    skufdestroy(ctx, cache);
}

TEST_F(Skuf, AMoveStopsAtErrorsAndAtTheEndOfTheRange)
{
    for (auto *create : {skufcreate, skufdcreate}) {
        void *cache = create(ctx, 2);
        skufv *file = open(ctx, cache, scratch(), SKUF_SCRATCH);
        bytes data(10000, 'x');
        EXPECT_EQ(move(ctx, cache, file, 4000, data.data(), 10000, SKUFV_PUT), 0u);
        EXPECT_TRUE(file->skufvpos == 14000 && file->skufvceiling == 4);
        EXPECT_EQ(move(ctx, cache, file, 0xFFFFFFFE, data.data(), 2, SKUFV_PUT), 0u);
        EXPECT_TRUE(file->skufvpos == 0 && file->skufvceiling == SKUF_BLOCKS);
        EXPECT_EQ(move(ctx, cache, file, 0xFFFFFFFE, data.data(), 3, SKUFV_PUT), SKUFA_WRITE);
        ctx.clear();
        EXPECT_EQ(move(ctx, cache, file, 0xFFFFFFFE, data.data(), 3, SKUFV_GET), SKUFA_SEEK);
        EXPECT_EQ(skufvgptr(ctx, cache, file, SKUF_BLOCKS), nullptr);
        EXPECT_EQ(skufvmove(ctx, cache, file, nullptr, 0, SKUFV_GET), 0u) << "nothing to do";
        EXPECT_EQ(skufvmove(ctx, cache, file, data.data(), 1, SKUFV_GET), SKUFA_SEEK)
            << "an older error";
        EXPECT_EQ(file->skufvpos, 0xFFFFFFFEu);
        EXPECT_EQ(numbers(ctx), " 6 6");
        EXPECT_EQ(skufvmove(ctx, cache, file, nullptr, 1, SKUFV_GET), SKUFA_NULL);
        EXPECT_EQ(skufvmove(ctx, cache, nullptr, data.data(), 1, SKUFV_GET), SKUFA_NULL);
        EXPECT_EQ(skufvmove(ctx, nullptr, file, data.data(), 1, SKUFV_GET), SKUFA_NULL);
        EXPECT_EQ(skufvgptr(ctx, cache, nullptr, 0), nullptr);
        EXPECT_EQ(skufbread(ctx, cache, nullptr, 0, data.data()), SKUFA_NULL);
        EXPECT_EQ(skufbwrite(ctx, cache, file->skufvid, 0, nullptr), SKUFA_NULL);
        EXPECT_EQ(skufbwrite(ctx, cache, file->skufvid, SKUF_BLOCKS, data.data()), SKUFA_WRITE);
        EXPECT_EQ(skufbfree(ctx, cache, nullptr), SKUFA_NULL);
        EXPECT_EQ(skufbfflush(ctx, nullptr, file), SKUFA_NULL);
        EXPECT_EQ(skufbdclear(ctx, cache, nullptr), SKUFA_NULL);
        EXPECT_EQ(skufvclose(ctx, nullptr, file), nullptr);
        EXPECT_EQ(numbers(ctx), " 21 21 21 21 21 21 3 21 21 21 21");
        EXPECT_EQ(skufvclose(ctx, cache, skufvclose(ctx, cache, file)), nullptr);
        skufdestroy(ctx, cache);
    }
}

TEST_F(Skuf, AFailedTransferHasItsCodeAndLeavesTheCacheUsable)
{
    static constexpr struct {
        const char *call;
        const char *code; // with the file's name in place of "*"
    } rows[] = {{"read", "skufa 2(*)"}, {"write", "skufa 3"}, {"lseek", "skufa 6(*)"}};
    for (auto *create : {skufcreate, skufdcreate}) {
        for (const auto &row : rows) {
            system_faults faults;
            void *cache = create(ctx, 2);
            const std::string name = dir.write("file", std::string(16384, 'f'));
            skufv *file = open(ctx, cache, name, SKUF_READWRITE);
            char text[] = "changed";
            for (const uint32_t block : {0u, 1u})
                EXPECT_EQ(move(ctx, cache, file, block * 4096, text, 7, SKUFV_PUT), 0u);
            std::string wanted = row.code;
            if (wanted.back() == ')') wanted.replace(wanted.find('*'), 1, name);
            faults.fail_from_now(row.call, 1, EIO);
            EXPECT_EQ(skufvgptr(ctx, cache, file, 2), nullptr);
            EXPECT_EQ(ctx.errors(), std::vector<std::string>{wanted});
            ctx.clear();
            for (uint32_t block = 0; block < 4; block++) {
                const unsigned char *held = skufvgptr(ctx, cache, file, block);
                ASSERT_NE(held, nullptr);
                EXPECT_EQ(held[0], block < 2 ? 'c' : 'f') << block;
            }
            EXPECT_EQ(move(ctx, cache, file, 0, text, 7, SKUFV_PUT), 0u);
            faults.fail_from_now("write", 1, ENOSPC);
            EXPECT_EQ(skufbfflush(ctx, cache, file), SKUFA_WRITE);
            faults.shorten(0); // a disk that takes nothing and gives no reason
            skufvclose(ctx, cache, file);
            EXPECT_EQ(numbers(ctx), " 3 3");
            skufdestroy(ctx, cache);
        }
    }
    void *cache = skufcreate(ctx, 2);
    skufv *file = open(ctx, cache, dir.path("kept"), SKUF_SCRATCH);
    kuxer0push(ctx, SKUFA_NULL);
    skufvclose(ctx, cache, file);
    EXPECT_TRUE(dir.has("kept")) << "an error is pending";
    ctx.clear();
    file = open(ctx, cache, dir.path("kept"), SKUF_SCRATCH);
    ctx->kuxnmfree(ctx, file->skufvname);
    file->skufvname = nullptr;
    skufvclose(ctx, cache, file);
    EXPECT_EQ(numbers(ctx), " 4");
    skufdestroy(ctx, cache);
}

// Scratch files that are written much: on a file system of any kind.
static uint32_t write_much(kux *ctx, void *cache, skufv *file, uint32_t blocks)
{
    bytes data(4096);
    uint32_t status = 0;
    for (uint32_t block = 0; status == 0 && block < blocks; block++) {
        std::fill(data.begin(), data.end(), static_cast<unsigned char>(block));
        status = move(ctx, cache, file, block * 4096, data.data(), 4096, SKUFV_PUT);
    }
    return status;
}

TEST_F(Skuf, WithoutReservedSpaceAFullDiskIsAFailedWrite)
{
    static constexpr struct {
        const char *call;
        int reads; // by descriptor, for one page below the size
    } rows[] = {{"fsync", 0}, {"filesystem", 1}, {"reserve", 1}, {"map", 1}};
    for (const auto &row : rows) {
        static const ku::crt::system_calls *inner;
        inner = &ku::crt::calls();
        ku::crt::system_calls table = *inner;
        table.filesystem = [](int descriptor, std::uint64_t *kind) {
            const int result = inner->filesystem(descriptor, kind);
            *kind = 0xEF53; // one that keeps what it reserves
            return result;
        };
        ku::crt::replace_calls(&table);
        {
            system_faults faults;
            faults.fail_all(row.call, ENOSPC);
            void *cache = skufcreate(ctx, 2);
            skufv *file = open(ctx, cache, scratch(), SKUF_SCRATCH);
            EXPECT_EQ(write_much(ctx, cache, file, 100), 0u);
            EXPECT_EQ(size_of(file->skufvname), 98 * 4096) << "what was evicted, no more";
            unsigned char byte = 0;
            EXPECT_EQ(move(ctx, cache, file, 4096 * 50, &byte, 1, SKUFV_GET), 0u);
            EXPECT_EQ(byte, 50);
            EXPECT_EQ(faults.made("read"), row.reads) << row.call;
            faults.fail_all("write", ENOSPC);
            EXPECT_EQ(write_much(ctx, cache, file, 200), SKUFA_WRITE);
            ctx.clear();
            skufvclose(ctx, cache, file);
            skufdestroy(ctx, cache);
        }
        ku::crt::replace_calls(nullptr);
    }
}

// A region of a file beside a plain run of bytes.
struct modelled {
    void *cache;
    uint32_t base; // position of the region
    unsigned mode;
    std::string name;
    bytes model;
    skufv *file = nullptr;
};

static void check_whole(kux *ctx, modelled &region)
{
    bytes found(region.model.size());
    ASSERT_EQ(move(ctx, region.cache, region.file, region.base, found.data(),
                   static_cast<uint32_t>(found.size()), SKUFV_GET),
              0u);
    ASSERT_TRUE(found == region.model) << region.name;
}

static void step(context &ctx, dice &random, modelled &region)
{
    const auto size = static_cast<uint32_t>(region.model.size());
    const uint32_t offset = random.below(size);
    const uint32_t length =
        std::min(size - offset, 1 + random.below(random.one_in(9) ? 9000 : 300));
    const auto at = region.model.begin() + offset;
    bytes piece(length);
    switch (random.below(8)) {
    case 0: { // a whole block by its pointer, changed in one place
        const uint32_t position = region.base + offset;
        unsigned char *block = skufvgptr(ctx, region.cache, region.file, position >> 12);
        ASSERT_NE(block, nullptr);
        ASSERT_EQ(block[position & 0xFFF], *at);
        *at = block[position & 0xFFF] = static_cast<unsigned char>(random.bits());
        static_cast<skuf *>(region.cache)->skufmru->skufbflags |= SKUFB_DIRTY;
        break;
    }
    case 1:
        if (!random.one_in(20)) break;
        ASSERT_EQ(skufbfflush(ctx, region.cache, random.one_in(2) ? region.file : nullptr), 0u);
        if ((region.mode & SKUF_TEMPORARY) != 0) break;
        region.file = static_cast<skufv *>(skufvclose(ctx, region.cache, region.file));
        region.file = open(ctx, region.cache, region.name, SKUF_READWRITE);
        break;
    case 2:
    case 3:
    case 4:
        std::generate(piece.begin(), piece.end(),
                      [&] { return static_cast<unsigned char>(random.bits()); });
        std::copy(piece.begin(), piece.end(), at);
        ASSERT_EQ(move(ctx, region.cache, region.file, region.base + offset, piece.data(), length,
                       SKUFV_PUT),
                  0u);
        break;
    default:
        ASSERT_EQ(move(ctx, region.cache, region.file, region.base + offset, piece.data(), length,
                       SKUFV_GET),
                  0u);
        ASSERT_TRUE(std::equal(piece.begin(), piece.end(), at));
    }
}

TEST_F(Skuf, RandomMovesMatchPlainBytesInTwoCachesAtOnce)
{
    dice random;
    void *caches[] = {skufcreate(ctx, 4), skufdcreate(ctx, 15)};
    constexpr uint32_t persistent = SKUF_READWRITE | SKUF_CREATE;
    modelled regions[] = {
        {caches[0], 0, SKUF_SCRATCH, scratch(), bytes(1u << 20)},
        {caches[0], 5000, persistent, dir.path("low"), bytes(200000)},
        {caches[1], (16u << 20) - 300000, SKUF_SCRATCH, scratch(), bytes(700001)}, // two windows
        {caches[1], 0xFFFFFFFF - 399999, SKUF_SCRATCH, scratch(), bytes(400000)}, // to the very end
        {caches[1], 0xFFFFFFFF - 99999, persistent, dir.path("high"), bytes(100000)},
    };
    for (modelled &region : regions) {
        region.file = open(ctx, region.cache, region.name, region.mode);
        ASSERT_EQ(move(ctx, region.cache, region.file, region.base, region.model.data(),
                       static_cast<uint32_t>(region.model.size()), SKUFV_PUT),
                  0u);
    }
    system_faults faults;
    for (int i = 0; i < 40000 && !HasFatalFailure(); i++) {
        if (i % 10000 == 0) faults.shorten(i % 20000 == 0 ? SIZE_MAX : 1 + random.below(4000));
        step(ctx, random, regions[random.below(5)]);
    }
    for (modelled &region : regions) {
        check_whole(ctx, region);
        skufvclose(ctx, region.cache, region.file);
        if (region.mode == SKUF_SCRATCH) continue;
        region.file = open(ctx, region.cache, region.name, SKUF_READWRITE);
        check_whole(ctx, region);
        skufvclose(ctx, region.cache, region.file);
    }
    for (void *cache : caches) skufdestroy(ctx, cache);
}

TEST_F(Skuf, EveryCallAndAllocationMayFailAndNothingLeaksOrStays)
{
    const ku::test::variable tmp("TMP", dir.path());
    void *(*create)(kux *, uint16_t) = skufcreate;
    const auto run = [&](context &swept) {
        auto *cache = static_cast<skuf *>(create(swept, 2));
        if (cache == nullptr) return false;
        char *name = skufzname(swept, cache, cache->skufpath);
        skufv *file = nullptr;
        if (name != nullptr) file = open(swept, cache, name, SKUF_SCRATCH);
        uint32_t status = file == nullptr ? 1 : write_much(swept, cache, file, 80);
        for (uint32_t block = 0; status == 0 && block < 80; block += 7) {
            unsigned char pair[2];
            status = move(swept, cache, file, block * 4096 + 4095, pair, 2, SKUFV_GET);
            EXPECT_TRUE(status != 0 || (pair[0] == block && pair[1] == block + 1));
        }
        EXPECT_TRUE(file == nullptr || status == kuxercode(swept));
        if (status != 0) swept.clear(); // so that the file is deleted
        skufvclose(swept, cache, file);
        const bool done = status == 0 && kuxernerrors(swept) == 0 && dir.names().empty();
        if (file == nullptr || !done) // only created, or not deleted: both have been told
            for (const std::string &left : dir.names()) unlink(dir.path(left).c_str());
        if (name != nullptr) swept->kuxnmfree(swept, name);
        skufdestroy(swept, cache);
        return done;
    };
    const auto tolerant = [&](context &swept) { // what fails may be done without
        run(swept);
        return true;
    };
    ku::test::sweep_allocations(run);
    create = skufdcreate;
    ku::test::sweep_allocations(run);
    ku::test::sweep_basic_allocations(tolerant);
    ku::test::sweep_system_calls(run, {EIO, EINTR});
    EXPECT_EQ(dir.names(), std::vector<std::string>());
}
