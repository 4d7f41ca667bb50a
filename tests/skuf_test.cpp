// skuf_test.cpp - paged files: the cache, its buffers, raw and virtual files, fresh names
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "kuguard.h"
#include "port/crt/crt.h"
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
namespace fs = std::filesystem;
using bytes = std::vector<unsigned char>;

static auto open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

static skufv *open_file(kux *ctx, void *cache, const std::string &name, uint16_t mode)
{
    return static_cast<skufv *>(skufvopen(ctx, cache, name.c_str(), mode));
}

static uint32_t move(kux *ctx, void *cache, skufv *file, uint32_t position, void *data,
                     std::size_t length, char direction)
{
    file->skufvpos = position;
    return skufvmove(ctx, cache, file, data, static_cast<uint32_t>(length), direction);
}

// Files that are made from now on seem to be on a file system of this kind.
static void seem_on(std::uint64_t kind)
{
    static std::uint64_t chosen;
    static ku::crt::system_calls table = ku::crt::calls();
    chosen = kind;
    table.filesystem = [](int, std::uint64_t *found) {
        *found = chosen;
        return 0;
    };
    ku::crt::replace_calls(&table);
}

// No test may leave a descriptor open or a scratch file behind.
class Skuf : public testing::Test
{
protected:
    ~Skuf() override
    {
        skufdestroy(ctx, cache);
        ku::crt::replace_calls(nullptr);
        EXPECT_EQ(open_descriptors(), before);
        for (const std::string &name : dir.names()) EXPECT_NE(name.rfind("scratch", 0), 0u) << name;
    }
    std::string scratch() { return dir.path("scratch" + std::to_string(made++)); }
    skufv *opened(const std::string &name, uint16_t mode)
    {
        return open_file(ctx, cache, name, mode);
    }
    // The numbers of the errors, oldest first, which are forgotten.
    std::string errors()
    {
        std::string all;
        for (const std::string &error : ctx.errors()) all += error.substr(5); // after "skufa"
        ctx.clear();
        return all;
    }

    context ctx;
    ku::test::directory dir;
    std::ptrdiff_t before = open_descriptors();
    int made = 0;
    skuf *cache = static_cast<skuf *>(skufcreate(ctx, 2));
};

TEST_F(Skuf, TheTemporaryDirectoryEndsInASeparator)
{
    static constexpr struct {
        const char *language, *value, *wanted;
    } rows[] = {
        {"ascii", nullptr, ""},
        {"ascii", "C:\\TEMP", "C:\\TEMP\\"},
        {"ascii", "C:\\TEMP\\", "C:\\TEMP\\"},
        {"ascii", "D:", "D:"},
        {"ascii", "/tmp/", "/tmp/\\"}, // only the backslash counts
        {"ascii", "t\x83\\", "t\x83\\"},
        {"sjis", "t\x83\\", "t\x83\\\\"}, // a trail byte is no separator
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
    }
    for (const std::size_t length : {510u, 511u}) { // with separator and NUL: 512 and 513
        const ku::test::variable tmp("TMP", std::string(length, 'x'));
        void *other = skufcreate(ctx, 2);
        EXPECT_EQ(other != nullptr, length == 510);
        EXPECT_EQ(skufdestroy(ctx, other), nullptr);
    }
    EXPECT_EQ(errors(), "") << "the code is returned, not pushed";
}

