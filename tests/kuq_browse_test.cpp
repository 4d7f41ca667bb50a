// kuq browse as its user meets it: through a pipe beside the database's own order, and on a terminal

#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/kuq.h"

namespace
{

using ku::test::outcome;
using ku::test::quoted;
using ku::test::shell;

class KuqBrowse : public ku::test::kuq_database_test
{
protected:
    std::string environment() override
    {
        return kuq_database_test::environment() + "LINES=8 COLUMNS=40 ";
    }

    outcome run(const std::string &query, const std::string &commands,
                const std::string &arguments = "")
    {
        return shell(command("browse " + quoted("query=" + query) + " " + arguments) + " < "
                     + home.write("in", commands));
    }

    // Groups of several sizes, NULLs, and values that no two rows share.
    void fill(int count)
    {
        std::mt19937 random(7);
        std::string text = "create table t(i integer, a text, b integer, w date);\nbegin;\n";
        for (int row = 1; row <= count; row++) {
            const unsigned a = random() % 30;
            const unsigned b = random() % 6;
            text += "insert into t values(" + std::to_string(row) + ","
                    + (a == 0 ? "null" : "'g" + std::to_string(a) + "'") + ","
                    + (b == 0 ? "null" : std::to_string(static_cast<int>(b * 7) - 20)) + ",'20"
                    + std::to_string(10 + random() % 80) + "-02-28');\n";
        }
        ASSERT_EQ(sql(text + "commit;\n").status, 0);
    }

