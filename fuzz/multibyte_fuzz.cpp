// multibyte_fuzz.cpp - any bytes in every character set
//
// First byte: the set; second: how far scans may go. The rest is the text, in a
// block of its exact size, so that a byte too many is seen.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "port/locale/locale.h"

using namespace ku::locale;

namespace
{

void must(bool holds)
{
    if (!holds) std::abort();
}

constexpr const char *sets[] = {"ascii", "iso-8859-1", "iso-8859-15", "cp1252",
                                "utf-8", "sjis",       "euc-jp",      "iso-2022-kr"};

struct block {
    explicit block(std::size_t size) : bytes(new unsigned char[size]), size(size) {}
    std::unique_ptr<unsigned char[]> bytes;
    std::size_t size;
};

kucursor reading(const kulang &lang, const block &text, std::size_t size)
{
    kucursor cursor;
    open_exact(&cursor, text.bytes.get(), size, &lang, cursor_mode::read);
    return cursor;
}

// Stepping and the bulk scans see the same characters.
void scans_agree(const kulang &lang, const block &text, std::size_t limit)
{
    kucursor cursor = reading(lang, text, limit);
    std::size_t characters = 0;
    for (;; characters++) {
        if (characters % 16 == 0)
            must(offset_of(lang, text.bytes.get(), limit, characters) == offset(cursor));
        const std::uint32_t value = wide(cursor), bytes = width(cursor);
        must((value == 0) == (bytes == 0) && bytes <= lang.maxwidth_kulang);
        must((current(cursor) == 0) == (value == 0));
        classes(cursor);
        const std::size_t before = offset(cursor);
        must(next(cursor) == value);
        if (value == 0) break;
        must(offset(cursor) >= before + bytes);
    }
    const extent found = measure(lang, text.bytes.get(), limit);
    must(found.characters == characters && found.bytes == offset(cursor));
}

// What is read can be written, and reads the same again.
void survives_writing(const kulang &lang, const block &text)
{
    const block copy(text.size * 5 + 8);
    kucursor source = reading(lang, text, text.size), target;
    open_exact(&target, copy.bytes.get(), copy.size, &lang, cursor_mode::write);
    while (wide(source) != 0) must(copy_character(target, source, copy.size - offset(target)) != 0);
    close_shift(target);
    must(target.shifted_kucursor == 0);
    const std::size_t size = offset(target);
    if (lang.shiftsensitive_kulang == 0)
        must(std::memcmp(copy.bytes.get(), text.bytes.get(), size) == 0);
    must(size <= text.size + 1); // the byte that closes what the text left open
    copy.bytes[size] = 0;        // what a NUL cut off must not wait for more
    kucursor again = reading(lang, copy, SIZE_MAX), first = reading(lang, text, text.size);
    while (const std::uint32_t value = next(first)) must(next(again) == value);
    must(next(again) == 0);
}

// Case keeps the characters apart and fits; comparison without case sees no difference.
void case_fits(const kulang &lang, const block &text)
{
    for (const bool upper : {false, true}) {
        const block mapped(text.size * lang.expansion_kulang);
        const std::size_t n = (upper ? upper_copy : lower_copy)(
            lang, mapped.bytes.get(), mapped.size, text.bytes.get(), text.size);
        must(n <= mapped.size);
        kucursor from = reading(lang, text, text.size), to = reading(lang, mapped, n);
        while (const std::uint32_t value = next(from)) {
            const std::uint32_t turned = (upper ? wide_upper : wide_lower)(lang, value);
            must(next(to) == turned);
        }
        const block small(text.size / 2);
        must((upper ? upper_copy : lower_copy)(lang, small.bytes.get(), small.size,
                                               text.bytes.get(), text.size)
             <= small.size);
    }
}

void order_is_one(const kulang &lang, const block &text, std::size_t split)
{
    const unsigned char *a = text.bytes.get(), *b = a + split;
    const std::size_t an = split, bn = text.size - split;
    for (const auto compare : {compare_text, compare_text_nocase}) {
        const int there = compare(lang, a, an, b, bn), back = compare(lang, b, bn, a, an);
        must((there < 0) == (back > 0) && (there == 0) == (back == 0));
        must(compare(lang, a, an, a, an) == 0);
    }
    if (compare_text(lang, a, an, b, bn) == 0) must(compare_text_nocase(lang, a, an, b, bn) == 0);
}

// What two texts have in common ends before a NUL and reads the same in both.
void common_is_common(const kulang &lang, const block &text, std::size_t split)
{
    const block first(split), second(text.size - split);
    if (split != 0) std::memcpy(first.bytes.get(), text.bytes.get(), split);
    if (second.size != 0) std::memcpy(second.bytes.get(), text.bytes.get() + split, second.size);
    for (const bool nocase : {false, true}) {
        const bool ended = std::memchr(first.bytes.get(), 0, first.size) != nullptr;
        const common same = pass_common(lang, first.bytes.get(), ended ? SIZE_MAX : first.size,
                                        second.bytes.get(), second.size, nocase);
        kucursor a = reading(lang, first, same.a_bytes), b = reading(lang, second, same.b_bytes);
        for (std::size_t i = 0; i < same.characters; i++) {
            const std::uint32_t left = next(a), right = next(b);
            must(left != 0 && right != 0);
            must(nocase ? wide_compare_nocase(lang, left, right) == 0 : left == right);
        }
        must(offset(a) == same.a_bytes && offset(b) == same.b_bytes);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2) return 0;
    kulang lang;
    fill_named(&lang, nullptr, sets[data[0] % 8]);
    const block text(size - 2);
    if (text.size != 0) std::memcpy(text.bytes.get(), data + 2, text.size);
    const std::size_t limit = data[1] < text.size ? data[1] : text.size;
    common_is_common(lang, text, limit);
    scans_agree(lang, text, text.size);
    scans_agree(lang, text, limit);
    if (std::memchr(data + 2, 0, text.size) != nullptr) scans_agree(lang, text, SIZE_MAX);
    survives_writing(lang, text);
    case_fits(lang, text);
    order_is_one(lang, text, limit);
    stands_alone(lang, text.bytes.get(), text.size, limit % 2 != 0);
    return 0;
}
