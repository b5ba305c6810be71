// Unit tests of the block heap: small/big boundary, 32-byte alignment,
// reuse after reduce and the null cases.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "db/block_heap.h"

namespace {

int count(heapblock_t *mb) {
    int n = 0;
    for (; mb; mb = mb->m_next) n++;
    return n;
}

uintptr_t at(void *p) { return reinterpret_cast<uintptr_t>(p); }

TEST(BlockHeap, NewHeapHasOneEmptySmallBlock) {
    V_heap *hp = V_heap_new();
    ASSERT_NE(hp, nullptr);
    EXPECT_EQ(count(hp->smallreq), 1);
    EXPECT_EQ(hp->smallreq->m_used, 0);
    EXPECT_EQ(hp->bigreq, nullptr);
    V_heap_free(hp);
}

TEST(BlockHeap, SmallAndBigBoundary) {
    V_heap *hp = V_heap_new();
    void *p256 = V_heap_alloc(hp, 256);
    ASSERT_NE(p256, nullptr);
    EXPECT_EQ(count(hp->smallreq), 1);   // fits the empty first block
    EXPECT_EQ(hp->bigreq, nullptr);
    memset(p256, 'x', 256);

    void *p257 = V_heap_alloc(hp, 257);
    ASSERT_NE(p257, nullptr);
    EXPECT_EQ(count(hp->bigreq), 1);
    EXPECT_EQ(hp->bigreq->m_used, 257);
    EXPECT_EQ(count(hp->smallreq), 1);
    memset(p257, 'y', 257);

    // the first block is full: another 256 needs a fresh block at the head
    heapblock_t *first = hp->smallreq;
    void *again = V_heap_alloc(hp, 256);
    EXPECT_EQ(count(hp->smallreq), 2);
    EXPECT_NE(hp->smallreq, first);
    EXPECT_NE(again, p256);
    V_heap_free(hp);
}

TEST(BlockHeap, SmallRequestsAreAlignedAndZeroed) {
    V_heap *hp = V_heap_new();
    char *a = static_cast<char *>(V_heap_alloc(hp, 1));
    char *b = static_cast<char *>(V_heap_alloc(hp, 1));
    char *c = static_cast<char *>(V_heap_alloc(hp, 33));
    char *d = static_cast<char *>(V_heap_alloc(hp, 1));
    EXPECT_EQ(at(b) - at(a), 32u);
    EXPECT_EQ(at(c) - at(b), 32u);
    EXPECT_EQ(at(d) - at(c), 64u);
    EXPECT_EQ(at(d) % 32, 0u);
    for (int i = 0; i < 33; i++) EXPECT_EQ(c[i], 0);
    V_heap_free(hp);
}

TEST(BlockHeap, FitTestIgnoresAlignmentPad) {
    V_heap *hp = V_heap_new();
    V_heap_alloc(hp, 250);
    // padded to 256 after the request: six bytes no longer fit
    EXPECT_EQ(hp->smallreq->m_used, 256);
    heapblock_t *first = hp->smallreq;
    V_heap_alloc(hp, 6);
    EXPECT_NE(hp->smallreq, first);
    // an older block with room is still found by the walk
    V_heap_alloc(hp, 250);
    V_heap_alloc(hp, 200);
    EXPECT_EQ(count(hp->smallreq), 3);
    V_heap_free(hp);
}

TEST(BlockHeap, ZeroAndNegativeSizesYieldAPointer) {
    V_heap *hp = V_heap_new();
    EXPECT_NE(V_heap_alloc(hp, 0), nullptr);
    EXPECT_NE(V_heap_alloc(hp, -5), nullptr);
    EXPECT_GE(hp->smallreq->m_used, 0);
    V_heap_free(hp);
}

TEST(BlockHeap, ReduceReusesSmallBlocksAndDropsBigOnes) {
    V_heap *hp = V_heap_new();
    char *first = static_cast<char *>(V_heap_alloc(hp, 10));
    strcpy(first, "old value");
    V_heap_alloc(hp, 256);
    V_heap_alloc(hp, 1000);
    V_heap_alloc(hp, 2000);
    ASSERT_EQ(count(hp->smallreq), 2);
    heapblock_t *newest = hp->smallreq;

    EXPECT_EQ(V_heap_reduce(hp), 0);
    EXPECT_EQ(hp->bigreq, nullptr);
    EXPECT_EQ(count(hp->smallreq), 2);
    EXPECT_EQ(newest->m_used, 0);
    EXPECT_EQ(newest->m_next->m_used, 0);
    char *p = static_cast<char *>(V_heap_alloc(hp, 10));
    EXPECT_EQ(hp->smallreq, newest);
    EXPECT_EQ(p[0], 0);   // handed out zeroed again

    // a variable rewritten in a loop does not grow its heap
    for (int i = 0; i < 1000; i++) {
        V_heap_reduce(hp);
        V_heap_alloc(hp, 100);
    }
    EXPECT_EQ(count(hp->smallreq), 2);
    V_heap_free(hp);
}

TEST(BlockHeap, NullHeapIsAccepted) {
    EXPECT_EQ(V_heap_reduce(nullptr), 0);
    V_heap_free(nullptr);
    EXPECT_EQ(V_heap_alloc(nullptr, 10), nullptr);
}

}  // namespace
