// kuko.cpp - token objects: asking about the object, its tokens and ranges of them
//
//     text      a   ,     b  \0        tokens  { type, offset, length, hint } ...
//               |   |     |
//     offset    0   2     6            borrowed by the records as byte numbers
//
// An object may lack its text (borrowing pieces were joined, or kukosset took it
// away) or its list (its creation failed and a caller kept it); an index may
// name no token; a shorter text may have replaced the one that was analysed.
// Every operation copes: nothing is read past the text's end, no distance is
// below 0.
//
// Only a shift-sensitive language needs more than adding and subtracting bytes.
// A token's offset there is that of its first character, behind the shift-out
// byte; its length counts a shift byte for each end inside a shifted run. A
// stretch of text is brought to what it needs to stand alone (kukostretch): the
// shift bytes at its ends that open or close nothing go, the missing ones are
// added. The state at any byte is that of the nearest shift byte before it; the
// object remembers the stretch that was walked back over last, so that tokens asked
// about in order, forwards or backwards, cost one walk over the text in all.
#include "kuko.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kuguard.h"
#include "kuko_internal.h"
#include "kukp_internal.h"
#include "kul.h"
#include "kuxdr.h"
#include "kuxnl.h"
#include "kuxrl.h"
#include "port/locale/locale.h"

