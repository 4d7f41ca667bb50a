// kudcf.cpp - the cache: its files, threads, indexes and cursors
//
//     access object --> data file, index file (scratch files of one block cache)
//        |-- threads --> columns, links, live counts
//        |      `-- indexes --> templates of their blocks, keys, cursors for reuse
//        `-- live cursors --> key, position record
//
// Creation builds from the outside in, into zero-filled records: whatever step
// fails, destruction finds null where nothing was made, and ends what was. Both
// files are closed on an error level of their own, because a scratch file stays
// on disk when it is closed with an error on the stack, and creation has one.
//
// Buffers have the sizes that the columns had at creation. Those are kept where
// no client looks: a thread's behind its array of columns, an index's behind its
// key columns. The value buffers of a cursor's key all have the size of the
// index's longest column, since a client's key may leave columns out and its
// values then lie in buffers of other columns.
//
// A cursor's key may have become shorter than its index's by such a key. Before
// it is used again, or freed, it has the index's columns again.

#include "kudcf.h"

#include <algorithm>
#include <cstddef>

#include "kudc_internal.h"
#include "kudcb.h"
#include "kudck.h"
#include "kudck_internal.h"
#include "kudcs.h"
#include "kudx.h"
#include "kul.h"
#include "skub.h"
#include "skuf_internal.h"
#include "skufo.h"
#include "skufv.h"
#include "skufz.h"

using ku::cache::obtain;
using ku::cache::refuse;
using ku::cache::release;
namespace cache = ku::cache;

static_assert(
    sizeof(kudcidhdef) == cache::block_head && offsetof(kudcidhdef, addr_kudcidh) == 4
        && offsetof(kudcidhdef, lsib_kudcidh) == 8 && offsetof(kudcidhdef, rsib_kudcidh) == 12
        && offsetof(kudcidhdef, coun_kudcidh) == 16 && offsetof(kudcidhdef, size_kudcidh) == 20
        && offsetof(kudcidhdef, free_kudcidh) == 22 && offsetof(kudcidhdef, kyct_kudcidh) == 24
        && offsetof(kudcidhdef, kymx_kudcidh) == 26 && offsetof(kudcidhdef, mxct_kudcidh) == 28
        && offsetof(kudcidhdef, clct_kudcidh) == 30 && offsetof(kudcidhdef, levl_kudcidh) == 32
        && offsetof(kudcidhdef, last_kudcidh) == 36 && offsetof(kudcidhdef, ublk_kudcidh) == 40
        && offsetof(kudcidhdef, splt_kudcidh) == 44 && offsetof(kudcidhdef, leaf_kudcidh) == 48
        && offsetof(kudcidhdef, less_kudcidh) == 52,
    "lies in the index file");
static_assert(sizeof(kudcinddef) == cache::entry_bytes && offsetof(kudcinddef, last_kudcind) == 4
                  && offsetof(kudcinddef, root_kudcind) == 8
                  && offsetof(kudcinddef, coun_kudcind) == 12
                  && offsetof(kudcinddef, offs_kudcind) == 16,
              "lies in the index file");
static_assert(sizeof(kudcflkchdef) == cache::key_head && offsetof(kudcflkchdef, type_kudcflkch) == 4
                  && offsetof(kudcflkchdef, isnull_kudcflkch) == 6,
              "lies in the index file");

static constexpr uint32_t kudcf_row_piece = 65535;    // longest row data assembled in one piece
static constexpr uint32_t kudcf_key_limit = 65536;    // a stored key and 76 bytes stay below
static constexpr uint32_t kudcf_key_rounding = 4;     // stored keys are multiples of so many bytes
static constexpr uint32_t kudcf_block_rounding = 256; // blocks too
static constexpr uint32_t kudcf_first_level_keys = 8; // largest keys for which a block is sized
static constexpr uint32_t kudcf_other_level_keys = 4; // the same below the first level
static constexpr uint32_t kudcf_most_slots = UINT16_MAX; // level slots of a thread

// ---- what the families share ----

uint32_t cache::refuse(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

void *cache::obtain(kux *ctx, uint64_t count, uint64_t size)
{
    count = std::max<uint64_t>(count, 1);
    void *block = ku::allocate(ctx, count, size);
    if (block == nullptr)
        kuxer0push(ctx, KUVAA_NOMEM);
    else
        std::memset(block, 0, count * size);
    return block;
}

void cache::release(const kudcaccdef *acmp, void *block)
{
    kux *ctx = releaser(acmp);
    if (block != nullptr) ctx->kuxnmfree(ctx, block);
}

void cache::make_block(unsigned char *block, const kudcidhdef &level, int32_t address)
{
    kudcidhdef header = level;
    header.addr_kudcidh = address;
    std::memset(block, 0, header.size_kudcidh);
    set_header(block, header);
}

uint32_t cache::entry_size(const unsigned char *block, uint32_t entry)
{
    const uint32_t count = header_of(block).clct_kudcidh;
    const uint32_t room = key_room(block, entry);
    if (key_head * count > room) return 0;
    const unsigned char *flatkey = key_at(block, entry);
    uint64_t bytes = key_head * count;
    for (uint32_t i = 0; i < count; i++)
        bytes += load<kudcflkchdef>(flatkey + key_head * i).len_kudcflkch;
    bytes = (bytes + 3) & ~uint64_t{3};
    return bytes <= room ? static_cast<uint32_t>(bytes) + entry_bytes : 0;
}

uint64_t cache::used_bytes(const unsigned char *block)
{
    const kudcidhdef header = header_of(block);
    uint64_t used = block_head;
    bool sound = is_held(block, header.size_kudcidh);
    for (uint32_t i = 0; sound && i < header.kyct_kudcidh; i++) {
        const uint32_t size = entry_size(block, i);
        used += size;
        sound = size != 0;
    }
    return sound && used <= header.size_kudcidh ? used : 0;
}

bool cache::is_whole(const unsigned char *block)
{
    const kudcidhdef header = header_of(block);
    const uint64_t used = used_bytes(block);
    return used != 0 && used + header.free_kudcidh == header.size_kudcidh;
}

uint32_t cache::visit_block(kudcaccdef *acmp, const kudcidhdef &level, int32_t position,
                            unsigned char *block)
{
    const uint32_t status = read_block(acmp, position, level.size_kudcidh, block);
    if (status != 0) return status;
    const bool sound = is_block(block, position, level.size_kudcidh, level.levl_kudcidh)
                       && header_of(block).clct_kudcidh == level.clct_kudcidh;
    return sound ? 0 : refuse(acmp, KUVAA_MISSING);
}

kudcthddef *cache::thread_of(const kudcaccdef *acmp, uint16_t thread)
{
    if (acmp->thrd_kudcacc != nullptr && thread < acmp->thct_kudcacc)
        return acmp->thrd_kudcacc + thread;
    refuse(acmp, KUVAA_MISSING);
    return nullptr;
}

kudcidxdef *cache::index_of(const kudcaccdef *acmp, const kudcthddef *thread, int16_t index)
{
    if (thread->idxs_kudcthd != nullptr && index >= 0 && index < int{thread->idxc_kudcthd})
        return thread->idxs_kudcthd + index;
    refuse(acmp, KUVAA_MISSING);
    return nullptr;
}

uint32_t cache::check_cursor(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    if (cursor == nullptr || cursor->cachep_kudccur != acmp) return refuse(acmp, KUVAA_MISSING);
    const kudcthddef *thread = thread_of(acmp, cursor->thread_kudccur);
    if (thread == nullptr) return KUVAA_MISSING;
    if (cursor->idx_kudccur < 0) return 0;
    if (index_of(acmp, thread, cursor->idx_kudccur) == nullptr) return KUVAA_MISSING;
    const bool whole = cursor->keyp_kudccur != nullptr && cursor->ipsh_kudccur != nullptr;
    return whole ? 0 : refuse(acmp, KUVAA_MISSING);
}

uint32_t cache::longest_key_value(const kudcidxdef *index, uint16_t key_column)
{
    // The sizes lie behind the index's key columns.
    return reinterpret_cast<const uint32_t *>(index->cols_kudcidx
                                              + index->clct_kudcidx)[key_column];
}

cache::level_columns cache::columns_of(const kudckeydef *key, uint16_t level)
{
    uint16_t first = 0;
    while (first < key->numbva_kudckey && key->arybva_kudckey[first].level_kudcbva < level) first++;
    uint16_t end = first;
    while (end < key->numbva_kudckey && key->arybva_kudckey[end].level_kudcbva == level) end++;
    return {key->arybva_kudckey + first, static_cast<uint16_t>(end - first)};
}

uint16_t cache::levels_of(const kudckeydef *key)
{
    const uint16_t columns = key->numbva_kudckey;
    if (columns == 0) return 0;
    return static_cast<uint16_t>(key->arybva_kudckey[columns - 1].level_kudcbva + 1);
}

uint16_t cache::first_key_column(const kudcidxdef *index, uint32_t level)
{
    uint16_t column = 0;
    while (column < index->clct_kudcidx && index->cols_kudcidx[column].level_kudcbva < level)
        column++;
    return column;
}

uint32_t cache::check_goal(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *goal)
{
    if (goal == nullptr || goal->numbva_kudckey > index->clct_kudcidx
        || (goal->numbva_kudckey != 0 && goal->arybva_kudckey == nullptr))
        return refuse(acmp, KUVAA_NOVALUE);
    uint16_t level = 0;
    uint16_t within = 0; // columns of the level so far
    uint16_t first = 0;  // the index's first one of the level
    for (uint16_t i = 0; i < goal->numbva_kudckey; i++) {
        const kudcbvadef &value = goal->arybva_kudckey[i];
        if (value.level_kudcbva < level || value.level_kudcbva >= index->lvct_kudcidx)
            return refuse(acmp, KUVAA_NOVALUE);
        within = value.level_kudcbva == level ? within : uint16_t{0};
        level = value.level_kudcbva;
        while (first < index->clct_kudcidx && index->cols_kudcidx[first].level_kudcbva < level)
            first++;
        if (within >= index->lvcl_kudcidx[level] || value.col_kudcbva == nullptr
            || value.val_kudcbva == nullptr)
            return refuse(acmp, KUVAA_NOVALUE);
        const auto column = static_cast<uint16_t>(first + within++);
        if (value_bytes(value) > uint64_t{longest_key_value(index, column)} + 1)
            return refuse(acmp, KUVAA_NOVALUE);
    }
    return 0;
}

uint32_t cache::check_key(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr) return 0;
    if (const uint32_t status = check_goal(acmp, index, cursor->keyp_kudccur)) return status;
    const bool fits = cursor->keyp_kudccur->numlevsize_kudckey <= index->lvct_kudcidx;
    return fits ? 0 : refuse(acmp, KUVAA_NOVALUE);
}

