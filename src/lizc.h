/*
 * lizc.h - character classes: is the first character of a text in a class?
 *
 * Each test takes a text as lizg.h says (a cursor is looked at where it stands
 * and not moved) and returns 1 or 0; 0 for the length 0 and, outside single-byte
 * languages, for an unknown representation. A NUL at the start is looked at as
 * the control character that it is.
 */
#ifndef LIZC_H
#define LIZC_H

#include "lizg.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LIZC_TEST(name)                                                                            \
    KU_API int32_t name(const kulang *lh, kulocglo *glo, const void *str, uint32_t length,         \
                        int32_t rep)

LIZC_TEST(lizcletter); /* letter */
LIZC_TEST(lizcalpha);  /* letter */
LIZC_TEST(lizcalnum);  /* letter or decimal digit */
LIZC_TEST(lizccntrl);  /* control character */
LIZC_TEST(lizcdigit);  /* decimal digit */
LIZC_TEST(lizcgraph);  /* letter, decimal digit or punctuation */
LIZC_TEST(lizclower);  /* lower-case letter */
LIZC_TEST(lizcprint);  /* letter, decimal digit, punctuation or printable blank */
LIZC_TEST(lizcpunct);  /* punctuation */
LIZC_TEST(lizcblank);  /* single-byte languages: the blank 0x20; others: white space */
LIZC_TEST(lizcspace);  /* white space */
LIZC_TEST(lizcupper);  /* upper-case letter */
LIZC_TEST(lizcxdigit); /* hexadecimal digit */

#undef LIZC_TEST

#ifdef __cplusplus
}
#endif

#endif
