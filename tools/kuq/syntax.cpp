// syntax.cpp - patterns read from left to right, one function for each kind of construct
//
//     choice    sequence | sequence ...
//     sequence  atom with * + ? {n} {n,} {n,m} behind it, ...
//     atom      (choice)  [set]  .  ^  $  \d \w \s \D \W \S  \t \n \r  \x  any other character

#include "syntax.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "characters.h"
#include "codes.h"

namespace kuq
{
namespace
{

constexpr uint32_t last_value = UINT32_MAX;
constexpr uint32_t last_cased = 0x1FFFF; // no character above it has another case or a class
constexpr uint32_t most_repeats = 1000;
constexpr size_t deepest = 200; // groups in groups

void unite(letters *set)
{
    std::sort(set->begin(), set->end());
    size_t kept = 0;
    for (const auto &[first, last] : *set) {
        if (kept > 0 && (*set)[kept - 1].second >= first)
            (*set)[kept - 1].second = std::max((*set)[kept - 1].second, last);
        else
            (*set)[kept++] = {first, last};
    }
    set->resize(kept);
}

letters all_but(letters set)
{
    unite(&set);
    letters rest;
    uint64_t from = 0;
    for (const auto &[first, last] : set) {
        if (from < first) rest.push_back({static_cast<uint32_t>(from), first - 1});
        from = uint64_t{last} + 1;
    }
    if (from <= last_value) rest.push_back({static_cast<uint32_t>(from), last_value});
    return rest;
}

using class_test = int32_t (*)(const kulang *, kulocglo *, const void *, uint32_t, int32_t);

struct named_class {
    const char *name;
    class_test test;
};
constexpr named_class classes[] = {
    {"alpha", lizcalpha}, {"alnum", lizcalnum}, {"digit", lizcdigit}, {"xdigit", lizcxdigit},
    {"upper", lizcupper}, {"lower", lizclower}, {"space", lizcspace}, {"punct", lizcpunct},
    {"print", lizcprint}, {"graph", lizcgraph}, {"cntrl", lizccntrl},
};

class parser
{
public:
    parser(application &app, const std::string &text, bool any_case, pattern_tree *tree)
        : app_(app), text_(text), any_case_(any_case), tree_(*tree)
    {
        characters all(app, text);
        for (uint32_t value = 0; all.next(&value);) pattern_.push_back(value);
    }

    bool regular()
    {
        tree_.root = choice(0);
        if (wrong_ == nullptr && more()) refuse("a ) without its (");
        return finish();
    }

    bool like(const std::string &escape)
    {
        std::vector<uint32_t> marks;
        characters all(app_, escape);
        for (uint32_t value = 0; all.next(&value);) marks.push_back(value);
        std::vector<size_t> parts;
        while (more() && wrong_ == nullptr) {
            const uint32_t given = take();
            if (!marks.empty() && given == marks[0]) {
                if (more())
                    parts.push_back(one({{peek(), peek()}}));
                else
                    refuse("nothing behind the escape character");
                at_++;
            } else if (given == '%') {
                if (parts.empty() || tree_.nodes[parts.back()].what != pattern_node::repeat)
                    parts.push_back(repeated(one({{0, last_value}}), 0, endless));
            } else {
                parts.push_back(given == '_' ? one({{0, last_value}}) : one({{given, given}}));
            }
        }
        tree_.root = made(pattern_node::sequence, std::move(parts));
        return finish();
    }

    bool plain()
    {
        std::vector<size_t> parts;
        for (const uint32_t given : pattern_) parts.push_back(one({{given, given}}));
        tree_.root = made(pattern_node::sequence, std::move(parts));
        return true;
    }

private:
    bool more() const { return at_ < pattern_.size(); }
    uint32_t peek() const { return more() ? pattern_[at_] : 0; }
    bool next_is(char given) const { return more() && pattern_[at_] == uint32_t(given); }
    uint32_t take() { return pattern_[at_++]; }
    bool took(char given)
    {
        const bool is = next_is(given);
        at_ += is ? 1 : 0;
        return is;
    }

    // The first thing that is wrong counts, at the character before which the parser stands.
    size_t refuse(const char *why)
    {
        if (wrong_ == nullptr) {
            wrong_ = why;
            place_ = std::min(at_, pattern_.size()) + 1;
        }
        at_ = pattern_.size();
        return 0;
    }