TEST_F(Skuf, FreshNamesCountOnAndPassOverWhatExists)
{
    const auto numbered = [](int counter) {
        char name[32];
        std::snprintf(name, sizeof name, "%03d%05d", counter, static_cast<int>(getpid()) % 65536);
        return std::string(name);
    };
    const std::string prefix = dir.path() + "\\";
    const auto fresh = [&](void *from, const char *start) {
        ku::owned<char> name(ctx, skufzname(ctx, from, start));
        return !name ? "none" : std::string(name.get() + (start == nullptr ? 0 : prefix.size()));
    };
    EXPECT_EQ(fresh(cache, prefix.c_str()), numbered(1));
    EXPECT_EQ(fresh(cache, nullptr), numbered(2));
    cache->skuftnum = 999;
    dir.write(numbered(999), "");
    EXPECT_EQ(fresh(cache, prefix.c_str()), numbered(0));
    for (int i = 0; i < 1000; i++)
        if (i != 777) dir.write(numbered(i), "");
    EXPECT_EQ(fresh(cache, prefix.c_str()), numbered(777));
    dir.write(numbered(777), "");
    EXPECT_EQ(fresh(cache, prefix.c_str()), "none");
    EXPECT_EQ(errors(), "");
    EXPECT_EQ(fresh(nullptr, nullptr), "none");
    EXPECT_EQ(errors(), " 21");
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
    for (const auto &row : rows) {
        system_faults faults;
        faults.fail_from_now("open", 1, row.reason);
        if (row.access != 0) faults.fail_from_now("access", row.access, EROFS);
        EXPECT_EQ(skufoopen(ctx, name.c_str(), SKUF_READWRITE), nullptr);
        EXPECT_EQ(errors(), row.code);
    }
    EXPECT_EQ(skufvopen(ctx, cache, nullptr, SKUF_SCRATCH), nullptr);
    for (const std::string &bad : {std::string(), dir.path(), std::string(5000, 'x')})
        EXPECT_EQ(opened(bad, SKUF_SCRATCH), nullptr);
    EXPECT_EQ(opened(dir.path("none"), SKUF_READWRITE), nullptr);
    EXPECT_EQ(skufvopen(ctx, nullptr, name.c_str(), SKUF_READWRITE), nullptr);
    EXPECT_EQ(errors(), " 18 10 17 14 17 21");

    skufo *first = skufoopen(ctx, name.c_str(), SKUF_READWRITE);
    EXPECT_EQ(skufoopen(ctx, name.c_str(), SKUF_NEW), nullptr) << "another writer has it";
    EXPECT_EQ(dir.read("file"), "bytes");
    EXPECT_EQ(skufoclose(ctx, first), nullptr);
    ASSERT_EQ(symlink("file", dir.path("link").c_str()), 0);
    EXPECT_EQ(opened(dir.path("link"), SKUF_SCRATCH), nullptr) << "a planted link";
    EXPECT_EQ(skufodelete(ctx, dir.path("none").c_str()), SKUFA_REMOVE);
    system_faults faults;
    for (int n = 1; n <= 2; n++) { // the raw file's seek, then the virtual file's
        faults.fail_from_now("lseek", n, ESPIPE);
        EXPECT_EQ(opened(name, SKUF_APPEND), nullptr);
    }
    ASSERT_EQ(truncate(name.c_str(), 0x100000000), 0); // sparse
    EXPECT_EQ(opened(name, SKUF_APPEND), nullptr);
    EXPECT_EQ(errors(), " 13 14 6 6 6");
}

TEST_F(Skuf, DescriptorsStayAwayFromTheStandardStreams)
{
    const int input = dup(0);
    close(0);
    skufo *file = skufoopen(ctx, dir.path("file").c_str(), SKUF_CREATE);
    dup2(input, 0);
    close(input);
    ASSERT_TRUE(file != nullptr && file->skufoid > 2);
    EXPECT_EQ(fcntl(file->skufoid, F_GETFD), FD_CLOEXEC);
    struct stat found = {};
    EXPECT_TRUE(fstat(file->skufoid, &found) == 0 && (found.st_mode & 07777) == 0600);

    system_faults faults;
    faults.fail_from_now("close", 1, EIO);
    skufoclose(ctx, file);
    EXPECT_ERRORS(ctx, {"skufa 4(" + dir.path("file") + ")"});
    skufoclose(ctx, file); // releases what is left
    skufoclose(ctx, nullptr);
    EXPECT_EQ(errors(), " 4");
}

