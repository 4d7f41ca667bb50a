// kucl.cpp - command lines: a vector or text of arguments becomes values of definitions
//
//     argv      tool  level=3  names=(a,b)
//     text        level='3'  names=(a,b)            kuclmoc
//     tokens    level = '3'  names = ( a , b )      the lexer
//     values    level: 3     names: a, b            kuclpts
//
// The token state machine collects values from tokens that stand side by side,
// assigns them to the definition that a keyword names or whose turn it is by
// position, and checks them there. When the line is done, a command file that
// one of the arguments may name goes through the same machine, with positional
// values refused; then absent arguments get their defaults.
//
// A command file is read line by line, each line analysed from the lexer state
// that the one before left, and the pieces joined and merged into one token
// object. They are joined in twos, fours, eights ..., so that a file of n lines
// costs n log n copies of its tokens and not n times n.
//
// The first error ends a parse. Whatever is pushed underneath goes to a level of
// the error stack of its own, which is dropped.
#include "kucl.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "kuguard.h"
#include "kuka.h"
#include "kuke.h"
#include "kuko.h"
#include "kul.h"
#include "port/locale/locale.h"
#include "skub.h"

namespace
{

namespace locale = ku::locale;

constexpr std::uint32_t kucl_backslash = 413; // token type of the character that is our own
constexpr std::uint32_t kucl_linesize = 1024; // bytes of a line buffer, with its NUL
constexpr std::size_t kucl_keywordmax = 255;  // bytes of a keyword that take part, without case
constexpr std::size_t kucl_characterroom = 8; // bytes that any character fits in, shift bytes too
constexpr std::int32_t kucl_fewdefinitions = 32; // up to here they are looked through
constexpr std::int32_t kucl_noposition = -1;     // positional values are not accepted any more
constexpr std::int32_t kucl_integerdigits = 10;  // most digits of a 32-bit integer, zeros left out

// ---- errors ----

// What is returned when there is no memory for a record: one for each place where
// an error is found. Never written.
constexpr std::array<kucle, 2> kuclnomem{
    {{nullptr, KUCLE_NOMEM, KUCLE_INLINE}, {nullptr, KUCLE_NOMEM, KUCLE_INFILE}}};

kucle *kuclecreate(kux *ctx, kucla *argument, std::uint32_t code, std::uint32_t where)
{
    auto *error = ku::allocate<kucle>(ctx);
    if (error == nullptr) return const_cast<kucle *>(&kuclnomem[where != KUCLE_INLINE]);
    *error = {argument, code, where};
    return error;
}

kucle *kuclexhausted(kux *ctx) { return kuclecreate(ctx, nullptr, KUCLE_NOMEM, KUCLE_INLINE); }

// ---- characters ----

bool kuclisshift(const kulang &lang, unsigned char byte)
{
    return lang.shiftsensitive_kulang != 0
           && (byte == lang.shiftout_kulang || byte == lang.shiftin_kulang);
}

// A character and the shift bytes before it; at the end those alone, which are
// nothing and pass for white space.
struct kuclcharacter {
    const unsigned char *first;  // its first byte
    const unsigned char *behind; // the byte behind it
    bool shifted;
    bool space;

    // It is this ASCII character.
    bool is(unsigned char byte) const { return !shifted && first < behind && *first == byte; }
};

// The character at `at`, where the text is in a shifted run or not. One that the
// end cuts short is bytes.
kuclcharacter kuclcharacterat(const kulang &lang, const unsigned char *at, const unsigned char *end,
                              bool shifted)
{
    for (; at < end && kuclisshift(lang, *at); at++) shifted = *at == lang.shiftout_kulang;
    if (at == end) return {end, end, shifted, true};
    if (!shifted && (locale::single_byte(lang) || *at < 0x80))
        return {at, at + 1, false, (locale::byte_classes(lang, *at) & KULANG_SPACE) != 0};
    kucursor cursor;
    locale::open_exact(&cursor, const_cast<unsigned char *>(at), static_cast<std::size_t>(end - at),
                       &lang, locale::cursor_mode::read);
    cursor.shifted_kucursor = shifted;
    return {at, at + std::max(locale::width(cursor), 1u), shifted,
            (locale::classes(cursor) & KULANG_SPACE) != 0};
}

bool kuclisquote(unsigned char byte) { return byte == '\'' || byte == '"'; }

// ---- vector to text ----

// One argument on its way into the text.
struct kuclcopy {
    const kulang &lang;
    bool file; // values end where a word or their closing character ends
    const unsigned char *at;
    const unsigned char *end;
    unsigned char *to;
    bool shifted = false; // what stands at `at` is in a shifted run
    bool open = false;    // ... what stands at `to`: not where a quote was put into a run

