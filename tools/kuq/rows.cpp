// rows.cpp - between text and the cache's datatypes, and the walk over groups
//
// The scratch files are named kuq-PROCESS-nnnnnnnn in the temporary directory. One
// whose process is gone was left by a run that was killed.

#include "rows.h"

#include <kudcf.h>
#include <kudcm.h>
#include <signal.h>
#include <unistd.h>

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

constexpr uint16_t cache_buffers = 15;
constexpr uint32_t number_bytes = 21;
constexpr uint32_t integer_bytes = 4;
constexpr uint32_t date_bytes = 5;
constexpr char scratch_prefix[] = "kuq-";
constexpr size_t scratch_digits = 8; // behind the process

fs::path scratch_directory() { return std::getenv("TMP"); } // the application has set it

// In front of the digits.
std::string scratch_start()
{
    return (scratch_directory() / (scratch_prefix + std::to_string(getpid()) + "-")).string();
}

uint8_t native(datatype type)
{
    switch (type) {
    case datatype::integer: return KUDC_INTEGER;
    case datatype::number: return KUDC_NUMBER;
    case datatype::date: return KUDC_DATE;
    default: return KUDC_CHARACTER;
    }
}

uint32_t longest(const column &of)
{
    switch (of.type) {
    case datatype::integer: return integer_bytes;
    case datatype::number: return number_bytes;
    case datatype::date: return date_bytes;
    default: return of.longest;
    }
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
bool encode(datatype type, value given, std::string *bytes)
{
    if (type == datatype::text) {
        bytes->assign(given);
        return true;
    }
    if (type == datatype::integer) {
        int32_t number = 0;
        const char *end = given.data() + given.size();
        const auto [at, error] = std::from_chars(given.data(), end, number);
        bytes->assign(reinterpret_cast<const char *>(&number), sizeof number);
        return error == std::errc() && at == end;
    }
    if (type == datatype::date) {
        *bytes = encoded_date(given);
        return !bytes->empty();
    }
    const std::optional<decimal> number = decimal::parse(given);
    *bytes = number ? number->encoded() : "";
    return !bytes->empty();
}

} // namespace

void rows::remove_leftovers()
{
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(scratch_directory(), error)) {
        const pid_t process = owner(entry.path().filename());
        if (process > 0 && entry.is_regular_file(error) && kill(process, 0) != 0 && errno == ESRCH)
            fs::remove(entry.path(), error); // another user's stays: it may not be removed
    }
}

// No file of the library has this name: its last five digits are below 65536.
std::string rows::scratch_file() { return scratch_start() + std::string(scratch_digits, '9'); }

rows::rows(application &app, std::vector<column> columns, std::vector<group> groups, bool sorted)
    : app_(app), columns_(std::move(columns)), groups_(std::move(groups)), sorted_(sorted),
      definitions_(columns_.size()), buffers_(columns_.size())
{
    for (size_t at = 0; at < columns_.size(); at++) {
        kudxcoldef &definition = definitions_[at];
        definition.name_kudxcol = columns_[at].name.c_str();
        definition.xdbtyp_kudxcol = native(columns_[at].type);
        definition.oknul_kudxcol = 1;
        definition.maxlen_kudxcol = longest(columns_[at]);
        buffers_[at].resize(definition.maxlen_kudxcol + 2); // a terminator may come along
        definition.curval_kudxcol = buffers_[at].data();
        pointers_.push_back(&definition);
    }
}

rows::~rows()
{
    kudcfdestroy(cache_);
    if (blocks_ != nullptr) skufdestroy(app_.ctx(), blocks_);
}

