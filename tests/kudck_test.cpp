// kudck_test.cpp - keys of the data cache, their stored form and order, and B-trees beside a map
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kudc_internal.h"
#include "kudcd.h"
#include "kudcf.h"
#include "kudck.h"
#include "kudck_internal.h"
#include "port/core/number.h"
#include "skuf.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using namespace std::string_literals;
using ku::test::context;
using ku::test::dice;

namespace
{

using value = std::optional<std::string>; // none: NULL
using values = std::vector<value>;

constexpr uint16_t up = KUDC_ASCENDING, down = 0;
const value null;

struct column {
    uint16_t level;
    uint8_t datatype;
    uint32_t longest;
    uint16_t sort;
};

std::string integer(int32_t number)
{
    std::string bytes(4, 0);
    std::memcpy(bytes.data(), &number, 4);
    return bytes;
}

std::string number(const std::string &text)
{
    unsigned char bytes[ku::core::number_longest];
    std::size_t length = 0;
    EXPECT_TRUE(ku::core::text_to_number(text.data(), text.size(), bytes, &length));
    return {bytes, bytes + length};
}

// Column definitions with buffers.
struct table {
    std::vector<kudxcoldef> columns;
    std::vector<std::string> buffers;

    explicit table(const std::vector<column> &of) : columns(of.size()), buffers(of.size())
    {
        for (std::size_t i = 0; i < of.size(); i++) {
            buffers[i].resize(of[i].longest + 1);
            columns[i].xdbtyp_kudxcol = of[i].datatype;
            columns[i].maxlen_kudxcol = of[i].longest;
            columns[i].curval_kudxcol = buffers[i].data();
        }
    }
};

// A key over a table's columns.
struct memory_key {
    std::vector<std::string> buffers;
    std::vector<kudcbvadef> columns;
    std::vector<uint16_t> sizes;
    kudckeydef key = {};

    memory_key(table &over, const std::vector<column> &of, const values &from)
        : buffers(of.size()), columns(of.size()), sizes(of.empty() ? 0 : of.back().level + 1u)
    {
        for (std::size_t i = 0; i < of.size(); i++) {
            buffers[i].resize(of[i].longest + 1);
            columns[i].col_kudcbva = &over.columns[i];
            columns[i].val_kudcbva = reinterpret_cast<unsigned char *>(buffers[i].data());
            columns[i].sort_kudcbva = of[i].sort;
            columns[i].xdbtyp_kudcbva = of[i].datatype;
            columns[i].level_kudcbva = of[i].level;
            columns[i].set_kudcbva = 1;
        }
        key = {static_cast<uint16_t>(of.size()), static_cast<uint16_t>(sizes.size()),
               columns.data(), sizes.data()};
        set(from);
    }
    memory_key(const memory_key &) = delete;
    memory_key &operator=(const memory_key &) = delete;

    void set(const values &from)
    {
        for (std::size_t i = 0; i < from.size(); i++) {
            columns[i].valnul_kudcbva = from[i] ? 0 : KUDC_NULL;
            columns[i].len_kudcbva = from[i] ? static_cast<uint32_t>(from[i]->size()) : 0;
            if (from[i]) std::memcpy(columns[i].val_kudcbva, from[i]->data(), from[i]->size());
        }
    }
    std::string flat(kudcaccdef *acmp, uint16_t level) const
    {
        uint32_t size = 0;
        EXPECT_EQ(kudckpsflk(&key, level, &size), 0u);
        std::string bytes(size, '~');
        EXPECT_EQ(kudckcflkval(acmp, &key, level, reinterpret_cast<unsigned char *>(bytes.data())),
                  0u);
        return bytes;
    }
};

const unsigned char *raw(const std::string &bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

// What operations on keys alone need of a cache.
struct keys_only {
    context ctx{"utf8"};
    kudcaccdef cache = {};
    keys_only() { cache.kuxp_kudcacc = cache.kuvp_kudcacc = ctx; }
};

} // namespace

TEST(Kudck, ValuesCompareByDatatypeSortNullAndLengthAndBreaksAgree)
{
    static const struct {
        uint8_t datatype;
        uint16_t sort;
        value key, stored;
        int condition;
    } rows[] = {
        {KUDC_CHARACTER, up, "ABC", "ABCD", -1},
        {KUDC_CHARACTER, down, "ABC", "ABCD", 1},
        {KUDC_CHARACTER, up, "\xC3\xA9", "z", 1}, // by character value
        {KUDC_CHARACTER, up, "\xEF\xBF\xBD", "\xF0\x90\x80\x80", -1},
        {KUDC_CHARACTER, up, "a\0b"s, "a\0c"s, -1}, // a NUL is a character
        {KUDC_TERMINATED, up, "b", "a", 1},
        {KUDC_CHARACTER, up, "", null, -1}, // an empty value is a value
        {KUDC_INTEGER, up, integer(-1), integer(1), -1},
        {KUDC_INTEGER, down, integer(5), integer(7), 1},
        {KUDC_INTEGER, up, integer(256), integer(512), -1}, // both begin with a zero byte
        {KUDC_INTEGER, up, "", integer(-5), -1},            // too short: by length
        {KUDC_NUMBER, up, number("-2"), number("1"), -1},
        {KUDC_NUMBER, up, number("10"), number("9.99"), 1},
        {KUDC_NUMBER, 18, number("10"), number("9.99"), -1},
        {KUDC_NUMBER, up, "", number("-1"), -1},
        {KUDC_DATE, up, "\1\0\2"s, "\1\0\3"s, -1}, // past a zero byte
        {KUDC_ROWID, up, "AB", "AAZ", 1},
        {KUDC_DATE, up, "\xFF", "\1", 1},
        {KUDC_RAW, up, "ab", "zzz", -1},
        {KUDC_LONG, down, "zzz", "ab", -1},
        {KUDC_RAW, up, "same", "same", 0},
        {KUDC_CHARACTER, up, null, "zz", 1},
        {KUDC_CHARACTER, down, null, "zz", -1},
        {KUDC_INTEGER, up, integer(0), null, -1},
        {KUDC_INTEGER, down, integer(0), null, 1},
        {KUDC_NUMBER, up, null, null, 0},
    };
    keys_only only;
    kudcidxdef index = {};
    index.lvct_kudcidx = 1;
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        const std::vector<column> of = {{0, row.datatype, 30, row.sort}};
        table over(of);
        memory_key key(over, of, {row.key}), stored(over, of, {row.stored});
        const std::string flat = stored.flat(&only.cache, 0), back = key.flat(&only.cache, 0);
        int16_t condition = 77;
        EXPECT_EQ(kudckcmp(&only.cache, &key.key, 0, 1, raw(flat), &condition), 0u);
        EXPECT_EQ(condition, row.condition);
        EXPECT_EQ(kudckcmp(&only.cache, &stored.key, 0, 1, raw(back), &condition), 0u);
        EXPECT_EQ(condition, -row.condition);
        int32_t differs = 77;
        uint16_t level = 77;
        EXPECT_EQ(kudckcbva(&only.cache, &index, &key.key, &stored.key, 0, 9, &differs, &level),
                  0u);
        EXPECT_EQ(differs, row.condition != 0);
        EXPECT_EQ(level, row.condition != 0 ? 0 : 77);
        key.columns[0].wildcard_kudcbva = 1;
        EXPECT_EQ(kudckcmp(&only.cache, &key.key, 0, 1, raw(flat), &condition), 0u);
        EXPECT_EQ(condition, 0);
    }
}

