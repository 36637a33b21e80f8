// The runtime's memory heap.
#include "asn1rt/context.h"
#include "rt_alloc_counter.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>

using rttest::blockOf;
using rttest::CountingAllocator;
using rttest::heapOf;

namespace {

int g_tag;  // an allocator argument to recognise

TEST(RtHeap, HeaderIs48BytesOnThisWidth)
{
    EXPECT_EQ(sizeof(RtMemBlock), 48u);
    EXPECT_EQ(offsetof(RtMemBlock, size), 40u);
    EXPECT_EQ(offsetof(RtMemBlock, prev), sizeof(void*));
}

TEST(RtHeap, CreateFillsTheRecord)
{
    CountingAllocator alloc;
    const ASN1UINT savedBlk = g_defBlkSize;
    EXPECT_EQ(savedBlk, 4096u);
    g_defBlkSize = 1234;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, &g_tag), 0);
    g_defBlkSize = savedBlk;
    ASSERT_NE(h, nullptr);
    RtMemHeap* heap = heapOf(h);
    EXPECT_EQ(heap->head, nullptr);
    EXPECT_EQ(heap->reserved[0], 0u);
    EXPECT_EQ(heap->reserved[1], 0u);
    EXPECT_EQ(heap->reserved[2], 0u);
    EXPECT_EQ(heap->defBlkSize, 1234u);
    EXPECT_EQ(heap->refCnt, 1u);
    EXPECT_EQ(heap->flags, 0x10000000u);
    EXPECT_EQ(heap->memContext, &g_tag);
    ASSERT_EQ(alloc.mallocCalls(), 1u);
    EXPECT_EQ(alloc.requests()[0], sizeof(RtMemHeap));
    EXPECT_EQ(alloc.contexts()[0], &g_tag);
    rtMemHeapRelease(&h);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.freeContexts().back(), &g_tag);
}

TEST(RtHeap, CreateFailures)
{
    CountingAllocator alloc;
    EXPECT_EQ(rtMemHeapCreate(nullptr, nullptr), RT_E_BAD_ARGUMENT);
    EXPECT_EQ(alloc.mallocCalls(), 0u);
    void* h = nullptr;
    alloc.failNext();
    EXPECT_EQ(rtMemHeapCreate(&h, nullptr), RT_E_NO_MEMORY);
    EXPECT_EQ(h, nullptr);
}

