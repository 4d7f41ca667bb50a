// skub_test.cpp - streams, files by name, names as texts
#include <dirent.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "skub.h"
#include "skub_internal.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;
using ku::test::sweep_allocations;
using ku::test::sweep_system_calls;
using ku::test::system_faults;
using namespace std::string_literals;

static int open_descriptors()
{
    int count = 0;
    DIR *listing = opendir("/proc/self/fd");
    while (readdir(listing) != nullptr) count++;
    closedir(listing);
    return count;
}

static mode_t permissions(const std::string &name)
{
    struct stat found = {};
    EXPECT_EQ(stat(name.c_str(), &found), 0);
    return found.st_mode & 07777;
}

// No test may leave a descriptor open.
class Skub : public testing::Test
{
protected:
    ~Skub() override { EXPECT_EQ(open_descriptors(), before); }
    void *open(const std::string &name, const char *mode)
    {
        return skubopen(ctx, name.c_str(), mode);
    }
    // The numbers of the errors, oldest first, which are forgotten.
    std::string errors()
    {
        std::string all;
        for (const std::string &error : ctx.errors()) all += error.substr(5); // after "skuba"
        ctx.clear();
        return all;
    }

    context ctx;
    ku::test::directory dir;
    int before = open_descriptors();
};

TEST_F(Skub, ModeTextsOpenAsTheyAlwaysDid)
{
    static constexpr struct {
        const char *mode, *before; // null: no such file
        const char *after;         // writing "new" at once; null: still no file
        const char *errors;
    } rows[] = {
        {"r", "old", "old", " 10"},       {"rb", "old", "old", " 10"},
        {"r", nullptr, nullptr, " 2 14"}, {"r+", nullptr, nullptr, " 2 14"},
        {"r+", "older", "newer", ""},     {"w", "older", "new", ""},
        {"w+b", nullptr, "new", ""},      {"a", "old", "oldnew", ""},
        {"ab+", nullptr, "new", ""},      {"", "old", "old", " 14"},
        {"rr", "old", "old", " 14"},      {"r++", "old", "old", " 14"},
        {"wbb", "old", "old", " 14"},     {"x", "old", "old", " 14"},
        {nullptr, "old", "old", " 14"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.mode == nullptr ? "null" : row.mode);
        unlink(dir.path("f").c_str());
        if (row.before != nullptr) dir.write("f", row.before);
        void *stream = open(dir.path("f"), row.mode);
        skubsput(ctx, stream, "new");
        EXPECT_EQ(skubdestroy(ctx, stream), nullptr);
        EXPECT_EQ(dir.has("f"), row.after != nullptr);
        EXPECT_TRUE(row.after == nullptr || dir.read("f") == row.after);
        EXPECT_EQ(errors(), row.errors);
    }
}

TEST_F(Skub, AttributesAreCheckedInOrder)
{
    static constexpr struct {
        const char *name;
        skuba attrs;
        bool opens;
        const char *errors;
    } rows[] = {
        {"old", {0, SKUB_WRITE, 0, 0}, false, " 1"},
        {"old", {SKUBA_SPEC, 0, 0, 4}, false, " 1"},
        {"none", {SKUBA_MODE, SKUB_TRUNCATE, 0, 0}, false, " 2"},
        {"old", {SKUBA_MODE, SKUB_TRUNCATE, 0, 0}, false, " 3"},
        {"none", {SKUBA_MODE, SKUB_CREATE, 0, 0}, false, ""}, // opens for reading: creates nothing
        {".", {SKUBA_MODE, SKUB_CREATE, 0, 0}, false, ""},    // a directory
        {"old", {SKUBA_MODE | SKUBA_POSN, 0, -2, 0}, false, " 4"},
        {"old", {SKUBA_MODE | SKUBA_POSN, 0, 99, 0}, true, ""}, // stops at the end
        {"old", {SKUBA_MODE, SKUB_CREATE | SKUB_WRITE, 0, 0}, true, ""},
        {"new", {SKUBA_MODE, SKUB_CREATE | SKUB_WRITE | SKUB_TEMPORARY, 0, 0}, true, ""}, // goes
    };
    dir.write("old", "old");
    for (const auto &row : rows) {
        void *stream = skubcreate(ctx, dir.path(row.name).c_str(), &row.attrs);
        EXPECT_EQ(stream != nullptr && dir.has(row.name), row.opens);
        EXPECT_EQ(skubclose(ctx, stream), 0u);
        EXPECT_EQ(errors(), row.errors);
        EXPECT_EQ(dir.names(), std::vector<std::string>{"old"});
    }
}

