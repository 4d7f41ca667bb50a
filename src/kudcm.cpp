// kudcm.cpp - the data cache at work: rows stored, found, read, counted, deleted
//
//     cursor   key    | level 0 | level 1 |      where a search has put it
//              held   ------> first row of the group, taken by the next read
//              currpos -----> the row read last;  nxtradr ----> the one behind it
//
// A search finds a group and holds its first row; reading follows the links from
// there. A row has a live count per index, the levels at which it is visible,
// and a mark for storage order; deleting a row lowers them and leaves it where
// it is, so a reader steps over rows it may not see. While it does so only their
// heads are read: the client's columns change when a row is returned, not before.
//
// A RANDOM search goes level by level, each level's entry leading to the next
// level's tree. Levels above the target must be there; at the target the entry
// found or the one behind it is taken; below it the first one. It costs a
// look-up in one tree a level. A search without success leaves the cursor as it
// was, and a store is checked as a whole before its first byte is written.
#include "kudcm.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kudc_internal.h"
#include "kudcb.h"
#include "kudcb_internal.h"
#include "kudcd.h"
#include "kudcd_internal.h"
#include "kudcf.h"
#include "kudck.h"
#include "kudck_internal.h"
#include "kudcs.h"
#include "kudx.h"

using namespace ku::cache;

