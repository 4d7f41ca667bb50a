// kurxe.cpp - escape classes: a short array, searched from its start
//
// Tables hold a handful of classes, so that looking one up is a walk. The first
// class of a value wins; dropping it uncovers the next one. Members stay where
// the caller has them: a class whose members change means the new ones at once.
#include "kurxe.h"

#include <cstring>

#include "kuguard.h"
#include "kurx.h"

namespace
{

// Index of the first class of that value, or the number of classes.
std::uint32_t kurxeindex(const kurxe &table, std::uint32_t value)
{
    std::uint32_t index = 0;
    while (index < table.kurxesi_kurxe && table.kurxesp_kurxe[index].value_kurxes != value) index++;
    return index;
}

bool kurxegrow(kux *ctx, kurxe &table)
{
    const std::uint64_t room = std::uint64_t{table.kurxesn_kurxe} * 2;
    const std::uint64_t bytes = room * sizeof(kurxes);
    if (bytes > UINT32_MAX) return false;
    void *grown = ctx->kuxnmrealloc(ctx, table.kurxesp_kurxe, static_cast<std::uint32_t>(bytes));
    if (grown == nullptr) return false;
    table.kurxesp_kurxe = static_cast<kurxes *>(grown);
    table.kurxesn_kurxe = static_cast<std::uint32_t>(room);
    return true;
}

} // namespace

kurxe *kurxecreate(kux *ctx, std::uint32_t isize)
{
    const std::uint32_t room = isize == 0 ? 1 : isize;
    ku::owned<kurxe> table(ctx, ku::allocate<kurxe>(ctx));
    if (table)
        table->kurxesp_kurxe = static_cast<kurxes *>(ku::allocate(ctx, room, sizeof(kurxes)));
    if (!table || table->kurxesp_kurxe == nullptr) {
        ku::failure(ctx);
        return nullptr;
    }
    table->kurxesn_kurxe = room;
    return table.keep();
}

kurxe *kurxedestroy(kux *ctx, kurxe *table)
{
    if (table == nullptr) return nullptr;
    ctx->kuxnmfree(ctx, table->kurxesp_kurxe);
    ctx->kuxnmfree(ctx, table);
    return nullptr;
}

std::uint32_t kurxeadd(kux *ctx, kurx *kurxh, std::uint32_t value, const std::uint32_t *equivp,
                       std::uint32_t equivn)
{
    kurxe &table = *kurxh->kurxep_kurx;
    if (table.kurxesi_kurxe == table.kurxesn_kurxe && !kurxegrow(ctx, table))
        return ku::failure(ctx);
    table.kurxesp_kurxe[table.kurxesi_kurxe++] = {value, equivp, equivn};
    return 0;
}

std::int32_t kurxefind(kux *, kurx *kurxh, std::uint32_t value, kurxes **escpp)
{
    const kurxe &table = *kurxh->kurxep_kurx;
    const std::uint32_t index = kurxeindex(table, value);
    if (index == table.kurxesi_kurxe) return 0;
    if (escpp != nullptr) *escpp = &table.kurxesp_kurxe[index];
    return 1;
}

std::uint32_t kurxedrop(kux *, kurx *kurxh, std::uint32_t value)
{
    kurxe &table = *kurxh->kurxep_kurx;
    const std::uint32_t index = kurxeindex(table, value);
    if (index == table.kurxesi_kurxe) return 0;
    kurxes *gap = table.kurxesp_kurxe + index;
    table.kurxesi_kurxe--;
    std::memmove(gap, gap + 1, sizeof(kurxes) * (table.kurxesi_kurxe - index));
    return 0;
}

std::int32_t kurxematch(kux *ctx, kurx *kurxh, std::uint32_t value, std::uint32_t tchar)
{
    kurxes *found = nullptr;
    if (kurxefind(ctx, kurxh, value, &found) == 0) return 0;
    const kurxes members = *found; // the compare function may change the table
    for (std::uint32_t i = 0; i < members.equivn_kurxes; i++)
        if (kurxh->cmfuncp_kurx(ctx, kurxh->cmctxp_kurx, tchar, members.equivp_kurxes[i]) != 0)
            return 1;
    return 0;
}
