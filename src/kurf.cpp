// kurf.cpp - runs: a set of positions, moved on by one character at a time
//
// The automaton of kurm.cpp is simulated: a state is the set of positions that may
// match the next character, and the next state is the union of followpos of those
// that do. No state is kept and no transition is looked up twice as such.
//
// There are two ways to make a step. kurfdelta works on position sets, and asks the
// record's compare and successor functions for each position of each set. Where those
// functions are the library's own, nobody can tell how often they are called; then
// a run works on bits: it keeps, for the characters it meets, which positions match
// them (found once a run, so that a change of the syntax record has its effect on
// the next), and a step is
//
//     hits = current & matching[character]
//     next = union of followpos[p] for each bit p of hits
//
// The set that clients see is filled in from the bits before each of their
// callbacks. One driver runs both ways: it knows of a state whether there is one
// and whether it is accepting. It keeps all of its own state in the record, so that a
// match or next-character callback that resets the runner, or runs it, finds and leaves a whole
// one.
#include "kurf.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include "kuguard.h"
#include "kul.h"
#include "kurf_internal.h"
#include "kurm.h"
#include "kurn_internal.h"
#include "port/locale/locale.h"

namespace
{

constexpr std::int32_t kurf_nothing = -1;   // no transition
constexpr std::uint32_t kurf_room = 10;     // positions that a new set has room for
constexpr std::uint32_t kurf_walk = 65536;  // characters of a range, at most
constexpr std::uint32_t kurf_bits = 64;     // of a word
constexpr std::uint32_t kurf_sets = 5;      // sets that a map has one of
constexpr std::uint32_t kurf_small = 4096;  // positions up to which there are many slots
constexpr std::uint32_t kurf_slots = 256;   // slots of such a pattern
constexpr std::uint32_t kurf_fewslots = 32; // slots of a larger one

enum kurfstarts : std::uint8_t { kurf_unknown, kurf_never, kurf_may };

kurl *kurfstart(const kurf &runner) { return runner.kurnp_kurf->rtkurnop_kurn->firstkurlp_kurno; }

bool kurfisknown(std::int32_t representation)
{
    return representation >= KURF_MULTIBYTE && representation <= KURF_WIDE;
}

// ---- matching one character ----

// The token of one end of a range.
const kurte &kurfend(const kurno &range, std::int32_t child)
{
    return *range.ckurnop_kurno[child]->ckurnop_kurno[0]->kurtep_kurno;
}

bool kurfismixed(const kurno &range)
{
    return range.numchild_kurno == 3
           && kurfend(range, 0).type_kurte != kurfend(range, 2).type_kurte;
}

std::int32_t kurfrefuse(kux *ctx)
{
    kuxer0push(ctx, KURFA_NOMATCH);
    return 0;
}

bool kurfliteral(kux *ctx, kurx *kurxh, std::uint32_t own, std::uint32_t tchar)
{
    if (kurxh->cmfuncp_kurx == kurxscmatch) return own == tchar;
    return kurxh->cmfuncp_kurx(ctx, kurxh->cmctxp_kurx, own, tchar) != 0;
}

} // namespace

std::int32_t kurfmatch(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *node, std::uint32_t tchar)
{
    if (node->nodetype_kurno == KURN_RLIS) return kurfrlis(ctx, kurxh, kurfh, node, tchar);
    if (node->nodetype_kurno == KURN_TWIDDLE)
        return 1 - kurfrlis(ctx, kurxh, kurfh, node->ckurnop_kurno[1], tchar);
    if (node->nodetype_kurno != KURN_MATCH) return kurfrefuse(ctx);
    const kurte &token = *node->kurtep_kurno;
    switch (token.type_kurte) {
    case KURT_LITERAL:
    case KURT_NULL: return kurfliteral(ctx, kurxh, token.value_kurte, tchar) ? 1 : 0;
    case KURT_CLASS: return kurxematch(ctx, kurxh, token.value_kurte, tchar);
    case KURT_DOT: return 1;
    default: return kurfrefuse(ctx);
    }
}

std::int32_t kurfrlis(kux *ctx, kurx *kurxh, kurf *kurfh, kurno *node, std::uint32_t tchar)
{
    while (kurfrange(ctx, kurxh, kurfh, node->ckurnop_kurno[0], tchar) == 0) {
        if (node->numchild_kurno < 2) return 0;
        node = node->ckurnop_kurno[1];
    }
    return 1;
}

