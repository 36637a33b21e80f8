// Lists, memory buffers, bit functions and forward-writing buffer functions.
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "rt_alloc_counter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using rttest::blockOf;
using rttest::CountingAllocator;
using rttest::heapOf;

namespace {

// The layout of ASN1OpenType (asn1rt/charstr.h).
struct OpenType {
    ASN1UINT numocts;
    const ASN1OCTET* data;
};

class RtLists : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0); }
    void TearDown() override
    {
        rtFreeContext(&ctxt);
        EXPECT_EQ(alloc.live(), 0u);
        EXPECT_EQ(alloc.badFrees(), 0u);
    }
    // Data of the list, in order, checked against the back links too.
    std::vector<void*> items(const Asn1RTDList& list)
    {
        std::vector<void*> out;
        const Asn1RTDListNode* prev = nullptr;
        for (const Asn1RTDListNode* n = list.head; n != nullptr; n = n->next) {
            EXPECT_EQ(n->prev, prev);
            out.push_back(n->data);
            prev = n;
        }
        EXPECT_EQ(list.tail, prev);
        EXPECT_EQ(out.size(), list.count);
        return out;
    }

    CountingAllocator alloc;
    ASN1CTXT ctxt;
    int v[8] = {0, 1, 2, 3, 4, 5, 6, 7};
};

