// text.cpp - scans, case, comparison and joining of whole texts
//
// Every loop is written once, over a set's decode, and made for each set by the
// compiler. In front of the multibyte loops stand runs of ASCII, eight bytes at
// a time: most text of most users. UTF-8 has more: counting checks 64 bytes at
// once, and case of two-byte characters is one look-up. The shift-sensitive set
// goes by the cursor's rules, one character at a time; nobody has megabytes of it.
//
// Words of eight bytes are taken apart from the low end: little-endian hosts only.
#include <bit>
#include <cstring>
#include <type_traits>

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

// How many of the eight bytes, from the first on, are ASCII.
std::size_t ascii_prefix(std::uint64_t word)
{
    return static_cast<std::size_t>(std::countr_zero(word & high_bits)) / 8;
}

// Bit 7 of every byte that is a letter from `first` to `last`, of eight ASCII bytes.
std::uint64_t letters(std::uint64_t word, byte first, byte last)
{
    const std::uint64_t from_first = word + (0x80u - first) * every;
    const std::uint64_t past_last = word + (0x7Fu - last) * every;
    return (from_first ^ past_last) & high_bits;
}

std::uint64_t ascii_lower(std::uint64_t word) { return word | letters(word, 'A', 'Z') >> 2; }
std::uint64_t ascii_upper(std::uint64_t word) { return word ^ letters(word, 'a', 'z') >> 2; }

// ---- reading whole texts ----

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

constexpr std::size_t block_bytes = 64;

bool ascii_block(const byte *at)
{
    std::uint64_t any = 0;
    for (std::size_t i = 0; i < block_bytes; i += 8) any |= load(at + i);
    return (any & high_bits) == 0;
}

// A character that begins in the last three bytes before `at` and goes on there: how
// many bytes back; else 0.
std::size_t unfinished(const byte *at)
{
    if (at[-1] >= 0xC0) return 1;
    if (at[-2] >= 0xE0) return 2;
    return at[-3] >= 0xF0 ? 3 : 0;
}

// 64 bytes of UTF-8 at once: whether every byte is what the three before it call
// for, and how many characters begin among them. The last may go on past the end.
bool well_formed_block(const byte *at, std::size_t *begun)
{
    if (ascii_block(at) && unfinished(at) == 0) {
        *begun = block_bytes;
        return true;
    }
    typedef byte lanes __attribute__((vector_size(16)));
    lanes wrong = {}, beginnings = {};
    for (std::size_t i = 0; i < block_bytes; i += sizeof(lanes)) {
        lanes now, before, second, third; // the byte, and those 1, 2 and 3 before it
        std::memcpy(&now, at + i, sizeof now);
        std::memcpy(&before, at + i - 1, sizeof before);
        std::memcpy(&second, at + i - 2, sizeof second);
        std::memcpy(&third, at + i - 3, sizeof third);
        const lanes further = reinterpret_cast<lanes>((now & 0xC0) == 0x80);
        const lanes below_90 = reinterpret_cast<lanes>(now < 0x90);
        const lanes below_a0 = reinterpret_cast<lanes>(now < 0xA0);
        wrong |= further
                 ^ reinterpret_cast<lanes>((before >= 0xC0) | (second >= 0xE0) | (third >= 0xF0));
        wrong |= reinterpret_cast<lanes>(((now & 0xFE) == 0xC0) | (now >= 0xF5));
        wrong |= reinterpret_cast<lanes>(before == 0xE0) & below_a0;  // overlong
        wrong |= reinterpret_cast<lanes>(before == 0xED) & ~below_a0; // surrogates
        wrong |= reinterpret_cast<lanes>(before == 0xF0) & below_90;
        wrong |= reinterpret_cast<lanes>(before == 0xF4) & ~below_90; // above U+10FFFF
        beginnings += ~further & 1;
    }
    std::uint64_t halves[2];
    std::memcpy(halves, &wrong, sizeof halves);
    if ((halves[0] | halves[1]) != 0) return false;
    // Each lane counts to 4 at most: the sum of 16 fits the top byte.
    std::memcpy(halves, &beginnings, sizeof halves);
    *begun = static_cast<std::size_t>((halves[0] + halves[1]) * every >> 56);
    return true;
}

// Counts whole blocks from a character on that has three good bytes before it, and
// ends at a character again.
extent scan_blocks(const byte *text, std::size_t n, extent from, std::size_t most)
{
    extent done = from;
    for (std::size_t begun; n - done.bytes >= block_bytes && most - done.characters >= block_bytes
                            && well_formed_block(text + done.bytes, &begun);) {
        done.bytes += block_bytes;
        done.characters += begun;
    }
    if (done.bytes == from.bytes) return from;
    const std::size_t back = unfinished(text + done.bytes);
    return {done.bytes - back, done.characters - (back != 0 ? 1 : 0)};
}

