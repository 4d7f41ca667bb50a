// kudck_internal.h - keys and B-trees of the data cache: what the other families use of them
#ifndef KUDCK_INTERNAL_H
#define KUDCK_INTERNAL_H

#include <climits>
#include <cstdint>

#include "kudc_internal.h"

namespace ku::cache
{

// Whether the columns' buffers are there: 0, or KUVAA_NOVALUE pushed.
std::uint32_t check_buffers(const kudcaccdef *acmp, const level_columns &columns);

// Order of key columns and a stored key of `count` columns as the index has it: below, at or
// above 0; `unsound` for a key that passes its room. The columns' buffers are there.
//   room  bytes from the key to the end of its block
constexpr int unsound = INT_MIN;
int compare_stored(const kudcaccdef *acmp, const level_columns &columns, std::uint32_t count,
                   const unsigned char *flatkey, std::uint32_t room);
inline int compare_entry(const kudcaccdef *acmp, const level_columns &columns,
                         const unsigned char *block, std::uint32_t entry)
{
    return compare_stored(acmp, columns, header_of(block).clct_kudcidh, key_at(block, entry),
                          key_room(block, entry));
}

// Loads an entry's key into key columns of its level, which are the first of them or all: 0, or
// KUVAA_NOVALUE pushed; KUVAA_MISSING for one that the block does not have, or that is longer
// than the index's columns.
//   index  null: the block is the caller's, and taken as it is
//   size   out: bytes of the stored key; null: not wanted
std::uint32_t load_key(const kudcaccdef *acmp, const kudcidxdef *index, const unsigned char *block,
                       std::uint32_t entry, const level_columns &columns, std::uint32_t *size);

// Bytes that a value takes in its buffer, with the length in front of a number that has one.
std::uint64_t value_bytes(const kudcbvadef &column);

// Copies a value with its length and null indicator; a length in front comes along, and says no
// more than was copied. The buffer takes it.
void copy_value(const kudcbvadef &from, kudcbvadef *to);
// A number whose length stands in front of it gets it as its length, as a stored one has it.
void settle_value(kudcbvadef *column);

// Copies a key into another's arrays and buffers, which have room for it; split flags stay.
void copy_key(const kudckeydef *key, kudckeydef *copy);

// Looks a level of a key up in that level's tree. The leaf where the key is, or would be, is
// in the working buffer afterwards.
//   root      root block of the tree; negative: a tree without keys, nothing is read
//   bytes     the level's block size
//   position  out: the entry, or -(insertion point + 1) as kudcksrc has it
//   inserted  out: keys ever inserted into the tree (its root's count); null: not wanted
std::uint32_t find_in_tree(kudcaccdef *acmp, const kudckeydef *key, std::uint16_t level,
                           std::int32_t root, std::uint32_t bytes, std::int32_t *position,
                           std::int32_t *inserted);

// Where a look-up in a level's trees ended, which is where the next one may end, too. A block
// that was a leaf of a tree stays in that tree, so this may be out of date, but never wrong.
struct nearby {
    std::int32_t root; // the tree; positions of blocks
    std::int32_t leaf;
    std::int32_t again; // 1: the leaf to be looked at before the root
};
// What is known of a level of an index besides its template; these lie behind the templates.
struct level_notes {
    nearby last;
    void *unsettled; // left halves of split blocks that could not be written yet
};
static_assert(sizeof(kudcidhdef) % alignof(level_notes) == 0);
inline level_notes *notes_of(const kudcidxdef *index, std::uint16_t level)
{
    return reinterpret_cast<level_notes *>(index->lvrt_kudcidx + index->lvct_kudcidx) + level;
}
inline nearby *nearby_of(const kudcidxdef *index, std::uint16_t level)
{
    return &notes_of(index, level)->last;
}
// Writes what an insertion could not write of the split blocks of an index's levels; what changes
// the trees of a level does this first. drop_unsettled only releases it.
std::uint32_t settle_level(kudcaccdef *acmp, const kudcidxdef *index, std::uint16_t level);
std::uint32_t settle_levels(kudcaccdef *acmp, const kudcidxdef *index);
void drop_unsettled(const kudcaccdef *acmp, const kudcidxdef *index);

// find_in_tree for keys that follow each other: two look-ups that end in one leaf make the next
// begin there.
std::uint32_t find_nearby(kudcaccdef *acmp, const kudckeydef *key, std::uint16_t level,
                          std::int32_t root, std::uint32_t bytes, nearby *near,
                          std::int32_t *position);

} // namespace ku::cache

#endif
