// The runtime's memory heap.
#include "rt_alloc_counter.h"

#include <algorithm>
#include <climits>

using namespace rttest;

namespace {

int g_tag;  // an allocator argument to recognise
void* const tag = &g_tag;

class RtHeap : public testing::Test {
protected:
    void TearDown() override
    {
        rtMemHeapRelease(&h);  // nothing live, no stray free, and g_realloc_func never called
        EXPECT_EQ(make_tuple(alloc.live(), alloc.badFrees, alloc.reallocs), make_tuple(0u, 0u, 0u));
    }
    CountingAllocator alloc;
    void* h = nullptr;
};

TEST_F(RtHeap, CreateReferencesFreePtrAndSizeLimits)
{
    alloc.failNext();
    EXPECT_EQ(make_tuple(rtMemHeapCreate(nullptr, nullptr), rtMemHeapCreate(&h, nullptr), h), make_tuple(-30, -12, nullptr));
    ASSERT_EQ(rtMemHeapCreate(&h, tag), 0);
    const RtMemHeap* r = heapOf(h);
    EXPECT_EQ(make_tuple(r->head, r->defBlkSize, r->refCnt, r->flags, r->memContext, alloc.requests.back(), alloc.contexts.back()),
              make_tuple(nullptr, 4096u, 1u, 0x10000000u, tag, sizeof(RtMemHeap), tag));
    void* first = h;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);  // the handle is overwritten, the old heap not released
    rtMemHeapAddRef(&first), rtMemHeapAddRef(&first), rtMemHeapAlloc(&first, 5), rtMemHeapAlloc(&first, 6);
    rtMemHeapRelease(&first), rtMemHeapRelease(&first);  // references remain: the handle keeps its value
    EXPECT_EQ(make_tuple(first, heapOf(first)->refCnt, alloc.live()), make_tuple(r, 1u, 4u));
    rtMemHeapRelease(&first);  // the last one: blocks and record go, the handle is nulled
    EXPECT_EQ(make_tuple(first, alloc.live(), alloc.freeContexts.back()), make_tuple(nullptr, 1u, tag));
    rtMemHeapRelease(&h);  // allocations link at the head behind a 48-byte header; FreePtr unlinks
    ASSERT_EQ(rtMemHeapCreate(&h, tag), 0);
    void *a = rtMemHeapAlloc(&h, 10), *b = rtMemHeapAlloc(&h, 20), *c = rtMemHeapAlloc(&h, 0);  // 0: a block all the same
    EXPECT_EQ(make_tuple(blocks(h), blockOf(a)->size, blockOf(c)->size, alloc.requests[alloc.requests.size() - 3]),
              make_tuple(Ptrs{c, b, a}, 10u, 0u, 58u));
    rtMemHeapFreePtr(&h, b), rtMemHeapFreePtr(&h, c);  // middle, head
    EXPECT_EQ(make_tuple(blocks(h), alloc.freeContexts.back()), make_tuple(Ptrs{a}, tag));
    rtMemHeapFreePtr(&h, a);  // the last block
    EXPECT_EQ(make_tuple(heapOf(h)->head, alloc.live()), make_tuple(nullptr, 1u));
    // AllocZ zeroes what the allocator filled with 0xCC; Alloc does not.
    const unsigned char* zp = static_cast<unsigned char*>(rtMemHeapAllocZ(&h, 33));
    ASSERT_NE(zp, nullptr);
    EXPECT_EQ(make_tuple(std::count(zp, zp + 33, 0), *static_cast<unsigned char*>(rtMemHeapAlloc(&h, 4))),
              make_tuple(std::ptrdiff_t(33), 0xCC));
    rtMemHeapRelease(&h), alloc.limit = 1024;  // size limits; the huge requests below are refused by the allocator
    void* kept = rtMemHeapAlloc(&h, 4);
    const size_t calls = alloc.mallocCalls();
    EXPECT_EQ(rtMemHeapAlloc(&h, 2147483599), nullptr);  // attempted: the request is that plus 48
    EXPECT_EQ(alloc.requests.back(), size_t(2147483599) + 48);
    // 2147483600 and above: null without calling the allocator, on every path.
    EXPECT_EQ((Ptrs{rtMemHeapAlloc(&h, 2147483600), rtMemHeapAllocZ(&h, INT_MAX), rtMemHeapRealloc(&h, nullptr, 2147483600),
                    rtMemHeapRealloc(&h, kept, 2147483600)}), Ptrs(4, nullptr));
    EXPECT_EQ(alloc.mallocCalls(), calls + 1);
    // A negative size passes the signed test: the request, sign-extended plus 48, wraps on both
    // widths; -1 asks for 47 octets, which cannot hold the header: the block goes back, null.
    const std::pair<int, size_t> negatives[] = {
        {-100, SIZE_MAX - 51}, {INT_MIN, static_cast<size_t>(static_cast<ptrdiff_t>(INT_MIN)) + 48}, {-1, 47}};
    for (const auto& n : negatives)
        EXPECT_EQ((std::tuple<void*, size_t>{rtMemHeapAlloc(&h, n.first), alloc.requests.back()}), make_tuple(nullptr, n.second));
    EXPECT_EQ(make_tuple(alloc.mallocCalls(), blocks(h)), make_tuple(calls + 4, Ptrs{kept}));
}