namespace
{

constexpr std::uint32_t kudcm_length = 4;      // bytes of a calculation block's length
constexpr std::uint16_t kudcm_blocklevels = 2; // levels that a calculation block is entered with

// The code of an error left on the stack, where moves would stop: an operation that changes
// something before its first move does not begin.
std::uint32_t kudcmpending(const kudcaccdef *acmp) { return kuxercode(acmp->kuxp_kudcacc); }

std::uint32_t kudcmcursor(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (const std::uint32_t status = check_cursor(acmp, cursor)) return status;
    // Rows in storage order are read without blocks.
    const bool blocks = cursor->idx_kudccur < 0 || acmp->indx_kudcacc != nullptr;
    return blocks ? 0 : refuse(acmp, KUVAA_MISSING);
}

// The same, and its key can be looked up.
std::uint32_t kudcmkeyed(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    if (const std::uint32_t status = kudcmcursor(acmp, cursor)) return status;
    return check_key(acmp, cursor);
}

// ---- storing ----

// A key column of an index can be taken from its thread column.
std::uint32_t kudcmkeyable(const kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t number)
{
    const kudcbvadef &key = index->goal_kudcidx.arybva_kudckey[number];
    const kudxcoldef *column = key.col_kudcbva;
    if (column == nullptr || key.val_kudcbva == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (column->curval_kudxcol == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    if (column->curlen_kudxcol
        > longest_key_value(index, number) + std::uint64_t{kudxctrmlen(column)})
        return refuse(acmp, KUDCA_TOOLONG);
    return 0;
}

// A key's column takes the value of its thread column.
void kudcmtake(kudcbvadef *key)
{
    const kudxcoldef *column = key->col_kudcbva;
    key->valnul_kudcbva = column->curnul_kudxcol;
    key->len_kudcbva = column->curnul_kudxcol == KUDC_NULL ? 0 : column->curlen_kudxcol;
    key->val_kudcbva[0] = 0; // an empty number has no length in front of it
    std::memcpy(key->val_kudcbva, column->curval_kudxcol, key->len_kudcbva);
}

// No goal key of the levels is too long for its block.
std::uint32_t kudcmfits(const kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t levels)
{
    for (std::uint16_t i = 0; i < std::min(levels, index->lvct_kudcidx); i++) {
        std::uint32_t size = 0;
        kudckpsflk(&index->goal_kudcidx, i, &size);
        if (std::uint64_t{size} + entry_bytes > index->lvrt_kudcidx[i].size_kudcidh - block_head)
            return refuse(acmp, KUDCA_KEYSIZE);
    }
    return 0;
}

// Fills an index's keys from the row to store.
std::uint32_t kudcmkeys(const kudcaccdef *acmp, kudcidxdef *index, std::uint16_t levels)
{
    for (std::uint16_t i = 0; i < index->clct_kudcidx; i++)
        if (const std::uint32_t status = kudcmkeyable(acmp, index, i)) return status;
    for (std::uint16_t i = 0; i < index->clct_kudcidx; i++) {
        kudcmtake(index->cols_kudcidx + i);
        kudcmtake(index->goal_kudcidx.arybva_kudckey + i);
    }
    if (index->idxt_kudcidx == KUDC_DYNBRK) return 0;
    return kudcmfits(acmp, index,
                     index->idxt_kudcidx == KUDC_SEQNTL ? index->lvct_kudcidx : levels);
}

// A key that was added is counted in its tree's root.
std::uint32_t kudcmcount(kudcaccdef *acmp)
{
    kudcidhdef header = header_of(acmp->indx_kudcacc);
    if (header.ublk_kudcidh != KUDC_NONE) return 0;
    adjust(&header.coun_kudcidh, 1);
    set_header(acmp->indx_kudcacc, header);
    return write_block(acmp, header.addr_kudcidh, block_head, acmp->indx_kudcacc);
}

// The goal key covers so many levels while it is in scope; cursors are made in its likeness.
class kudcmcovering : ku::unique
{
public:
    kudcmcovering(kudcidxdef *index, std::uint16_t levels) : index_(index)
    {
        index_->goal_kudcidx.numlevsize_kudckey = levels;
    }
    ~kudcmcovering() { index_->goal_kudcidx.numlevsize_kudckey = index_->lvct_kudcidx; }

private:
    kudcidxdef *index_;
};

// Enters the goal key into a RANDOM index.
std::uint32_t kudcminsert(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index,
                          std::uint16_t levels)
{
    levels = std::min(levels, index->lvct_kudcidx);
    const kudcmcovering covering(index, levels);
    std::int32_t root = index->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    for (std::uint16_t level = 0; level < levels; level++) {
        std::uint32_t status =
            visit_block(acmp, index->lvrt_kudcidx[level], root, acmp->indx_kudcacc);
        if (status != 0) return status;
        std::int32_t child = KUDC_NONE, next = KUDC_NONE, outcome = 0;
        status = kudckins(acmp, &index->goal_kudcidx, thread, index, &child, &next, &outcome);
        if (status == 0 && outcome < 0) status = kudcmcount(acmp);
        if (status != 0) return status;
        root = next;
    }
    return 0;
}

std::uint32_t kudcmenter(kudcaccdef *acmp, kudcthddef *thread, const std::uint16_t *levels)
{
    for (std::uint16_t i = 0; i < thread->idxc_kudcthd; i++) {
        kudcidxdef *index = thread->idxs_kudcthd + i;
        std::uint32_t status = 0;
        if (index->idxt_kudcidx == KUDC_SEQNTL)
            status = kudcsikys(acmp, thread, index);
        else if (index->idxt_kudcidx == KUDC_RANDOM)
            status = kudcminsert(acmp, thread, index, levels[i]);
        if (status != 0) return status;
    }
    return 0;
}

// All that can be wrong with the row is found here, before anything is changed.
std::uint32_t kudcmstorable(kudcaccdef *acmp, kudcthddef *thread, const std::uint16_t *levels,
                            bool store)
{
    if (acmp->indx_kudcacc == nullptr || thread->acol_kudcthd == nullptr || levels == nullptr)
        return refuse(acmp, KUVAA_MISSING);
    if ((thread->idlc_kudcthd != 0 && thread->idxl_kudcthd == nullptr)
        || (thread->idxc_kudcthd != 0
            && (thread->delp_kudcthd == nullptr || thread->idxs_kudcthd == nullptr)))
        return refuse(acmp, KUVAA_MISSING);
    for (std::uint16_t i = 0; i < thread->idxc_kudcthd; i++)
        if (thread->idxs_kudcthd[i].idxt_kudcidx == KUDC_RANDOM && acmp->copy_kudcacc == nullptr)
            return refuse(acmp, KUVAA_MISSING);
    std::int64_t bytes = 0;
    const std::uint32_t status =
        store ? check_row(acmp, thread, &bytes) : check_room(acmp, thread, 0);
    if (status != 0) return status;
    for (std::uint16_t i = 0; i < thread->idxc_kudcthd; i++)
        if (const std::uint32_t bad = kudcmkeys(acmp, thread->idxs_kudcthd + i, levels[i]))
            return bad;
    return 0;
}

// Sets the marks of the row to store.
void kudcmmark(kudcthddef *thread, const std::uint16_t *levels)
{
    thread->trch_kudcthd.delp_kudcrch = thread->idxc_kudcthd == 0 ? levels[0] : std::uint16_t{1};
    for (std::uint16_t i = 0; i < thread->idxc_kudcthd; i++) thread->delp_kudcthd[i] = levels[i];
    for (std::uint16_t i = 0; i < thread->idlc_kudcthd; i++)
        thread->idxl_kudcthd[i].next_kudclnk = KUDC_NONE;
    thread->tpln_kudcthd = 0;
    for (std::uint16_t i = 0; i < thread->clct_kudcthd; i++)
        if (thread->acol_kudcthd[i] != nullptr)
            thread->tpln_kudcthd += thread->acol_kudcthd[i]->curlen_kudxcol;
}

// ---- reading ----

// Whether the cursor has no current row. One that was started at a record number has a number
// and no row yet, and its position is 0, where only the first thread's first row can be.
bool kudcmunread(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    return cursor->currnum_kudccur <= 0
           || (cursor->currpos_kudccur == 0 && thread_of(acmp, cursor)->frst_kudcthd != 0);
}

// Whether the thread's current row can be seen by a cursor that reads at a level.
bool kudcmvisible(const kudccurdef *cursor, const kudcthddef *thread, std::uint32_t level)
{
    if (cursor->idx_kudccur < 0) return thread->trch_kudcthd.delp_kudcrch != 0;
    return thread->delp_kudcthd[cursor->idx_kudccur] > level;
}

// The row behind the thread's current one on the cursor's way.
std::int32_t kudcmlink(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    const kudcthddef *thread = thread_of(acmp, cursor);
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr || index->idxt_kudcidx == KUDC_DYNBRK)
        return thread->trch_kudcthd.next_kudcrch;
    const kudckeydef *key = cursor->keyp_kudccur; // clients write to it
    if (key->arybva_kudckey == nullptr || key->numbva_kudckey > index->clct_kudcidx)
        return KUDC_NONE;
    const std::uint32_t levels = levels_of(key);
    if (levels == 0 || levels > index->lvct_kudcidx) return KUDC_NONE;
    return thread->idxl_kudcthd[index->lvst_kudcidx + levels - 1].next_kudclnk;
}

// The row that a cursor begins with: what it holds, or by its key.
std::uint32_t kudcmfirst(kudcaccdef *acmp, kudccurdef *cursor, std::uint8_t level,
                         std::int32_t *row)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr) {
        *row = thread_of(acmp, cursor)->frst_kudcthd;
        cursor->curleft_kudccur = thread_of(acmp, cursor)->coun_kudcthd;
        return 0;
    }
    if (const std::uint32_t bad = check_key(acmp, cursor)) return bad;
    if (held_row(cursor) == KUDC_NONE && index->idxt_kudcidx == KUDC_RANDOM)
        return kudckfnd(acmp, cursor->keyp_kudccur, index->tinf_kudcidx.rinf_kudcidx.root_kudcridx,
                        0, &cursor->curleft_kudccur, row);
    std::uint32_t status = 0;
    std::int32_t result = KUDC_POSITIONED;
    if (held_row(cursor) == KUDC_NONE)
        status = index->idxt_kudcidx == KUDC_SEQNTL
                     ? kudcstsrch(acmp, cursor, level, 0, 1, KUDC_CURRENT, KUDC_NONE, &result)
                     : kudcbtsrch(acmp, cursor, level, KUDC_CURRENT, &result);
    if (status == 0 && result == KUDC_POSITIONED) *row = held_row(cursor);
    return status;
}

