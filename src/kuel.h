/*
 * kuel.h - element lists: where to look for files and databases; connect texts
 *
 * An external location element names a location and says what kind of location
 * it is. Create one with kuelcreate; further holders count themselves with
 * kumrref (kumr.h), and each holder ends with kueldestroy. An element list is a
 * list (kul.h) of elements in search order, each held by the list, which ends
 * with kuelldestroy.
 *
 * Statuses are 0 or the newest code of the error stack; failures are the
 * allocator's, and an allocation that failed without a code while the stack was
 * empty is pushed as KUXNM_NOMEM (kuxdn.h). Error facility: none of its own.
 */
#ifndef KUEL_H
#define KUEL_H

#include "kumr.h"
#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Domains: kinds of location. Others may be used and are passed through. */
#define KUELD_DIRECTORY KU_CODE('k', 'u', 'e', 'l', 'd', 1) /* a directory; the name is its path */
#define KUELD_HOST KU_CODE('k', 'u', 'e', 'l', 'd', 2)      /* a location on a host */
#define KUELD_DEFAULT KU_CODE('k', 'u', 'e', 'l', 'd', 3)   /* when none is given */

/* Kinds of content. Others may be used and are passed through. */
#define KUELC_DEFAULT KU_CODE('k', 'u', 'e', 'l', 'c', 1) /* when none is given */

/* Bits of mask_kuela. */
#define KUELA_DOMAIN 0x01u
#define KUELA_CONTENT 0x02u
#define KUELA_NAME 0x04u
#define KUELA_NAMELEN 0x08u /* the name's length is supplied; kuelget without KUELA_NAME: wanted */
#define KUELA_HSTDEF 0x10u
#define KUELA_OSID 0x20u
#define KUELA_MODID 0x40u

/* External location element. */
typedef struct kuel {
    kumr refobj_kuel;      /* its holders; the destroy callback is kueldestroy */
    uint32_t domain_kuel;  /* kind of location, KUELD_... */
    uint32_t content_kuel; /* kind of content, KUELC_... */
    char *name_kuel;       /* name of the location, or null; owned */
    void *hstdef_kuel;  /* host definition, or null; borrowed; only with KUELD_HOST at creation */
    void *osid_kuel;    /* storage handle; the client's */
    int32_t modid_kuel; /* module identifier; the client's */
} kuel;

/* Attributes of an element. */
typedef struct kuela {
    uint32_t mask_kuela;    /* which of the following fields are given or wanted */
    uint32_t domain_kuela;  /* kind of location */
    uint32_t content_kuela; /* kind of content */
    char *name_kuela;       /* name of the location, NUL-terminated, or null */
    uint32_t namelen_kuela; /* its length in bytes, the NUL not counted */
    void *hstdef_kuela;     /* host definition */
    void *osid_kuela;       /* storage handle */
    int32_t modid_kuela;    /* module identifier */
} kuela;

/*
 * Makes an element with one holder. What is not given is KUELD_DEFAULT,
 * KUELC_DEFAULT, null or 0. A host definition counts in the domain KUELD_HOST
 * only. The name is copied in, with KUELA_NAMELEN at most namelen_kuela bytes of it.
 *   attrs  null: nothing is given
 * Returns the element, the caller's, ended with kueldestroy; or null.
 */
KU_API kuel *kuelcreate(kux *ctx, const kuela *attrs);

/*
 * Fills the fields that the mask selects. The name goes
 *   with KUELA_NAMELEN  into the caller's buffer at name_kuela, at most namelen_kuela bytes
 *                       and a NUL (so the buffer has one byte more); null: a new text
 *   without             into a new text, the caller's, released with kuxnmfree; null when
 *                       the element has no name
 * and namelen_kuela becomes its length. KUELA_NAMELEN without KUELA_NAME: the whole
 * name's length. A failed call changes nothing.
 */
KU_API uint32_t kuelget(kux *ctx, kuel *extloc, kuela *attrs);

/*
 * Changes domain, content, name (copied in, as by kuelcreate), storage handle and
 * module identifier; KUELA_HSTDEF is ignored. A failed call changes nothing.
 */
KU_API uint32_t kuelset(kux *ctx, kuel *extloc, const kuela *attrs);

/* One holder fewer; the last one's call releases the element. It is also the cell's destroy
 * callback: without holders it releases at once. Null is ignored. Returns 0. */
KU_API uint32_t kueldestroy(kux *ctx, void *extloc);

/* One holder fewer of every element, in list order (null items are passed over); then ends the
 * list, locked or not. A null list is ignored. Returns 0. */
KU_API uint32_t kuelldestroy(kux *ctx, void *extlocs);

/*
 * Builds the text user/password@host from its parts.
 *   user           may itself be user/password@host: what it says of password and host
 *                  stands in for parts not given; null is an empty text
 *   passwd         password, or null: not given
 *   host           host, or null: not given; an empty one hides that of `user`
 *   includepasswd  0: the result has no password
 * An empty password or host leaves its `/` or `@` out. A separator is a character,
 * never a byte inside one. Returns the text, the caller's, released with the
 * context's kuxnmfree; or null when all parts are empty, unless a host was given
 * (an `@` in `user` counts), and without memory.
 */
KU_API char *kuelbuilddbspec(kux *ctx, const char *user, const char *passwd, const char *host,
                             int32_t includepasswd);

#ifdef __cplusplus
}
#endif

#endif
