// wildcard.cpp - a match that goes back to the last % only
//
// What stands before the last % has been matched as early in the subject as it can
// be, and leaves the most for the rest, so that no earlier % needs another try: a
// match takes at most pattern x subject steps.

#include "wildcard.h"

#include <cstddef>

namespace kuq
{
namespace
{

constexpr bool is_high(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool is_low(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

size_t character(std::u16string_view text, size_t at)
{
    return is_high(text[at]) && at + 1 < text.size() && is_low(text[at + 1]) ? 2 : 1;
}

} // namespace

bool matches(std::u16string_view pattern, std::u16string_view subject)
{
    constexpr size_t none = std::u16string_view::npos;
    size_t p = 0;
    size_t s = 0;
    size_t after = none; // in the pattern, behind the last %
    size_t from = 0;     // in the subject, where the rest of the pattern was tried
    while (s < subject.size()) {
        if (p < pattern.size() && pattern[p] == u'%') {
            after = ++p;
            from = s;
        } else if (p < pattern.size() && pattern[p] == u'_') {
            p++;
            s += character(subject, s);
        } else if (p < pattern.size() && pattern[p] == subject[s]) {
            p++;
            s++;
        } else if (after != none) {
            from += character(subject, from);
            p = after;
            s = from;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'%') p++;
    return p == pattern.size();
}

} // namespace kuq
