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
// One pass; per token one record and one slot of the list; no other memory.
// Keywords are found by hash, built at compile time from the one table.
#include "kukp.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

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
    kukp_last3 = KUKP_S_STOPPED3, // the token's last three characters begin here
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

// Traits of a byte: the states inside which it is just one more character, the
// marks that words may hold, and the operators that it is alone. A NUL has none.
constexpr std::uint8_t kukp_instring = 0x01;
constexpr std::uint8_t kukp_inidentifier = 0x02;
constexpr std::uint8_t kukp_inlabel = 0x04;
constexpr std::uint8_t kukp_incomment = 0x08;
constexpr std::uint8_t kukp_inline = 0x10;
constexpr std::uint8_t kukp_wordmark = 0x20;
constexpr std::uint8_t kukp_operator = 0x40;

constexpr auto kukptraits = [] {
    std::array<std::uint8_t, 256> traits{};
    for (unsigned byte = 1; byte < 256; byte++) {
        if (byte != '\'') traits[byte] |= kukp_instring;
        if (byte != '"') traits[byte] |= kukp_inidentifier;
        if (byte != '>') traits[byte] |= kukp_inlabel;
        if (byte != '*') traits[byte] |= kukp_incomment;
        if (byte != '\n') traits[byte] |= kukp_inline;
        if (byte == '$' || byte == '_' || byte == '#') traits[byte] |= kukp_wordmark;
    }
    for (const kukptb &entry : kukptbsp)
        if (entry.leng_kukptb == 1)
            traits[static_cast<std::size_t>(entry.keyp_kukptb[0])] |= kukp_operator;
    return traits;
}();

// What a state stays on: bytes of these classes, and bytes of these traits. In
// a multibyte set the class of a byte from 128 up is not known here, and the
// run ends there; but the marks that end quoted text are never trail bytes.
struct kukpstay {
    std::uint16_t classes;
    std::uint8_t traits;
};
constexpr auto kukpstays = [] {
    std::array<kukpstay, kukp_states> stays{};
    stays[kukp_between] = {KULANG_SPACE, 0};
    stays[kukp_string] = {0, kukp_instring};
    stays[kukp_identifier] = {0, kukp_inidentifier};
    stays[kukp_label] = {0, kukp_inlabel};
    stays[kukp_comment] = {0, kukp_incomment};
    stays[kukp_hint] = {0, kukp_incomment};
    stays[kukp_line] = {0, kukp_inline};
    stays[kukp_linehint] = {0, kukp_inline};
    stays[kukp_word] = {KULANG_LETTER | KULANG_DIGIT, kukp_wordmark};
    stays[kukp_integer] = {KULANG_DIGIT, 0};
    stays[kukp_fraction] = {KULANG_DIGIT, 0};
    stays[kukp_exponent] = {KULANG_DIGIT, 0};
    return stays;
}();

