/*
 * skub.h - buffered streams, and the services for file names
 *
 * Create or open a stream on a file, read and write characters, lines and
 * blocks, close it. The context's three streams on the process's standard files
 * are inert: reading and writing them returns 0 and does nothing, not even to
 * out-values. A null stream is inert in the same way. Lengths and counts are
 * bytes unless said otherwise; there is no text mode, a CR stays in the data.
 *
 * File names are NUL-terminated texts in the context's language. The services
 * for names know the backslash as the only directory separator; a backslash is
 * turned into '/' where a name is handed to the system, so names with either
 * open the same file. A byte of that value inside a multibyte character is
 * never taken for a separator.
 *
 * An operation that fails pushes its code and, if it has a status result,
 * returns the newest code on the error stack. Error facility: skuba.
 */
#ifndef SKUB_H
#define SKUB_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- constants ---- */

/* Bits of mask_skuba: which fields of the attributes are given. */
#define SKUBA_MODE 0x1u /* mode_skuba */
#define SKUBA_POSN 0x2u /* posn_skuba */
#define SKUBA_SPEC 0x4u /* spec_skuba; the stream is a standard one, the others are ignored */

/* Bits of mode_skuba and mode_skub. */
#define SKUB_TRUNCATE 0x1u /* empty the file on opening; needs SKUB_WRITE */
#define SKUB_CREATE 0x2u   /* create the file if it does not exist */
#define SKUB_WRITE                                                                                 \
    0x4u                    /* open for writing and reading; with SKUB_CREATE and without
                               SKUB_TRUNCATE every write goes to the end of the file */
#define SKUB_TEMPORARY 0x8u /* delete the file when the stream is closed */

#define SKUB_END (-1) /* position: the end of the file */

#define SKUB_TMPNAMLEN 20u /* bytes of a temporary name, the NUL included */

/* ---- error numbers ---- */

#define SKUBA_EOF KU_CODE('s', 'k', 'u', 'b', 'a', 1) /* the end of the file; returned only */
#define SKUBA_NOMODE                                                                               \
    KU_CODE('s', 'k', 'u', 'b', 'a', 1)                    /* attributes without a mode, or a
                                                               standard file that is not 1 to 3; pushed */
#define SKUBA_NOFILE KU_CODE('s', 'k', 'u', 'b', 'a', 2)   /* the file must exist and does not */
#define SKUBA_NOWRITE KU_CODE('s', 'k', 'u', 'b', 'a', 3)  /* truncation asked without writing */
#define SKUBA_POSITION KU_CODE('s', 'k', 'u', 'b', 'a', 4) /* positioning failed */
#define SKUBA_CLOSE KU_CODE('s', 'k', 'u', 'b', 'a', 5)    /* closing failed */
#define SKUBA_CGET                                                                                 \
    KU_CODE('s', 'k', 'u', 'b', 'a', 6) /* reading a character failed, or no place for it */
#define SKUBA_CPUT KU_CODE('s', 'k', 'u', 'b', 'a', 7)   /* writing a character failed */
#define SKUBA_READ KU_CODE('s', 'k', 'u', 'b', 'a', 8)   /* reading a block failed */
#define SKUBA_SGET KU_CODE('s', 'k', 'u', 'b', 'a', 9)   /* reading a line failed */
#define SKUBA_SPUT KU_CODE('s', 'k', 'u', 'b', 'a', 10)  /* writing a text failed */
#define SKUBA_WRITE KU_CODE('s', 'k', 'u', 'b', 'a', 11) /* writing a block failed */
#define SKUBA_STATUS                                                                               \
    KU_CODE('s', 'k', 'u', 'b', 'a', 12)                /* a file's status cannot be read, for
                                                               another reason than its absence */
#define SKUBA_ROOM KU_CODE('s', 'k', 'u', 'b', 'a', 13) /* a built name does not fit the buffer */
#define SKUBA_OPEN KU_CODE('s', 'k', 'u', 'b', 'a', 14) /* opening failed */
#define SKUBA_SIZE                                                                                 \
    KU_CODE('s', 'k', 'u', 'b', 'a', 16) /* the open file's size cannot be read, or
                                                               is more than 32 bits can say */
#define SKUBA_SHORT                                                                                \
    KU_CODE('s', 'k', 'u', 'b', 'a', 17) /* fewer bytes written than read while copying */
#define SKUBA_REMOVE KU_CODE('s', 'k', 'u', 'b', 'a', 18)  /* deleting failed */
#define SKUBA_RENAME KU_CODE('s', 'k', 'u', 'b', 'a', 19)  /* renaming failed */
#define SKUBA_TMPNAM KU_CODE('s', 'k', 'u', 'b', 'a', 20)  /* no temporary name */
#define SKUBA_SETMODE KU_CODE('s', 'k', 'u', 'b', 'a', 21) /* the permissions cannot be set */

