// kux.cpp - the context: made and ended in a fixed order
//
// Each step of creation needs the ones before it: memory callbacks, error
// stack, logs, properties, language, date conversion, standard streams. Ending
// goes through them again; on failure creation gives back what it has, newest
// first. The language handle points into the record itself, so a context never
// moves.

#include "kux.h"

#include <csetjmp>

#include "kux_internal.h"
#include "kuxbm.h"
#include "kuxer.h"
#include "kuxml.h"
#include "kuxnl.h"
#include "kuxnm.h"
#include "kuxpr.h"
#include "kuxrm.h"
#include "port/core/core.h"
#include "port/dbclient/dbclient.h"
#include "port/locale/locale.h"
#include "skub.h"

namespace
{

constexpr char kux_version[] = "2.0.5.0.0";
constexpr uint32_t kux_messagemax = 256; // bytes of a date error's message text
constexpr unsigned kux_localemode = 1;   // mode in which the locale runtime is initialised

// Gives back what creation has made; every part is null or empty until it is there.
kux *kuxabandon(kux *ctx)
{
    kuxbmfree(ctx->kuxdcxdef);
    kuxbmfree(ctx->kuxdacxp);
    if (ctx->kuxprlist != nullptr) kuxprdestroy(ctx);
    if (ctx->kuxnllog != nullptr) kuxmldestroy(ctx);
    if (ctx->kuxerstacks != nullptr) kuxerdestroy(ctx);
    kuxbmfree(ctx);
    return nullptr;
}

void kuxstartlocale(kux *ctx, const ku::locale::loader *loader)
{
    int error = 0;
    const auto *calls = ku::locale::initialise(loader, kux_localemode, &error);
    ku::locale::initialise_area(&ctx->kuxlocglo, calls, nullptr, nullptr);
    ctx->kuxlangidh = ku::locale::fill_current(&ctx->kuxlbuffer, &ctx->kuxlocglo);
}

bool kuxstartdates(kux *ctx)
{
    const auto size = static_cast<uint32_t>(ku::core::date_context_size());
    ctx->kuxdacxp = static_cast<kuxdacx *>(kuxbmalloc(sizeof(kuxdacx)));
    ctx->kuxdcxdef = static_cast<kudateconv *>(kuxbmalloc(size));
    if (ctx->kuxdacxp == nullptr || ctx->kuxdcxdef == nullptr) return false;
    ctx->kuxdacxp->syscx_kuxdacx = ctx;
    ku::core::initialise_dates(ctx->kuxdcxdef, ctx->kuxlangidh, kuxdaterr, ctx->kuxdacxp);
    return true;
}

// A standard stream, inert. A client that has no allocate callback gets none.
void *kuxstandardstream(kux *ctx, int32_t number)
{
    if (ctx->kuxnmalloc == nullptr) return nullptr;
    skuba attrs = {};
    attrs.mask_skuba = SKUBA_SPEC;
    attrs.spec_skuba = number;
    return skubcreate(ctx, nullptr, &attrs);
}

} // namespace

kux *kuxcreate(const kuxa *attrs)
{
    static constexpr kuxa defaults = {};
    if (attrs == nullptr) attrs = &defaults;
    const auto *loader = ku::locale::start_loader(nullptr, nullptr);

    auto *ctx = static_cast<kux *>(kuxbmalloc(sizeof(kux)));
    if (ctx == nullptr) return nullptr;
    kuxnminit(ctx, attrs);
    kuxrminit(ctx, attrs);
    if (kuxerinit(ctx, attrs) != 0) return kuxabandon(ctx);
    if (kuxmlinit(ctx) != 0) return kuxabandon(ctx);
    if (kuxprinit(ctx) != 0) return kuxabandon(ctx);
    kuxstartlocale(ctx, loader);
    if (!kuxstartdates(ctx)) return kuxabandon(ctx);
    if ((attrs->kuxamask & KUXA_UIAPP) != 0) ctx->kuxuiapp = attrs->kuxauiapp;
    ctx->kuxstdin = kuxstandardstream(ctx, 1);
    ctx->kuxstdout = kuxstandardstream(ctx, 2);
    ctx->kuxstderr = kuxstandardstream(ctx, 3);
    return ctx;
}

uint32_t kuxset(kux *ctx, const kuxa *attrs)
{
    if (ctx == nullptr || attrs == nullptr) return 0;
    const uint32_t mask = attrs->kuxamask;
    if ((mask & KUXA_ERSIZE) != 0) {
        kuxer1push(ctx, KUXRM_REFUSED, "error stack size");
        return KUXRM_REFUSED;
    }
    if ((mask & KUXA_ERFORMAT) != 0) ctx->kuxerformat = attrs->kuxaerformat;
    ku::take_plain_callbacks(ctx, attrs);
    ku::take_relocatable_callbacks(ctx, attrs);
    if ((mask & KUXA_UIAPP) != 0) ctx->kuxuiapp = attrs->kuxauiapp;
    return 0;
}

