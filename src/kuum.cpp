// kuum.cpp - SQL wildcards: a pattern as an array of tokens, and a walk that goes back
// to the last % only
//
//     a%bc_%d     header 6 | literal a | % | literal bc | _ 1 | % | literal d | end
//
// A literal behind a % is taken where it comes first, with a mark where to look
// for it again. What stands before it has then matched as early in the subject as
// it can, and leaves the most for the rest: so when something fails further on,
// only the last such literal is tried again, one byte later, and when that is not
// found any more, nothing matches. The part of a pattern between two % is tried once
// at each byte of the subject at most, and the next part only behind it: at most
// pattern x subject looks.
//
// The text is not copied; tokens point into it. Runs too long for a token's number
// are several tokens.

#include "kuum.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kuguard.h"
#include "kuum_internal.h"

namespace
{

std::int32_t kuumtype(unsigned char byte)
{
    return byte == '%' ? KUUMT_PERCENT : byte == '_' ? KUUMT_UNDERSCORE : KUUMT_LITERAL;
}

// The token that a text begins with; an end token for an empty text. *next is what follows.
kuumtdef kuumtake(const unsigned char *text, const unsigned char **next)
{
    *next = text;
    if (*text == 0) return {KUUMT_END, 0, text, nullptr, 0};
    const std::int32_t type = kuumtype(*text);
    const unsigned char *at = text;
    while (*at != 0 && kuumtype(*at) == type && (type == KUUMT_PERCENT || at - text < INT32_MAX))
        at++;
    *next = at;
    const auto length = static_cast<std::int32_t>(type == KUUMT_PERCENT ? 0 : at - text);
    return {type, length, text, nullptr, 0};
}

std::uint64_t kuumcount(const unsigned char *text)
{
    std::uint64_t count = 0;
    while (kuumtake(text, &text).kuumt_type != KUUMT_END) count++;
    return count;
}

} // namespace

kuumtdef *kuumcreate(kux *ctx, const char *str)
{
    if (str == nullptr) return nullptr;
    const auto *text = reinterpret_cast<const unsigned char *>(str);
    const std::uint64_t count = kuumcount(text);
    auto *made = static_cast<kuumtdef *>(ku::allocate(ctx, count + 2, sizeof(kuumtdef)));
    if (made == nullptr) return nullptr;
    made[0] = {KUUMT_HEADER, static_cast<std::int32_t>(count), text, nullptr, 0};
    for (std::uint64_t i = 1; i <= count + 1; i++) made[i] = kuumtake(text, &text);
    return made;
}

std::int32_t kuumatch(kux *, kuumtdef *mtkn, const char *str)
{
    if (mtkn == nullptr || str == nullptr) return 0;
    ku::wildcard::plain_looks looks;
    ku::wildcard::walk match(mtkn, reinterpret_cast<const unsigned char *>(str), looks);
    return match.covers() ? 1 : 0;
}

kuumtdef *kuumfree(kux *ctx, kuumtdef *mtkn)
{
    if (mtkn != nullptr) ctx->kuxnmfree(ctx, mtkn);
    return nullptr;
}