TEST_F(RtLists, InitToleratesNull)
{
    rtDListInit(nullptr);
    rtSListInitEx(&ctxt, nullptr);
    rtSListFree(nullptr);
    Asn1RTDList list;
    std::memset(&list, 0x5A, sizeof list);
    rtDListInit(&list);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(RtLists, AppendLinksAtTheTail)
{
    Asn1RTDList list;
    rtDListInit(&list);
    Asn1RTDListNode* n0 = rtDListAppend(&ctxt, &list, &v[0]);
    ASSERT_NE(n0, nullptr);
    EXPECT_EQ(blockOf(n0)->size, sizeof(Asn1RTDListNode));  // from the type heap
    rtDListAppend(&ctxt, &list, &v[1]);
    rtDListAppend(&ctxt, &list, &v[2]);
    EXPECT_EQ(items(list), (std::vector<void*>{&v[0], &v[1], &v[2]}));
    alloc.failNext();
    EXPECT_EQ(rtDListAppend(&ctxt, &list, &v[3]), nullptr);
    EXPECT_EQ(list.count, 3u);
    rtDListFreeNodes(&ctxt, &list);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
}

TEST_F(RtLists, InsertByIndex)
{
    Asn1RTDList list;
    rtDListInit(&list);
    EXPECT_EQ(rtDListInsert(&ctxt, &list, 1, &v[0]), nullptr);  // above the count
    ASSERT_NE(rtDListInsert(&ctxt, &list, 0, &v[2]), nullptr);  // empty list
    ASSERT_NE(rtDListInsert(&ctxt, &list, 0, &v[0]), nullptr);  // head
    ASSERT_NE(rtDListInsert(&ctxt, &list, 2, &v[4]), nullptr);  // count: append
    ASSERT_NE(rtDListInsert(&ctxt, &list, 1, &v[1]), nullptr);  // middle
    ASSERT_NE(rtDListInsert(&ctxt, &list, 3, &v[3]), nullptr);  // middle, before the tail
    EXPECT_EQ(rtDListInsert(&ctxt, &list, 6, &v[5]), nullptr);
    EXPECT_EQ(items(list), (std::vector<void*>{&v[0], &v[1], &v[2], &v[3], &v[4]}));
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, InsertBeforeAndAfter)
{
    Asn1RTDList list;
    rtDListInit(&list);
    Asn1RTDListNode* n2 = rtDListInsertBefore(&ctxt, &list, nullptr, &v[2]);  // null: append
    Asn1RTDListNode* n4 = rtDListInsertBefore(&ctxt, &list, nullptr, &v[4]);
    rtDListInsertBefore(&ctxt, &list, n2, &v[0]);  // before the head
    rtDListInsertBefore(&ctxt, &list, n4, &v[3]);  // before an inner node
    EXPECT_EQ(items(list), (std::vector<void*>{&v[0], &v[2], &v[3], &v[4]}));
    rtDListInsertAfter(&ctxt, &list, nullptr, &v[7]);  // null: at the head
    rtDListInsertAfter(&ctxt, &list, n4, &v[5]);       // after the tail: append
    rtDListInsertAfter(&ctxt, &list, n2, &v[6]);       // after an inner node
    EXPECT_EQ(items(list), (std::vector<void*>{&v[7], &v[0], &v[2], &v[6], &v[3], &v[4], &v[5]}));
    alloc.failNext();
    EXPECT_EQ(rtDListInsertAfter(&ctxt, &list, n2, &v[1]), nullptr);
    alloc.failNext();
    EXPECT_EQ(rtDListInsertBefore(&ctxt, &list, n2, &v[1]), nullptr);
    EXPECT_EQ(list.count, 7u);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, FindByIndex)
{
    Asn1RTDList list;
    rtDListInit(&list);
    EXPECT_EQ(rtDListFindByIndex(&list, 0), nullptr);
    EXPECT_EQ(rtDListFindByIndex(&list, -1), nullptr);  // -1 >= 0 is false, but no head
    for (int i = 0; i < 4; i++)
        rtDListAppend(&ctxt, &list, &v[i]);
    EXPECT_EQ(rtDListFindByIndex(&list, -1), list.head);  // under 1: the head
    EXPECT_EQ(rtDListFindByIndex(&list, -100), list.head);
    EXPECT_EQ(rtDListFindByIndex(&list, 0)->data, &v[0]);
    EXPECT_EQ(rtDListFindByIndex(&list, 2)->data, &v[2]);
    EXPECT_EQ(rtDListFindByIndex(&list, 3), list.tail);
    EXPECT_EQ(rtDListFindByIndex(&list, 4), nullptr);
    EXPECT_EQ(rtDListFindByIndex(&list, 1000), nullptr);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, FindByDataComparesPointers)
{
    Asn1RTDList list;
    rtDListInit(&list);
    int same = 2;  // equal value, different address
    for (int i = 0; i < 4; i++)
        rtDListAppend(&ctxt, &list, &v[i]);
    rtDListAppend(&ctxt, &list, &v[2]);
    EXPECT_EQ(rtDListFindByData(&list, &v[2]), list.head->next->next);
    EXPECT_EQ(rtDListFindByData(&list, &same), nullptr);
    EXPECT_EQ(rtDListFindIndexByData(&list, &v[2]), 2);
    EXPECT_EQ(rtDListFindIndexByData(&list, &v[0]), 0);
    EXPECT_EQ(rtDListFindIndexByData(&list, &same), -1);
    EXPECT_EQ(rtDListFindIndexByData(&list, nullptr), -1);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, RemoveUnlinksWithoutFreeing)
{
    Asn1RTDList list;
    rtDListInit(&list);
    Asn1RTDListNode* n[4];
    for (int i = 0; i < 4; i++)
        n[i] = rtDListAppend(&ctxt, &list, &v[i]);
    const size_t liveBefore = alloc.live();
    rtDListRemove(&list, n[1]);  // inner
    EXPECT_EQ(items(list), (std::vector<void*>{&v[0], &v[2], &v[3]}));
    rtDListRemove(&list, n[0]);  // head
    EXPECT_EQ(items(list), (std::vector<void*>{&v[2], &v[3]}));
    rtDListRemove(&list, n[3]);  // tail
    EXPECT_EQ(items(list), (std::vector<void*>{&v[2]}));
    rtDListRemove(&list, n[2]);  // the last one
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(alloc.live(), liveBefore);
    for (auto* node : n)
        rtMemHeapFreePtr(&ctxt.typeHeap, node);
}

TEST_F(RtLists, FreeNodesLeavesTheData)
{
    Asn1RTDList list;
    rtDListInit(&list);
    void* data = rtMemHeapAlloc(&ctxt.typeHeap, 10);
    rtDListAppend(&ctxt, &list, data);
    rtDListAppend(&ctxt, &list, data);
    const size_t frees = alloc.freeCalls();
    rtDListFreeNodes(&ctxt, &list);
    EXPECT_EQ(alloc.freeCalls(), frees + 2);
    EXPECT_TRUE(alloc.isLive(blockOf(data)));
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(RtLists, FreeAllFreesTheDataToo)
{
    Asn1RTDList list;
    rtDListInit(&list);
    void* a = rtMemHeapAlloc(&ctxt.typeHeap, 10);
    void* b = rtMemHeapAlloc(&ctxt.typeHeap, 20);
    rtDListAppend(&ctxt, &list, a);
    rtDListAppend(&ctxt, &list, b);
    const size_t frees = alloc.freeCalls();
    rtDListFreeAll(&ctxt, &list);
    EXPECT_EQ(alloc.freeCalls(), frees + 4);
    EXPECT_FALSE(alloc.isLive(blockOf(a)));
    EXPECT_FALSE(alloc.isLive(blockOf(b)));
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    // An empty list is just zeroed.
    list.count = 0;
    rtDListFreeAll(&ctxt, &list);
    EXPECT_EQ(alloc.freeCalls(), frees + 4);
}

TEST_F(RtLists, AppendNodeAndFreeAllOfOpenTypeBlocks)
{
    // As xd_OpenTypeAppend builds them: one zeroed block holds a node and the value behind it.
    Asn1RTDList list;
    rtDListInit(&list);
    for (int i = 0; i < 3; i++) {
        unsigned char* block = static_cast<unsigned char*>(
            rtMemHeapAllocZ(&ctxt.typeHeap, static_cast<int>(sizeof(Asn1RTDListNode) + sizeof(OpenType))));
        void* value = block + sizeof(Asn1RTDListNode);
        const size_t calls = alloc.mallocCalls();
        Asn1RTDListNode* node = rtDListAppendNode(&ctxt, &list, value);
        EXPECT_EQ(alloc.mallocCalls(), calls);  // no allocation
        EXPECT_EQ(static_cast<void*>(node), static_cast<void*>(block));
        EXPECT_EQ(node->data, value);
    }
    EXPECT_EQ(list.count, 3u);
    items(list);
    const size_t frees = alloc.freeCalls();
    rtDListFreeAll(&ctxt, &list);
    EXPECT_EQ(alloc.freeCalls(), frees + 3);  // one block for each element
    EXPECT_EQ(alloc.badFrees(), 0u);
}

TEST_F(RtLists, FreeOpenSeqExtFreesEachValuesOctets)
{
    Asn1RTDList list;
    rtDListInit(&list);
    for (int i = 0; i < 2; i++) {
        unsigned char* block = static_cast<unsigned char*>(
            rtMemHeapAllocZ(&ctxt.typeHeap, static_cast<int>(sizeof(Asn1RTDListNode) + sizeof(OpenType))));
        OpenType* value = reinterpret_cast<OpenType*>(block + sizeof(Asn1RTDListNode));
        value->numocts = 4;
        value->data = static_cast<ASN1OCTET*>(rtMemHeapAlloc(&ctxt.typeHeap, 4));
        rtDListAppendNode(&ctxt, &list, value);
    }
    // A value allocated on its own, with null octets.
    OpenType* loose = static_cast<OpenType*>(rtMemHeapAllocZ(&ctxt.typeHeap, sizeof(OpenType)));
    rtDListAppend(&ctxt, &list, loose);
    const size_t live = alloc.live();
    rtMemFreeOpenSeqExt(&ctxt, &list);
    EXPECT_EQ(alloc.live(), live - 6);  // 2 node+value blocks, 2 octet blocks, the loose value and its node
    EXPECT_EQ(list.count, 0u);
}

TEST_F(RtLists, ToArray)
{
    Asn1RTDList list;
    rtDListInit(&list);
    int values[3] = {10, 20, 30};
    for (int& x : values)
        rtDListAppend(&ctxt, &list, &x);
    // A large enough array and no capacity pointer.
    int out[3] = {};
    void* arr = out;
    EXPECT_EQ(rtDListToArray(&ctxt, &list, &arr, nullptr, sizeof(int)), 3);
    EXPECT_EQ(arr, static_cast<void*>(out));
    EXPECT_EQ(out[0], 10);
    EXPECT_EQ(out[2], 30);
    // Capacity enough: the same array.
    int out2[4] = {};
    arr = out2;
    ASN1UINT cap = 4;
    EXPECT_EQ(rtDListToArray(&ctxt, &list, &arr, &cap, sizeof(int)), 3);
    EXPECT_EQ(arr, static_cast<void*>(out2));
    EXPECT_EQ(cap, 4u);
    EXPECT_EQ(out2[1], 20);
    // Capacity short: raised, a new array from the type heap, the old one untouched.
    int small[1] = {-1};
    arr = small;
    cap = 1;
    EXPECT_EQ(rtDListToArray(&ctxt, &list, &arr, &cap, sizeof(int)), 3);
    EXPECT_EQ(cap, 3u);
    ASSERT_NE(arr, static_cast<void*>(small));
    EXPECT_EQ(small[0], -1);
    EXPECT_TRUE(alloc.isLive(blockOf(arr)));
    EXPECT_EQ(blockOf(arr)->size, 3 * sizeof(int));
    EXPECT_EQ(static_cast<int*>(arr)[0], 10);
    EXPECT_EQ(static_cast<int*>(arr)[2], 30);
    // The new array cannot be had: -12, the array pointer as it was, the error block untouched.
    arr = small;
    cap = 2;
    alloc.failNext();
    EXPECT_EQ(rtDListToArray(&ctxt, &list, &arr, &cap, sizeof(int)), RT_E_NO_MEMORY);
    EXPECT_EQ(arr, static_cast<void*>(small));
    EXPECT_EQ(ctxt.errInfo.status, 0);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, ToArraySizeThatWouldWrapIsRefusedBeforeAnyCopy)
{
    Asn1RTDList list;
    rtDListInit(&list);
    int values[3] = {10, 20, 30};
    for (int& x : values)
        rtDListAppend(&ctxt, &list, &x);
    // 3 * 0x55555556 is 0x100000002: taken in 32 bits it would ask for a 2-octet array.
    int small[1] = {-1};
    void* arr = small;
    ASN1UINT cap = 0;
    const size_t requestsBefore = alloc.mallocCalls();
    EXPECT_EQ(rtDListToArray(&ctxt, &list, &arr, &cap, 0x55555556u), RT_E_NO_MEMORY);
    EXPECT_EQ(alloc.mallocCalls(), requestsBefore);
    EXPECT_EQ(arr, static_cast<void*>(small));
    EXPECT_EQ(small[0], -1);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, AppendArrayPointsIntoTheArray)
{
    Asn1RTDList list;
    rtDListInit(&list);
    short arr[4] = {1, 2, 3, 4};
    rtDListAppendArray(&ctxt, &list, arr, 4, sizeof(short));
    ASSERT_EQ(list.count, 4u);
    EXPECT_EQ(items(list), (std::vector<void*>{&arr[0], &arr[1], &arr[2], &arr[3]}));
    // A failed node allocation skips the element.
    alloc.failNext(1, 1);
    rtDListAppendArray(&ctxt, &list, arr, 3, sizeof(short));
    EXPECT_EQ(list.count, 6u);
    EXPECT_EQ(list.tail->data, &arr[2]);
    EXPECT_EQ(list.tail->prev->data, &arr[0]);
    rtDListFreeNodes(&ctxt, &list);
}

TEST_F(RtLists, AppendArrayCopyTakesATotalInOctets)
{
    Asn1RTDList list;
    rtDListInit(&list);
    const int arr[3] = {7, 8, 9};
    rtDListAppendArrayCopy(&ctxt, &list, arr, sizeof arr, sizeof(int));  // 12 octets: 3 elements
    ASSERT_EQ(list.count, 3u);
    int i = 0;
    for (Asn1RTDListNode* n = list.head; n != nullptr; n = n->next, i++) {
        EXPECT_NE(n->data, static_cast<const void*>(&arr[i]));  // a heap copy
        EXPECT_EQ(*static_cast<int*>(n->data), arr[i]);
        EXPECT_EQ(blockOf(n->data)->size, sizeof(int));
    }
    // Passing an element count where the octets are meant takes fewer elements.
    rtDListAppendArrayCopy(&ctxt, &list, arr, 3, sizeof(int));
    EXPECT_EQ(list.count, 4u);
    rtDListFreeAll(&ctxt, &list);
}

TEST_F(RtLists, AppendArrayCopyNearTheTopOfThe32BitRangeEnds)
{
    Asn1RTDList list;
    rtDListInit(&list);
    const char arr[1] = {0};
    // Steps of 2^30 through a total of 2^32 - 1, every copy refused by the counting
    // allocator's size limit: four requests, then the end. A 32-bit offset would wrap to
    // 0 and go round for ever.
    size_t before = alloc.mallocCalls();
    rtDListAppendArrayCopy(&ctxt, &list, arr, 0xFFFFFFFFu, 0x40000000u);
    EXPECT_EQ(alloc.mallocCalls() - before, 4u);
    EXPECT_EQ(list.count, 0u);
    // An element larger than any heap block: nothing is asked of the allocator at all.
    before = alloc.mallocCalls();
    rtDListAppendArrayCopy(&ctxt, &list, arr, 0xFFFFFFFFu, 0x80000000u);
    EXPECT_EQ(alloc.mallocCalls(), before);
    EXPECT_EQ(list.count, 0u);
}

TEST_F(RtLists, SListWithAContextUsesTheTypeHeap)
{
    Asn1RTSList list;
    std::memset(&list, 0x5A, sizeof list);
    rtSListInitEx(&ctxt, &list);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.pctxt, &ctxt);
    Asn1RTSListNode* a = rtSListAppend(&list, &v[0]);
    Asn1RTSListNode* b = rtSListAppend(&list, &v[1]);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(blockOf(a)->size, 16u);
    EXPECT_EQ(list.head, a);
    EXPECT_EQ(list.tail, b);
    EXPECT_EQ(a->next, b);
    EXPECT_EQ(b->next, nullptr);
    EXPECT_EQ(b->data, &v[1]);
    EXPECT_EQ(list.count, 2u);
    alloc.failNext();
    EXPECT_EQ(rtSListAppend(&list, &v[2]), nullptr);
    EXPECT_EQ(list.count, 2u);
    const size_t frees = alloc.freeCalls();
    rtSListFree(&list);
    EXPECT_EQ(alloc.freeCalls(), frees + 2);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.pctxt, nullptr);  // the context too
}

