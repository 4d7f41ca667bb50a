// kuko_internal.h - what the token-object families share below their interface
#ifndef KUKO_INTERNAL_H
#define KUKO_INTERNAL_H

#include "kukp.h"

namespace ku
{

// The object behind a handle; null for a null one.
inline kuk *token_object(void *handle) { return static_cast<kuk *>(handle); }

// How many tokens an object holds; 0 for a null one or one without a list.
std::int32_t token_count(kux *ctx, const kuk *object);

// A token, or null when the index names none. Unlike kukonget it pushes nothing
// and leaves the list's cursor alone.
kukn *token_at(kux *ctx, const kuk *object, std::int32_t index);

// The shift byte that a token's length counts for its beginning inside a shifted
// run: 0 or 1. 0 without text, where nothing tells.
std::uint32_t token_shift_before(const kux *ctx, const kuk &object, const kukn &token);

// 0, or the code pushed because the list, which is not empty, is locked.
std::uint32_t token_list_refuses(kux *ctx, const kuk *object);

// The index at which the list's cursor stands, or -1.
std::int32_t token_cursor(const kuk *object);

// Drops the last `count` items of the list, which is not locked and whose other
// items have closed the gaps; its cursor then stands at `cursor`, or nowhere (-1).
// Nothing happens where there is nothing to drop.
void token_list_shorten(kux *ctx, const kuk *object, std::int32_t count, std::int32_t cursor);

// Token records are pinned by the logged lock while they are changed, inside a
// frame. They are plain memory: a client's own lock callback would not know
// them, and none is called then. Each returns 0, or the code that it pushed;
// the frame, rolled back, then lets go of what is still pinned.
std::uint32_t token_pin(kux *ctx, kukn *token);
std::uint32_t token_unpin(kux *ctx, kukn *token);

} // namespace ku

#endif
