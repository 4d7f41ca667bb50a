// wildcard.h - SQL wildcards: % stands for any characters, _ for exactly one
#ifndef KUQ_WILDCARD_H
#define KUQ_WILDCARD_H

#include <string_view>

namespace kuq
{

// Whether a pattern covers the whole subject; both are UTF-16, a character outside the
// first plane is one character. All others stand for themselves; nothing escapes.
bool matches(std::u16string_view pattern, std::u16string_view subject);

} // namespace kuq

#endif
