/*
 * kux.h - the context: the handle that every operation of the library takes
 *
 * Create a context with kuxcreate, adjust it with kuxset, read it with kuxget,
 * end it with kuxdestroy. A context and everything made in it belongs to one
 * thread at a time; two contexts share nothing. The record is visible, its
 * field order is part of the interface; clients read fields and change them
 * through operations only. A context must not be copied or moved: it points
 * into itself. Error facilities: kuxaa (the context), kuxrm.
 */
#ifndef KUX_H
#define KUX_H

#include <setjmp.h>

#include "kuapp.h"
#include "kudef.h"
#include "kulang.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kux kux;     /* the context */
typedef struct kuxer kuxer; /* error record, kuxer.h */
typedef struct kuxes kuxes; /* error-stack level, kuxer.h */
typedef struct kuxnl kuxnl; /* plain-memory log record, kuxnl.h */
typedef struct kuxrl kuxrl; /* relocatable-memory log record, kuxrl.h */
typedef struct kuxpr kuxpr; /* property record, kuxpr.h */

typedef struct kudateconv kudateconv; /* date-conversion context, opaque */

/* ---- error numbers ---- */

#define KUXAA_DATE                                                                                 \
    KU_CODE('k', 'u', 'x', 'a', 'a', 2) /* a date conversion failed; parameter: why */
#define KUXRM_REFUSED                                                                              \
    KU_CODE('k', 'u', 'x', 'r', 'm', 2) /* kuxset cannot change the level capacity;
                                                            parameter "error stack size"; also what
                                                            kuxmlinit returns without memory */

/* ---- callbacks ---- */

/*
 * Plain memory. Sizes are bytes. Allocated memory must be zero-filled: the
 * library relies on it. Release and the default release return null, so that
 * callers write the result back. A failed resize leaves the block as it was.
 */
typedef void *(*kuxnmallocfn)(kux *ctx, uint32_t size);
typedef void *(*kuxnmfreefn)(kux *ctx, void *address);
typedef void *(*kuxnmreallocfn)(kux *ctx, void *address, uint32_t size);

/*
 * Relocatable memory. A handle stands for a zero-filled block that may move
 * while it is neither locked nor dereferenced; its contents are reached only
 * through the address that lock or begin-dereference yields. Locks nest.
 */
typedef void **kuxhandle;
typedef kuxhandle (*kuxrmallocfn)(kux *ctx, uint32_t size);
typedef kuxhandle (*kuxrmfreefn)(kux *ctx, kuxhandle handle);
typedef kuxhandle (*kuxrmreallocfn)(kux *ctx, kuxhandle handle, uint32_t size);
typedef void *(*kuxrmaccessfn)(kux *ctx, kuxhandle handle); /* lock, unlock, begin, end */
typedef uint16_t (*kuxrmgetstatefn)(kux *ctx, kuxhandle handle);

/* Bit of a handle's state: it may be reached by a short dereference; clear: lock it. */
#define KUXRM_DEREF 0x1u

/*
 * Error formatter: turns one record into text of at most `size` bytes with its
 * NUL. Sets *truncated to 1 when something was cut, else 0. Returns the bytes used.
 */
typedef uint32_t (*kuxerformatfn)(kux *ctx, kuxer *record, char *buffer, uint32_t size,
                                  int32_t *truncated);

/* ---- records ---- */

/* Error context of the date-conversion context. */
typedef struct kuxdacx {
    kux *syscx_kuxdacx;   /* the owning context */
    jmp_buf jbuf_kuxdacx; /* where kuxdaterr jumps to; the client's setjmp fills it */
} kuxdacx;