namespace
{

namespace locale = ku::locale;

constexpr unsigned char kuko_quote = '\'';
constexpr unsigned char kuko_doublequote = '"';

bool kukosinglebyte(const kux *ctx) { return locale::single_byte(*ctx->kuxlangidh); }

bool kukoshifts(const kux *ctx) { return ctx->kuxlangidh->shiftsensitive_kulang != 0; }

bool kukoisquote(unsigned char byte) { return byte == kuko_quote || byte == kuko_doublequote; }

std::uint32_t kukorefuse(kux *ctx, std::uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

// ---- places in the text, as bytes ----

// From byte `begin` to byte `end`, and the shift bytes that it lacks to stand alone.
struct kukostretch {
    std::uint32_t begin;
    std::uint32_t end;
    bool shifted_begin = false;
    bool shifted_end = false;

    std::uint32_t bytes() const { return end - begin + shifted_begin + shifted_end; }
    bool alone() const { return !shifted_begin && !shifted_end; }
};

bool kukoisshift(const kulang &lang, unsigned char byte)
{
    return byte == lang.shiftout_kulang || byte == lang.shiftin_kulang;
}

// Whether the character that begins at byte `offset` of the text is in a shifted run.
bool kukoshiftedat(const kulang &lang, const kuk &object, std::uint32_t offset)
{
    const unsigned char *text = object.origtxp_kuk;
    kukpseen &seen = reinterpret_cast<const kukpobject &>(object).seen;
    const bool known = seen.text == text;
    if (known && seen.begin <= offset && offset <= seen.end) return seen.shifted;
    const std::uint32_t stop = known && seen.end < offset ? seen.end : 0;
    std::uint32_t begin = offset;
    while (begin > stop && !kukoisshift(lang, text[begin - 1])) begin--;
    if (stop > 0 && begin == stop)
        seen.end = offset;
    else
        seen = {text, begin, offset, begin > 0 && text[begin - 1] == lang.shiftout_kulang};
    return seen.shifted;
}

kukostretch kukostretchof(const kux *ctx, const kuk &object, std::uint64_t begin, std::uint64_t end)
{
    const std::uint32_t size = object.origtxl_kuk;
    kukostretch stretch{static_cast<std::uint32_t>(std::min<std::uint64_t>(begin, size)),
                        static_cast<std::uint32_t>(std::min<std::uint64_t>(end, size))};
    stretch.end = std::max(stretch.begin, stretch.end);
    if (!kukoshifts(ctx) || object.origtxp_kuk == nullptr) return stretch;

    const kulang &lang = *ctx->kuxlangidh;
    const unsigned char *text = object.origtxp_kuk;
    while (stretch.begin < stretch.end && kukoisshift(lang, text[stretch.begin])) stretch.begin++;
    while (stretch.end > stretch.begin && text[stretch.end - 1] == lang.shiftout_kulang)
        stretch.end--;
    if (stretch.begin == stretch.end) return stretch;
    stretch.shifted_begin = kukoshiftedat(lang, object, stretch.begin);
    stretch.shifted_end = kukoshiftedat(lang, object, stretch.end);
    return stretch;
}

// The byte behind a token: its length without the shift bytes that it counts.
std::uint64_t kukoend(const kux *ctx, const kuk &object, const kukn &token)
{
    const std::uint64_t end = std::uint64_t{token.offset_kukn} + token.length_kukn
                              - ku::token_shift_before(ctx, object, token);
    if (!kukoshifts(ctx) || object.origtxp_kuk == nullptr) return end;
    const bool closes = end > token.offset_kukn && end <= object.origtxl_kuk
                        && kukoshiftedat(*ctx->kuxlangidh, object, static_cast<std::uint32_t>(end));
    return end - closes;
}

// A distance between two places: of the stretch between them where there is
// text to look at, else their difference.
std::uint32_t kukodistance(const kux *ctx, const kuk &object, std::uint64_t begin,
                           std::uint64_t end)
{
    if (end <= begin) return 0;
    if (!kukoshifts(ctx) || object.origtxp_kuk == nullptr)
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(end - begin, UINT32_MAX));
    return kukostretchof(ctx, object, begin, end).bytes();
}

// A cursor for reading from byte `offset`, in the shift state that holds there.
// The NUL is in sight: a character that the text's end cuts off is so many bytes.
kucursor kukoopen(const kux *ctx, const kuk &object, std::uint32_t offset)
{
    const kulang &lang = *ctx->kuxlangidh;
    const unsigned char *text = object.origtxp_kuk;
    if (kukoshifts(ctx))
        while (offset < object.origtxl_kuk && kukoisshift(lang, text[offset])) offset++;
    kucursor cursor;
    locale::open_exact(&cursor, const_cast<unsigned char *>(text) + offset,
                       std::size_t{object.origtxl_kuk} - offset + 1, &lang,
                       locale::cursor_mode::read);
    if (kukoshifts(ctx)) cursor.shifted_kucursor = kukoshiftedat(lang, object, offset);
    return cursor;
}

kucursor kukotarget(const kux *ctx, void *buffer, std::uint32_t size)
{
    kucursor cursor;
    locale::open_exact(&cursor, buffer, size, ctx->kuxlangidh, locale::cursor_mode::write);
    return cursor;
}

// ---- the token buffer ----

// Room for `size` bytes in the context's token buffer. Logging is off while it
// grows: a client's rollback must not take it away from the context.
std::uint32_t kukogrowbuffer(kux *ctx, std::uint32_t size)
{
    if (ctx->kuxtoklen >= size) return 0;
    kuxmloff(ctx);
    if (ctx->kuxtokbuf != nullptr) kuxnlfree(ctx, ctx->kuxtokbuf);
    ctx->kuxtokbuf = static_cast<unsigned char *>(kuxnlalloc(ctx, size));
    kuxmlon(ctx);
    ctx->kuxtoklen = ctx->kuxtokbuf == nullptr ? 0 : size;
    if (ctx->kuxtokbuf != nullptr) return 0;
    const std::uint32_t code = kuxercode(ctx);
    return code != 0 ? code : kukorefuse(ctx, KUKAA_TOKEN);
}

// Writes the stretch with the shift bytes that it needs, kukostretch::bytes in all.
void kukowrite(const kux *ctx, const kuk &object, const kukostretch &stretch, void *target)
{
    const kulang &lang = *ctx->kuxlangidh;
    const std::uint32_t length = stretch.end - stretch.begin;
    auto *to = static_cast<unsigned char *>(target);
    if (stretch.shifted_begin) *to++ = lang.shiftout_kulang;
    std::memcpy(to, object.origtxp_kuk + stretch.begin, length);
    if (stretch.shifted_end) to[length] = lang.shiftin_kulang;
}

// A copy of the stretch that stands alone, in the token buffer.
std::uint32_t kukocopyalone(kux *ctx, const kuk &object, const kukostretch &stretch)
{
    const kulang &lang = *ctx->kuxlangidh;
    const std::uint64_t size =
        (std::uint64_t{lang.shiftsensitive_kulang} + lang.maxwidth_kulang) * 2
        + (stretch.end - stretch.begin);
    if (size > UINT32_MAX) return kukorefuse(ctx, KUKAA_TOKEN);
    const std::uint32_t status = kukogrowbuffer(ctx, static_cast<std::uint32_t>(size));
    if (status == 0) kukowrite(ctx, object, stretch, ctx->kuxtokbuf);
    return status;
}

} // namespace

