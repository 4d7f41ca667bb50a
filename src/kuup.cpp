// kuup.cpp - property lists: a table of buckets, each a list of entries, newest first
//
//     kuupl  | hashfun | refcount | number | numprops | b0 | b1 | b2 | ... |
//                                                        |
//                                        list (kul.h):  [ newest, older, ... ]
//                                                           |
//     kuupe  | isscal | value | freefun | cctxp | n a m e \0 |
//
// One block for the table, one for each entry with its name behind it. A bucket
// is searched from its front, so that the newest entry of a name is found, and
// hides older ones. numprops_kuupl is the number of items in all buckets.
//
// Callbacks may search, put and remove in the list that called them. Searching
// moves cursors, and putting and removing shift indexes: every walk counts an
// index of its own against the bucket's present length, and no entry is touched
// after a callback before it was found in its bucket again.
//
// A look-up hashes the name once and walks a chain that is short while there
// are about as many buckets as names; the table never grows.
#include "kuup.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kuguard.h"
#include "kuko.h"
#include "kukp.h"
#include "kul.h"
#include "kuu.h"

namespace
{

constexpr std::int32_t kuup_chain = 10;        // entries that a new bucket is sized for
constexpr std::int32_t kuup_nobucket = -1;     // a name that cannot be hashed
constexpr std::uint64_t kuup_multiplier = 137; // of the built-in hash function
// Bytes that are hashed before a remainder is due: 31 bits times 137 to the fourth are 60 bits.
// Remainders taken less often are the same in the end.
constexpr int kuup_stride = 4;
constexpr int kuup_pairs = 2; // tokens of a name and its value

static_assert(offsetof(kuupl, refcount_kuupl) == sizeof(void *)
                  && offsetof(kuupl, numprops_kuupl) == sizeof(void *) + 8
                  && offsetof(kuupe, freefun_kuupe) == 2 * sizeof(void *)
                  && offsetof(kuupe, name_kuupe) == 4 * sizeof(void *),
              "clients read the records");

kuupl &kuuplof(void *handle) { return *static_cast<kuupl *>(handle); }

bool kuupisprime(std::int64_t odd)
{
    for (std::int64_t divisor = 3; divisor * divisor <= odd; divisor += 2)
        if (odd % divisor == 0) return false;
    return true;
}

// A list that ends has no buckets any more: nothing is found in it, and nothing can be put.
bool kuupends(const kuupl &list) { return list.number_kuupl == 0; }

// The bucket that a name belongs to; null, with the code pushed, when it belongs to none. A
// hash function may divide by the number of buckets: it is not asked when there are none.
void *kuupbucket(kux *ctx, const kuupl &list, const char *name)
{
    std::int32_t bucket = kuup_nobucket;
    if (!kuupends(list)) bucket = list.hashfun_kuupl(ctx, name, list.number_kuupl);
    if (bucket >= 0 && bucket < list.number_kuupl) return list.buckets_kuupl[bucket];
    kuxer0push(ctx, KUUPA_NOHASH);
    return nullptr;
}

kuupe *kuupitem(kux *ctx, void *bucket, std::int32_t index)
{
    return static_cast<kuupe *>(kulpitem(ctx, bucket, index));
}

// Stands in an entry for its release callback while that runs, so that it is called once; a
// removal of the same name that it makes leaves the entry to the one that called it.
void kuupreleasing(kux *, const char *, void *, void *) {}

// The arguments are those of kuupecreate. False, with the list as it was, on any failure:
// the value is still the caller's then, so no release callback is called.
bool kuupput(kux *ctx, kuupl &list, const char *name, std::int32_t isscal, void *ptrval,
             std::uint32_t sclval, kuupfreefn freefun, void *cctxp)
{
    void *bucket = kuupbucket(ctx, list, name);
    if (bucket == nullptr) return false;
    if (name == nullptr) { // a client's hash function has an answer for everything
        kuxer0push(ctx, KUUPA_NOHASH);
        return false;
    }
    ku::owned<kuupe> entry(ctx, kuupecreate(ctx, name, isscal, ptrval, sclval, freefun, cctxp));
    if (!entry || kulpinsert(ctx, bucket, 0, entry.get()) != 0) return false;
    static_cast<void>(entry.keep());
    list.numprops_kuupl++;
    return true;
}

// Ends the buckets from number `last` down to 0; entries in them are untouched.
void kuupendbuckets(kux *ctx, kuupl &list, std::int32_t last)
{
    for (std::int32_t i = last; i >= 0; i--) kulpdestroy(ctx, list.buckets_kuupl[i]);
}

// A text split into tokens; ended on leaving.
class kuuptokens : ku::unique
{
public:
    kuuptokens(kux *ctx, const char *text)
        : ctx_(ctx),
          object_(kukpcreate(ctx, text, 0, KUKP_M_WORDS, nullptr, nullptr, KUKP_S_COMPLETE))
    {
    }
    ~kuuptokens() { kukpdestroy(ctx_, object_); }
    bool good() const { return object_ != nullptr && kukosgstate(ctx_, object_) != KUKP_S_ERROR; }
    std::int32_t count() const { return good() ? kukosgnumtokens(ctx_, object_) : 0; }
    // A NUL-terminated copy of a token in plain memory; null without memory.
    char *copy(std::int32_t index) const
    {
        std::uint32_t length = 0;
        const unsigned char *bytes = nullptr;
        if (kukonget(ctx_, object_, index, nullptr, nullptr, &length, &bytes) != 0) return nullptr;
        auto *text = static_cast<char *>(ku::allocate(ctx_, std::uint64_t{length} + 1, 1));
        if (text == nullptr) return nullptr;
        std::memcpy(text, bytes, length);
        text[length] = 0;
        return text;
    }

private:
    kux *ctx_;
    void *object_;
};

// A text that grows at its end, kuupzbadd's four in one.
struct kuuptext {
    char *bytes;
    std::uint32_t size; // of the buffer, in bytes
    std::uint32_t room; // bytes free at its end
    char *end;          // first free byte
};

bool kuupappend(kux *ctx, kuuptext &text, const char *bytes, std::uint64_t length)
{
    if (length > UINT32_MAX) return false;
    return kuupzbadd(ctx, &text.bytes, &text.size, &text.room, &text.end, bytes,
                     static_cast<std::uint32_t>(length))
           == 0;
}

// Appends the name and its value, each with a space behind it, if it has one. False without memory.
bool kuupappendpair(kux *ctx, kuuptext &text, const char *name, kuupe *entry)
{
    if (entry == nullptr) return true;
    const auto *value = static_cast<const char *>(kuupegvalue(ctx, entry));
    if (value == nullptr) return true;
    const std::size_t length = entry->isscal_kuupe != 0
                                   ? strnlen(value, sizeof entry->value_kuupe.sclval)
                                   : std::strlen(value);
    return kuupappend(ctx, text, name, std::strlen(name)) && kuupappend(ctx, text, value, length);
}

// Names and values of all tokens, the last space turned into a NUL. False when there are
// none or without memory.
bool kuupgather(kux *ctx, void *list, const kuuptokens &tokens, kuuptext &text)
{
    const std::int32_t count = tokens.count();
    for (std::int32_t i = 0; i < count; i++) {
        const ku::owned<char> name(ctx, tokens.copy(i));
        if (!name) return false;
        if (!kuupappendpair(ctx, text, name.get(), kuupzsearch(ctx, list, name.get())))
            return false;
    }
    const std::uint32_t used = text.size - text.room;
    if (used == 0) return false;
    auto *shrunk = static_cast<char *>(ctx->kuxnmrealloc(ctx, text.bytes, used));
    if (shrunk == nullptr) return false;
    text.bytes = shrunk;
    shrunk[used - 1] = 0;
    return true;
}

} // namespace

