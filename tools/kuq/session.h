// session.h - the statements of a command line, and their results in the cache
#ifndef KUQ_SESSION_H
#define KUQ_SESSION_H

#include <functional>
#include <string>
#include <vector>

#include "arguments.h"
#include "console.h"
#include "database.h"
#include "printer.h"
#include "progress.h"
#include "rows.h"
#include "selection.h"

namespace kuq
{

// The arguments of every command that runs statements.
std::vector<argument> session_arguments();

// A result in the cache.
struct result {
    rows &from;
    const std::vector<group> &groups;
    selection &wanted;
    const std::vector<size_t> &widths; // of each column's longest value, about, in characters
    progress &shown;
    bool whole; // false: the user ended the reading
};

class session
{
public:
    session(application &app, const arguments &given)
        : app_(app), given_(given), wanted_(app), base_(app)
    {
    }

    // Looks at the arguments. When they are wrong the reason was pushed.
    bool prepare();

    bool sorted() const { return sorted_; } // sorted=yes

    // Runs the statements and gives each result to `use`. how: the order that the cache keeps;
    // numbered rows are given when the user ended the reading, too. False with the reason pushed.
    bool run(order how, const std::function<bool(const result &)> &use);

    // The standard output becomes the file of out=, if it is given. False with the reason
    // pushed.
    bool redirect();

    // Says, when values were cut, how many.
    void tell_cut();

    // Ends the output and the command; `done`: all went well, else the reason was pushed. The
    // file of out= goes when it is not whole.
    exit_status finish(console &out, bool done);

private:
    bool all(const std::function<void(const statement &)> &each);
    bool one(const statement &cut, const std::function<bool(const result &)> &use);
    bool resolve(std::vector<column> *columns, std::vector<group> *groups);

    application &app_;
    const arguments &given_;
    std::string where_;
    std::string dialect_;
    bool sorted_ = true;
    order order_ = order::sorted;
    selection wanted_;
    database base_;
    progress *shown_ = nullptr; // while statements run
    uint64_t results_ = 0;
};

// The column of a name; pushes when there is none.
bool find_column(application &app, const std::vector<column> &columns, const std::string &name,
                 size_t *found);

// The argument long=, where it is given: characters shown of a value. False with the reason
// pushed.
bool read_long(application &app, const arguments &given, size_t *most);

// A value of the row just given, with so many characters, as a line has it. A long one stays
// in the cache until it is printed. False with the reason pushed.
bool field_of(const rows &from, size_t column, size_t most, field *shown);

// Removes an ordinary file that was not written to its end: it would look whole.
void remove_unfinished(const std::string &name);

} // namespace kuq

#endif
