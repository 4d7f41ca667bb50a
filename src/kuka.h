/*
 * kuka.h - dialects: token objects of text for another database server
 *
 * kukacreate makes a token object (kukp.h) from an attribute record. When the
 * record names a server, the native reserved words are narrowed to those of
 * that server (the others become plain words), a few words of the server are
 * recognised, and SQL Server/Sybase gets the operators *= and =*. The words
 * browse, holdlock, optimize and concat are recognised in single-byte
 * languages only. The object is ended with kukpdestroy.
 * Error facility: none of its own; codes are the lexer's, the list's or the
 * allocator's.
 */
#ifndef KUKA_H
#define KUKA_H

#include "kukp.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- constants ---- */

/* Bits of mask_kuka: which fields are given. */
#define KUKA_TEXT 0x002u     /* required */
#define KUKA_WEIGHT 0x004u   /* clear: 1, the text is borrowed */
#define KUKA_MODE 0x008u     /* clear: 1, no keywords */
#define KUKA_CALLBACK 0x010u /* clear: null */
#define KUKA_CONTEXT 0x020u  /* clear: null */
#define KUKA_STATE 0x040u    /* clear: 0 */
#define KUKA_SERVER 0x100u   /* clear: KUKA_SERVER_NONE */

/* Server types; any other value counts as none. */
#define KUKA_SERVER_NONE 0u
#define KUKA_SERVER_SS 1u  /* SQL Server/Sybase */
#define KUKA_SERVER_DB2 2u /* DB2 */

/* Token types of the dialects. */
#define KUKA_T_BROWSE 407u     /* SQL Server/Sybase: browse */
#define KUKA_T_HOLDLOCK 408u   /* SQL Server/Sybase: holdlock */
#define KUKA_T_RIGHTOUTER 409u /* SQL Server/Sybase: =* */
#define KUKA_T_LEFTOUTER 410u  /* SQL Server/Sybase: *= */
#define KUKA_T_OPTIMIZE 411u   /* DB2: optimize; DB2's concat is KUKP_T_CONCAT */

#define KUKAKWSS_COUNT 123u /* words of kukakwss */
#define KUKAKWDB2_COUNT 82u /* words of kukakwdb2 */
#define KUKAID2KW_COUNT 2u  /* entries of kukaid2kw */

/* ---- records ---- */

/* Attributes of a token object; a field counts when its bit is set. */
typedef struct kuka {
    uint32_t mask_kuka;       /* which of the following fields are given */
    const char *origtxp_kuka; /* the text, NUL-terminated */
    int32_t weight_kuka; /* 0: the text is copied in; else borrowed until the object is destroyed */
    int32_t mode_kuka;   /* KUKP_M_... */
    kukptokenfn cfunp_kuka; /* token callback, or null */
    void *cctxp_kuka;       /* its context */
    int32_t state_kuka;     /* starting state, KUKP_S_COMPLETE to KUKP_S_LABEL */
    void *ctoklist_kuka;    /* client token list (a list of kukat) or null; has no bit, always
                               counts; borrowed for the call */
    uint32_t srvrtype_kuka; /* KUKA_SERVER_... */
} kuka;

/* Context of the callbacks that stand between the lexer and the caller's callback. */
typedef struct kukastctxt {
    kukptokenfn ccfunp_kukastctxt; /* the caller's callback, or null */
    void *cctxp_kukastctxt;        /* the caller's context */
    kux *kuxp_kukastctxt;          /* the library context */
} kukastctxt;

/* ---- tables: lower case, ascending byte order, no terminator ---- */

KU_API extern const char *const kukakwss[KUKAKWSS_COUNT];   /* reserved by SQL Server/Sybase */
KU_API extern const char *const kukakwdb2[KUKAKWDB2_COUNT]; /* reserved by DB2 */
KU_API extern const kukptb kukaid2kw[KUKAID2KW_COUNT];      /* browse, holdlock */

/* ---- operations ---- */

/*
 * Makes a token object.
 *   kukap  attributes; clear bits are set and their fields filled with the
 *          defaults, the server type included. Without KUKA_TEXT the record is
 *          left as it is
 * With a server, all tokens of a caller without callback are stored and
 * erroneous text does not end the analysis; a caller's callback sees the
 * mapped types, its answer counts, a type that it writes does not.
 * Returns the object, the caller's, ended with kukpdestroy; or null, as
 * kukpxcreate does, also without KUKA_TEXT (nothing pushed).
 */
KU_API void *kukacreate(kux *ctx, kuka *kukap);

/*
 * Builds the client token list of SQL Server/Sybase into `rkukap`: a copy of
 * the caller's list, then *= and =*. The list is the caller's, released with
 * kukafrtoklist. Returns 0, or the code of what failed with `rkukap` unchanged.
 */
KU_API uint32_t kukaspss(kux *ctx, const kuka *kukap, kuka *rkukap);

/* Token callbacks of SQL Server/Sybase and of DB2; `cctxp` is a kukastctxt.
 * KUKP_A_STOP when a word cannot be lower-cased for lack of memory. */
KU_API uint8_t kukacbss(void *cctxp, const unsigned char *token, uint32_t length, uint32_t type,
                        uint32_t *typep);
KU_API uint8_t kukacbdb2(void *cctxp, const unsigned char *token, uint32_t length, uint32_t type,
                         uint32_t *typep);

/*
 * Copies a client token list, records and texts.
 *   ctoklist    the list, or null: an empty one is made
 *   rtoklisthp  out: the copy, the caller's, released with kukafrtoklist; null on failure
 * Returns 0, or the code of what failed, with nothing left behind.
 */
KU_API uint32_t kukaclctoklst(kux *ctx, void *ctoklist, void **rtoklisthp);

/* Releases a copied list, its records and their texts. Null is ignored. */
KU_API void kukafrtoklist(kux *ctx, void *toklisth);

#ifdef __cplusplus
}
#endif

#endif
