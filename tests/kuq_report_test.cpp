// kuq report and dump as their user meets them, beside what the database itself adds up

#include <gtest/gtest.h>

#include <sys/resource.h>

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

class KuqReport : public ku::test::kuq_database_test
{
protected:
    outcome run(const std::string &arguments, const std::string &filter = "")
    {
        return shell(command(arguments) + filter);
    }

    // The report of a query as CSV without its head.
    std::string csv(const std::string &query, const std::string &arguments = "")
    {
        return run("report " + quoted("query=" + query) + " format=csv " + arguments,
                   " | tail -n +2")
            .output;
    }

    // Rows with NULLs, groups that come back, and sums that no double holds.
    void fill(int count)
    {
        std::mt19937 random(20);
        std::string text = "create table t(a text, b integer, n integer, w date);\nbegin;\n";
        for (int row = 0; row < count; row++) {
            const unsigned a = random() % 40;
            const unsigned b = random() % 7;
            text += "insert into t values(" + (a == 0 ? "null" : "'g" + std::to_string(a) + "'")
                    + "," + (b == 0 ? "null" : std::to_string(static_cast<int>(b) * 30 - 100)) + ","
                    + std::to_string(900719925474099 + static_cast<int64_t>(random() % 1000))
                    + ",'20" + std::to_string(10 + random() % 90) + "-02-28');\n";
        }
        ASSERT_EQ(sql(text + "commit;\n").status, 0);
    }
};

TEST_F(KuqReport, TotalsOfAllLevelsAreThoseOfTheDatabase)
{
    fill(5000);
    const std::string columns = ",count(*),count(b),sum(n),min(w),max(w) from t ";
    for (const bool descending : {false, true}) {
        const std::string order = descending ? " desc nulls first" : " nulls last";
        const outcome ours = run(std::string("report 'query=select a,b,n,w from t' 'group=(")
                                     + (descending ? "\"a desc\"" : "a")
                                     + ",b)' sum=n count=b min=w max=w top=0 " + "format=csv",
                                 " | grep \'^total b\' | cut -d, -f2,3,6-");
        const outcome theirs = sql(".mode csv\n.separator , \\n\nselect a,b" + columns
                                   + "group by a,b order by a" + order + ", b nulls last;\n");
        ASSERT_EQ(theirs.status, 0) << theirs.output;
        EXPECT_EQ(ours.output, theirs.output);
    }
    const outcome grand = run("report 'query=select a,b,n,w from t' group=a sum=n count=b min=w "
                              "max=w top=0 format=csv",
                              " | tail -n 1 | cut -d, -f6-");
    EXPECT_EQ(grand.output,
              sql(".mode csv\n.separator , \\n\nselect " + columns.substr(1) + ";").output);
}

TEST_F(KuqReport, GroupsComeAsTheyArriveWhenNotSorted)
{
    sql("create table t(a text, d decimal(9,2)); insert into t values('x',0.1),('x',0.2),('y',-1),"
        "('x','1e-3'),(null,null);");
    const outcome result = run("report 'query=select * from t' group=a sum=d avg=d sorted=no top=1 "
                               "format=csv");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "line,a,d,rows,sum(d),avg(d)\nrow,x,0.1,,,\ntotal a,x,,2,0.3,0.15\n"
                             "row,y,-1,,,\ntotal a,y,,1,-1,-1\nrow,x,0.001,,,\n"
                             "total a,x,,1,0.001,0.001\nrow,,,,,\ntotal a,,,1,,\n"
                             "grand total,,,5,-0.699,-0.17475\n");
}

