/*
 * comrt.h - component runtime: a task allocator in a module of its own
 *
 * What the library needs of a component runtime, and nothing more. The module is
 * loaded at run time and reached through three entry points, looked up by name:
 * initialise the runtime, get an allocator, use it, release it, uninitialise.
 * Nothing links against the module. Several threads may use it at once.
 *
 * Statuses: 0 and above success, negative failure. Sizes count bytes.
 */
#ifndef PORT_COMRT_COMRT_H
#define PORT_COMRT_COMRT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define COMRT_TASK 1u /* context value: the task allocator */
#define COMRT_SHARED                                                                               \
    2u                            /* context value: memory shared between processes; here there is
                                      none, and the task allocator stands in */
#define COMRT_UNKNOWN 0xFFFFFFFFu /* size of a block that the allocator does not know */

#define COMRT_INVALID (-0x7FF8FFA9)       /* a missing or wrong argument */
#define COMRT_UNINITIALISED (-0x7FFBFE10) /* the runtime is not initialised */

typedef struct comrt_allocator comrt_allocator;

/*
 * The allocator's interface. It knows its own blocks, so that it can refuse a
 * stranger's without touching it.
 */
typedef struct comrt_operations {
    /* A block of at least 1 byte, its contents undefined; null: no memory, or `size` is
     * COMRT_UNKNOWN. */
    void *(*Alloc)(comrt_allocator *self, uint32_t size);
    /* The block with another size, moved as it may be; null with the old block unchanged: no
     * memory, or not a block of this allocator. A null address allocates. */
    void *(*Realloc)(comrt_allocator *self, void *address, uint32_t size);
    /* Null and strangers' addresses are ignored. */
    void (*Free)(comrt_allocator *self, void *address);
    /* The size that was asked for; COMRT_UNKNOWN for a stranger's address. */
    uint32_t (*GetSize)(comrt_allocator *self, void *address);
    /* Gives unused memory back to the system. */
    void (*HeapMinimize)(comrt_allocator *self);
    /* Gives back what CoGetMalloc handed out. */
    void (*Release)(comrt_allocator *self);
} comrt_operations;

struct comrt_allocator {
    const comrt_operations *operations;
};

/* The entry points: "CoInitialize" takes null; "CoUninitialize" undoes one of it;
 * "CoGetMalloc" takes COMRT_TASK or COMRT_SHARED. */
typedef int32_t (*comrt_initialize)(void *reserved);
typedef void (*comrt_uninitialize)(void);
typedef int32_t (*comrt_get_malloc)(uint32_t context, comrt_allocator **allocator);

#ifdef __cplusplus
}
#endif

#endif
