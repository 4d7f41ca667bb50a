// report.cpp - kuq report: a query's rows in groups with exact totals; kuq dump: its cache
//
// Rows go through the data cache, so that memory does not grow with them. Totals are
// kept for one group of each level at a time: a break at a level prints the totals
// of that level and of those below it, deepest first, and begins them anew.

#include <kudcp.h>
#include <signal.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "codes.h"
#include "commands.h"
#include "console.h"
#include "rows.h"
#include "scanner.h"
#include "values.h"

namespace kuq
{
namespace
{

constexpr uint32_t longest_text = 2000; // bytes of a text that are kept
constexpr size_t widest_column = 60;    // longer values push the rest of their line aside
constexpr int32_t all_levels = 0x7FFF;

volatile sig_atomic_t interrupted = 0;

void interrupt(int) { interrupted = 1; }

// While rows are in scratch files the first interrupt ends the run in order; a second
// one ends it at once.
class interruptible
{
public:
    interruptible()
    {
        struct sigaction action = {};
        action.sa_handler = interrupt;
        action.sa_flags = SA_RESETHAND;
        for (const int number : signals) sigaction(number, &action, nullptr);
    }
    ~interruptible()
    {
        for (const int number : signals) signal(number, SIG_DFL);
    }
    interruptible(const interruptible &) = delete;
    interruptible &operator=(const interruptible &) = delete;

private:
    static constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};
};

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
    std::vector<group> groups;
    std::vector<aggregate> aggregates;
    uint64_t top = UINT64_MAX; // rows shown of each innermost group
    std::string format;
    bool utf8 = false;
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

bool add(application &app, const rows &from, const aggregate &of, total *to)
{
    if (from.null(of.column)) return true;
    to->count++;
    if (of.what == kind::count) return true;
    if (of.what == kind::sum || of.what == kind::average) {
        const std::optional<decimal> number = decimal::parse(from.text(of.column));
        if (number)
            to->sum.add(*number);
        else
            kuxer2push(app.ctx(), KUQAA_ADDED, from.text(of.column).c_str(),
                       from.columns()[of.column].name.c_str());
        return number.has_value();
    }
    const std::string bytes = from.bytes(of.column);
    const datatype type = from.columns()[of.column].type;
    const bool better =
        of.what == kind::least ? before(type, bytes, to->bytes) : before(type, to->bytes, bytes);
    if (to->count > 1 && !better) return true;
    to->bytes = bytes;
    to->text = from.text(of.column);
    return true;
}

// An aggregate of no values is NULL, a count is 0.
std::optional<std::string> shown(const aggregate &of, const total &result)
{
    if (of.what == kind::count) return std::to_string(result.count);
    if (result.count == 0) return std::nullopt;
    if (of.what == kind::sum) return result.sum.text();
    if (of.what == kind::average) return result.sum.divided(result.count).text();
    return result.text;
}

using field = std::optional<std::string>; // without: NULL

std::string html(const std::string &text)
{
    std::string escaped;
    for (const char letter : text) switch (letter) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        default: escaped += letter;
        }
    return escaped;
}

// An empty text is quoted, NULL is nothing.
std::string csv(const field &given)
{
    if (!given) return "";
    if (!given->empty() && given->find_first_of("\",\r\n") == std::string::npos) return *given;
    std::string quoted = "\"";
    for (const char letter : *given) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
    return quoted + "\"";
}

// Prints lines of fields under one head; a line's first field says what it is.
class printer
{
public:
    printer(console &out, const plan &how, std::vector<std::string> head,
            std::vector<size_t> widths)
        : out_(out), how_(how), head_(std::move(head)), widths_(std::move(widths))
    {
        widths_.resize(head_.size());
        if (how_.format == "json") out_.write("[\n");
        if (how_.format == "html") out_.write("<table>\n");
        if (how_.format == "json") return;
        line({head_.begin(), head_.end()}, "1", "th");
    }

    void row(const std::vector<field> &fields) { line(fields, "", "td"); }
    void sums(const std::vector<field> &fields) { line(fields, "1", "td"); }

