// skufz.cpp - fresh names: prefix, counter, process
//
//     C:\TMP\  001  01234      counter 1, process 1234
//
// The counter goes on from name to name, so two names of one cache differ even
// when neither file was created.

#include "skufz.h"

#include <cstring>

#include "../port/crt/crt.h"
#include "kuguard.h"
#include "skub.h"
#include "skuf_internal.h"

static constexpr uint32_t skufz_counters = 1000;   // names in one round
static constexpr uint32_t skufz_processes = 65536; // process ids that are told apart
static constexpr int skufz_counter_digits = 3;
static constexpr int skufz_process_digits = 5;
static constexpr uint32_t skufz_room = skufz_counter_digits + skufz_process_digits + 1; // bytes

// Writes a number in so many digits. Returns what is behind them.
static char *skufzdigits(char *to, uint32_t number, int digits)
{
    for (int i = digits; i-- > 0; number /= 10) to[i] = static_cast<char>('0' + number % 10);
    return to + digits;
}

char *skufzname(kux *ctx, void *cache, const char *prefix)
{
    auto *area = static_cast<skuf *>(cache);
    if (area == nullptr) {
        kuxer0push(ctx, SKUFA_NULL);
        return nullptr;
    }
    const std::size_t length = prefix == nullptr ? 0 : std::strlen(prefix);
    ku::owned<char> name(ctx,
                         static_cast<char *>(ku::allocate(ctx, uint64_t{length} + skufz_room, 1)));
    if (!name) return nullptr;
    if (length != 0) std::memcpy(name.get(), prefix, length);
    const uint32_t process = ku::crt::process_id() % skufz_processes;
    for (uint32_t tries = 0; tries < skufz_counters; tries++) {
        char *to = skufzdigits(name.get() + length, area->skuftnum, skufz_counter_digits);
        to = skufzdigits(to, process, skufz_process_digits);
        *to = 0;
        area->skuftnum = static_cast<uint16_t>((area->skuftnum + 1) % skufz_counters);
        if (skubfexist(ctx, name.get()) == 0) return name.keep();
    }
    return nullptr;
}