// The row to begin the search for a visible one with.
std::uint32_t kudcmnext(kudcaccdef *acmp, kudccurdef *cursor, std::uint8_t level, std::int32_t *row)
{
    *row = KUDC_NONE;
    if (cursor->currnum_kudccur == 0) return kudcmfirst(acmp, cursor, level, row);
    *row = cursor->nxtradr_kudccur;
    if (*row != KUDC_NONE || kudcmunread(acmp, cursor)) return 0;
    const std::uint32_t status =
        read_row_head(acmp, thread_of(acmp, cursor), cursor->currpos_kudccur);
    if (status == 0) *row = kudcmlink(acmp, cursor);
    return status;
}

// Steps over rows that the cursor may not see; the head of the one found is in the thread, and
// the reader goes on with its columns.
std::uint32_t kudcmskip(kudcaccdef *acmp, const kudccurdef *cursor, std::uint8_t level,
                        std::int32_t *row, row_reader *reader)
{
    while (*row != KUDC_NONE) {
        kudcthddef *thread = thread_of(acmp, cursor);
        *reader = row_reader(acmp, thread, *row);
        if (const std::uint32_t status = open_row(acmp, reader, thread)) return status;
        if (kudcmvisible(cursor, thread, level)) return 0;
        const std::int32_t next = kudcmlink(acmp, cursor);
        // Rows are linked in the order in which they were stored.
        if (next != KUDC_NONE && next <= *row) return refuse(acmp, KUVAA_MISSING);
        *row = next;
    }
    return 0;
}

// Whether a row belongs to the group that a cursor reads: without stored groups its key tells.
std::uint32_t kudcmbelongs(kudcaccdef *acmp, const kudccurdef *cursor, std::uint8_t level,
                           const row_reader &row, bool *belongs)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    *belongs = true;
    if (index == nullptr || index->idxt_kudcidx != KUDC_DYNBRK) return 0;
    if (const std::uint32_t status = check_key(acmp, cursor)) return status;
    if (const std::uint32_t status = take_break_key(acmp, cursor, row)) return status;
    std::int32_t differs = 0;
    std::uint16_t first = 0;
    const std::uint32_t status =
        kudckcbva(acmp, index, cursor->keyp_kudccur, index->tinf_kudcidx.binf_kudcidx.keyp_kudcbidx,
                  0, level, &differs, &first);
    *belongs = differs == 0;
    return status;
}

// Makes the row in the thread the cursor's current one.
void kudcmadvance(const kudcaccdef *acmp, kudccurdef *cursor, std::int32_t row)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    cursor->curradr_kudccur = cursor->nxtradr_kudccur;
    cursor->nxtradr_kudccur = kudcmlink(acmp, cursor);
    if (cursor->currnum_kudccur < INT32_MAX) cursor->currnum_kudccur++; // a client may begin there
    cursor->currpos_kudccur = row;
    if (index == nullptr || index->idxt_kudcidx != KUDC_DYNBRK) return;
    auto *position = static_cast<kudcbipsdef *>(cursor->ipsh_kudccur);
    position->curr_kudcbips = row;
    position->next_kudcbips = cursor->nxtradr_kudccur;
}

// ---- searching RANDOM indexes ----

// Where a search is: an entry of the block in the working buffer.
struct kudcmplace {
    std::int32_t entry;
    kudcinddef record;
};

// Looks the cursor's key of a level up under a root. place->entry is negative when it is absent.
std::uint32_t kudcmlocate(kudcaccdef *acmp, const kudccurdef *cursor, std::uint16_t level,
                          std::int32_t root, kudcmplace *place)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    const std::uint32_t status = find_nearby(acmp, cursor->keyp_kudccur, level, root,
                                             index->lvrt_kudcidx[level].size_kudcidh,
                                             nearby_of(index, level), &place->entry);
    if (status == 0 && place->entry >= 0)
        place->record = entry_of(acmp->indx_kudcacc, static_cast<std::uint32_t>(place->entry));
    return status;
}

// Loads an entry's key into the cursor's key.
std::uint32_t kudcmload(kudcaccdef *acmp, const kudccurdef *cursor, const unsigned char *block,
                        std::int32_t entry)
{
    const level_columns columns = columns_of(cursor->keyp_kudccur, header_of(block).levl_kudcidh);
    return load_key(acmp, index_of(acmp, cursor), block, static_cast<std::uint32_t>(entry), columns,
                    nullptr);
}

// Moves on to the entry behind, in this leaf or the next one with entries; a negative entry:
// there is none.
std::uint32_t kudcmstep(kudcaccdef *acmp, kudcmplace *place, block_steps *steps)
{
    const unsigned char *block = acmp->indx_kudcacc;
    place->entry++;
    while (place->entry >= header_of(block).kyct_kudcidh) {
        const kudcidhdef header = header_of(block);
        place->entry = KUDC_NONE;
        if (header.rsib_kudcidh == KUDC_NONE) return 0;
        std::uint32_t status = steps->take();
        if (status == 0)
            status = visit_block(acmp, header, header.rsib_kudcidh, acmp->indx_kudcacc);
        if (status != 0) return status;
        place->entry = 0;
    }
    place->record = entry_of(block, static_cast<std::uint32_t>(place->entry));
    return 0;
}

// Whether an entry is one of many that the cursor's key stands for, having only some of the
// level's columns.
bool kudcmamong(const kudcaccdef *acmp, const kudccurdef *cursor, const kudcmplace &place)
{
    const unsigned char *block = acmp->indx_kudcacc;
    const kudcidhdef header = header_of(block);
    const level_columns columns = columns_of(cursor->keyp_kudccur, header.levl_kudcidh);
    return columns.count < header.clct_kudcidh
           && compare_entry(acmp, columns, block, static_cast<std::uint32_t>(place.entry)) == 0;
}

// Moves on to the next key; a negative entry: there is none.
std::uint32_t kudcmbehind(kudcaccdef *acmp, const kudccurdef *cursor, kudcmplace *place)
{
    block_steps steps(acmp, header_of(acmp->indx_kudcacc));
    do {
        const std::uint32_t status = kudcmstep(acmp, place, &steps);
        if (status != 0 || place->entry < 0) return status;
    } while (kudcmamong(acmp, cursor, *place));
    return 0;
}

void kudcmset(kudckeydef *key, std::uint16_t level, std::int32_t set)
{
    const level_columns columns = columns_of(key, level);
    for (std::uint16_t i = 0; i < columns.count; i++) columns.first[i].set_kudcbva = set;
}