// ---- shared with the other token families ----

std::int32_t ku::token_count(kux *ctx, const kuk *object)
{
    if (object == nullptr || object->origtklh_kuk == nullptr) return 0;
    return kulpnitems(ctx, object->origtklh_kuk);
}

kukn *ku::token_at(kux *, const kuk *object, std::int32_t index)
{
    if (object == nullptr || object->origtklh_kuk == nullptr) return nullptr;
    // Only a look, and at what nothing changes meanwhile: no lock is needed.
    const auto *list = static_cast<const kul *>(object->origtklh_kuk);
    return index >= 0 && index < list->nitems_kul ? static_cast<kukn *>(list->items_kul[index])
                                                  : nullptr;
}

std::uint32_t ku::token_shift_before(const kux *ctx, const kuk &object, const kukn &token)
{
    if (!kukoshifts(ctx) || object.origtxp_kuk == nullptr) return 0;
    if (token.length_kukn == 0 || token.offset_kukn >= object.origtxl_kuk) return 0;
    return kukoshiftedat(*ctx->kuxlangidh, object, token.offset_kukn) ? 1 : 0;
}

std::uint32_t ku::token_list_refuses(kux *ctx, const kuk *object)
{
    return kulpreplace(ctx, object->origtklh_kuk, 0, token_at(ctx, object, 0));
}

std::int32_t ku::token_cursor(const kuk *object)
{
    if (object == nullptr || object->origtklh_kuk == nullptr) return -1;
    return static_cast<const kul *>(object->origtklh_kuk)->current_kul;
}

void ku::token_list_shorten(kux *ctx, const kuk *object, std::int32_t count, std::int32_t cursor)
{
    if (count <= 0) return;
    kulplast(ctx, object->origtklh_kuk); // a cursor on an item that goes is nowhere
    while (count-- > 0) kulpdelete(ctx, object->origtklh_kuk, KUL_LAST);
    if (cursor >= 0) kulpitem(ctx, object->origtklh_kuk, cursor);
}

std::uint32_t ku::token_pin(kux *ctx, kukn *token)
{
    if (ctx->kuxrmlock != kuxdrlock) return 0;
    return kuxrllock(ctx, reinterpret_cast<kuxhandle>(token)) != nullptr ? 0 : KUXML_FULL;
}

std::uint32_t ku::token_unpin(kux *ctx, kukn *token)
{
    if (ctx->kuxrmlock != kuxdrlock) return 0;
    // The unlock itself answers null either way; room for its record is what it can lack.
    if (ctx->kuxmldisabled == 0 && kuxrlrserve(ctx) != 0) return KUXML_FULL;
    kuxrlunlock(ctx, reinterpret_cast<kuxhandle>(token));
    return 0;
}

// ---- the object ----

void kukosget(kux *ctx, void *kukh, std::int32_t *statep, std::int32_t *modep,
              std::int32_t *weightp, const char **origtxpp, std::int32_t *numtokenp)
{
    const kuk *object = ku::token_object(kukh);
    if (object == nullptr) return;
    if (statep != nullptr) *statep = object->state_kuk;
    if (modep != nullptr) *modep = object->mode_kuk;
    if (weightp != nullptr) *weightp = object->weight_kuk;
    if (origtxpp != nullptr) *origtxpp = reinterpret_cast<const char *>(object->origtxp_kuk);
    if (numtokenp != nullptr) *numtokenp = ku::token_count(ctx, object);
}

std::int32_t kukosgstate(kux *ctx, void *kukh)
{
    std::int32_t state = 0;
    kukosget(ctx, kukh, &state, nullptr, nullptr, nullptr, nullptr);
    return state;
}