void *kuuplcreate(kux *ctx, std::int32_t number, kuuphashfn hashfun)
{
    if (number < 1) number = KUUPL_NUMBER;
    if (hashfun == nullptr) {
        number = kuupzprime(ctx, number);
        hashfun = kuupzhash;
    }
    const auto buckets = static_cast<std::uint64_t>(number);
    const std::uint64_t bytes = offsetof(kuupl, buckets_kuupl) + buckets * sizeof(void *);
    auto *list = static_cast<kuupl *>(ku::allocate(ctx, bytes, 1));
    if (list == nullptr) return nullptr;
    list->hashfun_kuupl = hashfun;
    list->refcount_kuupl = 1;
    list->number_kuupl = number;
    list->numprops_kuupl = 0;
    for (std::int32_t i = 0; i < number; i++) {
        list->buckets_kuupl[i] = kulpcreate(ctx, kuup_chain, nullptr);
        if (kuxercode(ctx) == 0) continue;
        kuupendbuckets(ctx, *list, i);
        ctx->kuxnmfree(ctx, list);
        return nullptr;
    }
    return list;
}

void *kuuplcopy(kux *, void *kuuplh)
{
    kuuplof(kuuplh).refcount_kuupl++;
    return kuuplh;
}

void *kuupldestroy(kux *ctx, void *kuuplh)
{
    if (kuuplh == nullptr) return nullptr;
    kuupl &list = kuuplof(kuuplh);
    list.refcount_kuupl--;
    if (list.refcount_kuupl > 0) return nullptr;
    const std::int32_t number = list.number_kuupl;
    list.number_kuupl = 0;   // a release callback that looks something up finds nothing released
    list.refcount_kuupl = 1; // and a holder that it adds and takes away does not end the list again
    for (std::int32_t i = 0; i < number; i++) {
        kulpitrate(ctx, list.buckets_kuupl[i], kuupedestroy, nullptr, 1);
        kulpdestroy(ctx, list.buckets_kuupl[i]);
    }
    ctx->kuxnmfree(ctx, &list);
    return nullptr;
}

