/*
 * kuob.h - observers: who wants to be told of what, and telling them
 *
 * An observer is a record of a notify function and the types of notification it
 * wants. An observer list is a list (kul.h) of such records, made with
 * kulpcreate, filled with kuobappend, told with kuoblnotify, ended with
 * kuobldestroy. Observers may append and remove any observer, themselves too,
 * while the list is told; they must not end the list. List operations move the
 * list's cursor.
 *
 * Statuses are 0 or the newest code of the error stack, except where an
 * operation says otherwise. An allocation that failed without a code while the
 * stack was empty is pushed as KUXNM_NOMEM (kuxdn.h). Error facility: depob.
 */
#ifndef KUOB_H
#define KUOB_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DEPOB_INCOMPLETE                                                                           \
    KU_CODE('d', 'e', 'p', 'o', 'b', 1) /* observer without a type or notify function */
#define DEPOB_STOP                                                                                 \
    KU_CODE('d', 'e', 'p', 'o', 'b', 2) /* a notify function's answer: tell no others; not pushed */
#define DEPOB_ERRORS                                                                               \
    KU_CODE('d', 'e', 'p', 'o', 'b', 3) /* errors were pushed while a list was told; not pushed */

/* Bits of mask_kuoba. */
#define KUOBA_TYPE 0x1u
#define KUOBA_NOTIFYFUN 0x2u
#define KUOBA_OBSERVER 0x4u
#define KUOBA_CLIENTDATA 0x8u

/*
 * Notify function.
 *   observer    the observing party, observer_kuob
 *   type        the notification's type, one bit or several
 *   object      the object notified about
 *   clientdata  clientdata_kuob
 * Problems are pushed on the error stack; the answer DEPOB_STOP ends the telling
 * of a list, any other is a status for kuobnotify's caller.
 */
typedef uint32_t (*kuobnotifyfn)(kux *ctx, void *observer, uint32_t type, void *object,
                                 void *clientdata);

/* Something extra: not used by these operations. */
typedef union kuextra {
    void *ptr_kuextra;       /* a pointer */
    uint32_t scalar_kuextra; /* a number */
} kuextra;

/* Observer. */
typedef struct kuob {
    uint32_t type_kuob;          /* types of notification it wants, one bit each */
    kuobnotifyfn notifyfun_kuob; /* what is called */
    void *observer_kuob;         /* the observing party */
    void *clientdata_kuob;       /* the client's, for the notify function */
    void *plist_kuob;            /* the client's; null at first, not used by these operations */
} kuob;

/* Attributes of an observer. */
typedef struct kuoba {
    uint32_t mask_kuoba;          /* which of the following fields are given or wanted */
    uint32_t type_kuoba;          /* as in kuob */
    kuobnotifyfn notifyfun_kuoba; /* as in kuob */
    void *observer_kuoba;         /* as in kuob */
    void *clientdata_kuoba;       /* as in kuob */
    kuextra extra_kuoba;          /* not used */
} kuoba;

/* ---- observers; null attributes have no bit set ---- */

/*
 * Makes an observer from its attributes; party and client data are null without
 * their bits. Returns it, ended with kuobdestroy or by the list it is put into;
 * or null: DEPOB_INCOMPLETE (pushed) without a type or a notify function (a null
 * one is none), no memory (the allocator's code).
 */
KU_API kuob *kuobcreate(kux *ctx, const kuoba *attrs);

/* Fills, or changes, the fields that the mask selects. Returns 0. */
KU_API uint32_t kuobget(kux *ctx, const kuob *obs, kuoba *attrs);
KU_API uint32_t kuobset(kux *ctx, kuob *obs, const kuoba *attrs);

/* Releases an observer that is in no list. Null is ignored. Returns 0. */
KU_API uint32_t kuobdestroy(kux *ctx, kuob *obs);

/* Tells one observer, whatever types it wants. Returns its answer; 0 when its notify
 * function was set to null. */
KU_API uint32_t kuobnotify(kux *ctx, kuob *obs, void *object, uint32_t type);

/* ---- observer lists ---- */

/*
 * Tells those who want one of the bits of `type`, in the order of the list as it
 * is now. One that is no longer in the list when its turn comes is left out, and
 * one that is appended meanwhile is not told. (Membership goes by the record's
 * address: an observer appended in the storage of one removed meanwhile takes
 * its turn.)
 * Returns 0; DEPOB_ERRORS when the error stack has more records than before,
 * which a level that was full never has, or when memory for the pass ran out
 * (KULAA_NOMEM is pushed and nobody told); or, when an observer answers
 * DEPOB_STOP, the newest code of the stack at once, 0 on an empty one.
 */
KU_API uint32_t kuoblnotify(kux *ctx, void *obslist, void *object, uint32_t type);

/* Makes an observer as kuobcreate does and appends it. On failure (KULAA_NOMEM,
 * KULAA_LOCKED too) the list is unchanged. */
KU_API uint32_t kuobappend(kux *ctx, void *obslist, const kuoba *attrs);

/*
 * Takes every record of an observing party out and releases it. On failure those
 * not yet taken out stay: KULAA_LOCKED for a locked list, KULAA_NOMEM.
 */
KU_API uint32_t kuobremove(kux *ctx, void *obslist, const void *observer);

/*
 * Stores in *obs the first record whose fields equal all those that the mask
 * selects (no bit: the first record), or null. Borrowed until it is removed.
 * Returns 0.
 */
KU_API uint32_t kuobfind(kux *ctx, void *obslist, const kuoba *attrs, kuob **obs);

/* Releases every record and ends the list. A null list is ignored. Returns 0. */
KU_API uint32_t kuobldestroy(kux *ctx, void *obslist);

#ifdef __cplusplus
}
#endif

#endif