    std::string rows_of(const std::string &from)
    {
        return sql(".mode csv\n.separator , \\n\nselect i,a,b from t " + from + ";\n").output;
    }
};

std::string line_with(const std::string &text, const std::string &part)
{
    const size_t at = text.find(part);
    if (at == std::string::npos) return "none of '" + part + "' in " + text;
    const size_t start = text.rfind('\n', at) + 1; // npos + 1 is 0
    return text.substr(start, text.find('\n', at) - start);
}

TEST_F(KuqBrowse, SortsKeepTheOrderOfEqualRowsAndLeaveWhatWasFetched)
{
    fill(3000);
    const struct {
        const char *arguments;
        const char *commands;
        const char *from;
    } rows[] = {
        {"", "", "order by i"},
        {"'group=(a,\"b desc\")'", "", "order by a nulls last, b desc nulls first, i"},
        {"'group=(a,b)' sorted=no", "", "order by i"},
        {"group=b", "sort a desc\n", "order by a desc nulls first, b nulls last, i"},
        {"", "sort w\nsort b\nsort a\nsort b desc\n",
         "order by b desc nulls first, a nulls last, w, i"},
        {"'where=(a,g1%)'", "sort b\n", "where a like 'g1%' order by b nulls last, i"},
    };
    for (const auto &row : rows) {
        const std::string file = home.path("x.csv");
        const outcome result =
            run("select * from t",
                std::string(row.commands) + "columns i a b\nexport " + file + "\n", row.arguments);
        EXPECT_EQ(result.status, 0) << result.output;
        const std::string ours = home.read("x.csv");
        EXPECT_EQ(ours, "i,a,b\n" + rows_of(row.from)) << row.arguments << row.commands;
        EXPECT_GT(ours.size(), 5000u);
    }
}

TEST_F(KuqBrowse, GroupsAndKeysAreFoundWhereTheDatabaseHasThem)
{
    fill(2000);
    for (const bool sorted : {true, false}) {
        const std::string order = sorted ? "a nulls last, b nulls last, i" : "i";
        const std::string part = sorted ? "order by a nulls last, b nulls last" : "order by i";
        const std::string groups = "with v as (select a, b, row_number() over (order by " + order
                                   + ") r from t), w as (select *, lag(a) over (order by r) la, "
                                     "lag(b) over (order by r) lb from v) select r from w where ";
        const std::string starts[] = {
            sql(groups + "r > 1 and a is not la;").output,
            sql(groups + "r > 1 and (a is not la or b is not lb);").output};
        for (const int level : {1, 2}) {
            std::string there;
            std::string back;
            for (int step = 0; step < 40; step++) {
                there += "ng " + std::to_string(level) + "\n";
                back += "pg " + std::to_string(level) + "\n";
            }
            const outcome result =
                run("select a, b, i from t", there + back,
                    std::string("'group=(a,b)' sorted=") + (sorted ? "yes" : "no"));
            std::vector<std::string> seen; // the first rows of all pages
            for (size_t at = 0; (at = result.output.find("\nrows ", at)) != std::string::npos; at++)
                seen.push_back(result.output.substr(at + 6, result.output.find('-', at) - at - 6));
            std::vector<std::string> wanted;
            const std::string &all = starts[level - 1];
            for (size_t at = 0; at < all.size() && wanted.size() < 40; at = all.find('\n', at) + 1)
                wanted.push_back(all.substr(at, all.find('\n', at) - at));
            for (size_t at = wanted.size() - 1; at-- > 0;) wanted.push_back(wanted[at]);
            wanted.push_back("1");
            EXPECT_EQ(seen, wanted) << level << sorted;
        }
        // The first row at the key or behind it; without an order the first one that has it.
        const std::string first = sql("select min(r) from (select a, b, row_number() over (" + part
                                      + ") r from t) where a = 'g20' and b = 1;")
                                      .output;
        const outcome jump = run("select a, b, i from t", "jump g20 1\nj zz\nj g20 x\nj a b c\n",
                                 std::string("'group=(a,b)' sorted=") + (sorted ? "yes" : "no"));
        EXPECT_EQ(line_with(jump.output, "rows ").substr(5, first.size()),
                  first.substr(0, first.size() - 1) + "-");
        for (const char *text :
             {"'x' is not a value of column 'b'", "'3' is not a level; there are 2"})
            EXPECT_NE(jump.output.find(text), std::string::npos) << jump.output;
    }
}

TEST_F(KuqBrowse, PagesFitTheTerminal)
{
    const std::string query = "with recursive c(i) as (select 1 union all select i+1 from c limit "
                              "12) select i, char(26085, 26412) || i n, char(10, 27) || 'x' c, "
                              "'a text that is long' l, 2 m from c";
    const std::string cells = "  \\n\\x1bx  a text that i\n"; // the rest of the line is cut
    EXPECT_EQ(run(query, "next\n").output,
              "      i   n       c        l\n 6    6   日本6 " + cells + " 7    7   日本7 " + cells
                  + " 8    8   日本8 " + cells + " 9    9   日本9 " + cells + "10    10  日本10"
                  + cells + "rows 6-10 of 12; columns 1-4 of 5\n");
    EXPECT_EQ(run(query, "12\n", "'columns=(m,L)' long=6").output,
              "      m  l\n12    2  a text...\nrows 12-12 of 12\n");
    const outcome moves = run(query, "next\nnext\nprevious\nprevious 9\nrow 3\nnext 9\nlast\n"
                                     "previous\nfirst\n");
    std::string seen;
    for (size_t at = 0; (at = moves.output.find("\nrows ", at)) != std::string::npos; at++)
        seen += moves.output.substr(at + 6, moves.output.find(" of", at) - at - 6) + " ";
    EXPECT_EQ(seen, "6-10 11-12 6-10 1-5 3-7 8-12 8-12 3-7 1-5 ");
}

TEST_F(KuqBrowse, SearchesGoForwardAndShowWhatTheyFound)
{
    const std::string query =
        "select 'Äpfel' a, 'x.y' b union all select 'birnen', 'xzy' union all "
        "select null, 'äpfel' union all select '100%', '"
        + std::string(3000, 'v') + "needle" + std::string(50, 'w') + "'";
    const struct {
        const char *commands;
        const char *row;
        const char *found;
    } rows[] = {
        {"text pfel\n", "rows 1-4", "a: Ä[pfel]"},
        {"/pfel\na\n", "rows 3-4", "b: ä[pfel]"},
        {"case no\n2\n/ÄPF\n", "rows 3-4", "b: [äpf]el"},
        {"text .\n", "rows 1-4", "b: x[.]y"},
        {"in b\nmatch ^x.y$\nagain\n", "rows 2-4", "b: [xzy]"},
        {"like %ne_\n", "rows 2-4", "a: [birnen]"},
        {"like 100%\n", "rows 4-4", "a: [100%]"},
        {"~e{2}dle\n", "rows 4-4", "b: ...vvvvvvvvvvvvvvvvvvvvvvvvvvvvvn[eedle]wwww"},
        {"in a\n/y\n", "'y' was not found from row 1 on", "case no finds"},
        {"~a(b\n", "Pattern 'a(b' is wrong at character", ""},
        {"again\n", "There is no search to repeat", ""},
    };
    for (const auto &row : rows) {
        const outcome result = run(query, row.commands);
        EXPECT_NE(result.output.find(row.row), std::string::npos) << row.commands << result.output;
        EXPECT_NE(result.output.find(row.found), std::string::npos)
            << row.commands << result.output;
        EXPECT_EQ(result.status, std::string(row.row).compare(0, 4, "rows") == 0 ? 0 : 1);
    }
}

TEST_F(KuqBrowse, MarkedRowsStayOutOfExportsUntilTheyAreTakenBack)
{
    const std::string query = "select * from (values(1,'c'),(2,'b'),(3,null),(4,'a'))";
    const outcome result = run(query, "delete 2\nsort column2\nd 2-3\nu\nu\nu\nd 4\n"
                                      "export - csv\ncolumns column1\n2\nexport - json page\n");
    EXPECT_EQ(result.output.substr(result.output.find("column1,column2\n")),
              "column1,column2\n4,a\n2,b\n1,c\n"
              "     column1\n1    4\n2    2\n3    1\n4 x  3\n"
              "rows 1-4 of 4, by column2; 1 marked deleted\n"
              "     column1\n2    2\n3    1\n4 x  3\n"
              "rows 2-4 of 4, by column2; 1 marked deleted\n"
              "[\n  {\"column1\": \"2\"},\n  {\"column1\": \"1\"}\n]\n");
    EXPECT_NE(
        result.output.find(
            "1 marked deleted\n1 no longer marked\n1 no longer marked\nkuq: There is no marking"),
        std::string::npos)
        << result.output;
}

TEST_F(KuqBrowse, RowsAreShownWhole)
{
    std::string whole;
    for (int at = 0; at < 30000; at++) whole += at % 3 == 0 ? "😀" : at % 3 == 1 ? "é" : "\n";
    sql("create table t(k integer, \"a b\" text, c blob); insert into t values(1,'" + whole
        + "',x'00ff'),(2,null,null);");
    const outcome result = run("select * from t", "show\nshow 2\nsort \"a b\"\n", "columns=k");
    EXPECT_EQ(result.output, "row 1 of 2\nk    1\na b  " + whole
                                 + "\nc    00ff\n"
                                   "row 2 of 2\nk    2\na b  (NULL)\nc    (NULL)\n"
                                   "     k\n1    1\n2    2\nrows 1-2 of 2, by a b\n");
}

TEST_F(KuqBrowse, AFailedCommandIsToldAndTheNextOneRuns)
{
    const struct {
        const char *command;
        const char *part;
    } rows[] = {
        {"shwo", "There is no command 'shwo' here; the nearest one is 'show'"},
        {"sort citi", "no column 'citi'; the nearest one is 'city'"},
        {"sort", "'sort' is written: sort COLUMN [desc]"},
        {"sort 'city", "'sort' is written: sort COLUMN [desc]"},
        {"row 3", "'3' is not a row; there are 2"},
        {"row 2x", "'2x' is not a row; there are 2"},
        {"delete 2-1", "'delete' is written: delete [ROW[-ROW]]"},
        {"next", "There is no next page"},
        {"nextgroup", "'1' is not a level; there are 0"},
        {"undo", "There is no marking to undo"},
        {"export /no/where csv", "'/no/where' cannot be opened"},
        {"export x y", "'export' is written"},
        {"export /dev/full", "No space left"},
    };
    const std::string query = "select 'Rom' city union all select 'Ulm'";
    for (const auto &row : rows) {
        const outcome result = run(query, std::string(row.command) + "\n# text\n\nc\nq\nnothing\n");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.output.find(row.part), std::string::npos) << row.part << result.output;
        EXPECT_NE(result.output.find("rows 1-2 of 2"), std::string::npos) << result.output;
        EXPECT_EQ(result.output.find("'nothing'"), std::string::npos) << result.output;
    }
    EXPECT_EQ(run("select 1 where 0", "f\nl\nsort 1\nexport - csv\nhelp\n").status, 0);
    EXPECT_EQ(run("select 1; select 2 b", "f\nq\nf\n").output,
              "     1\n1    1\nrows 1-1 of 1\n     b\n1    2\nrows 1-1 of 1\n");
    EXPECT_EQ(shell(command("browse file=-") + " < /dev/null").status, 2);
}