cache::lent_goal::lent_goal(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *goal)
    : key_(*goal), sizes_(acmp->kuxp_kudcacc)
{
    key_.numlevsize_kudckey = levels_of(goal);
    sizes_.reset(obtain<uint16_t>(acmp->kuxp_kudcacc, key_.numlevsize_kudckey));
    key_.arylevsize_kudckey = sizes_.get();
    for (uint16_t l = 0; sizes_ && l < key_.numlevsize_kudckey; l++)
        key_.arylevsize_kudckey[l] = index->lvrt_kudcidx[l].size_kudcidh;
}

// Empties a value; no length in front is left of the one that was there.
static void kudcfvoid(kudcbvadef *value)
{
    value->len_kudcbva = 0;
    if (value->val_kudcbva != nullptr) value->val_kudcbva[0] = 0;
}

void cache::clear_levels(kudckeydef *key, uint16_t level)
{
    for (uint16_t i = 0; i < key->numbva_kudckey; i++) {
        kudcbvadef &value = key->arybva_kudckey[i];
        if (value.level_kudcbva < level) continue;
        value.set_kudcbva = 0;
        kudcfvoid(&value);
    }
}

// Reads the first leaf with entries under a block of a tree. *found: there is one.
static uint32_t kudcfleaf(kudcaccdef *acmp, const kudcidhdef &level, int32_t position, bool *found)
{
    unsigned char *block = acmp->indx_kudcacc;
    if (block == nullptr) return refuse(acmp, KUVAA_MISSING);
    *found = false;
    cache::block_steps steps(acmp, level);
    while (position != KUDC_NONE) {
        if (const uint32_t status = steps.take()) return status;
        if (const uint32_t status = cache::visit_block(acmp, level, position, block)) return status;
        const kudcidhdef header = cache::header_of(block);
        *found = header.leaf_kudcidh != 0 && header.kyct_kudcidh != 0;
        if (*found) return 0;
        position = header.leaf_kudcidh != 0 ? header.rsib_kudcidh : header.less_kudcidh;
    }
    return 0;
}

uint32_t cache::load_first_key(kudcaccdef *acmp, const kudcidxdef *index, kudckeydef *key,
                               uint16_t level, int32_t root, kudcinddef *entry, bool *found)
{
    if (root < 0) root = KUDC_NONE;
    if (const uint32_t status = kudcfleaf(acmp, index->lvrt_kudcidx[level], root, found))
        return status;
    if (!*found) return 0;
    const unsigned char *block = acmp->indx_kudcacc;
    *entry = entry_of(block, 0);
    return key == nullptr ? 0 : load_key(acmp, index, block, 0, columns_of(key, level), nullptr);
}

// ---- keys ----

// Gives a key columns with buffers of their own.
//   from    the columns to copy, but not their values
//   sizes   longest value of each, in bytes; null: `largest` for all
static uint32_t kudcfcolumns(kudcaccdef *acmp, const kudcbvadef *from, uint16_t count,
                             const uint32_t *sizes, uint32_t largest, kudcbvadef *to)
{
    for (uint16_t i = 0; i < count; i++) {
        to[i] = from[i];
        to[i].val_kudcbva = nullptr; // so that a failure below frees none of another's
    }
    for (uint16_t i = 0; i < count; i++) {
        const uint32_t size = sizes != nullptr ? sizes[i] : largest;
        to[i].val_kudcbva = obtain<unsigned char>(acmp->kuxp_kudcacc, uint64_t{size} + 1);
        if (to[i].val_kudcbva == nullptr) return KUVAA_NOMEM;
    }
    return 0;
}

// Makes a key like the index's, without values.
static uint32_t kudcfkey(kudcaccdef *acmp, const kudcidxdef *index, const uint32_t *sizes,
                         uint32_t largest, kudckeydef *key)
{
    kux *ctx = acmp->kuxp_kudcacc;
    const uint16_t count = index->clct_kudcidx;
    key->numlevsize_kudckey = index->lvct_kudcidx;
    key->arylevsize_kudckey = obtain<uint16_t>(ctx, index->lvct_kudcidx);
    key->arybva_kudckey = obtain<kudcbvadef>(ctx, count);
    if (key->arylevsize_kudckey == nullptr || key->arybva_kudckey == nullptr) return KUVAA_NOMEM;
    for (uint16_t l = 0; l < index->lvct_kudcidx; l++)
        key->arylevsize_kudckey[l] = index->lvrt_kudcidx[l].size_kudcidh;
    key->numbva_kudckey = count;
    return kudcfcolumns(acmp, index->cols_kudcidx, count, sizes, largest, key->arybva_kudckey);
}

