// kudck.cpp - keys: in memory, as they are stored, and how they compare
//
// A key in memory is an array of key columns, grouped into levels:
//
//     arybva  | column | column | column | column |      each with a buffer of its
//      level      0        0        1        2           column's longest value + 1
//
// One level of it, stored, is a flat key: a header for every column, then the
// values that are not NULL, packed in column order, up to a multiple of 4 bytes:
//
//     | len type null 0 | len type null 0 | value | value | 0..3 zeros |
//     0                 8                 8n
//
// Nothing in it is aligned for more than bytes: headers are copied out, values
// compared where they lie. A column's value is found by adding lengths up.
//
// A number in memory may have length 0 and its length in front of its bytes; a
// stored one never has. To both, `kudckshown` gives the bytes that count.
//
// Order and equality of texts are the locale layer's, and agree: equal in order
// and of one length is equal.
#include "kudck.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kudc_internal.h"
#include "kudcf.h"
#include "kudck_internal.h"
#include "port/core/number.h"
#include "port/locale/locale.h"

using namespace ku::cache;

namespace
{

struct kudckvalue {
    const unsigned char *bytes;
    std::uint32_t length;
};

constexpr std::uint32_t kudck_integer = 4; // bytes of a binary integer

// Bytes of a flat key with what fills it up; at most UINT32_MAX.
std::uint32_t kudckrounded(std::uint64_t bytes)
{
    bytes = (bytes + 3) & ~std::uint64_t{3};
    return bytes > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(bytes);
}

bool kudckisnull(const kudcbvadef &column) { return column.valnul_kudcbva == KUDC_NULL; }

// Bytes of a column's buffer; without a definition nothing is known to be there but `len`.
std::uint64_t kudckroom(const kudcbvadef &column)
{
    if (column.col_kudcbva == nullptr) return column.len_kudcbva;
    return std::uint64_t{column.col_kudcbva->maxlen_kudxcol} + 1;
}

// The bytes of a value that count.
kudckvalue kudckshown(const kudcbvadef &column)
{
    const unsigned char *value = column.val_kudcbva;
    if (column.len_kudcbva != 0 || column.xdbtyp_kudcbva != KUDC_NUMBER || kudckisnull(column)) {
        return {value, column.len_kudcbva};
    }
    const std::uint64_t room = kudckroom(column);
    if (room == 0) return {value, 0};
    return {value + 1, value[0] < room ? value[0] : static_cast<std::uint32_t>(room - 1)};
}

int kudckintegers(kudckvalue a, kudckvalue b)
{
    if (a.length < kudck_integer || b.length < kudck_integer) return 0;
    const auto left = load<std::int32_t>(a.bytes), right = load<std::int32_t>(b.bytes);
    return (left > right) - (left < right);
}

int kudckheads(kudckvalue a, kudckvalue b)
{
    const std::uint32_t shorter = a.length < b.length ? a.length : b.length;
    return ku::core::compare_bytes(a.bytes, shorter, b.bytes, shorter);
}

// Ascending order of two values: by the datatype first, then by length.
int kudckvalues(const kudcaccdef *acmp, std::uint16_t datatype, kudckvalue a, kudckvalue b)
{
    int order = 0;
    switch (datatype) {
    case KUDC_INTEGER: order = kudckintegers(a, b); break;
    case KUDC_CHARACTER:
    case KUDC_TERMINATED:
        order = ku::locale::collate(*acmp->kuxp_kudcacc->kuxlangidh, a.bytes, a.length, b.bytes,
                                    b.length);
        break;
    case KUDC_NUMBER: return ku::core::compare_bytes(a.bytes, a.length, b.bytes, b.length);
    case KUDC_ROWID:
    case KUDC_DATE: order = kudckheads(a, b); break;
    default: break;
    }
    if (order != 0) return order;
    return (a.length > b.length) - (a.length < b.length);
}

// Order in which one side or both are NULL: behind every value when ascending.
int kudcknulls(bool a, bool b) { return static_cast<int>(a) - static_cast<int>(b); }

} // namespace

