/*
 * kudcp.h - dumps of the query data cache as text, for developers
 */
#ifndef KUDCP_H
#define KUDCP_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API void kudcpacmp(kudcaccdef *acmp, void *stream);
KU_API void kudcpthdd(kudcaccdef *acmp, const kudcthddef *thread, int32_t number, void *stream);
KU_API void kudcpdidx(kudcaccdef *acmp, const kudcidxdef *index, int32_t number, int32_t thread,
                      void *stream);
KU_API void kudcpcolh(kudcaccdef *acmp, const kudxcoldef *column, void *stream);
KU_API void kudcpgoal(kudcaccdef *acmp, const kudckeydef *key, void *stream);
KU_API void kudcpbva(kudcaccdef *acmp, const kudcbvadef *value, void *stream);
KU_API uint32_t kudcpidx(kudcaccdef *acmp, int32_t limit, uint16_t thread, int16_t index,
                         void *stream);
KU_API void kudcpbrt(kudcaccdef *acmp, int32_t limit, int32_t root, void *stream);
KU_API uint32_t kudcplvl(kudcaccdef *acmp, int32_t limit, int32_t block, int32_t depth,
                         int32_t *counter, int32_t parent, int32_t parententry, uint16_t type,
                         void *stream);
KU_API void kudcpval(kudcaccdef *acmp, char *text, const unsigned char *value, uint32_t length,
                     uint16_t datatype, int8_t isnull);

#ifdef __cplusplus
}
#endif

#endif
