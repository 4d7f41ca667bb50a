// kudc_bench.cpp - the row cache beside SQLite, with a page cache of the same size, and LMDB
//
// Each side stores the same rows, of an integer that no two rows share, a text
// with 50,000 values, a number, a date and a text that is mostly NULL, in random
// order of their keys, and reads all of them back. What was read is added up in
// the order in which it came and must be what the rows themselves give. Numbers
// and dates are the same bytes on all sides. None of them has to survive the
// process: SQLite and LMDB run without journal and without syncing.
//
// KU_BENCH_ROWS: rows of each store, 1,000,000 if it is not set. Printed before they run.

#include <benchmark/benchmark.h>

#include <lmdb.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kudcf.h"
#include "kudcm.h"
#include "kux.h"
#include "port/core/datevalue.h"
#include "port/core/number.h"
#include "ratio.h"
#include "skuf.h"

namespace
{

constexpr std::size_t ntexts = 50000; // different ones
constexpr std::size_t nlookups = 100000;
constexpr std::uint16_t buffers = 15; // of the block cache, and pages of SQLite's
constexpr std::size_t columns = 5;    // of a row
constexpr std::size_t longest_text = 30, longest_note = 60; // bytes

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "row stores: %s failed\n", what.c_str());
    std::abort();
}
void require(bool done, const char *what)
{
    if (!done) fail(what);
}

// ---- the rows ----

// A value as all sides have it: bytes, or none at all.
struct value {
    const void *bytes;
    std::size_t length;
    bool null;
};

struct text {
    std::uint8_t length;
    char bytes[longest_text];
};

// Whole, so that handing rows out costs no side much.
struct row {
    std::int32_t number; // of its own
    text name;
    std::uint8_t amount_length;
    unsigned char amount[8];
    unsigned char day[ku::core::datevalue_length];
    std::uint8_t note_length; // 0: NULL
    char note[longest_note];
};

struct group {
    text name;
    std::int64_t count, total; // rows, and the sum of their numbers
};

bool operator<(const text &a, const text &b)
{
    return std::string_view(a.bytes, a.length) < std::string_view(b.bytes, b.length);
}

std::uint64_t head_of(const void *bytes, std::size_t length)
{
    std::uint64_t head = length;
    std::memcpy(&head, bytes, std::min(length, sizeof head));
    return head;
}

// What was read, in the order in which it came.
class sum
{
public:
    void add(const std::array<value, columns> &row)
    {
        std::uint64_t mixed = 0;
        for (const value &each : row)
            mixed = mixed * 31 + (each.null ? 7 : each.length + head_of(each.bytes, each.length));
        total_ = (total_ << 5 | total_ >> 59) ^ mixed;
        count_++;
    }
    bool operator==(const sum &other) const
    {
        return total_ == other.total_ && count_ == other.count_;
    }

private:
    std::uint64_t total_ = 0;
    std::size_t count_ = 0;
};

class table
{
public:
    explicit table(std::size_t count) : rows(count), sorted(count)
    {
        std::vector<text> names;
        for (std::size_t i = 0; i < std::min(ntexts, count); i++) names.push_back(name(i));
        std::vector<std::int32_t> numbers(count);
        std::iota(numbers.begin(), numbers.end(), 1);
        std::shuffle(numbers.begin(), numbers.end(), random_);
        for (std::size_t i = 0; i < count; i++) {
            fill(rows[i], numbers[i]);
            rows[i].name = names[random_() % names.size()];
        }
        std::iota(sorted.begin(), sorted.end(), 0U);
        std::sort(sorted.begin(), sorted.end(), [this](std::uint32_t a, std::uint32_t b) {
            if (rows[a].name < rows[b].name) return true;
            return !(rows[b].name < rows[a].name) && rows[a].number < rows[b].number;
        });
        for (const std::uint32_t each : sorted) count_in(rows[each]);
        for (std::size_t i = 0; i < std::min(nlookups, count); i++)
            lookups.push_back(rows[random_() % count]);
        std::printf("row stores: %zu rows, %zu texts, %zu look-ups\n", count, groups.size(),
                    lookups.size());
        for (const row &each : rows) stored.add(values(each));
        for (const std::uint32_t each : sorted) keyed.add(values(rows[each]));
        for (const row &each : lookups) found.add(values(each));
    }
    static std::array<value, columns> values(const row &each)
    {
        const bool null = each.note_length == 0;
        return {{{&each.number, sizeof each.number, false},
                 {each.name.bytes, each.name.length, false},
                 {each.amount, each.amount_length, false},
                 {each.day, sizeof each.day, false},
                 {null ? nullptr : each.note, each.note_length, null}}};
    }

