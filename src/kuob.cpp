// kuob.cpp - observers: records in a list, told through a copy of it
//
// An observer may append and remove observers while it is told, itself and the
// last one too. So a pass works on a list of its own, of those that want to be
// told, and looks each up in the observer list again before it calls: a record
// that is no longer listed has been released. The observer list is not locked
// while anybody is called. A pass costs one allocation, and for each one told a
// walk over the list.
#include "kuob.h"

#include <cstddef>
#include <cstdint>

#include "kuguard.h"
#include "kul.h"

static_assert(offsetof(kuob, notifyfun_kuob) == sizeof(void *)
                  && offsetof(kuob, plist_kuob) == 4 * sizeof(void *)
                  && offsetof(kuoba, type_kuoba) == 4,
              "clients read the records");

namespace
{

// A list of our own that does not own its records: ended on leaving.
class kuobpass : ku::unique
{
public:
    kuobpass(kux *ctx, void *list) : ctx_(ctx), list_(list) {}
    ~kuobpass() { kulpdestroy(ctx_, list_); }
    void *list() const { return list_; }

private:
    kux *ctx_;
    void *list_;
};

// A list that is read: unlocked on leaving.
class kuoblocked : ku::unique
{
public:
    kuoblocked(kux *ctx, void *list) : ctx_(ctx), list_(kulplock(ctx, list)) {}
    ~kuoblocked() { kulpunlock(ctx_, list_); }
    std::int32_t count() const { return list_->nitems_kul; }
    kuob *operator[](std::int32_t index) const
    {
        return static_cast<kuob *>(list_->items_kul[index]);
    }

private:
    kux *ctx_;
    kul *list_;
};

std::uint32_t kuobmask(const kuoba *attrs) { return attrs != nullptr ? attrs->mask_kuoba : 0; }

// The record has the fields that the attributes select.
bool kuobmatches(const kuob &record, const kuoba *attrs)
{
    const std::uint32_t mask = kuobmask(attrs);
    if ((mask & KUOBA_TYPE) != 0 && record.type_kuob != attrs->type_kuoba) return false;
    if ((mask & KUOBA_NOTIFYFUN) != 0 && record.notifyfun_kuob != attrs->notifyfun_kuoba)
        return false;
    if ((mask & KUOBA_OBSERVER) != 0 && record.observer_kuob != attrs->observer_kuoba) return false;
    return (mask & KUOBA_CLIENTDATA) == 0 || record.clientdata_kuob == attrs->clientdata_kuoba;
}

// Those of the list who want the type, in a list that the caller ends; null without
// memory. *count is how many they are: for none there is no list.
void *kuobcollect(kux *ctx, void *obslist, std::uint32_t type, std::int32_t *count)
{
    const kuoblocked all(ctx, obslist);
    *count = 0;
    for (std::int32_t i = 0; i < all.count(); i++)
        if ((all[i]->type_kuob & type) != 0) ++*count;
    void *wanting = *count > 0 ? kulpcreate(ctx, *count, nullptr) : nullptr;
    if (wanting == nullptr) return nullptr;
    for (std::int32_t i = 0; i < all.count(); i++) // there is room for them: this cannot fail
        if ((all[i]->type_kuob & type) != 0) kulpinsert(ctx, wanting, KUL_APPEND, all[i]);
    return wanting;
}

} // namespace

kuob *kuobcreate(kux *ctx, const kuoba *attrs)
{
    constexpr std::uint32_t needed = KUOBA_TYPE | KUOBA_NOTIFYFUN;
    if ((kuobmask(attrs) & needed) != needed || attrs->notifyfun_kuoba == nullptr) {
        kuxer0push(ctx, DEPOB_INCOMPLETE);
        return nullptr;
    }
    kuob *made = ku::allocate<kuob>(ctx);
    if (made == nullptr) return nullptr;
    *made = {};
    kuobset(ctx, made, attrs);
    return made;
}