std::uint32_t kuuplsput(kux *ctx, void *kuuplh, kuupfreefn freefun, void *cctxp, const char *name,
                        void *value)
{
    return kuupput(ctx, kuuplof(kuuplh), name, 0, value, 0, freefun, cctxp) ? 0 : ku::failure(ctx);
}

std::uint32_t kuuplxput(kux *ctx, void *kuuplh, const char *name, std::uint32_t value)
{
    return kuupput(ctx, kuuplof(kuuplh), name, 1, nullptr, value, nullptr, nullptr)
               ? 0
               : ku::failure(ctx);
}

void *kuuplsget(kux *ctx, void *kuuplh, const char *name)
{
    kuupe *entry = kuupzsearch(ctx, kuuplh, name);
    return entry != nullptr ? kuupegvalue(ctx, entry) : nullptr;
}

std::uint32_t kuuplxget(kux *ctx, void *kuuplh, const char *name, std::uint32_t *valuep)
{
    const void *value = kuuplsget(ctx, kuuplh, name);
    if (value != nullptr) std::memcpy(valuep, value, sizeof *valuep);
    return 0;
}

std::uint32_t kuuplsremove(kux *ctx, void *kuuplh, const char *name)
{
    kuupl &list = kuuplof(kuuplh);
    if (kuupends(list)) return 0;
    void *bucket = kuupbucket(ctx, list, name);
    if (bucket == nullptr) return ku::failure(ctx);
    const std::int32_t index = kuupzentry(ctx, bucket, name);
    if (index < 0) return 0;

    kuupe *entry = kuupitem(ctx, bucket, index);
    const kuupfreefn release = entry->freefun_kuupe;
    const bool outermost = release != kuupreleasing;
    if (entry->isscal_kuupe == 0 && release != nullptr && outermost) {
        entry->freefun_kuupe = kuupreleasing;
        release(ctx, entry->name_kuupe, entry->value_kuupe.ptrval, entry->cctxp_kuupe);
    }
    const std::int32_t place = kulpfind(ctx, bucket, entry);
    if (place >= 0) { // the callback did not remove it
        if (kulpdelete(ctx, bucket, place) != 0) return ku::failure(ctx);
        list.numprops_kuupl--;
    }
    if (outermost) ctx->kuxnmfree(ctx, entry);
    return 0;
}

char kuuplsexists(kux *ctx, void *kuuplh, const char *name)
{
    return kuupzsearch(ctx, kuuplh, name) != nullptr ? 1 : 0;
}

void kuupliterate(kux *ctx, void *kuuplh, kuupitfn funcp, void *cctxp)
{
    const kuupl &list = kuuplof(kuuplh);
    for (std::int32_t i = 0; i < list.number_kuupl; i++) {
        void *bucket = list.buckets_kuupl[i];
        for (std::int32_t index = 0; index < kulpnitems(ctx, bucket); index++) {
            kuupe *entry = kuupitem(ctx, bucket, index);
            if (funcp != nullptr) funcp(ctx, entry->name_kuupe, kuupegvalue(ctx, entry), cctxp);
        }
    }
}