TEST_F(Skuf, TheHandSparesOnlyTheMostRecentBuffer)
{
    for (const auto &[asked, got] : {std::pair(0, 2), {1, 2}, {3, 3}, {14, 14}, {25, 15}}) {
        void *other = skufcreate(ctx, static_cast<uint16_t>(asked));
        EXPECT_EQ(static_cast<skuf *>(other)->skufnum, got);
        skufdestroy(ctx, other);
    }
    for (auto *create : {skufcreate, skufdcreate}) {
        auto *three = static_cast<skuf *>(create(ctx, 3));
        const std::string name = scratch();
        skufv *file = open_file(ctx, three, name, SKUF_SCRATCH);
        const auto fetch = [&](uint32_t block) {
            EXPECT_NE(skufvgptr(ctx, three, file, block), nullptr);
            std::string held;
            for (int i = 0; i < 3; i++)
                held.append(" ").append(std::to_string(three->skuftab[i].skufbnum));
            return held;
        };
        fetch(4);
        fetch(1);
        EXPECT_EQ(fetch(7), " 7 1 4") << "free buffers from the last to the first";
        EXPECT_EQ(fetch(10), " 7 10 4") << "the hand skips the most recent, block 7";
        fetch(4);
        EXPECT_EQ(fetch(2), " 2 10 4") << "skips block 4 and wraps";
        fetch(10);
        three->skufmru->skufbflags |= SKUFB_DIRTY;
        EXPECT_EQ(skufbfflush(ctx, three, nullptr), 0u);
        EXPECT_EQ(fetch(5), " 2 10 5");
        EXPECT_EQ(fetch(1), " 1 10 5");
        EXPECT_EQ(fs::file_size(name), 0u) << "neither a flush nor clean blocks are written";
        EXPECT_EQ(fetch(0), " 1 0 5");
        EXPECT_EQ(fs::file_size(name), 11u * 4096) << "evicted";
        EXPECT_EQ(skufbfree(ctx, three, three->skufmru), 0u);
        EXPECT_EQ(skufbfree(ctx, three, three->skufmru), 0u) << "free already";
        EXPECT_EQ(fetch(6), " 1 6 5") << "just freed, next out";
        skufv *other = open_file(ctx, three, scratch(), SKUF_SCRATCH);
        skufvgptr(ctx, three, other, 0);
        EXPECT_EQ(skufvclose(ctx, three, file), nullptr);
        EXPECT_EQ(skufdestroy(ctx, three), nullptr) << "with a block of the other file";
        skufvclose(ctx, cache, other);
    }
}

TEST_F(Skuf, TheCeilingDecidesWhatIsReadAndTheEndLeavesTheBufferAlone)
{
    system_faults faults;
    skufv *file = opened(scratch(), SKUF_SCRATCH);
    EXPECT_EQ(file->skufvceiling, 0u);
    std::memset(skufvgptr(ctx, cache, file, 10), 'a', 4096); // not dirty, so not written
    std::memset(skufvgptr(ctx, cache, file, 11), 'b', 4096);
    EXPECT_EQ(file->skufvceiling, 12u);
    EXPECT_EQ(faults.made("pread"), 0);
    const unsigned char *block = skufvgptr(ctx, cache, file, 3);
    EXPECT_EQ(faults.made("pread"), 1) << "below the ceiling";
    EXPECT_TRUE(block[0] == 'a' && block[4095] == 'a') << "the file ends before";
    EXPECT_EQ(skufbdclear(ctx, cache, file), 0u);
    skufvgptr(ctx, cache, file, 0);
    EXPECT_EQ(faults.made("pread"), 1) << "discarded";
    skufvclose(ctx, cache, file);

    file = opened(dir.write("file", "short"), SKUF_APPEND);
    EXPECT_TRUE(file->skufvpos == 5 && file->skufvceiling == 0x7FFFFFFF);
    block = skufvgptr(ctx, cache, file, 0);
    EXPECT_EQ(std::string(block, block + 7), "shortaa") << "what was in the buffer before";
    char more[] = "er";
    EXPECT_EQ(skufvmove(ctx, cache, file, more, 2, SKUFV_PUT), 0u);
    EXPECT_EQ(skufbfflush(ctx, cache, file), 0u);
    EXPECT_EQ(dir.read("file").substr(0, 8), "shortera");
    EXPECT_EQ(fs::file_size(dir.path("file")), 4096u) << "whole blocks";
    skufvclose(ctx, cache, file);
    EXPECT_EQ(faults.made("pwrite"), 1) << "clean once it was flushed";
}

