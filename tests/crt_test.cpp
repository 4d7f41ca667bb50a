// crt_test.cpp - the runtime layer's files: names, locks, temporary names, descriptors
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "port/crt/crt.h"
#include "port/locale/locale.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

namespace crt = ku::crt;
using ku::test::system_faults;

TEST(Crt, SeparatorsAreTranslatedButNotBytesInsideCharacters)
{
    static constexpr struct {
        const char *language, *name, *wanted;
    } rows[] = {
        {"ascii", "a\\b/c\\", "a/b/c/"},
        {"utf8", "\xC3\xA9\\\xE2\x82\xAC\\x", "\xC3\xA9/\xE2\x82\xAC/x"},
        {"utf8", "\xC3\\x", "\xC3/x"}, // a broken character hides nothing
        {"sjis", "\x83\x5C\\b\\\x83\x5C", "\x83\x5C/b/\x83\x5C"}, // trail bytes of 0x5C
        {"sjis", "\x83\x83\x5C", "\x83\x83/"},
        {"iso-2022-kr", "\x0E\x30\x5C\x5C\x30\x0F\\b", "\x0E\x30\x5C\x5C\x30\x0F/b"},
        {nullptr, "\x83\x5C", "\x83/"}, // no language: byte by byte
    };
    for (const auto &row : rows) {
        kulang lang;
        kulocglo area = {};
        if (row.language != nullptr) ku::locale::fill_named(&lang, &area, row.language);
        const crt::path path(row.language != nullptr ? &lang : nullptr, row.name);
        EXPECT_STREQ(path.text(), row.wanted);
    }
    const std::string longest(crt::path::room - 1, 'x');
    EXPECT_EQ(crt::path(nullptr, longest.c_str()).text(), longest);
    EXPECT_EQ(crt::path(nullptr, (longest + "x").c_str()).text(), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_TRUE(crt::path(nullptr, "").text() == nullptr && errno == ENOENT);
}

static kufile *open(const std::string &name, const char *mode)
{
    if (mode[0] == '=') return crt::open_replacing(nullptr, name.c_str());
    const bool reads = mode[0] == 'r' && mode[1] != '+';
    return crt::open(nullptr, name.c_str(), mode,
                     reads ? crt::share::deny_none : crt::share::deny_writers);
}

TEST(Crt, ASecondWriterIsRefusedAndAReaderIsNot)
{
    static constexpr struct {
        const char *first, *second;
        bool admitted;
    } rows[] = {
        {"r", "r", true},    {"r", "r+", true},  {"r+", "rb", true},
        {"r+", "a+", false}, {"a+", "w", false}, {"r+", "wb", false},
        {"r+", "=", false},  {"=", "r+", false}, {"=", "=", false}, // it replaces the file
        {"=", "r", true},    {"r", "=", true},
    };
    const ku::test::directory dir;
    const std::string name = dir.path("shared");
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.first) + " " + row.second);
        dir.write("shared", "kept");
        kufile *first = open(name, row.first);
        ASSERT_NE(first, nullptr);
        kufile *second = open(name, row.second);
        EXPECT_EQ(second != nullptr, row.admitted);
        EXPECT_TRUE(row.admitted || errno == EBUSY);
        crt::discard(second);
        EXPECT_EQ(dir.read("shared"), "kept") << "emptied by a writer that was refused";
        EXPECT_TRUE(crt::close(first));
        first = open(name, "w");
        ASSERT_NE(first, nullptr) << "the lock goes with its file";
        EXPECT_TRUE(crt::close(first));
    }
    const std::string fresh = dir.path("fresh");
    kufile *first = open(fresh, "=");
    kufile *second = open(fresh, "w"); // nothing to lock yet
    EXPECT_FALSE(crt::close(first)) << "its file is being written";
    EXPECT_TRUE(crt::close(second));

    static std::string gone;
    gone = dir.write("gone", "replaced between opening and locking it");
    crt::system_calls racing = crt::calls();
    racing.flock = [](int file, int how) { return ::unlink(gone.c_str()) + ::flock(file, how); };
    const crt::system_calls *calls = crt::replace_calls(&racing);
    EXPECT_EQ(open(gone, "r+"), nullptr) << "would write what nobody sees";
    crt::replace_calls(calls);

    system_faults faults;
    faults.fail_all("flock", ENOLCK); // a file system without locks
    first = open(name, "w");
    const int free = ::dup(0);
    ::close(free);
    second = open(name, "w");
    EXPECT_NE(fcntl(free, F_GETFD) & FD_CLOEXEC, 0) << "programs that are run inherit it";
    EXPECT_TRUE(crt::close(first) && crt::close(second));
}

TEST(Crt, PipesAreReadAsTheyCome)
{
    const ku::test::directory dir;
    const std::string name = dir.path("pipe");
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    const int writer = ::open(name.c_str(), O_RDWR);
    ASSERT_EQ(::write(writer, "one\ntwo", 7), 7);
    kufile *file = open(name, "r");
    char line[16];
    EXPECT_EQ(crt::read_line(file, line, sizeof line), 4u) << "a line must not wait for more";
    ::close(writer);
    EXPECT_EQ(crt::read(file, line, sizeof line), 3u);
    EXPECT_TRUE(crt::at_end(file));
    EXPECT_FALSE(crt::seek(file, 0, crt::origin::start));
    EXPECT_TRUE(crt::close(file));
}

TEST(Crt, TemporaryNamesAreFreeAndFillTheirRoom)
{
    char first[crt::temporary_name_room];
    char second[crt::temporary_name_room];
    ASSERT_TRUE(crt::temporary_name(first));
    EXPECT_EQ(std::strlen(first), sizeof first - 1);
    EXPECT_EQ(std::memcmp(first, "/tmp/", 5), 0);
    system_faults faults;
    faults.fail_all("random", ENOSYS); // the clock stands in
    ASSERT_TRUE(crt::temporary_name(second));
    EXPECT_STRNE(first, second);
    faults.fail_all("lstat", EACCES); // cannot tell whether a name is free
    EXPECT_FALSE(crt::temporary_name(second));
}