    bool finish()
    {
        if (wrong_ == nullptr) return true;
        kuxer3push(app_.ctx(), KUQAA_PATTERN, text_.c_str(), std::to_string(place_).c_str(),
                   wrong_);
        return false;
    }

    size_t made(pattern_node::kind what, std::vector<size_t> parts)
    {
        if (parts.size() == 1) return parts[0];
        tree_.nodes.push_back({what, std::move(parts)});
        return tree_.nodes.size() - 1;
    }

    size_t repeated(size_t part, uint32_t least, uint32_t most)
    {
        tree_.nodes.push_back({pattern_node::repeat, {part}, 0, least, most});
        return tree_.nodes.size() - 1;
    }

    // One character of a set, or of all others.
    size_t one(letters set, bool others = false)
    {
        if (any_case_) {
            letters uppers;
            const bool all = set == letters{{0, last_value}};
            for (const auto &[first, last] : set)
                for (uint32_t value = first; !all && value <= std::min(last, last_cased); value++) {
                    const uint32_t upper = upper_case(app_, value);
                    if (upper != value) uppers.push_back({upper, upper});
                }
            set.insert(set.end(), uppers.begin(), uppers.end());
        }
        unite(&set);
        if (others) set = all_but(std::move(set));
        const auto [place, fresh] = numbers_.insert({std::move(set), tree_.sets.size()});
        if (fresh) tree_.sets.push_back(place->first);
        tree_.nodes.push_back({pattern_node::one, {}, place->second});
        return tree_.nodes.size() - 1;
    }

    size_t choice(size_t depth)
    {
        if (depth > deepest) return refuse("groups nest too deeply");
        std::vector<size_t> parts = {sequence(depth)};
        while (took('|')) parts.push_back(sequence(depth));
        return made(pattern_node::choice, std::move(parts));
    }

    size_t sequence(size_t depth)
    {
        std::vector<size_t> parts;
        while (more() && !next_is('|') && !next_is(')')) {
            const bool anchor = next_is('^') || next_is('$');
            const size_t part = atom(depth);
            parts.push_back(anchor ? part : repeats(part));
        }
        if (parts.empty()) refuse("nothing where characters are wanted");
        return parts.empty() ? 0 : made(pattern_node::sequence, std::move(parts));
    }

    size_t atom(size_t depth)
    {
        switch (take()) {
        case '(': {
            const size_t inside = choice(depth + 1);
            return took(')') ? inside : refuse("a ( without its )");
        }
        case '[': return bracket();
        case '.': return one({{0, last_value}});
        case '^': tree_.nodes.push_back({pattern_node::beginning}); break;
        case '$': tree_.nodes.push_back({pattern_node::ending}); break;
        case '\\': return escaped();
        case '*':
        case '+':
        case '?':
        case '{': at_--; return refuse("nothing to repeat");
        default: at_--; return one({{peek(), take()}});
        }
        return tree_.nodes.size() - 1;
    }

    size_t repeats(size_t part)
    {
        while (wrong_ == nullptr) {
            if (took('*'))
                part = repeated(part, 0, endless);
            else if (took('+'))
                part = repeated(part, 1, endless);
            else if (took('?'))
                part = repeated(part, 0, 1);
            else if (took('{'))
                part = counted(part);
            else
                break;
        }
        return part;
    }

    size_t counted(size_t part)
    {
        uint32_t least = 0;
        uint32_t most = 0;
        if (!number(&least)) return refuse("a number from 0 to 1000 is wanted");
        most = least;
        if (took(',')) {
            most = endless;
            if (!next_is('}') && !number(&most)) return refuse("a number from 0 to 1000 is wanted");
        }
        if (most < least) return refuse("the second number is below the first");
        if (!took('}')) return refuse("a } is wanted");
        return repeated(part, least, most);
    }

    bool number(uint32_t *result)
    {
        const size_t start = at_;
        for (*result = 0; more() && peek() >= '0' && peek() <= '9' && *result <= most_repeats;)
            *result = *result * 10 + take() - '0';
        return at_ > start && *result <= most_repeats;
    }

    // The characters that the library says are in a class; `_` is one of a word.
    letters members(class_test test, bool word)
    {
        kux *ctx = app_.ctx();
        const bool bytes = (ctx->kuxlangidh->flags_kulang & KULANG_SINGLEBYTE) != 0;
        letters set;
        for (uint32_t value = 0; value <= (bytes ? 0xFF : last_cased); value++) {
            const auto byte = static_cast<unsigned char>(value);
            const void *unit = bytes ? static_cast<const void *>(&byte) : &value;
            const uint32_t size = bytes ? sizeof byte : sizeof value;
            if (test(ctx->kuxlangidh, &ctx->kuxlocglo, unit, size, LIZ_WIDE) == 0
                && !(word && value == '_'))
                continue;
            if (!set.empty() && set.back().second + 1 == value)
                set.back().second = value;
            else
                set.push_back({value, value});
        }
        return set;
    }