TEST_F(KuqReport, FormatsEscapeWhatTheyMust)
{
    sql("create table t(a text, b text); insert into t values('<\"&,', null), ('', 'x');");
    const struct {
        const char *format;
        const char *output;
    } rows[] = {
        {"csv", "line,a,b\nrow,\"<\"\"&,\",\nrow,\"\",x\n"},
        {"html", "<table>\n<tr><th>line</th><th>a</th><th>b</th></tr>\n"
                 "<tr><td>row</td><td>&lt;\"&amp;,</td><td></td></tr>\n"
                 "<tr><td>row</td><td></td><td>x</td></tr>\n</table>\n"},
        {"json", "[\n  {\"line\": \"row\", \"a\": \"<\\\"&,\", \"b\": null},\n"
                 "  {\"line\": \"row\", \"a\": \"\", \"b\": \"x\"}\n]\n"},
        {"text", "line         a     b\nrow          <\"&,\nrow                x\n"},
    };
    for (const auto &row : rows) {
        const std::string file = home.path("out");
        const outcome result = run(std::string("report 'query=select * from t' format=")
                                   + row.format + " out=" + file);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(home.read("out"), row.output);
    }
}

TEST_F(KuqReport, FailuresNameStatementLineAndColumn)
{
    sql("create table t(a text, n integer, w date); insert into t values('x', 'many', 'soon');");
    home.write("two.sql", "select a from t;\n\nselect a\nfrom nowhere;\n");
    const struct {
        std::string arguments;
        int status;
        const char *part;
    } rows[] = {
        {"report file=" + home.path("two.sql"), 1, "Statement 2 (line 3) failed: SQLSTATE HY000"},
        {"report 'query=select a from t' group=b", 1, "no column 'b'; the nearest one is 'a'"},
        {"report 'query=select a from t' sum=a", 1, "'x' in column 'a' is no number"},
        {"report 'query=select n from t'", 1, "'many' in column 'n' of row 1"},
        {"report 'query=select w from t'", 1, "'soon' in column 'w' of row 1"},
        {"report 'query=create table u(a)'", 1, "No statement returned rows"},
        {"report 'query=select 1' top=-1", 2, "'-1' is not a number of rows"},
        {"report 'query=select 1' long=0", 2, "'0' is not a number of characters"},
        {"report 'query=select 1' 'where=(a)'", 2, "where= needs a pattern for each column"},
        {"report 'query=select a from t' 'where=(b,%)'", 1, "no column 'b'"},
        {"dump 'query=select 1' 'match=(a,\"b(\")'", 2, "'b(' is wrong at character 3"},
        {"dump 'query=select 1' 'like=(a,b)' escape=ab", 2, "'ab' cannot be the escape"},
        {"report 'query=select a from t' out=/", 1, "'/' cannot be opened: Is a directory"},
        {"report", 2, "'query' is missing"},
        {"report 'query=select 1' file=two", 2, "'file' and 'query' cannot both be given"},
    };
    for (const auto &row : rows) expect_part(row.arguments, row.status, row.part);
    const std::string word = connect;
    connect = "";
    EXPECT_EQ(
        run("prefs set connect " + quoted("value=" + word.substr(9, word.size() - 10))).status, 0);
    EXPECT_EQ(csv("select a, 'b c' x from t"), "row,x,b c\n"); // the connection is a setting
    connect = "connect=nowhere";
    expect_part("report 'query=select 1'", 1, "SQLSTATE IM002");
    connect = "connect=Driver=/no/driver.so";
    expect_part("report 'query=select 1'", 1, "odbcinst -q -d lists the drivers");
}

TEST_F(KuqReport, TextsOfAnyAlphabetGoThereAndBack)
{
    std::filesystem::create_directory(home.path("łódź"));
    connect = "'connect=Driver=SQLite3;Database=" + home.path("łódź/東.db") + "'";
    EXPECT_EQ(shell("sqlite3 " + home.path("łódź/東.db")
                    + " \"create table t(ł text); insert into t values('東京'), ('Zürich')\"")
                  .output,
              "");
    const std::string query = "select ł, '東' \"東ü\" from t where ł in ('東京','Zürich')";
    EXPECT_EQ(run("report " + quoted("query=" + query) + " 'where=(ł,東%)' format=csv").output,
              "line,ł,東ü\nrow,東京,東\n");
    expect_part("report 'query=select ó from t'", 1, "no such column: ó");
}