// A copy of the goal key; its columns' split flags are 0.
static uint32_t kudcfcopy(kudcaccdef *acmp, const kudcidxdef *index, const uint32_t *sizes,
                          uint32_t largest, kudckeydef *key)
{
    const uint32_t status = kudcfkey(acmp, index, sizes, largest, key);
    for (uint16_t i = 0; i < key->numbva_kudckey; i++) key->arybva_kudckey[i].split_kudcbva = 0;
    return status;
}

// A copy of the goal key with lengths 0.
static uint32_t kudcfempty(kudcaccdef *acmp, const kudcidxdef *index, const uint32_t *sizes,
                           uint32_t largest, kudckeydef *key)
{
    const uint32_t status = kudcfcopy(acmp, index, sizes, largest, key);
    for (uint16_t i = 0; i < key->numbva_kudckey; i++) key->arybva_kudckey[i].len_kudcbva = 0;
    return status;
}

// Gives a cursor's key the columns of its index again, with no values.
static void kudcfwiden(const kudcidxdef *index, kudckeydef *key)
{
    if (key->arybva_kudckey == nullptr || key->arylevsize_kudckey == nullptr) return;
    key->numbva_kudckey = index->clct_kudcidx;
    key->numlevsize_kudckey = index->lvct_kudcidx;
    for (uint16_t l = 0; l < index->lvct_kudcidx; l++)
        key->arylevsize_kudckey[l] = index->lvrt_kudcidx[l].size_kudcidh;
    for (uint16_t i = 0; i < index->clct_kudcidx; i++) {
        kudcbvadef &value = key->arybva_kudckey[i];
        unsigned char *buffer = value.val_kudcbva;
        value = index->cols_kudcidx[i];
        value.val_kudcbva = buffer;
        kudcfvoid(&value);
        value.set_kudcbva = 0;
        value.valnul_kudcbva = 0;
        value.split_kudcbva = 0;
    }
}

uint32_t kudcfrbv(kux *kuvp, kux *kuxp, kudcbvadef *values, uint16_t count)
{
    if (values == nullptr || kuxp == nullptr) return 0;
    kux *ctx = kuvp != nullptr ? kuvp : kuxp;
    for (uint16_t i = 0; i < count; i++)
        if (values[i].val_kudcbva != nullptr) ctx->kuxnmfree(ctx, values[i].val_kudcbva);
    kuxp->kuxnmfree(kuxp, values);
    return 0;
}

uint32_t kudcfrky(kudcaccdef *acmp, kudckeydef *key, int32_t freekey)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (key == nullptr) return 0;
    release(acmp, key->arylevsize_kudckey);
    kudcfrbv(cache::releaser(acmp), acmp->kuxp_kudcacc, key->arybva_kudckey, key->numbva_kudckey);
    *key = kudckeydef{};
    if (freekey == 1) release(acmp, key);
    return 0;
}

// ---- creation: indexes ----

// What a descriptor's key columns ask for: 0, or the code of what is wrong with them.
static uint32_t kudcfdescribed(const kudciddtdef &wanted)
{
    if (wanted.numbva_kudciddt == 0) return KUVAA_NOVALUE;
    if (wanted.arybva_kudciddt == nullptr) return KUVAA_MISSING;
    uint16_t level = 0;
    for (uint16_t i = 0; i < wanted.numbva_kudciddt; i++) {
        const kudcbvadef &value = wanted.arybva_kudciddt[i];
        if (value.col_kudcbva == nullptr || value.col_kudcbva->segm_kudxcol != 0
            || value.level_kudcbva < level)
            return KUVAA_NOVALUE;
        level = value.level_kudcbva;
    }
    const uint16_t type = wanted.idxt_kudciddt;
    if (type == KUDC_RANDOM || type == KUDC_SEQNTL || type == KUDC_DYNBRK) return 0;
    return KUDCA_TYPE;
}

static uint64_t kudcfround(uint64_t bytes, uint32_t step)
{
    return (bytes + step - 1) / step * step;
}

// Makes the template of one level's blocks.
//   width  sum of the longest values of its columns, in bytes
static uint32_t kudcflevel(const kudcaccdef *acmp, kudcidxdef *index, uint16_t level,
                           uint64_t width, int32_t split)
{
    const uint16_t columns = index->lvcl_kudcidx[level];
    const uint64_t key =
        kudcfround(width + uint64_t{cache::key_head} * columns, kudcf_key_rounding);
    if (key + cache::entry_bytes + cache::block_head >= kudcf_key_limit)
        return refuse(acmp, KUDCA_KEYSIZE);
    const uint64_t entry = key + cache::entry_bytes;
    const uint32_t keys = level == 0 ? kudcf_first_level_keys : kudcf_other_level_keys;
    const uint64_t size = std::min<uint64_t>(
        kudcfround(keys * entry + cache::block_head, kudcf_block_rounding), cache::largest_block);

    kudcidhdef header = {};
    header.idxt_kudcidh = index->idxt_kudcidx;
    header.lsib_kudcidh = header.rsib_kudcidh = KUDC_NONE;
    header.ublk_kudcidh = header.less_kudcidh = KUDC_NONE;
    header.size_kudcidh = static_cast<uint16_t>(size);
    header.free_kudcidh = static_cast<uint16_t>(size - cache::block_head);
    header.kymx_kudcidh = static_cast<uint16_t>(key);
    header.mxct_kudcidh = static_cast<uint16_t>(header.free_kudcidh / entry);
    header.clct_kudcidh = columns;
    header.levl_kudcidh = level;
    header.last_kudcidh = level + 1 == index->lvct_kudcidx ? 1 : 0;
    header.splt_kudcidh = split;
    header.leaf_kudcidh = 1;
    index->lvrt_kudcidx[level] = header;
    index->lvwd_kudcidx[level] = static_cast<uint16_t>(width);
    return 0;
}

// Lays out the levels of an index and the templates of their blocks.
static uint32_t kudcflevels(kudcaccdef *acmp, kudcidxdef *index, const kudciddtdef &wanted)
{
    kux *ctx = acmp->kuxp_kudcacc;
    const uint16_t levels = index->lvct_kudcidx;
    index->lvwd_kudcidx = obtain<uint16_t>(ctx, levels);
    index->lvcl_kudcidx = obtain<uint16_t>(ctx, levels);
    index->lvrt_kudcidx = static_cast<kudcidhdef *>(
        cache::obtain(ctx, levels, sizeof(kudcidhdef) + sizeof(cache::level_notes)));
    if (index->lvwd_kudcidx == nullptr || index->lvcl_kudcidx == nullptr
        || index->lvrt_kudcidx == nullptr)
        return KUVAA_NOMEM;
    uint16_t column = 0;
    for (uint16_t l = 0; l < levels; l++) {
        uint64_t width = 0;
        int32_t split = index->idxt_kudcidx == KUDC_RANDOM ? 0 : 1;
        for (; column < wanted.numbva_kudciddt; column++) {
            const kudcbvadef &value = wanted.arybva_kudciddt[column];
            if (value.level_kudcbva != l) break;
            index->lvcl_kudcidx[l]++;
            width += value.col_kudcbva->maxlen_kudxcol;
            if (index->idxt_kudcidx == KUDC_RANDOM) split = value.split_kudcbva;
        }
        if (const uint32_t status = kudcflevel(acmp, index, l, width, split)) return status;
        acmp->isiz_kudcacc = std::max(acmp->isiz_kudcacc, index->lvrt_kudcidx[l].size_kudcidh);
    }
    return 0;
}

