// kuq report and dump as their user meets them, beside what the database itself adds up

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "support/files.h"

namespace
{

struct outcome {
    int status;
    std::string output; // standard output and standard error together
};

outcome shell(const std::string &command)
{
    std::FILE *pipe = popen(("(" + command + ") 2>&1").c_str(), "r");
    outcome result = {-1, ""};
    char block[4096];
    for (size_t got = 0; (got = std::fread(block, 1, sizeof block, pipe)) > 0;)
        result.output.append(block, got);
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
}

const std::string kuq = KU_BINARY_DIR "/bin/kuq";

class KuqReport : public testing::Test
{
protected:
    ku::test::directory home;
    std::string connect;

    void SetUp() override
    {
        if (shell(kuq + " help report").status != 0) GTEST_SKIP() << "kuq was built without ODBC";
        if (shell("odbcinst -q -d -n SQLite3 && sqlite3 -version").status != 0)
            GTEST_SKIP() << "sqlite3 or its ODBC driver is not installed";
        std::filesystem::create_directory(home.path("scratch"));
        connect = "'connect=Driver=SQLite3;Database=" + home.path("a.db") + "'";
    }

    void TearDown() override
    {
        if (connect.empty()) return; // skipped
        EXPECT_TRUE(std::filesystem::is_empty(home.path("scratch"))) << "a scratch file is left";
    }

    outcome sql(const std::string &text)
    {
        return shell("sqlite3 " + home.path("a.db") + " < " + home.write("s.sql", text));
    }

    outcome run(const std::string &arguments, const std::string &filter = "")
    {
        return shell("TMP=" + home.path("scratch") + " LC_ALL=C.UTF-8 KU_UPREFS="
                     + home.path("user") + " KU_GPREFS=" + home.path("none") + " " + kuq + " "
                     + arguments + " " + connect + filter);
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
        {"report", 2, "'query' is missing"},
    };
    for (const auto &row : rows) {
        const outcome result = run(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.arguments << "\n" << result.output;
        EXPECT_NE(result.output.find(row.part), std::string::npos) << result.output;
    }
    connect = "connect=nowhere";
    EXPECT_NE(run("report 'query=select 1'").output.find("SQLSTATE IM002"), std::string::npos);
}

TEST_F(KuqReport, InterruptedRunsLeaveNothingAndKilledOnesAreClearedUp)
{
    fill(1000);
    const std::string slow = "'query=select x.* from t x, t y limit 300000' group=n top=0";
    const std::string files = "ls " + home.path("scratch") + " | grep '^kuq-' ";
    const auto signalled = [&](const std::string &signal) {
        return shell("TMP=" + home.path("scratch") + " " + kuq + " report " + slow + " " + connect
                     + " & until " + files + "> /dev/null; do sleep .01; done; kill -" + signal
                     + " $!; wait $!");
    };
    const outcome stopped = signalled("INT");
    EXPECT_EQ(stopped.status, 1);
    EXPECT_NE(stopped.output.find("Ended by the user"), std::string::npos) << stopped.output;
    EXPECT_EQ(shell(files).output, "");

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
}

} // namespace
