// kuq as its user meets it: command lines in, output, messages and exit status out

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/kuq.h"

namespace
{

using ku::test::outcome;

class Kuq : public ku::test::kuq_test
{
protected:
    Kuq() { std::filesystem::create_directory(home.path("global")); }

    outcome run(const std::string &arguments, const std::string &before = "")
    {
        return ku::test::shell(before + command(arguments));
    }

    void expect(const std::string &arguments, int status, const std::string &output,
                const std::string &before = "")
    {
        const outcome result = run(arguments, before);
        EXPECT_EQ(result.status, status) << arguments << "\n" << result.output;
        EXPECT_EQ(result.output, output) << arguments;
    }
};

TEST_F(Kuq, WrongCommandLinesNameWhatIsWrongAndWhatIsMeant)
{
    home.write("a.sql", "select 1;");
    const std::string file = "file=" + home.path("a.sql");
    const struct {
        std::string arguments;
        int status;
        const char *part;
    } rows[] = {
        {"", 2, "kuq COMMAND"},
        {"help", 0, "cut a SQL script"},
        {"'?'", 0, "cut a SQL script"},
        {"tokens '?'", 0, "native, sqlserver or db2"},
        {"help splt", 2, "the nearest one is 'split'"},
        {"tokns", 2, "There is no command 'tokns'; the nearest one is 'tokens'."},
        {"tokens fiel=x", 2, "There is no argument 'fiel'; the nearest one is 'file'."},
        {"tokens " + file + " dialect=db3", 2,
         "'dialect' cannot be 'db3'; it can be native, sqlserver or db2."},
        {"tokens a b c d e f", 2, "cannot be 'b'"},
        {"help a b", 2, "more values than the command takes"},
        {"grep '" + std::string(3000, 'a') + "[' " + file, 2, "aaa...' is wrong at character 3002"},
        {"tokens " + file + " " + file, 2, "'file' was given twice"},
        {"tokens " + file + " native", 2, "without a keyword"},
        {"tokens 'file=(a,'", 2, "not well formed"},
        {"tokens 'file=(a,b)'", 2, "takes one value"},
        {"tokens", 2, "'file' is missing"},
        {"prefs set width", 2, "'value' is missing"},
        {"prefs set 'a b' 1", 2, "'a b' cannot name a setting"},
        {"tokens file=/no/such/file", 1, "'/no/such/file' cannot be opened: No such file"},
        {"split file=/", 1, "'/' cannot be opened: Is a directory"},
        {"prefs get nothing", 1, "no setting 'nothing'"},
        {"prefs remove nothing", 1, "no setting 'nothing'"},
        {"prefs check file=/no/such/file", 1, "cannot be opened: No such file"},
    };
    for (const auto &row : rows) expect_part(row.arguments, row.status, row.part);
}

TEST_F(Kuq, TokensComeFromFilesAndPipesWithPlacesAndStateOverLines)
{
    home.write("a.sql", "Select 'x\ny', \xC3\xA4 \xC3\xB6\n_!");
    const std::string text = "     1:1            0      6  keyword            Select\n"
                             "     1:8            7      3  string, open       'x\\n\n"
                             "     2:1           10      2  string             y'\n"
                             "     2:3           12      1  operator           ,\n"
                             "     2:5           14      2  name               \xC3\xA4\n"
                             "     2:7           17      2  name               \xC3\xB6\n"
                             "     3:1           20      1  error              _\n"
                             "     3:2           21      1  error              !\n";
    expect("tokens " + home.path("a.sql"), 0, text);
    expect("tokens -", 0, text, "cat " + home.path("a.sql") + " | ");
    expect("tokens - format=json hints=yes", 0,
           "[\n  {\"type\": \"keyword\", \"code\": 86, \"line\": 1, \"column\": 1, \"offset\": 0, "
           "\"length\": 14, \"text\": \"select /*+ \\\"*/\", \"hint\": \"/*+ \\\"*/\"}\n]\n",
           "printf 'select /*+ \"*/' | ");
}

TEST_F(Kuq, DialectsComeFromTheArgumentThenTheSettingThenTheDefault)
{
    language = "C"; // other servers' own words are known in single-byte languages only
    home.write("a.sql", "optimize browse a *= b");
    const std::string file = home.path("a.sql");
    const auto keywords = [&](const std::string &arguments) {
        const std::string all = run("tokens " + file + arguments).output;
        return std::string(all.find("keyword            optimize") != std::string::npos ? "o" : "")
               + (all.find("keyword            browse") != std::string::npos ? "b" : "")
               + (all.find("operator           *=") != std::string::npos ? "*" : "");
    };
    EXPECT_EQ(keywords(""), "");
    EXPECT_EQ(keywords(" dialect=db2"), "o");
    expect("prefs set dialect SQLServer", 0, "");
    EXPECT_EQ(keywords(""), "b*");
    EXPECT_EQ(keywords(" dialect=db2"), "o");
    expect("prefs set dialect nonsense", 0, "");
    expect_part("tokens " + file, 2, "Setting 'dialect' is 'nonsense', which is not allowed");
}

TEST_F(Kuq, HighlightChangesNothingButColours)
{
    const std::string script = "select 'a\n\nb' -- c\n, _x";
    home.write("a.sql", script);
    expect("highlight " + home.path("a.sql"), 0, script);
    const std::string coloured = run("highlight " + home.path("a.sql") + " colour=always").output;
    EXPECT_EQ(coloured.find("\033[1;34mselect\033[0m \033[32m'a\n"), 0u);
    expect("highlight - colour=auto", 0, std::string("a\0b", 3), "printf 'a\\0b' | ");
}

TEST_F(Kuq, SplitCutsAtSemicolonsThatEndStatements)
{
    const struct {
        const char *script;
        const char *blocks;
        const char *output; // without the blank line after each statement
    } rows[] = {
        {"", "no", ""},
        {";;\n-- only a comment\n", "no", ""},
        {"a;b", "no", "-- statement 1, lines 1-1\na;\n\n-- statement 2, lines 1-1\nb\n\n"},
        {"/*;*/ a ';' \";\" <<;>> --;\n; -- end\n", "no",
         "-- statement 1, lines 1-2\na ';' \";\" <<;>> --;\n;\n\n"},
        {"a 'x\n;y';", "no", "-- statement 1, lines 1-2\na 'x\n;y';\n\n"},
        {"begin a; end;", "no",
         "-- statement 1, lines 1-1\nbegin a;\n\n-- statement 2, lines 1-1\nend;\n\n"},
        {"begin a; begin b; end; end x; c;", "yes",
         "-- statement 1, lines 1-1\nbegin a; begin b; end; end x;\n\n"
         "-- statement 2, lines 1-1\nc;\n\n"},
        {"begin if a then b; end if; case c when d then e; end case; end; f;", "yes",
         "-- statement 1, lines 1-1\nbegin if a then b; end if; case c when d then e; end case; "
         "end;\n\n-- statement 2, lines 1-1\nf;\n\n"},
        {"begin; a; begin transaction; b;", "yes", // no block is opened
         "-- statement 1, lines 1-1\nbegin;\n\n-- statement 2, lines 1-1\na;\n\n"
         "-- statement 3, lines 1-1\nbegin transaction;\n\n-- statement 4, lines 1-1\nb;\n\n"},
    };
    for (const auto &row : rows) {
        home.write("a.sql", row.script);
        expect("split file=" + home.path("a.sql") + " blocks=" + row.blocks, 0, row.output);
    }
    expect("split - format=json", 0,
           "[\n  {\"statement\": 1, \"first_line\": 1, \"last_line\": 1, \"text\": \"a;\"}\n]\n",
           "echo 'a;' | ");
}

TEST_F(Kuq, SettingsAreSetFoundListedCheckedAndRemoved)
{
    home.write("global/kugprefs.xdb", "width = 80\nkuq.format = json\n");
    expect("prefs set paths '(\"a b\",c)' scope=general", 0, "");
    expect("prefs set width 120", 0, "");
    EXPECT_EQ(home.read("user/kuuprefs.xdb"), "paths = \n (\"a b\",\n  c)\nkuq.width = 120\n");
    expect("prefs list format=text", 0,
           "user    specific  width = 120\nuser    general   paths = (a b, c)\n"
           "global  specific  format = json\nglobal  general   width = 80\n");
    expect_part("prefs", 0, "\"name\": \"paths\", \"values\": [\"a b\", \"c\"]}");
    expect("prefs get width", 0, "120\n(user file, specific to kuq)\n");
    expect("prefs get paths", 0, "a b\nc\n(user file, general)\n");
    expect("prefs get width scope=general", 0, "80\n(global file, general)\n");
    expect("prefs remove width", 0, "");
    expect("prefs get width", 0, "80\n(global file, general)\n");

    expect_part("prefs check " + home.path("user/kuuprefs.xdb"), 0, "1 entry, no errors");
    home.write("bad.xdb", "a = 1\nb = (c,)\nd = 2\n");
    expect_part("prefs check file=" + home.path("bad.xdb"), 1, "has a syntax error in line 2");
}

TEST_F(Kuq, AFileThatWasNotReadWholeIsNotWritten)
{
    std::filesystem::create_directory(home.path("user"));
    const std::string broken = "old = precious\nbad = (a, )\n";
    home.write("user/kuuprefs.xdb", broken);
    expect_part("prefs set width 1", 1, "has a syntax error in line 2");
    EXPECT_EQ(home.read("user/kuuprefs.xdb"), broken);
    expect_part("prefs list", 1, "has a syntax error in line 2");
    home.write("user/kuuprefs.xdb", std::string("a = x\0y\nb = 2\n", 14));
    expect_part("prefs set width 1", 1, "it holds a NUL character");
    std::filesystem::remove(home.path("user/kuuprefs.xdb"));
    std::filesystem::create_symlink("kuuprefs.xdb", home.path("user/kuuprefs.xdb"));
    expect_part("prefs set width 1", 1, "cannot be read to its end");
    expect_part("prefs list", 1, "cannot be read to its end");
    expect_part("prefs check " + std::string(300, 'a'), 1, "cannot be opened: File name too long");
    expect_part("prefs check /dev/null", 1, "it is no regular file");
}

TEST_F(Kuq, ShiftedTextStaysWhole)
{
    language = "ko_KR.ISO-2022-KR";
    for (const char *script :
         {"select \x0e\x30\x21\x0f,b", "  \x0e\x10", "'\x0e\x30\x21", "\x0e\x10"}) {
        home.write("a.sql", script);
        expect("highlight " + home.path("a.sql"), 0, script);
    }
}

TEST_F(Kuq, GrepSaysWhereLinesMatchAndByItsStatusWhetherAnyDoes)
{
    home.write("a.sql", "select ä, b(c)\r\nFROM t\n\nä c.c -- select (c)");
    const struct {
        std::string arguments;
        int status;
        std::string output;
    } rows[] = {
        {"'ä|t$'", 0, "1:8:select ä, b(c)\n2:6:FROM t\n4:1:ä c.c -- select (c)\n"},
        {"pattern='(c)'", 0, "1:5:select ä, b(c)\n4:3:ä c.c -- select (c)\n"},
        {"'(c)' fixed=yes", 0, "1:12:select ä, b(c)\n4:17:ä c.c -- select (c)\n"},
        {"from", 1, ""},
        {"from icase=yes", 0, "2:1:FROM t\n"},
        {"'Ä C.' icase=yes fixed=yes", 0, "4:1:ä c.c -- select (c)\n"},
        {"'^$' count=yes", 0, "1\n"},
        {"x count=yes", 1, "0\n"},
        {"c format=json count=yes", 0, "{\"lines\": 2, \"matches\": 6}\n"},
        {"x format=json", 1, "[]\n"},
        {"'c[t)]' colour=always", 0,
         "\033[2m1:5:\033[0msele\033[1;31mct\033[0m ä, b(\033[1;31mc)\033[0m\n"
         "\033[2m4:14:\033[0mä c.c -- sele\033[1;31mct\033[0m (\033[1;31mc)\033[0m\n"},
        {"'^s.*\\)$' count=yes", 0, "1\n"}, // a carriage return is part of the line's end
    };
    for (const auto &row : rows)
        expect("grep " + row.arguments + " file=" + home.path("a.sql"), row.status, row.output);
    expect("grep '\"|\\w' - format=json", 0,
           "[\n  {\"line\": 2, \"matches\": [{\"column\": 2, \"text\": \"\\\"\"}, "
           "{\"column\": 3, \"text\": \"é\"}], \"text\": \" \\\"é\"},\n"
           "  {\"line\": 3, \"matches\": [{\"column\": 1, \"text\": \"a\"}], \"text\": \"a\"}\n]\n",
           "printf ' \\n \"é\\na' | ");
    for (const char *fixed : {"yes", "no"}) {
        const std::string how = std::string("grep ab - fixed=") + fixed;
        expect(how, 0, std::string("1:3:b\0ab\n2:1:ab\n", 16), "printf 'b\\0ab\\nab\\n\\0' | ");
        const outcome longest =
            run(how + " | cut -c1-20", "head -c 10000000 /dev/zero | tr '\\0' a | sed 's/$/b/' | ");
        EXPECT_EQ(longest.output, "1:10000000:aaaaaaaaa\n");
    }
    expect_part("grep 'a(' file=/no/such/file", 2, "is wrong at character 3: nothing where");
    expect_part("grep a file=/no/such/file", 2, "cannot be opened");
    expect_part("grep c " + home.path("a.sql") + " >/dev/full", 2, "cannot be written");
}

TEST_F(Kuq, FilesAreFoundThroughPlacesAndTypes)
{
    for (const char *directory : {"here", "here/month", "one", "one/deep", "two"})
        std::filesystem::create_directory(home.path(directory));
    for (const char *file : {"here/near.sql", "one/month.sql", "one/deep/far.qry", "two/month.sql",
                             "two/month.qry", "two/plain", "two/a b.c.qry"})
        home.write(file, std::string(file) + ";");
    const std::string in = "cd " + home.path("here") + "; KU_PATH=" + home.path("none")
                           + "::" + home.path("one") + " HOME=" + home.path("") + " ";
    expect("prefs set path '(\"~/two\")'", 0, "");
    const auto found = [&](const std::string &name) {
        const outcome result = run("highlight '" + name + "'", in);
        return result.status == 0 ? result.output : "";
    };
    const struct {
        const char *name, *file; // with sql, then with .qry and sql as types
        const char *other;
    } rows[] = {
        {"near", "here/near.sql;", "here/near.sql;"},
        {"month", "one/month.sql;", "one/month.sql;"}, // the environment's places come first
        {"month.qry", "two/month.qry;", "two/month.qry;"},
        {"a b.c", "", ""}, // it has a type
        {"plain", "", ""}, // without a type it is tried with each
        {"far", "", ""},
        {"deep/far", "", ""}, // with a directory it is in no other one
        {"../one/deep/far", "", "one/deep/far.qry;"},
        {"deep\\far.qry", "", ""},
    };
    for (const auto &row : rows) EXPECT_EQ(found(row.name), row.file) << row.name;
    expect("prefs set types '(\".qry\",sql)'", 0, "");
    for (const auto &row : rows) EXPECT_EQ(found(row.name), row.other) << row.name;
    const outcome nowhere = run("grep a nothing", in);
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.output.substr(0, nowhere.output.find('\n')),
              "kuq: File 'nothing' was not found in ., " + home.path("none") + ", "
                  + home.path("one") + ", " + home.path("")
                  + "/two, as it is or with type qry, sql.");
    const outcome much = run("split nothing", "KU_PATH=/" + std::string(300, 'x') + " ");
    EXPECT_EQ(much.status, 1);
    EXPECT_NE(much.output.find("'nothing' was not found"), std::string::npos) << much.output;
}

