// session.cpp - connects, cuts the statements apart, runs them, fills a cache for each result

#include "session.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <strings.h>

#include "codes.h"
#include "commands.h"
#include "scanner.h"

namespace kuq
{

std::vector<argument> session_arguments()
{
    std::vector<argument> table = {
        {"query", "the statements"},
        {"file", "a file with the statements, instead; - for the standard input"},
        {"connect", "ODBC connection string, or the name of a data source"},
        {"dialect", "whose keywords count", {"native", "sqlserver", "db2"}, "native"},
        {"group", "columns to group by; \"NAME desc\" for descending", {}, nullptr, KUCL_LIST},
        {"sorted", "groups in order, or as they arrive", {"yes", "no"}, "yes"},
        {"out", "the file to write; else the standard output"},
    };
    const std::vector<argument> conditions = selection_arguments();
    table.insert(table.end(), conditions.begin(), conditions.end());
    return table;
}

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

bool read_long(application &app, const arguments &given, size_t *most)
{
    const std::string text = given.value("long");
    uint64_t characters = SIZE_MAX;
    if (text != "all" && !text.empty() && !whole_number(text, 1, &characters)) {
        kuxer1push(app.ctx(), KUQAA_LONG, text.c_str());
        return false;
    }
    if (!text.empty()) *most = static_cast<size_t>(characters);
    return true;
}

bool field_of(const rows &from, size_t column, size_t most, field *shown)
{
    *shown = {};
    if (from.null(column)) return true;
    if (from.is_long(column) && most == SIZE_MAX) {
        shown->pieces = [&from, column](const field::visitor &visit) {
            return from.show(column, SIZE_MAX, visit);
        };
        return true;
    }
    shown->text.emplace();
    return from.text(column, most, &*shown->text);
}

void remove_unfinished(const std::string &name)
{
    std::error_code ignored;
    if (std::filesystem::is_regular_file(name, ignored)) std::remove(name.c_str());
}

bool session::redirect()
{
    const std::string name = given_.value("out");
    if (name.empty() || std::freopen(name.c_str(), "w", stdout) != nullptr) return true;
    kuxer2push(app_.ctx(), KUQAA_OPEN, name.c_str(), std::strerror(errno));
    return false;
}

bool session::prepare()
{
    std::string sorted;
    if (!given_.choice("sorted", &sorted) || !given_.choice("dialect", &dialect_)) return false;
    if (given_.given("file") && given_.given("query")) {
        kuxer2push(app_.ctx(), KUQAA_BOTH, "file", "query");
        return false;
    }
    if (!wanted_.prepare(given_)) return false;
    sorted_ = sorted == "yes";
    if (!given_.given("connect")) {
        const std::optional<setting> found = app_.find_setting("connect", 0);
        if (found && !found->values.empty()) where_ = found->values.front();
    }
    if (where_.empty()) where_ = required(app_, given_, "connect");
    return !where_.empty() && (given_.given("file") || !required(app_, given_, "query").empty());
}

bool session::run(order how, const std::function<bool(const result &)> &use)
{
    order_ = how;
    progress shown;
    shown_ = &shown;
    shown.begin("read");
    rows::remove_leftovers();
    bool well = base_.connect(where_);
    const bool connected = well;
    const auto each = [&](const statement &cut) { well = well && !interrupted() && one(cut, use); };
    if (connected && !all(each)) well = false;
    shown_ = nullptr;
    if (interrupted()) {
        kuxerclear(app_.ctx()); // what broke off because of it does not matter
        kuxer0push(app_.ctx(), KUQAA_INTERRUPTED);
        return false;
    }
    if (well && results_ == 0) kuxer0push(app_.ctx(), KUQAA_NOROWS);
    return well && results_ > 0;
}

void session::tell_cut()
{
    if (base_.cut() == 0) return;
    const std::string text = std::string(product) + ": " + std::to_string(base_.cut())
                             + " values of the columns to group by were cut to at most "
                             + std::to_string(short_bytes) + " bytes\n";
    kuxiomessage(app_.ctx(), text.c_str());
}

exit_status session::finish(console &out, bool done)
{
    tell_cut();
    const exit_status status = kuq::finish(app_, out, done ? succeeded : failed);
    if (status != succeeded) remove_unfinished(given_.value("out"));
    return status;
}

bool session::all(const std::function<void(const statement &)> &each)
{
    const uint32_t server = server_of(dialect_);
    if (given_.given("file")) {
        source input(app_, given_.value("file"));
        const auto next = [&](std::string *line) { return !interrupted() && input.next(line); };
        return input.open() && each_statement(app_, next, server, true, each) && !input.failed();
    }
    std::string rest = given_.value("query");
    const auto next = [&](std::string *line) {
        const size_t end = rest.find('\n');
        *line = rest.substr(0, end == std::string::npos ? end : end + 1);
        rest.erase(0, line->size());
        return !line->empty();
    };
    return each_statement(app_, next, server, true, each);
}

bool session::resolve(std::vector<column> *columns, std::vector<group> *groups)
{
    for (std::string name : given_.values("group")) {
        const bool whole = std::any_of(columns->begin(), columns->end(), [&](const column &each) {
            return strcasecmp(each.name.c_str(), name.c_str()) == 0;
        });
        const size_t blank = whole ? std::string::npos : name.rfind(' ');
        const std::string word = blank == std::string::npos ? "" : name.substr(blank + 1);
        const bool down = strcasecmp(word.c_str(), "desc") == 0;
        if (down || strcasecmp(word.c_str(), "asc") == 0)
            name.resize(name.find_last_not_of(' ', blank) + 1);
        group level = {0, down};
        if (!find_column(app_, *columns, name, &level.column)) return false;
        (*columns)[level.column].key = true;
        groups->push_back(level);
    }
    return true;
}

bool session::one(const statement &cut, const std::function<bool(const result &)> &use)
{
    std::vector<column> columns;
    std::vector<group> groups;
    shown_->begin("read");
    if (!base_.execute(cut, &columns)) return false;
    if (columns.empty()) return true;
    results_++;
    if (!resolve(&columns, &groups) || !wanted_.resolve(columns)) return false;
    rows store(app_, columns, groups, order_);
    if (!store.create()) return false;
    std::vector<size_t> widths(columns.size());
    bool well = true;
    const bool fetched = base_.fetch(columns, [&](const std::vector<value> &row) {
        for (size_t at = 0; at < row.size(); at++) widths[at] = std::max(widths[at], row[at].width);
        shown_->row();
        well = !interrupted() && store.add(row);
        return well;
    });
    const bool stopped = fetched && interrupted() && order_ == order::numbered && store.count() > 0;
    if (stopped) shown_->forget_interrupt();
    return fetched && (well || stopped) && use({store, groups, wanted_, widths, *shown_, !stopped});
}

} // namespace kuq
