/*
 * kurx.h - pattern syntax: which characters are special, how characters compare and are ordered
 *
 * Create a syntax record, compile patterns with it (kurf.h), destroy it after the last of them.
 * Characters are 32-bit values. The record is visible; clients change it through operations
 * only, and must not copy it: its default classes point into it. What a change means for
 * patterns that are compiled already: the special characters nothing, all the rest holds from
 * their next run on; one that runs meanwhile goes by the new rules at once or for some of the
 * characters that it has met by the old ones. Error facility: kurxa.
 */
#ifndef KURX_H
#define KURX_H

#include "kurxe.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KURXA_NORECORD KU_CODE('k', 'u', 'r', 'x', 'a', 1)  /* the syntax record is null */
#define KURXA_NOCOMPARE KU_CODE('k', 'u', 'r', 'x', 'a', 2) /* the compare function is null */

/* The character behind `tchar` in the collating order; 0 ends every walk along it. */
typedef uint32_t (*kurxsuccfn)(kux *ctx, void *cctxp, uint32_t tchar);

/* Not 0 when the two match. A literal's own character comes first and the data's second; of
 * a class the data's character comes first and the member second. Like the function above it
 * must not reset or run the runner that asks. */
typedef int32_t (*kurxcmpfn)(kux *ctx, void *cctxp, uint32_t first, uint32_t second);

/* Syntax record. The default of each field in brackets. */
struct kurx {
    uint32_t lparen_kurx;   /* begins a group [(] */
    uint32_t rparen_kurx;   /* ends it [)] */
    uint32_t lbrack_kurx;   /* begins a bracket class [[] */
    uint32_t rbrack_kurx;   /* ends it []] */
    uint32_t star_kurx;     /* none or more of what is before it [*] */
    uint32_t plus_kurx;     /* one or more of what is before it [+] */
    uint32_t twiddle_kurx;  /* first in a bracket class: all but its members [~] */
    uint32_t caret_kurx;    /* first in a pattern: at the start of the data only [^] */
    uint32_t dollar_kurx;   /* last in a pattern: at the end of the data only [$] */
    uint32_t vbar_kurx;     /* either what is before or what is behind it [|] */
    uint32_t dot_kurx;      /* any character [.] */
    uint32_t escape_kurx;   /* makes the next character a literal or names a class [\] */
    uint32_t dash_kurx;     /* a range, in a bracket class [-] */
    uint32_t null_kurx;     /* the end of a pattern [0]. Compiling appends 0: with another
                                value here a pattern must hold that itself */
    uint32_t ltag_kurx;     /* begins a tagged group [{] */
    uint32_t rtag_kurx;     /* ends it [}] */
    kurxe *kurxep_kurx;     /* escape classes; owned [b, n, t and w] */
    uint32_t fchar_kurx;    /* first character of the collating order [blank] */
    uint32_t lchar_kurx;    /* last one, where every range ends [tab] */
    kurxsuccfn succfp_kurx; /* collating order [kurxsucc] */
    uint8_t freecctxp_kurx; /* 1: cctxp_kurx is the record's own [1] */
    void *cctxp_kurx;       /* the successor function's context [256 bytes: rank of each byte] */
    uint32_t escb_kurx;     /* member of class b: the blank */
    uint32_t escn_kurx;     /* member of class n: the line feed */
    uint32_t esct_kurx;     /* member of class t: the tab */
    uint32_t escw_kurx[4];  /* members of class w: blank, tab, line feed, 0 */
    kurxcmpfn cmfuncp_kurx; /* compare function; never null [kurxscmatch] */
    void *cmctxp_kurx;      /* its context [null] */
};

/* Bits of mask_kurxa. */
#define KURXA_LPAREN 0x000001u
#define KURXA_RPAREN 0x000002u
#define KURXA_LBRACK 0x000004u
#define KURXA_RBRACK 0x000008u
#define KURXA_STAR 0x000010u
#define KURXA_PLUS 0x000020u
#define KURXA_TWIDDLE 0x000040u
#define KURXA_CARET 0x000080u
#define KURXA_DOLLAR 0x000100u
#define KURXA_VBAR 0x000200u
#define KURXA_DOT 0x000400u
#define KURXA_ESCAPE 0x000800u
#define KURXA_DASH 0x001000u
#define KURXA_NULL 0x002000u
#define KURXA_LTAG 0x004000u
#define KURXA_RTAG 0x008000u
#define KURXA_FCHAR 0x010000u
#define KURXA_LCHAR 0x020000u
#define KURXA_SUCC 0x040000u
#define KURXA_SUCCCTX 0x080000u
#define KURXA_COMPARE 0x100000u /* the compare function and its context together */
#define KURXA_ALL 0x1fffffu

