// kudcb.cpp - DYNBRK indexes: breaks between rows as they lie
//
//     rows   | A 1 | A 1 | A 2 | B 1 |        a break at level 1 before the third
//                    ^     ^                  row, at level 0 before the fourth
//                    curr  next
//
// A group at a level is a run of rows whose key columns down to the level are
// equal. There is nothing in the index file: a search takes one row, `next` of
// the cursor's position record, into the index's break key and compares that
// with the cursor's key. Only reading moves the position record on. A search
// costs one row.
#include "kudcb.h"

#include <algorithm>
#include <cstdint>

#include "kudc_internal.h"
#include "kudcb_internal.h"
#include "kudcd.h"
#include "kudck.h"
#include "kudck_internal.h"

using namespace ku::cache;

namespace
{

// A row's columns are read once each: key columns over the same one get a copy.
void kudcbrepeat(const kudcbidxdef &breaks)
{
    const kudckeydef *key = breaks.keyp_kudcbidx;
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        kudcbvadef *column = key->arybva_kudckey + i;
        for (std::uint32_t j = 0; j < i; j++)
            if (key->arybva_kudckey[j].col_kudcbva == column->col_kudcbva
                && column->val_kudcbva != nullptr)
                copy_value(key->arybva_kudckey[j], column);
    }
}

// The row that a search looks at, or KUDC_NONE.
std::uint32_t kudcbcandidate(kudcaccdef *acmp, const kudccurdef *cursor, std::int32_t *row)
{
    const auto *position = static_cast<const kudcbipsdef *>(cursor->ipsh_kudccur);
    kudcthddef *thread = thread_of(acmp, cursor);
    *row = position->next_kudcbips;
    if (*row != KUDC_NONE) return 0;
    *row = thread->frst_kudcthd;
    if (position->curr_kudcbips == KUDC_NONE) return 0;

    kudcrchdef header;
    const kudcbidxdef &breaks = index_of(acmp, cursor)->tinf_kudcidx.binf_kudcidx;
    const std::uint32_t status =
        kudcdrbv(acmp, thread, breaks.abvap_kudcbidx, position->curr_kudcbips, &header);
    if (status == 0) *row = header.next_kudcrch; // stored meanwhile, perhaps
    return status;
}

// What an operator asks of the break between the cursor's key and the row.
struct kudcbrule {
    std::int32_t compared; // levels that are compared, from 0
    bool breaks;           // the last of them differs first, else none differs
    std::int32_t taken;    // first level that is taken over
    std::int32_t otherwise;
};

kudcbrule kudcbruleof(std::int32_t relop, std::uint16_t level)
{
    const std::int32_t count = level + 1;
    if (relop == KUDC_NEXT) return {count, true, level, KUDC_NOMORE};
    if (relop == KUDC_CURRENT) return {count, false, count, KUDC_NOKEY};
    return {level, false, level, KUDC_NOKEY};
}

std::uint32_t kudcbmatches(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key,
                           const kudcbrule &rule, bool *matches)
{
    std::int32_t differs = 0;
    std::uint16_t first = 0;
    std::uint32_t status = 0;
    if (rule.compared > 0)
        status = kudckcbva(acmp, index, key, index->tinf_kudcidx.binf_kudcidx.keyp_kudcbidx, 0,
                           static_cast<std::uint16_t>(rule.compared - 1), &differs, &first);
    *matches = rule.breaks ? differs != 0 && first == rule.compared - 1 : differs == 0;
    return status;
}

} // namespace

namespace ku::cache
{

std::uint32_t read_break_key(kudcaccdef *acmp, const kudccurdef *cursor, std::int32_t row,
                             kudcrchdef *header)
{
    const kudcbidxdef &breaks = index_of(acmp, cursor)->tinf_kudcidx.binf_kudcidx;
    const std::uint32_t status =
        kudcdrbv(acmp, thread_of(acmp, cursor), breaks.abvap_kudcbidx, row, header);
    if (status != 0) return status;
    kudcbrepeat(breaks);
    return 0;
}

std::uint32_t take_break_key(kudcaccdef *acmp, const kudccurdef *cursor, row_reader row)
{
    const kudcbidxdef &breaks = index_of(acmp, cursor)->tinf_kudcidx.binf_kudcidx;
    const std::uint32_t status =
        bind_row(acmp, &row, thread_of(acmp, cursor), breaks.abvap_kudcbidx);
    if (status != 0) return status;
    kudcbrepeat(breaks);
    return 0;
}

} // namespace ku::cache

