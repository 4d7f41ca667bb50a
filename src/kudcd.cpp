// kudcd.cpp - rows: records at the end of the data file, chained by thread
//
//     | leng prev next stat mark | links 4 x L | live 2 x I | len null value | ... |
//      0                       16                             one a column
//
// Rows are only appended; a thread's rows are chained both ways by their
// positions. A new record is written behind the end of the file, then its
// predecessor is linked to it, then the thread and the end of the file take
// notice: until that last step nothing knows the record, and the next store
// overwrites what a failed one has written. A row's keys are entered when its
// record is there; when that fails half-way the record stays where it is, for
// keys that lead to it must not lead to the next row.
//
// Records of threads whose rows are short (useb) are put together in the row
// buffer and moved at once; it has room for the head in front of the columns.
// Records of the others are moved field by field, long values in pieces that
// never need more than piece_bytes of memory. Exactly the record is moved, no
// more: what follows it belongs to somebody else.
//
// Positions come from clients, so that a record is believed only as far as it
// is inside the file, as long as its fields say and within the columns' sizes.

#include "kudcd.h"

#include <algorithm>

#include "kudc_internal.h"
#include "kudcd_internal.h"
#include "kudx.h"
#include "longval.h"
#include "skuf_internal.h"

using ku::cache::refuse;
namespace cache = ku::cache;

static_assert(sizeof(kudcrchdef) == cache::row_head && offsetof(kudcrchdef, prev_kudcrch) == 4
                  && offsetof(kudcrchdef, next_kudcrch) == 8
                  && offsetof(kudcrchdef, stat_kudcrch) == 12
                  && offsetof(kudcrchdef, delp_kudcrch) == 14,
              "lies in the data file");
static_assert(sizeof(kudclnkdef) == cache::link_bytes, "lies in the data file");

static constexpr uint32_t kudcd_glance = 512; // bytes read of a record before its length is known

// ---- moves ----

// Moves bytes at a position of one of the two files.
static uint32_t kudcdmove(kudcaccdef *acmp, void *file, int32_t position, void *buffer,
                          uint32_t bytes, char direction)
{
    static_cast<skufv *>(file)->skufvpos = static_cast<uint32_t>(position);
    return skufvmove(acmp->kuxp_kudcacc, acmp->skufh_kudcacc, file, buffer, bytes, direction);
}

// Reads what lies before `end` of a file.
static uint32_t kudcdget(kudcaccdef *acmp, void *file, int32_t end, int32_t position,
                         uint32_t bytes, void *buffer)
{
    if (position < 0 || int64_t{position} + bytes > end) return refuse(acmp, KUVAA_MISSING);
    return kudcdmove(acmp, file, position, buffer, bytes, SKUFV_GET);
}

// Has the block cache hold both of two pages that bytes lie in, so that what is written over them
// is not cut short between the two. Of more pages it may not hold the first ones any more.
static uint32_t kudcdready(const kudcaccdef *acmp, void *file, uint32_t position, uint32_t bytes)
{
    const uint32_t last = position + std::max(bytes, 1u) - 1;
    if (position / SKUF_BLOCK + 1 != last / SKUF_BLOCK) return 0;
    const unsigned char *seen = nullptr;
    for (const uint32_t at : {last, position})
        if (const uint32_t status =
                skufvlook(acmp->kuxp_kudcacc, acmp->skufh_kudcacc, file, at, 1, &seen))
            return status;
    return 0;
}

static uint32_t kudcdput(kudcaccdef *acmp, void *file, int32_t position, uint32_t bytes,
                         const void *buffer)
{
    if (position < 0) return refuse(acmp, KUVAA_MISSING);
    if (int64_t{position} + bytes > cache::file_limit) return refuse(acmp, KUDCA_FULL);
    if (const uint32_t status = kudcdready(acmp, file, static_cast<uint32_t>(position), bytes))
        return status;
    // The move only reads what it puts.
    return kudcdmove(acmp, file, position, const_cast<void *>(buffer), bytes, SKUFV_PUT);
}

uint32_t cache::read_block(kudcaccdef *acmp, int32_t position, uint32_t bytes, void *buffer)
{
    return kudcdget(acmp, acmp->idxf_kudcacc, acmp->nxio_kudcacc, position, bytes, buffer);
}

