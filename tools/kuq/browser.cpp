// browser.cpp - a page at a time, always beginning with the current row
//
//            a         b      <- the shown columns, until the line is full
//      17    g1     -100      <- the current row
//      18 x  g1       20      <- marked deleted
//     rows 17-18 of 18, by a
//
// All commands move the current row, or work on it; whatever may take long asks for
// each row whether the user still wants it.

#include "browser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <strings.h>

#include "codes.h"
#include "console.h"
#include "printer.h"

namespace kuq
{
namespace
{

constexpr size_t other_lines = 3;      // of the terminal: head, status, prompt
constexpr size_t widest_exported = 60; // column of text; longer values push the rest aside
constexpr size_t context = 30;         // bytes around what a search has found, about
constexpr size_t everything = SIZE_MAX;

bool is_number(const column &of)
{
    return of.type == datatype::integer || of.type == datatype::number;
}

// The format of a file by its name.
std::string format_of(const std::string &file)
{
    for (const char *format : {"csv", "json", "html"}) {
        const std::string ending = std::string(".") + format;
        if (file.size() > ending.size()
            && strcasecmp(file.c_str() + file.size() - ending.size(), ending.c_str()) == 0)
            return format;
    }
    return "text";
}

// Line ends and tabs of a long text stay, other control characters do not.
std::string readable(std::string_view text)
{
    std::string result;
    for (const char letter : text)
        result +=
            letter == '\n' || letter == '\t' ? std::string(1, letter) : one_line({&letter, 1});
    return result;
}

} // namespace

bool split_words(const std::string &line, std::vector<std::string> *words)
{
    char quote = '\0';
    bool inside = false;
    for (const char letter : line) {
        if (quote == '\0' && (letter == ' ' || letter == '\t')) {
            inside = false;
            continue;
        }
        if (!inside) words->emplace_back();
        const bool begins = !inside && (letter == '"' || letter == '\'');
        inside = true;
        if (begins)
            quote = letter;
        else if (letter == quote)
            quote = '\0';
        else
            words->back() += letter;
    }
    return quote == '\0';
}

browser::browser(application &app, const result &of, bool sorted, const display &how)
    : app_(app), of_(of), view_(of.from, of.groups, sorted), screen_(app), how_(how)
{
}

// ---- helpers ----

void browser::set_usage(const char *name, const char *usage)
{
    name_ = name;
    usage_ = usage;
}

bool browser::refuse_usage()
{
    kuxer2push(app_.ctx(), KUQAA_USAGE, name_,
               (std::string(name_) + (*usage_ == '\0' ? "" : " ") + usage_).c_str());
    return false;
}

bool browser::none(const char *what)
{
    kuxer1push(app_.ctx(), KUQAA_NOMORE, what);
    return false;
}

bool browser::refuse_row(const std::string &text)
{
    kuxer2push(app_.ctx(), KUQAA_ROW, text.c_str(), std::to_string(view_.size()).c_str());
    return false;
}

bool browser::take_row(const std::string &text, uint64_t *row)
{
    uint64_t number = 0;
    if (!whole_number(text, 1, &number) || number > view_.size()) return refuse_row(text);
    *row = number - 1;
    return true;
}

bool browser::work(const char *what, const std::function<bool(const view::watcher &)> &all)
{
    if (screen_.terminal()) std::fflush(stdout);
    of_.shown.begin(what);
    const bool well = all([this] {
        of_.shown.row();
        return !interrupted();
    });
    of_.shown.end();
    if (!interrupted()) return well;
    if (kuxernerrors(app_.ctx()) == 0) kuxer0push(app_.ctx(), KUQAA_INTERRUPTED);
    return false;
}

bool browser::open()
{
    if (!take_columns({}, &searched_) || !take_columns(how_.names, &shown_)) return false;
    const view::chooser wants = [this](bool *wanted) { return of_.wanted.wants(of_.from, wanted); };
    return work("put in order", [&](const view::watcher &goes_on) {
        return view_.open(of_.wanted.everything() ? nullptr : wants, goes_on);
    });
}

bool browser::take_columns(const std::vector<std::string> &names, std::vector<size_t> *columns)
{
    std::vector<size_t> found;
    for (size_t at = 0; names.empty() && at < of_.from.columns().size(); at++) found.push_back(at);
    for (const std::string &name : names) {
        found.emplace_back();
        if (!find_column(app_, of_.from.columns(), name, &found.back())) return false;
    }
    *columns = found;
    return true;
}

// ---- pages ----

uint64_t browser::page_rows() const
{
    const size_t lines = screen_.lines();
    const size_t others = other_lines + (lit_ ? 1 : 0); // what was found has a line
    return lines > others ? lines - others : 1;
}

bool browser::print_page()
{
    const std::vector<column> &all = of_.from.columns();
    std::vector<table::column> head;
    for (const size_t at : shown_) head.push_back({all[at].name, is_number(all[at])});
    table page(screen_, std::move(head));
    const uint64_t rows = std::min(page_rows(), view_.size() - at_);
    for (uint64_t row = at_; row < at_ + rows; row++)
        if (!add_row(row, &page)) return false;
    print_status(rows, page.print());
    printed_ = rows;
    return true;
}

bool browser::add_row(uint64_t row, table *page)
{
    if (!view_.load(row)) return false;
    const std::string last = std::to_string(std::min(at_ + page_rows(), view_.size()));
    const std::string number = std::to_string(row + 1);
    std::string margin(last.size() - std::min(number.size(), last.size()), ' ');
    margin += number + (view_.marked() ? " x" : "  ");
    std::vector<table::cell> cells;
    for (const size_t at : shown_) {
        table::cell cell;
        const bool lit = lit_ && std::count(searched_.begin(), searched_.end(), at) > 0;
        if (!view_.row().text(at, lit ? everything : how_.most, &cell.text)) return false;
        if (lit && !view_.row().null(at)) find_all(cell.text, &cell.matches);
        if (lit && !view_.row().text(at, how_.most, &cell.text)) return false;
        cells.push_back(std::move(cell));
    }
    page->add(margin, std::move(cells));
    return true;
}

void browser::print_status(uint64_t rows, size_t columns) const
{
    std::string line = rows == 0
                           ? "no rows"
                           : "rows " + std::to_string(at_ + 1) + "-" + std::to_string(at_ + rows)
                                 + " of " + std::to_string(view_.size());
    const char *between = ", by ";
    for (const group &each : view_.levels()) {
        line += between + of_.from.columns()[each.column].name + (each.descending ? " desc" : "");
        between = ", ";
    }
    if (columns < shown_.size())
        line += "; columns 1-" + std::to_string(columns) + " of " + std::to_string(shown_.size());
    const uint64_t marks = view_.marks();
    if (marks > 0) line += "; " + std::to_string(marks) + " marked deleted";
    std::puts(screen_.marked(line, {}).c_str());
}

// ---- moving ----

bool browser::next(const std::string &rest)
{
    uint64_t pages = 1;
    if (!rest.empty() && !whole_number(rest, 1, &pages)) return refuse_usage();
    // The terminal may have changed: what was not shown yet is next.
    const uint64_t rows = page_rows();
    uint64_t at = at_ + (printed_ > 0 ? printed_ : rows);
    if (at >= view_.size()) return none("next page");
    at += std::min(pages - 1, (view_.size() - at - 1) / rows) * rows;
    at_ = at;
    return print_page();
}

bool browser::previous(const std::string &rest)
{
    uint64_t pages = 1;
    if (!rest.empty() && !whole_number(rest, 1, &pages)) return refuse_usage();
    if (at_ == 0) return none("previous page");
    at_ -= pages >= at_ / page_rows() + 1 ? at_ : std::min(at_, pages * page_rows());
    return print_page();
}

bool browser::first(const std::string &rest)
{
    if (!rest.empty()) return refuse_usage();
    at_ = 0;
    return print_page();
}

bool browser::last(const std::string &rest)
{
    if (!rest.empty()) return refuse_usage();
    at_ = view_.size() - std::min(view_.size(), page_rows());
    return print_page();
}

bool browser::row(const std::string &rest) { return take_row(rest, &at_) && print_page(); }

bool browser::jump(const std::string &rest)
{
    std::vector<std::string> words;
    if (!split_words(rest, &words) || words.empty()) return refuse_usage();
    if (words.size() > view_.levels().size()) return refuse_level(std::to_string(words.size()));
    std::vector<key_value> keys(words.size());
    for (size_t at = 0; at < words.size(); at++) {
        const size_t column = view_.levels()[at].column;
        if (of_.from.typed_key(column, words[at], &keys[at])) continue;
        kuxer2push(app_.ctx(), KUQAA_KEY, words[at].c_str(),
                   of_.from.columns()[column].name.c_str());
        return false;
    }
    uint64_t row = 0;
    const bool looked = work(
        "looked at", [&](const view::watcher &goes_on) { return view_.find(keys, goes_on, &row); });
    if (!looked) return false;
    if (row == view_.size()) return none("row at or behind that key");
    at_ = row;
    return print_page();
}

bool browser::refuse_level(const std::string &text)
{
    kuxer2push(app_.ctx(), KUQAA_LEVEL, text.c_str(),
               std::to_string(view_.levels().size()).c_str());
    return false;
}

bool browser::to_group(const std::string &rest, step which, const char *what)
{
    uint64_t level = 1;
    if (!rest.empty() && !whole_number(rest, 1, &level)) return refuse_level(rest);
    if (level > view_.levels().size()) return refuse_level(std::to_string(level));
    if (view_.size() == 0) return none(what);
    uint64_t row = at_;
    const bool looked = work("looked at", [&](const view::watcher &goes_on) {
        return (view_.*which)(level - 1, goes_on, &row);
    });
    if (!looked) return false;
    if (row == view_.size()) return none(what);
    at_ = row;
    return print_page();
}

bool browser::next_group(const std::string &rest)
{
    return to_group(rest, &view::next_group, "next group");
}

bool browser::previous_group(const std::string &rest)
{
    return to_group(rest, &view::previous_group, "previous group");
}

// ---- searching ----

bool browser::begin_search(const std::string &rest, pattern_kind kind)
{
    if (rest.empty()) return refuse_usage();
    auto made = std::make_unique<pattern>(app_);
    if (!made->compile(rest, kind, any_case_)) return false;
    pattern_ = std::move(made);
    kind_ = kind;
    wanted_ = rest;
    return search(at_);
}

bool browser::again(const std::string &rest)
{
    if (!rest.empty()) return refuse_usage();
    return pattern_ == nullptr ? none("search to repeat") : search(at_ + 1);
}

bool browser::search(uint64_t from)
{
    size_t column = 0;
    std::string text;
    kuq::match found = {0, 0};
    uint64_t row = from;
    bool there = false;
    const bool looked = work("searched", [&](const view::watcher &goes_on) {
        for (; row < view_.size(); row++) {
            if (!goes_on() || !view_.load(row)) return false;
            if (!find_in_row(&column, &text, &found, &there)) return false;
            if (there) return true;
        }
        return true;
    });
    if (!looked) return false;
    if (!there) {
        kuxer2push(app_.ctx(), KUQAA_NOTFOUND, wanted_.c_str(), std::to_string(from + 1).c_str());
        return false;
    }
    at_ = row;
    lit_ = true;
    const bool printed = print_page();
    lit_ = false;
    if (printed) print_found(column, text, found);
    return printed;
}

// The first place in the row loaded last.
bool browser::find_in_row(size_t *column, std::string *text, kuq::match *found, bool *there)
{
    for (const size_t at : searched_) {
        if (view_.row().null(at)) continue;
        if (!view_.row().text(at, everything, text)) return false;
        *column = at;
        *found = {0, text->size()};
        *there =
            kind_ == pattern_kind::like ? pattern_->covers(*text) : pattern_->find(*text, 0, found);
        if (*there) return true;
    }
    return true;
}

void browser::find_all(const std::string &text, std::vector<kuq::match> *matches)
{
    if (kind_ == pattern_kind::like) {
        if (pattern_->covers(text)) matches->push_back({0, text.size()});
        return;
    }
    pattern_->each(text, [matches](const kuq::match &found) {
        matches->push_back(found);
        return true;
    });
}

// The match with some of what is around it: on the page it may be cut off.
void browser::print_found(size_t column, const std::string &text, const kuq::match &found) const
{
    const auto edge = [&](size_t at) { // where a character begins, not behind `at`
        while (app_.utf8() && at > 0 && at < text.size() && (text[at] & 0xC0) == 0x80) at--;
        return at;
    };
    const size_t from = edge(found.start - std::min(found.start, context));
    const size_t length = edge(std::min(found.start + found.length + context, text.size())) - from;
    const std::string part = text.substr(from, length);
    std::string line = of_.from.columns()[column].name + ": " + (from > 0 ? "..." : "");
    line = screen_.marked(line, {}) + screen_.marked(part, {{found.start - from, found.length}});
    if (from + length < text.size()) line += "...";
    std::puts(line.c_str());
}

bool browser::in(const std::string &rest)
{
    std::vector<std::string> words;
    if (!split_words(rest, &words)) return refuse_usage();
    return take_columns(words, &searched_);
}

bool browser::set_case(const std::string &rest)
{
    if (rest != "yes" && rest != "no") return refuse_usage();
    any_case_ = rest == "no";
    return true;
}

// ---- rows ----

bool browser::show(const std::string &rest)
{
    uint64_t row = at_;
    if (!rest.empty() && !take_row(rest, &row)) return false;
    if (row >= view_.size()) return none("row");
    if (!view_.load(row)) return false;
    const std::vector<column> &all = of_.from.columns();
    size_t width = 0;
    for (const column &each : all) width = std::max(width, screen_.width(each.name));
    std::FILE *to = screen_.open_pager();
    const std::string place = "row " + std::to_string(row + 1) + " of "
                              + std::to_string(view_.size())
                              + (view_.marked() ? ", marked deleted\n" : "\n");
    std::fputs(place.c_str(), to);
    bool well = true;
    for (size_t at = 0; well && at < all.size(); at++) {
        std::fputs((screen_.fitted(all[at].name, width) + "  ").c_str(), to);
        if (view_.row().null(at)) std::fputs("(NULL)", to);
        well = view_.row().show(at, everything, [to](std::string_view piece) {
            std::fputs(readable(piece).c_str(), to);
            return !interrupted() && std::ferror(to) == 0;
        });
        std::fputc('\n', to);
    }
    const bool left = std::ferror(to) != 0; // the pager, before the end
    screen_.close_pager();
    return well || left || interrupted();
}

bool browser::remove(const std::string &rest)
{
    const size_t dash = rest.find('-');
    uint64_t first = at_;
    if (!rest.empty() && !take_row(rest.substr(0, dash), &first)) return false;
    uint64_t last = first;
    if (dash != std::string::npos && !take_row(rest.substr(dash + 1), &last)) return false;
    if (last < first) return refuse_usage();
    if (view_.size() == 0) return none("row");
    uint64_t count = 0;
    if (!view_.mark(first, last, &count)) return false;
    std::printf("%llu marked deleted\n", static_cast<unsigned long long>(count));
    return true;
}

bool browser::undo(const std::string &rest)
{
    if (!rest.empty()) return refuse_usage();
    const uint64_t count = view_.undo();
    if (count == 0) return none("marking to undo");
    std::printf("%llu no longer marked\n", static_cast<unsigned long long>(count));
    return true;
}

bool browser::sort(const std::string &rest)
{
    std::vector<std::string> words;
    const bool whole = split_words(rest, &words);
    const bool down = words.size() == 2 && strcasecmp(words[1].c_str(), "desc") == 0;
    const bool up = words.size() == 2 && strcasecmp(words[1].c_str(), "asc") == 0;
    if (!whole || words.empty() || (words.size() > 1 && !down && !up)) return refuse_usage();
    group by = {0, down};
    if (!find_column(app_, of_.from.columns(), words[0], &by.column)) return false;
    const bool sorted =
        work("sorted", [&](const view::watcher &goes_on) { return view_.sort(by, goes_on); });
    if (!sorted) return false;
    at_ = 0;
    return print_page();
}

bool browser::columns(const std::string &rest)
{
    std::vector<std::string> words;
    if (!split_words(rest, &words)) return refuse_usage();
    return take_columns(words, &shown_) && print_page();
}

// ---- exporting ----

bool browser::export_rows(const std::string &rest)
{
    std::vector<std::string> words;
    if (!split_words(rest, &words) || words.empty() || words.size() > 3) return refuse_usage();
    const bool page = words.size() > 1 && words.back() == "page";
    if (page) words.pop_back();
    const std::vector<const char *> formats = {"text", "csv", "json", "html"};
    const std::string format = words.size() > 1 ? words[1] : format_of(words[0]);
    if (words.size() > 2 || std::count(formats.begin(), formats.end(), format) == 0)
        return refuse_usage();
    std::FILE *file = words[0] == "-" ? stdout : std::fopen(words[0].c_str(), "w");
    if (file == nullptr) {
        kuxer2push(app_.ctx(), KUQAA_OPEN, words[0].c_str(), std::strerror(errno));
        return false;
    }
    const uint64_t from = page ? at_ : 0;
    const uint64_t to = page ? std::min(at_ + page_rows(), view_.size()) : view_.size();
    uint64_t count = 0;
    bool well = work("exported", [&](const view::watcher &goes_on) {
        return export_to(file, format, from, to, goes_on, &count);
    });
    if (file == stdout) return well;
    if (std::fclose(file) != 0 && well) {
        kuxer1push(app_.ctx(), KUQAA_WRITE, std::strerror(errno));
        well = false;
    }
    if (well)
        std::printf("%llu rows exported\n", static_cast<unsigned long long>(count));
    else
        remove_unfinished(words[0]);
    return well;
}

bool browser::export_to(std::FILE *file, const std::string &format, uint64_t from, uint64_t to,
                        const view::watcher &goes_on, uint64_t *count)
{
    console out(file);
    std::vector<std::string> head;
    std::vector<size_t> widths;
    for (const size_t at : shown_) {
        head.push_back(of_.from.columns()[at].name);
        widths.push_back(std::min(of_.widths[at], widest_exported));
    }
    printer lines(out, format, app_.utf8(), head, widths);
    for (uint64_t row = from; row < to && !out.failed(); row++) {
        if (!goes_on() || !view_.load(row)) return false;
        if (view_.marked()) continue;
        std::vector<field> fields(shown_.size());
        for (size_t at = 0; at < shown_.size(); at++)
            if (!field_of(view_.row(), shown_[at], everything, &fields[at])) return false;
        if (!lines.row(fields) && !out.failed()) return false;
        ++*count;
    }
    lines.end();
    std::string why;
    if (out.finish(&why)) return true;
    kuxer1push(app_.ctx(), KUQAA_WRITE, why.c_str());
    return false;
}

} // namespace kuq
