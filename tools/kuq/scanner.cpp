// scanner.cpp - lines of SQL through the lexer, its state carried from line to line

#include "scanner.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "codes.h"
#include "places.h"

namespace kuq
{
namespace
{

// Stores every token and goes on, so that erroneous text does not end the analysis.
uint8_t keep_all(void *, const unsigned char *, uint32_t, uint32_t, uint32_t *)
{
    return KUKP_A_KEEP;
}

// Counts the characters between two places of a line.
uint64_t characters(kux *ctx, const char *from, uint32_t bytes)
{
    uint32_t count = 0;
    // A length of 65535 would mean "to the NUL": count such a stretch in two pieces.
    if (bytes == KU_NTS) return characters(ctx, from, bytes - 1) + 1;
    lizmllen(ctx->kuxlangidh, &ctx->kuxlocglo, from, bytes, 2, &count);
    return count;
}

} // namespace

source::source(application &app, const std::string &name)
    : app_(app), name_(find_file(app, name)),
      file_(name_ == "-" ? stdin : std::fopen(name_.c_str(), "re"))
{
    if (name_.empty()) return; // the reason was pushed
    // A directory opens, and its first read fails: said here rather than there.
    if (file_ != nullptr) {
        const int first = std::getc(file_);
        if (first != EOF) std::ungetc(first, file_);
        if (std::ferror(file_) != 0) close(errno);
    }
    if (file_ == nullptr) kuxer2push(app.ctx(), KUQAA_OPEN, name_.c_str(), std::strerror(errno));
}

source::~source()
{
    std::free(buffer_);
    close(0);
}

void source::close(int error)
{
    if (file_ != nullptr && file_ != stdin) std::fclose(file_);
    file_ = nullptr;
    errno = error;
}

bool source::next(std::string *line)
{
    const ssize_t length = getline(&buffer_, &size_, file_);
    if (length > 0) {
        line->assign(buffer_, static_cast<size_t>(length));
        return true;
    }
    if (std::ferror(file_) != 0) {
        failed_ = true;
        kuxer2push(app_.ctx(), KUQAA_READ, name_.c_str(), std::strerror(errno));
    } else if (std::feof(file_) == 0) { // no room for the line
        failed_ = true;
        kuxer0push(app_.ctx(), KUQAA_MEMORY);
    }
    return false;
}

scanner::scanner(application &app, uint32_t server, bool hints)
    : ctx_(app.ctx()), server_(server), hints_(hints)
{
}

bool scanner::scan(const std::string &line, const visitor &visit)
{
    line_++;
    column_ = 1;
    // A NUL ends a text for the lexer: the line is analysed in the pieces between them.
    for (size_t start = 0; start < line.size();) {
        const size_t length = std::strlen(line.c_str() + start);
        if (!scan_piece(line.c_str() + start, static_cast<uint32_t>(start), visit)) return false;
        start += length + 1;
    }
    offset_ += line.size();
    return true;
}

// Where a token's bytes lie in its text. In a shift-sensitive set its offset is behind
// the shift-out byte and its length that of the token standing alone: the shift bytes
// around it are the token's here, as far as they are there and no other token's.
scanner::extent scanner::extent_of(void *tokens, int32_t index, const char *text, uint32_t passed,
                                   uint32_t next) const
{
    uint32_t offset = 0;
    uint32_t length = 0;
    kukonget(ctx_, tokens, index, nullptr, &offset, &length, nullptr);
    const kulang &lang = *ctx_->kuxlangidh;
    if (lang.shiftsensitive_kulang == 0) return {offset, offset + length};
    const auto shift = [&](uint32_t at) {
        return static_cast<unsigned char>(text[at]) == lang.shiftout_kulang;
    };
    const uint32_t end =
        std::min(offset + length, next > offset && shift(next - 1) ? next - 1 : next);
    return {offset > passed && shift(offset - 1) ? offset - 1 : offset, std::max(end, offset)};
}

bool scanner::scan_piece(const char *text, uint32_t start, const visitor &visit)
{
    kuka attrs = {};
    attrs.mask_kuka =
        KUKA_TEXT | KUKA_WEIGHT | KUKA_MODE | KUKA_CALLBACK | KUKA_STATE | KUKA_SERVER;
    attrs.origtxp_kuka = text;
    attrs.weight_kuka = 1;
    attrs.mode_kuka = KUKP_M_KEYWORDS;
    attrs.cfunp_kuka = keep_all;
    attrs.state_kuka = state_;
    attrs.srvrtype_kuka = server_;
    void *tokens = kukacreate(ctx_, &attrs);
    if (tokens == nullptr) return false;
    state_ = kukosgstate(ctx_, tokens);
    if (hints_) kukphint(ctx_, tokens);

    uint32_t counted = 0; // bytes of the piece that column_ has counted
    uint32_t passed = 0;  // bytes of the piece that tokens before covered
    const int32_t count = kukosgnumtokens(ctx_, tokens);
    const auto length = static_cast<uint32_t>(std::strlen(text));
    for (int32_t index = 0; index < count; index++) {
        const uint32_t next = index + 1 < count ? kukongoffset(ctx_, tokens, index + 1) : length;
        const extent place = extent_of(tokens, index, text, passed, next);
        column_ += characters(ctx_, text + counted, place.begin - counted);
        counted = place.begin;
        passed = place.end;
        const kukn *hint = kukonghint(ctx_, tokens, index);
        const std::string_view hint_text =
            hint == nullptr ? "" : std::string_view(text + hint->offset_kukn, hint->length_kukn);
        visit({kukongtype(ctx_, tokens, index), line_, column_, offset_ + start + place.begin,
               start + place.begin, std::string_view(text + place.begin, place.end - place.begin),
               hint_text});
    }
    column_ += characters(ctx_, text + counted, length - counted) + 1; // and the NUL behind it
    kukpdestroy(ctx_, tokens);
    return true;
}

const char *type_name(uint32_t type)
{
    switch (type) {
    case KUKP_T_ERROR: return "error";
    case KUKP_T_COMMENT: return "comment";
    case KUKP_T_COMMENTOPEN: return "comment, open";
    case KUKP_T_LINE: return "line comment";
    case KUKP_T_STRING: return "string";
    case KUKP_T_STRINGOPEN: return "string, open";
    case KUKP_T_LABEL: return "label";
    case KUKP_T_LABELOPEN: return "label, open";
    case KUKP_T_IDENTIFIER: return "quoted name";
    case KUKP_T_IDENTIFIEROPEN: return "quoted name, open";
    case KUKP_T_WORD: return "name";
    case KUKP_T_NUMBER: return "number";
    case KUKP_T_HINT: return "hint";
    case KUKP_T_LINEHINT: return "line hint";
    case KUKA_T_RIGHTOUTER:
    case KUKA_T_LEFTOUTER: return "operator";
    default: break;
    }
    return type >= KUKP_T_OUTER && type <= KUKP_T_AMPERSAND ? "operator" : "keyword";
}

uint32_t server_of(const std::string &dialect)
{
    if (dialect == "sqlserver") return KUKA_SERVER_SS;
    if (dialect == "db2") return KUKA_SERVER_DB2;
    return KUKA_SERVER_NONE;
}

} // namespace kuq
