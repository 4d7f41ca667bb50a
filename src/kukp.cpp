// kukp.cpp - lexer: a state machine over the characters of one text
//
//     text     s e l e c t   ' i t ' ' s '   - -   x
//     token    |---86----|   |----397----|   |-395-|
//     state  0 13 . . . . 17 6 . . 25 . 16 17 11 . . 17 0
//
// kukpdelta is the machine: from the state and the character at the current
// position it says the next state. The driver, kukpdrive, opens a token when a
// state begins one, steps, and hands the token over in state 17. A token that
// ends before the current character leaves that character to be looked at again
// from state 0; an operator or closing mark is first stepped over in states 14
// to 16. Where a text can end, its NUL is looked at like a character.
//
// The driver is compiled three times, for three readers of one interface:
// single-byte text, multibyte text, and text with shift states. A reader says
// what the lower-cased current character is without a lower-cased copy of the
// text: case is mapped while reading, so offsets are those of the text as given
// even where a character changes its length. kukpskip passes the characters
// on which the machine would stay in its state, byte by byte from a table;
// nothing else happens at them.
//
// One pass; per token one record and one slot of the list; no other memory. The
// records are in blocks that the object owns, the first as large as such a text
// needs as a rule. What else takes a record out of the list lets go of it with
// kukprelease, which knows which records are blocks of their own.
// Keywords are found by hash, built at compile time from the one table.
#include "kukp.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <functional>

#include "kuguard.h"
#include "kukp_internal.h"
#include "kul.h"
#include "kul_internal.h"
#include "kuxnl.h"
#include "port/locale/locale.h"

namespace
{

template <std::size_t size> constexpr kukptb kukpword(const char (&text)[size], std::uint32_t type)
{
    return {text, type, size - 1};
}

} // namespace

constexpr kukptb kukptbkw[KUKPTBKW_COUNT] = {
#include "kukp_words.inc"
};

constexpr kukptb kukptbsp[KUKPTBSP_COUNT] = {
    kukpword("(+)", KUKP_T_OUTER),   kukpword("<=", KUKP_T_LE),       kukpword(">=", KUKP_T_GE),
    kukpword("!=", KUKP_T_NE),       kukpword("<>", KUKP_T_NE),       kukpword("^=", KUKP_T_NE),
    kukpword("~=", KUKP_T_NE),       kukpword("||", KUKP_T_CONCAT),   kukpword(":=", KUKP_T_ASSIGN),
    kukpword("..", KUKP_T_RANGE),    kukpword("**", KUKP_T_POWER),    kukpword("<", KUKP_T_LT),
    kukpword(">", KUKP_T_GT),        kukpword("=", KUKP_T_EQ),        kukpword(",", KUKP_T_COMMA),
    kukpword("(", KUKP_T_LPAREN),    kukpword(")", KUKP_T_RPAREN),    kukpword("-", KUKP_T_MINUS),
    kukpword("+", KUKP_T_PLUS),      kukpword("*", KUKP_T_STAR),      kukpword("/", KUKP_T_SLASH),
    kukpword(":", KUKP_T_COLON),     kukpword("&", KUKP_T_AMPERSAND), kukpword("@", KUKP_T_AT),
    kukpword(";", KUKP_T_SEMICOLON), kukpword(".", KUKP_T_PERIOD),    kukpword("%", KUKP_T_PERCENT),
    kukpword("[", KUKP_T_LBRACKET),  kukpword("]", KUKP_T_RBRACKET),
};

