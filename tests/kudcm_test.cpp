// kudcm_test.cpp - the data cache at work, beside a model of rows, trees and groups in memory
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kudc_internal.h"
#include "kudcd.h"
#include "kudck.h"
#include "kudcp.h"
#include "skub.h"
#include "skufv.h"
#include "support/cache.h"
#include "support/random.h"
#include "support/sweep.h"

using namespace ku::test;

namespace
{

// ---- the model ----

int order(uint8_t datatype, bool ascending, const value &a, const value &b)
{
    if (!a || !b) return a ? (ascending ? -1 : 1) : b ? (ascending ? 1 : -1) : 0;
    int32_t difference = a->compare(*b);
    if (datatype == KUDC_INTEGER) {
        int32_t x, y;
        std::memcpy(&x, a->data(), 4);
        std::memcpy(&y, b->data(), 4);
        difference = x < y ? -1 : x > y;
    }
    return ascending ? difference : -difference;
}

struct less {
    std::vector<std::pair<uint8_t, bool>> columns; // datatype, ascending
    bool operator()(const values &a, const values &b) const
    {
        for (std::size_t i = 0; i < columns.size(); i++)
            if (const int d = order(columns[i].first, columns[i].second, a[i], b[i])) return d < 0;
        return false;
    }
};

struct tree;
struct entry {
    int first = -1, last = -1, count = 0; // rows
    std::unique_ptr<tree> next;
};
struct tree {
    std::map<values, entry, less> keys;
    int inserted = 0;
};
struct group {
    values key;
    std::vector<group> below;
    entry rows;
};
struct row {
    values columns;
    std::vector<uint16_t> live;
    bool mark = true;
    std::vector<int> link; // per index
};

constexpr int none = -1;

struct model_index {
    index_shape shape;
    std::vector<less> orders; // per level
    tree random;
    std::vector<group> groups;

    values part(const values &columns, uint16_t level) const
    {
        values key;
        for (const key_shape &column : shape.keys)
            if (column.level == level) key.push_back(columns[column.column]);
        return key;
    }
};

// What a cursor is at.
struct model_cursor {
    kudccurdef *real;
    std::size_t index; // past the last one: storage order
    std::vector<values> key;
    std::vector<bool> set;
    std::vector<int> path; // SEQNTL: the group of each level, or none
    int held = none;
    bool read = false;
    int current = none, next = none, announced = none;
    int position = none, after = none; // DYNBRK
    int count = 0;
};

class model
{
public:
    model(const thread_shape &shape) : indexes(shape.indexes.size())
    {
        for (std::size_t i = 0; i < indexes.size(); i++) {
            model_index &index = indexes[i];
            index.shape = shape.indexes[i];
            index.orders.resize(index.shape.levels());
            for (const key_shape &key : index.shape.keys)
                index.orders[key.level].columns.emplace_back(shape.columns[key.column].datatype,
                                                             key.ascending);
            index.random.keys = decltype(index.random.keys)(index.orders[0]);
        }
    }

    void store(const values &columns, const std::vector<uint16_t> &levels)
    {
        const int number = static_cast<int>(rows.size());
        rows.push_back({columns, levels, true, std::vector<int>(indexes.size(), none)});
        if (indexes.empty()) rows.back().mark = levels[0] != 0;
        for (std::size_t i = 0; i < indexes.size(); i++) {
            if (indexes[i].shape.type == KUDC_RANDOM) insert(i, number, levels[i]);
            if (indexes[i].shape.type == KUDC_SEQNTL) append(i, number);
        }
    }

    // ---- searching ----

    int search(model_cursor &c, uint16_t target, int relop)
    {
        if (c.index >= indexes.size()) return KUDC_NOKEY;
        const uint16_t type = indexes[c.index].shape.type;
        if (type == KUDC_RANDOM) return search_random(c, target, relop);
        return type == KUDC_SEQNTL ? search_groups(c, target, relop)
                                   : search_breaks(c, target, relop);
    }
    // The tree of a level under the cursor's keys above it.
    tree *under(const model_cursor &c, uint16_t level)
    {
        tree *t = &indexes[c.index].random;
        for (uint16_t i = 0; i < level; i++) {
            const auto found = t->keys.find(c.key[i]);
            if (found == t->keys.end()) return nullptr;
            t = found->second.next.get();
        }
        return t;
    }

    // ---- reading ----

    bool visible(const model_cursor &c, int number, unsigned level) const
    {
        return c.index >= indexes.size() ? rows[number].mark : rows[number].live[c.index] > level;
    }
    int link(const model_cursor &c, int number) const
    {
        if (c.index < indexes.size() && indexes[c.index].shape.type != KUDC_DYNBRK)
            return rows[number].link[c.index];
        return number + 1 < static_cast<int>(rows.size()) ? number + 1 : none;
    }
    bool advance(model_cursor &c, unsigned level)
    {
        int number = c.read ? (c.next != none ? c.next : link(c, c.current)) : begin(c, level);
        while (number != none && !visible(c, number, level)) number = link(c, number);
        c.held = none;
        const bool breaks = c.index < indexes.size() && indexes[c.index].shape.type == KUDC_DYNBRK;
        for (uint16_t l = 0; breaks && number != none && l <= level && l < c.key.size(); l++)
            if (indexes[c.index].part(rows[number].columns, l) != c.key[l]) return false;
        if (number == none) return false;
        c.announced = c.next;
        c.next = c.after = link(c, number);
        c.current = c.position = number;
        c.read = true;
        return true;
    }

    // Takes the cursor's key of a level out. Whether there is one before it.
    bool remove(model_cursor &c, uint16_t level)
    {
        tree *t = under(c, level);
        const auto found =
            t == nullptr ? std::map<values, entry, less>::iterator() : t->keys.find(c.key[level]);
        if (t == nullptr) return false;
        if (found == t->keys.end()) {
            rewind(c, none, 0);
            return false;
        }
        const bool before = found != t->keys.begin();
        if (before) load(c, level, std::prev(found));
        t->keys.erase(found);
        rewind(c, none, 0);
        return before;
    }

    std::vector<model_index> indexes;
    std::vector<row> rows;

private:
    using place = std::map<values, entry, less>::iterator;

    void chain(std::size_t index, entry &under, int number)
    {
        if (under.count == 0)
            under.first = number;
        else
            rows[under.last].link[index] = number;
        under.last = number;
        under.count++;
    }
    void insert(std::size_t i, int number, uint16_t levels)
    {
        model_index &index = indexes[i];
        tree *t = &index.random;
        const uint16_t last = index.shape.levels();
        for (uint16_t l = 0; l < std::min(levels, last); l++) {
            const auto [at, added] = t->keys.try_emplace(index.part(rows[number].columns, l));
            if (added) {
                t->inserted++;
                at->second.first = number;
                at->second.next = std::make_unique<tree>();
                if (l + 1 < last) at->second.next->keys = decltype(t->keys)(index.orders[l + 1u]);
            }
            if (l + 1 == last) chain(i, at->second, number);
            t = at->second.next.get();
        }
    }
    void append(std::size_t i, int number)
    {
        model_index &index = indexes[i];
        std::vector<group> *chains = &index.groups;
        bool same = true;
        for (uint16_t l = 0; l < index.shape.levels(); l++) {
            values key = index.part(rows[number].columns, l);
            same = same && !chains->empty() && chains->back().key == key;
            if (!same) chains->push_back({key, {}, {}});
            if (l + 1 == index.shape.levels()) chain(i, chains->back().rows, number);
            chains = &chains->back().below;
        }
    }