bool rows::create()
{
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
    index.idxt_kudciddt = sorted_ ? KUDC_RANDOM : KUDC_DYNBRK;
    index.numlev_kudciddt = index.numbva_kudciddt = static_cast<uint16_t>(keys.size());
    index.arybva_kudciddt = keys.data();
    kudctddtdef thread = {};
    thread.numcol_kudctddt = static_cast<uint16_t>(columns_.size());
    thread.numidd_kudctddt = keys.empty() ? 0 : 1;
    thread.arycol_kudctddt = pointers_.data();
    thread.aryidd_kudctddt = &index;

    blocks_ = skufcreate(app_.ctx(), cache_buffers);
    if (blocks_ == nullptr) {
        kuxer0push(app_.ctx(), KUQAA_MEMORY);
        return false;
    }
    const std::string prefix = scratch_start();
    return kudcftcreate(app_.ctx(), nullptr, blocks_, prefix.c_str(), prefix.c_str(), 1, &thread,
                        &cache_)
           == 0;
}

bool rows::set(size_t at, value given)
{
    kudxcoldef &definition = definitions_[at];
    definition.curnul_kudxcol = given.data() == nullptr ? KUDC_NULL : 0;
    definition.curlen_kudxcol = 0;
    if (given.data() == nullptr) return true;
    std::string bytes;
    if (!encode(columns_[at].type, given, &bytes)) {
        kuxer3push(app_.ctx(), KUQAA_VALUE, std::string(given.substr(0, 80)).c_str(),
                   columns_[at].name.c_str(), std::to_string(count_ + 1).c_str());
        return false;
    }
    std::memcpy(definition.curval_kudxcol, bytes.data(), bytes.size());
    definition.curlen_kudxcol = static_cast<uint32_t>(bytes.size());
    return true;
}

bool rows::add(const std::vector<value> &row)
{
    for (size_t at = 0; at < row.size(); at++)
        if (!set(at, row[at])) return false;
    const auto levels = static_cast<uint16_t>(groups_.empty() ? 1 : groups_.size());
    int32_t position = 0;
    count_++;
    return kudcmrstr(cache_, 0, &levels, 1, &position) == 0;
}

bool rows::read(const std::function<bool(size_t level)> &visit)
{
    const bool indexed = !groups_.empty();
    const auto last = static_cast<uint8_t>(indexed ? groups_.size() - 1 : 0);
    kudccurdef *cursor = nullptr;
    uint32_t status =
        kudcfnwcurs(cache_, nullptr, 0, static_cast<int16_t>(indexed ? 0 : -1), 0, 0, &cursor);
    int32_t state = KUDC_POSITIONED;
    if (status == 0 && indexed) status = kudcmksrch(cache_, cursor, 0, KUDC_FIRST, &state);
    size_t level = 0; // the first whose group is new
    bool on = true;
    while (on && status == 0 && state == KUDC_POSITIONED) {
        uint8_t found = KUDC_ROW;
        for (; on; level = groups_.size()) {
            status = kudcmrnxt(cache_, cursor, last, &found);
            if (status != 0 || found != KUDC_ROW) break;
            on = visit(level);
        }
        state = KUDC_NOMORE;
        for (level = groups_.size(); on && status == 0 && state != KUDC_POSITIONED && level > 0;)
            status = kudcmksrch(cache_, cursor, static_cast<uint16_t>(--level), KUDC_NEXT, &state);
    }
    if (status == 0) kudcffrcurs(cache_, cursor);
    return status == 0;
}

std::string rows::bytes(size_t column) const
{
    const kudxcoldef &definition = definitions_[column];
    return std::string(static_cast<const char *>(definition.curval_kudxcol),
                       definition.curlen_kudxcol);
}

std::string rows::text(size_t column) const
{
    if (null(column)) return "";
    std::string stored = bytes(column);
    switch (columns_[column].type) {
    case datatype::number: return decimal::decoded(stored);
    case datatype::date: return decoded_date(stored);
    case datatype::integer: {
        int32_t number = 0;
        std::memcpy(&number, stored.data(), sizeof number);
        return std::to_string(number);
    }
    default: return stored;
    }
}

} // namespace kuq
