/*
 * kucl.h - command lines: arguments described by a list, parsed into values
 *
 * A tool describes its arguments by a list (kul.h) of definitions, kucla; a
 * parse attaches to each definition the list of values given for it. Arguments
 * come by keyword, `keyword=value` or `keyword=(v1,v2)`, or by position; some
 * may come from a command file that one argument names. Absent ones get their
 * defaults. Text is cut into tokens by the lexer (kukp.h): its quoting holds.
 *
 * Nothing is pushed on the error stack. A parse stops at the first error and
 * returns it as a record; values stored before it stay attached. A definition
 * that has values refuses more: release and clear kuclaval before parsing again.
 * Error facility: none.
 */
#ifndef KUCL_H
#define KUCL_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Flags of kuclaflg. */
#define KUCL_NUMBER 0x0002u     /* each value that is not empty is a decimal integer */
#define KUCL_CMDFILE 0x0020u    /* this argument names a command file */
#define KUCL_RANGE 0x0100u      /* each integer lies between kuclalo and kuclahi */
#define KUCL_LIST 0x0200u       /* several values are allowed */
#define KUCL_CHOICE 0x0400u     /* each value is one of kuclalst */
#define KUCL_NOCASE 0x0800u     /* KUCL_CHOICE does not look at letter case */
#define KUCL_UNDECLARED 0x1000u /* set by the parser: a keyword that the caller did not declare */
#define KUCL_ADDED 0x2000u      /* set by the parser: a definition that it added */

/* Error codes, kuclecod. */
#define KUCLE_TOOMANY 1u  /* more positional values than definitions */
#define KUCLE_REPEATED 2u /* an argument was given twice; its first values stay */
#define KUCLE_UNKNOWN 3u  /* a keyword that was not declared */
#define KUCLE_POSITION 4u /* a positional value after a keyword, or in a command file */
#define KUCLE_BADVALUE                                                                             \
    5u /* a value not allowed, no integer or out of range; the values are attached */
#define KUCLE_SYNTAX 6u  /* a malformed value list */
#define KUCLE_NOTLIST 7u /* several values for an argument without KUCL_LIST */
#define KUCLE_CMDFILE 8u /* the command file cannot be opened */
#define KUCLE_NOMEM 9u   /* memory exhausted */
#define KUCLE_HELP 50u   /* help was asked for: a value `?` or `-?` */

/* Where an error was found, kucleflg. */
#define KUCLE_INLINE 1u /* in the command line */
#define KUCLE_INFILE 2u /* in the command file */

/*
 * Argument definition. Texts are NUL-terminated and the caller's. A definition
 * that the parser added (KUCL_ADDED) and its keyword come from kuxnmalloc and
 * are released by the caller. An integer is an optional sign and digits that
 * fit 32 bits; values with KUCL_RANGE are integers with or without KUCL_NUMBER.
 */
typedef struct kucla {
    int32_t kuclalo;      /* lowest integer allowed (KUCL_RANGE) */
    int32_t kuclahi;      /* highest integer allowed (KUCL_RANGE) */
    const char *kuclakwd; /* keyword; found without regard to case, by its first 255 bytes then */
    const char *kucladef; /* default value, or null; not checked */
    void *kuclalst;       /* list of the texts allowed (KUCL_CHOICE) */
    void *kuclaval;       /* list of the values given, or null; list and texts (kuxnmalloc) are
                             the caller's to release */
    uint16_t kuclaflg;    /* KUCL_... */
} kucla;

/* Error record. */
typedef struct kucle {
    kucla *kuclearg;   /* the definition concerned, on the caller's list; or null */
    uint32_t kuclecod; /* KUCLE_... */
    uint32_t kucleflg; /* KUCLE_INLINE or KUCLE_INFILE */
} kucle;

/*
 * Parses an argument vector: kuclmo, then kuclps.
 *   argc, argv  as main got them; argv[0] is not used
 *   inp         list of kucla *; definitions may be appended to it
 *   userp       non-zero: undeclared keywords are accepted; else they are
 *               KUCLE_UNKNOWN. A definition is added either way.
 * Returns null when all went well, else the first error: the caller's, released
 * with kucledestroy. When there is no memory even for the record, it is a
 * constant one with KUCLE_NOMEM, which kucledestroy knows.
 */
KU_API kucle *kuclpa(kux *ctx, int32_t argc, char *const *argv, void *inp, uint32_t userp);

/* Parses a command-line text; the rest as for kuclpa. The text may go away afterwards. */
KU_API kucle *kuclps(kux *ctx, const char *cmdlin, void *inp, uint32_t userp);

/*
 * The same. `quote` non-zero: the lines of the command file are quoted as
 * kuclmo quotes arguments before they are parsed, so that values need no quotes
 * of their own.
 */
KU_API kucle *kuclpsq(kux *ctx, const char *cmdlin, void *inp, uint32_t userp, int32_t quote);

/*
 * The command-line text of an argument vector: what follows `=`, or the whole
 * argument, is put between single quotes unless it begins with a quote or a
 * parenthesis. Quotes inside are not doubled. Returns the text, the caller's,
 * released with kuxnmfree; or null without memory.
 */
KU_API char *kuclmo(kux *ctx, int32_t argc, char *const *argv);

/* The values (kuclaval) of the definition with that keyword; null when there is none or no value. */
KU_API void *kuclgv(kux *ctx, void *inp, const char *kwd);

/* Releases an error record, never a definition; null is ignored. Returns null. */
KU_API kucle *kucledestroy(kux *ctx, kucle *kucle_p);

#ifdef __cplusplus
}
#endif

#endif
