/*
 * kudcb.h - DYNBRK indexes: breaks found by comparing rows
 */
#ifndef KUDCB_H
#define KUDCB_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudcbtsrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t relop,
                           int32_t *result);
KU_API uint32_t kudcbcbvcl(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key,
                           uint16_t from, uint16_t to, int32_t *differs, uint16_t *level);
KU_API uint32_t kudcbbv2bv(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *source,
                           kudckeydef *destination, uint16_t from, uint16_t to);

#ifdef __cplusplus
}
#endif

#endif