struct kudcmsearch {
    kudcaccdef *acmp;
    kudccurdef *cursor;
    std::uint16_t target;
    std::int32_t relop;
    bool taking; // the keys found become the cursor's

    // Whether a level's first key is wanted.
    bool first(std::uint16_t level) const
    {
        std::int32_t set = 0;
        kudckgls(acmp, cursor->keyp_kudccur, level, &set);
        return set == 0 || level > target || (relop == KUDC_FIRST && level == target);
    }
};

// The next key to be looked up is expected in the leaf in the working buffer.
void kudcmstay(const kudcmsearch &search, std::uint16_t level, std::int32_t root)
{
    *nearby_of(index_of(search.acmp, search.cursor),
               level) = {root, header_of(search.acmp->indx_kudcacc).addr_kudcidh, 1};
}

// Takes a level's key under a root. place->entry is negative when there is none.
std::uint32_t kudcmlevel(const kudcmsearch &search, std::uint16_t level, std::int32_t root,
                         kudcmplace *place, std::int32_t *state)
{
    place->entry = KUDC_NONE;
    if (search.first(level)) {
        bool found = false;
        const std::uint32_t status =
            load_first_key(search.acmp, index_of(search.acmp, search.cursor),
                           search.taking ? search.cursor->keyp_kudccur : nullptr, level, root,
                           &place->record, &found);
        if (found) place->entry = 0;
        if (found) kudcmstay(search, level, root);
        if (status == 0 && !found && level <= search.target)
            kudcmset(search.cursor->keyp_kudccur, level, 0);
        *state = found || level > search.target ? KUDC_POSITIONED : KUDC_NOKEY;
        return status;
    }
    std::uint32_t status = kudcmlocate(search.acmp, search.cursor, level, root, place);
    *state = place->entry < 0 ? KUDC_NOKEY : KUDC_POSITIONED;
    if (status != 0 || place->entry < 0) return status;
    if (search.relop != KUDC_NEXT || level != search.target) return 0;
    status = kudcmbehind(search.acmp, search.cursor, place);
    if (place->entry < 0) *state = KUDC_NOMORE;
    if (status != 0 || place->entry < 0) return status;
    kudcmstay(search, level, root);
    if (!search.taking) return 0;
    return kudcmload(search.acmp, search.cursor, search.acmp->indx_kudcacc, place->entry);
}

// The levels above one hold a key, those too that held none before.
void kudcmhold(const kudcmsearch &search, std::uint16_t below)
{
    kudckeydef *key = search.cursor->keyp_kudccur;
    for (std::uint16_t i = 0; search.taking && i < key->numbva_kudckey; i++) {
        kudcbvadef &column = key->arybva_kudckey[i];
        if (column.level_kudcbva < below && column.set_kudcbva == 0) column.set_kudcbva = 1;
    }
}

// Finds a key at every level. Rows with fewer levels than the key end the way: they are found
// by the keys above.
std::uint32_t kudcmwalk(const kudcmsearch &search, std::uint16_t levels, kudcinddef *taken,
                        std::int32_t *state)
{
    kudckeydef *key = search.cursor->keyp_kudccur;
    std::int32_t root =
        index_of(search.acmp, search.cursor)->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    kudcmplace place = {KUDC_NONE, *taken};
    for (std::uint16_t level = 0; level < levels; level++) {
        std::int32_t set = 0;
        kudckgls(search.acmp, key, level, &set);
        const std::uint32_t status = kudcmlevel(search, level, root, &place, state);
        if (status != 0 || *state != KUDC_POSITIONED) return status;
        if (place.entry < 0) {
            clear_levels(key, level);
            kudcmhold(search, level);
            return 0;
        }
        // Not before the whole way is found.
        if (set == 0 && search.taking) kudcmset(key, level, 0);
        root = place.record.root_kudcind;
    }
    *taken = place.record;
    kudcmhold(search, levels);
    return 0;
}

// Whether a level above the target holds no key: it is given one before it is known whether the
// target is found.
bool kudcmgap(const kudcmsearch &search)
{
    const kudckeydef *key = search.cursor->keyp_kudccur;
    bool gap = false;
    for (std::uint16_t i = 0; i < key->numbva_kudckey; i++) {
        const kudcbvadef &column = key->arybva_kudckey[i];
        gap = gap || (column.set_kudcbva == 0 && column.level_kudcbva < search.target);
    }
    return gap;
}

// A search that finds nothing leaves the key as it is; where that could be known too late, the
// way to the target is tried before.
std::uint32_t kudcmrandom(kudcmsearch search, std::int32_t *state)
{
    const kudcinddef none = {KUDC_NONE, KUDC_NONE, KUDC_NONE, 0, 0, 0};
    const std::uint16_t levels = levels_of(search.cursor->keyp_kudccur);
    kudcinddef taken = none;
    std::uint32_t status = 0;
    search.taking = !kudcmgap(search);
    if (!search.taking) {
        const auto down = static_cast<std::uint16_t>(std::min<int>(levels, search.target + 1));
        status = kudcmwalk(search, down, &taken, state);
        if (status != 0 || *state != KUDC_POSITIONED) return status;
        search.taking = true;
        taken = none;
    }
    status = kudcmwalk(search, levels, &taken, state);
    if (status != 0 || *state != KUDC_POSITIONED) return status;
    rewind_cursor(search.cursor);
    search.cursor->curleft_kudccur = taken.coun_kudcind;
    held_row(search.cursor) = taken.frst_kudcind;
    return 0;
}

// ---- deleting keys ----

// The entry before one that has been taken out of the leaf in the second buffer: its block goes
// to the working buffer. A negative entry: there is none.
std::uint32_t kudcmbefore(kudcaccdef *acmp, kudcmplace *place)
{
    unsigned char *block = acmp->indx_kudcacc;
    std::memcpy(block, acmp->copy_kudcacc, header_of(acmp->copy_kudcacc).size_kudcidh);
    block_steps steps(acmp, header_of(block));
    place->entry--;
    while (place->entry < 0) {
        const kudcidhdef header = header_of(block);
        if (header.lsib_kudcidh == KUDC_NONE) return 0;
        std::uint32_t status = steps.take();
        if (status == 0) status = visit_block(acmp, header, header.lsib_kudcidh, block);
        if (status != 0) return status;
        place->entry = header_of(block).kyct_kudcidh - 1;
    }
    place->record = entry_of(block, static_cast<std::uint32_t>(place->entry));
    return 0;
}

