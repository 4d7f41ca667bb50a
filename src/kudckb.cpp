// kudckb.cpp - the B-trees of RANDOM indexes, after Bayer and McCreight 1972
//
// A level of an index has one B-tree for every key of the level above; the first
// level has one. A leaf entry owns the root of a tree of the next level, or, on
// the last level, a chain of rows:
//
//     level 0      [ B  D ]                internal: less | entry's child ...
//                 |   |   |
//              [A] - [B C] - [D E]         leaves, linked both ways
//                     |
//     level 1       [1 2 3]                the tree of B's second key parts
//                      |
//     rows            row -> row -> row    by the link of the level's slot
//
// A separator is the first key of the half to its right when that was split off.
// In leaves it stays, in internal blocks it moves up; deleting a key leaves its
// separator where it is. Roots never move: a root that overflows gives its entries
// to two new blocks and becomes their parent where it stands, so that nobody who
// knows a root has to be told. `ublk` is KUDC_NONE on roots exactly, and no more
// is to be read from it.
//
// Blocks are searched where they lie in the block cache, when one page of it has them whole.
// The block being worked on is in indx_kudcacc, while it is split its old content
// in copy_kudcacc. Keys have any length: a block is full when the next key does
// not fit, and room is counted in bytes.
//
// A left half takes the place of the old block when the parent knows the right one:
// an insertion that is cut short loses no key that was there. When it cannot be
// written then, it waits for the next change of the level's trees; until then both
// ways of looking, down and to the right, find the same keys. The root of the next
// level's tree is written before the entry that leads to it.
//
// A look-up costs one move a block on the way down, an insertion one more for the
// leaf; a split, one for each half, one for the right neighbour's link and one for
// the parent, and memory for a block.
#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kudc_internal.h"
#include "kudck.h"
#include "kudck_internal.h"

using namespace ku::cache;

namespace
{

// Outcomes of an insertion.
constexpr std::int32_t kudck_present = 0;
constexpr std::int32_t kudck_added = -1;
constexpr std::int32_t kudck_split = -2;

constexpr std::int32_t kudck_unsound = INT32_MIN; // of a search: a key passes the block's end

constexpr std::uint32_t kudck_lsib = offsetof(kudcidhdef, lsib_kudcidh); // in a block

std::uint32_t kudckcapacity(const kudcidhdef &header) { return header.size_kudcidh - block_head; }

// Bytes that a stored key takes in a block, with its entry.
std::uint64_t kudckused(const unsigned char *block, std::uint32_t entry, std::uint16_t columns)
{
    std::uint32_t size = 0;
    kudckszflk(key_at(block, entry), columns, &size);
    return std::uint64_t{size} + entry_bytes;
}

// ---- searching ----

bool kudckreadable(const kudcaccdef *acmp, std::uint32_t bytes)
{
    return acmp->indx_kudcacc != nullptr && bytes >= block_head && bytes <= acmp->isiz_kudcacc;
}

// Reads a block, the level's block size known; a wrong one is put right.
std::uint32_t kudckread(kudcaccdef *acmp, std::uint16_t level, std::int32_t position,
                        std::uint32_t bytes)
{
    if (!kudckreadable(acmp, bytes)) return refuse(acmp, KUVAA_NOVALUE);
    const std::uint32_t status = read_block(acmp, position, bytes, acmp->indx_kudcacc);
    if (status != 0) return status;
    const std::uint32_t size = header_of(acmp->indx_kudcacc).size_kudcidh;
    if (!is_block(acmp->indx_kudcacc, position, size, level) || size < block_head
        || size > acmp->isiz_kudcacc) {
        return refuse(acmp, KUVAA_MISSING);
    }
    return size == bytes ? 0 : read_block(acmp, position, size, acmp->indx_kudcacc);
}

// Lets all of a block come from memory at once, before the search asks for one place after the
// other.
void kudckfetch(const unsigned char *block, std::uint32_t bytes)
{
    constexpr std::uint32_t line = 64, enough = 1024; // bytes
    for (std::uint32_t at = 0; at < std::min(bytes, enough); at += line)
        __builtin_prefetch(block + at);
}

// Goes to a block on the way down. *block: it, until the next move: where it is, if it can be
// seen there, else in the working buffer. Its keys have the columns of the one looked for, at
// least: it is no other index's.
std::uint32_t kudckvisit(kudcaccdef *acmp, std::uint16_t level, std::int32_t position,
                         std::uint32_t bytes, std::uint32_t columns, const unsigned char **block)
{
    if (!kudckreadable(acmp, bytes)) return refuse(acmp, KUVAA_NOVALUE);
    const unsigned char *seen = nullptr;
    const std::uint32_t status = look_at_block(acmp, position, bytes, &seen);
    if (status != 0) return status;
    *block = seen;
    if (seen != nullptr) kudckfetch(seen, bytes);
    if (seen == nullptr || !is_block(seen, position, bytes, level)) {
        *block = acmp->indx_kudcacc;
        if (const std::uint32_t code = kudckread(acmp, level, position, bytes)) return code;
    }
    return columns <= header_of(*block).clct_kudcidh ? 0 : refuse(acmp, KUVAA_MISSING);
}

// Brings a block that was visited into the working buffer.
void kudckbring(const kudcaccdef *acmp, const unsigned char *block)
{
    if (block == acmp->indx_kudcacc) return;
    std::memcpy(acmp->indx_kudcacc, block, header_of(block).size_kudcidh);
}

// The entry that holds the key, or -(insertion point + 1), or kudck_unsound. The columns' buffers
// are there.
std::int32_t kudcksearch(const kudcaccdef *acmp, const level_columns &columns,
                         const unsigned char *block)
{
    std::int32_t low = 0, high = header_of(block).kyct_kudcidh - 1;
    while (low <= high) {
        const std::int32_t middle = (low + high) / 2;
        const int order = compare_entry(acmp, columns, block, static_cast<std::uint32_t>(middle));
        if (order == 0) return middle;
        if (order == unsound) return kudck_unsound;
        if (order < 0)
            high = middle - 1;
        else
            low = middle + 1;
    }
    return -(low + 1);
}

// Whether a block is one of the index's: what it says of its level is what the level's blocks say.
bool kudckown(const kudcidxdef *index, const kudcidhdef &header)
{
    if (header.levl_kudcidh >= index->lvct_kudcidx) return false;
    const kudcidhdef &level = index->lvrt_kudcidx[header.levl_kudcidh];
    return header.size_kudcidh == level.size_kudcidh && header.clct_kudcidh == level.clct_kudcidh
           && header.last_kudcidh == level.last_kudcidh;
}

// Whether one stored key at most is equal to the columns.
bool kudckexact(const level_columns &columns, std::uint16_t count)
{
    bool exact = columns.count == count;
    for (std::uint16_t i = 0; i < columns.count; i++) {
        exact = exact && columns.first[i].wildcard_kudcbva != 1;
    }
    return exact;
}

// The entry of an internal block to descend into, -1 for `less`.
std::int32_t kudckbranch(std::int32_t position)
{
    return position >= 0 ? position : -(position + 2);
}

std::int32_t kudckchild(const unsigned char *block, std::int32_t branch)
{
    if (branch < 0) return header_of(block).less_kudcidh;
    return entry_of(block, static_cast<std::uint32_t>(branch)).frst_kudcind;
}

} // namespace

