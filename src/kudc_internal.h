// kudc_internal.h - what the families of the query data cache share
//
// Three rules hold in all of them. A move is judged by its status, never by the
// look of the error stack; once a code is pushed nothing moves any more, because
// a move stops at any error on the stack. What lies in the files is copied in
// and out, never pointed at with a type: keys, columns and entries are not
// aligned. Level numbers are 0-based within their index.
#ifndef KUDC_INTERNAL_H
#define KUDC_INTERNAL_H

#include <cstdint>
#include <cstring>

#include "kudcdef.h"
#include "kuguard.h"

namespace ku::cache
{

constexpr std::int64_t file_limit = 0x7FFFFFFF;       // bytes of the longest data or index file
constexpr std::uint32_t row_head = 16;                // bytes of a row header
constexpr std::uint32_t column_head = 5;              // bytes before a column's value: length, null
constexpr std::uint32_t block_head = 56;              // bytes of a block header
constexpr std::uint32_t entry_bytes = 20;             // bytes of an entry
constexpr std::uint32_t key_head = 8;                 // bytes of a stored key's column header
constexpr std::uint32_t live_bytes = 2;               // bytes of a live count
constexpr std::uint32_t link_bytes = 4;               // bytes of a level link
constexpr std::uint32_t piece_bytes = 10240;          // longest piece of a long value
constexpr std::uint32_t largest_block = 0xFF00;       // bytes
constexpr std::uint32_t smallest_work_block = 512;    // bytes of the smallest working buffers
constexpr std::int64_t blocks_a_level_and_store = 40; // more than one insertion can take

// ---- failing ----

// Pushes a code and returns it.
std::uint32_t refuse(kux *ctx, std::uint32_t code);
inline std::uint32_t refuse(const kudcaccdef *acmp, std::uint32_t code)
{
    return refuse(acmp->kuxp_kudcacc, code);
}

// ---- memory ----

// Memory of the first context, with zeros in it whatever its allocator leaves there; nothing to
// allocate gives a block all the same.
// Null with KUVAA_NOMEM pushed.
void *obtain(kux *ctx, std::uint64_t count, std::uint64_t size);
template <typename T> T *obtain(kux *ctx, std::uint64_t count = 1)
{
    return static_cast<T *>(obtain(ctx, count, sizeof(T)));
}

// Who releases cursors, key values and the thread, index and block arrays.
inline kux *releaser(const kudcaccdef *acmp)
{
    return acmp->kuvp_kudcacc != nullptr ? acmp->kuvp_kudcacc : acmp->kuxp_kudcacc;
}
// Releases a block through that context; null is ignored.
void release(const kudcaccdef *acmp, void *block);

// ---- what lies in the files ----

template <typename T> T load(const unsigned char *bytes)
{
    T record;
    // The analyser takes block buffers for null that creation has made.
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
    std::memcpy(&record, bytes, sizeof record);
    return record;
}
template <typename T> void store(unsigned char *bytes, const T &record)
{
    std::memcpy(bytes, &record, sizeof record);
}

inline kudcidhdef header_of(const unsigned char *block) { return load<kudcidhdef>(block); }
inline void set_header(unsigned char *block, const kudcidhdef &header) { store(block, header); }
inline unsigned char *entry_at(unsigned char *block, std::uint32_t entry)
{
    return block + block_head + entry_bytes * entry;
}
inline kudcinddef entry_of(const unsigned char *block, std::uint32_t entry)
{
    return load<kudcinddef>(block + block_head + entry_bytes * entry);
}
inline void set_entry(unsigned char *block, std::uint32_t entry, const kudcinddef &record)
{
    store(entry_at(block, entry), record);
}
// The stored key of an entry.
inline const unsigned char *key_at(const unsigned char *block, std::uint32_t entry)
{
    return block + entry_of(block, entry).offs_kudcind;
}
// Changes a count of a file; a damaged one may be any number.
inline void adjust(std::int32_t *count, std::int32_t by)
{
    *count = static_cast<std::int32_t>(std::int64_t{*count} + by);
}
// Whether what lies at a position is a block of a level, and says of itself what can be. A
// block that could not be written is not there, or in part.
inline bool is_block(const unsigned char *block, std::int32_t position, std::uint32_t bytes,
                     std::uint16_t level)
{
    const kudcidhdef header = header_of(block);
    return header.addr_kudcidh == position && header.size_kudcidh == bytes
           && header.levl_kudcidh == level
           && block_head + entry_bytes * header.kyct_kudcidh + header.free_kudcidh <= bytes;
}
// Whether a block that a client has had in hand says of itself what can be, and is no longer than
// its buffer.
inline bool is_held(const unsigned char *block, std::uint32_t room)
{
    const kudcidhdef header = header_of(block);
    return header.size_kudcidh <= room
           && is_block(block, header.addr_kudcidh, header.size_kudcidh, header.levl_kudcidh);
}
// Bytes from an entry's key to the end of its block; 0 when it does not begin in the block.
inline std::uint32_t key_room(const unsigned char *block, std::uint32_t entry)
{
    const std::uint32_t bytes = header_of(block).size_kudcidh;
    const std::uint32_t from = entry_of(block, entry).offs_kudcind;
    return from < bytes ? bytes - from : 0;
}
// Bytes of the key that an entry has in its block, with its entry; 0 when it has none there.
std::uint32_t entry_size(const unsigned char *block, std::uint32_t entry);
// Bytes of a block's header, entries and keys; 0 when they are not all in the block.
std::uint64_t used_bytes(const unsigned char *block);
// Whether all keys of a block are there, and its free space is what they leave.
bool is_whole(const unsigned char *block);
// An empty block of a level's template: header with its address, all other bytes 0.
void make_block(unsigned char *block, const kudcidhdef &level, std::int32_t address);

// ---- moves: 0, or a code with nothing told about how much was moved ----

// Bytes of the index file: a whole block, its header or a field. What does not lie
// inside the file is refused with KUVAA_MISSING before it is read, with KUDCA_FULL
// before it is written past the longest file.
std::uint32_t read_block(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes,
                         void *buffer);
std::uint32_t write_block(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes,
                          const void *buffer);
// Reads a block of a level; what is_block refuses, or has other columns: KUVAA_MISSING pushed.
//   level  the level's template, or the header of another of its blocks
std::uint32_t visit_block(kudcaccdef *acmp, const kudcidhdef &level, std::int32_t position,
                          unsigned char *block);
// Counts the steps from block to block of a level. Who takes more of them than there are blocks
// in the file goes round and round in damaged links.
class block_steps
{
public:
    block_steps(const kudcaccdef *acmp, const kudcidhdef &level)
        : acmp_(acmp), left_(acmp->nxio_kudcacc / level.size_kudcidh)
    {
    }
    // 0, or KUVAA_MISSING pushed.
    std::uint32_t take() { return left_-- > 0 ? 0 : refuse(acmp_, KUVAA_MISSING); }

private:
    const kudcaccdef *acmp_;
    std::int32_t left_;
};
// Shows bytes of the index file where they are, until the next move. *bytes: null when they
// have to be read.
std::uint32_t look_at_block(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes,
                            const unsigned char **block);
// The same of the data file.
std::uint32_t read_data(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes, void *buffer);
std::uint32_t write_data(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes,
                         const void *buffer);

// Has the block cache hold what bytes of the data file lie in, so that writes to them are not cut
// short between two pages. Of more pages it may not hold the first ones any more.
std::uint32_t hold_data(kudcaccdef *acmp, std::int32_t position, std::uint32_t bytes);

// ---- arguments ----

// The thread of a number, or the index of a number in a thread; null with KUVAA_MISSING
// pushed. The cache is not null.
kudcthddef *thread_of(const kudcaccdef *acmp, std::uint16_t thread);
kudcidxdef *index_of(const kudcaccdef *acmp, const kudcthddef *thread, std::int16_t index);
// The cursor is there and names a thread, and an index or none: 0, or KUVAA_MISSING pushed.
std::uint32_t check_cursor(const kudcaccdef *acmp, const kudccurdef *cursor);
inline kudcthddef *thread_of(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    return acmp->thrd_kudcacc + cursor->thread_kudccur;
}
// Null for a storage-order cursor.
inline kudcidxdef *index_of(const kudcaccdef *acmp, const kudccurdef *cursor)
{
    if (cursor->idx_kudccur < 0) return nullptr;
    return thread_of(acmp, cursor)->idxs_kudcthd + cursor->idx_kudccur;
}

// ---- columns and rows ----

// Longest value that a column had when the cache was made, without a terminator. What the
// client does to maxlen afterwards does not count: buffers have these sizes.
std::uint32_t longest_value(const kudcthddef *thread, std::uint16_t column);
std::uint32_t longest_key_value(const kudcidxdef *index, std::uint16_t key_column);
// First key column of an index at or above a level; clct when there is none.
std::uint16_t first_key_column(const kudcidxdef *index, std::uint32_t level);

// Bytes of a thread's record without its values.
std::uint32_t fixed_bytes(const kudcthddef *thread);
// Whether the thread's current values can be stored: columns and arrays present, lengths
// within the columns, an application handle for long values, room in the file.
// *bytes: length of the record. 0, or a code pushed; nothing is changed.
std::uint32_t check_row(const kudcaccdef *acmp, const kudcthddef *thread, std::int64_t *bytes);
// Whether `bytes` more fit into the data file, and into the index file what one insertion
// into every index of the thread can take (null: none). 0, or KUDCA_FULL pushed.
std::uint32_t check_room(const kudcaccdef *acmp, const kudcthddef *thread, std::int64_t bytes);
// Reads a row's header, links and live counts into the thread; the columns stay as they
// are. A position where no record of the thread can lie: KUVAA_MISSING pushed.
std::uint32_t read_row_head(kudcaccdef *acmp, kudcthddef *thread, std::int32_t position);

// ---- keys and cursors ----

// The key columns of one level; an empty level gives 0 columns.
struct level_columns {
    kudcbvadef *first;
    std::uint16_t count;
};
level_columns columns_of(const kudckeydef *key, std::uint16_t level);
// Levels that a key reaches: 1 + the highest level of its columns.
std::uint16_t levels_of(const kudckeydef *key);
// Whether a client's key can be used with an index: columns present, with buffers, levels in
// order and below the index's, lengths within the columns. 0, or KUVAA_NOVALUE pushed.
std::uint32_t check_goal(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *goal);

// The same of a cursor's key, which clients write to.
std::uint32_t check_key(const kudcaccdef *acmp, const kudccurdef *cursor);

// A client's key with the index's block sizes lent to it; the client's record is not
// touched. Null when there is no memory (KUVAA_NOMEM pushed).
class lent_goal : unique
{
public:
    lent_goal(const kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *goal);
    const kudckeydef *get() const { return sizes_ ? &key_ : nullptr; }

private:
    kudckeydef key_;
    owned<std::uint16_t> sizes_;
};

// The row that the last search found for the next read, or KUDC_NONE. Indexed cursors only.
inline std::int32_t &held_row(const kudccurdef *cursor)
{
    return *static_cast<std::int32_t *>(cursor->ipsh_kudccur);
}
// Puts a cursor before its first row.
inline void rewind_cursor(kudccurdef *cursor)
{
    cursor->currnum_kudccur = cursor->currpos_kudccur = 0;
    cursor->curradr_kudccur = cursor->nxtradr_kudccur = KUDC_NONE;
}
// Clears set flags and lengths of the key's columns from a level on.
void clear_levels(kudckeydef *key, std::uint16_t level);
// Loads the first key of a level's tree into the key's columns of that level: down through
// `less` to the leftmost leaf, on along `rsib` past empty ones. The block that holds it
// stays in the working buffer.
//   key    null: nothing is loaded
//   root   root block of the tree; negative: an empty one
//   entry  out: its entry, when found
//   found  out
std::uint32_t load_first_key(kudcaccdef *acmp, const kudcidxdef *index, kudckeydef *key,
                             std::uint16_t level, std::int32_t root, kudcinddef *entry,
                             bool *found);

} // namespace ku::cache

#endif