std::int32_t kukosgmode(kux *ctx, void *kukh)
{
    std::int32_t mode = 0;
    kukosget(ctx, kukh, nullptr, &mode, nullptr, nullptr, nullptr);
    return mode;
}

std::int32_t kukosgweight(kux *ctx, void *kukh)
{
    std::int32_t weight = 0;
    kukosget(ctx, kukh, nullptr, nullptr, &weight, nullptr, nullptr);
    return weight;
}

const char *kukosgtext(kux *ctx, void *kukh)
{
    const char *text = nullptr;
    kukosget(ctx, kukh, nullptr, nullptr, nullptr, &text, nullptr);
    return text;
}

std::int32_t kukosgnumtokens(kux *ctx, void *kukh)
{
    return ku::token_count(ctx, ku::token_object(kukh));
}

std::uint32_t kukosset(kux *ctx, void *kukh, const char *origtxp)
{
    kuk *object = ku::token_object(kukh);
    if (object == nullptr) return 0;
    const std::size_t length = origtxp != nullptr ? std::strlen(origtxp) : 0;
    if (length >= UINT32_MAX) return KUKAA_NOTEXT;

    const auto *text = reinterpret_cast<const unsigned char *>(origtxp);
    if (object->weight_kuk == 0) {
        if (origtxp != nullptr) {
            void *copy = ku::allocate(ctx, length + 1, 1);
            if (copy == nullptr) return KUKAA_NOTEXT;
            text = static_cast<unsigned char *>(std::memcpy(copy, origtxp, length + 1));
        }
        if (object->origtxp_kuk != nullptr)
            ctx->kuxnmfree(ctx, const_cast<unsigned char *>(object->origtxp_kuk));
    }
    object->origtxp_kuk = text;
    object->origtxl_kuk = static_cast<std::uint32_t>(length);
    static_cast<kukpobject *>(kukh)->seen = {}; // the new text may lie where the old one did
    return 0;
}

// ---- one token ----

std::uint32_t kukonget(kux *ctx, void *kukh, std::int32_t tnum, std::uint32_t *typep,
                       std::uint32_t *offsetp, std::uint32_t *lengthp,
                       const unsigned char **tokenpp)
{
    const kuk *object = ku::token_object(kukh);
    const kukn *token = ku::token_at(ctx, object, tnum);
    if (token == nullptr) return kukorefuse(ctx, KULAA_RANGE);
    kulpitem(ctx, object->origtklh_kuk, tnum); // makes it the current item

    const unsigned char *contents = nullptr;
    std::uint32_t length = token->length_kukn;
    if ((tokenpp != nullptr || lengthp != nullptr) && object->origtxp_kuk != nullptr) {
        const kukostretch stretch =
            kukostretchof(ctx, *object, token->offset_kukn, kukoend(ctx, *object, *token));
        if (tokenpp != nullptr && !stretch.alone()) {
            const std::uint32_t status = kukocopyalone(ctx, *object, stretch);
            if (status != 0) return status;
        }
        contents = stretch.alone() ? object->origtxp_kuk + stretch.begin : ctx->kuxtokbuf;
        // The stored length, but where kukosset put another text in the place of the
        // analysed one: that of a copy is of what the copy holds.
        if (kukoshifts(ctx)) length = stretch.bytes();
    }
    if (typep != nullptr) *typep = token->type_kukn;
    if (offsetp != nullptr) *offsetp = token->offset_kukn;
    if (lengthp != nullptr) *lengthp = length;
    if (tokenpp != nullptr) *tokenpp = contents;
    return 0;
}

std::uint32_t kukongtype(kux *ctx, void *kukh, std::int32_t tnum)
{
    std::uint32_t type = 0;
    kukonget(ctx, kukh, tnum, &type, nullptr, nullptr, nullptr);
    return type;
}

std::uint32_t kukongoffset(kux *ctx, void *kukh, std::int32_t tnum)
{
    std::uint32_t offset = 0;
    kukonget(ctx, kukh, tnum, nullptr, &offset, nullptr, nullptr);
    return offset;
}

std::uint32_t kukonglength(kux *ctx, void *kukh, std::int32_t tnum)
{
    std::uint32_t length = 0;
    kukonget(ctx, kukh, tnum, nullptr, nullptr, &length, nullptr);
    return length;
}