namespace ku::cache
{

std::uint32_t find_in_tree(kudcaccdef *acmp, const kudckeydef *key, std::uint16_t level,
                           std::int32_t root, std::uint32_t bytes, std::int32_t *position,
                           std::int32_t *inserted)
{
    *position = -1;
    if (inserted != nullptr) *inserted = 0;
    if (root < 0) return 0;
    const level_columns columns = columns_of(key, level);
    const unsigned char *block = nullptr;
    std::uint32_t status = check_buffers(acmp, columns);
    if (status == 0) status = kudckvisit(acmp, level, root, bytes, columns.count, &block);
    if (status != 0) return status;

    if (inserted != nullptr) *inserted = header_of(block).coun_kudcidh;
    *position = kudcksearch(acmp, columns, block);
    block_steps steps(acmp, header_of(block));
    while (*position != kudck_unsound && header_of(block).leaf_kudcidh == 0) {
        status = steps.take();
        if (status != 0) return status;
        status = kudckvisit(acmp, level, kudckchild(block, kudckbranch(*position)),
                            header_of(block).size_kudcidh, columns.count, &block);
        if (status != 0) return status;
        *position = kudcksearch(acmp, columns, block);
    }
    if (*position == kudck_unsound) return refuse(acmp, KUVAA_MISSING);
    kudckbring(acmp, block);
    return 0;
}

std::uint32_t find_nearby(kudcaccdef *acmp, const kudckeydef *key, std::uint16_t level,
                          std::int32_t root, std::uint32_t bytes, nearby *near,
                          std::int32_t *position)
{
    if (near->root == root && near->again) {
        const level_columns columns = columns_of(key, level);
        std::uint32_t status = check_buffers(acmp, columns);
        if (status == 0) status = kudckread(acmp, level, near->leaf, bytes);
        if (status != 0) return status;
        const kudcidhdef header = header_of(acmp->indx_kudcacc);
        // Of keys that a wildcard or a part matches the one is taken that the way down leads to.
        if (header.leaf_kudcidh != 0 && kudckexact(columns, header.clct_kudcidh)) {
            *position = kudcksearch(acmp, columns, acmp->indx_kudcacc);
            if (*position == kudck_unsound) return refuse(acmp, KUVAA_MISSING);
            // Between two keys of a leaf no other leaf's can be.
            if (*position >= 0 || (*position < -1 && -(*position + 1) < header.kyct_kudcidh))
                return 0;
        }
    }
    const std::uint32_t status = find_in_tree(acmp, key, level, root, bytes, position, nullptr);
    if (status != 0 || root < 0) return status;
    const std::int32_t leaf = header_of(acmp->indx_kudcacc).addr_kudcidh;
    *near = {root, leaf, near->root == root && near->leaf == leaf};
    return 0;
}

} // namespace ku::cache