TEST(Kudck, ANumberOfNoLengthHasItInFrontInMemoryOnly)
{
    keys_only only;
    const std::vector<column> of = {{0, KUDC_NUMBER, 4, up}, {0, KUDC_INTEGER, 4, up}};
    table over(of);
    memory_key key(over, of, {"", integer(1)}), stored(over, of, {"\x02\xC1\x20", integer(1)});
    stored.set({"\xC1\x20", integer(1)});
    std::memcpy(key.columns[0].val_kudcbva, "\x02\xC1\x20", 3);
    int16_t condition = 77;
    const std::string flat = stored.flat(&only.cache, 0);
    EXPECT_EQ(kudckcmp(&only.cache, &key.key, 0, 2, raw(flat), &condition), 0u);
    EXPECT_EQ(condition, 0);
    key.columns[0].val_kudcbva[0] = 200; // no more than the buffer has
    EXPECT_EQ(kudckcmp(&only.cache, &key.key, 0, 2, raw(flat), &condition), 0u);
    EXPECT_EQ(condition, 1);
    stored.set({"", integer(1)});
    const std::string empty = stored.flat(&only.cache, 0);
    EXPECT_EQ(kudckcmp(&only.cache, &key.key, 0, 2, raw(empty), &condition), 0u);
    EXPECT_EQ(condition, 1); // a stored one is empty

    key.columns[0].val_kudcbva[0] = 2;
    kudckeydef *copy = nullptr;
    EXPECT_EQ(kudckncpy(&only.cache, &key.key, &copy), 0u);
    EXPECT_EQ(kudckcmp(&only.cache, copy, 0, 2, raw(flat), &condition), 0u);
    EXPECT_EQ(condition, 0);
    EXPECT_EQ(kudcfrky(&only.cache, copy, 1), 0u);
}

TEST(Kudck, FlatKeysAreTheseBytesAndLoadBack)
{
    keys_only only;
    const std::vector<column> of = {
        {0, KUDC_RAW, 9, up}, {1, KUDC_CHARACTER, 9, up}, {1, KUDC_DATE, 9, up}, {1, 3, 9, up}};
    table over(of);
    memory_key key(over, of, {"~", "abc", null, integer(0x01020304)});
    const std::string flat = key.flat(&only.cache, 1);
    EXPECT_EQ(flat, "\3\0\0\0\1\0\0\0"
                    "\0\0\0\0\x0C\0\xFF\0"
                    "\4\0\0\0\3\0\0\0"
                    "abc\4\3\2\1\0"s);
    EXPECT_EQ(key.flat(&only.cache, 2), "");
    uint32_t size = 0;
    const unsigned char *at = nullptr;
    EXPECT_EQ(kudckszflk(raw(flat), 3, &size), 0u);
    EXPECT_EQ(size, 32u);
    EXPECT_EQ(kudckcvp(raw(flat), 2, 3, &at), 0u);
    EXPECT_EQ(at - raw(flat), 27);
    key.set({"~", "abc", null}); // 8 + 3 + 8 = 19 bytes
    EXPECT_EQ((memory_key{over, {of[1], of[2]}, {"abc", null}}.flat(&only.cache, 1).size()), 20u);
    key.columns[0].len_kudcbva = UINT32_MAX - 3; // lengths do not wrap round
    EXPECT_EQ(kudckpsflk(&key.key, 0, &size), 0u);
    EXPECT_EQ(size, UINT32_MAX);
    const std::string vast = "\xFC\xFF\xFF\xFF\0\0\0\0"s + flat.substr(0, 8);
    EXPECT_EQ(kudckszflk(raw(vast), 2, &size), 0u);
    EXPECT_EQ(size, UINT32_MAX);

    std::string block(256, 0);
    kudcidhdef header = {};
    header.clct_kudcidh = 3;
    auto *bytes = reinterpret_cast<unsigned char *>(block.data());
    ku::cache::set_header(bytes, header);
    std::memcpy(bytes + 200, flat.data(), flat.size());
    kudcinddef entry = {};
    entry.offs_kudcind = 200;
    ku::cache::set_entry(bytes, 1, entry);
    memory_key loaded(over, of, {"other", "longer", "x", ""});
    EXPECT_EQ(kudckcl(&only.cache, bytes, &loaded.columns[1]), 0u);
    int32_t set = 77;
    EXPECT_EQ(kudckgls(&only.cache, &loaded.key, 1, &set), 0u);
    EXPECT_EQ(set, 0);
    EXPECT_EQ(kudckgt(&only.cache, bytes, 1, &loaded.columns[1], &size), 0u);
    EXPECT_EQ(size, 32u);
    EXPECT_EQ(loaded.flat(&only.cache, 1), flat);
    EXPECT_EQ(kudckgls(&only.cache, &loaded.key, 1, &set), 0u);
    EXPECT_EQ(set, 1);
    EXPECT_EQ(kudckgls(&only.cache, &loaded.key, 2, &set), 0u);
    EXPECT_EQ(set, 0);
}