const unsigned char *kukongcontents(kux *ctx, void *kukh, std::int32_t tnum)
{
    const unsigned char *contents = nullptr;
    kukonget(ctx, kukh, tnum, nullptr, nullptr, nullptr, &contents);
    return contents;
}

kukn *kukonghint(kux *ctx, void *kukh, std::int32_t tnum)
{
    const kukn *token = ku::token_at(ctx, ku::token_object(kukh), tnum);
    return token != nullptr ? token->hint_kukn : nullptr;
}

namespace
{

// Bytes are characters: doubled quotes are two equal bytes.
std::uint32_t kukovaluebytes(const unsigned char *token, std::uint32_t length, char *bufp,
                             std::uint32_t bufl, bool strip)
{
    std::uint32_t from = 0;
    std::uint32_t stored = 0;
    unsigned char quote = 0;
    if (strip && length > 0 && kukoisquote(token[0])) {
        quote = token[0];
        from = 1;
    }
    if (strip && length > 0 && kukoisquote(token[length - 1])) length--;

    const std::uint32_t limit = std::min(bufl, length);
    while (from < limit) {
        const bool doubled =
            strip && from + 1 < limit && token[from] == quote && token[from + 1] == quote;
        bufp[stored++] = static_cast<char>(token[from]);
        from += doubled ? 2 : 1;
    }
    bufp[stored] = '\0';
    return stored;
}

// The bytes from `begin` to `end` go to the target as they are if they fit, with
// room for the shift-in byte when they leave it shifted. The target may be the
// token itself: it is never ahead of what is read.
bool kukoappend(kucursor &target, const unsigned char *begin, const unsigned char *end,
                bool shifted)
{
    const auto length = static_cast<std::size_t>(end - begin);
    if (length + shifted > target.size_kucursor - locale::offset(target)) return false;
    std::memmove(target.position_kucursor, begin, length);
    target.position_kucursor += length;
    target.shifted_kucursor = shifted;
    return true;
}

// The same by characters, each copied with the shift bytes before it. Where the
// end cuts a character short, or at a NUL, the bytes are characters.
std::uint32_t kukovaluecharacters(const kux *ctx, const unsigned char *token, std::uint32_t length,
                                  char *bufp, std::uint32_t bufl, bool strip)
{
    const unsigned char *end = token + length;
    kucursor source;
    locale::open_exact(&source, const_cast<unsigned char *>(token), length, ctx->kuxlangidh,
                       locale::cursor_mode::read);
    unsigned char quote = 0;
    if (strip && locale::is_single(source) && kukoisquote(locale::current(source))) {
        quote = locale::current(source);
        token = source.position_kucursor + 1;
        locale::step(source);
        if (bufl > 0) bufl--;
    }

    kucursor target = kukotarget(ctx, bufp, bufl);
    while (token < end) {
        const unsigned char *at = source.position_kucursor;
        const bool is_quote =
            strip && kukoisquote(locale::current(source)) && locale::is_single(source);
        if (is_quote && at + 1 == end) break;
        const bool doubled = is_quote && *at == quote && locale::is_ahead(source, 1, quote);
        const std::uint32_t width = locale::width(source);
        const unsigned char *behind = at < end ? at + std::max(width, 1u) : end;
        if (!kukoappend(target, token, behind, source.shifted_kucursor != 0)) break;
        token = behind;
        locale::step(source);
        if (source.position_kucursor < behind) // a NUL holds the step
            source.position_kucursor += behind - source.position_kucursor;
        if (!doubled) continue;
        token = source.position_kucursor + 1;
        locale::step(source);
    }
    return static_cast<std::uint32_t>(locale::offset(target)) + locale::close_shift(target);
}

} // namespace

std::uint32_t kukongvalue(kux *ctx, const unsigned char *tkstart, std::uint32_t tklength,
                          std::uint32_t, char *bufp, std::uint32_t bufl, std::int32_t strip)
{
    if (kukosinglebyte(ctx)) return kukovaluebytes(tkstart, tklength, bufp, bufl, strip != 0);
    if (tklength > 0) return kukovaluecharacters(ctx, tkstart, tklength, bufp, bufl, strip != 0);
    *bufp = '\0';
    return 0;
}