    std::vector<row> rows;
    std::vector<std::uint32_t> sorted; // rows in key order
    std::vector<row> lookups;          // whose keys are looked up
    std::vector<group> groups;         // in key order
    sum stored, keyed, found;

private:
    text name(std::size_t number)
    {
        static constexpr const char *people[] = {"Adams", "Brontë",   "Carver", "Dostal",
                                                 "Eliot", "Ferrante", "Grass",  "Hrabal"};
        char bytes[longest_text + 1];
        const int length =
            std::snprintf(bytes, sizeof bytes, "%s, order %07zu",
                          people[random_() % std::size(people)], number * 179 % ntexts * 113);
        text made = {static_cast<std::uint8_t>(length), {}};
        std::memcpy(made.bytes, bytes, made.length);
        return made;
    }
    void fill(row &each, std::int32_t number)
    {
        each.number = number;
        char amount[32];
        const int length = std::snprintf(amount, sizeof amount, "%u.%02u",
                                         static_cast<unsigned>(random_() % 100000),
                                         static_cast<unsigned>(random_() % 100));
        unsigned char bytes[ku::core::number_longest];
        std::size_t used = 0;
        require(ku::core::text_to_number(amount, static_cast<std::size_t>(length), bytes, &used)
                    && used <= sizeof each.amount,
                "a number");
        std::memcpy(each.amount, bytes, used);
        each.amount_length = static_cast<std::uint8_t>(used);
        ku::core::date day = {};
        day.year = static_cast<std::int16_t>(1990 + random_() % 40);
        day.month = static_cast<std::uint8_t>(1 + random_() % 12);
        day.day = static_cast<std::uint8_t>(1 + random_() % 28);
        require(ku::core::date_to_value(day, each.day), "a date");
        if (random_() % 10 < 7) return;
        each.note_length = static_cast<std::uint8_t>(10 + random_() % (longest_note - 10));
        std::memset(each.note, static_cast<int>('a' + random_() % 26), each.note_length);
    }
    void count_in(const row &each)
    {
        if (groups.empty() || groups.back().name < each.name) groups.push_back({each.name, 0, 0});
        groups.back().count++;
        groups.back().total += each.number;
    }

    std::mt19937 random_{1};
};

std::size_t row_count()
{
    const char *given = std::getenv("KU_BENCH_ROWS");
    const long count = given != nullptr ? std::atol(given) : 1000000;
    require(count > 0, "KU_BENCH_ROWS");
    return static_cast<std::size_t>(count);
}

const table &rows()
{
    static const table made(row_count());
    return made;
}

std::string directory()
{
    const char *given = std::getenv("TMPDIR");
    return std::string(given != nullptr ? given : "/tmp") + "/";
}
std::string file_name(const char *kind)
{
    static int made = 0;
    return directory() + kind + std::to_string(getpid()) + "_" + std::to_string(made++);
}

// What a store is made for.
enum class plan { keyed, plain, grouped };

// ---- ours ----

