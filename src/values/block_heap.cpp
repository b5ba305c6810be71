// The block heap: small 256-byte blocks shared by many short strings, big
// blocks of their own for longer requests, emptied or destroyed whole.
#include "values/block_heap.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/diagnostics.h"

namespace {

// A small block's payload starts on a 32-byte boundary right after the header
// area, so every small allocation (not only the second one) is 32-aligned and
// the alignment pad can never carry a later request past the payload.
constexpr size_t SMALL_ALIGN = 32;
constexpr size_t SMALL_OFFSET = 32;
static_assert(sizeof(heapblock_t) <= SMALL_OFFSET);
constexpr size_t SMALL_BYTES = SMALL_OFFSET + V_HEAP_SMALL;

constexpr size_t BIG_OFFSET = sizeof(heapblock_t);

long addr(const void *p) {
    return static_cast<long>(reinterpret_cast<intptr_t>(p));
}

char *small_payload(heapblock_t *mb) {
    return reinterpret_cast<char *>(mb) + SMALL_OFFSET;
}

heapblock_t *new_small_block() {
    void *raw = aligned_alloc(SMALL_ALIGN, SMALL_BYTES);
    if (!raw) {
        ERRMSG("V_heap: NO MEMORY...");
        return nullptr;
    }
    memset(raw, 0, SMALL_BYTES);
    return static_cast<heapblock_t *>(raw);
}

void *alloc_big(V_heap *hp, int size) {
    size_t bytes = BIG_OFFSET + static_cast<size_t>(size);
    void *raw = calloc(1, bytes);
    if (!raw) {
        ERRMSG("V_heap: NO MEMORY...");
        return nullptr;
    }
    heapblock_t *mb = static_cast<heapblock_t *>(raw);
    mb->m_next = hp->bigreq;
    mb->m_used = static_cast<int16_t>(size);   // informational only, may wrap
    hp->bigreq = mb;
    return static_cast<char *>(raw) + BIG_OFFSET;
}

// The fit test ignores alignment on purpose: a block whose fill mark was
// padded past 256 simply takes nothing more.
heapblock_t *find_small(V_heap *hp, int size) {
    for (heapblock_t *mb = hp->smallreq; mb; mb = mb->m_next)
        if (mb->m_used + size <= V_HEAP_SMALL) return mb;
    heapblock_t *mb = new_small_block();
    if (!mb) return nullptr;
    mb->m_next = hp->smallreq;
    hp->smallreq = mb;
    return mb;
}

}   // namespace

V_heap *V_heap_new() {
    V_heap *hp = static_cast<V_heap *>(malloc(sizeof(V_heap)));
    if (!hp) {
        ERRMSG("V_heap: NO MEMORY...");
        return nullptr;
    }
    hp->bigreq = nullptr;
    hp->smallreq = new_small_block();
    if (!hp->smallreq) {
        free(hp);
        return nullptr;
    }
    V_TRACE("V_heap_new: hp: %ld  mb: %ld  m_used: %d ", addr(hp), addr(hp->smallreq),
            hp->smallreq->m_used);
    return hp;
}

int rmalign(heapblock_t *mb) {
    V_TRACE("rmalign: mb: %ld  m_used: %d ", addr(mb), mb->m_used);
    uintptr_t begin = reinterpret_cast<uintptr_t>(small_payload(mb)) + mb->m_used;
    uintptr_t end = (begin + 31) & ~static_cast<uintptr_t>(31);
    int used = mb->m_used + static_cast<int>(end - begin);
    mb->m_used = static_cast<int16_t>(used);
    V_TRACE("rmalign ==> mb: %ld  m_used: %d ", addr(mb), mb->m_used);
    return used;
}

void *V_heap_alloc(V_heap *currheap, int size) {
    if (!currheap) return nullptr;
    V_TRACE("V_heap_alloc: hp: %ld  size: %d ", addr(currheap), size);
    V_TRACE("V_heap_info hp: %ld  mb: %ld  m_used: %d ", addr(currheap), addr(currheap->smallreq),
            currheap->smallreq ? currheap->smallreq->m_used : 0);
    if (size < 1) {
        V_TRACE("WARNING: heap_alloc( size= %d ) \n", size);
        size = 0;   // a negative size would run the fill mark backwards
    }
    if (size > V_HEAP_SMALL) return alloc_big(currheap, size);

    heapblock_t *mb = find_small(currheap, size);
    if (!mb) return nullptr;
    char *p = small_payload(mb) + mb->m_used;
    mb->m_used = static_cast<int16_t>(mb->m_used + size);
    rmalign(mb);
    memset(p, 0, static_cast<size_t>(size));
    return p;
}

int V_heap_reduce(V_heap *hp) {
    V_TRACE("V_heap_reduce: %ld ", hp ? addr(hp) : -1L);
    if (!hp) return 0;
    for (heapblock_t *mb = hp->smallreq; mb; mb = mb->m_next) mb->m_used = 0;
    while (hp->bigreq) {
        heapblock_t *mb = hp->bigreq;
        hp->bigreq = mb->m_next;
        free(mb);
    }
    return 0;
}

void *V_heap_renew(V_heap *hp, int size) {
    if (Trace || !V_trace_ready || !hp || !hp->smallreq || size < 1 || size > V_HEAP_SMALL) {
        V_heap_reduce(hp);
        return V_heap_alloc(hp, size);
    }
    for (heapblock_t *mb = hp->smallreq; mb; mb = mb->m_next) mb->m_used = 0;
    while (hp->bigreq) {
        heapblock_t *mb = hp->bigreq;
        hp->bigreq = mb->m_next;
        free(mb);
    }
    // what find_small and rmalign give an emptied heap: the newest block,
    // its fill mark rounded up to the alignment (the payload is aligned)
    heapblock_t *mb = hp->smallreq;
    char *p = small_payload(mb);
    mb->m_used =
        static_cast<int16_t>((static_cast<size_t>(size) + SMALL_ALIGN - 1) & ~(SMALL_ALIGN - 1));
    memset(p, 0, static_cast<size_t>(size));
    return p;
}

int V_heap_free(V_heap *hp) {
    V_TRACE("V_heap_free: %ld ", hp ? addr(hp) : -1L);
    if (!hp) return 0;
    while (hp->smallreq) {
        heapblock_t *mb = hp->smallreq;
        hp->smallreq = mb->m_next;
        free(mb);
    }
    while (hp->bigreq) {
        heapblock_t *mb = hp->bigreq;
        hp->bigreq = mb->m_next;
        free(mb);
    }
    free(hp);
    return 0;
}