TEST_F(Skuf, AMoveStopsAtErrorsAndAtTheEndOfTheRange)
{
    const std::string name = scratch();
    skufv *file = opened(name, SKUF_SCRATCH);
    bytes data(10000, 'x');
    EXPECT_EQ(move(ctx, cache, file, 4000, data.data(), 10000, SKUFV_PUT), 0u);
    EXPECT_TRUE(file->skufvpos == 14000 && file->skufvceiling == 4);
    EXPECT_EQ(move(ctx, cache, file, 0xFFFFFFFE, data.data(), 2, SKUFV_PUT), 0u);
    EXPECT_TRUE(file->skufvpos == 0 && file->skufvceiling == SKUF_BLOCKS);
    for (const char direction : {SKUFV_PUT, SKUFV_GET})
        EXPECT_EQ(move(ctx, cache, file, 0xFFFFFFFE, data.data(), 3, direction), SKUFA_SEEK);
    EXPECT_EQ(skufvgptr(ctx, cache, file, SKUF_BLOCKS), nullptr);
    EXPECT_EQ(skufvmove(ctx, cache, file, nullptr, 0, SKUFV_GET), 0u) << "nothing to do";
    EXPECT_EQ(skufvmove(ctx, cache, file, data.data(), 1, SKUFV_GET), SKUFA_SEEK) << "an older one";
    EXPECT_EQ(file->skufvpos, 0xFFFFFFFEu);
    EXPECT_EQ(errors(), " 6 6 6");

    EXPECT_EQ(skufvmove(ctx, cache, nullptr, data.data(), 1, SKUFV_GET), SKUFA_NULL);
    EXPECT_EQ(skufvgptr(ctx, cache, nullptr, 0), nullptr);
    EXPECT_EQ(skufbread(ctx, cache, nullptr, 0, data.data()), SKUFA_NULL);
    EXPECT_EQ(skufbwrite(ctx, cache, file->skufvid, 0, nullptr), SKUFA_NULL);
    EXPECT_EQ(skufbwrite(ctx, cache, file->skufvid, SKUF_BLOCKS, data.data()), SKUFA_SEEK);
    EXPECT_EQ(skufbfree(ctx, cache, nullptr), SKUFA_NULL);
    EXPECT_EQ(skufbfflush(ctx, nullptr, file), SKUFA_NULL);
    EXPECT_EQ(skufbdclear(ctx, cache, nullptr), SKUFA_NULL);
    EXPECT_EQ(skufvclose(ctx, nullptr, file), nullptr);
    EXPECT_EQ(errors(), " 21 21 21 21 6(" + name + ") 21 21 21 21");
    EXPECT_EQ(skufvclose(ctx, cache, skufvclose(ctx, cache, file)), nullptr);
}

TEST_F(Skuf, AFailedTransferHasItsCodeAndLeavesTheCacheUsable)
{
    const std::string name = dir.path("file");
    const struct {
        const char *call;
        int error;
        std::string code;
    } rows[] = {{"pread", EIO, "skufa 2(" + name + ")"},
                {"pwrite", EIO, "skufa 3"},
                {"pread", ESPIPE, "skufa 6(" + name + ")"},
                {"pwrite", EINVAL, "skufa 6(" + name + ")"}};
    for (const auto &row : rows) {
        system_faults faults;
        dir.write("file", std::string(16384, 'f'));
        skufv *file = opened(name, SKUF_READWRITE);
        char text[] = "changed";
        for (const uint32_t position : {0u, 4096u})
            EXPECT_EQ(move(ctx, cache, file, position, text, 7, SKUFV_PUT), 0u);
        faults.fail_from_now(row.call, 1, row.error);
        EXPECT_EQ(skufvgptr(ctx, cache, file, 2), nullptr);
        EXPECT_ERRORS(ctx, {row.code});
        for (const uint32_t block : {2u, 0u, 1u, 3u})
            EXPECT_EQ(*skufvgptr(ctx, cache, file, block), block < 2 ? 'c' : 'f') << block;
        EXPECT_EQ(move(ctx, cache, file, 0, text, 7, SKUFV_PUT), 0u);
        faults.fail_from_now("pwrite", 1, ENOSPC);
        EXPECT_EQ(skufbfflush(ctx, cache, file), SKUFA_WRITE);
        faults.shorten(0); // a disk that takes nothing and gives no reason
        skufvclose(ctx, cache, file);
        EXPECT_EQ(errors(), " 3 3");
    }
    skufv *file = opened(dir.path("kept"), SKUF_SCRATCH);
    kuxer0push(ctx, SKUFA_NULL);
    skufvclose(ctx, cache, file);
    EXPECT_TRUE(dir.has("kept")) << "an error is pending";
    ctx.clear();
    file = opened(dir.path("kept"), SKUF_SCRATCH);
    ctx->kuxnmfree(ctx, file->skufvname);
    file->skufvname = nullptr;
    skufvclose(ctx, cache, file);
    EXPECT_EQ(errors(), " 4") << "a temporary file without a name";
}