// A walk may never meet the high end: a successor function of the client's can go round in
// circles, and the collating order passes over some characters.
std::int32_t kurfrange(kux *ctx, kurx *kurxh, kurf *, kurno *node, std::uint32_t tchar)
{
    if (kurfismixed(*node)) return kurfrefuse(ctx);
    const kurte low = kurfend(*node, 0);
    const std::uint32_t high = kurfend(*node, node->numchild_kurno == 3 ? 2 : 0).value_kurte;
    std::uint32_t at = low.value_kurte;
    for (std::uint32_t step = 0; step < kurf_walk; step++) {
        const bool matches = low.type_kurte == KURT_CLASS ? kurxematch(ctx, kurxh, at, tchar) != 0
                                                          : kurfliteral(ctx, kurxh, at, tchar);
        if (matches) return 1;
        if (at == high || at == kurxh->lchar_kurx) return 0;
        at = kurxgsucc(ctx, kurxh, at);
        if (at == 0 || at == low.value_kurte) return 0;
    }
    return 0;
}

// ---- a step on sets ----

std::uint32_t kurffpadd(kux *ctx, kurx *, kurf *, kurno *position, kurl **set)
{
    if (*set == nullptr) *set = kurlcreate(ctx, kurf_room, nullptr);
    if (*set == nullptr) return ku::failure(ctx);
    return kurlmerge(ctx, *set, position->followkurlp_kurno);
}

kurl *kurfdelta(kux *ctx, kurx *kurxh, kurf *kurfh, kurl *set, std::uint32_t tchar)
{
    kurl *next = nullptr;
    bool made = true;
    const kurlspan positions = kurlview(*set);
    for (std::uint32_t i = 0; made && i < positions.count; i++) {
        kurno *position = positions.items[i];
        if (kurfmatch(ctx, kurxh, kurfh, position, tchar) == 0) continue;
        made = kurffpadd(ctx, kurxh, kurfh, position, &next) == 0;
        if (made && position->accepting_kurno != 0) {
            kurfh->tag_kurf = position->tag_kurno;
            next->accepting_kurl = 1;
        }
    }
    if (set != kurfstart(*kurfh)) kurldestroy(ctx, set);
    return made ? next : kurldestroy(ctx, next);
}