// Makes the key columns of an index, their sizes behind them, and its working key.
static uint32_t kudcfcols(kudcaccdef *acmp, kudcidxdef *index, const kudciddtdef &wanted)
{
    const uint16_t count = wanted.numbva_kudciddt;
    index->cols_kudcidx = static_cast<kudcbvadef *>(
        obtain(acmp->kuxp_kudcacc, count, sizeof(kudcbvadef) + sizeof(uint32_t)));
    if (index->cols_kudcidx == nullptr) return KUVAA_NOMEM;
    index->clct_kudcidx = count;
    auto *sizes = reinterpret_cast<uint32_t *>(index->cols_kudcidx + count);
    for (uint16_t i = 0; i < count; i++)
        sizes[i] = wanted.arybva_kudciddt[i].col_kudcbva->maxlen_kudxcol;
    const uint32_t status =
        kudcfcolumns(acmp, wanted.arybva_kudciddt, count, sizes, 0, index->cols_kudcidx);
    for (uint16_t i = 0; i < count; i++) index->cols_kudcidx[i].len_kudcbva = sizes[i];
    if (status != 0) return status;
    return kudcfkey(acmp, index, sizes, 0, &index->goal_kudcidx);
}

static const uint32_t *kudcfsizes(const kudcidxdef *index)
{
    return reinterpret_cast<const uint32_t *>(index->cols_kudcidx + index->clct_kudcidx);
}

// Places of a SEQNTL index or cursor: none yet. Behind them is room for those of a search that is
// not at its end.
static uint32_t kudcfplaces(kudcaccdef *acmp, uint16_t levels, kudcscldef *places)
{
    places->apos_kudcscl = obtain<int32_t>(acmp->kuxp_kudcacc, 2 * uint64_t{levels});
    places->kpos_kudcscl = obtain<int32_t>(acmp->kuxp_kudcacc, 2 * uint64_t{levels});
    if (places->apos_kudcscl == nullptr || places->kpos_kudcscl == nullptr) return KUVAA_NOMEM;
    places->npos_kudcscl = levels;
    std::fill_n(places->apos_kudcscl, levels, KUDC_NONE);
    std::fill_n(places->kpos_kudcscl, levels, KUDC_NONE);
    return 0;
}

static uint32_t kudcfrandom(kudcaccdef *acmp, kudcidxdef *index)
{
    kux *ctx = acmp->kuxp_kudcacc;
    kudcridxdef &tree = index->tinf_kudcidx.rinf_kudcidx;
    tree.splt_kudcridx = obtain<int32_t>(ctx, index->lvct_kudcidx);
    if (tree.splt_kudcridx == nullptr) return KUVAA_NOMEM;
    for (uint16_t l = 0; l < index->lvct_kudcidx; l++)
        tree.splt_kudcridx[l] = index->lvrt_kudcidx[l].splt_kudcidh;

    const kudcidhdef &level = index->lvrt_kudcidx[0];
    const ku::owned<unsigned char> block(ctx, obtain<unsigned char>(ctx, level.size_kudcidh));
    if (!block) return KUVAA_NOMEM;
    tree.root_kudcridx = acmp->nxio_kudcacc;
    cache::make_block(block.get(), level, tree.root_kudcridx);
    if (const uint32_t status =
            cache::write_block(acmp, tree.root_kudcridx, level.size_kudcidh, block.get()))
        return status;
    acmp->nxio_kudcacc += level.size_kudcidh;
    return 0;
}

static uint32_t kudcfsequential(kudcaccdef *acmp, kudcidxdef *index)
{
    kudcsidxdef &chains = index->tinf_kudcidx.sinf_kudcidx;
    for (kudcsposdef *end : {&chains.head_kudcsidx, &chains.tail_kudcsidx}) {
        if (const uint32_t status = kudcfplaces(acmp, index->lvct_kudcidx, &end->cloc_kudcspos))
            return status;
        if (const uint32_t status =
                kudcfempty(acmp, index, kudcfsizes(index), 0, &end->ckey_kudcspos))
            return status;
    }
    return 0;
}

static uint32_t kudcfbreaks(kudcaccdef *acmp, const kudcthddef *thread, kudcidxdef *index)
{
    kux *ctx = acmp->kuxp_kudcacc;
    kudcbidxdef &breaks = index->tinf_kudcidx.binf_kudcidx;
    breaks.keyp_kudcbidx = obtain<kudckeydef>(ctx);
    breaks.abvap_kudcbidx = obtain<kudcbvadef *>(ctx, thread->clct_kudcthd);
    if (breaks.keyp_kudcbidx == nullptr || breaks.abvap_kudcbidx == nullptr) return KUVAA_NOMEM;
    if (const uint32_t status = kudcfcopy(acmp, index, kudcfsizes(index), 0, breaks.keyp_kudcbidx))
        return status;
    kudcbvadef *first = breaks.keyp_kudcbidx->arybva_kudckey;
    for (uint16_t c = 0; c < thread->clct_kudcthd; c++) {
        kudcbvadef *end = first + index->clct_kudcidx;
        kudcbvadef *over =
            std::find_if(first, end, [column = thread->acol_kudcthd[c]](const kudcbvadef &value) {
                return value.col_kudcbva == column;
            });
        breaks.abvap_kudcbidx[c] = over == end ? nullptr : over;
    }
    return 0;
}

// Builds an index whose slots begin at *slot, which moves behind them.
static uint32_t kudcfindex(kudcaccdef *acmp, const kudcthddef *thread, kudcidxdef *index,
                           const kudciddtdef &wanted, uint32_t *slot)
{
    if (const uint32_t code = kudcfdescribed(wanted)) return refuse(acmp, code);
    const uint32_t levels =
        uint32_t{wanted.arybva_kudciddt[wanted.numbva_kudciddt - 1].level_kudcbva} + 1;
    if (*slot + levels + 1 > kudcf_most_slots) return refuse(acmp, KUVAA_NOVALUE);
    index->idxt_kudcidx = wanted.idxt_kudciddt;
    index->lvst_kudcidx = static_cast<uint16_t>(*slot);
    index->lvct_kudcidx = static_cast<uint16_t>(levels);
    *slot += levels + 1;
    if (const uint32_t status = kudcflevels(acmp, index, wanted)) return status;
    if (const uint32_t status = kudcfcols(acmp, index, wanted)) return status;
    if (index->idxt_kudcidx == KUDC_RANDOM) return kudcfrandom(acmp, index);
    if (index->idxt_kudcidx == KUDC_SEQNTL) return kudcfsequential(acmp, index);
    return kudcfbreaks(acmp, thread, index);
}

// ---- creation: threads ----