class cache
{
public:
    explicit cache(plan made) : ctx_(context()), blocks_(skufcreate(ctx_, buffers))
    {
        static constexpr struct {
            std::uint8_t datatype;
            std::uint32_t longest; // bytes
        } shapes[columns] = {{KUDC_INTEGER, 4},
                             {KUDC_CHARACTER, longest_text},
                             {KUDC_NUMBER, ku::core::number_longest},
                             {KUDC_DATE, ku::core::datevalue_length},
                             {KUDC_CHARACTER, longest_note}};
        for (std::size_t i = 0; i < columns; i++) {
            columns_[i].xdbtyp_kudxcol = shapes[i].datatype;
            columns_[i].maxlen_kudxcol = shapes[i].longest;
            columns_[i].curval_kudxcol = buffers_[i];
            pointers_[i] = &columns_[i];
        }
        kudcbvadef keys[2] = {}; // the text; the number
        for (std::size_t i = 0; i < 2; i++) {
            keys[i].col_kudcbva = &columns_[1 - i];
            keys[i].sort_kudcbva = KUDC_ASCENDING;
            keys[i].xdbtyp_kudcbva = columns_[1 - i].xdbtyp_kudxcol;
            keys[i].level_kudcbva = static_cast<std::uint16_t>(i);
        }
        kudciddtdef index = {};
        levels_ = made == plan::keyed ? 2 : 1;
        index.idxt_kudciddt = made == plan::keyed ? KUDC_RANDOM : KUDC_DYNBRK;
        index.numbva_kudciddt = levels_;
        index.arybva_kudciddt = keys;
        kudctddtdef thread = {};
        thread.numcol_kudctddt = columns;
        thread.numidd_kudctddt = made == plan::plain ? 0 : 1;
        thread.arycol_kudctddt = pointers_;
        thread.aryidd_kudctddt = &index;
        const std::string prefix = directory();
        expect(kudcftcreate(ctx_, nullptr, blocks_, prefix.c_str(), prefix.c_str(), 1, &thread,
                            &acmp_));
    }
    cache(const cache &) = delete;
    cache &operator=(const cache &) = delete;
    ~cache()
    {
        kudcfdestroy(acmp_);
        skufdestroy(ctx_, blocks_);
        kuxdestroy(ctx_);
    }

    void begin() {}
    void add(const row &each)
    {
        const std::array<value, columns> from = table::values(each);
        for (std::size_t i = 0; i < columns; i++) {
            kudxcoldef &column = columns_[i];
            column.curnul_kudxcol = from[i].null ? KUDC_NULL : 0;
            column.curlen_kudxcol = static_cast<std::uint32_t>(from[i].length);
            if (!from[i].null) std::memcpy(column.curval_kudxcol, from[i].bytes, from[i].length);
        }
        std::int32_t position = 0;
        expect(kudcmrstr(acmp_, 0, &levels_, 1, &position));
    }
    void end() {}

    sum scan()
    {
        sum total;
        kudccurdef *cursor = open(-1);
        while (next(cursor, 0)) total.add(current());
        close(cursor);
        return total;
    }
    // Rows under a key are read until there is none; then the deepest level with a further key
    // moves on.
    sum walk()
    {
        sum total;
        kudccurdef *cursor = open(0);
        bool more = search(cursor, 0, KUDC_FIRST);
        while (more) {
            while (next(cursor, 1)) total.add(current());
            more = search(cursor, 1, KUDC_NEXT) || search(cursor, 0, KUDC_NEXT);
        }
        close(cursor);
        return total;
    }
    sum look_up()
    {
        sum total;
        kudccurdef *cursor = open(0);
        for (const row &each : rows().lookups) {
            const std::array<value, columns> from = table::values(each);
            for (std::size_t i = 0; i < 2; i++) {
                kudcbvadef &key = cursor->keyp_kudccur->arybva_kudckey[i];
                std::memcpy(key.val_kudcbva, from[1 - i].bytes, from[1 - i].length);
                key.len_kudcbva = static_cast<std::uint32_t>(from[1 - i].length);
                key.set_kudcbva = 1;
                key.valnul_kudcbva = 0;
            }
            require(search(cursor, 1, KUDC_CURRENT) && next(cursor, 1), "a look-up");
            total.add(current());
        }
        close(cursor);
        return total;
    }
    template <typename Group> void groups(const Group &group)
    {
        kudccurdef *cursor = open(0);
        for (bool more = search(cursor, 0, KUDC_FIRST); more; more = search(cursor, 0, KUDC_NEXT)) {
            std::int64_t count = 0, total = 0;
            while (next(cursor, 0)) {
                std::int32_t number = 0;
                std::memcpy(&number, buffers_[0], sizeof number);
                total += number;
                count++;
            }
            const kudcbvadef &key = cursor->keyp_kudccur->arybva_kudckey[0];
            group(
                std::string_view(reinterpret_cast<const char *>(key.val_kudcbva), key.len_kudcbva),
                count, total);
        }
        close(cursor);
    }

private:
    static kux *context()
    {
        setenv("LC_ALL", "C.UTF-8", 1); // order by value, as the peers have it
        return kuxcreate(nullptr);
    }
    static void expect(std::uint32_t status) { require(status == 0, "the cache"); }
    kudccurdef *open(std::int16_t index)
    {
        kudccurdef *cursor = nullptr;
        expect(kudcfnwcurs(acmp_, nullptr, 0, index, 0, KUDC_NONE, &cursor));
        return cursor;
    }
    void close(kudccurdef *cursor) { expect(kudcffrcurs(acmp_, cursor)); }
    bool next(kudccurdef *cursor, std::uint8_t level)
    {
        std::uint8_t found = 0;
        expect(kudcmrnxt(acmp_, cursor, level, &found));
        return found == KUDC_ROW;
    }
    bool search(kudccurdef *cursor, std::uint16_t level, std::int32_t relop)
    {
        std::int32_t state = 0;
        expect(kudcmksrch(acmp_, cursor, level, relop, &state));
        return state == KUDC_POSITIONED;
    }
    std::array<value, columns> current() const
    {
        std::array<value, columns> now;
        for (std::size_t i = 0; i < columns; i++)
            now[i] = {buffers_[i], columns_[i].curlen_kudxcol, columns_[i].curnul_kudxcol != 0};
        return now;
    }