namespace
{

// ---- a step on bits ----

// Bytes of the block behind a map, and where its arrays begin in it.
std::uint64_t kurflayout(kurfmap &map, std::uint64_t positions, void *block)
{
    const std::uint64_t set = map.words;
    const std::uint64_t sets = set * map.slots;
    auto *word = static_cast<std::uint64_t *>(block);
    auto *jump = static_cast<kurfjump *>(block);
    const std::uint64_t bytes = (kurf_sets * set + 2 * sets) * sizeof(std::uint64_t)
                                + positions * sizeof(kurfjump) + map.slots * sizeof(kurfslot);
    if (block == nullptr) return bytes;
    map.jumps = jump;
    word = reinterpret_cast<std::uint64_t *>(jump + positions);
    for (std::uint64_t **array :
         {&map.start, &map.current, &map.next, &map.accepting, &map.always}) {
        *array = word;
        word += set;
    }
    map.known = word;
    map.matching = word + sets;
    map.table = reinterpret_cast<kurfslot *>(word + 2 * sets);
    return bytes;
}

std::uint32_t kurfword(const kurno &position) { return (position.nodeid_kurno - 1) / kurf_bits; }

std::uint64_t kurfbit(const kurno &position)
{
    return std::uint64_t{1} << (position.nodeid_kurno - 1) % kurf_bits;
}

void kurffilljump(kurfjump &jump, const kurno &position)
{
    const kurlspan follow = kurlview(*position.followkurlp_kurno);
    if (follow.count == 0) return;
    jump.word = kurfword(*follow.items[0]);
    jump.many = kurfword(*follow.end()[-1]) != jump.word ? 1 : 0;
    for (std::uint32_t i = 0; jump.many == 0 && i < follow.count; i++)
        jump.bits |= kurfbit(*follow.items[i]);
}

bool kurfisdot(const kurno &position)
{
    return position.nodetype_kurno == KURN_MATCH && position.kurtep_kurno->type_kurte == KURT_DOT;
}

void kurffillmap(kurfmap &map, const kurlrow &positions, const kurl &start)
{
    for (std::uint32_t i = 0; i < positions.high; i++) {
        const kurno &position = *positions.items[i];
        kurffilljump(map.jumps[i], position);
        if (position.accepting_kurno != 0) map.accepting[kurfword(position)] |= kurfbit(position);
        if (kurfisdot(position)) map.always[kurfword(position)] |= kurfbit(position);
    }
    const kurlspan first = kurlview(start);
    map.startlow = kurfword(*first.items[0]);
    map.starthigh = kurfword(*first.end()[-1]);
    for (std::uint32_t i = 0; i < first.count; i++)
        map.start[kurfword(*first.items[i])] |= kurfbit(*first.items[i]);
    map.low = 1; // nothing in current
    map.high = 0;
}

bool kurfmakemap(kux *ctx, kurfrunner &whole)
{
    const kurlrow &positions = *kurntreeof(*whole.open.kurnp_kurf).positions;
    whole.shown = kurlcreate(ctx, positions.high, nullptr);
    if (whole.shown == nullptr) return false;
    kurfmap &map = whole.map;
    map.words = (positions.high + kurf_bits - 1) / kurf_bits;
    map.slots = positions.high <= kurf_small ? kurf_slots : kurf_fewslots;
    void *block = ku::allocate(ctx, kurflayout(map, positions.high, nullptr), 1);
    if (block == nullptr) {
        ku::failure(ctx);
        return false;
    }
    kurflayout(map, positions.high, block);
    kurffillmap(map, positions, *kurfstart(whole.open));
    return true;
}

void kurfnoterange(kurfrunner &whole, const kurno &range)
{
    if (range.numchild_kurno == 3) whole.ranged = 1;
    if (kurfismixed(range)) whole.mixed = 1;
    if (kurfend(range, 0).type_kurte == KURT_CLASS) whole.classed = 1;
}

// Notes what the matches of the pattern depend on.
void kurfnotekinds(kurfrunner &whole)
{
    const kurlrow &positions = *kurntreeof(*whole.open.kurnp_kurf).positions;
    for (std::uint32_t i = 0; i < positions.high; i++) {
        const kurno *node = positions.items[i];
        if (node->nodetype_kurno == KURN_MATCH && node->kurtep_kurno->type_kurte == KURT_CLASS)
            whole.classed = 1;
        if (node->nodetype_kurno == KURN_TWIDDLE) node = node->ckurnop_kurno[1];
        while (node != nullptr && node->nodetype_kurno == KURN_RLIS) {
            kurfnoterange(whole, *node->ckurnop_kurno[0]);
            node = node->numchild_kurno == 2 ? node->ckurnop_kurno[1] : nullptr;
        }
    }
}

// Whether nobody can tell how often a character is compared: the functions are the
// library's own, and no range pushes a code each time.
bool kurfmaybequick(const kurfrunner &whole, const kurx &syntax)
{
    const bool compares = syntax.cmfuncp_kurx == kurxscmatch || syntax.cmfuncp_kurx == kurxicmatch;
    return compares && whole.mixed == 0 && (whole.ranged == 0 || syntax.succfp_kurx == kurxsucc);
}

// One character's part of the map.
struct kurflooked {
    kurfslot *slot;
    std::uint64_t *known;
    std::uint64_t *matching;
};

// Where a step on a pattern of one word leads.
struct kurfled {
    std::uint64_t next;
    std::uint64_t hits;
    std::uint64_t accepting; // the accepting ones of the hits
};

// What a step has joined: words that are not 0 lie from `low` to `high`.
struct kurfunion {
    std::uint32_t low;
    std::uint32_t high = 0;
    kurlspan last = {}; // the list read last; those inside it add nothing
};

// What a step needs at hand.
struct kurfstep {
    kux *ctx;
    kurx *kurxh;
    kurfrunner &whole;