// Fills blocks from 0 on with their numbers, as often as a scratch file needs to be mapped.
static uint32_t write_much(kux *ctx, void *cache, skufv *file, uint32_t blocks)
{
    uint32_t status = 0;
    for (uint32_t block = 0; status == 0 && block < blocks; block++) {
        bytes data(4096, static_cast<unsigned char>(block));
        status = move(ctx, cache, file, block * 4096, data.data(), 4096, SKUFV_PUT);
    }
    return status;
}

TEST_F(Skuf, AFullDiskIsAFailedWriteHoweverTheFileIsReached)
{
    static constexpr struct {
        std::uint64_t kind; // of file system
        const char *call;   // that fails
        int reads, writes;  // by descriptor, to read one page and to write another
    } rows[] = {
        {EXT4_SUPER_MAGIC, "fsync", 0, 0},      {EXT4_SUPER_MAGIC, "map", 1, 1},
        {EXT4_SUPER_MAGIC, "reserve", 0, 1},    {BTRFS_SUPER_MAGIC, "fsync", 0, 1},
        {EXT4_SUPER_MAGIC, "filesystem", 1, 1}, {NFS_SUPER_MAGIC, "fsync", 1, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.call);
        seem_on(row.kind);
        system_faults faults;
        faults.fail_all(row.call, ENOSPC);
        skufv *file = opened(scratch(), SKUF_SCRATCH);
        EXPECT_EQ(write_much(ctx, cache, file, 100), 0u);
        EXPECT_EQ(fs::file_size(file->skufvname), 98u * 4096) << "what was evicted, no more";
        const int written = faults.made("pwrite");
        unsigned char byte = 0;
        EXPECT_EQ(move(ctx, cache, file, 4096 * 50, &byte, 1, SKUFV_GET), 0u);
        EXPECT_TRUE(byte == 50 && faults.made("pread") == row.reads) << faults.made("pread");
        EXPECT_EQ(move(ctx, cache, file, 4096 * 50, &byte, 1, SKUFV_PUT), 0u);
        for (const uint32_t block : {51u, 52u, 53u}) skufvgptr(ctx, cache, file, block);
        EXPECT_EQ(faults.made("pwrite") - written, 2 + row.writes) << "two that grew the file";
        faults.fail_all("pwrite", ENOSPC);
        EXPECT_EQ(write_much(ctx, cache, file, 200), SKUFA_WRITE);
        ctx.clear();
        skufvclose(ctx, cache, file);
        EXPECT_EQ(faults.made("unmap"), 1 - row.reads);
    }
}

TEST_F(Skuf, AFileThatWasClosedUnderItsOwnerIsNotReachedAndStays)
{
    seem_on(EXT4_SUPER_MAGIC);
    skufv *file = opened(dir.path("kept"), SKUF_SCRATCH);
    ASSERT_EQ(write_much(ctx, cache, file, 100), 0u);
    unsigned char byte = 0;
    for (const char direction : {SKUFV_GET, SKUFV_PUT}) // blocks that are here in part
        EXPECT_EQ(move(ctx, cache, file, (50 + direction) * 4096, &byte, 1, direction), 0u);
    skufoclose(ctx, std::exchange(file->skufvid, nullptr));
    EXPECT_EQ(move(ctx, cache, file, 50 * 4096, &byte, 1, SKUFV_GET), 0u);
    EXPECT_EQ(skufvgptr(ctx, cache, file, 52), nullptr) << "51 cannot be written";
    for (const uint32_t block : {50u, 51u}) EXPECT_NE(skufvgptr(ctx, cache, file, block), nullptr);
    EXPECT_EQ(skufbdclear(ctx, cache, file), 0u);
    skufvclose(ctx, cache, file);
    EXPECT_EQ(errors(), " 21 4");
    EXPECT_TRUE(dir.has("kept"));
}