// Takes the columns over into the thread, their sizes behind them.
static uint32_t kudcfacol(kudcaccdef *acmp, kudcthddef *thread, const kudctddtdef &wanted)
{
    const uint16_t count = wanted.numcol_kudctddt;
    if (wanted.arycol_kudctddt == nullptr) return refuse(acmp, KUVAA_MISSING);
    thread->acol_kudcthd = static_cast<kudxcoldef **>(
        obtain(acmp->kuxp_kudcacc, count, sizeof(kudxcoldef *) + sizeof(uint32_t)));
    if (thread->acol_kudcthd == nullptr) return KUVAA_NOMEM;
    thread->clct_kudcthd = count;
    auto *sizes = reinterpret_cast<uint32_t *>(thread->acol_kudcthd + count);
    uint64_t longest = 0;
    bool segmented = false;
    for (uint16_t i = 0; i < count; i++) {
        kudxcoldef *column = wanted.arycol_kudctddt[i];
        if (column == nullptr) return refuse(acmp, KUVAA_NOVALUE);
        thread->acol_kudcthd[i] = column;
        sizes[i] = column->maxlen_kudxcol;
        longest += uint64_t{sizes[i]} + cache::column_head + kudxctrmlen(column);
        segmented = segmented || column->segm_kudxcol != 0;
    }
    thread->mlen_kudcthd = static_cast<uint32_t>(std::min<uint64_t>(longest, UINT32_MAX));
    thread->useb_kudcthd = !segmented && longest <= kudcf_row_piece ? 1 : 0;
    return 0;
}

static uint32_t kudcfthread(kudcaccdef *acmp, kudcthddef *thread, const kudctddtdef &wanted)
{
    kux *ctx = acmp->kuxp_kudcacc;
    thread->frst_kudcthd = thread->last_kudcthd = KUDC_NONE;
    if (const uint32_t status = kudcfacol(acmp, thread, wanted)) return status;
    const kudciddtdef *indexes = wanted.aryidd_kudctddt;
    if (wanted.numidd_kudctddt == 0) return 0;
    if (indexes == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (indexes[0].numbva_kudciddt == 0) return 0;

    thread->idxs_kudcthd = obtain<kudcidxdef>(ctx, wanted.numidd_kudctddt);
    if (thread->idxs_kudcthd == nullptr) return KUVAA_NOMEM;
    thread->idxc_kudcthd = wanted.numidd_kudctddt;
    uint32_t slots = 0;
    for (uint16_t i = 0; i < thread->idxc_kudcthd; i++)
        if (const uint32_t status =
                kudcfindex(acmp, thread, thread->idxs_kudcthd + i, indexes[i], &slots))
            return status;
    thread->idlc_kudcthd = static_cast<uint16_t>(slots);
    thread->idxl_kudcthd = obtain<kudclnkdef>(ctx, slots);
    thread->delp_kudcthd = obtain<uint16_t>(ctx, thread->idxc_kudcthd);
    return thread->idxl_kudcthd != nullptr && thread->delp_kudcthd != nullptr ? 0 : KUVAA_NOMEM;
}

// ---- creation: the cache ----

// Makes a scratch file under a prefix.
static uint32_t kudcfopen(kudcaccdef *acmp, const char *prefix, void **file)
{
    kux *ctx = acmp->kuxp_kudcacc;
    const int32_t before = kuxernerrors(ctx);
    const ku::owned<char> name(ctx, skufzname(ctx, acmp->skufh_kudcacc, prefix));
    // A file whose status could not be read is told on the stack and has a name all the same.
    if (name && kuxernerrors(ctx) != before) return kuxercode(ctx);
    // A null name is refused with a code, which a name that is not to be had does not give.
    *file = skufvopen(ctx, acmp->skufh_kudcacc, name.get(), SKUF_SCRATCH);
    if (*file != nullptr) return 0;
    // It may have been made and then not emptied. Refused for another reason, or no plain file,
    // it is another's.
    const int32_t told = kuxernerrors(ctx);
    if (name && kuxercode(ctx) == SKUFA_OPEN && skubfexist(ctx, name.get()) != 0)
        skufodelete(ctx, name.get());
    while (kuxernerrors(ctx) > told) kuxerpop(ctx);
    return kuxernerrors(ctx) != 0 ? kuxercode(ctx) : refuse(acmp, KUVAA_NOMEM);
}

// Makes the row buffer, with room for the head in front of the columns, and the block buffers.
static uint32_t kudcfbuffers(kudcaccdef *acmp)
{
    kux *ctx = acmp->kuxp_kudcacc;
    uint32_t head = 0;
    for (uint16_t t = 0; t < acmp->thct_kudcacc; t++) {
        const kudcthddef *thread = acmp->thrd_kudcacc + t;
        if (thread->useb_kudcthd == 0) continue;
        head = std::max(head, cache::fixed_bytes(thread));
        acmp->bufs_kudcacc = std::max(acmp->bufs_kudcacc, thread->mlen_kudcthd);
    }
    if (acmp->bufs_kudcacc != 0) {
        acmp->bufp_kudcacc = obtain<unsigned char>(ctx, uint64_t{head} + acmp->bufs_kudcacc);
        if (acmp->bufp_kudcacc == nullptr) return KUVAA_NOMEM;
    }
    acmp->indx_kudcacc = obtain<unsigned char>(ctx, acmp->isiz_kudcacc);
    acmp->copy_kudcacc = obtain<unsigned char>(ctx, acmp->isiz_kudcacc);
    return acmp->indx_kudcacc != nullptr && acmp->copy_kudcacc != nullptr ? 0 : KUVAA_NOMEM;
}

static uint32_t kudcfbuild(kudcaccdef *acmp, const char *datapath, const char *indexpath,
                           uint16_t threads, const kudctddtdef *descriptors)
{
    acmp->thrd_kudcacc = obtain<kudcthddef>(acmp->kuxp_kudcacc, threads);
    if (acmp->thrd_kudcacc == nullptr) return KUVAA_NOMEM;
    acmp->thct_kudcacc = threads;
    if (const uint32_t status = kudcfopen(acmp, datapath, &acmp->datf_kudcacc)) return status;
    if (const uint32_t status = kudcfopen(acmp, indexpath, &acmp->idxf_kudcacc)) return status;
    acmp->pdl1_kudcacc = KUDC_NONE;
    acmp->isiz_kudcacc = cache::smallest_work_block;
    for (uint16_t t = 0; t < threads; t++)
        if (const uint32_t status = kudcfthread(acmp, acmp->thrd_kudcacc + t, descriptors[t]))
            return status;
    return kudcfbuffers(acmp);
}

uint32_t kudcftcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath,
                      const char *indexpath, uint16_t threads, const kudctddtdef *descriptors,
                      kudcaccdef **acmpp)
{
    if (kuxp == nullptr) return KUVAA_MISSING;
    if (acmpp == nullptr) return refuse(kuxp, KUVAA_MISSING);
    *acmpp = nullptr;
    if (threads == 0) return 0;
    if (descriptors == nullptr) return refuse(kuxp, KUVAA_MISSING);
    auto *acmp = obtain<kudcaccdef>(kuxp);
    if (acmp == nullptr) return KUVAA_NOMEM;
    *acmp = kudcaccdef{};
    acmp->kuxp_kudcacc = kuxp;
    acmp->kuvp_kudcacc = kuvp;
    acmp->skufh_kudcacc = skufh;
    const uint32_t status = kudcfbuild(acmp, datapath, indexpath, threads, descriptors);
    if (status == 0)
        *acmpp = acmp;
    else
        kudcfdestroy(acmp);
    return status;
}

