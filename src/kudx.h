/*
 * kudx.h - column definitions: what a datatype adds to a value
 */
#ifndef KUDX_H
#define KUDX_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudxctrmlen(const kudxcoldef *column);

#ifdef __cplusplus
}
#endif

#endif