    static void rewind(model_cursor &c, int held, int count)
    {
        c.held = held;
        c.read = false;
        c.next = c.announced = none;
        c.count = count;
    }
    // The cursor's keys from a level on: an entry's and the first ones below it.
    entry *load(model_cursor &c, uint16_t level, place at)
    {
        entry *taken = &at->second;
        c.key[level] = at->first;
        c.set[level] = true;
        for (auto l = level + 1u; l < c.key.size(); l++) {
            c.set[l] = taken->next != nullptr && !taken->next->keys.empty();
            if (!c.set[l]) {
                std::fill(c.set.begin() + l, c.set.end(), false);
                return nullptr;
            }
            c.key[l] = taken->next->keys.begin()->first;
            taken = &taken->next->keys.begin()->second;
        }
        return taken;
    }
    int search_random(model_cursor &c, uint16_t target, int relop)
    {
        model_cursor trial = c;
        tree *t = &indexes[c.index].random;
        entry *taken = nullptr;
        for (uint16_t l = 0; l < c.key.size(); l++) {
            const bool first = !trial.set[l] || (relop == KUDC_FIRST && l == target);
            place at = first ? t->keys.begin() : t->keys.find(trial.key[l]);
            if (at == t->keys.end()) {
                if (first) c.set[l] = false;
                return KUDC_NOKEY;
            }
            if (!first && l == target && relop == KUDC_NEXT && ++at == t->keys.end())
                return KUDC_NOMORE;
            trial.key[l] = at->first;
            trial.set[l] = true;
            taken = &at->second;
            t = taken->next.get();
            if (l < target) continue;
            taken = load(trial, l, at);
            break;
        }
        c = trial;
        rewind(c, taken == nullptr ? none : taken->first, taken == nullptr ? 0 : taken->count);
        return KUDC_POSITIONED;
    }
    int search_groups(model_cursor &c, uint16_t target, int relop)
    {
        model_cursor trial = c;
        std::vector<group> *chain = &indexes[c.index].groups;
        group *at = nullptr;
        for (uint16_t l = 0; l < c.key.size(); l++) {
            const bool fresh = relop == KUDC_FIRST ? target <= l : target < l;
            int &number = trial.path[l];
            if (fresh) number = chain->empty() ? none : 0;
            if (number == none) return KUDC_NOKEY;
            if (relop == KUDC_NEXT && target == l)
                if (++number == static_cast<int>(chain->size())) return KUDC_NOMORE;
            at = &(*chain)[static_cast<std::size_t>(number)];
            trial.key[l] = at->key;
            chain = &at->below;
        }
        c = trial;
        rewind(c, at->rows.first, at->rows.count);
        return KUDC_POSITIONED;
    }
    int search_breaks(model_cursor &c, uint16_t target, int relop)
    {
        const model_index &index = indexes[c.index];
        int number = c.after != none ? c.after : c.position != none ? link(c, c.position) : 0;
        if (number == none || rows.empty()) {
            c.held = none;
            return KUDC_NOKEY;
        }
        uint16_t same = 0;
        while (same < c.key.size() && index.part(rows[number].columns, same) == c.key[same]) same++;
        if (relop == KUDC_FIRST && same < target && same < c.key.size()) return KUDC_NOKEY;
        if (relop == KUDC_CURRENT && same <= target && same < c.key.size()) return KUDC_NOKEY;
        if (relop == KUDC_NEXT && (same != target || same == c.key.size())) return KUDC_NOMORE;
        const auto from = static_cast<uint16_t>(target + (relop == KUDC_CURRENT ? 1 : 0));
        for (uint16_t l = from; l < c.key.size(); l++)
            c.key[l] = index.part(rows[number].columns, l);
        rewind(c, number, 0);
        return KUDC_POSITIONED;
    }
    int begin(model_cursor &c, unsigned level)
    {
        if (c.index >= indexes.size()) return rows.empty() ? none : 0;
        if (c.held != none) return c.held;
        if (indexes[c.index].shape.type != KUDC_RANDOM)
            return search(c, static_cast<uint16_t>(level), KUDC_CURRENT) == 0 ? c.held : none;
        tree *t = &indexes[c.index].random;
        int found = none;
        for (const values &key : c.key) {
            const auto at = t->keys.find(key);
            if (at == t->keys.end()) return t->inserted == 0 ? found : none;
            found = at->second.first;
            t = at->second.next.get();
        }
        return found;
    }
};

// ---- the two side by side ----

const thread_shape shapes[] = {
    {{{KUDC_CHARACTER, 300}, {KUDC_INTEGER, 4}, {KUDC_CHARACTER, 20}, {KUDC_RAW, 90}},
     {{KUDC_RANDOM, {{0, 0}, {1, 1, false}, {2, 2}}},
      {KUDC_SEQNTL, {{1, 0}, {2, 0}, {0, 1}}},
      {KUDC_RANDOM, {{2, 0, false}, {1, 0}}},
      {KUDC_DYNBRK, {{1, 0}, {2, 1}, {0, 2}}}}},
    {{{KUDC_CHARACTER, 40}, {KUDC_INTEGER, 4}}, {}},
    {{{KUDC_CHARACTER, 40}, {KUDC_INTEGER, 4}},
     {{KUDC_SEQNTL, {{0, 0}, {1, 1}}}, {KUDC_RANDOM, {{1, 0}, {0, 1}}}, {KUDC_DYNBRK, {{0, 0}}}}},
};

class pair_of_caches
{
public:
    pair_of_caches(context &ctx) : real_(ctx, {shapes, shapes + std::size(shapes)})
    {
        for (const thread_shape &shape : shapes) models_.emplace_back(shape);
    }
    void run(int steps)
    {
        for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); step++) {
            SCOPED_TRACE("step " + std::to_string(step) + ", KU_SEED=" + std::to_string(seed()));
            const auto thread = static_cast<uint16_t>(dice_.below(std::size(shapes)));
            act(thread);
            ASSERT_FALSE(testing::Test::HasFailure());
        }
    }
    int found[3] = {}; // searches by their outcome
    int reads = 0, removed = 0;