    const kurlrow &positions() const { return *kurntreeof(*whole.open.kurnp_kurf).positions; }
    kurflooked look(std::uint32_t tchar) const
    {
        const kurfmap &map = whole.map;
        const std::uint32_t index = tchar & (map.slots - 1);
        const std::size_t set = std::size_t{index} * map.words;
        const kurflooked looked = {map.table + index, map.known + set, map.matching + set};
        if (looked.slot->tchar != tchar || looked.slot->run != map.run) {
            *looked.slot = {tchar, map.run, kurf_unknown};
            std::copy_n(map.always, map.words, looked.known);
            std::copy_n(map.always, map.words, looked.matching);
        }
        return looked;
    }
    // Of one word of the set `from` the positions that match.
    std::uint64_t hits(std::uint32_t tchar, const kurflooked &looked, std::uint32_t word,
                       std::uint64_t from) const
    {
        const std::uint64_t unknown = from & ~looked.known[word];
        if (unknown != 0) learn(tchar, looked, word, unknown);
        return from & looked.matching[word];
    }
    kurfled lead(std::uint32_t tchar, std::uint64_t from) const
    {
        const kurfmap &map = whole.map;
        kurfled led = {0, hits(tchar, look(tchar), 0, from), 0};
        led.accepting = led.hits & *map.accepting;
        for (std::uint64_t left = led.hits; left != 0; left &= left - 1)
            led.next |= map.jumps[std::countr_zero(left)].bits;
        return led;
    }
    // The tag of the last of these positions.
    void tag(std::uint32_t word, std::uint64_t accepting) const
    {
        const auto bit = kurf_bits - 1 - static_cast<std::uint32_t>(std::countl_zero(accepting));
        whole.open.tag_kurf = positions().items[word * kurf_bits + bit]->tag_kurno;
    }
    void learn(std::uint32_t tchar, const kurflooked &looked, std::uint32_t word,
               std::uint64_t unknown) const;
    bool join(std::uint32_t word, std::uint64_t hits, kurfunion &joined) const;
    kurl *moveword(std::uint32_t tchar) const;
    kurl *movewords(std::uint32_t tchar) const;
    bool starts(std::uint32_t tchar) const;
    kurl *step(std::uint32_t tchar) const;
};

void kurfstep::learn(std::uint32_t tchar, const kurflooked &looked, std::uint32_t word,
                     std::uint64_t unknown) const
{
    looked.known[word] |= unknown;
    if (kurxh->cmfuncp_kurx != kurxscmatch) whole.steady = 0; // changed in a callback, maybe
    for (; unknown != 0; unknown &= unknown - 1) {
        const auto bit = static_cast<std::uint32_t>(std::countr_zero(unknown));
        kurno *node = positions().items[word * kurf_bits + bit];
        if (kurfmatch(ctx, kurxh, &whole.open, node, tchar) != 0)
            looked.matching[word] |= std::uint64_t{1} << bit;
    }
}

// The step of kurfdelta on a pattern of one word.
kurl *kurfstep::moveword(std::uint32_t tchar) const
{
    kurfmap &map = whole.map;
    const bool starting = whole.open.currkurlp_kurf != whole.shown;
    const kurfled led = lead(tchar, starting ? *map.start : *map.current);
    if (led.accepting != 0) tag(0, led.accepting);
    *map.current = led.next;
    map.low = 0;
    map.high = 0;
    whole.shown->accepting_kurl = led.accepting != 0 ? 1 : 0;
    return led.hits != 0 ? whole.shown : nullptr;
}

// Joins followpos of the hits in a word into the next set. Many positions of a large pattern have
// windows of one row: without a look at the last one each step would take the square of them.
bool kurfstep::join(std::uint32_t word, std::uint64_t hits, kurfunion &joined) const
{
    kurfmap &map = whole.map;
    for (std::uint64_t left = hits; left != 0; left &= left - 1) {
        const auto bit = static_cast<std::uint32_t>(std::countr_zero(left));
        const std::uint32_t index = word * kurf_bits + bit;
        const kurfjump &jump = map.jumps[index];
        map.next[jump.word] |= jump.bits;
        joined.low = std::min(joined.low, jump.word);
        joined.high = std::max(joined.high, jump.word);
        if (jump.many == 0) continue;
        const kurlspan follow = kurlview(*positions().items[index]->followkurlp_kurno);
        if (joined.last.covers(follow)) continue;
        joined.last = follow;
        for (std::uint32_t i = 0; i < follow.count; i++)
            map.next[kurfword(*follow.items[i])] |= kurfbit(*follow.items[i]);
        joined.high = std::max(joined.high, kurfword(*follow.end()[-1]));
    }
    return hits != 0;
}

// The step of kurfdelta on words.
kurl *kurfstep::movewords(std::uint32_t tchar) const
{
    kurfmap &map = whole.map;
    const bool starting = whole.open.currkurlp_kurf != whole.shown;
    const std::uint64_t *from = starting ? map.start : map.current;
    const std::uint32_t last = starting ? map.starthigh : map.high;
    const kurflooked looked = look(tchar);

    bool any = false;
    std::uint8_t accepting = 0;
    kurfunion joined = {map.words};
    for (std::uint32_t word = starting ? map.startlow : map.low; word <= last; word++) {
        const std::uint64_t found = hits(tchar, looked, word, from[word]);
        if (!join(word, found, joined)) continue;
        any = true;
        if ((found & map.accepting[word]) == 0) continue;
        tag(word, found & map.accepting[word]);
        accepting = 1;
    }
    for (std::uint32_t word = map.low; word <= map.high; word++) map.current[word] = 0;
    std::swap(map.current, map.next);
    map.low = any ? joined.low : 1;
    map.high = joined.high;
    whole.shown->accepting_kurl = accepting;
    return any ? whole.shown : nullptr;
}

// Whether a match can start with the character.
bool kurfstep::starts(std::uint32_t tchar) const
{
    const kurfmap &map = whole.map;
    const kurflooked looked = look(tchar);
    if (looked.slot->starts != kurf_unknown) return looked.slot->starts == kurf_may;
    looked.slot->starts = kurf_never;
    for (std::uint32_t word = map.startlow; word <= map.starthigh; word++)
        if (hits(tchar, looked, word, map.start[word]) != 0) looked.slot->starts = kurf_may;
    return looked.slot->starts == kurf_may;
}

// A set that a client keeps a hold on stays as it was shown: the runner takes another one.
// False, with the code pushed, without memory.
bool kurfrenew(kux *ctx, kurfrunner &whole)
{
    kurl *&shown = whole.shown;
    if (shown->rcount_kurl == 1) return true;
    kurl *other = kurlcreate(ctx, kurntreeof(*whole.open.kurnp_kurf).positions->high, nullptr);
    if (other == nullptr) return false;
    other->accepting_kurl = shown->accepting_kurl;
    if (whole.open.currkurlp_kurf == shown) whole.open.currkurlp_kurf = other;
    kurldestroy(ctx, shown);
    shown = other;
    return true;
}

kurl *kurfstep::step(std::uint32_t tchar) const
{
    kurf &runner = whole.open;
    if (!kurfrenew(ctx, whole)) return nullptr;
    if (whole.quick == 0) return kurfdelta(ctx, kurxh, &runner, runner.currkurlp_kurf, tchar);
    return whole.map.words == 1 ? moveword(tchar) : movewords(tchar);
}

// Lets go of the current set, unless it is one that the runner keeps.
void kurfleave(kux *ctx, kurfrunner &whole)
{
    kurl *current = whole.open.currkurlp_kurf;
    if (current != kurfstart(whole.open) && current != whole.shown) kurldestroy(ctx, current);
    whole.open.currkurlp_kurf = nullptr;
}

// Fills the set that clients see from the bits.
void kurfshow(kurfrunner &whole)
{
    if (whole.open.currkurlp_kurf != whole.shown) return;
    const kurlrow &positions = *kurntreeof(*whole.open.kurnp_kurf).positions;
    kul &list = *static_cast<kul *>(whole.shown->nfalist_kurl);
    std::int32_t count = 0;
    for (std::uint32_t word = whole.map.low; word <= whole.map.high; word++)
        for (std::uint64_t bits = whole.map.current[word]; bits != 0; bits &= bits - 1) {
            const auto bit = static_cast<std::uint32_t>(std::countr_zero(bits));
            list.items_kul[count++] = positions.items[word * kurf_bits + bit];
        }
    list.nitems_kul = count;
    list.current_kul = -1;
}

// ---- data ----

inline std::uint32_t kurfunit(const void *data, std::uint32_t index, std::int32_t representation)
{
    switch (representation) {
    case KURF_MULTIBYTE: return static_cast<const unsigned char *>(data)[index];
    case KURF_U16: return static_cast<const std::uint16_t *>(data)[index];
    default: return static_cast<const std::uint32_t *>(data)[index];
    }
}

inline std::uint32_t kurfread(kurfc &data)
{
    if (data.datai_kurfc >= data.datan_kurfc) return 0;
    if (data.datat_kurfc != KURF_MULTIBYTE)
        return kurfunit(data.datap_kurfc, data.datai_kurfc++, data.datat_kurfc);
    kucursor &cursor = data.datal_kurfc;
    const std::uint32_t value = ku::locale::next(cursor);
    data.datai_kurfc = static_cast<std::uint32_t>(cursor.position_kucursor - cursor.start_kucursor);
    return value;
}

// Where characters come from: memory, or a client's function.
struct kurfsource {
    kurfc *memory;             // null: the function
    const std::uint8_t *plain; // of the character set: bytes that are characters by themselves
    const unsigned char *end;  // of multibyte text
    kurfnextfn function;
    void *cctxp;