struct kux {
    int32_t kuxersize;             /* records per error-stack level; fixed at creation */
    int32_t kuxernstacks;          /* levels in use, at least 1 */
    int32_t kuxermaxstacks;        /* slots of the level array */
    kuxes **kuxerstacks;           /* the levels; the last in use is the current one */
    kuxerformatfn kuxerformat;     /* error formatter */
    kuxnmallocfn kuxnmalloc;       /* plain memory: allocate */
    kuxnmfreefn kuxnmfree;         /* plain memory: release */
    kuxnmreallocfn kuxnmrealloc;   /* plain memory: resize */
    void *kuxnmclientdata;         /* the client's, for its plain-memory callbacks */
    kuxrmallocfn kuxrmalloc;       /* relocatable memory: allocate */
    kuxrmfreefn kuxrmfree;         /* relocatable memory: release */
    kuxrmreallocfn kuxrmrealloc;   /* relocatable memory: resize */
    kuxrmaccessfn kuxrmlock;       /* relocatable memory: lock, yields the address */
    kuxrmaccessfn kuxrmunlock;     /* relocatable memory: unlock */
    kuxrmaccessfn kuxrmbeginderef; /* relocatable memory: begin a short dereference */
    kuxrmaccessfn kuxrmendderef;   /* relocatable memory: end it */
    kuxrmgetstatefn kuxrmgetstate; /* relocatable memory: state of a handle */
    void *kuxrmclientdata;         /* the client's, for its relocatable-memory callbacks */
    int32_t kuxmldisabled;         /* nested requests to switch the logs off; 0: logging */
    int32_t kuxnlnrecords;         /* plain-memory log: records in use */
    int32_t kuxnlsize;             /* plain-memory log: records there is room for */
    kuxnl *kuxnllog;               /* plain-memory log */
    int32_t kuxrlnrecords;         /* relocatable-memory log: records in use */
    int32_t kuxrlsize;             /* relocatable-memory log: records there is room for */
    kuxrl *kuxrllog;               /* relocatable-memory log */
    unsigned char *kuxmmostack[5]; /* memory-owner tags; not used by the library */
    int32_t kuxmmnowners;          /* entries in kuxmmostack */
    unsigned char *kuxmtstack[5];  /* memory-type tags; not used by the library */
    int32_t kuxmtntypes;           /* entries in kuxmtstack */
    int32_t kuxprsize;             /* property table: records there is room for */
    int32_t kuxprnprops;           /* property table: records in use */
    kuxpr *kuxprlist;              /* property table, in insertion order */
    kulang kuxlbuffer;             /* storage of the language handle */
    kulang *kuxlangidh;            /* the language handle: points to kuxlbuffer */
    kuapp *kuxuiapp;               /* the client's application handle, or null; borrowed */
    kudateconv *kuxdcxdef;         /* date-conversion context; owned */
    kuxdacx *kuxdacxp;             /* its error context; owned */
    unsigned char *kuxtokbuf;      /* scratch buffer of the tokenizer; owned */
    uint32_t kuxtoklen;            /* its size in bytes; 0: no buffer */
    kulocglo kuxlocglo;            /* locale global area */
    void *kuxstdin;                /* stream on standard input; inert */
    void *kuxstdout;               /* stream on standard output; inert */
    void *kuxstderr;               /* stream on standard error; inert */
};

/* Bits of kuxamask: which fields of kuxa are given or wanted. */
#define KUXA_ERSIZE 0x00000001u
#define KUXA_ERFORMAT 0x00000002u
#define KUXA_NMALL 0x00000004u /* the three plain-memory callbacks, not the client data */
#define KUXA_NMALLOC 0x00000008u
#define KUXA_NMFREE 0x00000010u
#define KUXA_NMREALLOC 0x00000020u
#define KUXA_NMCLIENTDATA 0x00000080u
#define KUXA_RMALL 0x00000100u /* the eight relocatable-memory callbacks, not the client data */
#define KUXA_RMALLOC 0x00000200u
#define KUXA_RMFREE 0x00000400u
#define KUXA_RMREALLOC 0x00000800u
#define KUXA_RMLOCK 0x00001000u
#define KUXA_RMUNLOCK 0x00002000u
#define KUXA_RMBEGINDEREF 0x00004000u
#define KUXA_RMENDDEREF 0x00008000u
#define KUXA_RMGETSTATE 0x00010000u
#define KUXA_RMCLIENTDATA 0x00020000u
#define KUXA_UIAPP 0x00040000u
#define KUXA_LANGIDH 0x00080000u /* read only */
#define KUXA_DCXDEF 0x00100000u  /* read only */
#define KUXA_VERSION 0x00200000u /* read only */