uint32_t cache::look_at_block(kudcaccdef *acmp, int32_t position, uint32_t bytes,
                              const unsigned char **block)
{
    if (position < 0 || int64_t{position} + bytes > acmp->nxio_kudcacc)
        return refuse(acmp, KUVAA_MISSING);
    return skufvlook(acmp->kuxp_kudcacc, acmp->skufh_kudcacc, acmp->idxf_kudcacc,
                     static_cast<uint32_t>(position), bytes, block);
}

uint32_t cache::write_block(kudcaccdef *acmp, int32_t position, uint32_t bytes, const void *buffer)
{
    return kudcdput(acmp, acmp->idxf_kudcacc, position, bytes, buffer);
}

uint32_t cache::read_data(kudcaccdef *acmp, int32_t position, uint32_t bytes, void *buffer)
{
    return kudcdget(acmp, acmp->datf_kudcacc, acmp->nxdo_kudcacc, position, bytes, buffer);
}

uint32_t cache::write_data(kudcaccdef *acmp, int32_t position, uint32_t bytes, const void *buffer)
{
    return kudcdput(acmp, acmp->datf_kudcacc, position, bytes, buffer);
}

uint32_t cache::hold_data(kudcaccdef *acmp, int32_t position, uint32_t bytes)
{
    return kudcdready(acmp, acmp->datf_kudcacc, static_cast<uint32_t>(position), bytes);
}

// ---- sizes and checks ----

static uint32_t kudcdlinks(const kudcthddef *thread)
{
    return cache::link_bytes * thread->idlc_kudcthd;
}
static uint32_t kudcdlives(const kudcthddef *thread)
{
    return cache::live_bytes * thread->idxc_kudcthd;
}

uint32_t cache::fixed_bytes(const kudcthddef *thread)
{
    return row_head + kudcdlinks(thread) + kudcdlives(thread)
           + column_head * uint32_t{thread->clct_kudcthd};
}

uint32_t cache::longest_value(const kudcthddef *thread, uint16_t column)
{
    // The sizes lie behind the thread's columns.
    return reinterpret_cast<const uint32_t *>(thread->acol_kudcthd + thread->clct_kudcthd)[column];
}

static bool kudcdbuffered(const kudcaccdef *acmp, const kudcthddef *thread)
{
    return thread->useb_kudcthd != 0 && acmp->bufp_kudcacc != nullptr;
}

// Most bytes of an ordinary column's value in a row.
static uint64_t kudcdmost(const kudcthddef *thread, uint16_t column)
{
    return uint64_t{cache::longest_value(thread, column)}
           + kudxctrmlen(thread->acol_kudcthd[column]);
}

// The arrays that a row needs are there.
static uint32_t kudcdarrays(const kudcaccdef *acmp, const kudcthddef *thread)
{
    if (thread == nullptr || thread->acol_kudcthd == nullptr) return refuse(acmp, KUVAA_MISSING);
    if ((thread->idlc_kudcthd != 0 && thread->idxl_kudcthd == nullptr)
        || (thread->idxc_kudcthd != 0 && thread->delp_kudcthd == nullptr))
        return refuse(acmp, KUVAA_NOVALUE);
    return 0;
}

// The values can be written as they are: 0, or the code of what is wrong.
static uint32_t kudcdwritable(const kudcthddef *thread, uint16_t number)
{
    const kudxcoldef *column = thread->acol_kudcthd[number];
    if (column == nullptr) return KUVAA_NOVALUE;
    if (column->segm_kudxcol != 0) // was short and ordinary when the cache was made
        return thread->useb_kudcthd != 0 ? KUVAA_NOVALUE : 0;
    if (column->curlen_kudxcol > cache::longest_value(thread, number)
        && column->curlen_kudxcol > kudcdmost(thread, number))
        return KUDCA_TOOLONG;
    if (column->curlen_kudxcol != 0 && column->curval_kudxcol == nullptr) return KUVAA_NOVALUE;
    return 0;
}

// The same for all columns. *values: bytes of all values.
static uint32_t kudcdvalues(const kudcaccdef *acmp, const kudcthddef *thread, int64_t *values)
{
    if (const uint32_t status = kudcdarrays(acmp, thread)) return status;
    *values = 0;
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        if (const uint32_t code = kudcdwritable(thread, i)) return refuse(acmp, code);
        *values += thread->acol_kudcthd[i]->curlen_kudxcol;
    }
    return 0;
}

