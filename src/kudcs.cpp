// kudcs.cpp - SEQNTL indexes: slot lists
//
//     level 0   head -> | A | B | . . . | <-> | C | . . . |  <- tail
//                         |   |                 |
//     level 1          | 1 | 2 |  | 1 |       | 7 | 8 |
//
// Every key owns the chain of its sub-keys one level down (`root`), every key of
// the last level the chain of its rows (`frst`, `last`, `coun`). Keys stand in
// the order in which they arrived, and a key that comes again after another one
// is entered again: what is kept are groups, not values. The tail, the last key
// of each level with its place, is where the next key goes; the head is where a
// search begins.
//
// A store handles the deepest level first, so that a key is entered after the
// chain that it owns, and each level has the one working buffer to itself. It
// reads and writes one block a level, and one more when a block is full. A search
// reads one block a level; it collects the keys in the position record's own key
// on the way down and hands them to the cursor on the way back, so that a search
// that finds nothing changes nothing.
#include "kudcs.h"

#include <algorithm>
#include <cassert>
#include <cstdint>

#include "kudc_internal.h"
#include "kudcb.h"
#include "kudck.h"
#include "kudck_internal.h"

using namespace ku::cache;

namespace
{

kudcscldef &kudcstail(kudcidxdef *index)
{
    return index->tinf_kudcidx.sinf_kudcidx.tail_kudcsidx.cloc_kudcspos;
}

std::uint32_t kudcscheck(const kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t level)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (index == nullptr || acmp->indx_kudcacc == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (index->idxt_kudcidx != KUDC_SEQNTL) return refuse(acmp, KUDCA_TYPE);
    return level < index->lvct_kudcidx ? 0 : refuse(acmp, KUVAA_MISSING);
}

std::uint32_t kudcswrite(kudcaccdef *acmp)
{
    const kudcidhdef header = header_of(acmp->indx_kudcacc);
    return write_block(acmp, header.addr_kudcidh, header.size_kudcidh, acmp->indx_kudcacc);
}

// Bytes that the goal key of a level takes in a block, its entry included.
std::uint64_t kudcsneeded(const kudcidxdef *index, std::uint16_t level)
{
    std::uint32_t size = 0;
    kudckpsflk(&index->goal_kudcidx, level, &size);
    return std::uint64_t{size} + entry_bytes;
}

bool kudcsfits(const kudcidxdef *index, std::uint16_t level)
{
    return kudcsneeded(index, level) <= index->lvrt_kudcidx[level].size_kudcidh - block_head;
}

// Writes the full block with its link to a new one behind it, and starts that one.
std::uint32_t kudcscontinue(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index,
                            std::uint16_t level)
{
    kudcidhdef full = header_of(acmp->indx_kudcacc);
    full.rsib_kudcidh = acmp->nxio_kudcacc;
    set_header(acmp->indx_kudcacc, full);
    if (const std::uint32_t status = kudcswrite(acmp)) return status;
    if (const std::uint32_t status = kudcslnew(acmp, thread, index, level)) return status;

    kudcidhdef header = header_of(acmp->indx_kudcacc);
    header.lsib_kudcidh = full.addr_kudcidh;
    header.rsib_kudcidh = KUDC_NONE;
    header.ublk_kudcidh = level == 0 ? KUDC_NONE : kudcstail(index).apos_kudcscl[level - 1];
    set_header(acmp->indx_kudcacc, header);
    return 0;
}

// Adds the goal key behind the last entry of the working block, which has room for it.
std::uint32_t kudcsadd(kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t level)
{
    kudcidhdef header = header_of(acmp->indx_kudcacc);
    const std::uint16_t entry = header.kyct_kudcidh++;
    header.free_kudcidh =
        static_cast<std::uint16_t>(header.free_kudcidh - kudcsneeded(index, level));
    header.rsib_kudcidh = KUDC_NONE; // the chain's last block; a store cut short leaves a link
    kudcinddef record = {KUDC_NONE, KUDC_NONE, KUDC_NONE, 0, 0, 0};
    record.offs_kudcind = static_cast<std::uint16_t>(block_head + entry_bytes * header.kyct_kudcidh
                                                     + header.free_kudcidh);
    set_header(acmp->indx_kudcacc, header);
    set_entry(acmp->indx_kudcacc, entry, record);
    return kudckcflkval(acmp, &index->goal_kudcidx, level,
                        acmp->indx_kudcacc + record.offs_kudcind);
}

// Makes the working block's last entry a level's head or tail.
std::uint32_t kudcsmark(kudcaccdef *acmp, const kudcidxdef *index, kudcsposdef *place,
                        std::uint16_t level)
{
    const kudcidhdef header = header_of(acmp->indx_kudcacc);
    const auto entry = static_cast<std::uint16_t>(header.kyct_kudcidh - 1);
    const std::uint32_t status = load_key(acmp, index, acmp->indx_kudcacc, entry,
                                          columns_of(&place->ckey_kudcspos, level), nullptr);
    if (status != 0) return status;
    place->cloc_kudcspos.apos_kudcscl[level] = header.addr_kudcidh;
    place->cloc_kudcspos.kpos_kudcscl[level] = entry;
    return 0;
}

// The last entry of the working block owns the chain that begins at `root`.
void kudcsown(kudcaccdef *acmp, std::int32_t root)
{
    const kudcidhdef header = header_of(acmp->indx_kudcacc);
    const std::uint32_t entry = header.kyct_kudcidh - 1u;
    kudcinddef record = entry_of(acmp->indx_kudcacc, entry);
    record.root_kudcind = root;
    set_entry(acmp->indx_kudcacc, entry, record);
}

struct kudcsstore {
    kudcaccdef *acmp;
    kudcthddef *thread;
    kudcidxdef *index;
    std::uint16_t breaks; // first level that differs; past the last: none
};

// What a level tells the one above.
struct kudcsbelow {
    bool newchain = false;
    std::int32_t block = KUDC_NONE;
};

// Puts the goal key, or the key that stays, of a level last into the working block.
std::uint32_t kudcsarrive(const kudcsstore &store, std::uint16_t level, bool *newchain)
{
    std::int32_t none = 0;
    std::uint32_t status = kudcslcur(store.acmp, store.thread, store.index, level, &none);
    if (status != 0) return status;
    if (level < store.breaks && none != 0) return refuse(store.acmp, KUDCA_NOABOVE);
    if (level < store.breaks) {
        // A key that could not be written is not there to take the row.
        const kudcscldef &tail = kudcstail(store.index);
        const bool there =
            header_of(store.acmp->indx_kudcacc).kyct_kudcidh == tail.kpos_kudcscl[level] + 1;
        return there ? 0 : refuse(store.acmp, KUVAA_MISSING);
    }
    *newchain = none != 0 || level > store.breaks;
    if (*newchain) status = kudcslnew(store.acmp, store.thread, store.index, level);
    return status != 0 ? status : kudcslapp(store.acmp, store.thread, store.index, level);
}

// Where a level begins and ends.
struct kudcsends {
    std::int32_t headblock, headentry, tailblock;

