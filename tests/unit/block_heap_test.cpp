// Unit tests of the block heap: the small/big boundary, 32-byte alignment,
// the fit test that ignores the pad, reuse after reduce, null heaps.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "driver/diagnostics.h"
#include "values/block_heap.h"

namespace {

int count(heapblock_t *mb) {
    int n = 0;
    for (; mb; mb = mb->m_next) n++;
    return n;
}

uintptr_t at(void *p) {
    return reinterpret_cast<uintptr_t>(p);
}

TEST(BlockHeap, SmallAndBigBoundary) {
    V_heap *hp = V_heap_new();
    memset(V_heap_alloc(hp, 256), 'x', 256);   // fits the empty first block
    EXPECT_EQ(hp->bigreq, nullptr);
    memset(V_heap_alloc(hp, 257), 'y', 257);
    EXPECT_EQ(count(hp->bigreq), 1);
    EXPECT_EQ(hp->bigreq->m_used, 257);
    EXPECT_EQ(count(hp->smallreq), 1);
    V_heap_alloc(hp, 256);   // the first block is full
    EXPECT_EQ(count(hp->smallreq), 2);
    V_heap_free(hp);
}

TEST(BlockHeap, AlignmentAndTheFitTest) {
    V_heap *hp = V_heap_new();
    char *a = static_cast<char *>(V_heap_alloc(hp, 1));
    char *b = static_cast<char *>(V_heap_alloc(hp, 1));
    char *c = static_cast<char *>(V_heap_alloc(hp, 33));
    char *d = static_cast<char *>(V_heap_alloc(hp, 1));
    EXPECT_EQ(at(b) - at(a), 32u);
    EXPECT_EQ(at(d) - at(c), 64u);
    EXPECT_EQ(at(d) % 32, 0u);
    for (int i = 0; i < 33; i++) EXPECT_EQ(c[i], 0);

    V_heap *hq = V_heap_new();
    V_heap_alloc(hq, 250);
    EXPECT_EQ(hq->smallreq->m_used, 256);   // padded after the fit test
    V_heap_alloc(hq, 6);                    // no longer fits
    V_heap_alloc(hq, 250);
    V_heap_alloc(hq, 200);   // an older block with room is found
    EXPECT_EQ(count(hq->smallreq), 3);
    V_heap_free(hq);
    V_heap_free(hp);
}

TEST(BlockHeap, ReduceReusesSmallBlocksAndDropsBigOnes) {
    V_heap *hp = V_heap_new();
    strcpy(static_cast<char *>(V_heap_alloc(hp, 10)), "old value");
    V_heap_alloc(hp, 256);
    V_heap_alloc(hp, 1000);
    heapblock_t *newest = hp->smallreq;
    EXPECT_EQ(V_heap_reduce(hp), 0);
    EXPECT_EQ(hp->bigreq, nullptr);
    EXPECT_EQ(newest->m_next->m_used, 0);
    char *p = static_cast<char *>(V_heap_alloc(hp, 10));
    EXPECT_EQ(newest->m_used, 32);     // from offset 0
    EXPECT_EQ(p[0], 0);                // zeroed again
    for (int i = 0; i < 1000; i++) {   // a value rewritten in a loop
        V_heap_reduce(hp);
        V_heap_alloc(hp, 100);
    }
    EXPECT_EQ(count(hp->smallreq), 2);
    V_heap_free(hp);
}

// A renewed heap hands out what emptying it and allocating would: the same
// place and the same fill mark, small and big, with a big block left over.
TEST(BlockHeap, RenewIsReduceThenAlloc) {
    int ready = V_trace_ready;
    V_trace_ready = 1;   // while tracing it is reduce and alloc themselves
    for (int size : {-1, 0, 1, 31, 32, 33, 200, 255, 256, 257, 5000}) {
        V_heap *a = V_heap_new();
        V_heap *b = V_heap_new();
        for (V_heap *hp : {a, b}) {
            V_heap_alloc(hp, 300);   // a big block to drop
            V_heap_alloc(hp, 250);   // a second small block
            V_heap_alloc(hp, 100);
        }
        V_heap_reduce(a);
        void *pa = V_heap_alloc(a, size);
        void *pb = V_heap_renew(b, size);
        if (size <= V_HEAP_SMALL) {
            EXPECT_EQ(at(pa) - at(a->smallreq), at(pb) - at(b->smallreq)) << size;
        }
        EXPECT_EQ(a->smallreq->m_used, b->smallreq->m_used) << size;
        EXPECT_EQ(count(a->smallreq), count(b->smallreq)) << size;
        EXPECT_EQ(count(a->bigreq), count(b->bigreq)) << size;
        V_heap_free(a);
        V_heap_free(b);
    }
    V_trace_ready = ready;
}

TEST(BlockHeap, OddSizesAndNullHeaps) {
    V_heap *hp = V_heap_new();
    EXPECT_NE(V_heap_alloc(hp, 0), nullptr);
    EXPECT_NE(V_heap_alloc(hp, -5), nullptr);
    EXPECT_GE(hp->smallreq->m_used, 0);
    V_heap_free(hp);
    EXPECT_EQ(V_heap_reduce(nullptr), 0);
    V_heap_free(nullptr);
    EXPECT_EQ(V_heap_alloc(nullptr, 10), nullptr);
}

}   // namespace
