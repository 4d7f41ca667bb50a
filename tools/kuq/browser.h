// browser.h - what the commands of kuq browse do with the rows of one result
#ifndef KUQ_BROWSER_H
#define KUQ_BROWSER_H

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pattern.h"
#include "screen.h"
#include "session.h"
#include "view.h"

namespace kuq
{

// What is shown and how, for all results of a session.
struct display {
    std::vector<std::string> names; // of the columns; none: all
    size_t most;                    // characters of a value on a page
};

// Each command gets what is behind its name. False with the reason pushed.
class browser
{
public:
    browser(application &app, const result &of, bool sorted, const display &how);

    bool open();       // puts the rows in order
    bool print_page(); // it begins with the current row

    bool next(const std::string &rest);
    bool previous(const std::string &rest);
    bool first(const std::string &rest);
    bool last(const std::string &rest);
    bool row(const std::string &rest);
    bool jump(const std::string &rest);
    bool next_group(const std::string &rest);
    bool previous_group(const std::string &rest);
    bool text(const std::string &rest) { return begin_search(rest, pattern_kind::plain); }
    bool like(const std::string &rest) { return begin_search(rest, pattern_kind::like); }
    bool match(const std::string &rest) { return begin_search(rest, pattern_kind::regular); }
    bool again(const std::string &rest);
    bool in(const std::string &rest);
    bool set_case(const std::string &rest);
    bool show(const std::string &rest);
    bool remove(const std::string &rest);
    bool undo(const std::string &rest);
    bool sort(const std::string &rest);
    bool columns(const std::string &rest);
    bool export_rows(const std::string &rest);

    // A command that is written otherwise than `usage` says; false.
    bool refuse_usage();
    void set_usage(const char *name, const char *usage);

private:
    using step = bool (view::*)(size_t level, const view::watcher &goes_on, uint64_t *row);

    uint64_t page_rows() const;
    bool add_row(uint64_t row, table *page);
    void print_status(uint64_t rows, size_t columns) const;
    bool refuse_level(const std::string &text);
    bool refuse_row(const std::string &text);
    bool take_row(const std::string &text, uint64_t *row); // as it is counted, from 1
    bool to_group(const std::string &rest, step which, const char *what);
    // The columns of these names, all when there are none.
    bool take_columns(const std::vector<std::string> &names, std::vector<size_t> *columns);
    bool begin_search(const std::string &rest, pattern_kind kind);
    bool search(uint64_t from);
    bool find_in_row(size_t *column, std::string *text, kuq::match *found, bool *there);
    void find_all(const std::string &text, std::vector<kuq::match> *matches);
    void print_found(size_t column, const std::string &text, const kuq::match &found) const;
    bool export_to(std::FILE *file, const std::string &format, uint64_t from, uint64_t to,
                   const view::watcher &goes_on, uint64_t *count);
    bool none(const char *what);
    // Something that may take long: shown and ended as the user wishes.
    bool work(const char *what, const std::function<bool(const view::watcher &)> &all);

    application &app_;
    const result &of_;
    view view_;
    kuq::screen screen_;
    std::vector<size_t> shown_;    // columns
    std::vector<size_t> searched_; // columns
    const display &how_;
    uint64_t at_ = 0;      // the first row of the page
    uint64_t printed_ = 0; // rows of the last one
    bool any_case_ = false;
    pattern_kind kind_ = pattern_kind::plain;
    std::string wanted_; // by the last search
    std::unique_ptr<pattern> pattern_;
    bool lit_ = false; // what the pattern finds is highlighted
    const char *name_ = "";
    const char *usage_ = ""; // of the command that runs
};

// The words of a line; quotes keep blanks. False when a quote is not closed.
bool split_words(const std::string &line, std::vector<std::string> *words);

} // namespace kuq

#endif