signed char kuuplequal(kux *ctx, void *kuupl1h, void *kuupl2h, kuupequalfn funcp, void *cctxp)
{
    const kuupl &list = kuuplof(kuupl1h);
    if (list.numprops_kuupl != kuuplof(kuupl2h).numprops_kuupl) return 0;
    signed char result = 1;
    for (std::int32_t i = 0; i < list.number_kuupl && result == 1; i++) {
        void *bucket = list.buckets_kuupl[i];
        for (std::int32_t index = 0; index < kulpnitems(ctx, bucket) && result == 1; index++) {
            kuupe *entry = kuupitem(ctx, bucket, index);
            void *value = kuupegvalue(ctx, entry);
            char *name = nullptr; // of its own: the callback may remove the entry
            if (kuu_copytext(ctx, &name, nullptr, 0, entry->name_kuupe) != 0) return 0;
            kuupe *other = kuupzsearch(ctx, kuupl2h, name);
            result = other != nullptr ? funcp(ctx, name, value, kuupegvalue(ctx, other), cctxp)
                                      : static_cast<signed char>(0);
            ctx->kuxnmfree(ctx, name);
        }
    }
    return result;
}

char *kuuplmget(kux *ctx, void *kuuplh, const char *names)
{
    if (names == nullptr) return nullptr;
    const std::uint64_t size = 2 * (std::uint64_t{std::strlen(names)} + 1);
    kuuptext text{static_cast<char *>(ku::allocate(ctx, size, 1)), 0, 0, nullptr};
    if (text.bytes == nullptr) return nullptr;
    text.size = text.room = static_cast<std::uint32_t>(size);
    text.end = text.bytes;
    const kuuptokens tokens(ctx, names);
    if (kuupgather(ctx, kuuplh, tokens, text)) return text.bytes;
    ctx->kuxnmfree(ctx, text.bytes);
    return nullptr;
}

std::int32_t kuuplmput(kux *ctx, void *kuuplh, const char *properties)
{
    const kuuptokens tokens(ctx, properties);
    const std::int32_t count = tokens.count();
    for (std::int32_t i = 0; i + 1 < count; i += kuup_pairs) {
        const ku::owned<char> name(ctx, tokens.copy(i));
        if (!name) return i;
        ku::owned<char> value(ctx, tokens.copy(i + 1));
        if (!value) return i;
        if (!kuupput(ctx, kuuplof(kuuplh), name.get(), 0, value.get(), 0, kuupefree, nullptr))
            return i;
        static_cast<void>(value.keep());
    }
    return count;
}

std::int32_t kuuplmremove(kux *ctx, void *kuuplh, const char *names)
{
    const kuuptokens tokens(ctx, names);
    const std::int32_t count = tokens.count();
    std::int32_t removed = 0;
    for (std::int32_t i = 0; i < count; i++) {
        const ku::owned<char> name(ctx, tokens.copy(i));
        if (!name) break;
        if (kuuplsexists(ctx, kuuplh, name.get()) == 0) continue;
        if (kuuplsremove(ctx, kuuplh, name.get()) != 0) break;
        removed++;
    }
    return removed;
}

kuupe *kuupecreate(kux *ctx, const char *name, std::int32_t isscal, void *ptrval,
                   std::uint32_t sclval, kuupfreefn freefun, void *cctxp)
{
    if (name == nullptr) return nullptr;
    const std::size_t bytes = std::strlen(name) + 1;
    constexpr std::uint64_t fixed = offsetof(kuupe, name_kuupe);
    auto *entry = static_cast<kuupe *>(ku::allocate(ctx, fixed + bytes, 1));
    if (entry == nullptr) return nullptr;
    entry->isscal_kuupe = isscal != 0 ? 1 : 0;
    entry->value_kuupe.ptrval = isscal != 0 ? nullptr : ptrval;
    if (isscal != 0) entry->value_kuupe.sclval = sclval;
    entry->freefun_kuupe = freefun;
    entry->cctxp_kuupe = cctxp;
    std::memcpy(reinterpret_cast<char *>(entry) + fixed, name, bytes);
    return entry;
}