TEST_F(RtLists, SListWithoutAContextUsesMalloc)
{
    Asn1RTSList list;
    rtSListInitEx(nullptr, &list);
    const size_t calls = alloc.mallocCalls();
    for (int i = 0; i < 5; i++)
        ASSERT_NE(rtSListAppend(&list, &v[i]), nullptr);
    EXPECT_EQ(alloc.mallocCalls(), calls);  // not the runtime's allocator
    EXPECT_EQ(list.count, 5u);
    rtSListFree(&list);  // LeakSanitizer checks these went back to free()
    EXPECT_EQ(list.count, 0u);
}

// ---- Memory buffer -----------------------------------------------------------------------

TEST_F(RtLists, MemBufInit)
{
    Asn1RTMemBuf mb;
    std::memset(&mb, 0x5A, sizeof mb);
    rtMemBufInit(&ctxt, &mb, 16);
    EXPECT_EQ(mb.pctxt, &ctxt);
    EXPECT_EQ(mb.segsize, 16u);
    EXPECT_EQ(mb.startidx, 0u);
    EXPECT_EQ(mb.usedcnt, 0u);
    EXPECT_EQ(mb.bufsize, 0u);
    EXPECT_EQ(mb.reserved[0], 0u);
    EXPECT_EQ(mb.reserved[1], 0u);
    EXPECT_EQ(mb.buffer, nullptr);
    EXPECT_EQ(mb.isDynamic, 1);
    int len = -1;
    EXPECT_EQ(rtMemBufGetData(&mb, &len), nullptr);
    EXPECT_EQ(len, 0);
}

