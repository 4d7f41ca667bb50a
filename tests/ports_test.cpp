// ports_test.cpp - the small outside layers: dates, variables, error texts, file names, messages

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "port/core/core.h"
#include "port/dbclient/dbclient.h"
#include "port/msgfile/msgfile.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

namespace core = ku::core;
namespace dbclient = ku::dbclient;
namespace msgfile = ku::msgfile;

namespace
{

// A date-conversion context that keeps the newest error, as a callback that returns.
class conversion
{
public:
    conversion() : storage_(core::date_context_size())
    {
        core::initialise_dates(
            handle(), nullptr,
            [](kudateconv *dates, std::int32_t error) {
                *static_cast<std::int32_t *>(core::error_context(dates)) = error;
            },
            &error_);
    }
    kudateconv *handle() { return reinterpret_cast<kudateconv *>(storage_.data()); }

    // The text's date, or "error N".
    std::string read(const std::string &text, const char *picture)
    {
        core::date date{};
        error_ = 0;
        if (!core::text_to_date(handle(), text.data(), text.size(), picture, &date))
            return failure();
        EXPECT_EQ(error_, 0);
        return write(date, "SYYYY-MM-DD HH24:MI:SS");
    }
    std::string write(const core::date &date, const char *picture, std::size_t room = 100)
    {
        std::string buffer(room + 1, '#');
        std::size_t length = 77;
        error_ = 0;
        if (!core::date_to_text(handle(), date, picture, buffer.data(), room, &length)) {
            EXPECT_EQ(buffer, std::string(room + 1, '#'));
            EXPECT_EQ(length, 77u);
            return failure();
        }
        EXPECT_EQ(buffer[length], '\0');
        return buffer.substr(0, length);
    }

private:
    std::string failure() { return "error " + std::to_string(error_); }

    std::vector<char> storage_;
    std::int32_t error_ = 0;
};

std::string error(core::date_error number) { return "error " + std::to_string(number); }

// What a look-up through all its steps gives; "none" when a step fails.
std::string look_up(const kuapp *application, const char *name, const char *type,
                    std::uint32_t most = 100000)
{
    const msgfile::file file = msgfile::find_file(application, name, type);
    if (!file) return "none";
    msgfile::tree *tree = msgfile::create_tree();
    if (tree == nullptr) return "none";
    std::string result = "none";
    const int status = msgfile::read_resource(file, name, type, tree, "ROOT");
    const msgfile::node *node = msgfile::find_node(tree, "ROOT");
    EXPECT_EQ(status == 0, node != nullptr);
    EXPECT_EQ(msgfile::find_node(tree, "OTHER"), nullptr);
    std::int32_t length = -1;
    if (node != nullptr && msgfile::text_length(node, type, &length) == 0) {
        std::string buffer(most + 1, '#');
        std::uint32_t fetched = 0;
        EXPECT_EQ(msgfile::fetch_text(node, type, most, buffer.data(), &fetched, nullptr), 0);
        EXPECT_NE(msgfile::fetch_text(node, "other", most, buffer.data(), &fetched, nullptr), 0);
        EXPECT_LE(fetched, std::min<std::uint32_t>(most, static_cast<std::uint32_t>(length)));
        EXPECT_EQ(buffer[most], '#');
        result = buffer.substr(0, fetched);
    }
    EXPECT_EQ(msgfile::release_tree(tree), nullptr);
    return result;
}

class Messages : public ::testing::Test
{
protected:
    std::string read(const std::string &text, const char *name, const char *type = "text",
                     std::uint32_t most = 100000)
    {
        directory_.write("m.msg", text);
        const std::string path = directory_.path("m.msg");
        const kuapp application = {path.c_str(), nullptr};
        return look_up(&application, name, type, most);
    }
    ku::test::directory directory_;
};

} // namespace

