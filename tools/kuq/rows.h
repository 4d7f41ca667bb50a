// rows.h - a query's rows in the library's data cache: fixed memory, read back in groups
#ifndef KUQ_ROWS_H
#define KUQ_ROWS_H

#include <kudcdef.h>

#include <functional>
#include <string>
#include <vector>

#include "database.h"

namespace kuq
{

struct group {
    size_t column;
    bool descending;
};

class rows
{
public:
    // One key level a group. sorted: groups in key order; else a group ends where the
    // next row differs.
    rows(application &app, std::vector<column> columns, std::vector<group> groups, bool sorted);
    ~rows();
    rows(const rows &) = delete;
    rows &operator=(const rows &) = delete;

    bool create(); // false with the reason pushed, as the others

    // Stores a row.
    bool add(const std::vector<value> &row);

    // Gives every row, group by group. `visit` gets the first level whose group is a new one
    // (the number of groups: none is); false ends the reading.
    bool read(const std::function<bool(size_t level)> &visit);

    // Of the row just given.
    bool null(size_t column) const { return definitions_[column].curnul_kudxcol == KUDC_NULL; }
    std::string bytes(size_t column) const; // as stored
    std::string text(size_t column) const;  // to show; "" for NULL

    const std::vector<column> &columns() const { return columns_; }
    kudcaccdef *cache() const { return cache_; }

    // Removes the scratch files of runs that were killed.
    static void remove_leftovers();

    // The name of one more scratch file, which the caller makes and removes.
    static std::string scratch_file();

private:
    bool set(size_t at, value given);

    application &app_;
    std::vector<column> columns_;
    std::vector<group> groups_;
    bool sorted_;
    std::vector<kudxcoldef> definitions_;
    std::vector<kudxcoldef *> pointers_;
    std::vector<std::string> buffers_;
    void *blocks_ = nullptr;
    kudcaccdef *cache_ = nullptr;
    uint64_t count_ = 0;
};

} // namespace kuq

#endif