TEST(RtHeap, CreateOverwritesWithoutRelease)
{
    CountingAllocator alloc;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    void* first = h;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    EXPECT_NE(h, first);
    EXPECT_TRUE(alloc.isLive(first));  // not released
    rtMemHeapRelease(&h);
    rtMemHeapRelease(&first);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, AllocLinksAtTheHeadBehindA48ByteHeader)
{
    CountingAllocator alloc;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, &g_tag), 0);
    void* a = rtMemHeapAlloc(&h, 10);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(alloc.requests().back(), 58u);
    EXPECT_EQ(alloc.contexts().back(), &g_tag);
    EXPECT_EQ(static_cast<unsigned char*>(alloc.lastBlock()) + 48, a);
    void* b = rtMemHeapAlloc(&h, 20);
    ASSERT_NE(b, nullptr);
    RtMemHeap* heap = heapOf(h);
    EXPECT_EQ(heap->head, blockOf(b));
    EXPECT_EQ(blockOf(b)->next, blockOf(a));
    EXPECT_EQ(blockOf(b)->prev, nullptr);
    EXPECT_EQ(blockOf(a)->prev, blockOf(b));
    EXPECT_EQ(blockOf(a)->next, nullptr);
    EXPECT_EQ(blockOf(a)->size, 10u);
    EXPECT_EQ(blockOf(b)->size, 20u);
    // Payload alignment is the allocator's plus 48.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % 16, reinterpret_cast<uintptr_t>(alloc.lastBlock()) % 16);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, AllocSizeZeroGivesDistinctPointers)
{
    CountingAllocator alloc;
    void* h = nullptr;
    void* a = rtMemHeapAlloc(&h, 0);
    void* b = rtMemHeapAlloc(&h, 0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    EXPECT_EQ(blockOf(a)->size, 0u);
    EXPECT_EQ(alloc.requests().back(), 48u);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, AllocLimitIsASignedComparison)
{
    CountingAllocator alloc;
    alloc.setLimit(1024);  // the huge requests below are refused by the allocator
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    const size_t before = alloc.mallocCalls();

    // 2147483599 is attempted: the request is that plus 48.
    EXPECT_EQ(rtMemHeapAlloc(&h, 2147483599), nullptr);
    ASSERT_EQ(alloc.mallocCalls(), before + 1);
    EXPECT_EQ(alloc.requests().back(), static_cast<size_t>(2147483599) + 48);

    // 2147483600 and above: null without calling the allocator.
    EXPECT_EQ(rtMemHeapAlloc(&h, 2147483600), nullptr);
    EXPECT_EQ(rtMemHeapAlloc(&h, INT_MAX), nullptr);
    EXPECT_EQ(rtMemHeapAllocZ(&h, INT_MAX), nullptr);
    EXPECT_EQ(alloc.mallocCalls(), before + 1);

    // A negative size passes the signed test: the request is the sign-extended size + 48,
    // which wraps on both widths.
    EXPECT_EQ(rtMemHeapAlloc(&h, -100), nullptr);
    ASSERT_EQ(alloc.mallocCalls(), before + 2);
    EXPECT_EQ(alloc.requests().back(), static_cast<size_t>(static_cast<ptrdiff_t>(-100)) + 48);
    EXPECT_EQ(alloc.requests().back(), SIZE_MAX - 51);
    EXPECT_EQ(rtMemHeapAlloc(&h, INT_MIN), nullptr);
    EXPECT_EQ(alloc.requests().back(), static_cast<size_t>(static_cast<ptrdiff_t>(INT_MIN)) + 48);

    // -1 asks for 47 octets, which cannot hold the header: the block goes back, null.
    EXPECT_EQ(rtMemHeapAlloc(&h, -1), nullptr);
    EXPECT_EQ(alloc.requests().back(), 47u);
    EXPECT_EQ(heapOf(h)->head, nullptr);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, AllocWithNullOrEmptyHandle)
{
    CountingAllocator alloc;
    EXPECT_EQ(rtMemHeapAlloc(nullptr, 8), nullptr);
    EXPECT_EQ(alloc.mallocCalls(), 0u);
    // An empty handle gets a heap created with a null allocator argument.
    void* h = nullptr;
    void* p = rtMemHeapAlloc(&h, 8);
    ASSERT_NE(p, nullptr);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(heapOf(h)->memContext, nullptr);
    EXPECT_EQ(heapOf(h)->refCnt, 1u);
    EXPECT_EQ(alloc.mallocCalls(), 2u);
    rtMemHeapRelease(&h);
    // A failing lazy creation gives null.
    alloc.failNext();
    EXPECT_EQ(rtMemHeapAlloc(&h, 8), nullptr);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, AllocZZeroes)
{
    CountingAllocator alloc;  // fills fresh memory with 0xCC
    void* h = nullptr;
    unsigned char* p = static_cast<unsigned char*>(rtMemHeapAllocZ(&h, 33));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 33; i++)
        EXPECT_EQ(p[i], 0) << i;
    unsigned char* q = static_cast<unsigned char*>(rtMemHeapAlloc(&h, 4));
    EXPECT_EQ(q[0], 0xCC);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, ReallocNullOrEmptyHandleDoesNotCreate)
{
    CountingAllocator alloc;
    EXPECT_EQ(rtMemHeapRealloc(nullptr, nullptr, 8), nullptr);
    void* h = nullptr;
    EXPECT_EQ(rtMemHeapRealloc(&h, nullptr, 8), nullptr);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(alloc.mallocCalls(), 0u);
}