    // kurfread, for a cursor that nobody else sees.
    std::uint32_t next() const
    {
        if (memory->datat_kurfc != KURF_MULTIBYTE) return kurfread(*memory);
        kucursor &cursor = memory->datal_kurfc;
        if (cursor.position_kucursor < end && plain[*cursor.position_kucursor] != 0)
            return *cursor.position_kucursor++;
        return ku::locale::slow::next(cursor);
    }
};

// ---- the run ----

struct kurfdriver {
    kurfstep stepping;
    kurfsource source;
    kurfmatchfn report;
    void *cctxp;
    std::uint32_t tchar = 0; // the current character
    std::uint32_t ahead = 0; // the one behind it

    kurf &runner() const { return stepping.whole.open; }
    std::uint32_t read() const
    {
        if (source.memory != nullptr) return source.next();
        kurfshow(stepping.whole);
        return source.function(stepping.ctx, source.cctxp);
    }
    void tell(std::int32_t transition, std::uint32_t finish) const
    {
        kurfshow(stepping.whole);
        runner().action_kurf =
            report(stepping.ctx, transition, cctxp, runner().istart_kurf, finish);
    }
    void next()
    {
        runner().curri_kurf++;
        tchar = ahead;
        ahead = tchar != 0 ? read() : 0;
    }
    void search() const;
    bool follow() const;
    bool answered(std::int32_t transition) const;
    void skip();
    void glide();
    bool advance();
    void run();
};

bool kurfgoes(const kurf &runner)
{
    return runner.action_kurf != KURF_A_REJECT && runner.action_kurf != KURF_A_STOP;
}

// Begins to look for a match.
void kurfdriver::search() const
{
    kurfleave(stepping.ctx, stepping.whole);
    runner().currkurlp_kurf = kurfstart(runner());
    runner().imode_kurf = 1;
    runner().caccept_kurf = 0;
    runner().action_kurf = KURF_A_GO;
}

// Does what the callback answered to `transition`. False: the current character is to be
// read again.
bool kurfdriver::answered(std::int32_t transition) const
{
    if (runner().action_kurf == KURF_A_REJECT) {
        search();
        if (transition == KURF_T_ACCEPT) return true;
        if (transition == KURF_T_END || runner().sanchor_kurf == 0) return false;
        runner().currkurlp_kurf = nullptr; // no other start can be tried
        runner().action_kurf = KURF_A_STOP;
    }
    if (runner().currkurlp_kurf == nullptr) runner().action_kurf = KURF_A_STOP;
    return true;
}

// Reports what the step inside a match has led to. False as answered().
bool kurfdriver::follow() const
{
    const kurl *set = runner().currkurlp_kurf;
    std::int32_t transition =
        kurfcall(stepping.ctx, stepping.kurxh, &runner(), runner().currkurlp_kurf, tchar, ahead);
    if (report == nullptr || transition == kurf_nothing) {
        if (set == nullptr) runner().action_kurf = KURF_A_STOP;
        return true;
    }
    const std::uint32_t index = runner().curri_kurf;
    tell(transition, transition == KURF_T_END ? index - 1 : index);
    if ((kurfgoes(runner()) && runner().currkurlp_kurf == nullptr) || tchar == 0) {
        transition = KURF_T_FAIL;
        tell(transition, index);
    }
    return answered(transition);
}

// Passes over characters with which no match can start.
void kurfdriver::skip()
{
    if (stepping.whole.quick == 0 || runner().imode_kurf == 0 || runner().sanchor_kurf != 0) return;
    const bool calls = source.memory == nullptr; // and what is called may run this runner
    while (tchar != 0 && !stepping.starts(tchar) && !(calls && runner().currkurlp_kurf == nullptr))
        next();
}

// Goes on inside a match as long as there is nothing to report, in a pattern of one word.
void kurfdriver::glide()
{
    kurfrunner &whole = stepping.whole;
    if (source.memory == nullptr || whole.map.words != 1 || runner().currkurlp_kurf != whole.shown)
        return;
    if (whole.shown->rcount_kurl != 1) return; // a client holds it; the next step leaves it that
    const bool accepts = runner().caccept_kurf != 0;
    std::uint64_t current = *whole.map.current;
    while (tchar != 0) {
        const kurfled led = stepping.lead(tchar, current);
        const bool end = runner().fanchor_kurf == 0 || ahead == 0;
        if (led.hits == 0 || (accepts ? led.accepting == 0 : led.accepting != 0 && end)) break;
        if (led.accepting != 0) stepping.tag(0, led.accepting);
        current = led.next;
        whole.shown->accepting_kurl = led.accepting != 0 ? 1 : 0;
        next();
    }
    *whole.map.current = current;
}

// One character. False: the run is over.
bool kurfdriver::advance()
{
    skip();
    glide();
    if (runner().currkurlp_kurf == nullptr) return false; // a callback has run this runner
    runner().currkurlp_kurf = stepping.step(tchar);
    if (runner().imode_kurf != 0) {
        if (runner().currkurlp_kurf != nullptr) {
            runner().imode_kurf = 0;
            runner().istart_kurf = runner().curri_kurf;
        } else if (runner().sanchor_kurf != 0) {
            return false;
        } else {
            runner().currkurlp_kurf = kurfstart(runner());
        }
    }
    const bool further = runner().imode_kurf != 0 || follow();
    if (runner().action_kurf == KURF_A_STOP) return false;
    if (!further) return true;
    if (tchar == 0) return false;
    next();
    return true;
}

void kurfdriver::run()
{
    tchar = read();
    ahead = tchar != 0 ? read() : 0;
    while (advance()) {
    }
    if (report != nullptr) tell(KURF_T_FAIL, runner().curri_kurf);
    const kurl *last = runner().currkurlp_kurf; // may accept the end, which is not reported
    if (last != nullptr && last->accepting_kurl != 0) runner().ifinish_kurf = runner().curri_kurf;
    kurfleave(stepping.ctx, stepping.whole);
}

void kurfbegin(kux *ctx, kurx *kurxh, kurfrunner &whole)
{
    kurfreset(ctx, kurxh, &whole.open);
    whole.open.istart_kurf = 0;
    whole.open.ifinish_kurf = 0;
    whole.open.tag_kurf = 0;
    whole.quick = kurfmaybequick(whole, *kurxh) ? 1 : 0;
    const bool steady =
        kurxh->cmfuncp_kurx == kurxscmatch && whole.ranged == 0 && whole.classed == 0;
    const bool holds = steady && whole.steady != 0;
    whole.steady = steady ? 1 : 0;
    if (holds || ++whole.map.run != 0) return;
    for (std::uint32_t i = 0; i < whole.map.slots; i++) whole.map.table[i].run = 0;
    whole.map.run = 1;
}

std::int32_t kurfdrive(kux *ctx, kurx *kurxh, kurf *kurfh, const kurfsource &source,
                       kurfmatchfn report, void *cctxp)
{
    kurfrunner &whole = kurfrunnerof(*kurfh);
    kurfbegin(ctx, kurxh, whole);
    kurfdriver driver = {{ctx, kurxh, whole}, source, report, cctxp};
    driver.run();
    return kurfgstate(ctx, kurxh, kurfh);
}

// ---- compiling ----

// The pattern's characters; how many.
std::uint32_t kurfcharacters(kux *ctx, std::uint32_t *target, const void *regexp,
                             std::uint32_t regexn, std::int32_t regext)
{
    if (regext != KURF_MULTIBYTE) {
        for (std::uint32_t i = 0; i < regexn; i++) target[i] = kurfunit(regexp, i, regext);
        return regexn;
    }
    kucursor cursor;
    ku::locale::open_exact(&cursor, const_cast<void *>(regexp), SIZE_MAX, ctx->kuxlangidh,
                           ku::locale::cursor_mode::read);
    std::uint32_t count = 0;
    while (count < regexn && (target[count] = ku::locale::next(cursor)) != 0) count++;
    return count;
}

bool kurfcompile(kux *ctx, kurx *kurxh, kurfrunner &whole, const std::uint32_t *characters,
                 std::uint32_t count)
{
    kurf &runner = whole.open;
    runner.kurtp_kurf = kurtcreate(ctx, kurxh, characters, count);
    if (runner.kurtp_kurf == nullptr) return false;
    runner.kurnp_kurf = kurncreate(ctx, kurxh, runner.kurtp_kurf);
    if (runner.kurnp_kurf == nullptr || kurmcreate(ctx, runner.kurnp_kurf) != 0) return false;
    if (!kurfmakemap(ctx, whole)) return false;
    kurfnotekinds(whole);
    runner.sanchor_kurf = runner.kurtp_kurf->sanchor_kurt;
    runner.fanchor_kurf = runner.kurtp_kurf->fanchor_kurt;
    return true;
}

} // namespace

