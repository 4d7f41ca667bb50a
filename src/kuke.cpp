// kuke.cpp - token objects: joining the pieces of a text analysed one by one
//
//     x = 'ab        state 3    x  =  'ab (398)
//     c'             state 0    c' (397)
//     joined, LF between        x  =  'ab (398)  c' (397)
//     merged                    x  =  'ab LF c' (397)
//
// A joined object shares nothing with its sources: text, records and hints are
// copies, those of the second piece moved behind the first text.
//
// Merging walks the tokens once. What stays is moved down over what was merged
// away, and the list is shortened at the end, so that the cost is linear in the
// tokens whatever their number; that no completed token of a type is left is
// remembered, so that open ones that nothing closes are not looked for again
// and again.
#include "kuke.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "kuguard.h"
#include "kuko.h"
#include "kuko_internal.h"
#include "kukp_internal.h"
#include "kul.h"
#include "kuxnl.h"

namespace
{

constexpr std::uint32_t kuke_spare = 4; // bytes that a joined text has behind its characters

// Open types and what they are merged into.
struct kukepair {
    std::uint32_t open;
    std::uint32_t completed;
};
constexpr std::array<kukepair, 5> kukepairs{{
    {KUKP_T_COMMENTOPEN, KUKP_T_COMMENT},
    {KUKP_T_LINEOPEN, KUKP_T_LINE},
    {KUKP_T_STRINGOPEN, KUKP_T_STRING},
    {KUKP_T_LABELOPEN, KUKP_T_LABEL},
    {KUKP_T_IDENTIFIEROPEN, KUKP_T_IDENTIFIER},
}};
constexpr std::size_t kuke_nopair = kukepairs.size();

std::size_t kukepairof(std::uint32_t type)
{
    std::size_t pair = 0;
    while (pair < kukepairs.size() && kukepairs[pair].open != type) pair++;
    return pair;
}

void *kukerefuse(kux *ctx, std::uint32_t code)
{
    kuxer0push(ctx, code);
    return nullptr;
}

// ---- joining ----

void kukeappend(unsigned char **to, const void *bytes, std::uint32_t length)
{
    if (length > 0) std::memcpy(*to, bytes, length);
    *to += length;
}

// Text 1, the separator, text 2, in a logged block; null without memory.
unsigned char *kukejointext(kux *ctx, const kuk &first, const kuk &second, unsigned char separator)
{
    const std::uint32_t size =
        first.origtxl_kuk + (separator != 0) + second.origtxl_kuk + kuke_spare;
    auto *text = static_cast<unsigned char *>(kuxnlalloc(ctx, size));
    if (text == nullptr) return nullptr;
    unsigned char *to = text;
    kukeappend(&to, first.origtxp_kuk, first.origtxl_kuk);
    kukeappend(&to, &separator, separator != 0 ? 1 : 0);
    kukeappend(&to, second.origtxp_kuk, second.origtxl_kuk);
    *to = 0;
    return text;
}

// A list of copies of both objects' tokens; null without memory.
void *kukejointokens(kux *ctx, const kuk &first, const kuk &second, std::uint32_t shift)
{
    const std::int32_t ntoken1 = ku::token_count(ctx, &first);
    const std::int32_t ntoken2 = ku::token_count(ctx, &second);
    if (ntoken1 > INT32_MAX - ntoken2) return nullptr;
    void *list = kulpcreate(ctx, ntoken1 + ntoken2, nullptr);
    if (list == nullptr) return nullptr;
    const bool joined = (ntoken1 == 0 || kulpconcat(ctx, list, first.origtklh_kuk) == 0)
                        && (ntoken2 == 0 || kulpconcat(ctx, list, second.origtklh_kuk) == 0);
    if (joined && kukecfilter(ctx, nullptr, list, shift, ntoken1, ntoken2) == 0) return list;
    return kulpdestroy(ctx, list);
}

// A copy of a token and its hint, moved by `shift` bytes; null without memory.
kukn *kukecopytoken(kux *ctx, const kukn &token, std::uint32_t shift)
{
    ku::owned<kukn> copy(ctx, ku::allocate<kukn>(ctx));
    if (!copy) return nullptr;
    *copy.get() = token;
    copy->offset_kukn += shift;
    copy->hint_kukn = nullptr;
    if (token.hint_kukn == nullptr) return copy.keep();

    auto *hint = ku::allocate<kukn>(ctx);
    if (hint == nullptr) return nullptr;
    *hint = *token.hint_kukn;
    hint->offset_kukn += shift;
    hint->hint_kukn = hint;
    copy->hint_kukn = hint;
    return copy.keep();
}

} // namespace