extern "C" {

std::uint32_t kudcbtsrch(kudcaccdef *acmp, kudccurdef *cursor, std::uint16_t level,
                         std::int32_t relop, std::int32_t *result)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *result = KUDC_NOKEY;
    if (const std::uint32_t status = check_cursor(acmp, cursor)) return status;
    const kudcidxdef *index = index_of(acmp, cursor);
    if (index == nullptr || index->idxt_kudcidx != KUDC_DYNBRK) return refuse(acmp, KUDCA_TYPE);
    if (const std::uint32_t status = check_key(acmp, cursor)) return status;
    if (relop < KUDC_FIRST || relop > KUDC_CURRENT) return 0;

    std::int32_t row = KUDC_NONE;
    if (const std::uint32_t status = kudcbcandidate(acmp, cursor, &row)) return status;
    if (row == KUDC_NONE) {
        held_row(cursor) = KUDC_NONE;
        return 0;
    }
    kudcrchdef header;
    if (const std::uint32_t status = read_break_key(acmp, cursor, row, &header)) return status;
    const kudcbrule rule = kudcbruleof(relop, level);
    bool matches = false;
    std::uint32_t status = kudcbmatches(acmp, index, cursor->keyp_kudccur, rule, &matches);
    if (status != 0) return status;
    if (!matches) *result = rule.otherwise;
    if (!matches) return 0;

    const auto last = static_cast<std::uint16_t>(index->lvct_kudcidx - 1);
    if (rule.taken <= last)
        status = kudcbbv2bv(acmp, index, index->tinf_kudcidx.binf_kudcidx.keyp_kudcbidx,
                            cursor->keyp_kudccur, static_cast<std::uint16_t>(rule.taken), last);
    if (status != 0) return status;
    rewind_cursor(cursor);
    cursor->curleft_kudccur = 0;
    held_row(cursor) = row;
    *result = KUDC_POSITIONED;
    return 0;
}

std::uint32_t kudcbcbvcl(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key,
                         std::uint16_t from, std::uint16_t to, std::int32_t *differs,
                         std::uint16_t *level)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (index == nullptr) return refuse(acmp, KUVAA_MISSING);
    *differs = 0;
    if (key == nullptr || from >= index->lvct_kudcidx || to < from) return 0;
    for (std::uint32_t i = 0; i < key->numbva_kudckey && *differs == 0; i++) {
        kudcbvadef *mine = key->arybva_kudckey + i;
        if (mine->level_kudcbva < from || mine->level_kudcbva > to) continue;
        const kudxcoldef *column = mine->col_kudcbva;
        if (column == nullptr || column->curval_kudxcol == nullptr || mine->val_kudcbva == nullptr)
            return refuse(acmp, KUVAA_MISSING);
        // The two as keys of one column each, so that one rule says what differs. What a column
        // of length 0 still holds is no length in front of a number.
        unsigned char nothing = 0;
        kudcbvadef its = *mine;
        its.len_kudcbva = column->curlen_kudxcol;
        its.val_kudcbva =
            its.len_kudcbva != 0 ? static_cast<unsigned char *>(column->curval_kudxcol) : &nothing;
        its.valnul_kudcbva = column->curnul_kudxcol;
        const kudckeydef left = {1, key->numlevsize_kudckey, mine, key->arylevsize_kudckey};
        const kudckeydef right = {1, key->numlevsize_kudckey, &its, key->arylevsize_kudckey};
        if (const std::uint32_t status = kudckcbva(acmp, index, &left, &right, mine->level_kudcbva,
                                                   mine->level_kudcbva, differs, level))
            return status;
    }
    return 0;
}

std::uint32_t kudcbbv2bv(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *source,
                         kudckeydef *destination, std::uint16_t from, std::uint16_t to)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (index == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (source == nullptr || destination == nullptr) return 0;
    if (from >= index->lvct_kudcidx || to >= index->lvct_kudcidx) return 0;
    for (std::uint32_t level = from; level <= to; level++) {
        const level_columns one = columns_of(source, static_cast<std::uint16_t>(level));
        const level_columns other = columns_of(destination, static_cast<std::uint16_t>(level));
        const level_columns own =
            columns_of(&index->goal_kudcidx, static_cast<std::uint16_t>(level));
        for (std::uint32_t i = 0; i < std::min({one.count, other.count, own.count}); i++) {
            if (one.first[i].val_kudcbva == nullptr || other.first[i].val_kudcbva == nullptr)
                return refuse(acmp, KUVAA_MISSING);
            const auto column = own.first - index->goal_kudcidx.arybva_kudckey + i;
            if (value_bytes(one.first[i])
                > longest_key_value(index, static_cast<std::uint16_t>(column)) + std::uint64_t{1})
                return refuse(acmp, KUDCA_TOOLONG);
            copy_value(one.first[i], other.first + i);
        }
    }
    return 0;
}

} // extern "C"
