/*
 * kudcf.h - the query data cache: creating it, its cursors, its end
 *
 * A status is 0 or the newest code on the error stack after a failure.
 */
#ifndef KUDCF_H
#define KUDCF_H

#include "kudcdef.h"

#ifdef __cplusplus
extern "C" {
#endif

KU_API uint32_t kudcfcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath,
                            const char *indexpath, uint16_t threads, const kudctdddef *descriptors,
                            kudcaccdef **acmpp);
KU_API uint32_t kudcftcreate(kux *kuxp, kux *kuvp, void *skufh, const char *datapath,
                             const char *indexpath, uint16_t threads,
                             const kudctddtdef *descriptors, kudcaccdef **acmpp);
KU_API uint32_t kudcfdestroy(kudcaccdef *acmp);
KU_API uint32_t kudcfnwcurs(kudcaccdef *acmp, const kudckeydef *goal, uint16_t thread,
                            int16_t index, int32_t number, int32_t position, kudccurdef **cursorp);
KU_API uint32_t kudcfcpcurs(kudcaccdef *acmp, const kudccurdef *cursor, kudccurdef **copyp);
KU_API uint32_t kudcffrcurs(kudcaccdef *acmp, kudccurdef *cursor);
KU_API uint32_t kudcfginf(kudcaccdef *acmp, uint16_t thread, int16_t index, uint16_t *levels,
                          uint16_t **offsets);
KU_API uint32_t kudcfrbv(kux *kuvp, kux *kuxp, kudcbvadef *values, uint16_t count);
KU_API uint32_t kudcfrky(kudcaccdef *acmp, kudckeydef *key, int32_t freekey);

#ifdef __cplusplus
}
#endif

#endif