kurf *kurfcreate(kux *ctx, kurx *kurxh, const void *regexp, std::uint32_t regexn,
                 std::int32_t regext)
{
    if (regexn == 0 || !kurfisknown(regext)) return nullptr;
    auto *whole = ku::allocate<kurfrunner>(ctx);
    ku::owned<std::uint32_t> characters(
        ctx, static_cast<std::uint32_t *>(
                 ku::allocate(ctx, std::uint64_t{regexn} + 1, sizeof(std::uint32_t))));
    if (whole == nullptr || !characters) {
        ku::failure(ctx);
        return whole != nullptr ? kurfdestroy(ctx, kurxh, &whole->open) : nullptr;
    }
    const std::uint32_t count = kurfcharacters(ctx, characters.get(), regexp, regexn, regext);
    characters.get()[count] = 0;
    const bool compiled = kurfcompile(ctx, kurxh, *whole, characters.get(), count);
    if (!compiled || kuxercode(ctx) != 0) return kurfdestroy(ctx, kurxh, &whole->open);
    kurfreset(ctx, kurxh, &whole->open);
    return &whole->open;
}

kurf *kurfdestroy(kux *ctx, kurx *, kurf *kurfh)
{
    if (kurfh == nullptr) return nullptr;
    kurfrunner &whole = kurfrunnerof(*kurfh);
    if (kurn *tree = kurfh->kurnp_kurf; tree != nullptr) {
        kurfleave(ctx, whole);
        kurmdestroy(ctx, tree, tree->rtkurnop_kurn);
        kurndestroy(ctx, tree);
    }
    kurldestroy(ctx, whole.shown);
    kurtdestroy(ctx, kurfh->kurtp_kurf);
    if (whole.map.jumps != nullptr) ctx->kuxnmfree(ctx, whole.map.jumps); // the whole block
    ctx->kuxnmfree(ctx, kurfh);
    return nullptr;
}

