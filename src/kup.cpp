// kup.cpp - preferences: reading two files into sorted lists, looking up, writing back
//
//     kupct (locked) -- kupctusp --> list of entry handles, sorted by name
//                    -- kupctugn        |
//                    -- kupctgsp        v
//                    -- kupctggn      kuppf: product | name | list of value handles
//                    -- kupcttmp
//
// Entries, names and values are relocatable: only the kupct record has an
// address of its own. All else is reached for the length of one use, through
// ku::access, and a handle is never resized or freed while it is held. A
// comparator's accesses end before it returns.
//
// A file is read line by line. Each line is split by the lexer, which carries
// its state over line ends, and every token goes to the reader's state machine
// (kupgrammar) while the line is in the buffer. What is being built hangs on the
// parser state until an entry is complete; then the entry owns it. So whatever
// ends the reading, kupdropparts releases exactly what no entry has.
//
// An entry that the writer puts out is read back as it was wherever the
// reader's rules allow; kupbare decides which values need no quotes.
//
// Cost: reading is linear and sorts each list once, lookups are binary
// searches, setting adds the shift of one list's tail.

#include "kup.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>
#include <utility>

#include "kuguard.h"
#include "kuko.h"
#include "kukp_internal.h"
#include "kul.h"
#include "kul_internal.h"
#include "kuxer.h"
#include "kuxrm.h"
#include "port/locale/locale.h"
#include "skub.h"
#include "skub_internal.h"
#include "skup.h"

