// commands.h - the commands of kuq, one row each
#ifndef KUQ_COMMANDS_H
#define KUQ_COMMANDS_H

#include <vector>

#include "application.h"
#include "arguments.h"

namespace kuq
{

struct command {
    const char *name;
    const char *summary;
    const std::vector<argument> &(*table)(); // the arguments it takes
    exit_status (*run)(application &app, arguments &given);
};

// All of them, in the order in which help lists them.
const std::vector<command> &commands();
const command *find_command(const std::string &name);

const std::vector<argument> &prefs_arguments();
exit_status run_prefs(application &app, arguments &given);

const std::vector<argument> &tokens_arguments();
exit_status run_tokens(application &app, arguments &given);

const std::vector<argument> &highlight_arguments();
exit_status run_highlight(application &app, arguments &given);

const std::vector<argument> &split_arguments();
exit_status run_split(application &app, arguments &given);

const std::vector<argument> &grep_arguments();
exit_status run_grep(application &app, arguments &given);

const std::vector<argument> &report_arguments(); // these three where the build found ODBC
exit_status run_report(application &app, arguments &given);

const std::vector<argument> &browse_arguments();
exit_status run_browse(application &app, arguments &given);

const std::vector<argument> &dump_arguments();
exit_status run_dump(application &app, arguments &given);

const std::vector<argument> &help_arguments();
exit_status run_help(application &app, arguments &given);

const std::vector<argument> &version_arguments();
exit_status run_version(application &app, arguments &given);

// Shows what a command does and each argument with its values and default.
exit_status show_command_help(application &app, const command &about);

// Ends the output of a command: a write error is a failure.
class console;
exit_status finish(application &app, console &out, exit_status status);

// The value of a required argument; "" with a message pushed when it is missing.
std::string required(application &app, const arguments &given, const char *keyword);

} // namespace kuq

#endif