    kuclcharacter here() const { return kuclcharacterat(lang, at, end, shifted); }
};

// Puts the text into the shift state that what stands at `at` needs.
void kuclresume(kuclcopy &copy, const unsigned char *stop)
{
    for (; copy.at < stop && kuclisshift(copy.lang, *copy.at); copy.at++)
        copy.shifted = *copy.at == copy.lang.shiftout_kulang;
    if (copy.shifted != copy.open)
        *copy.to++ = copy.shifted ? copy.lang.shiftout_kulang : copy.lang.shiftin_kulang;
    copy.open = copy.shifted;
}

void kuclupto(kuclcopy &copy, const unsigned char *stop)
{
    if (copy.open != copy.shifted) kuclresume(copy, stop);
    const auto length = static_cast<std::size_t>(stop - copy.at);
    std::memcpy(copy.to, copy.at, length);
    copy.to += length;
    if (copy.lang.shiftsensitive_kulang != 0)
        for (; copy.at < stop; copy.at++)
            if (kuclisshift(copy.lang, *copy.at))
                copy.shifted = *copy.at == copy.lang.shiftout_kulang;
    copy.open = copy.shifted;
    copy.at = stop;
}

// Closes a shifted run that is open in the text.
void kuclclose(kuclcopy &copy)
{
    if (copy.open) *copy.to++ = copy.lang.shiftin_kulang;
    copy.open = false;
}

// A value after its opening character: to the end of the argument, or in a file
// to its closing character.
void kucldelimited(kuclcopy &copy, const kuclcharacter &opening)
{
    const unsigned char closing = opening.is('(') ? ')' : *opening.first;
    kuclupto(copy, copy.file ? opening.behind : copy.end);
    while (copy.at < copy.end) {
        const kuclcharacter next = copy.here();
        kuclupto(copy, next.behind);
        if (next.is(closing)) return;
    }
}

// A value that gets quotes: to the end of the argument, or in a file to white space.
void kuclplain(kuclcopy &copy)
{
    *copy.to++ = '\'';
    if (!copy.file) kuclupto(copy, copy.end);
    for (kuclcharacter next = copy.here(); !next.space; next = copy.here())
        kuclupto(copy, next.behind);
    kuclclose(copy);
    *copy.to++ = '\'';
}

// The `=` that ends the keyword of the item here, outside quotes; null: none.
const unsigned char *kuclequals(const kuclcopy &copy)
{
    kuclcharacter next = copy.here();
    if (next.is('(')) return nullptr;
    unsigned char quote = 0;
    while (next.first < copy.end && (quote != 0 || !next.is('='))) {
        if (quote != 0 ? next.is(quote) : next.is('\'') || next.is('"'))
            quote = quote != 0 ? 0 : *next.first;
        next = kuclcharacterat(copy.lang, next.behind, copy.end, next.shifted);
    }
    return next.first < copy.end ? next.first : nullptr;
}

void kuclitem(kuclcopy &copy)
{
    if (const unsigned char *equals = kuclequals(copy)) {
        kuclupto(copy, equals + 1);
    } else if (copy.here().space) {
        while (copy.at < copy.end && copy.here().space) kuclupto(copy, copy.here().behind);
        return;
    }
    const kuclcharacter value = copy.here();
    if (value.is('(') || value.is('\'') || value.is('"'))
        kucldelimited(copy, value);
    else
        kuclplain(copy);
}

std::uint64_t kuclroom(const kulang &lang, const unsigned char *argument, std::size_t length)
{
    const unsigned char *end = argument + length;
    std::uint64_t spaces = 0;
    for (kuclcharacter next = kuclcharacterat(lang, argument, end, false); next.first < end;
         next = kuclcharacterat(lang, next.behind, end, next.shifted))
        spaces += next.space;
    return length + std::uint64_t{4} * lang.maxwidth_kulang * (1 + spaces);
}

// The text of a vector. Each argument's room holds two spaces before it, two
// quotes for each value in it, with the shift bytes where they stand in a run, and
// its share of the NUL.
char *kuclmoc(kux *ctx, std::int32_t argc, char *const *argv, bool file)
{
    const kulang &lang = *ctx->kuxlangidh;
    std::uint64_t size = 1;
    for (std::int32_t i = 1; i < argc; i++)
        size +=
            kuclroom(lang, reinterpret_cast<const unsigned char *>(argv[i]), std::strlen(argv[i]));
    auto *text = static_cast<unsigned char *>(ku::allocate(ctx, size, 1));
    if (text == nullptr) return nullptr;

    unsigned char *to = text;
    for (std::int32_t i = 1; i < argc; i++) {
        if (i > 1) *to++ = ' ';
        *to++ = ' ';
        const auto *argument = reinterpret_cast<const unsigned char *>(argv[i]);
        kuclcopy copy{lang, file, argument, argument + std::strlen(argv[i]), to};
        while (copy.at < copy.end) kuclitem(copy);
        kuclclose(copy);
        to = copy.to;
    }
    *to = '\0';
    return reinterpret_cast<char *>(text);
}

// ---- the parser's state ----

class kuclindex;

struct kucls {
    const char *kuclslin;          // the text being parsed
    void *kuclsinp;                // the definitions
    std::int32_t kuclsnit;         // how many of them take positional values
    std::int32_t kuclsarg;         // whose turn it is by position, or kucl_noposition
    kucle *kuclserr;               // the first error, or null
    std::uint32_t kuclsusp;        // not 0: undeclared keywords are accepted
    std::uint32_t kuclstat;        // state of the machine, kuclstate
    std::int32_t kuclsntk;         // number of tokens
    std::int32_t kuclsctk;         // index of the current token
    std::uint32_t kuclscty;        // the current token: type
    std::uint32_t kuclscto;        // ... offset in the text
    std::uint32_t kuclsctl;        // ... length
    const unsigned char *kuclsctx; // ... text
    const char *kuclskwd;          // the pending keyword, or null; not terminated
    std::uint32_t kuclskwl;        // its length
    const char *kuclsval;          // the value just collected; not terminated
    std::uint32_t kuclsvln;        // its length
    void *kuclslst;                // the values collected, owned, or null
    std::uint32_t where;           // what is parsed: KUCLE_INLINE or KUCLE_INFILE
    kuclindex *index;              // of the definitions; borrowed
    char *keywordcopy;             // copies of keyword and value, owned; null where the text itself
    char *valuecopy; // holds them, as it does unless characters depend on a shift state
};

enum kuclstate : std::uint32_t {
    kucl_argument = 0, // an argument begins
    kucl_keyword = 1,  // after keyword=
    kucl_first = 2,    // in a list, before its first value
    kucl_next = 3,     // in a list, after a comma
};

void kuclsetup(kux *ctx, kucls &parser, const char *text, void *inp, std::uint32_t userp,
               kuclindex *index)
{
    parser = {};
    parser.index = index;
    parser.kuclslin = text;
    parser.kuclsinp = inp;
    parser.kuclsnit = kulpnitems(ctx, inp);
    parser.kuclsusp = userp;
    parser.where = KUCLE_INLINE;
}

void kuclfail(kux *ctx, kucls &parser, kucla *argument, std::uint32_t code)
{
    if (parser.kuclserr == nullptr)
        parser.kuclserr = kuclecreate(ctx, argument, code, parser.where);
}

void *kuclfreevalues(kux *ctx, void *values)
{
    if (values == nullptr) return nullptr;
    while (kulpnitems(ctx, values) > 0) {
        ctx->kuxnmfree(ctx, kulplast(ctx, values));
        kulpdelete(ctx, values, KUL_LAST);
    }
    return kulpdestroy(ctx, values);
}

void kuclfreetext(kux *ctx, char **text)
{
    if (*text != nullptr) ctx->kuxnmfree(ctx, *text);
    *text = nullptr;
}

// Forgets keyword and values.
void kuclforget(kux *ctx, kucls &parser)
{
    kuclfreetext(ctx, &parser.keywordcopy);
    kuclfreetext(ctx, &parser.valuecopy);
    parser.kuclskwd = nullptr;
    parser.kuclslst = kuclfreevalues(ctx, parser.kuclslst);
}

char *kuclduplicate(kux *ctx, const char *text, std::size_t length)
{
    auto *copy = static_cast<char *>(ku::allocate(ctx, std::uint64_t{length} + 1, 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

// Appends a copy of a text to a list of values, made when missing; false without memory.
bool kuclappend(kux *ctx, void **values, const char *text, std::size_t length)
{
    if (*values == nullptr) *values = kulpcreate(ctx, 0, nullptr);
    if (*values == nullptr) return false;
    ku::owned<char> copy(ctx, kuclduplicate(ctx, text, length));
    if (!copy || kulpinsert(ctx, *values, KUL_APPEND, copy.get()) != 0) return false;
    static_cast<void>(copy.keep());
    return true;
}

// ---- definitions ----

bool kuclsametext(const kulang &lang, const char *a, std::size_t alength, const char *b,
                  std::size_t blength, bool nocase)
{
    if (!nocase) return alength == blength && std::memcmp(a, b, alength) == 0;
    if (!locale::single_byte(lang))
        return locale::compare_text_nocase(lang, a, alength, b, blength) == 0;
    return alength == blength && locale::bytes_compare_nocase(lang, a, b, alength) == 0;
}

struct kuclkeyword {
    const char *text;
    std::size_t length; // in bytes
};

// As much of a keyword, without case, as takes part.
struct kuclfolded {
    unsigned char bytes[kucl_keywordmax + kucl_characterroom];
    std::size_t length;
};

std::uint32_t kuclfold(const kulang &lang, std::uint32_t value)
{
    const std::uint32_t folded = locale::wide_upper(lang, locale::wide_lower(lang, value));
    return locale::wide_compare_nocase(lang, folded, value) == 0 ? folded : value;
}

kuclfolded kuclfoldkeyword(const kulang &lang, const char *text, std::size_t length)
{
    kuclfolded folded;
    kucursor source, target;
    locale::open_exact(&source, const_cast<char *>(text), length, &lang, locale::cursor_mode::read);
    locale::open_exact(&target, folded.bytes, sizeof folded.bytes, &lang,
                       locale::cursor_mode::write);
    std::size_t room = sizeof folded.bytes;
    while (!locale::past_size(source) && room > kucl_characterroom)
        room -= locale::put(target, kuclfold(lang, locale::next(source)), room);
    locale::close_shift(target);
    // What the end cuts short are bytes, the same in either case.
    const unsigned char *rest = source.position_kucursor;
    const auto *end = reinterpret_cast<const unsigned char *>(text) + length;
    while (rest < end && locale::offset(target) < kucl_keywordmax)
        *target.position_kucursor++ = *rest++;
    folded.length = std::min(locale::offset(target), kucl_keywordmax);
    return folded;
}

// Keywords of which all bytes take part are compared as they are.
bool kuclsamekeyword(const kulang &lang, const kuclkeyword &a, const kuclkeyword &b)
{
    const std::uint64_t longest = std::max(a.length, b.length);
    if (longest * lang.expansion_kulang <= kucl_keywordmax)
        return kuclsametext(lang, a.text, a.length, b.text, b.length, true);
    const kuclfolded first = kuclfoldkeyword(lang, a.text, a.length);
    const kuclfolded second = kuclfoldkeyword(lang, b.text, b.length);
    return first.length == second.length
           && std::memcmp(first.bytes, second.bytes, first.length) == 0;
}

// Most keywords differ in their first characters, two ASCII ones as a rule.
bool kucldiffers(const kulang &lang, const char *a, const char *b)
{
    const auto first = static_cast<unsigned char>(*a);
    const auto second = static_cast<unsigned char>(*b);
    return lang.shiftsensitive_kulang == 0 && first < 0x80 && second < 0x80
           && lang.fold_kulang[first] != lang.fold_kulang[second];
}

bool kuclhaskeyword(const kulang &lang, const kucla &argument, const kuclkeyword &keyword)
{
    if (argument.kuclakwd == nullptr) return false;
    if (keyword.length == 0) return *argument.kuclakwd == '\0';
    if (kucldiffers(lang, argument.kuclakwd, keyword.text)) return false;
    return kuclsamekeyword(lang, {argument.kuclakwd, std::strlen(argument.kuclakwd)}, keyword);
}

// The first definition with one of the flags or, if not null, with the keyword; null: none.
kucla *kuclgas(kux *ctx, void *inp, std::uint32_t flags, const kuclkeyword *keyword)
{
    const kulang &lang = *ctx->kuxlangidh;
    const kul *list = kulplock(ctx, inp);
    kucla *found = nullptr;
    for (std::int32_t i = 0; i < list->nitems_kul && found == nullptr; i++) {
        auto *argument = static_cast<kucla *>(list->items_kul[i]);
        if ((argument->kuclaflg & flags) != 0
            || (keyword != nullptr && kuclhaskeyword(lang, *argument, *keyword)))
            found = argument;
    }
    kulpunlock(ctx, inp);
    return found;
}

// Where the definitions of a long list are, by keyword. Definitions come to the list's end
// only, and the one that comes first on the list is found first.
class kuclindex : ku::unique
{
public:
    explicit kuclindex(kux *ctx) : ctx_(ctx), slots_(ctx) {}

    // The first definition with the keyword; null: none. Without memory the list is looked
    // through.
    kucla *find(void *inp, const kuclkeyword &keyword)
    {
        const std::int32_t count = kulpnitems(ctx_, inp);
        if (count <= kucl_fewdefinitions || !cover(inp, count))
            return kuclgas(ctx_, inp, 0, &keyword);
        const kulang &lang = *ctx_->kuxlangidh;
        for (std::uint32_t at = place(keyword); slots_.get()[at & mask_] != 0; at++) {
            kucla *argument = definition(inp, slots_.get()[at & mask_] - 1);
            if (kuclhaskeyword(lang, *argument, keyword)) return argument;
        }
        return nullptr;
    }

private:
    static kucla *definition(void *inp, std::int32_t index)
    {
        return static_cast<kucla *>(static_cast<const kul *>(inp)->items_kul[index]);
    }

    // Where looking for a keyword begins: the same for all that differ in case only.
    std::uint32_t place(const kuclkeyword &keyword) const
    {
        const kuclfolded folded = kuclfoldkeyword(*ctx_->kuxlangidh, keyword.text, keyword.length);
        std::uint32_t hash = 2166136261; // FNV-1a
        for (std::size_t i = 0; i < folded.length; i++) hash = (hash ^ folded.bytes[i]) * 16777619;
        return hash;
    }

    // Takes up the definitions that are new on the list. Half of the slots stay free.
    bool cover(void *inp, std::int32_t count)
    {
        if (!slots_ || static_cast<std::uint32_t>(count) > mask_ / 2) {
            const std::uint64_t wanted =
                std::bit_ceil(std::uint64_t{4} * static_cast<std::uint32_t>(count));
            slots_.reset(
                static_cast<std::int32_t *>(ku::allocate(ctx_, wanted, sizeof(std::int32_t))));
            if (!slots_) return false;
            std::fill_n(slots_.get(), wanted, 0);
            mask_ = static_cast<std::uint32_t>(wanted - 1);
            known_ = 0;
        }
        for (; known_ < count; known_++) {
            const char *keyword = definition(inp, known_)->kuclakwd;
            if (keyword == nullptr) continue;
            std::uint32_t at = place({keyword, std::strlen(keyword)});
            while (slots_.get()[at & mask_] != 0) at++;
            slots_.get()[at & mask_] = known_ + 1;
        }
        return true;
    }

    kux *ctx_;
    ku::owned<std::int32_t> slots_; // index of a definition, plus 1; 0: free
    std::uint32_t mask_ = 0;        // number of slots, a power of two, less 1
    std::int32_t known_ = 0;        // definitions taken up
};

// The definition with the pending keyword, added when there is none; null without memory.
kucla *kuclfas(kux *ctx, kucls &parser)
{
    const kuclkeyword wanted{parser.kuclskwd, parser.kuclskwl};
    kucla *argument = parser.index->find(parser.kuclsinp, wanted);
    if (argument != nullptr) return argument;
    ku::owned<kucla> added(ctx, ku::allocate<kucla>(ctx));
    if (!added) return nullptr;
    ku::owned<char> keyword(ctx, kuclduplicate(ctx, parser.kuclskwd, parser.kuclskwl));
    if (!keyword || kulpinsert(ctx, parser.kuclsinp, KUL_APPEND, added.get()) != 0) return nullptr;
    *added.get() = {};
    added->kuclakwd = keyword.keep();
    added->kuclaflg = KUCL_ADDED | KUCL_UNDECLARED | KUCL_LIST;
    return added.keep();
}

// ---- values ----

// An optional sign and decimal digits, within 32 bits.
bool kuclinteger(const char *text, std::int64_t *value)
{
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') text++;
    if (*text == '\0') return false;
    while (*text == '0') text++;
    *value = 0;
    std::int32_t digits = 0;
    for (; *text >= '0' && *text <= '9' && digits <= kucl_integerdigits; text++, digits++)
        *value = *value * 10 + (*text - '0');
    if (negative) *value = -*value;
    return *text == '\0' && *value >= INT32_MIN && *value <= INT32_MAX;
}

bool kuclischoice(kux *ctx, const kucla &argument, const char *value)
{
    if (argument.kuclalst == nullptr) return false;
    const bool nocase = (argument.kuclaflg & KUCL_NOCASE) != 0;
    const std::size_t length = std::strlen(value);
    const kul *list = kulplock(ctx, argument.kuclalst);
    bool found = false;
    for (std::int32_t i = 0; i < list->nitems_kul && !found; i++) {
        const auto *allowed = static_cast<const char *>(list->items_kul[i]);
        found =
            kuclsametext(*ctx->kuxlangidh, value, length, allowed, std::strlen(allowed), nocase);
    }
    kulpunlock(ctx, argument.kuclalst);
    return found;
}

bool kuclisallowed(kux *ctx, const kucla &argument, const char *value)
{
    const std::uint32_t flags = argument.kuclaflg;
    if ((flags & KUCL_CHOICE) != 0 && !kuclischoice(ctx, argument, value)) return false;
    if ((flags & (KUCL_NUMBER | KUCL_RANGE)) == 0 || *value == '\0') return true;
    std::int64_t integer;
    if (!kuclinteger(value, &integer)) return false;
    return (flags & KUCL_RANGE) == 0
           || (argument.kuclalo <= integer && integer <= argument.kuclahi);
}

// Checks the collected values and attaches them to a definition; refused by a
// code of its own they stay with the parser, a bad value is attached all the same.
std::uint32_t kuclvch(kux *ctx, kucls &parser, kucla *argument)
{
    const std::int32_t count = kulpnitems(ctx, parser.kuclslst);
    if (argument->kuclaval != nullptr) return KUCLE_REPEATED;
    if (count > 1 && (argument->kuclaflg & KUCL_LIST) == 0) return KUCLE_NOTLIST;
    argument->kuclaval = parser.kuclslst;
    parser.kuclslst = nullptr;

    std::int32_t checked = 0;
    while (checked < count
           && kuclisallowed(ctx, *argument,
                            static_cast<char *>(kulpitem(ctx, argument->kuclaval, checked))))
        checked++;
    return checked < count ? KUCLE_BADVALUE : 0;
}

void kuclstore(kux *ctx, kucls &parser, kucla *argument)
{
    const std::uint32_t code = kuclvch(ctx, parser, argument);
    if (code != 0) kuclfail(ctx, parser, argument, code);
}

void kuclbykeyword(kux *ctx, kucls &parser)
{
    parser.kuclsarg = kucl_noposition;
    kucla *argument = kuclfas(ctx, parser);
    if (argument == nullptr)
        kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
    else if ((argument->kuclaflg & KUCL_UNDECLARED) != 0 && parser.kuclsusp == 0)
        kuclfail(ctx, parser, argument, KUCLE_UNKNOWN);
    else
        kuclstore(ctx, parser, argument);
}

void kuclbyposition(kux *ctx, kucls &parser)
{
    if (parser.kuclsarg < 0)
        kuclfail(ctx, parser, nullptr, KUCLE_POSITION);
    else if (parser.kuclsarg >= parser.kuclsnit)
        kuclfail(ctx, parser, nullptr, KUCLE_TOOMANY);
    else
        kuclstore(ctx, parser,
                  static_cast<kucla *>(kulpitem(ctx, parser.kuclsinp, parser.kuclsarg++)));
}

// Assigns the collected values to the argument that they are meant for.
void kuclpna(kux *ctx, kucls &parser)
{
    if (parser.kuclserr != nullptr) return;
    if (parser.kuclskwd != nullptr)
        kuclbykeyword(ctx, parser);
    else
        kuclbyposition(ctx, parser);
    kuclforget(ctx, parser);
}

// Adds the value just collected to the values of the pending argument.
void kuclanv(kux *ctx, kucls &parser)
{
    if (parser.kuclserr != nullptr) return;
    const std::string_view value(parser.kuclsval, parser.kuclsvln);
    if (value == "?" || value == "-?")
        kuclfail(ctx, parser, nullptr, KUCLE_HELP);
    else if (!kuclappend(ctx, &parser.kuclslst, value.data(), value.size()))
        kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
}

// ---- the token state machine ----

// Keeps every token; what the lexer has no type for is a word.
std::uint8_t kuclcbf(void *, const unsigned char *, std::uint32_t, std::uint32_t type,
                     std::uint32_t *typep)
{
    if (type == KUKP_T_ERROR) *typep = KUKP_T_WORD;
    return KUKP_A_KEEP;
}

// Reads the current token. Its text is taken from the object when it is needed.
void kuclread(kux *ctx, kucls &parser, void *tokens)
{
    kukonget(ctx, tokens, parser.kuclsctk, &parser.kuclscty, &parser.kuclscto, &parser.kuclsctl,
             nullptr);
}

// The current token begins where the one before it ends.
bool kuclabuts(kux *ctx, const kucls &parser, void *tokens)
{
    return kukonwlen(ctx, tokens, parser.kuclsctk - 1) == 0;
}

// Makes the text of the tokens from `first` to before `behind` the value, without
// a pair of quotes around it.
void kucltake(kux *ctx, kucls &parser, void *tokens, std::int32_t first, std::int32_t behind)
{
    kuclfreetext(ctx, &parser.valuecopy);
    parser.kuclsval = "";
    parser.kuclsvln = 0;
    if (first >= behind) return;
    const std::uint32_t length = kukorlen(ctx, tokens, first, behind - 1, KUKO_BOTH);
    const char *value = kukosgtext(ctx, tokens) + kukongoffset(ctx, tokens, first);
    if (ctx->kuxlangidh->shiftsensitive_kulang != 0) {
        parser.valuecopy = static_cast<char *>(ku::allocate(ctx, std::uint64_t{length} + 1, 1));
        if (parser.valuecopy == nullptr) return kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
        kukorassemble(ctx, tokens, first, behind - 1, KUKO_BOTH, parser.valuecopy, length);
        value = parser.valuecopy;
    }
    const bool quoted = length >= 2 && value[0] == value[length - 1]
                        && kuclisquote(static_cast<unsigned char>(value[0]));
    parser.kuclsval = quoted ? value + 1 : value;
    parser.kuclsvln = quoted ? length - 2 : length;
}

// Collects a value: tokens side by side up to one of two terminators, which is
// stepped over. Returns the terminator's type, or 0 when something else ended it.
std::uint32_t kuclact(kux *ctx, kucls &parser, void *tokens, std::uint32_t stop,
                      std::uint32_t other)
{
    const std::int32_t first = parser.kuclsctk;
    std::uint32_t terminator = 0;
    while (terminator == 0 && parser.kuclsctk < parser.kuclsntk) {
        kuclread(ctx, parser, tokens);
        if (parser.kuclscty == stop || parser.kuclscty == other)
            terminator = parser.kuclscty;
        else if (parser.kuclsctk > first && !kuclabuts(ctx, parser, tokens))
            break;
        else
            parser.kuclsctk++;
    }
    kucltake(ctx, parser, tokens, first, parser.kuclsctk);
    if (terminator != 0) parser.kuclsctk++;
    return terminator;
}

void kuclassign(kux *ctx, kucls &parser)
{
    kuclanv(ctx, parser);
    kuclpna(ctx, parser);
    parser.kuclstat = kucl_argument;
}

void kuclatargument(kux *ctx, kucls &parser, void *tokens)
{
    if (kuclact(ctx, parser, tokens, KUKP_T_EQ, KUKP_T_EQ) == 0) {
        kuclassign(ctx, parser);
        return;
    }
    parser.kuclskwd = parser.kuclsval;
    parser.kuclskwl = parser.kuclsvln;
    parser.keywordcopy = parser.valuecopy;
    parser.valuecopy = nullptr;
    parser.kuclstat = kucl_keyword;
}

void kuclatvalue(kux *ctx, kucls &parser, void *tokens)
{
    if (kuclabuts(ctx, parser, tokens))
        kuclact(ctx, parser, tokens, 0, 0);
    else
        kucltake(ctx, parser, tokens, 0, 0);
    kuclassign(ctx, parser);
}

void kuclatlist(kux *ctx, kucls &parser, void *tokens)
{
    const std::uint32_t terminator = kuclact(ctx, parser, tokens, KUKP_T_COMMA, KUKP_T_RPAREN);
    if (terminator == 0 || parser.kuclsvln == 0)
        kuclfail(ctx, parser, nullptr, KUCLE_SYNTAX);
    else if (terminator == KUKP_T_RPAREN)
        kuclassign(ctx, parser);
    else {
        kuclanv(ctx, parser);
        parser.kuclstat = kucl_next;
    }
}

// The tokens ended: a keyword gets the empty value, a list is not closed.
void kuclatend(kux *ctx, kucls &parser, void *tokens)
{
    if (parser.kuclstat == kucl_keyword) {
        kucltake(ctx, parser, tokens, 0, 0);
        kuclassign(ctx, parser);
    } else if (parser.kuclstat != kucl_argument) {
        kuclfail(ctx, parser, nullptr, KUCLE_SYNTAX);
    }
}

void kuclpts(kux *ctx, kucls &parser, void *tokens)
{
    parser.kuclsntk = kukosgnumtokens(ctx, tokens);
    while (parser.kuclserr == nullptr && parser.kuclsctk < parser.kuclsntk) {
        kuclread(ctx, parser, tokens);
        if (parser.kuclstat == kucl_first || parser.kuclstat == kucl_next) {
            kuclatlist(ctx, parser, tokens);
        } else if (parser.kuclscty == KUKP_T_LPAREN) {
            parser.kuclsctk++;
            parser.kuclstat = kucl_first;
        } else if (parser.kuclstat == kucl_keyword) {
            kuclatvalue(ctx, parser, tokens);
        } else {
            kuclatargument(ctx, parser, tokens);
        }
    }
    if (parser.kuclserr == nullptr) kuclatend(ctx, parser, tokens);
    kuclforget(ctx, parser);
}

// ---- text to tokens ----

// The extra token of command lines, in the list that the lexer wants.
class kuclextras : ku::unique
{
public:
    explicit kuclextras(kux *ctx) : ctx_(ctx), list_(kulpcreate(ctx, 1, items_)) {}
    ~kuclextras() { kulpdestroy(ctx_, list_); }
    void *list() const { return list_; }

private:
    static constexpr unsigned char backslash_[] = {'\\'};
    kux *ctx_;
    kukat token_{backslash_, sizeof backslash_, kucl_backslash};
    void *items_[1] = {&token_};
    void *list_;
};

void *kuclsplit(kux *ctx, const char *text, void *extras, kucls &parser, std::int32_t state)
{
    kuka attributes{};
    attributes.mask_kuka = KUKA_TEXT | KUKA_WEIGHT | KUKA_MODE | KUKA_CALLBACK | KUKA_CONTEXT
                           | KUKA_STATE | KUKA_SERVER;
    attributes.origtxp_kuka = text;
    attributes.weight_kuka = 0;
    attributes.mode_kuka = KUKP_M_WORDS;
    attributes.cfunp_kuka = kuclcbf;
    attributes.cctxp_kuka = &parser;
    attributes.state_kuka = state;
    attributes.ctoklist_kuka = extras;
    attributes.srvrtype_kuka = KUKA_SERVER_NONE;
    return kukacreate(ctx, &attributes);
}

// Pieces of one text on their way to becoming one token object: slot n holds
// null or the join of 2 to the n pieces, the longer joins being the earlier text.
class kuclpieces : ku::unique
{
public:
    explicit kuclpieces(kux *ctx) : ctx_(ctx) {}
    ~kuclpieces()
    {
        for (void *joined : joined_) kukpdestroy(ctx_, joined);
    }

    // Takes a piece over; false without memory, or when there is no piece.
    bool add(void *piece)
    {
        std::size_t slot = 0;
        for (; piece != nullptr && joined_[slot] != nullptr; slot++) {
            piece = join(joined_[slot], piece);
            joined_[slot] = nullptr;
        }
        if (piece != nullptr) joined_[slot] = piece;
        return piece != nullptr;
    }

    // All pieces as one object, the caller's; null when there are none or without memory.
    void *whole()
    {
        void *piece = nullptr;
        for (void *&joined : joined_) {
            if (joined == nullptr) continue;
            piece = piece != nullptr ? join(joined, piece) : joined;
            joined = nullptr;
            if (piece == nullptr) return nullptr;
        }
        return piece;
    }

private:
    void *join(void *first, void *second)
    {
        void *both = kukeconcat(ctx_, first, second, 0);
        kukpdestroy(ctx_, first);
        kukpdestroy(ctx_, second);
        return both;
    }

    static constexpr std::size_t slots_ = 40; // more than memory has room for
    kux *ctx_;
    std::array<void *, slots_> joined_{};
};

// ---- the command file ----

class kuclstream : ku::unique
{
public:
    kuclstream(kux *ctx, const char *name) : ctx_(ctx)
    {
        const skuba existing{SKUBA_MODE, 0, 0, 0};
        stream_ = skubcreate(ctx, name, &existing);
    }
    ~kuclstream()
    {
        // A close that fails keeps the record: the second call releases it.
        if (skubclose(ctx_, stream_) != 0) skubclose(ctx_, stream_);
    }
    void *handle() const { return stream_; }

private:
    kux *ctx_;
    void *stream_;
};

// The line with its values quoted, and a space; null without memory.
char *kuclquoteline(kux *ctx, char *line)
{
    line[std::strcspn(line, "\n")] = '\0';
    char *const vector[] = {nullptr, line};
    char *text = kuclmoc(ctx, 2, vector, true);
    if (text == nullptr) return nullptr;
    const std::size_t length = std::strlen(text);
    text[length] = ' '; // within the room that kuclmoc makes for an argument
    text[length + 1] = '\0';
    return text;
}

// One line as a token object, analysed from `state`; null without memory.
void *kuclsplitline(kux *ctx, char *line, void *extras, kucls &parser, bool quote,
                    std::int32_t state)
{
    if (!quote) return kuclsplit(ctx, line, extras, parser, state);
    const ku::owned<char> quoted(ctx, kuclquoteline(ctx, line));
    return quoted ? kuclsplit(ctx, quoted.get(), extras, parser, state) : nullptr;
}

void kuclparsefile(kux *ctx, kucls &parser, void *extras, void *stream, bool quote)
{
    kuclpieces pieces(ctx);
    char line[kucl_linesize];
    std::int32_t state = KUKP_S_COMPLETE;
    bool any = false;
    while (skubsget(ctx, stream, line, sizeof line) == 0) {
        void *piece = kuclsplitline(ctx, line, extras, parser, quote, state);
        state = kukosgstate(ctx, piece);
        any = true;
        if (!pieces.add(piece)) return kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
    }
    if (!any) return;
    void *tokens = pieces.whole();
    if (tokens == nullptr || kukemerge(ctx, tokens) != 0)
        kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
    else
        kuclpts(ctx, parser, tokens);
    kukpdestroy(ctx, tokens);
}

// Reads the command file, if an argument with a value names one.
void kuclcommandfile(kux *ctx, kucls &parser, void *extras, bool quote)
{
    kucla *argument = kuclgas(ctx, parser.kuclsinp, KUCL_CMDFILE, nullptr);
    if (argument == nullptr || argument->kuclaval == nullptr) return;
    const auto *name = static_cast<const char *>(kulpfirst(ctx, argument->kuclaval));
    if (name == nullptr) return;
    const kuclstream stream(ctx, name);
    if (stream.handle() == nullptr) return kuclfail(ctx, parser, argument, KUCLE_CMDFILE);

    kuclsetup(ctx, parser, nullptr, parser.kuclsinp, parser.kuclsusp, parser.index);
    parser.kuclsarg = kucl_noposition;
    parser.where = KUCLE_INFILE;
    kuclparsefile(ctx, parser, extras, stream.handle(), quote);
    parser.where = KUCLE_INLINE;
}

// ---- defaults ----

// Gives a definition without values its default; false without memory.
bool kucldfa(kux *ctx, kucla *argument)
{
    if (argument->kuclaval != nullptr || argument->kucladef == nullptr) return true;
    void *values = nullptr;
    if (!kuclappend(ctx, &values, argument->kucladef, std::strlen(argument->kucladef))) {
        kulpdestroy(ctx, values);
        return false;
    }
    argument->kuclaval = values;
    return true;
}

void kucldfl(kux *ctx, kucls &parser)
{
    const std::int32_t count = kulpnitems(ctx, parser.kuclsinp);
    for (std::int32_t i = 0; i < count && parser.kuclserr == nullptr; i++)
        if (!kucldfa(ctx, static_cast<kucla *>(kulpitem(ctx, parser.kuclsinp, i))))
            kuclfail(ctx, parser, nullptr, KUCLE_NOMEM);
}

kucle *kuclparse(kux *ctx, const char *text, void *inp, std::uint32_t userp, bool quote)
{
    kucls parser;
    kuclindex index(ctx);
    kuclsetup(ctx, parser, text, inp, userp, &index);
    const kuclextras extras(ctx);
    void *tokens =
        extras.list() != nullptr ? kuclsplit(ctx, text, extras.list(), parser, 0) : nullptr;
    if (tokens == nullptr) return kuclexhausted(ctx);
    kuclpts(ctx, parser, tokens);
    kukpdestroy(ctx, tokens);
    if (parser.kuclserr == nullptr) kuclcommandfile(ctx, parser, extras.list(), quote);
    if (parser.kuclserr == nullptr) kucldfl(ctx, parser);
    return parser.kuclserr;
}

// There is no memory for a level of the error stack, so an allocator must not be
// asked: its failure would be pushed on the caller's.
kucle *kuclunsaved() { return const_cast<kucle *>(&kuclnomem[0]); }

} // namespace

kucle *kuclpa(kux *ctx, std::int32_t argc, char *const *argv, void *inp, std::uint32_t userp)
{
    const ku::aside quiet(ctx);
    if (!quiet.saved()) return kuclunsaved();
    const ku::owned<char> text(ctx, kuclmoc(ctx, argc, argv, false));
    if (!text) return kuclexhausted(ctx);
    return kuclparse(ctx, text.get(), inp, userp, false);
}

kucle *kuclps(kux *ctx, const char *cmdlin, void *inp, std::uint32_t userp)
{
    return kuclpsq(ctx, cmdlin, inp, userp, 0);
}

kucle *kuclpsq(kux *ctx, const char *cmdlin, void *inp, std::uint32_t userp, std::int32_t quote)
{
    const ku::aside quiet(ctx);
    if (!quiet.saved()) return kuclunsaved();
    return kuclparse(ctx, cmdlin, inp, userp, quote != 0);
}

char *kuclmo(kux *ctx, std::int32_t argc, char *const *argv)
{
    const ku::aside quiet(ctx);
    if (!quiet.saved()) return nullptr;
    return kuclmoc(ctx, argc, argv, false);
}

void *kuclgv(kux *ctx, void *inp, const char *kwd)
{
    if (kwd == nullptr) return nullptr;
    const kuclkeyword wanted{kwd, std::strlen(kwd)};
    const kucla *argument = kuclgas(ctx, inp, 0, &wanted);
    return argument != nullptr ? argument->kuclaval : nullptr;
}

kucle *kucledestroy(kux *ctx, kucle *kucle_p)
{
    const bool constant = kucle_p == &kuclnomem[0] || kucle_p == &kuclnomem[1];
    if (kucle_p != nullptr && !constant) ctx->kuxnmfree(ctx, kucle_p);
    return nullptr;
}
