// kux_internal.h - what the context and its memory families share
//
// Copying the callbacks that a mask selects, which creation does over the
// defaults and kuxset over what is there.
#ifndef KUX_INTERNAL_H
#define KUX_INTERNAL_H

#include "kux.h"

namespace ku
{

// Copies the selected plain-memory callbacks and client data of `attrs`, null included.
void take_plain_callbacks(kux *ctx, const kuxa *attrs);

// The same for the relocatable-memory callbacks.
void take_relocatable_callbacks(kux *ctx, const kuxa *attrs);

} // namespace ku

#endif
