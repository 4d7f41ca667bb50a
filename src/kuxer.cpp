// kuxer.cpp - error stack: levels of records, and how a record becomes text
//
//     kuxerstacks  | level 0 | level 1 | ... |   the last in use is the current one
//                                  |
//                      records  | 0 oldest | 1 | ... | n-1 newest |   kuxersize slots
//
// A record is always added, whatever memory there is: without any it has no
// parameters, and on a full level the oldest one makes room. Parameters are
// copied before anything is dropped, since a caller may push what it has just
// read from the stack.
//
// A record becomes text in three tries: the message of its code, the generic
// message around the plain text, the plain text. Each try works on a length of
// its own, so that one that fails leaves no trace in the caller's.

#include "kuxer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kuguard.h"
#include "kuxbm.h"
#include "kuxid.h"
#include "port/locale/locale.h"
#include "port/msgfile/msgfile.h"
#include "skub.h"

namespace locale = ku::locale;
namespace msgfile = ku::msgfile;

namespace
{

constexpr int32_t kuxer_defaultsize = 5;   // records of a level
constexpr int32_t kuxer_firstlevels = 10;  // levels the array has room for at first
constexpr char kuxer_null[] = "(null)";    // stands for a null parameter
constexpr uint32_t kuxer_namesize = 9;     // five letters, three digits, NUL
constexpr uint32_t kuxer_plainmin = 10;    // smallest buffer for letters and number
constexpr uint32_t kuxer_linesize = 80;    // bytes of a line for the standard-error stream
constexpr char kuxer_node[] = "KUXERROOT"; // node that a message is read under

// ---- records and levels ----

kuxes *kuxercurrent(kux *ctx)
{
    return ctx->kuxernstacks < 1 ? nullptr : ctx->kuxerstacks[ctx->kuxernstacks - 1];
}

kuxer *kuxernewest(kux *ctx)
{
    kuxes *level = kuxercurrent(ctx);
    if (level == nullptr || level->nerrors_kuxes == 0) return nullptr;
    return &level->errors_kuxes[level->nerrors_kuxes - 1];
}

void kuxerrelease(kuxer *record)
{
    for (int32_t slot = 0; slot < record->kuxernparams; slot++)
        kuxbmfree(record->kuxerparams[slot]);
    kuxbmfree(record->kuxerparams);
    *record = {};
}

char *kuxercopytext(const char *text)
{
    const size_t length = std::strlen(text);
    if (length >= UINT32_MAX) return nullptr;
    char *copy = static_cast<char *>(kuxbmalloc(static_cast<uint32_t>(length + 1)));
    if (copy != nullptr) std::memcpy(copy, text, length + 1);
    return copy;
}

// A record with copies of as many parameters as memory allows.
kuxer kuxermake(uint32_t code, int32_t nparams, const char *const *params)
{
    kuxer record = {code, 0, nullptr};
    if (nparams < 1 || params == nullptr) return record;

    const uint64_t bytes = static_cast<uint64_t>(nparams) * sizeof(char *);
    if (bytes > UINT32_MAX) return record;
    record.kuxerparams = static_cast<char **>(kuxbmalloc(static_cast<uint32_t>(bytes)));
    if (record.kuxerparams == nullptr) return record;
    while (record.kuxernparams < nparams) {
        const char *param = params[record.kuxernparams];
        char *copy = kuxercopytext(param == nullptr ? kuxer_null : param);
        if (copy == nullptr) break;
        record.kuxerparams[record.kuxernparams++] = copy;
    }
    if (record.kuxernparams == 0)
        record.kuxerparams = static_cast<char **>(kuxbmfree(record.kuxerparams));
    return record;
}

// A level, and what tells it from one made later at the same address.
struct kuxerlevel {
    kuxes level;
    uint32_t serial; // of the levels of a context, from 0
    uint32_t made;   // in the first level: how many were made after it
};

uint32_t kuxerserial(const kuxes *level)
{
    return reinterpret_cast<const kuxerlevel *>(level)->serial;
}

void kuxerfreelevel(kuxes *level)
{
    if (level == nullptr) return;
    for (int32_t slot = 0; slot < level->nerrors_kuxes; slot++)
        kuxerrelease(&level->errors_kuxes[slot]);
    kuxbmfree(level->errors_kuxes);
    kuxbmfree(level);
}

kuxes *kuxermakelevel(kux *ctx)
{
    const uint64_t bytes = static_cast<uint64_t>(ctx->kuxersize) * sizeof(kuxer);
    if (bytes > UINT32_MAX) return nullptr;
    auto *made = static_cast<kuxerlevel *>(kuxbmalloc(sizeof(kuxerlevel)));
    if (made == nullptr) return nullptr;
    made->level.errors_kuxes = static_cast<kuxer *>(kuxbmalloc(static_cast<uint32_t>(bytes)));
    if (made->level.errors_kuxes == nullptr) {
        kuxbmfree(made);
        return nullptr;
    }
    if (ctx->kuxernstacks > 0)
        made->serial = ++reinterpret_cast<kuxerlevel *>(ctx->kuxerstacks[0])->made;
    return &made->level;
}

bool kuxergrowlevels(kux *ctx)
{
    if (ctx->kuxernstacks < ctx->kuxermaxstacks) return true;
    const uint64_t levels = static_cast<uint64_t>(ctx->kuxermaxstacks) * 2;
    if (levels * sizeof(kuxes *) > UINT32_MAX) return false;
    void *grown = std::realloc(ctx->kuxerstacks, static_cast<size_t>(levels * sizeof(kuxes *)));
    if (grown == nullptr) return false;
    ctx->kuxerstacks = static_cast<kuxes **>(grown);
    ctx->kuxermaxstacks = static_cast<int32_t>(levels);
    return true;
}

// ---- message texts ----

enum class outcome { found, cut, failed };

// The steps of the message file library from a file to a fetched text.
outcome kuxerfetch(msgfile::tree *tree, const msgfile::file &file, const char *name,
                   const char *type, char *buffer, uint32_t *length)
{
    if (msgfile::read_resource(file, name, type, tree, kuxer_node) != 0) return outcome::failed;
    const msgfile::node *node = msgfile::find_node(tree, kuxer_node);
    if (node == nullptr) return outcome::failed;

    int32_t available = 0;
    if (msgfile::text_length(node, type, &available) != 0 || available <= 0) return outcome::failed;
    const bool cut = static_cast<uint32_t>(available) > *length;
    const uint32_t most = cut ? *length : static_cast<uint32_t>(available);
    uint32_t fetched = 0;
    if (msgfile::fetch_text(node, type, most, buffer, &fetched, nullptr) != 0)
        return outcome::failed;
    *length = fetched;
    buffer[fetched] = '\0';
    return cut ? outcome::cut : outcome::found;
}

outcome kuxerlookup(kux *ctx, const char *name, const char *type, char *buffer, uint32_t *length)
{
    if (ctx->kuxuiapp == nullptr) return outcome::failed;
    const msgfile::file file = msgfile::find_file(ctx->kuxuiapp, name, type);
    if (!file) return outcome::failed;
    msgfile::tree *tree = msgfile::create_tree();
    if (tree == nullptr) return outcome::failed;
    const outcome result = kuxerfetch(tree, file, name, type, buffer, length);
    msgfile::release_tree(tree);
    return result;
}

void kuxerreport(kux *ctx, kuxer *record, void *)
{
    char line[kuxer_linesize + 2] = {};
    int32_t truncated = 0;
    kuxerdformat(ctx, record, line, kuxer_linesize, &truncated);
    locale::concatenate(*ctx->kuxlangidh, line, "\n");
    skubsput(ctx, ctx->kuxstderr, line);
    skubflush(ctx, ctx->kuxstderr);
}

// kuxergmsg, telling whether a level of its own could be had: when not, saving
// has pushed on the caller's level and may have dropped its oldest record.
bool kuxergettext(kux *ctx, uint32_t code, const char *type, char *buffer, uint32_t *length,
                  int32_t *truncated)
{
    *truncated = 0;
    if (kuxersavestack(ctx) != 0) {
        *length = 0;
        return false;
    }
    char name[kuxer_namesize] = {};
    const unsigned number = kuxiddecode(code, name);
    std::snprintf(name + 5, sizeof name - 5, "%u", number);

    const outcome result = kuxerlookup(ctx, name, type, buffer, length);
    if (result == outcome::cut) *truncated = 1;
    if (result == outcome::failed) {
        kuxeriterate(ctx, kuxerreport, nullptr);
        *length = 0;
    }
    kuxerrestorestack(ctx);
    return true;
}

// ---- messages with parameters ----

// The parameter that the directive at the cursor asks for, the cursor behind the
// directive; -1 when it is none. `next` counts the plain "%s".
int32_t kuxerdirective(kucursor &source, int32_t *next)
{
    locale::step(source); // the percent sign
    if (!locale::is_single(source)) return -1;
    if (locale::current(source) == 's') {
        locale::step(source);
        return (*next)++;
    }
    if (locale::current(source) != '[') return -1;
    locale::step(source);
    if (!locale::is_single(source)) return -1;

    const char *digits = reinterpret_cast<const char *>(source.position_kucursor);
    uint32_t number = 0;
    size_t used = 0;
    if (!locale::text_to_number(digits, &number, &used)) return -1;
    if (number < 1 || number > INT32_MAX) return -1;
    if (digits[used] != ']' || digits[used + 1] != 's') return -1;
    for (size_t characters = used + 2; characters > 0; characters--) locale::step(source);
    return static_cast<int32_t>(number - 1);
}

// Puts the parameters of `record` into a message text. False when the text is not a
// valid format or its own characters do not fit; *length then keeps its value.
bool kuxerfill(kux *ctx, const kuxer &record, char *text, char *buffer, uint32_t *length)
{
    kucursor source;
    kucursor target;
    locale::open(&source, text, KU_NTS, ctx->kuxlangidh, &ctx->kuxlocglo,
                 locale::cursor_mode::read);
    locale::open_exact(&target, buffer, *length, ctx->kuxlangidh, locale::cursor_mode::write);

    uint32_t written = 0;
    int32_t next = 0;
    while (locale::current(source) != 0) {
        const uint32_t room = *length - written;
        if (!locale::is_single(source) || locale::current(source) != '%') {
            const uint32_t bytes = locale::copy_character(target, source, room);
            if (bytes == 0) return false;
            written += bytes;
            continue;
        }
        const int32_t index = kuxerdirective(source, &next);
        if (index < 0 || index >= record.kuxernparams) return false;
        written += locale::copy_text(target, record.kuxerparams[index], room);
    }
    *length = written;
    buffer[written + locale::close_shift(target)] = '\0';
    return true;
}

enum class attempt { done, no_message, no_level };

// The message of the record's code with its parameters.
attempt kuxertry(kux *ctx, const kuxer &record, const char *type, char *buffer, uint32_t *length,
                 int32_t *truncated)
{
    char text[KUXER_TEXTMAX + 1] = {};
    uint32_t textlength = KUXER_TEXTMAX;
    const bool level = kuxergettext(ctx, record.kuxercode, type, text, &textlength, truncated);
    if (!level) return attempt::no_level;
    if (textlength == 0) return attempt::no_message;
    return kuxerfill(ctx, record, text, buffer, length) ? attempt::done : attempt::no_message;
}

// The generic message around the plain text of the record.
attempt kuxertrygeneric(kux *ctx, kuxer *record, const char *type, char *buffer, uint32_t *length,
                        int32_t *truncated)
{
    char plain[KUXER_TEXTMAX + 1] = {};
    int32_t cut = 0;
    kuxerformat(ctx, record, plain, KUXER_TEXTMAX, &cut);
    char *params[] = {plain};
    return kuxertry(ctx, {KUXER_GENERIC, 1, params}, type, buffer, length, truncated);
}

// Appends at most `room` bytes of a text and says where the text ends now.
char *kuxerappend(char *end, const char *text, size_t length, int64_t room)
{
    const size_t bytes = std::min(length, static_cast<size_t>(room));
    std::memcpy(end, text, bytes);
    return end + bytes;
}

} // namespace

