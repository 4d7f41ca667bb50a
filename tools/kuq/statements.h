// statements.h - the statements of a script, as kuq split cuts them
#ifndef KUQ_STATEMENTS_H
#define KUQ_STATEMENTS_H

#include <cstdint>
#include <functional>
#include <string>

#include "application.h"

namespace kuq
{

struct statement {
    uint64_t number;     // from 1
    uint64_t first_line; // from 1
    uint64_t last_line;
    const std::string &text; // with its semicolon; borrowed for the visit
};

// Cuts what `next` gives line by line. `blocks`: begin ... end is kept whole; server:
// KUKA_SERVER_... False when memory ran out, with the reason pushed.
bool each_statement(application &app, const std::function<bool(std::string *line)> &next,
                    uint32_t server, bool blocks,
                    const std::function<void(const statement &)> &visit);

} // namespace kuq

#endif