private:
    void act(uint16_t thread)
    {
        std::vector<model_cursor> &cursors = cursors_[thread];
        const uint32_t what = dice_.below(20);
        if (what < 8 || models_[thread].rows.empty()) return store(thread);
        if (cursors.size() < 6 && what < 11) return make(thread);
        if (cursors.empty()) return;
        model_cursor &c = cursors[dice_.below(static_cast<uint32_t>(cursors.size()))];
        if (what < 14) return search(thread, c);
        if (what < 17) return read(thread, c);
        if (what == 17) return remove_row(thread, c);
        if (what == 18) return count_or_remove(thread, c);
        if (dice_.one_in(2)) return copy(thread, c);
        EXPECT_EQ(kudcffrcurs(real_, c.real), 0u);
        cursors.erase(cursors.begin() + (&c - cursors.data()));
    }

    value random(const column_shape &shape)
    {
        if (dice_.one_in(12)) return {};
        if (shape.datatype == KUDC_INTEGER)
            return integer(static_cast<int32_t>(dice_.below(7)) * 97 - 256);
        std::string text(1 + dice_.below(2), static_cast<char>('a' + dice_.below(26)));
        if (dice_.one_in(30)) text.clear();
        if (dice_.one_in(4)) text += std::string(dice_.below(shape.longest - 2), 'x');
        return text;
    }
    values random_row(uint16_t thread)
    {
        values columns;
        const std::vector<row> &rows = models_[thread].rows;
        for (std::size_t i = 0; i < shapes[thread].columns.size(); i++)
            columns.push_back(!rows.empty() && dice_.below(3) != 0
                                  ? rows.back().columns[i] // so that groups grow
                                  : random(shapes[thread].columns[i]));
        return columns;
    }
    void store(uint16_t thread)
    {
        const values columns = random_row(thread);
        std::vector<uint16_t> levels;
        for (const index_shape &index : shapes[thread].indexes)
            levels.push_back(static_cast<uint16_t>(
                dice_.one_in(4) ? dice_.below(index.levels() + 1u) : index.levels()));
        if (levels.empty()) levels.push_back(static_cast<uint16_t>(dice_.below(3)));
        ASSERT_GE(real_.store(thread, columns, levels), 0);
        models_[thread].store(columns, levels);
    }
    void make(uint16_t thread)
    {
        model_cursor c = {};
        model &mine = models_[thread];
        c.index = dice_.below(static_cast<uint32_t>(mine.indexes.size()) + 1);
        const bool stored = c.index == mine.indexes.size();
        const std::size_t levels = stored ? 0 : mine.indexes[c.index].shape.levels();
        c.key.resize(levels);
        c.set.resize(levels);
        c.path.assign(levels, none);
        const auto number = static_cast<int16_t>(stored ? -1 : static_cast<int>(c.index));
        if (!stored && dice_.one_in(3)) { // with a goal, that of a row half the time
            const values columns =
                dice_.one_in(2)
                    ? random_row(thread)
                    : mine.rows[dice_.below(static_cast<uint32_t>(mine.rows.size()))].columns;
            values key;
            for (uint16_t l = 0; l < levels; l++) {
                c.key[l] = mine.indexes[c.index].part(columns, l);
                c.set[l] = true;
                key.insert(key.end(), c.key[l].begin(), c.key[l].end());
            }
            const goal_key goal(real_, thread, mine.indexes[c.index].shape, key);
            c.real = real_.cursor(thread, number, &goal.key);
        } else {
            c.real = real_.cursor(thread, number);
            if (!stored) mine.search(c, 0, KUDC_FIRST);
            if (!stored && mine.indexes[c.index].shape.type == KUDC_RANDOM) c.held = none;
        }
        ASSERT_NE(c.real, nullptr);
        cursors_[thread].push_back(c);
    }
    void search(uint16_t thread, model_cursor &c)
    {
        const auto target = static_cast<uint16_t>(dice_.below(3));
        const auto relop = static_cast<int32_t>(dice_.below(3));
        const bool random = c.index < models_[thread].indexes.size()
                            && models_[thread].indexes[c.index].shape.type == KUDC_RANDOM;
        if (random && dice_.one_in(8)) { // a level that holds no key takes its first one
            const std::size_t level = dice_.below(static_cast<uint32_t>(c.key.size()));
            c.set[level] = false;
            for (uint32_t i = 0; i < c.real->keyp_kudccur->numbva_kudckey; i++)
                if (c.real->keyp_kudccur->arybva_kudckey[i].level_kudcbva == level)
                    c.real->keyp_kudccur->arybva_kudckey[i].set_kudcbva = 0;
        }
        int32_t state = 99;
        ASSERT_EQ(kudcmksrch(real_, c.real, target, relop, &state), 0u);
        ASSERT_EQ(state, models_[thread].search(c, target, relop)) << target << ' ' << relop;
        found[-state]++;
        if (state == 0) {
            EXPECT_EQ(c.real->curleft_kudccur, c.count);
        }
        same_key(thread, c);
    }
    void same_key(uint16_t thread, const model_cursor &c)
    {
        if (c.index >= models_[thread].indexes.size()) return;
        std::vector<values> key(c.key.size());
        for (uint32_t i = 0; i < c.real->keyp_kudccur->numbva_kudckey; i++) {
            const kudcbvadef &column = c.real->keyp_kudccur->arybva_kudckey[i];
            if (models_[thread].indexes[c.index].shape.type == KUDC_RANDOM) {
                EXPECT_EQ(column.set_kudcbva, c.set[column.level_kudcbva]);
            }
            key[column.level_kudcbva].push_back(
                column.valnul_kudcbva != 0
                    ? value()
                    : value(
                        std::string(column.val_kudcbva, column.val_kudcbva + column.len_kudcbva)));
        }
        for (std::size_t l = 0; l < key.size(); l++)
            if (c.set[l]) {
                EXPECT_EQ(key[l], c.key[l]) << "level " << l;
            }
    }
    // Whether a RANDOM cursor's key holds nothing at a level where there are keys: what it is
    // compared as is nobody's promise.
    bool lost(uint16_t thread, const model_cursor &c, unsigned levels)
    {
        model &mine = models_[thread];
        if (c.index >= mine.indexes.size()) return false;
        if (mine.indexes[c.index].shape.type != KUDC_RANDOM) return false;
        for (uint16_t l = 0; l < std::min<std::size_t>(levels, c.key.size()); l++) {
            const tree *t = mine.under(c, l);
            if (t == nullptr) return false;
            if (!c.set[l]) return !t->keys.empty();
        }
        return false;
    }
    void read(uint16_t thread, model_cursor &c)
    {
        model &mine = models_[thread];
        if (lost(thread, c, static_cast<uint16_t>(c.key.size()))) return search(thread, c);
        const auto level = static_cast<uint8_t>(dice_.below(3));
        for (uint32_t left = 1 + dice_.below(40); left > 0; left--) {
            real_.fill(thread, values(shapes[thread].columns.size())); // all NULL
            const bool more = mine.advance(c, level);
            uint8_t outcome = 99;
            ASSERT_EQ(kudcmrnxt(real_, c.real, level, &outcome), 0u);
            ASSERT_EQ(outcome, more ? KUDC_ROW : KUDC_NOROW);
            reads++;
            if (!more) break;
            EXPECT_EQ(real_.current(thread),
                      mine.rows[static_cast<std::size_t>(c.current)].columns);
        }
        uint8_t outcome = 99;
        ASSERT_EQ(kudcmrrd(real_, c.real, level, &outcome), 0u);
        const bool see = c.read && mine.visible(c, c.current, level);
        EXPECT_EQ(outcome, !c.read ? KUDC_NOROW : see ? KUDC_ROW : KUDC_HIDDEN);
        if (see) {
            EXPECT_EQ(real_.current(thread),
                      mine.rows[static_cast<std::size_t>(c.current)].columns);
        }
    }
    void copy(uint16_t thread, const model_cursor &c)
    {
        model_cursor other = c;
        ASSERT_EQ(kudcfcpcurs(real_, c.real, &other.real), 0u);
        other.next = c.announced;
        other.announced = none;
        read(thread, other);
        EXPECT_EQ(kudcffrcurs(real_, other.real), 0u);
    }
    void remove_row(uint16_t thread, const model_cursor &c)
    {
        ASSERT_EQ(kudcmrdel(real_, c.real), 0u);
        if (!c.read) return;
        row &gone = models_[thread].rows[static_cast<std::size_t>(c.current)];
        if (c.index >= models_[thread].indexes.size())
            gone.mark = false;
        else if (gone.live[c.index] > 0)
            gone.live[c.index]--;
    }
    void count_or_remove(uint16_t thread, model_cursor &c)
    {
        model &mine = models_[thread];
        const auto level = static_cast<uint16_t>(dice_.below(4));
        if (c.index >= mine.indexes.size() || lost(thread, c, level + 1u)) return;
        const bool random = mine.indexes[c.index].shape.type == KUDC_RANDOM;
        int32_t count = 99;
        ASSERT_EQ(kudcmbcnt(real_, c.real, level, &count), 0u);
        const auto levels = static_cast<uint16_t>(c.key.size());
        tree *t = random ? mine.under(c, std::min<uint16_t>(level, levels - 1)) : nullptr;
        int expected = t == nullptr ? -1 : t->inserted;
        if (t != nullptr && level >= levels) {
            const auto at = t->keys.find(c.key[levels - 1u]);
            expected = at == t->keys.end() ? -1 : at->second.count;
        }
        EXPECT_EQ(count, expected);
        int32_t before = 99;
        if (!random || level >= levels) return;
        const std::size_t keys = t == nullptr ? 0 : t->keys.size();
        ASSERT_EQ(kudcmkdel(real_, c.real, level, &before), 0u);
        EXPECT_EQ(before, mine.remove(c, level) ? 1 : 0);
        if (t != nullptr) removed += keys != t->keys.size();
        same_key(thread, c);
    }

    cache real_;
    dice dice_;
    std::vector<model> models_;
    std::map<uint16_t, std::vector<model_cursor>> cursors_;
};

} // namespace