namespace
{

constexpr uint32_t kup_linesize = 1024;     // line buffer, and file name when reading, in bytes
constexpr uint32_t kup_writenamesize = 512; // file name when writing, in bytes
constexpr int32_t kup_longlist = 64;        // items from which a list being read grows by halves

// ---- texts and entries in relocatable memory ----

bool kupholds(const std::string_view text, const std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// Bytes to ask for a text of `length` bytes: just enough for what fits a line,
// powers of two beyond, so that a value assembled from many lines does not move
// with each of them.
uint64_t kuproom(uint64_t length)
{
    return length < kup_linesize ? length + 1 : std::bit_ceil(length + 1);
}

// Makes room for `length` bytes and a NUL in a text of `old` bytes; null: a new
// text. False, with the text as it was, without memory.
bool kupgrow(kux *ctx, kuxhandle &text, uint32_t old, uint64_t length)
{
    const uint64_t room = kuproom(length);
    if (room > UINT32_MAX) return false;
    if (text != nullptr && room == kuproom(old)) return true;
    const auto size = static_cast<uint32_t>(room);
    kuxhandle grown =
        text == nullptr ? ctx->kuxrmalloc(ctx, size) : ctx->kuxrmrealloc(ctx, text, size);
    if (grown != nullptr) text = grown;
    return grown != nullptr;
}

// Appends bytes to a text of `old` bytes; null: a new text. False without memory.
bool kupapp(kux *ctx, kuxhandle &text, uint32_t old, const void *bytes, uint32_t length)
{
    if (!kupgrow(ctx, text, old, uint64_t{old} + length)) return false;
    const ku::access target(ctx, text);
    if (target.address() == nullptr) return false;
    char *start = static_cast<char *>(target.address()) + old;
    memcpy(start, bytes, length);
    start[length] = '\0';
    return true;
}

void kupfree(kux *ctx, kuxhandle &handle)
{
    if (handle != nullptr) ctx->kuxrmfree(ctx, handle);
    handle = nullptr;
}

kuxhandle kuphandle(const kul *list, int32_t index)
{
    return static_cast<kuxhandle>(list->items_kul[index]);
}

// Handles in the order of their addresses.
using kuphandles = std::span<void *const>;

// Releases a list of values with the values that are not among `kept`.
void kupfreevalues(kux *ctx, void *&values, kuphandles kept = {})
{
    if (values == nullptr) return;
    const kul *record = kulplock(ctx, values);
    for (int32_t i = record->nitems_kul; i-- > 0;) {
        kuxhandle value = kuphandle(record, i);
        if (!std::binary_search(kept.begin(), kept.end(), static_cast<void *>(value),
                                std::less<>()))
            kupfree(ctx, value);
    }
    values = kulpdestroy(ctx, values);
}

// Appends to a list that may get long: its room grows by halves, not by steps.
bool kupappend(kux *ctx, void *list, void *item)
{
    kul &record = *static_cast<kul *>(list);
    const int32_t count = record.nitems_kul;
    if (count >= kup_longlist && count == record.maxitems_kul
        && kulrealloc(ctx, record, uint64_t{static_cast<uint32_t>(count)} * 3 / 2) != 0)
        return false;
    return kulpinsert(ctx, list, KUL_APPEND, item) == 0;
}

// The record of an entry, which stays empty without access: then false.
bool kupentry(kux *ctx, kuxhandle entry, kuppf *fields)
{
    const ku::access record(ctx, entry);
    if (record.address() == nullptr) return false;
    *fields = *static_cast<kuppf *>(record.address());
    return true;
}

bool kupstoreentry(kux *ctx, kuxhandle entry, const kuppf &fields)
{
    const ku::access record(ctx, entry);
    if (record.address() == nullptr) return false;
    *static_cast<kuppf *>(record.address()) = fields;
    return true;
}

// An entry with this record.
void kupfreeentry(kux *ctx, kuxhandle entry, kuppf &fields)
{
    kupfreevalues(ctx, fields.kuppfval);
    kupfree(ctx, fields.kuppfprd);
    kupfree(ctx, fields.kuppfprf);
    kupfree(ctx, entry);
}

void kupfreeentry(kux *ctx, kuxhandle entry)
{
    kuppf fields = {};
    kupentry(ctx, entry, &fields);
    kupfreeentry(ctx, entry, fields);
}

// ---- comparisons ----

// Names mostly differ at a byte that is a printable ASCII character in both, and so
// is all before it: then the folded bytes tell their order.
int kupcomparenames(kux *ctx, std::string_view a, std::string_view b)
{
    const uint8_t *fold = ctx->kuxlangidh->fold_kulang;
    const auto plain = [](unsigned char byte) { return byte >= ' ' && byte <= '~'; };
    const std::size_t length = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < length; i++) {
        const auto first = static_cast<unsigned char>(a[i]);
        const auto second = static_cast<unsigned char>(b[i]);
        if (!plain(first) || !plain(second)) break;
        if (fold[first] != fold[second]) return fold[first] < fold[second] ? -1 : 1;
    }
    return ku::locale::compare_text_nocase(*ctx->kuxlangidh, a.data(), a.size(), b.data(),
                                           b.size());
}

// The name of an entry, for as long as this is in scope.
class kupname
{
public:
    kupname(kux *ctx, void *entry)
        : record_(ctx, static_cast<kuxhandle>(entry)),
          name_(ctx, record_.address() == nullptr
                         ? nullptr
                         : static_cast<kuppf *>(record_.address())->kuppfprf)
    {
    }
    bool read() const { return name_.text() != nullptr; }
    std::string_view text() const { return read() ? name_.text() : ""; }

private:
    ku::access record_;
    ku::access name_;
};

// Order of a name (a NUL-terminated text) and an entry, for searching; *unread becomes true
// without access to the entry.
int32_t kupcomparekey(kux *ctx, void *key, void *entry, void *unread)
{
    const kupname name(ctx, entry);
    if (!name.read()) *static_cast<bool *>(unread) = true;
    return kupcomparenames(ctx, static_cast<const char *>(key), name.text());
}

// Order of two values; *unread becomes true without access to one of them.
int32_t kupcomparevalues(kux *ctx, void *a, void *b, void *unread)
{
    const ku::access first(ctx, static_cast<kuxhandle>(a));
    const ku::access second(ctx, static_cast<kuxhandle>(b));
    if ((a != nullptr && first.text() == nullptr) || (b != nullptr && second.text() == nullptr)) {
        *static_cast<bool *>(unread) = true;
        return 0;
    }
    const std::string_view one = a != nullptr ? first.text() : ""; // no handle: an empty text
    const std::string_view other = b != nullptr ? second.text() : "";
    return ku::locale::compare_text(*ctx->kuxlangidh, one.data(), one.size(), other.data(),
                                    other.size());
}

enum class kupsought { found, absent, unread };

// Looks for a name's entry; `place`: where it is or belongs. `unread` without access to an entry.
kupsought kupfind(kux *ctx, void *list, const char *name, int32_t *place)
{
    bool unread = false;
    const int32_t found = kulpsearch(ctx, list, const_cast<char *>(name == nullptr ? "" : name),
                                     kupcomparekey, &unread, 0, place);
    if (unread) return kupsought::unread;
    return found != 0 ? kupsought::found : kupsought::absent;
}

// ---- sorting what was read ----

// An item of a list, an entry or a value, and its text, in memory that stays where it
// is while the list is sorted.
struct kupkey {
    uint64_t head; // folded names: the eight bytes behind what all begin with
    const char *name;
    uint32_t length; // in bytes
    int32_t slot;    // in the list
    int32_t rank;    // place of its text among all different ones, once sorted
    void *item;
};

// An item and the place of its text among all different ones.
struct kupranked {
    void *item;
    int32_t rank;
};

// The two ways to sort.
enum kupkind : uint8_t { by_name, by_value };

constexpr int32_t kup_fewvalues = 64; // up to here values are compared through their handles

// Order of two names that are folded already.
int32_t kuporder(const kupkey &first, const kupkey &second)
{
    if (first.head != second.head) return first.head < second.head ? -1 : 1;
    const int order = memcmp(first.name, second.name, std::min(first.length, second.length));
    if (order != 0 || first.length == second.length) return order;
    return first.length < second.length ? -1 : 1;
}

// Sets the heads of folded names.
void kupsetheads(kupkey *keys, int32_t count)
{
    std::size_t shared = keys[0].length;
    for (int32_t i = 1; i < count; i++) {
        shared = std::min<std::size_t>(shared, keys[i].length);
        const char *end = keys[i].name + shared;
        shared = static_cast<std::size_t>(std::mismatch(keys[i].name, end, keys[0].name).first
                                          - keys[i].name);
    }
    for (int32_t i = 0; i < count; i++) {
        for (std::size_t at = shared; at < shared + sizeof keys[i].head; at++) {
            const auto byte =
                static_cast<unsigned char>(at < keys[i].length ? keys[i].name[at] : 0);
            keys[i].head = keys[i].head << 8 | byte;
        }
    }
}

// Folds the names in place if a table can do that for every byte of them: then
// their order is that of their bytes.
bool kupfold(const kulang &lang, char *names, std::size_t length)
{
    const bool bytes = ku::locale::single_byte(lang);
    const auto plain = [](char byte) { return byte >= ' ' && byte <= '~'; };
    if (!bytes && !std::all_of(names, names + length, plain)) return false;
    std::transform(names, names + length, names, [&](char byte) {
        return static_cast<char>(lang.fold_kulang[static_cast<unsigned char>(byte)]);
    });
    return true;
}

// Copies the texts of a list's items, one behind the other, into a block that
// becomes the caller's. Null without memory.
char *kupcopytexts(kux *ctx, const kul &list, kupkind kind, kupkey *keys)
{
    uint64_t room = uint64_t{static_cast<uint32_t>(list.nitems_kul)} * 24; // most are short
    ku::owned<char> texts(ctx, static_cast<char *>(ku::allocate(ctx, room, 1)));
    std::size_t used = 0;
    for (int32_t i = 0; texts && i < list.nitems_kul; i++) {
        void *item = list.items_kul[i];
        const kupname entry(ctx, kind == by_name ? item : nullptr);
        const ku::access value(ctx, kind == by_value ? static_cast<kuxhandle>(item) : nullptr);
        if (item != nullptr && !entry.read() && value.text() == nullptr) return nullptr;
        const std::string_view text = value.text() != nullptr ? value.text() : entry.text();
        if (used + text.size() > room) {
            room = 2 * (used + text.size());
            if (room > UINT32_MAX) return nullptr;
            void *grown = ctx->kuxnmrealloc(ctx, texts.get(), static_cast<uint32_t>(room));
            if (grown == nullptr) return nullptr;
            (void)texts.keep();
            texts.reset(static_cast<char *>(grown));
        }
        memcpy(texts.get() + used, text.data(), text.size());
        keys[i] = {0, nullptr, static_cast<uint32_t>(text.size()), i, 0, item};
        used += text.size();
    }
    return texts.keep();
}

// Sorts the keys by text and, of the same text, by slot. Returns whether all differ.
// A heap does not leave the keys even if the locale's order contradicts itself.
template <typename Order> bool kupsortkeys(kupkey *keys, int32_t count, bool trusted, Order order)
{
    const auto below = [&](const kupkey &a, const kupkey &b) {
        const int32_t texts = order(a, b);
        return texts != 0 ? texts < 0 : a.slot < b.slot;
    };
    if (trusted) {
        std::sort(keys, keys + count, below);
    } else {
        std::make_heap(keys, keys + count, below);
        std::sort_heap(keys, keys + count, below);
    }
    int32_t rank = 0;
    for (int32_t i = 0; i < count; i++) {
        rank += i > 0 && order(keys[i - 1], keys[i]) != 0;
        keys[i].rank = rank;
    }
    return rank == count - 1;
}

// Sorts the keys of all texts, one behind the other. Returns whether all differ.
bool kupsorttexts(kux *ctx, kupkey *keys, int32_t count, kupkind kind, std::span<char> texts)
{
    const kulang &lang = *ctx->kuxlangidh;
    if (kind == by_name && kupfold(lang, texts.data(), texts.size())) {
        kupsetheads(keys, count);
        return kupsortkeys(keys, count, true, kuporder);
    }
    return kupsortkeys(keys, count, false, [&](const kupkey &a, const kupkey &b) {
        return kind == by_name ? kupcomparenames(ctx, {a.name, a.length}, {b.name, b.length})
                               : ku::locale::compare_text(lang, a.name, a.length, b.name, b.length);
    });
}

kupranked *kupmiddle(kupranked *first, kupranked *last) { return first + (last - first + 1) / 2; }

// kuuqsort's partition of first to last, at least two. Where its pivot came to stand.
kupranked *kuppartition(kupranked *first, kupranked *last)
{
    std::swap(*kupmiddle(first, last), *last);
    const int32_t pivot = last->rank;
    kupranked *l = first;
    kupranked *r = last;
    while (r > l) {
        while (l < last && l->rank < pivot) l++;
        while (r > l && r->rank >= pivot) r--;
        std::swap(*l, r <= l ? *last : *r);
    }
    return l;
}

// Gives items the order that kuuqsort gives them, in which those of equal texts are
// neither kept as they were nor at random. A pivot of the least rank has nothing below:
// its partition moves three items, and is done without a look at the others. That is
// what makes many equal texts quadratic there and not here.
void kupsortranked(kupranked *first, kupranked *last)
{
    struct {
        kupranked *first, *last;
    } waiting[sizeof(int32_t) * 8]; // the longer parts: each at most half of the one before
    int nwaiting = 0;
    for (;;) {
        int32_t least = 0;
        int32_t nleast = 0; // items of the least rank, 0: not known
        while (last > first) {
            if (nleast == 0) {
                const auto below = [](const kupranked &a, const kupranked &b) {
                    return a.rank < b.rank;
                };
                least = std::min_element(first, last + 1, below)->rank;
                nleast = static_cast<int32_t>(std::count_if(
                    first, last + 1, [=](const kupranked &each) { return each.rank == least; }));
            }
            kupranked *middle = kupmiddle(first, last);
            if (middle->rank == least) {
                std::swap(*middle, *last);
                std::swap(*first++, *last);
                nleast--;
                continue;
            }
            kupranked *pivot = kuppartition(first, last);
            nleast = 0;
            const bool shorter = pivot - first < last - pivot; // the part before it
            if (shorter)
                waiting[nwaiting++] = {pivot + 1, last};
            else
                waiting[nwaiting++] = {first, pivot - 1};
            (shorter ? last : first) = shorter ? pivot - 1 : pivot + 1;
        }
        if (nwaiting == 0) return;
        first = waiting[--nwaiting].first;
        last = waiting[nwaiting].last;
    }
}

// Sorts a list of entries by name or of values: the permutation is that of kulpqsort,
// but the sort does not go through handles for everything that it compares. Items that
// differ have one order however they are sorted. False without memory, the list as it was.
bool kupsort(kux *ctx, void *list, kupkind kind)
{
    kul &record = *static_cast<kul *>(list);
    const int32_t count = record.nitems_kul;
    if (count < 2) return true;
    const auto slots = static_cast<uint32_t>(count);
    const ku::owned<kupkey> keys(ctx,
                                 static_cast<kupkey *>(ku::allocate(ctx, slots, sizeof(kupkey))));
    if (!keys) return false;
    const ku::owned<char> texts(ctx, kupcopytexts(ctx, record, kind, keys.get()));
    if (!texts) return false;
    const char *text = texts.get();
    for (int32_t i = 0; i < count; i++) {
        keys.get()[i].name = text;
        text += keys.get()[i].length;
    }
    const ku::owned<kupranked> ranked(
        ctx, static_cast<kupranked *>(ku::allocate(ctx, slots, sizeof(kupranked))));
    if (!ranked) return false;
    const bool distinct = kupsorttexts(ctx, keys.get(), count, kind,
                                       {texts.get(), static_cast<std::size_t>(text - texts.get())});
    for (int32_t i = 0; i < count; i++) {
        const kupkey &key = keys.get()[i];
        ranked.get()[distinct ? i : key.slot] = {key.item, key.rank};
    }
    if (!distinct) kupsortranked(ranked.get(), ranked.get() + count - 1);
    for (int32_t i = 0; i < count; i++) record.items_kul[i] = ranked.get()[i].item;
    return true;
}

// ---- the reader ----

// What a token is to the reader.
enum kupinput : uint8_t {
    in_word,
    in_value, // neither a word nor any of the following
    in_period,
    in_equals,
    in_open,
    in_close,
    in_comma,
    ninputs,
    in_ignored = ninputs,
    in_unclosed, // a quoted text that goes on in the next line
};

// Where the reader is in an entry.
enum kupstate : uint8_t {
    at_start,
    after_first,
    after_product,
    after_name,
    after_equals,
    after_open,
    after_comma,
    after_value,
    nstates
};

enum kupaction : uint8_t {
    fail,        // a syntax error
    pass,        // nothing to keep
    keep_first,  // the first word: a product or a name
    first_named, // the first word was the name
    keep_name,
    finish,   // the entry is complete
    take,     // one value of a list
    take_only // the only value, and the entry is complete
};

struct kupmove {
    kupaction action;
    kupstate next;
};

struct kuptable {
    static constexpr kupmove bad = {fail, at_start};
    static constexpr kupmove first = {keep_first, after_first};
    static constexpr kupmove point = {pass, after_product};
    static constexpr kupmove named = {first_named, after_equals};
    static constexpr kupmove name = {keep_name, after_name};
    static constexpr kupmove equal = {pass, after_equals};
    static constexpr kupmove open = {pass, after_open};
    static constexpr kupmove only = {take_only, at_start};
    static constexpr kupmove value = {take, after_value};
    static constexpr kupmove comma = {pass, after_comma};
    static constexpr kupmove close = {finish, at_start};

