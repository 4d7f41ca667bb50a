/*
 * skufo.h - raw files: a file of the system, addressed in whole blocks
 *
 * Open, transfer blocks (skufb.h), close. Error facility: skufa.
 */
#ifndef SKUFO_H
#define SKUFO_H

#include "skuf.h"

#ifdef __cplusplus
extern "C" {
#endif

struct kuscratch; /* a scratch file's pages in memory, private to the runtime layer */

/* Raw file. */
struct skufo {
    unsigned char *skufotbufp;      /* null; released at close if a client has set it */
    unsigned char *skufocnext;      /* not used */
    unsigned char *skufotendp;      /* not used */
    char *skufoname;                /* copy of the path, owned */
    uint32_t skufopos;              /* not used */
    int32_t skufoid;                /* the system's descriptor, above 2 */
    struct kuscratch *skufoscratch; /* private; null: every transfer goes through skufoid */
};

/*
 * Opens a file for reading and writing. It is closed to other writers by an
 * advisory lock where the file system has locks; a new file is its owner's
 * alone. A file opened as new and temporary must not be a symbolic link. Such a
 * file may reserve disk space in steps of 16 MB and be reached through memory;
 * it must not be cut short by others while it is open.
 *   path  copied in
 *   mode  SKUF_... bits; SKUF_NEW and SKUF_CREATE create, SKUF_NEW empties
 * Returns the raw file, the caller's, ended with skufoclose; or null, with
 * SKUFA_NULLNAME, SKUFA_NONAME, SKUFA_DENIED, SKUFA_INUSE (locked, too),
 * SKUFA_READONLY, SKUFA_NOTFOUND, SKUFA_TOOMANY, SKUFA_OPEN or SKUFA_SEEK pushed,
 * or no memory. A file it had created stays.
 */
KU_API skufo *skufoopen(kux *ctx, const char *path, uint16_t mode);

/*
 * Closes a raw file and releases it. A null file pushes SKUFA_CLOSE. When closing
 * fails it pushes SKUFA_CLOSE and keeps the record without its descriptor: a
 * second call releases it. Descriptor 1 is never closed. Returns null.
 */
KU_API skufo *skufoclose(kux *ctx, skufo *file);

/* Deletes a file by its name. Returns 0, or SKUFA_REMOVE, which is not pushed. */
KU_API uint32_t skufodelete(kux *ctx, const char *path);

#ifdef __cplusplus
}
#endif

#endif
