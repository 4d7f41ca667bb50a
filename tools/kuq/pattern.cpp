// pattern.cpp - patterns compiled for the library's engine, and its runs put together
//
// The engine knows single characters and sets of them that are written out. So the
// characters are sorted into classes first: two that no set of the pattern tells apart
// are one element. Texts are turned into elements, and the engine's pattern is about
// elements only; how characters are encoded, and their case, it need not know. ^ and $
// stand for one or more elements in front of a text and behind it, as many as the pattern
// has of them, so that one can follow the other:
//
//     beginning ...  character ... character  ending ...
//                    lead
//
// The engine never goes back: behind a start that fails it goes on where it stands, and
// would miss a match that began before. So two patterns are compiled. The one read
// backward, with anything in front of it, tells in one run over the text from its end all
// places where a match starts; the other one, run from the leftmost of these, where
// the longest match from there ends.

#include "pattern.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "characters.h"
#include "codes.h"

namespace kuq
{
namespace
{

enum : uint16_t {
    at_beginning = 1,
    at_ending,
    in_no_text, // matches nothing
    first_class
};
constexpr size_t most_elements = 60000; // of 16 bits
constexpr size_t largest = 20000;       // characters of the engine's pattern
constexpr uint32_t specials = 0x100000; // the engine's operators lie above all elements
constexpr uint32_t group_open = specials;
constexpr uint32_t group_close = specials + 1;
constexpr uint32_t set_open = specials + 2;
constexpr uint32_t set_close = specials + 3;
constexpr uint32_t star = specials + 4;
constexpr uint32_t plus = specials + 5;
constexpr uint32_t caret = specials + 6;
constexpr uint32_t bar = specials + 7;
constexpr uint32_t dot = specials + 8;
constexpr uint32_t unused = specials + 9; // the first of those that no pattern has

kurx *make_syntax(kux *ctx)
{
    kurxa given = {};
    given.lparen_kurxa = group_open;
    given.rparen_kurxa = group_close;
    given.lbrack_kurxa = set_open;
    given.rbrack_kurxa = set_close;
    given.star_kurxa = star;
    given.plus_kurxa = plus;
    given.caret_kurxa = caret;
    given.vbar_kurxa = bar;
    given.dot_kurxa = dot;
    given.twiddle_kurxa = unused;
    given.dollar_kurxa = unused + 1;
    given.escape_kurxa = unused + 2;
    given.dash_kurxa = unused + 3;
    given.ltag_kurxa = unused + 4;
    given.rtag_kurxa = unused + 5;
    given.cmfuncp_kurxa = kurxscmatch;
    return kurxcreate(ctx, &given);
}

void append(std::vector<uint32_t> *out, std::initializer_list<uint32_t> more)
{
    out->insert(out->end(), more);
}

// Notes where matches end. The engine says when it has come into one and when out of it.
struct ends {
    std::vector<std::pair<size_t, size_t>> stretches; // elements with which one may end
    bool found = false;
    size_t last = 0; // of the last one so far

    static int32_t note(kux *, int32_t transition, void *data, uint32_t, uint32_t finish)
    {
        auto *seen = static_cast<ends *>(data);
        if (transition == KURF_T_ACCEPT) seen->stretches.push_back({finish, finish});
        if (transition == KURF_T_FAIL) return KURF_A_GO;
        seen->found = true;
        seen->last = seen->stretches.back().second = finish;
        return KURF_A_GO;
    }
};

} // namespace

// A compiled pattern of the library's.
struct pattern::engine {
    explicit engine(kux *context) : ctx(context), syntax(make_syntax(context)) {}
    ~engine()
    {
        kurfdestroy(ctx, syntax, runner);
        kurxdestroy(ctx, syntax);
    }
    engine(const engine &) = delete;
    engine &operator=(const engine &) = delete;

    void run(const uint16_t *data, size_t length, ends *seen) const
    {
        kurfrun(ctx, syntax, runner, data, static_cast<uint32_t>(length), KURF_U16, ends::note,
                seen);
    }

