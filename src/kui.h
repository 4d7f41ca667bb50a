/*
 * kui.h - exact equality of texts
 *
 * One operation, no state. Error facility: none.
 */
#ifndef KUI_H
#define KUI_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 1 when the two NUL-terminated texts have the same bytes, else 0. A null text equals nothing,
 * not even another null. Cannot fail. */
KU_API int32_t kuisequal(kux *ctx, const char *s1p, const char *s2p);

#ifdef __cplusplus
}
#endif

#endif