TEST_F(Skub, StandardAndNullStreamsAreInert)
{
    for (void *stream : {ctx->kuxstdin, ctx->kuxstdout, static_cast<void *>(nullptr)}) {
        char line[] = "line";
        uint32_t items = 77;
        EXPECT_EQ(skubcget(ctx, stream, nullptr), 0u);
        EXPECT_EQ(skubread(ctx, stream, line, 1, 4, &items), 0u);
        EXPECT_EQ(skubsget(ctx, stream, line, 4), 0u);
        EXPECT_EQ(skubcput(ctx, stream, 'x'), 0u);
        EXPECT_EQ(skubwrite(ctx, stream, "xxxx", 1, 4, &items), 0u);
        EXPECT_EQ(skubsput(ctx, stream, "this must not be seen\n"), 0u);
        EXPECT_EQ(skubposition(ctx, stream, -5), 0u);
        EXPECT_TRUE(items == 77 && std::strcmp(line, "line") == 0);
    }
}

TEST_F(Skub, OddReadsEndAndAFailureStays)
{
    char block[16] = {};
    void *stream = open(dir.write("f", "a\0c\ndefg"s), "r");
    if (sizeof(void *) > 4) { // else no buffer could hold that, and nothing is read
        EXPECT_EQ(skubread(ctx, stream, block, UINT32_MAX, UINT32_MAX, nullptr), 0u);
        EXPECT_EQ(block[7], 'g') << "what the file has is read, whatever was asked for";
    }
    EXPECT_EQ(skubposition(ctx, stream, 0), 0u);
    EXPECT_EQ(skubsget(ctx, stream, block, 0), SKUBA_EOF) << "no room is the end";
    EXPECT_EQ(skubsget(ctx, stream, block, 1), SKUBA_EOF);
    EXPECT_EQ(skubsget(ctx, stream, block, 16), 0u);
    EXPECT_STREQ(block, "a") << "a NUL hides the rest of its line";
    unsigned char byte = 0;
    uint32_t items = 0;
    EXPECT_EQ(skubread(ctx, stream, block, 4, 3, &items), 0u);
    EXPECT_TRUE(items == 1 && std::memcmp(block, "defg", 4) == 0) << "a broken item is read, too";
    EXPECT_EQ(skubcget(ctx, stream, &byte), SKUBA_EOF);
    EXPECT_EQ(errors(), "");

    EXPECT_EQ(skubcput(ctx, stream, 'x'), SKUBA_CPUT);
    EXPECT_EQ(skubposition(ctx, stream, 0), 0u);
    EXPECT_EQ(skubcget(ctx, stream, &byte), SKUBA_CGET);
    EXPECT_EQ(skubcget(ctx, stream, nullptr), SKUBA_CGET);
    EXPECT_EQ(skubwrite(ctx, stream, block, 1, 1, &items), SKUBA_WRITE);
    EXPECT_EQ(skubposition(ctx, stream, 1), SKUBA_POSITION);
    EXPECT_EQ(skubsget(ctx, stream, block, 8), SKUBA_SGET);
    EXPECT_EQ(errors(), " 7 6 6 11 8 4 9");
    EXPECT_EQ(skubclose(ctx, stream), 0u);
}

// A string and a position in it: what a stream stands for.
struct stream_model {
    std::string bytes;
    std::size_t at = 0;
    bool append = false;
    bool ended = false; // the end has been met

    void store(const std::string &piece)
    {
        if (append) at = bytes.size();
        ended = false;
        bytes.replace(at, piece.size(), piece);
        at += piece.size();
    }
    std::string fetch(std::size_t most)
    {
        const std::string got = bytes.substr(at, most);
        at += got.size();
        ended = ended || got.size() < most;
        return got;
    }
    std::string fetch_line(std::size_t most)
    {
        const std::size_t newline = bytes.find('\n', at);
        return fetch(newline == std::string::npos ? most : std::min(most, newline + 1 - at));
    }
};

