/*
 * runtime.c - component runtimes for tests, loaded like the real one
 *
 * Every call is noted in the file that KU_TEST_LOG names; the one that KU_TEST_FAULT
 * names fails. Built once whole and once without each entry point.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "port/comrt/comrt.h"

#define ENTRY __attribute__((visibility("default")))

/* 1: the call is to fail. */
static int note(const char *call)
{
    const char *fault = getenv("KU_TEST_FAULT");
    FILE *log = fopen(getenv("KU_TEST_LOG"), "a");
    fprintf(log, "%s ", call);
    fclose(log);
    return fault != NULL && strcmp(fault, call) == 0;
}

static void *test_alloc(comrt_allocator *self, uint32_t size)
{
    void *block = note("Alloc") ? NULL : malloc(size);
    (void)self;
    return block != NULL ? memset(block, 0x5A, size) : NULL; /* zero only what must be */
}

static void test_free(comrt_allocator *self, void *address)
{
    (void)self;
    note("Free");
    free(address);
}

#define NOTED(name, call)                                                                          \
    static void name(comrt_allocator *self)                                                        \
    {                                                                                              \
        (void)self;                                                                                \
        note(call);                                                                                \
    }
NOTED(test_release, "Release")
NOTED(test_minimize, "HeapMinimize")

static const comrt_operations operations = {test_alloc, NULL,          test_free,
                                            NULL,       test_minimize, test_release};
comrt_allocator test_allocator = {&operations};

#ifndef WITHOUT_CoInitialize
ENTRY int32_t CoInitialize(void *reserved)
{
    return note("start") || reserved != NULL ? COMRT_INVALID : 1;
}
#endif

#ifndef WITHOUT_CoUninitialize
ENTRY void CoUninitialize(void) { note("stop"); }
#endif

#ifndef WITHOUT_CoGetMalloc
ENTRY int32_t CoGetMalloc(uint32_t context, comrt_allocator **result)
{
    if (note(context == COMRT_SHARED ? "get2" : "get1")) return COMRT_INVALID;
    *result = note("give") ? NULL : &test_allocator;
    return 0;
}
#endif

__attribute__((destructor)) static void unload(void) { note("unload"); }