    void end()
    {
        if (how_.format == "json") out_.write(first_ ? "]\n" : "\n]\n");
        if (how_.format == "html") out_.write("</table>\n");
    }

private:
    void line(const std::vector<field> &fields, const char *colour, const char *cell)
    {
        std::string text;
        if (how_.format == "text") {
            for (size_t at = 0; at < fields.size(); at++) pad(&text, at, fields[at]);
            text.erase(text.find_last_not_of(' ') + 1);
        } else if (how_.format == "csv") {
            for (size_t at = 0; at < fields.size(); at++)
                text += (at == 0 ? "" : ",") + csv(fields[at]);
        } else if (how_.format == "html") {
            text = "<tr>";
            for (const field &each : fields)
                text += std::string("<") + cell + ">" + html(each.value_or("")) + "</" + cell + ">";
            text += "</tr>";
        } else {
            text = first_ ? "  {" : ",\n  {";
            for (size_t at = 0; at < fields.size(); at++)
                text += (at == 0 ? "" : ", ") + json(head_[at], how_.utf8) + ": "
                        + (fields[at] ? json(*fields[at], how_.utf8) : "null");
            text += "}";
        }
        first_ = false;
        out_.write_in(colour, text);
        if (how_.format != "json") out_.write("\n");
    }

    void pad(std::string *text, size_t at, const field &given)
    {
        const std::string shown = one_line(given.value_or(""));
        size_t width = 0;
        for (const char letter : shown)
            if (!how_.utf8 || (static_cast<unsigned char>(letter) & 0xC0) != 0x80) width++;
        const size_t room = std::max(widths_[at], head_[at].size());
        *text += shown + std::string(std::max(room, width) - width + 2, ' ');
    }

    console &out_;
    const plan &how_;
    std::vector<std::string> head_;
    std::vector<size_t> widths_; // in characters
    bool first_ = true;
};

// Follows the rows and prints them with their totals.
class reporter
{
public:
    reporter(application &app, const plan &how, const rows &from, printer &to)
        : app_(app), how_(how), from_(from), to_(to), open_(how.groups.size() + 1),
          names_(how.groups.size())
    {
        for (totals &each : open_) each.values.resize(how.aggregates.size());
    }

    bool see(size_t level)
    {
        if (any_) close(level);
        if (!any_ || level < how_.groups.size()) printed_ = 0;
        any_ = true;
        for (size_t at = 0; at < names_.size(); at++)
            names_[at] = shown_value(how_.groups[at].column);
        for (totals &each : open_) {
            each.rows++;
            for (size_t at = 0; at < how_.aggregates.size(); at++)
                if (!add(app_, from_, how_.aggregates[at], &each.values[at])) return false;
        }
        if (printed_ >= how_.top) return true;
        printed_++;
        std::vector<field> line = {"row"};
        for (size_t at = 0; at < from_.columns().size(); at++) line.push_back(shown_value(at));
        if (totalled()) line.resize(line.size() + 1 + how_.aggregates.size());
        to_.row(line);
        return true;
    }

    void end()
    {
        if (!totalled()) return;
        if (any_) close(0);
        print("grand total", 0, 0);
    }

    bool totalled() const { return !how_.groups.empty() || !how_.aggregates.empty(); }

private:
    field shown_value(size_t column) const
    {
        return from_.null(column) ? field() : field(from_.text(column));
    }

    // Prints the totals of the groups of this level and below, and begins them anew.
    void close(size_t level)
    {
        for (size_t at = how_.groups.size(); at > level; at--) {
            print("total " + from_.columns()[how_.groups[at - 1].column].name, at, at);
            open_[at] = totals{0, std::vector<total>(how_.aggregates.size())};
        }
    }

    void print(const std::string &what, size_t which, size_t named)
    {
        std::vector<field> line(1 + from_.columns().size());
        line[0] = what;
        for (size_t at = 0; at < named; at++) line[1 + how_.groups[at].column] = names_[at];
        line.push_back(std::to_string(open_[which].rows));
        for (size_t at = 0; at < how_.aggregates.size(); at++)
            line.push_back(shown(how_.aggregates[at], open_[which].values[at]));
        to_.sums(line);
    }

    application &app_;
    const plan &how_;
    const rows &from_;
    printer &to_;
    std::vector<totals> open_; // grand total first, then a group of each level
    std::vector<field> names_; // of the groups that are open
    uint64_t printed_ = 0;     // rows of the innermost group
    bool any_ = false;
};

// The column of a name; pushes when there is none.
bool find_column(application &app, const std::vector<column> &columns, const std::string &name,
                 size_t *found)
{
    std::vector<const char *> names;
    for (*found = 0; *found < columns.size(); ++*found) {
        if (strcasecmp(columns[*found].name.c_str(), name.c_str()) == 0) return true;
        names.push_back(columns[*found].name.c_str());
    }
    kuxer2push(app.ctx(), KUQAA_COLUMN, name.c_str(), nearest(name, names).c_str());
    return false;
}

