// locale.h - the locale runtime: languages, character sets, cursors, classes, case
//
// What the library needs of a locale library, and nothing more. A language
// handle names a character set; every question about characters goes through
// it. Supported: ASCII, ISO 8859-1, ISO 8859-15, Windows-1252 (single-byte);
// UTF-8; Shift_JIS and EUC-JP; ASCII with SO/SI-shifted KS C 5601 pairs.
//
// A wide value is the byte (single-byte sets), the code point (UTF-8), or
// lead x 256 + trail (EUC-JP's three-byte characters: the three bytes, the first
// one highest). A byte that cannot begin or continue a character is one
// character, KULANG_RAWBYTE + byte. No scan runs past its limit, none loops.
// Tables are built once, thread-safely, and never change; nothing allocates.
//
// A character that is cut off. By a NUL: the text really ends there, each byte
// left over is a raw-byte character. By the size of a cursor or the limit of a
// scan: more bytes may follow, so the text ends before that character; cursors
// answer there as at any end. By the length of a whole text (lower_copy,
// compare_text and their like): nothing follows, raw-byte characters again.
//
// In a shift-sensitive set only pairs of bytes 0x21 to 0x7E are characters in a
// shifted run; any other byte there (a newline, a blank, half a pair) is raw.
// Shift bytes are never characters; two in a row, or one that changes nothing,
// are passed over like any other.
#ifndef PORT_LOCALE_LOCALE_H
#define PORT_LOCALE_LOCALE_H

#include <cstddef>
#include <cstdint>

#include "kulang.h"