TEST_F(RtLists, MemBufAppendGrowsBySegments)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 16);
    EXPECT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("hello"), 5), 0);
    EXPECT_EQ(mb.bufsize, 16u);
    EXPECT_EQ(mb.usedcnt, 5u);
    EXPECT_EQ(alloc.requests().back(), 16u + 48u);
    ASN1OCTET* first = mb.buffer;
    EXPECT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>(" world, again"), 13), 0);
    EXPECT_EQ(mb.usedcnt, 18u);
    EXPECT_EQ(mb.bufsize, 32u);  // (18 - 1) / 16 + 1 = 2 segments
    EXPECT_NE(mb.buffer, first);
    int len = 0;
    ASN1OCTET* data = rtMemBufGetData(&mb, &len);
    EXPECT_EQ(len, 18);
    EXPECT_EQ(std::memcmp(data, "hello world, again", 18), 0);
    EXPECT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("!"), 0), 0);
    EXPECT_EQ(mb.usedcnt, 18u);
    // Exactly full: no growth.
    EXPECT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("0123456789abcd"), 14), 0);
    EXPECT_EQ(mb.bufsize, 32u);
    EXPECT_EQ(mb.usedcnt, 32u);
    rtMemBufFree(&mb);
    EXPECT_FALSE(alloc.isLive(blockOf(data)));
    EXPECT_EQ(mb.usedcnt, 32u);  // fields are not reset
}