TEST_F(Skub, RandomReadsWritesAndPositionsMatchAString)
{
    ku::test::dice dice;
    std::vector<char> buffer(70001);
    for (const char *mode : {"r+", "w+", "a+", "r+", "a+"}) {
        system_faults faults;
        if (dice.one_in(2)) faults.shorten(1 + dice.below(5000));
        stream_model model;
        model.append = mode[0] == 'a';
        void *stream = open(dir.write("f", ""), mode);
        for (int step = 0; step < 3000; step++) {
            // Lengths that stay in the buffer, just pass it, and go around it.
            const uint32_t length = 1 + dice.below(dice.one_in(8) ? 70000 : 40);
            const auto size = static_cast<uint32_t>(model.bytes.size());
            uint32_t status = 0;
            uint32_t moved = 0;
            std::string wanted = "-";
            switch (dice.below(7)) {
            case 0: {
                const uint32_t to = dice.one_in(9) ? size : std::min(size, length);
                const bool end = to == size || to > 5000; // each position costs single reads
                ASSERT_EQ(skubposition(ctx, stream, end ? SKUB_END : static_cast<int>(to)), 0u);
                model.at = end ? size : to;
                model.ended = false;
                break;
            }
            case 1: {
                const uint32_t expected = model.ended ? SKUBA_EOF : 0;
                ASSERT_EQ(skubread(ctx, stream, buffer.data(), length, 1, &moved), expected);
                ASSERT_EQ(std::string(buffer.data(), moved), model.fetch(length));
                break;
            }
            case 2:
                status = skubsget(ctx, stream, buffer.data(), length + 1);
                wanted = model.fetch_line(length);
                ASSERT_TRUE(status != 0 || buffer.data() == wanted);
                break;
            case 3:
                status = skubcget(ctx, stream, reinterpret_cast<unsigned char *>(buffer.data()));
                wanted = model.fetch(1);
                ASSERT_TRUE(status != 0 || buffer[0] == wanted[0]);
                break;
            case 4:
                ASSERT_EQ(skubfsize(ctx, stream, &moved), 0u);
                ASSERT_EQ(moved, size);
                break;
            default:
                if (size > 300000) break;
                wanted = std::string(length, static_cast<char>('a' + dice.below(26))) + "\n";
                status = dice.one_in(2)
                             ? skubsput(ctx, stream, wanted.c_str())
                             : skubwrite(ctx, stream, wanted.data(), 1, length + 1, nullptr);
                model.store(wanted);
            }
            ASSERT_EQ(status, wanted.empty() ? SKUBA_EOF : 0u);
        }
        EXPECT_EQ(skubclose(ctx, stream), 0u);
        EXPECT_EQ(dir.read("f"), model.bytes) << mode;
    }
}

