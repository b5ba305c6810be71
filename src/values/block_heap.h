// The block heap: a small arena that owns variable values, page texts and
// row buffers. Memory is returned only by emptying or destroying a whole heap.
#pragma once
#include <cstdint>

struct heapblock_t {
    heapblock_t *m_next;   // next block of the same chain
    int16_t m_used;        // payload bytes used (small) or requested size (big)
};

struct V_heap {
    heapblock_t *smallreq;   // 256-byte blocks, newest first; never null
    heapblock_t *bigreq;     // one block per request over 256 bytes
};

constexpr int V_HEAP_SMALL = 256;   // payload of a small block
constexpr int V_HEAP_HEADER = 8;    // header size counted by the block arithmetic
// In memory the header area is wider (a small block's payload begins 32 bytes
// in, on a 32-byte boundary; a big block's right after sizeof(heapblock_t)),
// so a payload never overlaps its header.

V_heap *V_heap_new();
void *V_heap_alloc(V_heap *currheap, int size);
int V_heap_reduce(V_heap *hp);
// V_heap_reduce(hp) and then V_heap_alloc(hp, size), with their trace lines
// while tracing; a small request then takes the first block's start at once.
void *V_heap_renew(V_heap *hp, int size);
int V_heap_free(V_heap *hp);
int rmalign(heapblock_t *mb);
