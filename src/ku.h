/*
 * ku.h - the whole library: includes every public header
 */
#ifndef KU_H
#define KU_H

/* the context */
#include "kuapp.h"
#include "kudef.h"
#include "kulang.h"
#include "kulong.h"
#include "kux.h"
#include "kuxbm.h"
#include "kuxdn.h"
#include "kuxdr.h"
#include "kuxer.h"
#include "kuxid.h"
#include "kuxio.h"
#include "kuxml.h"
#include "kuxnl.h"
#include "kuxnm.h"
#include "kuxpr.h"
#include "kuxrl.h"
#include "kuxrm.h"
#include "kuxst.h"

/* multibyte text */
#include "liz2c.h"
#include "liz2o.h"
#include "liz2w.h"
#include "liz6.h"
#include "lizc.h"
#include "lizg.h"
#include "lizm.h"
#include "lizs.h"
#include "lizu.h"

/* files, memory and environment */
#include "sku.h"
#include "skub.h"
#include "skuf.h"
#include "skufb.h"
#include "skufo.h"
#include "skufv.h"
#include "skufz.h"
#include "skuhm.h"
#include "skup.h"

/* lists, properties, observers */
#include "kul.h"
#include "kumr.h"
#include "kuob.h"
#include "kuu.h"
#include "kuup.h"
#include "kuuq.h"

/* search, wildcards, templates */
#include "kui.h"
#include "kuum.h"
#include "kuus.h"
#include "kuussb.h"

/* virtual memory */
#include "kuv.h"
#include "kuvp.h"

/* regular expressions */
#include "kurf.h"
#include "kurl.h"
#include "kurm.h"
#include "kurn.h"
#include "kurt.h"
#include "kurx.h"
#include "kurxe.h"

/* SQL text */
#include "kuka.h"
#include "kuke.h"
#include "kuko.h"
#include "kukp.h"

/* row cache */
#include "kudcb.h"
#include "kudcd.h"
#include "kudcdef.h"
#include "kudcf.h"
#include "kudck.h"
#include "kudcm.h"
#include "kudcp.h"
#include "kudcs.h"
#include "kudx.h"
#include "skudcd.h"

/* settings and command lines */
#include "kucl.h"
#include "kuel.h"
#include "kuep.h"
#include "kup.h"

#endif
