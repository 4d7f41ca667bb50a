/*
 * kurf.h - regular expressions: compile a pattern, run it over data, steer by a callback
 *
 * Create a syntax record (kurx.h), compile a pattern with it into a runner, run the runner over
 * any number of data, destroy it before its record. kurn.h shows what a pattern may say.
 *
 * A run reads character by character and keeps the set of positions of the pattern at which it
 * may be. It finds the first start from which the set is not empty and goes on from there; it
 * reports when a match is reached, when it ends, and when the search from that start has failed,
 * and the match callback answers what to do. It never goes back: after a failure it searches on
 * at the current character. Empty matches are not reported. The data ends at its first 0;
 * a dot, a negated class and the class w match that 0 too, but such a match is not reported.
 *
 * Indexes count characters as they are read, from 0. Error facility: kurfa.
 */
#ifndef KURF_H
#define KURF_H

#include "kurn.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A node of unknown type, or a range between a class and a character, each time it is tried. */
#define KURFA_NOMATCH KU_CODE('k', 'u', 'r', 'f', 'a', 1)

/* Representations of patterns and data. */
#define KURF_MULTIBYTE 0 /* multibyte text in the context's language */
#define KURF_U32 1       /* 32-bit values */
#define KURF_U16 2       /* 16-bit values */
#define KURF_WIDE 3      /* 32-bit values */

/* Transitions: what a match callback is told. */
#define KURF_T_ACCEPT 0 /* a match from start to finish is reached */
#define KURF_T_END 1    /* the match has ended, its last character is at finish */
#define KURF_T_FAIL 2   /* the search from start has failed; also the last report of a run */

/* Actions: what it answers. */
#define KURF_A_REJECT 0 /* search on for another match */
#define KURF_A_STOP 1   /* end the run */
#define KURF_A_GO 2     /* go on with this match; where no position is left, end the run */

/* Run states. */
#define KURF_S_ACCEPT 0 /* accepting */
#define KURF_S_ALIVE 1  /* alive and not accepting */
#define KURF_S_NONE 2   /* no current state */

/* Next-character callback: the next character of the data, 0 at its end; not called again then. */
typedef uint32_t (*kurfnextfn)(kux *ctx, void *cctxp);

/* Match callback: KURF_T_..., and the characters from `start` to `finish`, both included. */
typedef int32_t (*kurfmatchfn)(kux *ctx, int32_t transition, void *cctxp, uint32_t start,
                               uint32_t finish);

/* Runner, a compiled pattern. Made by kurfcreate only: the record has more behind it. Callbacks
 * may look at it and at its sets; they must not destroy it. */
typedef struct kurf {
    kurl *currkurlp_kurf;  /* the current state; null: none */
    uint32_t curri_kurf;   /* index of the current character */
    uint32_t tag_kurf;     /* tagged group of the last accepting position reached; 0: none */
    uint32_t istart_kurf;  /* where the current match starts */
    uint32_t ifinish_kurf; /* where a run stopped whose last state was accepting; else 0 */
    uint8_t sanchor_kurf;  /* 1: matches start at the start of the data only */
    uint8_t fanchor_kurf;  /* 1: matches end at the end of the data only */
    kurn *kurnp_kurf;      /* the tree with its sets; owned */
    kurt *kurtp_kurf;      /* the token table; owned */
    uint8_t imode_kurf;    /* 1: looking for the start of a match */
    uint8_t caccept_kurf;  /* 1: the current state is accepting */
    int32_t action_kurf;   /* the match callback's last answer */
} kurf;

/* Data cursor: a run over memory. */
typedef struct kurfc {
    const void *datap_kurfc; /* the data; borrowed */
    uint32_t datan_kurfc;    /* its length in units, bytes for multibyte text */
    kucursor datal_kurfc;    /* cursor over multibyte text */
    int32_t datat_kurfc;     /* representation */
    kurx *kurxp_kurfc;       /* syntax record */
    uint32_t datai_kurfc;    /* index of the next unit */
} kurfc;

/*
 * Compiles a pattern.
 *   kurxh   its syntax; must outlive the runner
 *   regexp  the pattern in representation `regext`; copied in
 *   regexn  its length in units. Multibyte text ends at its NUL, and after `regexn` characters
 *           at the latest; its length in bytes always serves. 0: null is returned.
 * Returns the runner, the caller's, ended with kurfdestroy. Null: the pattern does not compile,
 * nothing pushed; or a code stood on the error stack before; or the allocator pushed one.
 */