TEST_F(KuqReport, InterruptedRunsLeaveNothingAndKilledOnesAreClearedUp)
{
    fill(1000);
    const std::string slow = "'query=select x.* from t x, t y limit 300000' group=n top=0";
    const std::string files = "ls " + home.path("scratch") + " | grep '^kuq-' ";
    const auto signalled = [&](const std::string &signal) {
        return shell(command("report " + slow) + " & until " + files
                     + "> /dev/null; do sleep .01; done; kill -" + signal + " $!; wait $!");
    };
    const outcome stopped = signalled("INT");
    EXPECT_EQ(stopped.status, 1);
    EXPECT_NE(stopped.output.find("Ended by the user"), std::string::npos) << stopped.output;
    EXPECT_EQ(shell(files).output, "");
    const std::string out = home.path("out");
    EXPECT_EQ(run("report 'query=select 1; select a from t; select x from t' out=" + out).status,
              1);
    EXPECT_FALSE(std::filesystem::exists(out)) << "it looks whole";

    signalled("KILL");
    EXPECT_EQ(shell(files + "| wc -l").output, "2\n");
    home.write("scratch/kuq-note", "a file that is none of these stays");
    EXPECT_EQ(run("report 'query=select 1'").status, 0);
    EXPECT_EQ(shell(files).output, "kuq-note\n");
    std::filesystem::remove(home.path("scratch/kuq-note"));
}

TEST_F(KuqReport, DumpPrintsTheColumnsAndTheTreeOfTheCache)
{
    sql("create table t(a text, n integer); insert into t values('x', 5), ('y', 6);");
    const outcome result = run("dump 'query=select * from t' group=a");
    EXPECT_EQ(result.status, 0);
    for (const char *part : {"ColName:                    n ColType: 2", "s- x ", "s- y "})
        EXPECT_NE(result.output.find(part), std::string::npos) << result.output;
    // Rows that a condition leaves are kept as if the query had left them.
    sql("insert into t values(null, 7), ('z" + std::string(70000, 'z') + "', 8), ('z', 8);");
    for (const std::string grouped : {" group=n", " group=n sorted=no"}) {
        const outcome some = run("dump 'query=select * from t' 'match=(a,[yz]$)'" + grouped);
        EXPECT_EQ(some.status, 0);
        EXPECT_EQ(some.output,
                  run("dump \"query=select * from t where a > 'x'\"" + grouped).output);
        EXPECT_NE(some.output, run("dump 'query=select * from t'" + grouped).output);
    }
}

TEST_F(KuqReport, GroupsInOrderOfArrivalHaveTheTotalsOfSortedOnes)
{
    fill(3000);
    const std::string query = "select a,b,w,n from t order by a nulls last,b nulls last,w";
    const std::string totals = "'group=(a,b,w)' sum=n avg=n min=b max=b count=b top=1";
    const std::string sorted = csv(query, totals);
    EXPECT_GT(sorted.size(), 100000u);
    EXPECT_EQ(csv(query, totals + " sorted=no"), sorted);
    // A group that is left after its first row is counted all the same.
    const std::string all = "report 'query=" + query + "' 'group=(a,b,w)' top=1 format=csv ";
    const std::string counted = run(all + "count=n", " | cut -d, -f1-6").output;
    for (const char *order : {"yes", "no"})
        EXPECT_EQ(run(all + "sorted=" + order).output, counted) << order;
}

