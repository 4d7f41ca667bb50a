/*
 * kup.h - preferences: named settings in a global and a user file
 *
 * An entry is a name with a list of text values. It is general, or specific to
 * one product and then written `product.name`. kupopen reads both files under
 * a product's name; kupget looks names up, user file before global file,
 * specific before general; kupset and kupremove change the entries in memory;
 * kupwrite writes the user file, whole; kupclose ends it. Files are read only
 * by kupopen and written only by kupwrite.
 *
 * The files are `kuuprefs.xdb` in the directory that KU_UPREFS names and
 * `kugprefs.xdb` in that of KU_GPREFS. A variable that is not set counts as a
 * missing file.
 *
 * Text of a file, split as kukp.h splits SQL:
 *     name = value
 *     product.name = ('first value', second, "third")
 *     name = ()                      an entry without values
 * Comments are those of SQL. Adjacent tokens are one value (`x-1`, `a/b`); a
 * value with `.`, `=`, `(`, `)`, `,` or a blank is quoted. Quoted values and
 * entries may run over lines. A line of more than 1023 bytes is read as
 * several lines. After a syntax error the rest of its line is skipped, the
 * entry that it interrupts is lost, and reading goes on.
 *
 * Names are compared without case, values exactly, in the context's language.
 * Names, values and entries are relocatable memory: reach a value's bytes by
 * lock or dereference (kuxrm.h). Every value ends with a NUL.
 *
 * The operations answer with bits, and push no code of their own; codes of the
 * memory, list, lexer and stream layers stay on the error stack.
 */
#ifndef KUP_H
#define KUP_H

#include "kux.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Which kind of entry. Both or neither: see the operation. */
#define KUP_SPECIFIC 0x8000u /* specific to the open product */
#define KUP_GENERAL 0x4000u  /* for every product */

/* Which file. */
#define KUP_USER 0x2000u
#define KUP_GLOBAL 0x1000u

/* How kupget answers. */
#define KUP_NOSORT 0x0008u /* values in file order, not sorted */

/* Status bits. */
#define KUP_NOMEM 0x0002u        /* memory exhausted */
#define KUP_NOTFOUND 0x0004u     /* kupget: no such entry; returned alone */
#define KUP_NOGLOBALFILE 0x0010u /* the global file is missing, or cannot be opened or read */
#define KUP_NOUSERFILE 0x0020u   /* the user file is; kupwrite: it cannot be named or opened */
#define KUP_GLOBALERR 0x0040u    /* the global file has a syntax error */
#define KUP_USERERR 0x0080u      /* the user file has a syntax error */

/* Preference context. The four file lists are sorted by name; items are handles of entries. */
typedef struct kupct {
    kux *kupctscx;        /* the library context */
    const char *kupctprd; /* product name given to kupopen; borrowed until kupclose */
    void *kupctusp;       /* list: user file, specific to this product */
    void *kupctugn;       /* list: user file, general */
    void *kupctgsp;       /* list: global file, specific to this product */
    void *kupctggn;       /* list: global file, general */
    void *kupcttmp;    /* list: user file, other products, in file order; kept to be written back */
    uint32_t kupctuse; /* first line of the user file with a syntax error, from 1; 0: none */
    uint32_t kupctgse; /* the same of the global file */
    kuxhandle kupcthdl; /* handle of this record, locked while open */
} kupct;

/* Entry. */
typedef struct kuppf {
    kuxhandle kuppfprd; /* product as read; null but in entries of other products */
    kuxhandle kuppfprf; /* name */
    void
        *kuppfval; /* list of value handles, in file order until kupget sorts it; null: no values */
} kuppf;

/*
 * Opens the preferences of a product and reads both files. A missing file is
 * normal: its lists are empty.
 *   prdnam  product name, without case; not copied, must outlive the
 *           preferences; null counts as empty
 *   prfctx  out: the preferences, the caller's, ended with kupclose
 * Returns 0, or bits of KUP_NOUSERFILE, KUP_NOGLOBALFILE, KUP_USERERR and
 * KUP_GLOBALERR; *prfctx is usable then. Out of memory: exactly KUP_NOMEM, with
 * *prfctx null. A file that cannot be opened clears the error stack's current level;
 * of one that cannot be read to its end, the entries before the failure are there.
 */
KU_API uint16_t kupopen(kux *kuxp, const char *prdnam, kupct **prfctx);

/*
 * First line with a syntax error, from 1; 0: none. `flag` with KUP_USERERR or
 * KUP_USER asks for the user file, else with KUP_GLOBALERR or KUP_GLOBAL for
 * the global file, else the answer is 0.
 */
KU_API uint32_t kuperrlin(kupct *prfctx, uint16_t flag);