uint32_t cache::check_room(const kudcaccdef *acmp, const kudcthddef *thread, int64_t bytes)
{
    int64_t blocks = 0;
    for (uint16_t i = 0; thread != nullptr && i < thread->idxc_kudcthd; i++) {
        const kudcidxdef *index = thread->idxs_kudcthd + i;
        if (index->idxt_kudcidx == KUDC_DYNBRK) continue;
        for (uint16_t l = 0; l < index->lvct_kudcidx; l++)
            blocks += blocks_a_level_and_store * index->lvrt_kudcidx[l].size_kudcidh;
    }
    if (bytes > file_limit - acmp->nxdo_kudcacc
        || (blocks != 0 && blocks > file_limit - acmp->nxio_kudcacc))
        return refuse(acmp, KUDCA_FULL);
    return 0;
}

uint32_t cache::check_row(const kudcaccdef *acmp, const kudcthddef *thread, int64_t *bytes)
{
    if (const uint32_t status = kudcdvalues(acmp, thread, bytes)) return status;
    *bytes += fixed_bytes(thread);
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        const kudxcoldef *column = thread->acol_kudcthd[i];
        if (column->segm_kudxcol != 0 && column->curlen_kudxcol != 0
            && acmp->kuxp_kudcacc->kuxuiapp == nullptr)
            return refuse(acmp, KUDCA_NOAPP);
    }
    return check_room(acmp, thread, *bytes);
}

// ---- long values ----

namespace
{

// Moves a long value between the client and the data file, piece by piece.
class kudcdpieces
{
public:
    kudcdpieces(kudcaccdef *acmp, const kudxcoldef *column)
        : acmp_(acmp), ctx_(acmp->kuxp_kudcacc),
          value_(static_cast<kulong *>(column->curval_kudxcol)), buffer_(ctx_)
    {
    }
    uint32_t store(int32_t position, uint32_t length)
    {
        return each(position, length, [this](int32_t at, uint32_t offset, uint32_t piece) {
            const uint32_t status =
                ku::longval::read_piece(ctx_->kuxuiapp, value_, buffer_.get(), offset, piece);
            if (status != ku::longval::done) return failed();
            return cache::write_data(acmp_, at, piece, buffer_.get());
        });
    }
    uint32_t load(int32_t position, uint32_t length)
    {
        return each(position, length, [this](int32_t at, uint32_t offset, uint32_t piece) {
            if (const uint32_t status = cache::read_data(acmp_, at, piece, buffer_.get()))
                return status;
            const uint32_t status =
                ku::longval::write_piece(ctx_->kuxuiapp, value_, buffer_.get(), offset, piece);
            return status != ku::longval::done ? failed() : 0;
        });
    }

private:
    template <typename function>
    uint32_t each(int32_t position, uint32_t length, const function &move)
    {
        if (ctx_->kuxuiapp == nullptr) return refuse(acmp_, KUDCA_NOAPP);
        buffer_.reset(cache::obtain<unsigned char>(ctx_, std::min(length, cache::piece_bytes)));
        if (!buffer_) return KUVAA_NOMEM;
        for (uint32_t offset = 0; offset < length;) {
            const uint32_t piece = std::min(length - offset, cache::piece_bytes);
            const auto at = static_cast<int32_t>(int64_t{position} + offset);
            if (const uint32_t status = move(at, offset, piece)) return status;
            offset += piece;
        }
        return 0;
    }
    // The client's function may have said why.
    uint32_t failed()
    {
        return kuxernerrors(ctx_) != 0 ? kuxercode(ctx_) : refuse(acmp_, KUDCA_TRANSFER);
    }

    kudcaccdef *acmp_;
    kux *ctx_;
    kulong *value_;
    ku::owned<unsigned char> buffer_;
};

} // namespace

// ---- writing ----