namespace
{

// ---- states of the machine; KUKP_S_COMPLETE to KUKP_S_LABEL are states too ----

enum : std::int32_t {
    kukp_between = KUKP_S_COMPLETE,
    kukp_string = 6,
    kukp_identifier = 7,
    kukp_label = 8,
    kukp_comment = 9,
    kukp_hint = 10,
    kukp_line = 11,
    kukp_linehint = 12,
    kukp_word = 13,
    kukp_last3 = KUKP_S_STOPPED3, // the token's last three bytes begin here
    kukp_last2 = KUKP_S_STOPPED2, // ... last two
    kukp_last1 = KUKP_S_STOPPED1, // ... last one
    kukp_complete = KUKP_S_STOPPED,
    kukp_integer = 18,
    kukp_fraction = 19,
    kukp_exponent = 20,
    kukp_aftere = 21,
    kukp_suffix = 22,
    kukp_doubledidentifier = 24, // a doubled quote inside a quoted identifier
    kukp_doubledstring = 25,     // ... inside a string
    kukp_error = KUKP_S_ERROR,
    kukp_states
};

// Type of the token that a state is inside of; for KUKP_S_COMMENT to
// KUKP_S_LABEL, of the token that the text left open.
std::uint32_t kukpq2t(std::int32_t state)
{
    switch (state) {
    case KUKP_S_COMMENT: return KUKP_T_COMMENTOPEN;
    case KUKP_S_LINE: return KUKP_T_LINEOPEN;
    case KUKP_S_STRING: return KUKP_T_STRINGOPEN;
    case KUKP_S_IDENTIFIER: return KUKP_T_IDENTIFIEROPEN;
    case KUKP_S_LABEL: return KUKP_T_LABELOPEN;
    case kukp_string: return KUKP_T_STRING;
    case kukp_identifier: return KUKP_T_IDENTIFIER;
    case kukp_label: return KUKP_T_LABEL;
    case kukp_comment: return KUKP_T_COMMENT;
    case kukp_hint: return KUKP_T_HINT;
    case kukp_line: return KUKP_T_LINE;
    case kukp_linehint: return KUKP_T_LINEHINT;
    case kukp_integer:
    case kukp_fraction: return KUKP_T_NUMBER;
    default: return 0;
    }
}

// State inside the construct that a starting state continues.
std::int32_t kukpqconvert(std::int32_t state)
{
    switch (state) {
    case KUKP_S_COMMENT: return kukp_comment;
    case KUKP_S_LINE: return kukp_line;
    case KUKP_S_STRING: return kukp_string;
    case KUKP_S_IDENTIFIER: return kukp_identifier;
    case KUKP_S_LABEL: return kukp_label;
    default: return kukp_error;
    }
}

// ---- passing the characters that change nothing ----

// Traits of a byte: it may stand in a word, ends one, is an operator alone. A byte
// of none may be a letter, a digit or white space of the language.
constexpr std::uint8_t kukp_wordmark = 0x01;
constexpr std::uint8_t kukp_wordend = 0x02;
constexpr std::uint8_t kukp_operator = 0x04;

constexpr auto kukptraits = [] {
    std::array<std::uint8_t, 256> traits{};
    for (const char mark : {'$', '_', '#'})
        traits[static_cast<unsigned char>(mark)] |= kukp_wordmark;
    for (const char end : {'\0', ' ', '\'', '"'})
        traits[static_cast<unsigned char>(end)] |= kukp_wordend;
    for (const kukptb &entry : kukptbsp)
        if (entry.leng_kukptb == 1)
            traits[static_cast<unsigned char>(entry.keyp_kukptb[0])] |=
                kukp_operator | kukp_wordend;
    return traits;
}();

// What a state stays on: bytes of these classes and marks; or, without classes,
// every byte but this one. In a multibyte set the class of a byte from 128 up is
// not known here, and the run ends there; but the marks that end quoted text
// are never trail bytes.
struct kukpstay {
    std::uint16_t classes;
    std::uint8_t traits;
    char until; // NUL: on none, without classes
};
constexpr auto kukpstays = [] {
    std::array<kukpstay, kukp_states> stays{};
    stays[kukp_between] = {KULANG_SPACE, 0, '\0'};
    stays[kukp_string] = {0, 0, '\''};
    stays[kukp_identifier] = {0, 0, '"'};
    stays[kukp_label] = {0, 0, '>'};
    stays[kukp_comment] = {0, 0, '*'};
    stays[kukp_hint] = {0, 0, '*'};
    stays[kukp_line] = {0, 0, '\n'};
    stays[kukp_linehint] = {0, 0, '\n'};
    stays[kukp_word] = {KULANG_LETTER | KULANG_DIGIT, kukp_wordmark, '\0'};
    stays[kukp_integer] = {KULANG_DIGIT, 0, '\0'};
    stays[kukp_fraction] = {KULANG_DIGIT, 0, '\0'};
    stays[kukp_exponent] = {KULANG_DIGIT, 0, '\0'};
    return stays;
}();

// `end` is that of the text; the NUL there has no class and no mark.
inline const unsigned char *kukppass(const unsigned char *at, const unsigned char *end,
                                     const std::uint16_t *classes, std::int32_t state)
{
    const kukpstay stay = kukpstays[static_cast<std::size_t>(state)];
    if (stay.classes != 0) {
        while ((classes[*at] & stay.classes) != 0 || (kukptraits[*at] & stay.traits) != 0) at++;
        return at;
    }
    if (stay.until == '\0') return at;
    const void *mark = std::memchr(at, stay.until, static_cast<std::size_t>(end - at));
    return mark != nullptr ? static_cast<const unsigned char *>(mark) : end;
}

// ---- readers: the current character, lower-cased, and its neighbours ----

constexpr unsigned kukp_wide = 256; // code of a character that is not a single byte

// A place in the text. Shifted: the character there is inside a shifted run.
struct kukpplace {
    const unsigned char *at;
    bool shifted;
};

// Single-byte text. Every byte before the NUL is a character.
class kukpbytes
{
public:
    kukpbytes(const kulang &lang, const unsigned char *text, std::size_t length)
        : lower_(lang.lower_kulang), classes_(lang.classes_kulang), at_(text), end_(text + length)
    {
    }
    // The lower-cased current character; 0 at the end of the text.
    unsigned code() const { return lower_[*at_]; }
    std::uint32_t value() const { return lower_[*at_]; }
    bool is(unsigned classes) const { return (classes_[code()] & classes) != 0; }
    // The character `places` ahead is this ASCII character; those before it are known.
    bool ahead(unsigned places, char character) const
    {
        return at_[places] == static_cast<unsigned char>(character);
    }
    void step() { at_++; }
    void jump(const unsigned char *at) { at_ = at; }
    void pass(std::int32_t state) { at_ = kukppass(at_, end_, classes_, state); }
    bool ended() const { return at_ == end_; }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    kukpplace place() const { return {at_, false}; }
    // Where the character before the current one ends.
    kukpplace behind() const { return {at_, false}; }

private:
    const std::uint8_t *lower_;
    const std::uint16_t *classes_;
    const unsigned char *at_;
    const unsigned char *end_;
};

// A character that takes more than a look into a table.
struct kukpglyph {
    const unsigned char *at; // the character that this is about; null: none yet
    std::uint32_t value;     // its wide value, lower-cased
    unsigned code;           // the same when that is an ASCII character, else kukp_wide
    unsigned classes;        // of the lower-cased character
    std::uint32_t width;     // bytes in the text as given
};

void kukplookup(kukpglyph &glyph, const kucursor &cursor)
{
    const kulang &lang = *cursor.lang_kucursor;
    glyph.at = cursor.position_kucursor;
    glyph.value = ku::locale::wide_lower(lang, ku::locale::wide(cursor));
    glyph.code = glyph.value < 0x80 ? glyph.value : kukp_wide;
    glyph.classes = ku::locale::wide_classes(lang, glyph.value);
    glyph.width = ku::locale::width(cursor);
}

kucursor kukpcursor(const kulang &lang, const unsigned char *text, std::size_t length)
{
    kucursor cursor;
    ku::locale::open_exact(&cursor, const_cast<unsigned char *>(text), length, &lang,
                           ku::locale::cursor_mode::read);
    return cursor;
}

// Multibyte text without shift states: a byte below 128 where a character
// begins is an ASCII character, read as in single-byte text.
class kukpcharacters
{
public:
    kukpcharacters(const kulang &lang, const unsigned char *text, std::size_t length)
        : lang_(&lang), at_(text), end_(text + length)
    {
    }
    unsigned code() { return *at_ < 0x80 ? lang_->lower_kulang[*at_] : glyph().code; }
    std::uint32_t value() { return *at_ < 0x80 ? lang_->lower_kulang[*at_] : glyph().value; }
    bool is(unsigned classes)
    {
        if (*at_ < 0x80) return (lang_->classes_kulang[*at_] & classes) != 0;
        return (glyph().classes & classes) != 0;
    }
    bool ahead(unsigned places, char character) const
    {
        return at_[places] == static_cast<unsigned char>(character);
    }
    void step() { at_ += *at_ < 0x80 ? 1 : glyph().width; }
    void jump(const unsigned char *at) { at_ = at; }
    void pass(std::int32_t state) { at_ = kukppass(at_, end_, lang_->classes_kulang, state); }
    bool ended() const { return at_ == end_; }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    kukpplace place() const { return {at_, false}; }
    kukpplace behind() const { return {at_, false}; }

private:
    const kukpglyph &glyph()
    {
        if (glyph_.at == at_) return glyph_;
        kukplookup(glyph_, kukpcursor(*lang_, at_, left()));
        if (glyph_.width == 0) // the text ends inside it, which a cursor takes for the end
            glyph_ = {at_, KULANG_RAWBYTE + *at_, kukp_wide, 0, 1};
        return glyph_;
    }

