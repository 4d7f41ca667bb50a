// locale.cpp - languages by name, cursors, writing at a cursor
//
// A cursor is a position, a size and a shift state. Where a character ends the
// text because the size cuts it off, every query answers as at the end, so that a
// loop over a cursor and a bulk scan of the same bytes see the same characters.
//
// A cursor for reading never rests on a shift byte: opening and stepping pass
// over them. One for writing may have memory behind it that nobody has filled
// yet, so nothing is read when it is opened; its queries pass over shift bytes
// in a copy.
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "charset_internal.h"

namespace ku::locale
{

// ---- start ----

struct loader {
    const char *locale_name; // where classes and case come from
};

struct loader_calls {
    kulang *(*fill)(kulang *, kulocglo *, const char *);
};

const loader *start_loader(const void *, const void *)
{
    static constexpr loader only = {"C.UTF-8"};
    return &only;
}

const loader_calls *initialise(const loader *, unsigned, int *error)
{
    static constexpr loader_calls calls = {fill_named};
    if (error != nullptr) *error = 0;
    return &calls;
}

void initialise_area(kulocglo *area, const loader_calls *calls, const void *, const void *)
{
    area->calls_kulocglo = calls;
}

// ---- languages ----

namespace
{

struct codeset {
    const char *name; // lower case without '-' and '_'
    const kucharset &(*set)();
};

constexpr codeset codesets[] = {
    {"utf8", utf8_charset},
    {"iso88591", latin1_charset},
    {"latin1", latin1_charset},
    {"iso885915", latin9_charset},
    {"latin9", latin9_charset},
    {"cp1252", windows1252_charset},
    {"windows1252", windows1252_charset},
    {"sjis", sjis_charset},
    {"shiftjis", sjis_charset},
    {"cp932", sjis_charset},
    {"ms932", sjis_charset},
    {"windows31j", sjis_charset},
    {"eucjp", eucjp_charset},
    {"ujis", eucjp_charset},
    {"iso2022kr", shifted_charset},
};

// Whether the codeset part of `name` is `wanted`; '@' begins a modifier.
bool same_codeset(const char *name, const char *wanted)
{
    for (; *name != 0 && *name != '@'; name++) {
        if (*name == '-' || *name == '_') continue;
        const auto lower = ascii_charset().lower_kucharset[static_cast<byte>(*name)];
        if (*wanted == 0 || lower != static_cast<byte>(*wanted)) return false;
        wanted++;
    }
    return *wanted == 0;
}

} // namespace

const kucharset &find_charset(const char *name)
{
    const char *dot = std::strchr(name, '.');
    for (const codeset &row : codesets) {
        if (same_codeset(dot != nullptr ? dot + 1 : name, row.name)) return row.set();
    }
    return ascii_charset();
}

namespace
{

void fill(kulang *lang, const kucharset &set)
{
    *lang = {};
    if (set.kind_kucharset == kind_bytes) {
        lang->flags_kulang = KULANG_SINGLEBYTE | KULANG_TABLEMAPPED;
    }
    if (set.shifted_kucharset) {
        lang->shiftsensitive_kulang = 1;
        lang->shiftout_kulang = shift_out;
        lang->shiftin_kulang = shift_in;
        lang->shiftedwidth_kulang = 2;
    }
    lang->maxwidth_kulang = set.maxwidth_kucharset;
    lang->expansion_kulang = set.expansion_kucharset;
    lang->classes_kulang = set.classes_kucharset;
    lang->upper_kulang = set.upper_kucharset;
    lang->lower_kulang = set.lower_kucharset;
    lang->fold_kulang = set.fold_kucharset;
    lang->charset_kulang = &set;
}

} // namespace

const char *environment_locale(const char *category)
{
    for (const char *variable : {"LC_ALL", category, "LANG"}) {
        const char *name = std::getenv(variable);
        if (name != nullptr && *name != 0) return name;
    }
    return "C";
}

kulang *fill_current(kulang *storage, kulocglo *area)
{
    const char *name = environment_locale("LC_CTYPE");
    // A locale's name without a codeset says nothing about characters.
    fill_named(storage, area, std::strchr(name, '.') != nullptr ? name : "C");
    storage->collation_kulang =
        find_collation(environment_locale("LC_COLLATE"), *storage->charset_kulang);
    return storage;
}

kulang *fill_named(kulang *storage, kulocglo *, const char *name)
{
    fill(storage, find_charset(name));
    return storage;
}

// ---- cursors ----

namespace
{

std::size_t left(const kucursor &cursor)
{
    return cursor.size_kucursor
           - static_cast<std::size_t>(cursor.position_kucursor - cursor.start_kucursor);
}

void absorb(kucursor &cursor)
{
    if (!cursor.lang_kucursor->charset_kulang->shifted_kucharset) return;
    while (left(cursor) > 0 && is_shift(*cursor.position_kucursor)) {
        cursor.shifted_kucursor = *cursor.position_kucursor == shift_out;
        ++cursor.position_kucursor;
    }
}

// The current character of a cursor that rests on none but characters; value 0
// at the end, width 0 where that is not a NUL.
character read(const kucursor &cursor)
{
    const std::size_t available = left(cursor);
    if (available == 0) return cut;
    if (*cursor.position_kucursor == 0) return {0, 1};
    return decode(cursor.lang_kucursor->charset_kulang->kind_kucharset, cursor.position_kucursor,
                  available, cursor.shifted_kucursor != 0);
}

character read_past_shifts(kucursor cursor)
{
    absorb(cursor);
    return read(cursor);
}

} // namespace

void open(kucursor *cursor, void *bytes, std::uint32_t size, const kulang *lang, kulocglo *,
          cursor_mode mode)
{
    constexpr std::uint32_t to_the_nul = 65535;
    open_exact(cursor, bytes, size == to_the_nul ? SIZE_MAX : size, lang, mode);
}

void open_exact(kucursor *cursor, void *bytes, std::size_t size, const kulang *lang,
                cursor_mode mode)
{
    auto *first = static_cast<unsigned char *>(bytes);
    *cursor = {first, first, size, lang, static_cast<std::uint8_t>(mode), 0};
    if (mode == cursor_mode::read) absorb(*cursor);
}

std::size_t offset(const kucursor &cursor)
{
    return static_cast<std::size_t>(cursor.position_kucursor - cursor.start_kucursor);
}

bool is_single(const kucursor &cursor)
{
    if (plain(cursor)) return true;
    kucursor here = cursor;
    absorb(here);
    if (here.shifted_kucursor != 0) return false;
    const character now = read(here);
    return now.value == 0 || (now.width == 1 && !is_raw(now.value));
}

std::uint32_t width(const kucursor &cursor)
{
    const character now = read_past_shifts(cursor);
    return now.value == 0 ? 0 : now.width;
}

std::uint32_t wide(const kucursor &cursor)
{
    return plain(cursor) ? *cursor.position_kucursor : read_past_shifts(cursor).value;
}

namespace slow
{

unsigned char current(const kucursor &cursor)
{
    kucursor here = cursor;
    absorb(here);
    return read(here).value == 0 ? 0 : *here.position_kucursor;
}

bool past_size(const kucursor &cursor) { return read_past_shifts(cursor).width == 0; }

void step(kucursor &cursor) { next(cursor); }

std::uint32_t next(kucursor &cursor)
{
    absorb(cursor);
    const character now = read(cursor);
    if (now.value == 0) return 0;
    cursor.position_kucursor += now.width;
    absorb(cursor);
    return now.value;
}

bool is_ahead(const kucursor &cursor, std::uint32_t ahead, unsigned char character)
{
    kucursor there = cursor;
    for (; ahead > 0; ahead--) locale::step(there);
    if (character == 0) return locale::current(there) == 0;
    return wide(there) == character;
}

std::uint16_t classes(const kucursor &cursor)
{
    return wide_classes(*cursor.lang_kucursor, wide(cursor));
}

} // namespace slow

// ---- writing at a cursor ----

namespace
{

// Where a target stands: shifted_kucursor.
enum run : std::uint8_t { unshifted, shifted, behind_half };

// Bytes of one value in the shift-sensitive set, shift bytes included. A raw byte
// that would be a character unshifted goes out shifted; a raw half of a pair is
// kept from pairing with the next half by another shift-out between them. So a
// shift byte is written only where any text of these characters needs one.
struct shifted_bytes {
    byte bytes[4];
    std::uint32_t count;
    run after;
};

shifted_bytes encode_shifted(const kucharset &set, std::uint32_t value, run before)
{
    byte own[4];
    const std::uint32_t width = encode(set, value, own);
    const bool raw_byte = is_raw(value), raw_shifted = raw_byte && own[0] < 0x80;
    if (width == 0 || (raw_shifted && is_shift(own[0]))) return {{}, 0, before};

    const bool half = raw_shifted && shifted_set::is_half(own[0]);
    const bool was_shifted = before != unshifted;
    const bool is_shifted = raw_byte && !raw_shifted ? was_shifted : width == 2 || raw_shifted;
    const bool parted = before == behind_half && (width == 2 || half);
    shifted_bytes out = {{}, 0, half ? behind_half : is_shifted ? shifted : unshifted};
    if (is_shifted != was_shifted || parted)
        out.bytes[out.count++] = is_shifted ? shift_out : shift_in;
    for (std::uint32_t i = 0; i < width; i++) out.bytes[out.count++] = own[i];
    return out;
}

std::uint32_t put_bytes(kucursor &target, const byte *bytes, std::uint32_t count, std::size_t room)
{
    if (count == 0 || count > room) return 0;
    std::memcpy(target.position_kucursor, bytes, count);
    target.position_kucursor += count;
    return count;
}

} // namespace

std::uint32_t put(kucursor &target, std::uint32_t value, std::size_t room)
{
    const kucharset &set = *target.lang_kucursor->charset_kulang;
    if (!set.shifted_kucharset) {
        byte bytes[4];
        return put_bytes(target, bytes, encode(set, value, bytes), room);
    }
    const shifted_bytes out = encode_shifted(set, value, static_cast<run>(target.shifted_kucursor));
    if (out.after != unshifted && room <= out.count) return 0;
    const std::uint32_t written = put_bytes(target, out.bytes, out.count, room);
    if (written != 0) target.shifted_kucursor = out.after;
    return written;
}

std::uint32_t copy_character(kucursor &target, kucursor &source, std::size_t room)
{
    const std::uint32_t value = wide(source);
    const std::uint32_t written = value == 0 ? 0 : put(target, value, room);
    if (written != 0) step(source);
    return written;
}

std::uint32_t copy_text(kucursor &target, const char *text, std::size_t room)
{
    kucursor source;
    open_exact(&source, const_cast<char *>(text), SIZE_MAX, target.lang_kucursor,
               cursor_mode::read);
    std::uint32_t total = 0;
    while (const std::uint32_t written = copy_character(target, source, room - total)) {
        total += written;
    }
    return total;
}

std::uint32_t close_shift(kucursor &target)
{
    if (target.shifted_kucursor == 0) return 0;
    *target.position_kucursor++ = shift_in;
    target.shifted_kucursor = 0;
    return 1;
}

} // namespace ku::locale
