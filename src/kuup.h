/*
 * kuup.h - property lists: names with values, in a chained hash table that holders share
 *
 * Create a list, put pointers or scalars under names, get and remove them, or
 * several at once from a text; each holder ends with kuupldestroy, and the last
 * one's call ends the list. A list handle is a `void *` to a kuupl.
 *
 * A name is a NUL-terminated text of any length, the empty one included; names
 * are the same when their bytes are. It is copied in. A put never looks for an
 * older value of its name: the new entry hides the older one, which stays,
 * counts, and is seen again when the newer one is removed.
 *
 * The value of an entry, as getters and callbacks give it, is the pointer of a
 * pointer entry and the address of the 32-bit word of a scalar entry. That
 * address and the entry's name are valid until the entry is removed.
 *
 * Every look-up moves the cursors of bucket lists. A failing operation that
 * returns a status returns the newest code of the error stack; an allocation
 * that failed without a code while the stack was empty is pushed as
 * KUXNM_NOMEM (kuxdn.h). Null handles are the caller's mistake except where an
 * operation says otherwise. Error facility: kuupa.
 */
#ifndef KUUP_H
#define KUUP_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUUPA_NOHASH KU_CODE('k', 'u', 'u', 'p', 'a', 1) /* a name cannot be hashed */

#define KUUPL_NUMBER 16 /* number of buckets that stands in for one below 1 */

/* ---- callbacks ---- */

/*
 * Hash function: the bucket of a name, 0 to number - 1; -1 when the name cannot
 * be hashed, and any other number out of that range counts as -1. It may be
 * asked for a null name. It must not change the list.
 */
typedef int32_t (*kuuphashfn)(kux *ctx, const char *name, int32_t number);

/*
 * Release callback of an entry: gives back what the value stands for. `name` and
 * a scalar's address are valid during the call. It may use the list when it was
 * called by a removal, and remove the same name from it. While the list ends,
 * no name is found any more and a put fails with KUUPA_NOHASH. It never ends
 * the list itself.
 */
typedef void (*kuupfreefn)(kux *ctx, const char *name, void *value, void *cctxp);

/* Callback of kuupliterate. */
typedef void (*kuupitfn)(kux *ctx, const char *name, void *value, void *cctxp);

/* Callback of kuuplequal: 1 when the values that both lists have for `name` are equal. */
typedef signed char (*kuupequalfn)(kux *ctx, const char *name, void *value1, void *value2,
                                   void *cctxp);

/* ---- records ---- */

/* Property list. Clients read it and never write it. */
typedef struct kuupl {
    kuuphashfn hashfun_kuupl; /* maps a name to a bucket number */
    uint32_t refcount_kuupl;  /* holders */
    int32_t number_kuupl;     /* buckets */
    uint32_t numprops_kuupl;  /* entries in all buckets, hidden ones included */
    void *buckets_kuupl[1];   /* number_kuupl lists (kul.h) of kuupe, newest first */
} kuupl;

/* Entry. */
typedef struct kuupe {
    int32_t isscal_kuupe; /* 1: scalar entry; 0: pointer entry */
    union {
        void *ptrval;         /* value of a pointer entry */
        uint32_t sclval;      /* value of a scalar entry */
    } value_kuupe;            /* the value */
    kuupfreefn freefun_kuupe; /* release callback, or null */
    void *cctxp_kuupe;        /* the client's, for its release callback */
    char name_kuupe[1];       /* the name, NUL-terminated; as long as it needs */
} kuupe;

/* ---- life ---- */

/*
 * Makes an empty list with one holder.
 *   number   buckets wanted; below 1 counts as KUUPL_NUMBER
 *   hashfun  the hash function, and exactly `number` buckets; or null for
 *            kuupzhash over kuupzprime(number) buckets
 * Returns the list, ended with kuupldestroy; or null, with nothing left behind:
 * no memory (the allocator's code, KULAA_NOMEM for a bucket), or the error
 * stack was not clear: any code on it, older ones too, ends the creation.
 */