uint32_t kudcksrc(kudcaccdef *acmp, const kudckeydef *key, int16_t *position, int32_t *empty)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const unsigned char *block = acmp->indx_kudcacc;
    if (block == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    if (!is_held(block, acmp->isiz_kudcacc)) return refuse(acmp, KUVAA_MISSING);
    const kudcidhdef header = header_of(block);
    const level_columns columns = columns_of(key, header.levl_kudcidh);
    const std::uint32_t status = check_buffers(acmp, columns);
    if (status != 0) return status;
    const std::int32_t found = kudcksearch(acmp, columns, block);
    if (found == kudck_unsound) return refuse(acmp, KUVAA_MISSING);
    *empty = header.kyct_kudcidh == 0 ? 1 : 0;
    *position = static_cast<std::int16_t>(found);
    return 0;
}

uint32_t kudckfnd(kudcaccdef *acmp, const kudckeydef *key, int32_t root, int32_t allkeys,
                  int32_t *count, int32_t *row)
{
    *count = 0;
    *row = KUDC_NONE;
    if (acmp == nullptr) return KUVAA_MISSING;
    if (key->arylevsize_kudckey == nullptr) return refuse(acmp, KUVAA_NOVALUE);

    kudcinddef above = {};
    above.frst_kudcind = KUDC_NONE;
    for (std::uint16_t level = 0; level < key->numlevsize_kudckey; level++) {
        std::int32_t position = 0, inserted = 0;
        const std::uint32_t status = find_in_tree(
            acmp, key, level, root, key->arylevsize_kudckey[level], &position, &inserted);
        if (status != 0) return status;
        // Rows entered with fewer levels are under the key above; those of keys that were
        // deleted are not to be found.
        if (position < 0 && allkeys == 0 && root >= 0 && inserted == 0
            && header_of(acmp->indx_kudcacc).kyct_kudcidh == 0) {
            break;
        }
        if (position < 0) return 0;
        const kudcinddef found = entry_of(acmp->indx_kudcacc, static_cast<std::uint32_t>(position));
        if (found.frst_kudcind < 0) return 0;
        above = found;
        root = found.root_kudcind;
    }
    *row = above.frst_kudcind;
    *count = above.coun_kudcind;
    return 0;
}

// ---- entries of a block ----

namespace
{

// A block with the header's fields and no entries yet.
void kudckempty(unsigned char *block, kudcidhdef header)
{
    header.kyct_kudcidh = 0;
    header.free_kudcidh = static_cast<std::uint16_t>(kudckcapacity(header));
    set_header(block, header);
}

// Nothing is left of what lay in the free space before.
void kudckclean(unsigned char *block)
{
    const kudcidhdef header = header_of(block);
    std::memset(entry_at(block, header.kyct_kudcidh), 0, header.free_kudcidh);
}

// Makes room for one more entry and a key of `size` bytes, which begins at *offset. The
// entries from `entry` on have moved one place right.
void kudckopen(unsigned char *block, std::uint32_t entry, std::uint32_t size, std::uint16_t *offset)
{
    kudcidhdef header = header_of(block);
    assert(size + entry_bytes <= header.free_kudcidh && entry <= header.kyct_kudcidh);
    std::memmove(entry_at(block, entry + 1), entry_at(block, entry),
                 std::size_t{entry_bytes} * (header.kyct_kudcidh - entry));
    header.kyct_kudcidh++;
    header.free_kudcidh = static_cast<std::uint16_t>(header.free_kudcidh - size - entry_bytes);
    set_header(block, header);
    *offset = static_cast<std::uint16_t>(block_head + entry_bytes * header.kyct_kudcidh
                                         + header.free_kudcidh);
}

// Appends the entries from `first` up to `end` of another block, which has their keys.
void kudckappend(unsigned char *block, const unsigned char *source, std::uint32_t first,
                 std::uint32_t end)
{
    for (std::uint32_t entry = first; entry < end; entry++) {
        kudckcpy(block, source, header_of(block).kyct_kudcidh, static_cast<std::uint16_t>(entry));
    }
}

// Puts the key's level of the block in at an entry that has the other fields of `record`.
std::uint32_t kudckput(kudcaccdef *acmp, unsigned char *block, std::uint32_t entry,
                       const kudckeydef *key, kudcinddef record)
{
    const std::uint16_t level = header_of(block).levl_kudcidh;
    std::uint32_t size = 0;
    kudckpsflk(key, level, &size);
    kudckopen(block, entry, size, &record.offs_kudcind);
    set_entry(block, entry, record);
    return kudckcflkval(acmp, key, level, block + record.offs_kudcind);
}

} // namespace

uint32_t kudckcpy(unsigned char *destination, const unsigned char *source, uint16_t toentry,
                  uint16_t fromentry)
{
    const kudcidhdef from = header_of(source), to = header_of(destination);
    if (fromentry >= from.kyct_kudcidh || toentry > to.kyct_kudcidh) return KUVAA_MISSING;
    const std::uint32_t used = entry_size(source, fromentry);
    if (used == 0) return KUVAA_MISSING;
    if (used > to.free_kudcidh) return KUDCA_KEYSIZE;
    const std::uint32_t size = used - entry_bytes;

    kudcinddef record = entry_of(source, fromentry);
    const unsigned char *flatkey = source + record.offs_kudcind;
    kudckopen(destination, toentry, size, &record.offs_kudcind);
    set_entry(destination, toentry, record);
    std::memcpy(destination + record.offs_kudcind, flatkey, size);
    return 0;
}