void kukonset(kux *ctx, void *kukh, std::int32_t tnum, std::uint32_t type)
{
    kukn *token = ku::token_at(ctx, ku::token_object(kukh), tnum);
    if (token == nullptr) return;
    ku::frame changing(ctx);
    if (!changing.open() || ku::token_pin(ctx, token) != 0) return;
    const std::uint32_t before = token->type_kukn;
    token->type_kukn = type;
    if (ku::token_unpin(ctx, token) == 0)
        changing.commit();
    else
        token->type_kukn = before;
}

std::int32_t kukonfind(kux *ctx, void *kukh, std::int32_t tnum, std::uint32_t type)
{
    const kuk *object = ku::token_object(kukh);
    const std::int32_t count = ku::token_count(ctx, object);
    if (tnum < 0 || tnum >= count) return -1;
    const kul *list = kulplock(ctx, object->origtklh_kuk);
    while (tnum < count && static_cast<kukn *>(list->items_kul[tnum])->type_kukn != type) tnum++;
    kulpunlock(ctx, object->origtklh_kuk);
    return tnum < count ? tnum : -1;
}

namespace
{

std::uint32_t kukowhitebytes(const kux *ctx, const kuk &object, std::uint32_t offset, char *whitep,
                             std::uint32_t whitel)
{
    const kulang &lang = *ctx->kuxlangidh;
    const unsigned char *white = object.origtxp_kuk + offset;
    std::uint32_t length = 0;
    while (white[length] != 0 && (locale::byte_classes(lang, white[length]) & KULANG_SPACE) != 0)
        length++;
    if (whitep != nullptr) std::memcpy(whitep, white, std::min(length, whitel));
    return length;
}

std::uint32_t kukowhitecharacters(const kux *ctx, const kuk &object, std::uint32_t offset,
                                  char *whitep, std::uint32_t whitel)
{
    kucursor source = kukoopen(ctx, object, offset);
    const auto at_white = [&source] {
        return locale::current(source) != 0 && (locale::classes(source) & KULANG_SPACE) != 0;
    };
    if (whitep == nullptr) { // what a copy would take, shift bytes included
        std::uint32_t length = 0;
        unsigned char shifted = 0;
        for (; at_white(); locale::step(source)) {
            length += locale::width(source) + (source.shifted_kucursor != shifted);
            shifted = source.shifted_kucursor;
        }
        return length + (shifted != 0);
    }
    kucursor target = kukotarget(ctx, whitep, whitel);
    std::uint32_t stored = 0;
    while (at_white()) {
        const std::uint32_t written = locale::copy_character(target, source, whitel - stored);
        if (written == 0) break;
        stored += written;
    }
    return stored + locale::close_shift(target);
}

} // namespace

std::uint32_t kukonwhite(kux *ctx, void *kukh, std::int32_t tnum, char *whitep,
                         std::uint32_t whitel)
{
    const kuk *object = ku::token_object(kukh);
    if (object == nullptr || object->origtxp_kuk == nullptr) return 0;
    const kukn *token = ku::token_at(ctx, object, std::min(tnum, ku::token_count(ctx, object) - 1));
    const std::uint64_t end = token != nullptr ? kukoend(ctx, *object, *token) : 0;
    if (end > object->origtxl_kuk) return 0;
    const auto offset = static_cast<std::uint32_t>(end);
    return kukosinglebyte(ctx) ? kukowhitebytes(ctx, *object, offset, whitep, whitel)
                               : kukowhitecharacters(ctx, *object, offset, whitep, whitel);
}

std::uint32_t kukonwlen(kux *ctx, void *kukh, std::int32_t tnum)
{
    const kuk *object = ku::token_object(kukh);
    if (object == nullptr) return 0;
    if (ku::token_count(ctx, object) == 0) return object->origtxl_kuk;
    tnum = std::clamp(tnum, -1, ku::token_count(ctx, object) - 1);
    const kukn *before = ku::token_at(ctx, object, tnum);
    const kukn *after = ku::token_at(ctx, object, tnum + 1);
    return kukodistance(ctx, *object, before != nullptr ? kukoend(ctx, *object, *before) : 0,
                        after != nullptr ? after->offset_kukn : object->origtxl_kuk);
}

