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

static auto open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// A virtual file with what it is reached through; closed at the end.
struct paged : ku::unique {
    paged(kux *with, void *through, const std::string &path, uint16_t mode = SKUF_SCRATCH)
        : ctx(with), cache(through), name(path), file(opened(mode))
    {
    }
    ~paged() { close(); }
    skufv *opened(uint16_t mode) const
    {
        return static_cast<skufv *>(skufvopen(ctx, cache, name.c_str(), mode));
    }
    void close() { file = static_cast<skufv *>(skufvclose(ctx, cache, file)); }
    unsigned char *block(uint32_t number) const { return skufvgptr(ctx, cache, file, number); }
    uint32_t move(uint32_t position, std::string &bytes, char direction) const
    {
        file->skufvpos = position;
        const auto length = static_cast<uint32_t>(bytes.size());
        return skufvmove(ctx, cache, file, bytes.data(), length, direction);
    }
    uint32_t put(uint32_t at, std::string bytes) const { return move(at, bytes, SKUFV_PUT); }
    std::string get(uint32_t at, std::size_t length) const
    {
        std::string bytes(length, '#');
        return move(at, bytes, SKUFV_GET) == 0 ? bytes : "failed";
    }
    // Fills blocks from 0 on with their numbers, as often as a scratch file needs to be mapped.
    uint32_t fill(uint32_t blocks) const
    {
        uint32_t status = 0;
        for (uint32_t block = 0; status == 0 && block < blocks; block++)
            status = put(block * 4096, std::string(4096, static_cast<char>(block)));
        return status;
    }

    kux *ctx;
    void *cache;
    std::string name;
    skufv *file;
};

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
    EXPECT_EQ(skufvopen(ctx, nullptr, name.c_str(), SKUF_READWRITE), nullptr);
    EXPECT_EQ(skufodelete(ctx, dir.path("none").c_str()), SKUFA_REMOVE);
    EXPECT_EQ(errors(), " 18 21");

    ASSERT_EQ(symlink("file", dir.path("planted").c_str()), 0);
    skufo *writer = skufoopen(ctx, name.c_str(), SKUF_READWRITE);
    const auto refused = [&](const std::string &path, uint16_t mode, const char *code) {
        EXPECT_EQ(paged(ctx, cache, path, mode).file, nullptr);
        EXPECT_EQ(errors(), code) << path;
    };
    refused("", SKUF_SCRATCH, " 10");
    refused(dir.path(), SKUF_SCRATCH, " 17");
    refused(std::string(5000, 'x'), SKUF_SCRATCH, " 14");
    refused(dir.path("none"), SKUF_READWRITE, " 17");
    refused(dir.path("planted"), SKUF_SCRATCH, " 14");
    refused(name, SKUF_NEW, " 13"); // another writer has it
    EXPECT_EQ(dir.read("file"), "bytes");
    EXPECT_EQ(skufoclose(ctx, writer), nullptr);
    for (int n = 1; n <= 2; n++) { // the raw file's seek, then the virtual file's
        system_faults faults;
        faults.fail_from_now("lseek", n, ESPIPE);
        refused(name, SKUF_APPEND, " 6");
    }
    ASSERT_EQ(truncate(name.c_str(), 0x100000000), 0); // sparse
    refused(name, SKUF_APPEND, " 6");
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
        paged file(ctx, three, scratch());
        const auto fetch = [&](uint32_t block) {
            EXPECT_NE(file.block(block), nullptr);
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
        EXPECT_EQ(fs::file_size(file.name), 0u) << "neither a flush nor clean blocks are written";
        EXPECT_EQ(fetch(0), " 1 0 5");
        EXPECT_EQ(fs::file_size(file.name), 11u * 4096) << "evicted";
        for (int again = 0; again < 2; again++) // which is free already then
            EXPECT_EQ(skufbfree(ctx, three, three->skufmru), 0u);
        EXPECT_EQ(fetch(6), " 1 6 5") << "just freed, next out";
        void *other = skufvopen(ctx, three, scratch().c_str(), SKUF_SCRATCH);
        skufvgptr(ctx, three, other, 0);
        file.close();
        EXPECT_EQ(skufdestroy(ctx, three), nullptr) << "with a block of the other file";
        skufvclose(ctx, cache, other);
    }
}