    kupmove moves[nstates][ninputs] = {
        // clang-format off
        //                   word   value  .      =      (      )      ,
        /* at_start      */ {first, bad,   bad,   bad,   bad,   bad,   bad},
        /* after_first   */ {bad,   bad,   point, named, bad,   bad,   bad},
        /* after_product */ {name,  bad,   bad,   bad,   bad,   bad,   bad},
        /* after_name    */ {bad,   bad,   bad,   equal, bad,   bad,   bad},
        /* after_equals  */ {only,  only,  bad,   bad,   open,  bad,   bad},
        /* after_open    */ {value, value, bad,   bad,   bad,   close, bad},
        /* after_comma   */ {value, value, bad,   bad,   bad,   bad,   bad},
        /* after_value   */ {bad,   bad,   bad,   bad,   bad,   close, comma},
        // clang-format on
    };
};

constexpr kuptable kupgrammar;

// A copy of a name: what the next one is compared with, or what is being built.
struct kupcopy {
    char text[64];
    uint32_t length; // in bytes; more than there is room for: not copied
};

// Parser state: one per file being read.
struct kupfs {
    kupct *kupfsctx;               // the preferences
    uint32_t kupfsstat;            // state of the machine
    kuxhandle kupfsprd;            // first word, when it is not this product's name; owned
    kuxhandle kupfsprf;            // entry name; owned
    void *kupfsval;                // values of the entry being built; owned
    kuxhandle kupfspvb;            // pending value: text being assembled; owned
    uint32_t kupfspvl;             // its length in bytes
    const unsigned char *kupfslte; // where the last value taken from this line ended; or null
    uint32_t kupfsltl;             // length of the last value, in bytes
    void *kupfsltv;                // list that got the last value; may be an entry's by now
    uint32_t kupfslin;             // line being read, from 1
    uint16_t kupfsmod;             // which file: KUP_USER or KUP_GLOBAL
    int32_t kupfsmch;              // the first word was this product's name
    int32_t kupfserr;              // a syntax error on this line
    int32_t kupfsmer;              // memory was exhausted
    kupcopy kupfswrd;              // the last first word or name
    kupcopy kupfslst[2];           // last names of the general and the specific list
    uint16_t kupfsuns;             // lists of this file to be sorted: KUP_SPECIFIC, KUP_GENERAL
};

struct kuptoken {
    const unsigned char *text;
    uint32_t length; // in bytes
    uint32_t type;
};

kupinput kupclassify(uint32_t type)
{
    switch (type) {
    case KUKP_T_COMMENT:
    case KUKP_T_COMMENTOPEN:
    case KUKP_T_LINE:
    case KUKP_T_LINEOPEN:
    case KUKP_T_LABEL:
    case KUKP_T_LABELOPEN: return in_ignored;
    case KUKP_T_STRINGOPEN:
    case KUKP_T_IDENTIFIEROPEN: return in_unclosed;
    case KUKP_T_PERIOD: return in_period;
    case KUKP_T_EQ: return in_equals;
    case KUKP_T_LPAREN: return in_open;
    case KUKP_T_RPAREN: return in_close;
    case KUKP_T_COMMA: return in_comma;
    case KUKP_T_WORD: return in_word;
    default: return in_value; // erroneous text and hints, too
    }
}

bool kupquoted(uint32_t type)
{
    return type == KUKP_T_STRING || type == KUKP_T_STRINGOPEN || type == KUKP_T_IDENTIFIER
           || type == KUKP_T_IDENTIFIEROPEN;
}

// Nothing is glued to the last value any more.
void kupforget(kupfs &parser)
{
    parser.kupfslte = nullptr;
    parser.kupfsltl = 0;
    parser.kupfsltv = nullptr;
}

// Releases what is being built, and starts anew.
void kupdropparts(kupfs &parser)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    parser.kupfsstat = at_start;
    parser.kupfsmch = 0;
    parser.kupfspvl = 0;
    kupforget(parser);
    kupfree(ctx, parser.kupfsprd);
    kupfree(ctx, parser.kupfsprf);
    kupfree(ctx, parser.kupfspvb);
    kupfreevalues(ctx, parser.kupfsval);
}

