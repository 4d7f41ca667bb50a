// main.cpp - kuq: finds the command, parses its arguments, runs it
//
// Exit status: 0 done, 1 the run failed, 2 the command line was wrong.

#include <cstdio>
#include <new>
#include <string>

#include "application.h"
#include "arguments.h"
#include "codes.h"
#include "commands.h"

namespace
{

using namespace kuq;

exit_status unknown_command(application &app, const std::string &name)
{
    std::vector<const char *> names;
    for (const command &entry : commands()) names.push_back(entry.name);
    kuxer2push(app.ctx(), KUQAA_COMMAND, name.c_str(), nearest(name, names).c_str());
    return app.report(wrong_usage);
}

exit_status run(application &app, int count, char **words)
{
    const std::string name = count < 1 ? "help" : words[0];
    const bool asks = name == "?" || name == "-?" || name == "--help" || name == "-h";
    const command *chosen = find_command(asks ? "help" : name == "--version" ? "version" : name);
    if (chosen == nullptr) return unknown_command(app, name);

    arguments given(app, chosen->table());
    switch (given.parse(count, words)) {
    case arguments::outcome::help: return show_command_help(app, *chosen);
    case arguments::outcome::wrong: return app.report(wrong_usage);
    case arguments::outcome::parsed: break;
    }
    const exit_status status = chosen->run(app, given);
    return count < 1 ? wrong_usage : status;
}

} // namespace

int main(int argc, char **argv)
{
    application app;
    if (!app.ready()) {
        std::fputs("kuq: no memory for a context\n", stderr);
        return failed;
    }
    try {
        return run(app, argc - 1, argv + 1);
    } catch (const std::bad_alloc &) { // what was large is released by now
        kuxerclear(app.ctx());
        kuxer0push(app.ctx(), KUQAA_MEMORY);
        return app.report(failed);
    }
}