// ---- ranges ----

namespace
{

// First and last byte of a range; false when an index names no token.
struct kukorange {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

bool kukolocate(kux *ctx, const kuk *object, std::int32_t start, std::int32_t finish,
                std::uint32_t endpoints, kukorange *range)
{
    const kukn *first = ku::token_at(ctx, object, start);
    const kukn *last = ku::token_at(ctx, object, finish);
    if (first == nullptr || last == nullptr) return false;
    const bool with_start = endpoints != KUKO_NEITHER && endpoints != KUKO_FINISH;
    const bool with_finish = endpoints != KUKO_NEITHER && endpoints != KUKO_START;
    range->begin = with_start ? first->offset_kukn : kukoend(ctx, *object, *first);
    range->end = with_finish ? kukoend(ctx, *object, *last) : last->offset_kukn;
    return true;
}

} // namespace

std::uint32_t kukorlen(kux *ctx, void *kukh, std::int32_t start, std::int32_t finish,
                       std::uint32_t endpoints)
{
    const kuk *object = ku::token_object(kukh);
    kukorange range;
    if (!kukolocate(ctx, object, start, finish, endpoints, &range)) return 0;
    return kukodistance(ctx, *object, range.begin, range.end);
}

std::uint32_t kukorassemble(kux *ctx, void *kukh, std::int32_t start, std::int32_t finish,
                            std::uint32_t endpoints, char *bufp, std::uint32_t bufl)
{
    const kuk *object = ku::token_object(kukh);
    kukorange range;
    if (bufp == nullptr || bufl == 0) return 0;
    if (!kukolocate(ctx, object, start, finish, endpoints, &range)) return 0;
    if (object->origtxp_kuk == nullptr) return 0;

    const kukostretch stretch = kukostretchof(ctx, *object, range.begin, range.end);
    if (stretch.bytes() <= bufl) {
        kukowrite(ctx, *object, stretch, bufp);
        return stretch.bytes();
    }
    if (kukosinglebyte(ctx)) {
        std::memcpy(bufp, object->origtxp_kuk + stretch.begin, bufl);
        return bufl;
    }
    kucursor source = kukoopen(ctx, *object, stretch.begin);
    kucursor target = kukotarget(ctx, bufp, bufl);
    std::uint32_t stored = 0;
    while (locale::offset(source) < stretch.end - stretch.begin) {
        const std::uint32_t written = locale::copy_character(target, source, bufl - stored);
        if (written == 0) break;
        stored += written;
    }
    return stored + locale::close_shift(target);
}

std::uint32_t kukordelete(kux *ctx, void *kukh, std::int32_t start, std::int32_t finish,
                          std::uint32_t endpoints)
{
    const kuk *object = ku::token_object(kukh);
    const bool with_start = endpoints != KUKO_NEITHER && endpoints != KUKO_FINISH;
    const bool with_finish = endpoints != KUKO_NEITHER && endpoints != KUKO_START;
    const std::int64_t first = std::int64_t{start} + !with_start;
    const std::int64_t last = std::int64_t{finish} - !with_finish;
    const std::int32_t count = ku::token_count(ctx, object);
    if (first < 0 || first > last || last >= count) return 0;
    const std::uint32_t refused = ku::token_list_refuses(ctx, object);
    if (refused != 0) return refused;

    // Nothing below can fail. The tail closes the gap, so that the cost is that
    // of one walk however many tokens go. The cursor stays on its token.
    std::int32_t cursor = ku::token_cursor(object);
    if (cursor > last)
        cursor -= static_cast<std::int32_t>(last - first + 1);
    else if (cursor >= first)
        cursor = -1;
    for (std::int64_t i = first; i <= last; i++)
        kukprelease(ctx, object, ku::token_at(ctx, object, static_cast<std::int32_t>(i)));
    auto to = static_cast<std::int32_t>(first);
    for (auto from = static_cast<std::int32_t>(last + 1); from < count; from++)
        kulpreplace(ctx, object->origtklh_kuk, to++, ku::token_at(ctx, object, from));
    ku::token_list_shorten(ctx, object, count - to, cursor);
    return 0;
}
