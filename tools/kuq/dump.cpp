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

bool dump_cache(const rows &from, const std::vector<group> &groups, void *stream)
{
    kudcpacmp(from.cache(), stream);
    return groups.empty() || kudcpidx(from.cache(), all_levels, 0, 0, stream) == 0;
}

// The rows that are wanted, in a cache of their own.
bool keep_wanted(const result &of, rows *kept)
{
    bool well = true;
    const bool read = of.from.read([&](size_t) {
        bool wanted = false;
        well =
            !interrupted() && of.wanted.wants(of.from, &wanted) && (!wanted || kept->add(of.from));
        return well ? following::row : following::nothing;
    });
    return read && well;
}

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
    if (!run.redirect()) return app.report(failed);

    // The dumps go into ordinary files only, so into one that is shown then. Groups in order
    // of arrival are kept, or there would be no tree to print.
    const std::string name = rows::scratch_file();
    void *stream = nullptr;
    bool done = run.run(run.sorted() ? order::sorted : order::revisited, [&](const result &each) {
        if (stream == nullptr) stream = skubopen(app.ctx(), name.c_str(), "w");
        if (stream == nullptr) return false;
        if (each.wanted.everything()) return dump_cache(each.from, each.groups, stream);
        rows kept(app, each.from.columns(), each.groups, each.from.kept_in());
        return kept.create() && keep_wanted(each, &kept) && dump_cache(kept, each.groups, stream);
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
    return run.finish(out, done);
}

} // namespace kuq