// Adds a token's value text to the pending value, without its quotes.
void kupspv(kupfs &parser, const kuptoken &token)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    const uint32_t old = parser.kupfspvl;
    const bool room = kupgrow(ctx, parser.kupfspvb, old, uint64_t{old} + token.length);
    const ku::access pending(ctx, room ? parser.kupfspvb : nullptr);
    if (pending.address() == nullptr) {
        parser.kupfsmer = 1;
        return;
    }
    char *end = static_cast<char *>(pending.address()) + old;
    uint32_t length = token.length;
    if (kupquoted(token.type))
        length = kukongvalue(ctx, token.text, token.length, token.type, end, token.length, 1);
    else
        memcpy(end, token.text, length);
    end[length] = '\0';
    parser.kupfspvl = old + length;
    parser.kupfsltl = parser.kupfspvl;
    // Short of a quoted token's end: nothing is ever glued to a quoted value.
    parser.kupfslte = token.text + length;
}

// Moves the pending value to the end of the values.
void kupsvl(kupfs &parser)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    void *value = parser.kupfspvb;
    bool moved = false;
    if (parser.kupfsval != nullptr)
        moved = kupappend(ctx, parser.kupfsval, value);
    else
        moved = (parser.kupfsval = kulpcreate(ctx, 1, &value)) != nullptr;
    if (!moved) {
        parser.kupfsmer = 1;
        return;
    }
    parser.kupfsltv = parser.kupfsval;
    parser.kupfspvb = nullptr;
    parser.kupfspvl = 0;
}

// Glues a token, as it stands, to the last value.
void kupapv(kupfs &parser, const kuptoken &token)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    auto last = static_cast<kuxhandle>(kulplast(ctx, parser.kupfsltv));
    if (!kupapp(ctx, last, parser.kupfsltl, token.text, token.length)) parser.kupfsmer = 1;
    kulpreplace(ctx, parser.kupfsltv, KUL_LAST, last);
    parser.kupfslte += token.length;
    parser.kupfsltl += token.length;
}

// The list that takes the entry being built; null: none, in the global file.
void *kuptarget(const kupfs &parser)
{
    const kupct *prefs = parser.kupfsctx;
    const bool user = parser.kupfsmod == KUP_USER;
    if (parser.kupfsprd != nullptr) return user ? prefs->kupcttmp : nullptr;
    if (parser.kupfsmch != 0) return user ? prefs->kupctusp : prefs->kupctgsp;
    return user ? prefs->kupctugn : prefs->kupctggn;
}

// Notes when the entry being built leaves its list unsorted: looking while its
// name is at hand spares files in order, as kupwrite leaves them, the sort. The
// names are compared as copies, which need no handles; long ones have none, and
// leave it to the sort.
void kupcheckorder(kupfs &parser, const void *list)
{
    const bool specific = parser.kupfsmch != 0;
    const uint16_t kind = specific ? KUP_SPECIFIC : KUP_GENERAL;
    if (parser.kupfsprd != nullptr || (parser.kupfsuns & kind) != 0) return;
    const kupcopy &name = parser.kupfswrd;
    kupcopy &before = parser.kupfslst[specific ? 1 : 0];
    const bool known = name.length <= sizeof name.text && before.length <= sizeof before.text;
    const bool first = static_cast<const kul *>(list)->nitems_kul == 0;
    if (!first
        && (!known
            || kupcomparenames(parser.kupfsctx->kupctscx, {before.text, before.length},
                               {name.text, name.length})
                   >= 0))
        parser.kupfsuns |= kind;
    before = name;
}

// Makes an entry of the parts and puts it at the end of its list. False: it has
// no name (the first word was the product's, and no other followed).
bool kupbnp(kupfs &parser)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    if (parser.kupfsmer != 0) return true;
    kuxhandle entry = ctx->kuxrmalloc(ctx, sizeof(kuppf));
    if (entry == nullptr) {
        parser.kupfsmer = 1;
        return true;
    }
    void *list = kuptarget(parser);
    const bool named = parser.kupfsprf != nullptr;
    if (!named || list == nullptr) {
        kupfree(ctx, entry);
        kupdropparts(parser);
        return named;
    }
    kupcheckorder(parser, list);
    if (!kupstoreentry(ctx, entry, {parser.kupfsprd, parser.kupfsprf, parser.kupfsval})
        || !kupappend(ctx, list, entry)) {
        kupfree(ctx, entry); // the parts stay the parser's
        parser.kupfsmer = 1;
        return true;
    }
    parser.kupfsprd = nullptr;
    parser.kupfsprf = nullptr;
    parser.kupfsval = nullptr;
    parser.kupfsmch = 0;
    return true;
}

