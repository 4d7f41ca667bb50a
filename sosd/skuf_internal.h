// skuf_internal.h - what the layers of the paged files tell each other
#ifndef SKUF_INTERNAL_H
#define SKUF_INTERNAL_H

#include <cstddef>

#include "../port/crt/crt.h"
#include "skufb.h"
#include "skufo.h"
#include "skufv.h"

// Which bytes of a block are in its buffer's data area. The others, of a block
// that the runtime layer has in memory, are read there until they are needed
// here. Bytes that are here in part were written by a move: they are what is dirty.
struct skufpart {
    uint16_t from; // byte offsets in the block, `to` is behind the last
    uint16_t to;
};

// Of scratch files, what is used most may be resident: so much for each buffer that the client
// has asked for.
constexpr uint32_t skufstretches = 12; // MB

// What belongs to a cache lies behind its table of buffers: what is resident, the places for
// that, and the buffers' parts.
inline ku::crt::residents *skufresident(const skuf *cache)
{
    return reinterpret_cast<ku::crt::residents *>(cache->skuftab + cache->skufnum);
}
inline ku::crt::residents::place *skufplaces(const skuf *cache)
{
    return reinterpret_cast<ku::crt::residents::place *>(skufresident(cache) + 1);
}
inline skufpart *skufpartof(const skuf *cache, const skufb *buffer)
{
    return reinterpret_cast<skufpart *>(skufplaces(cache) + skufstretches * cache->skufnum)
           + (buffer - cache->skuftab);
}

inline bool skufwhole(const skufpart *part) { return part->to - part->from == int{SKUF_BLOCK}; }

// Pushes a code and returns it.
uint32_t skufrefuse(kux *ctx, uint32_t code);

// Whether a separator must follow a directory's text: it is not empty and ends in neither a
// backslash nor a colon.
bool skufneedsseparator(kux *ctx, char *directory);

// A copy of a text in the context's plain memory; null without memory.
char *skufcopy(kux *ctx, const char *text);

// The address of a raw file's block in memory; null: it is reached by descriptor.
// Never null for a block that a buffer holds in part, but when the raw file was closed under
// its virtual file and is null: what is not here is lost then.
const unsigned char *skufbmapped(const skufo *file, uint32_t block, bool held);

// Brings the rest of a buffer's block into its data area.
void skufbfill(const skuf *cache, const skufb *buffer);

// Writes a buffer's block back. Returns 0, or the code it pushed.
uint32_t skufbstore(kux *ctx, skuf *cache, const skufb *buffer);

// Copies bytes. Out of line: for what is a block at most the compiler would put
// instructions here that start slowly.
void skufbcopy(void *to, const void *from, std::size_t bytes);

// Lets the caller see bytes of a virtual file where they are, until the next fetch
// through the cache. *bytes: null when they lie in two blocks, with nothing done.
// Returns 0, or a code as skufvmove does; skufvpos stays.
uint32_t skufvlook(kux *ctx, void *cache, void *file, uint32_t position, uint32_t length,
                   const unsigned char **bytes);

// Lets go of a temporary file without a word: its buffers, its raw file and its record.
// The name stays on the disk.
void skufvdrop(kux *ctx, void *cache, void *file);

// Closes a raw file and releases it whatever happens; pushes the failure of the
// closing when `tell` is set.
void skufoend(kux *ctx, skufo *file, bool tell);

#endif