TEST(Dates, TextIsReadByItsPictureOrRefusedWithTheReason)
{
    static const struct {
        const char *text;
        const char *picture;
        std::string result;
    } rows[] = {
        {"2024-02-29 23:59:58", "YYYY-MM-DD HH24:MI:SS", "2024-02-29 23:59:58"},
        {"20240229", "yyyymmdd", "2024-02-29 00:00:00"},
        {"4-jul-776", "DD-MON-YYYY", "0776-07-04 00:00:00"}, // fewer digits, any case
        {"September 1999", "MONTH YYYY", "1999-09-01 00:00:00"},
        {"-4712/01/01", "SYYYY/MM/DD", "-4712-01-01 00:00:00"},
        {"+0001", "SYYYY", "0001-01-01 00:00:00"},
        {"-0001-02-29", "SYYYY-MM-DD", "-0001-02-29 00:00:00"}, // there is no year 0: -1 is leap
        {"1900-02-29", "YYYY-MM-DD", error(core::date_bad_monthday)},
        {"2023-04-31", "YYYY-MM-DD", error(core::date_bad_monthday)},
        {"0000-01-01", "YYYY-MM-DD", error(core::date_bad_year)},
        {"-4713", "SYYYY", error(core::date_bad_year)},
        {"2024-13-01", "YYYY-MM-DD", error(core::date_bad_month)},
        {"2024-01-32", "YYYY-MM-DD", error(core::date_bad_day)},
        {"2024 24", "YYYY HH24", error(core::date_bad_hour)},
        {"2024 60", "YYYY MI", error(core::date_bad_minute)},
        {"2024 60", "YYYY SS", error(core::date_bad_second)},
        {"01-XYZ-2024", "DD-MON-YYYY", error(core::date_bad_monthname)},
        {"01-JA", "DD-MON-YYYY", error(core::date_bad_monthname)},
        {"2O24", "YYYYMM", error(core::date_not_digit)},
        {"-2024", "YYYY", error(core::date_not_digit)}, // a sign needs the signed year
        {"2024-01", "YYYY-MM-DD", error(core::date_short_text)},
        {"2024-", "YYYY-MM", error(core::date_short_text)},
        {"2024-01-01 ", "YYYY-MM-DD", error(core::date_long_text)},
        {"20241", "YYYY", error(core::date_long_text)},
        {"2024/01", "YYYY-MM", error(core::date_mismatch)},
        {"2024-01", "YYYY-QQ", error(core::date_bad_picture)},
        {"2024-2024", "YYYY-SYYYY", error(core::date_repeated)},
        {"01-02", "MM-DD", error(core::date_no_year)},
        {"", "", error(core::date_no_year)},
    };
    conversion dates;
    for (const auto &row : rows)
        EXPECT_EQ(dates.read(row.text, row.picture), row.result)
            << row.text << " as " << row.picture;
}

TEST(Dates, FailedWritesTellTheReasonAndLeaveTheBuffer)
{
    conversion dates;
    const core::date leap = {2024, 2, 29, 0, 5, 9};
    EXPECT_EQ(dates.write(leap, "DD-MON-YYYY MONTH MI.SS"), error(core::date_repeated));
    EXPECT_EQ(dates.write(leap, "MONTH DD, YYYY; HH24.MI"), "FEBRUARY 29, 2024; 00.05");
    EXPECT_EQ(dates.write(leap, "MM/YYYY", 8), "02/2024");
    EXPECT_EQ(dates.write(leap, "MM/YYYY", 7), error(core::date_no_room)); // the NUL needs its byte
    EXPECT_EQ(dates.write({-44, 3, 15, 0, 0, 0}, "YYYY"), error(core::date_no_sign));
    EXPECT_EQ(dates.write({-44, 3, 15, 0, 0, 0}, "DD-MON-SYYYY"), "15-MAR--0044");
    EXPECT_EQ(dates.write({0, 1, 1, 0, 0, 0}, "SYYYY"), error(core::date_bad_year));
    EXPECT_EQ(dates.write({2023, 2, 29, 0, 0, 0}, "YYYY"), error(core::date_bad_monthday));
}

TEST(Dates, EveryDayOfTheCalendarIsKnownAndNoOther)
{
    conversion dates;
    for (int year = -4712; year <= 9999; year += year > 1500 && year < 2500 ? 1 : 7) {
        if (year == 0) continue;
        for (unsigned month = 1; month <= 12; month++)
            for (unsigned day = 28; day <= 31; day++) {
                const bool exists =
                    std::chrono::year_month_day(std::chrono::year(year < 0 ? year + 1 : year),
                                                std::chrono::month(month), std::chrono::day(day))
                        .ok();
                const core::date date = {
                    year, static_cast<std::uint8_t>(month), static_cast<std::uint8_t>(day), 1, 2,
                    3};
                const std::string text = dates.write(date, "SYYYY-MM-DD HH24:MI:SS");
                ASSERT_EQ(text != error(core::date_bad_monthday), exists)
                    << year << " " << month << " " << day;
                if (!exists) continue;
                ASSERT_EQ(dates.read(text, "SYYYY-MM-DD HH24:MI:SS"), text);
            }
    }
}

