// kuel.cpp - element lists: shared records that name a location; connect texts
//
// An element begins with its reference cell. kueldestroy is both what a holder
// calls and the cell's destroy callback: the holder's call drops a reference,
// and when that was the last one the cell calls back, finds the count at 0 and
// releases the element. Nothing is read behind that.
//
// The parts of a connect text are views of what the caller gave; nothing is
// copied before the size of the result is known.

#include "kuel.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "kuguard.h"
#include "kul.h"
#include "kuu.h"
#include "port/locale/locale.h"

static_assert(offsetof(kuel, refobj_kuel) == 0, "the cell reaches the element by its own address");

namespace
{

std::uint32_t kuelmask(const kuela *attrs) { return attrs != nullptr ? attrs->mask_kuela : 0; }

void kuelrelease(kux *ctx, kuel *element)
{
    if (element->name_kuel != nullptr) ctx->kuxnmfree(ctx, element->name_kuel);
    ctx->kuxnmfree(ctx, element);
}

// Sets the name as the attributes give it. A null one is set too: the old one goes.
std::uint32_t kuelname(kux *ctx, kuel *element, const kuela *attrs)
{
    std::uint32_t length = attrs->namelen_kuela;
    const std::int32_t supplied = (attrs->mask_kuela & KUELA_NAMELEN) != 0 ? 1 : 0;
    char *old = element->name_kuel;
    const std::uint32_t status =
        kuu_ntset(ctx, attrs->name_kuela, &length, supplied, &element->name_kuel);
    if (status == 0 && element->name_kuel == nullptr && old != nullptr) ctx->kuxnmfree(ctx, old);
    return status;
}

// Nothing here can fail.
void kuelassign(kuel *element, const kuela *attrs)
{
    const std::uint32_t mask = kuelmask(attrs);
    if ((mask & KUELA_DOMAIN) != 0) element->domain_kuel = attrs->domain_kuela;
    if ((mask & KUELA_CONTENT) != 0) element->content_kuel = attrs->content_kuela;
    if ((mask & KUELA_OSID) != 0) element->osid_kuel = attrs->osid_kuela;
    if ((mask & KUELA_MODID) != 0) element->modid_kuel = attrs->modid_kuela;
}

} // namespace

kuel *kuelcreate(kux *ctx, const kuela *attrs)
{
    auto *element = ku::allocate<kuel>(ctx);
    if (element == nullptr) return nullptr;
    const std::uint32_t mask = kuelmask(attrs);
    kumra cell{};
    cell.mask_kumra = KUMRA_DESTROY;
    cell.destroy_kumra = kueldestroy;
    *element = {{}, KUELD_DEFAULT, KUELC_DEFAULT, nullptr, nullptr, nullptr, 0};
    kumrinit(ctx, element, &cell);
    kuelassign(element, attrs);
    if (element->domain_kuel == KUELD_HOST && (mask & KUELA_HSTDEF) != 0)
        element->hstdef_kuel = attrs->hstdef_kuela;
    if ((mask & KUELA_NAME) == 0 || kuelname(ctx, element, attrs) == 0) return element;
    kuelrelease(ctx, element);
    return nullptr;
}

std::uint32_t kuelget(kux *ctx, kuel *extloc, kuela *attrs)
{
    const std::uint32_t mask = kuelmask(attrs);
    const std::int32_t supplied = (mask & KUELA_NAMELEN) != 0 ? 1 : 0;
    const char *name = extloc->name_kuel;
    if ((mask & KUELA_NAME) != 0) {
        const std::uint32_t status =
            kuu_ntget(ctx, &attrs->name_kuela, &attrs->namelen_kuela, supplied, name);
        if (status != 0) return status;
    } else if (supplied != 0) {
        attrs->namelen_kuela = name != nullptr ? static_cast<std::uint32_t>(std::strlen(name)) : 0;
    }
    if ((mask & KUELA_DOMAIN) != 0) attrs->domain_kuela = extloc->domain_kuel;
    if ((mask & KUELA_CONTENT) != 0) attrs->content_kuela = extloc->content_kuel;
    if ((mask & KUELA_HSTDEF) != 0) attrs->hstdef_kuela = extloc->hstdef_kuel;
    if ((mask & KUELA_OSID) != 0) attrs->osid_kuela = extloc->osid_kuel;
    if ((mask & KUELA_MODID) != 0) attrs->modid_kuela = extloc->modid_kuel;
    return 0;
}