void *kukeconcat(kux *ctx, void *kuk1h, void *kuk2h, unsigned char sepc)
{
    const kuk *first = ku::token_object(kuk1h);
    const kuk *second = ku::token_object(kuk2h);
    if (first == nullptr || second == nullptr) return kukerefuse(ctx, KUKAA_NOCONCAT);
    if (first->mode_kuk != second->mode_kuk) return kukerefuse(ctx, KUKAA_MODES);
    if (first->weight_kuk != second->weight_kuk) return kukerefuse(ctx, KUKAA_WEIGHTS);
    // Without a text, too, the second's offsets must have room.
    if (std::uint64_t{first->origtxl_kuk} + (sepc != 0) + second->origtxl_kuk + kuke_spare
        > UINT32_MAX)
        return kukerefuse(ctx, KUKAA_NOCONCAT);

    ku::frame building(ctx);
    if (!building.open()) return nullptr;
    const bool owning = first->weight_kuk == 0;
    unsigned char *text = owning ? kukejointext(ctx, *first, *second, sepc) : nullptr;
    if (owning && text == nullptr) return nullptr;
    auto *whole = static_cast<kukpobject *>(kuxnlalloc(ctx, sizeof(kukpobject)));
    const std::uint32_t shift = first->origtxl_kuk + (sepc != 0);
    void *list = whole != nullptr ? kukejointokens(ctx, *first, *second, shift) : nullptr;
    if (list == nullptr) {
        // Rolling back would do, but does nothing while logging is off.
        if (whole != nullptr) kuxer0push(ctx, KUKAA_NOCONCAT);
        kuxnlfree(ctx, whole);
        kuxnlfree(ctx, text);
        return nullptr;
    }
    *whole = {};
    kuk *object = &whole->visible;
    object->state_kuk = second->state_kuk;
    object->mode_kuk = first->mode_kuk;
    object->origtxp_kuk = text;
    object->origtxl_kuk = owning ? shift + second->origtxl_kuk : 0;
    object->origtklh_kuk = list;
    object->weight_kuk = 0;
    building.commit();
    return object;
}

std::uint32_t kukecfilter(kux *ctx, void *, void *newlisth, std::uint32_t l1len,
                          std::int32_t ntoken1, std::int32_t ntoken2)
{
    const std::int32_t count = ntoken1 + ntoken2;
    for (std::int32_t done = 0; done < count; done++) {
        const auto *token = static_cast<kukn *>(kulpitem(ctx, newlisth, done));
        kukn *copy = nullptr;
        if (token != nullptr) copy = kukecopytoken(ctx, *token, done < ntoken1 ? 0 : l1len);
        if (copy != nullptr && kulpreplace(ctx, newlisth, done, copy) == 0) continue;
        if (copy != nullptr) kukprelease(ctx, nullptr, copy);
        // The items from here on are still the sources' own.
        while (--done >= 0)
            kukprelease(ctx, nullptr, static_cast<kukn *>(kulpitem(ctx, newlisth, done)));
        kulpclear(ctx, newlisth);
        const std::uint32_t code = kuxercode(ctx);
        return code != 0 ? code : KUKAA_NOCONCAT; // an allocator may push nothing
    }
    return 0;
}