void kuxerpush(kux *ctx, uint32_t code, int32_t nparams, const char *const *params)
{
    kuxes *level = kuxercurrent(ctx);
    if (level == nullptr) return;
    const kuxer record = kuxermake(code, nparams, params);
    if (level->nerrors_kuxes >= ctx->kuxersize) {
        kuxer *errors = level->errors_kuxes;
        kuxerrelease(&errors[0]);
        const size_t staying = static_cast<size_t>(level->nerrors_kuxes) - 1;
        std::memmove(&errors[0], &errors[1], staying * sizeof(kuxer));
        level->nerrors_kuxes--;
    }
    level->errors_kuxes[level->nerrors_kuxes++] = record;
}

void kuxer0push(kux *ctx, uint32_t code) { kuxerpush(ctx, code, 0, nullptr); }

void kuxer1push(kux *ctx, uint32_t code, const char *text1) { kuxerpush(ctx, code, 1, &text1); }

void kuxer2push(kux *ctx, uint32_t code, const char *text1, const char *text2)
{
    const char *const params[] = {text1, text2};
    kuxerpush(ctx, code, 2, params);
}

void kuxer3push(kux *ctx, uint32_t code, const char *text1, const char *text2, const char *text3)
{
    const char *const params[] = {text1, text2, text3};
    kuxerpush(ctx, code, 3, params);
}

