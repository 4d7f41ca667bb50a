/*
 * kuko.h - token objects: asking about the object, its tokens and ranges of them
 *
 * A token object (made by the lexer, kukp.h) is a text, the state its analysis
 * ended in and its tokens, numbered from 0 in text order. Offsets and lengths
 * are bytes of the text. In a shift-sensitive character set an end of a token
 * or range that lies inside a shifted run counts one byte more, for the shift
 * byte that its text needs when it stands alone; such a text is handed out as a
 * copy in the context's token buffer (kuxtokbuf), which is valid only until the
 * next operation that fills the buffer. A token index is 0 to the number of
 * tokens - 1 except where an operation says otherwise. A null object has no
 * text and no tokens; a null out-pointer is not filled. Error facility: kukaa.
 */
#ifndef KUKO_H
#define KUKO_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

struct kukn; /* token record, kukp.h */

#define KUKAA_NOTEXT                                                                               \
    KU_CODE('k', 'u', 'k', 'a', 'a', 7) /* no memory for a new text; returned only */

/* Which of its two bounding tokens belong to a range. Any other value counts as KUKO_BOTH. */
#define KUKO_NEITHER 0u
#define KUKO_FINISH 1u /* the finish token only */
#define KUKO_START 2u  /* the start token only */
#define KUKO_BOTH 3u

/* ---- the object ---- */

/*
 * All fields at once.
 *   statep     lexer state after the analysis
 *   modep      how words were typed
 *   weightp    0: the object owns its text
 *   origtxpp   the text, NUL-terminated, or null; borrowed until the object's
 *              text is replaced or the object destroyed
 *   numtokenp  number of tokens
 * A null object leaves every target as it was.
 */
KU_API void kukosget(kux *ctx, void *kukh, int32_t *statep, int32_t *modep, int32_t *weightp,
                     const char **origtxpp, int32_t *numtokenp);

/* One field each, as in kukosget; a null object answers 0 or null. */
KU_API int32_t kukosgstate(kux *ctx, void *kukh);
KU_API int32_t kukosgmode(kux *ctx, void *kukh);
KU_API int32_t kukosgweight(kux *ctx, void *kukh);
KU_API const char *kukosgtext(kux *ctx, void *kukh);
KU_API int32_t kukosgnumtokens(kux *ctx, void *kukh);

/*
 * Replaces the text; nothing is analysed again, the tokens keep their offsets.
 *   origtxp  NUL-terminated, or null for no text. Copied in by an object that
 *            owns its text (its old one is released, and may be `origtxp`'s own
 *            storage); else borrowed, unchanged, until it is replaced or the
 *            object destroyed. A text rewritten in place is to be set again.
 * Returns 0, or KUKAA_NOTEXT, not pushed, with the object unchanged. What the
 * allocator pushed stays on the stack. A null object: 0, nothing done.
 */
KU_API uint32_t kukosset(kux *ctx, void *kukh, const char *origtxp);

/* ---- one token ---- */

/*
 * Type, offset, length and contents of a token; makes it the current item of
 * the object's token list.
 *   lengthp  its bytes. After kukosset put a shorter text in the place of the
 *            analysed one they may reach past that text's end, and the caller
 *            is to look at the text's length first; in shift-sensitive sets
 *            they are only what may be read there
 *   tokenpp  the token's first byte, not terminated; null without text.
 *            Borrowed as the text is, or in the token buffer.
 * Returns 0, or the code it pushed: KULAA_RANGE for an index that names no
 * token; an allocator's, or KUKAA_TOKEN where the allocator pushed none, when
 * the token buffer cannot grow (the buffer is gone then). Nothing is filled on
 * failure. A null object answers KULAA_RANGE too.
 */
KU_API uint32_t kukonget(kux *ctx, void *kukh, int32_t tnum, uint32_t *typep, uint32_t *offsetp,
                         uint32_t *lengthp, const unsigned char **tokenpp);