// ---- merging ----

namespace
{

// One walk over the tokens of an object: `from` is looked at, `to` is where it goes.
struct kukewalk {
    kux *ctx;
    const kuk *object;
    std::int32_t count;
    std::int32_t from = 0;
    std::int32_t to = 0;
    std::array<bool, kukepairs.size()> exhausted{}; // no completed token of the pair is left
};

// Index of the token that completes the open one at `from`; -1 when there is none.
std::int32_t kukecompleting(kukewalk &walk, std::size_t pair)
{
    if (pair == kuke_nopair || walk.exhausted[pair]) return -1;
    const std::int32_t found = kukonfind(walk.ctx, const_cast<kuk *>(walk.object), walk.from + 1,
                                         kukepairs[pair].completed);
    walk.exhausted[pair] = found < 0;
    return found;
}

// Lets `last` begin where `first` does, in a shifted run or not. Each pair has a
// frame of its own, so that the log does not grow with the number of pairs.
std::uint32_t kukestretch(kux *ctx, const kuk &object, kukn *first, kukn *last)
{
    ku::frame changing(ctx);
    if (!changing.open()) return KUXML_FULL;
    std::uint32_t status = ku::token_pin(ctx, first);
    if (status == 0) status = ku::token_pin(ctx, last);
    if (status != 0) return status;
    const kukn before = *last;
    last->length_kukn -= ku::token_shift_before(ctx, object, *last);
    last->length_kukn += ku::token_shift_before(ctx, object, *first);
    if (last->offset_kukn > first->offset_kukn) // which an edit may have turned round
        last->length_kukn += last->offset_kukn - first->offset_kukn;
    last->offset_kukn = first->offset_kukn;
    status = ku::token_unpin(ctx, first);
    if (status == 0) status = ku::token_unpin(ctx, last);
    if (status != 0)
        *last = before;
    else
        changing.commit();
    return status;
}

// Merges the tokens from `from` up to `last` into `last`, which is looked at next.
std::uint32_t kukejoinpair(kukewalk &walk, std::int32_t last)
{
    kux *ctx = walk.ctx;
    std::uint32_t status = ku::token_list_refuses(ctx, walk.object);
    if (status == 0)
        status = kukestretch(ctx, *walk.object, ku::token_at(ctx, walk.object, walk.from),
                             ku::token_at(ctx, walk.object, last));
    if (status != 0) return status;
    while (walk.from < last)
        kukprelease(ctx, walk.object, ku::token_at(ctx, walk.object, walk.from++));
    return 0;
}

} // namespace

std::uint32_t kukemerge(kux *ctx, void *kukh)
{
    const kuk *object = ku::token_object(kukh);
    kukewalk walk{ctx, object, ku::token_count(ctx, object)};
    const std::int32_t before = ku::token_cursor(object);
    std::int32_t cursor = -1; // stays on its token, unless that is merged into another
    std::uint32_t status = 0;
    while (walk.from < walk.count) {
        kukn *token = ku::token_at(ctx, object, walk.from);
        const std::int32_t last =
            status == 0 ? kukecompleting(walk, kukepairof(token->type_kukn)) : -1;
        if (last >= 0) status = kukejoinpair(walk, last);
        // A failure leaves this pair and all later ones, but the gap still closes.
        token = ku::token_at(ctx, object, walk.from);
        if (walk.from == before) cursor = walk.to;
        if (walk.to < walk.from) kulpreplace(ctx, object->origtklh_kuk, walk.to, token);
        walk.from++;
        walk.to++;
    }
    ku::token_list_shorten(ctx, object, walk.from - walk.to, cursor);
    return status;
}

std::uint32_t kukemmatch(kux *, std::uint32_t type)
{
    const std::size_t pair = kukepairof(type);
    return pair != kuke_nopair ? kukepairs[pair].completed : 0;
}
