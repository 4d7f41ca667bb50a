// rows.h - a query's rows in the library's data cache: fixed memory, read back in groups
#ifndef KUQ_ROWS_H
#define KUQ_ROWS_H

#include <kudcdef.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "charset.h"
#include "database.h"
#include "numbers.h"

namespace kuq
{

struct group {
    size_t column;
    bool descending;
};

enum class order {
    sorted,    // groups in key order
    arrival,   // a group ends where the next row differs
    revisited, // the same, kept so that a group can be left before its last row
    numbered,  // no groups: each row is read by its number
};

// A value as an index has it: at most short_bytes of it, binary ones as digits.
struct key_value {
    bool null = true;
    std::string bytes = {};
};

// What follows a row that was given.
enum class following { row, group, nothing };

class rows
{
public:
    // One key level a group. beside: rows that live longer, with which memory is shared.
    rows(application &app, std::vector<column> columns, std::vector<group> groups, order how,
         const rows *beside = nullptr);
    ~rows();
    rows(const rows &) = delete;
    rows &operator=(const rows &) = delete;

    bool create(); // false with the reason pushed, as the others

    // Stores a row.
    bool add(const std::vector<value> &row);
    // Stores the row that another cache with these columns and groups has just given.
    bool add(const rows &from);

    // Gives rows, group by group. `visit` gets the first level whose group is a new one (the
    // number of groups: none is) and says which row is next. False with the reason pushed.
    bool read(const std::function<following(size_t level)> &visit);

    // Reads a numbered row, from 0 in order of arrival. False with the reason pushed.
    bool load(uint64_t number);
    uint64_t count() const { return count_; }

    // Stores a row of two columns: a key of the row that `from` has, and a number. False with
    // the reason pushed.
    bool add_key(const rows &from, size_t column, int32_t number);
    int32_t number(size_t column) const; // of an integer column of the row just given

    key_value key(size_t column) const;
    // A key that somebody typed; false when it is no value of the column.
    bool typed_key(size_t column, const std::string &text, key_value *result) const;
    // Below, at or above 0 as the indexes order two keys of a column.
    int compare(const group &by, const key_value &a, const key_value &b) const;

    // Of the row just given.
    bool null(size_t column) const { return definitions_[column].curnul_kudxcol == KUDC_NULL; }
    std::string bytes(size_t column) const; // by which values are compared
    // The first `most` characters to show, in pieces, "..." behind them when there are more;
    // nothing for NULL. False with the reason pushed, or when `visit` returns false.
    using piece_visitor = std::function<bool(std::string_view piece)>;
    bool show(size_t column, size_t most, const piece_visitor &visit) const;
    bool text(size_t column, size_t most, std::string *result) const; // the same in one piece
    bool is_long(size_t column) const;
    // Rows of the innermost group; not in order of arrival.
    uint64_t group_rows() const;

    const std::vector<column> &columns() const { return columns_; }
    order kept_in() const { return order_; }
    kudcaccdef *cache() const { return cache_; }
    kudcaccdef *const *cache_place() const { return &cache_; } // it may be created later
    application &app() const { return app_; }

    // Removes the scratch files of runs that were killed, or of this process.
    static void remove_leftovers();
    static void remove_own();

    // The name of one more scratch file, which the caller makes and removes.
    static std::string scratch_file();

private:
    bool store();
    bool set(size_t at, const value &given);
    bool set_long(size_t at, const value &given);
    bool load(size_t column, uint32_t offset, void *to, size_t length) const;
    bool show_long(size_t column, size_t most, const piece_visitor &visit) const;
    std::string stored(size_t column) const;

    application &app_;
    charset charset_;
    std::vector<column> columns_;
    std::vector<group> groups_;
    order order_;
    std::vector<kudxcoldef> definitions_; // of the rows, then of the long values
    std::vector<kudxcoldef *> pointers_;
    std::vector<std::string> buffers_;
    const rows *beside_;
    void *blocks_ = nullptr;
    kudcaccdef *cache_ = nullptr;
    kudccurdef *cursor_ = nullptr; // of the reading
    uint64_t count_ = 0;
    numbers positions_; // of numbered rows
};

} // namespace kuq

#endif