TEST(Variables, ValuesAreCopiedWholeOrNotAtAll)
{
    char buffer[600] = "before";
    std::size_t length = 77;
    const auto translate = [&](std::size_t room) {
        return core::translate("KU_TEST_VARIABLE", buffer, room, &length);
    };
    const ku::test::variable unset("KU_TEST_VARIABLE", nullptr);
    EXPECT_EQ(translate(512), core::variable::unset);
    for (const std::size_t size : {0u, 1u, 511u, 512u}) {
        const std::string value(size, 'v');
        const ku::test::variable variable("KU_TEST_VARIABLE", value);
        length = 77;
        EXPECT_EQ(translate(size), core::variable::too_long);
        EXPECT_EQ(length, 77u);
        if (size < 512) {
            EXPECT_EQ(translate(size + 1), core::variable::found);
            EXPECT_EQ(std::string(buffer), value);
            EXPECT_EQ(length, size);
        } else {
            EXPECT_EQ(translate(sizeof buffer), core::variable::too_long); // whatever the room
        }
    }
}

TEST(ErrorTexts, EveryDateErrorHasATextAndOtherNumbersAGenericOne)
{
    const auto text = [](unsigned number, std::uint32_t room) {
        char buffer[256];
        dbclient::set_error(dbclient::default_host(), static_cast<std::uint16_t>(number));
        return std::string(buffer, dbclient::error_text(dbclient::default_host(), buffer, room));
    };
    for (unsigned number = core::date_bad_year; number <= core::date_no_room; number++) {
        EXPECT_EQ(text(number, 256).find("error"), std::string::npos) << number;
        EXPECT_GT(text(number, 256).size(), 10u) << number;
    }
    EXPECT_EQ(text(0, 256), "error 0");
    EXPECT_EQ(text(65535, 256), "error 65535");
    EXPECT_EQ(text(65535, 5), "error");
}

TEST(PortThreads, EachThreadHasAnErrorNumberOfItsOwn)
{
    dbclient::set_error(dbclient::default_host(), 4711);
    std::thread([] { dbclient::set_error(dbclient::default_host(), 1); }).join();
    char buffer[20];
    const std::uint32_t length = dbclient::error_text(dbclient::default_host(), buffer, 20);
    EXPECT_EQ(std::string(buffer, length), "error 4711");
}

TEST(FileNames, PartsAreJoinedOnceAndOnlyWhenTheyFit)
{
    static constexpr struct {
        const char *directory, *base, *extension, *part, *name;
    } rows[] = {
        {"/etc", "kugprefs", "xdb", "", "/etc/kugprefs.xdb"},
        {"/etc/", "b", "x", nullptr, "/etc/b.x"},
        {"C:\\prefs\\", "b", "x", "", "C:\\prefs\\b.x"},
        {"", "b", "x", "", "b.x"},
        {nullptr, "b", nullptr, "2", "b2"},
    };
    for (const auto &row : rows) {
        const std::size_t needed = std::string(row.name).size() + 1;
        std::string buffer(needed, '#');
        const auto build = [&](std::size_t room) {
            return dbclient::build_file_name(row.directory, row.base, row.extension, row.part,
                                             buffer.data(), room);
        };
        EXPECT_EQ(build(needed - 1), dbclient::name_status::no_room);
        EXPECT_EQ(buffer, std::string(needed, '#'));
        EXPECT_EQ(build(needed), dbclient::name_status::built);
        EXPECT_STREQ(buffer.c_str(), row.name);
    }
}