namespace ku::cache
{

std::uint32_t check_buffers(const kudcaccdef *acmp, const level_columns &columns)
{
    for (std::uint32_t i = 0; i < columns.count; i++) {
        const kudcbvadef &column = columns.first[i];
        if (column.val_kudcbva == nullptr && column.wildcard_kudcbva != 1) {
            return refuse(acmp, KUVAA_NOVALUE);
        }
    }
    return 0;
}

int compare_stored(const kudcaccdef *acmp, const level_columns &columns, std::uint32_t count,
                   const unsigned char *flatkey, std::uint32_t room)
{
    if (key_head * count > room) return unsound;
    const unsigned char *value = flatkey + key_head * count;
    room -= key_head * count;
    for (std::uint32_t i = 0; i < columns.count && i < count; i++) {
        const kudcbvadef &column = columns.first[i];
        const auto head = load<kudcflkchdef>(flatkey + key_head * i);
        if (head.len_kudcflkch > room) return unsound;
        const kudckvalue stored = {value, head.len_kudcflkch};
        value += head.len_kudcflkch;
        room -= head.len_kudcflkch;
        if (column.wildcard_kudcbva == 1) continue;

        const bool null = kudckisnull(column), nullstored = head.isnull_kudcflkch == KUDC_NULL;
        const int order = null || nullstored ? kudcknulls(null, nullstored)
                                             : kudckvalues(acmp, column.xdbtyp_kudcbva,
                                                           kudckshown(column), stored);
        if (order != 0) return column.sort_kudcbva == KUDC_ASCENDING ? order : -order;
    }
    return 0;
}

} // namespace ku::cache

uint32_t kudckcmp(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, uint16_t count,
                  const unsigned char *flatkey, int16_t *condition)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const level_columns columns = columns_of(key, level);
    const std::uint32_t status = check_buffers(acmp, columns);
    if (status != 0) return status;
    const int order = compare_stored(acmp, columns, count, flatkey, UINT32_MAX);
    *condition = static_cast<std::int16_t>((order > 0) - (order < 0));
    return 0;
}

uint32_t kudckcflkval(kudcaccdef *acmp, const kudckeydef *key, uint16_t level,
                      unsigned char *destination)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const level_columns columns = columns_of(key, level);
    for (std::uint32_t i = 0; i < columns.count; i++) {
        if (columns.first[i].val_kudcbva == nullptr && !kudckisnull(columns.first[i])) {
            return refuse(acmp, KUVAA_NOVALUE);
        }
    }
    unsigned char *value = destination + key_head * columns.count;
    for (std::uint32_t i = 0; i < columns.count; i++) {
        const kudcbvadef &column = columns.first[i];
        kudcflkchdef head = {};
        head.len_kudcflkch = kudckisnull(column) ? 0 : column.len_kudcbva;
        head.type_kudcflkch = column.xdbtyp_kudcbva;
        head.isnull_kudcflkch = column.valnul_kudcbva;
        store(destination + key_head * i, head);
        if (head.len_kudcflkch == 0) continue;
        std::memcpy(value, column.val_kudcbva, head.len_kudcflkch);
        value += head.len_kudcflkch;
    }
    while ((value - destination) % 4 != 0) *value++ = 0;
    return 0;
}

uint32_t kudckpsflk(const kudckeydef *key, uint16_t level, uint32_t *size)
{
    const level_columns columns = columns_of(key, level);
    std::uint64_t bytes = 0;
    for (std::uint32_t i = 0; i < columns.count; i++) {
        const kudcbvadef &column = columns.first[i];
        bytes += std::uint64_t{key_head} + (kudckisnull(column) ? 0 : column.len_kudcbva);
    }
    *size = kudckrounded(bytes);
    return 0;
}

uint32_t kudckszflk(const unsigned char *flatkey, uint16_t count, uint32_t *size)
{
    std::uint64_t bytes = key_head * count;
    for (std::uint32_t i = 0; i < count; i++) {
        bytes += load<kudcflkchdef>(flatkey + key_head * i).len_kudcflkch;
    }
    *size = kudckrounded(bytes);
    return 0;
}