std::int32_t kurfrun(kux *ctx, kurx *kurxh, kurf *kurfh, const void *datap, std::uint32_t datan,
                     std::int32_t datat, kurfmatchfn funcp, void *cctxp)
{
    if (!kurfisknown(datat)) return KURF_S_NONE;
    if (datan == 0) datap = ""; // may have been null
    kurfc data = {};
    data.datap_kurfc = datap;
    data.datan_kurfc = datan;
    data.datat_kurfc = datat;
    data.kurxp_kurfc = kurxh;
    if (datat == KURF_MULTIBYTE)
        ku::locale::open_exact(&data.datal_kurfc, const_cast<void *>(datap), datan, ctx->kuxlangidh,
                               ku::locale::cursor_mode::read);
    const kurfsource source = {&data, ctx->kuxlangidh->charset_kulang->plain_kucharset,
                               static_cast<const unsigned char *>(datap) + datan, nullptr, nullptr};
    return kurfdrive(ctx, kurxh, kurfh, source, funcp, cctxp);
}

std::int32_t kurfcrun(kux *ctx, kurx *kurxh, kurf *kurfh, kurfnextfn cfuncp, void *ccctxp,
                      kurfmatchfn mfuncp, void *mcctxp)
{
    return kurfdrive(ctx, kurxh, kurfh, {nullptr, nullptr, nullptr, cfuncp, ccctxp}, mfuncp,
                     mcctxp);
}

