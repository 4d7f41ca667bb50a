// syntax.h - what a pattern says: a tree over sets of characters
#ifndef KUQ_SYNTAX_H
#define KUQ_SYNTAX_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "application.h"

namespace kuq
{

// A set of characters: stretches of values, first and last, in order and apart.
using letters = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t endless = UINT32_MAX; // repeats without limit

struct pattern_node {
    enum kind { one, beginning, ending, sequence, choice, repeat } what = one;
    std::vector<size_t> parts = {}; // nodes; a sequence may have none
    size_t set = 0;                 // of one character
    uint32_t least = 1;             // of a repeat
    uint32_t most = 1;
};

struct pattern_tree {
    std::vector<pattern_node> nodes; // parts before what they are part of
    std::vector<letters> sets;
    size_t root = 0;
};

enum class pattern_kind {
    regular, // a regular expression
    like,    // SQL wildcards: % any characters, _ one
    plain,   // each character stands for itself
};

// Takes a pattern apart. escape: the character that makes the next one of a `like` pattern
// stand for itself; "" for none. Upper and lower case are one with `any_case`; the characters
// to look up in the sets are then upper case. False with the reason pushed.
bool parse_pattern(application &app, pattern_kind kind, const std::string &text,
                   const std::string &escape, bool any_case, pattern_tree *tree);

} // namespace kuq

#endif