    const kulang *lang_;
    const unsigned char *at_;
    const unsigned char *end_;
    kukpglyph glyph_{};
};

// Text with shift states: the cursor alone knows what a byte means. It takes
// in shift bytes with the step before them, so where a character ends is noted
// before that. It has no limit: the text ends at its NUL, and half a pair before
// that is a character that is not understood.
class kukpshifted
{
public:
    kukpshifted(const kulang &lang, const unsigned char *text, std::size_t length)
        : cursor_(kukpcursor(lang, text, SIZE_MAX)), behind_(place()), end_(text + length)
    {
    }
    unsigned code() { return glyph().code; }
    std::uint32_t value() { return glyph().value; }
    bool is(unsigned classes) { return (glyph().classes & classes) != 0; }
    bool ahead(unsigned places, char character) const
    {
        return ku::locale::is_ahead(cursor_, places, static_cast<unsigned char>(character));
    }
    void step()
    {
        behind_ = {place().at + glyph().width, place().shifted};
        ku::locale::step(cursor_);
    }
    void pass(std::int32_t) {}
    bool ended() const { return ku::locale::current(cursor_) == 0; }
    std::size_t left() const { return static_cast<std::size_t>(end_ - place().at); }
    kukpplace place() const { return {cursor_.position_kucursor, cursor_.shifted_kucursor != 0}; }
    kukpplace behind() const { return behind_; }

private:
    const kukpglyph &glyph()
    {
        if (glyph_.at != cursor_.position_kucursor) kukplookup(glyph_, cursor_);
        return glyph_;
    }

    kucursor cursor_;
    kukpplace behind_;
    const unsigned char *end_;
    kukpglyph glyph_{};
};

// ---- one analysis ----

struct kukprun {
    kux *ctx;
    kuk *object;
    kukpobject *whole;          // the same object
    kul *list;                  // its tokens
    const unsigned char *given; // the text as given to create
    void *clients;              // client token list, or null
    kukptokenfn callback;       // or null
    void *callbackcontext;
};

// ---- recognisers ----

// A recognised operator. Bytes and characters differ only in client tokens.
struct kukpspecial {
    std::uint32_t bytes; // 0: nothing was recognised
    std::uint32_t characters;
    std::uint32_t type;
};

// What is behind the first character of an entry of kukptbsp, and its type.
struct kukprest {
    char second, third;  // NUL: none
    std::uint8_t length; // of the entry; 0: no entry
    std::uint16_t type;
};

// The entries that begin with each ASCII character, in table order.
constexpr std::size_t kukp_sharers = 3; // most entries that begin alike
constexpr auto kukpbyfirst = [] {
    std::array<std::array<kukprest, kukp_sharers + 1>, 128> index{};
    for (const kukptb &entry : kukptbsp) {
        const char *text = entry.keyp_kukptb;
        const std::uint32_t length = entry.leng_kukptb;
        auto &row = index[static_cast<unsigned char>(text[0])];
        std::size_t slot = 0;
        while (row[slot].length != 0) slot++; // past the row: not a constant, and so refused
        row[slot] = {length > 1 ? text[1] : '\0', length > 2 ? text[2] : '\0',
                     static_cast<std::uint8_t>(length),
                     static_cast<std::uint16_t>(entry.type_kukptb)};
    }
    return index;
}();

// Type of the ASCII characters that are an operator alone and begin nothing
// else, no number and no comment either; 0: of all others.
constexpr auto kukpalone = [] {
    std::array<std::uint16_t, 128> types{};
    for (std::size_t i = 0; i < types.size(); i++) {
        const auto &row = kukpbyfirst[i];
        const bool more = row[1].length != 0 || i == '.' || i == '-' || i == '/';
        if (row[0].length == 1 && !more) types[i] = row[0].type;
    }
    return types;
}();

// The lower-cased text here begins with the client token: how many characters that
// is; else 0. What the end of the token cuts off is no part of a character of the
// text. Shift bytes at its end are in the text, too, but for one that only ends
// the token's shifted run: that may go on in the text.
template <class Reader> std::uint32_t kukpbegins(const kulang &lang, Reader in, const kukat &token)
{
    std::uint32_t characters = 0;
    const unsigned char *limit = token.token_kukat + token.tokenl_kukat;
    kucursor wanted = kukpcursor(lang, token.token_kukat, token.tokenl_kukat);
    kukpplace end{token.token_kukat, false};
    for (; !ku::locale::past_size(wanted); characters++) {
        if (in.ended() || in.value() != ku::locale::wide(wanted)) return 0;
        end = {wanted.position_kucursor + ku::locale::width(wanted), wanted.shifted_kucursor != 0};
        ku::locale::step(wanted);
        in.step();
    }
    const unsigned char *left = wanted.position_kucursor;
    if (left == limit && end.at < limit) {
        const std::ptrdiff_t shifts = limit - end.at;
        if (shifts == 1 && end.shifted) return characters;
        const bool same =
            in.place().at - in.behind().at >= shifts && std::equal(end.at, limit, in.behind().at);
        return same ? characters : 0;
    }
    for (; left < limit; left++, characters++) {
        if (in.ended() || in.value() != KULANG_RAWBYTE + *left) return 0;
        in.step();
    }
    return characters;
}

// The first client token that the text here begins with.
template <class Reader> kukpspecial kukpxtoken(const kukprun &run, const Reader &in)
{
    kukpspecial found{};
    const kul *list = kulplock(run.ctx, run.clients);
    for (std::int32_t i = 0; i < list->nitems_kul && found.bytes == 0; i++) {
        const auto *token = static_cast<const kukat *>(list->items_kul[i]);
        if (token == nullptr) continue;
        const std::uint32_t characters = kukpbegins(*run.ctx->kuxlangidh, in, *token);
        if (characters > 0) found = {token->tokenl_kukat, characters, token->ttype_kukat};
    }
    kulpunlock(run.ctx, run.clients);
    return found;
}

// The operator that the text here begins with: a client token, or the first of kukptbsp.
template <class Reader> kukpspecial kukpisp(const kukprun &run, Reader &in)
{
    if (run.clients != nullptr) {
        const kukpspecial found = kukpxtoken(run, in);
        if (found.bytes > 0) return found;
    }
    const unsigned code = in.code();
    if (code >= kukpbyfirst.size()) return {};
    for (const kukprest &rest : kukpbyfirst[code]) {
        if (rest.length == 0) break;
        if (rest.second != '\0' && !in.ahead(1, rest.second)) continue;
        if (rest.third != '\0' && !in.ahead(2, rest.third)) continue;
        return {rest.length, rest.length, rest.type};
    }
    return {};
}

// ---- keywords ----

constexpr std::size_t kukp_longest = [] {
    std::uint32_t longest = 0;
    for (const kukptb &word : kukptbkw) longest = std::max(longest, word.leng_kukptb);
    return longest;
}();

// First bytes of a word as one number, with bit 5 of each byte set: that makes
// lower-case letters of capitals, and no two of the bytes of words alike else.
constexpr std::size_t kukp_headsize = 8;
constexpr std::uint64_t kukp_bit5 = 0x2020202020202020u;
constexpr std::uint64_t kukp_bit7 = 0x8080808080808080u; // set in a byte that is not ASCII
constexpr std::uint64_t kukpmask(std::size_t length)     // of the bytes that a word has in a head
{
    return length >= kukp_headsize ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * length) - 1;
}
constexpr std::uint64_t kukphead(const char *word, std::size_t length)
{
    std::uint64_t head = 0;
    for (std::size_t i = 0; i < length && i < kukp_headsize; i++)
        head |= std::uint64_t{static_cast<unsigned char>(word[i])} << (8 * i);
    return head | (kukp_bit5 & kukpmask(length));
}