/*
 * Looks up the values of a name.
 *   prfnam    name, without case
 *   flag      KUP_SPECIFIC, KUP_GENERAL, KUP_USER, KUP_GLOBAL, KUP_NOSORT. Neither
 *             of a pair: the first place that has the entry answers (user
 *             before global, specific before general). Both of a pair: both
 *             places are searched and their values combined.
 *   list      where the value handles go, behind or merged into what it holds;
 *             null: a new list, stored in *list_ptr, the caller's, ended with kulpdestroy
 *   list_ptr  not touched, and may be null, when `list` is given
 * Without KUP_NOSORT the result is sorted by value and a value of a later place
 * that equals an earlier one is left out; the entry's own list is sorted with it
 * and stays so. A list given must be sorted then. Returns KUP_USER or KUP_GLOBAL
 * with KUP_SPECIFIC or KUP_GENERAL, for each place that answered; or KUP_NOTFOUND,
 * with the list made here destroyed and *list_ptr null; or KUP_NOMEM, with the
 * same and a list that was given as it was.
 * The handles stay the preferences': borrowed until the entry is set or removed,
 * or kupclose.
 */
KU_API uint16_t kupget(kupct *prfctx, const char *prfnam, uint16_t flag, void *list,
                       void **list_ptr);

/*
 * Gives an entry of the user file new values; makes it when there is none.
 *   prfnam  name, copied in. Only a name that is one word of the lexer and, for
 *           KUP_GENERAL, not the product's name, can be read back from the file.
 *   values  list of value handles: the handles are taken over, the list stays
 *           the caller's. Handles that kupget gave out for this entry may be
 *           among them. Null: no values. The entry's own list (kuppfval) leaves
 *           the entry as it is; it stays the entry's.
 *   flags   KUP_SPECIFIC or KUP_GENERAL; both: the general entry gets copies;
 *           neither: nothing is done and nothing taken over
 * Returns 0; or KUP_NOMEM, with every entry as it was and the handles still the caller's.
 */
KU_API uint16_t kupset(kupct *prfctx, const char *prfnam, void *values, uint16_t flags);

/*
 * Removes an entry from the preferences in memory.
 *   flag  KUP_USER, or else KUP_GLOBAL, with KUP_SPECIFIC, or else KUP_GENERAL
 * Returns 0, whether there was such an entry or not, and with it as it was when one that
 * is looked at cannot be accessed; 1 when `flag` names no list.
 * A global entry comes back with the next kupopen: the global file is never written.
 */
KU_API uint16_t kupremove(kupct *prfctx, const char *prfnam, uint16_t flag);

/*
 * Writes the user file: general entries, specific ones, those of other
 * products. Comments, layout and order of the old file are not kept. The new
 * file is written beside the old one and put in its place when it is complete,
 * with its owner, permissions and access list and through symbolic links.
 * Returns 0, or KUP_NOUSERFILE when the file cannot be named or opened, also
 * because somebody writes it just now. What fails later is on the error stack
 * alone: SKUBA_WRITE, SKUBA_CLOSE, KUXRM_NOLOCK, KUXRM_NODEREF; the old file is
 * then whole, but for the cases that follow.
 *
 * The old file is overwritten, so that a failure loses it, where its directory
 * takes no new files, where it has further names (hard links), where it is no
 * regular file, where the new one cannot get its owner, permissions or access
 * list, and where something is mounted on it (only once the new one is complete).
 * A process that is killed meanwhile leaves the new file, named as the old one
 * with ".", eight letters and "~ku" behind; the next kupwrite removes it.
 *
 * A value is written between double quotes where it would not be read back bare:
 * when it is empty, has one of `=(),"'-.` or white space, has a comment's or
 * label's opening, would not end within a line of 1023 bytes, or, in a
 * shift-sensitive set, has a shifted run. A quoted value that the cut of such a
 * line would damage begins on a line of its own, behind blanks if need be.
 *
 * Reading the file gives the same entries, with these exceptions: a name or
 * product that is not one word, or that does not end within its line of 1023
 * bytes; a general entry named as the product; and, where no place of its
 * beginning helps, a value of several lines, or too long for one line: a double
 * quote past the first line comes back doubled unless that line begins with one, a
 * quote that begins a later line or ends one that is cut is lost, with a single
 * one of a pair that the cut divides the rest of the value is; in a
 * shift-sensitive set a shifted run ends where its line does, and where a value
 * does, and a shift byte at its end that shifts nothing is lost. For a place of its
 * beginning, 1023 are tried for values of up to 16 KB; of longer ones as many as
 * looking at 16 MB of the value in all allows, one at least.
 */
KU_API uint16_t kupwrite(kupct *prfctx);

/* Releases the preferences with their entries and values; writes nothing. Null is
 * ignored. Returns 0. */
KU_API uint16_t kupclose(kupct *prfctx);

#ifdef __cplusplus
}
#endif

#endif
