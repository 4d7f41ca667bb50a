/*
 * kuxid.h - identifiers: five letters and a number in 32 bits
 *
 * Error codes, property names and type tags are made this way; KU_CODE does it
 * at compile time. Letters are `a` to `z` in either case by ASCII, whatever
 * the language; any other character counts as `a`. Needs no context, cannot fail.
 */
#ifndef KUXID_H
#define KUXID_H

#include "kudef.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The letters by value, and a NUL. */
KU_API extern const char kuxidalphabet[27];

/* Identifier of five characters (no NUL needed) and a number, which must be below
 * 128: a larger one changes the fifth letter. */
KU_API uint32_t kuxidencode(const char *prefix, uint8_t number);

/* Identifier of five characters with the number 0. */
KU_API uint32_t kuxidbase(const char *prefix);

/* Writes the five lower-case letters into `area` (5 bytes, no NUL); returns the number. */
KU_API uint8_t kuxiddecode(uint32_t identifier, char *area);

/* Letter `field` (0 to 4) or the number (5); any other field gives 'a'. */
KU_API uint8_t kuxidextract(uint32_t identifier, int32_t field);

/* Value 0 to 25 of a letter; 0 for any other character. */
KU_API uint8_t kuxidcharval(char character);

#ifdef __cplusplus
}
#endif

#endif