// Puts head and columns of a record together in the row buffer. Returns its bytes.
static uint32_t kudcdassemble(const kudcaccdef *acmp, const kudcthddef *thread,
                              const kudcrchdef &header)
{
    unsigned char *to = acmp->bufp_kudcacc;
    const auto put = [&to](const void *from, uint32_t bytes) {
        if (bytes != 0) std::memcpy(to, from, bytes);
        to += bytes;
    };
    put(&header, sizeof header);
    put(thread->idxl_kudcthd, kudcdlinks(thread));
    put(thread->delp_kudcthd, kudcdlives(thread));
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        const kudxcoldef *column = thread->acol_kudcthd[i];
        put(&column->curlen_kudxcol, sizeof column->curlen_kudxcol);
        put(&column->curnul_kudxcol, sizeof column->curnul_kudxcol);
        put(column->curval_kudxcol, column->curlen_kudxcol);
    }
    return static_cast<uint32_t>(to - acmp->bufp_kudcacc);
}

// Writes one column at a position, which moves behind it. The value of a segmented one is
// written when it is stored first and never again.
static uint32_t kudcdcolumn(kudcaccdef *acmp, const kudxcoldef *column, int32_t *position,
                            bool rewrite)
{
    const uint32_t length = column->curlen_kudxcol;
    unsigned char head[cache::column_head];
    cache::store(head, length);
    std::memcpy(head + sizeof length, &column->curnul_kudxcol, 1);
    if (const uint32_t status = cache::write_data(acmp, *position, sizeof head, head))
        return status;
    const auto value = static_cast<int32_t>(int64_t{*position} + cache::column_head);
    *position = static_cast<int32_t>(int64_t{value} + length);
    if (length == 0) return 0;
    if (column->segm_kudxcol == 0)
        return cache::write_data(acmp, value, length, column->curval_kudxcol);
    return rewrite ? 0 : kudcdpieces(acmp, column).store(value, length);
}

// Writes a record at a position.
static uint32_t kudcdrecord(kudcaccdef *acmp, const kudcthddef *thread, const kudcrchdef &header,
                            int32_t position, bool rewrite)
{
    if (kudcdbuffered(acmp, thread)) {
        const uint32_t bytes = kudcdassemble(acmp, thread, header);
        return cache::write_data(acmp, position, bytes, acmp->bufp_kudcacc);
    }
    if (const uint32_t status = cache::write_data(acmp, position, sizeof header, &header))
        return status;
    auto at = static_cast<int32_t>(int64_t{position} + cache::row_head);
    const struct {
        const void *array;
        uint32_t bytes;
    } heads[] = {{thread->idxl_kudcthd, kudcdlinks(thread)},
                 {thread->delp_kudcthd, kudcdlives(thread)}};
    for (const auto &head : heads) {
        if (head.bytes == 0) continue;
        if (const uint32_t status = cache::write_data(acmp, at, head.bytes, head.array))
            return status;
        at += static_cast<int32_t>(head.bytes);
    }
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        const kudxcoldef *column = thread->acol_kudcthd[i];
        if (const uint32_t status = kudcdcolumn(acmp, column, &at, rewrite)) return status;
    }
    return 0;
}

// Tells the columns where their values lie in the record at a position.
static void kudcdplace(const kudcthddef *thread, int32_t position, bool rewrite)
{
    int64_t at = int64_t{position} + cache::row_head + kudcdlinks(thread) + kudcdlives(thread);
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        kudxcoldef *column = thread->acol_kudcthd[i];
        at += cache::column_head;
        const bool written = column->segm_kudxcol == 0 || !rewrite;
        if (written && (thread->useb_kudcthd != 0 || column->curlen_kudxcol != 0))
            column->filpos_kudxcol = static_cast<uint32_t>(at);
        at += column->curlen_kudxcol;
    }
}

// Makes a row the next of the thread's last one.
static uint32_t kudcdlink(kudcaccdef *acmp, const kudcthddef *thread, int32_t position)
{
    if (thread->last_kudcthd == KUDC_NONE) return 0;
    const int64_t next =
        int64_t{thread->last_kudcthd} + int64_t{offsetof(kudcrchdef, next_kudcrch)};
    if (next + int64_t{sizeof position} > acmp->nxdo_kudcacc) return refuse(acmp, KUVAA_MISSING);
    return cache::write_data(acmp, static_cast<int32_t>(next), sizeof position, &position);
}