// The keywords hashed by head and length, open addressing, less than half full.
constexpr std::size_t kukp_slotbits = 10;
constexpr std::size_t kukpslot(std::uint64_t head, std::size_t length)
{
    return static_cast<std::size_t>((head + length) * 0x9E3779B97F4A7C15u >> (64 - kukp_slotbits));
}
constexpr std::size_t kukpnextslot(std::size_t slot)
{
    return (slot + 1) % (std::size_t{1} << kukp_slotbits);
}
struct kukphashed {
    std::array<std::uint64_t, std::size_t{1} << kukp_slotbits> heads; // 0: an empty slot
    std::array<std::uint16_t, std::size_t{1} << kukp_slotbits> numbers;
};
constexpr auto kukpslots = [] {
    kukphashed slots{};
    for (std::uint16_t i = 0; i < KUKPTBKW_COUNT; i++) {
        const std::size_t length = kukptbkw[i].leng_kukptb;
        const std::uint64_t head = kukphead(kukptbkw[i].keyp_kukptb, length);
        std::size_t slot = kukpslot(head, length);
        while (slots.heads[slot] != 0) slot = kukpnextslot(slot);
        slots.heads[slot] = head;
        slots.numbers[slot] = i;
    }
    return slots;
}();

// Type of the word, all ASCII in any case, of this head and length.
std::uint32_t kukpsearch(std::uint64_t head, const unsigned char *word, std::size_t length)
{
    for (std::size_t slot = kukpslot(head, length); kukpslots.heads[slot] != 0;
         slot = kukpnextslot(slot)) {
        if (kukpslots.heads[slot] != head) continue;
        const kukptb &entry = kukptbkw[kukpslots.numbers[slot]];
        if (entry.leng_kukptb != length) continue;
        std::size_t same = kukp_headsize;
        while (same < length && (word[same] | 0x20) == (entry.keyp_kukptb[same] | 0x20)) same++;
        if (same >= length) return entry.type_kukptb;
    }
    return KUKP_T_WORD;
}

// Type of a word that is not all ASCII as given: lower-cased character by
// character, it may be a keyword still.
template <class Reader>
std::uint32_t kukpikwslow(const kulang &lang, const unsigned char *text, std::size_t length)
{
    unsigned char word[std::max(kukp_longest, kukp_headsize)];
    std::size_t size = 0;
    for (Reader in(lang, text, length); in.place().at < text + length; in.step()) {
        const unsigned code = in.code();
        if (code >= 0x80 || size == kukp_longest) return KUKP_T_WORD;
        word[size++] = static_cast<unsigned char>(code);
    }
    return kukpsearch(kukphead(reinterpret_cast<const char *>(word), size), word, size);
}

// Eight bytes of the text, the first in the lowest ones.
std::uint64_t kukpeight(const unsigned char *at)
{
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, at, sizeof bytes);
    return bytes;
}

// Type of the word at `start`, `length` bytes of the text as given, of which
// `left` remain from there.
template <class Reader>
std::uint32_t kukpikw(const kulang &lang, const kukpplace &start, std::size_t length,
                      std::size_t left)
{
    if (start.shifted) return KUKP_T_WORD;
    std::uint64_t head = 0;
    if (left >= kukp_headsize)
        head = kukpeight(start.at);
    else
        std::memcpy(&head, start.at, left);
    const std::uint64_t mask = kukpmask(length);
    head &= mask;
    std::uint64_t all = head;
    if (length > kukp_headsize) {
        for (std::size_t at = kukp_headsize; at + kukp_headsize < length; at += kukp_headsize)
            all |= kukpeight(start.at + at);
        all |= kukpeight(start.at + length - kukp_headsize);
    }
    if ((all & kukp_bit7) != 0) return kukpikwslow<Reader>(lang, start.at, length);
    if (length > kukp_longest) return KUKP_T_WORD;
    return kukpsearch(head | (kukp_bit5 & mask), start.at, length);
}

// ---- the machine ----

// The reader one character on.
template <class Reader> Reader kukplookahead(Reader in)
{
    in.step();
    return in;
}

// What ends a word and a number, but for the operators.
template <class Reader> bool kukpends(Reader &in)
{
    const unsigned code = in.code();
    return in.is(KULANG_SPACE) || code == 0 || code == '\'' || code == '"';
}

// A word may end here. An operator of one character ends it whatever client
// token is found there instead, so it is known without the recogniser.
template <class Reader> bool kukpmkywrhs(const kukprun &run, Reader &in)
{
    const unsigned code = in.code();
    if (code < 128 && (kukptraits[code] & kukp_wordend) != 0) return true;
    return kukpends(in) || kukpisp(run, in).bytes > 0;
}