uint32_t kudckdel(unsigned char *destination, const unsigned char *source, uint16_t entry)
{
    const kudcidhdef header = header_of(source);
    if (entry >= header.kyct_kudcidh || used_bytes(source) == 0) return KUVAA_MISSING;
    kudckempty(destination, header);
    kudckappend(destination, source, 0, entry);
    kudckappend(destination, source, entry + 1u, header.kyct_kudcidh);
    kudckclean(destination);
    return 0;
}

uint32_t kudckrep(kudcaccdef *acmp, unsigned char *destination, const unsigned char *source,
                  uint16_t entry, const kudckeydef *key)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const kudcidhdef header = header_of(source);
    if (entry >= header.kyct_kudcidh || header.size_kudcidh > acmp->isiz_kudcacc
        || used_bytes(source) == 0)
        return refuse(acmp, KUVAA_MISSING);
    if (columns_of(key, header.levl_kudcidh).count != header.clct_kudcidh)
        return refuse(acmp, KUVAA_NOVALUE);
    std::uint32_t size = 0;
    kudckpsflk(key, header.levl_kudcidh, &size);
    if (std::uint64_t{size} + entry_bytes
        > header.free_kudcidh + kudckused(source, entry, header.clct_kudcidh)) {
        return refuse(acmp, KUDCA_KEYSIZE);
    }
    kudckdel(destination, source, entry);
    kudcinddef record = entry_of(source, entry);
    adjust(&record.coun_kudcind, -1);
    return kudckput(acmp, destination, entry, key, record);
}

// ---- rows under a key ----

uint32_t kudckzdrc(kudcaccdef *acmp, kudcthddef *thread, unsigned char *block, uint16_t entry,
                   uint16_t slot)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const kudcidhdef header = header_of(block);
    if (entry >= header.kyct_kudcidh || !is_held(block, acmp->isiz_kudcacc))
        return refuse(acmp, KUVAA_MISSING);
    kudcinddef record = entry_of(block, entry);
    const std::int32_t row = acmp->nxdo_kudcacc;
    if (record.frst_kudcind == KUDC_NONE) {
        record.frst_kudcind = record.last_kudcind = row;
        record.coun_kudcind = 1;
    } else if (thread->calc_kudcthd == 0) {
        // The row of an entry just made is this one, and not stored yet.
        if (record.last_kudcind != row) {
            const std::int64_t word =
                std::int64_t{record.last_kudcind} + row_head + link_bytes * std::int64_t{slot};
            if (record.last_kudcind < 0 || word + link_bytes > row) {
                return refuse(acmp, KUVAA_MISSING);
            }
            const kudclnkdef link = {row};
            const std::uint32_t status =
                write_data(acmp, static_cast<std::int32_t>(word), sizeof link, &link);
            if (status != 0) return status;
        }
        record.last_kudcind = row;
        adjust(&record.coun_kudcind, 1);
    }
    set_entry(block, entry, record);
    return write_block(acmp, header.addr_kudcidh, header.size_kudcidh, block);
}

// ---- inserting ----

namespace
{

// The left half of a block that was split, which takes the block's place when all else is written:
// until then the block has all of its keys. The half's bytes lie behind this.
struct kudckpending {
    kudckpending *below;    // the one that was split before
    std::int32_t neighbour; // block to the right of the two halves, or KUDC_NONE