TEST_F(RtLists, MemBufAppendWithNullDataReservesOnly)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 10);
    EXPECT_EQ(rtMemBufAppend(&mb, nullptr, 25), 0);
    EXPECT_EQ(mb.usedcnt, 0u);
    EXPECT_EQ(mb.bufsize, 30u);
    EXPECT_NE(mb.buffer, nullptr);
    rtMemBufFree(&mb);
}

TEST_F(RtLists, MemBufSetAndPreAllocate)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 8);
    EXPECT_EQ(rtMemBufSet(&mb, 0x41, 0), 0);  // writes nothing
    EXPECT_EQ(mb.buffer, nullptr);
    EXPECT_EQ(mb.usedcnt, 0u);
    EXPECT_EQ(rtMemBufPreAllocate(&mb, 0), 0);
    EXPECT_EQ(mb.buffer, nullptr);
    EXPECT_EQ(rtMemBufPreAllocate(&mb, 9), 0);
    EXPECT_EQ(mb.bufsize, 16u);
    EXPECT_EQ(mb.usedcnt, 0u);
    EXPECT_EQ(rtMemBufSet(&mb, 0x41, 3), 0);
    EXPECT_EQ(rtMemBufSet(&mb, 0x42, 2), 0);
    EXPECT_EQ(mb.usedcnt, 5u);
    EXPECT_EQ(std::memcmp(mb.buffer, "AAABB", 5), 0);
    EXPECT_EQ(mb.bufsize, 16u);
    rtMemBufFree(&mb);
}