    kux *ctx_;
    void *blocks_;
    kudcaccdef *acmp_ = nullptr;
    std::uint16_t levels_ = 0;
    kudxcoldef columns_[columns] = {};
    kudxcoldef *pointers_[columns] = {};
    unsigned char buffers_[columns][64] = {};
};

// ---- SQLite ----

class sqlite
{
public:
    explicit sqlite(plan made) : name_(file_name("ku_sqlite_"))
    {
        require(sqlite3_open(name_.c_str(), &db_) == SQLITE_OK, "SQLite");
        const std::string schema = made == plan::grouped ? "temp" : "main";
        run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
            "PRAGMA locking_mode=EXCLUSIVE; PRAGMA temp_store=FILE");
        run("PRAGMA " + schema + ".cache_size=" + std::to_string(buffers));
        run("CREATE TABLE " + schema
            + ".cached(number INTEGER, text TEXT, amount BLOB, day BLOB, note TEXT)");
        if (made == plan::keyed) run("CREATE INDEX by_key ON cached(text, number)");
        insert_ = prepare("INSERT INTO cached VALUES(?,?,?,?,?)");
    }
    sqlite(const sqlite &) = delete;
    sqlite &operator=(const sqlite &) = delete;
    ~sqlite()
    {
        sqlite3_finalize(insert_);
        sqlite3_close(db_);
        unlink(name_.c_str());
    }

    void begin() { run("BEGIN"); }
    void add(const row &each)
    {
        const std::array<value, columns> from = table::values(each);
        sqlite3_bind_int(insert_, 1, each.number);
        for (int i = 1; i < static_cast<int>(columns); i++) {
            const value &now = from[static_cast<std::size_t>(i)];
            const int length = static_cast<int>(now.length);
            if (now.null)
                sqlite3_bind_null(insert_, i + 1);
            else if (i == 1 || i == 4)
                sqlite3_bind_text(insert_, i + 1, static_cast<const char *>(now.bytes), length,
                                  SQLITE_STATIC);
            else
                sqlite3_bind_blob(insert_, i + 1, now.bytes, length, SQLITE_STATIC);
        }
        require(sqlite3_step(insert_) == SQLITE_DONE, "SQLite's insert");
        sqlite3_reset(insert_);
    }
    void end() { run("COMMIT"); }

    sum scan() { return all("SELECT number, text, amount, day, note FROM cached"); }
    sum walk()
    {
        return all("SELECT number, text, amount, day, note FROM cached INDEXED BY by_key "
                   "ORDER BY text, number");
    }
    sum look_up()
    {
        sum total;
        sqlite3_stmt *select = prepare("SELECT number, text, amount, day, note FROM cached "
                                       "INDEXED BY by_key WHERE text=? AND number=?");
        for (const row &each : rows().lookups) {
            sqlite3_bind_text(select, 1, each.name.bytes, each.name.length, SQLITE_STATIC);
            sqlite3_bind_int(select, 2, each.number);
            require(sqlite3_step(select) == SQLITE_ROW, "SQLite's look-up");
            std::int32_t number = 0;
            total.add(current(select, &number));
            sqlite3_reset(select);
        }
        sqlite3_finalize(select);
        return total;
    }
    template <typename Group> void groups(const Group &group)
    {
        sqlite3_stmt *select =
            prepare("SELECT text, count(*), sum(number) FROM cached GROUP BY text");
        while (sqlite3_step(select) == SQLITE_ROW) {
            const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(select, 0));
            group(std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(select, 0))),
                  sqlite3_column_int64(select, 1), sqlite3_column_int64(select, 2));
        }
        sqlite3_finalize(select);
    }

