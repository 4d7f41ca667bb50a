/*
 * kuxnm.h - installs a context's plain-memory callbacks
 */
#ifndef KUXNM_H
#define KUXNM_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Each callback is taken from `attrs` where KUXA_NMALL or its own bit is set,
 * null included, else it is the default; client data with KUXA_NMCLIENTDATA,
 * else null. For kuxcreate.
 */
KU_API void kuxnminit(kux *ctx, const kuxa *attrs);

#ifdef __cplusplus
}
#endif

#endif