// The cursor's key becomes an entry's, with the first keys below it.
std::uint32_t kudcmsettle(kudcaccdef *acmp, kudccurdef *cursor, const kudcmplace &place)
{
    kudckeydef *key = cursor->keyp_kudccur;
    const kudcidhdef header = header_of(acmp->indx_kudcacc);
    if (const std::uint32_t status = kudcmload(acmp, cursor, acmp->indx_kudcacc, place.entry))
        return status;
    const std::uint16_t levels = levels_of(key);
    std::int32_t root = place.record.root_kudcind;
    for (auto level = static_cast<std::uint16_t>(header.levl_kudcidh + 1); level < levels;
         level++) {
        kudcinddef first = {};
        bool found = false;
        const std::uint32_t status =
            load_first_key(acmp, index_of(acmp, cursor), key, level, root, &first, &found);
        if (status != 0) return status;
        if (!found) {
            clear_levels(key, level);
            return 0;
        }
        root = first.root_kudcind;
    }
    return 0;
}

// Puts a cursor before its first row after a deletion. The rows that are left are told from the
// first level's root until the next read that searches says better.
//   entry  where the removed key was in that root, when it was there and has one before it
std::uint32_t kudcmreset(kudcaccdef *acmp, kudccurdef *cursor, std::int32_t entry)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    const unsigned char *block = acmp->indx_kudcacc;
    const std::uint32_t status =
        visit_block(acmp, index->lvrt_kudcidx[0], index->tinf_kudcidx.rinf_kudcidx.root_kudcridx,
                    acmp->indx_kudcacc);
    if (status != 0) return status;
    const kudcidhdef root = header_of(block);
    rewind_cursor(cursor);
    held_row(cursor) = KUDC_NONE;
    cursor->curleft_kudccur = root.coun_kudcidh;
    if (entry >= 0 && root.leaf_kudcidh != 0 && entry < root.kyct_kudcidh)
        cursor->curleft_kudccur = entry_of(block, static_cast<std::uint32_t>(entry)).coun_kudcind;
    return 0;
}

// Finds the leaf entry of the cursor's key at a level; negative: a key is missing.
//   missing  out: the level of the missing key, or KUDC_NONE
std::uint32_t kudcmdescend(kudcaccdef *acmp, const kudccurdef *cursor, std::int32_t level,
                           kudcmplace *place, std::int32_t *missing)
{
    *place = {KUDC_NONE, {}};
    *missing = KUDC_NONE;
    if (level < 0 || level >= levels_of(cursor->keyp_kudccur)) return 0;
    std::int32_t root = index_of(acmp, cursor)->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    for (std::int32_t i = 0; i <= level; i++) {
        const auto at = static_cast<std::uint16_t>(i);
        const std::uint32_t status = kudcmlocate(acmp, cursor, at, root, place);
        if (status == 0 && place->entry < 0) *missing = i;
        if (status != 0 || place->entry < 0) return status;
        root = place->record.root_kudcind;
    }
    return 0;
}

// ---- calculation blocks ----

// A block's length. The whole block must lie in the data file.
std::uint32_t kudcmlength(kudcaccdef *acmp, std::int32_t position, std::uint32_t *length)
{
    const std::int64_t room = std::int64_t{acmp->nxdo_kudcacc} - position - kudcm_length;
    if (position < 0 || room < 0) return refuse(acmp, KUDCA_POSITION);
    if (const std::uint32_t status = read_data(acmp, position, kudcm_length, length)) return status;
    return *length > room ? refuse(acmp, KUDCA_POSITION) : 0;
}

std::uint32_t kudcmwrite(kudcaccdef *acmp, std::int32_t position, const void *block,
                         std::uint32_t length)
{
    std::uint32_t status = hold_data(acmp, position, length + kudcm_length);
    if (status == 0) status = write_data(acmp, position, kudcm_length, &length);
    if (status != 0 || length == 0) return status;
    return write_data(acmp, position + static_cast<std::int32_t>(kudcm_length), length, block);
}

// Writes a block at the end of the data file, and says where. The file has room.
std::uint32_t kudcmappend(kudcaccdef *acmp, const void *block, std::uint32_t length,
                          std::int32_t *position)
{
    const std::int32_t end = acmp->nxdo_kudcacc;
    if (const std::uint32_t status = kudcmwrite(acmp, end, block, length)) return status;
    acmp->nxdo_kudcacc = end + static_cast<std::int32_t>(length + kudcm_length);
    *position = end;
    return 0;
}

// Writes a block over the one at a position, or at the end when that one is too short.
std::uint32_t kudcmreplace(kudcaccdef *acmp, const void *block, std::uint32_t length,
                           std::int32_t *position)
{
    std::uint32_t before = 0;
    if (const std::uint32_t status = kudcmlength(acmp, *position, &before)) return status;
    if (length <= before) return kudcmwrite(acmp, *position, block, length);
    if (const std::uint32_t status = check_room(acmp, nullptr, std::int64_t{length} + kudcm_length))
        return status;
    return kudcmappend(acmp, block, length, position);
}

// A block to return; nothing for a length of 0.
std::uint32_t kudcmread(kudcaccdef *acmp, std::int32_t position, void **block,
                        std::uint32_t *length)
{
    *block = nullptr;
    *length = 0;
    std::uint32_t bytes = 0;
    const std::uint32_t bad = kudcmlength(acmp, position, &bytes);
    if (bad != 0 || bytes == 0) return bad;
    ku::owned<void> room(acmp->kuxp_kudcacc, obtain(acmp->kuxp_kudcacc, bytes, 1));
    if (!room) return KUVAA_NOMEM;
    const std::uint32_t status =
        read_data(acmp, position + static_cast<std::int32_t>(kudcm_length), bytes, room.get());
    if (status != 0) return status;
    *block = room.keep();
    *length = bytes;
    return 0;
}