TEST(Kudck, BreaksAreFoundAtTheirFirstLevelWithinTheRange)
{
    static const struct {
        values other;
        uint16_t from, to;
        int level; // -1: no difference
    } rows[] = {
        {{"a", "b", "c"}, 0, 2, -1}, {{"x", "b", "y"}, 0, 2, 0},  {{"x", "b", "y"}, 1, 2, 2},
        {{"x", "b", "c"}, 1, 9, -1}, {{"a", null, "c"}, 0, 1, 1}, {{"a", "bb", "c"}, 0, 1, 1},
        {{"x", "x", "x"}, 3, 4, -1}, {{"x", "x", "x"}, 2, 1, -1}, {{}, 1, 2, 1},
    };
    keys_only only;
    const std::vector<column> of = {{0, 1, 5, up}, {1, 5, 5, up}, {2, 23, 5, up}};
    table over(of);
    kudcidxdef index = {};
    index.lvct_kudcidx = 3;
    memory_key key(over, of, {"a", "b", "c"});
    int32_t differs = 0;
    uint16_t level = 0;
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        memory_key other(over, of, row.other);
        const kudckeydef *second = row.other.empty() ? nullptr : &other.key;
        EXPECT_EQ(
            kudckcbva(&only.cache, &index, &key.key, second, row.from, row.to, &differs, &level),
            0u);
        EXPECT_EQ(differs != 0 ? level : -1, row.level);
    }
    // Columns answer each other by their place within the level, whatever the other key has more.
    const std::vector<column> some = {{0, 1, 5, up}, {1, 1, 5, up}},
                              all = {{0, 1, 5, up}, {0, 1, 5, up}, {1, 1, 5, up}, {1, 3, 5, up}};
    table wide(all);
    const struct {
        const char *value;
        int level;
    } shorter[] = {{"1", -1}, {"2", 1}};
    for (const auto &row : shorter) {
        const memory_key part(wide, some, {"A", row.value}), full(wide, all, {"A", "x", "1", "y"});
        for (const bool swapped : {false, true}) {
            EXPECT_EQ(kudckcbva(&only.cache, &index, swapped ? &full.key : &part.key,
                                swapped ? &part.key : &full.key, 0, 1, &differs, &level),
                      0u);
            EXPECT_EQ(differs != 0 ? level : -1, row.level);
        }
    }
    memory_key other(over, of, {"a", "b", "c"});
    other.columns[1].val_kudcbva = nullptr;
    EXPECT_EQ(kudckcbva(&only.cache, &index, &key.key, &other.key, 0, 2, &differs, &level),
              KUVAA_MISSING);
    EXPECT_EQ(differs, 0);
    EXPECT_ERRORS(only.ctx, {"kuvaa 21"});
}

TEST(Kudck, CopiesHaveBuffersOfTheirOwnOrReuseThose)
{
    const std::vector<column> of = {{0, 1, 5, up}, {1, 3, 4, down}};
    ku::test::sweep_allocations([&](context &ctx) {
        kudcaccdef cache = {};
        cache.kuxp_kudcacc = cache.kuvp_kudcacc = ctx;
        table over(of);
        memory_key key(over, of, {"abc", integer(7)});
        key.columns[0].split_kudcbva = 1;
        key.sizes = {512, 256};
        kudckeydef *copy = nullptr;
        if (kudckncpy(&cache, &key.key, &copy) != 0) {
            EXPECT_EQ(copy, nullptr);
            EXPECT_EQ(ctx.errors().back(), "kuvaa 16");
            return false;
        }
        EXPECT_EQ(copy->arylevsize_kudckey[1], 256);
        EXPECT_EQ(copy->arybva_kudckey[0].split_kudcbva, 0);
        unsigned char *buffer = copy->arybva_kudckey[0].val_kudcbva;
        EXPECT_NE(buffer, key.columns[0].val_kudcbva);
        key.set({"five!", null});
        EXPECT_EQ(kudckcop(&cache, &key.key, &copy, 1), 0u);
        EXPECT_EQ(copy->arybva_kudckey[0].val_kudcbva, buffer);
        EXPECT_EQ(std::memcmp(buffer, "five!", 5), 0);
        EXPECT_EQ(copy->arybva_kudckey[1].valnul_kudcbva, KUDC_NULL);
        kudcfrky(&cache, copy, 1);
        return true;
    });
    keys_only only;
    table over(of);
    memory_key key(over, of, {"abc", null}), small(over, {of[0]}, {"z"});
    kudckeydef *copy = &small.key;
    EXPECT_EQ(kudckcop(&only.cache, &key.key, &copy, 1), KUVAA_NOVALUE); // too few columns
    key.columns[0].len_kudcbva = 7;
    EXPECT_EQ(kudckncpy(&only.cache, &key.key, &copy), KUDCA_TOOLONG);
    key.columns[0].len_kudcbva = 3;
    key.columns[1].val_kudcbva = nullptr; // NULL needs its buffer, too
    EXPECT_EQ(kudckncpy(&only.cache, &key.key, &copy), KUVAA_NOVALUE);
    int16_t condition = 0;
    EXPECT_EQ(kudckcmp(&only.cache, &key.key, 1, 1, raw("........"s), &condition), KUVAA_NOVALUE);
    EXPECT_ERRORS(only.ctx, {"kuvaa 22", "kudca 101", "kuvaa 22", "kuvaa 22"});
    EXPECT_EQ(kudckncpy(&only.cache, nullptr, &copy), 0u);
    EXPECT_EQ(copy, nullptr);
}