void kuxer4push(kux *ctx, uint32_t code, const char *text1, const char *text2, const char *text3,
                const char *text4)
{
    const char *const params[] = {text1, text2, text3, text4};
    kuxerpush(ctx, code, 4, params);
}

void kuxerset(kux *ctx, uint32_t code, int32_t nparams, const char *const *params)
{
    kuxes *level = kuxercurrent(ctx);
    if (level == nullptr) return;
    const kuxer record = kuxermake(code, nparams, params);
    kuxerclear(ctx);
    level->errors_kuxes[level->nerrors_kuxes++] = record;
}

void kuxerclear(kux *ctx)
{
    kuxes *level = kuxercurrent(ctx);
    if (level == nullptr) return;
    while (level->nerrors_kuxes > 0) kuxerrelease(&level->errors_kuxes[--level->nerrors_kuxes]);
}

void kuxerpop(kux *ctx)
{
    kuxer *newest = kuxernewest(ctx);
    if (newest == nullptr) return;
    kuxerrelease(newest);
    kuxercurrent(ctx)->nerrors_kuxes--;
}

int32_t kuxernerrors(kux *ctx)
{
    const kuxes *level = kuxercurrent(ctx);
    return level == nullptr ? 0 : level->nerrors_kuxes;
}

kuxer *kuxerget(kux *ctx, int32_t index)
{
    if (index < 0 || index >= kuxernerrors(ctx)) return kuxernewest(ctx);
    return &kuxercurrent(ctx)->errors_kuxes[index];
}