private:
    void run(const std::string &text)
    {
        char *message = nullptr;
        sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &message);
        if (message != nullptr) fail(message);
    }
    sqlite3_stmt *prepare(const char *text)
    {
        sqlite3_stmt *made = nullptr;
        require(sqlite3_prepare_v2(db_, text, -1, &made, nullptr) == SQLITE_OK, text);
        return made;
    }
    static std::array<value, columns> current(sqlite3_stmt *select, std::int32_t *number)
    {
        *number = sqlite3_column_int(select, 0);
        std::array<value, columns> now = {{{number, sizeof *number, false}}};
        for (int i = 1; i < static_cast<int>(columns); i++) {
            const void *bytes = sqlite3_column_blob(select, i);
            const auto length = static_cast<std::size_t>(sqlite3_column_bytes(select, i));
            now[static_cast<std::size_t>(i)] = {bytes, length, bytes == nullptr};
        }
        return now;
    }
    sum all(const char *text)
    {
        sum total;
        sqlite3_stmt *select = prepare(text);
        std::int32_t number = 0;
        while (sqlite3_step(select) == SQLITE_ROW) total.add(current(select, &number));
        sqlite3_finalize(select);
        return total;
    }

    std::string name_;
    sqlite3 *db_ = nullptr;
    sqlite3_stmt *insert_ = nullptr;
};

// ---- LMDB ----

// Rows by their number of arrival, and an index that leads there. Values lie one behind
// another, each with its length and null indicator in front.
class lmdb
{
public:
    explicit lmdb(plan made) : keyed_(made == plan::keyed), name_(file_name("ku_lmdb_"))
    {
        expect(mdb_env_create(&env_));
        expect(mdb_env_set_maxdbs(env_, 2));
        expect(mdb_env_set_mapsize(env_, std::size_t{16} << 30));
        expect(mdb_env_open(env_, name_.c_str(),
                            MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP | MDB_NOLOCK, 0600));
        MDB_txn *making = nullptr;
        expect(mdb_txn_begin(env_, nullptr, 0, &making));
        expect(mdb_dbi_open(making, "rows", MDB_CREATE | MDB_INTEGERKEY, &rows_));
        expect(mdb_dbi_open(making, "keys", MDB_CREATE, &keys_));
        expect(mdb_txn_commit(making));
    }
    lmdb(const lmdb &) = delete;
    lmdb &operator=(const lmdb &) = delete;
    ~lmdb()
    {
        mdb_env_close(env_);
        unlink(name_.c_str());
        unlink((name_ + "-lock").c_str());
    }

    void begin() { expect(mdb_txn_begin(env_, nullptr, 0, &storing_)); }
    void add(const row &each)
    {
        unsigned char bytes[256];
        unsigned char *to = bytes;
        for (const value &now : table::values(each)) {
            const auto length = static_cast<std::uint32_t>(now.length);
            std::memcpy(to, &length, sizeof length);
            to[sizeof length] = now.null ? 1 : 0;
            to += sizeof length + 1;
            if (!now.null) std::memcpy(to, now.bytes, length);
            to += length;
        }
        MDB_val number = {sizeof count_, &count_};
        MDB_val data = {static_cast<std::size_t>(to - bytes), bytes};
        expect(mdb_put(storing_, rows_, &number, &data, MDB_APPEND));
        if (keyed_) {
            unsigned char room[longest_text + 5];
            MDB_val key = key_of(each, room);
            expect(mdb_put(storing_, keys_, &key, &number, 0));
        }
        count_++;
    }
    void end() { expect(mdb_txn_commit(storing_)); }