uint32_t cache::put_row(kudcaccdef *acmp, const kudcthddef *thread, kudcrchdef *header)
{
    uint32_t bytes = fixed_bytes(thread);
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++)
        bytes += thread->acol_kudcthd[i]->curlen_kudxcol;
    *header = thread->trch_kudcthd;
    header->leng_kudcrch = bytes;
    header->prev_kudcrch = thread->last_kudcthd;
    header->next_kudcrch = KUDC_NONE;
    return kudcdrecord(acmp, thread, *header, acmp->nxdo_kudcacc, false);
}

uint32_t cache::join_row(kudcaccdef *acmp, kudcthddef *thread, const kudcrchdef &header)
{
    const int32_t position = acmp->nxdo_kudcacc;
    if (const uint32_t status = kudcdlink(acmp, thread, position)) return status;
    kudcdplace(thread, position, false);
    thread->trch_kudcthd = header;
    thread->tpln_kudcthd = header.leng_kudcrch - fixed_bytes(thread);
    if (thread->frst_kudcthd == KUDC_NONE) thread->frst_kudcthd = position;
    thread->last_kudcthd = position;
    acmp->nxdo_kudcacc = static_cast<int32_t>(int64_t{position} + header.leng_kudcrch);
    return 0;
}

void cache::give_up_row(kudcaccdef *acmp, const kudcthddef *thread, const kudcrchdef &header)
{
    if (thread->idxc_kudcthd == 0) return; // no keys lead to it
    const int32_t position = acmp->nxdo_kudcacc;
    acmp->nxdo_kudcacc = static_cast<int32_t>(int64_t{position} + header.leng_kudcrch);
    const ku::aside apart(acmp->kuxp_kudcacc); // nothing moves on a level with an error
    if (!apart.saved()) return;
    const auto lives = static_cast<int32_t>(position + int64_t{row_head} + kudcdlinks(thread));
    const uint16_t none = 0;
    for (uint16_t i = 0; i < thread->idxc_kudcthd; i++)
        if (write_data(acmp, lives + static_cast<int32_t>(live_bytes * i), sizeof none, &none) != 0)
            return;
}

uint32_t kudcdstr(kudcaccdef *acmp, kudcthddef *thread)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    int64_t bytes;
    if (const uint32_t status = cache::check_row(acmp, thread, &bytes)) return status;
    kudcrchdef header;
    if (const uint32_t status = cache::put_row(acmp, thread, &header)) return status;
    return cache::join_row(acmp, thread, header);
}

uint32_t kudcdupd(kudcaccdef *acmp, kudcthddef *thread, int32_t position)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    int64_t values;
    if (const uint32_t status = kudcdvalues(acmp, thread, &values)) return status;
    const int64_t bytes = values + cache::fixed_bytes(thread);
    if (position < 0 || position + bytes > acmp->nxdo_kudcacc) return refuse(acmp, KUVAA_MISSING);

    kudcrchdef header = thread->trch_kudcthd;
    header.leng_kudcrch = static_cast<uint32_t>(bytes);
    if (const uint32_t status = kudcdrecord(acmp, thread, header, position, true)) return status;
    kudcdplace(thread, position, true);
    thread->trch_kudcthd = header;
    thread->tpln_kudcthd = static_cast<uint32_t>(values);
    return 0;
}

// ---- reading ----

uint32_t cache::row_reader::open(part wanted)
{
    const uint32_t fixed = fixed_bytes(thread_);
    const int64_t behind = int64_t{acmp_->nxdo_kudcacc} - position_; // bytes from here on
    if (position_ < 0 || behind < fixed) return refuse(acmp_, KUVAA_MISSING);

    const bool buffered = kudcdbuffered(acmp_, thread_);
    const uint32_t head = fixed - column_head * thread_->clct_kudcthd;
    const int64_t longest = int64_t{head} + thread_->mlen_kudcthd; // there is room for it
    uint32_t glance = buffered ? head : uint32_t{sizeof header_};
    if (buffered && wanted == part::all)
        glance = static_cast<uint32_t>(std::min({behind, longest, int64_t{kudcd_glance}}));
    unsigned char *to =
        buffered ? acmp_->bufp_kudcacc : reinterpret_cast<unsigned char *>(&header_);
    if (const uint32_t status = read_data(acmp_, position_, glance, to)) return status;
    if (buffered) header_ = load<kudcrchdef>(to);

    const uint32_t length = header_.leng_kudcrch;
    const bool whole = buffered && wanted == part::all;
    if (length < fixed || length > behind || (whole && length > longest))
        return refuse(acmp_, KUVAA_MISSING);
    at_ = position_ + int64_t{sizeof header_};
    end_ = int64_t{position_} + length;
    if (buffered) bytes_ = to;
    if (!whole || length <= glance) return 0;
    const auto rest = static_cast<int32_t>(position_ + int64_t{glance});
    return read_data(acmp_, rest, length - glance, to + glance);
}