uint32_t kuxget(kux *ctx, kuxa *attrs)
{
    if (ctx == nullptr || attrs == nullptr) return 0;
    const uint32_t mask = attrs->kuxamask;
    const auto wanted = [mask](uint32_t bits) { return (mask & bits) != 0; };

    if (wanted(KUXA_ERSIZE)) attrs->kuxaersize = ctx->kuxersize;
    if (wanted(KUXA_ERFORMAT)) attrs->kuxaerformat = ctx->kuxerformat;
    if (wanted(KUXA_LANGIDH)) attrs->kuxalangidh = ctx->kuxlangidh;
    if (wanted(KUXA_DCXDEF)) attrs->kuxadcxdef = ctx->kuxdcxdef;
    if (wanted(KUXA_NMALL | KUXA_NMALLOC)) attrs->kuxanmalloc = ctx->kuxnmalloc;
    if (wanted(KUXA_NMALL | KUXA_NMFREE)) attrs->kuxanmfree = ctx->kuxnmfree;
    if (wanted(KUXA_NMALL | KUXA_NMREALLOC)) attrs->kuxanmrealloc = ctx->kuxnmrealloc;
    if (wanted(KUXA_NMCLIENTDATA)) attrs->kuxanmclientdata = ctx->kuxnmclientdata;
    if (wanted(KUXA_RMALL | KUXA_RMALLOC)) attrs->kuxarmalloc = ctx->kuxrmalloc;
    if (wanted(KUXA_RMALL | KUXA_RMFREE)) attrs->kuxarmfree = ctx->kuxrmfree;
    if (wanted(KUXA_RMALL | KUXA_RMREALLOC)) attrs->kuxarmrealloc = ctx->kuxrmrealloc;
    if (wanted(KUXA_RMALL | KUXA_RMLOCK)) attrs->kuxarmlock = ctx->kuxrmlock;
    if (wanted(KUXA_RMALL | KUXA_RMUNLOCK)) attrs->kuxarmunlock = ctx->kuxrmunlock;
    if (wanted(KUXA_RMALL | KUXA_RMBEGINDEREF)) attrs->kuxarmbeginderef = ctx->kuxrmbeginderef;
    if (wanted(KUXA_RMALL | KUXA_RMENDDEREF)) attrs->kuxarmendderef = ctx->kuxrmendderef;
    if (wanted(KUXA_RMALL | KUXA_RMGETSTATE)) attrs->kuxarmgetstate = ctx->kuxrmgetstate;
    if (wanted(KUXA_RMCLIENTDATA)) attrs->kuxarmclientdata = ctx->kuxrmclientdata;
    if (wanted(KUXA_UIAPP)) attrs->kuxauiapp = ctx->kuxuiapp;
    if (wanted(KUXA_VERSION)) attrs->kuxaversion = kux_version;
    return 0;
}

static void kuxfreetokens(kux *ctx)
{
    if (ctx->kuxtoklen != 0) kuxnlfree(ctx, ctx->kuxtokbuf);
    ctx->kuxtokbuf = nullptr;
    ctx->kuxtoklen = 0;
}

kux *kuxdestroy(kux *ctx)
{
    if (ctx == nullptr) return nullptr;
    kuxfreetokens(ctx);
    ctx->kuxstdin = skubdestroy(ctx, ctx->kuxstdin);
    ctx->kuxstdout = skubdestroy(ctx, ctx->kuxstdout);
    ctx->kuxstderr = skubdestroy(ctx, ctx->kuxstderr);
    // The properties' release functions still run with the context: by then errors
    // are dropped and logged memory is not logged any more.
    kuxerdestroy(ctx);
    kuxmldestroy(ctx);
    kuxprdestroy(ctx);
    kuxfreetokens(ctx); // one of them may have used the lexer
    kuxbmfree(ctx->kuxdcxdef);
    kuxbmfree(ctx->kuxdacxp);
    kuxbmfree(ctx);
    return nullptr;
}

void kuxdaterr(kudateconv *dates, int32_t error)
{
    auto *context = static_cast<kuxdacx *>(ku::core::error_context(dates));
    ku::dbclient::host *host = ku::dbclient::default_host();
    ku::dbclient::set_error(host, static_cast<uint16_t>(error));

    char text[kux_messagemax + 1];
    const uint32_t length = ku::dbclient::error_text(host, text, kux_messagemax);
    text[length] = '\0';
    kuxer1push(context->syscx_kuxdacx, KUXAA_DATE, text);
    std::longjmp(context->jbuf_kuxdacx, 1);
}