// ---- B-trees ----

namespace
{

// Order of rows' keys as the columns have it.
struct before {
    const std::vector<column> *of;
    static int order(const value &a, const value &b)
    {
        if (!a || !b) return int(!a) - int(!b);
        return a->compare(*b);
    }
    bool operator()(const values &a, const values &b) const
    {
        for (std::size_t i = 0; i < a.size() && i < b.size(); i++) {
            const int found = order(a[i], b[i]) * ((*of)[i].sort == up ? 1 : -1);
            if (found != 0) return found < 0;
        }
        return false;
    }
};
using model = std::map<values, std::vector<int32_t>, before>; // rows in storage order

// A cache of one thread with one RANDOM index over all its columns; entering keys in it.
class indexed
{
public:
    const ku::test::directory scratch;
    std::vector<column> of;
    context &ctx;
    table over;
    memory_key key; // of the last row or search
    void *blocks;
    kudcaccdef *cache = nullptr;
    kudcthddef *thread = nullptr;
    kudcidxdef *index = nullptr;
    std::map<int32_t, int> added; // to each tree, by root

    indexed(context &in, const std::vector<column> &columns)
        : of(columns), ctx(in), over(of), key(over, of, {}), blocks(skufdcreate(in, 15))
    {
        for (kudxcoldef &each : over.columns) pointers_.push_back(&each);
        const auto count = static_cast<uint16_t>(of.size());
        const std::string prefix = scratch.path("");
        kudcidddef descriptor = {0, count, key.columns.data(), 0};
        const kudctdddef descriptors = {count, 1, pointers_.data(), &descriptor};
        if (blocks == nullptr
            || kudcfcreate(ctx, ctx, blocks, prefix.c_str(), prefix.c_str(), 1, &descriptors,
                           &cache)
                   != 0) {
            return;
        }
        thread = cache->thrd_kudcacc;
        index = thread->idxs_kudcthd;
        for (std::size_t i = 0; i < key.sizes.size(); i++) {
            key.sizes[i] = index->lvrt_kudcidx[i].size_kudcidh;
        }
    }
    indexed(const indexed &) = delete;
    indexed &operator=(const indexed &) = delete;
    ~indexed()
    {
        EXPECT_EQ(kudcfdestroy(cache), 0u);
        skufdestroy(ctx, blocks);
        EXPECT_TRUE(scratch.names().empty());
    }

    int32_t root() const { return index->tinf_kudcidx.rinf_kudcidx.root_kudcridx; }

    // Enters a row's key for the row to be stored; its first `levels` levels.
    uint32_t enter(const values &row, uint16_t levels)
    {
        int32_t tree = root(), child = 0, outcome = 0;
        for (uint16_t level = 0; level < levels; level++) {
            key.set(row);
            const int32_t at = tree;
            uint32_t status =
                ku::cache::read_block(cache, at, key.sizes[level], cache->indx_kudcacc);
            if (status == 0) {
                status = kudckins(cache, &key.key, thread, index, &child, &tree, &outcome);
            }
            if (status != 0) return status;
            if (outcome == 0) continue;
            kudcidhdef header = ku::cache::header_of(cache->indx_kudcacc);
            EXPECT_EQ(header.addr_kudcidh, at);
            EXPECT_EQ(header.ublk_kudcidh, -1);
            header.coun_kudcidh = ++added[at];
            status = ku::cache::write_block(cache, at, sizeof header, &header);
            if (status != 0) return status;
        }
        return 0;
    }
    uint32_t store(const values &row, uint16_t levels, int32_t *position)
    {
        uint32_t status = enter(row, levels);
        if (status != 0) return status;
        *position = cache->nxdo_kudcacc;
        thread->tpln_kudcthd = 0;
        for (std::size_t i = 0; i < row.size(); i++) {
            kudxcoldef &each = over.columns[i];
            each.curnul_kudxcol = row[i] ? 0 : KUDC_NULL;
            each.curlen_kudxcol = row[i] ? static_cast<uint32_t>(row[i]->size()) : 0;
            if (row[i]) row[i]->copy(static_cast<char *>(each.curval_kudxcol), row[i]->size());
            thread->tpln_kudcthd += each.curlen_kudxcol;
        }
        for (int i = 0; i < thread->idlc_kudcthd; i++) thread->idxl_kudcthd[i].next_kudclnk = -1;
        return kudcdstr(cache, thread);
    }
    void find(const values &row, int32_t allkeys, int32_t *count, int32_t *position)
    {
        key.set(row);
        EXPECT_EQ(kudckfnd(cache, &key.key, root(), allkeys, count, position), 0u);
    }
    // The leaf of the first level without the key, as a deletion makes it.
    void remove(const values &row)
    {
        key.set(row);
        int32_t entry = 0;
        ASSERT_EQ(
            ku::cache::find_in_tree(cache, &key.key, 0, root(), key.sizes[0], &entry, nullptr), 0u);
        ASSERT_GE(entry, 0);
        ASSERT_EQ(kudckdel(cache->copy_kudcacc, cache->indx_kudcacc, static_cast<uint16_t>(entry)),
                  0u);
        const kudcidhdef header = ku::cache::header_of(cache->copy_kudcacc);
        ASSERT_EQ(ku::cache::write_block(cache, header.addr_kudcidh, header.size_kudcidh,
                                         cache->copy_kudcacc),
                  0u);
    }

private:
    std::vector<kudxcoldef *> pointers_; // the cache refers to them
};

// Reads all of an index and expects what always holds of it.
class walk
{
public:
    model found;
    int64_t bytes = 0; // of all blocks that were reached