    unsigned char *block() { return reinterpret_cast<unsigned char *>(this + 1); }
};

// One insertion of one level of a key into one tree.
struct kudckinsertion {
    kudcaccdef *acmp;
    kudckeydef *key;
    kudcthddef *thread;
    kudcidxdef *index;
    level_columns columns;
    std::int32_t child;    // the right half that a parent has to be told of
    std::int32_t nextroot; // the next level's tree under the key
    std::int32_t newroot;  // that tree's root when it has to be made yet, else KUDC_NONE
    std::int32_t outcome;
    kudckpending *pending; // what is left to write, from the root down
};

// Takes a block at the end of the index file.
std::uint32_t kudcktake(kudcaccdef *acmp, std::uint32_t size, std::int32_t *position)
{
    if (acmp->nxio_kudcacc > file_limit - size) return refuse(acmp, KUDCA_FULL);
    *position = acmp->nxio_kudcacc;
    acmp->nxio_kudcacc += static_cast<std::int32_t>(size);
    return 0;
}

std::uint32_t kudckwrite(kudcaccdef *acmp, const unsigned char *block)
{
    const kudcidhdef header = header_of(block);
    return write_block(acmp, header.addr_kudcidh, header.size_kudcidh, block);
}

// The entry to be made for the key in a block of this header. One in a leaf that is not of
// the last level gets the position of its tree's root, which is written before the entry.
std::uint32_t kudckfresh(kudckinsertion &in, const kudcidhdef &header, kudcinddef *record)
{
    *record = {};
    record->last_kudcind = record->root_kudcind = KUDC_NONE;
    if (header.leaf_kudcidh == 0) {
        record->frst_kudcind = in.child;
        return 0;
    }
    record->frst_kudcind = record->last_kudcind = in.acmp->nxdo_kudcacc;
    if (header.last_kudcidh != 0) {
        record->coun_kudcind = in.thread->calc_kudcthd == 0 ? 1 : 0;
    } else {
        if (in.acmp->copy_kudcacc == nullptr) return refuse(in.acmp, KUVAA_MISSING);
        const kudcidhdef &next = in.index->lvrt_kudcidx[header.levl_kudcidh + 1];
        const std::uint32_t status = kudcktake(in.acmp, next.size_kudcidh, &record->root_kudcind);
        if (status != 0) return status;
    }
    in.nextroot = in.newroot = record->root_kudcind;
    return 0;
}

// Writes the root of the next level's tree that an added key is promised, before the key can be
// found. copy_kudcacc is not needed any more.
std::uint32_t kudckplant(kudckinsertion &in, std::uint16_t level)
{
    if (in.newroot == KUDC_NONE) return 0;
    make_block(in.acmp->copy_kudcacc, in.index->lvrt_kudcidx[level + 1], in.newroot);
    in.newroot = KUDC_NONE;
    return kudckwrite(in.acmp, in.acmp->copy_kudcacc);
}

// How a full block is parted: entries before `middle` go left, the others right, and the new
// one left as well or right.
struct kudckparting {
    std::uint32_t middle;
    bool left; // the new entry goes left
};

// A parting that leaves both halves within their room.
bool kudckfits(const unsigned char *block, std::uint32_t need, kudckparting parting)
{
    const kudcidhdef header = header_of(block);
    const std::uint32_t room = kudckcapacity(header);
    std::uint64_t left = 0;
    for (std::uint32_t i = 0; i < parting.middle; i++) {
        left += kudckused(block, i, header.clct_kudcidh);
    }
    const std::uint64_t right = room - header.free_kudcidh - left;
    return parting.left ? left + need <= room : right + need <= room;
}

// Parts a block for a new entry of `need` bytes at `place`: in the middle, or as near to it
// as there is room on both sides; the upper one of two that are as near. No half comes out
// empty: the other one would have to hold what did not fit in the block. False when nothing
// fits, which takes keys of more than half a block.
bool kudckpart(const unsigned char *block, std::uint32_t place, std::uint32_t need,
               kudckparting *parting)
{
    const std::uint32_t count = header_of(block).kyct_kudcidh, middle = count / 2;
    const auto fits = [&](std::uint32_t at) {
        *parting = {at, place <= at};
        return at < count && kudckfits(block, need, *parting);
    };
    for (std::uint32_t away = 0; away <= count; away++) {
        if (fits(middle + away) || (away <= middle && fits(middle - away))) return true;
    }
    // What is left is to let the right half begin with the new entry.
    *parting = {place, false};
    return kudckfits(block, need, *parting);
}

// A half of the block in copy_kudcacc, made in another; the new entry joins it at `place`, if it
// does.
std::uint32_t kudckhalf(kudckinsertion &in, unsigned char *block, const kudcidhdef &header,
                        std::uint32_t first, std::uint32_t end, const kudcinddef *record,
                        std::uint32_t place)
{
    kudckempty(block, header);
    kudckappend(block, in.acmp->copy_kudcacc, first, end);
    const std::uint32_t status =
        record != nullptr ? kudckput(in.acmp, block, place, in.key, *record) : 0;
    kudckclean(block);
    return status;
}

// Writes the right half. The first entry of an internal one moves up, and its child becomes
// `less`; what is left is made in copy_kudcacc, whose content is not needed any more.
std::uint32_t kudckright(kudcaccdef *acmp)
{
    const unsigned char *half = acmp->indx_kudcacc;
    if (header_of(half).leaf_kudcidh != 0) return kudckwrite(acmp, half);
    kudckdel(acmp->copy_kudcacc, half, 0);
    kudcidhdef header = header_of(acmp->copy_kudcacc);
    header.less_kudcidh = entry_of(half, 0).frst_kudcind;
    set_header(acmp->copy_kudcacc, header);
    return kudckwrite(acmp, acmp->copy_kudcacc);
}

// Releases the first of left halves.
void kudckforget(const kudcaccdef *acmp, kudckpending **pending)
{
    kudckpending *left = *pending;
    *pending = left->below;
    release(acmp, left);
}

// Writes the left halves, the one nearest to the root first, now that every right one can be
// found, and tells the blocks to the right of their new neighbours.
std::uint32_t kudcksettle(kudcaccdef *acmp, kudckpending **pending)
{
    while (kudckpending *left = *pending) {
        const std::int32_t right = header_of(left->block()).rsib_kudcidh;
        std::uint32_t status = kudckwrite(acmp, left->block());
        if (status == 0 && left->neighbour != KUDC_NONE)
            status = write_block(acmp, left->neighbour + static_cast<std::int32_t>(kudck_lsib),
                                 sizeof right, &right);
        if (status != 0) return status;
        kudckforget(acmp, pending);
    }
    return 0;
}

// Where the left half of a block is made: the block itself stays as it is for now.
unsigned char *kudckdefer(kudckinsertion &in, const kudcidhdef &header)
{
    auto *left = static_cast<kudckpending *>(
        obtain(in.acmp->kuxp_kudcacc, sizeof(kudckpending) + header.size_kudcidh, 1));
    if (left == nullptr) return nullptr;
    left->below = in.pending;
    left->neighbour = header.rsib_kudcidh;
    in.pending = left;
    return left->block();
}

// Makes a root the parent of its two halves, where it stands.
std::uint32_t kudckregrow(kudckinsertion &in, kudcidhdef header, std::int32_t left)
{
    unsigned char *block = in.acmp->indx_kudcacc;
    header.lsib_kudcidh = header.rsib_kudcidh = header.ublk_kudcidh = KUDC_NONE;
    header.leaf_kudcidh = 0;
    header.less_kudcidh = left;
    kudckempty(block, header);
    kudckclean(block);
    kudcinddef record = {};
    record.frst_kudcind = in.child;
    record.last_kudcind = record.root_kudcind = KUDC_NONE;
    const std::uint32_t status = kudckput(in.acmp, block, 0, in.key, record);
    return status != 0 ? status : kudckwrite(in.acmp, block);
}

// Splits the full block in the working buffer while an entry goes in at `place`.
std::uint32_t kudcksplit(kudckinsertion &in, std::uint32_t place, std::uint32_t need)
{
    kudcaccdef *acmp = in.acmp;
    if (acmp->copy_kudcacc == nullptr || !is_whole(acmp->indx_kudcacc)) {
        return refuse(acmp, KUVAA_MISSING);
    }
    const kudcidhdef old = header_of(acmp->indx_kudcacc);
    const bool isroot = old.ublk_kudcidh == KUDC_NONE;
    kudckparting parting = {};
    if (!kudckpart(acmp->indx_kudcacc, place, need, &parting)) return refuse(acmp, KUDCA_KEYSIZE);

    kudcidhdef left = old, right = old;
    unsigned char *half = isroot ? acmp->indx_kudcacc : kudckdefer(in, old);
    if (half == nullptr) return KUVAA_NOMEM;
    std::uint32_t status = 0;
    if (isroot) status = kudcktake(acmp, old.size_kudcidh, &left.addr_kudcidh);
    if (status == 0) status = kudcktake(acmp, old.size_kudcidh, &right.addr_kudcidh);
    kudcinddef record = {};
    if (status == 0) status = kudckfresh(in, old, &record);
    if (status != 0) return status;
    if (isroot) left.ublk_kudcidh = right.ublk_kudcidh = old.addr_kudcidh;
    left.rsib_kudcidh = right.addr_kudcidh;
    right.lsib_kudcidh = left.addr_kudcidh;
    right.less_kudcidh = KUDC_NONE;
    in.child = right.addr_kudcidh;
    in.outcome = kudck_split;

    std::memcpy(acmp->copy_kudcacc, acmp->indx_kudcacc, old.size_kudcidh);
    const std::uint32_t middle = parting.middle;
    status = kudckhalf(in, half, left, 0, middle, parting.left ? &record : nullptr, place);
    if (status == 0 && isroot) status = kudckwrite(acmp, half);
    if (status == 0) {
        status = kudckhalf(in, acmp->indx_kudcacc, right, middle, old.kyct_kudcidh,
                           parting.left ? nullptr : &record, parting.left ? 0 : place - middle);
    }
    if (status == 0) status = load_key(acmp, in.index, acmp->indx_kudcacc, 0, in.columns, nullptr);
    if (status == 0) status = kudckplant(in, old.levl_kudcidh);
    if (status == 0) status = kudckright(acmp);
    return status == 0 && isroot ? kudckregrow(in, old, left.addr_kudcidh) : status;
}

// Adds an entry for the key to the block in the working buffer, at `place`.
std::uint32_t kudckadd(kudckinsertion &in, std::uint32_t place)
{
    unsigned char *block = in.acmp->indx_kudcacc;
    const kudcidhdef header = header_of(block);
    std::uint32_t size = 0;
    kudckpsflk(in.key, header.levl_kudcidh, &size);
    const std::uint32_t need = size + entry_bytes;
    if (header.free_kudcidh < need) return kudcksplit(in, place, need);
    kudcinddef record = {};
    std::uint32_t status = kudckfresh(in, header, &record);
    if (status == 0) status = kudckput(in.acmp, block, place, in.key, record);
    if (status == 0) status = kudckplant(in, header.levl_kudcidh);
    if (status == 0) status = kudckwrite(in.acmp, block);
    in.outcome = kudck_added;
    return status;
}

// The key has an entry in a leaf.
std::uint32_t kudckjoin(kudckinsertion &in, const unsigned char *leaf, std::uint16_t entry)
{
    const kudcidhdef header = header_of(leaf);
    in.outcome = kudck_present;
    in.nextroot = entry_of(leaf, entry).root_kudcind;
    if (header.last_kudcidh == 0) return 0;
    kudckbring(in.acmp, leaf);
    return kudckzdrc(in.acmp, in.thread, in.acmp->indx_kudcacc, entry,
                     static_cast<std::uint16_t>(in.index->lvst_kudcidx + header.levl_kudcidh));
}

// The blocks from a tree's root down to a leaf, each with the branch taken there. Trees are low but
// for those of keys of nearly half a block, which can be as high as they have blocks.
class kudckway : ku::unique
{
public:
    explicit kudckway(kux *ctx) : ctx_(ctx), more_(ctx) {}