void kurfreset(kux *ctx, kurx *, kurf *kurfh)
{
    kurfleave(ctx, kurfrunnerof(*kurfh));
    kurfh->currkurlp_kurf = kurfstart(*kurfh);
    kurfh->imode_kurf = 1;
    kurfh->caccept_kurf = 0;
    kurfh->action_kurf = KURF_A_GO;
    kurfh->curri_kurf = 0;
}

std::int32_t kurfgstate(kux *, kurx *, kurf *kurfh)
{
    if (kurfh->currkurlp_kurf == nullptr) return KURF_S_NONE;
    return kurfh->caccept_kurf != 0 ? KURF_S_ACCEPT : KURF_S_ALIVE;
}

std::uint32_t kurfgmstart(kux *, kurx *, kurf *kurfh) { return kurfh->istart_kurf; }

std::uint32_t kurfgmfinish(kux *, kurx *, kurf *kurfh) { return kurfh->ifinish_kurf; }

std::int32_t kurfgtagged(kux *, kurx *, kurf *kurfh, std::uint32_t *tagp)
{
    if (kurfh->tag_kurf == 0) return 0;
    *tagp = kurfh->tag_kurf;
    return 1;
}

void kurfmaccept(kux *ctx, kurf *, kurn *tree, kurl *set)
{
    if (set != nullptr && kurmcnull(ctx, tree, set) != 0) set->accepting_kurl = 1;
}

std::int32_t kurfcall(kux *, kurx *, kurf *kurfh, kurl *next, std::uint32_t tchar,
                      std::uint32_t ahead)
{
    const bool before = kurfh->caccept_kurf != 0;
    if (next == nullptr) {
        kurfh->caccept_kurf = 0;
        return before ? KURF_T_END : KURF_T_FAIL;
    }
    const bool accepting = next->accepting_kurl != 0;
    if (!before) {
        if (!accepting || tchar == 0 || (kurfh->fanchor_kurf != 0 && ahead != 0))
            return kurf_nothing;
        kurfh->caccept_kurf = 1;
        return KURF_T_ACCEPT;
    }
    if (accepting) return tchar == 0 ? KURF_T_END : kurf_nothing;
    kurfh->caccept_kurf = 0;
    return KURF_T_END;
}

std::uint32_t kurfcnext(kux *, void *cctxp) { return kurfread(*static_cast<kurfc *>(cctxp)); }

std::uint32_t kurfconvert(kux *, const void *datap, std::uint32_t index, std::int32_t datat)
{
    return kurfunit(datap, index, datat);
}
