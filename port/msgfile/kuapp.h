/*
 * kuapp.h - application handle: where a client's message files are
 *
 * A plain record that the client fills, gives to its context (KUXA_UIAPP) and
 * keeps until the context is gone. Without one every message look-up fails
 * and errors show as facility, number and parameters.
 */
#ifndef KUAPP_H
#define KUAPP_H

typedef struct kuapp {
    const char *messages_kuapp;     /* name of the message file; null: none. Borrowed. */
    const struct kuapp *next_kuapp; /* whose messages are asked when this file has no such text,
                                       for a tool with messages of its own; null: none. Borrowed. */
    void *longvalue_kuapp; /* the client's data for long-value transfer; not read by messages */
} kuapp;

#endif
