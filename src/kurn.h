/*
 * kurn.h - pattern trees: a token table parsed by a small grammar
 *
 * The second step of compiling (kurf.h); clients that only match need none of it.
 *
 *     beg      caret concat dollar tok:null       (caret and dollar may be absent)
 *     concat   re concat | re
 *     re       or | star | plus | basic
 *     or       star tok:bar re | plus tok:bar re | basic tok:bar re
 *     star     basic tok:star
 *     plus     basic tok:plus
 *     basic    tok:ltag tagged tok:rtag | tok:lparen concat tok:rparen
 *              | tok:lbrack twiddle tok:rbrack | tok:lbrack rlis tok:rbrack | litlis | tok:dot
 *     tagged   concat
 *     twiddle  tok:twiddle rlis
 *     rlis     rg rlis | rg
 *     rg       clit tok:dash clit | clit
 *     litlis   clit litlis | clit
 *     clit     tok:class | tok:literal
 *
 * So a run of literals is one unit (`ab*` repeats `ab`), a bar binds tighter than standing side
 * by side, stars and pluses do not stack, and all specials but the caret and the dollar stay
 * special everywhere. The time is linear in the pattern and the stack does not grow with it. A
 * pattern that does not parse is no error with a code.
 */
#ifndef KURN_H
#define KURN_H

#include "kurl.h"
#include "kurt.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Node types, named as the productions. */
#define KURN_BASIC 0
#define KURN_BEG 1
#define KURN_CARET 2
#define KURN_CLIT 3
#define KURN_CONCAT 4
#define KURN_DOLLAR 5
#define KURN_MATCH 6 /* a token */
#define KURN_LITLIS 7
#define KURN_OR 8
#define KURN_PLUS 9
#define KURN_RE 10
#define KURN_RG 11
#define KURN_RLIS 12
#define KURN_STAR 13
#define KURN_TWIDDLE 14
#define KURN_TAGGED 15

#define KURN_CHILDREN 4 /* children of a node, at most */
#define KURN_POOL 128   /* nodes of a pool */
#define KURN_POOLS 32   /* slots of a new pool array */

/* Tree node. */
struct kurno {
    uint32_t nodeid_kurno;               /* number of the position, from 1; 0: no position */
    uint32_t tag_kurno;                  /* number of the innermost tagged group around it, or 0 */
    int32_t nodetype_kurno;              /* KURN_BASIC to KURN_TAGGED */
    kurte *kurtep_kurno;                 /* match node: its token */
    kurno *ckurnop_kurno[KURN_CHILDREN]; /* the children */
    int32_t numchild_kurno;              /* how many */
    kurno *pkurnop_kurno;                /* the parent; null: the root */
    int32_t accepting_kurno;             /* position: 1 when the pattern can end behind it */
    uint8_t nullable_kurno;              /* 1: matches no character at all, too */
    kurl *firstkurlp_kurno;              /* positions that a match of it can begin with */
    kurl *followkurlp_kurno;             /* position: those that can come behind it */
    kurl *lastkurlp_kurno;               /* positions that a match of it can end with */
};

/* Parse record. Made by kurncreate only: the record has more behind it. */
typedef struct kurn {
    kurno *nullkurnop_kurn;   /* the last node made: the end position, once parsed */
    kurt *kurtp_kurn;         /* the token table; borrowed */
    uint32_t tag_kurn;        /* tagged groups numbered so far */
    kurno truekurno_kurn;     /* stands for a caret or dollar that is absent */
    kurte *curtknp_kurn;      /* the current token; null behind the last */
    int32_t curtkni_kurn;     /* its index */
    kurno *rtkurnop_kurn;     /* the root */
    kurno **plkurnopp_kurn;   /* node pools of KURN_POOL nodes; null: not there yet */
    int32_t numberpool_kurn;  /* slots of that array */
    int32_t activepool_kurn;  /* index of the pool being filled */
    int32_t activeavail_kurn; /* its next free node, 0 to KURN_POOL */
} kurn;

/*
 * Parses a token table.
 *   table  must outlive the tree
 * Returns the record, the caller's, ended with kurndestroy. Null: the pattern does not parse,
 * or a code stood on the error stack before, or was pushed by the allocator.
 */
KU_API kurn *kurncreate(kux *ctx, kurx *kurxh, kurt *table);

/* Ends a tree whose sets are released (kurmdestroy). Null is ignored. Returns null. */
KU_API kurn *kurndestroy(kux *ctx, kurn *tree);

/* Parses the whole table from its first token: the root, also in rtkurnop_kurn, or null. Nodes
 * of an earlier parse stay. */
KU_API kurno *kurnocreate(kux *ctx, kurn *tree);

/* When the current token has that type: a match node for it, child of `parent`, and the next
 * token becomes current. Else, or without memory (code pushed), null. */
KU_API kurno *kurnomatch(kux *ctx, kurn *tree, kurno *parent, int32_t type);

/* A node of that type, zeroed but for its parent and a match node's token, appended to the
 * parent's children (parent may be null). Null: no memory (code pushed), or the parent is full. */
KU_API kurno *kurnozget(kux *ctx, kurn *tree, int32_t nodetype, kurno *parent);

/* Undoes kurnozget of the parent's last child and of all nodes made after it: takes it off its
 * parent and goes on filling at pool `pool`, node `avail`, saved before. */
KU_API void kurnozunwind(kux *ctx, kurn *tree, kurno *node, int32_t pool, int32_t avail);

/*
 * The productions. Each makes its node below `parent` (null: none) from the current token on
 * and returns it, the current token behind it; or null with all as it was before, when the
 * tokens are no such thing, when no memory was left (code pushed), or when a code stands on
 * the error stack. An absent caret or dollar gives truekurno_kurn, which is nobody's child.
 */
KU_API kurno *kurnobeg(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnocaret(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnodollar(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnoconcat(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnore(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnostar(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnotwiddle(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnoplus(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnobasic(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnotagged(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnoor(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnorlis(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnolitlis(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnorg(kux *ctx, kurn *tree, kurno *parent);
KU_API kurno *kurnoclit(kux *ctx, kurn *tree, kurno *parent);

#ifdef __cplusplus
}
#endif

#endif
