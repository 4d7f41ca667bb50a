// kurt.cpp - pattern tokens: one token a character, less the escape characters
//
// A token keeps the character as it stood in the pattern, and so does an escaped
// one, whose type alone tells. The escape machine always answers from state 0:
// that an escape is pending is a flag of the loop, and a second escape
// character right behind the first leaves it set.
#include "kurt.h"

#include <cstddef>

#include "kuguard.h"

namespace
{

constexpr std::int32_t kurt_start = 0;   // escape machine: no escape seen
constexpr std::int32_t kurt_escaped = 1; // behind the escape character

// Type of an escaped character.
std::int32_t kurtescaped(kux *ctx, kurx *kurxh, std::uint32_t tchar)
{
    return kurxefind(ctx, kurxh, tchar, nullptr) != 0 ? KURT_CLASS : KURT_LITERAL;
}

void kurtfill(kux *ctx, kurx *kurxh, kurt &table, const std::uint32_t *regexp, std::uint32_t regexn)
{
    bool escaped = false;
    std::uint32_t count = 0;
    for (std::uint64_t i = 0; i <= regexn; i++) {
        const std::uint32_t tchar = regexp[i];
        std::int32_t type = kurttype(ctx, kurxh, tchar, static_cast<std::uint32_t>(i), regexn);
        if (kurtdelta(ctx, kurt_start, type) == KURT_A_REMEMBER) {
            escaped = true;
            continue;
        }
        if (escaped) type = kurtescaped(ctx, kurxh, tchar);
        escaped = false;
        table.tokens_kurt[count++] = {type, tchar};
    }
    table.numkurte_kurt = count;
    table.sanchor_kurt = count > 0 && table.tokens_kurt[0].type_kurte == KURT_CARET ? 1 : 0;
    table.fanchor_kurt =
        count > 1 && table.tokens_kurt[count - 2].type_kurte == KURT_DOLLAR ? 1 : 0;
}

} // namespace

kurt *kurtcreate(kux *ctx, kurx *kurxh, const std::uint32_t *regexp, std::uint32_t regexn)
{
    const std::uint64_t bytes =
        offsetof(kurt, tokens_kurt) + (std::uint64_t{regexn} + 1) * sizeof(kurte);
    auto *table = static_cast<kurt *>(ku::allocate(ctx, bytes, 1));
    if (table == nullptr)
        ku::failure(ctx);
    else
        kurtfill(ctx, kurxh, *table, regexp, regexn);
    return table;
}

kurt *kurtdestroy(kux *ctx, kurt *table)
{
    if (table != nullptr) ctx->kuxnmfree(ctx, table);
    return nullptr;
}

std::uint32_t kurtedestroy(kux *ctx, void *item, void *)
{
    if (item != nullptr) ctx->kuxnmfree(ctx, item);
    return 0;
}

std::int32_t kurttype(kux *, kurx *kurxh, std::uint32_t tchar, std::uint32_t i, std::uint32_t len)
{
    const kurx &syntax = *kurxh;
    if (tchar == syntax.lparen_kurx) return KURT_LPAREN;
    if (tchar == syntax.rparen_kurx) return KURT_RPAREN;
    if (tchar == syntax.lbrack_kurx) return KURT_LBRACK;
    if (tchar == syntax.rbrack_kurx) return KURT_RBRACK;
    if (tchar == syntax.star_kurx) return KURT_STAR;
    if (tchar == syntax.plus_kurx) return KURT_PLUS;
    if (tchar == syntax.twiddle_kurx) return KURT_TWIDDLE;
    if (tchar == syntax.caret_kurx && i == 0) return KURT_CARET;
    if (tchar == syntax.dollar_kurx && len > 0 && i == len - 1) return KURT_DOLLAR;
    if (tchar == syntax.vbar_kurx) return KURT_VBAR;
    if (tchar == syntax.dot_kurx) return KURT_DOT;
    if (tchar == syntax.escape_kurx) return KURT_ESCAPE;
    if (tchar == syntax.dash_kurx) return KURT_DASH;
    if (tchar == syntax.null_kurx) return KURT_NULL;
    if (tchar == syntax.ltag_kurx) return KURT_LTAG;
    if (tchar == syntax.rtag_kurx) return KURT_RTAG;
    return KURT_LITERAL;
}

std::int32_t kurtdelta(kux *, std::int32_t Q, std::int32_t type)
{
    switch (Q) {
    case kurt_start: return type == KURT_ESCAPE ? KURT_A_REMEMBER : KURT_A_EMIT;
    case kurt_escaped: return KURT_A_EMIT;
    case 2:
    case 3: return KURT_A_FAIL;
    default: return KURT_A_NONE;
    }
}