TEST_F(Skuf, TheCeilingDecidesWhatIsReadAndTheEndLeavesTheBufferAlone)
{
    system_faults faults;
    paged file(ctx, cache, scratch());
    EXPECT_EQ(file.file->skufvceiling, 0u);
    std::memset(file.block(10), 'a', 4096); // not dirty, so not written
    std::memset(file.block(11), 'b', 4096);
    EXPECT_EQ(file.file->skufvceiling, 12u);
    EXPECT_EQ(faults.made("pread"), 0);
    const unsigned char *block = file.block(3);
    EXPECT_EQ(faults.made("pread"), 1) << "below the ceiling";
    EXPECT_TRUE(block[0] == 'a' && block[4095] == 'a') << "the file ends before";
    EXPECT_EQ(skufbdclear(ctx, cache, file.file), 0u);
    file.block(0);
    EXPECT_EQ(faults.made("pread"), 1) << "discarded";
    file.close();
    file.name = dir.write("file", "short");
    file.file = file.opened(SKUF_APPEND);
    EXPECT_TRUE(file.file->skufvpos == 5 && file.file->skufvceiling == 0x7FFFFFFF);
    EXPECT_EQ(file.get(0, 7), "shortaa") << "what was in the buffer before";
    EXPECT_EQ(file.put(5, "er"), 0u);
    EXPECT_EQ(skufbfflush(ctx, cache, file.file), 0u);
    EXPECT_EQ(dir.read("file").substr(0, 8), "shortera");
    EXPECT_EQ(fs::file_size(file.name), 4096u) << "whole blocks";
    file.close();
    EXPECT_EQ(faults.made("pwrite"), 1) << "clean once it was flushed";
}

TEST_F(Skuf, AMoveStopsAtErrorsAndAtTheEndOfTheRange)
{
    const paged moved(ctx, cache, scratch());
    skufv *file = moved.file;
    std::string data(10000, 'x');
    EXPECT_EQ(moved.put(4000, data), 0u);
    EXPECT_TRUE(file->skufvpos == 14000 && file->skufvceiling == 4);
    EXPECT_EQ(moved.put(0xFFFFFFFE, "xx"), 0u);
    EXPECT_TRUE(file->skufvpos == 0 && file->skufvceiling == SKUF_BLOCKS);
    EXPECT_EQ(moved.put(0xFFFFFFFE, "xxx"), SKUFA_SEEK);
    EXPECT_EQ(moved.get(0xFFFFFFFE, 3), "failed");
    EXPECT_EQ(moved.block(SKUF_BLOCKS), nullptr);
    EXPECT_EQ(skufvmove(ctx, cache, file, nullptr, 0, SKUFV_GET), 0u) << "nothing to do";
    EXPECT_EQ(skufvmove(ctx, cache, file, data.data(), 1, SKUFV_GET), SKUFA_SEEK) << "an older one";
    EXPECT_EQ(file->skufvpos, 0xFFFFFFFEu);
    EXPECT_EQ(errors(), " 6 6 6");

    for (const uint32_t code :
         {skufvmove(ctx, cache, nullptr, data.data(), 1, SKUFV_GET),
          skufbread(ctx, cache, nullptr, 0, data.data()),
          skufbwrite(ctx, cache, file->skufvid, 0, nullptr), skufbfree(ctx, cache, nullptr),
          skufbfflush(ctx, nullptr, file), skufbdclear(ctx, cache, nullptr)})
        EXPECT_EQ(code, SKUFA_NULL);
    EXPECT_EQ(skufvgptr(ctx, cache, nullptr, 0), nullptr);
    EXPECT_EQ(skufvclose(ctx, nullptr, file), nullptr);
    EXPECT_EQ(skufbwrite(ctx, cache, file->skufvid, SKUF_BLOCKS, data.data()), SKUFA_SEEK);
    EXPECT_EQ(skufbread(ctx, cache, file->skufvid, SKUF_BLOCKS, data.data()), SKUFA_SEEK);
    EXPECT_EQ(errors(), " 21 21 21 21 21 21 21 21 6(" + moved.name + ") 6(" + moved.name + ")");
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
        paged file(ctx, cache, name, SKUF_READWRITE);
        for (const uint32_t position : {0u, 4096u}) EXPECT_EQ(file.put(position, "changed"), 0u);
        faults.fail_from_now(row.call, 1, row.error);
        EXPECT_EQ(file.block(2), nullptr);
        EXPECT_ERRORS(ctx, {row.code});
        for (const uint32_t block : {2u, 0u, 1u, 3u})
            EXPECT_EQ(*file.block(block), block < 2 ? 'c' : 'f') << block;
        EXPECT_EQ(file.put(0, "changed"), 0u);
        faults.fail_from_now("pwrite", 1, ENOSPC);
        EXPECT_EQ(skufbfflush(ctx, cache, file.file), SKUFA_WRITE);
        faults.shorten(0); // a disk that takes nothing and gives no reason
        file.close();
        EXPECT_EQ(errors(), " 3 3");
    }
}