    struct turn {
        std::int32_t block, branch;
    };
    bool empty() const { return count_ == 0; }
    turn pop() { return turns()[--count_]; }
    // 0, or KUVAA_NOMEM pushed.
    std::uint32_t push(const turn &taken)
    {
        if (count_ == room_) {
            ku::owned<turn> grown(ctx_, obtain<turn>(ctx_, 2 * std::uint64_t{room_}));
            if (!grown) return KUVAA_NOMEM;
            std::memcpy(grown.get(), turns(), count_ * sizeof(turn));
            more_.reset(grown.keep());
            room_ *= 2;
        }
        turns()[count_++] = taken;
        return 0;
    }

private:
    turn *turns() { return more_ ? more_.get() : some_; }

    static constexpr std::uint32_t few_ = 16;
    kux *ctx_;
    turn some_[few_];
    ku::owned<turn> more_;
    std::uint32_t count_ = 0, room_ = few_;
};

// From the root's block, at first in `*block`, to the leaf where the key is or belongs.
std::uint32_t kudckdescend(const kudckinsertion &in, const unsigned char **block, kudckway *way,
                           std::int32_t *position)
{
    block_steps steps(in.acmp, header_of(*block));
    for (;;) {
        const kudcidhdef header = header_of(*block);
        if (!kudckown(in.index, header)) return refuse(in.acmp, KUVAA_MISSING);
        *position = kudcksearch(in.acmp, in.columns, *block);
        if (*position == kudck_unsound) return refuse(in.acmp, KUVAA_MISSING);
        if (header.leaf_kudcidh != 0) return 0;
        const std::int32_t branch = kudckbranch(*position);
        std::uint32_t status = steps.take();
        if (status == 0) status = way->push({header.addr_kudcidh, branch});
        if (status == 0)
            status = kudckvisit(in.acmp, header.levl_kudcidh, kudckchild(*block, branch),
                                header.size_kudcidh, in.columns.count, block);
        if (status != 0) return status;
    }
}

// Enters the key in the tree whose root is in `block`.
std::uint32_t kudckenter(kudckinsertion &in, const unsigned char *block)
{
    kudcaccdef *acmp = in.acmp;
    const kudcidhdef root = header_of(block);
    kudckway way(acmp->kuxp_kudcacc);
    std::int32_t position = 0;
    std::uint32_t status = kudckdescend(in, &block, &way, &position);
    if (status != 0) return status;
    if (position >= 0) return kudckjoin(in, block, static_cast<std::uint16_t>(position));
    kudckbring(acmp, block);
    status = kudckadd(in, static_cast<std::uint32_t>(-(position + 1)));
    while (status == 0 && in.outcome == kudck_split && !way.empty()) {
        const kudckway::turn above = way.pop();
        status = kudckread(acmp, root.levl_kudcidh, above.block, root.size_kudcidh);
        // Right of the child that was split: a separator may be equal to one that stands there,
        // left of a key that was deleted and has come back.
        if (status == 0) status = kudckadd(in, static_cast<std::uint32_t>(above.branch + 1));
    }
    return status;
}

} // namespace