// Blocks are attached to keys of RANDOM indexes that they can be entered into as a whole.
std::uint32_t kudcmattachable(const kudcaccdef *acmp, const kudcidxdef *index)
{
    if (index != nullptr && index->idxt_kudcidx == KUDC_RANDOM
        && index->lvct_kudcidx <= kudcm_blocklevels)
        return 0;
    return refuse(acmp, KUDCA_TYPE);
}

// Makes the entry of the cursor's key lead to a block that has moved.
std::uint32_t kudcmrelocate(kudcaccdef *acmp, const kudccurdef *cursor, std::int32_t position)
{
    kudcmplace place;
    std::int32_t missing = KUDC_NONE;
    std::uint32_t status = settle_levels(acmp, index_of(acmp, cursor));
    if (status == 0)
        status = kudcmdescend(acmp, cursor, levels_of(cursor->keyp_kudccur) - 1, &place, &missing);
    if (status != 0) return status;
    if (place.entry < 0) return refuse(acmp, KUVAA_MISSING);
    unsigned char *block = acmp->indx_kudcacc;
    place.record.frst_kudcind = place.record.last_kudcind = position;
    set_entry(block, static_cast<std::uint32_t>(place.entry), place.record);
    const kudcidhdef header = header_of(block);
    return write_block(acmp, header.addr_kudcidh, header.size_kudcidh, block);
}

// Attaches a block to the cursor's key, which is not in the index yet.
std::uint32_t kudcmattach(kudcaccdef *acmp, const kudccurdef *cursor, const void *block,
                          std::uint32_t length)
{
    kudcthddef *thread = thread_of(acmp, cursor);
    kudcidxdef *index = index_of(acmp, cursor);
    std::uint32_t status = check_room(acmp, thread, std::int64_t{length} + kudcm_length);
    // What was looked up is what is entered.
    if (status == 0)
        status = kudcbbv2bv(acmp, index, cursor->keyp_kudccur, &index->goal_kudcidx, 0,
                            static_cast<std::uint16_t>(index->lvct_kudcidx - 1));
    for (std::uint32_t i = 0; status == 0 && i < index->goal_kudcidx.numbva_kudckey; i++)
        settle_value(&index->goal_kudcidx.arybva_kudckey[i]);
    if (status == 0) status = kudcmfits(acmp, index, kudcm_blocklevels);
    // The entry takes the end of the file for the position, so the block lies there first.
    const std::int32_t end = acmp->nxdo_kudcacc;
    if (status == 0) status = kudcmwrite(acmp, end, block, length);
    if (status != 0) return status;
    status = kudcminsert(acmp, thread, index, kudcm_blocklevels);
    // Also when that fails: an entry may have been made by then.
    acmp->nxdo_kudcacc = end + static_cast<std::int32_t>(length + kudcm_length);
    return status;
}

struct kudcmkey {
    std::uint16_t count;
    kudcbvadef *const *values;
    const std::int32_t *integers;
};

// The row or block under the cursor's key with these columns. Blocks are under whole keys: the
// cursor's has a column for each of its index's, and when the given ones are in, no wildcard.
std::uint32_t kudcmseek(kudcaccdef *acmp, kudccurdef *cursor, const kudcmkey &key,
                        std::int32_t *row)
{
    const kudckeydef *whole = cursor->keyp_kudccur;
    if (whole->numbva_kudckey != index_of(acmp, cursor)->clct_kudcidx)
        return refuse(acmp, KUVAA_NOVALUE);
    const std::uint32_t status = kudckfblb(acmp, cursor, key.count, key.values, key.integers, row);
    if (status != 0) return status;
    for (std::uint32_t i = 0; i < whole->numbva_kudckey; i++)
        if (whole->arybva_kudckey[i].wildcard_kudcbva == 1) return refuse(acmp, KUVAA_NOVALUE);
    return 0;
}

// What a key leaves out a new cursor's takes from the thread's columns.
std::uint32_t kudcmcomplete(const kudcaccdef *acmp, const kudccurdef *cursor, const kudcmkey &key)
{
    const kudcidxdef *index = index_of(acmp, cursor);
    for (std::uint16_t i = 0; i < index->clct_kudcidx; i++) {
        kudcbvadef *column = cursor->keyp_kudccur->arybva_kudckey + i;
        bool given = false;
        for (std::uint32_t k = 0; key.values != nullptr && k < key.count; k++)
            given =
                given
                || (key.values[k] != nullptr && key.values[k]->col_kudcbva == column->col_kudcbva);
        if (given) continue;
        if (const std::uint32_t status = kudcmkeyable(acmp, index, i)) return status;
        kudcmtake(column);
        column->set_kudcbva = 1;
    }
    return 0;
}

std::uint32_t kudcmkeep(kudcaccdef *acmp, kudccurdef *cursor, const kudcmkey &key,
                        const void *block, std::uint32_t length)
{
    std::int32_t row = KUDC_NONE;
    std::uint32_t status = kudcmseek(acmp, cursor, key, &row);
    if (status != 0) return status;
    thread_of(acmp, cursor)->calc_kudcthd = 1;
    if (row == KUDC_NONE) return kudcmattach(acmp, cursor, block, length);
    const std::int32_t before = row;
    status = kudcmreplace(acmp, block, length, &row);
    return status != 0 || row == before ? status : kudcmrelocate(acmp, cursor, row);
}

} // namespace

extern "C" {

std::uint32_t kudcmrstr(kudcaccdef *acmp, std::uint16_t number, const std::uint16_t *levels,
                        std::int32_t store, std::int32_t *position)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (const std::uint32_t pending = kudcmpending(acmp)) return pending;
    kudcthddef *thread = thread_of(acmp, number);
    if (thread == nullptr) return KUVAA_MISSING;
    std::uint32_t status = kudcmstorable(acmp, thread, levels, store != 0);
    if (status != 0) return status;

    kudcmmark(thread, levels);
    const std::int32_t row = acmp->nxdo_kudcacc;
    kudcrchdef header;
    if (store != 0) status = put_row(acmp, thread, &header);
    if (status != 0) return status;
    status = kudcmenter(acmp, thread, levels);
    if (status == 0 && store != 0) status = join_row(acmp, thread, header);
    if (status != 0) {
        if (store != 0) give_up_row(acmp, thread, header);
        return status;
    }
    thread->coun_kudcthd++;
    *position = row;
    return 0;
}