    kudcsends(kudcidxdef *index, std::uint16_t level)
    {
        const kudcscldef &head = index->tinf_kudcidx.sinf_kudcidx.head_kudcsidx.cloc_kudcspos;
        headblock = head.apos_kudcscl[level];
        headentry = head.kpos_kudcscl[level];
        tailblock = kudcstail(index).apos_kudcscl[level];
    }
    // The key that came last could not be written. Whatever the next row's key is, it is entered
    // behind those that were there before.
    void restore(kudcidxdef *index, std::uint16_t level) const
    {
        const kudcscldef &head = index->tinf_kudcidx.sinf_kudcidx.head_kudcsidx.cloc_kudcspos;
        head.apos_kudcscl[level] = headblock;
        head.kpos_kudcscl[level] = headentry;
        kudcstail(index).apos_kudcscl[level] = tailblock;
        kudcstail(index).kpos_kudcscl[level] = KUDC_NONE;
    }
};

// The first level whose last key could not be written; past the last one: there is none.
std::uint16_t kudcslacking(kudcidxdef *index)
{
    const kudcscldef &tail = kudcstail(index);
    for (std::uint16_t level = 0; level < index->lvct_kudcidx; level++)
        if (tail.apos_kudcscl[level] != KUDC_NONE && tail.kpos_kudcscl[level] == KUDC_NONE)
            return level;
    return static_cast<std::uint16_t>(index->lvct_kudcidx + 1);
}

// Enters a level when those below it are.
std::uint32_t kudcslast(const kudcsstore &store, std::uint16_t level, const kudcsbelow &below,
                        kudcsbelow *told)
{
    if (const std::uint32_t status = kudcsarrive(store, level, &told->newchain)) return status;
    if (below.newchain) kudcsown(store.acmp, below.block);

    unsigned char *block = store.acmp->indx_kudcacc;
    told->block = header_of(block).addr_kudcidh;
    if (level + 1 != store.index->lvct_kudcidx) return kudcswrite(store.acmp);
    return kudckzdrc(store.acmp, store.thread, block,
                     static_cast<std::uint16_t>(header_of(block).kyct_kudcidh - 1),
                     static_cast<std::uint16_t>(store.index->lvst_kudcidx + level));
}

// Enters the goal key at all levels, the deepest one first.
std::uint32_t kudcsenter(const kudcsstore &store)
{
    kudcsbelow below;
    for (std::uint16_t level = store.index->lvct_kudcidx; level-- > 0;) {
        const kudcsends before(store.index, level);
        kudcsbelow told;
        const std::uint32_t status = kudcslast(store, level, below, &told);
        if (status != 0 && level >= store.breaks) before.restore(store.index, level);
        if (status != 0) return status;
        below = told;
    }
    return 0;
}

// ---- searching ----

struct kudcssearch {
    kudcaccdef *acmp;
    kudccurdef *cursor;
    kudcidxdef *index;
    kudcsipsdef *position;
    std::uint16_t target;
    std::int32_t relop;