TEST(RtHeap, ReallocOfNullPointerAllocates)
{
    CountingAllocator alloc;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    void* p = rtMemHeapRealloc(&h, nullptr, 12);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(blockOf(p)->size, 12u);
    EXPECT_EQ(heapOf(h)->head, blockOf(p));
    const size_t calls = alloc.mallocCalls();
    EXPECT_EQ(rtMemHeapRealloc(&h, nullptr, 2147483600), nullptr);
    EXPECT_EQ(alloc.mallocCalls(), calls);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, ReallocSmallerKeepsThePointerAndLowersTheStoredSize)
{
    CountingAllocator alloc;  // fresh memory is 0xCC
    void* h = nullptr;
    unsigned char* p = static_cast<unsigned char*>(rtMemHeapAlloc(&h, 8));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 8; i++)
        p[i] = static_cast<unsigned char>(i + 1);
    const size_t calls = alloc.mallocCalls();
    EXPECT_EQ(rtMemHeapRealloc(&h, p, 8), p);  // equal
    EXPECT_EQ(rtMemHeapRealloc(&h, p, 4), p);  // smaller
    EXPECT_EQ(alloc.mallocCalls(), calls);
    EXPECT_EQ(blockOf(p)->size, 4u);
    // Growing back to the old size copies only the lower size.
    unsigned char* q = static_cast<unsigned char*>(rtMemHeapRealloc(&h, p, 8));
    ASSERT_NE(q, nullptr);
    EXPECT_NE(q, p);
    EXPECT_EQ(alloc.requests().back(), 56u);
    EXPECT_EQ(q[0], 1);
    EXPECT_EQ(q[3], 4);
    EXPECT_EQ(q[4], 0xCC);
    EXPECT_EQ(q[7], 0xCC);
    EXPECT_EQ(blockOf(q)->size, 8u);
    EXPECT_EQ(heapOf(h)->head, blockOf(q));
    EXPECT_EQ(blockOf(q)->next, nullptr);  // the old block is unlinked and freed
    EXPECT_EQ(alloc.live(), 2u);           // heap record and the new block
    EXPECT_EQ(alloc.reallocCalls(), 0u);   // g_realloc_func is never called
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, ReallocGrowthInTheMiddleOfTheList)
{
    CountingAllocator alloc;
    void* h = nullptr;
    void* a = rtMemHeapAlloc(&h, 4);
    void* b = rtMemHeapAlloc(&h, 4);
    void* c = rtMemHeapAlloc(&h, 4);
    std::memcpy(b, "wxyz", 4);
    char* nb = static_cast<char*>(rtMemHeapRealloc(&h, b, 100));
    ASSERT_NE(nb, nullptr);
    EXPECT_EQ(std::memcmp(nb, "wxyz", 4), 0);
    RtMemHeap* heap = heapOf(h);
    EXPECT_EQ(heap->head, blockOf(nb));
    EXPECT_EQ(blockOf(nb)->next, blockOf(c));
    EXPECT_EQ(blockOf(c)->next, blockOf(a));
    EXPECT_EQ(blockOf(a)->prev, blockOf(c));
    EXPECT_EQ(blockOf(a)->next, nullptr);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, ReallocFailureKeepsTheOldBlock)
{
    CountingAllocator alloc;
    void* h = nullptr;
    char* p = static_cast<char*>(rtMemHeapAlloc(&h, 4));
    std::memcpy(p, "abcd", 4);
    alloc.failNext();
    EXPECT_EQ(rtMemHeapRealloc(&h, p, 64), nullptr);
    EXPECT_EQ(std::memcmp(p, "abcd", 4), 0);
    EXPECT_EQ(heapOf(h)->head, blockOf(p));
    EXPECT_EQ(blockOf(p)->size, 4u);
    // Above the limit: null, the allocator not asked.
    const size_t calls = alloc.mallocCalls();
    EXPECT_EQ(rtMemHeapRealloc(&h, p, 2147483600), nullptr);
    EXPECT_EQ(alloc.mallocCalls(), calls);
    EXPECT_EQ(heapOf(h)->head, blockOf(p));
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, FreePtrUnlinksAndUpdatesTheHead)
{
    CountingAllocator alloc;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, &g_tag), 0);
    void* a = rtMemHeapAlloc(&h, 1);
    void* b = rtMemHeapAlloc(&h, 1);
    void* c = rtMemHeapAlloc(&h, 1);
    rtMemHeapFreePtr(&h, b);  // middle
    EXPECT_EQ(blockOf(c)->next, blockOf(a));
    EXPECT_EQ(blockOf(a)->prev, blockOf(c));
    EXPECT_EQ(alloc.freeContexts().back(), &g_tag);
    rtMemHeapFreePtr(&h, c);  // head
    EXPECT_EQ(heapOf(h)->head, blockOf(a));
    EXPECT_EQ(blockOf(a)->prev, nullptr);
    rtMemHeapFreePtr(&h, a);  // last
    EXPECT_EQ(heapOf(h)->head, nullptr);
    EXPECT_EQ(alloc.live(), 1u);
    // Null pointer, null handle, empty handle: nothing.
    const size_t frees = alloc.freeCalls();
    rtMemHeapFreePtr(&h, nullptr);
    rtMemHeapFreePtr(nullptr, a);
    void* empty = nullptr;
    rtMemHeapFreePtr(&empty, a);
    EXPECT_EQ(alloc.freeCalls(), frees);
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.badFrees(), 0u);
}