/* ---- records ---- */

struct kufile; /* an open buffered file, private to the runtime layer */

/* Stream. */
typedef struct skub {
    struct kufile *fp_skub; /* the open file; null after a close that failed */
    char *name_skub;        /* copy of the file name, owned; null for a standard stream */
    uint32_t mode_skub;     /* SKUB_... bits given at creation; 0 for a standard stream */
    int32_t posn_skub;      /* position given at creation */
    int32_t spec_skub;      /* 0 ordinary file, 1 standard input, 2 output, 3 error */
} skub;

/* Attributes of a stream. */
typedef struct skuba {
    uint32_t mask_skuba; /* SKUBA_... bits: which of the following fields are valid */
    uint32_t mode_skuba; /* SKUB_... bits */
    int32_t posn_skuba;  /* first position: SKUB_END, 0 the start, n > 0 the n-th character */
    int32_t spec_skuba;  /* standard file: 1 input, 2 output, 3 error */
} skuba;

/* ---- streams ---- */

/*
 * Creates a stream on a file.
 *   name   copied in; ignored for a standard stream
 *   attrs  borrowed for the call; null: SKUB_CREATE + SKUB_WRITE, position 0
 * SKUB_WRITE with SKUB_TRUNCATE empties the file (and creates it); SKUB_WRITE
 * with SKUB_CREATE appends; SKUB_WRITE alone overwrites from the start; no
 * SKUB_WRITE only reads. A regular file that a stream writes is locked against
 * other writers, in this process too, where the file system has locks; opening
 * it for writing a second time fails, reading it does not. Directories are
 * refused. Without SKUBA_POSN the stream starts at the start.
 * Returns the stream, the caller's, ended with skubdestroy or skubclose; or
 * null, with SKUBA_NOMODE, SKUBA_NOFILE (no SKUB_CREATE and no such regular
 * file; on top of SKUBA_STATUS when the system cannot tell), SKUBA_NOWRITE or
 * SKUBA_POSITION (on top of SKUBA_READ when a read failed) pushed, or nothing
 * when the system refuses to open the file. Without memory there is what the
 * context's allocator pushed. A file it had created stays.
 */
KU_API void *skubcreate(kux *ctx, const char *name, const skuba *attrs);

/*
 * Creates a stream from the mode text of the standard library's open: "r", "w",
 * "a", "r+", "w+", "a+", each with at most one "b" after the letter or the
 * plus, which changes nothing. "w" and "a" can read, too; "a" starts at the end.
 * Returns the stream as skubcreate does; or null with SKUBA_OPEN pushed on top
 * of what skubcreate pushed, or alone for any other mode text.
 */
KU_API void *skubopen(kux *ctx, const char *name, const char *mode);

/*
 * Writes what is buffered, closes the file, deletes it if it is temporary
 * (failing to is ignored) and releases the stream. When closing fails it pushes
 * SKUBA_CLOSE and keeps the record without its file: a second call releases it.
 * Returns null. A null stream is ignored; a standard file is never closed.
 */
KU_API void *skubdestroy(kux *ctx, void *stream);

/* The same with a status: 0, or SKUBA_CLOSE. */
KU_API uint32_t skubclose(kux *ctx, void *stream);

/*
 * Moves to a position: SKUB_END, 0 the start, n > 0 after the n-th character,
 * or to the end when there are fewer. Costs n single reads.
 * Returns 0, or SKUBA_POSITION (any position below SKUB_END too), on top of
 * SKUBA_READ when a read failed. Forgets that the end was reached.
 */
KU_API uint32_t skubposition(kux *ctx, void *stream, int32_t position);

/*
 * Reading. Reaching the end is reported by the call after the one that met it:
 * SKUBA_EOF, returned and not pushed, until the stream is positioned. A failure
 * stays with the stream: every later call that reads or writes reports it, too,
 * but for reads behind the end of the file (positioning to n > 0 reads; the other
 * positions, the size and closing do not).
 */

/* Reads one byte. Returns 0, SKUBA_EOF at the end, or SKUBA_CGET (a null `byte` too). */
KU_API uint32_t skubcget(kux *ctx, void *stream, unsigned char *byte);

/*
 * Reads up to `count` items of `length` bytes into `buffer`.
 *   nread  out: whole items read, less than `count` when the end was met; may be null
 * Returns 0, SKUBA_EOF when the end was met by an earlier call (`nread` is then
 * untouched), or SKUBA_READ.
 */
KU_API uint32_t skubread(kux *ctx, void *stream, void *buffer, uint32_t count, uint32_t length,
                         uint32_t *nread);