    bool fresh(std::uint32_t level) const
    {
        return relop == KUDC_FIRST ? target <= level : target < level;
    }
    bool advances(std::uint32_t level) const { return relop == KUDC_NEXT && target == level; }
};

struct kudcsplace {
    std::int32_t block;
    std::int32_t entry;
};

std::uint32_t kudcsread(const kudcssearch &search, std::uint16_t level, std::int32_t block)
{
    return visit_block(search.acmp, search.index->lvrt_kudcidx[level], block,
                       search.acmp->indx_kudcacc);
}

// The entry behind a place, with its block in the working buffer, or KUDC_NOMORE.
std::uint32_t kudcsadvance(const kudcssearch &search, std::uint16_t level, kudcsplace *place,
                           std::int32_t *result)
{
    if (const std::uint32_t status = kudcsread(search, level, place->block)) return status;
    const kudcidhdef header = header_of(search.acmp->indx_kudcacc);
    if (++place->entry < header.kyct_kudcidh) return 0;
    *place = {header.rsib_kudcidh, 0};
    if (place->block != KUDC_NONE) return kudcsread(search, level, place->block);
    *result = KUDC_NOMORE;
    return 0;
}

// Finds a level's place and has its block in the working buffer when the place has moved or
// when `wanted`.
std::uint32_t kudcslocate(const kudcssearch &search, std::uint16_t level, std::int32_t first,
                          bool wanted, kudcsplace *place, std::int32_t *result)
{
    const kudcscldef &places = search.position->spos_kudcsips.cloc_kudcspos;
    const kudcsposdef &head = search.index->tinf_kudcidx.sinf_kudcidx.head_kudcsidx;
    *place = {places.apos_kudcscl[level], places.kpos_kudcscl[level]};
    if (search.fresh(level)) *place = {level == 0 ? head.cloc_kudcspos.apos_kudcscl[0] : first, 0};
    *result = place->block < 0 ? KUDC_NOKEY : KUDC_POSITIONED;
    if (*result != KUDC_POSITIONED) return 0;
    if (search.advances(level)) return kudcsadvance(search, level, place, result);
    return search.fresh(level) || wanted ? kudcsread(search, level, place->block) : 0;
}

// The cursor's current key of a level is the one collected, at this place.
std::uint32_t kudcstake(const kudcssearch &search, std::uint16_t level, const kudcsplace &place)
{
    kudckeydef *key = search.cursor->keyp_kudccur;
    kudcsposdef &mine = search.position->spos_kudcsips;
    if (const std::uint32_t status =
            kudcbbv2bv(search.acmp, search.index, &mine.ckey_kudcspos, key, level, level))
        return status;
    const level_columns columns = columns_of(key, level);
    for (std::uint32_t i = 0; i < columns.count; i++) columns.first[i].set_kudcbva = 1;
    mine.cloc_kudcspos.apos_kudcscl[level] = place.block;
    mine.cloc_kudcspos.kpos_kudcscl[level] = place.entry;
    return 0;
}

// Where the search has found a level's key: behind the cursor's places, which stay until all is
// found.
void kudcsnote(const kudcssearch &search, std::uint16_t level, const kudcsplace &place)
{
    const kudcscldef &places = search.position->spos_kudcsips.cloc_kudcspos;
    places.apos_kudcscl[places.npos_kudcscl + level] = place.block;
    places.kpos_kudcscl[places.npos_kudcscl + level] = place.entry;
}

// Takes the keys of all levels where the search has moved, the deepest one first.
std::uint32_t kudcstakeall(const kudcssearch &search, std::uint16_t first)
{
    const kudcscldef &places = search.position->spos_kudcsips.cloc_kudcspos;
    for (std::uint16_t level = search.index->lvct_kudcidx; level-- > first;) {
        if (!search.fresh(level) && !search.advances(level)) continue;
        const std::uint32_t at = places.npos_kudcscl + std::uint32_t{level};
        const std::uint32_t status =
            kudcstake(search, level, {places.apos_kudcscl[at], places.kpos_kudcscl[at]});
        if (status != 0) return status;
    }
    return 0;
}

// Finds a level's key, and the entry with it when the level below or the rows need that.
std::uint32_t kudcsvisit(const kudcssearch &search, std::uint16_t level, std::int32_t first,
                         kudcinddef *entry, std::int32_t *result)
{
    const bool moves = search.fresh(level) || search.advances(level);
    const bool last = level + 1 == search.index->lvct_kudcidx;
    const bool wanted = last || search.fresh(level + 1u);
    kudcsplace place;
    std::uint32_t status = kudcslocate(search, level, first, wanted, &place, result);
    if (status != 0 || *result != KUDC_POSITIONED) return status;

    const unsigned char *block = search.acmp->indx_kudcacc;
    if (moves)
        status =
            load_key(search.acmp, search.index, block, static_cast<std::uint32_t>(place.entry),
                     columns_of(&search.position->spos_kudcsips.ckey_kudcspos, level), nullptr);
    if (status != 0) return status;
    kudcsnote(search, level, place);
    if (wanted && place.entry >= header_of(block).kyct_kudcidh)
        return refuse(search.acmp, KUVAA_MISSING);
    if (wanted) *entry = entry_of(block, static_cast<std::uint32_t>(place.entry));
    return 0;
}

std::uint32_t kudcsdescend(const kudcssearch &search, std::uint16_t from, std::int32_t first,
                           std::int32_t *result)
{
    assert(search.index != nullptr); // kudcstsrch has looked it up
    kudcinddef entry = {};
    for (std::uint16_t level = from; level < search.index->lvct_kudcidx; level++) {
        entry = {KUDC_NONE, KUDC_NONE, KUDC_NONE, 0, 0, 0};
        const std::uint32_t status = kudcsvisit(search, level, first, &entry, result);
        if (status != 0 || *result != KUDC_POSITIONED) return status;
        first = entry.root_kudcind;
    }
    rewind_cursor(search.cursor);
    search.cursor->curleft_kudccur = entry.coun_kudcind;
    search.position->held_kudcsips = entry.frst_kudcind;
    return kudcstakeall(search, from);
}

} // namespace

