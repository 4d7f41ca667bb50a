// view.cpp - an order is a list of the rows' numbers
//
//     view row   0   1   2   3 ...
//     order_   | 7 | 2 | 9 | 4 | ...        numbers in order of arrival
//     rows               '-> the row        read from the cache by its number
//
// Both lists lie in the cache's file, so that memory does not grow with the rows but for
// a bit each, its mark. A sort enters the keys of one column into an index of a cache of
// its own, in the order that the rows have: equal keys come back in that order. Several
// columns are sorted by one after the other, the first one last. Then the index goes,
// and what is looked for in the order is found by halving it.

#include "view.h"

#include <algorithm>

namespace kuq
{

view::view(rows &from, std::vector<group> levels, bool sorted)
    : rows_(from), levels_(std::move(levels)), sorted_(sorted), order_(from.cache_place()),
      spare_(from.cache_place())
{
}

bool view::open(const chooser &wants, const watcher &goes_on)
{
    size_ = rows_.count();
    marked_.resize(size_);
    if (wants) {
        for (uint64_t row = 0; row < size_; row++) {
            bool wanted = false;
            if (!goes_on() || !load(row) || !wants(&wanted)) return false;
            if (wanted && !order_.append(static_cast<int32_t>(row))) return false;
        }
        arrival_ = false;
        size_ = order_.size();
    }
    if (!sorted_) return true;
    const std::vector<group> all = levels_;
    for (size_t level = all.size(); level-- > 0;)
        if (!sort(all[level], goes_on)) return false;
    levels_ = all;
    return true;
}

bool view::load(uint64_t row)
{
    int32_t number = static_cast<int32_t>(row);
    if (!arrival_ && !order_.at(row, &number)) return false;
    number_ = static_cast<uint64_t>(number);
    return rows_.load(number_);
}

bool view::sort(const group &by, const watcher &goes_on)
{
    const column &key = rows_.columns()[by.column];
    rows sorter(rows_.app(), {{key.name, key.type, true}, {"number", datatype::integer}},
                {{0, by.descending}}, order::sorted, &rows_);
    if (!sorter.create()) return false;
    for (uint64_t row = 0; row < size_; row++)
        if (!goes_on() || !load(row)
            || !sorter.add_key(rows_, by.column, static_cast<int32_t>(number_)))
            return false;
    spare_.clear();
    const bool read = sorter.read([&](size_t) {
        const bool well = goes_on() && spare_.append(sorter.number(1));
        return well ? following::row : following::nothing;
    });
    if (!read || spare_.size() < size_) return false;
    order_.swap(spare_);
    arrival_ = false;
    if (!sorted_) levels_.clear();
    sorted_ = true;
    levels_.erase(std::remove_if(levels_.begin(), levels_.end(),
                                 [&](const group &each) { return each.column == by.column; }),
                  levels_.end());
    levels_.insert(levels_.begin(), by);
    return true;
}

std::vector<key_value> view::keys(size_t count) const
{
    std::vector<key_value> result;
    for (size_t level = 0; level < count; level++)
        result.push_back(rows_.key(levels_[level].column));
    return result;
}

int view::compare(const std::vector<key_value> &with) const
{
    for (size_t level = 0; level < with.size(); level++) {
        const group &by = levels_[level];
        const int order = rows_.compare(by, rows_.key(by.column), with[level]);
        if (order != 0) return order;
    }
    return 0;
}

// The first row of from .. to - 1 that fits, else `to`. halving: behind a row that fits all do.
bool view::first_that(uint64_t from, uint64_t to, bool halving, const test &fits,
                      const watcher &goes_on, uint64_t *row)
{
    while (from < to) {
        const uint64_t at = halving ? from + (to - from) / 2 : from;
        if (!goes_on() || !load(at)) return false;
        if (fits())
            to = at;
        else
            from = at + 1;
    }
    *row = to;
    return true;
}

bool view::find(const std::vector<key_value> &wanted, const watcher &goes_on, uint64_t *row)
{
    const auto fits = [&] { return sorted_ ? compare(wanted) >= 0 : compare(wanted) == 0; };
    return first_that(0, size_, sorted_, fits, goes_on, row);
}

bool view::next_group(size_t level, const watcher &goes_on, uint64_t *row)
{
    if (!load(*row)) return false;
    const std::vector<key_value> here = keys(level + 1);
    const auto fits = [&] { return compare(here) != 0; };
    return first_that(*row + 1, size_, sorted_, fits, goes_on, row);
}

bool view::previous_group(size_t level, const watcher &goes_on, uint64_t *row)
{
    // The first row of this group, then that of the group that ends in front of it.
    for (int pass = 0; pass < 2; pass++) {
        if (!load(*row)) return false;
        const std::vector<key_value> here = keys(level + 1);
        uint64_t first = *row;
        if (sorted_) {
            const auto fits = [&] { return compare(here) == 0; };
            if (!first_that(0, *row, true, fits, goes_on, &first)) return false;
        } else {
            while (first > 0) {
                if (!goes_on() || !load(first - 1)) return false;
                if (compare(here) != 0) break;
                first--;
            }
        }
        *row = first == 0 && pass == 0 ? size_ : first - (pass == 0 ? 1 : 0);
        if (*row == size_) break;
    }
    return true;
}

bool view::mark(uint64_t first, uint64_t last, uint64_t *count)
{
    std::vector<uint32_t> fresh;
    for (uint64_t row = first; row <= last; row++) {
        int32_t number = static_cast<int32_t>(row);
        if (!arrival_ && !order_.at(row, &number)) return false;
        if (!marked_[static_cast<size_t>(number)]) fresh.push_back(static_cast<uint32_t>(number));
    }
    for (const uint32_t number : fresh) marked_[number] = true;
    *count = fresh.size();
    if (!fresh.empty()) undone_.push_back(std::move(fresh));
    return true;
}

uint64_t view::undo()
{
    if (undone_.empty()) return 0;
    const std::vector<uint32_t> last = std::move(undone_.back());
    undone_.pop_back();
    for (const uint32_t number : last) marked_[number] = false;
    return last.size();
}

uint64_t view::marks() const
{
    return static_cast<uint64_t>(std::count(marked_.begin(), marked_.end(), true));
}

} // namespace kuq
