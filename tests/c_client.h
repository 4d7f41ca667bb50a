/*
 * c_client.h - what the client in C shows to the test that runs it
 */
#ifndef TESTS_C_CLIENT_H
#define TESTS_C_CLIENT_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One family (or a few that belong together), used once. */
typedef struct c_client_family {
    const char *name;
    /* Returns null, or the text of the condition that did not hold. May keep
     * files in `directory`; KU_GPREFS and KU_UPREFS name it, too. */
    const char *(*use)(kux *ctx, const char *directory);
} c_client_family;

extern const c_client_family c_client_families[]; /* ended by a null name */

#ifdef __cplusplus
}
#endif

#endif