namespace ku::cache
{

std::uint32_t settle_level(kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t level)
{
    level_notes *notes = notes_of(index, level);
    auto *pending = static_cast<kudckpending *>(notes->unsettled);
    const std::uint32_t status = kudcksettle(acmp, &pending);
    notes->unsettled = pending;
    return status;
}

std::uint32_t settle_levels(kudcaccdef *acmp, const kudcidxdef *index)
{
    for (std::uint16_t level = 0; level < index->lvct_kudcidx; level++)
        if (const std::uint32_t status = settle_level(acmp, index, level)) return status;
    return 0;
}

void drop_unsettled(const kudcaccdef *acmp, const kudcidxdef *index)
{
    for (std::uint16_t level = 0; index->lvrt_kudcidx != nullptr && level < index->lvct_kudcidx;
         level++) {
        auto *pending = static_cast<kudckpending *>(notes_of(index, level)->unsettled);
        while (pending != nullptr) kudckforget(acmp, &pending);
        notes_of(index, level)->unsettled = nullptr;
    }
}

} // namespace ku::cache

uint32_t kudckins(kudcaccdef *acmp, kudckeydef *key, kudcthddef *thread, kudcidxdef *index,
                  int32_t *child, int32_t *nextroot, int32_t *outcome)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (acmp->indx_kudcacc == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    const kudcidhdef root = header_of(acmp->indx_kudcacc);
    if (!kudckown(index, root)
        || !is_block(acmp->indx_kudcacc, root.addr_kudcidh, root.size_kudcidh, root.levl_kudcidh))
        return refuse(acmp, KUVAA_MISSING);
    kudckinsertion in = {
        acmp,   key,       thread,    index,         columns_of(key, root.levl_kudcidh),
        *child, *nextroot, KUDC_NONE, kudck_present, nullptr};
    std::uint32_t status = check_buffers(acmp, in.columns);
    if (status != 0) return status;
    if (in.columns.count != root.clct_kudcidh) return refuse(acmp, KUVAA_NOVALUE);
    std::uint32_t size = 0;
    kudckpsflk(key, root.levl_kudcidh, &size);
    if (std::uint64_t{size} + entry_bytes > kudckcapacity(root)) {
        return refuse(acmp, KUDCA_KEYSIZE);
    }
    if (const std::uint32_t pending = kuxercode(acmp->kuxp_kudcacc)) return pending;
    status = settle_level(acmp, index, root.levl_kudcidh);
    if (status == 0) status = kudckenter(in, acmp->indx_kudcacc);
    // Cut short before, the blocks stay as they were; later, the halves wait for the next one.
    while (status != 0 && in.pending != nullptr) kudckforget(acmp, &in.pending);
    if (status == 0) {
        notes_of(index, root.levl_kudcidh)->unsettled = in.pending;
        status = settle_level(acmp, index, root.levl_kudcidh);
    }
    // The caller counts an added key in the root.
    if (status == 0 && in.outcome != kudck_present
        && header_of(acmp->indx_kudcacc).addr_kudcidh != root.addr_kudcidh) {
        status = kudckread(acmp, root.levl_kudcidh, root.addr_kudcidh, root.size_kudcidh);
    }
    if (status != 0) return status;
    *child = in.child;
    *nextroot = in.nextroot;
    *outcome = in.outcome;
    return 0;
}