uint32_t kuxercode(kux *ctx)
{
    const kuxer *newest = kuxernewest(ctx);
    return newest == nullptr ? 0 : newest->kuxercode;
}

uint32_t kuxerformat(kux *ctx, kuxer *record, char *buffer, uint32_t size, int32_t *truncated)
{
    int32_t unwanted = 0;
    const kuxerformatfn formatter = ctx->kuxerformat != nullptr ? ctx->kuxerformat : kuxerdformat;
    return formatter(ctx, record, buffer, size, truncated != nullptr ? truncated : &unwanted);
}

uint32_t kuxerdformat(kux *, kuxer *record, char *buffer, uint32_t size, int32_t *truncated)
{
    int32_t unwanted = 0;
    if (truncated == nullptr) truncated = &unwanted;
    *truncated = 1;
    if (size < kuxer_plainmin || record == nullptr) return 0;

    const unsigned number = kuxiddecode(record->kuxercode, buffer);
    char *end = buffer + 5;
    *end++ = ' ';
    end = std::to_chars(end, buffer + kuxer_plainmin, number).ptr;
    int64_t room = static_cast<int64_t>(size) - (end - buffer + 1);
    for (int32_t index = 0; index < record->kuxernparams && room >= 0; index++) {
        end = kuxerappend(end, index == 0 ? "  " : ", ", 2, room);
        room -= 2;
        if (room < 0) break;
        const char *param = record->kuxerparams[index];
        const size_t length = std::strlen(param);
        end = kuxerappend(end, param, length, room);
        room -= static_cast<int64_t>(length);
    }
    *end = '\0';
    *truncated = room < 0 ? 1 : 0;
    return static_cast<uint32_t>(end - buffer + 1);
}