/*
 * Reads a line: at most `size` - 1 bytes, up to and with the newline, and a NUL.
 *   buffer, size  where to, and its bytes; a size of 1 gives "" and SKUBA_EOF,
 *                 a size of 0 SKUBA_EOF
 * A longer line comes in pieces, a last line without a newline as it is. A NUL
 * in the data hides the rest of its line. Returns 0, SKUBA_EOF when there was
 * nothing to read, or SKUBA_SGET (a null buffer too).
 */
KU_API uint32_t skubsget(kux *ctx, void *stream, char *buffer, uint32_t size);

/* Writes one byte. Returns 0, or SKUBA_CPUT. */
KU_API uint32_t skubcput(kux *ctx, void *stream, unsigned char byte);

/*
 * Writes `count` items of `length` bytes from `buffer`.
 *   nwritten  out: whole items accepted; may be null
 * Returns 0, or SKUBA_WRITE. What is accepted may still fail at skubflush or skubclose.
 */
KU_API uint32_t skubwrite(kux *ctx, void *stream, const void *buffer, uint32_t count,
                          uint32_t length, uint32_t *nwritten);

/* Writes a NUL-terminated text without its NUL. Returns 0, or SKUBA_SPUT (a null text too). */
KU_API uint32_t skubsput(kux *ctx, void *stream, const char *text);

/* Hands buffered output to the system; a failure is reported by the next call that writes. */
KU_API void skubflush(kux *ctx, void *stream);

/*
 * Size of the open file in bytes, buffered output included; a standard stream's
 * too. Returns 0, or SKUBA_SIZE (a null `size` too) with `size` untouched. A null stream gives 0
 * and leaves `size`.
 */
KU_API uint32_t skubfsize(kux *ctx, void *stream, uint32_t *size);

/* ---- files by name ---- */

/*
 * 1 when the name is a regular file (through symbolic links), else 0; a null or
 * empty name: 0. When the system cannot tell: 0 with SKUBA_STATUS pushed.
 */
KU_API int32_t skubfexist(kux *ctx, const char *name);

/*
 * Deletes a regular file; anything else is left alone. Returns 0, or
 * SKUBA_REMOVE. When the system cannot tell what it is: 0 with SKUBA_STATUS pushed.
 */
KU_API uint32_t skubremove(kux *ctx, const char *name);

/*
 * Renames by copying: removes the target, copies the source, removes the
 * source; steps done are not undone. The same file twice: nothing happens.
 * Returns 0, or SKUBA_RENAME in place of what the failing step pushed last.
 */
KU_API uint32_t skubrename(kux *ctx, const char *source, const char *target);

/*
 * Copies a file with its permission bits over the target. A target that is no
 * regular file (a device, a pipe) is written and keeps its own bits. The same
 * file twice: nothing happens. Returns 0; or SKUBA_STATUS (no source) or
 * SKUBA_OPEN, with the target's contents as they were; or SKUBA_READ,
 * SKUBA_WRITE, SKUBA_SHORT or SKUBA_CLOSE (of the target), with the target
 * incomplete; or SKUBA_SETMODE, with all of it copied.
 */
KU_API uint32_t skubcopy(kux *ctx, const char *source, const char *target);

/*
 * Makes a name in /tmp of a file that does not exist yet; nothing is created.
 *   buffer  SKUB_TMPNAMLEN bytes
 * Returns 0, or SKUBA_TMPNAM.
 */
KU_API uint32_t skubtmpnam(kux *ctx, char *buffer);

/* ---- names as texts: nothing is looked up, null is an empty text. The tests cannot fail. ---- */

/* 1 when the name has a directory part: a backslash. */
KU_API int32_t skubdspecified(kux *ctx, const char *name);

/* 1 when the name has a type part: a full stop after its last backslash. */
KU_API int32_t skubtspecified(kux *ctx, const char *name);

/* 1 when the name ends in a full stop and exactly the type `type`, case included. */
KU_API int32_t skubstspecified(kux *ctx, const char *name, const char *type);

/*
 * Builds base + "." + type; the full stop comes with an empty type, too.
 *   buffer  where to
 *   length  in: bytes the buffer takes; out: bytes of the name
 * A NUL follows when there is room for it: to always have one, pass one byte
 * less than the buffer has. Returns 0, or SKUBA_ROOM; or, without memory, the
 * newest code (SKUBA_ROOM, pushed, when the allocator pushed none). After a
 * failure buffer and `length` are as they were.
 */
KU_API uint32_t skubatype(kux *ctx, const char *base, const char *type, char *buffer,
                          uint32_t *length);

/*
 * Builds directory + base, with a backslash between unless the directory is
 * empty or ends in one. Where characters depend on a shift state, runs left
 * shifted are closed and runs that meet become one. Buffer, length and result as
 * for skubatype.
 */
KU_API uint32_t skubadir(kux *ctx, const char *base, const char *directory, char *buffer,
                         uint32_t *length);

#ifdef __cplusplus
}
#endif

#endif
