// pattern.h - regular expressions, SQL wildcards and plain texts, by the library's engine
//
// The elements of a pattern are characters of the terminal's character set, never bytes.
#ifndef KUQ_PATTERN_H
#define KUQ_PATTERN_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "application.h"
#include "syntax.h"

namespace kuq
{

// A stretch of a text.
struct match {
    size_t start; // in bytes
    size_t length;
};

class pattern
{
public:
    explicit pattern(application &app);
    ~pattern();
    pattern(const pattern &) = delete;
    pattern &operator=(const pattern &) = delete;

    // Compiles, once. False with the reason pushed: KUQAA_PATTERN says where a regular
    // expression is wrong. escape: of SQL wildcards, the character that makes the next one
    // stand for itself; "" for none.
    bool compile(const std::string &text, pattern_kind kind = pattern_kind::regular,
                 bool any_case = false, const std::string &escape = "");

    // Gives the matches from left to right, until `visit` returns false: each the leftmost
    // there is behind the one before, and of those the longest. A match may be empty, but not
    // right behind another one.
    using visitor = std::function<bool(const match &found)>;
    void each(std::string_view text, const visitor &visit) { each(text, 0, visit); }

    // The first of the matches that begin at this byte or behind it. False: there is none.
    // ^ matches at the start of the text only, not there.
    bool find(std::string_view text, size_t from, match *found);

    // Whether a match covers the whole text.
    bool covers(std::string_view text);

private:
    struct engine;
    using run_of = std::pair<size_t, size_t>; // of elements, both included

    void each(std::string_view text, size_t from, const visitor &visit);
    bool make_alphabet();
    bool build(bool backward, std::unique_ptr<engine> *made);
    bool emit(size_t node, bool backward, std::vector<uint32_t> *out) const;
    bool emit_repeat(const pattern_node &node, bool backward, std::vector<uint32_t> *out) const;
    bool may_be_empty(size_t node) const;
    uint16_t element(uint32_t value) const;
    void read(std::string_view text);
    void find_starts();
    size_t count() const { return elements_.size() - lead_ - trail_; } // characters
    bool longest(size_t start, size_t *end);

    application &app_;
    pattern_tree tree_;
    bool any_case_ = false;
    bool empty_ = false;                           // matches the empty text anywhere
    size_t lead_ = 0;                              // elements in front of a text
    size_t trail_ = 0;                             // elements behind it
    std::vector<uint32_t> bounds_;                 // values with which another element begins
    std::vector<uint16_t> behind_;                 // the elements from there on
    std::vector<std::vector<uint16_t>> alphabets_; // elements of each set
    uint16_t known_[256] = {};                     // elements of the first values
    std::unique_ptr<engine> forward_;              // from a start to ends
    std::unique_ptr<engine> backward_;             // from the text's end to starts
    std::vector<uint16_t> elements_;               // of the text being looked at
    std::vector<run_of> starts_;                   // where matches begin, in order
};

} // namespace kuq

#endif
