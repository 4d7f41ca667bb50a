// codes.h - kuq's own errors, pushed on the context's error stack like the library's
//
// Their texts, causes and actions are in msg/kuq.msg.
#ifndef KUQ_CODES_H
#define KUQ_CODES_H

#include <ku.h>

#define KUQAA(number) KU_CODE('k', 'u', 'q', 'a', 'a', number)

#define KUQAA_COMMAND KUQAA(1)  // no such command; parameters: it, the nearest one
#define KUQAA_ARGUMENT KUQAA(2) // no such argument; parameters: it, the nearest one
#define KUQAA_CHOICE KUQAA(3)   // value not allowed; parameters: argument, value, the allowed ones
#define KUQAA_REPEATED KUQAA(4) // argument given twice; parameter: it
#define KUQAA_TOOMANY KUQAA(5)  // more values than the command takes
#define KUQAA_POSITION KUQAA(6) // a value without a keyword after one with a keyword
#define KUQAA_SYNTAX KUQAA(7)   // a value list that is not closed or has an empty place
#define KUQAA_NOTLIST KUQAA(8)  // several values; parameter: argument
#define KUQAA_MISSING KUQAA(9)  // a required argument; parameter: it
#define KUQAA_OPEN KUQAA(10)    // cannot open; parameters: file, why
#define KUQAA_READ KUQAA(11)    // cannot read; parameters: file, why
#define KUQAA_WRITE KUQAA(12)   // cannot write the output; parameter: why
#define KUQAA_NOSETTING KUQAA(13) // no such setting; parameter: name
#define KUQAA_NAME KUQAA(14)      // not a setting's name; parameter: it
#define KUQAA_FILELINE KUQAA(15)  // syntax error in a preference file; parameters: file, line
#define KUQAA_NOWRITE KUQAA(16)   // user file cannot be written; parameter: directory
#define KUQAA_SETTING                                                                              \
    KUQAA(17) // value of a setting not allowed; parameters: name, value, the allowed
#define KUQAA_MEMORY KUQAA(18)  // memory exhausted
#define KUQAA_CONNECT KUQAA(19) // no connection; parameters: SQLSTATE, what the database said
#define KUQAA_DATABASE                                                                             \
    KUQAA(20) // the database refused; parameters: statement, line, SQLSTATE, what it said
#define KUQAA_COLUMN KUQAA(21) // no such column in the result; parameters: it, the nearest one
#define KUQAA_VALUE KUQAA(22)  // value not of its column's datatype; parameters: value, column, row
#define KUQAA_INTERRUPTED KUQAA(23) // ended by the user
#define KUQAA_NOROWS KUQAA(24)      // no statement returned rows
#define KUQAA_ADDED KUQAA(25)       // value that is no number; parameters: value, column
#define KUQAA_TOP KUQAA(26)         // not a number of rows; parameter: it
#define KUQAA_LOST                                                                                 \
    KUQAA(27) // connection lost; parameters: statement, line, SQLSTATE, what was said
#define KUQAA_TOOLONG KUQAA(28) // value longer than the cache's files can be
#define KUQAA_PAIRS KUQAA(29)   // not a pattern for each column; parameter: argument
#define KUQAA_LONG KUQAA(30)    // not a number of characters; parameter: it
#define KUQAA_WIDE KUQAA(31)    // more than can be; parameters: how many can be, of what
#define KUQAA_PATTERN                                                                              \
    KUQAA(32) // pattern that is wrong; parameters: it, at which character, what is wrong
#define KUQAA_LARGE KUQAA(33)    // pattern that is too large; parameter: it
#define KUQAA_ESCAPE KUQAA(34)   // not one character; parameter: it
#define KUQAA_NOWHERE KUQAA(35)  // no such file; parameters: it, directories looked in, types tried
#define KUQAA_BOTH KUQAA(36)     // two arguments exclude each other; parameters: one, the other
#define KUQAA_ACTION KUQAA(40)   // no such command of a session; parameters: it, the nearest one
#define KUQAA_USAGE KUQAA(41)    // command written wrong; parameters: it, how it is written
#define KUQAA_ROW KUQAA(42)      // no such row; parameters: it, how many there are
#define KUQAA_LEVEL KUQAA(43)    // no such level; parameters: it, how many there are
#define KUQAA_KEY KUQAA(44)      // not a value of the column; parameters: it, column
#define KUQAA_NOTFOUND KUQAA(45) // no row has it; parameters: it, the row where the search began
#define KUQAA_NOMORE KUQAA(46)   // nothing there; parameter: what was asked for
#define KUQAA_STDIN KUQAA(47)    // statements where the commands come from
#define KUQAA_HISTORY KUQAA(48)  // lines cannot be remembered; parameters: file, why

#endif
