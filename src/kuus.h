/*
 * kuus.h - stream search: a fixed pattern in characters that the client feeds one by one
 *
 * Create a search with the pattern and a function that gives the next character
 * of the input, run kuussearch, destroy it. Characters are bytes, whatever the
 * language; a character of 0 ends the input, so input and what is found in it
 * hold no NUL. Offsets and lengths count bytes; offsets begin at 0 with every run
 * and wrap after 4 GiB. Matches do not overlap: each begins behind the one before.
 *
 * Failed allocations push what the client's allocator pushes. Error facility: kuusa.
 */
#ifndef KUUS_H
#define KUUS_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KUUSA_NOSEARCH KU_CODE('k', 'u', 'u', 's', 'a', 1) /* a null search object */
#define KUUSA_NOMATCH KU_CODE('k', 'u', 'u', 's', 'a', 2)  /* kuusset with a null match function */

/* Bits of mask_kuusat. */
#define KUUSAT_CMFUNC 0x1u /* match function and its data are given or wanted */
#define KUUSAT_NOCASE 0x2u /* the match function ignores letter case; kuusset, with KUUSAT_CMFUNC */

/* Input: the next character, or 0 at the end. May change the search by kuusset, not end it. */
typedef unsigned char (*kuusgncfn)(kux *ctx, void *cctxp);

/*
 * Character match: not 0 when `first`, of the input, is as good as `second`, of the pattern. It
 * may differ from equality by letter case, with KUUSAT_NOCASE: that of the letters that are one
 * byte, in a multibyte set those of ASCII. A match that rests on any other difference may be
 * stepped over.
 */
typedef int32_t (*kuuscmfn)(kux *ctx, void *cctxp, unsigned char first, unsigned char second);

/*
 * A match was found.
 *   offset  of its first character in the input
 *   length  of the pattern
 * Returns 0 to go on, else the search ends; no further character is read then.
 */
typedef int32_t (*kuusmfn)(kux *ctx, void *cctxp, uint32_t offset, uint32_t length);

/* Search object. Clients may read it. */
typedef struct kuus {
    const unsigned char *patp_kuus; /* the pattern; borrowed */
    uint32_t patn_kuus;             /* its length in bytes */
    uint32_t skipp_kuus[256];       /* by byte value: bytes from its last place in the pattern
                                       to the pattern's last byte; patn_kuus: it has none */
    kuusgncfn gncfuncp_kuus;        /* input */
    void *gncctxp_kuus;             /* its client data */
    uint32_t curri_kuus;            /* 0 */
    uint32_t mstart_kuus;           /* not used */
    uint32_t mfinish_kuus;          /* not used */
    kuuscmfn cmfuncp_kuus;          /* character match */
    void *cmctxp_kuus;              /* its client data */
} kuus;

/* Attributes of a search. */
typedef struct kuusat {
    uint32_t mask_kuusat;    /* which of the following fields are given or wanted */
    kuuscmfn cmfuncp_kuusat; /* character match */
    void *cmctxp_kuusat;     /* its client data */
} kuusat;

/*
 * Makes a search for a pattern, with kuusscmatch as its match function.
 *   patp      the pattern, `patn` bytes; borrowed: it must outlive the search. Null or of
 *             length 0: never found
 *   gncfuncp  input, called with `gncctxp`; null: an input that is at its end
 * Returns the search, the caller's, ended with kuusdestroy; or null without memory.
 */
KU_API kuus *kuuscreate(kux *ctx, const void *patp, uint32_t patn, kuusgncfn gncfuncp,
                        void *gncctxp);

/* Ends a search that is not running; null: KUUSA_NOSEARCH pushed. Returns null. */
KU_API kuus *kuusdestroy(kux *ctx, kuus *kuush);

/*
 * Changes the match function, with KUUSAT_CMFUNC; without that bit (or with null
 * attributes) nothing. For kuusicmatch, and with KUUSAT_NOCASE, the search from
 * now on takes care of both cases of every byte of the pattern, in the byte
 * tables of the context's language; it goes on doing so when another match
 * function is set, which costs time, not matches.
 * Returns 0; KUUSA_NOSEARCH; KUUSA_NOMATCH; or, without memory, the newest code
 * on the error stack (KUXNM_NOMEM, kuxdn.h, when it was empty and the allocator
 * pushed none), with the search as it was.
 */
KU_API uint32_t kuusset(kux *ctx, kuus *kuush, const kuusat *kuusatp);

/* Reports the match function and its data, with KUUSAT_CMFUNC. 0, or KUUSA_NOSEARCH. */
KU_API uint32_t kuusget(kux *ctx, kuus *kuush, kuusat *kuusatp);

/*
 * Reads the input to its end and reports each match. Characters are read only
 * when they are needed: on reporting, all up to the match's last one have been.
 * Another run goes on where the input stands.
 *   mfuncp  called for each match with `mcctxp`; null: they are only counted
 * Returns how many matches were found, at most INT32_MAX; 0 without memory for
 * `patn` bytes, and with a null search (KUUSA_NOSEARCH).
 */
KU_API int32_t kuussearch(kux *ctx, kuus *kuush, kuusmfn mfuncp, void *mcctxp);

/* Match function: 1 when the bytes are equal, else 0. */
KU_API int32_t kuusscmatch(kux *ctx, void *cctxp, unsigned char first, unsigned char second);

/* Match function: 1 when the bytes are equal but for case in the context's language, else 0;
 * in a language with multibyte characters always 0. */
KU_API int32_t kuusicmatch(kux *ctx, void *cctxp, unsigned char first, unsigned char second);

#ifdef __cplusplus
}
#endif

#endif