uint32_t kudcfcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath, const char *indexpath,
                     uint16_t threads, const kudctdddef *descriptors, kudcaccdef **acmpp)
{
    if (kuxp == nullptr) return KUVAA_MISSING;
    if (threads == 0 || descriptors == nullptr)
        return kudcftcreate(kuxp, kuvp, skufh, datapath, indexpath, threads, nullptr, acmpp);
    if (acmpp != nullptr) *acmpp = nullptr;
    uint64_t count = 0; // indexes of all threads
    for (uint16_t t = 0; t < threads; t++) count += descriptors[t].numidd_kudctdd;
    const ku::owned<kudctddtdef> typed(kuxp, obtain<kudctddtdef>(kuxp, threads));
    if (!typed) return KUVAA_NOMEM;
    const ku::owned<kudciddtdef> indexes(kuxp, obtain<kudciddtdef>(kuxp, count));
    if (!indexes) return KUVAA_NOMEM;

    kudciddtdef *next = indexes.get();
    for (uint16_t t = 0; t < threads; t++) {
        const kudctdddef &from = descriptors[t];
        typed.get()[t] = {from.numcol_kudctdd, from.numidd_kudctdd, from.arycol_kudctdd,
                          from.aryidd_kudctdd == nullptr ? nullptr : next};
        for (uint16_t i = 0; from.aryidd_kudctdd != nullptr && i < from.numidd_kudctdd; i++) {
            const kudcidddef &index = from.aryidd_kudctdd[i];
            *next++ = {KUDC_RANDOM, index.numlev_kudcidd, index.numbva_kudcidd,
                       index.arybva_kudcidd, index.split_kudcidd};
        }
    }
    return kudcftcreate(kuxp, kuvp, skufh, datapath, indexpath, threads, typed.get(), acmpp);
}

// ---- destruction ----

// Closes a scratch file and deletes it, whatever is on the stack and whatever fails. Returns
// 0, or the code of what failed; nothing is left on the stack.
static uint32_t kudcfclose(const kudcaccdef *acmp, void *file)
{
    if (file == nullptr) return 0;
    kux *ctx = acmp->kuxp_kudcacc;
    const char *path = static_cast<skufv *>(file)->skufvname;
    const ku::aside apart(ctx);
    if (!apart.saved()) { // on a full level what is told would drop the oldest record
        skufodelete(ctx, path);
        skufvdrop(ctx, acmp->skufh_kudcacc, file);
        return 0;
    }
    const uint64_t bytes = uint64_t{std::strlen(path)} + 1;
    const ku::owned<char> name(ctx, static_cast<char *>(ku::allocate(ctx, bytes, 1)));
    kuxerclear(ctx);
    if (name)
        std::memcpy(name.get(), path, bytes);
    else
        skufodelete(ctx, path);
    skufvclose(ctx, acmp->skufh_kudcacc, file);
    const uint32_t status = kuxercode(ctx);
    if (status != 0 && name) skufodelete(ctx, name.get()); // a failed close keeps the file
    return status;
}

static void kudcfplacesend(const kudcaccdef *acmp, kudcsposdef *places)
{
    release(acmp, places->cloc_kudcspos.apos_kudcscl);
    release(acmp, places->cloc_kudcspos.kpos_kudcscl);
    places->cloc_kudcspos = kudcscldef{};
}

// Releases a cursor. A key that became short is the index's again.
static void kudcfcursend(kudcaccdef *acmp, const kudcidxdef *index, kudccurdef *cursor)
{
    if (index != nullptr && cursor->keyp_kudccur != nullptr) {
        kudcfwiden(index, cursor->keyp_kudccur);
        kudcfrky(acmp, cursor->keyp_kudccur, 1);
    }
    if (index != nullptr && index->idxt_kudcidx == KUDC_SEQNTL && cursor->ipsh_kudccur != nullptr) {
        kudcsposdef *places = &static_cast<kudcsipsdef *>(cursor->ipsh_kudccur)->spos_kudcsips;
        kudcfwiden(index, &places->ckey_kudcspos);
        kudcfrky(acmp, &places->ckey_kudcspos, 0);
        kudcfplacesend(acmp, places);
    }
    release(acmp, cursor->ipsh_kudccur);
    release(acmp, cursor);
}

static void kudcfreuseend(kudcaccdef *acmp, kudcidxdef *index)
{
    kux *ctx = acmp->kuxp_kudcacc;
    if (index->curmemlst_kudcidx == nullptr) return;
    const kul *kept = kulplock(ctx, index->curmemlst_kudcidx);
    for (int32_t i = 0; i < kept->nitems_kul; i++)
        kudcfcursend(acmp, index, static_cast<kudccurdef *>(kept->items_kul[i]));
    index->curmemlst_kudcidx = kulpdestroy(ctx, index->curmemlst_kudcidx);
}

static void kudcfindexend(kudcaccdef *acmp, kudcidxdef *index)
{
    kudcfreuseend(acmp, index);
    auto &types = index->tinf_kudcidx;
    if (index->idxt_kudcidx == KUDC_RANDOM) {
        release(acmp, types.rinf_kudcidx.splt_kudcridx);
    } else if (index->idxt_kudcidx == KUDC_SEQNTL) {
        for (kudcsposdef *end :
             {&types.sinf_kudcidx.head_kudcsidx, &types.sinf_kudcidx.tail_kudcsidx}) {
            kudcfrky(acmp, &end->ckey_kudcspos, 0);
            kudcfplacesend(acmp, end);
        }
    } else if (index->idxt_kudcidx == KUDC_DYNBRK) {
        kudcfrky(acmp, types.binf_kudcidx.keyp_kudcbidx, 1);
        release(acmp, types.binf_kudcidx.abvap_kudcbidx);
    }
    kudcfrbv(cache::releaser(acmp), acmp->kuxp_kudcacc, index->cols_kudcidx, index->clct_kudcidx);
    kudcfrky(acmp, &index->goal_kudcidx, 0);
    cache::drop_unsettled(acmp, index);
    release(acmp, index->lvwd_kudcidx);
    release(acmp, index->lvcl_kudcidx);
    release(acmp, index->lvrt_kudcidx);
}

static void kudcfthreadend(kudcaccdef *acmp, kudcthddef *thread)
{
    release(acmp, thread->idxl_kudcthd);
    release(acmp, thread->delp_kudcthd);
    for (uint16_t i = 0; i < thread->idxc_kudcthd; i++)
        kudcfindexend(acmp, thread->idxs_kudcthd + i);
    release(acmp, thread->idxs_kudcthd);
    release(acmp, thread->acol_kudcthd);
}

// The index that a cursor of this cache was made for, or null.
static kudcidxdef *kudcfcursindex(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    if (cursor->idx_kudccur < 0 || cursor->thread_kudccur >= acmp->thct_kudcacc) return nullptr;
    const kudcthddef *thread = acmp->thrd_kudcacc + cursor->thread_kudccur;
    if (cursor->idx_kudccur >= int{thread->idxc_kudcthd}) return nullptr;
    return thread->idxs_kudcthd + cursor->idx_kudccur;
}

uint32_t kudcfdestroy(kudcaccdef *acmp)
{
    if (acmp == nullptr) return 0;
    kux *ctx = acmp->kuxp_kudcacc;
    uint32_t status = kudcfclose(acmp, acmp->datf_kudcacc);
    if (const uint32_t other = kudcfclose(acmp, acmp->idxf_kudcacc)) status = other;
    release(acmp, acmp->indx_kudcacc);
    release(acmp, acmp->copy_kudcacc);
    release(acmp, acmp->bufp_kudcacc);
    while (kudccurdef *cursor = acmp->curs_kudcacc) {
        acmp->curs_kudcacc = cursor->link_kudccur;
        kudcfcursend(acmp, kudcfcursindex(acmp, cursor), cursor);
    }
    for (uint16_t t = 0; t < acmp->thct_kudcacc; t++) kudcfthreadend(acmp, acmp->thrd_kudcacc + t);
    release(acmp, acmp->thrd_kudcacc);
    ctx->kuxnmfree(ctx, acmp);
    return status == 0 ? 0 : refuse(ctx, status);
}