TEST(Kudcm, RandomWorkInThreadsAndIndexesIsLikeThatOfAModel)
{
    context ctx;
    pair_of_caches both(ctx);
    both.run(15000);
    EXPECT_GT(std::min({both.found[0], both.found[1], both.found[2], both.reads}), 100);
    EXPECT_GT(both.removed, 5);
}

// ---- what the model leaves out ----

static const thread_shape numbers = {{{KUDC_INTEGER, 4}, {KUDC_INTEGER, 4}, {KUDC_CHARACTER, 9}},
                                     {{KUDC_RANDOM, {{0, 0}, {1, 1}}}}};

TEST(Kudcm, WhatCannotBeStoredChangesNothing)
{
    context ctx;
    cache c(ctx, {numbers});
    ASSERT_EQ(c.store(0, {integer(1), integer(2), "x"}, {2}), 0);
    const int32_t data = c->nxdo_kudcacc, index = c->nxio_kudcacc;
    const auto refused = [&](const std::string &error) {
        EXPECT_EQ(c.store(0, {integer(3), integer(4), "y"}, {2}), -1);
        EXPECT_EQ(spelled(c.status), error);
        EXPECT_EQ(ctx.errors(), std::vector<std::string>{error});
        ctx.clear();
        EXPECT_EQ(c->nxdo_kudcacc, data);
        EXPECT_EQ(c->nxio_kudcacc, index);
        EXPECT_EQ(c->thrd_kudcacc->coun_kudcthd, 1);
    };
    kudckeydef &goal = c->thrd_kudcacc->idxs_kudcthd->goal_kudcidx;
    kuxer0push(ctx, KUVAA_NOMEM); // an older error, which moves would stop at
    refused("kuvaa 16");
    goal.arybva_kudckey[1].col_kudcbva = nullptr;
    refused("kuvaa 21");
    goal.arybva_kudckey[1].col_kudcbva = c.column(0, 1);
    const auto full = [&](int32_t &end, int32_t room) {
        const int32_t before = end;
        end = INT32_MAX - room;
        int32_t position = 99;
        const uint16_t levels = 2;
        EXPECT_EQ(kudcmrstr(c, 0, &levels, 1, &position), KUDCA_FULL);
        EXPECT_EQ(position, 99);
        end = before;
        ctx.clear();
    };
    full(c->nxdo_kudcacc, 20);
    full(c->nxio_kudcacc, 1000);
    void *buffer = std::exchange(c.column(0, 0)->curval_kudxcol, nullptr);
    EXPECT_EQ(c.store(0, {{}, {}, {}}, {2}), -1) << "a NULL key, too, needs a buffer";
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
    c.column(0, 0)->curval_kudxcol = buffer;
    EXPECT_EQ(c.store(1, {}, {2}), -1); // no such thread
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
    kudccurdef *cursor = c.cursor(0, 0);
    for (const int32_t stored : {0, 1}) {
        const uint16_t levels = 2;
        int32_t position = 99;
        const auto missing = [&](auto *&array) {
            auto *before = std::exchange(array, nullptr);
            EXPECT_EQ(kudcmrstr(c, 0, &levels, stored, &position), KUVAA_MISSING);
            EXPECT_ERRORS(ctx, {"kuvaa 21"});
            array = before;
        };
        missing(c->thrd_kudcacc->idxl_kudcthd);
        missing(c->thrd_kudcacc->delp_kudcthd);
        missing(c->thrd_kudcacc->idxs_kudcthd);
        missing(c->indx_kudcacc);
        missing(c->copy_kudcacc);
        c.fill(0, {integer(3), integer(4), "y"});
        c.column(0, 0)->curlen_kudxcol = 5;
        EXPECT_EQ(kudcmrstr(c, 0, &levels, stored, &position), KUDCA_TOOLONG);
        EXPECT_ERRORS(ctx, {"kudca 101"});
    }
    unsigned char *block = std::exchange(c->indx_kudcacc, nullptr);
    int32_t out = 0;
    uint8_t outcome = 0;
    void *read = nullptr;
    const std::vector<uint32_t> told = {
        kudcmbcnt(c, cursor, 0, &out), kudcmksrch(c, cursor, 0, KUDC_CURRENT, &out),
        kudcmkdel(c, cursor, 0, &out), kudcmrnxt(c, cursor, 0, &outcome),
        kudcmrblb(c, cursor, 0, nullptr, nullptr, &read)};
    for (const uint32_t code : told) EXPECT_EQ(code, KUVAA_MISSING);
    ctx.clear();
    c->indx_kudcacc = block;

    // With an older error on the stack nothing changes.
    const values before = c.current(0);
    cursor->curleft_kudccur = 77;
    kudcbvadef &first = cursor->keyp_kudccur->arybva_kudckey[0];
    first.set_kudcbva = 1;
    kuxer0push(ctx, KUDCA_TYPE);
    const int32_t integers[] = {55, 66};
    kudcbvadef *given[] = {&first, &first + 1};
    for (const uint32_t code :
         {kudcmksrch(c, cursor, 0, KUDC_FIRST, &out), kudcmrnxt(c, cursor, 0, &outcome),
          kudcmrblb(c, cursor, 2, given, integers, &read)})
        EXPECT_EQ(code, KUDCA_TYPE);
    EXPECT_EQ(cursor->curleft_kudccur, 77);
    EXPECT_EQ(first.set_kudcbva, 1);
    EXPECT_EQ(c.current(0), before);
    first.set_kudcbva = 0;
    cursor->curleft_kudccur = 0;
    ctx.clear();

    uint8_t found = 9;
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(c.current(0), (values{integer(1), integer(2), "x"}));
    EXPECT_EQ(c.store(0, {integer(1), integer(2), "z"}, {2}), data);
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(found, KUDC_ROW) << "stored behind the row that was the last one";
    EXPECT_EQ(c.current(0)[2], "z");
}

TEST(Kudcm, AKeyWithWildcardsIsFoundWhereverItMatches)
{
    context ctx;
    const index_shape two = {KUDC_RANDOM, {{0, 0}, {1, 0}}};
    cache c(ctx, {{numbers.columns, {two}}});
    for (int i = 0; i < 200; i++)
        ASSERT_GE(c.store(0, {integer(i * 7 % 200), integer(i), "r"}, {1}), 0);
    const auto matches = [&](const values &key, bool first, bool second) {
        goal_key goal(c, 0, two, key);
        goal.columns[0].wildcard_kudcbva = first ? 1 : 0;
        goal.columns[1].wildcard_kudcbva = second ? 1 : 0;
        int32_t found = 9;
        EXPECT_EQ(kudcmpksrch(c, 0, 0, &goal.key, &found), 0u);
        EXPECT_EQ(goal.key.arylevsize_kudckey, nullptr);
        return found == 0;
    };
    for (int i = 0; i < 200; i += 11) {
        EXPECT_TRUE(matches({integer(i), integer(0)}, false, true));
        EXPECT_TRUE(matches({integer(0), integer(i)}, true, false));
        EXPECT_FALSE(matches({integer(i), integer(200)}, false, false));
    }
    EXPECT_FALSE(matches({integer(0), integer(200)}, true, false));
    // A deleted key is not found, not even where it still separates others.
    for (int i = 0; i < 200; i++) {
        const goal_key goal(c, 0, two, {integer(i * 7 % 200), integer(i)});
        kudccurdef *cursor = c.cursor(0, 0, &goal.key);
        int32_t before = 9;
        ASSERT_EQ(kudcmkdel(c, cursor, 0, &before), 0u);
        EXPECT_FALSE(matches({integer(i * 7 % 200), integer(i)}, false, false)) << i;
        EXPECT_EQ(kudcffrcurs(c, cursor), 0u);
    }
}