const unsigned char *kukppass(const unsigned char *at, const std::uint16_t *classes,
                              std::int32_t state)
{
    const kukpstay stay = kukpstays[static_cast<std::size_t>(state)];
    if (stay.classes == 0) {
        while ((kukptraits[*at] & stay.traits) != 0) at++;
        return at;
    }
    for (;;) {
        while ((classes[*at] & stay.classes) != 0) at++;
        if ((kukptraits[*at] & stay.traits) == 0) return at;
        at++;
    }
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
    void pass(std::int32_t state) { at_ = kukppass(at_, classes_, state); }
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
    void pass(std::int32_t state) { at_ = kukppass(at_, lang_->classes_kulang, state); }
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
// before that.
class kukpshifted
{
public:
    kukpshifted(const kulang &lang, const unsigned char *text, std::size_t length)
        : cursor_(kukpcursor(lang, text, length)), behind_(place())
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
    std::size_t left() const { return cursor_.size_kucursor - ku::locale::offset(cursor_); }
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
    kukpglyph glyph_{};
};

// ---- one analysis ----

struct kukprun {
    kux *ctx;
    kuk *object;
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
        auto &row = index[static_cast<std::size_t>(text[0])];
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

// The lower-cased text here begins with the client token: how many characters that is; else 0.
template <class Reader> std::uint32_t kukpbegins(const kulang &lang, Reader in, const kukat &token)
{
    std::uint32_t characters = 0;
    kucursor wanted = kukpcursor(lang, token.token_kukat, token.tokenl_kukat);
    while (!ku::locale::past_size(wanted)) {
        if (in.ended() || in.value() != ku::locale::next(wanted)) return 0;
        in.step();
        characters++;
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
        if (token == nullptr || token->tokenl_kukat > in.left()) continue;
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
    std::uint64_t head; // 0: an empty slot
    std::uint16_t length;
    std::uint16_t number;
};
constexpr auto kukpslots = [] {
    std::array<kukphashed, std::size_t{1} << kukp_slotbits> slots{};
    for (std::uint16_t i = 0; i < KUKPTBKW_COUNT; i++) {
        const auto length = static_cast<std::uint16_t>(kukptbkw[i].leng_kukptb);
        const std::uint64_t head = kukphead(kukptbkw[i].keyp_kukptb, length);
        std::size_t slot = kukpslot(head, length);
        while (slots[slot].head != 0) slot = kukpnextslot(slot);
        slots[slot] = {head, length, i};
    }
    return slots;
}();

// Type of the word of this head and length; `rest`: its bytes behind the head, lower-cased.
std::uint32_t kukpsearch(std::uint64_t head, std::size_t length, const char *rest)
{
    for (std::size_t slot = kukpslot(head, length); kukpslots[slot].head != 0;
         slot = kukpnextslot(slot)) {
        if (kukpslots[slot].head != head || kukpslots[slot].length != length) continue;
        const kukptb &entry = kukptbkw[kukpslots[slot].number];
        if (length <= kukp_headsize) return entry.type_kukptb;
        if (std::memcmp(entry.keyp_kukptb + kukp_headsize, rest, length - kukp_headsize) == 0)
            return entry.type_kukptb;
    }
    return KUKP_T_WORD;
}

// Type of a word that is longer than a head or not all ASCII as given:
// lower-cased character by character, it may be a keyword still.
template <class Reader>
std::uint32_t kukpikwslow(const kulang &lang, const unsigned char *text, std::size_t length)
{
    char word[std::max(kukp_longest, kukp_headsize)];
    std::size_t size = 0;
    for (Reader in(lang, text, length); in.left() > 0; in.step()) {
        const unsigned code = in.code();
        if (code >= 0x80 || size == kukp_longest) return KUKP_T_WORD;
        word[size++] = static_cast<char>(code);
    }
    return kukpsearch(kukphead(word, size), size, word + kukp_headsize);
}

// Type of the word at `start`, `length` bytes of the text as given, of which
// `left` remain from there.
template <class Reader>
std::uint32_t kukpikw(const kulang &lang, const kukpplace &start, std::size_t length,
                      std::size_t left)
{
    if (start.shifted) return KUKP_T_WORD;
    if (length <= kukp_headsize) {
        std::uint64_t head = 0;
        if (left >= kukp_headsize)
            std::memcpy(&head, start.at, kukp_headsize);
        else
            std::memcpy(&head, start.at, left);
        head &= kukpmask(length);
        const auto *rest = reinterpret_cast<const char *>(start.at); // there is none
        if ((head & kukp_bit7) == 0)
            return kukpsearch(head | (kukp_bit5 & kukpmask(length)), length, rest);
    }
    return kukpikwslow<Reader>(lang, start.at, length);
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
    if (kukpends(in)) return true;
    const unsigned code = in.code();
    if (code < 128 && (kukptraits[code] & kukp_operator) != 0) return true;
    return kukpisp(run, in).bytes > 0;
}

// A number may end here: not before a lone period, which belongs to it.
template <class Reader> bool kukpmnumrhs(const kukprun &run, Reader &in)
{
    if (kukpends(in)) return true;
    const kukpspecial special = kukpisp(run, in);
    return special.bytes > 0 && special.type != KUKP_T_PERIOD;
}

constexpr std::uint32_t kukp_longestoperator = 3; // bytes of an operator that can start a token

// From between tokens to an operator, whose type is reported.
template <class Reader>
std::int32_t kukpoperator(const kukprun &run, Reader &in, std::uint32_t *type)
{
    const kukpspecial special = kukpisp(run, in);
    if (special.bytes == 0) return kukp_error;
    if (special.bytes > kukp_longestoperator) return kukp_between;
    if (special.bytes == 1 && special.type == KUKP_T_PERIOD && kukplookahead(in).is(KULANG_DIGIT))
        return kukp_fraction;
    *type = special.type;
    return kukp_complete - static_cast<std::int32_t>(special.characters);
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
// Writes `type` when an operator begins here.
template <class Reader>
std::int32_t kukpdelta(const kukprun &run, Reader &in, std::int32_t state, std::uint32_t *type)
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
        return kukpoperator(run, in, type);

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

// kukpdelta from between tokens, with short cuts for most tokens: a word is passed
// to its end, and an operator that begins nothing else takes no recogniser.
template <class Reader> std::int32_t kukpbegin(const kukprun &run, Reader &in, std::uint32_t *type)
{
    if (in.is(KULANG_LETTER)) {
        in.step();
        in.pass(kukp_word);
        return kukpinword(run, in);
    }
    const unsigned code = in.code();
    if (run.clients == nullptr && code < kukpalone.size() && kukpalone[code] != 0) {
        *type = kukpalone[code];
        return kukp_last1;
    }
    return kukpdelta(run, in, kukp_between, type);
}

// ---- storing ----

// Bits of a callback's answer.
constexpr std::uint32_t kukp_goon = 1;
constexpr std::uint32_t kukp_drop = 2;

// Appends a token record to the object. False: KUKAA_TOKEN was pushed.
bool kukptadd(const kukprun &run, std::uint32_t type, std::uint32_t offset, std::uint32_t length)
{
    auto *token = ku::allocate<kukn>(run.ctx);
    if (token != nullptr) {
        *token = {type, offset, length, nullptr};
        auto &list = *static_cast<kul *>(run.object->origtklh_kuk);
        // Half as many again, so that long texts are stored in linear time.
        const bool room = list.nitems_kul < list.maxitems_kul
                          || kulrealloc(run.ctx, list, list.nitems_kul * std::uint64_t{3} / 2) == 0;
        if (room && kulpinsert(run.ctx, &list, KUL_APPEND, token) == 0) return true;
        run.ctx->kuxnmfree(run.ctx, token);
    }
    kuxer0push(run.ctx, KUKAA_TOKEN);
    return false;
}

// What a token covers: from the first character to the end of the last.
struct kukpspan {
    kukpplace start;
    kukpplace end;
};

// Shows a token to the callback and stores it. `action` holds what happens
// without a callback, and the callback's answer afterwards. False: out of memory.
bool kukpaction(const kukprun &run, const kukpspan &span, std::uint32_t type, std::uint32_t *action)
{
    const auto offset = static_cast<std::uint32_t>(span.start.at - run.object->origtxp_kuk);
    const auto bytes = static_cast<std::uint32_t>(span.end.at - span.start.at);
    const bool opens = bytes > 0 && span.start.shifted;
    const bool closes = bytes > 0 && span.end.shifted;
    std::uint32_t length = bytes + (opens ? 1 : 0) + (closes ? 1 : 0);
    std::uint32_t stored = type;
    if (run.callback != nullptr) {
        const unsigned char *token = run.given + offset;
        if (opens || closes)
            token = kukpstandalone(run.ctx, span.start.at, bytes, opens, closes, &length);
        if (token == nullptr) return false;
        *action = run.callback(run.callbackcontext, token, length, type, &stored);
    }
    return (*action & kukp_drop) != 0 || kukptadd(run, stored, offset, length);
}

// ---- the driver ----

constexpr std::int32_t kukp_failed = -1;

// Analyses the text from `state`. Returns the end state, or kukp_failed.
template <class Reader> std::int32_t kukpdrive(const kukprun &run, Reader in, std::int32_t state)
{
    const kulang &lang = *run.ctx->kuxlangidh;
    kukpplace start = in.place();
    std::uint32_t type = kukpq2t(state);
    for (;;) {
        in.pass(state);
        if (state == kukp_between) {
            start = in.place(); // where the next token begins, if one does
            state = kukpbegin(run, in, &type);
        } else {
            state = kukpdelta(run, in, state, &type);
        }
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
            action = KUKP_A_LAST;
            if (!kukpaction(run, {start, in.behind()}, kukpq2t(state), &action)) return kukp_failed;
            return state;

        default:
            if (type == 0) type = kukpq2t(state);
            in.step();
            continue;

        case kukp_doubledstring:
        case kukp_doubledidentifier:
            in.step();
            in.step();
            state = state == kukp_doubledstring ? kukp_string : kukp_identifier;
            continue;

        case kukp_last3: in.step(); [[fallthrough]];
        case kukp_last2: in.step(); [[fallthrough]];
        case kukp_last1: in.step(); [[fallthrough]];
        case kukp_complete:
            if (type == 0 && run.object->mode_kuk == KUKP_M_WORDS) type = KUKP_T_WORD;
            if (type == 0 && run.object->mode_kuk == KUKP_M_KEYWORDS) {
                const auto length = static_cast<std::size_t>(in.behind().at - start.at);
                type = kukpikw<Reader>(lang, start, length, length + in.left());
            }
            break;

        case kukp_error: // the character that is not understood belongs to the token
            in.step();
            type = KUKP_T_ERROR;
            action = KUKP_A_LAST;
            break;
        }
        if (!kukpaction(run, {start, in.behind()}, type, &action)) return kukp_failed;
        if ((action & kukp_goon) == 0) return state;
        state = kukp_between;
        type = 0;
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

// Gives the object its text: a copy, or the caller's. False: no memory, or more
// bytes than 32 bits can count with the NUL.
bool kukptakes(kux *ctx, kuk &object, const char *text, std::int32_t weight)
{
    const std::uint64_t length = std::strlen(text);
    if (length >= UINT32_MAX) return false;
    if (weight == 0) {
        void *copy = ku::allocate(ctx, length + 1, 1);
        if (copy == nullptr) return false;
        text = static_cast<char *>(std::memcpy(copy, text, length + 1));
    }
    object.weight_kuk = weight;
    object.origtxp_kuk = reinterpret_cast<const unsigned char *>(text);
    object.origtxl_kuk = static_cast<std::uint32_t>(length);
    return true;
}

// Fills the object: list, text, tokens. False: it failed somewhere.
bool kukpbuild(kukprun &run, const char *text, std::int32_t weight, std::int32_t state)
{
    constexpr std::int32_t tokens_at_first = 10;
    run.object->origtklh_kuk = kulpcreate(run.ctx, tokens_at_first, nullptr);
    if (run.object->origtklh_kuk == nullptr) {
        kuxer0push(run.ctx, KUKAA_LIST);
        return false;
    }
    if (!kukptakes(run.ctx, *run.object, text, weight)) return false;
    if (state != KUKP_S_COMPLETE) state = kukpqconvert(state);
    if (state == kukp_error) {
        kuxer0push(run.ctx, KUKAA_STATE);
        return false;
    }
    const std::int32_t end = kukpanalyse(run, state);
    run.object->state_kuk = end;
    return end != kukp_failed;
}

// Releases a token record and its hint.
std::uint32_t kukptfree(kux *ctx, void *item, void *)
{
    auto *token = static_cast<kukn *>(item);
    if (token->hint_kukn != token && token->hint_kukn != nullptr)
        ctx->kuxnmfree(ctx, token->hint_kukn);
    ctx->kuxnmfree(ctx, token);
    return 0;
}

} // namespace

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
    auto *object = ku::allocate<kuk>(ctx);
    if (object == nullptr) return nullptr;
    *object = {kukp_error, mode, nullptr, 0, nullptr, 1};

    kukprun run{ctx,     object, reinterpret_cast<const unsigned char *>(origtxp),
                nullptr, funcp,  cctxp};
    if (argsnum > 0 && args != nullptr) run.clients = args[0];
    if (kukpbuild(run, origtxp, weight, state)) return object;

    object->state_kuk = kukp_error;
    const std::uint32_t code = kuxercode(ctx);
    if (code == KUKAA_KEEP || code == KUKAA_KEEP2) return object;
    return kukpdestroy(ctx, object);
}

void *kukpdestroy(kux *ctx, void *kukh)
{
    if (kukh == nullptr) return nullptr;
    auto *object = static_cast<kuk *>(kukh);
    if (object->origtklh_kuk != nullptr) {
        kulpitrate(ctx, object->origtklh_kuk, kukptfree, nullptr, 1);
        kulpdestroy(ctx, object->origtklh_kuk);
    }
    if (object->weight_kuk == 0 && object->origtxp_kuk != nullptr)
        ctx->kuxnmfree(ctx, const_cast<unsigned char *>(object->origtxp_kuk));
    ctx->kuxnmfree(ctx, object);
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

// Hangs a hint that has left the list on its keyword.
void kukpattach(kux *ctx, kukn &keyword, kukn &hint)
{
    if (keyword.hint_kukn != nullptr) ctx->kuxnmfree(ctx, keyword.hint_kukn);
    keyword.hint_kukn = &hint;
    keyword.length_kukn = hint.offset_kukn + hint.length_kukn - keyword.offset_kukn;
}

} // namespace

std::uint32_t kukphint(kux *ctx, void *kukh)
{
    if (kukh == nullptr) return 0;
    auto *list = static_cast<kul *>(static_cast<kuk *>(kukh)->origtklh_kuk);
    if (list == nullptr) return 0;
    kukpmark(*list);
    for (std::int32_t i = list->nitems_kul - 1; i >= 0; i--) {
        auto *token = static_cast<kukn *>(list->items_kul[i]);
        if (token->hint_kukn == token) {
            const std::uint32_t status = kulpdelete(ctx, list, i);
            if (status != 0) { // still in the list: no keyword may own it, nor any before it
                kukpunmark(*list);
                return status;
            }
            kukpattach(ctx, *static_cast<kukn *>(list->items_kul[i - 1]), *token);
        } else if (token->type_kukn == KUKP_T_HINT) {
            token->type_kukn = KUKP_T_COMMENT;
        } else if (token->type_kukn == KUKP_T_LINEHINT) {
            token->type_kukn = KUKP_T_LINE;
        }
    }
    return 0;
}