void kupkeepword(kupfs &parser, kuxhandle &part, const kuptoken &word)
{
    if (!kupapp(parser.kupfsctx->kupctscx, part, 0, word.text, word.length)) parser.kupfsmer = 1;
    kupcopy &copy = parser.kupfswrd;
    copy.length = word.length;
    if (word.length <= sizeof copy.text) memcpy(copy.text, word.text, word.length);
}

bool kupisproduct(const kupfs &parser, const kuptoken &word)
{
    const std::string_view product = parser.kupfsctx->kupctprd;
    const std::string_view text(reinterpret_cast<const char *>(word.text), word.length);
    return product.size() == text.size()
           && kupcomparenames(parser.kupfsctx->kupctscx, product, text) == 0;
}

// Moves the machine by one token. False: a syntax error.
bool kupstep(kupfs &parser, kupinput input, const kuptoken &token)
{
    const kupmove move = kupgrammar.moves[parser.kupfsstat][input];
    parser.kupfsstat = move.next;
    switch (move.action) {
    case fail: return false;
    case pass: return true;
    case keep_first:
        parser.kupfsmch = kupisproduct(parser, token);
        if (parser.kupfsmch == 0) kupkeepword(parser, parser.kupfsprd, token);
        return true;
    case first_named:
        parser.kupfsprf = parser.kupfsprd;
        parser.kupfsprd = nullptr;
        parser.kupfsmch = 0;
        return true;
    case keep_name: kupkeepword(parser, parser.kupfsprf, token); return true;
    case finish: return kupbnp(parser);
    case take:
    case take_only:
        kupspv(parser, token);
        if (parser.kupfsmer == 0) kupsvl(parser);
        return move.action == take || kupbnp(parser);
    }
    return false;
}

// Token callback of the lexer.
uint8_t kupfsm(void *cctxp, const unsigned char *text, uint32_t length, uint32_t type, uint32_t *)
{
    kupfs &parser = *static_cast<kupfs *>(cctxp);
    const kuptoken token = {text, length, type};
    const kupinput input = kupclassify(type);
    if (parser.kupfsmer != 0) return KUKP_A_STOP;
    if (input == in_ignored) return KUKP_A_SKIP;

    if (input == in_unclosed) {
        kupspv(parser, token);
    } else if (input <= in_value && text == parser.kupfslte && parser.kupfsltv != nullptr) {
        kupapv(parser, token);
    } else if (!kupstep(parser, input, token)) {
        parser.kupfserr = 1;
        kupdropparts(parser);
        return KUKP_A_STOP;
    }
    return parser.kupfsmer != 0 ? KUKP_A_STOP : KUKP_A_SKIP;
}

// Reads an open file to its end. Returns 0, `unreadable` when reading failed
// before that, or KUP_NOMEM.
uint16_t kupreadlines(kupfs &parser, void *stream, char *line, uint16_t unreadable,
                      uint32_t *errorline)
{
    kux *ctx = parser.kupfsctx->kupctscx;
    int32_t state = KUKP_S_COMPLETE;
    for (;;) {
        const uint32_t status = skubsget(ctx, stream, line, kup_linesize);
        if (status != 0) return status == SKUBA_EOF ? 0 : unreadable;
        parser.kupfslin++;
        kupforget(parser);
        state = ku::scan_tokens(ctx, line, KUKP_M_WORDS, kupfsm, &parser, state);
        if (state < 0 || parser.kupfsmer != 0) return KUP_NOMEM;
        if (parser.kupfserr != 0) {
            state = KUKP_S_COMPLETE;
            parser.kupfserr = 0;
            if (*errorline == 0) *errorline = parser.kupfslin;
        }
        // No state to go on from, without an error of the text.
        if (state > KUKP_S_LABEL) return KUP_NOMEM;
    }
}

// Sorts the lists of a file that has been read. False without memory.
bool kupsortfile(const kupfs &parser)
{
    const kupct *prefs = parser.kupfsctx;
    const bool user = parser.kupfsmod == KUP_USER;
    void *specific = user ? prefs->kupctusp : prefs->kupctgsp;
    void *general = user ? prefs->kupctugn : prefs->kupctggn;
    if ((parser.kupfsuns & KUP_SPECIFIC) != 0 && !kupsort(prefs->kupctscx, specific, by_name))
        return false;
    return (parser.kupfsuns & KUP_GENERAL) == 0 || kupsort(prefs->kupctscx, general, by_name);
}

// Reads one file, KUP_USER or KUP_GLOBAL, into its lists, and sorts them. Returns its status bits.
uint16_t kuppfl(kupct *prefs, uint16_t which)
{
    kux *ctx = prefs->kupctscx;
    const bool user = which == KUP_USER;
    const uint16_t missing = user ? KUP_NOUSERFILE : KUP_NOGLOBALFILE;
    const ku::owned<char> line(ctx, static_cast<char *>(ku::allocate(ctx, kup_linesize, 1)));
    if (!line) return KUP_NOMEM;
    if (skupfn(line.get(), kup_linesize, which) != 0) return missing;
    const skuba reading = {SKUBA_MODE, 0, 0, 0};
    void *stream = skubcreate(ctx, line.get(), &reading);
    if (stream == nullptr) {
        kuxerclear(ctx);
        return missing;
    }

    kupfs parser = {};
    parser.kupfsctx = prefs;
    parser.kupfsmod = which;
    uint32_t errorline = 0;
    const uint16_t status = kupreadlines(parser, stream, line.get(), missing, &errorline);
    kupdropparts(parser); // an entry that the end of the file cuts off
    // A close that failed leaves the record for a second one.
    if (skubclose(ctx, stream) != 0) skubdestroy(ctx, stream);
    if (status == KUP_NOMEM || !kupsortfile(parser)) return KUP_NOMEM;
    (user ? prefs->kupctuse : prefs->kupctgse) = errorline;
    if (errorline == 0) return status;
    return status | (user ? KUP_USERERR : KUP_GLOBALERR);
}

// ---- looking up ----

// Merges values into a list of a client's. False without memory, with the list as it was.
bool kupmerge(kux *ctx, void *list, void *values)
{
    kul &record = *static_cast<kul *>(list);
    void *before = kulpcreate(ctx, record.nitems_kul, record.items_kul);
    if (before == nullptr) return false;
    bool unread = false;
    const bool merged = kulpmerge(ctx, list, values, kupcomparevalues, &unread) == 0;
    if (merged && unread) { // what could not be read was taken for equal, and left out
        kul &old = *static_cast<kul *>(before);
        std::swap(record.items_kul, old.items_kul);
        std::swap(record.nitems_kul, old.nitems_kul);
        std::swap(record.maxitems_kul, old.maxitems_kul);
    }
    kulpdestroy(ctx, before);
    return merged && !unread;
}