// ---- cursors ----

// Makes the position record of an index's cursor.
static uint32_t kudcfposition(kudcaccdef *acmp, const kudcidxdef *index, uint32_t largest,
                              kudccurdef *cursor)
{
    kux *ctx = acmp->kuxp_kudcacc;
    if (index->idxt_kudcidx != KUDC_SEQNTL) {
        const bool random = index->idxt_kudcidx == KUDC_RANDOM;
        cursor->ipsh_kudccur = obtain(ctx, 1, random ? sizeof(kudcrposdef) : sizeof(kudcbipsdef));
        return cursor->ipsh_kudccur != nullptr ? 0 : KUVAA_NOMEM;
    }
    auto *record = obtain<kudcsipsdef>(ctx);
    if (record == nullptr) return KUVAA_NOMEM;
    *record = kudcsipsdef{};
    cursor->ipsh_kudccur = record;
    kudcsposdef *places = &record->spos_kudcsips;
    if (const uint32_t status = kudcfplaces(acmp, index->lvct_kudcidx, &places->cloc_kudcspos))
        return status;
    return kudcfempty(acmp, index, nullptr, largest, &places->ckey_kudcspos);
}

// A fresh cursor with what its index needs; null with a code pushed.
static kudccurdef *kudcfmake(kudcaccdef *acmp, const kudcidxdef *index)
{
    kux *ctx = acmp->kuxp_kudcacc;
    auto *cursor = obtain<kudccurdef>(ctx);
    if (cursor == nullptr) return nullptr;
    *cursor = kudccurdef{};
    if (index == nullptr) return cursor;
    const uint32_t *sizes = kudcfsizes(index);
    const uint32_t largest = *std::max_element(sizes, sizes + index->clct_kudcidx);
    cursor->keyp_kudccur = obtain<kudckeydef>(ctx);
    if (cursor->keyp_kudccur != nullptr
        && kudcfempty(acmp, index, nullptr, largest, cursor->keyp_kudccur) == 0
        && kudcfposition(acmp, index, largest, cursor) == 0)
        return cursor;
    kudcfcursend(acmp, index, cursor);
    return nullptr;
}

// Makes a cursor as good as new, on no row and with no key.
static void kudcfreset(kudcaccdef *acmp, uint16_t thread, int16_t number, const kudcidxdef *index,
                       kudccurdef *cursor)
{
    cursor->cachep_kudccur = acmp;
    cursor->thread_kudccur = thread;
    cursor->idx_kudccur = number;
    cursor->curleft_kudccur = 0;
    cache::rewind_cursor(cursor);
    cursor->link_kudccur = nullptr;
    if (index == nullptr) return;
    kudcfwiden(index, cursor->keyp_kudccur);
    cache::held_row(cursor) = KUDC_NONE;
    if (index->idxt_kudcidx == KUDC_SEQNTL) {
        kudcsposdef &places = static_cast<kudcsipsdef *>(cursor->ipsh_kudccur)->spos_kudcsips;
        kudcfwiden(index, &places.ckey_kudcspos);
        std::fill_n(places.cloc_kudcspos.apos_kudcscl, index->lvct_kudcidx, KUDC_NONE);
        std::fill_n(places.cloc_kudcspos.kpos_kudcscl, index->lvct_kudcidx, KUDC_NONE);
    } else if (index->idxt_kudcidx == KUDC_DYNBRK) {
        auto *record = static_cast<kudcbipsdef *>(cursor->ipsh_kudccur);
        record->curr_kudcbips = record->next_kudcbips = KUDC_NONE;
    }
}

// A cursor from the index's list, or a fresh one; on no list. Null with a code pushed.
static kudccurdef *kudcftake(kudcaccdef *acmp, uint16_t thread, int16_t number, kudcidxdef *index)
{
    kux *ctx = acmp->kuxp_kudcacc;
    kudccurdef *cursor = nullptr;
    if (index != nullptr && index->curmemlst_kudcidx != nullptr) {
        cursor = static_cast<kudccurdef *>(kulpfirst(ctx, index->curmemlst_kudcidx));
        if (cursor != nullptr) kulpdelete(ctx, index->curmemlst_kudcidx, 0);
    }
    if (cursor == nullptr) cursor = kudcfmake(acmp, index);
    if (cursor != nullptr) kudcfreset(acmp, thread, number, index, cursor);
    return cursor;
}

// Puts a cursor at the first key of each level of a RANDOM index.
static uint32_t kudcfdescend(kudcaccdef *acmp, const kudcidxdef *index, kudccurdef *cursor)
{
    int32_t root = index->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    for (uint16_t l = 0; l < index->lvct_kudcidx; l++) {
        kudcinddef entry;
        bool found;
        if (const uint32_t status =
                cache::load_first_key(acmp, index, cursor->keyp_kudccur, l, root, &entry, &found))
            return status;
        if (!found) {
            cache::clear_levels(cursor->keyp_kudccur, l);
            cursor->curleft_kudccur = 0;
            return 0;
        }
        cursor->curleft_kudccur = entry.coun_kudcind;
        root = entry.root_kudcind;
    }
    return 0;
}

// Puts a new cursor of an index at the goal, or at the first key.
static uint32_t kudcfaim(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *goal,
                         kudccurdef *cursor)
{
    if (goal != nullptr) {
        const cache::lent_goal lent(acmp, index, goal);
        if (lent.get() == nullptr) return KUVAA_NOMEM;
        cache::copy_key(lent.get(), cursor->keyp_kudccur);
        return 0;
    }
    int32_t result;
    if (index->idxt_kudcidx == KUDC_SEQNTL)
        return kudcstsrch(acmp, cursor, 0, 0, 1, KUDC_FIRST, KUDC_NONE, &result);
    if (index->idxt_kudcidx == KUDC_DYNBRK) return kudcbtsrch(acmp, cursor, 0, KUDC_FIRST, &result);
    return kudcfdescend(acmp, index, cursor);
}

static void kudcfpush(kudcaccdef *acmp, kudccurdef *cursor)
{
    cursor->link_kudccur = acmp->curs_kudcacc;
    acmp->curs_kudcacc = cursor;
}

uint32_t kudcfnwcurs(kudcaccdef *acmp, const kudckeydef *goal, uint16_t thread, int16_t index,
                     int32_t number, int32_t position, kudccurdef **cursorp)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (cursorp == nullptr) return refuse(acmp, KUVAA_MISSING);
    *cursorp = nullptr;
    const kudcthddef *rows = cache::thread_of(acmp, thread);
    if (rows == nullptr) return KUVAA_MISSING;
    kudcidxdef *keys = nullptr;
    if (index >= 0) {
        keys = cache::index_of(acmp, rows, index);
        if (keys == nullptr) return KUVAA_MISSING;
        const uint16_t type = keys->idxt_kudcidx;
        if (type != KUDC_RANDOM && type != KUDC_SEQNTL && type != KUDC_DYNBRK)
            return refuse(acmp, KUDCA_TYPE);
        if (goal != nullptr)
            if (const uint32_t status = cache::check_goal(acmp, keys, goal)) return status;
        if (const uint32_t pending = kuxercode(acmp->kuxp_kudcacc)) return pending;
    }

    kudccurdef *cursor = kudcftake(acmp, thread, index, keys);
    if (cursor == nullptr) return KUVAA_NOMEM;
    if (keys == nullptr) {
        cursor->currnum_kudccur = number;
        cursor->nxtradr_kudccur = number >= 1 ? position : KUDC_NONE;
        cursor->curleft_kudccur = rows->coun_kudcthd;
    } else if (const uint32_t status = kudcfaim(acmp, keys, goal, cursor)) {
        kudcfcursend(acmp, keys, cursor);
        return status;
    }
    kudcfpush(acmp, cursor);
    *cursorp = cursor;
    return 0;
}