uint32_t cache::row_reader::take(void *to, uint32_t bytes)
{
    if (bytes == 0) return 0;
    const int32_t from = place();
    if (const uint32_t status = skip(bytes)) return status;
    if (!buffered()) return cache::read_data(acmp_, from, bytes, to);
    std::memcpy(to, bytes_ + (from - position_), bytes);
    return 0;
}

// Length and null indicator of the next column, whose value is in this record.
uint32_t cache::row_reader::column(uint32_t *length, int8_t *isnull)
{
    unsigned char head[cache::column_head];
    if (const uint32_t status = take(head, sizeof head)) return status;
    *length = cache::load<uint32_t>(head);
    std::memcpy(isnull, head + sizeof *length, 1);
    return *length > end_ - at_ ? refuse(acmp_, KUVAA_MISSING) : 0;
}

static uint32_t kudcdhead(cache::row_reader *row, kudcthddef *thread)
{
    if (const uint32_t status = row->take(thread->idxl_kudcthd, kudcdlinks(thread))) return status;
    if (const uint32_t status = row->take(thread->delp_kudcthd, kudcdlives(thread))) return status;
    thread->trch_kudcthd = row->header();
    return 0;
}

uint32_t cache::open_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread)
{
    if (const uint32_t status = kudcdarrays(acmp, thread)) return status;
    if (const uint32_t status = row->open(row_reader::part::all)) return status;
    return kudcdhead(row, thread);
}

uint32_t cache::read_row_head(kudcaccdef *acmp, kudcthddef *thread, int32_t position)
{
    if (const uint32_t status = kudcdarrays(acmp, thread)) return status;
    cache::row_reader row(acmp, thread, position);
    if (const uint32_t status = row.open(row_reader::part::head)) return status;
    return kudcdhead(&row, thread);
}

// Loads a value of the data file into its column.
static uint32_t kudcdvalue(kudcaccdef *acmp, kudxcoldef *column, int32_t position, uint32_t length)
{
    if (length == 0) return 0;
    if (column->segm_kudxcol != 0) {
        if (const uint32_t pending = kuxercode(acmp->kuxp_kudcacc)) return pending;
        column->filpos_kudxcol = static_cast<uint32_t>(position);
        return kudcdpieces(acmp, column).load(position, length);
    }
    if (column->curval_kudxcol == nullptr) return refuse(acmp, KUVAA_MISSING);
    const uint32_t status = cache::read_data(acmp, position, length, column->curval_kudxcol);
    if (status == 0) column->filpos_kudxcol = static_cast<uint32_t>(position);
    return status;
}

// Loads the next column of a record.
static uint32_t kudcdload(kudcaccdef *acmp, cache::row_reader *row, const kudcthddef *thread,
                          uint16_t number)
{
    kudxcoldef *column = thread->acol_kudcthd[number];
    if (column == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    uint32_t length;
    int8_t isnull;
    if (const uint32_t status = row->column(&length, &isnull)) return status;
    const bool segmented = column->segm_kudxcol != 0;
    if (!segmented && length > kudcdmost(thread, number)) return refuse(acmp, KUVAA_MISSING);
    if (row->buffered() && length != 0 && (segmented || column->curval_kudxcol == nullptr))
        return refuse(acmp, KUVAA_NOVALUE);

    column->curlen_kudxcol = length;
    column->cngb_kudxcol = 0;
    column->curnul_kudxcol = isnull;
    const int32_t position = row->place();
    if (!row->buffered()) {
        if (const uint32_t status = kudcdvalue(acmp, column, position, length)) return status;
        return row->skip(length);
    }
    if (length != 0) column->filpos_kudxcol = static_cast<uint32_t>(position);
    return row->take(column->curval_kudxcol, length);
}

uint32_t cache::load_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread)
{
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++)
        if (const uint32_t status = kudcdload(acmp, row, thread, i)) return status;
    if (const uint32_t status = row->close()) return status;
    thread->tpln_kudcthd = row->header().leng_kudcrch - fixed_bytes(thread);
    return 0;
}