TEST(Kudcm, AKeyWithSomeColumnsOfALevelStandsForAllThatBeginWithThem)
{
    const index_shape random = {KUDC_RANDOM, {{0, 0}, {1, 0}, {2, 1}}};
    index_shape breaks = random;
    breaks.type = KUDC_DYNBRK;
    context ctx;
    cache c(ctx,
            {{{{KUDC_CHARACTER, 5}, {KUDC_CHARACTER, 5}, {KUDC_CHARACTER, 5}}, {random, breaks}}});
    for (const char *const key : {"A", "B", "C"})
        for (const char *const below : {"r", "s", "t", "u", "v", "w"}) {
            ASSERT_GE(c.store(0, {key, below, "1"}, {2, 2}), 0);
        }
    const auto goal = [&](const char *first, const char *below) {
        auto made = std::make_unique<goal_key>(c, 0, random, values{first, value(), below});
        made->columns.erase(made->columns.begin() + 1);
        made->key.numbva_kudckey = 2;
        return made;
    };
    int32_t state = 99;
    uint8_t outcome = 99;
    kudccurdef *cursor = c.cursor(0, 1, &goal("A", "1")->key);
    ASSERT_EQ(kudcmksrch(c, cursor, 1, KUDC_CURRENT, &state), 0u);
    EXPECT_EQ(state, KUDC_POSITIONED);
    cursor = c.cursor(0, 1, &goal("A", "1")->key);
    EXPECT_EQ(kudcmrnxt(c, cursor, 1, &outcome), 0u);
    EXPECT_EQ(outcome, KUDC_ROW);

    cursor = c.cursor(0, 0, &goal("B", "1")->key);
    const auto at = [&] {
        const kudcbvadef &first = cursor->keyp_kudccur->arybva_kudckey[0];
        return std::string(first.val_kudcbva, first.val_kudcbva + first.len_kudcbva);
    };
    const struct {
        int32_t relop, state;
        const char *key;
    } steps[] = {{KUDC_CURRENT, 0, "B"},
                 {KUDC_FIRST, 0, "A"},
                 {KUDC_NEXT, 0, "B"},
                 {KUDC_NEXT, 0, "C"},
                 {KUDC_NEXT, KUDC_NOMORE, "C"}};
    for (const auto &step : steps) {
        ASSERT_EQ(kudcmksrch(c, cursor, 0, step.relop, &state), 0u);
        EXPECT_EQ(state, step.state);
        EXPECT_EQ(at(), step.key);
    }
    int32_t previous = 99;
    EXPECT_EQ(kudcmkdel(c, cursor, 0, &previous), 0u);
    EXPECT_EQ(previous, 1);

    // With more columns than the level has it stands for none.
    goal_key more(c, 0, random, {"B", "s", "1"});
    more.columns[2].level_kudcbva = 0;
    const kudcidxdef &index = c->thrd_kudcacc->idxs_kudcthd[0];
    uint16_t size = index.lvrt_kudcidx[0].size_kudcidh;
    more.key.arylevsize_kudckey = &size;
    more.key.numlevsize_kudckey = 1;
    int32_t count = 99, row = 99;
    EXPECT_EQ(
        kudckfnd(c, &more.key, index.tinf_kudcidx.rinf_kudcidx.root_kudcridx, 1, &count, &row),
        KUVAA_MISSING);
    EXPECT_EQ(row, KUDC_NONE);
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
}

TEST(Kudcm, ASearchThatFindsNothingKeepsTheKey)
{
    const index_shape shape = {KUDC_RANDOM, {{0, 0}, {1, 1}}};
    context ctx;
    cache c(ctx, {{{{KUDC_CHARACTER, 5}, {KUDC_CHARACTER, 5}},
                   {shape, {KUDC_SEQNTL, shape.keys}, {KUDC_DYNBRK, shape.keys}}}});
    ASSERT_GE(c.store(0, {"A", "1"}, {1, 2, 2}), 0); // nothing below it
    ASSERT_GE(c.store(0, {"B", "2"}, {2, 2, 2}), 0);
    for (const int32_t relop : {KUDC_FIRST, KUDC_NEXT, KUDC_CURRENT}) {
        const goal_key goal(c, 0, shape, {"B", "2"});
        kudccurdef *cursor = c.cursor(0, 0, &goal.key);
        kudcbvadef *key = cursor->keyp_kudccur->arybva_kudckey;
        key[0].set_kudcbva = 0;
        int32_t state = 99;
        EXPECT_EQ(kudcmksrch(c, cursor, 1, relop, &state), 0u);
        EXPECT_EQ(state, KUDC_NOKEY);
        EXPECT_EQ(key[0].val_kudcbva[0], 'B');
        EXPECT_EQ(key[1].val_kudcbva[0], '2');
        EXPECT_EQ(key[0].set_kudcbva, 0);
        // A level that holds a key holds it, whatever the flag that says so.
        key[0].set_kudcbva = 2;
        key[0].val_kudcbva[0] = 'C';
        EXPECT_EQ(kudcmksrch(c, cursor, 1, relop, &state), 0u);
        EXPECT_EQ(state, KUDC_NOKEY);
        EXPECT_EQ(key[0].set_kudcbva, 2);
        for (const int16_t index : {0, 1, 2}) { // nor is anything found when it fails
            cursor = c.cursor(0, index);
            kuxer0push(ctx, KUDCA_TYPE);
            state = 99;
            EXPECT_EQ(kudcmksrch(c, cursor, 0, relop, &state), KUDCA_TYPE);
            EXPECT_EQ(state, KUDC_NOKEY);
            ctx.clear();
        }
    }

    // Deleting a key that is not there forgets the row that was found before.
    kudccurdef *cursor = c.cursor(0, 0);
    int32_t state = 99, previous = 99;
    EXPECT_EQ(kudcmksrch(c, cursor, 0, KUDC_NEXT, &state), 0u);
    EXPECT_NE(ku::cache::held_row(cursor), KUDC_NONE);
    cursor->keyp_kudccur->arybva_kudckey[1].val_kudcbva[0] = '9';
    EXPECT_EQ(kudcmkdel(c, cursor, 1, &previous), 0u);
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(ku::cache::held_row(cursor), KUDC_NONE);
}