TEST_F(Skub, FullDisksAndLargeFilesAreNoticed)
{
    void *stream = skubcreate(ctx, "/dev/full", nullptr);
    EXPECT_EQ(skubsput(ctx, stream, "buffered"), 0u);
    EXPECT_EQ(skubclose(ctx, stream), SKUBA_CLOSE);
    EXPECT_EQ(skubsput(ctx, stream, "closed"), SKUBA_SPUT);
    EXPECT_EQ(skubclose(ctx, stream), 0u) << "releases what is left";
    system_faults faults;
    stream = skubcreate(ctx, dir.path("f").c_str(), nullptr);
    skubsput(ctx, stream, "kept");
    faults.shorten(0); // a disk that takes nothing and gives no reason
    skubflush(ctx, stream);
    EXPECT_EQ(skubsput(ctx, stream, "!"), SKUBA_SPUT);
    faults.shorten(3);
    faults.fail_from_now("write", 2, EIO); // after three bytes
    skubflush(ctx, stream);
    EXPECT_EQ(skubclose(ctx, stream), 0u);
    EXPECT_EQ(dir.read("f"), "kept!") << "what was accepted is tried again";
    faults.shorten(SIZE_MAX);

    EXPECT_EQ(skubcopy(ctx, dir.write("f", "bytes").c_str(), "/dev/full"), SKUBA_CLOSE);
    dir.write("f", std::string(100000, 'x'));
    EXPECT_EQ(skubcopy(ctx, dir.path("f").c_str(), "/dev/full"), SKUBA_WRITE);
    faults.fail_all("chmod", EPERM);
    EXPECT_EQ(skubcopy(ctx, dir.path("f").c_str(), "/dev/null"), 0u) << "devices keep their mode";
    EXPECT_EQ(skubcopy(ctx, dir.path("f").c_str(), dir.path("g").c_str()), SKUBA_SETMODE);

    stream = open(dir.path("f"), "r+");
    uint32_t size = 0;
    ASSERT_EQ(truncate(dir.path("f").c_str(), 0xFFFFFFFF), 0); // sparse
    EXPECT_EQ(skubfsize(ctx, stream, &size), 0u);
    EXPECT_EQ(size, 0xFFFFFFFFu);
    ASSERT_EQ(truncate(dir.path("f").c_str(), 0x100000000), 0);
    EXPECT_EQ(skubfsize(ctx, stream, &size), SKUBA_SIZE);
    skubclose(ctx, stream);
    EXPECT_EQ(errors(), " 5 10 10 5 11 21 16");
}

TEST_F(Skub, FilesAreFoundRemovedCopiedAndRenamedByName)
{
    const std::string old = dir.write("old", "bytes");
    const std::string target = dir.write("target", "longer than the source");
    ASSERT_EQ(symlink("loop", dir.path("loop").c_str()), 0);
    ASSERT_EQ(symlink("old", dir.path("link").c_str()), 0);
    EXPECT_EQ(skubfexist(ctx, dir.path("link").c_str()), 1);
    for (const std::string &name : {""s, dir.path(), dir.path("none"), old + "/x"})
        EXPECT_EQ(skubfexist(ctx, name.c_str()), 0) << name;
    EXPECT_EQ(errors(), "");
    for (const std::string &name : {dir.path("loop"), std::string(5000, 'x')})
        EXPECT_EQ(skubfexist(ctx, name.c_str()), 0) << name;
    EXPECT_EQ(errors(), " 12 12") << "cannot tell";
    EXPECT_EQ(skubremove(ctx, dir.path().c_str()), 0u) << "a directory is left alone";

    ASSERT_EQ(chmod(old.c_str(), 0751), 0);
    EXPECT_EQ(skubcopy(ctx, old.c_str(), target.c_str()), 0u);
    EXPECT_EQ(dir.read("target"), "bytes");
    EXPECT_EQ(permissions(target), 0751u);
    for (const char *same : {"old", "link"}) { // would empty or lose the only copy
        EXPECT_EQ(skubcopy(ctx, old.c_str(), dir.path(same).c_str()), 0u);
        EXPECT_EQ(skubrename(ctx, old.c_str(), dir.path(same).c_str()), 0u);
        EXPECT_EQ(dir.read("old"), "bytes");
    }
    EXPECT_EQ(skubcopy(ctx, dir.path("none").c_str(), target.c_str()), SKUBA_STATUS);
    EXPECT_EQ(skubcopy(ctx, old.c_str(), dir.path().c_str()), SKUBA_OPEN);
    EXPECT_EQ(skubrename(ctx, old.c_str(), target.c_str()), 0u);
    EXPECT_FALSE(dir.has("old"));
    EXPECT_EQ(skubrename(ctx, old.c_str(), target.c_str()), SKUBA_RENAME);
    EXPECT_FALSE(dir.has("target")) << "the target goes first";
    EXPECT_EQ(errors(), " 12 14 19");
}