// Combines the values of one list's entry into `result`. Returns KUP_NOTFOUND,
// KUP_NOMEM, or 0: found, with or without values.
uint16_t kupgmv(kux *ctx, void *list, const char *name, void *result, bool sort)
{
    int32_t place = 0;
    const kupsought sought = kupfind(ctx, list, name, &place);
    if (sought == kupsought::absent) return KUP_NOTFOUND;
    kuppf fields = {};
    if (sought == kupsought::unread
        || !kupentry(ctx, static_cast<kuxhandle>(kulpitem(ctx, list, place)), &fields))
        return KUP_NOMEM;
    void *values = fields.kuppfval;
    if (values == nullptr) return 0;
    if (!sort) return kulpconcat(ctx, result, values) == 0 ? 0 : KUP_NOMEM;
    bool unread = false;
    if (kulpnitems(ctx, values) <= kup_fewvalues)
        kulpqsort(ctx, values, kupcomparevalues, &unread);
    else if (!kupsort(ctx, values, by_value))
        return KUP_NOMEM;
    const bool merged =
        !unread && kulpmerge(ctx, result, values, kupcomparevalues, &unread) == 0 && !unread;
    return merged ? 0 : KUP_NOMEM;
}

// Searches the lists that `flag` selects, in their order of precedence. Returns
// where the name was found, 0 for nowhere, or KUP_NOMEM.
uint16_t kupgather(kupct *prefs, const char *name, uint16_t flag, void *result)
{
    const bool bothkinds = (flag & (KUP_SPECIFIC | KUP_GENERAL)) == 0;
    const bool bothfiles = (flag & (KUP_USER | KUP_GLOBAL)) == 0;
    const struct {
        uint16_t file;
        void *specific;
        void *general;
    } files[] = {
        {KUP_USER, prefs->kupctusp, prefs->kupctugn},
        {KUP_GLOBAL, prefs->kupctgsp, prefs->kupctggn},
    };
    uint16_t found = 0;
    for (const auto &each : files) {
        if ((flag & each.file) == 0 && (!bothfiles || found != 0)) continue;
        for (const uint16_t kind : {KUP_SPECIFIC, KUP_GENERAL}) {
            if ((flag & kind) == 0 && (!bothkinds || (found & each.file) != 0)) continue;
            void *list = kind == KUP_SPECIFIC ? each.specific : each.general;
            const uint16_t status =
                kupgmv(prefs->kupctscx, list, name, result, (flag & KUP_NOSORT) == 0);
            if (status == KUP_NOMEM) return KUP_NOMEM;
            if (status == 0) found |= kind | each.file;
        }
    }
    return found;
}

// ---- setting ----

// An entry whose values are about to change.
struct kupchange {
    void *list;
    int32_t place;   // the entry's index in the list
    bool created;    // it was made for this change
    kuxhandle entry; // null: nothing prepared
    void *values;    // its new values
    bool copied;     // they are copies
};

// Undoes what was prepared.
void kupcancel(kux *ctx, kupchange &change)
{
    if (change.created) {
        kulpdelete(ctx, change.list, change.place);
        kupfreeentry(ctx, change.entry);
    }
    if (change.copied)
        kupfreevalues(ctx, change.values);
    else
        change.values = kulpdestroy(ctx, change.values);
    change = {};
}

// A new list with the values, or with copies of them. Null without memory.
void *kupvalues(kux *ctx, void *values, bool copy)
{
    void *result = kulpcreate(ctx, 0, nullptr);
    if (result == nullptr || values == nullptr) return result;
    if (!copy) return kulpconcat(ctx, result, values) == 0 ? result : kulpdestroy(ctx, result);
    const kul *record = kulplock(ctx, values);
    bool complete = true;
    for (int32_t i = 0; i < record->nitems_kul && complete; i++) {
        kuxhandle original = kuphandle(record, i);
        const ku::access value(ctx, original);
        const char *text = original == nullptr ? "" : value.text();
        kuxhandle twin = nullptr;
        complete = text != nullptr
                   && kupapp(ctx, twin, 0, text, static_cast<uint32_t>(strlen(text)))
                   && kulpinsert(ctx, result, KUL_APPEND, twin) == 0;
        if (!complete) kupfree(ctx, twin);
    }
    kulpunlock(ctx, values);
    if (!complete) kupfreevalues(ctx, result);
    return result;
}

// A new entry with this name and no values. Null without memory.
kuxhandle kupnewentry(kux *ctx, const char *name)
{
    kuxhandle copy = nullptr;
    const bool copied = kupapp(ctx, copy, 0, name, static_cast<uint32_t>(strlen(name)));
    kuxhandle entry = copied ? ctx->kuxrmalloc(ctx, sizeof(kuppf)) : nullptr;
    if (entry != nullptr && kupstoreentry(ctx, entry, {nullptr, copy, nullptr})) return entry;
    kupfree(ctx, copy);
    kupfree(ctx, entry);
    return nullptr;
}

// Prepares one list's entry for its new values. False without memory, with nothing changed.
bool kupsls(kux *ctx, void *list, const char *name, void *values, bool copy, kupchange &change)
{
    change = {list, 0, false, nullptr, kupvalues(ctx, values, copy), copy};
    if (change.values == nullptr) return false;
    const kupsought sought = kupfind(ctx, list, name, &change.place);
    if (sought == kupsought::unread) {
        kupcancel(ctx, change);
        return false;
    }
    if (sought == kupsought::found) {
        change.entry = static_cast<kuxhandle>(kulpitem(ctx, list, change.place));
        kuppf fields = {};
        const bool known = kupentry(ctx, change.entry, &fields);
        // Its own list given back is what it has already.
        if (!known || (!copy && values != nullptr && fields.kuppfval == values))
            kupcancel(ctx, change);
        return known;
    }
    change.entry = kupnewentry(ctx, name);
    if (change.entry != nullptr && kulpinsert(ctx, list, change.place, change.entry) == 0) {
        change.created = true;
        return true;
    }
    if (change.entry != nullptr) kupfreeentry(ctx, change.entry);
    kupcancel(ctx, change);
    return false;
}

// Gives the entries their new values. Old ones that the client gave back live on. False
// without access to an entry, with nothing changed.
bool kupcommit(kux *ctx, const kupchange (&changes)[2], kuphandles given)
{
    const ku::access entries[] = {{ctx, changes[0].entry}, {ctx, changes[1].entry}};
    for (int i = 0; i < 2; i++)
        if (changes[i].entry != nullptr && entries[i].address() == nullptr) return false;
    for (int i = 0; i < 2; i++) {
        if (changes[i].entry == nullptr) continue;
        auto *fields = static_cast<kuppf *>(entries[i].address());
        void *old = std::exchange(fields->kuppfval, changes[i].values);
        kupfreevalues(ctx, old, given);
    }
    return true;
}

// ---- writing ----

// Where the file goes: at the first failure writing stops.
struct kupout {
    kux *ctx;
    void *stream;
    uint32_t column; // bytes written since the last line end
    bool failed;
};

// Access to what is written, while it is in scope. A null handle is an empty
// text; access that fails ends the writing, with its code.
class kupreading
{
public:
    kupreading(kupout &out, kuxhandle handle) : access_(out.ctx, handle)
    {
        if (handle == nullptr || access_.address() != nullptr || out.failed) return;
        const bool deref = (out.ctx->kuxrmgetstate(out.ctx, handle) & KUXRM_DEREF) != 0;
        kuxer0push(out.ctx, deref ? KUXRM_NODEREF : KUXRM_NOLOCK);
        out.failed = true;
    }
    const void *address() const { return access_.address(); }
    std::string_view text() const { return access_.text() == nullptr ? "" : access_.text(); }

private:
    ku::access access_;
};