TEST_F(KuqReport, NullsComeLastAndNumbersInTheirOrder)
{
    sql("create table t(n numeric(30,10)); insert into t values(-1.5),(null),(-20),(0),(3e9),(.001)"
        ",(-1.55),(1000);");
    EXPECT_EQ(csv("select n from t", "group=n top=0"),
              "total n,-20,1\ntotal n,-1.55,1\ntotal n,-1.5,1\ntotal n,0,1\ntotal n,0.001,1\n"
              "total n,1000,1\ntotal n,3000000000,1\ntotal n,,1\ngrand total,,8\n");
    EXPECT_EQ(csv("select n from t", "'group=\"n DESC\"' top=0").substr(0, 25),
              "total n,,1\ntotal n,300000");
    EXPECT_EQ(csv("select n from t where n > 5e9", "sum=n count=n"), "grand total,,0,0,\n");
}

TEST_F(KuqReport, WhereKeepsTheRowsThatTheDatabaseWould)
{
    sql("create table t(a text, n integer); insert into t values('abc',1),('abd',12),('ab',21),"
        "('',3),(null,4),('aäc',5),('a😀c',6),('100%',7);");
    for (const char *pattern : {"%", "a%", "%c", "a_c", "ab_", "___", "%b%d%", "a%c%", "_", "%%",
                                "1__%", "abc%_", "%0!%", "a!bc"}) {
        const outcome theirs =
            sql(".mode list\n.separator ,\npragma case_sensitive_like=1;\nselect 'row', case a "
                "when '' then '\"\"' else a end, n from t where a like '"
                + std::string(pattern) + "' escape '!';");
        EXPECT_EQ(csv("select a, n from t",
                      quoted("like=(a,'" + std::string(pattern) + "')") + " escape=!"),
                  theirs.output);
        if (std::string(pattern).find('!') != std::string::npos) continue;
        EXPECT_EQ(csv("select a, n from t", quoted("where=(a,'" + std::string(pattern) + "')")),
                  theirs.output);
    }
    EXPECT_EQ(csv("select a, n from t", "\"match=(a,'^a.c|%',n,'^[1-5]\\$|7')\""),
              "row,abc,1\nrow,aäc,5\nrow,100%,7\n");
    EXPECT_EQ(csv("select a, n from t", "'match=(a,\"^(a\\w)*$\")' like='(n,_)'"), "row,\"\",3\n");
    EXPECT_EQ(csv("select a, n from t", "'where=(a,a%,n,%1)' group=a"),
              "row,ab,21,\ntotal a,ab,,1\nrow,abc,1,\ntotal a,abc,,1\ngrand total,,,2\n");
}

TEST_F(KuqReport, LongValuesComeBackWhole)
{
    std::string whole;
    for (int at = 0; at < 40000; at++) whole += at % 3 == 0 ? "😀" : at % 3 == 1 ? "é" : "x";
    sql("create table t(k integer, a text, b blob); insert into t values(1,'" + whole
        + "',null),(2,'short',zeroblob(70000)),(3,null,x'00ff'),(4,'',x'');");
    const std::string zeros(140000, '0');
    EXPECT_EQ(csv("select * from t"), "row,1,\"" + whole + "\",\nrow,2,short,\"" + zeros
                                          + "\"\nrow,3,,00ff\nrow,4,\"\",\"\"\n");
    EXPECT_EQ(csv("select a from t", "long=4"), "row,😀éx...\nrow,shor...\nrow,\nrow,\"\"\n");
    EXPECT_EQ(csv("select k, a from t", "'where=(a,%x😀)' max=a long=3 top=0"),
              "grand total,,,1,😀é...\n");
    EXPECT_EQ(csv("select k, a from t", "'match=(a,\"x😀é$|é😀\")' max=a long=3 top=0"),
              "grand total,,,0,\n");
    EXPECT_EQ(csv("select k, a from t", "'match=(a,\"^😀(.{3})*$\")' max=a long=3 top=0"),
              "grand total,,,1,😀é...\n"); // 40000 characters: one and whole threes
    const std::string groups = csv("select b from t", "group=b top=0 sorted=no");
    for (const std::string &part :
         {"total b,,1\ntotal b," + zeros.substr(0, 2000) + ",1\ntotal b,00ff,1\ntotal b,\"\",1\n",
          std::string("kuq: 1 values of the columns to group by were cut")})
        EXPECT_NE(groups.find(part), std::string::npos) << part;
    const std::string shown = run("report 'query=select k, a from t where k=1'").output;
    EXPECT_EQ(shown.substr(shown.rfind(' ') + 1).size(), (80 / 4) * 7 + 3 + 1u) << shown;
    EXPECT_NE(run("report 'query=select a from t' format=json").output.find("\"" + whole + "\""),
              std::string::npos);
}

