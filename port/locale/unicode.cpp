// unicode.cpp - case and classes of code points and of double-byte values
//
// The C library knows classes and one-to-one case of every code point; asking it
// for each character would cost a call. So its answers are laid down once in
// paged tables:
//
//     value / 64 --> index --> block of 64 cells --> cell --> one of < 512 traits
//
// Equal blocks are shared, and case is kept as a difference to add, so that few
// traits serve all code points. Code points come in five ranges, each built when
// it is first asked for: a program that never sees an ideograph or an emoji does
// not wait for their tables. A double-byte set's table is made of the code points
// that iconv gives for its values. ASCII is not asked of anybody.
#include <cassert>
#include <cstring>
#include <iconv.h>
#include <locale.h>
#include <wchar.h>
#include <wctype.h>

#include "charset_internal.h"

namespace ku::locale
{

namespace
{

constexpr traits no_traits = {};

// The C library's locale that knows all code points, while a table is built. The
// process's own locale is never touched. Where it is not installed, only ASCII
// has classes and case.
class c_locale
{
public:
    c_locale() : handle_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
    ~c_locale()
    {
        if (handle_ != nullptr) freelocale(handle_);
    }
    c_locale(const c_locale &) = delete;
    c_locale &operator=(const c_locale &) = delete;

    std::uint16_t classes(std::uint32_t code) const;
    std::uint32_t upper(std::uint32_t code) const
    {
        return code < 0x80 ? ascii_charset().upper_kucharset[code] : mapped(code, towupper_l);
    }
    std::uint32_t lower(std::uint32_t code) const
    {
        return code < 0x80 ? ascii_charset().lower_kucharset[code] : mapped(code, towlower_l);
    }
    traits of(std::uint32_t code) const;

private:
    // Nothing above ASCII grows to more than twice its bytes, whatever it maps to.
    std::uint32_t mapped(std::uint32_t code, wint_t (*map)(wint_t, locale_t)) const
    {
        if (handle_ == nullptr) return code;
        const std::uint32_t to = map(code, handle_);
        return to <= 0x10FFFF ? to : code;
    }