namespace ku::locale
{

// ---- start ----

struct loader;       // the data loader; constant, owns nothing
struct loader_calls; // its table of callbacks; constant

const loader *start_loader(const void *, const void *);
const loader_calls *initialise(const loader *from, unsigned mode, int *error);
void initialise_area(kulocglo *area, const loader_calls *calls, const void *, const void *);

// Fills `storage` for the language of the environment: LC_ALL, LC_CTYPE, LANG,
// the first that is set and not empty; the codeset after the '.' decides, none,
// "C" or "POSIX" is single-byte ASCII. Texts as data are ordered as the locale that
// LC_ALL, LC_COLLATE, LANG names has it, if it is installed, has an order of its own
// and the language's character set. Returns `storage`; cannot fail.
kulang *fill_current(kulang *storage, kulocglo *area);

// The same for a locale name such as "ja_JP.SJIS" or a codeset alone ("utf8",
// "ISO-8859-15", "CP932", "ISO-2022-KR"); case, '-' and '_' do not count. An
// unknown codeset is single-byte ASCII. Texts as data are ordered by character value.
kulang *fill_named(kulang *storage, kulocglo *area, const char *name);

inline bool single_byte(const kulang &lang) { return (lang.flags_kulang & KULANG_SINGLEBYTE) != 0; }
inline bool table_mapped(const kulang &lang)
{
    return (lang.flags_kulang & KULANG_TABLEMAPPED) != 0;
}

// ---- cursors ----

enum class cursor_mode : std::uint8_t { read = 0, write = 1 };

// Opens a cursor on `size` bytes. open: a size of 65535 means up to the NUL;
// open_exact: the size is what it says, SIZE_MAX for no limit.
void open(kucursor *cursor, void *bytes, std::uint32_t size, const kulang *lang, kulocglo *area,
          cursor_mode mode);
void open_exact(kucursor *cursor, void *bytes, std::size_t size, const kulang *lang,
                cursor_mode mode);

inline unsigned char current(const kucursor &cursor); // current byte; 0 at the end
inline bool past_size(const kucursor &cursor);        // no whole character is left before the size
std::size_t
offset(const kucursor &cursor);         // bytes from start to the position, shift bytes included
bool is_single(const kucursor &cursor); // one byte, not shifted, not raw: the wide value
std::uint32_t width(const kucursor &cursor); // bytes of the current character without shift bytes;
                                             // 0 at the end
std::uint32_t wide(const kucursor &cursor);  // wide value of the current character; 0 at the end
inline void step(kucursor &cursor);          // to the next character; nothing at the end

// Reads the current character and steps: its wide value, 0 at the end. What
// scanning loops call; an ASCII byte costs a table look-up.
inline std::uint32_t next(kucursor &cursor);

// The character `ahead` places after the current one is the single byte `character`;
// 0 asks whether the text ends there or before.
inline bool is_ahead(const kucursor &cursor, std::uint32_t ahead, unsigned char character);

// ---- writing at a cursor: `room` is what is left of the target in bytes ----

// Writes one wide value, with the shift byte it needs first (counted), and steps
// past it. In a shift-sensitive set one byte of `room` stays free while shifted,
// for the closing byte. Returns the bytes written; 0 when it does not fit or the
// value has no character (0 has none), with nothing written. A raw byte goes out
// in the shift state in which it is raw.
std::uint32_t put(kucursor &target, std::uint32_t value, std::size_t room);

// Copies the source's current character, whole, and steps both. Bytes written, 0 on failure.
std::uint32_t copy_character(kucursor &target, kucursor &source, std::size_t room);

// Copies a NUL-terminated text in the target's language, cut at a whole character. Bytes written.
std::uint32_t copy_text(kucursor &target, const char *text, std::size_t room);

// Writes the shift-in byte if the target is shifted. Bytes written: 0 or 1.
std::uint32_t close_shift(kucursor &target);

// ---- bulk scans: no NUL is looked past, `limit` bytes at most (SIZE_MAX: no limit) ----

struct extent {
    std::size_t bytes;      // up to the NUL, the limit, or a character that the limit would split
    std::size_t characters; // in those bytes
};
extent measure(const kulang &lang, const void *bytes, std::size_t limit);

// Byte offset at which character `index` begins in `limit` bytes, shift bytes before it
// passed; of the end when there are fewer.
std::size_t offset_of(const kulang &lang, const void *bytes, std::size_t limit, std::size_t index);

// ---- bytes in bulk; texts of n bytes, embedded NULs are ordinary bytes ----

// Case of single-byte texts, n bytes to n bytes; target may be the source.
void bytes_upper(const kulang &lang, void *target, const void *source, std::size_t n);
void bytes_lower(const kulang &lang, void *target, const void *source, std::size_t n);
void bytes_capitals(const kulang &lang, void *target, const void *source, std::size_t n);

// Order of n bytes by value, or without case by the folding table: below, at or above 0.
int bytes_compare(const void *a, const void *b, std::size_t n);
int bytes_compare_nocase(const kulang &lang, const void *a, const void *b, std::size_t n);

// ---- whole texts in any set, with byte lengths ----

// Lower-case copy, character by character, one character for one: never splits
// one and keeps malformed bytes. `room` at least expansion x n. Returns bytes written.
std::size_t lower_copy(const kulang &lang, void *target, std::size_t room, const void *source,
                       std::size_t n);
std::size_t upper_copy(const kulang &lang, void *target, std::size_t room, const void *source,
                       std::size_t n);

// Order by character value, or by the values without case (upper case of lower
// case, but dotted I and dotless i stay themselves; byte sets: their folding
// table); a proper prefix comes first. Below, at or above 0.
int compare_text(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn);
int compare_text_nocase(const kulang &lang, const void *a, std::size_t an, const void *b,
                        std::size_t bn);

// Order of texts as data: that of the language's collation, else by character value.
// Below, at or above 0; every byte counts, NULs too. A collation may call different
// texts equal, and orders long texts a piece at a time, pieces of about 2000 bytes.
int collate(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn);

// What two texts begin with in common, by value or without case, as far as that
// is quick to see: it may end anywhere before the first difference, and does
// before a NUL (behind which nothing is read), a malformed character and the last
// few bytes. UTF-8 only; nothing in other sets.
struct common {
    std::size_t a_bytes;
    std::size_t b_bytes;
    std::size_t characters;
};
common pass_common(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn,
                   bool nocase);

// Appends source (NUL-terminated, or `n` bytes) to a NUL-terminated target that has room;
// joins shifted runs. Returns the target's new length in bytes.
std::size_t concatenate(const kulang &lang, char *target, const char *source);
std::size_t concatenate(const kulang &lang, char *target, const void *source, std::size_t n);
// The length that it would return, for a target of `length` bytes.
std::size_t concatenated(const kulang &lang, const char *target, std::size_t length,
                         const void *source, std::size_t n);

// Decimal digits at the start of a text: the value (false when it passes 32 bits or
// there is no digit) and how many bytes were used.
bool text_to_number(const char *text, std::uint32_t *value, std::size_t *used);

// Bytes that can stand alone: begin and end unshifted in a shift-sensitive set (else
// always true). `shifted` tells whether the run before `bytes` is shifted.
bool stands_alone(const kulang &lang, const void *bytes, std::size_t n, bool shifted);

// ---- single wide values ----

std::uint32_t wide_upper(const kulang &lang, std::uint32_t value);
std::uint32_t wide_lower(const kulang &lang, std::uint32_t value);
int wide_compare_nocase(const kulang &lang, std::uint32_t a, std::uint32_t b);

// Class word of a wide value: KULANG_UPPER ... KULANG_LETTER, 0 where it has no class.
std::uint16_t wide_classes(const kulang &lang, std::uint32_t value);

// Class word of a byte: kulang's table. Further bytes: & KULANG_TRAIL.
inline std::uint16_t byte_classes(const kulang &lang, unsigned char byte)
{
    return lang.classes_kulang[byte];
}

// Class word of the current character.
inline std::uint16_t classes(const kucursor &cursor);

// ---- what the inline operations stand on ----

namespace slow
{ // the same for any byte
unsigned char current(const kucursor &cursor);
bool past_size(const kucursor &cursor);
void step(kucursor &cursor);
std::uint32_t next(kucursor &cursor);
bool is_ahead(const kucursor &cursor, std::uint32_t ahead, unsigned char character);
std::uint16_t classes(const kucursor &cursor);
} // namespace slow

// The byte `ahead` bytes on lies in the text and is a character by itself,
// with no shift byte to be minded before or after it.
inline bool plain(const kucursor &cursor, std::size_t ahead = 0);

} // namespace ku::locale

