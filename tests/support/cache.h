// cache.h - a data cache for tests: made of shapes, filled and read with strings
#ifndef TESTS_SUPPORT_CACHE_H
#define TESTS_SUPPORT_CACHE_H

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "kudcf.h"
#include "kudcm.h"
#include "skuf.h"
#include "support/context.h"
#include "support/files.h"

namespace ku::test
{

using value = std::optional<std::string>; // none: NULL
using values = std::vector<value>;

inline std::string integer(int32_t number)
{
    std::string bytes(4, 0);
    std::memcpy(bytes.data(), &number, 4);
    return bytes;
}

struct column_shape {
    uint8_t datatype;
    uint32_t longest;
};
struct key_shape {
    uint16_t column, level;
    bool ascending = true;
};
struct index_shape {
    uint16_t type;
    std::vector<key_shape> keys;
    uint16_t levels() const { return static_cast<uint16_t>(keys.back().level + 1); }
};
struct thread_shape {
    std::vector<column_shape> columns;
    std::vector<index_shape> indexes;
};

class cache
{
public:
    cache(context &ctx, const std::vector<thread_shape> &threads, uint16_t blocks = 3)
        : ctx_(ctx), columns_(threads.size()), blocks_(skufcreate(ctx, blocks))
    {
        std::vector<kudctddtdef> descriptors;
        for (std::size_t i = 0; i < threads.size(); i++) {
            for (const column_shape &shape : threads[i].columns) add(i, shape);
            descriptors.push_back(describe(threads[i], i));
        }
        const std::string path = dir_.path() + "/";
        status = kudcftcreate(ctx, ctx, blocks_, path.c_str(), path.c_str(),
                              static_cast<uint16_t>(threads.size()), descriptors.data(), &acmp_);
    }
    cache(const cache &) = delete;
    cache &operator=(const cache &) = delete;
    ~cache()
    {
        const uint32_t ended = kudcfdestroy(acmp_);
        skufdestroy(ctx_, blocks_);
        EXPECT_TRUE(!whole || (ended == 0 && dir_.names().empty()));
    }
    operator kudcaccdef *() const { return acmp_; } // NOLINT(google-explicit-constructor)
    kudcaccdef *operator->() const { return acmp_; }

    void fill(std::size_t thread, const values &row)
    {
        for (std::size_t i = 0; i < row.size(); i++) {
            kudxcoldef &column = columns_[thread][i];
            column.curnul_kudxcol = row[i] ? 0 : KUDC_NULL;
            column.curlen_kudxcol = row[i] ? static_cast<uint32_t>(row[i]->size()) : 0;
            if (row[i]) std::memcpy(column.curval_kudxcol, row[i]->data(), row[i]->size());
        }
    }
    values current(std::size_t thread) const
    {
        values row;
        for (const kudxcoldef &column : columns_[thread])
            row.push_back(column.curnul_kudxcol != 0
                              ? value()
                              : value(std::string(static_cast<char *>(column.curval_kudxcol),
                                                  column.curlen_kudxcol)));
        return row;
    }
    // Returns the row's position, or -1.
    int32_t store(uint16_t thread, const values &row, const std::vector<uint16_t> &levels)
    {
        fill(thread, row);
        int32_t position = -1;
        status = kudcmrstr(acmp_, thread, levels.data(), 1, &position);
        return position;
    }
    kudccurdef *cursor(uint16_t thread, int16_t index, const kudckeydef *goal = nullptr)
    {
        kudccurdef *made = nullptr;
        status = kudcfnwcurs(acmp_, goal, thread, index, 0, -1, &made);
        return made;
    }
    kudxcoldef *column(std::size_t thread, std::size_t number) { return &columns_[thread][number]; }

    uint32_t status = 0; // of the last call made here
    bool whole = true;   // its files can be closed and deleted

private:
    void add(std::size_t thread, const column_shape &shape)
    {
        buffers_.emplace_back(shape.longest + 1, '\0');
        names_.push_back("C" + std::to_string(columns_[thread].size()));
        kudxcoldef column = {};
        column.xdbtyp_kudxcol = shape.datatype;
        column.maxlen_kudxcol = shape.longest;
        column.name_kudxcol = names_.back().c_str();
        column.curval_kudxcol = buffers_.back().data();
        columns_[thread].push_back(column);
    }
    kudctddtdef describe(const thread_shape &thread, std::size_t number)
    {
        arrays_.emplace_back();
        for (kudxcoldef &column : columns_[number]) arrays_.back().push_back(&column);
        indexes_.emplace_back();
        for (const index_shape &shape : thread.indexes) {
            keys_.emplace_back();
            for (const key_shape &key : shape.keys) {
                kudcbvadef bind = {};
                bind.col_kudcbva = arrays_.back()[key.column];
                bind.sort_kudcbva = key.ascending ? KUDC_ASCENDING : 0;
                bind.xdbtyp_kudcbva = bind.col_kudcbva->xdbtyp_kudxcol;
                bind.level_kudcbva = key.level;
                keys_.back().push_back(bind);
            }
            indexes_.back().push_back({shape.type, shape.levels(),
                                       static_cast<uint16_t>(shape.keys.size()),
                                       keys_.back().data(), 0});
        }
        return {static_cast<uint16_t>(thread.columns.size()),
                static_cast<uint16_t>(thread.indexes.size()), arrays_.back().data(),
                indexes_.back().data()};
    }

    context &ctx_;
    directory dir_;
    std::vector<std::deque<kudxcoldef>> columns_;
    std::deque<std::string> buffers_, names_;
    std::deque<std::vector<kudxcoldef *>> arrays_;
    std::deque<std::vector<kudciddtdef>> indexes_;
    std::deque<std::vector<kudcbvadef>> keys_;
    void *blocks_;
    kudcaccdef *acmp_ = nullptr;
};

// A goal key of values for the first columns of an index, all of them set.
class goal_key
{
public:
    goal_key(cache &over, uint16_t thread, const index_shape &shape, const values &from)
    {
        for (std::size_t i = 0; i < from.size(); i++) {
            kudcbvadef bind = {};
            bind.col_kudcbva = over.column(thread, shape.keys[i].column);
            buffers_.emplace_back(bind.col_kudcbva->maxlen_kudxcol + 1, '\0');
            bind.val_kudcbva = reinterpret_cast<unsigned char *>(buffers_.back().data());
            bind.sort_kudcbva = shape.keys[i].ascending ? KUDC_ASCENDING : 0;
            bind.xdbtyp_kudcbva = bind.col_kudcbva->xdbtyp_kudxcol;
            bind.level_kudcbva = shape.keys[i].level;
            bind.set_kudcbva = 1;
            bind.valnul_kudcbva = from[i] ? 0 : KUDC_NULL;
            bind.len_kudcbva = from[i] ? static_cast<uint32_t>(from[i]->size()) : 0;
            if (from[i]) std::memcpy(bind.val_kudcbva, from[i]->data(), from[i]->size());
            columns.push_back(bind);
        }
        key.numbva_kudckey = static_cast<uint16_t>(columns.size());
        key.arybva_kudckey = columns.data();
    }
    goal_key(const goal_key &) = delete;
    goal_key &operator=(const goal_key &) = delete;

    std::vector<kudcbvadef> columns;
    kudckeydef key = {};

private:
    std::deque<std::string> buffers_;
};

} // namespace ku::test

#endif