    explicit walk(indexed &of) : found(before{&of.of}), of_(of) { tree(of.root(), 0, {}); }

private:
    struct node {
        std::string bytes;
        kudcidhdef header;
        std::optional<values> low, high; // the keys lie between
    };

    // The key of an entry; *size: its bytes in the block.
    static values key_of(const std::string &block, std::size_t count, const kudcinddef &entry,
                         std::size_t *size)
    {
        values row;
        std::size_t at = entry.offs_kudcind + 8 * count;
        for (std::size_t i = 0; i < count; i++) {
            kudcflkchdef head;
            std::memcpy(&head, block.data() + entry.offs_kudcind + 8 * i, sizeof head);
            row.emplace_back(block.substr(at, head.len_kudcflkch));
            if (head.isnull_kudcflkch == KUDC_NULL) row.back() = null;
            at += head.len_kudcflkch;
        }
        *size = (at - entry.offs_kudcind + 3) / 4 * 4;
        return row;
    }

    node read(int32_t position, uint16_t level)
    {
        const kudcidhdef &made = of_.index->lvrt_kudcidx[level];
        node read = {std::string(made.size_kudcidh, 0), {}, {}, {}};
        EXPECT_TRUE(seen_.insert(position).second) << position << " is in use twice";
        EXPECT_EQ(ku::cache::read_block(of_.cache, position, made.size_kudcidh, read.bytes.data()),
                  0u);
        std::memcpy(&read.header, read.bytes.data(), sizeof read.header);
        EXPECT_EQ(read.header.addr_kudcidh, position);
        EXPECT_EQ(read.header.size_kudcidh, made.size_kudcidh);
        EXPECT_EQ(read.header.levl_kudcidh, level);
        EXPECT_EQ(read.header.last_kudcidh, made.last_kudcidh);
        bytes += made.size_kudcidh;
        return read;
    }

    // The entries of a node: their keys in order and between the bounds, packed to the end.
    std::vector<std::pair<values, kudcinddef>> entries(const node &of)
    {
        const std::size_t columns = of.header.clct_kudcidh;
        const before less = {&part_};
        std::vector<std::pair<values, kudcinddef>> all;
        std::map<std::size_t, std::size_t> places;
        for (uint32_t i = 0; i < of.header.kyct_kudcidh; i++) {
            kudcinddef entry;
            std::memcpy(&entry, of.bytes.data() + 56 + 20 * i, sizeof entry);
            std::size_t size = 0;
            values row = key_of(of.bytes, columns, entry, &size);
            EXPECT_TRUE(all.empty() || less(all.back().first, row));
            EXPECT_TRUE(!of.low || !less(row, *of.low));
            EXPECT_TRUE(!of.high || less(row, *of.high));
            places[entry.offs_kudcind] = size;
            all.emplace_back(std::move(row), entry);
        }
        std::size_t at = 56 + 20 * all.size() + of.header.free_kudcidh;
        for (const auto &[offset, size] : places) {
            EXPECT_EQ(offset, at);
            at += size;
        }
        EXPECT_EQ(at, of.header.size_kudcidh);
        return all;
    }

    void tree(int32_t root, uint16_t level, const values &above) // NOLINT(misc-no-recursion)
    {
        part_.clear();
        for (const column &each : of_.of) {
            if (each.level == level) part_.push_back(each);
        }
        std::vector<node> row = {read(root, level)};
        EXPECT_EQ(row[0].header.coun_kudcidh, of_.added[root]);
        std::vector<std::pair<values, kudcinddef>> leaves;
        while (!row.empty()) {
            std::vector<node> next;
            for (std::size_t i = 0; i < row.size(); i++) {
                const node &one = row[i];
                const int32_t self = one.header.addr_kudcidh;
                EXPECT_EQ(one.header.ublk_kudcidh == -1, self == root);
                EXPECT_EQ(one.header.lsib_kudcidh, i == 0 ? -1 : row[i - 1].header.addr_kudcidh);
                EXPECT_EQ(one.header.rsib_kudcidh,
                          i + 1 == row.size() ? -1 : row[i + 1].header.addr_kudcidh);
                auto all = entries(one);
                if (one.header.leaf_kudcidh != 0) {
                    leaves.insert(leaves.end(), all.begin(), all.end());
                    continue;
                }
                next.push_back(read(one.header.less_kudcidh, level));
                next.back().low = one.low;
                for (const auto &[separator, entry] : all) {
                    next.back().high = separator;
                    next.push_back(read(entry.frst_kudcind, level));
                    next.back().low = separator;
                }
                next.back().high = one.high;
            }
            row = std::move(next);
        }
        for (const auto &[last, entry] : leaves) {
            values whole = above;
            whole.insert(whole.end(), last.begin(), last.end());
            if (level + 1 == of_.index->lvct_kudcidx)
                rows(whole, entry);
            else
                tree(entry.root_kudcind, static_cast<uint16_t>(level + 1), whole);
        }
    }

