// kuep.cpp - path resolution: names are tried until one is a file
//
// Each name that is tried with a type is built in the caller's buffer, so that
// the one that is found stays there. Names are joined, looked at and looked up by
// the services of buffered streams. Whether a file is there, and whether a type
// still fits, are questions here: a no is not left on the error stack, although
// those services push it.

#include "kuep.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kuel.h"
#include "kuguard.h"
#include "kul.h"
#include "port/locale/locale.h"
#include "skub.h"

namespace
{

constexpr std::size_t kuep_joined = 256; // bytes of a directory and a name, the NUL included

// A list that is read, or none: unlocked on leaving.
class kueplist : ku::unique
{
public:
    kueplist(kux *ctx, void *list)
        : ctx_(ctx), list_(list != nullptr ? kulplock(ctx, list) : nullptr)
    {
    }
    ~kueplist()
    {
        if (list_ != nullptr) kulpunlock(ctx_, list_);
    }
    std::int32_t count() const { return list_ != nullptr ? list_->nitems_kul : 0; }
    void *operator[](std::int32_t index) const { return list_->items_kul[index]; }

private:
    kux *ctx_;
    kul *list_;
};

// Where the result goes.
struct kuepresult {
    char *buffer;
    std::uint32_t size; // bytes
};

bool kuepexists(kux *ctx, const char *name)
{
    const ku::aside quiet(ctx);
    return skubfexist(ctx, name) != 0;
}

// A copy, cut to whole characters when it does not fit.
void kuepcopy(kux *ctx, const char *name, const kuepresult &result)
{
    if (result.size == 0) return;
    std::size_t length = std::strlen(name);
    if (length < result.size) {
        std::memcpy(result.buffer, name, length + 1);
        return;
    }
    kucursor target;
    ku::locale::open_exact(&target, result.buffer, result.size, ctx->kuxlangidh,
                           ku::locale::cursor_mode::write);
    length = ku::locale::copy_text(target, name, result.size - 1);
    length += ku::locale::close_shift(target);
    result.buffer[length] = 0;
}

// Builds the name with a type. False when it does not fit, or without memory, which is pushed.
bool kuepjoin(kux *ctx, const char *name, const char *type, const kuepresult &result)
{
    if (result.size == 0) return false;
    std::uint32_t status = 0;
    {
        const ku::aside quiet(ctx);
        std::uint32_t length = result.size - 1;
        status = skubatype(ctx, name, type, result.buffer, &length);
        if (status == 0) result.buffer[length] = 0;
    }
    if (status != 0 && status != SKUBA_ROOM) kuxer0push(ctx, status);
    return status == 0;
}

// Tries a name with the default types. Found: it is in the result's buffer.
bool kuepzresolve(kux *ctx, const char *name, const kuepresult &result, const kueplist &types)
{
    if (skubtspecified(ctx, name) != 0) {
        if (!kuepexists(ctx, name)) return false;
        kuepcopy(ctx, name, result);
        return true;
    }
    for (std::int32_t i = 0; i < types.count(); i++) {
        if (!kuepjoin(ctx, name, static_cast<const char *>(types[i]), result)) return false;
        if (kuepexists(ctx, result.buffer)) return true;
    }
    return false;
}

// Tries a name in the directories of a list. Returns 0, or the code of a join that failed. A
// name with a directory part stays as it is everywhere, and so has been tried before.
std::uint32_t kuepsearch(kux *ctx, const kueplist &path, const char *name, const kuepresult &result,
                         const kueplist &types, bool *found)
{
    if (skubdspecified(ctx, name) != 0) return 0;
    for (std::int32_t i = 0; i < path.count() && !*found; i++) {
        const auto *element = static_cast<const kuel *>(path[i]);
        if (element == nullptr || element->domain_kuel != KUELD_DIRECTORY) continue;
        std::array<char, kuep_joined> joined;
        std::uint32_t length = kuep_joined - 1;
        const std::uint32_t status =
            skubadir(ctx, name, element->name_kuel, joined.data(), &length);
        if (status != 0) return status;
        joined[length] = 0;
        *found = kuepzresolve(ctx, joined.data(), result, types);
    }
    return 0;
}

} // namespace

std::uint32_t kuepnresolve(kux *ctx, void *path, const char *basename, char *resname,
                           std::uint32_t *namelen, void *doctypes)
{
    const char *name = basename != nullptr ? basename : "";
    const kuepresult result{resname, *namelen};
    const kueplist types(ctx, doctypes);
    bool found = false;
    if (!kuepexists(ctx, name)) {
        const kueplist directories(ctx, path);
        found = kuepzresolve(ctx, name, result, types);
        const std::uint32_t status = kuepsearch(ctx, directories, name, result, types, &found);
        if (status != 0) return status;
    }
    if (!found) kuepcopy(ctx, name, result);
    *namelen = result.size != 0 ? static_cast<std::uint32_t>(std::strlen(resname)) : 0;
    return 0;
}