    kux *ctx;
    kurx *syntax;
    kurf *runner = nullptr;
};

pattern::pattern(application &app) : app_(app) {}
pattern::~pattern() = default;

bool pattern::compile(const std::string &text, pattern_kind kind, bool any_case,
                      const std::string &escape)
{
    any_case_ = any_case;
    if (!parse_pattern(app_, kind, text, escape, any_case, &tree_)) return false;
    empty_ = may_be_empty(tree_.root);
    if (make_alphabet() && build(false, &forward_) && build(true, &backward_)) return true;
    if (kuxernerrors(app_.ctx()) == 0) kuxer1push(app_.ctx(), KUQAA_LARGE, text.c_str());
    return false;
}

// ---- elements ----

// Cuts the values where a set begins or ends; stretches in the same sets are one element.
bool pattern::make_alphabet()
{
    std::map<uint32_t, std::vector<std::pair<size_t, bool>>> changes; // set, whether it begins
    changes[0];
    for (size_t set = 0; set < tree_.sets.size(); set++)
        for (const auto &[first, last] : tree_.sets[set]) {
            changes[first].push_back({set, true});
            if (last != UINT32_MAX) changes[last + 1].push_back({set, false});
        }
    std::map<std::vector<size_t>, uint16_t> numbers;
    std::vector<size_t> inside; // the sets that have the value, in order
    size_t members = 0;         // elements of all sets: each is written at least once
    alphabets_.resize(tree_.sets.size());
    for (const auto &[value, changed] : changes) {
        for (const auto &[set, begins] : changed) {
            const auto place = std::lower_bound(inside.begin(), inside.end(), set);
            const bool there = place != inside.end() && *place == set;
            if (begins && !there) inside.insert(place, set);
            if (!begins && there) inside.erase(place);
        }
        const auto next = static_cast<uint16_t>(first_class + numbers.size());
        const auto [number, fresh] = numbers.insert({inside, next});
        members += fresh ? inside.size() : 0;
        if (numbers.size() > most_elements || members > largest + most_elements) return false;
        bounds_.push_back(value);
        behind_.push_back(number->second);
        for (const size_t set : inside)
            if (fresh) alphabets_[set].push_back(number->second);
    }
    for (uint32_t value = 0; value < std::size(known_); value++) {
        const uint32_t looked = any_case_ ? upper_case(app_, value) : value;
        const auto above = std::upper_bound(bounds_.begin(), bounds_.end(), looked);
        known_[value] = behind_[static_cast<size_t>(above - bounds_.begin()) - 1];
    }
    return true;
}

uint16_t pattern::element(uint32_t value) const
{
    if (value < std::size(known_)) return known_[value];
    if (any_case_) value = upper_case(app_, value);
    const auto above = std::upper_bound(bounds_.begin(), bounds_.end(), value);
    return behind_[static_cast<size_t>(above - bounds_.begin()) - 1];
}

void pattern::read(std::string_view text)
{
    elements_.assign(lead_, at_beginning);
    elements_.reserve(lead_ + text.size() + trail_);
    characters all(app_, text);
    for (uint32_t value = 0; all.next(&value);) elements_.push_back(element(value));
    elements_.resize(elements_.size() + trail_, at_ending);
}

// ---- the engine's pattern ----

bool pattern::build(bool backward, std::unique_ptr<engine> *made)
{
    std::vector<uint32_t> out = {caret};
    if (backward) append(&out, {group_open, dot, group_close, star});
    if (!emit(tree_.root, backward, &out)) return false;
    lead_ = static_cast<size_t>(std::count(out.begin(), out.end(), at_beginning));
    trail_ = static_cast<size_t>(std::count(out.begin(), out.end(), at_ending));
    *made = std::make_unique<engine>(app_.ctx());
    engine &built = **made;
    if (built.syntax == nullptr) return false;
    built.runner = kurfcreate(app_.ctx(), built.syntax, out.data(),
                              static_cast<uint32_t>(out.size()), KURF_U32);
    return built.runner != nullptr;
}

// False when the pattern becomes too large. Nothing at all is written as a repeat of what no
// text has.
bool pattern::emit(size_t index, bool backward, std::vector<uint32_t> *out) const
{
    const pattern_node &node = tree_.nodes[index];
    if (out->size() > largest) return false;
    switch (node.what) {
    case pattern_node::one: {
        const std::vector<uint16_t> &set = alphabets_[node.set];
        if (set.size() > 1) out->push_back(set_open);
        out->insert(out->end(), set.begin(), set.end());
        if (set.size() > 1) out->push_back(set_close);
        if (set.empty()) out->push_back(in_no_text);
        return true;
    }
    case pattern_node::beginning:
        append(out, {group_open, at_beginning, group_close, plus});
        return true;
    case pattern_node::ending: append(out, {group_open, at_ending, group_close, plus}); return true;
    case pattern_node::repeat: return emit_repeat(node, backward, out);
    default: break;
    }
    const bool choice = node.what == pattern_node::choice;
    if (node.parts.empty()) append(out, {group_open, in_no_text, group_close, star});
    if (choice) out->push_back(group_open);
    for (size_t at = 0; at < node.parts.size(); at++) {
        const size_t part = backward && !choice ? node.parts.size() - 1 - at : at;
        if (choice && at > 0) out->push_back(bar);
        if (choice) out->push_back(group_open);
        if (!emit(node.parts[part], backward, out)) return false;
        if (choice) out->push_back(group_close);
    }
    if (choice) out->push_back(group_close);
    return true;
}

// x{2,4} is x x (nothing|x (nothing|x)), which reads the same backward; x{2,} is x x+.
bool pattern::emit_repeat(const pattern_node &node, bool backward, std::vector<uint32_t> *out) const
{
    const bool without_end = node.most == endless;
    if (node.most == 0) append(out, {group_open, in_no_text, group_close, star});
    const uint32_t copies = without_end ? std::max(node.least, 1u) : node.most;
    size_t open = 0;
    for (uint32_t copy = 0; copy < copies; copy++) {
        const bool optional = copy >= node.least && !without_end;
        if (optional) {
            append(out, {group_open, group_open, in_no_text, group_close, star, bar, group_open});
            open++;
        }
        const bool repeats = without_end && copy + 1 == copies;
        if (repeats) out->push_back(group_open);
        if (!emit(node.parts[0], backward, out)) return false;
        if (repeats) append(out, {group_close, node.least == 0 ? star : plus});
    }
    for (; open > 0; open--) append(out, {group_close, group_close});
    return true;
}

bool pattern::may_be_empty(size_t index) const
{
    const pattern_node &node = tree_.nodes[index];
    const auto empty = [this](size_t part) { return may_be_empty(part); };
    switch (node.what) {
    case pattern_node::sequence: return std::all_of(node.parts.begin(), node.parts.end(), empty);
    case pattern_node::choice: return std::any_of(node.parts.begin(), node.parts.end(), empty);
    case pattern_node::repeat: return node.least == 0 || may_be_empty(node.parts[0]);
    default: return false;
    }
}

// ---- matching ----

void pattern::find_starts()
{
    const size_t last = elements_.size() - 1;
    std::vector<uint16_t> reversed(elements_.rbegin(), elements_.rend());
    ends seen;
    backward_->run(reversed.data(), reversed.size(), &seen);
    starts_.clear();
    for (auto at = seen.stretches.rbegin(); at != seen.stretches.rend(); ++at)
        starts_.push_back({last - at->second, last - at->first});
}

// Behind how many characters the longest match ends that begins behind `start` of them. At
// the start of the text it may begin with the elements in front.
bool pattern::longest(size_t start, size_t *end)
{
    bool found = empty_;
    *end = start;
    for (size_t at = start == 0 ? 0 : start + lead_; at <= start + lead_; at++) {
        ends seen;
        forward_->run(elements_.data() + at, elements_.size() - at, &seen);
        if (!seen.found) continue;
        found = true;
        const size_t behind = std::max(at + seen.last + 1, lead_) - lead_;
        *end = std::max(*end, std::min(behind, count()));
    }
    return found;
}

bool pattern::covers(std::string_view text)
{
    read(text);
    size_t end = 0;
    return longest(0, &end) && end == count();
}

void pattern::each(std::string_view text, size_t from, const visitor &visit)
{
    read(text);
    if (!empty_) find_starts();
    characters place(app_, text); // behind `passed` characters
    size_t passed = 0;
    const auto bytes_at = [&](size_t character) {
        uint32_t value = 0;
        for (; passed < character; passed++) place.next(&value);
        return place.at();
    };
    size_t at = 0; // the next character at which a match may start
    while (at < count() && place.at() < from) bytes_at(++at);
    auto stretch = starts_.begin();
    for (size_t last_end = SIZE_MAX; at <= count();) {
        if (!empty_) {
            const size_t least = at == 0 ? 0 : at + lead_;
            while (stretch != starts_.end() && stretch->second < least) ++stretch;
            if (stretch == starts_.end()) return;
            at = std::min(std::max({stretch->first, least, lead_}) - lead_, count());
        }
        size_t end = at;
        const bool found = longest(at, &end);
        if (found && (end > at || at != last_end)) {
            const size_t start = bytes_at(at);
            if (!visit({start, bytes_at(end) - start})) return;
        }
        last_end = end;
        at = end > at ? end : at + 1;
    }
}

bool pattern::find(std::string_view text, size_t from, match *found)
{
    bool any = false;
    each(text, from, [&](const match &seen) {
        *found = seen;
        any = true;
        return false;
    });
    return any;
}

} // namespace kuq