    sum scan()
    {
        return reading([this](MDB_txn *txn, sum *total) {
            each_of(txn, rows_, [&](const MDB_val &data) { total->add(values(data)); });
        });
    }
    sum walk()
    {
        return reading([this](MDB_txn *txn, sum *total) {
            each_of(txn, keys_, [&](MDB_val number) { total->add(row_of(txn, number)); });
        });
    }
    sum look_up()
    {
        return reading([this](MDB_txn *txn, sum *total) {
            for (const row &each : rows().lookups) {
                unsigned char room[longest_text + 5];
                MDB_val key = key_of(each, room), number;
                expect(mdb_get(txn, keys_, &key, &number));
                total->add(row_of(txn, number));
            }
        });
    }

private:
    static void expect(int status)
    {
        if (status != 0) fail(mdb_strerror(status));
    }
    // The text, a NUL, and the number so that its bytes sort.
    static MDB_val key_of(const row &each, unsigned char *room)
    {
        const std::size_t length = each.name.length;
        std::memcpy(room, each.name.bytes, length);
        room[length] = 0;
        const std::uint32_t sorting =
            __builtin_bswap32(static_cast<std::uint32_t>(each.number) ^ 0x80000000U);
        std::memcpy(room + length + 1, &sorting, sizeof sorting);
        return {length + 1 + sizeof sorting, room};
    }
    static std::array<value, columns> values(const MDB_val &data)
    {
        std::array<value, columns> now;
        const auto *from = static_cast<const unsigned char *>(data.mv_data);
        for (value &each : now) {
            std::uint32_t length = 0;
            std::memcpy(&length, from, sizeof length);
            each = {from + sizeof length + 1, length, from[sizeof length] != 0};
            from += sizeof length + 1 + length;
        }
        return now;
    }
    std::array<value, columns> row_of(MDB_txn *txn, MDB_val number) const
    {
        MDB_val data;
        expect(mdb_get(txn, rows_, &number, &data));
        return values(data);
    }
    template <typename Visit> static void each_of(MDB_txn *txn, MDB_dbi from, const Visit &visit)
    {
        MDB_cursor *cursor = nullptr;
        expect(mdb_cursor_open(txn, from, &cursor));
        MDB_val key, data;
        while (mdb_cursor_get(cursor, &key, &data, MDB_NEXT) == 0) visit(data);
        mdb_cursor_close(cursor);
    }
    template <typename Read> sum reading(const Read &read)
    {
        MDB_txn *txn = nullptr;
        expect(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn));
        sum total;
        read(txn, &total);
        mdb_txn_abort(txn);
        return total;
    }

    bool keyed_;
    std::string name_;
    MDB_env *env_ = nullptr;
    MDB_dbi rows_ = 0, keys_ = 0;
    MDB_txn *storing_ = nullptr;
    std::size_t count_ = 0;
};

// ---- the work ----

template <typename Store> void fill(Store &store, bool sorted)
{
    const table &from = rows();
    store.begin();
    for (std::size_t i = 0; i < from.rows.size(); i++)
        store.add(from.rows[sorted ? from.sorted[i] : i]);
    store.end();
}

// A filled store for the readers, kept until all is done.
template <typename Store> std::unique_ptr<Store> &kept(plan made)
{
    static std::unique_ptr<Store> stores[3];
    return stores[static_cast<std::size_t>(made)];
}
template <typename Store> Store &filled(plan made)
{
    std::unique_ptr<Store> &store = kept<Store>(made);
    if (store == nullptr) {
        store = std::make_unique<Store>(made);
        fill(*store, made == plan::grouped);
    }
    return *store;
}

template <typename Store> void store(benchmark::State &state, plan made)
{
    rows();
    for (auto _ : state) {
        state.PauseTiming();
        auto store = std::make_unique<Store>(made);
        state.ResumeTiming();
        fill(*store, false);
        state.PauseTiming();
        kept<Store>(made) = std::move(store); // the one before is destroyed
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(rows().rows.size()) * state.iterations());
}