// A number may end here: not before a lone period, which belongs to it.
template <class Reader> bool kukpmnumrhs(const kukprun &run, Reader &in)
{
    if (kukpends(in)) return true;
    const kukpspecial special = kukpisp(run, in);
    return special.bytes > 1 || (special.bytes == 1 && special.type != KUKP_T_PERIOD);
}

constexpr std::uint32_t kukp_longestoperator = 3; // bytes of an operator that can start a token

// From between tokens to an operator, which is reported.
template <class Reader>
std::int32_t kukpoperator(const kukprun &run, Reader &in, kukpspecial *begun)
{
    const kukpspecial special = kukpisp(run, in);
    if (special.bytes == 0) return kukp_error;
    if (special.bytes > kukp_longestoperator) return kukp_between;
    if (special.bytes == 1 && special.type == KUKP_T_PERIOD && kukplookahead(in).is(KULANG_DIGIT))
        return kukp_fraction;
    *begun = special;
    return kukp_complete - static_cast<std::int32_t>(special.bytes);
}

// The state after a character inside a word.
template <class Reader> std::int32_t kukpinword(const kukprun &run, Reader &in)
{
    if (in.is(KULANG_LETTER | KULANG_DIGIT)) return kukp_word;
    const unsigned code = in.code();
    if (code == '$' || code == '_' || code == '#') return kukp_word;
    return kukpmkywrhs(run, in) ? kukp_complete : kukp_error;
}

// The state after the current character; the tests of a state are made in order.
// Writes `begun` when an operator begins here.
template <class Reader>
std::int32_t kukpdelta(const kukprun &run, Reader &in, std::int32_t state, kukpspecial *begun)
{
    const unsigned code = in.code();
    switch (state) {
    case kukp_between:
        if (code == '\'') return kukp_string;
        if (code == '"') return kukp_identifier;
        if (code == '/' && in.ahead(1, '*')) return in.ahead(2, '+') ? kukp_hint : kukp_comment;
        if (code == '-' && in.ahead(1, '-')) return in.ahead(2, '+') ? kukp_linehint : kukp_line;
        if (code == '<' && in.ahead(1, '<')) return kukp_label;
        if (code == 0 || in.is(KULANG_SPACE)) return kukp_between;
        if (in.is(KULANG_LETTER)) return kukp_word;
        if (in.is(KULANG_DIGIT)) return kukp_integer;
        return kukpoperator(run, in, begun);

    case kukp_string:
        if (code == '\'') return in.ahead(1, '\'') ? kukp_doubledstring : kukp_last1;
        return code == 0 ? KUKP_S_STRING : state;

    case kukp_identifier:
        if (code == '"') return in.ahead(1, '"') ? kukp_doubledidentifier : kukp_last1;
        return code == 0 ? KUKP_S_IDENTIFIER : state;

    case kukp_label:
        if (code == '>' && in.ahead(1, '>')) return kukp_last2;
        return code == 0 ? KUKP_S_LABEL : state;

    case kukp_comment:
    case kukp_hint:
        if (code == '*' && in.ahead(1, '/')) return kukp_last2;
        return code == 0 ? KUKP_S_COMMENT : state;

    case kukp_line:
    case kukp_linehint: return code == '\n' || code == 0 ? kukp_complete : state;

    case kukp_word: return kukpinword(run, in);

    case kukp_integer:
        if (in.is(KULANG_DIGIT)) return kukp_integer;
        if (kukpmnumrhs(run, in)) return kukp_complete;
        if (code == '.') return kukp_fraction;
        if (code == 'e') return kukp_aftere;
        return code == 'k' || code == 'm' ? kukp_suffix : kukp_error;

    case kukp_fraction:
        if (in.is(KULANG_DIGIT)) return kukp_fraction;
        if (code == 'e') return kukp_aftere;
        return kukpmnumrhs(run, in) ? kukp_complete : kukp_error;

    case kukp_aftere:
        if (in.is(KULANG_DIGIT) || code == '+' || code == '-') return kukp_exponent;
        return kukpmnumrhs(run, in) ? kukp_complete : kukp_error;

    case kukp_exponent:
        if (in.is(KULANG_DIGIT)) return kukp_exponent;
        return kukpmnumrhs(run, in) ? kukp_complete : kukp_error;

    case kukp_suffix: return kukpmnumrhs(run, in) ? kukp_complete : kukp_error;

    default: return state;
    }
}

// ---- storing ----

// Bits of a callback's answer.
constexpr std::uint32_t kukp_goon = 1;
constexpr std::uint32_t kukp_drop = 2;

constexpr std::uint64_t kukp_leastrecords = 16; // records of a block behind the first
constexpr std::uint64_t kukp_mostrecords = 1u << 20;

// Another block of records, as many as there are so far. False without memory.
bool kukpmorerecords(kux *ctx, kukpobject &object, const kul &list)
{
    const auto have = static_cast<std::uint64_t>(list.nitems_kul);
    const std::uint64_t count = std::clamp(have, kukp_leastrecords, kukp_mostrecords);
    const std::uint64_t size = offsetof(kukpblock, records) + count * sizeof(kukn);
    auto *block = static_cast<kukpblock *>(ku::allocate(ctx, size, 1));
    if (block == nullptr) return false;
    block->next = object.more;
    block->end = block->records + count;
    object.more = block;
    object.unused = block->records;
    object.end = block->end;
    return true;
}

// Room for one more token. False: KUKAA_TOKEN was pushed.
bool kukproom(kux *ctx, kukpobject &object, kul &list)
{
    // Half as many again, so that long texts are stored in linear time.
    if ((object.unused != object.end || kukpmorerecords(ctx, object, list))
        && (list.nitems_kul < list.maxitems_kul
            || kulrealloc(ctx, list, list.nitems_kul * std::uint64_t{3} / 2) == 0))
        return true;
    kuxer0push(ctx, KUKAA_TOKEN);
    return false;
}

// Appends a token record to the object. False: KUKAA_TOKEN was pushed.
[[gnu::always_inline]] inline bool kukptadd(const kukprun &run, std::uint32_t type,
                                            std::uint32_t offset, std::uint32_t length)
{
    kukpobject &object = *run.whole;
    kul &list = *run.list;
    const bool full = object.unused == object.end || list.nitems_kul == list.maxitems_kul;
    if (full && !kukproom(run.ctx, object, list)) return false;
    kukn *token = object.unused++;
    *token = {type, offset, length, nullptr};
    list.items_kul[list.nitems_kul++] = token;
    return true;
}