KU_API kurf *kurfcreate(kux *ctx, kurx *kurxh, const void *regexp, uint32_t regexn, int32_t regext);

/* Ends a runner. Null is ignored. Returns null. */
KU_API kurf *kurfdestroy(kux *ctx, kurx *kurxh, kurf *kurfh);

/*
 * Runs over `datan` units (bytes of multibyte text) in memory; kurfcrun says how.
 *   datap  the data in representation `datat`; ends before `datan` at a 0
 * Returns KURF_S_NONE; also, with nothing done, for an unknown representation.
 */
KU_API int32_t kurfrun(kux *ctx, kurx *kurxh, kurf *kurfh, const void *datap, uint32_t datan,
                       int32_t datat, kurfmatchfn funcp, void *cctxp);

/*
 * Runs over the characters that `cfuncp` gives, one ahead of the current one.
 *   kurxh   the syntax record that the runner was compiled with
 *   mfuncp  told of each transition; null: nobody is. Any answer that is none of the actions
 *           counts as KURF_A_GO.
 * At the end the callback is told KURF_T_FAIL once more. A transition at the 0 that ends the
 * data, or an answer of KURF_A_GO where no position is left, is followed at once by KURF_T_FAIL,
 * whose answer then counts. Rejecting KURF_T_ACCEPT searches on behind the current character, all
 * others at it; rejecting KURF_T_FAIL ends the run of a pattern with a caret. Returns KURF_S_NONE.
 */
KU_API int32_t kurfcrun(kux *ctx, kurx *kurxh, kurf *kurfh, kurfnextfn cfuncp, void *ccctxp,
                        kurfmatchfn mfuncp, void *mcctxp);

/* Puts a runner at the start of a run. Every run begins with it; what kurfgmstart, kurfgmfinish
 * and kurfgtagged tell stays until then. */
KU_API void kurfreset(kux *ctx, kurx *kurxh, kurf *kurfh);

/* The run state; for callbacks: after a run it is KURF_S_NONE. */
KU_API int32_t kurfgstate(kux *ctx, kurx *kurxh, kurf *kurfh);

/* istart_kurf and ifinish_kurf of the current or last run. */
KU_API uint32_t kurfgmstart(kux *ctx, kurx *kurxh, kurf *kurfh);
KU_API uint32_t kurfgmfinish(kux *ctx, kurx *kurxh, kurf *kurfh);

/* 1 when the current or last run reached a tagged group's end, *tagp its number; else 0. */
KU_API int32_t kurfgtagged(kux *ctx, kurx *kurxh, kurf *kurfh, uint32_t *tagp);

/* Marks the set accepting when it holds the tree's end position. */
KU_API void kurfmaccept(kux *ctx, kurf *kurfh, kurn *tree, kurl *set);

/* ---- what a run is made of; clients need none of it ---- */

/* Whether position `node` matches character `tchar`: 1 or 0. KURFA_NOMATCH. */
KU_API int32_t kurfmatch(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *node, uint32_t tchar);

/* The same of a list of ranges, and of one range, which is walked from its first character in
 * collating order to its last one, to the record's last character, or 65536 characters far. */
KU_API int32_t kurfrlis(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *node, uint32_t tchar);
KU_API int32_t kurfrange(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *node, uint32_t tchar);

/* Joins the position's followpos into *set, which is made when it is null. Returns 0, or the
 * newest code for want of memory. */
KU_API uint32_t kurffpadd(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *position, kurl **set);

/* One step: the set of positions behind `tchar`, or null when none matched or memory ran out.
 * Releases the old set, unless it is the start set. */
KU_API kurl *kurfdelta(kux *ctx, kurx *kurxh, kurf *kurfh, kurl *set, uint32_t tchar);

/* The transition that set `next` behind character `tchar` makes, with `ahead` the character
 * after it; -1 when there is nothing to report. Keeps caccept_kurf. */
KU_API int32_t kurfcall(kux *ctx, kurx *kurxh, kurf *kurfh, kurl *next, uint32_t tchar,
                        uint32_t ahead);

/* Next character of a data cursor (kurfc), a kurfnextfn; 0 at the end. */
KU_API uint32_t kurfcnext(kux *ctx, void *cctxp);

/* Unit `index` of data: representation 0 bytes, KURF_U16, else 32-bit values. */
KU_API uint32_t kurfconvert(kux *ctx, const void *datap, uint32_t index, int32_t datat);

#ifdef __cplusplus
}
#endif

#endif
