/*
 * kulang.h - language handle, locale global area and string cursor as plain records
 *
 * The context embeds a language handle and a locale global area; scan contexts
 * embed a string cursor. Clients pass them on and may read them; the locale
 * layer fills them. All three are plain data: a cursor may be copied at will,
 * a language handle must outlive every cursor opened with it.
 */
#ifndef KULANG_H
#define KULANG_H

#include <stddef.h>
#include <stdint.h>

/* Bits of flags_kulang. */
#define KULANG_SINGLEBYTE 0x200u  /* every character is one byte; wide units are 1 byte */
#define KULANG_TABLEMAPPED 0x010u /* case through the two byte tables */

/* Bits of a class word, one word per byte value. */
#define KULANG_TRAIL 0x0003u  /* further bytes of a character that begins with this byte */
#define KULANG_UPPER 0x0004u  /* upper-case letter */
#define KULANG_LOWER 0x0008u  /* lower-case letter */
#define KULANG_DIGIT 0x0020u  /* decimal digit */
#define KULANG_SPACE 0x0040u  /* white space */
#define KULANG_PUNCT 0x0080u  /* punctuation */
#define KULANG_CNTRL 0x0100u  /* control character */
#define KULANG_XDIGIT 0x0200u /* hexadecimal digit */
#define KULANG_BLANK 0x0400u  /* printable blank */
#define KULANG_LETTER 0x0800u /* letter */

/* A byte that cannot begin or continue a character is one character with this
 * wide value plus the byte, and is written back as that byte. */
#define KULANG_RAWBYTE 0x80000000u

struct kucharset; /* the operations of one character set, private to the locale layer */

/* Language handle. */
typedef struct kulang {
    uint32_t flags_kulang;          /* KULANG_SINGLEBYTE, KULANG_TABLEMAPPED */
    uint32_t shiftsensitive_kulang; /* 1: characters depend on a shift state; 0: not */
    uint8_t shiftout_kulang;        /* byte that begins a shifted run; 0 when not shift-sensitive */
    uint8_t shiftin_kulang;         /* byte that ends a shifted run; 0 when not shift-sensitive */
    uint8_t shiftedwidth_kulang;    /* bytes of a character inside a shifted run */
    uint8_t maxwidth_kulang;        /* most bytes of one character, shift bytes not counted */
    uint32_t expansion_kulang;      /* most times a text can grow in bytes by case mapping */
    const uint16_t *classes_kulang; /* 256 class words, indexed by byte (single-byte sets: the
                                        character; others: of the bytes that are characters by
                                        themselves, with KULANG_TRAIL of every lead byte) */
    const uint8_t *upper_kulang;    /* 256 bytes: upper case; ASCII only in multibyte sets */
    const uint8_t *lower_kulang;    /* 256 bytes: lower case; ASCII only in multibyte sets */
    const uint8_t *fold_kulang;     /* 256 bytes: case folding; ASCII only in multibyte sets */
    const struct kucharset *charset_kulang; /* operations of the character set */
    const void *collation_kulang;           /* order of texts as data; null: by character value */
} kulang;

/* Locale global area: the layer's working state, passed beside the handle. */
typedef struct kulocglo {
    const void *calls_kulocglo; /* the loader's table, set at initialisation; never changes */
} kulocglo;

/*
 * String cursor over a text. Its current byte is 0 at the end of the text: at a
 * NUL byte or when size_kucursor bytes have been passed. In shift-sensitive
 * sets a cursor for reading never rests on a shift byte: opening and stepping
 * absorb it. One opened for writing may, until it is stepped, because the bytes
 * behind it need not be filled yet; what is asked of it skips them all the same.
 */
typedef struct kucursor {
    unsigned char *start_kucursor;    /* first byte of the text */
    unsigned char *position_kucursor; /* the current character's first byte */
    size_t size_kucursor;        /* bytes from start that belong to the text; SIZE_MAX: no limit */
    const kulang *lang_kucursor; /* the text's language; borrowed */
    uint8_t mode_kucursor;       /* 0 reading, 1 writing */
    uint8_t shifted_kucursor;    /* not 0 while inside a shifted run; 2 behind half a pair just
                                    written, 1 otherwise */
} kucursor;

#endif