    void rows(const values &whole, const kudcinddef &entry)
    {
        std::vector<int32_t> &chain = found[whole];
        for (int32_t at = entry.frst_kudcind; at != -1;) {
            chain.push_back(at);
            ASSERT_LE(chain.size(), static_cast<std::size_t>(entry.coun_kudcind));
            ASSERT_EQ(kudcdrd(of_.cache, of_.thread, at), 0u);
            at = of_.thread->idxl_kudcthd[of_.index->lvct_kudcidx - 1].next_kudclnk;
        }
        EXPECT_EQ(chain.size(), static_cast<std::size_t>(entry.coun_kudcind));
        EXPECT_EQ(chain.back(), entry.last_kudcind);
        EXPECT_EQ(entry.root_kudcind, -1);
    }

    indexed &of_;
    std::vector<column> part_; // the columns of the level being read
    std::set<int32_t> seen_;
};

void expect_all(indexed &cache, const model &rows)
{
    EXPECT_EQ(std::vector(rows.begin(), rows.end()), [&] {
        const walk walked(cache);
        return std::vector(walked.found.begin(), walked.found.end());
    }());
    for (const auto &[row, positions] : rows) {
        int32_t count = 0, first = 0;
        cache.find(row, 1, &count, &first);
        ASSERT_EQ(first, positions.front());
        ASSERT_EQ(count, static_cast<int32_t>(positions.size()));
    }
}

std::string digits(int from) { return std::to_string(100000 + from).substr(1); }

} // namespace

TEST(Kudckb, TreesHoldWhatAMapHoldsWhateverTheKeysAndTheirOrder)
{
    enum order { ascending, descending, mixed };
    static const struct {
        const char *what;
        std::vector<column> of;
        int rows;
        order arriving;
        uint32_t shortest, kinds; // letters at least; different values of a column
    } runs[] = {
        {"in order", {{0, 1, 10, up}}, 900, ascending, 5, 100000},
        {"from behind", {{0, 1, 10, up}}, 900, descending, 5, 100000},
        {"descending column", {{0, 1, 10, down}}, 500, mixed, 5, 300},
        {"short and full keys", {{0, 1, 320, up}}, 900, mixed, 0, 100000},
        {"levels",
         {{0, 1, 10, up}, {0, 5, 6, down}, {1, 1, 40, down}, {2, 1, 3, up}},
         900,
         mixed,
         0,
         4},
        {"large keys", {{0, 1, 16000, up}}, 200, mixed, 0, 100000},
        {"half a block", {{0, 1, 32580, up}}, 120, mixed, 0, 100000},
        {"all of half a block", {{0, 1, 32580, up}}, 60, mixed, 32000, 100000},
    };
    dice random_numbers;
    for (const auto &run : runs) {
        SCOPED_TRACE(run.what);
        context ctx;
        indexed cache(ctx, run.of);
        ASSERT_NE(cache.cache, nullptr);
        model rows(before{&cache.of});
        for (int step = 0; step < run.rows; step++) {
            values row;
            for (const column &each : run.of) {
                const int at = run.arriving == ascending ? step
                               : run.arriving == descending
                                   ? run.rows - step
                                   : static_cast<int>(random_numbers.below(run.kinds));
                std::string text = digits(at).substr(0, each.longest);
                const uint32_t most = random_numbers.one_in(3) ? each.longest : each.longest / 3;
                const uint32_t least = std::max(run.shortest, uint32_t(text.size()));
                const uint32_t length =
                    most <= least ? least : least + random_numbers.below(most - least + 1);
                if (run.kinds > 100) text.resize(std::max<std::size_t>(length, text.size()), 'x');
                row.emplace_back(text.substr(0, each.longest));
                if (random_numbers.one_in(40)) row.back() = null;
            }
            int32_t position = 0;
            ASSERT_EQ(cache.store(row, cache.index->lvct_kudcidx, &position), 0u);
            rows[row].push_back(position);
            if (step % 97 == 0 || step + 1 == run.rows) {
                expect_all(cache, rows);
                EXPECT_EQ(walk(cache).bytes, cache.cache->nxio_kudcacc);
                ASSERT_FALSE(::testing::Test::HasFailure());
            }
        }
        int32_t count = 77, first = 77;
        cache.find({values(run.of.size(), "~")}, 1, &count, &first);
        EXPECT_EQ(first, -1);
        EXPECT_EQ(count, 0);
    }
}