#ifdef NDEBUG // as users have it: sanitizers and debug builds take memory and time of their own
TEST_F(KuqBrowse, AMillionRowsTakeLittleMemory)
{
    constexpr long most = 64 << 10; // KB
    const outcome result =
        run("with recursive c(i) as (select 1 union all select i+1 from c limit 1000000) select "
            "i*7919%1000003 k, 'group '||(i%50) g, 'a text as long as they often are' a from c",
            "sort k\nsort g\nng\n/no such text\nlast\n");
    EXPECT_NE(result.output.find("rows 20001-20005 of 1000000, by g, k"), std::string::npos);
    EXPECT_NE(result.output.find("rows 999996-1000000"), std::string::npos) << result.output;
    rusage used = {};
    getrusage(RUSAGE_CHILDREN, &used);
    EXPECT_LT(used.ru_maxrss, most);
}
#endif

// A session on a terminal of its own.
class terminal
{
public:
    terminal(const std::string &command, unsigned short lines, unsigned short columns)
    {
        winsize size = {lines, columns, 0, 0};
        process_ = forkpty(&end_, nullptr, nullptr, &size);
        if (process_ != 0) return;
        execl("/bin/sh", "sh", "-c", ("exec env " + command).c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    ~terminal() { close(end_); }

    void type(const std::string &text)
    {
        EXPECT_EQ(write(end_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // What comes up to a text, that included; all of it when the session ends before.
    std::string until(const std::string &text)
    {
        const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        const size_t start = passed_;
        while ((passed_ = all.find(text, start)) == std::string::npos) {
            pollfd input = {end_, POLLIN, 0};
            char block[1000];
            const bool late = std::chrono::steady_clock::now() > latest;
            const bool here = poll(&input, 1, 100) > 0;
            const ssize_t got = here ? read(end_, block, sizeof block) : 0;
            if (late) ADD_FAILURE() << "no '" << text << "' in " << all.substr(start);
            if (late || (here && got <= 0)) return all.substr(passed_ = start);
            all.append(block, static_cast<size_t>(got));
        }
        passed_ += text.size();
        return all.substr(start, passed_ - start);
    }

    void resize(unsigned short lines, unsigned short columns) const
    {
        winsize size = {lines, columns, 0, 0};
        ioctl(end_, TIOCSWINSZ, &size);
    }

    int wait_for_end()
    {
        until("\1");
        int status = -1;
        waitpid(process_, &status, 0);
        return WEXITSTATUS(status);
    }

    std::string all;

private:
    size_t passed_ = 0; // of all
    int end_ = -1;
    pid_t process_ = -1;
};

TEST_F(KuqBrowse, ATerminalHasAPromptAndSurvivesWhatHappensToIt)
{
    const std::string query = "with recursive c(i) as (select 1 union all select i+1 from c limit "
                              "3000) select i, 'name '||i label from c";
    for (const char *name : {"dumb", "xterm"}) {
        const bool dumb = std::string(name) == "dumb";
        terminal session("PAGER=cat NO_COLOR= TERM=" + std::string(name) + " "
                             + command("browse " + quoted("query=" + query)),
                         10, 60);
        EXPECT_NE(session.until("kuq> ").find("rows 1-7 of 3000"), std::string::npos);
        session.type("nonsense");
        session.until("nonsense");
        session.type("\x03"); // the line is dropped
        session.until("kuq> ");
        session.resize(8, 60);
        session.type("nex\t\r");
        session.until("rows 8-12 of 3000");
        session.type("text name 2999\r");
        session.until(dumb ? "label: [name 2999]" : "label: \x1b[7mname 2999\x1b[0m");
        session.until("kuq> ");
        session.type("1\rsort la\t\r"); // a column's name is completed
        session.until("by label");
        session.until("kuq> ");
        session.type("\x10\x10\x0E\r"); // back and forth in the history
        session.until("sort label");
        session.until("rows 1-5");
        session.until("kuq> ");
        session.type("\x04");
        EXPECT_EQ(session.wait_for_end(), 0);
        EXPECT_EQ(session.all.find("'nonsense'"), std::string::npos);
        EXPECT_TRUE(!dumb || session.all.find('\x1b') == std::string::npos) << session.all;
    }
    const std::string history = home.read("data/kuq/history");
    EXPECT_EQ(history.substr(0, history.find("\nsort")), "next\ntext name 2999\n1");
}

TEST_F(KuqBrowse, AnInterruptEndsReadingAndSortingALostTerminalTheSession)
{
    const std::string endless = "with recursive c(i) as (select 1 union all select i+1 from c) "
                                "select i, 'name '||i label from c";
    {
        terminal session("TERM=dumb " + command("browse " + quoted("query=" + endless)), 10, 60);
        for (int tick = 0; tick < 20; tick++)
            session.until("rows read"); // so that what follows takes time
        session.type("\x03");
        session.until("Reading was ended by the user; there are ");
        session.until("kuq> ");
        session.type("sort label desc\r");
        session.until("rows sorted");
        session.type("\x03");
        session.until("Ended by the user");
        session.until("kuq> ");
        session.type("show 1000\r"); // where it was before
        session.until("label  name 1000");
    }
    for (int tries = 0; tries < 200 && !std::filesystem::is_empty(home.path("scratch")); tries++)
        usleep(50000);
}

} // namespace