TEST_F(Kuq, AFullDiskIsSaidAndLeavesTheOldSettings)
{
    home.write("a.sql", "select 1;");
    expect_part("split file=" + home.path("a.sql") + " >/dev/full", 1, "cannot be written");
    for (const char *command : {"tokens", "highlight", "split"}) // what has no end is not read on
        EXPECT_EQ(run(std::string(command) + " - >/dev/full", "yes 'a;' | timeout 20 env ").status,
                  1);
    home.write("user", "a file where a directory is wanted");
    expect_part("prefs set width 1", 1, "cannot be written");
}

TEST_F(Kuq, ALineWithoutRoomIsSaid)
{
    if (run("version", "ulimit -v 50000; ").status != 0) GTEST_SKIP() << "a sanitizer needs more";
    for (const char *limit : {"50000", "110000"}) // of what is read, of its copy
        for (const char *command : {"tokens", "highlight", "split"}) {
            const outcome result = run(std::string(command) + " -",
                                       std::string("ulimit -v ") + limit
                                           + "; head -c 50000000 /dev/zero | tr '\\0' a | ");
            EXPECT_EQ(result.status, 1) << limit << command;
            EXPECT_NE(result.output.find("Memory is exhausted"), std::string::npos)
                << result.output;
        }
}

} // namespace