TEST_F(Skuf, ATemporaryFileStaysWhenItsOwnerMayNotKnowIt)
{
    seem_on(EXT4_SUPER_MAGIC);
    paged file(ctx, cache, dir.path("kept"));
    ASSERT_EQ(file.fill(100), 0u);
    EXPECT_EQ(file.get(50 * 4096, 1), "\x32");
    EXPECT_EQ(file.put(51 * 4096, "x"), 0u);
    skufoclose(ctx, std::exchange(file.file->skufvid, nullptr)); // with blocks here in part
    EXPECT_NE(file.get(50 * 4096, 1), "failed");
    EXPECT_EQ(file.block(52), nullptr) << "51 cannot be written";
    for (const uint32_t block : {50u, 51u}) EXPECT_NE(file.block(block), nullptr);
    EXPECT_EQ(skufbdclear(ctx, cache, file.file), 0u);
    file.close();
    EXPECT_EQ(errors(), " 21 4") << "no raw file";
    EXPECT_TRUE(dir.has("kept"));

    file.file = file.opened(SKUF_SCRATCH);
    kuxer0push(ctx, SKUFA_NULL);
    file.close();
    EXPECT_TRUE(dir.has("kept")) << "an error is pending";
    ctx.clear();
    file.file = file.opened(SKUF_SCRATCH);
    ctx->kuxnmfree(ctx, std::exchange(file.file->skufvname, nullptr));
    file.close();
    EXPECT_EQ(errors(), " 4") << "no name";
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
        paged file(ctx, cache, scratch());
        const int truncated = faults.made("ftruncate");
        EXPECT_EQ(file.fill(100), 0u);
        EXPECT_EQ(fs::file_size(file.name), 98u * 4096) << "what was evicted, no more";
        const int written = faults.made("pwrite");
        EXPECT_EQ(file.get(4096 * 50, 1), "\x32");
        EXPECT_EQ(faults.made("pread"), row.reads);
        EXPECT_EQ(file.put(4096 * 50, "x"), 0u);
        for (const uint32_t block : {51u, 52u, 53u}) file.block(block);
        EXPECT_EQ(faults.made("pwrite") - written, 2 + row.writes) << "two that grew the file";
        faults.fail_all("pwrite", ENOSPC);
        EXPECT_EQ(file.fill(200), SKUFA_WRITE);
        ctx.clear();
        file.close();
        EXPECT_EQ(faults.made("unmap"), 1 - row.reads);
        EXPECT_EQ(faults.made("ftruncate") - truncated, row.call == std::string("reserve"));
    }
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
    const paged files[] = {{ctx, cache, scratch()}, {ctx, cache, scratch()}};
    for (const paged &file : files) ASSERT_EQ(file.fill(5120), 0u); // 20 MB
    const long empty = resident_files();
    dice random;
    const auto read = [&](const paged &file, uint32_t block) {
        const std::string byte(1, static_cast<char>(block));
        EXPECT_EQ(file.get(block * 4096 + 9, 1), byte);
        EXPECT_EQ(file.put(block * 4096 + 9, byte), 0u);
    };
    for (int i = 0; i < 100000; i++) read(files[random.below(2)], random.below(5120));
    EXPECT_LT(resident_files() - empty, 26 << 20) << "24, and a few pages of what gave way";

    // What is used much comes in, wherever it is.
    system_faults faults;
    for (const paged &file : files)
        for (const uint32_t first : {0u, 4800u}) {
            int seen = 0;
            for (int i = 0; i < 10000; i++) {
                if (i == 9000) seen = faults.made("pread");
                read(file, first + random.below(256));
            }
            EXPECT_EQ(faults.made("pread"), seen) << first;
        }
}