extern "C" {

std::uint32_t kudcsikys(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index)
{
    if (const std::uint32_t status = kudcscheck(acmp, index, 0)) return status;
    if (thread == nullptr) return refuse(acmp, KUVAA_MISSING);
    for (std::uint16_t level = 0; level < index->lvct_kudcidx; level++)
        if (!kudcsfits(index, level)) return refuse(acmp, KUDCA_KEYSIZE);

    // Before the first row there is no key to differ from: empty values would equal it.
    kudcsstore store = {acmp, thread, index, 0};
    if (kudcstail(index).apos_kudcscl[0] != KUDC_NONE) {
        std::int32_t differs = 0;
        const std::uint32_t status =
            kudckcbva(acmp, index, &index->tinf_kudcidx.sinf_kudcidx.tail_kudcsidx.ckey_kudcspos,
                      &index->goal_kudcidx, 0, static_cast<std::uint16_t>(index->lvct_kudcidx - 1),
                      &differs, &store.breaks);
        if (status != 0) return status;
        if (differs == 0) store.breaks = static_cast<std::uint16_t>(index->lvct_kudcidx + 1);
        store.breaks = std::min(store.breaks, kudcslacking(index));
    }
    return kudcsenter(store);
}

std::uint32_t kudcslcur(kudcaccdef *acmp, kudcthddef *, kudcidxdef *index, std::uint16_t level,
                        std::int32_t *flag)
{
    if (const std::uint32_t status = kudcscheck(acmp, index, level)) return status;
    const std::int32_t block = kudcstail(index).apos_kudcscl[level];
    *flag = block == KUDC_NONE ? -1 : 0;
    if (block == KUDC_NONE) return 0;
    return visit_block(acmp, index->lvrt_kudcidx[level], block, acmp->indx_kudcacc);
}

std::uint32_t kudcslnew(kudcaccdef *acmp, kudcthddef *, kudcidxdef *index, std::uint16_t level)
{
    if (const std::uint32_t status = kudcscheck(acmp, index, level)) return status;
    const std::int64_t end =
        std::int64_t{acmp->nxio_kudcacc} + index->lvrt_kudcidx[level].size_kudcidh;
    if (end > file_limit) return refuse(acmp, KUDCA_FULL);
    make_block(acmp->indx_kudcacc, index->lvrt_kudcidx[level], acmp->nxio_kudcacc);
    acmp->nxio_kudcacc = static_cast<std::int32_t>(end);
    return 0;
}

std::uint32_t kudcslapp(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index,
                        std::uint16_t level)
{
    if (const std::uint32_t status = kudcscheck(acmp, index, level)) return status;
    if (!kudcsfits(index, level)) return refuse(acmp, KUDCA_KEYSIZE);
    if (!is_block(acmp->indx_kudcacc, header_of(acmp->indx_kudcacc).addr_kudcidh,
                  index->lvrt_kudcidx[level].size_kudcidh, level))
        return refuse(acmp, KUVAA_MISSING);
    if (header_of(acmp->indx_kudcacc).free_kudcidh < kudcsneeded(index, level))
        if (const std::uint32_t status = kudcscontinue(acmp, thread, index, level)) return status;
    if (const std::uint32_t status = kudcsadd(acmp, index, level)) return status;

    // Level 0 comes last in a store: as long as it is empty this is the first key of all.
    std::int32_t first = 0;
    kudcslhemp(acmp, index, level, &first);
    kudcsidxdef &lists = index->tinf_kudcidx.sinf_kudcidx;
    if (first != 0)
        if (const std::uint32_t status = kudcsmark(acmp, index, &lists.head_kudcsidx, level))
            return status;
    return kudcsmark(acmp, index, &lists.tail_kudcsidx, level);
}

std::uint32_t kudcslemp(kudcaccdef *acmp, kudcthddef *, kudcidxdef *index, std::uint16_t level,
                        std::int32_t *empty)
{
    if (const std::uint32_t status = kudcscheck(acmp, index, level)) return status;
    *empty = kudcstail(index).apos_kudcscl[level] == KUDC_NONE ? 1 : 0;
    return 0;
}

std::uint32_t kudcslhemp(kudcaccdef *acmp, kudcidxdef *index, std::uint16_t, std::int32_t *empty)
{
    return kudcslemp(acmp, nullptr, index, 0, empty);
}

std::uint32_t kudcstsrch(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t target,
                         std::uint16_t level, std::int32_t, std::int32_t relop,
                         std::int32_t firstblock, std::int32_t *result)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *result = KUDC_NOKEY;
    if (const std::uint32_t status = check_cursor(acmp, cursor)) return status;
    kudcidxdef *index = index_of(acmp, cursor);
    if (const std::uint32_t status = kudcscheck(acmp, index, level)) return status;
    if (const std::uint32_t status = check_key(acmp, cursor)) return status;
    if (relop < KUDC_FIRST || relop > KUDC_CURRENT) return 0;
    const kudcssearch search = {
        acmp, cursor, index, static_cast<kudcsipsdef *>(cursor->ipsh_kudccur), target, relop};
    const std::uint32_t status = kudcsdescend(search, level, firstblock, result);
    if (status != 0) *result = KUDC_NOKEY;
    return status;
}

} // extern "C"