TEST_F(Messages, LinesAreFoundByNameAndType)
{
    static const struct {
        const char *why, *file, *name, *type, *text;
    } rows[] = {
        {"plain", "a1 text One two\n", "a1", "text", "One two"},
        {"no newline at the end", "a1 text One", "a1", "text", "One"},
        {"blanks around", "\n \t a1 \t text \t One \n", "a1", "text", "One "},
        {"comments", "# a1 text No\n  # a1 text No\na1 text Yes\n", "a1", "text", "Yes"},
        {"type counts", "a1 cause No\na1 text Yes\n", "a1", "text", "Yes"},
        {"name is whole", "a11 text No\na text No\na1 text Yes\n", "a1", "text", "Yes"},
        {"first one counts", "a1 text Yes\na1 text No\n", "a1", "text", "Yes"},
        {"carriage returns", "x y z\r\na1 text Yes\r\n", "a1", "text", "Yes"},
        {"escapes", "a1 text \\ a\\\\b\\tc\\nd\n", "a1", "text", " a\\b\tc\nd"},
        {"bad escape", "a1 text a\\qb\na1 text No\n", "a1", "text", "none"},
        {"backslash at the end", "a1 text a\\\n", "a1", "text", "none"},
        {"no text", "a1 text\na1 text \n", "a1", "text", "none"},
        {"no type", "a1\na1 text Yes\n", "a1", "text", "Yes"},
        {"malformed neighbour", "a1\\ \\q\nb1 text \\q\nc1 text Yes\n", "c1", "text", "Yes"},
        {"empty name", " text No\n", "", "text", "none"},
        {"empty file", "", "a1", "text", "none"},
        {"trail byte is no escape", "charset sjis\na1 text \x83\x5Cn\\n\n", "a1", "text",
         "\x83\x5Cn\n"},
        {"shifted byte is no escape", "charset iso-2022-kr\na1 text \x0E\x30\x5C\x0F\\n\n", "a1",
         "text", "\x0E\x30\x5C\x0F\n"},
        {"unclosed shift", "charset iso-2022-kr\na1 text \x0E\x30\x5C\n", "a1", "text",
         "\x0E\x30\x5C\x0F"},
        {"broken bytes stay", "a1 text a\xFF\xC3\\n\xE2\x82\n", "a1", "text",
         "a\xFF\xC3\n\xE2\x82"},
    };
    for (const auto &row : rows) EXPECT_EQ(read(row.file, row.name, row.type), row.text) << row.why;
    EXPECT_EQ(read(std::string("a1 text b\0c\nb1 text Yes\n", 23), "a1"), "none");
    EXPECT_EQ(read(std::string("a1\0 text No\na1 text\0 No\na1 text Yes\n", 36), "a1"), "Yes");
}

TEST_F(Messages, CutsFallBetweenCharacters)
{
    static const struct {
        const char *charset, *text;
        std::uint32_t most;
        const char *cut;
    } rows[] = {
        {"utf8", "a\xC3\xA4z", 3, "a\xC3\xA4"},
        {"utf8", "a\xC3\xA4z", 2, "a"},
        {"iso-8859-1", "a\xC3\xA4z", 2, "a\xC3"},
        {"sjis", "\x83\x5C\x83\x5C", 3, "\x83\x5C"},
        {"iso-2022-kr", "\x0E\x30\x5C\x31\x5C\x0F", 5, "\x0E\x30\x5C\x0F"},
        {"utf8", "abc", 0, ""},
    };
    for (const auto &row : rows) {
        const std::string file = std::string("charset ") + row.charset + "\na1 text " + row.text;
        EXPECT_EQ(read(file, "a1", "text", row.most), row.cut) << row.charset << " " << row.most;
    }
}

TEST_F(Messages, LinesOfAnyLengthAndWordsAcrossBlocksAreRead)
{
    for (std::size_t filler = 4080; filler < 4100; filler++) {
        const std::string text(9000, 'x');
        const std::string file = "#" + std::string(filler, 'c') + "\nkuxer3 text " + text + "\\n\n";
        ASSERT_EQ(read(file, "kuxer3"), text + "\n") << filler;
    }
    const std::string longname(64, 'n');
    EXPECT_EQ(read(longname + " text No\n", longname.c_str()), "none"); // longer than a word
    EXPECT_EQ(read(longname.substr(1) + " text Yes\n", longname.c_str() + 1), "Yes");
}

TEST_F(Messages, NoHandleNoFileAndADirectoryFailSilently)
{
    EXPECT_EQ(look_up(nullptr, "a1", "text"), "none");
    const std::string missing = directory_.path("missing");
    for (const char *path : {static_cast<const char *>(nullptr), missing.c_str(), "/"}) {
        const kuapp application = {path, nullptr};
        EXPECT_EQ(look_up(&application, "a1", "text"), "none") << path;
    }
}

TEST_F(Messages, EveryMissingAllocationAndCallIsAFailedLookUpThatLeavesNothing)
{
    const std::string text(1000, 'x'); // long enough for the text to grow twice
    directory_.write("m.msg", "a1 text " + text);
    const std::string path = directory_.path("m.msg");
    const kuapp application = {path.c_str(), nullptr};
    const auto run = [&](ku::test::context &) {
        const std::string result = look_up(&application, "a1", "text");
        EXPECT_TRUE(result == text || result == "none");
        return result == text;
    };
    ku::test::sweep_basic_allocations(run);
    ku::test::sweep_system_calls(run);
}
