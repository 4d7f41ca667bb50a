/*
 * kudcm.h - working with the query data cache: storing rows, reading, searching, counting, deleting
 */
#ifndef KUDCM_H
#define KUDCM_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudcmrstr(kudcaccdef *acmp, uint16_t thread, const uint16_t *levels, int32_t store,
                          int32_t *position);
KU_API uint32_t kudcmrnxt(kudcaccdef *acmp, kudccurdef *cursor, uint8_t level, uint8_t *found);
KU_API uint32_t kudcmrrd(kudcaccdef *acmp, kudccurdef *cursor, uint8_t level, uint8_t *found);
KU_API uint32_t kudcmksrch(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t relop,
                           int32_t *state);
KU_API uint32_t kudcmpksrch(kudcaccdef *acmp, uint16_t thread, int16_t index, const kudckeydef *key,
                            int32_t *found);
KU_API uint32_t kudcmbcnt(kudcaccdef *acmp, kudccurdef *cursor, uint16_t level, int32_t *count);
KU_API uint32_t kudcmrdel(kudcaccdef *acmp, kudccurdef *cursor);
KU_API uint32_t kudcmkdel(kudcaccdef *acmp, kudccurdef *cursor, int32_t level, int32_t *previous);
KU_API uint32_t kudcmgrst(kudcaccdef *acmp, kudccurdef *cursor, uint16_t *status);
KU_API uint32_t kudcmsrst(kudcaccdef *acmp, kudccurdef *cursor, uint16_t status);
KU_API uint32_t kudcmsblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t thread, int16_t index,
                          uint16_t count, kudcbvadef *const *values, const int32_t *integers,
                          const void *block, uint32_t length, kudccurdef **cursorp);
KU_API uint32_t kudcmrblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t count,
                          kudcbvadef *const *values, const int32_t *integers, void **block);
KU_API uint32_t kudcmsfpblb(kudcaccdef *acmp, const void *block, uint32_t length,
                            int32_t *position);
KU_API uint32_t kudcmrfpblb(kudcaccdef *acmp, int32_t position, void **block, uint32_t *length);

#ifdef __cplusplus
}
#endif

#endif