// Up to `most` characters of n bytes, none of them a NUL.
template <typename Set> extent scan(const byte *text, std::size_t n, bool ends, std::size_t most)
{
    constexpr std::size_t enough = 3; // good bytes in front of a block
    extent done = {0, 0};
    std::size_t blocks_from = enough;
    while (done.bytes < n && done.characters < most) {
        if (std::is_same_v<Set, utf8_set> && done.bytes >= blocks_from) {
            done = scan_blocks(text, n, done, most);
            blocks_from = done.bytes + block_bytes; // past what is malformed, or the end is near
            continue;
        }
        const std::size_t left = n - done.bytes;
        if (left >= 8 && most - done.characters >= 8) {
            const std::size_t run = ascii_prefix(load(text + done.bytes));
            done.bytes += run;
            done.characters += run;
            if (run != 0) continue;
        }
        const character now = Set::decode(text + done.bytes, left);
        if (now.width == 0 && !ends) break;
        if (now.width == 0 || is_raw(now.value)) blocks_from = done.bytes + 1 + enough;
        done.bytes += now.width != 0 ? now.width : 1;
        done.characters++;
    }
    return done;
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

struct to_lower {
    static std::uint64_t ascii(std::uint64_t word) { return ascii_lower(word); }
    static std::uint32_t wide(const kulang &lang, std::uint32_t v) { return wide_lower(lang, v); }
    static const std::uint16_t *pairs() { return utf8_pairs().lower; }
};

struct to_upper {
    static std::uint64_t ascii(std::uint64_t word) { return ascii_upper(word); }
    static std::uint32_t wide(const kulang &lang, std::uint32_t v) { return wide_upper(lang, v); }
    static const std::uint16_t *pairs() { return utf8_pairs().upper; }
};

// The ASCII that eight bytes begin with. Writes eight bytes, those behind it as they
// were: what comes next may be shorter here than in the source.
template <typename Case>
std::size_t map_ascii_run(byte *to, std::size_t room, const byte *from, std::size_t n)
{
    if (n < 8 || room < 8) return 0;
    const std::uint64_t word = load(from);
    std::uint64_t mapped = Case::ascii(word & ~high_bits);
    const std::size_t done = ascii_prefix(word);
    if (done < 8) {
        const std::uint64_t behind = ~std::uint64_t{0} << 8 * done;
        mapped = (mapped & ~behind) | (load(to) & behind);
    }
    std::memcpy(to, &mapped, sizeof mapped);
    return done;
}

// Index of a two-byte character in tables of U+0000 to U+07FF, which hold 0 below
// U+0080; there too for anything else.
std::uint32_t pair_index(const byte *at)
{
    std::uint16_t both; // the first byte is the low one
    std::memcpy(&both, at, sizeof both);
    return (both & 0xC0E0) == 0x80C0 ? (both & 0x1Fu) << 6 | (both >> 8 & 0x3Fu) : 0;
}

// Two-byte characters whose case has two bytes too. Bytes done.
std::size_t map_pair_run(const std::uint16_t *pairs, byte *to, std::size_t room, const byte *from,
                         std::size_t n)
{
    const std::size_t most = n < room ? n : room;
    std::size_t done = 0;
    while (most - done >= 2) {
        const std::uint16_t mapped = pairs[pair_index(from + done)];
        if (mapped == 0) break;
        std::memcpy(to + done, &mapped, sizeof mapped);
        done += 2;
    }
    return done;
}

// No letter has case from the radicals on to the Cyrillic supplements, and from the
// Hangul syllables to the presentation forms.
bool caseless(std::uint32_t code)
{
    return (code >= 0x2E80 && code < 0xA640) || (code >= 0xAC00 && code < 0xFB00);
}

// Three-byte characters without case. Bytes done.
std::size_t copy_caseless_run(byte *to, std::size_t room, const byte *from, std::size_t n)
{
    const std::size_t most = n < room ? n : room;
    std::size_t done = 0;
    while (most - done >= 4 && from[done] >= 0xE2) {
        const character now = utf8_set::decode(from + done, most - done);
        if (now.width != 3 || !caseless(now.value)) break;
        std::memcpy(to + done, from + done, 3);
        done += 3;
    }
    return done;
}

// Bytes read of a source and written of a target; none when there is no room.
struct taken {
    std::size_t read;
    std::size_t written;
};

// Writes one character as its case has it.
template <typename Set, typename Case>
taken map_one(const kulang &lang, byte *to, std::size_t room, const byte *from, std::size_t n)
{
    const character now = whole<Set>::decode(from, n);
    byte bytes[4] = {};
    std::memcpy(bytes, from, now.width);
    std::uint32_t width = now.width;
    const bool kept = is_raw(now.value) || now.value == 0
                      || (std::is_same_v<Set, utf8_set> && caseless(now.value));
    const std::uint32_t mapped = kept ? now.value : Case::wide(lang, now.value);
    if (mapped != now.value) width = encode(*lang.charset_kulang, mapped, bytes);
    if (width > room) return {0, 0};
    std::memcpy(to, bytes, width);
    return {now.width, width};
}

template <typename Set, typename Case>
std::size_t map_text(const kulang &lang, byte *target, std::size_t room, const byte *from,
                     std::size_t n)
{
    const std::uint16_t *pairs = std::is_same_v<Set, utf8_set> ? Case::pairs() : nullptr;
    byte *to = target;
    const auto pass = [&](std::size_t read, std::size_t written) {
        from += read;
        n -= read;
        to += written;
        room -= written;
    };
    while (n != 0) {
        const std::size_t ascii = map_ascii_run<Case>(to, room, from, n);
        pass(ascii, ascii);
        if (ascii == 8) continue;
        if (std::is_same_v<Set, utf8_set>) {
            const std::size_t two = map_pair_run(pairs, to, room, from, n);
            pass(two, two);
            const std::size_t three = copy_caseless_run(to, room, from, n);
            pass(three, three);
            if (two + three != 0) continue;
        }
        if (n == 0) break;
        const taken one = map_one<Set, Case>(lang, to, room, from, n);
        if (one.read == 0) break;
        pass(one.read, one.written);
    }
    return static_cast<std::size_t>(to - target);
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

// The first bytes of two texts in UTF-8 that differ, back at a character.
std::size_t common_prefix(const byte *a, const byte *b, std::size_t n)
{
    std::size_t at = 0;
    while (n - at >= 8 && load(a + at) == load(b + at)) at += 8;
    while (at < n && a[at] == b[at]) at++;
    // Any byte but a further one begins a character; no character has more than three.
    for (std::size_t back = 1; back <= 3 && back <= at; back++) {
        if (!within(a[at - back], 0x80, 0xBF)) return at - back;
    }
    return at;
}

int compare_utf8(const kulang &lang, const byte *a, std::size_t an, const byte *b, std::size_t bn)
{
    const std::size_t same = common_prefix(a, b, an < bn ? an : bn);
    return compare_readers<by_value>(lang, reader<utf8_set>{a + same, an - same},
                                     reader<utf8_set>{b + same, bn - same});
}

// Two-byte characters that are equal without case. Bytes done.
std::size_t equal_pair_run(const std::uint16_t *fold, const byte *a, const byte *b, std::size_t n)
{
    std::size_t done = 0;
    while (n - done >= 2) {
        const std::uint16_t folded = fold[pair_index(a + done)];
        if (folded == 0 || folded != fold[pair_index(b + done)]) break;
        done += 2;
    }
    return done;
}

int compare_utf8_nocase(const kulang &lang, const byte *a, std::size_t an, const byte *b,
                        std::size_t bn)
{
    const std::uint16_t *fold = utf8_pairs().fold;
    reader<utf8_set> first = {a, an}, second = {b, bn};
    const auto pass = [&first, &second](std::size_t bytes) {
        first = {first.at + bytes, first.left - bytes};
        second = {second.at + bytes, second.left - bytes};
    };
    while (first.left >= 8 && second.left >= 8) {
        const std::uint64_t left = load(first.at), right = load(second.at);
        const std::uint64_t different =
            ascii_upper(left & ~high_bits) ^ ascii_upper(right & ~high_bits);
        const std::size_t ascii = ascii_prefix(left | right);
        const std::size_t equal = static_cast<std::size_t>(std::countr_zero(different)) / 8;
        pass(ascii < equal ? ascii : equal);
        if (ascii == 8 && equal == 8) continue;
        if (equal < ascii) break;
        const std::size_t least = first.left < second.left ? first.left : second.left;
        const std::size_t pairs = equal_pair_run(fold, first.at, second.at, least);
        pass(pairs);
        if (pairs != 0) continue;
        character now = {}, other = {};
        const reader<utf8_set> from = first, beside = second;
        first.next(&now);
        second.next(&other);
        if (now.value == other.value) continue;
        if (wide_compare_nocase(lang, now.value, other.value) == 0) continue;
        first = from;
        second = beside;
        break;
    }
    return compare_readers<by_folding>(lang, first, second);
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
        if (std::is_same_v<Order, by_folding>) return compare_utf8_nocase(lang, a, an, b, bn);
        return compare_utf8(lang, a, an, b, bn);
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

// ---- what texts have in common ----

namespace
{

// A text in UTF-8 as far as its NUL, which is looked for a stretch at a time:
// nothing is read behind it, and a text that differs early is not searched whole.
struct outlook {
    const byte *at;
    std::size_t beyond;   // bytes behind those seen that may belong to the text
    std::size_t seen = 0; // bytes from `at` on without a NUL
    std::size_t stretch = 64;

    // Whether so many bytes come before the NUL and the end.
    bool sees(std::size_t bytes)
    {
        while (seen < bytes && beyond != 0) look_on();
        return seen >= bytes;
    }

    void pass(std::size_t bytes)
    {
        at += bytes;
        seen -= bytes;
    }

private:
    void look_on()
    {
        constexpr std::size_t longest = 4096;
        const std::size_t most = beyond < stretch ? beyond : stretch;
        const std::size_t found = strnlen(reinterpret_cast<const char *>(at) + seen, most);
        seen += found;
        beyond = found == most ? beyond - most : 0;
        if (stretch < longest) stretch *= 2;
    }
};

// Two texts and how far they were found to be alike.
struct twins {
    outlook a, b;
    std::size_t characters = 0;

    void pass(std::size_t bytes, std::size_t passed)
    {
        a.pass(bytes);
        b.pass(bytes);
        characters += passed;
    }

    // Equal ASCII bytes of the next eight.
    std::size_t ascii(bool nocase) const
    {
        const std::uint64_t left = load(a.at), right = load(b.at);
        const std::uint64_t different =
            nocase ? ascii_upper(left & ~high_bits) ^ ascii_upper(right & ~high_bits)
                   : left ^ right;
        const std::uint64_t stop = different | ((left | right) & high_bits);
        return static_cast<std::size_t>(std::countr_zero(stop)) / 8;
    }

    std::size_t pass_pairs(const std::uint16_t *fold)
    {
        const std::size_t least = a.seen < b.seen ? a.seen : b.seen;
        const std::size_t pairs = equal_pair_run(fold, a.at, b.at, least);
        pass(pairs, pairs / 2);
        return pairs;
    }

    // One well-formed character beyond ASCII on each side, if they are alike.
    bool pass_character(const kulang &lang, bool nocase)
    {
        constexpr std::size_t longest = 4;
        a.sees(longest);
        b.sees(longest);
        if (a.seen == 0 || b.seen == 0) return false;
        const character one = utf8_set::decode(a.at, a.seen),
                        other = utf8_set::decode(b.at, b.seen);
        if (one.width < 2 || other.width < 2) return false;
        const bool alike = one.value == other.value
                           || (nocase && wide_compare_nocase(lang, one.value, other.value) == 0);
        if (!alike) return false;
        a.pass(one.width);
        b.pass(other.width);
        characters++;
        return true;
    }
};

} // namespace

common pass_common(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn,
                   bool nocase)
{
    if (lang.charset_kulang->kind_kucharset != kind_utf8) return {0, 0, 0};
    const std::uint16_t *fold = nocase ? utf8_pairs().fold : nullptr;
    twins both = {{bytes_of(a), an}, {bytes_of(b), bn}};
    while (both.a.sees(8) && both.b.sees(8)) {
        const std::size_t ascii = both.ascii(nocase);
        both.pass(ascii, ascii);
        if (ascii == 8) continue;
        const bool pairs = nocase && both.pass_pairs(fold) != 0;
        if (!pairs && !both.pass_character(lang, nocase)) break;
    }
    return {static_cast<std::size_t>(both.a.at - bytes_of(a)),
            static_cast<std::size_t>(both.b.at - bytes_of(b)), both.characters};
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

// How a text of `length` bytes and a second one are put together: a shifted run that ends where
// another begins goes on, one that is open is closed.
struct joint {
    bool goes_on = false;
    bool closes = false;
};
static joint joint_of(const kulang &lang, const char *target, std::size_t length,
                      const void *source, std::size_t n)
{
    if (n == 0 || lang.shiftsensitive_kulang == 0) return {};
    const ending end = ending_of(bytes_of(target), length);
    const byte first = *bytes_of(source);
    if (end.joinable && first == shift_out) return {true, false};
    return {false, end.shifted && !is_shift(first)};
}

std::size_t concatenated(const kulang &lang, const char *target, std::size_t length,
                         const void *source, std::size_t n)
{
    const joint between = joint_of(lang, target, length, source, n);
    return length + n - (between.goes_on ? 2 : 0) + (between.closes ? 1 : 0);
}

std::size_t concatenate(const kulang &lang, char *target, const void *source, std::size_t n)
{
    std::size_t length = std::strlen(target);
    const byte *from = bytes_of(source);
    const joint between = joint_of(lang, target, length, source, n);
    if (between.goes_on) {
        length--;
        from++;
        n--;
    }
    if (between.closes) target[length++] = static_cast<char>(shift_in);
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