// ---- keys of integers ----

namespace
{

constexpr std::uint32_t kudck_integer = 4; // bytes of a binary integer

// Whether a thread column is one of a cursor key's, which then has buffers for it.
bool kudckover(const kudckeydef *key, const kudxcoldef *column)
{
    bool found = false, whole = true;
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        if (key->arybva_kudckey[i].col_kudcbva != column) continue;
        found = true;
        whole = whole && key->arybva_kudckey[i].val_kudcbva != nullptr;
    }
    return found && whole;
}

// Whether the buffers for a thread column's values were made for integers.
bool kudckwide(const kudcidxdef *index, const kudxcoldef *column)
{
    for (std::uint16_t i = 0; i < index->clct_kudcidx; i++) {
        if (index->cols_kudcidx[i].col_kudcbva == column) {
            return longest_key_value(index, i) >= kudck_integer;
        }
    }
    return false;
}

// Where integers can be put: 0, or a code pushed.
std::uint32_t kudcktargets(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key,
                           std::uint32_t count, kudcbvadef *const *values)
{
    for (std::uint32_t i = 0; i < count; i++) {
        if (values == nullptr || values[i] == nullptr) return refuse(acmp, KUVAA_MISSING);
        const kudxcoldef *column = values[i]->col_kudcbva;
        if (column == nullptr || !kudckover(key, column) || column->curval_kudxcol == nullptr
            || !kudckwide(index, column)) {
            return refuse(acmp, KUVAA_NOVALUE);
        }
    }
    return 0;
}

} // namespace

uint32_t kudckfblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t count, kudcbvadef *const *values,
                   const int32_t *integers, int32_t *row)
{
    *row = KUDC_NONE;
    if (acmp == nullptr) return KUVAA_MISSING;
    if (cursor == nullptr) return 0;
    std::uint32_t status = check_cursor(acmp, cursor);
    if (status != 0) return status;
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (index->idxt_kudcidx != KUDC_RANDOM) return refuse(acmp, KUDCA_TYPE);
    if (count != 0 && integers == nullptr) return refuse(acmp, KUVAA_MISSING);
    const kudckeydef *key = cursor->keyp_kudccur;
    status = check_key(acmp, cursor);
    if (status == 0) status = kudcktargets(acmp, index, key, count, values);
    if (status == 0) status = kuxercode(acmp->kuxp_kudcacc); // its first move would fail with it
    if (status != 0) return status;

    for (std::uint32_t i = 0; i < count; i++) {
        kudxcoldef *column = values[i]->col_kudcbva;
        std::memcpy(column->curval_kudxcol, integers + i, kudck_integer);
        column->curlen_kudxcol = kudck_integer;
        column->curnul_kudxcol = 0;
        for (std::uint32_t k = 0; k < key->numbva_kudckey; k++) {
            kudcbvadef &goal = key->arybva_kudckey[k];
            if (goal.col_kudcbva != column) continue;
            std::memcpy(goal.val_kudcbva, integers + i, kudck_integer);
            goal.len_kudcbva = kudck_integer;
            goal.valnul_kudcbva = 0;
            goal.wildcard_kudcbva = 0;
            goal.set_kudcbva = 1;
        }
    }
    return kudckfnd(acmp, key, index->tinf_kudcidx.rinf_kudcidx.root_kudcridx, 1,
                    &cursor->curleft_kudccur, row);
}
