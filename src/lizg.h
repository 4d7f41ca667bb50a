/*
 * lizg.h - scan context: reads a text character by character, in any representation
 *
 * What the whole multibyte layer shares stands here too: representations,
 * options, statuses. A text is handed over as address, byte length and
 * representation; no operation of the layer takes a context, allocates (but
 * lizscat) or pushes a code. The first two arguments are always the language
 * handle and the locale global area of the context.
 *
 * Lengths count bytes. KU_NTS (65535) as the length of a text, or as a limit on
 * one, means "up to the NUL", however far that is. A text of an explicit length
 * ends there or at its first NUL character, whichever comes first, except that
 * byte-wise operations of single-byte languages take an explicit length as it
 * is. Sizes of targets are plain numbers: 65535 is 65535 bytes.
 *
 * Wide units are 1 byte in single-byte languages, else 4 bytes in the machine's
 * order; they need no alignment. Out-arguments may be null.
 */
#ifndef LIZG_H
#define LIZG_H

#include "kudef.h"
#include "kulang.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Representations of a text. */
#define LIZ_WIDE 1      /* array of character values, one unit a character */
#define LIZ_MULTIBYTE 2 /* bytes in the language's character set */
#define LIZ_CURSOR 3    /* a kucursor over such bytes; the address is the cursor's */

/* Options: 0 to 3 for copies, 4 and 5 for comparisons. */
#define LIZ_COPY 0     /* unchanged */
#define LIZ_CAPITALS 1 /* initial capitals: words are runs of letters */
#define LIZ_LOWER 2    /* lower case */
#define LIZ_UPPER 3    /* upper case */
#define LIZ_NOCASE 4   /* compare without regard to case */
#define LIZ_BINARY 5   /* compare by character value */

/* Statuses. */
#define LIZ_OK 0u       /* done */
#define LIZ_END 1u      /* end reached, or target too small: the output is cut */
#define LIZ_FAILED 2u   /* the scanner failed */
#define LIZ_NOMEMORY 3u /* lizscat only */

/* Comparison results. */
#define LIZ_EQUAL 0
#define LIZ_LESS 1    /* the first is less */
#define LIZ_GREATER 2 /* the first is greater */

/* Scan context. Plain data: a copy is a context of its own at the same place.
 * The text and the language handle must outlive it. */
typedef struct lizg {
    kucursor osctx_lizg;   /* cursor of representations 2 and 3, bounded by the byte length too;
                              for wide texts just the bounds */
    int32_t rep_lizg;      /* representation of the text */
    int32_t lcnum_lizg;    /* index of the character last read; -1 before the first */
    uint32_t boffset_lizg; /* bytes from the scan's start to just after the character last read,
                              shift bytes that follow it included; a cursor that has passed
                              only shift bytes is scanned from its start */
    const void *str_lizg;  /* the text (representation 3: the caller's cursor) */
    uint32_t slen_lizg;    /* its byte length as given */
} lizg;

/*
 * Starts a scan of a text and passes over its first `skip` characters.
 *   str   for LIZ_CURSOR the caller's cursor: copied, scanned from where it
 *         stands, never moved; the length counts from there
 * Returns LIZ_OK, or LIZ_END when the text has fewer characters.
 */
KU_API uint32_t lizginit(const kulang *lh, kulocglo *glo, lizg *scan, const void *str,
                         uint32_t slen, int32_t rep, uint32_t skip);

/*
 * Reads the next character.
 *   value  out: its wide value, 0 at the end
 * Returns LIZ_OK, or LIZ_END at the end: a NUL, the length, or a last character
 * of which the length leaves only a part (nothing of it is read).
 */
KU_API uint32_t lizggnc(const kulang *lh, kulocglo *glo, lizg *scan, uint32_t *value);

/*
 * Compares what is left of two scans, character by character.
 *   rdonly  1: neither scan moves; otherwise both stand behind what was compared,
 *           and the same scan given twice is read by each in turn
 *   option  LIZ_NOCASE; any other compares by value
 *   lex     out: LIZ_EQUAL, LIZ_LESS, LIZ_GREATER; a proper prefix comes first
 *   prefix  out: 1 when the second was used up without a difference, else 0
 * Returns LIZ_OK.
 */
KU_API uint32_t lizgmatch(const kulang *lh, kulocglo *glo, lizg *first, lizg *second,
                          int32_t rdonly, int32_t option, int32_t *lex, int32_t *prefix);

#ifdef __cplusplus
}
#endif

#endif