TEST_F(RtHeap, NullAndEmptyHandlesAndRealloc)
{
    // Only rtMemHeapAlloc fills an empty handle, with a null allocator argument.
    EXPECT_EQ((Ptrs{rtMemHeapAlloc(nullptr, 8), rtMemHeapRealloc(nullptr, nullptr, 8), rtMemHeapRealloc(&h, nullptr, 8)}),
              Ptrs(3, nullptr));
    rtMemHeapAddRef(nullptr), rtMemHeapAddRef(&h), rtMemHeapRelease(nullptr), rtMemHeapRelease(&h);
    rtMemHeapFreePtr(&h, tag), rtMemHeapFreePtr(nullptr, tag);
    EXPECT_EQ(make_tuple(h, alloc.mallocCalls(), alloc.frees), make_tuple(nullptr, 0u, 0u));
    alloc.failNext();  // the creation fails
    EXPECT_EQ(make_tuple(rtMemHeapAlloc(&h, 8), h), make_tuple(nullptr, nullptr));
    void* p = rtMemHeapAlloc(&h, 8);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(make_tuple(heapOf(h)->memContext, heapOf(h)->refCnt, alloc.mallocCalls()), make_tuple(nullptr, 1u, 3u));
    rtMemHeapFreePtr(&h, nullptr);
    // The guards of generated free functions are always true and mark nothing.
    EXPECT_EQ(make_tuple(rtMemHeapCheckPtr(nullptr, nullptr), rtMemHeapCheckPtr(&h, tag), rtMemHeapMarkSaved(&h, p, 1),
                         blocks(h), alloc.frees), make_tuple(1, 1, 0, Ptrs{p}, 0u));
    rtMemHeapFreePtr(&h, p);  // Realloc keeps a smaller size and copies on growth
    void* below = rtMemHeapAlloc(&h, 4);
    auto* old = static_cast<unsigned char*>(rtMemHeapRealloc(&h, nullptr, 8));  // null: allocates
    void* above = rtMemHeapAlloc(&h, 4);
    std::memcpy(old, "\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    const size_t calls = alloc.mallocCalls();
    alloc.failNext();  // equal or smaller: the same pointer, only the stored size goes down; a failed growth keeps the old block
    EXPECT_EQ((Ptrs{rtMemHeapRealloc(&h, old, 8), rtMemHeapRealloc(&h, old, 4), rtMemHeapRealloc(&h, old, 64)}),
              (Ptrs{old, old, nullptr}));
    EXPECT_EQ(make_tuple(alloc.mallocCalls(), blockOf(old)->size, old[3]), make_tuple(calls + 1, 4u, 4));
    // Growing back copies only the lower size; the new block goes to the head, the old one is unlinked.
    auto* moved = static_cast<unsigned char*>(rtMemHeapRealloc(&h, old, 8));
    ASSERT_TRUE(moved != nullptr && moved != old);
    EXPECT_EQ(std::memcmp(moved, "\x01\x02\x03\x04\xCC\xCC\xCC\xCC", 8), 0);
    EXPECT_EQ(make_tuple(alloc.requests.back(), blockOf(moved)->size, blocks(h), alloc.live()),
              make_tuple(56u, 8u, Ptrs{moved, above, below}, 4u));
    rtMemHeapRelease(&h);  // without the free flag the record stays with its caller
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    RtMemHeap* record = heapOf(h);
    record->flags = 0;
    rtMemHeapAlloc(&h, 5), rtMemHeapRelease(&h);
    EXPECT_EQ(make_tuple(h, alloc.live(), alloc.isLive(record), record->head), make_tuple(nullptr, 1u, true, nullptr));
    g_free_func(nullptr, record);
}

}  // namespace