TEST_F(Skub, FailedCallsLoseNothingInterruptedOnesAreRepeatedShortOnesContinued)
{
    const std::string bytes(40000, 'b');
    const ku::test::scenario rename = [&](context &swept) {
        const std::string from = dir.write("from", bytes);
        const std::string onto = dir.write("onto", "old");
        const uint32_t status = skubrename(swept, from.c_str(), onto.c_str());
        EXPECT_TRUE(status == 0 || status == kuxercode(swept));
        EXPECT_EQ(dir.read(status == 0 ? "onto" : "from"), bytes);
        return status == 0;
    };
    const ku::test::scenario update = [&](context &swept) {
        void *stream = skubopen(swept, dir.write("f", bytes).c_str(), "r+");
        char block[8];
        uint32_t size = 0;
        const bool done = stream != nullptr && skubsget(swept, stream, block, 8) == 0
                          && skubsput(swept, stream, "written") == 0
                          && skubfsize(swept, stream, &size) == 0
                          && skubread(swept, stream, block, 8, 1, nullptr) == 0
                          && skubposition(swept, stream, SKUB_END) == 0
                          && skubwrite(swept, stream, bytes.data(), 1, 40000, nullptr) == 0;
        EXPECT_TRUE(done || kuxercode(swept) != 0) << "a failure that nobody tells of";
        const bool closed = skubclose(swept, stream) == 0;
        EXPECT_TRUE(closed || skubclose(swept, stream) == 0);
        EXPECT_TRUE(!done || !closed || dir.read("f").size() == 80000);
        return done && closed;
    };
    const ku::test::scenario replace = [&](context &swept) { // all or nothing
        const std::string name = dir.write("f", "old");
        chmod(name.c_str(), 0640);
        void *stream = skubreplace(swept, name.c_str());
        skubsput(swept, stream, "short "); // a status nobody looks at
        skubwrite(swept, stream, bytes.data(), 1, 40000, nullptr);
        EXPECT_EQ(dir.read("f"), "old");
        const bool done = stream != nullptr && skubclose(swept, stream) == 0;
        if (!done) skubdiscard(swept, stream);
        EXPECT_EQ(dir.read("f"), done ? "short " + bytes : "old");
        EXPECT_EQ(permissions(name), 0640u);
        return done;
    };
    sweep_system_calls(rename, {EIO, EACCES});
    sweep_system_calls(update, {EIO});
    sweep_system_calls(replace, {EIO, ENOSPC});
    for (const char *name : {"open", "flock", "ftruncate", "read", "write", "fsync", "close"}) {
        for (const ku::test::scenario &run : {rename, update, replace}) {
            system_faults faults;
            faults.shorten(700);
            faults.fail_from_now(name, 1, EINTR);
            EXPECT_TRUE(run(ctx)) << name;
        }
    }
    sweep_allocations(update);
    ku::test::sweep_basic_allocations(update);
    sweep_allocations(replace);
    skubdiscard(ctx, skubreplace(ctx, dir.path("f").c_str()));
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"f", "onto"})) << "a scratch file is left";
}

// Size of a file's access list in bytes; below 0: it has none.
static ssize_t listed(const std::string &name)
{
    return getxattr(name.c_str(), "system.posix_acl_access", nullptr, 0);
}

