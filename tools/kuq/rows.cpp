// rows.cpp - between text and the cache's datatypes, and the walk over groups
//
// Short values lie in the row. A long one goes in pieces into a thread of its own,
// which has a single segmented column; in its place the row has a reference to it:
//
//     thread 0   | 17 | 'short' | reference |     thread 1   | long value ... |
//                                    '-----------------------^
//
// The scratch files are named kuq-PROCESS-nnnnnnnn in the temporary directory. One
// whose process is gone was left by a run that was killed.

#include "rows.h"

#include <kudcf.h>
#include <kudck.h>
#include <kudcm.h>
#include <signal.h>
#include <skudcd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "codes.h"
#include "values.h"

namespace fs = std::filesystem;

namespace kuq
{
namespace
{

constexpr uint16_t cache_buffers = 3; // each lets 12 MB of the scratch files be resident
constexpr uint32_t number_bytes = 21;
constexpr uint32_t integer_bytes = 4;
constexpr uint32_t date_bytes = 5;
constexpr char scratch_prefix[] = "kuq-";
constexpr size_t scratch_digits = 8; // behind the process
constexpr uint16_t row_thread = 0;
constexpr uint16_t long_thread = 1;
constexpr size_t most_columns = 30000; // the cache counts them in 16 bits
constexpr size_t most_groups = 255;    // and levels in 8
constexpr int8_t long_mark = 1;        // null indicator of a reference in a long value's place
constexpr size_t piece_bytes = 30000;  // of a long value read back; even
constexpr size_t key_units = 480;      // UTF-16 units of a long text's key: at most short_bytes
constexpr std::string_view cut_mark = "..."; // behind what is not the whole value

// Where a long value lies.
struct reference {
    uint32_t position;
    uint32_t length;
};

reference referred(const kudxcoldef &definition)
{
    reference where = {};
    std::memcpy(&where, definition.curval_kudxcol, sizeof where);
    return where;
}

fs::path scratch_directory() { return std::getenv("TMP"); } // the application has set it

// In front of the digits.
std::string scratch_start()
{
    return (scratch_directory() / (scratch_prefix + std::to_string(getpid()) + "-")).string();
}

bool is_text(const column &of)
{
    return of.type == datatype::text || (of.type == datatype::binary && of.key);
}

uint8_t native(const column &of)
{
    if (is_text(of)) return KUDC_CHARACTER;
    switch (of.type) {
    case datatype::integer: return KUDC_INTEGER;
    case datatype::number: return KUDC_NUMBER;
    case datatype::date: return KUDC_DATE;
    default: return KUDC_RAW;
    }
}

uint32_t longest(const column &of)
{
    switch (of.type) {
    case datatype::integer: return integer_bytes;
    case datatype::number: return number_bytes;
    case datatype::date: return date_bytes;
    default: return short_bytes;
    }
}

std::string digits(std::string_view bytes)
{
    static constexpr char hex[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += hex[static_cast<unsigned char>(byte) >> 4];
        text += hex[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

// The process that a scratch file is named after; 0 for another file.
pid_t owner(const std::string &name)
{
    const size_t start = sizeof scratch_prefix - 1;
    if (name.compare(0, start, scratch_prefix) != 0) return 0;
    pid_t process = 0;
    const char *end = name.data() + name.size();
    const auto [at, error] = std::from_chars(name.data() + start, end, process);
    const bool shaped = error == std::errc() && process > 0
                        && static_cast<size_t>(end - at) == scratch_digits + 1 && *at == '-';
    if (!shaped
        || name.find_first_not_of("0123456789", static_cast<size_t>(at - name.data()) + 1)
               != std::string::npos)
        return 0;
    return process;
}

// A value in the cache's form; false when it is none of the datatype.
bool encode(const column &of, std::string_view given, std::string *bytes)
{
    if (of.type == datatype::text || of.type == datatype::binary) {
        *bytes = of.type == datatype::binary && of.key ? digits(given) : std::string(given);
        return true;
    }
    if (of.type == datatype::integer) {
        int32_t number = 0;
        const char *end = given.data() + given.size();
        const auto [at, error] = std::from_chars(given.data(), end, number);
        bytes->assign(reinterpret_cast<const char *>(&number), sizeof number);
        return error == std::errc() && at == end;
    }
    if (of.type == datatype::date) {
        *bytes = encoded_date(given);
        return !bytes->empty();
    }
    const std::optional<decimal> number = decimal::parse(given);
    *bytes = number ? number->encoded() : "";
    return !bytes->empty();
}

// Gives the cache the next bytes of a long value.
uint32_t read_piece(kuapp *, kulong *from, void *buffer, uint32_t, uint32_t length)
{
    const auto *pieces = static_cast<const piece_reader *>(from->data_kulong);
    return (*pieces)(buffer, length) ? 0 : 1;
}

// A heap of the C library for loading parts of long values.
tag_skuhm plain_heap(kux *ctx)
{
    tag_skuhm heap = {};
    heap.kuxp = ctx;
    heap.skuhmprivate = ctx; // anything but null
    heap.skuhmalloc_pfn = [](kux *, void *, uint32_t size) { return std::malloc(size); };
    heap.skuhmfree_pfn = [](kux *, void *, void *address) { std::free(address); };
    heap.skuhmmemcpy_pfn = [](kux *, void *, void *to, const void *from, uint32_t size) {
        std::memcpy(to, from, size);
        return uint32_t{0};
    };
    heap.skuhmgetptr_pfn = [](kux *, void *, void *old, uint32_t offset, void **address) {
        *address = static_cast<char *>(old) + offset;
        return uint32_t{0};
    };
    return heap;
}

void remove_files(bool (*leaves)(pid_t process))
{
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(scratch_directory(), error)) {
        const pid_t process = owner(entry.path().filename());
        if (process > 0 && entry.is_regular_file(error) && leaves(process))
            fs::remove(entry.path(), error); // another user's stays: it may not be removed
    }
}

bool is_high(char16_t unit) { return (unit & 0xFC00) == 0xD800; }

} // namespace

void rows::remove_leftovers()
{
    remove_files([](pid_t process) { return kill(process, 0) != 0 && errno == ESRCH; });
}

void rows::remove_own()
{
    remove_files([](pid_t process) { return process == getpid(); });
}

// No file of the library has this name: its last five digits are below 65536.
std::string rows::scratch_file() { return scratch_start() + std::string(scratch_digits, '9'); }

rows::rows(application &app, std::vector<column> columns, std::vector<group> groups, order how,
           const rows *beside)
    : app_(app), charset_(app), columns_(std::move(columns)), groups_(std::move(groups)),
      order_(how), definitions_(columns_.size() + 1), buffers_(columns_.size()), beside_(beside),
      positions_(&cache_)
{
    for (size_t at = 0; at < columns_.size(); at++) {
        kudxcoldef &definition = definitions_[at];
        definition.name_kudxcol = columns_[at].name.c_str();
        definition.xdbtyp_kudxcol = native(columns_[at]);
        definition.oknul_kudxcol = 1;
        definition.maxlen_kudxcol = longest(columns_[at]);
        buffers_[at].resize(definition.maxlen_kudxcol + 2); // a terminator may come along
        definition.curval_kudxcol = buffers_[at].data();
        pointers_.push_back(&definition);
    }
    kudxcoldef &longs = definitions_.back();
    longs.name_kudxcol = "long value";
    longs.xdbtyp_kudxcol = KUDC_RAW;
    longs.maxlen_kudxcol = INT32_MAX;
    longs.segm_kudxcol = 1;
    pointers_.push_back(&longs);
}

rows::~rows()
{
    kudcfdestroy(cache_);
    if (blocks_ != nullptr && beside_ == nullptr) skufdestroy(app_.ctx(), blocks_);
}

bool rows::create()
{
    const bool wide = columns_.size() > most_columns;
    if (wide || groups_.size() > most_groups) {
        kuxer2push(app_.ctx(), KUQAA_WIDE,
                   std::to_string(wide ? most_columns : most_groups).c_str(),
                   wide ? "columns" : "groups");
        return false;
    }
    if (order_ == order::numbered) groups_.clear();
    std::vector<kudcbvadef> keys;
    for (const group &each : groups_) {
        kudcbvadef key = {};
        key.col_kudcbva = pointers_[each.column];
        key.len_kudcbva = key.col_kudcbva->maxlen_kudxcol;
        key.sort_kudcbva = each.descending ? 0 : KUDC_ASCENDING;
        key.xdbtyp_kudcbva = key.col_kudcbva->xdbtyp_kudxcol;
        key.level_kudcbva = static_cast<uint16_t>(keys.size());
        keys.push_back(key);
    }
    kudciddtdef index = {};
    index.idxt_kudciddt = order_ == order::sorted    ? KUDC_RANDOM
                          : order_ == order::arrival ? KUDC_DYNBRK
                                                     : KUDC_SEQNTL;
    index.numlev_kudciddt = index.numbva_kudciddt = static_cast<uint16_t>(keys.size());
    index.arybva_kudciddt = keys.data();
    kudctddtdef threads[2] = {};
    threads[row_thread].numcol_kudctddt = static_cast<uint16_t>(columns_.size());
    threads[row_thread].numidd_kudctddt = keys.empty() ? 0 : 1;
    threads[row_thread].arycol_kudctddt = pointers_.data();
    threads[row_thread].aryidd_kudctddt = &index;
    threads[long_thread].numcol_kudctddt = 1;
    threads[long_thread].arycol_kudctddt = &pointers_.back();
    const bool longs = std::any_of(columns_.begin(), columns_.end(),
                                   [](const column &each) { return each.may_be_long(); });

    blocks_ = beside_ != nullptr ? beside_->blocks_ : skufcreate(app_.ctx(), cache_buffers);
    if (blocks_ == nullptr) {
        kuxer0push(app_.ctx(), KUQAA_MEMORY);
        return false;
    }
    const std::string prefix = scratch_start();
    return kudcftcreate(app_.ctx(), nullptr, blocks_, prefix.c_str(), prefix.c_str(), longs ? 2 : 1,
                        threads, &cache_)
           == 0;
}

bool rows::set(size_t at, const value &given)
{
    kudxcoldef &definition = definitions_[at];
    definition.curnul_kudxcol = given.bytes.data() == nullptr ? KUDC_NULL : 0;
    definition.curlen_kudxcol = 0;
    if (given.pieces != nullptr) return set_long(at, given);
    if (given.bytes.data() == nullptr) return true;
    std::string bytes;
    if (!encode(columns_[at], given.bytes, &bytes)) {
        kuxer3push(app_.ctx(), KUQAA_VALUE, std::string(given.bytes.substr(0, 80)).c_str(),
                   columns_[at].name.c_str(), std::to_string(count_ + 1).c_str());
        return false;
    }
    std::memcpy(definition.curval_kudxcol, bytes.data(), bytes.size());
    definition.curlen_kudxcol = static_cast<uint32_t>(bytes.size());
    return true;
}

bool rows::set_long(size_t at, const value &given)
{
    kulong handle = {read_piece, nullptr, const_cast<piece_reader *>(given.pieces)};
    kudxcoldef &longs = definitions_.back();
    longs.curval_kudxcol = &handle;
    longs.curlen_kudxcol = given.length;
    const uint16_t level = 1;
    int32_t position = 0;
    const bool stored = kudcmrstr(cache_, long_thread, &level, 1, &position) == 0;
    longs.curval_kudxcol = nullptr;
    const reference where = {longs.filpos_kudxcol, given.length};
    kudxcoldef &definition = definitions_[at];
    std::memcpy(definition.curval_kudxcol, &where, sizeof where);
    definition.curlen_kudxcol = sizeof where;
    definition.curnul_kudxcol = long_mark;
    return stored;
}

bool rows::store()
{
    const auto levels = static_cast<uint16_t>(groups_.empty() ? 1 : groups_.size());
    int32_t position = 0;
    count_++;
    return kudcmrstr(cache_, row_thread, &levels, 1, &position) == 0
           && (order_ != order::numbered || positions_.append(position));
}

bool rows::add(const std::vector<value> &row)
{
    for (size_t at = 0; at < row.size(); at++)
        if (!set(at, row[at])) return false;
    return store();
}

bool rows::add(const rows &from)
{
    for (size_t at = 0; at < columns_.size(); at++) {
        kudxcoldef &definition = definitions_[at];
        const kudxcoldef &given = from.definitions_[at];
        if (from.is_long(at)) {
            uint32_t offset = 0;
            const piece_reader reader = [&](void *to, size_t length) {
                const uint32_t start = offset;
                offset += static_cast<uint32_t>(length);
                return from.load(at, start, to, length);
            };
            value whole = {};
            whole.pieces = &reader;
            whole.length = referred(given).length;
            if (!set_long(at, whole)) return false;
            continue;
        }
        definition.curnul_kudxcol = given.curnul_kudxcol;
        definition.curlen_kudxcol = from.null(at) ? 0 : given.curlen_kudxcol;
        std::memcpy(definition.curval_kudxcol, given.curval_kudxcol, definition.curlen_kudxcol);
    }
    return store();
}

bool rows::add_key(const rows &from, size_t column, int32_t number)
{
    const key_value key = from.key(column);
    const std::string_view values[] = {key.bytes,
                                       {reinterpret_cast<const char *>(&number), sizeof number}};
    for (size_t at = 0; at < std::size(values); at++) {
        std::memcpy(definitions_[at].curval_kudxcol, values[at].data(), values[at].size());
        definitions_[at].curlen_kudxcol = static_cast<uint32_t>(values[at].size());
    }
    definitions_[0].curnul_kudxcol = key.null ? KUDC_NULL : 0;
    return store();
}

bool rows::load(uint64_t number)
{
    int32_t position = 0;
    kudccurdef *cursor = nullptr;
    uint8_t found = KUDC_NOROW;
    const bool read = positions_.at(number, &position)
                      && kudcfnwcurs(cache_, nullptr, row_thread, -1, 1, position, &cursor) == 0
                      && kudcmrnxt(cache_, cursor, 0, &found) == 0;
    kudcffrcurs(cache_, cursor);
    return read && found == KUDC_ROW;
}

bool rows::read(const std::function<following(size_t level)> &visit)
{
    const bool indexed = !groups_.empty();
    const auto last = static_cast<uint8_t>(indexed ? groups_.size() - 1 : 0);
    uint32_t status = kudcfnwcurs(cache_, nullptr, row_thread,
                                  static_cast<int16_t>(indexed ? 0 : -1), 0, 0, &cursor_);
    int32_t state = KUDC_POSITIONED;
    if (status == 0 && indexed) status = kudcmksrch(cache_, cursor_, 0, KUDC_FIRST, &state);
    size_t level = 0; // the first whose group is new
    following next = following::row;
    while (next != following::nothing && status == 0 && state == KUDC_POSITIONED) {
        uint8_t found = KUDC_ROW;
        for (next = following::row; next == following::row; level = groups_.size()) {
            status = kudcmrnxt(cache_, cursor_, last, &found);
            if (status != 0 || found != KUDC_ROW) break;
            next = visit(level);
        }
        state = KUDC_NOMORE;
        for (level = groups_.size();
             next != following::nothing && status == 0 && state != KUDC_POSITIONED && level > 0;)
            status = kudcmksrch(cache_, cursor_, static_cast<uint16_t>(--level), KUDC_NEXT, &state);
    }
    kudcffrcurs(cache_, cursor_);
    cursor_ = nullptr;
    return status == 0;
}

uint64_t rows::group_rows() const { return static_cast<uint64_t>(cursor_->curleft_kudccur); }

bool rows::is_long(size_t column) const { return definitions_[column].curnul_kudxcol == long_mark; }

std::string rows::stored(size_t column) const
{
    const kudxcoldef &definition = definitions_[column];
    return std::string(static_cast<const char *>(definition.curval_kudxcol),
                       definition.curlen_kudxcol);
}

int32_t rows::number(size_t column) const
{
    int32_t number = 0;
    std::memcpy(&number, definitions_[column].curval_kudxcol, sizeof number);
    return number;
}

key_value rows::key(size_t column) const
{
    const bool binary = columns_[column].type == datatype::binary;
    if (null(column)) return {};
    if (!binary && !is_long(column)) return {false, stored(column)};
    key_value result = {false};
    text(column, binary ? size_t{short_bytes} : key_units, &result.bytes);
    if (is_long(column)) result.bytes.resize(result.bytes.size() - cut_mark.size());
    return result;
}

bool rows::typed_key(size_t column, const std::string &text, key_value *result) const
{
    result->null = false;
    if (columns_[column].type == datatype::binary) { // typed as it is shown
        result->bytes = text;
        return true;
    }
    return encode(columns_[column], text, &result->bytes);
}

int rows::compare(const group &by, const key_value &a, const key_value &b) const
{
    const datatype type = columns_[by.column].type;
    kudcbvadef value = {};
    value.col_kudcbva = pointers_[by.column];
    value.sort_kudcbva = by.descending ? 0 : KUDC_ASCENDING;
    value.xdbtyp_kudcbva = type == datatype::binary ? KUDC_CHARACTER : native(columns_[by.column]);
    kudckeydef key = {};
    key.numbva_kudckey = key.numlevsize_kudckey = 1;
    key.arybva_kudckey = &value;
    const auto take = [&value](const key_value &from) {
        value.val_kudcbva =
            reinterpret_cast<unsigned char *>(const_cast<char *>(from.bytes.c_str()));
        value.len_kudcbva = static_cast<uint32_t>(from.bytes.size());
        value.valnul_kudcbva = from.null ? KUDC_NULL : 0;
    };
    take(b);
    uint32_t size = 0;
    kudckpsflk(&key, 0, &size);
    std::vector<unsigned char> flat(size);
    kudckcflkval(cache_, &key, 0, flat.data());
    take(a);
    int16_t condition = 0;
    kudckcmp(cache_, &key, 0, 1, flat.data(), &condition);
    return condition;
}

std::string rows::bytes(size_t column) const
{
    const datatype type = columns_[column].type;
    if (type != datatype::text && type != datatype::binary) return stored(column);
    std::string whole;
    text(column, SIZE_MAX, &whole);
    return whole;
}

bool rows::text(size_t column, size_t most, std::string *result) const
{
    result->clear();
    return show(column, most, [result](std::string_view piece) {
        *result += piece;
        return true;
    });
}

bool rows::show(size_t column, size_t most, const piece_visitor &visit) const
{
    if (null(column)) return true;
    if (is_long(column)) return show_long(column, most, visit);
    std::string shown = stored(column);
    switch (columns_[column].type) {
    case datatype::number: return visit(decimal::decoded(shown));
    case datatype::date: return visit(decoded_date(shown));
    case datatype::integer: {
        int32_t number = 0;
        std::memcpy(&number, shown.data(), sizeof number);
        return visit(std::to_string(number));
    }
    case datatype::binary:
        if (!columns_[column].key) shown = digits(shown);
        break;
    default: break;
    }
    if (shown.size() <= most) return visit(shown); // so are its characters
    std::u16string units = charset_.to_utf16(shown);
    if (units.size() <= most) return visit(shown);
    units.resize(most - (is_high(units[most - 1]) ? 1 : 0));
    return visit(charset_.from_utf16(units).append(cut_mark));
}

bool rows::load(size_t column, uint32_t offset, void *to, size_t length) const
{
    const reference where = referred(definitions_[column]);
    kudccdsdef source = {};
    source.cachep_kudccds = cache_;
    source.colh_kudccds = const_cast<kudxcoldef *>(&definitions_.back()); // it is not changed
    source.filpos_kudccds = where.position;
    source.curlen_kudccds = where.length;
    tag_skuhm heap = plain_heap(app_.ctx());
    return skudcdoleload(&source, &heap, to, offset, static_cast<uint32_t>(length)) == 0;
}

bool rows::show_long(size_t column, size_t most, const piece_visitor &visit) const
{
    const reference where = referred(definitions_[column]);
    const bool binary = columns_[column].type == datatype::binary;
    const uint64_t wanted = binary ? most / 2 : most > UINT32_MAX / 2 ? UINT32_MAX : most * 2;
    const auto length = static_cast<uint32_t>(std::min<uint64_t>(where.length, wanted));
    std::string piece;
    for (uint32_t offset = 0; offset < length; offset += static_cast<uint32_t>(piece.size())) {
        piece.resize(std::min<size_t>(piece_bytes, length - offset));
        if (!load(column, offset, piece.data(), piece.size())) return false;
        if (binary) {
            if (!visit(digits(piece))) return false;
            continue;
        }
        std::u16string units(piece.size() / sizeof(char16_t), u'\0');
        std::memcpy(units.data(), piece.data(), units.size() * sizeof(char16_t));
        if (units.size() > 1 && is_high(units.back())) { // the next piece has all of it
            units.pop_back();
            piece.resize(units.size() * sizeof(char16_t));
        } else if (units.size() == 1 && is_high(units[0]) && length < where.length) {
            break; // half of one is not shown
        }
        if (!visit(charset_.from_utf16(units))) return false;
    }
    return length == where.length || visit(cut_mark);
}

} // namespace kuq
