// kuus.cpp - stream search: Boyer and Moore's search over the last characters read
//
// R. S. Boyer and J S. Moore, A fast string searching algorithm (1977), with the
// rule of the bad character only. The characters that the pattern lies over are
// in a ring of the pattern's length; `start` is the oldest one:
//
//     pattern     A B C D              compared from the last one back
//     ring        x y A B   z ...      ... what has not been read yet
//                 ^start
//
// A mismatch at the input's character c shifts the pattern so far that its last c
// lies over it, at least by one; a match shifts it by its whole length. As many
// characters are read, each over the oldest one. So every character is read once
// and, in most inputs, few are compared. The table may hold shifts that are too
// small (it is widened for case and never made narrower again); a shift that is
// too large would lose matches.

#include "kuus.h"

#include <cstddef>
#include <cstdint>

#include "kuguard.h"
#include "port/locale/locale.h"

static_assert(offsetof(kuus, skipp_kuus) == sizeof(void *) + 4
                  && offsetof(kuusat, cmfuncp_kuusat) == sizeof(void *),
              "clients read the records");

namespace
{

std::uint32_t kuusrefuse(kux *ctx, std::uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

// Both cases of the pattern's bytes shift as little as the byte itself would have it.
void kuuswiden(kuus &search, const unsigned char *lower, const unsigned char *upper)
{
    for (std::uint32_t i = 0; i < search.patn_kuus; i++) {
        const std::uint32_t distance = search.patn_kuus - 1 - i;
        search.skipp_kuus[lower[i]] = distance;
        search.skipp_kuus[upper[i]] = distance;
    }
}

// The last characters read: a ring of the pattern's length.
struct kuusring {
    unsigned char *bytes;
    std::uint32_t size;
    std::uint32_t start; // the oldest one
};

// Reads `count` characters, each over the oldest one. False at the end of the input.
bool kuusread(kux *ctx, const kuus &search, kuusring &ring, std::uint32_t count)
{
    const kuusgncfn input = search.gncfuncp_kuus;
    void *client = search.gncctxp_kuus;
    std::uint32_t at = ring.start;
    for (; count > 0; count--) {
        const unsigned char character = input(ctx, client);
        if (character == 0) return false;
        ring.bytes[at] = character;
        if (++at == ring.size) at = 0;
    }
    ring.start = at;
    return true;
}

// Compares from the last character back. 0 when all match; else how far the pattern shifts.
std::uint32_t kuusmatch(kux *ctx, const kuus &search, const kuusring &ring)
{
    const kuuscmfn match = search.cmfuncp_kuus;
    std::uint32_t at = ring.start;
    for (std::uint32_t k = ring.size; k-- > 0;) {
        at = (at == 0 ? ring.size : at) - 1;
        const unsigned char first = ring.bytes[at];
        const unsigned char second = search.patp_kuus[k];
        const bool matches = match == kuusscmatch
                                 ? first == second
                                 : match(ctx, search.cmctxp_kuus, first, second) != 0;
        if (matches) continue;
        const std::uint32_t compared = ring.size - 1 - k; // the shift begins behind these
        const std::uint32_t shift = search.skipp_kuus[first];
        return shift > compared ? shift - compared : 1;
    }
    return 0;
}

} // namespace

kuus *kuuscreate(kux *ctx, const void *patp, std::uint32_t patn, kuusgncfn gncfuncp, void *gncctxp)
{
    auto *search = ku::allocate<kuus>(ctx);
    if (search == nullptr) return nullptr;
    search->patp_kuus = static_cast<const unsigned char *>(patp);
    search->patn_kuus = patp != nullptr ? patn : 0;
    for (std::uint32_t &distance : search->skipp_kuus) distance = search->patn_kuus;
    kuuswiden(*search, search->patp_kuus, search->patp_kuus);
    search->gncfuncp_kuus = gncfuncp;
    search->gncctxp_kuus = gncctxp;
    search->curri_kuus = search->mstart_kuus = search->mfinish_kuus = 0;
    search->cmfuncp_kuus = kuusscmatch;
    search->cmctxp_kuus = nullptr;
    return search;
}

kuus *kuusdestroy(kux *ctx, kuus *kuush)
{
    if (kuush == nullptr)
        kuusrefuse(ctx, KUUSA_NOSEARCH);
    else
        ctx->kuxnmfree(ctx, kuush);
    return nullptr;
}

// Copies of the pattern in both cases, by the byte tables: what is compared are bytes, in
// every language. False without memory.
static bool kuusfold(kux *ctx, kuus &search)
{
    const std::uint64_t room = std::uint64_t{search.patn_kuus} + 1;
    const ku::owned<unsigned char> lower(ctx,
                                         static_cast<unsigned char *>(ku::allocate(ctx, room, 1)));
    if (!lower) return false;
    const ku::owned<unsigned char> upper(ctx,
                                         static_cast<unsigned char *>(ku::allocate(ctx, room, 1)));
    if (!upper) return false;
    ku::locale::bytes_lower(*ctx->kuxlangidh, lower.get(), search.patp_kuus, search.patn_kuus);
    ku::locale::bytes_upper(*ctx->kuxlangidh, upper.get(), search.patp_kuus, search.patn_kuus);
    kuuswiden(search, lower.get(), upper.get());
    return true;
}

std::uint32_t kuusset(kux *ctx, kuus *kuush, const kuusat *kuusatp)
{
    if (kuush == nullptr) return kuusrefuse(ctx, KUUSA_NOSEARCH);
    const std::uint32_t mask = kuusatp != nullptr ? kuusatp->mask_kuusat : 0;
    if ((mask & KUUSAT_CMFUNC) == 0) return 0;
    if (kuusatp->cmfuncp_kuusat == nullptr) return kuusrefuse(ctx, KUUSA_NOMATCH);

    const bool nocase = kuusatp->cmfuncp_kuusat == kuusicmatch || (mask & KUUSAT_NOCASE) != 0;
    if (nocase && !kuusfold(ctx, *kuush)) return ku::failure(ctx);
    kuush->cmfuncp_kuus = kuusatp->cmfuncp_kuusat;
    kuush->cmctxp_kuus = kuusatp->cmctxp_kuusat;
    return 0;
}

std::uint32_t kuusget(kux *ctx, kuus *kuush, kuusat *kuusatp)
{
    if (kuush == nullptr) return kuusrefuse(ctx, KUUSA_NOSEARCH);
    if (kuusatp == nullptr || (kuusatp->mask_kuusat & KUUSAT_CMFUNC) == 0) return 0;
    kuusatp->cmfuncp_kuusat = kuush->cmfuncp_kuus;
    kuusatp->cmctxp_kuusat = kuush->cmctxp_kuus;
    return 0;
}

std::int32_t kuussearch(kux *ctx, kuus *kuush, kuusmfn mfuncp, void *mcctxp)
{
    if (kuush == nullptr) {
        kuusrefuse(ctx, KUUSA_NOSEARCH);
        return 0;
    }
    const std::uint32_t length = kuush->patn_kuus;
    if (length == 0 || kuush->gncfuncp_kuus == nullptr) return 0;
    const ku::owned<unsigned char> block(
        ctx, static_cast<unsigned char *>(ku::allocate(ctx, length, 1)));
    if (!block) return 0;

    kuusring ring{block.get(), length, 0};
    std::uint32_t offset = 0; // in the input, of the ring's oldest character
    std::int32_t found = 0;
    std::uint32_t shift = length; // fills the ring
    while (kuusread(ctx, *kuush, ring, shift)) {
        shift = kuusmatch(ctx, *kuush, ring);
        if (shift == 0) {
            if (found < INT32_MAX) found++;
            if (mfuncp != nullptr && mfuncp(ctx, mcctxp, offset, length) != 0) break;
            shift = length;
        }
        offset += shift;
    }
    return found;
}

std::int32_t kuusscmatch(kux *, void *, unsigned char first, unsigned char second)
{
    return first == second ? 1 : 0;
}

std::int32_t kuusicmatch(kux *ctx, void *, unsigned char first, unsigned char second)
{
    const kulang &lang = *ctx->kuxlangidh;
    if (!ku::locale::single_byte(lang)) return 0;
    return lang.fold_kulang[first] == lang.fold_kulang[second] ? 1 : 0;
}