bool resolve(application &app, const arguments &given, const std::vector<column> &columns,
             plan *how)
{
    how->groups.clear();
    how->aggregates.clear();
    for (std::string name : given.values("group")) {
        const size_t blank = name.rfind(' ');
        const bool down =
            blank != std::string::npos && strcasecmp(name.c_str() + blank + 1, "desc") == 0;
        if (down) name.resize(blank);
        group level = {0, down};
        if (!find_column(app, columns, name, &level.column)) return false;
        how->groups.push_back(level);
    }
    static constexpr aggregate kinds[] = {{kind::count, "count", 0},
                                          {kind::sum, "sum", 0},
                                          {kind::average, "avg", 0},
                                          {kind::least, "min", 0},
                                          {kind::greatest, "max", 0}};
    for (aggregate each : kinds)
        for (const std::string &name : given.values(each.keyword)) {
            if (!find_column(app, columns, name, &each.column)) return false;
            how->aggregates.push_back(each);
        }
    return true;
}

bool print_report(application &app, const plan &how, rows &from, const std::vector<size_t> &widths,
                  console &out)
{
    std::vector<std::string> head = {"line"};
    for (const column &each : from.columns()) head.push_back(each.name);
    if (!how.groups.empty() || !how.aggregates.empty()) head.push_back("rows");
    for (const aggregate &each : how.aggregates)
        head.push_back(std::string(each.keyword) + "(" + from.columns()[each.column].name + ")");
    std::vector<size_t> all = {std::strlen("grand total")};
    for (const size_t width : widths)
        all.push_back(how.top == 0 ? 0 : std::min(width, widest_column));
    for (const group &each : how.groups) {
        all[0] = std::max(all[0], std::strlen("total ") + from.columns()[each.column].name.size());
        all[1 + each.column] = std::min(widths[each.column], widest_column);
    }
    printer lines(out, how, head, all);
    reporter report(app, how, from, lines);
    bool well = true;
    const bool read = from.read([&](size_t level) {
        well = interrupted == 0 && report.see(level);
        return well;
    });
    if (!read || !well) return false;
    report.end();
    lines.end();
    return true;
}

// Runs the statements and gives each result, in the cache, to `use`.
class session
{
public:
    using consumer =
        std::function<bool(rows &from, const plan &how, const std::vector<size_t> &widths)>;

    session(application &app, const arguments &given, bool sorted, plan how)
        : app_(app), given_(given), sorted_(sorted), how_(std::move(how)), base_(app)
    {
    }

    bool run(const std::string &where, const consumer &use)
    {
        rows::remove_leftovers();
        if (!base_.connect(where)) return false;
        bool well = true;
        const auto each = [&](const statement &cut) {
            if (well) well = one(cut, use);
        };
        if (!all(each) || !well) return false;
        if (results_ == 0) kuxer0push(app_.ctx(), KUQAA_NOROWS);
        return results_ > 0;
    }

    uint64_t cut() const { return base_.cut(); }

private:
    bool all(const std::function<void(const statement &)> &each)
    {
        if (given_.given("file")) {
            source input(app_, given_.value("file"));
            const auto next = [&](std::string *line) { return input.next(line); };
            return input.open() && each_statement(app_, next, server_of("native"), true, each)
                   && !input.failed();
        }
        std::string rest = given_.value("query");
        const auto next = [&](std::string *line) {
            const size_t end = rest.find('\n');
            *line = rest.substr(0, end == std::string::npos ? end : end + 1);
            rest.erase(0, line->size());
            return !line->empty();
        };
        return each_statement(app_, next, server_of("native"), true, each);
    }

    bool one(const statement &cut, const consumer &use)
    {
        std::vector<column> columns;
        if (!base_.execute(cut, longest_text, &columns)) return false;
        if (columns.empty()) return true;
        results_++;
        if (!resolve(app_, given_, columns, &how_)) return false;
        const interruptible guard;
        rows store(app_, columns, how_.groups, sorted_);
        if (!store.create()) return false;
        std::vector<size_t> widths(columns.size());
        bool well = true;
        const bool fetched = base_.fetch([&](const std::vector<value> &row) {
            for (size_t at = 0; at < row.size(); at++)
                widths[at] = std::max(widths[at], row[at].size());
            well = interrupted == 0 && store.add(row);
            return well;
        });
        const bool done = fetched && well && use(store, how_, widths);
        if (interrupted != 0) kuxer0push(app_.ctx(), KUQAA_INTERRUPTED);
        return done;
    }

    application &app_;
    const arguments &given_;
    bool sorted_;
    plan how_;
    database base_;
    uint64_t results_ = 0;
};