    // What the letter behind a \ stands for. False when it is no class.
    bool escape_class(uint32_t letter, letters *set)
    {
        switch (letter | 0x20) {
        case 'd': *set = members(lizcdigit, false); break;
        case 'w': *set = members(lizcalnum, true); break;
        case 's': *set = members(lizcspace, false); break;
        default: return false;
        }
        if ((letter & 0x20) == 0) *set = all_but(std::move(*set));
        return true;
    }

    // A character that stands for itself, or is named, behind a \.
    uint32_t literal()
    {
        const uint32_t given = peek();
        at_++;
        switch (given) {
        case 't': return '\t';
        case 'n': return '\n';
        case 'r': return '\r';
        default: break;
        }
        const bool letter = ((given | 0x20) >= 'a' && (given | 0x20) <= 'z' && given < 0x80)
                            || (given >= '0' && given <= '9');
        if (letter || at_ > pattern_.size()) {
            at_--;
            refuse(letter ? "a \\ in front of a letter that it gives no meaning"
                          : "nothing behind the \\");
        }
        return given;
    }

    size_t escaped()
    {
        letters set;
        if (more() && escape_class(peek(), &set)) {
            at_++;
            return one(std::move(set));
        }
        const uint32_t given = literal();
        return one({{given, given}});
    }

    size_t bracket()
    {
        const bool others = took('^');
        letters set;
        for (bool first = true; first || !next_is(']'); first = false) {
            if (!more()) return refuse("a [ without its ]");
            if (!member(&set)) return 0;
        }
        at_++;
        return one(std::move(set), others);
    }

    // A character, a range, a class. False when it is none.
    bool member(letters *set)
    {
        letters named;
        if (next_is('[') && at_ + 1 < pattern_.size() && pattern_[at_ + 1] == ':') {
            if (!posix_class(&named)) return false;
        } else if (next_is('\\') && at_ + 1 < pattern_.size()
                   && escape_class(pattern_[at_ + 1], &named)) {
            at_ += 2;
        } else {
            uint32_t first = end_of_range();
            uint32_t last = first;
            const bool range =
                next_is('-') && at_ + 1 < pattern_.size() && pattern_[at_ + 1] != ']';
            if (range) {
                at_++;
                last = end_of_range();
            }
            if (last < first) refuse("a range that ends before it begins");
            named = {{first, last}};
        }
        set->insert(set->end(), named.begin(), named.end());
        return wrong_ == nullptr;
    }

    uint32_t end_of_range()
    {
        const uint32_t given = take();
        return given == '\\' ? literal() : given;
    }

    bool posix_class(letters *set)
    {
        std::string name;
        size_t at = at_ + 2;
        while (at < pattern_.size() && pattern_[at] >= 'a' && pattern_[at] <= 'z')
            name += static_cast<char>(pattern_[at++]);
        const bool closed =
            at + 1 < pattern_.size() && pattern_[at] == ':' && pattern_[at + 1] == ']';
        for (const named_class &each : classes)
            if (closed && name == each.name) {
                *set = members(each.test, false);
                at_ = at + 2;
                return true;
            }
        if (closed && name == "blank") {
            *set = {{'\t', '\t'}, {' ', ' '}};
            at_ = at + 2;
            return true;
        }
        refuse("a class that there is not");
        return false;
    }

    application &app_;
    const std::string &text_;
    std::vector<uint32_t> pattern_; // its characters
    bool any_case_;
    pattern_tree &tree_;
    std::map<letters, size_t> numbers_; // of the sets
    size_t at_ = 0;
    size_t place_ = 0;
    const char *wrong_ = nullptr;
};

} // namespace

bool parse_pattern(application &app, pattern_kind kind, const std::string &text,
                   const std::string &escape, bool any_case, pattern_tree *tree)
{
    parser parse(app, text, any_case, tree);
    if (kind == pattern_kind::plain) return parse.plain();
    return kind == pattern_kind::like ? parse.like(escape) : parse.regular();
}

} // namespace kuq