KU_API void *kuuplcreate(kux *ctx, int32_t number, kuuphashfn hashfun);

/* One more holder. Returns the same list. */
KU_API void *kuuplcopy(kux *ctx, void *kuuplh);

/*
 * One holder fewer; the last one ends the list, and every entry's release
 * callback is called once, bucket by bucket, newest first. Null is ignored.
 * Returns null.
 */
KU_API void *kuupldestroy(kux *ctx, void *kuuplh);

/* ---- single names ---- */

/*
 * Puts a pointer under a name, as its newest value.
 *   freefun  called with the value when the entry is removed or the list ends; or null
 *   cctxp    the client's, for freefun
 *   value    any pointer, null included; the list's from now on when freefun releases it
 * Returns 0; or the newest code, with the list unchanged and the value still the
 * caller's: KUUPA_NOHASH (pushed; also for a null name), KULAA_NOMEM or the
 * allocator's.
 */
KU_API uint32_t kuuplsput(kux *ctx, void *kuuplh, kuupfreefn freefun, void *cctxp, const char *name,
                          void *value);

/* Puts a scalar under a name, as kuuplsput. */
KU_API uint32_t kuuplxput(kux *ctx, void *kuuplh, const char *name, uint32_t value);

/*
 * The newest value of a name; null when there is none (or a pointer entry holds
 * null), and with KUUPA_NOHASH pushed when the name cannot be hashed. A scalar's
 * address is borrowed until its entry is removed.
 */
KU_API void *kuuplsget(kux *ctx, void *kuuplh, const char *name);

/*
 * Stores in *valuep the 32-bit word that lies at the newest value of a name: a
 * scalar, or the first four bytes that a pointer entry points to. Without a
 * value, or with a null pointer for one, *valuep stays. Returns 0.
 */
KU_API uint32_t kuuplxget(kux *ctx, void *kuuplh, const char *name, uint32_t *valuep);

/*
 * Removes the newest entry of a name and calls the release callback of a pointer
 * entry; the entry is still listed during the call. Returns 0, also when there
 * is none; or KUUPA_NOHASH (pushed).
 */
KU_API uint32_t kuuplsremove(kux *ctx, void *kuuplh, const char *name);

/* 1 when the name has an entry, else 0; KUUPA_NOHASH is pushed as by kuuplsget. */
KU_API char kuuplsexists(kux *ctx, void *kuuplh, const char *name);

/* ---- whole lists ---- */

/*
 * Calls `funcp` with every entry, hidden ones too: bucket by bucket, newest
 * first. Null: only the cursors move. The walk goes by index: entries put or
 * removed by the callback may make it visit one twice or miss one.
 */
KU_API void kuupliterate(kux *ctx, void *kuuplh, kuupitfn funcp, void *cctxp);

/*
 * Compares two lists, which may be the same.
 *   funcp  called for every entry of the first list, hidden ones too, with the
 *          newest value that the second has for its name
 * Returns 0 when the numbers of entries differ (funcp is not called then), a name
 * is absent from the second list, or memory for a name runs out (the
 * allocator's code); the first answer of funcp that is not 1; else 1.
 */
KU_API signed char kuuplequal(kux *ctx, void *kuupl1h, void *kuupl2h, kuupequalfn funcp,
                              void *cctxp);

/* ---- several names, in a text that the lexer (kukp.h) splits without keywords ----
 *
 * Every token is a name or value as it is written, a string with its quotes; so
 * are punctuation marks and comments. A null text, or one with erroneous text in
 * it, has no tokens. A name to get or remove that cannot be hashed counts as
 * absent, with KUUPA_NOHASH pushed.
 */

/*
 * Names and their values, "name value name value" with single spaces, for those
 * of `names` that have one. A pointer entry's value is read as a NUL-terminated
 * text, and a null one counts as absent; a scalar's as its own bytes, up to the
 * first NUL.
 * Returns a NUL-terminated text, the caller's, released with kuxnmfree; or null
 * when none has a value or memory ran out.
 */