TEST_F(Skub, ReplacingKeepsLinksAndTakesWhatItCanGet)
{
    dir.write("plain", "old");
    const uid_t owner = geteuid() == 0 ? 4711 : geteuid();
    ASSERT_EQ(chown(dir.write("owned", "old").c_str(), owner, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(link(dir.write("named", "old").c_str(), dir.path("twice").c_str()), 0);
    ASSERT_EQ(symlink("plain", dir.path("link").c_str()), 0);
    ASSERT_EQ(symlink("later", dir.path("dangling").c_str()), 0);
    // User 4711 may read; new files in the directory get the same list.
    static constexpr uint32_t list[] = {2,   0x60001, ~0u, 0x40002, 4711, 0x00004,
                                        ~0u, 0x40010, ~0u, 0x00020, ~0u};
    const std::string guarded = dir.write("guarded", "old");
    const bool lists =
        setxattr(guarded.c_str(), "system.posix_acl_access", list, sizeof list, 0) == 0
        && setxattr(dir.path().c_str(), "system.posix_acl_default", list, sizeof list, 0) == 0;
    static constexpr struct {
        const char *name, *seen; // what is replaced; where the new bytes must be
        bool anew;               // in another file than before
        const char *call;        // fails, the n-th from now
        int n, error;
    } rows[] = {
        {"fresh", "fresh", true, "open", 0, 0},
        {"link", "plain", true, "open", 0, 0},
        {"named", "twice", false, "open", 0, 0},
        {"dangling", "later", true, "open", 0, 0},
        {"owned", "owned", true, "open", 0, 0},
        {"guarded", "guarded", true, "open", 0, 0},
        {"plain", "plain", false, "open", 2, EACCES}, // the directory takes no new files
        {"plain", "plain", false, "fchmod", 1, EPERM},
        {"plain", "plain", false, "fgetxattr", 1, ERANGE},
        {"plain", "plain", false, "rename", 1, EBUSY}, // something is mounted there
    };
    std::string text(std::size(rows), 'x');
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + " " + row.call);
        text.pop_back(); // shorter than what it replaces
        struct stat old = {};
        struct stat after = {};
        stat(dir.path(row.seen).c_str(), &old);
        system_faults faults;
        faults.fail_from_now(row.call, row.n, row.error);
        void *stream = skubreplace(ctx, dir.path(row.name).c_str());
        EXPECT_EQ(skubsput(ctx, stream, text.c_str()), 0u);
        EXPECT_EQ(skubclose(ctx, stream), 0u);
        EXPECT_EQ(dir.read(row.seen), text);
        const int copied = row.call == "rename"s ? 1 : 0;
        EXPECT_EQ(faults.made("fsync"), faults.made("rename") + copied) << "a crash loses both";
        EXPECT_EQ(stat(dir.path(row.seen).c_str(), &after), 0);
        EXPECT_EQ(old.st_ino != after.st_ino, row.anew);
        faults.fail_from_now("open", 1, EACCES);
        EXPECT_EQ(skubreplace(ctx, dir.path("fresh").c_str()), nullptr) << "read-only";
    }
    if (lists) {
        EXPECT_EQ(listed(guarded), static_cast<ssize_t>(sizeof list));
        EXPECT_LT(listed(dir.path("plain")), 0) << "more may read it than before";
    }
    struct stat found = {};
    EXPECT_TRUE(lstat(dir.path("link").c_str(), &found) == 0 && S_ISLNK(found.st_mode));
    EXPECT_TRUE(stat(dir.path("owned").c_str(), &found) == 0 && found.st_uid == owner);
    EXPECT_EQ(skubreplace(ctx, dir.path().c_str()), nullptr);
    EXPECT_EQ(skubreplace(ctx, dir.path("none\\x").c_str()), nullptr);
    for (const std::string &name : {"/dev/full"s, dir.path("plain")}) {
        system_faults faults;
        faults.fail_all("rename", EBUSY);
        faults.fail_from_now("write", 2, ENOSPC); // of what is copied
        void *stream = skubreplace(ctx, name.c_str());
        EXPECT_EQ(skubsput(ctx, stream, "x"), 0u);
        EXPECT_EQ(skubclose(ctx, stream), SKUBA_CLOSE);
        EXPECT_EQ(skubdiscard(ctx, stream), nullptr);
    }
    EXPECT_EQ(errors(), " 5 5");
}

TEST_F(Skub, WhatAKilledReplacingLeavesTheNextOneRemoves)
{
    const std::string name = dir.path("f");
    {
        system_faults faults;
        faults.fail_all("unlink", EIO);
        for (const char *killed : {"f", "g"})
            skubdiscard(ctx, skubreplace(ctx, dir.path(killed).c_str()));
    }
    const std::vector<std::string> left = dir.names(); // f's, g's
    dir.write("f.original", "not ours");
    void *slow = skubreplace(ctx, name.c_str()); // not killed, only slow
    EXPECT_EQ(skubclose(ctx, skubreplace(ctx, name.c_str())), 0u);
    EXPECT_FALSE(dir.has(left[0]));
    EXPECT_TRUE(dir.has(left[1]) && dir.has("f.original"));
    EXPECT_EQ(skubsput(ctx, slow, "slow"), 0u);
    EXPECT_EQ(skubclose(ctx, slow), 0u);
    EXPECT_EQ(dir.read("f"), "slow");
}