TEST_F(RtLists, MemBufGetDataAndReset)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 8);
    ASSERT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("abcdef"), 6), 0);
    mb.startidx = 2;
    mb.reserved[0] = 9;
    int len = 0;
    EXPECT_EQ(rtMemBufGetData(&mb, &len), mb.buffer + 2);
    EXPECT_EQ(len, 4);
    EXPECT_EQ(rtMemBufGetData(&mb, nullptr), mb.buffer + 2);  // null length still works
    ASN1OCTET* storage = mb.buffer;
    rtMemBufReset(&mb);
    EXPECT_EQ(mb.startidx, 0u);
    EXPECT_EQ(mb.usedcnt, 0u);
    EXPECT_EQ(mb.reserved[0], 0u);
    EXPECT_EQ(mb.bufsize, 8u);
    EXPECT_EQ(mb.buffer, storage);
    rtMemBufFree(&mb);
}

TEST_F(RtLists, MemBufAllocationFailure)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 8);
    alloc.failNext();
    EXPECT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("x"), 1), RT_E_NO_MEMORY);
    EXPECT_EQ(mb.buffer, nullptr);
    EXPECT_EQ(mb.bufsize, 0u);
    ASSERT_EQ(rtMemBufAppend(&mb, reinterpret_cast<const ASN1OCTET*>("12345678"), 8), 0);
    alloc.failNext();
    EXPECT_EQ(rtMemBufSet(&mb, 0, 1), RT_E_NO_MEMORY);
    alloc.failNext();
    EXPECT_EQ(rtMemBufPreAllocate(&mb, 1), RT_E_NO_MEMORY);
    EXPECT_EQ(mb.bufsize, 8u);
    EXPECT_EQ(mb.usedcnt, 8u);
    EXPECT_EQ(std::memcmp(mb.buffer, "12345678", 8), 0);
    EXPECT_EQ(ctxt.errInfo.status, 0);  // buffer functions do not touch the error block
    rtMemBufFree(&mb);
}

