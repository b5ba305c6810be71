// Placeholder bodies until this module is written.
#include "db/block_heap.h"

V_heap *V_heap_new() { return {}; }
void *V_heap_alloc(V_heap *currheap, int size) {}
int V_heap_reduce(V_heap *hp) { return -1; }
int V_heap_free(V_heap *hp) { return -1; }
int rmalign(heapblock_t *mb) { return -1; }