// What a token covers: from the first character to the end of the last.
struct kukpspan {
    kukpplace start;
    kukpplace end;
};

// Shows a token to the callback, if there is one. `action` and `type` are its
// answer then; `length` counts shift bytes. False: out of memory.
bool kukpshow(const kukprun &run, const kukpspan &span, std::uint32_t *type, std::uint32_t *length,
              std::uint32_t *action)
{
    const std::uint32_t bytes = *length;
    const bool opens = bytes > 0 && span.start.shifted;
    const bool closes = bytes > 0 && span.end.shifted;
    *length += (opens ? 1 : 0) + (closes ? 1 : 0);
    if (run.callback == nullptr) return true;
    const unsigned char *token = run.given + (span.start.at - run.object->origtxp_kuk);
    if (opens || closes)
        token = kukpstandalone(run.ctx, span.start.at, bytes, opens, closes, length);
    if (token == nullptr) return false;
    const std::uint32_t seen = *type;
    *action = run.callback(run.callbackcontext, token, *length, seen, type);
    return true;
}

// Shows a token to the callback and stores it. `action` holds what happens
// without a callback, and the callback's answer afterwards. False: out of memory.
[[gnu::always_inline]] inline bool kukpaction(const kukprun &run, const kukpspan &span,
                                              std::uint32_t type, std::uint32_t *action)
{
    const auto offset = static_cast<std::uint32_t>(span.start.at - run.object->origtxp_kuk);
    auto length = static_cast<std::uint32_t>(span.end.at - span.start.at);
    if (run.callback != nullptr || span.start.shifted || span.end.shifted) {
        if (!kukpshow(run, span, &type, &length, action)) return false;
        if ((*action & kukp_drop) != 0) return true;
    }
    return kukptadd(run, type, offset, length);
}

// ---- the driver ----

constexpr std::int32_t kukp_failed = -1;

// Type of a word in the object's mode.
template <class Reader>
std::uint32_t kukpwordtype(const kukprun &run, const kukpplace &start, std::size_t length,
                           std::size_t left)
{
    if (run.object->mode_kuk == KUKP_M_WORDS) return KUKP_T_WORD;
    if (run.object->mode_kuk != KUKP_M_KEYWORDS) return 0;
    return kukpikw<Reader>(*run.ctx->kuxlangidh, start, length, left);
}

// A period here is an operator: it begins no number and no longer operator.
bool kukpislonely(const unsigned char *at, const std::uint16_t *classes)
{
    return at[0] == '.' && at[1] != '.' && at[1] < 128 && (classes[at[1]] & KULANG_DIGIT) == 0;
}

// Most tokens need no machine: words of ASCII letters between plain ends, and
// operators that begin nothing else. Passes such tokens up to the first other
// one. Returns kukp_between there, the state in which the callback stopped, or
// kukp_failed.
template <class Reader> std::int32_t kukpplain(const kukprun &run, Reader &in)
{
    const std::uint16_t *classes = run.ctx->kuxlangidh->classes_kulang;
    const unsigned char *const end = in.place().at + in.left();
    for (;;) {
        const unsigned char *at = in.place().at;
        while (end - at >= std::ptrdiff_t{kukp_headsize} && kukpeight(at) == kukp_bit5)
            at += kukp_headsize; // eight blanks of an indentation
        at = kukppass(at, end, classes, kukp_between);
        in.jump(at);
        const unsigned char *const start = at;
        std::uint32_t type = 0;
        std::int32_t state = kukp_last1;
        if (*at >= 128) return kukp_between;
        if ((classes[*at] & KULANG_LETTER) != 0) {
            at = kukppass(at + 1, end, classes, kukp_word);
            if ((kukptraits[*at] & kukp_wordend) == 0) return kukp_between;
            const auto length = static_cast<std::size_t>(at - start);
            type = kukpwordtype<Reader>(run, {start, false}, length,
                                        static_cast<std::size_t>(end - start));
            state = kukp_complete;
        } else {
            type = kukpislonely(at, classes) ? KUKP_T_PERIOD : kukpalone[*at];
            if (type == 0) return kukp_between;
            at++;
        }
        in.jump(at);
        std::uint32_t action = KUKP_A_KEEP;
        if (!kukpaction(run, {{start, false}, {at, false}}, type, &action)) return kukp_failed;
        if ((action & kukp_goon) == 0) return state;
    }
}

// In text with shift states a byte may mean anything.
std::int32_t kukpplain(const kukprun &, kukpshifted &) { return kukp_between; }

// Analyses the text from `state`. Returns the end state, or kukp_failed. A function for each
// reader: less stays in registers where the compiler puts all of them into one.
template <class Reader>
[[gnu::noinline]] std::int32_t kukpdrive(const kukprun &run, Reader in, std::int32_t state)
{
    kukpplace start = in.place();
    kukpspecial token{0, 0, kukpq2t(state)}; // its size is set for operators alone
    for (;;) {
        if (state == kukp_between) {
            if (run.clients == nullptr) state = kukpplain(run, in);
            if (state != kukp_between) return state;
            in.pass(state);
            start = in.place(); // where the next token begins, if one does
        } else {
            in.pass(state);
        }
        state = kukpdelta(run, in, state, &token);
        std::uint32_t action = KUKP_A_KEEP;
        switch (state) {
        case kukp_between:
            if (in.ended()) return kukp_between;
            in.step();
            continue;

        case KUKP_S_COMMENT:
        case KUKP_S_STRING:
        case KUKP_S_IDENTIFIER:
        case KUKP_S_LABEL: // the text ended inside it
            token.type = kukpq2t(state);
            action = KUKP_A_LAST;
            break;

        default:
            if (token.type == 0) token.type = kukpq2t(state);
            in.step();
            continue;

        case kukp_doubledstring:
        case kukp_doubledidentifier:
            in.step();
            in.step();
            state = state == kukp_doubledstring ? kukp_string : kukp_identifier;
            continue;

        case kukp_last3:
        case kukp_last2:
        case kukp_last1: // the state counts bytes, of which a client token's characters have more
            if (token.characters == 0)
                token.characters = static_cast<std::uint32_t>(kukp_complete - state);
            for (; token.characters > 0; token.characters--) in.step();
            [[fallthrough]];
        case kukp_complete:
            if (token.type == 0) {
                const auto length = static_cast<std::size_t>(in.behind().at - start.at);
                token.type = kukpwordtype<Reader>(run, start, length, length + in.left());
            }
            break;

        case kukp_error: // the character that is not understood belongs to the token
            in.step();
            token.type = KUKP_T_ERROR;
            action = KUKP_A_LAST;
            break;
        }
        if (!kukpaction(run, {start, in.behind()}, token.type, &action)) return kukp_failed;
        if ((action & kukp_goon) == 0 || state <= KUKP_S_LABEL) return state;
        state = kukp_between;
        token = {};
    }
}

