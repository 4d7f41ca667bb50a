/*
 * kurt.h - pattern tokens: a pattern's characters told apart by the syntax record
 *
 * The first step of compiling (kurf.h); clients that only match need none of it. A token table
 * is made from the characters, handed to the parser (kurn.h), and destroyed after its tree.
 */
#ifndef KURT_H
#define KURT_H

#include "kurx.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Token types. */
#define KURT_CLASS 0   /* escaped character that names an escape class */
#define KURT_LITERAL 1 /* literal character */
#define KURT_LPAREN 2  /* ( */
#define KURT_RPAREN 3  /* ) */
#define KURT_LBRACK 4  /* [ */
#define KURT_RBRACK 5  /* ] */
#define KURT_STAR 6    /* * */
#define KURT_PLUS 7    /* + */
#define KURT_TWIDDLE 8 /* ~ */
#define KURT_CARET 9   /* ^ as the first pattern character */
#define KURT_DOLLAR 10 /* $ as the last pattern character */
#define KURT_VBAR 11   /* | */
#define KURT_DOT 12    /* . */
#define KURT_DASH 13   /* - */
#define KURT_NULL 14   /* the value that ends the pattern */
#define KURT_LTAG 15   /* { */
#define KURT_RTAG 16   /* } */
#define KURT_ESCAPE 0  /* kurttype's answer for the escape character, which makes no token */

/* Actions of the escape machine. */
#define KURT_A_NONE 0     /* none: a state that there is not */
#define KURT_A_REMEMBER 1 /* the escape character: remember it */
#define KURT_A_EMIT 2     /* any other character, or one that is escaped: a token */
#define KURT_A_FAIL 3

/* Pattern token. */
typedef struct kurte {
    int32_t type_kurte;   /* KURT_CLASS to KURT_RTAG */
    uint32_t value_kurte; /* the character as it stood in the pattern */
} kurte;

/* Token table, allocated with room for all tokens. */
typedef struct kurt {
    uint8_t sanchor_kurt;   /* 1: the first token is a caret */
    uint8_t fanchor_kurt;   /* 1: the token before the last is a dollar */
    uint32_t numkurte_kurt; /* number of tokens */
    kurte tokens_kurt[1];   /* the tokens */
} kurt;

/*
 * Splits a pattern into tokens. An escaped character is a class where the record has one of
 * its name, else a literal; escaping the escape character escapes the next one, so that a
 * literal one takes a record with another escape character.
 *   regexp  `regexn` characters and a 0 behind them; not kept
 * Returns the table, the caller's, ended with kurtdestroy; or null, with the allocator's code
 * pushed, for want of memory.
 */
KU_API kurt *kurtcreate(kux *ctx, kurx *kurxh, const uint32_t *regexp, uint32_t regexn);

/* Ends a token table. Null is ignored. Returns null. */
KU_API kurt *kurtdestroy(kux *ctx, kurt *table);

/* Releases a block of the context's plain memory: what kulpitrate calls to free a list's items.
 * Returns 0. */
KU_API uint32_t kurtedestroy(kux *ctx, void *item, void *clientarg);

/* Type of character `tchar` at index `i` of a pattern of `len` characters: KURT_LITERAL to
 * KURT_RTAG, or KURT_ESCAPE. */
KU_API int32_t kurttype(kux *ctx, kurx *kurxh, uint32_t tchar, uint32_t i, uint32_t len);

/* What the escape machine does in state `Q` (1: behind an escape character) with a character
 * of that type: KURT_A_NONE to KURT_A_FAIL. */
KU_API int32_t kurtdelta(kux *ctx, int32_t Q, int32_t type);

#ifdef __cplusplus
}
#endif

#endif
