/*
 * kudcs.h - SEQNTL indexes: chains of keys in the order of arrival (slot lists)
 */
#ifndef KUDCS_H
#define KUDCS_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudcsikys(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index);
KU_API uint32_t kudcslcur(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level,
                          int32_t *flag);
KU_API uint32_t kudcslnew(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level);
KU_API uint32_t kudcslapp(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level);
KU_API uint32_t kudcslemp(kudcaccdef *acmp, kudcthddef *thread, kudcidxdef *index, uint16_t level,
                          int32_t *empty);
KU_API uint32_t kudcslhemp(kudcaccdef *acmp, kudcidxdef *index, uint16_t level, int32_t *empty);
KU_API uint32_t kudcstsrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t target, uint16_t level,
                           int32_t prvlvlset, int32_t relop, int32_t firstblock, int32_t *result);

#ifdef __cplusplus
}
#endif

#endif