    locale_t handle_;
};

std::uint16_t c_locale::classes(std::uint32_t code) const
{
    if (code < 0x80) return ascii_charset().classes_kucharset[code];
    if (handle_ == nullptr) return 0;
    if (iswcntrl_l(code, handle_)) {
        return iswspace_l(code, handle_) ? KULANG_CNTRL | KULANG_SPACE : KULANG_CNTRL;
    }
    if (!iswprint_l(code, handle_)) return iswspace_l(code, handle_) ? KULANG_SPACE : 0;
    if (iswspace_l(code, handle_)) return KULANG_SPACE | KULANG_BLANK;
    if (iswpunct_l(code, handle_)) return KULANG_PUNCT;
    unsigned found = 0;
    if (iswalpha_l(code, handle_)) found |= KULANG_LETTER;
    if (iswupper_l(code, handle_)) found |= KULANG_UPPER;
    if (iswlower_l(code, handle_)) found |= KULANG_LOWER;
    if (iswdigit_l(code, handle_)) found |= KULANG_DIGIT;
    return static_cast<std::uint16_t>(found);
}

// Folding takes together what shares an upper case after lower case (final and
// other sigma, the kelvin sign and k), but not i with the two Turkish letters.
traits c_locale::of(std::uint32_t code) const
{
    constexpr std::uint32_t dotted_capital = 0x130, dotless_small = 0x131;
    const std::uint16_t found = classes(code);
    if ((found & KULANG_PUNCT) == 0 && (found & KULANG_LETTER) == 0) return {0, 0, 0, found};
    const bool turkish = code == dotted_capital || code == dotless_small;
    return {upper(code) - code, lower(code) - code, turkish ? 0 : upper(lower(code)) - code, found};
}

// A paged table over keys 0 to `keys` - 1 with room for `blocks` different blocks.
template <std::uint32_t keys, std::uint32_t blocks> class paged
{
public:
    template <typename Of> explicit paged(Of of)
    {
        for (std::uint32_t block = 0; block < keys / block_size; block++) fill(block, of);
    }
    const traits &at(std::uint32_t key) const
    {
        return traits_[cells_[index_[key / block_size]][key % block_size]];
    }

private:
    static constexpr std::uint32_t block_size = 64;
    static constexpr std::uint32_t traits_most = 512;
    using cells = std::uint16_t[block_size];

    template <typename Of> void fill(std::uint32_t block, Of &of)
    {
        cells &fresh = cells_[block_count_];
        for (std::uint32_t i = 0; i < block_size; i++)
            fresh[i] = number(of(block * block_size + i));
        std::uint32_t same = 0;
        while (std::memcmp(cells_[same], fresh, sizeof fresh) != 0) same++;
        const bool full = same == block_count_ && block_count_ == blocks - 1;
        assert(!full);
        index_[block] = full ? 0 : static_cast<std::uint16_t>(same);
        if (same == block_count_ && !full) block_count_++;
    }

    std::uint16_t number(const traits &wanted)
    {
        const auto equal = [&wanted](const traits &other) {
            return other.upper == wanted.upper && other.lower == wanted.lower
                   && other.fold == wanted.fold && other.classes == wanted.classes;
        };
        if (equal(traits_[latest_])) return static_cast<std::uint16_t>(latest_);
        for (std::uint32_t i = 0; i < traits_count_; i++) {
            if (!equal(traits_[i])) continue;
            latest_ = i;
            return static_cast<std::uint16_t>(i);
        }
        assert(traits_count_ < traits_most);
        if (traits_count_ == traits_most) return 0;
        traits_[traits_count_] = wanted;
        return static_cast<std::uint16_t>(traits_count_++);
    }

    // Traits 0 and block 0 say "none".
    std::uint32_t block_count_ = 1, traits_count_ = 1, latest_ = 0;
    std::uint16_t index_[keys / block_size] = {};
    cells cells_[blocks] = {};
    traits traits_[traits_most] = {};
};

// Code points `first` to `last` - 1.
template <std::uint32_t first, std::uint32_t last, std::uint32_t blocks>
const traits &in_range(std::uint32_t code)
{
    static const paged<last - first, blocks> table(
        [lib = c_locale()](std::uint32_t key) { return lib.of(first + key); });
    return table.at(code - first);
}

} // namespace

const traits &unicode_traits(std::uint32_t code)
{
    constexpr std::uint32_t ideographs = 0x3000, supplementary = 0x10000, plane_2 = 0x20000,
                            plane_4 = 0x40000, end = 0x110000;
    if (code < ideographs) return in_range<0, ideographs, 160>(code);
    if (code < supplementary) return in_range<ideographs, supplementary, 160>(code);
    if (code < plane_2) return in_range<supplementary, plane_2, 320>(code);
    if (code < plane_4) return in_range<plane_2, plane_4, 64>(code);
    return code < end ? in_range<plane_4, end, 64>(code) : no_traits;
}

namespace
{

std::uint16_t pair_of(std::uint32_t code)
{
    byte bytes[4];
    std::uint16_t pair = 0;
    if (encode_utf8(code, bytes) == sizeof pair) std::memcpy(&pair, bytes, sizeof pair);
    return pair;
}

} // namespace

const pair_tables &utf8_pairs()
{
    static const pair_tables tables = [] {
        pair_tables made = {};
        for (std::uint32_t code = 0x80; code < 0x800; code++) {
            const traits &known = unicode_traits(code);
            made.upper[code] = pair_of(code + known.upper);
            made.lower[code] = pair_of(code + known.lower);
            made.fold[code] = static_cast<std::uint16_t>(code + known.fold);
        }
        return made;
    }();
    return tables;
}

void ask_traits(const std::uint16_t *codes, std::size_t count, traits *found)
{
    const c_locale lib;
    for (std::size_t i = 0; i < count; i++) found[i] = lib.of(codes[i]);
}

// ---- double-byte sets ----

namespace
{

// Conversion between one set's characters and code points. Where iconv does not
// have the set, nothing converts and only ASCII has classes and case.
class converter
{
public:
    explicit converter(const char *codeset)
        : from_(iconv_open("UTF-32LE", codeset)), to_(iconv_open(codeset, "UTF-32LE"))
    {
    }
    ~converter()
    {
        if (from_ != none()) iconv_close(from_);
        if (to_ != none()) iconv_close(to_);
    }
    converter(const converter &) = delete;
    converter &operator=(const converter &) = delete;