TEST(Kudcm, StatusWordsComeBackWithTheirRows)
{
    context ctx;
    cache c(ctx, {{numbers.columns, {}}});
    kudccurdef *cursor = c.cursor(0, -1);
    for (uint16_t i = 0; i < 3; i++) {
        EXPECT_EQ(kudcmsrst(c, cursor, i * 1000u), 0u);
        c.store(0, {integer(i), {}, {}}, {1});
    }
    uint8_t found = 9;
    for (uint16_t i = 0; i < 3; i++) {
        uint16_t status = 9;
        EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
        EXPECT_EQ(kudcmgrst(c, cursor, &status), 0u);
        EXPECT_EQ(status, i * 1000);
    }
    kudccurdef *late = nullptr; // the number of a row is not counted further than it goes
    EXPECT_EQ(kudcfnwcurs(c, nullptr, 0, -1, INT32_MAX, 0, &late), 0u);
    EXPECT_EQ(kudcmrnxt(c, late, 0, &found), 0u);
    EXPECT_EQ(late->currnum_kudccur, INT32_MAX);
    EXPECT_EQ(kudcmsrst(c, nullptr, 1), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
    cursor->currpos_kudccur = -1;
    EXPECT_EQ(kudcmrdel(c, cursor), 0u);
    EXPECT_EQ(cursor->currnum_kudccur, -1);
    EXPECT_EQ(kudcmrnxt(c, cursor, 0, &found), 0u);
    EXPECT_EQ(found, KUDC_NOROW);
}

static bool blocks_of_calculated_values(context &ctx)
{
    cache c(ctx, {{numbers.columns, {numbers.indexes[0], {KUDC_SEQNTL, {{2, 0}}}}}}, 8);
    if (c.status != 0) return false;
    kudcbvadef bind[2] = {};
    for (int i = 0; i < 2; i++) bind[i].col_kudcbva = c.column(0, i);
    kudcbvadef *const key[] = {bind, bind + 1};
    std::map<std::pair<int32_t, int32_t>, std::string> kept;
    dice random;
    kudccurdef *cursor = nullptr;
    for (int i = 0; i < 60; i++) {
        const int32_t at[] = {static_cast<int32_t>(random.below(5)),
                              static_cast<int32_t>(random.below(6))};
        const std::string block(random.below(90), static_cast<char>('a' + i % 26));
        if (kudcmsblb(c, cursor, 0, 0, 2, key, at, block.data(),
                      static_cast<uint32_t>(block.size()), &cursor)
            != 0)
            return false;
        kept[{at[0], at[1]}] = block;
    }
    EXPECT_EQ(c->thrd_kudcacc->coun_kudcthd, 0) << "blocks are no rows";
    for (int32_t i = 0; i < 30; i++) {
        const int32_t at[] = {i % 5, i / 5};
        void *block = nullptr;
        if (kudcmrblb(c, cursor, 2, key, at, &block) != 0) return false;
        const auto found = kept.find({at[0], at[1]});
        const std::string wanted = found == kept.end() ? "" : found->second;
        EXPECT_EQ(block != nullptr, !wanted.empty());
        if (block != nullptr) {
            EXPECT_EQ(std::memcmp(block, wanted.data(), wanted.size()), 0);
        }
        ctx->kuxnmfree(ctx, block);
    }
    return true;
}

TEST(Kudcm, CalculatedValuesAreKeptUnderTheirKeys)
{
    sweep_allocations(blocks_of_calculated_values);
    context ctx;
    cache c(ctx, {{numbers.columns, {{KUDC_SEQNTL, {{0, 0}}}}}});
    kudccurdef *cursor = c.cursor(0, 0), *made = nullptr;
    EXPECT_EQ(kudcmsblb(c, cursor, 0, 0, 0, nullptr, nullptr, "b", 1, &made), KUDCA_TYPE);
    ctx.clear();
    cache twice(ctx, {{numbers.columns, {{KUDC_RANDOM, {{0, 0}, {1, 0}, {0, 1}}}}}});
    kudcbvadef bind[2] = {};
    kudcbvadef *const key[] = {bind, bind + 1};
    const int32_t at[] = {7, 9};
    for (std::size_t i = 0; i < 2; i++) bind[i].col_kudcbva = twice.column(0, i);
    EXPECT_EQ(kudcmsblb(twice, nullptr, 0, 0, 2, key, at, "b", 1, &made), 0u);
    void *block = nullptr;
    EXPECT_EQ(kudcmrblb(twice, made, 2, key, at, &block), 0u);
    EXPECT_NE(block, nullptr) << "one column in two places of the key";
    ctx->kuxnmfree(ctx, block);
    int32_t before = 9;
    ctx.clear();
    EXPECT_EQ(kudcmkdel(c, cursor, 0, &before), KUDCA_NOTRANDOM);
    EXPECT_ERRORS(ctx, {"kudca 11"});
}

TEST(Kudcm, AKeyOfSomeColumnsIsStoredAsItIsLookedUp)
{
    context ctx;
    cache c(ctx, {numbers});
    kudcbvadef bind[2] = {};
    kudcbvadef *const key[] = {bind, bind + 1};
    for (std::size_t i = 0; i < 2; i++) bind[i].col_kudcbva = c.column(0, i);
    kudccurdef *asking = c.cursor(0, 0);
    const auto read = [&](kudccurdef *cursor, uint16_t count, int32_t first, int32_t second) {
        const int32_t at[] = {first, second};
        void *block = nullptr;
        EXPECT_EQ(kudcmrblb(c, cursor, count, key, at, &block), 0u);
        const std::string text = block == nullptr ? "" : std::string(static_cast<char *>(block), 1);
        ctx->kuxnmfree(ctx, block);
        return text;
    };
    const goal_key goal(c, 0, numbers.indexes[0], {integer(3), integer(4)});
    kudccurdef *made = nullptr, *aimed = c.cursor(0, 0, &goal.key);
    const struct {
        kudccurdef *cursor;
        const char *block;
        int32_t column, second; // of the thread, and of the key: the cursor's if there is one
    } rows[] = {{nullptr, "a", 7, 7}, {aimed, "b", 9, 4}, {nullptr, "c", 8, 8}};
    for (const auto &row : rows) {
        c.fill(0, {integer(1), integer(row.column)});
        const int32_t first = 5;
        ASSERT_EQ(kudcmsblb(c, row.cursor, 0, 0, 1, key, &first, row.block, 1, &made), 0u);
        c.fill(0, {integer(0), integer(0)});
        EXPECT_EQ(read(made, 1, 5, 0), row.block);
        EXPECT_EQ(read(asking, 2, 5, row.second), row.block);
    }
    EXPECT_EQ(read(asking, 2, 5, 9), "");

    // A key that lacks a column is none that a block is under.
    const goal_key half(c, 0, numbers.indexes[0], {integer(5)});
    kudccurdef *lacking = c.cursor(0, 0, &half.key);
    const int32_t first = 5;
    void *block = nullptr;
    EXPECT_EQ(kudcmsblb(c, lacking, 0, 0, 1, key, &first, "d", 1, &made), KUVAA_NOVALUE);
    ctx.clear();
    EXPECT_EQ(kudcmrblb(c, lacking, 1, key, &first, &block), KUVAA_NOVALUE);
    ctx.clear();

    // Nor is one that keeps a wildcard; what is given is none any more.
    goal_key any(c, 0, numbers.indexes[0], {integer(0), integer(0)});
    for (kudcbvadef &column : any.columns) column.wildcard_kudcbva = 1;
    kudccurdef *matching = c.cursor(0, 0, &any.key);
    EXPECT_EQ(kudcmsblb(c, matching, 0, 0, 1, key, &first, "e", 1, &made), KUVAA_NOVALUE);
    ctx.clear();
    const int32_t both[] = {5, 9};
    EXPECT_EQ(kudcmsblb(c, matching, 0, 0, 2, key, both, "f", 1, &made), 0u);
    EXPECT_EQ(read(matching, 2, 5, 9) + read(asking, 2, 5, 4), "fb");
}

TEST(Kudcm, ANumberWithItsLengthInFrontIsStoredAsItIsLookedUp)
{
    const thread_shape shape = {{{KUDC_NUMBER, 21}, {KUDC_INTEGER, 4}},
                                {{KUDC_RANDOM, {{0, 0}, {1, 0}}}}};
    context ctx;
    cache c(ctx, {shape});
    goal_key goal(c, 0, shape.indexes[0], {"", integer(4)});
    std::memcpy(goal.columns[0].val_kudcbva, "\x02\xC1\x20", 3);
    kudccurdef *cursor = c.cursor(0, 0, &goal.key), *made = nullptr;
    kudcbvadef bind = {};
    bind.col_kudcbva = c.column(0, 1);
    kudcbvadef *const key[] = {&bind};
    const int32_t at = 5;
    for (const char *text : {"a", "b"}) {
        ASSERT_EQ(kudcmsblb(c, cursor, 0, 0, 1, key, &at, text, 1, &made), 0u);
        void *block = nullptr;
        ASSERT_EQ(kudcmrblb(c, cursor, 1, key, &at, &block), 0u);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(*static_cast<char *>(block), *text);
        ctx->kuxnmfree(ctx, block);
    }
}

TEST(Kudcm, BlocksAtPositionsAreWrittenOverOrMoved)
{
    context ctx;
    cache c(ctx, {numbers});
    static constexpr struct {
        int32_t at;
        uint32_t length;
        int32_t position, end; // or the error's number, and -1
    } rows[] = {
        {-1, 0, 0, 4},   {-1, 10, 4, 18}, {4, 10, 4, 18},       {4, 3, 4, 18},
        {4, 4, 18, 26},  {0, 0, 0, 26},   {26, 1, 15, -1},      {23, 1, 15, -1},
        {-2, 1, 15, -1}, {12, 0, 15, -1}, {-1, 9000, 26, 9030},
    };
    for (const auto &row : rows) {
        const std::string block(row.length, 'b');
        int32_t position = row.at;
        const uint32_t status = kudcmsfpblb(c, block.data(), row.length, &position);
        EXPECT_EQ(status, row.end < 0 ? KUDCA_POSITION : 0u) << row.at;
        ctx.clear();
        if (row.end < 0) continue;
        EXPECT_EQ(position, row.position);
        EXPECT_EQ(c->nxdo_kudcacc, row.end);
        void *read = nullptr;
        uint32_t length = 99;
        EXPECT_EQ(kudcmrfpblb(c, position, &read, &length), 0u);
        ASSERT_EQ(length, row.length);
        EXPECT_EQ(read == nullptr, length == 0);
        if (length != 0) {
            EXPECT_EQ(std::string(static_cast<char *>(read), length), block);
        }
        ctx->kuxnmfree(ctx, read);
    }
    void *read = &ctx;
    uint32_t length = 99;
    for (const int32_t position : {-1, 9030}) {
        EXPECT_EQ(kudcmrfpblb(c, position, &read, &length), KUDCA_POSITION);
        EXPECT_EQ(read, nullptr);
        EXPECT_ERRORS(ctx, {"kudca 15"});
    }
}

TEST(Kudcm, ABlockThatCannotBeWrittenOverIsWhatItWas)
{
    const std::string before(5000, 'o'), after(4000, 'n');
    for (int failing = 1; failing < 4; failing++) {
        system_faults faults;
        context ctx;
        cache c(ctx, {numbers}, 2);
        int32_t position = KUDC_NONE, other = KUDC_NONE;
        const auto put = [&](const std::string &block, int32_t *at) {
            return kudcmsfpblb(c, block.data(), static_cast<uint32_t>(block.size()), at);
        };
        ASSERT_EQ(put(before, &other), 0u);
        ASSERT_EQ(put(before, &position), 0u);
        for (int i = 0; i < 3; i++) ASSERT_EQ(put(before, &(other = KUDC_NONE)), 0u);
        faults.fail_from_now("pwrite", failing, ENOSPC);
        const uint32_t status = put(after, &position);
        faults.fail_from_now("pwrite", 0, 0);
        EXPECT_TRUE(status == 0 || faults.failed());
        ctx.clear();
        void *read = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(kudcmrfpblb(c, position, &read, &length), 0u);
        EXPECT_EQ(std::string(static_cast<char *>(read), length), status == 0 ? after : before);
        ctx->kuxnmfree(ctx, read);
    }
}

// A client's key is what it writes into a cursor's.
TEST(Kudcm, AKeyThatWasSpoiltInItsCursorIsRefused)
{
    const thread_shape shape = {numbers.columns,
                                {{KUDC_RANDOM, {{0, 0}, {1, 1}}},
                                 {KUDC_SEQNTL, {{0, 0}, {1, 1}}},
                                 {KUDC_DYNBRK, {{0, 0}, {1, 1}}}}};
    static constexpr void (*spoil[])(kudckeydef *) = {
        [](kudckeydef *key) { key->numbva_kudckey = 3; },
        [](kudckeydef *key) { key->numlevsize_kudckey = 3; },
        [](kudckeydef *key) { key->arybva_kudckey[1].level_kudcbva = 2; },
        [](kudckeydef *key) { key->arybva_kudckey[1].len_kudcbva = 6; },
        [](kudckeydef *key) { key->arybva_kudckey[0].val_kudcbva = nullptr; },
    };
    context ctx;
    cache c(ctx, {shape});
    for (int i = 0; i < 3; i++) ASSERT_GE(c.store(0, {integer(1), integer(2), "x"}, {2, 2, 2}), 0);
    for (int16_t index = 0; index < 3; index++)
        for (const auto damage : spoil) {
            kudccurdef *cursor = c.cursor(0, index);
            kudckeydef *key = cursor->keyp_kudccur;
            const kudckeydef sound = *key;
            const std::vector<kudcbvadef> columns(key->arybva_kudckey, key->arybva_kudckey + 2);
            damage(key);
            int32_t state = 0;
            uint8_t found = KUDC_ROW;
            int refused = 0;
            refused += kudcmksrch(c, cursor, 1, KUDC_NEXT, &state) == KUVAA_NOVALUE;
            ctx.clear();
            refused += kudcmbcnt(c, cursor, 2, &state) == KUVAA_NOVALUE;
            ctx.clear();
            refused += kudcmkdel(c, cursor, 1, &state) == KUVAA_NOVALUE;
            ctx.clear();
            if (index == 0) refused += kudcmrnxt(c, cursor, 1, &found) == KUVAA_NOVALUE;
            ctx.clear();
            *key = sound;
            std::copy(columns.begin(), columns.end(), key->arybva_kudckey);
            EXPECT_EQ(refused, index == 0 ? 4 : 3) << index;
            EXPECT_EQ(kudcffrcurs(c, cursor), 0u);
        }
}

// A field of a block that is written over.
struct overwritten {
    int32_t block;
    std::size_t offset;
    int32_t value;
    std::size_t bytes;
};

TEST(Kudcm, DamagedBlocksAreRefusedAndNobodyGoesRoundInThem)
{
    constexpr int32_t sub = 512, left = 4096; // the first key's tree, and the leaf with the key
    constexpr std::size_t entry = ku::cache::block_head;
    const struct {
        const char *what;
        std::vector<overwritten> fields;
        int refusals; // of all the operations
    } rows[] = {
        {"none", {}, 0},
        {"less", {{0, offsetof(kudcidhdef, less_kudcidh), 0, 4}}, 8},
        {"child", {{0, entry, 0, 4}}, 2},
        {"last", {{sub, offsetof(kudcidhdef, last_kudcidh), 0, 4}}, 1},
        {"chain",
         {{left, offsetof(kudcidhdef, kyct_kudcidh), 0, 2},
          {left, offsetof(kudcidhdef, rsib_kudcidh), left, 4}},
         3},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        context ctx;
        cache c(ctx, {numbers}, 15);
        for (int i = 0; i < 20; i++)
            ASSERT_GE(c.store(0, {integer(10 * i), integer(5), "x"}, {2}), 0);
        const goal_key low(c, 0, numbers.indexes[0], {integer(0), integer(5)});
        const goal_key absent(c, 0, numbers.indexes[0], {integer(7)});
        kudccurdef *cursor = c.cursor(0, 0, &low.key);
        std::string root(512, 0);
        ASSERT_EQ(ku::cache::read_block(c, 0, 512, root.data()), 0u);
        ASSERT_EQ(ku::cache::header_of(reinterpret_cast<unsigned char *>(root.data())).less_kudcidh,
                  left);
        auto *file = static_cast<skufv *>(c->idxf_kudcacc);
        for (overwritten field : row.fields) {
            file->skufvpos = static_cast<uint32_t>(field.block + static_cast<int>(field.offset));
            skufvmove(ctx, c->skufh_kudcacc, file, &field.value, static_cast<uint32_t>(field.bytes),
                      SKUFV_PUT);
        }
        int refusals = 0;
        const auto count = [&](uint32_t status) {
            EXPECT_TRUE(status == 0 || status == KUVAA_MISSING) << spelled(status);
            refusals += status == KUVAA_MISSING;
            ctx.clear();
        };
        int32_t answer = 0;
        uint8_t found = 0;
        count(kudcmrnxt(c, cursor, 0, &found));
        count(kudcmksrch(c, cursor, 0, KUDC_NEXT, &answer));
        count(kudcmksrch(c, cursor, 0, KUDC_FIRST, &answer));
        count(kudcmpksrch(c, 0, 0, &absent.key, &answer));
        c.cursor(0, 0);
        count(c.status);
        directory dir;
        void *stream = skubopen(ctx, dir.path("dump").c_str(), "w");
        count(kudcpidx(c, 1, 0, 0, stream));
        skubclose(ctx, stream);
        for (const int key : {-1, 0, 199}) {
            c.store(0, {integer(key), integer(6), "y"}, {2});
            count(c.status);
        }
        EXPECT_EQ(refusals, row.refusals);
    }
}

TEST(Kudcm, ABlockInHandIsNotWorkedOnWhereItPassesItsBuffer)
{
    context ctx;
    cache c(ctx, {numbers});
    ASSERT_GE(c.store(0, {integer(1), integer(5), "x"}, {2}), 0);
    const goal_key key(c, 0, numbers.indexes[0], {integer(0), integer(5)});
    kudcidxdef *index = c->thrd_kudcacc->idxs_kudcthd;
    for (const auto &field : std::vector<std::pair<std::size_t, uint16_t>>{
             {offsetof(kudcidhdef, size_kudcidh), 0xFFFF},
             {offsetof(kudcidhdef, free_kudcidh), 0xFFFF},
             {offsetof(kudcidhdef, kyct_kudcidh), 0xFFFF},
             {ku::cache::block_head + offsetof(kudcinddef, offs_kudcind), 510}}) {
        const bool header = field.first < ku::cache::block_head;
        ASSERT_EQ(ku::cache::read_block(c, 0, 512, c->indx_kudcacc), 0u);
        std::memcpy(c->indx_kudcacc + field.first, &field.second, sizeof field.second);
        int16_t position = 0;
        int32_t answer = 0, child = KUDC_NONE, root = KUDC_NONE;
        uint32_t size = 0;
        unsigned char *block = c->indx_kudcacc;
        EXPECT_EQ(kudcksrc(c, &key.key, &position, &answer), KUVAA_MISSING);
        EXPECT_EQ(kudckins(c, &index->goal_kudcidx, c->thrd_kudcacc, index, &child, &root, &answer),
                  KUVAA_MISSING);
        EXPECT_EQ(kudckgt(c, block, 0, index->cols_kudcidx, &size), KUVAA_MISSING);
        EXPECT_EQ(kudckrep(c, c->copy_kudcacc, block, 0, &key.key), KUVAA_MISSING);
        if (header) {
            EXPECT_EQ(kudckzdrc(c, c->thrd_kudcacc, block, 0, 0), KUVAA_MISSING);
        } else {
            EXPECT_EQ(kudckdel(c->copy_kudcacc, block, 0), KUVAA_MISSING);
        }
        ctx.clear();
    }
}

TEST(Kudcm, FailingFilesAreToldAndWhatWasStoredBeforeIsStillThere)
{
    sweep_system_calls([](context &ctx) {
        cache c(ctx, {numbers}, 2);
        c.whole = false;
        if (c.status != 0) return false;
        int stored = 0;
        while (stored < 150 && c.store(0, {integer(stored % 40), integer(stored), "r"}, {2}) >= 0)
            stored++;
        const bool all = stored == 150;
        EXPECT_EQ(all, ctx.errors().empty());
        if (!all) ctx.clear();
        kudccurdef *rows = c.cursor(0, -1);
        uint8_t found = KUDC_ROW;
        int read = 0;
        while (rows != nullptr && kudcmrnxt(c, rows, 0, &found) == 0 && found == KUDC_ROW)
            EXPECT_EQ(c.current(0)[1], integer(read++));
        if (ctx.errors().empty()) {
            EXPECT_EQ(read, stored);
        }
        return all && ctx.errors().empty();
    });
}

TEST(Kudcm, BlocksThatAFailedStoreLeftBehindAreNotBelieved)
{
    const thread_shape shape = {{{KUDC_CHARACTER, 60}, {KUDC_INTEGER, 4}, {KUDC_CHARACTER, 700}},
                                {{KUDC_RANDOM, {{0, 0}, {1, 1}}}, {KUDC_SEQNTL, {{0, 0}, {1, 1}}}}};
    constexpr int stores = 90;
    for (const char *const call : {"pwrite", "pread"}) {
        int failures = 0;
        for (bool failed = true; failed; failures += failed) {
            SCOPED_TRACE(call + (" " + std::to_string(failures + 1)));
            system_faults faults;
            context ctx;
            cache c(ctx, {shape}, 2);
            c.whole = false;
            faults.fail_from_now(call, failures + 1, ENOSPC);
            std::vector<values> rows;
            for (int i = 0; i < stores; i++) {
                const std::string name = std::to_string(i * 7919 % 1009);
                const values row = {name + std::string(55, 'k'), integer(i), std::string(600, 'a')};
                for (int again = 0; again < 2; again++) { // one failure is not for ever
                    if (c.store(0, row, {2, 1}) >= 0) {
                        rows.push_back(row);
                        break;
                    }
                    ctx.clear();
                }
            }
            EXPECT_EQ(rows.size(), std::size_t{stores}) << spelled(c.status);
            for (const values &row : rows) { // what was there is not lost
                const goal_key goal(c, 0, shape.indexes[0], {row[0], row[1]});
                kudccurdef *cursor = c.cursor(0, 0, &goal.key);
                uint8_t found = KUDC_NOROW;
                const bool over = faults.failed();
                if (kudcmrnxt(c, cursor, 0, &found) == 0 || over) {
                    EXPECT_EQ(found, KUDC_ROW);
                    EXPECT_EQ(c.current(0), row);
                }
                EXPECT_EQ(kudcffrcurs(c, cursor), 0u);
                ctx.clear();
            }
            for (const int16_t index : {0, 1}) {
                const bool over = faults.failed();
                int read = 0;
                int32_t state = KUDC_POSITIONED;
                uint8_t found = KUDC_ROW;
                kudccurdef *cursor = c.cursor(0, index);
                for (int32_t way = KUDC_FIRST; cursor != nullptr && read <= stores;
                     way = KUDC_NEXT) {
                    if (kudcmksrch(c, cursor, 0, way, &state) != 0 || state != KUDC_POSITIONED
                        || kudcmrnxt(c, cursor, 0, &found) != 0)
                        break;
                    if (found != KUDC_ROW) continue;
                    read++;
                    const kudcbvadef &key = cursor->keyp_kudccur->arybva_kudckey[0];
                    EXPECT_EQ(c.current(0)[0],
                              std::string(key.val_kudcbva, key.val_kudcbva + key.len_kudcbva));
                }
                if (over || !faults.failed()) {
                    EXPECT_EQ(read, stores) << index;
                }
                ctx.clear();
            }
            failed = faults.failed();
        }
        EXPECT_GT(failures, 20) << call;
    }
}