std::uint32_t kudcmrnxt(kudcaccdef *acmp, kudccurdef *cursor, std::uint8_t level,
                        std::uint8_t *found)
{
    if (const std::uint32_t status = kudcmcursor(acmp, cursor)) return status;
    *found = KUDC_NOROW;
    if (cursor->currnum_kudccur < 0) return 0;
    std::int32_t row = KUDC_NONE;
    const std::int32_t left = cursor->curleft_kudccur;
    std::uint32_t status = kudcmnext(acmp, cursor, level, &row);
    kudcthddef *thread = thread_of(acmp, cursor);
    row_reader reader(acmp, thread, row);
    if (status == 0) status = kudcmskip(acmp, cursor, level, &row, &reader);
    bool belongs = false;
    if (status == 0 && row != KUDC_NONE)
        status = kudcmbelongs(acmp, cursor, level, reader, &belongs);
    if (status == 0 && belongs) status = load_row(acmp, &reader, thread);
    if (status != 0) {
        cursor->curleft_kudccur = left;
        return status;
    }
    if (cursor->idx_kudccur >= 0) held_row(cursor) = KUDC_NONE;
    if (!belongs) return 0;
    kudcmadvance(acmp, cursor, row);
    *found = KUDC_ROW;
    return 0;
}

std::uint32_t kudcmrrd(kudcaccdef *acmp, kudccurdef *cursor, std::uint8_t level,
                       std::uint8_t *found)
{
    if (const std::uint32_t status = kudcmcursor(acmp, cursor)) return status;
    *found = KUDC_NOROW;
    if (kudcmunread(acmp, cursor)) return 0;
    if (cursor->currpos_kudccur < 0) {
        cursor->currnum_kudccur = -1;
        return 0;
    }
    kudcthddef *thread = thread_of(acmp, cursor);
    if (const std::uint32_t status = kudcdrd(acmp, thread, cursor->currpos_kudccur)) return status;
    *found = kudcmvisible(cursor, thread, level) ? KUDC_ROW : KUDC_HIDDEN;
    return 0;
}

std::uint32_t kudcmksrch(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t level,
                         std::int32_t relop, std::int32_t *state)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *state = KUDC_NOKEY;
    if (const std::uint32_t status = kudcmkeyed(acmp, cursor)) return status;
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr || relop < KUDC_FIRST || relop > KUDC_CURRENT) return 0;
    if (index->idxt_kudcidx == KUDC_SEQNTL)
        return kudcstsrch(acmp, cursor, level, 0, 1, relop, KUDC_NONE, state);
    if (index->idxt_kudcidx == KUDC_DYNBRK) return kudcbtsrch(acmp, cursor, level, relop, state);
    const std::uint32_t status = kudcmrandom({acmp, cursor, level, relop, true}, state);
    if (status != 0) *state = KUDC_NOKEY;
    return status;
}

// A key with wildcards may match in leaves apart, so all are looked at, from the leftmost on.
// Separators above them are not: the keys they were made of may have been deleted.
std::uint32_t kudcmpksrch(kudcaccdef *acmp, std::uint16_t thread, std::int16_t number,
                          const kudckeydef *key, std::int32_t *found)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *found = KUDC_NOKEY;
    const kudcthddef *rows = thread_of(acmp, thread);
    const kudcidxdef *index = rows != nullptr ? index_of(acmp, rows, number) : nullptr;
    if (index == nullptr) return KUVAA_MISSING;
    if (const std::uint32_t status = check_goal(acmp, index, key)) return status;
    if (index->idxt_kudcidx != KUDC_RANDOM) return 0;

    kux *ctx = acmp->kuxp_kudcacc;
    const std::uint32_t bytes = index->lvrt_kudcidx[0].size_kudcidh;
    ku::owned<unsigned char> block(ctx, obtain<unsigned char>(ctx, bytes));
    if (!block) return KUVAA_NOMEM;
    std::int32_t position = index->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    block_steps steps(acmp, index->lvrt_kudcidx[0]);
    while (position >= 0) {
        std::uint32_t status = steps.take();
        if (status == 0) status = visit_block(acmp, index->lvrt_kudcidx[0], position, block.get());
        if (status != 0) return status;
        const kudcidhdef header = header_of(block.get());
        for (std::uint32_t i = 0; header.leaf_kudcidh != 0 && i < header.kyct_kudcidh; i++) {
            const level_columns columns = columns_of(key, 0);
            const int order = compare_entry(acmp, columns, block.get(), i);
            if (order == unsound) return refuse(acmp, KUVAA_MISSING);
            if (order == 0) *found = 0;
            if (order == 0) return 0;
        }
        position = header.leaf_kudcidh != 0 ? header.rsib_kudcidh : header.less_kudcidh;
    }
    return 0;
}

std::uint32_t kudcmbcnt(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t level,
                        std::int32_t *count)
{
    if (const std::uint32_t status = kudcmkeyed(acmp, cursor)) return status;
    const kudcidxdef *index = index_of(acmp, cursor);
    *count = index == nullptr ? thread_of(acmp, cursor)->coun_kudcthd : -1;
    if (index == nullptr || index->idxt_kudcidx != KUDC_RANDOM) return 0;
    std::int32_t root = index->tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    for (std::uint16_t i = 0; i < index->lvct_kudcidx; i++) {
        if (i == level) {
            const std::uint32_t status =
                visit_block(acmp, index->lvrt_kudcidx[i], root, acmp->indx_kudcacc);
            if (status == 0) *count = header_of(acmp->indx_kudcacc).coun_kudcidh;
            return status;
        }
        kudcmplace place;
        const std::uint32_t status = kudcmlocate(acmp, cursor, i, root, &place);
        if (status != 0 || place.entry < 0) return status;
        root = place.record.root_kudcind;
        if (i + 1 == index->lvct_kudcidx) *count = place.record.coun_kudcind;
    }
    return 0;
}