void kupput(kupout &out, std::string_view text)
{
    if (out.failed || text.empty()) return;
    const auto length = static_cast<uint32_t>(text.size());
    out.failed = skubwrite(out.ctx, out.stream, text.data(), length, 1, nullptr) != 0;
    const std::size_t newline = text.rfind('\n');
    out.column = newline == std::string_view::npos
                     ? out.column + length
                     : static_cast<uint32_t>(text.size() - newline - 1);
}

void kupputhandle(kupout &out, kuxhandle text)
{
    const kupreading reading(out, text);
    kupput(out, reading.text());
}

// Whether a value is read back as it stands: it is not empty, it has no byte
// that the reader or the lexer takes for something else, opens no comment or
// label, and ends before the line buffer does.
bool kupbare(const kupout &out, std::string_view value)
{
    const kulang &lang = *out.ctx->kuxlangidh;
    if (value.empty() || out.column + uint64_t{value.size()} >= kup_linesize) return false;
    if (kupholds(value, "/*") || kupholds(value, "<<")) return false;
    constexpr std::string_view special = "=(),\"'-.";
    if (ku::locale::single_byte(lang))
        return std::none_of(value.begin(), value.end(), [&](char byte) {
            return special.find(byte) != std::string_view::npos
                   || (ku::locale::byte_classes(lang, static_cast<unsigned char>(byte))
                       & KULANG_SPACE)
                          != 0;
        });

    kucursor cursor;
    ku::locale::open_exact(&cursor, const_cast<char *>(value.data()), value.size(), &lang,
                           ku::locale::cursor_mode::read);
    for (; !ku::locale::past_size(cursor); ku::locale::step(cursor)) {
        if ((ku::locale::classes(cursor) & KULANG_SPACE) != 0) return false;
        if (!ku::locale::is_single(cursor)) {
            // A shifted run is cut into tokens that cannot be glued.
            if (lang.shiftsensitive_kulang != 0) return false;
            continue;
        }
        const char byte = static_cast<char>(ku::locale::current(cursor));
        if (special.find(byte) != std::string_view::npos) return false;
    }
    return true;
}

// Whether a value that is quoted from `column` on comes back: the reader takes
// the quotes off each piece of a line apart, and makes one of two only in pieces
// that begin with a quote; a shifted run ends with its piece.
bool kupsurvives(const kulang &lang, std::string_view value, uint32_t column)
{
    constexpr uint32_t piece = kup_linesize - 1; // bytes
    uint32_t at = column % piece + 1;            // in the piece, behind the opening quote
    bool undoubles = true;
    bool shifted = false;
    for (const char byte : value) {
        const bool single = !shifted && byte == '\'';
        const bool twice = !shifted && byte == '"';
        if (at == piece) at = 0;
        if (at == 0) undoubles = twice;
        if (at == 0 && (shifted || single)) return false;
        if (twice && !undoubles) return false;
        at += twice ? 2 : 1;
        if (at > piece || (at == piece && single)) return false;
        if (byte == '\n') {
            if (shifted) return false;
            at = 0;
        }
        if (lang.shiftsensitive_kulang != 0 && static_cast<unsigned char>(byte) < ' ') {
            const auto shift = static_cast<unsigned char>(byte);
            shifted = shift == lang.shiftout_kulang || (shifted && shift != lang.shiftin_kulang);
        }
    }
    return !shifted || at + 2 <= piece;
}

// Begins the quoted value on a line of its own, behind blanks if need be, when it
// would not come back from where it is, and would from there.
void kupplace(kupout &out, std::string_view value)
{
    const kulang &lang = *out.ctx->kuxlangidh;
    if (kupsurvives(lang, value, out.column)) return;
    constexpr std::size_t most = 1u << 24; // bytes to look at
    const auto tries = std::min<std::size_t>(kup_linesize - 1, most / (value.size() + 1) + 1);
    uint32_t blanks = 0;
    while (blanks < tries && !kupsurvives(lang, value, blanks)) blanks++;
    if (blanks == tries) return;
    kupput(out, "\n");
    while (blanks-- > 0) kupput(out, " ");
}

// Writes a value between double quotes, those in it doubled.
void kupputquoted(kupout &out, std::string_view value)
{
    const kulang &lang = *out.ctx->kuxlangidh;
    kucursor cursor;
    ku::locale::open_exact(&cursor, const_cast<char *>(value.data()), value.size(), &lang,
                           ku::locale::cursor_mode::read);
    kupplace(out, value);
    kupput(out, "\"");
    std::size_t written = 0;
    for (; !ku::locale::past_size(cursor); ku::locale::step(cursor)) {
        if (ku::locale::current(cursor) != '"' || !ku::locale::is_single(cursor)) continue;
        const std::size_t quote = ku::locale::offset(cursor);
        kupput(out, value.substr(written, quote + 1 - written));
        written = quote;
    }
    kupput(out, value.substr(written));
    // A run that the value leaves shifted would swallow the rest of the file.
    if (cursor.shifted_kucursor != 0)
        kupput(out, {reinterpret_cast<const char *>(&lang.shiftin_kulang), 1});
    kupput(out, "\"");
}

void kupwrv(kupout &out, kuxhandle handle)
{
    const kupreading reading(out, handle);
    const std::string_view value = reading.text();
    if (kupbare(out, value))
        kupput(out, value);
    else
        kupputquoted(out, value);
}

void kupputvalues(kupout &out, void *values)
{
    const int32_t count = values == nullptr ? 0 : kulpnitems(out.ctx, values);
    if (count == 0) return kupput(out, "()");
    const kul *record = kulplock(out.ctx, values);
    if (count > 1) kupput(out, "\n (");
    for (int32_t i = 0; i < count; i++) {
        if (i > 0) kupput(out, ",\n  ");
        kupwrv(out, kuphandle(record, i));
    }
    if (count > 1) kupput(out, ")");
    kulpunlock(out.ctx, values);
}

void kupwriteentry(kupout &out, kuxhandle handle, const char *prefix)
{
    kuppf entry = {};
    {
        const kupreading reading(out, handle);
        if (reading.address() == nullptr) return;
        entry = *static_cast<const kuppf *>(reading.address());
    }
    if (prefix != nullptr) {
        kupput(out, prefix);
        kupput(out, ".");
    }
    if (entry.kuppfprd != nullptr) {
        kupputhandle(out, entry.kuppfprd);
        kupput(out, ".");
    }
    kupputhandle(out, entry.kuppfprf);
    kupput(out, " = ");
    kupputvalues(out, entry.kuppfval);
    kupput(out, "\n");
}

// Writes the entries of a list, each behind `prefix` unless that is null.
void kupwrl(kupout &out, void *list, const char *prefix)
{
    const kul *record = kulplock(out.ctx, list);
    for (int32_t i = 0; i < record->nitems_kul && !out.failed; i++)
        kupwriteentry(out, kuphandle(record, i), prefix);
    kulpunlock(out.ctx, list);
}

