/*
 * lizm.h - length, copy, comparison and search of texts, and the memory manager record
 *
 * Representations, options, statuses, lengths: lizg.h. In single-byte languages
 * all of these work on bytes; a cursor is then taken from its start, elsewhere
 * from its position.
 */
#ifndef LIZM_H
#define LIZM_H

#include "lizg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Memory manager; lizu.h has the default one. */
typedef struct lizm {
    void *(*alloc_lizm)(uint32_t size);                  /* `size` bytes, or null */
    void *(*realloc_lizm)(void *address, uint32_t size); /* resized, or null */
    void *(*free_lizm)(void *address);                   /* releases; the result is not looked at */
} lizm;

/* Byte length of a text: up to its NUL, at most `limit`, whole characters only.
 * LIZ_OK; a length past 32 bits counts as UINT32_MAX. */
KU_API uint32_t lizmblen(const kulang *lh, kulocglo *glo, const void *str, uint32_t limit,
                         int32_t rep, uint32_t *length);

/* The same in characters. */
KU_API uint32_t lizmllen(const kulang *lh, kulocglo *glo, const void *str, uint32_t limit,
                         int32_t rep, uint32_t *count);

/*
 * Bytes that a text of `olen` bytes needs in another representation, without a
 * terminator: 4 for each source byte going wide, else `olen`; one more when both
 * representations are the same or one is unknown. Single-byte languages: `olen`.
 * At most UINT32_MAX. Case mapping can need more.
 */
KU_API uint32_t lizm2(const kulang *lh, kulocglo *glo, const void *str, uint32_t olen, int32_t orep,
                      int32_t nrep, uint32_t *length);

/* Writes a NUL (wide targets: a 0 unit) behind `written` bytes of a target of
 * `tsize` bytes; LIZ_END when it does not fit. Multibyte and cursor targets of
 * other than single-byte languages are left alone: their copies end them. */
KU_API uint32_t lizmterminate(const kulang *lh, kulocglo *glo, void *target, int32_t rep,
                              uint32_t written, uint32_t tsize);

/*
 * Copies a text into another representation, with a case option.
 *   tsize    bytes that may be written, whatever the size of a target cursor
 *   written  out: bytes written, without terminator and closing shift byte
 * Returns LIZ_OK, or LIZ_END when the target was too small (or a character does
 * not exist in the set): what fits is there, whole characters, not terminated.
 * A wide or multibyte target is terminated when there is room; a target cursor
 * does not move, but in single-byte languages is opened anew, in its mode, on
 * what was written. An option outside 0 to 3 copies nothing; single-byte
 * languages then still count and terminate. An unknown representation: nothing.
 */
KU_API uint32_t lizmcpy(const kulang *lh, kulocglo *glo, void *target, uint32_t tsize, int32_t trep,
                        const void *source, uint32_t slen, int32_t srep, int32_t option,
                        uint32_t *written);

/*
 * Compares two texts.
 *   option  LIZ_NOCASE or LIZ_BINARY
 *   res     out: LIZ_EQUAL, LIZ_LESS, LIZ_GREATER. A proper prefix is less; but
 *           in single-byte languages equal, unless it is empty. There, when
 *           both lengths are 0 or neither is, a null first text is less (even
 *           than null), and a null second one makes the first greater.
 * Returns LIZ_OK.
 */
KU_API uint32_t lizmcmp(const kulang *lh, kulocglo *glo, const void *a, uint32_t alen, int32_t arep,
                        const void *b, uint32_t blen, int32_t brep, int32_t option, int32_t *res);

/*
 * Finds a pattern in a text.
 *   found    out: 1 found, 0 not
 *   index    in: character to start at (null: 0); out: character where the
 *            pattern begins; unchanged when it is not found
 *   boffset  out: its byte offset; 0 when not found
 * An empty pattern is found at the start index if that is at most the text's
 * length; a null one, in single-byte languages, never. Returns LIZ_OK.
 */
KU_API uint32_t lizmsearch(const kulang *lh, kulocglo *glo, const void *target, uint32_t tlen,
                           int32_t trep, const void *pattern, uint32_t plen, int32_t prep,
                           int32_t option, int32_t *found, uint32_t *index, uint32_t *boffset);

#ifdef __cplusplus
}
#endif

#endif
