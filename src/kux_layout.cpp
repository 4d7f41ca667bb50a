// kux_layout.cpp - the order of the fields that clients see, held by the compiler
//
// Nothing here exists at run time. Each record's fields are listed in the order
// that is part of the interface; on every machine each lies behind the one before.

#include <cstddef>
#include <initializer_list>

#include "ku.h"

namespace
{

constexpr bool ascending(std::initializer_list<std::size_t> offsets)
{
    bool first = true;
    std::size_t before = 0;
    for (const std::size_t offset : offsets) {
        if (first ? offset != 0 : offset <= before) return false;
        first = false;
        before = offset;
    }
    return true;
}

#define AT(field) offsetof(RECORD, field)

#define RECORD kux
static_assert(
    ascending({AT(kuxersize),       AT(kuxernstacks),    AT(kuxermaxstacks),  AT(kuxerstacks),
               AT(kuxerformat),     AT(kuxnmalloc),      AT(kuxnmfree),       AT(kuxnmrealloc),
               AT(kuxnmclientdata), AT(kuxrmalloc),      AT(kuxrmfree),       AT(kuxrmrealloc),
               AT(kuxrmlock),       AT(kuxrmunlock),     AT(kuxrmbeginderef), AT(kuxrmendderef),
               AT(kuxrmgetstate),   AT(kuxrmclientdata), AT(kuxmldisabled),   AT(kuxnlnrecords),
               AT(kuxnlsize),       AT(kuxnllog),        AT(kuxrlnrecords),   AT(kuxrlsize),
               AT(kuxrllog),        AT(kuxmmostack),     AT(kuxmmnowners),    AT(kuxmtstack),
               AT(kuxmtntypes),     AT(kuxprsize),       AT(kuxprnprops),     AT(kuxprlist),
               AT(kuxlbuffer),      AT(kuxlangidh),      AT(kuxuiapp),        AT(kuxdcxdef),
               AT(kuxdacxp),        AT(kuxtokbuf),       AT(kuxtoklen),       AT(kuxlocglo),
               AT(kuxstdin),        AT(kuxstdout),       AT(kuxstderr)}));
#undef RECORD
#define RECORD kuxa
static_assert(
    ascending({AT(kuxamask),         AT(kuxaersize),     AT(kuxaerformat),     AT(kuxanmalloc),
               AT(kuxanmfree),       AT(kuxanmrealloc),  AT(kuxanmclientdata), AT(kuxarmalloc),
               AT(kuxarmfree),       AT(kuxarmrealloc),  AT(kuxarmlock),       AT(kuxarmunlock),
               AT(kuxarmbeginderef), AT(kuxarmendderef), AT(kuxarmgetstate),   AT(kuxarmclientdata),
               AT(kuxauiapp),        AT(kuxadcxdef),     AT(kuxaversion),      AT(kuxalangidh),
               AT(kuxastdin),        AT(kuxastdout),     AT(kuxastderr)}));
#undef RECORD
#define RECORD kuxdacx
static_assert(ascending({AT(syscx_kuxdacx), AT(jbuf_kuxdacx)}));
#undef RECORD
#define RECORD kuxer
static_assert(ascending({AT(kuxercode), AT(kuxernparams), AT(kuxerparams)}));
#undef RECORD
#define RECORD kuxes
static_assert(ascending({AT(nerrors_kuxes), AT(errors_kuxes)}));
#undef RECORD
#define RECORD kuxnl
static_assert(ascending({AT(kuxnlptr), AT(kuxnltype)}));
#undef RECORD
#define RECORD kuxrl
static_assert(ascending({AT(kuxrlhandle), AT(kuxrltype)}));
#undef RECORD
#define RECORD kuxpr
static_assert(ascending({AT(kuxprname), AT(kuxprvalue), AT(kuxprfreefun)}));
#undef RECORD
#define RECORD kuxst
static_assert(ascending({AT(message_kuxst), AT(confirm_kuxst), AT(streamdata_kuxst)}));
#undef RECORD
#define RECORD kuxsta
static_assert(ascending({AT(mask_kuxsta), AT(message_kuxsta), AT(confirm_kuxsta),
                         AT(streamdata_kuxsta)}));
#undef RECORD
#define RECORD kuxioa
static_assert(ascending({AT(mask_kuxioa), AT(stdio_kuxioa)}));
#undef RECORD
#define RECORD lizg
static_assert(ascending({AT(osctx_lizg), AT(rep_lizg), AT(lcnum_lizg), AT(boffset_lizg),
                         AT(str_lizg), AT(slen_lizg)}));
#undef RECORD
#define RECORD lizm
static_assert(ascending({AT(alloc_lizm), AT(realloc_lizm), AT(free_lizm)}));
#undef RECORD
#define RECORD skub
static_assert(ascending({AT(fp_skub), AT(name_skub), AT(mode_skub), AT(posn_skub), AT(spec_skub)}));
#undef RECORD
#define RECORD skuba
static_assert(ascending({AT(mask_skuba), AT(mode_skuba), AT(posn_skuba), AT(spec_skuba)}));
#undef RECORD
#define RECORD kul
static_assert(ascending({AT(maxitems_kul), AT(nitems_kul), AT(current_kul), AT(nlocks_kul),
                         AT(items_kul), AT(itemsptr_kul)}));
#undef RECORD
#define RECORD kuk
static_assert(ascending({AT(state_kuk), AT(mode_kuk), AT(origtxp_kuk), AT(origtxl_kuk),
                         AT(origtklh_kuk), AT(weight_kuk)}));
#undef RECORD
#define RECORD kukn
static_assert(ascending({AT(type_kukn), AT(offset_kukn), AT(length_kukn), AT(hint_kukn)}));
#undef RECORD
#define RECORD kukptb
static_assert(ascending({AT(keyp_kukptb), AT(type_kukptb), AT(leng_kukptb)}));
#undef RECORD
#define RECORD kukat
static_assert(ascending({AT(token_kukat), AT(tokenl_kukat), AT(ttype_kukat)}));
#undef RECORD
#define RECORD kuka
static_assert(ascending({AT(mask_kuka), AT(origtxp_kuka), AT(weight_kuka), AT(mode_kuka),
                         AT(cfunp_kuka), AT(cctxp_kuka), AT(state_kuka), AT(ctoklist_kuka),
                         AT(srvrtype_kuka)}));
#undef RECORD
#define RECORD kukastctxt
static_assert(ascending({AT(ccfunp_kukastctxt), AT(cctxp_kukastctxt), AT(kuxp_kukastctxt)}));
#undef RECORD
#define RECORD kupct
static_assert(ascending({AT(kupctscx), AT(kupctprd), AT(kupctusp), AT(kupctugn), AT(kupctgsp),
                         AT(kupctggn), AT(kupcttmp), AT(kupctuse), AT(kupctgse), AT(kupcthdl)}));
#undef RECORD
#define RECORD kuppf
static_assert(ascending({AT(kuppfprd), AT(kuppfprf), AT(kuppfval)}));
#undef RECORD
#define RECORD kucla
static_assert(ascending({AT(kuclalo), AT(kuclahi), AT(kuclakwd), AT(kucladef), AT(kuclalst),
                         AT(kuclaval), AT(kuclaflg)}));
#undef RECORD
#define RECORD kucle
static_assert(ascending({AT(kuclearg), AT(kuclecod), AT(kucleflg)}));
#undef RECORD

} // namespace
