/*
 * kudck.h - keys of the query data cache, and the B-trees of RANDOM indexes
 *
 * A block is a pointer to its bytes, header first.
 */
#ifndef KUDCK_H
#define KUDCK_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- keys ---- */

KU_API uint32_t kudckcmp(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, uint16_t count,
                         const unsigned char *flatkey, int16_t *condition);
KU_API uint32_t kudckcflkval(kudcaccdef *acmp, const kudckeydef *key, uint16_t level,
                             unsigned char *destination);
KU_API uint32_t kudckpsflk(const kudckeydef *key, uint16_t level, uint32_t *size);
KU_API uint32_t kudckszflk(const unsigned char *flatkey, uint16_t count, uint32_t *size);
KU_API uint32_t kudckcvp(const unsigned char *flatkey, uint16_t column, uint16_t count,
                         const unsigned char **value);
KU_API uint32_t kudckgt(kudcaccdef *acmp, const unsigned char *block, uint16_t entry,
                        kudcbvadef *values, uint32_t *size);
KU_API uint32_t kudckcl(kudcaccdef *acmp, const unsigned char *block, kudcbvadef *values);
KU_API uint32_t kudckgls(kudcaccdef *acmp, const kudckeydef *key, uint16_t level, int32_t *set);
KU_API uint32_t kudckncpy(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp);
KU_API uint32_t kudckcop(kudcaccdef *acmp, const kudckeydef *key, kudckeydef **copyp,
                         int32_t reuse);
KU_API uint32_t kudckcbva(kudcaccdef *acmp, const kudcidxdef *index, const kudckeydef *key1,
                          const kudckeydef *key2, uint16_t from, uint16_t to, int32_t *differs,
                          uint16_t *level);

/* ---- B-trees ---- */

KU_API uint32_t kudcksrc(kudcaccdef *acmp, const kudckeydef *key, int16_t *position,
                         int32_t *empty);
KU_API uint32_t kudckfnd(kudcaccdef *acmp, const kudckeydef *key, int32_t root, int32_t allkeys,
                         int32_t *count, int32_t *row);
KU_API uint32_t kudckins(kudcaccdef *acmp, kudckeydef *key, kudcthddef *thread, kudcidxdef *index,
                         int32_t *child, int32_t *nextroot, int32_t *outcome);
KU_API uint32_t kudckzdrc(kudcaccdef *acmp, kudcthddef *thread, unsigned char *block,
                          uint16_t entry, uint16_t slot);
KU_API uint32_t kudckcpy(unsigned char *destination, const unsigned char *source, uint16_t toentry,
                         uint16_t fromentry);
KU_API uint32_t kudckdel(unsigned char *destination, const unsigned char *source, uint16_t entry);
KU_API uint32_t kudckrep(kudcaccdef *acmp, unsigned char *destination, const unsigned char *source,
                         uint16_t entry, const kudckeydef *key);
KU_API uint32_t kudckfblb(kudcaccdef *acmp, kudccurdef *cursor, uint16_t count,
                          kudcbvadef *const *values, const int32_t *integers, int32_t *row);

#ifdef __cplusplus
}
#endif

#endif