// Copies a cursor's key, with which the client may have done what it must not.
static uint32_t kudcfassign(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *from,
                            kudckeydef *to)
{
    if (const uint32_t status = cache::check_goal(acmp, index, from)) return status;
    if (from->numlevsize_kudckey > index->lvct_kudcidx) return refuse(acmp, KUVAA_NOVALUE);
    cache::copy_key(from, to);
    return 0;
}

// Copies key and position record of an index's cursor.
static uint32_t kudcfduplicate(kudcaccdef *acmp, const kudcidxdef *index, const kudccurdef *from,
                               kudccurdef *to)
{
    if (const uint32_t status = kudcfassign(acmp, index, from->keyp_kudccur, to->keyp_kudccur))
        return status;
    if (index->idxt_kudcidx == KUDC_DYNBRK) {
        *static_cast<kudcbipsdef *>(to->ipsh_kudccur) =
            *static_cast<const kudcbipsdef *>(from->ipsh_kudccur);
        return 0;
    }
    cache::held_row(to) = cache::held_row(from);
    if (index->idxt_kudcidx == KUDC_RANDOM) return 0;
    const kudcsposdef &source = static_cast<kudcsipsdef *>(from->ipsh_kudccur)->spos_kudcsips;
    kudcsposdef &target = static_cast<kudcsipsdef *>(to->ipsh_kudccur)->spos_kudcsips;
    const uint16_t levels = index->lvct_kudcidx;
    std::copy_n(source.cloc_kudcspos.apos_kudcscl, levels, target.cloc_kudcspos.apos_kudcscl);
    std::copy_n(source.cloc_kudcspos.kpos_kudcscl, levels, target.cloc_kudcspos.kpos_kudcscl);
    return kudcfassign(acmp, index, &source.ckey_kudcspos, &target.ckey_kudcspos);
}

uint32_t kudcfcpcurs(kudcaccdef *acmp, const kudccurdef *cursor, kudccurdef **copyp)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (copyp == nullptr) return refuse(acmp, KUVAA_MISSING);
    *copyp = nullptr;
    if (const uint32_t status = cache::check_cursor(acmp, cursor)) return status;
    kudcidxdef *index = cache::index_of(acmp, cursor);
    kudccurdef *copy = kudcftake(acmp, cursor->thread_kudccur, cursor->idx_kudccur, index);
    if (copy == nullptr) return KUVAA_NOMEM;
    copy->currnum_kudccur = cursor->currnum_kudccur;
    copy->currpos_kudccur = cursor->currpos_kudccur;
    copy->curleft_kudccur = cursor->curleft_kudccur;
    copy->nxtradr_kudccur = cursor->curradr_kudccur;
    if (index != nullptr) {
        if (const uint32_t status = kudcfduplicate(acmp, index, cursor, copy)) {
            kudcfcursend(acmp, index, copy);
            return status;
        }
    }
    kudcfpush(acmp, copy);
    *copyp = copy;
    return 0;
}

// Takes a cursor out of the list of live ones. False when it is not there.
static bool kudcfunlink(kudcaccdef *acmp, const kudccurdef *cursor)
{
    for (kudccurdef **link = &acmp->curs_kudcacc; *link != nullptr; link = &(*link)->link_kudccur)
        if (*link == cursor) {
            *link = cursor->link_kudccur;
            return true;
        }
    return false;
}

// Whether a cursor waits for reuse; only its address is looked at.
static bool kudcfkept(kudcaccdef *acmp, const kudccurdef *cursor)
{
    for (uint16_t t = 0; t < acmp->thct_kudcacc; t++) {
        const kudcthddef *thread = acmp->thrd_kudcacc + t;
        for (uint16_t i = 0; i < thread->idxc_kudcthd; i++) {
            void *list = thread->idxs_kudcthd[i].curmemlst_kudcidx;
            if (list != nullptr && kulpismember(acmp->kuxp_kudcacc, list, cursor) != 0) return true;
        }
    }
    return false;
}

// Keeps a cursor for the next one of its index. False when there is no memory for that,
// which is nobody's error.
static bool kudcfkeep(kudcaccdef *acmp, kudcidxdef *index, kudccurdef *cursor)
{
    kux *ctx = acmp->kuxp_kudcacc;
    const ku::aside apart(ctx);
    if (!apart.saved()) return false;
    if (index->curmemlst_kudcidx == nullptr) index->curmemlst_kudcidx = kulpcreate(ctx, 0, nullptr);
    return index->curmemlst_kudcidx != nullptr
           && kulpinsert(ctx, index->curmemlst_kudcidx, KUL_APPEND, cursor) == 0;
}

uint32_t kudcffrcurs(kudcaccdef *acmp, kudccurdef *cursor)
{
    if (cursor == nullptr) return 0;
    if (acmp == nullptr) return KUVAA_MISSING;
    uint32_t status = 0;
    const bool others = acmp->curs_kudcacc != nullptr;
    kudcaccdef *owner = acmp;
    if (!kudcfunlink(acmp, cursor)) {
        if (others) status = refuse(acmp, KUVAA_NOVALUE);
        if (kudcfkept(acmp, cursor)) return status; // freed before: it has an owner
        owner = cursor->cachep_kudccur;
        if (owner == nullptr) return status; // nobody's
        const bool returned = owner == acmp || kudcfunlink(owner, cursor);
        if (!returned && kudcfkept(owner, cursor)) return status;
    }
    kudcidxdef *index = kudcfcursindex(owner, cursor);
    if (index == nullptr || !kudcfkeep(owner, index, cursor)) kudcfcursend(owner, index, cursor);
    return status;
}

uint32_t kudcfginf(kudcaccdef *acmp, uint16_t thread, int16_t index, uint16_t *levels,
                   uint16_t **offsets)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (levels == nullptr || offsets == nullptr) return refuse(acmp, KUVAA_MISSING);
    *levels = 0;
    *offsets = nullptr;
    const kudcthddef *rows = cache::thread_of(acmp, thread);
    if (rows == nullptr) return KUVAA_MISSING;
    const kudcidxdef *keys = nullptr;
    if (rows->idxc_kudcthd != 0) {
        keys = cache::index_of(acmp, rows, index);
        if (keys == nullptr) return KUVAA_MISSING;
    }
    const auto count = static_cast<uint16_t>(keys != nullptr ? keys->lvct_kudcidx + 1 : 1);
    auto *found = obtain<uint16_t>(acmp->kuxp_kudcacc, count);
    if (found == nullptr) return KUVAA_NOMEM;
    for (uint16_t l = 0; keys != nullptr && l < count; l++)
        found[l] = cache::first_key_column(keys, l);
    *levels = count;
    *offsets = found;
    return 0;
}