// A region of a file beside a plain run of bytes.
struct modelled : paged {
    modelled(kux *with, void *through, const std::string &path, uint16_t mode, uint32_t first,
             std::size_t size)
        : paged(with, through, path, mode), kept(mode != SKUF_SCRATCH), base(first), model(size, 0)
    {
        EXPECT_EQ(put(base, model), 0u);
    }
    bool matches() const { return get(base, model.size()) == model; }
    void reopen()
    {
        close();
        file = opened(SKUF_READWRITE);
    }
    void step(dice &random)
    {
        const auto size = static_cast<uint32_t>(model.size());
        const uint32_t near = last + random.below(2000);
        const uint32_t offset = last = random.one_in(4) ? random.below(size) : near % size;
        std::string piece = model.substr(offset, 1 + random.below(random.one_in(9) ? 9000 : 300));
        const uint32_t choice = random.below(8);
        if (choice == 0) { // a block by its pointer, changed in one place
            unsigned char *found = block((base + offset) >> 12) + ((base + offset) & 0xFFF);
            ASSERT_EQ(static_cast<char>(*found), piece[0]);
            model[offset] = static_cast<char>(*found = static_cast<unsigned char>(random.bits()));
            static_cast<skuf *>(cache)->skufmru->skufbflags |= SKUFB_DIRTY;
        } else if (choice == 1 && random.one_in(20)) {
            ASSERT_EQ(skufbfflush(ctx, cache, random.one_in(2) ? file : nullptr), 0u);
            if (kept) reopen();
        } else if (choice < 5) {
            for (char &byte : piece) byte = static_cast<char>(random.bits());
            model.replace(offset, piece.size(), piece);
            ASSERT_EQ(put(base + offset, piece), 0u);
        } else {
            ASSERT_EQ(get(base + offset, piece.size()), piece);
        }
    }
    bool kept;
    uint32_t base; // position of the region
    std::string model;
    uint32_t last = 0; // offset of the last move
};

TEST_F(Skuf, RandomMovesMatchPlainBytesInTwoCachesAtOnce)
{
    dice random;
    for (const std::uint64_t kind : {EXT4_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC, NFS_SUPER_MAGIC}) {
        seem_on(kind);
        void *caches[] = {skufcreate(ctx, 4), skufdcreate(ctx, 15)};
        constexpr uint16_t kept = SKUF_READWRITE | SKUF_NEW;
        modelled regions[] = {
            {ctx, caches[0], scratch(), SKUF_SCRATCH, 0, 1u << 20},
            {ctx, caches[0], dir.path("low"), kept, 5000, 200000},
            {ctx, caches[1], scratch(), SKUF_SCRATCH, (16u << 20) - 300000, 700001},
            {ctx, caches[1], scratch(), SKUF_SCRATCH, 0xFFFFFFFF - 399999, 400000},
            {ctx, caches[1], dir.path("high"), kept, 0xFFFFFFFF - 99999, 100000},
        };
        system_faults faults;
        for (int i = 0; i < 16000 && !HasFatalFailure(); i++) {
            if (i % 4000 == 0) faults.shorten(i % 8000 == 0 ? SIZE_MAX : 1 + random.below(4000));
            regions[random.below(5)].step(random);
        }
        for (modelled &region : regions) {
            EXPECT_TRUE(region.matches()) << region.name;
            if (region.kept) region.reopen();
            EXPECT_TRUE(region.matches()) << region.name;
            region.close();
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
            paged file(swept, two, name);
            const bool opened = file.file != nullptr;
            uint32_t status = opened ? file.fill(80) : 1;
            for (uint32_t block = 0; status == 0 && block < 80; block += 7) {
                std::string pair(2, '#');
                status = file.move(block * 4096 + 4095, pair, SKUFV_GET);
                EXPECT_TRUE(status != 0 || (pair[0] == char(block) && pair[1] == pair[0] + 1));
            }
            EXPECT_TRUE(!opened || status == kuxercode(swept));
            swept.clear(); // else the file would stay
            file.close();
            // It stays only when all went well until it could not be closed or deleted.
            const bool gone = unlink(name.c_str()) != 0;
            EXPECT_TRUE(gone || (opened && status == 0));
            skufdestroy(swept, two);
            return status == 0 && gone && kuxernerrors(swept) == 0;
        };
        ku::test::sweep_allocations(run);
        ku::test::sweep_system_calls(run, {EIO, EINTR});
        ku::test::sweep_basic_allocations([&](context &swept) { return run(swept), true; });
    }
}