std::uint32_t kuupedestroy(kux *ctx, void *item, void *)
{
    auto *entry = static_cast<kuupe *>(item);
    if (entry->freefun_kuupe != nullptr)
        entry->freefun_kuupe(ctx, entry->name_kuupe, kuupegvalue(ctx, entry), entry->cctxp_kuupe);
    ctx->kuxnmfree(ctx, entry);
    return 0;
}

void kuupefree(kux *ctx, const char *, void *value, void *)
{
    if (value != nullptr) ctx->kuxnmfree(ctx, value);
}

std::uint32_t kuupeget(kux *ctx, kuupe *kuupeh, const char **namep, void **valuep,
                       kuupfreefn *freep)
{
    if (namep != nullptr) *namep = kuupegname(ctx, kuupeh);
    if (valuep != nullptr) *valuep = kuupegvalue(ctx, kuupeh);
    if (freep != nullptr) *freep = kuupegfreefun(ctx, kuupeh);
    return 0;
}

const char *kuupegname(kux *, kuupe *kuupeh) { return kuupeh->name_kuupe; }

void *kuupegvalue(kux *, kuupe *kuupeh)
{
    return kuupeh->isscal_kuupe != 0 ? &kuupeh->value_kuupe : kuupeh->value_kuupe.ptrval;
}

kuupfreefn kuupegfreefun(kux *, kuupe *kuupeh) { return kuupeh->freefun_kuupe; }

std::int32_t kuupzhash(kux *, const char *name, std::int32_t numbuckets)
{
    if (name == nullptr || numbuckets < 1) return kuup_nobucket;
    const auto buckets = static_cast<std::uint64_t>(numbuckets);
    std::uint64_t hash = 0;
    int pending = 0; // bytes since the last remainder was taken
    for (const auto *byte = reinterpret_cast<const unsigned char *>(name); *byte != 0; byte++) {
        hash = hash * kuup_multiplier + *byte;
        if (++pending < kuup_stride) continue;
        hash %= buckets;
        pending = 0;
    }
    return static_cast<std::int32_t>(hash % buckets);
}

std::int32_t kuupzprime(kux *, std::int32_t seed)
{
    std::int64_t candidate = 2 * std::int64_t{seed} + 1;
    while (!kuupisprime(candidate) && candidate < INT32_MAX) candidate += 2;
    return candidate < INT32_MAX ? static_cast<std::int32_t>(candidate) : INT32_MAX;
}

kuupe *kuupzsearch(kux *ctx, void *kuuplh, const char *name)
{
    const kuupl &list = kuuplof(kuuplh);
    void *bucket = kuupends(list) ? nullptr : kuupbucket(ctx, list, name);
    if (bucket == nullptr) return nullptr;
    const std::int32_t index = kuupzentry(ctx, bucket, name);
    return index >= 0 ? kuupitem(ctx, bucket, index) : nullptr;
}

std::int32_t kuupzentry(kux *ctx, void *listh, const char *name)
{
    if (name == nullptr) return -1;
    const std::int32_t count = kulpnitems(ctx, listh);
    for (std::int32_t index = 0; index < count; index++)
        if (std::strcmp(kuupitem(ctx, listh, index)->name_kuupe, name) == 0) return index;
    return -1;
}

std::uint32_t kuupzbadd(kux *ctx, char **bufpp, std::uint32_t *buflp, std::uint32_t *roomp,
                        char **posnpp, const char *rop, std::uint32_t rol)
{
    const std::uint64_t needed = std::uint64_t{rol} + 1;
    std::uint64_t size = *buflp;
    std::uint64_t room = *roomp;
    while (room < needed) {
        const std::uint64_t added = size > 0 ? size : 1;
        room += added;
        size += added;
    }
    if (size != *buflp) {
        void *grown = size <= UINT32_MAX
                          ? ctx->kuxnmrealloc(ctx, *bufpp, static_cast<std::uint32_t>(size))
                          : nullptr;
        if (grown == nullptr) return ku::failure(ctx);
        *bufpp = static_cast<char *>(grown);
        *buflp = static_cast<std::uint32_t>(size);
        *posnpp = *bufpp + (size - room);
    }
    if (rol > 0) std::memcpy(*posnpp, rop, rol);
    (*posnpp)[rol] = ' ';
    *posnpp += needed;
    *roomp = static_cast<std::uint32_t>(room - needed);
    return 0;
}
