// report.cpp - kuq report: a query's rows in groups with exact totals
//
// Rows go through the data cache, so that memory does not grow with them. Totals are
// kept for one group of each level at a time: a break at a level prints the totals
// of that level and of those below it, deepest first, and begins them anew.

#include <unistd.h>

#include <cstring>

#include "codes.h"
#include "commands.h"
#include "console.h"
#include "printer.h"
#include "session.h"
#include "values.h"

namespace kuq
{
namespace
{

constexpr size_t widest_column = 60; // longer values push the rest of their line aside
constexpr size_t long_in_text = 80;  // characters shown of a value in a line of text
constexpr size_t everything = SIZE_MAX;

enum class kind { count, sum, average, least, greatest };

struct aggregate {
    kind what;
    const char *keyword;
    size_t column;
};

// One aggregate over one group.
struct total {
    uint64_t count = 0; // values that are not NULL
    decimal sum;
    std::string bytes; // of the least or greatest value
    std::string text;
};

struct totals {
    uint64_t rows = 0;
    std::vector<total> values;
};

struct plan {
    std::vector<aggregate> aggregates;
    uint64_t top = UINT64_MAX; // rows shown of each innermost group
    size_t most = everything;  // characters shown of a value
    std::string format;
    bool leaves = false; // only rows that are shown need to be read
};

// Whether a value sorts before another: all but integers do by their bytes.
bool before(datatype type, const std::string &a, const std::string &b)
{
    if (type != datatype::integer) return a < b;
    int32_t left = 0;
    int32_t right = 0;
    std::memcpy(&left, a.data(), sizeof left);
    std::memcpy(&right, b.data(), sizeof right);
    return left < right;
}

bool add(application &app, const rows &from, const aggregate &of, size_t most, total *to)
{
    if (from.null(of.column)) return true;
    to->count++;
    if (of.what == kind::count) return true;
    if (of.what == kind::sum || of.what == kind::average) {
        std::string text;
        if (!from.text(of.column, everything, &text)) return false;
        const std::optional<decimal> number = decimal::parse(text);
        if (number)
            to->sum.add(*number);
        else
            kuxer2push(app.ctx(), KUQAA_ADDED, text.substr(0, 80).c_str(),
                       from.columns()[of.column].name.c_str());
        return number.has_value();
    }
    const std::string bytes = from.bytes(of.column);
    const datatype type = from.columns()[of.column].type;
    const bool better =
        of.what == kind::least ? before(type, bytes, to->bytes) : before(type, to->bytes, bytes);
    if (to->count > 1 && !better) return true;
    to->bytes = bytes;
    return from.text(of.column, most, &to->text);
}

// An aggregate of no values is NULL, a count is 0.
field shown(const aggregate &of, const total &result)
{
    if (of.what == kind::count) return {std::to_string(result.count)};
    if (result.count == 0) return {};
    if (of.what == kind::sum) return {result.sum.text()};
    if (of.what == kind::average) return {result.sum.divided(result.count).text()};
    return {result.text};
}

// Follows the rows and prints them with their totals.
class reporter
{
public:
    reporter(application &app, const plan &how, const result &of, printer &to)
        : app_(app), how_(how), groups_(of.groups), from_(of.from), wanted_(of.wanted), to_(to),
          open_(of.groups.size() + 1), names_(of.groups.size()), fresh_(of.groups.size())
    {
        for (totals &each : open_) each.values.resize(how.aggregates.size());
    }

    following see(size_t level)
    {
        fresh_ = std::min(fresh_, level); // rows may be passed over where groups begin
        bool wanted = false;
        if (!wanted_.wants(from_, &wanted)) {
            failed_ = true;
            return following::nothing;
        }
        if (!wanted) return following::row;
        const size_t begun = any_ ? fresh_ : 0;
        fresh_ = groups_.size();
        return take(begun) ? next() : following::nothing;
    }

    // The totals behind the last row; false when it did not come to that.
    bool end()
    {
        if (failed_) return false;
        if (!totalled()) return true;
        return (!any_ || close(0)) && print("grand total", 0, 0);
    }

    bool totalled() const { return !groups_.empty() || !how_.aggregates.empty(); }

private:
    bool take(size_t begun)
    {
        failed_ = true; // unless all goes well
        if (any_ && !close(begun)) return false;
        if (!any_ || begun < groups_.size()) printed_ = seen_ = 0;
        any_ = true;
        seen_++;
        for (size_t at = begun; at < names_.size(); at++)
            if (!shown_value(groups_[at].column, &names_[at])) return false;
        for (totals &each : open_) {
            each.rows++;
            for (size_t at = 0; at < how_.aggregates.size(); at++)
                if (!add(app_, from_, how_.aggregates[at], how_.most, &each.values[at]))
                    return false;
        }
        failed_ = false;
        if (printed_ >= how_.top) return true;
        printed_++;
        failed_ = !show_row();
        return !failed_;
    }

    bool show_row()
    {
        std::vector<field> line = {{"row"}};
        for (size_t at = 0; at < from_.columns().size(); at++) {
            line.emplace_back();
            if (!shown_value(at, &line.back())) return false;
        }
        if (totalled()) line.resize(line.size() + 1 + how_.aggregates.size());
        return to_.row(line);
    }

    // The rest of a group can be left out once its rows are shown: the cache has counted them.
    following next()
    {
        if (groups_.empty() || !how_.leaves || printed_ < how_.top) return following::row;
        for (totals &each : open_) each.rows += from_.group_rows() - seen_;
        return following::group;
    }

    bool shown_value(size_t column, field *shown)
    {
        return field_of(from_, column, how_.most, shown);
    }

