/*
 * kukp.h - lexer: turns SQL text into a token object
 *
 * kukpcreate analyses one NUL-terminated text: strings, quoted identifiers,
 * labels, comments and hint comments, words, numbers, operators. The object
 * holds the text, the state the analysis ended in, and the tokens in text
 * order; it is read and edited through kuko.h and kuke.h and ended with
 * kukpdestroy. A construct that the text leaves open is continued by giving
 * the end state as the starting state of the next piece of text.
 * Offsets and lengths count bytes of the text as given, never characters.
 * Keywords and the letters in numbers are recognised in any case.
 * An object, and the context's token buffer, belong to one thread at a time.
 * Error facility: kukaa.
 */
#ifndef KUKP_H
#define KUKP_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- states: where the analysis ended (state_kuk), and where the next may start ---- */

#define KUKP_S_COMPLETE 0   /* the whole text was analysed; between tokens */
#define KUKP_S_COMMENT 1    /* the text ended inside a block comment */
#define KUKP_S_LINE 2       /* start only: continues a line comment; never an end state */
#define KUKP_S_STRING 3     /* the text ended inside a string */
#define KUKP_S_IDENTIFIER 4 /* the text ended inside a quoted identifier */
#define KUKP_S_LABEL 5      /* the text ended inside a label */
#define KUKP_S_STOPPED3                                                                            \
    14 /* the callback stopped after a three-byte operator. 14 to 17: no start */
#define KUKP_S_STOPPED2 15 /* ... after a token whose last step consumed two bytes */
#define KUKP_S_STOPPED1 16 /* ... after a token whose last step consumed one byte */
#define KUKP_S_STOPPED 17  /* ... after a word, a number or a line comment */
#define KUKP_S_ERROR 26    /* erroneous text ended the analysis, or creation failed; no start */

/* ---- modes: what becomes of words ---- */

#define KUKP_M_KEYWORDS 0 /* looked up in kukptbkw; not found: KUKP_T_WORD */
#define KUKP_M_WORDS 1    /* every word is KUKP_T_WORD. In any other mode words keep type 0 */

/* ---- token types. Keywords: kukptbkw; 2 to 111 are the reserved words ---- */

#define KUKP_T_ERROR 0u      /* erroneous text */
#define KUKP_T_DELETE 28u    /* keyword delete */
#define KUKP_T_SELECT 86u    /* keyword select */
#define KUKP_T_UPDATE 103u   /* keyword update */
#define KUKP_T_CONCATKW 131u /* keyword concat */

#define KUKP_T_OUTER 367u     /* (+) */
#define KUKP_T_LE 368u        /* <= */
#define KUKP_T_GE 369u        /* >= */
#define KUKP_T_NE 370u        /* != <> ^= ~= */
#define KUKP_T_CONCAT 371u    /* || */
#define KUKP_T_ASSIGN 372u    /* := */
#define KUKP_T_RANGE 373u     /* .. */
#define KUKP_T_POWER 374u     /* ** */
#define KUKP_T_COMMA 375u     /* , */
#define KUKP_T_LPAREN 376u    /* ( */
#define KUKP_T_RPAREN 377u    /* ) */
#define KUKP_T_MINUS 378u     /* - */
#define KUKP_T_PLUS 379u      /* + */
#define KUKP_T_STAR 380u      /* * */
#define KUKP_T_SLASH 381u     /* / */
#define KUKP_T_LT 382u        /* < */
#define KUKP_T_GT 383u        /* > */
#define KUKP_T_EQ 384u        /* = */
#define KUKP_T_AT 385u        /* @ */
#define KUKP_T_SEMICOLON 386u /* ; */
#define KUKP_T_PERIOD 387u    /* . */
#define KUKP_T_PERCENT 388u   /* % */
#define KUKP_T_LBRACKET 389u  /* [ */
#define KUKP_T_RBRACKET 390u  /* ] */
#define KUKP_T_COLON 391u     /* : */
#define KUKP_T_AMPERSAND 392u /* & */

