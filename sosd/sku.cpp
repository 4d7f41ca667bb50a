// sku.cpp - the environment, copied into the context's memory
//
// The value is first asked for with a work buffer that is large enough nearly
// always; a longer one says how much it needs. The copy handed out has exactly
// its size.

#include "sku.h"

#include <cstring>

#include "../port/kernel/kernel.h"
#include "kuguard.h"

static constexpr uint64_t sku_first_room = 512; // bytes asked with at first

// A variable's value in a work buffer of any size; null without memory.
static char *skufetch(kux *ctx, const char *name)
{
    uint64_t room = sku_first_room;
    for (;;) {
        ku::owned<char> work(ctx, static_cast<char *>(ku::allocate(ctx, room + 1, 1)));
        if (!work) return nullptr;
        work.get()[0] = 0; // what an unset variable leaves
        const uint64_t answer = ku::kernel::environment_variable(name, work.get(), room);
        if (answer <= room) return work.keep();
        room = answer; // what it needs; more by now if somebody changed it
    }
}

char *sku_gev(kux *ctx, const char *name)
{
    const bool named = name != nullptr && name[0] != 0;
    ku::owned<char> work(ctx, named ? skufetch(ctx, name) : nullptr);
    if (named && !work) return nullptr;
    const char *value = named ? work.get() : "";
    const uint64_t size = uint64_t{std::strlen(value)} + 1;
    auto *copy = static_cast<char *>(ku::allocate(ctx, size, 1));
    if (copy != nullptr) std::memcpy(copy, value, size);
    return copy;
}