    // Prints the totals of the groups of this level and below, and begins them anew.
    bool close(size_t level)
    {
        for (size_t at = groups_.size(); at > level; at--) {
            if (!print("total " + from_.columns()[groups_[at - 1].column].name, at, at))
                return false;
            open_[at] = totals{0, std::vector<total>(how_.aggregates.size())};
        }
        return true;
    }

    bool print(const std::string &what, size_t which, size_t named)
    {
        std::vector<field> line(1 + from_.columns().size());
        line[0] = {what};
        for (size_t at = 0; at < named; at++) line[1 + groups_[at].column] = names_[at];
        line.push_back({std::to_string(open_[which].rows)});
        for (size_t at = 0; at < how_.aggregates.size(); at++)
            line.push_back(shown(how_.aggregates[at], open_[which].values[at]));
        return to_.sums(line);
    }

    application &app_;
    const plan &how_;
    const std::vector<group> &groups_;
    const rows &from_;
    selection &wanted_;
    printer &to_;
    std::vector<totals> open_; // grand total first, then a group of each level
    std::vector<field> names_; // of the groups that are open
    size_t fresh_;             // first level with another group than the last row taken
    uint64_t seen_ = 0;        // rows of the innermost group
    uint64_t printed_ = 0;     // of them
    bool any_ = false;
    bool failed_ = false;
};

bool resolve(application &app, const arguments &given, const std::vector<column> &columns,
             plan *how)
{
    static constexpr aggregate kinds[] = {{kind::count, "count", 0},
                                          {kind::sum, "sum", 0},
                                          {kind::average, "avg", 0},
                                          {kind::least, "min", 0},
                                          {kind::greatest, "max", 0}};
    how->aggregates.clear();
    for (aggregate each : kinds)
        for (const std::string &name : given.values(each.keyword)) {
            if (!find_column(app, columns, name, &each.column)) return false;
            how->aggregates.push_back(each);
        }
    return true;
}

bool print_report(application &app, const plan &how, const result &of, console &out)
{
    const std::vector<column> &columns = of.from.columns();
    std::vector<std::string> head = {"line"};
    for (const column &each : columns) head.push_back(each.name);
    if (!of.groups.empty() || !how.aggregates.empty()) head.push_back("rows");
    for (const aggregate &each : how.aggregates)
        head.push_back(std::string(each.keyword) + "(" + columns[each.column].name + ")");
    std::vector<size_t> widths = {std::strlen("grand total")};
    for (const size_t width : of.widths)
        widths.push_back(how.top == 0 ? 0 : std::min(width, widest_column));
    for (const group &each : of.groups) {
        widths[0] = std::max(widths[0], std::strlen("total ") + columns[each.column].name.size());
        widths[1 + each.column] = std::min(of.widths[each.column], widest_column);
    }
    if (isatty(STDOUT_FILENO) == 1 || out.paged())
        of.shown.end();
    else
        of.shown.begin("reported");
    printer lines(out, how.format, app.utf8(), head, widths);
    reporter report(app, how, of, lines);
    const bool read = of.from.read([&](size_t level) {
        of.shown.row();
        return interrupted() ? following::nothing : report.see(level);
    });
    if (!read || interrupted() || !report.end()) return false;
    lines.end();
    return true;
}

// What the arguments say before there are columns; when they are wrong the reason was pushed.
bool read_plan(application &app, const arguments &given, plan *how)
{
    if (!given.choice("format", &how->format)) return false;
    if (given.given("top") && !whole_number(given.value("top"), 0, &how->top)) {
        kuxer1push(app.ctx(), KUQAA_TOP, given.value("top").c_str());
        return false;
    }
    how->most = how->format == "text" ? long_in_text : everything;
    return read_long(app, given, &how->most);
}

std::vector<argument> all_arguments()
{
    std::vector<argument> table = session_arguments();
    const std::vector<argument> own = {
        {"count", "columns whose values are counted", {}, nullptr, KUCL_LIST},
        {"sum", "columns to add up", {}, nullptr, KUCL_LIST},
        {"avg", "columns whose average is shown", {}, nullptr, KUCL_LIST},
        {"min", "columns whose least value is shown", {}, nullptr, KUCL_LIST},
        {"max", "columns whose greatest value is shown", {}, nullptr, KUCL_LIST},
        {"top", "rows shown of each innermost group; totals count all"},
        {"long", "characters shown of a value, or all; without it 80 in text, else all"},
        {"format", "how it is printed", {"text", "csv", "json", "html"}, "text"},
    };
    table.insert(table.end(), own.begin(), own.end());
    return table;
}

} // namespace

const std::vector<argument> &report_arguments()
{
    static const std::vector<argument> table = all_arguments();
    return table;
}

exit_status run_report(application &app, arguments &given)
{
    plan how;
    session run(app, given);
    if (!read_plan(app, given, &how) || !run.prepare()) return app.report(wrong_usage);
    if (!run.redirect()) return app.report(failed);

    // Only a report that goes on to the next group before the last row of one needs
    // groups that are kept; comparing rows costs less.
    how.leaves = given.given("top");
    for (const char *all : {"where", "like", "match", "count", "sum", "avg", "min", "max"})
        how.leaves = how.leaves && !given.given(all);
    const order how_kept = run.sorted() ? order::sorted
                           : how.leaves ? order::revisited
                                        : order::arrival;
    console out("auto");
    const bool done = run.run(how_kept, [&](const result &each) {
        return resolve(app, given, each.from.columns(), &how) && print_report(app, how, each, out);
    });
    return run.finish(out, done);
}

} // namespace kuq