KU_API char *kuuplmget(kux *ctx, void *kuuplh, const char *names);

/*
 * Puts names and values, in turn: each value is a text that the list owns
 * (kuupefree). A last name without a value is left out.
 * Returns the number of tokens; or, at the first failure, the index of the name
 * whose value could not be put. Earlier ones stay.
 */
KU_API int32_t kuuplmput(kux *ctx, void *kuuplh, const char *properties);

/*
 * Removes the newest entry of each name, as often as it is given. Returns how
 * many were removed; a failure ends the walk.
 */
KU_API int32_t kuuplmremove(kux *ctx, void *kuuplh, const char *names);

/* ---- entries ---- */

/*
 * Makes an entry that is in no list.
 *   name     copied in; null: no entry is made and nothing pushed
 *   isscal   not 0: a scalar entry, its value `sclval`; 0: a pointer entry, `ptrval`
 *   freefun  release callback, or null; gets `cctxp`
 * Returns the entry, ended with kuupedestroy; or null without memory (the
 * allocator's code).
 */
KU_API kuupe *kuupecreate(kux *ctx, const char *name, int32_t isscal, void *ptrval, uint32_t sclval,
                          kuupfreefn freefun, void *cctxp);

/*
 * Ends an entry; its release callback, when it has one, is called with its name,
 * value and own cctxp. Fits kulpitrate. `cctxp` is not looked at. Returns 0.
 */
KU_API uint32_t kuupedestroy(kux *ctx, void *item, void *cctxp);

/* A release callback: the value is plain memory of the context. Null values are let be. */
KU_API void kuupefree(kux *ctx, const char *name, void *value, void *cctxp);

/* Name, value and release callback of an entry; a null target is not filled. Returns 0. */
KU_API uint32_t kuupeget(kux *ctx, kuupe *kuupeh, const char **namep, void **valuep,
                         kuupfreefn *freep);

/* One of them each. */
KU_API const char *kuupegname(kux *ctx, kuupe *kuupeh);
KU_API void *kuupegvalue(kux *ctx, kuupe *kuupeh);
KU_API kuupfreefn kuupegfreefun(kux *ctx, kuupe *kuupeh);

/* ---- hashing and search ---- */

/*
 * The built-in hash function: over the bytes b of the name, as 0 to 255,
 * h = (h * 137 + b) mod numbuckets, from h = 0. -1 for a null name or a
 * numbuckets below 1.
 */
KU_API int32_t kuupzhash(kux *ctx, const char *name, int32_t numbuckets);

/* The first of 2 * seed + 1 and the odd numbers after it that has no odd divisor but
 * itself and 1; INT32_MAX, which is prime, when that is the next or there is none below. */
KU_API int32_t kuupzprime(kux *ctx, int32_t seed);

/*
 * The newest entry of a name, which becomes the current item of its bucket; null
 * when there is none, and with KUUPA_NOHASH pushed when the name cannot be hashed.
 * Borrowed until the entry is removed.
 */
KU_API kuupe *kuupzsearch(kux *ctx, void *kuuplh, const char *name);

/*
 * Index of the first entry with that name in a bucket, or -1; null is nobody's
 * name. The bucket's cursor is then on the last entry looked at.
 */
KU_API int32_t kuupzentry(kux *ctx, void *listh, const char *name);

/*
 * Appends `rol` bytes and a space to a text in a growing buffer.
 *   bufpp   the buffer, plain memory of the context
 *   buflp   its size in bytes
 *   roomp   bytes free at its end
 *   posnpp  first free byte
 *   rop     bytes to append, not in the buffer
 * The buffer is doubled until there is room. Returns 0; or the newest code when
 * it cannot grow, with nothing changed.
 */
KU_API uint32_t kuupzbadd(kux *ctx, char **bufpp, uint32_t *buflp, uint32_t *roomp, char **posnpp,
                          const char *rop, uint32_t rol);

#ifdef __cplusplus
}
#endif

#endif