#define KUKP_T_COMMENT 393u        /* block comment */
#define KUKP_T_COMMENTOPEN 394u    /* block or hint comment not closed when the text ended */
#define KUKP_T_LINE 395u           /* line comment, up to and without the line feed */
#define KUKP_T_LINEOPEN 396u       /* reserved: a line comment also ends with the text */
#define KUKP_T_STRING 397u         /* string, quotes included */
#define KUKP_T_STRINGOPEN 398u     /* string not closed when the text ended */
#define KUKP_T_LABEL 399u          /* <<label>>, brackets included */
#define KUKP_T_LABELOPEN 400u      /* label not closed when the text ended */
#define KUKP_T_IDENTIFIER 401u     /* quoted identifier, quotes included */
#define KUKP_T_IDENTIFIEROPEN 402u /* quoted identifier not closed when the text ended */
#define KUKP_T_WORD 403u           /* word that is not a keyword */
#define KUKP_T_NUMBER 404u         /* number */
#define KUKP_T_HINT 405u           /* hint comment: a block comment that begins with a plus sign */
#define KUKP_T_LINEHINT 406u       /* line hint comment: --+ */

/* ---- answers of a token callback: bit 0 go on, bit 1 do not store ---- */

#define KUKP_A_LAST 0u /* store the token, stop */
#define KUKP_A_KEEP 1u /* store the token, go on */
#define KUKP_A_STOP 2u /* do not store it, stop */
#define KUKP_A_SKIP 3u /* do not store it, go on */

/* ---- error numbers ---- */

#define KUKAA_STATE KU_CODE('k', 'u', 'k', 'a', 'a', 2) /* starting state not 0 to 5 */
#define KUKAA_LIST KU_CODE('k', 'u', 'k', 'a', 'a', 3)  /* the token list cannot be created */
#define KUKAA_TOKEN KU_CODE('k', 'u', 'k', 'a', 'a', 4) /* a token cannot be made or appended */
/* Never pushed by the lexer. One of them on top of the error stack when a
 * creation fails keeps the partial object, in state KUKP_S_ERROR. */
#define KUKAA_KEEP KU_CODE('k', 'u', 'k', 'a', 'a', 5)
#define KUKAA_KEEP2 KU_CODE('k', 'u', 'k', 'a', 'a', 6)

/* ---- records ---- */

/* Token object; callers hold it as an untyped pointer. */
typedef struct kuk {
    int32_t state_kuk;                /* end state, KUKP_S_... */
    int32_t mode_kuk;                 /* mode, KUKP_M_... */
    const unsigned char *origtxp_kuk; /* the text, NUL-terminated, or null after a failure */
    uint32_t origtxl_kuk;             /* its bytes, without the NUL */
    void *origtklh_kuk;               /* the tokens: a list (kul.h) of kukn; null as above */
    int32_t weight_kuk;               /* 0: the text is the object's own; else borrowed until
                                         the object is destroyed, and unchanged: a
                                         change is told by kukosset */
} kuk;

/* Token. */
typedef struct kukn {
    uint32_t type_kukn;     /* token type, KUKP_T_... or a type of kukptbkw or the caller's */
    uint32_t offset_kukn;   /* first byte in the text, from 0 */
    uint32_t length_kukn;   /* bytes; 0 for a continued construct in an empty text. In a
                               shift-sensitive character set one more for each end that lies
                               inside a shifted run: the length of the token standing alone */
    struct kukn *hint_kukn; /* hint comment attached by kukphint, owned; or null */
} kukn;

/* Entry of a table of words or operators. */
typedef struct kukptb {
    const char *keyp_kukptb; /* the text, lower case */
    uint32_t type_kukptb;    /* its token type */
    uint32_t leng_kukptb;    /* its bytes */
} kukptb;