TEST_F(Skub, NamesAreReadByCharacters)
{
    static constexpr struct {
        const char *language, *name, *type;
        int directory, typed, exactly;
    } rows[] = {
        {"ascii", "a.b\\c.txt", "txt", 1, 1, 1},
        {"ascii", "a.b\\c", "b\\c", 1, 0, 1}, // a type is only compared
        {"ascii", "c", "", 0, 0, 0},
        {"ascii", "c.txt", "TXT", 0, 1, 0},
        {"ascii", "txt", "txt", 0, 0, 0},
        {"ascii", ".txt", "txt", 0, 1, 1},
        {"ascii", "/home/j.smith/x", "x", 0, 1, 0},                // '/' is no separator of names
        {"utf8", "x\xC3\xA9.\xC3\xA9", "\xA9", 0, 1, 0},           // not inside a character
        {"sjis", "\x83\x5C.x", "x", 0, 1, 1},                      // a trail byte of 0x5C
        {"iso-2022-kr", "a\x0E\x30\x5C\x30\x2E\x0F", "", 0, 0, 0}, // shifted pairs
        {"iso-2022-kr", "a\\b.\x0E\x30\x5C\x0F", "\x0E\x30\x5C\x0F", 1, 1, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        context named(row.language);
        EXPECT_EQ(skubdspecified(named, row.name), row.directory);
        EXPECT_EQ(skubtspecified(named, row.name), row.typed);
        EXPECT_EQ(skubstspecified(named, row.name, row.type), row.exactly);
    }
}

TEST_F(Skub, NamesAreBuiltWholeOrNotAtAll)
{
    const struct {
        const char *language;
        uint32_t (*build)(kux *, const char *, const char *, char *, uint32_t *);
        const char *base, *added;
        std::string wanted;
    } rows[] = {
        {"ascii", skubatype, "c", "txt", "c.txt"},
        {"utf8", skubatype, "\xC3\xA9", "", "\xC3\xA9."},
        {"ascii", skubadir, "c.txt", "d:", "d:\\c.txt"},
        {"ascii", skubadir, "c.txt", "dir\\", "dir\\c.txt"},
        {"ascii", skubadir, "c.txt", "", "c.txt"},
        {"sjis", skubadir, "c", "\x83\x5C", "\x83\x5C\\c"}, // ends in a byte, not a separator
        {"iso-2022-kr", skubadir, "\x0E\x30\x21\x0F", "\x0E\x30\x5C\x0F",
         "\x0E\x30\x5C\x0F\\\x0E\x30\x21\x0F"},
        {"iso-2022-kr", skubadir, "\x0E\x30\x21\x0F\x0E\x30\x22", "\x0E\x30\x5C",
         "\x0E\x30\x5C\x0F\\\x0E\x30\x21\x30\x22\x0F"},  // runs closed, and joined
        {"iso-2022-kr", skubadir, "c", "\x0E\x0F", "c"}, // no character: empty
    };
    for (const auto &row : rows) {
        const auto exact = static_cast<uint32_t>(row.wanted.size());
        for (const uint32_t room : {exact + 9, exact + 1, exact, exact - 1}) {
            const auto build = [&](context &built) {
                std::string buffer(64, '?');
                uint32_t length = room;
                const uint32_t status =
                    row.build(built, row.base, row.added, buffer.data(), &length);
                std::string made = status != 0 ? "" : row.wanted + (room > exact ? "\0"s : ""s);
                made.resize(buffer.size(), '?'); // nothing else is touched
                EXPECT_EQ(buffer, made);
                EXPECT_EQ(length, status == 0 ? exact : room);
                EXPECT_TRUE(status == 0 ? room >= exact : status == kuxercode(built));
                return status == 0 || room < exact;
            };
            sweep_allocations(build, row.language);
        }
    }
    dir.write("c.txt", "found");
    char name[256];
    uint32_t length = sizeof name - 1;
    ASSERT_EQ(skubadir(ctx, "c.txt", dir.path().c_str(), name, &length), 0u);
    EXPECT_EQ(skubfexist(ctx, name), 1) << "a built name opens";
    EXPECT_EQ(skubtmpnam(ctx, name), 0u);
    EXPECT_EQ(skubfexist(ctx, name), 0);
    EXPECT_EQ(skubtmpnam(ctx, nullptr), SKUBA_TMPNAM);
    EXPECT_EQ(errors(), " 20");
}