std::uint32_t kuobget(kux *, const kuob *obs, kuoba *attrs)
{
    const std::uint32_t mask = kuobmask(attrs);
    if ((mask & KUOBA_TYPE) != 0) attrs->type_kuoba = obs->type_kuob;
    if ((mask & KUOBA_NOTIFYFUN) != 0) attrs->notifyfun_kuoba = obs->notifyfun_kuob;
    if ((mask & KUOBA_OBSERVER) != 0) attrs->observer_kuoba = obs->observer_kuob;
    if ((mask & KUOBA_CLIENTDATA) != 0) attrs->clientdata_kuoba = obs->clientdata_kuob;
    return 0;
}

std::uint32_t kuobset(kux *, kuob *obs, const kuoba *attrs)
{
    const std::uint32_t mask = kuobmask(attrs);
    if ((mask & KUOBA_TYPE) != 0) obs->type_kuob = attrs->type_kuoba;
    if ((mask & KUOBA_NOTIFYFUN) != 0) obs->notifyfun_kuob = attrs->notifyfun_kuoba;
    if ((mask & KUOBA_OBSERVER) != 0) obs->observer_kuob = attrs->observer_kuoba;
    if ((mask & KUOBA_CLIENTDATA) != 0) obs->clientdata_kuob = attrs->clientdata_kuoba;
    return 0;
}

std::uint32_t kuobdestroy(kux *ctx, kuob *obs)
{
    if (obs != nullptr) ctx->kuxnmfree(ctx, obs);
    return 0;
}

std::uint32_t kuobnotify(kux *ctx, kuob *obs, void *object, std::uint32_t type)
{
    const kuobnotifyfn notify = obs->notifyfun_kuob;
    return notify != nullptr ? notify(ctx, obs->observer_kuob, type, object, obs->clientdata_kuob)
                             : 0;
}

std::uint32_t kuoblnotify(kux *ctx, void *obslist, void *object, std::uint32_t type)
{
    const std::int32_t before = kuxernerrors(ctx);
    std::int32_t count = 0;
    const kuobpass pass(ctx, kuobcollect(ctx, obslist, type, &count));
    if (count > 0 && pass.list() == nullptr) return DEPOB_ERRORS;

    for (std::int32_t i = 0; i < count; i++) {
        auto *next = static_cast<kuob *>(kulpitem(ctx, pass.list(), i));
        if (kulpismember(ctx, obslist, next) == 0) continue;
        if (kuobnotify(ctx, next, object, type) == DEPOB_STOP) return kuxercode(ctx);
    }
    return kuxernerrors(ctx) > before ? DEPOB_ERRORS : 0;
}

std::uint32_t kuobappend(kux *ctx, void *obslist, const kuoba *attrs)
{
    ku::owned<kuob> made(ctx, kuobcreate(ctx, attrs));
    if (!made || kulpinsert(ctx, obslist, KUL_APPEND, made.get()) != 0) return ku::failure(ctx);
    static_cast<void>(made.keep());
    return 0;
}

std::uint32_t kuobremove(kux *ctx, void *obslist, const void *observer)
{
    const kuobpass copy(ctx, kulpcpy(ctx, obslist));
    if (copy.list() == nullptr) return ku::failure(ctx);
    const std::int32_t count = kulpnitems(ctx, copy.list());
    for (std::int32_t i = 0; i < count; i++) {
        auto *record = static_cast<kuob *>(kulpitem(ctx, copy.list(), i));
        if (record->observer_kuob != observer) continue;
        // A record that a locked list still holds must not be released.
        if (kulpdelete(ctx, obslist, kulpfind(ctx, obslist, record)) != 0) return ku::failure(ctx);
        kuobdestroy(ctx, record);
    }
    return 0;
}

std::uint32_t kuobfind(kux *ctx, void *obslist, const kuoba *attrs, kuob **obs)
{
    const kuoblocked all(ctx, obslist);
    std::int32_t i = 0;
    while (i < all.count() && !kuobmatches(*all[i], attrs)) i++;
    *obs = i < all.count() ? all[i] : nullptr;
    return 0;
}

std::uint32_t kuobldestroy(kux *ctx, void *obslist)
{
    if (obslist == nullptr) return 0;
    {
        const kuoblocked all(ctx, obslist);
        for (std::int32_t i = 0; i < all.count(); i++) kuobdestroy(ctx, all[i]);
    }
    kulpdestroy(ctx, obslist);
    return 0;
}
