// help.cpp - kuq help and kuq version, and the help of each command from its table

#include <cstdio>
#include <strings.h>

#include "codes.h"
#include "commands.h"
#include "console.h"

namespace kuq
{

const std::vector<command> &commands()
{
    static const std::vector<command> all = {
        {"prefs", "list, get, set, remove settings, check a preference file", prefs_arguments,
         run_prefs},
        {"tokens", "take a SQL script apart: every token with its place", tokens_arguments,
         run_tokens},
        {"highlight", "show a SQL script in colours", highlight_arguments, run_highlight},
        {"split", "cut a SQL script into its statements", split_arguments, run_split},
        {"grep", "find lines by a regular expression or a fixed text", grep_arguments, run_grep},
#if KUQ_ODBC
        {"report", "query a database: rows in groups, with exact subtotals", report_arguments,
         run_report},
        {"browse", "look through a query's rows: pages, groups, searches, marks", browse_arguments,
         run_browse},
        {"dump", "show how the data cache keeps a query's rows", dump_arguments, run_dump},
#endif
        {"help", "show the commands, or the arguments of one", help_arguments, run_help},
        {"version", "show the versions of kuq and of the library", version_arguments, run_version},
    };
    return all;
}

const command *find_command(const std::string &name)
{
    for (const command &entry : commands())
        if (strcasecmp(name.c_str(), entry.name) == 0) return &entry;
    return nullptr;
}

std::string required(application &app, const arguments &given, const char *keyword)
{
    std::string value = given.value(keyword);
    if (value.empty()) kuxer1push(app.ctx(), KUQAA_MISSING, keyword);
    return value;
}

exit_status finish(application &app, console &out, exit_status status)
{
    std::string why;
    if (!out.finish(&why)) {
        kuxer1push(app.ctx(), KUQAA_WRITE, why.c_str());
        status = failed;
    }
    return status == succeeded ? succeeded : app.report(status);
}

exit_status show_command_help(application &app, const command &about)
{
    console out("never");
    out.write(std::string("kuq ") + about.name + ": " + about.summary + "\n");
    const std::vector<argument> &table = about.table();
    if (!table.empty())
        out.write("\nArguments, by keyword (keyword=value) or in this order by position:\n");
    for (const argument &entry : table) {
        char line[200];
        std::snprintf(line, sizeof line, "  %-10s %s", entry.keyword, entry.help);
        out.write(line);
        if (!entry.allowed.empty()) out.write(": " + alternatives(entry.allowed));
        if (entry.default_value != nullptr)
            out.write(std::string(" (") + entry.default_value + ")");
        out.write("\n");
    }
    return finish(app, out, succeeded);
}

const std::vector<argument> &help_arguments()
{
    static const std::vector<argument> table = {{"command", "the command to explain"}};
    return table;
}

exit_status run_help(application &app, arguments &given)
{
    const std::string name = given.value("command");
    if (!name.empty()) {
        const command *about = find_command(name);
        if (about != nullptr) return show_command_help(app, *about);
        std::vector<const char *> names;
        for (const command &entry : commands()) names.push_back(entry.name);
        kuxer2push(app.ctx(), KUQAA_COMMAND, name.c_str(), nearest(name, names).c_str());
        return app.report(wrong_usage);
    }
    console out("never");
    out.write("kuq COMMAND [keyword=value ...]\n\n");
    for (const command &entry : commands()) {
        char line[200];
        std::snprintf(line, sizeof line, "  %-10s %s\n", entry.name, entry.summary);
        out.write(line);
    }
    out.write("\nkuq COMMAND ? shows the arguments of a command. Arguments that are not given\n"
              "come from the settings of the same name (kuq prefs), then from the defaults.\n"
              "Files are looked for in the directories of KU_PATH and of the setting path, too,\n"
              "with the types of the setting types (sql) where a name has none.\n");
    return finish(app, out, succeeded);
}

const std::vector<argument> &version_arguments()
{
    static const std::vector<argument> table;
    return table;
}

exit_status run_version(application &app, arguments &)
{
    kuxa attrs = {};
    attrs.kuxamask = KUXA_VERSION;
    kuxget(app.ctx(), &attrs);
    console out("never");
    out.write(std::string("kuq ") + KUQ_VERSION + "\nlibrary " + attrs.kuxaversion + "\n");
    return finish(app, out, succeeded);
}

} // namespace kuq