TEST(Kudckb, KeysMayComeBackAfterTheirSeparatorsOutlivedThem)
{
    context ctx;
    indexed cache(ctx, {{0, 1, 10, up}});
    model rows(before{&cache.of});
    dice random_numbers;
    const auto enter = [&](uint32_t at) {
        int32_t position = 0;
        const values row = {digits(static_cast<int>(at)) + "xxxxx"};
        ASSERT_EQ(cache.store(row, 1, &position), 0u);
        rows[row].push_back(position);
    };
    for (int step = 0; step < 800; step++) {
        // The key goes, neighbours fill its leaf, it comes back: now and then where its own
        // separator stands, into a leaf that has to be split.
        const uint32_t at = random_numbers.below(100) * 8;
        const values row = {digits(static_cast<int>(at)) + "xxxxx"};
        if (rows.erase(row) != 0) cache.remove(row);
        for (uint32_t more = random_numbers.below(4); more > 0; more--) {
            enter(at + random_numbers.below(7) + 1);
        }
        const values other = rows.empty() ? row : std::prev(rows.end())->first;
        if (random_numbers.one_in(3) && rows.erase(other) != 0) cache.remove(other);
        enter(at);
        if (step % 40 != 0) continue;
        expect_all(cache, rows);
        ASSERT_FALSE(::testing::Test::HasFailure()) << step;
    }
}

TEST(Kudckb, TheFirstSplitLeavesTheRootWhereItIs)
{
    context ctx;
    indexed cache(ctx, {{0, 1, 10, up}});
    int32_t position = 0;
    for (int i = 0; i < 12; i++) ASSERT_EQ(cache.store({digits(i) + "abcde"}, 1, &position), 0u);
    unsigned char *block = cache.cache->indx_kudcacc; // 11 entries of 40 bytes were too many
    const kudcidhdef header = ku::cache::header_of(block);
    EXPECT_EQ(header.addr_kudcidh, 0);
    EXPECT_EQ(header.kyct_kudcidh, 1);
    EXPECT_EQ(header.leaf_kudcidh, 0);
    EXPECT_EQ(header.less_kudcidh, 512);
    EXPECT_EQ(header.free_kudcidh, 512 - 56 - 40);
    EXPECT_EQ(ku::cache::entry_of(block, 0).frst_kudcind, 1024);
    EXPECT_EQ(std::memcmp(ku::cache::key_at(block, 0) + 8, "00005", 5), 0); // 11 / 2

    int16_t at = 0;
    int32_t empty = 77;
    cache.key.set({"00004"});
    EXPECT_EQ(kudcksrc(cache.cache, &cache.key.key, &at, &empty), 0u);
    EXPECT_EQ(at, -1);
    EXPECT_EQ(empty, 0);
    // Another key for an entry; it has one row less.
    cache.key.set({"7"});
    EXPECT_EQ(kudckrep(cache.cache, cache.cache->copy_kudcacc, block, 0, &cache.key.key), 0u);
    EXPECT_EQ(ku::cache::header_of(cache.cache->copy_kudcacc).free_kudcidh, 512 - 56 - 32);
    EXPECT_EQ(ku::cache::entry_of(cache.cache->copy_kudcacc, 0).coun_kudcind, -1);
}

TEST(Kudckb, RowsOfFewerLevelsAreFoundByTheLevelsTheyHave)
{
    context ctx;
    indexed cache(ctx, {{0, 1, 5, up}, {1, 1, 5, up}});
    int32_t first = 0, second = 0, count = 0, row = 0;
    ASSERT_EQ(cache.store({"a", "b"}, 1, &first), 0u);
    cache.find({"a", "b"}, 0, &count, &row);
    EXPECT_EQ(row, first);
    cache.find({"a", "b"}, 1, &count, &row);
    EXPECT_EQ(row, -1);
    ASSERT_EQ(cache.store({"a", "b"}, 2, &second), 0u);
    cache.find({"a", "b"}, 0, &count, &row);
    EXPECT_EQ(row, second);
    EXPECT_EQ(count, 1);
    cache.find({"a", "c"}, 0, &count, &row);
    EXPECT_EQ(row, -1);

    // With its last key deleted a level does not look as if it never had one.
    cache.find({"a", "b"}, 0, &count, &row);
    kudcaccdef &made = *cache.cache;
    ASSERT_EQ(kudckdel(made.copy_kudcacc, made.indx_kudcacc, 0), 0u);
    const kudcidhdef leaf = ku::cache::header_of(made.copy_kudcacc);
    ASSERT_EQ(
        ku::cache::write_block(&made, leaf.addr_kudcidh, leaf.size_kudcidh, made.copy_kudcacc), 0u);
    cache.find({"a", "b"}, 0, &count, &row);
    EXPECT_EQ(row, -1);
}