std::int32_t kukpanalyse(const kukprun &run, std::int32_t state)
{
    const kulang &lang = *run.ctx->kuxlangidh;
    const unsigned char *text = run.object->origtxp_kuk;
    const std::size_t length = run.object->origtxl_kuk;
    if (ku::locale::single_byte(lang)) return kukpdrive(run, kukpbytes(lang, text, length), state);
    if (lang.shiftsensitive_kulang == 0)
        return kukpdrive(run, kukpcharacters(lang, text, length), state);
    return kukpdrive(run, kukpshifted(lang, text, length), state);
}

// ---- creation ----

// Records that a text gets at first: SQL has one token in five to eight bytes. A
// callback rather keeps what it wants than lets tokens be stored.
std::uint64_t kukpestimate(std::uint64_t length, kukptokenfn callback)
{
    constexpr std::uint64_t bytes_per_token = 5;
    return callback != nullptr ? 0 : std::min(length / bytes_per_token + 2, kukp_mostrecords);
}

// An object with room for so many tokens. Null without memory.
kukpobject *kukpmake(kux *ctx, std::uint64_t records)
{
    const std::uint64_t size = offsetof(kukpobject, records) + records * sizeof(kukn);
    auto *object = static_cast<kukpobject *>(ku::allocate(ctx, size, 1));
    if (object == nullptr) return nullptr;
    object->seen = {};
    object->more = nullptr;
    object->unused = object->records;
    object->end = object->firstend = object->records + records;
    return object;
}

// Gives the object its text: a copy, or the caller's. False without memory.
bool kukptakes(kux *ctx, kuk &object, const char *text, std::uint32_t length, std::int32_t weight)
{
    if (weight == 0) {
        void *copy = ku::allocate(ctx, std::uint64_t{length} + 1, 1);
        if (copy == nullptr) return false;
        text = static_cast<char *>(std::memcpy(copy, text, std::size_t{length} + 1));
    }
    object.weight_kuk = weight;
    object.origtxp_kuk = reinterpret_cast<const unsigned char *>(text);
    object.origtxl_kuk = length;
    return true;
}

// Fills the object: list, text, tokens. False: it failed somewhere.
bool kukpbuild(kukprun &run, const char *text, std::uint32_t length, std::int32_t weight,
               std::int32_t state)
{
    constexpr std::int32_t tokens_at_first = 10;
    run.list = static_cast<kul *>(kulpcreate(run.ctx, tokens_at_first, nullptr));
    run.object->origtklh_kuk = run.list;
    if (run.list == nullptr) {
        kuxer0push(run.ctx, KUKAA_LIST);
        return false;
    }
    if (!kukptakes(run.ctx, *run.object, text, length, weight)) return false;
    if (state != KUKP_S_COMPLETE) state = kukpqconvert(state);
    if (state == kukp_error) {
        kuxer0push(run.ctx, KUKAA_STATE);
        return false;
    }
    const std::int32_t end = kukpanalyse(run, state);
    run.object->state_kuk = end;
    return end != kukp_failed;
}

// Whether a record is in the object's first block.
bool kukpisfirst(const kukpobject &object, const kukn *token)
{
    const std::less<const kukn *> below;
    return !below(token, object.records) && below(token, object.firstend);
}

// Whether a record is in one of the object's blocks.
bool kukpowns(const kukpobject &object, const kukn *token)
{
    const std::less<const kukn *> below;
    if (kukpisfirst(object, token)) return true;
    const kukpblock *block = object.more;
    while (block != nullptr && (below(token, block->records) || !below(token, block->end)))
        block = block->next;
    return block != nullptr;
}

void kukpfree(kux *ctx, const kukpobject *object, kukn *token)
{
    if (object == nullptr || !kukpowns(*object, token)) ctx->kuxnmfree(ctx, token);
}

} // namespace

void kukprelease(kux *ctx, const kuk *object, kukn *token)
{
    const auto *whole = reinterpret_cast<const kukpobject *>(object);
    if (token->hint_kukn != token && token->hint_kukn != nullptr)
        kukpfree(ctx, whole, token->hint_kukn);
    kukpfree(ctx, whole, token);
}

const unsigned char *kukpstandalone(kux *ctx, const unsigned char *bytes, std::uint32_t length,
                                    bool opens, bool closes, std::uint32_t *copied)
{
    const kulang &lang = *ctx->kuxlangidh;
    const std::uint64_t need =
        (lang.shiftsensitive_kulang + lang.maxwidth_kulang) * std::uint64_t{2} + length;
    if (ctx->kuxtoklen < need) {
        // Not logged: the buffer is the context's and outlives the frame of whoever asks.
        const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(need, UINT32_MAX));
        kuxmloff(ctx);
        void *grown = nullptr;
        if (size == need)
            grown = ctx->kuxtokbuf == nullptr ? kuxnlalloc(ctx, size)
                                              : kuxnlrealloc(ctx, ctx->kuxtokbuf, size);
        if (grown == nullptr && ctx->kuxtokbuf != nullptr) kuxnlfree(ctx, ctx->kuxtokbuf);
        kuxmlon(ctx);
        ctx->kuxtokbuf = static_cast<unsigned char *>(grown);
        ctx->kuxtoklen = grown != nullptr ? size : 0;
        if (grown == nullptr) return nullptr;
    }
    unsigned char *to = ctx->kuxtokbuf;
    if (opens) *to++ = lang.shiftout_kulang;
    std::memcpy(to, bytes, length);
    to += length;
    if (closes) *to++ = lang.shiftin_kulang;
    *copied = static_cast<std::uint32_t>(to - ctx->kuxtokbuf);
    return ctx->kuxtokbuf;
}

void *kukpcreate(kux *ctx, const char *origtxp, std::int32_t weight, std::int32_t mode,
                 kukptokenfn funcp, void *cctxp, std::int32_t state)
{
    return kukpxcreate(ctx, origtxp, weight, mode, funcp, cctxp, state, nullptr, 0);
}