std::uint32_t kudcmrdel(kudcaccdef *acmp, kudccurdef *cursor)
{
    if (const std::uint32_t status = kudcmcursor(acmp, cursor)) return status;
    if (kudcmunread(acmp, cursor)) return 0;
    const std::int32_t row = cursor->currpos_kudccur;
    if (row < 0) {
        cursor->currnum_kudccur = -1;
        return 0;
    }
    kudcthddef *thread = thread_of(acmp, cursor);
    if (const std::uint32_t status = kudcdrd(acmp, thread, row)) return status;
    if (cursor->idx_kudccur < 0)
        thread->trch_kudcthd.delp_kudcrch = 0;
    else if (thread->delp_kudcthd[cursor->idx_kudccur] > 0)
        thread->delp_kudcthd[cursor->idx_kudccur]--;
    return kudcdupd(acmp, thread, row);
}

std::uint32_t kudcmkdel(kudcaccdef *acmp, kudccurdef *cursor, std::int32_t level,
                        std::int32_t *previous)
{
    if (const std::uint32_t status = kudcmkeyed(acmp, cursor)) return status;
    *previous = 0;
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr) return kudcmrdel(acmp, cursor);
    if (index->idxt_kudcidx != KUDC_RANDOM) return refuse(acmp, KUDCA_NOTRANDOM);
    if (acmp->copy_kudcacc == nullptr) return refuse(acmp, KUVAA_MISSING);
    kudcmplace place;
    std::int32_t missing = KUDC_NONE;
    std::uint32_t status = settle_levels(acmp, index);
    if (status == 0) status = kudcmdescend(acmp, cursor, level, &place, &missing);
    if (status != 0) return status;
    if (place.entry < 0)
        return missing == level && level >= 0 ? kudcmreset(acmp, cursor, KUDC_NONE) : 0;

    const std::int32_t removed = place.entry;
    if (!is_whole(acmp->indx_kudcacc)) return refuse(acmp, KUVAA_MISSING);
    status = kudckdel(acmp->copy_kudcacc, acmp->indx_kudcacc, static_cast<std::uint16_t>(removed));
    const kudcidhdef leaf = header_of(acmp->copy_kudcacc);
    if (status == 0)
        status = write_block(acmp, leaf.addr_kudcidh, leaf.size_kudcidh, acmp->copy_kudcacc);
    if (status == 0) status = kudcmbefore(acmp, &place);
    if (status == 0 && place.entry >= 0) status = kudcmsettle(acmp, cursor, place);
    if (status != 0) return status;
    *previous = place.entry >= 0 ? 1 : 0;
    return kudcmreset(acmp, cursor, level == 0 && *previous != 0 ? removed : KUDC_NONE);
}

std::uint32_t kudcmgrst(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t *status)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (acmp->thrd_kudcacc == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    if (const std::uint32_t code = check_cursor(acmp, cursor)) return code;
    *status = thread_of(acmp, cursor)->trch_kudcthd.stat_kudcrch;
    return 0;
}

std::uint32_t kudcmsrst(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t status)
{
    std::uint16_t before = 0;
    if (const std::uint32_t code = kudcmgrst(acmp, cursor, &before)) return code;
    thread_of(acmp, cursor)->trch_kudcthd.stat_kudcrch = status;
    return 0;
}

std::uint32_t kudcmsblb(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t thread,
                        std::int16_t number, std::uint16_t count, kudcbvadef *const *values,
                        const std::int32_t *integers, const void *block, std::uint32_t length,
                        kudccurdef **cursorp)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (const std::uint32_t pending = kudcmpending(acmp)) return pending;
    const kudcthddef *rows = thread_of(acmp, thread);
    const kudcidxdef *index = rows != nullptr ? index_of(acmp, rows, number) : nullptr;
    if (index == nullptr) return KUVAA_MISSING;
    if (const std::uint32_t status = kudcmattachable(acmp, index)) return status;
    if (block == nullptr && length != 0) return refuse(acmp, KUVAA_NOVALUE);

    kudccurdef *used = cursor;
    std::uint32_t status = cursor != nullptr
                               ? kudcmkeyed(acmp, cursor)
                               : kudcfnwcurs(acmp, nullptr, thread, number, 0, KUDC_NONE, &used);
    if (status != 0) return status;
    const kudcmkey key = {count, values, integers};
    if (used->thread_kudccur != thread || used->idx_kudccur != number)
        status = refuse(acmp, KUVAA_MISSING);
    if (status == 0 && cursor == nullptr) status = kudcmcomplete(acmp, used, key);
    if (status == 0) status = kudcmkeep(acmp, used, key, block, length);
    if (status != 0 && cursor == nullptr) kudcffrcurs(acmp, used);
    if (status == 0) *cursorp = used;
    return status;
}

std::uint32_t kudcmrblb(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t count,
                        kudcbvadef *const *values, const std::int32_t *integers, void **block)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *block = nullptr;
    if (cursor == nullptr) return 0;
    if (const std::uint32_t pending = kudcmpending(acmp)) return pending;
    std::uint32_t status = kudcmkeyed(acmp, cursor);
    if (status == 0) status = kudcmattachable(acmp, index_of(acmp, cursor));
    std::int32_t row = KUDC_NONE;
    if (status == 0) status = kudcmseek(acmp, cursor, {count, values, integers}, &row);
    std::uint32_t length = 0;
    return status != 0 || row == KUDC_NONE ? status : kudcmread(acmp, row, block, &length);
}

std::uint32_t kudcmsfpblb(kudcaccdef *acmp, const void *block, std::uint32_t length,
                          std::int32_t *position)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (block == nullptr && length != 0) return refuse(acmp, KUVAA_NOVALUE);
    if (*position != KUDC_NONE) return kudcmreplace(acmp, block, length, position);
    if (const std::uint32_t status = check_room(acmp, nullptr, std::int64_t{length} + kudcm_length))
        return status;
    return kudcmappend(acmp, block, length, position);
}

std::uint32_t kudcmrfpblb(kudcaccdef *acmp, std::int32_t position, void **block,
                          std::uint32_t *length)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    return kudcmread(acmp, position, block, length);
}

} // extern "C"
