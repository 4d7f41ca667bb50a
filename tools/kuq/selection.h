// selection.h - which rows of a result are wanted: where=, like= and match=
#ifndef KUQ_SELECTION_H
#define KUQ_SELECTION_H

#include <memory>
#include <vector>

#include "arguments.h"
#include "pattern.h"
#include "rows.h"

namespace kuq
{

// The arguments that say it.
std::vector<argument> selection_arguments();

class selection
{
public:
    explicit selection(application &app) : app_(app) {}

    // Compiles the patterns. False with the reason pushed, as the others.
    bool prepare(const arguments &given);
    // Finds the columns of a result. They are that result's until the next call.
    bool resolve(const std::vector<column> &columns);

    bool everything() const { return conditions_.empty(); }
    // Whether the row just given meets all conditions; NULL meets none.
    bool wants(const rows &from, bool *result);

private:
    struct condition {
        std::string name; // of the column
        size_t column;
        bool whole; // the pattern covers the value, else it is found in it
        std::unique_ptr<pattern> fits;
    };

    application &app_;
    std::vector<condition> conditions_;
};

} // namespace kuq

#endif