// Bytes of files that are resident in this process.
static long resident_files()
{
    long size = 0, resident = 0, shared = 0;
    std::ifstream("/proc/self/statm") >> size >> resident >> shared;
    return shared * sysconf(_SC_PAGESIZE);
}

TEST_F(Skuf, NoMoreOfScratchFilesIsResidentThanTheBuffersAllow)
{
    seem_on(EXT4_SUPER_MAGIC);
    void *small = skufcreate(ctx, 2);
    std::vector<skufv *> files;
    for (int i = 0; i < 2; i++) {
        files.push_back(open_file(ctx, small, scratch(), SKUF_SCRATCH));
        ASSERT_EQ(write_much(ctx, small, files[i], 5120), 0u); // 20 MB
    }
    const long empty = resident_files();
    dice random;
    const auto read = [&](skufv *file, uint32_t block) {
        unsigned char byte = 0;
        EXPECT_EQ(move(ctx, small, file, block * 4096 + 9, &byte, 1, SKUFV_GET), 0u);
        EXPECT_EQ(byte, block & 0xFF);
        EXPECT_EQ(move(ctx, small, file, block * 4096 + 9, &byte, 1, SKUFV_PUT), 0u);
    };
    for (int i = 0; i < 100000; i++) read(files[random.below(2)], random.below(5120));
    EXPECT_LT(resident_files() - empty, 26 << 20) << "24, and a few pages of what gave way";

    // What is used much comes in, wherever it is.
    system_faults faults;
    for (skufv *file : files)
        for (const uint32_t first : {0u, 4800u}) {
            int seen = 0;
            for (int i = 0; i < 10000; i++) {
                if (i == 9000) seen = faults.made("pread");
                read(file, first + random.below(256));
            }
            EXPECT_EQ(faults.made("pread"), seen) << first;
        }
    for (skufv *file : files) skufvclose(ctx, small, file);
    skufdestroy(ctx, small);
}

// A region of a file beside a plain run of bytes.
struct modelled {
    void *cache;
    uint32_t base; // position of the region
    uint16_t mode;
    std::string name;
    bytes model;
    skufv *file = nullptr;
    uint32_t last = 0; // offset of the last move

    uint32_t move(kux *ctx, uint32_t offset, bytes &data, char direction) const
    {
        return ::move(ctx, cache, file, base + offset, data.data(), data.size(), direction);
    }
    bool matches(kux *ctx) const
    {
        bytes found(model.size());
        return move(ctx, 0, found, SKUFV_GET) == 0 && found == model;
    }
};

static void step(context &ctx, dice &random, modelled &region)
{
    const auto size = static_cast<uint32_t>(region.model.size());
    const uint32_t near = region.last + random.below(2000);
    const uint32_t offset = region.last = random.one_in(4) ? random.below(size) : near % size;
    bytes piece(std::min(size - offset, 1 + random.below(random.one_in(9) ? 9000 : 300)));
    const auto at = region.model.begin() + offset;
    const uint32_t choice = random.below(8);
    if (choice == 0) { // a block by its pointer, changed in one place
        const uint32_t position = region.base + offset;
        unsigned char *block = skufvgptr(ctx, region.cache, region.file, position >> 12);
        ASSERT_TRUE(block != nullptr && block[position & 0xFFF] == *at);
        *at = block[position & 0xFFF] = static_cast<unsigned char>(random.bits());
        static_cast<skuf *>(region.cache)->skufmru->skufbflags |= SKUFB_DIRTY;
    } else if (choice == 1 && random.one_in(20)) {
        ASSERT_EQ(skufbfflush(ctx, region.cache, random.one_in(2) ? region.file : nullptr), 0u);
        if ((region.mode & SKUF_TEMPORARY) != 0) return;
        skufvclose(ctx, region.cache, region.file);
        region.file = open_file(ctx, region.cache, region.name, SKUF_READWRITE);
    } else if (choice < 5) {
        for (unsigned char &byte : piece) byte = static_cast<unsigned char>(random.bits());
        std::copy(piece.begin(), piece.end(), at);
        ASSERT_EQ(region.move(ctx, offset, piece, SKUFV_PUT), 0u);
    } else {
        ASSERT_EQ(region.move(ctx, offset, piece, SKUFV_GET), 0u);
        ASSERT_TRUE(std::equal(piece.begin(), piece.end(), at));
    }
}