    // Code point of the bytes; 0 when they have none.
    std::uint32_t code(byte *bytes, std::size_t count) const
    {
        std::uint32_t result = 0;
        return run(from_, bytes, count, &result, sizeof result) == sizeof result ? result : 0;
    }
    // Bytes of a code point, 0 when it has none; `bytes` has room for 4.
    std::size_t bytes(std::uint32_t code, byte *bytes) const
    {
        return run(to_, &code, sizeof code, bytes, 4);
    }

private:
    static iconv_t none() { return reinterpret_cast<iconv_t>(-1); }

    static std::size_t run(iconv_t with, void *source, std::size_t count, void *target,
                           std::size_t room)
    {
        if (with == none()) return 0;
        auto *in = static_cast<char *>(source);
        auto *out = static_cast<char *>(target);
        std::size_t left = room;
        if (iconv(with, &in, &count, &out, &left) != 0 || count != 0) {
            iconv(with, nullptr, nullptr, nullptr, nullptr);
            return 0;
        }
        return room - left;
    }

    iconv_t from_, to_;
};

// What tells a set's values apart from iconv's bytes for them.
struct double_byte {
    const char *codeset;
    std::uint8_t kind;
    byte high; // set in every byte of a pair that iconv sees
};

// Supplementary three-byte values follow the two-byte ones in the table.
constexpr std::uint32_t extra_values = eucjp_set::extra * 65536u, pair_keys = 0x10000;
std::uint32_t value_of_key(std::uint32_t key)
{
    return key < pair_keys ? key : extra_values + (key - pair_keys);
}

// A set's traits for the table. Case that would change the width of a character
// is left out: in these sets no text grows or shrinks.
class double_byte_traits
{
public:
    double_byte_traits(const double_byte &about, const kucharset &set)
        : about_(about), set_(set), with_(about.codeset)
    {
    }

    traits operator()(std::uint32_t key) const
    {
        const std::uint32_t value = value_of_key(key);
        byte bytes[4] = {};
        const std::uint32_t width = encode(set_, value, bytes);
        if (width == 0 || value < 0x80) return no_traits;
        for (byte &b : bytes) b |= about_.high;
        const std::uint32_t code = with_.code(bytes, width);
        if (code < 0x80) return no_traits;
        const traits &known = unicode_traits(code);
        traits found = {};
        found.classes = known.classes;
        found.upper = mapped(value, width, code + known.upper, code);
        found.lower = mapped(value, width, code + known.lower, code);
        found.fold = mapped(value, width, code + known.fold, code);
        return found;
    }

private:
    std::uint32_t mapped(std::uint32_t value, std::uint32_t width, std::uint32_t to,
                         std::uint32_t from) const
    {
        if (to == from) return 0;
        byte bytes[4] = {};
        if (with_.bytes(to, bytes) != width) return 0;
        for (byte &b : bytes) b &= static_cast<byte>(~about_.high);
        const character there = decode(about_.kind, bytes, width, about_.high != 0);
        return there.width == width && !is_raw(there.value) ? there.value - value : 0;
    }

    const double_byte &about_;
    const kucharset &set_;
    converter with_;
};

constexpr double_byte sjis_about = {"CP932", kind_sjis, 0};
constexpr double_byte eucjp_about = {"EUC-JP", kind_eucjp, 0};
constexpr double_byte shifted_about = {"EUC-KR", kind_shifted, 0x80};

template <const double_byte &about, std::uint32_t keys>
const traits &in_set(const kucharset &set, std::uint32_t value)
{
    static const paged<keys, 320> table(double_byte_traits(about, set));
    const std::uint32_t key = value < extra_values ? value : value - extra_values + pair_keys;
    return key < keys ? table.at(key) : no_traits;
}

} // namespace

const traits &traits_of(const kucharset &set, std::uint32_t value)
{
    switch (set.kind_kucharset) {
    case kind_utf8: return unicode_traits(value);
    case kind_sjis: return in_set<sjis_about, pair_keys>(set, value);
    case kind_eucjp: return in_set<eucjp_about, 2 * pair_keys>(set, value);
    case kind_shifted: return in_set<shifted_about, pair_keys>(set, value);
    default: return no_traits;
    }
}

} // namespace ku::locale