template <typename Store>
void read(benchmark::State &state, plan made, sum (Store::*reader)(), const sum &expected,
          std::size_t count)
{
    Store &store = filled<Store>(made);
    for (auto _ : state) require((store.*reader)() == expected, "a reader");
    state.SetItemsProcessed(static_cast<std::int64_t>(count) * state.iterations());
}
template <typename Store> void walk(benchmark::State &state)
{
    read(state, plan::keyed, &Store::walk, rows().keyed, rows().rows.size());
}
template <typename Store> void scan(benchmark::State &state)
{
    read(state, plan::plain, &Store::scan, rows().stored, rows().rows.size());
}
template <typename Store> void look_up(benchmark::State &state)
{
    read(state, plan::keyed, &Store::look_up, rows().found, rows().lookups.size());
}

// Counts and sums of all groups; the rows lie in the order of the groups.
template <typename Store> void groups(benchmark::State &state)
{
    Store &store = filled<Store>(plan::grouped);
    const std::vector<group> &expected = rows().groups;
    for (auto _ : state) {
        std::size_t at = 0;
        store.groups([&](std::string_view name, std::int64_t count, std::int64_t total) {
            require(at < expected.size(), "a group too many");
            const group &now = expected[at++];
            require(name == std::string_view(now.name.bytes, now.name.length) && count == now.count
                        && total == now.total,
                    "a group is something else");
        });
        require(at == expected.size(), "groups are missing");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(rows().rows.size()) * state.iterations());
}

constexpr int few = 3; // repetitions, of what takes seconds

template <typename Store> void enlist(const std::string &name)
{
    const auto take = [&](const char *what, void (*work)(benchmark::State &)) {
        benchmark::RegisterBenchmark((name + what).c_str(), work)
            ->Unit(benchmark::kMillisecond)
            ->Repetitions(few)
            ->Iterations(1);
    };
    take("/store_keyed", [](benchmark::State &state) { store<Store>(state, plan::keyed); });
    take("/walk", walk<Store>);
    take("/look_up", look_up<Store>);
    take("/store", [](benchmark::State &state) { store<Store>(state, plan::plain); });
    take("/scan", scan<Store>);
    if constexpr (requires(Store & each) { each.groups([](auto...) {}); })
        take("/groups", groups<Store>);
}

const bool enlisted = [] {
    enlist<cache>("BM_kudc");
    enlist<sqlite>("BM_sqlite");
    enlist<lmdb>("BM_lmdb");
    return true;
}();

KU_RATIO("rows stored with two-level keys, beside SQLite", "BM_kudc/store_keyed",
         "BM_sqlite/store_keyed", 2.0, 5.0);
KU_RATIO("all rows read back in key order, beside SQLite", "BM_kudc/walk", "BM_sqlite/walk", 2.0,
         4.0);
KU_RATIO("100,000 rows looked up by key, beside SQLite", "BM_kudc/look_up", "BM_sqlite/look_up",
         1.5, 4.0);
KU_RATIO("rows stored without index, beside SQLite", "BM_kudc/store", "BM_sqlite/store", 3.0, 5.0);
KU_RATIO("all rows read in storage order, beside SQLite", "BM_kudc/scan", "BM_sqlite/scan", 1.5,
         3.0);
KU_RATIO("sums of groups of sorted rows, beside SQLite", "BM_kudc/groups", "BM_sqlite/groups", 1.0,
         2.0);
KU_RATIO("rows stored with two-level keys, beside LMDB", "BM_kudc/store_keyed",
         "BM_lmdb/store_keyed", 0.0, 1.0);
KU_RATIO("all rows read back in key order, beside LMDB", "BM_kudc/walk", "BM_lmdb/walk", 0.0, 1.0);
KU_RATIO("100,000 rows looked up by key, beside LMDB", "BM_kudc/look_up", "BM_lmdb/look_up", 0.0,
         1.0);
KU_RATIO("rows stored without index, beside LMDB", "BM_kudc/store", "BM_lmdb/store", 0.0, 1.0);
KU_RATIO("all rows read in storage order, beside LMDB", "BM_kudc/scan", "BM_lmdb/scan", 0.0, 1.0);

} // namespace