TEST_F(RtLists, MemBufNotDynamicTakesFreshStorage)
{
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 4);
    ASN1OCTET own[4] = {1, 2, 3, 4};
    mb.buffer = own;
    mb.bufsize = 4;
    mb.usedcnt = 4;
    mb.isDynamic = 0;
    rtMemBufFree(&mb);  // not dynamic: nothing freed
    EXPECT_EQ(rtMemBufPreAllocate(&mb, 1), 0);
    EXPECT_NE(mb.buffer, own);
    EXPECT_EQ(mb.isDynamic, 1);
    EXPECT_EQ(mb.bufsize, 8u);
    rtMemBufFree(&mb);
}

// ---- Bits --------------------------------------------------------------------------------

TEST(RtBits, SetClearTest)
{
    ASN1OCTET bits[2] = {0x80, 0x00};
    EXPECT_EQ(rtSetBit(bits, 16, 0), 0x80);  // already set: its place value, stays set
    EXPECT_EQ(bits[0], 0x80);
    EXPECT_EQ(rtSetBit(bits, 16, 9), 0);  // clear before
    EXPECT_EQ(bits[1], 0x40);
    EXPECT_EQ(rtSetBit(bits, 16, 9), 0x40);
    EXPECT_EQ(rtSetBit(bits, 10, 10), RT_E_OUT_OF_RANGE);
    EXPECT_EQ(rtSetBit(bits, 0, 0), -29);
    EXPECT_EQ(rtTestBit(bits, 16, 0), 0x80);
    EXPECT_EQ(rtTestBit(bits, 16, 9), 0x40);
    EXPECT_EQ(rtTestBit(bits, 16, 1), 0);
    EXPECT_EQ(rtTestBit(bits, 9, 9), 0);  // not below the count
    EXPECT_EQ(rtClearBit(bits, 16, 9), 0x40);
    EXPECT_EQ(bits[1], 0);
    EXPECT_EQ(rtClearBit(bits, 16, 9), 0);
    EXPECT_EQ(rtClearBit(bits, 16, 16), RT_E_OUT_OF_RANGE);
    EXPECT_EQ(rtClearBit(bits, 16, 0), 0x80);
    EXPECT_EQ(bits[0], 0);
    EXPECT_EQ(rtSetBit(bits, 16, 7), 0);
    EXPECT_EQ(bits[0], 0x01);
    EXPECT_EQ(rtTestBit(bits, 8, 7), 1);
}

TEST(RtBits, OctetBitLen)
{
    EXPECT_EQ(rtOctetBitLen(0x01), 8);
    EXPECT_EQ(rtOctetBitLen(0x40), 2);
    EXPECT_EQ(rtOctetBitLen(0x80), 1);
    EXPECT_EQ(rtOctetBitLen(0x00), 0);
    EXPECT_EQ(rtOctetBitLen(0xFF), 8);
    EXPECT_EQ(rtOctetBitLen(0x0C), 6);
    EXPECT_EQ(rtOctetBitLen(0x90), 4);
}