/* Attributes of a syntax record: the same values under the names of its fields. */
typedef struct kurxa {
    uint32_t mask_kurxa;   /* which of the following fields are given or wanted */
    uint32_t lparen_kurxa; /* special characters, as in kurx */
    uint32_t rparen_kurxa;
    uint32_t lbrack_kurxa;
    uint32_t rbrack_kurxa;
    uint32_t star_kurxa;
    uint32_t plus_kurxa;
    uint32_t twiddle_kurxa;
    uint32_t caret_kurxa;
    uint32_t dollar_kurxa;
    uint32_t vbar_kurxa;
    uint32_t dot_kurxa;
    uint32_t escape_kurxa;
    uint32_t dash_kurxa;
    uint32_t null_kurxa;
    uint32_t ltag_kurxa;
    uint32_t rtag_kurxa;
    uint32_t fchar_kurxa; /* first and last character of the collating order */
    uint32_t lchar_kurxa;
    kurxsuccfn succfp_kurxa; /* successor function; null: no character has a successor */
    void *cctxp_kurxa;       /* its context; borrowed. kurxsucc takes 256 ranks or null */
    kurxcmpfn cmfuncp_kurxa; /* compare function */
    void *cmctxp_kurxa;      /* its context; borrowed */
} kurxa;

/*
 * Collating order of the default successor function: 94 characters and a 0. A character that
 * stands twice counts at its later place.
 */
extern KU_API const unsigned char kurxtbl[95];

/*
 * Makes a syntax record with the classes b, n, t and w.
 *   kurxap  null: all defaults. Else every field is taken from it, and its mask is set to
 *           KURXA_ALL; its pointers are borrowed until the record ends.
 * Returns the record, the caller's, ended with kurxdestroy; or null with KURXA_NOCOMPARE or
 * the allocator's code pushed.
 */
KU_API kurx *kurxcreate(kux *ctx, kurxa *kurxap);

/* Ends a record that no compiled pattern uses any more. Null is ignored. Returns null. */
KU_API kurx *kurxdestroy(kux *ctx, kurx *kurxh);

/* Fills the fields that the mask names. Returns 0; KURXA_NORECORD, not pushed, for a null record. */
KU_API uint32_t kurxget(kux *ctx, kurx *kurxh, kurxa *kurxap);

/*
 * Stores the fields that the mask names. A successor context of the record's own is released
 * when another one is stored. Returns 0, or the code pushed: KURXA_NORECORD; KURXA_NOCOMPARE,
 * with all other fields stored.
 */
KU_API uint32_t kurxset(kux *ctx, kurx *kurxh, const kurxa *kurxap);

/* 1 when the character is one of the sixteen special ones, else 0. A null record: 0 with
 * KURXA_NORECORD pushed. */
KU_API int32_t kurxispecial(kux *ctx, kurx *kurxh, uint32_t tchar);

/* The character behind `tchar` by the record's successor function, 0 where it has none. A
 * null record: 0 with KURXA_NORECORD pushed. */
KU_API uint32_t kurxgsucc(kux *ctx, kurx *kurxh, uint32_t tchar);

/* The default successor function: by kurxtbl, of the character's low byte; 0 behind the last. A
 * byte that is not in the table ranks with the first one. cctxp: ranks of 256 bytes, or null. */
KU_API uint32_t kurxsucc(kux *ctx, void *cctxp, uint32_t tchar);

/* The default compare function: 1 when first equals second, else 0. */
KU_API int32_t kurxscmatch(kux *ctx, void *cctxp, uint32_t first, uint32_t second);

/* Compares upper cases under the context's language: 1 when they are equal, else 0. */
KU_API int32_t kurxicmatch(kux *ctx, void *cctxp, uint32_t first, uint32_t second);

#ifdef __cplusplus
}
#endif

#endif