// The connection: the argument, else the setting.
std::string connection(application &app, const arguments &given)
{
    if (!given.given("connect")) {
        const std::optional<setting> found = app.find_setting("connect", 0);
        if (found && !found->values.empty()) return found->values.front();
    }
    return required(app, given, "connect");
}

bool redirect(application &app, const std::string &name)
{
    if (name.empty() || std::freopen(name.c_str(), "w", stdout) != nullptr) return true;
    kuxer2push(app.ctx(), KUQAA_OPEN, name.c_str(), std::strerror(errno));
    return false;
}

bool rows_shown(application &app, const arguments &given, uint64_t *top)
{
    if (!given.given("top")) return true;
    const std::string text = given.value("top");
    const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), *top);
    if (error == std::errc() && at == text.data() + text.size()) return true;
    kuxer1push(app.ctx(), KUQAA_TOP, text.c_str());
    return false;
}

void tell_cut(application &app, uint64_t cut)
{
    if (cut == 0) return;
    const std::string text = "kuq: " + std::to_string(cut) + " values were cut to at most "
                             + std::to_string(longest_text) + " bytes\n";
    kuxiomessage(app.ctx(), text.c_str());
}

} // namespace

const std::vector<argument> &report_arguments()
{
    static const std::vector<argument> table = {
        {"query", "the statements"},
        {"file", "a file with the statements, instead; - for the standard input"},
        {"connect", "ODBC connection string, or the name of a data source"},
        {"group", "columns to group by; \"NAME desc\" for descending", {}, nullptr, KUCL_LIST},
        {"count", "columns whose values are counted", {}, nullptr, KUCL_LIST},
        {"sum", "columns to add up", {}, nullptr, KUCL_LIST},
        {"avg", "columns whose average is shown", {}, nullptr, KUCL_LIST},
        {"min", "columns whose least value is shown", {}, nullptr, KUCL_LIST},
        {"max", "columns whose greatest value is shown", {}, nullptr, KUCL_LIST},
        {"sorted", "groups in order, or as they arrive", {"yes", "no"}, "yes"},
        {"top", "rows shown of each innermost group; totals count all"},
        {"format", "how it is printed", {"text", "csv", "json", "html"}, "text"},
        {"out", "the file to write; else the standard output"},
    };
    return table;
}

exit_status run_report(application &app, arguments &given)
{
    plan how;
    std::string sorted;
    if (!given.choice("sorted", &sorted) || !given.choice("format", &how.format)
        || !rows_shown(app, given, &how.top))
        return app.report(wrong_usage);
    const std::string where = connection(app, given);
    if (where.empty() || (!given.given("file") && required(app, given, "query").empty()))
        return app.report(wrong_usage);
    if (!redirect(app, given.value("out"))) return app.report(failed);

    console out("auto");
    how.utf8 = app.utf8();
    session run(app, given, sorted == "yes", how);
    const bool done =
        run.run(where, [&](rows &from, const plan &each, const std::vector<size_t> &widths) {
            return print_report(app, each, from, widths, out);
        });
    tell_cut(app, run.cut());
    return finish(app, out, done ? succeeded : failed);
}

const std::vector<argument> &dump_arguments()
{
    static const std::vector<argument> table = {
        {"query", "the statements"},
        {"file", "a file with the statements, instead; - for the standard input"},
        {"connect", "ODBC connection string, or the name of a data source"},
        {"group", "columns to group by; \"NAME desc\" for descending", {}, nullptr, KUCL_LIST},
        {"sorted", "groups in order, or as they arrive", {"yes", "no"}, "yes"},
        {"out", "the file to write; else the standard output"},
    };
    return table;
}

exit_status run_dump(application &app, arguments &given)
{
    std::string sorted;
    if (!given.choice("sorted", &sorted)) return app.report(wrong_usage);
    const std::string where = connection(app, given);
    if (where.empty() || (!given.given("file") && required(app, given, "query").empty()))
        return app.report(wrong_usage);
    if (!redirect(app, given.value("out"))) return app.report(failed);

    // The dumps go into ordinary files only, so into one that is shown then.
    const std::string name = rows::scratch_file();
    void *stream = nullptr;
    session run(app, given, sorted == "yes", {});
    bool done = run.run(where, [&](rows &from, const plan &how, const std::vector<size_t> &) {
        if (stream == nullptr) stream = skubopen(app.ctx(), name.c_str(), "w");
        if (stream == nullptr) return false;
        kudcpacmp(from.cache(), stream);
        return how.groups.empty() || kudcpidx(from.cache(), all_levels, 0, 0, stream) == 0;
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
    tell_cut(app, run.cut());
    return finish(app, out, done ? succeeded : failed);
}

} // namespace kuq