uint32_t kudckcvp(const unsigned char *flatkey, uint16_t column, uint16_t count,
                  const unsigned char **value)
{
    const unsigned char *at = flatkey + key_head * count;
    for (std::uint32_t i = 0; i < column; i++) {
        at += load<kudcflkchdef>(flatkey + key_head * i).len_kudcflkch;
    }
    *value = at;
    return 0;
}

namespace
{

// Whether the columns' own buffers take the values of a stored key.
bool kudcktaking(const level_columns &columns, const unsigned char *flatkey)
{
    for (std::uint32_t i = 0; i < columns.count; i++) {
        const kudcbvadef &column = columns.first[i];
        const auto head = load<kudcflkchdef>(flatkey + key_head * i);
        if (column.col_kudcbva != nullptr && head.len_kudcflkch > kudckroom(column)) return false;
    }
    return true;
}

// Whether the index's columns take the values of a stored key, `count` of them.
bool kudckfitting(const kudcidxdef *index, std::uint16_t level, std::uint32_t count,
                  const unsigned char *flatkey)
{
    const std::uint32_t first = first_key_column(index, level);
    if (first + count > index->clct_kudcidx) return false;
    for (std::uint32_t i = 0; i < count; i++) {
        const auto head = load<kudcflkchdef>(flatkey + key_head * i);
        const std::uint32_t longest =
            longest_key_value(index, static_cast<std::uint16_t>(first + i));
        if (head.len_kudcflkch > std::uint64_t{longest} + 1) return false;
    }
    return true;
}

} // namespace

namespace ku::cache
{

std::uint32_t load_key(const kudcaccdef *acmp, const kudcidxdef *index, const unsigned char *block,
                       std::uint32_t entry, const level_columns &columns, std::uint32_t *size)
{
    const kudcidhdef header = header_of(block);
    const std::uint32_t count = header.clct_kudcidh;
    bool whole = columns.count <= count;
    for (std::uint32_t i = 0; i < columns.count; i++) {
        whole = whole && columns.first[i].val_kudcbva != nullptr;
    }
    if (!whole) return refuse(acmp, KUVAA_NOVALUE);
    const unsigned char *flatkey = key_at(block, entry);
    const bool known = index != nullptr || block == acmp->indx_kudcacc;
    if (known && (entry >= header.kyct_kudcidh || entry_size(block, entry) == 0))
        return refuse(acmp, KUVAA_MISSING);
    if (index != nullptr ? !kudckfitting(index, header.levl_kudcidh, columns.count, flatkey)
                         : !kudcktaking(columns, flatkey)) {
        return refuse(acmp, KUVAA_MISSING);
    }
    const unsigned char *value = flatkey + key_head * count;
    for (std::uint32_t i = 0; i < columns.count; i++) {
        const auto head = load<kudcflkchdef>(flatkey + key_head * i);
        kudcbvadef &column = columns.first[i];
        column.set_kudcbva = 1;
        column.len_kudcbva = head.len_kudcflkch;
        column.xdbtyp_kudcbva = head.type_kudcflkch;
        column.valnul_kudcbva = head.isnull_kudcflkch;
        std::memcpy(column.val_kudcbva, value, head.len_kudcflkch);
        // A number of length 0 is empty, and shall not be taken for one with its length in front.
        if (head.len_kudcflkch == 0 && column.xdbtyp_kudcbva == KUDC_NUMBER) {
            column.val_kudcbva[0] = 0;
        }
        value += head.len_kudcflkch;
    }
    if (size == nullptr) return 0;
    return kudckszflk(flatkey, static_cast<std::uint16_t>(count), size);
}

} // namespace ku::cache

uint32_t kudckgt(kudcaccdef *acmp, const unsigned char *block, uint16_t entry, kudcbvadef *values,
                 uint32_t *size)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (block == acmp->indx_kudcacc && !is_held(block, acmp->isiz_kudcacc))
        return refuse(acmp, KUVAA_MISSING);
    return load_key(acmp, nullptr, block, entry, {values, header_of(block).clct_kudcidh}, size);
}

