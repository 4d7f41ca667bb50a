/*
 * kudx.h - column definitions: what a datatype adds to a value
 */
#ifndef KUDX_H
#define KUDX_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The terminator byte that a column's values may need beyond its maximum length: 1 for
 * KUDC_CHARACTER and KUDC_LONG, else 0, also for a null column. */
KU_API uint32_t kudxctrmlen(const kudxcoldef *column);

#ifdef __cplusplus
}
#endif

#endif