std::uint32_t kuelset(kux *ctx, kuel *extloc, const kuela *attrs)
{
    if ((kuelmask(attrs) & KUELA_NAME) != 0) {
        const std::uint32_t status = kuelname(ctx, extloc, attrs);
        if (status != 0) return status;
    }
    kuelassign(extloc, attrs);
    return 0;
}

std::uint32_t kueldestroy(kux *ctx, void *extloc)
{
    if (extloc == nullptr) return 0;
    kumra cell{};
    cell.mask_kumra = KUMRA_REFCOUNT;
    kumrget(ctx, extloc, &cell);
    if (cell.refcount_kumra > 0) return kumrdref(ctx, extloc);
    kuelrelease(ctx, static_cast<kuel *>(extloc));
    return 0;
}

std::uint32_t kuelldestroy(kux *ctx, void *extlocs)
{
    if (extlocs == nullptr) return 0;
    const auto drop = [](kux *each, void *element, void *) -> std::uint32_t {
        return element != nullptr ? kumrdref(each, element) : 0;
    };
    kulpitrate(ctx, extlocs, drop, nullptr, 1);
    kulpdestroy(ctx, extlocs);
    return 0;
}

// ---- connect texts ----

namespace
{

using kuelpart = std::optional<std::string_view>; // not given, or a text that may be empty

// What is before the first `separator` of a text, and what is behind it, if there is one.
// Characters are compared, for a byte of that value can be part of another one.
struct kuelhalves {
    std::string_view before;
    kuelpart behind;
};

kuelhalves kuelsplit(const kux *ctx, std::string_view text, char separator)
{
    kucursor at;
    // A cursor reads through a pointer that could be written; reading, it never is.
    ku::locale::open_exact(&at, const_cast<char *>(text.data()), text.size(), ctx->kuxlangidh,
                           ku::locale::cursor_mode::read);
    while (const std::uint32_t wide = ku::locale::wide(at)) {
        if (wide == static_cast<unsigned char>(separator)) {
            const auto place = static_cast<std::size_t>(at.position_kucursor - at.start_kucursor);
            return {text.substr(0, place), text.substr(place + 1)};
        }
        ku::locale::step(at);
    }
    return {text, std::nullopt};
}

struct kuelparts {
    std::string_view user;
    kuelpart password;
    kuelpart host;
};

// user, user/password, user@host or user/password@host: an @ before the / is the user's.
kuelparts kueltake(const kux *ctx, const char *user)
{
    const kuelhalves names = kuelsplit(ctx, user != nullptr ? user : "", '/');
    const kuelhalves rest = kuelsplit(ctx, names.behind ? *names.behind : names.before, '@');
    if (names.behind) return {names.before, rest.before, rest.behind};
    return {rest.before, std::nullopt, rest.behind};
}

char *kuelput(char *target, std::string_view text)
{
    std::memcpy(target, text.data(), text.size());
    return target + text.size();
}

// A separator and a text; neither for an empty one.
char *kuelput(char *target, char separator, std::string_view text)
{
    if (text.empty()) return target;
    *target = separator;
    return kuelput(target + 1, text);
}

} // namespace

char *kuelbuilddbspec(kux *ctx, const char *user, const char *passwd, const char *host,
                      std::int32_t includepasswd)
{
    const kuelparts given = kueltake(ctx, user);
    const kuelpart wanted = host != nullptr ? kuelpart(host) : given.host;
    std::string_view password;
    if (includepasswd != 0)
        password = passwd != nullptr ? passwd : given.password.value_or(std::string_view());

    std::uint64_t size = given.user.size();
    if (!password.empty()) size += std::uint64_t{password.size()} + 1;
    if (wanted) size += std::uint64_t{wanted->size()} + 1;
    if (size == 0) return nullptr;
    auto *made = static_cast<char *>(ku::allocate(ctx, size + 1, 1));
    if (made == nullptr) return nullptr;
    char *end = kuelput(made, given.user);
    end = kuelput(end, '/', password);
    end = kuelput(end, '@', wanted.value_or(std::string_view()));
    *end = 0;
    return made;
}