void kuxeriterate(kux *ctx, kuxeritfn callback, void *clientarg)
{
    if (kuxercurrent(ctx) == nullptr) return;
    const uint32_t level = kuxerserial(kuxercurrent(ctx));
    for (int32_t index = kuxernerrors(ctx) - 1; index >= 0; index--) {
        if (kuxerserial(kuxercurrent(ctx)) != level || index >= kuxernerrors(ctx)) return;
        callback(ctx, kuxerget(ctx, index), clientarg);
    }
}

bool ku::save_level(kux *ctx)
{
    kuxes *level = nullptr;
    if (ctx->kuxernstacks > 0 && kuxergrowlevels(ctx)) level = kuxermakelevel(ctx);
    if (level != nullptr) ctx->kuxerstacks[ctx->kuxernstacks++] = level;
    return level != nullptr;
}

uint32_t kuxersavestack(kux *ctx)
{
    if (ku::save_level(ctx)) return 0;
    kuxer0push(ctx, KUXER_NOLEVEL);
    return KUXER_NOLEVEL;
}

uint32_t kuxerrestorestack(kux *ctx)
{
    if (ctx->kuxernstacks > 1) {
        kuxerfreelevel(ctx->kuxerstacks[--ctx->kuxernstacks]);
        return 0;
    }
    kuxer0push(ctx, KUXER_LAST);
    return KUXER_LAST;
}

void kuxergmsg(kux *ctx, uint32_t code, const char *type, char *buffer, uint32_t *length,
               int32_t *truncated)
{
    int32_t unwanted = 0;
    kuxergettext(ctx, code, type, buffer, length, truncated != nullptr ? truncated : &unwanted);
}

void kuxerfmtmsg(kux *ctx, kuxer *record, const char *type, char *buffer, uint32_t *length,
                 int32_t *truncated)
{
    int32_t unwanted = 0;
    if (truncated == nullptr) truncated = &unwanted;
    kuxer bare = {record == nullptr ? 0 : record->kuxercode, 0, nullptr};
    if (record == nullptr) record = &bare;

    const uint32_t most = *length;
    uint32_t used = most;
    attempt result = kuxertry(ctx, *record, type, buffer, &used, truncated);
    if (result == attempt::no_message)
        result = kuxertrygeneric(ctx, record, type, buffer, &(used = most), truncated);
    if (result == attempt::done) {
        *length = used;
        return;
    }
    // Without a level of its own the record may be gone by now: its code alone is left.
    if (result == attempt::no_level) record = &bare;
    *truncated = 0;
    int32_t cut = 0;
    const uint32_t written = kuxerformat(ctx, record, buffer, most, &cut);
    buffer[std::min(written, most)] = '\0';
}

uint32_t kuxerinit(kux *ctx, const kuxa *attrs)
{
    const bool sized = (attrs->kuxamask & KUXA_ERSIZE) != 0;
    const bool formatted = (attrs->kuxamask & KUXA_ERFORMAT) != 0;
    ctx->kuxersize = sized ? std::max(attrs->kuxaersize, 1) : kuxer_defaultsize;
    ctx->kuxerformat = formatted ? attrs->kuxaerformat : kuxerdformat;
    ctx->kuxernstacks = 0;
    ctx->kuxermaxstacks = kuxer_firstlevels;

    ctx->kuxerstacks = static_cast<kuxes **>(kuxbmalloc(kuxer_firstlevels * sizeof(kuxes *)));
    if (ctx->kuxerstacks == nullptr) return KUXER_GENERIC;
    ctx->kuxerstacks[0] = kuxermakelevel(ctx);
    if (ctx->kuxerstacks[0] == nullptr) {
        kuxerdestroy(ctx);
        return KUXER_GENERIC;
    }
    ctx->kuxernstacks = 1;
    return 0;
}

void kuxerdestroy(kux *ctx)
{
    while (ctx->kuxernstacks > 0) kuxerfreelevel(ctx->kuxerstacks[--ctx->kuxernstacks]);
    ctx->kuxerstacks = static_cast<kuxes **>(kuxbmfree(ctx->kuxerstacks));
    ctx->kuxermaxstacks = 0;
}