/* Attributes of a context. */
typedef struct kuxa {
    uint32_t kuxamask;              /* which of the following fields are valid */
    int32_t kuxaersize;             /* records per error-stack level; below 1 counts as 1 */
    kuxerformatfn kuxaerformat;     /* error formatter */
    kuxnmallocfn kuxanmalloc;       /* plain memory: allocate */
    kuxnmfreefn kuxanmfree;         /* plain memory: release */
    kuxnmreallocfn kuxanmrealloc;   /* plain memory: resize */
    void *kuxanmclientdata;         /* the client's, for its plain-memory callbacks */
    kuxrmallocfn kuxarmalloc;       /* relocatable memory: allocate */
    kuxrmfreefn kuxarmfree;         /* relocatable memory: release */
    kuxrmreallocfn kuxarmrealloc;   /* relocatable memory: resize */
    kuxrmaccessfn kuxarmlock;       /* relocatable memory: lock */
    kuxrmaccessfn kuxarmunlock;     /* relocatable memory: unlock */
    kuxrmaccessfn kuxarmbeginderef; /* relocatable memory: begin a short dereference */
    kuxrmaccessfn kuxarmendderef;   /* relocatable memory: end it */
    kuxrmgetstatefn kuxarmgetstate; /* relocatable memory: state of a handle */
    void *kuxarmclientdata;         /* the client's, for its relocatable-memory callbacks */
    kuapp *kuxauiapp;               /* application handle */
    kudateconv *kuxadcxdef;         /* date-conversion context; read only */
    const char *kuxaversion;        /* version text of the library, constant; read only */
    kulang *kuxalangidh;            /* language handle; read only */
    void *kuxastdin;                /* not looked at by any operation */
    void *kuxastdout;               /* not looked at by any operation */
    void *kuxastderr;               /* not looked at by any operation */
} kuxa;

/* ---- operations ---- */

/*
 * Makes a context: error stack, logs, properties, language of the environment,
 * date conversion and the three standard streams, in that order.
 *   attrs  which callbacks, level capacity and application handle to use; the
 *          bits KUXA_LANGIDH, KUXA_DCXDEF and KUXA_VERSION are ignored; null: all defaults
 * Returns the context, the caller's, ended with kuxdestroy; or null when memory
 * ran out (there is nowhere yet to report it), with nothing left behind.
 */
KU_API kux *kuxcreate(const kuxa *attrs);

/*
 * Changes formatter, callbacks, client data and application handle, null
 * values included. Memory got from earlier callbacks must be releasable by the
 * new ones. The read-only bits are ignored; null context or attrs: 0.
 * Returns 0; or KUXRM_REFUSED (pushed, with the parameter "error stack size")
 * when KUXA_ERSIZE is set: then nothing at all was changed.
 */
KU_API uint32_t kuxset(kux *ctx, const kuxa *attrs);

/*
 * Fills the fields of `attrs` that kuxamask selects and leaves the others.
 * Pointers handed out stay the context's. Returns 0; cannot fail.
 */
KU_API uint32_t kuxget(kux *ctx, kuxa *attrs);

/*
 * Ends a context: token buffer, streams, error stack, logs (nothing is rolled
 * back), properties (their release functions run), date conversion. Objects
 * made in it must be gone before. Returns null; a null context is ignored.
 */
KU_API kux *kuxdestroy(kux *ctx);

/*
 * The error callback of the date-conversion context; called by the conversion,
 * never by clients. Pushes KUXAA_DATE with the error's message text on the
 * owner's stack and jumps to jbuf_kuxdacx with 1: a client that converts dates
 * through kuxdcxdef must have set that jump target. Does not return.
 */
KU_API void kuxdaterr(kudateconv *dates, int32_t error);

#ifdef __cplusplus
}
#endif

#endif