uint32_t kudckcl(kudcaccdef *acmp, const unsigned char *block, kudcbvadef *values)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const std::uint32_t count = header_of(block).clct_kudcidh;
    for (std::uint32_t i = 0; i < count; i++) values[i].set_kudcbva = 0;
    return 0;
}

uint32_t kudckgls(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, int32_t *set)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *set = 0;
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        if (key->arybva_kudckey[i].level_kudcbva < level) continue;
        *set = key->arybva_kudckey[i].set_kudcbva;
        break;
    }
    return 0;
}

// ---- copying ----

namespace
{

// A key that can be copied: every column has its definition, a buffer, and no more bytes than
// the definition allows.
std::uint32_t kudckcheck(const kudcaccdef *acmp, const kudckeydef *key)
{
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        const kudcbvadef &column = key->arybva_kudckey[i];
        if (column.col_kudcbva == nullptr || column.val_kudcbva == nullptr) {
            return refuse(acmp, KUVAA_NOVALUE);
        }
        if (column.len_kudcbva > kudckroom(column)) return refuse(acmp, KUDCA_TOOLONG);
    }
    return 0;
}

// The buffers that a copy is to be written to: as many, and there.
std::uint32_t kudckfits(const kudcaccdef *acmp, const kudckeydef *key, const kudckeydef *copy)
{
    if (copy == nullptr || copy->numbva_kudckey < key->numbva_kudckey
        || copy->numlevsize_kudckey < key->numlevsize_kudckey) {
        return refuse(acmp, KUVAA_NOVALUE);
    }
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        const kudcbvadef &to = copy->arybva_kudckey[i];
        if (to.val_kudcbva == nullptr) return refuse(acmp, KUVAA_NOVALUE);
        if (to.col_kudcbva != nullptr && value_bytes(key->arybva_kudckey[i]) > kudckroom(to)) {
            return refuse(acmp, KUDCA_TOOLONG);
        }
    }
    return 0;
}

// A key with arrays and buffers for a copy of another, empty; null with a code pushed.
kudckeydef *kudckbuild(kudcaccdef *acmp, const kudckeydef *key)
{
    kux *ctx = acmp->kuxp_kudcacc;
    auto *copy = obtain<kudckeydef>(ctx);
    if (copy == nullptr) return nullptr;
    *copy = {};
    copy->arybva_kudckey = obtain<kudcbvadef>(ctx, key->numbva_kudckey);
    copy->arylevsize_kudckey = copy->arybva_kudckey != nullptr
                                   ? obtain<std::uint16_t>(ctx, key->numlevsize_kudckey)
                                   : nullptr;
    bool whole = copy->arylevsize_kudckey != nullptr;
    for (std::uint32_t i = 0; i < key->numbva_kudckey && whole; i++) {
        kudcbvadef &column = copy->arybva_kudckey[i];
        column = {};
        column.val_kudcbva =
            static_cast<unsigned char *>(obtain(ctx, kudckroom(key->arybva_kudckey[i]), 1));
        whole = column.val_kudcbva != nullptr;
        if (whole) copy->numbva_kudckey++;
    }
    if (whole) return copy;
    kudcfrky(acmp, copy, 1);
    return nullptr;
}

} // namespace