TEST(Kudckb, KeysThatFitNowhereAndFullFilesAreRefusedBeforeAnythingChanges)
{
    context ctx;
    indexed cache(ctx, {{0, 1, 65440, up}});
    EXPECT_EQ(cache.enter({std::string(65210, 'x')}, 1), KUDCA_KEYSIZE);
    EXPECT_ERRORS(ctx, {"kudca 9"});
    int32_t position = 0;
    ASSERT_EQ(cache.store({std::string(65190, 'x')}, 1, &position), 0u);
    ASSERT_EQ(cache.store({std::string(65190, 'y')}, 1, &position), 0u); // a half of its own
    EXPECT_EQ(walk(cache).found.size(), 2u);
    indexed three(ctx, {{0, 1, 65440, up}});
    ASSERT_EQ(three.store({std::string(19500, 'a')}, 1, &position), 0u);
    ASSERT_EQ(three.store({std::string(16250, 'b')}, 1, &position), 0u);
    ASSERT_EQ(three.store({std::string(29300, 'd')}, 1, &position), 0u);
    ASSERT_EQ(three.store({std::string(32550, 'c')}, 1, &position), 0u); // begins the right half
    EXPECT_EQ(walk(three).found.size(), 4u);
    indexed high(ctx, {{0, 1, 65440, up}}); // with one key in a block, a tree of as many blocks
    for (char first = 'z'; first > 'a'; first--)
        for (char second = 'z'; second >= 'x'; second--) {
            const std::string key{first, second};
            ASSERT_EQ(high.store({key + std::string(60000, 'x')}, 1, &position), 0u) << key;
        }
    EXPECT_EQ(walk(high).found.size(), 75u);

    indexed levels(ctx, {{0, 1, 5, up}, {1, 1, 5, up}});
    const int32_t end = levels.cache->nxio_kudcacc;
    levels.cache->nxio_kudcacc = 0x7FFFFFFF - 255;
    EXPECT_EQ(levels.enter({"a", "b"}, 2), KUDCA_FULL);
    EXPECT_ERRORS(ctx, {"kudca 100"});
    levels.cache->nxio_kudcacc = end;
    EXPECT_EQ(walk(levels).found.size(), 0u);

    // Refused, too: a key without the columns of the level; any key while an error is pending.
    kudcaccdef *c = levels.cache;
    for (const bool pending : {false, true}) {
        ASSERT_EQ(ku::cache::read_block(c, levels.root(), levels.key.sizes[0], c->indx_kudcacc),
                  0u);
        levels.key.set({"a", "b"});
        levels.key.key.numbva_kudckey = pending ? 2 : 0;
        if (pending) kuxer0push(ctx, KUVAA_NOMEM);
        int32_t tree = levels.root(), child = 0, outcome = 0;
        EXPECT_EQ(
            kudckins(c, &levels.key.key, levels.thread, levels.index, &child, &tree, &outcome),
            pending ? KUVAA_NOMEM : KUVAA_NOVALUE);
        ctx.clear();
        EXPECT_EQ(ku::cache::header_of(c->indx_kudcacc).kyct_kudcidh, 0);
        EXPECT_EQ(c->nxio_kudcacc, end);
    }
}

TEST(Kudckb, IntegersAreLookedUpThroughACursor)
{
    context ctx;
    indexed cache(ctx, {{0, 3, 4, up}, {1, 3, 4, up}});
    int32_t stored = 0, row = 0;
    for (int i = 0; i < 50; i++) {
        ASSERT_EQ(cache.store({integer(i), integer(-i)}, 2, i == 33 ? &stored : &row), 0u);
    }
    kudccurdef *cursor = nullptr;
    ASSERT_EQ(kudcfnwcurs(cache.cache, nullptr, 0, 0, 0, -1, &cursor), 0u);
    kudcbvadef *columns[] = {&cache.key.columns[1], &cache.key.columns[0]}; // in any order
    const int32_t there[] = {-33, 33}, absent[] = {-34, 33};
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, there, &row), 0u);
    EXPECT_EQ(row, stored);
    EXPECT_EQ(cursor->curleft_kudccur, 1);
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, absent, &row), 0u);
    EXPECT_EQ(row, -1);
    EXPECT_EQ(kudckfblb(cache.cache, nullptr, 2, columns, there, &row), 0u);
    EXPECT_EQ(row, -1);
    cache.over.columns[0].maxlen_kudxcol = 3; // of no effect now
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, there, &row), 0u);
    EXPECT_EQ(row, stored);
    kuxer0push(ctx, KUVAA_NOMEM);
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, absent, &row), KUVAA_NOMEM);
    EXPECT_ERRORS(ctx, {"kuvaa 16"});
    EXPECT_EQ(cursor->curleft_kudccur, 1);
    EXPECT_EQ(std::memcmp(columns[0]->col_kudcbva->curval_kudxcol, there, 4), 0);
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, nullptr, &row), KUVAA_MISSING);
    columns[1] = nullptr;
    EXPECT_EQ(kudckfblb(cache.cache, cursor, 2, columns, there, &row), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21"});

    indexed narrow(ctx, {{0, 3, 2, up}});
    ASSERT_EQ(kudcfnwcurs(narrow.cache, nullptr, 0, 0, 0, -1, &cursor), 0u);
    narrow.over.columns[0].maxlen_kudxcol = 4; // its buffers are as they were
    columns[0] = &narrow.key.columns[0];
    EXPECT_EQ(kudckfblb(narrow.cache, cursor, 1, columns, there, &row), KUVAA_NOVALUE);
    EXPECT_ERRORS(ctx, {"kuvaa 22"});
}

TEST(Kudckb, AFailedTransferIsToldByItsCode)
{
    for (const std::string call : {"pread", "pwrite"}) {
        int failures = 0;
        for (bool failed = true; failed; failures += failed) {
            ku::test::system_faults faults;
            context ctx;
            indexed cache(ctx, {{0, 1, 2000, up}});
            ASSERT_NE(cache.cache, nullptr);
            faults.fail_from_now(call.c_str(), failures + 1, EIO);
            uint32_t status = 0;
            for (int i = 0; i < 70 && status == 0; i++) {
                int32_t position = 0;
                status = cache.store({digits(i * 37 % 70) + std::string(1900, 'x')}, 1, &position);
            }
            faults.fail_from_now(call.c_str(), 0, EIO);
            failed = faults.failed();
            EXPECT_EQ(status != 0, failed);
            EXPECT_EQ(ctx.errors().empty(), !failed);
            ctx.clear();
            EXPECT_TRUE(failed || walk(cache).found.size() == 70);
        }
        EXPECT_GT(failures, 3) << call;
    }
}