TEST(RtHeap, FreePtrOfAForeignPointer)
{
    // Nothing checks that the block belongs to the heap named: it is unlinked from its
    // neighbours and freed with the other heap's allocator argument.
    CountingAllocator alloc;
    int otherTag = 0;
    void* ha = nullptr;
    void* hb = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&ha, &g_tag), 0);
    ASSERT_EQ(rtMemHeapCreate(&hb, &otherTag), 0);
    void* a1 = rtMemHeapAlloc(&ha, 4);
    void* b1 = rtMemHeapAlloc(&hb, 4);
    void* b2 = rtMemHeapAlloc(&hb, 4);
    rtMemHeapFreePtr(&ha, b1);  // b1 is heap B's, not its head
    EXPECT_EQ(alloc.freeContexts().back(), &g_tag);
    EXPECT_FALSE(alloc.isLive(blockOf(b1)));
    EXPECT_EQ(heapOf(hb)->head, blockOf(b2));
    EXPECT_EQ(blockOf(b2)->next, nullptr);
    EXPECT_EQ(heapOf(ha)->head, blockOf(a1));
    rtMemHeapRelease(&ha);
    rtMemHeapRelease(&hb);
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.badFrees(), 0u);
}

TEST(RtHeap, AddRefAndRelease)
{
    CountingAllocator alloc;
    void* h = nullptr;
    rtMemHeapAddRef(nullptr);
    rtMemHeapAddRef(&h);  // empty: nothing
    EXPECT_EQ(h, nullptr);
    rtMemHeapRelease(nullptr);
    rtMemHeapRelease(&h);
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    rtMemHeapAddRef(&h);
    rtMemHeapAddRef(&h);
    EXPECT_EQ(heapOf(h)->refCnt, 3u);
    rtMemHeapAlloc(&h, 5);
    rtMemHeapAlloc(&h, 6);
    void* keep = h;
    rtMemHeapRelease(&h);
    rtMemHeapRelease(&h);
    EXPECT_EQ(h, keep);  // references remain: the handle keeps its value
    EXPECT_EQ(heapOf(h)->refCnt, 1u);
    EXPECT_EQ(alloc.live(), 3u);
    rtMemHeapRelease(&h);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, ReleaseKeepsARecordWithoutTheFreeFlag)
{
    CountingAllocator alloc;
    void* h = nullptr;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    RtMemHeap* record = heapOf(h);
    record->flags = 0;
    rtMemHeapAlloc(&h, 5);
    rtMemHeapRelease(&h);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(alloc.live(), 1u);
    EXPECT_TRUE(alloc.isLive(record));
    EXPECT_EQ(record->head, nullptr);
    g_free_func(nullptr, record);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, CheckPtrAndMarkSavedDoNothing)
{
    CountingAllocator alloc;
    void* h = nullptr;
    int local = 0;
    EXPECT_EQ(rtMemHeapCheckPtr(nullptr, nullptr), 1);
    EXPECT_EQ(rtMemHeapCheckPtr(&h, &local), 1);
    void* p = rtMemHeapAlloc(&h, 3);
    EXPECT_EQ(rtMemHeapCheckPtr(&h, p), 1);
    EXPECT_EQ(rtMemHeapMarkSaved(&h, p, 1), 0);
    EXPECT_EQ(rtMemHeapMarkSaved(nullptr, nullptr, 0), 0);
    EXPECT_EQ(heapOf(h)->head, blockOf(p));
    rtMemHeapRelease(&h);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtHeap, DefaultAllocatorGlobals)
{
    EXPECT_EQ(g_malloc_func, &rtDefaultMalloc);
    EXPECT_EQ(g_realloc_func, &rtDefaultRealloc);
    EXPECT_EQ(g_free_func, &rtDefaultFree);
    void* p = rtDefaultMalloc(&g_tag, 16);
    ASSERT_NE(p, nullptr);
    p = rtDefaultRealloc(&g_tag, p, 32);
    ASSERT_NE(p, nullptr);
    rtDefaultFree(&g_tag, p);
    // The default allocator runs a heap end to end.
    void* h = nullptr;
    void* q = rtMemHeapAlloc(&h, 100);
    ASSERT_NE(q, nullptr);
    std::memset(q, 1, 100);
    q = rtMemHeapRealloc(&h, q, 200);
    ASSERT_NE(q, nullptr);
    rtMemHeapRelease(&h);
    EXPECT_EQ(h, nullptr);
}

}  // namespace
