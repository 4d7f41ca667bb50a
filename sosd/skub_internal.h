// skub_internal.h - streams that replace a file as a whole or leave it alone
//
//     void *stream = skubreplace(ctx, name);      // nothing has changed yet
//     ... skubsput(ctx, stream, ...) ...
//     if (skubclose(ctx, stream) != 0)            // commits, all or nothing
//         skubdiscard(ctx, stream);               // gives back what is left of it
//
// The new contents go to a file beside the target (beside the file itself
// where the name is a symbolic link), with the target's owner, permissions and
// access list, and are renamed over it when the stream is closed. Readers see
// the old file or the new one, a crash or a full disk leaves the old one.
#ifndef SKUB_INTERNAL_H
#define SKUB_INTERNAL_H

#include "skub.h"

// Opens a stream, for writing only, whose contents will replace the file `name`
// (copied in), which need not exist. Where the directory takes no new files, the
// new one cannot get the target's owner, permissions or access list, or the
// target is no plain file with one name, the target itself is emptied and written
// in place; where something is mounted on it, when the new file is complete.
// The target is locked, from here until the stream ends, as by any stream that
// writes it. One that did not exist has no lock: closing fails when somebody
// writes it by then.
// Writing works as on any stream. skubclose and skubdestroy commit: what is
// buffered is written and synced, then the file renamed; when that or any
// earlier write failed the target stays as it was (but for writing in place),
// skubclose returns SKUBA_CLOSE (pushed), and the record is left for skubdiscard.
// A killed process leaves the new file, "TARGET.xxxxxxxx~ku"; the next commit to
// the same target removes it, where the file system has locks to tell it by.
// Returns the stream; or null, nothing pushed, when the file cannot be written
// (a directory, a read-only target, another writer, no such directory) or
// without memory.
void *skubreplace(kux *ctx, const char *name);

// Ends such a stream without committing, or after a close that failed: removes
// the new file and releases the stream. Cannot fail, pushes nothing. Returns
// null; a null stream is ignored. In-place contents written so far stay.
void *skubdiscard(kux *ctx, void *stream);

#endif
