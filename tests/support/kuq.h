// kuq.h - kuq with settings of its own, and with a database of its own
#ifndef TESTS_SUPPORT_KUQ_H
#define TESTS_SUPPORT_KUQ_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/files.h"
#include "support/shell.h"

namespace ku::test
{

inline const std::string kuq = KU_BINARY_DIR "/bin/kuq";

// Runs kuq through a shell, in a directory of its own.
class kuq_test : public testing::Test
{
protected:
    directory home;
    std::string language = "C.UTF-8";

    // Variables and their values, to go before a command line.
    virtual std::string environment()
    {
        return "KU_UPREFS=" + home.path("user") + " KU_GPREFS=" + home.path("global")
               + " LC_ALL=" + language + " ";
    }

    virtual std::string command(const std::string &arguments)
    {
        return environment() + kuq + " " + arguments;
    }

    // The command ends with the status and says the part, on either output.
    void expect_part(const std::string &arguments, int status, const std::string &part)
    {
        const outcome result = shell(command(arguments));
        EXPECT_EQ(result.status, status) << arguments << "\n" << result.output;
        EXPECT_NE(result.output.find(part), std::string::npos) << arguments << "\n"
                                                               << result.output;
    }
};

// kuq beside an SQLite file; skipped where the command, the database or its driver is missing.
class kuq_database_test : public kuq_test
{
protected:
    std::string connect; // the argument that names the database

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

    std::string environment() override
    {
        return kuq_test::environment() + "TMP=" + home.path("scratch")
               + " XDG_DATA_HOME=" + home.path("data") + " ";
    }

    std::string command(const std::string &arguments) override
    {
        return kuq_test::command(arguments) + " " + connect;
    }

    outcome sql(const std::string &text)
    {
        return shell("sqlite3 " + home.path("a.db") + " < " + home.write("s.sql", text));
    }
};

} // namespace ku::test

#endif