void *kukpxcreate(kux *ctx, const char *origtxp, std::int32_t weight, std::int32_t mode,
                  kukptokenfn funcp, void *cctxp, std::int32_t state, void *const *args,
                  std::uint32_t argsnum)
{
    if (origtxp == nullptr) return nullptr;
    const std::uint64_t length = std::strlen(origtxp);
    if (length >= UINT32_MAX) return nullptr;
    kukpobject *whole = kukpmake(ctx, kukpestimate(length, funcp));
    if (whole == nullptr) return nullptr;
    kuk *object = &whole->visible;
    *object = {kukp_error, mode, nullptr, 0, nullptr, 1};

    const auto *given = reinterpret_cast<const unsigned char *>(origtxp);
    kukprun run{ctx, object, whole, nullptr, given, nullptr, funcp, cctxp};
    if (argsnum > 0 && args != nullptr) run.clients = args[0];
    if (kukpbuild(run, origtxp, static_cast<std::uint32_t>(length), weight, state)) return object;

    object->state_kuk = kukp_error;
    const std::uint32_t code = kuxercode(ctx);
    if (code == KUKAA_KEEP || code == KUKAA_KEEP2) return object;
    return kukpdestroy(ctx, object);
}

std::int32_t ku::scan_tokens(kux *ctx, const char *text, std::int32_t mode, kukptokenfn funcp,
                             void *cctxp, std::int32_t state)
{
    kul none = {};
    kukpobject whole = {};
    const auto *given = reinterpret_cast<const unsigned char *>(text);
    whole.visible = {kukp_error, mode, given, static_cast<std::uint32_t>(std::strlen(text)),
                     &none,      1};
    kukprun run{ctx, &whole.visible, &whole, &none, given, nullptr, funcp, cctxp};
    return kukpanalyse(run, state == KUKP_S_COMPLETE ? state : kukpqconvert(state));
}

void *kukpdestroy(kux *ctx, void *kukh)
{
    if (kukh == nullptr) return nullptr;
    auto *whole = static_cast<kukpobject *>(kukh);
    const kuk *object = &whole->visible;
    if (auto *list = static_cast<kul *>(object->origtklh_kuk)) {
        for (std::int32_t i = 0; i < list->nitems_kul; i++) {
            auto *token = static_cast<kukn *>(list->items_kul[i]);
            // Most have nothing to release; hints may have.
            if (token->hint_kukn != nullptr || !kukpisfirst(*whole, token))
                kukprelease(ctx, object, token);
        }
        kulpdestroy(ctx, list);
    }
    while (whole->more != nullptr) {
        kukpblock *block = whole->more;
        whole->more = block->next;
        ctx->kuxnmfree(ctx, block);
    }
    if (object->weight_kuk == 0 && object->origtxp_kuk != nullptr)
        ctx->kuxnmfree(ctx, const_cast<unsigned char *>(object->origtxp_kuk));
    ctx->kuxnmfree(ctx, whole);
    return nullptr;
}

namespace
{

bool kukptakeshint(std::uint32_t type)
{
    return type == KUKP_T_SELECT || type == KUKP_T_DELETE || type == KUKP_T_UPDATE;
}

bool kukpishint(std::uint32_t type) { return type == KUKP_T_HINT || type == KUKP_T_LINEHINT; }

// Marks the hints that follow a keyword at once: such a token points at itself.
void kukpmark(const kul &list)
{
    for (std::int32_t i = 0; i + 1 < list.nitems_kul; i++) {
        if (!kukptakeshint(static_cast<kukn *>(list.items_kul[i])->type_kukn)) continue;
        i++; // what is looked at here is no keyword for the one after it
        auto *token = static_cast<kukn *>(list.items_kul[i]);
        if (kukpishint(token->type_kukn)) token->hint_kukn = token;
    }
}

void kukpunmark(const kul &list)
{
    for (std::int32_t i = 0; i < list.nitems_kul; i++) {
        auto *token = static_cast<kukn *>(list.items_kul[i]);
        if (token->hint_kukn == token) token->hint_kukn = nullptr;
    }
}

// Hangs a hint that leaves the list on its keyword.
void kukpattach(kux *ctx, const kukpobject *object, kukn &keyword, kukn &hint)
{
    if (keyword.hint_kukn != nullptr) kukpfree(ctx, object, keyword.hint_kukn);
    keyword.hint_kukn = &hint;
    // After an edit the hint's text may stand before the keyword's.
    const std::uint64_t end = std::uint64_t{hint.offset_kukn} + hint.length_kukn;
    if (end > std::uint64_t{keyword.offset_kukn} + keyword.length_kukn)
        keyword.length_kukn = static_cast<std::uint32_t>(end - keyword.offset_kukn);
}

// Takes the marked hints out of the list, which is not locked; each hangs on the token
// before it then. The others close the gaps in one walk. The cursor stays on its token.
void kukptakeout(kux *ctx, const kukpobject *object, kul &list)
{
    std::int32_t kept = 0;
    std::int32_t cursor = -1;
    for (std::int32_t i = 0; i < list.nitems_kul; i++) {
        auto *token = static_cast<kukn *>(list.items_kul[i]);
        if (token->hint_kukn == token) {
            kukpattach(ctx, object, *static_cast<kukn *>(list.items_kul[kept - 1]), *token);
            continue;
        }
        if (i == list.current_kul) cursor = kept;
        list.items_kul[kept++] = token;
    }
    list.nitems_kul = kept;
    list.current_kul = cursor;
}

} // namespace

std::uint32_t kukphint(kux *ctx, void *kukh)
{
    if (kukh == nullptr) return 0;
    auto *list = static_cast<kul *>(static_cast<kuk *>(kukh)->origtklh_kuk);
    if (list == nullptr) return 0;
    kukpmark(*list);
    bool marked = false;
    for (std::int32_t i = list->nitems_kul - 1; i >= 0; i--) {
        auto *token = static_cast<kukn *>(list->items_kul[i]);
        if (token->hint_kukn == token) {
            const std::uint32_t status = marked ? 0 : kulpreplace(ctx, list, i, token);
            if (status != 0) { // locked: no keyword may own what stays in the list
                kukpunmark(*list);
                return status;
            }
            marked = true;
        } else if (token->type_kukn == KUKP_T_HINT) {
            token->type_kukn = KUKP_T_COMMENT;
        } else if (token->type_kukn == KUKP_T_LINEHINT) {
            token->type_kukn = KUKP_T_LINE;
        }
    }
    if (marked) kukptakeout(ctx, static_cast<kukpobject *>(kukh), *list);
    return 0;
}