uint32_t kudcdrd(kudcaccdef *acmp, kudcthddef *thread, int32_t position)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    cache::row_reader row(acmp, thread, position);
    if (const uint32_t status = cache::open_row(acmp, &row, thread)) return status;
    return cache::load_row(acmp, &row, thread);
}

// Loads the next column of a record into a bind value, or passes over it.
static uint32_t kudcdbind(kudcaccdef *acmp, cache::row_reader *row, uint32_t longest,
                          kudcbvadef *value)
{
    uint32_t length;
    int8_t isnull;
    if (const uint32_t status = row->column(&length, &isnull)) return status;
    if (value == nullptr) return row->skip(length);
    if (length > uint64_t{longest} + 1) return refuse(acmp, KUVAA_MISSING);
    if (length != 0 && value->val_kudcbva == nullptr) return refuse(acmp, KUVAA_MISSING);
    value->len_kudcbva = length;
    value->valnul_kudcbva = isnull;
    // What the buffer held is no length in front of an empty number.
    if (length == 0 && value->xdbtyp_kudcbva == KUDC_NUMBER && value->val_kudcbva != nullptr)
        value->val_kudcbva[0] = 0;
    return row->take(value->val_kudcbva, length);
}

uint32_t cache::bind_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread,
                         kudcbvadef *const *values)
{
    for (uint16_t i = 0; i < thread->clct_kudcthd; i++) {
        const uint32_t longest = longest_value(thread, i);
        if (const uint32_t status = kudcdbind(acmp, row, longest, values[i])) return status;
    }
    if (const uint32_t status = row->close()) return status;
    thread->tpln_kudcthd = row->header().leng_kudcrch - fixed_bytes(thread);
    return 0;
}

uint32_t kudcdrbv(kudcaccdef *acmp, kudcthddef *thread, kudcbvadef *const *values, int32_t position,
                  kudcrchdef *header)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (const uint32_t status = kudcdarrays(acmp, thread)) return status;
    if (values == nullptr || header == nullptr) return refuse(acmp, KUVAA_MISSING);
    cache::row_reader row(acmp, thread, position);
    if (const uint32_t status = row.open(cache::row_reader::part::all)) return status;
    *header = row.header();
    if (const uint32_t status = row.skip(kudcdlinks(thread) + kudcdlives(thread))) return status;
    return cache::bind_row(acmp, &row, thread, values);
}

// ---- column data sources ----

uint32_t kudcdscds(kudcaccdef *acmp, kudxcoldef *column, kudccdsdef *source)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (column == nullptr) return refuse(acmp, KUVAA_NOVALUE);
    if (source == nullptr) return refuse(acmp, KUVAA_MISSING);
    *source = {acmp,
               column,
               column->cngb_kudxcol,
               column->filpos_kudxcol,
               column->curlen_kudxcol,
               column->curnul_kudxcol};
    return 0;
}

uint32_t kudcdcload(kudccdsdef *source)
{
    if (source == nullptr || source->cachep_kudccds == nullptr) return KUVAA_MISSING;
    kudcaccdef *acmp = source->cachep_kudccds;
    kudxcoldef *column = source->colh_kudccds;
    if (column == nullptr) return refuse(acmp, KUVAA_MISSING);
    const uint32_t length = source->curlen_kudccds;
    if (int64_t{source->filpos_kudccds} + length > acmp->nxdo_kudcacc && length != 0)
        return refuse(acmp, KUVAA_MISSING);
    if (column->segm_kudxcol == 0
        && length > uint64_t{column->maxlen_kudxcol} + kudxctrmlen(column))
        return refuse(acmp, KUVAA_MISSING);
    const auto position = static_cast<int32_t>(source->filpos_kudccds);
    if (const uint32_t status = kudcdvalue(acmp, column, position, length)) return status;
    column->cngb_kudxcol = source->cngb_kudccds;
    column->filpos_kudxcol = source->filpos_kudccds;
    column->curlen_kudxcol = length;
    column->curnul_kudxcol = source->curnul_kudccds;
    return 0;
}
