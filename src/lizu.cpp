// lizu.cpp - streaming copy between chains of buffers, and the default memory manager
//
// Outside single-byte languages a scan stays open on the current source buffer
// and a sink on the current target buffer, so that shift states go on when only
// one of the two is used up. The source advances by what was read, the target
// by what was written: the units differ between representations. A target that
// cannot hold the next character whole counts as full; only when it was still
// empty does the copy end there, or it would ask for buffers for ever.
#include "lizu.h"

#include <cstdlib>

#include "kuxbm.h"
#include "liz_internal.h"

namespace locale = ku::locale;
using namespace ku::liz;

namespace
{

// One chain and its current buffer.
struct lizuchain {
    lizusupply supply;
    void *client;
    std::int32_t rep;
    void *buffer;
    std::uint32_t length; // bytes of the buffer
    std::uint32_t done;   // of these, copied

    bool used_up() const { return done >= length; }

    bool advance()
    {
        done = 0;
        return supply(client, &buffer, &length) == 0;
    }

    unsigned char *bytes() const // where byte-wise copies go on
    {
        auto *start = rep == LIZ_CURSOR ? static_cast<const kucursor *>(buffer)->start_kucursor
                                        : static_cast<unsigned char *>(buffer);
        return start + done;
    }
};

struct lizucopier {
    const kulang &lang;
    std::int32_t option;
    lizuchain target;
    lizuchain source;
    sink to;
    lizg from;

    bool refill_source()
    {
        if (!source.used_up()) return true;
        if (!source.advance()) return false;
        if (!locale::single_byte(lang))
            open_scan(lang, from, exactly(source.buffer, source.length, source.rep));
        return true;
    }

    bool refill_target()
    {
        if (!target.used_up()) return true;
        if (!target.advance()) return false;
        if (!locale::single_byte(lang))
            open_sink(lang, to, target.buffer, target.length, target.rep);
        return true;
    }

    // Whether lizmcpy would read the source; single-byte languages count under any option.
    bool copies() const
    {
        return is_representation(target.rep) && is_representation(source.rep)
               && (locale::single_byte(lang) || is_copy_option(option));
    }

    // Copies what fits; bytes written. A target that is cut counts as full.
    std::uint32_t piece()
    {
        if (!copies()) {
            if (target.rep == LIZ_WIDE && is_representation(source.rep)) finish(to, LIZ_OK);
            return 0;
        }
        outcome done;
        std::uint32_t read;
        if (locale::single_byte(lang)) {
            done = copy_bytes(lang, target.bytes(), target.length - target.done, source.bytes(),
                              source.length - source.done, option);
            read = done.written;
        } else {
            const std::uint32_t before = to.written;
            const std::uint32_t status = transfer(lang, to, from, option);
            finish(to, status);
            done = {status, to.written - before, 0};
            read = from.boffset_lizg - source.done;
        }
        source.done += read;
        if (target.rep == LIZ_CURSOR && locale::single_byte(lang))
            reopen(lang, target.buffer, std::size_t{target.done} + done.written);
        target.done = done.status == LIZ_END ? target.length : target.done + done.written;
        return done.written;
    }
};

} // namespace

uint32_t lizucopy(const kulang *lh, kulocglo *, lizusupply tnextbuf, void *tctxp, int32_t trep,
                  lizusupply snextbuf, void *sctxp, int32_t srep, int32_t option, uint32_t *bwritp)
{
    give(bwritp, 0u);
    lizucopier copier = {*lh, option, {tnextbuf, tctxp, trep}, {snextbuf, sctxp, srep}, {}, {}};
    std::uint64_t total = 0;
    while (copier.refill_source() && copier.refill_target()) {
        const bool fresh = copier.target.done == 0;
        const std::uint32_t written = copier.piece();
        total = std::min<std::uint64_t>(total + written, UINT32_MAX);
        give(bwritp, static_cast<std::uint32_t>(total));
        if (written == 0 && (fresh || !copier.target.used_up())) break;
        if (!copier.source.used_up() && !copier.target.used_up()) break;
    }
    return LIZ_OK;
}

void *lizualloc(uint32_t size) { return kuxbmalloc(size); }

void *lizurealloc(void *address, uint32_t size)
{
    return std::realloc(address, size == 0 ? 1 : size);
}

void *lizufree(void *address) { return kuxbmfree(address); }