TEST_F(KuqReport, TextIsInTheTerminalsCharacterSet)
{
    language = "de_DE.ISO-8859-1";
    EXPECT_EQ(csv("select '\xE4' || char(228, 8364) a, length('\xE4') n"), "row,\xE4\xE4?,1\n");
    language = "C";
    EXPECT_EQ(csv("select char(228) || 'b' \"x\""), "row,?b\n");
}

TEST_F(KuqReport, WideResultsAndOddNames)
{
    std::string query = "select 0 c0";
    std::string values = "row,0";
    for (int at = 1; at < 500; at++) {
        query += at % 7 == 0 ? ",null" : at % 7 == 1 ? ",''" : ",'v" + std::to_string(at % 4) + "'";
        query += " c" + std::to_string(at);
        values += at % 7 == 0 ? "," : at % 7 == 1 ? ",\"\"" : ",v" + std::to_string(at % 4);
    }
    EXPECT_EQ(csv(query), values + "\n");
    EXPECT_EQ(csv(query, "'group=(c499,c7)' max=c3 top=0").substr(0, 9), "total c7,");
    const std::string name(200, 'n');
    const outcome result =
        run("report format=csv "
            + quoted("query=select 1 \"a b\", 2 \"b, desc\", 3 \"é'\", 4 \"\", 5 " + name)
            + " 'group=(\"a b desc\",\"b, desc\")' " + quoted("sum=é'") + " min=" + name);
    EXPECT_EQ(result.output.substr(0, result.output.find('\n')),
              "line,a b,\"b, desc\",é',\"\"," + name + ",rows,sum(é'),min(" + name + ")");
    EXPECT_EQ(result.status, 0);
}

TEST_F(KuqReport, ATerminalShowsWhatGoesOn)
{
    if (shell("script --version").status != 0) GTEST_SKIP() << "script is not installed";
    const std::string slow = "with recursive c(i) as (select 1 union all select i+1 from c limit "
                             "600000) select i, i%7 k from c";
    const std::string line = command("report 'query=" + slow + "' group=k top=0 out=/dev/null");
    const outcome shown =
        shell("script -qec " + quoted(line) + " /dev/null < /dev/null | tr '\\r' '\\n'");
    EXPECT_NE(shown.output.find("rows read ..."), std::string::npos) << shown.output;
    EXPECT_EQ(run("report 'query=select 1 a' format=csv").output, "line,a\nrow,1\n");
}

#ifdef NDEBUG // as users have it: sanitizers and debug builds take memory and time of their own
TEST_F(KuqReport, AMillionRowsTakeLittleMemory)
{
    constexpr long most = 64 << 10; // KB
    const std::string query = "with recursive c(i) as (select 1 union all select i+1 from c limit "
                              "1000000) select i, 'group '||(i%50) g, 'a text as long as they "
                              "often are, number '||i a from c";
    EXPECT_NE(csv(query, "group=g sum=i top=0").find("grand total,,,,1000000,500000500000"),
              std::string::npos);
    rusage used = {};
    getrusage(RUSAGE_CHILDREN, &used);
    EXPECT_LT(used.ru_maxrss, most);
}
#endif

std::string offered()
{
    const char *text = std::getenv("KU_POSTGRES");
    return text == nullptr ? "" : text;
}

const std::string server = offered(); // before the tests forget the environment