// ---- Forward-writing buffer functions ------------------------------------------------------

TEST_F(RtLists, CheckBufferStaticFull)
{
    ASN1OCTET out[4] = {};
    ASSERT_EQ(rtInitContextBuffer(&ctxt, out, sizeof out), 0);
    EXPECT_EQ(rtCheckBuffer(&ctxt, 4), 0);
    EXPECT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("abc"), 3), 0);
    EXPECT_EQ(ctxt.bufIndex, 3u);
    EXPECT_EQ(rtCheckBuffer(&ctxt, 1), 0);
    EXPECT_EQ(rtCheckBuffer(&ctxt, 2), RT_E_BUFFER_FULL);
    EXPECT_EQ(ctxt.errInfo.status, -1);
    EXPECT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("de"), 2), -1);
    EXPECT_EQ(ctxt.bufIndex, 3u);
    EXPECT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("d"), 1), 0);
    EXPECT_EQ(std::memcmp(out, "abcd", 4), 0);
    EXPECT_EQ(rtWriteBytes(&ctxt, nullptr, 0), 0);  // count 0
    EXPECT_EQ(ctxt.bufSize, 4u);
}

TEST_F(RtLists, CheckBufferGrowsADynamicBuffer)
{
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 8), 0);
    ASSERT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("12345678"), 8), 0);
    EXPECT_EQ(ctxt.bufSize, 8u);
    ASSERT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("9"), 1), 0);
    EXPECT_EQ(ctxt.bufSize, 8u + 16384u);  // by 16384 when that is more
    EXPECT_EQ(std::memcmp(ctxt.bufData, "123456789", 9), 0);
    ctxt.bufIndex = ctxt.bufSize;
    ASSERT_EQ(rtCheckBuffer(&ctxt, 20000), 0);
    EXPECT_EQ(ctxt.bufSize, 8u + 16384u + 20000u);  // by the count when that is more
    EXPECT_EQ(heapOf(ctxt.msgHeap)->head, blockOf(ctxt.bufData));
    EXPECT_EQ(ctxt.errInfo.status, 0);
}

TEST_F(RtLists, CheckBufferGrowthFailureKeepsTheRaisedSize)
{
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 8), 0);
    ASN1OCTET* data = ctxt.bufData;
    ctxt.bufIndex = 8;
    alloc.failNext();
    EXPECT_EQ(rtCheckBuffer(&ctxt, 1), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.errInfo.status, -12);
    EXPECT_EQ(ctxt.bufSize, 8u + 16384u);  // raised first
    EXPECT_EQ(ctxt.bufData, data);
}

TEST_F(RtLists, CheckBufferGrowthPastTheHeapsReachFailsWithoutWrapping)
{
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 8), 0);
    ASN1OCTET* data = ctxt.bufData;
    ctxt.bufIndex = 8;
    const size_t requestsBefore = alloc.mallocCalls();
    // 8 plus this count passes 2^32: a wrapped size of 3 would have "fit" in the old block.
    EXPECT_EQ(rtCheckBuffer(&ctxt, 0xFFFFFFFBu), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.errInfo.status, -12);
    EXPECT_EQ(ctxt.bufSize, 8u);
    EXPECT_EQ(ctxt.bufData, data);
    // Below 2^32 but beyond what one heap block can hold: -12 with no request made, the
    // size raised as on every failed growth.
    EXPECT_EQ(rtCheckBuffer(&ctxt, static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC) - 7u), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.bufSize, static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC) + 1u);
    EXPECT_EQ(ctxt.bufData, data);
    EXPECT_EQ(alloc.mallocCalls(), requestsBefore);
    // The largest growth that still fits is attempted (and here refused by the allocator).
    ctxt.bufSize = 8;
    alloc.failNext();
    EXPECT_EQ(rtCheckBuffer(&ctxt, static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC) - 8u), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.bufSize, static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC));
    EXPECT_EQ(alloc.mallocCalls(), requestsBefore + 1);
}

}  // namespace