TEST_F(Skuf, RandomMovesMatchPlainBytesInTwoCachesAtOnce)
{
    dice random;
    for (const std::uint64_t kind : {EXT4_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC, NFS_SUPER_MAGIC}) {
        seem_on(kind);
        void *caches[] = {skufcreate(ctx, 4), skufdcreate(ctx, 15)};
        constexpr uint16_t kept = SKUF_READWRITE | SKUF_NEW;
        modelled regions[] = {
            {caches[0], 0, SKUF_SCRATCH, scratch(), bytes(1u << 20)},
            {caches[0], 5000, kept, dir.path("low"), bytes(200000)},
            {caches[1], (16u << 20) - 300000, SKUF_SCRATCH, scratch(), bytes(700001)},
            {caches[1], 0xFFFFFFFF - 399999, SKUF_SCRATCH, scratch(), bytes(400000)},
            {caches[1], 0xFFFFFFFF - 99999, kept, dir.path("high"), bytes(100000)},
        };
        for (modelled &region : regions) {
            region.file = open_file(ctx, region.cache, region.name, region.mode);
            ASSERT_EQ(region.move(ctx, 0, region.model, SKUFV_PUT), 0u);
        }
        system_faults faults;
        for (int i = 0; i < 16000 && !HasFatalFailure(); i++) {
            if (i % 4000 == 0) faults.shorten(i % 8000 == 0 ? SIZE_MAX : 1 + random.below(4000));
            step(ctx, random, regions[random.below(5)]);
        }
        for (modelled &region : regions) {
            EXPECT_TRUE(region.matches(ctx)) << region.name;
            skufvclose(ctx, region.cache, region.file);
            if (region.mode == SKUF_SCRATCH) continue;
            region.file = open_file(ctx, region.cache, region.name, SKUF_READWRITE);
            EXPECT_TRUE(region.matches(ctx)) << region.name;
            skufvclose(ctx, region.cache, region.file);
        }
        for (void *each : caches) skufdestroy(ctx, each);
    }
}

TEST_F(Skuf, EveryCallAndAllocationMayFailAndNothingLeaksOrStays)
{
    seem_on(EXT4_SUPER_MAGIC);
    const std::string name = dir.path("swept");
    for (auto *create : {skufcreate, skufdcreate}) {
        const auto run = [&](context &swept) {
            void *two = create(swept, 2);
            if (two == nullptr) return false;
            skufv *file = open_file(swept, two, name, SKUF_SCRATCH);
            uint32_t status = file == nullptr ? 1 : write_much(swept, two, file, 80);
            for (uint32_t block = 0; status == 0 && block < 80; block += 7) {
                unsigned char pair[2];
                status = move(swept, two, file, block * 4096 + 4095, pair, 2, SKUFV_GET);
                EXPECT_TRUE(status != 0 || (pair[0] == block && pair[1] == block + 1));
            }
            EXPECT_TRUE(file == nullptr || status == kuxercode(swept));
            swept.clear(); // else the file would stay
            skufvclose(swept, two, file);
            // It stays only when all went well until it could not be closed or deleted.
            const bool gone = unlink(name.c_str()) != 0;
            EXPECT_TRUE(gone || (file != nullptr && status == 0));
            skufdestroy(swept, two);
            return status == 0 && gone && kuxernerrors(swept) == 0;
        };
        ku::test::sweep_allocations(run);
        ku::test::sweep_system_calls(run, {EIO, EINTR});
        ku::test::sweep_basic_allocations([&](context &swept) { return run(swept), true; });
    }
}
