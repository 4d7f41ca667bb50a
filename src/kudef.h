/*
 * kudef.h - what every public header stands on: export mark, error-code macro
 *
 * Error facility: none. Nothing here has a life of its own.
 */
#ifndef KUDEF_H
#define KUDEF_H

#include <stdint.h>

/* Marks an operation or table of the flat interface; all else stays hidden. */
#define KU_API __attribute__((visibility("default")))

/*
 * An error code or type tag: five letters `a` to `z`, five bits each from bit
 * 31 down, and a number 0 to 127 in bits 6 to 0. A constant expression, equal
 * to kuxidencode of the same letters and number.
 */
#define KU_CODE(l1, l2, l3, l4, l5, number)                                                        \
    (((l1) - 'a') * 0x08000000u | ((l2) - 'a') * 0x00400000u | ((l3) - 'a') * 0x00020000u          \
     | ((l4) - 'a') * 0x00001000u | ((l5) - 'a') * 0x00000080u | (number))

/* A byte length of this value means: NUL-terminated, to be measured. */
#define KU_NTS 65535u

#endif
