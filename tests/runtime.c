/*
 * runtime.c - component runtimes for tests, loaded like the real one
 *
 * A name of every call is appended to the file that KU_TEST_LOG names. KU_TEST_FAULT
 * names the call that fails. Built once whole and once without each entry point.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "port/comrt/comrt.h"

#define ENTRY __attribute__((visibility("default")))

static void note(const char *call)
{
    const char *name = getenv("KU_TEST_LOG");
    FILE *log = name != NULL ? fopen(name, "a") : NULL;
    if (log == NULL) return;
    fprintf(log, "%s ", call);
    fclose(log);
}

static int fails(const char *call)
{
    const char *fault = getenv("KU_TEST_FAULT");
    note(call);
    return fault != NULL && strcmp(fault, call) == 0;
}

static void *test_alloc(comrt_allocator *self, uint32_t size)
{
    void *block = fails("Alloc") ? NULL : malloc(size);
    (void)self;
    if (block != NULL) memset(block, 0x5A, size); /* zero only what must be */
    return block;
}

static void test_free(comrt_allocator *self, void *address)
{
    (void)self;
    note("Free");
    free(address);
}

static void test_release(comrt_allocator *self)
{
    (void)self;
    note("Release");
}

static void test_minimize(comrt_allocator *self)
{
    (void)self;
    note("HeapMinimize");
}

static const comrt_operations operations = {test_alloc, NULL,          test_free,
                                            NULL,       test_minimize, test_release};
comrt_allocator test_allocator = {&operations};

int32_t CoInitialize(void *reserved);
void CoUninitialize(void);
int32_t CoGetMalloc(uint32_t context, comrt_allocator **result);

#ifndef WITHOUT_CoInitialize
ENTRY int32_t CoInitialize(void *reserved)
{
    return fails("CoInitialize") || reserved != NULL ? COMRT_INVALID : 1;
}
#endif

#ifndef WITHOUT_CoUninitialize
ENTRY void CoUninitialize(void) { note("CoUninitialize"); }
#endif

#ifndef WITHOUT_CoGetMalloc
ENTRY int32_t CoGetMalloc(uint32_t context, comrt_allocator **result)
{
    const int failed = fails(context == COMRT_SHARED ? "CoGetMalloc(2)" : "CoGetMalloc(1)");
    *result = fails("allocator") ? NULL : &test_allocator;
    return failed ? COMRT_INVALID : 0;
}
#endif

__attribute__((destructor)) static void unload(void) { note("unload"); }