// The same over PostgreSQL, where rows come in arrays and a statement is a cursor.
class KuqPostgres : public KuqReport
{
protected:
    void SetUp() override
    {
        KuqReport::SetUp();
        if (IsSkipped()) return;
        if (server.empty())
            GTEST_SKIP() << "KU_POSTGRES names no server: tests/support/postgres.sh run COMMAND";
        connect = quoted("connect=" + server);
    }
};

TEST_F(KuqPostgres, TotalsAreThoseOfTheDatabase)
{
    const std::string rows = "(select case when i%11=0 then null else 'g'||i%40 end a, "
                             "(i*7919%1009)::numeric/100 n, date '2024-01-01'+i%90 w "
                             "from generate_series(1,20000) i) t";
    const std::string theirs =
        csv("select 'total a', a, null n, null w, count(*), sum(n), min(w), max(w) from " + rows
            + " group by a order by a collate \"C\" nulls last");
    std::string expected;
    for (size_t at = 0; at < theirs.size(); at = theirs.find('\n', at) + 1)
        expected += theirs.substr(at + 4, theirs.find('\n', at) + 1 - at - 4); // without "row,"
    const std::string ours = csv("select * from " + rows, "group=a sum=n min=w max=w top=0");
    EXPECT_EQ(ours.substr(0, ours.find("grand")), expected);
    EXPECT_EQ(csv("select * from " + rows + " order by a", "group=a sum=n min=w max=w top=0 "
                                                           "sorted=no"),
              ours);
}

TEST_F(KuqPostgres, EveryDatatypeComesAsItIs)
{
    EXPECT_EQ(csv("select 7::smallint, -2147483648 i, 9223372036854775807 b, 1.50::numeric(5,2), "
                  "0.1::float8, true, date '0001-01-01', timestamp '2024-02-29 01:02:03.4', "
                  "'\\x00ff'::bytea, 'é😀', '', null::text, time '01:02', 'a b'::char(5)"),
              "row,7,-2147483648,9223372036854775807,1.5,0.1,1,0001-01-01,2024-02-29 01:02:03.4,"
              "00ff,é😀,\"\",,01:02:00,a b  \n");
    expect_part("report \"query=select 'NaN'::numeric n\"", 1, "'NaN' in column 'n' of row 1");
    std::string rows;
    for (int at = 1; at <= 300; at++)
        rows += "row," + std::to_string(at) + ","
                + (at % 100 == 0 ? "\"" + std::string(20000, 'y') + "é\"" : "short") + ",\n";
    EXPECT_EQ(csv("select i, case when i%100=0 then repeat('y',20000)||'é' else 'short' end t, "
                  "null::bytea n from generate_series(1,300) i"),
              rows);
}

TEST_F(KuqPostgres, WhatBreaksOffSaysWhy)
{
    const std::string series = " else 0 end x from generate_series(1,90000) g";
    const struct {
        std::string query;
        const char *part;
    } rows[] = {
        {"select 1;\n\nselect nothing", "Statement 2 (line 3) failed: SQLSTATE 42703"},
        {"select case g when 80000 then 1/(g-80000)" + series, "failed: SQLSTATE 22012"},
        {"select case g when 80000 then pg_terminate_backend(pg_backend_pid())::int" + series,
         "The connection was lost in statement 1 (line 1)"},
        {"select from generate_series(1,3)", "No statement returned rows"},
    };
    for (const auto &row : rows) expect_part("report " + quoted("query=" + row.query), 1, row.part);
    connect.insert(connect.size() - 1, ";Port=1");
    expect_part("report 'query=select 1'", 1, "The database cannot be reached: SQLSTATE 08001");
}

TEST_F(KuqPostgres, AnInterruptEndsAServerThatDoesNotAnswer)
{
    const auto start = std::chrono::steady_clock::now();
    const outcome result =
        shell(command("report 'query=select pg_sleep(30)'").replace(0, 0, "exec env ")
              + " & sleep 1; kill -INT $!; wait $!");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_EQ(result.output, "kuq: Ended by the user.\n");
}

} // namespace
