// dump.cpp - kuq dump: the cache that a query's rows fill, as the library prints it

#include <kudcp.h>

#include <cstdio>

#include "commands.h"
#include "console.h"
#include "scanner.h"
#include "session.h"

namespace kuq
{
namespace
{

constexpr int32_t all_levels = 0x7FFF;

} // namespace

const std::vector<argument> &dump_arguments()
{
    static const std::vector<argument> table = session_arguments();
    return table;
}

exit_status run_dump(application &app, arguments &given)
{
    session run(app, given);
    if (!run.prepare()) return app.report(wrong_usage);
    if (!redirect(app, given.value("out"))) return app.report(failed);

    // The dumps go into ordinary files only, so into one that is shown then. Groups in order
    // of arrival are kept, or there would be no tree to print.
    const std::string name = rows::scratch_file();
    void *stream = nullptr;
    bool done = run.run(order::revisited, [&](const result &each) {
        if (stream == nullptr) stream = skubopen(app.ctx(), name.c_str(), "w");
        if (stream == nullptr) return false;
        kudcpacmp(each.from.cache(), stream);
        return each.groups.empty() || kudcpidx(each.from.cache(), all_levels, 0, 0, stream) == 0;
    });
    if (stream != nullptr) done = skubclose(app.ctx(), stream) == 0 && done;
    console out("never");
    if (done) {
        source dump(app, name);
        std::remove(name.c_str()); // what is open stays readable
        std::string line;
        while (dump.open() && dump.next(&line)) out.write(line);
        done = dump.open() && !dump.failed();
    }
    std::remove(name.c_str());
    run.tell_cut();
    return finish(app, out, done ? succeeded : failed);
}

} // namespace kuq