namespace ku::cache
{

std::uint64_t value_bytes(const kudcbvadef &column)
{
    const kudckvalue shown = kudckshown(column);
    return static_cast<std::uint64_t>(shown.bytes - column.val_kudcbva) + shown.length;
}

void copy_value(const kudcbvadef &from, kudcbvadef *to)
{
    const kudckvalue shown = kudckshown(from);
    const std::uint64_t bytes = value_bytes(from);
    to->valnul_kudcbva = from.valnul_kudcbva;
    to->len_kudcbva = from.len_kudcbva;
    if (bytes != 0)
        std::memmove(to->val_kudcbva, from.val_kudcbva, bytes);
    else
        to->val_kudcbva[0] = 0; // an empty number has no length in front of it
    if (shown.bytes != from.val_kudcbva)
        to->val_kudcbva[0] = static_cast<unsigned char>(shown.length);
}

void settle_value(kudcbvadef *column)
{
    const kudckvalue shown = kudckshown(*column);
    if (shown.length == 0 || shown.bytes == column->val_kudcbva) return;
    std::memmove(column->val_kudcbva, shown.bytes, shown.length);
    column->len_kudcbva = shown.length;
}

void copy_key(const kudckeydef *key, kudckeydef *copy)
{
    copy->numbva_kudckey = key->numbva_kudckey;
    copy->numlevsize_kudckey = key->numlevsize_kudckey;
    if (key->arylevsize_kudckey != nullptr && copy->arylevsize_kudckey != nullptr) {
        std::memcpy(copy->arylevsize_kudckey, key->arylevsize_kudckey,
                    sizeof(std::uint16_t) * key->numlevsize_kudckey);
    }
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++) {
        const kudcbvadef &from = key->arybva_kudckey[i];
        kudcbvadef &to = copy->arybva_kudckey[i];
        unsigned char *buffer = to.val_kudcbva;
        const std::uint16_t split = to.split_kudcbva;
        copy_value(from, &to);
        to = from;
        to.val_kudcbva = buffer;
        to.split_kudcbva = split;
    }
}

} // namespace ku::cache

uint32_t kudckncpy(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp)
{
    return kudckcop(acmp, key, copyp, 0);
}

uint32_t kudckcop(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp, int32_t reuse)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    const bool reused = reuse == 1;
    if (!reused) *copyp = nullptr;
    if (key == nullptr) return 0;

    std::uint32_t status = kudckcheck(acmp, key);
    if (status == 0 && reused) status = kudckfits(acmp, key, *copyp);
    if (status != 0) return status;
    if (!reused) *copyp = kudckbuild(acmp, key);
    if (*copyp == nullptr) return KUVAA_NOMEM;
    copy_key(key, *copyp);
    return 0;
}

// ---- breaks ----

namespace
{

std::uint32_t kudckwidth(const kudckeydef *key)
{
    return key == nullptr || key->arybva_kudckey == nullptr ? 0 : key->numbva_kudckey;
}

bool kudckequal(const kudcaccdef *acmp, const kudcbvadef &a, const kudcbvadef &b)
{
    const bool null = kudckisnull(a);
    if (null || kudckisnull(b)) return null && kudckisnull(b);
    if (a.len_kudcbva != b.len_kudcbva) return false;
    const kudckvalue left = kudckshown(a), right = kudckshown(b);
    switch (a.xdbtyp_kudcbva) {
    case KUDC_CHARACTER:
    case KUDC_TERMINATED:
        return ku::locale::collate(*acmp->kuxp_kudcacc->kuxlangidh, left.bytes, left.length,
                                   right.bytes, right.length)
               == 0;
    default:
        return ku::core::compare_bytes(left.bytes, left.length, right.bytes, right.length) == 0;
    }
}

} // namespace

uint32_t kudckcbva(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key1,
                   const kudckeydef *key2, uint16_t from, uint16_t to, int32_t *differs,
                   uint16_t *level)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    *differs = 0;
    if (from >= index->lvct_kudcidx || to < from) return 0;
    const std::uint32_t width = kudckwidth(key1), width2 = kudckwidth(key2);
    if ((width == 0) != (width2 == 0)) {
        *differs = 1;
        *level = from;
        return 0;
    }
    // Columns are paired by their place within the level; what only one key has is not looked at.
    std::uint32_t i = 0, j = 0;
    while (i < width && j < width2) {
        const kudcbvadef &a = key1->arybva_kudckey[i], &b = key2->arybva_kudckey[j];
        if (a.level_kudcbva != b.level_kudcbva) {
            (a.level_kudcbva < b.level_kudcbva ? i : j)++;
            continue;
        }
        i++;
        j++;
        if (a.level_kudcbva < from) continue;
        if (a.level_kudcbva > to) break;
        if (a.val_kudcbva == nullptr || b.val_kudcbva == nullptr) {
            return refuse(acmp, KUVAA_MISSING);
        }
        if (kudckequal(acmp, a, b)) continue;
        *differs = 1;
        *level = a.level_kudcbva;
        break;
    }
    return 0;
}
