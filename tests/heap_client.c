/*
 * heap_client.c - a program with the shared library: its heap comes from the module beside it
 */
#include <string.h>

#include "ku.h"

int main(void)
{
    kux *ctx = kuxcreate(NULL);
    tag_skuhm *heap = ctx != NULL ? skuhmi(ctx, 0) : NULL;
    char *block = heap != NULL ? heap->skuhmalloc_pfn(ctx, heap, 10) : NULL;
    if (block == NULL) return 1;
    memset(block, 1, 10);
    heap->skuhmfree_pfn(ctx, heap, block);
    heap->skuhmfinish_pfn(ctx, &heap);
    return heap != NULL || kuxdestroy(ctx) != NULL;
}