/* Client token: an operator of the caller's; the item of a client token list (kul.h). */
typedef struct kukat {
    const unsigned char *token_kukat; /* the text, in lower case; need not be NUL-terminated */
    uint32_t tokenl_kukat; /* its bytes; 1 to 3 for one that can start a token; 0: ignored */
    uint32_t ttype_kukat;  /* the token type it gets */
} kukat;

/*
 * Token callback: sees every token before it is stored.
 *   cctxp   the caller's context, as given to create
 *   token   first byte of the token in the text as given to create; in a
 *           shift-sensitive character set, a copy in the context's token buffer
 *           (valid during the call) of a token that cannot stand alone
 *   length  its bytes; it is not NUL-terminated
 *   type    its type
 *   typep   type that is stored; preset to `type`, may be overwritten
 * Returns KUKP_A_...; the answer to a construct that the text leaves open
 * decides only on storing. It must not change the object's text, nor the
 * client token list.
 */
typedef uint8_t (*kukptokenfn)(void *cctxp, const unsigned char *token, uint32_t length,
                               uint32_t type, uint32_t *typep);

/* ---- tables ---- */

#define KUKPTBKW_COUNT 366u /* entries of kukptbkw */
#define KUKPTBSP_COUNT 29u  /* entries of kukptbsp */

/* Keywords in ascending byte order, each with a type of its own. */
KU_API extern const kukptb kukptbkw[KUKPTBKW_COUNT];

/* Operators and punctuation marks; the first that matches counts, so long ones come first. */
KU_API extern const kukptb kukptbsp[KUKPTBSP_COUNT];

/* ---- operations ---- */

/*
 * Analyses a text.
 *   origtxp  the text, NUL-terminated, less than 4 GB
 *   weight   0: copied in; else borrowed until the object is destroyed, and
 *            unchanged, or told by kukosset
 *   mode     KUKP_M_...
 *   funcp    token callback, or null: all tokens are stored, and erroneous
 *            text ends the analysis
 *   cctxp    the callback's context; not looked at
 *   state    KUKP_S_COMPLETE to KUKP_S_LABEL: what state_kuk of the previous
 *            piece of text said
 * Returns a token object (kuk), the caller's, ended with kukpdestroy; or null:
 * KUKAA_STATE, KUKAA_LIST, KUKAA_TOKEN pushed, or the code of the allocator
 * that failed. A null text gives null and pushes nothing. Erroneous text is no
 * failure: it becomes a token of type KUKP_T_ERROR.
 */
KU_API void *kukpcreate(kux *ctx, const char *origtxp, int32_t weight, int32_t mode,
                        kukptokenfn funcp, void *cctxp, int32_t state);

/*
 * The same, with extra arguments.
 *   args     args[0]: client token list (a list of kukat, borrowed for the
 *            call), or null. Client tokens go before the operators of kukptbsp
 *   argsnum  entries of args; 0: none
 */
KU_API void *kukpxcreate(kux *ctx, const char *origtxp, int32_t weight, int32_t mode,
                         kukptokenfn funcp, void *cctxp, int32_t state, void *const *args,
                         uint32_t argsnum);

/* Ends an object: tokens, hints, list, the text if it is its own. Null is ignored. Returns null. */
KU_API void *kukpdestroy(kux *ctx, void *kukh);

/*
 * Attaches hint comments: one that follows `select`, `delete` or `update` at
 * once leaves the list and hangs on that token, whose length then reaches to
 * the end of the hint; all other hint comments become plain comments. Of two of
 * these words in a row the second is what follows the first and no word for the
 * hint behind it: that of `select select` and of `delete update` becomes plain.
 * A second call changes nothing. Returns 0, or the code of the list operation
 * that failed (a locked list).
 */
KU_API uint32_t kukphint(kux *ctx, void *kukh);

#ifdef __cplusplus
}
#endif

#endif
