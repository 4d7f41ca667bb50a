// text.cpp - scans, case, comparison and joining of whole texts
//
// Every loop is written once, over a set's decode, and made for each set by the
// compiler. In front of the multibyte loops stand runs of ASCII, eight bytes at
// a time: most text of most users. The shift-sensitive set goes by the cursor's
// rules, one character at a time; nobody has megabytes of it.
#include <cstring>

#include "charset_internal.h"

namespace ku::locale
{

namespace
{

const byte *bytes_of(const void *text) { return static_cast<const byte *>(text); }

// ---- eight bytes at a time ----

constexpr std::uint64_t every = 0x0101010101010101u, high_bits = 0x80 * every;

std::uint64_t load(const byte *at)
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// ---- calls a function with the set of a language ----

template <typename Set> struct whole {
    // For texts that end where they end: what is cut off is raw bytes.
    static character decode(const byte *at, std::size_t left)
    {
        const character now = Set::decode(at, left);
        return now.width != 0 ? now : raw(*at);
    }
};

// A text of the shift-sensitive set, character by character, NULs ordinary.
struct shifted_reader {
    const byte *at;
    std::size_t left;
    bool shifted = false;

    void absorb()
    {
        for (; left > 0 && is_shift(*at); at++, left--) shifted = *at == shift_out;
    }
    bool next(character *now)
    {
        absorb();
        if (left == 0) return false;
        *now = shifted_set::decode(at, left, shifted);
        if (now->width == 0) *now = raw(*at);
        at += now->width;
        left -= now->width;
        return true;
    }
};

template <typename Set> struct reader {
    const byte *at;
    std::size_t left;

    bool next(character *now)
    {
        if (left == 0) return false;
        *now = whole<Set>::decode(at, left);
        at += now->width;
        left -= now->width;
        return true;
    }
};

// ---- scans ----

// Up to `most` characters of n bytes, none of them a NUL.
template <typename Set> extent scan(const byte *text, std::size_t n, bool ends, std::size_t most)
{
    std::size_t at = 0, characters = 0;
    while (at < n && characters < most) {
        if (n - at >= 8 && most - characters >= 8 && (load(text + at) & high_bits) == 0) {
            at += 8;
            characters += 8;
            continue;
        }
        const character now = Set::decode(text + at, n - at);
        if (now.width == 0 && !ends) break;
        at += now.width != 0 ? now.width : 1;
        characters++;
    }
    return {at, characters};
}

extent scan_shifted(const kulang &lang, const void *bytes, std::size_t limit, std::size_t most)
{
    kucursor cursor;
    open_exact(&cursor, const_cast<void *>(bytes), limit, &lang, cursor_mode::read);
    std::size_t characters = 0;
    while (characters < most && next(cursor) != 0) characters++;
    return {offset(cursor), characters};
}

extent scan_up_to(const kulang &lang, const void *bytes, std::size_t limit, std::size_t most)
{
    const std::uint8_t kind = lang.charset_kulang->kind_kucharset;
    if (kind == kind_shifted) return scan_shifted(lang, bytes, limit, most);
    // No further than the characters can reach.
    const std::size_t reach = most < SIZE_MAX / 4 ? most * lang.maxwidth_kulang : SIZE_MAX;
    if (limit > reach) limit = reach;
    const byte *text = bytes_of(bytes);
    const std::size_t n = limit == 0 ? 0 : strnlen(static_cast<const char *>(bytes), limit);
    switch (kind) {
    case kind_utf8: return scan<utf8_set>(text, n, n < limit, most);
    case kind_sjis: return scan<sjis_set>(text, n, n < limit, most);
    case kind_eucjp: return scan<eucjp_set>(text, n, n < limit, most);
    default: return {n, n};
    }
}

} // namespace

extent measure(const kulang &lang, const void *bytes, std::size_t limit)
{
    return scan_up_to(lang, bytes, limit, SIZE_MAX);
}

std::size_t offset_of(const kulang &lang, const void *bytes, std::size_t limit, std::size_t index)
{
    return scan_up_to(lang, bytes, limit, index).bytes;
}

// ---- bytes in bulk ----

namespace
{

void map_bytes(const std::uint8_t *table, void *target, const void *source, std::size_t n)
{
    const byte *from = bytes_of(source);
    byte *to = static_cast<byte *>(target);
    for (std::size_t i = 0; i < n; i++) to[i] = table[from[i]];
}

int sign(bool less) { return less ? -1 : 1; }

} // namespace

void bytes_upper(const kulang &lang, void *target, const void *source, std::size_t n)
{
    map_bytes(lang.upper_kulang, target, source, n);
}

void bytes_lower(const kulang &lang, void *target, const void *source, std::size_t n)
{
    map_bytes(lang.lower_kulang, target, source, n);
}

void bytes_capitals(const kulang &lang, void *target, const void *source, std::size_t n)
{
    const byte *from = bytes_of(source);
    byte *to = static_cast<byte *>(target);
    bool inside = false; // a word: a run of letters
    for (std::size_t i = 0; i < n; i++) {
        const byte b = from[i];
        const bool letter = (lang.classes_kulang[b] & KULANG_LETTER) != 0;
        to[i] = !letter ? b : inside ? lang.lower_kulang[b] : lang.upper_kulang[b];
        inside = letter;
    }
}

int bytes_compare(const void *a, const void *b, std::size_t n)
{
    return n == 0 ? 0 : std::memcmp(a, b, n);
}

int bytes_compare_nocase(const kulang &lang, const void *a, const void *b, std::size_t n)
{
    const byte *first = bytes_of(a), *second = bytes_of(b);
    for (std::size_t i = 0; i < n; i++) {
        const int difference = lang.fold_kulang[first[i]] - lang.fold_kulang[second[i]];
        if (difference != 0) return difference;
    }
    return 0;
}

// ---- single wide values ----

std::uint32_t wide_upper(const kulang &lang, std::uint32_t value)
{
    if (value < 0x80 || single_byte(lang)) {
        return value < 0x100 ? lang.upper_kulang[value] : value;
    }
    return value + traits_of(*lang.charset_kulang, value).upper;
}

std::uint32_t wide_lower(const kulang &lang, std::uint32_t value)
{
    if (value < 0x80 || single_byte(lang)) {
        return value < 0x100 ? lang.lower_kulang[value] : value;
    }
    return value + traits_of(*lang.charset_kulang, value).lower;
}

std::uint16_t wide_classes(const kulang &lang, std::uint32_t value)
{
    if (value < 0x80 || single_byte(lang)) {
        return value < 0x100 ? lang.classes_kulang[value] : std::uint16_t{0};
    }
    return traits_of(*lang.charset_kulang, value).classes;
}

namespace
{

std::uint32_t wide_fold(const kulang &lang, std::uint32_t value)
{
    if (value < 0x80 || single_byte(lang)) return value < 0x100 ? lang.fold_kulang[value] : value;
    return value + traits_of(*lang.charset_kulang, value).fold;
}

} // namespace

int wide_compare_nocase(const kulang &lang, std::uint32_t a, std::uint32_t b)
{
    const std::uint32_t first = wide_fold(lang, a), second = wide_fold(lang, b);
    return first == second ? 0 : sign(first < second);
}

// ---- case of whole texts ----

namespace
{

// Bit 7 of every byte that is a letter from `first` to `last`, of eight ASCII bytes.
std::uint64_t letters(std::uint64_t word, byte first, byte last)
{
    const std::uint64_t from_first = word + (0x80u - first) * every;
    const std::uint64_t past_last = word + (0x7Fu - last) * every;
    return (from_first ^ past_last) & high_bits;
}

struct to_lower {
    static std::uint64_t ascii(std::uint64_t word) { return word | letters(word, 'A', 'Z') >> 2; }
    static std::uint32_t wide(const kulang &lang, std::uint32_t v) { return wide_lower(lang, v); }
};

struct to_upper {
    static std::uint64_t ascii(std::uint64_t word) { return word ^ letters(word, 'a', 'z') >> 2; }
    static std::uint32_t wide(const kulang &lang, std::uint32_t v) { return wide_upper(lang, v); }
};

template <typename Set, typename Case>
std::size_t map_text(const kulang &lang, byte *to, std::size_t room, const byte *from,
                     std::size_t n)
{
    std::size_t at = 0, written = 0;
    while (at < n) {
        if (n - at >= 8 && room - written >= 8) {
            const std::uint64_t word = load(from + at);
            if ((word & high_bits) == 0) {
                const std::uint64_t mapped = Case::ascii(word);
                std::memcpy(to + written, &mapped, sizeof mapped);
                at += 8;
                written += 8;
                continue;
            }
        }
        const character now = whole<Set>::decode(from + at, n - at);
        byte bytes[4] = {from[at]};
        const std::uint32_t mapped = Case::wide(lang, now.value);
        const std::uint32_t width = mapped == 0 ? 1 : encode(*lang.charset_kulang, mapped, bytes);
        if (width > room - written) break;
        std::memcpy(to + written, bytes, width);
        at += now.width;
        written += width;
    }
    return written;
}

// Shift bytes are copied as they come; no mapping changes a width.
template <typename Case>
std::size_t map_shifted(const kulang &lang, byte *to, std::size_t room, const byte *from,
                        std::size_t n)
{
    if (n > room) n = room;
    if (n != 0) std::memcpy(to, from, n);
    shifted_reader source = {from, n};
    for (character now = {}; source.next(&now);) {
        if (now.value == 0 || is_raw(now.value)) continue;
        encode(*lang.charset_kulang, Case::wide(lang, now.value),
               to + (source.at - from) - now.width);
    }
    return n;
}

template <typename Case>
std::size_t map_any(const kulang &lang, void *target, std::size_t room, const void *source,
                    std::size_t n, const std::uint8_t *table)
{
    byte *to = static_cast<byte *>(target);
    const byte *from = bytes_of(source);
    switch (lang.charset_kulang->kind_kucharset) {
    case kind_utf8: return map_text<utf8_set, Case>(lang, to, room, from, n);
    case kind_sjis: return map_text<sjis_set, Case>(lang, to, room, from, n);
    case kind_eucjp: return map_text<eucjp_set, Case>(lang, to, room, from, n);
    case kind_shifted: return map_shifted<Case>(lang, to, room, from, n);
    default:
        if (n > room) n = room;
        map_bytes(table, target, source, n);
        return n;
    }
}

} // namespace

std::size_t lower_copy(const kulang &lang, void *target, std::size_t room, const void *source,
                       std::size_t n)
{
    return map_any<to_lower>(lang, target, room, source, n, lang.lower_kulang);
}

std::size_t upper_copy(const kulang &lang, void *target, std::size_t room, const void *source,
                       std::size_t n)
{
    return map_any<to_upper>(lang, target, room, source, n, lang.upper_kulang);
}

// ---- order of whole texts ----

namespace
{

struct by_value {
    static std::uint32_t of(const kulang &, std::uint32_t value) { return value; }
};

struct by_folding {
    static std::uint32_t of(const kulang &lang, std::uint32_t value)
    {
        return wide_fold(lang, value);
    }
};

template <typename Order, typename Reader>
int compare_readers(const kulang &lang, Reader first, Reader second)
{
    for (;;) {
        character a = {}, b = {};
        const bool more_a = first.next(&a), more_b = second.next(&b);
        if (!more_a || !more_b) return more_a == more_b ? 0 : sign(!more_a);
        if (a.value == b.value) continue;
        const std::uint32_t left = Order::of(lang, a.value), right = Order::of(lang, b.value);
        if (left != right) return sign(left < right);
    }
}

int longer(int order, std::size_t an, std::size_t bn)
{
    return order != 0 || an == bn ? order : sign(an < bn);
}

template <typename Order>
int compare_any(const kulang &lang, const byte *a, std::size_t an, const byte *b, std::size_t bn)
{
    switch (lang.charset_kulang->kind_kucharset) {
    case kind_utf8:
        return compare_readers<Order>(lang, reader<utf8_set>{a, an}, reader<utf8_set>{b, bn});
    case kind_sjis:
        return compare_readers<Order>(lang, reader<sjis_set>{a, an}, reader<sjis_set>{b, bn});
    case kind_eucjp:
        return compare_readers<Order>(lang, reader<eucjp_set>{a, an}, reader<eucjp_set>{b, bn});
    default: return compare_readers<Order>(lang, shifted_reader{a, an}, shifted_reader{b, bn});
    }
}

} // namespace

int compare_text(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn)
{
    if (single_byte(lang)) return longer(bytes_compare(a, b, an < bn ? an : bn), an, bn);
    return compare_any<by_value>(lang, bytes_of(a), an, bytes_of(b), bn);
}

int compare_text_nocase(const kulang &lang, const void *a, std::size_t an, const void *b,
                        std::size_t bn)
{
    if (single_byte(lang)) {
        return longer(bytes_compare_nocase(lang, a, b, an < bn ? an : bn), an, bn);
    }
    return compare_any<by_folding>(lang, bytes_of(a), an, bytes_of(b), bn);
}

// ---- joining ----

namespace
{

// How a text of the shift-sensitive set ends.
struct ending {
    bool shifted;  // no shift-in byte at the end
    bool joinable; // a pair and one shift-in byte: a shifted text can go on from there
};

ending ending_of(const byte *text, std::size_t n)
{
    shifted_reader whole_text = {text, n};
    bool pair = false;
    const byte *last = text;
    for (character now = {}; whole_text.next(&now);) {
        pair = now.width == 2;
        last = whole_text.at;
    }
    return {whole_text.shifted, pair && text + n - last == 1 && *last == shift_in};
}

} // namespace

std::size_t concatenate(const kulang &lang, char *target, const char *source)
{
    return concatenate(lang, target, source, std::strlen(source));
}

std::size_t concatenate(const kulang &lang, char *target, const void *source, std::size_t n)
{
    std::size_t length = std::strlen(target);
    const byte *from = bytes_of(source);
    if (n != 0 && lang.shiftsensitive_kulang != 0) {
        const ending end = ending_of(bytes_of(target), length);
        if (end.joinable && *from == shift_out) {
            length--;
            from++;
            n--;
        } else if (end.shifted && !is_shift(*from)) {
            target[length++] = static_cast<char>(shift_in);
        }
    }
    if (n != 0) std::memmove(target + length, from, n);
    target[length + n] = 0;
    return length + n;
}

bool text_to_number(const char *text, std::uint32_t *value, std::size_t *used)
{
    std::uint64_t number = 0;
    std::size_t digits = 0;
    for (; text[digits] >= '0' && text[digits] <= '9'; digits++) {
        if (number <= UINT32_MAX) number = number * 10 + static_cast<unsigned>(text[digits] - '0');
    }
    *used = digits;
    *value = static_cast<std::uint32_t>(number);
    return digits != 0 && number <= UINT32_MAX;
}

bool stands_alone(const kulang &lang, const void *bytes, std::size_t n, bool shifted)
{
    if (lang.shiftsensitive_kulang == 0 || n == 0) return true;
    if (shifted && !is_shift(*bytes_of(bytes))) return false;
    shifted_reader text = {bytes_of(bytes), n};
    for (character now = {}; text.next(&now);) {
    }
    return !text.shifted;
}

} // namespace ku::locale
