// kurx.cpp - pattern syntax: a record of plain fields, and the default orders and compares
//
// The sixteen special characters lie side by side in the record and in the
// attribute record, bit i of the mask for the i-th: one loop copies them. The
// record owns its table of classes, the members of the default classes, and,
// unless the caller gave a successor context, a table of ranks: the place in the
// collating order of each byte, so that a successor is two look-ups.
#include "kurx.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "kuguard.h"
#include "port/locale/locale.h"

const unsigned char kurxtbl[95] = " !\"#$&'()*+'-./0123456789:;,<>=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                  "[\\]^_abcdefghijklmnopqrstuvwxyz|~\n\t";

namespace
{

constexpr std::uint32_t kurx_specials = 16; // special characters
constexpr std::uint32_t kurx_ordered = 94;  // characters of the collating order
constexpr std::uint32_t kurx_bytes = 256;   // values of a byte

static_assert(offsetof(kurx, rtag_kurx) == 15 * sizeof(std::uint32_t)
                  && offsetof(kurxa, rtag_kurxa) == 16 * sizeof(std::uint32_t),
              "special characters lie side by side");

constexpr std::array<unsigned char, kurx_specials> kurxdefaults = {
    '(', ')', '[', ']', '*', '+', '~', '^', '$', '|', '.', '\\', '-', 0, '{', '}'};

std::uint32_t *kurxspecials(kurx &record) { return &record.lparen_kurx; }
std::uint32_t *kurxspecials(kurxa &attrs) { return &attrs.lparen_kurxa; }
const std::uint32_t *kurxspecials(const kurxa &attrs) { return &attrs.lparen_kurxa; }

std::uint32_t kurxrefuse(kux *ctx, std::uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

// Rank of each byte: its last place in the order, 0 where it has none.
void kurxrank(unsigned char *ranks)
{
    for (std::uint32_t i = 0; i < kurx_ordered; i++)
        ranks[kurxtbl[i]] = static_cast<unsigned char>(i);
}

bool kurxsetdefaults(kux *ctx, kurx &record)
{
    std::copy(kurxdefaults.begin(), kurxdefaults.end(), kurxspecials(record));
    record.fchar_kurx = kurxtbl[0];
    record.lchar_kurx = kurxtbl[kurx_ordered - 1];
    record.succfp_kurx = kurxsucc;
    record.cmfuncp_kurx = kurxscmatch;
    auto *ranks = static_cast<unsigned char *>(ku::allocate(ctx, kurx_bytes, 1));
    if (ranks == nullptr) return false;
    kurxrank(ranks);
    record.cctxp_kurx = ranks;
    record.freecctxp_kurx = 1;
    return true;
}

bool kurxaddclasses(kux *ctx, kurx &record)
{
    record.escb_kurx = ' ';
    record.escn_kurx = '\n';
    record.esct_kurx = '\t';
    const std::uint32_t white[4] = {' ', '\t', '\n', 0};
    std::copy(std::begin(white), std::end(white), record.escw_kurx);
    return kurxeadd(ctx, &record, 'b', &record.escb_kurx, 1) == 0
           && kurxeadd(ctx, &record, 'n', &record.escn_kurx, 1) == 0
           && kurxeadd(ctx, &record, 't', &record.esct_kurx, 1) == 0
           && kurxeadd(ctx, &record, 'w', record.escw_kurx, 4) == 0;
}

bool kurxfill(kux *ctx, kurx &record, kurxa *attrs)
{
    record.kurxep_kurx = kurxecreate(ctx, KURXE_ROOM);
    if (record.kurxep_kurx == nullptr) return false;
    if (attrs == nullptr) {
        if (!kurxsetdefaults(ctx, record)) return false;
    } else {
        attrs->mask_kurxa = KURXA_ALL;
        if (kurxset(ctx, &record, attrs) != 0) return false;
    }
    return kurxaddclasses(ctx, record);
}

void kurxsetcontext(kux *ctx, kurx &record, void *context)
{
    if (record.cctxp_kurx == context) return; // still the record's own, if it was
    if (record.freecctxp_kurx != 0) ctx->kuxnmfree(ctx, record.cctxp_kurx);
    record.freecctxp_kurx = 0;
    record.cctxp_kurx = context;
}

std::uint32_t kurxupper(kux *ctx, std::uint32_t character)
{
    const kulang &lang = *ctx->kuxlangidh;
    if (!ku::locale::single_byte(lang)) return ku::locale::wide_upper(lang, character);
    return character < kurx_bytes ? lang.upper_kulang[character] : character;
}

} // namespace

kurx *kurxcreate(kux *ctx, kurxa *kurxap)
{
    auto *record = ku::allocate<kurx>(ctx);
    if (record != nullptr && kurxfill(ctx, *record, kurxap)) return record;
    ku::failure(ctx);
    return kurxdestroy(ctx, record);
}

kurx *kurxdestroy(kux *ctx, kurx *kurxh)
{
    if (kurxh == nullptr) return nullptr;
    kurxedestroy(ctx, kurxh->kurxep_kurx);
    if (kurxh->freecctxp_kurx != 0) ctx->kuxnmfree(ctx, kurxh->cctxp_kurx);
    ctx->kuxnmfree(ctx, kurxh);
    return nullptr;
}

std::uint32_t kurxget(kux *, kurx *kurxh, kurxa *kurxap)
{
    if (kurxh == nullptr) return KURXA_NORECORD;
    const std::uint32_t mask = kurxap->mask_kurxa;
    for (std::uint32_t i = 0; i < kurx_specials; i++)
        if ((mask & 1u << i) != 0) kurxspecials(*kurxap)[i] = kurxspecials(*kurxh)[i];
    if ((mask & KURXA_FCHAR) != 0) kurxap->fchar_kurxa = kurxh->fchar_kurx;
    if ((mask & KURXA_LCHAR) != 0) kurxap->lchar_kurxa = kurxh->lchar_kurx;
    if ((mask & KURXA_SUCC) != 0) kurxap->succfp_kurxa = kurxh->succfp_kurx;
    if ((mask & KURXA_SUCCCTX) != 0) kurxap->cctxp_kurxa = kurxh->cctxp_kurx;
    if ((mask & KURXA_COMPARE) != 0) {
        kurxap->cmfuncp_kurxa = kurxh->cmfuncp_kurx;
        kurxap->cmctxp_kurxa = kurxh->cmctxp_kurx;
    }
    return 0;
}

std::uint32_t kurxset(kux *ctx, kurx *kurxh, const kurxa *kurxap)
{
    if (kurxh == nullptr) return kurxrefuse(ctx, KURXA_NORECORD);
    const std::uint32_t mask = kurxap->mask_kurxa;
    for (std::uint32_t i = 0; i < kurx_specials; i++)
        if ((mask & 1u << i) != 0) kurxspecials(*kurxh)[i] = kurxspecials(*kurxap)[i];
    if ((mask & KURXA_FCHAR) != 0) kurxh->fchar_kurx = kurxap->fchar_kurxa;
    if ((mask & KURXA_LCHAR) != 0) kurxh->lchar_kurx = kurxap->lchar_kurxa;
    if ((mask & KURXA_SUCC) != 0) kurxh->succfp_kurx = kurxap->succfp_kurxa;
    if ((mask & KURXA_SUCCCTX) != 0) kurxsetcontext(ctx, *kurxh, kurxap->cctxp_kurxa);
    if ((mask & KURXA_COMPARE) != 0) {
        if (kurxap->cmfuncp_kurxa == nullptr) return kurxrefuse(ctx, KURXA_NOCOMPARE);
        kurxh->cmfuncp_kurx = kurxap->cmfuncp_kurxa;
        kurxh->cmctxp_kurx = kurxap->cmctxp_kurxa;
    }
    return 0;
}

std::int32_t kurxispecial(kux *ctx, kurx *kurxh, std::uint32_t tchar)
{
    if (kurxh == nullptr) {
        kurxrefuse(ctx, KURXA_NORECORD);
        return 0;
    }
    const std::uint32_t *first = kurxspecials(*kurxh);
    return std::find(first, first + kurx_specials, tchar) != first + kurx_specials ? 1 : 0;
}

std::uint32_t kurxgsucc(kux *ctx, kurx *kurxh, std::uint32_t tchar)
{
    if (kurxh == nullptr) {
        kurxrefuse(ctx, KURXA_NORECORD);
        return 0;
    }
    if (kurxh->succfp_kurx == nullptr) return 0;
    return kurxh->succfp_kurx(ctx, kurxh->cctxp_kurx, tchar);
}

// Without a table of ranks the place is looked up, from the end: the last one counts.
std::uint32_t kurxsucc(kux *, void *cctxp, std::uint32_t tchar)
{
    const auto byte = static_cast<unsigned char>(tchar);
    std::uint32_t rank = 0;
    if (cctxp != nullptr) {
        rank = static_cast<const unsigned char *>(cctxp)[byte];
    } else {
        rank = kurx_ordered - 1;
        while (rank > 0 && kurxtbl[rank] != byte) rank--;
    }
    return rank < kurx_ordered ? kurxtbl[rank + 1] : 0; // a caller's ranks may be anything
}

std::int32_t kurxscmatch(kux *, void *, std::uint32_t first, std::uint32_t second)
{
    return first == second ? 1 : 0;
}

std::int32_t kurxicmatch(kux *ctx, void *, std::uint32_t first, std::uint32_t second)
{
    return first == second || kurxupper(ctx, first) == kurxupper(ctx, second) ? 1 : 0;
}
