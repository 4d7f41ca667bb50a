/*
 * kudcd.h - rows of the query data cache: stored at the end of the data file, read back, rewritten
 */
#ifndef KUDCD_H
#define KUDCD_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudcdstr(kudcaccdef *acmp, kudcthddef *thread);
KU_API uint32_t kudcdrd(kudcaccdef *acmp, kudcthddef *thread, int32_t position);
KU_API uint32_t kudcdrbv(kudcaccdef *acmp, kudcthddef *thread, kudcbvadef *const *values,
                         int32_t position, kudcrchdef *header);
KU_API uint32_t kudcdupd(kudcaccdef *acmp, kudcthddef *thread, int32_t position);
KU_API uint32_t kudcdscds(kudcaccdef *acmp, kudxcoldef *column, kudccdsdef *source);
KU_API uint32_t kudcdcload(kudccdsdef *source);

#ifdef __cplusplus
}
#endif

#endif