struct kucharset {
    std::uint8_t plain_kucharset[256]; // 1: the byte is a character by itself; never the NUL, and
                                       // none in a shift-sensitive set
    std::uint16_t classes_kucharset[256];
    std::uint8_t upper_kucharset[256];
    std::uint8_t lower_kucharset[256];
    std::uint8_t fold_kucharset[256];
    std::uint8_t kind_kucharset;      // decoding, see charset_internal.h
    std::uint8_t maxwidth_kucharset;  // bytes
    std::uint8_t expansion_kucharset; // times
    bool shifted_kucharset;           // shift-sensitive
};

inline bool ku::locale::plain(const kucursor &cursor, std::size_t ahead)
{
    const auto passed = static_cast<std::size_t>(cursor.position_kucursor - cursor.start_kucursor);
    return cursor.size_kucursor - passed > ahead
           && cursor.lang_kucursor->charset_kulang->plain_kucharset[cursor.position_kucursor[ahead]]
                  != 0;
}

inline unsigned char ku::locale::current(const kucursor &cursor)
{
    return plain(cursor) ? *cursor.position_kucursor : slow::current(cursor);
}

inline bool ku::locale::past_size(const kucursor &cursor)
{
    return !plain(cursor) && slow::past_size(cursor);
}

inline void ku::locale::step(kucursor &cursor)
{
    if (plain(cursor))
        ++cursor.position_kucursor;
    else
        slow::step(cursor);
}

inline std::uint32_t ku::locale::next(kucursor &cursor)
{
    return plain(cursor) ? *cursor.position_kucursor++ : slow::next(cursor);
}

inline bool ku::locale::is_ahead(const kucursor &cursor, std::uint32_t ahead,
                                 unsigned char character)
{
    if (ahead == 1 && plain(cursor) && plain(cursor, 1))
        return cursor.position_kucursor[1] == character;
    return slow::is_ahead(cursor, ahead, character);
}

inline std::uint16_t ku::locale::classes(const kucursor &cursor)
{
    if (!plain(cursor)) return slow::classes(cursor);
    return cursor.lang_kucursor->classes_kulang[*cursor.position_kucursor];
}

#endif