// The preferences' lists in the order in which they are made.
auto kuplists(kupct *prefs)
{
    return std::array<void **, 5>{&prefs->kupctusp, &prefs->kupctgsp, &prefs->kupctugn,
                                  &prefs->kupctggn, &prefs->kupcttmp};
}

// Empty preferences. Null without memory.
kupct *kupmake(kux *ctx, const char *product)
{
    kuxhandle handle = ctx->kuxrmalloc(ctx, sizeof(kupct));
    if (handle == nullptr) return nullptr;
    auto *prefs = static_cast<kupct *>(ctx->kuxrmlock(ctx, handle));
    if (prefs == nullptr) {
        ctx->kuxrmfree(ctx, handle);
        return nullptr;
    }
    *prefs = {};
    prefs->kupctscx = ctx;
    prefs->kupctprd = product == nullptr ? "" : product;
    prefs->kupcthdl = handle;
    for (void **list : kuplists(prefs)) {
        *list = kulpcreate(ctx, 0, nullptr);
        if (*list == nullptr) {
            kupclose(prefs);
            return nullptr;
        }
    }
    return prefs;
}

} // namespace

uint16_t kupopen(kux *kuxp, const char *prdnam, kupct **prfctx)
{
    *prfctx = nullptr;
    kupct *prefs = kupmake(kuxp, prdnam);
    if (prefs == nullptr) return KUP_NOMEM;
    uint16_t status = kuppfl(prefs, KUP_USER);
    if (status != KUP_NOMEM) status |= kuppfl(prefs, KUP_GLOBAL);
    if ((status & KUP_NOMEM) != 0) {
        kupclose(prefs);
        return KUP_NOMEM;
    }
    *prfctx = prefs;
    return status;
}

uint32_t kuperrlin(kupct *prfctx, uint16_t flag)
{
    if ((flag & (KUP_USERERR | KUP_USER)) != 0) return prfctx->kupctuse;
    if ((flag & (KUP_GLOBALERR | KUP_GLOBAL)) != 0) return prfctx->kupctgse;
    return 0;
}

uint16_t kupget(kupct *prfctx, const char *prfnam, uint16_t flag, void *list, void **list_ptr)
{
    kux *ctx = prfctx->kupctscx;
    if (list == nullptr) *list_ptr = nullptr;
    // The values come together in a list of their own, so that a failure between
    // two places leaves the caller's list as it was.
    void *result = kulpcreate(ctx, 0, nullptr);
    if (result == nullptr) return KUP_NOMEM;
    uint16_t found = kupgather(prfctx, prfnam, flag, result);
    if (found == 0) found = KUP_NOTFOUND;
    const bool answered = (found & (KUP_USER | KUP_GLOBAL)) != 0;
    if (answered && list == nullptr) {
        *list_ptr = result;
        return found;
    }
    const bool sort = (flag & KUP_NOSORT) == 0;
    if (answered && !(sort ? kupmerge(ctx, list, result) : kulpconcat(ctx, list, result) == 0))
        found = KUP_NOMEM;
    kulpdestroy(ctx, result);
    return found;
}

uint16_t kupset(kupct *prfctx, const char *prfnam, void *values, uint16_t flags)
{
    kux *ctx = prfctx->kupctscx;
    const char *name = prfnam == nullptr ? "" : prfnam;
    const bool specific = (flags & KUP_SPECIFIC) != 0;
    const bool general = (flags & KUP_GENERAL) != 0;
    const int32_t count = values == nullptr ? 0 : kulpnitems(ctx, values);
    const auto slots = static_cast<uint32_t>(count);
    const ku::owned<void *> given(
        ctx, count == 0 ? nullptr : static_cast<void **>(ku::allocate(ctx, slots, sizeof(void *))));
    if (count > 0) {
        if (!given) return KUP_NOMEM;
        std::copy_n(static_cast<const kul *>(values)->items_kul, count, given.get());
        std::sort(given.get(), given.get() + count, std::less<>());
    }
    kupchange changes[2] = {};
    if (specific && !kupsls(ctx, prfctx->kupctusp, name, values, false, changes[0]))
        return KUP_NOMEM;
    if ((!general || kupsls(ctx, prfctx->kupctugn, name, values, specific, changes[1]))
        && kupcommit(ctx, changes, {given.get(), slots}))
        return 0;
    kupcancel(ctx, changes[1]);
    kupcancel(ctx, changes[0]);
    return KUP_NOMEM;
}

uint16_t kupremove(kupct *prfctx, const char *prfnam, uint16_t flag)
{
    kux *ctx = prfctx->kupctscx;
    const bool user = (flag & KUP_USER) != 0;
    void *list = nullptr;
    if (!user && (flag & KUP_GLOBAL) == 0) return 1;
    if ((flag & KUP_SPECIFIC) != 0)
        list = user ? prfctx->kupctusp : prfctx->kupctgsp;
    else if ((flag & KUP_GENERAL) != 0)
        list = user ? prfctx->kupctugn : prfctx->kupctggn;
    else
        return 1;
    int32_t place = 0;
    if (kupfind(ctx, list, prfnam, &place) != kupsought::found) return 0;
    auto entry = static_cast<kuxhandle>(kulpitem(ctx, list, place));
    kuppf fields = {};
    if (kupentry(ctx, entry, &fields) && kulpdelete(ctx, list, place) == 0)
        kupfreeentry(ctx, entry, fields);
    return 0;
}

uint16_t kupwrite(kupct *prfctx)
{
    kux *ctx = prfctx->kupctscx;
    char name[kup_writenamesize];
    if (skupfn(name, sizeof name, KUP_USER) != 0) return KUP_NOUSERFILE;
    kupout out = {ctx, skubreplace(ctx, name), 0, false};
    if (out.stream == nullptr) {
        kuxerclear(ctx);
        return KUP_NOUSERFILE;
    }
    kupwrl(out, prfctx->kupctugn, nullptr);
    kupwrl(out, prfctx->kupctusp, prfctx->kupctprd);
    kupwrl(out, prfctx->kupcttmp, nullptr);
    if (out.failed || skubclose(ctx, out.stream) != 0) {
        skubdiscard(ctx, out.stream);
        return 0;
    }
    skupsi(name);
    return 0;
}

uint16_t kupclose(kupct *prfctx)
{
    if (prfctx == nullptr) return 0;
    kux *ctx = prfctx->kupctscx;
    for (void *list : {prfctx->kupctusp, prfctx->kupctugn, prfctx->kupctgsp, prfctx->kupctggn,
                       prfctx->kupcttmp}) {
        if (list == nullptr) continue;
        const kul *record = kulplock(ctx, list);
        for (int32_t i = record->nitems_kul; i-- > 0;) kupfreeentry(ctx, kuphandle(record, i));
        kulpdestroy(ctx, list);
    }
    kuxhandle handle = prfctx->kupcthdl;
    ctx->kuxrmunlock(ctx, handle);
    ctx->kuxrmfree(ctx, handle);
    return 0;
}