/* One field each, as in kukonget: 0 or null, and its code pushed, when it fails. */
KU_API uint32_t kukongtype(kux *ctx, void *kukh, int32_t tnum);
KU_API uint32_t kukongoffset(kux *ctx, void *kukh, int32_t tnum);
KU_API uint32_t kukonglength(kux *ctx, void *kukh, int32_t tnum);
KU_API const unsigned char *kukongcontents(kux *ctx, void *kukh, int32_t tnum);

/*
 * The hint attached to a token, or null; null for an index that names none.
 * Borrowed: the object's, until the token is deleted. Pushes nothing.
 */
KU_API struct kukn *kukonghint(kux *ctx, void *kukh, int32_t tnum);

/*
 * The value of a token's text: copied, and with `strip` without its quotes.
 *   tkstart   the token's first byte
 *   tklength  its length in bytes; 0 stores the NUL only
 *   tktype    its type; not consulted
 *   bufp      room for tklength + 1 bytes is always enough; bufl + 1 bytes at
 *             least. May be tkstart
 *   bufl      most bytes of the token that are looked at; in multibyte languages
 *             most bytes that are stored, one less when an opening quote goes
 *   strip     non-zero: the opening quote (' or ") and any quote that ends the
 *             token go, doubled opening quotes become one
 * Returns the bytes stored. A NUL follows them in single-byte languages only.
 */
KU_API uint32_t kukongvalue(kux *ctx, const unsigned char *tkstart, uint32_t tklength,
                            uint32_t tktype, char *bufp, uint32_t bufl, int32_t strip);

/* Sets a token's type; nothing happens for an index that names none. */
KU_API void kukonset(kux *ctx, void *kukh, int32_t tnum, uint32_t type);

/* Index of the first token at or after `tnum` with that type; -1 when there is none or tnum < 0. */
KU_API int32_t kukonfind(kux *ctx, void *kukh, int32_t tnum, uint32_t type);

/*
 * The white space after a token.
 *   tnum    below 0: the white space at the start of the text; past the last
 *           token: that after the last
 *   whitep  receives as much of it as fits, not terminated; or null
 *   whitel  room there, in bytes
 * Returns its length in bytes: in single-byte languages the whole length even
 * when not all was copied, in others what was written where `whitep` is given.
 * Without text 0.
 */
KU_API uint32_t kukonwhite(kux *ctx, void *kukh, int32_t tnum, char *whitep, uint32_t whitel);

/*
 * Bytes between a token and the next one, or the end of the text after the last
 * (also for any higher index); before the first for tnum < 0. The text's length
 * when there are no tokens.
 */
KU_API uint32_t kukonwlen(kux *ctx, void *kukh, int32_t tnum);

/* ---- ranges: from token `start` to token `finish`, `endpoints` is KUKO_... ---- */

/* Length of the range's text in bytes; 0 when an index names no token or the range runs backwards. */
KU_API uint32_t kukorlen(kux *ctx, void *kukh, int32_t start, int32_t finish, uint32_t endpoints);

/*
 * Copies the range's text, not terminated, as much as `bufl` bytes take: whole
 * characters in multibyte sets, closed with a shift-in byte where it ends
 * shifted. Returns the bytes copied; 0 without text or buffer.
 */
KU_API uint32_t kukorassemble(kux *ctx, void *kukh, int32_t start, int32_t finish,
                              uint32_t endpoints, char *bufp, uint32_t bufl);

/*
 * Removes the tokens of a range with their hints; the text stays.
 *   start   may be -1 when KUKO_START is not in `endpoints`
 *   finish  may be the number of tokens when KUKO_FINISH is not in `endpoints`
 * A range that is empty or reaches past the first or last token removes nothing. The
 * list's cursor stays on its token, or is nowhere when that one goes.
 * Returns 0, or KULAA_LOCKED, pushed, with nothing removed, for a locked token list.
 */
KU_API uint32_t kukordelete(kux *ctx, void *kukh, int32_t start, int32_t finish,
                            uint32_t endpoints);

#ifdef __cplusplus
}
#endif

#endif
