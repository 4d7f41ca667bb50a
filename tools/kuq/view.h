// view.h - a result's rows in an order, with marks: what one browses
#ifndef KUQ_VIEW_H
#define KUQ_VIEW_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "numbers.h"
#include "rows.h"

namespace kuq
{

// Rows are counted from 0 in the order of the view. Each level of the order is a column;
// rows that are equal down to a level are a group.
class view
{
public:
    // levels: the columns that the rows are grouped by; sorted: they are to be in their order.
    view(rows &from, std::vector<group> levels, bool sorted);

    // Is called for each row that work goes through; false ends the work.
    using watcher = std::function<bool()>;

    // Puts the rows that `wants` into the first order. False with the reason pushed, or when
    // the work was ended; as the others.
    using chooser = std::function<bool(bool *wanted)>;
    bool open(const chooser &wants, const watcher &goes_on);

    uint64_t size() const { return size_; }
    const rows &row() const { return rows_; } // the row loaded last
    const std::vector<group> &levels() const { return levels_; }
    bool load(uint64_t row);
    uint64_t number() const { return number_; } // of the row loaded last, in order of arrival

    // Rows with equal values stay in the order they have. When it ends early all stay.
    bool sort(const group &by, const watcher &goes_on);

    // The first row whose keys are at or behind these, of the first levels; without sorted rows
    // the first one with these keys. *row is size() when there is none.
    bool find(const std::vector<key_value> &keys, const watcher &goes_on, uint64_t *row);
    // The first row of the next group, or of the one before, down to a level (from 0); size()
    // when there is none.
    bool next_group(size_t level, const watcher &goes_on, uint64_t *row);
    bool previous_group(size_t level, const watcher &goes_on, uint64_t *row);

    // Marks rows; those that were marked before are not counted again.
    bool mark(uint64_t first, uint64_t last, uint64_t *count);
    uint64_t undo(); // the rows of the last marking; 0: there is none
    bool marked() const { return marked_[number_]; } // the row loaded last
    uint64_t marks() const;

private:
    int compare(const std::vector<key_value> &keys) const; // with the row loaded last
    std::vector<key_value> keys(size_t count) const;
    using test = std::function<bool()>;
    bool first_that(uint64_t from, uint64_t to, bool halving, const test &fits,
                    const watcher &goes_on, uint64_t *row);

    rows &rows_;
    std::vector<group> levels_;
    bool sorted_;
    bool arrival_ = true; // no order but that: order_ is empty
    uint64_t size_ = 0;
    uint64_t number_ = 0;
    numbers order_;
    numbers spare_;
    std::vector<bool> marked_;                  // by number
    std::vector<std::vector<uint32_t>> undone_; // the numbers of each marking
};

} // namespace kuq

#endif
